#include "bench/ways.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <sys/mman.h>
#include <utility>

// The compiler runtime's name. NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __clear_cache(void* begin, void* end);

namespace bench {

namespace {

using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_entry;
using vorna::wfta::kernel_registry_map;

std::uint8_t* map(std::size_t size, int protection, void* wish = nullptr)
{
    void* const mapping = mmap(wish, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
        std::perror("bench: mmap");
        std::exit(1);
    }
    return static_cast<std::uint8_t*>(mapping);
}

class one_mapping : public placement {
public:
    explicit one_mapping(const prepared_set& prepared) : size_(prepared.layout.size) {}
    ~one_mapping() override { munmap(base, size_); }
    one_mapping(const one_mapping&) = delete;
    one_mapping& operator=(const one_mapping&) = delete;

    kernel_registry_map registry() const override { return placed; }

    std::uint8_t* base = nullptr;
    kernel_registry_map placed;

private:
    std::size_t size_;
};

std::unique_ptr<placement> finalise(const prepared_set& prepared)
{
    auto result = std::make_unique<one_mapping>(prepared);
    vorna::wfta::finalise_kernels(result->placed, prepared.set.kernels);
    result->base = static_cast<std::uint8_t*>(prepared.set.entries[0]);
    return result;
}

struct sizes {
    std::size_t text;
    std::size_t data;
};

sizes add_up(const std::vector<kernel_data>& kernels)
{
    sizes total{};
    for (const kernel_data& kernel : kernels) {
        total.text = (total.text + kernel.text.size() + 31) & ~std::size_t{31};
        total.data += kernel.data.size();
    }
    return total;
}

// Does what the finaliser does, except that a relocation is only the store of a word known in advance. The
// pages fault in at once, as the finaliser's do, or one by one.
template <bool at_once>
std::unique_ptr<placement> place_known_words(const prepared_set& prepared)
{
    auto result = std::make_unique<one_mapping>(prepared);
    const std::vector<kernel_data>& kernels = prepared.set.kernels;
    const sizes total = add_up(kernels);
    result->base = map(total.text + total.data, PROT_READ | PROT_WRITE | PROT_EXEC);
    if (at_once)
        madvise(result->base, total.text + total.data, MADV_POPULATE_WRITE);
    std::uint8_t* text = result->base;
    std::uint8_t* data = result->base + total.text;
    const prepared_set::linked_word* linked = prepared.words.data();
    const std::size_t* end = prepared.word_ends.data();
    for (const kernel_data& kernel : kernels) {
        std::memcpy(text, kernel.text.data(), kernel.text.size());
        std::memcpy(data, kernel.data.data(), kernel.data.size());
        result->placed.emplace(kernel.name,
                               kernel_registry_entry{text, kernel.text.size(), data, kernel.data.size()});
        for (; linked != prepared.words.data() + *end; ++linked)
            std::memcpy(text + linked->offset, &linked->word, sizeof linked->word);
        ++end;
        *kernel.entry_out = text;
        text += (kernel.text.size() + 31) & ~std::size_t{31};
        data += kernel.data.size();
    }
    __clear_cache(result->base, result->base + total.text);
    return result;
}

std::unique_ptr<placement> only_copy(const prepared_set& prepared)
{
    auto result = std::make_unique<one_mapping>(prepared);
    const std::vector<kernel_data>& kernels = prepared.set.kernels;
    const sizes total = add_up(kernels);
    result->base = map(total.text + total.data, PROT_READ | PROT_WRITE | PROT_EXEC);
    std::uint8_t* text = result->base;
    std::uint8_t* data = result->base + total.text;
    for (const kernel_data& kernel : kernels) {
        std::memcpy(text, kernel.text.data(), kernel.text.size());
        std::memcpy(data, kernel.data.data(), kernel.data.size());
        text += (kernel.text.size() + 31) & ~std::size_t{31};
        data += kernel.data.size();
    }
    return result;
}

class mapping_each : public placement {
public:
    mapping_each() = default;
    ~mapping_each() override
    {
        for (const auto& [name, kernel] : placed)
            munmap(kernel.text_ptr, kernel.text_len + kernel.data_len);
    }
    mapping_each(const mapping_each&) = delete;
    mapping_each& operator=(const mapping_each&) = delete;

