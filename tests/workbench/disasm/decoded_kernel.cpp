// Compares the defs and uses from LLVM's tables with the effects of instructions in VIXL's simulator: every
// register that changes must be a def, and a register that is not a use must not affect the result.

#include "workbench/disasm/decoded_kernel.hpp"
#include "tests/support/assembled_kernel.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/trials.hpp"

#include <aarch64/simulator-aarch64.h>
#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <sys/mman.h>

namespace {

namespace a64 = vixl::aarch64;
using vorna::workbench::control_flow;
using vorna::workbench::decode_kernel;
using vorna::workbench::decoded_kernel;
using vorna::workbench::instruction;
using vorna::workbench::opcode_name;
using vorna::workbench::placed_kernel;
using vorna::workbench::register_count;
using vorna::workbench::register_id;
using vorna::workbench::register_set;
using random_engine = std::mt19937_64;

// The value of each register, by register_id; without FFR.
using machine_state = std::array<std::array<std::uint64_t, 2>, register_count>;

constexpr std::size_t arena_size = 0x400000;
std::uint8_t* arena = nullptr;

std::uint64_t middle()
{
    return reinterpret_cast<std::uint64_t>(arena) + arena_size / 2;
}

class machine {
public:
    machine() : simulator_(&decoder_) { simulator_.SetCPUFeatures(vixl::CPUFeatures::All()); }

