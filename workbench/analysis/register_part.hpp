// The units in which registers are followed: a register, or one of three parts of a vector register.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vorna::workbench {

/// A register, or one of three parts of a vector register: its low 64 bits, the rest of Q, the rest of Z.
using register_part = std::uint8_t;
constexpr std::size_t part_count = 146;
using part_set = std::bitset<part_count>;

constexpr register_part low_half(unsigned vector)
{
    return static_cast<register_part>(32 + vector);
}
constexpr register_part rest_of_q(unsigned vector)
{
    return static_cast<register_part>(64 + vector);
}
constexpr register_part rest_of_z(unsigned vector)
{
    return static_cast<register_part>(96 + vector);
}
constexpr register_part predicate_part(unsigned predicate)
{
    return static_cast<register_part>(128 + predicate);
}
constexpr register_part first_fault_part = 144;
constexpr register_part flags_part = 145;

constexpr bool is_vector(register_id r)
{
    return r >= vector_register(0) && r < predicate_register(0);
}

/// The part that a register is, or the low half of a vector register.
register_part part_of(register_id r);

/// The register of a part.
register_id register_of_part(register_part part);

/// "x19", "sp", "d8" for a low half, "v8", "z8", "p4", "ffr", "nzcv".
std::string name_of_part(register_part part);

/// Callee-saved by the base standard: X19 to X29, the low halves of V8 to V15. And X30, which a kernel saves
/// too.
constexpr bool is_saved_part(register_part part)
{
    return (part >= general_register(19) && part <= link_register) ||
           (part >= low_half(8) && part <= low_half(15));
}

/// Preserved by a kernel with SVE arguments, but not by another.
bool is_saved_with_sve(register_part part);

} // namespace vorna::workbench
