// What the finaliser hands to the object writer, and where the image goes. This program brings its own writer
// (a host may), so that it sees the record and what is there at the time of the call.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

namespace {

std::vector<tessjit::elf_data> records;
std::function<std::vector<std::uint8_t>(const tessjit::elf_data&)> write_image;

} // namespace

std::vector<std::uint8_t> tessjit::emit_elf(const elf_data& data)
{
    records.push_back(data);
    if (write_image) {
        return write_image(data);
    }
    return {'i', 'm', 'a', 'g', 'e'};
}

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

void in_directory(const std::filesystem::path& directory, const std::string& pattern,
                  const std::function<void()>& body)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_DUMP_KERNEL", pattern}};
    options.directory = directory;
    const child_result child = run_in_child(body, options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
}

TEST(ObjectDump, IsMadeOfEveryKernelWhenThePerfMapIsOn)
{
    const temp_directory directory;
    child_options options;
    options.environment = {{"VORNA_WFTA_PERF", "1"}};
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            const perf_map removed_at_the_end;
            kernel_registry_map registry;
            finalise_kernels(registry, {kernel("a", {a64::ret()}), kernel("b", {a64::ret()})});
            finalise_kernels(registry, {kernel("c", {a64::ret()})});
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_THAT(names_in(directory.path()), UnorderedElementsAre("a", "b", "c"));
}

TEST(ObjectDump, IsOfEveryKernelIfThePerfMapIsOn)
{
    const temp_directory directory;
    child_options options;
    options.environment = {{"VORNA_WFTA_PERF", "1"}, {"VORNA_WFTA_DUMP_KERNEL", "a"}};
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            const perf_map removed_at_the_end;
            kernel_registry_map registry;
            finalise_kernels(registry, {kernel("a", {a64::ret()}), kernel("b", {a64::ret()})});
            EXPECT_EQ(records.size(), 2U) << "a kernel that both select is dumped once";
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_THAT(names_in(directory.path()), UnorderedElementsAre("a", "b"));
}

TEST(ObjectDump, IsMadeOnlyOfKernelsInWhoseNameThePatternIsFound)
{
    const temp_directory directory;
    in_directory(directory.path(), "_5_", [] {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("wfta_3_a", {a64::ret()}), kernel("wfta_5_a", {a64::ret()}),
                                    kernel("wfta_15_a", {a64::ret()}), kernel("x_5_", {a64::ret()})});
    });
    EXPECT_THAT(names_in(directory.path()), UnorderedElementsAre("wfta_5_a", "x_5_"));
}

TEST(ObjectDump, RecordIsOneFunctionWithItsPlacement)
{
    in_directory({}, "", [] {
        const kernel_data first = kernel("first", {a64::nop(), a64::ret()}, {}, {1, 2, 3});
        const kernel_data second = kernel("second", {a64::ret()}, {}, {4, 5, 6, 7, 8});
        kernel_registry_map registry;
        finalise_kernels(registry, {first, second});
        ASSERT_EQ(records.size(), 2U);
        for (const kernel_data* given : {&first, &second}) {
            const tessjit::elf_data& record = records.at(given == &first ? 0 : 1);
            ASSERT_EQ(record.fns.size(), 1U);
            const tessjit::elf_fn_entry& function = record.fns[0];
            EXPECT_EQ(function.name, given->name);
            EXPECT_EQ(function.text_addr, registry.at(given->name).text_ptr);
            EXPECT_EQ(function.text, given->text);
            EXPECT_EQ(function.data_addr, registry.at(given->name).data_ptr);
            EXPECT_EQ(function.data, given->data);
            EXPECT_THAT(function.relocs, IsEmpty());
        }
    });
}

