// The values that a kernel loads from its own constants, as text.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <string>
#include <unordered_map>

namespace vorna::workbench {

struct described_loads {
    /// By the offset of a load with a known address in the kernel's constants, or in data in its code: this
    /// address and the values, in the type that the register is used as: ".rodata+0x10  -1.5",
    /// ".rodata  {0.0, -0.0}". For a load that walks through a table in a loop, the first values.
    std::unordered_map<std::size_t, std::string> comments;

    /// By the offset of data in the code: its value, in the type of the first load from it.
    std::unordered_map<std::size_t, std::string> data;
};

/// `code` is a kernel of the set, and `map` its code map. Without a set no addresses are known.
described_loads describe_loads(const kernel_set* set, const decoded_kernel& code, const code_map& map);

} // namespace vorna::workbench
