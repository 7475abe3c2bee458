// The last value that each relocation takes and the first that it refuses, on both sides, reached with
// entries that a host made and with addends.

#include "tests/support/one_word_kernel.hpp"

#include <gtest/gtest.h>
#include <string>

namespace {

using namespace support;

constexpr std::int32_t ADR = R_AARCH64_ADR_PREL_LO21;
constexpr std::int32_t ADRP = R_AARCH64_ADR_PREL_PG_HI21;
constexpr std::int32_t ADD = R_AARCH64_ADD_ABS_LO12_NC;
constexpr std::int32_t CALL = R_AARCH64_CALL26;

class RelocationRanges : public testing::Test {
protected:
    /// Expects that X = `distance` becomes `word`, whatever part of it comes from the addend.
    void expect_accepted(std::uint32_t opcode, std::int32_t type, std::int64_t distance, std::uint32_t word)
    {
        for (const std::int32_t addend : {0, 1, -1, 0x7fffffff, -0x7fffffff - 1}) {
            EXPECT_EQ(hex(k.link(opcode, type, target(distance) - sign_extended(addend), addend)), hex(word))
                << "distance " << distance << ", addend " << addend;
        }
    }

    void expect_rejected(std::uint32_t opcode, std::int32_t type, const std::string& text,
                         std::int64_t distance, std::int32_t addend = 0)
    {
        const std::uint64_t S = target(distance);
        k.expect_rejected(opcode, type, S - sign_extended(addend), addend,
                          text + hex(S) + " - " + hex(k.P()) + " = " +
                              hex(static_cast<std::uint64_t>(distance)));
    }

    /// The same for ADRP, whose message shows pages. P is the start of one.
    void expect_page_rejected(std::int64_t distance, std::int64_t page_distance)
    {
        const std::string text =
            "resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but smod does not fit in +/-4G, got ";
        k.expect_rejected(0x90000000, ADRP, target(distance), 0,
                          text + hex(target(page_distance)) + " - " + hex(k.P()) + " = " +
                              hex(static_cast<std::uint64_t>(page_distance)));
    }

    [[nodiscard]] std::uint64_t target(std::int64_t distance) const
    {
        return k.P() + static_cast<std::uint64_t>(distance);
    }

    static std::uint64_t sign_extended(std::int32_t addend)
    {
        return static_cast<std::uint64_t>(std::int64_t{addend});
    }

