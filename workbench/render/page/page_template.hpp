// The page without its model; CMake makes the definitions from the files of this directory.
#pragma once

#include <string_view>

namespace vorna::workbench {

extern const std::string_view page_before_model;
extern const std::string_view page_after_model;

} // namespace vorna::workbench