    // Executes one instruction. The memory around the registers' addresses is the same each time.
    machine_state run(std::uint32_t word, const machine_state& before, std::vector<std::uint8_t>& memory)
    {
        constexpr std::size_t around = 0x2000;
        auto* const begin = arena + arena_size / 2 - around / 2;
        for (std::size_t i = 0; i < around; ++i)
            begin[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
        std::memcpy(arena, &word, sizeof word);
        simulator_.ResetState();
        for (unsigned i = 0; i < 31; ++i)
            simulator_.WriteXRegister(i, static_cast<std::int64_t>(before[i][0]));
        simulator_.WriteSp(before[vorna::workbench::stack_pointer][0]);
        for (unsigned i = 0; i < 32; ++i) {
            a64::Simulator::qreg_t value;
            std::memcpy(&value, before[32 + i].data(), sizeof value);
            simulator_.WriteQRegister(i, value);
        }
        for (unsigned i = 0; i < 16; ++i)
            simulator_.ReadPRegister(i).Insert(0, static_cast<std::uint16_t>(before[64 + i][0]));
        simulator_.ReadNzcv().SetRawValue(
            static_cast<std::uint32_t>(before[vorna::workbench::condition_flags][0] & 15) << 28);
        simulator_.WritePc(reinterpret_cast<const a64::Instruction*>(arena));
        simulator_.ExecuteInstruction();
        machine_state after{};
        for (unsigned i = 0; i < 31; ++i)
            after[i][0] = static_cast<std::uint64_t>(simulator_.ReadXRegister(i));
        after[31][0] = static_cast<std::uint64_t>(simulator_.ReadXRegister(31, a64::Reg31IsStackPointer));
        for (unsigned i = 0; i < 32; ++i) {
            const auto value = simulator_.ReadVRegister<a64::Simulator::qreg_t>(i);
            std::memcpy(after[32 + i].data(), &value, sizeof value);
        }
        for (unsigned i = 0; i < 16; ++i)
            after[64 + i][0] = simulator_.ReadPRegister(i).GetLane<std::uint16_t>(0);
        after[vorna::workbench::condition_flags][0] = simulator_.ReadNzcv().GetRawValue() >> 28;
        memory.assign(begin, begin + around);
        return after;
    }

private:
    a64::Decoder decoder_;
    a64::Simulator simulator_;
};

// General registers hold valid addresses or small numbers.
std::array<std::uint64_t, 2> random_value(random_engine& random, std::size_t r)
{
    if (r < 32)
        return {random() % 3 == 0 && r != 31 ? random() % 512 : middle() + 16 * (random() % 64) - 512, 0};
    if (r < 64)
        return {random(), random()};
    return {random() & (r < 80 ? 0xffff : r == vorna::workbench::condition_flags ? 15 : 0), 0};
}

enum class outcome : std::uint8_t { waiting, skipped, crashes, agrees, writes_more, depends_on_more };

struct record {
    std::uint32_t word;
    outcome found;
};

// Instructions whose result is random in the simulator, the one that it executes only before another, and
// fixed-point conversions in vector registers, where it leaves the rest of the register unchanged.
bool is_left_out(std::string_view name)
{
    const bool converts = name.substr(0, 5) == "SCVTF" || name.substr(0, 5) == "UCVTF";
    return (converts && std::string_view("vdsh").find(name[5]) != std::string_view::npos) ||
           name.substr(0, 3) == "STX" || name.substr(0, 4) == "STLX" || name.substr(0, 7) == "MOVPRFX";
}

void try_word(record& record, random_engine& random, machine& machine)
{
    placed_kernel kernel;
    kernel.text = support::code({record.word});
    const decoded_kernel code = decode_kernel(kernel);
    const instruction& decoded = code.instructions.front();
    record.found = outcome::skipped;
    if (!decoded.decoded || !decoded.modelled || decoded.flow != control_flow::next ||
        is_left_out(opcode_name(decoded.opcode)))
        return;
    const register_set uses = uses_of(code, decoded);
    const register_set defs = defs_of(code, decoded);
    if (uses[vorna::workbench::first_fault_register] || defs[vorna::workbench::first_fault_register])
        return;
    record.found = outcome::crashes;
    machine_state before{};
    for (std::size_t r = 0; r < register_count; ++r)
        before[r] = random_value(random, r);
    machine_state other = before;
    for (std::size_t r = 0; r < register_count; ++r) {
        if (!uses[r])
            other[r] = random_value(random, r);
    }
    std::vector<std::uint8_t> memory;
    std::vector<std::uint8_t> other_memory;
    const machine_state after = machine.run(record.word, before, memory);
    const machine_state other_after = machine.run(record.word, other, other_memory);
    record.found = outcome::skipped;
    if (after == before && other_after == other && memory == other_memory)
        return; // the simulator has no such instruction, or it did nothing
    record.found = outcome::agrees;
    for (std::size_t r = 0; r < register_count; ++r) {
        if (!defs[r] && (after[r] != before[r] || other_after[r] != other[r]))
            record.found = outcome::writes_more;
        else if (defs[r] && after[r] != other_after[r])
            record.found = outcome::depends_on_more;
    }
    if (memory != other_memory)
        record.found = outcome::depends_on_more;
}

TEST(DecodedInstructions, HaveTheUsesAndDefsSeenInASimulator)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    random_engine random(seed);
    constexpr std::size_t count = 8 * 1024;
    arena = static_cast<std::uint8_t*>(
        mmap(nullptr, arena_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(arena, MAP_FAILED);
    support::shared_records<record> records(count);
    // The same number for each value of the bits that determine the encoding group.
    for (std::size_t i = 0; i < count; ++i)
        records[i].word = static_cast<std::uint32_t>((random() & 0x801fffff) | (i % 1024) << 21);
    // Instructions with incomplete tables in LLVM, which are too rare among random words.
    struct encoding {
        std::uint32_t opcode;
        std::uint32_t registers;
    };
    constexpr encoding rare[] = {{0x9eaf0000, 0x000003ff},  // FMOV Vd.D[1], Xn
                                 {0x25e02000, 0x001f03e0},  // CTERMEQ
                                 {0x25e02010, 0x001f03e0}}; // CTERMNE
    for (std::size_t i = 0; i < 16 * std::size(rare); ++i) {
        const encoding& one = rare[i % std::size(rare)];
        records[i].word = one.opcode | (static_cast<std::uint32_t>(random()) & one.registers);
    }
    support::run_trials<machine>(0, count, count, [&](std::size_t i, machine& machine) {
        random_engine engine((static_cast<std::uint64_t>(seed) << 32) + i);
        try_word(records[i], engine, machine);
    });
    std::map<outcome, int> outcomes;
    std::set<std::string_view> opcodes;
    std::set<std::string> failures;
    for (std::size_t i = 0; i < count; ++i) {
        ++outcomes[records[i].found];
        placed_kernel kernel;
        kernel.text = support::code({records[i].word});
        const std::string_view name = opcode_name(decode_kernel(kernel).instructions.front().opcode);
        if (records[i].found == outcome::agrees)
            opcodes.insert(name);
        if (records[i].found != outcome::writes_more && records[i].found != outcome::depends_on_more)
            continue;
        const char* const what = records[i].found == outcome::writes_more ? " writes" : " depends on";
        if (failures.insert(std::string(name) + what).second)
            ADD_FAILURE() << name << " (" << std::hex << records[i].word << ")" << what << " more";
    }
    std::cout << outcomes[outcome::agrees] << " of " << count << " words, " << opcodes.size()
              << " instructions; " << outcomes[outcome::crashes] << " crash\n";
    EXPECT_GT(opcodes.size(), 300U);
    for (const char* const name : {"FMOVXDHighr", "CTERMEQ_XX", "CTERMNE_XX"})
        EXPECT_EQ(opcodes.count(name), 1U) << name;
}

// The names of the registers in a set.
std::string names(const register_set& set)
{
    std::string text;
    for (std::size_t r = 0; r < register_count; ++r) {
        if (!set[r])
            continue;
        text += text.empty() ? "" : " ";
        text += r < 31    ? "x" + std::to_string(r)
                : r == 31 ? "sp"
                : r < 64  ? "v" + std::to_string(r - 32)
                : r < 80  ? "p" + std::to_string(r - 64)
                : r == 80 ? "ffr"
                          : "nzcv";
    }
    return text;
}

std::string registers_of(const std::string& line)
{
    const decoded_kernel code = decode_kernel(support::assembled_kernel("k", {line}));
    const instruction& decoded = code.instructions.front();
    return names(uses_of(code, decoded)) + " -> " + names(defs_of(code, decoded));
}

// According to the Arm Architecture Reference Manual.
TEST(DecodedInstructions, HaveTheUsesAndDefsOfTheManual)
{
    EXPECT_EQ(registers_of("add x1, x2, x3"), "x2 x3 -> x1");
    EXPECT_EQ(registers_of("adds wzr, w2, w3"), "x2 x3 -> nzcv");
    EXPECT_EQ(registers_of("add sp, x2, #16"), "x2 -> sp");
    EXPECT_EQ(registers_of("movk x1, #5"), "x1 -> x1");
    EXPECT_EQ(registers_of("csel x1, x2, xzr, eq"), "x2 nzcv -> x1");
    EXPECT_EQ(registers_of("ldp x1, x2, [sp], #16"), "sp -> x1 x2 sp");
    EXPECT_EQ(registers_of("str w1, [x30, x29]"), "x1 x29 x30 -> ");
    EXPECT_EQ(registers_of("ld2 {v31.4s, v0.4s}, [x1], x2"), "x1 x2 -> x1 v0 v31");
    EXPECT_EQ(registers_of("ld1 {v3.s}[1], [x1]"), "x1 v3 -> v3");
    EXPECT_EQ(registers_of("fmla v1.2d, v2.2d, v3.2d"), "v1 v2 v3 -> v1");
    EXPECT_EQ(registers_of("tbl v1.16b, {v30.16b, v31.16b, v0.16b}, v5.16b"), "v0 v5 v30 v31 -> v1");
    EXPECT_EQ(registers_of("casp x0, x1, x4, x5, [x9]"), "x0 x1 x4 x5 x9 -> x0 x1");
    EXPECT_EQ(registers_of("stxr w1, x2, [x3]"), "x2 x3 -> x1");
    EXPECT_EQ(registers_of("bl #8"), "sp -> x30");
    EXPECT_EQ(registers_of("blr x9"), "x9 sp -> x30");
    EXPECT_EQ(registers_of("ret"), "x30 -> ");
    EXPECT_EQ(registers_of("paciasp"), "x30 sp -> x30");
    EXPECT_EQ(registers_of("irg sp, x9, x5"), "x5 x9 -> sp");
    EXPECT_EQ(registers_of("fadd z1.d, p3/m, z1.d, z2.d"), "v1 v2 p3 -> v1");
    EXPECT_EQ(registers_of("ptrues p2.d"), " -> p2 nzcv");
    EXPECT_EQ(registers_of("aese v1.16b, v2.16b"), "v1 v2 -> v1");
    EXPECT_EQ(registers_of("fmov v1.d[1], x2"), "x2 v1 -> v1");
    EXPECT_EQ(registers_of("fmov d1, x2"), "x2 -> v1");
    EXPECT_EQ(registers_of("ctermeq x1, x2"), "x1 x2 nzcv -> nzcv");
    EXPECT_EQ(registers_of("ctermne w1, w2"), "x1 x2 nzcv -> nzcv");
}

TEST(DecodedInstructions, AreNotModelledIfTheirEffectsAreUnknown)
{
    const auto modelled = [](const std::string& line) {
        return decode_kernel(support::assembled_kernel("k", {line})).instructions.front().modelled;
    };
    for (const char* line : {"nop", "bti c", "dmb ish", "prfm pldl1keep, [x0]", "ldaxr x1, [x0]", "ret"})
        EXPECT_TRUE(modelled(line)) << line;
    for (const char* line :
         {"svc #0", "brk #1", "msr nzcv, x0", "mrs x0, fpcr", "hint #40", "setffr", "eret", "msr daifset, #2",
          "dc zva, x0", "hint #50", ".word 0xdac18bfe" /* PACIA171615 */, ".word 0xdac1bbfe"})
        EXPECT_FALSE(modelled(line)) << line;
}

TEST(DecodedInstructions, ContinueAtTheNextOneAndAreNotInterpretedIfPlain)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::size_t plain = 0;
    const auto check = [&](std::uint32_t word) {
        if (!vorna::workbench::is_plain(word))
            return;
        ++plain;
        const decoded_kernel code = vorna::workbench::decode_word(word);
        const instruction& at = code.instructions.front();
        ASSERT_EQ(at.flow, control_flow::next) << std::hex << word;
        ASSERT_EQ(at.kind, vorna::workbench::instruction_kind::other) << std::hex << word;
        ASSERT_FALSE(at.pc_relative) << std::hex << word;
    };
    const std::size_t count = support::test_size(400'000, 10'000'000);
    for (std::size_t i = 0; i < count; ++i)
        check(static_cast<std::uint32_t>(random()));
    for (std::uint32_t word = 0; word < 0x20000; word += 0x101)
        check(word);
    EXPECT_GT(plain, count / 2);
    EXPECT_LT(plain, count);
}

// Words whose entries in the cache of decoded words collide, or are used again.
TEST(DecodedInstructions, AreTheSameEachTime)
{
    std::mt19937 random(1);
    std::vector<std::uint32_t> words(5'000);
    for (std::uint32_t& word : words)
        word = 0x8b000000 | (static_cast<std::uint32_t>(random()) & 0x1f03ff); // add xd, xn, xm
    placed_kernel kernel;
    for (int repeat = 0; repeat < 2; ++repeat) {
        for (const std::uint32_t word : words) {
            for (unsigned byte = 0; byte < 4; ++byte)
                kernel.text.push_back(static_cast<std::uint8_t>(word >> 8 * byte));
        }
    }
    kernel.relocs = {{"k", 8, 283, 0}};
    const decoded_kernel code = decode_kernel(kernel);
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        const instruction& at = code.instructions[i];
        const std::uint32_t word = words[i % words.size()];
        ASSERT_EQ(at.word, word);
        ASSERT_EQ(opcode_name(at.opcode), "ADDXrs");
        const auto operands = operands_of(code, at);
        const auto name = [](std::uint32_t number) {
            return number == 31 ? vorna::workbench::zero_register : static_cast<register_id>(number);
        };
        ASSERT_EQ(operands[0].registers[0], name(word & 31));
        ASSERT_EQ(operands[1].registers[0], name(word >> 5 & 31));
        ASSERT_EQ(operands[2].registers[0], name(word >> 16 & 31));
        ASSERT_EQ(at.relocated != vorna::workbench::word_relocation::none, i == 2);
    }
}

} // namespace
