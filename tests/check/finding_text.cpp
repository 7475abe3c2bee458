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
constexpr std::int32_t BL = 283;

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
    EXPECT_EQ(relocation_subject(9999, "two\nlines", -8), "relocation type 9999 against 'two\\nlines'-0x8");
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
    const broken_kernel neighbours({"bl #0", "bl #-64", "bl #0", "ret"},
                                   {{"callee", 0, BL, 0}, {"callee", 8, BL, 0}, {"callee", 4, BL, 0}});
    EXPECT_EQ(
        text(advise_field_filled(neighbours.site(2))),
        "the generator has encoded a value in the field | generate the BL with its field zero: 0x94000000");
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
}

} // namespace
