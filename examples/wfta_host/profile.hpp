// What ran in the simulator, for vorna-kernels profile: perf sees the simulator, not what it simulates.
#pragma once

#include "examples/wfta_host/machine.hpp"
#include "examples/wfta_host/planner.hpp"

#include <string>
#include <vector>

namespace wfta_host {

/// Writes `counts` to a new file as perf script would print a recording of this process: the mappings of
/// `plans`, then for each instruction a sample of the event "executions" whose period is how often it ran.
/// Throws std::runtime_error when the file cannot be written.
void write_profile(const std::string& file, const vorna::wfta::kernel_registry_map& registry,
                   const std::vector<plan>& plans, const instruction_counts& counts);

} // namespace wfta_host
