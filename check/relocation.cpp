#include "check/relocation.hpp"

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

std::uint32_t field_mask(const relocation_kind& kind)
{
    return relocation_field(kind, ~std::uint64_t{0});
}

} // namespace vorna::wfta
