// One page to look at: placement, table, graph of calls and listings of a set of kernels, as one HTML file.
#pragma once

#include "check/check_kernels.hpp"
#include "workbench/analysis/cost.hpp"
#include "workbench/analysis/profile.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <functional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// What the page shows. The caller owns what the pointers refer to.
struct page_input {
    std::string name; ///< what the page calls the set, such as the directory of its dumps
    const kernel_set* set = nullptr;
    std::vector<wfta::kernel_finding> findings;
    const event_profile* profile = nullptr; ///< samples in the set's kernels, or null
    const kernel_set* against = nullptr;    ///< the kernels before a change, or null
    std::string against_name;
    const model_list* processors = nullptr;                          ///< to estimate cycles on, or null
    std::function<void(std::size_t done, std::size_t all)> progress; ///< told before each kernel, or empty
};

/// The page, in UTF-8: one file without dependencies, with the model of page_model.hpp and the scripts that
/// draw it. The same input gives the same bytes, and names can only become text.
std::string make_page(const page_input& input);

} // namespace vorna::workbench
