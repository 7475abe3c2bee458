#include "workbench/analysis/data_flow_values.hpp"

#include "workbench/analysis/calling_convention.hpp"

namespace vorna::workbench::flow {

namespace {

part_set make_given_parts()
{
    part_set given;
    for (unsigned r = 0; r < register_count; ++r) {
        if (given_registers()[r])
            given.set(part_of(static_cast<register_id>(r)));
    }
    for (unsigned v = 0; v <= 7; ++v) {
        given.set(rest_of_q(v));
        given.set(rest_of_z(v));
    }
    for (unsigned p = 0; p <= 3; ++p)
        given.set(predicate_part(p));
    return given;
}

// Different values of SP. If they are known, or come from the loop that begins here, then some of them are
// wrong at every return to which the same is added. But two loops may undo each other's changes.
void join_sp(value& to, const value& from, uint32_t here)
{
    if (to.what == stack_pointer && from.what == stack_pointer) {
        to.what = sp_differs;
        to.offset = to.scale = 0;
        to.last = here;
    } else if (to.what == stack_pointer && from.what == sp_differs) {
        to = from;
    } else if (to.what != sp_differs ||
               (from.what == sp_differs ? to.last != here : from.what != stack_pointer)) {
        to.what = unknown;
    }
}

// Keeps in a joined value which initial values it may be.
void add_initial(value& joined, const value& from)
{
    std::array<register_part, 2>& known = joined.may_be_initial;
    const auto add = [&](uint8_t part) {
        if (part < part_count && known[0] != part && known[1] == part_count)
            known[known[0] == part_count ? 0 : 1] = part;
    };
    if (is_initial(from) && from.is_initial_of(from.what))
        add(from.what);
    for (const register_part part : from.may_be_initial)
        add(part);
}

} // namespace

value make_value(uint8_t what, int64_t offset, int64_t scale)
{
    value made;
    if (offset != static_cast<int32_t>(offset) || scale != static_cast<int16_t>(scale)) {
        made.frame = what == stack_pointer || (what >= aligned_base && what < constant);
        return made;
    }
    made.what = what;
    made.offset = static_cast<int32_t>(offset);
    made.scale = static_cast<int16_t>(scale);
    return made;
}

const part_set& given_parts()
{
    static const part_set given = make_given_parts();
    return given;
}

bool join_value(value& to, const value& from, size_t part, bool all_given, uint32_t here)
{
    value joined = to;
    if (!to.same_as(from)) {
        const uint8_t missing_to = missing_of(to, all_given);
        const uint8_t missing_from = missing_of(from, all_given);
        joined.mixed = to.mixed || from.mixed || to.is_initial_of(part) || from.is_initial_of(part);
        joined.frame = may_be_frame_address(to) || may_be_frame_address(from);
        add_initial(joined, to);
        add_initial(joined, from);
        if (to.what == absent || from.what == absent)
            joined.what = absent;
        else if (to.what == unknown || from.what == unknown)
            joined.what = unknown;
        else if (part == stack_pointer)
            join_sp(joined, from, here);
        else
            joined.what = computed;
        if (joined.what != sp_differs)
            joined.offset = joined.scale = 0;
        joined.missing = missing_to | missing_from;
        joined.certain = to.certain && from.certain && missing_to == missing_from;
    } else {
        add_initial(joined, from);
        joined.mixed = to.mixed || from.mixed;
        joined.frame = to.frame || from.frame;
        joined.missing = to.missing | from.missing;
        joined.certain = to.certain && from.certain && to.missing == from.missing;
    }
    joined.from_frame = to.from_frame && from.from_frame;
    joined.derived = to.derived || from.derived;
    joined.stale = to.stale || from.stale;
    if (joined.first == no_index)
        joined.first = from.first;
    if (joined.last == no_index)
        joined.last = from.last;
    const bool changed = !joined.same_as(to) || joined.mixed != to.mixed || joined.frame != to.frame ||
                         joined.stale != to.stale || joined.missing != to.missing ||
                         joined.certain != to.certain || joined.may_be_initial != to.may_be_initial;
    to = joined;
    return changed;
}

value added(const value& from, int64_t constant_part, int64_t scale)
{
    if (is_initial(from) || is_frame_address(from) || from.what == constant || from.what == sp_differs) {
        value made = make_value(from.what, from.offset + constant_part, from.scale + scale);
        made.frame = made.frame || from.frame;
        return made;
    }
    value made = make_value(from.what == unknown ? unknown : computed);
    made.frame = may_be_frame_address(from);
    return made;
}

} // namespace vorna::workbench::flow
