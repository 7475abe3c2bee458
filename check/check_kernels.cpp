#include "check/check_kernels.hpp"

#include "check/engine.hpp"
#include "check/placement.hpp"

namespace vorna::wfta {

std::vector<kernel_finding> check_kernels(const kernel_registry_map& registry,
                                          const std::vector<kernel_data>& kernels)
{
    const placed_set placed = place_kernels(registry, kernels);
    return check_placed(
        placed.kernels,
        [&](std::size_t kernel, const std::string& name) { return placed.find(kernel, name); }, registry,
        address_kind::relative);
}

} // namespace vorna::wfta
