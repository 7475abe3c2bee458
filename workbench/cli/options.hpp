// Command-line arguments, and the help and manual page made from them. Only options.cpp includes the parser
// library, which is slow to compile.
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
    command_option& type_name(const std::string& name); ///< the placeholder for its value in the help
    command_option& delimiter(char between);            ///< separates several values in one argument
    command_option& one_of(const std::vector<std::string>& values);
    command_option& excludes(command_option other);
    /// The value "help" prints this text and ends the program, whatever else is missing.
    command_option& help(const std::function<std::string()>& text);
    /// `wrong` returns what is wrong with a value; empty if nothing is.
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
    void require_command(); ///< makes a command mandatory

    /// Names as "-o,--output", or "DUMPS" for an argument.
    command_option add_option(const std::string& names, std::string& value, const std::string& description);
    command_option add_option(const std::string& names, std::vector<std::string>& values,
                              const std::string& description);
    command_option add_option(const std::string& names, std::size_t& value, const std::string& description);
    command_option add_flag(const std::string& name, bool& value, const std::string& description);

    void footer(const std::string& text); ///< text below the help
    void help_only_by(const std::string& name);
    void keep_remaining(); ///< stops parsing at the first argument that is not an option of this command
    [[nodiscard]] std::vector<std::string> remaining() const;

    /// Sets the action that runs after the arguments are parsed.
    void run(const std::function<void()>& action);

private:
    CLI::App* app_;
};

/// For a command's action: reports arguments that cannot be combined. Both throw.
[[noreturn]] void refuse_option(const std::string& name, const std::string& why);
[[noreturn]] void refuse_without(const std::string& names);

/// The texts of the help and the manual page that do not come from the options.
struct program_texts {
    std::string name;
    std::string version;
    std::string description;
    std::string examples;      ///< lines of commands
    std::string exit_statuses; ///< of commands without a footer
};

/// Parses the arguments and runs the command, or prints the help, the version, or the manual page (for the
/// build, which installs it). Returns what is wrong with the arguments; empty if nothing is.
std::string run_program(const program_texts& texts,
                        const std::function<void(command_line& program)>& add_commands, int argc,
                        char** argv);

} // namespace vorna::workbench
