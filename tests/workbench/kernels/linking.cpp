// The image of linked dumps equals the process's memory and GNU ld's output for the same dumps, and tools
// accept it like any other image.

#include "workbench/kernels/linking.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/binary_tools.hpp"
#include "tests/support/child.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/far_reaching_sets.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/tool.hpp"
#include "workbench/image/elf_image.hpp"
#include "workbench/input/dumps.hpp"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sys/stat.h>

namespace {

using namespace support;
using namespace vorna::workbench;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

child_result vorna_kernels(std::vector<std::string> arguments, const std::filesystem::path& directory)
{
    arguments.insert(arguments.begin(), VORNA_KERNELS);
    return run_tool(std::move(arguments), directory);
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

// An image's build ID, as tools read it.
std::string build_id_of(const std::string& image, const std::filesystem::path& directory)
{
    const child_result notes = run_tool({binutil("readelf"), "-n", image}, directory);
    EXPECT_EQ(notes.err, "");
    std::smatch id;
    EXPECT_TRUE(std::regex_search(notes.out, id, std::regex("Build ID: ([0-9a-f]{16})\n"))) << notes;
    return id.str(1);
}

// Runs in a child that dumps into an empty current directory: a random set in one to four mappings, linked by
// vorna-kernels, by GNU ld and by the finaliser.
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

TEST(LinkedImage, EqualsTheMappingsAndTheImageOfGnuLd)
{
    const unsigned first = random_seed();
    child_options options;
    options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
    const child_result child = run_in_child(
        [&] {
            for (unsigned i = 0; i < 120 && !testing::Test::HasFailure(); ++i)
                compare_images(first + i);
        },
        options);
    EXPECT_TRUE(child.succeeded()) << "seed " << first << child;
    EXPECT_EQ(child.err, "");
}

// Kernels finalised by two calls, with their dumps in a directory.
class TwoMappings : public testing::Test {
protected:
    void SetUp() override
    {
        child_options options;
        options.directory = directory.path();
        options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
        const child_result child = run_in_child(
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
            options);
        ASSERT_TRUE(child.succeeded()) << child;
        base = std::stoull(child.out, nullptr, 16);
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
};

TEST_F(TwoMappings, BecomeALoadSegmentEach)
{
    const child_result link = vorna_kernels({"link", ".", "-o", "image.elf"}, directory.path());
    EXPECT_EQ(link.exit_status, 0) << link;
    EXPECT_EQ(link.err, "");
    const std::string image = contents(directory.path() / "image.elf");
    EXPECT_EQ(read_sections(image).count(".text.empty"), 1U);
    EXPECT_EQ(read_sections(image).count(".rodata.first"), 0U);
    const std::vector<Elf64_Phdr> segments = load_segments(image);
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

TEST_F(TwoMappings, AreAcceptedByEveryTool)
{
    ASSERT_EQ(vorna_kernels({"link", ".", "-o", "image.elf"}, directory.path()).exit_status, 0);
    expect_no_complaint(run({binutil("readelf"), "-aW", "image.elf"}));
    expect_no_complaint(run({binutil("objdump"), "-dxs", "image.elf"}));
    expect_no_complaint(run({binutil("nm"), "-S", "image.elf"}));
    expect_no_complaint(run({binutil("objcopy"), "image.elf", "copy.elf"}));
    expect_no_complaint(run({"llvm-objdump", "-dxs", "image.elf"}));
    expect_no_complaint(run({"llvm-readobj", "--all", "image.elf"}));
    expect_no_elf_errors("image.elf", directory.path());
}

TEST_F(TwoMappings, HaveSymbolsWithSizesAndMappingSymbols)
{
    ASSERT_EQ(vorna_kernels({"link", ".", "-o", "image.elf"}, directory.path()).exit_status, 0);
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

TEST_F(TwoMappings, AreDisassembledWithNames)
{
    ASSERT_EQ(vorna_kernels({"link", ".", "-o", "image.elf"}, directory.path()).exit_status, 0);
    const child_result objdump = run({binutil("objdump"), "-d", "--no-show-raw-insn", "image.elf"});
    EXPECT_THAT(objdump.out, HasSubstr("adr\tx0, " + hex_digits(base + 0x4041) + " <.rodata.caller+0x1>\n"));
    EXPECT_THAT(objdump.out, HasSubstr("bl\t" + hex_digits(base + 0x3004) + " <first+0x4>\n"));
    EXPECT_THAT(objdump.out, HasSubstr("bl\t" + hex_digits(base + 0x4020) + " <caller>\n"));
}

TEST_F(TwoMappings, AreSummedUp)
{
    const child_result link = vorna_kernels({"link", ".", "-o", "image.elf"}, directory.path());
    EXPECT_EQ(link.out, "2 mappings, 7 kernels, 44 bytes of code, 9 of data -> image.elf\n"
                        "  0x" +
                            hex_digits(base + 0x3000) +
                            "  first, unaligned data, data only, empty, odd=\"name\" \xc3\xa9\xff\\n\n"
                            "  0x" +
                            hex_digits(base + 0x4000) + "  " + std::string(250, 'n') +
                            ", caller\n"
                            "gdb:  add-symbol-file image.elf\n"
                            "perf: perf buildid-cache --add image.elf\n"
                            "      perf inject -b --known-build-ids='" +
                            build_id_of("image.elf", directory.path()) +
                            " /tmp/perf-PID.map' -i perf.data -o kernels.data\n"
                            "      perf annotate -i kernels.data\n");
}

TEST(Link, GivesEachImageABuildIdOfItsOwn)
{
    const temp_directory directory;
    const auto link = [&directory](std::uint64_t text, std::uint32_t first, const std::string& name) {
        std::filesystem::remove_all(directory.path() / "dumps");
        std::filesystem::create_directory(directory.path() / "dumps");
        write_dumps(directory.path() / "dumps",
                    {placed(name, text, {first, a64::ret()}, {}, {1}, text + 0x20)});
        EXPECT_TRUE(vorna_kernels({"link", "dumps", "-o", "image"}, directory.path()).succeeded());
        return build_id_of("image", directory.path());
    };
    const std::string id = link(0x10000, a64::nop(), "k");
    EXPECT_EQ(link(0x10000, a64::nop(), "k"), id);
    std::set<std::string> ids = {id};
    EXPECT_TRUE(ids.insert(link(0x10000, a64::ret(), "k")).second);
    EXPECT_TRUE(ids.insert(link(0x10040, a64::nop(), "k")).second);
    EXPECT_TRUE(ids.insert(link(0x10000, a64::nop(), "l")).second);
}

TEST(Link, NamesMissingCalleesOnceAndWritesTheImage)
{
    const temp_directory directory;
    write_dumps(directory.path(), {placed("a", 0x10000, {a64::bl(), a64::bl(), a64::bl(), a64::ret()},
                                          {{"gone", 0, R_AARCH64_CALL26, 0},
                                           {"a", 4, R_AARCH64_CALL26, 0},
                                           {"gone", 8, R_AARCH64_CALL26, 0}})});
    write_dumps(directory.path(),
                {placed("b", 0x10020, {a64::bl(), a64::bl(), a64::ret()},
                        {{"gone", 0, R_AARCH64_CALL26, 0}, {"lost", 4, R_AARCH64_CALL26, 0}})});
    const child_result link = vorna_kernels({"link", ".", "-o", "image"}, directory.path());
    EXPECT_EQ(link.exit_status, 1);
    EXPECT_EQ(link.err, "");
    EXPECT_THAT(
        link.out,
        StartsWith(
            "a+0x0: error: relocation R_AARCH64_CALL26 against 'gone': target not found in the dumps [unknown-target]\n"
            "    also at a+0x8 and 1 other place\n"
            "b+0x4: error: relocation R_AARCH64_CALL26 against 'lost': target not found in the dumps [unknown-target]\n"
            "1 mapping, 2 kernels, 28 bytes of code, 0 of data -> image\n"
            "  0x10000  a, b\n"
            "gdb:  add-symbol-file image\n"));
    auto sections = read_sections(contents(directory.path() / "image"));
    EXPECT_EQ(sections[".text.a"].contents, to_string(code({a64::bl(), 0x97ffffff, a64::bl(), a64::ret()})));

    const child_result json = vorna_kernels({"link", ".", "-o", "image", "--format=json"}, directory.path());
    EXPECT_EQ(json.exit_status, 1);
    EXPECT_THAT(json.out, StartsWith("{\n  \"version\": 2,\n  \"image\": \"image\",\n  \"build_id\": \"" +
                                     build_id_of("image", directory.path()) + "\",\n"));
    EXPECT_THAT(json.out, HasSubstr("\"missing\": [\n    \"gone\",\n    \"lost\"\n  ]"));
    EXPECT_THAT(json.out, HasSubstr("\"begin\": \"0x10000\""));
}

TEST(Link, SaysWhatTheFinaliserWouldEndTheProcessFor)
{
    const temp_directory directory;
    write_dumps(directory.path(), {placed("far", 0x90000000, {a64::ret()})});
    write_dumps(
        directory.path(),
        {placed("k", 0x10000, {a64::bl(), a64::bl(), a64::bl() | 1, a64::adr(0), a64::adr(0), a64::ret()},
                {{"far", 0, R_AARCH64_CALL26, 4},
                 {"k", 4, R_AARCH64_CALL26, 2},
                 {"k", 8, R_AARCH64_CALL26, 0},
                 {".rodata.far", 12, R_AARCH64_ADR_PREL_LO21, 0},
                 {"k", 16, 999, 0},
                 {"k", 21, R_AARCH64_ADR_PREL_LO21, 0},
                 {"k", -4, R_AARCH64_ADR_PREL_LO21, 0}})});
    const child_result link = vorna_kernels({"link", ".", "-o", "image"}, directory.path());
    EXPECT_EQ(link.exit_status, 1);
    EXPECT_THAT(
        link.out,
        testing::StartsWith(
            "k+0x0: error: relocation R_AARCH64_CALL26 against 'far'+0x4 out of range: 2415853572 is not in [-134217728, 134217727] [range]\n"
            "k+0x4: error: relocation R_AARCH64_CALL26 against 'k'+0x2 misaligned: -2 is not a multiple of 4 [range]\n"
            "k+0x8: error: relocation R_AARCH64_CALL26 against 'k': field not zero in 0x94000001 [field-filled]\n"
            "k+0xc: error: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.far': constants of another kernel "
            "[foreign-data]\n"
            "k+0x10: error: relocation type 999 against 'k': type not supported [unhandled-type]\n"
            "k+0x15: error: relocation R_AARCH64_ADR_PREL_LO21 against 'k': offset outside the code, which has 24 bytes [offset]\n"
            "k-0x4: error: relocation R_AARCH64_ADR_PREL_LO21 against 'k': offset outside the code, which has 24 bytes [offset]\n"
            "2 mappings, 2 kernels, "));
    auto sections = read_sections(contents(directory.path() / "image"));
    EXPECT_EQ(sections[".text.k"].contents,
              to_string(code({a64::bl(), a64::bl(), a64::bl() | 1, a64::adr(0), a64::adr(0), a64::ret()})));
}

TEST(Link, SaysWhereACallLeadsWhoseTopBitWasSet)
{
    // ORed to a positive distance, the bit subtracts 128 MiB from it.
    const temp_directory directory;
    write_dumps(directory.path(), {placed("below", 0x10000, {a64::nop(), a64::ret()})});
    write_dumps(directory.path(), {placed("k", 0x8010000, {0x96000000, 0x96000000, 0x96000000, a64::ret()},
                                          {{"k", 0, R_AARCH64_CALL26, 12},
                                           {"ahead", 4, R_AARCH64_CALL26, 0},
                                           {"k", 8, R_AARCH64_CALL26, 0}})});
    write_dumps(directory.path(), {placed("ahead", 0x8030004, {a64::ret()})});
    const child_result link = vorna_kernels({"link", ".", "-o", "image"}, directory.path());
    EXPECT_EQ(link.exit_status, 1);
    EXPECT_THAT(
        link.out,
        testing::StartsWith(
            "k+0x0: error: relocation R_AARCH64_CALL26 against 'k'+0xc: the call leads to 0x1000c, because the top bit "
            "of the field was set (0x96000003) [call-bit-25]\n"
            "k+0x4: error: relocation R_AARCH64_CALL26 against 'ahead': the call leads to 0x30004, because the top bit "
            "of the field was set (0x96008000) [call-bit-25]\n"
            "3 mappings, "));
    EXPECT_EQ(read_sections(contents(directory.path() / "image"))[".text.k"].contents,
              to_string(code({0x96000003, 0x96008000, 0x97fffffe, a64::ret()})))
        << "what the finaliser makes of them";
}

TEST(LinkedKernels, OfOneNameCallThemselvesByIt)
{
    std::vector<placed_kernel> kernels(2);
    for (const std::size_t i : {0U, 1U}) {
        kernels[i].name = "k";
        kernels[i].text_address = 0x10000 + 0x1000 * i;
        kernels[i].data_address = kernels[i].text_address + 32;
        kernels[i].text = code({a64::bl(), a64::ret()});
        kernels[i].relocs = {{"k", 0, R_AARCH64_CALL26, 0}};
    }
    const kernel_set set = make_kernel_set(kernels);
    for (const placed_kernel& kernel : set.kernels)
        EXPECT_EQ(link_kernel(set, kernel).text, code({a64::bl(), a64::ret()}));
    const linked_set linked = link_set(set);
    ASSERT_EQ(linked.findings.size(), 1U);
    EXPECT_EQ(linked.findings[0].id, vorna::wfta::finding_id::duplicate_name);
    EXPECT_EQ(linked.findings[0].kernel, 1U);
}

TEST(LinkedImage, HasASegmentForEachMappingWithBytes)
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
        const kernel_set set = make_kernel_set(std::move(kernels));
        std::vector<std::uint64_t> places;
        const std::vector<Elf64_Phdr> headers = load_segments(make_image(set, link_set(set)).bytes);
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

TEST(LinkedImage, OfKernelsFarApartIsRefused)
{
    placed_kernel kernel;
    kernel.text = code({a64::ret()});
    kernel.data = {1};
    for (const std::uint64_t data : {0x40001000UL, ~0UL - 8}) {
        kernel.data_address = data;
        const kernel_set set = make_kernel_set({kernel});
        EXPECT_THROW(make_image(set, link_set(set)), std::runtime_error) << data;
    }
    std::vector<placed_kernel> large(2, kernel); // each smaller than 1 GiB, but not both together
    for (const std::uint64_t i : {0U, 1U}) {
        large[i].text_address = i << 40;
        large[i].data_address = large[i].text_address + 0x30000000;
    }
    const kernel_set set = make_kernel_set(large);
    EXPECT_THROW(make_image(set, link_set(set)), std::runtime_error);
}

TEST(Link, RefusesDumpsOfTwoRuns)
{
    const temp_directory directory;
    write_dumps(directory.path(), {placed("a", 0x10000, {a64::nop(), a64::ret()})});
    write_dumps(directory.path(), {placed("b", 0x10004, {a64::ret()})});
    const child_result link = vorna_kernels({"link", ".", "-o", "image"}, directory.path());
    EXPECT_EQ(link.exit_status, 2);
    EXPECT_EQ(link.out, "");
    EXPECT_EQ(link.err,
              "vorna-kernels: ./a and ./b: a and b are placed in the same memory: dumps of two runs\n");
    EXPECT_FALSE(exists(directory.path() / "image"));
}

TEST(Link, WritesTheImageOfTheOtherDumpsWhereOneIsBad)
{
    const temp_directory directory;
    write_dumps(directory.path(), {placed("k", 0x10000, {a64::ret()})});
    write_file(directory.path() / "bad", "\177ELF");
    const child_result link = vorna_kernels({"link", ".", "-o", "image"}, directory.path());
    EXPECT_EQ(link.exit_status, 2);
    EXPECT_EQ(link.err, "vorna-kernels: ./bad: truncated, or not an ELF file\n");
    EXPECT_EQ(read_sections(contents(directory.path() / "image"))[".text.k"].contents,
              to_string(code({a64::ret()})));
}

TEST(Link, LeavesOtherFilesAlone)
{
    const temp_directory directory;
    write_dumps(directory.path(), {placed("k", 0x10000, {a64::ret()})});
    const auto error_of = [&](const std::string& dumps, const std::string& image) {
        const child_result link = vorna_kernels({"link", dumps, "-o", image}, directory.path());
        EXPECT_EQ(link.exit_status, 2) << link;
        EXPECT_EQ(link.out, "");
        return link.err;
    };
    EXPECT_EQ(error_of("k", "/dev/null"), "vorna-kernels: /dev/null: not a regular file\n");
    EXPECT_EQ(error_of("k", "."), "vorna-kernels: .: not a regular file\n");
    EXPECT_EQ(error_of("k", "no/such"), "vorna-kernels: no/such: No such file or directory\n");
    struct stat status;
    ASSERT_EQ(stat("/dev/null", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));

    EXPECT_EQ(error_of("k", "./k"), "vorna-kernels: ./k: is one of the dumps; not overwritten\n");
    std::filesystem::create_directory(directory.path() / "none");
    EXPECT_EQ(error_of("none", "image"), "vorna-kernels: none: no dumps found\n");
    write_file(directory.path() / "kept", "kept");
    write_dumps(directory.path() / "none",
                {placed("wide", 0x10000, {a64::ret()}, {}, {1}, 0x10000'00000000)});
    EXPECT_EQ(error_of("none", "kept"),
              "vorna-kernels: kept: the kernels lie so far apart that the image would be "
              "larger than 1 GiB\n");
    EXPECT_EQ(contents(directory.path() / "kept"), "kept");
    EXPECT_THAT(names_in(directory.path()), ElementsAre("k", "kept", "none"));

    EXPECT_EQ(vorna_kernels({"link", "k", "-o", "kept"}, directory.path()).exit_status, 0);
    EXPECT_EQ(contents(directory.path() / "kept").substr(0, 4), ELFMAG);
    EXPECT_THAT(names_in(directory.path()), ElementsAre("k", "kept", "none"));
}

TEST(LinkedImage, HasMoreSectionsThanOneHeaderFieldCounts)
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
    const kernel_set set = make_kernel_set(std::move(kernels));
    const temp_directory directory;
    write_file(directory.path() / "image", make_image(set, link_set(set)).bytes);
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
