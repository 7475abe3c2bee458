// What the program and its commands take as arguments. The parser is slow to compile, so that options.cpp
// alone includes it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace vorna::workbench {

/// An option or an argument of a command, which the command owns.
class command_option {
public:
    explicit command_option(CLI::Option& option) : option_(&option) {}

    command_option& required();
    command_option& type_name(const std::string& name); ///< how the help calls its value
    command_option& delimiter(char between);            ///< of several values in one argument
    command_option& one_of(const std::vector<std::string>& values);
    command_option& excludes(command_option other);
    /// `wrong` says what is wrong with a value, and nothing of a good one.
    command_option& check(const std::function<std::string(const std::string& value)>& wrong,
                          const std::string& name);

    [[nodiscard]] bool given() const;

private:
    CLI::Option* option_;
};

/// A command, which the program owns.
class command_line {
public:
    explicit command_line(CLI::App& app) : app_(&app) {}

    command_line add_command(const std::string& name, const std::string& description);
    void require_command(); ///< one of those that were added

    /// Names as "-o,--output", or "DUMPS" for an argument.
    command_option add_option(const std::string& names, std::string& value, const std::string& description);
    command_option add_option(const std::string& names, std::vector<std::string>& values,
                              const std::string& description);
    command_option add_option(const std::string& names, std::size_t& value, const std::string& description);
    command_option add_flag(const std::string& name, bool& value, const std::string& description);

    void footer(const std::string& text); ///< under the help
    void help_only_by(const std::string& name);
    void keep_remaining(); ///< from the first that is not an option here
    [[nodiscard]] std::vector<std::string> remaining() const;

    /// What the command does once its arguments are read.
    void run(const std::function<void()>& action);

private:
    CLI::App* app_;
};

/// Thrown by a command's action: arguments that do not go together.
[[noreturn]] void refuse_option(const std::string& name, const std::string& why);
[[noreturn]] void refuse_without(const std::string& names);

/// What the program's help and its manual page have that is not in its options.
struct program_texts {
    std::string name;
    std::string version;
    std::string description;
    std::string examples;      ///< lines of commands
    std::string exit_statuses; ///< of the commands that do not say theirs
};

/// Reads the arguments and runs the command, or prints the help, the version or, for the build, which
/// installs it, the manual page. Returns what is wrong with the arguments; empty if nothing is.
std::string run_program(const program_texts& texts,
                        const std::function<void(command_line& program)>& add_commands, int argc,
                        char** argv);

} // namespace vorna::workbench
