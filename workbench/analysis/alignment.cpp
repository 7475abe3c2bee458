#include "workbench/analysis/alignment.hpp"

#include <algorithm>
#include <dtl/dtl.hpp>
#include <unordered_set>

namespace vorna::workbench {

using elements = std::vector<std::uint32_t>;

static constexpr std::size_t longest_searched = 100'000;

namespace {

// Elements that are to be searched, with where they were.
struct candidates {
    elements values;
    std::vector<std::size_t> indices;
};

// Those of [begin, end) that are among `others`: no other can have a partner, and without them sequences that
// have little in common are short.
candidates select(const elements& sequence, std::size_t begin, std::size_t end,
                  const std::unordered_set<std::uint32_t>& others)
{
    candidates selected;
    for (std::size_t i = begin; i < end; ++i) {
        if (others.count(sequence[i]) != 0) {
            selected.values.push_back(sequence[i]);
            selected.indices.push_back(i);
        }
    }
    return selected;
}

} // namespace

common_sequence find_common_sequence(const elements& before, const elements& after)
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
    const auto at = [](const elements& sequence, std::size_t index) {
        return sequence.begin() + static_cast<std::ptrdiff_t>(index);
    };
    const candidates old_side = select(before, head, before_end, {at(after, head), at(after, after_end)});
    const candidates new_side = select(after, head, after_end, {at(before, head), at(before, before_end)});
    if (std::max(old_side.values.size(), new_side.values.size()) > longest_searched) {
        common.complete = false;
    } else if (!old_side.values.empty() && !new_side.values.empty()) {
        dtl::Diff<std::uint32_t, elements> diff(old_side.values, new_side.values);
        diff.compose();
        for (const auto& [value, edit] : diff.getSes().getSequence()) {
            if (edit.type == dtl::SES_COMMON) { // its indices count from 1
                common.pairs.push_back({old_side.indices[static_cast<std::size_t>(edit.beforeIdx) - 1],
                                        new_side.indices[static_cast<std::size_t>(edit.afterIdx) - 1]});
            }
        }
    }

    for (std::size_t i = 0; i < tail; ++i)
        common.pairs.push_back({before_end + i, after_end + i});
    return common;
}

} // namespace vorna::workbench
