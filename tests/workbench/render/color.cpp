#include "workbench/render/color.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::color;
using vorna::workbench::colorize;

TEST(Colorize, WrapsTheTextInEscapeSequences)
{
    EXPECT_EQ(colorize("a", color::red, true), "\x1b[1;31ma\x1b[0m");
    EXPECT_EQ(colorize("a", color::yellow, true), "\x1b[1;33ma\x1b[0m");
    EXPECT_EQ(colorize("a", color::green, true), "\x1b[32ma\x1b[0m");
    EXPECT_EQ(colorize("a", color::cyan, true), "\x1b[36ma\x1b[0m");
    EXPECT_EQ(colorize("a", color::bold, true), "\x1b[1ma\x1b[0m");
    EXPECT_EQ(colorize("a", color::dim, true), "\x1b[2ma\x1b[0m");
}

TEST(Colorize, LeavesPlainTextAlone)
{
    EXPECT_EQ(colorize("a", color::none, true), "a");
    EXPECT_EQ(colorize("a", color::red, false), "a");
    EXPECT_EQ(colorize("", color::red, true), "");
}

} // namespace
