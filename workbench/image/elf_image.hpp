// The image of a linked set, for debuggers, disassemblers and profilers.
#pragma once

#include "workbench/kernels/linking.hpp"

#include <string>

namespace vorna::workbench {

/// An executable ELF image (ET_EXEC) of the kernels at their addresses. It has a load segment for each
/// mapping, a section for each kernel's code (".text.NAME") and for its constants (".rodata.NAME") if it has
/// any, symbols with sizes as in the dumps, and a build-ID note.
struct linked_image {
    std::string bytes;
    std::string build_id; ///< 16 hexadecimal digits: a hash of the rest of the image
};

/// Throws std::runtime_error with the reason if the image cannot be made: the kernels are too far apart, or
/// memory is exhausted.
linked_image make_image(const kernel_set& set, const linked_set& linked);

} // namespace vorna::workbench
