// Random sets of kernels that the finaliser accepts, and ways to break them.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace support {

using random_engine = std::mt19937_64;

/// The kernels of one call of finalise_kernels, and what the registry has before it.
struct random_set {
    std::vector<vorna::wfta::kernel_data> earlier; ///< to be finalised first, in a call of their own
    std::vector<std::string> null_names;           ///< to be registered at address null, by the host
    std::vector<vorna::wfta::kernel_data> kernels; ///< the set
};

/// One of 0 to count - 1.
inline std::size_t pick(random_engine& random, std::size_t count)
{
    return static_cast<std::size_t>(random() % count);
}

/// A kernel that the finaliser accepts: instructions that load from its data through ADR, and ADRP and ADD,
/// calls of `callees` and of itself, arithmetic and branches in between, RET at the end. Relocations are in
/// any order. Its data, if it has any, is a number of doubles.
inline vorna::wfta::kernel_data random_kernel(random_engine& random, const std::string& name,
                                              const std::vector<std::string>& callees)
{
    using namespace a64;
    std::vector<word> words;
    std::vector<tessjit::reloc_info> relocs;
    const auto offset = [&] { return static_cast<std::int32_t>(4 * words.size()); };
    const std::size_t doubles = pick(random, 9);
    std::vector<std::uint8_t> data;
    for (std::size_t i = 0; i < doubles; ++i) {
        const double value = static_cast<double>(pick(random, 2001)) / 8 - 125;
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
        data.insert(data.end(), bytes, bytes + sizeof value);
    }
    const std::string own_data = ".rodata." + name;
    const auto addend = [&] { return static_cast<std::int32_t>(8 * pick(random, doubles + 1)); };
    const auto load_from = [&](unsigned base) {
        const auto t = static_cast<unsigned>(pick(random, 8));
        words.push_back(pick(random, 2) == 0 ? ldr(t, base)
                                             : 0xfd400000 | base << 5 | t /* LDR Dt, [Xbase] */);
    };

    for (std::size_t pieces = pick(random, 8); pieces > 0; --pieces) {
        const auto d = static_cast<unsigned>(9 + pick(random, 7));
        switch (pick(random, 6)) {
        case 0: {
            relocs.push_back({own_data, offset(), R_AARCH64_ADR_PREL_LO21, addend()});
            words.push_back(adr(d));
            load_from(d);
            break;
        }
        case 1: {
            const std::int32_t a = addend();
            relocs.push_back({own_data, offset(), R_AARCH64_ADR_PREL_PG_HI21, a});
            words.push_back(adrp(d));
            if (pick(random, 2) == 0)
                words.push_back(nop());
            relocs.push_back({own_data, offset(), R_AARCH64_ADD_ABS_LO12_NC, a});
            words.push_back(add(d, d, 0));
            load_from(d);
            break;
        }
        case 2:
        case 3: {
            const std::size_t callee = pick(random, callees.size() + 1);
            relocs.push_back(
                {callee == callees.size() ? name : callees[callee], offset(), R_AARCH64_CALL26, 0});
            words.push_back(bl());
            break;
        }
        case 4:
            words.push_back(cbz(static_cast<unsigned>(pick(random, 8)), 1));
            words.push_back(0x1e620820 | static_cast<word>(pick(random, 8)) /* FMUL Dd, D1, D2 */);
            break;
        default:
            words.push_back(add_register(d, d, 3));
        }
    }
    words.push_back(ret());
    std::shuffle(relocs.begin(), relocs.end(), random);
    return kernel(name, words, std::move(relocs), std::move(data));
}

/// A set that the finaliser accepts, of one to seven kernels with at least one relocation, perhaps with
/// kernels of an earlier call.
inline random_set make_random_set(random_engine& random)
{
    random_set set;
    std::vector<std::string> names;
    const auto add_kernels = [&](std::vector<vorna::wfta::kernel_data>& kernels, const char* prefix,
                                 std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::string name = prefix + std::to_string(i);
            kernels.push_back(random_kernel(random, name, names));
            names.push_back(name);
        }
    };
    if (pick(random, 3) == 0)
        add_kernels(set.earlier, "earlier_", 1 + pick(random, 3));
    add_kernels(set.kernels, "wfta_", 1 + pick(random, 7));
    while (std::all_of(set.kernels.begin(), set.kernels.end(),
                       [](const vorna::wfta::kernel_data& kernel) { return kernel.relocs.empty(); }))
        set.kernels.back() = random_kernel(random, set.kernels.back().name, names);
    return set;
}

