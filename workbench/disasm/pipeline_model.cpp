// LLVM's machine-code analyser as a library, with the options and the defaults of the program llvm-mca: one
// block, executed a number of times in a row, on the pipeline that LLVM's scheduling model describes.

#include "workbench/disasm/pipeline_model.hpp"

#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/disasm/llvm.hpp"
#include "workbench/disasm/pipeline_events.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <llvm/Config/llvm-config.h>
#include <llvm/MC/MCInstrAnalysis.h>
#include <llvm/MC/TargetRegistry.h>
#include <llvm/MCA/Context.h>
#include <llvm/MCA/CustomBehaviour.h>
#include <llvm/MCA/InstrBuilder.h>
#include <llvm/MCA/Pipeline.h>
#include <llvm/MCA/SourceMgr.h>
#include <llvm/MCA/Support.h>
#include <llvm/TargetParser/AArch64TargetParser.h>
#include <llvm/TargetParser/Host.h>
#include <map>
#include <stdexcept>

namespace vorna::workbench {

namespace {

// The processor that a scheduling model was written for. LLVM does not name its models, but the models name
// their execution units after them.
struct model_owner {
    std::string_view prefix; // of the first execution unit
    std::string_view processor;
};
constexpr model_owner model_owners[] = {
    {"A53Unit", "cortex-a53"},
    {"A57Unit", "cortex-a57"},
    {"A64FX", "a64fx"},
    {"Ampere1BUnit", "ampere1b"},
    {"Ampere1Unit", "ampere1"},
    {"CortexA510Unit", "cortex-a510"},
    {"CortexA55Unit", "cortex-a55"},
    {"CyUnit", "apple-a7"},
    {"FalkorUnit", "falkor"},
    {"KryoUnit", "kryo"},
    {"M3Pipe", "exynos-m3"},
    {"M4Pipe", "exynos-m4"},
    {"M5Pipe", "exynos-m5"},
    {"N1Unit", "neoverse-n1"},
    {"N2Unit", "neoverse-n2"},
    {"N3Unit", "neoverse-n3"},
    {"ORYON", "oryon-1"},
    {"THX2T99", "thunderx2t99"},
    {"THX3T110", "thunderx3t110"},
    {"THXT8XUnit", "thunderx"},
    {"TSV110Unit", "tsv110"},
    {"V1Unit", "neoverse-v1"},
    {"V2Unit", "neoverse-v2"},
};

// Of the processors that share a model, in the order of their names.
std::string owner_of(const llvm::MCSchedModel& model, const std::vector<std::string>& users)
{
    const std::string_view unit = model.getProcResource(1)->Name;
    for (const model_owner& owner : model_owners) {
        const bool used = std::find(users.begin(), users.end(), owner.processor) != users.end();
        if (used && unit.starts_with(owner.prefix))
            return std::string(owner.processor);
    }
    return users.front();
}

std::vector<processor_model> find_processor_models()
{
    const auto processors = the_llvm().subtarget->getAllProcessorDescriptions();
    std::map<const llvm::MCSchedModel*, std::vector<std::string>> users;
    for (const auto& processor : processors)
        users[processor.SchedModel].emplace_back(processor.Key);
    std::vector<processor_model> found;
    for (const auto& processor : processors) {
        const llvm::MCSchedModel& model = *processor.SchedModel;
        const bool known = model.hasInstrSchedModel() && model.getNumProcResourceKinds() > 1;
        found.push_back({processor.Key, known ? owner_of(model, users[&model]) : "", !model.isOutOfOrder()});
    }
    return found;
}

// The cycle in which the last instruction of each iteration is retired.
class iteration_ends : public llvm::mca::HWEventListener {
public:
    iteration_ends(std::size_t block_size, unsigned iterations) : size_(block_size), ends_(iterations) {}
    void onCycleEnd() override { ++cycle_; }
    void onEvent(const llvm::mca::HWInstructionEvent& event) override
    {
        const std::size_t number = event.IR.getSourceIndex();
        if (event.Type == llvm::mca::HWInstructionEvent::Retired && number % size_ == size_ - 1)
            ends_[number / size_] = cycle_;
    }
    using HWEventListener::onEvent;

