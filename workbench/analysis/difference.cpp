// Classifies a kernel's difference, and aligns the rows of two kernels for a diff.
//
// The classes "registers" and "layout" need a proof (equivalence.cpp), "order" compares basic blocks
// (reordering.cpp); the others follow from comparing bytes and relocations.
//
// Rows are aligned by the longest common subsequence of their address-independent keys (canonical_code). Rows
// paired in this way are equal only if their branch targets are paired too and their loads get the same
// constants.

#include "workbench/analysis/difference.hpp"

#include "workbench/analysis/canonical_code.hpp"
#include "workbench/analysis/common_sequence.hpp"
#include "workbench/analysis/loaded_constants.hpp"
#include "workbench/analysis/reordering.hpp"
#include "workbench/disasm/decoded_kernel.hpp"

#include <algorithm>
#include <elf.h>
#include <map>
#include <unordered_map>
#include <utility>

namespace vorna::workbench {

namespace {

// Numbers the keys of rows, so that equal keys have equal numbers in both kernels.
class numbering {
public:
    std::vector<std::uint32_t> operator()(const std::vector<code_row>& rows)
    {
        std::vector<std::uint32_t> numbers;
        numbers.reserve(rows.size());
        for (const code_row& r : rows)
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
    static constexpr std::string_view names[] = {"same",  "constants", "layout", "relocations", "registers",
                                                 "order", "code",      "added",  "removed"};
    return names[static_cast<std::size_t>(change)];
}

change_class compare_kernels(const placed_kernel& before, const placed_kernel& after,
                             const outside_uses& uses)
{
    const bool same_code = before.text == after.text;
    const bool same_references = equal_references(relocations_by_place(before), relocations_by_place(after));
    const bool same_data = before.data == after.data;
    if (same_code && same_references)
        return same_data ? change_class::same : change_class::constants;
    const change_class otherwise = same_code ? change_class::relocations : change_class::code;
    if (before.text.size() != after.text.size() || before.text.size() > largest_decoded_code)
        return otherwise;
    const decoded_kernel old_code = decode_kernel(before);
    const decoded_kernel new_code = decode_kernel(after);
    if (same_data && same_references && only_registers_differ(old_code, new_code, uses))
        return change_class::registers;
    if (only_layout_differs(old_code, new_code, uses))
        return change_class::layout;
    if (!same_code && same_data && only_order_differs(old_code, new_code, uses.entries))
        return change_class::order;
    return otherwise;
}

namespace {

using uses_by_name = std::unordered_map<std::string, outside_uses>;

// Adds what one relocation of `user` leads to.
void add_use(uses_by_name& uses, const kernel_set& set, const placed_kernel& user,
             const tessjit::reloc_info& reloc)
{
    if (names_data(reloc.name)) {
        const std::string owner = reloc.name.substr(data_prefix.size());
        if (const auto used = uses.find(owner); used != uses.end() && owner != user.name)
            used->second.of_data = true;
        return;
    }
    const auto enter = [&](const std::string& name, std::int64_t offset) {
        if (offset == 0)
            return;
        outside_uses& used = uses[name];
        used.entries.push_back(offset);
        used.of_code = used.of_code || reloc.type != R_AARCH64_CALL26;
    };
    if (reloc.name != user.name && uses.contains(reloc.name))
        enter(reloc.name, reloc.addend);
    // The addend may lead into another kernel than the one that is named.
    const placed_kernel* const named = find_kernel(set, reloc.name);
    if (named == nullptr)
        return;
    const std::uint64_t target = named->text_address + static_cast<std::uint64_t>(std::int64_t{reloc.addend});
    const placed_kernel* const entered = find_kernel_by_text(set, target);
    if (entered != nullptr && entered->name != reloc.name)
        enter(entered->name, static_cast<std::int64_t>(target - entered->text_address));
}

// For each kernel, what relocations of other kernels, in either set, lead to.
uses_by_name find_uses(const kernel_set& before, const kernel_set& after)
{
    uses_by_name uses;
    for (const kernel_set* set : {&before, &after}) {
        for (const placed_kernel& kernel : set->kernels)
            uses[kernel.name];
    }
    for (const kernel_set* set : {&before, &after}) {
        for (const placed_kernel& kernel : set->kernels) {
            for (const tessjit::reloc_info& reloc : kernel.relocs)
                add_use(uses, *set, kernel, reloc);
        }
    }
    for (auto& [name, used] : uses) {
        std::vector<std::int64_t>& entries = used.entries;
        std::sort(entries.begin(), entries.end());
        entries.erase(std::unique(entries.begin(), entries.end()), entries.end());
    }
    return uses;
}

} // namespace

std::vector<kernel_difference> compare_sets(const kernel_set& before, const kernel_set& after)
{
    // By name, and by number among the kernels of that name.
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

    const uses_by_name uses = find_uses(before, after);
    std::vector<kernel_difference> differences;
    differences.reserve(kernels.size());
    for (auto& [name, difference] : kernels) {
        if (difference.before == nullptr)
            difference.change = change_class::added;
        else if (difference.after == nullptr)
            difference.change = change_class::removed;
        else
            difference.change =
                compare_kernels(*difference.before, *difference.after, uses.at(difference.name));
        differences.push_back(std::move(difference));
    }
    return differences;
}

row_alignment pair_rows(const common_sequence& common, std::size_t before_rows, std::size_t after_rows)
{
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
        alignment.rows.push_back({i++, j++, true});
    }
    rows_until(before_rows, after_rows);
    return alignment;
}

row_alignment align_rows(const placed_kernel& before, const placed_kernel& after)
{
    const decoded_kernel old_code = decode_kernel(before);
    const decoded_kernel new_code = decode_kernel(after);
    const std::vector<code_row> old_rows = code_rows(old_code);
    const std::vector<code_row> new_rows = code_rows(new_code);
    numbering number;
    const std::vector<std::uint32_t> old_numbers = number(old_rows);
    const std::vector<std::uint32_t> new_numbers = number(new_rows);
    row_alignment alignment =
        pair_rows(find_common_sequence(old_numbers, new_numbers), old_rows.size(), new_rows.size());

    std::vector<std::size_t> partner(old_rows.size() + 1, no_row);
    partner.back() = new_rows.size();
    for (const row_pair& pair : alignment.rows) {
        if (pair.same)
            partner[*pair.before] = *pair.after;
    }
    const loaded_constants old_constants = find_loaded_constants(old_code);
    const loaded_constants new_constants = find_loaded_constants(new_code);
    for (row_pair& pair : alignment.rows) {
        if (!pair.same)
            continue;
        const code_row& old_row = old_rows[*pair.before];
        const code_row& new_row = new_rows[*pair.after];
        const bool same_target = old_row.target == no_row
                                     ? new_row.target == no_row && old_row.distance == new_row.distance
                                     : partner[old_row.target] == new_row.target;
        const auto old_value = old_constants.find(*pair.before);
        const auto new_value = new_constants.find(*pair.after);
        const bool same_value = old_value == old_constants.end() || new_value == new_constants.end() ||
                                old_value->second == new_value->second;
        pair.same = same_target && same_value;
    }
    return alignment;
}

} // namespace vorna::workbench
