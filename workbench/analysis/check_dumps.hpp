// Checks dumps: the findings of check_kernels, and those that need instructions decoded.
#pragma once

#include "check/finding.hpp"
#include "workbench/analysis/analyse_kernels.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// All findings, by mapping, and within a mapping in the order in which the finaliser reached them. The
/// addresses of all kernels are known, so distances between mappings are exact too.
///
/// A relocation against a kernel that is not in the set is an error only if it aborted the process: if the
/// kernel with the relocation is the last of its mapping and the set has all kernels before it. Other kernels
/// were linked, or may have been; then the target may just not have been dumped, which is a note.
std::vector<wfta::kernel_finding> check_dumps(const kernel_set& set,
                                              const wfta::analysis_options& options = {});

/// If the dumps cannot all be from one process with one registry, the reason, in one line. `findings` are
/// those of check_dumps. A process aborts once, at the last kernel of a mapping. Neither a missing target nor
/// a name in two mappings proves anything.
std::optional<std::string> find_mixture(const kernel_set& set,
                                        const std::vector<wfta::kernel_finding>& findings);

/// Throws std::runtime_error with the reason if there is one.
void refuse_mixture(const kernel_set& set, const std::vector<wfta::kernel_finding>& findings);

} // namespace vorna::workbench
