// Runs placed kernels: on the processor of an AArch64 machine, elsewhere in a simulator; in either case in
// this process and at their final addresses.
#pragma once

#include <complex>
#include <cstdint>
#include <map>

namespace wfta_host {

/// "this processor" or "the VIXL simulator".
extern const char* const machine_name;

/// How often each instruction ran, by address.
using instruction_counts = std::map<std::uintptr_t, std::uint64_t>;

/// Whether run_driver() counts. It does in the simulator only; for a processor there is perf.
extern const bool machine_counts;

/// Calls the driver kernel that starts at `entry` with its three arrays. See generate_driver_kernel(). Adds
/// what ran to `counts`, unless that is null.
void run_driver(const void* entry, const std::complex<double>* in, std::complex<double>* out,
                std::complex<double>* work, instruction_counts* counts = nullptr);

} // namespace wfta_host
