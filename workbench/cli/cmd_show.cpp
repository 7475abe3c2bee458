#include "workbench/cli/command.hpp"
#include "workbench/cli/json.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/output.hpp"

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

void print_text(const listed_kernel& listed, bool colour)
{
    fmt::print("{}\n", painted(headline(listed.kernel, listed.listing), colour::bold, colour));
    const int digits = offset_digits(listed.kernel);
    for (const listing_row& row : listed.listing.rows) {
        if (!row.label.empty())
            fmt::print("{}\n", painted(row.label + ":", colour::cyan, colour));
        const std::string text = row_text(row, digits);
        const std::size_t comment = row.comment.empty() ? text.size() : text.size() - row.comment.size() - 2;
        fmt::print(" {}{}\n", text.substr(0, comment), painted(text.substr(comment), colour::green, colour));
    }
}

json to_json(const listed_kernel& listed)
{
    json rows = json::array();
    for (const listing_row& row : listed.listing.rows) {
        rows.push_back({{"offset", row.offset},
                        {"word", fmt::format("0x{:0{}x}", row.word, 2 * row.size)},
                        {"text", row.text},
                        {"comment", row.comment},
                        {"label", row.label}});
    }
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
        return in_trouble;
    const bool colour = use_colour(options.common);
    disassembler disassembler;
    // Kernel by kernel, since the listings of all would be many times the size of their dumps.
    std::optional<json_array_document> document;
    if (options.common.format == "json")
        document.emplace("kernels");
    bool first = true;
    for (const placed_kernel* kernel : select_kernels(read.set, options.kernels, read.trouble)) {
        listed_kernel listed = {*kernel, {}};
        try {
            listed.listing = list_kernel(read.set, *kernel, disassembler, !options.unlinked);
        } catch (const std::runtime_error& error) {
            report_trouble(error.what());
            read.trouble = true;
            continue;
        }
        if (document) {
            document->add(to_json(listed));
            continue;
        }
        if (!first)
            fmt::print("\n");
        first = false;
        print_text(listed, colour);
    }
    if (document)
        document->finish();
    return read.trouble ? in_trouble : nothing_found;
}

} // namespace

void add_show(command_line& program, int& status)
{
    const auto options = std::make_shared<show_options>();
    command_line command = program.add_command("show", "List kernels as they run, with names and constants");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("KERNEL", options->kernels, "Names of kernels; all of them without");
    command.add_flag("--unlinked", options->unlinked, "As generated, without relocations");
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 shown, 2 error.");
    command.run([options, &status] { status = show(*options); });
}

} // namespace vorna::workbench
