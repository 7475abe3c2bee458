// The proof for the classes "layout" and "registers": kernels that are equivalent, and kernels that only look
// equivalent.

#include "tests/support/assembled_kernel.hpp"
#include "workbench/analysis/difference.hpp"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using vorna::workbench::compare_kernels;
using vorna::workbench::name_of;
using vorna::workbench::placed_kernel;

using lines = std::vector<std::string>;

std::string change(const lines& before, const lines& after, const std::vector<double>& old_data = {},
                   const std::vector<double>& new_data = {})
{
    const placed_kernel a = support::assembled_kernel("k", before, support::bytes_of(old_data));
    const placed_kernel b = support::assembled_kernel("k", after, support::bytes_of(new_data));
    const std::string forth(name_of(compare_kernels(a, b)));
    const std::string back(name_of(compare_kernels(b, a)));
    EXPECT_EQ(forth, back);
    return forth;
}

// "layout", or "doubt", with the constants 1 and 2 exchanged; "AT" is where the 1 is.
std::string change_of_layout(lines before)
{
    lines after = before;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (const std::size_t at = before[i].find("AT"); at != std::string::npos) {
            before[i].replace(at, 2, "0");
            after[i].replace(at, 2, "8");
        }
    }
    return change(before, after, {1, 2}, {2, 1}) == "layout" ? "layout" : "doubt";
}

// With X9 and X10, and V16 and V17, exchanged: "A" and "B" stand for the numbers.
std::string change_of_names(const lines& code)
{
    const auto named = [&](const char* a, const char* b) {
        lines made = code;
        for (std::string& line : made) {
            for (std::size_t at = 0; (at = line.find_first_of("AB", at)) != std::string::npos; ++at)
                line.replace(at, 1, line[at] == 'A' ? a : b);
        }
        return made;
    };
    return change(named("16", "17"), named("17", "16"));
}

TEST(Lockstep, NeedsEqualWordsWhereTheCodeIsNotExecuted)
{
    // A literal whose last bits look like another register of the same instruction.
    const auto literal = [](const std::string& word) {
        return lines{"ldr s1, #12", "fmul s0, s0, s1", "ret", ".word " + word};
    };
    EXPECT_EQ(change(literal("0x3d2aaaab"), literal("0x3d2aaaac")), "code");
    // A literal pool that is jumped over, and a table at an ADR of the kernel's own code.
    const auto pool = [](const std::string& word) {
        return lines{"b #8", ".word " + word, "ldr s1, #-4", "fmul s0, s0, s1", "ret"};
    };
    EXPECT_EQ(change(pool("0x3d2aaaab"), pool("0x3d2aaaac")), "code");
    const auto table = [](const std::string& word) {
        return lines{"adr x3, #12", "ldr s0, [x3]", "ret", ".word " + word};
    };
    EXPECT_EQ(change(table("0x3d2aaaab"), table("0x3d2aaaac")), "code");
    // The same after a relocation, and seen by a caller.
    EXPECT_EQ(change({"adr x3, code12", "ldr s0, [x3]", "ret", ".word 0x3d2aaaab"},
                     {"adr x3, code12", "ldr s0, [x3]", "ret", ".word 0x3d2aaaac"}),
              "code");
    EXPECT_EQ(change({"adr x0, #8", "ret", "mov x9, #1"}, {"adr x0, #8", "ret", "mov x10, #1"}), "code");
    // No known instruction reads the word.
    EXPECT_EQ(change({"mov x9, #1", "ret", ".word 1"}, {"mov x10, #1", "ret", ".word 2"}), "code");
    // Equal pools do not prevent a renaming.
    const std::string word = ".word 0x3d2aaaab";
    EXPECT_EQ(change_of_names({"ldr sA, #20", "fadd sB, s0, sA", "str sB, [x1]", "mov xA, #1", "ret", word}),
              "registers");
    EXPECT_EQ(change_of_names(
                  {"adr xA, #20", "ldr sB, [xA]", "ldr sB, [xA, #4]", "str sB, [x1]", "ret", word, word}),
              "registers");
    EXPECT_EQ(change_of_names({"adr xA, #16", "ldr sB, [xA, x2]", "str sB, [x1]", "ret", word}), "code");
    EXPECT_EQ(change_of_names({"adr xA, #8", "ldr sB, [xA]", "str sB, [x1]", "ret"}), "code");
}

