// What instructions do to registers, as the Arm Architecture Reference Manual describes them.

#include "workbench/disasm/register_effect.hpp"
#include "tests/support/assembled_kernel.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;

struct expected_effect {
    const char* line;
    register_effect effect;
};

/// The lines, decoded as one kernel.
decoded_kernel decoded(const std::vector<std::string>& lines)
{
    return decode_kernel(support::assembled_kernel("k", lines));
}

void expect_effects(const std::vector<expected_effect>& expected)
{
    std::vector<std::string> lines;
    for (const expected_effect& one : expected)
        lines.emplace_back(one.line);
    const decoded_kernel code = decoded(lines);
    ASSERT_EQ(code.instructions.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(effect_of(code, code.instructions[i]), expected[i].effect) << expected[i].line;
}

TEST(RegisterEffect, ClearsARegisterThatIsCombinedWithItself)
{
    using enum register_effect;
    expect_effects({{"eor x0, x1, x1", clear},
                    {"eor x0, x1, x2", compute},
                    {"eor x0, x1, x1, lsl #1", compute},
                    {"sub w0, w1, w1", clear},
                    {"subs x0, x1, x1", clear},
                    {"bic x0, x1, x1", clear},
                    {"eor v0.16b, v1.16b, v1.16b", clear},
                    {"sub v0.4s, v1.4s, v1.4s", clear},
                    {"sub v0.4s, v1.4s, v2.4s", compute},
                    {"cmeq v0.2d, v1.2d, v1.2d", clear},
                    {"cmeq v0.2d, v1.2d, #0", compute},
                    {"eor z0.d, z1.d, z1.d", clear},
                    {"add x0, x1, x1", add_registers},
                    {"orr x0, x1, x1", compute}});
}

TEST(RegisterEffect, CopiesWholeRegisters)
{
    using enum register_effect;
    expect_effects({{"mov v0.16b, v1.16b", copy},
                    {"mov v0.8b, v1.8b", copy},
                    {"orr v0.16b, v1.16b, v2.16b", compute},
                    {"and v0.16b, v1.16b, v1.16b", copy},
                    {"fmov d0, d1", copy},
                    {"fmov s0, s1", compute},
                    {"mov z0.d, z1.d", copy},
                    {"mov p0.b, p1.b", copy},
                    {"and p0.b, p1/z, p2.b, p3.b", compute},
                    {"fmov x0, d1", copy_lane},
                    {"fmov x0, v1.d[1]", copy_lane},
                    {"umov x0, v1.d[1]", copy_lane},
                    {"umov w0, v1.s[1]", compute},
                    {"fmov d0, x1", copy_to_vector},
                    {"dup v0.2d, x1", copy_to_vector},
                    {"dup v0.4s, w1", compute},
                    {"movprfx z0, z1", copy},
                    {"add z0.d, p0/m, z0.d, z2.d", compute}});
}

TEST(RegisterEffect, KeepsAPartOfTheDestination)
{
    using enum register_effect;
    expect_effects({{"ins v0.d[1], x1", set_lane},
                    {"ins v0.b[3], v1.b[2]", set_lane},
                    {"fmov v0.d[1], x1", set_lane},
                    {"ld1 {v0.s}[1], [x0]", set_lane},
                    {"ld4 {v0.b, v1.b, v2.b, v3.b}[9], [x0]", set_lane},
                    {"ld1r {v0.4s}, [x0]", compute},
                    {"dup d0, v1.d[1]", scalar_from_lane},
                    {"dup v0.4s, v1.s[1]", duplicate_lane},
                    {"dup z0.s, z1.s[2]", duplicate_lane},
                    {"xtn2 v0.16b, v1.8h", set_upper_half},
                    {"xtn v0.8b, v1.8h", compute},
                    {"addhn2 v0.8h, v1.4s, v2.4s", set_upper_half},
                    {"addhn v0.4h, v1.4s, v2.4s", compute},
                    {"sqrshrun2 v0.4s, v1.2d, #3", set_upper_half},
                    {"sqrshrun v0.2s, v1.2d, #3", compute},
                    {"fcvtn2 v0.4s, v1.2d", set_upper_half},
                    {"movk x0, #5, lsl #16", keep_bits},
                    {"movz x0, #5, lsl #16", compute},
                    {"bfi x0, x1, #4, #8", keep_bits},
                    {"ubfx x0, x1, #4, #8", compute},
                    {"mov z0.d, p0/m, x1", keep_inactive},
                    {"fcvt z0.d, p0/m, z1.s", keep_inactive},
                    {"add z0.d, p0/m, z0.d, z1.d", compute},
                    {"sel z0.d, p0, z1.d, z2.d", select},
                    {"csel x0, x1, x2, ne", select},
                    {"csinc x0, x1, x2, ne", select},
                    {"bsl v0.16b, v1.16b, v2.16b", select}});
}

TEST(RegisterEffect, FollowsAddressesAndTheStackPointer)
{
    using enum register_effect;
    expect_effects({{"add x0, x1, x2", add_registers},
                    {"add x0, x1, x2, lsl #2", compute},
                    {"add sp, sp, x2", add_registers},
                    {"add sp, sp, w2, uxtw", compute},
                    {"adds x0, x1, x2", compute},
                    {"sub x0, x1, x2", subtract_registers},
                    {"sub sp, sp, x16", subtract_registers},
                    {"addvl sp, sp, #-3", add_vector_lengths},
                    {"addpl x0, x1, #2", add_vector_lengths},
                    {"rdvl x0, #1", vector_length},
                    {"and x0, x1, #~63", align_down},
                    {"and sp, x1, #~15", align_down},
                    {"and x0, x1, #63", compute},
                    {"and x0, x1, #0x0ffffffffffffff0", compute},
                    {"paciasp", sign_link},
                    {"pacibsp", sign_link},
                    {"autiasp", authenticate_link},
                    {"xpaclri", strip_link},
                    {"mrs x0, nzcv", read_system},
                    {"msr fpcr, x0", write_system},
                    {".word 0xd503437f", change_streaming}, // smstart sm
                    {"ptrue p0.d", all_true},
                    {"ptrue p0.d, vl4", compute},
                    {"rdffr p0.b", follow_operands},
                    {"mul x0, x1, x2", compute}});
}

TEST(RegisterEffect, KnowsTheLanes)
{
    const decoded_kernel code =
        decoded({"ins v0.h[3], w1", "ins v0.b[3], v1.b[14]", "fmov v0.d[1], x1", "ld2 {v0.s, v1.s}[2], [x0]",
                 "umov x0, v1.d[1]", "fmov x0, d1", "dup v0.8h, v1.h[7]", "add x0, x1, x2"});
    const auto text = [&](const std::optional<vector_lane>& lane) {
        return lane ? std::to_string(lane->bytes) + " at " + std::to_string(lane->first) : "";
    };
    std::string set;
    std::string read;
    for (const instruction& at : code.instructions) {
        set += text(lane_set_by(code, at)) + ";";
        read += text(lane_read_by(code, at)) + ";";
    }
    EXPECT_EQ(set, "2 at 6;1 at 3;8 at 8;4 at 8;;;;;");
    EXPECT_EQ(read, ";1 at 14;;;8 at 8;8 at 0;2 at 14;;");
}

TEST(RegisterEffect, KnowsMultiplesOfTheVectorLength)
{
    const decoded_kernel code = decoded({"addvl sp, sp, #-3", "addpl x0, x1, #2", "rdvl x2, #4", "nop"});
    const auto text = [&](std::size_t i) {
        const auto sum = scalable_sum_of(code, code.instructions[i]);
        return sum ? std::to_string(sum->to) + " = " + std::to_string(sum->from) + " + " +
                         std::to_string(sum->count) + " / 8"
                   : "";
    };
    EXPECT_EQ(text(0), "31 = 31 + -24 / 8");
    EXPECT_EQ(text(1), "0 = 1 + 2 / 8");
    EXPECT_EQ(text(2), "2 = " + std::to_string(zero_register) + " + 32 / 8");
    EXPECT_EQ(text(3), "");
}

TEST(RegisterEffect, KnowsScalableLoadsAndStores)
{
    const auto text = [](const std::string& line) {
        const decoded_kernel code = decoded({line});
        const auto access = scalable_access_of(code, code.instructions[0]);
        if (!access)
            return std::string();
        return std::string(access->load ? "load" : "") + (access->store ? "store" : "") +
               (access->whole ? " whole" : "") + " " + std::to_string(access->first_register) + " base " +
               std::to_string(access->base) + " " + (access->count ? std::to_string(*access->count) : "?");
    };
    const std::string none = std::to_string(zero_register);
    EXPECT_EQ(text("str z3, [sp, #2, mul vl]"), "store whole 35 base 31 16");
    EXPECT_EQ(text("ldr p4, [x1, #7, mul vl]"),
              "load whole " + std::to_string(predicate_register(4)) + " base 1 7");
    EXPECT_EQ(text("ld1d {z0.d}, p0/z, [x1]"), "load 32 base 1 0");
    EXPECT_EQ(text("ld1d {z0.d}, p0/z, [x1, x2, lsl #3]"), "load 32 base 1 ?");
    EXPECT_EQ(text("st1w {z5.s}, p0, [sp]"), "store 37 base 31 0");
    EXPECT_EQ(text("ld1d {z0.d}, p0/z, [z1.d]"), "load 32 base " + none + " ?");
    EXPECT_EQ(text("ldr q0, [x1]"), "");
    EXPECT_EQ(text("ld1 {v0.4s}, [x1]"), "");
    EXPECT_EQ(text("prfd pldl1keep, p0, [x1]"), "");
}

TEST(RegisterEffect, KnowsAlignmentsElementsAndSystemRegisters)
{
    const decoded_kernel code =
        decoded({"and sp, x1, #~63", "and x0, x1, #~4095", "mrs x0, nzcv", "msr fpsr, x0", "mrs x0, fpcr",
                 "mrs x0, tpidr_el0", "ptrue p0.h", "fcvt z0.d, p0/m, z1.s", "autibsp", "autiasp"});
    const auto& at = code.instructions;
    EXPECT_EQ(alignment_of(code, at[0]), 64U);
    EXPECT_EQ(alignment_of(code, at[1]), 4096U);
    EXPECT_EQ(system_register_of(code, at[2]), system_register::nzcv);
    EXPECT_EQ(system_register_of(code, at[3]), system_register::fpsr);
    EXPECT_EQ(system_register_of(code, at[4]), system_register::fpcr);
    EXPECT_EQ(system_register_of(code, at[5]), system_register::other);
    EXPECT_EQ(element_bytes_of(at[6]), 2U);
    EXPECT_EQ(element_bytes_of(at[7]), 8U);
    EXPECT_TRUE(uses_key_b(at[8]));
    EXPECT_FALSE(uses_key_b(at[9]));
}

} // namespace
