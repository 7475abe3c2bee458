// Findings in dumps.

#include "workbench/analysis/check_dumps.hpp"
#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/broken_sets.hpp"
#include "tests/support/child.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/input/dumps.hpp"

#include <csignal>
#include <ctime>
#include <elf.h>
#include <gtest/gtest.h>

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
    std::vector<placed_kernel> twice = {placed("same", 0x1000, 0x1080, {ret()}),
                                        placed("same", 0x1020, 0x1088, {ret()})};
    twice[0].file = "dumps/0";
    EXPECT_EQ(check_dumps(make_kernel_set(twice), without_convention()).at(0).message,
              "a second kernel of this name: the first is in dumps/0, of the same mapping");
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
        // The child prints where check_kernels predicts the abort.
        const child_result child = run_with_dumps(
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
            directory.path());
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

} // namespace
