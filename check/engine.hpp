// Checks the relocations of kernels whose addresses are known, at least relative to each other: those of a
// host's set (check_kernels) or of dumps. Applies the relocations in order, as the finaliser does, and
// reports what prevents that or cannot be intended. Knows only the instructions that relocations fill.
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

/// A kernel to check. The caller owns what it points to.
struct checked_kernel {
    const std::string* name;
    const std::vector<std::uint8_t>* text;
    const std::vector<std::uint8_t>* data;
    const std::vector<tessjit::reloc_info>* relocs;
    std::uint64_t text_address;
    std::uint64_t data_address;
    std::string first_of_name; ///< describes the kernel that already has the name; empty if none does

    [[nodiscard]] kernel_place place() const { return {*name, text_address, data_address}; }
};

/// Resolves `name` in relocations of kernel number `kernel`, unless it is that kernel's own name.
using target_finder = std::function<relocation_target(std::size_t kernel, const std::string& name)>;

/// Whether addresses are those of a process, or assumed: exact only relative to each other.
enum class address_kind { real, relative };

/// All findings, in the order of the kernels. The addresses of kernels that share a mapping must be exact
/// relative to each other and to their pages. `others` are further kernels, whose file names may collide with
/// those of the checked ones.
std::vector<kernel_finding> check_placed(const std::vector<checked_kernel>& kernels,
                                         const target_finder& find, const kernel_registry_map& others,
                                         address_kind addresses);

} // namespace vorna::wfta
