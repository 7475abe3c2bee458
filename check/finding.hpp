// Findings: what is wrong with a kernel. For hosts: the standard library only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vorna::wfta {

/// How serious a finding is.
enum class finding_severity {
    note,    ///< worth knowing
    warning, ///< probably not what was meant
    error    ///< the finaliser aborts, or the kernel does not work
};

/// The kinds of findings; docs/workbench/findings.md describes them.
enum class finding_id {
    // Found by check_kernels.
    duplicate_name,
    name_file,
    name_map,
    name_collision,
    text_length,
    foreign_data,
    unknown_target,
    callee_order,
    null_target,
    unhandled_type,
    offset,
    unaligned_offset,
    field_filled,
    call_bit_25,
    range,
    placement,
    opcode,
    call_target,
    pair,
    // Found by analyse_kernels and `vorna-kernels check`: they need instructions decoded.
    falls_through,
    outside_constants,
    writes_constants,
    data_alignment,
    erratum_843419,
    erratum_835769,
    missing_feature,
    abi_callee_saved,
    abi_stack_pointer,
    abi_return_address,
    abi_platform_register,
    abi_below_stack,
    reads_unset,
    reads_flags_unset,
    unreachable_code,
    unfollowed,
};

/// The id as it is printed: "duplicate-name" for finding_id::duplicate_name. The string is static.
/// Does not throw. Thread-safe.
const char* name_of(finding_id id);

/// Something wrong with a kernel, or worth knowing for its generator.
struct kernel_finding {
    finding_id id;                         ///< what kind of finding
    finding_severity severity;             ///< how serious it is
    bool aborts;                           ///< finalise_kernels would abort here
    std::size_t index;                     ///< of the kernel in the vector that is checked
    std::string kernel;                    ///< its name
    std::optional<std::size_t> relocation; ///< index in kernel_data::relocs
    std::optional<std::int64_t> offset;    ///< in the kernel's code, in bytes
    std::string message;                   ///< what is wrong, with the values: one line
    std::string note;                      ///< the likely cause: one line, empty if unknown
    std::string help;                      ///< what to do: one line, empty if the message says it
};

} // namespace vorna::wfta
