// The sets of kernels that are measured, the same in every process.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

/// The type and the target of a measured kernel's relocation.
enum class reference { adrp_own_data, add_own_data, adr_self, call_self, call_other };

/// Kernels with a slot for the entry of each. Movable; the slots stay where they are.
struct kernel_set {
    std::vector<vorna::wfta::kernel_data> kernels;
    std::vector<void*> entries; ///< the slots that kernel_data::entry_out points to
};

/// The workload of all comparisons: `count` kernels of 200 to 2,000 bytes of text and 16 to 256 bytes of data
/// with 6.8 relocations on average: 4.0 in ADRP+ADD pairs on their own data, 2.0 calls of kernels earlier in
/// the set, and 0.8 references to themselves by ADR or BL. The names have 20 characters, in random order.
kernel_set make_kernels(std::size_t count);

/// `count` kernels of 1,024 bytes of text whose `relocations_each` relocations (at most 256) are all of one
/// kind; without relocations the kind does not matter. The difference is the cost of the relocations.
kernel_set make_kernels_of_one_kind(std::size_t count, reference kind, std::size_t relocations_each);

/// Bytes of the one mapping that holds all kernels: code on 32-byte boundaries, then the data, packed.
struct set_layout {
    std::vector<std::size_t> text_offsets; ///< of each kernel, from the mapping's start
    std::vector<std::size_t> data_offsets; ///< of each kernel, from the mapping's start
    std::size_t text_size;                 ///< bytes of code, gaps included
    std::size_t size;                      ///< bytes of code and data
};
set_layout layout_of(const std::vector<vorna::wfta::kernel_data>& kernels);

/// Ends the process with one line on stderr unless every instruction field that a relocation of `kernels`
/// fills leads from its place to its target. `registry` says where the kernels were placed. Relocations of
/// type `except` are left out.
void check_linked(const std::vector<vorna::wfta::kernel_data>& kernels,
                  const vorna::wfta::kernel_registry_map& registry, const char* linker, std::int32_t except);

} // namespace bench
