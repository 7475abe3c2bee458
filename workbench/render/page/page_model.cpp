#include "workbench/render/page/page_model.hpp"

#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/difference.hpp"
#include "workbench/analysis/interface.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/render/cost_text.hpp"
#include "workbench/render/interface_text.hpp"
#include "workbench/render/json.hpp"
#include "workbench/render/page/page_cost.hpp"
#include "workbench/render/page/page_listing.hpp"
#include "workbench/text/percent.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <set>
#include <unordered_set>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t longest_id = 200;
constexpr std::uint64_t most_padding = 31; // code begins at multiples of 32 bytes

constexpr const char* severity_names[] = {"note", "warning", "error"}; // by severity

/// A class of changes as the page shows it: the tone is the colour's name in style.css.
struct class_look {
    change_class change;
    const char* tone;
    const char* meaning;
};

/// The first is what a reader should look at first.
constexpr class_look class_looks[] = {
    {change_class::code, "loud", "other instructions"},
    {change_class::relocations, "medium", "other relocations"},
    {change_class::added, "added", "only after the change"},
    {change_class::removed, "removed", "only before the change"},
    {change_class::order, "quiet-1", "the same instructions in another order"},
    {change_class::registers, "quiet-2", "the same instructions with other registers"},
    {change_class::layout, "quiet-3", "the same constants at other offsets"},
    {change_class::constants, "quiet-4", "other bytes of constants"},
    {change_class::same, "same", "no difference"},
};

/// A kernel of the page: of the set, or, if it was removed, of the set before.
struct entry {
    const placed_kernel* kernel = nullptr;
    const placed_kernel* before = nullptr; ///< in the set before, if it is in both
    change_class change = change_class::same;
    std::string id;
    const kernel_profile* profile = nullptr;
    kernel_interface interface = {};
    std::array<std::size_t, 6> counts = {}; ///< of instructions, by class
    page_cost cost = {};
};

struct model {
    const page_input* input = nullptr;
    std::vector<entry> entries; ///< the set's kernels in their order, then those that were removed
    std::unordered_map<std::string, std::size_t> index; ///< of the first entry of each name
};

void add_entries(model& model)
{
    const kernel_set& set = *model.input->set;
    for (const placed_kernel& kernel : set.kernels)
        model.entries.push_back({&kernel, nullptr, change_class::same, ""});
    if (model.input->against == nullptr)
        return;
    for (const kernel_difference& difference : compare_sets(*model.input->against, set)) {
        if (difference.after == nullptr) {
            model.entries.push_back({difference.before, nullptr, change_class::removed, ""});
            continue;
        }
        entry& one = model.entries[static_cast<std::size_t>(difference.after - set.kernels.data())];
        one.before = difference.before;
        one.change = difference.change;
    }
}

void choose_ids(model& model)
{
    std::unordered_set<std::string> taken;
    for (std::size_t i = 0; i < model.entries.size(); ++i) {
        entry& one = model.entries[i];
        one.id = fragment(one.kernel->name);
        if (one.id.empty() || one.id.size() > longest_id || !taken.insert(one.id).second)
            one.id = fmt::format("kernel:{}", i);
        model.index.emplace(one.kernel->name, i);
    }
}

page_cost cost_of(const page_input& input, const entry& one, const decoded_kernel& code, const code_map& map,
                  disassembler& disassembler)
{
    page_cost_input of = {*one.kernel, code, map};
    of.is_listed = one.kernel->text.size() <= most_listed_bytes;
    if (one.before == nullptr || one.before->text.size() > largest_decoded_code)
        return make_page_cost(of, *input.processors, disassembler);
    const decoded_kernel before = decode_kernel(*one.before);
    const code_map map_before = map_code(before, find_entries(*input.against, *one.before));
    of.code_before = &before;
    of.map_before = &map_before;
    return make_page_cost(of, *input.processors, disassembler);
}

void analyse(const page_input& input, entry& one, argument_reads& reads, disassembler& disassembler)
{
    const kernel_set& set = one.change == change_class::removed ? *input.against : *input.set;
    const decoded_kernel code = decode_kernel(*one.kernel);
    for (const instruction& at : code.instructions)
        ++one.counts[static_cast<std::size_t>(class_of(code, at))];
    one.interface.followed = one.kernel->text.size() <= largest_decoded_code;
    if (!one.interface.followed)
        return;
    const code_map map = map_code(code, find_entries(set, *one.kernel));
    one.interface = interface_of(code, map, reads.by_calls_in(*one.kernel));
    if (input.processors != nullptr)
        one.cost = cost_of(input, one, code, map, disassembler);
}

