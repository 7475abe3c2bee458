// The image equals the process's memory and GNU ld's output for the same dumps, and tools accept it like any
// other image.

#include "workbench/image/elf_image.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/binary_tools.hpp"
#include "tests/support/child.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/far_reaching_sets.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/tool.hpp"
#include "workbench/input/dumps.hpp"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

namespace {

using namespace support;
using namespace vorna::workbench;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

linked_image image_of(std::vector<placed_kernel> kernels)
{
    const kernel_set set = make_kernel_set(std::move(kernels));
    return make_image(set, link_set(set));
}

// The lines that readelf prints about an image and that contain `key`, with one space between fields.
std::vector<std::string> readelf(const std::string& option, const std::string& image, const std::string& key)
{
    const temp_directory directory;
    write_file(directory.path() / "image", image);
    const child_result tool = run_tool({binutil("readelf"), option, "-W", "image"}, directory.path());
    EXPECT_EQ(tool.err, "");
    std::istringstream lines(tool.out);
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(key) == std::string::npos)
            continue;
        std::istringstream fields(line);
        std::string text;
        for (std::string field; fields >> field;)
            text += (text.empty() ? "" : " ") + field;
        found.push_back(text);
    }
    return found;
}

std::vector<Elf64_Phdr> load_segments(const std::string& image)
{
    Elf64_Ehdr header;
    std::memcpy(&header, image.data(), sizeof header);
    EXPECT_EQ(header.e_type, ET_EXEC);
    EXPECT_EQ(header.e_shoff % alignof(Elf64_Shdr), 0U);
    std::vector<Elf64_Phdr> headers(header.e_phnum);
    std::memcpy(headers.data(), &image[header.e_phoff], headers.size() * sizeof headers[0]);
    headers.erase(std::remove_if(headers.begin(), headers.end(),
                                 [](const Elf64_Phdr& segment) { return segment.p_type != PT_LOAD; }),
                  headers.end());
    return headers;
}

std::vector<Elf64_Shdr> section_headers(const std::string& image)
{
    Elf64_Ehdr header;
    std::memcpy(&header, image.data(), sizeof header);
    std::vector<Elf64_Shdr> headers(header.e_shnum);
    std::memcpy(headers.data(), &image[header.e_shoff], headers.size() * sizeof headers[0]);
    return headers;
}

// Runs in a child that dumps into an empty current directory: a random set in one to four mappings, linked by
// the workbench, by GNU ld and by the finaliser.
void compare_images(unsigned seed)
{
    SCOPED_TRACE("set " + std::to_string(seed));
    const temp_directory directory;
    std::filesystem::current_path(directory.path());

    constexpr std::size_t room = std::size_t{256} << 20;
    const address_range range(room);
    far_reaching_sets sets(seed, number(range.begin()), number(range.begin()) + room);
    vorna::wfta::kernel_registry_map registry;
    registry["far"] = {address(sets.far_kernel), 0, nullptr, 0};
    std::vector<std::uint64_t> places;
    for (unsigned remaining = 1 + seed % 40; remaining > 0;) {
        const auto count = static_cast<unsigned>(1 + sets.below(remaining));
        const std::vector<vorna::wfta::kernel_data> kernels = sets.next(count);
        platform_spy spy;
        spy.place = address(sets.place);
        finalise_kernels(registry, kernels);
        places.push_back(sets.place);
        remaining -= count;
    }
    registry.erase("far");

    std::vector<std::string> dumps;
    for (const auto& [name, entry] : registry)
        dumps.push_back(name);
    dump_reading reading = read_dumps(dumps);
    ASSERT_THAT(reading.errors, ElementsAre());
    std::vector<placed_kernel> kernels = std::move(reading.set.kernels);
    kernels.emplace_back().name = "far"; // not a kernel of the process, so without a dump
    kernels.back().text_address = sets.far_kernel;
    kernels.back().data_address = sets.far_kernel;
    const kernel_set set = make_kernel_set(std::move(kernels));
    const linked_set linked = link_set(set);
    EXPECT_EQ(linked.findings.size(), 0U) << linked.findings.front().message;
    const std::string image = make_image(set, linked).bytes;

    auto ours = read_sections(image);
    const auto theirs = link_where_placed({binutil("ld")}, registry, sets.far_kernel);
    std::size_t compared = 0;
    std::size_t expected = 0;
    for (const auto& [name, entry] : registry)
        expected += (entry.text_len != 0 ? 1U : 0U) + (entry.data_len != 0 ? 1U : 0U);
    for (const auto& [name, section] : theirs) {
        if (section.address == 0 || section.contents.empty())
            continue;
        SCOPED_TRACE(name);
        ++compared;
        EXPECT_EQ(ours[name].address, section.address);
        EXPECT_EQ(ours[name].contents, section.contents);
    }
    EXPECT_EQ(compared, expected);

    for (const Elf64_Shdr& section : section_headers(image)) {
        if (section.sh_addralign != 0) {
            EXPECT_EQ(section.sh_addr % section.sh_addralign, 0U);
        }
    }
    for (const Elf64_Phdr& segment : load_segments(image)) {
        EXPECT_EQ(segment.p_vaddr % 4096, 0U);
        EXPECT_EQ(segment.p_offset % 4096, 0U);
        EXPECT_GE(segment.p_offset, 4096U);
        EXPECT_EQ(segment.p_memsz, segment.p_filesz);
        EXPECT_TRUE(std::equal(address(segment.p_vaddr), address(segment.p_vaddr + segment.p_filesz),
                               reinterpret_cast<const std::uint8_t*>(&image[segment.p_offset])));
    }
}