TEST(ObjectDump, HoldsTheCodeBeforeRelocationAndTheRelocationsInOrder)
{
    in_directory({}, "", [] {
        const std::vector<std::uint32_t> words = {a64::adrp(0), a64::add(0, 0, 0), a64::adr(1), a64::bl(),
                                                  a64::ret()};
        const std::vector<tessjit::reloc_info> relocs = {{"k", 12, R_AARCH64_CALL26, 16},
                                                         {".rodata.k", 4, R_AARCH64_ADD_ABS_LO12_NC, 8},
                                                         {"callee", 8, R_AARCH64_ADR_PREL_LO21, -3},
                                                         {".rodata.k", 0, R_AARCH64_ADR_PREL_PG_HI21, 5000}};
        const std::vector<kernel_data> kernels = {kernel("callee", {a64::ret()}),
                                                  kernel("k", words, relocs, {9, 9, 9})};
        kernel_registry_map registry;
        finalise_kernels(registry, kernels);

        const tessjit::elf_fn_entry& function = records.at(1).fns.at(0);
        EXPECT_EQ(function.text, code(words));
        ASSERT_EQ(function.relocs.size(), relocs.size());
        for (std::size_t i = 0; i < relocs.size(); ++i) {
            EXPECT_EQ(function.relocs[i].name, relocs[i].name);
            EXPECT_EQ(function.relocs[i].offset, relocs[i].offset);
            EXPECT_EQ(function.relocs[i].type, relocs[i].type);
            EXPECT_EQ(function.relocs[i].addend, relocs[i].addend);
            EXPECT_EQ(kernels[1].relocs[i].name, relocs[i].name) << "the host's own was moved from";
        }
        EXPECT_NE(word_at(registry.at("k").text_ptr + 12), a64::bl()) << "never linked";
    });
}

TEST(ObjectDump, ComesAfterRegistration)
{
    in_directory({}, "", [] {
        kernel_registry_map registry;
        write_image = [&](const tessjit::elf_data&) -> std::vector<std::uint8_t> {
            EXPECT_EQ(registry.count("a"), 1U);
            EXPECT_EQ(registry.count("b"), records.size() - 1);
            return {};
        };
        finalise_kernels(registry, {kernel("a", {a64::ret()}), kernel("b", {a64::ret()})});
    });
}

TEST(ObjectDump, KernelWithoutDataKeepsItsDataAddress)
{
    in_directory({}, "", [] {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {a64::ret()}), kernel("next", {a64::ret()}, {}, {1})});
        const tessjit::elf_fn_entry& function = records.at(0).fns.at(0);
        EXPECT_THAT(function.data, IsEmpty());
        EXPECT_EQ(function.data_addr, registry.at("k").text_ptr + 64);
    });
}

TEST(ObjectDump, KernelsWithoutAnyByteHaveNullAddresses)
{
    const temp_directory directory;
    in_directory(directory.path(), "", [] {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("none", {})});
        const tessjit::elf_fn_entry& function = records.at(0).fns.at(0);
        EXPECT_THAT(function.text, IsEmpty());
        EXPECT_EQ(function.text_addr, nullptr);
        EXPECT_THAT(function.data, IsEmpty());
        EXPECT_EQ(function.data_addr, nullptr);
    });
    EXPECT_EQ(contents(directory.path() / "none"), "image");
}

TEST(ObjectDump, WritesTheImageUnchanged)
{
    std::vector<std::uint8_t> every_byte;
    for (unsigned i = 0; i < 300'000; ++i) {
        every_byte.push_back(static_cast<std::uint8_t>(i * i / 7));
    }
    const std::vector<std::vector<std::uint8_t>> images = {
        {}, {0}, {'\r', '\n', 0, '\n', 0x1a, 0xff}, every_byte};
    for (const std::vector<std::uint8_t>& image : images) {
        const temp_directory directory;
        in_directory(directory.path(), "", [&] {
            write_image = [&](const tessjit::elf_data&) { return image; };
            kernel_registry_map registry;
            finalise_kernels(registry, {kernel("k", {a64::ret()})});
        });
        EXPECT_THAT(names_in(directory.path()), ElementsAre("k"));
        EXPECT_TRUE(contents(directory.path() / "k") == to_string(image)) << image.size() << " bytes";
    }
}

TEST(ObjectDump, ReplacesAnEarlierOneOfTheSameName)
{
    const temp_directory directory;
    write_file(directory.path() / "k", std::string(5000, 'x'));
    in_directory(directory.path(), "", [] {
        write_image = [](const tessjit::elf_data&) {
            return std::vector<std::uint8_t>(records.size() == 1 ? 3000 : 10,
                                             static_cast<std::uint8_t>('0' + records.size()));
        };
        for (int call = 0; call < 2; ++call) {
            kernel_registry_map registry;
            finalise_kernels(registry, {kernel("k", {a64::ret()})});
            EXPECT_EQ(contents("k"), call == 0 ? std::string(3000, '1') : std::string(10, '2'));
        }
    });
    EXPECT_EQ(contents(directory.path() / "k"), std::string(10, '2'));
}

