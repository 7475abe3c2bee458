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
    std::vector<std::string> errors;  ///< a line each, the file first
    std::vector<std::string> skipped; ///< what is no ELF file, or no object file, in a directory, a line each
};

/// Told, while files are read, how many of how many are done.
using reading_progress = std::function<void(std::size_t done, std::size_t all)>;

/// Reads every dump: each of `paths` is a file, or a directory (not its subdirectories) of which every ELF
/// file is read; a file that is there twice is read once. Kernels that overlap are an error, in one line
/// that names both, and leave the set empty: they are of two runs. Reports what is wrong with a file in one
/// line and goes on with the others.
dump_reading read_dumps(const std::vector<std::string>& paths, const reading_progress& progress = {});

/// The kernels of one dump's image. Throws std::runtime_error with what is wrong with it, in a few words that
/// do not name the file.
std::vector<placed_kernel> parse_dump(const void* image, std::size_t size);

} // namespace vorna::workbench
