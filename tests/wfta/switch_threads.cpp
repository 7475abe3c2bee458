// Threads that finalise their first kernels at once, each with a registry of its own: they share the
// switches.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <thread>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::UnorderedElementsAreArray;

constexpr int thread_count = 8;
constexpr int calls_each = 4;

/// Runs body(thread, call) in every thread, the first calls as simultaneously as possible.
void in_all_threads(const std::function<void(int thread, int call)>& body)
{
    std::atomic<int> waiting{thread_count};
    std::vector<std::thread> threads;
    threads.reserve(thread_count);
    for (int thread = 0; thread < thread_count; ++thread) {
        threads.emplace_back([&, thread] {
            --waiting;
            while (waiting.load() != 0) {
            }
            for (int call = 0; call < calls_each; ++call) {
                body(thread, call);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void in_child_with(const std::vector<std::pair<std::string, std::string>>& environment,
                   const temp_directory& directory, const std::function<void()>& body)
{
    child_options options;
    options.environment = environment;
    options.directory = directory.path();
    const child_result child = run_in_child(body, options);
    EXPECT_TRUE(child.succeeded()) << child;
}

std::string name_of(int thread, int call)
{
    return "thread" + std::to_string(thread) + "_call" + std::to_string(call);
}

void emit(int thread, int call)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel(name_of(thread, call), {a64::ret()})});
}

TEST(SwitchThreads, AllOffStaysOff)
{
    const temp_directory directory;
    in_child_with({}, directory, [] { in_all_threads(emit); });
    EXPECT_THAT(names_in(directory.path()), testing::IsEmpty());
}

TEST(SwitchThreads, EveryThreadSeesEverySwitchAndTheWholePattern)
{
    const temp_directory directory;
    in_child_with({{"VORNA_WFTA_DUMP_KERNEL", "thread[0-3]_call[13]"}, {"VORNA_WFTA_CHECK_HASH", "1"}},
                  directory, [] { in_all_threads(emit); });
    std::vector<std::string> expected;
    for (int thread = 0; thread < thread_count; ++thread) {
        for (int call = 0; call < calls_each; ++call) {
            expected.push_back(name_of(thread, call) + ".hash");
            if (thread <= 3 && call % 2 == 1) {
                expected.push_back(name_of(thread, call));
            }
        }
    }
    EXPECT_THAT(names_in(directory.path()), UnorderedElementsAreArray(expected));
}

TEST(SwitchThreads, EveryThreadsKernelsAreListedWhole)
{
    const temp_directory directory;
    in_child_with({{"VORNA_WFTA_PERF", "1"}}, directory, [] {
        const perf_map map;
        in_all_threads(emit);
        std::istringstream lines(map.text());
        std::vector<std::string> names;
        for (std::string address, size, name; lines >> address >> size >> name;) {
            EXPECT_EQ(size, "4");
            names.push_back(name);
        }
        std::vector<std::string> expected;
        for (int thread = 0; thread < thread_count; ++thread) {
            for (int call = 0; call < calls_each; ++call) {
                expected.push_back(name_of(thread, call));
            }
        }
        EXPECT_THAT(names, UnorderedElementsAreArray(expected));
    });
}

TEST(SwitchThreads, MalformedPatternThrowsInEveryCallOfEveryThread)
{
    const temp_directory directory;
    in_child_with({{"VORNA_WFTA_DUMP_KERNEL", "("}, {"VORNA_WFTA_CHECK_HASH", "1"}}, directory, [] {
        std::atomic<int> errors{0};
        in_all_threads([&](int thread, int call) {
            try {
                emit(thread, call);
            } catch (const std::regex_error&) {
                ++errors;
            }
        });
        EXPECT_EQ(errors.load(), thread_count * calls_each);
    });
    EXPECT_THAT(names_in(directory.path()), testing::IsEmpty());
}

} // namespace
