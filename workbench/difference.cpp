#include "workbench/difference.hpp"

#include "workbench/alignment.hpp"

#include <algorithm>
#include <map>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace vorna::workbench {

namespace {

// An instruction that names a place by its distance from itself, from the Arm A-profile A64 instruction set.
struct pc_relative_form {
    std::uint32_t mask;
    std::uint32_t opcode;
    unsigned low_bit; // of the distance in the word
    unsigned bits;
    unsigned unit; // bytes
};

constexpr pc_relative_form pc_relative_forms[] = {
    {0x7c000000, 0x14000000, 0, 26, 4}, // B, BL
    {0xff000000, 0x54000000, 5, 19, 4}, // B.cond, BC.cond
    {0x7e000000, 0x34000000, 5, 19, 4}, // CBZ, CBNZ
    {0x7e000000, 0x36000000, 5, 14, 4}, // TBZ, TBNZ
    {0x3b000000, 0x18000000, 5, 19, 4}, // LDR, LDRSW, PRFM (literal)
    {0x9f000000, 0x10000000, 5, 19, 4}, // ADR, whose two lowest bits are apart
};

constexpr std::uint32_t adr_mask = 0x9f000000;
constexpr std::uint32_t adr_opcode = 0x10000000;
constexpr std::uint32_t adr_low_bits = 0x60000000;

struct pc_relative {
    std::uint32_t opcode;  // the word without the distance
    std::int64_t distance; // bytes
};

std::optional<pc_relative> decode_pc_relative(std::uint32_t word)
{
    for (const pc_relative_form& form : pc_relative_forms) {
        if ((word & form.mask) != form.opcode)
            continue;
        const std::uint32_t ones = (std::uint32_t{1} << form.bits) - 1;
        const std::uint32_t sign = std::uint32_t{1} << (form.bits - 1);
        const std::int64_t units = static_cast<std::int64_t>(((word >> form.low_bit & ones) ^ sign)) -
                                   static_cast<std::int64_t>(sign);
        pc_relative found{word & ~(ones << form.low_bit), units * form.unit};
        if ((word & adr_mask) == adr_opcode) {
            found.opcode &= ~adr_low_bits;
            found.distance += word >> 29 & 3;
        }
        return found;
    }
    return std::nullopt;
}

constexpr std::size_t nowhere = ~std::size_t{0};

// A row of the listing without its address: equal rows do the same wherever they are, up to the rows that
// they lead to.
struct row {
    std::string key;              // word and relocations
    std::size_t target = nowhere; // row that it leads to; the number of rows for the end of the text
    std::int64_t distance = 0;    // to somewhere else than a row
};

using relocation_list = std::vector<tessjit::reloc_info>;

// In the order of their places; those of one place in that in which they are applied.
relocation_list by_place(const placed_kernel& kernel)
{
    relocation_list relocs = kernel.relocs;
    std::stable_sort(relocs.begin(), relocs.end(),
                     [](const auto& a, const auto& b) { return a.offset < b.offset; });
    return relocs;
}

bool equal(const relocation_list& a, const relocation_list& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return std::tie(x.name, x.offset, x.type, x.addend) == std::tie(y.name, y.offset, y.type, y.addend);
    });
}

template <typename number>
void append(std::string& key, number value)
{
    key.append(reinterpret_cast<const char*>(&value), sizeof value);
}

std::vector<row> rows_of(const placed_kernel& kernel)
{
    const std::size_t words = kernel.text.size() / 4;
    const std::size_t count = words + kernel.text.size() % 4;
    const relocation_list relocs = by_place(kernel);
    auto reloc = std::find_if(relocs.begin(), relocs.end(), [](const auto& r) { return r.offset >= 0; });
    std::vector<row> rows(count);
    for (std::size_t i = 0; i < count; ++i) {
        row& r = rows[i];
        if (i >= words) {
            append(r.key, kernel.text[4 * words + (i - words)]);
            continue;
        }
        const std::uint32_t word = word_at(kernel.text, 4 * i);
        const bool relocated = reloc != relocs.end() && static_cast<std::size_t>(reloc->offset) < 4 * (i + 1);
        const std::optional<pc_relative> relative = relocated ? std::nullopt : decode_pc_relative(word);
        if (relative) {
            append(r.key, relative->opcode);
            const std::int64_t target = static_cast<std::int64_t>(4 * i) + relative->distance;
            if (target >= 0 && target % 4 == 0 && static_cast<std::uint64_t>(target) <= 4 * words)
                r.target = static_cast<std::size_t>(target) / 4;
            else
                r.distance = relative->distance;
            continue;
        }
        append(r.key, word);
        for (; reloc != relocs.end() && static_cast<std::size_t>(reloc->offset) < 4 * (i + 1); ++reloc) {
            append(r.key, reloc->offset % 4);
            append(r.key, reloc->type);
            append(r.key, reloc->addend);
            append(r.key, reloc->name.size());
            r.key += reloc->name;
        }
    }
    return rows;
}

