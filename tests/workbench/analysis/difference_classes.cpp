// Changes random kernels in known ways and checks the class of each change.

#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/analysis/difference.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <set>

namespace {

using vorna::workbench::change_class;
using vorna::workbench::compare_kernels;
using vorna::workbench::name_of;
using vorna::workbench::placed_kernel;

enum class bank { general, vector };

// A register field of an instruction, with the register that the generator chose.
struct operand {
    enum bank bank;
    unsigned low_bit;
    unsigned number;
};

struct instruction {
    std::uint32_t word = 0; // with zeros in the fields below
    std::vector<operand> operands;
    int slot = -1;           // 16-byte slot of the constants that it loads from
    unsigned slot_bytes = 0; // that it loads
    int target = -1;         // instruction that it branches to
    int relocation_type = 0;
    std::string relocation_target; // "" are the own constants
};

instruction plain(std::uint32_t word, std::vector<operand> operands)
{
    instruction made;
    made.word = word;
    made.operands = std::move(operands);
    return made;
}

struct program {
    std::vector<instruction> code;
    std::vector<std::vector<std::uint8_t>> slots;
    bool calls = false;
};

using random_engine = std::mt19937;

std::size_t below(random_engine& random, std::size_t end)
{
    return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
}

std::vector<std::uint8_t> random_bytes(random_engine& random, std::size_t count)
{
    std::vector<std::uint8_t> bytes(count);
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
}

constexpr unsigned constants_base = 9;  // X9: address of the constants
constexpr unsigned counter = 10;        // X10: of a loop
constexpr unsigned first_temporary = 4; // V4 to V7 and V16 to V31, in a kernel that calls V16 to V31 only

unsigned random_vector(random_engine& random, bool calls)
{
    const std::size_t chosen = below(random, calls ? 16 : 20);
    return static_cast<unsigned>(chosen < 16 ? 16 + chosen : first_temporary + chosen - 16);
}

// Encodings from GNU as, with all operands 0.
instruction arithmetic(random_engine& random, bool calls)
{
    static constexpr std::uint32_t words[] = {
        0x4e60d400, // fadd v0.2d, v0.2d, v0.2d
        0x4ee0d400, // fsub v0.2d, v0.2d, v0.2d
        0x6e60dc00, // fmul v0.2d, v0.2d, v0.2d
        0x4e60cc00, // fmla v0.2d, v0.2d, v0.2d
        0x6e201c00, // eor  v0.16b, v0.16b, v0.16b
        0x4fc09000, // fmul v0.2d, v0.2d, v0.d[0]
    };
    instruction made;
    made.word = words[below(random, std::size(words))];
    for (const unsigned bit : {0U, 5U, 16U})
        made.operands.push_back({bank::vector, bit, random_vector(random, calls)});
    return made;
}

instruction load_constant(random_engine& random, bool calls, std::size_t slots)
{
    const bool wide = below(random, 2) == 0;
    instruction made;
    made.word = wide ? 0x3dc00000 : 0xfd400000; // ldr q0, [x0]; ldr d0, [x0]
    made.operands = {{bank::vector, 0, random_vector(random, calls)}, {bank::general, 5, constants_base}};
    made.slot = static_cast<int>(below(random, slots));
    made.slot_bytes = wide ? 16 : 8;
    return made;
}

instruction with_memory(random_engine& random, bool calls, bool store)
{
    instruction made; // str q0, [x1, #imm]; ldr q0, [x0, #imm]
    made.word = (store ? 0x3d800020 : 0x3dc00000) | static_cast<std::uint32_t>(below(random, 64)) << 10;
    made.operands = {{bank::vector, 0, random_vector(random, calls)}};
    return made;
}

void add_body(program& made, random_engine& random, std::size_t count, bool constants)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t kind = below(random, 6);
        if (kind == 0 && constants)
            made.code.push_back(load_constant(random, made.calls, made.slots.size()));
        else if (kind <= 2)
            made.code.push_back(with_memory(random, made.calls, kind == 1));
        else
            made.code.push_back(arithmetic(random, made.calls));
    }
}

