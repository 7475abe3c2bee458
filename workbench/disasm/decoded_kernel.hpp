// A kernel's instructions as LLVM's tables describe them: operands, defs and uses, control flow, memory
// accesses. A kernel is decoded once; the analyses read this and never look at the bits of a word.
#pragma once

#include "workbench/disasm/memory_access.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// A register, independent of the view: W3 is X3; B3, H3, S3, D3, Q3 and Z3 are V3; PN8 is P8.
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
constexpr register_id zero_register = 254; ///< as an operand only; not in a register_set

/// X0 to X30 and SP.
constexpr bool is_general(register_id r)
{
    return r <= stack_pointer;
}

using register_set = std::bitset<register_count>;

/// An explicit operand. LLVM's order: defs first. An operand that is both used and defined (MOVK, a vector
/// lane, a base register with writeback) appears twice.
struct operand {
    bool is_register = false;
    bool defined = false;   ///< a def, otherwise a use
    bool low_half = false;  ///< of a vector register, at most 64 bits
    bool scalable = false;  ///< of a vector register, all of Z
    std::uint8_t count = 0; ///< of registers: several in a list or a pair
    std::array<register_id, 8> registers{};
    std::int64_t immediate = 0;

    /// The same kind of operand with the same registers or immediate.
    friend bool operator==(const operand& a, const operand& b) = default;
};

/// Where control goes from an instruction.
enum class control_flow : std::uint8_t {
    next,          ///< to the next one
    branch,        ///< to `target`
    conditional,   ///< to `target` or to the next one
    call,          ///< BL
    indirect_call, ///< BLR and its variants
    jump,          ///< BR and its variants: to an address in a register
    exit,          ///< RET and its variants
    trap,          ///< nowhere: BRK, HLT, UDF
    system,        ///< SVC and its variants: to an exception handler, then to the next one
    anywhere,      ///< unknown, possibly to the next one: a word that LLVM cannot decode, encoded among the
                   ///< branches
    unknown,       ///< exception returns, and other branches in LLVM's tables
};

/// The instructions that the analyses interpret.
enum class instruction_kind : std::uint8_t {
    other,
    adr,          ///< ADR: forms the address at distance `pc_relative`
    adrp,         ///< ADRP
    add_constant, ///< ADD, ADDS, SUB or SUBS (immediate)
    copy,         ///< MOV (register)
    set_constant, ///< MOVZ, MOVN
    keep_others,  ///< MOVK
};

/// The classes of the instruction mix.
enum class instruction_class : std::uint8_t {
    load,    ///< reads memory; includes atomics, which also write it
    store,   ///< writes memory only
    fp_simd, ///< computes in floating-point, SIMD or SVE registers, or moves to or from them
    integer, ///< computes in general registers
    branch,  ///< branches, calls, returns, exceptions
    other    ///< system instructions, hints, prefetches, and words that are not instructions
};

/// The type of the vector elements that an arithmetic instruction computes with.
struct vector_element {
    bool floating_point = false;
    std::uint8_t bytes = 0;
};

/// Whether relocations apply to a word.
enum class word_relocation : std::uint8_t {
    none,
    fits,   ///< one relocation, whose type is for this instruction
    unclear ///< several, one for another instruction, or one that overlaps two words
};

/// One word of a kernel's code.
struct instruction {
    std::uint32_t word = 0;
    std::uint16_t opcode = 0; ///< LLVM's number: mnemonic and form
    bool decoded = false;     ///< false if the word is not an instruction, or an unpredictable one
    bool looked_up = false;   ///< false before decode_instruction: the kernel is only prepared
    control_flow flow = control_flow::next;
    instruction_kind kind = instruction_kind::other;
    bool may_load = false;
    bool may_store = false;
    bool modelled = false; ///< it depends on and changes only its operands, implicit registers, memory, and
                           ///< the floating-point control and status
    word_relocation relocated = word_relocation::none;
    std::uint8_t operand_count = 0;
    std::uint32_t first_operand = 0;         ///< in decoded_kernel::operands
    std::uint32_t relocation = 0;            ///< index of the relocation that fits
    std::optional<std::int32_t> pc_relative; ///< byte distance of a PC-relative target

