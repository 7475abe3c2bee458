// Writes the linked image with libelf: ELF header and program headers, the load segments, then symbol table,
// strings and section headers. The build ID is a hash of the finished image with a zero ID.

#include "workbench/image/elf_image.hpp"

#include "workbench/os/file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fmt/format.h>
#include <gelf.h>
#include <limits>
#include <memory>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <utility>
#include <xxhash.h>

namespace vorna::workbench {

namespace {

constexpr std::uint64_t page_size = 4096;
constexpr std::uint64_t largest_image = std::uint64_t{1} << 30;

/// A load segment: begins on a page boundary.
struct segment {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t file_offset;

    [[nodiscard]] std::uint64_t size() const { return end - begin; }
};

std::uint64_t round_up(std::uint64_t value, std::uint64_t multiple)
{
    return (value + multiple - 1) / multiple * multiple;
}

/// The load segments and their place in the file.
struct image_layout {
    std::vector<segment> segments;
    std::uint64_t headers_end;
    std::uint64_t end;
};

/// Places the mappings in the file, after the headers. Merges mappings that share a page; those of the
/// finaliser never do.
image_layout make_layout(const kernel_set& set)
{
    image_layout layout = {};
    std::vector<segment>& segments = layout.segments;
    for (const kernel_mapping& mapping : set.mappings) {
        if (mapping.end == mapping.begin)
            continue; // has empty kernels only
        if (!segments.empty() && mapping.begin / page_size <= (segments.back().end - 1) / page_size)
            segments.back().end = std::max(segments.back().end, mapping.end);
        else
            segments.push_back({mapping.begin, mapping.end, 0});
    }
    layout.headers_end = sizeof(Elf64_Ehdr) + (segments.size() + 1) * sizeof(Elf64_Phdr);
    layout.end = layout.headers_end;
    for (segment& segment : segments) {
        segment.file_offset = round_up(layout.end, page_size);
        if (segment.size() > largest_image || segment.file_offset + segment.size() > largest_image)
            throw std::runtime_error(
                "the kernels lie so far apart that the image would be larger than 1 GiB");
        layout.end = segment.file_offset + segment.size();
    }
    return layout;
}

/// The file offset of an address. For an empty kernel outside all segments, the end of the headers.
std::uint64_t file_offset(const image_layout& layout, std::uint64_t address)
{
    const auto after = std::upper_bound(layout.segments.begin(), layout.segments.end(), address,
                                        [](std::uint64_t a, const segment& s) { return a < s.begin; });
    if (after == layout.segments.begin() || address > after[-1].end)
        return layout.headers_end;
    return after[-1].file_offset + (address - after[-1].begin);
}

struct section_bytes {
    const void* data;
    std::size_t size;
    Elf_Type type;
};

/// The tables of the image under construction. Section names end with symbol names, so both share one string
/// table.
struct image_tables {
    std::string strings = std::string(1, '\0');
    std::vector<Elf64_Sym> locals = std::vector<Elf64_Sym>(1);
    std::vector<Elf64_Sym> globals;
    std::vector<Elf64_Word> local_sections = std::vector<Elf64_Word>(1);
    std::vector<Elf64_Word> global_sections;
};

Elf64_Word add_string(image_tables& tables, std::string_view prefix, std::string_view name = {})
{
    const std::size_t offset = tables.strings.size();
    if (offset > std::numeric_limits<Elf64_Word>::max())
        throw std::runtime_error("the names do not fit into one string table");
    tables.strings.append(prefix).append(name).push_back('\0');
    return static_cast<Elf64_Word>(offset);
}

void add_symbol(image_tables& tables, std::size_t name, unsigned binding, unsigned type, std::size_t section,
                std::uint64_t value, std::uint64_t size)
{
    Elf64_Sym symbol = {};
    symbol.st_name = static_cast<Elf64_Word>(name);
    symbol.st_info = static_cast<unsigned char>(ELF64_ST_INFO(binding, type));
    symbol.st_shndx = static_cast<Elf64_Section>(section < SHN_LORESERVE ? section : SHN_XINDEX);
    symbol.st_value = value;
    symbol.st_size = size;
    const bool local = binding == STB_LOCAL;
    (local ? tables.locals : tables.globals).push_back(symbol);
    (local ? tables.local_sections : tables.global_sections)
        .push_back(static_cast<Elf64_Word>(section < SHN_LORESERVE ? SHN_UNDEF : section));
}

[[noreturn]] void fail_with_elf_error()
{
    throw std::runtime_error(elf_errmsg(-1));
}

/// Adds a section and returns its index. Its bytes must live until the image is written.
std::size_t add_section(Elf* elf, const Elf64_Shdr& header, const section_bytes& bytes)
{
    Elf_Scn* const section = elf_newscn(elf);
    Elf64_Shdr* const new_header = section == nullptr ? nullptr : elf64_getshdr(section);
    Elf_Data* const data = new_header == nullptr ? nullptr : elf_newdata(section);
    if (data == nullptr)
        fail_with_elf_error();
    *new_header = header;
    new_header->sh_size = bytes.size;
    data->d_buf = const_cast<void*>(bytes.data); // NOLINT(cppcoreguidelines-pro-type-const-cast): only read
    data->d_size = bytes.size;
    data->d_type = bytes.type;
    data->d_align = 1;
    data->d_version = EV_CURRENT;
    return elf_ndxscn(section);
}

std::uint64_t lowest_bit(std::uint64_t bits)
{
    return bits & -bits;
}

/// Adds a section of code or constants at its address.
std::size_t add_placed_section(Elf* elf, const image_layout& layout, Elf64_Word name, Elf64_Xword flags,
                               std::uint64_t address, std::uint64_t alignment,
                               const std::vector<std::uint8_t>& bytes)
{
    Elf64_Shdr header = {};
    header.sh_name = name;
    header.sh_type = SHT_PROGBITS;
    header.sh_flags = SHF_ALLOC | flags;
    header.sh_addr = address;
    header.sh_offset = file_offset(layout, address);
    header.sh_addralign = lowest_bit(address | alignment);
    return add_section(elf, header, {bytes.data(), bytes.size(), ELF_T_BYTE});
}

/// A kernel's code or its constants.
struct block {
    std::uint64_t address;
    std::size_t kernel;
    bool data;
};

/// Sections by ascending address, as linkers write them.
std::vector<block> make_blocks(const kernel_set& set)
{
    std::vector<block> blocks;
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        blocks.push_back({kernel.text_address, i, false});
        if (!kernel.data.empty())
            blocks.push_back({kernel.data_address, i, true});
    }
    std::stable_sort(blocks.begin(), blocks.end(),
                     [](const block& a, const block& b) { return a.address < b.address; });
    return blocks;
}

void add_kernels(Elf* elf, const kernel_set& set, const linked_set& linked, const image_layout& layout,
                 image_tables& tables)
{
    constexpr std::string_view text_prefix = ".text.";
    const Elf64_Word code_mark = add_string(tables, "$x");
    const Elf64_Word data_mark = add_string(tables, "$d");
    for (const block& block : make_blocks(set)) {
        const placed_kernel& kernel = set.kernels[block.kernel];
        if (block.data) {
            const Elf64_Word name = add_string(tables, data_prefix, kernel.name);
            const std::size_t section =
                add_placed_section(elf, layout, name, 0, block.address, 16, kernel.data);
            add_symbol(tables, data_mark, STB_LOCAL, STT_NOTYPE, section, block.address, 0);
            add_symbol(tables, name, STB_LOCAL, STT_OBJECT, section, block.address, kernel.data.size());
            continue;
        }
        const Elf64_Word name = add_string(tables, text_prefix, kernel.name);
        const std::size_t section = add_placed_section(elf, layout, name, SHF_EXECINSTR, block.address, 4,
                                                       linked.texts[block.kernel]);
        if (!kernel.text.empty())
            add_symbol(tables, code_mark, STB_LOCAL, STT_NOTYPE, section, block.address, 0);
        add_symbol(tables, name + text_prefix.size(), STB_GLOBAL, STT_FUNC, section, block.address,
                   kernel.text.size());
    }
}

/// Adds a section that is not loaded, at the end of the file.
std::size_t add_table(Elf* elf, std::uint64_t& file_end, Elf64_Shdr header, const section_bytes& bytes)
{
    header.sh_offset = round_up(file_end, header.sh_addralign);
    file_end = header.sh_offset + bytes.size;
    return add_section(elf, header, bytes);
}

Elf64_Shdr table_header(Elf64_Word name, Elf64_Word type, std::uint64_t alignment, std::uint64_t entry_size)
{
    Elf64_Shdr header = {};
    header.sh_name = name;
    header.sh_type = type;
    header.sh_addralign = alignment;
    header.sh_entsize = entry_size;
    return header;
}

/// The build-ID note, by which perf finds the image in its cache.
struct build_id_note {
    Elf64_Nhdr header = {sizeof owner, sizeof hash, NT_GNU_BUILD_ID};
    char owner[sizeof ELF_NOTE_GNU] = ELF_NOTE_GNU;
    XXH64_canonical_t hash = {}; // 8 bytes: perf inject of Linux 7.2 truncates IDs of more than 10
};

/// Sets the build ID to the hash of the image, whose ID is still zero, and returns its digits.
std::string set_build_id(std::string& image, std::size_t note)
{
    const XXH64_hash_t hash = XXH3_64bits(image.data(), image.size());
    XXH64_canonical_t bytes;
    XXH64_canonicalFromHash(&bytes, hash);
    std::memcpy(&image[note + offsetof(build_id_note, hash)], &bytes, sizeof bytes);
    return fmt::format("{:016x}", hash);
}

void write_program_headers(Elf* elf, const std::vector<segment>& segments)
{
    Elf64_Phdr* header = elf64_newphdr(elf, segments.size() + 1);
    if (header == nullptr)
        fail_with_elf_error();
    for (const segment& segment : segments) {
        header->p_type = PT_LOAD;
        header->p_flags = PF_R | PF_X;
        header->p_offset = segment.file_offset;
        header->p_vaddr = segment.begin;
        header->p_paddr = segment.begin;
        header->p_filesz = segment.size();
        header->p_memsz = segment.size();
        header->p_align = page_size;
        ++header;
    }
    header->p_type = PT_GNU_STACK; // without it the image would get an executable stack
    header->p_flags = PF_R | PF_W;
    header->p_align = 16;
}

/// Returns the file offset of the build-ID note, whose ID is still zero.
std::size_t write_elf(int descriptor, const kernel_set& set, const linked_set& linked)
{
    elf_version(EV_CURRENT);
    const auto end = [](Elf* elf) { elf_end(elf); };
    const std::unique_ptr<Elf, decltype(end)> elf(elf_begin(descriptor, ELF_C_WRITE, nullptr), end);
    Elf64_Ehdr* const header = elf == nullptr ? nullptr : elf64_newehdr(elf.get());
    if (header == nullptr)
        fail_with_elf_error();
    elf_flagelf(elf.get(), ELF_C_SET, ELF_F_LAYOUT);
    header->e_ident[EI_DATA] = ELFDATA2LSB;
    header->e_type = ET_EXEC;
    header->e_machine = EM_AARCH64;
    header->e_version = EV_CURRENT;
    header->e_phoff = sizeof(Elf64_Ehdr);

    const image_layout layout = make_layout(set);
    write_program_headers(elf.get(), layout.segments);
    image_tables tables;
    add_kernels(elf.get(), set, linked, layout, tables);
    std::uint64_t file_end = layout.end;

    const build_id_note note;
    const Elf64_Shdr note_section =
        table_header(add_string(tables, ".note.gnu.build-id"), SHT_NOTE, alignof(build_id_note), 0);
    add_table(elf.get(), file_end, note_section, {&note, sizeof note, ELF_T_NHDR});
    const std::size_t note_offset = file_end - sizeof note;

    const std::size_t first_global = tables.locals.size();
    std::vector<Elf64_Sym>& symbols = tables.locals;
    symbols.insert(symbols.end(), tables.globals.begin(), tables.globals.end());
    std::vector<Elf64_Word>& sections = tables.local_sections;
    sections.insert(sections.end(), tables.global_sections.begin(), tables.global_sections.end());
    const bool large = std::any_of(sections.begin(), sections.end(), [](Elf64_Word s) { return s != 0; });

    Elf64_Shdr symbol_table = table_header(add_string(tables, ".symtab"), SHT_SYMTAB, 8, sizeof(Elf64_Sym));
    const Elf64_Word symbol_sections_name = large ? add_string(tables, ".symtab_shndx") : 0;
    const Elf64_Shdr string_table = table_header(add_string(tables, ".strtab"), SHT_STRTAB, 1, 0);
    const std::size_t strings = add_table(elf.get(), file_end, string_table,
                                          {tables.strings.data(), tables.strings.size(), ELF_T_BYTE});
    symbol_table.sh_link = static_cast<Elf64_Word>(strings);
    symbol_table.sh_info = static_cast<Elf64_Word>(first_global);
    const std::size_t symbols_index = add_table(
        elf.get(), file_end, symbol_table, {symbols.data(), symbols.size() * sizeof(Elf64_Sym), ELF_T_SYM});
    if (large) {
        Elf64_Shdr header_of_sections =
            table_header(symbol_sections_name, SHT_SYMTAB_SHNDX, 4, sizeof(Elf64_Word));
        header_of_sections.sh_link = static_cast<Elf64_Word>(symbols_index);
        add_table(elf.get(), file_end, header_of_sections,
                  {sections.data(), sections.size() * sizeof(Elf64_Word), ELF_T_WORD});
    }
    header->e_shoff = round_up(file_end, alignof(Elf64_Shdr));
    if (strings < SHN_LORESERVE) {
        header->e_shstrndx = static_cast<Elf64_Half>(strings);
    } else {
        header->e_shstrndx = SHN_XINDEX;
        elf64_getshdr(elf_getscn(elf.get(), 0))->sh_link = static_cast<Elf64_Word>(strings);
    }
    if (elf_update(elf.get(), ELF_C_WRITE) < 0)
        fail_with_elf_error();
    return note_offset;
}

} // namespace

linked_image make_image(const kernel_set& set, const linked_set& linked)
{
    // libelf can write to files only.
    const file_descriptor file(memfd_create("image", MFD_CLOEXEC));
    if (file.number() < 0)
        throw std::runtime_error(std::strerror(errno));
    const std::size_t note = write_elf(file.number(), set, linked);
    struct stat status;
    if (fstat(file.number(), &status) != 0)
        throw std::runtime_error(std::strerror(errno));
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    if (read_at(file, bytes.data(), bytes.size(), 0) != bytes.size())
        throw std::runtime_error("the image shrank while it was read");
    const std::string build_id = set_build_id(bytes, note);
    return {std::move(bytes), build_id};
}

} // namespace vorna::workbench
