// Makes arbitrary bytes printable.
#pragma once

#include <string>
#include <string_view>

namespace vorna::workbench {

/// The text with control characters escaped as "\n", "\x1b" and the like, so that it fits on one line and
/// cannot control a terminal.
std::string printable(std::string_view text);

/// The text with each invalid UTF-8 sequence replaced by U+FFFD.
std::string valid_utf8(std::string_view bytes);

} // namespace vorna::workbench