model collect(const page_input& input)
{
    model model;
    model.input = &input;
    add_entries(model);
    choose_ids(model);
    disassembler disassembler;
    argument_reads reads(*input.set);
    argument_reads reads_before(input.against != nullptr ? *input.against : *input.set);
    for (std::size_t i = 0; i < model.entries.size(); ++i) {
        if (input.progress)
            input.progress(i, model.entries.size());
        entry& one = model.entries[i];
        analyse(input, one, one.change == change_class::removed ? reads_before : reads, disassembler);
    }
    if (input.profile != nullptr) {
        for (const kernel_profile& kernel : input.profile->kernels)
            model.entries[kernel.kernel].profile = &kernel;
    }
    return model;
}

// ---- Mappings

struct range {
    std::uint64_t begin;
    std::uint64_t end;
};

/// By mapping: what the kernels of the set occupy.
std::vector<std::vector<range>> used_ranges(const kernel_set& set)
{
    std::vector<std::vector<range>> used(set.mappings.size());
    for (const placed_kernel& kernel : set.kernels) {
        used[kernel.mapping].push_back({kernel.text_address, kernel.text_end()});
        used[kernel.mapping].push_back({kernel.data_address, kernel.data_end()});
    }
    return used;
}

/// What lies between the ranges, from `begin` on, ascending.
std::vector<range> find_gaps(std::vector<range> used, std::uint64_t begin)
{
    std::sort(used.begin(), used.end(), [](const range& a, const range& b) { return a.begin < b.begin; });
    std::vector<range> gaps;
    for (const range& one : used) {
        if (one.begin == one.end)
            continue;
        if (one.begin > begin)
            gaps.push_back({begin, one.begin});
        begin = std::max(begin, one.end);
    }
    return gaps;
}

json mapping_json(const kernel_mapping& mapping, const std::vector<range>& used)
{
    std::uint64_t padding = 0;
    json unknown = json::array();
    for (const range& gap : find_gaps(used, mapping.begin)) {
        if (gap.end - gap.begin <= most_padding)
            padding += gap.end - gap.begin;
        else
            unknown.push_back({gap.begin - mapping.begin, gap.end - gap.begin});
    }
    return {{"address", fmt::format("{:#x}", mapping.begin)},
            {"size", mapping.end - mapping.begin},
            {"data_at", mapping.data_begin - mapping.begin},
            {"padding", padding},
            {"unknown", std::move(unknown)}};
}

// ---- Kernels

std::vector<std::size_t> find_callees(const model& model, const placed_kernel& kernel)
{
    std::set<std::size_t> callees;
    for (const tessjit::reloc_info& relocation : kernel.relocs) {
        const auto callee = model.index.find(relocation.name);
        if (callee != model.index.end() && !names_data(relocation.name) &&
            !leads_elsewhere(*model.input->set, kernel, relocation))
            callees.insert(callee->second);
    }
    return {callees.begin(), callees.end()};
}

json kernel_json(const model& model, const entry& one)
{
    const placed_kernel& kernel = *one.kernel;
    const bool removed = one.change == change_class::removed;
    json made = {{"id", one.id},
                 {"name", kernel.name.empty() ? "(no name)" : printable(kernel.name)},
                 {"address", fmt::format("{:#x}", kernel.text_address)},
                 {"data_address", fmt::format("{:#x}", kernel.data_address)}};
    if (!removed) {
        const std::uint64_t begin = model.input->set->mappings[kernel.mapping].begin;
        made["mapping"] = kernel.mapping;
        made["at"] = kernel.text_address - begin;
        made["data_at"] = kernel.data_address - begin;
    }
    made["code"] = kernel.text.size();
    made["data"] = kernel.data.size();
    made["instructions"] = kernel.text.size() / 4;
    made["load"] = one.counts[0];
    made["store"] = one.counts[1];
    made["fp"] = one.counts[2];
    made["integer"] = one.counts[3];
    made["branch"] = one.counts[4];
    made["callees"] = find_callees(model, kernel);
    made["interface"] = interface_json(one.interface);
    made["spills"] = one.interface.spill_stores + one.interface.spill_loads;
    if (model.input->processors != nullptr)
        made["cycles"] = one.cost.cycles;
    if (model.input->profile != nullptr && !removed) {
        const sample_count count = one.profile == nullptr ? sample_count() : one.profile->count;
        const std::uint64_t whole = model.input->profile->total.period;
        made["samples"] = count.samples;
        made["period"] = count.period;
        made["time"] = percent(count.period, whole);
        made["time_text"] = percent_text(count.period, whole);
    }
    if (model.input->against != nullptr) {
        made["class"] = name_of(one.change);
        if (one.before != nullptr)
            made["delta"] = static_cast<std::int64_t>(kernel.text.size() / 4) -
                            static_cast<std::int64_t>(one.before->text.size() / 4);
        if (model.input->processors != nullptr && one.before != nullptr)
            made["cycles_delta"] = one.cost.delta;
    }
    return made;
}

