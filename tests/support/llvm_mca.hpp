// Compares LLVM's pipeline model in the workbench with the program llvm-mca of the same LLVM.
#pragma once

#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/disasm/pipeline_model.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

namespace workbench = vorna::workbench;

inline constexpr const char* five_processors[] = {"cortex-a53", "cortex-a55", "cortex-a76", "neoverse-n1",
                                                  "neoverse-v2"};

using block_words = std::vector<std::uint32_t>;

inline std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// What llvm-mca says of some blocks. If it refuses to read any, there is no output, and `refused` has their
/// indices.
struct llvm_mca_run {
    std::vector<std::vector<std::string>> regions;
    std::set<std::size_t> refused;
};

inline llvm_mca_run run_llvm_mca(const std::vector<block_words>& blocks, const std::string& processor,
                                 unsigned iterations)
{
    workbench::disassembler disassembler;
    std::string source;
    std::vector<std::size_t> block_of_line = {0}; // the first line is line 1
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        source += "# LLVM-MCA-BEGIN\n";
        for (const std::uint32_t word : blocks[i])
            source += disassembler.text(word, 0) + "\n";
        source += "# LLVM-MCA-END\n";
        block_of_line.insert(block_of_line.end(), blocks[i].size() + 2, i);
    }
    const temp_directory directory;
    write_file(directory.path() / "source.s", source);
    const child_result tool = run_tool(
        {LLVM_MCA, "-mtriple=aarch64-linux-gnu", "-mcpu=" + processor, "-bottleneck-analysis",
         "-resource-pressure=false", fmt::format("-iterations={}", iterations), "source.s", "-o", "result"},
        directory.path());
    llvm_mca_run run;
    for (const std::string& line : lines_of(tool.err)) {
        if (line.starts_with("source.s:") && line.find(": error:") != std::string::npos)
            run.refused.insert(block_of_line.at(std::stoul(line.substr(9))));
    }
    if (!run.refused.empty())
        return run;
    if (!tool.succeeded())
        throw std::runtime_error(tool.err);
    for (const std::string& line : lines_of(contents(directory.path() / "result"))) {
        if (line.starts_with("Iterations:"))
            run.regions.emplace_back();
        if (!run.regions.empty())
            run.regions.back().push_back(line);
    }
    return run;
}

/// The lines of llvm-mca's output that the model must equal: the summary and the bottlenecks.
inline std::vector<std::string> summary_of(const std::vector<std::string>& region)
{
    std::vector<std::string> found;
    for (const std::string& line : region) {
        if (line.find("Critical sequence") != std::string::npos || line.starts_with("Instruction Info"))
            break;
        if (!line.empty() && !line.starts_with("uOps Per") && !line.starts_with("IPC") &&
            !line.starts_with("Dispatch Width"))
            found.push_back(line);
    }
    return found;
}

inline std::string rounded(double number)
{
    return fmt::format("{:.2f}", std::floor(number * 100 + 0.5) / 100);
}

/// The same in llvm-mca's words.
inline std::vector<std::string> summary_of(const workbench::block_cost& cost)
{
    const auto share = [&](const std::string& what, std::size_t cycles) {
        return fmt::format(
            "{}[ {}% ]", what,
            rounded(static_cast<double>(cycles) * 100 / static_cast<double>(cost.total_cycles)));
    };
    std::vector<std::string> lines = {
        fmt::format("Iterations:        {}", cost.iterations),
        fmt::format("Instructions:      {}", cost.instructions.size() * cost.iterations),
        fmt::format("Total Cycles:      {}", cost.total_cycles),
        fmt::format("Total uOps:        {}", cost.uops),
        fmt::format("Block RThroughput: {:.1f}", std::floor(cost.throughput * 10 + 0.5) / 10)};
    const workbench::pressure_cycles& pressure = cost.pressure;
    if (pressure.any == 0) {
        lines.emplace_back("No resource or data dependency bottlenecks discovered.");
        return lines;
    }
    lines.push_back(share("Cycles with backend pressure increase ", pressure.any));
    lines.emplace_back("Throughput Bottlenecks: ");
    lines.push_back(share("  Resource Pressure       ", pressure.resources));
    for (const auto& [name, cycles] : pressure.by_resource)
        lines.push_back(share("  - " + name + "  ", cycles));
    lines.push_back(share("  Data Dependencies:      ", pressure.dependencies));
    lines.push_back(share("  - Register Dependencies ", pressure.registers));
    lines.push_back(share("  - Memory Dependencies   ", pressure.memory));
    return lines;
}

