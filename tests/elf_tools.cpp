// Ordinary tools read the dumps, and linkers, told to place a kernel set where the finaliser placed it, make
// the same bytes of it.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/tool.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::HasSubstr;

std::string hex(std::uint64_t value, int digits = 0)
{
    char text[32];
    std::snprintf(text, sizeof text, "%0*lx", digits, static_cast<unsigned long>(value));
    return text;
}

// The binutils for AArch64 have the prefix on every machine, on one of their own too.
std::string binutil(const char* name)
{
    return std::string("aarch64-linux-gnu-") + name;
}

void expect_no_complaint(const child_result& tool)
{
    EXPECT_TRUE(tool.succeeded()) << tool;
    EXPECT_EQ(tool.err, "");
    EXPECT_THAT(tool.out, testing::Not(HasSubstr("arning"))) << tool;
}

// Kernels dumped by a call of finalise_kernels, in a directory of their own.
class Dumps : public testing::Test {
protected:
    void SetUp() override
    {
        child_options options;
        options.directory = directory.path();
        options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
        const child_result child = run_in_child(
            [&] {
                const address_range range(0x10000);
                platform_spy spy;
                spy.place = range.begin();
                kernel_registry_map registry;
                finalise_kernels(registry, kernels);
                for (const auto& [name, entry] : registry) {
                    std::printf("%lx %lx %s\n", static_cast<unsigned long>(number(entry.text_ptr)),
                                static_cast<unsigned long>(number(entry.data_ptr)), name.c_str());
                }
            },
            options);
        ASSERT_TRUE(child.succeeded()) << child;
        std::istringstream lines(child.out);
        std::string name;
        std::uint64_t text = 0;
        std::uint64_t data = 0;
        while (lines >> std::hex >> text >> data && std::getline(lines.ignore(1), name)) {
            text_address[name] = text;
            data_address[name] = data;
        }
        ASSERT_EQ(text_address.size(), kernels.size());
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments) const
    {
        return run_tool(std::move(arguments), directory.path());
    }

    // The program on each of the dumps.
    void expect_no_complaints(const std::vector<std::string>& arguments) const
    {
        for (const kernel_data& kernel : kernels) {
            SCOPED_TRACE(kernel.name);
            std::vector<std::string> with_file = arguments;
            with_file.push_back(kernel.name);
            expect_no_complaint(run(with_file));
        }
    }

    const std::vector<kernel_data> kernels = {
        kernel("first", {a64::nop(), a64::ret()}),
        kernel("caller",
               {a64::adr(0), a64::adrp(1), a64::add(1, 1, 0), a64::bl(), a64::adr(2), a64::bl(), a64::ret()},
               {{".rodata.caller", 0, R_AARCH64_ADR_PREL_LO21, 1},
                {".rodata.caller", 4, R_AARCH64_ADR_PREL_PG_HI21, -2},
                {".rodata.caller", 8, R_AARCH64_ADD_ABS_LO12_NC, -2},
                {"first", 12, R_AARCH64_CALL26, 4},
                {"caller", 16, R_AARCH64_ADR_PREL_LO21, 0},
                {"first", 20, R_AARCH64_CALL26, 0}},
               {1, 2, 3}),
        kernel("unaligned data", {a64::ret()}, {}, {4, 5, 6, 7, 8}),
        kernel("empty", {}),
        kernel("data only", {}, {}, {9}),
        kernel("odd=\"name\" \xc3\xa9\xff", {a64::ret()}),
        kernel(std::string(250, 'n'), {a64::ret()}),
    };
    temp_directory directory;
    std::map<std::string, std::uint64_t> text_address;
    std::map<std::string, std::uint64_t> data_address;
};

TEST_F(Dumps, ReadelfHasNoWarning)
{
    expect_no_complaints({binutil("readelf"), "-aW"});
    const child_result readelf = run({binutil("readelf"), "-aW", "caller"});
    EXPECT_THAT(readelf.out, HasSubstr("REL (Relocatable file)"));
    EXPECT_THAT(readelf.out,
                HasSubstr(".text.caller      PROGBITS        " + hex(text_address["caller"], 16)));
    EXPECT_THAT(readelf.out,
                HasSubstr(".rodata.caller    PROGBITS        " + hex(data_address["caller"], 16)));
}

