// Differences between two kernels that leave what they compute as it was. Each function says no where it is
// not sure.
#pragma once

#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// What instructions, by index, load from the kernel's own data, where it is known which part of it that is.
using loaded_constants = std::unordered_map<std::size_t, std::vector<std::uint8_t>>;
loaded_constants find_loaded_constants(const placed_kernel& kernel);

/// What relocations of other kernels, or against their names, lead to in a kernel.
struct outside_uses {
    std::vector<std::int64_t> entries; ///< offsets in its code, ascending, other than its beginning
    bool of_code = false;              ///< at such an offset otherwise than by a call: it may be read there
    bool of_data = false;              ///< its constants
};

/// Whether the kernels are proved to compute the same and differ only in where constants lie (in data, in
/// addends of references to it, and in offsets of loads from it, each of which gets the same bytes before and
/// after) and in the registers that instructions name.
bool only_moved(const placed_kernel& before, const placed_kernel& after, const outside_uses& uses);

/// Whether the kernels are proved to compute the same and differ only in the registers that instructions
/// name.
bool only_renamed(const placed_kernel& before, const placed_kernel& after, const outside_uses& uses);

/// Whether the codes, with their references, have the same instructions in each basic block, in whatever
/// order, and the same data among them. Says nothing of whether the order matters. Constants are not looked
/// at.
bool only_reordered(const placed_kernel& before, const placed_kernel& after, const outside_uses& uses);

} // namespace vorna::workbench
