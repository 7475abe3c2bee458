#include "check/relocation.hpp"

#include <cstring>
#include <elf.h>
#include <limits>

namespace vorna::wfta {

static constexpr std::uint64_t whole = ~std::uint64_t{0};
static constexpr std::uint64_t page = ~std::uint64_t{0xfff}; // 4 KiB, whatever the system's page size

static constexpr value_range all_values = {std::numeric_limits<std::int64_t>::min(),
                                           std::numeric_limits<std::int64_t>::max()};

static constexpr value_range signed_bits(unsigned bits)
{
    const std::int64_t half = std::int64_t{1} << (bits - 1);
    return {-half, half - 1};
}

// Opcodes are those of the "Arm A-profile A64 Instruction Set Architecture": ADR, ADRP, ADD (immediate, 32
// and 64 bits, without flags and without shift), BL.
static constexpr relocation_kind kinds[] = {
    {R_AARCH64_ADR_PREL_LO21, "R_AARCH64_ADR_PREL_LO21", "ADR", 0x9f000000, 0x10000000, 0x60ffffe0,
     0x60ffffe0, whole, true, signed_bits(21), 1},
    {R_AARCH64_ADR_PREL_PG_HI21, "R_AARCH64_ADR_PREL_PG_HI21", "ADRP", 0x9f000000, 0x90000000, 0x60ffffe0,
     0x60ffffe0, page, true, signed_bits(33), 1},
    {R_AARCH64_ADD_ABS_LO12_NC, "R_AARCH64_ADD_ABS_LO12_NC", "ADD", 0x7fc00000, 0x11000000, 0x003ffc00,
     0x003ffc00, whole, false, all_values, 1},
    {R_AARCH64_CALL26, "R_AARCH64_CALL26", "BL", 0xfc000000, 0x94000000, 0x03ffffff, 0x01ffffff, whole, true,
     signed_bits(28), 4},
};

const relocation_kind* find_relocation_kind(std::int32_t type)
{
    for (const relocation_kind& kind : kinds) {
        if (kind.type == type)
            return &kind;
    }
    return nullptr;
}

const relocation_kind* find_kind_of_instruction(std::uint32_t word)
{
    for (const relocation_kind& kind : kinds) {
        if (is_instruction_of(kind, word))
            return &kind;
    }
    return nullptr;
}

bool is_instruction_of(const relocation_kind& kind, std::uint32_t word)
{
    return (word & kind.opcode_mask) == kind.opcode;
}

bool is_filled(const relocation_kind& kind, std::uint32_t word)
{
    return (word & kind.tested_mask) != 0;
}

bool is_unlinked(const relocation_kind& kind, std::uint32_t word)
{
    return is_instruction_of(kind, word) && (word & kind.field_mask) == 0;
}

bool has_untested_bits(const relocation_kind& kind, std::uint32_t word)
{
    return (word & kind.field_mask & ~kind.tested_mask) != 0;
}

std::uint64_t relocation_value(const relocation_kind& kind, std::uint64_t S, std::uint64_t P)
{
    return (S & kind.page_mask) - (kind.relative ? P & kind.page_mask : 0);
}

bool is_aligned(const relocation_kind& kind, std::uint64_t X)
{
    return X % kind.alignment == 0;
}

bool in_range(const relocation_kind& kind, std::uint64_t X)
{
    const auto value = static_cast<std::int64_t>(X);
    return is_aligned(kind, X) && value >= kind.range.least && value <= kind.range.greatest;
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

applied_relocation apply(const relocation_kind& kind, std::uint64_t S, std::uint64_t P, std::uint32_t word)
{
    const std::uint64_t X = relocation_value(kind, S, P);
    applied_relocation result = {is_filled(kind, word), in_range(kind, X), X, word, false};
    if (!result.applied())
        return result;
    const std::uint32_t field = relocation_field(kind, X);
    result.word |= field;
    result.leads_elsewhere = is_instruction_of(kind, word) && (result.word & kind.field_mask) != field;
    return result;
}

void set_word(std::vector<std::uint8_t>& code, std::size_t offset, std::uint32_t word)
{
    std::memcpy(code.data() + offset, &word, sizeof word);
}

bool lies_within(const std::vector<std::uint8_t>& code, std::int64_t offset)
{
    return offset >= 0 && code.size() >= 4 && static_cast<std::uint64_t>(offset) <= code.size() - 4;
}

bool names_data(std::string_view target)
{
    return target.substr(0, data_prefix.size()) == data_prefix;
}

bool is_own_data(std::string_view kernel, std::string_view target)
{
    return names_data(target) && target.substr(data_prefix.size()) == kernel;
}

std::uint64_t target_value(std::uint64_t address, std::int64_t addend)
{
    return address + static_cast<std::uint64_t>(addend);
}

} // namespace vorna::wfta
