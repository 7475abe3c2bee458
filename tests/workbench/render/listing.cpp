// The contents of a kernel's listing.

#include "workbench/render/listing.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/image/elf_image.hpp"
#include "workbench/kernels/linking.hpp"

#include <algorithm>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

TEST(Listing, ShowsWhereACallLeadsIfItsTopBitWasSet)
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

TEST(Listing, ShowsTheCodeAsGeneratedWithRelocationsAsComments)
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

TEST(Listing, ShowsARelocationOfAnotherInstructionAsAComment)
{
    const kernel_set set = make_kernel_set(
        {placed("k", 0x10000, {a64::bl(), 0xd4000000}, // of no field that its kind tests
                {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}, {"k", 4, R_AARCH64_ADD_ABS_LO12_NC, 0}})});
    EXPECT_THAT(texts(list(set, "k")), ElementsAre("bl 0x20000 ; R_AARCH64_ADR_PREL_LO21 .rodata",
                                                   ".word 0xd4000000 ; R_AARCH64_ADD_ABS_LO12_NC k"));
    EXPECT_EQ(texts(list(set, "k", false)).front(), "bl 0x10000 ; R_AARCH64_ADR_PREL_LO21 .rodata");
}

TEST(Listing, HasAsManyDigitsAsTheLastOffset)
{
    placed_kernel kernel;
    for (const auto& [size, digits] : {std::pair(0U, 2), {1, 2}, {256, 2}, {257, 3}, {4096, 3}, {4097, 4}}) {
        kernel.text.resize(size);
        EXPECT_EQ(offset_digits(kernel), digits) << size;
    }
}

TEST(Listing, DoesNotCountCallsOfConstants)
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

TEST(Listing, ShowsWordsAndBytesThatAreNotInstructions)
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

TEST(Listing, ForgetsAddressesWhereOtherKernelsEnter)
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
TEST(Listing, AcceptsAnySet)
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

} // namespace
