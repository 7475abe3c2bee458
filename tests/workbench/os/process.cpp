#include "workbench/os/process.hpp"
#include "tests/support/child.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>

namespace {

using namespace vorna::workbench;

struct run_result {
    program_result program;
    std::string output;
};

run_result run_shell(const std::string& script)
{
    run_result result;
    result.program = run_child({"sh", "-c", script}, [&](std::string_view piece) { result.output += piece; });
    return result;
}

TEST(RunChild, PassesOutputAndExitStatus)
{
    const run_result result = run_shell("printf 'a\\0b'; exit 3");
    EXPECT_EQ(result.output, std::string("a\0b", 3));
    EXPECT_EQ(result.program.exit_status, 3);
    EXPECT_EQ(result.program.signal, 0);
    EXPECT_EQ(result.program.first_error, "");
}

TEST(RunChild, PassesTheSignalThatEndedIt)
{
    const run_result result = run_shell("kill -9 $$");
    EXPECT_EQ(result.program.exit_status, 0);
    EXPECT_EQ(result.program.signal, SIGKILL);
}

TEST(RunChild, KeepsTheFirstLineOfErrors)
{
    EXPECT_EQ(run_shell("echo >&2; echo first >&2; echo second >&2").program.first_error, "first");
    EXPECT_EQ(run_shell("printf 'no newline' >&2").program.first_error, "no newline");
}

TEST(RunChild, DoesNotBlockOnAProgramThatWritesManyErrors)
{
    const run_result result = run_shell("head -c 1000000 /dev/zero | tr '\\0' x >&2; echo done");
    EXPECT_EQ(result.output, "done\n");
    EXPECT_EQ(result.program.first_error, std::string(511, 'x'));
}

TEST(RunChild, SaysWhatItCannotOpen)
{
    const support::child_result child = support::run_in_child([] {
        for (rlim_t descriptors = 3; descriptors < 64; ++descriptors) {
            const rlimit limit = {descriptors, 64};
            setrlimit(RLIMIT_NOFILE, &limit);
            try {
                run_shell(":");
            } catch (const std::system_error& error) {
                std::fprintf(stderr, "%s\n", error.what());
            }
        }
    });
    EXPECT_THAT(child.err, testing::StartsWith("pipe: Too many open files\n"));
    EXPECT_THAT(child.err, testing::HasSubstr("\ntemporary file: Too many open files\n"));
}

TEST(RunChild, EndsTheProgramWhenTheReaderThrows)
{
    const auto refuse = [](std::string_view) { throw std::runtime_error("enough"); };
    EXPECT_THROW(run_child({"sh", "-c", "while :; do echo; done"}, refuse), std::runtime_error);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // no child is left, running or not
    EXPECT_EQ(errno, ECHILD);
}

TEST(RunChild, SaysWhyAProgramCannotBeStarted)
{
    try {
        run_child({"no-such-program"}, [](std::string_view) {});
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_STREQ(error.what(), "cannot run no-such-program: No such file or directory");
    }
}

TEST(IsOnPath, FindsExecutablePrograms)
{
    EXPECT_TRUE(is_on_path("sh"));
    EXPECT_FALSE(is_on_path("no-such-program"));
}

TEST(ExecProgram, ReplacesTheProcess)
{
    const auto child = support::run_in_child([] {
        exec_program({"sh", "-c", "echo $0 $1; exit 7", "a", "b"});
    });
    EXPECT_EQ(child.out, "a b\n");
    EXPECT_EQ(child.exit_status, 7);
    EXPECT_THROW(exec_program({"no-such-program"}), std::system_error);
}

} // namespace
