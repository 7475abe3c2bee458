#include "workbench/analysis/cost.hpp"
#include "workbench/analysis/difference.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/cli/processors.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/cost_text.hpp"
#include "workbench/render/markdown.hpp"
#include "workbench/render/table.hpp"
#include "workbench/render/unified_diff.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>
#include <tuple>

namespace vorna::workbench {

namespace {

struct diff_options {
    common_options common;
    std::string before;
    std::string after;
    std::vector<std::string> kernels;
    std::vector<std::string> ignored;
    std::vector<std::string> processors;
    std::size_t limit = 10;
};

/// Of each kernel, the change of cycles on each processor.
using cycle_changes = std::map<const kernel_difference*, std::vector<std::optional<double>>>;

using kernel_differences = std::vector<kernel_difference>;

struct sizes {
    std::size_t instructions = 0;
    std::size_t code = 0;
    std::size_t data = 0;
};

sizes sizes_of(const placed_kernel* kernel)
{
    if (kernel == nullptr)
        return {};
    return {kernel->text.size() / 4, kernel->text.size(), kernel->data.size()};
}

std::size_t distance(std::size_t a, std::size_t b)
{
    return a < b ? b - a : a - b;
}

// Kernels that are not the same, the largest change first.
std::vector<const kernel_difference*> different_kernels(const kernel_differences& kernels)
{
    std::vector<const kernel_difference*> different;
    for (const kernel_difference& kernel : kernels) {
        if (kernel.change != change_class::same)
            different.push_back(&kernel);
    }
    const auto key = [](const kernel_difference* kernel) {
        const sizes before = sizes_of(kernel->before);
        const sizes after = sizes_of(kernel->after);
        return std::pair(distance(before.code, after.code) + distance(before.data, after.data),
                         kernel->change);
    };
    std::stable_sort(different.begin(), different.end(),
                     [&](const auto* a, const auto* b) { return key(a) > key(b); });
    return different;
}

std::vector<std::optional<double>> changes_of(const kernel_difference& kernel, const kernel_set& before_set,
                                              const kernel_set& after_set, const model_list& processors)
{
    std::vector<std::optional<double>> changes(processors.size());
    if (kernel.before == nullptr || kernel.after == nullptr ||
        kernel.before->text.size() > largest_decoded_code || kernel.after->text.size() > largest_decoded_code)
        return changes;
    const decoded_kernel before = decode_kernel(*kernel.before);
    const decoded_kernel after = decode_kernel(*kernel.after);
    const auto old_blocks =
        find_cost_blocks(before, map_code(before, find_entries(before_set, *kernel.before)));
    const auto new_blocks = find_cost_blocks(after, map_code(after, find_entries(after_set, *kernel.after)));
    for (std::size_t i = 0; i < processors.size(); ++i)
        changes[i] = change_of_cycles(before, old_blocks, after, new_blocks, *processors[i]);
    return changes;
}

// The largest change on any processor.
double largest(const std::vector<std::optional<double>>& changes)
{
    double most = 0;
    for (const std::optional<double>& change : changes)
        most = std::max(most, std::abs(change.value_or(0)));
    return most;
}

std::string cycle_change_text(const std::optional<double>& change)
{
    return change ? (*change > 0 ? "+" : "") + cycles_text(*change) : "-";
}

// Kernels that a diff can be shown of, the smallest first.
std::vector<const kernel_difference*> changed_kernels(const kernel_differences& kernels)
{
    std::vector<const kernel_difference*> changed;
    for (const kernel_difference& kernel : kernels) {
        if (kernel.change != change_class::same && kernel.before != nullptr && kernel.after != nullptr)
            changed.push_back(&kernel);
    }
    const auto size = [](const kernel_difference* kernel) {
        return kernel->after->text.size() + kernel->after->data.size();
    };
    std::stable_sort(changed.begin(), changed.end(),
                     [&](const auto* a, const auto* b) { return size(a) < size(b); });
    return changed;
}

std::size_t count_same(const kernel_differences& kernels)
{
    return static_cast<std::size_t>(std::count_if(kernels.begin(), kernels.end(), [](const auto& kernel) {
        return kernel.change == change_class::same;
    }));
}

std::string change_text(std::size_t before, std::size_t after)
{
    if (before == after)
        return std::to_string(after);
    return fmt::format("{} -> {} ({}{})", before, after, before < after ? '+' : '-', distance(before, after));
}

color color_of(change_class change)
{
    switch (change) {
    case change_class::same:
        return color::none;
    case change_class::layout:
    case change_class::registers:
    case change_class::order:
        return color::cyan;
    case change_class::added:
        return color::green;
    case change_class::constants:
    case change_class::relocations:
        return color::yellow;
    case change_class::code:
    case change_class::removed:
        return color::red;
    }
    return color::none;
}

table table_of(const kernel_differences& kernels, const model_list& processors, const cycle_changes& cycles)
{
    table made;
    made.columns = {{"kernel", column_kind::name},
                    {"class"},
                    {"instructions", column_kind::number},
                    {"code bytes", column_kind::number},
                    {"constant bytes", column_kind::number}};
    for (const auto& processor : processors)
        made.columns.push_back({"cycles on " + processor_text(processor->processor()), column_kind::number});
    std::vector<const kernel_difference*> different = different_kernels(kernels);
    std::stable_sort(different.begin(), different.end(), [&](const auto* a, const auto* b) {
        return !cycles.empty() && largest(cycles.at(a)) > largest(cycles.at(b));
    });
    for (const kernel_difference* kernel : different) {
        const sizes before = sizes_of(kernel->before);
        const sizes after = sizes_of(kernel->after);
        const color paint = color_of(kernel->change);
        const bool harmless = paint == color::cyan || paint == color::green;
        table_row row;
        row.level = harmless ? table_level::notice : table_level::warning;
        row.cells = {{printable(kernel->name)},
                     {std::string(name_of(kernel->change)), paint},
                     {change_text(before.instructions, after.instructions)},
                     {change_text(before.code, after.code)},
                     {change_text(before.data, after.data)}};
        for (std::size_t i = 0; i < processors.size(); ++i)
            row.cells.push_back({cycle_change_text(cycles.at(kernel)[i])});
        made.rows.push_back(std::move(row));
    }
    made.summary = fmt::format("{} same", count_same(kernels));
    if (!processors.empty())
        made.summary += "; cycles " + cost_disclaimer();
    made.aligned = true;
    return made;
}

void print_text(const std::vector<std::string>& lines, bool colored)
{
    fmt::print("\n");
    for (const std::string& line : lines) {
        const bool head = line.compare(0, 3, "---") == 0 || line.compare(0, 3, "+++") == 0;
        const color c = head                  ? color::bold
                        : line.front() == '-' ? color::red
                        : line.front() == '+' ? color::green
                        : line.front() == '@' ? color::cyan
                                              : color::none;
        fmt::print("{}\n", colorize(line, c, colored));
    }
}

void print_diffs(const kernel_differences& kernels, std::size_t limit, bool markdown, bool colored)
{
    const std::vector<const kernel_difference*> changed = changed_kernels(kernels);
    disassembler disassembler;
    for (std::size_t i = 0; i < changed.size() && i < limit; ++i) {
        const kernel_difference& kernel = *changed[i];
        const std::vector<std::string> lines = unified_diff(*kernel.before, *kernel.after, disassembler);
        if (markdown) {
            fmt::print("\n<details><summary>{}: {}</summary>\n\n{}\n</details>\n",
                       markdown_code(printable(kernel.name)), name_of(kernel.change),
                       markdown_block("diff", lines));
        } else {
            print_text(lines, colored);
        }
    }
    if (changed.size() > limit)
        fmt::print("\n{} more changed {}; show all with --limit={}\n", changed.size() - limit,
                   changed.size() - limit == 1 ? "kernel" : "kernels", changed.size());
}

json side_of(const placed_kernel* kernel)
{
    if (kernel == nullptr)
        return nullptr;
    const sizes of_kernel = sizes_of(kernel);
    return {{"code", of_kernel.code}, {"data", of_kernel.data}, {"instructions", of_kernel.instructions}};
}

void print_differences(const kernel_differences& kernels, const model_list& processors,
                       const cycle_changes& cycles)
{
    json list = json::array();
    for (const kernel_difference& kernel : kernels) {
        json made = {{"kernel", kernel.name},
                     {"class", name_of(kernel.change)},
                     {"old", side_of(kernel.before)},
                     {"new", side_of(kernel.after)}};
        for (std::size_t i = 0; i < processors.size() && cycles.contains(&kernel); ++i) {
            const std::optional<double>& change = cycles.at(&kernel)[i];
            made["cycles"][processors[i]->processor().name] = change ? json(*change) : json(nullptr);
        }
        list.push_back(std::move(made));
    }
    json document = {{"kernels", list}};
    if (!processors.empty())
        document["llvm"] = llvm_version();
    print_json(document);
}

// Leaves only the kernels of these names, all if there are none. Reports the names that no kernel has.
bool select_by_name(kernel_differences& kernels, const std::vector<std::string>& names)
{
    bool found_all = true;
    for (const std::string& name : names) {
        const bool found = std::any_of(kernels.begin(), kernels.end(),
                                       [&](const kernel_difference& kernel) { return kernel.name == name; });
        if (!found)
            print_error(fmt::format("no kernel {} in either set", printable(name)));
        found_all = found_all && found;
    }
    if (!names.empty()) {
        kernels.erase(std::remove_if(kernels.begin(), kernels.end(),
                                     [&](const kernel_difference& kernel) {
                                         return std::find(names.begin(), names.end(), kernel.name) ==
                                                names.end();
                                     }),
                      kernels.end());
    }
    return found_all;
}

int diff(const diff_options& options)
{
    const model_list processors = load_models(options.processors);
    const read_result before = read_set({options.before}, options.common);
    const read_result after = read_set({options.after}, options.common);
    const bool had_errors = before.had_errors || after.had_errors;
    const bool any_before = require_kernels(before, options.before);
    if (!require_kernels(after, options.after) || !any_before)
        return exit_error;

    kernel_differences kernels = compare_sets(before.set, after.set);
    if (!select_by_name(kernels, options.kernels))
        return exit_error;
    for (kernel_difference& kernel : kernels) {
        if (std::find(options.ignored.begin(), options.ignored.end(), name_of(kernel.change)) !=
            options.ignored.end())
            kernel.change = change_class::same;
    }
    cycle_changes cycles;
    for (const kernel_difference& kernel : kernels) {
        if (kernel.change != change_class::same && !processors.empty())
            cycles[&kernel] = changes_of(kernel, before.set, after.set, processors);
    }
    const std::string& format = options.common.format;
    const bool colored = use_color(options.common);
    if (format == "json")
        print_differences(kernels, processors, cycles);
    else
        fmt::print("{}", format_table(table_of(kernels, processors, cycles), format, colored));
    if (format == "text" || format == "markdown")
        print_diffs(kernels, options.limit, format == "markdown", colored);
    if (had_errors)
        return exit_error;
    return count_same(kernels) == kernels.size() ? exit_success : exit_findings;
}

} // namespace

void add_diff(command_line& program, int& status)
{
    const auto options = std::make_shared<diff_options>();
    command_line command =
        program.add_command("diff", "Compare two sets of kernels, wherever they are placed");
    command.add_option("OLD", options->before, "Dumps before the change: a directory, or one dump")
        .required();
    command.add_option("NEW", options->after, "Dumps after the change").required();
    command.add_option("KERNEL", options->kernels, "Kernels to compare (default: all)");
    command.add_option("--ignore", options->ignored, "Classes to treat as same, separated by commas")
        .delimiter(',')
        .one_of({"layout", "registers", "order"});
    add_processors(command, options->processors, "Show the change of cycles on these processors");
    command
        .add_option("--limit", options->limit,
                    "Changed kernels to show in detail, smallest first (default: 10)")
        .check(
            [](const std::string& value) {
                return value.find('-') == std::string::npos ? "" : std::string("not a number");
            },
            "N");
    add_common_options(command, options->common, {"text", "json", "github", "markdown"});
    command.footer("Exit status: 0 all same, 1 differences, 2 error.");
    command.run([options, &status] { status = diff(*options); });
}

} // namespace vorna::workbench
