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

// Each of these says no where it is not sure.

/// Whether the kernels differ only in where constants lie: in data, in addends of references to it, and in
/// offsets of loads from it, each of which gets the same bytes before and after. No, if an address of the
/// data may go elsewhere than to loads whose places in it are known.
bool only_moved(const placed_kernel& before, const placed_kernel& after);

/// Whether the codes are the same but for registers, one of which always stands for one other. References and
/// data are not looked at. No, if a register is exchanged that the procedure call standard gives a role, as
/// parameter, result or preserved register, and the code uses as such.
bool only_renamed(const placed_kernel& before, const placed_kernel& after);

/// Whether the codes, with their references, have the same instructions in each basic block, in whatever
/// order. Says nothing of whether the order matters. Data are not looked at.
bool only_reordered(const placed_kernel& before, const placed_kernel& after);

} // namespace vorna::workbench
