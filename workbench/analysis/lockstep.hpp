// Proves that two kernels with the same control-flow graph compute the same.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// How the kernels may differ.
enum class difference_of : std::uint8_t {
    layout,   ///< in the offsets of constants, and in registers; some load must get constants
    registers ///< in registers only
};

/// Whether the kernels provably compute the same when they are entered at their beginning or at one of
/// `entries` (byte offsets). False in doubt.
bool compute_the_same(const decoded_kernel& before, const decoded_kernel& after,
                      const std::vector<std::int64_t>& entries, difference_of kind);

} // namespace vorna::workbench
