// What the object writer's images hold, read back by libelf.

#include "jit/elf.hpp"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <gelf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libelf.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

namespace {

using namespace tessjit;
using testing::ElementsAre;
using bytes = std::vector<std::uint8_t>;

const std::uint8_t* address(std::uint64_t value)
{
    return reinterpret_cast<const std::uint8_t*>(value);
}

const bytes some_text = {0x1f, 0x20, 0x03, 0xd5, 0xc0, 0x03, 0x5f, 0xd6};
const bytes some_data = {1, 2, 3, 4, 5};

elf_fn_entry function(std::string name, std::vector<reloc_info> relocs = {})
{
    return {std::move(name), address(0x7f1234567020), some_text, address(0x7f12345670cc),
            some_data,       std::move(relocs)};
}

// What a relocation says, with the symbol's index in place of its name.
struct relocation {
    std::uint64_t offset;
    std::uint64_t symbol;
    std::uint32_t type;
    std::int64_t addend;
};

bool operator==(const relocation& a, const relocation& b)
{
    return std::tie(a.offset, a.symbol, a.type, a.addend) == std::tie(b.offset, b.symbol, b.type, b.addend);
}

std::ostream& operator<<(std::ostream& stream, const relocation& r)
{
    return stream << "offset " << r.offset << " symbol " << r.symbol << " type " << r.type << " addend "
                  << r.addend;
}

struct section {
    std::string name;
    GElf_Shdr header;
    bytes contents;
    std::vector<relocation> relocations; // of a relocation section
};

struct symbol {
    std::string name;
    int binding;
    int type;
    unsigned section;
    std::uint64_t value;
    std::uint64_t size;
};

bool operator==(const symbol& a, const symbol& b)
{
    return std::tie(a.name, a.binding, a.type, a.section, a.value, a.size) ==
           std::tie(b.name, b.binding, b.type, b.section, b.value, b.size);
}

std::ostream& operator<<(std::ostream& stream, const symbol& s)
{
    return stream << '"' << s.name << "\" binding " << s.binding << " type " << s.type << " section "
                  << s.section << " value " << s.value << " size " << s.size;
}

struct object {
    GElf_Ehdr header;
    std::vector<section> sections; // by index, from 1: [0] is the null section
    std::vector<symbol> symbols;   // by index
    std::size_t first_global;

    [[nodiscard]] std::size_t section_index(const std::string& name) const
    {
        const auto it =
            std::find_if(sections.begin(), sections.end(), [&](const section& s) { return s.name == name; });
        return it == sections.end() ? 0 : static_cast<std::size_t>(it - sections.begin());
    }

    [[nodiscard]] const section& section_called(const std::string& name) const
    {
        EXPECT_NE(section_index(name), 0U) << name;
        return sections[section_index(name)];
    }

    [[nodiscard]] std::vector<std::size_t> symbols_called(const std::string& name) const
    {
        std::vector<std::size_t> found;
        for (std::size_t i = 1; i < symbols.size(); ++i) {
            if (symbols[i].name == name)
                found.push_back(i);
        }
        return found;
    }

    // The only symbol of the name.
    [[nodiscard]] std::size_t symbol_index(const std::string& name) const
    {
        const std::vector<std::size_t> found = symbols_called(name);
        EXPECT_EQ(found.size(), 1U) << name;
        return found.empty() ? 0 : found[0];
    }

    // Of the section whose sh_info names the text section.
    [[nodiscard]] std::vector<relocation> relocations_of(std::size_t text_section) const
    {
        for (const section& s : sections) {
            if (s.header.sh_type == SHT_RELA && s.header.sh_info == text_section)
                return s.relocations;
        }
        return {};
    }

    [[nodiscard]] std::vector<relocation> relocations_of(const std::string& text_section) const
    {
        return relocations_of(section_index(text_section));
    }
};

// Reads the image by libelf, and checks what holds for every image.
object read(bytes image)
{
    object result = {};
    elf_version(EV_CURRENT);
    const std::unique_ptr<Elf, int (*)(Elf*)> elf(
        elf_memory(reinterpret_cast<char*>(image.data()), image.size()), &elf_end);
    if (elf == nullptr || gelf_getehdr(elf.get(), &result.header) == nullptr) {
        ADD_FAILURE() << elf_errmsg(-1);
        return result;
    }
    EXPECT_EQ(elf_kind(elf.get()), ELF_K_ELF);

