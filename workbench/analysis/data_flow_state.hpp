// What the data flow knows before an instruction, and what it needs to go on from there.
#pragma once

#include "workbench/analysis/data_flow.hpp"
#include "workbench/analysis/data_flow_frame.hpp"
#include "workbench/analysis/data_flow_values.hpp"

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace vorna::workbench::flow {

struct flow_state {
    std::array<value, part_count> parts;
    stack_frame frame;
    bool saved_elsewhere = false; // initial values of callee-saved registers are in other memory
};

struct flow_block : basic_block {
    std::unique_ptr<flow_state> in; // null if no way leads here
};

// A subroutine of the kernel's own code.
struct local_function {
    call_effect effect;
    std::optional<int64_t> stack;
};

// What the functions of a kernel have in common.
struct kernel_context {
    const decoded_kernel& code;
    const code_map& map;
    const flow_options& options;
    std::vector<basic_block> blocks = {};
    std::vector<uint32_t> block_at = {}; // for each word, the block that it begins
    std::optional<bool> uses_scalable = {};
    std::unordered_map<size_t, std::unique_ptr<local_function>> local_functions =
        {}; // null while being found
    std::vector<flow_fact> local_facts = {};
    std::vector<flow_exit> local_exits = {};
};

// A register that a load or store transfers.
struct transferred_register {
    register_id number;
    int64_t bytes;
};

// One function, the kernel or a subroutine in it, while it is followed.
struct function_context {
    kernel_context& kernel;
    const decoded_kernel& code;     // of the kernel
    std::vector<flow_block> blocks; // in reverse postorder
    bool all_given = false;
    unsigned depth = 0;
    part_set reads = {};    // also found before the states are final, when fewer ways have joined
    part_set may_read = {}; // the same where the value was joined from it
    part_set changes = {};
    part_set unset = {};
    aligned_bases aligned = {};
    unsigned way_searches = 0;

    flow_state state = {};          // before or after the current instruction
    size_t block = 0;               // the current one
    size_t index = 0;               // of the current instruction
    std::optional<bool> taken = {}; // the conditional branch at the end of the block, if this is known
    kernel_flow* result = nullptr;  // null while the states are being found

    bool report_loads = true; // otherwise, what was not stored is counted and marked
    unsigned absent_loads = 0;
    std::vector<transferred_register> transferred = {}; // here to be allocated once
    std::vector<std::array<value, 2>> loaded = {};
};

inline uint8_t missing_of(const function_context& f, const value& v)
{
    return missing_of(v, f.all_given);
}

// Solver.

/// Follows one function. Its subroutines' facts and exits go to the kernel's.
kernel_flow follow_function(kernel_context& kernel, size_t entry, bool all_given, unsigned depth);

/// The transfer function of the current block. Returns whether control continues after it.
bool transfer_block(function_context& f, const flow_state& in);

/// Whether control may continue at a block that follows the current one, after transfer_block.
bool may_continue_at(const function_context& f, uint32_t next);

// Facts. While the states are being found, none are recorded.

flow_fact* add_fact(function_context& f, flow_event event, register_part part = 0);
void note(function_context& f, unfollowed_reason reason);

/// The end of a way. Always returns false.
bool stop(function_context& f, unfollowed_reason reason);

// Ways.

/// The branch by which a way begins on which the current state is bad. `badness` says of the state at the end
/// of f.block, from where control continues at `next`: 0 not, 1 perhaps, 2 surely.
std::optional<branch_way> find_way(function_context& f,
                                   const std::function<int(const flow_state&, uint32_t next)>& badness);
/// The branch by which a part comes to be changed, if on some ways only.
std::optional<branch_way> way_of_change(function_context& f, register_part part);
std::optional<branch_way> way_of_sp(function_context& f, const value& sp);

} // namespace vorna::workbench::flow
