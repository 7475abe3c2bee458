#include "workbench/analysis/interface.hpp"
#include "tests/support/assembled_kernel.hpp"
#include "tests/support/dumps.hpp"
#include "workbench/analysis/liveness.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using vorna::workbench::argument_reads;
using vorna::workbench::callee_reads;
using vorna::workbench::code_map;
using vorna::workbench::decode_kernel;
using vorna::workbench::decoded_kernel;
using vorna::workbench::find_entries;
using vorna::workbench::find_kernel;
using vorna::workbench::find_live_registers;
using vorna::workbench::interface_of;
using vorna::workbench::kernel_interface;
using vorna::workbench::kernel_set;
using vorna::workbench::make_kernel_set;
using vorna::workbench::map_code;
using vorna::workbench::names_of;
using vorna::workbench::placed_kernel;
using vorna::workbench::register_set;
using vorna::workbench::saved_register;

using lines = std::vector<std::string>;

kernel_interface of(const lines& code)
{
    const placed_kernel kernel = support::assembled_kernel("k", code);
    const decoded_kernel decoded = decode_kernel(kernel);
    return interface_of(decoded, map_code(decoded, {}));
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

std::string saves(const lines& code)
{
    std::string text;
    for (const saved_register& saved : of(code).saves)
        text += (text.empty() ? "" : ", ") + saved.name + " at " + std::to_string(saved.slot) + " by +" +
                std::to_string(saved.offset);
    return text;
}

TEST(Interface, ReadsWhatItUsesOfWhatItWasGiven)
{
    EXPECT_EQ(joined(of({"add x0, x1, x2", "ret"}).reads), "x1 x2");
    EXPECT_EQ(joined(of({"mov x0, #1", "add x0, x0, #2", "ret"}).reads), "") << "set before";
    EXPECT_EQ(joined(of({"eor x0, x3, x3", "ret"}).reads), "") << "only cleared";
    EXPECT_EQ(joined(of({"fadd d0, d1, d2", "ret"}).reads), "d1 d2");
    EXPECT_EQ(joined(of({"fadd v0.2d, v1.2d, v2.2d", "ret"}).reads), "v1 v2");
    EXPECT_EQ(joined(of({"fadd z0.d, p1/m, z0.d, z2.d", "ret"}).reads), "z0 z2 p1");
    EXPECT_EQ(joined(of({"cset x0, eq", "ret"}).reads), "nzcv");
    EXPECT_EQ(joined(of({"ldr x0, [sp, #8]", "ret"}).reads), "sp") << "an argument on the stack";
    EXPECT_EQ(joined(of({"str x19, [sp, #-16]!", "mov x19, #1", "ldr x19, [sp], #16", "ret"}).reads), "")
        << "saving is not reading";
    EXPECT_EQ(joined(of({"subs x3, x3, #1", "b.ne #-4", "ret"}).reads), "x3") << "in the first iteration";
}

TEST(Interface, WritesWhatAReturnLeavesChanged)
{
    EXPECT_EQ(joined(of({"add x9, x1, x2", "ret"}).writes), "x9");
    EXPECT_EQ(joined(of({"str x19, [sp, #-16]!", "mov x19, x0", "ldr x19, [sp], #16", "ret"}).writes), "");
    EXPECT_EQ(joined(of({"str d8, [sp, #-16]!", "fmov d8, #1.0", "ldr d8, [sp], #16", "ret"}).writes),
              "v8.d[1]")
        << "the low half is restored";
    EXPECT_EQ(joined(of({"mov v9.s[1], w0", "ret"}).writes), "d9");
    EXPECT_EQ(joined(of({"cmp x0, #1", "ret"}).writes), "nzcv");
    EXPECT_EQ(joined(of({"ptrue p4.d", "mov z3.d, #1", "ret"}).writes), "z3 p4");
    EXPECT_EQ(joined(of({"msr fpcr, x0", "ret"}).writes), "fpcr");
    EXPECT_EQ(joined(of({"cbz x0, #8", "mov x1, #3", "ret"}).writes), "x1") << "on one way";
    EXPECT_EQ(joined(of({"sub sp, sp, #16", "ret"}).writes), "sp");
}

TEST(Interface, SavesWhereTheRegisterIsStoredFirst)
{
    EXPECT_EQ(saves({"stp x29, x30, [sp, #-32]!", "stp d8, d9, [sp, #16]", "ldp d8, d9, [sp, #16]",
                     "ldp x29, x30, [sp], #32", "ret"}),
              "x29 at -32 by +0, x30 at -24 by +0, d8 at -16 by +4, d9 at -8 by +4");
    EXPECT_EQ(saves({"str q8, [sp, #-16]!", "ldr q8, [sp], #16", "ret"}), "v8 at -16 by +0");
    EXPECT_EQ(saves({"mov x9, x19", "str x9, [sp, #-16]!", "add sp, sp, #16", "ret"}), "x19 at -16 by +4");
    EXPECT_EQ(saves({"str x9, [sp, #-16]!", "ldr x9, [sp], #16", "ret"}), "") << "not callee-saved";
}

TEST(Interface, TakesTheLowestStackPointer)
{
    EXPECT_EQ(of({"ret"}).stack, 0);
    EXPECT_EQ(of({"sub sp, sp, #48", "str x0, [sp, #-16]!", "add sp, sp, #64", "ret"}).stack, 64);
    EXPECT_EQ(of({"sub sp, sp, x0", "ret"}).stack, std::nullopt);
    EXPECT_EQ(of({"addvl sp, sp, #-1", "addvl sp, sp, #1", "ret"}).stack, std::nullopt);
    EXPECT_EQ(of({"mov x9, x30", "sub sp, sp, #32", "bl #20", "add sp, sp, #32", "mov x30, x9", "ret", "nop",
                  "str x0, [sp, #-16]!", "add sp, sp, #16", "ret"})
                  .stack,
              48)
        << "with that of its subroutine";
}

TEST(Interface, CountsSpillsAndCalls)
{
    const kernel_interface found = of(
        {"stp x29, x30, [sp, #-16]!", "blr x3", "blr x3", "ldr x29, [sp]", "ldp x29, x30, [sp], #16", "ret"});
    EXPECT_EQ(found.spill_stores, 1U);
    EXPECT_EQ(found.spill_loads, 2U);
    EXPECT_EQ(joined(found.calls), "x3");
    EXPECT_TRUE(found.followed);
    EXPECT_FALSE(found.returns_elsewhere);
}

TEST(Interface, SaysWhatItCouldNotFollow)
{
    EXPECT_FALSE(of({"br x3"}).followed);
    EXPECT_TRUE(of({"br x3"}).returns_elsewhere);
    EXPECT_TRUE(of({"br x30"}).followed) << "the address of the caller";
    EXPECT_FALSE(of({"br x30"}).returns_elsewhere);
    EXPECT_TRUE(of({"ret x3"}).returns_elsewhere);
    EXPECT_FALSE(of({"mov x3, x30", "ret x3"}).returns_elsewhere);
}

TEST(Interface, HasTheMostLiveRegistersAndWhere)
{
    const kernel_interface found =
        of({"ldp q0, q1, [x0]", "fadd v0.2d, v0.2d, v1.2d", "str q0, [x1]", "ret"});
    EXPECT_EQ(found.general.most, 3U) << "x0, x1 and x30";
    EXPECT_EQ(found.general.offset, 0U);
    EXPECT_EQ(found.vector.most, 2U);
    EXPECT_EQ(found.vector.offset, 4U);
    EXPECT_EQ(found.predicate.most, 0U);
}

/// The live registers before each instruction, separated by commas.
std::string live(const lines& code)
{
    const placed_kernel kernel = support::assembled_kernel("k", code);
    const decoded_kernel decoded = decode_kernel(kernel);
    std::string text;
    for (const register_set& set : find_live_registers(decoded, map_code(decoded, {})))
        text += (text.empty() ? "" : ", ") + joined(names_of(set));
    return text;
}

TEST(LiveRegisters, AreThoseThatAreUsedLater)
{
    EXPECT_EQ(live({"add x9, x1, x2", "str x9, [x3]", "ret"}), "x1 x2 x3 x30, x3 x9 x30, x30");
    EXPECT_EQ(live({"mov x0, x1", "ret"}), "x1 x30, x0 x30") << "a result";
    EXPECT_EQ(live({"ldr x9, [x0], #8", "str x9, [x1]", "ret"}), "x0 x1 x30, x1 x9 x30, x30")
        << "a base that was written back is not a result";
    EXPECT_EQ(live({"cbz x1, #8", "mov x2, #1", "str x2, [x3]", "ret"}),
              "x1 x2 x3 x30, x3 x30, x2 x3 x30, x30");
    EXPECT_EQ(live({"subs x1, x1, #1", "b.ne #-4", "ret"}), "x1 x30, x1 x30 nzcv, x30") << "around a loop";
    EXPECT_EQ(live({"eor x9, x9, x9", "str x9, [x1]", "ret"}), "x1 x30, x1 x9 x30, x30") << "cleared";
    EXPECT_EQ(live({"mov x0, #1", "blr x19", "str x20, [x21]", "br x9"}),
              "x19 x20 x21 sp, x0 x19 x20 x21 sp, x0 x9 x20 x21 v0, x0 x9 v0")
        << "arguments are used by a call, and results by a branch to another kernel";
}

/// The live registers before the first instruction of "k", and what "k" reads, of kernels in text.
std::string entry_of_k(const std::string& text)
{
    const kernel_set set = make_kernel_set(support::kernels_of(text));
    const placed_kernel& kernel = *find_kernel(set, "k");
    const decoded_kernel decoded = decode_kernel(kernel);
    const code_map map = map_code(decoded, find_entries(set, kernel));
    argument_reads reads(set);
    const callee_reads callees = reads.by_calls_in(kernel);
    return joined(names_of(find_live_registers(decoded, map, callees).front())) + "; " +
           joined(interface_of(decoded, map, callees).reads);
}

TEST(LiveRegisters, AtCallsAreThoseThatTheCalleeReads)
{
    const std::string caller = "kernel k\n mov x3, #1\n mov x19, x4\n bl f\n str x19, [x20]\n ret\n";
    EXPECT_EQ(entry_of_k(caller), "x4 x20 sp; x4 x20") << "not known: it uses x3, which is set here";
    EXPECT_EQ(entry_of_k("kernel f\n str d2, [x1]\n ret\n" + caller), "x1 x4 x20 sp v2; x1 x4 x20 v2")
        << "the callee's arguments are passed through";
    EXPECT_EQ(entry_of_k("kernel f\n str x3, [x3]\n ret\n" + caller), "x4 x20 sp; x4 x20") << "set here";
    EXPECT_EQ(entry_of_k("kernel g\n str x5, [x3]\n ret\nkernel f\n mov x9, x30\n bl g\n ret x9\n" + caller),
              "x4 x5 x20 sp; x4 x5 x20")
        << "by the callee's callee";
    EXPECT_EQ(entry_of_k("kernel f\n str x1, [x2]\n br x9\n" + caller), "x4 x20 sp; x4 x20")
        << "what the callee's callee reads is not known";
    EXPECT_EQ(entry_of_k("kernel k\n mov x2, #1\n cbz x0, 1f\n bl k\n 1: ret\n"), "x0 x30 sp v0; x0 v0")
        << "recursion is not known";
}

} // namespace
