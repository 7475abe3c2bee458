// Where finalise_kernels would place a set, as far as that is known in advance.
#pragma once

#include "check/engine.hpp"
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorna::wfta {

/// A set of kernels at an assumed address: exact relative to each other and to their pages. Refers to the
/// registry and the kernels that it was made from.
struct placed_set {
    const kernel_registry_map* registry = nullptr;
    std::vector<checked_kernel> kernels;
    std::unordered_map<std::string_view, std::size_t> by_name; ///< the first of each name

    /// The target of a relocation of kernel number `kernel`, unless it is that kernel's own name.
    [[nodiscard]] relocation_target find(std::size_t kernel, const std::string& name) const;
};

/// Places the kernels as finalise_kernels(registry, kernels) would.
placed_set place_kernels(const kernel_registry_map& registry, const std::vector<kernel_data>& kernels);

} // namespace vorna::wfta
