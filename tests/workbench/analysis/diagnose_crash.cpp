// Why an instruction of a kernel raised a signal: by the place of the PC, the signal and the instruction.

#include "workbench/analysis/diagnose_crash.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;
using support::placed;
using testing::ElementsAre;
using testing::IsEmpty;
using vorna::wfta::finding_id;
using vorna::wfta::finding_severity;
using vorna::wfta::kernel_finding;

constexpr std::uint64_t base = 0x7f0000001000; // of the kernel "k", and of its mapping
constexpr std::uint32_t nop = 0xd503201f;
constexpr std::uint32_t ret = 0xd65f03c0;

/// A set of the kernel "k" with this first word, a NOP and a RET, and of "caller", whose second word calls
/// it.
kernel_set make_set(std::uint32_t word = nop)
{
    return make_kernel_set({placed("k", base, {word, nop, ret}, {}, support::bytes_of({1.5}), base + 0x800),
                            placed("caller", base + 0x20, {0xa9bf7bfd, 0x94000000, 0xa8c17bfd, ret},
                                   {{"k", 4, 283, 0}}, {}, base + 0x808)});
}

crash_report crash_at(std::uint64_t pc, crash_signal signal)
{
    crash_report crash;
    crash.signal = signal;
    crash.pc = pc;
    return crash;
}

kernel_finding finding(finding_id id, finding_severity severity, std::size_t kernel,
                       std::optional<std::int64_t> offset = {})
{
    return {id, severity, false, kernel, kernel == 0 ? "k" : "caller", {}, offset, "m", "", ""};
}

/// Message and cause of a crash at the first word of "k".
std::vector<std::string> diagnosed(std::uint32_t word, const crash_report& crash)
{
    const crash_diagnosis found = diagnose_crash(crash, make_set(word), {});
    EXPECT_TRUE(found.known);
    return {found.message, found.cause};
}

std::vector<std::string> diagnosed(std::uint32_t word, crash_signal signal)
{
    return diagnosed(word, crash_at(base, signal));
}

TEST(DiagnoseCrash, IllegalInstructionSaysWhyItIsIllegal)
{
    EXPECT_THAT(
        diagnosed(0x00000000, crash_signal::ill),
        ElementsAre("SIGILL at k+0x0: udf #0",
                    "UDF, which raises SIGILL: zeros in the code, where no instruction was generated"));
    EXPECT_THAT(diagnosed(0xffffffff, crash_signal::ill),
                ElementsAre("SIGILL at k+0x0: 0xffffffff", "this word is not an instruction"));
    EXPECT_THAT(diagnosed(0x04200000, crash_signal::ill),
                ElementsAre("SIGILL at k+0x0: add z0.b, z0.b, z0.b",
                            "the processor lacks what this instruction needs: sve"));
    EXPECT_THAT(
        diagnosed(nop, crash_signal::ill),
        ElementsAre("SIGILL at k+0x0: nop",
                    "every AArch64 processor has this instruction: the code in memory is not the dump's, "
                    "or a user's program may not execute it"));
}

TEST(DiagnoseCrash, IllegalInstructionInDataSaysSo)
{
    // ldr w0, .+8; ret; data
    const kernel_set set = make_kernel_set({placed("k", base, {0x18000040, ret, 0x3d2aaaab})});
    const crash_diagnosis found = diagnose_crash(crash_at(base + 8, crash_signal::ill), set, {});
    EXPECT_EQ(found.cause,
              "this is data in the code, which control reached: no branch of the kernel leads here");
}

TEST(DiagnoseCrash, TrapIsTheKernelsOwnOrADebuggers)
{
    EXPECT_THAT(diagnosed(0xd4200020, crash_signal::trap),
                ElementsAre("SIGTRAP at k+0x0: brk #0x1",
                            "the kernel has this trap in its code, and control reached it"));
    EXPECT_THAT(
        diagnosed(nop, crash_signal::trap),
        ElementsAre("SIGTRAP at k+0x0: nop", "not a trap: a breakpoint or a single step of a debugger"));
}

TEST(DiagnoseCrash, BusErrorOfAnAccessThatMustBeAlignedHasTheAddress)
{
    crash_report crash = crash_at(base, crash_signal::bus);
    EXPECT_THAT(diagnosed(0xc85ffc01, crash),
                ElementsAre("SIGBUS at k+0x0: ldaxr x1, [x0]",
                            "an exclusive access must be aligned: its address is not a multiple of 8"));
    crash.registers[0] = 0x5500040741;
    EXPECT_EQ(diagnosed(0xc85ffc01, crash)[1],
              "an exclusive access must be aligned, and 0x5500040741 is not a multiple of 8");
    EXPECT_EQ(diagnosed(0x88dffc01, crash)[1], // ldar w1, [x0]
              "a load-acquire or store-release must be aligned, and 0x5500040741 is not a multiple of 4");
    EXPECT_EQ(diagnosed(0xf8210001, crash)[1], // ldadd x1, x1, [x0]
              "an atomic access must be aligned, and 0x5500040741 is not a multiple of 8");
    EXPECT_EQ(
        diagnosed(0xf9400001, crash)[1], // ldr x1, [x0]
        "not an access that must be aligned: a file that is mapped has become shorter, or the memory is a "
        "device's");
    EXPECT_EQ(diagnosed(nop, crash)[1],
              "the instruction accesses no memory: the page that it is in cannot be read");
}

