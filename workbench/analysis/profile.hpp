// Joins perf's samples with the kernels of a set, to show where time is spent.
#pragma once

#include "workbench/analysis/address_space.hpp"
#include "workbench/analysis/sample_count.hpp"
#include "workbench/input/perf_script.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// The samples at one address of a kernel.
struct profile_row {
    std::uint64_t offset = 0; ///< in the kernel's code, as perf reports it: not always a multiple of 4
    sample_count count;
};

struct kernel_profile {
    std::size_t kernel = 0; ///< index in the set
    sample_count count;
    std::vector<profile_row> rows; ///< with samples only, by ascending offset
};

/// The samples of one event. `total` is the sum of the next three, `in_kernels` the sum over the kernels.
struct event_profile {
    std::string event;       ///< as perf names it: "cycles:u"
    sample_count total;      ///< of all processes
    sample_count in_kernels; ///< in the code of the set's kernels
    sample_count unknown;    ///< in mappings with kernels of the set, but outside the kernels
    sample_count elsewhere;
    std::vector<kernel_profile> kernels; ///< with samples only, by descending period
};

struct profile {
    std::vector<event_profile> events; ///< by descending number of samples
    perf_script_summary text;
};

/// The event with this name, or the first event if the name is empty; null if not found.
const event_profile* find_event(const profile& profile, std::string_view name);

/// Whether the event has exact counts instead of samples: how often an emulator executed each instruction.
bool is_exact(const event_profile& event);

/// The period of the samples in each row of a kernel's listing: its words, then any trailing bytes.
std::vector<std::uint64_t> periods_by_row(const kernel_profile& profile, std::size_t text_size);

/// Parses the output of perf script piecewise and joins its samples with the kernels of a set. Counts samples
/// of processes whose executable anonymous mappings contain all kernels of the set, and of their forks.
/// Memory grows with the number of processes, mappings, events and sampled addresses, but not of samples.
class profile_reader {
public:
    /// Keeps a reference to the set.
    explicit profile_reader(const kernel_set& set);

    /// Parses the next piece of the text, which may be split anywhere. Throws std::runtime_error if it is not
    /// perf script's.
    void read(std::string_view piece);

    /// Call once, after the last piece. Throws std::runtime_error with the reason, in one line, if the text
    /// is not perf script's, or if text and set are from different runs.
    profile finish();

private:
    void take(const perf_sample& sample);
    void take(const perf_mapping& mapping);
    void take(const perf_fork& fork);
    void take(const perf_exec& exec);
    std::size_t event_number(std::string_view name);

    const kernel_set& set_;
    address_spaces memory_;
    perf_script_reader script_;
    std::vector<event_profile> events_;
    std::map<std::string, std::size_t, std::less<>> event_numbers_;
    std::size_t last_event_ = 0;
};

} // namespace vorna::workbench
