// Reconstructs from perf's records which process had the kernels mapped, and collects the samples in them.
#pragma once

#include "workbench/analysis/sample_count.hpp"
#include "workbench/input/perf_script.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

/// The samples of one event in memory that may hold kernels.
struct memory_samples {
    std::unordered_map<std::uint64_t, sample_count> in_kernels; ///< by address
    sample_count unknown;                                       ///< in no kernel of the set
};

/// Follows the address spaces of processes through mappings, forks and execs.
class address_spaces {
public:
    /// Keeps a reference to the set.
    explicit address_spaces(const kernel_set& set);

    void map(const perf_mapping& mapping);
    void fork(const perf_fork& fork);
    void exec(const perf_exec& exec);

    /// Counts a sample of event number `event`, unless its memory cannot hold kernels.
    void add_sample(const perf_sample& sample, std::size_t event);

    /// The samples of each event in processes that mapped all kernels of the set at once, and in their forks.
    /// Call once. Throws std::runtime_error if no process mapped them all.
    std::vector<memory_samples> finish();

private:
    struct range {
        std::uint64_t begin;
        std::uint64_t end;
    };

    /// The samples of a VMA; forked processes share it.
    struct vma_samples {
        std::vector<memory_samples> events; // by event number
        bool holds_kernels = false;         // of a process that mapped all kernels of the set
        bool replaced = false;              // by another mapping, in some process
    };

    struct vma {
        std::uint64_t end;
        std::shared_ptr<vma_samples> samples;
    };

    using vma_map = std::map<std::uint64_t, vma>; // by first address

    struct address_space {
        vma_map vmas;           // executable anonymous memory that overlaps kernels of the set
        std::size_t mapped = 0; // upper bound of the number of the set's mappings that the VMAs cover
    };

    template <typename Map>
    static auto first_vma(Map& vmas, std::uint64_t address);
    static bool touches(const address_space& space, const range& memory);
    static bool covers(const address_space& space, const range& memory);

    void forget_last_sample();
    void remove_process(std::int32_t pid);
    void merge(const vma_samples& samples);
    void unmap(address_space& space, const range& memory, bool may_grow);
    void map_gaps(address_space& space, const range& memory);
    [[nodiscard]] std::vector<range>::const_iterator first_mapping(std::uint64_t address) const;
    [[nodiscard]] bool is_inside_mapping(std::uint64_t address) const;
    std::size_t count_covered(const address_space& space, std::size_t first, std::size_t end);
    void charge(std::size_t steps);

    const kernel_set& set_;
    std::vector<range> mappings_; // of the set, ascending, non-empty
    std::unordered_map<std::int32_t, std::shared_ptr<address_space>> processes_;
    std::vector<memory_samples> ended_; // of processes that ended, by event number
    bool any_mapped_all_ = false;
    std::size_t most_mapped_ = 0;
    std::int32_t most_mapped_by_ = 0;
    std::size_t steps_ = 0;

    // Cache: the next sample is likely to be in the VMA of the last one.
    std::optional<std::int32_t> last_pid_;
    const address_space* last_space_ = nullptr;
    range last_vma_ = {0, 0};
    vma_samples* last_samples_ = nullptr;
};

} // namespace vorna::workbench
