// The one mapping and the one instruction cache flush of a call, and what happens when the system refuses the
// mapping.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace support;
using namespace vorna::wfta;

std::vector<kernel_data> caller_and_callee(void** slots)
{
    return {kernel("callee", {a64::adr(0), a64::ret()}, {{".rodata.callee", 0, R_AARCH64_ADR_PREL_LO21, 0}},
                   {1, 2, 3}, &slots[0]),
            kernel("caller", {a64::bl(), a64::ret()}, {{"callee", 0, R_AARCH64_CALL26, 0}}, {}, &slots[1])};
}

/// The line of /proc/self/maps whose range starts at `begin`, up to the protection; empty if none does.
std::string mapping_line(const void* begin)
{
    std::ifstream maps("/proc/self/maps");
    const std::string start = hex(number(begin)).substr(2) + "-";
    for (std::string line; std::getline(maps, line);) {
        if (line.compare(line.find_first_not_of('0'), start.size(), start) == 0) {
            return line.substr(0, line.find(' ') + 5);
        }
    }
    return "";
}

TEST(Mapping, OneCallAsksForPrivateAnonymousMemoryToReadWriteAndExecute)
{
    kernel_registry_map registry;
    platform_spy spy;
    void* slots[2];
    finalise_kernels(registry, caller_and_callee(slots));
    ASSERT_EQ(spy.mappings.size(), 1U);
    const mapping_call& call = spy.mappings[0];
    EXPECT_EQ(call.hint, nullptr);
    EXPECT_EQ(call.length, 67U); // not rounded up to pages
    EXPECT_EQ(call.protection, PROT_READ | PROT_WRITE | PROT_EXEC);
    EXPECT_EQ(call.flags, MAP_PRIVATE | MAP_ANONYMOUS);
    EXPECT_EQ(call.fd, -1);
    EXPECT_EQ(call.offset, 0);
}

TEST(Mapping, StaysReadableWritableAndExecutableAfterTheCall)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    address_range range(0x40000);
    platform_spy spy;
    spy.place = range.begin();
    {
        kernel_registry_map registry;
        kernel_data big = kernel("k", {});
        big.text.resize(page);
        big.data.resize(1);
        finalise_kernels(registry, {big});
    }
    EXPECT_EQ(mapping_line(range.begin()), hex(number(range.begin())).substr(2) + "-" +
                                               hex(number(range.begin()) + 2 * page).substr(2) + " rwxp");
}

TEST(Mapping, ASetOfAThousandKernelsTakesOneMappingAndOneFlush)
{
    kernel_registry_map registry;
    std::vector<kernel_data> kernels;
    kernels.reserve(1000);
    for (int i = 0; i < 1000; ++i) {
        kernels.push_back(kernel(std::to_string(i), {a64::ret()}, {}, {1}));
    }
    platform_spy spy;
    finalise_kernels(registry, kernels);
    EXPECT_EQ(registry.size(), 1000U);
    ASSERT_EQ(spy.mappings.size(), 1U);
    EXPECT_EQ(spy.mappings[0].length, 33000U);
    ASSERT_EQ(spy.flushes.size(), 1U);
    EXPECT_EQ(spy.flushes[0].end - spy.flushes[0].begin, 32000);
}

TEST(Mapping, EachCallMakesItsOwn)
{
    kernel_registry_map registry;
    platform_spy spy;
    finalise_kernels(registry, {kernel("a", {a64::ret()})});
    finalise_kernels(registry, {kernel("b", {a64::ret()})});
    ASSERT_EQ(spy.mappings.size(), 2U);
    EXPECT_NE(spy.mappings[0].result, spy.mappings[1].result);
    EXPECT_EQ(spy.flushes.size(), 2U);
    EXPECT_EQ(spy.flushes[0].begin, spy.mappings[0].result);
    EXPECT_EQ(spy.flushes[1].begin, spy.mappings[1].result);
}

