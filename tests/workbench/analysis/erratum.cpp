// Compares the sequences found for errata 843419 and 835769 of Cortex-A53 with those that the linkers'
// workarounds patch.

#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/analysis/check_dumps.hpp"
#include "workbench/disasm/disassembler.hpp"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace support;
using vorna::wfta::finding_id;

constexpr std::size_t at = 0xff8; // in a page
using sequence = std::vector<std::uint32_t>;

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
    command.insert(command.end(), {"-Ttext=0x10000000", "in.o", "-o", "out"});
    tool = run_tool(command, directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool;
    tool = run_tool({"aarch64-linux-gnu-objcopy", "-O", "binary", "--only-section=.text", "out", "out.bin"},
                    directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool;
    const std::string image = contents(directory.path() / "out.bin");
    std::vector<bool> changed;
    for (std::size_t i = 0; i < sequences.size(); ++i) {
        const std::size_t offset = i * 0x2000 + at;
        const std::size_t size = 4 * sequences[i].size();
        EXPECT_LE(offset + size, image.size());
        if (offset + size > image.size())
            break;
        changed.push_back(std::memcmp(image.data() + offset, sequences[i].data(), size) != 0);
    }
    return changed;
}

bool is_found(finding_id id, const sequence& words)
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
        if (finding.id == id)
            return true;
    }
    return false;
}

/// Random words, of a class of instructions each, all of which Cortex-A53 has: the linkers test a few bits of
/// each word, and their workarounds also change instructions of later versions of the architecture.
class random_words {
public:
    explicit random_words(unsigned seed) : random_(seed) {}

    std::uint32_t number() { return static_cast<std::uint32_t>(random_()); }

    /// Words with these bits.
    std::vector<std::uint32_t> of(std::uint32_t mask, std::uint32_t value, std::size_t count)
    {
        const temp_directory directory;
        std::vector<std::uint32_t> found;
        while (found.size() < count) {
            std::vector<std::uint32_t> words(2 * count);
            std::string bytes;
            for (std::uint32_t& word : words) {
                word = ((number() & ~mask) | value) & ~0x00180318U; // few registers: they coincide often
                for (unsigned shift = 0; shift < 32; shift += 8)
                    bytes += std::to_string(word >> shift & 0xff) + " ";
                bytes += "\n";
            }
            write_file(directory.path() / "in", bytes);
            const child_result tool = run_tool(
                {"llvm-mc", "-triple=aarch64", "-mcpu=cortex-a53", "--disassemble", "in"}, directory.path());
            std::vector<bool> wrong(words.size());
            for (std::size_t line = 0; (line = tool.err.find("in:", line)) != std::string::npos; line += 3)
                wrong[std::stoul(tool.err.substr(line + 3)) - 1] = true;
            for (std::size_t i = 0; i < words.size() && found.size() < count; ++i) {
                if (!wrong[i])
                    found.push_back(words[i]);
            }
        }
        return found;
    }

private:
    std::mt19937 random_;
};

std::string text_of(const sequence& words)
{
    vorna::workbench::disassembler disassembler;
    std::string texts;
    for (const std::uint32_t word : words)
        texts += disassembler.text(word, 0) + "; ";
    return texts;
}

TEST(Erratum843419, IsFoundWhereLinkersWorkAroundIt)
{
    const unsigned seed = random_seed();
    std::printf("seed %u\n", seed);
    random_words random(seed);
    constexpr std::size_t count = 1500;
    const auto accesses = random.of(0x0a000000, 0x08000000, count); // all loads, stores and prefetches
    const auto any = random.of(0, 0, count);
    const auto unsigned_offsets = random.of(0x3b000000, 0x39000000, count);
    std::vector<sequence> sequences;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t adrp = 0x90000000 | random.number() % 4;
        std::uint32_t last = unsigned_offsets[i];
        if (random.number() % 4 != 0) // from the page
            last = (last & ~0x3e0U) | (adrp & 31) << 5;
        const std::uint32_t third = random.number() % 3 == 0 ? last : any[i];
        sequences.push_back({adrp, accesses[i], third, last});
    }
    const std::vector<bool> lld = changed_by({"ld.lld", "--fix-cortex-a53-843419"}, sequences);
    const std::vector<bool> gnu = changed_by({"aarch64-linux-gnu-ld", "--fix-cortex-a53-843419"}, sequences);
    // Where the two linkers differ, one is less exact about the erratum's conditions.
    std::size_t found = 0;
    std::size_t differ = 0;
    for (std::size_t i = 0; i < lld.size() && i < gnu.size(); ++i) {
        const bool here = is_found(finding_id::erratum_843419, sequences[i]);
        found += here ? 1 : 0;
        differ += lld[i] != gnu[i] ? 1 : 0;
        if (lld[i] == gnu[i] && here != lld[i])
            ADD_FAILURE() << "found: " << here << ", by both linkers: " << lld[i] << ": "
                          << text_of(sequences[i]);
    }
    EXPECT_GT(found, 300U);
    EXPECT_LT(differ, 500U);
}

TEST(Erratum835769, IsFoundWhereTheLinkerWorksAroundIt)
{
    const unsigned seed = random_seed();
    std::printf("seed %u\n", seed);
    random_words random(seed);
    constexpr std::size_t count = 1500;
    const auto accesses = random.of(0x0a000000, 0x08000000, count); // all loads, stores and prefetches
    const auto any = random.of(0, 0, count);
    const auto products = random.of(0x7f000000, 0x1b000000, count); // of both sizes
    std::vector<sequence> sequences;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t product = products[i];
        if (random.number() % 8 != 0)
            product |= 0x80000000; // 64 bits
        if (random.number() % 8 == 0)
            product |= 0x7c00; // XZR is added
        sequences.push_back({random.number() % 8 == 0 ? any[i] : accesses[i], product});
    }
    const std::vector<bool> gnu = changed_by({"aarch64-linux-gnu-ld", "--fix-cortex-a53-835769"}, sequences);
    std::size_t found = 0;
    for (std::size_t i = 0; i < gnu.size(); ++i) {
        const bool here = is_found(finding_id::erratum_835769, sequences[i]);
        found += here ? 1 : 0;
        // The linker takes what a prefetch does for a register that it loads, and a bit of a literal's
        // distance for what tells loads from stores.
        const std::string text = text_of(sequences[i]);
        const bool literal = (sequences[i].front() & 0x3b000000) == 0x18000000;
        if (here != gnu[i] && !literal && text.compare(0, 2, "pr") != 0)
            ADD_FAILURE() << "found: " << here << ", by the linker: " << gnu[i] << ": " << text;
    }
    EXPECT_GT(found, 300U);
}

} // namespace
