// What a block of instructions costs on a processor, according to LLVM's scheduling model of it. The figures
// are a model's: every load hits the first-level cache, and every branch is predicted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// A processor that LLVM knows, and whose scheduling model LLVM uses for it.
struct processor_model {
    std::string name;      ///< "cortex-a72"
    std::string model;     ///< "cortex-a57"; empty if LLVM has no model for the processor
    bool in_order = false; ///< issues instructions in program order

    [[nodiscard]] bool is_its_own() const { return name == model; }
};

/// Whether the program was built with LLVM's machine-code analyser. Without it, all other functions throw
/// std::runtime_error.
bool has_pipeline_models();

/// All processors, by name.
const std::vector<processor_model>& processor_models();

/// The processor that this program runs on; empty unless LLVM knows it as an AArch64 one.
std::string native_processor();

/// "19.1.7"
std::string llvm_version();

/// A kind of execution unit.
struct resource_use {
    std::string resource; ///< LLVM's name: "N1UnitV0"
    unsigned cycles = 0;  ///< for which the instruction occupies it, summed over the units that it takes
};

struct instruction_cost {
    unsigned uops = 0;
    int latency = 0;       ///< cycles from issue until the result is available
    double throughput = 0; ///< cycles per instruction, if only this instruction is executed, over and over
    std::vector<resource_use> resources;
};

enum class delay_reason : std::uint8_t {
    registers, ///< waits for a register
    memory,    ///< waits for a store or a load
    resource,  ///< waits for an execution unit
    completion ///< must not complete before an earlier instruction (in-order processors)
};

/// A step of the critical chain: one instruction of the block delays another, or itself in the next
/// iteration.
struct chain_link {
    std::size_t from = 0; ///< index in the block
    std::size_t to = 0;
    delay_reason reason = delay_reason::registers;
    std::string via;             ///< the register or the execution unit
    bool next_iteration = false; ///< `to` is executed an iteration after `from`
    friend bool operator==(const chain_link& a, const chain_link& b) = default;
};

/// Cycles in which instructions were held back, and why. One cycle can count for several reasons. All are 0
/// if instructions were fetched without a stall.
struct pressure_cycles {
    std::size_t any = 0;
    std::size_t resources = 0;
    std::size_t dependencies = 0;
    std::size_t registers = 0;
    std::size_t memory = 0;
    std::vector<std::pair<std::string, std::size_t>>
        by_resource; ///< in LLVM's order; out-of-order processors
};

/// A block that is executed a number of times in a row.
struct block_cost {
    std::vector<instruction_cost> instructions;
    unsigned iterations = 0;
    std::size_t uops = 0;         ///< of all iterations
    std::size_t total_cycles = 0; ///< of all iterations
    double cycles = 0;            ///< of one iteration, once the first half of them is over
    double throughput = 0;        ///< cycles per iteration, if nothing but resources limited it
    std::string busiest;          ///< the resource that sets `throughput`, or "issue width"
    pressure_cycles pressure;
    std::string limited_by;        ///< "dependencies", "resources" or the name of one resource
    std::vector<chain_link> chain; ///< what delays what, in the order of execution
};

/// Why a block cannot be modelled.
enum class model_gap : std::uint8_t {
    none,
    not_an_instruction, ///< of AArch64
    not_on_processor,   ///< an instruction that the processor does not have
    call,               ///< takes as long as what it calls
    not_in_model        ///< one that the scheduling model lacks
};

struct block_run {
    model_gap gap = model_gap::none;
    std::size_t index = 0; ///< of the instruction that cannot be modelled
    block_cost cost;       ///< empty if there is a gap
};

/// The scheduling model of one processor. Use one object in one thread at a time.
class pipeline_model {
public:
    /// Throws std::runtime_error if LLVM does not know the processor, or has no model for it.
    explicit pipeline_model(std::string_view processor);
    ~pipeline_model();
    pipeline_model(const pipeline_model&) = delete;
    pipeline_model& operator=(const pipeline_model&) = delete;

    [[nodiscard]] const processor_model& processor() const;

    /// Executes the words `iterations` times in a row, as if no branch in them were taken except the last,
    /// back to the first word. Time and memory grow with words * iterations.
    block_run run(std::span<const std::uint32_t> words, unsigned iterations);

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vorna::workbench