TEST(ElfImage, EqualsTheProcessMemoryAndTheImageOfGnuLd)
{
    const unsigned first = random_seed();
    const child_result child = run_with_dumps([&] {
        for (unsigned i = 0; i < 120 && !testing::Test::HasFailure(); ++i)
            compare_images(first + i);
    });
    EXPECT_TRUE(child.succeeded()) << "seed " << first << child;
    EXPECT_EQ(child.err, "");
}

// Kernels finalised by two calls, with their dumps in a directory.
class ElfImageOfTwoMappings : public testing::Test {
protected:
    void SetUp() override
    {
        const child_result child = run_with_dumps(
            [&] {
                const address_range range(0x20000);
                platform_spy spy;
                vorna::wfta::kernel_registry_map registry;
                // Two adjacent pages.
                spy.place = range.begin() + 0x3000;
                finalise_kernels(registry, first);
                spy.place = range.begin() + 0x4000;
                finalise_kernels(registry, second);
                std::printf("%lx", static_cast<unsigned long>(number(range.begin())));
            },
            directory.path());
        ASSERT_TRUE(child.succeeded()) << child;
        base = std::stoull(child.out, nullptr, 16);
        dump_reading reading = read_dumps({directory.path().string()});
        ASSERT_THAT(reading.errors, ElementsAre());
        image = make_image(reading.set, link_set(reading.set));
        write_file(directory.path() / "image.elf", image.bytes);
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments) const
    {
        return run_tool(std::move(arguments), directory.path());
    }

    const std::vector<vorna::wfta::kernel_data> first = {
        kernel("first", {a64::nop(), a64::ret()}),
        kernel("unaligned data", {a64::ret()}, {}, {4, 5, 6, 7, 8}),
        kernel("empty", {}),
        kernel("data only", {}, {}, {9}),
        kernel("odd=\"name\" \xc3\xa9\xff\n", {a64::ret()}),
    };
    const std::vector<vorna::wfta::kernel_data> second = {
        kernel(std::string(250, 'n'), {a64::ret()}),
        kernel("caller", {a64::adr(0), a64::adrp(1), a64::add(1, 1, 0), a64::bl(), a64::bl(), a64::ret()},
               {{".rodata.caller", 0, R_AARCH64_ADR_PREL_LO21, 1},
                {".rodata.caller", 4, R_AARCH64_ADR_PREL_PG_HI21, 0},
                {".rodata.caller", 8, R_AARCH64_ADD_ABS_LO12_NC, 0},
                {"first", 12, R_AARCH64_CALL26, 4},
                {"caller", 16, R_AARCH64_CALL26, 0}},
               {1, 2, 3}),
    };
    temp_directory directory;
    std::uint64_t base = 0;
    linked_image image;
};