TEST(Lockstep, DoesNotLetTheAddressOfAConstantLeaveTheKernel)
{
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr x1, [x3]", "ret"}), "layout");
    EXPECT_EQ(change_of_layout({"adr x0, dataAT", "ldr w1, [x0]", "ret"}), "doubt");
    EXPECT_EQ(change_of_layout({"adr x1, dataAT", "ldr d0, [x1]", "str d0, [x2]", "ret"}), "doubt");
    EXPECT_EQ(change_of_layout({"adr x1, dataAT", "ldr d0, [x1]", "mov x1, #0", "ret"}), "layout");
    EXPECT_EQ(change_of_layout({"adr x19, dataAT", "ldr d0, [x19]", "ret"}), "doubt");
    EXPECT_EQ(change_of_layout(
                  {"str x19, [sp, #-16]!", "adr x19, dataAT", "ldr d0, [x19]", "ldr x19, [sp], #16", "ret"}),
              "layout");
}

TEST(Lockstep, TakesTheLastValueInAResultRegisterForAResult)
{
    EXPECT_EQ(change({"ldr x0, [x1]", "str x0, [x2]", "ret"}, {"ldr x9, [x1]", "str x9, [x2]", "ret"}),
              "code");
    EXPECT_EQ(change({"ldr w0, [x1]", "cmp w0, #3", "b.ne #8", "nop", "ret"},
                     {"ldr w9, [x1]", "cmp w9, #3", "b.ne #8", "nop", "ret"}),
              "code");
    EXPECT_EQ(
        change({"fadd d3, d0, d1", "str d3, [x1]", "ret"}, {"fadd d16, d0, d1", "str d16, [x1]", "ret"}),
        "code");
    // Unless no later one depends on it.
    EXPECT_EQ(change({"ldr x0, [x1]", "str x0, [x2]", "mov x0, #0", "ret"},
                     {"ldr x9, [x1]", "str x9, [x2]", "mov x0, #0", "ret"}),
              "registers");
}

TEST(Lockstep, ProvesNothingAboutJumpsIntoTheKernel)
{
    for (const std::string jump : {"ret x16", "br x16"}) {
        EXPECT_EQ(change({"adr x16, #16", "mov x9, #1", jump, "ret", "str x9, [x1]", "ret"},
                         {"adr x16, #16", "mov x10, #1", jump, "ret", "str x9, [x1]", "ret"}),
                  "code");
    }
    EXPECT_EQ(
        change({"mov x29, x30", "adr x16, #20", "mov x9, #1", "blr x16", "ret x29", "str x9, [x1]", "ret"},
               {"mov x29, x30", "adr x16, #20", "mov x10, #1", "blr x16", "ret x29", "str x9, [x1]", "ret"}),
        "code");
    // A call of the kernel's own middle, of its beginning, and one without a relocation.
    for (const std::string call : {"bl k+16", "bl #12"}) {
        EXPECT_EQ(change({"mov x9, #1", call, "ldr x30, [sp], #16", "ret", "str x9, [x1]", "ret"},
                         {"mov x10, #1", call, "ldr x30, [sp], #16", "ret", "str x9, [x1]", "ret"}),
                  "code");
    }
    // To its beginning, where X9 is read.
    EXPECT_EQ(change({"cbz x9, #24", "str x30, [sp, #-16]!", "mov x9, #0", "mov x10, #1", "bl k",
                      "ldr x30, [sp], #16", "ret"},
                     {"cbz x9, #24", "str x30, [sp, #-16]!", "mov x10, #0", "mov x9, #1", "bl k",
                      "ldr x30, [sp], #16", "ret"}),
              "code");
    // A return address that a call clobbered.
    EXPECT_EQ(
        change({"mov x9, #1", "bl f", "mov x10, #1", "ret"}, {"mov x10, #1", "bl f", "mov x9, #1", "ret"}),
        "code");
    // A word that is not an instruction, and the kernel's end.
    EXPECT_EQ(change({"mov x9, #1", ".word 0xffffffff"}, {"mov x10, #1", ".word 0xffffffff"}), "code");
    EXPECT_EQ(change({"mov x9, #1", "nop"}, {"mov x10, #1", "nop"}), "code");
    EXPECT_EQ(change({"mov x9, #1", "cbz x0, #12", "ret"}, {"mov x10, #1", "cbz x0, #12", "ret"}), "code");
    EXPECT_EQ(change({"mov x9, #1", "b #-8", "ret"}, {"mov x10, #1", "b #-8", "ret"}), "code");
}

