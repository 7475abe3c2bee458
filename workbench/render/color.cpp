#include "workbench/render/color.hpp"

#include <cstddef>
#include <fmt/format.h>

namespace vorna::workbench {

std::string colorize(std::string_view text, color c, bool enabled)
{
    static constexpr const char* codes[] = {"", "1;31", "1;33", "32", "36", "1", "2"};
    if (!enabled || c == color::none || text.empty())
        return std::string(text);
    return fmt::format("\x1b[{}m{}\x1b[0m", codes[static_cast<std::size_t>(c)], text);
}

} // namespace vorna::workbench
