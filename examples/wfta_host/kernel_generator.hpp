// Generates the machine code of the kernels. Nothing is placed yet: addresses are left to relocations.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "examples/wfta_host/short_dft.hpp"

#include <string>
#include <vector>

namespace wfta_host {

/// Sign of the exponent: forward is exp(-2 pi j i k / N). Neither direction scales.
enum class direction { forward, inverse };

/// Name of the short kernel of `length`, "wfta_short_16" for instance.
std::string short_kernel_name(unsigned length);

/// Name of the driver kernel of `length`, "wfta_1008" or "wfta_1008_inverse" for instance.
std::string driver_kernel_name(unsigned length, direction dir);

/// Generates the short kernel of `dft`, which transforms in place:
///
///     void short_kernel(std::complex<double>* values, std::size_t stride);
///
/// with `stride` bytes from one value to the next. Its data holds the constants and is a multiple of 16 bytes
/// long. The kernel calls nothing and uses no stack.
///
/// The entry_out of the result is null. Throws std::length_error when the steps of `dft` need more vector
/// registers at once than there are.
vorna::wfta::kernel_data generate_short_kernel(const short_dft& dft);

/// The order of the instructions in the loops of a driver that permute its input and output.
enum class loop_order {
    plain,   ///< each where its purpose suggests
    in_order ///< the counter between a load and its use, for processors that issue in the order of the
             ///< program
};

/// Generates the driver kernel of the product of `factors`, which must be coprime and have short kernels in
/// the registry by the time the driver is placed:
///
///     void driver(const std::complex<double>* in, std::complex<double>* out, std::complex<double>* work);
///
/// Each array holds the product of `factors` values; `in` and `out` may be the same, `work` must not
/// overlap them. The data of the driver holds its index tables and is a multiple of 16 bytes long.
///
/// The entry_out of the result is null.
vorna::wfta::kernel_data generate_driver_kernel(const std::vector<unsigned>& factors, direction dir,
                                                loop_order order = loop_order::plain);

} // namespace wfta_host
