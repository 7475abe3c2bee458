#include "workbench/text/place.hpp"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace vorna::workbench;

TEST(PlaceText, HasTheOffsetInHexadecimalWithItsSign)
{
    EXPECT_EQ(place_text("wfta_12"), "wfta_12");
    EXPECT_EQ(place_text("wfta_12", 0), "wfta_12+0x0");
    EXPECT_EQ(place_text("wfta_12", 0x1c), "wfta_12+0x1c");
    EXPECT_EQ(place_text("a\nb", -4), "a\\nb-0x4");
}

TEST(HexDigits, CountsThoseOfTheNumber)
{
    EXPECT_EQ(hex_digits(0), 1);
    EXPECT_EQ(hex_digits(0xf), 1);
    EXPECT_EQ(hex_digits(0x10), 2);
    EXPECT_EQ(hex_digits(0xfff), 3);
    EXPECT_EQ(hex_digits(0x1000), 4);
    EXPECT_EQ(hex_digits(std::numeric_limits<std::uint64_t>::max()), 16);
}

TEST(SignedHex, ShowsTheLeastAndGreatestNumber)
{
    EXPECT_EQ(signed_hex(std::numeric_limits<std::int64_t>::min()), "-0x8000000000000000");
    EXPECT_EQ(signed_hex(std::numeric_limits<std::int64_t>::max()), "+0x7fffffffffffffff");
}

TEST(WithAddend, LeavesOutAnAddendOfZero)
{
    EXPECT_EQ(with_addend(".rodata.k", 0), ".rodata.k");
    EXPECT_EQ(with_addend(".rodata.k", 16), ".rodata.k+0x10");
    EXPECT_EQ(with_addend(".rodata.k", -8), ".rodata.k-0x8");
}

} // namespace
