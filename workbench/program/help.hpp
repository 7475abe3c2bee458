// The program's help, on the terminal and as a manual page.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace vorna::workbench {

/// Shows options as "--format {text,json}" and arguments by their names alone.
class help_formatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* option) const override;
};

/// The manual page in man's macros, made of what the help says: the program, then each command with its
/// arguments and options.
std::string man_page(const CLI::App& program, const std::string& version);

} // namespace vorna::workbench
