// How messages show numbers and names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorna::wfta {

/// The name for a line of text: control characters as "\n", "\x1b" and the like, everything else unchanged.
std::string printable(std::string_view name);

/// The name, printable and in quotes; only the beginning of a very long one, since names in dumps may have
/// any length.
std::string quoted(std::string_view name);

/// "0x10".
std::string hex(std::uint64_t value);

/// "+0x10", "-0x8".
std::string signed_hex(std::int64_t value);

/// "NAME", "NAME+0x10", "NAME-0x8": a symbol and an addend.
std::string with_addend(std::string_view name, std::int64_t addend);

/// An instruction word: "0x94000000".
std::string word_text(std::uint32_t word);

/// "a BL", "an ADRP".
std::string with_article(std::string_view instruction);

/// A relocation in C++ syntax: {"callee", 4, 283, 0}.
std::string relocation_text(std::string_view target, std::int64_t offset, std::int32_t type,
                            std::int64_t addend);

} // namespace vorna::wfta
