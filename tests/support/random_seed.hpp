// Seeds and sizes of randomised tests.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <random>
#include <string>

namespace support {

/// The number in the environment variable WFTA_TEST_SEED, to repeat a failed run; a new one otherwise.
inline unsigned random_seed()
{
    const char* const given = std::getenv("WFTA_TEST_SEED");
    return given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device{}();
}

/// How much a randomised test tries: `most` if the environment variable WFTA_TEST_ALL is set, as by
/// `scripts/test --all`, otherwise `few`.
inline std::size_t test_size(std::size_t few, std::size_t most)
{
    return std::getenv("WFTA_TEST_ALL") != nullptr ? most : few;
}

} // namespace support
