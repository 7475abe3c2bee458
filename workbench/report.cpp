#include "workbench/report.hpp"

#include "workbench/a64.hpp"
#include "workbench/difference.hpp"
#include "workbench/html.hpp"
#include "workbench/json.hpp"
#include "workbench/linking.hpp"
#include "workbench/listing.hpp"
#include "workbench/output.hpp"
#include "workbench/report_listing.hpp"
#include "workbench/report_template.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <unordered_set>

namespace vorna::workbench {

namespace {

constexpr std::size_t most_at_once =
    200; // kernels: of more the script draws the listings, and shows the table in parts
constexpr std::size_t most_listed_instructions = 50000;
constexpr std::size_t longest_id = 200;
constexpr std::size_t most_named = 12; // of a list of kernels

struct severity_counts {
    std::array<std::size_t, 3> of{}; // by severity
    [[nodiscard]] std::size_t all() const { return of[0] + of[1] + of[2]; }
};

constexpr const char* severity_names[] = {"note", "warning", "error"};
constexpr const char* severity_signs[] = {"●", "▲", "✖"};

/// A kernel of the page: of the set, or, if it is gone, of the set before.
struct entry {
    const placed_kernel* kernel = nullptr;
    const kernel_set* set = nullptr;
    const placed_kernel* before = nullptr; ///< in the set before, if it is in both
    change_class change = change_class::same;
    std::string id;
    std::array<std::size_t, 6> instructions{}; ///< by class
    std::vector<std::size_t> callees;          ///< entries, ascending; itself too
    std::vector<std::size_t> callers;          ///< entries, ascending; not itself
    std::vector<const wfta::kernel_finding*> findings;
    severity_counts severities;
    const kernel_profile* profile = nullptr;
    int size_step = 0;
    int heat_step = 0;
    [[nodiscard]] bool gone() const { return change == change_class::removed; }
    [[nodiscard]] std::size_t size() const { return kernel->text.size() + kernel->data.size(); }
};

struct page {
    const report_input* input = nullptr;
    std::vector<entry> entries; ///< the set's kernels in their order, then those that are gone
    std::unordered_map<std::string, std::string> ids; ///< of the first kernel of each name
    std::unordered_map<std::string, double> shares;
    severity_counts severities;
    std::size_t smallest = 0; ///< code and constants of a kernel
    std::size_t largest = 0;
    double most_share = 0; ///< of a kernel
    [[nodiscard]] bool compares() const { return input->against != nullptr; }
    [[nodiscard]] const event_profile* profile() const { return input->profile; }
    [[nodiscard]] double share(const entry& one) const
    {
        return one.profile == nullptr || profile()->total.weight == 0
                   ? 0
                   : static_cast<double>(one.profile->count.weight) /
                         static_cast<double>(profile()->total.weight);
    }
};

std::array<std::size_t, 6> count_instructions(const placed_kernel& kernel)
{
    std::array<std::size_t, 6> counts{};
    for (std::size_t offset = 0; offset + 4 <= kernel.text.size(); offset += 4)
        ++counts[static_cast<std::size_t>(wfta::instruction_class_of(word_at(kernel.text, offset)))];
    return counts;
}

std::size_t sum(const std::array<std::size_t, 6>& counts)
{
    std::size_t all = 0;
    for (const std::size_t count : counts)
        all += count;
    return all;
}

// ---- From the input to the page's entries

void add_entries(page& page)
{
    const kernel_set& set = *page.input->set;
    for (const placed_kernel& kernel : set.kernels) {
        entry one;
        one.kernel = &kernel;
        one.set = &set;
        page.entries.push_back(std::move(one));
    }
    if (!page.compares())
        return;
    std::vector<const placed_kernel*> gone;
    for (const kernel_difference& difference : compare_sets(*page.input->against, set)) {
        if (difference.after == nullptr) {
            gone.push_back(difference.before);
            continue;
        }
        entry& one = page.entries[static_cast<std::size_t>(difference.after - set.kernels.data())];
        one.before = difference.before;
        one.change = difference.change;
    }
    for (const placed_kernel* const kernel : gone) {
        entry one;
        one.kernel = kernel;
        one.set = page.input->against;
        one.change = change_class::removed;
        page.entries.push_back(std::move(one));
    }
}

void choose_ids(page& page)
{
    std::unordered_set<std::string> taken;
    for (std::size_t i = 0; i < page.entries.size(); ++i) {
        entry& one = page.entries[i];
        one.id = fragment(one.kernel->name);
        if (one.id.empty() || one.id.size() > longest_id || !taken.insert(one.id).second)
            one.id = fmt::format("kernel:{}", i);
        page.ids.emplace(one.kernel->name, one.id);
    }
}

void find_calls(page& page)
{
    std::unordered_map<std::string_view, std::size_t> index;
    for (std::size_t i = 0; i < page.entries.size(); ++i)
        index.emplace(page.entries[i].kernel->name, i);
    for (std::size_t i = 0; i < page.entries.size(); ++i) {
        std::set<std::size_t> callees;
        for (const tessjit::reloc_info& relocation : page.entries[i].kernel->relocs) {
            const auto callee = index.find(relocation.name);
            if (callee != index.end() && !names_data(relocation.name) &&
                !leads_elsewhere(*page.input->set, *page.entries[i].kernel, relocation))
                callees.insert(callee->second);
        }
        page.entries[i].callees.assign(callees.begin(), callees.end());
        for (const std::size_t callee : callees) {
            if (callee != i)
                page.entries[callee].callers.push_back(i);
        }
    }
}

void add_findings(page& page)
{
    const kernel_set& set = *page.input->set;
    for (const wfta::kernel_finding& finding : page.input->findings) {
        ++page.severities.of[static_cast<std::size_t>(finding.severity)];
        const auto found = set.by_name.find(finding.kernel);
        if (found == set.by_name.end())
            continue;
        entry& one = page.entries[found->second];
        one.findings.push_back(&finding);
        ++one.severities.of[static_cast<std::size_t>(finding.severity)];
    }
}

void add_profile(page& page)
{
    if (page.profile() == nullptr)
        return;
    std::uint64_t heaviest = 0;
    for (const kernel_profile& kernel : page.profile()->kernels)
        heaviest = std::max(heaviest, kernel.count.weight);
    for (const kernel_profile& kernel : page.profile()->kernels) {
        entry& one = page.entries[kernel.kernel];
        one.profile = &kernel;
        one.heat_step = heat_step(kernel.count.weight, heaviest);
        page.shares.emplace(one.kernel->name, page.share(one));
        page.most_share = std::max(page.most_share, page.share(one));
    }
}

void choose_size_steps(page& page)
{
    if (page.entries.empty())
        return;
    const auto [least, most] =
        std::minmax_element(page.entries.begin(), page.entries.end(),
                            [](const entry& a, const entry& b) { return a.size() < b.size(); });
    page.smallest = least->size();
    page.largest = most->size();
    const auto logarithm = [](std::size_t size) {
        return std::log2(static_cast<double>(std::max<std::size_t>(size, 1)));
    };
    const double low = logarithm(page.smallest);
    const double range = logarithm(page.largest) - low;
    for (entry& one : page.entries)
        one.size_step =
            range == 0 ? 3 : static_cast<int>(std::lround(7 * (logarithm(one.size()) - low) / range));
}

page make_page(const report_input& input)
{
    page page;
    page.input = &input;
    add_entries(page);
    choose_ids(page);
    find_calls(page);
    add_findings(page);
    add_profile(page);
    choose_size_steps(page);
    for (entry& one : page.entries)
        one.instructions = count_instructions(*one.kernel);
    return page;
}

// ---- Parts of the page

std::string colours(const page& page, const entry& one)
{
    std::string classes = fmt::format("s{}", one.size_step);
    if (page.profile() != nullptr)
        classes += fmt::format(" h{}", one.heat_step);
    if (page.compares())
        classes += fmt::format(" {}", name_of(one.change));
    return classes;
}

/// "1 byte", "2,000 kernels".
std::string many(std::uint64_t count, const char* noun)
{
    return fmt::format("{} {}{}", grouped(count), noun, count == 1 ? "" : "s");
}

/// As it is shown, since nobody can see or click an empty name.
std::string shown_name(const std::string& name)
{
    return name.empty() ? "(no name)" : name;
}

std::string kernel_link(const std::string& id, const std::string& name)
{
    return fmt::format("<a href=\"#{}\"><bdi>{}</bdi></a>", id, html(shown_name(name)));
}

std::string list_of(const page& page, const std::vector<std::size_t>& entries)
{
    std::string text;
    for (std::size_t i = 0; i < entries.size() && i < most_named; ++i)
        text += (i == 0 ? "" : ", ") +
                kernel_link(page.entries[entries[i]].id, page.entries[entries[i]].kernel->name);
    if (entries.size() > most_named)
        text += fmt::format(" and {} more", grouped(entries.size() - most_named));
    return text;
}

std::string set_card(const page& page)
{
    const kernel_set& set = *page.input->set;
    std::size_t code = 0;
    std::size_t data = 0;
    std::size_t instructions = 0;
    std::size_t mapped = 0;
    for (const placed_kernel& kernel : set.kernels) {
        code += kernel.text.size();
        data += kernel.data.size();
        instructions += kernel.text.size() / 4;
    }
    for (const kernel_mapping& mapping : set.mappings)
        mapped += mapping.end - mapping.begin;
    const std::size_t used = code + data;
    return fmt::format(
        "<section class=\"card\"><h2>Set</h2><strong>{}</strong>"
        "<dl><dt>{}</dt><dd>{}</dd><dt>{}</dt><dd>bytes of code, {} instructions</dd>"
        "<dt>{}</dt><dd>bytes of constants</dd><dt>{}</dt><dd>bytes of padding</dd></dl></section>\n",
        many(set.kernels.size(), "kernel"), grouped(set.mappings.size()),
        set.mappings.size() == 1 ? "mapping" : "mappings", grouped(code), grouped(instructions),
        grouped(data), grouped(mapped > used ? mapped - used : 0));
}

std::string finding_item(const page& page, const wfta::kernel_finding& finding)
{
    const auto severity = static_cast<std::size_t>(finding.severity);
    const auto id = page.ids.find(finding.kernel);
    const bool in_row = finding.offset && *finding.offset >= 0 && *finding.offset % 4 == 0;
    const std::string name = shown_name(finding.kernel);
    std::string place = html(finding.offset ? place_text(name, *finding.offset) : place_text(name));
    if (id != page.ids.end())
        place = fmt::format("<a href=\"#{}{}\">{}</a>", id->second,
                            in_row ? fmt::format("+{:#x}", *finding.offset) : "", place);
    return fmt::format(
        "<li><span class=\"mark {0}\">{1}</span><bdi>{2}</bdi>: <span class=\"{0}\">{0}</span>: {3} [{4}]{5}</li>\n",
        severity_names[severity], severity_signs[severity], place, html(finding.message), html(finding.id),
        finding.advice.empty() ? "" : "; " + html(finding.advice));
}

std::string findings_card(const page& page)
{
    const severity_counts& counts = page.severities;
    std::string text =
        fmt::format("<section class=\"card\"><h2>Findings of check</h2><strong{}>{}</strong><dl>",
                    counts.of[2] != 0 ? " class=\"bad\"" : "",
                    counts.all() == 0 ? "none" : many(counts.all(), "finding"));
    for (std::size_t severity = 3; severity-- > 0;) {
        const std::size_t count = counts.of[severity];
        if (count != 0)
            text += fmt::format("<dt>{0}</dt><dd class=\"{1}\">{1}{2}</dd>", grouped(count),
                                severity_names[severity], count == 1 ? "" : "s");
    }
    return text + "</dl></section>\n";
}

std::string profile_card(const page& page)
{
    const event_profile& profile = *page.profile();
    const auto part = [&](const sample_count& count) {
        return profile.total.weight == 0
                   ? 0
                   : static_cast<double>(count.weight) / static_cast<double>(profile.total.weight);
    };
    std::string text = fmt::format(
        "<section class=\"card\"><h2>Profile, {} samples of {}</h2><strong>{} % in kernels</strong>"
        "<div class=\"join\" aria-hidden=\"true\">",
        grouped(profile.total.samples), html(profile.event), html(percent(part(profile.in_kernels))));
    struct piece {
        const char* name;
        const char* meaning;
        const sample_count* count;
    };
    const piece pieces[] = {{"in", "in kernels", &profile.in_kernels},
                            {"unknown", "in their mappings, without a dump", &profile.unknown},
                            {"elsewhere", "elsewhere", &profile.elsewhere}};
    for (const piece& one : pieces)
        fmt::format_to(std::back_inserter(text), "<i class=\"{}\" style=\"width:{:.2f}%\"></i>", one.name,
                       100 * part(*one.count));
    text += "</div><dl>";
    for (const piece& one : pieces)
        fmt::format_to(std::back_inserter(text), "<dt>{} %</dt><dd><i class=\"key {}\"></i>{}</dd>",
                       html(percent(part(*one.count))), one.name, one.meaning);
    return text + "</dl></section>\n";
}

std::string change_card(const page& page)
{
    std::map<change_class, std::vector<std::size_t>> classes;
    for (std::size_t i = 0; i < page.entries.size(); ++i)
        classes[page.entries[i].change].push_back(i);
    const std::size_t changed = page.entries.size() - classes[change_class::same].size();
    std::string text = fmt::format(
        "<section class=\"card\"><h2>Against {}</h2><strong>{}</strong><dl>", html(page.input->against_name),
        changed == 0 ? "no difference"
                     : grouped(changed) + (changed == 1 ? " kernel differs" : " kernels differ"));
    for (const auto& [change, entries] : classes) {
        if (!entries.empty()) {
            fmt::format_to(std::back_inserter(text),
                           "<dt>{0}</dt><dd><span class=\"change {1}\">{1}</span>{2}</dd>",
                           grouped(entries.size()), name_of(change),
                           change == change_class::same ? "" : ": " + list_of(page, entries));
        }
    }
    return text + "</dl></section>\n";
}

std::string cards(const page& page)
{
    std::string text = set_card(page) + findings_card(page);
    if (page.profile() != nullptr)
        text += profile_card(page);
    if (page.compares())
        text += change_card(page);
    if (page.input->findings.empty())
        return text;
    constexpr std::size_t most = 100;
    text += fmt::format("<details class=\"card\"{}><summary>All findings</summary><ul class=\"findings\">\n",
                        page.severities.of[2] != 0 ? " open" : "");
    for (std::size_t i = 0; i < page.input->findings.size() && i < most; ++i)
        text += finding_item(page, page.input->findings[i]);
    text += "</ul>";
    if (page.input->findings.size() > most)
        text += fmt::format("<p>The first {}; each stands at its kernel's listing too.</p>", most);
    return text + "</details>\n";
}

/// What the page is coloured by: what there is, the most telling first.
std::vector<const char*> colour_choices(const page& page)
{
    std::vector<const char*> choices;
    if (page.profile() != nullptr)
        choices.push_back("heat");
    if (page.compares())
        choices.push_back("change");
    choices.push_back("size");
    return choices;
}

std::string colour_inputs(const page& page)
{
    std::string text;
    bool first = true;
    for (const char* const choice : colour_choices(page)) {
        text += fmt::format("<label><input type=\"radio\" name=\"colour\" value=\"{0}\"{1}>{0}</label>",
                            choice, first ? " checked" : "");
        first = false;
    }
    return text;
}

std::string scale(const char* kind)
{
    std::string text = "<span class=\"scale\">";
    for (int step = 0; step < 8; ++step)
        text += fmt::format("<i style=\"background:var(--{}-{})\"></i>", kind, step);
    return text + "</span>";
}

std::string legend(const page& page)
{
    std::string text =
        fmt::format("<span class=\"for-size\">{} bytes {} {} bytes of code and constants</span>",
                    grouped(page.smallest), scale("size"), grouped(page.largest));
    if (page.profile() != nullptr) {
        text += fmt::format("<span class=\"for-heat\">0 {} {} % of all samples, a step is half</span>",
                            scale("heat"), html(percent(page.most_share)));
    }
    if (page.compares()) {
        std::set<change_class> classes;
        for (const entry& one : page.entries)
            classes.insert(one.change);
        text += "<span class=\"for-change\">";
        for (const change_class change : classes)
            text += fmt::format("<span class=\"change {0}\">{0}</span>", name_of(change));
        text += "</span>";
    }
    return text + "<span>full height: code</span><span>half: constants</span><span>hatched: padding</span>";
}

std::string block(const page& page, std::size_t index, bool data)
{
    const entry& one = page.entries[index];
    const kernel_mapping& mapping = page.input->set->mappings[one.kernel->mapping];
    const double length = static_cast<double>(mapping.end - mapping.begin);
    const std::uint64_t address = data ? one.kernel->data_address : one.kernel->text_address;
    const std::size_t size = data ? one.kernel->data.size() : one.kernel->text.size();
    const double width = 100 * static_cast<double>(size) / length;
    std::string title = fmt::format("{}: {} at {:#x}, {}", html(shown_name(one.kernel->name)),
                                    data ? "constants" : "code", address, many(size, "byte"));
    if (page.profile() != nullptr)
        title += fmt::format(", {} % of all samples", html(percent(page.share(one))));
    if (page.compares())
        title += fmt::format(", {}", name_of(one.change));
    constexpr double roomy = 0.6; // percent: a line beside the block leaves enough of it
    return fmt::format("<a class=\"{}{}{}\" href=\"#{}\" tabindex=\"-1\" data-kernel=\"{}\" title=\"{}\" "
                       "style=\"left:{:.5f}%;width:{:.5f}%\"><bdi>{}</bdi></a>\n",
                       data ? "data " : "", width > roomy ? "roomy " : "", colours(page, one), one.id, index,
                       title, 100 * static_cast<double>(address - mapping.begin) / length, width,
                       html(one.kernel->name));
}

std::string strips(const page& page)
{
    const kernel_set& set = *page.input->set;
    std::uint64_t longest = 1;
    for (const kernel_mapping& mapping : set.mappings)
        longest = std::max(longest, mapping.end - mapping.begin);
    std::vector<std::vector<std::size_t>> members(set.mappings.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i)
        members[set.kernels[i].mapping].push_back(i);
    std::string text;
    for (std::size_t i = 0; i < set.mappings.size(); ++i) {
        const kernel_mapping& mapping = set.mappings[i];
        const std::uint64_t length = mapping.end - mapping.begin;
        text += fmt::format("<h3>{:#x}, {}, {}</h3>\n<div class=\"strip\" style=\"--width:{:.4f}%\">\n",
                            mapping.begin, many(length, "byte"), many(members[i].size(), "kernel"),
                            100 * static_cast<double>(length) / static_cast<double>(longest));
        for (const bool data : {false, true}) {
            for (const std::size_t kernel : members[i]) {
                if (!(data ? set.kernels[kernel].data : set.kernels[kernel].text).empty())
                    text += block(page, kernel, data);
            }
        }
        text += "</div>\n";
    }
    return text;
}

struct column {
    const char* key;
    const char* title;
    const char* meaning;
};

std::vector<column> columns(const page& page)
{
    std::vector<column> all = {{"name", "Kernel", ""},
                               {"address", "Address", "of its code"},
                               {"code", "Code", "bytes"},
                               {"data", "Constants", "bytes"},
                               {"instructions", "Instr.", "instructions"},
                               {"load", "Load", "instructions that read memory"},
                               {"store", "Store", "instructions that write memory only"},
                               {"fp", "FP, SIMD", "instructions on floating-point and vector registers"},
                               {"integer", "Integer", "instructions on general registers"},
                               {"branch", "Branch", "branches, calls and returns"},
                               {"calls", "Calls", "kernels that it calls"},
                               {"callers", "Callers", "kernels that call it"}};
    if (page.profile() != nullptr)
        all.push_back({"share", "Time, %", "share of all samples, by weight"});
    all.push_back({"findings", "Findings", "of check: errors, warnings, notes"});
    if (page.compares()) {
        all.push_back({"change", "Change", "class of its change"});
        all.push_back({"delta", "± Instr.", "instructions more or fewer than before"});
    }
    return all;
}

/// What the script sorts, filters and draws by. The members that are columns have their keys.
json entry_data(const page& page, const entry& one)
{
    json data = {{"id", one.id},
                 {"name", utf8(printable(shown_name(one.kernel->name)))},
                 {"address", fmt::format("{:#018x}", one.kernel->text_address)},
                 {"code", one.kernel->text.size()},
                 {"data", one.kernel->data.size()},
                 {"instructions", sum(one.instructions)},
                 {"load", one.instructions[0]},
                 {"store", one.instructions[1]},
                 {"fp", one.instructions[2]},
                 {"integer", one.instructions[3]},
                 {"branch", one.instructions[4]},
                 {"calls", one.callees.size()},
                 {"callers", one.callers.size()}};
    if (page.profile() != nullptr) {
        data["share"] = one.gone() ? json() : json(100 * page.share(one));
        data["samples"] = one.profile == nullptr ? 0 : one.profile->count.samples;
    }
    data["findings"] = one.severities.all();
    data["errors"] = one.severities.of[2];
    data["warnings"] = one.severities.of[1];
    data["notes"] = one.severities.of[0];
    if (page.compares()) {
        data["change"] = name_of(one.change);
        data["delta"] = one.before == nullptr ? json()
                                              : json(static_cast<std::int64_t>(one.kernel->text.size() / 4) -
                                                     static_cast<std::int64_t>(one.before->text.size() / 4));
    }
    data["callees"] = one.callees;
    data["colours"] = colours(page, one);
    return data;
}

std::string cell(const page& page, const entry& one, const std::string& key, const json& value)
{
    if (key == "name")
        return fmt::format("<th scope=\"row\" title=\"{}\">{}</th>", html(shown_name(one.kernel->name)),
                           kernel_link(one.id, one.kernel->name));
    if (key == "address")
        return fmt::format("<td class=\"address\">{:#x}</td>", one.kernel->text_address);
    if (key == "change")
        return fmt::format("<td class=\"left\"><span class=\"change {0}\">{0}</span></td>",
                           name_of(one.change));
    if (value.is_null() || value.number() == 0)
        return fmt::format("<td class=\"none\">{}</td>", value.is_null() ? "" : "0");
    if (key == "delta")
        return fmt::format("<td>{}{}</td>", value.number() > 0 ? "+" : "−",
                           grouped(static_cast<std::uint64_t>(std::abs(value.number()))));
    if (key == "share")
        return fmt::format("<td class=\"share\" style=\"--bar:{:.2f}%\">{}</td>",
                           100 * page.share(one) / page.most_share, html(percent(page.share(one))));
    if (key == "findings") {
        std::string text = "<td>";
        for (std::size_t severity = 3; severity-- > 0;) {
            const std::size_t count = one.severities.of[severity];
            if (count != 0) {
                text += fmt::format("<span class=\"count {0}\" title=\"{1}\">{2} {3}</span>",
                                    severity_names[severity], counted(count, severity_names[severity]),
                                    severity_signs[severity], count);
            }
        }
        return text + "</td>";
    }
    return fmt::format("<td>{}</td>", grouped(static_cast<std::uint64_t>(value.number())));
}

std::string table(const page& page, const std::vector<json>& data)
{
    const std::vector<column> all = columns(page);
    std::string text = "<thead><tr>";
    for (const column& one : all) {
        text += fmt::format(
            "<th scope=\"col\" data-key=\"{0}\" title=\"{1}{2}in the filter: {0}\"><span>{3}</span></th>",
            one.key, one.meaning, *one.meaning == '\0' ? "" : "; ", one.title);
    }
    text += "</tr></thead>\n<tbody>\n";
    for (std::size_t i = 0; i < page.entries.size(); ++i) {
        text += i < most_at_once ? "<tr>" : "<tr class=\"beyond\">";
        for (const column& one : all)
            text += cell(page, page.entries[i], one.key, data[i].at(one.key));
        text += "</tr>\n";
    }
    return text + "</tbody>\n";
}

std::string facts(const page& page, const entry& one)
{
    std::string text =
        fmt::format("{:#x} · {} of code, {}", one.kernel->text_address, many(one.kernel->text.size(), "byte"),
                    many(sum(one.instructions), "instruction"));
    if (!one.kernel->data.empty())
        text += fmt::format(" · {} of constants at {:#x}", many(one.kernel->data.size(), "byte"),
                            one.kernel->data_address);
    if (one.profile != nullptr)
        text += fmt::format(" · {} % of all samples, {}", html(percent(page.share(one))),
                            many(one.profile->count.samples, "sample"));
    if (page.compares())
        text += fmt::format(" · <span class=\"change {0}\">{0}</span>", name_of(one.change));
    if (!one.callees.empty())
        text += " · calls " + list_of(page, one.callees);
    if (!one.callers.empty())
        text += " · called by " + list_of(page, one.callers);
    return text;
}

/// The listing and the constants of a kernel; nothing for one that is too long.
std::optional<listing_section> listing_of(const page& page, const entry& one, disassembler& disassembler,
                                          bool drawn)
{
    const bool compares = one.before != nullptr && one.change != change_class::same;
    constexpr std::size_t most_bytes = 4 * most_listed_instructions;
    if (one.kernel->text.size() > most_bytes || (compares && one.before->text.size() > most_bytes))
        return {};
    listing_input input;
    input.id = one.id;
    input.name = one.kernel->name;
    input.data = &one.kernel->data;
    input.profile = one.profile;
    input.findings = one.findings;
    input.ids = &page.ids;
    input.shares = &page.shares;
    const kernel_listing rows = list_kernel(*one.set, *one.kernel, disassembler);
    input.rows = &rows;
    kernel_listing before;
    row_alignment alignment;
    if (compares) {
        before = list_kernel(*page.input->against, *one.before, disassembler);
        alignment = align_rows(*one.before, *one.kernel);
        input.before = &before;
        input.alignment = &alignment;
        input.data_before = &one.before->data;
    }
    return make_listing_section(input, drawn);
}

std::string article(const page& page, const entry& one, disassembler& disassembler, bool drawn)
{
    const std::optional<listing_section> listing = listing_of(page, one, disassembler, drawn);
    std::string text = fmt::format("<article id=\"{}\"", one.id);
    if (listing && !drawn)
        text += fmt::format(" class=\"undrawn\" style=\"--rows:{}\"", listing->rows);
    text += fmt::format(">\n<h3>{}</h3>\n<p class=\"facts\">{}</p>\n", kernel_link(one.id, one.kernel->name),
                        facts(page, one));
    if (!one.findings.empty()) {
        text += "<ul class=\"findings\">\n";
        for (const wfta::kernel_finding* const finding : one.findings)
            text += finding_item(page, *finding);
        text += "</ul>\n";
    }
    text += listing ? listing->html
                    : fmt::format("<p>More than {} instructions: too long to be listed here.</p>\n",
                                  grouped(most_listed_instructions));
    return text + "</article>\n";
}

/// The template with each "@NAME@" replaced by what belongs there; what is put in is not looked at again.
std::string filled(std::string_view pattern, const std::map<std::string_view, std::string>& parts)
{
    std::string text;
    for (std::size_t at = 0;;) {
        const std::size_t begin = pattern.find('@', at);
        text += pattern.substr(at, begin - at);
        if (begin == std::string_view::npos)
            return text;
        const std::size_t end = pattern.find('@', begin + 1);
        text += parts.at(pattern.substr(begin + 1, end - begin - 1));
        at = end + 1;
    }
}

} // namespace

std::string report_page(const report_input& input)
{
    const page page = make_page(input);
    const bool at_once = page.entries.size() <= most_at_once;
    std::vector<json> data;
    for (const entry& one : page.entries)
        data.push_back(entry_data(page, one));
    std::string listings;
    disassembler disassembler;
    for (const entry& one : page.entries)
        listings += article(page, one, disassembler, at_once);
    constexpr const char* listings_note =
        "<noscript><p>The listings of more than 200 kernels are drawn by a script.</p></noscript>\n";
    std::map<std::string_view, std::string> parts;
    parts["TITLE"] = "Kernels of " + html(input.name);
    parts["SCRIPT"] = page_js;
    parts["SCRIPT_HASH"] = page_js_hash;
    parts["STYLE"] = page_css;
    parts["COLOUR"] = colour_choices(page).front();
    parts["ONE_COLOUR"] = colour_choices(page).size() == 1 ? " hidden" : "";
    parts["COLOUR_CHOICES"] = colour_inputs(page);
    parts["CARDS"] = cards(page);
    parts["LEGEND"] = legend(page);
    parts["ONE_MAPPING"] = input.set->mappings.size() == 1 ? " hidden" : "";
    parts["STRIPS"] = strips(page);
    parts["FILTER_EXAMPLE"] = page.profile() != nullptr ? "short share&gt;=1"
                              : page.compares()         ? "short change=code"
                                                        : "short load&gt;20";
    parts["TALL"] = at_once ? "" : " tall";
    parts["TABLE"] = table(page, data);
    parts["LISTINGS_NOTE"] = at_once ? "" : listings_note;
    parts["LISTINGS"] = std::move(listings);
    parts["DATA"] = json_in_html(json{{"version", 1}, {"kernels", data}}.dump());
    return filled(page_html, parts);
}

} // namespace vorna::workbench
