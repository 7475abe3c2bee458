// Kernels that really run: each computes an address or a number through its relocations and returns it.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <csignal>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace vorna::wfta;

constexpr std::int32_t ADR = R_AARCH64_ADR_PREL_LO21;
constexpr std::int32_t ADRP = R_AARCH64_ADR_PREL_PG_HI21;
constexpr std::int32_t ADD = R_AARCH64_ADD_ABS_LO12_NC;
constexpr std::int32_t CALL = R_AARCH64_CALL26;

std::uint64_t run(const void* entry, std::uint64_t argument = 0)
{
    return reinterpret_cast<std::uint64_t (*)(std::uint64_t)>(number(entry))(argument);
}

std::uint64_t run(const kernel_registry_map& registry, const std::string& name, std::uint64_t argument = 0)
{
    return run(registry.at(name).text_ptr, argument);
}

/// Returns the address of `target`, by ADR.
kernel_data adr_kernel(const std::string& name, const std::string& target, std::int32_t addend = 0)
{
    return kernel(name, {a64::adr(0), a64::ret()}, {{target, 0, ADR, addend}}, {1, 2, 3, 4, 5, 6, 7, 8});
}

/// Returns the address of `target`, by an ADRP at `offset` in the kernel and an ADD.
kernel_data adrp_kernel(const std::string& name, const std::string& target, std::int32_t addend = 0,
                        std::int32_t offset = 0)
{
    std::vector<std::uint32_t> words(static_cast<std::size_t>(offset) / 4, a64::nop());
    words.insert(words.end(), {a64::adrp(0), a64::add(0, 0, 0), a64::ret()});
    return kernel(name, words, {{target, offset, ADRP, addend}, {target, offset + 4, ADD, addend}},
                  {1, 2, 3, 4, 5, 6, 7, 8});
}

/// Calls `target` and returns its result plus 1.
kernel_data calling_kernel(const std::string& name, const std::string& target, std::int32_t addend = 0)
{
    return kernel(name,
                  {a64::push(a64::frame_pointer, a64::link_register), a64::bl(), a64::add(0, 0, 1),
                   a64::pop(a64::frame_pointer, a64::link_register), a64::ret()},
                  {{target, 4, CALL, addend}});
}

TEST(Execution, AdrComputesTheAddressOfOwnDataOwnCodeAndAnEarlierKernel)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel("data", ".rodata.data"), adr_kernel("self", "self"),
                                adr_kernel("earlier", "data"), adr_kernel("up", ".rodata.up", 7),
                                adr_kernel("down", "down", -3)});
    EXPECT_EQ(run(registry, "data"), number(registry.at("data").data_ptr));
    EXPECT_EQ(run(registry, "self"), number(registry.at("self").text_ptr));
    EXPECT_EQ(run(registry, "earlier"), number(registry.at("data").text_ptr));
    EXPECT_EQ(run(registry, "up"), number(registry.at("up").data_ptr) + 7);
    EXPECT_EQ(run(registry, "down"), number(registry.at("down").text_ptr) - 3);
}

TEST(Execution, AdrpAndAddComputeAddressesOfDataAndKernels)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adrp_kernel("data", ".rodata.data"), adrp_kernel("self", "self"),
                                adrp_kernel("earlier", "data"), adrp_kernel("up", ".rodata.up", 0x12345),
                                adrp_kernel("down", "down", -0x54321)});
    EXPECT_EQ(run(registry, "data"), number(registry.at("data").data_ptr));
    EXPECT_EQ(run(registry, "self"), number(registry.at("self").text_ptr));
    EXPECT_EQ(run(registry, "earlier"), number(registry.at("data").text_ptr));
    EXPECT_EQ(run(registry, "up"), number(registry.at("up").data_ptr) + 0x12345);
    EXPECT_EQ(run(registry, "down"), number(registry.at("down").text_ptr) - 0x54321);
}

TEST(Execution, AdrpAtTheEndOfAPageCountsFromItsOwnPage)
{
    for (const std::int32_t offset : {0xff4, 0xff8, 0xffc, 0x1000}) {
        for (const std::int32_t addend : {0, 0xfff, 0x1000, -0x1000, -0x2001}) {
            kernel_registry_map registry; // one kernel a set, so it starts on a page
            finalise_kernels(registry, {adrp_kernel("k", ".rodata.k", addend, offset)});
            EXPECT_EQ(run(registry, "k"),
                      number(registry.at("k").data_ptr) + static_cast<std::uint64_t>(std::int64_t{addend}))
                << "page offset " << offset << ", addend " << addend;
        }
    }
}

