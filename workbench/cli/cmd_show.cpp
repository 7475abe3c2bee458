#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/listing.hpp"

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
};

struct listed_kernel {
    const placed_kernel& kernel;
    kernel_listing listing;
};

void print_text(const listed_kernel& listed, bool colored)
{
    fmt::print("{}\n", colorize(headline(listed.kernel, listed.listing), color::bold, colored));
    const int digits = offset_digits(listed.kernel);
    for (const listing_row& row : listed.listing.rows) {
        if (!row.label.empty())
            fmt::print("{}\n", colorize(row.label + ":", color::cyan, colored));
        const std::string text = row_text(row, digits);
        const std::size_t comment = row.comment.empty() ? text.size() : text.size() - row.comment.size() - 2;
        fmt::print(" {}{}\n", text.substr(0, comment), colorize(text.substr(comment), color::green, colored));
    }
}

json to_json(const listed_kernel& listed)
{
    json rows = json::array();
    for (const listing_row& row : listed.listing.rows)
        rows.push_back(row_to_json(row));
    return {{"kernel", listed.kernel.name},
            {"address", fmt::format("{:#x}", listed.kernel.text_address)},
            {"bytes", listed.kernel.text.size()},
            {"data_address", fmt::format("{:#x}", listed.kernel.data_address)},
            {"data_bytes", listed.kernel.data.size()},
            {"calls", listed.listing.calls},
            {"called_by", listed.listing.callers},
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
        listed_kernel listed = {*kernel, {}};
        try {
            listed.listing = list_kernel(read.set, *kernel, disassembler, !options.unlinked);
        } catch (const std::runtime_error& error) {
            print_error(error.what());
            read.had_errors = true;
            continue;
        }
        if (document) {
            document->add(to_json(listed));
            continue;
        }
        if (!first)
            fmt::print("\n");
        first = false;
        print_text(listed, colored);
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
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 success, 2 error.");
    command.run([options, &status] { status = show(*options); });
}

} // namespace vorna::workbench
