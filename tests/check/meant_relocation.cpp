#include "check/meant_relocation.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <elf.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;
namespace a64 = support::a64;

constexpr std::int32_t ADR = R_AARCH64_ADR_PREL_LO21;
constexpr std::int32_t ADRP = R_AARCH64_ADR_PREL_PG_HI21;
constexpr std::int32_t ADD = R_AARCH64_ADD_ABS_LO12_NC;
constexpr std::int32_t BL = R_AARCH64_CALL26;

// A kernel "k" with relocations, the first of which may be wrong.
struct broken_kernel {
    std::string name = "k";
    std::vector<std::uint8_t> code;
    std::vector<tessjit::reloc_info> relocs;

    broken_kernel(const std::vector<std::uint32_t>& words, std::vector<tessjit::reloc_info> with)
        : code(support::code(words)), relocs(std::move(with))
    {
    }
    [[nodiscard]] relocation_site site(std::size_t index = 0) const { return {name, code, relocs, index}; }
};

// An instruction as "mnemonic offset"; "none" if there is none.
std::string text(const std::optional<fillable_instruction>& found)
{
    return found ? std::string(found->kind->instruction) + " " + std::to_string(found->offset) : "none";
}

std::string waiting(const broken_kernel& kernel)
{
    return text(find_waiting_instruction(kernel.site(), kernel.relocs[0].name));
}

std::string meant(const broken_kernel& kernel)
{
    return text(find_meant_instruction(kernel.site(), kernel.relocs[0].name));
}

TEST(WaitingInstruction, IsTheNearestWithAZeroFieldAndNoRelocation)
{
    EXPECT_EQ(waiting({{a64::nop(), a64::bl(), a64::ret()}, {{"f", 0, BL, 0}}}), "BL 4");
    EXPECT_EQ(waiting({{a64::bl(), a64::nop(), a64::ret()}, {{"f", 4, BL, 0}}}), "BL 0");
    EXPECT_EQ(waiting({{a64::bl(), a64::bl() | 1, a64::nop()}, {{"f", 8, BL, 0}}}), "BL 0")
        << "the nearer one is filled";
    EXPECT_EQ(waiting({{a64::bl(), a64::bl(), a64::nop()}, {{"f", 8, BL, 0}, {"g", 4, BL, 0}}}), "BL 0")
        << "the nearer one has a relocation";
    EXPECT_EQ(waiting({{a64::bl(), a64::nop(), a64::bl()}, {{"f", 4, BL, 0}}}), "BL 0")
        << "of two at the same distance the first";
    EXPECT_EQ(waiting({{a64::nop(), a64::bl()}, {{"f", 2, BL, 0}}}), "BL 4") << "an unaligned offset";
    EXPECT_EQ(waiting({{a64::bl()}, {{"f", 4, BL, 0}}}), "BL 0") << "an offset past the end";
    EXPECT_EQ(waiting({{a64::bl()}, {{"f", -4, BL, 0}}}), "BL 0") << "a negative offset";
    EXPECT_EQ(waiting({{a64::bl()}, {{"f", 0, BL, 0}}}), "none") << "its own instruction";
}

TEST(WaitingInstruction, IsAtMostFourInstructionsAway)
{
    const auto after = [](std::size_t distance) {
        std::vector<std::uint32_t> words(distance, a64::nop());
        words.push_back(a64::bl());
        return waiting({words, {{"f", 0, BL, 0}}});
    };
    EXPECT_EQ(after(4), "BL 16");
    EXPECT_EQ(after(5), "none");
}

TEST(WaitingInstruction, IsPreferablyOfTheRelocationsKind)
{
    EXPECT_EQ(waiting({{a64::nop(), a64::adr(0), a64::bl()}, {{"f", 0, BL, 0}}}), "BL 8");
    EXPECT_EQ(waiting({{a64::nop(), a64::adr(0), a64::adrp(0)}, {{"f", 0, BL, 0}}}), "ADR 4")
        << "the nearest of other kinds";
}

TEST(WaitingInstruction, CanHaveTheTarget)
{
    EXPECT_EQ(waiting({{a64::nop(), a64::bl(), a64::adr(0)}, {{".rodata.k", 0, BL, 0}}}), "ADR 8");
    EXPECT_EQ(waiting({{a64::nop(), a64::bl()}, {{".rodata.k", 0, BL, 0}}}), "none");
}

// ADD of zero to or from SP is MOV.
TEST(WaitingInstruction, IsNotAMoveOfTheStackPointer)
{
    EXPECT_EQ(waiting({{a64::nop(), a64::add(1, 2, 0)}, {{".rodata.k", 0, ADD, 0}}}), "ADD 4");
    EXPECT_EQ(waiting({{a64::nop(), a64::add(29, a64::stack_pointer, 0)}, {{".rodata.k", 0, ADD, 0}}}),
              "none");
    EXPECT_EQ(waiting({{a64::nop(), a64::add(a64::stack_pointer, 29, 0)}, {{".rodata.k", 0, ADD, 0}}}),
              "none");
}