    std::size_t section_names = 0;
    EXPECT_EQ(elf_getshdrstrndx(elf.get(), &section_names), 0);
    result.sections.resize(1);
    for (Elf_Scn* scn = nullptr; (scn = elf_nextscn(elf.get(), scn)) != nullptr;) {
        section s = {};
        EXPECT_NE(gelf_getshdr(scn, &s.header), nullptr) << elf_errmsg(-1);
        const char* const name = elf_strptr(elf.get(), section_names, s.header.sh_name);
        EXPECT_NE(name, nullptr) << elf_errmsg(-1);
        s.name = name == nullptr ? "" : name;
        const Elf_Data* const raw = elf_rawdata(scn, nullptr);
        EXPECT_NE(raw, nullptr) << elf_errmsg(-1);
        if (raw != nullptr && raw->d_size != 0) {
            const auto* const first = static_cast<const std::uint8_t*>(raw->d_buf);
            s.contents.assign(first, first + raw->d_size);
        }
        EXPECT_EQ(s.contents.size(), s.header.sh_size) << s.name;
        EXPECT_EQ(s.header.sh_offset % s.header.sh_addralign, 0U) << s.name;
        EXPECT_EQ(s.header.sh_addr % s.header.sh_addralign, 0U) << s.name;

        if (s.header.sh_type == SHT_SYMTAB) {
            EXPECT_TRUE(result.symbols.empty()) << "two symbol tables";
            EXPECT_EQ(s.header.sh_entsize, sizeof(Elf64_Sym));
            result.first_global = s.header.sh_info;
            Elf_Data* const data = elf_getdata(scn, nullptr);
            for (int i = 0; i < static_cast<int>(s.header.sh_size / s.header.sh_entsize); ++i) {
                GElf_Sym sym;
                EXPECT_NE(gelf_getsym(data, i, &sym), nullptr) << elf_errmsg(-1);
                const char* const symbol_name = elf_strptr(elf.get(), s.header.sh_link, sym.st_name);
                EXPECT_NE(symbol_name, nullptr) << elf_errmsg(-1);
                result.symbols.push_back({symbol_name == nullptr ? "" : symbol_name,
                                          GELF_ST_BIND(sym.st_info), GELF_ST_TYPE(sym.st_info), sym.st_shndx,
                                          sym.st_value, sym.st_size});
                EXPECT_EQ(sym.st_other, STV_DEFAULT);
            }
        }
        if (s.header.sh_type == SHT_RELA) {
            EXPECT_EQ(s.header.sh_entsize, sizeof(Elf64_Rela)) << s.name;
            EXPECT_EQ(s.header.sh_flags, std::uint64_t{SHF_INFO_LINK}) << s.name;
            Elf_Scn* const symbol_table = elf_getscn(elf.get(), s.header.sh_link);
            GElf_Shdr symbol_header = {};
            EXPECT_NE(gelf_getshdr(symbol_table, &symbol_header), nullptr) << s.name;
            EXPECT_EQ(symbol_header.sh_type, unsigned{SHT_SYMTAB}) << s.name;
            Elf_Data* const data = elf_getdata(scn, nullptr);
            for (int i = 0; i < static_cast<int>(s.header.sh_size / s.header.sh_entsize); ++i) {
                GElf_Rela rela;
                EXPECT_NE(gelf_getrela(data, i, &rela), nullptr) << elf_errmsg(-1);
                s.relocations.push_back({rela.r_offset, GELF_R_SYM(rela.r_info),
                                         static_cast<std::uint32_t>(GELF_R_TYPE(rela.r_info)),
                                         rela.r_addend});
            }
        }
        result.sections.push_back(std::move(s));
    }

