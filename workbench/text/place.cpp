#include "workbench/text/place.hpp"

#include "workbench/text/printable.hpp"

#include <algorithm>
#include <bit>

namespace vorna::workbench {

std::string place_text(std::string_view kernel)
{
    return printable(kernel);
}

std::string place_text(std::string_view kernel, std::int64_t offset)
{
    return printable(kernel) + signed_hex(offset);
}

int hex_digits(std::uint64_t last_offset)
{
    return std::max(1, (static_cast<int>(std::bit_width(last_offset)) + 3) / 4);
}

} // namespace vorna::workbench
