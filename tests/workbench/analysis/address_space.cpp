// Determining which process had the kernels mapped, and when.

#include "workbench/analysis/address_space.hpp"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace vorna::workbench;

/// Kernels of 64 bytes in one-page mappings at 0x10000 and 0x30000.
const kernel_set& two_mappings()
{
    using bytes = std::vector<std::uint8_t>;
    static const kernel_set set = make_kernel_set({{"a", 0x10000, bytes(64), 0x10800, bytes(8), {}, 0, ""},
                                                   {"b", 0x30000, bytes(64), 0x30800, bytes(8), {}, 0, ""}});
    return set;
}

perf_mapping kernels_at(std::int32_t pid, std::uint64_t begin)
{
    return {pid, begin, begin + 0x1000, true, true, true};
}

perf_sample sample_at(std::int32_t pid, std::uint64_t address)
{
    return {pid, "e", address, 10};
}

/// Samples in kernels, and samples in their mappings but in no kernel.
std::pair<std::uint64_t, std::uint64_t> counts(address_spaces& spaces)
{
    const std::vector<memory_samples> events = spaces.finish();
    std::uint64_t in_kernels = 0;
    if (events.empty())
        return {0, 0};
    for (const auto& [address, count] : events.at(0).in_kernels) {
        EXPECT_EQ(count.period, 10 * count.samples);
        in_kernels += count.samples;
    }
    return {in_kernels, events.at(0).unknown.samples};
}

using pair = std::pair<std::uint64_t, std::uint64_t>;

TEST(AddressSpaces, CountInAProcessThatMapsAllKernels)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    spaces.map(kernels_at(5, 0x30000));
    spaces.add_sample(sample_at(5, 0x3003f), 0);
    spaces.add_sample(sample_at(5, 0x30040), 0);
    spaces.add_sample(sample_at(5, 0x31000), 0);
    spaces.add_sample(sample_at(6, 0x10000), 0);
    EXPECT_EQ(counts(spaces), pair(2, 1));
}

TEST(AddressSpaces, AreSharedByAForkUntilOneMapsSomething)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.fork({6, 5});
    spaces.map(kernels_at(5, 0x30000));
    spaces.add_sample(sample_at(6, 0x10000), 0); // memory that the parent had, too
    spaces.add_sample(sample_at(6, 0x30000), 0);
    spaces.add_sample(sample_at(5, 0x30000), 0);
    EXPECT_EQ(counts(spaces), pair(2, 0));
}

TEST(AddressSpaces, AreEmptyAfterAnExec)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.map(kernels_at(5, 0x30000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    spaces.exec({5});
    spaces.add_sample(sample_at(5, 0x10000), 0);
    EXPECT_EQ(counts(spaces), pair(1, 0));
}

TEST(AddressSpaces, DropTheSamplesOfMemoryThatIsReplaced)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.add_sample(sample_at(5, 0x10000), 0); // other code at this address
    spaces.map(kernels_at(5, 0x10000));
    spaces.map(kernels_at(5, 0x30000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    EXPECT_EQ(counts(spaces), pair(1, 0));
}

TEST(AddressSpaces, KeepTheSamplesOfMemoryThatMergesWithItsNeighbour)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    spaces.map({5, 0x10000, 0x12000, true, true, true});
    spaces.map(kernels_at(5, 0x30000));
    EXPECT_EQ(counts(spaces), pair(1, 0));
}

TEST(AddressSpaces, KeepSamplesWhenTheProtectionChanges)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    spaces.map({5, 0x10000, 0x11000, true, true, false}); // no longer writable
    spaces.map({5, 0x10000, 0x11000, true, false, true}); // no longer executable
    spaces.map(kernels_at(5, 0x30000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    EXPECT_EQ(counts(spaces), pair(2, 0));
}

TEST(AddressSpaces, DropTheSamplesOfMemoryThatIsPartOfAMapping)
{
    for (const auto& [begin, end] : {pair(0x10000, 0x10400), pair(0x10400, 0x11000)}) {
        address_spaces spaces(two_mappings());
        spaces.map({5, begin, end, true, true, true}); // the kernels' memory begins and ends elsewhere
        spaces.add_sample(sample_at(5, begin), 0);
        spaces.map({5, 0x10000, 0x12000, true, true, true});
        spaces.map(kernels_at(5, 0x30000));
        EXPECT_EQ(counts(spaces), pair(0, 0)) << begin;
    }
}

TEST(AddressSpaces, DoNotCountAProcessWithSomeOfTheKernels)
{
    address_spaces spaces(two_mappings());
    for (const std::int32_t pid : {5, 6}) {
        spaces.map(kernels_at(pid, 0x10000));
        spaces.add_sample(sample_at(pid, 0x10000), 0);
    }
    spaces.map(kernels_at(6, 0x30000));
    EXPECT_EQ(counts(spaces), pair(1, 0));
}

TEST(AddressSpaces, DropTheSamplesOfSharedMemoryThatOneProcessReplaces)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    spaces.fork({6, 5});
    spaces.map({6, 0x10000, 0x11000, false, true, false}); // a file
    spaces.map(kernels_at(5, 0x30000)); // so the process that keeps the memory does not have the kernels
    EXPECT_THROW(spaces.finish(), std::runtime_error);
    spaces.map(kernels_at(6, 0x10000));
    spaces.map(kernels_at(6, 0x30000));
    EXPECT_EQ(counts(spaces), pair(0, 0));
}

TEST(AddressSpaces, DropTheSamplesOfKernelsThatAForkReplaces)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.map(kernels_at(5, 0x30000));
    spaces.add_sample(sample_at(5, 0x10000), 0);
    spaces.add_sample(sample_at(5, 0x30000), 0);
    spaces.fork({6, 5});
    spaces.map({6, 0x10000, 0x11000, false, true, false}); // a file
    EXPECT_EQ(counts(spaces), pair(1, 0));
}

TEST(AddressSpaces, BoundTheCostOfMappings)
{
    std::vector<placed_kernel> kernels;
    for (std::uint64_t i = 0; i < 2000; ++i)
        kernels.push_back({"k", i << 20, std::vector<std::uint8_t>(4), (i << 20) + 0x800, {}, {}, 0, ""});
    const kernel_set set = make_kernel_set(std::move(kernels));
    address_spaces spaces(set);
    const auto map_everything = [&] {
        for (int i = 0; i < 10'000; ++i)
            spaces.map({5, 0, std::uint64_t{1} << 32, true, true, true});
    };
    EXPECT_THROW(map_everything(), std::runtime_error);
}

TEST(AddressSpaces, CountTheMappingsOfAProcess)
{
    address_spaces spaces(two_mappings());
    spaces.map(kernels_at(5, 0x10000));
    spaces.map(kernels_at(6, 0x30000));
    try {
        spaces.finish();
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "dumps and profile are of different runs: no process maps all of the "
                                   "kernels; process 5 has 1 of their 2 mappings");
    }
}

} // namespace
