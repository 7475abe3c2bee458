// A block is modelled if its instructions are executed in one order only: if in each iteration of a loop
// every instruction outside its inner loops is executed once, apart from the iteration that leaves it. The
// inner loops are taken for single steps, and left out.

#include "workbench/analysis/cost.hpp"

#include "workbench/analysis/loops.hpp"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace vorna::workbench {

namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

// A block of the control-flow graph, or a loop as a whole.
struct path_step {
    bool is_loop = false;
    std::size_t index = none;
    friend bool operator==(const path_step& a, const path_step& b) = default;
};

// Where control goes from a step, without leaving the loop around it.
struct way_on {
    std::vector<path_step> steps; // different ones, at most two
    bool back = false;            // to the header of the loop around it

    void add(const path_step& step)
    {
        if (steps.size() < 2 && std::find(steps.begin(), steps.end(), step) == steps.end())
            steps.push_back(step);
    }
};

class path_finder {
public:
    explicit path_finder(const loop_nest& nest)
        : nest_(nest), from_block_(nest.blocks.size()), from_loop_(nest.loops.size()),
          own_(nest.loops.size() + 1)
    {
        for (std::size_t b = 0; b < nest.blocks.size(); ++b) {
            own_[nest.loop_of[b].value_or(nest.loops.size())].push_back(b);
            for (const std::size_t to : nest.blocks[b].after)
                add_edge(b, to);
        }
    }

    /// The blocks outside inner loops, by address. `nest.loops.size()` is what is outside all loops.
    [[nodiscard]] const std::vector<std::size_t>& own_blocks(std::size_t loop) const { return own_[loop]; }

    /// The same in the order of execution; nothing if there are several.
    [[nodiscard]] std::optional<std::vector<std::size_t>> path(std::size_t loop) const
    {
        const bool is_loop = loop < nest_.loops.size();
        std::vector<std::size_t> found;
        path_step at = first_step(loop);
        for (std::size_t steps = 0; steps <= nest_.blocks.size(); ++steps) {
            if (!at.is_loop)
                found.push_back(at.index);
            const way_on& on = at.is_loop ? from_loop_[at.index] : from_block_[at.index];
            if (on.steps.size() + (on.back ? 1 : 0) > 1)
                return std::nullopt;
            if (on.steps.empty()) {
                const bool whole = found.size() == own_[loop].size() && on.back == is_loop;
                return whole ? std::optional(found) : std::nullopt;
            }
            at = on.steps.front();
        }
        return std::nullopt;
    }

private:
    [[nodiscard]] std::size_t parent_of(std::size_t loop) const
    {
        return nest_.loops[loop].parent.value_or(none);
    }

    // The loops around a block, the innermost first.
    [[nodiscard]] std::vector<std::size_t> loops_around(std::size_t block) const
    {
        std::vector<std::size_t> found;
        for (std::size_t loop = nest_.loop_of[block].value_or(none); loop != none; loop = parent_of(loop))
            found.push_back(loop);
        return found;
    }

    void add_edge(std::size_t from, std::size_t to)
    {
        std::vector<std::size_t> around_from = loops_around(from);
        std::vector<std::size_t> around_to = loops_around(to);
        std::size_t common = none;
        while (!around_from.empty() && !around_to.empty() && around_from.back() == around_to.back()) {
            common = around_from.back();
            around_from.pop_back();
            around_to.pop_back();
        }
        way_on& on = around_from.empty() ? from_block_[from] : from_loop_[around_from.back()];
        if (common != none && around_to.empty() && nest_.loops[common].header == to)
            on.back = true;
        else
            on.add(around_to.empty() ? path_step{false, to} : path_step{true, around_to.back()});
    }

    // A header may be that of an inner loop as well only if both are one loop.
    [[nodiscard]] path_step first_step(std::size_t loop) const
    {
        if (loop < nest_.loops.size())
            return {false, nest_.loops[loop].header};
        const std::vector<std::size_t> around = loops_around(0);
        return around.empty() ? path_step{false, 0} : path_step{true, around.back()};
    }

    const loop_nest& nest_;
    std::vector<way_on> from_block_;
    std::vector<way_on> from_loop_;
    std::vector<std::vector<std::size_t>> own_;
};

void add_instructions(const loop_nest& nest, const std::vector<std::size_t>& blocks, cost_block& to)
{
    for (const std::size_t b : blocks) {
        for (std::size_t i = nest.blocks[b].begin; i < nest.blocks[b].end; ++i)
            to.instructions.push_back(i);
    }
}

// The first instruction after which control may continue in more ways than one.
std::size_t first_choice(const decoded_kernel& code, const std::vector<std::size_t>& instructions)
{
    for (const std::size_t i : instructions) {
        if (code.instructions[i].flow == control_flow::conditional)
            return i;
    }
    return instructions.front();
}

cost_block make_block(const decoded_kernel& code, const code_map& map, const loop_nest& nest,
                      const path_finder& paths, std::size_t loop)
{
    cost_block made;
    const auto path = paths.path(loop);
    add_instructions(nest, path ? *path : paths.own_blocks(loop), made);
    made.depth = loop < nest.loops.size() ? nest.loops[loop].depth : 0;
    made.offset = 4 * made.instructions.front();
    const auto call = std::find_if(made.instructions.begin(), made.instructions.end(), [&](std::size_t i) {
        return code.instructions[i].is_call() || code.instructions[i].flow == control_flow::system;
    });
    if (map.any_entry) {
        made.obstacle = cost_obstacle::entries;
    } else if (call != made.instructions.end()) {
        made.obstacle = cost_obstacle::calls;
        made.at = *call;
    } else if (!path) {
        made.obstacle = cost_obstacle::branches;
        made.at = first_choice(code, made.instructions);
    } else if (made.instructions.size() > largest_modelled_block) {
        made.obstacle = cost_obstacle::length;
    }
    return made;
}

