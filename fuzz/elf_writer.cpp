// Any record makes an image that libelf reads, with every function's code, data and relocations in it.

#include "jit/elf.hpp"

#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <gelf.h>
#include <libelf.h>

namespace {

tessjit::elf_fn_entry any_function(FuzzedDataProvider& input)
{
    const auto any_address = [&] {
        return reinterpret_cast<const std::uint8_t*>(input.ConsumeIntegral<std::uintptr_t>());
    };
    const auto any_bytes = [&] {
        return input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 64));
    };

    std::string name = input.ConsumeRandomLengthString(20);
    const std::uint8_t* const text_addr = any_address();
    const std::uint8_t* const data_addr = any_address();
    std::vector<std::uint8_t> text = any_bytes();
    std::vector<std::uint8_t> data = any_bytes();
    std::vector<tessjit::reloc_info> relocs;
    while (input.ConsumeBool()) {
        std::string target = input.ConsumeBool() ? ".rodata." + name : input.ConsumeRandomLengthString(20);
        relocs.push_back({std::move(target), input.ConsumeIntegral<std::int32_t>(),
                          input.ConsumeIntegral<std::int32_t>(), input.ConsumeIntegral<std::int32_t>()});
    }
    return {std::move(name), text_addr, std::move(text), data_addr, std::move(data), std::move(relocs)};
}

void require(bool condition)
{
    if (!condition)
        abort();
}

/// The next section of `type`, from `section` on; null sections of libelf stand for none.
Elf_Scn* next_section(Elf* elf, Elf_Scn* section, Elf64_Word type, GElf_Shdr& header)
{
    while ((section = elf_nextscn(elf, section)) != nullptr) {
        require(gelf_getshdr(section, &header) == &header);
        if (header.sh_type == type && header.sh_size != 0)
            break;
    }
    return section;
}

void require_contents(Elf_Scn* section, const std::vector<std::uint8_t>& bytes)
{
    const Elf_Data* const data = elf_rawdata(section, nullptr);
    require(data != nullptr && data->d_size == bytes.size());
    require(memcmp(data->d_buf, bytes.data(), bytes.size()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider input(bytes, size);
    tessjit::elf_data record;
    while (record.fns.size() < 20 && input.ConsumeBool())
        record.fns.push_back(any_function(input));

    std::vector<std::uint8_t> image = tessjit::emit_elf(record);

    elf_version(EV_CURRENT);
    Elf* const elf = elf_memory(reinterpret_cast<char*>(image.data()), image.size());
    require(elf != nullptr && elf_kind(elf) == ELF_K_ELF);

    // Sections that are not empty come in the order of the record.
    GElf_Shdr header;
    Elf_Scn* contents = nullptr;
    Elf_Scn* relocations = nullptr;
    for (const tessjit::elf_fn_entry& fn : record.fns) {
        for (const auto* block : {&fn.text, &fn.data}) {
            if (block->empty())
                continue;
            contents = next_section(elf, contents, SHT_PROGBITS, header);
            require(contents != nullptr);
            require_contents(contents, *block);
            const auto placed = reinterpret_cast<Elf64_Addr>(block == &fn.text ? fn.text_addr : fn.data_addr);
            require(header.sh_addr == placed && placed % header.sh_addralign == 0);
        }
        if (fn.relocs.empty())
            continue;
        relocations = next_section(elf, relocations, SHT_RELA, header);
        require(relocations != nullptr);
        Elf_Data* const table = elf_getdata(relocations, nullptr);
        require(table != nullptr && header.sh_size / header.sh_entsize == fn.relocs.size());
        for (std::size_t i = 0; i < fn.relocs.size(); ++i) {
            GElf_Rela rela;
            require(gelf_getrela(table, static_cast<int>(i), &rela) == &rela);
            require(rela.r_offset == static_cast<Elf64_Addr>(fn.relocs[i].offset));
            require(GELF_R_TYPE(rela.r_info) == static_cast<Elf64_Word>(fn.relocs[i].type));
            require(rela.r_addend == fn.relocs[i].addend);
        }
    }
    elf_end(elf);
    return 0;
}
