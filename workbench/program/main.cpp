// vorna-kernels: what kernels' dumps, and the reports of a process that ended, tell.

#include "workbench/program/command.hpp"

#include <CLI/CLI.hpp>

#include <exception>

using namespace vorna::workbench;

static int run(int argc, char** argv)
{
    CLI::App program(
        "Looks at kernels through their dumps: VORNA_WFTA_DUMP_KERNEL= writes one of each kernel "
        "into the current directory of the process that finalises them.");
    program.name("vorna-kernels");
    program.set_version_flag("--version", VORNA_KERNELS_VERSION);
    program.require_subcommand(1);
    program.footer("Exit status: 0 nothing found, 1 found, 2 trouble.");
    int status = nothing_found;
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
