#include "workbench/profile.hpp"

#include "workbench/listing.hpp"
#include "workbench/output.hpp"
#include "workbench/program/command.hpp"
#include "workbench/program/json.hpp"
#include "workbench/program/profile_input.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>
#include <unordered_map>

namespace vorna::workbench {

namespace {

struct profile_options {
    common_options common;
    std::string dumps;
    std::string perf_data;
    std::string perf_script;
    std::string event;
    std::vector<std::string> kernels;
};

double percent(std::uint64_t part, std::uint64_t whole)
{
    return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

/// With commas between thousands.
std::string grouped(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, ",");
    return digits;
}

/// A bar of `part` of `whole`, in eighths of a column.
std::string bar(std::uint64_t part, std::uint64_t whole, std::size_t columns)
{
    static constexpr const char* eighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const auto length =
        static_cast<std::size_t>(percent(part, whole) / 100 * static_cast<double>(8 * columns));
    std::string text;
    for (std::size_t i = 0; i < length / 8; ++i)
        text += "█";
    text += eighths[length % 8];
    const std::size_t used = length / 8 + (length % 8 != 0 ? 1 : 0);
    return text + std::string(columns - used, ' ');
}

void print_join(const profile& profile, const event_profile& event)
{
    const std::uint64_t whole = event.total.weight;
    fmt::print("{} by period, {}; in kernels {:.1f} %, in mappings of kernels without a dump {:.1f} %, "
               "elsewhere {:.1f} %\n",
               printable(event.event),
               event.total.samples == 1 ? "1 sample" : grouped(event.total.samples) + " samples",
               percent(event.in_kernels.weight, whole), percent(event.unknown.weight, whole),
               percent(event.elsewhere.weight, whole));
    std::string others;
    for (const event_profile& other : profile.events) {
        if (&other != &event)
            others += fmt::format("{}{} ({} samples)", others.empty() ? "" : ", ", printable(other.event),
                                  grouped(other.total.samples));
    }
    if (!others.empty())
        fmt::print("other events, for --event=: {}\n", others);
    if (profile.lost != 0)
        fmt::print("lost while recording: {} samples\n", grouped(profile.lost));
}

void print_kernels(const kernel_set& set, const event_profile& event)
{
    for (const kernel_profile& kernel : event.kernels)
        fmt::print("{:6.1f} %  {}\n", percent(kernel.count.weight, event.total.weight),
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

void print_listing(const kernel_set& set, const event_profile& event, const placed_kernel& kernel,
                   disassembler& disassembler, bool coloured)
{
    constexpr std::size_t columns = 8;
    const kernel_profile* const sampled = find_profile(set, event, kernel);
    if (sampled == nullptr) {
        fmt::print("\n{}: no sample\n", printable(kernel.name));
        return;
    }
    fmt::print("\n{}\n", painted(fmt::format("{}, percent of its {}", printable(kernel.name),
                                             sampled->count.samples == 1
                                                 ? "1 sample"
                                                 : grouped(sampled->count.samples) + " samples"),
                                 colour::bold, coloured));
    const kernel_listing listing = list_kernel(set, kernel, disassembler);
    std::vector<std::uint64_t> weights(listing.rows.size());
    auto row = sampled->rows.begin();
    for (std::size_t i = 0; i < listing.rows.size(); ++i) {
        for (; row != sampled->rows.end() && row->offset < listing.rows[i].offset + listing.rows[i].size;
             ++row)
            weights[i] += row->count.weight;
    }
    const std::uint64_t heaviest = *std::max_element(weights.begin(), weights.end());
    for (std::size_t i = 0; i < listing.rows.size(); ++i) {
        const listing_row& line = listing.rows[i];
        std::string text = row_text(line);
        const placed_kernel* const callee = find_kernel(set, line.callee);
        if (callee != nullptr && callee != &kernel) {
            const kernel_profile* const called = find_profile(set, event, *callee);
            text += fmt::format("  ; {:.1f} % of all in {}",
                                percent(called == nullptr ? 0 : called->count.weight, event.total.weight),
                                printable(line.callee));
        }
        if (!line.label.empty())
            fmt::print("{:>{}}{}:\n", "", 7 + columns, line.label);
        const double share = percent(weights[i], sampled->count.weight);
        const std::string heat = weights[i] == 0
                                     ? std::string(6 + columns, ' ')
                                     : fmt::format("{:5.1f} {}", share, bar(weights[i], heaviest, columns));
        fmt::print("{} {}\n",
                   painted(heat,
                           share >= 10  ? colour::red
                           : share >= 2 ? colour::yellow
                                        : colour::none,
                           coloured),
                   text);
    }
}

void print_text(const kernel_set& set, const profile& profile, const event_profile& event,
                const std::vector<const placed_kernel*>& listed, bool coloured)
{
    print_join(profile, event);
    print_kernels(set, event);
    disassembler disassembler;
    for (const placed_kernel* kernel : listed)
        print_listing(set, event, *kernel, disassembler, coloured);
    const bool spe = event.event.find("arm_spe") != std::string::npos;
    fmt::print(
        "\nnote: {}\n",
        spe ? "arm_spe samples operations, not time: each is at its own instruction"
            : "an interrupt comes some instructions late, so read the neighbourhood of a row; perf record "
              "-e arm_spe// does not, on processors that have it");
}

json counts(const event_profile& event, const kernel_set& set, const std::vector<const placed_kernel*>& named)
{
    json document;
    document["version"] = 1;
    document["event"] = event.event;
    document["samples"] = event.total.samples;
    document["weight"] = event.total.weight;
    document["in_kernels"] = event.in_kernels.weight;
    document["unknown"] = event.unknown.weight;
    document["elsewhere"] = event.elsewhere.weight;
    document["kernels"] = json::array();
    for (const kernel_profile& kernel : event.kernels) {
        if (!named.empty() &&
            std::find(named.begin(), named.end(), &set.kernels[kernel.kernel]) == named.end())
            continue;
        json rows = json::array();
        for (const profile_row& row : kernel.rows)
            rows.push_back(
                {{"offset", row.offset}, {"samples", row.count.samples}, {"weight", row.count.weight}});
        document["kernels"].push_back({{"kernel", set.kernels[kernel.kernel].name},
                                       {"samples", kernel.count.samples},
                                       {"weight", kernel.count.weight},
                                       {"rows", std::move(rows)}});
    }
    return document;
}

int show_profile(const profile_options& options)
{
    read_result read = read_set({options.dumps}, options.common);
    if (read.set.kernels.empty()) {
        if (!read.trouble)
            report_trouble(options.dumps + ": no dumps in it");
        return in_trouble;
    }
    const bool text = !options.perf_script.empty();
    const std::string& file = text ? options.perf_script : options.perf_data;
    const profile profile = text ? read_perf_script(file, read.set) : read_perf_data(file, read.set);
    report_profile_trouble(profile, file == "-" ? "standard input" : file, read.trouble);

    const event_profile none;
    const event_profile* const chosen = choose_event(profile, options.event);
    const event_profile& event = chosen == nullptr ? none : *chosen;
    std::vector<const placed_kernel*> named;
    if (!options.kernels.empty())
        named = select_kernels(read.set, options.kernels, read.trouble);
    if (options.common.format == "json") {
        fmt::print("{}", json_text(counts(event, read.set, named)));
    } else {
        if (options.kernels.empty() && !event.kernels.empty())
            named.push_back(&read.set.kernels[event.kernels.front().kernel]);
        print_text(read.set, profile, event, named, use_colour(options.common));
    }
    if (read.trouble)
        return in_trouble;
    return event.kernels.empty() ? something_found : nothing_found;
}

} // namespace

void add_profile(CLI::App& program, int& status)
{
    const auto options = std::make_shared<profile_options>();
    CLI::App* const command =
        program.add_subcommand("profile", "Where the time goes, from what perf recorded");
    command->add_option("DUMPS", options->dumps, "Directory of dumps, or one dump")->required();
    CLI::Option* const data = command->add_option("PERF.DATA", options->perf_data,
                                                  "What perf record wrote; not with --perf-script");
    command->add_option("KERNEL", options->kernels, "Kernels to list; the heaviest one without");
    command->add_option("--perf-script", options->perf_script,
                        "Text that perf script made of it, - for standard input");
    command->add_option("--event", options->event,
                        "Event, as perf names it; the one of most samples without");
    add_common_options(*command, options->common, {"text", "json"});
    std::string footer = "The text for --perf-script is made by\n ";
    for (const std::string& word : perf_script_command())
        footer += " " + word;
    command->footer(footer);
    command->callback([options, data, &status] {
        if (options->perf_script.empty() && data->empty())
            throw CLI::RequiredError("PERF.DATA or --perf-script");
        // What is in PERF.DATA's place is the first kernel then.
        if (!options->perf_script.empty() && !data->empty())
            options->kernels.insert(options->kernels.begin(), options->perf_data);
        status = show_profile(*options);
    });
}

} // namespace vorna::workbench
