// Kernels by hand that keep the AAPCS64 or break it in one way, and what `check` finds in each.

#include "workbench/analysis/calling_convention.hpp"
#include "tests/support/dumps.hpp"
#include "workbench/analysis/check_dumps.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using vorna::wfta::analysis_options;
using vorna::wfta::kernel_finding;
using vorna::workbench::placed_kernel;

/// A kernel's code, and what is found in it: "error abi-callee-saved+4", by severity, id and offset.
struct example {
    std::string code;
    std::string findings;
};

constexpr std::uint32_t end_of_kernel = 0x0000dead; // UDF

/// Changes all registers that a call may change.
std::vector<std::uint32_t> code_of_callee()
{
    std::vector<std::string> lines = {"cmp x0, #0"};
    for (int r = 0; r <= 17; ++r)
        lines.push_back("mov x" + std::to_string(r) + ", #1");
    for (int v = 0; v <= 31; ++v) {
        const std::string name = "v" + std::to_string(v);
        lines.push_back(v >= 8 && v <= 15 ? "mov " + name + ".d[1], x0" : "movi " + name + ".2d, #0");
    }
    lines.emplace_back("ret");
    static const std::vector<std::uint32_t> words = support::assemble(lines);
    return words;
}

/// The kernels "k0", "k1", ... of pieces of assembly, with instructions separated by semicolons, and the
/// kernels f and g, which they may call. "self" is the kernel itself. All are assembled in one run.
std::vector<placed_kernel> kernels_of(const std::vector<example>& examples)
{
    std::string source;
    for (const example& one : examples)
        source += one.code + "; .inst " + std::to_string(end_of_kernel) + "\n";
    const support::generated_kernel all = support::assemble_kernel("all", source);
    std::vector<placed_kernel> kernels = {support::placed("f", 0, code_of_callee()),
                                          support::placed("g", 0, {0xd65f03c0})};
    std::size_t begin = 0;
    for (std::size_t at = 0; at < all.code.size(); at += 4) {
        if (vorna::wfta::word_at(all.code, at) != end_of_kernel)
            continue;
        placed_kernel& kernel = kernels.emplace_back();
        kernel.name = "k" + std::to_string(kernels.size() - 3);
        kernel.text.assign(all.code.begin() + static_cast<std::ptrdiff_t>(begin),
                           all.code.begin() + static_cast<std::ptrdiff_t>(at));
        for (tessjit::reloc_info reloc : all.relocs) {
            reloc.offset -= static_cast<std::int32_t>(begin);
            reloc.name = reloc.name == "self" ? kernel.name : reloc.name;
            if (vorna::wfta::lies_within(kernel.text, reloc.offset))
                kernel.relocs.push_back(reloc);
        }
        begin = at + 4;
    }
    support::place_in_mapping(kernels, 0x10000);
    return kernels;
}

bool is_of_the_convention(const std::string& id)
{
    return id.rfind("abi-", 0) == 0 || id.rfind("reads-", 0) == 0 || id == "unfollowed";
}

/// The findings in each kernel, separated by commas.
std::vector<std::string> findings_of(const std::vector<example>& examples,
                                     const analysis_options& options = {})
{
    std::vector<std::string> found(examples.size());
    for (const kernel_finding& finding :
         check_dumps(vorna::workbench::make_kernel_set(kernels_of(examples)), options)) {
        if (!is_of_the_convention(name_of(finding.id)) || finding.kernel[0] != 'k')
            continue;
        const char* const severities[] = {"note", "warning", "error"};
        std::string& text = found.at(std::stoul(finding.kernel.substr(1)));
        char place[32];
        std::snprintf(place, sizeof place, "+%lx", static_cast<unsigned long>(finding.offset.value_or(-1)));
        text += (text.empty() ? "" : ", ") + std::string(severities[static_cast<int>(finding.severity)]) +
                " " + name_of(finding.id) + place;
    }
    return found;
}

void expect_findings(const std::vector<example>& examples)
{
    const std::vector<std::string> found = findings_of(examples);
    for (std::size_t i = 0; i < examples.size(); ++i)
        EXPECT_EQ(found[i], examples[i].findings) << examples[i].code;
}

