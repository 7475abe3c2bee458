// What an observer of LLVM's simulated pipeline sees: what holds instructions back, and the critical chain.
#pragma once

#include "workbench/disasm/pipeline_model.hpp"

#include <cstddef>
#include <cstdint>
#include <llvm/MC/MCRegisterInfo.h>
#include <llvm/MC/MCSubtargetInfo.h>
#include <llvm/MCA/HWEventListener.h>
#include <llvm/MCA/Instruction.h>
#include <vector>

namespace vorna::workbench {

/// The execution units of a scheduling model, as its simulation refers to them.
class pipeline_resources {
public:
    explicit pipeline_resources(const llvm::MCSchedModel& model);

    [[nodiscard]] const llvm::MCSchedModel& model() const { return *model_; }
    [[nodiscard]] unsigned count() const { return static_cast<unsigned>(masks_.size()); }
    [[nodiscard]] std::string name(unsigned resource) const;
    /// The resource that the highest bit of a mask stands for.
    [[nodiscard]] unsigned with_mask(std::uint64_t mask) const;
    /// For a group, the bits of its members and one more.
    [[nodiscard]] std::uint64_t mask_of(unsigned resource) const { return masks_[resource]; }
    [[nodiscard]] unsigned units_of(unsigned resource) const;

private:
    const llvm::MCSchedModel* model_;
    std::vector<std::uint64_t> masks_;
    std::vector<unsigned> by_bit_;
};

/// The last instruction that occupied each unit of each resource.
class unit_users {
public:
    struct user {
        std::size_t instruction = 0; ///< number in the order of execution
        unsigned cycles = 0;
        std::size_t until = 0; ///< the cycle in which the unit is free again
        bool any = false;
    };

    explicit unit_users(const pipeline_resources& resources);
    void issue(std::size_t instruction, std::size_t cycle, const llvm::mca::HWInstructionIssuedEvent& event);
    [[nodiscard]] std::span<const user> of(unsigned resource) const { return users_[resource]; }

private:
    std::vector<std::vector<user>> users_;
};

/// Counts cycles by what holds instructions back.
class pressure_observer : public llvm::mca::HWEventListener {
public:
    explicit pressure_observer(const pipeline_resources& resources);
    void onCycleEnd() override;
    void onEvent(const llvm::mca::HWStallEvent&) override { stalled_ = true; }
    void onEvent(const llvm::mca::HWPressureEvent& event) override;
    using HWEventListener::onEvent;

    [[nodiscard]] pressure_cycles result() const;

private:
    void count_resources(std::uint64_t mask);

    const pipeline_resources& resources_;
    pressure_cycles counts_;
    std::vector<std::size_t> by_resource_;
    bool resources_now_ = false;
    bool registers_now_ = false;
    bool memory_now_ = false;
    bool stalled_ = false;
};

/// What each instruction waited for, and the critical chain that follows from it.
class chain_observer : public llvm::mca::HWEventListener {
public:
    /// Instructions are numbered in the order of the program; `size` of them are an iteration.
    chain_observer(const pipeline_resources& resources, const llvm::MCRegisterInfo& registers,
                   std::size_t size, std::size_t iterations);
    void onCycleEnd() override { ++cycle_; }
    void onEvent(const llvm::mca::HWInstructionEvent& event) override;
    using HWEventListener::onEvent;

    [[nodiscard]] virtual std::vector<chain_link> result() const = 0;

protected:
    struct delay {
        bool any = false;
        std::size_t by = 0; ///< number of the instruction that caused it
        delay_reason reason = delay_reason::registers;
        std::uint64_t id = 0; ///< number of the register or the resource
    };
    struct times {
        std::size_t dispatched = 0;
        std::size_t issued = 0;
        delay last; ///< what it waited for last
    };

    [[nodiscard]] virtual delay find_delay(std::size_t number,
                                           const llvm::mca::Instruction& instruction) const = 0;
    virtual void issued(std::size_t number, const llvm::mca::Instruction& instruction) = 0;
    [[nodiscard]] chain_link make_link(std::size_t to) const;

    const pipeline_resources& resources_;
    const llvm::MCRegisterInfo& registers_;
    std::size_t size_;
    std::size_t cycle_ = 0;
    unit_users users_;
    std::vector<times> times_; ///< of all instructions
};

class out_of_order_chain : public chain_observer {
public:
    using chain_observer::chain_observer;
    [[nodiscard]] std::vector<chain_link> result() const override;

private:
    [[nodiscard]] delay find_delay(std::size_t number,
                                   const llvm::mca::Instruction& instruction) const override;
    void issued(std::size_t number, const llvm::mca::Instruction& instruction) override;
    [[nodiscard]] delay find_unit(const llvm::mca::Instruction& instruction) const;

    std::size_t last_ = 0;       ///< number of the instruction that completes last
    std::size_t completion_ = 0; ///< the cycle in which it does
};

class in_order_chain : public chain_observer {
public:
    in_order_chain(const pipeline_resources& resources, const llvm::MCRegisterInfo& registers,
                   std::size_t size, std::size_t iterations, const llvm::MCSubtargetInfo& subtarget);
    void onEvent(const llvm::mca::HWPressureEvent& event) override;
    using chain_observer::onEvent;

    [[nodiscard]] std::vector<chain_link> result() const override;
    /// Cycles for which instructions waited for each resource.
    [[nodiscard]] const std::vector<std::size_t>& waits() const { return waits_; }

private:
    struct write {
        bool any = false;
        std::size_t by = 0;
        std::size_t issued = 0;
        unsigned latency = 0;
        unsigned resource = 0;
    };

    [[nodiscard]] delay find_delay(std::size_t number,
                                   const llvm::mca::Instruction& instruction) const override;
    void issued(std::size_t number, const llvm::mca::Instruction& instruction) override;
    [[nodiscard]] delay find_write(const llvm::mca::Instruction& instruction) const;

    const llvm::MCSubtargetInfo& subtarget_;
    std::vector<write> writes_; ///< the last one of each register unit
    delay resource_delay_;      ///< of the instruction `stalled_`
    std::size_t stalled_ = 0;
    std::size_t last_issue_ = 0;      ///< cycle in which the preceding instruction was issued
    std::size_t completes_last_ = 0;  ///< number of the instruction that completes last
    std::size_t last_completion_ = 0; ///< and the cycle in which it does
    std::vector<std::size_t> waits_;
};

} // namespace vorna::workbench
