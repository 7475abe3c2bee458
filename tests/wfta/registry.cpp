// The registry: what becomes a key, what an entry holds, and what happens to a name that is taken.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"

#include <cstddef>
#include <gmock/gmock.h>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace support;
using namespace std::string_literals;
using namespace vorna::wfta;
using testing::ElementsAre;

static_assert(std::is_same_v<kernel_registry_map, std::map<std::string, kernel_registry_entry>>);
static_assert(std::is_aggregate_v<kernel_registry_entry> && std::is_aggregate_v<kernel_data>);
static_assert(std::is_same_v<decltype(kernel_registry_entry::text_ptr), std::uint8_t*>);
static_assert(std::is_same_v<decltype(kernel_registry_entry::data_ptr), const std::uint8_t*>);
static_assert(std::is_same_v<decltype(kernel_registry_entry::text_len), std::size_t>);
static_assert(std::is_same_v<decltype(kernel_registry_entry::data_len), std::size_t>);
static_assert(std::is_same_v<decltype(kernel_data::relocs), std::vector<tessjit::reloc_info>>);
static_assert(std::is_same_v<decltype(&finalise_kernels),
                             void (*)(kernel_registry_map&, const std::vector<kernel_data>&)>);

std::vector<std::string> names(const kernel_registry_map& registry)
{
    std::vector<std::string> result;
    result.reserve(registry.size());
    for (const auto& [name, entry] : registry) {
        result.push_back(name);
    }
    return result;
}

kernel_registry_map registry_of(const std::vector<std::string>& kernel_names)
{
    std::vector<kernel_data> kernels;
    kernels.reserve(kernel_names.size());
    for (const std::string& name : kernel_names) {
        kernels.push_back(kernel(name, {a64::ret()}));
    }
    kernel_registry_map registry;
    finalise_kernels(registry, kernels);
    return registry;
}

TEST(Registry, ListsNamesInByteOrderWhateverTheOrderOfPlacement)
{
    EXPECT_THAT(names(registry_of({"b", "a", "ab"})), ElementsAre("a", "ab", "b"));
}

TEST(Registry, NamesThatDifferByATrailingBlankOrByCaseAreDifferentKeys)
{
    EXPECT_THAT(names(registry_of({"dft8", "dft8 ", "DFT8", "Dft8"})),
                ElementsAre("DFT8", "Dft8", "dft8", "dft8 "));
}

TEST(Registry, TheEmptyNameIsAKeyAndSortsFirst)
{
    EXPECT_THAT(names(registry_of({" ", "\x01", ""})), ElementsAre("", "\x01", " "));
}

TEST(Registry, BytesOfNamesCompareUnsignedAndNulIsAByteLikeAnyOther)
{
    EXPECT_THAT(names(registry_of({"\xff", "z", "a\0b"s, "a", "a\0a"s})),
                ElementsAre("a", "a\0a"s, "a\0b"s, "z", "\xff"));
}

TEST(Registry, EntriesHoldLengthsAsGivenAndTheGapIsNotCounted)
{
    kernel_registry_map registry;
    std::vector<kernel_data> kernels = {kernel("k", {}, {}, std::vector<std::uint8_t>(3))};
    kernels[0].text.resize(33);
    finalise_kernels(registry, kernels);
    EXPECT_EQ(registry.at("k").text_len, 33U);
    EXPECT_EQ(registry.at("k").data_len, 3U);
}

TEST(Registry, AKernelWithoutCodeSharesItsAddressWithTheNext)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("first", {a64::ret()}), kernel("empty", {}), kernel("next", {a64::ret()})});
    EXPECT_EQ(registry.at("empty").text_len, 0U);
    EXPECT_EQ(registry.at("empty").text_ptr, registry.at("next").text_ptr);
    EXPECT_EQ(registry.at("empty").text_ptr, registry.at("first").text_ptr + 32);
}

TEST(Registry, AKernelWithoutDataPointsToWhereTheNextDataBegins)
{
    kernel_registry_map registry;
    finalise_kernels(registry,
                     {kernel("first", {}, {}, {1, 2, 3}), kernel("empty", {}), kernel("next", {}, {}, {4})});
    EXPECT_EQ(registry.at("empty").data_len, 0U);
    EXPECT_EQ(registry.at("empty").data_ptr, registry.at("next").data_ptr);
    EXPECT_EQ(registry.at("empty").data_ptr, registry.at("first").data_ptr + 3);
}

TEST(Registry, EntriesOfSeveralCallsLiveSideBySide)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("m", {a64::nop()})});
    const kernel_registry_entry before = registry.at("m");
    finalise_kernels(registry, {kernel("z", {a64::ret()}), kernel("a", {a64::ret()})});

    EXPECT_THAT(names(registry), ElementsAre("a", "m", "z"));
    EXPECT_EQ(registry.at("m").text_ptr, before.text_ptr);
    EXPECT_EQ(registry.at("m").text_len, before.text_len);
    EXPECT_EQ(registry.at("m").data_ptr, before.data_ptr);
    EXPECT_EQ(registry.at("m").data_len, before.data_len);
    EXPECT_EQ(word_at(before.text_ptr), a64::nop());
}

