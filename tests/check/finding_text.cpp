// The message, the likely cause and the advice of a finding.

#include "check/finding_text.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/kernels.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t ADRP = 275;
constexpr std::int32_t ADD = 277;
constexpr std::int32_t JUMP26 = 282; // not supported
constexpr std::int32_t BL = 283;
constexpr std::int32_t UNKNOWN = 9999;

struct broken_kernel {
    std::string name;
    std::vector<std::uint8_t> code;
    std::vector<tessjit::reloc_info> relocs;

    broken_kernel(const std::vector<std::string>& lines, std::vector<tessjit::reloc_info> with)
        : name("k"), code(support::code(support::assemble(lines))), relocs(std::move(with))
    {
    }
    [[nodiscard]] relocation_site site(std::size_t index = 0) const { return {name, code, relocs, index}; }
};

std::string text(const advice& found)
{
    return found.note + " | " + found.help;
}

TEST(FindingText, SaysByHowMuchATargetIsOutOfRange)
{
    const relocation_kind& kind = *find_relocation_kind(BL);
    EXPECT_EQ(
        range_message(relocation_subject(BL, "Y"), kind, 134221824),
        "relocation R_AARCH64_CALL26 against 'Y' out of range: 134221824 is not in [-134217728, 134217727]");
    EXPECT_EQ(range_message(relocation_subject(BL), kind, ~std::uint64_t{1}),
              "relocation R_AARCH64_CALL26 misaligned: -2 is not a multiple of 4");
}

TEST(FindingText, NamesTypesThatAreNotSupported)
{
    EXPECT_EQ(relocation_subject(282, "k"), "relocation R_AARCH64_JUMP26 (type 282) against 'k'");
    EXPECT_EQ(relocation_subject(UNKNOWN, "two\nlines", -8),
              "relocation type 9999 against 'two\\nlines'-0x8");
}

TEST(FindingText, SaysHowMuchCodeThereIs)
{
    EXPECT_EQ(offset_message("it", 1), "it: offset outside the code, which has 1 byte");
    EXPECT_EQ(offset_message("it", 8), "it: offset outside the code, which has 8 bytes");
}

TEST(FindingText, SaysWhichKernelHasTheNameIfThatIsKnown)
{
    EXPECT_EQ(duplicate_name_text().message, "a second kernel of this name");
    EXPECT_EQ(duplicate_name_text("kernel 3 of the set").message,
              "a second kernel of this name: the first is kernel 3 of the set");
}

TEST(FindingText, HasASummaryOfEachFindingForAComment)
{
    EXPECT_STREQ(summary_of(finding_id::foreign_data), "constants of another kernel");
    EXPECT_STREQ(summary_of(finding_id::unknown_target), "target not found");
    EXPECT_STREQ(summary_of(finding_id::callee_order), "the kernel comes later in the set");
    EXPECT_STREQ(summary_of(finding_id::null_target), "the target's address is null");
    EXPECT_STREQ(summary_of(finding_id::unhandled_type), "type not supported");
    EXPECT_STREQ(summary_of(finding_id::offset), "offset outside the code");
    EXPECT_STREQ(summary_of(finding_id::unaligned_offset), "offset not a multiple of 4");
    EXPECT_STREQ(summary_of(finding_id::field_filled), "field not zero");
    EXPECT_STREQ(summary_of(finding_id::range), "out of range");
    EXPECT_STREQ(summary_of(finding_id::opcode), "another instruction");
    EXPECT_STREQ(summary_of(finding_id::call_bit_25),
                 "leads elsewhere: the top bit of the BL's field was set");
    EXPECT_STREQ(summary_of(finding_id::pair), "pair") << "its id";
}

