#include "workbench/listing.hpp"
#include "workbench/output.hpp"
#include "workbench/program/command.hpp"

#include <fmt/format.h>
#include <memory>

namespace vorna::workbench {

namespace {

struct show_options {
    common_options common;
    std::string dumps;
    std::vector<std::string> kernels;
    bool unlinked = false;
};

int show(const show_options& options)
{
    read_result read = read_set({options.dumps}, options.common);
    disassembler disassembler;
    for (const placed_kernel* kernel : select_kernels(read.set, options.kernels, read.trouble)) {
        const kernel_listing listing = list_kernel(read.set, *kernel, disassembler, !options.unlinked);
        fmt::print("{}\n", headline(*kernel, listing));
        for (const listing_row& row : listing.rows)
            fmt::print("{}\n", row_text(row));
    }
    return read.trouble ? in_trouble : nothing_found;
}

} // namespace

void add_show(CLI::App& program, int& status)
{
    const auto options = std::make_shared<show_options>();
    CLI::App* const command =
        program.add_subcommand("show", "List kernels as they run, with names and constants");
    command->add_option("DUMPS", options->dumps, "Directory of dumps, or one dump")->required();
    command->add_option("KERNEL", options->kernels, "Names of kernels; all of them without");
    command->add_flag("--unlinked", options->unlinked, "As generated, without relocations");
    add_common_options(*command, options->common, {"text", "json"});
    command->callback([options, &status] { status = show(*options); });
}

} // namespace vorna::workbench
