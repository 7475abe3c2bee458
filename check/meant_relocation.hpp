// Infers from the kernel's instructions which relocation was meant by a wrong one.
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

/// The likely cause of a finding and what to do, one line each; either may be empty.
struct advice {
    std::string note;
    std::string help;
};

/// The word at the relocation's offset, as generated; nothing if the offset is unaligned or outside the code.
std::optional<std::uint32_t> generated_word(const relocation_site& site);

/// Advice about a relocation with a wrong offset or type; nothing if the instructions do not show the right
/// one.
std::optional<advice> advise_by_instructions(const relocation_site& site);

/// Help that gives the relocation with another target, and with the type and offset that the instructions
/// show.
advice advise_other_target(const relocation_site& site, const std::string& target);

/// Advice about a relocation whose instruction an earlier relocation, given by index, fills already.
advice advise_second_of_instruction(const relocation_site& site, std::size_t earlier);

} // namespace vorna::wfta
