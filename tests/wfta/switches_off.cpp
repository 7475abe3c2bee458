// What the diagnostics cost when they are off: nothing opened, written, allocated or copied.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::size_t allocations = 0;

} // namespace

// Not inlined, or GCC sees malloc's memory go to operator delete and warns.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    ++allocations;
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

using namespace vorna::wfta;
using namespace support;

const std::vector<std::pair<std::string, std::string>> all_on = {{"VORNA_WFTA_PERF", "1"},
                                                                 {"VORNA_WFTA_CHECK_HASH", "1"}};

/// A kernel whose relocations would show if they were copied.
kernel_data linked_kernel(const std::string& name)
{
    return kernel(name, {a64::adrp(0), a64::add(0, 0, 0), a64::ret()},
                  {{".rodata." + name, 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                   {".rodata." + name, 4, R_AARCH64_ADD_ABS_LO12_NC, 0}},
                  {1, 2, 3, 4});
}

/// Calls of operator new in the second of two calls of finalise_kernels, each with a set of three kernels.
std::size_t allocations_of_a_call(const std::string& long_prefix)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {linked_kernel(long_prefix + "a"), linked_kernel(long_prefix + "b"),
                                linked_kernel(long_prefix + "c")});
    const std::vector<kernel_data> kernels = {
        linked_kernel(long_prefix + "d"), linked_kernel(long_prefix + "e"), linked_kernel(long_prefix + "f")};
    const std::size_t before = allocations;
    finalise_kernels(registry, kernels);
    return allocations - before;
}

TEST(SwitchesOff, EachKernelAllocatesItsRegistryNodeAndNothingElse)
{
    const child_result child = run_in_child([] {
        EXPECT_EQ(allocations_of_a_call(""), 3U);
        // names too long for the string's own buffer have memory of their own
        EXPECT_EQ(allocations_of_a_call(std::string(100, 'n')), 6U);
    });
    EXPECT_TRUE(child.succeeded()) << child;
}

TEST(SwitchesOff, FirstCallOfTheProcessAllocatesNoMoreThanLaterOnes)
{
    const child_result child = run_in_child([] {
        const std::vector<kernel_data> kernels = {linked_kernel("a")};
        kernel_registry_map registry;
        const std::size_t before = allocations;
        finalise_kernels(registry, kernels);
        EXPECT_EQ(allocations - before, 1U);
    });
    EXPECT_TRUE(child.succeeded()) << child;
}

