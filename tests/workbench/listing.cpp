// What a kernel's listing shows.

#include "workbench/listing.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace vorna::workbench;
using namespace support;
using testing::ElementsAre;

placed_kernel placed(const std::string& name, std::uint64_t text, const std::vector<std::uint32_t>& words,
                     std::vector<tessjit::reloc_info> relocs = {}, std::uint64_t data = 0,
                     std::vector<std::uint8_t> data_bytes = {})
{
    placed_kernel kernel;
    kernel.name = name;
    kernel.text_address = text;
    kernel.text = code(words);
    kernel.data_address = data != 0 ? data : text + 0x800;
    kernel.data = std::move(data_bytes);
    kernel.relocs = std::move(relocs);
    return kernel;
}

kernel_listing list(const kernel_set& set, const std::string& name, bool linked = true)
{
    disassembler disassembler;
    return list_kernel(set, *find_kernel(set, name), disassembler, linked);
}

std::vector<std::string> texts(const kernel_listing& listing)
{
    std::vector<std::string> texts;
    for (const listing_row& row : listing.rows)
        texts.push_back(row.comment.empty() ? row.text : row.text + " ; " + row.comment);
    return texts;
}

TEST(Listing, NamesTheTargetsOfRelocations)
{
    const kernel_set set = make_kernel_set(
        {placed("callee", 0x10000, {a64::nop(), a64::ret()}),
         placed("k", 0x10020, {a64::adrp(3), a64::add(3, 3, 0), a64::adr(1), a64::bl(), a64::bl(), a64::bl()},
                {{".rodata.k", 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                 {".rodata.k", 4, R_AARCH64_ADD_ABS_LO12_NC, 0},
                 {".rodata.k", 8, R_AARCH64_ADR_PREL_LO21, 16},
                 {"callee", 12, R_AARCH64_CALL26, 0},
                 {"callee", 16, R_AARCH64_CALL26, 4},
                 {"k", 20, R_AARCH64_CALL26, 0}},
                0x11238, std::vector<std::uint8_t>(32))});
    const kernel_listing listing = list(set, "k");
    EXPECT_THAT(texts(listing), ElementsAre("adrp x3, .rodata", "add x3, x3, :lo12:.rodata",
                                            "adr x1, .rodata+0x10", "bl callee", "bl callee+0x4", "bl k"));
    EXPECT_EQ(listing.rows[0].word, 0xb0000003);
    EXPECT_EQ(listing.rows[1].word, 0x9108e063);
    EXPECT_EQ(listing.rows[3].word, 0x97fffff5);
    EXPECT_THAT(listing.calls, ElementsAre("callee", "k"));
    EXPECT_THAT(listing.callers, ElementsAre("k"));
    EXPECT_THAT(list(set, "callee").callers, ElementsAre("k"));
}

} // namespace
