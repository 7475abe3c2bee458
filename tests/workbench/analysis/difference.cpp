// Comparing kernels before and after a change of the generator.

#include "workbench/analysis/difference.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/assembled_kernel.hpp"
#include "tests/support/dumps.hpp"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace {

namespace a64 = support::a64;
using vorna::workbench::align_rows;
using vorna::workbench::change_class;
using vorna::workbench::compare_kernels;
using vorna::workbench::compare_sets;
using vorna::workbench::kernel_difference;
using vorna::workbench::make_kernel_set;
using vorna::workbench::name_of;
using vorna::workbench::placed_kernel;
using vorna::workbench::row_alignment;
using vorna::workbench::row_pair;

placed_kernel kernel(const std::string& name, const std::vector<std::uint32_t>& words,
                     std::vector<tessjit::reloc_info> relocs = {}, std::vector<std::uint8_t> data = {})
{
    return support::placed(name, 0x10000, words, std::move(relocs), std::move(data), 0x20000);
}

// An alignment as text: "=" for equal pairs, "~" for others, "-" and "+" for removed and added rows.
std::string signs(const row_alignment& alignment)
{
    std::string text;
    for (const row_pair& pair : alignment.rows) {
        if (pair.before && pair.after)
            text += pair.same ? '=' : '~';
        else
            text += pair.before ? '-' : '+';
    }
    return text;
}

TEST(Alignment, PairsRowsAroundWhatWasInsertedAndRemoved)
{
    const placed_kernel before = kernel("k", {a64::movz(0, 1), a64::movz(1, 2), a64::nop(), a64::ret()});
    const placed_kernel after = kernel("k", {a64::movz(0, 1), a64::nop(), a64::movz(2, 3), a64::ret()});
    EXPECT_EQ(signs(align_rows(before, after)), "=-=+=");
}

TEST(Alignment, DistinguishesRelocations)
{
    const placed_kernel before = kernel("k", {a64::adr(3), a64::ret()}, {{".rodata.k", 0, 274, 0}});
    for (const tessjit::reloc_info& other : {tessjit::reloc_info{".rodata.k", 0, 274, 8},
                                             {".rodata.k", 0, 275, 0},
                                             {".rodata.k", 1, 274, 0},
                                             {"k", 0, 274, 0}}) {
        placed_kernel after = before;
        after.relocs = {other};
        EXPECT_EQ(signs(align_rows(before, after)), "-+=");
    }
}

TEST(Alignment, PairsBranchesByTheirTarget)
{
    const placed_kernel before = kernel("k", {a64::cbz(0, 2), a64::nop(), a64::ret()});
    const placed_kernel longer = kernel("k", {a64::cbz(0, 3), a64::nop(), a64::movz(1, 1), a64::ret()});
    const placed_kernel elsewhere = kernel("k", {a64::cbz(0, 2), a64::nop(), a64::movz(1, 1), a64::ret()});
    EXPECT_EQ(signs(align_rows(before, longer)), "==+=");
    EXPECT_EQ(signs(align_rows(before, elsewhere)), "~=+=");
    // To the end of the kernel.
    EXPECT_EQ(signs(align_rows(kernel("k", {a64::cbz(0, 2), a64::ret()}),
                               kernel("k", {a64::cbz(0, 3), a64::nop(), a64::ret()}))),
              "=+=");
}

TEST(Alignment, PairsAdrsOfTheKernelItselfByTheirTarget)
{
    const auto adr = [](std::uint32_t distance) { // to x0
        return a64::adr(0) | (distance & 3) << 29 | distance >> 2 << 5;
    };
    const placed_kernel before = kernel("k", {adr(8), a64::nop(), a64::ret()});
    EXPECT_EQ(signs(align_rows(before, kernel("k", {adr(12), a64::nop(), a64::movz(1, 1), a64::ret()}))),
              "==+=");
    EXPECT_EQ(signs(align_rows(before, kernel("k", {adr(4), a64::nop(), a64::ret()}))), "~==");
    // Between two instructions.
    EXPECT_NE(signs(align_rows(before, kernel("k", {adr(9), a64::nop(), a64::ret()}))), "===");
    EXPECT_EQ(signs(align_rows(kernel("k", {adr(9), a64::ret()}), kernel("k", {adr(9), a64::ret()}))), "==");
    EXPECT_NE(signs(align_rows(kernel("k", {adr(9), a64::ret()}), kernel("k", {adr(10), a64::ret()}))), "==");
}

