// What the kernels' results are compared with.
#pragma once

#include "examples/wfta_host/kernel_generator.hpp"

#include <complex>
#include <vector>

namespace wfta_host {

using complex_signal = std::vector<std::complex<double>>;

/// The transform of `in`, computed by FFTW.
complex_signal transform_by_fftw(complex_signal in, direction dir);

/// The largest difference of two signals of one length, relative to the largest magnitude in `expected`. NaN
/// if any value is NaN.
double largest_error(const complex_signal& got, const complex_signal& expected);

/// The bound on the error of a transform of `length` values.
double error_bound(unsigned length);

} // namespace wfta_host
