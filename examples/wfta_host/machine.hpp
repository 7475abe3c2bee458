// Runs placed kernels: on an AArch64 machine as they are, elsewhere in a simulator, in either case in this
// process and at their final addresses.
#pragma once

#include <complex>
#include <cstdint>
#include <map>

namespace wfta_host {

/// "this processor" or "the VIXL simulator".
extern const char* const machine_name;

/// How often instructions ran, by their addresses.
using instruction_counts = std::map<std::uintptr_t, std::uint64_t>;

/// Whether run_driver() counts: a processor runs kernels too fast to be watched, which is what perf is for.
extern const bool machine_counts;

/// Calls the driver kernel that starts at `entry` with its three arrays. See generate_driver_kernel(). Adds
/// to `counts` what ran, unless it is null.
void run_driver(const void* entry, const std::complex<double>* in, std::complex<double>* out,
                std::complex<double>* work, instruction_counts* counts = nullptr);

} // namespace wfta_host