    EXPECT_EQ(result.sections.size(), result.header.e_shnum);
    for (std::size_t i = 0; i < result.symbols.size(); ++i) {
        EXPECT_EQ(result.symbols[i].binding == STB_LOCAL, i < result.first_global) << result.symbols[i];
        EXPECT_LT(result.symbols[i].section, result.sections.size()) << result.symbols[i];
    }
    return result;
}

object emit(std::vector<elf_fn_entry> functions)
{
    elf_data data;
    data.fns = std::move(functions);
    return read(emit_elf(data));
}

TEST(ElfWriter, MakesARelocatableObjectForLittleEndianAArch64)
{
    const object o = emit({function("k")});
    const unsigned char ident[EI_NIDENT] = {0x7f,        'E',        'L',           'F', ELFCLASS64,
                                            ELFDATA2LSB, EV_CURRENT, ELFOSABI_NONE, 0};
    EXPECT_EQ(std::memcmp(o.header.e_ident, ident, sizeof ident), 0);
    EXPECT_EQ(o.header.e_type, ET_REL);
    EXPECT_EQ(o.header.e_machine, EM_AARCH64);
    EXPECT_EQ(o.header.e_version, unsigned{EV_CURRENT});
    EXPECT_EQ(o.header.e_flags, 0U);
    EXPECT_EQ(o.header.e_entry, 0U);
    EXPECT_EQ(o.header.e_phnum, 0U);
    EXPECT_EQ(o.header.e_ehsize, 64);
    EXPECT_EQ(o.header.e_shentsize, 64);
    EXPECT_EQ(o.header.e_shoff % 8, 0U);
}

TEST(ElfWriter, NoFunctionGivesAnObjectWithoutSymbols)
{
    const object o = emit({});
    std::vector<std::string> names;
    for (const section& s : o.sections)
        names.push_back(s.name);
    EXPECT_THAT(names, testing::UnorderedElementsAre("", ".symtab", ".strtab", ".note.GNU-stack"));
    EXPECT_EQ(o.symbols.size(), 1U);
}

TEST(ElfWriter, StackIsNotExecutable)
{
    const section note = emit({function("k")}).section_called(".note.GNU-stack");
    EXPECT_EQ(note.header.sh_type, unsigned{SHT_PROGBITS});
    EXPECT_EQ(note.header.sh_flags, 0U);
    EXPECT_EQ(note.header.sh_size, 0U);
}

TEST(ElfWriter, TextAndDataAreSectionsAtThePlacedAddresses)
{
    const object o = emit({function("k")});
    const section& text = o.section_called(".text.k");
    EXPECT_EQ(text.header.sh_type, unsigned{SHT_PROGBITS});
    EXPECT_EQ(text.header.sh_flags, std::uint64_t{SHF_ALLOC | SHF_EXECINSTR});
    EXPECT_EQ(text.header.sh_addr, 0x7f1234567020U);
    EXPECT_EQ(text.contents, some_text);
    const section& data = o.section_called(".rodata.k");
    EXPECT_EQ(data.header.sh_type, unsigned{SHT_PROGBITS});
    EXPECT_EQ(data.header.sh_flags, std::uint64_t{SHF_ALLOC});
    EXPECT_EQ(data.header.sh_addr, 0x7f12345670ccU);
    EXPECT_EQ(data.contents, some_data);
}

TEST(ElfWriter, DefinesTheFunctionGloballyItsDataLocallyAndMarksBoth)
{
    const object o = emit({function("k")});
    const auto text = static_cast<unsigned>(o.section_index(".text.k"));
    const auto data = static_cast<unsigned>(o.section_index(".rodata.k"));
    EXPECT_THAT(o.symbols, testing::UnorderedElementsAre(
                               symbol{"", STB_LOCAL, STT_NOTYPE, SHN_UNDEF, 0, 0},
                               symbol{"$x", STB_LOCAL, STT_NOTYPE, text, 0, 0},
                               symbol{"$d", STB_LOCAL, STT_NOTYPE, data, 0, 0},
                               symbol{".rodata.k", STB_LOCAL, STT_OBJECT, data, 0, some_data.size()},
                               symbol{"k", STB_GLOBAL, STT_FUNC, text, 0, some_text.size()}));
}

TEST(ElfWriter, EmptyTextAndDataKeepTheirSectionsSymbolsAndAddresses)
{
    const object o = emit({{"k", address(0x4020), {}, address(0x4033), {}, {}}});
    EXPECT_EQ(o.section_called(".text.k").header.sh_addr, 0x4020U);
    EXPECT_EQ(o.section_called(".text.k").header.sh_size, 0U);
    EXPECT_EQ(o.section_called(".rodata.k").header.sh_addr, 0x4033U);
    EXPECT_EQ(o.section_called(".rodata.k").header.sh_size, 0U);
    EXPECT_EQ(o.symbols[o.symbol_index("k")].size, 0U);
    EXPECT_EQ(o.symbols[o.symbol_index(".rodata.k")].size, 0U);
    EXPECT_EQ(o.symbols[o.symbol_index("k")].section, o.section_index(".text.k"));
    EXPECT_EQ(o.symbols[o.symbol_index(".rodata.k")].section, o.section_index(".rodata.k"));
}

TEST(ElfWriter, AlignmentIsTheLargestPowerOfTwoThatDividesTheAddress)
{
    const struct {
        std::uint64_t placed, text_alignment, data_alignment;
    } cases[] = {
        {0, 32, 16},    {0x1000, 32, 16},     {0x1020, 32, 16},       {0x1010, 16, 16},
        {0x1008, 8, 8}, {0x1004, 4, 4},       {0x1002, 2, 2},         {0x1001, 1, 1},
        {~0ULL, 1, 1},  {1ULL << 63, 32, 16}, {0x7f12345670cc, 4, 4},
    };
    for (const auto& c : cases) {
        const object o = emit({{"k", address(c.placed), some_text, address(c.placed), some_data, {}}});
        EXPECT_EQ(o.section_called(".text.k").header.sh_addr, c.placed);
        EXPECT_EQ(o.section_called(".rodata.k").header.sh_addr, c.placed);
        EXPECT_EQ(o.section_called(".text.k").header.sh_addralign, c.text_alignment) << c.placed;
        EXPECT_EQ(o.section_called(".rodata.k").header.sh_addralign, c.data_alignment) << c.placed;
    }
}

TEST(ElfWriter, ManyFunctionsKeepTheirOwnBytesAndRelocations)
{
    constexpr unsigned count = 300;
    std::vector<elf_fn_entry> functions;
    for (unsigned i = 0; i < count; ++i) {
        functions.push_back({"k" + std::to_string(i),
                             address(0x10000 + 64 * i),
                             bytes(i % 7, static_cast<std::uint8_t>(i)),
                             address(0x90000 + 3 * i),
                             bytes(i % 3, static_cast<std::uint8_t>(i + 1)),
                             {{"k" + std::to_string((i + 1) % count), 0, R_AARCH64_CALL26, int(i)}}});
    }
    const object o = emit(functions);
    EXPECT_EQ(o.symbols.size(), 1 + 4 * count);
    for (unsigned i = 0; i < count; ++i) {
        const elf_fn_entry& fn = functions[i];
        EXPECT_EQ(o.section_called(".text." + fn.name).contents, fn.text);
        EXPECT_EQ(o.section_called(".rodata." + fn.name).contents, fn.data);
        EXPECT_THAT(o.relocations_of(".text." + fn.name),
                    ElementsAre(relocation{0, o.symbol_index(fn.relocs[0].name), R_AARCH64_CALL26, i}));
    }
}

TEST(ElfWriter, WithoutRelocationsThereIsNoRelocationSection)
{
    const object o = emit({function("k"), function("m", {{"k", 0, R_AARCH64_CALL26, 0}})});
    EXPECT_EQ(o.section_index(".rela.text.k"), 0U);
    EXPECT_NE(o.section_index(".rela.text.m"), 0U);
}

TEST(ElfWriter, RelocationsAreRecordedAsGivenAndInOrder)
{
    constexpr std::int32_t lowest = INT32_MIN;
    constexpr std::int32_t highest = INT32_MAX;
    const object o = emit({function("k", {{"callee", 4, R_AARCH64_CALL26, 8},
                                          {"callee", 0, R_AARCH64_ADR_PREL_PG_HI21, -8},
                                          {"callee", 0, R_AARCH64_ADR_PREL_PG_HI21, -8},
                                          {"callee", -4, R_AARCH64_ADR_PREL_LO21, lowest},
                                          {"callee", lowest, R_AARCH64_ADD_ABS_LO12_NC, highest},
                                          {"callee", highest, highest, 0},
                                          {"callee", 3, 0, 1},
                                          {"callee", 0, -1, -1},
                                          {"callee", 0, lowest, 0}})});
    const std::size_t callee = o.symbol_index("callee");
    EXPECT_THAT(o.relocations_of(".text.k"),
                ElementsAre(relocation{4, callee, 283, 8}, relocation{0, callee, 275, -8},
                            relocation{0, callee, 275, -8},
                            relocation{0xfffffffffffffffc, callee, 274, -0x80000000LL},
                            relocation{0xffffffff80000000, callee, 277, 0x7fffffff},
                            relocation{0x7fffffff, callee, 0x7fffffff, 0}, relocation{3, callee, 0, 1},
                            relocation{0, callee, 0xffffffff, -1}, relocation{0, callee, 0x80000000, 0}));
}

TEST(ElfWriter, ATargetThatIsNotDefinedIsOneUndefinedGlobal)
{
    std::vector<reloc_info> many(1000, {"callee", 0, R_AARCH64_CALL26, 0});
    const object o = emit({function("k", many), function("m", many)});
    const std::size_t callee = o.symbol_index("callee");
    EXPECT_EQ(o.symbols[callee], (symbol{"callee", STB_GLOBAL, STT_NOTYPE, SHN_UNDEF, 0, 0}));
    EXPECT_THAT(o.relocations_of(".text.k"), testing::SizeIs(1000));
    EXPECT_THAT(o.relocations_of(".text.m"),
                testing::AllOf(testing::SizeIs(1000), testing::Each(relocation{0, callee, 283, 0})));
}

TEST(ElfWriter, AFunctionRefersToItselfAndItsDataByItsOwnSymbols)
{
    const object o = emit({function("k", {{"k", 0, 274, 4}, {".rodata.k", 4, 275, 0}})});
    EXPECT_THAT(o.relocations_of(".text.k"), ElementsAre(relocation{0, o.symbol_index("k"), 274, 4},
                                                         relocation{4, o.symbol_index(".rodata.k"), 275, 0}));
}

TEST(ElfWriter, ATargetMayBeAnEarlierOrALaterFunction)
{
    const object o = emit({function("a", {{"b", 0, 283, 0}}), function("b", {{"a", 0, 283, 0}})});
    EXPECT_THAT(o.relocations_of(".text.a"), ElementsAre(relocation{0, o.symbol_index("b"), 283, 0}));
    EXPECT_THAT(o.relocations_of(".text.b"), ElementsAre(relocation{0, o.symbol_index("a"), 283, 0}));
    EXPECT_EQ(o.symbols[o.symbol_index("b")].section, o.section_index(".text.b"));
}

TEST(ElfWriter, TheDataOfAnotherFunctionOfTheImageIsThatFunctionsSymbol)
{
    const object o = emit({function("a", {{".rodata.b", 0, 275, 0}}), function("b")});
    EXPECT_THAT(o.relocations_of(".text.a"), ElementsAre(relocation{0, o.symbol_index(".rodata.b"), 275, 0}));
    EXPECT_EQ(o.symbols[o.symbol_index(".rodata.b")].section, o.section_index(".rodata.b"));
}

TEST(ElfWriter, TheDataOfAFunctionElsewhereIsUndefined)
{
    const object o = emit({function("a", {{".rodata.b", 0, 275, 0}})});
    EXPECT_EQ(o.symbols[o.symbol_index(".rodata.b")],
              (symbol{".rodata.b", STB_GLOBAL, STT_NOTYPE, SHN_UNDEF, 0, 0}));
}

TEST(ElfWriter, NamesThatOnlyResembleOwnDataAreOrdinaryTargets)
{
    const object o =
        emit({function("k", {{".rodata", 0, 283, 0}, {".rodata.", 0, 283, 0}, {".rodatask", 0, 283, 0}})});
    for (const char* name : {".rodata", ".rodata.", ".rodatask"})
        EXPECT_EQ(o.symbols[o.symbol_index(name)], (symbol{name, STB_GLOBAL, STT_NOTYPE, SHN_UNDEF, 0, 0}));
}

TEST(ElfWriter, AFunctionMayBeNamedLikeTheDataOfAnother)
{
    const object o =
        emit({function("y", {{".rodata.y", 0, 275, 0}}),
              function(".rodata.y", {{".rodata.y", 0, 275, 0}, {".rodata..rodata.y", 0, 275, 0}})});
    const std::vector<std::size_t> both = o.symbols_called(".rodata.y");
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(o.symbols[both[0]].type, STT_OBJECT);
    EXPECT_EQ(o.symbols[both[0]].section, o.section_index(".rodata.y"));
    EXPECT_EQ(o.symbols[both[1]].type, STT_FUNC);
    EXPECT_EQ(o.symbols[both[1]].binding, STB_GLOBAL);
    EXPECT_EQ(o.symbols[both[1]].section, o.section_index(".text..rodata.y"));
    EXPECT_THAT(o.relocations_of(".text.y"), ElementsAre(relocation{0, both[0], 275, 0}));
    // The resolver, too, takes such a name for data first.
    EXPECT_THAT(o.relocations_of(".text..rodata.y"),
                ElementsAre(relocation{0, both[0], 275, 0},
                            relocation{0, o.symbol_index(".rodata..rodata.y"), 275, 0}));
}

TEST(ElfWriter, AFunctionNamedLikeDataIsFoundWhenThereIsNoSuchData)
{
    const object o = emit({function(".rodata.y"), function("k", {{".rodata.y", 0, 283, 0}})});
    EXPECT_THAT(o.relocations_of(".text.k"), ElementsAre(relocation{0, o.symbol_index(".rodata.y"), 283, 0}));
    EXPECT_EQ(o.symbols[o.symbol_index(".rodata.y")].type, STT_FUNC);
}

TEST(ElfWriter, KeepsTheTargetsOfDuplicateNamesApart)
{
    const std::vector<reloc_info> own = {{"k", 0, 283, 0}, {".rodata.k", 4, 275, 0}};
    const object o = emit({function("k", own), function("k", own), function("m", own)});
    const std::vector<std::size_t> functions = o.symbols_called("k"); // local ones come first
    const std::vector<std::size_t> data = o.symbols_called(".rodata.k");
    ASSERT_EQ(functions.size(), 2U);
    ASSERT_EQ(data.size(), 2U);
    const symbol& second = o.symbols[functions[0]];
    const symbol& first = o.symbols[functions[1]];
    EXPECT_EQ(first.binding, STB_GLOBAL);
    EXPECT_EQ(second.binding, STB_LOCAL);
    EXPECT_EQ(second.type, STT_FUNC);
    EXPECT_EQ(second.size, some_text.size());
    EXPECT_LT(first.section, second.section);
    EXPECT_LT(o.symbols[data[0]].section, o.symbols[data[1]].section);
    EXPECT_EQ(o.sections[first.section].name, ".text.k");
    EXPECT_EQ(o.sections[second.section].name, ".text.k");

    EXPECT_THAT(o.relocations_of(first.section),
                ElementsAre(relocation{0, functions[1], 283, 0}, relocation{4, data[0], 275, 0}));
    EXPECT_THAT(o.relocations_of(second.section),
                ElementsAre(relocation{0, functions[0], 283, 0}, relocation{4, data[1], 275, 0}));
    EXPECT_THAT(o.relocations_of(".text.m"),
                ElementsAre(relocation{0, functions[1], 283, 0}, relocation{4, data[0], 275, 0}));
}

TEST(ElfWriter, NamesKeepEveryByte)
{
    const std::string long_name(10'000, 'n');
    for (const std::string& name : {std::string("a b"), std::string("a/b"), std::string("\"quoted\" 'name'"),
                                    std::string("\xff\x80\xc3\xa9"), std::string("\n\t\x01"),
                                    std::string("$x"), std::string("=*?[1]\\"), long_name}) {
        const object o = emit({function(name, {{name + "!", 0, 283, 0}, {".rodata." + name, 4, 275, 0}})});
        EXPECT_NE(o.section_index(".text." + name), 0U) << name;
        EXPECT_NE(o.section_index(".rela.text." + name), 0U) << name;
        EXPECT_EQ(o.symbols[o.symbols_called(name).back()].type, STT_FUNC) << name;
        EXPECT_THAT(o.relocations_of(".text." + name),
                    ElementsAre(relocation{0, o.symbol_index(name + "!"), 283, 0},
                                relocation{4, o.symbol_index(".rodata." + name), 275, 0}))
            << name;
    }
}

TEST(ElfWriter, NamesEndAtTheirFirstNul)
{
    using namespace std::string_literals;
    const object o = emit({function("k\0one"s, {{"callee\0one"s, 0, 283, 0},
                                                {"callee\0two"s, 0, 283, 0},
                                                {".rodata.k\0one"s, 0, 275, 0},
                                                {"k"s, 0, 283, 0}}),
                           function("k\0two"s)});
    const std::vector<std::size_t> functions = o.symbols_called("k"); // equal from here on
    ASSERT_EQ(functions.size(), 2U);
    EXPECT_EQ(o.symbols[functions[0]].binding, STB_LOCAL);
    EXPECT_EQ(o.symbols[functions[1]].binding, STB_GLOBAL);
    const std::size_t callee = o.symbol_index("callee");
    EXPECT_THAT(o.relocations_of(".text.k"),
                ElementsAre(relocation{0, callee, 283, 0}, relocation{0, callee, 283, 0},
                            relocation{0, o.symbols_called(".rodata.k")[0], 275, 0},
                            relocation{0, functions[1], 283, 0}));
}

TEST(ElfWriter, AnEmptyNameIsANameLikeAnyOther)
{
    const object o = emit({function("", {{"", 0, 283, 0}, {".rodata.", 4, 275, 0}})});
    const std::size_t self = o.symbol_index("");
    EXPECT_EQ(o.symbols[self].type, STT_FUNC);
    EXPECT_EQ(o.symbols[self].section, o.section_index(".text."));
    EXPECT_THAT(o.relocations_of(".text."),
                ElementsAre(relocation{0, self, 283, 0}, relocation{4, o.symbol_index(".rodata."), 275, 0}));
}

TEST(ElfWriter, AnEmptyTargetIsAnUndefinedGlobal)
{
    const object o = emit({function("k", {{"", 0, 283, 0}})});
    const std::size_t target = o.symbol_index("");
    EXPECT_EQ(o.symbols[target], (symbol{"", STB_GLOBAL, STT_NOTYPE, SHN_UNDEF, 0, 0}));
    EXPECT_THAT(o.relocations_of(".text.k"), ElementsAre(relocation{0, target, 283, 0}));
}

// 0xff00 sections would need the extended numbering: four are in every image, two or three in each function.
TEST(ElfWriter, HoldsAsManyFunctionsAsSectionsCanBeIndexed)
{
    elf_data data;
    data.fns.assign(32'637, {"k", nullptr, {}, nullptr, {}, {}});
    data.fns[0].relocs = {{"k", 0, 283, 0}};
    EXPECT_EQ(read(emit_elf(data)).sections.size(), 0xfeffU);
    data.fns[1].relocs = data.fns[0].relocs;
    EXPECT_THROW(emit_elf(data), std::length_error);
    data.fns[1].relocs.clear();
    data.fns.push_back(data.fns[1]);
    EXPECT_THROW(emit_elf(data), std::length_error);
}

TEST(ElfWriter, ThreadsMayShareARecord)
{
    elf_data data;
    for (unsigned i = 0; i < 50; ++i)
        data.fns.push_back(function("k" + std::to_string(i), {{"callee", 0, 283, 0}}));
    const bytes expected = emit_elf(data);
    std::vector<bytes> images(4);
    std::vector<std::thread> threads;
    threads.reserve(images.size());
    for (bytes& image : images)
        threads.emplace_back([&] { image = emit_elf(data); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(images, testing::Each(expected));
}

} // namespace
