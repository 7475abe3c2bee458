// The lines in the process's perf map.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>

namespace {

using namespace vorna::wfta;
using namespace support;

void with_perf(const std::string& value, const std::function<void(const perf_map&)>& body)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_PERF", value}};
    const child_result child = run_in_child(
        [&] {
            const perf_map map;
            body(map);
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
}

kernel_data kernel_of_size(const std::string& name, std::size_t size)
{
    return {nullptr, name, std::vector<std::uint8_t>(size), {}, {}};
}

std::string line(const kernel_registry_map& registry, const std::string& name)
{
    const kernel_registry_entry& entry = registry.at(name);
    std::ostringstream text;
    text << std::hex << number(entry.text_ptr) << ' ' << entry.text_len << ' ' << name << '\n';
    return text.str();
}

TEST(PerfMap, LineIsAddressSizeAndNameInBareLowerCaseHexadecimal)
{
    with_perf("1", [](const perf_map& map) {
        std::uint8_t* const place = address(0x400000);
        // No memory of this program may be there.
        ASSERT_EQ(mmap(place, 0x10000, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0),
                  place);
        platform_spy spy;
        spy.place = place;
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("first", 60), kernel_of_size("wfta_5", 100),
                                    kernel_of_size("last", 0xabc)});
        EXPECT_EQ(map.text(), "400000 3c first\n"
                              "400040 64 wfta_5\n"
                              "4000c0 abc last\n");
    });
}

TEST(PerfMap, KernelWithoutCodeHasSizeZero)
{
    with_perf("1", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("some", 4), kernel_of_size("none", 0)});
        std::ostringstream expected;
        expected << std::hex << number(registry.at("some").text_ptr + 32) << " 0 none\n";
        EXPECT_EQ(map.text(), line(registry, "some") + expected.str());
    });
}

TEST(PerfMap, AddressOfASetWithoutAnyByteIsZero)
{
    with_perf("1", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("none", 0)});
        EXPECT_EQ(map.text(), "0 0 none\n");
    });
}

TEST(PerfMap, SecondCallAppendsToTheLinesOfTheFirst)
{
    with_perf("1", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("z", 8), kernel_of_size("a", 12)});
        EXPECT_EQ(map.text(), line(registry, "z") + line(registry, "a"));
        kernel_registry_map other;
        finalise_kernels(other, {kernel_of_size("z", 16)});
        EXPECT_EQ(map.text(), line(registry, "z") + line(registry, "a") + line(other, "z"));
    });
}

TEST(PerfMap, LinesOfOtherWritersStay)
{
    with_perf("1", [](const perf_map& map) {
        write_file(map.path(), "1000 20 of another code generator\n");
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("ours", 8)});
        EXPECT_EQ(map.text(), "1000 20 of another code generator\n" + line(registry, "ours"));
    });
}

TEST(PerfMap, NameIsVerbatim)
{
    with_perf("1", [](const perf_map& map) {
        std::string expected;
        kernel_registry_map registry;
        for (const std::string& name :
             {std::string("two words"), std::string("%s%n%x"), std::string("\xff\xc3"),
              std::string("line\nbreak"), std::string("sub/k"), std::string(), std::string(10'000, 'n')}) {
            finalise_kernels(registry, {kernel_of_size(name, 4)});
            expected += line(registry, name);
        }
        EXPECT_EQ(map.text(), expected);
    });
}

TEST(PerfMap, NameEndsAtANullByte)
{
    with_perf("1", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size(std::string("cut\0off", 7), 4)});
        std::ostringstream expected;
        expected << std::hex << number(registry.begin()->second.text_ptr) << " 4 cut\n";
        EXPECT_EQ(map.text(), expected.str());
    });
}

TEST(PerfMap, DataIsNotListed)
{
    with_perf("1", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {a64::ret()}, {}, {1, 2, 3, 4, 5, 6, 7, 8})});
        EXPECT_EQ(map.text(), line(registry, "k"));
    });
}

TEST(PerfMap, IsNotCreatedWhenTheSwitchIsNotExactly1)
{
    with_perf("true", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("k", 4)});
        EXPECT_FALSE(map.exists());
    });
}

TEST(PerfMap, IsNotTouchedWhenTheSwitchIsUnset)
{
    const child_result child = run_in_child([] {
        const perf_map map;
        write_file(map.path(), "as it was\n");
        const auto long_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
        std::filesystem::last_write_time(map.path(), long_ago);
        const auto time_before = std::filesystem::last_write_time(map.path());
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("k", 4)});
        EXPECT_EQ(map.text(), "as it was\n");
        EXPECT_EQ(std::filesystem::last_write_time(map.path()), time_before);
    });
    EXPECT_TRUE(child.succeeded()) << child;
}

TEST(PerfMap, IsClosedAfterEachLine)
{
    with_perf("1", [](const perf_map&) {
        const std::size_t open_before = names_in("/proc/self/fd").size();
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("a", 4), kernel_of_size("b", 4)});
        EXPECT_EQ(names_in("/proc/self/fd").size(), open_before);
    });
}

TEST(PerfMap, LinesOfAForkedChildGoToTheChildsOwnMap)
{
    with_perf("1", [](const perf_map& map) {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel_of_size("before", 4)});
        const std::string line_before = line(registry, "before");

        std::fflush(nullptr);
        const pid_t forked = fork();
        if (forked == 0) {
            {
                const perf_map own;
                finalise_kernels(registry, {kernel_of_size("in the child", 8)});
                EXPECT_EQ(own.text(), line(registry, "in the child"));
                EXPECT_EQ(map.text(), line_before);
            }
            std::fflush(nullptr);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        ASSERT_GT(forked, 0);
        int status = 0;
        waitpid(forked, &status, 0);
        EXPECT_EQ(status, 0);

        finalise_kernels(registry, {kernel_of_size("after", 12)});
        EXPECT_EQ(map.text(), line_before + line(registry, "after"));
    });
}

} // namespace
