#include "check/finding.hpp"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

using namespace vorna::wfta;

TEST(FindingId, HasANameOfItsOwn)
{
    EXPECT_STREQ(name_of(finding_id::duplicate_name), "duplicate-name");
    EXPECT_STREQ(name_of(finding_id::call_bit_25), "call-bit-25");
    EXPECT_STREQ(name_of(finding_id::erratum_843419), "erratum-843419");
    EXPECT_STREQ(name_of(finding_id::abi_callee_saved), "abi-callee-saved");
    EXPECT_STREQ(name_of(finding_id::reads_flags_unset), "reads-flags-unset");
    EXPECT_STREQ(name_of(finding_id::unfollowed), "unfollowed");
    std::set<std::string> names;
    for (int id = 0; id <= static_cast<int>(finding_id::unfollowed); ++id)
        names.insert(name_of(static_cast<finding_id>(id)));
    EXPECT_EQ(names.size(), static_cast<std::size_t>(finding_id::unfollowed) + 1);
    EXPECT_EQ(names.count(""), 0U);
    EXPECT_STREQ(name_of(static_cast<finding_id>(-1)), "");
}

} // namespace
