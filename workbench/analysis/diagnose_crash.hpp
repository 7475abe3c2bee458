// Why an instruction of a kernel raised a signal, or which kernel is to blame for a crash elsewhere.
#pragma once

#include "check/finding.hpp"
#include "workbench/analysis/locate_address.hpp"
#include "workbench/input/crash_log.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// A return address in a kernel: from the backtrace or, as number 0, from X30.
struct kernel_caller {
    address_location location;
    std::size_t line = 0; ///< of the log
};

/// What a crash was. Each text is one line.
struct crash_diagnosis {
    bool known = false;  ///< otherwise the log lacks the PC, or there are no dumps, and the rest is empty
    std::string message; ///< "SIGSEGV at answer+0x8: 4-byte load through x0"
    std::optional<address_location> at; ///< of the PC
    std::vector<kernel_caller> callers; ///< the kernels that were being executed, the innermost first
    std::vector<std::size_t> findings;  ///< indices of the findings to look at, the likeliest first
    std::size_t more_findings = 0;      ///< number of further ones in these kernels
    std::vector<std::string> notes;     ///< further facts
    std::string cause;                  ///< empty if unknown
    std::vector<std::string> help;      ///< what to do, or commands to run; may be empty
};

/// `findings` are those of check_dumps for the set.
crash_diagnosis diagnose_crash(const crash_report& crash, const kernel_set& dumps,
                               const std::vector<wfta::kernel_finding>& findings);

/// Whether the PC or a return address of the crash lies in a kernel's mapping.
bool meets_kernels(const crash_report& crash, const kernel_set& dumps);

} // namespace vorna::workbench