TEST(CallingConvention, IsKeptByKernelsThatRestoreWhatTheyChange)
{
    expect_findings({
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "bl f; mov x0, x19; ldr x19, [sp, #16]; ldp x29, x30, [sp], #32; ret",
         ""},
        {"str q8, [sp, #-16]!; fmov d8, #1.0; fadd d0, d8, d0; ldr d8, [sp], #16; ret", ""},
        {"fmov x9, d8; fmov d8, #1.0; fadd d0, d0, d8; fmov d8, x9; ret", ""},
        {"mov x9, x19; mov x19, x0; add x0, x19, x19; mov x19, x9; ret", ""},
        {"fmov d16, x19; mov x19, x0; add x0, x19, x19; fmov x19, d16; ret", ""},
        {"mov v16.d[1], x19; mov x19, x0; add x0, x19, x19; mov x19, v16.d[1]; ret", ""},
        {"mov v16.16b, v8.16b; fmov d8, #1.0; fadd d0, d0, d8; mov v8.16b, v16.16b; ret", ""},
        {"stp x29, x30, [sp, #-48]!; add x29, sp, #48; stur x19, [x29, #-16]; "
         "mov x19, x0; ldur x19, [x29, #-16]; ldp x29, x30, [sp], #48; ret",
         ""},
        {"stp x19, x20, [sp, #-16]!; mov x19, x0; mov x20, x1; add x0, x19, x20; "
         "ldr x20, [sp, #8]; ldr x19, [sp]; add sp, sp, #16; ret",
         ""},
        {"sub sp, sp, #64; st1 {v8.2d, v9.2d, v10.2d, v11.2d}, [sp]; movi v8.2d, #0; "
         "movi v9.2d, #0; movi v10.2d, #0; movi v11.2d, #0; "
         "ld1 {v8.2d, v9.2d, v10.2d, v11.2d}, [sp], #64; ret",
         ""},
        {"sub sp, sp, #32; st1 {v8.1d, v9.1d, v10.1d, v11.1d}, [sp]; movi v8.2d, #0; "
         "movi v11.2d, #0; ld1 {v8.1d, v9.1d, v10.1d, v11.1d}, [sp]; add sp, sp, #32; "
         "ret",
         ""},
        {"mov x19, x0; brk #1", ""},
        {"str x30, [sp, #-16]!; bl f; ldr x9, [sp], #16; ret x9", ""},
        {"paciasp; stp x29, x30, [sp, #-16]!; bl f; ldp x29, x30, [sp], #16; autiasp; "
         "ret",
         ""},
        {"cbz x0, 1f; str x19, [sp, #-16]!; mov x19, x0; add x0, x19, #1; "
         "ldr x19, [sp], #16; 1: ret",
         ""},
        {"stp x29, x30, [sp, #-16]!; mov x29, sp; sub x9, sp, #64; and sp, x9, #-64; "
         "str x0, [sp]; ldr x0, [sp]; mov sp, x29; ldp x29, x30, [sp], #16; ret",
         ""},
        {"mov v16.d[0], x0; mov v16.d[1], x1; str q16, [x2]; ret", ""},
        {"stp x30, x9, [sp, #-16]!; bl f; ldp x30, x9, [sp], #16; ret", ""},
        {"stp x9, x10, [sp, #-16]!; mov x9, x0; mov x10, x1; add x0, x9, x10; "
         "ldp x9, x10, [sp], #16; ret",
         ""},
        {"stp x29, x30, [sp, #-16]!; bl f; ldp x29, x30, [sp]; add sp, sp, #16; ret", ""},
        {"ldr x9, [sp]; ldr x10, [sp, #8]; add x0, x9, x10; ret", ""},
        {"stp x29, x30, [sp, #-32]!; stp x19, x20, [sp, #16]; mov x19, x0; mov x20, x1; "
         "1: mov x0, x20; bl f; subs x19, x19, #1; b.ne 1b; ldp x19, x20, [sp, #16]; "
         "ldp x29, x30, [sp], #32; ret",
         ""},
        {"1: stp x0, x1, [sp, #-16]!; ldp x1, x0, [sp], #16; subs x2, x2, #1; b.ne 1b; "
         "ret",
         ""},
        {"str x19, [sp, #-16]!; mov x19, x0; cbz x0, 1f; ldr x19, [sp], #16; ret; "
         "1: add x0, x0, #1; ldr x19, [sp], #16; ret",
         ""},
        {"stp x29, x30, [sp, #-32]!; str d8, [sp, #16]; fmov d8, d0; bl f; "
         "fadd d0, d0, d8; ldr d8, [sp, #16]; ldp x29, x30, [sp], #32; ret",
         ""},
        {"str x30, [sp, #-16]!; bl 1f; bl 1f; ldr x30, [sp], #16; ret; "
         "1: add x0, x0, #1; ret",
         ""},
        {"stp x30, x19, [sp, #-16]!; bl 1f; ldp x30, x19, [sp], #16; ret; "
         "1: mov x19, x0; ret",
         ""},
        {"str x30, [sp, #-16]!; bl f; add x0, x0, x1; fadd d0, d0, d1; "
         "ldr x30, [sp], #16; ret",
         ""},
        {"stp d8, d9, [sp, #-16]!; movi v8.4s, #1; mov v9.16b, v8.16b; "
         "add v0.4s, v8.4s, v9.4s; ldp d8, d9, [sp], #16; ret",
         ""},
        {"mov x9, sp; sub sp, sp, #64; str x0, [sp]; mov sp, x9; ret", ""},
        {"stp x29, x30, [sp, #-48]!; stp x19, x20, [sp, #16]; str x21, [sp, #32]; "
         "mov x19, #4; 1: mov x20, #4; 2: mov x21, x0; bl f; add x0, x0, x21; "
         "subs x20, x20, #1; b.ne 2b; subs x19, x19, #1; b.ne 1b; ldr x21, [sp, #32]; "
         "ldp x19, x20, [sp, #16]; ldp x29, x30, [sp], #48; ret",
         ""},
        {"str x19, [sp, #-16]!; cbz x0, 2f; 1: mov x19, x1; subs x1, x1, #1; b.eq 3f; "
         "2: add x0, x0, #1; subs x2, x2, #1; b.ne 1b; 3: ldr x19, [sp], #16; ret",
         ""},
        {"1: str x19, [sp, #-16]!; mov x19, x0; ldr x19, [sp], #16; subs x1, x1, #1; "
         "b.ne 1b; ret",
         ""},
        {"str x19, [sp, #-16]!; mov x19, x30; bl f; mov x30, x19; ldr x19, [sp], #16; "
         "ret",
         ""},
        {"mov x9, x19; str x9, [sp, #-16]!; mov x19, x30; bl f; mov x9, x19; "
         "ldr x19, [sp], #16; ret x9",
         ""},
        {"sub sp, sp, #1, lsl #12; sub sp, sp, #16; str x19, [sp, #4096]; mov x19, x0; "
         "ldr x19, [sp, #4096]; add sp, sp, #16; add sp, sp, #1, lsl #12; ret",
         ""},
        {"mov x9, #0x2340; movk x9, #1, lsl #16; sub sp, sp, x9; str x19, [sp]; "
         "mov x19, x0; ldr x19, [sp]; mov x10, #0x2340; movk x10, #1, lsl #16; "
         "add sp, sp, x10; ret",
         ""},
        {"str x19, [sp, #-16]!; addvl sp, sp, #-2; str z0, [sp]; "
         "str z1, [sp, #1, mul vl]; ldr z1, [sp]; ldr z0, [sp, #1, mul vl]; "
         "addvl sp, sp, #2; ldr x19, [sp], #16; ret",
         ""},
        {"addvl sp, sp, #-1; str z8, [sp]; mov z8.d, #0; ldr z8, [sp]; "
         "addvl sp, sp, #1; ret",
         ""},
        {"rdvl x9, #1; sub sp, sp, x9; str z8, [sp]; mov z8.d, #0; ldr z8, [sp]; "
         "rdvl x9, #1; add sp, sp, x9; ret",
         ""},
        {"str x19, [sp, #-32]!; mov x19, x0; cmp x0, #0; mov x9, sp; add x10, sp, #16; "
         "csel x9, x9, x10, eq; ldr x19, [sp], #32; ret",
         ""},
        {"str x30, [sp, #-16]!; bl 1f; ldr x30, [sp], #16; ret; "
         "1: stp x19, x30, [sp, #-16]!; mov x19, x0; bl f; add x0, x0, x19; "
         "ldp x19, x30, [sp], #16; ret",
         ""},
        {"stp x29, x30, [sp, #-16]!; cbz x0, 1f; sub x0, x0, #1; bl self; "
         "1: ldp x29, x30, [sp], #16; ret",
         ""},
        {"stp q8, q9, [sp, #-32]!; movi v8.2d, #0; movi v9.2d, #0; "
         "ldp q8, q9, [sp], #32; ret",
         ""},
        {"str d8, [sp, #-16]!; movi v8.2d, #0; ldr x9, [sp], #16; fmov d8, x9; ret", ""},
        {"str x19, [sp, #-32]!; str x20, [sp, #8]; mov x19, x0; mov x20, x1; "
         "ldr q16, [sp]; mov x19, v16.d[0]; mov x20, v16.d[1]; add sp, sp, #32; ret",
         ""},
        {"str x0, [sp]; ldr x0, [sp]; ret", ""},
        {"mov v16.d[0], x0; str d16, [x1]; ret", ""},
        {"fmov d16, x0; ext v17.16b, v16.16b, v16.16b, #8; str q17, [x1]; ret", ""},
        {"pacibsp; str x30, [sp, #-16]!; bl f; ldr x30, [sp], #16; retab", ""},
        {"fmov v8.d[1], x0; ret", ""},
        {"stp x29, x30, [sp, #-48]!; mov x29, sp; stp x19, x20, [sp, #16]; mov x19, x0; "
         "mov x20, x1; add x9, sp, #32; str x0, [x9]; ldr x0, [x9]; str x1, [x2]; "
         "ldp x19, x20, [sp, #16]; ldp x29, x30, [sp], #48; ret",
         ""},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "sub x9, sp, #64; and sp, x9, #-64; str x0, [sp, #56]; ldr x19, [x29, #16]; "
         "mov sp, x29; ldp x29, x30, [sp], #32; ret",
         ""},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "str x0, [sp, #24]; ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; "
         "ret",
         ""},
        {"mov x9, x19; str x9, [sp, #-16]!; mov x19, x0; mov x9, #5; "
         "ldr x10, [sp], #16; mov x19, x10; ret",
         ""},
        {"str x19, [sp, #-16]!; 1: mov x19, x0; ldr x9, [sp]; str x9, [sp]; "
         "subs x0, x0, #1; b.ne 1b; mov x19, x9; add sp, sp, #16; ret",
         ""},
        {"mov v16.d[0], v8.d[0]; mov v16.d[1], v9.d[0]; movi v8.2d, #0; movi v9.2d, #0; "
         "mov v8.d[0], v16.d[0]; mov v9.d[0], v16.d[1]; ret",
         ""},
        {"str q8, [sp, #-16]!; movi v8.2d, #0; ldr q8, [sp], #16; ret", ""},
        {"stp x30, xzr, [sp, #-16]!; bl f; ldp x30, x9, [sp], #16; add x0, x0, x9; ret", ""},
    });
}