TEST(Lockstep, NeedsEqualArgumentsForATailCall)
{
    const std::string load = "ldp xA, xB, [x6]";
    EXPECT_EQ(change_of_names({load, "str xA, [x1]", "br x5"}), "registers");
    EXPECT_EQ(change({"ldp x2, x3, [x6]", "br x5"}, {"ldp x3, x2, [x6]", "br x5"}), "code");
    EXPECT_EQ(change({"ldp x2, x3, [x6]", "ret x5"}, {"ldp x3, x2, [x6]", "ret x5"}), "code");
    EXPECT_EQ(change({"mov x30, x5", "ldp x2, x3, [x6]", "ret"}, {"mov x30, x5", "ldp x3, x2, [x6]", "ret"}),
              "code");
    EXPECT_EQ(change({"mov x19, x30", "br x5"}, {"mov x20, x30", "br x5"}), "code");
    EXPECT_EQ(change({"ldp x2, x3, [x6]", "ret"}, {"ldp x3, x2, [x6]", "ret"}), "registers");
    // The return address may be kept in any register.
    EXPECT_EQ(change({"mov x9, x30", "ldp x2, x3, [x6]", "ret x9"},
                     {"mov x10, x30", "ldp x3, x2, [x6]", "ret x10"}),
              "registers");
    // A branch out of the kernel: what is there is unknown.
    EXPECT_EQ(change({"mov x9, #1", "b #64"}, {"mov x10, #1", "b #64"}), "code");
}

TEST(Lockstep, NeedsAnEqualReturnAddressForATailCall)
{
    EXPECT_EQ(change({"mov x9, #8", "ret x5"}, {"mov x30, #8", "ret x5"}), "code");
    EXPECT_EQ(change({"mov x9, #8", "mov x10, #1", "ret x5"}, {"mov x10, #8", "mov x9, #1", "ret x5"}),
              "registers");
}

