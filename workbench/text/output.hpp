// What the commands' output has in common: names made printable, colour, annotations.
#pragma once

#include "check/format.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

using wfta::signed_hex;

/// The name for a line of text: control characters as "\n", "\x1b" and the like, everything else as it is.
std::string printable(std::string_view name);

/// "KERNEL+0xOFFSET", or "KERNEL" alone without an offset; a negative offset as "KERNEL-0x…".
std::string place_text(std::string_view kernel);
std::string place_text(std::string_view kernel, std::int64_t offset);

/// "NAME", "NAME+0x10", "NAME-0x8": a symbol and an addend. The name is one that is printable already.
std::string with_addend(std::string_view name, std::int64_t addend);

/// The names, printable, with commas between them; of more than eight the first eight and how many there are
/// besides.
std::string few_of(const std::vector<std::string>& names);

/// "1 kernel", "2 kernels".
std::string counted(std::size_t count, std::string_view noun);

/// 1234567 as "1,234,567".
std::string grouped(std::uint64_t number);

enum class colour { none, red, yellow, green, cyan, bold, dim };

/// The text in the terminal's colour; unchanged if `enabled` is false.
std::string painted(std::string_view text, colour c, bool enabled);

/// An annotation of GitHub's workflow commands, with its newline: "::error title=…::message", with what these
/// commands want escaped. `level` is "error", "warning" or "notice"; an empty file is left out, as is a line
/// 0.
std::string github_annotation(std::string_view level, std::string_view title, std::string_view message,
                              std::string_view file = {}, std::size_t line = 0);

} // namespace vorna::workbench
