#include "workbench/cli/profile_input.hpp"

#include "workbench/cli/command.hpp"
#include "workbench/input/perf_script.hpp"
#include "workbench/os/file.hpp"
#include "workbench/os/process.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace vorna::workbench {

namespace {

/// Whether a file is text, and so not from perf record: whether its beginning has text bytes only.
bool is_text(const file_descriptor& file)
{
    char bytes[4096];
    const std::string_view text(bytes, read_at(file, bytes, sizeof bytes, 0));
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) >= ' ' || c == '\n' || c == '\t' || c == '\r';
    });
}

/// Prefixes the message of an exception with the file's name.
template <typename Reading>
auto with_name(const std::string& name, const Reading& read)
{
    try {
        return read();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", name, error.what()));
    }
}

program_result run_perf_script(const std::string& file, profile_reader& reader)
{
    std::vector<std::string> command = perf_script_command();
    command.insert(command.end(), {"-i", file});
    try {
        return run_child(command, [&](std::string_view piece) { reader.read(piece); });
    } catch (const std::system_error& error) {
        throw std::runtime_error(
            fmt::format("{}; --perf-script reads the text that perf script made elsewhere", error.what()));
    }
}

profile read_perf_script(const std::string& file, const kernel_set& set)
{
    return with_name(input_name(file), [&] {
        profile_reader reader(set);
        read_pieces(open_input(file), [&](std::string_view piece) { reader.read(piece); });
        return reader.finish();
    });
}

profile read_perf_data(const std::string& file, const kernel_set& set)
{
    return with_name(input_name(file), [&] {
        const std::optional<regular_file> data = file == "-" ? std::nullopt : open_regular_file(file);
        if (data && is_text(data->descriptor))
            throw std::runtime_error("text, not what perf record writes: give it with --perf-script=" + file);
        profile_reader reader(set);
        const program_result perf = run_perf_script(file, reader);
        if (perf.signal != 0)
            throw std::runtime_error(fmt::format("perf script was ended by signal {}", perf.signal));
        if (perf.exit_status != 0) {
            throw std::runtime_error("perf script: " + (perf.first_error.empty()
                                                            ? fmt::format("exit status {}", perf.exit_status)
                                                            : perf.first_error));
        }
        return reader.finish();
    });
}

} // namespace

void add_profile_options(command_line& command, profile_options& options)
{
    const command_option data =
        command.add_option("--perf-data", options.perf_data, "Recording made by perf record")
            .type_name("FILE");
    command
        .add_option("--perf-script", options.perf_script,
                    "Output of perf script instead; - for standard input")
        .type_name("FILE")
        .excludes(data);
    command.add_option("--event", options.event, "Event to show (default: the one with most samples)")
        .type_name("EVENT");
}

profile read_profile(const profile_options& options, const kernel_set& set, bool& had_errors)
{
    profile read = options.perf_script.empty() ? read_perf_data(options.perf_data, set)
                                               : read_perf_script(options.perf_script, set);
    const perf_script_summary& text = read.text;
    if (text.bad_lines != 0) {
        print_error(fmt::format(
            "{}:{}: not a line of perf script -F pid,time,event,period,ip{}", input_name(options.file()),
            text.first_bad_line,
            text.bad_lines == 1 ? "" : fmt::format(", as {} in all; they are skipped", text.bad_lines)));
        had_errors = true;
    }
    return read;
}

const event_profile* choose_event(const profile& profile, const std::string& event)
{
    const event_profile* const chosen = find_event(profile, event);
    if (chosen != nullptr || event.empty())
        return chosen;
    std::string names;
    for (const event_profile& other : profile.events)
        names += (names.empty() ? "" : ", ") + other.event;
    throw std::runtime_error(
        fmt::format("no event {} in the profile{}{}", event, names.empty() ? "" : "; there is ", names));
}

} // namespace vorna::workbench
