// The register operands of instruction words, held against what LLVM makes of the same words.

#include "workbench/registers.hpp"
#include "tests/support/files.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/disassembler.hpp"

#include <cctype>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

namespace {

using vorna::workbench::decode_registers;
using vorna::workbench::disassembler;
using vorna::workbench::register_bank;
using vorna::workbench::register_operand;

using register_set = std::set<std::pair<register_bank, unsigned>>;

// The registers in an instruction's operands: "x3", "w3", "v3.2d", "q3", "v3", …, and those between the two
// of
// "{ v30.4s - v1.4s }". SP and the zero registers are none.
register_set registers_in(const std::string& text)
{
    register_set found;
    unsigned last = 0;
    bool range = false;
    const std::size_t begin = std::min(text.find(' '), text.size());
    for (std::size_t i = begin; i < text.size(); ++i) {
        if (text[i] == '-' && text[i - 1] == ' ' && text[i + 1] == ' ')
            range = true;
        const bool starts_word =
            std::isalnum(static_cast<unsigned char>(text[i - 1])) == 0 && text[i - 1] != '.';
        if (!starts_word || i + 1 >= text.size() ||
            std::isdigit(static_cast<unsigned char>(text[i + 1])) == 0)
            continue;
        if (std::string("wxvbhsdq").find(text[i]) == std::string::npos)
            continue;
        const auto number = static_cast<unsigned>(std::stoul(text.substr(i + 1)));
        const auto bank = text[i] == 'w' || text[i] == 'x' ? register_bank::general : register_bank::fp_simd;
        for (unsigned between = last; range && between != number; between = (between + 1) % 32)
            found.emplace(bank, between);
        range = false;
        found.emplace(bank, number);
        last = number;
    }
    return found;
}

TEST(Registers, AreThoseOfTheDisassembledText)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    disassembler disassembler;
    std::size_t decoded = 0;
    std::map<std::string, int> failures; // of each mnemonic
    // As many of each value of the bits that tell the encoding's group.
    for (std::uint32_t i = 0; i < 3000 * 512; ++i) {
        const auto word = static_cast<std::uint32_t>((random() & 0xe01fffff) | (i % 512) << 21);
        const auto registers = decode_registers(word);
        if (!registers)
            continue;
        const std::string text = disassembler.text(word, 0);
        if (text.front() == '.')
            continue;
        ++decoded;
        register_set found;
        for (std::size_t k = 0; k < registers->count; ++k) {
            const register_operand& operand = registers->operands[k];
            if (operand.bank == register_bank::fp_simd || operand.number != 31)
                found.emplace(operand.bank, operand.number);
        }
        // RET does not show its X30, nor an alias a register that it has twice or that is the zero register.
        if (text == "ret")
            found.clear();
        if (found != registers_in(text) && failures[text.substr(0, text.find(' '))]++ == 0)
            ADD_FAILURE() << std::hex << word << " " << text;
    }
    EXPECT_GT(decoded, 400000U);
}

TEST(Registers, ThatAreChangedInPartAreReadAndWritten)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    disassembler disassembler;
    std::string bytes;
    std::vector<std::size_t> changed; // registers of each word, those of a list counted once
    for (std::uint32_t i = 0; i < 100 * 512; ++i) {
        const auto word = static_cast<std::uint32_t>((random() & 0xe01fffff) | (i % 512) << 21);
        const auto registers = decode_registers(word);
        if (!registers || registers->count == 0 || disassembler.text(word, 0).front() == '.')
            continue;
        register_set different;
        std::set<register_bank> banks;
        for (std::size_t k = 0; k < registers->count; ++k) {
            const register_operand& operand = registers->operands[k];
            different.emplace(operand.bank, operand.number);
            if (operand.read && operand.written)
                banks.insert(operand.bank);
        }
        if (different.size() != registers->count)
            continue;
        changed.push_back(banks.size());
        for (unsigned shift = 0; shift < 32; shift += 8)
            bytes += std::to_string(word >> shift & 0xff) + (shift == 24 ? "\n" : " ");
    }
    ASSERT_GT(changed.size(), 10000U);

    // LLVM's instructions have an operand twice that they read and write.
    const support::temp_directory directory;
    support::write_file(directory.path() / "words", bytes);
    const support::child_result mc = support::run_tool(
        {"llvm-mc", "--disassemble", "--show-inst", "--triple=aarch64",
         "--mattr=+v9.3a,+fullfp16,+fp16fml,+sha3,+aes,+bf16,+i8mm,+lse,+mte,+rcpc-immo", "words"},
        directory.path());
    ASSERT_TRUE(mc.succeeded()) << mc.err;
    std::istringstream lines(mc.out);
    std::string line;
    std::vector<std::string> texts;
    std::vector<std::multiset<std::string>> operands;
    while (std::getline(lines, line)) {
        if (const std::size_t instruction = line.find("<MCInst"); instruction != std::string::npos) {
            texts.push_back(line.substr(0, instruction));
            operands.emplace_back();
        }
        if (const std::size_t operand = line.find("<MCOperand Reg:"); operand != std::string::npos)
            operands.back().insert(line.substr(operand, line.find('>') - operand));
    }
    ASSERT_EQ(operands.size(), changed.size());
    std::map<std::string, int> failures; // of each mnemonic
    for (std::size_t i = 0; i < changed.size(); ++i) {
        std::size_t twice = 0;
        for (const std::string& operand : std::set<std::string>(operands[i].begin(), operands[i].end()))
            twice += operands[i].count(operand) == 2 ? 1 : 0;
        // Some are said to be changed though they are replaced, since one form stands for both kinds.
        if (changed[i] < twice && failures[texts[i].substr(0, texts[i].find('\t', 1))]++ == 0)
            ADD_FAILURE() << texts[i];
    }
}

} // namespace
