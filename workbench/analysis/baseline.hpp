// Compares kernels with a baseline: their fingerprints as last accepted.
#pragma once

#include "workbench/input/baseline_file.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// XXH3 of 128 bits, in 32 hexadecimal digits.
std::string hash_of(std::string_view bytes);

kernel_fingerprint fingerprint_of(const placed_kernel& kernel);

enum class baseline_status { same, changed, added, removed };

/// The status as commands print it: "same", "changed", "added", "removed".
std::string_view name_of(baseline_status status);

struct baseline_difference {
    std::string name;
    baseline_status status = baseline_status::same;
    std::optional<kernel_fingerprint> before; ///< of the baseline
    std::optional<kernel_fingerprint> after;  ///< of the dumps
    std::size_t line = 0; ///< in the baseline; for an added kernel the one that it would precede, or the last
    std::size_t kernel = 0; ///< index in the set; meaningless for a removed kernel

    [[nodiscard]] bool code_changed() const;
    [[nodiscard]] bool relocations_changed() const;
    [[nodiscard]] bool constants_changed() const;
};

/// Every kernel of either, sorted by name. Throws std::runtime_error if two kernels of the set have the same
/// name and differ.
std::vector<baseline_difference> compare_with_baseline(const baseline& entries, const kernel_set& set);

} // namespace vorna::workbench
