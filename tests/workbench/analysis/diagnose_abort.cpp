// The reason why a relocation was refused, and the advice.

#include "tests/support/aborts.hpp"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace support;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(DiagnoseAbort, SuggestsTheInstructionNearbyThatHasNoRelocation)
{
    const placed_kernel broken = k({a64::adrp(0), a64::add(0, 0, 0), load, a64::ret()},
                                   {{".rodata.k", 0, 275, 0}, {".rodata.k", 8, R_AARCH64_CALL26, 12}});
    const std::string log = filled("R_AARCH64_CALL26", text_of_k + 8, load, {broken});
    const explained_abort found = explain(log, dumps_of({broken}));
    EXPECT_EQ(found.report, "field-filled");
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.offset, 8);
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.type, 283);
    EXPECT_EQ(found.target, ".rodata.k");
    EXPECT_EQ(found.addend, 12);
    EXPECT_EQ(found.distance, 0x400 + 12 - 8);
    ASSERT_TRUE(found.range);
    EXPECT_EQ(found.range->least, -134217728);
    EXPECT_EQ(found.range->greatest, 134217727);
    EXPECT_EQ(found.dump, 0U);
    EXPECT_EQ(found.message,
              "relocation R_AARCH64_CALL26 against '.rodata.k'+0xc: field not zero in 0xb9400000");
    EXPECT_EQ(found.cause, "the ADD at +0x4 has no relocation");
    EXPECT_EQ(found.help, "use {\".rodata.k\", 4, 277, 12}");
    EXPECT_THAT(found.notes, IsEmpty());

    const explained_abort without = explain(log);
    EXPECT_EQ(without.kernel, "k");
    EXPECT_EQ(without.offset, 8);
    EXPECT_EQ(without.type, 283);
    EXPECT_EQ(without.relocation, std::nullopt);
    EXPECT_EQ(without.target, std::nullopt);
    EXPECT_EQ(without.distance, std::nullopt);
    EXPECT_EQ(without.dump, std::nullopt);
    EXPECT_EQ(without.cause, "the instruction there is ldr w0, [x0]");
    EXPECT_EQ(without.help, "give the relocation the offset of the BL that it is for");
}

TEST(DiagnoseAbort, PrefersAnInstructionOfTheRelocationsKindNearby)
{
    constexpr std::uint32_t mov_from_sp = 0x910003fd; // mov x29, sp
    const placed_kernel broken =
        k({a64::bl(), mov_from_sp, load, a64::adrp(0), a64::nop()}, {{"k", 8, R_AARCH64_CALL26, 0}});
    EXPECT_EQ(explain(filled("R_AARCH64_CALL26", text_of_k + 8, load, {broken}), dumps_of({broken})).help,
              "use {\"k\", 0, 283, 0}");
    const placed_kernel taken =
        k({a64::bl(), load, a64::nop(), a64::bl()}, {{"k", 0, 283, 8}, {"k", 4, 283, 0}});
    EXPECT_EQ(explain(filled("R_AARCH64_CALL26", text_of_k + 4, load, {taken}), dumps_of({taken})).help,
              "use {\"k\", 12, 283, 0}");
    const placed_kernel data = k({a64::bl(), mov_from_sp, load, a64::nop(), a64::adrp(0)},
                                 {{".rodata.k", 8, R_AARCH64_ADR_PREL_LO21, 0}});
    EXPECT_EQ(explain(filled("R_AARCH64_ADR_PREL_LO21", text_of_k + 8, load, {data}), dumps_of({data})).help,
              "use {\".rodata.k\", 16, 275, 0}");
}

TEST(DiagnoseAbort, SuggestsTheTypeOfTheInstruction)
{
    const placed_kernel broken = k({a64::adrp(3), a64::ret()}, {{".rodata.k", 0, R_AARCH64_CALL26, 0}});
    const explained_abort found =
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::adrp(3), {broken}), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the relocation is for a BL, the instruction is an ADRP");
    EXPECT_EQ(found.help, "use {\".rodata.k\", 0, 275, 0}");
}