TEST_F(Dumps, ObjdumpShowsKernelAddressesAndRelocations)
{
    expect_no_complaints({binutil("objdump"), "-dr"});
    const std::uint64_t text = text_address["caller"];
    const auto place = [&](unsigned offset) { return "\t" + hex(text + offset) + ": "; };
    const child_result objdump = run({binutil("objdump"), "-dr", "caller"});
    EXPECT_THAT(objdump.out, HasSubstr("\n" + hex(text, 16) + " <caller>:\n"));
    EXPECT_THAT(objdump.out, HasSubstr(place(0) + "R_AARCH64_ADR_PREL_LO21\t.rodata.caller+0x1\n"));
    EXPECT_THAT(objdump.out, HasSubstr(place(4) + "R_AARCH64_ADR_PREL_PG_HI21\t.rodata.caller-0x2\n"));
    EXPECT_THAT(objdump.out, HasSubstr(place(8) + "R_AARCH64_ADD_ABS_LO12_NC\t.rodata.caller-0x2\n"));
    EXPECT_THAT(objdump.out, HasSubstr(place(12) + "R_AARCH64_CALL26\tfirst+0x4\n"));
    EXPECT_THAT(objdump.out, HasSubstr(place(16) + "R_AARCH64_ADR_PREL_LO21\tcaller\n"));
    EXPECT_THAT(objdump.out, HasSubstr(place(20) + "R_AARCH64_CALL26\tfirst\n"));
}

TEST_F(Dumps, NmListsKernelDataAndCallee)
{
    expect_no_complaints({binutil("nm")});
    const child_result nm = run({binutil("nm"), "--size-sort", "-S", "caller"});
    EXPECT_EQ(nm.out, hex(data_address["caller"], 16) + " 0000000000000003 r .rodata.caller\n" +
                          hex(text_address["caller"], 16) + " 000000000000001c T caller\n");
    EXPECT_EQ(run({binutil("nm"), "--undefined-only", "caller"}).out, "                 U first\n");
}

TEST_F(Dumps, LlvmReadobjHasNoComplaint)
{
    expect_no_complaints({"llvm-readobj", "--all"});
    EXPECT_THAT(run({"llvm-readobj", "--all", "caller"}).out, HasSubstr("0x14 R_AARCH64_CALL26 first 0x0\n"));
}

TEST_F(Dumps, LlvmObjdumpShowsKernelAndRelocations)
{
    expect_no_complaints({"llvm-objdump", "-dr"});
    const child_result objdump = run({"llvm-objdump", "-dr", "caller"});
    EXPECT_THAT(objdump.out, HasSubstr("\n" + hex(text_address["caller"], 16) + " <caller>:\n"));
    EXPECT_THAT(objdump.out, HasSubstr("R_AARCH64_CALL26\tfirst+0x4\n"));
}

TEST_F(Dumps, ElflintFindsNoErrors)
{
    for (const char* mode : {"--strict", "--gnu-ld"}) {
        for (const kernel_data& kernel : kernels) {
            const child_result elflint = run({"eu-elflint", mode, kernel.name});
            EXPECT_TRUE(elflint.succeeded()) << kernel.name << elflint;
            EXPECT_EQ(elflint.out, "No errors\n") << kernel.name;
            EXPECT_EQ(elflint.err, "") << kernel.name;
        }
    }
}

TEST_F(Dumps, LinkersCombineThem)
{
    for (const std::string& linker : {binutil("ld"), std::string("ld.lld")}) {
        std::vector<std::string> arguments = {linker, "-r", "-o", "combined"};
        for (const kernel_data& kernel : kernels) {
            arguments.push_back(kernel.name);
        }
        expect_no_complaint(run(arguments));
    }
}

