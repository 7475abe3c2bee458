#include "workbench/analysis/check_dumps.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/image/elf_image.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/os/replace_file.hpp"
#include "workbench/render/color.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <fmt/format.h>
#include <memory>
#include <stdexcept>

namespace vorna::workbench {

namespace {

struct link_options {
    common_options common;
    std::string dumps;
    std::string image;
};

std::string place_of(const kernel_set& set, const link_finding& finding)
{
    const placed_kernel& kernel = set.kernels[finding.kernel];
    return finding.relocation < kernel.relocs.size()
               ? place_text(kernel.name, kernel.relocs[finding.relocation].offset)
               : place_text(kernel.name);
}

std::vector<std::vector<std::string>> names_by_mapping(const kernel_set& set)
{
    std::vector<std::vector<std::string>> names(set.mappings.size());
    for (const placed_kernel& kernel : set.kernels)
        names[kernel.mapping].push_back(kernel.name);
    return names;
}

void print_text(const kernel_set& set, const linked_set& linked, const std::string& image,
                const std::string& build_id, bool colored)
{
    for (const link_finding& finding : linked.findings) {
        fmt::print("{}: {} {} [{}]\n", place_of(set, finding), colorize("error:", color::red, colored),
                   finding.message, name_of(finding.id));
        if (!finding.evidence.empty())
            fmt::print("    {}\n", finding.evidence);
    }
    std::size_t code_bytes = 0;
    std::size_t data_bytes = 0;
    for (const placed_kernel& kernel : set.kernels) {
        code_bytes += kernel.text.size();
        data_bytes += kernel.data.size();
    }
    fmt::print("{}, {}, {} of code, {} of data -> {}\n", pluralize(set.mappings.size(), "mapping"),
               pluralize(set.kernels.size(), "kernel"), pluralize(code_bytes, "byte"), data_bytes,
               printable(image));
    const std::vector<std::vector<std::string>> names = names_by_mapping(set);
    for (std::size_t i = 0; i < set.mappings.size(); ++i)
        fmt::print("  {:#x}  {}\n", set.mappings[i].begin, join_some(names[i]));
    fmt::print("gdb:  add-symbol-file {0}\n"
               "perf: perf buildid-cache --add {0}\n"
               "      perf inject -b --known-build-ids='{1} /tmp/perf-PID.map' -i perf.data -o kernels.data\n"
               "      perf annotate -i kernels.data\n",
               printable(image), build_id);
}

void print_image(const kernel_set& set, const linked_set& linked, const std::string& image,
                 const std::string& build_id)
{
    json mappings = json::array();
    for (const kernel_mapping& mapping : set.mappings)
        mappings.push_back(
            {{"begin", fmt::format("{:#x}", mapping.begin)}, {"end", fmt::format("{:#x}", mapping.end)}});
    json kernels = json::array();
    for (const placed_kernel& kernel : set.kernels) {
        kernels.push_back({{"kernel", kernel.name},
                           {"mapping", kernel.mapping},
                           {"address", fmt::format("{:#x}", kernel.text_address)},
                           {"bytes", kernel.text.size()},
                           {"data_address", fmt::format("{:#x}", kernel.data_address)},
                           {"data_bytes", kernel.data.size()}});
    }
    json findings = json::array();
    for (const link_finding& finding : linked.findings) {
        const placed_kernel& kernel = set.kernels[finding.kernel];
        json relocation;
        json offset;
        if (finding.relocation < kernel.relocs.size()) {
            relocation = finding.relocation;
            offset = kernel.relocs[finding.relocation].offset;
        }
        findings.push_back({{"id", name_of(finding.id)},
                            {"kernel", kernel.name},
                            {"relocation", relocation},
                            {"offset", offset},
                            {"message", finding.message}});
    }
    print_json({{"image", image},
                {"build_id", build_id},
                {"mappings", mappings},
                {"kernels", kernels},
                {"missing", linked.missing},
                {"findings", findings}});
}

int link(const link_options& options)
{
    const read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    refuse_dump(read.set, options.image);
    refuse_mixture(read.set, check_dumps(read.set));
    const linked_set linked = link_set(read.set);
    linked_image image;
    try {
        image = make_image(read.set, linked);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", options.image, error.what()));
    }
    replace_file(options.image, image.bytes);
    if (options.common.format == "json")
        print_image(read.set, linked, options.image, image.build_id);
    else
        print_text(read.set, linked, options.image, image.build_id, use_color(options.common));
    if (read.had_errors)
        return exit_error;
    return linked.findings.empty() ? exit_success : exit_findings;
}

} // namespace

void add_link(command_line& program, int& status)
{
    const auto options = std::make_shared<link_options>();
    command_line command = program.add_command("link", "Link kernels into one ELF image, for gdb and perf");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("-o,--output", options->image, "Image to write").type_name("IMAGE").required();
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 complete image, 1 incomplete image, 2 error.");
    command.run([options, &status] { status = link(*options); });
}

} // namespace vorna::workbench
