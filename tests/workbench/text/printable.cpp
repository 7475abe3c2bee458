#include "workbench/text/printable.hpp"

#include <gtest/gtest.h>
#include <iconv.h>
#include <random>
#include <string>

namespace {

using vorna::workbench::printable;
using vorna::workbench::valid_utf8;

TEST(Printable, EscapesControlCharacters)
{
    EXPECT_EQ(printable("wfta_12 ä\\"), "wfta_12 ä\\");
    EXPECT_EQ(printable("a\nb\tc\x1b[31m\x7f"), "a\\nb\\tc\\x1b[31m\\x7f");
    EXPECT_EQ(printable(std::string("\0\r", 2)), "\\x00\\x0d");
}

TEST(Printable, EscapesC1ControlsOfUtf8)
{
    EXPECT_EQ(printable("\xc2\x9b"), "\\x9b"); // CSI
    EXPECT_EQ(printable("\xc2\xa0"), "\xc2\xa0");
}

TEST(Printable, EscapesEachByteThatIsNotUtf8)
{
    EXPECT_EQ(printable("\x9b"), "\\x9b");
    EXPECT_EQ(printable("a\xff\xfe\xc3\xa4"), "a\\xff\\xfe\xc3\xa4");
    EXPECT_EQ(printable("\xe2\x82z"), "\\xe2\\x82z"); // truncated
    EXPECT_EQ(printable("\xc0\x9f"), "\\xc0\\x9f");   // overlong
    EXPECT_EQ(printable("\xf0\x9f\x98"), "\\xf0\\x9f\\x98");
}

TEST(Quoted, IsTruncatedBetweenCharacters)
{
    EXPECT_EQ(vorna::wfta::quoted(std::string(254, 'a') + "\xc3\xa4"), "'" + std::string(254, 'a') + "...'");
    EXPECT_EQ(vorna::wfta::quoted(std::string(253, 'a') + "\xc3\xa4"),
              "'" + std::string(253, 'a') + "\xc3\xa4'");
}

const std::string replacement = "\xef\xbf\xbd";

TEST(ValidUtf8, KeepsCharactersOfEveryLength)
{
    const std::string text = "a\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf"
                             "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf\n";
    EXPECT_EQ(valid_utf8(text), text);
    EXPECT_EQ(valid_utf8(""), "");
}

TEST(ValidUtf8, ReplacesEachInvalidSequence)
{
    EXPECT_EQ(valid_utf8("a\xff\n\xc3\xa4"), "a" + replacement + "\n\xc3\xa4");
    EXPECT_EQ(valid_utf8("\xf0\x9f\x98"), replacement); // truncated
    EXPECT_EQ(valid_utf8("\xe2\x82z"), replacement + "z");
    EXPECT_EQ(valid_utf8("\xc0\xaf"), replacement + replacement); // overlong
    EXPECT_EQ(valid_utf8("\xe0\x9f\x80"), replacement + replacement + replacement);
    EXPECT_EQ(valid_utf8("\xed\xa0\x80"), replacement + replacement + replacement); // a surrogate
    EXPECT_EQ(valid_utf8("\xf4\x90\x80\x80"), replacement + replacement + replacement + replacement);
}

bool is_utf8_for_iconv(std::string text)
{
    void* const converter = iconv_open("UTF-32LE", "UTF-8");
    std::string output(4 * text.size() + 4, '\0');
    char* in = text.data();
    char* out = output.data();
    std::size_t in_left = text.size();
    std::size_t out_left = output.size();
    const bool valid = iconv(converter, &in, &in_left, &out, &out_left) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    return valid;
}

TEST(ValidUtf8, AgreesWithIconv)
{
    std::mt19937 random(1);
    const std::string interesting = "a\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc2\xdf\xe0\xed\xef\xf0\xf4\xf5\xff";
    int valid = 0;
    for (int i = 0; i < 20'000; ++i) {
        std::string bytes(1 + random() % 5, '\0');
        for (char& byte : bytes)
            byte = interesting[random() % interesting.size()];
        SCOPED_TRACE(printable(bytes));
        const std::string made = valid_utf8(bytes);
        ASSERT_TRUE(is_utf8_for_iconv(made));
        ASSERT_EQ(made == bytes, is_utf8_for_iconv(bytes));
        ASSERT_TRUE(is_utf8_for_iconv(printable(bytes)));
        valid += made == bytes;
    }
    EXPECT_GT(valid, 100);
}

} // namespace
