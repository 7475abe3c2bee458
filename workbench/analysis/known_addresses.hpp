// The loads and stores of a kernel whose address follows from its relocations.
#pragma once

#include "jit/reloc_info.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/a64.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// In place of a relocation's index: an ADR of the own code that needs no relocation.
inline constexpr std::size_t own_code = std::numeric_limits<std::size_t>::max();

/// How the address of an access changes in a loop that executes it once in each turn.
struct address_walk {
    std::int64_t stride;                ///< bytes from turn to turn
    std::optional<std::uint64_t> turns; ///< each time the loop is entered, where that is certain
};

/// A load or a store whose base register comes from an ADR, or from an ADRP (and ADD) with relocations.
struct known_access {
    std::size_t offset;   ///< of the instruction in the text
    memory_access access; ///< what the instruction does
    std::size_t
        relocation; ///< index of the relocation that named the target: the ADR's, the ADRP's; own_code

    /// Where the access begins, from the relocation's target (a kernel's code, or the own data) on. Nothing
    /// if that depends on where the target is placed, and this is not known.
    std::optional<std::int64_t> target_offset;

    /// The address itself, where the target's is known.
    std::optional<std::uint64_t> address;

    bool through_page = false; ///< no ADD completes the ADRP

    /// If there, the address is that of the first turn.
    std::optional<address_walk> walk;
};

/// Address of a relocation's target, a kernel's name or ".rodata." and the own one; nothing if not known.
using target_address = std::function<std::optional<std::uint64_t>(const std::string& target)>;

struct known_addresses {
    std::vector<known_access> accesses; ///< in ascending order of their offsets

    /// A store may write to the kernel's own data or code at an address that is not known.
    bool writes_somewhere = false;
};

/// Blocks beyond which addresses are not followed, since each keeps what is known of the registers.
inline constexpr std::size_t most_followed_blocks = 65'536;

/// Follows addresses through the control flow of the kernel's unlinked code: through moves, additions of
/// constants and the writeback of loads and stores. Where several ways meet, known is what all of them agree
/// on; behind a call, what the called kernel preserves by the procedure call standard; where the code is
/// entered from outside, nothing. The accesses are those of the words that may be executed.
known_addresses find_known_addresses(const code_map& map, const std::string& name,
                                     const std::vector<std::uint8_t>& text,
                                     const std::vector<tessjit::reloc_info>& relocs,
                                     const target_address& address_of = {});

/// The accesses that the kernel's relocations make known and that have the same address each time, where no
/// other kernel enters this one behind its beginning.
std::vector<known_access> known_accesses(const std::string& name, const std::vector<std::uint8_t>& text,
                                         const std::vector<tessjit::reloc_info>& relocs,
                                         const target_address& address_of = {});

} // namespace vorna::workbench
