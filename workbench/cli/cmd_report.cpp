#include "workbench/render/page/page.hpp"

#include "workbench/analysis/check_dumps.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/cli/processors.hpp"
#include "workbench/cli/profile_input.hpp"
#include "workbench/os/replace_file.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/printable.hpp"

#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace vorna::workbench {

namespace {

struct report_options {
    common_options common;
    std::string dumps;
    profile_options profile;
    std::string against;
    std::vector<std::string> processors;
    std::string page;
};

// What the page calls the dumps: as they were named, but "." by the directory's own name.
std::string name_of(const std::string& dumps)
{
    const std::string last = std::filesystem::path(dumps).filename().string();
    if (!last.empty() && last != "." && last != "..")
        return dumps;
    std::error_code error;
    std::filesystem::path path = std::filesystem::canonical(dumps, error);
    return error || path.filename().empty() ? dumps : path.filename().string();
}

int report(const report_options& options)
{
    const model_list processors = load_models(options.processors);
    read_result read = read_set({options.dumps}, options.common);
    bool any = require_kernels(read, options.dumps);
    read_result before;
    if (!options.against.empty()) {
        before = read_set({options.against}, options.common);
        any = require_kernels(before, options.against) && any;
    }
    if (!any)
        return exit_error;
    refuse_dump(read.set, options.page);
    refuse_dump(before.set, options.page);

    page_input input;
    input.name = name_of(options.dumps);
    input.set = &read.set;
    input.findings = check_dumps(read.set);
    refuse_mixture(read.set, input.findings);
    if (!options.against.empty()) {
        input.against = &before.set;
        input.against_name = name_of(options.against);
    }
    if (!processors.empty())
        input.processors = &processors;
    profile profile;
    if (options.profile.given()) {
        std::error_code ignored;
        if (std::filesystem::equivalent(options.profile.file(), options.page, ignored))
            throw std::runtime_error(options.page + ": is the profile; not overwritten");
        profile = read_profile(options.profile, read.set, read.had_errors);
        input.profile = choose_event(profile, options.profile.event);
        if (input.profile == nullptr)
            throw std::runtime_error(options.profile.file() + ": no samples found");
    }

    progress_line progress("kernels");
    input.progress = [&progress](std::size_t done, std::size_t all) { progress.show(done, all); };
    const std::string page = make_page(input);
    progress.clear();
    replace_file(options.page, page);
    if (options.common.format == "json") {
        json document;
        document["page"] = options.page;
        document["bytes"] = page.size();
        document["kernels"] = read.set.kernels.size();
        document["mappings"] = read.set.mappings.size();
        document["event"] = input.profile == nullptr ? json() : json(input.profile->event);
        print_json(document);
    } else {
        fmt::print("{}: {}, {}{}, {} KiB\n", printable(options.page),
                   pluralize(read.set.kernels.size(), "kernel"),
                   pluralize(read.set.mappings.size(), "mapping"),
                   input.profile == nullptr ? "" : ", profile " + printable(input.profile->event),
                   with_separators((page.size() + 1023) / 1024));
    }
    return read.had_errors || before.had_errors ? exit_error : exit_success;
}

} // namespace

void add_report(command_line& program, int& status)
{
    const auto options = std::make_shared<report_options>();
    command_line command = program.add_command("report", "Write an HTML page about all kernels");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("-o,--output", options->page, "Page to write, one self-contained file")
        .type_name("FILE.html")
        .required();
    add_profile_options(command, options->profile);
    command.add_option("--against", options->against, "Dumps before a change, to compare with")
        .type_name("OLD");
    add_processors(command, options->processors,
                   "Estimate cycles on these processors, and mark critical chains");
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 success, 2 error.");
    command.run([options, &status] {
        if (!options->profile.event.empty() && !options->profile.given())
            refuse_option("--event", "requires a profile");
        status = report(*options);
    });
}

} // namespace vorna::workbench
