// The bundled object writer: one relocatable object, laid out as an assembler would, whose sections carry the
// addresses at which the functions are placed. The sections come first in the file, each as it is added; then
// the symbol table, the string table (one for symbols and sections) and the section headers.

#include "jit/elf.hpp"

#include <cstddef>
#include <cstring>
#include <elf.h>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

using std::size_t;
using std::string;
using std::string_view;
using std::uint8_t;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the structures of <elf.h> are written as they are");

// Indices of the sections that every image has; those of the functions come after them.
enum fixed_section : Elf64_Half { null_section, symtab, strtab, stack_note, first_function_section };

static constexpr string_view rodata_prefix = ".rodata.";
static constexpr Elf64_Xword max_text_alignment = 32;
static constexpr Elf64_Xword max_data_alignment = 16;

namespace {

struct object_file {
    std::vector<uint8_t> image = std::vector<uint8_t>(sizeof(Elf64_Ehdr));
    std::vector<Elf64_Shdr> sections = std::vector<Elf64_Shdr>(first_function_section);
    std::vector<Elf64_Sym> symbols = std::vector<Elf64_Sym>(1); // the first of each table is all zero
    string strings = string(1, '\0');
};

/// What the relocations of a function need to know about it.
struct defined_function {
    string_view name;
    Elf64_Half text_section;
    Elf64_Word symbol;
    Elf64_Word data_symbol;
};

} // namespace

// ELF names end at the first NUL.
static string_view elf_name(const string& name)
{
    return name.c_str();
}

static Elf64_Word add_string(object_file& object, string_view prefix, string_view name = {})
{
    const size_t offset = object.strings.size();
    if (offset > std::numeric_limits<Elf64_Word>::max())
        throw std::length_error("the names do not fit into one ELF string table");
    object.strings.append(prefix).append(name).push_back('\0');
    return static_cast<Elf64_Word>(offset);
}

// Appends the contents to the image at the alignment that the header asks for.
static void place_contents(object_file& object, Elf64_Shdr& header, const void* contents, size_t size)
{
    const size_t alignment = header.sh_addralign;
    object.image.resize((object.image.size() + alignment - 1) / alignment * alignment);
    header.sh_offset = object.image.size();
    header.sh_size = size;
    const auto* bytes = static_cast<const uint8_t*>(contents);
    object.image.insert(object.image.end(), bytes, bytes + size);
}

static Elf64_Half add_section(object_file& object, Elf64_Shdr header, const void* contents, size_t size)
{
    if (object.sections.size() + 1 >= SHN_LORESERVE)
        throw std::length_error("more functions than one ELF image can index");
    place_contents(object, header, contents, size);
    object.sections.push_back(header);
    return static_cast<Elf64_Half>(object.sections.size() - 1);
}

static Elf64_Half add_placed_section(object_file& object, Elf64_Word name, Elf64_Xword flags,
                                     const uint8_t* placed, Elf64_Xword max_alignment,
                                     const std::vector<uint8_t>& contents)
{
    Elf64_Shdr header = {};
    header.sh_name = name;
    header.sh_type = SHT_PROGBITS;
    header.sh_flags = flags;
    header.sh_addr = reinterpret_cast<Elf64_Addr>(placed);
    // The lowest bit that is set: ELF wants sh_addr to be a multiple of sh_addralign.
    const Elf64_Xword bits = header.sh_addr | max_alignment;
    header.sh_addralign = bits & -bits;
    return add_section(object, header, contents.data(), contents.size());
}

static Elf64_Word add_symbol(object_file& object, Elf64_Word name, unsigned binding, unsigned type,
                             Elf64_Half section, Elf64_Xword size)
{
    Elf64_Sym symbol = {};
    symbol.st_name = name;
    symbol.st_info = static_cast<unsigned char>(ELF64_ST_INFO(binding, type));
    symbol.st_shndx = section;
    symbol.st_size = size;
    object.symbols.push_back(symbol);
    return static_cast<Elf64_Word>(object.symbols.size() - 1);
}

static void add_relocations(object_file& object, const defined_function& function,
                            const std::vector<Elf64_Rela>& relocations)
{
    Elf64_Shdr header = {};
    header.sh_name = add_string(object, ".rela.text.", function.name);
    header.sh_type = SHT_RELA;
    header.sh_flags = SHF_INFO_LINK;
    header.sh_link = symtab;
    header.sh_info = function.text_section;
    header.sh_addralign = alignof(Elf64_Rela);
    header.sh_entsize = sizeof(Elf64_Rela);
    add_section(object, header, relocations.data(), relocations.size() * sizeof(Elf64_Rela));
}

