// The transfer function of calls, and what returns and branches to other kernels record.
//
// A call has the effect of its callee: the AAPCS64's, that of the internal kernel, or that of the subroutine
// in the kernel's own code. Such subroutines are followed apart from their callers, once, as if all registers
// were given.

#include "workbench/analysis/data_flow_transfer.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace vorna::workbench::flow {

namespace {

constexpr unsigned most_local_depth = 8;

call_effect make_standard_effect()
{
    call_effect made;
    for (unsigned r = 0; r <= 18; ++r)
        made.changes.set(r);
    for (unsigned v = 0; v <= 31; ++v) {
        if (v < 8 || v > 15)
            made.changes.set(low_half(v));
        made.changes.set(rest_of_q(v));
        made.changes.set(rest_of_z(v));
    }
    for (unsigned p = 0; p <= 15; ++p)
        made.changes.set(predicate_part(p));
    made.changes.set(first_fault_part);
    made.changes.set(flags_part);
    // Where results are: X0, X1, V0 to V3; with SVE, Z0 to Z7 and P0 to P3.
    made.sets.set(general_register(0));
    made.sets.set(general_register(1));
    for (unsigned v = 0; v <= 7; ++v) {
        made.sets.set(low_half(v));
        made.sets.set(rest_of_q(v));
        made.sets.set(rest_of_z(v));
    }
    for (unsigned p = 0; p <= 3; ++p)
        made.sets.set(predicate_part(p));
    return made;
}

const call_effect& standard_effect()
{
    static const call_effect effect = make_standard_effect();
    return effect;
}

// An argument register with the caller's value of a callee-saved one: the call may change it, so this
// does not save it.
void check_arguments(function_context& f)
{
    for (unsigned r = 0; r <= 7; ++r) {
        for (const register_part part : {general_register(r), low_half(r)}) {
            const value& v = f.state.parts[part];
            if (!is_saved_value(v) || v.offset != 0 || v.what >= general_register(29) + 0U)
                if (!(is_saved_value(v) && v.offset == 0 && v.what >= low_half(8)))
                    continue;
            if (flow_fact* const fact = add_fact(f, flow_event::passes_saved, v.what))
                fact->certain = false;
        }
    }
}

// Whether the kernel has instructions of SVE.
bool uses_scalable(function_context& f)
{
    if (!f.kernel.uses_scalable) {
        if (f.kernel.options.to_decode != nullptr)
            decode_reached(*f.kernel.options.to_decode, f.kernel.map);
        f.kernel.uses_scalable =
            std::any_of(f.code.operands.begin(), f.code.operands.end(), [](const operand& o) {
                return o.is_register && (o.scalable || (o.registers[0] >= predicate_register(0) &&
                                                        o.registers[0] <= predicate_register(15)));
            });
    }
    return *f.kernel.uses_scalable;
}

void apply(function_context& f, const call_effect& effect)
{
    for (size_t part = 0; part < part_count; ++part) {
        if (effect.reads[part])
            use(f, static_cast<register_part>(part));
        if (effect.may_read[part]) {
            const part_set reads = f.reads;
            use(f, static_cast<register_part>(part), 0xff, true);
            f.may_read |= f.reads & ~reads;
            f.reads = reads;
        }
    }
    const bool standard = &effect == &standard_effect();
    bool passes = false;
    for (unsigned r = 0; r <= 30; ++r) {
        const bool argument = standard ? r <= 8 : effect.reads[r];
        if (argument)
            check_internal_address(f, static_cast<register_part>(r));
        passes = passes || (argument && may_be_frame_address(f.state.parts[r]));
    }
    if (standard)
        check_arguments(f);
    f.state.frame.escaped = f.state.frame.escaped || passes;
    if (f.state.frame.escaped || effect.stores_in_callers_frame)
        lose_frame(f, unfollowed_reason::escaped_store);
    drop_cells_below(f.state.frame, f.state.parts[stack_pointer]);
    for (size_t i = 0; i < part_count; ++i) {
        const auto part = static_cast<register_part>(i);
        if (!effect.changes[i])
            continue;
        value made = make_value(computed);
        if (!effect.sets[i]) {
            made.missing = 0xff;
            // Kept if the callee takes SVE arguments: a kernel that uses SVE may rely on it.
            if (standard && is_saved_with_sve(part))
                made.certain = !uses_scalable(f);
        } else {
            made.frame = part < 32 && f.state.frame.escaped;
        }
        const value old = f.state.parts[i];
        set_quietly(f, part, made);
        if (old.what == part && old.offset == 0 && missing_of(f, old) != 0 && made.missing != 0)
            f.state.parts[i].certain = true; // was not set before either
    }
}

// The stack that a subroutine takes below the current SP.
void add_stack_of(function_context& f, size_t target)
{
    if (f.result == nullptr || !f.result->stack)
        return;
    const value& sp = f.state.parts[stack_pointer];
    const std::optional<int64_t>& stack = f.kernel.local_functions[target]->stack;
    if (stack && sp.what == stack_pointer && sp.scale == 0)
        f.result->stack = std::max(*f.result->stack, *stack - sp.offset);
    else
        f.result->stack.reset();
}

// The effect of a subroutine in the kernel's own code; null while it is being found.
const call_effect* effect_of_local(function_context& f, size_t target)
{
    if (f.kernel.block_at[target] == no_index || f.depth == most_local_depth)
        return nullptr;
    const auto [at, added] = f.kernel.local_functions.try_emplace(target);
    if (!added)
        return at->second ? &at->second->effect : nullptr;
    kernel_flow flow = follow_function(f.kernel, target, true, f.depth + 1);
    for (flow_fact& fact : flow.facts) {
        if (fact.event != flow_event::saves)
            f.kernel.local_facts.push_back(fact);
    }
    for (flow_exit& exit : flow.exits) {
        exit.local = true;
        f.kernel.local_exits.push_back(exit);
    }
    flow.effect.followed = flow.followed && flow.effect.followed;
    auto& made = f.kernel.local_functions[target];
    made = std::make_unique<local_function>(local_function{flow.effect, flow.stack});
    return &made->effect;
}

// A return, or a branch to another kernel.
void finish_way(function_context& f, bool tail_call, bool elsewhere, register_id link)
{
    if (f.result == nullptr)
        return;
    flow_exit made;
    made.index = f.index;
    made.tail_call = tail_call;
    made.link = link;
    made.returns_elsewhere = elsewhere;
    for (size_t i = 0; i < part_count; ++i) {
        const auto part = static_cast<register_part>(i);
        const value v = f.state.parts[i];
        if (v.what == part && v.offset == 0 && v.scale == 0)
            continue;
        changed_part changed;
        changed.part = part;
        changed.changed = v.first == no_index ? f.index : v.first;
        changed.last = v.last == no_index ? f.index : v.last;
        changed.known = v.what != unknown;
        changed.scalable = part >= rest_of_z(0) && part < predicate_part(0) && v.what != constant &&
                           !v.mixed && missing_of(f, v) == 0 && !f.code.instructions[changed.last].is_call();
        if (v.what == part && v.scale == 0)
            changed.difference = v.offset;
        if (v.from_frame && v.last != no_index && v.last != v.first)
            changed.loaded = v.last;
        if (is_saved_part(part) || is_saved_with_sve(part))
            changed.way = way_of_change(f, part);
        else if (part == stack_pointer)
            changed.way = way_of_sp(f, v);
        if (part == stack_pointer && v.what == unknown)
            note(f, unfollowed_reason::sp);
        if (v.what == unknown && is_saved_part(part) && part != link_register && !f.all_given &&
            f.result->followed)
            note(f, unfollowed_reason::restores_from_elsewhere);
        made.changed.push_back(changed);
        f.changes.set(i);
        if (missing_of(f, v) != 0)
            f.unset.set(i);
    }
    if (tail_call && f.state.parts[link_register].what != link_register)
        made.returns_elsewhere = true;
    if (elsewhere && f.state.parts[link].what == unknown)
        note(f, unfollowed_reason::restores_from_elsewhere);
    f.result->exits.push_back(std::move(made));
}

} // namespace

