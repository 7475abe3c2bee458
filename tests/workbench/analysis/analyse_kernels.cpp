// analyse_kernels, from its library, against check_kernels and against the findings in dumps of the same set.

#include "workbench/analysis/analyse_kernels.hpp"
#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/broken_sets.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/analysis/check_dumps.hpp"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace support;
using vorna::wfta::analyse_kernels;
using vorna::wfta::analysis_options;
using vorna::wfta::check_kernels;
using vorna::wfta::finding_id;
using vorna::wfta::kernel_data;
using vorna::wfta::kernel_finding;
using vorna::wfta::kernel_registry_map;

constexpr std::uint32_t sdot = 0x4e829420;       // sdot v0.4s, v1.16b, v2.16b
constexpr std::uint32_t load_of_x4 = 0xf94000a4; // ldr x4, [x5]
constexpr std::uint32_t madd = 0x9b020c20;       // madd x0, x1, x2, x3

/// A finding with all that it has.
std::string text_of(const kernel_finding& finding)
{
    const auto number = [](const auto& value) { return value ? std::to_string(*value) : "-"; };
    return std::string(name_of(finding.id)) + " " + std::to_string(static_cast<int>(finding.severity)) +
           (finding.aborts ? " aborts" : "") + " #" + std::to_string(finding.index) + " " + finding.kernel +
           " relocation " + number(finding.relocation) + " offset " + number(finding.offset) + ": " +
           finding.message + " | " + finding.note + " | " + finding.help;
}

std::vector<std::string> texts_of(const std::vector<kernel_finding>& findings)
{
    std::vector<std::string> texts;
    std::transform(findings.begin(), findings.end(), std::back_inserter(texts), text_of);
    return texts;
}

/// The findings in dumps of the kernels, as finalise_kernels places them.
std::vector<kernel_finding> found_in_dumps(const std::vector<kernel_data>& kernels,
                                           const analysis_options& options)
{
    std::vector<vorna::workbench::placed_kernel> placed;
    for (const kernel_data& one : kernels)
        placed.push_back({one.name, 0, one.text, 0, one.data, one.relocs, 0, one.name});
    place_in_mapping(placed, 0x7ffff7fb1000);
    return check_dumps(vorna::workbench::make_kernel_set(std::move(placed)), options);
}

/// Puts words before a kernel's code.
void insert(kernel_data& kernel, const std::vector<std::uint32_t>& words)
{
    const std::vector<std::uint8_t> bytes = support::code(words);
    kernel.text.insert(kernel.text.begin(), bytes.begin(), bytes.end());
    for (tessjit::reloc_info& reloc : kernel.relocs)
        reloc.offset += static_cast<std::int32_t>(bytes.size());
}

/// Changes kernels of the set so that there is something to find in their instructions.
void change_instructions(random_engine& random, std::vector<kernel_data>& kernels)
{
    for (kernel_data& kernel : kernels) {
        switch (pick(random, 8)) {
        case 0:
            insert(kernel, {load_of_x4, madd});
            break;
        case 1:
            insert(kernel, {sdot});
            break;
        case 2: // no RET
            kernel.text.resize(kernel.text.size() - 4);
            break;
        case 3: // misaligns the constants of the next kernels
            kernel.data.resize(kernel.data.size() + 4);
            break;
        case 4: // loads and stores at the end of the constants, and after it
            kernel.relocs.push_back({".rodata." + kernel.name,
                                     static_cast<std::int32_t>(kernel.text.size()) - 4, 274,
                                     static_cast<std::int32_t>(kernel.data.size()) - 8});
            kernel.text.resize(kernel.text.size() - 4);
            for (const std::uint8_t byte :
                 support::code({a64::adr(9), pick(random, 2) == 0 ? 0xf9000120 : 0xf9400520, a64::ret()}))
                kernel.text.push_back(byte);
            break;
        case 5: { // Cortex-A53's other erratum, at the end of a page of the mapping
            std::vector<std::uint32_t> words(0xff8 / 4, a64::nop());
            words.insert(words.end(), {a64::adrp(0), 0xf9400041, 0xf9400403});
            insert(kernel, words);
            break;
        }
        case 6: { // an ADRP without its ADD
            const auto add = std::find_if(kernel.relocs.begin(), kernel.relocs.end(),
                                          [](const tessjit::reloc_info& reloc) { return reloc.type == 277; });
            if (add != kernel.relocs.end())
                kernel.relocs.erase(add);
            break;
        }
        default:
            break;
        }
    }
}

