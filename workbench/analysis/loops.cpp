// A branch to a block that dominates it closes a loop, whose header is that block. The dominators are found
// by the algorithm of Lengauer and Tarjan; all entries of the kernel are successors of one more block, the
// root.
//
// Headers are visited from the innermost on (in the opposite order of a depth-first search, which reaches the
// header of an outer loop first). The blocks of a loop are those that reach one of its branches back, going
// against control flow, without passing its header; an inner loop that is met on the way is passed as a
// whole, so each block and each loop is visited about once.

#include "workbench/analysis/loops.hpp"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

struct graph {
    std::vector<basic_block> blocks;
    std::vector<std::uint32_t> entries; // blocks
};

graph make_graph(const decoded_kernel& code, const code_map& map)
{
    graph made{find_blocks(code, map), {}};
    std::vector<bool> entered = map.entries;            // for each instruction
    for (std::size_t i = 0; i < map.uses.size(); ++i) { // functions within the kernel
        const successors calls = successors_of(code, i);
        if (map.uses[i] == word_use::code && code.instructions[i].is_call() && calls.target)
            entered[*calls.target] = true;
    }
    for (std::uint32_t b = 0; b < made.blocks.size(); ++b) {
        if (entered[made.blocks[b].begin])
            made.entries.push_back(b);
    }
    return made;
}

// Nodes are numbered in the order of a depth-first search from the root, which is node 0.
class dominator_tree {
public:
    explicit dominator_tree(const graph& of)
    {
        search(of);
        find_dominators();
        number_tree();
    }

    [[nodiscard]] std::size_t size() const { return block_.size(); }
    [[nodiscard]] std::size_t block_at(std::size_t node) const { return block_[node]; }
    [[nodiscard]] const std::vector<std::size_t>& predecessors(std::size_t node) const
    {
        return predecessors_[node];
    }
    [[nodiscard]] bool dominates(std::size_t a, std::size_t b) const
    {
        return begin_[a] <= begin_[b] && begin_[b] < end_[a];
    }

private:
    void search(const graph& of)
    {
        std::vector<std::size_t> node_of(of.blocks.size(), none);
        struct step {
            std::size_t node;
            const std::vector<std::uint32_t>* successors;
            std::size_t next;
        };
        std::vector<step> path;
        const auto visit = [&](std::size_t block, std::size_t parent,
                               const std::vector<std::uint32_t>& successors) {
            if (block != none)
                node_of[block] = block_.size();
            path.push_back({block_.size(), &successors, 0});
            block_.push_back(block);
            parent_.push_back(parent);
            predecessors_.emplace_back();
        };
        visit(none, 0, of.entries);
        while (!path.empty()) {
            step& at = path.back();
            if (at.next == at.successors->size()) {
                path.pop_back();
                continue;
            }
            const std::size_t to = (*at.successors)[at.next++];
            const std::size_t from = at.node;
            if (node_of[to] == none)
                visit(to, from, of.blocks[to].after);
            predecessors_[node_of[to]].push_back(from);
        }
    }

    // The node with the smallest semidominator on the way up to the root of its tree in the forest.
    std::size_t smallest(std::size_t node)
    {
        std::vector<std::size_t>& path = path_;
        path.clear();
        for (std::size_t at = node; forest_[forest_[at]] != none; at = forest_[at])
            path.push_back(at);
        for (; !path.empty(); path.pop_back()) {
            const std::size_t at = path.back();
            const std::size_t above = forest_[at];
            if (semi_[label_[above]] < semi_[label_[at]])
                label_[at] = label_[above];
            forest_[at] = forest_[above];
        }
        return label_[node];
    }

