// What a report means: where, why, and what to do.

#include "workbench/analysis/abort_explanation.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/kernels.hpp"

#include <elf.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace a64 = support::a64;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorna::workbench::abort_explanation;
using vorna::workbench::abort_log;
using vorna::workbench::dumps_of_process;
using vorna::workbench::placed_kernel;

constexpr std::uint64_t text_of_k = 0x7f0000;
constexpr std::uint64_t data_of_k = 0x7f0400;
constexpr std::uint32_t load = 0xb9400000; // ldr w0, [x0]

placed_kernel kernel(const std::string& name, std::uint64_t text, const std::vector<std::uint32_t>& words,
                     std::uint64_t data, std::vector<tessjit::reloc_info> relocs = {})
{
    return {name, text, support::code(words), data, std::vector<std::uint8_t>(64, 1), std::move(relocs),
            0,    ""};
}

// The kernel "k" that the tests break.
placed_kernel k(const std::vector<std::uint32_t>& words, std::vector<tessjit::reloc_info> relocs)
{
    return kernel("k", text_of_k, words, data_of_k, std::move(relocs));
}

std::string listing_of(const std::vector<placed_kernel>& kernels)
{
    std::string text;
    for (const placed_kernel& kernel : kernels)
        text += fmt::format("  {} \t {:#x} {:#x} {:#x} {:#x}\n", kernel.name, kernel.text_address,
                            kernel.text.size(), kernel.data_address, kernel.data.size());
    return text;
}

std::string assertion(const char* function, const std::string& expression)
{
    return fmt::format("planner: fft/SRC/wfta/kernel_printer.cpp:49: {}: Assertion `{}' failed.\n", function,
                       expression);
}

std::string bare(const std::string& expression)
{
    return assertion(support::resolve_relocation_signature, expression);
}

std::string filled(const std::string& kind, std::uint64_t place, std::uint32_t word,
                   const std::vector<placed_kernel>& registry)
{
    return fmt::format("resolving {} reloc but dst address {:#x} was already filled, got {:#x}\n", kind,
                       place, word) +
           listing_of(registry) + assertion(support::dump_signature, "false");
}

std::string out_of_range(const std::string& kind, const std::string& reach, std::uint64_t S, std::uint64_t P,
                         const std::vector<placed_kernel>& registry)
{
    return fmt::format("resolving {} reloc but smod does not fit in +/-{}, got {:#x} - {:#x} = {:#x}\n", kind,
                       reach, S, P, S - P) +
           listing_of(registry) + assertion(support::dump_signature, "false");
}

dumps_of_process dumps_of(std::vector<placed_kernel> kernels, std::vector<std::int64_t> written = {})
{
    return {make_kernel_set(std::move(kernels)), std::move(written)};
}

abort_explanation explain(const std::string& text, const dumps_of_process& dumps = {})
{
    const abort_log log = vorna::workbench::read_abort_log(text);
    EXPECT_EQ(log.reports.size(), 1U);
    return log.reports.empty() ? abort_explanation() : explain_report(log, log.reports.front(), dumps);
}

// ---- A field that is filled.

TEST(AnExplanation, OfTheWrongInstructionSuggestsTheOneThatWaits)
{
    const placed_kernel broken = k({a64::adrp(0), a64::add(0, 0, 0), load, a64::ret()},
                                   {{".rodata.k", 0, 275, 0}, {".rodata.k", 8, R_AARCH64_CALL26, 12}});
    const std::string log = filled("R_AARCH64_CALL26", text_of_k + 8, load, {broken});
    const abort_explanation found = explain(log, dumps_of({broken}));
    EXPECT_EQ(found.report, "field-filled");
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.offset, 8);
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.type, 283);
    EXPECT_EQ(found.target, ".rodata.k");
    EXPECT_EQ(found.target_offset, 12);
    EXPECT_EQ(found.distance, 0x400 + 12 - 8);
    ASSERT_TRUE(found.limit);
    EXPECT_EQ(found.limit->least, -134217728);
    EXPECT_EQ(found.limit->greatest, 134217727);
    EXPECT_EQ(found.dump, 0U);
    EXPECT_EQ(found.message, "R_AARCH64_CALL26: the field of 0xb9400000 is not zero");
    EXPECT_EQ(found.cause, "the offset points at ldr w0, [x0]; +0x4 has an ADD and no relocation");
    EXPECT_EQ(found.advice, "{\".rodata.k\", 4, 277, 12}");
    EXPECT_THAT(found.notes, IsEmpty());

    const abort_explanation without = explain(log);
    EXPECT_EQ(without.kernel, "k");
    EXPECT_EQ(without.offset, 8);
    EXPECT_EQ(without.type, 283);
    EXPECT_EQ(without.relocation, std::nullopt);
    EXPECT_EQ(without.target, std::nullopt);
    EXPECT_EQ(without.distance, std::nullopt);
    EXPECT_EQ(without.dump, std::nullopt);
    EXPECT_EQ(without.cause, "the offset points at ldr w0, [x0]");
    EXPECT_EQ(without.advice, "give the relocation the offset of the BL that it is for");
}

