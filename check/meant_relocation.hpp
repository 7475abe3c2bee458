// What relocation a generator meant that has given a wrong one, by the kernel's instructions.
//
// An instruction of one of the four kinds whose field is zero waits for a relocation. If a wrong relocation
// has such an instruction at its offset or nearby, and that one has no relocation, then it is the one that
// was meant. Two relocations that have each other's instruction have their offsets exchanged.
#pragma once

#include "check/relocation.hpp"
#include "jit/reloc_info.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// A relocation in its kernel. Refers to what belongs to the caller.
struct relocation_site {
    const std::string& kernel;
    const std::vector<std::uint8_t>& code; ///< as generated
    const std::vector<tessjit::reloc_info>& relocs;
    std::size_t index; ///< of the relocation

    [[nodiscard]] const tessjit::reloc_info& reloc() const { return relocs[index]; }
};

/// The likely cause of a finding and what to do about it, a line each; either may be empty.
struct advice {
    std::string note;
    std::string help;
};

/// The word at the relocation's offset, as generated; nothing if no instruction begins there.
std::optional<std::uint32_t> generated_word(const relocation_site& site);

/// Advice about a relocation whose offset or type is wrong; nothing if the instructions do not tell.
std::optional<advice> advise_by_instructions(const relocation_site& site);

/// The relocation under another name, with the type and the offset that the instructions tell, as help.
advice advise_other_target(const relocation_site& site, const std::string& target);

/// Advice about a relocation whose instruction an earlier one, by its index, fills.
advice advise_second_of_instruction(const relocation_site& site, std::size_t earlier);

} // namespace vorna::wfta
