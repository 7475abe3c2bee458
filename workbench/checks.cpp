#include "workbench/checks.hpp"

#include "workbench/placed_check.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vorna::workbench {

using wfta::checked_kernel;
using wfta::target_place;

// For each kernel, whether the process may have ended with it: the last of its mapping, before which none is
// missing, so that it is not the dumps that are incomplete.
static std::vector<bool> find_last_kernels(const kernel_set& set)
{
    std::vector<bool> last(set.kernels.size());
    bool complete = false;
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        const std::uint64_t begin = set.mappings[kernel.mapping].begin;
        if (i == 0 || set.kernels[i - 1].mapping != kernel.mapping) {
            complete = kernel.text_address == begin;
        } else {
            const placed_kernel& before = set.kernels[i - 1];
            const std::uint64_t size = before.text_end() - begin;
            complete = complete && kernel.text_address - begin == ((size + 31) & ~std::uint64_t{31}) &&
                       kernel.data_address == before.data_end();
        }
        const bool ends = i + 1 == set.kernels.size() || set.kernels[i + 1].mapping != kernel.mapping;
        last[i] = ends && complete;
    }
    return last;
}

std::vector<wfta::kernel_finding> check_dumps(const kernel_set& set)
{
    std::unordered_map<std::string_view, std::vector<std::size_t>> by_name;
    by_name.reserve(set.kernels.size());
    std::vector<checked_kernel> checked;
    checked.reserve(set.kernels.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        std::vector<std::size_t>& same_name = by_name[kernel.name];
        std::string name_taken;
        if (!same_name.empty() && set.kernels[same_name.back()].mapping == kernel.mapping)
            name_taken =
                "another kernel of this name lies in the same mapping: " + set.kernels[same_name.back()].file;
        same_name.push_back(i);
        checked.push_back({&kernel.name, &kernel.text, &kernel.data, &kernel.relocs, kernel.text_address,
                           kernel.data_address, std::move(name_taken)});
    }

    const std::vector<bool> last = find_last_kernels(set);
    using where = target_place::where;
    const wfta::target_finder find = [&](std::size_t kernel, const std::string& name) -> target_place {
        const auto named = by_name.find(name);
        if (named == by_name.end())
            return {last[kernel] ? where::nowhere : where::unknown, 0};
        // Of several registries, the own. Kernels are in the order of their mappings.
        const auto own =
            std::lower_bound(named->second.begin(), named->second.end(), set.kernels[kernel].mapping,
                             [&](std::size_t candidate, std::size_t mapping) {
                                 return set.kernels[candidate].mapping < mapping;
                             });
        const bool found =
            own != named->second.end() && set.kernels[*own].mapping == set.kernels[kernel].mapping;
        const std::size_t target = found ? *own : named->second.front();
        if (target > kernel && set.kernels[target].mapping == set.kernels[kernel].mapping)
            return {where::later, 0};
        return {where::placed, set.kernels[target].text_address};
    };
    return check_placed(checked, find, {}, wfta::address_kind::real);
}

} // namespace vorna::workbench
