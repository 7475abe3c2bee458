#include "workbench/analysis/load_comments.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"

#include <cstring>
#include <ctime>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>

namespace {

using namespace vorna::workbench;
using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// The bytes of numbers in memory order.
template <typename T>
std::vector<std::uint8_t> bytes_of(const std::vector<T>& numbers)
{
    std::vector<std::uint8_t> bytes(numbers.size() * sizeof(T));
    std::memcpy(bytes.data(), numbers.data(), bytes.size());
    return bytes;
}

described_loads describe(const placed_kernel& kernel)
{
    const kernel_set set = make_kernel_set({kernel});
    const decoded_kernel decoded = decode_kernel(set.kernels[0]);
    const code_map map = map_code(decoded, {});
    return describe_loads(&set, decoded, map);
}

// The comments of a kernel's loads by their offsets. X3 has the address of its constants + `addend`.
template <typename T>
std::map<std::size_t, std::string> comments_of(const std::vector<std::string>& lines,
                                               const std::vector<T>& constants, std::int32_t addend = 0)
{
    std::vector<std::uint32_t> words = assemble(lines);
    words.insert(words.begin(), a64::adr(3));
    const auto comments =
        describe(placed("k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, addend}},
                        bytes_of(constants)))
            .comments;
    return {comments.begin(), comments.end()};
}

// The comment of the first line.
template <typename T>
std::string comment_of(const std::vector<std::string>& lines, const std::vector<T>& constants)
{
    return comments_of(lines, constants)[4];
}

TEST(LoadComment, HasFloatingPointNumbersAsShortAsTheyReadBack)
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

TEST(LoadComment, HasIntegersWithTheSignThatTheLoadGivesThem)
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

TEST(LoadComment, HasVectorsInTheOrderOfTheirLanes)
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

TEST(LoadComment, TypesAVectorByTheNextInstructionThatUsesIt)
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
    const placed_kernel named =
        placed("k", 0x10000, {a64::adr(3), 0x3dc00067, a64::add(0, 0, 0)}, // ldr q7, [x3]
               {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}, {"conv7.s", 8, R_AARCH64_ADD_ABS_LO12_NC, 0}},
               bytes_of(floats));
    EXPECT_EQ(describe(named).comments[4], as_doubles);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "mov v7.16b, v1.16b", "fadd v0.4s, v7.4s, v7.4s"}, floats),
              as_doubles);
    for (const char* other : {"ldr q7, [x4]", "fmov d7, x0", "ld1 {v7.4s}, [x4]", "ldr z7, [x4]"})
        EXPECT_EQ(comment_of({"ldr q7, [x3]", other, "fadd v0.4s, v7.4s, v7.4s"}, floats), as_doubles);
    for (const char* another : {"ldr q17, [x4]", "ldr x7, [x4]", "ldr q0, [x7]"})
        EXPECT_EQ(comment_of({"ldr q7, [x3]", another, "fadd v0.4s, v7.4s, v7.4s"}, floats), as_floats);
    EXPECT_EQ(comment_of({"ldr q7, [x3]", "ret", "fadd v0.4s, v7.4s, v7.4s"}, floats), as_doubles);
}

TEST(LoadComment, FollowsTheBaseRegister)
{
    EXPECT_THAT(comments_of<double>({"ldr d0, [x3], #8", "ldr d1, [x3]", "mov x4, x3", "ldr d2, [x4, #8]!",
                                     "ldr d3, [x4, #8]", "ldr d4, [x4, #800]", "ldur d5, [x3, #-16]",
                                     "cbz x0, #8", "ldr d6, [x3]", "ldr d7, [x3]"},
                                    {0, 1, 2, 3, 4}, 8),
                ElementsAre(Pair(4, ".rodata+0x8  1.0"), Pair(8, ".rodata+0x10  2.0"),
                            Pair(16, ".rodata+0x18  3.0"), Pair(20, ".rodata+0x20  4.0"),
                            Pair(24, ".rodata+0x338, outside the constants, which have 40 bytes"),
                            Pair(28, ".rodata  0.0"), Pair(36, ".rodata+0x10  2.0"),
                            Pair(40, ".rodata+0x10  2.0")));
}