// All code as one block of which nothing is known.
cost_block whole_kernel(const loop_nest& nest, cost_obstacle obstacle)
{
    cost_block made;
    for (const basic_block& block : nest.blocks) {
        for (std::size_t i = block.begin; i < block.end; ++i)
            made.instructions.push_back(i);
    }
    made.offset = 4 * made.instructions.front();
    made.obstacle = obstacle;
    return made;
}

// Inner loops before those that contain them, otherwise by address.
std::vector<std::size_t> loops_in_order(const loop_nest& nest)
{
    using key = std::tuple<std::size_t, std::size_t, std::size_t>; // outermost header, inwardness, header
    std::vector<std::size_t> outermost(nest.loops.size());
    std::vector<key> keys(nest.loops.size());
    for (std::size_t i = keys.size(); i-- > 0;) {
        const natural_loop& loop = nest.loops[i];
        outermost[i] = loop.parent ? outermost[*loop.parent] : loop.header;
        keys[i] = {outermost[i], deepest_nesting - loop.depth, loop.header};
    }
    std::vector<std::size_t> order(keys.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    order.push_back(nest.loops.size()); // what is outside all loops
    return order;
}

} // namespace

std::vector<cost_block> find_cost_blocks(const decoded_kernel& code, const code_map& map)
{
    const loop_nest nest = find_loops(code, map);
    if (nest.blocks.empty())
        return {};
    if (map.any_entry)
        return {whole_kernel(nest, cost_obstacle::entries)};
    for (const natural_loop& loop : nest.loops) {
        if (loop.depth > deepest_nesting)
            return {whole_kernel(nest, cost_obstacle::nesting)};
    }
    const path_finder paths(nest);
    std::vector<cost_block> found;
    std::vector<bool> has_inner(nest.loops.size() + 1);
    for (const natural_loop& loop : nest.loops)
        has_inner[loop.parent.value_or(nest.loops.size())] = true;
    for (const std::size_t loop : loops_in_order(nest)) {
        if (paths.own_blocks(loop).empty())
            continue;
        found.push_back(make_block(code, map, nest, paths, loop));
        found.back().has_inner_loops = has_inner[loop];
    }
    return found;
}

unsigned iterations_for(std::size_t instructions)
{
    constexpr std::size_t most = 100;
    constexpr std::size_t fewest = 4;
    constexpr std::size_t enough = 800; // instructions in all
    return static_cast<unsigned>(std::clamp(enough / std::max<std::size_t>(instructions, 1), fewest, most));
}

static std::vector<std::uint32_t> words_of(const decoded_kernel& code, const cost_block& block)
{
    std::vector<std::uint32_t> words;
    words.reserve(block.instructions.size());
    for (const std::size_t i : block.instructions)
        words.push_back(code.instructions[i].word);
    return words;
}

const modelled_block& block_models::of(const decoded_kernel& code, const cost_block& block)
{
    constexpr std::size_t most_words = std::size_t{1} << 22; // of all blocks that are kept
    std::vector<std::uint32_t> words = words_of(code, block);
    if (const auto found = known_.find(words); found != known_.end())
        return found->second;
    if (kept_words_ + words.size() > most_words) {
        known_.clear();
        kept_words_ = 0;
    }
    kept_words_ += words.size();
    modelled_block made;
    block_run run = model_.run(words, iterations_for(words.size()));
    made.gap = run.gap;
    made.at = run.index;
    if (run.gap == model_gap::none) {
        made.cost = std::move(run.cost);
        made.once = model_.run(words, 1).cost.total_cycles;
    }
    return known_.emplace(std::move(words), std::move(made)).first->second;
}

static std::optional<double> cycles_of(const decoded_kernel& code, const cost_block& block,
                                       block_models& models)
{
    if (block.obstacle != cost_obstacle::none)
        return std::nullopt;
    const modelled_block& modelled = models.of(code, block);
    return modelled.gap == model_gap::none ? std::optional(modelled.cost.cycles) : std::nullopt;
}

std::optional<double> cycles_of(const decoded_kernel& code, const std::vector<cost_block>& blocks,
                                block_models& models)
{
    double sum = 0;
    for (const cost_block& block : blocks) {
        const std::optional<double> cycles = cycles_of(code, block, models);
        if (!cycles)
            return std::nullopt;
        sum += *cycles;
    }
    return blocks.empty() ? std::nullopt : std::optional(sum);
}

std::optional<double> change_of_cycles(const decoded_kernel& before,
                                       const std::vector<cost_block>& blocks_before,
                                       const decoded_kernel& after,
                                       const std::vector<cost_block>& blocks_after, block_models& models)
{
    if (blocks_before.size() != blocks_after.size())
        return std::nullopt;
    double change = 0;
    for (std::size_t i = 0; i < blocks_before.size(); ++i) {
        if (blocks_before[i].depth != blocks_after[i].depth)
            return std::nullopt;
        if (words_of(before, blocks_before[i]) == words_of(after, blocks_after[i]))
            continue;
        const std::optional<double> old_cycles = cycles_of(before, blocks_before[i], models);
        const std::optional<double> new_cycles = cycles_of(after, blocks_after[i], models);
        if (!old_cycles || !new_cycles)
            return std::nullopt;
        change += *new_cycles - *old_cycles;
    }
    return change;
}

} // namespace vorna::workbench
