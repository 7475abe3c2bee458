// The contents of a kernel's listing.

#include "workbench/render/listing.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/tool.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/image/elf_image.hpp"
#include "workbench/kernels/linking.hpp"

#include <algorithm>
#include <ctime>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

using namespace vorna::workbench;
using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

kernel_listing list(const kernel_set& set, const std::string& name, bool linked = true)
{
    disassembler disassembler;
    return list_kernel(set, *find_kernel(set, name), disassembler, linked);
}

std::vector<std::string> texts(const kernel_listing& listing)
{
    std::vector<std::string> texts;
    for (const listing_row& row : listing.rows)
        texts.push_back((row.label.empty() ? "" : row.label + ": ") + row.text +
                        (row.comment.empty() ? "" : " ; " + row.comment));
    return texts;
}

// The bytes of numbers in memory order.
template <typename T>
std::vector<std::uint8_t> bytes_of(const std::vector<T>& numbers)
{
    std::vector<std::uint8_t> bytes(numbers.size() * sizeof(T));
    std::memcpy(bytes.data(), numbers.data(), bytes.size());
    return bytes;
}

// The comment of the first line after an ADR that forms the address of the constants in x3.
template <typename T>
std::string comment_of(const std::vector<std::string>& lines, const std::vector<T>& constants)
{
    std::vector<std::uint32_t> words = assemble(lines);
    words.insert(words.begin(), a64::adr(3));
    const kernel_set set = make_kernel_set(
        {placed("k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}}, bytes_of(constants))});
    return list(set, "k").rows[1].comment;
}

TEST(Listing, NamesTheTargetsOfRelocations)
{
    const kernel_set set = make_kernel_set({placed("callee", 0x10000, {a64::nop(), a64::ret()}),
                                            placed("k", 0x10a38,
                                                   {a64::adrp(3), a64::add(3, 3, 0), a64::adr(1), a64::bl(),
                                                    a64::bl(), a64::bl(), a64::add(31, 3, 0), a64::adr(2)},
                                                   {{".rodata.k", 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                                                    {".rodata.k", 4, R_AARCH64_ADD_ABS_LO12_NC, 0},
                                                    {".rodata.k", 8, R_AARCH64_ADR_PREL_LO21, 16},
                                                    {"callee", 12, R_AARCH64_CALL26, 0},
                                                    {"callee", 16, R_AARCH64_CALL26, 4},
                                                    {"k", 20, R_AARCH64_CALL26, 0},
                                                    {".rodata.k", 24, R_AARCH64_ADD_ABS_LO12_NC, 0},
                                                    {"callee", 28, R_AARCH64_ADR_PREL_LO21, -8}},
                                                   std::vector<std::uint8_t>(32))});
    const kernel_listing listing = list(set, "k");
    EXPECT_THAT(texts(listing), ElementsAre("adrp x3, .rodata", "add x3, x3, :lo12:.rodata",
                                            "adr x1, .rodata+0x10", "bl callee", "bl callee+0x4", "bl k",
                                            "add sp, x3, :lo12:.rodata", "adr x2, callee-0x8"));
    EXPECT_THAT(
        assemble({"adrp x3, #0x1000", "add x3, x3, #0x238", "adr x1, #0x808", "bl #-0xa44"}),
        ElementsAre(listing.rows[0].word, listing.rows[1].word, listing.rows[2].word, listing.rows[3].word));
    EXPECT_THAT(listing.calls, ElementsAre("callee", "k"));
    EXPECT_THAT(listing.callers, ElementsAre("k"));
    EXPECT_THAT(list(set, "callee").callers, ElementsAre("k"));
    EXPECT_EQ(listing.rows[4].callee, "callee");
    EXPECT_EQ(headline(*find_kernel(set, "k"), listing),
              "k  0x10a38  32 bytes, 8 instructions; data 0x11238, 32 bytes; called by k");
    EXPECT_EQ(headline(*find_kernel(set, "callee"), list(set, "callee")),
              "callee  0x10000  8 bytes, 2 instructions; called by k");
}

TEST(Listing, ShowsWhereACallLeadsWhoseTopBitWasSet)
{
    const kernel_set set =
        make_kernel_set({placed("below", 0x10000, {a64::nop(), a64::ret()}),
                         placed("k", 0x8010000, {0x96000000, 0x96000000, a64::ret()},
                                {{"ahead", 0, R_AARCH64_CALL26, 0}, {"k", 4, R_AARCH64_CALL26, 0}}),
                         placed("ahead", 0x8010100, {a64::ret()}), placed("there", 0x10100, {a64::ret()})});
    const kernel_listing listing = list(set, "k");
    EXPECT_THAT(texts(listing),
                ElementsAre("bl there ; R_AARCH64_CALL26 ahead, leads elsewhere: the top bit of "
                            "the BL's field was set",
                            "bl k", "ret"));
    EXPECT_EQ(listing.rows[0].word, 0x96000040U);
    EXPECT_EQ(listing.rows[0].callee, "there");
    EXPECT_THAT(listing.calls, ElementsAre("there", "k"));
    EXPECT_THAT(list(set, "ahead").callers, testing::IsEmpty());
    EXPECT_THAT(listing.callers, ElementsAre("k"));
    EXPECT_THAT(list(set, "k", false).calls, ElementsAre("k"));
}

TEST(Listing, ShowsTheCodeAsGeneratedWithRelocationsBeside)
{
    const kernel_set set = make_kernel_set({placed("k", 0x10000, {a64::adrp(3), a64::add(3, 3, 0), a64::bl()},
                                                   {{".rodata.k", 0, R_AARCH64_ADR_PREL_PG_HI21, 16},
                                                    {".rodata.k", 4, R_AARCH64_ADD_ABS_LO12_NC, 16},
                                                    {"k", 8, R_AARCH64_CALL26, 0}})});
    const kernel_listing listing = list(set, "k", false);
    EXPECT_THAT(texts(listing), ElementsAre("adrp x3, 0x10000 ; R_AARCH64_ADR_PREL_PG_HI21 .rodata+0x10",
                                            "add x3, x3, #0 ; R_AARCH64_ADD_ABS_LO12_NC .rodata+0x10",
                                            "bl 0x10008 ; R_AARCH64_CALL26 k"));
    EXPECT_EQ(listing.rows[2].word, a64::bl());
}

TEST(Listing, SaysWhichRelocationsCannotBeApplied)
{
    const kernel_set set = make_kernel_set(
        {placed("far", 0x90000000, {a64::ret()}), placed("k", 0x10000,
                                                         {a64::bl(), a64::bl(), a64::bl() | 1, a64::adr(0),
                                                          a64::nop(), a64::adr(1), a64::nop(), a64::adr(0)},
                                                         {{"far", 0, R_AARCH64_CALL26, 0},
                                                          {"gone", 4, R_AARCH64_CALL26, 0},
                                                          {"k", 8, R_AARCH64_CALL26, 0},
                                                          {".rodata.far", 12, R_AARCH64_ADR_PREL_LO21, 0},
                                                          {"k", 16, 999, 0},
                                                          {"k", 20, R_AARCH64_ADR_PREL_LO21, 4},
                                                          {"k", 20, R_AARCH64_ADR_PREL_LO21, 0},
                                                          {"k", 26, R_AARCH64_CALL26, 0},
                                                          {"k", 400, R_AARCH64_CALL26, 0}})});
    EXPECT_THAT(texts(list(set, "k")),
                ElementsAre("bl far ; out of range", ".L4: bl gone ; target not found",
                            "bl k ; field not zero", "adr x0, .rodata.far ; constants of another kernel",
                            "nop ; relocation type 999 k, type not supported",
                            "adr x1, .L4 ; R_AARCH64_ADR_PREL_LO21 k+0x4; R_AARCH64_ADR_PREL_LO21 k, field "
                            "not zero",
                            "nop ; R_AARCH64_CALL26 k, field not zero",
                            ".L1c: adr x0, .L1c ; R_AARCH64_CALL26 k, field not zero"));
}

TEST(Listing, ShowsARelocationOfAnotherInstructionBesideIt)
{
    const kernel_set set = make_kernel_set(
        {placed("k", 0x10000, {a64::bl(), 0xd4000000}, // of no field that its kind tests
                {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}, {"k", 4, R_AARCH64_ADD_ABS_LO12_NC, 0}})});
    EXPECT_THAT(texts(list(set, "k")), ElementsAre("bl 0x20000 ; R_AARCH64_ADR_PREL_LO21 .rodata",
                                                   ".word 0xd4000000 ; R_AARCH64_ADD_ABS_LO12_NC k"));
    EXPECT_EQ(texts(list(set, "k", false)).front(), "bl 0x10000 ; R_AARCH64_ADR_PREL_LO21 .rodata");
}

TEST(Listing, HasTheDigitsOfTheLastOffset)
{
    placed_kernel kernel;
    for (const auto& [size, digits] : {std::pair(0U, 2), {1, 2}, {256, 2}, {257, 3}, {4096, 3}, {4097, 4}}) {
        kernel.text.resize(size);
        EXPECT_EQ(offset_digits(kernel), digits) << size;
    }
}

TEST(Listing, CountsNoCallOfConstants)
{
    const kernel_set set =
        make_kernel_set({placed("k", 0x10000, {a64::bl()}, {{".rodata.k", 0, R_AARCH64_CALL26, 0}})});
    EXPECT_THAT(texts(list(set, "k")), ElementsAre("bl .rodata"));
    EXPECT_THAT(list(set, "k").calls, ElementsAre());
}

TEST(Listing, LabelsWhereBranchesLead)
{
    const kernel_set set = make_kernel_set(
        {placed("k", 0x10000,
                assemble(
                    {"cbz x0, #16", "b.ne #-4", "tbnz w1, #3, #8", "b #12", "bl #-8", "b #-0x10000", "ret"})),
         placed("other", 0x10020,
                assemble({"nop", "b #-32", "bl #-4", "bl #-12", "b.eq #2048", "cbnz x1, #-16"}))});
    const kernel_listing k = list(set, "k");
    EXPECT_THAT(texts(k), ElementsAre(".L0: cbz x0, .L10", "b.ne .L0", ".L8: tbnz w1, #3, .L10", "b .L18",
                                      ".L10: bl .L8", "b 0x14", ".L18: ret"));
    EXPECT_EQ(k.rows[0].branch_target, std::optional<std::size_t>(16));
    EXPECT_EQ(k.rows[5].branch_target, std::nullopt);
    const kernel_listing other = list(set, "other");
    EXPECT_THAT(texts(other),
                ElementsAre("nop", ".L4: b k+0x4", "bl .L4", "bl other", "b.eq 0x10830", "cbnz x1, .L4"));
    EXPECT_THAT(other.calls, ElementsAre("other"));
    EXPECT_EQ(other.rows[3].callee, "other");
}

TEST(Listing, ShowsWhereInstructionsWithoutRelocationsLead)
{
    const kernel_set set = make_kernel_set({placed(
        "k", 0x10804,
        assemble({"adrp x3, #0x2000", "adr x3, #-3", "ldr x3, #1048572", "ldrsw x3, #-8", "ldr q3, #0"}))});
    EXPECT_THAT(texts(list(set, "k")),
                ElementsAre("adrp x3, 0x12000", ".L4: adr x3, 0x10805", "ldr x3, 0x110808", "ldrsw x3, .L4",
                            ".L10: ldr q3, .L10"));
}

TEST(Listing, KnowsTheExtensions)
{
    const std::vector<std::string> lines = {"cmla z0.s, z1.s, z2.s[0], #90",
                                            "sqrdmlah z0.h, z1.h, z2.h[3]",
                                            "ld1rqd { z0.d }, p0/z, [x3]",
                                            "bfdot v0.4s, v1.8h, v2.8h",
                                            "fcmla v0.2d, v1.2d, v2.2d, #270",
                                            "aese v0.16b, v1.16b",
                                            "sha256h q0, q1, v2.4s",
                                            "ldtr x0, [x1, #8]",
                                            "stg x0, [x1]",
                                            "ldaddal x0, x1, [x2]"};
    const kernel_set set = make_kernel_set({placed("k", 0x10000, assemble(lines))});
    EXPECT_THAT(texts(list(set, "k")), testing::ElementsAreArray(lines));
}

TEST(Listing, ShowsWhatIsNoInstruction)
{
    placed_kernel kernel = placed("k", 0x10000, {0x00000001 | 0xffu << 24, a64::ret()});
    kernel.text.push_back(0xab);
    kernel.text.push_back(1);
    const kernel_set set = make_kernel_set({kernel});
    const kernel_listing listing = list(set, "k");
    EXPECT_THAT(texts(listing), ElementsAre(".word 0xff000001", "ret", ".byte 0xab", ".byte 0x01"));
    EXPECT_EQ(listing.instructions, 2U);
    EXPECT_EQ(listing.rows[3].offset, 9U);
    EXPECT_EQ(listing.rows[3].size, 1U);
    EXPECT_EQ(row_text(listing.rows[2]), "+08  ab        .byte 0xab");
    EXPECT_EQ(row_text(listing.rows[1], 4), "+0004  d65f03c0  ret");
    disassembler disassembler;
    EXPECT_EQ(texts(list_without_addresses(kernel, disassembler)), texts(listing));
    EXPECT_EQ(list_without_addresses(kernel, disassembler).rows[2].word, 0xabU);
}

TEST(Listing, PrintsDoublesAndFloatsAsShortAsTheyReadBack)
{
    EXPECT_EQ(comment_of<double>({"ldr d7, [x3, #8]"}, {1, -1.5}), ".rodata+0x8  -1.5");
    EXPECT_EQ(comment_of<double>({"ldr d7, [x3]"}, {0.1}), ".rodata  0.1");
    EXPECT_EQ(comment_of<double>({"ldr d7, [x3]"}, {1e300}), ".rodata  1e+300");
    EXPECT_EQ(comment_of<double>({"ldr d7, [x3]"}, {-0.0}), ".rodata  -0.0");
    EXPECT_EQ(comment_of<double>({"ldr d7, [x3]"}, {std::numeric_limits<double>::infinity()}),
              ".rodata  inf");
    EXPECT_EQ(comment_of<double>({"ldr d7, [x3]"}, {5e-324}), ".rodata  5e-324");
    EXPECT_EQ(comment_of<float>({"ldr s7, [x3, #4]"}, {0, 0.1F}), ".rodata+0x4  0.1");
    EXPECT_EQ(comment_of<std::uint16_t>({"ldr h7, [x3]"}, {0x3555}), ".rodata  0.33325195");
    EXPECT_EQ(comment_of<std::uint16_t>({"ldr h7, [x3]"}, {0x8001}), ".rodata  -5.9604645e-08");
    EXPECT_EQ(comment_of<std::uint16_t>({"ldr h7, [x3]"}, {0xfc00}), ".rodata  -inf");
    EXPECT_EQ(comment_of<std::uint8_t>({"ldr b7, [x3]"}, {0xfe}), ".rodata  254");
}

TEST(Listing, PrintsIntegersWithTheSignThatTheLoadGivesThem)
{
    const std::vector<std::uint8_t> ones(8, 0xff);
    EXPECT_EQ(comment_of({"ldr x1, [x3]"}, ones), ".rodata  -1");
    EXPECT_EQ(comment_of({"ldr w1, [x3, #4]"}, ones), ".rodata+0x4  -1");
    EXPECT_EQ(comment_of({"ldrh w1, [x3]"}, ones), ".rodata  65535");
    EXPECT_EQ(comment_of({"ldrsh x1, [x3]"}, ones), ".rodata  -1");
    EXPECT_EQ(comment_of({"ldrb w1, [x3]"}, ones), ".rodata  255");
    EXPECT_EQ(comment_of({"ldursb w1, [x3, #3]"}, ones), ".rodata+0x3  -1");
    for (const char* load : {"ldtrsb w1, [x3]", "ldtrsh x1, [x3]", "ldapursb x1, [x3]", "ldapursh w1, [x3]"})
        EXPECT_EQ(comment_of({load}, ones), ".rodata  -1") << load;
    EXPECT_EQ(comment_of({"ldtrh w1, [x3]"}, ones), ".rodata  65535");
    EXPECT_EQ(comment_of({"ldapurb w1, [x3]"}, ones), ".rodata  255");
    EXPECT_EQ(comment_of<std::int32_t>({"ldpsw x1, x2, [x3]"}, {-2, 7}), ".rodata  -2, 7");
    EXPECT_EQ(comment_of<std::int64_t>({"ldp x1, x2, [x3]"}, {-2, 7}), ".rodata  -2, 7");
}

TEST(Listing, PrintsVectorsInTheOrderOfTheirLanes)
{
    const std::vector<double> doubles = {1, 2, 3, 4};
    const std::vector<float> floats = {1, 2, 3, 4};
    EXPECT_EQ(comment_of({"ldr q0, [x3, #16]"}, doubles), ".rodata+0x10  {3.0, 4.0}");
    EXPECT_EQ(comment_of({"ldp q0, q1, [x3]"}, doubles), ".rodata  {1.0, 2.0}, {3.0, 4.0}");
    EXPECT_EQ(comment_of({"ldp d0, d1, [x3]"}, doubles), ".rodata  1.0, 2.0");
    EXPECT_EQ(comment_of({"ld1 {v0.2d, v1.2d}, [x3]"}, doubles), ".rodata  {1.0, 2.0}, {3.0, 4.0}");
    EXPECT_EQ(comment_of({"ld1 {v0.4s}, [x3]"}, floats), ".rodata  {1.0, 2.0, 3.0, 4.0}");
    EXPECT_EQ(comment_of({"ld1 {v0.2s}, [x3]"}, floats), ".rodata  {1.0, 2.0}");
    EXPECT_EQ(comment_of({"ld1r {v0.2d}, [x3]"}, doubles), ".rodata  1.0");
    EXPECT_EQ(comment_of({"ld1 {v0.d}[1], [x3]"}, doubles), ".rodata  1.0");
    EXPECT_EQ(comment_of<std::uint8_t>({"ld1 {v0.8b}, [x3]"}, {1, 2, 3, 4, 5, 6, 7, 8}),
              ".rodata  {1, 2, 3, 4, 5, 6, 7, 8}");
}

TEST(Listing, TypesAVectorByTheNextInstructionThatUsesIt)
{
    const std::vector<float> floats = {1, 2, 3, 4};
    const std::string as_floats = ".rodata  {1.0, 2.0, 3.0, 4.0}";
    const std::string as_doubles = ".rodata  {2.000000473111868, 512.0001225471497}";
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "nop", "fmul v0.4s, v1.4s, v7.s[1]"}, floats), as_floats);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "eor v0.16b, v1.16b, v7.16b", "fadd v0.4s, v7.4s, v7.4s"}, floats),
              as_floats);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "fmla v7.4s, v1.4s, v2.4s"}, floats), as_floats);
    EXPECT_EQ(comment_of<std::int32_t>({"ldr q7, [x3]", "add v0.4s, v1.4s, v7.4s"}, {1, -1, 2, -2}),
              ".rodata  {1, -1, 2, -2}");
    EXPECT_EQ(comment_of<std::int16_t>({"ldr d7, [x3]", "mul v0.4h, v1.4h, v7.4h"}, {1, -1, 2, -2}),
              ".rodata  {1, -1, 2, -2}");
    EXPECT_EQ(comment_of({"ldr d7, [x3]", "fmul v0.2s, v1.2s, v7.2s"}, floats), ".rodata  {1.0, 2.0}");
    EXPECT_EQ(
        comment_of({"ldr q7, [x3]", "st1 {v7.4s}, [x0]", "str q7, [x0]", "fadd v0.4s, v7.4s, v7.4s"}, floats),
        as_floats);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "eor v7.16b, v7.16b, v1.16b", "fadd v0.4s, v7.4s, v7.4s"}, floats),
              as_floats);
    EXPECT_EQ(comment_of({"ldr q1, [x3]", "mov v17.16b, v2.16b", "fadd v0.4s, v1.4s, v1.4s"}, floats),
              as_floats);
    // The type of the use, not of the def.
    EXPECT_EQ(comment_of({"ldr d7, [x3]", "fcvtl v7.2d, v7.2s"}, floats), ".rodata  {1.0, 2.0}");
    // Not a use: another register with a similar name, a use after a redefinition, after a branch or after a
    // label.
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "fadd v0.4s, v17.4s, v17.4s"}, floats), as_doubles);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "fadd v0.4s, v7.4s, v7.4s", "cbz x0, #-4"}, floats), as_doubles);
    const kernel_set named = make_kernel_set(
        {placed("k", 0x10000, {a64::adr(3), 0x3dc00067, a64::add(0, 0, 0)}, // ldr q7, [x3]
                {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}, {"conv7.s", 8, R_AARCH64_ADD_ABS_LO12_NC, 0}},
                bytes_of(floats))});
    EXPECT_EQ(list(named, "k").rows[1].comment, as_doubles);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "mov v7.16b, v1.16b", "fadd v0.4s, v7.4s, v7.4s"}, floats),
              as_doubles);
    for (const char* other : {"ldr q7, [x4]", "fmov d7, x0", "ld1 {v7.4s}, [x4]", "ldr z7, [x4]"})
        EXPECT_EQ(comment_of({"ldr q7, [x3]", other, "fadd v0.4s, v7.4s, v7.4s"}, floats), as_doubles);
    for (const char* another : {"ldr q17, [x4]", "ldr x7, [x4]", "ldr q0, [x7]"})
        EXPECT_EQ(comment_of({"ldr q7, [x3]", another, "fadd v0.4s, v7.4s, v7.4s"}, floats), as_floats);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "ret", "fadd v0.4s, v7.4s, v7.4s"}, floats), as_doubles);
}