TEST(FindingText, HasTheLikelyCauseOfAnAbort)
{
    EXPECT_STREQ(cause_of(finding_id::duplicate_name),
                 "the generator gives two kernels one name, or a set is finalised twice with one registry");
    EXPECT_STREQ(cause_of(finding_id::foreign_data), "a kernel can address only its own constants");
    EXPECT_STREQ(cause_of(finding_id::unknown_target),
                 "the kernel comes later in the set, its name is misspelt, or it is in another registry");
    EXPECT_STREQ(
        cause_of(finding_id::null_target),
        "the target's set had neither code nor constants, its mapping failed, or the host registered "
        "null");
    EXPECT_STREQ(cause_of(finding_id::unhandled_type),
                 "the generator emits a type other than 274, 275, 277 and 283");
    EXPECT_STREQ(cause_of(finding_id::field_filled),
                 "two relocations for one instruction, or the generator has encoded a value in the field");
    EXPECT_STREQ(cause_of(finding_id::pair), "") << "does not abort";
}

TEST(FindingText, AdvisesTheRelocationThatTheInstructionsNeed)
{
    const broken_kernel next({"mov x29, x30", "bl #0", "ret"}, {{"callee", 0, BL, 0}});
    EXPECT_EQ(text(advise_field_filled(next.site())),
              "the BL at +0x4 has no relocation | use {\"callee\", 4, 283, 0}");
    const broken_kernel type({"adr x0, #0", "ret"}, {{".rodata.k", 0, ADRP, 8}});
    EXPECT_EQ(text(advise_opcode(type.site())),
              "the relocation is for an ADRP, the instruction is an ADR | use {\".rodata.k\", 0, 274, 8}");
    const broken_kernel exchanged({"adr x0, #0", "bl #0", "ret"},
                                  {{".rodata.k", 4, ADR, 0}, {"callee", 0, BL, 0}});
    EXPECT_EQ(text(advise_opcode(exchanged.site())),
              "the offsets of relocations 1 and 2 are exchanged | use {\".rodata.k\", 0, 274, 0}, "
              "{\"callee\", 4, 283, 0}");
    const broken_kernel in_order({"adr x0, #0", "bl #0", "ret"},
                                 {{"callee", 0, BL, 0}, {".rodata.k", 4, ADR, 0}});
    EXPECT_EQ(text(advise_opcode(in_order.site())), text(advise_opcode(exchanged.site())))
        << "in the order of the instructions";
}

TEST(FindingText, AdvisesInGeneralIfNoInstructionShowsWhatWasMeant)
{
    const broken_kernel known({"ret"}, {{"callee", 0, BL, 0}});
    EXPECT_EQ(text(advise_opcode(known.site())),
              " | give the relocation the offset of the BL that it is for");
    const broken_kernel unknown({"ret"}, {{"callee", 0, UNKNOWN, 0}});
    EXPECT_EQ(text(advise_offset(unknown.site())),
              " | give the relocation the offset of an instruction of this kernel");
    EXPECT_EQ(text(advise_unhandled_type(unknown.site())),
              " | use 274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL");
    const broken_kernel outside({"ret"}, {{"callee", 400, JUMP26, 0}});
    EXPECT_EQ(text(advise_unhandled_type(outside.site())),
              " | call with BL (283), or form the address with ADRP and ADD and use BR");
}

TEST(FindingText, AdvisesAboutABlThatShouldReachConstants)
{
    const broken_kernel kernel({"bl #-64", "ret"}, {{".rodata.k", 0, ADR, 0}});
    EXPECT_EQ(
        text(advise_opcode(kernel.site())),
        "the instruction is a BL, and '.rodata.k' are constants | name the kernel that it calls, with type "
        "283, or give the relocation the offset of the instruction that it is for");
}

TEST(FindingText, AdvisesAboutAFieldThatIsNotZero)
{
    const broken_kernel provisional({"bl #-64", "ret"}, {{"callee", 0, BL, 0}});
    EXPECT_EQ(
        text(advise_field_filled(provisional.site())),
        "the generator has encoded a value in the field | generate the BL with its field zero: 0x94000000");
    const broken_kernel twice({"bl #0", "ret"}, {{"callee", 0, BL, 0}, {"callee", 0, BL, 0}});
    EXPECT_EQ(
        text(advise_field_filled(twice.site(1))),
        "relocation 1 has filled it: two relocations for one instruction | remove one of the relocations 1 and 2");
    const broken_kernel next_waits({"bl #0", "bl #0", "ret"}, {{"callee", 0, BL, 0}, {"callee", 0, BL, 0}});
    EXPECT_EQ(
        text(advise_field_filled(next_waits.site(1))),
        "relocation 1 has filled it: two relocations for one instruction; the BL at +0x4 has no relocation "
        "| use {\"callee\", 4, 283, 0}");
    const broken_kernel neighbours({"bl #0", "bl #-64", "bl #0", "ret"},
                                   {{"callee", 0, BL, 0}, {"callee", 8, BL, 0}, {"callee", 4, BL, 0}});
    EXPECT_EQ(
        text(advise_field_filled(neighbours.site(2))),
        "the generator has encoded a value in the field | generate the BL with its field zero: 0x94000000");
}

