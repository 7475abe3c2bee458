// Unified diffs of kernels' listings.
#pragma once

#include "workbench/analysis/difference.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/render/listing.hpp"

#include <string>
#include <vector>

namespace vorna::workbench {

/// The lines of a unified diff, without newlines: the code, then the constants, eight bytes per line and a
/// limited number of lines.
std::vector<std::string> unified_diff(const placed_kernel& before, const placed_kernel& after,
                                      disassembler& disassembler);

} // namespace vorna::workbench
