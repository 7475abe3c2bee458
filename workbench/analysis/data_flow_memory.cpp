// The transfer function of loads, stores, atomics and the like: which registers they transfer, and which
// bytes of memory.

#include "workbench/analysis/data_flow_transfer.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace vorna::workbench::flow {

namespace {

void transfers_of(const memory_access& access, operand_range operands,
                  std::vector<transferred_register>& made)
{
    made.clear();
    for (size_t o = access.status_operands; o < operands.size() && made.size() < access.registers; ++o) {
        if (!operands[o].is_register)
            break;
        for (size_t i = 0; i < operands[o].count && made.size() < access.registers; ++i)
            made.push_back({operands[o].registers[i], access.bytes / std::max<int64_t>(access.registers, 1)});
    }
}

// Records that a callee-saved register, or X30, is saved. `as` says by which of its views.
void note_save(function_context& f, const value& v, const frame_range& range, register_part as)
{
    const bool is_link = v.what == link_signed || v.what == link_signed_b;
    if ((!is_initial(v) || v.offset != 0 || !is_saved_part(v.what)) && !is_link)
        return;
    if (flow_fact* const fact = add_fact(f, flow_event::saves, is_link ? link_register : v.what)) {
        if (fact->part >= 32 && as >= rest_of_q(0))
            fact->part = static_cast<register_part>(fact->part - low_half(0) +
                                                    (as >= rest_of_z(0) ? rest_of_z(0) : rest_of_q(0)));
        fact->offset = range.offset;
    }
}

// The value as a cell of fewer than 8 bytes.
value narrowed(const function_context& f, const value& v, int64_t bytes)
{
    value made = make_value(computed);
    made.frame = may_be_frame_address(v);
    made.derived = is_saved_value(v) || v.derived;
    const auto kept = static_cast<uint8_t>((1U << bytes) - 1);
    made.missing = missing_of(f, v) & kept;
    if (made.missing == kept)
        made.missing = 0xff;
    made.certain = is_initial(v) || v.certain;
    return made;
}

void store_register(function_context& f, const transferred_register& t, const frame_range& range)
{
    if (!is_vector(t.number)) {
        const value v = t.number == zero_register ? make_value(constant) : f.state.parts[t.number];
        if (t.bytes == 8) {
            note_save(f, v, range, t.number);
            store(f, range, v);
        } else {
            store(f, range, narrowed(f, v, t.bytes));
        }
        return;
    }
    const unsigned v = t.number - vector_register(0);
    const value low = f.state.parts[low_half(v)];
    if (t.bytes < 8) {
        store(f, range, narrowed(f, low, t.bytes));
        return;
    }
    frame_range half = range;
    half.size = 8;
    note_save(f, low, half, t.bytes == 8 ? low_half(v) : rest_of_q(v));
    store(f, half, low);
    if (t.bytes == 16) {
        half.offset += 8;
        store(f, half, f.state.parts[rest_of_q(v)]);
    }
}

// A register that is stored outside the own frame, or not as it is.
void use_transferred(function_context& f, const transferred_register& t, const memory_access& access,
                     operand_range operands, bool one_lane)
{
    if (t.number >= register_count)
        return;
    if (!is_vector(t.number)) {
        use_stored(f, t.number, false);
        return;
    }
    const unsigned v = t.number - vector_register(0);
    if (one_lane) {
        for (const operand& o : operands) {
            if (o.is_register)
                continue;
            const auto first = static_cast<unsigned>(o.immediate) * access.element_bytes;
            use(f, first < 8 ? low_half(v) : rest_of_q(v),
                static_cast<uint8_t>(((1U << access.element_bytes) - 1) << first % 8));
            return;
        }
    }
    const value& low = f.state.parts[low_half(v)];
    if (t.bytes < 8)
        use(f, low_half(v), static_cast<uint8_t>((1U << t.bytes) - 1));
    else if (t.bytes == 8 || (is_initial(low) && is_saved_part(low.what) && !f.all_given))
        use_stored(f, low_half(v), false);
    else
        use_parts_of(f, v, 2, false);
}

// What an atomic, an exclusive or a load of a lane uses, apart from the address.
void use_some(function_context& f, const instruction& at, const memory_access& access, bool lane)
{
    for (const operand& o : operands_of(f.code, at)) {
        if (o.defined || !o.is_register)
            continue;
        for (size_t i = 0; i < o.count; ++i) {
            if (o.registers[i] == access.base || o.registers[i] == access.index ||
                (lane && is_vector(o.registers[i])))
                continue;
            use_register(f, o.registers[i], o.low_half, o.scalable);
        }
    }
}

// ST1 of a lane, ST2 to ST4.
void store_elements(function_context& f, const memory_access& access, operand_range operands,
                    const frame_range& place, bool one_lane)
{
    if (one_lane && access.registers == 1 && access.element_bytes == 8) {
        const unsigned v = f.transferred[0].number - vector_register(0);
        const auto lane =
            std::find_if(operands.begin(), operands.end(), [](const operand& o) { return !o.is_register; });
        const register_part part = lane->immediate == 0 ? low_half(v) : rest_of_q(v);
        note_save(f, f.state.parts[part], place, part);
        store(f, place, f.state.parts[part]);
        return;
    }
    bool saves_some = false;
    for (const transferred_register& t : f.transferred) {
        saves_some = saves_some || (is_vector(t.number) &&
                                    is_saved_value(f.state.parts[low_half(t.number - vector_register(0))]));
    }
    f.state.saved_elsewhere = f.state.saved_elsewhere || saves_some;
    for (const transferred_register& t : f.transferred) {
        if (!saves_some)
            use_transferred(f, t, access, operands, one_lane);
    }
    store(f, place, make_value(saves_some ? unknown : computed));
}

void load_registers(function_context& f, const memory_access& access, const std::optional<frame_range>& place,
                    const value& address, bool in_order)
{
    const std::vector<transferred_register> transfers = f.transferred;
    // Of a pair, only one register may have been stored: using the other one is the mistake.
    f.report_loads = transfers.size() < 2;
    f.absent_loads = 0;
    unsigned pieces = 0;
    const value zero = make_value(constant);
    frame_range range = place.value_or(frame_range());
    std::vector<std::array<value, 2>>& loaded = f.loaded;
    loaded.clear();
    for (const transferred_register& t : transfers) {
        std::array<value, 2> values{zero, zero};
        for (int64_t done = 0; done < t.bytes; done += 8) {
            value& v = values[static_cast<size_t>(done / 8)];
            if (!place) {
                v = loaded_elsewhere(f, address);
                continue;
            }
            frame_range piece = range;
            piece.offset += done;
            piece.size = std::min<int64_t>(8, t.bytes - done);
            v = load(f, piece);
            pieces += f.report_loads ? 0 : 1;
            if (!in_order && v.what != unknown && !f.state.saved_elsewhere) { // other elements
                const bool frame = may_be_frame_address(v);
                v = make_value(computed);
                v.frame = frame;
            }
        }
        for (value& v : values)
            v.from_frame = place.has_value();
        loaded.push_back(values);
        range.offset += t.bytes;
    }
    f.report_loads = true;
    if (f.absent_loads == pieces && pieces != 0) { // nothing of it was stored
        value whole;
        report_load(f, *place, true, true, whole);
        for (std::array<value, 2>& values : loaded) {
            for (value& v : values)
                v.missing = 0;
        }
    }
    for (size_t i = 0; i < transfers.size(); ++i) {
        const transferred_register& t = transfers[i];
        if (t.number >= register_count)
            continue;
        if (is_vector(t.number)) {
            const unsigned v = t.number - vector_register(0);
            const bool whole = t.bytes == 16 || (access.structure && !in_order);
            set_vector(f, v, loaded[i][0], whole && t.bytes != 16 ? make_value(computed) : loaded[i][1],
                       zero);
        } else {
            set_general(f, t.number, loaded[i][0]);
        }
    }
}

void transfer_registers(function_context& f, const instruction& at, const memory_access& access,
                        register_effect effect, operand_range operands,
                        const std::optional<frame_range>& place, const value& address)
{
    const bool lane = effect == register_effect::set_lane;
    const bool simple = !access.atomic && !access.exclusive && !lane && !(access.load && access.store);
    // LD1 and ST1 of whole registers, but not LD2 or LD1R.
    const std::string_view name = access.structure ? opcode_name(at.opcode) : std::string_view();
    const bool in_order = !access.structure || ((name.starts_with("LD1") || name.starts_with("ST1")) &&
                                                name[3] != 'i' && name[3] != 'R');
    std::vector<transferred_register>& transfers = f.transferred;
    if (simple)
        transfers_of(access, operands, transfers);
    if (simple && access.store) {
        if (!place) {
            bool one_lane = access.structure && name[3] == 'i';
            for (const transferred_register& t : transfers)
                use_transferred(f, t, access, operands, one_lane);
            for (const transferred_register& t : transfers) {
                if (is_general(t.number) && may_be_frame_address(f.state.parts[t.number]))
                    f.state.frame.escaped = true;
            }
            store_elsewhere(f, address);
            return;
        }
        if (in_order) {
            frame_range range = *place;
            for (const transferred_register& t : transfers) {
                range.size = t.bytes;
                store_register(f, t, range);
                range.offset += t.bytes;
            }
        } else {
            store_elements(f, access, operands, *place, name[3] == 'i');
        }
        return;
    }
    if (simple && access.load) {
        load_registers(f, access, place, address, in_order);
        return;
    }
    // Atomics, exclusives, one lane.
    value loaded_lane = loaded_elsewhere(f, address);
    use_some(f, at, access, lane);
    if (access.store) {
        if (place)
            store(f, *place, make_value(computed));
        else
            store_elsewhere(f, address);
        for (const operand& o : operands) {
            for (size_t i = 0; !o.defined && i < o.count; ++i) {
                if (is_general(o.registers[i]) && o.registers[i] != access.base &&
                    may_be_frame_address(f.state.parts[o.registers[i]]))
                    f.state.frame.escaped = true;
            }
        }
    }
    if (access.load && place) {
        frame_range piece = *place;
        for (int64_t done = 0; done < place->size; done += 8) {
            piece.offset = place->offset + done;
            piece.size = std::min<int64_t>(8, place->size - done);
            loaded_lane = load(f, piece);
        }
    }
    if (lane) {
        set_lane(f, at, operands, access.registers == 1 ? loaded_lane : make_value(computed));
        return;
    }
    const value elsewhere = loaded_elsewhere(f, address);
    for (const operand& o : operands) {
        if (!o.defined)
            continue;
        for (size_t i = 0; i < o.count; ++i) {
            if (o.registers[i] != access.base)
                define(f, o.registers[i], o.low_half, o.scalable, elsewhere.frame);
        }
    }
}

void access_with(function_context& f, const instruction& at, const memory_access& access,
                 register_effect effect)
{
    const operand_range operands = operands_of(f.code, at);
    const bool literal = access.base == zero_register;
    const value address = literal ? make_value(constant) : get(f, access.base);
    if (!literal) {
        if (access.base != stack_pointer)
            use(f, access.base);
        check_sp_alignment(f, access.base, flow_event::unaligned_sp);
    }
    std::optional<frame_range> place;
    if (access.addressing == addressing_mode::register_index) {
        use_register(f, access.index, false, false);
        const value index = get(f, access.index);
        if (may_be_frame_address(index)) {
            transfer_registers(f, at, access, effect, operands, std::nullopt, index);
            return;
        }
    } else if (!literal) {
        const bool after = access.addressing == addressing_mode::post_index ||
                           access.addressing == addressing_mode::post_register;
        place = range_at(address, after ? 0 : access.offset);
        if (access.addressing == addressing_mode::post_register)
            use_register(f, access.index, false, false);
    }
    std::optional<value> written_back;
    if (access.addressing == addressing_mode::post_register) {
        value made = make_value(address.what == unknown || access.base == stack_pointer ? unknown : computed);
        made.frame = may_be_frame_address(address);
        written_back = made;
    } else if (access.moves_base()) {
        written_back = added(address, access.offset, 0);
    }
    if (place) {
        place->size = access.bytes;
        const value& sp =
            access.base == stack_pointer && written_back && access.addressing == addressing_mode::pre_index
                ? *written_back
                : f.state.parts[stack_pointer];
        check_below_sp(f, *place, sp,
                       access.store ? flow_event::stores_below_sp : flow_event::loads_below_sp);
        count_spills(f, access.load, access.store);
    }
    transfer_registers(f, at, access, effect, operands, place, address);
    if (written_back) {
        set_general(f, access.base, *written_back);
        if (access.base != stack_pointer)
            keep_missing(f, access.base, address);
    }
}

// Saves that matter to kernels with SVE arguments only.
void save_scalable(function_context& f, register_part part, const frame_range& range)
{
    const value& v = f.state.parts[part];
    if (v.what != part || !is_saved_with_sve(part))
        return;
    if (flow_fact* const fact = add_fact(f, flow_event::saves, part))
        fact->offset = range.offset;
}

void access_scalable(function_context& f, const instruction& at, const scalable_access& access)
{
    const operand_range operands = operands_of(f.code, at);
    const value address = access.base < register_count ? f.state.parts[access.base] : make_value(computed);
    check_sp_alignment(f, access.base, flow_event::unaligned_sp);
    std::optional<frame_range> place;
    if (access.whole)
        place = range_at(address, 0, *access.count);
    if (!place) {
        const bool frame = may_be_frame_address(address);
        use_operands(f, at);
        if (access.store)
            store_elsewhere(f, address);
        const value elsewhere = loaded_elsewhere(f, address);
        for (const operand& o : operands) {
            for (size_t i = 0; o.defined && i < o.count; ++i) {
                define(f, o.registers[i], o.low_half, o.scalable, frame);
                if (elsewhere.what == unknown && is_vector(o.registers[i]) && access.load) {
                    const unsigned v = o.registers[i] - vector_register(0);
                    for (const register_part part : {low_half(v), rest_of_q(v), rest_of_z(v)})
                        f.state.parts[part].what = unknown;
                }
            }
        }
        const register_set& defs = implicit_defs_of(at);
        if (defs[first_fault_register])
            set(f, first_fault_part, make_value(computed));
        return;
    }
    if (access.base != stack_pointer)
        use(f, access.base);
    count_spills(f, access.load, access.store);
    frame_range low = *place;
    if (!is_vector(access.first_register)) {
        const register_part part = part_of(access.first_register);
        low.size_scale = 1;
        if (access.store) {
            check_below_sp(f, low, f.state.parts[stack_pointer], flow_event::stores_below_sp);
            save_scalable(f, part, low);
            store(f, low, f.state.parts[part]);
        } else {
            value v = load(f, low);
            v.from_frame = true;
            set(f, part, v);
        }
        return;
    }
    const unsigned v = access.first_register - vector_register(0);
    low.size = 8;
    frame_range q = low;
    q.offset += 8;
    frame_range z = low;
    z.offset += 16;
    z.size = -16;
    z.size_scale = 8;
    if (access.store) {
        check_below_sp(f, low, f.state.parts[stack_pointer], flow_event::stores_below_sp);
        note_save(f, f.state.parts[low_half(v)], low, rest_of_z(v));
        if (!is_saved_part(low_half(v)) || !is_initial(f.state.parts[low_half(v)]))
            save_scalable(f, rest_of_z(v), low);
        store(f, low, f.state.parts[low_half(v)]);
        store(f, q, f.state.parts[rest_of_q(v)]);
        store(f, z, f.state.parts[rest_of_z(v)]);
        return;
    }
    value parts[] = {load(f, low), load(f, q), load(f, z)};
    for (value& part : parts)
        part.from_frame = true;
    set_vector(f, v, parts[0], parts[1], parts[2]);
}

} // namespace

