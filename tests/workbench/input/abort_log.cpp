// Finds reports of aborts among other lines.

#include "workbench/input/abort_log.hpp"
#include "tests/support/abort_messages.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorna::workbench::abort_log;
using vorna::workbench::abort_log_reader;
using vorna::workbench::abort_report;
using vorna::workbench::read_abort_log;
using vorna::workbench::registered_kernel;

const std::string source = "fft/SRC/wfta/kernel_printer.cpp";
const std::string message =
    "resolving R_AARCH64_CALL26 reloc but dst address 0x7f0008 was already filled, got 0xb9400000\n";
const std::string line_of_a = "  a \t 0x7f0000 0x10 0x7f0020 0x4\n";

std::string glibc(const std::string& function, const std::string& expression)
{
    return "planner: " + source + ":49: " + function + ": Assertion `" + expression + "' failed.\n";
}

const std::string end_of_listing = glibc(support::dump_signature, "false");

std::string words(const registered_kernel& kernel)
{
    return kernel.name + "|" + support::hex(kernel.extent.text_address) + "|" +
           support::hex(kernel.extent.text_size) + "|" + support::hex(kernel.extent.data_address) + "|" +
           support::hex(kernel.extent.data_size);
}

std::vector<std::string> listing(const abort_log& log, std::size_t index = 0)
{
    std::vector<std::string> lines;
    for (const registered_kernel& kernel : log.registries.at(index).kernels)
        lines.push_back(words(kernel));
    return lines;
}

std::vector<std::string> ids(const abort_log& log)
{
    std::vector<std::string> ids;
    for (const abort_report& report : log.reports)
        ids.push_back(report.id);
    return ids;
}

TEST(AbortReports, OfAFilledFieldHaveKindPlaceAndWord)
{
    const std::pair<const char*, int> kinds[] = {{"R_AARCH64_ADR_PREL_LO21", 274},
                                                 {"R_AARCH64_ADR_PREL_PG_HI21", 275},
                                                 {"R_AARCH64_ADD_ABS_LO12_NC", 277},
                                                 {"R_AARCH64_CALL26", 283}};
    for (const auto& [name, type] : kinds) {
        const abort_log log = read_abort_log(
            "resolving " + std::string(name) +
            " reloc but dst address 0x5502d5e008 was already filled, got 0xb9400001\n" + end_of_listing);
        ASSERT_EQ(ids(log), std::vector<std::string>{"field-filled"}) << name;
        ASSERT_TRUE(log.reports[0].filled);
        EXPECT_EQ(log.reports[0].filled->kind->type, type);
        EXPECT_EQ(log.reports[0].filled->place, 0x5502d5e008U);
        EXPECT_EQ(log.reports[0].filled->word, 0xb9400001U);
        EXPECT_EQ(log.reports[0].line, 1U);
    }
}

TEST(AbortReports, OfAValueOutOfRangeHaveKindAndOperands)
{
    const std::tuple<const char*, const char*, int> kinds[] = {{"R_AARCH64_ADR_PREL_LO21", "1M", 274},
                                                               {"R_AARCH64_ADR_PREL_PG_HI21", "4G", 275},
                                                               {"R_AARCH64_CALL26", "128M", 283}};
    for (const auto& [name, reach, type] : kinds) {
        const abort_log log =
            read_abort_log("resolving " + std::string(name) + " reloc but smod does not fit in +/-" + reach +
                           ", got 0x1000 - 0x7ffff7fbf008 = 0xffff800008041ff8\n");
        ASSERT_EQ(ids(log), std::vector<std::string>{"range"}) << name;
        ASSERT_TRUE(log.reports[0].range);
        EXPECT_EQ(log.reports[0].range->kind->type, type);
        EXPECT_EQ(log.reports[0].range->target, 0x1000U);
        EXPECT_EQ(log.reports[0].range->place, 0x7ffff7fbf008U);
        EXPECT_EQ(log.reports[0].range->value, 0xffff800008041ff8U);
    }
}

TEST(AbortReports, WithInterleavedBytesAreIgnored)
{
    EXPECT_THAT(
        ids(read_abort_log("resolving R_AARCH64_CALL26 reloc but dst address 0x was already filled\n"
                           "resolving R_AARCH64_CALL26 reloc but smod does not fit in +/-128M, got 0x10 "
                           "- 0x4 = 0x10\n"
                           "resolving R_AARCH64_ADD_ABS_LO12_NC reloc but smod does not fit in +/-1M, "
                           "got 0x10 - 0x4 = 0xc\n"
                           "resolving R_AARCH64_JUMP26 reloc but dst address 0x8 was already filled, got "
                           "0x1\n")),
        ElementsAre());
}

