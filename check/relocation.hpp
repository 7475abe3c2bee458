// The relocations of "ELF for the Arm 64-bit Architecture (AArch64)" that kernels have, as the workbench
// applies them: an implementation of its own beside the finaliser's, so that each can be held against the
// other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace vorna::wfta {

/// A relocation's target names constants by this prefix and the name of their kernel, otherwise a kernel's
/// code.
inline constexpr std::string_view data_prefix = ".rodata.";

/// Whether the target names constants, of whatever kernel.
bool names_data(std::string_view target);

/// Whether the target names the kernel's own constants.
bool is_own_data(std::string_view kernel, std::string_view target);

/// Whether a whole word at `offset` lies within the code.
bool lies_within(const std::vector<std::uint8_t>& code, std::int64_t offset);

/// The instruction word at `offset`, which must lie within the code.
std::uint32_t word_at(const std::vector<std::uint8_t>& code, std::size_t offset);

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

/// The value that the field of an instruction word holds, the inverse of relocation_field: the distance of an
/// ADR or a BL, that of an ADRP in bytes from its own page.
std::int64_t encoded_value(const relocation_kind& kind, std::uint32_t word);

/// All bits of the instruction's field. BL's has one more than the finaliser tests: the highest.
std::uint32_t field_mask(const relocation_kind& kind);

} // namespace vorna::wfta
