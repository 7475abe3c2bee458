#include "workbench/analysis/common_sequence.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace {

using vorna::workbench::common_sequence;
using vorna::workbench::find_common_sequence;
using vorna::workbench::index_pair;

using elements = std::vector<std::uint32_t>;

// The length of a longest common subsequence, by dynamic programming.
std::size_t longest_common(const elements& before, const elements& after)
{
    std::vector<std::size_t> row(after.size() + 1);
    for (const std::uint32_t element : before) {
        std::size_t diagonal = 0;
        for (std::size_t j = 0; j < after.size(); ++j) {
            const std::size_t above = row[j + 1];
            row[j + 1] = element == after[j] ? diagonal + 1 : std::max(above, row[j]);
            diagonal = above;
        }
    }
    return row.back();
}

void expect_common(const common_sequence& common, const elements& before, const elements& after)
{
    for (std::size_t i = 0; i < common.pairs.size(); ++i) {
        const index_pair& pair = common.pairs[i];
        ASSERT_LT(pair.before, before.size());
        ASSERT_LT(pair.after, after.size());
        ASSERT_EQ(before[pair.before], after[pair.after]);
        if (i != 0) {
            ASSERT_GT(pair.before, common.pairs[i - 1].before);
            ASSERT_GT(pair.after, common.pairs[i - 1].after);
        }
    }
}

elements random_elements(std::mt19937& random, std::size_t size, std::uint32_t kinds)
{
    elements made(size);
    for (std::uint32_t& element : made)
        element = static_cast<std::uint32_t>(random() % kinds);
    return made;
}

TEST(CommonSequence, IsALongestOne)
{
    std::mt19937 random(1);
    for (int i = 0; i < 20'000; ++i) {
        const auto kinds = static_cast<std::uint32_t>(1 + random() % 8);
        const elements before = random_elements(random, random() % 20, kinds);
        const elements after = random_elements(random, random() % 20, kinds);
        const common_sequence common = find_common_sequence(before, after);
        expect_common(common, before, after);
        ASSERT_EQ(common.pairs.size(), longest_common(before, after)) << i;
        ASSERT_TRUE(common.complete);
    }
}

TEST(CommonSequence, IsALongestOneAfterAFewEdits)
{
    std::mt19937 random(2);
    for (int i = 0; i < 20; ++i) {
        const elements before = random_elements(random, 1000, 100);
        elements after = before;
        for (int edit = 0; edit < 50; ++edit) {
            const auto at = after.begin() + static_cast<std::ptrdiff_t>(random() % after.size());
            if (random() % 2 == 0)
                after.erase(at);
            else
                after.insert(at, static_cast<std::uint32_t>(random() % 100));
        }
        const common_sequence common = find_common_sequence(before, after);
        expect_common(common, before, after);
        ASSERT_EQ(common.pairs.size(), longest_common(before, after)) << i;
        ASSERT_TRUE(common.complete);
    }
}

TEST(CommonSequence, PairsEqualBeginningsAndEnds)
{
    const common_sequence common = find_common_sequence({1, 2, 3, 9}, {1, 2, 4, 5, 9});
    ASSERT_EQ(common.pairs.size(), 3U);
    EXPECT_EQ(common.pairs[1].after, 1U);
    EXPECT_EQ(common.pairs[2].before, 3U);
    EXPECT_EQ(common.pairs[2].after, 4U);
    EXPECT_TRUE(find_common_sequence({}, {1}).pairs.empty());
    EXPECT_TRUE(find_common_sequence({}, {}).complete);
}

TEST(CommonSequence, OfVeryDifferentSequencesPairsWhatItFinds)
{
    std::mt19937 random(3);
    elements before(20'000);
    std::iota(before.begin(), before.end(), 0);
    elements after = before;
    std::shuffle(after.begin() + 100, after.begin() + 10'000, random);
    before.push_back(1'000'000); // so the second half is not the sequences' common end
    after.push_back(2'000'000);
    const common_sequence common = find_common_sequence(before, after);
    expect_common(common, before, after);
    EXPECT_FALSE(common.complete);
    EXPECT_GE(common.pairs.size(), 100U + 10'000U);
}

TEST(CommonSequence, OfAShortAndALongSequenceStaysWithinBoth)
{
    std::mt19937 random(4);
    const elements few = random_elements(random, 500, 500);
    const elements many = random_elements(random, 20'000, 500);
    for (const auto& [before, after] : {std::pair(few, many), std::pair(many, few)}) {
        const common_sequence common = find_common_sequence(before, after);
        expect_common(common, before, after);
        EXPECT_FALSE(common.complete);
        EXPECT_GE(common.pairs.size(), 100U);
    }
}

TEST(CommonSequence, OfALongSequenceIsCompleteIfFewElementsHaveAPartner)
{
    // 300,000 elements of each side do not occur on the other.
    elements before;
    elements after;
    for (std::uint32_t i = 0; i < 100'000; ++i) {
        before.insert(before.end(), {3 * i, 1'000'000 + i, 2'000'000 + i, 3'000'000 + i});
        after.insert(after.end(), {4'000'000 + i, 5'000'000 + i, 6'000'000 + i, 3 * i});
    }
    const common_sequence common = find_common_sequence(before, after);
    expect_common(common, before, after);
    EXPECT_TRUE(common.complete);
    EXPECT_EQ(common.pairs.size(), 100'000U);
}

} // namespace
