// The text of single AArch64 instructions, from LLVM's printer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vorna::workbench {

/// Knows the instructions of Armv9 and its extensions. Use one object in one thread at a time.
class disassembler {
public:
    disassembler();
    ~disassembler();
    disassembler(const disassembler&) = delete;
    disassembler& operator=(const disassembler&) = delete;

    /// The instruction in assembler syntax, with one space after the mnemonic ("ldr d7, [x3, #16]"). Targets
    /// of branches, ADR, ADRP and literal loads are absolute numbers, for an instruction at the address `pc`.
    /// ".word 0x........" for a word that is not an instruction.
    std::string text(std::uint32_t word, std::uint64_t pc);

    /// The same with a symbol as the target, or as the immediate of an ADD ("bl wfta_short_3", "add x1, x1,
    /// :lo12:table").
    std::string text_with_symbol(std::uint32_t word, std::string_view symbol);

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vorna::workbench
