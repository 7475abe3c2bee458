// Ordinary tools read the dumps, and linkers, told to place a kernel set where the finaliser placed it,
// produce the same bytes.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/binary_tools.hpp"
#include "tests/support/child.hpp"
#include "tests/support/far_reaching_sets.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/tool.hpp"

#include <cstdio>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::HasSubstr;

// Kernels dumped by a call of finalise_kernels, in a directory of their own.
class Dumps : public testing::Test {
protected:
    void SetUp() override
    {
        const child_result child = run_with_dumps(
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
            directory.path());
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
                HasSubstr(".text.caller      PROGBITS        " + hex_digits(text_address["caller"], 16)));
    EXPECT_THAT(readelf.out,
                HasSubstr(".rodata.caller    PROGBITS        " + hex_digits(data_address["caller"], 16)));
}

TEST_F(Dumps, ObjdumpShowsKernelAddressesAndRelocations)
{
    expect_no_complaints({binutil("objdump"), "-dr"});
    const std::uint64_t text = text_address["caller"];
    const auto place = [&](unsigned offset) { return "\t" + hex_digits(text + offset) + ": "; };
    const child_result objdump = run({binutil("objdump"), "-dr", "caller"});
    EXPECT_THAT(objdump.out, HasSubstr("\n" + hex_digits(text, 16) + " <caller>:\n"));
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
    EXPECT_EQ(nm.out, hex_digits(data_address["caller"], 16) + " 0000000000000003 r .rodata.caller\n" +
                          hex_digits(text_address["caller"], 16) + " 000000000000001c T caller\n");
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
    EXPECT_THAT(objdump.out, HasSubstr("\n" + hex_digits(text_address["caller"], 16) + " <caller>:\n"));
    EXPECT_THAT(objdump.out, HasSubstr("R_AARCH64_CALL26\tfirst+0x4\n"));
}

TEST_F(Dumps, ElflintFindsNoErrors)
{
    for (const kernel_data& kernel : kernels) {
        expect_no_elf_errors(kernel.name, directory.path());
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
        EXPECT_THAT(objdump.out, HasSubstr("\n" + hex_digits(start, 16) + " <" + name + ">:\n"));
        const child_result nm = run_tool({binutil("nm"), "-S", "--defined-only", name}, directory.path());
        EXPECT_THAT(nm.out,
                    HasSubstr(hex_digits(start, 16) + " " + hex_digits(size, 16) + " T " + name + "\n"));
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
        expect_no_elf_errors(name, directory.path());
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

// What the compared sets were made of.
struct compared {
    std::map<std::int32_t, unsigned> relocations; // by type
    unsigned negative_addends = 0;
    unsigned positive_addends = 0;
    unsigned unaligned_data = 0;
};

// In a child with dumps on: makes a random set in a fresh current directory, links it, and compares.
void compare_with_linker(const std::vector<std::string>& linker, unsigned seed, compared& sum)
{
    SCOPED_TRACE("set " + std::to_string(seed));
    const temp_directory directory;
    std::filesystem::current_path(directory.path());

    constexpr std::size_t room = std::size_t{256} << 20; // twice as far as BL reaches
    const address_range range(room);
    far_reaching_sets sets(seed, number(range.begin()), number(range.begin()) + room);
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

    const auto linked = link_where_placed(linker, registry, sets.far_kernel);
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
    const child_result child = run_with_dumps([&] {
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
    });
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
}

TEST(LinkedDumps, EqualTheMappingWhenGnuLdLinksThem)
{
    compare_sets_with_linker({binutil("ld")});
}

// Without --no-relax, lld turns pairs of ADRP and ADD into NOP and ADR.
TEST(LinkedDumps, EqualTheMappingWhenLldLinksThemUnrelaxed)
{
    compare_sets_with_linker({"ld.lld", "--no-relax"});
}

} // namespace
