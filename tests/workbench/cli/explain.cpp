// The command explain, as its user meets it.

#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace a64 = support::a64;
using support::child_result;
using support::run_tool;
using support::temp_directory;
using testing::HasSubstr;
using testing::StartsWith;

// What examples/first_kernel wrote under qemu-aarch64, with its second relocation at offset 8, type 283.
const std::string log_of_qemu =
    "resolving R_AARCH64_CALL26 reloc but dst address 0x5502d5e008 was already filled, got 0xb9400000\n"
    "  answer \t 0x5502d5e000 0x10 0x5502d5e020 0x4\n"
    "planner: ../../fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const "
    "kernel_registry_map&): Assertion `false' failed.\n"
    "qemu: uncaught target signal 6 (Aborted) - core dumped\n";

const std::string explained_without_dumps =
    "answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero "
    "[field-filled]\n"
    "    log    log:1\n"
    "    cause  the offset points at ldr w0, [x0]\n"
    "    do     give the relocation the offset of the BL that it is for\n"
    "1 report\n";

class Explain : public testing::Test {
protected:
    void write(const std::string& name, const std::string& text)
    {
        support::write_file(directory_.path() / name, text);
    }

    // The dump of that process, as its text address has it.
    void write_dump(std::uint64_t text = 0x5502d5e000, const std::string& name = "dumps/answer")
    {
        std::filesystem::create_directories((directory_.path() / name).parent_path());
        tessjit::elf_data elf;
        elf.fns.emplace_back(
            "answer", support::address(text),
            support::code({a64::adrp(0), a64::add(0, 0, 0), 0xb9400000, a64::ret()}),
            support::address(text + 0x20), std::vector<std::uint8_t>{42, 0, 0, 0},
            std::vector<tessjit::reloc_info>{{".rodata.answer", 0, 275, 0}, {".rodata.answer", 8, 283, 0}});
        write(name, support::to_string(tessjit::emit_elf(elf)));
    }

    child_result explain(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "explain"});
        return run_tool(std::move(arguments), directory_.path());
    }

    temp_directory directory_;
};

TEST_F(Explain, ShowsTheInstructionItsNeighboursTheRelocationTheCauseAndTheRemedy)
{
    write("log", log_of_qemu);
    write_dump();
    const child_result child = explain({"log", "--dumps", "dumps"});
    EXPECT_EQ(child.out,
              "answer+0x8: error: R_AARCH64_CALL26: the field of 0xb9400000 is not zero [field-filled]\n"
              "    +00  90000000  adrp  x0, .rodata\n"
              "    +04  91000000  add   x0, x0, #0\n"
              "  > +08  b9400000  ldr   w0, [x0]                     ; not a BL\n"
              "    +0c  d65f03c0  ret\n"
              "    relocation 2 of 2: .rodata.answer + 0, type 283, offset 8\n"
              "    log    log:1\n"
              "    cause  the offset points at ldr w0, [x0]; +0x4 has an ADD and no "
              "relocation\n"
              "    do     {\".rodata.answer\", 4, 277, 0}\n"
              "1 report\n");
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.exit_status, 0);
}

