// The relocation types of "ELF for the Arm 64-bit Architecture (AArch64)" that kernels use: which instruction
// field they fill, and with what value.
//
// A relocation has a target (a kernel's code, or the kernel's own constants) and an addend; S is their sum,
// the ABI's S + A. P is the place: the address of the instruction. X, computed from S and P, is the value
// that is checked and encoded. This implementation is independent of the finaliser's, so that each can be
// tested against the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::wfta {

/// Inclusive bounds of X.
struct value_range {
    std::int64_t least;
    std::int64_t greatest;
};

/// One kind of relocation. All arithmetic wraps around in 64 bits.
struct relocation_kind {
    std::int32_t type;         ///< number in the ABI
    const char* name;          ///< name in the ABI
    const char* instruction;   ///< mnemonic of the instruction whose field it fills
    std::uint32_t opcode_mask; ///< the bits of the word that identify the instruction
    std::uint32_t opcode;      ///< the values of these bits
    std::uint32_t field_mask;  ///< the bits of the field
    std::uint32_t
        tested_mask; ///< field bits that the finaliser requires to be zero; for BL all but the highest
    std::uint64_t page_mask; ///< applied to S and P before X is computed
    bool relative;           ///< X is S - P, otherwise S
    value_range range;       ///< of X; all values if X is not checked
    unsigned alignment;      ///< X must be a multiple of it
};

/// The kind of an ELF relocation type number, or null for one that the finaliser does not support.
const relocation_kind* find_relocation_kind(std::int32_t type);

/// The kind of relocation that fills this instruction, or null.
const relocation_kind* find_kind_of_instruction(std::uint32_t word);

bool is_instruction_of(const relocation_kind& kind, std::uint32_t word);

/// Whether the finaliser refuses the word, since its field is not zero.
bool is_filled(const relocation_kind& kind, std::uint32_t word);

/// Whether the word is such an instruction with a zero field, as a generator emits it.
bool is_unlinked(const relocation_kind& kind, std::uint32_t word);

/// Whether bits of the field are set that the finaliser does not test.
bool has_untested_bits(const relocation_kind& kind, std::uint32_t word);

/// X of the ABI for a target S at a place P.
std::uint64_t relocation_value(const relocation_kind& kind, std::uint64_t S, std::uint64_t P);

/// Whether X is a multiple of the kind's alignment; and whether it is also within the kind's range.
bool is_aligned(const relocation_kind& kind, std::uint64_t X);
bool in_range(const relocation_kind& kind, std::uint64_t X);

/// The bits that are ORed into the instruction word for X.
std::uint32_t relocation_field(const relocation_kind& kind, std::uint64_t X);

/// The X encoded in the field of an instruction word: the inverse of relocation_field.
std::int64_t encoded_value(const relocation_kind& kind, std::uint32_t word);

/// The outcome of a relocation. It is applied only if its field is zero and X is in range.
struct applied_relocation {
    bool filled;          ///< the tested bits of the field were not zero
    bool in_range;        ///< X is in range and a multiple of the alignment
    std::uint64_t value;  ///< X
    std::uint32_t word;   ///< the instruction word afterwards
    bool leads_elsewhere; ///< applied, but an untested bit of the field was set that is not set in X
    [[nodiscard]] bool applied() const { return !filled && in_range; }
};

/// Applies a relocation to an instruction word as the finaliser does.
applied_relocation apply(const relocation_kind& kind, std::uint64_t S, std::uint64_t P, std::uint32_t word);

/// The instruction word at `offset`; all four bytes must exist.
inline std::uint32_t word_at(const std::vector<std::uint8_t>& code, std::size_t offset)
{
    std::uint32_t word = 0;
    std::memcpy(&word, code.data() + offset, sizeof word);
    return word;
}
void set_word(std::vector<std::uint8_t>& code, std::size_t offset, std::uint32_t word);

/// Whether a whole word at `offset` lies within the code.
bool lies_within(const std::vector<std::uint8_t>& code, std::int64_t offset);

/// This prefix and a kernel's name denote that kernel's constants; any other target is a kernel's code.
inline constexpr std::string_view data_prefix = ".rodata.";

/// Whether the target names constants of any kernel.
bool names_data(std::string_view target);

/// Whether the target names the kernel's own constants.
bool is_own_data(std::string_view kernel, std::string_view target);

/// A relocation's resolved target.
struct relocation_target {
    enum class where {
        nowhere,
        foreign_data, ///< constants of another kernel
        later,        ///< it comes after the kernel with the relocation
        placed,       ///< at `address`
        elsewhere,    ///< at `address`, in another mapping, at an unknown distance
        unknown       ///< placed, since the kernel with the relocation is linked, but not among those given
    } state;
    std::uint64_t address; ///< of its first byte, without the addend
    bool in_other_mapping =
        false; ///< placed by another call of finalise_kernels than the kernel with the relocation
};

/// A kernel's name and the addresses of its code and constants.
struct kernel_place {
    const std::string& name;
    std::uint64_t text_address;
    std::uint64_t data_address;
};

/// Resolves the target that a relocation of the kernel names. `find` takes the name of another kernel and
/// returns a relocation_target.
template <typename Find>
relocation_target resolve_target(const kernel_place& kernel, const std::string& target, const Find& find)
{
    using where = relocation_target::where;
    if (names_data(target)) {
        return is_own_data(kernel.name, target) ? relocation_target{where::placed, kernel.data_address, false}
                                                : relocation_target{where::foreign_data, 0, false};
    }
    return target == kernel.name ? relocation_target{where::placed, kernel.text_address, false}
                                 : find(target);
}

/// S of the ABI: the target's address and the addend.
std::uint64_t target_value(std::uint64_t address, std::int64_t addend);

} // namespace vorna::wfta