TEST(AnExplanation, PrefersAWaitingInstructionOfTheSameKindAndNeverAMoveOfTheStackPointer)
{
    constexpr std::uint32_t mov_from_sp = 0x910003fd; // mov x29, sp
    const placed_kernel broken =
        k({a64::bl(), mov_from_sp, load, a64::adrp(0), a64::nop()}, {{"k", 8, R_AARCH64_CALL26, 0}});
    EXPECT_EQ(explain(filled("R_AARCH64_CALL26", text_of_k + 8, load, {broken}), dumps_of({broken})).advice,
              "{\"k\", 0, 283, 0}");
    const placed_kernel taken =
        k({a64::bl(), load, a64::nop(), a64::bl()}, {{"k", 0, 283, 8}, {"k", 4, 283, 0}});
    EXPECT_EQ(explain(filled("R_AARCH64_CALL26", text_of_k + 4, load, {taken}), dumps_of({taken})).advice,
              "{\"k\", 12, 283, 0}");
    const placed_kernel data = k({a64::bl(), mov_from_sp, load, a64::nop(), a64::adrp(0)},
                                 {{".rodata.k", 8, R_AARCH64_ADR_PREL_LO21, 0}});
    EXPECT_EQ(
        explain(filled("R_AARCH64_ADR_PREL_LO21", text_of_k + 8, load, {data}), dumps_of({data})).advice,
        "{\".rodata.k\", 16, 275, 0}");
}

TEST(AnExplanation, OfTheWrongTypeSuggestsTheTypeOfTheInstruction)
{
    const placed_kernel broken = k({a64::adrp(3), a64::ret()}, {{".rodata.k", 0, R_AARCH64_CALL26, 0}});
    const abort_explanation found =
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::adrp(3), {broken}), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the relocation is for a BL, the instruction is an ADRP");
    EXPECT_EQ(found.advice, "{\".rodata.k\", 0, 275, 0}");
}

TEST(AnExplanation, OfTwoRelocationsNamesBoth)
{
    const placed_kernel broken = k({a64::adr(3), a64::nop(), a64::nop(), a64::nop(), a64::nop(), a64::ret()},
                                   {{"k", 0, 274, 16}, {"k", 0, 274, 16}});
    const std::string log = filled("R_AARCH64_ADR_PREL_LO21", text_of_k, a64::adr(3) | 16 / 4 << 5, {broken});
    const abort_explanation found = explain(log, dumps_of({broken}));
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.cause, "two relocations for one instruction: relocation 1 has filled it");
    EXPECT_EQ(found.advice, "leave one of the relocations 1 and 2 out");
    ASSERT_EQ(found.fits.size(), 2U);
    EXPECT_EQ(found.fits[0].relocation, 0U);
    EXPECT_EQ(found.fits[1].relocation, 1U);

    // One of the two was meant for the next.
    const placed_kernel two = k({a64::adr(3), a64::adr(4), a64::nop(), a64::nop(), a64::ret()},
                                {{"k", 0, 274, 16}, {".rodata.k", 0, 274, 4}});
    const abort_explanation next = explain(log, dumps_of({two}));
    EXPECT_EQ(next.relocation, 1U);
    EXPECT_EQ(next.cause, "two relocations for one instruction: relocation 1 has filled it; +0x4 has an ADR "
                          "and no relocation");
    EXPECT_EQ(next.advice, "{\".rodata.k\", 4, 274, 4}");
}

TEST(AnExplanation, WithoutDumpsTellsALinkedFieldFromAProvisionalOne)
{
    const placed_kernel broken = k({a64::bl(), a64::ret()}, {});
    const placed_kernel callee = kernel("callee", text_of_k + 0x100, {a64::ret()}, data_of_k);
    const abort_explanation linked =
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::bl() | 0x100 / 4, {callee, broken}));
    EXPECT_EQ(linked.cause, "two relocations for one instruction: it leads to callee already");
    const abort_explanation back =
        explain(filled("R_AARCH64_CALL26", text_of_k + 4, 0x97ffffff, {callee, broken}));
    EXPECT_EQ(back.cause, "two relocations for one instruction: it leads to k already");
    const placed_kernel distant =
        kernel("distant", text_of_k + 0x3000000, {a64::ret()}, text_of_k + 0x3000020);
    EXPECT_EQ(
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::bl() | 0x3000000 / 4, {broken, distant})).cause,
        "two relocations for one instruction: it leads to distant already");
    const abort_explanation page =
        explain(filled("R_AARCH64_ADR_PREL_PG_HI21", text_of_k, 0xb0000000,
                       {kernel("p", text_of_k + 0x1000, {a64::ret()}, 0x800000), broken}));
    EXPECT_EQ(page.cause, "two relocations for one instruction: it leads to p already");
    const abort_explanation other =
        explain(filled("R_AARCH64_CALL26", text_of_k, a64::bl() | 0x104 / 4, {callee, broken}));
    EXPECT_EQ(other.cause, "two relocations for one instruction, or a provisional value that the generator "
                           "has encoded");
}

