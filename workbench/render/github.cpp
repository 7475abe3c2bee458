#include "workbench/render/github.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

static std::string escaped(std::string_view text, std::string_view special)
{
    std::string result;
    for (const char c : text) {
        if (special.find(c) == std::string_view::npos)
            result += c;
        else
            result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return result;
}

std::string github_annotation(std::string_view level, std::string_view title, std::string_view message,
                              std::string_view file, std::size_t line)
{
    constexpr std::string_view in_message = "%\r\n";
    constexpr std::string_view in_property = "%\r\n:,";
    std::string properties;
    if (!file.empty())
        properties += "file=" + escaped(file, in_property) + ",";
    if (line != 0)
        properties += fmt::format("line={},", line);
    properties += "title=" + escaped(title, in_property);
    return fmt::format("::{} {}::{}\n", level, properties, escaped(message, in_message));
}

} // namespace vorna::workbench
