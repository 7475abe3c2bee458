// Which words of a kernel are executed, which are data, and where the code may be entered.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vorna::workbench {

/// A place at which another kernel may enter this one, by a relocation of its own.
struct code_entry {
    std::int64_t offset;
    bool called; ///< by a BL; otherwise only the address is taken
};

enum class word_use : std::uint8_t {
    unknown, ///< no branch that can be followed leads here: dead code, or what a branch to a register reaches
    code,    ///< may be executed
    data     ///< is not executed, but read by a PC-relative load or through an ADR of the own code
};

/// The words of a kernel. All vectors have an element for each instruction of the decoded kernel.
struct code_map {
    std::vector<word_use> uses;
    std::vector<bool> leaders; ///< of basic blocks: reached otherwise than from the word before
    std::vector<bool> entries; ///< of those the ones where nothing is known about the registers
    bool any_entry = false;    ///< a branch to a register may lead to any word
};

/// `entries` are those by other kernels; the kernel's beginning and its own relocations are always entries.
code_map map_code(const decoded_kernel& code, const std::vector<code_entry>& entries);

/// Where control continues after an instruction, besides calls of other kernels.
struct successors {
    bool next = false;                 ///< may continue at the next word
    std::optional<std::size_t> target; ///< word of this kernel that a branch or a BL leads to
};
successors successors_of(const decoded_kernel& code, std::size_t index);

} // namespace vorna::workbench
