// Listings as the report's page has them.
#pragma once

#include "workbench/difference.hpp"
#include "workbench/kernel_check.hpp"
#include "workbench/listing.hpp"
#include "workbench/profile.hpp"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// One kernel's listing and constants, and what is shown beside them. What the pointers lead to is the
/// caller's.
struct listing_input {
    std::string id;   ///< of the kernel's element: a row's is this, "+0x" and its offset
    std::string name; ///< of the kernel
    const kernel_listing* rows = nullptr;
    const std::vector<std::uint8_t>* data = nullptr;
    const kernel_listing* before = nullptr; ///< the kernel's before a change, for both side by side, or null
    const row_alignment* alignment = nullptr;               ///< of the two
    const std::vector<std::uint8_t>* data_before = nullptr; ///< or null
    const kernel_profile* profile = nullptr;                ///< or null
    std::vector<const wfta::kernel_finding*> findings;
    const std::unordered_map<std::string, std::string>* ids = nullptr; ///< of kernels' elements, by name
    const std::unordered_map<std::string, double>* shares = nullptr;   ///< of all samples, by kernel
};

/// A part of the largest as one of the colours' steps: 0 for nothing, 7 for more than half of it, and so on
/// down by halves.
int heat_step(std::uint64_t weight, std::uint64_t largest);

/// A listing and constants as HTML, or, if they are not to be drawn yet, what the page's script draws them
/// from, in as many rows.
struct listing_section {
    std::string html;
    std::size_t rows;
};
listing_section make_listing_section(const listing_input& input, bool drawn);

} // namespace vorna::workbench
