// Known addresses of loads and stores.

#include "workbench/analysis/address_tracking.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;

constexpr std::int32_t adr = 274;
constexpr std::int32_t page = 275;
constexpr std::int32_t lo12 = 277;
constexpr std::int32_t call = 283;

placed_kernel placed(const std::vector<std::uint8_t>& text, const std::vector<tessjit::reloc_info>& relocs)
{
    placed_kernel kernel;
    kernel.name = "k";
    kernel.text = text;
    kernel.relocs = relocs;
    return kernel;
}

/// With calls of these offsets by other kernels.
known_addresses known_with_entries(const placed_kernel& kernel, const std::vector<code_entry>& entries)
{
    const decoded_kernel code = decode_kernel(kernel);
    return find_known_addresses(code, map_code(code, entries));
}

std::vector<known_access> accesses(const std::vector<std::string>& lines,
                                   const std::vector<tessjit::reloc_info>& relocs,
                                   const target_address& address_of = {})
{
    const placed_kernel kernel = placed(support::code(support::assemble(lines)), relocs);
    return known_accesses(decode_kernel(kernel), address_of);
}

/// The known accesses, one per line: "offset: target offset, bytes".
std::string known(const std::vector<std::string>& lines, const std::vector<tessjit::reloc_info>& relocs)
{
    std::string text;
    for (const known_access& access : accesses(lines, relocs)) {
        text += std::to_string(access.offset) + ": " +
                (access.target_offset ? std::to_string(*access.target_offset) : "?") + ", " +
                std::to_string(access.access.bytes) + "\n";
    }
    return text;
}

TEST(KnownAddresses, FollowAnAdr)
{
    EXPECT_EQ(known({"adr x3, #0", "ldr q0, [x3, #32]", "ldr x0, [x4]"}, {{".rodata.k", 0, adr, 8}}),
              "4: 40, 16\n");
}

TEST(KnownAddresses, FollowAnAdrpWithItsAdd)
{
    const std::vector<std::string> lines = {"adrp x3, #0", "nop", "add x5, x3, #0", "ldr d0, [x5, #8]"};
    EXPECT_EQ(known(lines, {{".rodata.k", 0, page, 16}, {".rodata.k", 8, lo12, 16}}), "12: 24, 8\n");
    EXPECT_EQ(known(lines, {{".rodata.k", 8, lo12, 16}, {".rodata.k", 0, page, 16}}), "12: 24, 8\n");
    EXPECT_EQ(known(lines, {{".rodata.k", 0, page, 16}, {".rodata.k", 8, lo12, 8}}), "") << "other addend";
    EXPECT_EQ(known(lines, {{".rodata.k", 0, page, 16}, {"k", 8, lo12, 16}}), "") << "other target";
    EXPECT_EQ(known(lines, {{".rodata.k", 8, lo12, 16}}), "") << "no page";
    EXPECT_EQ(known({"adrp x3, #0", "add w5, w3, #0", "ldr d0, [x5]"},
                    {{".rodata.k", 0, page, 0}, {".rodata.k", 4, lo12, 0}}),
              "")
        << "half an address";
}

TEST(KnownAddresses, OfAPageNeedAPlacedTarget)
{
    const std::vector<std::string> lines = {"adrp x3, #0", "ldr d0, [x3, #24]"};
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, page, 8}};
    const auto unplaced = accesses(lines, relocs);
    ASSERT_EQ(unplaced.size(), 1U);
    EXPECT_EQ(unplaced[0].target_offset, std::nullopt);
    EXPECT_EQ(unplaced[0].address, std::nullopt);
    const auto placed =
        accesses(lines, relocs, [](const std::string& target) -> std::optional<std::uint64_t> {
            if (target == ".rodata.k")
                return 0x12ff8;
            return std::nullopt;
        });
    ASSERT_EQ(placed.size(), 1U);
    EXPECT_EQ(placed[0].address, 0x13018U);
    EXPECT_EQ(placed[0].target_offset, 0x20);
}

