// The option --cpu of commands that say what code costs.
#pragma once

#include "workbench/analysis/cost.hpp"
#include "workbench/cli/options.hpp"

#include <string>
#include <vector>

namespace vorna::workbench {

/// Adds --cpu=NAME[,NAME...], described by `what`. --cpu=help prints all processors.
command_option add_processors(command_line& command, std::vector<std::string>& names,
                              const std::string& what);

/// The processors that are used without --cpu.
std::vector<std::string> default_processors();

/// A model for each name, once; "native" is the processor that this program runs on. Throws
/// std::runtime_error for a name that LLVM does not know.
model_list load_models(const std::vector<std::string>& names);

} // namespace vorna::workbench
