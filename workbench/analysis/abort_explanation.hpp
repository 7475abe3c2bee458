// What a report of an abort means: which kernel, which relocation, why, and what to do.
#pragma once

#include "workbench/input/abort_log.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// A relocation by its place. The index is unknown without dumps.
struct relocation_place {
    std::string kernel;
    std::optional<std::size_t> relocation; ///< index among the kernel's relocations
    std::int64_t offset = 0;               ///< in the kernel's text
};

struct value_limits {
    std::int64_t least;
    std::int64_t greatest;
};

/// Members are empty where the report, the listing and the dumps do not tell.
struct abort_explanation {
    std::string report; ///< id, as in abort_report
    std::size_t line = 0;
    std::optional<std::string> kernel;
    std::optional<std::int64_t> offset;    ///< of the instruction, in the kernel's text
    std::optional<std::size_t> relocation; ///< index among the kernel's relocations
    std::optional<std::int32_t> type;      ///< the ABI's number
    std::optional<std::string> target;     ///< as a relocation names it: a kernel, or ".rodata." and a kernel
    std::optional<std::int64_t> target_offset; ///< bytes from the target's first: the addend
    std::optional<std::int64_t> distance;      ///< X, bytes; for the kinds whose X is a distance
    std::optional<value_limits> limit;         ///< of X, bytes
    std::string message;                       ///< what the report says, in a line
    std::string cause;                         ///< the likeliest
    std::string advice;                        ///< what to do
    std::vector<relocation_place> fits;        ///< every relocation that the report fits, if it fits several
    std::vector<std::string> notes;  ///< how kernel and relocation were found, where that is not certain
    std::optional<std::size_t> dump; ///< index of the kernel in the set of dumps
};

/// The kernels that the process dumped before it ended.
struct dumps_of_process {
    kernel_set set; ///< empty if there are none
    std::vector<std::int64_t>
        written; ///< when each kernel's dump was, in any unit; empty if that is not known
};

/// Explains a report of the log. With dumps of the same process it knows the relocation; dumps of another run
/// are matched by name and offset, which `notes` then says. Without dumps it knows what the message and the
/// listing tell.
abort_explanation explain_report(const abort_log& log, const abort_report& report,
                                 const dumps_of_process& dumps);

} // namespace vorna::workbench