TEST(AnExplanation, OfAProvisionalValueShowsTheWordToGenerate)
{
    const placed_kernel broken = k({a64::nop(), a64::add(1, 1, 0x10)}, {{".rodata.k", 4, 277, 0}});
    const abort_explanation found =
        explain(filled("R_AARCH64_ADD_ABS_LO12_NC", text_of_k + 4, a64::add(1, 1, 0x10), {broken}),
                dumps_of({broken}));
    EXPECT_EQ(found.cause, "the generator has encoded a provisional value, bits 0x4000");
    EXPECT_EQ(found.advice, "generate the ADD with its field zero: 0x91000021");
    EXPECT_EQ(found.distance, std::nullopt); // ADD has the address, no distance
    EXPECT_FALSE(found.limit);

    // Of a BL's field the finaliser tests all but the highest bit, and that would make the call lead
    // elsewhere.
    const placed_kernel back = k({0x97fffff0, a64::ret()}, {{"k", 0, 283, 4}});
    const abort_explanation call =
        explain(filled("R_AARCH64_CALL26", text_of_k, 0x97fffff0, {back}), dumps_of({back}));
    EXPECT_EQ(call.cause, "the generator has encoded a provisional value, bits 0x3fffff0");
    EXPECT_EQ(call.advice, "generate the BL with its field zero: 0x94000000");
}

// ---- The instruction at the offset, whatever the type.

struct misplaced {
    std::int32_t type;
    std::uint32_t word;
    std::string target;
    std::string advice;
};

class AdviceByInstruction : public testing::TestWithParam<misplaced> {};

