#include "workbench/kernels/linking.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;
namespace a64 = support::a64;
using support::code;
using support::placed;
using testing::ElementsAre;
using vorna::wfta::finding_id;

// The findings as text: "place: message [id]", and on the next line what is added to it.
std::vector<std::string> findings(const kernel_set& set, const linked_set& linked)
{
    std::vector<std::string> lines;
    for (const link_finding& finding : linked.findings) {
        const placed_kernel& kernel = set.kernels[finding.kernel];
        const bool of_relocation = finding.relocation < kernel.relocs.size();
        lines.push_back(
            kernel.name +
            (of_relocation ? "+" + std::to_string(kernel.relocs[finding.relocation].offset) : "") + ": " +
            finding.message + " [" + std::string(name_of(finding.id)) + "]");
        if (!finding.evidence.empty())
            lines.push_back(finding.evidence);
    }
    return lines;
}

TEST(LinkSet, NamesAMissingTargetOnceAndLinksTheRest)
{
    const kernel_set set =
        make_kernel_set({placed("a", 0x10000, {a64::bl(), a64::bl(), a64::bl(), a64::ret()},
                                {{"gone", 0, R_AARCH64_CALL26, 0},
                                 {"a", 4, R_AARCH64_CALL26, 0},
                                 {"gone", 8, R_AARCH64_CALL26, 0}}),
                         placed("b", 0x10020, {a64::bl(), a64::bl(), a64::ret()},
                                {{"gone", 0, R_AARCH64_CALL26, 0}, {"lost", 4, R_AARCH64_CALL26, 0}}),
                         placed("c", 0x10040, {a64::bl(), a64::bl(), a64::ret()},
                                {{"lost", 0, R_AARCH64_CALL26, 0}, {"twice", 4, R_AARCH64_CALL26, 0}})});
    const linked_set linked = link_set(set);
    EXPECT_THAT(linked.missing, ElementsAre("gone", "lost", "twice"));
    const std::string not_found = "': target not found in the dumps [unknown-target]";
    EXPECT_THAT(findings(set, linked),
                ElementsAre("a+0: relocation R_AARCH64_CALL26 against 'gone" + not_found,
                            "also at a+0x8 and 1 other place",
                            "b+4: relocation R_AARCH64_CALL26 against 'lost" + not_found, "also at c+0x0",
                            "c+4: relocation R_AARCH64_CALL26 against 'twice" + not_found));
    EXPECT_EQ(linked.texts[0], code({a64::bl(), 0x97ffffff, a64::bl(), a64::ret()}));
}

TEST(LinkSet, LeavesInstructionsAsTheyAreWhereTheFinaliserWouldAbort)
{
    const std::vector<std::uint32_t> words = {a64::bl(),   a64::bl(),   a64::bl() | 1,
                                              a64::adr(0), a64::adr(0), a64::ret()};
    const kernel_set set = make_kernel_set({placed("k", 0x10000, words,
                                                   {{"far", 0, R_AARCH64_CALL26, 4},
                                                    {"k", 4, R_AARCH64_CALL26, 2},
                                                    {"k", 8, R_AARCH64_CALL26, 0},
                                                    {".rodata.far", 12, R_AARCH64_ADR_PREL_LO21, 0},
                                                    {"k", 16, 999, 0},
                                                    {"k", 21, R_AARCH64_ADR_PREL_LO21, 0},
                                                    {"k", -4, R_AARCH64_ADR_PREL_LO21, 0}}),
                                            placed("far", 0x90000000, {a64::ret()})});
    const linked_set linked = link_set(set);
    EXPECT_THAT(
        findings(set, linked),
        ElementsAre(
            "k+0: relocation R_AARCH64_CALL26 against 'far'+0x4 out of range: 2415853572 is not in "
            "[-134217728, 134217727] [range]",
            "k+4: relocation R_AARCH64_CALL26 against 'k'+0x2 misaligned: -2 is not a multiple of 4 [range]",
            "k+8: relocation R_AARCH64_CALL26 against 'k': field not zero in 0x94000001 [field-filled]",
            "k+12: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.far': constants of another kernel "
            "[foreign-data]",
            "k+16: relocation type 999 against 'k': type not supported [unhandled-type]",
            "k+21: relocation R_AARCH64_ADR_PREL_LO21 against 'k': offset outside the code, which has 24 "
            "bytes [offset]",
            "k+-4: relocation R_AARCH64_ADR_PREL_LO21 against 'k': offset outside the code, which has 24 "
            "bytes [offset]"));
    EXPECT_EQ(linked.texts[0], code(words));
}

