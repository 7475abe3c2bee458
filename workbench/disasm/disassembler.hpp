// Disassembly of single AArch64 instructions.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vorna::workbench {

/// Knows the instructions of Armv9 and its extensions. One object serves one thread at a time; making one
/// takes about as long as some thousand instructions.
class disassembler {
public:
    disassembler();
    ~disassembler();
    disassembler(const disassembler&) = delete;
    disassembler& operator=(const disassembler&) = delete;

    /// The instruction in the assembler's words, one blank behind the mnemonic ("ldr d7, [x3, #16]"); what
    /// branches, ADR, ADRP and loads of literals lead to as an absolute number, seen from the address `pc`.
    /// ".word 0x........" for a word that is no instruction.
    std::string text(std::uint32_t word, std::uint64_t pc);

    /// The same with `operand` in place of the instruction's last one ("bl wfta_short_3").
    std::string text_with_last_operand(std::uint32_t word, std::string_view operand);

private:
    std::string plain_text(std::uint32_t word);

    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

/// The address that a branch (not to a register), ADR, ADRP or a load of a literal at the address `pc` leads
/// to; nothing for other instructions.
std::optional<std::uint64_t> pc_relative_target(std::uint32_t word, std::uint64_t pc);

} // namespace vorna::workbench
