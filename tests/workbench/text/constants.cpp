#include "workbench/text/constants.hpp"

#include <bit>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace vorna::workbench;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<std::uint8_t> eleven_bytes = {0, 0, 0, 0, 0, 0, 0xf8, 0x3f, 0x01, 0x02, 0xa3};

constant of(double value)
{
    return {std::bit_cast<std::uint64_t>(value)};
}

TEST(SplitConstants, AreLittleEndianAndTheLastMayBeShorter)
{
    EXPECT_THAT(split_constants(eleven_bytes),
                ElementsAre(constant{0x3ff8000000000000, 8}, constant{0xa30201, 3}));
    EXPECT_THAT(split_constants(std::span(eleven_bytes).first(8)),
                ElementsAre(constant{0x3ff8000000000000, 8}));
    EXPECT_THAT(split_constants({}), IsEmpty());
}

TEST(Hexadecimal, HasTwoDigitsForEachByte)
{
    EXPECT_EQ(hexadecimal(constant{0x3ff8000000000000, 8}), "3ff8000000000000");
    EXPECT_EQ(hexadecimal(constant{1, 8}), "0000000000000001");
    EXPECT_EQ(hexadecimal(constant{0xa30201, 3}), "a30201");
    EXPECT_EQ(hexadecimal(constant{0x1, 3}), "000001");
    EXPECT_EQ(hexadecimal(eleven_bytes), "000000000000f83f0102a3") << "bytes in their order";
    EXPECT_EQ(hexadecimal(std::span<const std::uint8_t>()), "");
}

TEST(ProbableDouble, IsTheShortestTextThatReadsBack)
{
    EXPECT_EQ(probable_double(of(1.5)), "1.5");
    EXPECT_EQ(probable_double(of(1)), "1");
    EXPECT_EQ(probable_double(of(0.1)), "0.1");
    EXPECT_EQ(probable_double(of(-0.8660254037844386)), "-0.8660254037844386");
    EXPECT_EQ(probable_double(of(1e22)), "1e+22");
    EXPECT_EQ(probable_double(of(0.0)), "0");
    EXPECT_EQ(probable_double(of(-0.0)), "-0");
}

TEST(ProbableDouble, IsEmptyIfItIsUnlikelyToBeADouble)
{
    using limits = std::numeric_limits<double>;
    for (const double value : {limits::quiet_NaN(), limits::infinity(), -limits::infinity(),
                               limits::denorm_min(), limits::max(), 1e30, -1e30, 1e-30, -1e-30})
        EXPECT_EQ(probable_double(of(value)), "") << value;
    EXPECT_EQ(probable_double(of(9.9e29)), "9.9e+29");
    EXPECT_EQ(probable_double(of(-1.1e-30)), "-1.1e-30");
    EXPECT_EQ(probable_double(constant{2ULL << 32 | 1}), "") << "two integers";
}

TEST(ProbableDouble, IsEmptyForFewerThanEightBytes)
{
    EXPECT_EQ(probable_double(constant{0, 7}), "");
    EXPECT_EQ(probable_double(constant{0, 8}), "0");
}

} // namespace
