// Which bits of an instruction word a relocation reads, writes and keeps, and where that word lies.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/one_word_kernel.hpp"
#include "tests/support/platform_spy.hpp"

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

std::string filled_message(const std::string& type_name, std::uint64_t P, std::uint32_t W)
{
    return "resolving " + type_name + " reloc but dst address " + hex(P) + " was already filled, got " +
           hex(W);
}

TEST(RelocationFields, CallForwards)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x94000000, CALL, k.P() + 0x1000), 0x94000400U);
}

TEST(RelocationFields, CallBackwards)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x94000000, CALL, k.P() - 8), 0x97fffffeU);
}

TEST(RelocationFields, AdrForwards)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x10000000, ADR, k.P() + 0x12345), 0x30091a20U);
}

TEST(RelocationFields, AdrBackwards)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x10000000, ADR, k.P() - 1), 0x70ffffe0U);
}

/// Places one ADRP X0 at `offset` in a page-aligned kernel and points it to `target` bytes from the kernel's
/// start. Returns the word.
std::uint32_t linked_adrp(std::int32_t offset, std::int32_t target)
{
    kernel_registry_map registry;
    std::vector<std::uint32_t> words(0x1000, a64::nop());
    words[static_cast<std::size_t>(offset) / 4] = a64::adrp(0);
    finalise_kernels(registry, {kernel("k", words, {{"k", offset, ADRP, target}})});
    return word_at(registry.at("k").text_ptr + offset);
}

TEST(RelocationFields, AdrpForwards)
{
    EXPECT_EQ(linked_adrp(0x1ffc, 0x3004), 0xd0000000U);
}

TEST(RelocationFields, AdrpBackwards)
{
    EXPECT_EQ(linked_adrp(0x3004, 0x1ffc), 0xd0ffffe0U);
}

TEST(RelocationFields, AdrpCountsPagesNotBytes)
{
    EXPECT_EQ(linked_adrp(0x1ffc, 0x2000), 0xb0000000U); // 4 bytes ahead, on the next page
    EXPECT_EQ(linked_adrp(0x1000, 0x1fff), 0x90000000U); // 4095 bytes ahead, on the same page
    EXPECT_EQ(linked_adrp(0x2000, 0x1fff), 0xf0ffffe0U); // 1 byte back, on the page before
    EXPECT_EQ(linked_adrp(0, 0x8000), 0x90000040U);      // 8 pages: past immlo, bit 1 of immhi
}

TEST(RelocationFields, AddTakesTheLowTwelveBitsOfTheAddress)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x91000000, ADD, 0x3004), 0x91001000U);
    EXPECT_EQ(k.link(0x91000000, ADD, 0xffffffffffffffff), 0x913ffc00U);
    EXPECT_EQ(k.link(0x91000000, ADD, 0x1000), 0x91000000U);
    EXPECT_EQ(k.link(0x91000000, ADD, 0x0123456789abcdef), 0x9137bc00U);
}

struct field {
    const char* type_name;
    std::int32_t type;
    std::uint32_t tested;   // bits of the word that must be zero
    std::uint32_t all_ones; // bits of the word that a relocation can set
    std::int64_t X;         // sets all of them: the target's distance, or its address for ADD
};

constexpr std::uint32_t immhi_and_immlo = 0x7ffffU << 5 | 3U << 29;
constexpr std::uint32_t imm12 = 0xfffU << 10;
constexpr std::uint32_t imm26 = 0x3ffffff;

constexpr field fields[] = {
    {"R_AARCH64_ADR_PREL_LO21", ADR, immhi_and_immlo, immhi_and_immlo, -1},
    {"R_AARCH64_ADR_PREL_PG_HI21", ADRP, immhi_and_immlo, immhi_and_immlo, -0x1000},
    {"R_AARCH64_ADD_ABS_LO12_NC", ADD, imm12, imm12, 0xfff},
    {"R_AARCH64_CALL26", CALL, 0x1ffffff, imm26, -4}, // bit 25 is not tested
};

class RelocationField : public testing::TestWithParam<field> {
protected:
    [[nodiscard]] std::uint64_t target_for(std::int64_t X) const
    {
        return (GetParam().type == ADD ? 0x7000 : k.P()) + static_cast<std::uint64_t>(X);
    }

    one_word_kernel k;
};

