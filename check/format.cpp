#include "check/format.hpp"

#include <cstdio>

namespace vorna::wfta {

static std::string escaped(unsigned char byte)
{
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

utf8_sequence first_sequence(std::string_view bytes)
{
    const auto lead = static_cast<unsigned char>(bytes[0]);
    if (lead < 0x80)
        return {1, true};
    const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4)
        return {1, false};
    for (std::size_t i = 1; i < size; ++i) {
        if (i == bytes.size())
            return {i, false};
        // The second byte shows overlong forms, surrogates and values above U+10FFFF.
        const unsigned least = i > 1 ? 0x80 : lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
        const unsigned greatest = i > 1 ? 0xbf : lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte < least || byte > greatest)
            return {i, false};
    }
    return {size, true};
}

std::string printable(std::string_view name)
{
    std::string text;
    while (!name.empty()) {
        const utf8_sequence sequence = first_sequence(name);
        const std::string_view bytes = name.substr(0, sequence.size);
        const auto last = static_cast<unsigned char>(bytes.back());
        const bool is_c1_control = sequence.valid && bytes[0] == '\xc2' && last < 0xa0; // U+0080 to U+009F
        if (bytes == "\n")
            text += "\\n";
        else if (bytes == "\t")
            text += "\\t";
        else if (last < 0x20 || last == 0x7f || is_c1_control)
            text += escaped(last);
        else if (sequence.valid)
            text += bytes;
        else
            for (const char c : bytes)
                text += escaped(static_cast<unsigned char>(c));
        name.remove_prefix(sequence.size);
    }
    return text;
}

// Truncates to 255 bytes, since no file name is longer, or to a few less where a character would be cut.
static std::string shortened(std::string_view name)
{
    std::size_t longest = 255;
    if (name.size() <= longest)
        return printable(name);
    for (int i = 0; i < 3 && (static_cast<unsigned char>(name[longest]) & 0xc0) == 0x80; ++i)
        --longest;
    return printable(name.substr(0, longest)) + "...";
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
