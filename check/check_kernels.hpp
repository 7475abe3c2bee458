// Checks a set of kernels before it is finalised. For hosts: the standard library only.
#pragma once

#include "check/finding.hpp"
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <vector>

namespace vorna::wfta {

/// Finds what is wrong with a set of kernels before finalise_kernels(registry, kernels) places it. The
/// findings are in the order in which finalise_kernels would meet them: the first that `aborts` is the one
/// that would end the process. kernel_finding::index is the kernel's in `kernels`.
///
/// What needs a decoder of instructions is not found here, but in dumps of the kernels, by `vorna-kernels
/// check`. Where the system will place the set is not known beforehand, so whether a kernel of an earlier
/// call is in range is at most a note. Neither the registry nor the kernels are changed, and nothing is
/// mapped or executed.
///
/// Throws std::bad_alloc. Several threads may call it at once, as long as none of them changes the registry
/// or the kernels meanwhile.
std::vector<kernel_finding> check_kernels(const kernel_registry_map& registry,
                                          const std::vector<kernel_data>& kernels);

} // namespace vorna::wfta
