// A forward data-flow analysis over the basic blocks. The value of each register part, and of each cell of
// the own stack frame, is one of
//
//   initial    the value of a register part at entry, plus a constant and a multiple of the vector length;
//              addresses in the own frame are the initial value of SP plus such an offset
//   aligned    the same for SP rounded down to a multiple of a power of two
//   constant   a number, or a multiple of the vector length
//   computed   another value, which nothing else is known of
//   unknown    perhaps the initial value of some register
//
// and says which of its bytes nothing has set: those of registers that a kernel is not given, those that a
// call may have changed, and cells that nothing stored. Storing a register in the own frame and loading it
// again, and copying it, keep the value, so a register is restored if its value at a return is its initial
// one.
//
// Where ways join, values that differ become "computed", or "unknown" if one of them is: then the register is
// changed on at least one way. Values only lose information, a few times each, so the analysis ends.
//
// Subroutines of the kernel's own code are followed apart from their callers, as if all registers were given,
// and their effect is applied to each call. Where something cannot be followed, the way ends, and this is
// recorded.
//
// A second pass walks each block once with its final state and records what is worth reporting.

#include "workbench/analysis/data_flow.hpp"

#include "workbench/analysis/address_tracking.hpp"
#include "workbench/analysis/calling_convention.hpp"
#include "workbench/disasm/register_effect.hpp"

#include <algorithm>
#include <array>
#include <elf.h>
#include <functional>
#include <memory>
#include <queue>
#include <unordered_map>
#include <utility>

namespace vorna::workbench {

namespace {

using std::int16_t;
using std::int32_t;
using std::int64_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;
using std::uint64_t;
using std::uint8_t;

constexpr uint32_t no_index = ~uint32_t{0};
constexpr size_t most_cells = 8192;         // of a frame
constexpr unsigned most_aligned_bases = 16; // of a kernel
constexpr unsigned most_way_searches = 64;
constexpr unsigned most_local_depth = 8;

// What a value is; smaller numbers are the register part whose initial value it is.
enum base : uint8_t {
    aligned_base = 160, // and the numbers after it: SP rounded down
    constant = 200,
    computed,
    unknown,
    absent,      // of a cell: on some way nothing stored it
    link_signed, // X30 signed with key A for SP + offset
    link_signed_b,
    kernel_address, // the target of a relocation; `offset` is its number
    kernel_page,
    own_address, // in the kernel's own code
    sp_differs,  // SP has different offsets on different ways; `offset` is what was added since they joined,
                 // `last` is where
};

struct value {
    int32_t offset = 0;
    int16_t scale = 0; // multiples of an eighth of the vector length
    uint8_t what = computed;
    uint8_t missing = 0; // bytes that nothing set, on some way
    bool certain = true; // on every way
    bool frame = false;  // may be an address in the own frame
    bool mixed = false;  // joined from the initial value of the part and another one
    bool from_frame = false;
    bool stale = false;        // of a cell: it was below SP since it was stored
    bool derived = false;      // computed from the initial value of a callee-saved register
    uint32_t first = no_index; // the instruction since which the part does not have its initial value
    uint32_t last = no_index;  // the last that set it

    [[nodiscard]] bool same_as(const value& other) const
    {
        return what == other.what && offset == other.offset && scale == other.scale;
    }
};

value make_value(uint8_t what, int64_t offset = 0, int64_t scale = 0)
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

bool is_initial(const value& v)
{
    return v.what < part_count;
}

bool is_frame_address(const value& v)
{
    return v.what == stack_pointer || (v.what >= aligned_base && v.what < constant);
}

bool may_be_frame_address(const value& v)
{
    return v.frame || is_frame_address(v) || v.what == sp_differs;
}

// Bytes of the frame: from base + offset + scale * VL / 8, size + size_scale * VL / 8 of them.
struct frame_range {
    int64_t offset = 0;
    int64_t scale = 0;
    int64_t size = 0;
    int64_t size_scale = 0;
    uint8_t base = stack_pointer;
};

// An eighth of each possible vector length.
template <typename function>
bool for_some_length(function holds)
{
    for (int64_t eighth = 2; eighth <= 32; eighth += 2) {
        if (holds(eighth))
            return true;
    }
    return false;
}

struct frame_cell {
    frame_range range;
    value held;
};

bool lies_before(const frame_cell& a, const frame_cell& b)
{
    return std::tie(a.range.base, a.range.scale, a.range.offset) <
           std::tie(b.range.base, b.range.scale, b.range.offset);
}

using frame_cells = std::vector<frame_cell>; // sorted

struct flow_state {
    std::array<value, part_count> parts;
    std::shared_ptr<const frame_cells> cells;
    bool escaped = false;         // the address of the frame may be known elsewhere
    bool unknown_stores = false;  // something may have stored in the frame, at an unknown address
    bool saved_elsewhere = false; // initial values of callee-saved registers are in other memory
};

struct flow_block : code_block {
    std::unique_ptr<flow_state> in;
    uint32_t order = no_index; // in reverse postorder
};

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

bool is_vector(register_id r)
{
    return r >= vector_register(0) && r < predicate_register(0);
}

// What a kernel is given. Whether it may use the upper parts of V0 to V7, and P0 to P3, is for its callers to
// know: they are given if they are arguments.
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

const part_set& given_parts()
{
    static const part_set given = make_given_parts();
    return given;
}

const call_effect& standard_effect()
{
    static const call_effect effect = make_standard_effect();
    return effect;
}

// Callee-saved by the base standard: X19 to X29, the low halves of V8 to V15. And X30, which a kernel saves
// too.
bool is_saved_part(register_part part)
{
    return (part >= general_register(19) && part <= link_register) ||
           (part >= low_half(8) && part <= low_half(15));
}

// Registers that a call of a kernel with SVE arguments preserves, but not one of another.
bool is_saved_with_sve(register_part part)
{
    const auto within = [&](register_part first, register_part last) {
        return part >= first && part <= last;
    };
    return within(low_half(16), low_half(23)) || within(rest_of_q(8), rest_of_q(23)) ||
           within(rest_of_z(8), rest_of_z(23)) || within(predicate_part(4), predicate_part(15));
}

// The caller's value of a callee-saved register, perhaps plus a constant.
bool is_saved_value(const value& v)
{
    return is_initial(v) && is_saved_part(v.what);
}

struct aligned_sp {
    int64_t offset; // of the value that was rounded down, from SP at entry
    int64_t scale;
    int64_t alignment;
};

class follower {
public:
    follower(const decoded_kernel& code, const code_map& map, const flow_options& options)
        : code_(code), map_(map), options_(options), any_entry_(map.any_entry)
    {
        blocks_ = find_blocks(code, map, most_followed_blocks);
        block_at_.assign(code.instructions.size(), no_index);
        for (uint32_t i = 0; i < blocks_.size(); ++i)
            block_at_[blocks_[i].begin] = i;
    }

    kernel_flow run()
    {
        kernel_flow result;
        if (blocks_.empty() || block_at_[0] == no_index) {
            if (!code_.instructions.empty())
                give_up(result, 0, unfollowed_reason::too_large);
            return result;
        }
        result = follow(0, options_.all_given, 0);
        result.facts.insert(result.facts.end(), local_facts_.begin(), local_facts_.end());
        result.exits.insert(result.exits.end(), local_exits_.begin(), local_exits_.end());
        return result;
    }

private:
    static void give_up(kernel_flow& result, size_t index, unfollowed_reason reason)
    {
        flow_fact fact;
        fact.event = flow_event::unfollowed;
        fact.index = index;
        fact.reason = reason;
        result.facts.push_back(fact);
        result.followed = result.effect.followed = false;
        result.stack.reset();
    }

    // One function: the kernel, or a subroutine in it.
    struct function {
        std::vector<flow_block> blocks; // in reverse postorder
        bool all_given = false;
        part_set reads; // also found before the states are final, when fewer ways have joined
        std::vector<aligned_sp> aligned;
        unsigned way_searches = 0;
        unsigned depth = 0;
    };

    kernel_flow follow(size_t entry, bool all_given, unsigned depth)
    {
        // The state of an outer function, which waits for the effect of this one.
        function outer = std::exchange(f_, function());
        kernel_flow* const outer_result = std::exchange(result_, nullptr);
        flow_state outer_state = state_;
        const size_t outer_block = block_;
        kernel_flow result;
        f_.all_given = all_given;
        f_.depth = depth;
        order_blocks(entry);
        find_states();
        if (!too_many_visits_) {
            result_ = &result;
            for (block_ = 0; block_ < f_.blocks.size(); ++block_) {
                if (f_.blocks[block_].in)
                    walk(*f_.blocks[block_].in);
            }
        } else {
            give_up(result, entry, unfollowed_reason::too_large);
        }
        finish(result);
        f_ = std::move(outer);
        result_ = outer_result;
        state_ = std::move(outer_state);
        block_ = outer_block;
        return result;
    }

    void order_blocks(size_t entry)
    {
        std::vector<uint32_t> postorder;
        std::vector<std::pair<uint32_t, size_t>> path{{block_at_[entry], 0}};
        std::vector<uint32_t> number(blocks_.size(), no_index);
        number[path[0].first] = 0;
        while (!path.empty()) {
            const uint32_t at = path.back().first;
            if (path.back().second == blocks_[at].after.size()) {
                postorder.push_back(at);
                path.pop_back();
                continue;
            }
            const uint32_t to = blocks_[at].after[path.back().second++];
            if (number[to] == no_index) {
                number[to] = 0;
                path.emplace_back(to, 0);
            }
        }
        f_.blocks.resize(postorder.size());
        for (uint32_t i = 0; i < postorder.size(); ++i)
            number[postorder[i]] = static_cast<uint32_t>(postorder.size()) - 1 - i;
        for (const uint32_t from : postorder) {
            flow_block& made = f_.blocks[number[from]];
            made.begin = blocks_[from].begin;
            made.end = blocks_[from].end;
            made.order = number[from];
            for (const uint32_t to : blocks_[from].after)
                made.after.push_back(number[to]);
        }
        for (uint32_t i = 0; i < f_.blocks.size(); ++i) {
            for (const uint32_t to : f_.blocks[i].after)
                f_.blocks[to].before.push_back(i);
        }
    }

    flow_state initial_state()
    {
        flow_state state;
        for (size_t part = 0; part < part_count; ++part)
            state.parts[part] = make_value(static_cast<uint8_t>(part));
        return state;
    }

    void find_states()
    {
        too_many_visits_ = false;
        f_.blocks[0].in = std::make_unique<flow_state>(initial_state());
        std::priority_queue<uint32_t, std::vector<uint32_t>, std::greater<>> pending;
        std::vector<bool> waits(f_.blocks.size());
        pending.push(0);
        waits[0] = true;
        size_t visits = 0;
        while (!pending.empty()) {
            const uint32_t number = pending.top();
            pending.pop();
            waits[number] = false;
            if (++visits > 64 * f_.blocks.size() + 1024) {
                too_many_visits_ = true;
                return;
            }
            block_ = number;
            if (!walk(*f_.blocks[number].in))
                continue;
            for (const uint32_t to : f_.blocks[number].after) {
                flow_block& target = f_.blocks[to];
                joined_block_ = to;
                bool changed = !target.in;
                if (changed)
                    target.in = std::make_unique<flow_state>(state_);
                else
                    changed = join(*target.in, state_);
                if (changed && !waits[to]) {
                    waits[to] = true;
                    pending.push(to);
                }
            }
        }
    }