struct assertion_case {
    const char* id;
    std::string function;
    std::string expression;
};

const assertion_case assertions[] = {
    {"duplicate-name", support::emit_single_signature,
     "kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, "
     "data_len }).second"},
    {"unknown-target", support::resolve_relocation_signature, "it != kernel_registry.end()"},
    {"foreign-data", support::resolve_relocation_signature, "reloc.name.substr(8) == fn_name"},
    {"null-target", support::resolve_relocation_signature, "target_addr"},
    {"unhandled-type", support::resolve_relocation_signature, "false && \"unhandled reloc type\""},
};

TEST(AbortReports, OfAnAssertionAreRecognisedInEveryCLibrarysFormat)
{
    for (const auto& [id, function, expression] : assertions) {
        const std::string texts[] = {
            glibc(function, expression),
            fmt::format("/usr/bin/a program: with: colons: /build/x/{}:1234: {}: Assertion `{}' failed.\r\n",
                        source, function, expression),
            fmt::format("{}:7: {}: Assertion `{}' failed.", source, function,
                        expression), // without a program name
            fmt::format("planner: {}:49: {}: Zusicherung »{}« nicht erfüllt.\n", source, function,
                        expression),
            fmt::format("Assertion failed: {} ({}: {}: 49)\n", expression, source, function), // musl
            "2026-11-21T12:00:00Z worker | " + glibc(function, expression)};
        for (const std::string& text : texts) {
            EXPECT_EQ(ids(read_abort_log(text)), std::vector<std::string>{id}) << text;
            EXPECT_EQ(read_abort_log("\nother\n" + text).reports.at(0).line, 3U);
        }
    }
}

TEST(AbortReports, AreNotThoseOfOtherAssertions)
{
    const std::string resolve = support::resolve_relocation_signature;
    EXPECT_THAT(
        ids(read_abort_log("host: main.cpp:3: int main(): Assertion `false' failed.\n"
                           "host: main.cpp:3: void f(): Assertion `it != kernel_registry.end()' failed.\n"
                           "host: kernel_printer_test.cpp:3: void f(): Assertion `target_addr' failed.\n" +
                           glibc(resolve, "false") + glibc(resolve, "not target_addr") +
                           glibc(support::dump_signature, "false == true") +
                           "Assertion failed: false (main.c: main: 5)\n"
                           "    ASSERT_IN(function, it != kernel_registry.end());\n")),
        ElementsAre());
}

TEST(AbortReports, AllowAnyCharactersInKernelNames)
{
    const std::vector<std::string> names = {"",
                                            "a",
                                            " ",
                                            "two words",
                                            "tab\there",
                                            "trailing \t ",
                                            "like \t 0x1 0x2 0x3 0x4",
                                            "0x1 0x2 0x3 0x4",
                                            "line\nbreak",
                                            "\nleading",
                                            "trailing\n",
                                            "two\n\nbreaks",
                                            "caf\xc3\xa9 \xff\xfe"};
    for (const std::string& name : names) {
        std::string text = message;
        text += line_of_a;
        text += "  " + name + " \t 0x7f0000 0x10 0x7f0020 0x0\n";
        text += line_of_a;
        text += end_of_listing;
        const abort_log log = read_abort_log(text);
        ASSERT_EQ(log.registries.size(), 1U);
        EXPECT_THAT(listing(log),
                    ElementsAre("a|0x7f0000|0x10|0x7f0020|0x4", name + "|0x7f0000|0x10|0x7f0020|0x0",
                                "a|0x7f0000|0x10|0x7f0020|0x4"));
        EXPECT_TRUE(log.registries[0].complete);
    }
}

TEST(AbortReports, ReadNullPointersOfEveryCLibrary)
{
    const abort_log log = read_abort_log(message + "  g \t (nil) 0x0 (nil) 0x0\n"
                                                   "  m \t 0 0x0 0 0x0\n"
                                                   "  n \t 0000000000000000 0x0 0x00007ffff7fbf000 0x1\n");
    EXPECT_THAT(listing(log),
                ElementsAre("g|0x0|0x0|0x0|0x0", "m|0x0|0x0|0x0|0x0", "n|0x0|0x0|0x7ffff7fbf000|0x1"));
    EXPECT_FALSE(log.registries[0].complete); // no assertion
}

