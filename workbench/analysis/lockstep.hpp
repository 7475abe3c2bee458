// The proof that two kernels of the same shape compute the same.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// In what the kernels may differ.
enum class difference_of : std::uint8_t {
    layout,   ///< where constants lie, and registers; some load must get constants through an address
    registers ///< the registers that instructions name
};

/// Whether the kernels are proved to compute the same from their beginnings and from `entries` (byte offsets)
/// on. False in doubt.
bool compute_the_same(const decoded_kernel& before, const decoded_kernel& after,
                      const std::vector<std::int64_t>& entries, difference_of kind);

} // namespace vorna::workbench
