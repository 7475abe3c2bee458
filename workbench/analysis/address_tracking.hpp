// The loads and stores of a kernel whose address follows from its relocations.
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

/// How the address of an access changes in a loop that executes it once in each iteration.
struct address_walk {
    std::int64_t stride;                     ///< bytes from iteration to iteration
    std::optional<std::uint64_t> iterations; ///< each time the loop is entered, where that is certain
};

/// A load or a store whose base register comes from an ADR, or from an ADRP (and ADD) with relocations.
struct known_access {
    std::size_t offset;   ///< of the instruction in the text
    memory_access access; ///< what the instruction does

    /// Index of the relocation that named the target: the ADR's or the ADRP's. Nothing for an ADR of the own
    /// code that needs no relocation.
    std::optional<std::size_t> relocation;

    /// Where the access begins, from the relocation's target (a kernel's code, or the own data) on. Nothing
    /// if that depends on where the target is placed, and this is not known.
    std::optional<std::int64_t> target_offset;

    /// The address itself, where the target's is known.
    std::optional<std::uint64_t> address;

    bool through_page = false; ///< no ADD completes the ADRP

    /// If there, the address is that of the first iteration.
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
/// constants and the writeback of loads and stores. Where paths meet, what all of them agree on is known;
/// after a call, what the called kernel preserves by the procedure call standard; where the code is entered
/// from outside, nothing. The accesses are those of the words that may be executed.
known_addresses find_known_addresses(const decoded_kernel& code, const code_map& map,
                                     const target_address& address_of = {});

/// The accesses that the kernel's relocations make known and that have the same address each time, where no
/// other kernel enters this one after its beginning.
std::vector<known_access> known_accesses(const decoded_kernel& code, const target_address& address_of = {});

} // namespace vorna::workbench
