#include "workbench/cli/options.hpp"

#include <CLI/CLI.hpp>

#include <fmt/format.h>
#include <memory>
#include <string_view>

namespace vorna::workbench {

// ---- Declaring

static constexpr const char* help_text = "Print this help and exit";

command_option& command_option::required()
{
    option_->required();
    return *this;
}

command_option& command_option::type_name(const std::string& name)
{
    option_->type_name(name);
    return *this;
}

command_option& command_option::delimiter(char between)
{
    option_->delimiter(between)->allow_extra_args(false); // otherwise it consumes the positionals after it
    return *this;
}

command_option& command_option::one_of(const std::vector<std::string>& values)
{
    option_->check(CLI::IsMember(values));
    return *this;
}

command_option& command_option::excludes(command_option other)
{
    option_->excludes(other.option_);
    return *this;
}

command_option& command_option::help(const std::function<std::string()>& text)
{
    option_->check(
        [text](const std::string& value) {
            if (value == "help")
                throw CLI::CallForVersion(text(), 0); // printed as it is
            return std::string();
        },
        "");
    return *this;
}

command_option& command_option::check(const std::function<std::string(const std::string& value)>& wrong,
                                      const std::string& name)
{
    option_->check(wrong, name);
    return *this;
}

bool command_option::given() const
{
    return !option_->empty();
}

command_line command_line::add_command(const std::string& name, const std::string& description)
{
    return command_line(*app_->add_subcommand(name, description)->group("Commands"));
}

void command_line::require_command()
{
    app_->require_subcommand(1);
}

command_option command_line::add_option(const std::string& names, std::string& value,
                                        const std::string& description)
{
    return command_option(*app_->add_option(names, value, description));
}

command_option command_line::add_option(const std::string& names, std::vector<std::string>& values,
                                        const std::string& description)
{
    return command_option(*app_->add_option(names, values, description));
}

command_option command_line::add_option(const std::string& names, std::size_t& value,
                                        const std::string& description)
{
    return command_option(*app_->add_option(names, value, description));
}

command_option command_line::add_flag(const std::string& name, bool& value, const std::string& description)
{
    return command_option(*app_->add_flag(name, value, description));
}

void command_line::footer(const std::string& text)
{
    app_->footer(text);
}

void command_line::help_only_by(const std::string& name)
{
    app_->set_help_flag(name, help_text);
}

void command_line::keep_remaining()
{
    app_->prefix_command();
}

std::vector<std::string> command_line::remaining() const
{
    return app_->remaining();
}

void command_line::run(const std::function<void()>& action)
{
    app_->callback(action);
}

void refuse_option(const std::string& name, const std::string& why)
{
    throw CLI::ValidationError(name, why);
}

void refuse_without(const std::string& names)
{
    throw CLI::RequiredError(names);
}

// ---- Help

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

namespace {

/// Prints options as "--format {text,json}" and arguments by name only; required ones are part of the usage.
class help_formatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* option) const override
    {
        if (option->get_positional() || option->get_type_size() == 0)
            return "";
        const std::string type = option->get_type_name(); // "TEXT", or "TEXT:" and the allowed values
        return " " + type.substr(type.find(':') + 1);
    }

    std::string make_usage(const CLI::App* app, std::string name) const override
    {
        std::string usage = CLI::Formatter::make_usage(app, std::move(name));
        for (const CLI::Option* const option : required_options(*app))
            usage.insert(usage.find(" [OPTIONS]"), " " + required_option(*option));
        return usage;
    }
};

} // namespace

// ---- The manual page

// Escapes text for roff: hyphens can be copied, and no backslash or leading dot is interpreted.
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

// The synopsis of a command, or of each of its subcommands.
static std::string synopses(const CLI::App& program, const CLI::App& command)
{
    const std::string words = program.get_name() + " " + command.get_name();
    const std::vector<const CLI::App*> parts = commands_of(command);
    std::string text = parts.empty() ? synopsis(command, words) : "";
    for (const CLI::App* const part : parts)
        text += synopsis(*part, words + " " + part->get_name());
    return text;
}

// The manual page in man's macros, from the texts of the help: the program, then each command with its
// arguments and options.
static std::string man_page(const CLI::App& program, const program_texts& texts)
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

// ---- The program

// Describes an error in the arguments.
static std::string wrong_arguments(const CLI::App& program, const CLI::ParseError& error)
{
    const CLI::App* command = &program;
    std::string words = program.get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        words += " " + command->get_name();
    }
    const std::vector<std::string> remaining = command->remaining();
    const std::string hint = "; run " + words + " --help";
    if (command->get_require_subcommand_min() != 0)
        return (remaining.empty() ? "no command given" : "unknown command '" + remaining.front() + "'") +
               hint;
    if (!remaining.empty() && dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr)
        return "unexpected argument '" + remaining.front() + "'" + hint;
    return error.what();
}

std::string run_program(const program_texts& texts,
                        const std::function<void(command_line& program)>& add_commands, int argc, char** argv)
{
    CLI::App app(texts.description);
    const auto formatter = std::make_shared<help_formatter>();
    formatter->label("Positionals", "Arguments");
    formatter->label("SUBCOMMAND", "COMMAND");
    app.formatter(formatter);
    app.name(texts.name);
    app.set_help_flag("-h,--help", help_text);
    app.set_version_flag("--version", texts.version, "Print the version and exit");
    app.footer(texts.exit_statuses); // inherited by the commands
    command_line program(app);
    program.require_command();
    add_commands(program);
    app.footer(texts.examples + "\n\n" + texts.exit_statuses);
    if (argc == 2 && std::string_view(argv[1]) == "--man-page") {
        fmt::print("{}", man_page(app, texts));
        return "";
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) { // --help, --version
        app.exit(asked);
    } catch (const CLI::ParseError& error) {
        return wrong_arguments(app, error);
    }
    return "";
}

} // namespace vorna::workbench
