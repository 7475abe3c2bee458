// vorna-kernels: the workbench for people who write kernels.

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
    "Inspects generated kernels. A host dumps its kernels into its current directory when\n"
    "VORNA_WFTA_DUMP_KERNEL is set in its environment; set it to nothing to dump all of them.",
    "To start, in an empty directory:\n"
    "  VORNA_WFTA_DUMP_KERNEL= HOST 2>../log     dump every kernel that HOST generates\n"
    "  vorna-kernels explain ../log --dumps .    if the finaliser aborted HOST: where, why, what to do\n"
    "  vorna-kernels check .                     find other mistakes in the kernels\n"
    "  vorna-kernels show . KERNEL               disassemble a kernel, with names and constants",
    "Exit status: 0 success, 1 findings, 2 error. For more, run vorna-kernels COMMAND --help."};

static int run(int argc, char** argv)
{
    int status = exit_success;
    const auto add_commands = [&](command_line& program) {
        add_explain(program, status);
        add_check(program, status);
        add_show(program, status);
        add_cost(program, status);
        add_where(program, status);
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
        failure = fmt::format("cannot write to standard output: {}", std::strerror(errno));
    if (!failure.empty()) {
        print_error(failure);
        status = exit_error;
    }
    return status;
}
