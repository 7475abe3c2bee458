#include "workbench/text/printable.hpp"

#include <cstddef>

namespace vorna::workbench {

namespace {

struct utf8_sequence {
    std::size_t size; ///< of a character, or of an invalid sequence
    bool valid;
};

// The first character of the bytes; there is at least one. An invalid sequence ends before the first byte
// that cannot continue it, as the Unicode standard recommends for substitution.
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

} // namespace

std::string valid_utf8(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const utf8_sequence sequence = first_sequence(bytes);
        text += sequence.valid ? bytes.substr(0, sequence.size) : "\xef\xbf\xbd";
        bytes.remove_prefix(sequence.size);
    }
    return text;
}

} // namespace vorna::workbench
