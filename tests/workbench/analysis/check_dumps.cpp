// Findings in dumps, and how the command check prints them.

#include "workbench/analysis/check_dumps.hpp"
#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/broken_sets.hpp"
#include "tests/support/child.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/tool.hpp"
#include "workbench/input/dumps.hpp"

#include <csignal>
#include <ctime>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace support;
using namespace support::a64;
using vorna::wfta::finding_severity;
using vorna::wfta::kernel_finding;
using vorna::workbench::check_dumps;
using vorna::workbench::make_kernel_set;
using vorna::workbench::placed_kernel;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t ADRP = 275;
constexpr std::int32_t BL = 283;

placed_kernel placed(const std::string& name, std::uint64_t text, std::uint64_t data,
                     const std::vector<std::uint32_t>& words, std::vector<tessjit::reloc_info> relocs = {},
                     std::size_t data_size = 8)
{
    placed_kernel kernel =
        support::placed(name, text, words, std::move(relocs), std::vector<std::uint8_t>(data_size), data);
    kernel.file = "dumps/" + name;
    return kernel;
}

/// Everything but what the kernels do to registers and the stack.
vorna::wfta::analysis_options without_convention()
{
    vorna::wfta::analysis_options options;
    options.aapcs64 = false;
    return options;
}

/// The findings, one per line: kernel, relocation, id.
std::string found(std::vector<placed_kernel> kernels)
{
    std::string lines;
    for (const kernel_finding& finding :
         check_dumps(make_kernel_set(std::move(kernels)), without_convention())) {
        const char* const levels[] = {"note ", "warning ", "error "};
        lines += (finding.aborts ? "ABORT " : levels[static_cast<int>(finding.severity)]) + finding.kernel;
        if (finding.relocation)
            lines += " #" + std::to_string(*finding.relocation);
        lines += std::string(" ") + name_of(finding.id) + "\n";
    }
    return lines;
}

TEST(Checks, KnowDistancesBetweenMappings)
{
    const auto call_from = [](std::uint64_t text) {
        return found({placed("callee", 0x100000, 0x100040, {ret()}),
                      placed("caller", text, text + 0x40, {bl(), ret()}, {{"callee", 0, BL, 0}})});
    };
    EXPECT_EQ(call_from(0x100000 + 0x8000000), "");
    EXPECT_EQ(call_from(0x100000 + 0x8001000), "ABORT caller #0 range\n");
    const auto page_from = [](std::uint64_t text) {
        return found({placed("callee", 0x100000, 0x100040, {ret()}),
                      placed("caller", text, text + 0x40, {adrp(0), add(0, 0, 0), ret()},
                             {{"callee", 0, ADRP, 0}, {"callee", 4, 277, 0}})});
    };
    EXPECT_EQ(page_from(0x100000 + 0x100000000), "");
    EXPECT_EQ(page_from(0x100000 + 0x100001000), "ABORT caller #0 range\n");
}

TEST(Checks, KnowTheOrderWithinAMapping)
{
    EXPECT_EQ(found({placed("aaa", 0x1000, 0x1080, {bl(), ret()}, {{"bbb", 0, BL, 0}}),
                     placed("bbb", 0x1020, 0x1088, {ret()})}),
              "ABORT aaa #0 callee-order\n");
    EXPECT_EQ(found({placed("bbb", 0x1000, 0x1080, {ret()}),
                     placed("aaa", 0x1020, 0x1088, {bl(), ret()}, {{"bbb", 0, BL, 0}})}),
              "");
    EXPECT_EQ(found({placed("aaa", 0x1000, 0x1020, {bl(), ret()}, {{"bbb", 0, BL, 0}}),
                     placed("bbb", 0x5000, 0x5020, {ret()})}),
              "")
        << "of another mapping, which may be the earlier one";
}

TEST(Checks, SayWhereACallWithItsTopBitSetLeads)
{
    const auto message = [](std::uint64_t callee) {
        const auto findings =
            check_dumps(make_kernel_set({placed("there", 0x1000, 0x1020, {nop(), ret()}),
                                         placed("callee", callee, callee + 0x20, {ret()}),
                                         placed("caller", 0x8000000, 0x8000040, {0x96000000, ret()},
                                                {{"callee", 0, BL, 0}})}),
                        without_convention());
        return findings.size() == 1
                   ? std::string(findings[0].severity == finding_severity::error ? "error: " : "") +
                         name_of(findings[0].id) + ": " + findings[0].message
                   : "";
    };
    const std::string subject = "call-bit-25: relocation R_AARCH64_CALL26 against 'callee': ";
    const std::string set = ", because the top bit of the field was set (0x96000000)";
    EXPECT_EQ(message(0x8001000), "error: " + subject + "the call leads to 'there'" + set);
    EXPECT_EQ(message(0x8000ffc), "error: " + subject + "the call leads to 0xffc" + set);
    EXPECT_EQ(message(0x7fff000),
              subject + "the top bit of the BL's field is set (0x96000000), which the finaliser does not "
                        "test: the call is right only because its target lies before it");
}

