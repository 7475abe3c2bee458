// Linking: what the finaliser does with a kernel's relocations.
#pragma once

#include "check/finding.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// A kernel's code with its relocations applied, in their order.
struct linked_kernel {
    std::vector<std::uint8_t> text;

    /// For each relocation why it is not applied, which leaves the code as it was; or call_bit_25: it is
    /// applied, but the call leads elsewhere, since the top bit of the field, which is not tested, was set.
    std::vector<std::optional<wfta::finding_id>> findings;
};
linked_kernel link_kernel(const kernel_set& set, const placed_kernel& kernel);

/// Whether the relocation alone, applied to the code as generated, makes a call that leads elsewhere.
bool leads_elsewhere(const kernel_set& set, const placed_kernel& kernel,
                     const tessjit::reloc_info& relocation);

/// An address in the code of a kernel of the set as that kernel and the offset, any other as a number.
std::string address_text(const kernel_set& set, std::uint64_t address);

/// Something that keeps a set from being linked as the process had it.
struct link_finding {
    wfta::finding_id id{};
    std::size_t kernel = 0;     ///< index in the set
    std::size_t relocation = 0; ///< index in the kernel's relocations; their number if it is of none
    std::string message;
    std::string evidence; ///< where the same was found again; may be empty
};

/// All kernels of a set, linked.
struct linked_set {
    std::vector<std::vector<std::uint8_t>> texts; ///< of each kernel
    std::vector<std::string> missing;             ///< names of targets that are not in the set, each once
    std::vector<link_finding> findings;           ///< by kernel and relocation; of a missing target one
};
linked_set link_set(const kernel_set& set);

} // namespace vorna::workbench
