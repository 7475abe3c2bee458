// Profiles as command lines name them.
#pragma once

#include "workbench/analysis/profile.hpp"

#include <string>

namespace vorna::workbench {

/// Reads the text of perf script from a file ("-" is standard input). Throws std::runtime_error with what is
/// wrong, in one line that names the file.
profile read_perf_script(const std::string& file, const kernel_set& set);

/// Runs perf script on the data of perf record and reads its text. Throws as above.
profile read_perf_data(const std::string& file, const kernel_set& set);

/// The event of that name, or the one of most samples without a name; null if there is none at all. Throws
/// std::runtime_error, with the names that there are, if it is another.
const event_profile* choose_event(const profile& profile, const std::string& event);

/// Reports on stderr that there are lines that were not understood, and sets `had_errors` then.
void print_profile_errors(const profile& profile, const std::string& file, bool& had_errors);

} // namespace vorna::workbench
