// Finds the branch that is to be named when something is wrong on some ways only: the nearest, going against
// control flow, after which the final states are all bad.

#include "workbench/analysis/data_flow_state.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace vorna::workbench::flow {

namespace {

constexpr unsigned most_way_searches = 64; // of a function

// The last conditional branch on a way from one block to the next.
std::optional<branch_way> branch_before(const function_context& f, uint32_t from, uint32_t to)
{
    for (size_t steps = 0; steps < f.blocks.size(); ++steps) {
        const flow_block& block = f.blocks[from];
        if (f.code.instructions[block.end - 1].flow == control_flow::conditional)
            return branch_way{block.end - 1, f.blocks[to].begin != block.end};
        const auto before = std::find_if(block.before.begin(), block.before.end(),
                                         [&](uint32_t b) { return b < from && f.blocks[b].in; });
        if (before == block.before.end())
            return std::nullopt;
        to = from;
        from = *before;
    }
    return std::nullopt;
}

} // namespace

std::optional<branch_way> find_way(function_context& f,
                                   const std::function<int(const flow_state&, uint32_t next)>& badness)
{
    if (++f.way_searches > most_way_searches)
        return std::nullopt;
    kernel_flow* const result = std::exchange(f.result, nullptr);
    const flow_state state = f.state;
    const size_t index = f.index;
    const size_t block = f.block;
    std::vector<bool> seen(f.blocks.size());
    std::vector<uint32_t> pending{static_cast<uint32_t>(block)};
    std::optional<branch_way> found;
    while (!pending.empty() && !found) {
        const uint32_t at = pending.back();
        pending.pop_back();
        for (const uint32_t from : f.blocks[at].before) {
            if (!f.blocks[from].in || seen[from])
                continue;
            f.block = from;
            if (!transfer_block(f, *f.blocks[from].in) || !may_continue_at(f, at))
                continue;
            const int bad = badness(f.state, at);
            if (bad == 2) {
                found = branch_before(f, from, at);
                break;
            }
            seen[from] = true;
            if (bad == 1)
                pending.push_back(from);
        }
    }
    f.result = result;
    f.state = state;
    f.index = index;
    f.block = block;
    return found;
}

std::optional<branch_way> way_of_change(function_context& f, register_part part)
{
    if (!f.state.parts[part].mixed)
        return std::nullopt;
    return find_way(f, [part](const flow_state& s, uint32_t) {
        const value& v = s.parts[part];
        if (v.is_initial_of(part))
            return 0;
        return v.mixed ? 1 : 2;
    });
}

std::optional<branch_way> way_of_sp(function_context& f, const value& sp)
{
    if (sp.what != sp_differs)
        return std::nullopt;
    const auto at_entry = [&](size_t block) -> const value& {
        return f.blocks[block].in->parts[stack_pointer];
    };
    // What SP must be at the beginning of a block, to be here what it was at the kernel's entry.
    std::vector<int64_t> wanted(f.blocks.size());
    wanted[f.block] = int64_t{at_entry(f.block).offset} - sp.offset;
    return find_way(f, [&](const flow_state& s, uint32_t next) {
        const value& v = s.parts[stack_pointer];
        if (v.what == sp_differs) {
            wanted[f.block] = wanted[next] - (int64_t{v.offset} - at_entry(f.block).offset);
            return 1;
        }
        return v.what == stack_pointer && (v.offset != wanted[next] || v.scale != 0) ? 2 : 0;
    });
}

} // namespace vorna::workbench::flow
