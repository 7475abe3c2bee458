#include "workbench/analysis/abort_explanation.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/json.hpp"
#include "workbench/input/abort_log.hpp"
#include "workbench/input/line_reader.hpp"
#include "workbench/os/file.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
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

/// A line of the log that tells of a signal which an instruction raises: a kernel's, perhaps.
struct crash_line {
    std::size_t number; ///< counted from 1
    std::string text;
};

bool tells_of_crash(std::string_view line)
{
    static constexpr std::string_view signs[] = {
        "SIGSEGV", "Segmentation fault", "SIGILL",  "Illegal instruction",
        "SIGBUS",  "Bus error",          "SIGTRAP", "Trace/breakpoint trap"};
    return std::any_of(std::begin(signs), std::end(signs),
                       [line](std::string_view sign) { return line.find(sign) != std::string_view::npos; });
}

struct read_log {
    abort_log log;
    std::optional<crash_line> crash; ///< the first
};

read_log read_log_file(const std::string& path)
{
    try {
        constexpr std::size_t longest_line = 4096;
        line_reader lines(longest_line);
        abort_log_reader reader;
        read_log result;
        const auto find_crash = [&result](const text_line& line) {
            if (!result.crash && tells_of_crash(line.text))
                result.crash = crash_line{line.number, std::string(line.text)};
        };
        read_pieces(open_input(path), [&](std::string_view piece) {
            lines.read(piece, find_crash);
            reader.read(piece);
        });
        lines.finish(find_crash);
        result.log = reader.finish();
        return result;
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", input_name(path), error.what()));
    }
}

