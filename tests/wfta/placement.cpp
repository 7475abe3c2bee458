// Where kernels come to lie in the mapping, when they are copied there, and when their addresses are
// published.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/random_seed.hpp"

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace vorna::wfta;

kernel_data sized_kernel(const std::string& name, std::size_t text_len, std::size_t data_len,
                         void** entry_out = nullptr)
{
    return {entry_out,
            name,
            std::vector<std::uint8_t>(text_len, 0x11),
            std::vector<std::uint8_t>(data_len, 0x22),
            {}};
}

TEST(Placement, CodeStartsOnMultiplesOf32AndDataIsPackedAfterAllCode)
{
    kernel_registry_map registry;
    platform_spy spy;
    void* slots[3] = {};
    finalise_kernels(registry,
                     {sized_kernel("first", 100, 12, &slots[0]), sized_kernel("second", 64, 40, &slots[1]),
                      sized_kernel("third", 0, 0, &slots[2])});

    ASSERT_EQ(spy.mappings.size(), 1U);
    EXPECT_EQ(spy.mappings[0].length, 244U);
    auto* const base = static_cast<std::uint8_t*>(spy.mappings[0].result);
    EXPECT_EQ(registry.at("first").text_ptr, base);
    EXPECT_EQ(registry.at("second").text_ptr, base + 128);
    EXPECT_EQ(registry.at("third").text_ptr, base + 192); // the data region's start
    EXPECT_EQ(registry.at("first").data_ptr, base + 192);
    EXPECT_EQ(registry.at("second").data_ptr, base + 204);
    EXPECT_EQ(registry.at("third").data_ptr, base + 244); // the mapping's end
    ASSERT_EQ(spy.flushes.size(), 1U);
    EXPECT_EQ(spy.flushes[0].begin, base);
    EXPECT_EQ(spy.flushes[0].end, base + 192);
    EXPECT_EQ(slots[0], base);
    EXPECT_EQ(slots[1], base + 128);
    EXPECT_EQ(slots[2], base + 192);
}

TEST(Placement, ExactlyThirtyTwoBytesOfCodeLeaveNoGap)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {sized_kernel("a", 32, 0), sized_kernel("b", 1, 0)});
    EXPECT_EQ(registry.at("b").text_ptr, registry.at("a").text_ptr + 32);
}

TEST(Placement, ThirtyThreeBytesOfCodeAreFollowedByThirtyOneZeroBytes)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {sized_kernel("a", 33, 0), sized_kernel("b", 1, 0)});
    const std::uint8_t* const a = registry.at("a").text_ptr;
    EXPECT_EQ(registry.at("b").text_ptr, a + 64);
    EXPECT_EQ(std::count(a, a + 33, 0x11), 33);
    EXPECT_EQ(std::count(a + 33, a + 64, 0), 31);
    EXPECT_EQ(a[64], 0x11);
}

TEST(Placement, DataIsNotAligned)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {sized_kernel("a", 4, 1), sized_kernel("b", 4, 8)});
    EXPECT_EQ(registry.at("a").data_ptr, registry.at("a").text_ptr + 64);
    EXPECT_EQ(registry.at("b").data_ptr, registry.at("a").text_ptr + 65);
}

