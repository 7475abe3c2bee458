// Finds in dumps what check_kernels finds before kernels are placed, and what takes a decoder.
#pragma once

#include "check/check_kernels.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// All findings, mapping by mapping, and within a mapping in the order in which the finaliser met them. The
/// addresses of all kernels are known, so distances between mappings are exact too.
///
/// A target that is not in the set aborted the process if its kernel is the last of its mapping and the set
/// has all kernels before it. Any other kernel was linked, as the kernels after it show, or may have been:
/// its target gives a note, since kernels may not have been dumped.
std::vector<wfta::kernel_finding> check_dumps(const kernel_set& set);

/// One line that says why no process with one registry can have written all the dumps; nothing if one can.
/// `findings` are those of check_dumps. A process is aborted once, at the last kernel of a mapping. Neither a
/// missing target nor a name in two mappings proves anything.
std::optional<std::string> find_mixture(const kernel_set& set,
                                        const std::vector<wfta::kernel_finding>& findings);

/// Throws std::runtime_error with that line.
void refuse_mixture(const kernel_set& set, const std::vector<wfta::kernel_finding>& findings);

} // namespace vorna::workbench
