#include "workbench/analysis/loaded_constants.hpp"

#include "workbench/analysis/address_tracking.hpp"

namespace vorna::workbench {

loaded_constants find_loaded_constants(const decoded_kernel& code)
{
    const placed_kernel& kernel = *code.kernel;
    loaded_constants constants;
    for (const known_access& access : known_accesses(code)) {
        const bool in_data =
            access.target_offset && *access.target_offset >= 0 &&
            is_own_data(kernel.name, kernel.relocs[*access.relocation].name) &&
            static_cast<std::uint64_t>(*access.target_offset) + access.access.bytes <= kernel.data.size();
        if (in_data && access.access.load && !access.access.store) {
            const auto begin = kernel.data.begin() + static_cast<std::ptrdiff_t>(*access.target_offset);
            constants[access.offset / 4].assign(begin, begin + access.access.bytes);
        }
    }
    return constants;
}

} // namespace vorna::workbench
