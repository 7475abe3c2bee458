#include "workbench/input/scanner.hpp"

#include <cstdint>
#include <gtest/gtest.h>

namespace {

using vorna::workbench::scanner;

TEST(Scanner, SkipsWords)
{
    scanner line("one two three");
    EXPECT_FALSE(line.skip("two"));
    EXPECT_TRUE(line.skip("one "));
    EXPECT_FALSE(line.skip_to("four"));
    EXPECT_EQ(line.rest(), "two three");
    EXPECT_TRUE(line.skip_to("two "));
    EXPECT_FALSE(line.skip_last("thre"));
    EXPECT_FALSE(line.skip_last("a line and three"));
    EXPECT_TRUE(line.skip_last("ree"));
    EXPECT_EQ(line.rest(), "th");
}

TEST(Scanner, SkipsBlanks)
{
    scanner line(" \t x \t");
    EXPECT_TRUE(line.skip_blanks());
    EXPECT_FALSE(line.skip_blanks());
    line.skip_last_blanks();
    EXPECT_EQ(line.rest(), "x");
    scanner blanks("  ");
    EXPECT_TRUE(blanks.skip_blanks());
    EXPECT_TRUE(blanks.at_end());
    EXPECT_FALSE(blanks.skip_blanks());
    scanner trailing("\t ");
    trailing.skip_last_blanks();
    EXPECT_TRUE(trailing.at_end());
}

TEST(Scanner, ReadsNumbersThatFit)
{
    std::int32_t number = 0;
    EXPECT_TRUE(scanner("-12/").take(number));
    EXPECT_EQ(number, -12);
    EXPECT_TRUE(scanner("2147483647").take(number));
    EXPECT_EQ(number, 2147483647);
    for (const char* const text : {"2147483648", "-2147483649", "+1", " 1", "x", "-", ""}) {
        scanner line(text);
        EXPECT_FALSE(line.take(number)) << text;
        EXPECT_EQ(line.rest(), text);
    }
    std::uint64_t large = 0;
    EXPECT_TRUE(scanner("18446744073709551615").take(large));
    EXPECT_EQ(large, UINT64_MAX);
    EXPECT_FALSE(scanner("18446744073709551616").take(large));
    EXPECT_FALSE(scanner("-1").take(large));
    scanner line("ffff0000FFFFcd1g");
    EXPECT_TRUE(line.take_hexadecimal(large));
    EXPECT_EQ(large, 0xffff0000ffffcd1U);
    EXPECT_EQ(line.rest(), "g");
    EXPECT_FALSE(scanner("10000000000000000").take_hexadecimal(large));
}

TEST(Scanner, TakesWordsFromTheFront)
{
    scanner line("one  two");
    std::string_view word;
    EXPECT_TRUE(line.take_word(word));
    EXPECT_EQ(word, "one");
    EXPECT_TRUE(line.take_word(word));
    EXPECT_EQ(word, "");
    EXPECT_TRUE(line.take_word(word));
    EXPECT_EQ(word, "two");
    EXPECT_FALSE(line.take_word(word));
}

TEST(Scanner, TakesWordsFromTheEnd)
{
    scanner line("a name 0x10\t0x20");
    std::string_view word;
    EXPECT_TRUE(line.take_last_word(word));
    EXPECT_EQ(word, "0x20");
    EXPECT_TRUE(line.take_last_word(word));
    EXPECT_EQ(word, "0x10");
    EXPECT_TRUE(line.take_last_word(word));
    EXPECT_EQ(line.rest(), "a");
    EXPECT_FALSE(line.take_last_word(word));
    EXPECT_EQ(line.rest(), "a");
}

} // namespace