/// A way to break a set: changes it, or returns false if the set has nothing to break in this way.
struct breakage {
    const char* name;
    bool (*apply)(random_engine& random, random_set& set);
};

/// A kernel of the set that has relocations, or null.
inline vorna::wfta::kernel_data* pick_linked_kernel(random_engine& random, random_set& set)
{
    std::vector<vorna::wfta::kernel_data*> linked;
    for (vorna::wfta::kernel_data& kernel : set.kernels) {
        if (!kernel.relocs.empty())
            linked.push_back(&kernel);
    }
    return linked.empty() ? nullptr : linked[pick(random, linked.size())];
}

/// A relocation of the set, or null.
inline tessjit::reloc_info* pick_relocation(random_engine& random, random_set& set)
{
    vorna::wfta::kernel_data* const kernel = pick_linked_kernel(random, set);
    return kernel == nullptr ? nullptr : &kernel->relocs[pick(random, kernel->relocs.size())];
}

/// A relocation of one of these types, or null.
inline tessjit::reloc_info* pick_relocation_of(random_engine& random, random_set& set,
                                               std::vector<std::int32_t> types)
{
    std::vector<tessjit::reloc_info*> found;
    for (vorna::wfta::kernel_data& kernel : set.kernels) {
        for (tessjit::reloc_info& reloc : kernel.relocs) {
            if (std::find(types.begin(), types.end(), reloc.type) != types.end())
                found.push_back(&reloc);
        }
    }
    return found.empty() ? nullptr : found[pick(random, found.size())];
}

