// What two sequences have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vorna::workbench {

/// Equal elements of two sequences, by index.
struct index_pair {
    std::size_t before;
    std::size_t after;
};

struct common_sequence {
    std::vector<index_pair> pairs; ///< ascending in both members
    bool complete = true;          ///< false if the sequences were too long to be searched for more
};

/// A longest common subsequence of the two. What is neither at their equal beginnings nor at their equal ends
/// is searched only while it is at most 100,000 elements on either side that the other side has too; time and
/// memory stay within what that takes, some seconds and some hundred MiB at the worst.
common_sequence find_common_sequence(const std::vector<std::uint32_t>& before,
                                     const std::vector<std::uint32_t>& after);

} // namespace vorna::workbench
