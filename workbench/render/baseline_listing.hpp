// Listings beside a baseline, a file for each kernel, so that a review of the baseline shows instructions.
#pragma once

#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <string>
#include <string_view>

namespace vorna::workbench {

/// A kernel's listing for a review: its rows with the words as generated, relocations, constants. It does not
/// depend on addresses.
std::string baseline_listing(const placed_kernel& kernel, disassembler& disassembler);

/// Whether two such texts have the same words, relocations and constants. The disassembly is not compared.
bool same_listing(std::string_view a, std::string_view b);

/// The name of the file for a kernel's listing: the kernel's name and ".txt". Bytes that not every file
/// system accepts become "%" and two digits, and a hash replaces the end of a long name.
std::string listing_file_name(std::string_view kernel);

} // namespace vorna::workbench
