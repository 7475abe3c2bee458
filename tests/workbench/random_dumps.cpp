// Writes the dumps of a random set for the tests of the report's page: random_dumps DIRECTORY COUNT [NAME...]
//
// Writes COUNT kernels "kernel_0", ..., with loops, constants, and calls of earlier ones, in two mappings,
// and then a kernel for each NAME, which calls kernel_0. The same arguments give the same bytes, and a kernel
// does not depend on the size of its set.

#include "jit/elf.hpp"
#include "tests/support/kernels.hpp"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>

namespace {

constexpr std::uint32_t push_frame = 0xa9bf7bfd; // stp x29, x30, [sp, #-16]!
constexpr std::uint32_t pop_frame = 0xa8c17bfd;  // ldp x29, x30, [sp], #16

struct made_kernel {
    std::string name;
    std::vector<std::uint32_t> words;
    std::vector<std::uint8_t> data;
    std::vector<tessjit::reloc_info> relocs;
};

made_kernel make_kernel(unsigned index)
{
    std::mt19937 random(index); // not a distribution: their results differ between libraries
    made_kernel kernel;
    kernel.name = "kernel_" + std::to_string(index);
    kernel.data.resize(16 * (1 + random() % 8));
    for (std::uint8_t& byte : kernel.data)
        byte = static_cast<std::uint8_t>(random());
    // adrp x3, .rodata; add x3, x3, :lo12:.rodata; stp x29, x30, [sp, #-16]!
    kernel.words = {0x90000003, 0x91000063, push_frame};
    kernel.relocs = {{".rodata." + kernel.name, 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                     {".rodata." + kernel.name, 4, R_AARCH64_ADD_ABS_LO12_NC, 0}};
    static constexpr std::uint32_t body[] = {
        0xfd400867, // ldr d7, [x3, #16]
        0x4cc17c40, // ld1 {v0.2d}, [x2], x1
        0x4e62d423, // fadd v3.2d, v1.2d, v2.2d
        0x4fc79063, // fmul v3.2d, v3.2d, v7.d[0]
        0x4c817c00, // st1 {v0.2d}, [x0], x1
        0xaa0003e2, // mov x2, x0
        0x910040a5, // add x5, x5, #16
    };
    const std::size_t begin = 4 + random() % 8; // of a loop
    const std::size_t length = 13 + random() % 60;
    while (kernel.words.size() < length)
        kernel.words.push_back(body[random() % std::size(body)]);
    const auto back = static_cast<std::uint32_t>(begin) - static_cast<std::uint32_t>(kernel.words.size());
    kernel.words.push_back(0xb5000004 | (back & 0x7ffff) << 5); // cbnz x4, the loop's begin
    for (std::size_t calls = index == 0 ? 0 : random() % 3; calls > 0; --calls) {
        const auto offset = static_cast<std::int32_t>(4 * kernel.words.size());
        kernel.words.push_back(0x94000000); // bl
        kernel.relocs.push_back({"kernel_" + std::to_string(random() % index), offset, R_AARCH64_CALL26, 0});
    }
    kernel.words.push_back(pop_frame);
    kernel.words.push_back(0xd65f03c0); // ret
    return kernel;
}

std::uint64_t rounded(std::uint64_t address, std::uint64_t alignment)
{
    return (address + alignment - 1) / alignment * alignment;
}

// Places the kernels as the finaliser does, in one mapping.
std::vector<tessjit::elf_fn_entry> placed(const std::vector<made_kernel>& kernels, std::uint64_t base)
{
    std::vector<tessjit::elf_fn_entry> entries;
    std::uint64_t text = base;
    for (const made_kernel& kernel : kernels)
        text = rounded(text, 32) + 4 * kernel.words.size();
    std::uint64_t data = rounded(text, 32);
    text = base;
    for (const made_kernel& kernel : kernels) {
        text = rounded(text, 32);
        data = rounded(data, 16);
        entries.emplace_back(kernel.name, support::address(text), support::code(kernel.words),
                             support::address(data), kernel.data, kernel.relocs);
        text += 4 * kernel.words.size();
        data += kernel.data.size();
    }
    return entries;
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned count = argc < 3 ? 0 : static_cast<unsigned>(std::atoi(argv[2]));
    if (count == 0) {
        std::cerr << "usage: random_dumps DIRECTORY COUNT [NAME...]\n";
        return 2;
    }
    const std::string directory = argv[1];
    std::vector<made_kernel> first;
    std::vector<made_kernel> second;
    for (unsigned i = 0; i < count; ++i)
        (i < (count + 1) / 2 ? first : second).push_back(make_kernel(i));
    for (int i = 3; i < argc; ++i)
        second.push_back({argv[i],
                          {push_frame, 0x94000000, pop_frame, 0xd65f03c0},
                          {},
                          {{"kernel_0", 4, R_AARCH64_CALL26, 0}}});

    std::vector<tessjit::elf_fn_entry> entries = placed(first, 0x7f0000000000);
    for (tessjit::elf_fn_entry& entry : placed(second, 0x7f0000400000))
        entries.push_back(std::move(entry));
    for (std::size_t i = 0; i < entries.size(); ++i) {
        // Not the kernel's name, which need not be a valid file name.
        std::ofstream file(directory + "/" + std::to_string(i), std::ios::binary);
        const std::vector<std::uint8_t> image = tessjit::emit_elf({{entries[i]}});
        file.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
        if (!file.flush()) {
            std::cerr << "random_dumps: cannot write into " << directory << "\n";
            return 2;
        }
    }
    return 0;
}
