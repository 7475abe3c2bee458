// Counts in prose.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// 1234567 as "1,234,567".
std::string with_separators(std::uint64_t number);

/// "1 kernel", "2 kernels", "24180 samples".
std::string pluralize(std::uint64_t count, std::string_view noun);

/// "24,180 samples".
std::string pluralize_with_separators(std::uint64_t count, std::string_view noun);

/// The names, made printable, separated by commas: at most eight, then "and N more".
std::string join_some(const std::vector<std::string>& names);

} // namespace vorna::workbench
