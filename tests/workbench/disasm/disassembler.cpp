// LLVM's assembler reads back what the disassembler prints.

#include "workbench/disasm/disassembler.hpp"
#include "tests/support/assemble.hpp"

#include <gtest/gtest.h>
#include <random>

namespace {

using support::assemble;
using vorna::workbench::disassembler;

TEST(Disassembler, PrintsWhatAnAssemblerReadsBack)
{
    const std::vector<std::string> lines = {"cmla z0.s, z1.s, z2.s[0], #90",
                                            "sqrdmlah z0.h, z1.h, z2.h[3]",
                                            "ld1rqd { z0.d }, p0/z, [x3]",
                                            "bfdot v0.4s, v1.8h, v2.8h",
                                            "fcmla v0.2d, v1.2d, v2.2d, #270",
                                            "aese v0.16b, v1.16b",
                                            "sha256h q0, q1, v2.4s",
                                            "ldtr x0, [x1, #8]",
                                            "stg x0, [x1]",
                                            "ldaddal x0, x1, [x2]",
                                            "ldr d7, [x3, #16]",
                                            "ret",
                                            "mov x1, sp"};
    const std::vector<std::uint32_t> words = assemble(lines);
    disassembler disassembler;
    for (std::size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ(disassembler.text(words[i], 0), lines[i]);
}

TEST(Disassembler, PrintsAbsoluteTargets)
{
    const std::vector<std::uint32_t> words =
        assemble({"b #8", "bl #-4", "b.eq #-8", "cbz x0, #12", "tbz w0, #3, #16", "adr x1, #-3",
                  "adrp x1, #0x2000", "ldr x1, #-8"});
    const std::vector<std::string> texts = {"b 0x10c0c",        "bl 0x10c00",          "b.eq 0x10bfc",
                                            "cbz x0, 0x10c10",  "tbz w0, #3, 0x10c14", "adr x1, 0x10c01",
                                            "adrp x1, 0x12000", "ldr x1, 0x10bfc"};
    disassembler disassembler;
    for (std::size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ(disassembler.text(words[i], 0x10c04), texts[i]);
}

TEST(Disassembler, PrintsAWordIfItIsNotAnInstruction)
{
    disassembler disassembler;
    EXPECT_EQ(disassembler.text(0xff000001, 0), ".word 0xff000001");
    EXPECT_EQ(disassembler.text_with_symbol(0xff000001, "f"), ".word 0xff000001");
    // LDP and LDR whose result is unpredictable: two equal registers, a base that is also loaded.
    EXPECT_EQ(disassembler.text(0xa9400421, 0), ".word 0xa9400421");
    EXPECT_EQ(disassembler.text(0xf8408421, 0), ".word 0xf8408421");
}

TEST(Disassembler, PrintsTheSymbolOfARelocation)
{
    const std::vector<std::uint32_t> words = assemble({"bl #0", "b.eq #0", "tbz w0, #3, #0", "adr x1, #0",
                                                       "ldr x1, #0", "add x1, x2, #0", "add w1, w2, #0"});
    const std::vector<std::string> texts = {"bl f",      "b.eq f",        "tbz w0, #3, f", "adr x1, f",
                                            "ldr x1, f", "add x1, x2, f", "add w1, w2, f"};
    disassembler disassembler;
    for (std::size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ(disassembler.text_with_symbol(words[i], "f"), texts[i]);
    EXPECT_EQ(disassembler.text_with_symbol(words[0], "a b$\"\xff+0x8"), "bl a b$\"\xff+0x8")
        << "names are not quoted";
}

TEST(Disassembler, PrintsEachInstructionTheSameWhateverItPrintedBefore)
{
    const std::vector<std::uint32_t> words = assemble({"bl #8", "add x1, x2, #0", "adr x1, #0"});
    disassembler used;
    for (int round = 0; round < 2; ++round) {
        for (const std::uint32_t word : words) {
            disassembler fresh;
            EXPECT_EQ(used.text(word, 4), fresh.text(word, 4));
            EXPECT_EQ(used.text_with_symbol(word, "f"), fresh.text_with_symbol(word, "f"));
        }
    }
}

} // namespace
