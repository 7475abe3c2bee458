#include "workbench/analysis/canonical_code.hpp"
#include "tests/support/assembled_kernel.hpp"

#include <gtest/gtest.h>
#include <tuple>

namespace {

using vorna::workbench::code_row;
using vorna::workbench::code_rows;
using vorna::workbench::decode_kernel;
using vorna::workbench::decoded_kernel;
using vorna::workbench::equal_references;
using vorna::workbench::no_row;
using vorna::workbench::placed_kernel;
using vorna::workbench::relocations_by_place;

using lines = std::vector<std::string>;

std::vector<code_row> rows_of(const placed_kernel& kernel)
{
    const decoded_kernel decoded = decode_kernel(kernel);
    return code_rows(decoded);
}

std::vector<code_row> rows_of(const lines& code)
{
    return rows_of(support::assembled_kernel("k", code));
}

bool same(const code_row& a, const code_row& b)
{
    return std::tie(a.key, a.target, a.distance) == std::tie(b.key, b.target, b.distance);
}

TEST(CodeRow, HasTheTargetsRowInsteadOfTheDistance)
{
    for (const std::string instruction :
         {"b ", "bl ", "b.eq ", "cbz x1, ", "tbz w1, #3, ", "adr x1, ", "ldr x1, ", "ldr q1, "}) {
        const code_row near = rows_of(lines{instruction + "#8", "nop", "ret"})[0];
        const code_row far = rows_of(lines{instruction + "#12", "nop", "nop", "ret"})[0];
        EXPECT_EQ(near.key, far.key) << instruction;
        EXPECT_EQ(near.target, 2U);
        EXPECT_EQ(far.target, 3U);
        EXPECT_EQ(far.distance, 0);
    }
}

TEST(CodeRow, DiffersWithEveryOperandOfAPcRelativeInstruction)
{
    const lines instructions = {"b #4",
                                "bl #4",
                                "b.eq #4",
                                "b.ne #4",
                                "cbz x1, #4",
                                "cbz w1, #4",
                                "cbz x2, #4",
                                "cbnz x1, #4",
                                "tbz w1, #3, #4",
                                "tbz w1, #4, #4",
                                "tbz w2, #3, #4",
                                "tbz x1, #35, #4",
                                "tbnz w1, #3, #4",
                                "adr x1, #4",
                                "adr x2, #4",
                                "ldr x1, #4",
                                "ldr w1, #4",
                                "ldr x2, #4",
                                "ldr d1, #4",
                                "ldr q1, #4",
                                "ldrsw x1, #4",
                                "prfm pldl1keep, #4",
                                "prfm pldl2keep, #4"};
    const std::vector<code_row> rows = rows_of(instructions);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t k = 0; k < i; ++k)
            EXPECT_NE(rows[i].key, rows[k].key) << instructions[i] << " and " << instructions[k];
    }
}

TEST(CodeRow, HasTheDistanceIfItsTargetIsNotARow)
{
    const std::vector<code_row> rows =
        rows_of(lines{"b #12", "adr x1, #5", "b #8", "b #-16", "adrp x1, #4096"});
    EXPECT_EQ(rows[0].target, 3U);
    EXPECT_EQ(rows[1].target, no_row) << "between two instructions";
    EXPECT_EQ(rows[1].distance, 5);
    EXPECT_EQ(rows[2].target, 4U);
    EXPECT_EQ(rows[3].target, no_row) << "before the kernel";
    EXPECT_EQ(rows[3].distance, -16);
    const std::vector<code_row> end = rows_of(lines{"b #8", "b #8"});
    EXPECT_EQ(end[0].target, 2U) << "the end of the code";
    EXPECT_EQ(end[1].target, no_row);
    EXPECT_EQ(end[1].distance, 8);
}

TEST(CodeRow, DiffersWithEveryMemberOfARelocation)
{
    const auto row = [](std::vector<tessjit::reloc_info> relocs) {
        return rows_of(support::placed("k", 0x10000, {0x10000000, 0xd65f03c0}, std::move(relocs)))[0];
    };
    const code_row original = row({{"f", 0, 274, 8}});
    EXPECT_TRUE(same(original, row({{"f", 0, 274, 8}})));
    EXPECT_TRUE(same(original, row({{"f", 0, 274, 8}, {"f", 4, 274, 8}}))) << "that one is of the next row";
    for (const tessjit::reloc_info& other :
         {tessjit::reloc_info{"g", 0, 274, 8}, {"f", 0, 275, 8}, {"f", 0, 274, 9}, {"f", 1, 274, 8}})
        EXPECT_FALSE(same(original, row({other})));
    EXPECT_FALSE(same(original, row({{"f", 0, 274, 8}, {"f", 0, 274, 8}})));
    EXPECT_FALSE(same(original, row({})));
}

TEST(CodeRow, KeepsTheOrderOfTheRelocationsOfAnInstruction)
{
    const auto row = [](std::vector<tessjit::reloc_info> relocs) {
        return rows_of(support::placed("k", 0x10000, {0x10000000}, std::move(relocs)))[0];
    };
    EXPECT_FALSE(same(row({{"f", 0, 274, 0}, {"g", 0, 274, 0}}), row({{"g", 0, 274, 0}, {"f", 0, 274, 0}})));
    EXPECT_TRUE(same(row({{"f", 0, 274, 0}, {"g", 8, 274, 0}}), row({{"g", 8, 274, 0}, {"f", 0, 274, 0}})));
}

TEST(CodeRows, HaveOneForEachByteAfterTheLastWord)
{
    placed_kernel kernel = support::placed("k", 0x10000, {0xd65f03c0});
    kernel.text.insert(kernel.text.end(), {1, 2, 2});
    const std::vector<code_row> rows = rows_of(kernel);
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_FALSE(same(rows[1], rows[2]));
    EXPECT_TRUE(same(rows[2], rows[3]));
}

TEST(RelocationsByPlace, AreSortedByOffsetAndThenInTheirOwnOrder)
{
    const placed_kernel kernel =
        support::placed("k", 0x10000, {}, {{"b", 8, 1, 0}, {"c", 0, 1, 0}, {"a", 8, 1, 0}, {"d", -4, 1, 0}});
    std::string names;
    for (const tessjit::reloc_info& reloc : relocations_by_place(kernel))
        names += reloc.name;
    EXPECT_EQ(names, "dcba");
}

TEST(EqualReferences, HaveAllMembersInTheSameOrder)
{
    const std::vector<tessjit::reloc_info> relocs = {{"f", 0, 283, 8}, {"g", 4, 274, 0}};
    EXPECT_TRUE(equal_references(relocs, relocs));
    EXPECT_TRUE(equal_references({}, {}));
    EXPECT_FALSE(equal_references(relocs, {relocs[1], relocs[0]}));
    EXPECT_FALSE(equal_references(relocs, {relocs[0]}));
    for (const tessjit::reloc_info& other :
         {tessjit::reloc_info{"g", 0, 283, 8}, {"f", 4, 283, 8}, {"f", 0, 274, 8}, {"f", 0, 283, 0}})
        EXPECT_FALSE(equal_references(relocs, {other, relocs[1]}));
}

} // namespace