TEST(KnownAddresses, AreAbsoluteWhereTheTargetIsPlaced)
{
    const auto found = accesses({"adr x3, #0", "str w0, [x3, #4]"}, {{"callee", 0, adr, -8}},
                                [](const std::string& target) -> std::optional<std::uint64_t> {
                                    EXPECT_EQ(target, "callee");
                                    return 0x1000;
                                });
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].address, 0xffcU);
    EXPECT_EQ(found[0].target_offset, -4);
    EXPECT_EQ(found[0].relocation, 0U);
    EXPECT_TRUE(found[0].access.store);
}

TEST(KnownAddresses, FollowMovesAdditionsAndWriteback)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    EXPECT_EQ(known({"adr x3, #0", "mov x4, x3", "add x5, x4, #1, lsl #12", "sub x6, x5, #8", "ldr x0, [x6]"},
                    relocs),
              "16: 4088, 8\n");
    EXPECT_EQ(known({"adr x3, #0", "ldr w6, [x3], #4", "ldr w6, [x3, #16]!", "ldr w6, [x3]"}, relocs),
              "4: 0, 4\n8: 20, 4\n12: 20, 4\n");
    EXPECT_EQ(
        known({"adr x3, #0", "ld1 {v0.2d}, [x3], #16", "ldp q1, q2, [x3, #16]!", "ldr q3, [x3]"}, relocs),
        "4: 0, 16\n8: 32, 32\n12: 32, 16\n");
    EXPECT_EQ(known({"adr x3, #0", "ld1 {v0.2d}, [x3], x9", "ldr q3, [x3]"}, relocs), "4: 0, 16\n");
    EXPECT_EQ(known({"adr x3, #0", "ldr q3, [x3, x9]", "ldr q3, [x3]"}, relocs), "8: 0, 16\n");
    EXPECT_EQ(known({"adr x3, #0", "mov x3, xzr", "ldr q3, [x3]"}, relocs), "");
    EXPECT_EQ(known({"adr x3, #0", "add sp, x3, #16", "ldr q3, [sp]"}, relocs), "8: 16, 16\n");
}

TEST(KnownAddresses, EndWithAnotherWriteOfTheRegister)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    for (const char* write :
         {"ldr x3, [x3]", "mov x3, #1", "add x3, x3, x4", "adds w3, w3, #1", "fmov x3, d0",
          "ldp x4, x3, [x5]", "ldaxr x3, [x5]", "swp x1, x3, [x5]", "mrs x3, tpidr_el0", "blr x9", "svc #0",
          "and x3, x3, #-16", "csel x3, x3, x4, eq"}) {
        const std::string found = known({"adr x3, #0", write, "str q0, [x3]"}, relocs);
        EXPECT_EQ(found.find("8:"), std::string::npos) << write;
    }
    for (const char* other : {"ldr x4, [x3]", "str x3, [x5]", "cmp x3, #1", "fmul v3.2d, v3.2d, v3.2d", "nop",
                              "cbz x3, #64", "b.eq #64", "ldr q3, [x5]", "ld1d {z3.d}, p0/z, [x5]"}) {
        const std::string found = known({"adr x3, #0", other, "str q0, [x3]"}, relocs);
        EXPECT_NE(found.find("8: 0, 16\n"), std::string::npos) << other;
    }
}

TEST(KnownAddresses, OutliveCallsInRegistersThatCalleesPreserve)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    for (const char* other : {"x19", "x28", "x29", "sp"}) {
        const std::string base = other;
        EXPECT_EQ(
            known({"adr x3, #0", "add " + base + ", x3, #0", "bl #64", "ldr q0, [" + base + "]"}, relocs),
            "12: 0, 16\n")
            << other;
    }
    for (const char* other : {"x0", "x9", "x17", "x18", "x30"}) {
        const std::string base = other;
        EXPECT_EQ(known({"adr x3, #0", "mov " + base + ", x3", "blr x10", "ldr q0, [" + base + "]"}, relocs),
                  "")
            << other;
    }
    // A local subroutine need not follow the AAPCS64.
    EXPECT_EQ(known({"adr x3, #0", "mov x19, x3", "bl #12", "ldr q0, [x19]", "ret", "ret"}, relocs), "");
    EXPECT_EQ(known({"adr x3, #0", "mov x19, x3", "bl #0", "ldr q0, [x19]", "ret"},
                    {{".rodata.k", 0, adr, 0}, {"k", 8, call, 16}}),
              "");
    EXPECT_EQ(known({"adr x3, #0", "mov x19, x3", "bl #0", "ldr q0, [x19]", "ret"},
                    {{".rodata.k", 0, adr, 0}, {"k", 8, call, 0}}),
              "12: 0, 16\n");
}

