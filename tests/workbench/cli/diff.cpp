// What vorna-kernels diff prints, and its exit statuses.

#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <sys/mman.h>

namespace {

namespace a64 = support::a64;
using support::child_result;
using support::temp_directory;
using testing::HasSubstr;
using testing::Not;

std::vector<std::uint8_t> doubles(const std::vector<double>& values)
{
    std::vector<std::uint8_t> bytes(8 * values.size());
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

constexpr std::uint32_t load_d7_8 = 0xfd400467; // ldr d7, [x3, #8]
constexpr std::uint32_t store_d7 = 0xfd000027;  // str d7, [x1]

class Diff : public testing::Test {
protected:
    Diff()
    {
        std::filesystem::create_directory(directory.path() / "before");
        std::filesystem::create_directory(directory.path() / "after");
    }

    void dump(const std::string& side, const std::string& name, const std::vector<std::uint32_t>& words,
              std::vector<std::uint8_t> data = {}, std::vector<tessjit::reloc_info> relocs = {})
    {
        tessjit::elf_data elf;
        placed_ += 0x1000;
        elf.fns.emplace_back(name, support::address(placed_), support::code(words),
                             support::address(placed_ + 0x100000), std::move(data), std::move(relocs));
        const std::string file = std::to_string(placed_);
        support::write_file(directory.path() / side / file, support::to_string(tessjit::emit_elf(elf)));
    }

    // A kernel of its class for each: same, constants, code, relocations, removed, added.
    void dump_some()
    {
        const std::vector<std::uint32_t> load = {a64::adr(3), load_d7_8, store_d7, a64::ret()};
        dump("before", "s", load, doubles({1.5, -1.5}), {{".rodata.s", 0, 274, 0}});
        dump("after", "s", load, doubles({1.5, -1.5}), {{".rodata.s", 0, 274, 0}});
        dump("before", "k", load, doubles({1.5, -1.5}), {{".rodata.k", 0, 274, 0}});
        dump("after", "k", load, doubles({1.5, -2.5}), {{".rodata.k", 0, 274, 0}});
        dump("before", "c", {a64::cbz(0, 3), a64::nop(), a64::movz(9, 1), a64::ret()});
        dump("after", "c", {a64::cbz(0, 2), a64::nop(), a64::ret()});
        dump("before", "r", {a64::bl(), a64::ret()}, {}, {{"f", 0, 283, 0}});
        dump("after", "r", {a64::bl(), a64::ret()}, {}, {{"g", 0, 283, 0}});
        dump("before", "gone kernel", {a64::ret()});
        dump("after", "n", {a64::nop(), a64::ret()}, doubles({1}));
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "diff", "before", "after"});
        return support::run_tool(std::move(arguments), directory.path());
    }

    temp_directory directory;

private:
    std::uint64_t placed_ = 0x10000;
};

