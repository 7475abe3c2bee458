#include "workbench/analysis/interface.hpp"

#include "workbench/analysis/calling_convention.hpp"
#include "workbench/analysis/liveness.hpp"
#include "workbench/disasm/features.hpp"

#include <algorithm>
#include <elf.h>
#include <string_view>

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

kernel_interface interface_of(const decoded_kernel& code, const code_map& map)
{
    kernel_interface made;
    const std::vector<register_set> live = find_live_registers(code, map);
    find_peaks(code, map, made, live);
    register_set written;
    feature_set needed;
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        const instruction& at = code.instructions[i];
        if (map.uses[i] != word_use::code)
            continue;
        written |= defs_of(code, at);
        needed |= features_of(at);
        made.followed = made.followed && at.decoded && at.flow != control_flow::jump;
        if (at.flow == control_flow::indirect_call)
            add_once(made.calls, name_of_register(operands_of(code, at)[0].registers[0]));
        if (at.relocated != word_relocation::fits)
            continue;
        const tessjit::reloc_info& relocation = code.kernel->relocs[at.relocation];
        if (relocation.type == R_AARCH64_CALL26)
            add_once(made.calls, relocation.name);
        made.reads_constants = made.reads_constants || wfta::is_own_data(code.kernel->name, relocation.name);
    }
    register_set read = live.empty() ? register_set() : live.front();
    read.reset(link_register);
    read.reset(stack_pointer);
    made.reads = names_of(read & ~preserved_registers());
    made.needs = feature_names(needed);
    made.writes = names_of(written & ~preserved_registers());
    return made;
}

} // namespace vorna::workbench
