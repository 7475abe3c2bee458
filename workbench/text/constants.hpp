// A kernel's constants as listings show them: eight bytes each, as a number and as a double.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vorna::workbench {

/// A little-endian number of up to eight bytes.
struct constant {
    std::uint64_t bits = 0;
    std::size_t size = 8; ///< in bytes

    // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy takes the zero of the comparison for a pointer
    friend auto operator<=>(const constant& a, const constant& b) = default;
};

/// The bytes as constants of eight bytes; the last one has the bytes that are left.
std::vector<constant> split_constants(std::span<const std::uint8_t> bytes);

/// The number with two digits a byte: "3ff8000000000000".
std::string hexadecimal(const constant& number);

/// The bytes in their order, with two digits each: "000000000000f83f".
std::string hexadecimal(std::span<const std::uint8_t> bytes);

/// The shortest text of the double that the constant probably is: "1.5". Empty if it has fewer than eight
/// bytes, or for a number that hardly anybody means (not 0, and not between 1e-30 and 1e30 in magnitude).
std::string probable_double(const constant& number);

} // namespace vorna::workbench
