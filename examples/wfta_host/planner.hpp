// The planner: turns a transform length into placed, linked and runnable kernels.
#pragma once

#include "examples/wfta_host/breakage.hpp"
#include "examples/wfta_host/kernel_generator.hpp"
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wfta_host {

/// What was done to make one length runnable.
struct plan {
    unsigned length;
    direction dir;
    std::vector<unsigned> factors;   ///< prime to each other, rising; `length` is their product
    std::vector<std::string> placed; ///< kernels that this plan placed, in the order of their placement
    std::vector<std::string> reused; ///< kernels that the registry held before
    std::size_t code_bytes;          ///< of the placed kernels
    std::size_t data_bytes;          ///< of the placed kernels
    const std::uint8_t* mapping;     ///< start of the mapping of the placed kernels, null if there are none
    const void* entry;               ///< first instruction of the driver kernel, valid for the process's life
};

/// The 59 lengths above 1 that are products of coprime lengths of short kernels, ascending.
const std::vector<unsigned>& possible_lengths();

/// Splits a possible length into its factors, ascending. Returns an empty vector for any other length.
std::vector<unsigned> factors_of(unsigned length);

/// Makes `length`, one of possible_lengths(), runnable: generates the kernels that `registry` lacks, and
/// places and links them, with calls of the kernels that it has. Throws std::invalid_argument for an
/// impossible length.
///
/// With a breakage, the set has that mistake.
plan make_plan(vorna::wfta::kernel_registry_map& registry, unsigned length, direction dir,
               const breakage* breakage = nullptr, loop_order order = loop_order::plain);

} // namespace wfta_host
