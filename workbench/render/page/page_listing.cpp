#include "workbench/render/page/page_listing.hpp"

#include "workbench/analysis/difference.hpp"
#include "workbench/render/interface_text.hpp"
#include "workbench/render/json.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/constants.hpp"
#include "workbench/text/percent.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <span>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t word_size = 4;
constexpr std::size_t most_constant_bytes = 16384;

/// The rows, one member for each column: words and texts of all rows, and pairs of a row and its label,
/// comment, branch target, or the kernel that it calls.
json rows_json(const kernel_listing& listing, const std::unordered_map<std::string, std::size_t>& index)
{
    json words = json::array();
    json texts = json::array();
    json labels = json::array();
    json comments = json::array();
    json targets = json::array();
    json calls = json::array();
    for (std::size_t i = 0; i < listing.rows.size(); ++i) {
        const listing_row& row = listing.rows[i];
        words.push_back(fmt::format("{:0{}x}", row.word, 2 * row.size));
        texts.push_back(printable(row.text));
        if (!row.label.empty())
            labels.push_back({i, row.label});
        if (!row.comment.empty())
            comments.push_back({i, printable(row.comment)});
        if (row.branch_target)
            targets.push_back({i, *row.branch_target / word_size});
        if (const auto callee = index.find(row.callee); callee != index.end())
            calls.push_back({i, callee->second});
    }
    return {{"words", std::move(words)},       {"texts", std::move(texts)},     {"labels", std::move(labels)},
            {"comments", std::move(comments)}, {"targets", std::move(targets)}, {"calls", std::move(calls)}};
}

/// For each row with samples: the row, its period, and its share of the kernel's in percent as text.
json heat_json(const kernel_profile& profile, std::size_t text_size)
{
    const std::vector<std::uint64_t> periods = periods_by_row(profile, text_size);
    json heat = json::array();
    for (std::size_t i = 0; i < periods.size(); ++i) {
        if (periods[i] != 0)
            heat.push_back({i, periods[i], percent_text(periods[i], profile.count.period)});
    }
    return heat;
}

/// The alignment of two listings as runs: numbers of equal rows, of rows only in the first, and of rows only
/// in the second, repeated. Rows that belong together but differ count in both of the latter.
json runs_json(const row_alignment& alignment)
{
    json runs = json::array();
    std::size_t same = 0;
    std::size_t removed = 0;
    std::size_t inserted = 0;
    const auto end_run = [&] {
        if (same + removed + inserted != 0)
            runs.push_back({same, removed, inserted});
        same = removed = inserted = 0;
    };
    for (const row_pair& row : alignment.rows) {
        if (row.same) {
            if (removed + inserted != 0)
                end_run();
            ++same;
        } else {
            removed += row.before ? 1 : 0;
            inserted += row.after ? 1 : 0;
        }
    }
    end_run();
    return runs;
}

/// At most so many, in hexadecimal.
std::string constants_text(std::span<const std::uint8_t> bytes)
{
    return hexadecimal(bytes.first(std::min(bytes.size(), most_constant_bytes)));
}

} // namespace

std::string make_page_listing(const page_listing_input& input, disassembler& disassembler)
{
    const placed_kernel& kernel = *input.kernel;
    kernel_interface interface = *input.interface;
    std::erase_if(interface.calls, [&](const std::string& name) { // the page has links to these
        return input.index->count(name) != 0;
    });
    json made = {{"interface", interface_text(interface)}};
    const bool too_long = kernel.text.size() > most_listed_bytes ||
                          (input.before != nullptr && input.before->text.size() > most_listed_bytes);
    if (!too_long)
        made["rows"] = rows_json(list_kernel(*input.set, kernel, disassembler), *input.index);
    if (!too_long && input.profile != nullptr)
        made["heat"] = heat_json(*input.profile, kernel.text.size());
    if (input.cost != nullptr)
        made["blocks"] = input.cost->blocks;
    if (!too_long && input.cost != nullptr) {
        made["latencies"] = input.cost->latencies;
        made["chain"] = input.cost->chain;
    }
    made["constants"] = constants_text(kernel.data);
    if (input.before != nullptr) {
        if (!too_long) {
            made["before"] =
                rows_json(list_kernel(*input.set_before, *input.before, disassembler), *input.index);
            const row_alignment alignment = align_rows(*input.before, kernel);
            made["runs"] = runs_json(alignment);
            made["complete"] = alignment.complete;
        }
        made["constants_before"] = constants_text(input.before->data);
        made["constants_differ"] = kernel.data != input.before->data;
    }
    return made.dump();
}

} // namespace vorna::workbench
