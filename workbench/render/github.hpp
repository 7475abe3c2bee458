// GitHub's workflow commands.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorna::workbench {

/// An annotation with its newline: "::error title=…::message", escaped as workflow commands require. `level`
/// is "error", "warning" or "notice"; an empty file and line 0 are left out.
std::string github_annotation(std::string_view level, std::string_view title, std::string_view message,
                              std::string_view file = {}, std::size_t line = 0);

} // namespace vorna::workbench
