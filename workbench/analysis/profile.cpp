// The parser (input/perf_script) yields records: samples, mappings, forks and execs. All of them go to the
// address spaces (address_space), which know which process has the kernels mapped and sum up the samples for
// each event and address. finish() turns these sums into rows, by kernel and offset. Samples outside the
// kernels' mappings count as elsewhere.

#include "workbench/analysis/profile.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <variant>

namespace vorna::workbench {

namespace {

constexpr std::size_t most_events = 1024;

std::uint64_t difference(std::uint64_t a, std::uint64_t b)
{
    return a > b ? a - b : 0;
}

void add_kernels(event_profile& event, const memory_samples& samples, const kernel_set& set)
{
    std::unordered_map<std::size_t, std::size_t> places;
    for (const auto& [address, count] : samples.in_kernels) {
        const placed_kernel& kernel = *find_kernel_by_text(set, address);
        const auto index = static_cast<std::size_t>(&kernel - set.kernels.data());
        const auto [place, added] = places.try_emplace(index, event.kernels.size());
        if (added)
            event.kernels.push_back({index, {}, {}});
        kernel_profile& profile = event.kernels[place->second];
        profile.rows.push_back({address - kernel.text_address, count});
        add(profile.count, count);
        add(event.in_kernels, count);
    }
    for (kernel_profile& kernel : event.kernels)
        std::sort(kernel.rows.begin(), kernel.rows.end(),
                  [](const profile_row& a, const profile_row& b) { return a.offset < b.offset; });
    std::sort(
        event.kernels.begin(), event.kernels.end(), [](const kernel_profile& a, const kernel_profile& b) {
            return a.count.period != b.count.period ? a.count.period > b.count.period : a.kernel < b.kernel;
        });
}

} // namespace

profile_reader::profile_reader(const kernel_set& set)
    : set_(set), memory_(set), script_([this](const perf_record& record) {
          std::visit([this](const auto& one) { take(one); }, record);
      })
{
}

void profile_reader::read(std::string_view piece)
{
    script_.read(piece);
}

std::size_t profile_reader::event_number(std::string_view name)
{
    if (last_event_ < events_.size() && events_[last_event_].event == name)
        return last_event_;
    auto entry = event_numbers_.find(name);
    if (entry == event_numbers_.end()) {
        if (events_.size() == most_events)
            throw std::runtime_error(fmt::format("more than {} events", most_events));
        entry = event_numbers_.emplace(name, events_.size()).first;
        events_.emplace_back();
        events_.back().event = name;
    }
    return last_event_ = entry->second;
}

void profile_reader::take(const perf_sample& sample)
{
    const std::size_t event = event_number(sample.event);
    add(events_[event].total, {1, sample.period});
    memory_.add_sample(sample, event);
}

void profile_reader::take(const perf_mapping& mapping)
{
    memory_.map(mapping);
}

void profile_reader::take(const perf_fork& fork)
{
    memory_.fork(fork);
}

void profile_reader::take(const perf_exec& exec)
{
    memory_.exec(exec);
}

profile profile_reader::finish()
{
    profile result;
    result.text = script_.finish();
    std::vector<memory_samples> samples = memory_.finish();
    samples.resize(events_.size());
    for (std::size_t number = 0; number < events_.size(); ++number) {
        event_profile& event = events_[number];
        add_kernels(event, samples[number], set_);
        event.unknown = samples[number].unknown;
        event.elsewhere = {
            event.total.samples - event.in_kernels.samples - event.unknown.samples,
            difference(difference(event.total.period, event.in_kernels.period), event.unknown.period)};
    }
    std::stable_sort(events_.begin(), events_.end(), [](const event_profile& a, const event_profile& b) {
        return a.total.samples > b.total.samples;
    });
    result.events = std::move(events_);
    return result;
}

const event_profile* find_event(const profile& profile, std::string_view name)
{
    for (const event_profile& event : profile.events) {
        if (name.empty() || event.event == name)
            return &event;
    }
    return nullptr;
}

bool is_exact(const event_profile& event)
{
    return event.event == "executions";
}

std::vector<std::uint64_t> periods_by_row(const kernel_profile& profile, std::size_t text_size)
{
    const std::size_t words = text_size / 4;
    std::vector<std::uint64_t> periods(words + text_size % 4);
    for (const profile_row& row : profile.rows) {
        const std::size_t index = row.offset / 4 < words ? row.offset / 4 : words + (row.offset - 4 * words);
        add(periods[index], row.count.period);
    }
    return periods;
}

} // namespace vorna::workbench