// ---- The rest

json finding_json(const model& model, const wfta::kernel_finding& finding)
{
    const auto kernel = model.input->set->by_name.find(finding.kernel);
    json made = {{"id", name_of(finding.id)},
                 {"severity", severity_names[static_cast<std::size_t>(finding.severity)]}};
    if (kernel != model.input->set->by_name.end())
        made["kernel"] = kernel->second;
    if (finding.offset)
        made["offset"] = *finding.offset;
    const std::string name = finding.kernel.empty() ? "(no name)" : finding.kernel;
    made["place"] = finding.offset ? place_text(name, *finding.offset) : place_text(name);
    made["message"] = printable(finding.message);
    made["help"] = printable(finding.help);
    return made;
}

json profile_json(const event_profile& profile)
{
    json made = {{"event", printable(profile.event)},
                 {"samples", profile.total.samples},
                 {"period", profile.total.period},
                 {"exact", is_exact(profile)}};
    const auto add = [&](const char* name, const sample_count& count) {
        made[name] = {{"period", count.period},
                      {"time", percent(count.period, profile.total.period)},
                      {"time_text", percent_text(count.period, profile.total.period)}};
    };
    add("in_kernels", profile.in_kernels);
    add("unknown", profile.unknown);
    add("elsewhere", profile.elsewhere);
    return made;
}

json overview_json(const model& model)
{
    const page_input& input = *model.input;
    json mappings = json::array();
    const std::vector<std::vector<range>> used = used_ranges(*input.set);
    for (std::size_t i = 0; i < used.size(); ++i)
        mappings.push_back(mapping_json(input.set->mappings[i], used[i]));
    json findings = json::array();
    for (const wfta::kernel_finding& finding : input.findings)
        findings.push_back(finding_json(model, finding));
    json kernels = json::array();
    for (const entry& one : model.entries)
        kernels.push_back(kernel_json(model, one));
    json made = {
        {"version", json_version}, {"name", printable(input.name)}, {"mappings", std::move(mappings)}};
    if (input.profile != nullptr)
        made["profile"] = profile_json(*input.profile);
    if (input.against != nullptr) {
        made["against"] = printable(input.against_name);
        made["classes"] = json::array();
        for (const class_look& look : class_looks)
            made["classes"].push_back(
                {{"name", name_of(look.change)}, {"tone", look.tone}, {"meaning", look.meaning}});
    }
    if (input.processors != nullptr) {
        made["llvm"] = llvm_version();
        made["estimate"] = cost_disclaimer();
        made["processors"] = json::array();
        for (const auto& one : *input.processors)
            made["processors"].push_back(
                {{"name", one->processor().name}, {"model", one->processor().model}});
    }
    made["findings"] = std::move(findings);
    made["kernels"] = std::move(kernels);
    return made;
}

page_listing_input listing_input(const model& model, const entry& one)
{
    page_listing_input input;
    const bool removed = one.change == change_class::removed;
    input.set = removed ? model.input->against : model.input->set;
    input.kernel = one.kernel;
    if (one.change != change_class::same && one.before != nullptr) {
        input.set_before = model.input->against;
        input.before = one.before;
    }
    input.profile = one.profile;
    if (model.input->processors != nullptr)
        input.cost = &one.cost;
    input.interface = &one.interface;
    input.index = &model.index;
    return input;
}

} // namespace

std::string fragment(std::string_view name)
{
    std::string result;
    for (const char c : name) {
        const bool itself = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                            c == '_' || c == '-' || c == '.';
        if (itself)
            result += c;
        else
            result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return result;
}

page_model make_page_model(const page_input& input)
{
    const model model = collect(input);
    page_model made;
    made.overview = overview_json(model).dump();
    disassembler disassembler;
    for (const entry& one : model.entries)
        made.listings.push_back(make_page_listing(listing_input(model, one), disassembler));
    return made;
}

} // namespace vorna::workbench
