// What docs/relocations.md says is what the library does.

#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

namespace {

std::string contents(const std::string& path)
{
    std::ifstream file(std::string(PROJECT_ROOT "/") + path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::smatch> matches(const std::string& text, const std::string& pattern)
{
    const std::regex regex(pattern);
    return {std::sregex_iterator(text.begin(), text.end(), regex), std::sregex_iterator()};
}

std::uint64_t hexadecimal(const std::string& digits)
{
    return std::stoull(digits, nullptr, 16);
}

// | Type | P | S | Word before | Word after | Why |
TEST(RelocationsGuide, WorkedExamplesHold)
{
    const std::string guide = contents("docs/relocations.md");
    const auto examples =
        matches(guide, "\\| (\\d+) \\| (0x\\w+) \\| (0x\\w+) \\| (0x\\w+) \\| (0x\\w+) \\|");
    ASSERT_EQ(examples.size(), 8U);

    constexpr std::uint64_t page_size = 0x1000;
    for (const std::smatch& example : examples) {
        const std::uint64_t P = hexadecimal(example[2]);
        const std::uint64_t S = hexadecimal(example[3]);

        // The kernel starts where P's page does, in a mapping at that address.
        support::platform_spy spy;
        spy.place = support::address(P / page_size * page_size);
        const auto offset = static_cast<std::int32_t>(P % page_size);
        std::vector<std::uint32_t> words(page_size / sizeof(std::uint32_t));
        words.at(P % page_size / sizeof(std::uint32_t)) = static_cast<std::uint32_t>(hexadecimal(example[4]));
        vorna::wfta::kernel_registry_map registry = {{"target", {support::address(S), 4, nullptr, 0}}};
        vorna::wfta::finalise_kernels(
            registry, {support::kernel("kernel", words, {{"target", offset, std::stoi(example[1]), 0}})});

        EXPECT_EQ(support::word_at(support::address(P)), hexadecimal(example[5])) << example.str();
    }
}

TEST(RelocationsGuide, MessagesAreTheLibrarys)
{
    const std::string source = contents("fft/SRC/wfta/kernel_printer.cpp");
    const std::string guide = contents("docs/relocations.md");
    const auto messages = matches(guide, "\n    (resolving .*)");
    ASSERT_EQ(messages.size(), 7U);
    for (const std::smatch& message : messages)
        EXPECT_NE(source.find("\"" + message.str(1) + "\\n\""), std::string::npos) << message.str(1);
}

} // namespace