TEST(AbortReports, SkipOtherLinesInTheListing)
{
    const abort_log log =
        read_abort_log("noise\n" + message + "==7==ERROR: AddressSanitizer: ABRT\n    #0 0x7f in abort\n" +
                       line_of_a + "\n  b 0x1 0x2 0x3 0x4\n  c \t 0x1 2 0x3 0x4\n  d \t 0x1 0x2 0x3\n" +
                       "  e \t 0x1 0x2 0x3 0x4z\n  f \t -0x1 0x2 0x3 0x4\n" + line_of_a + end_of_listing +
                       line_of_a + "qemu: uncaught target signal 6 (Aborted) - core dumped\n");
    EXPECT_EQ(ids(log), std::vector<std::string>{"field-filled"});
    EXPECT_EQ(log.reports[0].line, 2U);
    EXPECT_THAT(listing(log), ElementsAre("a|0x7f0000|0x10|0x7f0020|0x4", "a|0x7f0000|0x10|0x7f0020|0x4"));
}

TEST(AbortReports, MayHaveAPrefixOnEachLine)
{
    const std::string lines[] = {message, "  a b  c \t 0x7f0000 0x10 0x7f0020 0x4\n",
                                 "  d \t 0x7f0000 0x10 0x7f0020 0x4\n", end_of_listing};
    for (const bool same : {true, false}) {
        std::string text;
        for (std::size_t i = 0; i < std::size(lines); ++i)
            text += (same ? "  planner_1  | " : "12:00:0" + std::to_string(i) + " [x] ") + lines[i];
        const abort_log log = read_abort_log(text);
        ASSERT_EQ(ids(log), std::vector<std::string>{"field-filled"});
        EXPECT_THAT(listing(log),
                    ElementsAre("a b  c|0x7f0000|0x10|0x7f0020|0x4", "d|0x7f0000|0x10|0x7f0020|0x4"));
        EXPECT_TRUE(log.registries[0].complete);
    }
    // Timestamps in their shortest form, and numbered lines.
    for (const auto& prefixes : {std::array{"1.25Z ", "1.3Z ", "2Z ", "2.125Z "},
                                 std::array{"[9.8] ", "[10.25] ", "[10.5] ", "[11] "},
                                 std::array{"    98\t", "    99\t", "   100\t", "   101\t"}}) {
        std::string text;
        for (std::size_t i = 0; i < std::size(lines); ++i)
            text += prefixes.at(i) + lines[i];
        EXPECT_THAT(listing(read_abort_log(text)),
                    ElementsAre("a b  c|0x7f0000|0x10|0x7f0020|0x4", "d|0x7f0000|0x10|0x7f0020|0x4"))
            << text;
    }
    EXPECT_THAT(ids(read_abort_log("resolving R_AARCH64_CALL26 reloc but " + message)),
                ElementsAre("field-filled"));
    // Not a prefix, but the end of another thread's output.
    const abort_log log = read_abort_log("12345" + message + lines[1]);
    EXPECT_THAT(listing(log), ElementsAre("a b  c|0x7f0000|0x10|0x7f0020|0x4"));
}

TEST(AbortReports, MayHaveAnyLineEnds)
{
    for (const std::string end : {"\r", "\x1b[0m", "\x1b[0m\x1b[K", "\x1b[0;39m\r"}) {
        std::string text;
        for (const std::string& line : {message, line_of_a, end_of_listing})
            text += "\x1b[1;31m" + line.substr(0, line.size() - 1) + end + "\n";
        EXPECT_EQ(listing(read_abort_log(text)), listing(read_abort_log(message + line_of_a)));
        EXPECT_TRUE(read_abort_log(text).registries.at(0).complete);
    }
    EXPECT_THAT(listing(read_abort_log(message + "  a \t 0x7f0000 0x10 0x7f0020 0x4 1m\n")), IsEmpty());
    EXPECT_THAT(listing(read_abort_log(message + "  a \t 0x7f0000 0x10 0x7f0020 0x4\x1b[x1m\n")), IsEmpty());
}

TEST(AbortReports, OfSeveralThreadsShareTheirListing)
{
    const std::string second =
        "resolving R_AARCH64_ADR_PREL_LO21 reloc but smod does not fit in +/-1M, got 0x0 - 0x10 = "
        "0xfffffffffffffff0\n";
    const abort_log log = read_abort_log(message + line_of_a + second + line_of_a +
                                         glibc(assertions[1].function, assertions[1].expression) +
                                         end_of_listing + line_of_a + end_of_listing + end_of_listing);
    EXPECT_THAT(ids(log), ElementsAre("field-filled", "range", "unknown-target", ""));
    ASSERT_EQ(log.registries.size(), 1U);
    EXPECT_EQ(log.registries[0].kernels.size(), 3U);
    EXPECT_EQ(log.reports[0].registry_begin, 0U);
    EXPECT_EQ(log.reports[1].registry_begin, 1U);
    EXPECT_EQ(log.reports[1].registry, 0U);
    EXPECT_EQ(log.reports[2].registry, std::nullopt);
}