TEST(KnownAddresses, AreThoseThatHoldOnAllPaths)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    EXPECT_EQ(known({"adr x3, #0", "b #4", "ldr d0, [x3]"}, relocs), "8: 0, 8\n");
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]", "b.ne #-4"}, relocs), "4: 0, 8\n");
    EXPECT_EQ(known({"adr x3, #0", "cbz x0, #8", "add x3, x3, #8", "ldr d0, [x3]"}, relocs), "");
    EXPECT_EQ(
        known({"adr x3, #0", "cbz x0, #12", "add x3, x3, #8", "sub x3, x3, #8", "ldr d0, [x3]"}, relocs),
        "16: 0, 8\n");
    EXPECT_EQ(known({"adr x3, #0", "cbz x0, #8", "adr x3, #0", "ldr d0, [x3, #8]"},
                    {{".rodata.k", 0, adr, 0}, {".rodata.k", 8, adr, 0}}),
              "12: 8, 8\n");
    EXPECT_EQ(known({"adr x3, #0", "cbz x0, #8", "adr x3, #0", "ldr d0, [x3, #8]"},
                    {{".rodata.k", 0, adr, 0}, {"other", 8, adr, 0}}),
              "");
    const auto of_two_pages = [](std::int32_t addend) {
        return known({"adrp x3, #0", "cbz x0, #8", "adrp x3, #0", "add x5, x3, #0", "ldr d0, [x5]"},
                     {{".rodata.k", 0, page, 8}, {".rodata.k", 8, page, addend}, {".rodata.k", 12, lo12, 8}});
    };
    EXPECT_EQ(of_two_pages(8), "16: 8, 8\n");
    EXPECT_EQ(of_two_pages(4096), "");
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]", "add x3, x3, #8", "cbnz x0, #-8", "ldr d0, [x3]"}, relocs),
              "")
        << "moves in the loop, and is unknown after it";
}

TEST(KnownAddresses, EndWhereTheCodeMayBeEntered)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    EXPECT_EQ(known({"adr x3, #0", "ret", "ldr d0, [x3]"}, relocs), "");
    EXPECT_EQ(known({"adr x3, #0", "bl #64", "ldr d0, [x3]"}, relocs), "");
    EXPECT_EQ(known({"adr x3, #0", "adr x4, #4", "ldr d0, [x3]"}, relocs), "") << "its address is taken";
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]", "nop"}, {{".rodata.k", 0, adr, 0}, {"k", 8, adr, 4}}), "")
        << "its address is taken by a relocation";
    for (const char* jump : {"br x4", "blr x4", "ret x4"})
        EXPECT_EQ(
            known({"adr x4, #16", "adr x3, #0", "ldr d0, [x3]", jump, "nop"}, {{".rodata.k", 4, adr, 0}}), "")
            << jump << " may lead anywhere";
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]", "br x4"}, relocs), "4: 0, 8\n") << "to another kernel";
    const placed_kernel kernel =
        placed(support::code(support::assemble({"adr x3, #0", "nop", "ldr d0, [x3]", "ret"})), relocs);
    for (const auto& [entry, count] : {std::pair(0, 1U), {4, 0}, {8, 0}, {12, 1}, {-4, 1}, {400, 1}})
        EXPECT_EQ(known_with_entries(kernel, {{entry, true}}).accesses.size(), count) << entry;
}

