#include "workbench/render/table.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;

// Of kernels, their class and a number, under headings in text.
table sizes(std::vector<table_row> rows)
{
    table made;
    made.columns = {{"kernel", column_kind::name},
                    {"class"},
                    {"code bytes", column_kind::number},
                    {"data", column_kind::number}};
    made.rows = std::move(rows);
    made.summary = "2 same";
    made.aligned = true;
    return made;
}

table_row size_row(const std::string& name, const std::string& status, const std::string& bytes)
{
    table_row row;
    row.cells = {{name}, {status, color::red}, {bytes}, {"0"}};
    return row;
}

// Of findings, one for each line in text.
table findings(std::vector<table_row> rows)
{
    table made;
    made.columns = {{"place", column_kind::text, shown_in::text},
                    {"kernel", column_kind::name},
                    {"status", column_kind::text, shown_in::markdown},
                    {""}};
    made.rows = std::move(rows);
    made.summary = "a < b: 1 finding";
    return made;
}

table_row finding(const std::string& name, const std::string& message)
{
    table_row row;
    row.cells = {{"base:7"}, {name}, {"changed"}, {message, color::yellow}};
    return row;
}

std::string annotation(const table_row& row)
{
    table made = findings({row});
    made.summary = "";
    return format_table(made, "github", true);
}

TEST(TextTable, AlignsItsColumnsToTheWidestCell)
{
    EXPECT_EQ(format_table(sizes({size_row("wfta_3", "code", "12 -> 8 (-4)"), size_row("b", "added", "4")}),
                           "text", false),
              "kernel  class  code bytes    data\n"
              "wfta_3  code   12 -> 8 (-4)  0\n"
              "b       added  4             0\n"
              "2 same\n");
}

TEST(TextTable, PrintsTheEvidenceOfARowBelowItAndLeavesOutAColumnOfMarkdown)
{
    table made = sizes({size_row("wfta_3", "code", "8"), size_row("b", "added", "4")});
    made.columns.back().formats = shown_in::markdown;
    made.rows.front().evidence = "    4 bytes more than before";
    EXPECT_EQ(format_table(made, "text", false), "kernel  class  code bytes\n"
                                                 "wfta_3  code   8\n"
                                                 "    4 bytes more than before\n"
                                                 "b       added  4\n"
                                                 "2 same\n");
}

TEST(TextTable, CountsColumnsNotBytes)
{
    // Two bytes and one column, three bytes and two columns, and a byte that is not UTF-8.
    EXPECT_EQ(format_table(sizes({size_row("größere", "code", "1"), size_row("核心核心", "code", "2"),
                                  size_row("\xff\xff\xff\xff\xff\xff\xff\xff", "code", "3")}),
                           "text", false),
              "kernel    class  code bytes  data\n"
              "größere   code   1           0\n"
              "核心核心  code   2           0\n"
              "\xff\xff\xff\xff\xff\xff\xff\xff  code   3           0\n"
              "2 same\n");
}

TEST(TextTable, ShiftsOnlyTheRowOfANameLongerThan40Columns)
{
    EXPECT_EQ(format_table(sizes({size_row(std::string(41, 'a'), "code", "1"), size_row("b", "code", "2")}),
                           "text", false),
              "kernel" + std::string(36, ' ') + "class  code bytes  data\n" + std::string(41, 'a') +
                  "  code   1           0\n" + "b" + std::string(41, ' ') + "code   2           0\n2 same\n");
}

TEST(TextTable, IsColoredOnlyWhenAskedTo)
{
    EXPECT_EQ(format_table(sizes({size_row("b", "code", "4")}), "text", true),
              "kernel  class  code bytes  data\n"
              "\x1b[1mb     \x1b[0m  \x1b[1;31mcode \x1b[0m  4           0\n"
              "2 same\n");
    EXPECT_EQ(format_table(findings({finding("b", "changed")}), "text", true),
              "base:7: \x1b[1mb\x1b[0m: \x1b[1;33mchanged\x1b[0m\na < b: 1 finding\n");
    for (const char* format : {"text", "markdown", "github"})
        EXPECT_EQ(format_table(sizes({size_row("b", "code", "4")}), format, false).find('\x1b'),
                  std::string::npos);
    for (const char* format : {"markdown", "github"})
        EXPECT_EQ(format_table(findings({finding("b", "changed")}), format, true).find('\x1b'),
                  std::string::npos);
}

