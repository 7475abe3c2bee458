// The features that instructions need: the manual's, and for random words those without which GNU's assembler
// refuses the instruction.

#include "workbench/disasm/features.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/files.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/disasm/disassembler.hpp"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::Contains;
using testing::Each;
using vorna::workbench::decode_word;
using vorna::workbench::feature_names;
using vorna::workbench::feature_search;
using vorna::workbench::feature_set;
using vorna::workbench::features_of;
using vorna::workbench::find_processor;

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

std::string features_of_word(std::uint32_t word)
{
    return joined(feature_names(features_of(decode_word(word).instructions.front())));
}

struct example {
    std::string line;
    std::string features;
};

void expect_features(const std::vector<example>& examples)
{
    std::string source;
    for (const example& one : examples)
        source += one.line + "\n";
    const std::vector<std::uint8_t> code = support::assemble_kernel("k", source).code;
    ASSERT_EQ(code.size(), 4 * examples.size());
    for (std::size_t i = 0; i < examples.size(); ++i)
        EXPECT_EQ(features_of_word(vorna::workbench::word_at(code, 4 * i)), examples[i].features)
            << examples[i].line;
}

TEST(Features, AreThoseThatAnInstructionNeeds)
{
    expect_features({{"add x0, x1, x2", ""},
                     {"ldr x0, [x1]", ""},
                     {"ret", ""},
                     {"fadd d0, d1, d2", "fp-armv8"},
                     {"ldr q0, [x1]", "fp-armv8"},
                     {"fmla v0.4s, v1.4s, v2.4s", "neon"},
                     {"sdot v0.4s, v1.16b, v2.16b", "dotprod"},
                     {"fmla v0.8h, v1.8h, v2.8h", "fullfp16 neon"},
                     {"ldadd x0, x1, [x2]", "lse"},
                     {"crc32b w0, w1, w2", "crc"},
                     {"ldapr x0, [x1]", "rcpc"},
                     {"pacia x0, x1", "pauth"},
                     {"ldff1d { z0.d }, p0/z, [x0]", "sve"},
                     {".inst 0xffffffff", ""}});
}

TEST(Features, OfAlternativesAreThoseWithoutStreamingMode)
{
    expect_features({{"fmla z0.s, p0/m, z1.s, z2.s", "sve"}, // or sme
                     {"cntd x0", "sve"},                     // or sme
                     {"adclb z0.d, z1.d, z2.d", "sve2"},     // or sme
                     {".inst 0x4482c820", "sve2p1"}});       // sdot z0.s, z1.h, z2.h: or sme2
}

TEST(Features, AreNoneForHintsAndPrefetches)
{
    expect_features({{"nop", ""},
                     {"paciasp", ""},
                     {"autiasp", ""},
                     {"xpaclri", ""},
                     {"bti c", ""},
                     {"csdb", ""},
                     {"esb", ""},
                     {"dgh", ""},
                     {"prfm pldl1keep, [x0]", ""},
                     {"prfm #31, [x0]", ""}});
}

TEST(Features, OfSystemRegistersDependOnTheRegister)
{
    expect_features({{"mrs x0, nzcv", ""},
                     {"mrs x0, tpidr_el0", ""},
                     {"mrs x0, fpcr", "fp-armv8"},
                     {".inst 0xd53b2400", "rand"}, // mrs x0, rndr
                     {".inst 0xd51b42c0", "ssbs"}, // msr ssbs, x0
                     {"dc cvac, x0", ""},
                     {"dc cvap, x0", "ccpp"}});
}

TEST(Features, AreNamedAfterThoseThatTheyInclude)
{
    feature_set all;
    for (const std::uint32_t word :
         support::assemble({"sdot v0.4s, v1.16b, v2.16b", "fadd v0.2d, v1.2d, v2.2d", "fadd d0, d1, d2",
                            "adclb z0.d, z1.d, z2.d", "ldff1d { z0.d }, p0/z, [x0]", "ldadd x0, x1, [x2]"}))
        all |= features_of(decode_word(word).instructions.front());
    EXPECT_EQ(joined(feature_names(all)), "lse neon dotprod sve sve2")
        << "neon includes fp-armv8, dotprod and sve include neon, and sve2 includes sve";
}

