// The program's help, on the terminal and as a manual page.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace vorna::workbench {

/// Shows options as "--format {text,json}" and arguments by their names alone; those that are required are in
/// the usage.
class help_formatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
};

/// What the program's help and its manual page have that is not in its options.
struct help_texts {
    std::string version;
    std::string examples;      ///< lines of commands
    std::string exit_statuses; ///< of the commands that do not say theirs
};

/// The manual page in man's macros, made of what the help says: the program, then each command with its
/// arguments and options.
std::string man_page(const CLI::App& program, const help_texts& texts);

} // namespace vorna::workbench