TEST(Checks, AllowOneNameTwiceUnlessInOneMapping)
{
    EXPECT_EQ(found({placed("same", 0x1000, 0x1080, {ret()}), placed("same", 0x1020, 0x1088, {ret()})}),
              "ABORT same duplicate-name\n");
    EXPECT_EQ(found({placed("same", 0x1000, 0x1020, {ret()}), placed("same", 0x5000, 0x5080, {ret()}),
                     placed("user", 0x5020, 0x5088, {adr(0), ret()}, {{"same", 0, ADR, 0}})}),
              "");
    // The name denotes the kernel of the same mapping: the other one would be out of range.
    EXPECT_EQ(found({placed("same", 0x1000, 0x1020, {ret()}), placed("same", 0x5000000, 0x5000080, {ret()}),
                     placed("user", 0x5000020, 0x5000088, {adr(0), ret()}, {{"same", 0, ADR, 0}})}),
              "");
}

/// The reason why the dumps are from more than one run.
std::string mixture(std::vector<placed_kernel> kernels)
{
    const auto set = make_kernel_set(std::move(kernels));
    return vorna::workbench::find_mixture(set, check_dumps(set, without_convention())).value_or("");
}

std::string mixed(const std::string& why)
{
    return "dumps of more than one run or registry: " + why + "; use a directory for each";
}

TEST(Mixture, IsCertainIfAKernelFollowsOneThatEndsTheProcess)
{
    const placed_kernel callee = placed("callee", 0xa900001000, 0xa900001020, {ret()});
    const placed_kernel caller =
        placed("caller", 0x1000, 0x1080, {nop(), bl(), ret()}, {{"callee", 4, BL, 0}});
    const placed_kernel next = placed("next", 0x1020, 0x1088, {ret()});
    EXPECT_EQ(mixture({callee, caller}), "") << "which may have ended so";
    EXPECT_EQ(mixture({callee, caller, next}),
              mixed("caller+0x4 would have ended the process [range], but next was placed after it"));
    EXPECT_EQ(mixture({placed("filled", 0x1000, 0x1080, {bl() | 1, ret()}, {{"filled", 0, BL, 0}}), next}),
              mixed("filled+0x0 would have ended the process [field-filled], but next was placed after it"));
    EXPECT_EQ(mixture({placed("early", 0x1000, 0x1080, {bl(), ret()}, {{"next", 0, BL, 0}}), next}),
              mixed("early+0x0 would have ended the process [callee-order], but next was placed after it"));
}

TEST(Mixture, IsCertainIfTheProcessWouldHaveEndedTwice)
{
    const placed_kernel callee = placed("callee", 0xa900001000, 0xa900001020, {ret()});
    const placed_kernel one =
        placed("one", 0x1000, 0x1020, {bl(), bl(), ret()}, {{"callee", 0, BL, 0}, {"one", 4, BL, 2}});
    const placed_kernel two = placed("two", 0x5000, 0x5020, {bl(), ret()}, {{"callee", 0, BL, 0}});
    EXPECT_EQ(mixture({callee, one}), "") << "one kernel, whatever else is wrong with it";
    EXPECT_EQ(mixture({callee, one, two}),
              mixed("one+0x4 [range] and two+0x0 [range] would each have ended the process"));
}

TEST(Mixture, IsNotReportedIfTwoRegistriesOrAFilterExplainIt)
{
    const placed_kernel near = placed("same", 0x1000, 0x1020, {ret()});
    const placed_kernel far = placed("same", 0xa900001000, 0xa900001020, {ret()});
    const placed_kernel user =
        placed("user", 0xa980001000, 0xa980001040, {bl(), ret()}, {{"same", 0, BL, 0}});
    const placed_kernel next = placed("next", 0xa980001020, 0xa980001048, {ret()});
    EXPECT_EQ(mixture({near, far, user, next}), "") << "which of the two it calls is not known";
    EXPECT_EQ(mixture({near, placed("same", 0x5000, 0x5020, {ret()})}), "");
    const placed_kernel lost = placed("lost", 0x1000, 0x1080, {bl(), ret()}, {{"nobody", 0, BL, 0}});
    EXPECT_EQ(mixture({lost, placed("next", 0x1020, 0x1088, {ret()})}), "") << "nobody may have no dump";
}

