#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/cost.hpp"
#include "workbench/analysis/interface.hpp"
#include "workbench/analysis/liveness.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/cli/processors.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/cost_text.hpp"
#include "workbench/render/interface_text.hpp"
#include "workbench/render/listing.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

namespace vorna::workbench {

namespace {

struct show_options {
    common_options common;
    std::string dumps;
    std::vector<std::string> kernels;
    bool unlinked = false;
    bool live = false;
    std::vector<std::string> processors;
};

/// What the kernel costs on a processor.
struct listed_cost {
    std::string processor;
    std::vector<std::optional<instruction_latency>> latencies;
};

struct listed_kernel {
    const placed_kernel& kernel;
    kernel_listing listing;
    kernel_interface interface;
    std::vector<register_set> live; ///< before each instruction, if asked for
    std::vector<listed_cost> costs;
    table costs_of_blocks;
    json blocks; ///< the same in JSON
};

listed_kernel list(const kernel_set& set, const placed_kernel& kernel, argument_reads& reads,
                   disassembler& disassembler, const show_options& options, const model_list& models)
{
    listed_kernel listed = {kernel, list_kernel(set, kernel, disassembler, !options.unlinked), {}, {}, {}, {},
                            {}};
    const decoded_kernel code = decode_kernel(kernel);
    const code_map map = map_code(code, find_entries(set, kernel));
    const callee_reads callees = reads.by_calls_in(kernel);
    listed.interface = interface_of(code, map, callees);
    if (options.live)
        listed.live = find_live_registers(code, map, callees);
    if (models.empty())
        return listed;
    const std::vector<cost_block> blocks = find_cost_blocks(code, map);
    for (const auto& model : models)
        listed.costs.push_back({model->processor().name, latencies_of(code, blocks, *model)});
    listed.costs_of_blocks = cost_table(kernel, code, blocks, models, disassembler);
    listed.blocks = blocks_json(kernel, code, blocks, models, disassembler);
    return listed;
}

/// The live registers beside each row, all of the same width.
std::vector<std::string> live_column(const std::vector<register_set>& live)
{
    std::vector<std::string> column;
    std::size_t width = 0;
    for (const register_set& registers : live) {
        column.push_back("| " + register_list(registers));
        width = std::max(width, column.back().size());
    }
    for (std::string& cell : column)
        cell.resize(width, ' ');
    return column;
}

/// The latencies beside each row: "|  4* |  2  ".
std::vector<std::string> cost_column(const std::vector<listed_cost>& costs, std::size_t rows)
{
    std::vector<std::string> column(costs.empty() ? 0 : rows);
    for (const listed_cost& cost : costs) {
        for (std::size_t i = 0; i < rows; ++i) {
            column[i] += column[i].empty() ? "" : " ";
            if (i < cost.latencies.size() && cost.latencies[i]) {
                column[i] += fmt::format("|{:>3}{}", cost.latencies[i]->cycles,
                                         cost.latencies[i]->critical ? '*' : ' ');
            } else {
                column[i] += "|    ";
            }
        }
    }
    return column;
}

void print_costs(const listed_kernel& listed, bool colored)
{
    std::istringstream lines(format_table(listed.costs_of_blocks, "text", false));
    for (std::string line; std::getline(lines, line);)
        fmt::print("  {}\n", colorize(line, color::dim, colored));
    std::string order;
    for (const listed_cost& cost : listed.costs)
        order += (order.empty() ? "" : " | ") + cost.processor;
    fmt::print("  {}\n",
               colorize("beside the instructions: latency on " + order + ", * on the critical chain",
                        color::dim, colored));
}

void print_text(const listed_kernel& listed, bool colored)
{
    fmt::print("{}\n", colorize(headline(listed.kernel, listed.listing), color::bold, colored));
    const int digits = offset_digits(listed.kernel);
    for (const std::string& line : interface_lines(listed.interface, digits))
        fmt::print("{}\n", colorize(line, color::dim, colored));
    if (!listed.costs.empty())
        print_costs(listed, colored);
    const std::vector<std::string> live = live_column(listed.live);
    const std::vector<std::string> costs = cost_column(listed.costs, listed.listing.rows.size());
    for (std::size_t i = 0; i < listed.listing.rows.size(); ++i) {
        const listing_row& row = listed.listing.rows[i];
        if (!row.label.empty())
            fmt::print("{}\n", colorize(row.label + ":", color::cyan, colored));
        std::string column = i < live.size() ? live[i] : "";
        if (i < costs.size())
            column += (column.empty() ? "" : " ") + costs[i];
        const std::string text = row_text(row, digits, column);
        const std::size_t comment = row.comment.empty() ? text.size() : text.size() - row.comment.size() - 2;
        fmt::print(" {}{}\n", text.substr(0, comment), colorize(text.substr(comment), color::green, colored));
    }
}

json to_json(const listed_kernel& listed)
{
    json rows = json::array();
    for (std::size_t i = 0; i < listed.listing.rows.size(); ++i) {
        json row = row_to_json(listed.listing.rows[i]);
        if (i < listed.live.size())
            row["live"] = names_of(listed.live[i]);
        for (const listed_cost& cost : listed.costs) {
            if (i < cost.latencies.size() && cost.latencies[i])
                row["latency"][cost.processor] = cost.latencies[i]->cycles;
        }
        rows.push_back(std::move(row));
    }
    json made = {{"kernel", listed.kernel.name},
                 {"address", fmt::format("{:#x}", listed.kernel.text_address)},
                 {"bytes", listed.kernel.text.size()},
                 {"data_address", fmt::format("{:#x}", listed.kernel.data_address)},
                 {"data_bytes", listed.kernel.data.size()},
                 {"calls", listed.listing.calls},
                 {"called_by", listed.listing.callers},
                 {"interface", interface_json(listed.interface)},
                 {"rows", rows}};
    if (!listed.costs.empty())
        made["blocks"] = listed.blocks;
    return made;
}

int show(const show_options& options)
{
    const model_list models = load_models(options.processors);
    read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    const bool colored = use_color(options.common);
    disassembler disassembler;
    argument_reads reads(read.set);
    // Kernel by kernel, since the listings of all would be many times the size of their dumps.
    std::optional<json_array_document> document;
    if (options.common.format == "json")
        document.emplace("kernels");
    bool first = true;
    for (const placed_kernel* kernel : select_kernels(read.set, options.kernels, read.had_errors)) {
        std::optional<listed_kernel> listed;
        try {
            listed.emplace(list(read.set, *kernel, reads, disassembler, options, models));
        } catch (const std::runtime_error& error) {
            print_error(error.what());
            read.had_errors = true;
            continue;
        }
        if (document) {
            document->add(to_json(*listed));
            continue;
        }
        if (!first)
            fmt::print("\n");
        first = false;
        print_text(*listed, colored);
    }
    if (document)
        document->finish();
    return read.had_errors ? exit_error : exit_success;
}

} // namespace

void add_show(command_line& program, int& status)
{
    const auto options = std::make_shared<show_options>();
    command_line command = program.add_command("show", "Disassemble kernels, with names and constants");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("KERNEL", options->kernels, "Kernels to show (default: all)");
    command.add_flag("--unlinked", options->unlinked,
                     "Show the code as generated, before relocations are applied");
    command.add_flag("--live", options->live, "Show the live registers before each instruction");
    add_processors(command, options->processors,
                   "Show latencies, and what limits each loop, on these processors");
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 success, 2 error.");
    command.run([options, &status] { status = show(*options); });
}

} // namespace vorna::workbench
