#include "workbench/analysis/analyse_kernels.hpp"

#include "check/placement.hpp"
#include "workbench/analysis/instruction_findings.hpp"
#include "workbench/disasm/features.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <stdexcept>
#include <utility>

namespace vorna::wfta {

std::vector<kernel_finding> analyse_kernels(const kernel_registry_map& registry,
                                            const std::vector<kernel_data>& kernels,
                                            const analysis_options& options)
{
    if (!options.cpu.empty() && !workbench::find_processor(options.cpu))
        throw std::invalid_argument("no processor " + options.cpu);
    const placed_set placed = place_kernels(registry, kernels);
    const target_finder find = [&](std::size_t kernel, const std::string& name) {
        return placed.find(kernel, name);
    };
    std::vector<workbench::placed_kernel> copies;
    copies.reserve(kernels.size());
    for (const checked_kernel& kernel : placed.kernels)
        copies.push_back({*kernel.name, kernel.text_address, *kernel.text, kernel.data_address, *kernel.data,
                          *kernel.relocs, 0, ""});
    return workbench::with_instruction_findings(
        check_placed(placed.kernels, find, registry, address_kind::relative),
        workbench::make_kernel_set(std::move(copies)), find, options);
}

} // namespace vorna::wfta
