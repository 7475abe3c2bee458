#include "bench/hash.hpp"

#include <cstring>

// The hash is local to its file, so that file is compiled again here, under another name.
#define finalise_kernels finalise_kernels_not_measured
#include "fft/SRC/wfta/kernel_printer.cpp" // NOLINT(bugprone-suspicious-include)

namespace bench {

std::uint64_t code_hash(const std::uint8_t* bytes, std::size_t size)
{
    return kernel_code_hash(bytes, size);
}

std::uint64_t byte_loop_hash(const std::uint8_t* bytes, std::size_t size)
{
    std::uint64_t h = 0;
    for (std::size_t i = 0; i < size; ++i)
        h = h * 31 + bytes[i];
    return h;
}

std::uint64_t sum_of_words(const std::uint8_t* bytes, std::size_t size)
{
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < size; i += sizeof sum) {
        std::uint64_t word;
        std::memcpy(&word, bytes + i, sizeof word);
        sum += word;
    }
    return sum;
}

} // namespace bench