TEST_F(ElfImageOfTwoMappings, HasALoadSegmentForEach)
{
    EXPECT_EQ(read_sections(image.bytes).count(".text.empty"), 1U);
    EXPECT_EQ(read_sections(image.bytes).count(".rodata.first"), 0U);
    const std::vector<Elf64_Phdr> segments = load_segments(image.bytes);
    ASSERT_EQ(segments.size(), 2U);
    for (const std::size_t i : {0U, 1U}) {
        EXPECT_EQ(segments[i].p_vaddr, base + 0x3000 + 0x1000 * i);
        EXPECT_EQ(segments[i].p_offset, 0x1000 + 0x1000 * i);
        EXPECT_EQ(segments[i].p_flags, unsigned{PF_R | PF_X});
        EXPECT_EQ(segments[i].p_align, 0x1000U);
    }
    // Code on 32-byte boundaries, then the constants, packed: 1 kernel with 8 bytes, 5 with none or 4.
    EXPECT_EQ(segments[0].p_filesz, 3 * 32 + 5 + 1U);
    EXPECT_EQ(segments[1].p_filesz, 2 * 32 + 3U);
}

TEST_F(ElfImageOfTwoMappings, IsAcceptedByEveryTool)
{
    expect_no_complaint(run({binutil("readelf"), "-aW", "image.elf"}));
    expect_no_complaint(run({binutil("objdump"), "-dxs", "image.elf"}));
    expect_no_complaint(run({binutil("nm"), "-S", "image.elf"}));
    expect_no_complaint(run({binutil("objcopy"), "image.elf", "copy.elf"}));
    expect_no_complaint(run({"llvm-objdump", "-dxs", "image.elf"}));
    expect_no_complaint(run({"llvm-readobj", "--all", "image.elf"}));
    expect_no_elf_errors("image.elf", directory.path());
}

TEST_F(ElfImageOfTwoMappings, HasSymbolsWithSizesAndMappingSymbols)
{
    const child_result nm = run({binutil("nm"), "-S", "image.elf"});
    EXPECT_THAT(nm.out, HasSubstr(hex_digits(base + 0x3000, 16) + " 0000000000000008 T first\n"));
    EXPECT_THAT(nm.out, HasSubstr(hex_digits(base + 0x4020, 16) + " 0000000000000018 T caller\n"));
    EXPECT_THAT(nm.out, HasSubstr(hex_digits(base + 0x4040, 16) + " 0000000000000003 r .rodata.caller\n"));
    EXPECT_THAT(nm.out,
                HasSubstr(hex_digits(base + 0x3060, 16) + " 0000000000000005 r .rodata.unaligned data\n"));
    const child_result special = run({binutil("nm"), "--special-syms", "image.elf"});
    EXPECT_THAT(special.out, HasSubstr(hex_digits(base + 0x3000, 16) + " t $x\n"));
    EXPECT_THAT(special.out, HasSubstr(hex_digits(base + 0x4040, 16) + " r $d\n"));
}

TEST_F(ElfImageOfTwoMappings, IsDisassembledWithNames)
{
    const child_result objdump = run({binutil("objdump"), "-d", "--no-show-raw-insn", "image.elf"});
    EXPECT_THAT(objdump.out, HasSubstr("adr\tx0, " + hex_digits(base + 0x4041) + " <.rodata.caller+0x1>\n"));
    EXPECT_THAT(objdump.out, HasSubstr("bl\t" + hex_digits(base + 0x3004) + " <first+0x4>\n"));
    EXPECT_THAT(objdump.out, HasSubstr("bl\t" + hex_digits(base + 0x4020) + " <caller>\n"));
}

