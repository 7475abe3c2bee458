// Disassembly of single AArch64 instructions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vorna::workbench {

/// Knows the instructions of Armv9 and its extensions. One object serves one thread at a time; making one
/// takes about as long as some thousand instructions.
class disassembler {
public:
    disassembler();
    ~disassembler();
    disassembler(const disassembler&) = delete;
    disassembler& operator=(const disassembler&) = delete;

    /// The instruction in the assembler's words, one blank behind the mnemonic ("ldr d7, [x3, #16]"); targets
    /// of branches and addresses as absolute numbers, seen from the address `pc`. ".word 0x........" for a
    /// word that is no instruction.
    std::string text(std::uint32_t word, std::uint64_t pc);

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vorna::workbench
