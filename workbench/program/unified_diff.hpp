// Unified diffs of kernels' listings.
#pragma once

#include "workbench/difference.hpp"
#include "workbench/disassembler.hpp"
#include "workbench/listing.hpp"

#include <string>
#include <vector>

namespace vorna::workbench {

/// The listing with targets by name, and with words as they were generated, so that nothing in it depends on
/// where the kernel was placed.
kernel_listing list_without_addresses(const kernel_set& set, const placed_kernel& kernel,
                                      disassembler& disassembler);

/// The lines of a unified diff, without newlines: of the rows of code, then of the constants, eight bytes a
/// line (the first few lines of many). The kernels are of the sets.
std::vector<std::string> unified_diff(const kernel_set& before_set, const placed_kernel& before,
                                      const kernel_set& after_set, const placed_kernel& after,
                                      disassembler& disassembler);

} // namespace vorna::workbench
