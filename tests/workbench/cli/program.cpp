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

    void expect_error(std::vector<std::string> arguments, const std::string& line) const
    {
        const child_result result = run(std::move(arguments));
        EXPECT_EQ(result.exit_status, 2) << result;
        EXPECT_EQ(result.err, "vorna-kernels: " + line + "\n");
    }

    static void expect_narrow(const std::string& text)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 100U) << line;
    }

    temp_directory directory;
};

TEST_F(Program, SaysWhatItsCommandsAre)
{
    const child_result help = run({"--help"});
    EXPECT_EQ(help.exit_status, 0);
    EXPECT_EQ(help.err, "");
    expect_narrow(help.out);
    // In the order in which somebody new needs them.
    std::size_t at = help.out.find("\nSubcommands:\n");
    for (const std::string command :
         {"explain", "check", "show", "link", "objdump", "diff", "baseline", "profile", "report"}) {
        at = help.out.find("\n  " + command + " ", at);
        ASSERT_NE(at, std::string::npos) << command;
        const child_result own = run({command, "--help"});
        EXPECT_EQ(own.exit_status, 0) << own;
        EXPECT_EQ(own.err, "");
        EXPECT_THAT(own.out, HasSubstr("\nUsage: vorna-kernels " + command + " "));
        expect_narrow(own.out);
        const bool prints = command != "baseline" && command != "objdump"; // their parts, another program
        EXPECT_EQ(own.out.find("--format {text,json") != std::string::npos, prints) << command;
    }
    EXPECT_THAT(help.out.substr(at), HasSubstr("\nTo start, in an empty directory:\n"));
}

TEST_F(Program, ShowsOptionsThatAreRequiredInTheUsage)
{
    EXPECT_THAT(run({"link", "--help"}).out,
                HasSubstr("\nUsage: vorna-kernels link -o IMAGE [OPTIONS] DUMPS\n"));
    EXPECT_THAT(run({"objdump", "--help"}).out,
                HasSubstr("\nUsage: vorna-kernels objdump --image IMAGE [OPTIONS]\n"));
}

TEST_F(Program, MakesItsManualPageOfItsHelp)
{
    const child_result page = run({"--man-page"});
    EXPECT_EQ(page.exit_status, 0);
    for (const char* line : {".B vorna\\-kernels check\n[\\fIOPTIONS\\fR] \\fIDUMPS...\\fR\n",
                             ".B vorna\\-kernels link\n\\-o IMAGE [\\fIOPTIONS\\fR] \\fIDUMPS\\fR\n",
                             ".B vorna\\-kernels baseline bless\n", ".SS report\n", "\n.SH EXAMPLES\n",
                             "Exit status: 0 explained, 1 no report in the input, 2 error.\n"})
        EXPECT_THAT(page.out, HasSubstr(line));
    const child_result read = support::run_tool(
        {"bash", "-c", "'" VORNA_KERNELS "' --man-page | groff -man -ww -z"}, directory.path());
    if (read.exit_status == 127)
        GTEST_SKIP() << "groff is not installed";
    EXPECT_EQ(read.err, "");
}

TEST_F(Program, SaysItsVersion)
{
    EXPECT_EQ(run({"--version"}).out, "0.1.0\n");
}

TEST_F(Program, TakesWrongArgumentsForTroubleInOneLine)
{
    expect_error({}, "a command is required; vorna-kernels --help lists them");
    expect_error({"shwo"}, "shwo is no command; vorna-kernels --help lists them");
    expect_error({"baseline", "chekc"}, "chekc is no command; vorna-kernels baseline --help lists them");
    expect_error({"show"}, "DUMPS is required");
    expect_error({"show", ".", "--format=xml"}, "--format: xml not in {text,json}");
    expect_error({"show", ".", "--color=blue"}, "--color: blue not in {always,never,auto}");
    expect_error({"show", ".", "--colour=always"},
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
    expect_error(
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
    EXPECT_EQ(run({"show", ".", "--format=json"}).out.substr(0, 17), "{\n  \"version\": 2,");
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
    const child_result plain = on_terminal("TERM=xterm");
    if (plain.exit_status == 127)
        GTEST_SKIP() << "script(1) is not installed";
    EXPECT_THAT(plain.out, HasSubstr("\x1b["));
    EXPECT_THAT(on_terminal("TERM=xterm NO_COLOR=1").out, Not(HasSubstr("\x1b[")));
    EXPECT_THAT(on_terminal("TERM=xterm NO_COLOR=").out, HasSubstr("\x1b["));
    EXPECT_THAT(on_terminal("TERM=dumb").out, Not(HasSubstr("\x1b[")));
    EXPECT_THAT(on_terminal("TERM=").out, Not(HasSubstr("\x1b[")));
    EXPECT_THAT(on_terminal("env -u TERM").out, Not(HasSubstr("\x1b[")));
}

TEST_F(Program, SaysInTheHelpWhichExitStatusesACommandHas)
{
    EXPECT_THAT(run({"show", "--help"}).out, HasSubstr("Exit status: 0 shown, 2 error.\n"));
    EXPECT_THAT(run({"link", "--help"}).out,
                HasSubstr("Exit status: 0 linked, 1 linked, with findings, 2 error.\n"));
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
