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

std::string count_cycles(double cycles)
{
    const std::string text = cycles_text(cycles);
    return text + (text == "1" ? " cycle" : " cycles");
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

std::string chain_text(const placed_kernel& kernel, const cost_block& block, const block_cost& cost,
                       disassembler& disassembler)
{
    constexpr std::size_t most = 4; // instructions of the chain
    const double above = cost.cycles - cost.throughput;
    std::string text = above >= 0.005 ? cycles_text(above) + " above the bound" : "";
    const std::vector<std::size_t> chain = chain_instructions(cost);
    for (std::size_t i = 0; i < std::min(chain.size(), most); ++i) {
        text += i != 0 ? " > " : text.empty() ? "" : ": ";
        text += mnemonic_at(kernel, 4 * block.instructions[chain[i]], disassembler);
    }
    if (chain.size() > most)
        text += fmt::format(" > {} more", chain.size() - most);
    return text;
}

std::string limit_text(const placed_kernel& kernel, const cost_block& block, const block_cost& cost,
                       disassembler& disassembler)
{
    const std::string chain = chain_text(kernel, block, cost, disassembler);
    const char* const separator = cost.cycles - cost.throughput >= 0.005 ? ", " : ": ";
    return cost.limited_by + (chain.empty() ? "" : separator + chain);
}

static json block_json(const placed_kernel& kernel, const decoded_kernel& code, const cost_block& block,
                       block_models& model, disassembler& disassembler)
{
    json made = {{"block", block_text(block)},
                 {"offset", block.offset},
                 {"bytes", 4 * block.instructions.size()},
                 {"loop", block.depth},
                 {"cpu", model.processor().name},
                 {"model", model.processor().model},
                 {"instructions", block.instructions.size()}};
    std::string reason = obstacle_text(kernel, code, block);
    if (reason.empty()) {
        const modelled_block& modelled = model.of(code, block);
        const block_cost& cost = modelled.cost;
        reason = gap_text(kernel, block, modelled, disassembler);
        if (reason.empty()) {
            json chain = json::array();
            for (const std::size_t i : chain_instructions(cost))
                chain.push_back(4 * block.instructions[i]);
            made["iterations"] = cost.iterations;
            made["uops"] = cost.uops;
            made["total_cycles"] = cost.total_cycles;
            made["cycles"] = cost.cycles;
            made["once"] = modelled.once;
            made["throughput"] = cost.throughput;
            made["limited_by"] = cost.limited_by;
            made["chain"] = std::move(chain);
        }
    }
    made["not_modelled"] = reason;
    return made;
}

json blocks_json(const placed_kernel& kernel, const decoded_kernel& code,
                 const std::vector<cost_block>& blocks, const model_list& models, disassembler& disassembler)
{
    json made = json::array();
    for (const cost_block& block : blocks) {
        for (const auto& model : models)
            made.push_back(block_json(kernel, code, block, *model, disassembler));
    }
    return made;
}

table cost_table(const placed_kernel& kernel, const decoded_kernel& code,
                 const std::vector<cost_block>& blocks, const model_list& models, disassembler& disassembler)
{
    table made;
    made.columns = {{"block"},
                    {"processor"},
                    {"cycles", column_kind::number},
                    {"bound", column_kind::number},
                    {"limited by"}};
    made.aligned = true;
    const auto add = [&](const cost_block& block, const std::string& processor, const block_cost* cost,
                         const std::string& reason) {
        table_row row;
        row.cells = {{block_text(block)},
                     {processor},
                     {cost != nullptr ? cycles_text(cost->cycles) : "-"},
                     {cost != nullptr ? cycles_text(cost->throughput) : "-"},
                     {cost != nullptr ? cost->limited_by : "not modelled: " + reason}};
        made.rows.push_back(std::move(row));
    };
    for (const cost_block& block : blocks) {
        if (block.obstacle != cost_obstacle::none) {
            add(block, "-", nullptr, obstacle_text(kernel, code, block));
            continue;
        }
        for (const auto& model : models) {
            const modelled_block& modelled = model->of(code, block);
            const bool complete = modelled.gap == model_gap::none;
            add(block, processor_text(model->processor()), complete ? &modelled.cost : nullptr,
                gap_text(kernel, block, modelled, disassembler));
        }
    }
    made.summary = cost_disclaimer();
    return made;
}

std::string unit_name(const std::string& resource)
{
    const std::size_t unit = resource.find("Unit");
    return unit == std::string::npos ? resource : resource.substr(unit + 4);
}

// "waits for d7 of +0x1c"
static std::string wait_text(const cost_block& block, const chain_link& link)
{
    const std::string from = fmt::format("+{:#x}{}", 4 * block.instructions[link.from],
                                         link.next_iteration ? " of the iteration before" : "");
    switch (link.reason) {
    case delay_reason::registers:
        return fmt::format("waits for {} of {}", link.via, from);
    case delay_reason::memory:
        return fmt::format("waits for the memory access of {}", from);
    case delay_reason::resource:
        return fmt::format("waits for {} after {}", unit_name(link.via), from);
    case delay_reason::completion:
        return fmt::format("must complete after {}", from);
    }
    return "";
}

std::vector<instruction_latency> latencies_of(const cost_block& block, const block_cost& cost)
{
    std::vector<instruction_latency> found;
    for (std::size_t i = 0; i < block.instructions.size(); ++i)
        found.push_back({cost.instructions[i].latency, false, ""});
    for (const chain_link& link : cost.chain) {
        found[link.from].critical = found[link.to].critical = true;
        const std::string wait = wait_text(block, link);
        std::string& waits = found[link.to].waits;
        if (waits.find(wait) == std::string::npos)
            waits += (waits.empty() ? "" : "; ") + wait;
    }
    return found;
}

std::vector<std::optional<instruction_latency>>
latencies_of(const decoded_kernel& code, const std::vector<cost_block>& blocks, block_models& model)
{
    std::vector<std::optional<instruction_latency>> found(code.instructions.size());
    for (const cost_block& block : blocks) {
        if (block.obstacle != cost_obstacle::none)
            continue;
        const modelled_block& modelled = model.of(code, block);
        if (modelled.gap != model_gap::none)
            continue;
        std::vector<instruction_latency> latencies = latencies_of(block, modelled.cost);
        for (std::size_t i = 0; i < latencies.size(); ++i)
            found[block.instructions[i]] = std::move(latencies[i]);
    }
    return found;
}

std::string cost_disclaimer()
{
    return fmt::format("estimated by LLVM {}'s scheduling models: code in the first-level cache, branches "
                       "predicted",
                       llvm_version());
}

} // namespace vorna::workbench