bool access_memory(function_context& f, const instruction& at, register_effect effect)
{
    if (const auto access = memory_access_of(f.code, at)) {
        access_with(f, at, *access, effect);
        return true;
    }
    if (const auto access = scalable_access_of(f.code, at)) {
        access_scalable(f, at, *access);
        return true;
    }
    const operand_range operands = operands_of(f.code, at);
    const bool any = std::any_of(operands.begin(), operands.end(), [](const operand& o) {
        return o.is_register && is_general(o.registers[0]) && o.count >= 1;
    });
    if (!any || effect == register_effect::read_system || effect == register_effect::write_system ||
        class_of(f.code, at) == instruction_class::other) {
        if (at.modelled || effect != register_effect::compute)
            if (!(any && effect == register_effect::follow_operands))
                return false;
    }
    // Memory tagging, copies of memory, cache maintenance: any of the registers may be an address.
    use_operands(f, at);
    value address = make_value(computed);
    for (const operand& o : operands) {
        if (o.is_register && !o.defined && is_general(o.registers[0])) {
            check_sp_alignment(f, o.registers[0], flow_event::unaligned_sp);
            address.frame = address.frame || may_be_frame_address(f.state.parts[o.registers[0]]);
        }
    }
    if (at.may_store || !at.modelled)
        store_elsewhere(f, address);
    define_operands(f, at, address.frame);
    return true;
}

} // namespace vorna::workbench::flow
