// One page to look at: placement, table, graph of calls and listings of a set of kernels, as one HTML file.
#pragma once

#include "workbench/kernel_check.hpp"
#include "workbench/kernel_set.hpp"
#include "workbench/profile.hpp"

#include <string>
#include <vector>

namespace vorna::workbench {

/// What the page shows. What the pointers lead to is the caller's.
struct report_input {
    std::string name; ///< what the page calls the set, such as the directory of its dumps
    const kernel_set* set = nullptr;
    std::vector<wfta::kernel_finding> findings;
    const event_profile* profile = nullptr; ///< samples in the set's kernels, or null
    const kernel_set* against = nullptr;    ///< the kernels before a change, or null
    std::string against_name;
};

/// The page, in UTF-8: one file that needs no other. The same input makes the same bytes, and no name in it
/// can become anything but text. Kernels of more than 50,000 instructions are not listed. Without JavaScript
/// it holds everything but the graph of calls, and of sets of more than 200 kernels the listings.
std::string report_page(const report_input& input);

} // namespace vorna::workbench
