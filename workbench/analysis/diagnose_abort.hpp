// Why the finaliser refused a relocation, and what to do about it.
#pragma once

#include "workbench/analysis/locate_abort.hpp"

#include <string>

namespace vorna::workbench {

/// One line each.
struct abort_diagnosis {
    std::string message; ///< what is wrong
    std::string cause;   ///< the likely one; empty if unknown
    std::string help;    ///< what to do
};

abort_diagnosis diagnose_abort(const abort_location& location, const kernel_set& dumps);

} // namespace vorna::workbench