TEST(Mixture, IsCertainOfTwoKernelsOfOneNameInAMapping)
{
    EXPECT_EQ(mixture({placed("same", 0x1000, 0x1080, {ret()}), placed("same", 0x1020, 0x1088, {ret()})}),
              mixed("two kernels same lie in one mapping"));
}

TEST(Checks, TakeTimeInProportionToTheKernelsOfOneName)
{
    std::vector<placed_kernel> kernels;
    for (std::uint64_t page = 0x1000; page <= 0xc000000; page += 0x1000) {
        const bool calls = page > 0x6000000;
        kernels.push_back(placed(calls ? "caller" : "callee", page, page + 0x20, {bl(), ret()}));
        if (calls)
            kernels.back().relocs = {{"callee", 0, BL, 0}};
    }
    const std::clock_t begin = std::clock();
    EXPECT_NE(found(kernels), "");
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 5);
}

TEST(Checks, ReportAMissingTargetAsAnAbortOnlyAtTheLastKernel)
{
    const std::vector<tessjit::reloc_info> call = {{"missing", 0, BL, 0}};
    const auto first = [&](std::uint64_t text) { return placed("first", text, 0x1080, {bl(), ret()}, call); };
    EXPECT_EQ(found({first(0x1000)}), "note first #0 unknown-target\n") << "a pattern may have selected it";
    EXPECT_EQ(found({first(0x1020)}), "note first #0 unknown-target\n") << "not the first of the mapping";
    EXPECT_EQ(found({first(0x1000), placed("second", 0x1020, 0x1088, {ret()})}),
              "note first #0 unknown-target\n")
        << "the second was placed after it was linked";
    EXPECT_EQ(found({placed("zeroth", 0x1000, 0x1078, {ret()}), first(0x1020)}),
              "ABORT first #0 unknown-target\n");
    EXPECT_EQ(found({placed("zeroth", 0x1000, 0x1078, {ret()}), first(0x1040)}),
              "note first #0 unknown-target\n")
        << "one is missing between the two";
    EXPECT_EQ(found({placed("zeroth", 0x1000, 0x1070, {ret()}), first(0x1020)}),
              "note first #0 unknown-target\n")
        << "one without code is missing between the two";
    EXPECT_EQ(found({first(0x1000), placed("other", 0x5000, 0x5020, {ret()})}),
              "ABORT first #0 unknown-target\n");
}

TEST(Checks, PointAtTheRelocationThatEndedTheProcess)
{
    constexpr int aborts = 60;
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    random_engine random(seed);
    int done = 0;
    while (done < aborts) {
        random_set set = make_random_set(random);
        const std::string breakage = break_set(random, set);
        const temp_directory directory;
        child_options options;
        options.directory = directory.path();
        options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
        // The child prints where check_kernels predicts the abort.
        const child_result child = run_in_child(
            [&] {
                vorna::wfta::kernel_registry_map registry;
                for (const std::string& name : set.null_names)
                    registry[name] = {nullptr, 0, nullptr, 0};
                finalise_kernels(registry, set.earlier);
                for (const kernel_finding& finding : check_kernels(registry, set.kernels)) {
                    if (finding.aborts && finding.id == vorna::wfta::finding_id::duplicate_name)
                        break; // it aborts before the kernel is dumped
                    if (finding.aborts) {
                        std::printf("%s #%zu", finding.kernel.c_str(), *finding.relocation);
                        std::fflush(stdout);
                        break;
                    }
                }
                finalise_kernels(registry, set.kernels);
            },
            options);
        if (child.signal != SIGABRT || child.out.empty())
            continue; // the process continues, or aborted before the dump
        const vorna::workbench::dump_reading dumps =
            vorna::workbench::read_dumps({directory.path().string()});
        if (dumps.set.kernels.size() == 1)
            continue; // a pattern may have selected it
        ++done;
        ASSERT_TRUE(dumps.errors.empty()) << dumps.errors[0];
        std::string first;
        for (const kernel_finding& finding : check_dumps(dumps.set, without_convention())) {
            if (finding.aborts && first.empty())
                first = finding.kernel + " #" + std::to_string(finding.relocation.value_or(99));
        }
        ASSERT_EQ(first, child.out) << breakage << "\n" << child;
    }
}

class CheckCommand : public testing::Test {
protected:
    void dump(const placed_kernel& kernel) { write_file(directory.path() / kernel.name, dump_of({kernel})); }