TEST(Execution, AdrReachesItsLimits)
{
    for (const std::int32_t distance : {0xfffff, -0x100000}) {
        kernel_registry_map registry;
        finalise_kernels(registry, {adr_kernel("k", "k", distance)});
        EXPECT_EQ(run(registry, "k"),
                  number(registry.at("k").text_ptr) + static_cast<std::uint64_t>(std::int64_t{distance}));
    }
}

TEST(Execution, AdrpReachesItsLimitsThroughEntriesOfTheHost)
{
    address_range range(0x10000);
    const std::uint64_t base = number(range.begin());
    for (const std::uint64_t S : {base + 0xffffffff, base - 0x100000000}) {
        platform_spy spy;
        spy.place = range.begin();
        kernel_registry_map registry = {{"host", {address(S), 0, nullptr, 0}}};
        finalise_kernels(registry, {adrp_kernel("k", "host")});
        EXPECT_EQ(run(registry, "k"), S);
    }
}

TEST(Execution, AConstantIsLoadedFromOwnData)
{
    kernel_registry_map registry;
    void* slot = nullptr;
    finalise_kernels(
        registry, {kernel("first", {a64::ret()}, {}, {1, 2, 3, 4, 5, 6, 7, 8}),
                   kernel("k", {a64::adrp(1), a64::add(1, 1, 0), a64::ldr(0, 1), a64::ret()},
                          {{".rodata.k", 0, ADRP, 8}, {".rodata.k", 4, ADD, 8}},
                          {0, 0, 0, 0, 0, 0, 0, 0, 0xef, 0xcd, 0xab, 0x89, 0x67, 0x45, 0x23, 0x01}, &slot)});
    EXPECT_EQ(run(slot), 0x0123456789abcdefU);
}

TEST(Execution, KernelsOfASetCallEachOther)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("40", {a64::movz(0, 40), a64::ret()}), calling_kernel("41", "40"),
                                calling_kernel("42", "41")});
    EXPECT_EQ(run(registry, "42"), 42U);
}

TEST(Execution, AKernelCallsItself)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("other", {a64::ret()}), kernel("sum",
                                                            {
                                                                a64::cbz(0, 6),
                                                                a64::push(0, a64::link_register),
                                                                a64::sub(0, 0, 1),
                                                                a64::bl(), // sum of the numbers below
                                                                a64::pop(1, a64::link_register),
                                                                a64::add_register(0, 0, 1),
                                                                a64::ret(),
                                                            },
                                                            {{"sum", 12, CALL, 0}})});
    EXPECT_EQ(run(registry, "sum", 0), 0U);
    EXPECT_EQ(run(registry, "sum", 100), 5050U);
}

TEST(Execution, ACallMayEnterAKernelAfterItsStart)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("two entries", {a64::movz(0, 7), a64::add(0, 0, 10), a64::ret()}),
                      calling_kernel("whole", "two entries"), calling_kernel("second", "two entries", 4)});
    EXPECT_EQ(run(registry, "whole", 1), 18U);
    EXPECT_EQ(run(registry, "second", 1), 12U);
}

TEST(Execution, KernelsCallAcrossMappingsInBothDirections)
{
    address_range range(0x20000);
    for (const bool upwards : {true, false}) {
        kernel_registry_map registry;
        platform_spy spy;
        spy.place = range.begin() + (upwards ? 0x10000 : 0);
        finalise_kernels(registry, {kernel("callee", {a64::movz(0, 99), a64::ret()})});
        spy.place = range.begin() + (upwards ? 0 : 0x10000);
        finalise_kernels(registry, {calling_kernel("caller", "callee"), adr_kernel("adr", "callee"),
                                    adrp_kernel("adrp", "callee")});
        EXPECT_EQ(run(registry, "caller"), 100U);
        EXPECT_EQ(run(registry, "adr"), number(registry.at("callee").text_ptr));
        EXPECT_EQ(run(registry, "adrp"), number(registry.at("callee").text_ptr));
    }
}

TEST(Execution, ATypedSlotIsCalledAsItIs)
{
    kernel_registry_map registry;
    std::uint64_t (*half_answer)() = nullptr;
    finalise_kernels(registry, {kernel("k", {a64::movz(0, 21), a64::ret()}, {}, {},
                                       reinterpret_cast<void**>(&half_answer))});
    ASSERT_NE(half_answer, nullptr);
    EXPECT_EQ(half_answer(), 21U);
}

TEST(Execution, AJumpIntoAGapTraps)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("falls through", {a64::nop()}), kernel("next", {a64::ret()})});
    const child_result child = run_in_child([&] { run(registry, "falls through"); });
    EXPECT_EQ(child.signal, SIGILL) << child;
}

} // namespace