TEST(Lockstep, FindsTheReturnAddressInTheFrame)
{
    // "registers" if the exit is recognised as a return, which passes no arguments.
    const auto exit_of = [](lines before, const lines& after) {
        before.emplace_back("LOAD");
        before.insert(before.end(), after.begin(), after.end());
        lines other = before;
        std::replace(before.begin(), before.end(), std::string("LOAD"), std::string("ldp x2, x3, [x6]"));
        std::replace(other.begin(), other.end(), std::string("LOAD"), std::string("ldp x3, x2, [x6]"));
        const std::string found = change(before, other);
        return found == "registers" ? "return" : found == "code" ? "tail call" : found;
    };
    // Ordinary frames.
    EXPECT_EQ(exit_of({}, {"ret"}), "return");
    EXPECT_EQ(exit_of({"stp x29, x30, [sp, #-32]!", "mov x29, sp"}, {"ldp x29, x30, [sp], #32", "ret"}),
              "return");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!"}, {"ldr x30, [sp], #16", "ret"}), "return");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!"}, {"ldr x9, [sp], #16", "ret x9"}), "return");
    EXPECT_EQ(exit_of({"sub sp, sp, #32", "str x30, [sp, #8]", "str x19, [sp, #16]", "str q8, [sp, #16]"},
                      {"ldr x30, [sp, #8]", "add sp, sp, #32", "ret"}),
              "return");
    EXPECT_EQ(exit_of({"stp x29, x30, [sp, #-16]!", "sub sp, sp, #64", "cbz x0, #8", "str x1, [sp, #8]"},
                      {"add sp, sp, #64", "ldp x29, x30, [sp], #16", "ret"}),
              "return");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "bl f", "mov x6, x0"}, {"ldr x30, [sp], #16", "ret"}),
              "return");
    EXPECT_EQ(exit_of({"mov x9, x30"}, {"ret x9"}), "return");
    EXPECT_EQ(
        exit_of({"paciasp", "stp x29, x30, [sp, #-16]!"}, {"ldp x29, x30, [sp], #16", "autiasp", "ret"}),
        "return");
    EXPECT_EQ(exit_of({"paciasp", "str x30, [sp, #-16]!"}, {"ldr x30, [sp], #16", "retaa"}), "return");
    // An argument on the stack, and a value stored there.
    EXPECT_EQ(exit_of({}, {"ldr x16, [sp]", "ret x16"}), "tail call");
    EXPECT_EQ(exit_of({"str x5, [sp, #-16]!"}, {"ldr x30, [sp], #16", "ret"}), "tail call");
    EXPECT_EQ(exit_of({"stp x30, x5, [sp, #-16]!"}, {"ldp x9, x10, [sp], #16", "ret x10"}), "tail call");
    EXPECT_EQ(exit_of({"stp x30, x5, [sp, #-16]!"}, {"ldp x9, x10, [sp], #16", "ret x9"}), "return");
    EXPECT_EQ(exit_of({"stp x29, x30, [sp, #-16]!"}, {"ldr x30, [sp], #16", "ret"}), "tail call");
    // Overwritten, wholly and in part, and below SP in between.
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "str x5, [sp]"}, {"ldr x30, [sp], #16", "ret"}), "tail call");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "strb w5, [sp, #7]"}, {"ldr x30, [sp], #16", "ret"}),
              "tail call");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "strb w5, [sp, #8]"}, {"ldr x30, [sp], #16", "ret"}),
              "return");
    EXPECT_EQ(
        exit_of({"sub sp, sp, #16", "str x30, [sp]", "stp x5, x5, [sp, #-8]"}, {"ldr x30, [sp], #16", "ret"}),
        "tail call");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "str x5, [sp, x1]"}, {"ldr x30, [sp], #16", "ret"}),
              "tail call");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "add sp, sp, #16"}, {"ldur x30, [sp, #-16]", "ret"}),
              "tail call");
    // With SP unknown, and with two possible values of SP.
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "sub sp, sp, x1"}, {"ldr x30, [sp], #16", "ret"}),
              "tail call");
    EXPECT_EQ(
        exit_of({"str x30, [sp, #-16]!", "cbz x0, #8", "sub sp, sp, #16"}, {"ldr x30, [sp], #16", "ret"}),
        "tail call");
    EXPECT_EQ(exit_of({"sub sp, sp, #16", "cbz x0, #8", "str x30, [sp]"}, {"ldr x30, [sp], #16", "ret"}),
              "tail call");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "cbz x0, #8", "str x5, [sp]"}, {"ldr x30, [sp], #16", "ret"}),
              "tail call");
    EXPECT_EQ(exit_of({"str x30, [sp, #-16]!", "mov x9, sp", "adr x10, #0", "mov sp, x10"},
                      {"ldr x11, [sp]", "mov sp, x9", "ret x11"}),
              "tail call");
    // From another place.
    EXPECT_EQ(exit_of({"mrs x30, tpidr_el0"}, {"ret"}), "tail call");
}

TEST(Lockstep, AllowsLoadsFromEqualWordsOfTheCode)
{
    // Of two equal words, one is changed by a relocation.
    const lines code = {"adr x3, data0", "adr x4, #0", "ldr w5, [x3]",    "ldur w0, [x4, #20]",
                        "ret",           "nop",        ".word 0x10000003"};
    lines before = code;
    lines after = code;
    after[0] = "adr x3, data8";
    after[3] = "ldur w0, [x4, #-4]";
    EXPECT_EQ(change(before, after, {1, 2}, {2, 1}), "code");
    after[3] = before[3];
    EXPECT_EQ(change(before, after, {1, 2}, {2, 1}), "layout");
}