    [[nodiscard]] child_result check(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "check", "--abi=none"});
        return run_tool(std::move(arguments), directory.path());
    }

    void dump_broken()
    {
        dump(placed("callee", 0x1000, 0x1080, {ret()}));
        dump(placed("caller", 0x1020, 0x1088, {0xb9400000, bl(), nop()},
                    {{"callee", 0, BL, 0}, {"callee", 4, BL, 0}}));
    }

    temp_directory directory;
};

TEST_F(CheckCommand, FindsNothing)
{
    dump(placed("callee", 0x1000, 0x1080, {ret()}));
    const child_result result = check({"."});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, "1 kernel, 0 relocations: no findings\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(CheckCommand, PrintsFindingsWithTheirInstructions)
{
    dump_broken();
    const child_result result = check({"."});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(
        result.out,
        "caller+0x0: error: relocation R_AARCH64_CALL26 against 'callee': field not zero in 0xb9400000 [field-filled]\n"
        "    b9400000  ldr w0, [x0]            relocation 1 of 2: callee + 0\n"
        "    help: give the relocation the offset of the BL that it is for\n"
        "caller+0x0: error: relocation R_AARCH64_CALL26 against 'callee' is for a BL, but the instruction is 0xb9400000 "
        "[opcode]\n"
        "    b9400000  ldr w0, [x0]            relocation 1 of 2: callee + 0\n"
        "caller+0x8: error: nop is the last instruction, and control continues past the end of "
        "the code [falls-through]\n"
        "    d503201f  nop\n"
        "    help: end the code with RET, a branch or a trap\n"
        "2 kernels, 2 relocations: 3 errors\n");
    EXPECT_EQ(result.err, "");
    const child_result coloured = check({".", "--color=always"});
    EXPECT_THAT(coloured.out,
                testing::HasSubstr("\x1b[1mcaller+0x0\x1b[0m: \x1b[1;31merror\x1b[0m: relocation R_"));
    dump(placed("half", 0x3000, 0x3080, {add(0, 0, 0), ret()}, {{"half", 0, R_AARCH64_ADD_ABS_LO12_NC, 0}}));
    EXPECT_THAT(check({"half", "--color=always"}).out, testing::HasSubstr("\x1b[1;33mwarning\x1b[0m"));
}

TEST_F(CheckCommand, PrintsJsonOfTheSame)
{
    dump_broken();
    const child_result result = check({".", "--format=json"});
    EXPECT_EQ(result.exit_status, 1);
    const nlohmann::json document = nlohmann::json::parse(result.out);
    EXPECT_EQ(document["version"], 2);
    EXPECT_EQ(document["kernels"], 2);
    EXPECT_EQ(document["relocations"], 2);
    ASSERT_EQ(document["findings"].size(), 3U);
    EXPECT_EQ(document["findings"][2], nlohmann::json::parse(R"({
        "id": "falls-through", "severity": "error", "aborts": false, "kernel": "caller", "relocation": null,
        "offset": 8, "message": "nop is the last instruction, and control continues past the end of the code",
        "note": "", "help": "end the code with RET, a branch or a trap"})"));
    EXPECT_EQ(document["findings"][0], nlohmann::json::parse(R"({
        "id": "field-filled", "severity": "error", "aborts": true, "kernel": "caller", "relocation": 0, "offset": 0,
        "message": "relocation R_AARCH64_CALL26 against 'callee': field not zero in 0xb9400000",
        "note": "", "help": "give the relocation the offset of the BL that it is for"})"));
}

TEST_F(CheckCommand, PrintsAnnotationsOfTheSame)
{
    dump_broken();
    dump(placed("far", 0x900000000, 0x900000040, {bl(), ret()}, {{"left_out", 0, BL, 0}}));
    dump(placed("behind", 0x900000020, 0x900000048, {ret()}));
    const child_result result = check({".", "--format=github"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.out, testing::HasSubstr(
                                "::error title=caller+0x8::nop is the last instruction, and "
                                "control continues past the end of the code [falls-through]%0Aend the code "
                                "with RET"));
    EXPECT_THAT(
        result.out,
        testing::HasSubstr("::error title=caller+0x0::relocation R_AARCH64_CALL26 against 'callee' is for a "
                           "BL, but the instruction is 0xb9400000 [opcode]\n"));
    EXPECT_THAT(
        result.out,
        testing::HasSubstr(
            "::notice title=far+0x0::relocation R_AARCH64_CALL26 against 'left_out': target not found in the dumps"));
    EXPECT_THAT(result.out, testing::EndsWith("4 kernels, 3 relocations: 3 errors, 1 note\n"));
}

TEST_F(CheckCommand, FailsForAnErrorEvenWithANoteAtTheSameAddress)
{
    placed_kernel kernel =
        placed("aligned", 0x1000, 0x1080, assemble({"adr x3, #0", "ldr x0, [x3]", "ldar x1, [x3]", "ret"}),
               {{".rodata.aligned", 0, ADR, 4}});
    kernel.data.resize(16);
    dump(kernel);
    const child_result result = check({"."});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out,
              "aligned+0x4: note: 8-byte load from an address that is 4-aligned [data-alignment]\n"
              "    f9400060  ldr x0, [x3]\n"
              "    help: data blocks are packed: make the length of every block of the set a multiple of 8\n"
              "aligned+0x8: error: 8-byte load from an address that is 4-aligned, which faults on processors "
              "without FEAT_LSE2 [data-alignment]\n"
              "    c8dffc61  ldar x1, [x3]\n"
              "    help: data blocks are packed: make the length of every block of the set a multiple of 8\n"
              "1 kernel, 1 relocation: 1 error, 1 note\n");
}

TEST_F(CheckCommand, RefusesDumpsOfTwoRuns)
{
    dump(placed("callee", 0xa900001000, 0xa900001020, {ret()}));
    dump(placed("caller", 0x1000, 0x1080, {bl(), ret()}, {{"callee", 0, BL, 0}}));
    EXPECT_THAT(
        check({"."}).out,
        testing::HasSubstr(
            "    94000000  bl callee               relocation 1 of 1: callee + 0\n"
            "    note: 'callee' is in the mapping of another call\n"
            "    help: finalise both in one set, or load the address with ADRP and ADD and use BLR; if these are dumps of two runs, use a "
            "directory for each\n"));
    dump(placed("next", 0x1020, 0x1088, {ret()}));
    const std::string line =
        "vorna-kernels: " +
        mixed("caller+0x0 would have ended the process [range], but next was placed after it") + "\n";
    for (const std::string format : {"text", "json", "github"}) {
        const child_result result = check({".", "--format=" + format});
        EXPECT_EQ(result.exit_status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, line);
    }
    const child_result link = run_tool({VORNA_KERNELS, "link", ".", "-o", "image"}, directory.path());
    EXPECT_EQ(link.exit_status, 2);
    EXPECT_EQ(link.err, line);
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "image"));
}

