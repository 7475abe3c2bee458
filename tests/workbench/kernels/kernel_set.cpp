// Order, mappings and lookups of a set of placed kernels.

#include "workbench/kernels/kernel_set.hpp"
#include "tests/support/dumps.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;
using support::placed_bytes;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> names(const kernel_set& set)
{
    std::vector<std::string> all;
    for (const placed_kernel& kernel : set.kernels)
        all.push_back(kernel.name);
    return all;
}

std::vector<std::size_t> mappings(const kernel_set& set)
{
    std::vector<std::size_t> all;
    for (const placed_kernel& kernel : set.kernels)
        all.push_back(kernel.mapping);
    return all;
}

TEST(KernelSet, IsSortedByAddress)
{
    const kernel_set set =
        make_kernel_set({placed_bytes("a", 0x1040, 4, 0x1062, 1), placed_bytes("c", 0x1000, 4, 0x1060, 2),
                         placed_bytes("b", 0x1020, 4, 0x1062, 0)});
    EXPECT_THAT(names(set), ElementsAre("c", "b", "a"));
}

TEST(KernelSet, HasKernelsWithoutCodeBeforeTheKernelAtTheirAddress)
{
    const kernel_set set =
        make_kernel_set({placed_bytes("a", 0x1020, 4, 0x1040, 0), placed_bytes("b", 0x1020, 0, 0x1040, 0)});
    EXPECT_THAT(names(set), ElementsAre("b", "a"));
}

TEST(KernelSet, KnowsTheCallersOfAKernelOnceEach)
{
    const kernel_set set = make_kernel_set(
        {placed_bytes("callee", 0x1000, 4, 0x1060, 0),
         placed_bytes("twice", 0x1020, 8, 0x1060, 0, {{"callee", 0, 283, 0}, {"callee", 4, 283, 0}}),
         placed_bytes("data", 0x1040, 4, 0x1060, 8, {{".rodata.callee", 0, 275, 0}}),
         placed_bytes("once", 0x1060, 4, 0x1080, 0, {{"callee", 0, 283, 0}, {"absent", 0, 283, 0}})});
    EXPECT_THAT(set.callers, ElementsAre(ElementsAre(1, 3), IsEmpty(), IsEmpty(), IsEmpty()));
}

TEST(KernelSet, FindsTheFirstKernelOfAName)
{
    const kernel_set set = make_kernel_set(
        {placed_bytes("k", 0x2000, 4), placed_bytes("k", 0x1000, 4), placed_bytes("", 0x3000, 4)});
    EXPECT_EQ(find_kernel(set, "k"), set.kernels.data());
    EXPECT_EQ(find_kernel(set, ""), &set.kernels[2]);
    EXPECT_EQ(find_kernel(set, "K"), nullptr);
}

TEST(Mappings, AreSeparateWhereOneBeginsAtTheEndOfTheOther)
{
    const kernel_set set =
        make_kernel_set({placed_bytes("a", 0x1000, 32, 0x1020, 0xfe0),
                         placed_bytes("b", 0x2000, 32, 0x2040, 8), placed_bytes("c", 0x2020, 32, 0x2048, 8)});
    EXPECT_THAT(mappings(set), ElementsAre(0, 1, 1));
    ASSERT_EQ(set.mappings.size(), 2U);
    EXPECT_EQ(set.mappings[0].begin, 0x1000U);
    EXPECT_EQ(set.mappings[0].end, 0x2000U);
    EXPECT_EQ(set.mappings[1].begin, 0x2000U);
    EXPECT_EQ(set.mappings[1].data_begin, 0x2040U);
    EXPECT_EQ(set.mappings[1].end, 0x2050U);
}

TEST(Mappings, AreSeparateWhereCodeBeginsAtTheEndOfCodeWithoutConstants)
{
    EXPECT_THAT(mappings(make_kernel_set({placed_bytes("a", 0x1000, 0x1000, 0x2000, 0),
                                          placed_bytes("b", 0x2000, 32, 0x2020, 8)})),
                ElementsAre(0, 1));
}

TEST(Mappings, AreSeparateWhereCodeComesAfterAnyKernelsConstants)
{
    // The constants of the second lie before those of the first.
    EXPECT_THAT(mappings(make_kernel_set({placed_bytes("a", 0x1000, 32, 0x8000, 8),
                                          placed_bytes("b", 0x1020, 32, 0x2000, 8),
                                          placed_bytes("c", 0x3000, 32, 0x9000, 8)})),
                ElementsAre(0, 0, 1));
}

TEST(Mappings, AreOneEvenIfKernelsInBetweenHaveNoDump)
{
    EXPECT_THAT(mappings(make_kernel_set(
                    {placed_bytes("a", 0x1000, 32, 0x9000, 8), placed_bytes("z", 0x8fe0, 32, 0x9100, 8)})),
                ElementsAre(0, 0));
}

