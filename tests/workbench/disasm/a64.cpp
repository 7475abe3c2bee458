// What the workbench knows of single instructions. The words come from the assembler.

#include "workbench/disasm/a64.hpp"
#include "tests/support/assemble.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;
using support::assemble;

constexpr std::uint32_t every = 0xffffffff;
constexpr auto load = instruction_class::load;
constexpr auto store = instruction_class::store;
constexpr auto fp_simd = instruction_class::fp_simd;
constexpr auto integer = instruction_class::integer;
constexpr auto branch = instruction_class::branch;
constexpr auto other = instruction_class::other;

constexpr std::uint32_t x(unsigned number)
{
    return 1U << number;
}

struct instruction {
    std::string text;
    std::string name;
    instruction_class kind;
    std::uint32_t written;
};

TEST(A64, NamesClassifiesAndKnowsWhatIsWritten)
{
    const std::vector<instruction> instructions = {
        {"adr x1, #8", "ADR", integer, x(1)},
        {"adrp x3, #4096", "ADRP", integer, x(3)},
        {"add x3, x4, #16", "ADD (immediate)", integer, x(3)},
        {"add sp, x4, #16", "ADD (immediate)", integer, x(31)},
        {"cmp x4, #16", "SUBS (immediate)", integer, 0},
        {"subs w5, w4, #16", "SUBS (immediate)", integer, x(5)},
        {"sub sp, sp, #16", "SUB (immediate)", integer, x(31)},
        {"and sp, x4, #16", "AND (immediate)", integer, x(31)},
        {"tst x4, #16", "ANDS (immediate)", integer, 0},
        {"mov x9, #7", "MOVZ", integer, x(9)},
        {"movk x9, #7", "MOVK", integer, x(9)},
        {"lsl x9, x8, #7", "UBFM", integer, x(9)},
        {"ror x9, x8, #7", "EXTR", integer, x(9)},
        {"mov x2, x0", "ORR (shifted register)", integer, x(2)},
        {"add x2, x0, x1", "ADD (shifted register)", integer, x(2)},
        {"add sp, x0, x1", "ADD (extended register)", integer, x(31)},
        {"cmp x0, x1", "SUBS (shifted register)", integer, 0},
        {"cmp sp, x1", "SUBS (extended register)", integer, 0},
        {"adc x7, x0, x1", "ADC", integer, x(7)},
        {"ccmp x7, x0, #5, eq", "CCMP (register)", integer, 0},
        {"ccmn x7, #3, #5, eq", "CCMN (immediate)", integer, 0},
        {"csel x7, x0, x1, lt", "CSEL", integer, x(7)},
        {"mul x7, x0, x1", "MADD", integer, x(7)},
        {"umulh x7, x0, x1", "UMULH", integer, x(7)},
        {"udiv x7, x0, x1", "UDIV", integer, x(7)},
        {"clz x7, x0", "CLZ", integer, x(7)},

        {"b #8", "B", branch, 0},
        {"b.ne #8", "B.cond", branch, 0},
        {"bl #8", "BL", branch, every},
        {"blr x3", "BLR", branch, every},
        {"br x3", "BR", branch, 0},
        {"ret", "RET", branch, 0},
        {"cbz x3, #8", "CBZ", branch, 0},
        {"tbnz x3, #5, #8", "TBNZ", branch, 0},
        {"svc #0", "SVC", branch, every},
        {"brk #1", "BRK", branch, every},
        {"udf #0", "UDF", other, every},
        {"nop", "NOP", other, 0},
        {"bti c", "BTI", other, 0},
        {"paciasp", "HINT", other, x(30)},
        {"autia1716", "HINT", other, x(17)},
        {"xpaclri", "HINT", other, x(30)},
        {"dmb ish", "DMB", other, 0},
        {"isb", "ISB", other, 0},
        {"mrs x3, tpidr_el0", "MRS", other, x(3)},
        {"msr tpidr_el0, x3", "MSR (register)", other, 0},
        {"dc zva, x3", "SYS", other, 0},

        {"ldr x3, [x1, #8]", "LDR (immediate)", load, x(3)},
        {"ldr w3, [x1], #8", "LDR (immediate)", load, x(3) | x(1)},
        {"ldr x3, [sp, #8]!", "LDR (immediate)", load, x(3) | x(31)},
        {"ldr xzr, [x1, #8]", "LDR (immediate)", load, 0},
        {"ldr x3, [x1, x2]", "LDR (register)", load, x(3)},
        {"ldr x3, #8", "LDR (literal)", load, x(3)},
        {"ldr d3, #8", "LDR (literal, SIMD&FP)", load, 0},
        {"ldrsw x3, [x1, #8]", "LDRSW (immediate)", load, x(3)},
        {"ldrb w3, [x1]", "LDRB (immediate)", load, x(3)},
        {"ldrsh x3, [x1, #2]", "LDRSH (immediate)", load, x(3)},
        {"ldur x3, [x1, #-8]", "LDUR", load, x(3)},
        {"ldtr x3, [x1, #8]", "LDTR", load, x(3)},
        {"str x3, [x1, #8]", "STR (immediate)", store, 0},
        {"str x3, [x1], #8", "STR (immediate)", store, x(1)},
        {"strh w3, [x1, x2]", "STRH (register)", store, 0},
        {"ldp x3, x4, [x1]", "LDP", load, x(3) | x(4)},
        {"ldp x3, x4, [x1], #16", "LDP", load, x(3) | x(4) | x(1)},
        {"ldpsw x3, x4, [x1]", "LDPSW", load, x(3) | x(4)},
        {"ldnp x3, x4, [x1]", "LDNP", load, x(3) | x(4)},
        {"stp x3, x4, [sp, #-16]!", "STP", store, x(31)},
        {"stnp q3, q4, [x1]", "STNP (SIMD&FP)", store, 0},
        {"ldr q3, [x1, #16]", "LDR (immediate, SIMD&FP)", load, 0},
        {"ldr d3, [x1], #16", "LDR (immediate, SIMD&FP)", load, x(1)},
        {"ldur s3, [x1, #-1]", "LDUR (SIMD&FP)", load, 0},
        {"str q3, [x1, x2]", "STR (register, SIMD&FP)", store, 0},
        {"ldp q3, q4, [x1, #32]!", "LDP (SIMD&FP)", load, x(1)},
        {"prfm pldl1keep, [x1]", "PRFM (immediate)", other, 0},
        {"prfum pldl1keep, [x1, #-1]", "PRFUM", other, 0},
        {"ld1 {v0.2d, v1.2d}, [x1]", "LD1 (multiple structures)", load, 0},
        {"ld1 {v0.2d}, [x1], #16", "LD1 (multiple structures)", load, x(1)},
        {"ld1 {v0.2d}, [x1], x5", "LD1 (multiple structures)", load, x(1)},
        {"ld2 {v0.2d, v1.2d}, [x1]", "LD2 (multiple structures)", load, 0},
        {"st4 {v0.4s, v1.4s, v2.4s, v3.4s}, [x1]", "ST4 (multiple structures)", store, 0},
        {"st1 {v0.d}[1], [x1]", "ST1 (single structure)", store, 0},
        {"ld3 {v0.h, v1.h, v2.h}[3], [x1], x2", "LD3 (single structure)", load, x(1)},
        {"ld1r {v0.2d}, [x1]", "LD1R", load, 0},
        {"ld4r {v0.2d, v1.2d, v2.2d, v3.2d}, [x1]", "LD4R", load, 0},
        {"ldxr x3, [x1]", "LDXR", load, x(3)},
        {"ldaxp x3, x4, [x1]", "LDAXP", load, x(3) | x(4)},
        {"stxr w5, x3, [x1]", "STXR", store, x(5)},
        {"stlxp w5, x3, x4, [x1]", "STLXP", store, x(5)},
        {"ldar x3, [x1]", "LDAR", load, x(3)},
        {"stlr x3, [x1]", "STLR", store, 0},
        {"stlrb w3, [x1]", "STLRB", store, 0},
        {"ldapr x3, [x1]", "LDAPR", load, x(3)},
        {"ldapur x3, [x1, #-8]", "LDAPUR", load, x(3)},
        {"stlurh w3, [x1, #-8]", "STLURH", store, 0},
        {"cas x5, x3, [x1]", "CAS", load, x(5)},
        {"casp x4, x5, x2, x3, [x1]", "CASP", load, x(4) | x(5)},
        {"ldaddal x5, x3, [x1]", "LDADD", load, x(3)},
        {"swpb w5, w3, [x1]", "SWPB", load, x(3)},

        {"fadd d1, d2, d3", "FADD (scalar)", fp_simd, 0},
        {"fmadd d1, d2, d3, d4", "FMADD", fp_simd, 0},
        {"fmul v1.2d, v2.2d, v3.2d", "FMUL (vector)", fp_simd, 0},
        {"fmul v1.2d, v2.2d, v3.d[1]", "FMUL (by element)", fp_simd, 0},
        {"fmla v1.4s, v2.4s, v3.s[1]", "FMLA (by element)", fp_simd, 0},
        {"fcmla v1.4s, v2.4s, v3.4s, #90", "FCMLA", fp_simd, 0},
        {"fneg v1.2d, v2.2d", "FNEG (vector)", fp_simd, 0},
        {"dup v1.2d, v2.d[1]", "DUP (element)", fp_simd, 0},
        {"dup v1.2d, x3", "DUP (general)", fp_simd, 0},
        {"ins v1.d[0], v2.d[1]", "INS (element)", fp_simd, 0},
        {"ext v1.16b, v2.16b, v3.16b, #8", "EXT", fp_simd, 0},
        {"zip1 v1.2d, v2.2d, v3.2d", "ZIP1", fp_simd, 0},
        {"movi v1.2d, #0", "MOVI", fp_simd, 0},
        {"fmov d1, #1.0", "FMOV (scalar, immediate)", fp_simd, 0},
        {"fmov x5, d1", "FMOV (general)", fp_simd, x(5)},
        {"umov x5, v1.d[1]", "UMOV", fp_simd, x(5)},
        {"smov x5, v1.s[1]", "SMOV", fp_simd, x(5)},
        {"fcvtzs x5, d1", "FCVTZS (scalar, integer)", fp_simd, x(5)},
        {"fcvtzs x5, d1, #3", "FP or SIMD instruction", fp_simd, x(5)},
        {"sha1h s1, s2", "FP or SIMD instruction", fp_simd, 0},
        {"movprfx z1, z2", "SVE instruction", fp_simd, 0},
        {"fmla z1.d, p0/m, z2.d, z3.d", "SVE instruction", fp_simd, 0},
        {"ld1d {z1.d}, p0/z, [x1]", "SVE instruction", load, 0},
        {"ldr z1, [x1]", "SVE instruction", load, 0},
        {"st1d {z1.d}, p0, [x1]", "SVE instruction", store, 0},
        {"mov z1.d, z2.d", "SVE instruction", fp_simd, 0},
        {"whilelt p0.d, x1, x2", "SVE instruction", fp_simd, 0},
        {"cntd x5", "SVE instruction", fp_simd, every},
        {"incd x5", "SVE instruction", fp_simd, every},
        {"addvl x5, x1, #1", "SVE instruction", fp_simd, every},
        {"rdvl x5, #1", "SVE instruction", fp_simd, every},
        {"lastb x5, p0, z1.d", "SVE instruction", fp_simd, every},
        {"clasta x5, p0, x5, z1.d", "SVE instruction", fp_simd, every},
        {"cntp x5, p0, p1.d", "SVE instruction", fp_simd, every},
        {"incp x5, p0.d", "SVE instruction", fp_simd, every},
    };
    std::vector<std::string> lines;
    lines.reserve(instructions.size());
    for (const instruction& i : instructions)
        lines.push_back(i.text);
    const std::vector<std::uint32_t> words = assemble(lines);
    ASSERT_EQ(words.size(), instructions.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        const instruction& expected = instructions[i];
        EXPECT_EQ(instruction_name(words[i]), expected.name) << expected.text;
        EXPECT_EQ(instruction_class_of(words[i]), expected.kind) << expected.text;
        EXPECT_EQ(written_registers(words[i]), expected.written) << expected.text;
    }
}