TEST_F(Explain, ListsTheWordsThatWereGenerated)
{
    // The first relocation, applied, has made 0x90028009 of the ADRP, which is no code of anybody.
    const std::uint64_t text = 0x5502d5e000;
    write("log",
          "resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but dst address 0x5502d5e004 was already filled, got "
          "0x91000129\n"
          "  k \t 0x5502d5e000 0xc 0x5502d5e0a0 0x4\n"
          "planner: ../../fft/SRC/wfta/kernel_printer.cpp:49: void debug_dump_kernels_and_fail(const "
          "kernel_registry_map&): Assertion `false' failed.\n");
    tessjit::elf_data elf;
    elf.fns.emplace_back(
        "k", support::address(text), support::code({a64::adrp(9), a64::add(9, 9, 0), a64::ret()}),
        support::address(text + 0xa0), std::vector<std::uint8_t>{42, 0, 0, 0},
        std::vector<tessjit::reloc_info>{{".rodata.k", 0, 277, 0}, {".rodata.k", 4, 275, 0}});
    write("k", support::to_string(tessjit::emit_elf(elf)));
    EXPECT_EQ(explain({"log", "--dumps", "k"}).out,
              "k+0x4: error: R_AARCH64_ADR_PREL_PG_HI21: the field of 0x91000129 is not zero [field-filled]\n"
              "    +00  90000009  adrp  x9, 0x5502d5e000             ; R_AARCH64_ADD_ABS_LO12_NC .rodata\n"
              "  > +04  91000129  add   x9, x9, #0                   ; not an ADRP\n"
              "    +08  d65f03c0  ret\n"
              "    relocation 2 of 2: .rodata.k + 0, type 275, offset 4\n"
              "    log    log:1\n"
              "    cause  the offsets of the relocations 1 and 2 are exchanged\n"
              "    do     {\".rodata.k\", 0, 275, 0}, {\".rodata.k\", 4, 277, 0}\n"
              "1 report\n");
}

TEST_F(Explain, SaysWhatTheReportAloneTells)
{
    write("log", log_of_qemu);
    const child_result child = explain({"log"});
    EXPECT_EQ(child.out, explained_without_dumps +
                             "note: with the dumps of that process, --dumps DUMPS gives "
                             "the relocation and its correction\n");
    EXPECT_EQ(child.exit_status, 0);
}

TEST_F(Explain, ReadsStandardInputWithoutALog)
{
    write("log", log_of_qemu);
    for (const std::string arguments : {" explain <log", " explain - <log"}) {
        const child_result child =
            run_tool({"sh", "-c", std::string(VORNA_KERNELS) + arguments}, directory_.path());
        EXPECT_THAT(child.out, HasSubstr("    log    standard input:1\n")) << arguments;
        EXPECT_EQ(child.exit_status, 0) << child;
    }
}

TEST_F(Explain, PrintsTheSameFactsAsJson)
{
    write("log", log_of_qemu);
    write_dump();
    const child_result child = explain({"log", "--dumps", "dumps", "--format=json"});
    EXPECT_EQ(child.out, R"({
  "version": 2,
  "report": "field-filled",
  "kernel": "answer",
  "offset": 8,
  "relocation": 1,
  "type": 283,
  "target": ".rodata.answer",
  "addend": 0,
  "distance": 24,
  "range": [
    -134217728,
    134217727
  ],
  "cause": "the offset points at ldr w0, [x0]; +0x4 has an ADD and no relocation",
  "help": "{\".rodata.answer\", 4, 277, 0}",
  "message": "R_AARCH64_CALL26: the field of 0xb9400000 is not zero",
  "line": 1,
  "notes": [],
  "fits": [],
  "more": []
}
)");
    EXPECT_EQ(child.exit_status, 0);
}

TEST_F(Explain, HasNullInJsonForWhatIsNotKnown)
{
    write("log", "nothing\n");
    const child_result none = explain({"log", "--format=json"});
    EXPECT_EQ(none.out, R"({
  "version": 2,
  "report": null,
  "kernel": null,
  "offset": null,
  "relocation": null,
  "type": null,
  "target": null,
  "addend": null,
  "distance": null,
  "range": null,
  "cause": null,
  "help": null,
  "message": null,
  "line": null,
  "notes": [],
  "fits": [],
  "more": []
}
)");
    EXPECT_EQ(none.exit_status, 1);
}

TEST_F(Explain, ExplainsEveryReport)
{
    write("log", log_of_qemu + "\n" + log_of_qemu);
    const child_result text = explain({"log"});
    EXPECT_THAT(text.out, HasSubstr("log:6\n"));
    EXPECT_THAT(text.out, HasSubstr("\n2 reports\n"));
    const child_result json = explain({"log", "--format=json"});
    EXPECT_THAT(json.out, HasSubstr("  \"more\": [\n    {\n      \"report\": \"field-filled\",\n"));
    EXPECT_THAT(json.out, HasSubstr("\"line\": 6"));
}

