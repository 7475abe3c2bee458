// The smallest host: one kernel that loads a constant from its own data, placed, linked and called.
#include "fft/SRC/wfta/kernel_printer.hpp"

#include <cstdio>

int main()
{
    // answer: adrp x0, constant; add x0, x0, :lo12:constant; ldr w0, [x0]; ret
    int (*answer)() = nullptr;
    vorna::wfta::kernel_data kernel;
    kernel.entry_out = reinterpret_cast<void**>(&answer);
    kernel.name = "answer";
    kernel.text = {0x00, 0x00, 0x00, 0x90, 0x00, 0x00, 0x00, 0x91,
                   0x00, 0x00, 0x40, 0xb9, 0xc0, 0x03, 0x5f, 0xd6};
    kernel.data = {42, 0, 0, 0};
    kernel.relocs = {{".rodata.answer", 0, 275, 0}, {".rodata.answer", 4, 277, 0}};

    vorna::wfta::kernel_registry_map registry;
    vorna::wfta::finalise_kernels(registry, {kernel});

    std::printf("%s: %zu bytes of code\n", registry.begin()->first.c_str(), registry.at("answer").text_len);
#ifdef __aarch64__
    std::printf("answer() = %d\n", answer());
#endif
}
