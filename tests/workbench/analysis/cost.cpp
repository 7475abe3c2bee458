// What kernels cost: which blocks there are, which of them can be modelled, and why not; and for every block
// of the example's kernels, the same figures as the program llvm-mca has on five processors.

#include "workbench/analysis/cost.hpp"
#include "examples/wfta_host/kernel_generator.hpp"
#include "examples/wfta_host/planner.hpp"
#include "examples/wfta_host/short_dft.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/llvm_mca.hpp"
#include "tests/support/random_seed.hpp"

#include <algorithm>
#include <ctime>
#include <gmock/gmock.h>
#include <random>
#include <set>

namespace {

using namespace vorna::workbench;
using testing::ElementsAre;
using testing::SizeIs;

placed_kernel assembled(const std::string& source)
{
    const support::generated_kernel made = support::assemble_kernel("kernel", source);
    placed_kernel kernel;
    kernel.name = "kernel";
    kernel.text = made.code;
    kernel.relocs = made.relocs;
    return kernel;
}

std::vector<cost_block> blocks_of(const placed_kernel& kernel)
{
    const decoded_kernel code = decode_kernel(kernel);
    return find_cost_blocks(code, map_code(code, {}));
}

TEST(Cost, TakesAKernelWithoutALoopAsOneBlock)
{
    const std::vector<cost_block> blocks = blocks_of(assembled("fadd d0, d0, d1\nfmul d0, d0, d2\nret\n"));
    ASSERT_THAT(blocks, SizeIs(1));
    EXPECT_EQ(blocks[0].depth, 0U);
    EXPECT_FALSE(blocks[0].has_inner_loops);
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::none);
    EXPECT_THAT(blocks[0].instructions, ElementsAre(0, 1, 2));
}

TEST(Cost, ListsInnerLoopsFirstAndLeavesThemOutOfTheLoopsAroundThem)
{
    const std::vector<cost_block> blocks = blocks_of(assembled("mov x2, #8\n"
                                                               "1: mov x1, #4\n"
                                                               "2: subs x1, x1, #1\n b.ne 2b\n"
                                                               "subs x2, x2, #1\n b.ne 1b\n"
                                                               "3: subs x0, x0, #1\n b.ne 3b\n"
                                                               "ret\n"));
    ASSERT_THAT(blocks, SizeIs(4));
    EXPECT_EQ(blocks[0].depth, 2U);
    EXPECT_THAT(blocks[0].instructions, ElementsAre(2, 3));
    EXPECT_EQ(blocks[1].depth, 1U);
    EXPECT_TRUE(blocks[1].has_inner_loops);
    EXPECT_THAT(blocks[1].instructions, ElementsAre(1, 4, 5));
    EXPECT_EQ(blocks[2].depth, 1U);
    EXPECT_THAT(blocks[2].instructions, ElementsAre(6, 7));
    EXPECT_EQ(blocks[3].depth, 0U);
    EXPECT_TRUE(blocks[3].has_inner_loops);
    EXPECT_THAT(blocks[3].instructions, ElementsAre(0, 8));
    for (const cost_block& block : blocks)
        EXPECT_EQ(block.obstacle, cost_obstacle::none);
}

TEST(Cost, FollowsALoopWhoseConditionIsAtTheTop)
{
    const std::vector<cost_block> blocks =
        blocks_of(assembled("1: cbz x0, 2f\n sub x0, x0, #1\n b 1b\n 2: ret\n"));
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::none);
    EXPECT_THAT(blocks[0].instructions, ElementsAre(0, 1, 2));
    EXPECT_THAT(blocks[1].instructions, ElementsAre(3));
}

TEST(Cost, FollowsALoopInTheOrderOfExecution)
{
    const std::vector<cost_block> blocks =
        blocks_of(assembled("b 2f\n 1: sub x0, x0, #1\n b 3f\n 2: nop\n b 1b\n 3: cbnz x0, 2b\n ret\n"));
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::none);
    EXPECT_EQ(blocks[0].offset, 12U);
    EXPECT_THAT(blocks[0].instructions, ElementsAre(3, 4, 1, 2, 5));
}

