#include "examples/wfta_host/machine.hpp"

#ifndef __aarch64__
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

void run_driver(const void* entry, const complex* in, complex* out, complex* work, instruction_counts*)
{
    reinterpret_cast<void (*)(const complex*, complex*, complex*)>(reinterpret_cast<std::uintptr_t>(entry))(
        in, out, work);
}

#else

const char* const machine_name = "the VIXL simulator";
const bool machine_counts = true;

void run_driver(const void* entry, const complex* in, complex* out, complex* work, instruction_counts* counts)
{
    vixl::aarch64::Decoder decoder;
    vixl::aarch64::Simulator simulator(&decoder);
    simulator.WriteXRegister(0, reinterpret_cast<std::intptr_t>(in));
    simulator.WriteXRegister(1, reinterpret_cast<std::intptr_t>(out));
    simulator.WriteXRegister(2, reinterpret_cast<std::intptr_t>(work));
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