TEST(Listing, FollowsTheBaseRegisterInStraightLineCode)
{
    const std::vector<std::uint32_t> words =
        assemble({"adr x3, #0", "ldr d0, [x3], #8", "ldr d1, [x3]", "mov x4, x3", "ldr d2, [x4, #8]!",
                  "ldr d3, [x4, #8]", "ldr d4, [x4, #800]", "ldur d5, [x3, #-16]", "cbz x0, #8",
                  "ldr d6, [x3]", "ldr d7, [x3]"});
    const kernel_set set =
        make_kernel_set({placed("k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 8}},
                                bytes_of<double>({0, 1, 2, 3, 4}))});
    EXPECT_THAT(texts(list(set, "k")),
                ElementsAre("adr x3, .rodata+0x8", "ldr d0, [x3], #8 ; .rodata+0x8  1.0",
                            "ldr d1, [x3] ; .rodata+0x10  2.0", "mov x4, x3",
                            "ldr d2, [x4, #8]! ; .rodata+0x18  3.0", "ldr d3, [x4, #8] ; .rodata+0x20  4.0",
                            "ldr d4, [x4, #800] ; .rodata+0x338, outside the constants, which have 40 bytes",
                            "ldur d5, [x3, #-16] ; .rodata  0.0", "cbz x0, .L28",
                            "ldr d6, [x3] ; .rodata+0x10  2.0", ".L28: ldr d7, [x3] ; .rodata+0x10  2.0"));
}

