// Proves that the differences between two kernels do not change what they compute (see lockstep.cpp). All
// functions return false in doubt.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// What relocations of other kernels, or against other kernels' names, lead to in a kernel.
struct outside_uses {
    std::vector<std::int64_t> entries; ///< offsets in its code, ascending, without its beginning
    bool of_code = false;              ///< other than by a call: the code may be read
    bool of_data = false;              ///< its constants
};

/// Whether the kernels provably compute the same and differ only in the layout of their constants and in
/// register names. A different layout shows in the data, in the addends of relocations against it, and in the
/// offsets of loads from it, each of which must get the same bytes as before.
bool only_layout_differs(const decoded_kernel& before, const decoded_kernel& after, const outside_uses& uses);

/// Whether the kernels provably compute the same and differ only in register names.
bool only_registers_differ(const decoded_kernel& before, const decoded_kernel& after,
                           const outside_uses& uses);

} // namespace vorna::workbench
