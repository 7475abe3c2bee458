// The loads and stores of a kernel whose address follows from its relocations.
#pragma once

#include "jit/reloc_info.hpp"
#include "workbench/a64.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// A load or a store whose base register comes from an ADR, or from an ADRP (and ADD) with relocations.
struct known_access {
    std::size_t offset;     ///< of the instruction in the text
    memory_access access;   ///< what the instruction does
    std::size_t relocation; ///< index of the relocation that named the target: the ADR's, the ADRP's

    /// Where the access begins, from the relocation's target (a kernel's code, or the own data) on. Nothing
    /// if that depends on where the target is placed, and this is not known.
    std::optional<std::int64_t> target_offset;

    /// The address itself, where the target's is known.
    std::optional<std::uint64_t> address;
};

/// Address of a relocation's target, a kernel's name or ".rodata." and the own one; nothing if not known.
using target_address = std::function<std::optional<std::uint64_t>(const std::string& target)>;

/// The accesses of the kernel's unlinked code in ascending order of their offsets. Addresses are followed
/// through straight-line code: through moves, additions of constants and the writeback of loads and stores,
/// up to the next write of the register, call, or place where a branch leads. Behind a branch that may not be
/// taken they stay known.
std::vector<known_access> known_accesses(const std::string& name, const std::vector<std::uint8_t>& text,
                                         const std::vector<tessjit::reloc_info>& relocs,
                                         const target_address& address_of = {});

} // namespace vorna::wfta
