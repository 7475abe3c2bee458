// Coloured text on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace vorna::workbench {

enum class color { none, red, yellow, green, cyan, bold, dim };

/// The text with the terminal's escape sequences for the colour; unchanged if it is empty or
/// `enabled` is false.
std::string colorize(std::string_view text, color c, bool enabled);

} // namespace vorna::workbench