TEST(DiagnoseCrash, BusErrorOfAnAccessThroughSpIsOfSp)
{
    crash_report crash = crash_at(base, crash_signal::bus);
    const std::uint32_t load = 0xf94003e1; // ldr x1, [sp]
    EXPECT_EQ(diagnosed(load, crash)[1],
              "SP is probably not a multiple of 16, which every access through it requires");
    crash.registers[31] = 0x7ffff8;
    EXPECT_EQ(diagnosed(load, crash)[1],
              "SP is 0x7ffff8, not a multiple of 16, which every access through it requires");
    crash.registers[31] = 0x7ffff0;
    EXPECT_THAT(diagnosed(load, crash)[1], testing::StartsWith("not an access that must be aligned"));
}

TEST(DiagnoseCrash, SegmentationFaultSaysWhatTheAddressIs)
{
    const std::uint32_t load = 0xf9400401; // ldr x1, [x0, #8]
    crash_report crash = crash_at(base, crash_signal::segv);
    EXPECT_THAT(diagnosed(load, crash), ElementsAre("SIGSEGV at k+0x0: ldr x1, [x0, #8]", ""));
    EXPECT_THAT(diagnose_crash(crash, make_set(load), {}).notes, ElementsAre("8-byte load through x0"));
    crash.registers[0] = 0;
    EXPECT_EQ(diagnosed(load, crash)[1], "the address is 0x8: a null pointer in x0");
    crash.registers[0] = 0x123456780;
    EXPECT_EQ(diagnosed(load, crash)[1],
              "nothing is mapped at 0x123456788, or it may not be accessed in this way");
    crash.fault_address = 0x987654321;
    EXPECT_EQ(diagnosed(load, crash)[1],
              "nothing is mapped at 0x987654321, or it may not be accessed in this way")
        << "the log's address, not the register's";
    crash.fault_address = base + 0x804;
    EXPECT_EQ(diagnosed(load, crash)[1],
              "the address 0x7f0000001804 is in a kernel's mapping (.rodata.k+0x4), "
              "which was unmapped or made read-only");
    crash.fault_address = 0x7ffff0;
    EXPECT_EQ(diagnosed(0xa9bf7bfd, crash)[1], // stp x29, x30, [sp, #-16]!
              "the address 0x7ffff0 is on the stack: it is full, or SP is wrong");
}

TEST(DiagnoseCrash, SegmentationFaultComputesTheAddressOfEachMode)
{
    crash_report crash = crash_at(base, crash_signal::segv);
    crash.registers[0] = 0x100;
    EXPECT_EQ(diagnosed(0xf8410c01, crash)[1], "the address is 0x110: a null pointer in x0"); // [x0, #16]!
    EXPECT_EQ(diagnosed(0xf8410401, crash)[1], "the address is 0x100: a null pointer in x0"); // [x0], #16
    EXPECT_EQ(diagnosed(0xf85f8001, crash)[1], "the address is 0xf8: a null pointer in x0");  // [x0, #-8]
    EXPECT_EQ(diagnosed(0xf8626801, crash)[1], "") << "ldr x1, [x0, x2], and X2 is not known";
}

TEST(DiagnoseCrash, SegmentationFaultOfAnotherInstructionIsOfItsFetch)
{
    EXPECT_EQ(
        diagnosed(nop, crash_signal::segv)[1],
        "the instruction accesses no memory, so it could not be fetched: the kernel's mapping was unmapped, "
        "or may not be executed");
}

TEST(DiagnoseCrash, WithinAnInstructionIsAWrongBranch)
{
    EXPECT_THAT(diagnosed(nop, crash_at(base + 2, crash_signal::bus)),
                ElementsAre("SIGBUS at k+0x2: the PC is not a multiple of 4",
                            "a RET or a branch to a register took a number that is not an address of code"));
}

TEST(DiagnoseCrash, AfterTheCodeIsFallingThrough)
{
    const crash_diagnosis found =
        diagnose_crash(crash_at(base + 12, crash_signal::ill), make_set(),
                       {finding(finding_id::erratum_843419, finding_severity::warning, 0, 0),
                        finding(finding_id::falls_through, finding_severity::error, 0, 8),
                        finding(finding_id::pair, finding_severity::error, 1, 8)});
    EXPECT_EQ(found.message, "SIGILL in padding, at the end of k");
    EXPECT_EQ(found.cause, "control ran past the end of k, or a branch led there");
    EXPECT_THAT(found.findings, ElementsAre(1, 0)) << "of this kernel, and what explains it first";
}

