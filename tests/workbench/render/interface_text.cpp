// A kernel's interface as lines and as JSON.

#include "workbench/render/interface_text.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;
using testing::ElementsAre;

/// Everything that an interface can hold.
kernel_interface full_interface()
{
    kernel_interface made;
    made.reads = {"x0", "x1", "x2", "v0", "nzcv"};
    made.reads_constants = true;
    made.writes = {"x0", "d8", "z9", "p4", "sp", "nzcv", "fpcr"};
    made.saves = {{"x19", -32, 0}, {"x20", -24, 0}, {"x21", -16, 4}, {"x30", -8, 8}};
    made.calls = {"first", "second\n", "x9"};
    made.stack = 32;
    made.needs = {"neon", "dotprod"};
    made.general = {5, 0x10};
    made.vector = {1, 4};
    made.predicate = {2, 0x1c};
    made.spill_stores = 2;
    made.spill_loads = 1;
    made.returns_elsewhere = true;
    made.followed = false;
    return made;
}

TEST(RegisterList, JoinsThreeOrMoreConsecutiveRegisters)
{
    EXPECT_EQ(register_list(std::vector<std::string>{}), "");
    EXPECT_EQ(register_list({"x0", "x1"}), "x0, x1");
    EXPECT_EQ(register_list({"x0", "x1", "x2"}), "x0-x2");
    EXPECT_EQ(register_list({"x0", "x2", "x3", "x4", "x6"}), "x0, x2-x4, x6");
    EXPECT_EQ(register_list({"x8", "x9", "x10", "x11", "sp", "nzcv"}), "x8-x11, sp, nzcv");
}

TEST(RegisterList, KeepsRegistersOfDifferentKindsApart)
{
    EXPECT_EQ(register_list({"v7", "d8", "d9", "d10", "v11", "z12", "p13"}), "v7, d8-d10, v11, z12, p13");
    EXPECT_EQ(register_list({"fpcr", "ffr", "nzcv"}), "fpcr, ffr, nzcv");
}

TEST(RegisterList, LeavesOutTheStackPointerOfASet)
{
    register_set set;
    for (const register_id r : {general_register(29), link_register, stack_pointer, vector_register(0),
                                predicate_register(15), first_fault_register, condition_flags})
        set.set(r);
    EXPECT_EQ(register_list(set), "x29, x30, v0, p15, ffr, nzcv");
}

TEST(InterfaceText, HoldsWhatThereIsInOrder)
{
    EXPECT_EQ(
        interface_text(full_interface()),
        "reads x0-x2, v0, nzcv, .rodata; writes x0, d8, z9, p4, sp, nzcv, fpcr; saves x19-x21 at cfa-32, "
        "x30 at cfa-8; stack 32 bytes; spills 2 stores, 1 load; calls first, second\\n, x9; may return "
        "otherwise than by x30; max live 5 general (+10), 1 vector (+04), 2 predicate (+1c); needs neon, "
        "dotprod; incomplete, see 'unfollowed' in check");
}

TEST(InterfaceText, LeavesOutWhatThereIsNotButAlwaysHasTheStack)
{
    EXPECT_EQ(interface_text({}), "stack unknown");
    kernel_interface leaf;
    leaf.stack = 0;
    leaf.general = {1, 0};
    EXPECT_EQ(interface_text(leaf, 3), "stack 0 bytes; max live 1 general (+000)");
    leaf.spill_loads = 1;
    EXPECT_EQ(interface_text(leaf), "stack 0 bytes; spills 0 stores, 1 load; max live 1 general (+00)");
}

TEST(InterfaceText, SaysWhereRegistersAreSavedInRunsOfOneStride)
{
    kernel_interface made;
    made.stack = 112;
    // Pairs pushed one after the other lie the other way round; D8 and D9 are 8 bytes apart, Q10 and Q11 16.
    made.saves = {{"x19", -16, 0}, {"x20", -8, 0},  {"x21", -32, 0}, {"x22", -24, 0},
                  {"x29", -48, 0}, {"d8", -64, 0},  {"d9", -56, 0},  {"v10", -96, 0},
                  {"v11", -80, 0}, {"v12", -72, 0}, {"x30", 16, 0}};
    EXPECT_EQ(interface_text(made),
              "saves x19, x20 at cfa-16, x21, x22 at cfa-32, x29 at cfa-48, d8, d9 at cfa-64, v10, v11 at "
              "cfa-96, v12 at cfa-72, x30 at cfa+16; stack 112 bytes");
}