TEST(Features, AreFoundInThreadsAtOnce)
{
    const std::vector<std::uint32_t> words =
        support::assemble({"sdot v0.4s, v1.16b, v2.16b", "ldadd x0, x1, [x2]", "adclb z0.d, z1.d, z2.d"});
    std::vector<std::thread> threads;
    std::vector<std::string> wrong(4);
    for (std::string& one : wrong) {
        threads.emplace_back([&] {
            const char* const expected[] = {"dotprod", "lse", "sve2"};
            for (std::size_t i = 0; i < 300; ++i) {
                if (features_of_word(words[i % words.size()]) != expected[i % words.size()])
                    one = expected[i % words.size()];
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(wrong, Each(""));
}

// According to the processors' manuals.
TEST(Features, AreMissingInProcessorsWithoutThem)
{
    struct case_of {
        const char* processor;
        const char* line;
        const char* missing;
    };
    constexpr case_of cases[] = {{"cortex-a53", "fmla v0.4s, v1.4s, v2.4s", ""},
                                 {"cortex-a53", "crc32b w0, w1, w2", ""},
                                 {"cortex-a53", "sdot v0.4s, v1.16b, v2.16b", "dotprod"},
                                 {"cortex-a53", "fmla v0.8h, v1.8h, v2.8h", "fullfp16"},
                                 {"cortex-a53", "ldadd x0, x1, [x2]", "lse"},
                                 {"cortex-a72", "fmla z0.s, p0/m, z1.s, z2.s", "sve"},
                                 {"cortex-a76", "sdot v0.4s, v1.16b, v2.16b", ""},
                                 {"neoverse-n1", "fmla v0.8h, v1.8h, v2.8h", ""},
                                 {"neoverse-v1", "fmla z0.s, p0/m, z1.s, z2.s", ""},
                                 {"neoverse-v1", "adclb z0.d, z1.d, z2.d", "sve2"},
                                 {"neoverse-n2", "adclb z0.d, z1.d, z2.d", ""},
                                 {"apple-m4", "adclb z0.d, z1.d, z2.d", ""}, // in streaming mode
                                 {"apple-m4", "ldff1d { z0.d }, p0/z, [x0]", "sve"}};
    std::vector<std::string> lines;
    for (const case_of& one : cases)
        lines.emplace_back(one.line);
    const std::vector<std::uint32_t> words = support::assemble(lines);
    ASSERT_EQ(words.size(), lines.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        feature_search search(find_processor(cases[i].processor).value());
        EXPECT_EQ(joined(feature_names(search.missing(decode_word(words[i]).instructions.front()))),
                  cases[i].missing)
            << cases[i].processor << ": " << lines[i];
    }
}

TEST(Processors, AreKnownByName)
{
    EXPECT_FALSE(find_processor("cortex-a5300"));
    EXPECT_FALSE(find_processor(""));
    EXPECT_FALSE(find_processor("help"));
    const std::vector<std::string>& names = vorna::workbench::processor_names();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    for (const char* const name : {"generic", "cortex-a53", "neoverse-v2", "a64fx", "apple-m4"})
        EXPECT_THAT(names, Contains(name));
    for (const std::string& name : names)
        EXPECT_TRUE(find_processor(name)) << name;
}

// GNU's names of the features that it distinguishes as LLVM does.
const std::map<std::string, std::string>& gnu_names()
{
    static const std::map<std::string, std::string> names = {{"aes", "aes"},
                                                             {"bf16", "bf16"},
                                                             {"complxnum", "compnum"},
                                                             {"crc", "crc"},
                                                             {"dotprod", "dotprod"},
                                                             {"f32mm", "f32mm"},
                                                             {"f64mm", "f64mm"},
                                                             {"fp-armv8", "fp"},
                                                             {"fp16fml", "fp16fml"},
                                                             {"fullfp16", "fp16"},
                                                             {"i8mm", "i8mm"},
                                                             {"lor", "lor"},
                                                             {"lse", "lse"},
                                                             {"mte", "memtag"},
                                                             {"neon", "simd"},
                                                             {"rcpc", "rcpc"},
                                                             {"rdm", "rdma"},
                                                             {"sha2", "sha2"},
                                                             {"sha3", "sha3"},
                                                             {"sm4", "sm4"},
                                                             {"sve", "sve"},
                                                             {"sve2", "sve2"},
                                                             {"sve2-aes", "sve2-aes"},
                                                             {"sve2-bitperm", "sve2-bitperm"},
                                                             {"sve2-sha3", "sve2-sha3"},
                                                             {"sve2-sm4", "sve2-sm4"}};
    return names;
}

/// The lines, counted from 0, that GNU's assembler refuses.
std::set<std::size_t> refused(const std::vector<std::string>& lines, const std::string& extensions)
{
    const support::temp_directory directory;
    std::string source;
    for (const std::string& line : lines)
        source += line + "\n";
    support::write_file(directory.path() / "in.s", source);
    const support::child_result tool = support::run_tool(
        {"aarch64-linux-gnu-as", "-march=armv8-a" + extensions, "in.s", "-o", "out.o"}, directory.path());
    std::set<std::size_t> found;
    for (std::size_t at = 0; (at = tool.err.find("in.s:", at)) != std::string::npos;) {
        at += 5;
        if (tool.err.compare(tool.err.find(':', at), 8, ": Error:") == 0)
            found.insert(std::stoul(tool.err.substr(at)) - 1);
    }
    EXPECT_TRUE(tool.succeeded() || !found.empty()) << tool;
    return found;
}

TEST(Features, AreThoseThatAnAssemblerAsksFor)
{
    const unsigned seed = support::random_seed();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    vorna::workbench::disassembler disassembler;
    std::map<std::vector<std::string>, std::vector<std::string>> lines_by_features;
    std::set<std::uint16_t> opcodes;
    for (std::size_t i = 0; i < support::test_size(20'000, 400'000); ++i) {
        const auto word = static_cast<std::uint32_t>(random());
        const vorna::workbench::decoded_kernel code = decode_word(word);
        if (!code.instructions.front().decoded || !opcodes.insert(code.instructions.front().opcode).second)
            continue;
        const std::vector<std::string> features = feature_names(features_of(code.instructions.front()));
        if (std::all_of(features.begin(), features.end(),
                        [](const std::string& one) { return gnu_names().contains(one); }))
            lines_by_features[features].push_back(disassembler.text(word, 0));
    }
    std::string everything;
    for (const auto& [ours, gnu] : gnu_names())
        everything += "+" + gnu;
    std::size_t compared = 0;
    for (const auto& [features, all_lines] : lines_by_features) {
        // Lines that GNU's assembler does not know, or not in LLVM's syntax, or has with other features.
        const std::set<std::size_t> unknown = refused(all_lines, everything);
        std::vector<std::string> lines;
        for (std::size_t i = 0; i < all_lines.size(); ++i) {
            if (!unknown.contains(i))
                lines.push_back(all_lines[i]);
        }
        compared += lines.size();
        std::string needed; // armv8-a has fp and simd
        for (const std::string& one : features)
            needed += "+" + gnu_names().at(one);
        for (const std::size_t line : refused(lines, needed))
            ADD_FAILURE() << lines[line] << ": more than " << joined(features);
        for (const std::string& one : features) {
            // GNU's assembler takes loads and stores of FP registers without fp, BFDOT and, in binutils 2.44,
            // FMLAL without simd, and SHA512H with sha2.
            const bool has_fmlal = std::find(features.begin(), features.end(), "fp16fml") != features.end();
            if (one == "fp-armv8" || one == "sha3" || (one == "neon" && has_fmlal) ||
                features == std::vector<std::string>{"bf16", "neon"})
                continue;
            const std::set<std::size_t> without = refused(lines, needed + "+no" + gnu_names().at(one));
            for (std::size_t i = 0; i < lines.size(); ++i)
                EXPECT_TRUE(without.contains(i)) << lines[i] << ": without " << one;
        }
    }
    EXPECT_GT(compared, 700U);
    EXPECT_GT(lines_by_features.size(), 10U);
}

} // namespace
