#include "workbench/analysis/register_part.hpp"

namespace vorna::workbench {

register_part part_of(register_id r)
{
    if (r == condition_flags)
        return flags_part;
    if (r == first_fault_register)
        return first_fault_part;
    if (r >= predicate_register(0))
        return predicate_part(r - predicate_register(0));
    return r; // general, or the low half of a vector register
}

register_id register_of_part(register_part part)
{
    if (part == flags_part)
        return condition_flags;
    if (part == first_fault_part)
        return first_fault_register;
    if (part >= predicate_part(0))
        return predicate_register(part - predicate_part(0));
    return part < 32 ? part : vector_register((part - 32U) % 32);
}

std::string name_of_part(register_part part)
{
    if (part == stack_pointer)
        return "sp";
    if (part == flags_part)
        return "nzcv";
    if (part == first_fault_part)
        return "ffr";
    if (part < low_half(0))
        return "x" + std::to_string(part);
    if (part >= predicate_part(0))
        return "p" + std::to_string(part - predicate_part(0));
    return "dvz"[(part - 32) / 32] + std::to_string((part - 32) % 32);
}

bool is_saved_with_sve(register_part part)
{
    const auto within = [&](register_part first, register_part last) {
        return part >= first && part <= last;
    };
    return within(low_half(16), low_half(23)) || within(rest_of_q(8), rest_of_q(23)) ||
           within(rest_of_z(8), rest_of_z(23)) || within(predicate_part(4), predicate_part(15));
}

} // namespace vorna::workbench
