// Compares the model with the program llvm-mca of the same LLVM, for random blocks and for every loop of the
// example's kernels: the same block, processor and number of iterations must give the same cycles,
// micro-operations, throughput and bottlenecks.
//
// WFTA_BLOCKS is the number of random blocks, WFTA_TEST_SEED repeats a run.

#include "workbench/disasm/pipeline_model.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/llvm_mca.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/disasm/disassembler.hpp"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;
using support::assemble;
using testing::ElementsAre;

std::vector<std::uint32_t> random_instructions(std::mt19937& random)
{
    disassembler disassembler;
    std::vector<std::uint32_t> words;
    while (words.size() < 2000) {
        const auto word = static_cast<std::uint32_t>(random());
        if (!disassembler.text(word, 0).starts_with("."))
            words.push_back(word);
    }
    return words;
}

/// What kernels consist of, with random registers, and one in ten from anywhere in the instruction set.
class random_blocks {
public:
    explicit random_blocks(unsigned seed) : random_(seed), anything_(random_instructions(random_))
    {
        templates_ = assemble({"fadd v0.2d, v0.2d, v0.2d",
                               "fsub v0.4s, v0.4s, v0.4s",
                               "fmul v0.2d, v0.2d, v0.2d",
                               "fmla v0.2d, v0.2d, v0.2d",
                               "fmul v0.2d, v0.2d, v0.d[1]",
                               "fadd d0, d0, d0",
                               "fmadd d0, d0, d0, d0",
                               "fdiv v0.2d, v0.2d, v0.2d",
                               "fsqrt d0, d0",
                               "add x0, x0, x0",
                               "add x8, x8, #16",
                               "subs x0, x0, #1",
                               "mul x0, x0, x0",
                               "ldr q0, [x8], #16",
                               "ldr q0, [x8, #32]",
                               "ldp q0, q31, [x8]",
                               "str q0, [x8, #16]",
                               "str q0, [x8], #16",
                               "ld1 { v0.2d }, [x8], x30",
                               "st1 { v0.2d }, [x8]",
                               "ldr w0, [x8], #4",
                               "ldr q0, [x8, w1, uxtw #4]",
                               "ext v0.16b, v0.16b, v0.16b, #8",
                               "eor v0.16b, v0.16b, v0.16b",
                               "zip1 v0.4s, v0.4s, v0.4s",
                               "dup v0.2d, v0.d[1]",
                               "fmov x0, d0",
                               "mov x0, x0",
                               "cmp x0, x0",
                               "csel x0, x0, x0, ne",
                               "movi v0.2d, #0"});
    }

    support::block_words next()
    {
        support::block_words made(1 + random_() % 24);
        for (std::uint32_t& word : made)
            word = random_() % 10 == 0 ? anything_[random_() % anything_.size()]
                                       : varied(templates_[random_() % templates_.size()]);
        if (random_() % 2 == 0)
            made.push_back(random_() % 2 == 0 ? 0x54ffff81 : 0xd65f03c0); // b.ne #-16; ret
        return made;
    }

private:
    // Other registers, of a few, so that instructions depend on each other.
    std::uint32_t varied(std::uint32_t word)
    {
        return word ^ static_cast<std::uint32_t>(random_() % 8 | (random_() % 8) << 5);
    }

    std::mt19937 random_;
    std::vector<std::uint32_t> anything_;
    std::vector<std::uint32_t> templates_;
};

std::size_t block_count()
{
    const char* const given = std::getenv("WFTA_BLOCKS");
    return given != nullptr ? std::stoul(given) : support::test_size(100, 1000);
}

TEST(PipelineModel, EqualsLlvmMcaOnRandomBlocks)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE(fmt::format("WFTA_TEST_SEED={}", seed));
    random_blocks random(seed);
    std::vector<support::block_words> blocks(block_count());
    std::generate(blocks.begin(), blocks.end(), [&] { return random.next(); });
    for (const char* const processor : support::five_processors)
        support::compare_with_llvm_mca(blocks, processor, 100);
}

TEST(PipelineModel, ReadsTheChainOfAnInOrderProcessorOffTheSimulatedTime)
{
    pipeline_model model("cortex-a55");
    const block_cost cost = model
                                .run(assemble({"ldr q0, [x0], #16", "fmul v1.4s, v0.4s, v2.4s",
                                               "fadd v3.4s, v1.4s, v3.4s", "subs x1, x1, #1", "b.ne #-16"}),
                                     100)
                                .cost;
    EXPECT_EQ(cost.cycles, 12);
    EXPECT_EQ(cost.throughput, 3);
    EXPECT_EQ(cost.busiest, "issue width");
    EXPECT_EQ(cost.limited_by, "dependencies");
    EXPECT_THAT(cost.chain, ElementsAre(chain_link{0, 1, delay_reason::registers, "q0", false},
                                        chain_link{1, 2, delay_reason::registers, "q1", false},
                                        chain_link{3, 4, delay_reason::registers, "nzcv", false}));
}

TEST(PipelineModel, FollowsTheRecurrenceOfALoopOnAnOutOfOrderProcessor)
{
    pipeline_model model("neoverse-n1");
    const block_cost cost = model
                                .run(assemble({"ldr d0, [x0], #8", "fmul d1, d1, d0", "fadd d1, d1, d2",
                                               "subs x1, x1, #1", "b.ne #-16"}),
                                     100)
                                .cost;
    EXPECT_EQ(cost.cycles, 5); // FMUL 3, FADD 2
    EXPECT_EQ(cost.limited_by, "dependencies");
    EXPECT_THAT(cost.chain, ElementsAre(chain_link{2, 1, delay_reason::registers, "d1", true},
                                        chain_link{1, 2, delay_reason::registers, "d1", false}));
}

