#include "workbench/render/markdown.hpp"

#include "workbench/render/json.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <cstddef>
#include <fmt/format.h>

namespace vorna::workbench {

std::string markdown_code(std::string_view text)
{
    std::string result = "<code>";
    for (const char c : valid_utf8(text)) {
        const bool plain = std::string_view("<>&\"'|`*~[]!\\$@#:").find(c) == std::string_view::npos;
        result += plain ? std::string(1, c) : fmt::format("&#{};", static_cast<int>(c));
    }
    return result + "</code>";
}

std::string markdown_block(std::string_view language, const std::vector<std::string>& lines)
{
    std::string text;
    std::size_t longest_run = 2;
    for (const std::string& line : lines) {
        std::size_t run = 0;
        for (const char c : line) {
            run = c == '`' ? run + 1 : 0;
            longest_run = std::max(longest_run, run);
        }
        text += valid_utf8(line) + "\n";
    }
    const std::string fence(longest_run + 1, '`');
    return fmt::format("{}{}\n{}{}\n", fence, language, text, fence);
}

} // namespace vorna::workbench