TEST(DiagnoseCrash, InConstantsIsAWrongReturnOrBranch)
{
    crash_report crash = crash_at(base + 0x800, crash_signal::ill);
    EXPECT_EQ(diagnosed(nop, crash)[0], "SIGILL at .rodata.k+0x0: constants were executed");
    EXPECT_EQ(diagnosed(nop, crash)[1], "a RET or a branch to a register led here");
    crash.registers[30] = base + 0x800;
    EXPECT_EQ(diagnosed(nop, crash)[1], "X30 has this address: a RET returned here");
}

TEST(DiagnoseCrash, WithoutADumpOfTheKernelAsksForIt)
{
    const crash_diagnosis found = diagnose_crash(crash_at(base + 0x100, crash_signal::ill), make_set(), {});
    EXPECT_EQ(found.message, "SIGILL in no kernel that was dumped, 208 bytes after the end of caller");
    EXPECT_THAT(found.help,
                ElementsAre("dump every kernel: VORNA_WFTA_DUMP_KERNEL=, with nothing after the ="));
}

TEST(DiagnoseCrash, NamesTheCallersFromX30AndTheBacktrace)
{
    crash_report crash = crash_at(base, crash_signal::segv);
    crash.line = 3;
    crash.registers[30] = base + 0x28;
    crash.frames = {{base, "?? ()", 4}, {base + 0x28, "?? ()", 5}, {0x400a3c, "main ()", 6}};
    const crash_diagnosis found = diagnose_crash(crash, make_set(), {});
    ASSERT_EQ(found.callers.size(), 1U) << "once, though two lines say so";
    EXPECT_EQ(location_text(make_set(), found.callers[0].location), "caller+0x4");
    EXPECT_EQ(found.callers[0].line, 3U);
    crash.registers[30] = base + 0x24; // does not follow a call
    EXPECT_EQ(diagnose_crash(crash, make_set(), {}).callers.at(0).line, 5U);
}

TEST(DiagnoseCrash, OutsideTheKernelsSuspectsThoseThatReturned)
{
    const std::vector<kernel_finding> findings = {
        finding(finding_id::pair, finding_severity::error, 0, 0),
        finding(finding_id::abi_callee_saved, finding_severity::error, 1, 4),
        finding(finding_id::abi_platform_register, finding_severity::warning, 1, 8),
        finding(finding_id::abi_stack_pointer, finding_severity::error, 0, 8),
        finding(finding_id::abi_return_address, finding_severity::error, 0, 8)};
    const crash_diagnosis found =
        diagnose_crash(crash_at(0x400a3c, crash_signal::segv), make_set(), findings);
    EXPECT_EQ(found.message, "SIGSEGV at 0x400a3c, in no kernel");
    EXPECT_EQ(
        found.cause,
        "the host's own code; a kernel that has returned may have left it a wrong register or stack pointer");
    EXPECT_THAT(found.findings, ElementsAre(1, 3, 4));
}

TEST(DiagnoseCrash, AtAWrongReturnAddressSuspectsThoseThatLoseIt)
{
    const std::vector<kernel_finding> findings = {
        finding(finding_id::abi_callee_saved, finding_severity::error, 1, 4),
        finding(finding_id::abi_stack_pointer, finding_severity::error, 0, 8),
        finding(finding_id::abi_return_address, finding_severity::error, 1, 8),
        finding(finding_id::unfollowed, finding_severity::note, 0, 4)};
    crash_report crash = crash_at(0x400a3c, crash_signal::segv);
    EXPECT_THAT(diagnose_crash(crash, make_set(), findings).findings, ElementsAre(0, 1, 2));
    crash.registers[30] = 0x400a3c;
    EXPECT_THAT(diagnose_crash(crash, make_set(), findings).findings, ElementsAre(1, 2, 0));
    EXPECT_THAT(diagnose_crash(crash_at(1, crash_signal::segv), make_set(), findings).findings,
                ElementsAre(1, 2, 0));
    EXPECT_THAT(
        diagnose_crash(crash_at(1, crash_signal::segv), make_set(), {findings[3], findings[0]}).findings,
        ElementsAre(1, 0))
        << "and where control goes by a register";
}