TEST(TextTable, PrintsEvidenceAndRemarksUnderAFinding)
{
    table_row explained = finding("b", "changed");
    explained.evidence = "    d65f03c0  ret";
    explained.remarks = {{"note", "one"}, {"help", "two"}};
    table_row placeless = finding("c", "added");
    placeless.cells[0].text = "";
    EXPECT_EQ(format_table(findings({explained, placeless}), "text", false), "base:7: b: changed\n"
                                                                             "    d65f03c0  ret\n"
                                                                             "    note: one\n"
                                                                             "    help: two\n"
                                                                             "c: added\n"
                                                                             "a < b: 1 finding\n");
    explained.remarks.pop_back();
    EXPECT_EQ(format_table(findings({explained}), "text", true),
              "base:7: \x1b[1mb\x1b[0m: \x1b[1;33mchanged\x1b[0m\n"
              "    d65f03c0  ret\n"
              "    \x1b[2mnote: one\x1b[0m\n"
              "a < b: 1 finding\n");
}

TEST(Table, WithoutRowsIsItsSummary)
{
    for (const char* format : {"text", "markdown", "github"}) {
        EXPECT_EQ(format_table(sizes({}), format, true), "2 same\n");
        EXPECT_EQ(format_table(findings({}), format, true),
                  format == std::string("markdown") ? "a &#60; b: 1 finding\n" : "a < b: 1 finding\n");
    }
}

TEST(MarkdownTable, AlignsNumbersRightAndShowsNamesAsCode)
{
    EXPECT_EQ(format_table(sizes({size_row("b", "code", "12 -> 8 (-4)")}), "markdown", true),
              "| kernel | class | code bytes | data |\n"
              "|---|---|---:|---:|\n"
              "| <code>b</code> | code | 12 -> 8 (-4) | 0 |\n"
              "\n"
              "2 same\n");
    EXPECT_EQ(format_table(findings({finding("b", "changed")}), "markdown", false),
              "| kernel | status | |\n"
              "|---|---|---|\n"
              "| <code>b</code> | changed | changed |\n"
              "\n"
              "a &#60; b: 1 finding\n");
}

TEST(MarkdownTable, EscapesMarkupAndCellSeparators)
{
    const auto row_of = [](const std::string& name, const std::string& text) {
        const std::string all = format_table(findings({finding(name, text)}), "markdown", false);
        const std::size_t row = all.find("| <code>");
        return all.substr(row, all.find('\n', row) - row);
    };
    EXPECT_EQ(row_of("a|b`<c>", "a|b"), "| <code>a&#124;b&#96;&#60;c&#62;</code> | changed | a&#124;b |");
    EXPECT_EQ(
        row_of("@a#1", "`<b>` **&** [x](y) \\| $1$ ~~@a~~ #1"),
        "| <code>&#64;a&#35;1</code> | changed | &#96;&#60;b>&#96; &#42;&#42;&#38;&#42;&#42; &#91;x&#93;(y) "
        "&#92;&#124; &#36;1&#36; &#126;&#126;&#64;a&#126;&#126; &#35;1 |");
    // An underscore inside a word is not markup.
    EXPECT_EQ(row_of("wfta_short_3", "a_b"), "| <code>wfta_short_3</code> | changed | a_b |");
    EXPECT_EQ(row_of("__a__", "_a b_"), "| <code>&#95;&#95;a&#95;&#95;</code> | changed | &#95;a b&#95; |");
    EXPECT_EQ(row_of("\xff", "\xc3"), "| <code>\xef\xbf\xbd</code> | changed | \xef\xbf\xbd |");
}

TEST(Annotations, HaveALevelAndTheNameAsTitle)
{
    table_row row = finding("k", "text");
    EXPECT_EQ(annotation(row), "::error title=k::k: text\n\n");
    row.level = table_level::warning;
    row.file = "base";
    EXPECT_EQ(annotation(row), "::warning file=base,title=k::k: text\n\n");
    row.level = table_level::notice;
    row.line = 7;
    EXPECT_EQ(annotation(row), "::notice file=base,line=7,title=k::k: text\n\n");
}

TEST(Annotations, HaveTheHeadingsOfNumbers)
{
    EXPECT_EQ(format_table(sizes({size_row("b", "code", "12 -> 8 (-4)")}), "github", true),
              "::error title=b::b: code; code bytes 12 -> 8 (-4), data 0\n"
              "2 same\n");
}

TEST(Annotations, LeaveOutEmptyCells)
{
    EXPECT_EQ(format_table(sizes({size_row("b", "", "4")}), "github", true),
              "::error title=b::b; code bytes 4, data 0\n"
              "2 same\n");
}

TEST(Annotations, EscapeCharactersThatEndAPropertyOrTheMessage)
{
    table_row row = finding("a,b:c%\n", "d,e:f%\r\n");
    row.file = "g:h";
    row.evidence = "    d65f03c0  ret";
    row.remarks = {{"note", "50 %"}, {"help", "x"}};
    EXPECT_EQ(annotation(row), "::error file=g%3Ah,title=a%2Cb%3Ac%25%0A::"
                               "a,b:c%25%0A: d,e:f%25%0D%0A%0A50 %25%0Ax\n\n");
}

} // namespace