TEST(DisassembledDump, HasTheAddressesOfThePerfMap)
{
    const temp_directory directory;
    child_options options;
    options.directory = directory.path();
    options.environment = {{"VORNA_WFTA_PERF", "1"}};
    const child_result child = run_in_child(
        [] {
            const perf_map map;
            kernel_registry_map registry;
            finalise_kernels(registry,
                             {kernel("one", {a64::ret()}), kernel("two", {a64::nop(), a64::ret()})});
            finalise_kernels(registry, {kernel("three", {a64::nop(), a64::nop(), a64::ret()})});
            std::fputs(map.text().c_str(), stdout);
        },
        options);
    ASSERT_TRUE(child.succeeded()) << child;

    std::istringstream lines(child.out);
    std::vector<std::string> names;
    std::uint64_t start = 0;
    std::uint64_t size = 0;
    std::string name;
    while (lines >> std::hex >> start >> size >> name) {
        names.push_back(name);
        const child_result objdump = run_tool({binutil("objdump"), "-d", name}, directory.path());
        EXPECT_THAT(objdump.out, HasSubstr("\n" + hex(start, 16) + " <" + name + ">:\n"));
        const child_result nm = run_tool({binutil("nm"), "-S", "--defined-only", name}, directory.path());
        EXPECT_THAT(nm.out, HasSubstr(hex(start, 16) + " " + hex(size, 16) + " T " + name + "\n"));
    }
    EXPECT_THAT(names, testing::ElementsAre("one", "two", "three"));
}

