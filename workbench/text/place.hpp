// A place in a kernel or relative to a symbol, as every message names it.
#pragma once

#include "check/format.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace vorna::workbench {

using wfta::signed_hex;
using wfta::with_addend;

/// "KERNEL+0xOFFSET", or "KERNEL" alone without an offset; a negative offset as "KERNEL-0x…". The name is
/// made printable.
std::string place_text(std::string_view kernel);
std::string place_text(std::string_view kernel, std::int64_t offset);

/// The number of hexadecimal digits: the width of a column that ends with this offset.
int hex_digits(std::uint64_t last_offset);

} // namespace vorna::workbench
