// The bytes that a kernel's loads get from its own constants.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// What instructions, by index, load from the kernel's own data, where it is known which part of it that is.
using loaded_constants = std::unordered_map<std::size_t, std::vector<std::uint8_t>>;
loaded_constants find_loaded_constants(const decoded_kernel& code);

} // namespace vorna::workbench
