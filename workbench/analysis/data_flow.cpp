// A forward data-flow analysis over the basic blocks of a kernel:
//
//   data_flow_values          the lattice of values, and their join
//   data_flow_frame           the own stack frame
//   data_flow_transfer        the transfer function of an instruction; data_flow_registers, data_flow_memory,
//                             data_flow_frame_accesses and data_flow_calls are parts of it
//   data_flow_ways            the branch to name when only some ways are bad
//
// The solver keeps a worklist of blocks in reverse postorder, and goes on until no state at the beginning of
// a block changes any more. Where something cannot be followed, the way ends.
//
// A second pass walks each block once with its final state and records what is worth reporting.

#include "workbench/analysis/data_flow.hpp"

#include "workbench/analysis/address_tracking.hpp"
#include "workbench/analysis/data_flow_transfer.hpp"

#include <algorithm>
#include <functional>
#include <memory>
#include <queue>
#include <utility>

namespace vorna::workbench {

namespace flow {

namespace {

void give_up(kernel_flow& result, size_t index)
{
    flow_fact fact;
    fact.event = flow_event::unfollowed;
    fact.index = index;
    fact.reason = unfollowed_reason::too_large;
    result.facts.push_back(fact);
    result.followed = result.effect.followed = false;
    result.stack.reset();
}

// The blocks that control reaches from an entry, in reverse postorder.
std::vector<flow_block> order_blocks(const kernel_context& kernel, size_t entry)
{
    std::vector<uint32_t> postorder;
    std::vector<std::pair<uint32_t, size_t>> path{{kernel.block_at[entry], 0}};
    std::vector<uint32_t> number(kernel.blocks.size(), no_index);
    number[path[0].first] = 0;
    while (!path.empty()) {
        const uint32_t at = path.back().first;
        if (path.back().second == kernel.blocks[at].after.size()) {
            postorder.push_back(at);
            path.pop_back();
            continue;
        }
        const uint32_t to = kernel.blocks[at].after[path.back().second++];
        if (number[to] == no_index) {
            number[to] = 0;
            path.emplace_back(to, 0);
        }
    }
    std::vector<flow_block> blocks(postorder.size());
    for (uint32_t i = 0; i < postorder.size(); ++i)
        number[postorder[i]] = static_cast<uint32_t>(postorder.size()) - 1 - i;
    for (const uint32_t from : postorder) {
        flow_block& made = blocks[number[from]];
        made.begin = kernel.blocks[from].begin;
        made.end = kernel.blocks[from].end;
        for (const uint32_t to : kernel.blocks[from].after)
            made.after.push_back(number[to]);
    }
    for (uint32_t i = 0; i < blocks.size(); ++i) {
        for (const uint32_t to : blocks[i].after)
            blocks[to].before.push_back(i);
    }
    return blocks;
}

flow_state initial_state()
{
    flow_state state;
    for (size_t part = 0; part < part_count; ++part)
        state.parts[part] = make_value(static_cast<uint8_t>(part));
    return state;
}

// Joins a state into that at the beginning of a block. Returns whether this changed.
bool join(const function_context& f, flow_block& block, const flow_state& from)
{
    flow_state& to = *block.in;
    const auto here = static_cast<uint32_t>(block.begin);
    bool changed = from.saved_elsewhere && !to.saved_elsewhere;
    to.saved_elsewhere = to.saved_elsewhere || from.saved_elsewhere;
    for (size_t part = 0; part < part_count; ++part) {
        if (to.parts[part] != from.parts[part]) // most are equal, and this is faster
            changed = join_value(to.parts[part], from.parts[part], part, f.all_given, here) || changed;
    }
    return join_frame(f.aligned, f.all_given, to.frame, from.frame) || changed;
}

// Finds the state at the beginning of each block. Returns false if that takes too long.
bool solve(function_context& f)
{
    f.blocks[0].in = std::make_unique<flow_state>(initial_state());
    std::priority_queue<uint32_t, std::vector<uint32_t>, std::greater<>> worklist;
    std::vector<bool> waits(f.blocks.size());
    worklist.push(0);
    waits[0] = true;
    for (size_t visits = 0; !worklist.empty(); ++visits) {
        if (visits == 64 * f.blocks.size() + 1024)
            return false;
        f.block = worklist.top();
        worklist.pop();
        waits[f.block] = false;
        if (!transfer_block(f, *f.blocks[f.block].in))
            continue;
        for (const uint32_t to : f.blocks[f.block].after) {
            if (!may_continue_at(f, to))
                continue;
            flow_block& target = f.blocks[to];
            const bool reached = target.in != nullptr;
            if (!reached)
                target.in = std::make_unique<flow_state>(f.state);
            const bool changed = !reached || join(f, target, f.state);
            if (changed && !waits[to]) {
                waits[to] = true;
                worklist.push(to);
            }
        }
    }
    return true;
}

// Whether a return leads back to the caller with the same SP.
bool keeps_place(const flow_exit& exit)
{
    return !exit.returns_elsewhere &&
           std::none_of(exit.changed.begin(), exit.changed.end(),
                        [](const changed_part& c) { return c.part == stack_pointer; });
}

} // namespace

kernel_flow follow_function(kernel_context& kernel, size_t entry, bool all_given, unsigned depth)
{
    kernel_flow result;
    function_context f{kernel, kernel.code, order_blocks(kernel, entry), all_given, depth};
    if (solve(f)) {
        f.result = &result;
        for (f.block = 0; f.block < f.blocks.size(); ++f.block) {
            if (f.blocks[f.block].in)
                transfer_block(f, *f.blocks[f.block].in);
        }
    } else {
        give_up(result, entry);
    }
    result.effect.reads = result.reads = f.reads;
    result.effect.changes = f.changes;
    result.effect.sets = f.changes & ~f.unset;
    result.effect.may_read = f.may_read & ~f.reads;
    result.effect.returns = !result.exits.empty();
    result.effect.followed = result.effect.followed && result.followed &&
                             std::all_of(result.exits.begin(), result.exits.end(), keeps_place);
    return result;
}

bool transfer_block(function_context& f, const flow_state& in)
{
    f.state = in;
    f.taken.reset();
    for (f.index = f.blocks[f.block].begin; f.index < f.blocks[f.block].end; ++f.index) {
        if (!transfer(f))
            return false;
    }
    return true;
}

bool may_continue_at(const function_context& f, uint32_t next)
{
    const flow_block& block = f.blocks[f.block];
    return !f.taken || *f.taken == (f.blocks[next].begin != block.end) || block.after.size() == 1;
}

flow_fact* add_fact(function_context& f, flow_event event, register_part part)
{
    if (f.result == nullptr)
        return nullptr;
    flow_fact fact;
    fact.event = event;
    fact.index = f.index;
    fact.part = part;
    f.result->facts.push_back(fact);
    return &f.result->facts.back();
}

void note(function_context& f, unfollowed_reason reason)
{
    if (flow_fact* const fact = add_fact(f, flow_event::unfollowed)) {
        fact->reason = reason;
        f.result->followed = false;
    }
}

bool stop(function_context& f, unfollowed_reason reason)
{
    note(f, reason);
    if (f.result != nullptr)
        f.result->effect.followed = false;
    return false;
}

} // namespace flow

kernel_flow follow_kernel(const decoded_kernel& code, const code_map& map, const flow_options& options)
{
    flow::kernel_context kernel{code, map, options, find_blocks(code, map, most_followed_blocks)};
    kernel.block_at.assign(code.instructions.size(), flow::no_index);
    for (std::uint32_t i = 0; i < kernel.blocks.size(); ++i)
        kernel.block_at[kernel.blocks[i].begin] = i;
    kernel_flow result;
    if (kernel.blocks.empty() || kernel.block_at[0] == flow::no_index) {
        if (!code.instructions.empty())
            flow::give_up(result, 0);
        return result;
    }
    result = flow::follow_function(kernel, 0, options.all_given, 0);
    result.facts.insert(result.facts.end(), kernel.local_facts.begin(), kernel.local_facts.end());
    result.exits.insert(result.exits.end(), kernel.local_exits.begin(), kernel.local_exits.end());
    return result;
}

} // namespace vorna::workbench