    // Runs the instructions of the current block. Returns whether control continues after it.
    bool walk(const flow_state& in)
    {
        state_ = in;
        for (index_ = f_.blocks[block_].begin; index_ < f_.blocks[block_].end; ++index_) {
            if (!step())
                return false;
        }
        return true;
    }

    // Joining.

    // The bytes of a value that nothing set.
    [[nodiscard]] uint8_t missing_of(const value& v) const
    {
        if (is_initial(v) && v.offset == 0 && v.scale == 0 && !f_.all_given && !given_parts()[v.what])
            return 0xff;
        return v.missing;
    }

    // Returns whether `to` changed. `part` is part_count for a cell.
    bool join_value(value& to, const value& from, size_t part) const
    {
        value joined = to;
        const uint8_t missing_to = missing_of(to);
        const uint8_t missing_from = missing_of(from);
        if (!to.same_as(from)) {
            const auto unchanged = [&](const value& v) {
                return v.what == part && v.offset == 0 && v.scale == 0;
            };
            joined.mixed = to.mixed || from.mixed || unchanged(to) || unchanged(from);
            joined.frame = may_be_frame_address(to) || may_be_frame_address(from);
            if (to.what == absent || from.what == absent)
                joined.what = absent;
            else if (to.what == unknown || from.what == unknown)
                joined.what = unknown;
            else if (part == stack_pointer)
                join_sp(joined, from);
            else
                joined.what = computed;
            if (joined.what != sp_differs)
                joined.offset = joined.scale = 0;
            joined.missing = missing_to | missing_from;
            joined.certain = to.certain && from.certain && missing_to == missing_from;
        } else {
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
                             joined.certain != to.certain;
        to = joined;
        return changed;
    }

    // Different values of SP. If they are known, or come from the loop that begins here, then some of them
    // are wrong at every return to which the same is added. But two loops may undo each other's changes.
    void join_sp(value& to, const value& from) const
    {
        const auto here = static_cast<uint32_t>(f_.blocks[joined_block_].begin);
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

    bool join(flow_state& to, const flow_state& from) const
    {
        bool changed = false;
        for (size_t part = 0; part < part_count; ++part)
            changed = join_value(to.parts[part], from.parts[part], part) || changed;
        const auto join_flag = [&](bool& flag, bool other) {
            changed = changed || (other && !flag);
            flag = flag || other;
        };
        join_flag(to.escaped, from.escaped);
        join_flag(to.unknown_stores, from.unknown_stores);
        join_flag(to.saved_elsewhere, from.saved_elsewhere);
        if (to.cells != from.cells)
            changed = join_cells(to, from) || changed;
        return changed;
    }

    bool join_cells(flow_state& to, const flow_state& from) const
    {
        static const frame_cells none;
        const frame_cells& old = to.cells ? *to.cells : none;
        const frame_cells& other = from.cells ? *from.cells : none;
        frame_cells joined = old;
        bool changed = false;
        // Pieces of the other frame that are not cells here.
        frame_cells more;
        std::vector<bool> met(joined.size());
        for (const frame_cell& cell : other) {
            const auto at = std::lower_bound(joined.begin(), joined.end(), cell, lies_before);
            if (at != joined.end() && same_range(at->range, cell.range)) {
                met[static_cast<size_t>(at - joined.begin())] = true;
                changed = join_value(at->held, cell.held, part_count) || changed;
            } else {
                more.push_back(cell);
            }
        }
        for (size_t i = 0; i < joined.size(); ++i) {
            if (met[i])
                continue;
            changed = weaken(joined[i], other, from.unknown_stores) || changed;
        }
        for (frame_cell& cell : more) {
            const bool overlaps = std::any_of(old.begin(), old.end(), [&](const frame_cell& here) {
                return may_overlap(here.range, cell.range);
            });
            if (overlaps)
                continue; // the cells here stand for it
            weaken(cell, old, to.unknown_stores);
            joined.insert(std::lower_bound(joined.begin(), joined.end(), cell, lies_before), cell);
            changed = true;
        }
        if (changed)
            to.cells = std::make_shared<const frame_cells>(std::move(joined));
        return changed;
    }

    // A cell that the frame on another way does not have as such.
    bool weaken(frame_cell& cell, const frame_cells& others, bool unknown_stores) const
    {
        value weak = make_value(absent);
        if (is_covered(cell.range, others)) {
            weak.what = cell.held.what == unknown || cell.held.what == absent
                            ? cell.held.what
                            : static_cast<uint8_t>(computed);
        } else if (unknown_stores) {
            weak.what = static_cast<uint8_t>(cell.held.what == absent ? absent : unknown);
        }
        weak.frame = may_be_frame_address(cell.held);
        for (const frame_cell& other : others)
            weak.frame =
                weak.frame || (may_be_frame_address(other.held) && may_overlap(other.range, cell.range));
        weak.first = cell.held.first;
        weak.last = cell.held.last;
        const bool changed = !weak.same_as(cell.held) || weak.frame != cell.held.frame;
        if (changed)
            cell.held = weak;
        return changed;
    }

    // The frame.

    static bool same_range(const frame_range& a, const frame_range& b)
    {
        return a.base == b.base && a.offset == b.offset && a.scale == b.scale && a.size == b.size &&
               a.size_scale == b.size_scale;
    }

    // Whether the distance of two ranges does not depend on the vector length.
    static bool is_plain(const frame_range& a, const frame_range& b)
    {
        return a.base == b.base && a.scale == b.scale && a.size_scale == 0 && b.size_scale == 0;
    }

    // Where a base may be, from SP at entry.
    struct base_range {
        int64_t low, high, scale;
    };
    [[nodiscard]] base_range range_of_base(uint8_t base) const
    {
        if (base == stack_pointer)
            return {0, 0, 0};
        const aligned_sp& from = f_.aligned[base - aligned_base];
        return {from.offset - from.alignment + 1, from.offset, from.scale};
    }

    [[nodiscard]] bool may_overlap(const frame_range& a, const frame_range& b) const
    {
        if (is_plain(a, b))
            return a.offset < b.offset + b.size && b.offset < a.offset + a.size;
        const base_range base_a = range_of_base(a.base);
        const base_range base_b = range_of_base(b.base);
        return for_some_length([&](int64_t eighth) {
            const bool same = a.base == b.base;
            const int64_t low_a = a.offset + (a.scale + base_a.scale) * eighth + (same ? 0 : base_a.low);
            const int64_t high_a = a.offset + (a.scale + a.size_scale + base_a.scale) * eighth + a.size +
                                   (same ? 0 : base_a.high);
            const int64_t low_b = b.offset + (b.scale + base_b.scale) * eighth + (same ? 0 : base_b.low);
            const int64_t high_b = b.offset + (b.scale + b.size_scale + base_b.scale) * eighth + b.size +
                                   (same ? 0 : base_b.high);
            return low_a < high_b && low_b < high_a;
        });
    }

    // Whether cells have every byte of the range.
    [[nodiscard]] bool is_covered(const frame_range& range, const frame_cells& cells) const
    {
        if (range.size_scale != 0 || range.size > 64) {
            return std::any_of(cells.begin(), cells.end(),
                               [&](const frame_cell& cell) { return same_range(cell.range, range); });
        }
        for (int64_t byte = 0; byte < range.size; ++byte) {
            const frame_range one{range.offset + byte, range.scale, 1, 0, range.base};
            const bool has = std::any_of(cells.begin(), cells.end(), [&](const frame_cell& cell) {
                return cell.held.what != absent && may_overlap(cell.range, one);
            });
            if (!has)
                return false;
        }
        return true;
    }

    // Whether the range is below SP at entry, whatever the vector length.
    [[nodiscard]] bool is_own(const frame_range& range) const
    {
        const base_range base = range_of_base(range.base);
        return !for_some_length([&](int64_t eighth) {
            return base.high + range.offset + range.size +
                       (base.scale + range.scale + range.size_scale) * eighth >
                   0;
        });
    }

    void store(const frame_range& range, const value& held)
    {
        frame_cells cells = state_.cells ? *state_.cells : frame_cells();
        frame_cells kept;
        kept.reserve(cells.size() + 2);
        for (const frame_cell& cell : cells) {
            if (!may_overlap(cell.range, range)) {
                kept.push_back(cell);
                continue;
            }
            if (is_plain(cell.range, range)) {
                keep_piece(kept, cell, cell.range.offset, range.offset);
                keep_piece(kept, cell, range.offset + range.size, cell.range.offset + cell.range.size);
            } else if (!same_range(cell.range, range)) {
                // Overwrites it, or part of it, for some vector length or alignment.
                kept.push_back(cell);
                const bool sure = cell.range.base == range.base;
                kept.back().held = make_value(sure ? computed : unknown);
                if (!sure)
                    note(unfollowed_reason::frame_store);
            }
        }
        if (kept.size() < most_cells) {
            frame_cell made{range, held};
            if (state_.parts[stack_pointer].what == range.base) {
                made.held.last = static_cast<uint32_t>(index_);
            }
            kept.insert(std::upper_bound(kept.begin(), kept.end(), made, lies_before), made);
        } else {
            lose_frame(unfollowed_reason::too_large);
        }
        state_.cells = std::make_shared<const frame_cells>(std::move(kept));
    }

    void keep_piece(frame_cells& cells, const frame_cell& cell, int64_t begin, int64_t end) const
    {
        if (begin >= end)
            return;
        frame_cell piece = cell;
        piece.range.offset = begin;
        piece.range.size = end - begin;
        piece.held = make_value(cell.held.what == absent ? absent : computed);
        const uint8_t missing = missing_of(cell.held);
        piece.held.missing =
            missing == 0xff ? uint8_t{0xff} : static_cast<uint8_t>(missing >> (begin - cell.range.offset));
        piece.held.certain = cell.held.certain;
        cells.insert(std::upper_bound(cells.begin(), cells.end(), piece, lies_before), piece);
    }

    // Something may have stored in the frame, anywhere.
    void lose_frame(unfollowed_reason reason)
    {
        if (holds_saved_values())
            note(reason);
        state_.unknown_stores = true;
    }

    // Whether the frame holds what a return needs.
    [[nodiscard]] bool holds_saved_values() const
    {
        return state_.cells &&
               std::any_of(state_.cells->begin(), state_.cells->end(), [](const frame_cell& c) {
                   return is_initial(c.held) || c.held.what == link_signed || c.held.what == link_signed_b;
               });
    }

    // 8 bytes or fewer from the frame, or a scalable number.
    value load(const frame_range& range)
    {
        value loaded = make_value(computed);
        if (!state_.cells || state_.cells->empty()) {
            note_argument(range);
            if (is_own(range) && !state_.unknown_stores)
                report_load(range, true, true, loaded);
            loaded.what = state_.unknown_stores ? unknown : computed;
            loaded.frame = state_.escaped;
            return loaded;
        }
        const frame_cells& cells = *state_.cells;
        const frame_cell wanted{range, {}};
        const auto at = std::lower_bound(cells.begin(), cells.end(), wanted, lies_before);
        if (at != cells.end() && same_range(at->range, range)) {
            loaded = at->held;
            if (loaded.stale && is_frame_address(state_.parts[stack_pointer]) &&
                range.offset >= state_.parts[stack_pointer].offset) // otherwise this is reported already
                add_fact(flow_event::loads_below_sp);
            loaded.stale = false;
            loaded.mixed = false;
            if (loaded.what == absent) {
                loaded.what = state_.unknown_stores ? unknown : computed;
                loaded.missing = 0;
                if (is_own(range) && !state_.unknown_stores)
                    report_load(range, false, true, loaded);
            }
            return loaded;
        }
        bool some = false;
        bool sometimes = false; // stored on some way
        bool all = true;
        const auto overlapping = [&](const frame_range& one) {
            const auto found = std::find_if(cells.begin(), cells.end(), [&](const frame_cell& cell) {
                return may_overlap(cell.range, one);
            });
            return found == cells.end() ? nullptr : &*found;
        };
        if (range.size_scale != 0 || range.size > 64) {
            some = overlapping(range) != nullptr;
            all = some;
        } else {
            for (int64_t byte = 0; byte < range.size; ++byte) {
                const frame_cell* const cell =
                    overlapping({range.offset + byte, range.scale, 1, 0, range.base});
                if (cell == nullptr) {
                    all = false;
                    continue;
                }
                if (cell->held.what == absent) {
                    all = false;
                    sometimes = true;
                    continue;
                }
                some = true;
                loaded.derived = loaded.derived || is_saved_value(cell->held) || cell->held.derived;
                loaded.frame = loaded.frame || may_be_frame_address(cell->held);
                uint8_t missing = is_saved_value(cell->held) ? 0 : missing_of(cell->held);
                if (missing != 0xff) {
                    const int64_t within = range.offset + byte - cell->range.offset;
                    missing = static_cast<uint8_t>(within >= 0 && within < 8 ? missing >> within & 1 : 0);
                }
                if (missing != 0 && byte < 8) {
                    loaded.missing |= static_cast<uint8_t>(1U << byte);
                    loaded.certain = loaded.certain && cell->held.certain;
                }
                if (cell->held.what == unknown)
                    loaded.what = unknown;
            }
            if (range.size < 8 && loaded.missing == (1U << range.size) - 1)
                loaded.missing = 0xff;
        }
        if (!all)
            note_argument(range);
        if (!all && is_own(range) && !state_.unknown_stores)
            report_load(range, !some && !sometimes, !some, loaded);
        if (!all && state_.unknown_stores)
            loaded.what = unknown;
        return loaded;
    }

    // A load from the caller's frame.
    void note_argument(const frame_range& range)
    {
        if (result_ != nullptr && range.base == stack_pointer && range.offset >= 0)
            result_->reads_stack_arguments = true;
    }

    void report_load(const frame_range& range, bool certain, bool whole, value& loaded)
    {
        if (!report_loads_) {
            loaded.missing = 0xff;
            loaded.certain = certain;
            ++absent_loads_;
            return;
        }
        if (flow_fact* const fact = add_fact(flow_event::loads_unset)) {
            fact->certain = certain && !any_entry_;
            fact->whole = whole;
            fact->offset = range.offset;
            fact->size = range.size_scale == 0 ? range.size : 0;
        }
    }

    // Facts.

    flow_fact* add_fact(flow_event event, register_part part = 0)
    {
        if (result_ == nullptr)
            return nullptr;
        flow_fact fact;
        fact.event = event;
        fact.index = index_;
        fact.part = part;
        result_->facts.push_back(fact);
        return &result_->facts.back();
    }

    void note(unfollowed_reason reason)
    {
        if (flow_fact* const fact = add_fact(flow_event::unfollowed)) {
            fact->reason = reason;
            result_->followed = false;
        }
    }

    // The end of a way. Always returns false.
    bool stop(unfollowed_reason reason)
    {
        note(reason);
        if (result_ != nullptr)
            result_->effect.followed = false;
        return false;
    }

    // The branch by which a way begins on which a state is bad. `badness` is 0: not, 1: perhaps, 2: surely.
    std::optional<branch_way> find_way(const std::function<int(const flow_state&)>& badness)
    {
        if (++f_.way_searches > most_way_searches)
            return std::nullopt;
        kernel_flow* const result = std::exchange(result_, nullptr);
        const flow_state state = state_;
        const size_t index = index_;
        const size_t block = block_;
        std::vector<bool> seen(f_.blocks.size());
        std::vector<uint32_t> pending{static_cast<uint32_t>(block)};
        std::optional<branch_way> found;
        while (!pending.empty() && !found) {
            const uint32_t at = pending.back();
            pending.pop_back();
            for (const uint32_t from : f_.blocks[at].before) {
                if (!f_.blocks[from].in || seen[from])
                    continue;
                block_ = from;
                if (!walk(*f_.blocks[from].in))
                    continue;
                const int bad = badness(state_);
                if (bad == 2) {
                    found = branch_before(from, at);
                    break;
                }
                seen[from] = true;
                if (bad == 1)
                    pending.push_back(from);
            }
        }
        result_ = result;
        state_ = state;
        index_ = index;
        block_ = block;
        return found;
    }

    // The last conditional branch on a way from one block to the next.
    [[nodiscard]] std::optional<branch_way> branch_before(uint32_t from, uint32_t to) const
    {
        for (size_t steps = 0; steps < f_.blocks.size(); ++steps) {
            const flow_block& block = f_.blocks[from];
            if (code_.instructions[block.end - 1].flow == control_flow::conditional)
                return branch_way{block.end - 1, f_.blocks[to].begin != block.end};
            const auto before = std::find_if(block.before.begin(), block.before.end(), [&](uint32_t b) {
                return f_.blocks[b].order < block.order && f_.blocks[b].in;
            });
            if (before == block.before.end())
                return std::nullopt;
            to = from;
            from = *before;
        }
        return std::nullopt;
    }

    // Registers.

    [[nodiscard]] value get(register_id r) const
    {
        if (r == zero_register)
            return make_value(constant);
        return state_.parts[r];
    }

    // The instruction uses the value.
    void use(register_part part, uint8_t bytes = 0xff, bool always_warning = false)
    {
        if (part == stack_pointer)
            return;
        const value& v = state_.parts[part];
        if (is_initial(v) && v.offset == 0 && v.scale == 0)
            f_.reads.set(v.what);
        const uint8_t missing = missing_of(v) & bytes;
        if (missing == 0)
            return;
        if (result_ != nullptr) {
            // An unknown way may set it.
            const bool certain = (is_initial(v) || v.certain) && !any_entry_ &&
                                 !(is_initial(v) && v.what == general_register(18));
            const bool whole = missing == bytes;
            std::optional<branch_way> way;
            if (!is_initial(v) && !v.certain) {
                way = find_way([this, part](const flow_state& s) {
                    const value& there = s.parts[part];
                    if (missing_of(there) == 0)
                        return 0;
                    return is_initial(there) || there.certain ? 2 : 1;
                });
            }
            flow_fact* const fact = add_fact(flow_event::reads_unset, part);
            fact->certain = certain && whole && !always_warning;
            fact->everywhere = is_initial(v) || v.certain;
            fact->whole = whole;
            fact->way = way;
            if (v.last != no_index)
                fact->changed = v.last;
        }
    }

    void use_register(register_id r, bool low_half_only, bool scalable, bool always_warning = false)
    {
        if (r >= register_count)
            return;
        if (!is_vector(r)) {
            use(part_of(r), 0xff, always_warning);
            return;
        }
        const unsigned v = r - vector_register(0);
        use_parts_of(v, low_half_only ? 1 : scalable ? 3 : 2, always_warning);
    }

    // The first parts of a vector register. One fact for all of them.
    void use_parts_of(unsigned v, unsigned count, bool always_warning)
    {
        const register_part parts[] = {low_half(v), rest_of_q(v), rest_of_z(v)};
        unsigned missing = 0;
        for (unsigned i = 0; i < count; ++i)
            missing += missing_of(state_.parts[parts[i]]) == 0 ? 0 : 1;
        const bool mixed = missing != 0 && missing != count;
        const size_t before = result_ != nullptr ? result_->facts.size() : 0;
        for (unsigned i = 0; i < count; ++i)
            use(parts[i], 0xff, always_warning || mixed);
        if (result_ == nullptr || result_->facts.size() <= before + 1) {
            if (result_ != nullptr && result_->facts.size() == before + 1 && mixed)
                result_->facts.back().whole = false;
            return;
        }
        const bool certain = std::all_of(result_->facts.begin() + static_cast<std::ptrdiff_t>(before),
                                         result_->facts.end(), [](const flow_fact& f) { return f.certain; });
        result_->facts.resize(before + 1);
        result_->facts.back().certain = certain;
        result_->facts.back().whole = result_->facts.back().whole && !mixed;
    }

    // Gives a part a value.
    void set(register_part part, value v)
    {
        value& to = state_.parts[part];
        const auto now = static_cast<uint32_t>(index_);
        v.first = to.first;
        v.last = now;
        v.mixed = false;
        if (v.what == part && v.offset == 0 && v.scale == 0)
            v.first = no_index;
        else if (v.first == no_index)
            v.first = now;
        if (part == general_register(18) && !(v.what == part && v.offset == 0))
            add_fact(flow_event::writes_platform_register, part);
        if (part == stack_pointer) {
            if (v.what == computed) {
                v.what = unknown;
                v.frame = true;
            }
            if (v.what == sp_differs && to.what == sp_differs)
                v.last = to.last;
            lower_stack(v);
            release_cells(to, v);
        }
        to = v;
    }

    void set_general(register_id r, const value& v)
    {
        if (r < vector_register(0))
            set(r, v);
    }

    // A scalar or a vector, which clears what is above it.
    void set_vector(unsigned v, const value& low, const value& q, const value& z)
    {
        set(low_half(v), low);
        set(rest_of_q(v), q);
        set(rest_of_z(v), z);
    }

    void define(register_id r, bool low_half_only, bool scalable, bool frame)
    {
        if (r >= register_count)
            return;
        value made = make_value(computed);
        if (is_general(r)) {
            made.frame = frame;
            set(r, made);
        } else if (is_vector(r)) {
            const value zero = make_value(constant);
            set_vector(r - vector_register(0), made, low_half_only ? zero : made, scalable ? made : zero);
        } else {
            set(part_of(r), made);
        }
    }

    // Raising SP leaves what is saved below it to signals.
    void release_cells(const value& from, const value& to)
    {
        if (!state_.cells || to.what != stack_pointer || from.what != stack_pointer ||
            to.scale != from.scale || to.offset <= from.offset)
            return;
        const auto is_released = [&](const frame_cell& cell) {
            return cell.range.base == stack_pointer && cell.range.scale == to.scale && !cell.held.stale &&
                   is_saved_value(cell.held) && cell.range.offset < to.offset;
        };
        if (std::none_of(state_.cells->begin(), state_.cells->end(), is_released))
            return;
        frame_cells cells = *state_.cells;
        for (frame_cell& cell : cells)
            cell.held.stale = cell.held.stale || is_released(cell);
        state_.cells = std::make_shared<const frame_cells>(std::move(cells));
    }

    void lower_stack(const value& sp)
    {
        if (result_ == nullptr || !result_->stack)
            return;
        if (sp.what == stack_pointer && sp.scale == 0)
            result_->stack = std::max(*result_->stack, -int64_t{sp.offset});
        else
            result_->stack.reset();
    }

    // Instructions.

    // Returns false if the way ends here, or cannot be followed.
    bool step()
    {
        const instruction& at = code_.instructions[index_];
        if (options_.to_decode != nullptr && !at.decoded)
            decode_instruction(*options_.to_decode, index_);
        if (!at.decoded)
            return stop(unfollowed_reason::unknown_word);
        if (at.relocated == word_relocation::unclear)
            return stop(unfollowed_reason::relocation);
        switch (at.flow) {
        case control_flow::next:
            break;
        case control_flow::conditional:
            use_operands(at);
            if (at.relocated != word_relocation::none)
                return stop(unfollowed_reason::relocation);
            if (!successors_of(code_, index_).target)
                note(unfollowed_reason::outside);
            return true;
        case control_flow::branch:
            if (at.relocated == word_relocation::fits)
                return leave_to(at.relocation);
            return successors_of(code_, index_).target ? true : stop(unfollowed_reason::outside);
        case control_flow::call:
        case control_flow::indirect_call:
            return call(at);
        case control_flow::jump:
            return jump(at);
        case control_flow::exit:
            return leave(at);
        case control_flow::trap:
            return false;
        case control_flow::system:
            return system_call(at);
        case control_flow::anywhere:
            return stop(unfollowed_reason::unknown_word);
        case control_flow::unknown:
            return stop(unfollowed_reason::other_branch);
        }
        const register_effect effect = effect_of(code_, at);
        if (effect == register_effect::change_streaming)
            return stop(unfollowed_reason::unknown_effects);
        if (!at.modelled && effect != register_effect::follow_operands &&
            effect != register_effect::read_system && effect != register_effect::write_system &&
            !tells_general_defs(at) && !memory_access_of(code_, at))
            return stop(unfollowed_reason::unknown_effects);
        if (at.relocated == word_relocation::fits) {
            form_address(at);
            return true;
        }
        if ((at.may_load || at.may_store || !at.modelled) && !is_prefetch(at)) {
            if (access_memory(at, effect))
                return true;
        }
        compute(at, effect);
        return true;
    }

    void form_address(const instruction& at)
    {
        const tessjit::reloc_info& relocation = code_.kernel->relocs[at.relocation];
        const operand_range operands = operands_of(code_, at);
        const register_id to = operands[0].registers[0];
        value made = make_value(computed);
        const bool plain = relocation.addend == 0 && !wfta::names_data(relocation.name);
        if (relocation.name == code_.kernel->name)
            made = make_value(own_address);
        else if (at.kind == instruction_kind::adr && plain)
            made = make_value(kernel_address, at.relocation);
        else if (at.kind == instruction_kind::adrp && plain)
            made = make_value(kernel_page, at.relocation);
        else if (at.kind == instruction_kind::add_constant) {
            use(operands[1].registers[0]);
            const value from = get(operands[1].registers[0]);
            if (from.what == kernel_page &&
                code_.kernel->relocs[static_cast<size_t>(from.offset)].name == relocation.name && plain)
                made = make_value(kernel_address, at.relocation);
        }
        set_general(to, made);
    }

    void use_operands(const instruction& at, bool always_warning = false)
    {
        for (const operand& o : operands_of(code_, at)) {
            if (o.defined)
                continue;
            for (size_t i = 0; i < o.count; ++i)
                use_register(o.registers[i], o.low_half, o.scalable, always_warning);
        }
        use_implicit(at);
    }

    void use_implicit(const instruction& at)
    {
        const register_set& uses = implicit_uses_of(at);
        if (uses.none())
            return;
        for (unsigned r = 0; r < register_count; ++r) {
            if (uses[r] && r != stack_pointer)
                use_register(static_cast<register_id>(r), false, true);
        }
    }

    // Whether a source may be an address in the own frame.
    [[nodiscard]] bool uses_frame_address(const instruction& at) const
    {
        for (const operand& o : operands_of(code_, at)) {
            for (size_t i = 0; !o.defined && i < o.count; ++i) {
                if (is_general(o.registers[i]) && may_be_frame_address(state_.parts[o.registers[i]]))
                    return true;
            }
        }
        return false;
    }

    void define_operands(const instruction& at, bool frame)
    {
        for (const operand& o : operands_of(code_, at)) {
            if (!o.defined)
                continue;
            for (size_t i = 0; i < o.count; ++i)
                define(o.registers[i], o.low_half, o.scalable, frame);
        }
        const register_set& defs = implicit_defs_of(at);
        if (defs.none())
            return;
        for (unsigned r = 0; r < register_count; ++r) {
            if (defs[r])
                define(static_cast<register_id>(r), false, true, frame);
        }
    }

    void set_flags(const instruction& at)
    {
        if (implicit_defs_of(at)[condition_flags])
            set(flags_part, make_value(computed));
    }

    // An instruction without an access to memory.
    void compute(const instruction& at, register_effect effect)
    {
        const operand_range operands = operands_of(code_, at);
        const auto vector_of = [&](size_t o) {
            return static_cast<unsigned>(operands[o].registers[0] - vector_register(0));
        };
        switch (effect) {
        case register_effect::clear: {
            const register_id to = operands[0].registers[0];
            const value zero = make_value(constant);
            use_implicit(at);
            const value known = make_value(computed); // 0, or all ones
            if (is_vector(to))
                set_vector(vector_of(0), known, operands[0].low_half ? zero : known, zero);
            else if (to < register_count)
                set(part_of(to), zero);
            set_flags(at);
            return;
        }
        case register_effect::copy:
            copy_register(operands);
            return;
        case register_effect::copy_lane:
            if (const auto lane = lane_read_by(code_, at); lane && lane->first < 16) {
                const unsigned from = vector_of(1);
                const value v = state_.parts[lane->first < 8 ? low_half(from) : rest_of_q(from)];
                set_general(operands[0].registers[0],
                            copied(v, lane->first < 8 ? low_half(from) : rest_of_q(from)));
                return;
            }
            break;
        case register_effect::copy_to_vector: {
            const value v = copied(get(operands[1].registers[0]), operands[1].registers[0]);
            const value zero = make_value(constant);
            if (may_be_frame_address(v))
                state_.escaped = true;
            const bool both = !operands[0].low_half; // DUP Vd.2D, Xn
            set_vector(vector_of(0), v, both ? v : zero, zero);
            return;
        }
        case register_effect::scalar_from_lane:
        case register_effect::duplicate_lane:
            if (duplicate(at, operands))
                return;
            break;
        case register_effect::set_lane:
            set_lane(at, operands);
            return;
        case register_effect::set_upper_half: {
            const unsigned to = vector_of(0);
            for (size_t o = 2; o < operands.size(); ++o) {
                if (operands[o].is_register)
                    use_register(operands[o].registers[0], operands[o].low_half, operands[o].scalable);
            }
            use_implicit(at);
            set(rest_of_q(to), make_value(computed));
            set(rest_of_z(to), make_value(constant));
            return;
        }
        case register_effect::keep_bits:
            keep_bits(at, operands);
            return;
        case register_effect::keep_inactive: {
            const unsigned to = vector_of(0);
            for (size_t o = 2; o < operands.size(); ++o) {
                if (operands[o].is_register)
                    use_register(operands[o].registers[0], operands[o].low_half, operands[o].scalable);
            }
            use_implicit(at);
            if (uses_frame_address(at))
                state_.escaped = true;
            const value& active = state_.parts[part_of(operands[2].registers[0])];
            const bool all = active.what == constant && active.scale == 1 && active.offset != 0 &&
                             static_cast<unsigned>(active.offset) <= element_bytes_of(at);
            for (const register_part part : {low_half(to), rest_of_q(to), rest_of_z(to)}) {
                value made = make_value(computed);
                if (!all && missing_of(state_.parts[part]) != 0) {
                    made.missing = 0xff;
                    made.certain = false;
                }
                set(part, made);
            }
            return;
        }
        case register_effect::select:
            if (operands.size() == 4 && is_general(operands[0].registers[0]) && selects_whole(at) &&
                get(operands[1].registers[0]).same_as(get(operands[2].registers[0]))) {
                use(flags_part);
                set_general(operands[0].registers[0],
                            copied(get(operands[1].registers[0]), operands[1].registers[0]));
                return;
            }
            use_operands(at, true);
            define_computed(at, operands, uses_frame_address(at));
            return;
        case register_effect::add_registers:
        case register_effect::subtract_registers:
            if (add_registers(at, operands, effect == register_effect::subtract_registers))
                return;
            break;
        case register_effect::add_vector_lengths:
        case register_effect::vector_length: {
            const scalable_sum sum = *scalable_sum_of(code_, at);
            const value from = get(sum.from);
            if (sum.from != zero_register && sum.from != stack_pointer)
                use(sum.from);
            set_general(sum.to, added(from, 0, sum.count));
            return;
        }
        case register_effect::align_down:
            if (const value from = get(operands[1].registers[0]);
                from.what == stack_pointer && !implicit_defs_of(at)[condition_flags]) {
                set_general(operands[0].registers[0], aligned(from, alignment_of(code_, at)));
                return;
            }
            break;
        case register_effect::all_true:
            // A constant predicate: `offset` is the size of the elements.
            set(part_of(operands[0].registers[0]), make_value(constant, element_bytes_of(at), 1));
            return;
        case register_effect::sign_link:
        case register_effect::authenticate_link:
        case register_effect::strip_link:
            sign_link(at, effect);
            return;
        case register_effect::read_system:
            if (system_register_of(code_, at) == system_register::nzcv)
                use(flags_part);
            {
                value made = make_value(computed);
                made.frame = state_.escaped;
                set_general(operands[0].registers[0], made);
                return;
            }
        case register_effect::write_system:
            use_operands(at);
            if (uses_frame_address(at))
                state_.escaped = true;
            if (system_register_of(code_, at) == system_register::nzcv)
                set(flags_part, make_value(computed));
            return;
        case register_effect::compute:
        case register_effect::change_streaming:
        case register_effect::follow_operands:
            break;
        }
        if (const auto sum = register_sum_of(code_, at)) {
            const value from = get(sum->from);
            const bool moves = sum->constant == 0 && !sum->sets_flags;
            const bool tracked = sum->wide && !sum->sets_flags && is_saved_value(from);
            if (sum->from < register_count && sum->from != stack_pointer && !(moves && sum->wide) && !tracked)
                use(sum->from);
            if (sum->wide && moves)
                set_general(sum->to, copied(from, sum->from));
            else if (sum->wide)
                set_general(sum->to, added(from, sum->constant, 0));
            else
                define_operands(at, false);
            if (sum->to == sum->from && sum->to < stack_pointer && sum->constant != 0)
                keep_missing(sum->to, from);
            set_flags(at);
            return;
        }
        if (const auto number = register_number_of(code_, at); number && number->kept == 0) {
            set_general(number->to, make_value(constant, static_cast<int64_t>(number->value)));
            return;
        }
        if (at.kind == instruction_kind::adr) {
            set_general(operands[0].registers[0], make_value(own_address));
            return;
        }
        const bool frame = uses_frame_address(at);
        use_operands(at, is_prefetch(at)); // a prefetch never faults
        if (frame && defines_vector(operands))
            state_.escaped = true;
        define_computed(at, operands, frame);
    }

    // CSEL of 64 bits.
    static bool selects_whole(const instruction& at) { return opcode_name(at.opcode) == "CSELXr"; }

    // Whether a source other than the part itself holds the caller's value of a callee-saved register, or was
    // computed from one: then the result may be that value again.
    [[nodiscard]] bool uses_saved_value(const instruction& at, register_part except) const
    {
        const auto is_one = [&](register_part part) {
            return part != except && (is_saved_value(state_.parts[part]) || state_.parts[part].derived);
        };
        for (const operand& o : operands_of(code_, at)) {
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

    void define_computed(const instruction& at, operand_range operands, bool frame)
    {
        if (operands.empty() || !operands[0].defined || operands[0].count != 1 ||
            operands[0].registers[0] >= register_count) {
            define_operands(at, frame);
            return;
        }
        const bool derived = uses_saved_value(at, part_of(operands[0].registers[0]));
        const register_id to = operands[0].registers[0];
        const value old = state_.parts[part_of(to)];
        const value old_q = is_vector(to) ? state_.parts[rest_of_q(to - vector_register(0))] : value();
        define_operands(at, frame);
        for (const operand& o : operands) {
            if (o.defined || !o.is_register || o.count != 1 || o.registers[0] != to)
                continue;
            keep_missing(part_of(to), old);
            if (is_vector(to) && !operands[0].low_half)
                keep_missing(rest_of_q(to - vector_register(0)), old_q);
        }
        if (!derived)
            return;
        std::array<register_part, 2> parts{part_of(to), part_of(to)};
        if (is_vector(to))
            parts[1] = rest_of_q(to - vector_register(0));
        for (const register_part part : parts) {
            value& made = state_.parts[part];
            if (made.what == computed) {
                made.what = unknown;
                made.derived = true;
            }
        }
    }

    // A register that is computed from its own value is still not set by anything, if it was not: in a loop,
    // this is then certain in the first iteration.
    void keep_missing(register_part part, const value& old)
    {
        if (missing_of(old) != 0xff)
            return;
        state_.parts[part].missing = 0xff;
        state_.parts[part].certain = is_initial(old) || old.certain;
    }

    static bool defines_vector(operand_range operands)
    {
        return std::any_of(operands.begin(), operands.end(), [](const operand& o) {
            return o.defined && o.is_register && is_vector(o.registers[0]);
        });
    }

    // The value for another register. A copy of a callee-saved register saves it; of another one that nothing
    // set, it is a mistake.
    value copied(value v, register_part from)
    {
        if (from < part_count && missing_of(v) == 0xff && v.certain && !is_saved_value(v))
            use(from);
        v.mixed = false;
        return v;
    }

    [[nodiscard]] static value added(const value& from, int64_t constant_part, int64_t scale)
    {
        if (is_initial(from) || is_frame_address(from) || from.what == constant || from.what == sp_differs ||
            from.what == link_signed || from.what == link_signed_b) {
            if (from.what >= link_signed && from.what <= link_signed_b)
                return make_value(computed);
            value made = make_value(from.what, from.offset + constant_part, from.scale + scale);
            made.frame = made.frame || from.frame;
            return made;
        }
        value made = make_value(from.what == unknown ? unknown : computed);
        made.frame = may_be_frame_address(from);
        return made;
    }

    value aligned(const value& from, uint64_t alignment)
    {
        if (alignment <= 16 && from.scale == 0)
            return make_value(stack_pointer, from.offset & -static_cast<int64_t>(alignment));
        for (size_t i = 0; i < f_.aligned.size(); ++i) {
            const aligned_sp& known = f_.aligned[i];
            if (known.offset == from.offset && known.scale == from.scale &&
                known.alignment == static_cast<int64_t>(alignment))
                return make_value(static_cast<uint8_t>(aligned_base + i));
        }
        if (f_.aligned.size() == most_aligned_bases || alignment > 4096) {
            value made = make_value(computed);
            made.frame = true;
            return made;
        }
        f_.aligned.push_back({from.offset, from.scale, static_cast<int64_t>(alignment)});
        return make_value(static_cast<uint8_t>(aligned_base + f_.aligned.size() - 1));
    }

    void copy_register(operand_range operands)
    {
        const register_id to = operands[0].registers[0];
        const register_id from = operands[operands.size() > 2 ? 2 : 1].registers[0];
        if (!is_vector(to)) {
            set(part_of(to), copied(state_.parts[part_of(from)], part_of(from)));
            return;
        }
        const unsigned v = to - vector_register(0);
        const unsigned source = from - vector_register(0);
        const value zero = make_value(constant);
        const value low = copied(state_.parts[low_half(source)], low_half(source));
        const value q = operands[0].low_half ? zero : state_.parts[rest_of_q(source)];
        const value z = operands[0].scalable ? state_.parts[rest_of_z(source)] : zero;
        set_vector(v, low, q, z);
    }

    // DUP of a lane. Returns false if it is better followed by its operands.
    bool duplicate(const instruction& at, operand_range operands)
    {
        const auto lane = lane_read_by(code_, at);
        if (!lane || lane->first >= 16)
            return false;
        const unsigned from = operands[1].registers[0] - vector_register(0);
        const register_part part = lane->first < 8 ? low_half(from) : rest_of_q(from);
        const value zero = make_value(constant);
        const unsigned to = operands[0].registers[0] - vector_register(0);
        if (lane->bytes == 8) {
            const value v = copied(state_.parts[part], part);
            set_vector(to, v, operands[0].low_half ? zero : v, operands[0].scalable ? v : zero);
            return true;
        }
        use(part, static_cast<uint8_t>(((1U << lane->bytes) - 1) << lane->first % 8));
        const value made = make_value(computed);
        set_vector(to, made, operands[0].low_half ? zero : made, operands[0].scalable ? made : zero);
        return true;
    }

    // INS, FMOV Vd.D[1], and loads of a lane, whose address is done.
    void set_lane(const instruction& at, operand_range operands, value made = make_value(computed))
    {
        const vector_lane lane = *lane_set_by(code_, at);
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
            const auto from = lane_read_by(code_, at);
            if (from && from->first < 16) {
                const unsigned v = operands[3].registers[0] - vector_register(0);
                const register_part part = from->first < 8 ? low_half(v) : rest_of_q(v);
                if (lane.bytes == 8)
                    made = copied(state_.parts[part], part);
                else
                    use(part, static_cast<uint8_t>(((1U << from->bytes) - 1) << from->first % 8));
            } else {
                for (const operand& o : operands) {
                    if (!o.is_register || o.defined || o.count != 1 || o.registers[0] >= vector_register(0))
                        continue;
                    if (may_be_frame_address(state_.parts[o.registers[0]]))
                        state_.escaped = true;
                    if (lane.bytes == 8)
                        made = copied(state_.parts[o.registers[0]], o.registers[0]);
                    else
                        use(o.registers[0]);
                }
            }
        }
        for (size_t i = 0; i < list->count; ++i) {
            const unsigned v = list->registers[i] - vector_register(0);
            const register_part part = lane.first < 8 ? low_half(v) : rest_of_q(v);
            if (lane.bytes < 8) {
                const value& old = state_.parts[part];
                value partly = make_value(computed);
                partly.missing =
                    static_cast<uint8_t>(missing_of(old) & ~(((1U << lane.bytes) - 1) << lane.first % 8));
                partly.certain = is_initial(old) || old.certain;
                set(part, partly);
            } else {
                set(part, made);
            }
            set(rest_of_z(v), make_value(constant));
        }
    }

    // MOVK, BFM: using what they keep is the mistake, if nothing set it.
    void keep_bits(const instruction& at, operand_range operands)
    {
        const register_id to = operands[0].registers[0];
        for (size_t o = 2; o < operands.size(); ++o) {
            if (operands[o].is_register && operands[o].registers[0] != zero_register)
                use(operands[o].registers[0]);
        }
        if (to >= register_count)
            return;
        const value old = state_.parts[to];
        value made = make_value(uses_saved_value(at, part_count) ? unknown : computed);
        made.derived = made.what == unknown;
        made.frame = uses_frame_address(at);
        made.missing = missing_of(old);
        made.certain = is_initial(old) || old.certain;
        if (const auto number = register_number_of(code_, at)) {
            for (unsigned byte = 0; byte < 8; ++byte) {
                if ((number->kept >> 8 * byte & 0xff) == 0)
                    made.missing &= static_cast<uint8_t>(~(1U << byte));
            }
            if (old.what == constant && old.scale == 0 && made.missing == 0) {
                made = make_value(constant, static_cast<int64_t>(
                                                (static_cast<uint64_t>(int64_t{old.offset}) & number->kept) |
                                                number->value));
            }
        } else if (made.missing != 0) {
            made.missing = 0xff;
            made.certain = false;
        }
        set(to, made);
    }

    // Returns false if nothing better is known than of any other instruction.
    bool add_registers(const instruction& at, operand_range operands, bool subtracts)
    {
        value a = get(operands[1].registers[0]);
        value b = get(operands[2].registers[0]);
        if (!subtracts && a.what == constant && b.what != constant)
            std::swap(a, b);
        if (b.what != constant || (!is_initial(a) && !is_frame_address(a) && a.what != constant))
            return false;
        use_operands(at);
        set_general(operands[0].registers[0],
                    added(a, subtracts ? -int64_t{b.offset} : b.offset, subtracts ? -b.scale : b.scale));
        return true;
    }

    // Pointer authentication of X30 with SP.
    void sign_link(const instruction& at, register_effect effect)
    {
        const value link = state_.parts[link_register];
        const value& sp = state_.parts[stack_pointer];
        const uint8_t key = uses_key_b(at) ? link_signed_b : link_signed;
        value made = make_value(computed);
        const bool unchanged = link.what == link_register && link.offset == 0;
        if (sp.what != stack_pointer) {
            made.what = unknown;
            if (unchanged || link.what == unknown || link.what == key)
                note(unfollowed_reason::sp);
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
        set(link_register, made);
    }

    // Memory.

    // The range that an address leads to, if it is in the own frame at a known place.
    [[nodiscard]] static std::optional<frame_range> range_at(const value& address, int64_t offset,
                                                             int64_t scale = 0)
    {
        if (!is_frame_address(address))
            return std::nullopt;
        return frame_range{address.offset + offset, address.scale + scale, 0, 0, address.what};
    }

    void check_sp_alignment(register_id base_register, flow_event event)
    {
        if (base_register != stack_pointer)
            return;
        const value& sp = state_.parts[stack_pointer];
        if (is_frame_address(sp) && (sp.offset % 16 != 0 || sp.scale % 8 != 0))
            add_fact(event);
    }

    // A store to an address that is not known to be in the own frame at a known place.
    void store_elsewhere(const value& address)
    {
        if (may_be_frame_address(address))
            lose_frame(unfollowed_reason::frame_store);
        else if (state_.escaped)
            lose_frame(unfollowed_reason::escaped_store);
    }

    // What a load from another place than a known one of the own frame gives.
    [[nodiscard]] value loaded_elsewhere(const value& address) const
    {
        const bool frame = may_be_frame_address(address) || state_.escaped;
        value made =
            make_value((frame && holds_saved_values()) || state_.saved_elsewhere ? unknown : computed);
        made.frame = frame;
        return made;
    }

    // A store outside the own frame uses the value. The caller's value of a callee-saved register may be
    // saved that way.
    void use_stored(register_part part, bool always_warning)
    {
        check_internal_address(part);
        const value& v = state_.parts[part];
        if (is_initial(v) && v.offset == 0 && v.scale == 0 &&
            (is_saved_part(v.what) || v.what == general_register(18)) && !f_.all_given) {
            state_.saved_elsewhere = true;
            if (v.what != general_register(29) && v.what != link_register) {
                if (flow_fact* const fact = add_fact(flow_event::exports_saved, v.what))
                    fact->certain = false;
            }
            f_.reads.set(v.what);
            return;
        }
        use(part, 0xff, always_warning);
    }

    // The address of an internal kernel that goes where calls of it are not seen.
    void check_internal_address(register_part part)
    {
        const value& v = state_.parts[part];
        if (v.what == kernel_address && options_.effect_of &&
            options_.effect_of(static_cast<size_t>(v.offset)) != nullptr)
            note(unfollowed_reason::callee);
    }

    void check_below_sp(const frame_range& range, const value& sp, flow_event event)
    {
        if (result_ == nullptr || !is_frame_address(sp))
            return;
        const base_range at = range_of_base(range.base);
        const base_range limit = range_of_base(sp.what);
        const bool same = range.base == sp.what;
        const bool below = for_some_length([&](int64_t eighth) {
            return (same ? 0 : at.high - limit.low) + range.offset - sp.offset +
                       (at.scale - limit.scale + range.scale - sp.scale) * eighth <
                   0;
        });
        if (below) {
            flow_fact* const fact = add_fact(event);
            fact->offset = range.offset;
            if (result_->stack && range.base == stack_pointer && range.scale == 0)
                result_->stack = std::max(*result_->stack, -range.offset);
        }
    }

    // Registers that a load or store of memory_access transfers, in order.
    struct transfer {
        register_id number;
        int64_t bytes;
    };
    static void transfers_of(const memory_access& access, operand_range operands, std::vector<transfer>& made)
    {
        made.clear();
        for (size_t o = access.status_operands; o < operands.size() && made.size() < access.registers; ++o) {
            if (!operands[o].is_register)
                break;
            for (size_t i = 0; i < operands[o].count && made.size() < access.registers; ++i)
                made.push_back(
                    {operands[o].registers[i], access.bytes / std::max<int64_t>(access.registers, 1)});
        }
    }

    // Returns false for an instruction without an access.
    bool access_memory(const instruction& at, register_effect effect)
    {
        if (const auto access = memory_access_of(code_, at)) {
            access_with(at, *access, effect);
            return true;
        }
        if (const auto access = scalable_access_of(code_, at)) {
            access_scalable(at, *access);
            return true;
        }
        const operand_range operands = operands_of(code_, at);
        const bool any = std::any_of(operands.begin(), operands.end(), [](const operand& o) {
            return o.is_register && is_general(o.registers[0]) && o.count >= 1;
        });
        if (!any || effect == register_effect::read_system || effect == register_effect::write_system ||
            class_of(code_, at) == instruction_class::other) {
            if (at.modelled || effect != register_effect::compute)
                if (!(any && effect == register_effect::follow_operands))
                    return false;
        }
        // Memory tagging, copies of memory, cache maintenance: any of the registers may be an address.
        use_operands(at);
        value address = make_value(computed);
        for (const operand& o : operands) {
            if (o.is_register && !o.defined && is_general(o.registers[0])) {
                check_sp_alignment(o.registers[0], flow_event::unaligned_sp);
                address.frame = address.frame || may_be_frame_address(state_.parts[o.registers[0]]);
            }
        }
        if (at.may_store || !at.modelled)
            store_elsewhere(address);
        define_operands(at, address.frame);
        return true;
    }

    void access_with(const instruction& at, const memory_access& access, register_effect effect)
    {
        const operand_range operands = operands_of(code_, at);
        const bool literal = access.base == zero_register;
        const value address = literal ? make_value(constant) : get(access.base);
        if (!literal) {
            if (access.base != stack_pointer)
                use(access.base);
            check_sp_alignment(access.base, flow_event::unaligned_sp);
        }
        std::optional<frame_range> place;
        if (access.addressing == addressing_mode::register_index) {
            use_register(access.index, false, false);
            const value index = get(access.index);
            if (may_be_frame_address(index)) {
                transfer_registers(at, access, effect, operands, std::nullopt, index);
                return;
            }
        } else if (!literal) {
            const bool after = access.addressing == addressing_mode::post_index ||
                               access.addressing == addressing_mode::post_register;
            place = range_at(address, after ? 0 : access.offset);
            if (access.addressing == addressing_mode::post_register)
                use_register(access.index, false, false);
        }
        std::optional<value> written_back;
        if (access.addressing == addressing_mode::post_register) {
            value made =
                make_value(address.what == unknown || access.base == stack_pointer ? unknown : computed);
            made.frame = may_be_frame_address(address);
            written_back = made;
        } else if (access.moves_base()) {
            written_back = added(address, access.offset, 0);
        }
        if (place) {
            place->size = access.bytes;
            const value& sp = access.base == stack_pointer && written_back &&
                                      access.addressing == addressing_mode::pre_index
                                  ? *written_back
                                  : state_.parts[stack_pointer];
            check_below_sp(*place, sp,
                           access.store ? flow_event::stores_below_sp : flow_event::loads_below_sp);
            count_spills(access.load, access.store);
        }
        transfer_registers(at, access, effect, operands, place, address);
        if (written_back) {
            set_general(access.base, *written_back);
            if (access.base != stack_pointer)
                keep_missing(access.base, address);
        }
    }

    void count_spills(bool load, bool store)
    {
        if (result_ == nullptr)
            return;
        result_->spill_loads += load ? 1 : 0;
        result_->spill_stores += store ? 1 : 0;
    }

    void transfer_registers(const instruction& at, const memory_access& access, register_effect effect,
                            operand_range operands, const std::optional<frame_range>& place,
                            const value& address)
    {
        const bool lane = effect == register_effect::set_lane;
        const bool simple = !access.atomic && !access.exclusive && !lane && !(access.load && access.store);
        // LD1 and ST1 of whole registers, but not LD2 or LD1R.
        const std::string_view name = access.structure ? opcode_name(at.opcode) : std::string_view();
        const bool in_order = !access.structure || ((name.starts_with("LD1") || name.starts_with("ST1")) &&
                                                    name[3] != 'i' && name[3] != 'R');
        std::vector<transfer>& transfers = transfers_;
        if (simple)
            transfers_of(access, operands, transfers);
        if (simple && access.store) {
            if (!place) {
                bool one_lane = access.structure && name[3] == 'i';
                for (const transfer& t : transfers)
                    use_transferred(t, access, operands, one_lane);
                for (const transfer& t : transfers) {
                    if (is_general(t.number) && may_be_frame_address(state_.parts[t.number]))
                        state_.escaped = true;
                }
                store_elsewhere(address);
                return;
            }
            if (in_order) {
                frame_range range = *place;
                for (const transfer& t : transfers) {
                    range.size = t.bytes;
                    store_register(t, range);
                    range.offset += t.bytes;
                }
            } else {
                store_elements(access, operands, *place, name[3] == 'i');
            }
            return;
        }
        if (simple && access.load) {
            load_registers(access, place, address, in_order);
            return;
        }
        // Atomics, exclusives, one lane.
        value loaded_lane = loaded_elsewhere(address);
        use_some(at, access, lane);
        if (access.store) {
            if (place)
                store(*place, make_value(computed));
            else
                store_elsewhere(address);
            for (const operand& o : operands) {
                for (size_t i = 0; !o.defined && i < o.count; ++i) {
                    if (is_general(o.registers[i]) && o.registers[i] != access.base &&
                        may_be_frame_address(state_.parts[o.registers[i]]))
                        state_.escaped = true;
                }
            }
        }
        if (access.load && place) {
            frame_range piece = *place;
            for (int64_t done = 0; done < place->size; done += 8) {
                piece.offset = place->offset + done;
                piece.size = std::min<int64_t>(8, place->size - done);
                loaded_lane = load(piece);
            }
        }
        if (lane) {
            set_lane(at, operands, access.registers == 1 ? loaded_lane : make_value(computed));
            return;
        }
        const value elsewhere = loaded_elsewhere(address);
        for (const operand& o : operands) {
            if (!o.defined)
                continue;
            for (size_t i = 0; i < o.count; ++i) {
                if (o.registers[i] != access.base)
                    define(o.registers[i], o.low_half, o.scalable, elsewhere.frame);
            }
        }
    }

    // ST1 of a lane, ST2 to ST4.
    void store_elements(const memory_access& access, operand_range operands, const frame_range& place,
                        bool one_lane)
    {
        if (one_lane && access.registers == 1 && access.element_bytes == 8) {
            const unsigned v = transfers_[0].number - vector_register(0);
            const auto lane = std::find_if(operands.begin(), operands.end(),
                                           [](const operand& o) { return !o.is_register; });
            const register_part part = lane->immediate == 0 ? low_half(v) : rest_of_q(v);
            note_save(state_.parts[part], place, part);
            store(place, state_.parts[part]);
            return;
        }
        bool saves_some = false;
        for (const transfer& t : transfers_) {
            saves_some =
                saves_some || (is_vector(t.number) &&
                               is_saved_value(state_.parts[low_half(t.number - vector_register(0))]));
        }
        state_.saved_elsewhere = state_.saved_elsewhere || saves_some;
        for (const transfer& t : transfers_) {
            if (!saves_some)
                use_transferred(t, access, operands, one_lane);
        }
        store(place, make_value(saves_some ? unknown : computed));
    }

    // What an atomic, an exclusive or a load of a lane uses, apart from the address.
    void use_some(const instruction& at, const memory_access& access, bool lane)
    {
        for (const operand& o : operands_of(code_, at)) {
            if (o.defined || !o.is_register)
                continue;
            for (size_t i = 0; i < o.count; ++i) {
                if (o.registers[i] == access.base || o.registers[i] == access.index ||
                    (lane && is_vector(o.registers[i])))
                    continue;
                use_register(o.registers[i], o.low_half, o.scalable);
            }
        }
    }

    // A register that is stored outside the own frame, or not as it is.
    void use_transferred(const transfer& t, const memory_access& access, operand_range operands,
                         bool one_lane)
    {
        if (t.number >= register_count)
            return;
        if (!is_vector(t.number)) {
            use_stored(t.number, false);
            return;
        }
        const unsigned v = t.number - vector_register(0);
        if (one_lane) {
            for (const operand& o : operands) {
                if (o.is_register)
                    continue;
                const auto first = static_cast<unsigned>(o.immediate) * access.element_bytes;
                use(first < 8 ? low_half(v) : rest_of_q(v),
                    static_cast<uint8_t>(((1U << access.element_bytes) - 1) << first % 8));
                return;
            }
        }
        const value& low = state_.parts[low_half(v)];
        if (t.bytes < 8)
            use(low_half(v), static_cast<uint8_t>((1U << t.bytes) - 1));
        else if (t.bytes == 8 || (is_initial(low) && is_saved_part(low.what) && !f_.all_given))
            use_stored(low_half(v), false);
        else
            use_parts_of(v, 2, false);
    }

    // The value as a cell of fewer than 8 bytes.
    [[nodiscard]] value narrowed(const value& v, int64_t bytes) const
    {
        value made = make_value(computed);
        made.frame = may_be_frame_address(v);
        made.derived = is_saved_value(v) || v.derived;
        const auto kept = static_cast<uint8_t>((1U << bytes) - 1);
        made.missing = missing_of(v) & kept;
        if (made.missing == kept)
            made.missing = 0xff;
        made.certain = is_initial(v) || v.certain;
        return made;
    }

    void store_register(const transfer& t, const frame_range& range)
    {
        if (!is_vector(t.number)) {
            const value v = t.number == zero_register ? make_value(constant) : state_.parts[t.number];
            if (t.bytes == 8) {
                note_save(v, range, t.number);
                store(range, v);
            } else {
                store(range, narrowed(v, t.bytes));
            }
            return;
        }
        const unsigned v = t.number - vector_register(0);
        const value low = state_.parts[low_half(v)];
        if (t.bytes < 8) {
            store(range, narrowed(low, t.bytes));
            return;
        }
        frame_range half = range;
        half.size = 8;
        note_save(low, half, t.bytes == 8 ? low_half(v) : rest_of_q(v));
        store(half, low);
        if (t.bytes == 16) {
            half.offset += 8;
            store(half, state_.parts[rest_of_q(v)]);
        }
    }

    // Records that a callee-saved register, or X30, is saved. `as` says by which of its views.
    void note_save(const value& v, const frame_range& range, register_part as)
    {
        const bool is_link = v.what == link_signed || v.what == link_signed_b;
        if ((!is_initial(v) || v.offset != 0 || !is_saved_part(v.what)) && !is_link)
            return;
        if (flow_fact* const fact = add_fact(flow_event::saves, is_link ? link_register : v.what)) {
            if (fact->part >= 32 && as >= rest_of_q(0))
                fact->part = static_cast<register_part>(fact->part - low_half(0) +
                                                        (as >= rest_of_z(0) ? rest_of_z(0) : rest_of_q(0)));
            fact->offset = range.offset;
        }
    }

    void load_registers(const memory_access& access, const std::optional<frame_range>& place,
                        const value& address, bool in_order)
    {
        const std::vector<transfer> transfers = transfers_;
        // Of a pair, only one register may have been stored: using the other one is the mistake.
        report_loads_ = transfers.size() < 2;
        absent_loads_ = 0;
        unsigned pieces = 0;
        const value zero = make_value(constant);
        frame_range range = place.value_or(frame_range());
        std::vector<std::array<value, 2>>& loaded = loaded_;
        loaded.clear();
        for (const transfer& t : transfers) {
            std::array<value, 2> values{zero, zero};
            for (int64_t done = 0; done < t.bytes; done += 8) {
                value& v = values[static_cast<size_t>(done / 8)];
                if (!place) {
                    v = loaded_elsewhere(address);
                    continue;
                }
                frame_range piece = range;
                piece.offset += done;
                piece.size = std::min<int64_t>(8, t.bytes - done);
                v = load(piece);
                pieces += report_loads_ ? 0 : 1;
                if (!in_order && v.what != unknown && !state_.saved_elsewhere) { // other elements
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
        report_loads_ = true;
        if (absent_loads_ == pieces && pieces != 0) { // nothing of it was stored
            value whole;
            report_load(*place, true, true, whole);
            for (std::array<value, 2>& values : loaded) {
                for (value& v : values)
                    v.missing = 0;
            }
        }
        for (size_t i = 0; i < transfers.size(); ++i) {
            const transfer& t = transfers[i];
            if (t.number >= register_count)
                continue;
            if (is_vector(t.number)) {
                const unsigned v = t.number - vector_register(0);
                const bool whole = t.bytes == 16 || (access.structure && !in_order);
                set_vector(v, loaded[i][0], whole && t.bytes != 16 ? make_value(computed) : loaded[i][1],
                           zero);
            } else {
                set_general(t.number, loaded[i][0]);
            }
        }
    }

    void access_scalable(const instruction& at, const scalable_access& access)
    {
        const operand_range operands = operands_of(code_, at);
        const value address = access.base < register_count ? state_.parts[access.base] : make_value(computed);
        check_sp_alignment(access.base, flow_event::unaligned_sp);
        std::optional<frame_range> place;
        if (access.whole)
            place = range_at(address, 0, *access.count);
        if (!place) {
            const bool frame = may_be_frame_address(address);
            use_operands(at);
            if (access.store)
                store_elsewhere(address);
            const value elsewhere = loaded_elsewhere(address);
            for (const operand& o : operands) {
                for (size_t i = 0; o.defined && i < o.count; ++i) {
                    define(o.registers[i], o.low_half, o.scalable, frame);
                    if (elsewhere.what == unknown && is_vector(o.registers[i]) && access.load) {
                        const unsigned v = o.registers[i] - vector_register(0);
                        for (const register_part part : {low_half(v), rest_of_q(v), rest_of_z(v)})
                            state_.parts[part].what = unknown;
                    }
                }
            }
            const register_set& defs = implicit_defs_of(at);
            if (defs[first_fault_register])
                set(first_fault_part, make_value(computed));
            return;
        }
        if (access.base != stack_pointer)
            use(access.base);
        count_spills(access.load, access.store);
        frame_range low = *place;
        if (!is_vector(access.first_register)) {
            const register_part part = part_of(access.first_register);
            low.size_scale = 1;
            if (access.store) {
                check_below_sp(low, state_.parts[stack_pointer], flow_event::stores_below_sp);
                save_scalable(part, low);
                store(low, state_.parts[part]);
            } else {
                value v = load(low);
                v.from_frame = true;
                set(part, v);
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
            check_below_sp(low, state_.parts[stack_pointer], flow_event::stores_below_sp);
            note_save(state_.parts[low_half(v)], low, rest_of_z(v));
            if (!is_saved_part(low_half(v)) || !is_initial(state_.parts[low_half(v)]))
                save_scalable(rest_of_z(v), low);
            store(low, state_.parts[low_half(v)]);
            store(q, state_.parts[rest_of_q(v)]);
            store(z, state_.parts[rest_of_z(v)]);
            return;
        }
        value parts[] = {load(low), load(q), load(z)};
        for (value& part : parts)
            part.from_frame = true;
        set_vector(v, parts[0], parts[1], parts[2]);
    }

    // Saves that matter to kernels with SVE arguments only.
    void save_scalable(register_part part, const frame_range& range)
    {
        const value& v = state_.parts[part];
        if (v.what != part || !is_saved_with_sve(part))
            return;
        if (flow_fact* const fact = add_fact(flow_event::saves, part))
            fact->offset = range.offset;
    }

    // Calls and returns.

    void apply(const call_effect& effect)
    {
        for (size_t part = 0; part < part_count; ++part) {
            if (effect.reads[part])
                use(static_cast<register_part>(part));
        }
        const bool standard = &effect == &standard_effect();
        bool passes = false;
        for (unsigned r = 0; r <= 30; ++r) {
            const bool argument = standard ? r <= 8 : effect.reads[r];
            if (argument)
                check_internal_address(static_cast<register_part>(r));
            passes = passes || (argument && may_be_frame_address(state_.parts[r]));
        }
        if (standard)
            check_arguments();
        state_.escaped = state_.escaped || passes;
        if (state_.escaped || effect.stores_in_callers_frame)
            lose_frame(unfollowed_reason::escaped_store);
        drop_cells_below_sp();
        for (size_t i = 0; i < part_count; ++i) {
            const auto part = static_cast<register_part>(i);
            if (!effect.changes[i])
                continue;
            value made = make_value(computed);
            if (!effect.sets[i]) {
                made.missing = 0xff;
                // Kept if the callee takes SVE arguments: a kernel that uses SVE may rely on it.
                if (standard && is_saved_with_sve(part))
                    made.certain = !uses_scalable();
            } else {
                made.frame = part < 32 && state_.escaped;
            }
            const value old = state_.parts[i];
            set_quietly(part, made);
            if (old.what == part && old.offset == 0 && missing_of(old) != 0 && made.missing != 0)
                state_.parts[i].certain = true; // was not set before either
        }
    }

    // An argument register with the caller's value of a callee-saved one: the call may change it, so this
    // does not save it.
    void check_arguments()
    {
        for (unsigned r = 0; r <= 7; ++r) {
            for (const register_part part : {general_register(r), low_half(r)}) {
                const value& v = state_.parts[part];
                if (!is_saved_value(v) || v.offset != 0 || v.what >= general_register(29) + 0U)
                    if (!(is_saved_value(v) && v.offset == 0 && v.what >= low_half(8)))
                        continue;
                if (flow_fact* const fact = add_fact(flow_event::passes_saved, v.what))
                    fact->certain = false;
            }
        }
    }

    // Whether the kernel has instructions of SVE.
    bool uses_scalable()
    {
        if (!uses_scalable_) {
            if (options_.to_decode != nullptr)
                decode_reached(*options_.to_decode, map_);
            uses_scalable_ = std::any_of(code_.operands.begin(), code_.operands.end(), [](const operand& o) {
                return o.is_register && (o.scalable || (o.registers[0] >= predicate_register(0) &&
                                                        o.registers[0] <= predicate_register(15)));
            });
        }
        return *uses_scalable_;
    }

    // Without a finding about X18.
    void set_quietly(register_part part, const value& v)
    {
        kernel_flow* const result = part == general_register(18) ? std::exchange(result_, nullptr) : nullptr;
        set(part, v);
        if (result != nullptr)
            result_ = result;
    }

    void drop_cells_below_sp()
    {
        const value& sp = state_.parts[stack_pointer];
        if (!state_.cells || sp.what != stack_pointer || sp.scale != 0)
            return;
        const auto is_below = [&](const frame_cell& cell) {
            return cell.range.base == stack_pointer && cell.range.scale == 0 && cell.range.size_scale == 0 &&
                   cell.range.offset + cell.range.size <= sp.offset;
        };
        if (std::none_of(state_.cells->begin(), state_.cells->end(), is_below))
            return;
        frame_cells kept;
        for (const frame_cell& cell : *state_.cells) {
            if (!is_below(cell))
                kept.push_back(cell);
        }
        state_.cells = std::make_shared<const frame_cells>(std::move(kept));
    }

    bool call(const instruction& at)
    {
        check_sp_alignment(stack_pointer, flow_event::unaligned_sp_call);
        const call_effect* effect = &standard_effect();
        if (at.flow == control_flow::indirect_call) {
            for (const operand& o : operands_of(code_, at)) {
                if (o.is_register && !o.defined && o.registers[0] < register_count)
                    use(o.registers[0]);
            }
            const value to = get(operands_of(code_, at)[0].registers[0]);
            if (to.what == own_address)
                return stop(unfollowed_reason::local_call);
            if (to.what == kernel_address && options_.effect_of) {
                if (const call_effect* const known = options_.effect_of(static_cast<size_t>(to.offset)))
                    effect = known;
            }
            if (!effect->followed)
                return stop(unfollowed_reason::callee);
        } else if (at.relocated == word_relocation::fits) {
            const tessjit::reloc_info& relocation = code_.kernel->relocs[at.relocation];
            if (relocation.name == code_.kernel->name && (relocation.addend != 0 || options_.all_given))
                return stop(unfollowed_reason::local_call);
            if (options_.effect_of) {
                if (const call_effect* const known = options_.effect_of(at.relocation))
                    effect = known;
            }
            if (!effect->followed)
                return stop(unfollowed_reason::callee);
        } else {
            const std::optional<size_t> target = successors_of(code_, index_).target;
            if (!target)
                return stop(unfollowed_reason::outside);
            effect = effect_of_local(*target);
            if (effect == nullptr || !effect->followed)
                return stop(unfollowed_reason::local_call);
            add_stack_of(*target);
        }
        // BL changes X30 before the callee begins, and the callee may leave anything there.
        value link = make_value(computed);
        link.missing = 0xff;
        link.certain = false;
        set(link_register, link);
        call_effect without_link = *effect;
        if (effect != &standard_effect()) {
            without_link.reads.reset(link_register);
            without_link.changes.reset(link_register);
            apply(without_link);
        } else {
            apply(*effect);
        }
        return true;
    }

    // The effect of a subroutine in the kernel's own code; null while it is being found.
    const call_effect* effect_of_local(size_t target)
    {
        if (block_at_[target] == no_index || f_.depth == most_local_depth)
            return nullptr;
        const auto [at, added] = local_effects_.try_emplace(target);
        if (!added)
            return at->second.get();
        kernel_flow* const outer = result_;
        const size_t index = index_;
        const bool too_many = too_many_visits_;
        kernel_flow flow = follow(target, true, f_.depth + 1);
        too_many_visits_ = too_many;
        index_ = index;
        result_ = outer;
        for (flow_fact& fact : flow.facts) {
            if (fact.event != flow_event::saves)
                local_facts_.push_back(fact);
        }
        for (flow_exit& exit : flow.exits) {
            exit.local = true;
            local_exits_.push_back(exit);
        }
        auto made = std::make_unique<call_effect>(flow.effect);
        made->followed = flow.followed && flow.effect.followed;
        local_stacks_[target] = flow.stack;
        local_effects_[target] = std::move(made);
        return local_effects_[target].get();
    }

    // The stack that a subroutine takes below the current SP.
    void add_stack_of(size_t target)
    {
        if (result_ == nullptr || !result_->stack)
            return;
        const value& sp = state_.parts[stack_pointer];
        const std::optional<int64_t>& stack = local_stacks_[target];
        if (stack && sp.what == stack_pointer && sp.scale == 0)
            result_->stack = std::max(*result_->stack, *stack - sp.offset);
        else
            result_->stack.reset();
    }

    // Whether a return leads back to the caller with the same SP.
    static bool keeps_place(const flow_exit& exit)
    {
        return !exit.returns_elsewhere &&
               std::none_of(exit.changed.begin(), exit.changed.end(),
                            [](const changed_part& c) { return c.part == stack_pointer; });
    }

    bool jump(const instruction& at)
    {
        const register_id to = operands_of(code_, at)[0].registers[0];
        for (const operand& o : operands_of(code_, at)) {
            if (o.is_register && !o.defined && o.registers[0] < register_count)
                use(o.registers[0]);
        }
        const value target = get(to);
        if (target.what == link_register && target.offset == 0) {
            finish_way(false, false, to);
            return false;
        }
        if (target.what == kernel_address)
            return leave_to(static_cast<uint32_t>(target.offset));
        return stop(unfollowed_reason::jump);
    }

    bool leave_to(uint32_t relocation)
    {
        const tessjit::reloc_info& target = code_.kernel->relocs[relocation];
        if (target.name == code_.kernel->name && (target.addend != 0 || options_.all_given))
            return stop(unfollowed_reason::local_call);
        const call_effect* effect = &standard_effect();
        if (options_.effect_of) {
            if (const call_effect* const known = options_.effect_of(relocation))
                effect = known;
        }
        if (!effect->followed)
            return stop(unfollowed_reason::callee);
        const value link = state_.parts[link_register];
        apply(*effect);
        state_.parts[link_register] = link; // the callee returns by it
        finish_way(true, false, link_register);
        return false;
    }

    bool leave(const instruction& at)
    {
        const std::string_view name = opcode_name(at.opcode);
        register_id link = link_register;
        if (name == "RET") {
            link = operands_of(code_, at)[0].registers[0];
            if (link >= register_count) {
                stop(unfollowed_reason::jump);
                return false;
            }
        } else if (name.starts_with("RETAA") || name.starts_with("RETAB")) {
            const value& signed_link = state_.parts[link_register];
            const value& sp = state_.parts[stack_pointer];
            const uint8_t key = name.starts_with("RETAB") ? link_signed_b : link_signed;
            if (sp.what != stack_pointer)
                return stop(unfollowed_reason::sp);
            if (signed_link.what == key && signed_link.offset == sp.offset && signed_link.scale == sp.scale)
                set(link_register, make_value(link_register));
            else if (signed_link.what != unknown)
                set(link_register, make_value(computed));
        } else {
            return stop(unfollowed_reason::other_branch);
        }
        const value& to = state_.parts[link];
        if (to.what == own_address) {
            if (result_ != nullptr)
                result_->returns_elsewhere = true;
            return stop(unfollowed_reason::jump);
        }
        finish_way(false, !(to.what == link_register && to.offset == 0 && to.scale == 0), link);
        return false;
    }

    // A return, or a branch to another kernel.
    void finish_way(bool tail_call, bool elsewhere, register_id link)
    {
        if (result_ == nullptr)
            return;
        flow_exit made;
        made.index = index_;
        made.tail_call = tail_call;
        made.link = link;
        made.returns_elsewhere = elsewhere;
        for (size_t i = 0; i < part_count; ++i) {
            const auto part = static_cast<register_part>(i);
            const value v = state_.parts[i];
            if (v.what == part && v.offset == 0 && v.scale == 0)
                continue;
            changed_part changed;
            changed.part = part;
            changed.changed = v.first == no_index ? index_ : v.first;
            changed.last = v.last == no_index ? index_ : v.last;
            changed.known = v.what != unknown;
            changed.scalable = part >= rest_of_z(0) && part < predicate_part(0) && v.what != constant &&
                               !v.mixed && missing_of(v) == 0 && !code_.instructions[changed.last].is_call();
            if (v.what == part && v.scale == 0)
                changed.difference = v.offset;
            if (v.from_frame && v.last != no_index && v.last != v.first)
                changed.loaded = v.last;
            if (is_saved_part(part) || is_saved_with_sve(part))
                changed.way = way_of_change(part);
            else if (part == stack_pointer)
                changed.way = way_of_sp(v);
            if (part == stack_pointer && v.what == unknown)
                note(unfollowed_reason::sp);
            if (v.what == unknown && is_saved_part(part) && part != link_register && !f_.all_given &&
                result_->followed)
                note(unfollowed_reason::restores_from_elsewhere);
            made.changed.push_back(changed);
            effect_changes_.set(i);
            if (missing_of(v) != 0)
                effect_unset_.set(i);
        }
        if (tail_call && state_.parts[link_register].what != link_register)
            made.returns_elsewhere = true;
        if (elsewhere && state_.parts[link].what == unknown)
            note(unfollowed_reason::restores_from_elsewhere);
        result_->exits.push_back(std::move(made));
    }

    std::optional<branch_way> way_of_change(register_part part)
    {
        if (!state_.parts[part].mixed)
            return std::nullopt;
        return find_way([part](const flow_state& s) {
            const value& v = s.parts[part];
            if (v.what == part && v.offset == 0 && v.scale == 0)
                return 0;
            return v.mixed ? 1 : 2;
        });
    }

    std::optional<branch_way> way_of_sp(const value& sp)
    {
        if (sp.what != sp_differs)
            return std::nullopt;
        const int64_t wanted = -int64_t{sp.offset};
        return find_way([wanted](const flow_state& s) {
            const value& v = s.parts[stack_pointer];
            if (v.what == sp_differs)
                return 1;
            return v.what == stack_pointer && (v.offset != wanted || v.scale != 0) ? 2 : 0;
        });
    }

    // By the convention of Linux: only X0, the result, is changed.
    bool system_call(const instruction& at)
    {
        if (opcode_name(at.opcode) != "SVC")
            return stop(unfollowed_reason::unknown_effects);
        value result = make_value(computed);
        for (unsigned r = 0; r <= 5; ++r)
            state_.escaped = state_.escaped || may_be_frame_address(state_.parts[r]);
        if (state_.escaped)
            lose_frame(unfollowed_reason::escaped_store);
        set(general_register(0), result);
        // The system may clear what SVE adds.
        for (unsigned v = 0; v <= 31; ++v)
            set(rest_of_z(v), result);
        for (unsigned p = 0; p <= 15; ++p)
            set(predicate_part(p), result);
        set(first_fault_part, result);
        return true;
    }

    // The effect of the whole function.
    void finish(kernel_flow& result)
    {
        result.effect.reads = result.reads = f_.reads;
        result.effect.changes = std::exchange(effect_changes_, part_set());
        result.effect.sets = result.effect.changes & ~std::exchange(effect_unset_, part_set());
        for (const flow_fact& fact : result.facts) {
            if (fact.event == flow_event::unfollowed)
                result.followed = false;
        }
        result.effect.followed = result.effect.followed && result.followed;
        for (const flow_exit& exit : result.exits)
            result.effect.followed = result.effect.followed && keeps_place(exit);
    }

    const decoded_kernel& code_;
    const code_map& map_;
    const flow_options& options_;
    bool any_entry_;
    std::optional<bool> uses_scalable_;
    std::vector<code_block> blocks_; // of the whole kernel
    std::vector<uint32_t> block_at_; // for each word, the block that it begins
    function f_;
    flow_state state_;
    size_t block_ = 0; // the current one, in f_.blocks
    size_t joined_block_ = 0;
    size_t index_ = 0; // of the current instruction
    bool too_many_visits_ = false;
    kernel_flow* result_ = nullptr; // null while the states are being found
    part_set effect_changes_;
    part_set effect_unset_;
    std::unordered_map<size_t, std::unique_ptr<call_effect>> local_effects_; // null while being found
    std::unordered_map<size_t, std::optional<int64_t>> local_stacks_;
    std::vector<flow_fact> local_facts_;
    std::vector<flow_exit> local_exits_;
    std::vector<transfer> transfers_;
    bool report_loads_ = true; // otherwise, what was not stored is counted and marked
    unsigned absent_loads_ = 0;
    std::vector<std::array<value, 2>> loaded_;
};

} // namespace

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

kernel_flow follow_kernel(const decoded_kernel& code, const code_map& map, const flow_options& options)
{
    return follower(code, map, options).run();
}

} // namespace vorna::workbench
