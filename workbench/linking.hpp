// Linking: what the finaliser does with a kernel's relocations, and an image of the whole set.
#pragma once

#include "workbench/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorna::workbench {

/// What became of a relocation.
enum class relocation_outcome {
    applied,
    outside_text,   ///< its word does not lie within the kernel's code
    unhandled_type, ///< none of the kinds that the finaliser knows
    foreign_data,   ///< names the constants of another kernel
    unknown_target, ///< names a kernel that is not in the set
    field_filled,   ///< the field was not zero
    out_of_range,   ///< the field cannot hold the value
};

/// A kernel's code with its relocations applied, in their order.
struct linked_kernel {
    std::vector<std::uint8_t> text;
    std::vector<relocation_outcome> outcomes; ///< of each relocation; one that is not applied changes nothing
};
linked_kernel link_kernel(const kernel_set& set, const placed_kernel& kernel);

} // namespace vorna::workbench