TEST(ElfImage, HasALoadSegmentForEachMappingThatIsNotEmpty)
{
    const auto segments = [](const std::vector<std::pair<std::uint64_t, std::size_t>>& texts) {
        std::vector<placed_kernel> kernels;
        for (const auto& [address, size] : texts) {
            placed_kernel& kernel = kernels.emplace_back();
            kernel.name = "k" + std::to_string(address);
            kernel.text_address = address;
            kernel.text.resize(size);
            kernel.data_address = address + size;
        }
        std::vector<std::uint64_t> places;
        const std::vector<Elf64_Phdr> headers = load_segments(image_of(std::move(kernels)).bytes);
        for (const Elf64_Phdr& segment : headers) {
            EXPECT_GE(segment.p_offset, sizeof(Elf64_Ehdr) + headers.size() * sizeof segment);
            places.push_back(segment.p_vaddr);
            places.push_back(segment.p_filesz);
        }
        return places;
    };
    EXPECT_THAT(segments({{0x10000, 0}}), ElementsAre());
    EXPECT_THAT(segments({{0x10000, 0x1000}, {0x11000, 4}}), ElementsAre(0x10000, 0x1000, 0x11000, 4));
    EXPECT_THAT(segments({{0x10000, 0x1004}, {0x13000, 4}}), ElementsAre(0x10000, 0x1004, 0x13000, 4));
    // So many that their headers take more than a page.
    std::vector<std::pair<std::uint64_t, std::size_t>> many;
    for (std::uint64_t i = 0; i < 100; ++i)
        many.emplace_back(0x10000 + 0x2000 * i, 4);
    EXPECT_EQ(segments(many).size(), 2 * many.size());
    // Never occurs with the finaliser, whose mappings do not share pages.
    EXPECT_THAT(segments({{0x10000, 4}, {0x10010, 4}}), ElementsAre(0x10000, 0x14));
}

TEST(ElfImage, IsRefusedIfItWouldBeLargerThan1GiB)
{
    placed_kernel kernel;
    kernel.text = code({a64::ret()});
    kernel.data = {1};
    for (const std::uint64_t data : {0x40001000UL, ~0UL - 8}) {
        kernel.data_address = data;
        EXPECT_THROW(image_of({kernel}), std::runtime_error) << data;
    }
    std::vector<placed_kernel> large(2, kernel); // each smaller than 1 GiB, but not both together
    for (const std::uint64_t i : {0U, 1U}) {
        large[i].text_address = i << 40;
        large[i].data_address = large[i].text_address + 0x30000000;
    }
    EXPECT_THROW(image_of(large), std::runtime_error);
}

TEST(ElfImage, HasSectionsWithTheAlignmentOfTheirAddress)
{
    const std::string image =
        image_of({placed("a", 0x10000, {a64::ret()}, {}, {1, 2, 3, 4, 5}, 0x10040),
                  placed("b", 0x10020, {a64::nop(), a64::ret()}, {}, std::vector<std::uint8_t>(11), 0x10045),
                  placed_bytes("odd", 0x20002, 4)})
            .bytes;
    // Number, name, type, address, offset, size, entry size, flags, link, info, alignment: 4 for
    // instructions and 16 for constants, or the highest power of two that divides the address.
    EXPECT_THAT(readelf("-S", image, "PROGBITS"),
                ElementsAre("[ 1] .text.a PROGBITS 0000000000010000 001000 000004 00 AX 0 0 4",
                            "[ 2] .text.b PROGBITS 0000000000010020 001020 000008 00 AX 0 0 4",
                            "[ 3] .rodata.a PROGBITS 0000000000010040 001040 000005 00 A 0 0 16",
                            "[ 4] .rodata.b PROGBITS 0000000000010045 001045 00000b 00 A 0 0 1",
                            "[ 5] .text.odd PROGBITS 0000000000020002 002002 000004 00 AX 0 0 2"));
}