TEST(Registry, EntriesMadeByTheHostStayAsTheyAre)
{
    kernel_registry_map registry = {{"host", {address(0x1234), 5, address(0x6789), 10}}};
    finalise_kernels(registry, {kernel("k", {a64::ret()})});
    EXPECT_EQ(registry.at("host").text_ptr, address(0x1234));
    EXPECT_EQ(registry.at("host").text_len, 5U);
    EXPECT_EQ(registry.at("host").data_ptr, address(0x6789));
    EXPECT_EQ(registry.at("host").data_len, 10U);
}

TEST(Registry, NothingOfTheHandedInKernelsIsNeededAfterTheCall)
{
    kernel_registry_map registry;
    void* slot = nullptr;
    {
        std::vector<kernel_data> kernels = {kernel(
            "a name too long to be stored inside a string object", {a64::adr(0), a64::ret()},
            {{".rodata.a name too long to be stored inside a string object", 0, R_AARCH64_ADR_PREL_LO21, 0}},
            {7, 8, 9}, &slot)};
        finalise_kernels(registry, kernels);
        for (kernel_data& handed_in : kernels) {
            handed_in.text.assign(handed_in.text.size(), 0xee);
            handed_in.data.assign(handed_in.data.size(), 0xee);
            handed_in.name.assign(handed_in.name.size(), 'x');
        }
    }
    const auto& entry = registry.at("a name too long to be stored inside a string object");
    EXPECT_EQ(slot, entry.text_ptr);
    EXPECT_EQ(word_at(entry.text_ptr + 4), a64::ret());
    EXPECT_THAT(std::vector<std::uint8_t>(entry.data_ptr, entry.data_ptr + 3), ElementsAre(7, 8, 9));
}

TEST(Registry, PlacedCodeOutlivesTheRegistry)
{
    void* slot = nullptr;
    {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {a64::ret()}, {}, {}, &slot)});
    }
    EXPECT_EQ(word_at(slot), a64::ret());
    *static_cast<std::uint8_t*>(slot) = 0; // still writable
}

TEST(Registry, DuplicateNameIsFatalAndKeepsTheFirstKernel)
{
    kernel_registry_map registry;
    void* slots[2] = {};
    expect_abort(
        [&] {
            at_abort([&] {
                // The first is placed, linked and published; the second's code and data have been copied
                // after it.
                ASSERT_EQ(registry.size(), 1U);
                const kernel_registry_entry& first = registry.at("twice");
                EXPECT_EQ(first.text_len, 8U);
                EXPECT_EQ(slots[0], first.text_ptr);
                EXPECT_EQ(word_at(first.text_ptr), 0x10000200U); // the data is 64 bytes ahead
                EXPECT_EQ(slots[1], nullptr);
                EXPECT_EQ(word_at(first.text_ptr + 32), a64::nop());
                EXPECT_EQ(first.data_ptr, first.text_ptr + 64);
                EXPECT_EQ(first.data_ptr[0], 1);
                EXPECT_EQ(first.data_ptr[1], 2);
            });
            finalise_kernels(registry,
                             {kernel("twice", {a64::adr(0), a64::ret()},
                                     {{".rodata.twice", 0, R_AARCH64_ADR_PREL_LO21, 0}}, {1}, &slots[0]),
                              kernel("twice", {a64::nop()}, {}, {2}, &slots[1])});
        },
        duplicate_report());
}

TEST(Registry, TheNameOfAnEarlierCallIsTakenToo)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("k", {a64::ret()})});
    const kernel_registry_entry before = registry.at("k");
    void* slot = nullptr;
    expect_abort(
        [&] {
            at_abort([&] {
                EXPECT_EQ(registry.size(), 1U);
                EXPECT_EQ(registry.at("k").text_ptr, before.text_ptr);
                EXPECT_EQ(slot, nullptr);
            });
            finalise_kernels(registry, {kernel("k", {a64::ret()}, {}, {}, &slot)});
        },
        duplicate_report());
}

TEST(Registry, ATakenNameIsFoundBeforeAnyRelocation)
{
    kernel_registry_map registry = {{"k", {address(1), 0, nullptr, 0}}};
    expect_abort(
        [&] {
            finalise_kernels(registry, {kernel("k", {a64::bl()}, {{"unknown", 0, -1, 0}})});
        },
        duplicate_report());
}

TEST(Registry, OneNameMayBePlacedInTwoRegistries)
{
    kernel_registry_map one;
    kernel_registry_map other;
    finalise_kernels(one, {kernel("k", {a64::ret()})});
    finalise_kernels(other, {kernel("k", {a64::ret()})});
    EXPECT_NE(one.at("k").text_ptr, other.at("k").text_ptr);
}

} // namespace