TEST(FindingText, AdvisesAboutAFieldThatIsNotZeroWithoutTheKernel)
{
    EXPECT_EQ(text(advise_filled_by_link("callee")),
              "two relocations for one instruction: it leads to 'callee' already | remove one of the two "
              "relocations");
    EXPECT_EQ(text(advise_filled_offset(*find_relocation_kind(BL), "RET")),
              "the instruction there is RET | give the relocation the offset of the BL that it is for");
    EXPECT_EQ(
        text(advise_filled_field()),
        "two relocations for one instruction, or the generator has encoded a value in the field | keep one "
        "relocation for the instruction, and its field zero");
}

TEST(FindingText, AdvisesAboutADistance)
{
    const std::uint64_t GiB = std::uint64_t{1} << 30;
    const auto range = [](const broken_kernel& kernel, std::uint64_t X, bool in_other_mapping = false) {
        const std::uint64_t P = std::uint64_t{1} << 40;
        return text(advise_range(kernel.site(), {P + X, P, in_other_mapping}));
    };
    const broken_kernel adr({"adr x0, #0", "ret"}, {{"f", 0, ADR, 0}});
    EXPECT_EQ(range(adr, GiB), " | use ADRP (275) and ADD (277): ADR is for the kernel's own code");
    EXPECT_EQ(
        range(adr, GiB, true),
        "'f' is in the mapping of another call | use ADRP (275) and ADD (277): ADR is for the kernel's own code");
    const broken_kernel constants({"adr x0, #0", "ret"}, {{".rodata.k", 0, ADR, 0}});
    EXPECT_EQ(range(constants, GiB),
              "constants come after the code of the whole set | use ADRP (275) and ADD "
              "(277): ADR is for the kernel's own code");
    const broken_kernel call({"bl #0", "ret"}, {{"f", 0, BL, 0}});
    EXPECT_EQ(range(call, GiB),
              " | finalise both in one set, or load the address with ADRP and ADD and use BLR");
    const broken_kernel page({"adrp x0, #0", "ret"}, {{"f", 0, ADRP, 0}});
    EXPECT_EQ(range(page, 8 * GiB),
              " | finalise both in one set, or sets that refer to each other close in time");
    EXPECT_EQ(
        range(page, 8 * GiB, true),
        "'f' is in the mapping of another call, in another part of the address space | finalise both in "
        "one set, or sets that refer to each other close in time");
}

TEST(FindingText, AdvisesAnotherTypeIfTheInstructionHasItAndReachesTheTarget)
{
    const std::uint64_t GiB = std::uint64_t{1} << 30;
    const auto range = [](const broken_kernel& kernel, std::uint64_t X) {
        const std::uint64_t P = std::uint64_t{1} << 40;
        return text(advise_range(kernel.site(), {P + X, P, false}));
    };
    EXPECT_EQ(range({{"adrp x0, #0", "ret"}, {{"f", 0, BL, 0}}}, GiB),
              "the relocation is for a BL, the instruction is an ADRP | use {\"f\", 0, 275, 0}");
    EXPECT_EQ(range({{"ret", "ret"}, {{"f", 0, BL, 0}}}, GiB),
              " | give the relocation the offset of the BL that it is for")
        << "the instruction reaches nothing";
    const std::string too_far =
        " | finalise both in one set, or load the address with ADRP and ADD and use BLR";
    EXPECT_EQ(range({{"adr x0, #0", "ret"}, {{"f", 0, BL, 0}}}, GiB), too_far) << "nor does an ADR reach it";
    EXPECT_EQ(range({{"bl #0", "ret"}, {{"f", 8, BL, 0}}}, GiB), too_far) << "outside the code";
}

