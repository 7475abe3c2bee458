// Findings that need instructions decoded: each kind, and cases without a finding.

#include "workbench/analysis/instruction_findings.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/dumps.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace support::a64;
using vorna::wfta::kernel_data;
using vorna::wfta::kernel_finding;
using vorna::wfta::relocation_target;
using vorna::workbench::kernel_set;
using vorna::workbench::placed_kernel;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t ADRP = 275;
constexpr std::int32_t ADD = 277;
constexpr std::int32_t BL = 283;

/// The findings in kernels of one mapping.
std::vector<kernel_finding> find(const std::vector<kernel_data>& kernels,
                                 const vorna::wfta::analysis_options& options = {})
{
    std::vector<placed_kernel> placed;
    for (const kernel_data& kernel : kernels)
        placed.push_back({kernel.name, 0, kernel.text, 0, kernel.data, kernel.relocs, 0, ""});
    place_in_mapping(placed, 0x100000000);
    kernel_set set;
    set.kernels = placed;
    // The calling convention and unreachable code have tests of their own.
    vorna::wfta::analysis_options without_convention = options;
    without_convention.aapcs64 = false;
    std::vector<kernel_finding> findings = vorna::workbench::find_in_instructions(
        set,
        [&](std::size_t, const std::string& name) -> relocation_target {
            for (const placed_kernel& kernel : placed) {
                if (kernel.name == name)
                    return {relocation_target::where::placed, kernel.text_address};
            }
            return {relocation_target::where::nowhere, 0};
        },
        without_convention);
    std::erase_if(findings, [](const kernel_finding& finding) {
        return finding.id == vorna::wfta::finding_id::unreachable_code;
    });
    return findings;
}

/// The findings, one per line: severity, kernel, offset, id.
std::string found(const std::vector<kernel_data>& kernels)
{
    std::string lines;
    for (const kernel_finding& finding : find(kernels)) {
        const char* const levels[] = {"note", "warning", "error"};
        lines += levels[static_cast<int>(finding.severity)] + (" " + finding.kernel);
        EXPECT_TRUE(finding.offset && *finding.offset >= 0) << lines;
        lines += "+" + std::to_string(finding.offset.value_or(-1)) + " " + name_of(finding.id) + "\n";
        EXPECT_FALSE(finding.aborts || finding.relocation) << lines;
        EXPECT_EQ(finding.kernel, kernels[finding.index].name);
    }
    return lines;
}

/// The messages, one per line.
std::string messages(const std::vector<kernel_data>& kernels,
                     const vorna::wfta::analysis_options& options = {})
{
    std::string lines;
    for (const kernel_finding& finding : find(kernels, options))
        lines += finding.message + "\n";
    return lines;
}

TEST(InstructionFindings, FindsAccessesThatAreNotAligned)
{
    const auto alignment = [](const std::string& access, std::int32_t addend, std::size_t before = 0) {
        return found({kernel("before", {ret()}, {}, std::vector<std::uint8_t>(before)),
                      kernel("one", {adr(1), assemble({access})[0], ret()}, {{".rodata.one", 0, ADR, addend}},
                             std::vector<std::uint8_t>(64))});
    };
    EXPECT_EQ(alignment("ldr q0, [x1]", 0), "");
    EXPECT_EQ(alignment("ldr q0, [x1]", 8), "note one+4 data-alignment\n");
    EXPECT_EQ(alignment("ldr q0, [x1, #16]", 4), "note one+4 data-alignment\n");
    EXPECT_EQ(alignment("ldr d0, [x1]", 8), "");
    EXPECT_EQ(alignment("ldr d0, [x1]", 0, 4), "note one+4 data-alignment\n") << "what is before it counts";
    EXPECT_EQ(alignment("ldr q0, [x1]", 8, 8), "");
    EXPECT_EQ(alignment("ldp d0, d2, [x1]", 8), "") << "of each register";
    EXPECT_EQ(alignment("ld1 {v0.2d}, [x1]", 8), "") << "of each element";
    EXPECT_EQ(alignment("str q0, [x1]", 8), "warning one+4 writes-constants\n") << "no load";
    EXPECT_EQ(alignment("ldaxr x0, [x1]", 4), "error one+4 data-alignment\n");
    EXPECT_EQ(alignment("stlr x0, [x1]", 4), "warning one+4 writes-constants\nerror one+4 data-alignment\n");
    EXPECT_EQ(alignment("ldadd x2, x0, [x1]", 4),
              "warning one+4 writes-constants\nerror one+4 data-alignment\n");
    EXPECT_EQ(alignment("ldxp x2, x0, [x1]", 8), "error one+4 data-alignment\n");
    EXPECT_EQ(alignment("ldar x0, [x1]", 8), "");
    EXPECT_EQ(alignment("ldr q0, [x2]", 8), "") << "not a known address";
    EXPECT_EQ(messages({kernel("one", {adr(1), assemble({"ldr q0, [x1]"})[0], ret()},
                               {{".rodata.one", 0, ADR, 8}}, std::vector<std::uint8_t>(64))}),
              "16-byte load from an address that is 8-aligned\n");
}

