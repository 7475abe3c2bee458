// Splits both kernels into basic blocks, which must begin at the same rows, and compares the rows of each
// block as multisets (canonical_code). Rows that are not executed in both kernels must be equal in place.

#include "workbench/analysis/reordering.hpp"

#include "workbench/analysis/canonical_code.hpp"
#include "workbench/analysis/code_map.hpp"

#include <algorithm>
#include <string_view>
#include <tuple>

namespace vorna::workbench {

static std::vector<code_entry> called(const std::vector<std::int64_t>& entries)
{
    std::vector<code_entry> made;
    made.reserve(entries.size());
    for (const std::int64_t entry : entries)
        made.push_back({entry, true});
    return made;
}

bool only_order_differs(const decoded_kernel& before_code, const decoded_kernel& after_code,
                        const std::vector<std::int64_t>& entries)
{
    const placed_kernel& before = *before_code.kernel;
    const placed_kernel& after = *after_code.kernel;
    if (before.text.size() != after.text.size())
        return false;
    const auto outside = [](const placed_kernel& kernel) {
        std::vector<tessjit::reloc_info> relocs = relocations_by_place(kernel);
        std::erase_if(relocs, [&](const auto& reloc) { return lies_within(kernel.text, reloc.offset); });
        return relocs;
    };
    if (!equal_references(outside(before), outside(after)))
        return false;
    const std::vector<code_row> old_rows = code_rows(before_code);
    const std::vector<code_row> new_rows = code_rows(after_code);
    const std::size_t words = before.text.size() / 4;

    const auto block_leaders = [words](const decoded_kernel& code, const std::vector<code_row>& rows) {
        std::vector<bool> leaders(rows.size() + 1);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].target != no_row)
                leaders[rows[i].target] = true;
            if (i >= words)
                leaders[i] = true; // a trailing byte
            else if (code.instructions[i].is_terminator())
                leaders[i + 1] = true;
        }
        leaders[rows.size()] = true;
        return leaders;
    };
    // Data in the code must not move.
    const std::vector<word_use> old_uses = map_code(before_code, called(entries)).uses;
    const std::vector<word_use> new_uses = map_code(after_code, called(entries)).uses;
    for (std::size_t i = 0; i < words; ++i) {
        const bool executed = old_uses[i] == word_use::code && new_uses[i] == word_use::code;
        if (!executed && old_rows[i].key != new_rows[i].key)
            return false;
    }
    const std::vector<bool> leaders = block_leaders(before_code, old_rows);
    if (leaders != block_leaders(after_code, new_rows))
        return false;

    const auto sorted_block = [](const std::vector<code_row>& rows, std::size_t begin, std::size_t end) {
        std::vector<std::tuple<std::string_view, std::size_t, std::int64_t>> block;
        for (std::size_t i = begin; i < end; ++i)
            block.emplace_back(rows[i].key, rows[i].target, rows[i].distance);
        std::sort(block.begin(), block.end());
        return block;
    };
    for (std::size_t begin = 0; begin < old_rows.size();) {
        std::size_t end = begin + 1;
        while (!leaders[end])
            ++end;
        if (sorted_block(old_rows, begin, end) != sorted_block(new_rows, begin, end))
            return false;
        begin = end;
    }
    return true;
}

} // namespace vorna::workbench
