// What lies at an address of a process: a kernel's code, its constants, or neither.
#pragma once

#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vorna::workbench {

/// What lies at an address.
enum class address_part : std::uint8_t {
    code,
    constants,
    padding, ///< zeros in a kernel's mapping: up to the next kernel, or up to the end of a page
    gap,     ///< in a kernel's mapping, but in nothing that was dumped
    nothing, ///< in no kernel's mapping
};

/// "code", "constants", "padding" or "gap"; empty for nothing.
const char* name_of(address_part part);

struct address_location {
    std::uint64_t address = 0;
    address_part part = address_part::nothing;

    /// Index in the set: the kernel whose code or constants these are; of padding and gaps, the one whose
    /// code or constants end before.
    std::optional<std::size_t> kernel;

    /// From the first byte of that code or those constants; of padding and gaps too.
    std::int64_t offset = 0;

    /// The padding or the gap follows the kernel's constants, not its code.
    bool after_constants = false;
};

address_location locate_address(const kernel_set& set, std::uint64_t address);

/// "answer+0x4", ".rodata.answer+0x10", "padding, 12 bytes after the end of answer", "in no kernel".
std::string location_text(const kernel_set& set, const address_location& location);

} // namespace vorna::workbench
