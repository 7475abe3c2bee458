// Which features of LLVM's an instruction needs, and which of them a processor has. LLVM's own tables answer
// both: an instruction needs a feature if LLVM's disassembler refuses it without that feature.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <bitset>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// Features, by LLVM's number.
using feature_set = std::bitset<512>;

/// LLVM's names of features ("neon", "dotprod", "lse"). A feature comes after those that it includes, and
/// otherwise they are in alphabetical order. "fp-armv8" is left out beside "neon": no processor has one of
/// the two alone.
std::vector<std::string> feature_names(const feature_set& features);

/// The features that an instruction needs beyond the integer instructions of Armv8.0-A; none for a word that
/// is not an instruction, or one that does nothing on processors without its feature (hints, prefetches).
///
/// Where one of several features would do, the answer is the one that does not take SME, and of those the one
/// that includes the fewest others: "sve" for what SVE and streaming SVE have.
///
/// A read or a write of a system register, and an operation by SYS, needs the feature with which LLVM knows
/// its name.
///
/// Thread-safe.
feature_set features_of(const instruction& instruction);

/// The features of a processor, by LLVM's name ("neoverse-v1"); nothing if LLVM does not know it.
std::optional<feature_set> find_processor(std::string_view name);

/// LLVM's names of processors, in alphabetical order.
const std::vector<std::string>& processor_names();

/// Tells which features a processor lacks for an instruction. Use one object in one thread at a time.
class feature_search {
public:
    explicit feature_search(const feature_set& present);
    ~feature_search();
    feature_search(const feature_search&) = delete;
    feature_search& operator=(const feature_search&) = delete;

    /// As features_of describes, but `present` first: nothing if one of several is present.
    const feature_set& missing(const instruction& instruction);

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vorna::workbench
