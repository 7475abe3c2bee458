// The manual page, made of what the program's help says.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace vorna::workbench {

/// The page in man's macros: the program, then each command with its arguments and options.
std::string man_page(const CLI::App& program, const std::string& version);

} // namespace vorna::workbench
