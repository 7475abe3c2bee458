// Finds the kernel and the relocation at which the finaliser aborted a process.
#pragma once

#include "check/relocation.hpp"
#include "workbench/input/abort_log.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// The kernels that the process dumped before it was aborted.
struct dumps_of_process {
    kernel_set set;                    ///< empty if there are none
    std::vector<std::int64_t> written; ///< time of each kernel's dump, in any unit; empty if unknown
};

/// A relocation and its offset.
struct relocation_match {
    std::string kernel;
    std::size_t relocation;  ///< index among the kernel's relocations
    std::int64_t offset = 0; ///< in the kernel's code
};

/// Where the process was aborted, as far as the report, the registry dump and the kernels' dumps show it.
struct abort_location {
    std::string report;   ///< id, as in abort_report; inferred from the dumps if the log lacks the message
    std::size_t line = 0; ///< of the log
    std::optional<std::string> kernel;
    std::optional<std::size_t> dump;       ///< its index in the set of dumps
    std::optional<std::int64_t> offset;    ///< of the instruction, in the kernel's code
    std::optional<std::size_t> relocation; ///< index among the relocations of the dump
    std::optional<std::int32_t> type;      ///< the ABI's number
    std::optional<std::string> target;     ///< as in the relocation: a kernel, or ".rodata." and a kernel
    std::optional<std::int64_t> addend;
    std::optional<std::int64_t> distance;   ///< X in bytes, for kinds whose X is PC-relative
    std::optional<wfta::value_range> range; ///< of X, in bytes
    std::vector<relocation_match> matches;  ///< all relocations that match the report, if several do
    std::vector<std::string> notes;         ///< how kernel and relocation were found, if not certain

    std::optional<filled_message> filled;      ///< the report's message,
    std::optional<range_message> out_of_range; ///< or this one
    bool target_in_other_mapping = false;
    bool target_comes_later = false; ///< in the same mapping
    std::optional<std::string>
        already_linked; ///< the kernel whose code or constants the filled field leads to
};

/// Locates a report of the log. Dumps of the same process show the relocation. Dumps of another run are
/// matched by name and offset, which `notes` then says. Without dumps, the message and the registry dump show
/// the kernel and the offset only.
abort_location locate_abort(const abort_log& log, const abort_report& report, const dumps_of_process& dumps);

} // namespace vorna::workbench
