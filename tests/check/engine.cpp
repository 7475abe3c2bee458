// The engine, on kernels with the addresses of a process. check_kernels.cpp tests it on sets before they are
// placed.

#include "check/engine.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;
using namespace support;
using namespace support::a64;
using where = relocation_target::where;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t BL = 283;

checked_kernel placed(const kernel_data& kernel, std::uint64_t address)
{
    return {&kernel.name, &kernel.text, &kernel.data, &kernel.relocs, address, address + 0x800, ""};
}

/// The findings of kernels that are 4 KiB apart. All other names are at the given place.
template <typename Kernels>
std::vector<kernel_finding> check_at(std::uint64_t address, const Kernels& kernels,
                                     const relocation_target& target, const kernel_registry_map& others = {})
{
    std::vector<checked_kernel> all;
    for (const kernel_data& kernel : kernels)
        all.push_back(placed(kernel, address + 0x1000 * all.size()));
    return check_placed(
        all, [&](std::size_t, const std::string&) { return target; }, others, address_kind::real);
}

/// The findings of a caller at 0x8000000 whose callee is at the given address.
std::vector<kernel_finding> check(const relocation_target& callee, const kernel_registry_map& others = {})
{
    const kernel_data caller[] = {kernel("user", {bl(), ret()}, {{"callee", 0, BL, 0}})};
    return check_at(0x8000000, caller, callee, others);
}

TEST(Engine, KnowsDistancesToOtherMappings)
{
    EXPECT_TRUE(check({where::placed, 0x1000, true}).empty());
    const auto findings = check({where::placed, 0x8000000 + 0x8000000, true});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].id, finding_id::range);
    EXPECT_TRUE(findings[0].aborts);
    EXPECT_EQ(findings[0].message, "relocation R_AARCH64_CALL26 against 'callee' out of range: 134217728 is "
                                   "not in [-134217728, 134217727]");
    EXPECT_EQ(findings[0].note, "'callee' is in the mapping of another call");
    EXPECT_EQ(findings[0].help, "finalise both in one set, or load the address with ADRP and ADD and use "
                                "BLR; if these are dumps of two runs, use a directory for each");
}

TEST(Engine, NotesATargetThatIsNotAmongTheKernels)
{
    const auto findings = check({where::unknown, 0, false});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].id, finding_id::unknown_target);
    EXPECT_EQ(findings[0].severity, finding_severity::note);
    EXPECT_FALSE(findings[0].aborts);
    EXPECT_EQ(findings[0].message,
              "relocation R_AARCH64_CALL26 against 'callee': target not found in the dumps");
}

TEST(Engine, SuggestsOtherNamesForAMisspeltTarget)
{
    const relocation_target nowhere = {where::nowhere, 0, false};
    const auto findings = check(nowhere, {{"calle", {address(0x1000), 4, address(0x1004), 0}}});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_TRUE(findings[0].aborts);
    EXPECT_EQ(findings[0].note, "the name may be misspelt: there is 'calle'");
    EXPECT_EQ(check(nowhere)[0].help, "place 'callee' before 'user', with the same registry");
}

TEST(Engine, SuggestsAnotherKernelThanTheCaller)
{
    const kernel_data kernels[] = {kernel("twiddle", {ret()}),
                                   kernel("twiddler", {bl(), ret()}, {{"twiddlerr", 0, BL, 0}})};
    const std::vector<kernel_finding> findings = check_at(0x8000000, kernels, {where::nowhere, 0});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].note, "the name may be misspelt: there is 'twiddle'");
}

TEST(Engine, SuggestsOtherNamesForTheFirst32)
{
    std::vector<kernel_data> kernels;
    for (std::size_t caller = 0; caller < 3; ++caller) {
        kernels.push_back(kernel("kernel", std::vector<std::uint32_t>(12, bl())));
        for (int i = 0; i < 12; ++i)
            kernels.back().relocs.push_back(
                {std::string("calle") + "abc"[caller] + static_cast<char>('a' + i), 4 * i, BL, 0});
    }
    const std::vector<kernel_finding> findings =
        check_at(0x8000000, kernels, {where::nowhere, 0}, {{"callee", {address(0x1000), 4, nullptr, 0}}});
    ASSERT_EQ(findings.size(), 36U);
    EXPECT_EQ(findings[31].note, "the name may be misspelt: there is 'callee'");
    EXPECT_EQ(findings[32].note, "");
}

