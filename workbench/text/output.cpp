#include "workbench/text/output.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

std::string printable(std::string_view name)
{
    std::string text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            text += "\\n";
        else if (c == '\t')
            text += "\\t";
        else if (byte < 0x20 || byte == 0x7f)
            text += fmt::format("\\x{:02x}", byte);
        else if (byte >= 0x80 && byte < 0xa0 && !text.empty() && text.back() == '\xc2')
            text.replace(text.size() - 1, 1, fmt::format("\\x{:02x}", byte)); // U+0080 to U+009F in UTF-8
        else
            text += c;
    }
    return text;
}

std::string place_text(std::string_view kernel)
{
    return printable(kernel);
}

std::string place_text(std::string_view kernel, std::int64_t offset)
{
    return printable(kernel) + signed_hex(offset);
}

std::string with_addend(std::string_view name, std::int64_t addend)
{
    return std::string(name) + (addend == 0 ? "" : signed_hex(addend));
}

std::string few_of(const std::vector<std::string>& names)
{
    constexpr std::size_t most = 8;
    std::string text;
    for (std::size_t i = 0; i < names.size() && i < most; ++i)
        text += (i == 0 ? "" : ", ") + printable(names[i]);
    if (names.size() > most)
        text += fmt::format(" and {} more", names.size() - most);
    return text;
}

std::string counted(std::size_t count, std::string_view noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string grouped(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, 1, ',');
    return digits;
}

std::string painted(std::string_view text, colour c, bool enabled)
{
    static constexpr const char* codes[] = {"", "1;31", "1;33", "32", "36", "1", "2"};
    if (!enabled || c == colour::none)
        return std::string(text);
    return fmt::format("\x1b[{}m{}\x1b[0m", codes[static_cast<std::size_t>(c)], text);
}

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