TEST(KnownAddresses, EndInALoopThatIsEnteredInItsMiddle)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    const placed_kernel kernel =
        placed(support::code(support::assemble({"adr x3, #0", "ldr d0, [x3]", "nop", "cbnz x0, #-8", "ret"})),
               relocs);
    EXPECT_EQ(known_with_entries(kernel, {}).accesses.size(), 1U);
    EXPECT_TRUE(known_with_entries(kernel, {{8, true}}).accesses.empty());
}

/// The walks, one per line: "offset: first target offset, stride, iterations".
std::string walks(const std::vector<std::string>& lines, const std::vector<tessjit::reloc_info>& relocs)
{
    std::string found;
    for (const known_access& access :
         known_with_entries(placed(support::code(support::assemble(lines)), relocs), {}).accesses) {
        if (access.walk) {
            found += std::to_string(access.offset) + ": " + std::to_string(*access.target_offset) + ", " +
                     std::to_string(access.walk->stride) + ", " +
                     (access.walk->iterations ? std::to_string(*access.walk->iterations) : "?") + "\n";
        }
    }
    return found;
}

TEST(KnownAddresses, AdvanceInLoopsWithOneEntry)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    const std::string first = "adr x3, #0";
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "cbnz x6, #-4"}, relocs), "4: 0, 4, ?\n");
    EXPECT_EQ(walks({first, "ldr w6, [x3, #4]!", "cbnz x6, #-4"}, relocs), "4: 4, 4, ?\n");
    EXPECT_EQ(
        walks({first, "mov x4, x3", "ldr w6, [x4, #8]", "add x3, x3, #16", "ldur w6, [x3, #-4]", "b #-16"},
              relocs),
        "8: 8, 16, ?\n16: 12, 16, ?\n");
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "cbz x6, #8", "b #-8"}, relocs), "4: 0, 4, ?\n");
    // A part that may be skipped, a second entry, another register in the sum, a call.
    EXPECT_EQ(walks({first, "cbz x0, #8", "ldr w6, [x3], #4", "cbnz x6, #-8"}, relocs), "");
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "cbnz x6, #-4", "cbnz x5, #-8"}, relocs), "");
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "add x3, x3, x6", "cbnz x6, #-8"}, relocs), "");
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "bl #64", "cbnz x6, #-8"}, relocs), "");
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "mov x3, x4", "add x4, x4, #4", "cbnz x6, #-12"}, relocs),
              "");
    EXPECT_EQ(walks({first, "cbz x0, #8", "add x3, x3, #8", "ldr w6, [x3], #4", "cbnz x6, #-4"}, relocs), "");
    // One loop after the other.
    EXPECT_EQ(walks({first, "ldr w6, [x3], #4", "cbnz x6, #-4", "ldr w7, [x3], #4", "cbnz x7, #-4"}, relocs),
              "4: 0, 4, ?\n");
}

