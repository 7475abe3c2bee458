// The code hash that the finaliser computes, and the plain forms it is measured against.
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// The finaliser's own.
std::uint64_t code_hash(const std::uint8_t* bytes, std::size_t size);

/// One byte a step.
std::uint64_t byte_loop_hash(const std::uint8_t* bytes, std::size_t size);

/// The sum of the 64-bit words: as fast as memory is read. `size` is a multiple of 8.
std::uint64_t sum_of_words(const std::uint8_t* bytes, std::size_t size);

} // namespace bench
