#include "examples/wfta_host/machine.hpp"
#include "examples/wfta_host/crash_report.hpp"

#ifdef __aarch64__
#include <ucontext.h>
#else
#include <aarch64/simulator-aarch64.h>
#ifndef VIXL_INCLUDE_SIMULATOR_AARCH64
#error "VIXL was built without its simulator, which runs the kernels where the processor cannot"
#endif
#endif

namespace wfta_host {

using complex = std::complex<double>;

#ifdef __aarch64__

const char* const machine_name = "this processor";
const bool machine_counts = false;

static crash_registers registers_of(void* context)
{
    const mcontext_t& at = static_cast<ucontext_t*>(context)->uc_mcontext;
    return {at.pc, at.regs[30]};
}

void run_driver(const void* entry, const complex* in, complex* out, complex* work, instruction_counts*)
{
    const crash_reporter reporter(registers_of);
    reinterpret_cast<void (*)(const complex*, complex*, complex*)>(reinterpret_cast<std::uintptr_t>(entry))(
        in, out, work);
}

#else

const char* const machine_name = "the VIXL simulator";
const bool machine_counts = true;

// Of the kernel that is being run, for the report of a crash.
static const vixl::aarch64::Simulator* running = nullptr;

static crash_registers registers_of(void*)
{
    return {static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(running->ReadPc())),
            static_cast<std::uint64_t>(running->ReadXRegister(30))};
}

void run_driver(const void* entry, const complex* in, complex* out, complex* work, instruction_counts* counts)
{
    vixl::aarch64::Decoder decoder;
    vixl::aarch64::Simulator simulator(&decoder);
    simulator.WriteXRegister(0, reinterpret_cast<std::intptr_t>(in));
    simulator.WriteXRegister(1, reinterpret_cast<std::intptr_t>(out));
    simulator.WriteXRegister(2, reinterpret_cast<std::intptr_t>(work));
    running = &simulator;
    const crash_reporter reporter(registers_of);
    const auto* const first = static_cast<const vixl::aarch64::Instruction*>(entry);
    if (counts == nullptr) {
        simulator.RunFrom(first);
        return;
    }
    simulator.WritePc(first);
    while (simulator.ReadPc() != vixl::aarch64::Simulator::kEndOfSimAddress) {
        ++(*counts)[reinterpret_cast<std::uintptr_t>(simulator.ReadPc())];
        simulator.ExecuteInstruction();
    }
}

#endif

} // namespace wfta_host