TEST(LoadComment, HasTheFirstValuesOfATableReadInALoop)
{
    const auto comments = [](const std::vector<std::string>& loop, const std::vector<std::int32_t>& table) {
        std::string all;
        for (const auto& [offset, comment] : comments_of(loop, table, 4))
            all += comment;
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

TEST(LoadComment, HasNoValuesThatTheKernelMayOverwrite)
{
    const auto comments = [](const std::vector<std::string>& lines) {
        std::string all;
        for (const auto& [offset, comment] : comments_of<std::int64_t>(lines, {1, 2, 3, 4}))
            all += comment + "|";
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

TEST(LoadComment, OfDataInTheCodeHasItsLabel)
{
    std::vector<std::uint32_t> words = assemble({"ldr s1, #16", "adr x3, #16", "ldr w4, [x3]", "ret"});
    words.insert(words.end(), {0x3f800000, 7});
    described_loads described = describe(placed("k", 0x10000, words));
    EXPECT_EQ(described.comments.size(), 2U);
    EXPECT_EQ(described.comments.at(0), ".L10  1.0");
    EXPECT_EQ(described.comments.at(8), ".L14  7");
    EXPECT_EQ(described.data.size(), 2U);
    EXPECT_EQ(described.data.at(16), "1.0");
    EXPECT_EQ(described.data.at(20), "7");
}

TEST(LoadComment, IsNotOnDataInTheCodeThatARelocationFills)
{
    const auto comments = [](std::vector<tessjit::reloc_info> relocs) {
        return describe(
                   placed("k", 0x10000, assemble({"ldr w1, #8", "ret", "adr x0, #0"}), std::move(relocs)))
            .comments;
    };
    EXPECT_EQ(comments({}).size(), 1U);
    EXPECT_THAT(comments({{"k", 8, R_AARCH64_ADR_PREL_LO21, 0}}), IsEmpty());
}

TEST(LoadComment, NeedsAPlacedSetForAnAddressFromAPage)
{
    const placed_kernel kernel =
        placed("k", 0x10000, {a64::adrp(3), 0xf9400060, a64::ret()}, // ldr x0, [x3]
               {{".rodata.k", 0, R_AARCH64_ADR_PREL_PG_HI21, 0}}, bytes_of<std::int64_t>({5}), 0x20000);
    EXPECT_EQ(describe(kernel).comments[4], ".rodata  5");
    const decoded_kernel decoded = decode_kernel(kernel);
    EXPECT_THAT(describe_loads(nullptr, decoded, map_code(decoded, {})).comments, IsEmpty());
}

TEST(LoadComment, TakesTimeInProportionToTheInstructions)
{
    const auto comment = [](const std::vector<std::string>& lines) {
        const std::vector<std::uint32_t> pattern = assemble(lines);
        std::vector<std::uint32_t> words = {a64::adr(3)};
        while (words.size() < 100'000)
            words.insert(words.end(), pattern.begin(), pattern.end());
        return describe(placed("k", 0x10000, words, {{".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}},
                               bytes_of<double>({1, 2})))
            .comments[4];
    };
    const std::clock_t begin = std::clock();
    EXPECT_EQ(comment({"ldr q7, [x3]"}), ".rodata  {1.0, 2.0}");
    EXPECT_EQ(comment({"ldp q0, q1, [x3]", "str q0, [x1]"}),
              ".rodata, outside the constants, which have 16 bytes");
    EXPECT_EQ(comment({"ldr x6, [x3], #8", "cbnz x6, #-4"}), ".rodata  4607182418800017408, ...");
    // If every load searched to the end, this would take minutes.
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 30);
}

} // namespace
