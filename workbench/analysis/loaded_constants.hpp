// The bytes that a kernel loads from its own constants.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// By the index of an instruction: the bytes that it loads from the kernel's own data, if the address is
/// known.
using loaded_constants = std::unordered_map<std::size_t, std::vector<std::uint8_t>>;
loaded_constants find_loaded_constants(const decoded_kernel& code);

} // namespace vorna::workbench
