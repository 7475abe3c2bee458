// Follows what registers and the own stack frame of a kernel hold, from its entry to its returns.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/register_part.hpp"
#include "workbench/disasm/decoded_kernel.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace vorna::workbench {

/// What a call does to registers. Memory aside, it does nothing else: SP is the same after it.
struct call_effect {
    part_set reads;       ///< uses the value
    part_set changes;     ///< leaves another value
    part_set sets;        ///< of `changes`: with a value that the caller may use
    part_set may_read;    ///< may use the value, which is lost where ways join
    bool followed = true; ///< this is all
    bool returns = true;
    bool stores_in_callers_frame = false;
};

/// Something that an instruction does, and that is worth reporting.
enum class flow_event : std::uint8_t {
    reads_unset,   ///< uses `part`, which nothing has set
    loads_unset,   ///< loads from the own frame what nothing stored
    exports_saved, ///< stores the caller's value of `part`, a callee-saved register, outside the own frame
    writes_platform_register,
    passes_saved, ///< calls with the caller's value of `part`, a callee-saved register, in an argument
                  ///< register
    stores_below_sp,
    loads_below_sp,
    unaligned_sp,      ///< accesses memory through SP, which is not a multiple of 16
    unaligned_sp_call, ///< calls, and SP is not a multiple of 16
    saves,             ///< stores the caller's value of `part` in the own frame
    unfollowed         ///< something that is not known
};

/// Why something was not followed.
enum class unfollowed_reason : std::uint8_t {
    none,
    unknown_word,    ///< not an instruction that LLVM knows
    unknown_effects, ///< an instruction with effects that LLVM's tables lack
    relocation,      ///< several relocations, or one for another instruction
    jump,            ///< to an address in a register
    outside,         ///< a branch out of the code, without a relocation
    other_branch,    ///< an exception return or the like
    local_call,      ///< a call of the own code that cannot be followed
    callee,          ///< a call of a kernel that was not followed
    frame_store,     ///< a store to the own frame, at an unknown address
    escaped_store,   ///< a store or a call that may write to the own frame, whose address was passed on
    sp,              ///< SP is not known at a return
    restores_from_elsewhere, ///< a callee-saved register comes from memory other than the own frame
    too_large,               ///< too many blocks, or too many different values
};

/// One way on from a conditional branch.
struct branch_way {
    std::size_t index = 0; ///< of the branch
    bool taken = false;
};

struct flow_fact {
    flow_event event{};
    std::size_t index = 0; ///< of the instruction
    register_part part = 0;
    bool certain = true; ///< on every way that leads there; otherwise on `way`, if known
    std::optional<branch_way> way;
    std::optional<std::size_t> changed;  ///< the instruction that set the part before, or the call
    std::optional<register_part> source; ///< whose value at entry it has, perhaps plus a constant, if another
    bool everywhere = true;              ///< on every way, but perhaps without consequences
    bool whole = true;                   ///< all of what is read; otherwise some bytes
    std::int64_t offset = 0;             ///< for frame accesses: bytes from SP at entry
    std::int64_t size = 0;
    unfollowed_reason reason = unfollowed_reason::none;
};

/// A part that has another value at a return than at entry.
struct changed_part {
    register_part part = 0;
    std::size_t changed = 0;                ///< the first instruction that did so
    std::size_t last = 0;                   ///< the last that did
    std::optional<std::size_t> loaded;      ///< a later load from the own frame, which did not restore it
    bool scalable = false;                  ///< the rest of Z, and it may not be 0
    bool known = true;                      ///< certainly changed, at least on one way
    std::optional<branch_way> way;          ///< if not on every way
    std::optional<std::int64_t> difference; ///< from the value at entry, if known and the same on every way
};

/// A return, or a branch to another kernel.
struct flow_exit {
    std::size_t index = 0;
    bool tail_call = false;
    bool local = false;                ///< from a subroutine of the kernel's own
    bool returns_elsewhere = false;    ///< not to the address in X30 at entry
    register_id link = link_register;  ///< the register with the address
    std::vector<changed_part> changed; ///< by part; SP and X30 too
};

struct kernel_flow {
    std::vector<flow_fact> facts; ///< by block
    std::vector<flow_exit> exits;
    part_set reads; ///< values at entry that it uses, other than to save them
    bool reads_stack_arguments = false;
    bool returns_elsewhere = false;        ///< a RET goes to the kernel's own code
    std::optional<std::int64_t> stack = 0; ///< bytes below SP at entry; nothing if unknown
    std::size_t spill_stores = 0;
    std::size_t spill_loads = 0;
    bool followed = true;
    call_effect effect; ///< of a call of this code
};

struct flow_options {
    /// The same kernel, if its plain words are not decoded yet: decodes those that the ways lead to.
    decoded_kernel* to_decode = nullptr;

    /// Whether it is called by a convention of its own: then all registers are given.
    bool all_given = false;

    /// The effect of calling another kernel, by the number of the relocation of the BL or B; null for the
    /// AAPCS64's.
    std::function<const call_effect*(std::size_t relocation)> effect_of;
};

kernel_flow follow_kernel(const decoded_kernel& code, const code_map& map, const flow_options& options = {});

} // namespace vorna::workbench
