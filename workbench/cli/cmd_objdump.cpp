#include "workbench/cli/command.hpp"
#include "workbench/os/file.hpp"
#include "workbench/os/process.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <elf.h>
#include <fmt/format.h>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace vorna::workbench {

namespace {

struct objdump_options {
    std::string image;
    std::string program;
};

/// e_machine of an ELF file; EM_NONE of anything else.
Elf64_Half machine_of(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    char header[offsetof(Elf64_Ehdr, e_machine) + sizeof(Elf64_Half)] = {};
    file.read(header, sizeof header);
    Elf64_Half machine = EM_NONE;
    if (file && std::memcmp(header, ELFMAG, SELFMAG) == 0 && header[EI_DATA] == ELFDATA2LSB)
        std::memcpy(&machine, header + offsetof(Elf64_Ehdr, e_machine), sizeof machine);
    return machine;
}

/// The disassembler for a file: the machine's own objdump, which elsewhere than on AArch64 seldom knows
/// AArch64.
std::string objdump_for(const std::string& file)
{
#ifdef __aarch64__
    constexpr bool native = true;
#else
    constexpr bool native = false;
#endif
    if (native || machine_of(file) != EM_AARCH64)
        return "objdump";
    for (const char* const program : {"aarch64-linux-gnu-objdump", "llvm-objdump"}) {
        if (is_on_path(program))
            return program;
    }
    return "objdump";
}

/// Whether this is what perf takes for the file of code that it knows from a map.
bool is_perf_map(const std::string& argument)
{
    constexpr std::string_view suffix = ".map";
    return argument.size() > suffix.size() && argument.front() != '-' &&
           std::string_view(argument).substr(argument.size() - suffix.size()) == suffix;
}

void run_objdump(const objdump_options& options, std::vector<std::string> arguments)
{
    for (std::string& argument : arguments) {
        if (!is_perf_map(argument))
            continue;
        try {
            open_input(options.image);
        } catch (const std::system_error& error) {
            throw std::runtime_error(fmt::format("{}: {}", options.image, error.what()));
        }
        argument = options.image;
    }
    const std::string program = !options.program.empty() ? options.program
                                : arguments.empty()      ? "objdump"
                                                         : objdump_for(arguments.back());
    arguments.insert(arguments.begin(), program);
    exec_program(arguments);
}

} // namespace

void add_objdump(command_line& program)
{
    const auto options = std::make_shared<objdump_options>();
    command_line command =
        program.add_command("objdump", "Stand in for objdump, so that perf annotate can show kernels");
    command.help_only_by("--help"); // -h is one of objdump's options
    command
        .add_option("--image", options->image, "Image written by link, read in place of a perf map (*.map)")
        .type_name("IMAGE")
        .required();
    command
        .add_option("--objdump", options->program,
                    "objdump to run (default: one that supports the file's machine)")
        .type_name("PROGRAM");
    command.footer("  perf annotate --objdump='vorna-kernels objdump --image=IMAGE'\n"
                   "All other arguments are passed to objdump.");
    command.keep_remaining();
    command.run([options, command] { run_objdump(*options, command.remaining()); });
}

} // namespace vorna::workbench
