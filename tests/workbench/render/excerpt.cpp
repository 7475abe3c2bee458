// The rows around a marked one.

#include "workbench/render/excerpt.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;

// Six words and a byte.
std::vector<listing_row> make_rows()
{
    std::vector<listing_row> rows;
    for (std::size_t i = 0; i < 6; ++i) {
        listing_row row;
        row.offset = 4 * i;
        row.word = static_cast<std::uint32_t>(i);
        row.text = "nop";
        rows.push_back(row);
    }
    rows[2].label = ".L8";
    listing_row last;
    last.offset = 24;
    last.size = 1;
    last.text = ".byte 0x00";
    rows.push_back(last);
    return rows;
}

TEST(Excerpt, HasTwoRowsOnEachSideAndTheirLabels)
{
    EXPECT_EQ(excerpt_text(make_rows(), 3, 2, false), "    +04  00000001  nop\n"
                                                      "    .L8:\n"
                                                      "    +08  00000002  nop\n"
                                                      "  > +0c  00000003  nop\n"
                                                      "    +10  00000004  nop\n"
                                                      "    +14  00000005  nop\n");
}

TEST(Excerpt, EndsWhereTheRowsEnd)
{
    EXPECT_EQ(excerpt_text(make_rows(), 0, 3, false), "  > +000  00000000  nop\n"
                                                      "    +004  00000001  nop\n"
                                                      "    .L8:\n"
                                                      "    +008  00000002  nop\n");
    EXPECT_EQ(excerpt_text(make_rows(), 6, 2, false), "    +10  00000004  nop\n"
                                                      "    +14  00000005  nop\n"
                                                      "  > +18  00        .byte 0x00\n");
    EXPECT_EQ(excerpt_text(make_rows(), 7, 2, false), "");
    EXPECT_EQ(excerpt_text({}, 0, 2, false), "");
}

TEST(Excerpt, PrintsTheMarkedRowBold)
{
    const std::vector<listing_row> rows(1, make_rows().front());
    EXPECT_EQ(excerpt_text(rows, 0, 2, true), "\x1b[1m  > +00  00000000  nop\x1b[0m\n");
}

TEST(Excerpt, FindsTheRowOfAnyByte)
{
    EXPECT_EQ(row_at(make_rows(), 0), 0U);
    EXPECT_EQ(row_at(make_rows(), 7), 1U);
    EXPECT_EQ(row_at(make_rows(), 24), 6U);
    EXPECT_EQ(row_at(make_rows(), 25), 7U);
    EXPECT_EQ(row_at(make_rows(), -1), 7U);
}

} // namespace
