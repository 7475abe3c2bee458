#include "tests/support/child.hpp"

#include "tests/support/coverage.hpp"
#include "tests/support/temp_directory.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace support {

namespace {

using file_ptr = std::unique_ptr<FILE, int (*)(FILE*)>;

[[noreturn]] void throw_errno(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// An unlinked file rather than a pipe: the child never blocks on its reader.
file_ptr capture_file()
{
    file_ptr file(std::tmpfile(), &std::fclose);
    if (file == nullptr) {
        throw_errno("tmpfile");
    }
    return file;
}

std::string contents(FILE* file)
{
    std::string text;
    std::rewind(file);
    char block[4096];
    while (const std::size_t length = std::fread(block, 1, sizeof block, file)) {
        text.append(block, length);
    }
    return text;
}

// qemu-user reports a fatal signal on the stderr of the program that it runs.
void remove_emulator_report(std::string& err)
{
    const std::size_t start = err.rfind("qemu: uncaught target signal ");
    if (start != std::string::npos && (start == 0 || err[start - 1] == '\n')) {
        err.erase(start);
    }
}

void prepare_child(const child_options& options, const std::filesystem::path& directory)
{
    prepare_for_crashes();
    hand_over_coverage_at_crashes();
    alarm(options.time_limit_seconds);

    for (const char* name : {"VORNA_WFTA_PERF", "VORNA_WFTA_DUMP_KERNEL", "VORNA_WFTA_CHECK_HASH"}) {
        unsetenv(name);
    }
    for (const auto& [name, value] : options.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::filesystem::current_path(directory);
}

[[noreturn]] void run_and_exit(const std::function<void()>& body, const child_options& options,
                               const std::filesystem::path& directory)
{
    int status = 0;
    try {
        prepare_child(options, directory);
        body();
        if (testing::Test::HasFailure()) {
            status = child_assertion_failed;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "uncaught exception: %s\n", error.what());
        status = child_exception_thrown;
    } catch (...) {
        std::fprintf(stderr, "uncaught exception: not a std::exception\n");
        status = child_exception_thrown;
    }
    std::fflush(nullptr);
    hand_over_coverage();
    _exit(status);
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const child_result& child)
{
    return stream << "child " << child.pid << ": exit status " << child.exit_status << ", signal "
                  << child.signal << "\nstdout:\n"
                  << child.out << "\nstderr:\n"
                  << child.err;
}

child_result run_in_child(const std::function<void()>& body, const child_options& options)
{
    std::optional<temp_directory> own_directory;
    if (options.directory.empty()) {
        own_directory.emplace();
    }
    const std::filesystem::path& directory = own_directory ? own_directory->path() : options.directory;
    const file_ptr out = capture_file();
    const file_ptr err = capture_file();

    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        throw_errno("fork");
    }
    if (pid == 0) {
        if (dup2(fileno(out.get()), STDOUT_FILENO) < 0 || dup2(fileno(err.get()), STDERR_FILENO) < 0) {
            _exit(child_exception_thrown);
        }
        run_and_exit(body, options, directory);
    }

    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            throw_errno("waitpid");
        }
    }
    take_over_coverage();
    child_result child = {pid, WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                          WIFSIGNALED(status) ? WTERMSIG(status) : 0, contents(out.get()),
                          contents(err.get())};
    if (child.signal != 0) {
        remove_emulator_report(child.err);
    }
    return child;
}

child_result run_with_dumps(const std::function<void()>& body, const std::filesystem::path& directory)
{
    child_options options;
    options.directory = directory;
    options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
    return run_in_child(body, options);
}

void prepare_for_crashes()
{
    for (const int fatal : {SIGABRT, SIGALRM, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGTRAP}) {
        std::signal(fatal, SIG_DFL);
    }
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
}

static std::function<void()> look_at_abort;

void at_abort(std::function<void()> look)
{
    look_at_abort = std::move(look);
    // abort() continues after a handler that returns. It raises the signal itself, without holding a lock.
    std::signal(SIGABRT, [](int) {
        look_at_abort();
        hand_over_coverage();
    });
}

void expect_abort(const std::function<void()>& body, const std::string& err)
{
    const child_result child = run_in_child(body);
    EXPECT_EQ(child.signal, SIGABRT) << child;
    EXPECT_EQ(without_line_numbers(child.err), err);
    EXPECT_EQ(child.out, "");
}

std::string without_line_numbers(const std::string& text)
{
    // Not with std::regex: the tests' copy of it must not replace the library's at link time.
    const std::string file = "kernel_printer.cpp:";
    std::string result;
    std::size_t end = 0;
    for (std::size_t at = 0; (at = text.find(file, end)) != std::string::npos;) {
        const std::size_t number = at + file.size();
        result += text.substr(end, number - end);
        end = std::min(text.find_first_not_of("0123456789", number), text.size());
        if (end != number)
            result += "LINE";
    }
    return result + text.substr(end);
}

} // namespace support
