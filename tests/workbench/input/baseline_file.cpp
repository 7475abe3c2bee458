// What a line of a baseline holds, and which texts are refused.

#include "workbench/input/baseline_file.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <stdexcept>

namespace {

using namespace vorna::workbench;

const std::string hash_of_nothing = "99aa06d3014798d86001c324468d497f"; // XXH3's test vector
const kernel_fingerprint of_nothing = {hash_of_nothing, hash_of_nothing, hash_of_nothing, 0};

TEST(BaselineFile, HasALineForEachKernel)
{
    const std::string text = format_baseline({{"wfta_short_3", of_nothing}});
    EXPECT_EQ(text, "vorna-kernels baseline 1\nwfta_short_3 " + hash_of_nothing + " " + hash_of_nothing +
                        " " + hash_of_nothing + " 0\n");
}

TEST(BaselineFile, KeepsAnyNameOnOneLine)
{
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte)
        every_byte += static_cast<char>(byte);
    const std::vector<std::string> names = {"",      " ",   "\n",           "\\",      "\\e",
                                            "\\x41", "a b", "<<<<<<< HEAD", every_byte};
    baseline entries;
    for (const std::string& name : names)
        entries.push_back({name, of_nothing});
    const std::string text = format_baseline(entries);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<std::ptrdiff_t>(1 + names.size()));
    std::vector<std::string> read;
    for (const auto& entry : parse_baseline(text))
        read.push_back(entry.name);
    EXPECT_THAT(read, testing::UnorderedElementsAreArray(names));
    EXPECT_TRUE(std::is_sorted(read.begin(), read.end()));
}

std::string refusal(const std::string& text)
{
    try {
        parse_baseline(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(BaselineFile, IsRefusedWithTheLineThatIsWrong)
{
    const std::string head = "vorna-kernels baseline 1\n";
    const std::string hashes = hash_of_nothing + " " + hash_of_nothing + " " + hash_of_nothing;
    const std::string good = "a " + hashes + " 5\n";
    EXPECT_EQ(refusal(head + good), "");
    EXPECT_EQ(refusal(head), "");
    EXPECT_EQ(refusal(""), "line 1: expected \"vorna-kernels baseline 1\"");
    EXPECT_EQ(refusal("vorna-kernels baseline 2\n" + good), "line 1: expected \"vorna-kernels baseline 1\"");
    EXPECT_EQ(refusal("vorna-kernels baseline 1"), "line 1: truncated");
    EXPECT_EQ(refusal(head + good.substr(0, good.size() - 1)), "line 2: truncated");
    EXPECT_EQ(refusal(head + good + "\n"), "line 3: expected a name, three hashes and a number");
    EXPECT_EQ(refusal(head + "a b " + hashes + " 5\n"), "line 2: expected a name, three hashes and a number");
    EXPECT_EQ(refusal(head + " " + hashes + " 5\n"), "line 2: expected a name, three hashes and a number");
    EXPECT_EQ(refusal(head + "a " + hashes.substr(1) + " 5\n"),
              "line 2: expected hashes of 32 hexadecimal digits");
    EXPECT_EQ(refusal(head + "a A" + hashes.substr(1) + " 5\n"),
              "line 2: expected hashes of 32 hexadecimal digits");
    std::string line = head;
    line.append("a ").append(hashes).append(" ");
    for (const char* number : {"", "-5", "5x", "0x5", "99999999999999999999"})
        EXPECT_EQ(refusal(line + number + "\n"), "line 2: invalid number of instructions");
    EXPECT_EQ(refusal(head + "a\\n " + hashes + " 5\n"),
              "line 2: invalid escape, expected \\x and two digits");
    EXPECT_EQ(refusal(head + "a\\x6 " + hashes + " 5\n"),
              "line 2: invalid escape, expected \\x and two digits");
    EXPECT_EQ(refusal(head + "a\\x41 " + hashes + " 5\n"), "line 2: name not in canonical form");
    EXPECT_EQ(refusal(head + good + good), "line 3: duplicate kernel a, first in line 2");
    for (const char* marker : {"<<<<<<< HEAD\n", "||||||| 1a2b3c4\n", "=======\n", ">>>>>>> change\n",
                               ">>>>>>> 1a2b3c4 (Turn the other way)\n"})
        EXPECT_EQ(refusal(std::string(head).append(marker).append(good)),
                  "line 2: unresolved merge conflict");
    EXPECT_EQ(refusal(head + "======= " + hashes + " 5\n"), "") << "a kernel's name";
}

TEST(BaselineFile, MayHaveTheLineEndsOfAnotherSystem)
{
    EXPECT_EQ(refusal("vorna-kernels baseline 1\r\na " + hash_of_nothing + " " + hash_of_nothing + " " +
                      hash_of_nothing + " 5\r\n"),
              "");
}

} // namespace
