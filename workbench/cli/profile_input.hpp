// Profiles, as the commands profile and report take them.
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

/// Reads the text of perf script ("-" is standard input), or runs perf script on what perf record wrote.
/// Throws std::runtime_error with what is wrong, in one line that names the file. Lines that are not perf
/// script's are reported on stderr and set `had_errors`.
profile read_profile(const profile_options& options, const kernel_set& set, bool& had_errors);

/// The event that --event names, or the one of most samples without; null if there is none at all. Throws
/// std::runtime_error, with the names that there are, if it is another.
const event_profile* choose_event(const profile& profile, const std::string& event);

} // namespace vorna::workbench
