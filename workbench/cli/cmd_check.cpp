#include "workbench/analysis/check_dumps.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/render/table.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <regex>

namespace vorna::workbench {

namespace {

using wfta::finding_severity;
using wfta::kernel_finding;

struct check_options {
    common_options common;
    std::vector<std::string> dumps;
    bool strict = false;
    std::string abi = "aapcs64";
    std::string internal;
    wfta::analysis_options analysis;
};

struct severity_words {
    const char* word;
    table_level level;
    color paint;
};

const severity_words& words_of(finding_severity severity)
{
    static constexpr severity_words all[] = {{"note", table_level::notice, color::cyan},
                                             {"warning", table_level::warning, color::yellow},
                                             {"error", table_level::error, color::red}};
    return all[static_cast<std::size_t>(severity)];
}

struct checked_set {
    const kernel_set& set;
    std::vector<kernel_finding> findings;
    std::size_t relocations = 0;

    [[nodiscard]] std::size_t count(finding_severity severity) const
    {
        return static_cast<std::size_t>(
            std::count_if(findings.begin(), findings.end(),
                          [=](const auto& finding) { return finding.severity == severity; }));
    }
};

std::string place_of(const kernel_finding& finding)
{
    return finding.offset ? place_text(finding.kernel, *finding.offset) : place_text(finding.kernel);
}

// The instruction of a finding, and its relocation.
std::string evidence(const kernel_set& set, const kernel_finding& finding, disassembler& disassembler)
{
    const placed_kernel& kernel = set.kernels[finding.index];
    std::string text;
    if (finding.offset && lies_within(kernel.text, *finding.offset)) {
        const auto offset = static_cast<std::size_t>(*finding.offset);
        text = fmt::format("    {:08x}  {}", word_at(kernel.text, offset),
                           generated_text(kernel, offset, disassembler));
    }
    if (finding.relocation && *finding.relocation < kernel.relocs.size()) {
        const tessjit::reloc_info& reloc = kernel.relocs[*finding.relocation];
        text = fmt::format("{:<36}  relocation {} of {}: {} {} {}", text.empty() ? "    " : text,
                           *finding.relocation + 1, kernel.relocs.size(), printable(reloc.name),
                           reloc.addend < 0 ? '-' : '+', std::abs(std::int64_t{reloc.addend}));
    }
    return text;
}

// "6 kernels, 14 relocations: 3 errors, 1 note"
std::string summary(const checked_set& checked)
{
    std::string text = fmt::format("{}, {}: ", pluralize(checked.set.kernels.size(), "kernel"),
                                   pluralize(checked.relocations, "relocation"));
    if (checked.findings.empty())
        return text + "no findings";
    const char* separator = "";
    for (const finding_severity severity :
         {finding_severity::error, finding_severity::warning, finding_severity::note}) {
        const std::size_t count = checked.count(severity);
        if (count == 0)
            continue;
        text += separator + pluralize(count, words_of(severity).word);
        separator = ", ";
    }
    return text;
}

table table_of(const checked_set& checked)
{
    table made;
    made.columns = {{"place", column_kind::name, shown_in::text},
                    {"severity", column_kind::text, shown_in::text},
                    {"finding"}};
    made.summary = summary(checked);
    disassembler disassembler;
    for (const kernel_finding& finding : checked.findings) {
        const severity_words& words = words_of(finding.severity);
        table_row row;
        row.level = words.level;
        row.cells = {{place_of(finding)},
                     {words.word, words.paint},
                     {fmt::format("{} [{}]", printable(finding.message), name_of(finding.id))}};
        row.evidence = evidence(checked.set, finding, disassembler);
        if (!finding.note.empty())
            row.remarks.push_back({"note", printable(finding.note)});
        if (!finding.help.empty())
            row.remarks.push_back({"help", printable(finding.help)});
        made.rows.push_back(std::move(row));
    }
    return made;
}

void print_findings(const checked_set& checked)
{
    json findings = json::array();
    for (const kernel_finding& finding : checked.findings) {
        findings.push_back({{"id", name_of(finding.id)},
                            {"severity", words_of(finding.severity).word},
                            {"aborts", finding.aborts},
                            {"kernel", finding.kernel},
                            {"relocation", finding.relocation ? json(*finding.relocation) : json()},
                            {"offset", finding.offset ? json(*finding.offset) : json()},
                            {"message", finding.message},
                            {"note", finding.note},
                            {"help", finding.help}});
    }
    print_json({{"kernels", checked.set.kernels.size()},
                {"relocations", checked.relocations},
                {"findings", findings}});
}

std::string wrong_pattern(const std::string& pattern)
{
    try {
        const std::regex compiled(pattern);
    } catch (const std::regex_error&) {
        return fmt::format("'{}' is not a regular expression", pattern);
    }
    return {};
}

int check(const check_options& options)
{
    const read_result read = read_set(options.dumps, options.common);
    if (!require_kernels(read, join_some(options.dumps)))
        return exit_error;
    wfta::analysis_options analysis = options.analysis;
    analysis.aapcs64 = options.abi == "aapcs64";
    if (!options.internal.empty()) {
        analysis.is_internal = [pattern = std::regex(options.internal)](const std::string& name) {
            return std::regex_search(name, pattern);
        };
    }
    checked_set checked = {read.set, check_dumps(read.set, analysis)};
    refuse_mixture(read.set, checked.findings);
    for (const placed_kernel& kernel : read.set.kernels)
        checked.relocations += kernel.relocs.size();
    if (options.common.format == "json")
        print_findings(checked);
    else
        fmt::print("{}", format_table(table_of(checked), options.common.format, use_color(options.common)));
    if (read.had_errors)
        return exit_error;
    const bool found = checked.count(finding_severity::error) != 0 ||
                       (options.strict && checked.count(finding_severity::warning) != 0);
    return found ? exit_findings : exit_success;
}

} // namespace

void add_check(command_line& program, int& status)
{
    const auto options = std::make_shared<check_options>();
    command_line command = program.add_command("check", "Check kernels for mistakes");
    command.add_option("DUMPS", options->dumps, "Directories of dumps, or dumps, all of one process")
        .required();
    command.add_flag("--strict", options->strict, "Exit with 1 on warnings as well");
    add_processor_option(command, options->analysis.cpu, "Report instructions that this processor lacks");
    command.add_option("--abi", options->abi, "The calling convention that kernels keep")
        .one_of({"aapcs64", "none"});
    command
        .add_option("--internal", options->internal,
                    "Kernels that only others call, by a convention of their own")
        .type_name("REGEX")
        .check(wrong_pattern, "REGEX");
    add_common_options(command, options->common, {"text", "json", "github"});
    command.footer("Exit status: 0 no errors, 1 errors found, 2 dumps could not be read.");
    command.run([options, &status] { status = check(*options); });
}

} // namespace vorna::workbench