TEST(FindingText, AdvisesAboutACallBetweenInstructions)
{
    const auto misaligned = [](const std::string& target, std::int32_t addend) {
        const broken_kernel kernel({"bl #0", "ret"}, {{target, 0, BL, addend}});
        return text(advise_range(kernel.site(), {0x1002, 0x1000, false}));
    };
    EXPECT_EQ(misaligned(".rodata.k", 2),
              "a BL to constants | name a kernel as the target of a BL; address constants with ADRP and ADD");
    EXPECT_EQ(misaligned("f", 2),
              "the addend 2 leads between two instructions of 'f' | call the kernel's first "
              "instruction: addend 0");
    EXPECT_EQ(misaligned("f", 0), " | give the relocation the offset of the BL, and addend 0");
}

TEST(FindingText, AdvisesAnotherTargetWithTheTypeAndOffsetThatTheInstructionsShow)
{
    const auto unknown = [](const broken_kernel& kernel) {
        return text(advise_unknown_target(kernel.site(), "callee"));
    };
    const std::string note = "the name may be misspelt: there is 'callee'; +0x0 has ";
    const std::string or_order = ", or place 'calle' before 'k'";
    EXPECT_EQ(unknown({{"bl #0", "ret"}, {{"calle", 0, UNKNOWN, 0}}}),
              note + "a BL | use {\"callee\", 0, 283, 0}" + or_order);
    EXPECT_EQ(unknown({{"bl #0", "ret"}, {{"calle", 2, BL, 0}}}),
              note + "a BL | use {\"callee\", 0, 283, 0}" + or_order);
    EXPECT_EQ(unknown({{"adr x0, #0", "ret"}, {{"calle", 0, BL, 0}}}),
              note + "an ADR | use {\"callee\", 0, 274, 0}" + or_order);
    const broken_kernel data({"adr x0, #0", "ret"}, {{"rodata.k", 0, ADD, 0}});
    EXPECT_EQ(
        text(advise_unknown_target(data.site(), "")),
        "constants are named .rodata. and the kernel's name; +0x0 has an ADR | use {\".rodata.k\", 0, 274, "
        "0}");
    const broken_kernel foreign({"adr x0, #0", "ret"}, {{".rodata.other", 0, ADD, 0}});
    EXPECT_EQ(
        text(advise_foreign_data(foreign.site(), false)),
        "there is no kernel 'other': 'k' may have been renamed; +0x0 has an ADR | use {\".rodata.k\", 0, "
        "274, 0}");
}

TEST(FindingText, AdvisesAboutTargets)
{
    const broken_kernel call({"bl #0", "ret"}, {{"wfta_shor_3", 0, BL, 0}});
    EXPECT_EQ(
        text(advise_unknown_target(call.site(), "wfta_short_3")),
        "the name may be misspelt: there is 'wfta_short_3' | use {\"wfta_short_3\", 0, 283, 0}, or place "
        "'wfta_shor_3' before 'k'");
    EXPECT_EQ(text(advise_unknown_target(call.site(), "")),
              " | place 'wfta_shor_3' before 'k', with the same registry");
    const broken_kernel data({"adr x0, #0", "ret"}, {{".rodata.other", 0, ADR, 0}});
    EXPECT_EQ(
        text(advise_foreign_data(data.site(), true)),
        "a kernel can address only its own constants | give 'k' a copy of them, or let 'other' load them; if its "
        "own are meant, use {\".rodata.k\", 0, 274, 0}");
    EXPECT_EQ(text(advise_foreign_data(data.site(), false)),
              "there is no kernel 'other': 'k' may have been renamed | use {\".rodata.k\", 0, 274, 0}");
    broken_kernel misspelt({"adr x0, #0", "ret"}, {{".rodata.wfta_shrt", 0, ADR, 0}});
    misspelt.name = "wfta_short";
    EXPECT_EQ(text(advise_foreign_data(misspelt.site(), false)),
              "the name may be misspelt | use {\".rodata.wfta_short\", 0, 274, 0}");
}

} // namespace
