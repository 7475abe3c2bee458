// What the commands of vorna-kernels share: their options, reading dumps, errors on stderr.
#pragma once

#include "workbench/cli/options.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <string>
#include <vector>

namespace vorna::workbench {

/// Exit statuses of the program.
enum exit_status : int {
    exit_success = 0,
    exit_findings = 1,
    exit_error = 2,
};

/// The options that every command has.
struct common_options {
    std::string format = "text";
    std::string color = "auto";
    bool verbose = false;
};

/// Adds --format (one of `formats`; the first is the default), --color and --verbose.
void add_common_options(command_line& command, common_options& options,
                        const std::vector<std::string>& formats);

/// Whether text on stdout is to be colored: as --color says; "auto" is a terminal without NO_COLOR whose
/// TERM is set and not "dumb".
bool use_color(const common_options& options);

/// Prints "vorna-kernels: " and the text as a line on stderr.
void print_error(const std::string& text);

/// Dumps as a command line names them, read.
struct read_result {
    kernel_set set;
    bool had_errors = false; ///< something was reported on stderr
};

/// Reads dumps and reports on stderr what could not be read, with --verbose what was skipped, and on a
/// terminal, after a second, how far it is.
read_result read_set(const std::vector<std::string>& paths, const common_options& options);

/// Whether there is a kernel. Reports on stderr that there is none at `path`, unless an error with it was
/// reported already.
bool require_kernels(const read_result& read, const std::string& path);

/// Throws std::runtime_error if `file`, which is to be written, is one of the dumps.
void refuse_dump(const kernel_set& set, const std::string& file);

/// The kernels of these names, of all if there are none. A name that is not in the set is reported, with the
/// nearest one, and sets `had_errors`.
std::vector<const placed_kernel*> select_kernels(const kernel_set& set, const std::vector<std::string>& names,
                                                 bool& had_errors);

/// The commands: each adds itself to the program and sets the exit status when it is run.
void add_check(command_line& program, int& status);
void add_baseline(command_line& program, int& status);
void add_explain(command_line& program, int& status);
void add_diff(command_line& program, int& status);
void add_profile(command_line& program, int& status);
void add_report(command_line& program, int& status);
void add_show(command_line& program, int& status);
void add_link(command_line& program, int& status);
void add_objdump(command_line& program); ///< becomes another program, which has its own status

} // namespace vorna::workbench
