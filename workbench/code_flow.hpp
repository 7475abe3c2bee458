// How control and registers' values flow through a kernel's code.
#pragma once

#include "workbench/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vorna::workbench {

/// A bit a register: X0 to X30 are bits 0 to 30, V0 to V31 bits 32 to 63.
using register_mask = std::uint64_t;

constexpr register_mask general_mask(unsigned first, unsigned last)
{
    return ((register_mask{2} << last) - 1) & ~((register_mask{1} << first) - 1);
}
constexpr register_mask vector_mask(unsigned first, unsigned last)
{
    return general_mask(first, last) << 32;
}

/// One instruction of a kernel.
struct code_step {
    std::uint32_t word = 0;
    register_mask reads = 0;
    register_mask writes = 0;          ///< wholly or in part
    register_mask replaces = 0;        ///< writes without regard to what was there
    std::optional<std::size_t> target; ///< instruction that it may branch to
    bool continues = true;             ///< may go on at the next instruction
    bool leaves = false;               ///< may leave the kernel other than by a call
    bool calls = false;
};

/// The kernel's instructions, or nothing if it cannot be told how they hang together: one whose operands are
/// not known, a branch to a register, a call within the kernel.
std::optional<std::vector<code_step>> follow_code(const placed_kernel& kernel);

/// Registers that hold something for the kernel's caller or from it, as far as the code tells.
struct boundary_registers {
    register_mask parameters = 0; ///< may be read before the kernel writes them
    register_mask results = 0;    ///< are written, and not read again before the kernel returns
};

/// Nothing if the code is too winding to be followed in reasonable time.
std::optional<boundary_registers> find_boundary_registers(const std::vector<code_step>& code);

} // namespace vorna::workbench
