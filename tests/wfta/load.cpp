// Many kernels, many calls, many processes in one directory, and processes that are killed at any moment.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace vorna::wfta;
using namespace support;

std::string numbered_name(std::size_t number)
{
    return "wfta_" + std::to_string(number);
}

/// Kernels first to first + count - 1. Each but the first calls the one before it.
std::vector<kernel_data> chain(std::size_t first, std::size_t count)
{
    std::vector<kernel_data> kernels;
    kernels.reserve(count);
    for (std::size_t i = first; i < first + count; ++i) {
        kernels.push_back(kernel(numbered_name(i), {a64::bl(), a64::ret()}, {}, {42}));
        if (i != first) {
            kernels.back().relocs.push_back({numbered_name(i - 1), 0, R_AARCH64_CALL26, 0});
        }
    }
    return kernels;
}

/// Kernels first to first + count - 1 are placed and linked as a chain, in one piece.
void expect_chain(const kernel_registry_map& registry, std::size_t first, std::size_t count)
{
    const std::uint8_t* const base = registry.at(numbered_name(first)).text_ptr;
    std::size_t misplaced = 0;
    std::size_t unlinked = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const kernel_registry_entry& entry = registry.at(numbered_name(first + i));
        misplaced += entry.text_ptr != base + 32 * i || entry.text_len != 8 ||
                     entry.data_ptr != base + 32 * count + i || *entry.data_ptr != 42;
        constexpr std::uint32_t bl_to_the_one_before = 0x97fffff8; // BL .-32
        unlinked += word_at(entry.text_ptr) != (i == 0 ? a64::bl() : bl_to_the_one_before) ||
                    word_at(entry.text_ptr + 4) != a64::ret();
    }
    EXPECT_EQ(misplaced, 0U);
    EXPECT_EQ(unlinked, 0U);
}

void expect_success_in_child(const std::function<void()>& body)
{
    child_options options;
    const child_result child = run_in_child(body, options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
}

TEST(Load, TwoHundredThousandKernelsInOneCall)
{
    expect_success_in_child([] {
        constexpr std::size_t count = 200'000;
        kernel_registry_map registry;
        finalise_kernels(registry, chain(0, count));
        EXPECT_EQ(registry.size(), count);
        expect_chain(registry, 0, count);
    });
}

TEST(Load, TwentyThousandCallsOnOneRegistry)
{
    expect_success_in_child([] {
        constexpr std::size_t calls = 20'000;
        constexpr std::size_t each = 10;
        kernel_registry_map registry;
        for (std::size_t call = 0; call < calls; ++call) {
            finalise_kernels(registry, chain(call * each, each));
        }
        EXPECT_EQ(registry.size(), calls * each);
        for (std::size_t call = 0; call < calls; ++call) {
            expect_chain(registry, call * each, each);
        }
    });
}

// The rest runs in many processes with all diagnostics on and one current directory. What a process writes
// contains its number, so that a torn file is noticed.

constexpr std::size_t kernels_each = 4;
constexpr std::size_t words_each = 64;
constexpr std::size_t data_bytes_each = 32;

std::vector<kernel_data> kernels_of_process(unsigned number)
{
    std::vector<kernel_data> kernels;
    for (std::size_t i = 0; i < kernels_each; ++i) {
        kernels.push_back(
            kernel(numbered_name(i), std::vector<std::uint32_t>(words_each, a64::movz(0, number)), {},
                   std::vector<std::uint8_t>(data_bytes_each, static_cast<std::uint8_t>(number))));
    }
    return kernels;
}

/// The hash from its definition, as the bytes of its file.
std::string hash_file_of_process(unsigned number)
{
    const std::vector<std::uint8_t> text = kernels_of_process(number)[0].text;
    std::uint64_t h = 0;
    for (const std::uint8_t b : text) {
        h = h * 31 + b;
    }
    std::string bytes;
    for (unsigned shift = 0; shift < 64; shift += 8) {
        bytes += static_cast<char>(h >> shift & 0xff);
    }
    return bytes;
}

void finalise_as_process(unsigned number)
{
    kernel_registry_map registry;
    finalise_kernels(registry, kernels_of_process(number));
}

void with_all_on(const std::filesystem::path& directory, const std::function<void()>& body,
                 const std::function<void(const std::string& err)>& look_at_err)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_PERF", "1"}, {"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory;
    const child_result child = run_in_child(body, options);
    const perf_map map(child.pid);
    EXPECT_TRUE(child.succeeded()) << child;
    look_at_err(child.err);
}

/// Whether a dump is the image that one of the processes 0 to count - 1 made: of its length, with the code
/// and the data of that process and of no other.
bool is_whole_dump(const std::string& dump, std::size_t length, unsigned count)
{
    for (unsigned number = 0; number < count; ++number) {
        const kernel_data made = kernels_of_process(number)[0];
        if (dump.find(to_string(made.text)) != std::string::npos) {
            return dump.size() == length && dump.find(to_string(made.data)) != std::string::npos;
        }
    }
    return false;
}

