#include "workbench/render/page/page_cost.hpp"

#include "workbench/render/cost_text.hpp"

namespace vorna::workbench {

static json or_null(const std::optional<double>& cycles)
{
    return cycles ? json(*cycles) : json();
}

page_cost make_page_cost(const page_cost_input& input, const model_list& models, disassembler& disassembler)
{
    page_cost made;
    const std::vector<cost_block> blocks = find_cost_blocks(input.code, input.map);
    made.blocks = blocks_json(input.kernel, input.code, blocks, models, disassembler);
    std::vector<cost_block> blocks_before;
    if (input.code_before != nullptr)
        blocks_before = find_cost_blocks(*input.code_before, *input.map_before);
    for (const auto& model : models) {
        const std::string& name = model->processor().name;
        made.cycles[name] = or_null(cycles_of(input.code, blocks, *model));
        if (input.code_before != nullptr)
            made.delta[name] =
                or_null(change_of_cycles(*input.code_before, blocks_before, input.code, blocks, *model));
        if (!input.is_listed)
            continue;
        json latencies = json::array();
        json chain = json::array();
        const auto by_instruction = latencies_of(input.code, blocks, *model);
        for (std::size_t i = 0; i < by_instruction.size(); ++i) {
            const auto& latency = by_instruction[i];
            latencies.push_back(latency ? json(latency->cycles) : json());
            if (latency && latency->critical)
                chain.push_back(json::array({i, latency->waits}));
        }
        made.latencies[name] = std::move(latencies);
        made.chain[name] = std::move(chain);
    }
    return made;
}

} // namespace vorna::workbench
