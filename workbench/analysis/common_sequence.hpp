// Longest common subsequences.
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
    bool complete = true;          ///< false if a longer one may exist
};

/// A longest common subsequence. If the sequences differ in thousands of elements that both contain, merely a
/// long one. Takes at most a few seconds and 32 MiB.
common_sequence find_common_sequence(const std::vector<std::uint32_t>& before,
                                     const std::vector<std::uint32_t>& after);

} // namespace vorna::workbench
