// What check_kernels finds before kernels are placed, found over their dumps.
#pragma once

#include "workbench/kernel_check.hpp"
#include "workbench/kernel_set.hpp"

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

} // namespace vorna::workbench
