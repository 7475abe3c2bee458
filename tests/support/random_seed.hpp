// Seeds of randomised tests.
#pragma once

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

} // namespace support