TEST_F(Diff, PrintsATableAndThenWhatChanged)
{
    dump_some();
    const child_result diff = run({});
    EXPECT_EQ(diff.exit_status, 1);
    EXPECT_EQ(diff.err, "");
    EXPECT_EQ(diff.out, R"(kernel       class        instructions  bytes of code  of constants
n            added        0 -> 2 (+2)   0 -> 8 (+8)    0 -> 8 (+8)
gone kernel  removed      1 -> 0 (-1)   4 -> 0 (-4)    0
c            code         4 -> 3 (-1)   16 -> 12 (-4)  0
r            relocations  2             8              0
k            constants    4             16             16
1 same

--- r (before)
+++ r (after)
@@ +00 +00 @@
- +00  94000000  bl    f
+ +00  94000000  bl    g
  +04  d65f03c0  ret

--- c (before)
+++ c (after)
@@ +00 +00 @@
  +00  b4000040  cbz   x0, .L8
  +04  d503201f  nop
- +08  d2800029  mov   x9, #1
  +08  d65f03c0  ret

--- k (before)
+++ k (after)
@@ +00 +00 @@
  +00  10000003  adr   x3, .rodata
- +04  fd400467  ldr   d7, [x3, #8]                 ; .rodata+0x8  -1.5
+ +04  fd400467  ldr   d7, [x3, #8]                 ; .rodata+0x8  -2.5
  +08  fd000027  str   d7, [x1]
  +0c  d65f03c0  ret
@@ .rodata+00 .rodata+00 @@
  .rodata+00  3ff8000000000000  1.5
- .rodata+08  bff8000000000000  -1.5
+ .rodata+08  c004000000000000  -2.5
)");
}

TEST_F(Diff, ComparesTheKernelsThatItIsTold)
{
    dump_some();
    const child_result some = run({"n", "s", "gone kernel"});
    EXPECT_EQ(some.exit_status, 1);
    EXPECT_EQ(some.err, "");
    EXPECT_EQ(some.out, R"(kernel       class    instructions  bytes of code  of constants
n            added    0 -> 2 (+2)   0 -> 8 (+8)    0 -> 8 (+8)
gone kernel  removed  1 -> 0 (-1)   4 -> 0 (-4)    0
1 same
)");
    const child_result one = run({"s"});
    EXPECT_EQ(one.exit_status, 0);
    EXPECT_EQ(one.out, "1 same\n");
    const child_result none = run({"k", "q"});
    EXPECT_EQ(none.exit_status, 2);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "vorna-kernels: no kernel q in the dumps of either set\n");
}

TEST_F(Diff, ShowsALoadAsChangedWithTheOffsetAndTheConstantsOfEachSide)
{
    // A walk through a table in a loop, after an instruction that is new; X0 is how often.
    const std::uint32_t walk = 0xfc408467;              // ldr d7, [x3], #8
    const std::uint32_t again = 0xb5ffffe0 - (1U << 5); // cbnz x0, to the instruction before the one before
    const std::uint32_t down = 0xd1000400;              // sub x0, x0, #1
    dump("before", "k", {a64::adr(3), walk, down, again, a64::ret()}, doubles({1, 2, 3, 4}),
         {{".rodata.k", 0, 274, 0}});
    dump("after", "k", {a64::nop(), a64::adr(3), walk, down, again, a64::ret()}, doubles({9, 2, 3, 4}),
         {{".rodata.k", 4, 274, 0}});
    EXPECT_THAT(run({}).out, HasSubstr(R"(@@ +00 +00 @@
+ +00  d503201f  nop
  +04  10000003  adr   x3, .rodata
- +04  fc408467  ldr   d7, [x3], #8                 ; .rodata  1.0, ...
+ +08  fc408467  ldr   d7, [x3], #8                 ; .rodata  9.0, ...
  +0c  d1000400  sub   x0, x0, #1
)"));
}

TEST_F(Diff, ShowsAsManyKernelsAsItIsTold)
{
    dump_some();
    const std::string two = run({"--limit=2"}).out;
    EXPECT_THAT(two, HasSubstr("--- r (before)"));
    EXPECT_THAT(two, HasSubstr("--- c (before)"));
    EXPECT_THAT(two, Not(HasSubstr("--- k (before)")));
    EXPECT_THAT(two, testing::EndsWith("\n\n1 more changed kernel: --limit=3 shows all\n"));
    EXPECT_THAT(run({"--limit=0"}).out,
                testing::EndsWith("1 same\n\n3 more changed kernels: --limit=3 shows all\n"));
    EXPECT_EQ(run({"--limit=3"}).out, run({}).out);
    EXPECT_EQ(run({"--limit=-1"}).exit_status, 2);
}

TEST_F(Diff, HasTheSameFactsAsJson)
{
    dump_some();
    const child_result diff = run({"--format=json"});
    EXPECT_EQ(diff.exit_status, 1);
    std::string compact;
    for (const char c : diff.out)
        compact += c == '\n' || c == ' ' ? "" : std::string(1, c);
    EXPECT_EQ(
        compact,
        R"({"version":2,"kernels":[)"
        R"({"kernel":"c","class":"code","old":{"code":16,"data":0,"instructions":4},"new":{"code":12,"data":0,"instructions":3}},)"
        R"({"kernel":"gonekernel","class":"removed","old":{"code":4,"data":0,"instructions":1},"new":null},)"
        R"({"kernel":"k","class":"constants","old":{"code":16,"data":16,"instructions":4},"new":{"code":16,"data":16,"instructions":4}},)"
        R"({"kernel":"n","class":"added","old":null,"new":{"code":8,"data":8,"instructions":2}},)"
        R"({"kernel":"r","class":"relocations","old":{"code":8,"data":0,"instructions":2},"new":{"code":8,"data":0,"instructions":2}},)"
        R"({"kernel":"s","class":"same","old":{"code":16,"data":16,"instructions":4},"new":{"code":16,"data":16,"instructions":4}}]})");
}

TEST_F(Diff, AnnotatesForGithub)
{
    dump("before", "a,b", {a64::ret()});
    dump("after", "a,b", {a64::nop(), a64::ret()});
    dump("after", "n", {a64::ret()});
    EXPECT_EQ(
        run({"--format=github"}).out,
        "::notice title=n::n: added; instructions 0 -> 1 (+1), bytes of code 0 -> 4 (+4), of constants 0\n"
        "::warning title=a%2Cb::a,b: code; instructions 1 -> 2 (+1), bytes of code 4 -> 8 (+4), of constants 0\n");
}

TEST_F(Diff, AnnotatesKernelsOfAnyNameInALineEach)
{
    dump("after", "a\nb\x1b[31m%::error::", {a64::ret()});
    dump("before", "k", {a64::ret()});
    dump("after", "k", {a64::ret()});
    EXPECT_EQ(run({"--format=github"}).out,
              "::notice title=a\\nb\\x1b[31m%25%3A%3Aerror%3A%3A::a\\nb\\x1b[31m%25::error::: added; "
              "instructions 0 -> 1 (+1), bytes of code 0 -> 4 (+4), of constants 0\n");
}

TEST_F(Diff, ComparesNothingWithADirectoryWithoutDumps)
{
    dump("before", "k", {a64::ret()});
    std::filesystem::create_directory(directory.path() / "after");
    const child_result result = run({});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vorna-kernels: after: no dumps in it\n");
}

TEST_F(Diff, WritesASummaryInMarkdown)
{
    dump("before", "a|`<b>", {a64::bl(), a64::ret()}, {}, {{"```f", 0, 283, 0}});
    dump("after", "a|`<b>", {a64::bl(), a64::nop(), a64::ret()}, {}, {{"```f", 0, 283, 0}});
    EXPECT_EQ(run({"--format=markdown"}).out,
              R"(| kernel | class | instructions | bytes of code | of constants |
|---|---|---:|---:|---:|
| <code>a&#124;&#96;&#60;b&#62;</code> | code | 2 -> 3 (+1) | 8 -> 12 (+4) | 0 |

0 same

<details><summary><code>a&#124;&#96;&#60;b&#62;</code>: code</summary>

````diff
--- a|`<b> (before)
+++ a|`<b> (after)
@@ +00 +00 @@
  +00  94000000  bl    ```f
+ +04  d503201f  nop
  +08  d65f03c0  ret
````

</details>
)");
}

TEST_F(Diff, TakesIgnoredClassesForTheSame)
{
    // layout, registers, order
    const std::vector<std::uint32_t> load = {a64::adr(3), load_d7_8, store_d7, a64::ret()};
    dump("before", "m", load, doubles({1, 2}), {{".rodata.m", 0, 274, 0}});
    dump("after", "m", {a64::adr(3), 0xfd400067, store_d7, a64::ret()}, doubles({2, 1}),
         {{".rodata.m", 0, 274, 0}});
    dump("before", "n", {a64::movz(9, 1), a64::ret()});
    dump("after", "n", {a64::movz(10, 1), a64::ret()});
    dump("before", "o", {a64::nop(), a64::movz(9, 1), a64::ret()});
    dump("after", "o", {a64::movz(9, 1), a64::nop(), a64::ret()});
    const child_result all = run({});
    EXPECT_EQ(all.exit_status, 1);
    EXPECT_THAT(all.out, HasSubstr("\no       order  "));
    EXPECT_THAT(all.out, HasSubstr("\nn       registers  "));
    EXPECT_THAT(all.out, HasSubstr("\nm       layout  "));
    const child_result some = run({"--ignore=layout,order"});
    EXPECT_EQ(some.exit_status, 1);
    EXPECT_THAT(some.out, HasSubstr("\n2 same\n"));
    const child_result none = run({"--ignore=layout,registers,order"});
    EXPECT_EQ(none.exit_status, 0);
    EXPECT_EQ(none.out, "3 same\n");
    EXPECT_EQ(run({"--ignore=code"}).exit_status, 2);
}

TEST_F(Diff, PutsTheLargestChangeFirstAndColoursOnRequest)
{
    for (unsigned i = 1; i < 4; ++i) {
        const std::string name = "k" + std::to_string(i);
        dump("before", name, {a64::ret()});
        dump("after", name, std::vector<std::uint32_t>(i == 2 ? 9 : i, a64::nop()));
    }
    const std::string plain = run({}).out;
    EXPECT_LT(plain.find("\nk2 "), plain.find("\nk3 "));
    EXPECT_LT(plain.find("\nk3 "), plain.find("\nk1 "));
    EXPECT_THAT(plain, Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({"--color=always"}).out, HasSubstr("\x1b[1;31m- +00  d65f03c0  ret\x1b[0m\n"));
}

TEST_F(Diff, GoesOnWhenADumpCannotBeRead)
{
    dump_some();
    support::write_file(directory.path() / "after" / "cut", "\x7f"
                                                            "ELF");
    const child_result diff = run({});
    EXPECT_EQ(diff.exit_status, 2);
    EXPECT_THAT(diff.err, HasSubstr("vorna-kernels: after/cut: "));
    EXPECT_THAT(diff.out, HasSubstr("1 same\n"));

    const child_result none =
        support::run_tool({VORNA_KERNELS, "diff", "before", "nowhere"}, directory.path());
    EXPECT_EQ(none.exit_status, 2);
    EXPECT_THAT(none.err, HasSubstr("vorna-kernels: nowhere: "));
}

TEST_F(Diff, OfTwoRunsAtOtherAddressesIsAllSame)
{
    const auto finalise = [](std::size_t pages_before) {
        // What is mapped first takes the place that the kernels had in the other run.
        (void)mmap(nullptr, pages_before * 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        vorna::wfta::kernel_registry_map registry;
        for (int set = 0; set < 3; ++set) {
            std::vector<vorna::wfta::kernel_data> kernels;
            for (unsigned i = 0; i < 20; ++i) {
                const std::string name = "k" + std::to_string(set) + "_" + std::to_string(i);
                kernels.push_back(
                    support::kernel(name,
                                    {a64::adrp(3), a64::add(3, 3, 0), load_d7_8, store_d7, a64::bl(),
                                     a64::movz(9, i), a64::ret()},
                                    {{".rodata." + name, 0, 275, 0},
                                     {".rodata." + name, 4, 277, 0},
                                     {i == 0 ? name : "k" + std::to_string(set) + "_0", 16, 283, 0}},
                                    doubles({1.0 * i, 2, 3})));
            }
            finalise_kernels(registry, kernels);
        }
        EXPECT_EQ(registry.size(), 60U);
    };
    for (const char* side : {"before", "after"}) {
        support::child_options options;
        options.directory = directory.path() / side;
        options.environment = {{"VORNA_WFTA_DUMP_KERNEL", ""}};
        const child_result child =
            support::run_in_child([&] { finalise(side[0] == 'b' ? 1 : 1000); }, options);
        ASSERT_TRUE(child.succeeded()) << child;
    }
    EXPECT_NE(support::contents(directory.path() / "before" / "k1_1"),
              support::contents(directory.path() / "after" / "k1_1"));
    const child_result diff = run({});
    EXPECT_EQ(diff.exit_status, 0) << diff;
    EXPECT_EQ(diff.out, "60 same\n");
    // And with itself.
    EXPECT_EQ(support::run_tool({VORNA_KERNELS, "diff", "before", "before"}, directory.path()).out,
              "60 same\n");
    // The baseline of one run is that of the other.
    const auto baseline = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"env", "CI=", VORNA_KERNELS, "baseline"});
        return support::run_tool(std::move(arguments), directory.path()).exit_status;
    };
    EXPECT_EQ(baseline({"bless", "--all", "base", "before", "--listing=listings"}), 0);
    EXPECT_EQ(baseline({"check", "base", "after", "--listing=listings"}), 0);
}

TEST_F(Diff, ShowsTheFirstConstantsOfMany)
{
    std::vector<std::uint8_t> data(8000);
    dump("before", "k", {a64::ret()}, data);
    for (std::size_t i = 0; i < data.size(); i += 8)
        data[i] = 1;
    dump("after", "k", {a64::ret()}, data);
    const std::string out = run({}).out;
    EXPECT_THAT(out, HasSubstr("@@ 976 more differing lines @@\n"));
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 3 + 3 + 1 + 2 * 24 + 1);
}

TEST_F(Diff, AlignsConstantsOfAnotherNumber)
{
    dump("before", "k", {a64::ret()}, doubles({-0.0, 2, 1e300}));
    dump("after", "k", {a64::ret()}, doubles({-0.0, 4, 2, 1e300}));
    EXPECT_THAT(run({}).out, HasSubstr("@@ .rodata+00 .rodata+00 @@\n"
                                       "  .rodata+00  8000000000000000  -0\n"
                                       "+ .rodata+08  4010000000000000  4\n"
                                       "  .rodata+10  4000000000000000  2\n"
                                       "  .rodata+18  7e37e43c8800759c  {2281731484, 2117592124}\n"));
}

} // namespace
