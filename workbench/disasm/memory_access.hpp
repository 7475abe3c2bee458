// What loads, stores and atomics do with memory, which LLVM's tables do not say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vorna::workbench {

enum class addressing_mode : std::uint8_t {
    offset,         ///< base + offset
    pre_index,      ///< base + offset, which the base register then holds
    post_index,     ///< base; the base register then holds base + offset
    post_register,  ///< base, to which a register is then added
    register_index, ///< base + a register
    literal         ///< the instruction's address + offset
};

/// What the opcode of a load, a store or an atomic says.
struct memory_form {
    bool load = false;  ///< reads memory,
    bool store = false; ///< writes it; an atomic does both
    bool exclusive = false;
    bool ordered = false; ///< acquires or releases
    bool atomic = false;
    bool structure = false;     ///< LD1 to LD4, ST1 to ST4
    bool fp_simd = false;       ///< of FP or SIMD registers
    bool sign_extended = false; ///< what is loaded is smaller than the general register, and keeps its sign
    bool authenticates = false; ///< checks the address: LDRAA, LDRAB
    std::uint8_t element_bytes = 0; ///< of one register, or of one element of a structure load
    std::uint8_t registers = 0;     ///< that are loaded or stored
    std::uint8_t bytes = 0;         ///< in all
    std::uint8_t scale = 0;         ///< bytes that the number among the operands counts; 0 without one
    std::uint8_t status_operands =
        0; ///< before the operands of the registers: status, writeback, a comparison
    addressing_mode addressing = addressing_mode::offset;

    /// The base register holds another address afterwards.
    [[nodiscard]] bool moves_base() const
    {
        return addressing == addressing_mode::pre_index || addressing == addressing_mode::post_index ||
               addressing == addressing_mode::post_register;
    }

    /// The address must be a multiple of `bytes`, unless the processor has FEAT_LSE2.
    [[nodiscard]] bool faults_unaligned() const { return exclusive || ordered || atomic; }
};

/// By LLVM's name of the opcode ("LDRDui"). Nothing for other instructions, and for those whose size is not
/// in the word (SVE), prefetches, memory tags by themselves, copies of memory, and accesses of 64 bytes.
std::optional<memory_form> memory_form_of(std::string_view opcode);

} // namespace vorna::workbench