// Loads constants, computes with them, loops, and may call.
program random_program(random_engine& random)
{
    program made;
    made.calls = below(random, 3) == 0;
    const std::size_t slots = 2 + below(random, 10);
    for (std::size_t i = 0; i < slots; ++i)
        made.slots.push_back(random_bytes(random, 16));
    if (below(random, 2) == 0) {
        made.code.push_back({0x10000000, {{bank::general, 0, constants_base}}, -1, 0, -1, 274, ""}); // adr
    } else {
        made.code.push_back({0x90000000, {{bank::general, 0, constants_base}}, -1, 0, -1, 275, ""}); // adrp
        made.code.push_back({0x91000000, // add x0, x0, #0
                             {{bank::general, 0, constants_base}, {bank::general, 5, constants_base}},
                             -1,
                             0,
                             -1,
                             277,
                             ""});
    }
    for (unsigned v = first_temporary; v < 32; ++v) { // what is read first would be a parameter
        if (v >= 8 && v < 16)
            continue;
        made.code.push_back(with_memory(random, made.calls, false));
        made.code.back().operands.front().number = v;
    }
    for (std::size_t slot = 0; slot < slots; ++slot) { // each is used
        instruction load = load_constant(random, made.calls, slots);
        load.slot = static_cast<int>(slot);
        made.code.push_back(load);
    }
    made.code.push_back(arithmetic(random, made.calls));
    add_body(made, random, 4 + below(random, 30), true);
    if (below(random, 2) == 0) {
        made.code.push_back(plain(0xd2800040, {{bank::general, 0, counter}})); // mov x0, #2
        const int head = static_cast<int>(made.code.size());
        add_body(made, random, 2 + below(random, 8), false);
        made.code.push_back(
            plain(0xd1000400, {{bank::general, 0, counter}, {bank::general, 5, counter}})); // sub
        made.code.push_back(plain(0xb5000000, {{bank::general, 0, counter}}));              // cbnz
        made.code.back().target = head;
    }
    if (made.calls) {
        made.code.push_back(plain(0xf81f0ffe, {})); // str x30, [sp, #-16]!
        for (std::size_t i = 0; i < 1 + below(random, 3); ++i) {
            made.code.push_back({0x94000000, {}, -1, 0, -1, 283, "callee_" + std::to_string(i)});
            for (unsigned v = 16; v < 32; ++v) { // what the callee may have left in them is not to be read
                made.code.push_back(with_memory(random, made.calls, false));
                made.code.back().operands.front().number = v;
            }
            add_body(made, random, below(random, 4), false);
        }
        made.code.push_back(plain(0xf84107fe, {})); // ldr x30, [sp], #16
    }
    made.code.push_back(plain(0xd65f03c0, {}));
    return made;
}

// New register numbers and new offsets of the slots.
struct naming {
    std::vector<unsigned> general = std::vector<unsigned>(32);
    std::vector<unsigned> vector = std::vector<unsigned>(32);
    std::vector<std::size_t> slots;

    explicit naming(const program& program) : slots(program.slots.size())
    {
        std::iota(general.begin(), general.end(), 0U);
        std::iota(vector.begin(), vector.end(), 0U);
        std::iota(slots.begin(), slots.end(), std::size_t{0});
    }
};

placed_kernel assemble(const program& program, const naming& names, std::uint64_t address = 0x10000)
{
    placed_kernel kernel;
    kernel.name = "kernel";
    kernel.text_address = address;
    kernel.data_address = address + 0x100000;
    std::vector<std::uint32_t> words;
    for (std::size_t i = 0; i < program.code.size(); ++i) {
        const instruction& from = program.code[i];
        std::uint32_t word = from.word;
        for (const operand& operand : from.operands) {
            word |= (operand.bank == bank::general ? names.general : names.vector)[operand.number]
                    << operand.low_bit;
        }
        if (from.slot >= 0) {
            word |= static_cast<std::uint32_t>(16 * names.slots[static_cast<std::size_t>(from.slot)] /
                                               from.slot_bytes)
                    << 10;
        }
        if (from.target >= 0)
            word |= (static_cast<std::uint32_t>(from.target - static_cast<int>(i)) & 0x7ffff) << 5;
        if (from.relocation_type != 0) {
            kernel.relocs.push_back(
                {from.relocation_target.empty() ? ".rodata.kernel" : from.relocation_target,
                 static_cast<std::int32_t>(4 * i), from.relocation_type, 0});
        }
        words.push_back(word);
    }
    kernel.text = support::code(words);
    kernel.data.resize(16 * program.slots.size());
    for (std::size_t i = 0; i < program.slots.size(); ++i)
        std::copy(program.slots[i].begin(), program.slots[i].end(),
                  kernel.data.begin() + static_cast<std::ptrdiff_t>(16 * names.slots[i]));
    return kernel;
}

