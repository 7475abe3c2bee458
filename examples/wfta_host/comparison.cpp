#include "examples/wfta_host/comparison.hpp"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace wfta_host {

complex_signal transform_by_fftw(complex_signal in, direction dir)
{
    complex_signal out(in.size());
    fftw_plan plan =
        fftw_plan_dft_1d(static_cast<int>(in.size()), reinterpret_cast<fftw_complex*>(in.data()),
                         reinterpret_cast<fftw_complex*>(out.data()),
                         dir == direction::forward ? FFTW_FORWARD : FFTW_BACKWARD, FFTW_ESTIMATE);
    fftw_execute(plan);
    fftw_destroy_plan(plan);
    return out;
}

double largest_error(const complex_signal& got, const complex_signal& expected)
{
    double error = 0;
    double largest = 0;
    for (std::size_t k = 0; k < expected.size(); ++k) {
        const double difference = std::abs(got[k] - expected[k]);
        // Comparisons with NaN are false, so max() would ignore it.
        if (std::isnan(difference))
            return std::numeric_limits<double>::quiet_NaN();
        error = std::max(error, difference);
        largest = std::max(largest, std::abs(expected[k]));
    }
    return error / largest;
}

double error_bound(unsigned length)
{
    return 1e-14 * std::log2(length);
}

} // namespace wfta_host