    void find_dominators()
    {
        const std::size_t count = size();
        forest_.assign(count, none);
        semi_.resize(count);
        label_.resize(count);
        dominator_.assign(count, 0);
        std::iota(semi_.begin(), semi_.end(), std::size_t{0});
        std::iota(label_.begin(), label_.end(), std::size_t{0});
        std::vector<std::vector<std::size_t>> with_semi(count);
        const auto evaluate = [&](std::size_t node) { return forest_[node] == none ? node : smallest(node); };
        for (std::size_t node = count; node-- > 1;) {
            for (const std::size_t from : predecessors_[node])
                semi_[node] = std::min(semi_[node], semi_[evaluate(from)]);
            with_semi[semi_[node]].push_back(node);
            forest_[node] = parent_[node];
            for (const std::size_t other : with_semi[parent_[node]]) {
                const std::size_t best = evaluate(other);
                dominator_[other] = semi_[best] < semi_[other] ? best : parent_[node];
            }
            with_semi[parent_[node]].clear();
        }
        for (std::size_t node = 1; node < count; ++node) {
            if (dominator_[node] != semi_[node])
                dominator_[node] = dominator_[dominator_[node]];
        }
    }

    // A node dominates those that are numbered between its own number and its end.
    void number_tree()
    {
        std::vector<std::size_t> below(size(), 1);
        for (std::size_t node = size(); node-- > 1;)
            below[dominator_[node]] += below[node];
        begin_.assign(size(), 0);
        end_.assign(size(), 0);
        std::vector<std::size_t> next(size(), 0);
        end_[0] = below[0];
        next[0] = 1;
        for (std::size_t node = 1; node < size(); ++node) {
            std::size_t& free = next[dominator_[node]];
            begin_[node] = free;
            free += below[node];
            end_[node] = free;
            next[node] = begin_[node] + 1;
        }
    }

    std::vector<std::size_t> block_;
    std::vector<std::size_t> parent_;
    std::vector<std::vector<std::size_t>> predecessors_;
    std::vector<std::size_t> forest_;
    std::vector<std::size_t> semi_;
    std::vector<std::size_t> label_;
    std::vector<std::size_t> dominator_;
    std::vector<std::size_t> begin_;
    std::vector<std::size_t> end_;
    std::vector<std::size_t> path_;
};

} // namespace

loop_nest find_loops(const decoded_kernel& code, const code_map& map)
{
    graph made = make_graph(code, map);
    const dominator_tree tree(made);
    std::vector<std::size_t> node_of(made.blocks.size(), none);
    for (std::size_t node = 1; node < tree.size(); ++node)
        node_of[tree.block_at(node)] = node;

    loop_nest nest;
    std::vector<std::size_t> loop_of(tree.size(), none); // the innermost one
    std::vector<std::size_t> outermost;                  // known yet, around each loop; compressed on the way
    const auto outermost_of = [&](std::size_t loop) {
        std::size_t top = loop;
        while (outermost[top] != top)
            top = outermost[top];
        while (outermost[loop] != top)
            loop = std::exchange(outermost[loop], top);
        return top;
    };
    for (std::size_t header = tree.size(); header-- > 1;) {
        std::vector<std::size_t> pending;
        for (const std::size_t from : tree.predecessors(header)) {
            if (tree.dominates(header, from))
                pending.push_back(from);
        }
        if (pending.empty())
            continue;
        const std::size_t loop = nest.loops.size();
        nest.loops.push_back({tree.block_at(header), 1, std::nullopt});
        outermost.push_back(loop);
        while (!pending.empty()) {
            std::size_t at = pending.back();
            pending.pop_back();
            if (loop_of[at] == none) {
                loop_of[at] = loop;
            } else {
                const std::size_t inner = outermost_of(loop_of[at]);
                if (inner == loop)
                    continue;
                nest.loops[inner].parent = loop;
                outermost[inner] = loop;
                at = node_of[nest.loops[inner].header];
            }
            if (at == header)
                continue;
            for (const std::size_t from : tree.predecessors(at)) {
                if (from != 0)
                    pending.push_back(from);
            }
        }
        if (loop_of[header] == none)
            loop_of[header] = loop;
    }
    for (std::size_t loop = nest.loops.size(); loop-- > 0;) {
        if (nest.loops[loop].parent)
            nest.loops[loop].depth = nest.loops[*nest.loops[loop].parent].depth + 1;
    }
    nest.loop_of.resize(made.blocks.size());
    for (std::size_t node = 1; node < tree.size(); ++node) {
        if (loop_of[node] != none)
            nest.loop_of[tree.block_at(node)] = loop_of[node];
    }
    nest.blocks = std::move(made.blocks);
    return nest;
}

} // namespace vorna::workbench
