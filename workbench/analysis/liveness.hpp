// Which registers hold a value that the kernel may still use.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// The argument registers that a call of another kernel, or a branch to one, reads; nothing if that is not
/// known. The argument is the number of the instruction's relocation.
using callee_reads = std::function<std::optional<register_set>(std::size_t relocation)>;

/// The live registers before each instruction; none for words that are not code, or if the kernel has more
/// than `most_followed_blocks` blocks.
///
/// A call, and a branch to another kernel, uses what the callee reads. Where that is not known, it is taken
/// to be those of X0 to X8 and V0 to V7 that the kernel has set since the call before it. A return uses X0
/// and V0 if the kernel has set them. Writeback of a base register does not count as setting it. Saving a
/// register is a use like any other.
std::vector<register_set> find_live_registers(const decoded_kernel& code, const code_map& map,
                                              const callee_reads& reads = {});

/// Which argument registers the kernels of a set read. Found when first asked for, so that it costs nothing
/// for kernels that are not called.
class argument_reads {
public:
    explicit argument_reads(const kernel_set& set) : set_(set) {}

    /// What the callees of a kernel read. Keeps a reference to this object and to the kernel.
    [[nodiscard]] callee_reads by_calls_in(const placed_kernel& caller);

private:
    std::optional<register_set> of(std::size_t kernel);

    const kernel_set& set_;
    std::unordered_map<std::size_t, std::optional<register_set>> found_; // nothing while being found
    unsigned depth_ = 0;
};

/// The registers whose value an instruction depends on: its uses, without a register that it only clears (EOR
/// X0, X1, X1).
register_set values_used(const decoded_kernel& code, const instruction& instruction);

} // namespace vorna::workbench
