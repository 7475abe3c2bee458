// Linking: applies relocations as the finaliser does.
#pragma once

#include "check/finding.hpp"
#include "check/relocation.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorna::workbench {

/// The target that a relocation of the kernel names: placed, constants of another kernel, or unknown.
wfta::relocation_target find_target(const kernel_set& set, const placed_kernel& kernel,
                                    const std::string& name);

/// A kernel's code with its relocations applied in order.
struct linked_kernel {
    std::vector<std::uint8_t> text;

    /// For each relocation why it was not applied, which leaves the code unchanged. Or call_bit_25: it was
    /// applied, but the call leads elsewhere, since the untested top bit of the field was set.
    std::vector<std::optional<wfta::finding_id>> findings;
};
linked_kernel link_kernel(const kernel_set& set, const placed_kernel& kernel);

/// Whether the relocation, applied alone to the code as generated, gives a call that leads elsewhere.
bool leads_elsewhere(const kernel_set& set, const placed_kernel& kernel,
                     const tessjit::reloc_info& relocation);

/// An address as a kernel and an offset in its code, or as a number if it is in no kernel's code.
std::string address_text(const kernel_set& set, std::uint64_t address);

/// A reason why a set cannot be linked as it was in the process.
struct link_finding {
    wfta::finding_id id{};
    std::size_t kernel = 0; ///< index in the set
    std::size_t relocation =
        0; ///< index in the kernel's relocations; past the end for a finding about the kernel
    std::string message;
    std::string evidence; ///< where else the same was found; may be empty
};

/// All kernels of a set, linked.
struct linked_set {
    std::vector<std::vector<std::uint8_t>> texts; ///< the linked code of each kernel
    std::vector<std::string> missing;             ///< distinct names of targets that are not in the set
    std::vector<link_finding> findings;           ///< by kernel and relocation; one for each missing target
};
linked_set link_set(const kernel_set& set);

} // namespace vorna::workbench
