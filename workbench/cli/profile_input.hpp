// The profile options of the commands profile and report, and reading the profile.
#pragma once

#include "workbench/analysis/profile.hpp"
#include "workbench/cli/options.hpp"

#include <string>

namespace vorna::workbench {

/// The options of a command that name a profile.
struct profile_options {
    std::string perf_data;
    std::string perf_script;
    std::string event;

    [[nodiscard]] bool given() const { return !perf_data.empty() || !perf_script.empty(); }
    [[nodiscard]] const std::string& file() const { return perf_script.empty() ? perf_data : perf_script; }
};

/// Adds --perf-data, --perf-script and --event.
void add_profile_options(command_line& command, profile_options& options);

/// Reads perf script's output ("-" is standard input), or runs perf script on the output of perf record.
/// Throws std::runtime_error with the reason, in one line that names the file. Reports lines that are not
/// perf script's on stderr and sets `had_errors`.
profile read_profile(const profile_options& options, const kernel_set& set, bool& had_errors);

/// The event that --event names, or by default the one with the most samples; null if the profile has no
/// events. Throws std::runtime_error, with the known names, if there is no such event.
const event_profile* choose_event(const profile& profile, const std::string& event);

} // namespace vorna::workbench
