#include "workbench/analysis/baseline.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/os/file.hpp"
#include "workbench/os/replace_file.hpp"
#include "workbench/render/baseline_listing.hpp"
#include "workbench/render/markdown.hpp"
#include "workbench/render/table.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>

namespace vorna::workbench {

namespace {

struct baseline_options {
    common_options common;
    std::string file;
    std::string dumps;
    std::vector<std::string> kernels;
    bool all = false;
    bool force = false;
    std::string listing; // a directory, empty without
};

// A kernel's listing beside the baseline, if there is to be one.
enum class listing_status { not_asked, same, changed, missing };

struct kernel_state {
    baseline_difference difference;
    listing_status listing = listing_status::not_asked;

    [[nodiscard]] bool same() const
    {
        return difference.status == baseline_status::same &&
               (listing == listing_status::not_asked || listing == listing_status::same);
    }
};

// What a baseline or a listing is at most: more than the text of a million kernels.
constexpr std::size_t largest_file = std::size_t{1} << 28;

baseline parse_file(const std::string& path, const std::string& text)
{
    try {
        return parse_baseline(text);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", path, error.what()));
    }
}

std::string listing_path(const baseline_options& options, const std::string& kernel)
{
    return (std::filesystem::path(options.listing) / listing_file_name(kernel)).string();
}

std::vector<kernel_state> find_states(const baseline_options& options, const baseline& entries,
                                      const kernel_set& set)
{
    std::vector<kernel_state> states;
    std::optional<disassembler> disassembler;
    for (baseline_difference& difference : compare_with_baseline(entries, set)) {
        kernel_state state{std::move(difference)};
        if (!options.listing.empty() && state.difference.after) {
            if (!disassembler)
                disassembler.emplace();
            const std::optional<std::string> text =
                read_file(listing_path(options, state.difference.name), largest_file);
            if (!text)
                state.listing = listing_status::missing;
            else if (same_listing(*text,
                                  baseline_listing(set.kernels[state.difference.kernel], *disassembler)))
                state.listing = listing_status::same;
            else
                state.listing = listing_status::changed;
        }
        states.push_back(std::move(state));
    }
    return states;
}

std::vector<std::string> changed_parts(const baseline_difference& difference)
{
    std::vector<std::string> parts;
    if (difference.code_changed())
        parts.emplace_back("code");
    if (difference.relocations_changed())
        parts.emplace_back("relocations");
    if (difference.constants_changed())
        parts.emplace_back("constants");
    return parts;
}

// "code and constants"
std::string parts_text(const baseline_difference& difference)
{
    const std::vector<std::string> parts = changed_parts(difference);
    return parts.size() < 3 ? fmt::format("{}", fmt::join(parts, " and "))
                            : "code, relocations and constants";
}

std::string instructions_text(const baseline_difference& difference)
{
    const auto count = [](const std::optional<kernel_fingerprint>& fingerprint) {
        return fingerprint ? fingerprint->instructions : 0;
    };
    const std::uint64_t before = count(difference.before);
    const std::uint64_t after = count(difference.after);
    if (!difference.before || !difference.after || before == after)
        return pluralize(std::max(before, after), "instruction");
    return fmt::format("{} -> {} instructions", before, after);
}

// As a check finds it, or as bless has just made it the baseline.
std::string state_text(const kernel_state& state, bool blessed)
{
    const baseline_difference& difference = state.difference;
    switch (difference.status) {
    case baseline_status::same:
        if (blessed)
            return "listing written";
        return state.listing == listing_status::missing ? "same, but its listing is missing"
                                                        : "same, but its listing is out of date";
    case baseline_status::changed:
        return fmt::format("{} changed, {}{}", parts_text(difference),
                           difference.code_changed() ? "" : "code the same, ", instructions_text(difference));
    case baseline_status::added:
        return (blessed ? "added, " : "not in the baseline, ") + instructions_text(difference);
    case baseline_status::removed:
        return (blessed ? "removed, " : "not in the dumps, ") + instructions_text(difference);
    }
    return "";
}

// "5 kernels: 2 same, 2 changed, 1 added"
std::string count_text(const std::vector<kernel_state>& states)
{
    std::map<baseline_status, std::size_t> counts;
    std::size_t listings = 0;
    for (const kernel_state& state : states) {
        ++counts[state.difference.status];
        listings +=
            state.listing == listing_status::changed || state.listing == listing_status::missing ? 1 : 0;
    }
    std::string text = pluralize(states.size(), "kernel");
    const char* separator = ": ";
    for (const auto& [status, count] : counts) {
        text += fmt::format("{}{} {}", separator, count, name_of(status));
        separator = ", ";
    }
    if (listings != 0)
        text += fmt::format("; {} out of date", pluralize(listings, "listing"));
    return text;
}

std::string shell_word(const std::string& text)
{
    const bool plain =
        !text.empty() && text.front() != '-' &&
        text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+-=:@%^,") ==
            std::string::npos;
    if (plain)
        return text;
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

// The command that accepts what differs; empty if nothing does.
std::string accepting_command(const baseline_options& options, const std::vector<kernel_state>& states)
{
    constexpr std::size_t most_names = 8;
    std::vector<std::string> names;
    for (const kernel_state& state : states) {
        if (!state.same())
            names.push_back(state.difference.name);
    }
    if (names.empty())
        return "";
    std::string command = "vorna-kernels baseline bless";
    if (!options.listing.empty())
        command += " --listing=" + shell_word(options.listing);
    command += fmt::format(" {} {}", shell_word(options.file), shell_word(options.dumps));
    const bool lines = std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return printable(name) != name || (!name.empty() && name.front() == '-') || name.empty();
    });
    if (names.size() > most_names || lines)
        return command + " --all";
    for (const std::string& name : names)
        command += " " + shell_word(name);
    return command;
}

color color_of(baseline_status status)
{
    switch (status) {
    case baseline_status::added:
        return color::green;
    case baseline_status::removed:
        return color::red;
    default:
        return color::yellow;
    }
}

table table_of(const baseline_options& options, const std::vector<kernel_state>& states, bool blessed)
{
    table made;
    made.columns = {{"place", column_kind::text, shown_in::text},
                    {"kernel", column_kind::name},
                    {"status", column_kind::text, shown_in::markdown},
                    {""}};
    for (const kernel_state& state : states) {
        if (state.same())
            continue;
        const baseline_difference& difference = state.difference;
        const std::string place = fmt::format("{}:{}", printable(options.file), difference.line);
        table_row row;
        row.cells = {{difference.before ? place : ""},
                     {printable(difference.name)},
                     {std::string(name_of(difference.status))},
                     {state_text(state, blessed), color_of(difference.status)}};
        row.file = options.file;
        row.line = difference.line;
        made.rows.push_back(std::move(row));
    }
    return made;
}

void print_states(const std::vector<kernel_state>& states)
{
    json kernels = json::array();
    for (const kernel_state& state : states) {
        json kernel = {{"kernel", state.difference.name},
                       {"status", name_of(state.difference.status)},
                       {"changed", changed_parts(state.difference)}};
        if (state.listing != listing_status::not_asked) {
            kernel["listing"] = state.listing == listing_status::same      ? "same"
                                : state.listing == listing_status::changed ? "changed"
                                                                           : "missing";
        }
        kernels.push_back(std::move(kernel));
    }
    print_json({{"kernels", kernels}});
}

void print_states(const baseline_options& options, const std::vector<kernel_state>& states, bool blessed,
                  const std::string& summary)
{
    if (options.common.format == "json") {
        print_states(states);
        return;
    }
    table made = table_of(options, states, blessed);
    made.summary = summary;
    fmt::print("{}", format_table(made, options.common.format, use_color(options.common)));
}

int check(const baseline_options& options)
{
    const std::optional<std::string> text = read_file(options.file, largest_file);
    if (!text) {
        throw std::runtime_error(
            fmt::format("{}: no such file; create it with: vorna-kernels baseline bless {} {} --all",
                        options.file, shell_word(options.file), shell_word(options.dumps)));
    }
    const baseline entries = parse_file(options.file, *text);
    const read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    const std::vector<kernel_state> states = find_states(options, entries, read.set);
    const std::string accept = accepting_command(options, states);
    print_states(options, states, false, count_text(states));
    if (read.had_errors) // what could not be read must not leave the baseline
        return exit_error;
    if (!accept.empty() && options.common.format == "markdown")
        fmt::print("\nTo accept:\n\n{}", markdown_block("sh", {accept}));
    else if (!accept.empty() && options.common.format != "json")
        fmt::print("to accept: {}\n", accept);
    return accept.empty() ? exit_success : exit_findings;
}

// Those that are to be blessed. Throws std::runtime_error for a name that is neither in the baseline nor in
// the dumps.
std::set<std::string> names_to_bless(const baseline_options& options, const std::vector<kernel_state>& states,
                                     const kernel_set& set)
{
    std::set<std::string> names(options.kernels.begin(), options.kernels.end());
    std::set<std::string> known;
    for (const kernel_state& state : states)
        known.insert(state.difference.name);
    if (options.all)
        return known;
    for (const std::string& name : names) {
        if (!known.contains(name)) {
            const std::string nearest = nearest_name(set, name);
            throw std::runtime_error(fmt::format("no kernel {} in the baseline or the dumps{}", name,
                                                 nearest.empty() ? "" : "; did you mean " + nearest + "?"));
        }
    }
    return names;
}

void write_listings(const baseline_options& options, const std::vector<kernel_state>& accepted,
                    const kernel_set& set)
{
    std::error_code error;
    std::filesystem::create_directories(options.listing, error);
    if (error)
        throw std::runtime_error(fmt::format("{}: {}", options.listing, error.message()));
    if (std::filesystem::equivalent(options.listing, options.dumps, error))
        throw std::runtime_error(options.listing +
                                 ": is the directory of the dumps, which cannot hold listings");
    disassembler disassembler;
    for (const kernel_state& state : accepted) {
        if (state.difference.after)
            replace_file(listing_path(options, state.difference.name),
                         baseline_listing(set.kernels[state.difference.kernel], disassembler));
    }
}

void remove_listings(const baseline_options& options, const std::vector<kernel_state>& accepted)
{
    for (const kernel_state& state : accepted) {
        std::error_code error;
        if (!state.difference.after)
            std::filesystem::remove(listing_path(options, state.difference.name), error);
        if (error)
            throw std::runtime_error(
                fmt::format("{}: {}", listing_path(options, state.difference.name), error.message()));
    }
}

int bless(const baseline_options& options)
{
    const char* const ci = std::getenv("CI");
    if (ci != nullptr && *ci != '\0' && !options.force) {
        throw std::runtime_error(
            "CI is set in the environment, and a baseline should be blessed by a person; "
            "override with --force");
    }
    if (options.all != options.kernels.empty())
        throw std::runtime_error(options.all ? "give either names of kernels or --all"
                                             : "give names of kernels, or --all");
    const std::optional<std::string> text = read_file(options.file, largest_file);
    if (!text && !options.all)
        throw std::runtime_error(options.file + ": no such file; create it with --all");
    const baseline entries = text ? parse_file(options.file, *text) : baseline();
    const read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    if (read.had_errors)
        throw std::runtime_error(options.file + ": not changed, because some dumps could not be read");

    const std::vector<kernel_state> states = find_states(options, entries, read.set);
    const std::set<std::string> names = names_to_bless(options, states, read.set);
    baseline result;
    std::vector<kernel_state> accepted;
    for (const kernel_state& state : states) {
        const baseline_difference& difference = state.difference;
        const bool blessed = names.contains(difference.name);
        const std::optional<kernel_fingerprint>& fingerprint = blessed ? difference.after : difference.before;
        if (fingerprint)
            result.push_back({difference.name, *fingerprint});
        if (blessed && !state.same())
            accepted.push_back(state);
    }

    // The baseline last: until then a check finds what is not there yet.
    if (!options.listing.empty())
        write_listings(options, accepted, read.set);
    const std::string new_text = format_baseline(result);
    if (!text || new_text != *text)
        replace_file(options.file, new_text);
    if (!options.listing.empty())
        remove_listings(options, accepted);

    const std::string what = !text              ? "created, " + pluralize(result.size(), "kernel")
                             : accepted.empty() ? "no changes"
                                                : fmt::format("{} of {} accepted", accepted.size(),
                                                              pluralize(states.size(), "kernel"));
    print_states(options, accepted, true,
                 options.common.format == "markdown" ? count_text(accepted)
                                                     : fmt::format("{}: {}", printable(options.file), what));
    return exit_success;
}

void add_arguments(command_line& command, baseline_options& options)
{
    command.add_option("FILE", options.file, "Baseline file").required();
    command.add_option("DUMPS", options.dumps, "Directory of dumps, or one dump").required();
    command
        .add_option("--listing", options.listing, "Directory for disassembly listings, one file per kernel")
        .type_name("DIR");
    add_common_options(command, options.common, {"text", "json", "github", "markdown"});
}

} // namespace

void add_baseline(command_line& program, int& status)
{
    command_line command =
        program.add_command("baseline", "Compare kernels with a baseline under version control");
    command.require_command();

    const auto checked = std::make_shared<baseline_options>();
    command_line check_command = command.add_command("check", "Report kernels that differ from the baseline");
    add_arguments(check_command, *checked);
    check_command.footer("Exit status: 0 all same, 1 differences, 2 error.");
    check_command.run([checked, &status] { status = check(*checked); });

    const auto blessed = std::make_shared<baseline_options>();
    command_line bless_command = command.add_command("bless", "Accept kernels as they are now");
    add_arguments(bless_command, *blessed);
    bless_command.add_option("KERNEL", blessed->kernels, "Kernels to accept");
    bless_command.add_flag("--all", blessed->all, "Accept all kernels; create FILE if it does not exist");
    bless_command.add_flag("--force", blessed->force, "Run even if CI is set in the environment");
    bless_command.footer("Exit status: 0 success, 2 error; FILE is not changed then.");
    bless_command.run([blessed, &status] { status = bless(*blessed); });
}

} // namespace vorna::workbench
