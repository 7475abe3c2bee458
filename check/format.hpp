// How messages show numbers and names.
#pragma once

#include <cstdint>
#include <string>

namespace vorna::wfta {

/// "+0x10", "-0x8".
std::string signed_hex(std::int64_t value);

/// An instruction word: "0x94000000".
std::string word_text(std::uint32_t word);

/// The name, or the beginning of a very long one: in a dump a name may have any length.
std::string shortened(const std::string& name);

/// A target and its addend: "NAME", "NAME+0x10".
std::string with_addend(const std::string& name, std::int64_t addend);

} // namespace vorna::wfta