/// The sum of the micro-operations that llvm-mca lists beside the instructions.
inline std::size_t listed_uops(const std::vector<std::string>& region)
{
    std::size_t sum = 0;
    bool listed = false;
    for (const std::string& line : region) {
        if (listed && line.starts_with(" "))
            sum += std::stoul(line);
        else
            listed = line.find("Instructions:") != std::string::npos && line.starts_with("[1]");
    }
    return sum;
}

/// In order, llvm-mca loses instructions that complete late when it counts micro-operations and resources.
/// Such a region is known by a count that differs from the list beside the instructions: takes the count from
/// the list. Returns whether the count was right.
inline bool repair_counts(std::vector<std::string>& summary, std::size_t uops)
{
    const std::string right = fmt::format("Total uOps:        {}", uops);
    const auto counted = std::find_if(summary.begin(), summary.end(), [](const std::string& line) {
        return line.starts_with("Total uOps:");
    });
    if (*counted == right)
        return true;
    *counted = right;
    return false;
}

/// Compares all blocks that the model accepts: cycles, micro-operations, throughput, bottlenecks. A few may
/// have an instruction that the assembler refuses to read, though it exists: one whose result is
/// unpredictable.
inline void compare_with_llvm_mca(const std::vector<block_words>& blocks, const std::string& processor,
                                  unsigned iterations)
{
    workbench::pipeline_model model(processor);
    std::vector<block_words> accepted;
    std::vector<workbench::block_cost> costs;
    for (const block_words& block : blocks) {
        workbench::block_run run = model.run(block, iterations);
        if (run.gap != workbench::model_gap::none)
            continue;
        accepted.push_back(block);
        costs.push_back(std::move(run.cost));
    }
    llvm_mca_run tool = run_llvm_mca(accepted, processor, iterations);
    if (!tool.refused.empty()) {
        EXPECT_LE(tool.refused.size(), 2 + accepted.size() / 20) << processor;
        for (auto block = tool.refused.rbegin(); block != tool.refused.rend(); ++block) {
            accepted.erase(accepted.begin() + static_cast<std::ptrdiff_t>(*block));
            costs.erase(costs.begin() + static_cast<std::ptrdiff_t>(*block));
        }
        tool = run_llvm_mca(accepted, processor, iterations);
    }
    const std::vector<std::vector<std::string>>& regions = tool.regions;
    ASSERT_EQ(regions.size(), accepted.size());
    std::size_t repaired = 0;
    workbench::disassembler disassembler;
    for (std::size_t i = 0; i < accepted.size(); ++i) {
        std::string text;
        for (const std::uint32_t word : accepted[i])
            text += disassembler.text(word, 0) + "\n";
        std::vector<std::string> expected = summary_of(regions[i]);
        std::vector<std::string> found = summary_of(costs[i]);
        if (model.processor().in_order && !repair_counts(expected, listed_uops(regions[i]) * iterations)) {
            ++repaired;
            const auto is_throughput = [](const std::string& line) { return line.starts_with("Block RThr"); };
            expected.erase(std::remove_if(expected.begin(), expected.end(), is_throughput), expected.end());
            found.erase(std::remove_if(found.begin(), found.end(), is_throughput), found.end());
        }
        EXPECT_EQ(found, expected) << processor << "\n" << text;
    }
    EXPECT_LE(repaired, accepted.size() / 4) << processor;
}

} // namespace support
