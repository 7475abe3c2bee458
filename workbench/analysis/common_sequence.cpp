// Myers' greedy algorithm ("An O(ND) Difference Algorithm and Its Variations", 1986): for each number of
// edits it stores the furthest point that can be reached on every diagonal, and then traces a path back from
// the end. The common prefix and suffix are removed first, as are elements that the other sequence lacks.
//
// Sequences that differ too much are searched in pieces: when a piece reaches its limit of edits, the search
// restarts from the furthest point that it has reached. This bounds time and memory, but the result may then
// not be a longest subsequence.

#include "workbench/analysis/common_sequence.hpp"

#include <algorithm>
#include <unordered_set>

namespace vorna::workbench {

namespace {

// The limit of edits for one piece. There are at most length / limit pieces, and each takes limit * limit
// steps, so that all together take a few hundred million.
std::size_t edits_of_a_piece(std::size_t length)
{
    constexpr std::size_t steps = std::size_t{1} << 28;
    constexpr std::size_t fewest = 256;
    constexpr std::size_t most = 4096; // a trace of 32 MiB
    return std::clamp(steps / length, fewest, most);
}

// The elements to be searched, with their indices in the whole sequence.
struct candidates {
    std::vector<std::uint32_t> values;
    std::vector<std::size_t> indices;
};

// The elements of [begin, end) that occur in `others`.
candidates select(const std::vector<std::uint32_t>& sequence, std::size_t begin, std::size_t end,
                  const std::unordered_set<std::uint32_t>& others)
{
    candidates selected;
    for (std::size_t i = begin; i < end; ++i) {
        if (others.contains(sequence[i])) {
            selected.values.push_back(sequence[i]);
            selected.indices.push_back(i);
        }
    }
    return selected;
}

// A search that starts at a point (x elements of `before`, y of `after`); other points are relative to it.
// d edits reach every other diagonal x - y from -d to d. The furthest x on each of them make up row d of the
// trace, which begins at d * (d + 1) / 2.
class piece {
public:
    piece(const std::uint32_t* before, std::size_t before_size, const std::uint32_t* after,
          std::size_t after_size, std::size_t most_edits)
        : before_(before), after_(after), before_size_(before_size), after_size_(after_size),
          most_edits_(most_edits)
    {
    }

    // Appends the pairs up to the point that the search reaches, and returns this point: the end of both
    // sequences, unless that takes too many edits.
    index_pair search(std::vector<index_pair>& pairs)
    {
        for (std::size_t d = 0; d <= most_edits_; ++d) {
            for (std::size_t i = 0; i <= d; ++i) {
                const std::size_t x = follow(start(d, i), d, i);
                trace_.push_back(static_cast<std::uint32_t>(x));
                if (x == before_size_ && y_of(x, d, i) == after_size_)
                    return trace_back(d, i, pairs);
            }
        }
        std::size_t best = 0;
        const auto progress = [&](std::size_t i) {
            const std::size_t x = at(most_edits_, i);
            const std::size_t y = y_of(x, most_edits_, i);
            return x <= before_size_ && y <= after_size_ ? x + y : 0; // others lie outside the sequences
        };
        for (std::size_t i = 1; i <= most_edits_; ++i) {
            if (progress(i) > progress(best))
                best = i;
        }
        return trace_back(most_edits_, best, pairs);
    }

private:
    [[nodiscard]] std::size_t at(std::size_t d, std::size_t i) const { return trace_[d * (d + 1) / 2 + i]; }
    static std::size_t y_of(std::size_t x, std::size_t d, std::size_t i) { return x + d - 2 * i; }

    // Whether the last edit before the point is an insertion (from the diagonal above) or a deletion.
    [[nodiscard]] bool inserts(std::size_t d, std::size_t i) const
    {
        return i == 0 || (i != d && at(d - 1, i - 1) < at(d - 1, i));
    }

    // The x after that edit, before the equal elements that follow.
    [[nodiscard]] std::size_t start(std::size_t d, std::size_t i) const
    {
        return d == 0 ? 0 : inserts(d, i) ? at(d - 1, i) : at(d - 1, i - 1) + 1;
    }

    [[nodiscard]] std::size_t follow(std::size_t x, std::size_t d, std::size_t i) const
    {
        while (x < before_size_ && y_of(x, d, i) < after_size_ && before_[x] == after_[y_of(x, d, i)])
            ++x;
        return x;
    }

    index_pair trace_back(std::size_t d, std::size_t i, std::vector<index_pair>& pairs) const
    {
        const index_pair end = {at(d, i), y_of(at(d, i), d, i)};
        const auto first = static_cast<std::ptrdiff_t>(pairs.size());
        for (;; --d) {
            for (std::size_t x = at(d, i); x > start(d, i); --x)
                pairs.push_back({x - 1, y_of(x - 1, d, i)});
            if (d == 0)
                break;
            i -= inserts(d, i) ? 0 : 1;
        }
        std::reverse(pairs.begin() + first, pairs.end());
        return end;
    }

    const std::uint32_t* before_;
    const std::uint32_t* after_;
    std::size_t before_size_;
    std::size_t after_size_;
    std::size_t most_edits_;
    std::vector<std::uint32_t> trace_;
};

} // namespace

common_sequence find_common_sequence(const std::vector<std::uint32_t>& before,
                                     const std::vector<std::uint32_t>& after)
{
    common_sequence common;
    const std::size_t shorter = std::min(before.size(), after.size());
    std::size_t head = 0;
    while (head < shorter && before[head] == after[head])
        ++head;
    std::size_t tail = 0;
    while (tail < shorter - head && before[before.size() - 1 - tail] == after[after.size() - 1 - tail])
        ++tail;
    for (std::size_t i = 0; i < head; ++i)
        common.pairs.push_back({i, i});

    const std::size_t before_end = before.size() - tail;
    const std::size_t after_end = after.size() - tail;
    const auto at = [](const std::vector<std::uint32_t>& sequence, std::size_t index) {
        return sequence.begin() + static_cast<std::ptrdiff_t>(index);
    };
    const candidates old_side = select(before, head, before_end, {at(after, head), at(after, after_end)});
    const candidates new_side = select(after, head, after_end, {at(before, head), at(before, before_end)});
    const std::size_t old_size = old_side.values.size();
    const std::size_t new_size = new_side.values.size();
    const std::size_t most_edits = edits_of_a_piece(std::max<std::size_t>(1, old_size + new_size));
    for (index_pair from = {0, 0}; from.before < old_size && from.after < new_size;) {
        std::vector<index_pair> pairs;
        const index_pair end = piece(old_side.values.data() + from.before, old_size - from.before,
                                     new_side.values.data() + from.after, new_size - from.after, most_edits)
                                   .search(pairs);
        for (const index_pair& pair : pairs)
            common.pairs.push_back(
                {old_side.indices[from.before + pair.before], new_side.indices[from.after + pair.after]});
        from = {from.before + end.before, from.after + end.after};
        common.complete = common.complete && from.before == old_size && from.after == new_size;
    }

    for (std::size_t i = 0; i < tail; ++i)
        common.pairs.push_back({before_end + i, after_end + i});
    return common;
}

} // namespace vorna::workbench