/// Whether the erratum is found if the first of these words is at an offset in the page.
bool has_erratum(const std::vector<std::string>& lines, std::size_t at = 0xff8)
{
    std::vector<std::uint32_t> words(at / 4, nop());
    for (const std::uint32_t w : assemble(lines))
        words.push_back(w);
    words.push_back(ret());
    const std::string lines_found = found({kernel("one", words)});
    EXPECT_TRUE(lines_found.empty() ||
                lines_found == "warning one+" + std::to_string(at) + " erratum-843419\n")
        << lines_found;
    return !lines_found.empty();
}

TEST(InstructionFindings, FindsTheSequencesOfErratum843419)
{
    for (const std::size_t at : {0xff8U, 0xffcU, 0x1ff8U, 0x5ffcU})
        EXPECT_TRUE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", "ldr x3, [x0, #8]"}, at)) << at;
    for (const std::size_t at : {0U, 4U, 0xff4U, 0x1000U, 0x1ff4U})
        EXPECT_FALSE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", "ldr x3, [x0, #8]"}, at)) << at;

    for (const char* second : {"ldr x1, [x2, #8]",
                               "str x1, [x2]",
                               "ldr d1, [x2], #8",
                               "ldrb w1, [x2, x3]",
                               "ldur x1, [x2, #-8]",
                               "ldtr x1, [x2]",
                               "stp x1, x3, [x2]",
                               "stnp q1, q3, [x2]",
                               "stp d1, d3, [x2, #16]!",
                               "st1 {v1.2d}, [x2]",
                               "st1 {v1.d}[1], [x2], #8",
                               "st1 {v0.4s, v1.4s}, [x2]",
                               "ldxr x1, [x2]",
                               "stlr x1, [x2]",
                               "str x0, [x2]",
                               "ldr x1, [x0, #8]",
                               "ldr x1, #8",
                               "stxp w1, x3, x4, [x2]",
                               "stlxp w1, w3, w4, [x2]",
                               "prfm pldl1keep, [x2]",
                               "prfum pldl1keep, [x2, #-8]",
                               "prfm pldl1keep, #8"})
        EXPECT_TRUE(has_erratum({"adrp x0, #0", second, "ldr x3, [x0, #8]"})) << second;
    for (const char* second :
         {"ldp x1, x3, [x2]", "ldnp x1, x3, [x2]", "ld1 {v1.2d}, [x2]", "st2 {v1.2d, v2.2d}, [x2]",
          "ldr x0, [x2]", "str x1, [x0], #8", "nop", "add x1, x2, #8", "ldxp x1, x3, [x2]",
          "ldadd x1, x3, [x2]", "ldapur x1, [x2]", "b #8"})
        EXPECT_FALSE(has_erratum({"adrp x0, #0", second, "ldr x3, [x0, #8]"})) << second;

    for (const char* third : {"nop", "add x4, x0, #8", "add x0, x0, #8", "ldr x4, [x5]", "str x0, [x5]",
                              "fmul v0.2d, v1.2d, v2.2d"})
        EXPECT_TRUE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", third, "str q3, [x0, #16]"})) << third;
    for (const char* third : {"b #4", "cbz x0, #4", "bl #4"})
        EXPECT_FALSE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", third, "ldr x3, [x0, #8]"})) << third;

    EXPECT_FALSE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", "ldr x3, [x4, #8]"})) << "another base";
    EXPECT_FALSE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", "ldur x3, [x0, #-8]"})) << "another offset";
    EXPECT_FALSE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", "ldr x3, [x0, x5]"})) << "no offset";
    EXPECT_FALSE(has_erratum({"adrp x0, #0", "ldr x1, [x2]", "nop", "nop", "ldr x3, [x0, #8]"})) << "too far";
    EXPECT_FALSE(has_erratum({"adr x0, #0", "ldr x1, [x2]", "ldr x3, [x0, #8]"})) << "no ADRP";
    EXPECT_FALSE(has_erratum({"adrp x0, #0"})) << "the end of the text";
}

TEST(InstructionFindings, DependsOnWhereInThePageTheKernelIs)
{
    std::vector<std::uint32_t> words = assemble({"adrp x0, #0", "ldr x1, [x2]", "ldr x3, [x0, #8]", "ret"});
    words.insert(words.begin(), 6, nop());
    const kernel_data sequence = kernel("one", words);
    const auto filler = [](std::size_t bytes) {
        return kernel("filler", std::vector<std::uint32_t>(bytes / 4, ret()));
    };
    EXPECT_EQ(found({filler(0xfe0), sequence}), "warning one+24 erratum-843419\n");
    EXPECT_EQ(found({filler(0xfc4), sequence}), "warning one+24 erratum-843419\n")
        << "on the next 32-byte boundary";
    EXPECT_EQ(found({filler(0xfc0), sequence}), "");
    EXPECT_EQ(found({filler(0xfe4), sequence}), "");
}

/// A kernel of these lines and a RET.
kernel_data kernel_of(std::vector<std::string> lines)
{
    lines.emplace_back("ret");
    return kernel("one", assemble(lines));
}

/// The second instructions that have erratum 835769 after the first one, or the first ones of several.
std::vector<std::string> with_erratum(const std::vector<std::string>& first,
                                      const std::vector<std::string>& second)
{
    std::vector<std::string> lines = first;
    lines.insert(lines.end(), second.begin(), second.end());
    const std::vector<std::uint32_t> words = assemble(lines);
    EXPECT_EQ(words.size(), lines.size());
    std::vector<std::string> found_in;
    for (std::size_t i = 0; i < first.size(); ++i) {
        for (std::size_t k = first.size(); k < words.size(); ++k) {
            const std::string text = found({kernel("one", {nop(), words[i], words[k], ret()})});
            EXPECT_TRUE(text.empty() || text == "warning one+8 erratum-835769\n") << text;
            if (!text.empty())
                found_in.push_back(first.size() == 1 ? lines[k] : lines[i]);
        }
    }
    return found_in;
}

TEST(InstructionFindings, FindsMultiplyAddsAfterMemoryAccesses)
{
    using lines = std::vector<std::string>;
    const lines products = {"madd x0, x1, x2, x3",   "msub x0, x1, x2, x3",   "smaddl x0, w1, w2, x3",
                            "smsubl x0, w1, w2, x3", "umaddl x0, w1, w2, x3", "umsubl x0, w1, w2, x3"};
    EXPECT_EQ(with_erratum({"ldr x4, [x5]"}, products), products);
    EXPECT_EQ(with_erratum({"ldr x4, [x5]"}, {"madd w0, w1, w2, w3", "mul x0, x1, x2", "mneg x0, x1, x2",
                                              "smull x0, w1, w2", "umull x0, w1, w2", "smulh x0, x1, x2",
                                              "umulh x0, x1, x2", "fmadd d0, d1, d2, d3", "nop"}),
              lines());

    const lines product = {"madd x0, x1, x2, x3"};
    const lines accesses = {"str x4, [x5]",
                            "str x1, [x5]",
                            "stp x1, x2, [x5]",
                            "ldr x4, [x1], #8",
                            "ldp x4, x5, [x6]",
                            "ldr d1, [x5]",
                            "ldp q1, q2, [x5]",
                            "ld1 {v1.4s}, [x5]",
                            "ld4 {v1.s, v2.s, v3.s, v4.s}[0], [x5]",
                            "st1 {v1.4s}, [x1], #16",
                            "ldxr x4, [x5]",
                            "stxr w1, x2, [x5]",
                            "ldar x4, [x5]",
                            "stlr x1, [x5]",
                            "prfm pldl1keep, [x5]",
                            "prfm #1, [x5]",
                            "prfum pldl1keep, [x5, #-8]",
                            "prfm pldl1keep, #8",
                            "ldr x4, #8",
                            "ldrsb w4, [x5, x6]"};
    EXPECT_EQ(with_erratum(accesses, product), accesses);
    EXPECT_EQ(
        with_erratum({"ldr x1, [x5]", "ldr x2, [x5]", "ldr x3, [x5]", "ldr w1, [x5], #4", "ldp x4, x2, [x5]",
                      "ldrsw x3, [x5, x6]", "ldxr x1, [x5]", "ldaxp x4, x1, [x5]", "ldr x1, #8"},
                     product),
        lines())
        << "the product waits for what it needs of the load";
    EXPECT_EQ(with_erratum({"add x1, x2, x3", "nop", "dmb ish", "ldadd x4, x5, [x6]", "ldapr x4, [x5]",
                            "ldff1d { z0.d }, p0/z, [x5]"},
                           product),
              lines());

    EXPECT_EQ(
        messages({kernel_of({"ldr x4, [x5]", product[0], "str x0, [x5]", "madd x0, x0, x1, x2"})}),
        "madd x0, x1, x2, x3 directly after ldr x4, [x5], whose result Cortex-A53 may get wrong; also at +0xc\n");
    EXPECT_EQ(found({kernel_of({"ldr x4, [x5]", "nop", product[0]})}), "");
    EXPECT_EQ(found({kernel_of(product)}), "") << "the first instruction";
    EXPECT_EQ(found({kernel_of({"ldr x4, #12", "ldr x6, #12", "b #12", "ldr x0, [x5]", product[0]})}), "")
        << "constants in the code";
}

TEST(InstructionFindings, FindsInstructionsThatTheProcessorLacks)
{
    const kernel_data one =
        kernel_of({"fmla v0.4s, v1.4s, v2.4s", "sdot v0.4s, v1.16b, v2.16b", "ldadd x0, x1, [x2]",
                   "cbz x0, #12", "nop", "sdot v3.4s, v1.16b, v2.16b", "fmla v0.8h, v1.8h, v2.8h"});
    EXPECT_EQ(found({one}), "");
    EXPECT_EQ(messages({one}, {"cortex-a53"}),
              "sdot v0.4s, v1.16b, v2.16b needs dotprod, which cortex-a53 does not have; also at +0x14\n"
              "ldadd x0, x1, [x2] needs lse, which cortex-a53 does not have\n"
              "fmla v0.8h, v1.8h, v2.8h needs fullfp16, which cortex-a53 does not have\n");
    EXPECT_EQ(messages({one}, {"cortex-a76"}), "");
    const std::vector<kernel_finding> findings = find({one}, {"cortex-a53"});
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[1].severity, vorna::wfta::finding_severity::error);
    EXPECT_EQ(findings[1].id, vorna::wfta::finding_id::missing_feature);
    EXPECT_EQ(findings[1].offset, 8);
    EXPECT_FALSE(findings[1].aborts);
    EXPECT_EQ(findings[1].note, "executing it raises SIGILL there");
    EXPECT_EQ(findings[1].help, "generate the kernel without lse for this processor");

    EXPECT_EQ(messages({kernel_of({"ret", "sdot v0.4s, v1.16b, v2.16b"})}, {"cortex-a53"}), "")
        << "not executed";
    EXPECT_EQ(messages({kernel_of({"paciasp", "prfm pldl1keep, [x0]"})}, {"cortex-a53"}), "");
}

TEST(InstructionFindings, NamesTargetsByTheirOffset)
{
    EXPECT_EQ(messages({kernel("before", {ret()}), kernel("one", assemble({"nop", "cbz x0, #-4"}))}),
              "cbz x0, +0x0 is the last instruction, and control continues past the end of the code\n");
}

TEST(InstructionFindings, FindsCodeThatFallsThrough)
{
    EXPECT_EQ(found({kernel_data{nullptr, "one", std::vector<std::uint8_t>(6), {}, {}}}), "");
    EXPECT_EQ(found({kernel("one", {})}), "");
    for (const char* last : {"ret", "b #-4", "br x1", "brk #0", "udf #0", "hlt #0", "braaz x0", "retaa"})
        EXPECT_EQ(found({kernel("one", assemble({last}))}), "") << last;
    for (const char* last : {"nop", "ldr x0, [x1]", "fadd d0, d0, d0", "msr tpidr_el0, x0", "cbnz x0, #0",
                             "b.eq #0", "tbz x0, #3, #0", "bl #64", "blr x1", "svc #0"})
        EXPECT_EQ(found({kernel("one", assemble({last}))}), "error one+0 falls-through\n") << last;
    EXPECT_EQ(messages({kernel("one", {sub(0, 0, 1)})}),
              "sub x0, x0, #1 is the last instruction, and control continues past the end of the code\n");
    EXPECT_EQ(messages({kernel("one", {0x5e280801})}), // sha1h s1, s0
              "sha1h s1, s0 is the last instruction, and control continues past the end of the code\n");
}

TEST(InstructionFindings, AllowsPaddingAndLiteralsAfterTheCode)
{
    constexpr std::uint32_t literal = 0x3d2aaaab;
    const auto with = [&](const std::vector<std::string>& lines, std::vector<std::uint32_t> more) {
        std::vector<std::uint32_t> words = assemble(lines);
        words.insert(words.end(), more.begin(), more.end());
        return found({kernel("one", words)});
    };
    EXPECT_EQ(with({"ret"}, {nop()}), "");
    EXPECT_EQ(with({"ldr s1, #12", "fmul s0, s0, s1", "ret"}, {literal}), "");
    EXPECT_EQ(with({"adr x1, #12", "ldr s1, [x1, x0]", "ret"}, {literal, literal}), "");
    EXPECT_EQ(with({"ldr s1, #8", "b #8"}, {literal, ret()}), "") << "jumped over";
    EXPECT_EQ(with({"cbz x0, #8", "ret"}, {nop()}), "error one+8 falls-through\n") << "a branch leads there";
    EXPECT_EQ(with({"ldr s1, #8", "fmul s0, s0, s1"}, {literal}), "error one+8 falls-through\n")
        << "executed although it is a literal";
    EXPECT_EQ(with({"adr x1, #12", "br x1", "ret"}, {nop()}), "")
        << "what a branch to a register reaches is not known";
    EXPECT_EQ(
        found({kernel("callee", {ret(), nop()}), kernel("caller", {bl(), ret()}, {{"callee", 0, BL, 4}})}),
        "error callee+4 falls-through\n")
        << "entered by another kernel";
}

TEST(InstructionFindings, FindsAccessesOutsideTheConstants)
{
    const auto constants = [](const std::vector<std::string>& lines, std::int32_t addend = 0) {
        std::vector<std::uint32_t> words = assemble(lines);
        words.insert(words.begin(), adr(3));
        words.push_back(ret());
        const std::vector<kernel_data> set = {
            kernel("one", words, {{".rodata.one", 0, ADR, addend}}, std::vector<std::uint8_t>(32))};
        return found(set) + messages(set);
    };
    EXPECT_EQ(constants({"ldr x0, [x3, #24]", "ldr q0, [x3, #16]", "ldrb w0, [x3, #31]"}), "");
    EXPECT_EQ(constants({"ldr x0, [x3, #32]"}),
              "error one+4 outside-constants\n"
              "8-byte load from .rodata+0x20, outside the kernel's constants, which have 32 bytes\n");
    EXPECT_EQ(constants({"ldur x0, [x3, #-8]"}),
              "error one+4 outside-constants\n"
              "8-byte load from .rodata-0x8, outside the kernel's constants, which have 32 bytes\n");
    EXPECT_EQ(constants({"ldp q0, q1, [x3]"}, 16),
              "error one+4 outside-constants\n"
              "32-byte load from .rodata+0x10, outside the kernel's constants, which have 32 bytes\n");
    EXPECT_EQ(constants({"mov x4, x3", "add x4, x4, #32", "sub x5, x4, #1", "str w0, [x5]"}),
              "error one+16 outside-constants\n"
              "4-byte store to .rodata+0x1f, outside the kernel's constants, which have 32 bytes\n");
    EXPECT_EQ(constants({"cbz x0, #8", "nop", "ldr x0, [x3, #32]"}),
              "error one+12 outside-constants\n"
              "8-byte load from .rodata+0x20, outside the kernel's constants, which have 32 bytes\n");
    EXPECT_EQ(
        constants({"mov x5, #9", "ldr w6, [x3], #4", "sub x5, x5, #1", "cbnz x5, #-8"}),
        "error one+8 outside-constants\n4-byte load from .rodata+0x20 in iteration 9 of its loop, outside the "
        "kernel's constants, which have 32 bytes\n");
    EXPECT_EQ(constants({"mov x5, #8", "ldr w6, [x3], #4", "sub x5, x5, #1", "cbnz x5, #-8"}), "");
    EXPECT_EQ(constants({"ldr w6, [x3], #4", "cbnz x6, #-4"}), "") << "as often as it may be";
    EXPECT_EQ(constants({"ret", "ldr x0, [x3, #32]"}), "") << "not executed";
    EXPECT_EQ(constants({"mov x3, x0", "ldr x0, [x3, #32]"}), "") << "another address";
}

TEST(InstructionFindings, FindsIncompleteAddresses)
{
    const auto accessed = [](const std::vector<std::string>& lines,
                             const std::vector<tessjit::reloc_info>& relocs) {
        return found({kernel("one", assemble(lines), relocs, std::vector<std::uint8_t>(32))});
    };
    const std::string data = ".rodata.one";
    EXPECT_EQ(accessed({"adrp x3, #0", "add x3, x3, #0", "ldr d0, [x3]", "ret"}, {{data, 0, ADRP, 0}}),
              "error one+8 outside-constants\n")
        << "the ADD has no relocation";
    EXPECT_EQ(accessed({"adrp x3, #0", "add x3, x3, #0", "ldr d0, [x3]", "ret"},
                       {{data, 0, ADRP, 0}, {data, 4, ADD, 4096}}),
              "")
        << "another addend of the same place in a page";
    EXPECT_EQ(accessed({"adrp x3, #0", "add x3, x3, #0", "ldr d0, [x3]", "ret"},
                       {{data, 0, ADRP, 0}, {data, 4, ADD, 32}}),
              "error one+8 outside-constants\n");
    EXPECT_EQ(messages({kernel("one", assemble({"adrp x3, #0", "ldr d0, [x3]", "ret"}), {{data, 0, ADRP, 8}},
                               std::vector<std::uint8_t>(32))}),
              "8-byte load through the page of '.rodata.one'+0x8, which no ADD completes\n");
}

TEST(InstructionFindings, FindsStoresToTheConstants)
{
    const auto stores = [](const std::string& line) {
        const std::vector<kernel_data> set = {kernel("one", {adr(3), assemble({line})[0], ret()},
                                                     {{".rodata.one", 0, ADR, 8}},
                                                     std::vector<std::uint8_t>(32))};
        return found(set) + messages(set);
    };
    EXPECT_EQ(stores("str d0, [x3, #16]"), "warning one+4 writes-constants\n"
                                           "8-byte store to the kernel's constants at .rodata+0x18\n");
    EXPECT_EQ(stores("ldadd x0, x1, [x3]"),
              "warning one+4 writes-constants\n"
              "8-byte load that also writes to the kernel's constants at .rodata+0x8\n");
    EXPECT_EQ(stores("str x3, [x0]"), "");
}

TEST(InstructionFindings, ForgetsAddressesWhereAnotherKernelEnters)
{
    const auto loads = [](std::vector<tessjit::reloc_info> other) {
        return found({kernel("one", assemble({"adr x3, #0", "nop", "ldr x0, [x3, #32]", "ret"}),
                             {{".rodata.one", 0, ADR, 0}}, std::vector<std::uint8_t>(32)),
                      kernel("other", {adr(0), ret()}, std::move(other))});
    };
    EXPECT_EQ(loads({}), "error one+8 outside-constants\n");
    EXPECT_EQ(loads({{"one", 0, ADR, 4}}), "");
    EXPECT_EQ(loads({{"one", 0, ADR, 12}}), "error one+8 outside-constants\n");
}

TEST(InstructionFindings, DistinguishesAnErrorFromANoteAtTheSameAddress)
{
    EXPECT_EQ(found({kernel("one", assemble({"adr x3, #0", "ldr x0, [x3]", "ldar x1, [x3]", "ret"}),
                            {{".rodata.one", 0, ADR, 4}}, std::vector<std::uint8_t>(16))}),
              "note one+4 data-alignment\nerror one+8 data-alignment\n");
}

TEST(InstructionFindings, SaysOnWhichProcessorsAnAccessFaults)
{
    const auto message = [](const std::string& access, std::int32_t addend) {
        return messages({kernel("one", {adr(1), assemble({access})[0], ret()},
                                {{".rodata.one", 0, ADR, addend}}, std::vector<std::uint8_t>(64))});
    };
    EXPECT_EQ(message("ldar x0, [x1]", 4), "8-byte load from an address that is 4-aligned, which faults on "
                                           "processors without FEAT_LSE2\n");
    EXPECT_EQ(message("ldar x0, [x1]", 12), "8-byte load from an address that is 4-aligned, which faults\n");
    EXPECT_EQ(message("ldaxr x0, [x1]", 9), "8-byte load from an address that is 1-aligned, which faults\n");
    EXPECT_EQ(message("ldxp x0, x2, [x1]", 8),
              "16-byte load from an address that is 8-aligned, which faults\n");
    EXPECT_EQ(message("ldxp w0, w2, [x1]", 4),
              "8-byte load from an address that is 4-aligned, which faults on "
              "processors without FEAT_LSE2\n");
}

} // namespace