// Images that the finaliser does not make: it gives the writer one function at a time, with placed code.
TEST(ObjectFile, OfAnyRecordIsAcceptedByEveryTool)
{
    using tessjit::elf_fn_entry;
    const std::vector<std::uint8_t> text = code({a64::bl(), a64::adr(0), a64::ret()});
    const auto function = [&](const std::string& name, const std::string& callee) {
        return elf_fn_entry{
            name,
            address(0x7f0000001000),
            text,
            address(0x7f0000001fff),
            {1, 2, 3},
            {{callee, 0, R_AARCH64_CALL26, 0}, {".rodata." + name, 4, R_AARCH64_ADR_PREL_LO21, 0}}};
    };
    std::map<std::string, tessjit::elf_data> records;
    records["none"] = {};
    records["null"].fns = {{"k", nullptr, text, nullptr, {1}, {}}};
    records["empty"].fns = {{"k", nullptr, {}, nullptr, {}, {}}};
    records["forward"].fns = {function("a", "b"), function("b", "a")};
    records["same names"].fns = {function("a", "a"), function("a", "a"), function("b", "a")};
    records["data names"].fns = {function("y", ".rodata.b"), function(".rodata.y", "y"),
                                 function("b", ".rodata.y")};
    records["no name"].fns = {function("", "")};
    records["long name"].fns = {function(std::string(10'000, 'n'), "callee")};
    records["NUL"].fns = {function(std::string("a\0b", 3), "callee"),
                          function(std::string("a\0c", 3), "callee")};
    for (unsigned i = 0; i < 1000; ++i) {
        records["many"].fns.push_back(function("k" + std::to_string(i), "k" + std::to_string(i / 2)));
    }

    const temp_directory directory;
    for (const auto& [name, record] : records) {
        SCOPED_TRACE(name);
        write_file(directory.path() / name, to_string(emit_elf(record)));
        for (const char* mode : {"--strict", "--gnu-ld"}) {
            EXPECT_EQ(run_tool({"eu-elflint", mode, name}, directory.path()).out, "No errors\n");
        }
        expect_no_complaint(run_tool({binutil("readelf"), "-aW", name}, directory.path()));
        expect_no_complaint(run_tool({binutil("objdump"), "-dr", name}, directory.path()));
        expect_no_complaint(run_tool({"llvm-readobj", "--all", name}, directory.path()));
        expect_no_complaint(run_tool({"llvm-objdump", "-dr", name}, directory.path()));
        for (const std::string& linker : {binutil("ld"), std::string("ld.lld")}) {
            expect_no_complaint(
                run_tool({linker, "-e", "0", "--unresolved-symbols=ignore-all", "-o", "linked", name},
                         directory.path()));
        }
    }
}

TEST(ObjectFile, RecordsWhatNoToolKnows)
{
    tessjit::elf_data record;
    record.fns = {{"k",
                   address(0x4001),
                   code({a64::ret()}),
                   address(0x4005),
                   {},
                   {{"callee", -4, 9999, 1}, {"callee", 4096, -1, -1}}}};
    const temp_directory directory;
    write_file(directory.path() / "k", to_string(emit_elf(record)));
    const child_result readelf = run_tool({binutil("readelf"), "-rW", "k"}, directory.path());
    EXPECT_TRUE(readelf.succeeded()) << readelf;
    EXPECT_THAT(readelf.out, HasSubstr("fffffffffffffffc"));
    EXPECT_THAT(readelf.out, HasSubstr("unrecognized: 270f"));
    EXPECT_THAT(readelf.out, HasSubstr("callee + 1"));
    EXPECT_THAT(readelf.out, HasSubstr("0000000000001000"));
    EXPECT_THAT(readelf.out, HasSubstr("unrecognized: ffffffff"));
    EXPECT_THAT(readelf.out, HasSubstr("callee - 1"));
}

// A random set of kernels, as large as the four kinds of relocation reach, and where it will be placed.
class random_kernel_sets {
public:
    random_kernel_sets(unsigned seed, std::uint64_t begin, std::uint64_t end)
        : random_(seed), next_mapping_(begin), end_(end)
    {
        // A kernel of the host's own, out of reach of all but ADRP and ADD.
        const std::uint64_t four_gib = std::uint64_t{4} << 30;
        far_kernel = begin > 2 * four_gib && one_in(2) ? begin - below(four_gib) : begin + below(four_gib);
        known_["far"] = far_kernel;
    }

    // The next kernels, for a mapping at `place`.
    std::vector<kernel_data> next(unsigned count)
    {
        std::vector<kernel_data> kernels(count);
        for (kernel_data& kernel : kernels) {
            kernel.name = "k" + std::to_string(known_.size());
            known_[kernel.name] = 0;
            std::vector<std::uint32_t> words(below(12));
            if (&kernel == &kernels.front()) {
                words.resize(12); // a set without any bytes gets no mapping
            }
            for (std::uint32_t& word : words) {
                word = a64::nop();
            }
            kernel.text = code(words);
            kernel.text.resize(kernel.text.size() + (one_in(4) ? below(4) : 0), 0xee);
            kernel.data.resize(one_in(4) ? 0 : below(40));
            for (std::uint8_t& byte : kernel.data) {
                byte = static_cast<std::uint8_t>(below(256));
            }
        }

        // The finaliser's layout: code on 32-byte boundaries, then the data, packed.
        std::uint64_t text_size = 0;
        std::uint64_t data_size = 0;
        for (const kernel_data& kernel : kernels) {
            text_size += (kernel.text.size() + 31) / 32 * 32;
            data_size += kernel.data.size();
        }
        constexpr std::uint64_t largest_page = 0x10000;
        place = next_mapping_;
        next_mapping_ += (text_size + data_size + largest_page) / largest_page * largest_page;
        next_mapping_ += below((end_ - next_mapping_) / 2 / largest_page) * largest_page;

        for (const kernel_data& kernel : kernels) {
            known_.erase(kernel.name);
        }
        std::uint64_t text = place;
        std::uint64_t data = place + text_size;
        for (kernel_data& kernel : kernels) {
            known_[kernel.name] = text;
            for (std::size_t offset = 0; offset + 4 <= kernel.text.size(); offset += 4) {
                if (!one_in(4)) {
                    relocate(kernel, static_cast<std::int32_t>(offset), text, data);
                }
            }
            std::shuffle(kernel.relocs.begin(), kernel.relocs.end(), random_);
            text += (kernel.text.size() + 31) / 32 * 32;
            data += kernel.data.size();
        }
        return kernels;
    }

    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    bool one_in(unsigned n) { return below(n) == 0; }

    std::uint64_t far_kernel;
    std::uint64_t place = 0;

private:
    // Makes the word an instruction with a relocation to a random target that is in reach.
    void relocate(kernel_data& kernel, std::int32_t offset, std::uint64_t text, std::uint64_t data)
    {
        tessjit::reloc_info reloc = {".rodata." + kernel.name, offset, 0, 0};
        std::uint64_t target = data;
        if (one_in(2)) {
            const auto it = std::next(known_.begin(), static_cast<std::ptrdiff_t>(below(known_.size())));
            std::tie(reloc.name, target) = *it;
        }

        const auto reg = static_cast<unsigned>(below(31));
        const std::uint64_t P = text + static_cast<std::uint64_t>(offset);
        const std::uint64_t page = P & ~std::uint64_t{0xfff};
        std::uint32_t word = 0;
        std::uint64_t lowest = target - 0x80000000; // S
        std::uint64_t highest = target + 0x7fffffff;
        switch (below(4)) {
        case 0:
            reloc.type = R_AARCH64_ADR_PREL_LO21;
            word = a64::adr(reg);
            lowest = P - 0x100000;
            highest = P + 0xfffff;
            break;
        case 1:
            reloc.type = R_AARCH64_ADR_PREL_PG_HI21;
            word = a64::adrp(reg);
            lowest = page - 0x100000000;
            highest = page + 0xffffffff;
            break;
        case 2:
            reloc.type = R_AARCH64_ADD_ABS_LO12_NC;
            word = a64::add(reg, reg, 0);
            break;
        default:
            reloc.type = R_AARCH64_CALL26;
            word = a64::bl();
            lowest = P - 0x8000000;
            highest = P + 0x7fffffc;
        }

        const auto lowest_addend =
            std::max<std::int64_t>(static_cast<std::int64_t>(lowest - target), INT32_MIN);
        const auto highest_addend =
            std::min<std::int64_t>(static_cast<std::int64_t>(highest - target), INT32_MAX);
        if (lowest_addend > highest_addend) {
            return;
        }
        std::int64_t addend =
            lowest_addend +
            static_cast<std::int64_t>(below(static_cast<std::uint64_t>(highest_addend - lowest_addend) + 1));
        switch (below(6)) {
        case 0:
            addend = lowest_addend;
            break;
        case 1:
            addend = highest_addend;
            break;
        case 2:
        case 3:
            addend = std::clamp<std::int64_t>(0, lowest_addend, highest_addend);
            break;
        default:
            break;
        }
        if (reloc.type == R_AARCH64_CALL26) {
            addend -= static_cast<std::int64_t>((target + static_cast<std::uint64_t>(addend) - P) % 4);
            if (addend < lowest_addend) {
                return;
            }
        }
        reloc.addend = static_cast<std::int32_t>(addend);
        std::memcpy(&kernel.text[static_cast<std::size_t>(offset)], &word, sizeof word);
        kernel.relocs.push_back(std::move(reloc));
    }

    std::mt19937_64 random_;
    std::uint64_t next_mapping_;
    std::uint64_t end_;
    std::map<std::string, std::uint64_t> known_;
};

// What the compared sets were made of.
struct compared {
    std::map<std::int32_t, unsigned> relocations; // by type
    unsigned negative_addends = 0;
    unsigned positive_addends = 0;
    unsigned unaligned_data = 0;
};

struct linked_section {
    std::uint64_t address;
    std::string contents;
};

std::map<std::string, linked_section> read_linked(const std::string& file)
{
    std::map<std::string, linked_section> sections;
    Elf64_Ehdr header;
    std::memcpy(&header, file.data(), sizeof header);
    std::vector<Elf64_Shdr> headers(header.e_shnum);
    std::memcpy(headers.data(), &file[header.e_shoff], headers.size() * sizeof headers[0]);
    for (const Elf64_Shdr& section : headers) {
        const char* const name = &file[headers[header.e_shstrndx].sh_offset + section.sh_name];
        sections[name] = {section.sh_addr, file.substr(section.sh_offset, section.sh_size)};
    }
    return sections;
}

// In a child with dumps on: makes a random set in a fresh current directory, links it, and compares.
void compare_with_linker(const std::vector<std::string>& linker, unsigned seed, compared& sum)
{
    SCOPED_TRACE("set " + std::to_string(seed));
    const temp_directory directory;
    std::filesystem::current_path(directory.path());

    constexpr std::size_t room = std::size_t{256} << 20; // twice as far as BL reaches
    const address_range range(room);
    random_kernel_sets sets(seed, number(range.begin()), number(range.begin()) + room);
    kernel_registry_map registry;
    registry["far"] = {address(sets.far_kernel), 0, nullptr, 0};
    unsigned remaining = 1 + seed % 40;
    while (remaining > 0) {
        const auto count = static_cast<unsigned>(1 + sets.below(remaining));
        const std::vector<kernel_data> kernels = sets.next(count);
        platform_spy spy;
        spy.place = address(sets.place);
        finalise_kernels(registry, kernels);
        remaining -= count;
        for (const kernel_data& kernel : kernels) {
            sum.unaligned_data += number(registry[kernel.name].data_ptr) % 4 != 0 ? 1 : 0;
            for (const tessjit::reloc_info& reloc : kernel.relocs) {
                ++sum.relocations[reloc.type];
                sum.negative_addends += reloc.addend < 0 ? 1 : 0;
                sum.positive_addends += reloc.addend > 0 ? 1 : 0;
            }
        }
    }
    registry.erase("far");

    std::map<std::pair<std::uint64_t, std::string>, std::string> by_address;
    std::vector<std::string> arguments = linker;
    for (const auto& [name, entry] : registry) {
        by_address[{number(entry.text_ptr), ".text." + name}] = name;
        by_address[{number(entry.data_ptr), ".rodata." + name}] = name;
        arguments.push_back(name);
    }
    std::string script = "far = 0x" + hex(sets.far_kernel) + ";\nSECTIONS {\n";
    for (const auto& [section, file] : by_address) {
        // The assignment keeps a section without contents.
        script += "  " + section.second + " 0x" + hex(section.first) + " : { " + file + "(" + section.second +
                  ") . = .; }\n";
    }
    write_file("script", script + "}\n");
    const child_result tool = run_tool(arguments, directory.path());
    ASSERT_TRUE(tool.succeeded()) << tool << script;
    ASSERT_EQ(tool.err, "");

    const auto linked = read_linked(contents("linked"));
    for (const auto& [name, entry] : registry) {
        SCOPED_TRACE(name);
        ASSERT_EQ(linked.count(".text." + name), 1U);
        ASSERT_EQ(linked.count(".rodata." + name), 1U);
        const linked_section& text = linked.at(".text." + name);
        const linked_section& data = linked.at(".rodata." + name);
        EXPECT_EQ(text.address, number(entry.text_ptr));
        EXPECT_EQ(data.address, number(entry.data_ptr));
        EXPECT_EQ(text.contents, std::string(entry.text_ptr, entry.text_ptr + entry.text_len));
        EXPECT_EQ(data.contents, std::string(entry.data_ptr, entry.data_ptr + entry.data_len));
    }
}

void compare_sets_with_linker(const std::vector<std::string>& linker)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
    options.time_limit_seconds = 280;
    const child_result child = run_in_child(
        [&] {
            compared sum;
            for (unsigned seed = 0; seed < 200 && !testing::Test::HasFailure(); ++seed) {
                compare_with_linker(linker, seed, sum);
            }
            for (const std::int32_t type : {R_AARCH64_ADR_PREL_LO21, R_AARCH64_ADR_PREL_PG_HI21,
                                            R_AARCH64_ADD_ABS_LO12_NC, R_AARCH64_CALL26}) {
                EXPECT_GT(sum.relocations[type], 1000U) << type;
            }
            EXPECT_GT(sum.negative_addends, 1000U);
            EXPECT_GT(sum.positive_addends, 1000U);
            EXPECT_GT(sum.unaligned_data, 1000U);
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
}

TEST(LinkedDumps, EqualTheMappingWhenGnuLdLinksThem)
{
    compare_sets_with_linker({binutil("ld"), "-T", "script", "-e", "0", "-o", "linked"});
}

// Without --no-relax, lld turns pairs of ADRP and ADD into NOP and ADR.
TEST(LinkedDumps, EqualTheMappingWhenLldLinksThemUnrelaxed)
{
    compare_sets_with_linker({"ld.lld", "--no-relax", "-T", "script", "-e", "0", "-o", "linked"});
}

} // namespace