    one_word_kernel k;
};

const std::string adr_message =
    "resolving R_AARCH64_ADR_PREL_LO21 reloc but smod does not fit in +/-1M, got ";
const std::string call_message = "resolving R_AARCH64_CALL26 reloc but smod does not fit in +/-128M, got ";

TEST_F(RelocationRanges, AdrReachesOneMebibyteLessOneByteForwards)
{
    expect_accepted(0x10000000, ADR, 0xffffe, 0x507fffe0);
    expect_accepted(0x10000000, ADR, 0xfffff, 0x707fffe0);
    expect_rejected(0x10000000, ADR, adr_message, 0x100000);
    expect_rejected(0x10000000, ADR, adr_message, 0x100000, 0x7fffffff);
    expect_rejected(0x10000000, ADR, adr_message, 0x100000, -5);
}

TEST_F(RelocationRanges, AdrReachesOneMebibyteBackwards)
{
    expect_accepted(0x10000000, ADR, -0xfffff, 0x30800000);
    expect_accepted(0x10000000, ADR, -0x100000, 0x10800000);
    expect_rejected(0x10000000, ADR, adr_message, -0x100001);
    expect_rejected(0x10000000, ADR, adr_message, -0x100001, 5);
}

TEST_F(RelocationRanges, AdrpReachesFourGibibytesLessOnePageForwards)
{
    expect_accepted(0x90000000, ADRP, 0xfffff000, 0xf07fffe0);
    expect_accepted(0x90000000, ADRP, 0xffffffff, 0xf07fffe0);
    expect_page_rejected(0x100000000, 0x100000000);
    expect_page_rejected(0x100000fff, 0x100000000);
}

TEST_F(RelocationRanges, AdrpReachesFourGibibytesBackwards)
{
    expect_accepted(0x90000000, ADRP, -0xffffffffLL, 0x90800000);
    expect_accepted(0x90000000, ADRP, -0x100000000, 0x90800000);
    expect_page_rejected(-0x100000001, -0x100001000);
    expect_page_rejected(-0x100001000, -0x100001000);
}

TEST_F(RelocationRanges, AdrpDecidesOnThePageOfThePlaceToo)
{
    using namespace vorna::wfta;
    address_range range(0x10000);
    platform_spy spy;
    spy.place = range.begin();
    // 0xffc bytes into the page, a distance of 4 GiB and more in bytes is still in range in pages, backwards.
    const std::uint64_t last = number(range.begin()) - 0x100000000;
    kernel_registry_map registry = {{"host", {address(last), 0, nullptr, 0}}};
    kernel_data far = kernel("k", std::vector<std::uint32_t>(0x400));
    far.relocs = {{"host", 0xffc, ADRP, 0}};
    finalise_kernels(registry, {far});
    EXPECT_EQ(word_at(range.begin() + 0xffc), 0x00800000U);

    // And one of less than 4 GiB is out of range, forwards; the message shows the two pages.
    const std::uint64_t first_out = number(range.begin()) + 0x100000000;
    kernel_registry_map other = {{"host", {address(first_out), 0, nullptr, 0}}};
    kernel_registry_map listed = other;
    listed["k"] = {range.begin(), 0x1000, range.begin() + 0x1000, 0};
    expect_abort(
        [&] {
            spy.place = range.begin();
            finalise_kernels(other, {far});
        },
        relocation_report("resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but smod does not fit in +/-4G, got " +
                              hex(first_out) + " - " + hex(number(range.begin())) + " = 0x100000000",
                          listed));
}

TEST_F(RelocationRanges, CallReaches128MebibytesLessOneWordForwards)
{
    expect_accepted(0x94000000, CALL, 0x7fffff8, 0x95fffffe);
    expect_accepted(0x94000000, CALL, 0x7fffffc, 0x95ffffff);
    expect_rejected(0x94000000, CALL, call_message, 0x7fffffd);
    expect_rejected(0x94000000, CALL, call_message, 0x8000000);
    expect_rejected(0x94000000, CALL, call_message, 0x8000000, 0x7ffffffc);
}

TEST_F(RelocationRanges, CallReaches128MebibytesBackwards)
{
    expect_accepted(0x94000000, CALL, -0x7fffffc, 0x96000001);
    expect_accepted(0x94000000, CALL, -0x8000000, 0x96000000);
    expect_rejected(0x94000000, CALL, call_message, -0x8000001);
    expect_rejected(0x94000000, CALL, call_message, -0x8000004);
    expect_rejected(0x94000000, CALL, call_message, -0x8000004, -4);
}

TEST_F(RelocationRanges, CallTakesWholeWordsOnly)
{
    expect_accepted(0x94000000, CALL, 4, 0x94000001);
    expect_rejected(0x94000000, CALL, call_message, 1);
    expect_rejected(0x94000000, CALL, call_message, 2);
    expect_rejected(0x94000000, CALL, call_message, 3);
    expect_rejected(0x94000000, CALL, call_message, -2);
}

TEST_F(RelocationRanges, AddTakesAnyAddress)
{
    for (const std::uint64_t S : {std::uint64_t{1}, std::uint64_t{0xfff}, std::uint64_t{0x8000000000000000},
                                  std::uint64_t{0xffffffffffffffff}, std::uint64_t{0x123456789abcdef0}}) {
        EXPECT_EQ(k.link(0x91000000, ADD, S), 0x91000000 | (S & 0xfff) << 10) << hex(S);
    }
}

// A test of the low 32 bits alone would take each of these for an admissible distance.
TEST_F(RelocationRanges, DistancesAreTestedWhole)
{
    for (const std::int64_t high : {0x200000000, 0x100000000000, -0x7fffffff00000000 - 0x100000000}) {
        expect_rejected(0x10000000, ADR, adr_message, high);
        expect_page_rejected(high, high);
        expect_rejected(0x94000000, CALL, call_message, high + 4);
    }
}

TEST_F(RelocationRanges, AddressesWrapAround)
{
    // From a target near the top of the address space, an addend leads to its bottom.
    EXPECT_EQ(k.link(0x91000000, ADD, 0xffffffffffffff00, 0x234), 0x9104d000U); // 0x134
}

} // namespace