// As llvm-mc 19 encodes them; the assembler at hand may be older.
TEST(A64, KnowsWhatLaterInstructionsWrite)
{
    constexpr auto x = [](unsigned number) { return std::uint32_t{1} << number; };
    struct encoded {
        const char* text;
        std::uint32_t word;
        std::uint32_t written;
    };
    for (const encoded& i : std::initializer_list<encoded>{{"irg sp, x9, x5", 0x9ac5113f, x(31)},
                                                           {"irg x3, x9", 0x9adf1123, x(3)},
                                                           {"chkfeat x16", 0xd503251f, x(16)},
                                                           {"autiasppc #-4", 0xf380003f, x(30)},
                                                           {"autibsppc #-4", 0xf3a0003f, x(30)},
                                                           {"autiasppcr x9", 0xdac1913e, x(30)},
                                                           {"addpt sp, x9, x5", 0x9a05213f, x(31)},
                                                           {"subpt sp, x9, x5, lsl #3", 0xda052d3f, x(31)},
                                                           {"addpt x3, x9, x5", 0x9a052123, x(3)},
                                                           {"retaasppc #-4", 0x5500003f, 0},
                                                           {"retaasppcr x9", 0xd65f0be9, 0}}) {
        EXPECT_EQ(written_registers(i.word), i.written) << i.text;
    }
    for (const std::uint32_t word :
         {0x04295825U, 0x04695825U, 0x04bf5825U}) // addsvl, addspl x5, x9, #1; rdsvl x5, #1
        EXPECT_NE(written_registers(word) & x(5), 0U) << std::hex << word;
    for (const std::uint32_t word :
         {0x5500003fU, 0x5520003fU, 0xd65f0be9U}) { // retaasppc, retabsppc, retaasppcr
        EXPECT_TRUE(never_falls_through(word)) << std::hex << word;
        EXPECT_TRUE(ends_block(word)) << std::hex << word;
    }
}

