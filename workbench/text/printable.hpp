// Makes arbitrary bytes printable.
#pragma once

#include "check/format.hpp"

#include <string>
#include <string_view>

namespace vorna::workbench {

using wfta::printable;

/// The text with each invalid UTF-8 sequence replaced by U+FFFD.
std::string valid_utf8(std::string_view bytes);

} // namespace vorna::workbench