TEST(Mappings, ContainKernelsWithoutCodeAndData)
{
    EXPECT_THAT(mappings(make_kernel_set(
                    {placed_bytes("a", 0x1000, 32, 0x1020, 0), placed_bytes("empty", 0x1020, 0, 0x1020, 0)})),
                ElementsAre(0, 0));
}

TEST(Mappings, BeginOnThePageOfTheirFirstKernel)
{
    EXPECT_EQ(make_kernel_set({placed_bytes("a", 0x1fe0, 32, 0x2000, 8)}).mappings.at(0).begin, 0x1000U);
}

TEST(Overlap, IsOfTwoKernelsThatShareAByte)
{
    const auto overlap = [](std::vector<placed_kernel> kernels) {
        const kernel_set set = make_kernel_set(std::move(kernels));
        const std::optional<kernel_pair> pair = find_overlap(set);
        return pair ? set.kernels[pair->first].name + set.kernels[pair->second].name : "none";
    };
    EXPECT_EQ(overlap({placed_bytes("a", 0x1000, 32, 0x1040, 8), placed_bytes("b", 0x1020, 32, 0x1048, 8)}),
              "none");
    EXPECT_EQ(overlap({placed_bytes("a", 0x1000, 33, 0x1040, 8), placed_bytes("b", 0x1020, 32, 0x1048, 8)}),
              "ab");
    EXPECT_EQ(overlap({placed_bytes("a", 0x1000, 32, 0x1040, 9), placed_bytes("b", 0x1020, 32, 0x1048, 8)}),
              "ab");
    EXPECT_EQ(overlap({placed_bytes("a", 0x1000, 32, 0x1020, 8), placed_bytes("b", 0x1020, 32, 0x1048, 8)}),
              "ab");
    EXPECT_EQ(overlap({placed_bytes("a", 0x1000, 0x100, 0x2000), placed_bytes("empty", 0x1020, 0, 0x2000),
                       placed_bytes("c", 0x10e0, 32, 0x2000)}),
              "ac");
}

TEST(NearestName, HasTheLeastEditDistance)
{
    const kernel_set set =
        make_kernel_set({placed_bytes("wfta_short_3", 0x1000, 4), placed_bytes("wfta_short_16", 0x1020, 4)});
    EXPECT_EQ(nearest_name(set, "wfta_shrt_3"), "wfta_short_3");
    EXPECT_EQ(nearest_name(set, "short_16"), "wfta_short_16");
    EXPECT_EQ(nearest_name(kernel_set{}, "k"), "");
}

TEST(NearestName, DiffersInAtMostAThirdOfItsCharacters)
{
    const auto nearest = [](const std::string& kernel, std::string_view name) {
        return nearest_name(make_kernel_set({placed_bytes(kernel, 0x1000, 4)}), name);
    };
    EXPECT_EQ(nearest("a", "wfta"), "");
    EXPECT_EQ(nearest("abcdef", "abcdxy"), "abcdef");
    EXPECT_EQ(nearest("abcdef", "abcxyz"), "");
    EXPECT_EQ(nearest("abcdefg", "abcdxyz"), "abcdefg") << "rounded up";
    EXPECT_EQ(nearest("abcdefg", "abcd"), "abcdefg");
    EXPECT_EQ(nearest("abcd", "abcdefg"), "abcd");
    EXPECT_EQ(nearest("abcd", "abcdefgh"), "");
    EXPECT_EQ(nearest("ab", "ac"), "ab");
    EXPECT_EQ(nearest("a", "b"), "") << "nothing in common";
    EXPECT_EQ(nearest("a", ""), "");
    EXPECT_EQ(nearest(std::string(300, 'x'), std::string(256, 'x')), std::string(300, 'x'));
}

TEST(KernelByAddress, IsTheOneWithAByteThere)
{
    const kernel_set set =
        make_kernel_set({placed_bytes("a", 0x1000, 4, 0x1040, 2), placed_bytes("none", 0x1020, 0, 0x1042, 0),
                         placed_bytes("b", 0x1020, 8, 0x1042, 3)});
    const auto by_text = [&](std::uint64_t address) {
        const placed_kernel* const kernel = find_kernel_by_text(set, address);
        return kernel == nullptr ? "nothing" : kernel->name;
    };
    const auto by_data = [&](std::uint64_t address) {
        const placed_kernel* const kernel = find_kernel_by_data(set, address);
        return kernel == nullptr ? "nothing" : kernel->name;
    };
    EXPECT_EQ(by_text(0xfff), "nothing");
    EXPECT_EQ(by_text(0x1000), "a");
    EXPECT_EQ(by_text(0x1003), "a");
    EXPECT_EQ(by_text(0x1004), "nothing");
    EXPECT_EQ(by_text(0x1020), "b");
    EXPECT_EQ(by_text(0x1027), "b");
    EXPECT_EQ(by_text(0x1028), "nothing");
    EXPECT_EQ(by_data(0x1041), "a");
    EXPECT_EQ(by_data(0x1042), "b");
    EXPECT_EQ(by_data(0x1045), "nothing");
}

} // namespace
