// Compares two sets of kernels, whatever their addresses: what a change of the generator did.
#pragma once

#include "workbench/analysis/alignment.hpp"
#include "workbench/analysis/equivalence.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// How a kernel differs. Its class is the first that applies; docs/workbench/diff.md defines each exactly.
enum class change_class {
    same,
    constants,   ///< only bytes of its data differ
    layout,      ///< constants at other offsets; every load gets the same values
    relocations, ///< code words equal, relocations differ
    registers,   ///< registers renamed consistently
    order,       ///< instructions in another order within their basic blocks
    code,        ///< anything else
    added,       ///< only in the set after the change
    removed,     ///< only in the set before the change
};

/// The class as commands print it: "same", "constants", "layout", ….
std::string_view name_of(change_class change);

/// One kernel in two sets. The pointers are into the sets.
struct kernel_difference {
    std::string name;
    change_class change = change_class::same;
    const placed_kernel* before = nullptr; ///< null if it was added
    const placed_kernel* after = nullptr;  ///< null if it was removed
};

/// Compares the kernels of two sets, sorted by name (the first of a name with the first, the second with the
/// second). Compared are code words, relocations by type, target name and addend, local branches by the
/// instruction that they lead to, and constants by value, but not addresses.
std::vector<kernel_difference> compare_sets(const kernel_set& before, const kernel_set& after);

/// How a kernel differs before and after a change. `uses` is what other kernels do with it.
change_class compare_kernels(const placed_kernel& before, const placed_kernel& after,
                             const outside_uses& uses = {});

/// A row of a listing before and the one that it became. At least one exists.
struct row_pair {
    std::optional<std::size_t> before; ///< index in kernel_listing::rows
    std::optional<std::size_t> after;
    bool same = false; ///< both exist and have the same instruction and relocation
};

struct row_alignment {
    std::vector<row_pair> rows; ///< every row of both, in order; of one-sided rows, `before` comes first
    bool complete = true;       ///< false if the kernels differ too much to find all equal rows
};

/// The rows of two listings, aligned.
row_alignment pair_rows(const common_sequence& common, std::size_t before_rows, std::size_t after_rows);

/// Aligns the rows of two kernels' listings by the longest sequence of equal rows. A branch within the kernel
/// is equal if it leads to the same row, a load from the kernel's own constants if it gets the same bytes, as
/// far as its address is known.
row_alignment align_rows(const placed_kernel& before, const placed_kernel& after);

} // namespace vorna::workbench