TEST(Sets, AreComparedByNameInTheOrderOfNames)
{
    const auto before = make_kernel_set({kernel("b", {a64::ret()}), kernel("gone", {a64::ret()})});
    const auto after = make_kernel_set({kernel("a", {a64::ret()}), kernel("b", {a64::ret()})});
    std::string text;
    for (const kernel_difference& difference : compare_sets(before, after))
        text += difference.name + " " + std::string(name_of(difference.change)) + "\n";
    EXPECT_EQ(text, "a added\nb same\ngone removed\n");
}

TEST(Sets, HaveTheirKernelsOfOneNameComparedInOrder)
{
    placed_kernel second = kernel("k", {a64::ret()}, {}, {1});
    second.text_address += 0x100000;
    const auto before = make_kernel_set({kernel("k", {a64::ret()})});
    const auto after = make_kernel_set({kernel("k", {a64::ret()}), second});
    const std::vector<kernel_difference> differences = compare_sets(before, after);
    ASSERT_EQ(differences.size(), 2U);
    EXPECT_EQ(differences[0].change, change_class::same);
    EXPECT_EQ(differences[1].change, change_class::added);
    EXPECT_EQ(differences[1].after->data.size(), 1U);
}

TEST(Alignment, DistinguishesLoadsOfDifferentConstants)
{
    // adr x3, .rodata; ldr d7, [x3, #8]; ret
    const placed_kernel before =
        kernel("k", {a64::adr(3), 0xfd400467, a64::ret()}, {{".rodata.k", 0, 274, 0}},
               {1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2});
    placed_kernel after = before;
    after.data[0] = 9;
    EXPECT_EQ(signs(align_rows(before, after)), "===");
    after.data[15] = 9;
    EXPECT_EQ(signs(align_rows(before, after)), "=~=");
}

TEST(Alignment, IsIncompleteIfKernelsDifferTooMuch)
{
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): any numbers do
    const auto words = [&](std::size_t count) {
        std::vector<std::uint32_t> all(count);
        for (std::uint32_t& word : all)
            word = a64::movz(static_cast<unsigned>(random() % 2), 1);
        return all;
    };
    EXPECT_FALSE(align_rows(kernel("k", words(1'000'000)), kernel("k", words(1'000'000))).complete);
    EXPECT_TRUE(align_rows(kernel("k", words(5000)), kernel("k", words(5000))).complete);
}

TEST(Alignment, Of5000InstructionsHalfChangedIsComplete)
{
    std::mt19937 random(2); // NOLINT(cert-msc32-c,cert-msc51-cpp): any numbers do
    std::vector<std::uint32_t> words(5000);
    for (std::uint32_t& word : words)
        word = a64::movz(static_cast<unsigned>(random() % 31), static_cast<unsigned>(random() % 65536));
    std::vector<std::uint32_t> changed = words;
    for (std::uint32_t& word : changed) {
        if (random() % 2 == 0)
            word = a64::movz(static_cast<unsigned>(random() % 31), static_cast<unsigned>(random() % 65536));
    }
    const placed_kernel before = kernel("k", words);
    const placed_kernel after = kernel("k", changed);
    EXPECT_EQ(compare_kernels(before, after), change_class::code);
    EXPECT_TRUE(align_rows(before, after).complete);
}

// The class of a change of assembly lines.
std::string change(const std::vector<std::string>& before, const std::vector<std::string>& after,
                   const std::vector<double>& old_data = {}, const std::vector<double>& new_data = {})
{
    const placed_kernel a = support::assembled_kernel("k", before, support::bytes_of(old_data));
    const placed_kernel b = support::assembled_kernel("k", after, support::bytes_of(new_data));
    EXPECT_EQ(name_of(compare_kernels(a, b)), name_of(compare_kernels(b, a)));
    return std::string(name_of(compare_kernels(a, b)));
}