TEST(Cost, DoesNotGuessWhichWayABranchInALoopGoes)
{
    const std::vector<cost_block> blocks =
        blocks_of(assembled("1: cbz x1, 2f\n add x1, x1, #1\n 2: subs x0, x0, #1\n b.ne 1b\n ret\n"));
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::branches);
    EXPECT_EQ(blocks[0].at, 0U);
    EXPECT_THAT(blocks[0].instructions, SizeIs(4));
    EXPECT_EQ(blocks[1].obstacle, cost_obstacle::none);
}

TEST(Cost, DoesNotGuessWhichIterationsContinueEarly)
{
    const std::vector<cost_block> blocks =
        blocks_of(assembled("1: subs x0, x0, #1\n b.mi 1b\n add x1, x1, #1\n cbnz x0, 1b\n ret\n"));
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::branches);
    EXPECT_EQ(blocks[0].at, 1U);
}

TEST(Cost, SaysWhereALoopCalls)
{
    const std::vector<cost_block> blocks =
        blocks_of(assembled("1: nop\n bl other\n subs x19, x19, #1\n b.ne 1b\n ret\n"));
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::calls);
    EXPECT_EQ(blocks[0].at, 1U);
}

TEST(Cost, SaysWhereTheCodeOutsideLoopsBranches)
{
    const std::vector<cost_block> blocks = blocks_of(assembled("cbz x0, 1f\n nop\n 1: ret\n"));
    ASSERT_THAT(blocks, SizeIs(1));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::branches);
    EXPECT_EQ(blocks[0].at, 0U);
}

TEST(Cost, KnowsNoLoopsWhereAnIndirectBranchMayLeadAnywhere)
{
    const std::vector<cost_block> blocks =
        blocks_of(assembled("1: adr x1, 1b\n subs x0, x0, #1\n b.ne 1b\n br x1\n"));
    ASSERT_THAT(blocks, SizeIs(1));
    EXPECT_EQ(blocks[0].obstacle, cost_obstacle::entries);
    EXPECT_THAT(blocks[0].instructions, SizeIs(4));
}

TEST(Cost, ModelsALoopForALongRunAndOtherCodeOnceAsWell)
{
    const placed_kernel kernel = assembled("1: ldr q0, [x0], #16\n fmul v1.4s, v0.4s, v2.4s\n"
                                           "fadd v3.4s, v1.4s, v3.4s\n subs x1, x1, #1\n b.ne 1b\n"
                                           "fadd d0, d0, d1\n fadd d0, d0, d2\n ret\n");
    const decoded_kernel code = decode_kernel(kernel);
    const std::vector<cost_block> blocks = find_cost_blocks(code, map_code(code, {}));
    block_models models("cortex-a55");
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(models.of(code, blocks[0]).cost.iterations, 100U);
    EXPECT_EQ(models.of(code, blocks[0]).cost.cycles, 12);
    EXPECT_EQ(models.of(code, blocks[1]).cost.cycles, 8);
    EXPECT_EQ(models.of(code, blocks[1]).once, 9U);
}

std::vector<placed_kernel> example_kernels()
{
    std::vector<vorna::wfta::kernel_data> made;
    for (const wfta_host::short_dft& dft : wfta_host::short_dfts())
        made.push_back(wfta_host::generate_short_kernel(dft));
    for (const unsigned length : wfta_host::possible_lengths())
        made.push_back(
            wfta_host::generate_driver_kernel(wfta_host::factors_of(length), wfta_host::direction::forward));
    std::vector<placed_kernel> kernels;
    for (const vorna::wfta::kernel_data& data : made) {
        placed_kernel kernel;
        kernel.name = data.name;
        kernel.text = data.text;
        kernel.relocs = data.relocs;
        kernels.push_back(std::move(kernel));
    }
    return kernels;
}