std::size_t random_index(const program& program, random_engine& random, bool (*wanted)(const instruction&))
{
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < program.code.size(); ++i) {
        if (wanted(program.code[i]))
            found.push_back(i);
    }
    return found[below(random, found.size())];
}

bool is_arithmetic(const instruction& i)
{
    return i.operands.size() == 3;
}

bool is_plain(const instruction& i)
{
    return i.target < 0 && i.relocation_type == 0 && i.word != 0xd65f03c0;
}

void shift_targets(program& program, std::size_t from, int by)
{
    for (instruction& i : program.code) {
        if (i.target >= static_cast<int>(from))
            i.target += by;
    }
}

// The branch targets, and the end of the code.
std::set<std::size_t> targets(const program& program)
{
    std::set<std::size_t> found;
    for (const instruction& i : program.code) {
        if (i.target >= 0)
            found.insert(static_cast<std::size_t>(i.target));
    }
    return found;
}

// Returns the kernel with a change of the class; nothing if the kernel does not allow one. Some classes
// build on the change of another class, one level deep. NOLINTNEXTLINE(misc-no-recursion)
std::optional<placed_kernel> changed(program program, change_class to, random_engine& random)
{
    naming names(program);
    switch (to) {
    case change_class::same:
        return assemble(program, names, 0x7f0000001000);
    case change_class::constants: {
        placed_kernel kernel = assemble(program, names);
        kernel.data[below(random, kernel.data.size())] ^= static_cast<std::uint8_t>(1 + below(random, 255));
        return kernel;
    }
    case change_class::layout:
        while (std::is_sorted(names.slots.begin(), names.slots.end()))
            std::shuffle(names.slots.begin(), names.slots.end(), random);
        return assemble(program, names);
    case change_class::relocations: {
        placed_kernel kernel = assemble(program, names);
        tessjit::reloc_info& reloc = kernel.relocs[below(random, kernel.relocs.size())];
        switch (below(random, 4)) {
        case 0:
            reloc.name = "another";
            break;
        case 1:
            reloc.addend += 4;
            break;
        case 2:
            reloc.type = reloc.type == 283 ? 274 : 283;
            break;
        default:
            reloc.offset += 4;
            break;
        }
        return kernel;
    }
    case change_class::registers: {
        // Permutes the temporaries.
        std::vector<unsigned> general = {9, 10, 11, 12, 13, 14, 15};
        std::vector<unsigned> vector = {16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
        if (!program.calls) {
            vector.insert(vector.end(), {4, 5, 6, 7});
            general.insert(general.end(), {2, 3});
        }
        std::vector<unsigned> new_general = general;
        std::vector<unsigned> new_vector = vector;
        std::shuffle(new_general.begin(), new_general.end(), random);
        std::shuffle(new_vector.begin(), new_vector.end(), random);
        for (std::size_t i = 0; i < general.size(); ++i)
            names.general[general[i]] = new_general[i];
        for (std::size_t i = 0; i < vector.size(); ++i)
            names.vector[vector[i]] = new_vector[i];
        placed_kernel kernel = assemble(program, names);
        if (kernel.text == assemble(program, naming(program)).text)
            return std::nullopt;
        return kernel;
    }
    case change_class::order: {
        // Swaps two neighbours in one block with different opcodes: otherwise it could pass as a renaming.
        const std::set<std::size_t> starts = targets(program);
        std::vector<std::size_t> found;
        for (std::size_t i = 0; i + 1 < program.code.size(); ++i) {
            const instruction& a = program.code[i];
            const instruction& b = program.code[i + 1];
            if (is_plain(a) && is_plain(b) && !starts.contains(i + 1) &&
                a.operands.size() != b.operands.size())
                found.push_back(i);
        }
        if (found.empty())
            return std::nullopt;
        const std::size_t chosen = found[below(random, found.size())];
        std::swap(program.code[chosen], program.code[chosen + 1]);
        return assemble(program, names);
    }
    default:
        break;
    }
    // Changes that affect the code.
    const std::size_t arithmetic_index = random_index(program, random, is_arithmetic);
    instruction& chosen = program.code[arithmetic_index];
    switch (below(random, 8)) {
    case 0:                       // another operation
        chosen.word = 0x6e60fc00; // fdiv v0.2d, v0.2d, v0.2d
        break;
    case 1: { // one more
        program.code.insert(program.code.begin() + static_cast<std::ptrdiff_t>(arithmetic_index),
                            arithmetic(random, program.calls));
        shift_targets(program, arithmetic_index + 1, 1);
        break;
    }
    case 2: // one less
        program.code.erase(program.code.begin() + static_cast<std::ptrdiff_t>(arithmetic_index));
        shift_targets(program, arithmetic_index + 1, -1);
        break;
    case 3: { // another register read in one place of several
        const unsigned number = chosen.operands[1].number;
        std::size_t places = 0;
        for (const instruction& i : program.code) {
            places += static_cast<std::size_t>(
                std::count_if(i.operands.begin(), i.operands.end(), [&](const operand& o) {
                    return o.bank == bank::vector && o.number == number;
                }));
        }
        if (places == 1)
            return std::nullopt;
        chosen.operands[1].number = number == 20 ? 21 : 20;
        break;
    }
    case 4: { // constants elsewhere, and one of them another
        if (program.slots.size() < 2)
            return std::nullopt;
        std::swap(names.slots[0], names.slots[1]);
        for (std::uint8_t& byte : program.slots[0])
            byte = static_cast<std::uint8_t>(~byte);
        return assemble(program, names);
    }
    case 5: { // parameters exchanged: loads from X1, stores to X0
        bool loads = false;
        for (instruction& i : program.code) {
            if (i.operands.size() == 1 && (i.word & 0xff000000) == 0x3d000000 && is_plain(i)) {
                i.word ^= 1U << 5;
                loads = true;
            }
        }
        if (!loads)
            return std::nullopt;
        return assemble(program, names);
    }
    case 6: { // a branch that leads elsewhere
        const auto branch = std::find_if(program.code.begin(), program.code.end(),
                                         [](const instruction& i) { return i.target >= 0; });
        if (branch == program.code.end())
            return std::nullopt;
        ++branch->target;
        return assemble(program, names);
    }
    default: { // registers and constants, or registers and references, at once
        auto renamed = changed(program, change_class::registers, random);
        if (!renamed)
            return std::nullopt;
        if (below(random, 2) == 0)
            renamed->data[0] ^= 1;
        else
            renamed->relocs[0].addend += 16;
        return renamed;
    }
    }
    return assemble(program, names);
}

TEST(DifferenceClasses, AreThoseOfTheKnownChangesOf2000RandomKernels)
{
    const unsigned seed = support::random_seed();
    random_engine random(seed);
    constexpr change_class kinds[] = {
        change_class::same,      change_class::constants, change_class::layout, change_class::relocations,
        change_class::registers, change_class::order,     change_class::code};
    std::map<change_class, int> counts;
    for (int done = 0; done < 2000;) {
        const program program = random_program(random);
        const change_class expected = kinds[below(random, std::size(kinds))];
        const placed_kernel before = assemble(program, naming(program));
        const std::optional<placed_kernel> after = changed(program, expected, random);
        if (!after)
            continue;
        ++done;
        ++counts[expected];
        const change_class forth = compare_kernels(before, *after);
        const change_class back = compare_kernels(*after, before);
        ASSERT_EQ(name_of(forth), name_of(expected)) << "kernel " << done << ", WFTA_TEST_SEED=" << seed;
        ASSERT_EQ(name_of(back), name_of(expected)) << "kernel " << done << ", WFTA_TEST_SEED=" << seed;
    }
    for (const change_class kind : kinds)
        EXPECT_GT(counts[kind], 150) << name_of(kind);
}

} // namespace
