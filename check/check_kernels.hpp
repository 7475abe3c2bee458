// Checks a set of kernels before it is finalised. For hosts: the standard library only.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// How serious a finding is.
enum class finding_severity {
    note,    ///< worth knowing
    warning, ///< hardly what is meant
    error    ///< the finaliser ends the process, or the kernel cannot do what it should
};

/// Something that is wrong with a kernel, or that its generator should know.
struct kernel_finding {
    std::string id;                        ///< kind of finding: docs/workbench/findings.md
    finding_severity severity;             ///< how serious it is
    bool aborts;                           ///< finalise_kernels would end the process here
    std::string kernel;                    ///< name of the kernel
    std::optional<std::size_t> relocation; ///< index in kernel_data::relocs
    std::optional<std::int64_t> offset;    ///< in the kernel's text
    std::string message;                   ///< what is wrong, with the values
    std::string advice;                    ///< what to do, may be empty
};

/// All findings, in the order in which finalise_kernels would meet them: the first that `aborts` is the one
/// that would end the process. Neither the registry nor the kernels are changed, and nothing is mapped or
/// run.
///
/// Where the system will put the mapping is not known beforehand, so whether a kernel of an earlier call is
/// in reach is at most a note. Throws std::bad_alloc. May be called by several threads at once, as long as
/// nobody changes the registry meanwhile.
std::vector<kernel_finding> check_kernels(const kernel_registry_map& registry,
                                          const std::vector<kernel_data>& kernels);

} // namespace vorna::wfta
