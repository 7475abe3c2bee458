// What an instruction does to the value of its registers, beyond what their defs and uses say: copies,
// partial defs, addresses that depend on the vector length.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstdint>
#include <optional>

namespace vorna::workbench {

enum class register_effect : std::uint8_t {
    compute,            ///< anything else
    clear,              ///< EOR, SUB, BIC, CMEQ of a register with itself: the same, whatever it holds
    copy,               ///< of a whole register: MOV (vector, SVE, predicate), FMOV D
    copy_lane,          ///< of 64 bits of a vector register to a general one: FMOV, UMOV
    copy_to_vector,     ///< FMOV Dd, Xn; DUP Vd.2D, Xn
    scalar_from_lane,   ///< DUP Dd, Vn.D[i]
    set_lane,           ///< INS, FMOV Vd.D[1], LD1 to LD4 of a lane: keeps the other lanes
    duplicate_lane,     ///< DUP of a lane of a vector register
    set_upper_half,     ///< XTN2 and others that narrow: keeps the low 64 bits
    keep_bits,          ///< MOVK, BFM: keeps some bits of the destination
    keep_inactive,      ///< SVE: keeps the inactive elements of the destination, and uses no other
    select,             ///< CSEL, FCSEL, SEL, BSL and their variants: uses one source or another
    add_registers,      ///< ADD Xd, Xn, Xm without shift
    subtract_registers, ///< SUB Xd, Xn, Xm without shift
    add_vector_lengths, ///< ADDVL, ADDPL
    vector_length,      ///< RDVL
    align_down,         ///< AND with an immediate that clears the low bits only
    sign_link,          ///< PACIASP, PACIBSP and their variants
    authenticate_link,  ///< AUTIASP, AUTIBSP and their variants
    strip_link,         ///< XPACLRI
    read_system,        ///< MRS
    write_system,       ///< MSR (register)
    change_streaming,   ///< SMSTART, SMSTOP
    all_true,           ///< PTRUE with the pattern ALL
    follow_operands,    ///< not modelled, but its operands and implicit registers are complete
};

register_effect effect_of(const decoded_kernel& kernel, const instruction& instruction);

/// For set_lane: the bytes of the vector register that it writes. The same in each register of a list.
struct vector_lane {
    std::uint8_t first = 0;
    std::uint8_t bytes = 0;
};
std::optional<vector_lane> lane_set_by(const decoded_kernel& kernel, const instruction& instruction);

/// For copy_lane, scalar_from_lane and duplicate_lane, and for INS of an element: the lane that is read.
std::optional<vector_lane> lane_read_by(const decoded_kernel& kernel, const instruction& instruction);

/// ADDVL, ADDPL, RDVL: to = from + count * VL / 8, where VL is the vector length in bytes.
struct scalable_sum {
    register_id to = zero_register;
    register_id from = zero_register; ///< zero_register for RDVL
    std::int64_t count = 0;
};
std::optional<scalable_sum> scalable_sum_of(const decoded_kernel& kernel, const instruction& instruction);

/// A load or a store of SVE, as far as it can be told: LDR and STR of a whole register, which lies at base +
/// count * VL / 8; and contiguous ones with a predicate, at base + count * VL / 8 if there is no index.
struct scalable_access {
    bool load = false;
    bool store = false;
    bool whole = false; ///< LDR or STR: all of the register, whatever the vector length
    register_id first_register = zero_register;
    register_id base = zero_register;  ///< zero_register if the addresses are in a vector
    std::optional<std::int64_t> count; ///< nothing if a register is added
};
std::optional<scalable_access> scalable_access_of(const decoded_kernel& kernel,
                                                  const instruction& instruction);

/// For align_down: the alignment in bytes.
std::uint64_t alignment_of(const decoded_kernel& kernel, const instruction& instruction);

/// For read_system and write_system: which of the registers that a kernel may use.
enum class system_register : std::uint8_t { other, nzcv, fpcr, fpsr };
system_register system_register_of(const decoded_kernel& kernel, const instruction& instruction);

/// For keep_inactive and all_true: the size of the elements in bytes, of the larger ones if it converts.
unsigned element_bytes_of(const instruction& instruction);

/// For sign_link and authenticate_link: whether it uses key B.
bool uses_key_b(const instruction& instruction);

} // namespace vorna::workbench
