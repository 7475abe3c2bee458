#include "workbench/cli/command.hpp"

#include "check/nearest_name.hpp"
#include "workbench/disasm/features.hpp"
#include "workbench/input/dumps.hpp"
#include "workbench/os/file.hpp"
#include "workbench/text/printable.hpp"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace vorna::workbench {

void add_common_options(command_line& command, common_options& options,
                        const std::vector<std::string>& formats)
{
    options.format = formats.front();
    command.add_option("--format", options.format, "Output format (default: " + formats.front() + ")")
        .one_of(formats);
    command.add_option("--color", options.color, "Use colour (default: auto, on a terminal)")
        .one_of({"always", "never", "auto"});
    command.add_flag("--verbose", options.verbose, "Report skipped files");
}

bool use_color(const common_options& options)
{
    if (options.color != "auto")
        return options.color == "always";
    const char* const no_color = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    const bool plain = terminal == nullptr || *terminal == '\0' || std::string_view(terminal) == "dumb";
    return (no_color == nullptr || *no_color == '\0') && !plain && is_terminal(stdout);
}

void print_error(const std::string& text)
{
    const std::string line = fmt::format("vorna-kernels: {}\n", printable(text));
    std::fwrite(line.data(), 1, line.size(), stderr); // an error here cannot be reported
}

progress_line::progress_line(std::string what) : what_(std::move(what)), terminal_(is_terminal(stderr)) {}

void progress_line::show(std::size_t done, std::size_t all)
{
    if (!terminal_)
        return;
    const clock::time_point now = clock::now();
    if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(100))
        return;
    last_ = now;
    shown_ = true;
    fmt::print(stderr, "\r{} of {} {}\x1b[K", done, all, what_);
}

void progress_line::clear()
{
    if (shown_)
        fmt::print(stderr, "\r\x1b[K");
    shown_ = false;
}

read_result read_set(const std::vector<std::string>& paths, const common_options& options)
{
    progress_line line("files");
    const auto progress = [&](std::size_t done, std::size_t all) { line.show(done, all); };
    dump_reading reading = read_dumps(paths, progress);
    line.clear();
    for (const std::string& error : reading.errors)
        print_error(error);
    if (options.verbose) {
        for (const std::string& file : reading.skipped)
            print_error("skipped: " + file);
    }
    return {std::move(reading.set), !reading.errors.empty()};
}

bool require_kernels(const read_result& read, const std::string& path)
{
    if (read.set.kernels.empty() && !read.had_errors)
        print_error(path + ": no dumps found");
    return !read.set.kernels.empty();
}

void refuse_dump(const kernel_set& set, const std::string& file)
{
    std::error_code error;
    if (!std::filesystem::exists(file, error))
        return;
    for (const placed_kernel& kernel : set.kernels) {
        if (std::filesystem::equivalent(file, kernel.file, error))
            throw std::runtime_error(file + ": is one of the dumps; not overwritten");
    }
}

void add_processor_option(command_line& command, std::string& processor, const std::string& description)
{
    command.add_option("--cpu", processor, description + "; \"help\" lists the names")
        .type_name("NAME")
        .help([] { return fmt::format("{}", fmt::join(processor_names(), "\n")); })
        .check(
            [](const std::string& name) {
                if (find_processor(name))
                    return std::string();
                wfta::nearest_name_search search(name, wfta::name_candidates::all);
                for (const std::string& known : processor_names())
                    search.offer(known);
                return fmt::format("no processor {}; {}", name,
                                   search.nearest().empty() ? "--cpu=help lists them"
                                                            : "did you mean " + search.nearest() + "?");
            },
            "");
}

std::vector<const placed_kernel*> select_kernels(const kernel_set& set, const std::vector<std::string>& names,
                                                 bool& had_errors)
{
    std::vector<const placed_kernel*> selected;
    if (names.empty()) {
        for (const placed_kernel& kernel : set.kernels)
            selected.push_back(&kernel);
    }
    for (const std::string& name : names) {
        if (const placed_kernel* const kernel = find_kernel(set, name)) {
            selected.push_back(kernel);
            continue;
        }
        const std::string nearest = nearest_name(set, name);
        print_error(fmt::format("no kernel {} in the dumps{}", name,
                                nearest.empty() ? "" : "; did you mean " + nearest + "?"));
        had_errors = true;
    }
    return selected;
}

} // namespace vorna::workbench
