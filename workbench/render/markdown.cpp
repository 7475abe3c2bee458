#include "workbench/render/markdown.hpp"

#include "workbench/render/json.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <fmt/format.h>

namespace vorna::workbench {

// With entities for the characters of `special`, and for an underscore unless it is inside a word.
static std::string escaped(std::string_view text, std::string_view special)
{
    const std::string valid = valid_utf8(text);
    const auto is_word = [&](std::size_t i) {
        return i < valid.size() && std::isalnum(static_cast<unsigned char>(valid[i])) != 0;
    };
    std::string result;
    for (std::size_t i = 0; i < valid.size(); ++i) {
        const char c = valid[i];
        const bool plain =
            c == '_' ? is_word(i - 1) && is_word(i + 1) : special.find(c) == std::string_view::npos;
        result += plain ? std::string(1, c) : fmt::format("&#{};", static_cast<int>(c));
    }
    return result;
}

std::string markdown_text(std::string_view text)
{
    return escaped(text, "<&|`*~[]\\$@#");
}

std::string markdown_code(std::string_view text)
{
    return "<code>" + escaped(text, "<>&\"'|`*~[]!\\$@#:") + "</code>";
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
