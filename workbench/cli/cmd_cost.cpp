#include "workbench/analysis/cost.hpp"
#include "workbench/analysis/interface.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/cli/processors.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/cost_text.hpp"
#include "workbench/render/interface_text.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/render/table.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <set>
#include <stdexcept>

namespace vorna::workbench {

namespace {

struct cost_options {
    common_options common;
    std::string dumps;
    std::vector<std::string> kernels;
    std::vector<std::string> processors;
    bool explain = false;
};

struct analysed_kernel {
    const placed_kernel& kernel;
    decoded_kernel code;
    code_map map;
    std::vector<cost_block> blocks;
};

analysed_kernel analyse(const kernel_set& set, const placed_kernel& kernel)
{
    if (kernel.text.size() > largest_decoded_code)
        throw std::runtime_error(fmt::format("{}: more than 4 MiB of code", printable(kernel.name)));
    analysed_kernel made = {kernel, decode_kernel(kernel), {}, {}};
    made.map = map_code(made.code, find_entries(set, kernel));
    made.blocks = find_cost_blocks(made.code, made.map);
    return made;
}

table empty_table()
{
    table made;
    made.columns = {{"kernel", column_kind::name},
                    {"block"},
                    {"processor"},
                    {"insns", column_kind::number},
                    {"uops", column_kind::number},
                    {"cycles", column_kind::number},
                    {"once", column_kind::number},
                    {"bound", column_kind::number},
                    {"limited by"},
                    {"by how much, and the chain", column_kind::text, shown_in::markdown}};
    made.aligned = true;
    return made;
}

table_row make_row(const analysed_kernel& of, const cost_block& block, const std::string& processor)
{
    table_row row;
    row.level = table_level::notice;
    row.cells = {{printable(of.kernel.name)},
                 {block_text(block)},
                 {processor},
                 {std::to_string(block.instructions.size())},
                 {"-"},
                 {"-"},
                 {"-"},
                 {"-"},
                 {""},
                 {""}};
    return row;
}

// Details of a row: a cell in Markdown, a line below the row in text.
void add_details(table_row& row, const std::string& details)
{
    row.cells.back().text = details;
    row.evidence = "    " + details;
}

void add_reason(table_row& row, const std::string& reason)
{
    row.cells[8] = {"not modelled", color::yellow};
    add_details(row, reason);
}

void add_rows(const analysed_kernel& of, const model_list& models, disassembler& disassembler, table& to)
{
    for (const cost_block& block : of.blocks) {
        if (block.obstacle != cost_obstacle::none) {
            to.rows.push_back(make_row(of, block, "-"));
            add_reason(to.rows.back(), obstacle_text(of.kernel, of.code, block));
            continue;
        }
        for (const auto& model : models) {
            table_row row = make_row(of, block, processor_text(model->processor()));
            const modelled_block& modelled = model->of(of.code, block);
            const block_cost& cost = modelled.cost;
            if (modelled.gap != model_gap::none) {
                add_reason(row, gap_text(of.kernel, block, modelled, disassembler));
            } else {
                row.cells[4].text = std::to_string(cost.uops / cost.iterations);
                row.cells[5].text = cycles_text(cost.cycles);
                row.cells[6].text = block.depth == 0 ? std::to_string(modelled.once) : "-";
                row.cells[7].text = cycles_text(cost.throughput);
                row.cells[8].text = cost.limited_by;
                add_details(row, chain_text(of.kernel, block, cost, disassembler));
            }
            to.rows.push_back(std::move(row));
        }
    }
}

json to_json(const analysed_kernel& of, const model_list& models, disassembler& disassembler)
{
    return {{"kernel", of.kernel.name},
            {"blocks", blocks_json(of.kernel, of.code, of.blocks, models, disassembler)}};
}

// ---- The explanation of a kernel

std::string ports_of(const instruction_cost& cost)
{
    std::string text;
    for (const resource_use& use : cost.resources) {
        text += text.empty() ? "" : " ";
        text += unit_name(use.resource);
        if (use.cycles != 1)
            text += fmt::format("*{}", use.cycles);
    }
    return text.empty() ? "-" : text;
}

// The 32-byte lines that the block's code lies in, and how few could hold it.
std::string fetch_text(const cost_block& block)
{
    constexpr std::size_t words_in_line = 8;
    std::set<std::size_t> lines;
    for (const std::size_t i : block.instructions)
        lines.insert(i / words_in_line);
    const std::size_t fewest = (block.instructions.size() + words_in_line - 1) / words_in_line;
    return fmt::format("{} in {} of 32 bytes (at least {})",
                       pluralize(block.instructions.size(), "instruction"), pluralize(lines.size(), "line"),
                       fewest);
}

void explain_block(const analysed_kernel& of, const cost_block& block, const modelled_block& modelled,
                   const kernel_listing& listing, disassembler& disassembler, bool colored)
{
    const block_cost& cost = modelled.cost;
    const std::string once = block.depth == 0 ? fmt::format(", {} once", modelled.once) : "";
    fmt::print("{}: {}, {}{}, bound {} by {}\n  limited by {}\n", block_text(block), fetch_text(block),
               count_cycles(cost.cycles), once, cycles_text(cost.throughput), cost.busiest,
               limit_text(of.kernel, block, cost, disassembler));
    const std::vector<instruction_latency> latencies = latencies_of(block, cost);
    fmt::print("  {:>4} {:>5} {:>5} {}\n", "uops", "lat", "thr", "ports");
    for (std::size_t i = 0; i < block.instructions.size(); ++i) {
        const instruction_cost& its = cost.instructions[i];
        const listing_row& row = listing.rows[block.instructions[i]];
        const std::string text = fmt::format(
            "{} {:>4} {:>5} {:>5} {:<16} +{:02x}  {}", latencies[i].critical ? '*' : ' ', its.uops,
            latencies[i].cycles, cycles_text(its.throughput), ports_of(its), row.offset, row.text);
        const std::string wait = latencies[i].waits.empty() ? "" : "  ; " + latencies[i].waits;
        fmt::print(" {}{}\n", latencies[i].critical ? colorize(text, color::bold, colored) : text,
                   colorize(wait, color::green, colored));
    }
}

void explain(const kernel_set& set, const analysed_kernel& of, const model_list& models,
             disassembler& disassembler, bool colored)
{
    const kernel_listing listing = list_kernel(set, of.kernel, disassembler);
    fmt::print("{}\n", colorize(headline(of.kernel, listing), color::bold, colored));
    argument_reads reads(set);
    const kernel_interface interface = interface_of(of.code, of.map, reads.by_calls_in(of.kernel));
    for (const std::string& line : interface_lines(interface, offset_digits(of.kernel)))
        fmt::print("{}\n", colorize(line, color::dim, colored));
    for (const cost_block& block : of.blocks) {
        if (block.obstacle != cost_obstacle::none) {
            fmt::print("\n{}: {}, not modelled: {}\n", block_text(block),
                       pluralize(block.instructions.size(), "instruction"),
                       obstacle_text(of.kernel, of.code, block));
            continue;
        }
        for (const auto& model : models) {
            fmt::print("\n{}: ", colorize(processor_text(model->processor()), color::cyan, colored));
            const modelled_block& modelled = model->of(of.code, block);
            if (modelled.gap != model_gap::none)
                fmt::print("{}: {}\n", block_text(block), gap_text(of.kernel, block, modelled, disassembler));
            else
                explain_block(of, block, modelled, listing, disassembler, colored);
        }
    }
    fmt::print("\n{}\n", cost_disclaimer());
}

int cost(const cost_options& options)
{
    const model_list models =
        load_models(options.processors.empty() ? default_processors() : options.processors);
    read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    const std::vector<const placed_kernel*> kernels =
        select_kernels(read.set, options.kernels, read.had_errors);
    disassembler disassembler;
    table rows = empty_table();
    json list = json::array();
    progress_line progress("kernels");
    const bool as_json = options.common.format == "json";
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        progress.show(i, kernels.size());
        try {
            const analysed_kernel analysed = analyse(read.set, *kernels[i]);
            if (as_json)
                list.push_back(to_json(analysed, models, disassembler));
            else if (options.explain)
                explain(read.set, analysed, models, disassembler, use_color(options.common));
            else
                add_rows(analysed, models, disassembler, rows);
        } catch (const std::runtime_error& error) {
            print_error(error.what());
            read.had_errors = true;
        }
    }
    progress.clear();
    rows.summary = cost_disclaimer();
    if (as_json)
        print_json({{"llvm", llvm_version()}, {"kernels", list}});
    else if (!options.explain)
        fmt::print("{}", format_table(rows, options.common.format, use_color(options.common)));
    return read.had_errors ? exit_error : exit_success;
}

} // namespace

void add_cost(command_line& program, int& status)
{
    const auto options = std::make_shared<cost_options>();
    command_line command = program.add_command("cost", "Estimate the cycles that kernels take");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("KERNEL", options->kernels, "Kernels to estimate (default: all)");
    add_processors(command, options->processors,
                   "Processors (default: cortex-a55, neoverse-n1, neoverse-v2)");
    command.add_flag("--explain", options->explain,
                     "List the instructions with latency, throughput, ports and waits");
    add_common_options(command, options->common, {"text", "json", "markdown"});
    command.footer("Exit status: 0 success, 2 error.");
    command.run([options, &status] { status = cost(*options); });
}

} // namespace vorna::workbench
