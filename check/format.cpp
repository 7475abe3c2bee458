#include "check/format.hpp"

#include <cstddef>
#include <cstdio>

namespace vorna::wfta {

static std::string escaped(unsigned char byte)
{
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

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
            text += escaped(byte);
        else if (byte >= 0x80 && byte < 0xa0 && !text.empty() && text.back() == '\xc2')
            text.replace(text.size() - 1, 1, escaped(byte)); // U+0080 to U+009F in UTF-8
        else
            text += c;
    }
    return text;
}

// Truncates to 255 bytes: no file name is longer.
static std::string shortened(std::string_view name)
{
    constexpr std::size_t longest = 255;
    return name.size() <= longest ? printable(name) : printable(name.substr(0, longest)) + "...";
}

std::string quoted(std::string_view name)
{
    return "'" + shortened(name) + "'";
}

std::string hex(std::uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string signed_hex(std::int64_t value)
{
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? "-" + hex(0 - bits) : "+" + hex(bits);
}

std::string with_addend(std::string_view name, std::int64_t addend)
{
    return std::string(name) + (addend == 0 ? "" : signed_hex(addend));
}

std::string word_text(std::uint32_t word)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(word));
    return text;
}

std::string with_article(std::string_view instruction)
{
    return (instruction.substr(0, 1) == "A" ? "an " : "a ") + std::string(instruction);
}

std::string relocation_text(std::string_view target, std::int64_t offset, std::int32_t type,
                            std::int64_t addend)
{
    std::string name;
    for (const char c : shortened(target))
        name += c == '"' ? std::string("\\\"") : std::string(1, c);
    return "{\"" + name + "\", " + std::to_string(offset) + ", " + std::to_string(type) + ", " +
           std::to_string(addend) + "}";
}

} // namespace vorna::wfta
