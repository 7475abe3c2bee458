// Runs a piece of a test in a forked child: for calls that end the process, read the environment once, or
// write into the current directory.
//
//     support::temp_directory directory;
//     support::child_options options;
//     options.directory = directory.path();
//     options.environment = {{"VORNA_WFTA_PERF", "1"}};
//     const support::child_result child =
//         support::run_in_child([&] { finalise_kernels(registry, kernels); }, options);
//     EXPECT_EQ(child.err, "");
//     EXPECT_TRUE(child.succeeded()) << child;
//
// The child is a copy of the test's process at the time of the call, so it may use everything the test has
// prepared, and addresses mean the same in both. What it changes in memory is lost: it reports through its
// output, its files, its exit, or EXPECT_ and ASSERT_ macros inside the body, which print to `out` and
// make the child fail.
//
// The library under test reads its switches once per process, so a test that sets one must not have finalised
// a kernel itself before it forks.
#pragma once

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace support {

struct child_options {
    /// Variables set in the child, in addition to the test's environment without the library's switches.
    std::vector<std::pair<std::string, std::string>> environment;

    /// The child's current directory. Empty: a fresh one, removed when the child has ended.
    std::filesystem::path directory;

    /// A child that runs longer hangs, even on the busiest machine; SIGALRM ends it.
    unsigned time_limit_seconds = 1800;
};

struct child_result {
    pid_t pid;       ///< the ended child's process id
    int exit_status; ///< of a child that ended by itself, else -1
    int signal;      ///< that ended the child, else 0
    std::string out; ///< all it wrote to stdout
    std::string err; ///< all it wrote to stderr, less the line in which an emulator reports a fatal signal

    /// Whether the body returned, and no assertion of GoogleTest failed in it.
    [[nodiscard]] bool succeeded() const { return exit_status == 0; }
};

/// Exit status of a child whose body returned after a failed assertion of GoogleTest.
constexpr int child_assertion_failed = 101;

/// Exit status of a child whose body threw; `err` then ends with a line "uncaught exception: ...".
constexpr int child_exception_thrown = 102;

/// Prints everything, for a failure message.
std::ostream& operator<<(std::ostream& stream, const child_result& child);

/// Runs `body` in a forked child and waits for it to exit. A child whose body returns exits with status 0 by
/// _exit, without destructors, exit handlers and leak checks. It is prepared for crashes. Throws
/// std::system_error when the system refuses a child.
child_result run_in_child(const std::function<void()>& body, const child_options& options = {});

/// The same, where the library dumps every kernel into the current directory.
child_result run_with_dumps(const std::function<void()>& body, const std::filesystem::path& directory = {});

/// Called in a child: fatal signals have their default action, also under the sanitizers, and leave no core
/// file.
void prepare_for_crashes();

/// Called in a child: calls `look` when the process is about to end by abort(), to test with EXPECT_ macros
/// the state that a fatal error leaves. Failures are in the child's `out`.
void at_abort(std::function<void()> look);

/// Runs `body` in a child and expects that it ends by abort() with exactly `err` on stderr, where every
/// line number of the library's source file is replaced by "LINE", and nothing on stdout.
void expect_abort(const std::function<void()>& body, const std::string& err);

/// `text` with the line number after each "kernel_printer.cpp:" replaced by "LINE".
std::string without_line_numbers(const std::string& text);

} // namespace support
