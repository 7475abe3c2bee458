#include "workbench/input/line_reader.hpp"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorna::workbench::for_each_line;
using vorna::workbench::line_reader;
using vorna::workbench::text_line;

std::vector<std::string> lines_of(std::string_view text, std::size_t piece, std::size_t longest = 100)
{
    std::vector<std::string> lines;
    const auto take = [&lines](const text_line& line) {
        lines.push_back(fmt::format("{}:{}{}{}", line.number, line.text, line.truncated ? " (truncated)" : "",
                                    line.ended ? "" : " (not ended)"));
    };
    line_reader reader(longest);
    for (std::size_t at = 0; at < text.size(); at += piece)
        reader.read(text.substr(at, piece), take);
    reader.finish(take);
    return lines;
}

TEST(LineReader, FindsLinesInPiecesOfAnySize)
{
    const std::string_view text = "first\n\nthird\r\n\r\nfi\rth\r\r\nlast";
    for (std::size_t piece = 1; piece <= text.size(); ++piece)
        EXPECT_THAT(lines_of(text, piece),
                    ElementsAre("1:first", "2:", "3:third", "4:", "5:fi\rth\r", "6:last (not ended)"))
            << piece;
}

TEST(LineReader, FindsNoLineAfterTheLastNewline)
{
    EXPECT_THAT(lines_of("", 1), IsEmpty());
    EXPECT_THAT(lines_of("\n", 1), ElementsAre("1:"));
}

TEST(LineReader, KeepsTheEndOfALongLine)
{
    const std::string text = std::string(95, 'a') + "01234\n" + std::string(96, 'b') + "56789\nc\n";
    const std::string truncated = "2:" + std::string(95, 'b') + "56789 (truncated)";
    for (std::size_t piece = 1; piece <= text.size(); ++piece)
        EXPECT_THAT(lines_of(text, piece),
                    ElementsAre("1:" + std::string(95, 'a') + "01234", truncated, "3:c"))
            << piece;
    const std::string endless(100000, 'x');
    for (const std::size_t piece : std::initializer_list<std::size_t>{1, 99, 100, 101, 199, 201, 100000})
        EXPECT_THAT(lines_of(endless, piece),
                    ElementsAre("1:" + std::string(100, 'x') + " (truncated) (not ended)"))
            << piece;
}

TEST(LineReader, DoesNotCopyALineThatIsWithinOnePiece)
{
    const std::string_view text = "one\ntwo\n";
    std::vector<const char*> begins;
    line_reader(100).read(text, [&begins](const text_line& line) { begins.push_back(line.text.data()); });
    EXPECT_THAT(begins, ElementsAre(text.data(), text.data() + 4));
}

TEST(ForEachLine, PassesLinesOfAnyLength)
{
    std::vector<std::size_t> lengths;
    const auto take = [&lengths](const text_line& line) {
        EXPECT_FALSE(line.truncated);
        EXPECT_EQ(line.ended, line.number == 1);
        lengths.push_back(line.text.size());
    };
    for_each_line(std::string(100000, 'x') + "\r\nlast", take);
    EXPECT_THAT(lengths, ElementsAre(100000U, 4U));
    for_each_line("", [](const text_line& line) { ADD_FAILURE() << line.text; });
}

} // namespace
