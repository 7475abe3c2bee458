// Where the time goes: joins the samples of perf with the kernels of a set.
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
    std::uint64_t offset = 0; ///< in the kernel's code, as perf reports it, so not always a multiple of 4
    sample_count count;
};

struct kernel_profile {
    std::size_t kernel = 0; ///< index in the set
    sample_count count;
    std::vector<profile_row> rows; ///< the offsets that have samples, ascending
};

/// The samples of one event. `total` is the sum of the three after it, `in_kernels` the sum of the kernels.
struct event_profile {
    std::string event;       ///< as perf names it: "cycles:u"
    sample_count total;      ///< of all processes
    sample_count in_kernels; ///< in the code of the set's kernels
    sample_count unknown;    ///< in mappings that hold kernels of the set, but in none of these
    sample_count elsewhere;
    std::vector<kernel_profile> kernels; ///< those that have samples, by descending period
};

struct profile {
    std::vector<event_profile> events; ///< the one with the most samples first
    perf_script_summary text;
};

/// The event of that name, or the first if the name is empty; null if there is none.
const event_profile* find_event(const profile& profile, std::string_view name);

/// The event name under which an emulator writes how often each instruction ran, instead of samples.
bool is_exact(const event_profile& event);

/// The period of the samples in each row of a kernel's listing: its words, then the bytes after the last one.
std::vector<std::uint64_t> periods_by_row(const kernel_profile& profile, std::size_t text_size);

/// Parses the text of perf script in pieces, and joins its samples with the kernels of a set. The processes
/// are those whose executable anonymous mappings, according to the text, hold all kernels of the set, and
/// those forked from them. Memory depends on the processes, mappings, events and sampled addresses, not on
/// the number of samples.
class profile_reader {
public:
    /// Keeps a reference to the set.
    explicit profile_reader(const kernel_set& set);

    /// The next piece of the text, which may be split anywhere. Throws std::runtime_error if the
    /// text is of another kind.
    void read(std::string_view piece);

    /// Call once, after the last piece. Throws std::runtime_error with the reason, in one line, if
    /// the text and the set do not belong together, or if it is not perf script's text.
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