TEST(Placement, CalleeThenCallerWithAConstantOfTheCallee)
{
    kernel_registry_map registry;
    address_range range(0x10000);
    platform_spy spy;
    spy.place = range.begin();
    void* slots[2] = {};
    finalise_kernels(registry, {kernel("b", {a64::adrp(0), a64::add(0, 0, 0), a64::ret()},
                                       {{".rodata.b", 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                                        {".rodata.b", 4, R_AARCH64_ADD_ABS_LO12_NC, 0}},
                                       {1, 2, 3, 4, 5, 6, 7, 8}, &slots[0]),
                                kernel("a", {a64::bl()}, {{"b", 0, R_AARCH64_CALL26, 0}}, {9}, &slots[1])});

    EXPECT_EQ(word_at(range.begin()), 0x90000000U);      // the data is on the same page,
    EXPECT_EQ(word_at(range.begin() + 4), 0x91010000U);  // 64 bytes in: ADD X0, X0, #64
    EXPECT_EQ(word_at(range.begin() + 32), 0x97fffff8U); // BL .-32
    EXPECT_EQ(registry.at("b").data_ptr, range.begin() + 64);
    EXPECT_EQ(registry.at("a").data_ptr, range.begin() + 72);
    EXPECT_EQ(slots[0], range.begin());
    EXPECT_EQ(slots[1], range.begin() + 32);
}

TEST(Placement, RandomSetsFollowTheLayoutRule)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    constexpr std::size_t edges[] = {0, 1, 31, 32, 33, 63, 64, 65, 4095, 4096, 4097};
    const auto length = [&] {
        return random() % 4 == 0 ? edges[random() % std::size(edges)] : random() % 200;
    };

    for (int set = 0; set < 400; ++set) {
        std::vector<kernel_data> kernels(random() % 12);
        std::vector<void*> slots(kernels.size(), &kernels);
        for (std::size_t i = 0; i < kernels.size(); ++i) {
            kernels[i] = sized_kernel("kernel " + std::to_string(i), length(), length(), &slots[i]);
            const auto byte = [&] { return static_cast<std::uint8_t>(1 + random() % 255); };
            std::generate(kernels[i].text.begin(), kernels[i].text.end(), byte);
            std::generate(kernels[i].data.begin(), kernels[i].data.end(), byte);
        }

        // The whole mapping as it has to be: codes each filled up with zeros to a multiple of 32, then data.
        std::vector<std::uint8_t> image;
        std::vector<std::size_t> text_offsets;
        std::vector<std::size_t> data_offsets;
        for (const kernel_data& k : kernels) {
            text_offsets.push_back(image.size());
            image.insert(image.end(), k.text.begin(), k.text.end());
            while (image.size() % 32 != 0) {
                image.push_back(0);
            }
        }
        const std::size_t text_size = image.size();
        for (const kernel_data& k : kernels) {
            data_offsets.push_back(image.size());
            image.insert(image.end(), k.data.begin(), k.data.end());
        }

        kernel_registry_map registry;
        platform_spy spy;
        finalise_kernels(registry, kernels);

        ASSERT_EQ(spy.mappings.size(), 1U);
        ASSERT_EQ(spy.mappings[0].length, image.size());
        ASSERT_EQ(registry.size(), kernels.size());
        auto* const base = image.empty() ? nullptr : static_cast<std::uint8_t*>(spy.mappings[0].result);
        ASSERT_TRUE(std::equal(image.begin(), image.end(), base)) << "set " << set;
        for (std::size_t i = 0; i < kernels.size(); ++i) {
            const kernel_registry_entry& entry = registry.at(kernels[i].name);
            ASSERT_EQ(number(entry.text_ptr), number(base) + text_offsets[i]) << "set " << set;
            ASSERT_EQ(number(entry.data_ptr), number(base) + data_offsets[i]) << "set " << set;
            ASSERT_EQ(entry.text_len, kernels[i].text.size());
            ASSERT_EQ(entry.data_len, kernels[i].data.size());
            ASSERT_EQ(slots[i], entry.text_ptr);
        }
        ASSERT_EQ(spy.flushes.size(), 1U);
        ASSERT_EQ(number(spy.flushes[0].begin), number(base));
        ASSERT_EQ(number(spy.flushes[0].end), number(base) + text_size);
    }
}

TEST(Placement, AKernelWithoutASlotIsPlacedRegisteredAndLinked)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("k", {a64::nop(), a64::bl()}, {{"k", 4, R_AARCH64_CALL26, 0}}, {}, nullptr)});
    EXPECT_EQ(word_at(registry.at("k").text_ptr + 4), 0x97ffffffU);
}

TEST(Placement, ASlotIsWrittenAndNothingBesideIt)
{
    kernel_registry_map registry;
    int elsewhere = 0;
    void* slots[3] = {&elsewhere, &elsewhere, &elsewhere};
    finalise_kernels(registry, {kernel("k", {a64::ret()}, {}, {}, &slots[1])});
    EXPECT_EQ(slots[0], &elsewhere);
    EXPECT_EQ(slots[1], registry.at("k").text_ptr);
    EXPECT_EQ(slots[2], &elsewhere);
}

