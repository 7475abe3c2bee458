// What the commands of vorna-kernels have in common: arguments, exit statuses, streams, colour.

#include "jit/elf.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <gmock/gmock.h>
#include <sstream>

namespace {

using support::child_result;
using support::temp_directory;
using testing::HasSubstr;
using testing::Not;

class Program : public testing::Test {
protected:
    Program()
    {
        dump("wfta_short_3", 0x1000, 0x1080);
        dump("wfta_short_4", 0x1020, 0x1088);
    }

    void dump(const std::string& name, std::uint64_t text, std::uint64_t data)
    {
        tessjit::elf_data elf;
        elf.fns.emplace_back(name, support::address(text), support::code({0xd65f03c0}),
                             support::address(data), std::vector<std::uint8_t>(8, 1),
                             std::vector<tessjit::reloc_info>());
        support::write_file(directory.path() / name, support::to_string(tessjit::emit_elf(elf)));
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), VORNA_KERNELS);
        return support::run_tool(std::move(arguments), directory.path());
    }

    void expect_trouble(std::vector<std::string> arguments, const std::string& line) const
    {
        const child_result result = run(std::move(arguments));
        EXPECT_EQ(result.exit_status, 2) << result;
        EXPECT_EQ(result.err, "vorna-kernels: " + line + "\n");
    }

    temp_directory directory;
};

TEST_F(Program, SaysWhatItsCommandsAre)
{
    const child_result help = run({"--help"});
    EXPECT_EQ(help.exit_status, 0);
    EXPECT_EQ(help.err, "");
    for (const char* command : {"profile", "show"}) {
        EXPECT_THAT(help.out, HasSubstr("\n  " + std::string(command) + " "));
        const child_result own = run({command, "--help"});
        EXPECT_EQ(own.exit_status, 0) << own;
        EXPECT_THAT(own.out, HasSubstr("--format {text,json")) << command;
        std::istringstream lines(own.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 100U) << command << ": " << line;
    }
}

TEST_F(Program, SaysItsVersion)
{
    EXPECT_EQ(run({"--version"}).out, "0.1.0\n");
}

TEST_F(Program, TakesWrongArgumentsForTroubleInOneLine)
{
    expect_trouble({}, "A subcommand is required");
    expect_trouble({"shwo"}, "A subcommand is required");
    expect_trouble({"show"}, "DUMPS is required");
    expect_trouble({"show", ".", "--format=xml"}, "--format: xml not in {text,json}");
    expect_trouble({"show", ".", "--color=blue"}, "--color: blue not in {always,never,auto}");
    expect_trouble({"show", ".", "--colour=always"},
                   "The following argument was not expected: --colour=always");
}

TEST_F(Program, NamesTheNearestKernelInPlaceOfOneThatIsNotThere)
{
    const child_result result = run({"show", ".", "wfta_short_5", "wfta_shrt_4", "wfta_short_4"});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.err,
              "vorna-kernels: no kernel wfta_short_5 in the dumps; the nearest name is wfta_short_3\n"
              "vorna-kernels: no kernel wfta_shrt_4 in the dumps; the nearest name is wfta_short_4\n");
    EXPECT_THAT(result.out, HasSubstr("wfta_short_4"));
    EXPECT_THAT(result.out, Not(HasSubstr("wfta_short_3")));
}

TEST_F(Program, DoesTheOtherDumpsWhereOneIsBad)
{
    support::write_file(directory.path() / "bad", "\177ELF");
    const child_result result = run({"show", "."});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.err, "vorna-kernels: ./bad: not an ELF file, or a cut one\n");
    EXPECT_THAT(result.out, HasSubstr("wfta_short_3"));
    EXPECT_THAT(result.out, HasSubstr("wfta_short_4"));
}

TEST_F(Program, PassesOverOtherFilesAndNamesThemWhenAsked)
{
    support::write_file(directory.path() / "notes", "text");
    EXPECT_EQ(run({"show", "."}).err, "");
    const child_result result = run({"show", ".", "--verbose"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "vorna-kernels: passed over: ./notes: not an ELF file\n");
}

TEST_F(Program, RefusesDumpsOfTwoRuns)
{
    dump("other", 0x1020, 0x2000);
    expect_trouble(
        {"show", "."},
        "./wfta_short_4 and ./other: wfta_short_4 and other are placed in the same memory: dumps of two runs");
}

TEST_F(Program, ReadsAFileOnceThatIsThereTwice)
{
    std::filesystem::create_symlink("wfta_short_3", directory.path() / "link");
    const child_result result = run({"check", ".", "wfta_short_4"});
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, testing::StartsWith("2 kernels, "));
}

