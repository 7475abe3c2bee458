#include "workbench/program/help.hpp"

#include <fmt/format.h>
#include <string_view>
#include <vector>

namespace vorna::workbench {

std::string help_formatter::make_option_opts(const CLI::Option* option) const
{
    if (option->get_positional() || option->get_type_size() == 0)
        return "";
    const std::string type = option->get_type_name(); // "TEXT", or "TEXT:" and the possible values
    return " " + type.substr(type.find(':') + 1);
}

// "-o IMAGE"
static std::string required_option(const CLI::Option& option)
{
    const std::string name =
        option.get_snames().empty() ? "--" + option.get_lnames().front() : "-" + option.get_snames().front();
    return name + " " + option.get_type_name();
}

static std::vector<const CLI::Option*> required_options(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* o) { return o->get_required() && !o->get_positional(); });
}

std::string help_formatter::make_usage(const CLI::App* app, std::string name) const
{
    std::string usage = CLI::Formatter::make_usage(app, std::move(name));
    for (const CLI::Option* const option : required_options(*app))
        usage.insert(usage.find(" [OPTIONS]"), " " + required_option(*option));
    return usage;
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

static std::vector<const CLI::App*> commands_of(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App*) { return true; });
}

static std::string synopsis(const CLI::App& command, const std::string& words)
{
    std::string text = fmt::format(".B {}\n", roff(words));
    for (const CLI::Option* const option : required_options(command))
        text += roff(required_option(*option)) + " ";
    text += "[\\fIOPTIONS\\fR]";
    for (const CLI::Option* const option : command.get_options()) {
        if (!option->get_positional())
            continue;
        const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
        const std::string argument = fmt::format("\\fI{}\\fR", roff(name));
        text += option->get_required() ? " " + argument : " [" + argument + "]";
    }
    return text + "\n.br\n";
}

// Of a command, or of each of its parts.
static std::string synopses(const CLI::App& program, const CLI::App& command)
{
    const std::string words = program.get_name() + " " + command.get_name();
    const std::vector<const CLI::App*> parts = commands_of(command);
    std::string text = parts.empty() ? synopsis(command, words) : "";
    for (const CLI::App* const part : parts)
        text += synopsis(*part, words + " " + part->get_name());
    return text;
}

std::string man_page(const CLI::App& program, const help_texts& texts)
{
    std::string text =
        fmt::format(".TH VORNA\\-KERNELS 1 \"\" \"vorna\\-kernels {}\" \"User Commands\"\n"
                    ".SH NAME\nvorna\\-kernels \\- workbench for generated machine\\-code kernels\n"
                    ".SH SYNOPSIS\n",
                    texts.version);
    for (const CLI::App* const command : commands_of(program))
        text += synopses(program, *command);
    text += ".SH DESCRIPTION\n" + roff(program.get_description()) + "\n.SH OPTIONS\n" + options_of(program);
    text += ".SH COMMANDS\n";
    for (const CLI::App* const command : commands_of(program)) {
        text +=
            fmt::format(".SS {}\n{}\n.PP\n{}{}", roff(command->get_name()), roff(command->get_description()),
                        synopses(program, *command), options_of(*command));
        for (const CLI::App* const part : commands_of(*command))
            text += fmt::format(".TP\n.B {} {}\n{}\n.RS\n{}.RE\n", roff(command->get_name()),
                                roff(part->get_name()), roff(part->get_description()), options_of(*part));
        if (command->get_footer() != texts.exit_statuses)
            text += ".PP\n.nf\n" + roff(command->get_footer()) + "\n.fi\n";
    }
    text += ".SH EXAMPLES\n.nf\n" + roff(texts.examples) + "\n.fi\n";
    return text + ".SH EXIT STATUS\n" + roff(texts.exit_statuses) + "\n";
}

} // namespace vorna::workbench
