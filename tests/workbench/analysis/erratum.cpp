// Compares the sequences found for erratum 843419 with those that the linkers' workarounds patch.

#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/analysis/check_dumps.hpp"
#include "workbench/disasm/disassembler.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace support;

constexpr std::size_t at = 0xff8;
using sequence = std::array<std::uint32_t, 4>;

/// Which of the sequences, each at the end of a page, a linker patches.
std::vector<bool> changed_by(const std::vector<std::string>& linker, const std::vector<sequence>& sequences)
{
    const temp_directory directory;
    std::string source = ".globl _start\n_start:\n";
    for (const sequence& words : sequences) {
        source += ".balign 4096\n.space " + std::to_string(at) + "\n";
        for (const std::uint32_t word : words)
            source += ".inst " + std::to_string(word) + "\n";
        source += "ret\n";
    }
    write_file(directory.path() / "in.s", source);
    child_result tool =
        run_tool({"llvm-mc", "-triple=aarch64", "-filetype=obj", "in.s", "-o", "in.o"}, directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool;
    std::vector<std::string> command = linker;
    command.insert(command.end(), {"--fix-cortex-a53-843419", "-Ttext=0x10000000", "in.o", "-o", "out"});
    tool = run_tool(command, directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool;
    tool = run_tool({"aarch64-linux-gnu-objcopy", "-O", "binary", "--only-section=.text", "out", "out.bin"},
                    directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool;
    const std::string image = contents(directory.path() / "out.bin");
    std::vector<bool> changed;
    for (std::size_t i = 0; i < sequences.size(); ++i) {
        const std::size_t offset = i * 0x2000 + at;
        EXPECT_LE(offset + sizeof(sequence), image.size());
        if (offset + sizeof(sequence) > image.size())
            break;
        changed.push_back(std::memcmp(image.data() + offset, sequences[i].data(), sizeof(sequence)) != 0);
    }
    return changed;
}

bool is_found(const sequence& words)
{
    std::vector<std::uint32_t> code(at / 4, 0xd503201f);
    code.insert(code.end(), words.begin(), words.end());
    code.push_back(0xd65f03c0);
    vorna::workbench::placed_kernel placed;
    placed.name = "one";
    placed.text_address = 0x10000000;
    placed.text = support::code(code);
    placed.data_address = placed.text_end();
    for (const vorna::wfta::kernel_finding& finding :
         check_dumps(vorna::workbench::make_kernel_set({placed}))) {
        if (finding.id == vorna::wfta::finding_id::erratum_843419)
            return true;
    }
    return false;
}

TEST(Erratum843419, IsFoundWhereLinkersWorkAroundIt)
{
    const unsigned seed = random_seed();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    vorna::workbench::disassembler disassembler;
    const auto any = [&](std::uint32_t mask, std::uint32_t value) {
        for (;;) {
            // Few registers, so that they coincide often.
            const std::uint32_t word =
                ((static_cast<std::uint32_t>(random()) & ~mask) | value) & ~0x00000318U;
            if (disassembler.text(word, 0).front() != '.')
                return word;
        }
    };
    std::vector<sequence> sequences;
    for (unsigned i = 0; i < 1500; ++i) {
        const std::uint32_t adrp = 0x90000000 | random() % 4;
        const std::uint32_t second = any(0x0a000000, 0x08000000); // all loads, stores and prefetches
        std::uint32_t last = any(0x3b000000, 0x39000000);
        if (random() % 4 != 0) // from the page
            last = (last & ~0x3e0U) | (adrp & 31) << 5;
        const std::uint32_t third = random() % 3 == 0 ? last : any(0, 0);
        sequences.push_back({adrp, second, third, last});
    }
    const std::vector<bool> lld = changed_by({"ld.lld"}, sequences);
    const std::vector<bool> gnu = changed_by({"aarch64-linux-gnu-ld"}, sequences);
    // Where the two linkers differ, one is less exact about the erratum's conditions, or includes
    // instructions that the processor does not implement.
    std::size_t found = 0;
    std::size_t differ = 0;
    for (std::size_t i = 0; i < lld.size() && i < gnu.size(); ++i) {
        const bool here = is_found(sequences[i]);
        found += here ? 1 : 0;
        differ += lld[i] != gnu[i] ? 1 : 0;
        if (lld[i] != gnu[i] || here == lld[i])
            continue;
        std::string texts;
        for (const std::uint32_t word : sequences[i])
            texts += disassembler.text(word, 0) + "; ";
        ADD_FAILURE() << "found: " << here << ", by both linkers: " << lld[i] << ": " << texts;
    }
    EXPECT_GT(found, 300U);
    EXPECT_LT(differ, 500U);
}

} // namespace
