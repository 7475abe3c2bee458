#include "workbench/render/cost_text.hpp"

#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace vorna::workbench {

std::string processor_text(const processor_model& processor)
{
    return processor.is_its_own() ? processor.name
                                  : fmt::format("{} (model of {})", processor.name, processor.model);
}

std::string block_text(const cost_block& block)
{
    if (block.depth == 0)
        return block.has_inner_loops ? "outside loops" : "all";
    const std::string depth = block.depth == 1 ? "" : fmt::format(", depth {}", block.depth);
    return fmt::format("loop +{:#x}{}", block.offset, depth);
}

std::string cycles_text(double cycles)
{
    const double rounded = std::round(cycles * 100) / 100;
    return fmt::format("{}", rounded);
}

namespace {

std::string mnemonic_at(const placed_kernel& kernel, std::size_t offset, disassembler& disassembler)
{
    const std::string text = generated_text(kernel, offset, disassembler);
    return fmt::format("{} +{:#x}", text.substr(0, text.find(' ')), offset);
}

// The kernel that a BL calls, if its relocation says so.
std::string callee_at(const placed_kernel& kernel, const instruction& call)
{
    return call.relocated == word_relocation::fits ? printable(kernel.relocs[call.relocation].name)
                                                   : "another function";
}

} // namespace

std::string obstacle_text(const placed_kernel& kernel, const decoded_kernel& code, const cost_block& block)
{
    const std::size_t offset = 4 * block.at;
    switch (block.obstacle) {
    case cost_obstacle::none:
        return "";
    case cost_obstacle::calls:
        return fmt::format("calls {} at +{:#x}", callee_at(kernel, code.instructions[block.at]), offset);
    case cost_obstacle::branches:
        return fmt::format("branches at +{:#x}", offset);
    case cost_obstacle::entries:
        return "an indirect branch may enter anywhere";
    case cost_obstacle::nesting:
        return fmt::format("loops nested more than {} deep", deepest_nesting);
    case cost_obstacle::length:
        return fmt::format("more than {} instructions", with_separators(largest_modelled_block));
    }
    return "";
}

std::string gap_text(const placed_kernel& kernel, const cost_block& block, const modelled_block& modelled,
                     disassembler& disassembler)
{
    if (modelled.gap == model_gap::none)
        return "";
    const std::size_t offset = 4 * block.instructions[modelled.at];
    const std::string instruction =
        fmt::format("{} at +{:#x}", generated_text(kernel, offset, disassembler), offset);
    switch (modelled.gap) {
    case model_gap::none:
    case model_gap::call: // an obstacle on every processor
        break;
    case model_gap::not_an_instruction:
        return fmt::format("not an instruction at +{:#x}", offset);
    case model_gap::not_on_processor:
        return "not on this processor: " + instruction;
    case model_gap::not_in_model:
        return "not in the model: " + instruction;
    }
    return "";
}

std::vector<std::size_t> chain_instructions(const block_cost& cost)
{
    std::vector<std::size_t> found;
    for (const chain_link& link : cost.chain) {
        for (const std::size_t i : {link.from, link.to}) {
            if (found.empty() || found.back() != i)
                found.push_back(i);
        }
    }
    return found;
}

std::string limit_text(const placed_kernel& kernel, const cost_block& block, const block_cost& cost,
                       disassembler& disassembler)
{
    constexpr std::size_t most = 4; // instructions of the chain
    std::string text = cost.limited_by;
    const double above = cost.cycles - cost.throughput;
    if (above >= 0.005)
        text += fmt::format(", {} above the bound", cycles_text(above));
    const std::vector<std::size_t> chain = chain_instructions(cost);
    for (std::size_t i = 0; i < std::min(chain.size(), most); ++i) {
        text += i == 0 ? ": " : " > ";
        text += mnemonic_at(kernel, 4 * block.instructions[chain[i]], disassembler);
    }
    if (chain.size() > most)
        text += fmt::format(" > {} more", chain.size() - most);
    return text;
}

std::string cost_disclaimer()
{
    return fmt::format("estimated by the scheduling models of LLVM {}, for code in the first-level cache and "
                       "predicted branches",
                       llvm_version());
}

} // namespace vorna::workbench
