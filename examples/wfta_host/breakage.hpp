// Mistakes that generators make, to try what the finaliser and the workbench say about each.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"

#include <string>
#include <vector>

namespace wfta_host {

/// What a mistake leads to.
enum class outcome {
    ended,   ///< the finaliser ends the process
    crashes, ///< a kernel ends it, when it runs
    wrong,   ///< the results are wrong
    good     ///< the results are right nevertheless
};

struct breakage {
    std::string kind; ///< where it has one, the id of the finding of vorna-kernels check
    std::string description;
    outcome leads_to;
    /// Breaks a set: the short kernels that the registry lacks, then the driver.
    void (*apply)(vorna::wfta::kernel_registry_map& registry, std::vector<vorna::wfta::kernel_data>& kernels);
};

/// All mistakes, those that end the process first, sorted by kind.
const std::vector<breakage>& breakages();

/// The mistake of that kind, or null.
const breakage* find_breakage(const std::string& kind);

} // namespace wfta_host