TEST(Mapping, ItsPagesFaultInAtOnce)
{
    kernel_registry_map registry;
    platform_spy spy;
    void* slots[2];
    finalise_kernels(registry, caller_and_callee(slots));
    ASSERT_EQ(spy.advices.size(), 1U);
    EXPECT_EQ(spy.advices[0].begin, spy.mappings.at(0).result);
    EXPECT_EQ(spy.advices[0].length, 67U);
    EXPECT_EQ(spy.advices[0].advice, MADV_POPULATE_WRITE);
}

TEST(Flush, CoversTheTextRegionAndNotTheData)
{
    kernel_registry_map registry;
    platform_spy spy;
    void* slots[2];
    finalise_kernels(registry, caller_and_callee(slots));
    ASSERT_EQ(spy.flushes.size(), 1U);
    EXPECT_EQ(spy.flushes[0].begin, spy.mappings[0].result);
    EXPECT_EQ(spy.flushes[0].end, spy.flushes[0].begin + 64);
}

TEST(Flush, ComesAfterTheLastPatchAndTheLastPublication)
{
    kernel_registry_map registry;
    void* slots[2] = {};
    platform_spy spy;
    std::vector<void*> published;
    spy.on_flush = [&] { published.assign(std::begin(slots), std::end(slots)); };
    finalise_kernels(registry, caller_and_callee(slots));

    ASSERT_EQ(spy.flushes.size(), 1U);
    const flush_call& flush = spy.flushes[0];
    EXPECT_EQ(word_at(flush.bytes.data()), 0x10000200U);                  // ADR X0, .+64
    EXPECT_EQ(word_at(flush.bytes.data() + 32), 0x97fffff8U);             // BL .-32
    EXPECT_TRUE(std::equal(flush.begin, flush.end, flush.bytes.begin())); // nothing was written since
    EXPECT_EQ(published,
              (std::vector<void*>{registry.at("callee").text_ptr, registry.at("caller").text_ptr}));
}

TEST(Flush, IsMadeForDataWithoutCode)
{
    kernel_registry_map registry;
    platform_spy spy;
    finalise_kernels(registry, {kernel("constants", {}, {}, {1, 2, 3})});
    ASSERT_EQ(spy.flushes.size(), 1U);
    EXPECT_EQ(spy.flushes[0].begin, spy.mappings[0].result);
    EXPECT_EQ(spy.flushes[0].end, spy.mappings[0].result);
}

void expect_null_mapping_and_flush(const platform_spy& spy, std::size_t length)
{
    ASSERT_EQ(spy.mappings.size(), 1U);
    EXPECT_EQ(spy.mappings[0].length, length);
    EXPECT_EQ(spy.mappings[0].result, MAP_FAILED);
    ASSERT_EQ(spy.flushes.size(), 1U);
    EXPECT_EQ(spy.flushes[0].begin, nullptr);
    EXPECT_EQ(spy.flushes[0].end, nullptr);
}

TEST(RefusedMapping, OfAnEmptySetDoesNoHarm)
{
    kernel_registry_map registry = {{"host", {address(1), 2, address(3), 4}}};
    platform_spy spy;
    finalise_kernels(registry, {});
    expect_null_mapping_and_flush(spy, 0);
    EXPECT_EQ(registry.size(), 1U);
}

TEST(RefusedMapping, NoAdviceIsGivenAboutIt)
{
    kernel_registry_map registry;
    platform_spy spy;
    finalise_kernels(registry, {});
    EXPECT_TRUE(spy.advices.empty());
}