TEST(CallingConvention, IsKeptByKernelsThatReadWhatTheyAreGivenOrSet)
{
    expect_findings({
        {"mov x9, x30; ret x9", ""},
        {"eor x9, x9, x9; str x9, [x0]; ret", ""},
        {"eor v16.16b, v16.16b, v16.16b; str q16, [x0]; ret", ""},
        {"sub x9, x9, x9; str x9, [x0]; ret", ""},
        {"eor z16.d, z16.d, z16.d; str z16, [x0]; ret", ""},
        {"ld1 {v16.s}[0], [x0]; ld1 {v16.s}[1], [x0]; ld1 {v16.s}[2], [x0]; "
         "ld1 {v16.s}[3], [x0]; str q16, [x2]; ret",
         ""},
        {"ld2 {v16.d, v17.d}[0], [x0]; ld2 {v16.d, v17.d}[1], [x0]; stp q16, q17, [x2]; "
         "ret",
         ""},
        {"mrs x9, fpcr; mov x10, #0; msr fpcr, x10; fadd d0, d0, d1; msr fpcr, x9; ret", ""},
        {"mov v8.d[1], x0; ret", ""},
        {"mov v8.s[3], w0; ret", ""},
        {"cmp x0, #0; csel x0, x1, x2, eq; ret", ""},
        {"cbz x0, 1f; ret; 1: add x0, x0, #1; ret", ""},
        {"str x0, [x8]; ret", ""},
        {"cmp x0, #0; ccmp x1, #0, #0, eq; cset x0, eq; ret", ""},
        {"fcmp d0, d1; fcsel d0, d0, d1, gt; ret", ""},
        {"msr nzcv, x0; cset x0, eq; ret", ""},
        {"ld1 {v8.d}[1], [x0]; ret", ""},
        {"sqxtn2 v8.4s, v0.2d; ret", ""},
        {"fcvtxn2 v8.4s, v0.2d; ret", ""},
        {"addhn2 v8.16b, v0.8h, v1.8h; ret", ""},
    });
}

