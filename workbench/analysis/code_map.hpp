// Which words of a kernel are code, which are data, and where the code may be entered.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vorna::workbench {

/// An offset at which another kernel may enter this one, through a relocation of its own.
struct code_entry {
    std::int64_t offset;
    bool called; ///< by a BL; otherwise just the address is taken
};

/// The offsets at which relocations of the set's other kernels enter this one.
std::vector<code_entry> find_entries(const kernel_set& set, const placed_kernel& kernel);

enum class word_use : std::uint8_t {
    unknown, ///< not reached by direct branches: dead code, or the target of an indirect branch
    code,    ///< may be executed
    data     ///< not executed, but read by a literal load or through an ADR of the kernel's own code
};

/// The words of a kernel. All vectors have an element for each instruction of the decoded kernel.
struct code_map {
    std::vector<word_use> uses;
    std::vector<bool> leaders; ///< of basic blocks: reached other than from the preceding word
    std::vector<bool> entries; ///< leaders where nothing is known about the registers
    bool any_entry = false;    ///< an indirect branch may lead to any word
};

/// `entries` are those from other kernels; the kernel's beginning and the targets of its own relocations are
/// always entries.
code_map map_code(const decoded_kernel& code, const std::vector<code_entry>& entries);

/// The same for a kernel that is prepared for decoding: of the words that may be executed, decodes those that
/// are not plain, and no others.
code_map decode_and_map(decoded_kernel& code, const std::vector<code_entry>& entries);

/// Decodes the rest of the words that may be executed.
void decode_reached(decoded_kernel& code, const code_map& map);

/// Where control continues after an instruction, apart from calls of other kernels.
struct successors {
    bool next = false;                 ///< may continue at the next word
    std::optional<std::size_t> target; ///< word of this kernel that a branch or a BL leads to
};
successors successors_of(const decoded_kernel& code, std::size_t index);

/// Instructions that are executed one after the other: control enters at the first and leaves after the last.
/// A call, also of the kernel's own code, does not end a block.
struct basic_block {
    std::size_t begin = 0;             ///< index of the first instruction
    std::size_t end = 0;               ///< index after the last one
    std::vector<std::uint32_t> before; ///< numbers of the blocks that lead here
    std::vector<std::uint32_t> after;  ///< and of those that follow
};

/// By ascending offset. None if there are more than `most`.
std::vector<basic_block> find_blocks(const decoded_kernel& code, const code_map& map,
                                     std::size_t most = static_cast<std::size_t>(-1));

} // namespace vorna::workbench
