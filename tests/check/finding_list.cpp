#include "check/finding_list.hpp"

#include <gtest/gtest.h>
#include <string>

namespace {

using namespace vorna::wfta;

class FindingList : public testing::Test {
protected:
    void SetUp() override { list.begin_kernel(3, name); }

    void add(finding_id id, std::int64_t offset, const std::string& cause)
    {
        list.add(id, finding_severity::error, true, 7, offset, cause, {"message", "note", "help"});
    }

    std::string name = "k";
    finding_list list;
};

TEST_F(FindingList, HasTheMembersOfEachFinding)
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

TEST_F(FindingList, MergesFindingsWithOneCause)
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

TEST_F(FindingList, ListsNoPlaceOfAFindingAboutTheWholeKernel)
{
    const auto add_without_offset = [this] {
        list.add(finding_id::name_map, finding_severity::warning, false, {}, {}, "cause", {"message"});
    };
    add_without_offset();
    add_without_offset();
    const auto findings = list.take();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].offset, std::nullopt);
    EXPECT_EQ(findings[0].message, "message");
}

TEST_F(FindingList, KeepsKernelsApart)
{
    add(finding_id::range, 4, "cause");
    list.begin_kernel(4, name);
    add(finding_id::range, 4, "cause");
    const auto findings = list.take();
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[1].index, 4U);
}

} // namespace
