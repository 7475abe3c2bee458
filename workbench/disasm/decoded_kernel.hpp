// A kernel's instructions as LLVM's tables describe them: operands, registers read and written, control flow.
// Made once of a kernel; the analyses read it and look at no bit of a word themselves.
#pragma once

#include "workbench/kernels/kernel_set.hpp"

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// A register that holds a value of its own: W3 is X3; B3, H3, S3, D3, Q3 and Z3 are V3; PN8 is P8.
using register_id = std::uint8_t;

constexpr register_id general_register(unsigned number)
{
    return static_cast<register_id>(number);
}
constexpr register_id vector_register(unsigned number)
{
    return static_cast<register_id>(32 + number);
}
constexpr register_id predicate_register(unsigned number)
{
    return static_cast<register_id>(64 + number);
}
constexpr register_id link_register = general_register(30);
constexpr register_id stack_pointer = 31;
constexpr register_id first_fault_register = 80;
constexpr register_id condition_flags = 81;
constexpr std::size_t register_count = 82;
constexpr register_id zero_register = 254; ///< only as an operand: it has no value that could change

using register_set = std::bitset<register_count>;

/// An explicit operand, in LLVM's order: those that the instruction writes first. An operand that is both
/// read and written (MOVK, a lane of a vector, a base register with writeback) is there twice.
struct operand {
    bool is_register = false;
    bool defined = false;   ///< written by the instruction, otherwise read
    bool low_half = false;  ///< of vector registers, 64 bits or fewer
    std::uint8_t count = 0; ///< registers: several in a list or a pair
    std::array<register_id, 8> registers{};
    std::int64_t immediate = 0;

    /// The same kind of operand with the same registers or immediate.
    friend bool operator==(const operand& a, const operand& b)
    {
        return a.is_register == b.is_register && a.defined == b.defined && a.low_half == b.low_half &&
               a.count == b.count && a.registers == b.registers && a.immediate == b.immediate;
    }
};

/// Where control goes from an instruction.
enum class control_flow : std::uint8_t {
    next,          ///< to the next one
    branch,        ///< to `target`
    conditional,   ///< to `target` or to the next one
    call,          ///< BL
    indirect_call, ///< BLR and its kind
    jump,          ///< BR and its kind: to an address in a register
    exit,          ///< RET and its kind
    trap,          ///< nowhere: BRK, HLT, UDF
    unknown,       ///< exception returns, and what LLVM calls a branch that is none of these
};

/// What the analyses know by name.
enum class instruction_kind : std::uint8_t {
    other,
    adr,          ///< ADR: forms the address `pc_relative` from itself
    adrp,         ///< ADRP
    add,          ///< ADD (immediate) of 64 bits without flags; its last operands are the number and a shift
    sub,          ///< SUB (immediate) of the same kind
    move,         ///< MOV (register) of 64 bits
    load_literal, ///< LDR and LDRSW (literal): load from `pc_relative` from themselves
};

/// One word of a kernel's code.
struct instruction {
    std::uint32_t word = 0;
    std::uint32_t opcode = 0; ///< LLVM's number; equal ones are the same form of an instruction
    bool decoded = false;     ///< false for a word that is not an instruction, or an unpredictable one
    control_flow flow = control_flow::next;
    instruction_kind kind = instruction_kind::other;
    bool may_load = false;
    bool may_store = false;
    bool modelled = false; ///< operands and implicit registers are all that it depends on and changes
                           ///< beside memory and the floating-point control and status
    std::uint8_t literal_bytes = 0; ///< that a literal load reads
    register_set implicit_uses;
    register_set implicit_defs;
    std::uint32_t first_operand = 0; ///< in decoded_kernel::operands
    std::uint32_t operand_count = 0;
    std::optional<std::int64_t> pc_relative; ///< distance in bytes of the place that it names by one
    std::uint32_t relocations = 0;           ///< how many are on it
    std::uint32_t relocation = 0;            ///< index of the first of them in the kernel
};

struct decoded_kernel {
    std::vector<instruction> instructions; ///< one for each whole word of the text
    std::vector<operand> operands;
};

decoded_kernel decode_kernel(const placed_kernel& kernel);

/// The operands of one instruction.
struct operand_range {
    const operand* first;
    const operand* last;
    [[nodiscard]] const operand* begin() const { return first; }
    [[nodiscard]] const operand* end() const { return last; }
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(last - first); }
    const operand& operator[](std::size_t i) const { return first[i]; }
};
operand_range operands_of(const decoded_kernel& kernel, const instruction& instruction);

/// The registers that an instruction reads or writes, wholly or in part. What it changes in part is in both.
register_set uses_of(const decoded_kernel& kernel, const instruction& instruction);
register_set defs_of(const decoded_kernel& kernel, const instruction& instruction);

/// LLVM's name of an opcode: "LDRDui".
std::string_view opcode_name(std::uint32_t opcode);

/// For each word whether control reaches it: from the first one and from `entries` (byte offsets), through
/// branches within the kernel and past calls. What is not reached may be data. A word that is not an
/// instruction is reached but leads nowhere.
std::vector<bool> reachable_words(const decoded_kernel& kernel, const std::vector<std::int64_t>& entries);

/// The word that a branch within the kernel leads to; nothing if that is outside.
std::optional<std::size_t> branch_target(const decoded_kernel& kernel, std::size_t index);

} // namespace vorna::workbench