    /// BL, BLR and their variants: control returns to the next instruction.
    [[nodiscard]] bool is_call() const
    {
        return flow == control_flow::call || flow == control_flow::indirect_call;
    }
    /// Ends a basic block.
    [[nodiscard]] bool is_terminator() const { return flow != control_flow::next; }
    /// Control never falls through to the next word.
    [[nodiscard]] bool is_barrier() const
    {
        return flow == control_flow::branch || flow == control_flow::jump || flow == control_flow::exit ||
               flow == control_flow::trap || flow == control_flow::unknown;
    }
};

/// Keeps a pointer to the kernel that it was decoded from.
struct decoded_kernel {
    const placed_kernel* kernel = nullptr;
    std::vector<instruction> instructions; ///< one for each whole word of the code
    std::vector<operand> operands;
};

/// Kernels with more code are neither analysed nor listed: instructions and rows take some fifty times the
/// code's size.
inline constexpr std::size_t largest_decoded_code = std::size_t{4} << 20;

decoded_kernel decode_kernel(const placed_kernel& kernel);

/// The kernel with its words and relocations, but no word decoded yet. Reuses the memory of another one.
decoded_kernel prepare_decoding(const placed_kernel& kernel, decoded_kernel reused = {});

/// Decodes one of its words, unless it is decoded already.
void decode_instruction(decoded_kernel& code, std::size_t index);

/// Whether a word, decoded or not, certainly continues at the next one, is `instruction_kind::other`, and is
/// not PC-relative. Tells without decoding it; most words are plain.
bool is_plain(std::uint32_t word);

/// Decodes a single word, without a kernel.
decoded_kernel decode_word(std::uint32_t word);

/// The operands of one instruction.
using operand_range = std::span<const operand>;
operand_range operands_of(const decoded_kernel& kernel, const instruction& instruction);

/// The registers that an instruction uses or defines implicitly, without an operand.
const register_set& implicit_uses_of(const instruction& instruction);
const register_set& implicit_defs_of(const instruction& instruction);

/// The registers that an instruction uses or defines. A partial def is also a use.
register_set uses_of(const decoded_kernel& kernel, const instruction& instruction);
register_set defs_of(const decoded_kernel& kernel, const instruction& instruction);

/// Whether the instruction defines no general registers other than its operands. True for some instructions
/// that are not modelled: MRS, MSR, SYS.
bool tells_general_defs(const instruction& instruction);

/// PRFM and its variants.
bool is_prefetch(const instruction& instruction);

/// A load, store or prefetch of one register at a base register and an unsigned offset: LDR (immediate).
bool has_unsigned_offset(const instruction& instruction);

/// A 64-bit multiplication whose product is added to or subtracted from a register: MADD, SMSUBL. Not their
/// aliases without an addend, as MUL.
bool multiplies_and_adds(std::uint32_t word);

/// LLVM's name of an opcode: "LDRDui".
std::string_view opcode_name(std::uint32_t opcode);

instruction_class class_of(const decoded_kernel& kernel, const instruction& instruction);

/// The element type of vector arithmetic; nothing for instructions that treat registers as bits, like EOR.
std::optional<vector_element> vector_element_of(const instruction& instruction);

/// What a load, a store or an atomic does with memory.
struct memory_access : memory_form {
    register_id first_register = zero_register; ///< the first register that is loaded or stored
    register_id base = zero_register;           ///< zero_register for a literal load
    register_id index = zero_register;          ///< the register that is added, before or after the access
    std::int64_t offset = 0;                    ///< in bytes; 0 if a register is added
};
std::optional<memory_access> memory_access_of(const decoded_kernel& kernel, const instruction& instruction);

/// ADD or SUB of a constant, or MOV (register): to = from + constant.
struct register_sum {
    register_id to = zero_register;
    register_id from = zero_register; ///< zero_register: just the constant
    std::int64_t constant = 0;
    bool wide = true;        ///< of 64 bits
    bool sets_flags = false; ///< ADDS, SUBS
};
std::optional<register_sum> register_sum_of(const decoded_kernel& kernel, const instruction& instruction);

/// MOVZ, MOVN or MOVK: to = (to & kept) | value.
struct register_number {
    register_id to = zero_register;
    std::uint64_t kept = 0;
    std::uint64_t value = 0;
};
std::optional<register_number> register_number_of(const decoded_kernel& kernel,
                                                  const instruction& instruction);

} // namespace vorna::workbench