TEST(A64, TakesStoresOfTagsForStores)
{
    for (const std::string line : {"stg x0, [x1]", "stzg x0, [x1]", "st2g x0, [x1]", "stz2g x0, [x1]",
                                   "stzg x0, [x1], #16", "stgm x0, [x1]", "stzgm x0, [x1]"})
        EXPECT_EQ(instruction_class_of(assemble({line})[0]), instruction_class::store) << line;
    for (const std::string line : {"ldg x0, [x1]", "ldgm x0, [x1]"})
        EXPECT_EQ(instruction_class_of(assemble({line})[0]), instruction_class::load) << line;
}

TEST(A64, KnowsLoadsOfLiterals)
{
    struct line {
        std::string text;
        unsigned bytes;
        bool fp_simd, sign_extended;
        std::int64_t offset;
    };
    for (const line& l : std::vector<line>{{"ldr w3, #8", 4, false, false, 8},
                                           {"ldr x3, #-8", 8, false, false, -8},
                                           {"ldrsw x3, #1048572", 4, false, true, 1048572},
                                           {"ldr s3, #-1048576", 4, true, false, -1048576},
                                           {"ldr d3, #0", 8, true, false, 0},
                                           {"ldr q3, #4", 16, true, false, 4}}) {
        SCOPED_TRACE(l.text);
        const auto literal = decode_literal_load(assemble({l.text})[0]);
        ASSERT_TRUE(literal.has_value());
        EXPECT_TRUE(literal->load);
        EXPECT_FALSE(literal->store);
        EXPECT_EQ(literal->bytes, l.bytes);
        EXPECT_EQ(literal->fp_simd, l.fp_simd);
        EXPECT_EQ(literal->sign_extended, l.sign_extended);
        EXPECT_EQ(literal->first_register, 3U);
        EXPECT_EQ(literal->offset, l.offset);
    }
    for (const std::uint32_t word : assemble({"prfm pldl1keep, #8", "ldr x3, [x1]", "adr x3, #8"}))
        EXPECT_FALSE(decode_literal_load(word).has_value()) << std::hex << word;
}