using lines = std::vector<std::string>;

TEST(Classes, DistinguishWordsRelocationsAndConstants)
{
    const lines code = {"adr x3, data", "ldr d0, [x3]", "bl f", "ret"};
    const lines calls_other = {"adr x3, data", "ldr d0, [x3]", "bl g", "ret"};
    const lines another_addend = {"adr x3, data8", "ldr d0, [x3]", "bl f", "ret"};
    EXPECT_EQ(change(code, code, {1, 2}, {1, 2}), "same");
    EXPECT_EQ(change(code, code, {1, 2}, {1, 3}), "constants");
    EXPECT_EQ(change(code, calls_other, {1, 2}, {1, 2}), "relocations");
    EXPECT_EQ(change(code, another_addend, {1, 2}, {1, 2}), "relocations");
    EXPECT_EQ(change(code, calls_other, {1, 2}, {1, 3}), "relocations");
    EXPECT_EQ(change(code, {"adr x3, data", "ldr d1, [x3]", "bl f", "ret"}, {1, 2}, {1, 2}), "code");
    EXPECT_EQ(change(code, {"adr x3, data", "ldr d0, [x3]", "nop", "bl f", "ret"}, {1, 2}, {1, 2}), "code");
}

TEST(Classes, CallConstantsMovedIfEveryLoadGetsTheSame)
{
    const lines code = {"adr x3, data", "ldr d0, [x3, #8]", "str d0, [x1]", "ret"};
    const lines first = {"adr x3, data", "ldr d0, [x3]", "str d0, [x1]", "ret"};
    EXPECT_EQ(change(code, first, {1, 2}, {2, 1}), "layout");
    EXPECT_EQ(change(code, first, {1, 2}, {2, 7}), "layout"); // nobody loads the other one
    EXPECT_EQ(change(code, first, {1, 2}, {2}), "layout");
    EXPECT_EQ(change(code, first, {1, 2}, {1, 2}), "code");
    EXPECT_EQ(change(code, {"adr x3, data8", "ldr d0, [x3, #8]", "str d0, [x1]", "ret"}, {1, 2}, {0, 1, 2}),
              "layout");
    EXPECT_EQ(change(code, {"adr x3, data", "ldr d1, [x3]", "str d1, [x1]", "ret"}, {1, 2}, {2, 1}), "code");
    EXPECT_EQ(change(code, {"adr x3, data", "ldr s0, [x3]", "str d0, [x1]", "ret"}, {1, 2}, {2, 1}), "code");
    EXPECT_EQ(change({"adr x3, data", "ldp d0, d1, [x3, #16]", "stp d0, d1, [x1]", "ret"},
                     {"adr x3, data", "ldp d0, d1, [x3]", "stp d0, d1, [x1]", "ret"}, {1, 2, 3, 4},
                     {3, 4, 1, 2}),
              "layout");
    EXPECT_EQ(change({"adr x3, data", "ldur d0, [x3, #4]", "str d0, [x1]", "ret"},
                     {"adr x3, data", "ldur d0, [x3, #12]", "str d0, [x1]", "ret"}, {1, 1, 1}, {1, 1, 1}),
              "layout");
}

