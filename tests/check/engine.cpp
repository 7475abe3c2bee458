// The engine, on kernels with the addresses of a process. check_kernels.cpp tests it on sets before they are
// placed.

#include "check/engine.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;
using namespace support;
using namespace support::a64;
using where = relocation_target::where;

constexpr std::int32_t BL = 283;

/// The findings of a caller at 0x8000000 whose callee is at the given address.
std::vector<kernel_finding> check(const relocation_target& callee, const kernel_registry_map& others = {})
{
    const kernel_data caller = kernel("user", {bl(), ret()}, {{"callee", 0, BL, 0}});
    const std::vector<checked_kernel> kernels = {
        {&caller.name, &caller.text, &caller.data, &caller.relocs, 0x8000000, 0x8000020, ""}};
    return check_placed(
        kernels, [&](std::size_t, const std::string&) { return callee; }, others, address_kind::real);
}

TEST(Engine, KnowsDistancesToOtherMappings)
{
    EXPECT_TRUE(check({where::placed, 0x1000, true}).empty());
    const auto findings = check({where::placed, 0x8000000 + 0x8000000, true});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].id, finding_id::range);
    EXPECT_TRUE(findings[0].aborts);
    EXPECT_EQ(findings[0].message, "relocation R_AARCH64_CALL26 against 'callee' out of range: 134217728 is "
                                   "not in [-134217728, 134217727]");
    EXPECT_EQ(findings[0].note, "'callee' is in the mapping of another call");
    EXPECT_EQ(findings[0].help, "finalise both in one set, or load the address with ADRP and ADD and use "
                                "BLR; if these are dumps of two runs, use a directory for each");
}

TEST(Engine, NotesATargetThatIsNotAmongTheKernels)
{
    const auto findings = check({where::unknown, 0, false});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].id, finding_id::unknown_target);
    EXPECT_EQ(findings[0].severity, finding_severity::note);
    EXPECT_FALSE(findings[0].aborts);
    EXPECT_EQ(findings[0].message,
              "relocation R_AARCH64_CALL26 against 'callee': target not found in the dumps");
}

TEST(Engine, SuggestsOtherNamesForAMisspeltTarget)
{
    const relocation_target nowhere = {where::nowhere, 0, false};
    const auto findings = check(nowhere, {{"calle", {address(0x1000), 4, address(0x1004), 0}}});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_TRUE(findings[0].aborts);
    EXPECT_EQ(findings[0].note, "the name may be misspelt: there is 'calle'");
    EXPECT_EQ(check(nowhere)[0].help, "place 'callee' before 'user', with the same registry");
}

} // namespace
