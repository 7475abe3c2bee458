#include "workbench/analysis/register_relation.hpp"

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace vorna::workbench;
using register_link = vorna::workbench::link; // link() is a system call

std::string name(std::size_t r)
{
    return r < 31    ? "x" + std::to_string(r)
           : r == 31 ? "sp"
           : r < 64  ? "v" + std::to_string(r - 32)
           : r < 80  ? "p" + std::to_string(r - 64)
           : r == 80 ? "ffr"
                     : "nzcv";
}

// The registers for which `holds`, with ranges.
std::string registers(const std::function<bool(register_id)>& holds)
{
    std::string text;
    std::size_t first = register_count;
    for (std::size_t r = 0; r <= register_count; ++r) {
        const bool inside = r < register_count && holds(static_cast<register_id>(r));
        if (inside && first == register_count)
            first = r;
        const bool ends = first != register_count && (!inside || r == 31 || r == 32 || r == 64 || r == 80);
        if (ends && r > first) {
            text += (text.empty() ? "" : " ") + name(first) + (r - 1 > first ? "-" + name(r - 1) : "");
            first = inside ? r : register_count;
        }
    }
    return text;
}

// The registers that the predicate needs: false if such a register alone is unrelated.
std::string needed(bool (*predicate)(const register_relation&))
{
    return registers([&](register_id r) {
        register_relation relation = register_relation::same_names();
        relation.forget_before(r);
        return !predicate(relation);
    });
}

// The registers that may have this relation alone.
std::string allowed(bool (*predicate)(const register_relation&), relation kind)
{
    return registers([&](register_id r) {
        register_relation relation = register_relation::same_names();
        relation.relate(r, {kind, r});
        return predicate(relation);
    });
}

// AAPCS64, 6.1 and 6.8: parameters in X0 to X7, V0 to V7 and P0 to P3, X8 for the result's address; X18 may
// have a role in the platform.
TEST(RegisterRelation, NeedsEqualArgumentsForACall)
{
    EXPECT_EQ(needed(arguments_are_equal), "x0-x8 x18 sp v0-v7 p0-p3");
}

// A register that an earlier call clobbered does not hold an argument.
TEST(RegisterRelation, DoesNotTakeAClobberedRegisterForAnArgument)
{
    const std::string others = "x9-x17 x19-x30 v8-v31 p4-p15 ffr-nzcv";
    EXPECT_EQ(allowed(arguments_are_equal, relation::clobbered), "x0-x17 x19-x30 v0-v31 p0-p15 ffr-nzcv");
    EXPECT_EQ(allowed(arguments_are_equal, relation::low_half), others);
    EXPECT_EQ(allowed(arguments_are_equal, relation::address), others);
    EXPECT_EQ(allowed(arguments_are_equal, relation::page), others);
}

TEST(RegisterRelation, NeedsEqualCalleeSavedRegistersOnReturn)
{
    EXPECT_EQ(needed(preserved_are_equal), "x18-x29 sp v8-v15");
    EXPECT_EQ(allowed(preserved_are_equal, relation::low_half), "x0-x17 x30 v0-v31 p0-p15 ffr-nzcv")
        << "of V8 to V15 the callee saves the low half";
    EXPECT_EQ(allowed(preserved_are_equal, relation::clobbered), "x0-x17 x30 v0-v7 v16-v31 p0-p15 ffr-nzcv");
}

// A result is in X0 and X1, or in up to four vector registers.
TEST(RegisterRelation, NeedsEqualResultsOnReturn)
{
    EXPECT_EQ(needed(results_are_equal), "x0-x1 v0-v3");
    EXPECT_EQ(allowed(results_are_equal, relation::clobbered), "x2-x30 sp v4-v31 p0-p15 ffr-nzcv");
}

TEST(RegisterRelation, AfterACallHasEqualResultsAndNoneOfTheScratchRegisters)
{
    const register_relation after = after_call(register_relation::same_names());
    const auto with = [&after](relation kind) {
        return registers([&](register_id r) { return after.is_same_name(r, kind); });
    };
    EXPECT_EQ(with(relation::equal), "x0-x1 x18-x29 sp v0-v3");
    EXPECT_EQ(with(relation::low_half), "v8-v15");
    EXPECT_EQ(with(relation::clobbered), "x2-x17 x30 v4-v7 v16-v31 p0-p15 ffr-nzcv");
    EXPECT_FALSE(after.of(link_register).returns);
}

TEST(RegisterRelation, AfterACallKeepsALinkOnlyBetweenCalleeSavedRegisters)
{
    register_relation before = register_relation::same_names();
    before.relate(general_register(19), {relation::equal, general_register(20)});
    before.relate(general_register(21), {relation::equal, general_register(9)});
    before.relate(general_register(10), {relation::equal, general_register(22)});
    before.relate(vector_register(8), {relation::equal, vector_register(9)});
    before.relate(vector_register(10), {relation::equal, vector_register(16)});
    before.relate(general_register(23), {relation::address, general_register(23), false, 8, 16});
    const register_relation after = after_call(before);
    EXPECT_EQ(after.of(general_register(19)), (register_link{relation::equal, general_register(20)}));
    EXPECT_EQ(after.of(general_register(21)).kind, relation::none);
    EXPECT_EQ(after.of(general_register(22)).kind, relation::none);
    EXPECT_EQ(after.of(vector_register(8)), (register_link{relation::low_half, vector_register(9)}));
    EXPECT_EQ(after.of(vector_register(10)).kind, relation::none);
    EXPECT_EQ(after.of(general_register(23)),
              (register_link{relation::address, general_register(23), false, 8, 16}));
}

