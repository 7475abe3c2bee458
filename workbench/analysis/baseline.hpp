// A baseline: what kernels were when somebody last agreed to them, in a text file under version control.
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
    std::string code;        ///< of the code as it was generated, before relocations are applied
    std::string relocations; ///< of the relocations in the order of their offsets: of each the offset, type
                             ///< and addend in 32 bits, a byte 1 if the target is the own data and otherwise
                             ///< 0, and of any other target the length of its name in 32 bits and the name
    std::string constants;   ///< of the data
    std::uint64_t instructions = 0; ///< whole words of the code
};

bool operator==(const kernel_fingerprint& a, const kernel_fingerprint& b);

kernel_fingerprint fingerprint_of(const placed_kernel& kernel);

struct baseline_entry {
    std::string name;
    kernel_fingerprint fingerprint;
    std::size_t line = 0; ///< in the file, from 1
};

/// In the order of names, no name twice.
using baseline = std::vector<baseline_entry>;

/// Reads a baseline's text. Throws std::runtime_error with the line and what is wrong with it ("line 7: …").
baseline parse_baseline(std::string_view text);

/// The text: "vorna-kernels baseline 1", then a line each: name, three hashes and the number of instructions
/// with a blank between. In a name all bytes but the visible ones of ASCII, and "\", are written as "\x" and
/// two digits; "\e" stands for an empty one.
std::string format_baseline(const baseline& entries);

/// A name as the baseline has it.
std::string escaped_name(std::string_view name);

enum class baseline_status { same, changed, added, removed };

/// The status as commands print it: "same", "changed", "added", "removed".
std::string_view name_of(baseline_status status);

struct baseline_difference {
    std::string name;
    baseline_status status = baseline_status::same;
    std::optional<kernel_fingerprint> before; ///< of the baseline
    std::optional<kernel_fingerprint> after;  ///< of the dumps
    std::size_t line = 0; ///< in the baseline; of an added kernel the one it would stand before, or the last
    std::size_t kernel = 0; ///< index in the set; meaningless for a removed kernel

    [[nodiscard]] bool code_changed() const;
    [[nodiscard]] bool relocations_changed() const;
    [[nodiscard]] bool constants_changed() const;
};

/// Every kernel of either, in the order of names. Throws std::runtime_error if the set has a name twice and
/// the two differ.
std::vector<baseline_difference> compare_with_baseline(const baseline& entries, const kernel_set& set);

/// A kernel's listing for a review: its rows with the words that were generated, relocations, constants.
/// Nothing in it depends on addresses.
std::string baseline_listing(const placed_kernel& kernel, disassembler& disassembler);

/// Whether two such texts have the same words, relocations and constants. What the disassembler makes of them
/// is not compared.
bool same_listing(std::string_view a, std::string_view b);

/// The name of the file for a kernel's listing: its name if that can be a file's on every system, otherwise
/// with
/// "%" and two digits for what cannot, and a hash in place of the end of a long one; and ".txt".
std::string listing_file_name(std::string_view kernel);

} // namespace vorna::workbench
