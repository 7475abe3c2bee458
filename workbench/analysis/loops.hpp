// The natural loops of a kernel.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"

#include <cstddef>
#include <optional>
#include <vector>

namespace vorna::workbench {

struct natural_loop {
    std::size_t header = 0; ///< index of the block that all iterations begin with
    std::size_t depth = 1;  ///< 1 for an outermost loop
    std::optional<std::size_t> parent;
};

/// The control-flow graph of the code that direct branches reach from the kernel's entries.
struct loop_nest {
    std::vector<basic_block> blocks;                 ///< in the order of their addresses
    std::vector<natural_loop> loops;                 ///< an inner loop before the one that contains it
    std::vector<std::optional<std::size_t>> loop_of; ///< for each block, the innermost that contains it
};

loop_nest find_loops(const decoded_kernel& code, const code_map& map);

} // namespace vorna::workbench
