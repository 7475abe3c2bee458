// The file of a baseline: hashes of the kernels as last accepted, a line each, under version control.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// A kernel without its addresses. The hashes are XXH3's of 128 bits, in 32 hexadecimal digits.
struct kernel_fingerprint {
    std::string code; ///< of the code as generated, before relocation
    /// Of the relocations by offset: offset, type and addend in 32 bits each, then a byte 1 if the target is
    /// the kernel's own data; otherwise a byte 0, the length of the target's name in 32 bits, and the name.
    std::string relocations;
    std::string constants;          ///< of the data
    std::uint64_t instructions = 0; ///< whole words of the code

    friend bool operator==(const kernel_fingerprint& a, const kernel_fingerprint& b) = default;
};

struct baseline_entry {
    std::string name;
    kernel_fingerprint fingerprint;
    std::size_t line = 0; ///< in the file, from 1
};

/// Sorted by name, without duplicates.
using baseline = std::vector<baseline_entry>;

/// Reads a baseline's text. Throws std::runtime_error with the line and what is wrong with it ("line 7: …").
baseline parse_baseline(std::string_view text);

/// The text: "vorna-kernels baseline 1", then a line for each kernel: name, three hashes and the number of
/// instructions, separated by blanks. In a name, "\" and all bytes other than visible ASCII are written as
/// "\x" and two digits; "\e" is an empty name.
std::string format_baseline(const baseline& entries);

/// A name as it is written in the baseline.
std::string escaped_name(std::string_view name);

} // namespace vorna::workbench
