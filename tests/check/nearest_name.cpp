// Which name was meant by one that does not exist.

#include "check/nearest_name.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;

std::string nearest(const std::vector<std::string>& candidates, const std::string& name,
                    name_candidates which = name_candidates::all)
{
    nearest_name_search search(name, which);
    for (const std::string& candidate : candidates)
        search.offer(candidate);
    return search.nearest();
}

TEST(IsMisspelling, AllowsOneTypingError)
{
    EXPECT_TRUE(is_misspelling("wfta_short_3", "wfta_shor_3"));
    EXPECT_TRUE(is_misspelling("wfta_short_3", "wfta_sohrt_3"));
    EXPECT_TRUE(is_misspelling("wfta_shrt_3", "wtfa_short_3"));
    EXPECT_FALSE(is_misspelling("wfta_short_3", "wfta_short_16")) << "another number";
    EXPECT_FALSE(is_misspelling("short", "short")) << "the same";
    EXPECT_FALSE(is_misspelling("abc", "xyz"));
    EXPECT_FALSE(is_misspelling("", ""));
}

TEST(NearestName, DiffersInAtMostAThirdOfItsCharacters)
{
    EXPECT_EQ(nearest({"abcdef"}, "abcdxy"), "abcdef");
    EXPECT_EQ(nearest({"abcdef"}, "abcxyz"), "");
    EXPECT_EQ(nearest({"abcdefg"}, "abcd"), "abcdefg") << "rounded up";
    EXPECT_EQ(nearest({"abcdefgh"}, "abcd"), "");
    EXPECT_EQ(nearest({"a"}, "b"), "") << "nothing in common";
    EXPECT_EQ(nearest({"ab"}, "ba"), "") << "distance 2, and 1 is allowed";
    EXPECT_EQ(nearest({""}, ""), "");
    EXPECT_EQ(nearest({"kitten!"}, "sitting"), "kitten!") << "distance 3";
}

TEST(NearestName, IsTheFirstOfThoseWithTheLeastDistance)
{
    EXPECT_EQ(nearest({"callxx", "calle", "callex"}, "callee"), "calle");
    EXPECT_EQ(nearest({}, "callee"), "");
}

TEST(NearestName, MayDifferInANumberUnlessItIsForAMisspelling)
{
    EXPECT_EQ(nearest({"short_3", "shor_16"}, "short_4"), "short_3");
    EXPECT_EQ(nearest({"short_3", "shor_4"}, "short_4", name_candidates::misspellings), "shor_4");
    EXPECT_EQ(nearest({"short_3"}, "short_4", name_candidates::misspellings), "");
}

} // namespace