TEST(Classes, DoNotCallConstantsMovedIfTheirAddressIsUsedOtherwise)
{
    const auto with = [](const lines& rest, const std::string& offset) {
        lines all = {"adr x3, data", "ldr d0, [x3, " + offset + "]", "str d0, [x1]"};
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    };
    const auto moved_with = [&](const lines& rest) {
        return change(with(rest, "#0"), with(rest, "#8"), {1, 2}, {2, 1});
    };
    EXPECT_EQ(moved_with({"ret"}), "layout");
    EXPECT_EQ(moved_with({"mov x9, x3", "add x9, x9, #8", "ret"}), "layout"); // of no use
    EXPECT_EQ(moved_with({"ldr d1, [x3, x2]", "ret"}), "code");               // some place
    EXPECT_EQ(moved_with({"str x3, [x1]", "ret"}), "code");                   // for whoever reads that
    EXPECT_EQ(moved_with({"mov x9, x3", "str x9, [x1]", "ret"}), "code");
    EXPECT_EQ(moved_with({"mov x9, x3", "mov x9, x2", "str x9, [x1]", "ret"}), "layout");
    EXPECT_EQ(moved_with({"cmp x3, x2", "b.eq #4", "ret"}), "code");
    EXPECT_EQ(moved_with({"mov x0, x3", "ret"}), "code");         // the caller gets it
    EXPECT_EQ(moved_with({"mov x0, x3", "bl f", "ret"}), "code"); // the callee
    EXPECT_EQ(moved_with({"bl f", "ret"}), "code");               // X3 is a parameter
    EXPECT_EQ(moved_with({"mov x3, x2", "str x30, [sp, #-16]!", "bl f", "ldr x30, [sp], #16", "ret"}),
              "layout");
    EXPECT_EQ(moved_with({"mov x9, #4", "ldr d1, [x3]", "sub x9, x9, #1", "cbnz x9, #-8", "ret"}),
              "code"); // not followed
    EXPECT_EQ(moved_with({"br x2"}), "code");
    EXPECT_EQ(moved_with({"fadd z0.d, z1.d, z2.d", "ret"}), "layout");
    EXPECT_EQ(moved_with({"svc #0", "ret"}), "code"); // the system may look at X3
    EXPECT_EQ(change({"adr x3, data", "ret"}, {"adr x3, data8", "ret"}, {1, 2}, {2, 1}), "relocations");
}

TEST(Classes, CallRegistersRenamedIfTheyAreExchangedThroughout)
{
    const lines code = {"ldr q4, [x0]", "fadd v5.2d, v4.2d, v4.2d", "str q5, [x1]", "ret"};
    EXPECT_EQ(change(code, {"ldr q16, [x0]", "fadd v5.2d, v16.2d, v16.2d", "str q5, [x1]", "ret"}),
              "registers");
    EXPECT_EQ(change(code, {"ldr q5, [x0]", "fadd v4.2d, v5.2d, v5.2d", "str q4, [x1]", "ret"}), "registers");
    EXPECT_EQ(change(code, {"ldr q16, [x0]", "fadd v5.2d, v16.2d, v4.2d", "str q5, [x1]", "ret"}), "code");
    EXPECT_EQ(change(code, {"ldr q5, [x0]", "fadd v5.2d, v5.2d, v5.2d", "str q5, [x1]", "ret"}), "registers");
    EXPECT_EQ(change(code, {"ldr q16, [x0]", "fsub v5.2d, v16.2d, v16.2d", "str q5, [x1]", "ret"}), "code");
    EXPECT_EQ(change(code, {"ldr q16, [x0]", "fadd v5.2d, v16.2d, v16.2d", "str q5, [x1]", "ret"}, {1}, {2}),
              "code");
    // Lists of registers keep their order.
    const lines list = {"ld1 {v4.2d, v5.2d}, [x0]", "st1 {v4.2d, v5.2d}, [x1]", "ret"};
    EXPECT_EQ(change(list, {"ld1 {v6.2d, v7.2d}, [x0]", "st1 {v6.2d, v7.2d}, [x1]", "ret"}), "registers");
    EXPECT_EQ(change({"ld1 {v4.2d, v5.2d}, [x0]", "str q4, [x1]", "str q5, [x1, #16]", "ret"},
                     {"ld1 {v6.2d, v7.2d}, [x0]", "str q7, [x1]", "str q6, [x1, #16]", "ret"}),
              "code");
}