TEST_F(Program, TakesOneDump)
{
    const child_result result = run({"show", "wfta_short_3"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_THAT(result.out, HasSubstr("wfta_short_3"));
    EXPECT_THAT(result.out, Not(HasSubstr("wfta_short_4")));
}

TEST_F(Program, PrintsEveryFactOnceMoreAsJsonWithAVersionFirst)
{
    EXPECT_EQ(run({"show", ".", "--format=json"}).out.substr(0, 17), "{\n  \"version\": 1,");
}

TEST_F(Program, ColoursOnlyWhereItIsToldTo)
{
    EXPECT_THAT(run({"show", "."}).out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({"show", ".", "--color=never"}).out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({"show", ".", "--color=always"}).out, HasSubstr("\x1b["));
}

TEST_F(Program, ColoursOnATerminalUnlessTheEnvironmentForbidsIt)
{
    // script(1) gives the program a terminal.
    const auto on_terminal = [&](const std::string& environment) {
        return support::run_tool({"script", "-qec", environment + " '" VORNA_KERNELS "' show .", "/dev/null"},
                                 directory.path());
    };
    const child_result plain = on_terminal("");
    if (plain.exit_status == 127)
        GTEST_SKIP() << "script(1) is not installed";
    EXPECT_THAT(plain.out, HasSubstr("\x1b["));
    EXPECT_THAT(on_terminal("NO_COLOR=1").out, Not(HasSubstr("\x1b[")));
    EXPECT_THAT(on_terminal("NO_COLOR=").out, HasSubstr("\x1b["));
}

TEST_F(Program, KeepsAnEscapeSequenceInANameFromTheTerminal)
{
    dump("evil\x1b[31m\nname", 0x1040, 0x1090);
    const child_result result = run({"show", "."});
    EXPECT_THAT(result.out, HasSubstr("evil\\x1b[31m\\nname"));
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
}

TEST_F(Program, KeepsAControlCharacterOfUnicodeFromTheTerminal)
{
    dump("evil\xc2\x9b"
         "31m \xc2\xa0\xc3\x9f",
         0x1040, 0x1090); // CSI; a blank and a letter
    const child_result result = run({"show", "."});
    EXPECT_THAT(result.out, HasSubstr("evil\\x9b31m \xc2\xa0\xc3\x9f"));
    EXPECT_THAT(result.out, Not(HasSubstr("\xc2\x9b")));
}

TEST_F(Program, EndsQuietlyWhenNobodyReadsItsOutput)
{
    const child_result result = support::run_tool(
        {"bash", "-c", "'" VORNA_KERNELS "' show . | head -c 1 >/dev/null; exit ${PIPESTATUS[0]}"},
        directory.path());
    EXPECT_EQ(result.err, "");
}

TEST_F(Program, EndsAsEverWhereTroubleCannotBeTold)
{
    for (const std::string redirection : {"2>&-", "2>/dev/full"}) {
        const child_result result = support::run_tool(
            {"bash", "-c", "'" VORNA_KERNELS "' show absent " + redirection}, directory.path());
        EXPECT_EQ(result.exit_status, 2) << redirection << result;
    }
}

TEST_F(Program, TakesAClosedOutputForTrouble)
{
    const child_result result =
        support::run_tool({"bash", "-c", "'" VORNA_KERNELS "' show . >&-"}, directory.path());
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.err, "vorna-kernels: cannot write the output: Bad file descriptor\n");
}

TEST_F(Program, TakesAFullDiskForTrouble)
{
    const child_result result =
        support::run_tool({"bash", "-c", "'" VORNA_KERNELS "' show . >/dev/full"}, directory.path());
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.err, "vorna-kernels: cannot write the output: No space left on device\n");

    for (unsigned i = 0; i < 500; ++i) // more than a stream keeps back
        dump("more" + std::to_string(i), 0x10000 + i * 32, 0x20000 + i * 8);
    EXPECT_EQ(
        support::run_tool({"bash", "-c", "'" VORNA_KERNELS "' show . >/dev/full"}, directory.path()).err,
        result.err);
}

} // namespace
