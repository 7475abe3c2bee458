// A kernel's listing, for the page's model.
#pragma once

#include "workbench/analysis/interface.hpp"
#include "workbench/analysis/profile.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/kernel_set.hpp"
#include "workbench/render/page/page_cost.hpp"

#include <cstddef>
#include <string>
#include <unordered_map>

namespace vorna::workbench {

/// Longer code has no rows.
inline constexpr std::size_t most_listed_bytes = std::size_t{50000} * 4;

struct page_listing_input {
    const kernel_set* set = nullptr;
    const placed_kernel* kernel = nullptr;
    const kernel_interface* interface = nullptr;
    const kernel_set* set_before = nullptr;  ///< the set of `before`, or null
    const placed_kernel* before = nullptr;   ///< the kernel before a change, or null
    const kernel_profile* profile = nullptr; ///< or null
    const page_cost* cost = nullptr;         ///< or null
    const std::unordered_map<std::string, std::size_t>* index = nullptr; ///< of the page's kernels, by name
};

/// The listing and the constants as JSON. A kernel of more than 50,000 instructions has no rows.
std::string make_page_listing(const page_listing_input& input, disassembler& disassembler);

} // namespace vorna::workbench
