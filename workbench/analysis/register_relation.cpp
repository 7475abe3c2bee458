#include "workbench/analysis/register_relation.hpp"

namespace vorna::workbench {

register_relation register_relation::same_names()
{
    register_relation made;
    for (std::size_t r = 0; r < register_count; ++r)
        made.relate(static_cast<register_id>(r), {relation::equal, static_cast<register_id>(r)});
    made.links_[link_register].returns = true;
    return made;
}

void register_relation::forget_before(register_id before)
{
    if (links_[before].kind != relation::none)
        partners_[links_[before].partner] = nobody;
    links_[before] = {};
}

void register_relation::forget_after(register_id after)
{
    if (partners_[after] != nobody)
        links_[partners_[after]] = {};
    partners_[after] = nobody;
}

void register_relation::relate(register_id before, const link& to)
{
    forget_before(before);
    forget_after(to.partner);
    links_[before] = to;
    partners_[to.partner] = before;
}

void register_relation::mark_return_address(register_id before)
{
    if (links_[before].kind == relation::equal)
        links_[before].returns = true;
}

bool register_relation::all_same_names() const
{
    for (std::size_t r = 0; r < register_count; ++r) {
        if (!is_same_name(static_cast<register_id>(r)))
            return false;
    }
    return true;
}

// The strongest relation that two different links both imply.
static relation common(const link& a, const link& b)
{
    const auto either = [&](relation kind) { return a.kind == kind || b.kind == kind; };
    if (a.partner != b.partner || a.is_address() || b.is_address() || either(relation::none))
        return relation::none;
    if (a.kind == b.kind)
        return a.kind;
    if (either(relation::clobbered))
        return either(relation::low_half) ? relation::none : relation::clobbered;
    return relation::low_half;
}

bool register_relation::meet(const register_relation& other)
{
    bool changed = false;
    for (std::size_t r = 0; r < register_count; ++r) {
        const auto before = static_cast<register_id>(r);
        const link& mine = links_[r];
        const link& theirs = other.links_[r];
        if (mine.kind == relation::none || mine == theirs)
            continue;
        const relation both = common(mine, theirs);
        const bool returns = mine.returns && theirs.returns;
        if (both == mine.kind && returns == mine.returns)
            continue;
        changed = true;
        if (both == relation::none) {
            forget_before(before);
        } else {
            links_[r].kind = both;
            links_[r].returns = returns;
        }
    }
    const stack_frame known = stack;
    if (stack.sp != other.stack.sp)
        stack.move_sp(std::nullopt);
    for (const std::int64_t slot : known.returns) {
        if (!other.stack.returns.contains(slot))
            stack.returns.erase(slot);
    }
    return changed || !(stack == known);
}

template <typename predicate>
static bool all_of_range(register_id first, register_id last, predicate holds)
{
    for (unsigned r = first; r <= last; ++r) {
        if (!holds(static_cast<register_id>(r)))
            return false;
    }
    return true;
}

static bool is_preserved_general(register_id r)
{
    return r >= general_register(19) && r <= general_register(29);
}
static bool is_preserved_vector(register_id r)
{
    return r >= vector_register(8) && r <= vector_register(15);
}

bool arguments_are_equal(const register_relation& registers)
{
    const auto passed = [&](register_id r) {
        return registers.is_same_name(r) || registers.is_same_name(r, relation::clobbered);
    };
    return all_of_range(general_register(0), general_register(8), passed) &&
           all_of_range(vector_register(0), vector_register(7), passed) &&
           all_of_range(predicate_register(0), predicate_register(3), passed) &&
           registers.is_same_name(general_register(18)) && registers.is_same_name(stack_pointer);
}

bool preserved_are_equal(const register_relation& registers)
{
    const auto same = [&](register_id r) { return registers.is_same_name(r); };
    const auto same_half = [&](register_id r) {
        return registers.is_same_name(r) || registers.is_same_name(r, relation::low_half);
    };
    return all_of_range(general_register(18), general_register(29), same) && same(stack_pointer) &&
           all_of_range(vector_register(8), vector_register(15), same_half);
}

bool results_are_equal(const register_relation& registers)
{
    const auto same = [&](register_id r) { return registers.is_same_name(r); };
    return all_of_range(general_register(0), general_register(1), same) &&
           all_of_range(vector_register(0), vector_register(3), same);
}

register_relation after_call(const register_relation& registers)
{
    register_relation result;
    result.stack = registers.stack;
    for (unsigned i = 0; i < register_count; ++i) {
        const auto r = static_cast<register_id>(i);
        link now = registers.of(r);
        if (r == general_register(18) || r == stack_pointer) {
            result.relate(r, now);
        } else if (is_preserved_general(r)) {
            if (now.kind != relation::none && is_preserved_general(now.partner))
                result.relate(r, now);
        } else if (is_preserved_vector(r)) {
            if (now.kind != relation::none && is_preserved_vector(now.partner)) {
                now.kind = relation::low_half;
                result.relate(r, now);
            }
        } else {
            const bool is_result =
                r <= general_register(1) || (r >= vector_register(0) && r <= vector_register(3));
            result.relate(r, {is_result ? relation::equal : relation::clobbered, r});
        }
    }
    return result;
}

} // namespace vorna::workbench
