// Finding the kernel and the relocation of a report.

#include "tests/support/aborts.hpp"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(LocateAbort, ListsEveryRelocationThatMatchesAPage)
{
    constexpr std::uint64_t far = 0x7f0000000000;
    const placed_kernel callee = kernel("far", far, {a64::ret()}, far + 32);
    const placed_kernel broken =
        k({a64::adrp(0), a64::adrp(1), a64::adrp(2), a64::add(2, 2, 0)},
          {{".rodata.k", 0, 275, 0}, {"far", 8, 275, 0}, {"far", 4, 275, 8}, {"far", 12, 277, 0}});
    const std::string log =
        out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far, text_of_k, {callee, broken});
    const explained_abort found = explain(log, dumps_of({broken, callee}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.offset, 8); // the first in the order of the relocations
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.addend, 0);
    ASSERT_EQ(found.matches.size(), 2U);
    EXPECT_EQ(found.matches[0].offset, 8);
    EXPECT_EQ(found.matches[1].offset, 4);
    EXPECT_EQ(found.distance, static_cast<std::int64_t>(far - text_of_k));
    EXPECT_EQ(
        found.message,
        "relocation R_AARCH64_ADR_PREL_PG_HI21 against 'far' out of range: 139637968404480 is not in [-4294967296, 4294967295]");
    EXPECT_EQ(found.cause, "'far' is in the mapping of another call, in another part of the address space");

    const explained_abort without = explain(log);
    EXPECT_EQ(without.kernel, "k");
    EXPECT_EQ(without.offset, std::nullopt);
    EXPECT_EQ(without.target, "far");
    EXPECT_EQ(without.addend, std::nullopt);
    const placed_kernel neighbour = kernel("near far", far + 64, {a64::ret()}, far + 96);
    const explained_abort several = explain(
        out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far, text_of_k, {callee, broken, neighbour}));
    EXPECT_EQ(several.target, std::nullopt);
    EXPECT_THAT(several.notes, ElementsAre("on the target's page 0x7f0000000000 are far, near far"));
}

TEST(LocateAbort, FindsTheLastKernelOfTheMapping)
{
    // The offset leads back into the preceding kernel, and the next one is in another mapping.
    const placed_kernel first = kernel("first", text_of_k - 64, {a64::nop(), a64::nop()}, data_of_k - 64);
    const placed_kernel broken = k({a64::nop()}, {{"first", -60, 283, 0}});
    const placed_kernel other = kernel("other", 0x801000, {a64::nop()}, 0x801020);
    const std::string log = filled("R_AARCH64_CALL26", text_of_k - 60, a64::nop(), {first, broken, other});
    for (const explained_abort& found : {explain(log), explain(log, dumps_of({first, broken, other}))}) {
        EXPECT_EQ(found.kernel, "k");
        EXPECT_EQ(found.offset, -60);
    }
}

TEST(LocateAbort, FindsAKernelThatStartsWithinThePage)
{
    constexpr std::uint64_t far = 0x7f0000000000;
    const placed_kernel callee = kernel("far", far, {a64::ret()}, far + 32);
    const placed_kernel broken = kernel("second", text_of_k + 32, {a64::adrp(0)}, data_of_k);
    EXPECT_EQ(
        explain(out_of_range("R_AARCH64_ADR_PREL_PG_HI21", "4G", far, text_of_k, {broken, callee})).kernel,
        "second");
}

