#include "workbench/text/percent.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::percent;
using vorna::workbench::percent_text;

TEST(Percent, HasOneDecimalAndNeverRoundsToZero)
{
    EXPECT_EQ(percent_text(0, 1000), "0.0");
    EXPECT_EQ(percent_text(0, 0), "0.0");
    EXPECT_EQ(percent_text(1, 1000000), "<0.1");
    EXPECT_EQ(percent_text(49, 100000), "<0.1");
    EXPECT_EQ(percent_text(51, 100000), "0.1");
    EXPECT_EQ(percent_text(12345, 100000), "12.3");
    EXPECT_EQ(percent_text(7, 7), "100.0");
    EXPECT_EQ(percent(1, 8), 12.5);
    EXPECT_EQ(percent(1, 0), 0);
}

} // namespace
