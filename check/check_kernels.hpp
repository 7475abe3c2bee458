// Checks a set of kernels before it is finalised. For hosts: the standard library only.
#pragma once

#include "check/finding.hpp"
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <vector>

namespace vorna::wfta {

/// Checks a set of kernels as finalise_kernels(registry, kernels) would place it. The findings are in the
/// order in which finalise_kernels would reach them: the first one with `aborts` would abort the process.
/// kernel_finding::index is an index in `kernels`.
///
/// Checks that need instructions decoded are not made here: analyse_kernels makes them too. The address of
/// the set is not known in advance, so whether a kernel of an earlier call is in range is at most a note.
/// Does not modify the registry or the kernels, and maps and executes nothing.
///
/// Throws std::bad_alloc. Thread-safe as long as no thread modifies the registry or the kernels.
std::vector<kernel_finding> check_kernels(const kernel_registry_map& registry,
                                          const std::vector<kernel_data>& kernels);

} // namespace vorna::wfta