    [[nodiscard]] double cycles_per_iteration(std::size_t total) const
    {
        const std::size_t half = (ends_.size() - 1) / 2;
        const std::size_t rest = ends_.size() - 1 - half;
        return rest == 0 ? static_cast<double>(total)
                         : static_cast<double>(ends_.back() - ends_[half]) / static_cast<double>(rest);
    }

private:
    std::size_t size_;
    std::size_t cycle_ = 0;
    std::vector<std::size_t> ends_;
};

using instruction_list = std::vector<std::unique_ptr<llvm::mca::Instruction>>;

} // namespace

bool has_pipeline_models()
{
    return true;
}

const std::vector<processor_model>& processor_models()
{
    static const std::vector<processor_model> found = find_processor_models();
    return found;
}

std::string native_processor()
{
    const llvm::StringRef host = llvm::sys::getHostCPUName();
    for (const processor_model& processor : processor_models()) {
        if (host == processor.name && processor.name != "generic")
            return processor.name;
    }
    return "";
}

std::string llvm_version()
{
    return LLVM_VERSION_STRING;
}

struct pipeline_model::implementation {
    processor_model processor;
    const llvm_aarch64& llvm = the_llvm();
    std::unique_ptr<const llvm::MCSubtargetInfo> subtarget;
    std::unique_ptr<llvm::MCContext> context;
    std::unique_ptr<const llvm::MCDisassembler> disassembler;
    std::unique_ptr<const llvm::MCInstrAnalysis> analysis;
    std::unique_ptr<llvm::mca::InstrumentManager> instruments;
    std::unique_ptr<llvm::mca::InstrBuilder> builder;
    std::unique_ptr<const pipeline_resources> resources;
    unsigned branch_register = decode_word(0xd61f0000).instructions[0].opcode;

    explicit implementation(const processor_model& modelled) : processor(modelled)
    {
        constexpr unsigned call_latency = 0; // there are no calls
        subtarget = make_subtarget(processor.name);
        context = llvm.make_context();
        disassembler = make_disassembler(*subtarget, *context);
        analysis.reset(the_target().createMCInstrAnalysis(llvm.opcodes.get()));
        instruments = std::make_unique<llvm::mca::InstrumentManager>(*subtarget, *llvm.opcodes);
        builder = std::make_unique<llvm::mca::InstrBuilder>(*subtarget, *llvm.opcodes, *llvm.registers,
                                                            analysis.get(), *instruments, call_latency);
        resources = std::make_unique<const pipeline_resources>(subtarget->getSchedModel());
    }

    [[nodiscard]] model_gap build(std::uint32_t word, instruction_list& built) const
    {
        llvm::MCInst decoded;
        if (!decode_with(*disassembler, word, decoded)) {
            llvm::MCInst of_another;
            return llvm.decode(word, of_another) ? model_gap::not_on_processor
                                                 : model_gap::not_an_instruction;
        }
        if (llvm.opcodes->get(decoded.getOpcode()).isCall())
            return model_gap::call;
        // The analyser warns of returns on stderr. In all models, RET costs what BR does.
        if (opcode_name(decoded.getOpcode()) == "RET")
            decoded.setOpcode(branch_register);
        else if (llvm.opcodes->get(decoded.getOpcode()).isReturn())
            return model_gap::not_in_model;
        auto made = builder->createInstruction(decoded, {});
        if (!made) {
            llvm::consumeError(made.takeError());
            return model_gap::not_in_model;
        }
        built.push_back(std::move(*made));
        return model_gap::none;
    }

    [[nodiscard]] instruction_cost cost_of(const llvm::mca::Instruction& instruction) const
    {
        const llvm::mca::InstrDesc& description = instruction.getDesc();
        const llvm::MCSchedModel& model = subtarget->getSchedModel();
        const llvm::MCSchedClassDesc& sched_class = *model.getSchedClassDesc(description.SchedClassID);
        const int forwarding = static_cast<int>(
            llvm::MCSchedModel::getForwardingDelayCycles(subtarget->getReadAdvanceEntries(sched_class)));
        instruction_cost cost;
        cost.uops = description.NumMicroOps;
        cost.latency = llvm::MCSchedModel::computeInstrLatency(*subtarget, sched_class) + forwarding;
        cost.throughput = llvm::MCSchedModel::getReciprocalThroughput(*subtarget, sched_class);
        for (const auto& [mask, use] : description.Resources) {
            if (use.size() != 0)
                cost.resources.push_back({resources->name(resources->with_mask(mask)), use.size()});
        }
        return cost;
    }

