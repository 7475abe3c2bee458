// A dump in which one field is made wrong, and the line that says so. What follows a colon is libelf's.

#include "tests/support/dumps.hpp"
#include "tests/support/temp_directory.hpp"
#include "workbench/input/dumps.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <stdexcept>
#include <string>

namespace {

using support::placed_bytes;
using testing::ElementsAre;

/// A dump whose fields can be changed.
class dump_image {
public:
    dump_image()
        : bytes_(support::dump_of({placed_bytes("k", 0x1000, 8, 0x1040, 3, {{"callee", 4, 283, 0}})}))
    {
    }

    [[nodiscard]] Elf64_Ehdr& header() { return *reinterpret_cast<Elf64_Ehdr*>(bytes_.data()); }

    /// The first section of a type, and for the types that several have, of a name.
    Elf64_Shdr& section(std::uint32_t type, const std::string& name = "")
    {
        auto* const sections = reinterpret_cast<Elf64_Shdr*>(bytes_.data() + header().e_shoff);
        for (std::size_t i = 0; i < header().e_shnum; ++i) {
            if (sections[i].sh_type == type && (name.empty() || name == name_at(sections[i].sh_name)))
                return sections[i];
        }
        throw std::logic_error("no section " + name);
    }

    char* name_at(std::uint32_t name)
    {
        auto* const sections = reinterpret_cast<Elf64_Shdr*>(bytes_.data() + header().e_shoff);
        return bytes_.data() + sections[header().e_shstrndx].sh_offset + name;
    }

    template <typename Record>
    Record& record(const Elf64_Shdr& of, std::size_t index)
    {
        return reinterpret_cast<Record*>(bytes_.data() + of.sh_offset)[index];
    }

    Elf64_Rela& relocation() { return record<Elf64_Rela>(section(SHT_RELA), 0); }
    Elf64_Sym& symbol() { return record<Elf64_Sym>(section(SHT_SYMTAB), ELF64_R_SYM(relocation().r_info)); }

    [[nodiscard]] std::string refusal() const
    {
        try {
            vorna::workbench::parse_dump(bytes_.data(), bytes_.size());
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

/// What is said of the dump with this change.
template <typename Corrupt>
std::string refusal(const Corrupt& corrupt)
{
    dump_image dump;
    corrupt(dump);
    return dump.refusal();
}

TEST(CorruptedDump, IsReadUntilItIsCorrupted)
{
    EXPECT_EQ(dump_image().refusal(), "");
}

TEST(CorruptedDump, WithAWrongHeaderIsRefused)
{
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_ident[EI_MAG0] = 0; }),
              "truncated, or not an ELF file");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_ident[EI_VERSION] = 9; }),
              "truncated, or not an ELF file");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_machine = EM_X86_64; }),
              "not an ELF file for little-endian AArch64");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_ident[EI_DATA] = ELFDATA2MSB; }),
              "not an ELF file for little-endian AArch64");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_type = ET_DYN; }), "not a relocatable object");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_shnum = 0; }), "no kernel found");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.header().e_shoff = 1 << 30; }), "no kernel found");
    EXPECT_THAT(refusal([](dump_image& dump) { dump.header().e_shstrndx = 500; }),
                testing::StartsWith("bad section name: "));
    EXPECT_THAT(refusal([](dump_image& dump) {
                    dump.header().e_shstrndx = SHN_XINDEX;
                    dump.header().e_shoff = 1 << 30;
                }),
                testing::StartsWith("no section names: "));
}

TEST(CorruptedDump, WithAWrongSectionIsRefused)
{
    EXPECT_THAT(refusal([](dump_image& dump) { dump.section(SHT_PROGBITS, ".text.k").sh_name = 0x10000; }),
                testing::StartsWith("bad section name: "));
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_PROGBITS, ".text.k").sh_size = 0x10000; }),
              "section 4 extends past the end of the file");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_PROGBITS, ".text.k").sh_offset = 0x10000; }),
              "section 4 extends past the end of the file");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_PROGBITS, ".text.k").sh_type = SHT_NOTE; }),
              "section 5 belongs to no kernel");
    EXPECT_EQ(refusal([](dump_image& dump) {
                  *(dump.name_at(dump.section(SHT_PROGBITS, ".rodata.k").sh_name) + 8) = 'x';
              }),
              "section 5 belongs to no kernel");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_PROGBITS, ".rodata.k").sh_type = SHT_NOTE; }),
              "a kernel has no data section");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_PROGBITS, ".rodata.k").sh_addr = 0x1004; }),
              "code and data are not placed as the finaliser places them");
}

TEST(CorruptedDump, WithAWrongRelocationIsRefused)
{
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_RELA).sh_link = 0; }),
              "relocations without a symbol table");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_RELA).sh_info = 500; }),
              "relocations for a section that is not a kernel's code");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_RELA).sh_size = 0x10000; }),
              "sections that overlap in the file");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_RELA).sh_size -= 1; }),
              "section 6 extends past the end of the file");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.relocation().r_info = ELF64_R_INFO(500, 283); }),
              "a relocation's symbol does not exist");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.relocation().r_offset = std::uint64_t{1} << 32; }),
              "a relocation's offset does not fit into 32 bits");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.relocation().r_addend = std::int64_t{1} << 31; }),
              "a relocation's addend does not fit into 32 bits");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.symbol().st_name = 0x10000; }),
              "a relocation's symbol has no name");
    EXPECT_EQ(refusal([](dump_image& dump) { dump.section(SHT_SYMTAB).sh_size = 0x10000; }),
              "a relocation's symbol does not exist");
}

TEST(CorruptedDump, LargerThanAnyDumpIsRefused)
{
    const support::temp_directory directory;
    const std::string path = (directory.path() / "k").string();
    support::write_file(path, dump_image().bytes());
    std::filesystem::resize_file(path, (std::uintmax_t{1} << 30) + 1);
    EXPECT_THAT(vorna::workbench::read_dumps({path}).errors,
                ElementsAre(path + ": file exceeds the 1 GiB limit for dumps"));
}

TEST(CorruptedDump, ThatIsAProgramIsReportedIfItIsNamed)
{
    dump_image dump;
    dump.header().e_type = ET_EXEC;
    const support::temp_directory directory;
    const std::string path = (directory.path() / "k").string();
    support::write_file(path, dump.bytes());
    EXPECT_THAT(vorna::workbench::read_dumps({path}).errors,
                ElementsAre(path + ": a program or the like, not a dump"));
    EXPECT_THAT(vorna::workbench::read_dumps({directory.path().string()}).skipped,
                ElementsAre(path + ": a program or the like, not a dump"));
}

} // namespace
