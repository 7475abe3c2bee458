// What instructions do to registers: they use parts, which must be set by then, and give them values.

#include "workbench/analysis/data_flow_transfer.hpp"

#include <algorithm>
#include <utility>

namespace vorna::workbench::flow {

namespace {

void lower_stack(function_context& f, const value& sp)
{
    if (f.result == nullptr || !f.result->stack)
        return;
    if (sp.what == stack_pointer && sp.scale == 0)
        f.result->stack = std::max(*f.result->stack, -int64_t{sp.offset});
    else
        f.result->stack.reset();
}

} // namespace

value get(const function_context& f, register_id r)
{
    if (r == zero_register)
        return make_value(constant);
    return f.state.parts[r];
}

void use(function_context& f, register_part part, uint8_t bytes, bool always_warning)
{
    if (part == stack_pointer)
        return;
    const value& v = f.state.parts[part];
    if (is_initial(v) && (v.what != stack_pointer || (v.offset == 0 && v.scale == 0)))
        f.reads.set(v.what);
    for (const register_part joined : v.may_be_initial) {
        if (joined < part_count)
            f.may_read.set(joined);
    }
    const uint8_t missing = missing_of(f, v) & bytes;
    if (missing == 0)
        return;
    if (f.result != nullptr) {
        // An unknown way may set it.
        const bool certain = (is_initial(v) || v.certain) && !f.kernel.map.any_entry &&
                             !(is_initial(v) && v.what == general_register(18));
        const bool whole = missing == bytes;
        std::optional<branch_way> way;
        if (!is_initial(v) && !v.certain) {
            way = find_way(f, [&f, part](const flow_state& s, uint32_t) {
                const value& there = s.parts[part];
                if (missing_of(f, there) == 0)
                    return 0;
                return is_initial(there) || there.certain ? 2 : 1;
            });
        }
        flow_fact* const fact = add_fact(f, flow_event::reads_unset, part);
        fact->certain = certain && whole && !always_warning;
        fact->everywhere = is_initial(v) || v.certain;
        fact->whole = whole;
        fact->way = way;
        if (v.last != no_index)
            fact->changed = v.last;
        if (is_initial(v) && v.what != part)
            fact->source = v.what;
    }
}

void use_register(function_context& f, register_id r, bool low_half_only, bool scalable, bool always_warning)
{
    if (r >= register_count)
        return;
    if (!is_vector(r)) {
        use(f, part_of(r), 0xff, always_warning);
        return;
    }
    const unsigned v = r - vector_register(0);
    use_parts_of(f, v, low_half_only ? 1 : scalable ? 3 : 2, always_warning);
}

void use_parts_of(function_context& f, unsigned v, unsigned count, bool always_warning)
{
    const register_part parts[] = {low_half(v), rest_of_q(v), rest_of_z(v)};
    unsigned missing = 0;
    for (unsigned i = 0; i < count; ++i)
        missing += missing_of(f, f.state.parts[parts[i]]) == 0 ? 0 : 1;
    const bool mixed = missing != 0 && missing != count;
    const size_t before = f.result != nullptr ? f.result->facts.size() : 0;
    for (unsigned i = 0; i < count; ++i)
        use(f, parts[i], 0xff, always_warning || mixed);
    if (f.result == nullptr || f.result->facts.size() <= before + 1) {
        if (f.result != nullptr && f.result->facts.size() == before + 1 && mixed)
            f.result->facts.back().whole = false;
        return;
    }
    const bool certain =
        std::all_of(f.result->facts.begin() + static_cast<std::ptrdiff_t>(before), f.result->facts.end(),
                    [](const flow_fact& fact) { return fact.certain; });
    f.result->facts.resize(before + 1);
    f.result->facts.back().certain = certain;
    f.result->facts.back().whole = f.result->facts.back().whole && !mixed;
}

void use_implicit(function_context& f, const instruction& at)
{
    const register_set& uses = implicit_uses_of(at);
    if (uses.none())
        return;
    for (unsigned r = 0; r < register_count; ++r) {
        if (uses[r] && r != stack_pointer)
            use_register(f, static_cast<register_id>(r), false, true);
    }
}

void use_operands(function_context& f, const instruction& at, bool always_warning)
{
    for (const operand& o : operands_of(f.code, at)) {
        if (o.defined)
            continue;
        for (size_t i = 0; i < o.count; ++i)
            use_register(f, o.registers[i], o.low_half, o.scalable, always_warning);
    }
    use_implicit(f, at);
}

bool uses_frame_address(const function_context& f, const instruction& at)
{
    for (const operand& o : operands_of(f.code, at)) {
        for (size_t i = 0; !o.defined && i < o.count; ++i) {
            if (is_general(o.registers[i]) && may_be_frame_address(f.state.parts[o.registers[i]]))
                return true;
        }
    }
    return false;
}

void set(function_context& f, register_part part, value v)
{
    value& to = f.state.parts[part];
    const auto now = static_cast<uint32_t>(f.index);
    v.first = to.first;
    v.last = now;
    v.mixed = false;
    if (v.what == part && v.offset == 0 && v.scale == 0)
        v.first = no_index;
    else if (v.first == no_index)
        v.first = now;
    if (part == general_register(18) && !(v.what == part && v.offset == 0))
        add_fact(f, flow_event::writes_platform_register, part);
    if (part == stack_pointer) {
        if (v.what == computed) {
            v.what = unknown;
            v.frame = true;
        }
        if (v.what == sp_differs && to.what == sp_differs)
            v.last = to.last;
        lower_stack(f, v);
        release_cells(f.state.frame, to, v);
    }
    to = v;
}

void set_quietly(function_context& f, register_part part, const value& v)
{
    kernel_flow* const result = part == general_register(18) ? std::exchange(f.result, nullptr) : nullptr;
    set(f, part, v);
    if (result != nullptr)
        f.result = result;
}

void set_general(function_context& f, register_id r, const value& v)
{
    if (r < vector_register(0))
        set(f, r, v);
}

void set_vector(function_context& f, unsigned v, const value& low, const value& q, const value& z)
{
    set(f, low_half(v), low);
    set(f, rest_of_q(v), q);
    set(f, rest_of_z(v), z);
}

void set_flags(function_context& f, const instruction& at)
{
    if (implicit_defs_of(at)[condition_flags])
        set(f, flags_part, make_value(computed));
}

void define(function_context& f, register_id r, bool low_half_only, bool scalable, bool frame)
{
    if (r >= register_count)
        return;
    value made = make_value(computed);
    if (is_general(r)) {
        made.frame = frame;
        set(f, r, made);
    } else if (is_vector(r)) {
        const value zero = make_value(constant);
        set_vector(f, r - vector_register(0), made, low_half_only ? zero : made, scalable ? made : zero);
    } else {
        set(f, part_of(r), made);
    }
}

void define_operands(function_context& f, const instruction& at, bool frame)
{
    for (const operand& o : operands_of(f.code, at)) {
        if (!o.defined)
            continue;
        for (size_t i = 0; i < o.count; ++i)
            define(f, o.registers[i], o.low_half, o.scalable, frame);
    }
    const register_set& defs = implicit_defs_of(at);
    if (defs.none())
        return;
    for (unsigned r = 0; r < register_count; ++r) {
        if (defs[r])
            define(f, static_cast<register_id>(r), false, true, frame);
    }
}

value copied(function_context& f, value v, register_part from)
{
    if (from < part_count && missing_of(f, v) == 0xff && v.certain && !is_saved_value(v))
        use(f, from);
    v.mixed = false;
    return v;
}

void keep_missing(function_context& f, register_part part, const value& old)
{
    if (missing_of(f, old) != 0xff)
        return;
    f.state.parts[part].missing = 0xff;
    f.state.parts[part].certain = is_initial(old) || old.certain;
}

} // namespace vorna::workbench::flow