    kernel_registry_map registry() const override { return placed; }

    kernel_registry_map placed;
};

// The bits of the field, for an address that is in range.
std::uint32_t field_of(std::int32_t type, std::uint64_t S, std::uint64_t P)
{
    const auto adr = [](std::uint64_t X) {
        return static_cast<std::uint32_t>((X & 3) << 29 | (X >> 2 & 0x7ffff) << 5);
    };
    switch (type) {
    case R_AARCH64_ADR_PREL_LO21:
        return adr(S - P);
    case R_AARCH64_ADR_PREL_PG_HI21:
        return adr((S >> 12) - (P >> 12));
    case R_AARCH64_ADD_ABS_LO12_NC:
        return static_cast<std::uint32_t>(S & 0xfff) << 10;
    default:
        return static_cast<std::uint32_t>((S - P) >> 2 & 0x3ffffff);
    }
}

// Links what a host's own loop would, and checks nothing.
void link_unchecked(const kernel_data& kernel, std::uint8_t* text, const std::uint8_t* data,
                    const kernel_registry_map& placed)
{
    for (const tessjit::reloc_info& reloc : kernel.relocs) {
        const std::uint8_t* const target =
            reloc.name.compare(0, 8, ".rodata.") == 0 ? data : placed.find(reloc.name)->second.text_ptr;
        std::uint8_t* const place = text + reloc.offset;
        std::uint32_t word;
        std::memcpy(&word, place, sizeof word);
        word |= field_of(reloc.type, reinterpret_cast<std::uint64_t>(target + reloc.addend),
                         reinterpret_cast<std::uint64_t>(place));
        std::memcpy(place, &word, sizeof word);
    }
}

// What a host writes for itself: one mapping, copies, a map of names, links without checks, one flush.
std::unique_ptr<placement> own_loop(const prepared_set& prepared)
{
    auto result = std::make_unique<one_mapping>(prepared);
    const std::vector<kernel_data>& kernels = prepared.set.kernels;
    const sizes total = add_up(kernels);
    result->base = map(total.text + total.data, PROT_READ | PROT_WRITE | PROT_EXEC);
    std::uint8_t* text = result->base;
    std::uint8_t* data = result->base + total.text;
    for (const kernel_data& kernel : kernels) {
        std::memcpy(text, kernel.text.data(), kernel.text.size());
        std::memcpy(data, kernel.data.data(), kernel.data.size());
        result->placed.emplace(kernel.name,
                               kernel_registry_entry{text, kernel.text.size(), data, kernel.data.size()});
        link_unchecked(kernel, text, data, result->placed);
        *kernel.entry_out = text;
        text += (kernel.text.size() + 31) & ~std::size_t{31};
        data += kernel.data.size();
    }
    __clear_cache(result->base, result->base + total.text);
    return result;
}

std::size_t whole_pages(const kernel_data& kernel)
{
    return (kernel.text.size() + kernel.data.size() + 4095) / 4096 * 4096;
}

// Each kernel in its own mapping, written, linked without checks, and then made executable. The mappings are
// adjacent, in a free address range, so that BL reaches from each to each.
std::unique_ptr<placement> map_each(const prepared_set& prepared)
{
    auto result = std::make_unique<mapping_each>();
    std::size_t total = 0;
    for (const kernel_data& kernel : prepared.set.kernels)
        total += whole_pages(kernel);
    std::uint8_t* next = map(total, PROT_NONE);
    munmap(next, total);
    for (const kernel_data& kernel : prepared.set.kernels) {
        const std::size_t size = kernel.text.size() + kernel.data.size();
        std::uint8_t* const text = map(size, PROT_READ | PROT_WRITE, next);
        next += whole_pages(kernel);
        std::uint8_t* const data = text + kernel.text.size();
        std::memcpy(text, kernel.text.data(), kernel.text.size());
        std::memcpy(data, kernel.data.data(), kernel.data.size());
        result->placed.emplace(kernel.name,
                               kernel_registry_entry{text, kernel.text.size(), data, kernel.data.size()});
        link_unchecked(kernel, text, data, result->placed);
        mprotect(text, size, PROT_READ | PROT_EXEC);
        *kernel.entry_out = text;
        __clear_cache(text, text + kernel.text.size());
    }
    return result;
}

template <typename T>
void append(std::vector<std::uint8_t>& bytes, const T* values, std::size_t count)
{
    const auto* const first = reinterpret_cast<const std::uint8_t*>(values);
    bytes.insert(bytes.end(), first, first + count * sizeof(T));
}

} // namespace

prepared_set::prepared_set(kernel_set given)
    : set(std::move(given)), layout(layout_of(set.kernels)), object(make_object(set.kernels, layout))
{
    // The words are read from a placement that is checked like every other.
    const std::unique_ptr<placement> placed = finalise(*this);
    const kernel_registry_map registry = placed->registry();
    for (const kernel_data& kernel : set.kernels) {
        for (const tessjit::reloc_info& reloc : kernel.relocs) {
            linked_word linked{static_cast<std::uint32_t>(reloc.offset), 0};
            std::memcpy(&linked.word, registry.at(kernel.name).text_ptr + reloc.offset, sizeof linked.word);
            words.push_back(linked);
        }
        word_ends.push_back(words.size());
    }
}

std::vector<way> all_ways()
{
    std::vector<way> ways = {
        {"finaliser", finalise, way::all},
        {"floor", place_known_words<true>, way::all},
        {"floor, pages one by one", place_known_words<false>, way::all},
        {"mmap+memcpy", only_copy, way::nothing},
        {"own loop, unchecked", own_loop, way::all},
        {"mapping per kernel", map_each, way::all},
    };
    for (const way& other : llvm_ways())
        ways.push_back(other);
    return ways;
}

void check(const way& way, const prepared_set& prepared, const placement& placed)
{
    if (way.linked == way::nothing)
        return;
    constexpr std::int32_t no_type = 0;
    check_linked(prepared.set.kernels, placed.registry(), way.name,
                 way.linked == way::all ? no_type : R_AARCH64_ADR_PREL_LO21);
}

kernel_registry_map registry_of(const prepared_set& prepared, const std::vector<std::uint64_t>& entries,
                                std::uint64_t data_start)
{
    kernel_registry_map registry;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const kernel_data& kernel = prepared.set.kernels[i];
        const std::uint64_t data = data_start + prepared.layout.data_offsets[i] - prepared.layout.text_size;
        registry.emplace(kernel.name, kernel_registry_entry{
                                          reinterpret_cast<std::uint8_t*>(entries[i]), kernel.text.size(),
                                          reinterpret_cast<const std::uint8_t*>(data), kernel.data.size()});
    }
    return registry;
}