bool call(function_context& f, const instruction& at)
{
    check_sp_alignment(f, stack_pointer, flow_event::unaligned_sp_call);
    const call_effect* effect = &standard_effect();
    if (at.flow == control_flow::indirect_call) {
        for (const operand& o : operands_of(f.code, at)) {
            if (o.is_register && !o.defined && o.registers[0] < register_count)
                use(f, o.registers[0]);
        }
        const value to = get(f, operands_of(f.code, at)[0].registers[0]);
        if (to.what == own_address)
            return stop(f, unfollowed_reason::local_call);
        if (to.what == kernel_address && f.kernel.options.effect_of) {
            if (const call_effect* const known = f.kernel.options.effect_of(static_cast<size_t>(to.offset)))
                effect = known;
        }
        if (!effect->followed)
            return stop(f, unfollowed_reason::callee);
    } else if (at.relocated == word_relocation::fits) {
        const tessjit::reloc_info& relocation = f.code.kernel->relocs[at.relocation];
        if (relocation.name == f.code.kernel->name && (relocation.addend != 0 || f.kernel.options.all_given))
            return stop(f, unfollowed_reason::local_call);
        if (f.kernel.options.effect_of) {
            if (const call_effect* const known = f.kernel.options.effect_of(at.relocation))
                effect = known;
        }
        if (!effect->followed)
            return stop(f, unfollowed_reason::callee);
    } else {
        const std::optional<size_t> target = successors_of(f.code, f.index).target;
        if (!target)
            return stop(f, unfollowed_reason::outside);
        effect = effect_of_local(f, *target);
        if (effect == nullptr || !effect->followed)
            return stop(f, unfollowed_reason::local_call);
        add_stack_of(f, *target);
    }
    // BL changes X30 before the callee begins, and the callee may leave anything there.
    value link = make_value(computed);
    link.missing = 0xff;
    link.certain = false;
    set(f, link_register, link);
    call_effect without_link = *effect;
    if (effect != &standard_effect()) {
        without_link.reads.reset(link_register);
        without_link.may_read.reset(link_register);
        without_link.changes.reset(link_register);
        apply(f, without_link);
    } else {
        apply(f, *effect);
    }
    return effect->returns;
}

