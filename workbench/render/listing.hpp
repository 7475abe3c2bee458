// Disassembly listings of kernels: linked, or as generated.
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

/// One row: an instruction word, or, after the last whole word of the code, a byte.
struct listing_row {
    std::size_t offset = 0; ///< in the kernel's code
    std::size_t size = 4;   ///< bytes
    std::uint32_t word = 0; ///< with relocations applied in a linked listing, otherwise as generated
    std::string text;    ///< instruction with symbolic targets; ".word 0x…" or ".byte 0x…" if undecodable
    std::string comment; ///< values of loaded constants and other remarks; may be empty
    std::string label; ///< if the kernel branches here or reads this, its name in those rows; otherwise empty
    bool is_data = false;                     ///< data in the code: read, but never executed
    std::optional<std::size_t> branch_target; ///< target offset of a branch within the kernel
    std::string callee;                       ///< name of the kernel that a BL calls, otherwise empty
};

struct kernel_listing {
    std::size_t instructions = 0;   ///< words of the code that are not data
    std::vector<std::string> calls; ///< distinct names in the order of the first calls
    std::vector<std::string>
        callers; ///< names of the kernels in the set that call this one, in the set's order
    std::vector<listing_row> rows;
};

/// Lists a kernel of the set. With `linked`, relocations are applied and their targets shown in the text; one
/// that cannot be applied leaves the word unchanged, and the comment says why. Otherwise words are as
/// generated, and relocations are comments. Throws std::runtime_error for a kernel with more code than
/// largest_decoded_code.
kernel_listing list_kernel(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                           bool linked = true);

/// Lists a kernel with words as generated, and with the targets of relocations in the text of the
/// instructions that they fit. Throws like list_kernel.
kernel_listing list_generated(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler);

/// The instruction at the offset as generated, with its relocation's target as the last operand if its field
/// is zero.
std::string generated_text(const placed_kernel& kernel, std::size_t offset, disassembler& disassembler);

/// Lists a kernel without its set: targets by name, words as generated. The result does not depend on where
/// the kernel and its callees were placed. Throws like list_kernel.
kernel_listing list_without_addresses(const placed_kernel& kernel, disassembler& disassembler);

/// The row as `show` prints it, without colour, label and newline, and with at least that many digits of the
/// offset. `column` goes before the comment.
std::string row_text(const listing_row& row, int offset_digits = 2, std::string_view column = {});

/// The number of digits of the kernel's last offset.
int offset_digits(const placed_kernel& kernel);

/// The line above a kernel's rows in `show`: name, address, sizes, and the first few callers.
std::string headline(const placed_kernel& kernel, const kernel_listing& listing);

} // namespace vorna::workbench
