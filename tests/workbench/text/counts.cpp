#include "workbench/text/counts.hpp"

#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;

TEST(Pluralize, HasAnSExceptForOne)
{
    EXPECT_EQ(pluralize(0, "kernel"), "0 kernels");
    EXPECT_EQ(pluralize(1, "kernel"), "1 kernel");
    EXPECT_EQ(pluralize(24180, "sample"), "24180 samples");
    EXPECT_EQ(pluralize_with_separators(24180, "sample"), "24,180 samples");
    EXPECT_EQ(pluralize_with_separators(1, "sample"), "1 sample");
}

TEST(WithSeparators, GroupsThreeDigits)
{
    EXPECT_EQ(with_separators(0), "0");
    EXPECT_EQ(with_separators(999), "999");
    EXPECT_EQ(with_separators(1000), "1,000");
    EXPECT_EQ(with_separators(1234567), "1,234,567");
    EXPECT_EQ(with_separators(std::numeric_limits<std::uint64_t>::max()), "18,446,744,073,709,551,615");
}

TEST(JoinSome, ListsEightNamesAndCountsTheRest)
{
    EXPECT_EQ(join_some({}), "");
    EXPECT_EQ(join_some({"a", "b\n"}), "a, b\\n");
    EXPECT_EQ(join_some(std::vector<std::string>(8, "k")), "k, k, k, k, k, k, k, k");
    EXPECT_EQ(join_some(std::vector<std::string>(10, "k")), "k, k, k, k, k, k, k, k and 2 more");
}

} // namespace
