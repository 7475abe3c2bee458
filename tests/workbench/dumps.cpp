// What the workbench makes of dumps.

#include "workbench/dumps.hpp"
#include "jit/elf.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/temp_directory.hpp"

#include <gtest/gtest.h>

namespace {

using support::temp_directory;
using vorna::workbench::dump_reading;
using vorna::workbench::placed_kernel;
using vorna::workbench::read_dumps;

std::string dump(const std::string& name, std::uint64_t text, std::size_t text_size, std::uint64_t data,
                 std::size_t data_size, std::vector<tessjit::reloc_info> relocs = {})
{
    tessjit::elf_data elf;
    elf.fns.emplace_back(name, support::address(text), std::vector<std::uint8_t>(text_size, 0x1f),
                         support::address(data), std::vector<std::uint8_t>(data_size, 7), std::move(relocs));
    return support::to_string(tessjit::emit_elf(elf));
}

TEST(Dumps, AreReadWithNameAddressesBytesAndRelocationsInOrder)
{
    const temp_directory directory;
    support::write_file(directory.path() / "b",
                        dump("b", 0x1000, 8, 0x1040, 3, {{"a", 4, 283, -8}, {".rodata.b", -4, 275, 5}}));
    const dump_reading reading = read_dumps({directory.path().string()});
    ASSERT_EQ(reading.troubles, std::vector<std::string>());
    ASSERT_EQ(reading.set.kernels.size(), 1U);
    const placed_kernel& kernel = reading.set.kernels[0];
    EXPECT_EQ(kernel.name, "b");
    EXPECT_EQ(kernel.text_address, 0x1000U);
    EXPECT_EQ(kernel.text, std::vector<std::uint8_t>(8, 0x1f));
    EXPECT_EQ(kernel.data_address, 0x1040U);
    EXPECT_EQ(kernel.data, std::vector<std::uint8_t>(3, 7));
    ASSERT_EQ(kernel.relocs.size(), 2U);
    EXPECT_EQ(kernel.relocs[0].name, "a");
    EXPECT_EQ(kernel.relocs[0].offset, 4);
    EXPECT_EQ(kernel.relocs[0].type, 283);
    EXPECT_EQ(kernel.relocs[0].addend, -8);
    EXPECT_EQ(kernel.relocs[1].name, ".rodata.b");
    EXPECT_EQ(kernel.relocs[1].offset, -4);
}

} // namespace
