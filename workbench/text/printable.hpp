// Arbitrary bytes made fit for a line of text.
#pragma once

#include <string>
#include <string_view>

namespace vorna::workbench {

/// The text with control characters escaped as "\n", "\x1b" and the like, so that it fits on one line and
/// cannot control a terminal.
std::string printable(std::string_view text);

/// The text with U+FFFD in place of each sequence of bytes that is not UTF-8.
std::string valid_utf8(std::string_view bytes);

} // namespace vorna::workbench
