// The base procedure call standard of the AAPCS64, and where a kernel does not keep it.
#pragma once

#include "check/finding_list.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/data_flow.hpp"
#include "workbench/disasm/decoded_kernel.hpp"

#include <cstddef>
#include <functional>

namespace vorna::workbench {

/// X0 to X8, V0 to V7, X29, X30 and SP.
const register_set& given_registers();

/// X19 to X29, SP and V8 to V15. Only the low 64 bits of a vector register are preserved.
const register_set& preserved_registers();

/// The registers that may hold arguments and results: X0 to X8, V0 to V7.
const register_set& argument_registers();

/// Which convention a kernel keeps.
enum class call_convention {
    none,     ///< unknown: nothing is reported but unreachable code
    aapcs64,  ///< also with SVE arguments, see below
    internal, ///< one of its own, for callers that are kernels: SP and X30 are as in the AAPCS64
};

/// Adds the findings abi-*, reads-*, unreachable-code and unfollowed of a kernel.
///
/// A kernel that uses P0 to P3 without setting them has SVE arguments, so it must preserve Z8 to Z23 and P4
/// to P15. One that uses the upper parts of Z0 to Z7 may have them: then these findings are warnings, since
/// code for NEON arguments may use SVE instructions on whole registers. SVE results alone cannot be told.
///
/// `effect_of` gives the effect of calling a kernel, by the number of the relocation of the BL, or null if it
/// is not known: a register that a callee happens to keep may be used after the call, though the AAPCS64 does
/// not say so.
void find_convention_findings(const decoded_kernel& code, const code_map& map, const kernel_flow& flow,
                              call_convention convention,
                              const std::function<const call_effect*(std::size_t relocation)>& effect_of,
                              wfta::finding_list& findings);

} // namespace vorna::workbench
