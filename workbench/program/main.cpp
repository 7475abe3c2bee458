// vorna-kernels: what kernels' dumps, and the reports of a process that ended, tell.

#include "workbench/program/command.hpp"
#include "workbench/program/help.hpp"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <string_view>

using namespace vorna::workbench;

static int run(int argc, char** argv)
{
    CLI::App program(
        "Looks at generated kernels: at their dumps, of which a host writes one a kernel into its\n"
        "current directory when VORNA_WFTA_DUMP_KERNEL is set in its environment (to nothing, for\n"
        "all kernels), and at what the finaliser said when it ended a process.");
    program.formatter(std::make_shared<help_formatter>());
    program.name("vorna-kernels");
    program.set_version_flag("--version", VORNA_KERNELS_VERSION);
    program.require_subcommand(1);
    program.footer("Exit status: 0 nothing found, 1 found, 2 trouble. Each command has a --help of its own.");
    int status = nothing_found;
    add_check(program, status);
    add_explain(program, status);
    add_diff(program, status);
    add_baseline(program, status);
    add_profile(program, status);
    add_report(program, status);
    add_show(program, status);
    add_link(program, status);
    add_objdump(program);
    if (argc == 2 && std::string_view(argv[1]) == "--man-page") { // for the build, which installs it
        fmt::print("{}", man_page(program, VORNA_KERNELS_VERSION));
        return nothing_found;
    }
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
    int status = nothing_found;
    std::string trouble;
    try {
        status = run(argc, argv);
    } catch (const std::exception& error) {
        trouble = error.what();
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        trouble = fmt::format("cannot write the output: {}", std::strerror(errno));
    if (!trouble.empty()) {
        report_trouble(trouble);
        status = in_trouble;
    }
    return status;
}
