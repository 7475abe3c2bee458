// Kernels that change a register that the caller keeps: each such register, changed in several ways, is found
// at its instruction. The same kernels with a save and a restore around have no finding.

#include "check/format.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/dumps.hpp"
#include "workbench/analysis/check_dumps.hpp"

#include <algorithm>
#include <cstdio>
#include <elf.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace vorna::workbench;
using vorna::wfta::finding_severity;
using vorna::wfta::kernel_finding;
using lines = std::vector<std::string>;

lines operator+(lines a, const lines& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// Lines that change a register, and the index of the one that is at fault.
struct change {
    std::string form;
    lines code;
    std::size_t at;
};

struct kernel_case {
    std::string name;
    lines code;
    std::string id;                 ///< of the finding that is expected; empty for none at all
    std::size_t at = 0;             ///< index of its line
    std::string register_name = {}; ///< in its message
};

bool is_about_convention(const kernel_finding& finding)
{
    static const std::set<std::string> ids = {
        "abi-callee-saved",      "abi-stack-pointer", "abi-return-address",
        "abi-platform-register", "abi-below-stack",   "reads-unset",
        "reads-flags-unset",     "unreachable-code",  "unfollowed"};
    return ids.contains(name_of(finding.id));
}

std::string text_of(const kernel_case& one, const std::vector<kernel_finding>& findings)
{
    std::string text = one.name + "\n";
    for (std::size_t i = 0; i < one.code.size(); ++i)
        text += "  " + vorna::wfta::hex(4 * i) + "  " + one.code[i] + "\n";
    for (const kernel_finding& finding : findings)
        text += std::string(name_of(finding.id)) + " at " +
                vorna::wfta::hex(static_cast<std::uint64_t>(finding.offset.value_or(0))) + ": " +
                finding.message + "\n";
    return text;
}

/// Assembles the kernels at once, checks them in one set, and compares.
void check(const std::vector<kernel_case>& cases)
{
    lines all;
    for (const kernel_case& one : cases) {
        for (const std::string& line : one.code)
            all.push_back(line == "bl callee" ? "bl #0" : line);
    }
    const std::vector<std::uint32_t> words = support::assemble(all);
    ASSERT_EQ(words.size(), all.size());
    std::vector<placed_kernel> kernels = {
        support::placed("callee", 0x10000, {0xd65f03c0}, {}, {}, 0x1000000)};
    std::uint64_t address = 0x10020;
    auto word = words.begin();
    for (const kernel_case& one : cases) {
        std::vector<tessjit::reloc_info> relocs;
        for (std::size_t i = 0; i < one.code.size(); ++i) {
            if (one.code[i] == "bl callee")
                relocs.push_back({"callee", static_cast<std::int32_t>(4 * i), R_AARCH64_CALL26, 0});
        }
        const auto end = word + static_cast<std::ptrdiff_t>(one.code.size());
        kernels.push_back(support::placed(one.name, address, {word, end}, relocs, {}, 0x1000000));
        address += (4 * one.code.size() + 31) / 32 * 32;
        word = end;
    }
    std::map<std::string, std::vector<kernel_finding>> findings;
    for (const kernel_finding& finding : check_dumps(make_kernel_set(std::move(kernels)))) {
        if (is_about_convention(finding))
            findings[finding.kernel].push_back(finding);
    }
    for (const kernel_case& one : cases) {
        const std::vector<kernel_finding>& found = findings[one.name];
        if (one.id.empty()) {
            EXPECT_TRUE(found.empty()) << text_of(one, found);
            continue;
        }
        std::vector<kernel_finding> of_id;
        for (const kernel_finding& finding : found) {
            if (name_of(finding.id) == one.id)
                of_id.push_back(finding);
        }
        ASSERT_EQ(of_id.size(), 1U) << text_of(one, found);
        EXPECT_EQ(of_id[0].severity, finding_severity::error) << text_of(one, found);
        EXPECT_EQ(of_id[0].offset, static_cast<std::int64_t>(4 * one.at)) << text_of(one, found);
        EXPECT_NE(of_id[0].message.find(one.register_name), std::string::npos) << text_of(one, found);
    }
}

std::string number_of(const std::string& name)
{
    return name.substr(1);
}

lines loop_of(const lines& body)
{
    return lines{"mov x9, #3"} + body +
           lines{"subs x9, x9, #1", "b.ne #-" + std::to_string(4 * (body.size() + 1))};
}
lines one_way_of(const lines& body)
{
    return lines{"cbz x0, #" + std::to_string(4 * (body.size() + 1))} + body;
}

std::vector<change> changes_of_general(const std::string& x)
{
    const std::string w = "w" + number_of(x);
    return {
        {"straight", {"mov " + x + ", x1"}, 0},
        {"loop", loop_of({"add " + x + ", x9, #1"}), 1},
        {"branch", one_way_of({"eor " + x + ", x0, x1"}), 1},
        {"writeback", {"mov " + x + ", x1", "ldr x9, [" + x + "], #8"}, 0},
        {"pair", {"ldp x9, " + x + ", [x1]"}, 0},
        {"narrow", {"ldrb " + w + ", [x1]"}, 0},
    };
}

std::vector<change> changes_of_vector(const std::string& d)
{
    const std::string n = number_of(d);
    return {
        {"straight", {"fmov " + d + ", x1"}, 0},
        {"loop", loop_of({"scvtf " + d + ", x9"}), 1},
        {"branch", one_way_of({"fadd v" + n + ".2d, v0.2d, v1.2d"}), 1},
        {"writeback", {"ldr q" + n + ", [x1], #16"}, 0},
        {"pair", {"ldp d0, " + d + ", [x1]"}, 0},
        {"lane", {"mov v" + n + ".s[1], w1"}, 0},
        {"narrow", {"ldr b" + n + ", [x1]"}, 0},
    };
}

TEST(Corrupters, OfEachCalleeSavedRegisterAreFound)
{
    std::vector<kernel_case> cases;
    const auto add = [&](const std::string& name, const std::vector<change>& changes) {
        for (const change& one : changes)
            cases.push_back({name + "_" + one.form, one.code + lines{"ret"}, "abi-callee-saved", one.at,
                             "changes " + name + ","});
    };
    for (unsigned r = 19; r <= 29; ++r)
        add("x" + std::to_string(r), changes_of_general("x" + std::to_string(r)));
    for (unsigned v = 8; v <= 15; ++v)
        add("d" + std::to_string(v), changes_of_vector("d" + std::to_string(v)));
    // The address register of a writeback.
    cases.push_back({"x29_moved", {"ldr x9, [x29], #8", "ret"}, "abi-callee-saved", 0, "changes x29,"});
    check(cases);
}

TEST(Corrupters, ThatSaveAndRestoreAreClean)
{
    std::vector<kernel_case> cases;
    const auto add = [&](const std::string& name, const std::string& style, const lines& before,
                         const std::vector<change>& changes, const lines& after) {
        for (const change& one : changes)
            cases.push_back(
                {name + "_" + one.form + "_" + style, before + one.code + after + lines{"ret"}, ""});
    };
    for (unsigned r = 19; r <= 29; ++r) {
        const std::string x = "x" + std::to_string(r);
        const auto changes = changes_of_general(x);
        add(x, "pushed", {"str " + x + ", [sp, #-16]!"}, changes, {"ldr " + x + ", [sp], #16"});
        add(x, "pushed_as_a_pair", {"stp " + x + ", x30, [sp, #-32]!"}, changes,
            {"ldp " + x + ", x30, [sp], #32"});
        add(x, "in_another_order", {"stp x30, " + x + ", [sp, #-16]!"}, changes,
            {"ldr " + x + ", [sp, #8]", "ldr x30, [sp]", "add sp, sp, #16"});
        add(x, "below_a_lowered_sp", {"sub sp, sp, #48", "str " + x + ", [sp, #40]", "stp x0, x1, [sp]"},
            changes, {"ldr " + x + ", [sp, #40]", "add sp, sp, #48"});
        add(x, "in_a_large_frame", {"sub sp, sp, #2, lsl #12", "sub sp, sp, #32", "str " + x + ", [sp, #8]"},
            changes, {"ldr " + x + ", [sp, #8]", "add sp, sp, #32", "add sp, sp, #2, lsl #12"});
        add(x, "through_a_copy_of_sp", {"sub sp, sp, #32", "add x10, sp, #16", "stp x10, " + x + ", [x10]"},
            changes, {"ldr " + x + ", [x10, #8]", "add sp, sp, #32"});
        add(x, "in_a_register", {"mov x10, " + x}, changes, {"mov " + x + ", x10"});
        add(x, "through_a_vector_register", {"fmov d16, " + x}, changes, {"fmov " + x + ", d16"});
        if (r != 29) {
            add(x, "with_a_frame_pointer",
                {"stp x29, x30, [sp, #-48]!", "mov x29, sp", "str " + x + ", [x29, #24]", "sub sp, sp, #64"},
                changes, {"ldr " + x + ", [x29, #24]", "mov sp, x29", "ldp x29, x30, [sp], #48"});
            add(x, "with_a_frame_pointer_in_the_middle",
                {"sub sp, sp, #64", "stp x29, x30, [sp, #32]", "add x29, sp, #32",
                 "stur " + x + ", [x29, #-8]"},
                changes, {"ldur " + x + ", [x29, #-8]", "ldp x29, x30, [x29]", "add sp, sp, #64"});
            add(x, "with_an_unknown_amount_of_stack",
                {"stp x29, x30, [sp, #-32]!", "mov x29, sp", "str " + x + ", [sp, #16]",
                 "and x11, x2, #0xfffffffffffffff0", "sub sp, sp, x11"},
                changes, {"ldr " + x + ", [x29, #16]", "mov sp, x29", "ldp x29, x30, [sp], #32"});
        }
    }
    for (unsigned v = 8; v <= 15; ++v) {
        const std::string n = std::to_string(v);
        const auto changes = changes_of_vector("d" + n);
        add("d" + n, "pushed", {"str d" + n + ", [sp, #-16]!"}, changes, {"ldr d" + n + ", [sp], #16"});
        add("d" + n, "pushed_as_a_pair", {"stp d" + n + ", d31, [sp, #-16]!"}, changes,
            {"ldp d" + n + ", d31, [sp], #16"});
        add("d" + n, "whole", {"str q" + n + ", [sp, #-32]!"}, changes, {"ldr q" + n + ", [sp], #32"});
        add("d" + n, "as_a_pair_of_whole_ones", {"stp q30, q" + n + ", [sp, #-32]!"}, changes,
            {"ldr q" + n + ", [sp, #16]", "add sp, sp, #32"});
        add("d" + n, "whole_and_restored_in_half", {"str q" + n + ", [sp, #-16]!"}, changes,
            {"ldr d" + n + ", [sp], #16"});
        add("d" + n, "by_a_structure_store", {"sub sp, sp, #16", "st1 { v" + n + ".1d }, [sp]"}, changes,
            {"ld1 { v" + n + ".1d }, [sp]", "add sp, sp, #16"});
        add("d" + n, "in_a_general_register", {"fmov x10, d" + n}, changes, {"fmov d" + n + ", x10"});
        add("d" + n, "in_a_vector_register", {"mov v17.16b, v" + n + ".16b"}, changes,
            {"mov v" + n + ".16b, v17.16b"});
        add("d" + n, "with_a_frame_pointer",
            {"stp x29, x30, [sp, #-32]!", "mov x29, sp", "str d" + n + ", [sp, #24]"}, changes,
            {"ldr d" + n + ", [x29, #24]", "ldp x29, x30, [sp], #32"});
        // What need not be kept.
        cases.push_back({"d" + n + "_upper_half", {"mov v" + n + ".d[1], x0", "ret"}, ""});
    }
    check(cases);
}

TEST(Corrupters, ThatRestoreOnOneWayOnlyAreFound)
{
    std::vector<kernel_case> cases;
    for (const std::string x : {"x19", "x24", "x28", "d8", "d15"}) {
        const std::string set = x[0] == 'x' ? "mov " + x + ", x1" : "fmov " + x + ", x1";
        const lines save = {"str " + x + ", [sp, #-16]!", set};
        const std::string message = "changes " + x + ",";
        cases.push_back({x + "_one_way",
                         save + lines{"cbz x0, #8", "ldr " + x + ", [sp]", "add sp, sp, #16", "ret"},
                         "abi-callee-saved", 1, message});
        cases.push_back(
            {x + "_one_return",
             save + lines{"cbz x0, #12", "ldr " + x + ", [sp], #16", "ret", "add sp, sp, #16", "ret"},
             "abi-callee-saved", 1, message});
        cases.push_back({x + "_wrong_slot", save + lines{"ldr " + x + ", [sp, #8]", "add sp, sp, #16", "ret"},
                         "abi-callee-saved", 1, message});
        cases.push_back({x + "_overwritten_slot",
                         save + lines{"str x0, [sp]", "ldr " + x + ", [sp], #16", "ret"}, "abi-callee-saved",
                         1, message});
        cases.push_back({x + "_slot_overwritten_in_part",
                         save + lines{"strb w0, [sp, #3]", "ldr " + x + ", [sp], #16", "ret"},
                         "abi-callee-saved", 1, message});
        cases.push_back({x + "_saved_too_late",
                         {set, "str " + x + ", [sp, #-16]!", "ldr " + x + ", [sp], #16", "ret"},
                         "abi-callee-saved",
                         0,
                         message});
        cases.push_back({x + "_changed_again", save + lines{"ldr " + x + ", [sp], #16", set, "ret"},
                         "abi-callee-saved", 3, message});
    }
    check(cases);
}

TEST(Corrupters, OfTheStackPointerAreFound)
{
    const auto wrong = [](const std::string& name, const lines& code, std::size_t at) {
        return kernel_case{name, code, "abi-stack-pointer", at};
    };
    check({
        wrong("straight", {"sub sp, sp, #16", "ret"}, 1),
        wrong("above", {"add sp, sp, #32", "ret"}, 1),
        wrong("loop", loop_of({"sub sp, sp, #16"}) + lines{"ret"}, 4),
        wrong("branch", one_way_of({"sub sp, sp, #32"}) + lines{"ret"}, 2),
        wrong("writeback", {"str x0, [sp, #-16]!", "ret"}, 1),
        wrong("pair", {"stp x0, x1, [sp, #-32]!", "ldp x0, x1, [sp], #16", "ret"}, 2),
        wrong("not_a_multiple_of_16", {"sub sp, sp, #8", "str x0, [sp]", "add sp, sp, #8", "ret"}, 1),
        wrong("one_return", {"sub sp, sp, #16", "cbz x0, #12", "add sp, sp, #16", "ret", "ret"}, 4),
        wrong("released_twice", {"sub sp, sp, #16", "add sp, sp, #16", "add sp, sp, #16", "ret"}, 3),
    });
    check({
        {"released", {"sub sp, sp, #16", "add sp, sp, #16", "ret"}, ""},
        {"in_each_iteration", loop_of({"sub sp, sp, #16", "str x9, [sp]", "add sp, sp, #16"}) + lines{"ret"},
         ""},
        {"on_one_way", one_way_of({"str x0, [sp, #-16]!", "ldr x1, [sp], #16"}) + lines{"ret"}, ""},
        {"in_parts",
         {"sub sp, sp, #1, lsl #12", "sub sp, sp, #48", "add sp, sp, #16", "mov x9, #4128", "add sp, sp, x9",
          "ret"},
         ""},
        {"by_a_copy", {"mov x9, sp", "sub sp, sp, #48", "mov sp, x9", "ret"}, ""},
        {"realigned",
         {"stp x29, x30, [sp, #-16]!", "mov x29, sp", "sub x9, sp, #256", "and sp, x9, #0xffffffffffffff80",
          "str x0, [sp]", "mov sp, x29", "ldp x29, x30, [sp], #16", "ret"},
         ""},
    });
}

TEST(Corrupters, OfTheReturnAddressAreFound)
{
    const auto wrong = [](const std::string& name, const lines& code, std::size_t at) {
        return kernel_case{name, code, "abi-return-address", at};
    };
    check({
        wrong("call", {"bl callee", "ret"}, 1),
        wrong("loop", {"bl callee", "cbnz x0, #-4", "ret"}, 2),
        wrong("branch", one_way_of({"bl callee"}) + lines{"ret"}, 2),
        wrong("call_by_register", {"blr x1", "ret"}, 1),
        wrong("move", {"mov x30, x1", "ret"}, 1),
        wrong("writeback", {"ldr x9, [x30], #8", "ret"}, 1),
        wrong("pair", {"ldp x9, x30, [x1]", "ret"}, 1),
        wrong("narrow", {"mov w30, w30", "ret"}, 1),
        wrong("other_register", {"ret x9"}, 0),
        wrong("wrong_slot", {"stp x29, x30, [sp, #-16]!", "bl callee", "ldp x30, x29, [sp], #16", "ret"}, 3),
        wrong("saved_after_the_call", {"bl callee", "str x30, [sp, #-16]!", "ldr x30, [sp], #16", "ret"}, 3),
    });
    check({
        {"pushed", {"stp x29, x30, [sp, #-16]!", "bl callee", "ldp x29, x30, [sp], #16", "ret"}, ""},
        {"restored_alone",
         {"stp x29, x30, [sp, #-16]!", "bl callee", "ldr x30, [sp, #8]", "add sp, sp, #16", "ret"},
         ""},
        {"in_a_kept_register",
         {"str x19, [sp, #-16]!", "mov x19, x30", "bl callee", "mov x30, x19", "ldr x19, [sp], #16", "ret"},
         ""},
        {"returns_by_another_register", {"mov x9, x30", "mov x30, x0", "ret x9"}, ""},
        {"around_the_call_only",
         one_way_of({"str x30, [sp, #-16]!", "bl callee", "ldr x30, [sp], #16"}) + lines{"ret"}, ""},
        {"in_a_loop",
         {"stp x29, x30, [sp, #-16]!", "bl callee", "cbnz x0, #-4", "ldp x29, x30, [sp], #16", "ret"},
         ""},
    });
}

// Kernels that take an SVE register keep Z8 to Z23 and P4 to P15.
TEST(Corrupters, OfScalableRegistersAreFoundWhereAKernelTakesThem)
{
    const lines takes = {"fadd z0.d, p0/m, z0.d, z1.d"};
    std::vector<kernel_case> wrong;
    std::vector<kernel_case> right;
    const auto add = [&](const std::string& name, const std::vector<change>& changes, const lines& save,
                         const lines& restore) {
        for (const change& one : changes) {
            wrong.push_back({name + "_" + one.form, takes + one.code + lines{"ret"}, "abi-callee-saved",
                             one.at + 1, "changes "});
            right.push_back(
                {name + "_" + one.form + "_saved", save + takes + one.code + restore + lines{"ret"}, ""});
        }
    };
    for (unsigned v = 8; v <= 23; ++v) {
        const std::string n = std::to_string(v);
        add("z" + n,
            {
                {"straight", {"mov z" + n + ".d, x0"}, 0},
                {"loop", loop_of({"mov z" + n + ".d, x9"}), 1},
                {"branch", one_way_of({"fmov z" + n + ".d, #1.0"}), 1},
                {"load", {"ld1d { z" + n + ".d }, p0/z, [x0]"}, 0},
                {"part", {"mov v" + n + ".16b, v0.16b"}, 0},
                {"lane", {"mov v" + n + ".d[1], x0"}, 0},
            },
            {"addvl sp, sp, #-1", "str z" + n + ", [sp]"}, {"ldr z" + n + ", [sp]", "addvl sp, sp, #1"});
    }
    for (unsigned p = 4; p <= 15; ++p) {
        const std::string n = std::to_string(p);
        add("p" + n,
            {
                {"straight", {"ptrue p" + n + ".d"}, 0},
                {"loop", loop_of({"whilelt p" + n + ".d, xzr, x9"}), 1},
                {"branch", one_way_of({"pfalse p" + n + ".b"}), 1},
                {"load", {"ldr p" + n + ", [x0]"}, 0},
                {"comparison", {"cmpeq p" + n + ".d, p0/z, z0.d, #0"}, 0},
                {"move", {"mov p" + n + ".b, p0.b"}, 0},
            },
            {"addvl sp, sp, #-1", "str p" + n + ", [sp, #7, mul vl]"},
            {"ldr p" + n + ", [sp, #7, mul vl]", "addvl sp, sp, #1"});
    }
    check(wrong);
    check(right);
    // A kernel that takes none may change what only those keep.
    check({{"without_1", {"mov z16.d, x0", "ptrue p4.d", "mov z23.d, p4/m, x1", "ret"}, ""},
           {"without_2", {"ptrue p15.b", "pfalse p8.b", "ret"}, ""}});
}

} // namespace
