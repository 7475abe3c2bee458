// GNU diff shows the same changes with the same context.

#include "workbench/render/unified_diff.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/random_seed.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <sstream>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::ElementsAreArray;
using vorna::workbench::disassembler;
using vorna::workbench::list_without_addresses;
using vorna::workbench::listing_row;
using vorna::workbench::placed_kernel;
using vorna::workbench::row_text;
using vorna::workbench::unified_diff;

std::vector<std::string> diff(const placed_kernel& before, const placed_kernel& after)
{
    disassembler disassembler;
    return unified_diff(before, after, disassembler);
}

placed_kernel kernel(const std::vector<std::uint32_t>& words, const std::vector<double>& constants = {})
{
    return placed("k", 0x10000, words, {}, bytes_of(constants), 0x40000);
}

// What `diff -U3` prints about the rows, with byte offsets in place of line numbers.
std::vector<std::string> gnu_diff(const std::vector<std::string>& before,
                                  const std::vector<std::string>& after)
{
    const temp_directory directory;
    const auto write = [&](const char* name, const std::vector<std::string>& lines) {
        std::string all;
        for (const std::string& line : lines)
            all += line + "\n";
        write_file(directory.path() / name, all);
    };
    write("before", before);
    write("after", after);
    const child_result tool = run_tool({"diff", "-U3", "before", "after"}, directory.path());
    EXPECT_LE(tool.exit_status, 1) << tool;
    std::vector<std::string> printed;
    std::istringstream lines(tool.out);
    const std::regex header("@@ -([0-9]+)(?:,([0-9]+))? \\+([0-9]+)(?:,([0-9]+))? @@.*");
    for (std::string line; std::getline(lines, line);) {
        if (printed.empty() && line.rfind("--- ", 0) == 0) {
            std::getline(lines, line);
            continue;
        }
        std::smatch match;
        if (!std::regex_match(line, match, header)) {
            printed.push_back(line.substr(0, 1) + " " + line.substr(1));
            continue;
        }
        // The number of the first line, or, of no lines, of the one before.
        const auto offset = [&](std::size_t number, std::size_t count) {
            const bool none = match[count].matched && match.str(count) == "0";
            char text[16];
            std::snprintf(text, sizeof text, "+%02x", 4 * (std::stoi(match.str(number)) - (none ? 0 : 1)));
            return std::string(text);
        };
        printed.push_back("@@ " + offset(1, 2) + " " + offset(3, 4) + " @@");
    }
    return printed;
}

std::vector<std::string> without_offset(std::vector<std::string> lines, std::size_t begin)
{
    for (std::string& line : lines) {
        if (line[0] != '@')
            line.erase(begin, line.find(' ', begin) + 2 - begin);
    }
    return lines;
}

std::vector<std::string> rows_of(const placed_kernel& kernel)
{
    disassembler disassembler;
    std::vector<std::string> rows;
    for (const listing_row& row : list_without_addresses(kernel, disassembler).rows)
        rows.push_back(row_text(row));
    return without_offset(rows, 0);
}

TEST(UnifiedDiff, HasTheHunksOfGnuDiff)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (unsigned trial = 0; trial < 25; ++trial) {
        // All instructions are different, so there is only one way to align them.
        std::vector<std::uint32_t> before;
        std::vector<std::uint32_t> after;
        unsigned next = 0;
        for (std::size_t count = random() % 40; count > 0; --count) {
            const auto edit = random() % 12; // 0: added, 1: removed, 2: replaced, otherwise the same
            const std::uint32_t word = a64::movz(1, ++next);
            if (edit != 0)
                before.push_back(word);
            if (edit != 1)
                after.push_back(edit == 2 ? a64::movz(2, next) : word);
        }
        std::vector<std::string> lines = diff(kernel(before), kernel(after));
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines[0], "--- k (before)");
        EXPECT_EQ(lines[1], "+++ k (after)");
        lines.erase(lines.begin(), lines.begin() + 2);
        EXPECT_THAT(without_offset(lines, 2),
                    ElementsAreArray(gnu_diff(rows_of(kernel(before)), rows_of(kernel(after)))));
    }
}

TEST(UnifiedDiff, HasTheOffsetsOfItsOwnSideAndOfTheSideAfterInContext)
{
    EXPECT_THAT(
        diff(kernel({a64::nop(), a64::movz(0, 1), a64::ret()}), kernel({a64::movz(0, 1), a64::ret()})),
        ElementsAre("--- k (before)", "+++ k (after)", "@@ +00 +00 @@", "- +00  d503201f  nop",
                    "  +00  d2800020  mov   x0, #1", "  +04  d65f03c0  ret"));
    EXPECT_THAT(diff(kernel({}), kernel({a64::ret()})),
                ElementsAre("--- k (before)", "+++ k (after)", "@@ +00 +00 @@", "+ +00  d65f03c0  ret"));
    EXPECT_THAT(diff(kernel({a64::ret()}), kernel({})),
                ElementsAre("--- k (before)", "+++ k (after)", "@@ +00 +00 @@", "- +00  d65f03c0  ret"));
}

TEST(UnifiedDiff, ComparesConstantsOfEqualSizeByOffset)
{
    EXPECT_THAT(diff(kernel({}, {1, 2, 3}), kernel({}, {2, 1, 3})),
                ElementsAre("--- k (before)", "+++ k (after)", "@@ .rodata+00 .rodata+00 @@",
                            "- .rodata+00  3ff0000000000000  1", "- .rodata+08  4000000000000000  2",
                            "+ .rodata+00  4000000000000000  2", "+ .rodata+08  3ff0000000000000  1",
                            "  .rodata+10  4008000000000000  3"));
}

TEST(UnifiedDiff, AlignsConstantsOfDifferentSize)
{
    EXPECT_THAT(diff(kernel({}, {1, 2}), kernel({}, {7, 1, 2})),
                ElementsAre("--- k (before)", "+++ k (after)", "@@ .rodata+00 .rodata+00 @@",
                            "+ .rodata+00  401c000000000000  7", "  .rodata+08  3ff0000000000000  1",
                            "  .rodata+10  4000000000000000  2"));
}

TEST(UnifiedDiff, LimitsTheConstantsAndCountsTheRest)
{
    const auto changed = [](std::size_t count) {
        std::vector<std::string> lines =
            diff(kernel({}, std::vector<double>(count, 1)), kernel({}, std::vector<double>(count, 2)));
        const auto shown = std::count_if(lines.begin() + 2, lines.end(),
                                         [](const std::string& line) { return line[0] == '-'; });
        return std::to_string(shown) + " " + (lines.back()[0] == '@' ? lines.back() : "");
    };
    EXPECT_EQ(changed(24), "24 ");
    EXPECT_EQ(changed(25), "24 @@ 1 more differing lines @@");
    EXPECT_EQ(changed(100), "24 @@ 76 more differing lines @@");
}

} // namespace
