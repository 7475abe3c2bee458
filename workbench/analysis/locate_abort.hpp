// Which kernel and which relocation the finaliser refused when it ended a process.
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

/// The kernels that the process dumped before it ended.
struct dumps_of_process {
    kernel_set set; ///< empty if there are none
    std::vector<std::int64_t>
        written; ///< when each kernel's dump was, in any unit; empty if that is not known
};

/// A relocation and its place.
struct relocation_match {
    std::string kernel;
    std::size_t relocation;  ///< index among the kernel's relocations
    std::int64_t offset = 0; ///< in the kernel's code
};

/// Members are empty where the report, the registry dump and the dumps of kernels do not tell.
struct abort_location {
    std::string report;   ///< id, as in abort_report; of a report without its message by what the dumps tell
    std::size_t line = 0; ///< of the log
    std::optional<std::string> kernel;
    std::optional<std::size_t> dump;       ///< its index in the set of dumps
    std::optional<std::int64_t> offset;    ///< of the instruction, in the kernel's code
    std::optional<std::size_t> relocation; ///< index among the relocations of the dump
    std::optional<std::int32_t> type;      ///< the ABI's number
    std::optional<std::string> target;     ///< as a relocation names it: a kernel, or ".rodata." and a kernel
    std::optional<std::int64_t> addend;
    std::optional<std::int64_t> distance;   ///< X, bytes; for the kinds whose X is a distance
    std::optional<wfta::value_range> range; ///< of X, bytes
    std::vector<relocation_match> matches;  ///< every relocation that matches the report, if several do
    std::vector<std::string> notes; ///< how kernel and relocation were found, where that is not certain

    std::optional<filled_message> filled;      ///< the report's message,
    std::optional<range_message> out_of_range; ///< or this one
    bool target_in_other_mapping = false;
    bool target_comes_later = false;           ///< in the kernel's own mapping
    std::optional<std::string> already_linked; ///< to this kernel or its constants the filled field leads
};

/// Locates a report of the log. With dumps of the same process the relocation is known. Dumps of another run
/// are matched by name and offset, which `notes` then says. Without dumps, the message and the registry dump
/// tell the kernel and the offset.
abort_location locate_abort(const abort_log& log, const abort_report& report, const dumps_of_process& dumps);

} // namespace vorna::workbench
