// A share in percent, as every output shows it.
#pragma once

#include <cstdint>
#include <string>

namespace vorna::workbench {

/// The part in percent of the whole; 0 of nothing.
double percent(std::uint64_t part, std::uint64_t whole);

/// The same with one decimal: "27.5". A part that is not 0 is never shown as 0: "<0.1".
std::string percent_text(std::uint64_t part, std::uint64_t whole);

} // namespace vorna::workbench
