// vorna-kernels profile: its output, its errors, and real recordings.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/perf.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/input/dumps.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <elf.h>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

namespace {

using namespace support;
using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ProfileCommand : public testing::Test {
protected:
    ProfileCommand()
    {
        std::filesystem::create_directory(dumps());
        dump("wfta_3", 0x10000, {a64::nop(), a64::nop(), a64::ret()}, 0x10200, {});
        dump("wfta_12", 0x10040, {a64::nop(), a64::bl(), a64::bl(), a64::nop(), a64::ret(), 0xffffffff},
             0x10208, {{"wfta_3", 4, R_AARCH64_CALL26, 0}, {"wfta_12", 8, R_AARCH64_CALL26, 0}});
        write_file(directory.path() / "text", text);
    }

    [[nodiscard]] std::filesystem::path dumps() const { return directory.path() / "dumps"; }

    void dump(const std::string& name, std::uint64_t address, const std::vector<std::uint32_t>& words,
              std::uint64_t data, std::vector<tessjit::reloc_info> relocs) const
    {
        write_dumps(dumps(),
                    {placed(name, address, words, std::move(relocs), std::vector<std::uint8_t>(8, 1), data)});
    }

    /// A program in place of perf.
    void fake_perf(const std::string& script) const
    {
        const std::filesystem::path perf = directory.path() / "bin" / "perf";
        std::filesystem::create_directory(perf.parent_path());
        write_file(perf, "#!/bin/sh\n" + script);
        chmod(perf.c_str(), 0755);
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments, const std::string& path = "bin") const
    {
        arguments.insert(arguments.begin(), {"env", "PATH=" + (directory.path() / path).string() + ":/bin",
                                             VORNA_KERNELS, "profile"});
        return run_tool(std::move(arguments), directory.path());
    }

    void expect_error(const std::vector<std::string>& arguments, const std::string& line) const
    {
        const child_result result = run(arguments);
        EXPECT_EQ(result.exit_status, 2) << result;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "vorna-kernels: " + line + "\n");
    }

    const std::string mapping =
        "  662     1.000000: PERF_RECORD_MMAP2 662/662: [0x10000(0x1000) @ 0x10000 00:00 0 0]: rwxp //anon\n";
    const std::string text = mapping + //
                             "  662     2.000000:       1000 cycles:u:             10004\n"
                             "  662     2.000001:       6000 cycles:u:             1004c\n"
                             "  662     2.000002:        500 cycles:u:             10040\n"
                             "  662     2.000003:          1 cycles:u:             10044\n"
                             "  662     2.000004:        499 cycles:u:             10030\n"
                             "  662     2.000005:       2000 cycles:u:  ffffcf10d54a0c14\n"
                             "  662     2.000005:         77 arm_spe//:             10000\n";
    temp_directory directory;
};