TEST_P(AdviceByInstruction, IsTheRelocationOfTheInstruction)
{
    const misplaced& given = GetParam();
    const placed_kernel callee = kernel("callee", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const placed_kernel broken = k({a64::nop(), given.word, a64::ret()}, {{given.target, 4, given.type, 8}});
    const bool known = given.type == 274 || given.type == 275 || given.type == 283;
    const abort_explanation found = explain(known ? filled(given.type == 274   ? "R_AARCH64_ADR_PREL_LO21"
                                                           : given.type == 275 ? "R_AARCH64_ADR_PREL_PG_HI21"
                                                                               : "R_AARCH64_CALL26",
                                                           text_of_k + 4, given.word, {callee, broken})
                                                  : bare("false && \"unhandled reloc type\""),
                                            dumps_of({callee, broken}, {1, 2}));
    EXPECT_EQ(found.advice, given.advice) << found.cause;
}

const std::string own_data = ".rodata.k";
constexpr std::uint32_t provisional_bl = 0x97ffffc0;
INSTANTIATE_TEST_SUITE_P(
    EveryType, AdviceByInstruction,
    testing::Values(
        // Types for loads and stores, for data and for the GOT, at an instruction that has one of the four.
        misplaced{278, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{284, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{285, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{286, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{299, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{312, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{276, a64::adrp(9), own_data, "{\".rodata.k\", 4, 275, 8}"},
        misplaced{311, a64::adrp(9), own_data, "{\".rodata.k\", 4, 275, 8}"},
        misplaced{273, a64::adr(9), own_data, "{\".rodata.k\", 4, 274, 8}"},
        misplaced{257, a64::adr(9), own_data, "{\".rodata.k\", 4, 274, 8}"},
        misplaced{1000, a64::adr(9), own_data, "{\".rodata.k\", 4, 274, 8}"},
        misplaced{279, a64::bl(), "callee", "{\"callee\", 4, 283, 8}"},
        misplaced{280, a64::bl(), "callee", "{\"callee\", 4, 283, 8}"},
        misplaced{282, a64::bl(), "callee", "{\"callee\", 4, 283, 8}"},
        misplaced{282, provisional_bl, "callee",
                  "{\"callee\", 4, 283, 8}, and the BL with its field zero: 0x94000000"},
        misplaced{276, 0xb0000009, own_data,
                  "{\".rodata.k\", 4, 275, 8}, and the ADRP with its field zero: 0x90000009"},
        // The same types at the instruction that they are for.
        misplaced{286, 0xf9400120, own_data, "complete the address with ADD (277) and load from it"},
        misplaced{312, 0xf9400120, own_data, "there is no GOT: use ADRP (275) and ADD (277)"},
        misplaced{273, 0x58000009, own_data,
                  "form the address with ADRP (275) and ADD (277) and load from it"},
        misplaced{282, 0x14000000, "callee",
                  "call with BL (283), or form the address with ADRP and ADD and use BR"},
        misplaced{280, 0x54000000, "callee", "branch within the kernel, over a BL if need be"},
        misplaced{279, 0x36000000, "callee", "branch within the kernel, over a BL if need be"},
        misplaced{257, 0, own_data, "addresses are formed by code: ADRP (275) and ADD (277)"},
        // An ADD of a number, and MOV from SP, have no relocation.
        misplaced{278, a64::add(9, 9, 16), own_data, "complete the address with ADD (277) and load from it"},
        misplaced{278, 0x910003fd, own_data, "complete the address with ADD (277) and load from it"},
        misplaced{1000, a64::nop(), own_data, "274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL"},
        // A BL calls no constants.
        misplaced{282, a64::bl(), own_data,
                  "name the kernel that it calls, with type 283; or give the relocation the offset of the "
                  "instruction that it is for"},
        // The four types at each other's instructions.
        misplaced{274, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{275, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{283, a64::add(9, 9, 0), own_data, "{\".rodata.k\", 4, 277, 8}"},
        misplaced{283, a64::adr(9), "callee", "{\"callee\", 4, 274, 8}"},
        misplaced{283, a64::adrp(9), "callee", "{\"callee\", 4, 275, 8}"},
        misplaced{274, provisional_bl, "callee",
                  "{\"callee\", 4, 283, 8}, and the BL with its field zero: 0x94000000"},
        misplaced{274, load, own_data, "give the relocation the offset of the ADR that it is for"},
        misplaced{275, load, own_data, "give the relocation the offset of the ADRP that it is for"},
        misplaced{283, load, "callee", "give the relocation the offset of the BL that it is for"}));

TEST(AnExplanation, OfAnotherTypeFindsTheInstructionNearbyThatWaits)
{
    const placed_kernel broken = k({a64::adrp(9), load, a64::add(9, 9, 0)},
                                   {{own_data, 0, 275, 0}, {own_data, 4, 277, 0}, {own_data, 4, 1000, 4}});
    const abort_explanation found = explain(bare("false && \"unhandled reloc type\""), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the offset points at ldr w0, [x0]; +0x8 has an ADD and no relocation");
    EXPECT_EQ(found.advice, "{\".rodata.k\", 8, 277, 4}");
}

TEST(AnExplanation, OfExchangedOffsetsCorrectsBoth)
{
    const placed_kernel broken =
        k({a64::adrp(9), a64::add(9, 9, 0), a64::ret()}, {{own_data, 0, 277, 8}, {own_data, 4, 275, 8}});
    const abort_explanation found = explain(
        filled("R_AARCH64_ADR_PREL_PG_HI21", text_of_k + 4, a64::add(9, 9, 0), {broken}), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the offsets of the relocations 1 and 2 are exchanged");
    EXPECT_EQ(found.advice, "{\".rodata.k\", 0, 275, 8}, {\".rodata.k\", 4, 277, 8}");
    const placed_kernel reversed =
        k({a64::adrp(9), a64::add(9, 9, 0), a64::ret()}, {{own_data, 4, 275, 8}, {own_data, 0, 277, 8}});
    EXPECT_EQ(explain(filled("R_AARCH64_ADR_PREL_PG_HI21", text_of_k + 4, a64::add(9, 9, 0), {reversed}),
                      dumps_of({reversed}))
                  .advice,
              found.advice);
}

TEST(AnExplanation, OfAMisspeltNameCorrectsTheTypeToo)
{
    const placed_kernel broken = k({a64::add(9, 9, 0)}, {{".rodata.kk", 0, 286, 4}});
    const abort_explanation found = explain(bare("reloc.name.substr(8) == fn_name"), dumps_of({broken}));
    EXPECT_EQ(found.cause, "the name is misspelt; +0x0 has an ADD");
    EXPECT_EQ(found.advice, "{\".rodata.k\", 0, 277, 4}");
    const placed_kernel prefix = k({a64::adrp(9)}, {{".rodata", 0, 276, 4}});
    EXPECT_EQ(explain(bare("it != kernel_registry.end()"), dumps_of({prefix})).advice,
              "{\".rodata.k\", 0, 275, 4}");
}

TEST(AnExplanation, OfAValueOutOfRangeLooksAtTheInstructionFirst)
{
    // An ADR's relocation at an ADRP, which reaches the constants.
    placed_kernel broken = k({a64::adrp(0), a64::ret()}, {{own_data, 0, 274, 8}});
    broken.data_address = text_of_k + 0x150000;
    const std::string log =
        out_of_range("R_AARCH64_ADR_PREL_LO21", "1M", broken.data_address + 8, text_of_k, {broken});
    EXPECT_EQ(explain(log, dumps_of({broken})).cause,
              "the relocation is for an ADR, the instruction is an ADRP");
    EXPECT_EQ(explain(log, dumps_of({broken})).advice, "{\".rodata.k\", 0, 275, 8}");
    // A call's at an ADRP, and at an ADR, to constants that lie at no multiple of 4.
    for (const auto& [word, advice] : {std::pair(a64::adrp(0), "{\".rodata.k\", 0, 275, 1}"),
                                       std::pair(a64::adr(0), "{\".rodata.k\", 0, 274, 1}")}) {
        const placed_kernel call = k({word, a64::ret()}, {{own_data, 0, 283, 1}});
        EXPECT_EQ(explain(out_of_range("R_AARCH64_CALL26", "128M", data_of_k + 1, text_of_k, {call}),
                          dumps_of({call}))
                      .advice,
                  advice);
    }
    // An ADRP's at an ADR, which reaches still less.
    placed_kernel far = k({a64::adr(0), a64::ret()}, {{own_data, 0, 275, 0}});
    far.data_address = text_of_k + 0x200000000;
    EXPECT_THAT(explain(out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far.data_address, text_of_k, {far}),
                        dumps_of({far}))
                    .cause,
                HasSubstr("another part of the address space"));
}

TEST(AnExplanation, OfAnOffsetBetweenInstructionsSaysSo)
{
    const placed_kernel broken = k({a64::nop(), a64::nop(), a64::ret()}, {{"k", 6, 283, 0}});
    const std::string log = filled("R_AARCH64_CALL26", text_of_k + 6, 0x201fd503, {broken});
    for (const abort_explanation& found : {explain(log), explain(log, dumps_of({broken}))}) {
        EXPECT_EQ(found.offset, 6);
        EXPECT_EQ(found.cause, "the offset 6 is not that of an instruction");
    }
}

// ---- A value out of range.

TEST(AnExplanation, OfACalleeInAnotherMappingTellsHowFarItIs)
{
    constexpr std::uint64_t far = text_of_k + 0x90000000; // 2.25 GiB
    const placed_kernel callee = kernel("wfta_short_7", far, {a64::ret()}, far + 32);
    const placed_kernel broken = k({a64::nop(), a64::bl()}, {{"wfta_short_7", 4, 283, 0}});
    const std::string log = out_of_range("R_AARCH64_CALL26", "128M", far, text_of_k + 4, {broken, callee});
    for (const abort_explanation& found : {explain(log), explain(log, dumps_of({broken, callee}))}) {
        EXPECT_EQ(found.report, "range");
        EXPECT_EQ(found.kernel, "k");
        EXPECT_EQ(found.offset, 4);
        EXPECT_EQ(found.type, 283);
        EXPECT_EQ(found.target, "wfta_short_7");
        EXPECT_EQ(found.target_offset, 0);
        EXPECT_EQ(found.distance, 0x8ffffffc);
        EXPECT_EQ(found.message,
                  "R_AARCH64_CALL26 to wfta_short_7: 2.25 GiB ahead, limit 128 MiB (18 times)");
        EXPECT_EQ(found.cause, "wfta_short_7 is in the mapping of another call");
        EXPECT_EQ(found.advice,
                  "finalise both in one set, or load the address with ADRP and ADD and use BLR");
    }
}

TEST(AnExplanation, OfConstantsBeyondAdrsReachAdvisesAPair)
{
    placed_kernel broken = k({a64::adr(0), a64::ret()}, {{".rodata.k", 0, 274, 8}});
    broken.data_address = text_of_k + 0x150000; // 1.31 MiB
    const std::string log =
        out_of_range("R_AARCH64_ADR_PREL_LO21", "1M", broken.data_address + 8, text_of_k, {broken});
    for (const abort_explanation& found : {explain(log), explain(log, dumps_of({broken}))}) {
        EXPECT_EQ(found.target, ".rodata.k");
        EXPECT_EQ(found.target_offset, 8);
        EXPECT_EQ(found.distance, 0x150008);
        EXPECT_EQ(found.limit->least, -0x100000);
        EXPECT_EQ(found.limit->greatest, 0xfffff);
        EXPECT_EQ(found.message, "R_AARCH64_ADR_PREL_LO21 to .rodata.k: 1.31 MiB ahead, limit 1 MiB");
        EXPECT_EQ(found.cause,
                  "the constants lie behind the code of the whole set, which is larger than ADR reaches");
        EXPECT_THAT(found.advice, HasSubstr("use ADRP (275) and ADD (277)"));
    }
}

TEST(AnExplanation, OfACallBetweenInstructionsBlamesTheAddend)
{
    const placed_kernel broken = k({a64::nop(), a64::bl(), a64::ret()}, {{"k", 4, 283, 2}});
    const std::string log = out_of_range("R_AARCH64_CALL26", "128M", text_of_k + 2, text_of_k + 4, {broken});
    for (const abort_explanation& found : {explain(log), explain(log, dumps_of({broken}))}) {
        EXPECT_EQ(found.target, "k");
        EXPECT_EQ(found.target_offset, 2);
        EXPECT_EQ(found.distance, -2);
        EXPECT_EQ(found.message, "R_AARCH64_CALL26 to k: the distance -2 is not a multiple of 4");
        EXPECT_EQ(found.cause, "the addend 2 leads between two instructions of k");
    }
    const placed_kernel data = k({a64::bl()}, {{".rodata.k", 0, 283, 1}});
    EXPECT_EQ(explain(out_of_range("R_AARCH64_CALL26", "128M", data_of_k + 1, text_of_k, {data})).cause,
              "a BL to constants, which need not lie at a multiple of 4");
    const placed_kernel odd = k({a64::bl(), a64::nop()}, {{"k", 2, 283, 0}});
    EXPECT_EQ(explain(out_of_range("R_AARCH64_CALL26", "128M", text_of_k, text_of_k + 2, {odd})).cause,
              "the offset 2 is not that of an instruction");
}

TEST(AnExplanation, OfAFarAddendBlamesIt)
{
    const placed_kernel broken = k({a64::adr(1)}, {{".rodata.k", 0, 274, 0x200000}});
    const abort_explanation found =
        explain(out_of_range("R_AARCH64_ADR_PREL_LO21", "1M", data_of_k + 0x200000, text_of_k, {broken}),
                dumps_of({broken}));
    EXPECT_EQ(found.cause, "the addend 2097152 leads far away from .rodata.k");
}

TEST(AnExplanation, OfAPageNamesEveryRelocationThatFits)
{
    constexpr std::uint64_t far = 0x7f0000000000;
    const placed_kernel callee = kernel("far", far, {a64::ret()}, far + 32);
    const placed_kernel broken =
        k({a64::adrp(0), a64::adrp(1), a64::adrp(2), a64::add(2, 2, 0)},
          {{".rodata.k", 0, 275, 0}, {"far", 8, 275, 0}, {"far", 4, 275, 8}, {"far", 12, 277, 0}});
    const std::string log =
        out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far, text_of_k, {callee, broken});
    const abort_explanation found = explain(log, dumps_of({broken, callee}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.offset, 8); // the first in the order of the relocations
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.target_offset, 0);
    ASSERT_EQ(found.fits.size(), 2U);
    EXPECT_EQ(found.fits[0].offset, 8);
    EXPECT_EQ(found.fits[1].offset, 4);
    EXPECT_EQ(found.distance, static_cast<std::int64_t>(far - text_of_k));
    EXPECT_EQ(found.message, "R_AARCH64_ADR_PREL_PG_HI21 to far: 127 TiB ahead, limit 4 GiB (32512 times)");
    EXPECT_EQ(found.cause, "far is in the mapping of another call, in another part of the address space");

    const abort_explanation without = explain(log);
    EXPECT_EQ(without.kernel, "k");
    EXPECT_EQ(without.offset, std::nullopt);
    EXPECT_EQ(without.target, "far");
    EXPECT_EQ(without.target_offset, std::nullopt);
    const placed_kernel neighbour = kernel("near far", far + 64, {a64::ret()}, far + 96);
    const abort_explanation several = explain(
        out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far, text_of_k, {callee, broken, neighbour}));
    EXPECT_EQ(several.target, std::nullopt);
    EXPECT_THAT(several.notes, ElementsAre("on the target's page 0x7f0000000000 lie far, near far"));
}

// ---- The kernel.

TEST(AnExplanation, TakesTheLastKernelOfTheMappingForTheOneThatWasLinked)
{
    // The offset leads back into the kernel in front of it, and the one behind is of another mapping.
    const placed_kernel first = kernel("first", text_of_k - 64, {a64::nop(), a64::nop()}, data_of_k - 64);
    const placed_kernel broken = k({a64::nop()}, {{"first", -60, 283, 0}});
    const placed_kernel other = kernel("other", 0x801000, {a64::nop()}, 0x801020);
    const std::string log = filled("R_AARCH64_CALL26", text_of_k - 60, a64::nop(), {first, broken, other});
    for (const abort_explanation& found : {explain(log), explain(log, dumps_of({first, broken, other}))}) {
        EXPECT_EQ(found.kernel, "k");
        EXPECT_EQ(found.offset, -60);
    }
}

TEST(AnExplanation, OfAPageKnowsAKernelThatBeginsBehindItsStart)
{
    constexpr std::uint64_t far = 0x7f0000000000;
    const placed_kernel callee = kernel("far", far, {a64::ret()}, far + 32);
    const placed_kernel broken = kernel("behind", text_of_k + 32, {a64::adrp(0)}, data_of_k);
    EXPECT_EQ(
        explain(out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far, text_of_k, {broken, callee})).kernel,
        "behind");
}

TEST(AnExplanation, WithoutAListingFindsTheRelocationInTheDumps)
{
    const placed_kernel broken = k({a64::nop(), load}, {{"k", 4, 283, 0}});
    const std::string message =
        "resolving R_AARCH64_CALL26 reloc but dst address 0x7f0004 was already filled, got 0xb9400000\n";
    const abort_explanation found = explain(message, dumps_of({broken}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 0U);
    const abort_explanation without = explain(message);
    EXPECT_EQ(without.kernel, std::nullopt);
    EXPECT_THAT(without.notes, ElementsAre("the log ends before the listing of the registry does"));
}

TEST(AnExplanation, MatchesDumpsOfAnotherRunByNameAndOffset)
{
    const placed_kernel callee = kernel("callee", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    placed_kernel broken = k({a64::bl(), a64::bl()}, {{"callee", 0, 283, 0}, {"callee", 4, 283, 2}});
    const std::string log =
        out_of_range("R_AARCH64_CALL26", "128M", text_of_k - 62, text_of_k + 4, {callee, broken});
    placed_kernel other_callee = callee;
    for (placed_kernel* kernel : {&broken, &other_callee}) {
        kernel->text_address += 0x1000000;
        kernel->data_address += 0x1000000;
    }
    const abort_explanation found = explain(log, dumps_of({other_callee, broken}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.offset, 4);
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.target, "callee");
    EXPECT_THAT(found.notes, ElementsAre("the dumps are of another run (k was at 0x7f0000, its dump is at "
                                         "0x17f0000): matched by name and offset"));

    EXPECT_THAT(explain(log, dumps_of({callee, k({a64::bl(), a64::bl()}, broken.relocs)})).notes, IsEmpty());

    const abort_explanation undumped = explain(log, dumps_of({other_callee}));
    EXPECT_EQ(undumped.kernel, "k");
    EXPECT_EQ(undumped.relocation, std::nullopt);
    EXPECT_THAT(undumped.notes, ElementsAre("there is no dump of k"));

    broken.text.resize(4);
    broken.relocs.resize(1);
    EXPECT_THAT(explain(log, dumps_of({other_callee, broken})).notes,
                ElementsAre(HasSubstr("another run"), "its code was 8 bytes long, in the dump it is 4 bytes",
                            "no relocation in the dump of k fits the message: it is of other code"));
}

TEST(AnExplanation, KnowsAKernelOfWhichTheListingHasHalfTheName)
{
    placed_kernel broken = k({a64::nop(), load}, {{"a\n  k", 4, 283, 0}});
    const std::string log = filled("R_AARCH64_CALL26", text_of_k + 4, load, {broken});
    broken.name = "a\n  k";
    EXPECT_EQ(explain(log).kernel, "k");
    EXPECT_EQ(explain(log, dumps_of({broken})).kernel, "a\n  k");
    broken.text_address += 0x1000; // of another run
    broken.data_address += 0x1000;
    EXPECT_EQ(explain(log, dumps_of({broken})).kernel, "a\n  k");
    broken.name = "a\n  j";
    EXPECT_EQ(explain(log, dumps_of({broken})).kernel, "k");
}

// ---- Bare assertions.

TEST(AnExplanation, OfABareAssertionWithoutDumpsAsksForThem)
{
    const std::pair<const char*, const char*> reports[] = {
        {"it != kernel_registry.end()", "unknown-target"},
        {"reloc.name.substr(8) == fn_name", "foreign-data"},
        {"false && \"unhandled reloc type\"", "unhandled-type"}};
    for (const auto& [expression, id] : reports) {
        const abort_explanation found = explain(bare(expression));
        EXPECT_EQ(found.report, id);
        EXPECT_EQ(found.kernel, std::nullopt);
        EXPECT_EQ(found.type, std::nullopt);
        EXPECT_EQ(found.advice, "run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and "
                                "give that directory with --dumps");
    }
}

TEST(AnExplanation, OfABareAssertionChecksTheLastDumpWritten)
{
    // Both mappings end with a kernel that would end so; the times tell.
    const placed_kernel one = k({a64::bl()}, {{"nobody", 0, 283, 0}});
    const placed_kernel other =
        kernel("other", 0x801000, {a64::nop(), a64::bl()}, 0x801020, {{"noone", 4, 283, 0}});
    const std::string log = bare("it != kernel_registry.end()");
    const abort_explanation found = explain(log, dumps_of({one, other}, {2, 1}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.target, "nobody");
    EXPECT_THAT(found.notes, ElementsAre("the last dump written, and its relocations end so"));
    EXPECT_EQ(explain(log, dumps_of({one, other}, {1, 2})).kernel, "other");
    EXPECT_THAT(explain(log, dumps_of({one, other}, {1, 1})).notes,
                ElementsAre("the last dump written, and its relocations end so",
                            "other would end so too: the files' times do not tell which was written last"));

    // Copied in another order: what would not end so was not the last.
    placed_kernel sound = other;
    sound.relocs.clear();
    const abort_explanation copied = explain(log, dumps_of({one, sound}, {1, 2}));
    EXPECT_EQ(copied.kernel, "k");
    EXPECT_THAT(copied.notes,
                ElementsAre("the last kernel of its mapping, and its relocations end so; by the "
                            "files' times another dump is newer"));
    // A kernel in front of others in its mapping was linked.
    const placed_kernel behind = kernel("behind", text_of_k + 32, {a64::ret()}, data_of_k + 64);
    EXPECT_EQ(explain(log, dumps_of({one, behind}, {2, 1})).relocation, std::nullopt);
}

TEST(AnExplanation, OfAnUnknownTargetTellsMisspeltNamesFromMissingKernels)
{
    const std::string log = bare("it != kernel_registry.end()");
    const placed_kernel callee = kernel("wfta_short_3", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const auto with_target = [&](const std::string& name) {
        return explain(log, dumps_of({callee, k({a64::bl()}, {{name, 0, 283, 4}})}));
    };
    const abort_explanation misspelt = with_target("wfta_shor_3");
    EXPECT_EQ(misspelt.report, "unknown-target");
    EXPECT_EQ(misspelt.target, "wfta_shor_3");
    EXPECT_EQ(misspelt.message, "the target wfta_shor_3 is not in the registry");
    EXPECT_EQ(misspelt.cause,
              "the name is misspelt (wfta_short_3 is there), or the kernel comes later in the set");
    EXPECT_EQ(misspelt.advice, "{\"wfta_short_3\", 0, 283, 4}, or move wfta_shor_3 before k");
    const abort_explanation missing = with_target("wfta_short_5");
    EXPECT_EQ(missing.cause,
              "wfta_short_5 comes later in the set, or was never finalised with this registry");
    EXPECT_EQ(missing.advice, "finalise wfta_short_5 before k");
    EXPECT_EQ(with_target(".rodata").cause, "constants are named .rodata. and the kernel's name");
    EXPECT_EQ(with_target(".rodata").advice, "{\".rodata.k\", 0, 283, 4}");
}

TEST(AnExplanation, OfATargetThatAnEarlierRunDumpedSuspectsTheOrder)
{
    const placed_kernel stale = kernel("later", 0x901000, {a64::ret()}, 0x901020);
    const placed_kernel broken = k({a64::bl(), a64::bl()}, {{"k", 0, 283, 0}, {"later", 4, 283, 0}});
    const abort_explanation found =
        explain(bare("it != kernel_registry.end()"), dumps_of({broken, stale}, {2, 1}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.cause,
              "later was dumped, but by another run, and comes later in the set now, or it is in "
              "another registry");
    EXPECT_EQ(found.advice, "finalise later before k, with the same registry");
}

TEST(AnExplanation, OfForeignDataTellsRenamedKernelsFromBorrowedConstants)
{
    const std::string log = bare("reloc.name.substr(8) == fn_name");
    const placed_kernel owner = kernel("owner", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const abort_explanation borrowed =
        explain(log, dumps_of({owner, k({a64::adrp(0)}, {{".rodata.owner", 0, 275, 0}})}));
    EXPECT_EQ(borrowed.message, ".rodata.owner are not constants of k");
    EXPECT_EQ(borrowed.cause, "they are those of owner, and a kernel reaches its own only");
    EXPECT_THAT(borrowed.advice, HasSubstr("give k a copy of them"));
    EXPECT_EQ(borrowed.distance, std::nullopt);
    const abort_explanation renamed =
        explain(log, dumps_of({owner, k({a64::adrp(0)}, {{".rodata.old", 0, 275, 0}})}));
    EXPECT_EQ(renamed.cause, "there is no kernel old: perhaps k was named so before");
    EXPECT_EQ(renamed.advice, "{\".rodata.k\", 0, 275, 0}");
    EXPECT_EQ(explain(log, dumps_of({owner, k({a64::adrp(0)}, {{".rodata.kk", 0, 275, 0}})})).cause,
              "the name is misspelt");
}

TEST(AnExplanation, OfANullTargetFindsIt)
{
    placed_kernel null = kernel("null", 0, {}, 0);
    null.data.clear();
    const placed_kernel broken = k({a64::bl(), a64::bl()}, {{"host's", 0, 283, 0}, {"null", 4, 283, 0}});
    const abort_explanation found = explain(bare("target_addr"), dumps_of({null, broken}, {1, 2}));
    EXPECT_EQ(found.report, "null-target");
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.message, "the target null is at address null");
}

TEST(AnExplanation, OfAnUnhandledTypeSaysWhatToUse)
{
    const std::string log = bare("false && \"unhandled reloc type\"");
    const auto with_type = [&](std::int32_t type) {
        return explain(log, dumps_of({k({a64::adrp(0)}, {{"k", 0, type, 0}})}));
    };
    const abort_explanation jump = with_type(R_AARCH64_JUMP26);
    EXPECT_EQ(jump.type, 282);
    EXPECT_FALSE(jump.limit);
    EXPECT_EQ(jump.message, "relocation type 282 (R_AARCH64_JUMP26) is not supported");
    EXPECT_EQ(jump.cause, "the relocation has type 282, the instruction is an ADRP");
    EXPECT_EQ(jump.advice, "{\"k\", 0, 275, 0}");
    const abort_explanation number = with_type(5);
    EXPECT_EQ(number.message, "relocation type 5 is not supported");
    EXPECT_EQ(number.cause, "the relocation has type 5, the instruction is an ADRP");
    EXPECT_EQ(number.advice, "{\"k\", 0, 275, 0}");
}

TEST(AnExplanation, OfADuplicateNamesTheKernelBeforeIt)
{
    const std::string log = assertion(
        support::emit_single_signature,
        "kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, "
        "data_len }).second");
    const placed_kernel first = kernel("first", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const abort_explanation found = explain(log, dumps_of({first, k({a64::ret()}, {})}));
    EXPECT_EQ(found.report, "duplicate-name");
    EXPECT_EQ(found.kernel, std::nullopt); // it was not dumped
    EXPECT_THAT(found.notes, ElementsAre(HasSubstr("the last kernel that was dumped is k")));
    EXPECT_EQ(found.message, "a second kernel of one name");
}

TEST(AnExplanation, OfAnAssertionWithoutItsMessageTakesItFromTheDumps)
{
    const std::string log = assertion(support::dump_signature, "false");
    const placed_kernel filled_one = k({a64::nop(), load}, {{"k", 4, 283, 0}});
    const abort_explanation filled = explain(log, dumps_of({filled_one}));
    EXPECT_EQ(filled.report, "field-filled");
    EXPECT_EQ(filled.offset, 4);
    EXPECT_EQ(filled.message, "R_AARCH64_CALL26: the field of 0xb9400000 is not zero");
    const placed_kernel far_one = k({a64::nop(), a64::bl()}, {{"k", 4, 283, 2}});
    const abort_explanation range = explain(log, dumps_of({far_one}));
    EXPECT_EQ(range.report, "range");
    EXPECT_EQ(range.distance, -2);
    EXPECT_EQ(range.limit->greatest, 134217727);
    const abort_explanation without = explain(log);
    EXPECT_EQ(without.report, "");
    EXPECT_EQ(without.message, "a relocation was refused");
}

} // namespace