// Equal keys get equal numbers, in both lists.
class numbering {
public:
    std::vector<std::uint32_t> operator()(const std::vector<row>& rows)
    {
        std::vector<std::uint32_t> numbers;
        numbers.reserve(rows.size());
        for (const row& r : rows)
            numbers.push_back(
                numbers_.emplace(r.key, static_cast<std::uint32_t>(numbers_.size())).first->second);
        return numbers;
    }

private:
    std::unordered_map<std::string, std::uint32_t> numbers_;
};

} // namespace

std::string_view name_of(change_class change)
{
    static constexpr std::string_view names[] = {"same",      "constants", "moved", "references", "renamed",
                                                 "reordered", "code",      "new",   "gone"};
    return names[static_cast<std::size_t>(change)];
}

change_class compare_kernels(const placed_kernel& before, const placed_kernel& after)
{
    const bool same_references = equal(by_place(before), by_place(after));
    const bool same_data = before.data == after.data;
    if (before.text == after.text) {
        if (same_references)
            return same_data ? change_class::same : change_class::constants;
        return change_class::references;
    }
    return change_class::code;
}

std::vector<kernel_difference> compare_sets(const kernel_set& before, const kernel_set& after)
{
    // By name, and which of that name it is.
    std::map<std::pair<std::string_view, std::size_t>, kernel_difference> kernels;
    const auto add = [&](const kernel_set& set, auto side) {
        std::unordered_map<std::string_view, std::size_t> seen;
        for (const placed_kernel& kernel : set.kernels) {
            kernel_difference& difference = kernels[{kernel.name, seen[kernel.name]++}];
            difference.name = kernel.name;
            difference.*side = &kernel;
        }
    };
    add(before, &kernel_difference::before);
    add(after, &kernel_difference::after);

    std::vector<kernel_difference> differences;
    differences.reserve(kernels.size());
    for (auto& [name, difference] : kernels) {
        if (difference.before == nullptr)
            difference.change = change_class::added;
        else if (difference.after == nullptr)
            difference.change = change_class::removed;
        else
            difference.change = compare_kernels(*difference.before, *difference.after);
        differences.push_back(std::move(difference));
    }
    return differences;
}

row_alignment align_rows(const placed_kernel& before, const placed_kernel& after)
{
    const std::vector<row> old_rows = rows_of(before);
    const std::vector<row> new_rows = rows_of(after);
    numbering number;
    const std::vector<std::uint32_t> old_numbers = number(old_rows);
    const std::vector<std::uint32_t> new_numbers = number(new_rows);
    const common_sequence common = find_common_sequence(old_numbers, new_numbers);

    std::vector<std::size_t> partner(old_rows.size() + 1, nowhere);
    partner.back() = new_rows.size();
    for (const index_pair& pair : common.pairs)
        partner[pair.before] = pair.after;

    row_alignment alignment;
    alignment.complete = common.complete;
    std::size_t i = 0;
    std::size_t j = 0;
    const auto rows_until = [&](std::size_t old_end, std::size_t new_end) {
        for (; i < old_end; ++i)
            alignment.rows.push_back({i, std::nullopt, false});
        for (; j < new_end; ++j)
            alignment.rows.push_back({std::nullopt, j, false});
    };
    for (const index_pair& pair : common.pairs) {
        rows_until(pair.before, pair.after);
        const row& old_row = old_rows[i];
        const row& new_row = new_rows[j];
        const bool same_target = old_row.target == nowhere
                                     ? new_row.target == nowhere && old_row.distance == new_row.distance
                                     : partner[old_row.target] == new_row.target;
        alignment.rows.push_back({i++, j++, same_target});
    }
    rows_until(old_rows.size(), new_rows.size());
    return alignment;
}

} // namespace vorna::workbench
