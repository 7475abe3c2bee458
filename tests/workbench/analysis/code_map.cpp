#include "workbench/analysis/code_map.hpp"
#include "tests/support/assembled_kernel.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::code_entry;
using vorna::workbench::code_map;
using vorna::workbench::decode_and_map;
using vorna::workbench::decode_kernel;
using vorna::workbench::decoded_kernel;
using vorna::workbench::map_code;
using vorna::workbench::placed_kernel;
using vorna::workbench::prepare_decoding;
using vorna::workbench::successors;
using vorna::workbench::successors_of;
using vorna::workbench::word_use;

using lines = std::vector<std::string>;

code_map map_of(const lines& code, const std::vector<code_entry>& entries = {})
{
    const placed_kernel kernel = support::assembled_kernel("k", code);
    const decoded_kernel decoded = decode_kernel(kernel);
    return map_code(decoded, entries);
}

// A letter for each word: "c" for code, "d" for data, "u" for unknown.
std::string uses(const code_map& map)
{
    std::string text;
    for (const word_use use : map.uses)
        text += use == word_use::code ? 'c' : use == word_use::data ? 'd' : 'u';
    return text;
}

std::string uses(const lines& code, const std::vector<code_entry>& entries = {})
{
    return uses(map_of(code, entries));
}

// "x" for each word that is in the set.
std::string marks(const std::vector<bool>& words)
{
    std::string text;
    for (const bool word : words)
        text += word ? 'x' : '.';
    return text;
}

TEST(CodeMap, FollowsDirectBranchesAndCalls)
{
    EXPECT_EQ(uses({"b #8", "nop", "ret"}), "cuc");
    EXPECT_EQ(uses({"b.eq #8", "ret", "nop", "ret"}), "cccc");
    EXPECT_EQ(uses({"cbz x0, #12", "ret", "nop", "ret"}), "ccuc");
    EXPECT_EQ(uses({"tbnz w0, #1, #12", "ret", "nop", "ret"}), "ccuc");
    EXPECT_EQ(uses({"bl #12", "ret", "nop", "ret"}), "ccuc");
    EXPECT_EQ(uses({"bl f", "blr x1", "svc #0", "ret", "nop"}), "ccccu");
    EXPECT_EQ(uses({"b #-8", "nop"}), "cu") << "out of the kernel";
    EXPECT_EQ(uses({"b #8", "nop"}), "cu") << "past its end";
}

TEST(CodeMap, EndsAtInstructionsWithoutASuccessor)
{
    for (const std::string end : {"ret", "br x1", "brk #0", "hlt #0", ".word 0", "eret"})
        EXPECT_EQ(uses({end, "nop"}), "cu") << end;
}

TEST(CodeMap, StartsAtEveryEntry)
{
    const lines code = {"ret", "nop", "ret", "nop", "ret"};
    EXPECT_EQ(uses(code), "cuuuu");
    const code_map called = map_of(code, {{8, true}});
    EXPECT_EQ(uses(called), "cucuu");
    EXPECT_EQ(marks(called.entries), "x.x..");
    // An address that may be taken to read the code.
    const code_map taken = map_of(code, {{8, false}});
    EXPECT_EQ(uses(taken), "cuuuu");
    EXPECT_EQ(marks(taken.entries), "x.x..");
    EXPECT_EQ(marks(map_of(code, {{-4, true}, {20, true}, {-1, false}}).entries), "x....");
    EXPECT_EQ(marks(map_of(code, {{16, true}}).entries), "x...x");
}

TEST(CodeMap, StartsWhereTheKernelItselfEntersByARelocation)
{
    EXPECT_EQ(uses({"bl k+12", "ret", "nop", "nop", "ret"}), "ccucc");
    const code_map taken = map_of({"adr x1, code12", "ret", "nop", "nop"});
    EXPECT_EQ(marks(taken.entries), "x..x");
    EXPECT_EQ(uses(taken), "ccud");
    EXPECT_EQ(marks(map_of({"bl k", "ret"}).entries), "x.");
}

TEST(CodeMap, HasLeadersAtBranchTargetsAndEntries)
{
    EXPECT_EQ(marks(map_of({"cbz x0, #12", "nop", "nop", "ret"}).leaders), "x..x");
    EXPECT_EQ(marks(map_of({"nop", "nop", "cbnz x0, #-4", "ret"}).leaders), "xx..");
    EXPECT_EQ(marks(map_of({"ret", "nop", "ret"}, {{4, true}}).leaders), "xx.");
    EXPECT_EQ(marks(map_of({"bl #8", "ret", "ret"}).leaders), "x.x");
}

TEST(CodeMap, TakesTheWordsOfALiteralLoadForData)
{
    EXPECT_EQ(uses({"ldr w0, #8", "ret", "nop", "nop"}), "ccdu");
    EXPECT_EQ(uses({"ldrsw x0, #8", "ret", "nop", "nop"}), "ccdu");
    EXPECT_EQ(uses({"ldr x0, #8", "ret", "nop", "nop", "nop"}), "ccddu");
    EXPECT_EQ(uses({"ldr q0, #8", "ret", "nop", "nop", "nop", "nop", "nop"}), "ccddddu");
    EXPECT_EQ(uses({"ldr q0, #8", "ret", "nop"}), "ccd");
    EXPECT_EQ(uses({"b #8", "nop", "ldr w0, #-8", "ret"}), "cucc") << "the B is executed";
    EXPECT_EQ(uses({"b #8", "nop", "ldr x0, #-4", "ret"}), "cdcc");
    EXPECT_EQ(uses({"ldr x0, #-8", "ret"}), "cc");
    EXPECT_EQ(uses({"ret", "ldr w0, #8", "nop", "nop"}), "cuuu") << "a load that is never executed";
}

