#include "check/format.hpp"
#include "workbench/analysis/diagnose_abort.hpp"
#include "workbench/analysis/locate_abort.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/input/abort_log.hpp"
#include "workbench/os/file.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/excerpt.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace vorna::workbench {

namespace {

struct explain_options {
    common_options common;
    std::string log = "-";
    std::string dumps;
};

struct explanation {
    abort_location location;
    abort_diagnosis diagnosis;
};

abort_log read_log_file(const std::string& path)
{
    try {
        abort_log_reader reader;
        read_pieces(open_input(path), [&reader](std::string_view piece) { reader.read(piece); });
        return reader.finish();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", input_name(path), error.what()));
    }
}

// A log without a report: the finaliser has not ended the process, but a kernel may have.
void print_no_report(const explain_options& options, const std::string& log_name,
                     const std::optional<crash_line>& crash)
{
    const std::string dumps = options.dumps.empty() ? "DUMPS" : printable(options.dumps);
    fmt::print("no report of an abort in {}\n", printable(log_name));
    if (crash) {
        fmt::print("note: an instruction raised a signal, perhaps a kernel's\n"
                   "  --> {}:{}: {}\n",
                   printable(log_name), crash->line, printable(crash->text));
    } else {
        fmt::print("note: the finaliser did not abort the process; a kernel that crashes leaves no report\n");
    }
    fmt::print("help: vorna-kernels check {0}\n"
               "      vorna-kernels link {0} -o kernels.elf\n"
               "      gdb HOST CORE -ex 'add-symbol-file kernels.elf' -ex bt -ex 'x/i $pc'\n",
               dumps);
}

std::vector<std::int64_t> times_of_files(const kernel_set& set)
{
    std::vector<std::int64_t> times;
    times.reserve(set.kernels.size());
    for (const placed_kernel& kernel : set.kernels) {
        std::error_code ignored;
        times.push_back(std::filesystem::last_write_time(kernel.file, ignored).time_since_epoch().count());
    }
    return times;
}

// The refused instruction between its neighbours.
void print_instructions(const kernel_set& set, const abort_location& found, bool colour_enabled)
{
    if (set.kernels[*found.dump].text.size() > largest_decoded_code)
        return;
    disassembler disassembler;
    std::vector<listing_row> rows = list_generated(set, set.kernels[*found.dump], disassembler).rows;
    const auto at = static_cast<std::size_t>(*found.offset) / 4;
    if (*found.offset < 0 || at >= rows.size())
        return;
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(found.type.value_or(0));
    if (kind != nullptr && !is_instruction_of(*kind, rows[at].word))
        rows[at].comment = fmt::format("not {}", wfta::with_article(kind->instruction));
    fmt::print("{}", excerpt_text(rows, at, offset_digits(set.kernels[*found.dump]), colour_enabled));
}

// "answer+0x8, relocation 2 of 2 (log:1)"
std::string place_of(const abort_location& at, const kernel_set& dumps, const std::string& log_name)
{
    std::string line = fmt::format("{}:{}", printable(log_name), at.line);
    if (!at.kernel)
        return line;
    std::string place = at.offset ? place_text(*at.kernel, *at.offset) : place_text(*at.kernel);
    if (at.dump && at.relocation)
        place +=
            fmt::format(", relocation {} of {}", *at.relocation + 1, dumps.kernels[*at.dump].relocs.size());
    return fmt::format("{} ({})", place, line);
}

void print_text(const kernel_set& dumps, const explanation& found, const std::string& log_name,
                const common_options& options)
{
    const bool colored = use_color(options);
    const abort_location& at = found.location;
    fmt::print("{}: {}{}\n", colorize("error", color::red, colored),
               colorize(found.diagnosis.message, color::bold, colored),
               at.report.empty() ? "" : fmt::format(" [{}]", at.report));
    fmt::print("  --> {}\n", place_of(at, dumps, log_name));
    if (at.dump && at.offset)
        print_instructions(dumps, at, colored);
    for (const relocation_match& match : at.matches)
        fmt::print("note: relocation {} at {} matches\n", match.relocation + 1,
                   place_text(match.kernel, match.offset));
    for (const std::string& note : at.notes)
        fmt::print("note: {}\n", note);
    if (!found.diagnosis.cause.empty())
        fmt::print("note: {}\n", found.diagnosis.cause);
    fmt::print("help: {}\n", found.diagnosis.help);
}

template <typename Value>
json or_null(const std::optional<Value>& value)
{
    return value ? json(*value) : json(nullptr);
}

json or_null(const std::string& text)
{
    return text.empty() ? json(nullptr) : json(text);
}

json to_json(const explanation& found)
{
    const abort_location& at = found.location;
    json object;
    object["report"] = or_null(at.report);
    object["kernel"] = or_null(at.kernel);
    object["offset"] = or_null(at.offset);
    object["relocation"] = or_null(at.relocation);
    object["type"] = or_null(at.type);
    object["target"] = or_null(at.target);
    object["addend"] = or_null(at.addend);
    object["distance"] = or_null(at.distance);
    object["range"] = at.range ? json::array({at.range->least, at.range->greatest}) : json(nullptr);
    object["cause"] = or_null(found.diagnosis.cause);
    object["help"] = or_null(found.diagnosis.help);
    object["message"] = or_null(found.diagnosis.message);
    object["line"] = at.line == 0 ? json(nullptr) : json(at.line);
    object["notes"] = at.notes;
    object["fits"] = json::array();
    for (const relocation_match& match : at.matches)
        object["fits"].push_back(
            {{"kernel", match.kernel}, {"relocation", match.relocation}, {"offset", match.offset}});
    return object;
}

// The first report's members stand at the top, those of further ones in "more".
void print_explanations(const std::vector<explanation>& explanations, const std::optional<crash_line>& crash)
{
    json document;
    document.update(to_json(explanations.empty() ? explanation() : explanations.front()));
    document["more"] = json::array();
    for (std::size_t i = 1; i < explanations.size(); ++i)
        document["more"].push_back(to_json(explanations[i]));
    document["crash"] =
        crash && explanations.empty() ? json{{"line", crash->line}, {"text", crash->text}} : json(nullptr);
    print_json(document);
}

int explain(const explain_options& options)
{
    const std::string name = input_name(options.log);
    const abort_log log = read_log_file(options.log);

    bool had_errors = false;
    dumps_of_process dumps;
    if (!options.dumps.empty() && !log.reports.empty()) {
        read_result read = read_set({options.dumps}, options.common);
        had_errors = !require_kernels(read, options.dumps) || read.had_errors;
        dumps.set = std::move(read.set);
        dumps.written = times_of_files(dumps.set);
    }

    std::vector<explanation> explanations;
    for (const abort_report& report : log.reports) {
        abort_location location = locate_abort(log, report, dumps);
        abort_diagnosis diagnosis = diagnose_abort(location, dumps.set);
        explanations.push_back({std::move(location), std::move(diagnosis)});
    }
    if (options.common.format == "json") {
        print_explanations(explanations, log.crash);
    } else {
        for (const explanation& found : explanations)
            print_text(dumps.set, found, name, options.common);
        if (explanations.empty())
            print_no_report(options, name, log.crash);
        else if (log.more_reports == 0)
            fmt::print("{}\n", pluralize(explanations.size(), "report"));
        else
            fmt::print("{} explained, {} more skipped\n", pluralize(explanations.size(), "report"),
                       log.more_reports);
    }
    if (options.common.format == "text" && options.dumps.empty() && !explanations.empty())
        fmt::print(
            "note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction\n");
    if (had_errors)
        return exit_error;
    return explanations.empty() ? exit_findings : exit_success;
}

} // namespace

void add_explain(command_line& program, int& status)
{
    const auto options = std::make_shared<explain_options>();
    command_line command = program.add_command("explain", "Explain why the finaliser aborted a process");
    command.add_option("LOG", options->log, "The process's stderr (default, and with -: standard input)");
    command.add_option("--dumps", options->dumps, "The process's dumps: a directory, or one dump")
        .type_name("DUMPS");
    command.footer("Exit status: 0 explained, 1 no abort message in the log, 2 error.");
    add_common_options(command, options->common, {"text", "json"});
    command.run([options, &status] { status = explain(*options); });
}

} // namespace vorna::workbench
