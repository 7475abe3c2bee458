// What other kernels do with a kernel limits what can be proved about it.

#include "workbench/analysis/equivalence.hpp"
#include "tests/support/assembled_kernel.hpp"
#include "workbench/analysis/difference.hpp"

#include <gtest/gtest.h>

namespace {

using vorna::workbench::compare_sets;
using vorna::workbench::kernel_difference;
using vorna::workbench::make_kernel_set;
using vorna::workbench::name_of;
using vorna::workbench::placed_kernel;

using lines = std::vector<std::string>;

TEST(Equivalence, HoldsAtEveryEntryOfOtherKernels)
{
    const lines before = {"mov x10, #7", "mov x9, #1", "str x9, [x1]", "ret"};
    const lines after = {"mov x10, #7", "mov x10, #1", "str x10, [x1]", "ret"};
    const lines apart_before = {"mov x9, #1", "str x9, [x1]", "ret"};
    const lines apart_after = {"mov x10, #1", "str x10, [x1]", "ret"};
    const auto with_caller = [](const lines& code, const std::string& target) {
        placed_kernel caller = support::assembled_kernel("caller", {"bl " + target, "ldr x30, [sp]", "ret"});
        caller.text_address += 0x1000;
        return make_kernel_set({support::assembled_kernel("k", code), caller});
    };
    const auto change_with = [&](const lines& one, const lines& other, const std::string& target) {
        for (const kernel_difference& kernel :
             compare_sets(with_caller(one, target), with_caller(other, target))) {
            if (kernel.name == "k")
                return std::string(name_of(kernel.change));
        }
        return std::string();
    };
    EXPECT_EQ(change_with(before, after, "k"), "registers");
    EXPECT_EQ(change_with(before, after, "k+4"), "registers");
    EXPECT_EQ(change_with(apart_before, apart_after, "k"), "registers");
    EXPECT_EQ(change_with(apart_before, apart_after, "k+4"), "code");
    EXPECT_EQ(change_with(apart_before, apart_after, "k+2"), "code");
    // Through the name of a neighbour.
    EXPECT_EQ(change_with(before, after, "caller-4092"), "registers");
    EXPECT_EQ(change_with(apart_before, apart_after, "caller-4092"), "code");
}

TEST(Equivalence, DependsOnWhatOtherKernelsMayRead)
{
    const auto change_with = [](const lines& one, const lines& other, const std::vector<double>& old_data,
                                const std::vector<double>& new_data, const tessjit::reloc_info& use) {
        const auto set = [&](const lines& code, const std::vector<double>& data) {
            placed_kernel user = support::assembled_kernel("user", {"adr x3, #0", "ldr w0, [x3]", "ret"});
            user.text_address += 0x1000;
            user.relocs.push_back(use);
            return make_kernel_set({support::assembled_kernel("k", code, support::bytes_of(data)), user});
        };
        const auto differences = compare_sets(set(one, old_data), set(other, new_data));
        EXPECT_EQ(differences.front().name, "k");
        return std::string(name_of(differences.front().change));
    };
    const lines before = {"mov x9, #1", "str x9, [x1]", "ret"};
    const lines after = {"mov x10, #1", "str x10, [x1]", "ret"};
    const lines padded_before = {"mov x10, #7", "mov x9, #1", "str x9, [x1]", "ret"};
    const lines padded_after = {"mov x10, #7", "mov x10, #1", "str x10, [x1]", "ret"};
    EXPECT_EQ(change_with(before, after, {}, {}, {"k", 0, R_AARCH64_ADR_PREL_LO21, 0}), "registers");
    EXPECT_EQ(change_with(padded_before, padded_after, {}, {}, {"k", 0, R_AARCH64_ADR_PREL_LO21, 4}), "code");
    EXPECT_EQ(change_with(padded_before, padded_after, {}, {}, {"k", 0, R_AARCH64_ADR_PREL_PG_HI21, 4}),
              "code");
    // Through the name of a neighbour, and to its beginning.
    EXPECT_EQ(
        change_with(padded_before, padded_after, {}, {}, {"user", 0, R_AARCH64_ADR_PREL_LO21, 4 - 0x1000}),
        "code");
    EXPECT_EQ(change_with(before, after, {}, {}, {"user", 0, R_AARCH64_ADR_PREL_LO21, -0x1000}), "registers");
    // Its constants.
    const lines first = {"adr x3, data0", "ldr d0, [x3]", "ret"};
    const lines second = {"adr x3, data8", "ldr d0, [x3]", "ret"};
    EXPECT_EQ(change_with(first, second, {1, 2}, {2, 1}, {".rodata.user", 0, R_AARCH64_ADR_PREL_LO21, 0}),
              "layout");
    EXPECT_EQ(change_with(first, second, {1, 2}, {2, 1}, {".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}),
              "relocations");
    EXPECT_EQ(change_with(first, second, {1, 1}, {1, 1}, {".rodata.k", 0, R_AARCH64_ADR_PREL_LO21, 0}),
              "layout");
}

} // namespace
