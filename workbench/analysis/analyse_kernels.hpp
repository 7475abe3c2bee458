// Everything that `vorna-kernels check` finds, for a set of kernels before it is finalised. For hosts: C++17.
#pragma once

#include "check/finding.hpp"
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <functional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// What is looked for beside the findings that every kernel may have.
struct analysis_options {
    /// One of LLVM's processors ("cortex-a53"), for missing-feature; empty for none.
    std::string cpu;

    /// Whether kernels keep the AAPCS64. If not, the findings abi-*, reads-* and unfollowed are left out.
    bool aapcs64 = true;

    /// Whether a kernel is called only by other kernels of the set, by a convention of its own. What it reads
    /// and changes then counts as read and changed by each call of it. Empty: no kernel is.
    std::function<bool(const std::string& kernel)> is_internal = {};
};

/// Checks a set of kernels as finalise_kernels(registry, kernels) would place it: the findings of
/// check_kernels, and those that need instructions decoded. The findings are ordered by kernel, and
/// kernel_finding::index is an index in `kernels`; those of check_kernels come first in each kernel, in
/// the order in which finalise_kernels would reach them.
///
/// Does not modify the registry or the kernels, and maps and executes nothing. The first call initialises
/// LLVM's disassembler for AArch64, which takes some milliseconds.
///
/// Throws std::invalid_argument if LLVM does not know the processor, what is_internal throws, and
/// std::bad_alloc. Thread-safe as long as no thread modifies the registry or the kernels.
std::vector<kernel_finding> analyse_kernels(const kernel_registry_map& registry,
                                            const std::vector<kernel_data>& kernels,
                                            const analysis_options& options = {});

} // namespace vorna::wfta
