// Differences between two kernels that leave what they compute as it was. Each function says no where it is
// not sure.
#pragma once

#include "workbench/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// What instructions, by index, load from the kernel's own data, where it is known which part of it that is.
using loaded_constants = std::unordered_map<std::size_t, std::vector<std::uint8_t>>;
loaded_constants find_loaded_constants(const placed_kernel& kernel);

// `entries` are the offsets in the code, other than its beginning, where other kernels enter it.

/// Whether the kernels are proved to compute the same and differ only in where constants lie: in data, in
/// addends of references to it, and in offsets of loads from it, each of which gets the same bytes before and
/// after.
bool only_moved(const placed_kernel& before, const placed_kernel& after,
                const std::vector<std::int64_t>& entries);

/// Whether the kernels are proved to compute the same and differ only in the registers that instructions
/// name.
bool only_renamed(const placed_kernel& before, const placed_kernel& after,
                  const std::vector<std::int64_t>& entries);

/// Whether the codes, with their references, have the same instructions in each basic block, in whatever
/// order, and the same data among them. Says nothing of whether the order matters. Constants are not looked
/// at.
bool only_reordered(const placed_kernel& before, const placed_kernel& after,
                    const std::vector<std::int64_t>& entries);

} // namespace vorna::workbench
