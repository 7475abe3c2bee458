// What an A64 instruction word tells by itself. Encodings are those of the "Arm A-profile A64 Instruction Set
// Architecture" up to Armv8.6. Later instructions have no names here; what they write and where they lead is
// known where they have operands that earlier ones do not have.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vorna::workbench {

enum class instruction_class {
    load,    ///< reads memory; an atomic that also writes it counts here
    store,   ///< writes memory only
    fp_simd, ///< computes in floating-point, SIMD or SVE registers, or moves between them and others
    integer, ///< computes in general registers
    branch,  ///< may go on elsewhere than at the next word: branches, calls, returns, exceptions
    other    ///< system instructions, hints, prefetches, and words that are no instructions
};

/// The heading under which the manual describes the instruction, such as "LDR (immediate)" or "BL"; for one
/// that is not known here what it belongs to, such as "SVE instruction". Never empty.
std::string_view instruction_name(std::uint32_t word);

instruction_class instruction_class_of(std::uint32_t word);

enum class addressing_mode {
    offset,        ///< base + offset
    pre_index,     ///< base + offset, which the base register then holds
    post_index,    ///< base; the base register then holds base + offset
    post_register, ///< base, to which a register is then added
    register_index ///< base + a register
};

/// What a load, a store or an atomic does with memory.
struct memory_access {
    bool load;                  ///< reads memory,
    bool store;                 ///< writes it; an atomic does both
    unsigned bytes;             ///< in all
    unsigned element_bytes;     ///< of one register, or of one element of a structure load
    unsigned registers;         ///< that are loaded or stored
    unsigned first_register;    ///< number of the first of them
    bool fp_simd;               ///< they are FP or SIMD registers
    bool sign_extended;         ///< what is loaded is smaller than the general register, and keeps its sign
    unsigned base;              ///< 0 to 30, 31 for SP
    addressing_mode addressing; ///< how the address is formed
    std::int64_t offset;        ///< in bytes; 0 where a register is added
    bool faults_unaligned;      ///< an exclusive, an acquire or release, an atomic: the address must be a
                                ///< multiple of `bytes`
};

/// Nothing for other instructions, and for those whose size is not in the word (SVE), literal loads,
/// prefetches, memory tags, and copies of memory.
std::optional<memory_access> decode_memory_access(std::uint32_t word);

/// LDR and LDRSW (literal). The offset is from the instruction; there is no base register.
std::optional<memory_access> decode_literal_load(std::uint32_t word);

/// Distance in bytes from an ADR, as it was generated, to the address that it gives.
std::int64_t adr_displacement(std::uint32_t word);

/// Distance in bytes from the instruction to where a B, B.cond, BL, CBZ, CBNZ, TBZ, TBNZ, CB<cc>, CBB<cc> or
/// CBH<cc> leads.
std::optional<std::int64_t> branch_displacement(std::uint32_t word);

/// BL, BLR and the like: goes on behind the instruction, after having been elsewhere.
bool is_call(std::uint32_t word);

/// Whether the next word is reached through this one only by a call or not at all, or is but one of two ways
/// to go on: branches of every kind, returns, exceptions.
bool ends_block(std::uint32_t word);

/// Whether the next word is never reached from this one: RET and its kind, B, BR and its kind, ERET, and the
/// traps BRK, HLT and UDF.
bool never_falls_through(std::uint32_t word);

/// The general registers that the instruction may change, a bit each: 0 to 30, and 31 for SP. A call changes
/// what the callee changes, here as much as an exception: every register.
std::uint32_t written_registers(std::uint32_t word);

} // namespace vorna::workbench