// Adds what every image ends with, and fills in the file header.
static void finish(object_file& object, Elf64_Word first_global_symbol)
{
    Elf64_Shdr& symbol_table = object.sections[symtab];
    symbol_table.sh_name = add_string(object, ".symtab");
    symbol_table.sh_type = SHT_SYMTAB;
    symbol_table.sh_link = strtab;
    symbol_table.sh_info = first_global_symbol;
    symbol_table.sh_addralign = alignof(Elf64_Sym);
    symbol_table.sh_entsize = sizeof(Elf64_Sym);
    place_contents(object, symbol_table, object.symbols.data(), object.symbols.size() * sizeof(Elf64_Sym));

    // Tells linkers that the functions need no executable stack.
    Elf64_Shdr& note = object.sections[stack_note];
    note.sh_name = add_string(object, ".note.GNU-stack");
    note.sh_type = SHT_PROGBITS;
    note.sh_addralign = 1;
    place_contents(object, note, nullptr, 0);

    Elf64_Shdr& string_table = object.sections[strtab];
    string_table.sh_name = add_string(object, ".strtab");
    string_table.sh_type = SHT_STRTAB;
    string_table.sh_addralign = 1;
    place_contents(object, string_table, object.strings.data(), object.strings.size());

    Elf64_Shdr headers = {};
    headers.sh_addralign = alignof(Elf64_Shdr);
    place_contents(object, headers, object.sections.data(), object.sections.size() * sizeof(Elf64_Shdr));

    Elf64_Ehdr header = {};
    memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_ident[EI_OSABI] = ELFOSABI_NONE;
    header.e_type = ET_REL;
    header.e_machine = EM_AARCH64;
    header.e_version = EV_CURRENT;
    header.e_shoff = headers.sh_offset;
    header.e_ehsize = sizeof header;
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = static_cast<Elf64_Half>(object.sections.size());
    header.e_shstrndx = strtab;
    memcpy(object.image.data(), &header, sizeof header);
}

std::vector<uint8_t> tessjit::emit_elf(const elf_data& data)
{
    object_file object;
    std::vector<defined_function> functions;
    std::unordered_map<string_view, Elf64_Word> globals;      // functions and undefined targets, by name
    std::unordered_map<string_view, Elf64_Word> data_symbols; // by the name of the function

    // Local symbols come before global ones, so functions get their symbols only below. Exceptions are
    // functions whose name is taken: a second global symbol would be a multiple definition.
    const Elf64_Word code_mark = add_string(object, "$x");
    const Elf64_Word data_mark = add_string(object, "$d");
    for (const elf_fn_entry& fn : data.fns) {
        const string_view name = elf_name(fn.name);
        const Elf64_Word text_name = add_string(object, ".text.", name);
        const Elf64_Word data_name = add_string(object, rodata_prefix, name);
        const Elf64_Half text_section = add_placed_section(object, text_name, SHF_ALLOC | SHF_EXECINSTR,
                                                           fn.text_addr, max_text_alignment, fn.text);
        const Elf64_Half data_section =
            add_placed_section(object, data_name, SHF_ALLOC, fn.data_addr, max_data_alignment, fn.data);
        add_symbol(object, code_mark, STB_LOCAL, STT_NOTYPE, text_section, 0);
        add_symbol(object, data_mark, STB_LOCAL, STT_NOTYPE, data_section, 0);
        const Elf64_Word data_symbol =
            add_symbol(object, data_name, STB_LOCAL, STT_OBJECT, data_section, fn.data.size());
        data_symbols.emplace(name, data_symbol);
        Elf64_Word symbol = 0;
        if (!globals.emplace(name, 0).second)
            symbol = add_symbol(object, add_string(object, name), STB_LOCAL, STT_FUNC, text_section,
                                fn.text.size());
        functions.push_back({name, text_section, symbol, data_symbol});
    }

    const auto first_global_symbol = static_cast<Elf64_Word>(object.symbols.size());
    for (size_t i = 0; i < functions.size(); ++i) {
        defined_function& function = functions[i];
        if (function.symbol == 0) {
            function.symbol = add_symbol(object, add_string(object, function.name), STB_GLOBAL, STT_FUNC,
                                         function.text_section, data.fns[i].text.size());
            globals[function.name] = function.symbol;
        }
    }

    for (size_t i = 0; i < functions.size(); ++i) {
        const defined_function& function = functions[i];
        const auto target_symbol = [&](string_view target) {
            if (target.substr(0, rodata_prefix.size()) == rodata_prefix) {
                const string_view owner = target.substr(rodata_prefix.size());
                if (owner == function.name)
                    return function.data_symbol;
                if (const auto found = data_symbols.find(owner); found != data_symbols.end())
                    return found->second;
            }
            if (target == function.name)
                return function.symbol;
            const auto [found, is_new] = globals.emplace(target, 0);
            if (is_new)
                found->second =
                    add_symbol(object, add_string(object, target), STB_GLOBAL, STT_NOTYPE, SHN_UNDEF, 0);
            return found->second;
        };

        std::vector<Elf64_Rela> relocations;
        for (const reloc_info& reloc : data.fns[i].relocs) {
            const auto type = static_cast<Elf64_Word>(reloc.type);
            const Elf64_Xword info = ELF64_R_INFO(Elf64_Xword{target_symbol(elf_name(reloc.name))}, type);
            relocations.push_back({static_cast<Elf64_Addr>(reloc.offset), info, reloc.addend});
        }
        if (!relocations.empty())
            add_relocations(object, function, relocations);
    }

    finish(object, first_global_symbol);
    return std::move(object.image);
}