TEST(Lockstep, AllowsMovedConstantsTogetherWithRenamedRegisters)
{
    EXPECT_EQ(change({"adr x3, data0", "ldr q16, [x3]", "str q16, [x1]", "ret"},
                     {"adr x4, data16", "ldr q17, [x4]", "str q17, [x1]", "ret"}, {1, 2, 3, 4}, {3, 4, 1, 2}),
              "layout");
    EXPECT_EQ(change({"adr x3, data0", "ldr q16, [x3]", "str q16, [x1]", "ret"},
                     {"adr x4, data16", "ldr q17, [x4]", "str q16, [x1]", "ret"}, {1, 2, 3, 4}, {3, 4, 1, 2}),
              "code");
    EXPECT_EQ(change({"adr x3, data0", "ldr q16, [x3]", "str q16, [x1]", "ret"},
                     {"adr x4, data0", "ldr q17, [x4]", "str q17, [x1]", "ret"}, {1, 2, 3, 4}, {1, 2, 3, 4}),
              "registers");
}

TEST(Lockstep, ForgetsRegistersThatACallMayChange)
{
    const auto around = [](const lines& before, const lines& after) {
        lines all = before;
        all.insert(all.begin(), "str x30, [sp, #-16]!");
        all.emplace_back("bl f");
        all.insert(all.end(), after.begin(), after.end());
        all.insert(all.end(), {"ldr x30, [sp], #16", "ret"});
        return all;
    };
    const lines nothing;
    EXPECT_EQ(change_of_layout(around({"adr x9, dataAT", "ldr x10, [x9]", "str x10, [x1]"}, nothing)),
              "layout");
    EXPECT_EQ(
        change_of_layout(around({"adr x9, dataAT", "ldr x10, [x9]", "str x10, [x1]"}, {"str x9, [x0]"})),
        "doubt");
    EXPECT_EQ(change_of_layout(around({"adr x9, dataAT"}, {"ldr x10, [x9]", "str x10, [x0]"})), "doubt");
    EXPECT_EQ(change_of_layout(around({"adr x7, dataAT", "ldr x9, [x7]"}, nothing)), "doubt"); // an argument
    // A load that keeps a part of its register, and one with a register as the offset of writeback.
    EXPECT_EQ(change_of_layout(around(nothing, {"adr x9, dataAT", "ld1r {v16.2d}, [x9]", "str q16, [x0]"})),
              "layout");
    EXPECT_EQ(change_of_layout(around(nothing, {"adr x9, dataAT", "ld1 {v16.d}[1], [x9]", "str q16, [x0]"})),
              "doubt");
    EXPECT_EQ(
        change_of_layout(around(nothing, {"adr x9, dataAT", "ld1r {v16.2d}, [x9], x10", "str q16, [x0]"})),
        "doubt");
    EXPECT_EQ(change_of_names(around({"mov xA, #1", "str xA, [x1]"}, nothing)), "registers");
    EXPECT_EQ(change_of_names(around({"mov xA, #1", "mov xB, #1"}, {"str xA, [x0]"})), "code");
    EXPECT_EQ(change_of_names(around({"mov xA, #1"}, {"mov xA, #2", "str xA, [x0]"})), "registers");
    EXPECT_EQ(change_of_names(around({"cmp x1, #1"}, {"cset xA, eq", "str xA, [x0]"})), "code");
    // Callee-saved registers keep their values; of vectors only the low half.
    const auto preserved = [&](const std::string& registers, const lines& used, const std::string& a,
                               const std::string& b) {
        lines all = around({"stp " + registers + ", [sp, #-16]!", "ldr " + a + ", [x1]"}, used);
        all.insert(all.end() - 2, "ldp " + registers + ", [sp], #16");
        lines other = all;
        for (std::string& line : other) {
            const std::size_t at = line.compare(0, 3, "ldr") == 0 || line.compare(0, 3, "str") == 0
                                       ? line.find(a)
                                       : std::string::npos;
            if (at != std::string::npos)
                line.replace(at, a.size(), b);
        }
        return change(all, other);
    };
    EXPECT_EQ(preserved("x19, x20", {"str x19, [x0]"}, "x19", "x20"), "registers");
    EXPECT_EQ(preserved("d8, d9", {"str d8, [x0]"}, "d8", "d9"), "registers");
    EXPECT_EQ(preserved("d8, d9", {"str q8, [x0]"}, "q8", "q9"), "code");
    // Arguments, and one that an earlier call clobbered.
    EXPECT_EQ(change(around({"ldp x2, x3, [x6]"}, nothing), around({"ldp x3, x2, [x6]"}, nothing)), "code");
    EXPECT_EQ(change_of_names(around({"mov xA, #1", "str xA, [x1]"}, {"bl f", "bl g"})), "registers");
    EXPECT_EQ(change_of_names(around({"mov xA, #1", "str xA, [x1]"}, {"bl f+4"})), "code");
    EXPECT_EQ(change({"mov x9, #1", "bl f+4", "ldr x30, [sp]", "ret"},
                     {"mov x10, #1", "bl f+4", "ldr x30, [sp]", "ret"}),
              "code");
}

