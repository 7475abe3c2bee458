// Names and numbers in messages. What is UTF-8 is told by table 3-7 of the Unicode standard.

#include "check/format.hpp"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>

namespace {

using namespace vorna::wfta;

/// The size of the first sequence; with a minus if it is not a character.
int first(std::string_view bytes)
{
    const utf8_sequence sequence = first_sequence(bytes);
    return sequence.valid ? static_cast<int>(sequence.size) : -static_cast<int>(sequence.size);
}

TEST(FirstSequence, IsACharacterOfOneToFourBytes)
{
    EXPECT_EQ(first("\x7f\x80"), 1);
    EXPECT_EQ(first("\xc2\x80z"), 2);
    EXPECT_EQ(first("\xdf\xbfz"), 2);
    EXPECT_EQ(first("\xe0\xa0\x80z"), 3);
    EXPECT_EQ(first("\xed\x9f\xbfz"), 3) << "the last before the surrogates";
    EXPECT_EQ(first("\xee\x80\x80z"), 3);
    EXPECT_EQ(first("\xf0\x90\x80\x80z"), 4);
    EXPECT_EQ(first("\xf4\x8f\xbf\xbfz"), 4) << "U+10FFFF";
}

TEST(FirstSequence, EndsBeforeTheByteThatDoesNotContinueIt)
{
    EXPECT_EQ(first("\x80"), -1);
    EXPECT_EQ(first("\xc1\xbf"), -1) << "overlong";
    EXPECT_EQ(first("\xf5\x80\x80\x80"), -1);
    EXPECT_EQ(first("\xe0\x9f\xbf"), -1) << "overlong";
    EXPECT_EQ(first("\xf0\x8f\xbf\xbf"), -1) << "overlong";
    EXPECT_EQ(first("\xed\xa0\x80"), -1) << "a surrogate";
    EXPECT_EQ(first("\xf4\x90\x80\x80"), -1) << "above U+10FFFF";
    EXPECT_EQ(first("\xc3z"), -1);
    EXPECT_EQ(first("\xc3\xc3"), -1);
    EXPECT_EQ(first("\xe2\x82z"), -2);
    EXPECT_EQ(first("\xf0\x9f\x98\xff"), -3);
}

TEST(FirstSequence, EndsWithTheBytes)
{
    EXPECT_EQ(first("\xc3"), -1);
    EXPECT_EQ(first("\xe2\x82"), -2);
    EXPECT_EQ(first("\xf0\x9f\x98"), -3);
}

TEST(FormattedName, IsOneLineOfPrintableCharacters)
{
    EXPECT_EQ(printable("name \xc3\xa4\\\""), "name \xc3\xa4\\\"");
    EXPECT_EQ(printable("\n\t\x1f\x7f"), "\\n\\t\\x1f\\x7f");
    EXPECT_EQ(printable("\xc2\x80\xc2\x9f\xc2\xa0"), "\\x80\\x9f\xc2\xa0") << "C1 controls";
    EXPECT_EQ(printable("\xc3\x80"), "\xc3\x80") << "ends as a C1 control does";
    EXPECT_EQ(printable("\xc2"), "\\xc2") << "the beginning of a C1 control";
    EXPECT_EQ(printable("\xe2\x82z"), "\\xe2\\x82z");
}

TEST(FormattedName, HasAtMost255BytesAndNoPartOfACharacter)
{
    const auto kept = [](const std::string& name) { return vorna::wfta::quoted(name).size() - 2; };
    EXPECT_EQ(vorna::wfta::quoted(std::string(255, 'a')), "'" + std::string(255, 'a') + "'");
    EXPECT_EQ(vorna::wfta::quoted(std::string(256, 'a')), "'" + std::string(255, 'a') + "...'");
    EXPECT_EQ(kept(std::string(254, 'a') + "\xc3\xa4"), 254U + 3);
    EXPECT_EQ(kept(std::string(252, 'a') + "\xf0\x9f\x98\x80"), 252U + 3);
    EXPECT_EQ(kept(std::string(251, 'a') + "\xf0\x9f\x98\x80z"), 255U + 3);
    EXPECT_EQ(vorna::wfta::quoted(std::string(251, 'a') + std::string(9, '\x80')),
              "'" + std::string(251, 'a') + "\\x80...'")
        << "no character is longer than four bytes";
}

TEST(FormattedNumber, IsHexadecimal)
{
    EXPECT_EQ(hex(0), "0x0");
    EXPECT_EQ(hex(~std::uint64_t{0}), "0xffffffffffffffff");
    EXPECT_EQ(signed_hex(0), "+0x0");
    EXPECT_EQ(signed_hex(-8), "-0x8");
    EXPECT_EQ(signed_hex(std::numeric_limits<std::int64_t>::min()), "-0x8000000000000000");
    EXPECT_EQ(word_text(0x1f), "0x0000001f");
}

TEST(FormattedSymbol, HasItsAddend)
{
    EXPECT_EQ(with_addend("f", 0), "f");
    EXPECT_EQ(with_addend("f", 16), "f+0x10");
    EXPECT_EQ(with_addend("f", -16), "f-0x10");
}

TEST(FormattedInstruction, HasItsArticle)
{
    EXPECT_EQ(with_article("ADRP"), "an ADRP");
    EXPECT_EQ(with_article("BL"), "a BL");
}

TEST(FormattedRelocation, IsAnInitialiserInCpp)
{
    EXPECT_EQ(relocation_text("callee", 4, 283, -8), "{\"callee\", 4, 283, -8}");
    EXPECT_EQ(relocation_text("a\"b", 0, 274, 0), "{\"a\\\"b\", 0, 274, 0}");
}

} // namespace