TEST(Placement, ASlotMayBeATypedFunctionPointer)
{
    kernel_registry_map registry;
    void (*entry)(double*, const double*) = nullptr;
    finalise_kernels(registry, {kernel("k", {a64::ret()}, {}, {}, reinterpret_cast<void**>(&entry))});
    EXPECT_EQ(reinterpret_cast<void*>(entry), registry.at("k").text_ptr);
}

TEST(Placement, KernelsMayShareASlotAndTheLastOneStays)
{
    kernel_registry_map registry;
    void* slot = nullptr;
    finalise_kernels(registry,
                     {kernel("a", {a64::ret()}, {}, {}, &slot), kernel("b", {a64::ret()}, {}, {}, &slot)});
    EXPECT_EQ(slot, registry.at("b").text_ptr);
}

// The first kernel's relocation is past its own code, where the second will be placed. It finds a zero
// word there, and what it writes is covered by the second kernel's bytes.
TEST(Placement, AKernelIsCopiedOnlyWhenItsTurnComes)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("first", {a64::ret()}, {{"first", 32, R_AARCH64_ADD_ABS_LO12_NC, 0xabc}}),
                      kernel("second", {a64::add(1, 2, 0xfff)})});
    EXPECT_EQ(word_at(registry.at("second").text_ptr), a64::add(1, 2, 0xfff));
}

TEST(Placement, DataIsCopiedOnlyWhenItsKernelsTurnComes)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("first", {a64::ret()}, {{"first", 64, R_AARCH64_ADD_ABS_LO12_NC, 0xabc}}),
                      kernel("second", {a64::ret()}, {}, {0xff, 0xff, 0xff, 0xff})});
    EXPECT_EQ(word_at(registry.at("second").data_ptr), 0xffffffffU);
}

TEST(Placement, AKernelsOwnDataIsThereWhenItIsLinked)
{
    kernel_registry_map registry;
    expect_abort(
        [&] {
            platform_spy spy;
            address_range range(0x10000);
            spy.place = range.begin();
            at_abort([&] {
                EXPECT_EQ(range.begin()[64], 0x5a);
                EXPECT_EQ(range.begin()[65], 0); // the next kernel's is not
                EXPECT_EQ(registry.count("next"), 0U);
            });
            finalise_kernels(registry,
                             {kernel("k", {a64::bl()}, {{"unknown", 0, R_AARCH64_CALL26, 0}}, {0x5a}),
                              kernel("next", {a64::ret()}, {}, {0xa5})});
        },
        unknown_target_report());
}

TEST(Placement, SlotIsWrittenBetweenLinkingAndTheNextKernel)
{
    kernel_registry_map registry;
    void* slots[3] = {};
    expect_abort(
        [&] {
            platform_spy spy;
            at_abort([&] {
                EXPECT_EQ(slots[0], registry.at("complete").text_ptr);
                EXPECT_EQ(slots[1], nullptr);
                EXPECT_EQ(slots[2], nullptr);
                // Words patched before the failure stay patched, those after it are never reached.
                const std::uint8_t* const failing = registry.at("failing").text_ptr;
                EXPECT_EQ(word_at(failing), 0x97fffff8U);
                EXPECT_EQ(word_at(failing + 4), a64::bl());
                EXPECT_EQ(word_at(failing + 8), a64::bl());
                EXPECT_EQ(registry.count("never"), 0U);
                EXPECT_TRUE(spy.flushes.empty());
            });
            finalise_kernels(registry, {kernel("complete", {a64::ret()}, {}, {}, &slots[0]),
                                        kernel("failing", {a64::bl(), a64::bl(), a64::bl()},
                                               {{"complete", 0, R_AARCH64_CALL26, 0},
                                                {"never", 4, R_AARCH64_CALL26, 0},
                                                {"complete", 8, R_AARCH64_CALL26, 0}},
                                               {}, &slots[1]),
                                        kernel("never", {a64::ret()}, {}, {}, &slots[2])});
        },
        unknown_target_report());
}

} // namespace
