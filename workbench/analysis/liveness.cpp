// The usual backward analysis over basic blocks. Before it, a forward analysis finds which argument registers
// the kernel may have set: these are what a return uses, and a call of what is not known.
//
// What a callee reads is what is live at its beginning. This is known only if all that it calls is known,
// too.

#include "workbench/analysis/liveness.hpp"

#include "workbench/analysis/address_tracking.hpp"
#include "workbench/analysis/calling_convention.hpp"
#include "workbench/disasm/register_effect.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace vorna::workbench {

namespace {

using std::size_t;
using std::uint32_t;

struct block : basic_block {
    register_set set;  // argument registers that may be set before it
    register_set live; // before it
};

class analysis {
public:
    analysis(const decoded_kernel& code, const code_map& map, const callee_reads& reads)
        : code_(code), reads_(reads)
    {
        for (basic_block& found : find_blocks(code, map, most_followed_blocks))
            blocks_.push_back({std::move(found), {}, {}});
    }

    std::vector<register_set> run()
    {
        std::vector<register_set> live(code_.instructions.size());
        find_set();
        find_live();
        for (const block& b : blocks_) {
            const std::vector<register_set> set = set_in(b);
            register_set after = live_after(b);
            for (size_t i = b.end; i-- > b.begin;)
                live[i] = after = live_before(i, after, set[i - b.begin]);
        }
        return live;
    }

private:
    // Argument registers that the kernel may have set after an instruction.
    [[nodiscard]] register_set set_after(size_t index, const register_set& before) const
    {
        const instruction& at = code_.instructions[index];
        static const register_set results = register_set().set(general_register(0)).set(vector_register(0));
        if (at.is_call())
            return results;
        register_set defs = defs_of(code_, at);
        if (const auto access = memory_access_of(code_, at);
            access && access->moves_base() && access->base < register_count)
            defs.reset(access->base);
        return before | (defs & argument_registers());
    }

    [[nodiscard]] std::vector<register_set> set_in(const block& b) const
    {
        std::vector<register_set> set;
        set.reserve(b.end - b.begin);
        register_set now = b.set;
        for (size_t i = b.begin; i < b.end; ++i) {
            set.push_back(now);
            now = set_after(i, now);
        }
        return set;
    }

    void find_set()
    {
        std::vector<uint32_t> pending(blocks_.size());
        for (uint32_t i = 0; i < blocks_.size(); ++i)
            pending[i] = static_cast<uint32_t>(blocks_.size()) - 1 - i;
        std::vector<bool> waits(blocks_.size(), true);
        while (!pending.empty()) {
            const uint32_t number = pending.back();
            pending.pop_back();
            waits[number] = false;
            register_set now = blocks_[number].set;
            for (size_t i = blocks_[number].begin; i < blocks_[number].end; ++i)
                now = set_after(i, now);
            for (const uint32_t to : blocks_[number].after) {
                const register_set joined = blocks_[to].set | now;
                if (joined == blocks_[to].set)
                    continue;
                blocks_[to].set = joined;
                if (!waits[to]) {
                    waits[to] = true;
                    pending.push_back(to);
                }
            }
        }
    }

    [[nodiscard]] std::optional<register_set> reads_of_callee(const instruction& at) const
    {
        return reads_ && at.relocated == word_relocation::fits ? reads_(at.relocation) : std::nullopt;
    }

    [[nodiscard]] register_set live_after(const block& b) const
    {
        register_set live;
        for (const uint32_t to : b.after)
            live |= blocks_[to].live;
        return live;
    }

    [[nodiscard]] register_set live_before(size_t index, register_set live, const register_set& set) const
    {
        const instruction& at = code_.instructions[index];
        const bool leaves = at.flow == control_flow::jump ||
                            (at.flow == control_flow::branch && at.relocated != word_relocation::none);
        if (at.is_call())
            live &= preserved_registers();
        if (at.is_call() || leaves)
            live |= reads_of_callee(at).value_or(set);
        if (at.flow == control_flow::exit) {
            for (const register_id result : {general_register(0), vector_register(0)}) {
                if (set[result])
                    live.set(result);
            }
        }
        live &= ~defs_of(code_, at);
        live |= values_used(code_, at);
        return live;
    }

