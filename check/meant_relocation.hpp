// Guesses from the kernel's instructions which relocation the generator meant by a wrong one.
//
// An instruction of one of the four kinds whose field is zero needs a relocation. If such an instruction at
// or near the offset of a wrong relocation has none, it is the one that was meant. If two relocations have
// each other's instruction, their offsets are swapped.
#pragma once

#include "check/relocation.hpp"
#include "jit/reloc_info.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// A relocation in its kernel. The caller owns what the members refer to.
struct relocation_site {
    const std::string& kernel;
    const std::vector<std::uint8_t>& code; ///< as generated
    const std::vector<tessjit::reloc_info>& relocs;
    std::size_t index; ///< of the relocation

    [[nodiscard]] const tessjit::reloc_info& reloc() const { return relocs[index]; }
};

/// An instruction that a relocation can fill.
struct fillable_instruction {
    std::int32_t offset;
    const relocation_kind* kind;
};

/// The word at the relocation's offset, as generated; nothing if the offset is unaligned or outside the code.
std::optional<std::uint32_t> generated_word(const relocation_site& site);

/// The kind of relocation that can be meant for the word at the relocation's own offset, or null: the field
/// may hold a provisional value, but an ADD of a number is an ADD of a number.
const relocation_kind* kind_of_meant(std::uint32_t word);

/// Whether such an instruction can have the target: a BL cannot call constants.
bool can_lead_to(const relocation_kind& kind, const std::string& target);

/// The nearest instruction that needs a relocation and has none: preferably of the relocation's kind,
/// otherwise one that can have the target.
std::optional<fillable_instruction> find_waiting_instruction(const relocation_site& site,
                                                             const std::string& target);

/// The relocation whose offset is swapped with this one's, if both are otherwise right.
std::optional<std::size_t> find_exchanged(const relocation_site& site);

/// The instruction that the relocation is meant for: the one at its offset if it needs a relocation,
/// otherwise one nearby that does, otherwise the one at its offset with a provisional value in its field.
std::optional<fillable_instruction> find_meant_instruction(const relocation_site& site,
                                                           const std::string& target);

} // namespace vorna::wfta