TEST(Classes, DoNotCallRegistersRenamedIfTheyHaveARole)
{
    const auto renamed = [](const lines& before, const lines& after) { return change(before, after); };
    // Arguments.
    EXPECT_EQ(renamed({"ldr q4, [x0]", "str q4, [x1]", "ret"}, {"ldr q4, [x1]", "str q4, [x0]", "ret"}),
              "code");
    EXPECT_EQ(renamed({"fmul d4, d4, d0", "str d4, [x1]", "ret"}, {"fmul d4, d4, d5", "str d4, [x1]", "ret"}),
              "code");
    EXPECT_EQ(renamed({"cbz x2, #8", "mov x9, #0", "str x9, [x1]", "ret"},
                      {"cbz x2, #8", "mov x0, #0", "str x0, [x1]", "ret"}),
              "code");
    // Results, whether or not the kernel reads them later.
    EXPECT_EQ(renamed({"mov x0, #5", "ret"}, {"mov x9, #5", "ret"}), "code");
    EXPECT_EQ(renamed({"mov x9, #5", "ret"}, {"mov x10, #5", "ret"}), "registers");
    EXPECT_EQ(renamed({"fmov d0, #1.0", "ret"}, {"fmov d4, #1.0", "ret"}), "code");
    EXPECT_EQ(renamed({"fmov d0, #1.0", "str d0, [x1]", "ret"}, {"fmov d4, #1.0", "str d4, [x1]", "ret"}),
              "code");
    // Callee-saved and reserved registers, the zero register and the stack pointer.
    EXPECT_EQ(renamed({"mov x9, #5", "str x9, [x1]", "ret"}, {"mov x19, #5", "str x19, [x1]", "ret"}),
              "code");
    EXPECT_EQ(renamed({"mov x9, #5", "str x9, [x1]", "ret"}, {"mov x18, #5", "str x18, [x1]", "ret"}),
              "code");
    EXPECT_EQ(renamed({"fmov d16, #1.0", "str d16, [x1]", "ret"}, {"fmov d8, #1.0", "str d8, [x1]", "ret"}),
              "code");
    EXPECT_EQ(renamed({"mov x9, #5", "str x9, [x1]", "ret"}, {"mov x9, #5", "str xzr, [x1]", "ret"}), "code");
    EXPECT_EQ(renamed({"str x9, [sp]", "ret"}, {"str x9, [x10]", "ret"}), "code");
    EXPECT_EQ(renamed({"ret"}, {"ret x9"}), "code");
    // Across a call.
    EXPECT_EQ(renamed({"mov x2, #5", "bl f", "ret"}, {"mov x3, #5", "bl f", "ret"}), "code");
    const auto calling = [](const std::string& first, const std::string& second) {
        return lines{"str x30, [sp, #-16]!", first, second, "bl f", "ldr x30, [sp], #16", "ret"};
    };
    EXPECT_EQ(renamed(calling("mov x9, #5", "str x9, [x1]"), calling("mov x10, #5", "str x10, [x1]")),
              "registers");
    EXPECT_EQ(renamed(calling("mov x2, #5", "str x2, [x1]"), calling("mov x3, #5", "str x3, [x1]")), "code");
    // SVE, and a tail call.
    const std::string sve = "fadd z0.d, z1.d, z2.d";
    EXPECT_EQ(
        renamed({sve, "mov x9, #5", "str x9, [x1]", "ret"}, {sve, "mov x10, #5", "str x10, [x1]", "ret"}),
        "registers");
    EXPECT_EQ(renamed({"mov x9, #5", "str x9, [x1]", "br x2"}, {"mov x10, #5", "str x10, [x1]", "br x2"}),
              "registers");
    EXPECT_EQ(renamed({"mov x4, #5", "str x4, [x1]", "br x2"}, {"mov x5, #5", "str x5, [x1]", "br x2"}),
              "code");
    // Instructions that may define other registers.
    EXPECT_EQ(renamed({"mov x9, #5", "svc #0", "ret"}, {"mov x10, #5", "svc #0", "ret"}), "code");
    EXPECT_EQ(renamed({"svc #0", "mov x9, #5", "str x9, [x1]", "ret"},
                      {"svc #0", "mov x10, #5", "str x10, [x1]", "ret"}),
              "registers");
}

TEST(Classes, CallInstructionsReorderedOnlyIfConstantsAreTheSame)
{
    const lines before = {"adr x3, data", "movk x9, #2", "ret"};
    const lines after = {"movk x9, #2", "adr x3, data", "ret"};
    EXPECT_EQ(change(before, after, {1}, {1}), "order");
    EXPECT_EQ(change(before, after, {1}, {2}), "code");
}

} // namespace
