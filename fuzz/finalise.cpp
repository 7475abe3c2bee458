// Any valid set of kernels is laid out and linked as the layout rule and the AArch64 ELF ABI say, to the
// byte. The expected mapping is made first, with every address relative to the mapping's start, which lies on
// a page.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>

namespace {

using vorna::wfta::kernel_data;

struct placed_kernel {
    std::int64_t text; // offsets from the mapping's start
    std::int64_t data;
};

std::vector<placed_kernel> layout(const std::vector<kernel_data>& kernels)
{
    std::vector<placed_kernel> placed;
    std::int64_t end = 0;
    for (const kernel_data& kernel : kernels) {
        placed.push_back({end, 0});
        end += static_cast<std::int64_t>((kernel.text.size() + 31) / 32 * 32);
    }
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        placed[i].data = end;
        end += static_cast<std::int64_t>(kernels[i].data.size());
    }
    placed.push_back({end, end});
    return placed;
}

std::uint32_t immediate_of_adr(std::int64_t value)
{
    const auto bits = static_cast<std::uint32_t>(value);
    return (bits & 3) << 29 | (bits >> 2 & 0x7ffff) << 5;
}

/// The instruction that leads from P to S, or 0 if there is none of that type.
std::uint32_t instruction(std::int32_t type, std::int64_t S, std::int64_t P)
{
    const auto page_number = [](std::int64_t address) { return address >> 12; };
    switch (type) {
    case R_AARCH64_ADR_PREL_LO21:
        return 0x10000000 | immediate_of_adr(S - P);
    case R_AARCH64_ADR_PREL_PG_HI21:
        return 0x90000000 | immediate_of_adr(page_number(S) - page_number(P));
    case R_AARCH64_ADD_ABS_LO12_NC:
        return 0x91000000 | static_cast<std::uint32_t>(S & 0xfff) << 10;
    default:
        return (S - P) % 4 != 0 ? 0 : 0x94000000 | (static_cast<std::uint32_t>((S - P) / 4) & 0x3ffffff);
    }
}

std::uint32_t without_immediate(std::int32_t type)
{
    return instruction(type, 0, 0);
}

void put(std::vector<std::uint8_t>& bytes, std::size_t offset, std::uint32_t word)
{
    memcpy(bytes.data() + offset, &word, sizeof word);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider input(bytes, size);
    std::vector<kernel_data> kernels(input.ConsumeIntegralInRange<std::size_t>(1, 12));
    std::size_t total = 0;
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        kernels[i].entry_out = nullptr;
        kernels[i].name = "kernel" + std::to_string(i);
        kernels[i].text.assign(input.ConsumeIntegralInRange<std::size_t>(0, 5000), 0xa5);
        kernels[i].data.assign(input.ConsumeIntegralInRange<std::size_t>(0, 100),
                               static_cast<std::uint8_t>(i));
        total += kernels[i].text.size() + kernels[i].data.size();
    }
    if (total == 0)
        return 0; // the mapping would be refused

    const std::vector<placed_kernel> placed = layout(kernels);
    std::vector<std::uint8_t> expected(static_cast<std::size_t>(placed.back().data));
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        kernel_data& kernel = kernels[i];
        std::vector<std::uint8_t> linked = kernel.text;
        for (std::size_t offset = 0; offset + 4 <= kernel.text.size() && input.remaining_bytes() != 0;
             offset += 4 + input.ConsumeIntegralInRange<std::size_t>(0, 40)) {
            const std::int32_t type =
                input.PickValueInArray({R_AARCH64_ADR_PREL_LO21, R_AARCH64_ADR_PREL_PG_HI21,
                                        R_AARCH64_ADD_ABS_LO12_NC, R_AARCH64_CALL26});
            const auto target = input.ConsumeIntegralInRange<std::size_t>(0, i);
            const bool own_data = input.ConsumeBool();
            const auto addend = input.ConsumeIntegralInRange<std::int32_t>(-0x80000, 0x80000);
            const std::int64_t S = (own_data ? placed[i].data : placed[target].text) + addend;
            const std::uint32_t word =
                instruction(type, S, placed[i].text + static_cast<std::int64_t>(offset));
            if (offset + 4 > kernel.text.size() || word == 0)
                break;
            put(kernel.text, offset, without_immediate(type));
            put(linked, offset, word);
            kernel.relocs.push_back({own_data ? ".rodata." + kernel.name : kernels[target].name,
                                     static_cast<std::int32_t>(offset), type, addend});
        }
        std::copy(linked.begin(), linked.end(), expected.begin() + placed[i].text);
        std::copy(kernel.data.begin(), kernel.data.end(), expected.begin() + placed[i].data);
    }

    vorna::wfta::kernel_registry_map registry;
    vorna::wfta::finalise_kernels(registry, kernels);

    const std::uint8_t* const mapping = registry.at("kernel0").text_ptr;
    if (memcmp(mapping, expected.data(), expected.size()) != 0)
        abort();
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        const auto& entry = registry.at(kernels[i].name);
        if (entry.text_ptr != mapping + placed[i].text || entry.text_len != kernels[i].text.size() ||
            entry.data_ptr != mapping + placed[i].data || entry.data_len != kernels[i].data.size())
            abort();
    }
    munmap(registry.at("kernel0").text_ptr, expected.size());
    return 0;
}
