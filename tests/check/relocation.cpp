// The kinds of relocation: values, ranges, fields, targets, and applying one. Expected values are from "ELF
// for the Arm 64-bit Architecture (AArch64)" and from the encodings of ADR, ADRP, ADD and BL.

#include "check/relocation.hpp"
#include "tests/support/assemble.hpp"

#include <gtest/gtest.h>
#include <string>

namespace {

using namespace vorna::wfta;
using where = relocation_target::where;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t ADRP = 275;
constexpr std::int32_t ADD = 277;
constexpr std::int32_t BL = 283;

std::uint32_t instruction(const std::string& text)
{
    return support::assemble({text})[0];
}

applied_relocation applied(std::int32_t type, std::uint64_t S, std::uint64_t P, const std::string& text)
{
    return apply(*find_relocation_kind(type), S, P, instruction(text));
}

TEST(Relocation, IsOneOfFourKinds)
{
    EXPECT_STREQ(find_relocation_kind(ADR)->name, "R_AARCH64_ADR_PREL_LO21");
    EXPECT_STREQ(find_relocation_kind(ADRP)->name, "R_AARCH64_ADR_PREL_PG_HI21");
    EXPECT_STREQ(find_relocation_kind(ADD)->name, "R_AARCH64_ADD_ABS_LO12_NC");
    EXPECT_STREQ(find_relocation_kind(BL)->name, "R_AARCH64_CALL26");
    for (const std::int32_t type : {0, 273, 276, 278, 282, 284, -1})
        EXPECT_EQ(find_relocation_kind(type), nullptr) << type;
}

TEST(Relocation, HasAnUntestedBitOnlyInBL)
{
    const std::pair<std::int32_t, std::uint32_t> untested[] = {
        {ADR, 0}, {ADRP, 0}, {ADD, 0}, {BL, 0x02000000}};
    for (const auto& [type, bits] : untested) {
        const relocation_kind& kind = *find_relocation_kind(type);
        EXPECT_EQ(kind.field_mask & ~kind.tested_mask, bits) << kind.name;
        EXPECT_EQ(kind.tested_mask & ~kind.field_mask, 0U) << kind.name;
        EXPECT_EQ(kind.field_mask & kind.opcode_mask, 0U) << kind.name;
        EXPECT_TRUE(type == ADD || (kind.field_mask | kind.opcode_mask | 0x1f) == ~0U) << kind.name;
    }
}

TEST(Relocation, FillsOneKindOfInstruction)
{
    const std::pair<const char*, std::int32_t> instructions[] = {{"adr x1, #4", ADR},
                                                                 {"adrp x1, #4096", ADRP},
                                                                 {"add x1, x2, #3", ADD},
                                                                 {"add w1, w2, #0", ADD},
                                                                 {"bl #-4", BL}};
    for (const auto& [text, type] : instructions)
        EXPECT_EQ(find_kind_of_instruction(instruction(text)), find_relocation_kind(type)) << text;
    for (const char* text : {"adds x1, x2, #3", "sub x1, x2, #3", "add x1, x2, #3, lsl #12", "add x1, x2, x3",
                             "b #4", "ldr x1, [x2]"})
        EXPECT_EQ(find_kind_of_instruction(instruction(text)), nullptr) << text;
}

TEST(Relocation, EncodesWhatAnAssemblerDoes)
{
    EXPECT_EQ(applied(ADR, 0x10005, 0x10000, "adr x3, #0").word, instruction("adr x3, #5"));
    EXPECT_EQ(applied(ADR, 0xffff, 0x10000, "adr x3, #0").word, instruction("adr x3, #-1"));
    EXPECT_EQ(applied(ADRP, 0x12345678, 0x12340ffc, "adrp x3, #0").word, instruction("adrp x3, #20480"));
    EXPECT_EQ(applied(ADRP, 0x12340fff, 0x12341000, "adrp x3, #0").word, instruction("adrp x3, #-4096"));
    EXPECT_EQ(applied(ADD, 0x12345678, 0x10000, "add x3, x3, #0").word, instruction("add x3, x3, #0x678"));
    EXPECT_EQ(applied(BL, 0x20000, 0x10000, "bl #0").word, instruction("bl #65536"));
    EXPECT_EQ(applied(BL, 0x8000, 0x10000, "bl #0").word, instruction("bl #-32768"));
}

TEST(Relocation, FillsNoBitOutsideItsField)
{
    for (const std::int32_t type : {ADR, ADRP, ADD, BL}) {
        const relocation_kind& kind = *find_relocation_kind(type);
        EXPECT_EQ(relocation_field(kind, ~std::uint64_t{0}), kind.field_mask) << kind.name;
    }
}

TEST(Relocation, ReadsBackTheValueThatItEncodes)
{
    const auto read = [](std::int32_t type, std::int64_t X) {
        const relocation_kind& kind = *find_relocation_kind(type);
        return encoded_value(kind, kind.opcode | relocation_field(kind, static_cast<std::uint64_t>(X)));
    };
    for (const std::int64_t X : {-1048576, -3, 0, 1, 1048575})
        EXPECT_EQ(read(ADR, X), X);
    for (const std::int64_t X : {-4294967296, -4096L, 0L, 4096L, 4294963200})
        EXPECT_EQ(read(ADRP, X), X);
    for (const std::int64_t X : {0, 1, 4095})
        EXPECT_EQ(read(ADD, X), X);
    for (const std::int64_t X : {-134217728, -4, 0, 4, 134217724})
        EXPECT_EQ(read(BL, X), X);
}

TEST(Relocation, IsAppliedOnlyInRange)
{
    const auto reaches = [](std::int32_t type, std::int64_t distance) {
        const std::uint64_t P = 0x100000000000;
        return apply(*find_relocation_kind(type), P + static_cast<std::uint64_t>(distance), P,
                     find_relocation_kind(type)->opcode)
            .applied();
    };
    EXPECT_TRUE(reaches(ADR, 0xfffff) && reaches(ADR, -0x100000));
    EXPECT_FALSE(reaches(ADR, 0x100000) || reaches(ADR, -0x100001));
    EXPECT_TRUE(reaches(ADRP, 0xffffffff) && reaches(ADRP, -0x100000000));
    EXPECT_FALSE(reaches(ADRP, 0x100000000) || reaches(ADRP, -0x100000001));
    EXPECT_TRUE(reaches(ADD, 0x7fffffffffff) && reaches(ADD, -0x100000000000));
    EXPECT_TRUE(reaches(BL, 0x7fffffc) && reaches(BL, -0x8000000));
    EXPECT_FALSE(reaches(BL, 0x8000000) || reaches(BL, -0x8000004) || reaches(BL, 2));
}

TEST(Relocation, LeavesAWordWhoseFieldIsNotZero)
{
    const applied_relocation filled = applied(BL, 0x20000, 0x10000, "bl #4");
    EXPECT_TRUE(filled.filled && !filled.applied());
    EXPECT_EQ(filled.word, instruction("bl #4"));
    const applied_relocation far = applied(BL, 0x90000000, 0x10000, "bl #0");
    EXPECT_TRUE(!far.filled && !far.in_range && !far.applied());
    EXPECT_EQ(far.value, 0x8fff0000U);
    EXPECT_EQ(far.word, instruction("bl #0"));
}

TEST(Relocation, LeadsElsewhereIfTheUntestedBitWasSet)
{
    const relocation_kind& kind = *find_relocation_kind(BL);
    const applied_relocation ahead = apply(kind, 0x10010, 0x10000, 0x96000000);
    EXPECT_TRUE(ahead.applied() && ahead.leads_elsewhere);
    EXPECT_EQ(encoded_value(kind, ahead.word), 0x10 - 0x8000000);
    EXPECT_FALSE(apply(kind, 0xfff0, 0x10000, 0x96000000).leads_elsewhere);
    EXPECT_FALSE(apply(kind, 0x10010, 0x10000, 0x94000000).leads_elsewhere);
    EXPECT_FALSE(apply(kind, 0x10010, 0x10000, 0x16000000).leads_elsewhere)
        << "B, whose fields mean nothing here";
}

TEST(Relocation, NamesAKernelOrItsOwnConstants)
{
    const std::string name = "k";
    const kernel_place kernel{name, 0x1000, 0x2000};
    const auto find = [](const std::string& other) {
        return other == "callee" ? relocation_target{where::placed, 0x3000}
                                 : relocation_target{where::nowhere, 0};
    };
    EXPECT_EQ(resolve_target(kernel, ".rodata.k", find).address, 0x2000U);
    EXPECT_EQ(resolve_target(kernel, "k", find).address, 0x1000U);
    EXPECT_EQ(resolve_target(kernel, "callee", find).address, 0x3000U);
    EXPECT_EQ(resolve_target(kernel, ".rodata.callee", find).state, where::foreign_data);
    EXPECT_EQ(resolve_target(kernel, ".rodata.", find).state, where::foreign_data);
    EXPECT_EQ(resolve_target(kernel, ".rodata", find).state, where::nowhere) << "a kernel's name";
    EXPECT_TRUE(is_own_data("", ".rodata."));
    EXPECT_FALSE(is_own_data("k", ".rodata.kk"));
    EXPECT_FALSE(is_own_data(".rodata", ".rodata"));
}

TEST(Relocation, NeedsAWholeWordInTheCode)
{
    const std::vector<std::uint8_t> code(8);
    EXPECT_TRUE(lies_within(code, 0) && lies_within(code, 4) && lies_within(code, 3));
    EXPECT_FALSE(lies_within(code, 5) || lies_within(code, 8) || lies_within(code, -1));
    EXPECT_FALSE(lies_within({1, 2, 3}, 0));
}

TEST(Relocation, FindsAFilledWordAndAnUnlinkedOne)
{
    const relocation_kind& call = *find_relocation_kind(BL);
    EXPECT_TRUE(is_unlinked(call, 0x94000000));
    EXPECT_FALSE(is_unlinked(call, 0x14000000)) << "B";
    EXPECT_FALSE(is_unlinked(call, 0x94000001));
    EXPECT_FALSE(is_unlinked(call, 0x96000000));
    EXPECT_TRUE(is_filled(call, 0x94000001));
    EXPECT_FALSE(is_filled(call, 0x96000000)) << "bit 25";
    EXPECT_TRUE(has_untested_bits(call, 0x96000000));
    EXPECT_FALSE(has_untested_bits(call, 0x95ffffff));
    const relocation_kind& page = *find_relocation_kind(ADRP);
    EXPECT_TRUE(is_unlinked(page, 0x9000001f));
    EXPECT_TRUE(is_filled(page, 0xb0000000));
    EXPECT_FALSE(has_untested_bits(page, 0xffffffff));
}

} // namespace
