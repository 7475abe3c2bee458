// Sums of samples.
#pragma once

#include <algorithm>
#include <cstdint>

namespace vorna::workbench {

/// A number of samples, and the sum of their periods, in units of their event (nanoseconds for cpu-clock,
/// cycles for cycles). The sum saturates.
struct sample_count {
    std::uint64_t samples = 0;
    std::uint64_t period = 0;

    bool operator==(const sample_count&) const = default;
};

inline void add(std::uint64_t& sum, std::uint64_t value)
{
    sum += std::min(value, UINT64_MAX - sum);
}

inline void add(sample_count& sum, const sample_count& count)
{
    sum.samples += count.samples;
    add(sum.period, count.period);
}

} // namespace vorna::workbench
