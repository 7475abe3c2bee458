// What a change of the generator did to the kernels.

#include "workbench/difference.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    placed_kernel kernel;
    kernel.name = name;
    kernel.text_address = 0x10000;
    kernel.text = support::code(words);
    kernel.data_address = 0x20000;
    kernel.data = std::move(data);
    kernel.relocs = std::move(relocs);
    return kernel;
}

// The alignment in signs: "=" a pair that is the same, "~" one that is not, "-" and "+" rows of one side.
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

TEST(Alignment, TakesABranchForTheSameWhenItLeadsToTheSameRow)
{
    const placed_kernel before = kernel("k", {a64::cbz(0, 2), a64::nop(), a64::ret()});
    const placed_kernel longer = kernel("k", {a64::cbz(0, 3), a64::nop(), a64::movz(1, 1), a64::ret()});
    const placed_kernel elsewhere = kernel("k", {a64::cbz(0, 2), a64::nop(), a64::movz(1, 1), a64::ret()});
    EXPECT_EQ(signs(align_rows(before, longer)), "==+=");
    EXPECT_EQ(signs(align_rows(before, elsewhere)), "~=+=");
}

TEST(Sets, AreComparedByNameInTheOrderOfNames)
{
    const auto before = make_kernel_set({kernel("b", {a64::ret()}), kernel("gone", {a64::ret()})});
    const auto after = make_kernel_set({kernel("a", {a64::ret()}), kernel("b", {a64::ret()})});
    std::string text;
    for (const kernel_difference& difference : compare_sets(before, after))
        text += difference.name + " " + std::string(name_of(difference.change)) + "\n";
    EXPECT_EQ(text, "a new\nb same\ngone gone\n");
}

TEST(Classes, TellWordsReferencesAndConstantsApart)
{
    const placed_kernel before = kernel("k", {a64::bl(), a64::ret()}, {{"f", 0, 283, 0}}, {1, 2});
    EXPECT_EQ(compare_kernels(before, before), change_class::same);
    placed_kernel after = before;
    after.data[1] = 3;
    EXPECT_EQ(compare_kernels(before, after), change_class::constants);
    after = before;
    after.relocs[0].name = "g";
    EXPECT_EQ(compare_kernels(before, after), change_class::references);
    after = before;
    after.text = support::code({a64::bl(), a64::nop(), a64::ret()});
    EXPECT_EQ(compare_kernels(before, after), change_class::code);
}

} // namespace
