// What the page shows, as JSON. The scripts beside this file draw it; docs/workbench/report.md lists its
// members.
#pragma once

#include "workbench/render/page/page.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

struct page_model {
    std::string overview;              ///< everything but the listings
    std::vector<std::string> listings; ///< of each kernel, in the order of the overview
};

page_model make_page_model(const page_input& input);

/// A kernel's name as a URL's fragment can hold it: every byte but letters, digits, "_", "-" and "." as
/// "%XX". Other fragments of the page hold ":" or "+", which these never do.
std::string fragment(std::string_view name);

} // namespace vorna::workbench
