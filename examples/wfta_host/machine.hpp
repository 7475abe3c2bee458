// Runs placed kernels: on an AArch64 machine as they are, elsewhere in a simulator, in either case in this
// process and at their final addresses.
#pragma once

#include <complex>

namespace wfta_host {

/// "this processor" or "the VIXL simulator".
extern const char* const machine_name;

/// Calls the driver kernel that starts at `entry` with its three arrays. See generate_driver_kernel().
void run_driver(const void* entry, const std::complex<double>* in, std::complex<double>* out,
                std::complex<double>* work);

} // namespace wfta_host
