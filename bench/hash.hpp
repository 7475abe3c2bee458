// The finaliser's code hash, and the simple ones that it is compared with.
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// The finaliser's.
std::uint64_t code_hash(const std::uint8_t* bytes, std::size_t size);

/// One byte in each step.
std::uint64_t byte_loop_hash(const std::uint8_t* bytes, std::size_t size);

/// The sum of the 64-bit words: the speed of reading memory. `size` is a multiple of 8.
std::uint64_t sum_of_words(const std::uint8_t* bytes, std::size_t size);

} // namespace bench
