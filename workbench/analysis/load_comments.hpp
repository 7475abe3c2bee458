// The values that a kernel's loads get from its own constants, as text.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <string>
#include <unordered_map>

namespace vorna::workbench {

struct described_loads {
    /// By the offset of a load from the kernel's own constants, or from words of its code that are data,
    /// whose address is known: where it reads, and the values, as the register is used: ".rodata+0x10  -1.5",
    /// ".rodata  {0.0, -0.0}". Of a load that walks through a table in a loop the first values.
    std::unordered_map<std::size_t, std::string> comments;

    /// By the offset of data in the code: its value, as the first load takes it.
    std::unordered_map<std::size_t, std::string> data;
};

/// `map` is that of the code, which is of a kernel of the set; without a set no addresses are known.
described_loads describe_loads(const kernel_set* set, const decoded_kernel& code, const code_map& map);

} // namespace vorna::workbench
