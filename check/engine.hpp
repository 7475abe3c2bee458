// Checks the relocations of kernels whose addresses are known, at least relative to each other: of a host's
// set (check_kernels) or of dumps. It applies each relocation in order, as the finaliser does, and reports
// whatever prevents that or cannot be meant. It knows only the instructions that relocations fill.
#pragma once

#include "check/finding.hpp"
#include "check/relocation.hpp"
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorna::wfta {

/// A kernel of the set. The caller owns what it refers to.
struct checked_kernel {
    const std::string* name;
    const std::vector<std::uint8_t>* text;
    const std::vector<std::uint8_t>* data;
    const std::vector<tessjit::reloc_info>* relocs;
    std::uint64_t text_address;
    std::uint64_t data_address;
    std::string first_of_name; ///< which kernel has the name already, in words; empty if none does

    [[nodiscard]] kernel_place place() const { return {*name, text_address, data_address}; }
};

/// Finds the kernel that the relocations of kernel number `kernel` call `name`; not that kernel itself.
using target_finder = std::function<relocation_target(std::size_t kernel, const std::string& name)>;

/// Whether addresses are those of a process, or assumed and exact only relative to each other.
enum class address_kind { real, relative };

/// All findings about the kernels, in their order. Addresses of kernels that share a mapping are exact from
/// each other, and within their pages. `others` are kernels that are not among them, whose files theirs may
/// collide with.
std::vector<kernel_finding> check_placed(const std::vector<checked_kernel>& kernels,
                                         const target_finder& find, const kernel_registry_map& others,
                                         address_kind addresses);

} // namespace vorna::wfta
