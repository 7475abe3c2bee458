// Findings that need instructions decoded, beyond the four that relocations fill: where control goes, which
// addresses loads and stores access, and sequences that a processor executes wrongly.
#pragma once

#include "check/engine.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <vector>

namespace vorna::workbench {

/// Finds falls-through, outside-constants, writes-constants, data-alignment and erratum-843419, kernel by
/// kernel. `find` is as for wfta::check_placed.
std::vector<wfta::kernel_finding> find_in_instructions(const kernel_set& set,
                                                       const wfta::target_finder& find);

} // namespace vorna::workbench
