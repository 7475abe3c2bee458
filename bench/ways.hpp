// The measured ways to place a set of kernels: the finaliser, the floor of the work that it cannot avoid, and
// other linkers.
#pragma once

#include "bench/kernel_sets.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace bench {

/// A set, and what is prepared for the ways outside the measured time.
struct prepared_set {
    explicit prepared_set(kernel_set given);

    /// An instruction word after linking. It does not depend on where the mapping is: distances stay the
    /// same, and a mapping is page-aligned.
    struct linked_word {
        std::uint32_t offset; ///< from the start of its kernel's text
        std::uint32_t word;
    };

    kernel_set set;
    set_layout layout;
    std::vector<linked_word> words;     ///< of all kernels, in order
    std::vector<std::size_t> word_ends; ///< index past the last word of each kernel
    std::vector<std::uint8_t> object;   ///< one relocatable object with all kernels in one text section
};

/// A set that one of the ways has placed. Destroying it frees the memory.
class placement {
public:
    placement() = default;
    placement(const placement&) = delete;
    placement& operator=(const placement&) = delete;
    virtual ~placement() = default;

    /// Where the kernels are.
    virtual vorna::wfta::kernel_registry_map registry() const = 0;
};

struct way {
    const char* name;
    std::unique_ptr<placement> (*place)(const prepared_set& prepared);
    enum : std::uint8_t { nothing, all_but_adr, all } linked; ///< what it is checked for
};

/// Ends the process with one line on stderr unless `placed` is linked as `way` says.
void check(const way& way, const prepared_set& prepared, const placement& placed);

/// All ways, the finaliser first, the floor second. `prepared` outlives what they return.
std::vector<way> all_ways();

/// LLVM's linkers: JITLink on a graph built in memory, JITLink and RuntimeDyld on a ready object. Empty in
/// a build without LLVM.
std::vector<way> llvm_ways();

/// The kernels as one relocatable object, as an assembler would make it from one file: calls go by symbol,
/// data is reached from its section. The symbol `data_start` marks the first data block.
std::vector<std::uint8_t> make_object(const std::vector<vorna::wfta::kernel_data>& kernels,
                                      const set_layout& layout);

/// The registry of kernels whose code begins at `entries` and whose data is packed from `data_start` on.
vorna::wfta::kernel_registry_map registry_of(const prepared_set& prepared,
                                             const std::vector<std::uint64_t>& entries,
                                             std::uint64_t data_start);

} // namespace bench
