#include "workbench/render/excerpt.hpp"

#include "workbench/render/color.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace vorna::workbench {

row_range excerpt_range(std::size_t rows, std::size_t marked)
{
    constexpr std::size_t neighbours = 2;
    if (marked >= rows)
        return {};
    return {marked - std::min(marked, neighbours), std::min(rows, marked + neighbours + 1)};
}

std::size_t row_at(const std::vector<listing_row>& rows, std::int64_t offset)
{
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const listing_row& row) {
        const auto begin = static_cast<std::int64_t>(row.offset);
        return offset >= begin && offset - begin < static_cast<std::int64_t>(row.size);
    });
    return static_cast<std::size_t>(found - rows.begin());
}

std::string excerpt_text(const std::vector<listing_row>& rows, std::size_t marked, int offset_digits,
                         bool colored)
{
    std::string lines;
    const row_range range = excerpt_range(rows.size(), marked);
    for (std::size_t i = range.begin; i < range.end; ++i) {
        if (!rows[i].label.empty())
            lines += fmt::format("    {}:\n", rows[i].label);
        const std::string text = row_text(rows[i], offset_digits);
        lines += (i == marked ? colorize("  > " + text, color::bold, colored) : "    " + text) + "\n";
    }
    return lines;
}

} // namespace vorna::workbench