TEST(SwitchesOn, AllocationsOfTheDiagnosticsAreCounted)
{
    child_options options;
    options.environment = all_on;
    const child_result child = run_in_child(
        [] {
            const perf_map removed_at_the_end;
            EXPECT_GT(allocations_of_a_call(""), 3U);
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
}

/// The number of file events (reads too) on a directory, the files k and k.hash in it and the perf map,
/// while the kernel k is finalised.
std::size_t file_events(const std::vector<std::pair<std::string, std::string>>& environment)
{
    child_options options;
    options.environment = environment;
    const child_result child = run_in_child(
        [] {
            const perf_map map;
            const std::vector<kernel_data> kernels = {linked_kernel("k")};
            const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
            ASSERT_GE(events, 0);
            for (const std::filesystem::path& file :
                 {std::filesystem::path("k"), std::filesystem::path("k.hash"), map.path()}) {
                write_file(file, "");
                ASSERT_GE(inotify_add_watch(events, file.c_str(), IN_ALL_EVENTS), 0);
            }
            ASSERT_GE(inotify_add_watch(events, ".", IN_ALL_EVENTS), 0);
            kernel_registry_map registry;
            finalise_kernels(registry, kernels);

            std::size_t count = 0;
            alignas(inotify_event) char buffer[16384];
            const ssize_t length = read(events, buffer, sizeof buffer);
            for (ssize_t offset = 0; offset < length; ++count) {
                const auto* const event = reinterpret_cast<const inotify_event*>(buffer + offset);
                offset += static_cast<ssize_t>(sizeof *event + event->len);
            }
            std::printf("%zu", count);
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    return std::stoul(child.out);
}

TEST(SwitchesOff, NoFileIsOpened)
{
    EXPECT_EQ(file_events({}), 0U);
    EXPECT_EQ(file_events({{"VORNA_WFTA_PERF", "0"}, {"VORNA_WFTA_CHECK_HASH", "0"}}), 0U);
    EXPECT_EQ(file_events({{"VORNA_WFTA_DUMP_KERNEL", "another"}}), 0U);
}

TEST(SwitchesOn, FileEventsAreCounted)
{
    EXPECT_GT(file_events(all_on), 6U);
    EXPECT_GT(file_events({{"VORNA_WFTA_DUMP_KERNEL", "k"}}), 0U);
}

struct system_calls {
    std::vector<std::uint64_t> numbers;     ///< without those that manage memory
    std::vector<std::uint64_t> executables; ///< lengths of executable mappings
    bool seen;                              ///< false where processes cannot be traced
};

bool manages_memory(std::uint64_t number)
{
    return number == SYS_mmap || number == SYS_munmap || number == SYS_mprotect || number == SYS_madvise ||
           number == SYS_brk;
}

/// The system calls of a traced child that finalises the kernel k, between two calls of getppid.
system_calls system_calls_of_a_call(const std::vector<std::pair<std::string, std::string>>& environment)
{
    const temp_directory directory;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        for (const auto& [name, value] : environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        std::filesystem::current_path(directory.path());
        if (std::freopen("stderr", "w", stderr) == nullptr) {
            _exit(2);
        }
        const std::vector<kernel_data> kernels = {linked_kernel("k")};
        kernel_registry_map registry;
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(1);
        }
        raise(SIGSTOP);
        getppid();
        finalise_kernels(registry, kernels);
        getppid();
        _exit(0);
    }
    const perf_map removed_at_the_end(child);

    system_calls calls = {{}, {}, false};
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status)) {
        EXPECT_EQ(WEXITSTATUS(status), 1);
        return calls;
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int marks = 0;
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
           WIFSTOPPED(status)) {
        __ptrace_syscall_info info;
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0 ||
            info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        if (info.entry.nr == SYS_getppid) {
            ++marks;
        } else if (marks == 1 && !manages_memory(info.entry.nr)) {
            calls.numbers.push_back(info.entry.nr);
        } else if (marks == 1 && info.entry.nr == SYS_mmap && (info.entry.args[2] & PROT_EXEC) != 0) {
            calls.executables.push_back(info.entry.args[1]);
        }
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(marks, 2);
    calls.seen = true;
    return calls;
}

TEST(SwitchesOff, TheOnlySystemCallsManageMemory)
{
    const system_calls calls = system_calls_of_a_call({});
    if (!calls.seen) {
        GTEST_SKIP() << "processes cannot be traced here";
    }
#ifdef _LIBCPP_VERSION // whose guard of each switch takes down the thread that holds it
    EXPECT_EQ(calls.numbers, std::vector<std::uint64_t>(3, SYS_gettid));
#else
    EXPECT_EQ(calls.numbers, std::vector<std::uint64_t>());
#endif
    EXPECT_EQ(calls.executables, std::vector<std::uint64_t>{32 + 4});
}

TEST(SwitchesOn, SystemCallsAreSeen)
{
    const system_calls calls = system_calls_of_a_call(all_on);
    if (!calls.seen) {
        GTEST_SKIP() << "processes cannot be traced here";
    }
    for (const std::uint64_t number :
         std::vector<std::uint64_t>{SYS_getpid, SYS_openat, SYS_write, SYS_close}) {
        EXPECT_NE(std::count(calls.numbers.begin(), calls.numbers.end(), number), 0) << number;
    }
}

} // namespace
