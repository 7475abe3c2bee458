// vorna-kernels: what kernels' dumps, and the reports of a process that ended, tell.

#include "workbench/program/command.hpp"
#include "workbench/program/man_page.hpp"

#include <CLI/CLI.hpp>

#include <exception>
#include <fmt/format.h>

using namespace vorna::workbench;

static int run(int argc, char** argv)
{
    CLI::App program(
        "Looks at kernels through their dumps: VORNA_WFTA_DUMP_KERNEL= writes one of each kernel "
        "into the current directory of the process that finalises them.");
    program.name("vorna-kernels");
    program.set_version_flag("--version", VORNA_KERNELS_VERSION);
    bool print_man_page = false;
    program.add_flag("--man-page", print_man_page)->group(""); // for the build, which installs it
    program.require_subcommand(0, 1);
    program.footer("Exit status: 0 nothing found, 1 found, 2 trouble. Each command has a --help of its own.");
    int status = nothing_found;
    add_explain(program, status);
    add_profile(program, status);
    add_show(program, status);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& asked) { // --help, --version
        return program.exit(asked);
    } catch (const CLI::ParseError& error) {
        report_trouble(error.what());
        return in_trouble;
    }
    if (print_man_page) {
        fmt::print("{}", man_page(program, VORNA_KERNELS_VERSION));
    } else if (program.get_subcommands().empty()) {
        report_trouble("which command? See vorna-kernels --help");
        return in_trouble;
    }
    return status;
}

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        report_trouble(error.what());
        return in_trouble;
    }
}
