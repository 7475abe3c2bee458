// Where the time goes: joins the samples of perf with the kernels of a set.
#pragma once

#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// Samples, and the sum of their periods: what they stand for in units of their event (nanoseconds for
/// cpu-clock, cycles for cycles). A sum that does not fit stays at the largest number.
struct sample_count {
    std::uint64_t samples = 0;
    std::uint64_t weight = 0;
};

/// The samples at one address of a kernel.
struct profile_row {
    std::uint64_t offset = 0; ///< in the kernel's text; whatever perf said, so not always a multiple of 4
    sample_count count;
};

struct kernel_profile {
    std::size_t kernel = 0; ///< index in the set
    sample_count count;
    std::vector<profile_row> rows; ///< the places that have samples, by offset
};

/// The samples of one event. `total` is the sum of the three behind it, `in_kernels` that of the kernels.
struct event_profile {
    std::string event;       ///< as perf names it: "cycles:u"
    sample_count total;      ///< of all processes
    sample_count in_kernels; ///< in the code of the set's kernels
    sample_count unknown;    ///< in mappings that hold kernels of the set, but in none of these
    sample_count elsewhere;
    std::vector<kernel_profile> kernels; ///< those that have samples, the heaviest first
};

struct profile {
    std::vector<event_profile> events; ///< the one of most samples first
    std::uint64_t lost = 0;            ///< samples that the recording says it lost
    std::size_t bad_lines = 0;         ///< lines that are none of perf script's
    std::size_t first_bad_line = 0;    ///< number of the first of these, from 1
};

/// The event of that name, or the first if the name is empty; null if there is none.
const event_profile* find_event(const profile& profile, std::string_view name);

/// Not samples, but how often each instruction ran: what an emulator writes of itself, under this name.
bool is_exact(const event_profile& event);

/// The weight of the samples in each row of a kernel's listing: its words, then the bytes after the last one.
std::vector<std::uint64_t> weights_by_row(const kernel_profile& profile, std::size_t text_size);

/// The command whose text a profile_reader reads, without the input: "perf", "script", "-F", …
std::vector<std::string> perf_script_command();

/// Reads the text of
///     perf script -F pid,time,event,period,ip -G --show-mmap-events --show-task-events
/// in pieces, and joins its samples with the kernels of a set. The processes are those whose executable
/// anonymous mappings, as the text tells them, hold all kernels of the set, and those forked from them.
/// Memory depends on the processes, mappings, events and sampled addresses, not on the number of samples.
class profile_reader {
public:
    /// Keeps a reference to the set.
    explicit profile_reader(const kernel_set& set);
    ~profile_reader();
    profile_reader(const profile_reader&) = delete;
    profile_reader& operator=(const profile_reader&) = delete;

    /// The next piece of the text; lines may be cut anywhere between pieces. Throws std::runtime_error if the
    /// text is of another kind.
    void read(std::string_view piece);

    /// To be called once, behind the last piece. Throws std::runtime_error with the reason, in one line, if
    /// the text and the set do not belong together, or if it is no text of perf script.
    profile finish();

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vorna::workbench