TEST(RegisterRelation, RelatesEachRegisterToOneOther)
{
    register_relation relation;
    relation.relate(1, {relation::equal, 2});
    relation.relate(3, {relation::equal, 2});
    EXPECT_EQ(relation.of(1).kind, relation::none) << "2 is related to 3 now";
    relation.relate(3, {relation::equal, 4});
    relation.relate(5, {relation::equal, 2});
    EXPECT_EQ(relation.of(3).partner, 4);
    EXPECT_EQ(relation.of(5).partner, 2) << "2 was free";
    relation.forget_after(4);
    EXPECT_EQ(relation.of(3).kind, relation::none);
    relation.forget_before(5);
    relation.relate(6, {relation::equal, 2});
    relation.forget_before(5);
    EXPECT_EQ(relation.of(6).partner, 2);
}

TEST(RegisterRelation, KeepsWhatHoldsOnBothPathsThatMeet)
{
    const register_link nothing;
    const register_link equal{relation::equal, 9};
    const register_link other{relation::equal, 10};
    const register_link half{relation::low_half, 9};
    const register_link clobbered{relation::clobbered, 9};
    const register_link address{relation::address, 9, false, 8, 16};
    const register_link elsewhere{relation::address, 9, false, 8, 24};
    const auto met = [](const register_link& a, const register_link& b) {
        register_relation one;
        register_relation two;
        one.relate(9, a);
        two.relate(9, b);
        const register_link before = one.of(9);
        const bool changed = one.meet(two);
        EXPECT_EQ(changed, !(one.of(9) == before));
        return one.of(9);
    };
    for (const register_link& same : {equal, half, clobbered, address})
        EXPECT_EQ(met(same, same), same);
    for (const auto& [a, b, both] :
         std::vector<std::array<register_link, 3>>{{equal, other, nothing},
                                                   {equal, half, half},
                                                   {equal, clobbered, clobbered},
                                                   {half, clobbered, nothing},
                                                   {equal, address, nothing},
                                                   {clobbered, address, nothing},
                                                   {address, elsewhere, nothing}}) {
        EXPECT_EQ(met(a, b).kind, both.kind);
        EXPECT_EQ(met(b, a).kind, both.kind);
    }
    register_relation one = register_relation::same_names();
    one.forget_before(9);
    register_relation all = register_relation::same_names();
    EXPECT_TRUE(all.meet(one));
    EXPECT_EQ(all.of(9).kind, relation::none);
    EXPECT_FALSE(one.meet(register_relation::same_names()));
    EXPECT_EQ(one.of(9).kind, relation::none);
}

TEST(RegisterRelation, LosesTheReturnAddressIfOnePathLacksIt)
{
    register_relation one = register_relation::same_names();
    register_relation two = register_relation::same_names();
    EXPECT_TRUE(one.of(link_register).returns);
    EXPECT_FALSE(one.meet(two));
    two.relate(link_register, {relation::equal, link_register});
    EXPECT_TRUE(one.meet(two));
    EXPECT_FALSE(one.of(link_register).returns);
    EXPECT_EQ(one.of(link_register).kind, relation::equal);
    EXPECT_FALSE(one.meet(two));
}

TEST(RegisterRelation, MarksOnlyAnEqualValueAsTheReturnAddress)
{
    register_relation relation;
    relation.relate(9, {relation::equal, 10});
    relation.relate(11, {relation::clobbered, 11});
    relation.mark_return_address(9);
    relation.mark_return_address(11);
    EXPECT_TRUE(relation.of(9).returns);
    EXPECT_FALSE(relation.of(11).returns);
}

TEST(StackFrame, LosesTheSlotsBelowSp)
{
    stack_frame frame;
    frame.sp = -32;
    frame.returns = {-32, -24, -8};
    frame.move_sp(-24);
    EXPECT_EQ(frame.returns, (std::set<std::int64_t>{-24, -8}));
    frame.move_sp(-64);
    EXPECT_EQ(frame.returns, (std::set<std::int64_t>{-24, -8})) << "they are above it";
    frame.move_sp(std::nullopt);
    EXPECT_TRUE(frame.returns.empty());
}

TEST(StackFrame, LosesASlotWithOneOverwrittenByte)
{
    const auto left = [](std::int64_t begin, std::int64_t bytes) {
        stack_frame frame;
        frame.returns = {-16};
        frame.overwrite(begin, bytes);
        return !frame.returns.empty();
    };
    EXPECT_TRUE(left(-17, 1));
    EXPECT_FALSE(left(-17, 2));
    EXPECT_FALSE(left(-16, 8));
    EXPECT_FALSE(left(-9, 1));
    EXPECT_TRUE(left(-8, 8));
    EXPECT_FALSE(left(-32, 64));
}

TEST(StackFrame, IsUnknownAfterPathsWithDifferentSp)
{
    register_relation one = register_relation::same_names();
    register_relation two = one;
    one.stack.sp = two.stack.sp = -32;
    one.stack.returns = {-8, -16};
    two.stack.returns = {-8};
    EXPECT_TRUE(one.meet(two));
    EXPECT_EQ(one.stack.sp, -32);
    EXPECT_EQ(one.stack.returns, (std::set<std::int64_t>{-8}));
    EXPECT_FALSE(one.meet(two));
    two.stack.sp = -48;
    EXPECT_TRUE(one.meet(two));
    EXPECT_EQ(one.stack.sp, std::nullopt);
    EXPECT_TRUE(one.stack.returns.empty());
}

} // namespace
