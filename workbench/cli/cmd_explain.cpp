#include "check/format.hpp"
#include "workbench/analysis/check_dumps.hpp"
#include "workbench/analysis/diagnose_abort.hpp"
#include "workbench/analysis/diagnose_crash.hpp"
#include "workbench/analysis/locate_abort.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/input/abort_log.hpp"
#include "workbench/input/crash_log.hpp"
#include "workbench/os/file.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/excerpt.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace vorna::workbench {

namespace {

using wfta::kernel_finding;

struct explain_options {
    common_options common;
    std::string log = "-";
    std::string dumps;
};

struct explanation {
    abort_location location;
    abort_diagnosis diagnosis;
};

/// What a log holds: reports of the finaliser, and crashes.
struct process_log {
    abort_log aborts;
    std::vector<crash_report> crashes;
};

process_log read_log_file(const std::string& path)
{
    try {
        abort_log_reader aborts;
        crash_log_reader crashes;
        read_pieces(open_input(path), [&](std::string_view piece) {
            aborts.read(piece);
            crashes.read(piece);
        });
        return {aborts.finish(), crashes.finish()};
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", input_name(path), error.what()));
    }
}

// How to get a PC, in commands to copy.
void print_commands(const explain_options& options, const crash_report* crash)
{
    const std::string dumps = options.dumps.empty() ? "DUMPS" : printable(options.dumps);
    const crash_reporter reporter = crash == nullptr ? crash_reporter::other : crash->reporter;
    fmt::print("help: vorna-kernels check {}\n", dumps);
    if (crash != nullptr && crash->pc) {
        fmt::print("help: the dumps of that process, as --dumps DUMPS, say which kernel {:#x} is in\n",
                   *crash->pc);
        return;
    }
    fmt::print(
        "help: from the address of the instruction explain finds the kernel; in an empty directory:\n");
    if (reporter == crash_reporter::qemu) {
        fmt::print(
            "      VORNA_WFTA_DUMP_KERNEL= qemu-aarch64 -g ../gdb.socket HOST & sleep 1\n"
            "      gdb-multiarch -q -batch -ex 'target remote ../gdb.socket' -ex continue -ex bt -ex 'info "
            "registers' HOST >../crash.log\n");
    } else {
        fmt::print(
            "      VORNA_WFTA_DUMP_KERNEL= gdb -q -batch -ex run -ex bt -ex 'info registers' --args HOST "
            ">../crash.log\n");
    }
    fmt::print("      vorna-kernels explain ../crash.log --dumps .\n"
               "help: if there is a core of the process that wrote {0}:\n"
               "      vorna-kernels link {0} -o kernels.elf\n"
               "      gdb -q -batch -ex 'add-symbol-file kernels.elf' -ex bt -ex 'info registers' HOST CORE "
               ">crash.log\n"
               "      vorna-kernels explain crash.log --dumps {0}\n",
               dumps);
}

// A log without a report: the finaliser has not ended the process, but a kernel may have.
void print_no_report(const explain_options& options, const std::string& log_name, const crash_report* crash)
{
    fmt::print("no report of an abort in {}\n", printable(log_name));
    if (crash != nullptr) {
        fmt::print("note: an instruction raised a signal, perhaps a kernel's\n"
                   "  --> {}:{}: {}\n",
                   printable(log_name), crash->line, printable(crash->text));
    } else {
        fmt::print("note: the finaliser did not abort the process; a kernel that crashes leaves no report\n");
    }
    print_commands(options, crash);
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

/// A crash, and what was found about it.
struct explained_crash {
    const crash_report* crash = nullptr;
    crash_diagnosis diagnosis;
};

std::string place_of(const kernel_finding& finding)
{
    return finding.offset ? place_text(finding.kernel, *finding.offset) : place_text(finding.kernel);
}

void print_crash_instructions(const kernel_set& dumps, const address_location& at, bool colored)
{
    const placed_kernel& kernel = dumps.kernels[*at.kernel];
    if (kernel.text.size() > largest_decoded_code)
        return;
    disassembler disassembler;
    const kernel_listing listing = list_kernel(dumps, kernel, disassembler);
    const std::size_t last = listing.rows.empty() ? 0 : listing.rows.size() - 1;
    const std::size_t row = at.part == address_part::code ? row_at(listing.rows, at.offset) : last;
    if (at.part == address_part::code || (at.part == address_part::padding && !at.after_constants))
        fmt::print("{}", excerpt_text(listing.rows, row, offset_digits(kernel), colored));
}

void print_text(const kernel_set& dumps, const explained_crash& found,
                const std::vector<kernel_finding>& findings, const std::string& log_name, bool colored)
{
    const crash_diagnosis& diagnosis = found.diagnosis;
    fmt::print("{}: {}\n", colorize("error", color::red, colored),
               colorize(printable(diagnosis.message), color::bold, colored));
    const std::size_t line = diagnosis.at ? found.crash->pc_line : found.crash->line;
    const std::string in_log = fmt::format("{}:{}", printable(log_name), line);
    fmt::print("  --> {}\n",
               diagnosis.at ? fmt::format("{} ({})", location_text(dumps, *diagnosis.at), in_log) : in_log);
    if (diagnosis.at && diagnosis.at->kernel)
        print_crash_instructions(dumps, *diagnosis.at, colored);
    for (const kernel_caller& caller : diagnosis.callers)
        fmt::print("note: called from {} ({}:{})\n", location_text(dumps, caller.location),
                   printable(log_name), caller.line);
    for (const std::string& note : diagnosis.notes)
        fmt::print("note: {}\n", note);
    if (!diagnosis.cause.empty())
        fmt::print("note: {}\n", diagnosis.cause);
    for (const std::string& help : diagnosis.help)
        fmt::print("help: {}\n", help);
    for (const std::size_t index : diagnosis.findings) {
        const kernel_finding& finding = findings[index];
        fmt::print("note: {}: {} [{}]\n", place_of(finding), printable(finding.message), name_of(finding.id));
        if (!finding.help.empty())
            fmt::print("help: {}\n", printable(finding.help));
    }
    if (diagnosis.more_findings != 0)
        fmt::print("note: {} more in these kernels, see vorna-kernels check\n",
                   pluralize(diagnosis.more_findings, "finding"));
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

json to_json(const kernel_set& dumps, const address_location& at)
{
    json object;
    object["address"] = fmt::format("{:#x}", at.address);
    object["part"] = at.part == address_part::nothing ? json() : json(name_of(at.part));
    object["kernel"] = at.kernel ? json(dumps.kernels[*at.kernel].name) : json();
    object["offset"] = at.kernel ? json(at.offset) : json();
    return object;
}

json to_json(const kernel_finding& finding)
{
    return {{"id", name_of(finding.id)},
            {"kernel", finding.kernel},
            {"offset", or_null(finding.offset)},
            {"message", finding.message},
            {"help", finding.help}};
}

json to_json(const kernel_set& dumps, const crash_report& crash)
{
    json object = {{"line", crash.line}, {"text", crash.text}};
    const bool known = crash.signal != crash_signal::unknown;
    object["signal"] = known ? json(name_of(crash.signal)) : json();
    const bool located = crash.pc && !dumps.kernels.empty();
    object["pc"] = located    ? to_json(dumps, locate_address(dumps, *crash.pc))
                   : crash.pc ? json{{"address", fmt::format("{:#x}", *crash.pc)}}
                              : json();
    return object;
}

json to_json(const kernel_set& dumps, const explained_crash& found,
             const std::vector<kernel_finding>& findings)
{
    const crash_diagnosis& diagnosis = found.diagnosis;
    json object = to_json(dumps, *found.crash);
    object["message"] = diagnosis.message;
    object["cause"] = or_null(diagnosis.cause);
    object["notes"] = diagnosis.notes;
    object["help"] = diagnosis.help;
    object["callers"] = json::array();
    for (const kernel_caller& caller : diagnosis.callers)
        object["callers"].push_back(to_json(dumps, caller.location));
    object["findings"] = json::array();
    for (const std::size_t index : diagnosis.findings)
        object["findings"].push_back(to_json(findings[index]));
    return object;
}

// The first report's members stand at the top, those of further ones in "more"; the first crash in "crash".
void print_explanations(const std::vector<explanation>& explanations, const std::vector<json>& crashes)
{
    json document;
    document.update(to_json(explanations.empty() ? explanation() : explanations.front()));
    document["more"] = json::array();
    for (std::size_t i = 1; i < explanations.size(); ++i)
        document["more"].push_back(to_json(explanations[i]));
    document["crash"] = crashes.empty() ? json() : crashes.front();
    document["more_crashes"] = json::array();
    for (std::size_t i = 1; i < crashes.size(); ++i)
        document["more_crashes"].push_back(crashes[i]);
    print_json(document);
}

void explain_reports(const explain_options& options, const abort_log& log, const dumps_of_process& dumps)
{
    std::vector<explanation> explanations;
    for (const abort_report& report : log.reports) {
        abort_location location = locate_abort(log, report, dumps);
        abort_diagnosis diagnosis = diagnose_abort(location, dumps.set);
        explanations.push_back({std::move(location), std::move(diagnosis)});
    }
    if (options.common.format == "json")
        return print_explanations(explanations, {});
    for (const explanation& found : explanations)
        print_text(dumps.set, found, input_name(options.log), options.common);
    if (log.more_reports == 0)
        fmt::print("{}\n", pluralize(explanations.size(), "report"));
    else
        fmt::print("{} explained, {} more skipped\n", pluralize(explanations.size(), "report"),
                   log.more_reports);
    if (options.dumps.empty())
        fmt::print(
            "note: with the dumps of that process, --dumps DUMPS gives the relocation and its correction\n");
}

// Returns whether a crash has an address, so that it could be explained.
bool explain_crashes(const explain_options& options, std::vector<crash_report> crashes,
                     const kernel_set& dumps)
{
    // Other programs print backtraces too, without a crash.
    crashes.erase(std::remove_if(crashes.begin(), crashes.end(),
                                 [&](const crash_report& crash) {
                                     return crash.signal == crash_signal::unknown &&
                                            !meets_kernels(crash, dumps);
                                 }),
                  crashes.end());
    std::vector<kernel_finding> findings;
    if (!crashes.empty())
        findings = check_dumps(dumps);
    std::vector<explained_crash> explained;
    std::vector<json> objects;
    for (const crash_report& crash : crashes) {
        crash_diagnosis diagnosis = diagnose_crash(crash, dumps, findings);
        if (!diagnosis.known) {
            objects.push_back(to_json(dumps, crash));
            continue;
        }
        explained.push_back({&crash, std::move(diagnosis)});
        objects.push_back(to_json(dumps, explained.back(), findings));
    }
    if (options.common.format == "json") {
        print_explanations({}, objects);
    } else if (explained.empty()) {
        print_no_report(options, input_name(options.log), crashes.empty() ? nullptr : &crashes.front());
    } else {
        for (const explained_crash& found : explained)
            print_text(dumps, found, findings, input_name(options.log), use_color(options.common));
        fmt::print("{} {}\n", explained.size(), explained.size() == 1 ? "crash" : "crashes");
    }
    return !explained.empty();
}

int explain(const explain_options& options)
{
    process_log log = read_log_file(options.log);
    bool had_errors = false;
    dumps_of_process dumps;
    if (!options.dumps.empty() && !(log.aborts.reports.empty() && log.crashes.empty())) {
        read_result read = read_set({options.dumps}, options.common);
        had_errors = !require_kernels(read, options.dumps) || read.had_errors;
        dumps.set = std::move(read.set);
        dumps.written = times_of_files(dumps.set);
    }
    bool explained = true;
    if (!log.aborts.reports.empty())
        explain_reports(options, log.aborts, dumps);
    else
        explained = explain_crashes(options, std::move(log.crashes), dumps.set);
    if (had_errors)
        return exit_error;
    return explained ? exit_success : exit_findings;
}

} // namespace

void add_explain(command_line& program, int& status)
{
    const auto options = std::make_shared<explain_options>();
    command_line command =
        program.add_command("explain", "Explain an abort by the finaliser, or a crash in a kernel");
    command.add_option(
        "LOG", options->log,
        "The process's stderr, or what a debugger printed (default, and with -: standard input)");
    command.add_option("--dumps", options->dumps, "The process's dumps: a directory, or one dump")
        .type_name("DUMPS");
    command.footer(
        "Exit status: 0 explained, 1 neither an abort nor a crash with an address in the log, 2 error.");
    add_common_options(command, options->common, {"text", "json"});
    command.run([options, &status] { status = explain(*options); });
}

} // namespace vorna::workbench
