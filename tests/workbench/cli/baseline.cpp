// Baselines: what a line of one holds, and what the command makes of it.

#include "workbench/analysis/baseline.hpp"
#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <random>
#include <stdexcept>

namespace {

namespace a64 = support::a64;
using support::child_result;
using support::contents;
using support::temp_directory;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;
using vorna::workbench::baseline;
using vorna::workbench::fingerprint_of;
using vorna::workbench::format_baseline;
using vorna::workbench::kernel_fingerprint;
using vorna::workbench::listing_file_name;
using vorna::workbench::parse_baseline;
using vorna::workbench::placed_kernel;
using vorna::workbench::same_listing;

const std::string hash_of_nothing = "99aa06d3014798d86001c324468d497f"; // XXH3's test vector

placed_kernel two_calls()
{
    return {"k",    0x1000,    support::code({a64::adr(0), a64::bl(), a64::bl(), a64::ret()}),
            0x2000, {1, 2, 3}, {{".rodata.k", 0, 274, 0}, {"f", 4, 283, 0}, {"g", 8, 283, 0}},
            0,      ""};
}

TEST(Fingerprint, TellsCodeReferencesAndConstantsApart)
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

TEST(Fingerprint, DoesNotDependOnPlacesOrOnTheOrderOfRelocationsElsewhere)
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

TEST(Fingerprint, KnowsTheOwnConstantsByNoName)
{
    placed_kernel kernel = two_calls();
    kernel.name = "renamed";
    kernel.relocs[0].name = ".rodata.renamed";
    EXPECT_EQ(fingerprint_of(kernel), fingerprint_of(two_calls()));
    kernel.relocs[0].name = ".rodata.k"; // another's
    EXPECT_NE(fingerprint_of(kernel).relocations, fingerprint_of(two_calls()).relocations);
}

TEST(BaselineText, HasOneLineAKernel)
{
    const std::string text = format_baseline({{"wfta_short_3", fingerprint_of(placed_kernel())}});
    EXPECT_EQ(text, "vorna-kernels baseline 1\nwfta_short_3 " + hash_of_nothing + " " + hash_of_nothing +
                        " " + hash_of_nothing + " 0\n");
}

TEST(BaselineText, KeepsAnyNameInOneLine)
{
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte)
        every_byte += static_cast<char>(byte);
    const std::vector<std::string> names = {"",      " ",   "\n",           "\\",      "\\e",
                                            "\\x41", "a b", "<<<<<<< HEAD", every_byte};
    baseline entries;
    for (const std::string& name : names)
        entries.push_back({name, fingerprint_of(placed_kernel())});
    const std::string text = format_baseline(entries);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), static_cast<std::ptrdiff_t>(1 + names.size()));
    std::vector<std::string> read;
    for (const auto& entry : parse_baseline(text))
        read.push_back(entry.name);
    EXPECT_THAT(read, testing::UnorderedElementsAreArray(names));
    EXPECT_TRUE(std::is_sorted(read.begin(), read.end()));
}