TEST(DiagnoseAbort, NamesTwoRelocationsOfOneInstruction)
{
    const placed_kernel broken = k({a64::adr(3), a64::nop(), a64::nop(), a64::nop(), a64::nop(), a64::ret()},
                                   {{"k", 0, 274, 16}, {"k", 0, 274, 16}});
    const std::string log = filled("R_AARCH64_ADR_PREL_LO21", text_of_k, a64::adr(3) | 16 / 4 << 5, {broken});
    const explained_abort found = explain(log, dumps_of({broken}));
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.cause, "relocation 1 has filled it: two relocations for one instruction");
    EXPECT_EQ(found.help, "remove one of the relocations 1 and 2");
    ASSERT_EQ(found.matches.size(), 2U);
    EXPECT_EQ(found.matches[0].relocation, 0U);
    EXPECT_EQ(found.matches[1].relocation, 1U);

    // One of the two was meant for the next instruction.
    const placed_kernel two = k({a64::adr(3), a64::adr(4), a64::nop(), a64::nop(), a64::ret()},
                                {{"k", 0, 274, 16}, {".rodata.k", 0, 274, 4}});
    const explained_abort next = explain(log, dumps_of({two}));
    EXPECT_EQ(next.relocation, 1U);
    EXPECT_EQ(
        next.cause,
        "relocation 1 has filled it: two relocations for one instruction; the ADR at +0x4 has no relocation");
    EXPECT_EQ(next.help, "use {\".rodata.k\", 4, 274, 4}");
}

TEST(DiagnoseAbort, KnowsALinkedFieldWithoutDumps)
{
    const placed_kernel broken = k({a64::bl(), a64::ret()}, {});
    const placed_kernel callee = kernel("callee", text_of_k + 0x100, {a64::ret()}, data_of_k);
    const explained_abort linked =
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::bl() | 0x100 / 4, {callee, broken}));
    EXPECT_EQ(linked.cause, "two relocations for one instruction: it leads to 'callee' already");
    const explained_abort back =
        explain(filled("R_AARCH64_CALL26", text_of_k + 4, 0x97ffffff, {callee, broken}));
    EXPECT_EQ(back.cause, "two relocations for one instruction: it leads to 'k' already");
    const placed_kernel distant =
        kernel("distant", text_of_k + 0x3000000, {a64::ret()}, text_of_k + 0x3000020);
    EXPECT_EQ(
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::bl() | 0x3000000 / 4, {broken, distant})).cause,
        "two relocations for one instruction: it leads to 'distant' already");
    const explained_abort page =
        explain(filled("R_AARCH64_ADR_PREL_PG_HI21", text_of_k, 0xb0000000,
                       {kernel("p", text_of_k + 0x1000, {a64::ret()}, 0x800000), broken}));
    EXPECT_EQ(page.cause, "two relocations for one instruction: it leads to 'p' already");
    const explained_abort other =
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::bl() | 0x104 / 4, {callee, broken}));
    EXPECT_EQ(other.cause,
              "two relocations for one instruction, or the generator has encoded a value in the field");
}

TEST(DiagnoseAbort, ShowsTheWordToGenerateInPlaceOfAFilledField)
{
    const placed_kernel broken = k({a64::nop(), a64::add(1, 1, 0x10)}, {{".rodata.k", 4, 277, 0}});
    const explained_abort found =
        explain(filled("R_AARCH64_ADD_ABS_LO12_NC", text_of_k + 4, a64::add(1, 1, 0x10), {broken}),
                dumps_of({broken}));
    EXPECT_EQ(found.cause, "the generator has encoded a value in the field");
    EXPECT_EQ(found.help, "generate the ADD with its field zero: 0x91000021");
    EXPECT_EQ(found.distance, std::nullopt); // X of an ADD is not a distance
    EXPECT_FALSE(found.range);

    // The finaliser tests all bits of a BL's field but the highest, which would make the call lead elsewhere.
    const placed_kernel back = k({0x97fffff0, a64::ret()}, {{"k", 0, 283, 4}});
    const explained_abort call =
        explain(filled("R_AARCH64_CALL26", text_of_k, 0x97fffff0, {back}), dumps_of({back}));
    EXPECT_EQ(call.cause, "the generator has encoded a value in the field");
    EXPECT_EQ(call.help, "generate the BL with its field zero: 0x94000000");
}

struct misplaced {
    std::int32_t type;
    std::uint32_t word;
    std::string target;
    std::string help;
};

class HelpByInstruction : public testing::TestWithParam<misplaced> {};

