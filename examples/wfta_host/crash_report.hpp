// Reports a crash in a kernel: a line on stderr with the signal and the registers that tell where it was.
#pragma once

#include <cstdint>

namespace wfta_host {

/// Registers of the processor or of the simulator.
struct crash_registers {
    std::uint64_t pc;
    std::uint64_t lr;
};

/// The registers at a signal, whose `context` is what sigaction's handlers get.
using registers_at_signal = crash_registers (*)(void* context);

/// While it exists, a signal that an instruction raises is reported, and then ends the process as usual. One
/// at a time.
class crash_reporter {
public:
    explicit crash_reporter(registers_at_signal registers);
    ~crash_reporter();
    crash_reporter(const crash_reporter&) = delete;
    crash_reporter& operator=(const crash_reporter&) = delete;
};

} // namespace wfta_host
