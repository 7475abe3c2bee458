// The transfer function of an instruction. Most are followed by their operands: they use some registers and
// give others values that nothing is known of. Those that keep a value (copies, additions of constants,
// moves of lanes), keep part of a register, or use nothing of what they read are followed one by one.

#include "workbench/analysis/data_flow_transfer.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace vorna::workbench::flow {

namespace {

constexpr unsigned most_aligned_bases = 16; // of a function

void form_address(function_context& f, const instruction& at)
{
    const tessjit::reloc_info& relocation = f.code.kernel->relocs[at.relocation];
    const operand_range operands = operands_of(f.code, at);
    const register_id to = operands[0].registers[0];
    value made = make_value(computed);
    const bool plain = relocation.addend == 0 && !wfta::names_data(relocation.name);
    if (relocation.name == f.code.kernel->name)
        made = make_value(own_address);
    else if (at.kind == instruction_kind::adr && plain)
        made = make_value(kernel_address, at.relocation);
    else if (at.kind == instruction_kind::adrp && plain)
        made = make_value(kernel_page, at.relocation);
    else if (at.kind == instruction_kind::add_constant) {
        use(f, operands[1].registers[0]);
        const value from = get(f, operands[1].registers[0]);
        if (from.what == kernel_page &&
            f.code.kernel->relocs[static_cast<size_t>(from.offset)].name == relocation.name && plain)
            made = make_value(kernel_address, at.relocation);
    }
    set_general(f, to, made);
}

value aligned(function_context& f, const value& from, uint64_t alignment)
{
    if (alignment <= 16 && from.scale == 0)
        return make_value(stack_pointer, from.offset & -static_cast<int64_t>(alignment));
    for (size_t i = 0; i < f.aligned.size(); ++i) {
        const aligned_sp& known = f.aligned[i];
        if (known.offset == from.offset && known.scale == from.scale &&
            known.alignment == static_cast<int64_t>(alignment))
            return make_value(static_cast<uint8_t>(aligned_base + i));
    }
    if (f.aligned.size() == most_aligned_bases || alignment > 4096) {
        value made = make_value(computed);
        made.frame = true;
        return made;
    }
    f.aligned.push_back({from.offset, from.scale, static_cast<int64_t>(alignment)});
    return make_value(static_cast<uint8_t>(aligned_base + f.aligned.size() - 1));
}

void copy_register(function_context& f, operand_range operands)
{
    const register_id to = operands[0].registers[0];
    const register_id from = operands[operands.size() > 2 ? 2 : 1].registers[0];
    if (!is_vector(to)) {
        set(f, part_of(to), copied(f, f.state.parts[part_of(from)], part_of(from)));
        return;
    }
    const unsigned v = to - vector_register(0);
    const unsigned source = from - vector_register(0);
    const value zero = make_value(constant);
    const value low = copied(f, f.state.parts[low_half(source)], low_half(source));
    const value q = operands[0].low_half ? zero : f.state.parts[rest_of_q(source)];
    const value z = operands[0].scalable ? f.state.parts[rest_of_z(source)] : zero;
    set_vector(f, v, low, q, z);
}

// DUP of a lane. Returns false if it is better followed by its operands.
bool duplicate(function_context& f, const instruction& at, operand_range operands)
{
    const auto lane = lane_read_by(f.code, at);
    if (!lane || lane->first >= 16)
        return false;
    const unsigned from = operands[1].registers[0] - vector_register(0);
    const register_part part = lane->first < 8 ? low_half(from) : rest_of_q(from);
    const value zero = make_value(constant);
    const unsigned to = operands[0].registers[0] - vector_register(0);
    if (lane->bytes == 8) {
        const value v = copied(f, f.state.parts[part], part);
        set_vector(f, to, v, operands[0].low_half ? zero : v, operands[0].scalable ? v : zero);
        return true;
    }
    use(f, part, static_cast<uint8_t>(((1U << lane->bytes) - 1) << lane->first % 8));
    const value made = make_value(computed);
    set_vector(f, to, made, operands[0].low_half ? zero : made, operands[0].scalable ? made : zero);
    return true;
}

// CSEL of 64 bits.
bool selects_whole(const instruction& at)
{
    return opcode_name(at.opcode) == "CSELXr";
}

// Whether a source other than the part itself holds the caller's value of a callee-saved register, or was
// computed from one: then the result may be that value again.
bool uses_saved_value(const function_context& f, const instruction& at, register_part except)
{
    const auto is_one = [&](register_part part) {
        return part != except && (is_saved_value(f.state.parts[part]) || f.state.parts[part].derived);
    };
    for (const operand& o : operands_of(f.code, at)) {
        for (size_t i = 0; !o.defined && i < o.count; ++i) {
            const register_id r = o.registers[i];
            if (is_vector(r)) {
                const unsigned v = r - vector_register(0);
                if (is_one(low_half(v)) || is_one(rest_of_q(v)))
                    return true;
            } else if (r < register_count && is_one(part_of(r))) {
                return true;
            }
        }
    }
    return false;
}

// MOVK, BFM: using what they keep is the mistake, if nothing set it.
void keep_bits(function_context& f, const instruction& at, operand_range operands)
{
    const register_id to = operands[0].registers[0];
    for (size_t o = 2; o < operands.size(); ++o) {
        if (operands[o].is_register && operands[o].registers[0] != zero_register)
            use(f, operands[o].registers[0]);
    }
    if (to >= register_count)
        return;
    const value old = f.state.parts[to];
    value made = make_value(uses_saved_value(f, at, part_count) ? unknown : computed);
    made.derived = made.what == unknown;
    made.frame = uses_frame_address(f, at);
    made.missing = missing_of(f, old);
    made.certain = is_initial(old) || old.certain;
    if (const auto number = register_number_of(f.code, at)) {
        for (unsigned byte = 0; byte < 8; ++byte) {
            if ((number->kept >> 8 * byte & 0xff) == 0)
                made.missing &= static_cast<uint8_t>(~(1U << byte));
        }
        if (old.what == constant && old.scale == 0 && made.missing == 0) {
            made = make_value(
                constant, static_cast<int64_t>((static_cast<uint64_t>(int64_t{old.offset}) & number->kept) |
                                               number->value));
        }
    } else if (made.missing != 0) {
        made.missing = 0xff;
        made.certain = false;
    }
    set(f, to, made);
}

// Returns false if nothing better is known than of any other instruction.
bool add_registers(function_context& f, const instruction& at, operand_range operands, bool subtracts)
{
    value a = get(f, operands[1].registers[0]);
    value b = get(f, operands[2].registers[0]);
    if (!subtracts && a.what == constant && b.what != constant)
        std::swap(a, b);
    if (b.what != constant || (!is_initial(a) && !is_frame_address(a) && a.what != constant))
        return false;
    use_operands(f, at);
    set_general(f, operands[0].registers[0],
                added(a, subtracts ? -int64_t{b.offset} : b.offset, subtracts ? -b.scale : b.scale));
    return true;
}

// Pointer authentication of X30 with SP.
void sign_link(function_context& f, const instruction& at, register_effect effect)
{
    const value link = f.state.parts[link_register];
    const value& sp = f.state.parts[stack_pointer];
    const uint8_t key = uses_key_b(at) ? link_signed_b : link_signed;
    value made = make_value(computed);
    const bool unchanged = link.what == link_register && link.offset == 0;
    if (sp.what != stack_pointer) {
        made.what = unknown;
        if (unchanged || link.what == unknown || link.what == key)
            note(f, unfollowed_reason::sp);
    } else if (effect == register_effect::sign_link && unchanged) {
        made = make_value(key, sp.offset, sp.scale);
    } else if ((effect == register_effect::authenticate_link && link.what == key &&
                link.offset == sp.offset && link.scale == sp.scale) ||
               (effect == register_effect::strip_link &&
                (link.what == link_signed || link.what == link_signed_b || unchanged))) {
        made = make_value(link_register);
    } else if (link.what == unknown) {
        made.what = unknown;
    }
    set(f, link_register, made);
}

bool defines_vector(operand_range operands)
{
    return std::any_of(operands.begin(), operands.end(), [](const operand& o) {
        return o.defined && o.is_register && is_vector(o.registers[0]);
    });
}

void define_computed(function_context& f, const instruction& at, operand_range operands, bool frame)
{
    if (operands.empty() || !operands[0].defined || operands[0].count != 1 ||
        operands[0].registers[0] >= register_count) {
        define_operands(f, at, frame);
        return;
    }
    const bool derived = uses_saved_value(f, at, part_of(operands[0].registers[0]));
    const register_id to = operands[0].registers[0];
    const value old = f.state.parts[part_of(to)];
    const value old_q = is_vector(to) ? f.state.parts[rest_of_q(to - vector_register(0))] : value();
    define_operands(f, at, frame);
    for (const operand& o : operands) {
        if (o.defined || !o.is_register || o.count != 1 || o.registers[0] != to)
            continue;
        keep_missing(f, part_of(to), old);
        if (is_vector(to) && !operands[0].low_half)
            keep_missing(f, rest_of_q(to - vector_register(0)), old_q);
    }
    if (!derived)
        return;
    std::array<register_part, 2> parts{part_of(to), part_of(to)};
    if (is_vector(to))
        parts[1] = rest_of_q(to - vector_register(0));
    for (const register_part part : parts) {
        value& made = f.state.parts[part];
        if (made.what == computed) {
            made.what = unknown;
            made.derived = true;
        }
    }
}

// An instruction without an access to memory.
void compute(function_context& f, const instruction& at, register_effect effect)
{
    const operand_range operands = operands_of(f.code, at);
    const auto vector_of = [&](size_t o) {
        return static_cast<unsigned>(operands[o].registers[0] - vector_register(0));
    };
    switch (effect) {
    case register_effect::clear: {
        const register_id to = operands[0].registers[0];
        const value zero = make_value(constant);
        use_implicit(f, at);
        const value known = make_value(computed); // 0, or all ones
        if (is_vector(to))
            set_vector(f, vector_of(0), known, operands[0].low_half ? zero : known, zero);
        else if (to < register_count)
            set(f, part_of(to), zero);
        set_flags(f, at);
        return;
    }
    case register_effect::copy:
        copy_register(f, operands);
        return;
    case register_effect::copy_lane:
        if (const auto lane = lane_read_by(f.code, at); lane && lane->first < 16) {
            const unsigned from = vector_of(1);
            const value v = f.state.parts[lane->first < 8 ? low_half(from) : rest_of_q(from)];
            set_general(f, operands[0].registers[0],
                        copied(f, v, lane->first < 8 ? low_half(from) : rest_of_q(from)));
            return;
        }
        break;
    case register_effect::copy_to_vector: {
        const value v = copied(f, get(f, operands[1].registers[0]), operands[1].registers[0]);
        const value zero = make_value(constant);
        if (may_be_frame_address(v))
            f.state.frame.escaped = true;
        const bool both = !operands[0].low_half; // DUP Vd.2D, Xn
        set_vector(f, vector_of(0), v, both ? v : zero, zero);
        return;
    }
    case register_effect::scalar_from_lane:
    case register_effect::duplicate_lane:
        if (duplicate(f, at, operands))
            return;
        break;
    case register_effect::set_lane:
        set_lane(f, at, operands);
        return;
    case register_effect::set_upper_half: {
        const unsigned to = vector_of(0);
        for (size_t o = 2; o < operands.size(); ++o) {
            if (operands[o].is_register)
                use_register(f, operands[o].registers[0], operands[o].low_half, operands[o].scalable);
        }
        use_implicit(f, at);
        set(f, rest_of_q(to), make_value(computed));
        set(f, rest_of_z(to), make_value(constant));
        return;
    }
    case register_effect::keep_bits:
        keep_bits(f, at, operands);
        return;
    case register_effect::keep_inactive: {
        const unsigned to = vector_of(0);
        for (size_t o = 2; o < operands.size(); ++o) {
            if (operands[o].is_register)
                use_register(f, operands[o].registers[0], operands[o].low_half, operands[o].scalable);
        }
        use_implicit(f, at);
        if (uses_frame_address(f, at))
            f.state.frame.escaped = true;
        const value& active = f.state.parts[part_of(operands[2].registers[0])];
        const bool all = active.what == constant && active.scale == 1 && active.offset != 0 &&
                         static_cast<unsigned>(active.offset) <= element_bytes_of(at);
        for (const register_part part : {low_half(to), rest_of_q(to), rest_of_z(to)}) {
            value made = make_value(computed);
            if (!all && missing_of(f, f.state.parts[part]) != 0) {
                made.missing = 0xff;
                made.certain = false;
            }
            set(f, part, made);
        }
        return;
    }
    case register_effect::select:
        if (operands.size() == 4 && is_general(operands[0].registers[0]) && selects_whole(at) &&
            get(f, operands[1].registers[0]).same_as(get(f, operands[2].registers[0]))) {
            use(f, flags_part);
            set_general(f, operands[0].registers[0],
                        copied(f, get(f, operands[1].registers[0]), operands[1].registers[0]));
            return;
        }
        use_operands(f, at, true);
        define_computed(f, at, operands, uses_frame_address(f, at));
        return;
    case register_effect::add_registers:
    case register_effect::subtract_registers:
        if (add_registers(f, at, operands, effect == register_effect::subtract_registers))
            return;
        break;
    case register_effect::add_vector_lengths:
    case register_effect::vector_length: {
        const scalable_sum sum = *scalable_sum_of(f.code, at);
        const value from = get(f, sum.from);
        if (sum.from != zero_register && sum.from != stack_pointer)
            use(f, sum.from);
        set_general(f, sum.to, added(from, 0, sum.count));
        return;
    }
    case register_effect::align_down:
        if (const value from = get(f, operands[1].registers[0]);
            from.what == stack_pointer && !implicit_defs_of(at)[condition_flags]) {
            set_general(f, operands[0].registers[0], aligned(f, from, alignment_of(f.code, at)));
            return;
        }
        break;
    case register_effect::all_true:
        // A constant predicate: `offset` is the size of the elements.
        set(f, part_of(operands[0].registers[0]), make_value(constant, element_bytes_of(at), 1));
        return;
    case register_effect::sign_link:
    case register_effect::authenticate_link:
    case register_effect::strip_link:
        sign_link(f, at, effect);
        return;
    case register_effect::read_system:
        if (system_register_of(f.code, at) == system_register::nzcv)
            use(f, flags_part);
        {
            value made = make_value(computed);
            made.frame = f.state.frame.escaped;
            set_general(f, operands[0].registers[0], made);
            return;
        }
    case register_effect::write_system:
        use_operands(f, at);
        if (uses_frame_address(f, at))
            f.state.frame.escaped = true;
        if (system_register_of(f.code, at) == system_register::nzcv)
            set(f, flags_part, make_value(computed));
        return;
    case register_effect::compute:
    case register_effect::change_streaming:
    case register_effect::follow_operands:
        break;
    }
    if (const auto sum = register_sum_of(f.code, at)) {
        const value from = get(f, sum->from);
        const bool moves = sum->constant == 0 && !sum->sets_flags;
        const bool tracked = sum->wide && !sum->sets_flags && is_saved_value(from);
        if (sum->from < register_count && sum->from != stack_pointer && !(moves && sum->wide) && !tracked)
            use(f, sum->from);
        if (sum->wide && moves)
            set_general(f, sum->to, copied(f, from, sum->from));
        else if (sum->wide)
            set_general(f, sum->to, added(from, sum->constant, 0));
        else
            define_operands(f, at, false);
        if (sum->to == sum->from && sum->to < stack_pointer && sum->constant != 0)
            keep_missing(f, sum->to, from);
        set_flags(f, at);
        return;
    }
    if (const auto number = register_number_of(f.code, at); number && number->kept == 0) {
        set_general(f, number->to, make_value(constant, static_cast<int64_t>(number->value)));
        return;
    }
    if (at.kind == instruction_kind::adr) {
        set_general(f, operands[0].registers[0], make_value(own_address));
        return;
    }
    const bool frame = uses_frame_address(f, at);
    use_operands(f, at, is_prefetch(at)); // a prefetch never faults
    if (frame && defines_vector(operands))
        f.state.frame.escaped = true;
    define_computed(f, at, operands, frame);
}

// Whether CBZ, CBNZ, TBZ or TBNZ branches, if its register holds a constant.
std::optional<bool> is_taken(const function_context& f, const instruction& at)
{
    const std::string_view name = opcode_name(at.opcode);
    const bool tests_bit = name.starts_with("TB");
    if (!tests_bit && !name.starts_with("CB"))
        return std::nullopt;
    const operand_range operands = operands_of(f.code, at);
    const value v = get(f, operands[0].registers[0]);
    if (v.what != constant || v.scale != 0)
        return std::nullopt;
    const auto number = static_cast<uint64_t>(int64_t{v.offset});
    const uint64_t tested = tests_bit            ? number >> operands[1].immediate & 1
                            : name.back() == 'W' ? number & 0xffffffff
                                                 : number;
    return (tested == 0) == (name[2] == 'Z');
}

} // namespace

