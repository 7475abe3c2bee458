// One relocation of a generated kernel, as the JIT code generator records it.
#pragma once

#include <cstdint>
#include <string>

namespace tessjit {

/// A fixup of one 32-bit instruction word that depends on where code or data is placed.
///
/// The members keep the meaning and the order of the generator's records. All three numbers are sign-extended
/// to 64 bits before they are used.
struct reloc_info {
    /// The target: the name of a registered kernel (its first code byte), or ".rodata." followed by the name
    /// of the kernel that owns this relocation (its first data byte).
    std::string name;

    /// Byte offset of the instruction word from the start of the owning kernel's text.
    std::int32_t offset;

    /// Relocation type number of "ELF for the Arm 64-bit Architecture (AArch64)", one of
    /// R_AARCH64_ADR_PREL_LO21 (274), R_AARCH64_ADR_PREL_PG_HI21 (275), R_AARCH64_ADD_ABS_LO12_NC (277) and
    /// R_AARCH64_CALL26 (283).
    std::int32_t type;

    /// Bytes added to the target's address.
    std::int32_t addend;
};

} // namespace tessjit
