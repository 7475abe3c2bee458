// Findings: their names, and merging those with the same cause.

#include "check/finding.hpp"
#include "check/finding_list.hpp"

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
}

class AFindingList : public testing::Test {
protected:
    void SetUp() override { list.begin_kernel(3, name); }

    void add(finding_id id, std::int64_t offset, const std::string& cause)
    {
        list.add(id, finding_severity::error, true, 7, offset, cause, {"message", "note", "help"});
    }

    std::string name = "k";
    finding_list list;
};

TEST_F(AFindingList, KeepsWhatItIsGiven)
{
    add(finding_id::range, 4, "cause");
    const auto findings = list.take();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].id, finding_id::range);
    EXPECT_EQ(findings[0].severity, finding_severity::error);
    EXPECT_TRUE(findings[0].aborts);
    EXPECT_EQ(findings[0].index, 3U);
    EXPECT_EQ(findings[0].kernel, "k");
    EXPECT_EQ(findings[0].relocation, 7U);
    EXPECT_EQ(findings[0].offset, 4);
    EXPECT_EQ(findings[0].message, "message");
    EXPECT_EQ(findings[0].note, "note");
    EXPECT_EQ(findings[0].help, "help");
    EXPECT_TRUE(list.take().empty());
}

TEST_F(AFindingList, AddsThePlacesOfOneCauseToTheFirst)
{
    add(finding_id::range, 4, "cause");
    add(finding_id::range, 8, "cause");
    add(finding_id::range, 4, "cause");
    add(finding_id::range, -4, "cause");
    add(finding_id::range, 8, "another cause");
    add(finding_id::opcode, 8, "cause");
    const auto findings = list.take();
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[0].message, "message; also at +0x8, -0x4");
    EXPECT_EQ(findings[1].message, "message");
    EXPECT_EQ(findings[2].message, "message");
}

TEST_F(AFindingList, KeepsKernelsApart)
{
    add(finding_id::range, 4, "cause");
    list.begin_kernel(4, name);
    add(finding_id::range, 4, "cause");
    const auto findings = list.take();
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[1].index, 4U);
}

} // namespace
