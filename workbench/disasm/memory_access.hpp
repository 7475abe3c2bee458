// Addressing mode and size of loads, stores and atomics, which LLVM's tables lack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vorna::workbench {

enum class addressing_mode : std::uint8_t {
    offset,         ///< base + offset
    pre_index,      ///< base + offset, which is written back to the base register
    post_index,     ///< base; base + offset is written back
    post_register,  ///< base; base + a register is written back
    register_index, ///< base + a register
    literal         ///< the instruction's address + offset
};

/// A load, a store or an atomic, as far as its opcode determines it.
struct memory_form {
    bool load = false;  ///< reads memory
    bool store = false; ///< writes memory; an atomic does both
    bool exclusive = false;
    bool ordered = false; ///< has acquire or release semantics
    bool atomic = false;
    bool structure = false;         ///< LD1 to LD4, ST1 to ST4
    std::uint8_t interleaved = 0;   ///< of a structure: 1 to 4
    bool fp_simd = false;           ///< transfers FP or SIMD registers
    bool sign_extended = false;     ///< a load that sign-extends to the general register
    bool authenticates = false;     ///< authenticates the address: LDRAA, LDRAB
    std::uint8_t element_bytes = 0; ///< size of one register, or of one element of a structure load or store
    std::uint8_t registers = 0;     ///< number of registers that are loaded or stored
    std::uint8_t bytes = 0;         ///< total size of the access
    std::uint8_t scale = 0;         ///< bytes per unit of the immediate operand; 0 if there is none
    std::uint8_t status_operands = 0; ///< operands before the registers: status, writeback, comparison
    addressing_mode addressing = addressing_mode::offset;

    /// The base register is written back.
    [[nodiscard]] bool moves_base() const
    {
        return addressing == addressing_mode::pre_index || addressing == addressing_mode::post_index ||
               addressing == addressing_mode::post_register;
    }

    /// Faults if the address is not a multiple of `bytes`, unless the processor has FEAT_LSE2.
    [[nodiscard]] bool faults_unaligned() const { return exclusive || ordered || atomic; }
};

/// The memory access of an opcode, by LLVM's name ("LDRDui"). Nothing for instructions without one, and for
/// SVE (the word does not determine the size), prefetches, memory tagging alone, memory copies, and 64-byte
/// accesses.
std::optional<memory_form> memory_form_of(std::string_view opcode);

} // namespace vorna::workbench
