// Differences between two kernels that leave what they compute as it was, by the proof in lockstep.cpp. Each
// function says no where it is not sure.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// What relocations of other kernels, or against their names, lead to in a kernel.
struct outside_uses {
    std::vector<std::int64_t> entries; ///< offsets in its code, ascending, other than its beginning
    bool of_code = false;              ///< at such an offset otherwise than by a call: it may be read there
    bool of_data = false;              ///< its constants
};

/// Whether the kernels are proved to compute the same and differ only in where constants lie (in data, in
/// addends of relocations against it, and in offsets of loads from it, each of which gets the same bytes
/// before and after) and in the registers that instructions name.
bool only_moved(const decoded_kernel& before, const decoded_kernel& after, const outside_uses& uses);

/// Whether the kernels are proved to compute the same and differ only in the registers that instructions
/// name.
bool only_renamed(const decoded_kernel& before, const decoded_kernel& after, const outside_uses& uses);

} // namespace vorna::workbench
