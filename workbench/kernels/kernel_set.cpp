#include "workbench/kernels/kernel_set.hpp"

#include "check/nearest_name.hpp"

#include <algorithm>
#include <tuple>
#include <utility>

namespace vorna::workbench {

static constexpr std::uint64_t page_size = 4096; // the smallest page size of AArch64

// All code of a mapping precedes all of its data. So a kernel whose code starts after another kernel's data
// starts a new mapping.
static bool continues_mapping(const kernel_mapping& mapping, const kernel_extent& kernel)
{
    return kernel.text_address < mapping.data_begin ||
           (kernel.text_size == 0 && kernel.text_address == mapping.data_begin);
}

bool lies_before(const kernel_extent& a, const kernel_extent& b)
{
    // A kernel without code has the address of the next one.
    return std::tie(a.text_address, a.data_address, a.text_size) <
           std::tie(b.text_address, b.data_address, b.text_size);
}

mapping_partition find_mappings(const std::vector<kernel_extent>& kernels)
{
    mapping_partition found;
    found.mapping_of.reserve(kernels.size());
    for (const kernel_extent& kernel : kernels) {
        if (found.mappings.empty() || !continues_mapping(found.mappings.back(), kernel)) {
            const std::uint64_t begin = kernel.text_address & ~(page_size - 1);
            found.mappings.push_back({begin, kernel.data_address, begin});
        }
        kernel_mapping& mapping = found.mappings.back();
        mapping.data_begin = std::min(mapping.data_begin, kernel.data_address);
        if (kernel.text_size != 0)
            mapping.end = std::max(mapping.end, kernel.text_address + kernel.text_size);
        if (kernel.data_size != 0)
            mapping.end = std::max(mapping.end, kernel.data_address + kernel.data_size);
        found.mapping_of.push_back(found.mappings.size() - 1);
    }
    return found;
}

kernel_extent extent_of(const placed_kernel& kernel)
{
    return {kernel.text_address, kernel.text.size(), kernel.data_address, kernel.data.size()};
}

kernel_set make_kernel_set(std::vector<placed_kernel> kernels)
{
    kernel_set set;
    std::vector<std::pair<kernel_extent, std::size_t>> order;
    order.reserve(kernels.size());
    for (const placed_kernel& kernel : kernels)
        order.emplace_back(extent_of(kernel), order.size());
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& a, const auto& b) { return lies_before(a.first, b.first); });
    std::vector<kernel_extent> extents;
    extents.reserve(kernels.size());
    set.kernels.reserve(kernels.size());
    for (const auto& [extent, index] : order) {
        extents.push_back(extent);
        set.kernels.push_back(std::move(kernels[index]));
    }
    mapping_partition found = find_mappings(extents);
    set.mappings = std::move(found.mappings);
    set.by_name.reserve(set.kernels.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        set.kernels[i].mapping = found.mapping_of[i];
        set.by_name.emplace(set.kernels[i].name, i);
    }
    set.callers.resize(set.kernels.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        for (const tessjit::reloc_info& relocation : set.kernels[i].relocs) {
            const auto callee =
                names_data(relocation.name) ? set.by_name.end() : set.by_name.find(relocation.name);
            if (callee == set.by_name.end())
                continue;
            std::vector<std::size_t>& callers = set.callers[callee->second];
            if (callers.empty() || callers.back() != i)
                callers.push_back(i);
        }
    }
    return set;
}

std::optional<kernel_pair> find_overlap(const kernel_set& set)
{
    struct block {
        std::uint64_t begin;
        std::uint64_t end;
        std::size_t kernel;
    };
    std::vector<block> blocks;
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        if (!kernel.text.empty())
            blocks.push_back({kernel.text_address, kernel.text_end(), i});
        if (!kernel.data.empty())
            blocks.push_back({kernel.data_address, kernel.data_end(), i});
    }
    std::sort(blocks.begin(), blocks.end(), [](const block& a, const block& b) { return a.begin < b.begin; });
    for (std::size_t i = 1; i < blocks.size(); ++i) {
        if (blocks[i].begin < blocks[i - 1].end)
            return kernel_pair{blocks[i - 1].kernel, blocks[i].kernel};
    }
    return std::nullopt;
}

const placed_kernel* find_kernel(const kernel_set& set, const std::string& name)
{
    const auto found = set.by_name.find(name);
    return found == set.by_name.end() ? nullptr : &set.kernels[found->second];
}

const placed_kernel* find_kernel_by_text(const kernel_set& set, std::uint64_t address)
{
    const auto above = std::upper_bound(
        set.kernels.begin(), set.kernels.end(), address,
        [](std::uint64_t a, const placed_kernel& kernel) { return a < kernel.text_address; });
    if (above == set.kernels.begin() || address >= above[-1].text_end())
        return nullptr;
    return &above[-1];
}

const placed_kernel* find_kernel_by_data(const kernel_set& set, std::uint64_t address)
{
    for (const placed_kernel& kernel : set.kernels) {
        if (address >= kernel.data_address && address < kernel.data_end())
            return &kernel;
    }
    return nullptr;
}

std::string nearest_name(const kernel_set& set, std::string_view name)
{
    wfta::nearest_name_search search(name, wfta::name_candidates::all);
    for (const placed_kernel& kernel : set.kernels)
        search.offer(kernel.name);
    return search.nearest();
}

} // namespace vorna::workbench