TEST_P(HelpByInstruction, IsTheRelocationOfTheInstruction)
{
    const misplaced& given = GetParam();
    const placed_kernel callee = kernel("callee", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const placed_kernel broken = k({a64::nop(), given.word, a64::ret()}, {{given.target, 4, given.type, 8}});
    const bool known = given.type == 274 || given.type == 275 || given.type == 283;
    const explained_abort found = explain(known ? filled(given.type == 274   ? "R_AARCH64_ADR_PREL_LO21"
                                                         : given.type == 275 ? "R_AARCH64_ADR_PREL_PG_HI21"
                                                                             : "R_AARCH64_CALL26",
                                                         text_of_k + 4, given.word, {callee, broken})
                                                : bare("false && \"unhandled reloc type\""),
                                          dumps_of({callee, broken}, {1, 2}));
    EXPECT_EQ(found.help, given.help) << found.cause;
}

const std::string own_data = ".rodata.k";
constexpr std::uint32_t provisional_bl = 0x97ffffc0;
INSTANTIATE_TEST_SUITE_P(
    EveryType, HelpByInstruction,
    testing::Values(
        // Types for loads and stores, data and the GOT, at an instruction that one of the four types fills.
        misplaced{278, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{284, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{285, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{286, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{299, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{312, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{276, a64::adrp(9), own_data, "use {\".rodata.k\", 4, 275, 8}"},
        misplaced{311, a64::adrp(9), own_data, "use {\".rodata.k\", 4, 275, 8}"},
        misplaced{273, a64::adr(9), own_data, "use {\".rodata.k\", 4, 274, 8}"},
        misplaced{257, a64::adr(9), own_data, "use {\".rodata.k\", 4, 274, 8}"},
        misplaced{1000, a64::adr(9), own_data, "use {\".rodata.k\", 4, 274, 8}"},
        misplaced{279, a64::bl(), "callee", "use {\"callee\", 4, 283, 8}"},
        misplaced{280, a64::bl(), "callee", "use {\"callee\", 4, 283, 8}"},
        misplaced{282, a64::bl(), "callee", "use {\"callee\", 4, 283, 8}"},
        misplaced{282, provisional_bl, "callee",
                  "use {\"callee\", 4, 283, 8}, and generate the BL with its field zero: 0x94000000"},
        misplaced{276, 0xb0000009, own_data,
                  "use {\".rodata.k\", 4, 275, 8}, and generate the ADRP with its field zero: 0x90000009"},
        // The same types at the instruction that they are for.
        misplaced{286, 0xf9400120, own_data, "complete the address with an ADD (277) and load from it"},
        misplaced{312, 0xf9400120, own_data, "there is no GOT: use ADRP (275) and ADD (277)"},
        misplaced{273, 0x58000009, own_data,
                  "form the address with ADRP (275) and ADD (277) and load from it"},
        misplaced{282, 0x14000000, "callee",
                  "call with BL (283), or form the address with ADRP and ADD and use BR"},
        misplaced{280, 0x54000000, "callee", "branch within the kernel, over a BL if need be"},
        misplaced{279, 0x36000000, "callee", "branch within the kernel, over a BL if need be"},
        misplaced{257, 0, own_data, "form the address in code, with ADRP (275) and ADD (277)"},
        // An ADD of a number, and MOV from SP, have no relocation.
        misplaced{278, a64::add(9, 9, 16), own_data,
                  "complete the address with an ADD (277) and load from it"},
        misplaced{278, 0x910003fd, own_data, "complete the address with an ADD (277) and load from it"},
        misplaced{1000, a64::nop(), own_data, "use 274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL"},
        // A BL calls no constants.
        misplaced{
            282, a64::bl(), own_data,
            "name the kernel that it calls, with type 283, or give the relocation the offset of the instruction that it is for"},
        // The four types at each other's instructions.
        misplaced{274, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{275, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{283, a64::add(9, 9, 0), own_data, "use {\".rodata.k\", 4, 277, 8}"},
        misplaced{283, a64::adr(9), "callee", "use {\"callee\", 4, 274, 8}"},
        misplaced{283, a64::adrp(9), "callee", "use {\"callee\", 4, 275, 8}"},
        misplaced{274, provisional_bl, "callee",
                  "use {\"callee\", 4, 283, 8}, and generate the BL with its field zero: 0x94000000"},
        misplaced{274, load, own_data, "give the relocation the offset of the ADR that it is for"},
        misplaced{275, load, own_data, "give the relocation the offset of the ADRP that it is for"},
        misplaced{283, load, "callee", "give the relocation the offset of the BL that it is for"}));

TEST(DiagnoseAbort, FindsTheInstructionOfAnUnsupportedType)
{
    const placed_kernel broken = k({a64::adrp(9), load, a64::add(9, 9, 0)},
                                   {{own_data, 0, 275, 0}, {own_data, 4, 277, 0}, {own_data, 4, 1000, 4}});
    const explained_abort found = explain(bare("false && \"unhandled reloc type\""), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the ADD at +0x8 has no relocation");
    EXPECT_EQ(found.help, "use {\".rodata.k\", 8, 277, 4}");
}

TEST(DiagnoseAbort, CorrectsExchangedOffsets)
{
    const placed_kernel broken =
        k({a64::adrp(9), a64::add(9, 9, 0), a64::ret()}, {{own_data, 0, 277, 8}, {own_data, 4, 275, 8}});
    const explained_abort found = explain(
        filled("R_AARCH64_ADR_PREL_PG_HI21", text_of_k + 4, a64::add(9, 9, 0), {broken}), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the offsets of relocations 1 and 2 are exchanged");
    EXPECT_EQ(found.help, "use {\".rodata.k\", 0, 275, 8}, {\".rodata.k\", 4, 277, 8}");
    const placed_kernel reversed =
        k({a64::adrp(9), a64::add(9, 9, 0), a64::ret()}, {{own_data, 4, 275, 8}, {own_data, 0, 277, 8}});
    EXPECT_EQ(explain(filled("R_AARCH64_ADR_PREL_PG_HI21", text_of_k + 4, a64::add(9, 9, 0), {reversed}),
                      dumps_of({reversed}))
                  .help,
              found.help);
}

TEST(DiagnoseAbort, CorrectsTheTypeOfAMisspeltTarget)
{
    const placed_kernel broken = k({a64::add(9, 9, 0)}, {{".rodata.kk", 0, 286, 4}});
    const explained_abort found = explain(bare("reloc.name.substr(8) == fn_name"), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the name may be misspelt; +0x0 has an ADD");
    EXPECT_EQ(found.help, "use {\".rodata.k\", 0, 277, 4}");
    const placed_kernel prefix = k({a64::adrp(9)}, {{".rodata", 0, 276, 4}});
    EXPECT_EQ(explain(bare("it != kernel_registry.end()"), dumps_of({prefix})).help,
              "use {\".rodata.k\", 0, 275, 4}");
}

TEST(DiagnoseAbort, LooksAtTheInstructionOfAValueOutOfRange)
{
    // An ADR's relocation at an ADRP, whose range includes the constants.
    placed_kernel broken = k({a64::adrp(0), a64::ret()}, {{own_data, 0, 274, 8}});
    broken.data_address = text_of_k + 0x150000;
    const std::string log =
        out_of_range("R_AARCH64_ADR_PREL_LO21", "1M", broken.data_address + 8, text_of_k, {broken});
    EXPECT_EQ(explain(log, dumps_of({broken})).cause,
              "the relocation is for an ADR, the instruction is an ADRP");
    EXPECT_EQ(explain(log, dumps_of({broken})).help, "use {\".rodata.k\", 0, 275, 8}");
    // A call's at an ADRP, and at an ADR, against constants that are not 4-byte aligned.
    for (const auto& [word, advice] : {std::pair(a64::adrp(0), "use {\".rodata.k\", 0, 275, 1}"),
                                       std::pair(a64::adr(0), "use {\".rodata.k\", 0, 274, 1}")}) {
        const placed_kernel call = k({word, a64::ret()}, {{own_data, 0, 283, 1}});
        EXPECT_EQ(explain(out_of_range("R_AARCH64_CALL26", "128M", data_of_k + 1, text_of_k, {call}),
                          dumps_of({call}))
                      .help,
                  advice);
    }
    // An ADRP's at an ADR, whose range is even smaller.
    placed_kernel far = k({a64::adr(0), a64::ret()}, {{own_data, 0, 275, 0}});
    far.data_address = text_of_k + 0x200000000;
    EXPECT_THAT(explain(out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far.data_address, text_of_k, {far}),
                        dumps_of({far}))
                    .help,
                HasSubstr("close in time"));
}

TEST(DiagnoseAbort, NamesAnOffsetThatIsNotOfAnInstruction)
{
    const placed_kernel broken = k({a64::nop(), a64::nop(), a64::ret()}, {{"k", 6, 283, 0}});
    const std::string log = filled("R_AARCH64_CALL26", text_of_k + 6, 0x201fd503, {broken});
    for (const explained_abort& found : {explain(log), explain(log, dumps_of({broken}))}) {
        EXPECT_EQ(found.offset, 6);
        EXPECT_EQ(found.cause, "the offset 6 is not that of an instruction");
    }
}

TEST(DiagnoseAbort, NamesATargetInAnotherMapping)
{
    constexpr std::uint64_t far = text_of_k + 0x90000000; // 2.25 GiB
    const placed_kernel callee = kernel("wfta_short_7", far, {a64::ret()}, far + 32);
    const placed_kernel broken = k({a64::nop(), a64::bl()}, {{"wfta_short_7", 4, 283, 0}});
    const std::string log = out_of_range("R_AARCH64_CALL26", "128M", far, text_of_k + 4, {broken, callee});
    for (const explained_abort& found : {explain(log), explain(log, dumps_of({broken, callee}))}) {
        EXPECT_EQ(found.report, "range");
        EXPECT_EQ(found.kernel, "k");
        EXPECT_EQ(found.offset, 4);
        EXPECT_EQ(found.type, 283);
        EXPECT_EQ(found.target, "wfta_short_7");
        EXPECT_EQ(found.addend, 0);
        EXPECT_EQ(found.distance, 0x8ffffffc);
        EXPECT_EQ(
            found.message,
            "relocation R_AARCH64_CALL26 against 'wfta_short_7' out of range: 2415919100 is not in [-134217728, 134217727]");
        EXPECT_EQ(found.cause, "'wfta_short_7' is in the mapping of another call");
        EXPECT_EQ(found.help, "finalise both in one set, or load the address with ADRP and ADD and use BLR");
    }
}

TEST(DiagnoseAbort, AdvisesAPairForConstantsOutOfRangeOfAdr)
{
    placed_kernel broken = k({a64::adr(0), a64::ret()}, {{".rodata.k", 0, 274, 8}});
    broken.data_address = text_of_k + 0x150000; // 1.31 MiB
    const std::string log =
        out_of_range("R_AARCH64_ADR_PREL_LO21", "1M", broken.data_address + 8, text_of_k, {broken});
    for (const explained_abort& found : {explain(log), explain(log, dumps_of({broken}))}) {
        EXPECT_EQ(found.target, ".rodata.k");
        EXPECT_EQ(found.addend, 8);
        EXPECT_EQ(found.distance, 0x150008);
        EXPECT_EQ(found.range->least, -0x100000);
        EXPECT_EQ(found.range->greatest, 0xfffff);
        EXPECT_EQ(
            found.message,
            "relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.k'+0x8 out of range: 1376264 is not in [-1048576, 1048575]");
        EXPECT_EQ(found.cause, "constants come after the code of the whole set");
        EXPECT_THAT(found.help, HasSubstr("use ADRP (275) and ADD (277)"));
    }
}

TEST(DiagnoseAbort, NamesAnAddendBetweenInstructions)
{
    const placed_kernel broken = k({a64::nop(), a64::bl(), a64::ret()}, {{"k", 4, 283, 2}});
    const std::string log = out_of_range("R_AARCH64_CALL26", "128M", text_of_k + 2, text_of_k + 4, {broken});
    for (const explained_abort& found : {explain(log), explain(log, dumps_of({broken}))}) {
        EXPECT_EQ(found.target, "k");
        EXPECT_EQ(found.addend, 2);
        EXPECT_EQ(found.distance, -2);
        EXPECT_EQ(found.message,
                  "relocation R_AARCH64_CALL26 against 'k'+0x2 misaligned: -2 is not a multiple of 4");
        EXPECT_EQ(found.cause, "the addend 2 leads between two instructions of 'k'");
    }
    const placed_kernel data = k({a64::bl()}, {{".rodata.k", 0, 283, 1}});
    EXPECT_EQ(explain(out_of_range("R_AARCH64_CALL26", "128M", data_of_k + 1, text_of_k, {data})).cause,
              "a BL to constants");
    const placed_kernel odd = k({a64::bl(), a64::nop()}, {{"k", 2, 283, 0}});
    EXPECT_EQ(explain(out_of_range("R_AARCH64_CALL26", "128M", text_of_k, text_of_k + 2, {odd})).cause,
              "the offset 2 is not that of an instruction");
}

TEST(DiagnoseAbort, NamesALargeAddend)
{
    const placed_kernel broken = k({a64::adr(1)}, {{".rodata.k", 0, 274, 0x200000}});
    const explained_abort found =
        explain(out_of_range("R_AARCH64_ADR_PREL_LO21", "1M", data_of_k + 0x200000, text_of_k, {broken}),
                dumps_of({broken}));
    EXPECT_EQ(found.cause, "the addend 2097152 leads far away from '.rodata.k'");
}

TEST(DiagnoseAbort, AsksForDumpsIfThereIsNoMessage)
{
    const std::pair<const char*, const char*> reports[] = {
        {"it != kernel_registry.end()", "unknown-target"},
        {"reloc.name.substr(8) == fn_name", "foreign-data"},
        {"false && \"unhandled reloc type\"", "unhandled-type"}};
    for (const auto& [expression, id] : reports) {
        const explained_abort found = explain(bare(expression));
        EXPECT_EQ(found.report, id);
        EXPECT_EQ(found.kernel, std::nullopt);
        EXPECT_EQ(found.type, std::nullopt);
        EXPECT_EQ(
            found.help,
            "run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps");
    }
}

TEST(DiagnoseAbort, TellsMisspeltTargetsFromMissingKernels)
{
    const std::string log = bare("it != kernel_registry.end()");
    const placed_kernel callee = kernel("wfta_short_3", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const auto with_target = [&](const std::string& name) {
        return explain(log, dumps_of({callee, k({a64::bl()}, {{name, 0, 283, 4}})}));
    };
    const explained_abort misspelt = with_target("wfta_shor_3");
    EXPECT_EQ(misspelt.report, "unknown-target");
    EXPECT_EQ(misspelt.target, "wfta_shor_3");
    EXPECT_EQ(misspelt.message, "relocation R_AARCH64_CALL26 against 'wfta_shor_3'+0x4: target not found");
    EXPECT_EQ(misspelt.cause, "the name may be misspelt: there is 'wfta_short_3'");
    EXPECT_EQ(misspelt.help, "use {\"wfta_short_3\", 0, 283, 4}, or place 'wfta_shor_3' before 'k'");
    const explained_abort missing = with_target("wfta_short_5");
    EXPECT_EQ(missing.cause, "");
    EXPECT_EQ(missing.help, "place 'wfta_short_5' before 'k', with the same registry");
    EXPECT_EQ(with_target(".rodata").cause, "constants are named .rodata. and the kernel's name");
    EXPECT_EQ(with_target(".rodata").help, "use {\".rodata.k\", 0, 283, 4}");
}

TEST(DiagnoseAbort, SuspectsTheOrderIfAnEarlierRunDumpedTheTarget)
{
    const placed_kernel stale = kernel("later", 0x901000, {a64::ret()}, 0x901020);
    const placed_kernel broken = k({a64::bl(), a64::bl()}, {{"k", 0, 283, 0}, {"later", 4, 283, 0}});
    const explained_abort found =
        explain(bare("it != kernel_registry.end()"), dumps_of({broken, stale}, {2, 1}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.cause, "there is a dump of 'later', of another run or of another registry");
    EXPECT_EQ(found.help, "place 'later' before 'k', with the same registry");
}

TEST(DiagnoseAbort, KnowsACalleeThatComesLaterInTheSet)
{
    // The callee's dump is from an earlier run, in which the kernel did not call it.
    const placed_kernel callee = kernel("later", text_of_k + 32, {a64::ret()}, data_of_k + 64);
    const placed_kernel broken = k({a64::nop(), a64::bl()}, {{"later", 4, 283, 0}});
    const explained_abort found =
        explain(bare("it != kernel_registry.end()"), dumps_of({broken, callee}, {2, 1}));
    EXPECT_EQ(found.report, "unknown-target");
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 0U);
    EXPECT_EQ(found.message,
              "relocation R_AARCH64_CALL26 against 'later': the kernel comes later in the set");
    EXPECT_EQ(found.help, "place 'later' before 'k'");
}

TEST(DiagnoseAbort, TellsRenamedKernelsFromBorrowedConstants)
{
    const std::string log = bare("reloc.name.substr(8) == fn_name");
    const placed_kernel owner = kernel("owner", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const explained_abort borrowed =
        explain(log, dumps_of({owner, k({a64::adrp(0)}, {{".rodata.owner", 0, 275, 0}})}));
    EXPECT_EQ(borrowed.message,
              "relocation R_AARCH64_ADR_PREL_PG_HI21 against '.rodata.owner': constants of another kernel");
    EXPECT_EQ(borrowed.cause, "a kernel can address only its own constants");
    EXPECT_THAT(borrowed.help, HasSubstr("give 'k' a copy of them"));
    EXPECT_EQ(borrowed.distance, std::nullopt);
    const explained_abort renamed =
        explain(log, dumps_of({owner, k({a64::adrp(0)}, {{".rodata.old", 0, 275, 0}})}));
    EXPECT_EQ(renamed.cause, "there is no kernel 'old': 'k' may have been renamed");
    EXPECT_EQ(renamed.help, "use {\".rodata.k\", 0, 275, 0}");
    EXPECT_EQ(explain(log, dumps_of({owner, k({a64::adrp(0)}, {{".rodata.kk", 0, 275, 0}})})).cause,
              "the name may be misspelt");
}

TEST(DiagnoseAbort, NamesATargetAtAddressNull)
{
    placed_kernel null = kernel("null", 0, {}, 0);
    null.data.clear();
    const placed_kernel broken = k({a64::bl(), a64::bl()}, {{"host's", 0, 283, 0}, {"null", 4, 283, 0}});
    const explained_abort found = explain(bare("target_addr"), dumps_of({null, broken}, {1, 2}));
    EXPECT_EQ(found.report, "null-target");
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.message, "relocation R_AARCH64_CALL26 against 'null': the target's address is null");
}

TEST(DiagnoseAbort, SaysWhatToUseForAnUnsupportedType)
{
    const std::string log = bare("false && \"unhandled reloc type\"");
    const auto with_type = [&](std::int32_t type) {
        return explain(log, dumps_of({k({a64::adrp(0)}, {{"k", 0, type, 0}})}));
    };
    const explained_abort jump = with_type(R_AARCH64_JUMP26);
    EXPECT_EQ(jump.type, 282);
    EXPECT_FALSE(jump.range);
    EXPECT_EQ(jump.message, "relocation R_AARCH64_JUMP26 (type 282) against 'k': type not supported");
    EXPECT_EQ(jump.cause, "the relocation has type 282, the instruction is an ADRP");
    EXPECT_EQ(jump.help, "use {\"k\", 0, 275, 0}");
    const explained_abort number = with_type(5);
    EXPECT_EQ(number.message, "relocation type 5 against 'k': type not supported");
    EXPECT_EQ(number.cause, "the relocation has type 5, the instruction is an ADRP");
    EXPECT_EQ(number.help, "use {\"k\", 0, 275, 0}");
}

TEST(DiagnoseAbort, TakesAMissingMessageFromTheDumps)
{
    const std::string log = assertion(support::dump_signature, "false");
    const placed_kernel filled_one = k({a64::nop(), load}, {{"k", 4, 283, 0}});
    const explained_abort filled = explain(log, dumps_of({filled_one}));
    EXPECT_EQ(filled.report, "field-filled");
    EXPECT_EQ(filled.offset, 4);
    EXPECT_EQ(filled.message, "relocation R_AARCH64_CALL26 against 'k': field not zero in 0xb9400000");
    const placed_kernel far_one = k({a64::nop(), a64::bl()}, {{"k", 4, 283, 2}});
    const explained_abort range = explain(log, dumps_of({far_one}));
    EXPECT_EQ(range.report, "range");
    EXPECT_EQ(range.distance, -2);
    EXPECT_EQ(range.range->greatest, 134217727);
    const explained_abort without = explain(log);
    EXPECT_EQ(without.report, "");
    EXPECT_EQ(without.message, "a relocation was refused");
}

} // namespace
