#include "workbench/program/help.hpp"

#include <fmt/format.h>
#include <string_view>

namespace vorna::workbench {

std::string help_formatter::make_option_opts(const CLI::Option* option) const
{
    if (option->get_positional() || option->get_type_size() == 0)
        return "";
    const std::string type = option->get_type_name(); // "TEXT", or "TEXT:" and the possible values
    return " " + type.substr(type.find(':') + 1);
}

// Text as roff takes it: hyphens that can be copied, no escapes, no line that begins like a macro.
static std::string roff(std::string_view text)
{
    std::string result;
    bool line_begins = true;
    for (const char c : text) {
        if (line_begins && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '-' || c == '\\')
            result += c == '-' ? "\\-" : "\\e";
        else
            result += c;
        line_begins = c == '\n';
    }
    return result;
}

static std::string options_of(const CLI::App& app)
{
    std::string text;
    const help_formatter formatter;
    for (const bool positional : {true, false}) {
        for (const CLI::Option* const option : app.get_options()) {
            if (option->get_positional() != positional || option->get_group().empty())
                continue;
            text += fmt::format(
                ".TP\n.B {}\n{}\n",
                roff(formatter.make_option_name(option, positional) + formatter.make_option_opts(option)),
                roff(option->get_description()));
        }
    }
    return text;
}

static std::string synopsis(const CLI::App& command)
{
    std::string text = fmt::format(".B vorna\\-kernels {}\n[\\fIOPTIONS\\fR]", roff(command.get_name()));
    for (const CLI::Option* const option : command.get_options()) {
        if (!option->get_positional())
            continue;
        const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
        text += fmt::format(option->get_required() ? " \\fI{}\\fR" : " [\\fI{}\\fR]", roff(name));
    }
    return text + "\n";
}

std::string man_page(const CLI::App& program, const std::string& version)
{
    const std::vector<const CLI::App*> commands =
        program.get_subcommands([](const CLI::App*) { return true; });
    std::string text =
        fmt::format(".TH VORNA\\-KERNELS 1 \"\" \"vorna\\-kernels {}\" \"User Commands\"\n"
                    ".SH NAME\nvorna\\-kernels \\- workbench for generated machine\\-code kernels\n"
                    ".SH SYNOPSIS\n",
                    version);
    for (const CLI::App* const command : commands)
        text += synopsis(*command) + ".br\n";
    text += ".SH DESCRIPTION\n" + roff(program.get_description()) + "\n.SH OPTIONS\n" + options_of(program);
    text += ".SH COMMANDS\n";
    for (const CLI::App* const command : commands) {
        text += fmt::format(".SS {}\n{}\n.PP\n{}{}", roff(command->get_name()),
                            roff(command->get_description()), synopsis(*command), options_of(*command));
        for (const CLI::App* const part : command->get_subcommands([](const CLI::App*) { return true; }))
            text += fmt::format(".TP\n.B {} {}\n{}\n.RS\n{}.RE\n", roff(command->get_name()),
                                roff(part->get_name()), roff(part->get_description()), options_of(*part));
        if (command->get_footer() != program.get_footer())
            text += ".PP\n.nf\n" + roff(command->get_footer()) + "\n.fi\n";
    }
    return text + ".SH EXIT STATUS\n" + roff(program.get_footer()) + "\n";
}

} // namespace vorna::workbench