// "ELF for the Arm 64-bit Architecture": mapping symbols are local and have neither type nor size.
TEST(ElfImage, HasSymbolsWithTypesAndLocalOnesFirst)
{
    const std::string image = image_of({placed("a", 0x10000, {a64::ret()}, {}, {1, 2, 3}, 0x10040),
                                        placed("empty", 0x10020, {}, {}, {}, 0x10043)})
                                  .bytes;
    EXPECT_THAT(readelf("-s", image, "DEFAULT"),
                ElementsAre("0: 0000000000000000 0 NOTYPE LOCAL DEFAULT UND",
                            "1: 0000000000010000 0 NOTYPE LOCAL DEFAULT 1 $x",
                            "2: 0000000000010040 0 NOTYPE LOCAL DEFAULT 3 $d",
                            "3: 0000000000010040 3 OBJECT LOCAL DEFAULT 3 .rodata.a",
                            "4: 0000000000010000 4 FUNC GLOBAL DEFAULT 1 a",
                            "5: 0000000000010020 0 FUNC GLOBAL DEFAULT 2 empty"));
}

TEST(ElfImage, AsksForAStackThatIsNotExecutable)
{
    EXPECT_THAT(
        readelf("-l", image_of({placed("k", 0x10000, {a64::ret()})}).bytes, "GNU_STACK"),
        ElementsAre("GNU_STACK 0x000000 0x0000000000000000 0x0000000000000000 0x000000 0x000000 RW 0x10"));
}

TEST(ElfImage, HasABuildIdThatDependsOnCodeAddressesAndNames)
{
    const auto build_id = [](std::uint64_t text, std::uint32_t first, const std::string& name) {
        const linked_image image = image_of({placed(name, text, {first, a64::ret()}, {}, {1}, text + 0x20)});
        EXPECT_THAT(readelf("-n", image.bytes, "Build ID"),
                    ElementsAre(EndsWith(" Build ID: " + image.build_id)));
        EXPECT_EQ(image.build_id.size(), 16U);
        return image.build_id;
    };
    const std::string id = build_id(0x10000, a64::nop(), "k");
    EXPECT_EQ(build_id(0x10000, a64::nop(), "k"), id);
    std::set<std::string> ids = {id};
    EXPECT_TRUE(ids.insert(build_id(0x10000, a64::ret(), "k")).second);
    EXPECT_TRUE(ids.insert(build_id(0x10040, a64::nop(), "k")).second);
    EXPECT_TRUE(ids.insert(build_id(0x10000, a64::nop(), "l")).second);
}

TEST(ElfImage, CanHaveMoreSectionsThanAHeaderFieldHolds)
{
    constexpr std::size_t count = 40'000; // each with a section of code and one of constants
    std::vector<placed_kernel> kernels(count);
    for (std::size_t i = 0; i < count; ++i) {
        kernels[i].name = "k" + std::to_string(i);
        kernels[i].text_address = 0x100000 + 32 * i;
        kernels[i].text = code({a64::nop(), a64::ret()});
        kernels[i].data_address = 0x100000 + 32 * count + 8 * i;
        kernels[i].data = {1, 2, 3, 4, 5, 6, 7, 8};
    }
    const temp_directory directory;
    write_file(directory.path() / "image", image_of(std::move(kernels)).bytes);
    const auto run = [&](std::vector<std::string> arguments) {
        return run_tool(std::move(arguments), directory.path());
    };

    const child_result readelf = run({binutil("readelf"), "-SW", "image"});
    EXPECT_EQ(readelf.err, "");
    EXPECT_THAT(readelf.out, HasSubstr("There are 80005 section headers"));
    const child_result nm = run({binutil("nm"), "-S", "image"});
    EXPECT_EQ(nm.err, "");
    EXPECT_THAT(nm.out, HasSubstr(hex_digits(0x100000 + 32 * 39'999, 16) + " 0000000000000008 T k39999\n"));
    EXPECT_THAT(nm.out,
                HasSubstr(hex_digits(0x100000 + std::uint64_t{32} * count + std::uint64_t{8} * 39'999, 16) +
                          " 0000000000000008 r .rodata.k39999\n"));
    const child_result llvm = run({"llvm-nm", "-S", "image"});
    EXPECT_EQ(llvm.err, "");
    EXPECT_THAT(llvm.out, HasSubstr("T k39999\n"));
}

} // namespace