TEST(LocateAbort, FindsTheRelocationWithoutARegistryDump)
{
    const placed_kernel broken = k({a64::nop(), load}, {{"k", 4, 283, 0}});
    const std::string message =
        "resolving R_AARCH64_CALL26 reloc but dst address 0x7f0004 was already filled, got 0xb9400000\n";
    const explained_abort found = explain(message, dumps_of({broken}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.relocation, 0U);
    const explained_abort without = explain(message);
    EXPECT_EQ(without.kernel, std::nullopt);
    EXPECT_THAT(without.notes, ElementsAre("the log ends before the dump of the registry does"));
}

TEST(LocateAbort, MatchesDumpsOfAnotherRunByNameAndOffset)
{
    const placed_kernel callee = kernel("callee", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    placed_kernel broken = k({a64::bl(), a64::bl()}, {{"callee", 0, 283, 0}, {"callee", 4, 283, 2}});
    const std::string log =
        out_of_range("R_AARCH64_CALL26", "128M", text_of_k - 62, text_of_k + 4, {callee, broken});
    placed_kernel other_callee = callee;
    for (placed_kernel* kernel : {&broken, &other_callee}) {
        kernel->text_address += 0x1000000;
        kernel->data_address += 0x1000000;
    }
    const explained_abort found = explain(log, dumps_of({other_callee, broken}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.offset, 4);
    EXPECT_EQ(found.relocation, 1U);
    EXPECT_EQ(found.target, "callee");
    EXPECT_THAT(
        found.notes,
        ElementsAre(
            "the dumps are of another run (k was at 0x7f0000, its dump is at 0x17f0000): matched by name and offset"));

    EXPECT_THAT(explain(log, dumps_of({callee, k({a64::bl(), a64::bl()}, broken.relocs)})).notes, IsEmpty());

    const explained_abort undumped = explain(log, dumps_of({other_callee}));
    EXPECT_EQ(undumped.kernel, "k");
    EXPECT_EQ(undumped.relocation, std::nullopt);
    EXPECT_THAT(undumped.notes, ElementsAre("there is no dump of k"));

    broken.text.resize(4);
    broken.relocs.resize(1);
    EXPECT_THAT(explain(log, dumps_of({other_callee, broken})).notes,
                ElementsAre(HasSubstr("another run"), "its code was 8 bytes long, in the dump it is 4 bytes",
                            "no relocation in the dump of k matches the message: it is of other code"));
}

TEST(LocateAbort, FindsAKernelByTheEndOfItsName)
{
    placed_kernel broken = k({a64::nop(), load}, {{"a\n  k", 4, 283, 0}});
    const std::string log = filled("R_AARCH64_CALL26", text_of_k + 4, load, {broken});
    broken.name = "a\n  k";
    EXPECT_EQ(explain(log).kernel, "k");
    EXPECT_EQ(explain(log, dumps_of({broken})).kernel, "a\n  k");
    broken.text_address += 0x1000; // of another run
    broken.data_address += 0x1000;
    EXPECT_EQ(explain(log, dumps_of({broken})).kernel, "a\n  k");
    broken.name = "a\n  j";
    EXPECT_EQ(explain(log, dumps_of({broken})).kernel, "k");
}

TEST(LocateAbort, ChecksTheLastDumpWrittenIfThereIsNoMessage)
{
    // Both mappings end with a kernel that would fail in this way; the file times decide.
    const placed_kernel one = k({a64::bl()}, {{"nobody", 0, 283, 0}});
    const placed_kernel other =
        kernel("other", 0x801000, {a64::nop(), a64::bl()}, 0x801020, {{"noone", 4, 283, 0}});
    const std::string log = bare("it != kernel_registry.end()");
    const explained_abort found = explain(log, dumps_of({one, other}, {2, 1}));
    EXPECT_EQ(found.kernel, "k");
    EXPECT_EQ(found.target, "nobody");
    EXPECT_THAT(found.notes, ElementsAre("the last dump written, and its relocations fail in this way"));
    EXPECT_EQ(explain(log, dumps_of({one, other}, {1, 2})).kernel, "other");
    EXPECT_THAT(
        explain(log, dumps_of({one, other}, {1, 1})).notes,
        ElementsAre("the last dump written, and its relocations fail in this way",
                    "other would fail in this way too: the files' times do not tell which was written last"));

    // Copied in another order: a kernel that would not fail in this way was not the last.
    placed_kernel sound = other;
    sound.relocs.clear();
    const explained_abort copied = explain(log, dumps_of({one, sound}, {1, 2}));
    EXPECT_EQ(copied.kernel, "k");
    EXPECT_THAT(
        copied.notes,
        ElementsAre(
            "the last kernel of its mapping, and its relocations fail in this way; by the files' times another dump is newer"));
    // A kernel before others of its mapping was linked, unless the others are from an earlier run.
    const placed_kernel after = kernel("after", text_of_k + 32, {a64::ret()}, data_of_k + 64);
    EXPECT_EQ(explain(log, dumps_of({one, after}, {1, 2})).relocation, std::nullopt);
    EXPECT_EQ(explain(log, dumps_of({one, after}, {2, 1})).relocation, 0U);
}

TEST(LocateAbort, NamesTheKernelBeforeADuplicate)
{
    const std::string log = assertion(
        support::emit_single_signature,
        "kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, data_len }).second");
    const placed_kernel first = kernel("first", text_of_k - 64, {a64::ret()}, data_of_k - 64);
    const explained_abort found = explain(log, dumps_of({first, k({a64::ret()}, {})}));
    EXPECT_EQ(found.report, "duplicate-name");
    EXPECT_EQ(found.kernel, std::nullopt); // it was not dumped
    EXPECT_THAT(found.notes, ElementsAre(HasSubstr("the last kernel that was dumped is k")));
    EXPECT_EQ(found.message, "a second kernel of this name");
}

} // namespace