TEST(KnownAddresses, AdvanceForAsManyIterationsAsTheLoopCounts)
{
    const std::vector<tessjit::reloc_info> relocs = {{".rodata.k", 0, adr, 0}};
    const auto turns = [&](const std::string& counter, std::vector<std::string> end) {
        std::vector<std::string> lines = {"adr x3, #0", counter, "ldr w6, [x3], #4"};
        lines.insert(lines.end(), end.begin(), end.end());
        const std::string found = walks(lines, relocs);
        EXPECT_EQ(found.substr(0, 9), "8: 0, 4, ") << counter;
        return found.substr(9, found.size() - 10);
    };
    EXPECT_EQ(turns("mov x5, #7", {"sub x5, x5, #1", "cbnz x5, #-8"}), "7");
    EXPECT_EQ(turns("mov w5, #7", {"sub w5, w5, #1", "cbnz w5, #-8"}), "7");
    EXPECT_EQ(turns("mov x5, #7", {"subs x5, x5, #1", "b.ne #-8"}), "7");
    EXPECT_EQ(turns("mov x5, #12", {"sub x5, x5, #4", "nop", "cbnz x5, #-12"}), "3");
    EXPECT_EQ(turns("mov x5, #12", {"sub x5, x5, #2", "sub x5, x5, #1", "cbnz x5, #-12"}), "4");
    EXPECT_EQ(turns("mov x5, #65536", {"sub x5, x5, #1", "cbnz x5, #-8"}), "65536");
    EXPECT_EQ(turns("mov x5, #12", {"sub x5, x5, #5", "cbnz x5, #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"add x5, x5, #1", "cbnz x5, #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #0", {"sub x5, x5, #1", "cbnz x5, #-8"}), "?");
    EXPECT_EQ(turns("mov x5, x9", {"sub x5, x5, #1", "cbnz x5, #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"sub x5, x5, #1", "cbz x6, #8", "cbnz x5, #-12"}), "?") << "another exit";
    EXPECT_EQ(turns("mov x5, #7", {"sub x5, x5, #1", "cbnz x9, #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"sub x5, x5, #1", "b #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"subs x5, x5, #1", "cmp x9, #1", "b.ne #-12"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"subs x5, x5, #1", "b.gt #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"subs x4, x5, #1", "b.ne #-8"}), "?");
    EXPECT_EQ(turns("mov x5, #7", {"sub x5, x5, x9", "cbnz x5, #-8"}), "?");
}

TEST(KnownAddresses, AreFollowedThroughAnyControlFlow)
{
    // Overlapping branches back and forth, with different known registers in each block.
    std::vector<std::uint32_t> words;
    for (unsigned i = 0; i < 200'000; ++i) {
        words.push_back(0x10000000 | i % 31);               // adr xN, .
        words.push_back(0x91000400 | i % 31 << 5 | i % 31); // add xN, xN, #1
        words.push_back(0x54000000 | ((i % 2 == 0 ? 3U : 0x7fffeU) << 5));
    }
    EXPECT_TRUE(known_with_entries(placed(support::code(words), {}), {}).accesses.empty());
}

TEST(KnownAddresses, DoNotComeFromWordsWithSeveralRelocations)
{
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]"}, {{".rodata.k", 0, adr, 0}, {".rodata.k", 0, adr, 0}}),
              "");
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]"}, {{".rodata.k", 0, adr, 0}, {".rodata.k", 2, lo12, 0}}),
              "");
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]"}, {{".rodata.k", 0, adr, 0}, {".rodata.k", -2, lo12, 0}}),
              "");
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]"}, {{".rodata.k", 0, adr, 0}, {".rodata.k", 400, lo12, 0}}),
              "4: 0, 8\n");
    EXPECT_EQ(known({"ldr x3, [x4]", "ldr d0, [x3]"}, {{".rodata.k", 0, adr, 0}}), "") << "no ADR";
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]"}, {{".rodata.k", 0, page, 0}}), "") << "no ADRP";
    EXPECT_EQ(known({"adr x3, #0", "ldr d0, [x3]"}, {{"callee", 0, call, 0}}), "");
}

TEST(KnownAddresses, AreNotSoughtOutsideTheCode)
{
    const auto known_in = [](const placed_kernel& kernel) { return known_accesses(decode_kernel(kernel)); };
    EXPECT_TRUE(known_in(placed({}, {{".rodata.k", 0, adr, 0}})).empty());
    EXPECT_TRUE(known_in(placed({1, 2, 3}, {{".rodata.k", -4, adr, 0}})).empty());
    EXPECT_TRUE(
        known_in(placed(std::vector<std::uint8_t>(8), {{"k", 2147483647, adr, -2147483648}})).empty());
}

/// An access as text, with all that is known of it.
std::string text_of(const known_access& access)
{
    const auto number = [](const auto& value) { return value ? std::to_string(*value) : std::string("?"); };
    return std::to_string(access.offset) + ": " + number(access.relocation) + " " +
           number(access.target_offset) + " " + number(access.address) +
           (access.through_page ? " page" : "") +
           (access.walk
                ? " by " + std::to_string(access.walk->stride) + " times " + number(access.walk->iterations)
                : "") +
           "\n";
}