TEST_F(ProfileCommand, ShowsTheJoinThenTheKernelsThenTheHeaviest)
{
    const child_result result = run({"dumps", "--perf-script=text"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(
        std::regex_replace(result.out, std::regex(" +; "), " ; "),
        R"(cycles:u by period, 6 samples; in kernels 75.0 %, mapping without dump 5.0 %, elsewhere 20.0 %
also recorded: --event=arm_spe//, 1 sample
  65.0 %  wfta_12
  10.0 %  wfta_3

wfta_12, 3 samples, percent of the kernel
  7.7 ▋        +00  d503201f  nop
 <0.1          +04  97ffffef  bl    wfta_3 ; 10.0 % of all is in wfta_3
               +08  97fffffe  bl    wfta_12 ; 65.0 % of all is in wfta_12
 92.3 ████████ +0c  d503201f  nop
               +10  d65f03c0  ret
               +14  ffffffff  .word 0xffffffff

note: samples skid: read a row with those before it; perf record -e arm_spe// is exact
)");
}

TEST_F(ProfileCommand, CallsExactCountsExecutions)
{
    write_file(directory.path() / "counts",
               mapping + "  662     1.000000:          4 executions:             10000\n"
                         "  662     1.000000:       1096 executions:             10004\n");
    const child_result result = run({"dumps", "--perf-script=counts"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_EQ(
        result.out,
        R"(1,100 executions of 2 instructions; in kernels 100.0 %, mapping without dump 0.0 %, elsewhere 0.0 %
 100.0 %  wfta_3

wfta_3, 1,100 executions, percent of the kernel
  0.4          +00  d503201f  nop
 99.6 ████████ +04  d503201f  nop
               +08  d65f03c0  ret

note: exact counts: how often each instruction ran, not how long it took
)");
}

TEST_F(ProfileCommand, SaysHowTextIsGiven)
{
    expect_error({"dumps", "--perf-data=text"},
                 "text: text, not what perf record writes: give it with --perf-script=text");
}

TEST_F(ProfileCommand, ListsTheNamedKernels)
{
    const child_result result =
        run({"dumps", "wfta_3", "wfta_12", "--perf-script", "text", "--event=arm_spe//"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(
        result.out,
        R"(arm_spe// by period, 1 sample; in kernels 100.0 %, mapping without dump 0.0 %, elsewhere 0.0 %
also recorded: --event=cycles:u, 6 samples
 100.0 %  wfta_3

wfta_3, 1 sample, percent of the kernel
100.0 ████████ +00  d503201f  nop
               +04  d503201f  nop
               +08  d65f03c0  ret

wfta_12, 0 samples

note: arm_spe samples are of operations, not of time, each at its own instruction
)");
}

TEST_F(ProfileCommand, PrintsTheSameAsJson)
{
    const child_result result = run({"dumps", "--perf-script=text", "--format=json"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_THAT(result.out, StartsWith("{\n  \"version\": 2,\n  \"event\": \"cycles:u\",\n"));
    EXPECT_EQ(json::parse(result.out), json::parse(R"({
        "version": 2, "event": "cycles:u", "samples": 6, "period": 10000,
        "in_kernels": 7501, "unknown": 499, "elsewhere": 2000,
        "kernels": [
            {"kernel": "wfta_12", "samples": 3, "period": 6501, "rows": [
                {"offset": 0, "samples": 1, "period": 500},
                {"offset": 4, "samples": 1, "period": 1},
                {"offset": 12, "samples": 1, "period": 6000}]},
            {"kernel": "wfta_3", "samples": 1, "period": 1000, "rows": [
                {"offset": 4, "samples": 1, "period": 1000}]}]})"));
    const child_result one = run({"dumps", "wfta_3", "--perf-script=text", "--format=json"});
    EXPECT_EQ(json::parse(one.out)["kernels"].size(), 1U) << one;
    EXPECT_EQ(json::parse(one.out)["kernels"][0]["kernel"], "wfta_3");
    EXPECT_EQ(json::parse(one.out)["in_kernels"], 7501);
}

TEST_F(ProfileCommand, ReadsStandardInput)
{
    const child_result file = run({"dumps", "--perf-script=text"});
    for (const char* const option : {"--perf-script=-", "--perf-script -"}) {
        const child_result piped =
            run_tool({"sh", "-c", std::string("cat text | " VORNA_KERNELS " profile dumps ") + option},
                     directory.path());
        EXPECT_EQ(piped.exit_status, 0) << piped;
        EXPECT_EQ(piped.out, file.out);
    }
}

TEST_F(ProfileCommand, IsPaintedWhenAskedTo)
{
    EXPECT_THAT(run({"dumps", "--perf-script=text", "--color=always"}).out,
                HasSubstr("\x1b[1;31m 92.3 ████████\x1b[0m +0c"));
}

TEST_F(ProfileCommand, EndsWithOneIfNoSampleIsInAKernel)
{
    write_file(directory.path() / "text", mapping + "  662     2.000000:  3 e:  10030\n");
    const child_result result = run({"dumps", "--perf-script=text"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out,
                StartsWith("e by period, 1 sample; in kernels 0.0 %, mapping without dump 100.0 %, "
                           "elsewhere 0.0 %\n"));
    EXPECT_THAT(result.out, EndsWith("\nnote: no sample is in a kernel with a dump; others ran\n"));
    EXPECT_EQ(run({"dumps", "--perf-script=text", "--format=json"}).exit_status, 1);

    write_file(directory.path() / "text", mapping + "  662     2.000000:  3 e:  70030\n");
    const child_result elsewhere = run({"dumps", "--perf-script=text"});
    EXPECT_EQ(elsewhere.exit_status, 1);
    EXPECT_EQ(elsewhere.out,
              "e by period, 1 sample; in kernels 0.0 %, mapping without dump 0.0 %, elsewhere 100.0 %\n\n"
              "note: no sample is in a kernel; perf does not see what a simulator or an emulator runs\n");

    write_file(directory.path() / "text", mapping);
    const child_result none = run({"dumps", "--perf-script=text"});
    EXPECT_EQ(none.exit_status, 1) << none;
    EXPECT_THAT(none.out, StartsWith("no samples\n"));
    EXPECT_EQ(run({"dumps", "--perf-script=text", "--format=json"}).exit_status, 1);
}

TEST_F(ProfileCommand, SaysInOneLineWhatIsWrong)
{
    expect_error({"dumps"}, "--perf-data or --perf-script is required");
    expect_error({"dumps", "--perf-script=nowhere"}, "nowhere: No such file or directory");
    expect_error({"dumps", "--perf-data=nowhere"}, "nowhere: No such file or directory");
    expect_error({"dumps", "--perf-script=dumps"}, "dumps: Is a directory");
    expect_error({"dumps", "--perf-script=text", "--event=cycles"},
                 "no event cycles in the profile; there is cycles:u, arm_spe//");
    write_file(directory.path() / "other",
               "  5 1.0: PERF_RECORD_MMAP2 5/5: [0x1000(0x1000) @ 0 0:0 0 0]: r-xp x\n");
    expect_error({"dumps", "--perf-script=other"},
                 "other: dumps and profile are of different runs: no process maps the memory of the kernels");
    std::filesystem::create_directory(directory.path() / "empty");
    expect_error({"empty", "--perf-script=text"}, "empty: no dumps found");
}

TEST_F(ProfileCommand, ShowsWhatItCanBesidesTrouble)
{
    write_file(directory.path() / "text", text + "some words\nand more\n");
    const child_result result = run({"dumps", "--perf-script=text", "wfta_12", "wfta_124"});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(
        result.err,
        "vorna-kernels: text:9: not a line of perf script -F pid,time,event,period,ip, as 2 in "
        "all; they are skipped\nvorna-kernels: no kernel wfta_124 in the dumps; did you mean wfta_12?\n");
    EXPECT_THAT(result.out, HasSubstr("\nwfta_12, 3 samples"));
}

TEST_F(ProfileCommand, SaysHowManySamplesTheRecordingLost)
{
    write_file(directory.path() / "text", text + "  0 2.000006: PERF_RECORD_LOST lost 1234\n");
    EXPECT_THAT(run({"dumps", "--perf-script=text"}).out,
                HasSubstr("\nlost while recording: 1,234 samples\n"));
}

TEST_F(ProfileCommand, RunsPerfWithoutAShell)
{
    fake_perf("for word in \"$@\"; do echo \"$word\" >>arguments; done; cat text");
    write_file(directory.path() / "a; b $(c)", "");
    const child_result result = run({"dumps", "--perf-data=a; b $(c)", "wfta_3"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_THAT(result.out, HasSubstr("\nwfta_3, 1 sample"));
    EXPECT_EQ(contents(directory.path() / "arguments"),
              "script\n-F\npid,time,event,period,ip\n-G\n--show-mmap-events\n"
              "--show-task-events\n-i\na; b $(c)\n");
}

TEST_F(ProfileCommand, SaysInOneLineWhatIsWrongWithPerf)
{
    write_file(directory.path() / "perf.data", "");
    fake_perf(
        "echo >&2; echo 'incompatible file format (rerun with -v to learn more)' >&2; echo more >&2; exit 255");
    expect_error({"dumps", "--perf-data=perf.data"},
                 "perf.data: perf script: incompatible file format (rerun with -v to learn more)");
    fake_perf("cat text; exit 3");
    expect_error({"dumps", "--perf-data=perf.data"}, "perf.data: perf script: exit status 3");
    fake_perf("cat text; kill -9 $$");
    expect_error({"dumps", "--perf-data=perf.data"}, "perf.data: perf script was ended by signal 9");
    fake_perf("exit 0");
    expect_error({"dumps", "--perf-data=perf.data"},
                 "perf.data: no line of the text of perf script -F pid,time,event,period,ip");
    fake_perf("echo warning >&2; cat text");
    EXPECT_EQ(run({"dumps", "--perf-data=perf.data"}).err, "");
    std::filesystem::remove_all(directory.path() / "bin");
    std::filesystem::create_directory(directory.path() / "bin");
    const child_result result = run_tool({"env", "-i", "PATH=" + (directory.path() / "bin").string(),
                                          VORNA_KERNELS, "profile", "dumps", "--perf-data=perf.data"},
                                         directory.path());
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.err,
              "vorna-kernels: perf.data: cannot run perf: No such file or directory; --perf-script reads "
              "the text that perf script made elsewhere\n");
}

TEST_F(ProfileCommand, EndsPerfWhenItNeedsNoMoreOfIt)
{
    write_file(directory.path() / "perf.data", "");
    fake_perf("echo PERFILE2; while :; do echo; done");
    expect_error({"dumps", "--perf-data=perf.data"},
                 "perf.data: data of perf record, not the text that perf script makes of it");
}

// The percentages in the table of tests/data/perf-aarch64/README.md.
TEST_F(ProfileCommand, AgreesWithPerfOnARecordingOfAnAarch64System)
{
    struct line {
        std::string event;
        std::string kernel;
        std::uint64_t samples;
        std::uint64_t period;
        bool operator==(const line& other) const
        {
            return std::tie(event, kernel, samples, period) ==
                   std::tie(other.event, other.kernel, other.samples, other.period);
        }
    };
    const std::filesystem::path data = PROJECT_ROOT "/tests/data/perf-aarch64";
    std::vector<line> table;
    std::istringstream readme(contents(data / "README.md"));
    for (std::string row; std::getline(readme, row);) {
        std::replace(row.begin(), row.end(), '|', '\t');
        std::istringstream cells(row);
        line read;
        if (row.substr(0, 1) == "\t" && cells >> read.event) {
            std::getline(cells >> std::ws, read.kernel, '\t');
            read.kernel.erase(read.kernel.find_last_not_of(' ') + 1);
            if (cells >> read.samples >> read.period)
                table.push_back(read);
        }
    }
    ASSERT_EQ(table.size(), 12U);

    const auto profile = [&](const std::string& arguments) {
        const child_result result = run_tool(
            {"sh", "-c",
             "gzip -dc perf-script.txt.gz | " VORNA_KERNELS " profile dumps --perf-script=- " + arguments},
            data);
        EXPECT_EQ(result.exit_status, 0) << result;
        EXPECT_EQ(result.err, "");
        return result.out;
    };
    std::vector<line> found;
    for (const std::string event : {"cpu-clock", "task-clock"}) {
        const json made = json::parse(profile("--format=json --event=" + event));
        for (const std::string name :
             {"wfta_short_5", "wfta_short_7", "wfta_short_9", "wfta_short_16", "wfta_5040"}) {
            for (const json& kernel : made["kernels"]) {
                if (kernel["kernel"] == name)
                    found.push_back({event, name, kernel["samples"], kernel["period"]});
            }
        }
        found.push_back({event, "all samples of all processes", made["samples"], made["period"]});
        EXPECT_EQ(made["kernels"].size(), 5U);
    }
    EXPECT_TRUE(found == table);

    const json made = json::parse(profile("--format=json"));
    EXPECT_EQ(made["event"], "cpu-clock");
    std::map<std::uint64_t, std::uint64_t> heaviest;
    for (const json& row : made["kernels"][0]["rows"]) {
        if (row["samples"] > 500)
            heaviest[row["offset"]] = row["samples"];
    }
    EXPECT_EQ(heaviest, (std::map<std::uint64_t, std::uint64_t>{
                            {0x88, 6402}, {0xbc, 5894}, {0xec, 5316}, {0x54, 4612}, {0x28, 555}}));
    EXPECT_THAT(profile(""), HasSubstr("\n  96.1 %  wfta_5040\n"));
}

/// The kernel countdown.
using count = void (*)(std::uint64_t);

void no_kernel(std::uint64_t) {}

/// The kernel's share of the process's time.
void run_for(count kernel, std::chrono::milliseconds time)
{
    const std::clock_t end = std::clock() + time.count() * CLOCKS_PER_SEC / 1000;
    while (std::clock() < end)
        kernel(100'000);
}

vorna::wfta::kernel_data native(const std::string& name, count* entry)
{
    return {reinterpret_cast<void**>(entry), name, countdown, {}, {}};
}

/// Finalises two kernels in two calls, and runs the first one here and in a process forked between the calls.
void be_profiled()
{
    count first = no_kernel;
    count second = no_kernel;
    vorna::wfta::kernel_registry_map registry;
    vorna::wfta::finalise_kernels(registry, {native("countdown", &first)});
    const pid_t child = fork();
    if (child == 0) {
        run_for(first, std::chrono::milliseconds(300));
        _exit(0);
    }
    vorna::wfta::finalise_kernels(registry, {native("second", &second)});
    run_for(first, std::chrono::milliseconds(300));
    run_for(second, std::chrono::milliseconds(150));
    waitpid(child, nullptr, 0);
}

/// Finalises two kernels in two calls, with dumps. A busy_process then calls both.
std::function<void()> two_dumped_kernels()
{
    setenv("VORNA_WFTA_DUMP_KERNEL", "", 1);
    count first = no_kernel;
    count second = no_kernel;
    vorna::wfta::kernel_registry_map registry;
    vorna::wfta::finalise_kernels(registry, {native("countdown", &first)});
    vorna::wfta::finalise_kernels(registry, {native("second", &second)});
    return [first, second] {
        first(2'000'000);
        second(1'000'000);
    };
}

class NativeProfile : public testing::Test {
protected:
    NativeProfile() { std::filesystem::create_directory(dumps()); }

    [[nodiscard]] std::filesystem::path dumps() const { return directory.path() / "dumps"; }

    /// Runs perf record with its output in the directory of the dumps.
    void record(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"perf", "record", "--no-buildid-cache", "-e",
                                             "cpu-clock,task-clock", "-o", "perf.data"});
        arguments.insert(arguments.begin(), {"env", "WFTA_BE_PROFILED=1", "VORNA_WFTA_DUMP_KERNEL="});
        const child_result recorded = run_tool(arguments, dumps());
        EXPECT_EQ(recorded.exit_status, 0) << recorded;
    }

    /// The samples of each kernel, and of all, by the addresses that perf reports.
    [[nodiscard]] std::map<std::string, std::uint64_t> samples(const std::string& event) const
    {
        const vorna::workbench::dump_reading reading = vorna::workbench::read_dumps({dumps().string()});
        EXPECT_EQ(reading.set.kernels.size(), 2U);
        std::map<std::string, std::uint64_t> found;
        std::istringstream lines(
            run_tool({"perf", "script", "-i", "perf.data", "-G", "-F", "event,ip"}, dumps()).out);
        for (std::string name; lines >> name;) {
            std::uint64_t address = 0;
            lines >> std::hex >> address;
            if (name != event + ":")
                continue;
            ++found["all"];
            for (const vorna::workbench::placed_kernel& kernel : reading.set.kernels) {
                if (address >= kernel.text_address && address < kernel.text_address + countdown.size())
                    ++found[kernel.name];
            }
        }
        return found;
    }

    void expect_samples() const
    {
        for (const std::string event : {"cpu-clock", "task-clock"}) {
            const child_result result = run_tool(
                {VORNA_KERNELS, "profile", ".", "--perf-data=perf.data", "--format=json", "--event=" + event},
                dumps());
            ASSERT_EQ(result.exit_status, 0) << result;
            EXPECT_EQ(result.err, "");
            const json made = json::parse(result.out);
            std::map<std::string, std::uint64_t> found = {{"all", made["samples"]}};
            for (const json& kernel : made["kernels"]) {
                found[kernel["kernel"]] = kernel["samples"];
                EXPECT_EQ(kernel["period"], kernel["samples"].get<std::uint64_t>() * 250'000);
            }
            EXPECT_EQ(found, samples(event));
            EXPECT_GT(found["countdown"], 20U);
            EXPECT_GT(found["second"], 10U);
            EXPECT_EQ(made["unknown"], 0);
        }
    }

    temp_directory directory;
};

TEST_F(NativeProfile, HasTheSamplesOfAProgramAndItsChildren)
{
    if (std::getenv("WFTA_BE_PROFILED") != nullptr)
        return be_profiled();
    if (const std::string reason = why_perf_cannot_record(); !reason.empty())
        GTEST_SKIP() << reason;
    const std::string own_program = std::filesystem::read_symlink("/proc/self/exe");
    record({"--", own_program, "--gtest_filter=NativeProfile.HasTheSamplesOfAProgramAndItsChildren"});
    expect_samples();
}

TEST_F(NativeProfile, HasTheSamplesOfAProcessThatPerfWasAttachedTo)
{
    if (const std::string reason = why_perf_cannot_record(); !reason.empty())
        GTEST_SKIP() << reason;
    const busy_process busy(dumps(), two_dumped_kernels);
    record({"-p", std::to_string(busy.pid()), "--", "sh", "-c", support::until_it_has_run(busy.pid())});
    expect_samples();
}

} // namespace
