// What a kernel needs of its caller and does to it.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/liveness.hpp"
#include "workbench/disasm/decoded_kernel.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// The most registers that are live at one time, and the offset of the first instruction before which they
/// are.
struct live_peak {
    unsigned most = 0;
    std::size_t offset = 0;
};

/// A register of the caller's that the kernel saves.
struct saved_register {
    std::string name;
    std::int64_t slot = 0;  ///< where, in bytes from SP at entry
    std::size_t offset = 0; ///< of the instruction that saves it
};

/// Register names are "x0", "d8" (the low half of V8), "v8", "z8", "p4", "sp", "nzcv", "ffr", "fpcr"; in
/// `writes`, "v8.d[1]" if only the upper half of V8 is changed. "sp" in `reads`: arguments on the stack.
struct kernel_interface {
    std::vector<std::string> reads;  ///< whose value at entry it uses other than to save it
    bool reads_constants = false;    ///< its own
    std::vector<std::string> writes; ///< that it leaves changed, other than by calls
    std::vector<saved_register> saves;
    std::vector<std::string> calls;    ///< kernels, and registers for calls through them, each once
    std::optional<std::int64_t> stack; ///< bytes below SP at entry; nothing if unknown
    std::vector<std::string> needs;    ///< features of the processor, by LLVM's names
    live_peak general;
    live_peak vector;
    live_peak predicate;
    std::size_t spill_stores = 0;   ///< to the kernel's own stack frame
    std::size_t spill_loads = 0;    ///< from it
    bool returns_elsewhere = false; ///< may return otherwise than by X30
    bool followed = true;           ///< all of it was followed; otherwise it may do more than is said here
};

/// `reads` says what is known of its callees, see find_live_registers.
kernel_interface interface_of(const decoded_kernel& code, const code_map& map,
                              const callee_reads& reads = {});

/// Their names, in the order of their numbers: "x0", "sp", "v0", "p0", "ffr", "nzcv".
std::vector<std::string> names_of(const register_set& set);

} // namespace vorna::workbench
