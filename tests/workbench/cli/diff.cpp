// vorna-kernels diff on the dumps of two processes. Its output is tested in cases/diff*.t.

#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"

#include <gmock/gmock.h>
#include <sys/mman.h>

namespace {

namespace a64 = support::a64;
using support::child_result;

constexpr std::uint32_t load_d7_8 = 0xfd400467; // ldr d7, [x3, #8]
constexpr std::uint32_t store_d7 = 0xfd000027;  // str d7, [x1]

TEST(Diff, OfTwoRunsAtOtherAddressesIsAllSame)
{
    const auto finalise = [](std::size_t pages_before) {
        // The first mapping takes the address that the kernels had in the other run.
        (void)mmap(nullptr, pages_before * 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        vorna::wfta::kernel_registry_map registry;
        for (int set = 0; set < 3; ++set) {
            std::vector<vorna::wfta::kernel_data> kernels;
            for (unsigned i = 0; i < 20; ++i) {
                const std::string name = "k" + std::to_string(set) + "_" + std::to_string(i);
                kernels.push_back(
                    support::kernel(name,
                                    {a64::adrp(3), a64::add(3, 3, 0), load_d7_8, store_d7, a64::bl(),
                                     a64::movz(9, i), a64::ret()},
                                    {{".rodata." + name, 0, 275, 0},
                                     {".rodata." + name, 4, 277, 0},
                                     {i == 0 ? name : "k" + std::to_string(set) + "_0", 16, 283, 0}},
                                    support::bytes_of({1.0 * i, 2, 3})));
            }
            finalise_kernels(registry, kernels);
        }
        EXPECT_EQ(registry.size(), 60U);
    };
    const support::temp_directory directory;
    const auto run = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VORNA_KERNELS);
        return support::run_tool(std::move(arguments), directory.path());
    };
    for (const char* side : {"before", "after"}) {
        std::filesystem::create_directory(directory.path() / side);
        const child_result child =
            support::run_with_dumps([&] { finalise(side[0] == 'b' ? 1 : 1000); }, directory.path() / side);
        ASSERT_TRUE(child.succeeded()) << child;
    }
    EXPECT_NE(support::contents(directory.path() / "before" / "k1_1"),
              support::contents(directory.path() / "after" / "k1_1"));
    const child_result diff = run({"diff", "before", "after"});
    EXPECT_EQ(diff.exit_status, 0) << diff;
    EXPECT_EQ(diff.out, "60 same\n");
    // With itself.
    EXPECT_EQ(run({"diff", "before", "before"}).out, "60 same\n");
    // Both runs have the same baseline.
    const auto baseline = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"env", "CI=", VORNA_KERNELS, "baseline"});
        return support::run_tool(std::move(arguments), directory.path()).exit_status;
    };
    EXPECT_EQ(baseline({"bless", "--all", "base", "before", "--listing=listings"}), 0);
    EXPECT_EQ(baseline({"check", "base", "after", "--listing=listings"}), 0);
}

} // namespace