TEST_F(CheckCommand, FailsForWarningsIfItIsStrict)
{
    dump(placed("half", 0x1000, 0x1080, {add(0, 0, 0), ret()}, {{"half", 0, R_AARCH64_ADD_ABS_LO12_NC, 0}}));
    EXPECT_EQ(check({"."}).exit_status, 0);
    EXPECT_EQ(check({".", "--strict"}).exit_status, 1);
    dump(placed("half", 0x1000, 0x1080, {ret()}));
    EXPECT_EQ(check({".", "--strict"}).exit_status, 0);
}

TEST_F(CheckCommand, TakesFilesAndDirectoriesAndContinuesAfterErrors)
{
    dump_broken();
    write_file(directory.path() / "cut", "\177ELF");
    const child_result result = check({"callee", "caller", "cut", "absent"});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_THAT(result.out, testing::EndsWith("2 kernels, 2 relocations: 3 errors\n"));
    EXPECT_THAT(result.err, testing::HasSubstr("vorna-kernels: cut: "));
    EXPECT_THAT(result.err, testing::HasSubstr("vorna-kernels: absent: "));
}

TEST_F(CheckCommand, ReportsDirectoriesWithoutDumps)
{
    std::filesystem::create_directory(directory.path() / "none");
    const child_result one = check({"none"});
    EXPECT_EQ(one.exit_status, 2);
    EXPECT_EQ(one.out, "");
    EXPECT_EQ(one.err, "vorna-kernels: none: no dumps found\n");
    EXPECT_EQ(check({"none", ".", "--format=json"}).err, "vorna-kernels: none, .: no dumps found\n");
    dump(placed("k", 0x1000, 0x1080, {ret()}));
    EXPECT_EQ(check({"none", "."}).exit_status, 0);
}

TEST_F(CheckCommand, EscapesNames)
{
    placed_kernel kernel = placed("two\nlines", 0x1000, 0x1080, {ret()});
    dump(kernel);
    EXPECT_EQ(check({"."}).out,
              "two\\nlines: warning: the name contains a newline, which ends the line in the perf map "
              "[name-map]\n    help: choose another name\n1 kernel, 0 relocations: 1 warning\n");
}

} // namespace
