#include "workbench/text/percent.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

double percent(std::uint64_t part, std::uint64_t whole)
{
    return whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

std::string percent_text(std::uint64_t part, std::uint64_t whole)
{
    const std::string text = fmt::format("{:.1f}", percent(part, whole));
    return part != 0 && text == "0.0" ? "<0.1" : text;
}

} // namespace vorna::workbench
