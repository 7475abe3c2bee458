// The program that the debugger test debugs: finalises kernels with dumps on, says where each was placed, and
// runs them. "kernels_are_placed" is where the debugger stops it to load the dumps.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <cstdio>
#include <cstdlib>

extern "C" [[gnu::noinline]] void kernels_are_placed()
{
    std::fflush(stdout);
}

int main()
{
    using namespace support;
    setenv("VORNA_WFTA_DUMP_KERNEL", "", 1);

    int (*run)() = nullptr;
    vorna::wfta::kernel_registry_map registry;
    finalise_kernels(
        registry,
        {kernel("gap", {a64::nop()}), kernel("answer_kernel", {a64::nop(), a64::movz(0, 42), a64::ret()}),
         kernel("calling_kernel",
                {a64::push(a64::frame_pointer, a64::link_register), a64::bl(),
                 a64::pop(a64::frame_pointer, a64::link_register), a64::ret()},
                {{"answer_kernel", 4, R_AARCH64_CALL26, 0}}, {7}, reinterpret_cast<void**>(&run))});
    for (const auto& [name, entry] : registry) {
        std::printf("%s 0x%016lx\n", name.c_str(), static_cast<unsigned long>(number(entry.text_ptr)));
    }
    kernels_are_placed();
    return run == nullptr ? 1 : run();
}
