// A baseline: hashes of the kernels as last accepted, in a text file under version control.
#pragma once

#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
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
};

bool operator==(const kernel_fingerprint& a, const kernel_fingerprint& b);

kernel_fingerprint fingerprint_of(const placed_kernel& kernel);

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

enum class baseline_status { same, changed, added, removed };

/// The status as commands print it: "same", "changed", "added", "removed".
std::string_view name_of(baseline_status status);

struct baseline_difference {
    std::string name;
    baseline_status status = baseline_status::same;
    std::optional<kernel_fingerprint> before; ///< of the baseline
    std::optional<kernel_fingerprint> after;  ///< of the dumps
    std::size_t line = 0; ///< in the baseline; for an added kernel the one that it would precede, or the last
    std::size_t kernel = 0; ///< index in the set; meaningless for a removed kernel

    [[nodiscard]] bool code_changed() const;
    [[nodiscard]] bool relocations_changed() const;
    [[nodiscard]] bool constants_changed() const;
};

/// Every kernel of either, sorted by name. Throws std::runtime_error if two kernels of the set have the same
/// name and differ.
std::vector<baseline_difference> compare_with_baseline(const baseline& entries, const kernel_set& set);

/// A kernel's listing for a review: its rows with the words as generated, relocations, constants. It does not
/// depend on addresses.
std::string baseline_listing(const placed_kernel& kernel, disassembler& disassembler);

/// Whether two such texts have the same words, relocations and constants. The disassembly is not compared.
bool same_listing(std::string_view a, std::string_view b);

/// The name of the file for a kernel's listing: the kernel's name and ".txt". Bytes that not every file
/// system accepts become "%" and two digits, and a hash replaces the end of a long name.
std::string listing_file_name(std::string_view kernel);

} // namespace vorna::workbench
