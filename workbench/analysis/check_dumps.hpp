// What check_kernels finds before kernels are placed, found over their dumps.
#pragma once

#include "check/check_kernels.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// All findings, mapping by mapping, and within a mapping in the order in which the finaliser met them: of
/// the kernels in their order, `aborts` and all. Where all kernels lie is known, so distances are exact
/// between mappings too.
///
/// A target that is not in the set ended the process, if its kernel is the last of its mapping and the set
/// has all those before it. Any other kernel was linked, as the kernels behind it show, or may have been: its
/// target is a note, since dumps may leave kernels out.
std::vector<wfta::kernel_finding> check_dumps(const kernel_set& set);

/// In a line, what shows that no process with one registry can have written all the dumps; nothing if one
/// can. `findings` are those of check_dumps. A finding that ends the process does so once, and at the last
/// kernel of a mapping. Neither a target that is missing nor a name in two mappings proves anything.
std::optional<std::string> find_mixture(const kernel_set& set,
                                        const std::vector<wfta::kernel_finding>& findings);

/// Throws std::runtime_error with that line.
void refuse_mixture(const kernel_set& set, const std::vector<wfta::kernel_finding>& findings);

} // namespace vorna::workbench
