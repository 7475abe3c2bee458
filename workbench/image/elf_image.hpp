// The image of a linked set, for debuggers, disassemblers and profilers.
#pragma once

#include "workbench/kernels/linking.hpp"

#include <string>

namespace vorna::workbench {

/// An executable ELF image (ET_EXEC) of the kernels at their addresses: a load segment for each mapping, from
/// its first page to its last byte; in it a section for each kernel's code (".text.NAME") and for its
/// constants (".rodata.NAME") if it has any; symbols as in the dumps, with sizes; a note with the build ID.
struct linked_image {
    std::string bytes;
    std::string build_id; ///< 16 hexadecimal digits, a hash of everything else in the image
};

/// Throws std::runtime_error with the reason if the image cannot be made: kernels that are too far apart, or
/// no memory.
linked_image make_image(const kernel_set& set, const linked_set& linked);

} // namespace vorna::workbench
