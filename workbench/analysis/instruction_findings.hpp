// Findings that need instructions decoded, beyond the four that relocations fill: where control goes, which
// addresses loads and stores access, and sequences that a processor executes wrongly.
#pragma once

#include "check/engine.hpp"
#include "workbench/analysis/analyse_kernels.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <vector>

namespace vorna::workbench {

/// Finds falls-through, outside-constants, writes-constants, data-alignment, erratum-843419, erratum-835769,
/// missing-feature and those of calling_convention, kernel by kernel. `find` is as for wfta::check_placed.
std::vector<wfta::kernel_finding> find_in_instructions(const kernel_set& set, const wfta::target_finder& find,
                                                       const wfta::analysis_options& options = {});

/// `findings` and these, by kernel; those of `findings` come first in each kernel.
std::vector<wfta::kernel_finding> with_instruction_findings(std::vector<wfta::kernel_finding> findings,
                                                            const kernel_set& set,
                                                            const wfta::target_finder& find,
                                                            const wfta::analysis_options& options);

} // namespace vorna::workbench