/// The length of a dump, which is the same for all.
std::size_t length_of_dump()
{
    const temp_directory directory;
    with_all_on(
        directory.path(), [] { finalise_as_process(0); }, [](const std::string&) {});
    return std::filesystem::file_size(directory.path() / numbered_name(0));
}

/// Every line is one of the hash check's, from its first byte to its last.
void expect_whole_lines(const std::string& err)
{
    std::istringstream lines(err);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_THAT(
            line,
            testing::AnyOf(
                testing::MatchesRegex("emitting new hash file: wfta_[0-3].hash -> 0x[0-9a-f]+"),
                testing::MatchesRegex("hash files did not match! .old. 0x[0-9a-f]+ != .new. 0x[0-9a-f]+"),
                testing::MatchesRegex("corrupt hash file. wfta_[0-3].hash should be 8 bytes but read 0")));
    }
}

/// Forks. In the child, which does not outlive this process, runs the body and exits.
pid_t start_process(const std::function<void()>& body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const perf_map without_lines_of_an_earlier_process;
        body();
        _exit(0);
    }
    EXPECT_GT(pid, 0);
    return pid;
}

TEST(Load, TwoHundredProcessesInOneDirectoryTearNothing)
{
    constexpr unsigned processes = 200;
    const std::size_t length = length_of_dump();
    const temp_directory directory;
    const auto run_all = [&] {
        int start[2];
        ASSERT_EQ(pipe(start), 0);
        std::vector<pid_t> pids;
        for (unsigned number = 0; number < processes; ++number) {
            pids.push_back(start_process([&] {
                close(start[1]);
                char byte = 0;
                while (read(start[0], &byte, 1) > 0) {
                }
                finalise_as_process(number);
            }));
        }
        close(start[0]);
        close(start[1]); // they all go off
        for (const pid_t pid : pids) {
            int status = -1;
            waitpid(pid, &status, 0);
            EXPECT_EQ(status, 0);
            const perf_map map(pid);
            EXPECT_THAT(map.text(), testing::MatchesRegex("[0-9a-f]+ 100 wfta_0\n[0-9a-f]+ 100 wfta_1\n"
                                                          "[0-9a-f]+ 100 wfta_2\n[0-9a-f]+ 100 wfta_3\n"));
        }
    };
    with_all_on(directory.path(), run_all, expect_whole_lines);

    std::set<std::string> hashes;
    for (unsigned number = 0; number < processes; ++number) {
        hashes.insert(hash_file_of_process(number));
    }
    EXPECT_EQ(names_in(directory.path()).size(), 2 * kernels_each);
    for (std::size_t i = 0; i < kernels_each; ++i) {
        const std::filesystem::path file = directory.path() / numbered_name(i);
        EXPECT_TRUE(is_whole_dump(contents(file), length, processes)) << file;
        EXPECT_EQ(hashes.count(contents(file.string() + ".hash")), 1U) << file;
    }
}

TEST(Load, ARunAfterFiveHundredThatWereKilledSucceeds)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    const std::size_t length = length_of_dump();
    const temp_directory directory;
    const auto kill_all = [&] {
        std::mt19937 random(seed);
        int at_work[2];
        ASSERT_EQ(pipe(at_work), 0);
        for (unsigned number = 0; number < 500; ++number) {
            const pid_t pid = start_process([&] {
                finalise_as_process(number);
                EXPECT_EQ(write(at_work[1], "", 1), 1);
                for (;;) {
                    finalise_as_process(number);
                }
            });
            char byte = 0;
            ASSERT_EQ(read(at_work[0], &byte, 1), 1);
            usleep(static_cast<useconds_t>(random() % 4000));
            kill(pid, SIGKILL);
            int status = 0;
            waitpid(pid, &status, 0);
            EXPECT_EQ(WTERMSIG(status), SIGKILL);
            const perf_map leftover(pid);
        }
    };
    with_all_on(directory.path(), kill_all, [](const std::string&) {});
    EXPECT_LE(names_in(directory.path()).size(), 2 * kernels_each); // no temporary file is left

    constexpr unsigned last = 777;
    with_all_on(
        directory.path(), [] { finalise_as_process(last); }, expect_whole_lines);
    for (std::size_t i = 0; i < kernels_each; ++i) {
        const std::filesystem::path file = directory.path() / numbered_name(i);
        const std::string dump = contents(file);
        EXPECT_EQ(dump.size(), length) << file;
        EXPECT_NE(dump.find(to_string(kernels_of_process(last)[0].text)), std::string::npos) << file;
        EXPECT_EQ(contents(file.string() + ".hash"), hash_file_of_process(last)) << file;
    }
    with_all_on(
        directory.path(), [] { finalise_as_process(last); },
        [](const std::string& err) { EXPECT_EQ(err, ""); });
}

} // namespace