void set_lane(function_context& f, const instruction& at, operand_range operands, value made)
{
    const vector_lane lane = *lane_set_by(f.code, at);
    const operand* list = nullptr;
    for (const operand& o : operands) {
        if (o.is_register && o.defined && is_vector(o.registers[0])) {
            list = &o;
            break;
        }
    }
    if (list == nullptr)
        return;
    if (!at.may_load) {
        const auto from = lane_read_by(f.code, at);
        if (from && from->first < 16) {
            const unsigned v = operands[3].registers[0] - vector_register(0);
            const register_part part = from->first < 8 ? low_half(v) : rest_of_q(v);
            if (lane.bytes == 8)
                made = copied(f, f.state.parts[part], part);
            else
                use(f, part, static_cast<uint8_t>(((1U << from->bytes) - 1) << from->first % 8));
        } else {
            for (const operand& o : operands) {
                if (!o.is_register || o.defined || o.count != 1 || o.registers[0] >= vector_register(0))
                    continue;
                if (may_be_frame_address(f.state.parts[o.registers[0]]))
                    f.state.frame.escaped = true;
                if (lane.bytes == 8)
                    made = copied(f, f.state.parts[o.registers[0]], o.registers[0]);
                else
                    use(f, o.registers[0]);
            }
        }
    }
    for (size_t i = 0; i < list->count; ++i) {
        const unsigned v = list->registers[i] - vector_register(0);
        const register_part part = lane.first < 8 ? low_half(v) : rest_of_q(v);
        if (lane.bytes < 8) {
            const value& old = f.state.parts[part];
            value partly = make_value(computed);
            partly.missing =
                static_cast<uint8_t>(missing_of(f, old) & ~(((1U << lane.bytes) - 1) << lane.first % 8));
            partly.certain = is_initial(old) || old.certain;
            set(f, part, partly);
        } else {
            set(f, part, made);
        }
        set(f, rest_of_z(v), make_value(constant));
    }
}

