// The text, the comparison and the file names of listings beside a baseline.

#include "workbench/render/baseline_listing.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <gtest/gtest.h>

namespace {

namespace a64 = support::a64;
using namespace vorna::workbench;

TEST(BaselineListing, HasWordsRelocationsAndConstantsWithoutAddresses)
{
    placed_kernel kernel;
    kernel.name = "a kernel";
    kernel.text = support::code({a64::adr(0), a64::bl(), a64::ret()});
    kernel.data = {0, 0, 0,   0, 0, 0, 0xf8, 0x3f, 0, 0, 0, 0, 0, 0, 0x00, 0x80, //
                   1, 0, 0,   0, 2, 0, 0,    0,    0, 0, 0, 0, 0, 0, 0xf0, 0xbf, //
                   1, 2, 0xa3};
    kernel.relocs = {{"f", 4, 283, -8}, {".rodata.a kernel", 0, 274, 0}};
    const std::string expected = "a\\x20kernel  12 bytes, 3 instructions; data 35 bytes\n"
                                 " +00  10000000  adr   x0, .rodata\n"
                                 " +04  94000000  bl    f-0x8\n"
                                 " +08  d65f03c0  ret\n"
                                 "relocations:\n"
                                 " +0x0  R_AARCH64_ADR_PREL_LO21  .rodata +0\n"
                                 " +0x4  R_AARCH64_CALL26  f -8\n"
                                 "constants:\n"
                                 " +00  3ff8000000000000 8000000000000000  ; 1.5, -0\n"
                                 " +10  0000000200000001 bff0000000000000  ; -1\n"
                                 " +20  a30201\n";
    disassembler disassembler;
    EXPECT_EQ(baseline_listing(kernel, disassembler), expected);
    kernel.text_address = 0x7f0000001000;
    kernel.data_address = 0x7f0000002000;
    EXPECT_EQ(baseline_listing(kernel, disassembler), expected);
}

TEST(ListingFiles, HaveNamesThatEveryFileSystemAllows)
{
    EXPECT_EQ(listing_file_name("wfta_short_3"), "wfta_short_3.txt");
    EXPECT_EQ(listing_file_name("a.b"), "a.b.txt");
    EXPECT_EQ(listing_file_name("../x"), "%2e.%2fx.txt");
    EXPECT_EQ(listing_file_name(""), "%.txt");
    EXPECT_EQ(listing_file_name("a%b"), "a%25b.txt");
    EXPECT_EQ(listing_file_name(std::string("\0\xff", 2)), "%00%ff.txt");
    const std::string one = listing_file_name(std::string(1000, 'x') + "1");
    const std::string two = listing_file_name(std::string(1000, 'x') + "2");
    EXPECT_LE(one.size(), 204U);
    EXPECT_NE(one, two);
}

TEST(ListingFiles, AreComparedByWordsRelocationsAndConstants)
{
    const std::string text = "k  8 bytes, 2 instructions; data 8 bytes\n"
                             " +00  94000000  bl    f\n"
                             ".L4:\n"
                             " +04  d65f03c0  ret\n"
                             "relocations:\n"
                             " +0x0  R_AARCH64_CALL26  f +0\n"
                             "constants:\n"
                             " +0  3ff8000000000000  ; 1.5\n";
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string other = text;
        other.replace(other.find(from), from.size(), to);
        return other;
    };
    EXPECT_TRUE(same_listing(text, text));
    EXPECT_TRUE(same_listing(text, with("bl    f", "branch and link")));
    EXPECT_TRUE(same_listing(text, with(".L4:\n", "")));
    EXPECT_TRUE(same_listing(text, with("; 1.5", "; one and a half")));
    EXPECT_FALSE(same_listing(text, with("94000000", "94000001")));
    EXPECT_FALSE(same_listing(text, with("+04 ", "+08 ")));
    EXPECT_FALSE(same_listing(text, with("f +0", "f +4")));
    EXPECT_FALSE(same_listing(text, with("CALL26  f", "CALL26  g")));
    EXPECT_FALSE(same_listing(text, with("3ff8", "3ff9")));
    EXPECT_FALSE(same_listing(text, with(" +04  d65f03c0  ret\n", "")));
}

} // namespace
