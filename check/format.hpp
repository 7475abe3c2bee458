// Formats numbers and names for messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorna::wfta {

/// The first character of the bytes, or what is not UTF-8.
struct utf8_sequence {
    std::size_t size;
    bool valid;
};

/// There must be at least one byte. An invalid sequence ends before the first byte that cannot continue it,
/// as the Unicode standard recommends for substitution.
utf8_sequence first_sequence(std::string_view bytes);

/// The name on one line, in UTF-8: control characters and invalid bytes escaped ("\n", "\x1b", "\xff"),
/// everything else unchanged.
std::string printable(std::string_view name);

/// The printable name in quotes; truncated if very long, since names in dumps may have any length.
std::string quoted(std::string_view name);

/// "0x10".
std::string hex(std::uint64_t value);

/// "+0x10", "-0x8".
std::string signed_hex(std::int64_t value);

/// A symbol and an addend: "NAME", "NAME+0x10", "NAME-0x8".
std::string with_addend(std::string_view name, std::int64_t addend);

/// An instruction word: "0x94000000".
std::string word_text(std::uint32_t word);

/// "a BL", "an ADRP".
std::string with_article(std::string_view instruction);

/// A relocation in C++ syntax: {"callee", 4, 283, 0}.
std::string relocation_text(std::string_view target, std::int64_t offset, std::int32_t type,
                            std::int64_t addend);

} // namespace vorna::wfta
