// A few rows of a listing, around one that is marked.
#pragma once

#include "workbench/render/listing.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace vorna::workbench {

/// The row and two before and after it, each as a line with its newline, and with the labels in between. "  >
/// " marks the row. Empty if there is no such row.
std::string excerpt_text(const std::vector<listing_row>& rows, std::size_t marked, int offset_digits,
                         bool colored);

/// The index of the row that contains the offset in the code; the number of rows if none does.
std::size_t row_at(const std::vector<listing_row>& rows, std::int64_t offset);

/// The rows that excerpt_text prints: first, and past the last.
struct row_range {
    std::size_t begin = 0;
    std::size_t end = 0;
};
row_range excerpt_range(std::size_t rows, std::size_t marked);

} // namespace vorna::workbench