// A log without a report: the finaliser has not ended the process, but a kernel may have.
void print_way_on(const explain_options& options, const std::string& log_name,
                  const std::optional<crash_line>& crash)
{
    const std::string dumps = options.dumps.empty() ? "DUMPS" : printable(options.dumps);
    fmt::print("no report of an abort in {}\n", printable(log_name));
    if (crash)
        fmt::print("    found  {}:{}: {}\n", printable(log_name), crash->number, printable(crash->text));
    fmt::print("    cause  {}\n",
               crash ? "an instruction raised the signal, perhaps a kernel's"
                     : "the finaliser did not end it; a kernel that crashes leaves no report");
    fmt::print("    do     vorna-kernels check {0}\n"
               "           vorna-kernels link {0} -o kernels.elf\n"
               "           gdb HOST CORE -ex 'add-symbol-file kernels.elf' -ex bt -ex 'x/i $pc'\n",
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
void print_instructions(const kernel_set& set, const abort_explanation& found, bool colour_enabled)
{
    if (set.kernels[*found.dump].text.size() > largest_listing)
        return;
    constexpr std::size_t neighbours = 2;
    disassembler disassembler;
    std::vector<listing_row> rows = list_generated(set, set.kernels[*found.dump], disassembler).rows;
    const auto at = static_cast<std::size_t>(*found.offset) / 4;
    if (*found.offset < 0 || at >= rows.size())
        return;
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(found.type.value_or(0));
    if (kind != nullptr && (rows[at].word & kind->opcode_mask) != kind->opcode)
        rows[at].comment =
            fmt::format("not {} {}", kind->instruction[0] == 'A' ? "an" : "a", kind->instruction);
    for (std::size_t i = at - std::min(at, neighbours); i < std::min(rows.size(), at + neighbours + 1); ++i) {
        if (!rows[i].label.empty())
            fmt::print("    {}:\n", rows[i].label);
        const std::string text = row_text(rows[i], offset_digits(set.kernels[*found.dump]));
        fmt::print("{}\n", i == at ? colorize("  > " + text, color::bold, colour_enabled) : "    " + text);
    }
}

void print_text(const dumps_of_process& dumps, const abort_explanation& found, const std::string& log_name,
                const common_options& options)
{
    const bool colour_enabled = use_color(options);
    const std::string line = fmt::format("{}:{}", printable(log_name), found.line);
    const std::string place = !found.kernel  ? line
                              : found.offset ? place_text(*found.kernel, *found.offset)
                                             : place_text(*found.kernel);
    fmt::print("{}: {}: {}{}\n", colorize(place, color::bold, colour_enabled),
               colorize("error", color::red, colour_enabled), found.message,
               found.report.empty() ? "" : fmt::format(" [{}]", found.report));
    if (found.dump && found.offset)
        print_instructions(dumps.set, found, colour_enabled);
    if (found.dump && found.relocation) {
        const std::vector<tessjit::reloc_info>& relocs = dumps.set.kernels[*found.dump].relocs;
        const tessjit::reloc_info& reloc = relocs[*found.relocation];
        fmt::print("    relocation {} of {}: {} {} {}, type {}, offset {}\n", *found.relocation + 1,
                   relocs.size(), printable(reloc.name), reloc.addend < 0 ? '-' : '+',
                   std::abs(std::int64_t{reloc.addend}), reloc.type, reloc.offset);
    }
    for (const relocation_place& fit : found.fits)
        fmt::print("    fits   relocation {} at {}\n", *fit.relocation + 1,
                   place_text(fit.kernel, fit.offset));
    for (const std::string& note : found.notes)
        fmt::print("    note   {}\n", note);
    if (found.kernel)
        fmt::print("    log    {}\n", line);
    fmt::print("    cause  {}\n", found.cause);
    fmt::print("    do     {}\n", found.advice);
}

template <typename Value>
json or_null(const std::optional<Value>& value)
{
    return value ? json(*value) : json(nullptr);
}

json to_json(const abort_explanation& found)
{
    json object;
    object["report"] = found.report.empty() ? json(nullptr) : json(found.report);
    object["kernel"] = or_null(found.kernel);
    object["offset"] = or_null(found.offset);
    object["relocation"] = or_null(found.relocation);
    object["type"] = or_null(found.type);
    object["target"] = or_null(found.target);
    object["addend"] = or_null(found.target_offset);
    object["distance"] = or_null(found.distance);
    object["range"] = found.limit ? json::array({found.limit->least, found.limit->greatest}) : json(nullptr);
    object["cause"] = found.cause.empty() ? json(nullptr) : json(found.cause);
    object["help"] = found.advice.empty() ? json(nullptr) : json(found.advice);
    object["message"] = found.message.empty() ? json(nullptr) : json(found.message);
    object["line"] = found.line == 0 ? json(nullptr) : json(found.line);
    object["notes"] = found.notes;
    object["fits"] = json::array();
    for (const relocation_place& fit : found.fits)
        object["fits"].push_back(
            {{"kernel", fit.kernel}, {"relocation", or_null(fit.relocation)}, {"offset", fit.offset}});
    return object;
}

// The first report's members stand at the top, those of further ones in "more".
void print_explanations(const std::vector<abort_explanation>& explanations)
{
    json document;
    document.update(to_json(explanations.empty() ? abort_explanation() : explanations.front()));
    document["more"] = json::array();
    for (std::size_t i = 1; i < explanations.size(); ++i)
        document["more"].push_back(to_json(explanations[i]));
    print_json(document);
}

int explain(const explain_options& options)
{
    const std::string name = input_name(options.log);
    const auto [log, crash] = read_log_file(options.log);

    bool had_errors = false;
    dumps_of_process dumps;
    if (!options.dumps.empty() && !log.reports.empty()) {
        read_result read = read_set({options.dumps}, options.common);
        had_errors = !require_kernels(read, options.dumps) || read.had_errors;
        dumps.set = std::move(read.set);
        dumps.written = times_of_files(dumps.set);
    }

    std::vector<abort_explanation> explanations;
    for (const abort_report& report : log.reports)
        explanations.push_back(explain_report(log, report, dumps));
    if (options.common.format == "json") {
        print_explanations(explanations);
    } else {
        for (const abort_explanation& found : explanations)
            print_text(dumps, found, name, options.common);
        if (explanations.empty())
            print_way_on(options, name, crash);
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
