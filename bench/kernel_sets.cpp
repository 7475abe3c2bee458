#include "bench/kernel_sets.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <random>
#include <utility>

namespace bench {

namespace {

using vorna::wfta::kernel_data;

constexpr std::size_t word = 4;

// The distributions of <random> differ between implementations; this one does not.
std::size_t pick(std::mt19937_64& random, std::size_t first, std::size_t last)
{
    return first + random() % (last - first + 1);
}

template <typename T>
void shuffle(std::vector<T>& values, std::mt19937_64& random)
{
    for (std::size_t i = values.size(); i > 1; --i)
        std::swap(values[i - 1], values[pick(random, 0, i - 1)]);
}

std::vector<std::string> make_names(std::size_t count, std::mt19937_64& random)
{
    std::vector<std::string> names(count);
    for (std::size_t i = 0; i < count; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "wfta_kernel_%08zu", i);
        names[i] = name;
    }
    shuffle(names, random);
    return names;
}

// A kernel before `caller`, near enough for BL even if every kernel has its own pages.
std::size_t pick_callee(std::mt19937_64& random, std::size_t caller)
{
    constexpr std::size_t furthest = 30000;
    const std::size_t first = caller > furthest ? caller - furthest : 0;
    return caller == 0 ? 0 : pick(random, first, caller - 1);
}

std::vector<std::uint8_t> make_bytes(std::size_t size, std::mt19937_64& random)
{
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Adds a relocation of the instruction at `offset` and writes that instruction, with a zero field.
void add_relocation(kernel_data& kernel, std::size_t offset, reference kind, const std::string& other,
                    std::size_t addend)
{
    struct shape {
        std::uint32_t instruction; // on x0 where it names a register
        std::int32_t type;
        std::string target;
    };
    const shape shapes[] = {
        {0x90000000, R_AARCH64_ADR_PREL_PG_HI21, ".rodata." + kernel.name},
        {0x91000000, R_AARCH64_ADD_ABS_LO12_NC, ".rodata." + kernel.name},
        {0x10000000, R_AARCH64_ADR_PREL_LO21, kernel.name},
        {0x94000000, R_AARCH64_CALL26, kernel.name},
        {0x94000000, R_AARCH64_CALL26, other},
    };
    const shape& shape = shapes[static_cast<std::size_t>(kind)];
    std::memcpy(kernel.text.data() + offset, &shape.instruction, word);
    kernel.relocs.push_back(
        {shape.target, static_cast<std::int32_t>(offset), shape.type, static_cast<std::int32_t>(addend)});
}

std::vector<reference> pick_references(std::mt19937_64& random, bool has_callees)
{
    std::vector<reference> references;
    for (std::size_t calls = pick(random, 0, 4); calls > 0; --calls)
        references.push_back(has_callees ? reference::call_other : reference::call_self);
    for (std::size_t pairs = pick(random, 0, 4); pairs > 0; --pairs)
        references.push_back(reference::adrp_own_data); // its ADD comes with it
    if (pick(random, 0, 4) != 0)
        references.push_back(pick(random, 0, 1) == 0 ? reference::adr_self : reference::call_self);
    shuffle(references, random);
    return references;
}

void give_slots(kernel_set& set)
{
    set.entries.resize(set.kernels.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i)
        set.kernels[i].entry_out = &set.entries[i];
}

} // namespace

kernel_set make_kernels(std::size_t count)
{
    std::mt19937_64 random(count);
    const std::vector<std::string> names = make_names(count, random);

    kernel_set set;
    for (std::size_t i = 0; i < count; ++i) {
        set.kernels.push_back({nullptr,
                               names[i],
                               make_bytes(word * pick(random, 50, 500), random),
                               make_bytes(16 * pick(random, 1, 16), random),
                               {}});
        kernel_data& kernel = set.kernels.back();
        const std::vector<reference> references = pick_references(random, i > 0);
        // Spread evenly over the text, two words each, so that a pair stays together.
        const std::size_t words_each = kernel.text.size() / word / (references.size() + 1);
        std::size_t offset = 0;
        for (const reference kind : references) {
            const std::size_t addend =
                kind == reference::adrp_own_data ? 8 * pick(random, 0, kernel.data.size() / 8 - 1) : 0;
            const std::string& other = names[pick_callee(random, i)];
            add_relocation(kernel, offset, kind, other, addend);
            if (kind == reference::adrp_own_data)
                add_relocation(kernel, offset + word, reference::add_own_data, other, addend);
            offset += words_each * word;
        }
    }
    give_slots(set);
    return set;
}

kernel_set make_kernels_of_one_kind(std::size_t count, reference kind, std::size_t relocations_each)
{
    std::mt19937_64 random(count);
    const std::vector<std::string> names = make_names(count, random);

    kernel_set set;
    for (std::size_t i = 0; i < count; ++i) {
        set.kernels.push_back({nullptr, names[i], make_bytes(1024, random), make_bytes(64, random), {}});
        for (std::size_t r = 0; r < relocations_each; ++r) {
            const std::string& other = names[pick_callee(random, i)];
            add_relocation(set.kernels.back(), r * word, kind, other, 0);
        }
    }
    give_slots(set);
    return set;
}

set_layout layout_of(const std::vector<kernel_data>& kernels)
{
    set_layout layout{};
    for (const kernel_data& kernel : kernels) {
        layout.text_offsets.push_back(layout.text_size);
        layout.text_size = (layout.text_size + kernel.text.size() + 31) / 32 * 32;
    }
    layout.size = layout.text_size;
    for (const kernel_data& kernel : kernels) {
        layout.data_offsets.push_back(layout.size);
        layout.size += kernel.data.size();
    }
    return layout;
}

namespace {

// The signed value of bits high to low.
std::int64_t signed_field(std::uint32_t instruction, unsigned high, unsigned low)
{
    const auto shifted = static_cast<std::int32_t>(instruction << (31 - high));
    return shifted >> (31 - high + low);
}

// The address that the instruction at `place` forms; for an ADD, the 12 bits that it adds.
std::uint64_t decode_target(std::int32_t type, std::uint64_t place)
{
    std::uint32_t instruction;
    std::memcpy(&instruction, reinterpret_cast<const void*>(place), sizeof instruction);
    const std::int64_t adr = signed_field(instruction, 23, 5) * 4 + (instruction >> 29 & 3);
    switch (type) {
    case R_AARCH64_ADR_PREL_LO21:
        return place + static_cast<std::uint64_t>(adr);
    case R_AARCH64_ADR_PREL_PG_HI21:
        return place / 4096 * 4096 + static_cast<std::uint64_t>(adr * 4096);
    case R_AARCH64_ADD_ABS_LO12_NC:
        return instruction >> 10 & 0xfff;
    default:
        return place + static_cast<std::uint64_t>(signed_field(instruction, 25, 0) * 4);
    }
}

} // namespace

void check_linked(const std::vector<kernel_data>& kernels, const vorna::wfta::kernel_registry_map& registry,
                  const char* linker, std::int32_t except)
{
    for (const kernel_data& kernel : kernels) {
        const vorna::wfta::kernel_registry_entry& placed = registry.at(kernel.name);
        for (const tessjit::reloc_info& reloc : kernel.relocs) {
            if (reloc.type == except)
                continue;
            const bool own_data = reloc.name.compare(0, 8, ".rodata.") == 0;
            const auto target = reinterpret_cast<std::uint64_t>(own_data ? placed.data_ptr
                                                                         : registry.at(reloc.name).text_ptr) +
                                static_cast<std::uint64_t>(std::int64_t{reloc.addend});
            const auto place = reinterpret_cast<std::uint64_t>(placed.text_ptr) +
                               static_cast<std::uint64_t>(std::int64_t{reloc.offset});
            std::uint64_t expected = target;
            if (reloc.type == R_AARCH64_ADR_PREL_PG_HI21)
                expected = target / 4096 * 4096;
            if (reloc.type == R_AARCH64_ADD_ABS_LO12_NC)
                expected = target % 4096;
            const std::uint64_t found = decode_target(reloc.type, place);
            if (found != expected) {
                std::fprintf(stderr, "%s: relocation of type %d at %s+%d leads to 0x%lx, not to 0x%lx\n",
                             linker, reloc.type, kernel.name.c_str(), reloc.offset, found, expected);
                std::exit(1);
            }
        }
    }
}

} // namespace bench
