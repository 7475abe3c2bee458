// Runs programs of the build machine: binutils, LLVM, elfutils, linkers, debuggers.
#pragma once

#include "tests/support/child.hpp"

#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace support {

/// Runs `arguments`, a program and its arguments, in `directory`, without a shell. If there is no such
/// program, the exit status is 127, and a line on `err` says so.
inline child_result run_tool(std::vector<std::string> arguments, const std::filesystem::path& directory)
{
    child_options options;
    options.directory = directory;
    // Messages not translated, and without the user's debuginfod servers.
    options.environment = {{"LC_ALL", "C"}, {"DEBUGINFOD_URLS", ""}};
    return run_in_child(
        [&] {
            std::vector<char*> argv;
            argv.reserve(arguments.size() + 1);
            for (std::string& argument : arguments) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            std::perror(argv[0]);
            _exit(127);
        },
        options);
}

} // namespace support