TEST(DiagnoseCrash, OutsideTheKernelsClearsThoseThatKeepTheConvention)
{
    const crash_report crash = crash_at(0x400a3c, crash_signal::segv);
    EXPECT_EQ(diagnosed(nop, crash)[1], "the host's own code, and no kernel breaks the calling convention");
    EXPECT_EQ(
        diagnose_crash(crash, make_set(),
                       {finding(finding_id::unfollowed, finding_severity::note, 1, 4),
                        finding(finding_id::abi_stack_pointer, finding_severity::warning, 0, 8)})
            .cause,
        "the host's own code; no kernel is known to break the calling convention, but not all code could be "
        "followed");
}

TEST(DiagnoseCrash, OutsideTheKernelsIsACallOrALostReturn)
{
    crash_report crash = crash_at(0x400a3c, crash_signal::segv);
    crash.registers[30] = base + 0x28;
    EXPECT_EQ(diagnosed(nop, crash)[1], "a kernel called what is there");
    crash.registers[30] = 0x400a3c;
    EXPECT_EQ(diagnosed(nop, crash)[1],
              "X30 has this address: a RET returned here, since the return address was lost");
    for (const std::uint64_t pc : {std::uint64_t{0x10}, std::uint64_t{0x400a3e}})
        EXPECT_EQ(diagnosed(nop, crash_at(pc, crash_signal::segv))[1],
                  "not an address of code: a RET or a branch to a register took a wrong one");
    crash = crash_at(0x12340000, crash_signal::segv);
    crash.fault_address = 0x12340000;
    EXPECT_EQ(diagnosed(nop, crash)[1],
              "not an address of code: a RET or a branch to a register took a wrong one");
}

TEST(DiagnoseCrash, InTheFirstCopyIsARefusedMapping)
{
    crash_report crash = crash_at(0x7ff364d8b87a, crash_signal::segv);
    crash.frames = {{0x7ff364d8b87a, "__memcpy_generic ()", 3},
                    {0x400a3c, "vorna::wfta::finalise_kernels(std::map<...", 4}};
    const auto message = [&] { return diagnose_crash(crash, {}, {}).message; };
    EXPECT_EQ(message(),
              "SIGSEGV in finalise_kernels, probably at its first copy: the system refused the mapping");
    crash.fault_address = 0;
    EXPECT_EQ(message(), "SIGSEGV in finalise_kernels, at its first copy: the system refused the mapping");
    crash.pc.reset();
    EXPECT_NE(message(), "") << "gdb does not print the address of a line's first instruction";
    crash.fault_address = 0x7f0000001000;
    EXPECT_EQ(message(), "");
    crash.fault_address = 0;
    crash.frames.insert(crash.frames.begin() + 1, {0x400a00, "emit_single(...)", 4});
    EXPECT_EQ(message(), "") << "copied already";
}

TEST(DiagnoseCrash, PutsFindingsAtTheInstructionFirst)
{
    const std::vector<kernel_finding> findings = {
        finding(finding_id::erratum_843419, finding_severity::warning, 0, 8),
        finding(finding_id::pair, finding_severity::error, 0),
        finding(finding_id::outside_constants, finding_severity::error, 1, 0),
        finding(finding_id::data_alignment, finding_severity::note, 0, 8),
        finding(finding_id::data_alignment, finding_severity::note, 0, 0)};
    const auto of = [&](const crash_report& crash) { return diagnose_crash(crash, make_set(), findings); };
    EXPECT_THAT(of(crash_at(base, crash_signal::segv)).findings, ElementsAre(4, 1, 0));
    crash_report called = crash_at(base + 4, crash_signal::segv);
    called.registers[30] = base + 0x28;
    EXPECT_THAT(of(called).findings, ElementsAre(1, 2, 0)) << "an error of the caller before a warning";
    called.pc = base;
    EXPECT_THAT(of(called).findings, ElementsAre(4, 1, 2));
    EXPECT_EQ(of(called).more_findings, 1U);
    EXPECT_THAT(of(crash_at(0x400a3c, crash_signal::segv)).findings, IsEmpty());
}

TEST(DiagnoseCrash, IsNotKnownWithoutAPcOrDumps)
{
    EXPECT_FALSE(diagnose_crash(crash_at(base, crash_signal::segv), {}, {}).known);
    crash_report crash;
    crash.signal = crash_signal::ill;
    EXPECT_FALSE(diagnose_crash(crash, make_set(), {}).known);
}

TEST(DiagnoseCrash, TellsACrashInKernelsFromOtherBacktraces)
{
    crash_report crash = crash_at(0x400a3c, crash_signal::unknown);
    crash.frames = {{0x400a3c, "", 1}, {std::nullopt, "", 2}};
    EXPECT_FALSE(meets_kernels(crash, make_set()));
    crash.frames.push_back({base + 0x28, "", 3});
    EXPECT_TRUE(meets_kernels(crash, make_set()));
    EXPECT_TRUE(meets_kernels(crash_at(base + 0xfff, crash_signal::unknown), make_set()));
    EXPECT_FALSE(meets_kernels(crash, {}));
}

} // namespace
