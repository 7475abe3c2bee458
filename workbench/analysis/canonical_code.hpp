// A kernel's code without its addresses.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorna::workbench {

constexpr std::size_t no_row = ~std::size_t{0};

/// A row of the listing (an instruction word, or a byte after the last word): rows with equal members do the
/// same, wherever they are.
struct code_row {
    std::string key;             ///< the word and its relocations: their kinds, targets and addends
    std::size_t target = no_row; ///< row that an instruction without relocations leads to by a distance; the
                                 ///< number of words for the end of the code
    std::int64_t distance = 0;   ///< in bytes, to somewhere else
};

std::vector<code_row> code_rows(const decoded_kernel& code);

/// The kernel's relocations in the order of their places; those of one place in that in which they are
/// applied.
std::vector<tessjit::reloc_info> relocations_by_place(const placed_kernel& kernel);

/// Whether they are the same in all members.
bool equal_references(const std::vector<tessjit::reloc_info>& a, const std::vector<tessjit::reloc_info>& b);

} // namespace vorna::workbench
