#include "check/relocation.hpp"

#include <cstring>
#include <elf.h>

namespace vorna::wfta {

static constexpr std::uint64_t whole = ~std::uint64_t{0};
static constexpr std::uint64_t page = ~std::uint64_t{0xfff}; // 4 KiB, whatever the machine's pages

// Opcodes are those of the "Arm A-profile A64 Instruction Set Architecture": ADR, ADRP, ADD (immediate, 32
// and 64 bits, without flags and without shift), BL.
static constexpr relocation_kind kinds[] = {
    {R_AARCH64_ADR_PREL_LO21, "R_AARCH64_ADR_PREL_LO21", "ADR", 0x9f000000, 0x10000000, 0x60ffffe0, whole,
     true, 21, 1, "1 MiB"},
    {R_AARCH64_ADR_PREL_PG_HI21, "R_AARCH64_ADR_PREL_PG_HI21", "ADRP", 0x9f000000, 0x90000000, 0x60ffffe0,
     page, true, 33, 1, "4 GiB"},
    {R_AARCH64_ADD_ABS_LO12_NC, "R_AARCH64_ADD_ABS_LO12_NC", "ADD", 0x7fc00000, 0x11000000, 0x003ffc00, whole,
     false, 64, 1, ""},
    {R_AARCH64_CALL26, "R_AARCH64_CALL26", "BL", 0xfc000000, 0x94000000, 0x01ffffff, whole, true, 28, 4,
     "128 MiB"},
};

bool names_data(std::string_view target)
{
    return target.substr(0, data_prefix.size()) == data_prefix;
}

bool is_own_data(std::string_view kernel, std::string_view target)
{
    return names_data(target) && target.substr(data_prefix.size()) == kernel;
}

bool lies_within(const std::vector<std::uint8_t>& code, std::int64_t offset)
{
    return offset >= 0 && code.size() >= 4 && static_cast<std::uint64_t>(offset) <= code.size() - 4;
}

std::uint32_t word_at(const std::vector<std::uint8_t>& code, std::size_t offset)
{
    std::uint32_t word = 0;
    std::memcpy(&word, code.data() + offset, sizeof word);
    return word;
}

const relocation_kind* find_relocation_kind(std::int32_t type)
{
    for (const relocation_kind& kind : kinds) {
        if (kind.type == type)
            return &kind;
    }
    return nullptr;
}

std::uint64_t relocation_value(const relocation_kind& kind, std::uint64_t S, std::uint64_t P)
{
    return (S & kind.operand_mask) - (kind.relative ? P & kind.operand_mask : 0);
}

bool in_range(const relocation_kind& kind, std::uint64_t X)
{
    const std::uint64_t half = std::uint64_t{1} << (kind.range_bits - 1);
    const bool fits = kind.range_bits == 64 || X + half < 2 * half;
    return fits && X % kind.multiple_of == 0;
}

std::uint32_t relocation_field(const relocation_kind& kind, std::uint64_t X)
{
    const auto bits = [X](unsigned high, unsigned low) {
        return static_cast<std::uint32_t>(X >> low) & ((std::uint32_t{1} << (high - low + 1)) - 1);
    };
    switch (kind.type) {
    case R_AARCH64_ADR_PREL_LO21:
        return bits(1, 0) << 29 | bits(20, 2) << 5;
    case R_AARCH64_ADR_PREL_PG_HI21:
        return bits(13, 12) << 29 | bits(32, 14) << 5;
    case R_AARCH64_ADD_ABS_LO12_NC:
        return bits(11, 0) << 10;
    default: // R_AARCH64_CALL26
        return bits(27, 2);
    }
}

static std::int64_t sign_extend(std::uint64_t value, unsigned bits)
{
    return static_cast<std::int64_t>(value << (64 - bits)) >> (64 - bits);
}

std::int64_t encoded_value(const relocation_kind& kind, std::uint32_t word)
{
    const std::uint64_t adr = std::uint64_t{word >> 5 & 0x7ffff} << 2 | (word >> 29 & 3);
    switch (kind.type) {
    case R_AARCH64_ADR_PREL_LO21:
        return sign_extend(adr, 21);
    case R_AARCH64_ADR_PREL_PG_HI21:
        return sign_extend(adr << 12, 33);
    case R_AARCH64_ADD_ABS_LO12_NC:
        return word >> 10 & 0xfff;
    default: // R_AARCH64_CALL26
        return sign_extend(std::uint64_t{word & 0x3ffffff} << 2, 28);
    }
}

std::uint32_t field_mask(const relocation_kind& kind)
{
    return relocation_field(kind, ~std::uint64_t{0});
}

} // namespace vorna::wfta
