#include "tests/support/coverage.hpp"

#include <csignal>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <sys/mman.h>

// The profile runtime's. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
[[gnu::weak]] char* __llvm_profile_begin_counters();
[[gnu::weak]] char* __llvm_profile_end_counters();
[[gnu::weak]] char* __llvm_profile_begin_bitmap();
[[gnu::weak]] char* __llvm_profile_end_bitmap();
}
// NOLINTEND(bugprone-reserved-identifier)

namespace support {

namespace {

struct counters {
    char* begin;
    std::size_t size;
};

} // namespace

static counters region_counters()
{
    char* const begin = __llvm_profile_begin_counters();
    return {begin, static_cast<std::size_t>(__llvm_profile_end_counters() - begin)};
}

// Which values the conditions of a decision had together.
static counters condition_bits()
{
    char* const begin = __llvm_profile_begin_bitmap();
    return {begin, static_cast<std::size_t>(__llvm_profile_end_bitmap() - begin)};
}

static char* map_shared()
{
    if (__llvm_profile_begin_counters == nullptr)
        return nullptr;
    const std::size_t size = 1 + region_counters().size + condition_bits().size;
    void* const mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return mapping == MAP_FAILED ? nullptr : static_cast<char*>(mapping);
}

// A byte that says whether a child has handed over, then its counters. Mapped before any test looks at the
// mappings that are made.
static char* const shared = map_shared();

void hand_over_coverage()
{
    if (shared == nullptr)
        return;
    char* to = shared + 1;
    for (const counters& part : {region_counters(), condition_bits()}) {
        std::memcpy(to, part.begin, part.size);
        to += part.size;
    }
    *shared = 1;
}

void hand_over_coverage_at_crashes()
{
    if (shared == nullptr)
        return;
    for (const int fatal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGTRAP}) {
        std::signal(fatal, [](int number) {
            hand_over_coverage();
            std::signal(number, SIG_DFL);
            std::raise(number); // once the handler returns
        });
    }
}

void take_over_coverage()
{
    if (shared == nullptr || *shared == 0)
        return;
    // The child has counted on from what its parent had.
    const char* from = shared + 1;
    for (const counters& part : {region_counters(), condition_bits()}) {
        std::memcpy(part.begin, from, part.size);
        from += part.size;
    }
    *shared = 0;
}

} // namespace support
