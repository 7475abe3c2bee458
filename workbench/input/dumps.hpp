// The reader of dumps: ELF objects as the finaliser's object dump writes them.
#pragma once

#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// What was read, and what could not be.
struct dump_reading {
    kernel_set set;
    std::vector<std::string> errors;  ///< a line each, starting with the file
    std::vector<std::string> skipped; ///< files in directories that are not ELF objects, a line each
};

/// Called while files are read, with how many of how many are done.
using reading_progress = std::function<void(std::size_t done, std::size_t all)>;

/// Reads every dump: each of `paths` is a file, or a directory (not its subdirectories) whose ELF files are
/// read. A file that occurs twice is read once. Kernels that overlap are of two runs: an error, in one line
/// that names both, and the set is empty. An error in a file is reported in one line, and the others are
/// read.
dump_reading read_dumps(const std::vector<std::string>& paths, const reading_progress& progress = {});

/// The kernels of one dump's image. Throws std::runtime_error with a short reason that does not name the
/// file.
std::vector<placed_kernel> parse_dump(const void* image, std::size_t size);

} // namespace vorna::workbench
