// What the commands of vorna-kernels share: their options, reading dumps, errors on stderr.
#pragma once

#include "workbench/cli/options.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <chrono>
#include <cstddef>
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

/// Whether to colour text on stdout, according to --color. "auto": if stdout is a terminal, NO_COLOR is not
/// set, and TERM is set and not "dumb".
bool use_color(const common_options& options);

/// Prints "vorna-kernels: " and the text as a line on stderr.
void print_error(const std::string& text);

/// "12 of 2000 kernels" on a terminal, as the last line of stderr, once a second has passed.
class progress_line {
public:
    explicit progress_line(std::string what);
    void show(std::size_t done, std::size_t all);
    void clear();

private:
    using clock = std::chrono::steady_clock;
    std::string what_;
    bool terminal_;
    clock::time_point start_ = clock::now();
    clock::time_point last_ = start_;
    bool shown_ = false;
};

/// The kernels read from the dumps that a command line names.
struct read_result {
    kernel_set set;
    bool had_errors = false; ///< errors were reported on stderr
};

/// Reads dumps. Reports on stderr which files it could not read, with --verbose which it skipped, and on a
/// terminal its progress after a second.
read_result read_set(const std::vector<std::string>& paths, const common_options& options);

/// Returns whether any kernel was read. If not, reports so for `path` on stderr, unless an error was reported
/// already.
bool require_kernels(const read_result& read, const std::string& path);

/// Throws std::runtime_error if the output file `file` is one of the dumps.
void refuse_dump(const kernel_set& set, const std::string& file);

/// Adds --cpu, the name of one of LLVM's processors; "help" lists them.
void add_processor_option(command_line& command, std::string& processor, const std::string& description);

/// The kernels with these names, or all if no names are given. Reports an unknown name, with the nearest
/// known one, and sets `had_errors`.
std::vector<const placed_kernel*> select_kernels(const kernel_set& set, const std::vector<std::string>& names,
                                                 bool& had_errors);

/// Each command adds itself to the program, and sets the exit status when it is run.
void add_check(command_line& program, int& status);
void add_baseline(command_line& program, int& status);
void add_explain(command_line& program, int& status);
void add_diff(command_line& program, int& status);
void add_profile(command_line& program, int& status);
void add_report(command_line& program, int& status);
void add_show(command_line& program, int& status);
void add_cost(command_line& program, int& status);
void add_where(command_line& program, int& status);
void add_link(command_line& program, int& status);
void add_objdump(
    command_line& program); ///< replaces the process by another program, with its own exit status

} // namespace vorna::workbench