TEST(CodeMap, TakesWordsAtAnAdrUpToTheNextCodeForData)
{
    EXPECT_EQ(uses({"adr x1, #12", "b #16", "nop", "nop", "nop", "ret"}), "ccuddc");
    EXPECT_EQ(uses({"adr x1, #4", "ret", "nop"}), "ccu") << "code at the address";
    EXPECT_EQ(uses({"adr x1, #-4", "ret", "nop"}), "ccu");
    EXPECT_EQ(uses({"adr x1, #9", "ret", "nop"}), "ccd");
}

TEST(CodeMap, TakesNothingForDataIfAnIndirectBranchMayLeadThere)
{
    for (const std::string branch : {"br x1", "blr x1", "ret x1", "braa x1, x2"}) {
        const code_map map = map_of({"adr x1, #12", branch, "ret", "nop"});
        EXPECT_EQ(uses(map).back(), 'u') << branch;
        EXPECT_TRUE(map.any_entry) << branch;
        EXPECT_FALSE(map_of({"nop", branch, "ret", "nop"}).any_entry)
            << branch << " without an address of the kernel";
    }
    EXPECT_FALSE(map_of({"adr x1, #12", "ret", "nop", "nop"}).any_entry);
    EXPECT_FALSE(map_of({"adr x1, data8", "br x1"}).any_entry) << "an address of constants";
    EXPECT_TRUE(map_of({"adr x1, code8", "br x1", "nop"}).any_entry);
    EXPECT_TRUE(map_of({"adrp x1, #0", "br x1", "nop"}).any_entry);
    EXPECT_TRUE(map_of({"bl #8", "ret", "br x30"}).any_entry) << "a BL leaves an address in X30";
    EXPECT_FALSE(map_of({"bl f", "br x1"}).any_entry);
}

TEST(CodeMap, KnowsThatARetMayLeadToAnAddressMovedToX30)
{
    EXPECT_TRUE(map_of({"adr x30, #8", "ret", "nop"}).any_entry);
    EXPECT_TRUE(map_of({"adr x9, #12", "mov x30, x9", "ret", "nop"}).any_entry);
    EXPECT_FALSE(map_of({"adr x9, #12", "mov x30, x10", "ret", "nop"}).any_entry);
    EXPECT_FALSE(map_of({"adr x9, #12", "mov x29, x9", "ret", "nop"}).any_entry);
    EXPECT_EQ(uses({"adr x9, #16", "mov x30, x19", "ldr w0, [x9]", "ret", "nop"}), "ccccd");
    EXPECT_EQ(uses({"adr x9, #16", "mov x30, x9", "ldr w0, [x1]", "ret", "nop", "ret"}), "ccccuu");
}

// 0xd6a00000 has the encoding of a branch to a register but is not allocated; 0xd4000000 of an exception.
TEST(CodeMap, LetsAnUnknownBranchLeadAnywhere)
{
    const code_map branch = map_of({".word 0xd6a00000", "ret"});
    EXPECT_TRUE(branch.any_entry);
    EXPECT_EQ(uses(branch), "cc");
    EXPECT_FALSE(map_of({"ret", ".word 0xd6a00000"}).any_entry) << "never executed";
    EXPECT_FALSE(map_of({".word 0xff000001", "ret"}).any_entry) << "not among the branches";
}

TEST(CodeMap, DecodesOnlyTheWordsThatMayBeExecuted)
{
    const placed_kernel kernel =
        support::assembled_kernel("k", {"b #8", "fadd d0, d0, d1", "ldr w0, #-4", "ret", "nop"});
    decoded_kernel decoded = prepare_decoding(kernel);
    const code_map map = decode_and_map(decoded, {});
    EXPECT_EQ(uses(map), "cdccu");
    std::vector<bool> words;
    for (const auto& instruction : decoded.instructions)
        words.push_back(instruction.decoded);
    EXPECT_EQ(marks(words), "x.xx.");
}

TEST(Successors, AreTheNextWordAndTheTargetOfABranch)
{
    const auto of = [](const lines& code, std::size_t index) {
        const placed_kernel kernel = support::assembled_kernel("k", code);
        const decoded_kernel decoded = decode_kernel(kernel);
        const successors found = successors_of(decoded, index);
        return (found.next ? "next " : "") + (found.target ? std::to_string(*found.target) : "none");
    };
    EXPECT_EQ(of({"nop", "ret"}, 0), "next none");
    EXPECT_EQ(of({"b #4", "ret"}, 0), "1");
    EXPECT_EQ(of({"nop", "cbz x0, #-4"}, 1), "next 0");
    EXPECT_EQ(of({"nop", "cbz x0, #-8"}, 1), "next none");
    EXPECT_EQ(of({"b #8", "ret"}, 0), "none");
    EXPECT_EQ(of({"bl #4", "ret"}, 0), "next 1");
    EXPECT_EQ(of({"bl f", "ret"}, 0), "next none");
    EXPECT_EQ(of({"adr x0, #4", "ret"}, 0), "next none") << "not a branch";
    EXPECT_EQ(of({"ldr x0, #4", "ret"}, 0), "next none");
    EXPECT_EQ(of({"ret"}, 0), "none");
}

} // namespace
