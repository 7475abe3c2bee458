#include "workbench/analysis/interface.hpp"

#include "workbench/analysis/data_flow.hpp"
#include "workbench/disasm/features.hpp"
#include "workbench/disasm/register_effect.hpp"

#include <algorithm>
#include <utility>

namespace vorna::workbench {

namespace {

std::string name_of_register(std::size_t r)
{
    if (r == stack_pointer)
        return "sp";
    if (r == condition_flags)
        return "nzcv";
    if (r == first_fault_register)
        return "ffr";
    if (r < vector_register(0))
        return "x" + std::to_string(r);
    if (r < predicate_register(0))
        return "v" + std::to_string(r - vector_register(0));
    return "p" + std::to_string(r - predicate_register(0));
}

// The parts as registers: the largest view of a vector register that is among them.
std::vector<std::string> names_of_parts(const part_set& parts)
{
    std::vector<std::string> names;
    const auto add_if = [&](register_part part) {
        if (parts[part])
            names.push_back(name_of_part(part));
    };
    for (unsigned r = 0; r <= stack_pointer; ++r)
        add_if(static_cast<register_part>(r));
    for (unsigned v = 0; v < 32; ++v) {
        for (const register_part part : {rest_of_z(v), rest_of_q(v), low_half(v)}) {
            if (parts[part]) {
                names.push_back(name_of_part(part));
                break;
            }
        }
    }
    for (unsigned p = 0; p < 16; ++p)
        add_if(predicate_part(p));
    add_if(first_fault_part);
    add_if(flags_part);
    return names;
}

bool is_call_of_other(const decoded_kernel& code, std::size_t index)
{
    return code.instructions[index].is_call() && !successors_of(code, index).target;
}

// Registers that some return leaves changed, other than by a call of another kernel.
std::vector<std::string> names_of_written(const decoded_kernel& code, const kernel_flow& flow)
{
    part_set changed;
    part_set scalable;
    for (const flow_exit& exit : flow.exits) {
        for (const changed_part& part : exit.changed) {
            const bool by_call = is_call_of_other(code, part.changed) && is_call_of_other(code, part.last);
            if (exit.local || (by_call && part.part != link_register))
                continue;
            changed.set(part.part);
            if (part.scalable)
                scalable.set(part.part);
        }
    }
    for (unsigned v = 0; v < 32; ++v) {
        // Every write of a vector register clears what is above it.
        if (!scalable[rest_of_z(v)])
            changed.reset(rest_of_z(v));
    }
    std::vector<std::string> names = names_of_parts(changed);
    for (unsigned v = 0; v < 32; ++v) {
        if (changed[low_half(v)] || changed[rest_of_z(v)] || !changed[rest_of_q(v)])
            continue;
        std::replace(names.begin(), names.end(), name_of_part(rest_of_q(v)),
                     "v" + std::to_string(v) + ".d[1]");
    }
    return names;
}

void add_once(std::vector<std::string>& names, const std::string& name)
{
    if (std::find(names.begin(), names.end(), name) == names.end())
        names.push_back(name);
}

void find_peaks(const decoded_kernel& code, const code_map& map, kernel_interface& made,
                const std::vector<register_set>& live)
{
    const auto count = [](const register_set& set, register_id first, unsigned number) {
        unsigned found = 0;
        for (unsigned r = first; r < first + number; ++r)
            found += set[r] ? 1U : 0U;
        return found;
    };
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        if (map.uses[i] != word_use::code)
            continue;
        const auto look = [&](live_peak& peak, register_id first, unsigned number) {
            const unsigned here = count(live[i], first, number);
            if (here > peak.most)
                peak = {here, 4 * i};
        };
        look(made.general, general_register(0), 31); // SP is always live
        look(made.vector, vector_register(0), 32);
        look(made.predicate, predicate_register(0), 16);
    }
}

// The data flow loses an argument where ways join on which other registers hold it; liveness does not.
part_set with_live_arguments(part_set reads, const std::vector<register_set>& live)
{
    if (live.empty())
        return reads;
    for (unsigned r = 0; r <= 8; ++r) {
        if (live.front()[general_register(r)])
            reads.set(r);
    }
    for (unsigned v = 0; v <= 7; ++v) {
        const bool known = reads[low_half(v)] || reads[rest_of_q(v)] || reads[rest_of_z(v)];
        if (live.front()[vector_register(v)] && !known)
            reads.set(rest_of_q(v));
    }
    return reads;
}

// Whether it writes the floating-point control register.
bool changes_control(const decoded_kernel& code, const code_map& map)
{
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        const instruction& at = code.instructions[i];
        if (map.uses[i] == word_use::code && effect_of(code, at) == register_effect::write_system &&
            system_register_of(code, at) == system_register::fpcr)
            return true;
    }
    return false;
}

