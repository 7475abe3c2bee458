// The critical chain is read off the simulated time, backwards, for the length of one iteration: from each
// instruction that waited to the one that it waited for last. In order, an instruction that waits holds back
// all that follow; so from one that did not wait, the chain goes on with the preceding one. It begins with
// the last instruction of the last iteration. Out of order, it begins with the instruction that completes
// last, and ends with one that did not wait.

#include "workbench/disasm/pipeline_events.hpp"

#include <algorithm>
#include <bit>
#include <llvm/MC/MCSchedule.h>
#include <llvm/MCA/Support.h>

namespace vorna::workbench {

using llvm::mca::HWInstructionEvent;
using llvm::mca::HWInstructionIssuedEvent;
using llvm::mca::HWPressureEvent;
using llvm::mca::InstRef;
using llvm::mca::Instruction;

static std::uint64_t lowest_bit(std::uint64_t mask)
{
    return mask & (~mask + 1);
}

pipeline_resources::pipeline_resources(const llvm::MCSchedModel& model)
    : model_(&model), masks_(model.getNumProcResourceKinds()), by_bit_(64)
{
    llvm::mca::computeProcResourceMasks(model, masks_);
    for (unsigned i = 1; i < count(); ++i) // the first one is none
        by_bit_[llvm::mca::getResourceStateIndex(masks_[i])] = i;
}

std::string pipeline_resources::name(unsigned resource) const
{
    return model_->getProcResource(resource)->Name;
}

unsigned pipeline_resources::with_mask(std::uint64_t mask) const
{
    return by_bit_[llvm::mca::getResourceStateIndex(mask)];
}

unsigned pipeline_resources::units_of(unsigned resource) const
{
    return model_->getProcResource(resource)->NumUnits;
}

unit_users::unit_users(const pipeline_resources& resources) : users_(resources.count())
{
    for (unsigned i = 1; i < resources.count(); ++i)
        users_[i].resize(resources.units_of(i));
}

void unit_users::issue(std::size_t instruction, std::size_t cycle, const HWInstructionIssuedEvent& event)
{
    for (const auto& [unit, use] : event.UsedResources) {
        const unsigned cycles = use.getNumerator();
        users_[unit.first][static_cast<std::size_t>(std::countr_zero(unit.second))] = {instruction, cycles,
                                                                                       cycle + cycles, true};
    }
}

pressure_observer::pressure_observer(const pipeline_resources& resources)
    : resources_(resources), by_resource_(resources.count())
{
}

void pressure_observer::onEvent(const HWPressureEvent& event)
{
    resources_now_ = resources_now_ || event.Reason == HWPressureEvent::RESOURCES;
    registers_now_ = registers_now_ || event.Reason == HWPressureEvent::REGISTER_DEPS;
    memory_now_ = memory_now_ || event.Reason == HWPressureEvent::MEMORY_DEPS;
    if (event.Reason == HWPressureEvent::RESOURCES)
        count_resources(event.ResourceMask);
}

// A group that is busy counts for its members.
void pressure_observer::count_resources(std::uint64_t mask)
{
    for (; mask != 0; mask &= mask - 1) {
        const std::uint64_t bit = lowest_bit(mask);
        const unsigned resource = resources_.with_mask(bit);
        const std::uint64_t members = resources_.mask_of(resource) ^ bit;
        if (members == 0)
            ++by_resource_[resource];
        for (std::uint64_t rest = members; rest != 0; rest &= rest - 1)
            ++by_resource_[resources_.with_mask(lowest_bit(rest))];
    }
}

void pressure_observer::onCycleEnd()
{
    counts_.any += (resources_now_ || registers_now_ || memory_now_) ? 1 : 0;
    counts_.resources += resources_now_ ? 1 : 0;
    counts_.dependencies += (registers_now_ || memory_now_) ? 1 : 0;
    counts_.registers += registers_now_ ? 1 : 0;
    counts_.memory += memory_now_ ? 1 : 0;
    resources_now_ = registers_now_ = memory_now_ = false;
}

pressure_cycles pressure_observer::result() const
{
    if (!stalled_)
        return {};
    pressure_cycles found = counts_;
    for (unsigned i = 1; i < resources_.count(); ++i) {
        if (by_resource_[i] != 0)
            found.by_resource.emplace_back(resources_.name(i), by_resource_[i]);
    }
    return found;
}

chain_observer::chain_observer(const pipeline_resources& resources, const llvm::MCRegisterInfo& registers,
                               std::size_t size, std::size_t iterations)
    : resources_(resources), registers_(registers), size_(size), users_(resources), times_(size * iterations)
{
}

void chain_observer::onEvent(const HWInstructionEvent& event)
{
    const std::size_t number = event.IR.getSourceIndex();
    if (event.Type == HWInstructionEvent::Dispatched)
        times_[number].dispatched = cycle_;
    if (event.Type != HWInstructionEvent::Issued)
        return;
    const Instruction& instruction = *event.IR.getInstruction();
    times_[number].issued = cycle_;
    times_[number].last = find_delay(number, instruction);
    users_.issue(number, cycle_, static_cast<const HWInstructionIssuedEvent&>(event));
    issued(number, instruction);
}

chain_link chain_observer::make_link(std::size_t to) const
{
    const delay& its = times_[to].last;
    chain_link link = {its.by % size_, to % size_, its.reason, "", its.by / size_ != to / size_};
    if (its.reason == delay_reason::registers)
        link.via = llvm::StringRef(registers_.getName(static_cast<unsigned>(its.id))).lower();
    if (its.reason == delay_reason::resource)
        link.via = resources_.name(static_cast<unsigned>(its.id));
    return link;
}

// Of the instructions that occupied a unit that was busy, the one that was issued last.
chain_observer::delay out_of_order_chain::find_unit(const Instruction& instruction) const
{
    delay found;
    for (std::uint64_t mask = instruction.getCriticalResourceMask(); mask != 0; mask &= mask - 1) {
        std::uint64_t units = resources_.mask_of(resources_.with_mask(lowest_bit(mask)));
        for (; units != 0; units &= units - 1) {
            const unsigned unit = resources_.with_mask(lowest_bit(units));
            for (const unit_users::user& user : users_.of(unit)) {
                const std::size_t issue = user.any ? times_[user.instruction].issued : cycle_;
                if (issue < cycle_ && (!found.any || issue > times_[found.by].issued))
                    found = {true, user.instruction, delay_reason::resource, unit};
            }
        }
    }
    return found;
}

// A read knows the write that it waited for longest, and how long at most, counted from the later one of
// that instruction's issue and this one's dispatch.
chain_observer::delay out_of_order_chain::find_delay(std::size_t number, const Instruction& instruction) const
{
    delay found;
    std::size_t arrival = times_[number].dispatched + 1; // not earlier than the first cycle after dispatch
    const auto take = [&](const llvm::mca::CriticalDependency& on, delay_reason reason) {
        const std::size_t ready = std::max(times_[on.IID].issued, times_[number].dispatched) + on.Cycles;
        if (on.Cycles != 0 && ready >= arrival) {
            arrival = ready;
            found = {true, on.IID, reason, on.RegID};
        }
    };
    for (const llvm::mca::ReadState& read : instruction.getUses())
        take(read.getCriticalRegDep(), delay_reason::registers);
    take(instruction.getCriticalMemDep(), delay_reason::memory);
    if (cycle_ > arrival) {
        if (const delay by_unit = find_unit(instruction); by_unit.any)
            return by_unit;
    }
    return found;
}

void out_of_order_chain::issued(std::size_t number, const Instruction& instruction)
{
    const std::size_t completion = cycle_ + instruction.getLatency();
    if (number + size_ < times_.size() || completion < completion_)
        return; // not of the last iteration, or not the last one of it
    completion_ = completion;
    last_ = number;
}

std::vector<chain_link> out_of_order_chain::result() const
{
    std::vector<chain_link> chain;
    for (std::size_t at = last_; times_[at].last.any; at = times_[at].last.by) {
        if (at + size_ <= last_ || chain.size() == size_) // units are not taken in the order of the program
            break;
        chain.push_back(make_link(at));
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

in_order_chain::in_order_chain(const pipeline_resources& resources, const llvm::MCRegisterInfo& registers,
                               std::size_t size, std::size_t iterations,
                               const llvm::MCSubtargetInfo& subtarget)
    : chain_observer(resources, registers, size, iterations), subtarget_(subtarget),
      writes_(registers.getNumRegUnits()), waits_(resources.count())
{
}

// Waits for resources are told as stalls, but not for which one.
void in_order_chain::onEvent(const HWPressureEvent& event)
{
    if (event.Reason != HWPressureEvent::RESOURCES)
        return;
    for (const InstRef& stalled : event.AffectedInstructions) {
        for (const auto& [mask, use] : stalled.getInstruction()->getDesc().Resources) {
            const unsigned resource = resources_.with_mask(mask);
            const unit_users::user* last = nullptr;
            unsigned busy = 0;
            for (const unit_users::user& user : users_.of(resource)) {
                if (!user.any || user.until <= cycle_)
                    continue;
                ++busy;
                if (last == nullptr || last->until < user.until)
                    last = &user;
            }
            if (busy == 0 || resources_.units_of(resource) - busy >= use.NumUnits)
                continue;
            stalled_ = stalled.getSourceIndex();
            resource_delay_ = {true, last->instruction, delay_reason::resource, resource};
            ++waits_[resource];
            break;
        }
    }
}

// The write that provides the last operand, if that is in this very cycle.
chain_observer::delay in_order_chain::find_write(const Instruction& instruction) const
{
    delay found;
    for (const llvm::mca::ReadState& read : instruction.getUses()) {
        if (read.getRegisterID() == 0)
            continue;
        const llvm::MCSchedClassDesc* const sched_class =
            resources_.model().getSchedClassDesc(read.getSchedClass());
        for (const auto unit : registers_.regunits(read.getRegisterID())) {
            const write& by = writes_[static_cast<unsigned>(unit)];
            if (!by.any)
                continue;
            const int advance =
                subtarget_.getReadAdvanceCycles(sched_class, read.getDescriptor().UseIndex, by.resource);
            const auto ready = static_cast<std::ptrdiff_t>(by.issued + by.latency) - advance;
            if (ready == static_cast<std::ptrdiff_t>(cycle_) && by.issued < cycle_)
                found = {true, by.by, delay_reason::registers, read.getRegisterID()};
        }
    }
    return found;
}

chain_observer::delay in_order_chain::find_delay(std::size_t number, const Instruction& instruction) const
{
    if (number == 0 || cycle_ == last_issue_)
        return {};
    if (const delay by_register = find_write(instruction); by_register.any)
        return by_register;
    if (resource_delay_.any && stalled_ == number)
        return resource_delay_;
    const bool late = cycle_ > last_issue_ + 1 && completes_last_ < number && last_completion_ > cycle_;
    return {late, completes_last_, delay_reason::completion, 0};
}

void in_order_chain::issued(std::size_t number, const Instruction& instruction)
{
    resource_delay_.any = false;
    last_issue_ = cycle_;
    for (const llvm::mca::WriteState& def : instruction.getDefs()) {
        if (def.getRegisterID() == 0)
            continue;
        for (const auto unit : registers_.regunits(def.getRegisterID()))
            writes_[static_cast<unsigned>(unit)] = {true, number, cycle_, def.getLatency(),
                                                    def.getWriteResourceID()};
    }
    const std::size_t completion = cycle_ + instruction.getLatency();
    if (completion >= last_completion_) {
        last_completion_ = completion;
        completes_last_ = number;
    }
}

std::vector<chain_link> in_order_chain::result() const
{
    std::vector<chain_link> chain;
    const std::size_t stop = times_.size() > size_ ? times_.size() - size_ : 0;
    for (std::size_t at = times_.size(); at > stop;) {
        const delay& its = times_[at - 1].last;
        if (its.any)
            chain.push_back(make_link(at - 1));
        at = its.any ? its.by + 1 : at - 1;
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

} // namespace vorna::workbench
