#include "workbench/render/json.hpp"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace {

using vorna::workbench::json;

TEST(Json, KeepsTheOrderOfItsMembers)
{
    json object = {{"z", 1}, {"a", true}};
    object["m"] = nullptr;
    object["z"] = "one";
    EXPECT_EQ(object.dump(), R"({"z":"one","a":true,"m":null})");
    object.erase("a");
    object.erase("nobody");
    object.update({{"m", 2}, {"b", 3}});
    EXPECT_EQ(object.dump(), R"({"z":"one","m":2,"b":3})");
    EXPECT_EQ(object.at("b").number(), 3);
}

TEST(Json, MakesAnObjectOfNamedPairsAndAnArrayOtherwise)
{
    EXPECT_EQ(json({{"a", 1}}).dump(), R"({"a":1})");
    EXPECT_EQ(json({{1, 2}, {3, 4}}).dump(), "[[1,2],[3,4]]");
    EXPECT_EQ(json({"a", 1}).dump(), R"(["a",1])");
    EXPECT_EQ(json({{"a", 1}, 2}).dump(), R"([["a",1],2])");
    EXPECT_EQ(json::array({"a", "b"}).dump(), R"(["a","b"])");
    EXPECT_EQ(json::array().dump() + json::object().dump() + json().dump(), "[]{}null");
    EXPECT_EQ(json(std::vector<std::string>{"x", "y"}).dump(), R"(["x","y"])");
}

TEST(Json, HasNumbersOfAllSizes)
{
    json numbers = json::array();
    numbers.push_back(std::numeric_limits<std::uint64_t>::max());
    numbers.push_back(std::numeric_limits<std::int64_t>::min());
    numbers.push_back(0.5);
    numbers.push_back(std::uint8_t{7});
    EXPECT_EQ(numbers.dump(), "[18446744073709551615,-9223372036854775808,0.5,7]");
    EXPECT_EQ(json("7").number(), 0);
}

TEST(Json, IndentsAndEscapes)
{
    EXPECT_EQ(json({{"a", {1}}, {"b", "\"\n\x01"}}).dump(2),
              "{\n  \"a\": [\n    1\n  ],\n  \"b\": \"\\\"\\n\\u0001\"\n}");
}

TEST(Json, ReplacesBytesThatAreNotUtf8)
{
    EXPECT_EQ(json("a\xff\xc3\xa4").dump(), "\"a\xef\xbf\xbd\xc3\xa4\"");
}

} // namespace