TEST(AbortReports, OfSeveralProcessesHaveAListingEach)
{
    const abort_log log =
        read_abort_log(message + line_of_a + end_of_listing + message + line_of_a + end_of_listing);
    EXPECT_THAT(ids(log), ElementsAre("field-filled", "field-filled"));
    ASSERT_EQ(log.registries.size(), 2U);
    EXPECT_EQ(log.reports[1].registry, 1U);
    EXPECT_EQ(log.reports[1].line, 4U);
    EXPECT_EQ(log.registries[1].kernels.size(), 1U);

    // The first process ends before its second thread has printed everything.
    const abort_log truncated =
        read_abort_log(message + message + line_of_a + end_of_listing + message + line_of_a + end_of_listing);
    ASSERT_EQ(truncated.reports.size(), 3U);
    EXPECT_EQ(truncated.reports[1].registry, 0U);
    EXPECT_EQ(truncated.reports[2].registry, 1U);
    EXPECT_EQ(truncated.registries.at(0).kernels.size(), 1U);
}

TEST(AbortReports, AreFoundWithoutTheirMessage)
{
    const abort_log log = read_abort_log(line_of_a + end_of_listing);
    EXPECT_THAT(ids(log), ElementsAre(""));
    EXPECT_EQ(log.reports[0].registry, std::nullopt);
}

TEST(AbortReports, AreReadInPiecesOfAnySize)
{
    const std::string text =
        "x\n\ny\nz\n" + message + "  new\nline \t 0x7f0000 0x10 0x7f0020 0x4\n" + end_of_listing;
    for (std::size_t size = 1; size < text.size(); ++size) {
        abort_log_reader reader;
        for (std::size_t at = 0; at < text.size(); at += size)
            reader.read(std::string_view(text).substr(at, size));
        const abort_log log = reader.finish();
        ASSERT_EQ(ids(log), std::vector<std::string>{"field-filled"}) << size;
        EXPECT_EQ(log.reports[0].line, 5U);
        EXPECT_THAT(listing(log), ElementsAre("new\nline|0x7f0000|0x10|0x7f0020|0x4"));
        EXPECT_TRUE(log.registries[0].complete);
    }
}

TEST(AbortReports, AreFoundAtTheEndOfAnEndlessLine)
{
    const std::string noise(3 << 20, '.');
    const abort_log log = read_abort_log(noise + message + noise + "\n" + line_of_a + noise + end_of_listing);
    ASSERT_EQ(ids(log), std::vector<std::string>{"field-filled"});
    EXPECT_THAT(listing(log), ElementsAre("a|0x7f0000|0x10|0x7f0020|0x4"));
    EXPECT_TRUE(log.registries[0].complete);
}

TEST(AbortReports, AreAtMostAHundred)
{
    const std::string report = message + line_of_a + end_of_listing;
    std::string text;
    for (int i = 0; i < 130; ++i)
        text += report;
    const abort_log log = read_abort_log(text);
    EXPECT_EQ(log.reports.size(), 100U);
    EXPECT_EQ(log.more_reports, 30U);
    EXPECT_EQ(log.registries.size(), 100U);
}

TEST(AbortReports, AreTruncatedBeforeTheyFillTheMemory)
{
    // 200 MiB of kernels, only 128 MiB of them kept, and endless names.
    const std::string line = "  " + std::string(100000, 'k') + " \t 0x7f0000 0x10 0x7f0020 0x4\n";
    abort_log_reader reader;
    reader.read(message);
    for (int i = 0; i < 2000; ++i)
        reader.read(line);
    for (int i = 0; i < 100; ++i)
        reader.read("  " + std::string(100000, 'k') + "\n");
    reader.read(end_of_listing);
    const abort_log log = reader.finish();
    ASSERT_EQ(log.registries.size(), 1U);
    EXPECT_LT(log.registries[0].kernels.size(), 1400U);
    EXPECT_GT(log.registries[0].kernels.size(), 1300U);
    EXPECT_FALSE(log.registries[0].complete);
}

} // namespace