    // As many cycles as the busiest resource needs, or the front end.
    void find_throughput(const instruction_list& block, block_cost& cost) const
    {
        const llvm::MCSchedModel& model = subtarget->getSchedModel();
        std::vector<unsigned> cycles(resources->count());
        unsigned uops = 0;
        for (const auto& instruction : block) {
            uops += instruction->getDesc().NumMicroOps;
            for (const auto& [mask, use] : instruction->getDesc().Resources)
                cycles[resources->with_mask(mask)] += use.size();
        }
        cost.uops = std::size_t{uops} * cost.iterations;
        cost.throughput = llvm::mca::computeBlockRThroughput(model, model.IssueWidth, uops, cycles);
        double busiest = static_cast<double>(uops) / model.IssueWidth;
        cost.busiest = "issue width";
        for (unsigned i = 1; i < resources->count(); ++i) {
            const double needed = static_cast<double>(cycles[i]) / resources->units_of(i);
            if (needed > busiest) {
                busiest = needed;
                cost.busiest = resources->name(i);
            }
        }
    }
};

namespace {

using resource_counts = std::vector<std::pair<std::string, std::size_t>>;

// The resource that more cycles were spent waiting for than for any other.
std::string most_waited_for(resource_counts counts)
{
    std::stable_sort(counts.begin(), counts.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    const bool one = !counts.empty() && (counts.size() == 1 || counts[0].second > counts[1].second);
    return one ? counts[0].first : "resources";
}

std::string limit_of(const block_cost& cost, const resource_counts& waits)
{
    constexpr double close = 1.05;
    if (cost.pressure.any == 0)
        return cost.cycles <= close * cost.throughput ? cost.busiest : "dependencies";
    return cost.pressure.resources > cost.pressure.dependencies ? most_waited_for(waits) : "dependencies";
}

} // namespace

pipeline_model::pipeline_model(std::string_view processor)
{
    const llvm::StringRef name = llvm::AArch64::resolveCPUAlias(processor);
    for (const processor_model& known : processor_models()) {
        if (name != known.name)
            continue;
        if (known.model.empty())
            throw std::runtime_error(fmt::format("LLVM has no scheduling model for {}", processor));
        implementation_ = std::make_unique<implementation>(known);
        return;
    }
    throw std::runtime_error(fmt::format("LLVM knows no processor {}", processor));
}

pipeline_model::~pipeline_model() = default;

const processor_model& pipeline_model::processor() const
{
    return implementation_->processor;
}

block_run pipeline_model::run(std::span<const std::uint32_t> words, unsigned iterations)
{
    const implementation& model = *implementation_;
    block_run run;
    if (words.empty() || iterations == 0)
        return run;
    model.builder->clear(); // else it keeps what it knows of every instruction that it ever saw
    instruction_list block;
    for (run.index = 0; run.index < words.size(); ++run.index) {
        run.gap = model.build(words[run.index], block);
        if (run.gap != model_gap::none)
            return run;
    }

    block_cost& cost = run.cost;
    cost.iterations = iterations;
    for (const auto& instruction : block)
        cost.instructions.push_back(model.cost_of(*instruction));
    model.find_throughput(block, cost);

    llvm::mca::CircularSourceMgr source(block, iterations);
    llvm::mca::CustomBehaviour behaviour(*model.subtarget, source, *model.llvm.opcodes);
    llvm::mca::Context context(*model.llvm.registers, *model.subtarget);
    constexpr unsigned of_the_model = 0;
    constexpr bool no_alias = true;
    constexpr bool bottlenecks = true;
    const llvm::mca::PipelineOptions options(of_the_model, of_the_model, of_the_model, of_the_model,
                                             of_the_model, of_the_model, no_alias, bottlenecks);
    const auto pipeline = context.createDefaultPipeline(options, source, behaviour);

    iteration_ends ends(block.size(), iterations);
    pressure_observer pressure(*model.resources);
    out_of_order_chain out_of_order(*model.resources, *model.llvm.registers, block.size(), iterations);
    in_order_chain in_order(*model.resources, *model.llvm.registers, block.size(), iterations,
                            *model.subtarget);
    chain_observer* const chain =
        model.processor.in_order ? static_cast<chain_observer*>(&in_order) : &out_of_order;
    pipeline->addEventListener(&ends);
    pipeline->addEventListener(&pressure);
    pipeline->addEventListener(chain);
    auto cycles = pipeline->run();
    if (!cycles)
        throw std::runtime_error("LLVM's pipeline model failed: " + llvm::toString(cycles.takeError()));

    cost.total_cycles = *cycles;
    cost.cycles = ends.cycles_per_iteration(cost.total_cycles);
    cost.pressure = pressure.result();
    resource_counts waits = cost.pressure.by_resource;
    if (model.processor.in_order) {
        for (unsigned i = 1; i < model.resources->count(); ++i) {
            if (in_order.waits()[i] != 0)
                waits.emplace_back(model.resources->name(i), in_order.waits()[i]);
        }
    }
    cost.limited_by = limit_of(cost, waits);
    cost.chain = chain->result();
    return run;
}

} // namespace vorna::workbench