std::vector<std::uint8_t> make_object(const std::vector<kernel_data>& kernels, const set_layout& layout)
{
    enum : std::uint16_t { null, text, rodata, rela, symtab, strtab, shstrtab, section_count };
    enum : std::uint32_t { rodata_symbol = 1, data_start_symbol, first_kernel_symbol };
    static constexpr char section_names[] = "\0.text\0.rodata\0.rela.text\0.symtab\0.strtab\0.shstrtab";

    std::vector<std::uint8_t> texts(layout.text_size);
    std::vector<std::uint8_t> datas(layout.size - layout.text_size);
    std::string names("\0data_start\0", 12);
    std::map<std::string, std::uint32_t> symbol_of;
    std::vector<Elf64_Sym> symbols = {
        {},
        {0, ELF64_ST_INFO(STB_LOCAL, STT_SECTION), STV_DEFAULT, rodata, 0, 0},
        {1, ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT), STV_DEFAULT, rodata, 0, datas.size()},
    };
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        const kernel_data& kernel = kernels[i];
        std::memcpy(texts.data() + layout.text_offsets[i], kernel.text.data(), kernel.text.size());
        std::memcpy(datas.data() + (layout.data_offsets[i] - layout.text_size), kernel.data.data(),
                    kernel.data.size());
        symbol_of[kernel.name] = static_cast<std::uint32_t>(symbols.size());
        symbols.push_back({static_cast<Elf64_Word>(names.size()), ELF64_ST_INFO(STB_GLOBAL, STT_FUNC),
                           STV_DEFAULT, text, layout.text_offsets[i], kernel.text.size()});
        names += kernel.name;
        names += '\0';
    }

    std::vector<Elf64_Rela> relocations;
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        for (const tessjit::reloc_info& reloc : kernels[i].relocs) {
            const bool own_data = reloc.name.compare(0, 8, ".rodata.") == 0;
            const std::size_t from_section = own_data ? layout.data_offsets[i] - layout.text_size : 0;
            relocations.push_back(
                {layout.text_offsets[i] + static_cast<Elf64_Addr>(reloc.offset),
                 ELF64_R_INFO(own_data ? Elf64_Xword{rodata_symbol} : Elf64_Xword{symbol_of.at(reloc.name)},
                              static_cast<Elf64_Xword>(reloc.type)),
                 static_cast<Elf64_Sxword>(from_section) + reloc.addend});
        }
    }

    std::vector<std::uint8_t> object(sizeof(Elf64_Ehdr));
    Elf64_Shdr headers[section_count] = {};
    const auto add_section = [&](std::uint16_t index, Elf64_Word type, Elf64_Xword flags,
                                 Elf64_Xword alignment, const auto* values, std::size_t count) {
        object.resize((object.size() + alignment - 1) / alignment * alignment);
        Elf64_Shdr& header = headers[index];
        header.sh_type = type;
        header.sh_flags = flags;
        header.sh_addralign = alignment;
        header.sh_offset = object.size();
        header.sh_size = count * sizeof *values;
        append(object, values, count);
    };
    add_section(text, SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 32, texts.data(), texts.size());
    add_section(rodata, SHT_PROGBITS, SHF_ALLOC, 16, datas.data(), datas.size());
    add_section(rela, SHT_RELA, SHF_INFO_LINK, 8, relocations.data(), relocations.size());
    add_section(symtab, SHT_SYMTAB, 0, 8, symbols.data(), symbols.size());
    add_section(strtab, SHT_STRTAB, 0, 1, names.data(), names.size());
    add_section(shstrtab, SHT_STRTAB, 0, 1, section_names, sizeof section_names);
    headers[rela].sh_link = symtab;
    headers[rela].sh_info = text;
    headers[rela].sh_entsize = sizeof(Elf64_Rela);
    headers[symtab].sh_link = strtab;
    headers[symtab].sh_info = data_start_symbol; // the first that is not local
    headers[symtab].sh_entsize = sizeof(Elf64_Sym);
    Elf64_Word name = 1;
    for (std::uint16_t section = text; section < section_count; ++section) {
        headers[section].sh_name = name;
        name += static_cast<Elf64_Word>(std::strlen(section_names + name)) + 1;
    }

    object.resize((object.size() + 7) / 8 * 8);
    Elf64_Ehdr header = {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_REL;
    header.e_machine = EM_AARCH64;
    header.e_version = EV_CURRENT;
    header.e_shoff = object.size();
    header.e_ehsize = sizeof header;
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = section_count;
    header.e_shstrndx = shstrtab;
    append(object, headers, section_count);
    std::memcpy(object.data(), &header, sizeof header);
    return object;
}

} // namespace bench