void find_calls(const decoded_kernel& code, const code_map& map, kernel_interface& made)
{
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        const instruction& at = code.instructions[i];
        if (map.uses[i] != word_use::code)
            continue;
        if (at.flow == control_flow::indirect_call)
            add_once(made.calls, name_of_part(operands_of(code, at)[0].registers[0]));
        if (at.relocated != word_relocation::fits)
            continue;
        const tessjit::reloc_info& relocation = code.kernel->relocs[at.relocation];
        if (at.flow == control_flow::call)
            add_once(made.calls, relocation.name);
        made.reads_constants = made.reads_constants || wfta::is_own_data(code.kernel->name, relocation.name);
    }
}

void find_features(const decoded_kernel& code, const code_map& map, kernel_interface& made)
{
    feature_set needed;
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        if (map.uses[i] == word_use::code)
            needed |= features_of(code.instructions[i]);
    }
    made.needs = feature_names(needed);
}

void find_saves(const kernel_flow& flow, kernel_interface& made)
{
    std::vector<flow_fact> saves;
    for (const flow_fact& fact : flow.facts) {
        if (fact.event == flow_event::saves)
            saves.push_back(fact);
    }
    std::sort(saves.begin(), saves.end(), [](const flow_fact& a, const flow_fact& b) {
        return std::pair(a.index, a.part) < std::pair(b.index, b.part);
    });
    for (const flow_fact& fact : saves) {
        const std::string name = name_of_part(fact.part);
        const bool known = std::any_of(made.saves.begin(), made.saves.end(),
                                       [&](const saved_register& saved) { return saved.name == name; });
        if (!known)
            made.saves.push_back({name, fact.offset, 4 * fact.index});
    }
}

} // namespace

std::vector<std::string> names_of(const register_set& set)
{
    std::vector<std::string> names;
    for (std::size_t r = 0; r < register_count; ++r) {
        if (set[r])
            names.push_back(name_of_register(r));
    }
    return names;
}

kernel_interface interface_of(const decoded_kernel& code, const code_map& map, const callee_reads& reads)
{
    kernel_interface made;
    const kernel_flow flow = follow_kernel(code, map);
    const std::vector<register_set> live = find_live_registers(code, map, reads);
    made.reads = names_of_parts(with_live_arguments(flow.reads, live));
    if (flow.reads_stack_arguments)
        made.reads.emplace_back("sp");
    made.writes = names_of_written(code, flow);
    if (changes_control(code, map))
        made.writes.emplace_back("fpcr");
    find_saves(flow, made);
    find_calls(code, map, made);
    find_features(code, map, made);
    made.stack = flow.stack;
    find_peaks(code, map, made, live);
    made.spill_stores = flow.spill_stores;
    made.spill_loads = flow.spill_loads;
    made.returns_elsewhere = flow.returns_elsewhere;
    made.followed = flow.followed;
    for (const flow_exit& exit : flow.exits)
        made.returns_elsewhere = made.returns_elsewhere || (exit.returns_elsewhere && !exit.local);
    for (const flow_fact& fact : flow.facts)
        made.returns_elsewhere = made.returns_elsewhere || fact.reason == unfollowed_reason::jump;
    return made;
}

} // namespace vorna::workbench
