#include "workbench/render/markdown.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::markdown_block;
using vorna::workbench::markdown_code;
using vorna::workbench::markdown_text;

// GitHub Flavored Markdown: emphasis, code, links, HTML, entities, table cells, strikethrough, mathematics,
// mentions and issue numbers.
TEST(MarkdownText, EscapesAllMarkup)
{
    EXPECT_EQ(markdown_text("`*[]<&|~\\$@#"),
              "&#96;&#42;&#91;&#93;&#60;&#38;&#124;&#126;&#92;&#36;&#64;&#35;");
    EXPECT_EQ(markdown_text("a (b) > c: d - e! 12.5 % \"q\" 'r'"), "a (b) > c: d - e! 12.5 % \"q\" 'r'");
}

TEST(MarkdownText, EscapesAnUnderscoreUnlessItIsInsideAWord)
{
    EXPECT_EQ(markdown_text("a_b"), "a_b");
    EXPECT_EQ(markdown_text("3_4"), "3_4");
    EXPECT_EQ(markdown_text("_a"), "&#95;a");
    EXPECT_EQ(markdown_text("a_"), "a&#95;");
    EXPECT_EQ(markdown_text("a_ b"), "a&#95; b");
    EXPECT_EQ(markdown_text("a__b"), "a&#95;&#95;b");
    EXPECT_EQ(markdown_text("_"), "&#95;");
}

TEST(MarkdownCode, EscapesWhatCouldEndTheElementOrATableCell)
{
    EXPECT_EQ(markdown_code("a<b>&\"'|c"), "<code>a&#60;b&#62;&#38;&#34;&#39;&#124;c</code>");
    EXPECT_EQ(markdown_code("`*[]~\\$@#:!"),
              "<code>&#96;&#42;&#91;&#93;&#126;&#92;&#36;&#64;&#35;&#58;&#33;</code>");
    EXPECT_EQ(markdown_code("wfta_short_3"), "<code>wfta_short_3</code>");
    EXPECT_EQ(markdown_code("_k"), "<code>&#95;k</code>");
}

TEST(Markdown, ReplacesBytesThatAreNotUtf8)
{
    EXPECT_EQ(markdown_text("\xff"), "\xef\xbf\xbd");
    EXPECT_EQ(markdown_code("\xc3\xa9\xc3"), "<code>\xc3\xa9\xef\xbf\xbd</code>");
    EXPECT_EQ(markdown_block("", {"\xff"}), "```\n\xef\xbf\xbd\n```\n");
}

// A fence is at least three backticks, and more than any run of them inside.
TEST(MarkdownBlock, HasAFenceThatNoLineCanEnd)
{
    EXPECT_EQ(markdown_block("diff", {"+ a", "- b"}), "```diff\n+ a\n- b\n```\n");
    EXPECT_EQ(markdown_block("", {}), "```\n```\n");
    EXPECT_EQ(markdown_block("c", {"``", "`a`"}), "```c\n``\n`a`\n```\n");
    EXPECT_EQ(markdown_block("c", {"```"}), "````c\n```\n````\n");
    EXPECT_EQ(markdown_block("c", {"a ````` b", "``"}), "``````c\na ````` b\n``\n``````\n");
}

} // namespace
