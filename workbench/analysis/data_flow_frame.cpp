#include "workbench/analysis/data_flow_frame.hpp"

#include <algorithm>
#include <tuple>
#include <utility>

namespace vorna::workbench::flow {

namespace {

bool lies_before(const frame_cell& a, const frame_cell& b)
{
    return std::tie(a.range.base, a.range.scale, a.range.offset) <
           std::tie(b.range.base, b.range.scale, b.range.offset);
}

bool same_range(const frame_range& a, const frame_range& b)
{
    return a.base == b.base && a.offset == b.offset && a.scale == b.scale && a.size == b.size &&
           a.size_scale == b.size_scale;
}

// Whether the distance of two ranges does not depend on the vector length.
bool is_plain(const frame_range& a, const frame_range& b)
{
    return a.base == b.base && a.scale == b.scale && a.size_scale == 0 && b.size_scale == 0;
}

bool may_overlap(const aligned_bases& bases, const frame_range& a, const frame_range& b)
{
    if (is_plain(a, b))
        return a.offset < b.offset + b.size && b.offset < a.offset + a.size;
    const bool same = a.base == b.base;
    const base_range base_a = range_of_base(bases, a.base);
    const base_range base_b = range_of_base(bases, b.base);
    return for_some_length([&](int64_t eighth) {
        const int64_t low_a = a.offset + (a.scale + base_a.scale) * eighth + (same ? 0 : base_a.low);
        const int64_t high_a =
            a.offset + (a.scale + a.size_scale + base_a.scale) * eighth + a.size + (same ? 0 : base_a.high);
        const int64_t low_b = b.offset + (b.scale + base_b.scale) * eighth + (same ? 0 : base_b.low);
        const int64_t high_b =
            b.offset + (b.scale + b.size_scale + base_b.scale) * eighth + b.size + (same ? 0 : base_b.high);
        return low_a < high_b && low_b < high_a;
    });
}

// Whether cells have every byte of the range.
bool is_covered(const aligned_bases& bases, const frame_range& range, const frame_cells& cells)
{
    if (range.size_scale != 0 || range.size > 64) {
        return std::any_of(cells.begin(), cells.end(),
                           [&](const frame_cell& cell) { return same_range(cell.range, range); });
    }
    for (int64_t byte = 0; byte < range.size; ++byte) {
        const frame_range one{range.offset + byte, range.scale, 1, 0, range.base};
        const bool has = std::any_of(cells.begin(), cells.end(), [&](const frame_cell& cell) {
            return cell.held.what != absent && may_overlap(bases, cell.range, one);
        });
        if (!has)
            return false;
    }
    return true;
}

void insert_cell(frame_cells& cells, const frame_cell& cell)
{
    cells.insert(std::upper_bound(cells.begin(), cells.end(), cell, lies_before), cell);
}

// What is left of a cell that a store cut.
void keep_piece(bool all_given, frame_cells& cells, const frame_cell& cell, int64_t begin, int64_t end)
{
    if (begin >= end)
        return;
    frame_cell piece = cell;
    piece.range.offset = begin;
    piece.range.size = end - begin;
    piece.held = make_value(cell.held.what == absent ? absent : computed);
    const uint8_t missing = missing_of(cell.held, all_given);
    piece.held.missing =
        missing == 0xff ? uint8_t{0xff} : static_cast<uint8_t>(missing >> (begin - cell.range.offset));
    piece.held.certain = cell.held.certain;
    insert_cell(cells, piece);
}

// A cell that the frame on another way does not have as such. Returns whether it changed.
bool weaken(const aligned_bases& bases, frame_cell& cell, const frame_cells& others, bool unknown_stores)
{
    value weak = make_value(absent);
    if (is_covered(bases, cell.range, others)) {
        weak.what = cell.held.what == unknown || cell.held.what == absent ? cell.held.what
                                                                          : static_cast<uint8_t>(computed);
    } else if (unknown_stores) {
        weak.what = static_cast<uint8_t>(cell.held.what == absent ? absent : unknown);
    }
    weak.frame = may_be_frame_address(cell.held);
    for (const frame_cell& other : others)
        weak.frame =
            weak.frame || (may_be_frame_address(other.held) && may_overlap(bases, other.range, cell.range));
    weak.first = cell.held.first;
    weak.last = cell.held.last;
    const bool changed = !weak.same_as(cell.held) || weak.frame != cell.held.frame;
    if (changed)
        cell.held = weak;
    return changed;
}

bool join_cells(const aligned_bases& bases, bool all_given, stack_frame& to, const stack_frame& from)
{
    static const frame_cells none;
    const frame_cells& old = to.cells ? *to.cells : none;
    const frame_cells& other = from.cells ? *from.cells : none;
    frame_cells joined = old;
    bool changed = false;
    frame_cells more; // of the other frame, that are not cells here
    std::vector<bool> met(joined.size());
    for (const frame_cell& cell : other) {
        const auto at = std::lower_bound(joined.begin(), joined.end(), cell, lies_before);
        if (at != joined.end() && same_range(at->range, cell.range)) {
            met[static_cast<size_t>(at - joined.begin())] = true;
            changed = join_value(at->held, cell.held, part_count, all_given) || changed;
        } else {
            more.push_back(cell);
        }
    }
    for (size_t i = 0; i < joined.size(); ++i) {
        if (!met[i])
            changed = weaken(bases, joined[i], other, from.unknown_stores) || changed;
    }
    for (frame_cell& cell : more) {
        const bool overlaps = std::any_of(old.begin(), old.end(), [&](const frame_cell& here) {
            return may_overlap(bases, here.range, cell.range);
        });
        if (overlaps)
            continue; // the cells here stand for it
        weaken(bases, cell, old, to.unknown_stores);
        joined.insert(std::lower_bound(joined.begin(), joined.end(), cell, lies_before), cell);
        changed = true;
    }
    if (changed)
        to.cells = std::make_shared<const frame_cells>(std::move(joined));
    return changed;
}

} // namespace

base_range range_of_base(const aligned_bases& bases, uint8_t base)
{
    if (base == stack_pointer)
        return {0, 0, 0};
    const aligned_sp& from = bases[base - aligned_base];
    return {from.offset - from.alignment + 1, from.offset, from.scale};
}

bool is_own(const aligned_bases& bases, const frame_range& range)
{
    const base_range base = range_of_base(bases, range.base);
    return !for_some_length([&](int64_t eighth) {
        return base.high + range.offset + range.size +
                   (base.scale + range.scale + range.size_scale) * eighth >
               0;
    });
}

store_result store_cell(const aligned_bases& bases, bool all_given, stack_frame& frame,
                        const frame_cell& stored)
{
    static const frame_cells none;
    const frame_cells& cells = frame.cells ? *frame.cells : none;
    const frame_range& range = stored.range;
    store_result result = store_result::stored;
    frame_cells kept;
    kept.reserve(cells.size() + 2);
    for (const frame_cell& cell : cells) {
        if (!may_overlap(bases, cell.range, range)) {
            kept.push_back(cell);
        } else if (is_plain(cell.range, range)) {
            keep_piece(all_given, kept, cell, cell.range.offset, range.offset);
            keep_piece(all_given, kept, cell, range.offset + range.size, cell.range.offset + cell.range.size);
        } else if (!same_range(cell.range, range)) {
            // Overwrites it, or part of it, for some vector length or alignment.
            kept.push_back(cell);
            const bool sure = cell.range.base == range.base;
            kept.back().held = make_value(sure ? computed : unknown);
            if (!sure)
                result = store_result::base_unclear;
        }
    }
    if (kept.size() < most_cells)
        insert_cell(kept, stored);
    else
        result = store_result::full;
    frame.cells = std::make_shared<const frame_cells>(std::move(kept));
    return result;
}

const frame_cell* find_cell(const stack_frame& frame, const frame_range& range)
{
    if (!frame.cells)
        return nullptr;
    const frame_cells& cells = *frame.cells;
    const auto at = std::lower_bound(cells.begin(), cells.end(), frame_cell{range, {}}, lies_before);
    return at != cells.end() && same_range(at->range, range) ? &*at : nullptr;
}

loaded_bytes load_bytes(const aligned_bases& bases, bool all_given, const frame_cells& cells,
                        const frame_range& range)
{
    loaded_bytes loaded;
    value& held = loaded.held;
    const auto cell_at = [&](const frame_range& place) {
        const auto found = std::find_if(cells.begin(), cells.end(), [&](const frame_cell& cell) {
            return may_overlap(bases, cell.range, place);
        });
        return found == cells.end() ? nullptr : &*found;
    };
    if (range.size_scale != 0 || range.size > 64) {
        loaded.some = loaded.all = cell_at(range) != nullptr;
        return loaded;
    }
    for (int64_t byte = 0; byte < range.size; ++byte) {
        const frame_cell* const cell = cell_at({range.offset + byte, range.scale, 1, 0, range.base});
        if (cell == nullptr || cell->held.what == absent) {
            loaded.all = false;
            loaded.sometimes = loaded.sometimes || cell != nullptr;
            continue;
        }
        loaded.some = true;
        held.derived = held.derived || is_saved_value(cell->held) || cell->held.derived;
        held.frame = held.frame || may_be_frame_address(cell->held);
        uint8_t missing = is_saved_value(cell->held) ? 0 : missing_of(cell->held, all_given);
        if (missing != 0xff) {
            const int64_t within = range.offset + byte - cell->range.offset;
            missing = static_cast<uint8_t>(within >= 0 && within < 8 ? missing >> within & 1 : 0);
        }
        if (missing != 0 && byte < 8) {
            held.missing |= static_cast<uint8_t>(1U << byte);
            held.certain = held.certain && cell->held.certain;
        }
        if (cell->held.what == unknown)
            held.what = unknown;
    }
    if (range.size < 8 && held.missing == (1U << range.size) - 1)
        held.missing = 0xff;
    return loaded;
}

bool holds_saved_values(const stack_frame& frame)
{
    return frame.cells && std::any_of(frame.cells->begin(), frame.cells->end(), [](const frame_cell& c) {
               return is_initial(c.held) || c.held.what == link_signed || c.held.what == link_signed_b;
           });
}

void release_cells(stack_frame& frame, const value& old_sp, const value& new_sp)
{
    if (!frame.cells || new_sp.what != stack_pointer || old_sp.what != stack_pointer ||
        new_sp.scale != old_sp.scale || new_sp.offset <= old_sp.offset)
        return;
    const auto is_released = [&](const frame_cell& cell) {
        return cell.range.base == stack_pointer && cell.range.scale == new_sp.scale && !cell.held.stale &&
               is_saved_value(cell.held) && cell.range.offset < new_sp.offset;
    };
    if (std::none_of(frame.cells->begin(), frame.cells->end(), is_released))
        return;
    frame_cells cells = *frame.cells;
    for (frame_cell& cell : cells)
        cell.held.stale = cell.held.stale || is_released(cell);
    frame.cells = std::make_shared<const frame_cells>(std::move(cells));
}

void drop_cells_below(stack_frame& frame, const value& sp)
{
    if (!frame.cells || sp.what != stack_pointer || sp.scale != 0)
        return;
    const auto is_below = [&](const frame_cell& cell) {
        return cell.range.base == stack_pointer && cell.range.scale == 0 && cell.range.size_scale == 0 &&
               cell.range.offset + cell.range.size <= sp.offset;
    };
    if (std::none_of(frame.cells->begin(), frame.cells->end(), is_below))
        return;
    frame_cells kept = *frame.cells;
    std::erase_if(kept, is_below);
    frame.cells = std::make_shared<const frame_cells>(std::move(kept));
}

bool join_frame(const aligned_bases& bases, bool all_given, stack_frame& to, const stack_frame& from)
{
    bool changed = (from.escaped && !to.escaped) || (from.unknown_stores && !to.unknown_stores);
    to.escaped = to.escaped || from.escaped;
    to.unknown_stores = to.unknown_stores || from.unknown_stores;
    if (to.cells != from.cells)
        changed = join_cells(bases, all_given, to, from) || changed;
    return changed;
}

} // namespace vorna::workbench::flow
