// Real recordings. What the command prints is in cases/profile.t.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/files.hpp"
#include "tests/support/perf.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/input/dumps.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

namespace {

using namespace support;
using nlohmann::json;
using testing::HasSubstr;

TEST(ProfileCommand, AgreesWithPerfOnARecordingOfAnAarch64System)
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