TEST(Listing, ShowsTheFirstValuesOfATableThatIsWalkedThrough)
{
    const auto comments = [](const std::vector<std::string>& loop, const std::vector<std::int32_t>& table) {
        std::vector<std::uint32_t> words = assemble(loop);
        words.insert(words.begin(), a64::adr(3));
        const kernel_set set = make_kernel_set(
            {placed("k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 4}}, bytes_of(table))});
        std::string all;
        for (const listing_row& row : list(set, "k").rows)
            all += row.comment;
        return all;
    };
    const std::vector<std::int32_t> table = {0, 10, 20, 30, 40, 50, 60};
    EXPECT_EQ(comments({"mov x5, #7", "ldr w6, [x3], #4", "sub x5, x5, #1", "cbnz x5, #-8"}, table),
              ".rodata+0x4  10, 20, 30, 40, ...");
    const auto counted = [&](const std::string& turns, const std::string& load) {
        return comments({"mov x5, #" + turns, load, "sub x5, x5, #1", "cbnz x5, #-8"}, table);
    };
    EXPECT_EQ(counted("4", "ldr w6, [x3], #4"), ".rodata+0x4  10, 20, 30, 40");
    EXPECT_EQ(counted("5", "ldr w6, [x3], #4"), ".rodata+0x4  10, 20, 30, 40, ...");
    EXPECT_EQ(counted("2", "ldr w6, [x3], #4"), ".rodata+0x4  10, 20");
    EXPECT_EQ(counted("3", "ldp w6, w7, [x3], #8"), ".rodata+0x4  10, 20, 30, 40, ...");
    EXPECT_EQ(counted("4", "ldr w6, [x3], #8"), ".rodata+0x4  10, 30, 50, then outside the constants");
    EXPECT_EQ(counted("1", "ld1 {v0.2s}, [x3], #8"), ".rodata+0x4  {1.4e-44, 2.8e-44}");
    EXPECT_EQ(counted("3", "ldr w6, [x3, #4]!"), ".rodata+0x8  20, 30, 40");
    // Unknown number of iterations.
    EXPECT_EQ(comments({"ldr w6, [x3], #8", "cbnz x6, #-4"}, table), ".rodata+0x4  10, ...");
    EXPECT_EQ(comments({"ldp w6, w7, [x3], #8", "cbnz x6, #-4"}, table), ".rodata+0x4  10, 20, ...");
    EXPECT_EQ(comments({"ldr w6, [x3, #4]!", "cbnz x6, #-4"}, table), ".rodata+0x8  20, ...");
    EXPECT_EQ(comments({"ldr w6, [x3], #4", "add x3, x3, #4", "cbnz x6, #-8"}, table),
              ".rodata+0x4  10, ...");
    EXPECT_EQ(comments({"ld1 {v0.16b}, [x3], #16", "cbnz x6, #-4"}, table),
              ".rodata+0x4  {10, 0, 0, 0, 20, 0, 0, 0, 30, 0, 0, 0, 40, 0, 0, 0}, ...");
    // Entered in two ways: from an outer loop, by a branch back.
    EXPECT_EQ(comments({"ldr w6, [x3], #4", "cbnz x6, #-4", "add x3, x3, #4", "cbnz x5, #-12"}, table), "");
    EXPECT_EQ(
        comments({"b #8", "add x3, x3, #8", "ldr w6, [x3], #4", "cbnz x6, #-4", "cbnz x5, #-12"}, table), "");
    // One loop after another, and one whose base is moved before it.
    EXPECT_EQ(comments({"ldr w6, [x3], #4", "cbnz x6, #-4", "ldr w7, [x3], #4", "cbnz x7, #-4"}, table),
              ".rodata+0x4  10, ...");
    EXPECT_EQ(comments({"add x3, x3, #4", "cbnz x6, #-4", "ldr w7, [x3], #4", "cbnz x7, #-4"}, table), "");
    // The same address each time.
    EXPECT_EQ(comments({"ldr w6, [x3]", "cbnz x6, #-4"}, table), ".rodata+0x4  10");
    EXPECT_EQ(comments({"ldr w6, [x3], #4", "cbnz x6, #4"}, table), ".rodata+0x4  10");
    EXPECT_EQ(comments({"cbz x0, #8", "add x3, x3, #8", "ldr w6, [x3], #4", "cbnz x6, #-4"}, table), "");
}

TEST(Listing, ShowsNoConstantsThatTheKernelWrites)
{
    const auto comments = [](const std::vector<std::string>& lines) {
        std::vector<std::uint32_t> words = assemble(lines);
        words.insert(words.begin(), a64::adr(3));
        const kernel_set set =
            make_kernel_set({placed("k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}},
                                    bytes_of<std::int64_t>({1, 2, 3, 4}))});
        std::string all;
        for (const listing_row& row : list(set, "k").rows)
            all += row.comment + (row.comment.empty() ? "" : "|");
        return all;
    };
    EXPECT_EQ(comments({"ldr x0, [x3, #8]", "ldr x1, [x3, #16]", "strb w0, [x3, #15]"}),
              ".rodata+0x8, which the kernel may overwrite|.rodata+0x10  3|");
    EXPECT_EQ(comments({"ldr x0, [x3, #8]", "str x0, [x3, x1]"}),
              ".rodata+0x8, which the kernel may overwrite|");
    EXPECT_EQ(
        comments({"ldr x0, [x3, #24]", "mov x5, #2", "str x0, [x3], #8", "sub x5, x5, #1", "cbnz x5, #-8"}),
        ".rodata+0x18  4|");
    EXPECT_EQ(
        comments({"ldr x0, [x3, #8]", "mov x5, #2", "str x0, [x3], #8", "sub x5, x5, #1", "cbnz x5, #-8"}),
        ".rodata+0x8, which the kernel may overwrite|");
    EXPECT_EQ(comments({"ldr x0, [x3, #24]", "str x0, [x3], #8", "cbnz x5, #-4"}),
              ".rodata+0x18, which the kernel may overwrite|");
    EXPECT_EQ(comments({"ldr x0, [x3, #24]", "str x0, [x4]"}), ".rodata+0x18  4|");
    EXPECT_EQ(comments({"ldr x0, [x3, #24]", "cbz x1, #8", "mov x3, x2", "str x0, [x3]"}),
              ".rodata+0x18, which the kernel may overwrite|");
    EXPECT_EQ(comments({"ldr x0, [x3, #24]", "csel x4, x3, x2, eq", "str x0, [x4]"}),
              ".rodata+0x18, which the kernel may overwrite|");
    for (const std::vector<std::string>& lines : std::vector<std::vector<std::string>>{
             {"st1w { z0.s }, p0, [x3]"},
             {"str z0, [x3]"},
             {"st1w { z0.d }, p0, [x3, z1.d]"},
             {"dc zva, x3"},
             {"str x0, [x1, x3]"},
             {"madd x4, x1, x2, x3", "str x0, [x4]"},
             {"umaddl x4, w1, w2, x3", "str x0, [x4]"},
             {"mov x4, x3", "bfi x4, x1, #2, #2", "str x0, [x4]"},
             {"mov x4, x3", "movk x4, #8", "str x0, [x4]"},
         }) {
        std::vector<std::string> kernel = {"ldr x5, [x3, #24]"};
        kernel.insert(kernel.end(), lines.begin(), lines.end());
        EXPECT_EQ(comments(kernel), ".rodata+0x18, which the kernel may overwrite|") << lines.back();
    }
}

TEST(Listing, TakesNoPlaceThatAReturnMayLeadToForData)
{
    const auto has_data = [](const std::vector<std::string>& lines) {
        const kernel_set set = make_kernel_set({placed("k", 0x10000, assemble(lines), {}, {})});
        const std::vector<listing_row> rows = list(set, "k").rows;
        return std::any_of(rows.begin(), rows.end(),
                           [](const listing_row& row) { return row.text.compare(0, 5, ".word") == 0; });
    };
    EXPECT_TRUE(has_data({"adr x9, #16", "mov x30, x19", "ldr w0, [x9]", "ret", "nop"}));
    EXPECT_FALSE(has_data({"adr x9, #16", "mov x30, x9", "ldr w0, [x1]", "ret", "nop", "ret"}));
}

TEST(Listing, ShowsLiteralsInTheCodeAsData)
{
    std::vector<std::uint32_t> words =
        assemble({"ldr s1, #24", "ldr d2, #28", "ldrsw x4, #20", "adr x3, #24", "ldr s3, [x3, #4]", "ret"});
    for (const std::uint32_t word : {0x3d2aaaabU, 0xfffffffeU, 0x3ff80000U, 0x40000000U, 0x3f800000U})
        words.push_back(word);
    words[1] = 0x5c0000c2; // ldr d2, .+24: the word after the first, and the next
    const kernel_set set = make_kernel_set({placed("k", 0x10000, words)});
    const kernel_listing listing = list(set, "k");
    EXPECT_THAT(texts(listing),
                ElementsAre("ldr s1, .L18 ; .L18  0.041666668", "ldr d2, .L1c ; .L1c  1.500000953674316",
                            "ldrsw x4, .L1c ; .L1c  -2", "adr x3, .L24", "ldr s3, [x3, #4] ; .L28  1.0",
                            "ret", ".L18: .word 0x3d2aaaab ; data  0.041666668",
                            ".L1c: .word 0xfffffffe ; data  1.500000953674316", ".word 0x3ff80000 ; data",
                            ".L24: .word 0x40000000 ; data", ".L28: .word 0x3f800000 ; data  1.0"));
    EXPECT_EQ(listing.instructions, 6U);
    EXPECT_FALSE(listing.rows[5].is_data);
    EXPECT_TRUE(listing.rows[6].is_data);
    // Data that is also executed is shown as an instruction.
    EXPECT_THAT(
        texts(list(make_kernel_set({placed("k", 0x10000, assemble({"ldr w0, #4", "nop", "ret"}))}), "k")),
        ElementsAre("ldr w0, .L4", ".L4: nop", "ret"));
    // An indirect branch may lead to an address that an ADR forms.
    EXPECT_THAT(
        texts(list(make_kernel_set({placed("k", 0x10000, assemble({"adr x0, #8", "br x0", "nop", "ret"}))}),
                   "k")),
        ElementsAre("adr x0, .L8", "br x0", ".L8: nop", "ret"));
}

TEST(Listing, KnowsThatOtherKernelsEnter)
{
    const auto comment = [](std::vector<tessjit::reloc_info> others) {
        const kernel_set set =
            make_kernel_set({placed("k", 0x10000, assemble({"adr x3, #0", "nop", "ldr x0, [x3]", "ret"}),
                                    {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}}, bytes_of<double>({1})),
                             placed("other", 0x10020, {a64::bl(), a64::ret()}, std::move(others))});
        return list(set, "k").rows[2].comment;
    };
    EXPECT_EQ(comment({{"k", 0, R_AARCH64_CALL26, 0}}), ".rodata  4607182418800017408");
    EXPECT_EQ(comment({{"k", 0, R_AARCH64_CALL26, 4}}), "");
    EXPECT_EQ(comment({{"k", 0, R_AARCH64_CALL26, 8}}), "");
}

TEST(Listing, TakesTimeInProportionToTheRows)
{
    const auto comment = [](const std::vector<std::string>& lines) {
        const std::vector<std::uint32_t> pattern = assemble(lines);
        std::vector<std::uint32_t> words = {a64::adr(3)};
        while (words.size() < 100'000)
            words.insert(words.end(), pattern.begin(), pattern.end());
        const kernel_set set = make_kernel_set({placed(
            "k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}}, bytes_of<double>({1, 2}))});
        return list(set, "k").rows[1].comment;
    };
    const std::clock_t begin = std::clock();
    EXPECT_EQ(comment({"ldr q7, [x3]"}), ".rodata  {1.0, 2.0}");
    EXPECT_EQ(comment({"ldp q0, q1, [x3]", "str q0, [x1]"}),
              ".rodata, outside the constants, which have 16 bytes");
    EXPECT_EQ(comment({"ldr x6, [x3], #8", "cbnz x6, #-4"}), ".rodata  4607182418800017408, ...");
    // If every load searched to the end, this would take minutes.
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 30);
}

TEST(Listing, OfMoreThanItsLargestSizeIsRefused)
{
    placed_kernel kernel = placed("k", 0x10000, {});
    kernel.text.resize(largest_decoded_code + 1);
    const kernel_set set = make_kernel_set({kernel});
    try {
        list(set, "k");
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "k: 4194305 bytes of code, more than is listed");
    }
}

// What a generator or a hostile file may contain: random words, any offsets and addends.
TEST(Listing, TakesAnySet)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    const auto below = [&](std::uint64_t limit) { return random() % limit; };
    disassembler disassembler;
    for (unsigned round = 0; round < 300; ++round) {
        std::vector<placed_kernel> kernels(1 + below(6));
        for (std::size_t i = 0; i < kernels.size(); ++i) {
            placed_kernel& kernel = kernels[i];
            kernel.name = "k" + std::to_string(below(8));
            kernel.text_address = below(8) == 0 ? random() : 0x10000 * i + below(64);
            kernel.text.resize(below(200));
            for (std::uint8_t& byte : kernel.text)
                byte = static_cast<std::uint8_t>(random());
            kernel.data_address = below(8) == 0 ? random() : kernel.text_end() + below(64);
            kernel.data.resize(below(64));
            for (std::size_t r = below(20); r > 0; --r) {
                static constexpr std::int32_t types[] = {R_AARCH64_ADR_PREL_LO21, R_AARCH64_ADR_PREL_PG_HI21,
                                                         R_AARCH64_ADD_ABS_LO12_NC, R_AARCH64_CALL26, 0};
                tessjit::reloc_info reloc = {
                    below(2) == 0 ? ".rodata." + kernel.name : "k" + std::to_string(below(8)),
                    static_cast<std::int32_t>(below(4) == 0 ? random() : below(220)), types[below(5)],
                    static_cast<std::int32_t>(below(2) == 0 ? random() : below(64))};
                if (reloc.offset % 4 == 0 && reloc.offset >= 0 &&
                    static_cast<std::size_t>(reloc.offset) + 8 <=
                        kernel.text.size()) { // an ADR and a load, often
                    const std::uint32_t words[] = {
                        a64::adr(3), 0x0c400060 | static_cast<std::uint32_t>(random() & 0xf3bffc1f)};
                    std::memcpy(kernel.text.data() + reloc.offset, words, sizeof words);
                }
                kernel.relocs.push_back(std::move(reloc));
            }
        }
        const kernel_set set = make_kernel_set(std::move(kernels));
        for (const placed_kernel& kernel : set.kernels) {
            for (const bool linked : {false, true}) {
                const kernel_listing listing = list_kernel(set, kernel, disassembler, linked);
                ASSERT_EQ(listing.rows.size(), kernel.text.size() / 4 + kernel.text.size() % 4);
                for (const listing_row& row : listing.rows)
                    ASSERT_NE(row_text(row), "");
            }
        }
        const linked_set linked = link_set(set);
        try {
            ASSERT_NE(make_image(set, linked).bytes, "");
        } catch (const std::runtime_error& error) {
            ASSERT_THAT(error.what(), HasSubstr("so far apart"));
        }
    }
}

class ShowCommand : public testing::Test {
protected:
    void SetUp() override
    {
        const std::vector<std::uint32_t> words = {a64::cbz(0, 2), a64::bl(), a64::adr(3), a64::ldr(1, 3)};
        write_file(directory.path() / "dumps",
                   dump_of({placed("caller", 0x10000, words,
                                   {{"odd\n\xff", 4, R_AARCH64_CALL26, 0},
                                    {".rodata.caller", 8, R_AARCH64_ADR_PREL_LO21, 0}},
                                   {7, 0, 0, 0, 0, 0, 0, 0}, 0x10040),
                            placed("odd\n\xff", 0x10020, {a64::ret()}, {}, {}, 0x10048)}));
    }

    [[nodiscard]] child_result show(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "show", "dumps"});
        return run_tool(std::move(arguments), directory.path());
    }

    temp_directory directory;
};

TEST_F(ShowCommand, PrintsEachKernel)
{
    const child_result show = this->show({});
    EXPECT_EQ(show.exit_status, 0);
    EXPECT_EQ(show.err, "");
    EXPECT_EQ(show.out, "caller  0x10000  16 bytes, 4 instructions; data 0x10040, 8 bytes\n"
                        "  reads x0, .rodata; writes x1, x3, x30; stack unknown; calls odd\\n\\xff; "
                        "max live 1 general (+00)\n"
                        " +00  b4000040  cbz   x0, .L8\n"
                        " +04  94000007  bl    odd\\n\\xff\n"
                        ".L8:\n"
                        " +08  100001c3  adr   x3, .rodata\n"
                        " +0c  f9400061  ldr   x1, [x3]                     ; .rodata  7\n"
                        "\n"
                        "odd\\n\\xff  0x10020  4 bytes, 1 instruction; called by caller\n"
                        "  stack unknown; max live 1 general (+00)\n"
                        " +00  d65f03c0  ret\n");
    EXPECT_THAT(this->show({"caller", "--color=always"}).out, HasSubstr("\x1b[32m; .rodata  7\x1b[0m\n"));
    EXPECT_THAT(this->show({"caller", "--unlinked"}).out, HasSubstr(" +04  94000000  bl    0x10004  "));
}

TEST_F(ShowCommand, NamesTheNearestOfANameThatIsNotThere)
{
    const child_result show = this->show({"calle", "caller"});
    EXPECT_EQ(show.exit_status, 2);
    EXPECT_EQ(show.err, "vorna-kernels: no kernel calle in the dumps; did you mean caller?\n");
    EXPECT_THAT(show.out, testing::StartsWith("caller  0x10000"));
}

TEST_F(ShowCommand, ListsTheOthersWhereAKernelIsTooLarge)
{
    write_file(directory.path() / "large",
               dump_of({placed_bytes("large", 0x1000000, largest_decoded_code + 4, 0x10000000)}));
    const child_result show = run_tool({VORNA_KERNELS, "show", "."}, directory.path());
    EXPECT_EQ(show.exit_status, 2);
    EXPECT_EQ(show.err, "vorna-kernels: large: 4194308 bytes of code, more than is listed\n");
    EXPECT_THAT(show.out, HasSubstr("caller  0x10000"));
}

TEST_F(ShowCommand, SaysThatThereAreNoDumps)
{
    std::filesystem::create_directory(directory.path() / "none");
    const child_result show = run_tool({VORNA_KERNELS, "show", "none"}, directory.path());
    EXPECT_EQ(show.exit_status, 2);
    EXPECT_EQ(show.out, "");
    EXPECT_EQ(show.err, "vorna-kernels: none: no dumps found\n");
}

} // namespace
