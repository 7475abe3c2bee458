// Which registers hold a value that the kernel may still use.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"

#include <vector>

namespace vorna::workbench {

/// The live registers before each instruction; none for words that are not code, or if the kernel has more
/// than `most_followed_blocks` blocks.
///
/// A call, and a branch to another kernel, uses those of X0 to X8 and V0 to V7 that the kernel has set since
/// the call before it; a return uses X0 and V0 if the kernel has set them. Writeback of a base register does
/// not count as setting it. Saving a register is a use like any other.
std::vector<register_set> find_live_registers(const decoded_kernel& code, const code_map& map);

/// The registers whose value an instruction depends on: its uses, without a register that it only clears (EOR
/// X0, X1, X1).
register_set values_used(const decoded_kernel& code, const instruction& instruction);

} // namespace vorna::workbench