/// Flips bits of the word that a relocation fills.
inline bool change_word(random_engine& random, random_set& set, const std::vector<unsigned>& bits)
{
    vorna::wfta::kernel_data* const kernel = pick_linked_kernel(random, set);
    if (kernel == nullptr)
        return false;
    const auto offset = static_cast<std::size_t>(kernel->relocs[pick(random, kernel->relocs.size())].offset);
    if (offset > kernel->text.size() || kernel->text.size() - offset < 4)
        return false;
    const unsigned bit = bits[pick(random, bits.size())];
    kernel->text[offset + bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
    return true;
}

/// The first nine (nearly) always end the process; whether the others do depends on the set.
inline const std::vector<breakage>& breakages()
{
    static const std::vector<breakage> all = {
        {"duplicate-name",
         [](random_engine& random, random_set& set) {
             const std::size_t second = pick(random, set.kernels.size());
             const std::size_t others = second + set.earlier.size();
             if (others == 0)
                 return false;
             const std::size_t first = pick(random, others);
             set.kernels[second].name =
                 first < second ? set.kernels[first].name : set.earlier[first - second].name;
             return true;
         }},
        {"unknown-target",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc = pick_relocation(random, set);
             if (reloc != nullptr)
                 reloc->name = pick(random, 2) == 0 ? reloc->name + "x" : ".rodata";
             return reloc != nullptr && reloc->name.compare(0, 8, ".rodata.") != 0;
         }},
        {"callee-order",
         [](random_engine& random, random_set& set) {
             const std::size_t caller = pick(random, set.kernels.size());
             const std::size_t later = set.kernels.size() - caller - 1;
             std::vector<tessjit::reloc_info>& relocs = set.kernels[caller].relocs;
             if (later == 0 || relocs.empty())
                 return false;
             relocs[pick(random, relocs.size())].name = set.kernels[caller + 1 + pick(random, later)].name;
             return true;
         }},
        {"foreign-data",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc = pick_relocation(random, set);
             if (reloc != nullptr)
                 reloc->name = pick(random, 2) == 0 ? ".rodata." : ".rodata.another";
             return reloc != nullptr;
         }},
        {"null-target",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc = pick_relocation(random, set);
             if (reloc == nullptr)
                 return false;
             set.null_names = {"null"};
             reloc->name = "null";
             return true;
         }},
        {"unhandled-type",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc = pick_relocation(random, set);
             const std::int32_t types[] = {0, 257, 273, 276, 278, 282, 284, -1, 283 + 65536};
             if (reloc != nullptr)
                 reloc->type = types[pick(random, std::size(types))];
             return reloc != nullptr;
         }},
        {"field-filled",
         [](random_engine& random, random_set& set) {
             return change_word(random, set, {10, 14, 20, 21});
         }},
        {"applied-twice",
         [](random_engine& random, random_set& set) {
             vorna::wfta::kernel_data* const kernel = pick_linked_kernel(random, set);
             if (kernel == nullptr)
                 return false;
             const tessjit::reloc_info twice = kernel->relocs[pick(random, kernel->relocs.size())];
             kernel->relocs.insert(kernel->relocs.begin() +
                                       static_cast<std::ptrdiff_t>(pick(random, kernel->relocs.size() + 1)),
                                   twice);
             return true;
         }},
        {"out-of-range",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc =
                 pick_relocation_of(random, set, {R_AARCH64_ADR_PREL_LO21, R_AARCH64_CALL26});
             if (reloc == nullptr)
                 return false;
             const std::int32_t limit = reloc->type == R_AARCH64_CALL26 ? 1 << 27 : 1 << 20;
             const std::int32_t beyond = limit + 0x10000 + 8 * static_cast<std::int32_t>(pick(random, 100));
             reloc->addend = pick(random, 2) == 0 ? beyond : -beyond;
             return true;
         }},
        {"at-the-limit",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc =
                 pick_relocation_of(random, set, {R_AARCH64_ADR_PREL_LO21, R_AARCH64_CALL26});
             if (reloc == nullptr)
                 return false;
             const std::int32_t limit = reloc->type == R_AARCH64_CALL26 ? 1 << 27 : 1 << 20;
             const std::int32_t near = limit - 512 + 4 * static_cast<std::int32_t>(pick(random, 256));
             reloc->addend = pick(random, 2) == 0 ? near : -near;
             return true;
         }},
        {"misaligned-call",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc = pick_relocation_of(random, set, {R_AARCH64_CALL26});
             if (reloc != nullptr)
                 reloc->addend += static_cast<std::int32_t>(1 + pick(random, 3));
             return reloc != nullptr;
         }},
        {"any-bit",
         [](random_engine& random, random_set& set) {
             std::vector<unsigned> bits;
             for (unsigned bit = 0; bit < 32; ++bit)
                 bits.push_back(bit);
             return change_word(random, set, bits);
         }},
        {"bit-25", [](random_engine& random, random_set& set) { return change_word(random, set, {25}); }},
        {"another-type",
         [](random_engine& random, random_set& set) {
             tessjit::reloc_info* const reloc = pick_relocation(random, set);
             const std::int32_t types[] = {274, 275, 277, 283};
             if (reloc != nullptr)
                 reloc->type = types[pick(random, std::size(types))];
             return reloc != nullptr;
         }},
        {"another-offset",
         [](random_engine& random, random_set& set) {
             vorna::wfta::kernel_data* const kernel = pick_linked_kernel(random, set);
             if (kernel == nullptr)
                 return false;
             tessjit::reloc_info& reloc = kernel->relocs[pick(random, kernel->relocs.size())];
             reloc.offset = static_cast<std::int32_t>(pick(random, kernel->text.size() - 3));
             return true;
         }},
    };
    return all;
}

/// Whether the outcome depends on how far the system places the set's mapping from that of the earlier call:
/// kernels that a nearby mapping reaches are out of range only in theory.
inline bool depends_on_placement(const random_set& set)
{
    for (const vorna::wfta::kernel_data& kernel : set.kernels) {
        for (const tessjit::reloc_info& reloc : kernel.relocs) {
            const bool far = reloc.addend < -4096 || reloc.addend > 4096;
            if (reloc.name.compare(0, 8, "earlier_") == 0 && (far || reloc.type == R_AARCH64_ADR_PREL_LO21))
                return true;
        }
    }
    return false;
}

/// Breaks a set in one way, and returns its name.
inline const char* break_set(random_engine& random, random_set& set)
{
    for (;;) {
        const breakage& way = breakages()[pick(random, breakages().size())];
        random_set broken = set;
        if (way.apply(random, broken) && !depends_on_placement(broken)) {
            set = std::move(broken);
            return way.name;
        }
    }
}

} // namespace support