TEST(CallingConvention, NeedsCalleeSavedRegistersUnchanged)
{
    expect_findings({
        {"mov x19, x0; ret", "error abi-callee-saved+0"},
        {"1: ldxr x1, [x0]; stxr w19, x1, [x0]; cbnz w19, 1b; ret", "error abi-callee-saved+4"},
        {"mov x2, x0; mov x3, x1; casp x20, x21, x2, x3, [x4]; ret",
         "error abi-callee-saved+8, error abi-callee-saved+8, error reads-unset+8, error reads-unset+8"},
        {"ld2 {v7.2d, v8.2d}, [x0]; ret", "error abi-callee-saved+0"},
        {"ld4 {v5.2d, v6.2d, v7.2d, v8.2d}, [x0]; ret", "error abi-callee-saved+0"},
        {"mov z8.d, #0; ret", "error abi-callee-saved+0"},
        {"ptrue p0.d; ld2d {z7.d, z8.d}, p0/z, [x0]; ret", "error abi-callee-saved+4"},
        {"mov v8.s[1], w0; ret", "error abi-callee-saved+0"},
        {"mov v8.b[7], w0; ret", "error abi-callee-saved+0"},
        {"ldp x27, x28, [x0]; ret", "error abi-callee-saved+0, error abi-callee-saved+0"},
        {"swp x0, x19, [x1]; ret", "error abi-callee-saved+0"},
        {"ldadd x0, x19, [x1]; ret", "error abi-callee-saved+0"},
        {"mov x19, x19; cas x19, x0, [x1]; ret", "error abi-callee-saved+4, error reads-unset+4"},
        {"str x0, [x19], #8; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"ld1 {v0.2d}, [x19], #16; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"ld1r {v0.2d}, [x19], x0; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"stg x0, [x19], #16; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"cmp x0, #0; cset x19, eq; ret", "error abi-callee-saved+4"},
        {"mov x29, x0; ret", "error abi-callee-saved+0"},
        {"fmadd d15, d0, d1, d2; ret", "error abi-callee-saved+0"},
        {"cbz x0, 1f; mov x20, x1; 1: ret", "error abi-callee-saved+4"},
        {"1: mov x21, x0; subs x0, x0, #1; b.ne 1b; ret", "error abi-callee-saved+0"},
        {"fmov d16, d8; fmov d17, d9; fmov d8, d17; fmov d9, d16; ret",
         "error abi-callee-saved+8, error abi-callee-saved+c"},
        {"cbz x0, 2f; 1: mov x19, x1; subs x1, x1, #1; b.eq 3f; 2: add x0, x0, #1; "
         "subs x2, x2, #1; b.ne 1b; 3: ret",
         "error abi-callee-saved+4"},
        {"mov x9, x19; mov x19, x0; cbz x0, 1f; mov x19, x9; 1: ret", "error abi-callee-saved+4"},
        {"tbz x0, #3, 1f; mov x27, #1; 1: ret", "error abi-callee-saved+4"},
        {"mov x9, sp; mov sp, x0; mov x19, x1; mov sp, x9; ret", "error abi-callee-saved+8"},
        {"mov x19, x0; cbz x0, .+4096; ret", "error abi-callee-saved+0, note unfollowed+4"},
        {"mov x19, x0; svc #0; ret", "error abi-callee-saved+0"},
        {"st2g x0, [x21], #32; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"ldg x19, [x0]; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"irg x19, x0, x1; ret", "error abi-callee-saved+0"},
        {"addg x19, x0, #16, #1; ret", "error abi-callee-saved+0"},
        {"subp x19, x0, x1; ret", "error abi-callee-saved+0"},
        {"whilelt p0.d, x0, x1; cntp x19, p0, p0.d; ret", "error abi-callee-saved+4"},
        {"ptrue p0.d; lasta x19, p0, z0.d; ret", "error abi-callee-saved+4"},
        {"incd x19; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"uqdecw x19; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"ptrue p0.d; clasta x19, p0, x19, z0.d; ret", "error abi-callee-saved+4, error reads-unset+4"},
        {"ptrue p0.d; lasta d8, p0, z0.d; ret", "error abi-callee-saved+4"},
        {"ptrue p0.d; faddv d8, p0, z0.d; ret", "error abi-callee-saved+4"},
        {"movprfx z8, z0; add z8.d, z8.d, #1; ret", "error abi-callee-saved+0"},
        {"ld1 {v8.b}[0], [x0]; ret", "error abi-callee-saved+0"},
        {"tbx v8.16b, {v0.16b}, v1.16b; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"fmla v9.2d, v0.2d, v1.2d; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"sqxtn v8.2s, v0.2d; ret", "error abi-callee-saved+0"},
        {"sha256h q8, q0, v1.4s; ret", "error abi-callee-saved+0, error reads-unset+0"},
        {"ldp s8, s9, [x0]; ret", "error abi-callee-saved+0, error abi-callee-saved+0"},
        {"ldnp d8, d9, [x0]; ret", "error abi-callee-saved+0, error abi-callee-saved+0"},
        {"ldpsw x19, x20, [x0]; ret", "error abi-callee-saved+0, error abi-callee-saved+0"},
        {"ldxp x19, x20, [x0]; ret", "error abi-callee-saved+0, error abi-callee-saved+0"},
        {"ldxp x0, x1, [x2]; stlxp w22, x0, x1, [x2]; ret", "error abi-callee-saved+4"},
        {"ldclr x0, x22, [x2]; ret", "error abi-callee-saved+0"},
        {"ldapr x22, [x2]; ret", "error abi-callee-saved+0"},
        {"fmov x9, d8; fmov x10, d9; movi v8.2d, #0; movi v9.2d, #0; cbz x0, 1f; "
         "fmov d8, x9; fmov d9, x10; ret; 1: fmov d8, x9; ret",
         "error abi-callee-saved+c"},
        {"mov v16.d[0], v8.d[0]; mov v16.d[1], v9.d[0]; movi v8.2d, #0; movi v9.2d, #0; "
         "mov v8.d[0], v16.d[1]; mov v9.d[0], v16.d[0]; ret",
         "error abi-callee-saved+8, error abi-callee-saved+c"},
    });
}

TEST(CallingConvention, NeedsTheSavedValueToSurviveInTheFrame)
{
    expect_findings({
        {"str x30, [sp, #-16]!; str x19, [sp, #-16]; mov x19, x0; bl f; ldr x19, [sp, #-16]; "
         "ldr x30, [sp], #16; ret", // the call may write there
         "error abi-callee-saved+8, warning abi-below-stack+4, warning abi-below-stack+10, "
         "error reads-unset+10"},
        {"stp x19, x20, [sp, #-16]!; mov x19, x0; mov x20, x1; ldp x20, x19, [sp], #16; "
         "ret",
         "error abi-callee-saved+4, error abi-callee-saved+8"},
        {"str s8, [sp, #-16]!; fmov d8, #1.0; ldr s8, [sp], #16; ret", "error abi-callee-saved+4"},
        {"str d8, [sp, #-16]!; fmov d8, #1.0; ldr s8, [sp], #16; ret", "error abi-callee-saved+4"},
        {"str x19, [sp, #-16]!; mov x19, x0; str q0, [sp]; ldr x19, [sp], #16; ret",
         "error abi-callee-saved+4"},
        {"str x19, [sp, #-16]!; mov x19, x0; strb w0, [sp, #7]; ldr x19, [sp], #16; ret",
         "error abi-callee-saved+4"},
        {"str x19, [sp, #-16]!; mov x19, x0; ldr x19, [sp, #8]; add sp, sp, #16; ret",
         "error abi-callee-saved+4, error reads-unset+8"},
        {"str x19, [sp, #-16]!; mov x19, x0; cbz x0, 1f; ldr x19, [sp]; "
         "1: add sp, sp, #16; ret",
         "error abi-callee-saved+4"},
        {"sub sp, sp, #16; mov x19, x0; ldr x19, [sp], #16; ret",
         "error abi-callee-saved+4, error reads-unset+8"},
        {"str x19, [sp, #-16]!; mov x19, x0; cbz x0, 1f; ldr x19, [sp], #16; ret; "
         "1: add sp, sp, #16; ret",
         "error abi-callee-saved+4"},
        {"sub sp, sp, #32; str x19, [sp, #16]; mov x9, sp; str x0, [x9, #16]; "
         "mov x19, x1; ldr x19, [sp, #16]; add sp, sp, #32; ret",
         "error abi-callee-saved+10"},
        {"stp x29, x30, [sp, #-48]!; str x19, [sp, #16]; mov x19, x0; mov x9, sp; "
         "fmov d16, x9; fmov x10, d16; str x0, [x10, #16]; ldr x19, [sp, #16]; "
         "ldp x29, x30, [sp], #48; ret",
         "error abi-callee-saved+8"},
        {"mov x9, x29; stp x29, x30, [sp, #-32]!; str x19, [sp, #16]; mov x29, sp; "
         "mov x19, x0; str x0, [x29, #16]; ldr x19, [sp, #16]; ldp x29, x30, [sp], #32; "
         "ret",
         "error abi-callee-saved+10"},
        {"sub sp, sp, #32; str x19, [sp]; stnp x0, x1, [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"sub sp, sp, #32; str x19, [sp]; st1 {v0.16b}, [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"sub sp, sp, #32; str x19, [sp]; st1 {v0.b}[3], [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"sub sp, sp, #32; str x19, [sp]; mov x9, sp; ldxr x10, [x9]; "
         "stxr w11, x0, [x9]; mov x19, x0; ldr x19, [sp], #32; ret",
         "error abi-callee-saved+14"},
        {"sub sp, sp, #32; str x19, [sp]; swp x0, x1, [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"sub sp, sp, #32; str x19, [sp]; cas x0, x1, [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"sub sp, sp, #32; str x19, [sp]; str z0, [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"sub sp, sp, #32; str x19, [sp]; stgp x0, x1, [sp]; mov x19, x0; "
         "ldr x19, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"str x30, [sp, #-16]!; bl 1f; ldr x30, [sp], #16; ret; 1: mov x19, x0; ret",
         "error abi-callee-saved+4"},
        {"mov x19, x0; str x19, [sp, #-16]!; add x0, x0, #1; ldr x19, [sp], #16; ret",
         "error abi-callee-saved+0"},
        {"sub sp, sp, #16; 1: str x19, [sp]; mov x19, x0; subs x1, x1, #1; b.ne 1b; "
         "ldr x19, [sp], #16; ret",
         "error abi-callee-saved+8"},
        {"str x19, [sp, #-16]!; addvl sp, sp, #-1; str z0, [sp, #1, mul vl]; "
         "mov x19, x0; addvl sp, sp, #1; ldr x19, [sp], #16; ret",
         "error abi-callee-saved+c"},
        {"str x19, [sp, #-16]!; 1: mov x19, x0; cbz x0, 2f; subs x0, x0, #1; b.ne 1b; "
         "ldr x19, [sp], #16; ret; 2: add sp, sp, #16; ret",
         "error abi-callee-saved+4"},
        {"stp x29, x30, [sp, #-16]!; cbz x0, 1f; sub x0, x0, #1; mov x25, x0; bl self; "
         "1: ldp x29, x30, [sp], #16; ret",
         "error abi-callee-saved+c"},
        {"str x19, [sp, #-16]!; mov x19, x0; ldr w19, [sp], #16; ret", "error abi-callee-saved+4"},
        {"str x19, [sp, #-16]!; mov x19, x0; ldrsw x19, [sp], #16; ret", "error abi-callee-saved+4"},
        {"str x19, [sp, #-32]!; str x20, [sp, #8]; mov x19, x0; mov x20, x1; "
         "ldr q16, [sp]; mov x19, v16.d[1]; mov x20, v16.d[0]; add sp, sp, #32; ret",
         "error abi-callee-saved+8, error abi-callee-saved+c"},
        {"sub sp, sp, #48; str x19, [sp, #16]; mov x19, x0; stp q0, q1, [sp]; "
         "ldr x19, [sp, #16]; add sp, sp, #48; ret",
         "error abi-callee-saved+8"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "str x0, [x29, #16]; ldr x19, [x29, #16]; mov sp, x29; "
         "ldp x29, x30, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "str x9, [x2]; add x10, sp, #16; str x10, [sp, #24]; ldr x11, [sp, #24]; "
         "str x0, [x11]; ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "error abi-callee-saved+c, error reads-unset+10"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "str w0, [sp, #20]; ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; "
         "ret",
         "error abi-callee-saved+c"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "strh w0, [sp, #22]; ldr x19, [x29, #16]; mov sp, x29; "
         "ldp x29, x30, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "ldp x29, x1, [sp]; mov x29, x3; add x29, sp, #0; str x0, [x29, #16]; "
         "ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "error abi-callee-saved+c"},
        {"stp x29, x30, [sp, #-32]!; str x19, [sp, #16]; mov x19, x0; "
         "ldr x19, [sp, #16]; ldp x29, x30, [sp], #32; cbz x0, 1f; ret; 1: mov x20, x0; "
         "ret",
         "error abi-callee-saved+1c"},
        {"mov x9, x19; str x9, [sp, #-16]!; mov x19, x0; mov x9, #5; str x9, [sp]; "
         "ldr x19, [sp], #16; ret",
         "error abi-callee-saved+8"},
        {"str x19, [sp, #-16]!; 1: mov x19, x0; ldr x9, [sp]; str x1, [sp]; "
         "subs x0, x0, #1; b.ne 1b; mov x19, x9; add sp, sp, #16; ret",
         "error abi-callee-saved+4"},
        {"stp x19, x20, [sp, #-16]!; mov x19, x0; mov x20, x1; ldp x9, x10, [sp], #16; "
         "cbz x0, 1f; mov x19, x9; mov x20, x10; ret; 1: mov x20, x9; mov x19, x10; ret",
         "error abi-callee-saved+4, error abi-callee-saved+8"},
        {"str d8, [sp, #-16]!; movi v8.2d, #0; ldr d8, [sp], #16; mov v8.s[1], w0; ret",
         "error abi-callee-saved+c"},
        {"str q8, [sp, #-16]!; movi v8.2d, #0; ldur d8, [sp, #8]; add sp, sp, #16; ret",
         "error abi-callee-saved+4"},
    });
}

TEST(CallingConvention, NeedsTheStackPointerOfTheCaller)
{
    expect_findings({
        {"sub sp, sp, #8; str x0, [sp]; add sp, sp, #8; ret", "error abi-stack-pointer+4"},
        {"sub sp, sp, #16; str x0, [sp]; ret", "error abi-stack-pointer+8"},
        {"1: str x0, [sp, #-16]!; subs x1, x1, #1; b.ne 1b; ret", "error abi-stack-pointer+c"},
        {"cbz x0, 1f; sub sp, sp, #16; 1: ret", "error abi-stack-pointer+8"},
        {"mov x9, #0x2340; movk x9, #1, lsl #16; sub sp, sp, x9; str x19, [sp]; "
         "mov x19, x0; ldr x19, [sp]; mov x10, #0x2350; movk x10, #1, lsl #16; "
         "add sp, sp, x10; ret",
         "error abi-stack-pointer+24"},
        {"addvl sp, sp, #-2; str z0, [sp]; addvl sp, sp, #1; ret", "error abi-stack-pointer+c"},
        {"mov sp, x0; ret", "error abi-stack-pointer+4"},
        {"add sp, sp, #32; ret", "error abi-stack-pointer+4"},
    });
}

TEST(CallingConvention, NamesTheBranchByWhichTheStackPointerComesToBeOff)
{
    const std::vector<placed_kernel> kernels =
        kernels_of({{"cbz x0, 2f; cbz x1, 1f; str x1, [sp, #-16]!; 1: ldr x9, [sp], #16; 2: ret", ""}});
    std::vector<std::string> messages;
    for (const kernel_finding& finding : check_dumps(vorna::workbench::make_kernel_set(kernels))) {
        if (name_of(finding.id) == std::string("abi-stack-pointer"))
            messages.push_back(finding.message);
    }
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0], "SP is not what it was at entry at this return, by the branch at +0x4, taken; "
                           "changed at +0x8");
}

TEST(CallingConvention, NeedsTheReturnAddressOfTheCaller)
{
    expect_findings({
        {"bl f; ret", "error abi-return-address+4"},
        {"mov x30, x1; ret", "error abi-return-address+4"},
        {"stp x29, x30, [sp, #-16]!; bl f; ldp x30, x29, [sp], #16; ret",
         "error abi-callee-saved+8, error abi-return-address+c"},
        {"ldr x0, [x30], #8; ret", "error abi-return-address+4"},
        {"str x30, [sp, #-16]!; bl f; add sp, sp, #16; ret", "error abi-return-address+c"},
        {"paciasp; stp x29, x30, [sp, #-16]!; sub sp, sp, #16; autiasp; "
         "add sp, sp, #16; ldp x29, x30, [sp], #16; ret",
         "error abi-return-address+18"},
        {"paciasp; str x30, [sp, #-16]!; bl f; ldr x30, [sp], #16; ret", "error abi-return-address+10"},
        {"mov x9, x30; bl f; mov x30, x9; ret", "error abi-return-address+c, error reads-unset+8"},
        {"str x29, [sp, #-16]!; mov x29, x0; ldr x30, [sp], #16; ret",
         "error abi-callee-saved+4, error abi-return-address+c"},
        {"pacibsp; str x30, [sp, #-16]!; bl f; ldr x30, [sp], #16; autiasp; ret",
         "error abi-return-address+14"},
        {"paciasp; str x30, [sp, #-16]!; bl f; ldr x30, [sp], #16; ret", "error abi-return-address+10"},
        {"paciasp; str x30, [sp, #-16]!; bl f; ldr x30, [sp], #16; retab", "error abi-return-address+10"},
        {"str x30, [sp, #-16]!; bl f; ldur x30, [sp, #8]; add sp, sp, #16; ret",
         "error abi-return-address+10, error reads-unset+8"},
        {"ldp x29, x30, [sp], #16; ret",
         "error abi-callee-saved+0, error abi-stack-pointer+4, error abi-return-address+4"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "stur x0, [sp, #9]; ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; "
         "ret",
         "error abi-callee-saved+c, error abi-return-address+20"},
        {"stp x29, x30, [sp, #-32]!; str x19, [sp, #16]; mov x29, x0; mov x19, x0; "
         "ldr x19, [sp, #16]; mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "error abi-callee-saved+8, error abi-stack-pointer+1c, error abi-return-address+1c"},
        {"str x30, [sp, #-16]!; ldr x9, [sp]; bl f; mov x30, x9; add sp, sp, #16; ret",
         "error abi-return-address+14, error reads-unset+c"},
        {"stp x29, x30, [sp, #-16]!; mov x29, sp; sub sp, sp, #16; bl f; "
         "ldp x29, x30, [sp], #16; ret",
         "error abi-callee-saved+4, error abi-stack-pointer+14, error abi-return-address+14, error reads-unset+10"},
        {"stp x29, x30, [sp, #-16]!; mov x29, sp; sub sp, sp, #16; stp x0, x1, [sp]; "
         "bl f; ldp x29, x30, [sp], #16; add sp, sp, #16; ret",
         "error abi-callee-saved+4, error abi-return-address+1c"},
    });
}

TEST(CallingConvention, GivesNoOtherRegisters)
{
    expect_findings({
        {"str x30, [sp, #-16]!; mov x9, #1; bl f; add x0, x0, x9; ldr x30, [sp], #16; "
         "ret",
         "error reads-unset+c"},
        {"str x30, [sp, #-16]!; mov x2, #1; bl f; add x0, x0, x2; ldr x30, [sp], #16; "
         "ret",
         "error reads-unset+c"},
        {"str x30, [sp, #-16]!; fmov d16, #1.0; bl f; fadd d0, d0, d16; "
         "ldr x30, [sp], #16; ret",
         "error reads-unset+c"},
        {"sub sp, sp, #16; ldr x0, [sp, #8]; add sp, sp, #16; ret", "error reads-unset+4"},
        {"add x0, x0, x9; ret", "error reads-unset+0"},
        {"fadd v0.2d, v0.2d, v16.2d; ret", "error reads-unset+0"},
        {"mov z0.d, #0; fadd z0.d, p5/m, z0.d, z1.d; str z0, [x0]; ret", "error reads-unset+4"},
        {"cbz x0, 1f; mov x9, #1; 1: str x9, [x0]; ret", "warning reads-unset+8"},
        {"str x30, [sp, #-16]!; bl 1f; str x9, [x0]; ldr x30, [sp], #16; ret; "
         "1: add x0, x0, #1; ret",
         "error reads-unset+8"},
        {"mov x19, x0; br x16", "error reads-unset+4, note unfollowed+4"},
        {"mov x9, #1; 1: add x0, x0, x9; str x30, [sp, #-16]!; bl f; "
         "ldr x30, [sp], #16; subs x0, x0, #1; b.ne 1b; ret",
         "warning reads-unset+4"},
        {"str x30, [sp, #-16]!; mov x10, #1; blr x1; add x0, x0, x10; "
         "ldr x30, [sp], #16; ret",
         "error reads-unset+c"},
        {"str x30, [sp, #-16]!; blr x9; ldr x30, [sp], #16; ret", "error reads-unset+4"},
        {"str x15, [x0]; ret", "error reads-unset+0"},
        {"fadd d0, d0, d8; ret", "error reads-unset+0"},
        {"add x0, x0, x19; ret", "error reads-unset+0"},
        {"mov x9, #1; str x30, [sp, #-16]!; blraa x0, x1; str x9, [x0]; "
         "ldr x30, [sp], #16; ret",
         "error reads-unset+c"},
        {"str x30, [sp, #-16]!; bl f; ldp x30, x9, [sp], #16; add x0, x0, x9; ret", "error reads-unset+c"},
        {"str x30, [sp, #-16]!; bl f; ldp x30, x9, [sp], #16; str x9, [x0]; ret", "error reads-unset+c"},
    });
}

TEST(CallingConvention, GivesNoFlags)
{
    expect_findings({
        {"str x30, [sp, #-16]!; cmp x0, #0; bl f; cset x0, eq; ldr x30, [sp], #16; ret",
         "error reads-flags-unset+c"},
        {"b.eq 1f; add x0, x0, #1; 1: ret", "error reads-flags-unset+0"},
        {"adc x0, x0, x1; ret", "error reads-flags-unset+0"},
        {"ccmp x0, #0, #0, eq; ret", "error reads-flags-unset+0"},
        {"1: add x0, x0, #1; b.ne 1b; ret", "error reads-flags-unset+4"},
        {"cbz x0, 1f; cmp x1, #0; 1: cset x0, eq; ret", "warning reads-flags-unset+8"},
    });
}

TEST(CallingConvention, ReservesThePlatformRegisterAndMemoryBelowTheStack)
{
    expect_findings({
        {"ldr x18, [x0]; ret", "warning abi-platform-register+0"},
        {"str x0, [sp, #-8]; ret", "warning abi-below-stack+0"},
    });
}

TEST(CallingConvention, IsUnfollowedWhereTheCodeOrTheFrameIsUnknown)
{
    expect_findings({
        {"stp x29, x30, [sp, #-16]!; mov x29, sp; add x9, x0, #15; and x9, x9, #-16; "
         "sub sp, sp, x9; mov x1, sp; str x0, [x1]; mov sp, x29; "
         "ldp x29, x30, [sp], #16; ret",
         "note unfollowed+18"},
        {"sub sp, sp, #32; str x19, [sp, #16]; mov x9, sp; str x0, [x9, x1, lsl #3]; "
         "mov x19, x1; ldr x19, [sp, #16]; add sp, sp, #32; ret",
         "note unfollowed+c"},
        {"sub sp, sp, #32; str x19, [sp, #16]; mov x9, sp; mov x10, #4; "
         "1: str x0, [x9], #8; subs x10, x10, #1; b.ne 1b; mov x19, x1; "
         "ldr x19, [sp, #16]; add sp, sp, #32; ret",
         "note unfollowed+10"},
        {"stp x29, x30, [sp, #-48]!; str x19, [sp, #16]; mov x19, x0; add x0, sp, #32; "
         "bl f; ldr x19, [sp, #16]; ldp x29, x30, [sp], #48; ret",
         "note unfollowed+10"},
        {"stp x29, x30, [sp, #-48]!; str x19, [sp, #16]; mov x19, x0; mov x9, sp; "
         "str x9, [x1]; ldr x10, [x1]; str x0, [x10, #16]; ldr x19, [sp, #16]; "
         "ldp x29, x30, [sp], #48; ret",
         "note unfollowed+10"},
        {"stp x29, x30, [sp, #-48]!; str x19, [sp, #16]; mov x19, x0; mov x9, sp; "
         "eor x9, x9, x1; eor x9, x9, x1; str x0, [x9, #16]; ldr x19, [sp, #16]; "
         "ldp x29, x30, [sp], #48; ret",
         "note unfollowed+18"},
        {"sub sp, sp, #128; str x19, [sp, #64]; add x9, sp, #64; dc zva, x9; "
         "mov x19, x0; ldr x19, [sp, #64]; add sp, sp, #128; ret",
         "note unfollowed+c"},
        {"stp x29, x30, [sp, #-16]!; mov x29, sp; 1: sub sp, sp, #16; str x0, [sp]; "
         "subs x0, x0, #1; b.ne 1b; mov sp, x29; ldp x29, x30, [sp], #16; ret",
         "note unfollowed+c"},
        {"str x19, [sp, #-32]!; mov x19, x0; cmp x0, #0; mov x9, sp; add x10, sp, #16; "
         "csel x9, x9, x10, eq; str x0, [x9]; ldr x19, [sp], #32; ret",
         "note unfollowed+18"},
        {"adr x9, 1f; br x9; 1: mov x19, x0; ret", "note unfollowed+4"},
        {"mov x19, x0; b .+4096", "note unfollowed+4"},
        {"mov x19, x0; .inst 0xff000001; ret", "note unfollowed+4"},
        {"mov x19, x0; eret", "note unfollowed+4"},
        {"sub sp, sp, #48; str x19, [sp, #16]; mov x19, x0; mov x9, #16; mov x10, sp; "
         "str x0, [x9, x10]; ldr x19, [sp, #16]; add sp, sp, #48; ret",
         "note unfollowed+14"},
        {"sub sp, sp, #48; str x19, [sp, #16]; mov x19, x0; mov x10, sp; "
         "str x0, [x2, x10]; ldr x19, [sp, #16]; add sp, sp, #48; ret",
         "note unfollowed+10"},
        {"sub sp, sp, #48; str x19, [sp, #16]; mov x19, x0; mov x10, sp; mov x11, #16; "
         "st1 {v0.1d}, [x10], x11; str x0, [x10]; ldr x19, [sp, #16]; add sp, sp, #48; "
         "ret",
         "note unfollowed+18"},
        {"stp x29, x30, [sp, #-64]!; add x0, sp, #48; bl f; str x19, [sp, #16]; "
         "mov x19, x0; bl g; ldr x19, [sp, #16]; ldp x29, x30, [sp], #64; ret",
         "note unfollowed+8"},
        {"sub sp, sp, #48; str x19, [sp, #16]; mov x19, x0; mov x10, sp; "
         "1: str x0, [x10]; add x10, x10, #8; cmp x10, x1; b.ne 1b; ldr x19, [sp, #16]; "
         "add sp, sp, #48; ret",
         "note unfollowed+10"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "sub x9, sp, #64; and sp, x9, #-64; str x0, [sp, #64]; ldr x19, [x29, #16]; "
         "mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "note unfollowed+18"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "1: sub sp, sp, #16; str x0, [sp]; subs x1, x1, #1; b.ne 1b; "
         "str x0, [sp, #32]; ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; "
         "ret",
         "note unfollowed+14"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "cbz x1, 1f; sub sp, sp, #16; 1: str x0, [sp, #16]; ldr x19, [x29, #16]; "
         "mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "note unfollowed+18"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "add x9, sp, #16; cbz x1, 1f; mov x9, x2; 1: str x0, [x9]; "
         "ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "note unfollowed+1c"},
        {"stp x29, x30, [sp, #-32]!; mov x29, sp; str x19, [sp, #16]; mov x19, x0; "
         "mov x9, x2; 1: str x0, [x9]; add x9, sp, #16; subs x1, x1, #1; b.ne 1b; "
         "ldr x19, [x29, #16]; mov sp, x29; ldp x29, x30, [sp], #32; ret",
         "note unfollowed+14"},
    });
}

// A saved register is overwritten through an address in the frame that went through other registers or
// memory.
TEST(CallingConvention, IsNotKeptSilentlyByStoresThroughAnAddressInTheFrame)
{
    std::vector<example> examples;
    for (
        const char* const way : {
            "swp x9, x11, [x1]; ldr x10, [x1]",
            "stlr x9, [x1]; ldr x10, [x1]",
            "ldxr x11, [x1]; stxr w12, x9, [x1]; ldr x10, [x1]",
            "fmov d16, x9; str q16, [x1]; ldr x10, [x1]",
            "fmov d16, x9; str d16, [x1]; ldr x10, [x1]",
            "stp x0, x9, [x1]; ldr x10, [x1, #8]",
            "fmov d16, x9; st1 {v16.1d}, [x1]; ldr x10, [x1]",
            "mov v16.d[1], x9; st1 {v16.d}[1], [x1]; ldr x10, [x1]",
            "ldadd x9, x11, [x1]; ldr x10, [x1]",
            "str xzr, [x1]; stadd x9, [x1]; ldr x10, [x1]",
            "str xzr, [x1]; stset x9, [x1]; ldr x10, [x1]",
            "mov x11, #0; cas x11, x9, [x1]; ldr x10, [x1]",
            "pacda x9, x1; autda x9, x1; mov x10, x9",
            "orr x10, x9, x1",
            "ubfx x10, x9, #0, #48",
            "lsl x10, x9, #1; lsr x10, x10, #1",
            "rev x10, x9; rev x10, x10",
            "extr x10, x9, x9, #0",
            "mov x11, #1; madd x10, x9, x11, xzr",
            "cmp x0, #0; csel x10, x9, x1, eq",
            "cmp x0, #0; csinc x10, x1, x9, eq",
            "neg x10, x9; neg x10, x10",
            "mvn x10, x9; mvn x10, x10",
            "dup v16.2d, x9; umov x10, v16.d[1]",
            "fmov d16, x9; movi v17.16b, #0; tbl v18.16b, {v16.16b}, v17.16b; fmov x10, d18",
            "fmov d16, x9; zip1 v16.2d, v16.2d, v16.2d; fmov x10, d16",
            "fmov d16, x9; add d16, d16, d17; fmov x10, d16",
            "mov z16.d, x9; ptrue p0.d; lasta x10, p0, z16.d",
            "mov z16.d, x9; ptrue p0.d; st1d {z16.d}, p0, [x1]; ldr x10, [x1]",
            "mov z16.d, x9; str z16, [x1]; ldr x10, [x1]",
            "str x9, [sp, #32]; ldr x10, [sp, #32]",
            "str x9, [sp, #32]; ldr q16, [sp, #32]; fmov x10, d16",
            "strb w9, [x1]; lsr x11, x9, #8; str x11, [x1, #1]; ldr x10, [x1]",
            "mov x11, #0; sub x11, x11, x9; neg x10, x11",
            "add x10, x9, x2",
            "mov x29, x9; mov x10, x29; ldr x29, [x2]",
            "stgp x9, x0, [x1]; ldr x10, [x1]",
            "mov x11, #1; udiv x10, x9, x11",
            "mov x20, x9; mov x0, x9; stp x30, x20, [sp, #-16]!; bl f; ldp x30, x20, [sp], #16; mov x10, x0",
            "mov v16.d[0], x9; fmov x10, d16",
            "movi v16.2d, #0; mov v16.d[1], x9; mov v17.d[0], v16.d[1]; fmov x10, d17",
            "fmov d16, x9; ext v17.16b, v16.16b, v16.16b, #0; fmov x10, d17",
            "str x9, [x1]; ld1r {v16.2d}, [x1]; fmov x10, d16",
            "fmov d16, x9; movi v17.2d, #0; orr v17.16b, v17.16b, v16.16b; fmov x10, d17",
            "fmov d16, x9; ptrue p0.d; sel z17.d, p0, z16.d, z0.d; fmov x10, d17",
            "fmov d16, x9; movprfx z17, z16; add z17.d, z17.d, #1; fmov x10, d17",
            "mov z16.d, #0; insr z16.d, x9; fmov x10, d16",
            "index z16.d, x9, #1; fmov x10, d16",
            "fmov d16, x9; movi v17.2d, #0xffffffffffffffff; bsl v17.16b, v16.16b, v0.16b; fmov x10, d17",
            "fmov d16, x9; movi v17.2d, #0; bit v17.16b, v16.16b, v0.16b; fmov x10, d17",
            "fmov d16, x9; movi v17.2d, #0; sli v17.2d, v16.2d, #0; fmov x10, d17",
            "fmov d16, x9; movi v17.2d, #0; sri v17.2d, v16.2d, #1; fmov x10, d17",
            "fmov d16, x9; movi v18.16b, #0; tbx v17.16b, {v16.16b}, v18.16b; fmov x10, d17",
            "fmov d16, x9; trn1 v17.2d, v16.2d, v16.2d; fmov x10, d17",
            "fmov d16, x9; urhadd v17.4s, v16.4s, v16.4s; fmov x10, d17",
            "cmp x9, x1; csinv x10, x9, xzr, ne",
            "sbfx x10, x9, #0, #48",
            "add x10, sp, x2",
            "sub x10, sp, x2",
            "and x10, x9, #0xfffffffffffffff0",
            "stp x9, x9, [sp, #32]; ldp x11, x10, [sp, #32]",
            "stp x9, x9, [sp, #32]; add x12, sp, #32; ldxp x11, x10, [x12]",
            "add x12, sp, #32; str x9, [x12]; swp x0, x10, [x12]",
            "stp x9, x9, [sp, #32]; add x12, sp, #32; mov x2, #0; mov x3, #0; mov x4, #0; mov x5, #0; casp x2, x3, x4, x5, [x12]; mov x10, x2",
            "str x9, [sp, #32]; add x12, sp, #32; mov x10, #0; cas x10, x0, [x12]",
            "stp x9, x0, [x1]; ldr x10, [x1]",
            "stnp x9, x0, [x1]; ldr x10, [x1]",
            "sttr x9, [x1]; ldr x10, [x1]",
            "stllr x9, [x1]; ldr x10, [x1]",
            "ldxp x11, x12, [x1]; stxp w13, x9, x0, [x1]; ldr x10, [x1]",
            "fmov d16, x9; fmov d17, x9; st2 {v16.2d, v17.2d}, [x1]; ldr x10, [x1]",
            "adds x10, x9, #0",
            "cmp x0, x0; adc x10, x9, xzr",
            "mov x11, #-1; umulh x10, x9, x11",
            "clz x11, x9; rbit x10, x9; rbit x10, x10",
            "crc32x w10, w0, x9",
            "xpacd x9; mov x10, x9",
            "irg x10, x9",
            "addg x10, x9, #0, #1",
        }) {
        examples.push_back({std::string("sub sp, sp, #48; str x19, [sp, #16]; mov x19, x0; mov x9, sp; ") +
                                way + "; str x0, [x10, #16]; ldr x19, [sp, #16]; add sp, sp, #48; ret",
                            ""});
    }
    const std::vector<std::string> found = findings_of(examples);
    for (std::size_t i = 0; i < examples.size(); ++i) {
        EXPECT_TRUE(found[i].find("unfollowed") != std::string::npos ||
                    found[i].find("abi-callee-saved") != std::string::npos)
            << examples[i].code;
    }
}

TEST(CallingConvention, IsNotLookedAtIfNoneIsKept)
{
    analysis_options options;
    options.aapcs64 = false;
    EXPECT_EQ(findings_of({{"mov x19, x9; sub sp, sp, #8; ret", ""}}, options), std::vector<std::string>{""});
}

TEST(CallingConvention, OfInternalKernelsIsTheirCallers)
{
    analysis_options options;
    options.is_internal = [](const std::string& name) {
        return name == "k0" || name == "k1" || name == "k2";
    };
    const std::vector<example> examples = {
        {"mov x19, x0; mov x9, #1; ret", ""},
        {"add x0, x20, x10; ret", ""},
        {"str x30, [sp, #-16]!; bl k0; ldr x30, [sp], #16; ret", ""},
        {"str x30, [sp, #-16]!; bl k0; add x0, x0, x9; ldr x30, [sp], #16; ret", "error abi-callee-saved+4"},
        {"stp x30, x19, [sp, #-16]!; bl k0; add x0, x19, x9; ldp x30, x19, [sp], #16; ret", ""},
        {"str x30, [sp, #-16]!; bl k1; ldr x30, [sp], #16; ret", "error reads-unset+4, error reads-unset+4"},
        {"stp x30, x20, [sp, #-16]!; mov x20, x0; mov x10, x1; bl k1; ldp x30, x20, [sp], #16; ret", ""},
        {"str x30, [sp, #-16]!; bl k2; ldr x30, [sp], #16; ret", "error abi-callee-saved+4"},
        {"stp x30, x19, [sp, #-16]!; mov x11, #5; bl k0; str x11, [x0]; ldp x30, x19, [sp], #16; ret", ""},
    };
    const std::vector<std::string> found = findings_of(examples, options);
    for (std::size_t i = 0; i < examples.size(); ++i)
        EXPECT_EQ(found[i], examples[i].findings) << examples[i].code;
}

TEST(CallingConvention, IsNotLookedAtOnWaysThatAConstantRulesOut)
{
    expect_findings({
        {"mov x1, #0; cbnz x1, 1f; ret; 1: mov x19, #1; ret", ""},
        {"mov x1, #0; cbz x1, 1f; ret; 1: mov x19, #1; ret", "error abi-callee-saved+c"},
        {"mov x1, #1; cbz x1, 1f; mov x19, #1; 1: ret", "error abi-callee-saved+8"},
        {"mov x1, #1; cbnz x1, 1f; mov x19, #1; 1: ret", ""},
        {"mov x1, #4; tbz x1, #2, 1f; ret; 1: mov x19, #1; ret", ""},
        {"mov x1, #4; tbnz x1, #2, 1f; ret; 1: mov x19, #1; ret", "error abi-callee-saved+c"},
        {"mov x1, #-1; tbnz x1, #63, 1f; mov x19, #1; 1: ret", ""},
        {"eor x1, x0, x0; cbz w1, 1f; mov x19, #1; 1: ret", ""},
        {"cbz xzr, 1f; mov x19, #1; 1: ret", ""},
        {"mov x1, #0; cbz x0, 2f; mov x1, x2; 2: cbz x1, 1f; mov x19, #1; 1: ret",
         "error abi-callee-saved+10"},
        {"mov x1, #3; 2: sub x1, x1, #1; cbnz x1, 2b; mov x19, #1; ret", "error abi-callee-saved+c"},
        {"mov x1, #0; cbz x1, 1f; 1: mov x19, #1; ret", "error abi-callee-saved+8"},
        {"stp x30, xzr, [sp, #-16]!; add x0, sp, #8; bl f; ldp x30, x1, [sp], #16; cbz x1, 1f; "
         "mov x19, #1; 1: ret",
         "error abi-callee-saved+14, note unfollowed+8"},
    });
}

TEST(CallingConvention, EndsAtCallsThatNeverReturn)
{
    expect_findings({
        {"mov x9, x30; mov x19, #1; bl 1f; mov x30, x9; ret; 1: brk #1", ""},
        {"mov x9, x30; mov x19, #1; bl 1f; mov x30, x9; ret; 1: b 1b", ""},
        {"mov x9, x30; mov x19, #1; bl 1f; mov x30, x9; ret; 1: cbz x0, 2f; brk #1; 2: ret",
         "error abi-callee-saved+4"},
    });
    analysis_options options;
    options.is_internal = [](const std::string& name) { return name == "k0"; };
    const std::vector<std::string> found = findings_of(
        {{"1: b 1b", ""}, {"str x30, [sp, #-16]!; mov x19, #1; bl k0; ldr x30, [sp], #16; ret", ""}},
        options);
    EXPECT_EQ(found[1], "");
}

TEST(CallingConvention, OfInternalKernelsGivesWhatTheyReadOnSomeWay)
{
    analysis_options options;
    options.is_internal = [](const std::string& name) { return name == "k0" || name == "k1"; };
    const std::string call = "str x30, [sp, #-16]!; bl k0; ldr x30, [sp], #16; ret";
    const auto found = [&](const std::string& internal, const std::string& before) {
        return findings_of({{internal, ""},
                            {"str x30, [sp, #-16]!; bl k0; ldr x30, [sp], #16; ret", ""},
                            {before + "str x30, [sp, #-16]!; bl k1; ldr x30, [sp], #16; ret", ""},
                            {before + call, ""}},
                           options);
    };
    const std::string joined = "cbz x0, 1f; mov x9, x10; b 2f; 1: mov x9, x11; 2: str x9, [x1]; ret";
    const std::string both = "warning reads-unset+4, warning reads-unset+4";
    EXPECT_EQ(found(joined, "")[3], both);
    EXPECT_EQ(found(joined, "")[2], both) << "through another internal kernel";
    EXPECT_EQ(found(joined, "mov x10, #1; ")[3], "warning reads-unset+8");
    EXPECT_EQ(found(joined, "mov x10, #1; mov x11, #1; ")[3], "");
    EXPECT_EQ(found("cbz x0, 1f; mov x9, #1; 1: str x9, [x1]; ret", "")[3], "warning reads-unset+4");
    EXPECT_EQ(found("cbz x0, 1f; mov x9, #1; 1: mov x9, #2; str x9, [x1]; ret", "")[3], "");
}

TEST(CallingConvention, CoversScalableRegistersIfAKernelTakesThem)
{
    expect_findings({
        {"mov z8.d, p0/m, x0; ret", "error abi-callee-saved+0"},
        {"ptrue p4.d; mov z0.d, p0/m, x0; ret", "error abi-callee-saved+0"},
        {"ptrue p4.d; ret", ""},
        {"add z0.d, z0.d, z1.d; mov z16.d, #0; ret", "warning abi-callee-saved+4"},
        {"fadd v0.2d, v0.2d, v1.2d; mov z16.d, #0; ret", ""},
    });
}

} // namespace
