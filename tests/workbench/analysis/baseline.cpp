// What a fingerprint depends on, and how kernels differ from a baseline.

#include "workbench/analysis/baseline.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <gmock/gmock.h>
#include <stdexcept>

namespace {

namespace a64 = support::a64;
using namespace vorna::workbench;

const std::string hash_of_nothing = "99aa06d3014798d86001c324468d497f"; // XXH3's test vector

placed_kernel two_calls()
{
    return {"k",    0x1000,    support::code({a64::adr(0), a64::bl(), a64::bl(), a64::ret()}),
            0x2000, {1, 2, 3}, {{".rodata.k", 0, 274, 0}, {"f", 4, 283, 0}, {"g", 8, 283, 0}},
            0,      ""};
}

TEST(Fingerprint, DistinguishesCodeRelocationsAndConstants)
{
    const kernel_fingerprint before = fingerprint_of(two_calls());
    EXPECT_EQ(before.instructions, 4U);

    placed_kernel kernel = two_calls();
    kernel.text[0] ^= 1;
    EXPECT_NE(fingerprint_of(kernel).code, before.code);
    EXPECT_EQ(fingerprint_of(kernel).relocations, before.relocations);
    EXPECT_EQ(fingerprint_of(kernel).constants, before.constants);

    kernel = two_calls();
    kernel.data[2] ^= 1;
    EXPECT_EQ(fingerprint_of(kernel).code, before.code);
    EXPECT_EQ(fingerprint_of(kernel).relocations, before.relocations);
    EXPECT_NE(fingerprint_of(kernel).constants, before.constants);

    for (int member = 0; member < 4; ++member) {
        kernel = two_calls();
        tessjit::reloc_info& reloc = kernel.relocs[2];
        member == 0   ? void(reloc.name = "h")
        : member == 1 ? void(reloc.offset += 4)
        : member == 2 ? void(reloc.type = 275)
                      : void(reloc.addend = 4);
        EXPECT_EQ(fingerprint_of(kernel).code, before.code) << member;
        EXPECT_NE(fingerprint_of(kernel).relocations, before.relocations) << member;
        EXPECT_EQ(fingerprint_of(kernel).constants, before.constants) << member;
    }
    kernel = two_calls();
    kernel.relocs.pop_back();
    EXPECT_NE(fingerprint_of(kernel).relocations, before.relocations);
}

TEST(Fingerprint, DoesNotDependOnAddressesOrOnTheOrderOfUnrelatedRelocations)
{
    placed_kernel kernel = two_calls();
    kernel.text_address += 0x7f0000000000;
    kernel.data_address += 0x7f0000000000;
    std::swap(kernel.relocs[1], kernel.relocs[2]);
    EXPECT_EQ(fingerprint_of(kernel), fingerprint_of(two_calls()));
    kernel.relocs[1].offset = kernel.relocs[2].offset; // of one place the order counts
    placed_kernel other = kernel;
    std::swap(other.relocs[1], other.relocs[2]);
    EXPECT_NE(fingerprint_of(kernel).relocations, fingerprint_of(other).relocations);
}

TEST(Fingerprint, IsXxh3OfTheBytes)
{
    placed_kernel kernel;
    kernel.name = "k";
    EXPECT_EQ(fingerprint_of(kernel).code, hash_of_nothing);
    EXPECT_EQ(fingerprint_of(kernel).relocations, hash_of_nothing);
    EXPECT_EQ(fingerprint_of(kernel).constants, hash_of_nothing);
}

TEST(Fingerprint, OfReferencesCoversWhatTheDocumentSays)
{
    // XXH3_128bits of 00000000 13010000 00000000 01, 04000000 1b010000 f8ffffff 00 01000000 66, by Python's
    // ctypes.
    placed_kernel kernel;
    kernel.name = "k";
    kernel.relocs = {{".rodata.k", 0, 275, 0}, {"f", 4, 283, -8}};
    EXPECT_EQ(fingerprint_of(kernel).relocations, "07a542c4bc085fc1810ebe27902160ff");
}

TEST(Fingerprint, DoesNotContainTheNameOfTheKernelsOwnConstants)
{
    placed_kernel kernel = two_calls();
    kernel.name = "renamed";
    kernel.relocs[0].name = ".rodata.renamed";
    EXPECT_EQ(fingerprint_of(kernel), fingerprint_of(two_calls()));
    kernel.relocs[0].name = ".rodata.k"; // another's
    EXPECT_NE(fingerprint_of(kernel).relocations, fingerprint_of(two_calls()).relocations);
}

kernel_fingerprint fingerprint(const std::string& code, std::uint64_t instructions = 1)
{
    return {code, "relocations", "constants", instructions};
}

placed_kernel named(const std::string& name, std::vector<std::uint8_t> data = {})
{
    placed_kernel kernel;
    kernel.name = name;
    kernel.data = std::move(data);
    kernel.file = "file of " + name;
    return kernel;
}

TEST(BaselineDifference, HasThePartsThatChanged)
{
    baseline_difference difference;
    difference.before = difference.after = kernel_fingerprint{"code", "relocations", "constants", 5};
    EXPECT_FALSE(difference.code_changed() || difference.relocations_changed() ||
                 difference.constants_changed());
    difference.after->code = "other";
    EXPECT_TRUE(difference.code_changed());
    difference.after = kernel_fingerprint{"code", "relocations", "constants", 6};
    EXPECT_TRUE(difference.code_changed()) << "another length";
    difference.after = kernel_fingerprint{"code", "other", "constants", 5};
    EXPECT_TRUE(difference.relocations_changed());
    EXPECT_FALSE(difference.code_changed() || difference.constants_changed());
    difference.after = kernel_fingerprint{"code", "relocations", "other", 5};
    EXPECT_TRUE(difference.constants_changed());
    EXPECT_FALSE(difference.code_changed() || difference.relocations_changed());
    difference.after.reset();
    EXPECT_FALSE(difference.constants_changed()) << "removed";
}

TEST(CompareWithBaseline, FindsEveryKernelOfEitherByName)
{
    const baseline entries = {{"b", fingerprint("of another"), 2},
                              {"c", fingerprint_of(named("c")), 3},
                              {"e", fingerprint("of one that is gone"), 4}};
    const kernel_set set = make_kernel_set({named("f"), named("d"), named("c"), named("b"), named("a")});
    const std::vector<baseline_difference> differences = compare_with_baseline(entries, set);
    std::vector<std::string> found;
    for (const baseline_difference& difference : differences) {
        found.push_back(difference.name + " " + std::string(name_of(difference.status)) + " " +
                        std::to_string(difference.line));
        EXPECT_EQ(difference.before.has_value(), difference.status != baseline_status::added);
        EXPECT_EQ(difference.after.has_value(), difference.status != baseline_status::removed);
        if (difference.after) {
            EXPECT_EQ(set.kernels[difference.kernel].name, difference.name);
        }
    }
    EXPECT_THAT(found, testing::ElementsAre("a added 2", "b changed 2", "c same 3", "d added 4",
                                            "e removed 4", "f added 4"));
}

TEST(CompareWithBaseline, PlacesKernelsAddedToAnEmptyBaselineInItsFirstLine)
{
    const auto differences = compare_with_baseline({}, make_kernel_set({named("a"), named("b")}));
    ASSERT_EQ(differences.size(), 2U);
    EXPECT_EQ(differences[0].line, 1U);
    EXPECT_EQ(differences[1].line, 1U);
}

TEST(CompareWithBaseline, RefusesDifferentKernelsOfOneName)
{
    EXPECT_EQ(compare_with_baseline({}, make_kernel_set({named("a b"), named("a b")})).size(), 1U);
    try {
        compare_with_baseline({}, make_kernel_set({named("a b"), named("a b", {1})}));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "file of a b and file of a b: two different kernels named a\\x20b");
    }
}

} // namespace
