// Reading dumps, and files that are not dumps.

#include "workbench/input/dumps.hpp"
#include "tests/support/child.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/temp_directory.hpp"

#include <cstring>
#include <elf.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using support::dump_of;
using support::placed_bytes;
using support::temp_directory;
using support::write_file;
using testing::ElementsAre;
using testing::IsEmpty;
using vorna::workbench::dump_reading;
using vorna::workbench::placed_kernel;
using vorna::workbench::read_dumps;

using bytes = std::vector<std::uint8_t>;

// A directory with a dump of each kernel, named after it.
class dump_directory {
public:
    explicit dump_directory(const std::vector<placed_kernel>& kernels)
    {
        support::write_dumps(path(), kernels);
    }
    [[nodiscard]] const std::filesystem::path& path() const { return directory_.path(); }
    [[nodiscard]] std::string file(const std::string& name) const { return (path() / name).string(); }
    [[nodiscard]] dump_reading read() const { return read_dumps({path().string()}); }

private:
    temp_directory directory_;
};

std::vector<std::string> names(const dump_reading& reading)
{
    std::vector<std::string> all;
    for (const placed_kernel& kernel : reading.set.kernels)
        all.push_back(kernel.name);
    return all;
}

std::string refusal(const std::string& image)
{
    try {
        vorna::workbench::parse_dump(image.data(), image.size());
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

MATCHER(same_relocation, "")
{
    const tessjit::reloc_info& read = std::get<0>(arg);
    const tessjit::reloc_info& expected = std::get<1>(arg);
    return std::tie(read.name, read.offset, read.type, read.addend) ==
           std::tie(expected.name, expected.offset, expected.type, expected.addend);
}

Elf64_Ehdr& header(std::string& image)
{
    return *reinterpret_cast<Elf64_Ehdr*>(image.data());
}

Elf64_Shdr& section(std::string& image, std::size_t index)
{
    return reinterpret_cast<Elf64_Shdr*>(image.data() + header(image).e_shoff)[index];
}

TEST(Dumps, AreReadWithNameAddressesBytesAndRelocationsInOrder)
{
    const dump_directory directory({placed_bytes(
        "b", 0x1000, 8, 0x1040, 3, {{"a", 4, 283, -8}, {".rodata.b", -4, 275, 5}, {"b", 0, -1, 0}})});
    const dump_reading reading = directory.read();
    ASSERT_THAT(reading.errors, IsEmpty());
    ASSERT_EQ(reading.set.kernels.size(), 1U);
    const placed_kernel& kernel = reading.set.kernels[0];
    EXPECT_EQ(kernel.name, "b");
    EXPECT_EQ(kernel.text_address, 0x1000U);
    EXPECT_EQ(kernel.text, bytes(8, 0xc0));
    EXPECT_EQ(kernel.data_address, 0x1040U);
    EXPECT_EQ(kernel.data, bytes(3, 0xda));
    EXPECT_EQ(kernel.file, directory.file("b"));
    const std::vector<tessjit::reloc_info> expected = {
        {"a", 4, 283, -8}, {".rodata.b", -4, 275, 5}, {"b", 0, -1, 0}};
    EXPECT_THAT(kernel.relocs, testing::Pointwise(same_relocation(), expected));
}

TEST(Dumps, OfSeveralFunctionsInOneImageAreAllRead)
{
    temp_directory directory;
    write_file(directory.path() / "all", dump_of({placed_bytes("k", 0x1000, 4, 0x1040, 1, {{"l", 0, 283, 0}}),
                                                  placed_bytes("l", 0x1020, 4, 0x1041, 2)}));
    const dump_reading reading = read_dumps({(directory.path() / "all").string()});
    EXPECT_THAT(reading.errors, IsEmpty());
    EXPECT_THAT(names(reading), ElementsAre("k", "l"));
    EXPECT_EQ(reading.set.kernels[0].relocs.size(), 1U);
    EXPECT_EQ(reading.set.kernels[1].data.size(), 2U);
}

TEST(Dumps, OfAnyNameAreRead)
{
    for (const std::string name : {"", " ", "a b", "\n", "\xff\xfe", "..", "caf\xc3\xa9"}) {
        const std::string dump =
            dump_of({placed_bytes(name, 0x1000, 4, 0x1020, 1, {{".rodata." + name, 0, 275, 0}})});
        const std::vector<placed_kernel> kernels = vorna::workbench::parse_dump(dump.data(), dump.size());
        ASSERT_EQ(kernels.size(), 1U);
        EXPECT_EQ(kernels[0].name, name);
        EXPECT_EQ(kernels[0].relocs[0].name, ".rodata." + name);
    }
}

TEST(Dumps, HoldWhatAProcessPlaced)
{
    temp_directory directory;
    std::vector<vorna::wfta::kernel_data> first = {support::kernel("one", {1, 2, 3}, {}, {1, 2}),
                                                   support::kernel("none", {}),
                                                   support::kernel("two", {4}, {}, {3})};
    std::vector<vorna::wfta::kernel_data> second = {
        support::kernel("three", std::vector<std::uint32_t>(2000, 5)),
        support::kernel("four", {6}, {{"one", 0, 277, 8}})};
    vorna::wfta::kernel_registry_map registry;
    const support::child_result child = support::run_with_dumps(
        [&] {
            finalise_kernels(registry, first);
            finalise_kernels(registry, second);
            const dump_reading reading = read_dumps({directory.path().string()});
            EXPECT_THAT(reading.errors, IsEmpty());
            EXPECT_EQ(reading.set.kernels.size(), registry.size());
            EXPECT_EQ(reading.set.mappings.size(), 2U);
            for (const placed_kernel& kernel : reading.set.kernels) {
                const vorna::wfta::kernel_registry_entry& entry = registry.at(kernel.name);
                EXPECT_EQ(kernel.text_address, support::number(entry.text_ptr));
                EXPECT_EQ(kernel.text.size(), entry.text_len);
                EXPECT_EQ(kernel.data_address, support::number(entry.data_ptr));
                EXPECT_EQ(kernel.data.size(), entry.data_len);
                const bool of_second = kernel.name == "three" || kernel.name == "four";
                const std::size_t other = find_kernel(reading.set, of_second ? "one" : "three")->mapping;
                EXPECT_NE(kernel.mapping, other);
            }
        },
        directory.path());
    EXPECT_TRUE(child.succeeded()) << child;
}

TEST(DumpsOfTwoRuns, AreReportedWithBothKernels)
{
    const dump_directory directory(
        {placed_bytes("a", 0x1000, 64, 0x1040, 8), placed_bytes("b", 0x1020, 32, 0x1080, 8)});
    const dump_reading reading = directory.read();
    EXPECT_THAT(reading.errors, ElementsAre(directory.file("a") + " and " + directory.file("b") +
                                            ": a and b are placed in the same memory: dumps of two runs"));
    EXPECT_THAT(reading.set.kernels, IsEmpty());
}

TEST(DumpsOfTwoRuns, AreFoundEvenIfAnEmptyKernelLiesBetween)
{

    const dump_directory directory({placed_bytes("a", 0x1000, 0x100, 0x2000, 8),
                                    placed_bytes("b", 0x1020, 0, 0x2100, 0),
                                    placed_bytes("c", 0x10e0, 32, 0x2200, 8)});
    EXPECT_EQ(directory.read().errors.size(), 1U);
}

TEST(DumpsOfTwoRuns, AreFoundByTheirDataAlone)
{
    const dump_directory directory(
        {placed_bytes("a", 0x1000, 32, 0x1040, 9), placed_bytes("b", 0x1020, 32, 0x1048, 8)});
    EXPECT_EQ(directory.read().errors.size(), 1U);
}

TEST(DirectoryOfDumps, SkipsFilesThatAreNotElfAndNamesThem)
{
    const dump_directory directory({placed_bytes("k", 0x1000, 4, 0x1020, 1)});
    write_file(directory.path() / "k.hash", "12345678");
    std::filesystem::create_directory(directory.path() / "more");
    ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
    const dump_reading reading = directory.read();
    EXPECT_THAT(names(reading), ElementsAre("k"));
    EXPECT_THAT(reading.errors, IsEmpty());
    EXPECT_THAT(reading.skipped, ElementsAre(directory.file("k.hash") + ": not an ELF file",
                                             directory.file("more") + ": not an ELF file",
                                             directory.file("pipe") + ": not an ELF file"));
}

TEST(DirectoryOfDumps, ReadsTheOthersIfOneIsBad)
{
    const dump_directory directory(
        {placed_bytes("a", 0x1000, 4, 0x1020, 1), placed_bytes("c", 0x2000, 4, 0x2020, 1)});
    write_file(directory.path() / "b", dump_of({placed_bytes("b", 0x3000, 4, 0x3020, 1)}).substr(0, 100));
    write_file(directory.path() / "d", "");
    const dump_reading reading = directory.read();
    EXPECT_THAT(names(reading), ElementsAre("a", "c"));
    EXPECT_THAT(reading.errors, ElementsAre(testing::StartsWith(directory.file("b") + ": "),
                                            directory.file("d") + ": empty"));
}

TEST(OtherFile, IsReportedIfItIsNamed)
{
    temp_directory directory;
    const std::string path = (directory.path() / "k").string();
    EXPECT_THAT(read_dumps({path}).errors, ElementsAre(path + ": No such file or directory"));
    write_file(path, "text");
    EXPECT_THAT(read_dumps({path}).errors, ElementsAre(path + ": not an ELF file"));
    EXPECT_THAT(read_dumps({"/dev/zero"}).errors, ElementsAre("/dev/zero: not an ELF file"));
}

TEST(OtherFile, OfAnotherKindOfElfIsRefused)
{
    std::string dump = dump_of({placed_bytes("k", 0x1000, 4, 0x1020, 1)});
    std::string other = dump;
    header(other).e_machine = EM_X86_64;
    EXPECT_EQ(refusal(other), "not an ELF file for little-endian AArch64");
    other = dump;
    header(other).e_ident[EI_DATA] = ELFDATA2MSB;
    EXPECT_EQ(refusal(other), "not an ELF file for little-endian AArch64");
    other = dump;
    header(other).e_ident[EI_CLASS] = ELFCLASS32; // e_machine has the same offset in both classes
    EXPECT_EQ(refusal(other), "not an ELF file for little-endian AArch64");
    other = dump;
    header(other).e_type = ET_EXEC;
    EXPECT_EQ(refusal(other), "not a relocatable object");
    EXPECT_EQ(refusal(dump_of({})), "no kernel found");
    EXPECT_EQ(refusal(""), "truncated, or not an ELF file");
}

TEST(HostileDump, TruncatedAnywhereIsRefusedInOneLine)
{
    const std::string dump = dump_of({placed_bytes("k", 0x1000, 4, 0x1020, 1, {{"callee", 0, 283, 0}})});
    ASSERT_EQ(refusal(dump), "");
    for (std::size_t length = 0; length < dump.size(); ++length) {
        const std::string what = refusal(dump.substr(0, length));
        EXPECT_NE(what, "") << length;
        EXPECT_EQ(what.find('\n'), std::string::npos);
    }
}

// The contents of a dump's sections, read from the ELF structures.
placed_kernel as_its_sections_say(const std::string& image)
{
    const auto read = [&image](auto& record, std::size_t offset) {
        std::memcpy(&record, image.data() + offset, sizeof record); // of any alignment
    };
    Elf64_Ehdr header;
    read(header, 0);
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    for (std::size_t i = 0; i < sections.size(); ++i)
        read(sections[i], header.e_shoff + i * sizeof sections[i]);
    const auto string_at = [&](std::size_t table, std::size_t offset) -> std::string {
        const std::size_t begin = std::min(image.size(), sections[table].sh_offset + offset);
        return image.substr(begin, std::min(image.find('\0', begin), image.size()) - begin);
    };
    placed_kernel kernel;
    for (const Elf64_Shdr& section : sections) {
        const std::string name = string_at(header.e_shstrndx, section.sh_name);
        const auto bytes_of_section = [&] {
            const auto begin = image.begin() + static_cast<std::ptrdiff_t>(section.sh_offset);
            return bytes(begin, begin + static_cast<std::ptrdiff_t>(section.sh_size));
        };
        if (section.sh_type == SHT_PROGBITS && name.rfind(".text.", 0) == 0) {
            kernel.name = name.substr(6);
            kernel.text_address = section.sh_addr;
            kernel.text = bytes_of_section();
        } else if (section.sh_type == SHT_PROGBITS && name.rfind(".rodata.", 0) == 0) {
            kernel.data_address = section.sh_addr;
            kernel.data = bytes_of_section();
        } else if (section.sh_type == SHT_RELA) {
            const Elf64_Shdr& symbols = sections[section.sh_link];
            for (std::size_t at = 0; at + sizeof(Elf64_Rela) <= section.sh_size; at += sizeof(Elf64_Rela)) {
                Elf64_Rela rela;
                read(rela, section.sh_offset + at);
                Elf64_Sym symbol;
                read(symbol, symbols.sh_offset + ELF64_R_SYM(rela.r_info) * sizeof symbol);
                kernel.relocs.push_back({string_at(symbols.sh_link, symbol.st_name),
                                         static_cast<std::int32_t>(rela.r_offset),
                                         static_cast<std::int32_t>(ELF64_R_TYPE(rela.r_info)),
                                         static_cast<std::int32_t>(rela.r_addend)});
            }
        }
    }
    return kernel;
}

TEST(HostileDump, WithOneByteChangedIsReadCorrectlyOrRefused)
{
    const std::string dump = dump_of({placed_bytes("k", 0x1000, 4, 0x1020, 1, {{"callee", 0, 283, 0}})});
    std::size_t read = 0;
    for (std::size_t at = 0; at < dump.size(); ++at) {
        for (const char value : {'\0', '\1', '\x7f', '\x80', '\xff'}) {
            SCOPED_TRACE("byte " + std::to_string(at) + " is " + std::to_string(value));
            std::string changed = dump;
            changed[at] = value;
            try {
                const std::vector<placed_kernel> kernels =
                    vorna::workbench::parse_dump(changed.data(), changed.size());
                ++read;
                const placed_kernel expected = as_its_sections_say(changed);
                ASSERT_EQ(kernels.size(), 1U);
                EXPECT_EQ(kernels[0].name, expected.name);
                EXPECT_EQ(kernels[0].text_address, expected.text_address);
                EXPECT_EQ(kernels[0].text, expected.text);
                EXPECT_EQ(kernels[0].data_address, expected.data_address);
                EXPECT_EQ(kernels[0].data, expected.data);
                EXPECT_THAT(kernels[0].relocs, testing::Pointwise(same_relocation(), expected.relocs));
            } catch (const std::runtime_error& error) {
                EXPECT_THAT(error.what(), testing::MatchesRegex("[^\n]+"));
            }
        }
    }
    EXPECT_GT(read, dump.size()); // the reader ignores many bytes
}

TEST(HostileDump, WhoseSectionsShareTheirBytesIsRefused)
{
    // Each kernel's code is the whole file.
    std::vector<placed_kernel> kernels;
    for (unsigned i = 0; i < 100; ++i)
        kernels.push_back(placed_bytes(std::to_string(i), i * 0x10000, 4, i * 0x10000 + 0x8000, 0));
    std::string dump = dump_of(kernels);
    for (std::size_t i = 4; i < header(dump).e_shnum; i += 2) {
        section(dump, i).sh_offset = 0;
        section(dump, i).sh_size = dump.size() / 2;
    }
    EXPECT_EQ(refusal(dump), "sections that overlap in the file");
}

TEST(HostileDump, WhoseRelocationSectionsShareTheirBytesIsRefused)
{
    // Each kernel has the relocations of the first. An empty name keeps the length of the names out of it.
    std::vector<placed_kernel> kernels;
    for (unsigned i = 0; i < 100; ++i)
        kernels.push_back(placed_bytes(std::to_string(i), i * 0x10000, 4, i * 0x10000 + 0x8000, 0,
                                       std::vector<tessjit::reloc_info>(i == 0 ? 2000 : 1, {"", 0, 283, 0})));
    std::string dump = dump_of(kernels);
    ASSERT_EQ(refusal(dump), "");
    const Elf64_Shdr* first = nullptr;
    for (std::size_t i = 0; i < header(dump).e_shnum; ++i) {
        Elf64_Shdr& relocations = section(dump, i);
        if (relocations.sh_type != SHT_RELA)
            continue;
        if (first == nullptr)
            first = &relocations;
        relocations.sh_offset = first->sh_offset;
        relocations.sh_size = first->sh_size;
    }
    EXPECT_EQ(refusal(dump), "sections that overlap in the file");
}

TEST(HostileDump, WhoseRelocationsShareALongNameIsRefused)
{
    const std::vector<tessjit::reloc_info> relocs(2000, {std::string(60000, 'x'), 0, 283, 0});
    EXPECT_EQ(refusal(dump_of({placed_bytes("k", 0x1000, 4, 0x1020, 1, relocs)})),
              "names are too long for the file's size");
}

TEST(HostileDump, WithCodeAfterItsDataOrPastTheLastAddressIsRefused)
{
    const std::string what = "code and data are not placed as the finaliser places them";
    EXPECT_EQ(refusal(dump_of({placed_bytes("k", 0x1040, 4, 0x1000, 1)})), what);
    EXPECT_EQ(refusal(dump_of({placed_bytes("k", 0x1000, 8, 0x1004, 1)})), what);
    EXPECT_EQ(refusal(dump_of({placed_bytes("k", ~std::uint64_t{0} - 3, 8, 0x1004, 1)})), what);
    EXPECT_EQ(refusal(dump_of({placed_bytes("k", 0x1000, 8, ~std::uint64_t{0}, 2)})), what);
}

TEST(HostileDump, WithAnOffsetOrAddendOfMoreThan32BitsIsRefused)
{
    std::string dump = dump_of({placed_bytes("k", 0x1000, 4, 0x1020, 1, {{"callee", 0, 283, 0}})});
    ASSERT_EQ(section(dump, 6).sh_type, SHT_RELA);
    auto* const rela = reinterpret_cast<Elf64_Rela*>(dump.data() + section(dump, 6).sh_offset);
    rela->r_offset = std::uint64_t{1} << 31;
    EXPECT_EQ(refusal(dump), "a relocation's offset does not fit into 32 bits");
    rela->r_offset = 0;
    rela->r_addend = -(std::int64_t{1} << 31) - 1;
    EXPECT_EQ(refusal(dump), "a relocation's addend does not fit into 32 bits");
    rela->r_addend += 1;
    EXPECT_EQ(refusal(dump), "");
}

} // namespace
