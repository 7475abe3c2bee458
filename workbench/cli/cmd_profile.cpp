#include "workbench/analysis/profile.hpp"

#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/cli/profile_input.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/percent.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>
#include <unordered_map>

namespace vorna::workbench {

namespace {

constexpr std::size_t share_columns = 5; // "100.0"
constexpr std::size_t bar_columns = 8;

struct command_options {
    common_options common;
    std::string dumps;
    profile_options profile;
    std::vector<std::string> kernels;
};

/// "1 sample", "24,180 samples".
std::string samples_text(std::uint64_t count)
{
    return pluralize_with_separators(count, "sample");
}

/// A bar of `part` of `whole`, in eighths of a column, and blanks after it.
std::string bar(std::uint64_t part, std::uint64_t whole)
{
    static constexpr const char* eighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const auto length = static_cast<std::size_t>(percent(part, whole) / 100 * 8 * bar_columns);
    std::string text;
    for (std::size_t i = 0; i < length / 8; ++i)
        text += "█";
    text += eighths[length % 8];
    return text + std::string(bar_columns - (length + 7) / 8, ' ');
}

void print_join(const profile& profile, const event_profile& event)
{
    const std::uint64_t whole = event.total.period;
    const std::string counts =
        is_exact(event)
            ? fmt::format("{} of {}", pluralize_with_separators(whole, "execution"),
                          pluralize_with_separators(event.total.samples, "instruction"))
            : fmt::format("{} by period, {}", printable(event.event), samples_text(event.total.samples));
    fmt::print("{}; in kernels {} %, mapping without dump {} %, elsewhere {} %\n", counts,
               percent_text(event.in_kernels.period, whole), percent_text(event.unknown.period, whole),
               percent_text(event.elsewhere.period, whole));
    for (const event_profile& other : profile.events) {
        if (&other != &event)
            fmt::print("also recorded: --event={}, {}\n", printable(other.event),
                       samples_text(other.total.samples));
    }
    if (profile.text.lost != 0)
        fmt::print("lost while recording: {}\n", samples_text(profile.text.lost));
}

void print_kernels(const kernel_set& set, const event_profile& event)
{
    for (const kernel_profile& kernel : event.kernels)
        fmt::print("{:>6} %  {}\n", percent_text(kernel.count.period, event.total.period),
                   printable(set.kernels[kernel.kernel].name));
}

const kernel_profile* find_profile(const kernel_set& set, const event_profile& event,
                                   const placed_kernel& kernel)
{
    const auto index = static_cast<std::size_t>(&kernel - set.kernels.data());
    const auto found = std::find_if(event.kernels.begin(), event.kernels.end(),
                                    [&](const kernel_profile& k) { return k.kernel == index; });
    return found == event.kernels.end() ? nullptr : &*found;
}

color heat_color(double percentage)
{
    if (percentage >= 10)
        return color::red;
    return percentage >= 2 ? color::yellow : color::none;
}

void print_listing(const kernel_set& set, const event_profile& event, const placed_kernel& kernel,
                   disassembler& disassembler, bool colored)
{
    const kernel_profile* const sampled = find_profile(set, event, kernel);
    const sample_count count = sampled == nullptr ? sample_count() : sampled->count;
    fmt::print("\n{}\n",
               colorize(fmt::format("{}, {}{}", printable(kernel.name),
                                    is_exact(event) ? pluralize_with_separators(count.period, "execution")
                                                    : samples_text(count.samples),
                                    sampled == nullptr ? "" : ", percent of the kernel"),
                        color::bold, colored));
    if (sampled == nullptr)
        return;
    const kernel_listing listing = list_kernel(set, kernel, disassembler);
    const std::vector<std::uint64_t> periods = periods_by_row(*sampled, kernel.text.size());
    const std::uint64_t largest = *std::max_element(periods.begin(), periods.end());
    const int digits = offset_digits(kernel);
    for (std::size_t i = 0; i < listing.rows.size(); ++i) {
        listing_row row = listing.rows[i];
        const placed_kernel* const callee = row.callee.empty() ? nullptr : find_kernel(set, row.callee);
        if (callee != nullptr) {
            const kernel_profile* const called = find_profile(set, event, *callee);
            row.comment +=
                fmt::format("{}{} % of all is in {}", row.comment.empty() ? "" : "; ",
                            percent_text(called == nullptr ? 0 : called->count.period, event.total.period),
                            printable(row.callee));
        }
        if (!row.label.empty())
            fmt::print("{:{}}{}\n", "", share_columns + bar_columns + 2,
                       colorize(row.label + ":", color::cyan, colored));
        std::string heat(share_columns + 1 + bar_columns, ' ');
        if (periods[i] != 0)
            heat = fmt::format("{:>{}} {}", percent_text(periods[i], count.period), share_columns,
                               bar(periods[i], largest));
        fmt::print("{} {}\n", colorize(heat, heat_color(percent(periods[i], count.period)), colored),
                   row_text(row, digits));
    }
}

// Named by perf, which makes these of what the Statistical Profiling Extension recorded.
bool is_spe(std::string_view event)
{
    static constexpr std::string_view made[] = {"l1d-miss", "l1d-access", "llc-miss",    "llc-access",
                                                "tlb-miss", "tlb-access", "branch-miss", "remote-access"};
    return event.substr(0, 7) == "arm_spe" ||
           std::find(std::begin(made), std::end(made), event) != std::end(made);
}

std::string note_text(const event_profile& event)
{
    if (event.kernels.empty() && event.unknown.samples != 0)
        return "no sample is in a kernel with a dump; others ran";
    if (event.kernels.empty())
        return "no sample is in a kernel; perf does not see what a simulator or an emulator runs";
    if (is_spe(event.event))
        return "arm_spe samples are of operations, not of time, each at its own instruction";
    if (is_exact(event))
        return "exact counts: how often each instruction ran, not how long it took";
    return "samples skid: read a row with those before it; perf record -e arm_spe// is exact";
}

void print_text(const kernel_set& set, const profile& profile, const event_profile& event,
                const std::vector<const placed_kernel*>& listed, bool colored)
{
    if (profile.events.empty()) {
        fmt::print("no samples\n");
        return;
    }
    print_join(profile, event);
    print_kernels(set, event);
    disassembler disassembler;
    for (const placed_kernel* kernel : listed)
        print_listing(set, event, *kernel, disassembler, colored);
    fmt::print("\nnote: {}\n", note_text(event));
}

json counts(const event_profile& event, const kernel_set& set, const std::vector<const placed_kernel*>& named)
{
    json document;
    document["event"] = event.event;
    document["samples"] = event.total.samples;
    document["period"] = event.total.period;
    document["in_kernels"] = event.in_kernels.period;
    document["unknown"] = event.unknown.period;
    document["elsewhere"] = event.elsewhere.period;
    document["kernels"] = json::array();
    for (const kernel_profile& kernel : event.kernels) {
        if (!named.empty() &&
            std::find(named.begin(), named.end(), &set.kernels[kernel.kernel]) == named.end())
            continue;
        json rows = json::array();
        for (const profile_row& row : kernel.rows)
            rows.push_back(
                {{"offset", row.offset}, {"samples", row.count.samples}, {"period", row.count.period}});
        document["kernels"].push_back({{"kernel", set.kernels[kernel.kernel].name},
                                       {"samples", kernel.count.samples},
                                       {"period", kernel.count.period},
                                       {"rows", std::move(rows)}});
    }
    return document;
}

int show_profile(const command_options& options)
{
    read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    const profile profile = read_profile(options.profile, read.set, read.had_errors);

    const event_profile none;
    const event_profile* const chosen = choose_event(profile, options.profile.event);
    const event_profile& event = chosen == nullptr ? none : *chosen;
    std::vector<const placed_kernel*> named;
    if (!options.kernels.empty())
        named = select_kernels(read.set, options.kernels, read.had_errors);
    if (options.common.format == "json") {
        print_json(counts(event, read.set, named));
    } else {
        if (options.kernels.empty() && !event.kernels.empty())
            named.push_back(&read.set.kernels[event.kernels.front().kernel]);
        print_text(read.set, profile, event, named, use_color(options.common));
    }
    if (read.had_errors)
        return exit_error;
    return event.kernels.empty() ? exit_findings : exit_success;
}

} // namespace

void add_profile(command_line& program, int& status)
{
    const auto options = std::make_shared<command_options>();
    command_line command =
        program.add_command("profile", "Show where the time goes, from a recording of perf");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("KERNEL", options->kernels, "Kernels to show in detail (default: the hottest one)");
    add_profile_options(command, options->profile);
    add_common_options(command, options->common, {"text", "json"});
    std::string footer = "Make the input of --perf-script with\n ";
    for (const std::string& word : perf_script_command())
        footer += " " + word;
    footer += "\nExit status: 0 samples in kernels, 1 none, 2 error.";
    command.footer(footer);
    command.run([options, &status] {
        if (!options->profile.given())
            refuse_without("--perf-data or --perf-script");
        status = show_profile(*options);
    });
}

} // namespace vorna::workbench
