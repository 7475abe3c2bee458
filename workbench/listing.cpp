#include "workbench/listing.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

kernel_listing list_kernel(const kernel_set&, const placed_kernel& kernel, disassembler& disassembler, bool)
{
    kernel_listing listing;
    listing.instructions = kernel.text.size() / 4;
    for (std::size_t offset = 0; offset + 4 <= kernel.text.size(); offset += 4) {
        listing_row row;
        row.offset = offset;
        row.word = word_at(kernel.text, offset);
        row.text = disassembler.text(row.word, kernel.text_address + offset);
        listing.rows.push_back(row);
    }
    return listing;
}

std::string row_text(const listing_row& row)
{
    return fmt::format(" +{:02x}  {:08x}  {}", row.offset, row.word, row.text);
}

std::string headline(const placed_kernel& kernel, const kernel_listing& listing)
{
    return fmt::format("{}  {:#x}  {} bytes, {} instructions", kernel.name, kernel.text_address,
                       kernel.text.size(), listing.instructions);
}

} // namespace vorna::workbench