TEST(GeneratedWord, IsTheAlignedWordInsideTheCode)
{
    const std::vector<std::uint32_t> words = {a64::nop(), a64::ret()};
    const auto at = [&](std::int32_t offset) {
        return generated_word(broken_kernel(words, {{"f", offset, BL, 0}}).site());
    };
    EXPECT_EQ(at(0), a64::nop());
    EXPECT_EQ(at(4), a64::ret());
    EXPECT_EQ(at(2), std::nullopt);
    EXPECT_EQ(at(8), std::nullopt);
    EXPECT_EQ(at(-4), std::nullopt);
}

TEST(KindOfMeant, AllowsAProvisionalValueExceptInAnAdd)
{
    const auto name = [](std::uint32_t word) {
        const relocation_kind* const kind = kind_of_meant(word);
        return std::string(kind == nullptr ? "none" : kind->instruction);
    };
    EXPECT_EQ(name(a64::bl() | 1), "BL");
    EXPECT_EQ(name(a64::adr(0) | 1 << 5), "ADR");
    EXPECT_EQ(name(a64::adrp(0) | 1 << 29), "ADRP");
    EXPECT_EQ(name(a64::add(1, 1, 0)), "ADD");
    EXPECT_EQ(name(a64::add(1, 1, 1)), "none");
    EXPECT_EQ(name(a64::add(29, a64::stack_pointer, 0)), "none");
    EXPECT_EQ(name(a64::ret()), "none");
}

TEST(ExchangedRelocation, HasTheInstructionOfTheOther)
{
    const auto found = [](const broken_kernel& kernel) { return find_exchanged(kernel.site()); };
    EXPECT_EQ(found({{a64::adr(0), a64::bl()}, {{".rodata.k", 4, ADR, 0}, {"f", 0, BL, 0}}}), 1U);
    EXPECT_EQ(found({{a64::adr(0), a64::bl(), a64::bl()},
                     {{".rodata.k", 4, ADR, 0}, {"g", 8, BL, 0}, {"f", 0, BL, 0}}}),
              2U);
    EXPECT_EQ(found({{a64::adr(0), a64::bl()}, {{".rodata.k", 0, ADR, 0}, {"f", 4, BL, 0}}}), std::nullopt)
        << "both are right";
    EXPECT_EQ(found({{a64::adr(0), a64::bl()}, {{".rodata.k", 4, ADR, 0}, {"f", 4, BL, 0}}}), std::nullopt)
        << "the other is right";
    EXPECT_EQ(found({{a64::nop(), a64::bl()}, {{"f", 0, BL, 0}, {"g", 4, ADR, 0}}}), std::nullopt)
        << "no instruction of a kind";
}

TEST(MeantInstruction, IsItsOwnIfThatNeedsARelocation)
{
    EXPECT_EQ(meant({{a64::adr(0), a64::bl()}, {{"f", 0, BL, 0}}}), "ADR 0");
    EXPECT_EQ(meant({{a64::adr(0), a64::bl()}, {{"f", 0, BL, 0}, {".rodata.k", 0, ADR, 0}}}), "BL 4")
        << "its own has a relocation of its kind";
    EXPECT_EQ(meant({{a64::adr(0), a64::bl()}, {{"f", 0, BL, 0}, {"g", 0, BL, 0}}}), "ADR 0")
        << "its own has another relocation of a wrong kind";
    EXPECT_EQ(meant({{a64::bl(), a64::adr(0)}, {{".rodata.k", 0, ADR, 0}}}), "ADR 4")
        << "a BL cannot call constants";
}

TEST(MeantInstruction, IsOneNearbyRatherThanItsOwnWithAProvisionalValue)
{
    EXPECT_EQ(meant({{a64::bl() | 1, a64::bl()}, {{"f", 0, BL, 0}}}), "BL 4");
    EXPECT_EQ(meant({{a64::bl() | 1, a64::ret()}, {{"f", 0, BL, 0}}}), "BL 0");
    EXPECT_EQ(meant({{a64::ret(), a64::ret()}, {{"f", 0, BL, 0}}}), "none");
}

TEST(CanLeadTo, IsFalseOnlyForACallOfConstants)
{
    for (const std::int32_t type : {ADR, ADRP, ADD, BL}) {
        const relocation_kind& kind = *find_relocation_kind(type);
        EXPECT_TRUE(can_lead_to(kind, "f"));
        EXPECT_EQ(can_lead_to(kind, ".rodata.f"), type != BL);
    }
}

} // namespace