TEST(LinkSet, ReportsWhereACallLeadsIfTheTopBitOfItsFieldWasSet)
{
    // ORed with a positive distance, the bit subtracts 128 MiB from it.
    const kernel_set set =
        make_kernel_set({placed("below", 0x10000, {a64::nop(), a64::ret()}),
                         placed("k", 0x8010000, {0x96000000, 0x96000000, 0x96000000, a64::ret()},
                                {{"k", 0, R_AARCH64_CALL26, 12},
                                 {"ahead", 4, R_AARCH64_CALL26, 0},
                                 {"k", 8, R_AARCH64_CALL26, 0}}),
                         placed("ahead", 0x8030004, {a64::ret()})});
    const linked_set linked = link_set(set);
    EXPECT_THAT(
        findings(set, linked),
        ElementsAre(
            "k+0: relocation R_AARCH64_CALL26 against 'k'+0xc: the call leads to 0x1000c, because the top "
            "bit of the field was set (0x96000003) [call-bit-25]",
            "k+4: relocation R_AARCH64_CALL26 against 'ahead': the call leads to 0x30004, because the top "
            "bit of the field was set (0x96008000) [call-bit-25]"));
    EXPECT_EQ(linked.texts[1], code({0x96000003, 0x96008000, 0x97fffffe, a64::ret()}));
    const placed_kernel& k = set.kernels[1];
    EXPECT_TRUE(leads_elsewhere(set, k, k.relocs[0]));
    EXPECT_TRUE(leads_elsewhere(set, k, k.relocs[1]));
    EXPECT_FALSE(leads_elsewhere(set, k, k.relocs[2])) << "the bit is set in a negative distance anyway";
}

TEST(LinkSet, LetsEachOfTwoKernelsOfOneNameCallItself)
{
    std::vector<placed_kernel> kernels;
    for (const std::uint64_t address : {0x10000U, 0x11000U})
        kernels.push_back(
            placed("k", address, {a64::bl(), a64::ret()}, {{"k", 0, R_AARCH64_CALL26, 0}}, {}, address + 32));
    kernels[0].file = "dumps/k";
    const kernel_set set = make_kernel_set(kernels);
    for (const placed_kernel& kernel : set.kernels)
        EXPECT_EQ(link_kernel(set, kernel).text, code({a64::bl(), a64::ret()}));
    const linked_set linked = link_set(set);
    ASSERT_EQ(linked.findings.size(), 1U);
    EXPECT_EQ(linked.findings[0].id, finding_id::duplicate_name);
    EXPECT_EQ(linked.findings[0].kernel, 1U);
    EXPECT_EQ(linked.findings[0].relocation, 1U) << "past the last relocation: it is about the kernel";
}

TEST(LinkKernel, AppliesTheRelocationsOfAnInstructionInOrder)
{
    // The second finds the field filled, whichever of the two it is.
    const auto linked = [](std::int32_t first, std::int32_t second) {
        const kernel_set set = make_kernel_set(
            {placed("k", 0x10000, {a64::adr(0), a64::ret()},
                    {{"k", 0, R_AARCH64_ADR_PREL_LO21, first}, {"k", 0, R_AARCH64_ADR_PREL_LO21, second}})});
        return link_kernel(set, set.kernels[0]);
    };
    EXPECT_EQ(linked(4, 8).text, code({0x10000020, a64::ret()}));
    EXPECT_EQ(linked(8, 4).text, code({0x10000040, a64::ret()}));
    EXPECT_THAT(linked(8, 4).findings, ElementsAre(std::nullopt, finding_id::field_filled));
}

TEST(AddressText, IsAKernelAndAnOffsetInItsCodeOrANumber)
{
    const kernel_set set = make_kernel_set({placed("a\nb", 0x10000, {a64::nop(), a64::ret()})});
    EXPECT_EQ(address_text(set, 0x10000), "a\\nb");
    EXPECT_EQ(address_text(set, 0x10006), "a\\nb+0x6");
    EXPECT_EQ(address_text(set, 0x10008), "0x10008");
    EXPECT_EQ(address_text(set, 0xffff), "0xffff");
}

} // namespace
