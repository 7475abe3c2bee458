#include "workbench/analysis/check_dumps.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/json.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/github.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>

namespace vorna::workbench {

namespace {

using wfta::finding_severity;
using wfta::kernel_finding;

struct check_options {
    common_options common;
    std::vector<std::string> dumps;
    bool strict = false;
};

struct severity_words {
    const char* word;       ///< in text and JSON
    const char* annotation; ///< on GitHub
    color paint;
};

const severity_words& words_of(finding_severity severity)
{
    static constexpr severity_words all[] = {{"note", "notice", color::cyan},
                                             {"warning", "warning", color::yellow},
                                             {"error", "error", color::red}};
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

void print_text(const checked_set& checked, bool colored)
{
    disassembler disassembler;
    for (const kernel_finding& finding : checked.findings) {
        const severity_words& words = words_of(finding.severity);
        fmt::print("{}: {}: {} [{}]\n", colorize(place_of(finding), color::bold, colored),
                   colorize(words.word, words.paint, colored), printable(finding.message),
                   name_of(finding.id));
        const std::string shown = evidence(checked.set, finding, disassembler);
        if (!shown.empty())
            fmt::print("{}\n", shown);
        for (const auto& [label, line] :
             {std::pair("note", &finding.note), std::pair("help", &finding.help)}) {
            if (!line->empty())
                fmt::print("    {}\n",
                           colorize(fmt::format("{}: {}", label, printable(*line)), color::dim, colored));
        }
    }
    fmt::print("{}\n", summary(checked));
}

void print_github(const checked_set& checked)
{
    for (const kernel_finding& finding : checked.findings) {
        std::string message = fmt::format("{} [{}]", printable(finding.message), name_of(finding.id));
        for (const std::string* const line : {&finding.note, &finding.help}) {
            if (!line->empty())
                message += "\n" + printable(*line);
        }
        fmt::print("{}",
                   github_annotation(words_of(finding.severity).annotation, place_of(finding), message));
    }
    fmt::print("{}\n", summary(checked));
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

int check(const check_options& options)
{
    const read_result read = read_set(options.dumps, options.common);
    if (!require_kernels(read, join_some(options.dumps)))
        return exit_error;
    checked_set checked = {read.set, check_dumps(read.set)};
    refuse_mixture(read.set, checked.findings);
    for (const placed_kernel& kernel : read.set.kernels)
        checked.relocations += kernel.relocs.size();
    if (options.common.format == "json")
        print_findings(checked);
    else if (options.common.format == "github")
        print_github(checked);
    else
        print_text(checked, use_color(options.common));
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
    add_common_options(command, options->common, {"text", "json", "github"});
    command.footer("Exit status: 0 no errors, 1 errors found, 2 dumps could not be read.");
    command.run([options, &status] { status = check(*options); });
}

} // namespace vorna::workbench
