// Compares kernels regardless of the order of instructions within basic blocks.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// Whether both kernels have the same instructions, with their relocations, in each basic block, in any
/// order, and the same data in the code. The order may still matter. Does not compare constants. `entries`
/// are the offsets at which other kernels enter.
bool only_order_differs(const decoded_kernel& before, const decoded_kernel& after,
                        const std::vector<std::int64_t>& entries);

} // namespace vorna::workbench
