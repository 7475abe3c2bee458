// The listing of a kernel: its instructions as they run, or as they were generated.
#pragma once

#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// One row: an instruction word, or, after the last whole word of the code, a byte.
struct listing_row {
    std::size_t offset = 0; ///< in the kernel's text
    std::size_t size = 4;   ///< bytes
    std::uint32_t word = 0; ///< with relocations applied, unless the listing is of the code as generated
    std::string text;    ///< instruction with its targets by name; ".word 0x…", ".byte 0x…" if it is none
    std::string comment; ///< values of the constants that it loads, and the like; may be empty
    std::string
        label; ///< if the kernel branches here or reads this, its name in the text of what does; else empty
    bool is_data = false; ///< not an instruction: the code reads it, and never executes it
    std::optional<std::size_t> branch_target; ///< offset that a branch within the kernel leads to
    std::string callee;                       ///< name of the kernel that a BL calls; empty if it calls none
};

struct kernel_listing {
    std::size_t instructions = 0;     ///< words of the text that are not data
    std::vector<std::string> calls;   ///< names, each once, in the order of the calls
    std::vector<std::string> callers; ///< names of the kernels in the set that call this one, in their order
    std::vector<listing_row> rows;
};

/// Lists a kernel of the set. With `linked` the relocations are applied, and their targets stand in the text;
/// one that cannot be applied leaves the word as it is and is told in the comment. Otherwise the words are
/// those that were generated, and the relocations are comments. Throws std::runtime_error for a kernel that
/// is larger than is decoded (largest_decoded_code).
kernel_listing list_kernel(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                           bool linked = true);

/// Lists a kernel with the words that were generated, and with the targets in the text of those that their
/// relocation fits. Throws as list_kernel does.
kernel_listing list_generated(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler);

/// The instruction at the offset as it was generated, with its relocation's target as its last operand if its
/// field is zero.
std::string generated_text(const placed_kernel& kernel, std::size_t offset, disassembler& disassembler);

/// Lists a kernel by itself: targets by name, words as they were generated. Nothing in it depends on where
/// the kernel and its callees were placed. Throws as list_kernel does.
kernel_listing list_without_addresses(const placed_kernel& kernel, disassembler& disassembler);

/// The row as the command `show` prints it, without colour and newline, and without its label; the offset
/// with at least so many digits.
std::string row_text(const listing_row& row, int offset_digits = 2);

/// The digits of the kernel's last offset.
int offset_digits(const placed_kernel& kernel);

/// What `show` prints above a kernel's rows: name, address, sizes, calls and callers (the first few of many),
/// in one line.
std::string headline(const placed_kernel& kernel, const kernel_listing& listing);

} // namespace vorna::workbench
