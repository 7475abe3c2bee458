#include "workbench/analysis/check_dumps.hpp"

#include "check/engine.hpp"
#include "workbench/analysis/instruction_findings.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vorna::workbench {

using wfta::checked_kernel;
using wfta::relocation_target;

// For each kernel, whether the process may have aborted at it: whether it is the last of its mapping and no
// dump before it is missing. A single dump proves nothing: a pattern may have selected it.
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
        last[i] = ends && complete && set.kernels.size() > 1;
    }
    return last;
}

std::vector<wfta::kernel_finding> check_dumps(const kernel_set& set, const wfta::analysis_options& options)
{
    std::unordered_map<std::string_view, std::vector<std::size_t>> by_name;
    by_name.reserve(set.kernels.size());
    std::vector<checked_kernel> checked;
    checked.reserve(set.kernels.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        std::vector<std::size_t>& same_name = by_name[kernel.name];
        std::string first_of_name;
        if (!same_name.empty() && set.kernels[same_name.back()].mapping == kernel.mapping)
            first_of_name = "in " + set.kernels[same_name.back()].file + ", of the same mapping";
        same_name.push_back(i);
        checked.push_back({&kernel.name, &kernel.text, &kernel.data, &kernel.relocs, kernel.text_address,
                           kernel.data_address, std::move(first_of_name)});
    }

    const std::vector<bool> last = find_last_kernels(set);
    using where = relocation_target::where;
    const wfta::target_finder find = [&](std::size_t kernel, const std::string& name) -> relocation_target {
        const auto named = by_name.find(name);
        if (named == by_name.end())
            return {last[kernel] ? where::nowhere : where::unknown, 0};
        // With several registries, the kernel of the same mapping. Kernels are ordered by mapping.
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
        return {where::placed, set.kernels[target].text_address,
                set.kernels[target].mapping != set.kernels[kernel].mapping};
    };
    return with_instruction_findings(check_placed(checked, find, {}, wfta::address_kind::real), set, find,
                                     options);
}

std::optional<std::string> find_mixture(const kernel_set& set,
                                        const std::vector<wfta::kernel_finding>& findings)
{
    constexpr const char* what = "dumps of more than one run or registry";
    constexpr const char* remedy = "use a directory for each";
    std::unordered_map<std::string_view, std::size_t> names; // kernels of each name; filled on first use
    const auto is_unambiguous = [&](std::string_view name) {
        if (names.empty()) {
            for (const placed_kernel& kernel : set.kernels)
                ++names[kernel.name];
        }
        const auto found = names.find(name);
        return found == names.end() || found->second == 1;
    };
    const wfta::kernel_finding* end = nullptr; // where the process aborted, as far as known
    const auto place = [](const wfta::kernel_finding& finding) {
        return finding.offset ? place_text(finding.kernel, *finding.offset) : place_text(finding.kernel);
    };
    for (const wfta::kernel_finding& finding : findings) {
        if (!finding.aborts || finding.id == wfta::finding_id::unknown_target)
            continue;
        if (finding.id == wfta::finding_id::duplicate_name)
            return fmt::format("{}: two kernels {} lie in one mapping; {}", what, printable(finding.kernel),
                               remedy);
        const placed_kernel& kernel = set.kernels[finding.index];
        const std::string& target = kernel.relocs[*finding.relocation].name;
        if (!is_unambiguous(kernel.name) ||
            (finding.id == wfta::finding_id::range && !is_unambiguous(target)))
            continue;
        const auto next = finding.index + 1;
        if (next < set.kernels.size() && set.kernels[next].mapping == kernel.mapping) {
            return fmt::format("{}: {} would have ended the process [{}], but {} was placed after it; {}",
                               what, place(finding), name_of(finding.id), printable(set.kernels[next].name),
                               remedy);
        }
        if (end != nullptr && end->kernel != finding.kernel)
            return fmt::format("{}: {} [{}] and {} [{}] would each have ended the process; {}", what,
                               place(*end), name_of(end->id), place(finding), name_of(finding.id), remedy);
        end = &finding;
    }
    return std::nullopt;
}

void refuse_mixture(const kernel_set& set, const std::vector<wfta::kernel_finding>& findings)
{
    if (const auto mixture = find_mixture(set, findings))
        throw std::runtime_error(*mixture);
}

} // namespace vorna::workbench
