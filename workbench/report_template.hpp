// The report's page without its contents; CMake makes the definitions from workbench/report/.
#pragma once

#include <string_view>

namespace vorna::workbench {

extern const std::string_view page_html;
extern const std::string_view page_css;
extern const std::string_view page_js;
extern const std::string_view page_js_hash; ///< of page_js, as a Content-Security-Policy names it

} // namespace vorna::workbench