TEST_F(Explain, NamesTheLogWhereTheKernelIsNotKnown)
{
    write("log",
          "x\nplanner: fft/SRC/wfta/kernel_printer.cpp:162: void resolve_relocation(const string&, uint8_t*, "
          "const uint8_t*, const tessjit::reloc_info&, vorna::wfta::kernel_registry_map&): Assertion "
          "`target_addr' failed.\n");
    EXPECT_THAT(explain({"log"}).out,
                StartsWith("log:2: error: a relocation's target is at address null [null-target]\n"));
}

TEST_F(Explain, SaysHowToGoOnWithoutAReport)
{
    write("log", "main: all is well\n");
    const child_result child = explain({"log"});
    EXPECT_EQ(child.out, "no report of an abort in log\n"
                         "    cause  the finaliser did not end it; a kernel that crashes leaves no report\n"
                         "    do     vorna-kernels check DUMPS\n"
                         "           vorna-kernels link DUMPS -o kernels.elf\n"
                         "           gdb HOST CORE -ex 'add-symbol-file kernels.elf' -ex bt -ex 'x/i $pc'\n");
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.exit_status, 1);
}

TEST_F(Explain, NamesTheSignOfACrash)
{
    for (const std::string sign : {"qemu: uncaught target signal 11 (Segmentation fault) - core dumped",
                                   "qemu: uncaught target signal 4 (Illegal instruction) - core dumped",
                                   "Program received signal SIGBUS, Bus error.", "Trace/breakpoint trap"}) {
        write("log", "main: all is well\n" + sign + "\nSegmentation fault\n");
        const child_result child = explain({"log", "--dumps", "dumps"});
        EXPECT_THAT(child.out,
                    StartsWith("no report of an abort in log\n    found  log:2: " + sign +
                               "\n    cause  an instruction raised the signal, perhaps a kernel's\n"
                               "    do     vorna-kernels check dumps\n"));
        EXPECT_EQ(child.exit_status, 1);
    }
}

TEST_F(Explain, EndsWithTwoInTroubleAndStillExplains)
{
    const child_result missing = explain({"missing"});
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "vorna-kernels: missing: No such file or directory\n");
    EXPECT_EQ(missing.exit_status, 2);
    const child_result folder = explain({"."});
    EXPECT_EQ(folder.err, "vorna-kernels: .: Is a directory\n");
    EXPECT_EQ(folder.exit_status, 2);

    write("log", log_of_qemu);
    write("broken", "\x7f"
                    "ELF and no more");
    const child_result broken = explain({"log", "--dumps", "broken"});
    EXPECT_EQ(broken.out, explained_without_dumps);
    EXPECT_THAT(broken.err, StartsWith("vorna-kernels: broken: "));
    EXPECT_EQ(broken.exit_status, 2);

    std::filesystem::create_directory(directory_.path() / "none");
    const child_result none = explain({"log", "--dumps", "none"});
    EXPECT_EQ(none.out, explained_without_dumps);
    EXPECT_EQ(none.err, "vorna-kernels: none: no dumps found\n");
    EXPECT_EQ(none.exit_status, 2);

    write_dump();
    write_dump(0x5502d5e008, "dumps/other"); // overlaps
    const child_result two = explain({"log", "--dumps", "dumps"});
    EXPECT_EQ(two.out, explained_without_dumps);
    EXPECT_THAT(two.err, HasSubstr("dumps of two runs"));
    EXPECT_EQ(two.exit_status, 2);
}

TEST_F(Explain, ColoursOnDemandOnly)
{
    write("log", log_of_qemu);
    EXPECT_THAT(explain({"log", "--color=always"}).out,
                StartsWith("\x1b[1manswer+0x8\x1b[0m: \x1b[1;31merror\x1b[0m: "));
}

} // namespace
