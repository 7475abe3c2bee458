// What ends the process, and the exact texts that it leaves on stderr. The tests elsewhere compare
// with texts that support/abort_messages.cpp composes; the ones here are written out.

#include "tests/support/abort_messages.hpp"

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace std::string_literals;
using namespace vorna::wfta;

/// `text` with "BASE", "BASE+n" and "PROGRAM" replaced.
std::string with_addresses(std::string text, const std::uint8_t* base)
{
    static const std::regex marked("BASE(\\+([0-9]+))?");
    for (std::smatch match; std::regex_search(text, match, marked);) {
        char printed[32];
        const unsigned long plus = match[2].matched ? std::stoul(match[2]) : 0;
        std::snprintf(printed, sizeof printed, "%#lx", number(base) + plus);
        text.replace(static_cast<std::size_t>(match.position()), static_cast<std::size_t>(match.length()),
                     printed);
    }
    return std::regex_replace(text, std::regex("PROGRAM"), program_invocation_short_name);
}

/// Expects this report of a set placed at BASE.
void expect_report(const kernel_registry_map& registry, const std::vector<kernel_data>& kernels,
                   const std::string& report)
{
    address_range range(0x10000);
    kernel_registry_map grown = registry;
    platform_spy spy;
    spy.place = range.begin();
    expect_abort([&] { finalise_kernels(grown, kernels); }, with_addresses(report, range.begin()));
}

#define EMIT_SINGLE                                                                                          \
    "PROGRAM: fft/SRC/wfta/kernel_printer.cpp:LINE: void emit_single(vorna::wfta::kernel_registry_map&, "    \
    "const string&, uint8_t*, size_t, const uint8_t*, size_t, const std::vector<tessjit::reloc_info>&): "
#define RESOLVE_RELOCATION                                                                                   \
    "PROGRAM: fft/SRC/wfta/kernel_printer.cpp:LINE: void resolve_relocation(const string&, uint8_t*, "       \
    "const uint8_t*, const tessjit::reloc_info&, vorna::wfta::kernel_registry_map&): "
#define DUMP_AND_FAIL                                                                                        \
    "PROGRAM: fft/SRC/wfta/kernel_printer.cpp:LINE: void debug_dump_kernels_and_fail(const "                 \
    "kernel_registry_map&): Assertion `false' failed.\n"

TEST(AbortMessages, DuplicateName)
{
    expect_report({}, {kernel("twice", {a64::ret()}), kernel("twice", {})},
                  EMIT_SINGLE
                  "Assertion `kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, "
                  "text_len, data_ptr, data_len }).second' failed.\n");
}

TEST(AbortMessages, DataOfAnotherKernel)
{
    expect_report({}, {kernel("k", {a64::adr(0)}, {{".rodata.other", 0, R_AARCH64_ADR_PREL_LO21, 0}})},
                  RESOLVE_RELOCATION "Assertion `reloc.name.substr(8) == fn_name' failed.\n");
}

TEST(AbortMessages, UnknownTarget)
{
    expect_report({}, {kernel("k", {a64::bl()}, {{"unknown", 0, R_AARCH64_CALL26, 0}})},
                  RESOLVE_RELOCATION "Assertion `it != kernel_registry.end()' failed.\n");
}

TEST(AbortMessages, NullTarget)
{
    expect_report({{"null", {nullptr, 0, nullptr, 0}}},
                  {kernel("k", {a64::bl()}, {{"null", 0, R_AARCH64_CALL26, 0}})},
                  RESOLVE_RELOCATION "Assertion `target_addr' failed.\n");
}

TEST(AbortMessages, UnhandledType)
{
    expect_report({}, {kernel("k", {a64::bl()}, {{"k", 0, R_AARCH64_JUMP26, 0}})},
                  RESOLVE_RELOCATION "Assertion `false && \"unhandled reloc type\"' failed.\n");
}