TEST(A64, WritesNoRegisterBehindTheLast)
{
    EXPECT_EQ(written_registers(0x083f7c42), 0U); // CASP of W31 and the register behind it
}

TEST(A64, KnowsHowMemoryIsAccessed)
{
    constexpr auto plain = addressing_mode::offset;
    constexpr auto pre = addressing_mode::pre_index;
    constexpr auto post = addressing_mode::post_index;
    struct line {
        std::string text;
        bool load, store;
        unsigned bytes, element, registers, first;
        bool fp_simd;
        unsigned base;
        addressing_mode addressing;
        std::int64_t offset;
        bool faults;
    };
    const std::vector<line> lines = {
        {"ldr x3, [x1, #8]", true, false, 8, 8, 1, 3, false, 1, plain, 8, false},
        {"ldr w3, [x1, #16380]", true, false, 4, 4, 1, 3, false, 1, plain, 16380, false},
        {"ldr w3, [sp], #-4", true, false, 4, 4, 1, 3, false, 31, post, -4, false},
        {"ldrb w3, [x1, #-256]!", true, false, 1, 1, 1, 3, false, 1, pre, -256, false},
        {"ldrsh x3, [x1, #2]", true, false, 2, 2, 1, 3, false, 1, plain, 2, false},
        {"ldrsw x3, [x1, x2]", true, false, 4, 4, 1, 3, false, 1, addressing_mode::register_index, 0, false},
        {"ldtrsb w3, [x1, #9]", true, false, 1, 1, 1, 3, false, 1, plain, 9, false},
        {"stur x3, [x1, #-7]", false, true, 8, 8, 1, 3, false, 1, plain, -7, false},
        {"ldr b3, [x1, #3]", true, false, 1, 1, 1, 3, true, 1, plain, 3, false},
        {"ldr h3, [x1, #6]", true, false, 2, 2, 1, 3, true, 1, plain, 6, false},
        {"ldr q3, [x1, #48]", true, false, 16, 16, 1, 3, true, 1, plain, 48, false},
        {"str q3, [x1, #48]", false, true, 16, 16, 1, 3, true, 1, plain, 48, false},
        {"str s3, [x1, #-4]!", false, true, 4, 4, 1, 3, true, 1, pre, -4, false},
        {"ldur q3, [x1, #1]", true, false, 16, 16, 1, 3, true, 1, plain, 1, false},
        {"ldr q3, [x1, x2, lsl #4]", true, false, 16, 16, 1, 3, true, 1, addressing_mode::register_index, 0,
         false},
        {"ldp x3, x4, [x1, #-16]", true, false, 16, 8, 2, 3, false, 1, plain, -16, false},
        {"ldp w3, w4, [x1], #8", true, false, 8, 4, 2, 3, false, 1, post, 8, false},
        {"ldpsw x3, x4, [x1, #8]!", true, false, 8, 4, 2, 3, false, 1, pre, 8, false},
        {"stp q3, q4, [x1, #32]", false, true, 32, 16, 2, 3, true, 1, plain, 32, false},
        {"ldnp d3, d4, [x1, #-8]", true, false, 16, 8, 2, 3, true, 1, plain, -8, false},
        {"ldp s3, s4, [x1, #4]", true, false, 8, 4, 2, 3, true, 1, plain, 4, false},
        {"ld1 {v3.16b}, [x1]", true, false, 16, 1, 1, 3, true, 1, plain, 0, false},
        {"ld1 {v3.2d, v4.2d, v5.2d}, [x1], #48", true, false, 48, 8, 3, 3, true, 1, post, 48, false},
        {"ld1 {v3.8b, v4.8b, v5.8b, v6.8b}, [x1]", true, false, 32, 1, 4, 3, true, 1, plain, 0, false},
        {"ld2 {v3.4s, v4.4s}, [x1], x2", true, false, 32, 4, 2, 3, true, 1, addressing_mode::post_register, 0,
         false},
        {"ld3 {v3.4h, v4.4h, v5.4h}, [x1]", true, false, 24, 2, 3, 3, true, 1, plain, 0, false},
        {"st4 {v3.2d, v4.2d, v5.2d, v6.2d}, [x1]", false, true, 64, 8, 4, 3, true, 1, plain, 0, false},
        {"ld1 {v3.b}[15], [x1]", true, false, 1, 1, 1, 3, true, 1, plain, 0, false},
        {"ld2 {v3.h, v4.h}[7], [x1]", true, false, 4, 2, 2, 3, true, 1, plain, 0, false},
        {"st3 {v3.s, v4.s, v5.s}[1], [x1], #12", false, true, 12, 4, 3, 3, true, 1, post, 12, false},
        {"ld4 {v3.d, v4.d, v5.d, v6.d}[1], [x1]", true, false, 32, 8, 4, 3, true, 1, plain, 0, false},
        {"ld1r {v3.2d}, [x1], #8", true, false, 8, 8, 1, 3, true, 1, post, 8, false},
        {"ld4r {v3.8h, v4.8h, v5.8h, v6.8h}, [x1]", true, false, 8, 2, 4, 3, true, 1, plain, 0, false},
        {"ldxr w3, [x1]", true, false, 4, 4, 1, 3, false, 1, plain, 0, true},
        {"ldaxrb w3, [x1]", true, false, 1, 1, 1, 3, false, 1, plain, 0, true},
        {"stlxr w5, x3, [x1]", false, true, 8, 8, 1, 3, false, 1, plain, 0, true},
        {"ldxp x3, x4, [x1]", true, false, 16, 8, 2, 3, false, 1, plain, 0, true},
        {"stxp w5, w3, w4, [x1]", false, true, 8, 4, 2, 3, false, 1, plain, 0, true},
        {"ldar x3, [x1]", true, false, 8, 8, 1, 3, false, 1, plain, 0, true},
        {"stlrh w3, [x1]", false, true, 2, 2, 1, 3, false, 1, plain, 0, true},
        {"ldapr w3, [x1]", true, false, 4, 4, 1, 3, false, 1, plain, 0, true},
        {"ldapursw x3, [x1, #-3]", true, false, 4, 4, 1, 3, false, 1, plain, -3, true},
        {"stlurb w3, [x1, #3]", false, true, 1, 1, 1, 3, false, 1, plain, 3, true},
        {"casa w5, w3, [x1]", true, true, 4, 4, 1, 3, false, 1, plain, 0, true},
        {"caspal x4, x5, x2, x3, [x1]", true, true, 16, 8, 2, 2, false, 1, plain, 0, true},
        {"ldsmaxh w5, w3, [x1]", true, true, 2, 2, 1, 3, false, 1, plain, 0, true},
        {"swpal x5, x3, [x1]", true, true, 8, 8, 1, 3, false, 1, plain, 0, true},
    };
    std::vector<std::string> texts;
    texts.reserve(lines.size());
    for (const line& l : lines)
        texts.push_back(l.text);
    const std::vector<std::uint32_t> words = assemble(texts);
    ASSERT_EQ(words.size(), lines.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        const line& l = lines[i];
        SCOPED_TRACE(l.text);
        const auto access = decode_memory_access(words[i]);
        ASSERT_TRUE(access.has_value());
        EXPECT_EQ(access->load, l.load);
        EXPECT_EQ(access->store, l.store);
        EXPECT_EQ(access->bytes, l.bytes);
        EXPECT_EQ(access->element_bytes, l.element);
        EXPECT_EQ(access->registers, l.registers);
        EXPECT_EQ(access->first_register, l.first);
        EXPECT_EQ(access->fp_simd, l.fp_simd);
        EXPECT_EQ(access->base, l.base);
        EXPECT_EQ(access->addressing, l.addressing);
        EXPECT_EQ(access->offset, l.offset);
        EXPECT_EQ(access->faults_unaligned, l.faults);
    }
    for (const std::uint32_t word : assemble({"prfm pldl1keep, [x1]", "ldr x3, #8", "stg x1, [x1]",
                                              "ldr z1, [x1]", "add x1, x1, #8", "ret", "dc zva, x3"}))
        EXPECT_FALSE(decode_memory_access(word).has_value()) << std::hex << word;
}

