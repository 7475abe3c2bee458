// The checks of kernels whose places are known, at least from each other: what check_kernels and the checks
// of dumps have in common.
#pragma once

#include "check/check_kernels.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// A kernel of the set. Refers to what belongs to the caller.
struct checked_kernel {
    const std::string* name;
    const std::vector<std::uint8_t>* text;
    const std::vector<std::uint8_t>* data;
    const std::vector<tessjit::reloc_info>* relocs;
    std::uint64_t text_address;
    std::uint64_t data_address;
    std::string name_taken; ///< who has the name already, in words; empty if nobody
};

/// Where a kernel is that a relocation names.
struct target_place {
    enum class where {
        nowhere,
        later,     ///< it comes behind the kernel that names it
        placed,    ///< at `address`
        elsewhere, ///< at `address`, in another mapping; where this one will be is not known
        unknown    ///< placed, for the kernel that names it is linked; but not among those given
    } state;
    std::uint64_t address;
};

/// Finds the kernel that the relocations of kernel number `kernel` call `name`.
using target_finder = std::function<target_place(std::size_t kernel, const std::string& name)>;

/// Whether addresses are those of a process, or made up and only exact from each other.
enum class address_kind { real, relative };

/// All findings about the kernels, in their order. Addresses of kernels that share a mapping are exact from
/// each other, and within their pages. `others` are names of kernels that are not among them, whose files
/// theirs may collide with.
std::vector<kernel_finding> check_placed(const std::vector<checked_kernel>& kernels,
                                         const target_finder& find, const kernel_registry_map& others,
                                         address_kind addresses);

} // namespace vorna::wfta
