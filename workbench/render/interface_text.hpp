// A kernel's interface as text and as JSON, and registers as a short list.
#pragma once

#include "workbench/analysis/interface.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/render/json.hpp"

#include <string>
#include <vector>

namespace vorna::workbench {

/// "x0-x3, x8, d8, d9": three or more consecutive registers as a range.
std::string register_list(const std::vector<std::string>& names);

/// "x0-x3, v0, p1, nzcv". Without SP, which hardly any code does without.
std::string register_list(register_set registers);

/// What the kernel reads, writes, saves, needs and so on, as one line. Offsets have at least that many
/// digits.
std::string interface_text(const kernel_interface& interface, int offset_digits = 2);

/// The same as indented lines of at most 100 columns, as far as its names allow.
std::vector<std::string> interface_lines(const kernel_interface& interface, int offset_digits = 2);

json interface_json(const kernel_interface& interface);

} // namespace vorna::workbench