TEST(Cost, EqualsLlvmMcaForTheExamplesKernels)
{
    std::set<support::block_words> distinct;
    for (const placed_kernel& kernel : example_kernels()) {
        const decoded_kernel code = decode_kernel(kernel);
        for (const cost_block& block : find_cost_blocks(code, map_code(code, {}))) {
            support::block_words words;
            for (const std::size_t i : block.instructions)
                words.push_back(code.instructions[i].word);
            if (block.obstacle == cost_obstacle::none)
                distinct.insert(words);
        }
    }
    EXPECT_GT(distinct.size(), 59U);
    const std::vector<support::block_words> blocks(distinct.begin(), distinct.end());
    for (const char* const processor : support::five_processors)
        support::compare_with_llvm_mca(blocks, processor, 100);
}

placed_kernel random_code(std::mt19937& random, std::size_t words)
{
    placed_kernel kernel;
    kernel.name = "kernel";
    for (std::size_t i = 0; i < words; ++i) {
        auto word = static_cast<std::uint32_t>(random());
        const auto distance = static_cast<std::uint32_t>(random() % 64) - 32;
        if (random() % 3 == 0) // cbz, backwards or forwards
            word = 0xb4000000 | (distance & 0x7ffff) << 5 | word % 31;
        else if (random() % 2 == 0)
            word = 0x8b000000 | (word & 0x001f03ff); // add
        for (unsigned byte = 0; byte < 4; ++byte)
            kernel.text.push_back(static_cast<std::uint8_t>(word >> 8 * byte));
    }
    return kernel;
}

TEST(Cost, SurvivesHostileCode)
{
    std::mt19937 random(support::random_seed());
    block_models models("cortex-a55");
    std::size_t modelled = 0;
    for (std::size_t i = 0; i < support::test_size(300, 3000); ++i) {
        const placed_kernel kernel = random_code(random, 1 + random() % 80);
        const decoded_kernel code = decode_kernel(kernel);
        const code_map map = map_code(code, {});
        std::size_t in_blocks = 0;
        for (const cost_block& block : find_cost_blocks(code, map)) {
            in_blocks += block.instructions.size();
            if (block.obstacle == cost_obstacle::none && models.of(code, block).gap == model_gap::none)
                ++modelled;
        }
        EXPECT_EQ(static_cast<std::ptrdiff_t>(in_blocks),
                  std::count(map.uses.begin(), map.uses.end(), word_use::code));
    }
    EXPECT_GT(modelled, 0U);
}

double processor_seconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// A million instructions: as one block, as nested loops, and as a mesh of branches.
TEST(Cost, BoundsTheTimeForLargeKernels)
{
    constexpr std::size_t words = largest_decoded_code / 4;
    const auto kernel_of = [](const auto& word_at) {
        placed_kernel kernel;
        kernel.name = "kernel";
        for (std::size_t i = 0; i < words; ++i) {
            const std::uint32_t word = word_at(i);
            for (unsigned byte = 0; byte < 4; ++byte)
                kernel.text.push_back(static_cast<std::uint8_t>(word >> 8 * byte));
        }
        return kernel;
    };
    const auto branch = [](std::ptrdiff_t distance) {
        return 0xb4000000 | (static_cast<std::uint32_t>(distance) & 0x7ffff) << 5; // cbz x0
    };
    const double begin = processor_seconds();
    const std::vector<cost_block> straight = blocks_of(kernel_of([](std::size_t) { return 0xd503201fU; }));
    ASSERT_THAT(straight, SizeIs(1));
    EXPECT_EQ(straight[0].obstacle, cost_obstacle::length);
    const std::vector<cost_block> nested = blocks_of(kernel_of([&](std::size_t i) {
        constexpr std::size_t middle = words / 2; // a branch reaches 2^18 instructions
        return i < middle || i > middle + 100000 ? 0xd503201fU
                                                 : branch(-2 * static_cast<std::ptrdiff_t>(i - middle));
    }));
    ASSERT_THAT(nested, SizeIs(1));
    EXPECT_EQ(nested[0].obstacle, cost_obstacle::nesting);
    const std::vector<cost_block> mesh = blocks_of(kernel_of(
        [&](std::size_t i) { return branch(static_cast<std::ptrdiff_t>(i * 2654435761U % 4001) - 2000); }));
    EXPECT_FALSE(mesh.empty());
    EXPECT_LT(processor_seconds() - begin, 60);
}

} // namespace