TEST(RefusedMapping, KernelsWithoutCodeAndDataAreRegisteredAtNull)
{
    kernel_registry_map registry;
    int elsewhere = 0;
    void* slots[2] = {&elsewhere, &elsewhere};
    platform_spy spy;
    finalise_kernels(registry, {kernel("a", {}, {}, {}, &slots[0]), kernel("none", {}),
                                kernel("b", {}, {}, {}, &slots[1])});
    expect_null_mapping_and_flush(spy, 0);
    ASSERT_EQ(registry.size(), 3U);
    for (const auto& [name, entry] : registry) {
        EXPECT_EQ(entry.text_ptr, nullptr) << name;
        EXPECT_EQ(entry.text_len, 0U) << name;
        EXPECT_EQ(entry.data_ptr, nullptr) << name;
        EXPECT_EQ(entry.data_len, 0U) << name;
    }
    EXPECT_EQ(slots[0], nullptr);
    EXPECT_EQ(slots[1], nullptr);
}

void expect_death_of_the_first_copy(const std::vector<kernel_data>& kernels)
{
    const child_result child = run_in_child([&] {
        kernel_registry_map registry;
        platform_spy spy;
        spy.refuse = true;
        finalise_kernels(registry, kernels);
    });
    EXPECT_EQ(child.signal, SIGSEGV) << child;
    EXPECT_EQ(child.err, "");
}

TEST(RefusedMapping, CrashesWhenCodeIsCopied)
{
    expect_death_of_the_first_copy({kernel("k", {a64::ret()})});
}

TEST(RefusedMapping, CrashesWhenDataIsCopied)
{
    expect_death_of_the_first_copy({kernel("k", {}, {}, {1})});
}

TEST(RefusedMapping, AnEmptyKernelBeforeTheFirstCopyIsHarmless)
{
    expect_death_of_the_first_copy({kernel("empty", {}), kernel("k", {a64::ret()}, {}, {1})});
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool address_space_is_limitable = false; // the sanitizers' shadow memory needs all of it
#else
constexpr bool address_space_is_limitable = true;
#endif

void limit_address_space()
{
    const rlimit limit = {0x4000000, 0x4000000};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
}

TEST(RefusedMapping, AnAddressSpaceLimitEndsInAMemoryFault)
{
    if (!address_space_is_limitable) {
        GTEST_SKIP() << "no address-space limit under this sanitizer";
    }
    const child_result probe = run_in_child([] {
        limit_address_space();
        EXPECT_EQ(mmap(nullptr, 0x20000000, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), MAP_FAILED);
    });
    if (!probe.succeeded()) {
        GTEST_SKIP() << "an address-space limit has no effect here (emulators ignore it)";
    }
    // The vector fits under the limit, a mapping of the same length beside it does not.
    const child_result child = run_in_child([] {
        std::vector<kernel_data> kernels = {kernel("k", {a64::ret()})};
        kernels[0].data.resize(0x2800000);
        kernel_registry_map registry;
        limit_address_space();
        platform_spy spy;
        spy.on_flush = [&] { ADD_FAILURE() << "the mapping was not refused"; };
        finalise_kernels(registry, kernels);
    });
    EXPECT_EQ(child.signal, SIGSEGV) << child;
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.out, "");
}

/// Has the kernel refuse this process memory that is writable and executable.
bool deny_write_and_execute()
{
    constexpr int set_mdwe = 65; // PR_SET_MDWE of Linux 6.3, which the headers may not have
    constexpr unsigned long refuse_exec_gain = 1;
    return prctl(set_mdwe, refuse_exec_gain, 0UL, 0UL, 0UL) == 0;
}

TEST(RefusedMapping, MemoryDenyWriteExecuteEndsInAMemoryFault)
{
    if (run_in_child([] { EXPECT_TRUE(deny_write_and_execute()); }).exit_status != 0) {
        GTEST_SKIP() << "no PR_SET_MDWE here: it needs Linux 6.3, and not to be emulated";
    }
    const child_result child = run_in_child([] {
        deny_write_and_execute();
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {a64::ret()})});
    });
    EXPECT_EQ(child.signal, SIGSEGV) << child;
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.out, "");
}

} // namespace