TEST(PipelineModel, NamesTheUnitThatAnOutOfOrderProcessorWaitsFor)
{
    pipeline_model model("neoverse-n1");
    const block_cost cost =
        model
            .run(assemble({"ldr x1, [x0]", "ldr x2, [x0, #8]", "ldr x3, [x0, #16]", "ldr x4, [x0, #24]"}),
                 100)
            .cost;
    EXPECT_EQ(cost.cycles, 2);
    EXPECT_EQ(cost.limited_by, "N1UnitL");
    EXPECT_EQ(cost.busiest, "N1UnitL");
}

TEST(PipelineModel, NamesTheUnitThatAnInOrderProcessorWaitsFor)
{
    pipeline_model model("cortex-a55");
    const block_cost cost = model.run(assemble({"fdiv d0, d1, d2", "fdiv d3, d4, d5"}), 10).cost;
    EXPECT_EQ(cost.limited_by, "CortexA55UnitFPDIV");
    EXPECT_EQ(cost.busiest, "CortexA55UnitFPDIV");
    ASSERT_FALSE(cost.chain.empty());
    EXPECT_EQ(cost.chain.back(), (chain_link{0, 1, delay_reason::resource, "CortexA55UnitFPDIV", false}));
}

TEST(PipelineModel, HasLatencyThroughputAndPortsOfEachInstruction)
{
    pipeline_model model("neoverse-n1");
    const block_cost cost = model.run(assemble({"ldr q0, [x0], #16", "fmul v1.4s, v0.4s, v2.4s"}), 1).cost;
    ASSERT_EQ(cost.instructions.size(), 2U);
    EXPECT_EQ(cost.instructions[0].uops, 2U);
    EXPECT_EQ(cost.instructions[0].latency, 5);
    EXPECT_EQ(cost.instructions[0].throughput, 0.5);
    EXPECT_EQ(cost.instructions[1].uops, 1U);
    EXPECT_EQ(cost.instructions[1].latency, 3);
    ASSERT_EQ(cost.instructions[1].resources.size(), 1U);
    EXPECT_EQ(cost.instructions[1].resources[0].resource, "N1UnitV");
    EXPECT_EQ(cost.instructions[1].resources[0].cycles, 1U);
}

model_gap gap_on(const char* processor, std::uint32_t word)
{
    const block_run run = pipeline_model(processor).run(std::vector{0xd503201fU, word}, 1); // after a NOP
    EXPECT_EQ(run.index, run.gap == model_gap::none ? 2U : 1U);
    return run.gap;
}

TEST(PipelineModel, RefusesWhatItCannotModel)
{
    const std::uint32_t sve_add = assemble({"add z0.d, z1.d, z2.d"}).at(0);
    EXPECT_EQ(gap_on("cortex-a55", sve_add), model_gap::not_on_processor);
    EXPECT_EQ(gap_on("neoverse-v2", sve_add), model_gap::none);
    EXPECT_EQ(gap_on("neoverse-v2", 0xffffffff), model_gap::not_an_instruction);
    EXPECT_EQ(gap_on("neoverse-v2", assemble({"bl #16"}).at(0)), model_gap::call);
    EXPECT_EQ(gap_on("neoverse-v2", assemble({"blr x3"}).at(0)), model_gap::call);
    EXPECT_EQ(gap_on("neoverse-v2", assemble({"retaa"}).at(0)), model_gap::not_in_model);
}

TEST(PipelineModel, NeedsAProcessorWithAModel)
{
    const auto refusal = [](const char* name) {
        try {
            pipeline_model{name};
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(refusal("cortex-a999"), "LLVM knows no processor cortex-a999");
    EXPECT_EQ(refusal("carmel"), "LLVM has no scheduling model for carmel");
    EXPECT_EQ(refusal("apple-m1"), ""); // an alias
}

const processor_model& find_processor(const std::string& name)
{
    const auto& all = processor_models();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& one) { return one.name == name; });
    if (found == all.end())
        throw std::runtime_error(name);
    return *found;
}

TEST(PipelineModel, KnowsWhoseModelAProcessorHas)
{
    EXPECT_EQ(find_processor("cortex-a72").model, "cortex-a57");
    EXPECT_EQ(find_processor("cortex-a35").model, "cortex-a53");
    EXPECT_EQ(find_processor("apple-m4").model, "apple-a7");
    EXPECT_EQ(find_processor("carmel").model, "");
    EXPECT_TRUE(find_processor("cortex-a55").in_order);
    EXPECT_FALSE(find_processor("cortex-a57").in_order);
    for (const processor_model& processor : processor_models()) {
        if (!processor.model.empty()) {
            EXPECT_TRUE(find_processor(processor.model).is_its_own()) << processor.name;
        }
    }
}

// Not all of LLVM's models are complete, and hostile code has instructions that no compiler emits.
TEST(PipelineModel, RunsAnyInstructionOnAnyProcessor)
{
    std::mt19937 random(support::random_seed());
    std::vector<std::uint32_t> words(support::test_size(300, 5000));
    for (std::uint32_t& word : words)
        word = static_cast<std::uint32_t>(random());
    for (const processor_model& processor : processor_models()) {
        if (!processor.is_its_own())
            continue;
        pipeline_model model(processor.name);
        std::vector<std::uint32_t> accepted;
        for (const std::uint32_t word : words) {
            const block_run run = model.run(std::vector{word}, 2);
            if (run.gap != model_gap::none)
                continue;
            EXPECT_GT(run.cost.total_cycles, 0U) << processor.name;
            accepted.push_back(word);
        }
        EXPECT_EQ(model.run(accepted, 1).gap, model_gap::none) << processor.name;
    }
}

} // namespace
