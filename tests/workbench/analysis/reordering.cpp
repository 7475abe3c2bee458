#include "workbench/analysis/reordering.hpp"
#include "tests/support/assembled_kernel.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::decode_kernel;
using vorna::workbench::only_order_differs;
using vorna::workbench::placed_kernel;

using lines = std::vector<std::string>;

bool reordered(const placed_kernel& before, const placed_kernel& after,
               const std::vector<std::int64_t>& entries = {})
{
    const auto a = decode_kernel(before);
    const auto b = decode_kernel(after);
    const bool forth = only_order_differs(a, b, entries);
    EXPECT_EQ(only_order_differs(b, a, entries), forth);
    return forth;
}

bool reordered(const lines& before, const lines& after, const std::vector<std::int64_t>& entries = {})
{
    return reordered(support::assembled_kernel("k", before), support::assembled_kernel("k", after), entries);
}

TEST(Reordering, IsWithinABlock)
{
    EXPECT_TRUE(reordered({"mov x9, #1", "movk x9, #2", "ret"}, {"movk x9, #2", "mov x9, #1", "ret"}));
    EXPECT_TRUE(reordered({"mov x9, #1", "ret"}, {"mov x9, #1", "ret"}));
    EXPECT_FALSE(reordered({"mov x9, #1", "cbz x0, #8", "movk x9, #2", "ret"},
                           {"movk x9, #2", "cbz x0, #8", "mov x9, #1", "ret"}));
    EXPECT_FALSE(reordered({"mov x9, #1", "bl f", "movk x9, #2", "ret"},
                           {"movk x9, #2", "bl f", "mov x9, #1", "ret"}));
    EXPECT_FALSE(
        reordered({"mov x9, #1", "cbz x0, #8", "nop", "ret"}, {"cbz x0, #12", "mov x9, #1", "nop", "ret"}))
        << "a terminator ends its block";
    EXPECT_FALSE(reordered({"mov x9, #1", "movk x9, #2", "cbz x0, #-4", "ret"},
                           {"movk x9, #2", "mov x9, #1", "cbz x0, #-4", "ret"}))
        << "a branch target begins a block";
}

TEST(Reordering, NeedsTheSameInstructionsAsOftenInBoth)
{
    EXPECT_FALSE(reordered({"nop", "movk x9, #2", "ret"}, {"movk x9, #2", "movk x9, #2", "ret"}));
    EXPECT_FALSE(reordered({"nop", "nop", "ret"}, {"nop", "ret"}));
    EXPECT_FALSE(reordered({"movk x9, #2", "nop", "ret"}, {"nop", "movk x9, #3", "ret"}));
}

TEST(Reordering, MovesRelocationsWithTheirInstructions)
{
    EXPECT_TRUE(
        reordered({"adr x3, data", "adr x4, data8", "ret"}, {"adr x4, data8", "adr x3, data", "ret"}));
    EXPECT_FALSE(
        reordered({"adr x3, data", "adr x4, data8", "ret"}, {"adr x4, data", "adr x3, data8", "ret"}));
    // Relocations that are in none of the instructions must be equal.
    placed_kernel before = support::assembled_kernel("k", {"nop", "movk x9, #2", "ret"});
    placed_kernel after = support::assembled_kernel("k", {"movk x9, #2", "nop", "ret"});
    before.relocs = {{"f", 12, 283, 0}, {"f", -4, 283, 0}};
    EXPECT_FALSE(reordered(before, after));
    after.relocs = {{"f", -4, 283, 0}, {"f", 12, 283, 0}};
    EXPECT_TRUE(reordered(before, after));
    after.relocs[0].addend = 4;
    EXPECT_FALSE(reordered(before, after));
}

TEST(Reordering, KeepsTheTargetOfAPcRelativeInstruction)
{
    EXPECT_TRUE(reordered({"ldr x9, #8", "movk x10, #2", "ret"}, {"movk x10, #2", "ldr x9, #4", "ret"}));
    EXPECT_FALSE(reordered({"ldr x9, #8", "movk x10, #2", "ret"}, {"movk x10, #2", "ldr x9, #8", "ret"}));
}

TEST(Reordering, IsNotAnExchangeOfData)
{
    EXPECT_FALSE(reordered({"ldr s0, #8", "ret", ".word 0x11111111", ".word 0x22222222"},
                           {"ldr s0, #8", "ret", ".word 0x22222222", ".word 0x11111111"}));
    EXPECT_TRUE(reordered({"mov x9, #1", "movk x9, #2", "ret", ".word 0x11111111"},
                          {"movk x9, #2", "mov x9, #1", "ret", ".word 0x11111111"}));
    placed_kernel before = support::assembled_kernel("k", {"nop", "movk x9, #2", "ret"});
    placed_kernel after = support::assembled_kernel("k", {"movk x9, #2", "nop", "ret"});
    before.text.insert(before.text.end(), {1, 2});
    after.text.insert(after.text.end(), {2, 1});
    EXPECT_FALSE(reordered(before, after)) << "bytes after the last word";
}

TEST(Reordering, KnowsWhatOtherKernelsExecute)
{
    const lines before = {"ret", "mov x9, #1", "movk x9, #2", "ret"};
    const lines after = {"ret", "movk x9, #2", "mov x9, #1", "ret"};
    EXPECT_FALSE(reordered(before, after)) << "never executed: it may be data";
    EXPECT_TRUE(reordered(before, after, {4}));
}

} // namespace
