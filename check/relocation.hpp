// The relocations of "ELF for the Arm 64-bit Architecture (AArch64)" that kernels have, as the workbench
// applies them: an implementation of its own beside the finaliser's, so that each can be held against the
// other.
#pragma once

#include <cstdint>

namespace vorna::wfta {

/// One kind of relocation. S is the target's address plus the addend (the ABI's S + A), P the place, X the
/// value that is checked and encoded, all with wrap-around in 64 bits.
struct relocation_kind {
    std::int32_t type;          ///< number in the ABI
    const char* name;           ///< name in the ABI
    const char* instruction;    ///< mnemonic of the instruction whose field it fills
    std::uint32_t opcode_mask;  ///< the bits of the word that make it that instruction,
    std::uint32_t opcode;       ///< and their values
    std::uint32_t filled_mask;  ///< bits that the finaliser wants zero beforehand
    std::uint64_t operand_mask; ///< applied to S and P before X is formed
    bool relative;              ///< X is S - P, otherwise S
    unsigned range_bits;        ///< X is a signed number of so many bits; 64 if it is not checked
    unsigned multiple_of;       ///< X must be a multiple
    const char* reach;          ///< the range in words, empty if it is not checked
};

/// The kind of an ELF relocation type number, or null for one that the finaliser does not know.
const relocation_kind* find_relocation_kind(std::int32_t type);

/// X of the ABI for a target S at a place P.
std::uint64_t relocation_value(const relocation_kind& kind, std::uint64_t S, std::uint64_t P);

/// Whether the instruction's field can hold X.
bool in_range(const relocation_kind& kind, std::uint64_t X);

/// The bits that are ORed into the instruction word for X.
std::uint32_t relocation_field(const relocation_kind& kind, std::uint64_t X);

/// All bits of the instruction's field. BL's has one more than the finaliser tests: the highest.
std::uint32_t field_mask(const relocation_kind& kind);

} // namespace vorna::wfta
