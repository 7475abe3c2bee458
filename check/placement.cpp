#include "check/placement.hpp"

#include <cstdint>
#include <utility>

namespace vorna::wfta {

// Assumed address of the mapping: page-aligned, and so far from null that no offset leads below it.
static constexpr std::uint64_t assumed_mapping = std::uint64_t{1} << 44;

placed_set place_kernels(const kernel_registry_map& registry, const std::vector<kernel_data>& kernels)
{
    const auto round_up_to_32 = [](std::uint64_t x) { return (x + 31) & ~std::uint64_t{31}; };
    std::uint64_t text_size = 0;
    std::uint64_t data_size = 0;
    for (const kernel_data& kernel : kernels) {
        text_size = round_up_to_32(text_size + kernel.text.size());
        data_size += kernel.data.size();
    }
    // An empty set gets no mapping, and its kernels are at null.
    const std::uint64_t mapping = text_size + data_size == 0 ? 0 : assumed_mapping;

    placed_set placed;
    placed.registry = &registry;
    placed.kernels.reserve(kernels.size());
    placed.by_name.reserve(kernels.size());
    std::uint64_t text_address = mapping;
    std::uint64_t data_address = mapping + text_size;
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        const kernel_data& kernel = kernels[i];
        std::string first_of_name;
        const auto [first, fresh] = placed.by_name.try_emplace(kernel.name, i);
        if (registry.count(kernel.name) != 0)
            first_of_name = "in the registry";
        else if (!fresh)
            first_of_name = "kernel " + std::to_string(first->second) + " of the set";
        placed.kernels.push_back({&kernel.name, &kernel.text, &kernel.data, &kernel.relocs, text_address,
                                  data_address, std::move(first_of_name)});
        text_address = mapping + round_up_to_32(text_address - mapping + kernel.text.size());
        data_address += kernel.data.size();
    }
    return placed;
}

relocation_target placed_set::find(std::size_t kernel, const std::string& name) const
{
    using where = relocation_target::where;
    const auto registered = registry->find(name);
    if (registered != registry->end())
        return {where::elsewhere, reinterpret_cast<std::uint64_t>(registered->second.text_ptr), true};
    const auto found = by_name.find(name);
    if (found == by_name.end())
        return {where::nowhere, 0};
    if (found->second > kernel)
        return {where::later, 0};
    return {where::placed, kernels[found->second].text_address};
}

} // namespace vorna::wfta