TEST(ObjectDump, OpensTheFileBeforeTheImageIsBuilt)
{
    const temp_directory directory;
    write_file(directory.path() / "k", "of an earlier run");
    in_directory(directory.path(), "", [] {
        write_image = [](const tessjit::elf_data& data) -> std::vector<std::uint8_t> {
            const std::string& name = data.fns.at(0).name;
            EXPECT_TRUE(std::filesystem::exists(name));
            EXPECT_EQ(contents(name), "");
            return {'x'};
        };
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("k", {a64::ret()}), kernel("new", {a64::ret()})});
    });
    EXPECT_EQ(contents(directory.path() / "k"), "x");
}

TEST(ObjectDump, ImageIsBuiltEvenWhenTheFileCannotBeOpened)
{
    in_directory({}, "", [] {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel("missing/k", {a64::ret()}), kernel("", {a64::ret()})});
        EXPECT_EQ(records.size(), 2U);
    });
}

TEST(ObjectDump, FileIsNamedExactlyLikeTheKernel)
{
    const temp_directory directory;
    const temp_directory elsewhere;
    std::filesystem::create_directory(directory.path() / "sub");
    const std::string absolute = elsewhere.path() / "by its path";
    in_directory(directory.path(), "", [&] {
        kernel_registry_map registry;
        finalise_kernels(registry, {kernel(" 'k\" *?.\n\xff", {a64::ret()}), kernel("%s%n", {a64::ret()}),
                                    kernel("sub/k", {a64::ret()}), kernel(absolute, {a64::ret()}),
                                    kernel(std::string(255, 'n'), {a64::ret()})});
    });
    EXPECT_THAT(names_in(directory.path()),
                UnorderedElementsAre(" 'k\" *?.\n\xff", "%s%n", "sub", std::string(255, 'n')));
    EXPECT_THAT(names_in(directory.path() / "sub"), ElementsAre("k"));
    EXPECT_THAT(names_in(elsewhere.path()), ElementsAre("by its path"));
}

TEST(ObjectDump, ClosesItsFile)
{
    in_directory({}, "", [] {
        const std::size_t open_before = names_in("/proc/self/fd").size();
        kernel_registry_map registry;
        for (const char* name : {"a", "b", "missing/c"}) {
            finalise_kernels(registry, {kernel(name, {a64::ret()})});
        }
        EXPECT_EQ(names_in("/proc/self/fd").size(), open_before);
    });
}

// An exception of the writer is the host's to catch; the state is that of the moment.
template <typename Error>
void expect_to_pass(const Error& error)
{
    const temp_directory directory;
    in_directory(directory.path(), "second", [&] {
        write_image = [&](const tessjit::elf_data&) -> std::vector<std::uint8_t> { throw error; };
        void* slots[3] = {};
        kernel_registry_map registry;
        EXPECT_THROW(finalise_kernels(registry, {kernel("first", {a64::ret()}, {}, {}, &slots[0]),
                                                 kernel("second", {a64::bl()},
                                                        {{"first", 0, R_AARCH64_CALL26, 0}}, {}, &slots[1]),
                                                 kernel("third", {a64::ret()}, {}, {}, &slots[2])}),
                     Error);
        EXPECT_EQ(registry.size(), 2U);
        EXPECT_EQ(slots[0], registry.at("first").text_ptr);
        EXPECT_EQ(word_at(registry.at("second").text_ptr), a64::bl()) << "linked";
        EXPECT_EQ(slots[1], nullptr);
        EXPECT_EQ(slots[2], nullptr);
    });
    EXPECT_EQ(contents(directory.path() / "second"), "");
}

TEST(ObjectDump, LengthErrorOfTheWriterReachesTheHost)
{
    expect_to_pass(std::length_error("too many"));
}

TEST(ObjectDump, BadAllocOfTheWriterReachesTheHost)
{
    expect_to_pass(std::bad_alloc());
}

} // namespace
