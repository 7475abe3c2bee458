// A kernel's code in a form that does not depend on addresses.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorna::workbench {

constexpr std::size_t no_row = ~std::size_t{0};

/// An instruction word, or a byte after the last whole word. Rows with equal members do the same, wherever
/// they are.
struct code_row {
    std::string key;             ///< the word and its relocations: their kinds, targets and addends
    std::size_t target = no_row; ///< row of the PC-relative target of an instruction without relocations; the
                                 ///< number of words for the end of the code
    std::int64_t distance = 0;   ///< in bytes, to a target that is not a row
};

std::vector<code_row> code_rows(const decoded_kernel& code);

/// The kernel's relocations by offset; those with the same offset in the order in which they are applied.
std::vector<tessjit::reloc_info> relocations_by_place(const placed_kernel& kernel);

/// Whether all members of the relocations are equal.
bool equal_references(const std::vector<tessjit::reloc_info>& a, const std::vector<tessjit::reloc_info>& b);

} // namespace vorna::workbench