TEST(Engine, DoesNotKnowAnOwnerOfConstantsThatIsNotAmongTheKernels)
{
    const kernel_data user[] = {kernel("user", {adr(0), ret()}, {{".rodata.other", 0, ADR, 0}})};
    for (const where state : {where::unknown, where::nowhere}) {
        const std::vector<kernel_finding> findings = check_at(0x8000000, user, {state, 0});
        ASSERT_EQ(findings.size(), 1U);
        EXPECT_EQ(findings[0].id, finding_id::foreign_data);
        EXPECT_EQ(findings[0].note, "there is no kernel 'other': 'user' may have been renamed");
    }
    EXPECT_EQ(check_at(0x8000000, user, {where::later, 0})[0].note,
              "a kernel can address only its own constants");
}

TEST(Engine, NamesThePlaceThatTheTopBitOfTheFieldLeadsTo)
{
    // ORed to the distance 8, the bit makes it 8 - 0x8000000.
    const kernel_data kernels[] = {kernel("user", {0x96000000, ret()}, {{"callee", 0, BL, 0}}),
                                   kernel("before", {ret(), nop(), nop()})};
    const auto message = [&](std::uint64_t address_of_before) {
        const std::vector<kernel_finding> findings = check_placed(
            {placed(kernels[0], 0x10000000), placed(kernels[1], address_of_before)},
            [](std::size_t, const std::string&) {
                return relocation_target{where::placed, 0x10000008};
            },
            {}, address_kind::real);
        EXPECT_EQ(findings.size(), 1U);
        return findings.at(0).message;
    };
    const std::string begin = "relocation R_AARCH64_CALL26 against 'callee': the call leads to ";
    const std::string end = ", because the top bit of the field was set (0x96000000)";
    EXPECT_EQ(message(0x8000008), begin + "'before'" + end);
    EXPECT_EQ(message(0x8000000), begin + "'before'+0x8" + end);
    EXPECT_EQ(message(0x8000000 - 4), begin + "0x8000008" + end) << "its end";
}

TEST(Engine, WarnsAboutTheTopBitOfTheFieldAlsoIfTheTargetIsOutOfRange)
{
    const kernel_data user[] = {kernel("user", {0x96000000, ret()}, {{"callee", 0, BL, 0}})};
    const std::vector<kernel_finding> findings = check_at(0x8000000, user, {where::placed, 0x40000000});
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].id, finding_id::range);
    EXPECT_EQ(findings[1].id, finding_id::call_bit_25);
    EXPECT_EQ(
        findings[1].message,
        "relocation R_AARCH64_CALL26 against 'callee': the top bit of the BL's field is set (0x96000000), "
        "which the finaliser does not test: the call may lead elsewhere");
}

TEST(Engine, BlamesDumpsOfTwoRunsOnlyForADistanceToAnotherMapping)
{
    EXPECT_EQ(check({where::placed, 0x40000000, false}).at(0).help,
              "finalise both in one set, or load the address with ADRP and ADD and use BLR");
    EXPECT_EQ(check({where::placed, 0x40000002, true}).at(0).help,
              "give the relocation the offset of the BL, and addend 0")
        << "between two instructions in any run";
}

TEST(Engine, GivesNoAdviceAfterSixteenFindingsOfAKernel)
{
    kernel_data user[] = {kernel("user", std::vector<std::uint32_t>(17, bl()))};
    for (int i = 0; i < 17; ++i)
        user[0].relocs.push_back({std::string(3, static_cast<char>('a' + i)), 4 * i, BL, 0});
    const std::vector<kernel_finding> findings = check_at(0x8000000, user, {where::placed, 0x40000000, true});
    ASSERT_EQ(findings.size(), 17U);
    EXPECT_EQ(findings[15].help, "finalise both in one set, or load the address with ADRP and ADD and use "
                                 "BLR; if these are dumps of two runs, use a directory for each");
    EXPECT_EQ(findings[16].help, "");
}

TEST(Engine, AdvisesOnceAboutAFilledFieldOfAnotherInstruction)
{
    const kernel_data user[] = {kernel("user", {ret()}, {{"callee", 0, BL, 0}})};
    const std::vector<kernel_finding> findings = check_at(0x8000000, user, {where::placed, 0x8000000});
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].id, finding_id::field_filled);
    EXPECT_EQ(findings[0].help, "give the relocation the offset of the BL that it is for");
    EXPECT_EQ(findings[1].id, finding_id::opcode);
    EXPECT_EQ(findings[1].help, "");
}

} // namespace