std::string refusal(const std::string& text)
{
    try {
        parse_baseline(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(BaselineText, IsRefusedWithTheLineThatIsWrong)
{
    const std::string head = "vorna-kernels baseline 1\n";
    const std::string hashes = hash_of_nothing + " " + hash_of_nothing + " " + hash_of_nothing;
    const std::string good = "a " + hashes + " 5\n";
    EXPECT_EQ(refusal(head + good), "");
    EXPECT_EQ(refusal(head), "");
    EXPECT_EQ(refusal(""), "line 1: expected \"vorna-kernels baseline 1\"");
    EXPECT_EQ(refusal("vorna-kernels baseline 2\n" + good), "line 1: expected \"vorna-kernels baseline 1\"");
    EXPECT_EQ(refusal("vorna-kernels baseline 1"), "line 1: truncated");
    EXPECT_EQ(refusal(head + good.substr(0, good.size() - 1)), "line 2: truncated");
    EXPECT_EQ(refusal(head + good + "\n"), "line 3: expected a name, three hashes and a number");
    EXPECT_EQ(refusal(head + "a b " + hashes + " 5\n"), "line 2: expected a name, three hashes and a number");
    EXPECT_EQ(refusal(head + " " + hashes + " 5\n"), "line 2: expected a name, three hashes and a number");
    EXPECT_EQ(refusal(head + "a " + hashes.substr(1) + " 5\n"),
              "line 2: expected hashes of 32 hexadecimal digits");
    EXPECT_EQ(refusal(head + "a A" + hashes.substr(1) + " 5\n"),
              "line 2: expected hashes of 32 hexadecimal digits");
    std::string line = head;
    line.append("a ").append(hashes).append(" ");
    for (const char* number : {"", "-5", "5x", "0x5", "99999999999999999999"})
        EXPECT_EQ(refusal(line + number + "\n"), "line 2: invalid number of instructions");
    EXPECT_EQ(refusal(head + "a\\n " + hashes + " 5\n"),
              "line 2: invalid escape, expected \\x and two digits");
    EXPECT_EQ(refusal(head + "a\\x6 " + hashes + " 5\n"),
              "line 2: invalid escape, expected \\x and two digits");
    EXPECT_EQ(refusal(head + "a\\x41 " + hashes + " 5\n"), "line 2: name not in canonical form");
    EXPECT_EQ(refusal(head + good + good), "line 3: duplicate kernel a, first in line 2");
    for (const char* marker : {"<<<<<<< HEAD\n", "||||||| 1a2b3c4\n", "=======\n", ">>>>>>> change\n",
                               ">>>>>>> 1a2b3c4 (Turn the other way)\n"})
        EXPECT_EQ(refusal(std::string(head).append(marker).append(good)),
                  "line 2: unresolved merge conflict");
    EXPECT_EQ(refusal(head + "======= " + hashes + " 5\n"), "") << "a kernel's name";
}

TEST(BaselineText, MayHaveTheLineEndsOfAnotherSystem)
{
    EXPECT_EQ(refusal("vorna-kernels baseline 1\r\na " + hash_of_nothing + " " + hash_of_nothing + " " +
                      hash_of_nothing + " 5\r\n"),
              "");
}

TEST(ListingFiles, HaveNamesThatEverySystemTakes)
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

class BaselineCommand : public testing::Test {
protected:
    BaselineCommand()
    {
        dump("a", {a64::movz(0, 1), a64::ret()}, {1, 2, 3, 4, 5, 6, 7, 8});
        dump("b", {a64::adr(0), a64::ret()}, {1, 2, 3, 4, 5, 6, 7, 8}, {{".rodata.b", 0, 274, 0}});
        dump("c", {a64::ret()}, {});
    }

    void dump(const std::string& name, const std::vector<std::uint32_t>& words,
              std::vector<std::uint8_t> data, std::vector<tessjit::reloc_info> relocs = {},
              const std::string& directory_name = "dumps")
    {
        tessjit::elf_data elf;
        placed_ += 0x100;
        elf.fns.emplace_back(name, support::address(placed_), support::code(words),
                             support::address(placed_ + 0x100000), std::move(data), std::move(relocs));
        std::filesystem::create_directory(directory.path() / directory_name);
        support::write_file(directory.path() / directory_name / name,
                            support::to_string(tessjit::emit_elf(elf)));
    }

    [[nodiscard]] child_result run(const std::vector<std::string>& arguments,
                                   const std::string& ci = "") const
    {
        std::vector<std::string> command = {"env", "CI=" + ci, VORNA_KERNELS, "baseline"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return support::run_tool(std::move(command), directory.path());
    }

    [[nodiscard]] std::string text() const { return contents(directory.path() / "base"); }

    void bless_all() const { ASSERT_EQ(run({"bless", "base", "dumps", "--all"}).exit_status, 0); }

    temp_directory directory;

private:
    std::uint64_t placed_ = 0x10000;
};

TEST_F(BaselineCommand, NeverMakesAMissingBaselineUnasked)
{
    const child_result check = run({"check", "base", "dumps"});
    EXPECT_EQ(check.exit_status, 2);
    EXPECT_EQ(check.out, "");
    EXPECT_EQ(
        check.err,
        "vorna-kernels: base: no such file; create it with: vorna-kernels baseline bless base dumps --all\n");
    EXPECT_EQ(run({"bless", "base", "dumps", "a"}).exit_status, 2);
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "base"));

    const child_result bless = run({"bless", "base", "dumps", "--all"});
    EXPECT_EQ(bless.exit_status, 0) << bless;
    EXPECT_EQ(bless.out, "a: added, 2 instructions\nb: added, 2 instructions\nc: added, 1 instruction\n"
                         "base: created, 3 kernels\n");
    EXPECT_THAT(text(),
                MatchesRegex("vorna-kernels baseline 1\na ([0-9a-f]{32} ){3}2\nb ([0-9a-f]{32} ){3}2\n"
                             "c ([0-9a-f]{32} ){3}1\n"));
    const child_result again = run({"check", "base", "dumps"});
    EXPECT_EQ(again.exit_status, 0) << again;
    EXPECT_EQ(again.out, "3 kernels: 3 same\n");
}

TEST_F(BaselineCommand, TellsWhatIsNotAsInTheBaseline)
{
    bless_all();
    dump("a", {a64::movz(0, 1), a64::nop(), a64::ret()}, {1, 2, 3, 4, 5, 6, 7, 8});
    dump("b", {a64::adr(0), a64::ret()}, {1, 2, 3, 4, 5, 6, 7, 9}, {{".rodata.b", 0, 274, 4}});
    std::filesystem::remove(directory.path() / "dumps" / "c");
    dump("aa", {a64::ret()}, {});
    dump("z", {a64::ret()}, {});

    const child_result check = run({"check", "base", "dumps"});
    EXPECT_EQ(check.exit_status, 1);
    EXPECT_EQ(check.err, "");
    EXPECT_EQ(check.out, "base:2: a: code changed, 2 -> 3 instructions\n"
                         "aa: not in the baseline, 1 instruction\n"
                         "base:3: b: relocations and constants changed, code the same, 2 instructions\n"
                         "base:4: c: not in the dumps, 1 instruction\n"
                         "z: not in the baseline, 1 instruction\n"
                         "5 kernels: 2 changed, 2 added, 1 removed\n"
                         "to accept: vorna-kernels baseline bless base dumps a aa b c z\n");
    EXPECT_EQ(
        run({"check", "base", "dumps", "--format=github"}).out,
        "::error file=base,line=2,title=a::a: code changed, 2 -> 3 instructions\n"
        "::error file=base,line=3,title=aa::aa: not in the baseline, 1 instruction\n"
        "::error file=base,line=3,title=b::b: relocations and constants changed, code the same, 2 instructions\n"
        "::error file=base,line=4,title=c::c: not in the dumps, 1 instruction\n"
        "::error file=base,line=4,title=z::z: not in the baseline, 1 instruction\n"
        "5 kernels: 2 changed, 2 added, 1 removed\n"
        "to accept: vorna-kernels baseline bless base dumps a aa b c z\n");
    EXPECT_EQ(
        run({"check", "base", "dumps", "--format=markdown"}).out,
        "| kernel | status | |\n|---|---|---|\n"
        "| <code>a</code> | changed | code changed, 2 -> 3 instructions |\n"
        "| <code>aa</code> | added | not in the baseline, 1 instruction |\n"
        "| <code>b</code> | changed | relocations and constants changed, code the same, 2 instructions |\n"
        "| <code>c</code> | removed | not in the dumps, 1 instruction |\n"
        "| <code>z</code> | added | not in the baseline, 1 instruction |\n\n"
        "5 kernels: 2 changed, 2 added, 1 removed\n\nTo accept:\n\n"
        "```sh\nvorna-kernels baseline bless base dumps a aa b c z\n```\n");
    const child_result json = run({"check", "base", "dumps", "--format=json"});
    EXPECT_EQ(json.exit_status, 1);
    std::string compact;
    for (const char c : json.out)
        compact += c == '\n' || c == ' ' ? "" : std::string(1, c);
    EXPECT_EQ(compact,
              "{\"version\":2,\"kernels\":["
              "{\"kernel\":\"a\",\"status\":\"changed\",\"changed\":[\"code\"]},"
              "{\"kernel\":\"aa\",\"status\":\"added\",\"changed\":[]},"
              "{\"kernel\":\"b\",\"status\":\"changed\",\"changed\":[\"relocations\",\"constants\"]},"
              "{\"kernel\":\"c\",\"status\":\"removed\",\"changed\":[]},"
              "{\"kernel\":\"z\",\"status\":\"added\",\"changed\":[]}]}");
}

TEST_F(BaselineCommand, AcceptsTheNamedKernelsOnly)
{
    bless_all();
    const std::string before = text();
    dump("a", {a64::ret()}, {});
    dump("b", {a64::ret()}, {});
    std::filesystem::remove(directory.path() / "dumps" / "c");
    dump("d", {a64::ret()}, {});

    const child_result bless = run({"bless", "base", "dumps", "a", "c"});
    EXPECT_EQ(bless.exit_status, 0) << bless;
    EXPECT_EQ(bless.out, "base:2: a: code and constants changed, 2 -> 1 instructions\n"
                         "base:4: c: removed, 1 instruction\n"
                         "base: 2 of 4 kernels accepted\n");
    EXPECT_EQ(run({"check", "base", "dumps"}).out,
              "base:3: b: code, relocations and constants changed, 2 -> 1 instructions\n"
              "d: not in the baseline, 1 instruction\n"
              "3 kernels: 1 same, 1 changed, 1 added\n"
              "to accept: vorna-kernels baseline bless base dumps b d\n");
    EXPECT_EQ(run({"bless", "base", "dumps", "--all"}).exit_status, 0);
    EXPECT_EQ(run({"check", "base", "dumps"}).exit_status, 0);
    EXPECT_EQ(run({"bless", "base", "dumps", "--all"}).out, "base: no changes\n");
}

TEST_F(BaselineCommand, RefusesWhatWouldLoseSomething)
{
    bless_all();
    const std::string before = text();
    dump("a", {a64::ret()}, {});
    const auto expect_refusal = [&](const std::vector<std::string>& arguments, const std::string& message,
                                    const std::string& ci = "") {
        const child_result result = run(arguments, ci);
        EXPECT_EQ(result.exit_status, 2) << result;
        EXPECT_THAT(result.err, HasSubstr("vorna-kernels: " + message)) << result;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(text(), before);
    };
    expect_refusal({"bless", "base", "dumps"}, "give names of kernels, or --all\n");
    expect_refusal({"bless", "base", "dumps", "a", "--all"}, "give either names of kernels or --all\n");
    expect_refusal({"bless", "base", "dumps", "wfta"},
                   "no kernel wfta in the baseline or the dumps\n");
    expect_refusal(
        {"bless", "base", "dumps", "--all"},
        "CI is set in the environment, and a baseline should be blessed by a person; override with --force\n",
        "true");
    expect_refusal({"bless", "base", "none", "--all"}, "none: No such file or directory\n");
    std::filesystem::create_directory(directory.path() / "empty");
    expect_refusal({"bless", "base", "empty", "--all"}, "empty: no dump");
    support::write_file(directory.path() / "dumps" / "cut",
                        contents(directory.path() / "dumps" / "b").substr(0, 100));
    expect_refusal({"bless", "base", "dumps", "--all"}, "dumps/cut: ");
    std::filesystem::remove(directory.path() / "dumps" / "cut");

    support::write_file(directory.path() / "base", before + "<<<<<<< HEAD\n");
    EXPECT_EQ(run({"bless", "base", "dumps", "--all"}).err,
              "vorna-kernels: base: line 5: unresolved merge conflict\n");
    EXPECT_EQ(run({"check", "base", "dumps"}).exit_status, 2);
    EXPECT_EQ(text(), before + "<<<<<<< HEAD\n");
    support::write_file(directory.path() / "base", before);
    const child_result forced = run({"bless", "base", "dumps", "--all", "--force"}, "true");
    EXPECT_EQ(forced.exit_status, 0) << forced;
    EXPECT_NE(text(), before);
}

TEST_F(BaselineCommand, ComparesTheOthersWhenADumpCannotBeRead)
{
    bless_all();
    support::write_file(directory.path() / "dumps" / "a",
                        contents(directory.path() / "dumps" / "b").substr(0, 100));
    const child_result check = run({"check", "base", "dumps"});
    EXPECT_EQ(check.exit_status, 2);
    EXPECT_THAT(check.err, HasSubstr("vorna-kernels: dumps/a: "));
    EXPECT_THAT(check.out,
                HasSubstr("base:2: a: not in the dumps, 2 instructions\n3 kernels: 2 same, 1 removed\n"));
}

TEST_F(BaselineCommand, QuotesWhatTheShellWouldTakeApart)
{
    bless_all();
    dump("it's a kernel", {a64::ret()}, {});
    EXPECT_THAT(run({"check", "base", "dumps"}).out,
                HasSubstr("to accept: vorna-kernels baseline bless base dumps 'it'\\''s a kernel'\n"));
    dump("line\nbreak", {a64::ret()}, {});
    EXPECT_THAT(run({"check", "base", "dumps"}).out,
                HasSubstr("line\\nbreak: not in the baseline, 1 instruction\n"));
    EXPECT_THAT(run({"check", "base", "dumps"}).out, HasSubstr("baseline bless base dumps --all\n"));
}

TEST_F(BaselineCommand, KeepsListingsBesideIt)
{
    const std::vector<std::string> check = {"check", "base", "dumps", "--listing=listings"};
    const std::vector<std::string> bless = {"bless", "base", "dumps", "--all", "--listing=listings"};
    const child_result among_dumps = run({"bless", "base", "dumps", "--all", "--listing=./dumps"});
    EXPECT_EQ(among_dumps.exit_status, 2);
    EXPECT_EQ(among_dumps.err,
              "vorna-kernels: ./dumps: is the directory of the dumps, which cannot hold listings\n");
    dump("../up", {a64::ret()}, {}, {}, "other");
    std::filesystem::rename(directory.path() / "up", directory.path() / "dumps" / "up");
    ASSERT_EQ(run(bless).exit_status, 0);
    EXPECT_THAT(support::names_in(directory.path() / "listings"),
                UnorderedElementsAre("a.txt", "b.txt", "c.txt", "%2e.%2fup.txt"));
    EXPECT_EQ(contents(directory.path() / "listings" / "b.txt"),
              "b  8 bytes, 2 instructions; data 8 bytes\n"
              " +00  10000000  adr   x0, .rodata\n"
              " +04  d65f03c0  ret\n"
              "relocations:\n"
              " +0x0  R_AARCH64_ADR_PREL_LO21  .rodata +0\n"
              "constants:\n"
              " +0  0807060504030201\n");
    EXPECT_EQ(run(check).exit_status, 0) << run(check);

    // Another disassembler's words for the same instruction are no difference, another instruction is.
    std::string listing = contents(directory.path() / "listings" / "a.txt");
    listing.replace(listing.find("mov "), 4, "movz");
    support::write_file(directory.path() / "listings" / "a.txt", listing);
    EXPECT_EQ(run(check).exit_status, 0);
    listing.replace(listing.find("d2800020"), 8, "d2800040");
    support::write_file(directory.path() / "listings" / "a.txt", listing);
    std::filesystem::remove(directory.path() / "listings" / "c.txt");
    EXPECT_EQ(run(check).exit_status, 1);
    EXPECT_EQ(run(check).out, "base:3: a: same, but its listing is out of date\n"
                              "base:5: c: same, but its listing is missing\n"
                              "4 kernels: 4 same; 2 listings out of date\n"
                              "to accept: vorna-kernels baseline bless --listing=listings base dumps a c\n");
    ASSERT_EQ(run({"bless", "--listing=listings", "base", "dumps", "a", "c"}).exit_status, 0);
    EXPECT_EQ(run(check).exit_status, 0);

    std::filesystem::remove(directory.path() / "dumps" / "c");
    ASSERT_EQ(run(bless).exit_status, 0);
    EXPECT_THAT(support::names_in(directory.path() / "listings"),
                UnorderedElementsAre("a.txt", "b.txt", "%2e.%2fup.txt"));
}

TEST_F(BaselineCommand, LeavesTheOldOrTheNewBaselineWholeWhenItIsKilled)
{
    for (int i = 0; i < 300; ++i)
        dump("kernel_" + std::to_string(i), {a64::movz(0, static_cast<unsigned>(i)), a64::ret()}, {});
    bless_all();
    const std::string before = text();
    for (int i = 0; i < 300; ++i)
        dump("kernel_" + std::to_string(i), {a64::movz(1, static_cast<unsigned>(i)), a64::ret()}, {});
    bless_all();
    const std::string after = text();
    ASSERT_NE(before, after);

    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round) {
        support::write_file(directory.path() / "base", before);
        const std::string seconds =
            std::to_string(std::uniform_real_distribution<double>(0.001, 0.04)(random));
        support::run_tool({"timeout", "-s", "KILL", seconds, "env", "CI=", VORNA_KERNELS, "baseline", "bless",
                           "base", "dumps", "--all"},
                          directory.path());
        const std::string now = text();
        ASSERT_TRUE(now == before || now == after) << "killed after " << seconds << " s";
    }

    // A file that may not become as long as the new one.
    support::write_file(directory.path() / "base", before);
    const child_result limited = support::run_tool({"prlimit", "--fsize=1000", "env", "CI=", VORNA_KERNELS,
                                                    "baseline", "bless", "base", "dumps", "--all"},
                                                   directory.path());
    EXPECT_NE(limited.exit_status, 0);
    EXPECT_EQ(text(), before);
}

TEST_F(BaselineCommand, MergesWhatTwoBranchesAccepted)
{
    for (int i = 0; i < 6; ++i)
        dump("k" + std::to_string(i), {a64::ret()}, {});
    bless_all();
    const auto copy = [&](const std::string& to) {
        std::filesystem::copy_file(directory.path() / "base", directory.path() / to);
    };
    copy("ancestor");
    dump("k1", {a64::nop(), a64::ret()}, {});
    dump("k1a", {a64::ret()}, {});
    bless_all();
    copy("ours");
    dump("k1", {a64::ret()}, {});
    std::filesystem::remove(directory.path() / "dumps" / "k1a");
    dump("k4", {a64::ret()}, {7});
    bless_all();
    copy("theirs");
    const child_result merge =
        support::run_tool({"git", "merge-file", "ours", "ancestor", "theirs"}, directory.path());
    ASSERT_EQ(merge.exit_status, 0) << merge;

    dump("k1", {a64::nop(), a64::ret()}, {});
    dump("k1a", {a64::ret()}, {});
    EXPECT_EQ(run({"check", "ours", "dumps"}).out, "10 kernels: 10 same\n");
}

} // namespace
