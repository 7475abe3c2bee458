// Compares two sets of kernels, ignoring addresses, to show the effect of a change to the generator.
#pragma once

#include "workbench/analysis/common_sequence.hpp"
#include "workbench/analysis/equivalence.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// How a kernel differs: the first class that applies. docs/workbench/diff.md defines each exactly.
enum class change_class {
    same,
    constants,   ///< only values of its constants differ
    layout,      ///< constants at other offsets, but every load gets the same values
    relocations, ///< equal code words, different relocations
    registers,   ///< registers renamed consistently
    order,       ///< instructions reordered within their basic blocks
    code,        ///< anything else
    added,       ///< only in the set after the change
    removed,     ///< only in the set before the change
};

/// The class as commands print it: "same", "constants", "layout", ….
std::string_view name_of(change_class change);

/// A kernel in two sets. The pointers are into the sets.
struct kernel_difference {
    std::string name;
    change_class change = change_class::same;
    const placed_kernel* before = nullptr; ///< null if it was added
    const placed_kernel* after = nullptr;  ///< null if it was removed
};

/// Compares the kernels of two sets and returns them sorted by name. If several have the same name, the first
/// is compared with the first, the second with the second. Compares code words, relocations (by type, target
/// name and addend), local branches (by target instruction) and constants (by value), but not addresses.
std::vector<kernel_difference> compare_sets(const kernel_set& before, const kernel_set& after);

/// How a kernel differs before and after a change. `uses` are other kernels' relocations into it.
change_class compare_kernels(const placed_kernel& before, const placed_kernel& after,
                             const outside_uses& uses = {});

/// A row before the change and the row that it became. At least one exists.
struct row_pair {
    std::optional<std::size_t> before; ///< index in kernel_listing::rows
    std::optional<std::size_t> after;
    bool same = false; ///< both exist and have the same instruction and relocation
};

struct row_alignment {
    std::vector<row_pair> rows; ///< every row of both, in order; removed rows precede added ones
    bool complete = true;       ///< false if the kernels differ too much to find all equal rows
};

/// The rows of two listings, aligned.
row_alignment pair_rows(const common_sequence& common, std::size_t before_rows, std::size_t after_rows);

/// Aligns the rows of two kernels by their longest common subsequence. Local branches are equal if they lead
/// to the same row, and loads from the kernel's own constants, whose address is known, if they get the same
/// bytes.
row_alignment align_rows(const placed_kernel& before, const placed_kernel& after);

} // namespace vorna::workbench