TEST(InterfaceText, JoinsNoRegistersThatLieInDescendingOrder)
{
    kernel_interface made;
    made.stack = 32;
    made.saves = {{"x19", -8, 0}, {"x20", -16, 4}, {"x21", -24, 8}};
    EXPECT_EQ(interface_text(made), "saves x19 at cfa-8, x20 at cfa-16, x21 at cfa-24; stack 32 bytes");
}

TEST(InterfaceLines, HaveAtMost100Columns)
{
    EXPECT_THAT(
        interface_lines(full_interface()),
        ElementsAre("  reads x0-x2, v0, nzcv, .rodata; writes x0, d8, z9, p4, sp, nzcv, fpcr;",
                    "  saves x19-x21 at cfa-32, x30 at cfa-8; stack 32 bytes; spills 2 stores, 1 load;",
                    "  calls first, second\\n, x9; may return otherwise than by x30;",
                    "  max live 5 general (+10), 1 vector (+04), 2 predicate (+1c); needs neon, dotprod;",
                    "  incomplete, see 'unfollowed' in check"));
    kernel_interface many = full_interface();
    for (unsigned i = 0; i < 32; i += 2)
        many.writes.push_back("v" + std::to_string(i));
    many.calls = {std::string(60, 'a'), std::string(60, 'b'), std::string(120, 'c')};
    EXPECT_THAT(
        interface_lines(many),
        ElementsAre(
            "  reads x0-x2, v0, nzcv, .rodata;",
            "  writes x0, d8, z9, p4, sp, nzcv, fpcr, v0, v2, v4, v6, v8, v10, v12, v14, v16, "
            "v18, v20, v22, v24,",
            "    v26, v28, v30; saves x19-x21 at cfa-32, x30 at cfa-8; stack 32 bytes; "
            "spills 2 stores, 1 load;",
            "  calls " + std::string(60, 'a') + ",", "    " + std::string(60, 'b') + ",",
            "    " + std::string(120, 'c') + ";",
            "  may return otherwise than by x30; max live 5 general (+10), 1 vector (+04), 2 predicate (+1c);",
            "  needs neon, dotprod; incomplete, see 'unfollowed' in check"));
}

TEST(InterfaceLines, AreBrokenAfterTheFirstCommaWhereNoneFits)
{
    kernel_interface made;
    made.stack = 0;
    for (const std::size_t size : {91U, 92U, 120U}) { // with "  calls " and a comma: 100 columns and more
        made.calls = {std::string(size, 'a'), "b", "c"};
        EXPECT_THAT(interface_lines(made),
                    ElementsAre("  stack 0 bytes;", "  calls " + std::string(size, 'a') + ",", "    b, c"));
    }
    made.calls = {std::string(45, 'a'), std::string(45, 'b'), "c"}; // the second comma is in column 101
    EXPECT_THAT(interface_lines(made),
                ElementsAre("  stack 0 bytes;", "  calls " + std::string(45, 'a') + ",",
                            "    " + std::string(45, 'b') + ", c"));
}

TEST(InterfaceLines, FillALineToItsLastColumn)
{
    for (const std::size_t size : {75U, 76U, 77U}) {
        kernel_interface made;
        made.stack = 0;
        made.needs = {std::string(size, 'f')}; // with "  stack 0 bytes; needs ": 98 columns and more
        EXPECT_EQ(interface_lines(made).size(), size <= 76 ? 1U : 2U) << size;
    }
}

TEST(InterfaceJson, HasEveryMemberAndNullForAnUnknownStack)
{
    EXPECT_EQ(interface_json(full_interface()).dump(),
              R"({"reads":["x0","x1","x2","v0","nzcv"],"writes":["x0","d8","z9","p4","sp","nzcv","fpcr"],)"
              R"("saves":["x19","x20","x21","x30"],"calls":["first","second\n","x9"],"stack":32,)"
              R"("needs":["neon","dotprod"],"live":{"general":{"most":5,"offset":16},)"
              R"("vector":{"most":1,"offset":4},"predicate":{"most":2,"offset":28}},"followed":false})");
    const json empty = interface_json({});
    EXPECT_TRUE(empty.at("stack").is_null());
    EXPECT_EQ(empty.at("reads").dump(), "[]");
    EXPECT_EQ(empty.at("followed").dump(), "true");
}

} // namespace
