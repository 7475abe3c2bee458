#include "workbench/text/place.hpp"

#include "workbench/text/printable.hpp"

namespace vorna::workbench {

std::string place_text(std::string_view kernel)
{
    return printable(kernel);
}

std::string place_text(std::string_view kernel, std::int64_t offset)
{
    return printable(kernel) + signed_hex(offset);
}

} // namespace vorna::workbench
