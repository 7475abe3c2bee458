// What lies at an address: in a kernel, between kernels, and around their mappings.

#include "workbench/analysis/locate_address.hpp"
#include "tests/support/dumps.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;
using support::placed_bytes;

// Two mappings. In the first, "a" ends 20 bytes before "b", whose code ends at a multiple of 32; the dumps
// lack a kernel between "b" and "d". Constants follow, without padding between them.
kernel_set make_set()
{
    return make_kernel_set(
        {placed_bytes("a", 0x10000, 0x2c, 0x100e0, 0x10), placed_bytes("b", 0x10040, 0x20, 0x100f0, 8),
         placed_bytes("d", 0x100a0, 0x24, 0x100f8, 0x20), placed_bytes("e", 0x20000, 0x10, 0x20020, 0)});
}

std::string at(std::uint64_t address)
{
    const kernel_set set = make_set();
    const address_location found = locate_address(set, address);
    EXPECT_EQ(found.address, address);
    return std::string(name_of(found.part)) + ": " + location_text(set, found);
}

TEST(Addresses, InCodeAreAnOffsetInTheKernel)
{
    EXPECT_EQ(at(0x10000), "code: a+0x0");
    EXPECT_EQ(at(0x1002b), "code: a+0x2b");
    EXPECT_EQ(at(0x10040), "code: b+0x0");
    EXPECT_EQ(at(0x2000c), "code: e+0xc");
}

TEST(Addresses, InConstantsAreAnOffsetFromTheFirst)
{
    EXPECT_EQ(at(0x100e0), "constants: .rodata.a+0x0");
    EXPECT_EQ(at(0x100ef), "constants: .rodata.a+0xf");
    EXPECT_EQ(at(0x100f0), "constants: .rodata.b+0x0");
    EXPECT_EQ(at(0x10117), "constants: .rodata.d+0x1f");
}

TEST(Addresses, UpToTheNextKernelArePadding)
{
    EXPECT_EQ(at(0x1002c), "padding: padding, at the end of a");
    EXPECT_EQ(at(0x1002d), "padding: padding, 1 byte after the end of a");
    EXPECT_EQ(at(0x1003f), "padding: padding, 19 bytes after the end of a");
    EXPECT_EQ(at(0x100c4), "padding: padding, at the end of d") << "before the first constants";
    EXPECT_EQ(at(0x100df), "padding: padding, 27 bytes after the end of d");
}

TEST(Addresses, UpToTheEndOfThePageArePadding)
{
    EXPECT_EQ(at(0x10118), "padding: padding, at the end of .rodata.d");
    EXPECT_EQ(at(0x10fff), "padding: padding, 3815 bytes after the end of .rodata.d");
    EXPECT_EQ(at(0x20010), "padding: padding, at the end of e");
    EXPECT_EQ(at(0x20fff), "padding: padding, 4079 bytes after the end of e");
}

TEST(Addresses, OfAKernelWithoutADumpAreAGap)
{
    EXPECT_EQ(at(0x10060), "gap: in no kernel that was dumped, at the end of b");
    EXPECT_EQ(at(0x1009f), "gap: in no kernel that was dumped, 63 bytes after the end of b");
    const kernel_set set = make_kernel_set({placed_bytes("second", 0x10040, 0x20, 0x10060)});
    EXPECT_EQ(location_text(set, locate_address(set, 0x10020)), "before the first kernel of a mapping");
    EXPECT_EQ(locate_address(set, 0x10020).part, address_part::gap);
}

TEST(Addresses, ElsewhereAreInNoKernel)
{
    for (const std::uint64_t address : {std::uint64_t{0}, std::uint64_t{0xffff}, std::uint64_t{0x11000},
                                        std::uint64_t{0x1ffff}, std::uint64_t{0x21000}, ~std::uint64_t{0}})
        EXPECT_EQ(at(address), ": in no kernel") << std::hex << address;
    EXPECT_EQ(locate_address(kernel_set(), 0).part, address_part::nothing);
}

} // namespace