TEST(Lockstep, FollowsAddressesOfConstants)
{
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr d0, [x3]", "mov x4, x3", "ldr d1, [x4]", "ret"}),
              "layout");
    EXPECT_EQ(
        change_of_layout({"adr x3, data", "ldr d0, [x3, #AT]", "add x4, x3, #AT", "ldr d1, [x4]", "ret"}),
        "layout");
    EXPECT_EQ(change_of_layout({"adrp x3, dataAT", "add x3, x3, dataAT", "ldr d0, [x3]", "ret"}), "layout");
    EXPECT_EQ(change_of_layout({"adrp x3, dataAT", "ldr d0, [x3]", "ret"}), "doubt");
    // As a base, SP may have to be 16-byte aligned.
    const lines by_sp = {"adr x3, dataAT", "mov x9, sp", "mov sp, x3", "ldr d1, [sp]", "mov sp, x9", "ret"};
    EXPECT_EQ(change_of_layout(by_sp), "doubt");
    lines by_sp_16 = by_sp;
    by_sp_16[0] = "adr x3, data16";
    lines by_sp_0 = by_sp;
    by_sp_0[0] = "adr x3, data0";
    EXPECT_EQ(change(by_sp_0, by_sp_16, {1, 2, 3, 4}, {3, 4, 1, 2}), "layout");
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr d0, [x3]", "mov sp, x3", "ret"}), "doubt");
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr d0, [x3]", "mov x9, sp", "mov sp, x3", "str d0, [sp]",
                                "mov sp, x9", "ret"}),
              "doubt");
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr d0, [x3]", "bl .rodata.k", "ret"}), "doubt");
    EXPECT_EQ(change_of_layout(
                  {"adr x3, dataAT", "ldr d0, [x3]", "adr x4, #0", "ldr x5, [x4]", "str x5, [x1]", "ret"}),
              "layout"); // the ADR's word before it is linked is not the one that is read
    // Outside the constants.
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr d0, [x3]", "ldr d1, [x3, #16]", "ret"}), "doubt");
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "ldr d0, [x3]", "ldur d1, [x3, #-16]", "ret"}), "doubt");
    // Paths that join with the same address, and with different ones.
    EXPECT_EQ(change_of_layout({"adr x3, dataAT", "cbz x2, #8", "nop", "ldr d0, [x3]", "ret"}), "layout");
    EXPECT_EQ(
        change_of_layout({"adr x3, dataAT", "ldr d0, [x3], #8", "sub x2, x2, #1", "cbnz x2, #-8", "ret"}),
        "doubt");
    EXPECT_EQ(change_of_layout({"adr x4, dataAT", "ldr d0, [x4]", "adr x3, dataAT", "cbz x2, #8",
                                "adr x3, data", "ldr d1, [x3]", "ret"}),
              "doubt");
    EXPECT_EQ(change_of_layout(
                  {"adr x4, dataAT", "mov x2, #3", "ldr d0, [x4]", "sub x2, x2, #1", "cbnz x2, #-8", "ret"}),
              "layout");
    // An access that must be aligned.
    EXPECT_EQ(change_of_layout({"adr x4, dataAT", "ldar x5, [x4]", "ldr x6, [x4]", "ret"}), "doubt");
}

