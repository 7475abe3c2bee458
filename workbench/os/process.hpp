// Other programs.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// How a program ended.
struct program_result {
    int exit_status = 0;
    int signal = 0;          ///< that ended it; 0 if it exited
    std::string first_error; ///< the first non-empty line that it wrote to stderr, at most 511 bytes
};

/// Runs a program, found on PATH, with the arguments that follow its name, and waits for it. Its stdout is
/// passed to `output` in pieces; if that throws, the program is killed. Throws std::system_error if the
/// program cannot be started.
program_result run_child(const std::vector<std::string>& command,
                         const std::function<void(std::string_view)>& output);

/// Whether a program of that name is on PATH.
bool is_on_path(std::string_view program);

/// Replaces this process by a program, found on PATH. Throws std::system_error if that fails.
[[noreturn]] void exec_program(const std::vector<std::string>& command);

} // namespace vorna::workbench
