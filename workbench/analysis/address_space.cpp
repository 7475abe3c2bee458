// The process that wrote the dumps had all kernels of the set mapped at once, as executable anonymous memory.
// Samples in other processes, or in a code cache that occupied the same addresses earlier, must not count.
//
//   - Each process has a map of its VMAs. Only executable anonymous memory that overlaps a mapping of the set
//     is recorded.
//   - A VMA keeps its samples until the process is known to have mapped all kernels. They are counted when
//     the last process that shares the VMA ends.
//   - A VMA that another mapping replaces is dropped with its samples: the finaliser unmaps nothing, so it
//     was not the kernels'.
//   - The kernel merges adjacent anonymous memory and then reports all of it as one mapping. A VMA inside
//     such a mapping is therefore kept (see unmap).
//   - After a fork both processes share the map until one of them maps something (copy on write).
//
// Looking up a sample takes logarithmic time. The total cost of mappings is bounded (most_steps), since a
// malicious text may contain any number of them.

#include "workbench/analysis/address_space.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <stdexcept>

namespace vorna::workbench {

// Bounds the total cost of all mappings: a step takes well below a microsecond. No real recording comes near
// it.
static constexpr std::size_t most_steps = 20'000'000;

address_spaces::address_spaces(const kernel_set& set) : set_(set)
{
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        if (i == 0 || set.kernels[i - 1].mapping != kernel.mapping)
            mappings_.push_back({kernel.text_address, set.mappings[kernel.mapping].end});
    }
    std::erase_if(mappings_, [](const range& memory) { return memory.begin == memory.end; });
}

/// The VMA that contains the address, or the next one.
template <typename Map>
auto address_spaces::first_vma(Map& vmas, std::uint64_t address)
{
    auto next = vmas.upper_bound(address);
    if (next != vmas.begin() && std::prev(next)->second.end > address)
        --next;
    return next;
}

bool address_spaces::touches(const address_space& space, const range& memory)
{
    const auto area = first_vma(space.vmas, memory.begin);
    return area != space.vmas.end() && area->first < memory.end;
}

bool address_spaces::covers(const address_space& space, const range& memory)
{
    std::uint64_t covered = memory.begin;
    for (auto area = first_vma(space.vmas, covered);
         covered < memory.end && area != space.vmas.end() && area->first <= covered &&
         !area->second.samples->replaced;
         ++area)
        covered = area->second.end;
    return covered >= memory.end;
}

void address_spaces::charge(std::size_t steps)
{
    steps_ += steps;
    if (steps_ > most_steps)
        throw std::runtime_error("more mappings than any system makes");
}

std::size_t address_spaces::count_covered(const address_space& space, std::size_t first, std::size_t end)
{
    charge(end - first + 1);
    return static_cast<std::size_t>(
        std::count_if(mappings_.begin() + static_cast<std::ptrdiff_t>(first),
                      mappings_.begin() + static_cast<std::ptrdiff_t>(end),
                      [&](const range& mapping) { return covers(space, mapping); }));
}

/// The first mapping of the set that ends after the address.
std::vector<address_spaces::range>::const_iterator address_spaces::first_mapping(std::uint64_t address) const
{
    return std::upper_bound(mappings_.begin(), mappings_.end(), address,
                            [](std::uint64_t a, const range& mapping) { return a < mapping.end; });
}

bool address_spaces::is_inside_mapping(std::uint64_t address) const
{
    const auto mapping = first_mapping(address);
    return mapping != mappings_.end() && mapping->begin < address;
}

// Drops the VMAs in the range, and their samples. With `may_grow` the range is anonymous memory, which the
// kernel may have merged with its neighbours: VMAs that it strictly contains are then kept, unless one begins
// or ends inside a mapping of the set.
void address_spaces::unmap(address_space& space, const range& memory, bool may_grow)
{
    auto area = first_vma(space.vmas, memory.begin);
    while (area != space.vmas.end() && area->first < memory.end) {
        charge(1);
        const range old = {area->first, area->second.end};
        const bool whole = old.begin >= memory.begin && old.end <= memory.end;
        const bool all = old.begin == memory.begin && old.end == memory.end;
        if (may_grow && whole && !all && !is_inside_mapping(old.begin) && !is_inside_mapping(old.end)) {
            ++area;
            continue;
        }
        area->second.samples->replaced = true;
        area = space.vmas.erase(area);
    }
}

void address_spaces::map_gaps(address_space& space, const range& memory)
{
    const auto samples = std::make_shared<vma_samples>();
    std::uint64_t at = memory.begin;
    for (auto next = first_vma(space.vmas, at); next != space.vmas.end() && next->first < memory.end;
         ++next) {
        charge(1);
        if (at < next->first)
            space.vmas.emplace_hint(next, at, vma{next->first, samples});
        at = next->second.end;
    }
    if (at < memory.end)
        space.vmas.emplace(at, vma{memory.end, samples});
}