TEST_P(RelocationField, EachBitOfTheWordIsEitherTestedOrKept)
{
    const field& f = GetParam();
    for (unsigned bit = 0; bit < 32; ++bit) {
        SCOPED_TRACE("bit " + std::to_string(bit));
        const std::uint32_t word = std::uint32_t{1} << bit;
        if ((f.tested & word) != 0) {
            k.expect_rejected(word, f.type, target_for(0), 0, filled_message(f.type_name, k.P(), word));
        } else {
            EXPECT_EQ(k.link(word, f.type, target_for(f.X)), word | f.all_ones);
            EXPECT_EQ(k.link(word, f.type, target_for(0)), word);
        }
    }
}

TEST_P(RelocationField, EveryBitOutsideTheTestedFieldIsKeptTogether)
{
    const field& f = GetParam();
    EXPECT_EQ(k.link(~f.tested, f.type, target_for(f.X)), ~f.tested | f.all_ones);
    EXPECT_EQ(k.link(~f.tested, f.type, target_for(0)), ~f.tested);
}

TEST_P(RelocationField, AFilledWordIsRejectedWithTheWordAsFound)
{
    const field& f = GetParam();
    k.expect_rejected(0xffffffff, f.type, target_for(0), 0, filled_message(f.type_name, k.P(), 0xffffffff));
}

TEST_P(RelocationField, AFilledWordIsReportedBeforeTheRangeIsChecked)
{
    const field& f = GetParam();
    const std::uint64_t far = k.P() + 0x7000000000000002;
    k.expect_rejected(f.tested, f.type, far, 0, filled_message(f.type_name, k.P(), f.tested));
}

TEST_P(RelocationField, SecondApplicationFailsIfTheFirstSetATestedBit)
{
    const field& f = GetParam();
    address_range range(0x10000);
    const std::uint64_t host = f.type == ADD ? 0xfff : number(range.begin()) - (f.type == ADRP ? 0x1000 : 4);
    kernel_registry_map registry = {{"host", {address(host), 0, nullptr, 0}}};
    kernel_registry_map listed = registry;
    listed["k"] = {range.begin(), 4, range.begin() + 32, 0};
    platform_spy spy;
    spy.place = range.begin();
    const std::uint32_t once =
        f.type == ADR ? 0x00ffffe0 : f.all_ones; // a distance of -4 leaves immlo of ADR zero
    expect_abort(
        [&] {
            finalise_kernels(registry, {kernel("k", {0}, {{"host", 0, f.type, 0}, {"host", 0, f.type, 0}})});
        },
        relocation_report(filled_message(f.type_name, number(range.begin()), once), listed));
}

TEST_P(RelocationField, ASecondApplicationPassesIfTheFirstSetNoBit)
{
    const field& f = GetParam();
    address_range range(0x10000);
    kernel_registry_map registry = {{"host", {range.begin(), 0, nullptr, 0}}};
    platform_spy spy;
    spy.place = range.begin();
    finalise_kernels(registry, {kernel("k", {~f.tested}, {{"host", 0, f.type, 0}, {"host", 0, f.type, 0}})});
    EXPECT_EQ(word_at(range.begin()), ~f.tested);
}

INSTANTIATE_TEST_SUITE_P(EachKind, RelocationField, testing::ValuesIn(fields),
                         [](const auto& kind) { return std::string(kind.param.type_name); });

TEST(RelocationFields, BitTwentyFiveOfACallIsOredOver)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x96000000, CALL, k.P() + 4), 0x96000001U);
    EXPECT_EQ(k.link(0x96000000, CALL, k.P()), 0x96000000U);
    EXPECT_EQ(k.link(0x96000000, CALL, k.P() - 4), 0x97ffffffU);
}

TEST(RelocationFields, FarthestBackwardCallCanBeAppliedTwice)
{
    address_range range(0x10000);
    kernel_registry_map registry = {{"host", {range.begin() - 0x8000000, 0, nullptr, 0}}};
    platform_spy spy;
    spy.place = range.begin();
    finalise_kernels(registry, {kernel("k", {a64::bl()}, {{"host", 0, CALL, 0}, {"host", 0, CALL, 0}})});
    EXPECT_EQ(word_at(range.begin()), 0x96000000U);
}