bool leave_to(function_context& f, uint32_t relocation)
{
    const tessjit::reloc_info& target = f.code.kernel->relocs[relocation];
    if (target.name == f.code.kernel->name && (target.addend != 0 || f.kernel.options.all_given))
        return stop(f, unfollowed_reason::local_call);
    const call_effect* effect = &standard_effect();
    if (f.kernel.options.effect_of) {
        if (const call_effect* const known = f.kernel.options.effect_of(relocation))
            effect = known;
    }
    if (!effect->followed)
        return stop(f, unfollowed_reason::callee);
    const value link = f.state.parts[link_register];
    apply(f, *effect);
    if (!effect->returns)
        return false;
    f.state.parts[link_register] = link; // the callee returns by it
    finish_way(f, true, false, link_register);
    return false;
}

bool jump(function_context& f, const instruction& at)
{
    const register_id to = operands_of(f.code, at)[0].registers[0];
    for (const operand& o : operands_of(f.code, at)) {
        if (o.is_register && !o.defined && o.registers[0] < register_count)
            use(f, o.registers[0]);
    }
    const value target = get(f, to);
    if (target.what == link_register && target.offset == 0) {
        finish_way(f, false, false, to);
        return false;
    }
    if (target.what == kernel_address)
        return leave_to(f, static_cast<uint32_t>(target.offset));
    return stop(f, unfollowed_reason::jump);
}

bool leave(function_context& f, const instruction& at)
{
    const std::string_view name = opcode_name(at.opcode);
    register_id link = link_register;
    if (name == "RET") {
        link = operands_of(f.code, at)[0].registers[0];
        if (link >= register_count) {
            stop(f, unfollowed_reason::jump);
            return false;
        }
    } else if (name.starts_with("RETAA") || name.starts_with("RETAB")) {
        const value& signed_link = f.state.parts[link_register];
        const value& sp = f.state.parts[stack_pointer];
        const uint8_t key = name.starts_with("RETAB") ? link_signed_b : link_signed;
        if (sp.what != stack_pointer)
            return stop(f, unfollowed_reason::sp);
        if (signed_link.what == key && signed_link.offset == sp.offset && signed_link.scale == sp.scale)
            set(f, link_register, make_value(link_register));
        else if (signed_link.what != unknown)
            set(f, link_register, make_value(computed));
    } else {
        return stop(f, unfollowed_reason::other_branch);
    }
    const value& to = f.state.parts[link];
    if (to.what == own_address) {
        if (f.result != nullptr)
            f.result->returns_elsewhere = true;
        return stop(f, unfollowed_reason::jump);
    }
    finish_way(f, false, !(to.what == link_register && to.offset == 0 && to.scale == 0), link);
    return false;
}

bool system_call(function_context& f, const instruction& at)
{
    if (opcode_name(at.opcode) != "SVC")
        return stop(f, unfollowed_reason::unknown_effects);
    value result = make_value(computed);
    for (unsigned r = 0; r <= 5; ++r)
        f.state.frame.escaped = f.state.frame.escaped || may_be_frame_address(f.state.parts[r]);
    if (f.state.frame.escaped)
        lose_frame(f, unfollowed_reason::escaped_store);
    set(f, general_register(0), result);
    // The system may clear what SVE adds.
    for (unsigned v = 0; v <= 31; ++v)
        set(f, rest_of_z(v), result);
    for (unsigned p = 0; p <= 15; ++p)
        set(f, predicate_part(p), result);
    set(f, first_fault_part, result);
    return true;
}

} // namespace vorna::workbench::flow
