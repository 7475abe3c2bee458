// What a block costs, in words and in JSON.
#pragma once

#include "workbench/analysis/cost.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/kernel_set.hpp"
#include "workbench/render/json.hpp"
#include "workbench/render/table.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// "cortex-a55", "cortex-a72 (model of cortex-a57)".
std::string processor_text(const processor_model& processor);

/// "loop +0x30", "loop +0x30, depth 2", "outside loops", "all".
std::string block_text(const cost_block& block);

/// "12", "0.5": rounded to two decimal places.
std::string cycles_text(double cycles);
/// "12 cycles", "1 cycle".
std::string count_cycles(double cycles);

/// Why the block cannot be modelled; empty if it has no obstacle. "calls wfta_short_9 at +0x5c".
std::string obstacle_text(const placed_kernel& kernel, const decoded_kernel& code, const cost_block& block);

/// Why the processor's model does not cover the block; empty if it does.
std::string gap_text(const placed_kernel& kernel, const cost_block& block, const modelled_block& modelled,
                     disassembler& disassembler);

/// "9 above the bound: ldr +0x30 > fmul +0x38 > fadd +0x3c".
std::string chain_text(const placed_kernel& kernel, const cost_block& block, const block_cost& cost,
                       disassembler& disassembler);

/// "dependencies, 9 above the bound: ldr +0x30 > fmul +0x38 > fadd +0x3c".
std::string limit_text(const placed_kernel& kernel, const cost_block& block, const block_cost& cost,
                       disassembler& disassembler);

/// The instructions of the chain, as indices in the block, without repetitions in a row.
std::vector<std::size_t> chain_instructions(const block_cost& cost);

/// The blocks on each processor, as `cost` has them in JSON.
json blocks_json(const placed_kernel& kernel, const decoded_kernel& code,
                 const std::vector<cost_block>& blocks, const model_list& models, disassembler& disassembler);

/// The blocks on each processor, for a listing that marks the chains. A block with an obstacle has one row.
table cost_table(const placed_kernel& kernel, const decoded_kernel& code,
                 const std::vector<cost_block>& blocks, const model_list& models, disassembler& disassembler);

/// The latency of an instruction, and whether the critical chain of its block goes through it.
struct instruction_latency {
    int cycles = 0;
    bool critical = false;
    std::string waits; ///< for what: "waits for w6 of +0x28"; empty at the chain's begin
};

/// For each instruction of a modelled block.
std::vector<instruction_latency> latencies_of(const cost_block& block, const block_cost& cost);

/// For each instruction of the kernel, as far as it is modelled.
std::vector<std::optional<instruction_latency>>
latencies_of(const decoded_kernel& code, const std::vector<cost_block>& blocks, block_models& model);

/// "N1UnitV0" without what the names of all units of the processor begin with: "V0".
std::string unit_name(const std::string& resource);

/// "estimated by LLVM 19.1.7's scheduling models, ..."
std::string cost_disclaimer();

} // namespace vorna::workbench
