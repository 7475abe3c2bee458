// Which words of a kernel are executed, which are data, and where the code may be entered.
#pragma once

#include "jit/reloc_info.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// Code beyond which a kernel is not followed: nothing is known about its words then.
inline constexpr std::size_t largest_followed_code = std::size_t{4} << 20;

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

/// What the relocations do to a word.
struct word_relocation {
    enum class kind : std::uint8_t {
        none,
        fits,   ///< one relocation, of the instruction that the word is
        unclear ///< several, or one of another instruction, or one of parts of two words
    } what = kind::none;
    std::uint32_t index = 0; ///< of the relocation that fits
};

/// The words of a kernel. All vectors have an element for each whole word; they are empty if the code is
/// larger than is followed.
struct code_map {
    std::vector<word_use> uses;
    std::vector<word_relocation> relocations;
    std::vector<bool> joins;   ///< reached by other ways than from the word before
    std::vector<bool> entries; ///< of those the ones where nothing is known about the registers
    bool any_entry = false;    ///< a branch to a register may lead to any word
};

/// `entries` are those by other kernels; the kernel's beginning and its own relocations are always regarded.
code_map map_code(const std::string& name, const std::vector<std::uint8_t>& text,
                  const std::vector<tessjit::reloc_info>& relocs, const std::vector<code_entry>& entries);

/// Where control goes from a word besides calls of other kernels.
struct word_flow {
    bool next = false;                 ///< may go on at the next word
    std::optional<std::size_t> target; ///< word of this kernel that a branch or a BL leads to
};
word_flow flow_of(const code_map& map, const std::vector<std::uint8_t>& text, std::size_t index);

} // namespace vorna::workbench
