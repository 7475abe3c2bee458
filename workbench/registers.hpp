// The register operands of an A64 instruction word.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vorna::workbench {

enum class register_bank { general, fp_simd };

/// A register that an instruction names. What it may change in part, it reads and writes.
struct register_operand {
    register_bank bank = register_bank::general;
    unsigned number = 0; ///< 0 to 31; 31 of the general bank is the stack pointer or the zero register
    bool read = false;
    bool written = false;
};

/// All registers of one instruction, in the order of the manual's table of its encoding, and the bits of the
/// word that hold their numbers. Registers that an encoding implies (X30 of a BL) are not among them, the
/// further registers of a list ({v4.2d, v5.2d}) are.
struct register_operands {
    std::uint32_t fields = 0;
    std::size_t count = 0;
    std::array<register_operand, 8> operands;
};

/// The operands, or nothing where they are not known: SVE, SME, exclusives, SHA, some rare ones, and words
/// that are no instructions. Encodings are those of the "Arm A-profile A64 Instruction Set Architecture".
std::optional<register_operands> decode_registers(std::uint32_t word);

} // namespace vorna::workbench
