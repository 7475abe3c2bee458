// Makes kernels and relocations, concisely.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// The little-endian bytes of instruction words.
inline std::vector<std::uint8_t> code(const std::vector<std::uint32_t>& words)
{
    std::vector<std::uint8_t> bytes;
    for (const std::uint32_t word : words) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    return bytes;
}

/// A kernel of instruction words.
inline vorna::wfta::kernel_data kernel(std::string name, const std::vector<std::uint32_t>& words,
                                       std::vector<tessjit::reloc_info> relocs = {},
                                       std::vector<std::uint8_t> data = {}, void** entry_out = nullptr)
{
    return {entry_out, std::move(name), code(words), std::move(data), std::move(relocs)};
}

/// The instruction word at an address of any alignment.
inline std::uint32_t word_at(const void* address)
{
    std::uint32_t word = 0;
    std::memcpy(&word, address, sizeof word);
    return word;
}

/// An arbitrary address, for a registry entry made by the host.
inline std::uint8_t* address(std::uint64_t value)
{
    return reinterpret_cast<std::uint8_t*>(value);
}

inline std::uint64_t number(const void* pointer)
{
    return reinterpret_cast<std::uint64_t>(pointer);
}

} // namespace support
