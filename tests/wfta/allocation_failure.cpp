// A host that runs out of memory in the middle of a call: std::bad_alloc passes through the library, which is
// built without exception handling, and leaves the state of the moment.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr long never = -1;
long allocations_until_failure = never;
int flushes = 0;

} // namespace

// Not inlined: GCC warns of a mismatch when it sees through only one of the two.
__attribute__((noinline)) void* operator new(std::size_t size)
{
    if (allocations_until_failure == 0) {
        throw std::bad_alloc();
    }
    if (allocations_until_failure > 0) {
        --allocations_until_failure;
    }
    if (void* const block = std::malloc(size == 0 ? 1 : size)) {
        return block;
    }
    throw std::bad_alloc();
}

__attribute__((noinline)) void operator delete(void* block) noexcept
{
    std::free(block);
}

__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

// The linker's name for a wrapped function. NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __wrap___clear_cache(void* /*begin*/, void* /*end*/);
extern "C" void __wrap___clear_cache(void* /*begin*/, void* /*end*/)
{
    ++flushes;
}

namespace {

using namespace support;
using namespace vorna::wfta;

// Longer than a string object holds without allocating.
const std::string kernel_names[] = {"first kernel of the set of three", "second kernel of the set of three",
                                    "third kernel of the set of three"};

int elsewhere = 0;

/// Each of the three calls itself and loads its own data.
std::vector<kernel_data> three_kernels(std::vector<void*>& slots)
{
    slots.assign(3, &elsewhere);
    std::vector<kernel_data> kernels;
    for (std::size_t i = 0; i < 3; ++i) {
        kernels.push_back(kernel(kernel_names[i], {a64::adr(0), a64::bl()},
                                 {{".rodata." + kernel_names[i], 0, R_AARCH64_ADR_PREL_LO21, 0},
                                  {kernel_names[i], 4, R_AARCH64_CALL26, 0}},
                                 {1, 2, 3, 4}, &slots[i]));
    }
    return kernels;
}

/// Finalises the three kernels repeatedly; each time one more allocation succeeds before one fails. Returns
/// how many allocations a complete call needs.
long fail_every_allocation()
{
    for (long succeeding = 0;; ++succeeding) {
        SCOPED_TRACE("after " + std::to_string(succeeding) + " allocations");
        std::vector<void*> slots;
        const std::vector<kernel_data> kernels = three_kernels(slots);
        kernel_registry_map registry;
        flushes = 0;
        bool reached_host = false;
        allocations_until_failure = succeeding;
        try {
            finalise_kernels(registry, kernels);
        } catch (const std::bad_alloc&) {
            reached_host = true;
        }
        allocations_until_failure = never;

        std::size_t published = 0;
        while (published < 3 && slots[published] != &elsewhere) {
            EXPECT_EQ(slots[published], registry.at(kernel_names[published]).text_ptr);
            EXPECT_EQ(word_at(static_cast<std::uint8_t*>(slots[published]) + 4), 0x97ffffffU);
            ++published;
        }
        for (std::size_t i = published; i < 3; ++i) {
            EXPECT_EQ(slots[i], &elsewhere);
        }
        for (std::size_t i = 0; i < registry.size(); ++i) {
            EXPECT_EQ(registry.count(kernel_names[i]), 1U); // the first ones, in order
        }
        if (!reached_host) {
            EXPECT_EQ(published, 3U);
            EXPECT_EQ(flushes, 1);
            return succeeding;
        }
        EXPECT_LT(published, 3U);
        EXPECT_EQ(flushes, 0);
        // The kernel at hand may be registered, but is neither linked nor published.
        EXPECT_TRUE(registry.size() == published || registry.size() == published + 1);
        if (registry.size() > published) {
            const std::uint8_t* const text = registry.at(kernel_names[published]).text_ptr;
            EXPECT_EQ(word_at(text), a64::adr(0));
            EXPECT_EQ(word_at(text + 4), a64::bl());
        }
    }
}

class AllocationFailure : public testing::Test {
#ifdef _GLIBCXX_DEBUG
    void SetUp() override
    {
        GTEST_SKIP() << "in the debug mode's containers, iterators of the call that an exception left remain";
    }
#endif
};

// In children, which leave no leak report: an exception that passes through code without clean-up leaks.
TEST_F(AllocationFailure, ReachesTheHostFromEveryAllocationOfACall)
{
    const child_result child = run_in_child([] {
        EXPECT_EQ(fail_every_allocation(), 6); // a node and a name for each kernel
    });
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
}

TEST_F(AllocationFailure, InAnyDiagnosticReachesTheHost)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_DUMP_KERNEL", "kernel of"}, {"VORNA_WFTA_CHECK_HASH", "1"}};
#ifdef _LIBCPP_VERSION // whose std::regex frees its nodes twice when memory runs out in its constructor
    options.environment.erase(options.environment.begin());
#endif
    const child_result child = run_in_child([] { EXPECT_GT(fail_every_allocation(), 10); }, options);
    EXPECT_TRUE(child.succeeded()) << child;
}

TEST_F(AllocationFailure, TheHostMayGoOnWithTheSameRegistry)
{
    const child_result child = run_in_child([] {
        std::vector<void*> slots;
        const std::vector<kernel_data> kernels = three_kernels(slots);
        kernel_registry_map registry;
        allocations_until_failure = 2;
        EXPECT_THROW(finalise_kernels(registry, kernels), std::bad_alloc);
        allocations_until_failure = never;
        ASSERT_EQ(registry.size(), 1U);

        finalise_kernels(registry, {kernels[1], kernels[2]});
        EXPECT_EQ(registry.size(), 3U);
        EXPECT_EQ(slots[2], registry.at(kernel_names[2]).text_ptr);
    });
    EXPECT_TRUE(child.succeeded()) << child;
}

} // namespace
