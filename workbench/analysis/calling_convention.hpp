// The base procedure call standard of the AAPCS64: which registers a kernel is given, and which a call
// preserves.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

namespace vorna::workbench {

/// X0 to X8, V0 to V7, X29, X30 and SP.
const register_set& given_registers();

/// X19 to X29, SP and V8 to V15, of which only the low 64 bits are preserved.
const register_set& preserved_registers();

/// The registers that may hold arguments and results: X0 to X8, V0 to V7.
const register_set& argument_registers();

} // namespace vorna::workbench
