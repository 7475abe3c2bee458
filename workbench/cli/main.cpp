// vorna-kernels: what kernels' dumps, and the reports of a process that ended, tell.

#include "workbench/cli/command.hpp"
#include "workbench/cli/options.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <string>

using namespace vorna::workbench;

static const program_texts texts = {
    "vorna-kernels", VORNA_KERNELS_VERSION,
    "Looks at generated kernels: at their dumps, of which a host writes one a kernel into its\n"
    "current directory when VORNA_WFTA_DUMP_KERNEL is set in its environment (to nothing, for\n"
    "all kernels), and at what the finaliser said when it ended a process.",
    "To start, in an empty directory:\n"
    "  VORNA_WFTA_DUMP_KERNEL= HOST 2>../log     dumps each kernel that HOST makes, before it is linked\n"
    "  vorna-kernels explain ../log --dumps .    if the finaliser ended HOST: where, why, what to do\n"
    "  vorna-kernels check .                     anything else that is wrong with the kernels\n"
    "  vorna-kernels show . KERNEL               its instructions, with names and constants",
    "Exit status: 0 nothing found, 1 found, 2 error. Each command has a --help of its own."};

static int run(int argc, char** argv)
{
    int status = exit_success;
    const auto add_commands = [&](command_line& program) {
        add_explain(program, status);
        add_check(program, status);
        add_show(program, status);
        add_link(program, status);
        add_objdump(program);
        add_diff(program, status);
        add_baseline(program, status);
        add_profile(program, status);
        add_report(program, status);
    };
    const std::string wrong = run_program(texts, add_commands, argc, argv);
    if (wrong.empty())
        return status;
    print_error(wrong);
    return exit_error;
}

int main(int argc, char** argv)
{
    int status = exit_success;
    std::string failure;
    try {
        status = run(argc, argv);
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        failure = fmt::format("cannot write the output: {}", std::strerror(errno));
    if (!failure.empty()) {
        print_error(failure);
        status = exit_error;
    }
    return status;
}
