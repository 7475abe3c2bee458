#include "check/finding.hpp"

namespace vorna::wfta {

const char* name_of(finding_id id)
{
    switch (id) {
    case finding_id::duplicate_name:
        return "duplicate-name";
    case finding_id::name_file:
        return "name-file";
    case finding_id::name_map:
        return "name-map";
    case finding_id::name_collision:
        return "name-collision";
    case finding_id::text_length:
        return "text-length";
    case finding_id::foreign_data:
        return "foreign-data";
    case finding_id::unknown_target:
        return "unknown-target";
    case finding_id::callee_order:
        return "callee-order";
    case finding_id::null_target:
        return "null-target";
    case finding_id::unhandled_type:
        return "unhandled-type";
    case finding_id::offset:
        return "offset";
    case finding_id::unaligned_offset:
        return "unaligned-offset";
    case finding_id::field_filled:
        return "field-filled";
    case finding_id::call_bit_25:
        return "call-bit-25";
    case finding_id::range:
        return "range";
    case finding_id::placement:
        return "placement";
    case finding_id::opcode:
        return "opcode";
    case finding_id::call_target:
        return "call-target";
    case finding_id::pair:
        return "pair";
    case finding_id::falls_through:
        return "falls-through";
    case finding_id::outside_constants:
        return "outside-constants";
    case finding_id::writes_constants:
        return "writes-constants";
    case finding_id::data_alignment:
        return "data-alignment";
    case finding_id::erratum_843419:
        return "erratum-843419";
    case finding_id::erratum_835769:
        return "erratum-835769";
    case finding_id::missing_feature:
        return "missing-feature";
    case finding_id::abi_callee_saved:
        return "abi-callee-saved";
    case finding_id::abi_stack_pointer:
        return "abi-stack-pointer";
    case finding_id::abi_return_address:
        return "abi-return-address";
    case finding_id::abi_platform_register:
        return "abi-platform-register";
    case finding_id::abi_below_stack:
        return "abi-below-stack";
    case finding_id::reads_unset:
        return "reads-unset";
    case finding_id::reads_flags_unset:
        return "reads-flags-unset";
    case finding_id::unreachable_code:
        return "unreachable-code";
    case finding_id::unfollowed:
        return "unfollowed";
    }
    return "";
}

} // namespace vorna::wfta