TEST(RelocationFields, RelocationsAreAppliedInListOrder)
{
    // Two relocations of one word: the bit that the first sets stops the second, so the order shows.
    address_range range(0x10000);
    platform_spy spy;
    spy.place = range.begin();
    kernel_registry_map registry;
    const kernel_registry_map listed = {{"k", {range.begin(), 4, range.begin() + 32, 0}}};
    expect_abort(
        [&] {
            finalise_kernels(registry, {kernel("k", {0}, {{"k", 0, CALL, 0x1000}, {"k", 0, ADD, 0x800}})});
        },
        relocation_report("resolving R_AARCH64_ADD_ABS_LO12_NC reloc but dst address " +
                              hex(number(range.begin())) + " was already filled, got 0x400",
                          listed));
}

TEST(RelocationFields, TheOpcodeIsNotChecked)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0, CALL, k.P() + 4), 1U);
    EXPECT_EQ(k.link(a64::ret() & ~imm26, CALL, k.P() + 4), (a64::ret() & ~imm26) | 1U);
}

TEST(RelocationPlaces, ANegativeOffsetPatchesAWordBeforeTheCode)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("before", {a64::nop(), a64::bl()}),
                                kernel("k", {a64::ret()}, {{"k", -28, CALL, 0}})});
    EXPECT_EQ(word_at(registry.at("before").text_ptr + 4), 0x94000007U);
    EXPECT_EQ(word_at(registry.at("k").text_ptr), a64::ret());
}

TEST(RelocationPlaces, AnUnalignedOffsetPatchesTheFourBytesThere)
{
    for (const std::int32_t offset : {1, 2, 3, 5}) {
        SCOPED_TRACE(offset);
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {0, 0, 0, 0}, {{"k", offset, ADD, 0xabc}})});
        std::vector<std::uint8_t> expected(16, 0);
        const std::uint32_t word = 0xabc << 10;
        std::memcpy(&expected[static_cast<std::size_t>(offset)], &word, 4);
        const std::uint8_t* const text = registry.at("k").text_ptr;
        EXPECT_EQ(std::vector<std::uint8_t>(text, text + 16), expected);
    }
}

TEST(RelocationPlaces, AnUnalignedPlaceCountsInTheDistance)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("k", {0, 0}, {{"k", 3, ADR, 0}})});
    EXPECT_EQ(word_at(registry.at("k").text_ptr + 3), 0x20ffffe0U); // -3: immlo 1, immhi -1
}

TEST(RelocationPlaces, AnOffsetPastTheCodeIsNotChecked)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("k", {a64::ret()}, {{"k", 32, CALL, 0}}, {0, 0, 0, 0x94})});
    EXPECT_EQ(word_at(registry.at("k").data_ptr), 0x97fffff8U);
}

TEST(RelocationPlaces, OnlyTheWordAtThePlaceChanges)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("k", {0xffffffff, a64::bl(), 0xffffffff}, {{"k", 4, CALL, 0}})});
    EXPECT_EQ(word_at(registry.at("k").text_ptr), 0xffffffffU);
    EXPECT_EQ(word_at(registry.at("k").text_ptr + 4), 0x97ffffffU);
    EXPECT_EQ(word_at(registry.at("k").text_ptr + 8), 0xffffffffU);
}

TEST(RelocationAddends, MoveTheTargetUpAndDown)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x94000000, CALL, k.P(), 4), 0x94000001U);
    EXPECT_EQ(k.link(0x94000000, CALL, k.P(), -4), 0x97ffffffU);
    EXPECT_EQ(k.link(0x10000000, ADR, k.P() + 0x100, -0xfd), 0x70000000U); // 3
    EXPECT_EQ(k.link(0x91000000, ADD, 0x10000, -1), 0x913ffc00U);
}

TEST(RelocationAddends, AreSignExtendedTo64Bits)
{
    one_word_kernel k;
    EXPECT_EQ(k.link(0x90000000, ADRP, k.P(), -0x7fffffff - 1), 0x90c00000U); // -2^31: page count -0x80000
    EXPECT_EQ(k.link(0x94000000, CALL, k.P() + 0x80000000, -0x7fffffff - 1), 0x94000000U);
    EXPECT_EQ(k.link(0x94000000, CALL, k.P() - 0x7fffffff, 0x7fffffff), 0x94000000U);
}

TEST(RelocationAddends, ApplyToOwnData)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel("k", {a64::adr(3)}, {{".rodata.k", 0, ADR, 5}}, {0, 0, 0, 0, 0, 1})});
    EXPECT_EQ(word_at(registry.at("k").text_ptr), 0x30000123U); // 37 bytes ahead: immlo 1, immhi 9
}

} // namespace
