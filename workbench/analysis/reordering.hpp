// Whether only the order of instructions differs.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// Whether the codes, with their relocations, have the same instructions in each basic block, in whatever
/// order, and the same data among them. Says nothing about whether the order matters. Constants are not
/// compared. `entries` are offsets at which other kernels enter.
bool only_reordered(const decoded_kernel& before, const decoded_kernel& after,
                    const std::vector<std::int64_t>& entries);

} // namespace vorna::workbench
