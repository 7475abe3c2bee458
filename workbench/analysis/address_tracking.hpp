// Finds the loads and stores of a kernel whose address follows from its relocations.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// How the address of an access changes in a loop that executes it once per iteration.
struct address_walk {
    std::int64_t stride;                     ///< bytes per iteration
    std::optional<std::uint64_t> iterations; ///< each time the loop is entered, if certain
};

/// A load or a store whose base register comes from an ADR, or from an ADRP (and ADD) with relocations.
struct known_access {
    std::size_t offset;   ///< of the instruction in the code
    memory_access access; ///< as decoded

    /// Index of the relocation of the ADR or ADRP, which names the target. Nothing for an ADR of the kernel's
    /// own code without a relocation.
    std::optional<std::size_t> relocation;

    /// Offset of the access from the relocation's target (a kernel's code, or the kernel's own data). Nothing
    /// if it depends on the target's address, and that is unknown.
    std::optional<std::int64_t> target_offset;

    /// The address, if the target's is known.
    std::optional<std::uint64_t> address;

    bool through_page = false; ///< no ADD completes the ADRP

    /// For an access in a loop, whose address above is then that of the first iteration.
    std::optional<address_walk> walk;
};

/// The address of a relocation's target (a kernel's name, or ".rodata." and the kernel's own name); nothing
/// if unknown.
using target_address = std::function<std::optional<std::uint64_t>(const std::string& target)>;

struct known_addresses {
    std::vector<known_access> accesses; ///< by ascending offset

    /// A store may write to the kernel's own data or code at an unknown address.
    bool writes_somewhere = false;
};

/// Addresses are not tracked in kernels with more blocks, since each block keeps a register state.
inline constexpr std::size_t most_followed_blocks = 65'536;

/// Tracks addresses through the control-flow graph of the kernel's unlinked code: through moves, additions
/// of constants and the writeback of loads and stores. Where paths join, registers on which they agree stay
/// known; after a call, the callee-saved registers of the AAPCS64; at an entry from outside, none. Finds
/// accesses in words that may be executed only.
known_addresses find_known_addresses(const decoded_kernel& code, const code_map& map,
                                     const target_address& address_of = {});

/// The accesses only, of a kernel that decode_and_map has mapped: decodes further words where it has to.
std::vector<known_access> decode_and_find_accesses(decoded_kernel& code, const code_map& map,
                                                   const target_address& address_of);

/// The accesses through relocations that have the same address each time they are executed. Assumes that
/// other kernels enter this one at its beginning only.
std::vector<known_access> known_accesses(const decoded_kernel& code, const target_address& address_of = {});

} // namespace vorna::workbench
