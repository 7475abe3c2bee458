// vorna-kernels objdump replaces perf's objdump, and gdb accepts the image of all kernels.

#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/gdb_session.hpp"
#include "tests/support/perf.hpp"
#include "tests/support/tool.hpp"

#include <cstddef>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

namespace {

using namespace support;
using testing::ContainsRegex;
using testing::HasSubstr;

// A directory with a linked image of one kernel, and a program that prints its arguments, one per line.
class Objdump : public testing::Test {
protected:
    void SetUp() override
    {
        write_file(directory.path() / "dump", dump_of({placed("k", 0x10000, {a64::nop(), a64::ret()})}));
        ASSERT_EQ(run_tool({VORNA_KERNELS, "link", "dump", "-o", "image"}, directory.path()).exit_status, 0);
        write_file(directory.path() / "echo", "#!/bin/sh\nprintf '%s\\n' \"$@\"\nexit 7\n");
        permissions(directory.path() / "echo", std::filesystem::perms::owner_all);
    }

    [[nodiscard]] child_result objdump(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "objdump"});
        return run_tool(std::move(arguments), directory.path());
    }

    temp_directory directory;
};

TEST_F(Objdump, ReplacesThePerfMapByTheImageAndPassesOtherArgumentsOn)
{
    const child_result echo =
        objdump({"--image=image", "--objdump=./echo", "--start-address=0x10", "-l", "-h", "-d", "-S",
                 "--format=x", "-M", "no aliases", "-C", "/tmp/perf-12.map"});
    EXPECT_EQ(echo.out, "--start-address=0x10\n-l\n-h\n-d\n-S\n--format=x\n-M\nno aliases\n-C\nimage\n");
    EXPECT_EQ(echo.err, "");
    EXPECT_EQ(echo.exit_status, 7);
    EXPECT_EQ(objdump({"--objdump=./echo", "--image=image", "/bin/true", "-x.map", ""}).out,
              "/bin/true\n-x.map\n\n");
}

TEST_F(Objdump, RunsTheObjdumpOfTheFilesMachine)
{
    const child_result kernel = objdump({"--image=image", "--start-address=0x10004", "--stop-address=0x10008",
                                         "-d", "--no-show-raw-insn", "-C", "/tmp/perf-12.map"});
    EXPECT_TRUE(kernel.succeeded()) << kernel;
    EXPECT_THAT(kernel.out, HasSubstr("10004:\tret\n"));
    const child_result program = objdump({"--image=image", "-f", "/bin/true"});
    EXPECT_TRUE(program.succeeded()) << program;
    EXPECT_THAT(program.out, HasSubstr("\n/bin/true:     file format elf64-"));
}

TEST_F(Objdump, SaysWhyItCannotRun)
{
    const child_result none = objdump({"--image=image", "--objdump=./none", "-d"});
    EXPECT_EQ(none.exit_status, 2);
    EXPECT_EQ(none.err, "vorna-kernels: ./none: No such file or directory\n");
    const child_result missing = objdump({"-d", "perf-1.map"});
    EXPECT_EQ(missing.exit_status, 2);
    EXPECT_EQ(missing.err, "vorna-kernels: --image is required\n");
    const child_result unreadable = objdump({"--image=gone", "-d", "perf-1.map"});
    EXPECT_EQ(unreadable.exit_status, 2);
    EXPECT_EQ(unreadable.err, "vorna-kernels: gone: No such file or directory\n");
}

// Links the kernel's dump and returns the next step as link prints it. Dumps and images are marked as
// AArch64; this kernel's code is for the host's own architecture.
std::string link_countdown(const std::filesystem::path& directory)
{
    const child_result link = run_tool({VORNA_KERNELS, "link", "countdown", "-o", "image"}, directory);
    EXPECT_TRUE(link.succeeded()) << link;
#ifdef __x86_64__
    std::string image = contents(directory / "image");
    image[offsetof(Elf64_Ehdr, e_machine)] = EM_X86_64;
    write_file(directory / "image", image);
#endif
    std::smatch commands;
    EXPECT_TRUE(std::regex_search(link.out, commands, std::regex("\nperf: ([^]*)\n$"))) << link;
    return commands.str(1);
}

TEST(PerfAnnotate, ShowsPercentagesBesideTheInstructionsOfAKernel)
{
    if (const std::string reason = why_perf_cannot_record(); !reason.empty())
        GTEST_SKIP() << reason;
    const temp_directory directory;
    const busy_process busy(directory.path(), countdown_in_the_perf_map);
    const perf_map map(busy.pid());
    // The build-ID cache is in the home directory.
    const std::string here = "cd " + directory.path().string() + " && export HOME=$PWD && ";
    const command_result record =
        shell(here + "perf record -o perf.data -e cpu-clock -p " + std::to_string(busy.pid()) +
              " -- sh -c '" + until_it_has_run(busy.pid()) + "'");
    ASSERT_EQ(record.status, 0) << record.output;
    EXPECT_THAT(shell(here + "perf annotate --stdio countdown").output,
                HasSubstr("Couldn't annotate countdown"));

    const std::string commands = std::regex_replace(link_countdown(directory.path()), std::regex("\\bPID\\b"),
                                                    std::to_string(busy.pid()));
    const command_result annotated = shell(here + "set -e\n" + commands + " --stdio countdown");
    EXPECT_EQ(annotated.status, 0) << annotated.output;
    EXPECT_THAT(annotated.output,
                ContainsRegex(" [1-9][0-9]*\\.[0-9][0-9] : +[0-9a-f]+: +(dec|subs|jne|b\\.ne) "));
    EXPECT_THAT(annotated.output, ContainsRegex(" 0\\.[0-9][0-9] : +[0-9a-f]+: +ret"));
}

TEST(Gdb, KnowsAllKernelsFromOneImage)
{
#ifndef DEBUGGEE
    GTEST_SKIP() << "no compiler for AArch64";
#else
    const child_result session = break_at_answer_kernel(
        DEBUGGEE, EMULATOR, {"shell " VORNA_KERNELS " link . -o kernels.elf", "add-symbol-file kernels.elf"});
    EXPECT_THAT(session.out, HasSubstr("1 mapping, 3 kernels, ")) << session;
#endif
}

} // namespace
