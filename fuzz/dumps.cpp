// Any file is read as a dump or refused, and no more is read than the file contains.

#include "workbench/input/dumps.hpp"

#include <cstdlib>
#include <stdexcept>

using vorna::workbench::kernel_set;
using vorna::workbench::placed_kernel;

static void require(bool condition)
{
    if (!condition)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    std::vector<placed_kernel> kernels;
    try {
        kernels = vorna::workbench::parse_dump(bytes, size);
    } catch (const std::runtime_error& error) {
        require(*error.what() != '\0');
        return 0;
    }
    require(!kernels.empty());
    std::size_t contents = 0;
    for (const placed_kernel& kernel : kernels) {
        contents += kernel.text.size() + kernel.data.size();
        require(kernel.text_address <= kernel.text_end() && kernel.text_end() <= kernel.data_address);
        require(kernel.data_address <= kernel.data_end());
    }
    require(contents <= size);

    const kernel_set set = vorna::workbench::make_kernel_set(std::move(kernels));
    for (const placed_kernel& kernel : set.kernels) {
        const auto& mapping = set.mappings.at(kernel.mapping);
        require(mapping.begin <= kernel.text_address);
        require(kernel.text.empty() || kernel.text_end() <= mapping.end);
        require(kernel.data.empty() || kernel.data_end() <= mapping.end);
        require(vorna::workbench::find_kernel(set, kernel.name) != nullptr);
    }
    (void)vorna::workbench::find_overlap(set);
    return 0;
}