bool transfer(function_context& f)
{
    const instruction& at = f.code.instructions[f.index];
    if (f.kernel.options.to_decode != nullptr && !at.decoded)
        decode_instruction(*f.kernel.options.to_decode, f.index);
    if (!at.decoded)
        return stop(f, unfollowed_reason::unknown_word);
    if (at.relocated == word_relocation::unclear)
        return stop(f, unfollowed_reason::relocation);
    switch (at.flow) {
    case control_flow::next:
        break;
    case control_flow::conditional:
        use_operands(f, at);
        if (at.relocated != word_relocation::none)
            return stop(f, unfollowed_reason::relocation);
        if (!successors_of(f.code, f.index).target)
            note(f, unfollowed_reason::outside);
        else if (!f.kernel.map.any_entry)
            f.taken = is_taken(f, at);
        return true;
    case control_flow::branch:
        if (at.relocated == word_relocation::fits)
            return leave_to(f, at.relocation);
        return successors_of(f.code, f.index).target ? true : stop(f, unfollowed_reason::outside);
    case control_flow::call:
    case control_flow::indirect_call:
        return call(f, at);
    case control_flow::jump:
        return jump(f, at);
    case control_flow::exit:
        return leave(f, at);
    case control_flow::trap:
        return false;
    case control_flow::system:
        return system_call(f, at);
    case control_flow::anywhere:
        return stop(f, unfollowed_reason::unknown_word);
    case control_flow::unknown:
        return stop(f, unfollowed_reason::other_branch);
    }
    const register_effect effect = effect_of(f.code, at);
    if (effect == register_effect::change_streaming)
        return stop(f, unfollowed_reason::unknown_effects);
    if (!at.modelled && effect != register_effect::follow_operands &&
        effect != register_effect::read_system && effect != register_effect::write_system &&
        !tells_general_defs(at) && !memory_access_of(f.code, at))
        return stop(f, unfollowed_reason::unknown_effects);
    if (at.relocated == word_relocation::fits) {
        form_address(f, at);
        return true;
    }
    if ((at.may_load || at.may_store || !at.modelled) && !is_prefetch(at)) {
        if (access_memory(f, at, effect))
            return true;
    }
    compute(f, at, effect);
    return true;
}

} // namespace vorna::workbench::flow
