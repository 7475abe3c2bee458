// What the blocks of a kernel cost on a processor, according to LLVM's model of it.
#pragma once

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/disasm/pipeline_model.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// Why nothing can be said of a block on any processor.
enum class cost_obstacle : std::uint8_t {
    none,
    calls,    ///< it calls another function
    branches, ///< its instructions are not always executed in the same order
    entries,  ///< an indirect branch may enter the kernel anywhere: there may be loops that nobody sees
    nesting,  ///< loops in more loops than `deepest_nesting`
    length    ///< more instructions than `largest_modelled_block`
};

inline constexpr std::size_t deepest_nesting = 64;
inline constexpr std::size_t largest_modelled_block = 16384;

/// The instructions of a loop, without those of the loops in it; or the instructions outside all loops.
struct cost_block {
    std::size_t offset = 0; ///< of the first instruction in the order of execution
    std::size_t depth = 0;  ///< of the loop: 1 for an outermost one; 0 for code outside loops
    bool has_inner_loops = false;
    std::vector<std::size_t> instructions; ///< indices, in the order of execution, or of their addresses
    cost_obstacle obstacle = cost_obstacle::none;
    std::size_t at = 0; ///< index of the instruction that is the obstacle: a call, a branch
};

/// Inner loops before those that contain them, and what is outside all loops at the end.
std::vector<cost_block> find_cost_blocks(const decoded_kernel& code, const code_map& map);

/// A block on one processor.
struct modelled_block {
    model_gap gap = model_gap::none;
    std::size_t at = 0;   ///< index in the block of the instruction that cannot be modelled
    block_cost cost;      ///< executed over and over
    std::size_t once = 0; ///< cycles for executing it a single time
};

/// How often a block of that many instructions is executed in a row. Fewer times for large ones: a few
/// hundred instructions are enough to fill the buffers of a processor.
unsigned iterations_for(std::size_t instructions);

/// Models blocks, equal ones once only.
class block_models {
public:
    explicit block_models(std::string_view processor) : model_(processor) {}

    [[nodiscard]] const processor_model& processor() const { return model_.processor(); }
    /// The result stays valid until the next call. The block has no obstacle.
    const modelled_block& of(const decoded_kernel& code, const cost_block& block);

private:
    pipeline_model model_;
    std::map<std::vector<std::uint32_t>, modelled_block> known_;
    std::size_t kept_words_ = 0;
};

/// One for each processor.
using model_list = std::vector<std::unique_ptr<block_models>>;

/// How many cycles a kernel takes: the sum over its blocks, with one iteration of each loop. Nothing if there
/// is a block that cannot be modelled, or none.
std::optional<double> cycles_of(const decoded_kernel& code, const std::vector<cost_block>& blocks,
                                block_models& models);

/// By how many cycles a kernel got slower: the sum over its blocks, with one iteration of each loop. Nothing
/// if a block has appeared, disappeared or changed that cannot be modelled.
std::optional<double> change_of_cycles(const decoded_kernel& before,
                                       const std::vector<cost_block>& blocks_before,
                                       const decoded_kernel& after,
                                       const std::vector<cost_block>& blocks_after, block_models& models);

} // namespace vorna::workbench