    void find_live()
    {
        std::vector<uint32_t> pending(blocks_.size());
        for (uint32_t i = 0; i < blocks_.size(); ++i)
            pending[i] = i;
        std::vector<bool> waits(blocks_.size(), true);
        while (!pending.empty()) {
            const uint32_t number = pending.back();
            pending.pop_back();
            waits[number] = false;
            block& b = blocks_[number];
            const std::vector<register_set> set = set_in(b);
            register_set live = live_after(b);
            for (size_t i = b.end; i-- > b.begin;)
                live = live_before(i, live, set[i - b.begin]);
            if (live == b.live)
                continue;
            b.live = live;
            for (const uint32_t from : b.before) {
                if (!waits[from]) {
                    waits[from] = true;
                    pending.push_back(from);
                }
            }
        }
    }

    const decoded_kernel& code_;
    const callee_reads& reads_;
    std::vector<block> blocks_;
};

// Whether all uses of a kernel's arguments are in its own code, or in callees that are known.
bool has_known_uses(const decoded_kernel& code, const code_map& map, const callee_reads& reads)
{
    if (map.any_entry || code.instructions.empty())
        return false;
    for (size_t i = 0; i < code.instructions.size(); ++i) {
        const instruction& at = code.instructions[i];
        if (map.uses[i] != word_use::code)
            continue;
        if (!at.decoded || at.relocated == word_relocation::unclear)
            return false;
        switch (at.flow) {
        case control_flow::next:
        case control_flow::exit:
        case control_flow::trap:
            break;
        case control_flow::conditional:
            if (!successors_of(code, i).target)
                return false;
            break;
        case control_flow::branch:
        case control_flow::call:
            if (at.relocated == word_relocation::fits ? !reads(at.relocation)
                                                      : at.is_call() || !successors_of(code, i).target)
                return false;
            break;
        default:
            return false;
        }
    }
    return true;
}

constexpr unsigned most_nested_callees = 64;

} // namespace

register_set values_used(const decoded_kernel& code, const instruction& instruction)
{
    if (effect_of(code, instruction) == register_effect::clear)
        return implicit_uses_of(instruction);
    return uses_of(code, instruction);
}

std::vector<register_set> find_live_registers(const decoded_kernel& code, const code_map& map,
                                              const callee_reads& reads)
{
    return analysis(code, map, reads).run();
}

callee_reads argument_reads::by_calls_in(const placed_kernel& caller)
{
    return [this, &caller](size_t relocation) -> std::optional<register_set> {
        const tessjit::reloc_info& target = caller.relocs[relocation];
        const auto callee = set_.by_name.find(target.name);
        if (callee == set_.by_name.end() || target.addend != 0)
            return std::nullopt;
        return of(callee->second);
    };
}

std::optional<register_set> argument_reads::of(size_t kernel)
{
    const placed_kernel& callee = set_.kernels[kernel];
    if (callee.text.size() > largest_decoded_code || depth_ == most_nested_callees)
        return std::nullopt;
    const auto [at, added] = found_.try_emplace(kernel);
    if (!added)
        return at->second;
    ++depth_;
    const decoded_kernel code = decode_kernel(callee);
    const code_map map = map_code(code, find_entries(set_, callee));
    const callee_reads reads = by_calls_in(callee);
    std::optional<register_set> found;
    if (has_known_uses(code, map, reads) && !find_blocks(code, map, most_followed_blocks).empty())
        found = find_live_registers(code, map, reads).front() & argument_registers();
    --depth_;
    found_[kernel] = found;
    return found;
}

} // namespace vorna::workbench
