#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/interface.hpp"
#include "workbench/analysis/liveness.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/interface_text.hpp"
#include "workbench/render/listing.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <stdexcept>

namespace vorna::workbench {

namespace {

struct show_options {
    common_options common;
    std::string dumps;
    std::vector<std::string> kernels;
    bool unlinked = false;
    bool live = false;
};

struct listed_kernel {
    const placed_kernel& kernel;
    kernel_listing listing;
    kernel_interface interface;
    std::vector<register_set> live; ///< before each instruction, if asked for
};

listed_kernel list(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                   const show_options& options)
{
    listed_kernel listed = {kernel, list_kernel(set, kernel, disassembler, !options.unlinked), {}, {}};
    const decoded_kernel code = decode_kernel(kernel);
    const code_map map = map_code(code, find_entries(set, kernel));
    listed.interface = interface_of(code, map);
    if (options.live)
        listed.live = find_live_registers(code, map);
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

void print_text(const listed_kernel& listed, bool colored)
{
    fmt::print("{}\n", colorize(headline(listed.kernel, listed.listing), color::bold, colored));
    const int digits = offset_digits(listed.kernel);
    for (const std::string& line : interface_lines(listed.interface, digits))
        fmt::print("{}\n", colorize(line, color::dim, colored));
    const std::vector<std::string> live = live_column(listed.live);
    for (std::size_t i = 0; i < listed.listing.rows.size(); ++i) {
        const listing_row& row = listed.listing.rows[i];
        if (!row.label.empty())
            fmt::print("{}\n", colorize(row.label + ":", color::cyan, colored));
        const std::string text = row_text(row, digits, i < live.size() ? live[i] : "");
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
        rows.push_back(std::move(row));
    }
    return {{"kernel", listed.kernel.name},
            {"address", fmt::format("{:#x}", listed.kernel.text_address)},
            {"bytes", listed.kernel.text.size()},
            {"data_address", fmt::format("{:#x}", listed.kernel.data_address)},
            {"data_bytes", listed.kernel.data.size()},
            {"calls", listed.listing.calls},
            {"called_by", listed.listing.callers},
            {"interface", interface_json(listed.interface)},
            {"rows", rows}};
}

int show(const show_options& options)
{
    read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    const bool colored = use_color(options.common);
    disassembler disassembler;
    // Kernel by kernel, since the listings of all would be many times the size of their dumps.
    std::optional<json_array_document> document;
    if (options.common.format == "json")
        document.emplace("kernels");
    bool first = true;
    for (const placed_kernel* kernel : select_kernels(read.set, options.kernels, read.had_errors)) {
        std::optional<listed_kernel> listed;
        try {
            listed.emplace(list(read.set, *kernel, disassembler, options));
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
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 success, 2 error.");
    command.run([options, &status] { status = show(*options); });
}

} // namespace vorna::workbench
