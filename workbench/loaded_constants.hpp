// What a kernel's loads read from its own constants.
#pragma once

#include "workbench/kernel_set.hpp"
#include "workbench/listing.hpp"

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// For the offsets of the kernel's loads from its own constants whose address is known: where they read, and
/// the values, as the register is used: ".rodata+0x10  -1.5", ".rodata  {0.0, -0.0}". Of a load that walks
/// through a table in a loop the first values. `rows` is the kernel's listing.
std::unordered_map<std::size_t, std::string>
describe_loads(const kernel_set& set, const placed_kernel& kernel, const std::vector<listing_row>& rows);

} // namespace vorna::workbench