TEST(AbortMessages, AdrWordFilled)
{
    expect_report({}, {kernel("k", {a64::nop(), 0x70000000}, {{"k", 4, R_AARCH64_ADR_PREL_LO21, 0}})},
                  "resolving R_AARCH64_ADR_PREL_LO21 reloc but dst address BASE+4 was already filled, got "
                  "0x70000000\n"
                  "  k \t BASE 0x8 BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, AdrpWordFilled)
{
    expect_report({}, {kernel("k", {0x90000020}, {{"k", 0, R_AARCH64_ADR_PREL_PG_HI21, 0}}, {1, 2, 3})},
                  "resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but dst address BASE was already filled, got "
                  "0x90000020\n"
                  "  k \t BASE 0x4 BASE+32 0x3\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, AddWordFilled)
{
    expect_report({}, {kernel("k", {0x91000400}, {{"k", 0, R_AARCH64_ADD_ABS_LO12_NC, 0}})},
                  "resolving R_AARCH64_ADD_ABS_LO12_NC reloc but dst address BASE was already filled, got "
                  "0x91000400\n"
                  "  k \t BASE 0x4 BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, CallWordFilled)
{
    expect_report({}, {kernel("k", {0x94000001}, {{"k", 0, R_AARCH64_CALL26, 0}})},
                  "resolving R_AARCH64_CALL26 reloc but dst address BASE was already filled, got 0x94000001\n"
                  "  k \t BASE 0x4 BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, AdrOutOfRange)
{
    expect_report(
        {}, {kernel("k", {a64::nop(), a64::adr(0)}, {{"k", 4, R_AARCH64_ADR_PREL_LO21, 0x100004}})},
        "resolving R_AARCH64_ADR_PREL_LO21 reloc but smod does not fit in +/-1M, got BASE+1048580 - BASE+4 "
        "= 0x100000\n"
        "  k \t BASE 0x8 BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, AdrpOutOfRangeShowsPages)
{
    address_range range(0x10000);
    kernel_registry_map registry = {{"host", {range.begin() + 0x100000234, 0x10, nullptr, 0}}};
    platform_spy spy;
    spy.place = range.begin();
    const std::string report =
        "resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but smod does not fit in +/-4G, got BASE+4294967296 - BASE = "
        "0x100000000\n"
        "  host \t BASE+4294967860 0x10 (nil) 0x0\n"
        "  k \t BASE 0x8 BASE+32 0x0\n" DUMP_AND_FAIL;
    expect_abort(
        [&] {
            finalise_kernels(registry, {kernel("k", {a64::nop(), a64::adrp(0)},
                                               {{"host", 4, R_AARCH64_ADR_PREL_PG_HI21, 0x10}})});
        },
        with_addresses(report, range.begin()));
}

TEST(AbortMessages, CallOutOfRange)
{
    expect_report(
        {}, {kernel("k", {a64::bl()}, {{"k", 0, R_AARCH64_CALL26, 0x8000000}})},
        "resolving R_AARCH64_CALL26 reloc but smod does not fit in +/-128M, got BASE+134217728 - BASE = "
        "0x8000000\n"
        "  k \t BASE 0x4 BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, CallOfHalfAWordReadsAsOutOfRange)
{
    expect_report(
        {}, {kernel("k", {a64::bl()}, {{"k", 0, R_AARCH64_CALL26, 2}})},
        "resolving R_AARCH64_CALL26 reloc but smod does not fit in +/-128M, got BASE+2 - BASE = 0x2\n"
        "  k \t BASE 0x4 BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, ANegativeDifferenceShowsItsTwosComplement)
{
    expect_report({}, {kernel("k", {a64::nop(), a64::nop(), a64::bl()}, {{"k", 8, R_AARCH64_CALL26, 1}})},
                  "resolving R_AARCH64_CALL26 reloc but smod does not fit in +/-128M, got BASE+1 - BASE+8 = "
                  "0xfffffffffffffff9\n"
                  "  k \t BASE 0xc BASE+32 0x0\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, TheListingShowsEveryRegisteredKernelInNameOrder)
{
    expect_report({{"host kernel", {address(0x1000), 0x20, address(0x2000), 0x30}},
                   {"", {nullptr, 0, nullptr, 0}},
                   {"nul\0hides the rest"s, {address(0xabc), 0xffffffffffffffff, address(0xdef), 10}}},
                  {kernel("z", {a64::ret()}, {}, {1, 2}),
                   kernel("a", {a64::nop(), 1}, {{"z", 4, R_AARCH64_CALL26, 0}}),
                   kernel("not yet", {a64::ret()})},
                  "resolving R_AARCH64_CALL26 reloc but dst address BASE+36 was already filled, got 0x1\n"
                  "   \t (nil) 0x0 (nil) 0x0\n"
                  "  a \t BASE+32 0x8 BASE+98 0x0\n"
                  "  host kernel \t 0x1000 0x20 0x2000 0x30\n"
                  "  nul \t 0xabc 0xffffffffffffffff 0xdef 0xa\n"
                  "  z \t BASE 0x4 BASE+96 0x2\n" DUMP_AND_FAIL);
}

TEST(AbortMessages, SuccessPrintsNothing)
{
    const child_result child = run_in_child([] {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {a64::bl()}, {{"k", 0, R_AARCH64_CALL26, 0}}, {1})});
        finalise_kernels(registry, {});
    });
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
    EXPECT_EQ(child.out, "");
}

} // namespace
