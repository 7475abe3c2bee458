// Random kernel sets that the finaliser links, with relocations up to the ends of their ranges.
#pragma once

#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace support {

/// Random sets of kernels, as large as the ranges of the four relocation types, and where to place each.
class far_reaching_sets {
public:
    far_reaching_sets(unsigned seed, std::uint64_t begin, std::uint64_t end)
        : random_(seed), next_mapping_(begin), end_(end)
    {
        // A kernel of the host's own, out of range of all relocations except ADRP's and ADD's.
        const std::uint64_t four_gib = std::uint64_t{4} << 30;
        far_kernel = begin > 2 * four_gib && one_in(2) ? begin - below(four_gib) : begin + below(four_gib);
        known_["far"] = far_kernel;
    }

    /// The next kernels, for a mapping at `place`.
    std::vector<vorna::wfta::kernel_data> next(unsigned count)
    {
        std::vector<vorna::wfta::kernel_data> kernels(count);
        for (vorna::wfta::kernel_data& kernel : kernels) {
            kernel.name = "k" + std::to_string(known_.size());
            known_[kernel.name] = 0;
            std::vector<std::uint32_t> words(below(12));
            if (&kernel == &kernels.front()) {
                words.resize(12); // an empty set gets no mapping
            }
            for (std::uint32_t& word : words) {
                word = a64::nop();
            }
            kernel.text = code(words);
            kernel.text.resize(kernel.text.size() + (one_in(4) ? below(4) : 0), 0xee);
            kernel.data.resize(one_in(4) ? 0 : below(40));
            for (std::uint8_t& byte : kernel.data) {
                byte = static_cast<std::uint8_t>(below(256));
            }
        }

        // The finaliser's layout: code on 32-byte boundaries, then the data, packed.
        std::uint64_t text_size = 0;
        std::uint64_t data_size = 0;
        for (const vorna::wfta::kernel_data& kernel : kernels) {
            text_size += (kernel.text.size() + 31) / 32 * 32;
            data_size += kernel.data.size();
        }
        constexpr std::uint64_t largest_page = 0x10000;
        place = next_mapping_;
        next_mapping_ += (text_size + data_size + largest_page) / largest_page * largest_page;
        next_mapping_ += below((end_ - next_mapping_) / 2 / largest_page) * largest_page;

        for (const vorna::wfta::kernel_data& kernel : kernels) {
            known_.erase(kernel.name);
        }
        std::uint64_t text = place;
        std::uint64_t data = place + text_size;
        for (vorna::wfta::kernel_data& kernel : kernels) {
            known_[kernel.name] = text;
            for (std::size_t offset = 0; offset + 4 <= kernel.text.size(); offset += 4) {
                if (!one_in(4)) {
                    relocate(kernel, static_cast<std::int32_t>(offset), text, data);
                }
            }
            std::shuffle(kernel.relocs.begin(), kernel.relocs.end(), random_);
            text += (kernel.text.size() + 31) / 32 * 32;
            data += kernel.data.size();
        }
        return kernels;
    }

    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    bool one_in(unsigned n) { return below(n) == 0; }

    std::uint64_t far_kernel;
    std::uint64_t place = 0;

private:
    // Makes the word an instruction with a relocation against a random target within range.
    void relocate(vorna::wfta::kernel_data& kernel, std::int32_t offset, std::uint64_t text,
                  std::uint64_t data)
    {
        tessjit::reloc_info reloc = {".rodata." + kernel.name, offset, 0, 0};
        std::uint64_t target = data;
        if (one_in(2)) {
            const auto it = std::next(known_.begin(), static_cast<std::ptrdiff_t>(below(known_.size())));
            std::tie(reloc.name, target) = *it;
        }

        const auto reg = static_cast<unsigned>(below(31));
        const std::uint64_t P = text + static_cast<std::uint64_t>(offset);
        const std::uint64_t page = P & ~std::uint64_t{0xfff};
        std::uint32_t word = 0;
        std::uint64_t lowest = target - 0x80000000; // S
        std::uint64_t highest = target + 0x7fffffff;
        switch (below(4)) {
        case 0:
            reloc.type = R_AARCH64_ADR_PREL_LO21;
            word = a64::adr(reg);
            lowest = P - 0x100000;
            highest = P + 0xfffff;
            break;
        case 1:
            reloc.type = R_AARCH64_ADR_PREL_PG_HI21;
            word = a64::adrp(reg);
            lowest = page - 0x100000000;
            highest = page + 0xffffffff;
            break;
        case 2:
            reloc.type = R_AARCH64_ADD_ABS_LO12_NC;
            word = a64::add(reg, reg, 0);
            break;
        default:
            reloc.type = R_AARCH64_CALL26;
            word = a64::bl();
            lowest = P - 0x8000000;
            highest = P + 0x7fffffc;
        }

        const auto lowest_addend =
            std::max<std::int64_t>(static_cast<std::int64_t>(lowest - target), INT32_MIN);
        const auto highest_addend =
            std::min<std::int64_t>(static_cast<std::int64_t>(highest - target), INT32_MAX);
        if (lowest_addend > highest_addend) {
            return;
        }
        std::int64_t addend =
            lowest_addend +
            static_cast<std::int64_t>(below(static_cast<std::uint64_t>(highest_addend - lowest_addend) + 1));
        switch (below(6)) {
        case 0:
            addend = lowest_addend;
            break;
        case 1:
            addend = highest_addend;
            break;
        case 2:
        case 3:
            addend = std::clamp<std::int64_t>(0, lowest_addend, highest_addend);
            break;
        default:
            break;
        }
        if (reloc.type == R_AARCH64_CALL26) {
            addend -= static_cast<std::int64_t>((target + static_cast<std::uint64_t>(addend) - P) % 4);
            if (addend < lowest_addend) {
                return;
            }
        }
        reloc.addend = static_cast<std::int32_t>(addend);
        std::memcpy(&kernel.text[static_cast<std::size_t>(offset)], &word, sizeof word);
        kernel.relocs.push_back(std::move(reloc));
    }

    std::mt19937_64 random_;
    std::uint64_t next_mapping_;
    std::uint64_t end_;
    std::map<std::string, std::uint64_t> known_;
};

} // namespace support
