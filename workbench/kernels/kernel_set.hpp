// The central structure of the workbench: the placed kernels of one process. The dump reader creates it, and
// every command uses it.
#pragma once

#include "check/relocation.hpp"
#include "jit/reloc_info.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

using wfta::data_prefix;
using wfta::is_own_data;
using wfta::lies_within;
using wfta::names_data;
using wfta::word_at;

/// One placed kernel, before relocation.
struct placed_kernel {
    std::string name;
    std::uint64_t text_address = 0;
    std::vector<std::uint8_t> text; ///< as generated, before relocation
    std::uint64_t data_address = 0; ///< if there is no data, where it would be
    std::vector<std::uint8_t> data;
    std::vector<tessjit::reloc_info> relocs; ///< in the order in which they are applied
    std::size_t mapping = 0;                 ///< index of its mapping in the set
    std::string file;                        ///< the dump file

    [[nodiscard]] wfta::kernel_place place() const { return {name, text_address, data_address}; }
    [[nodiscard]] std::uint64_t text_end() const { return text_address + text.size(); }
    [[nodiscard]] std::uint64_t data_end() const { return data_address + data.size(); }
};

/// The memory in which one call of finalise_kernels placed its kernels, as inferred from their addresses:
/// code first, then constants.
struct kernel_mapping {
    std::uint64_t begin = 0;      ///< the page of the first kernel's code
    std::uint64_t data_begin = 0; ///< where the constants begin
    std::uint64_t end = 0;        ///< past the last byte of code or constants; `begin` if empty
};

/// The addresses and sizes of a kernel.
struct kernel_extent {
    std::uint64_t text_address = 0;
    std::uint64_t text_size = 0;
    std::uint64_t data_address = 0;
    std::uint64_t data_size = 0;
};

/// Orders kernels by address. Within a mapping this is the order in which the finaliser placed them.
bool lies_before(const kernel_extent& a, const kernel_extent& b);

kernel_extent extent_of(const placed_kernel& kernel);

/// The mappings of a set.
struct mapping_partition {
    std::vector<kernel_mapping> mappings; ///< ascending
    std::vector<std::size_t> mapping_of;  ///< for each kernel, the index of its mapping
};

/// Determines which kernels share a mapping. They must be sorted by lies_before.
mapping_partition find_mappings(const std::vector<kernel_extent>& kernels);

/// The placed kernels of one process, sorted by lies_before.
struct kernel_set {
    std::vector<placed_kernel> kernels;
    std::vector<kernel_mapping> mappings;                 ///< ascending
    std::unordered_map<std::string, std::size_t> by_name; ///< index of the first kernel of each name
    std::vector<std::vector<std::size_t>>
        callers; ///< for each kernel, the kernels with a relocation against it
};

/// Sorts the kernels and determines which of them share a mapping. Overwrites their `mapping`.
kernel_set make_kernel_set(std::vector<placed_kernel> kernels);

/// Indices of two kernels that overlap, and so cannot be from one process; nothing if none do.
struct kernel_pair {
    std::size_t first;
    std::size_t second;
};
std::optional<kernel_pair> find_overlap(const kernel_set& set);

/// The kernel of that name, or null.
const placed_kernel* find_kernel(const kernel_set& set, const std::string& name);

/// The kernel whose code or data contains the address, or null.
const placed_kernel* find_kernel_by_text(const kernel_set& set, std::uint64_t address);
const placed_kernel* find_kernel_by_data(const kernel_set& set, std::uint64_t address);

/// The name in the set with the least edit distance to `name`; empty if more than a third of the longer name
/// (rounded up) differs in all of them.
std::string nearest_name(const kernel_set& set, std::string_view name);

} // namespace vorna::workbench