void address_spaces::map(const perf_mapping& mapping)
{
    // Ignored, not unmapped: kernels may be there whose protection changes later.
    const range memory = {mapping.begin, mapping.end};
    if (memory.begin == memory.end || (mapping.anonymous && !mapping.executable))
        return;
    const auto first = first_mapping(memory.begin);
    const auto end =
        std::lower_bound(first, mappings_.cend(), memory.end,
                         [](const range& known, std::uint64_t address) { return known.begin < address; });
    const auto process = processes_.find(mapping.pid);
    const bool may_hold_kernels = mapping.anonymous && first != end;
    if (!may_hold_kernels && (process == processes_.end() || !touches(*process->second, memory)))
        return;
    forget_last_sample();
    std::shared_ptr<address_space>& space =
        process == processes_.end() ? processes_[mapping.pid] : process->second;
    if (space == nullptr)
        space = std::make_shared<address_space>();
    if (may_hold_kernels && !mapping.writable && covers(*space, memory))
        return;
    if (space.use_count() > 1) {
        charge(space->vmas.size());
        space = std::make_shared<address_space>(*space);
    }
    const auto first_number = static_cast<std::size_t>(first - mappings_.begin());
    const auto end_number = static_cast<std::size_t>(end - mappings_.begin());
    space->mapped -= count_covered(*space, first_number, end_number);
    unmap(*space, memory, may_hold_kernels);
    if (may_hold_kernels)
        map_gaps(*space, memory);
    space->mapped += count_covered(*space, first_number, end_number);
    if (space->mapped > most_mapped_) {
        most_mapped_ = space->mapped;
        most_mapped_by_ = mapping.pid;
    }
    if (space->mapped < mappings_.size())
        return;
    // `mapped` is an upper bound: other processes may have replaced shared VMAs.
    space->mapped = count_covered(*space, 0, mappings_.size());
    if (space->mapped != mappings_.size())
        return;
    any_mapped_all_ = true;
    charge(space->vmas.size());
    for (auto& [address, area] : space->vmas)
        area.samples->holds_kernels = true;
}

void address_spaces::fork(const perf_fork& fork)
{
    forget_last_sample();
    remove_process(fork.child); // an earlier process with this PID
    if (const auto parent = processes_.find(fork.parent); parent != processes_.end()) {
        const std::shared_ptr<address_space> space = parent->second;
        processes_.emplace(fork.child, space);
    }
}

void address_spaces::exec(const perf_exec& exec)
{
    forget_last_sample();
    remove_process(exec.pid);
}

// Counts the samples of VMAs that no other process shares.
void address_spaces::remove_process(std::int32_t pid)
{
    const auto process = processes_.find(pid);
    if (process == processes_.end())
        return;
    const std::shared_ptr<address_space> space = std::move(process->second);
    processes_.erase(process);
    if (space.use_count() > 1)
        return;
    for (auto& [address, area] : space->vmas) {
        const std::shared_ptr<vma_samples> samples = std::move(area.samples);
        if (samples.use_count() == 1 && samples->holds_kernels && !samples->replaced)
            merge(*samples);
    }
}

void address_spaces::merge(const vma_samples& samples)
{
    ended_.resize(std::max(ended_.size(), samples.events.size()));
    for (std::size_t event = 0; event < samples.events.size(); ++event) {
        for (const auto& [address, count] : samples.events[event].in_kernels)
            add(ended_[event].in_kernels[address], count);
        add(ended_[event].unknown, samples.events[event].unknown);
    }
}

void address_spaces::forget_last_sample()
{
    last_pid_.reset();
    last_vma_ = {0, 0};
}

void address_spaces::add_sample(const perf_sample& sample, std::size_t event)
{
    if (sample.pid != last_pid_) {
        const auto process = processes_.find(sample.pid);
        last_pid_ = sample.pid;
        last_space_ = process == processes_.end() ? nullptr : process->second.get();
        last_vma_ = {0, 0};
    }
    if (last_space_ == nullptr)
        return;
    if (sample.address < last_vma_.begin || sample.address >= last_vma_.end) {
        const auto area = first_vma(last_space_->vmas, sample.address);
        if (area == last_space_->vmas.end() || area->first > sample.address)
            return;
        last_vma_ = {area->first, area->second.end};
        last_samples_ = area->second.samples.get();
    }
    if (last_samples_->events.size() <= event)
        last_samples_->events.resize(event + 1);
    memory_samples& here = last_samples_->events[event];
    const sample_count count = {1, sample.period};
    if (const auto known = here.in_kernels.find(sample.address); known != here.in_kernels.end())
        add(known->second, count);
    else if (find_kernel_by_text(set_, sample.address) != nullptr)
        here.in_kernels.emplace(sample.address, count);
    else
        add(here.unknown, count);
}

std::vector<memory_samples> address_spaces::finish()
{
    if (mappings_.empty())
        throw std::runtime_error("there are no kernels to look for in it");
    if (!any_mapped_all_) {
        std::string reason = "no process maps the memory of the kernels";
        if (most_mapped_ != 0)
            reason = fmt::format("no process maps all of the kernels; process {} has {} of their {} mappings",
                                 most_mapped_by_, most_mapped_, mappings_.size());
        throw std::runtime_error("dumps and profile are of different runs: " + reason);
    }
    while (!processes_.empty())
        remove_process(processes_.begin()->first);
    return std::move(ended_);
}

} // namespace vorna::workbench
