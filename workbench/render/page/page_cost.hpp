// What a kernel costs, for the page's model.
#pragma once

#include "workbench/analysis/cost.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/kernel_set.hpp"
#include "workbench/render/json.hpp"

namespace vorna::workbench {

struct page_cost {
    json cycles = json::object(); ///< by processor; null if they cannot be estimated
    json delta =
        json::object(); ///< the same, by how many cycles it got slower; empty without a kernel before
    json blocks = json::array();     ///< as blocks_json has them
    json latencies = json::object(); ///< by processor, of each instruction; null if it is not modelled
    json chain = json::object(); ///< by processor: pairs of an instruction, by index, and what it waits for
};

struct page_cost_input {
    const placed_kernel& kernel;
    const decoded_kernel& code;
    const code_map& map;
    const decoded_kernel* code_before = nullptr; ///< of the kernel before a change, or null
    const code_map* map_before = nullptr;
    bool is_listed = true; ///< has rows, with latencies
};

page_cost make_page_cost(const page_cost_input& input, const model_list& models, disassembler& disassembler);

} // namespace vorna::workbench
