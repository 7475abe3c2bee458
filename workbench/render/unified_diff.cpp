#include "workbench/render/unified_diff.hpp"

#include "workbench/analysis/common_sequence.hpp"
#include "workbench/text/constants.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <map>

namespace vorna::workbench {

namespace {

constexpr std::size_t context = 3;
constexpr std::size_t most_constants = 24; // lines of constants that differ

// The lines of one side, with their offsets.
struct side {
    std::vector<std::string> lines;
    std::vector<std::size_t> offsets;
    std::vector<std::string> comments; // of code lines
    std::size_t size;
    int digits;
    std::string section; // prefix of the offsets; empty for code

    [[nodiscard]] std::string offset(const std::optional<std::size_t>& line) const
    {
        return fmt::format("{}+{:0{}x}", section, line ? offsets[*line] : size, digits);
    }
};

side code_side(const placed_kernel& kernel, disassembler& disassembler)
{
    side result{{}, {}, {}, kernel.text.size(), offset_digits(kernel), ""};
    for (const listing_row& row : list_without_addresses(kernel, disassembler).rows) {
        result.lines.push_back(row_text(row, result.digits));
        result.offsets.push_back(row.offset);
        result.comments.push_back(row.comment);
    }
    return result;
}

// A constant as a double if it is a plausible one, otherwise as two integers.
std::string constant_text(const constant& number)
{
    const std::string value = probable_double(number);
    return value.empty() ? fmt::format("{{{}, {}}}", number.bits & 0xffffffff, number.bits >> 32) : value;
}

side data_side(const placed_kernel& kernel, const std::vector<constant>& constants)
{
    const std::size_t last = kernel.data.empty() ? 0 : kernel.data.size() - 1;
    side result{{}, {}, {}, kernel.data.size(), std::max(2, hex_digits(last)), ".rodata"};
    for (const constant& number : constants) {
        const std::size_t offset = 8 * result.lines.size();
        result.offsets.push_back(offset);
        result.lines.push_back(
            fmt::format(".rodata+{:0{}x}  {}", offset, result.digits, hexadecimal(number)));
        if (number.size == 8)
            result.lines.back() += "  " + constant_text(number);
    }
    return result;
}

// Constants of equal size are compared by offset; otherwise they are aligned to show the added and removed
// ones.
row_alignment align_constants(const std::vector<constant>& before, const std::vector<constant>& after)
{
    row_alignment alignment;
    if (before.size() == after.size()) {
        for (std::size_t i = 0; i < before.size(); ++i)
            alignment.rows.push_back({i, i, before[i] == after[i]});
        return alignment;
    }
    std::map<constant, std::uint32_t> numbers;
    const auto number_all = [&](const std::vector<constant>& constants) {
        std::vector<std::uint32_t> sequence;
        sequence.reserve(constants.size());
        for (const constant& number : constants)
            sequence.push_back(
                numbers.emplace(number, static_cast<std::uint32_t>(numbers.size())).first->second);
        return sequence;
    };
    const std::vector<std::uint32_t> old_numbers = number_all(before);
    return pair_rows(find_common_sequence(old_numbers, number_all(after)), before.size(), after.size());
}

// Appends the hunks: runs of rows that differ, with up to three equal rows around them.
void append_hunks(std::vector<std::string>& lines, const row_alignment& alignment, const side& before,
                  const side& after, std::size_t most_changes)
{
    const std::vector<row_pair>& rows = alignment.rows;
    std::size_t changes = 0;
    std::size_t left_out = 0;
    for (std::size_t i = 0; i < rows.size();) {
        if (rows[i].same) {
            ++i;
            continue;
        }
        const std::size_t begin = i - std::min(i, context);
        std::size_t last = i; // the hunk's last change
        for (std::size_t k = i; k < rows.size() && k <= last + 1 + 2 * context; ++k) {
            if (!rows[k].same)
                last = k;
        }
        const std::size_t end = std::min(rows.size(), last + 1 + context);
        i = end;
        if (changes >= most_changes) {
            left_out +=
                static_cast<std::size_t>(std::count_if(rows.begin() + static_cast<std::ptrdiff_t>(begin),
                                                       rows.begin() + static_cast<std::ptrdiff_t>(end),
                                                       [](const row_pair& row) { return !row.same; }));
            continue;
        }
        const auto first_of = [&](auto member) {
            for (std::size_t k = begin; k < rows.size(); ++k) {
                if (rows[k].*member)
                    return rows[k].*member;
            }
            return std::optional<std::size_t>();
        };
        lines.push_back(fmt::format("@@ {} {} @@", before.offset(first_of(&row_pair::before)),
                                    after.offset(first_of(&row_pair::after))));
        for (std::size_t k = begin; k < end;) {
            if (rows[k].same) {
                lines.push_back("  " + after.lines[*rows[k++].after]);
                continue;
            }
            // Removed rows first, then added ones.
            std::size_t run = k;
            while (run < end && !rows[run].same)
                ++run;
            const std::size_t shown = k + std::min(run - k, most_changes - std::min(most_changes, changes));
            for (std::size_t r = k; r < shown; ++r) {
                if (rows[r].before)
                    lines.push_back("- " + before.lines[*rows[r].before]);
            }
            for (std::size_t r = k; r < shown; ++r) {
                if (rows[r].after)
                    lines.push_back("+ " + after.lines[*rows[r].after]);
            }
            changes += run - k;
            left_out += run - shown;
            k = run;
        }
    }
    if (left_out != 0)
        lines.push_back(fmt::format("@@ {} more differing lines @@", left_out));
    if (!alignment.complete) {
        lines.emplace_back(
            "@@ the two differ too much for a shortest diff: equal lines may be shown as replaced @@");
    }
}

} // namespace

std::vector<std::string> unified_diff(const placed_kernel& before, const placed_kernel& after,
                                      disassembler& disassembler)
{
    std::vector<std::string> lines;
    lines.push_back(fmt::format("--- {} (before)", printable(before.name)));
    lines.push_back(fmt::format("+++ {} (after)", printable(after.name)));
    const side old_code = code_side(before, disassembler);
    const side new_code = code_side(after, disassembler);
    row_alignment alignment = align_rows(before, after);
    for (row_pair& row : alignment.rows) // loads of other values, or from other addresses
        row.same = row.same && old_code.comments[*row.before] == new_code.comments[*row.after];
    append_hunks(lines, alignment, old_code, new_code, ~std::size_t{0});
    if (before.data != after.data) {
        const std::vector<constant> old_constants = split_constants(before.data);
        const std::vector<constant> new_constants = split_constants(after.data);
        append_hunks(lines, align_constants(old_constants, new_constants), data_side(before, old_constants),
                     data_side(after, new_constants), most_constants);
    }
    return lines;
}

} // namespace vorna::workbench
