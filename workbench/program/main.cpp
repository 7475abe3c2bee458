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
#include <vector>

using namespace vorna::workbench;

static const help_texts texts = {
    VORNA_KERNELS_VERSION,
    "To start, in an empty directory:\n"
    "  VORNA_WFTA_DUMP_KERNEL= HOST 2>../log     dumps each kernel that HOST makes, before it is linked\n"
    "  vorna-kernels explain ../log --dumps .    if the finaliser ended HOST: where, why, what to do\n"
    "  vorna-kernels check .                     anything else that is wrong with the kernels\n"
    "  vorna-kernels show . KERNEL               its instructions, with names and constants",
    "Exit status: 0 nothing found, 1 found, 2 trouble. Each command has a --help of its own."};

// What is wrong with the arguments.
static std::string wrong_arguments(const CLI::App& program, const CLI::ParseError& error)
{
    const CLI::App* command = &program;
    std::string words = program.get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        words += " " + command->get_name();
    }
    if (command->get_require_subcommand_min() == 0)
        return error.what();
    const std::vector<std::string> remaining = command->remaining();
    return (remaining.empty() ? "a command is required" : remaining.front() + " is no command") + "; " +
           words + " --help lists them";
}

static int run(int argc, char** argv)
{
    CLI::App program(
        "Looks at generated kernels: at their dumps, of which a host writes one a kernel into its\n"
        "current directory when VORNA_WFTA_DUMP_KERNEL is set in its environment (to nothing, for\n"
        "all kernels), and at what the finaliser said when it ended a process.");
    program.formatter(std::make_shared<help_formatter>());
    program.name("vorna-kernels");
    program.set_version_flag("--version", texts.version);
    program.require_subcommand(1);
    program.footer(texts.exit_statuses); // which the commands inherit
    int status = nothing_found;
    add_explain(program, status);
    add_check(program, status);
    add_show(program, status);
    add_link(program, status);
    add_objdump(program);
    add_diff(program, status);
    add_baseline(program, status);
    add_profile(program, status);
    add_report(program, status);
    program.footer(texts.examples + "\n\n" + texts.exit_statuses);
    if (argc == 2 && std::string_view(argv[1]) == "--man-page") { // for the build, which installs it
        fmt::print("{}", man_page(program, texts));
        return nothing_found;
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& asked) { // --help, --version
        return program.exit(asked);
    } catch (const CLI::ParseError& error) {
        report_trouble(wrong_arguments(program, error));
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