TEST(Lockstep, KeepsConstraintsOnRegisterNumbers)
{
    // A register that is loaded and is the base of a writeback; one that is stored as well as loaded.
    EXPECT_EQ(change({"ldr x9, [x10], #8", "mov x9, #0", "ret"}, {".word 0xf840854a", "mov x9, #0", "ret"}),
              "code");
    EXPECT_EQ(change({"mov x11, x0", "stxr w9, x10, [x11]", "mov w9, #0", "ret"},
                     {"mov x11, x0", ".word 0xc80a7d6a", "mov w9, #0", "ret"}),
              "code");
    // A partial def is also a use.
    EXPECT_EQ(change({"mov x9, #1", "mov x10, #1", "movk x9, #2, lsl #16", "str x9, [x1]", "ret"},
                     {"mov x9, #1", "mov x10, #1", "movk x10, #2, lsl #16", "str x10, [x1]", "ret"}),
              "code");
    EXPECT_EQ(change({"ldr q16, [x0]", "ins v17.d[1], v16.d[0]", "str q17, [x1]", "ret"},
                     {"ldr q16, [x0]", "ins v18.d[1], v16.d[0]", "str q18, [x1]", "ret"}),
              "code");
    EXPECT_EQ(change({"ldr q16, [x0]", "ldr q17, [x1]", "fmov v16.d[1], x2", "str q16, [x3]", "ret"},
                     {"ldr q16, [x0]", "ldr q17, [x1]", "fmov v17.d[1], x2", "str q17, [x3]", "ret"}),
              "code");
    EXPECT_EQ(change_of_names({"ldr qA, [x0]", "fmov vA.d[1], x2", "str qA, [x3]", "ret"}), "registers");
    // PACIA171615, which reads X15.
    EXPECT_EQ(change({"mov x17, x0", "mov x16, x1", "mov x9, x2", "mov x15, x3", ".word 0xdac18bfe",
                      "str x17, [x5]", "ret x4"},
                     {"mov x17, x0", "mov x16, x1", "mov x15, x2", "mov x9, x3", ".word 0xdac18bfe",
                      "str x17, [x5]", "ret x4"}),
              "code");
    // CTERMEQ computes V from C, which a call clobbered.
    const lines terminates = {
        "str x30, [sp, #-16]!", "mov xA, #1", "str xA, [x1]",       "bl f", "ctermeq x0, x1",
        "cset w0, lt",          "mov w1, #0", "ldr x30, [sp], #16", "ret"};
    EXPECT_EQ(change_of_names(terminates), "code");
    lines compares = terminates;
    compares[4] = "cmp x0, x1";
    EXPECT_EQ(change_of_names(compares), "registers");
    // Flags, and the registers of instructions that set them.
    EXPECT_EQ(change_of_names({"ldp xA, xB, [x0]", "subs xA, xA, xB", "b.eq #8", "str xA, [x1]", "ret"}),
              "registers");
    // A value in one register in one kernel, and in two successive registers in the other.
    EXPECT_EQ(change({"ldr x9, [x0]", "add x9, x9, #1", "str x9, [x1]", "ret"},
                     {"ldr x9, [x0]", "add x10, x9, #1", "str x10, [x1]", "ret"}),
              "registers");
    EXPECT_EQ(change({"ldr x9, [x0]", "add x10, x9, #1", "str x9, [x1]", "str x10, [x1]", "ret"},
                     {"ldr x9, [x0]", "add x9, x9, #1", "str x9, [x1]", "str x9, [x1]", "ret"}),
              "code");
    // Lists of registers.
    EXPECT_EQ(change({"ld2 {v16.2d, v17.2d}, [x0]", "st2 {v16.2d, v17.2d}, [x1]", "ret"},
                     {"ld2 {v31.2d, v0.2d}, [x0]", "st2 {v31.2d, v0.2d}, [x1]", "ret"}),
              "code");
    EXPECT_EQ(change({"ld2 {v16.2d, v17.2d}, [x0]", "st2 {v16.2d, v17.2d}, [x1]", "ret"},
                     {"ld2 {v30.2d, v31.2d}, [x0]", "st2 {v30.2d, v31.2d}, [x1]", "ret"}),
              "registers");
    // Implicit defs of IRG, CHKFEAT and others.
    EXPECT_EQ(change({"mov x9, sp", "irg sp, x9, x5", "mov sp, x9", "ret"},
                     {"mov x10, sp", "irg sp, x10, x5", "mov sp, x10", "ret"}),
              "code");
    EXPECT_EQ(change({"mov x16, #1", "mov x9, #2", "hint #40", "str x16, [x1]", "ret"},
                     {"mov x16, #1", "mov x10, #2", "hint #40", "str x16, [x1]", "ret"}),
              "code");
}

} // namespace