TEST(AnalyseKernels, FindsWhatIsFoundInDumps)
{
    const unsigned seed = random_seed();
    std::printf("seed %u\n", seed);
    random_engine random(seed);
    std::set<finding_id> ids;
    std::size_t compared = 0;
    while (compared < test_size(300, 2000)) {
        random_set set = make_random_set(random);
        if (!set.earlier.empty())
            continue;
        change_instructions(random, set.kernels);
        if (pick(random, 2) == 0)
            break_set(random, set);
        if (!set.null_names.empty())
            continue;
        const analysis_options options{pick(random, 2) == 0 ? "cortex-a53" : ""};
        const std::vector<kernel_finding> found = analyse_kernels({}, set.kernels, options);
        // Dumps may lack kernels, and their names are those of files.
        const auto depends = [](const kernel_finding& finding) {
            return finding.id == finding_id::unknown_target || finding.id == finding_id::duplicate_name;
        };
        if (std::any_of(found.begin(), found.end(), depends))
            continue;
        ++compared;
        const auto without_addresses = [](std::vector<kernel_finding> findings) {
            for (kernel_finding& finding : findings) {
                if (finding.id == finding_id::call_bit_25) // says where the call leads
                    finding.message.clear();
            }
            return texts_of(findings);
        };
        ASSERT_EQ(without_addresses(found), without_addresses(found_in_dumps(set.kernels, options)));
        for (const kernel_finding& finding : found)
            ids.insert(finding.id);
    }
    for (const finding_id id :
         {finding_id::foreign_data, finding_id::range, finding_id::opcode, finding_id::pair,
          finding_id::falls_through, finding_id::outside_constants, finding_id::writes_constants,
          finding_id::data_alignment, finding_id::erratum_843419, finding_id::erratum_835769,
          finding_id::missing_feature})
        EXPECT_TRUE(ids.contains(id)) << name_of(id);
}

TEST(AnalyseKernels, FindsWhatCheckKernelsFindsFirstInEachKernel)
{
    const unsigned seed = random_seed();
    std::printf("seed %u\n", seed);
    random_engine random(seed);
    std::size_t with_both = 0;
    for (std::size_t i = 0; i < test_size(300, 2000); ++i) {
        random_set set = make_random_set(random);
        change_instructions(random, set.kernels);
        break_set(random, set);
        kernel_registry_map registry;
        for (const std::string& name : set.null_names)
            registry[name] = {nullptr, 0, nullptr, 0};
        for (const kernel_data& earlier : set.earlier)
            registry[earlier.name] = {reinterpret_cast<std::uint8_t*>(std::uintptr_t{1} << 44), 4, nullptr,
                                      0};
        std::vector<std::string> found;
        bool in_instructions = false;
        std::size_t index = 0;
        for (const kernel_finding& finding : analyse_kernels(registry, set.kernels)) {
            ASSERT_GE(finding.index, index);
            if (finding.index != index)
                in_instructions = false;
            index = finding.index;
            if (finding.id > finding_id::pair) {
                in_instructions = true;
                with_both += found.empty() ? 0 : 1;
                continue;
            }
            EXPECT_FALSE(in_instructions) << text_of(finding);
            found.push_back(text_of(finding));
        }
        ASSERT_EQ(found, texts_of(check_kernels(registry, set.kernels)));
    }
    EXPECT_GT(with_both, 20U);
}

TEST(AnalyseKernels, FindsNothingInAnEmptySet)
{
    EXPECT_TRUE(analyse_kernels({}, {}).empty());
    EXPECT_TRUE(analyse_kernels({}, {kernel("one", {})}).empty());
}

TEST(AnalyseKernels, KnowsProcessorsByLlvmsNames)
{
    const std::vector<kernel_data> kernels = {kernel("one", {sdot, a64::ret()})};
    EXPECT_TRUE(analyse_kernels({}, kernels).empty());
    EXPECT_TRUE(analyse_kernels({}, kernels, {"cortex-a76"}).empty());
    EXPECT_EQ(analyse_kernels({}, kernels, {"cortex-a53"}).at(0).message,
              "sdot v0.4s, v1.16b, v2.16b needs dotprod, which cortex-a53 does not have");
    try {
        analyse_kernels({}, kernels, {"cortex-a5300"});
        ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "no processor cortex-a5300");
    }
}

TEST(AnalyseKernels, RunsInSeveralThreadsAtOnce)
{
    random_engine random(1);
    std::vector<std::vector<kernel_data>> sets;
    std::vector<std::vector<std::string>> expected;
    for (unsigned i = 0; i < 20; ++i) {
        sets.push_back(make_random_set(random).kernels);
        change_instructions(random, sets.back());
        expected.push_back(texts_of(analyse_kernels({}, sets.back(), {"cortex-a53"})));
    }
    std::vector<std::vector<std::vector<std::string>>> found(4);
    std::vector<std::thread> threads;
    for (std::vector<std::vector<std::string>>& one : found) {
        threads.emplace_back([&] {
            for (const std::vector<kernel_data>& kernels : sets)
                one.push_back(texts_of(analyse_kernels({}, kernels, {"cortex-a53"})));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(found, testing::Each(expected));
}

} // namespace
