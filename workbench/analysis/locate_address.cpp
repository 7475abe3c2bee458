#include "workbench/analysis/locate_address.hpp"

#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace vorna::workbench {

namespace {

constexpr std::uint64_t code_alignment = 32;
constexpr std::uint64_t page_size = 4096; // the least that a system maps

constexpr std::uint64_t round_up(std::uint64_t number, std::uint64_t multiple)
{
    return (number + multiple - 1) / multiple * multiple;
}

// The mapping that contains the address, up to the end of its last page; or null.
const kernel_mapping* find_mapping(const kernel_set& set, std::uint64_t address)
{
    const auto above =
        std::upper_bound(set.mappings.begin(), set.mappings.end(), address,
                         [](std::uint64_t a, const kernel_mapping& mapping) { return a < mapping.begin; });
    if (above == set.mappings.begin() || address >= round_up(above[-1].end, page_size))
        return nullptr;
    return &above[-1];
}

// Fills in the code or the constants that end last before the address, in the mapping.
void use_what_ends_before(const kernel_set& set, const kernel_mapping& mapping, address_location& at)
{
    const auto index = static_cast<std::size_t>(&mapping - set.mappings.data());
    std::uint64_t last_end = 0;
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        if (kernel.mapping != index)
            continue;
        const auto offer = [&](std::uint64_t begin, std::uint64_t end, bool constants) {
            if (begin == end || end > at.address || end < last_end)
                return;
            last_end = end;
            at.kernel = i;
            at.offset = static_cast<std::int64_t>(at.address - begin);
            at.after_constants = constants;
        };
        offer(kernel.text_address, kernel.text_end(), false);
        offer(kernel.data_address, kernel.data_end(), true);
    }
    const bool last = at.address >= mapping.end;
    const bool pads = at.kernel && !at.after_constants && at.address < round_up(last_end, code_alignment);
    at.part = last || pads ? address_part::padding : address_part::gap;
}

} // namespace

const char* name_of(address_part part)
{
    static constexpr const char* names[] = {"code", "constants", "padding", "gap", ""};
    return names[static_cast<std::size_t>(part)];
}

address_location locate_address(const kernel_set& set, std::uint64_t address)
{
    address_location at;
    at.address = address;
    const auto use = [&](const placed_kernel& kernel, address_part part, std::uint64_t begin) {
        at.part = part;
        at.kernel = static_cast<std::size_t>(&kernel - set.kernels.data());
        at.offset = static_cast<std::int64_t>(address - begin);
    };
    if (const placed_kernel* const kernel = find_kernel_by_text(set, address)) {
        use(*kernel, address_part::code, kernel->text_address);
    } else if (const placed_kernel* const owner = find_kernel_by_data(set, address)) {
        use(*owner, address_part::constants, owner->data_address);
    } else if (const kernel_mapping* const mapping = find_mapping(set, address)) {
        use_what_ends_before(set, *mapping, at);
    }
    return at;
}

std::string location_text(const kernel_set& set, const address_location& location)
{
    if (location.part == address_part::nothing)
        return "in no kernel";
    if (!location.kernel)
        return "before the first kernel of a mapping";
    const placed_kernel& kernel = set.kernels[*location.kernel];
    const std::string constants = std::string(data_prefix) + kernel.name;
    if (location.part == address_part::code)
        return place_text(kernel.name, location.offset);
    if (location.part == address_part::constants)
        return place_text(constants, location.offset);
    const std::size_t size = location.after_constants ? kernel.data.size() : kernel.text.size();
    const std::uint64_t past = static_cast<std::uint64_t>(location.offset) - size;
    const std::string end = place_text(location.after_constants ? constants : kernel.name);
    const std::string_view what =
        location.part == address_part::padding ? "padding" : "in no kernel that was dumped";
    if (past == 0)
        return fmt::format("{}, at the end of {}", what, end);
    return fmt::format("{}, {} after the end of {}", what, pluralize(past, "byte"), end);
}

} // namespace vorna::workbench
