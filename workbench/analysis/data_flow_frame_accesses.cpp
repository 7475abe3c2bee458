// Loads from and stores to memory: what they do to the own frame, if they are known to reach it, and what
// they may do to it otherwise.

#include "workbench/analysis/data_flow_transfer.hpp"

#include <algorithm>

namespace vorna::workbench::flow {

namespace {

// A load from the caller's frame.
void note_argument(function_context& f, const frame_range& range)
{
    if (f.result != nullptr && range.base == stack_pointer && range.offset >= 0)
        f.result->reads_stack_arguments = true;
}

} // namespace

void lose_frame(function_context& f, unfollowed_reason reason)
{
    if (holds_saved_values(f.state.frame))
        note(f, reason);
    f.state.frame.unknown_stores = true;
}

void store(function_context& f, const frame_range& range, const value& held)
{
    frame_cell made{range, held};
    if (f.state.parts[stack_pointer].what == range.base)
        made.held.last = static_cast<uint32_t>(f.index);
    switch (store_cell(f.aligned, f.all_given, f.state.frame, made)) {
    case store_result::stored:
        break;
    case store_result::base_unclear:
        note(f, unfollowed_reason::frame_store);
        break;
    case store_result::full:
        lose_frame(f, unfollowed_reason::too_large);
        break;
    }
}

void report_load(function_context& f, const frame_range& range, bool certain, bool whole, value& loaded)
{
    if (!f.report_loads) {
        loaded.missing = 0xff;
        loaded.certain = certain;
        ++f.absent_loads;
        return;
    }
    if (flow_fact* const fact = add_fact(f, flow_event::loads_unset)) {
        fact->certain = certain && !f.kernel.map.any_entry;
        fact->whole = whole;
        fact->offset = range.offset;
        fact->size = range.size_scale == 0 ? range.size : 0;
    }
}

value load(function_context& f, const frame_range& range)
{
    value loaded = make_value(computed);
    if (!f.state.frame.cells || f.state.frame.cells->empty()) {
        note_argument(f, range);
        if (is_own(f.aligned, range) && !f.state.frame.unknown_stores)
            report_load(f, range, true, true, loaded);
        loaded.what = f.state.frame.unknown_stores ? unknown : computed;
        loaded.frame = f.state.frame.escaped;
        return loaded;
    }
    if (const frame_cell* const cell = find_cell(f.state.frame, range)) {
        loaded = cell->held;
        if (loaded.stale && is_frame_address(f.state.parts[stack_pointer]) &&
            range.offset >= f.state.parts[stack_pointer].offset) // otherwise this is reported already
            add_fact(f, flow_event::loads_below_sp);
        loaded.stale = false;
        loaded.mixed = false;
        if (loaded.what == constant && f.state.frame.unknown_stores)
            loaded = make_value(computed); // not certainly that constant
        if (loaded.what == absent) {
            loaded.what = f.state.frame.unknown_stores ? unknown : computed;
            loaded.missing = 0;
            if (is_own(f.aligned, range) && !f.state.frame.unknown_stores)
                report_load(f, range, false, true, loaded);
        }
        return loaded;
    }
    const loaded_bytes bytes = load_bytes(f.aligned, f.all_given, *f.state.frame.cells, range);
    loaded = bytes.held;
    if (bytes.all)
        return loaded;
    note_argument(f, range);
    if (f.state.frame.unknown_stores)
        loaded.what = unknown;
    else if (is_own(f.aligned, range))
        report_load(f, range, !bytes.some && !bytes.sometimes, !bytes.some, loaded);
    return loaded;
}

std::optional<frame_range> range_at(const value& address, int64_t offset, int64_t scale)
{
    if (!is_frame_address(address))
        return std::nullopt;
    return frame_range{address.offset + offset, address.scale + scale, 0, 0, address.what};
}

void check_sp_alignment(function_context& f, register_id base_register, flow_event event)
{
    if (base_register != stack_pointer)
        return;
    const value& sp = f.state.parts[stack_pointer];
    if (is_frame_address(sp) && (sp.offset % 16 != 0 || sp.scale % 8 != 0))
        add_fact(f, event);
}

void store_elsewhere(function_context& f, const value& address)
{
    if (may_be_frame_address(address))
        lose_frame(f, unfollowed_reason::frame_store);
    else if (f.state.frame.escaped)
        lose_frame(f, unfollowed_reason::escaped_store);
}

value loaded_elsewhere(const function_context& f, const value& address)
{
    const bool frame = may_be_frame_address(address) || f.state.frame.escaped;
    value made = make_value(
        (frame && holds_saved_values(f.state.frame)) || f.state.saved_elsewhere ? unknown : computed);
    made.frame = frame;
    return made;
}

void check_internal_address(function_context& f, register_part part)
{
    const value& v = f.state.parts[part];
    if (v.what == kernel_address && f.kernel.options.effect_of &&
        f.kernel.options.effect_of(static_cast<size_t>(v.offset)) != nullptr)
        note(f, unfollowed_reason::callee);
}

void use_stored(function_context& f, register_part part, bool always_warning)
{
    check_internal_address(f, part);
    const value& v = f.state.parts[part];
    if (is_initial(v) && v.offset == 0 && v.scale == 0 &&
        (is_saved_part(v.what) || v.what == general_register(18)) && !f.all_given) {
        f.state.saved_elsewhere = true;
        if (v.what != general_register(29) && v.what != link_register) {
            if (flow_fact* const fact = add_fact(f, flow_event::exports_saved, v.what))
                fact->certain = false;
        }
        f.reads.set(v.what);
        return;
    }
    use(f, part, 0xff, always_warning);
}

void check_below_sp(function_context& f, const frame_range& range, const value& sp, flow_event event)
{
    if (f.result == nullptr || !is_frame_address(sp))
        return;
    const base_range at = range_of_base(f.aligned, range.base);
    const base_range limit = range_of_base(f.aligned, sp.what);
    const bool same = range.base == sp.what;
    const bool below = for_some_length([&](int64_t eighth) {
        return (same ? 0 : at.high - limit.low) + range.offset - sp.offset +
                   (at.scale - limit.scale + range.scale - sp.scale) * eighth <
               0;
    });
    if (below) {
        flow_fact* const fact = add_fact(f, event);
        fact->offset = range.offset;
        if (f.result->stack && range.base == stack_pointer && range.scale == 0)
            f.result->stack = std::max(*f.result->stack, -range.offset);
    }
}

void count_spills(function_context& f, bool load, bool store)
{
    if (f.result == nullptr)
        return;
    f.result->spill_loads += load ? 1 : 0;
    f.result->spill_stores += store ? 1 : 0;
}

} // namespace vorna::workbench::flow