TEST(A64, KnowsWhereBranchesLead)
{
    struct line {
        std::string text;
        std::optional<std::int64_t> displacement;
        bool call, ends, stops;
    };
    const std::vector<line> lines = {
        {"b #-4", -4, false, true, true},
        {"b #134217724", 134217724, false, true, true},
        {"bl #-134217728", -134217728, true, true, false},
        {"b.eq #-1048576", -1048576, false, true, false},
        {"cbz w3, #1048572", 1048572, false, true, false},
        {"cbnz x3, #-4", -4, false, true, false},
        {"tbz x3, #60, #32764", 32764, false, true, false},
        {"tbnz x3, #2, #-32768", -32768, false, true, false},
        {"br x3", {}, false, true, true},
        {"braaz x3", {}, false, true, true},
        {"blr x3", {}, true, true, false},
        {"blraa x3, x4", {}, true, true, false},
        {"ret", {}, false, true, true},
        {"retab", {}, false, true, true},
        {"eret", {}, false, true, true},
        {"brk #7", {}, false, true, true},
        {"hlt #7", {}, false, true, true},
        {"udf #7", {}, false, true, true},
        {"svc #7", {}, false, true, false},
        {"nop", {}, false, false, false},
        {"add x1, x1, #1", {}, false, false, false},
        {"ldr x1, #8", {}, false, false, false},
    };
    std::vector<std::string> texts;
    texts.reserve(lines.size());
    for (const line& l : lines)
        texts.push_back(l.text);
    const std::vector<std::uint32_t> words = assemble(texts);
    ASSERT_EQ(words.size(), lines.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        SCOPED_TRACE(lines[i].text);
        EXPECT_EQ(branch_displacement(words[i]), lines[i].displacement);
        EXPECT_EQ(is_call(words[i]), lines[i].call);
        EXPECT_EQ(ends_block(words[i]), lines[i].ends);
        EXPECT_EQ(never_falls_through(words[i]), lines[i].stops);
    }
}

// FEAT_CMPBR, as the manual encodes it: no assembler at hand knows it.
TEST(A64, KnowsWhereComparisonsThatBranchLead)
{
    for (const auto& [word, displacement] : {std::pair(0x7423a005U, -1024), // cbbge w5, w3, .-1024
                                             {0x74039fe5U, 1020},           // cbbgt w5, w3, .+1020
                                             {0x7403e005U, -1024},          // cbhgt w5, w3, .-1024
                                             {0xf4030045U, 8},              // cbgt x5, x3, .+8
                                             {0x75028045U, 8}}) {           // cbgt w5, #5, .+8
        EXPECT_EQ(branch_displacement(word), displacement) << std::hex << word;
        EXPECT_TRUE(ends_block(word));
        EXPECT_FALSE(never_falls_through(word));
        EXPECT_EQ(written_registers(word), 0U);
    }
}

} // namespace