TEST(KnownAddresses, AreTheSameIfWordsAreDecodedOnDemand)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto pick = [&](std::uint32_t count) { return static_cast<std::uint32_t>(random() % count); };
    // Words on X0 to X3: ADR, MOV, ADD, MOVZ, SUBS, loads and stores, branches to the words around, BLR, an
    // undefined word and one of an unknown branch.
    const auto make_word = [&]() -> std::uint32_t {
        const std::uint32_t registers = pick(4) | pick(4) << 5;
        const std::uint32_t distance = (pick(9) - 4) & 0x7ffff;
        switch (pick(40)) {
        case 0:
        case 1:
            return 0x10000000 | pick(4);
        case 2:
            return 0xaa0003e0 | pick(4) | pick(4) << 16;
        case 3:
            return 0xd2800040 | pick(4);
        case 4:
            return 0x54000000 | distance << 5 | 1;
        case 5:
            return 0xb5000000 | distance << 5 | pick(4);
        case 6:
            return 0x14000000 | ((pick(9) - 4) & 0x3ffffff);
        case 7:
            return pick(8) == 0 ? 0xd63f0000 : 0x58000040;
        case 8:
            return pick(8) == 0 ? 0x54000010 : 0xd65f03c0;
        case 9:
            return pick(4) == 0 ? 0x00010000 : 0xf1000400 | pick(4) * 0x21;
        case 10:
            return 0xf8008400 | registers; // str x, [x], #8
        case 11:
            return 0xf8408c00 | registers; // ldr x, [x, #8]!
        case 12:
            return 0xf8606800 | registers; // ldr x, [x, x0]
        case 13:
            return 0x91002000 | registers;
        default:
            return pick(2) == 0 ? 0x1e602800 : 0xfd400000 | pick(4) << 5; // fadd, ldr d
        }
    };
    const target_address address_of = [](const std::string&) { return 0x10000; };
    std::size_t found_any = 0;
    std::size_t left = 0;
    for (std::size_t round = 0; round < support::test_size(1'000, 100'000); ++round) {
        std::vector<std::uint32_t> words;
        for (std::uint32_t count = 10 + pick(60); count > 0; --count)
            words.push_back(make_word());
        words.push_back(0xd65f03c0);
        const placed_kernel kernel = placed(support::code(words), {{".rodata.k", 0, adr, 8}});
        const decoded_kernel whole = decode_kernel(kernel);
        const code_map map = map_code(whole, {});
        decoded_kernel on_demand = prepare_decoding(kernel);
        const code_map same_map = decode_and_map(on_demand, {});
        ASSERT_EQ(same_map.uses, map.uses);
        ASSERT_EQ(same_map.any_entry, map.any_entry);
        std::string expected;
        for (const known_access& access : find_known_addresses(whole, map, address_of).accesses)
            expected += text_of(access);
        std::string found;
        for (const known_access& access : decode_and_find_accesses(on_demand, same_map, address_of))
            found += text_of(access);
        ASSERT_EQ(found, expected) << "round " << round;
        found_any += found.empty() ? 0 : 1;
        for (std::size_t i = 0; i < words.size(); ++i)
            left += map.uses[i] == word_use::code && !on_demand.instructions[i].looked_up ? 1 : 0;
        decode_reached(on_demand, same_map);
        for (std::size_t i = 0; i < words.size(); ++i) {
            ASSERT_EQ(on_demand.instructions[i].looked_up, map.uses[i] == word_use::code || i == 0);
            if (map.uses[i] == word_use::code) {
                ASSERT_EQ(on_demand.instructions[i].opcode, whole.instructions[i].opcode);
                ASSERT_EQ(uses_of(on_demand, on_demand.instructions[i]),
                          uses_of(whole, whole.instructions[i]));
            }
        }
    }
    EXPECT_GT(found_any, 100);
    EXPECT_GT(left, 1'000) << "words that need not be decoded";
}

} // namespace
