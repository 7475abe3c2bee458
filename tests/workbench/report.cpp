// The report's page as it is written: its text, what the command says, and what it does with bad input. How
// it looks and works in a browser is tested by report_browser.py.

#include "workbench/report.hpp"
#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/html.hpp"
#include "workbench/report_listing.hpp"

#include <elf.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace {

using namespace support;
using namespace vorna::workbench;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

placed_kernel placed(const std::string& name, std::uint64_t text, const std::vector<std::uint32_t>& words,
                     std::uint64_t data = 0, std::vector<std::uint8_t> data_bytes = {},
                     std::vector<tessjit::reloc_info> relocs = {})
{
    return {name, text, code(words), data, std::move(data_bytes), std::move(relocs), 0, ""};
}

/// wfta_3 and wfta_12, which calls it, with a loop and constants.
kernel_set two_kernels()
{
    return make_kernel_set(
        {placed("wfta_3", 0x10000, {a64::nop(), a64::ret()}, 0x10080, {1, 2, 3, 4, 5, 6, 7, 8}),
         placed("wfta_12", 0x10020, {a64::nop(), a64::bl(), 0xb5ffffc5, a64::ret()}, 0x10088, {9},
                {{"wfta_3", 4, R_AARCH64_CALL26, 0}})});
}

std::string page_of(const kernel_set& set)
{
    report_input input;
    input.name = "dumps";
    input.set = &set;
    return report_page(input);
}

std::string data_of(const std::string& page)
{
    const std::string begin = R"(<script type="application/json" id=":data">)";
    const std::size_t at = page.find(begin) + begin.size();
    return page.substr(at, page.find("</script>", at) - at);
}

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

// ---- Text in HTML

TEST(Html, HasNothingThatHtmlGivesAMeaning)
{
    EXPECT_EQ(html("a < b && c > d"), "a &lt; b &amp;&amp; c &gt; d");
    EXPECT_EQ(html("\" onclick='x'"), "&quot; onclick=&#39;x&#39;");
    EXPECT_EQ(html("tab\tline\n\x7f"), "tab\\tline\\n\\x7f");
    EXPECT_EQ(html("\xe2\x80\xa8 \xff<"), "\xe2\x80\xa8 \xef\xbf\xbd&lt;");
    EXPECT_EQ(html("plain text"), "plain text");
    for (const auto& [character, reference] :
         {std::pair("<", "&lt;"), {">", "&gt;"}, {"&", "&amp;"}, {"\"", "&quot;"}, {"'", "&#39;"}})
        EXPECT_EQ(html(character), reference);
}

TEST(Html, JsonCannotEndItsElement)
{
    EXPECT_EQ(json_in_html(R"({"name":"</script><!--"})"), R"({"name":"\u003c/script>\u003c!--"})");
}

TEST(Html, FragmentIsTheNameWhereItCanBe)
{
    EXPECT_EQ(fragment("wfta_short-3.a"), "wfta_short-3.a");
    EXPECT_EQ(fragment("a+0x4: %\xff"), "a%2B0x4%3A%20%25%FF");
}

TEST(Html, PercentHasDigitsWhereItIsSmall)
{
    EXPECT_EQ(percent(0), "0");
    EXPECT_EQ(percent(1e-9), "<0.01");
    EXPECT_EQ(percent(0.0001), "0.01");
    EXPECT_EQ(percent(0.0094), "0.94");
    EXPECT_EQ(percent(0.0096), "1.0");
    EXPECT_EQ(percent(0.12345), "12.3");
    EXPECT_EQ(percent(1), "100.0");
}

TEST(Report, HeatStepsAreHalves)
{
    EXPECT_EQ(heat_step(0, 1000), 0);
    EXPECT_EQ(heat_step(1, 1000), 1);
    EXPECT_EQ(heat_step(250, 1000), 5);
    EXPECT_EQ(heat_step(251, 1000), 6);
    EXPECT_EQ(heat_step(500, 1000), 6);
    EXPECT_EQ(heat_step(501, 1000), 7);
    EXPECT_EQ(heat_step(1000, 1000), 7);
    EXPECT_EQ(heat_step(1, 1), 7);
    EXPECT_EQ(heat_step(std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::uint64_t>::max()),
              7);
}

// ---- The page

TEST(Report, HoldsTheFactsOfEachKernel)
{
    const std::string page = page_of(two_kernels());
    const nlohmann::json data = nlohmann::json::parse(data_of(page));
    EXPECT_EQ(data["version"], 1);
    const nlohmann::json& kernel = data["kernels"][1];
    EXPECT_EQ(kernel["id"], "wfta_12");
    EXPECT_EQ(kernel["address"], "0x0000000000010020");
    EXPECT_EQ(kernel["code"], 16);
    EXPECT_EQ(kernel["data"], 1);
    EXPECT_EQ(kernel["instructions"], 4);
    EXPECT_EQ(kernel["branch"], 3); // bl, cbnz, ret
    EXPECT_EQ(kernel["callees"], nlohmann::json::array({0U}));
    EXPECT_EQ(kernel["calls"], 1);
    EXPECT_EQ(kernel["callers"], 0);
    EXPECT_EQ(data["kernels"][0]["calls"], 0);
    EXPECT_EQ(data["kernels"][0]["callers"], 1);
    EXPECT_THAT(page, HasSubstr("<title>Kernels of dumps</title>"));
    EXPECT_THAT(
        page, HasSubstr("<p class=\"facts\">0x10020 · 16 bytes of code, 4 instructions · 1 byte of constants "
                        "at 0x10088 · calls <a href=\"#wfta_3\"><bdi>wfta_3</bdi></a></p>"));
}

TEST(Report, GivesEachInstructionAPlaceAndALinkToWhereItLeads)
{
    const std::string page = page_of(two_kernels());
    EXPECT_THAT(page, HasSubstr("<tr id=\"wfta_12+0x4\">"));
    EXPECT_THAT(page, HasSubstr("<a href=\"#wfta_12+0x4\">+04</a>"));
    EXPECT_THAT(page, HasSubstr("bl    <a href=\"#wfta_3\">wfta_3</a>"));
    EXPECT_THAT(page, HasSubstr("cbnz  x5, <a href=\"#wfta_12+0x0\">.L0</a>"));
    EXPECT_THAT(page, HasSubstr("<td class=\"after label\">.L0:</td>"));
    EXPECT_EQ(count(page, "<path class=\"back\""), 1U);
    // From the third row's middle to the first's.
    EXPECT_THAT(page, HasSubstr("<path class=\"back\" d=\"M16 50H3V10H12\"/>"));
}

TEST(Report, ShowsConstantsAsBytesAndNumbers)
{
    const kernel_set set = make_kernel_set({placed(
        "k", 0x10000, {a64::ret()}, 0x10020, {0, 0, 0, 0, 0, 0, 0xf8, 0xbf, 1, 0, 0, 0, 2, 0, 0, 0, 7})});
    const std::string page = page_of(set);
    EXPECT_THAT(
        page,
        HasSubstr("<tr><td>+00</td><td>00 00 00 00 00 00 f8 bf</td><td>-1.5</td><td>0</td><td>-1.9375</td>"
                  "<td>0</td><td>-1074266112</td></tr>"));
    EXPECT_THAT(page, HasSubstr("<td>1</td><td>2</td></tr><tr><td>+10</td><td>07</td></tr>"));
    EXPECT_THAT(page, HasSubstr("<details><summary>Constants, 17 bytes</summary>"));
}

TEST(Report, ShowsConstantsThatChangedBesideWhatTheyWere)
{
    const auto set_with = [](std::vector<std::uint8_t> data) {
        return make_kernel_set({placed("k", 0x10000, {a64::ret()}, 0x10020, std::move(data))});
    };
    const kernel_set before = set_with({0, 0, 0, 0, 0, 0, 0xf0, 0x3f, 0, 0, 0, 0, 0, 0, 0xf8, 0xbf, 7});
    const auto compared = [&](const kernel_set& set) {
        report_input input;
        input.name = "dumps";
        input.set = &set;
        input.against_name = "before";
        input.against = &before;
        return report_page(input);
    };
    const std::string changed =
        compared(set_with({0, 0, 0, 0, 0, 0, 0xf0, 0x3f, 0, 0, 0, 0, 0, 0, 0xf4, 0xbf}));
    EXPECT_THAT(changed, HasSubstr("<details open><summary>Constants, 16 bytes</summary>"));
    EXPECT_THAT(changed, HasSubstr("<th colspan=\"2\">before</th></tr></thead><tbody><tr><td>+00</td>"));
    EXPECT_THAT(changed,
                HasSubstr("<tr class=\"differs\"><td>+08</td><td>00 00 00 00 00 00 f4 bf</td><td>-1.25</td>"
                          "<td>0</td><td>-1.90625</td><td>0</td><td>-1074528256</td>"
                          "<td>00 00 00 00 00 00 f8 bf</td><td>-1.5</td></tr>"));
    EXPECT_THAT(changed,
                HasSubstr("<tr class=\"differs\"><td>+10</td><td></td><td></td><td></td><td></td><td></td>"
                          "<td></td><td>07</td><td></td></tr></tbody>"));
    EXPECT_THAT(
        changed,
        HasSubstr("<strong>1 kernel differs</strong><dl><dt>1</dt><dd><span class=\"change constants\">"
                  "constants</span>: <a href=\"#k\"><bdi>k</bdi></a></dd></dl>"));
    const std::string same = compared(before);
    EXPECT_THAT(same, HasSubstr("<details><summary>Constants, 17 bytes</summary>"));
    EXPECT_THAT(same, testing::Not(HasSubstr(">before</th>")));
}

TEST(Report, ShowsFindingsAtTheirKernelAndInstruction)
{
    const kernel_set set = two_kernels();
    report_input input;
    input.name = "dumps";
    input.set = &set;
    vorna::wfta::kernel_finding finding{};
    finding.id = "opcode";
    finding.severity = vorna::wfta::finding_severity::error;
    finding.kernel = "wfta_12";
    finding.offset = 8;
    finding.message = "not <this>";
    finding.advice = "that";
    input.findings = {finding};
    const std::string page = report_page(input);
    EXPECT_THAT(
        page, HasSubstr("<a href=\"#wfta_12+0x8\">wfta_12+0x8</a></bdi>: <span class=\"error\">error</span>: "
                        "not &lt;this&gt; [opcode]; that</li>"));
    EXPECT_THAT(page,
                HasSubstr("<td class=\"mark\"><span class=\"error\" title=\"not &lt;this&gt;\">✖</span></td>"
                          "<td class=\"after offset\"><a href=\"#wfta_12+0x8\">"));
    EXPECT_THAT(page, HasSubstr("<strong class=\"bad\">1 finding</strong>"));
    EXPECT_EQ(nlohmann::json::parse(data_of(page))["kernels"][1]["errors"], 1);
}

TEST(Report, OfTwoHundredKernelsHoldsTheListingsAndOfMoreWhatTheyAreDrawnFrom)
{
    std::vector<placed_kernel> kernels;
    for (unsigned i = 0; i < 201; ++i)
        kernels.push_back(placed("k" + std::to_string(i), 0x10000 + 32 * i, {a64::nop(), a64::ret()}));
    const std::string large = page_of(make_kernel_set(kernels));
    EXPECT_EQ(count(large, "<article id="), 201U);
    EXPECT_EQ(count(large, " class=\"undrawn\" style=\"--rows:2\""), 201U);
    EXPECT_EQ(count(large, "<tr class=\"beyond\">"), 1U);
    EXPECT_EQ(count(large, "<table class=\"rows\">"), 0U);
    kernels.pop_back();
    const std::string small = page_of(make_kernel_set(kernels));
    EXPECT_EQ(count(small, "undrawn\" style"), 0U);
    EXPECT_EQ(count(small, "<tr class=\"beyond\">"), 0U);
    EXPECT_EQ(count(small, "<table class=\"rows\">"), 200U);
}

TEST(Report, DoesNotListAKernelThatIsTooLong)
{
    std::vector<std::uint32_t> words(50001, a64::nop());
    EXPECT_THAT(page_of(make_kernel_set({placed("long", 0x10000, words)})),
                AllOf(HasSubstr("<p>More than 50,000 instructions: too long to be listed here.</p>"),
                      Not(HasSubstr("long+0x4"))));
    words.pop_back();
    EXPECT_THAT(page_of(make_kernel_set({placed("long", 0x10000, words)})), HasSubstr("long+0x4"));
}

TEST(Report, GivesKernelsOfOneNameAndOfNoNameIdsOfTheirOwn)
{
    const std::string page = page_of(make_kernel_set(
        {placed("twice", 0x10000, {a64::ret()}), placed("twice", 0x10020, {a64::ret()}),
         placed("", 0x10040, {a64::ret()}), placed(std::string(1000, '+'), 0x10060, {a64::ret()})}));
    for (const char* id : {"twice", "kernel:1", "kernel:2", "kernel:3"})
        EXPECT_EQ(count(page, fmt::format("<article id=\"{}\"", id)), 1U) << id;
}

TEST(Report, SurvivesASetOfOddKernels)
{
    // No code at all, no mapping's length, a circle of calls, bytes behind the last word, a call of nobody.
    const kernel_set set =
        make_kernel_set({placed("empty", 0, {}),
                         placed("a", 0x10000, {a64::bl()}, 0x10020, {}, {{"b", 0, R_AARCH64_CALL26, 0}}),
                         placed("b", 0x10010, {a64::bl(), a64::bl()}, 0x10020, {},
                                {{"a", 0, R_AARCH64_CALL26, 0}, {"nobody", 4, R_AARCH64_CALL26, 0}})});
    const std::string page = page_of(set);
    EXPECT_EQ(count(page, "<article id="), 3U);
    EXPECT_THAT(page, Not(HasSubstr("nan")));
}

// ---- The command

class ReportCommand : public testing::Test {
protected:
    ReportCommand()
    {
        std::filesystem::create_directory(directory.path() / "dumps");
        dump("dumps/wfta_3", "wfta_3", 0x10000);
        dump("dumps/wfta_4", "wfta_4", 0x10020);
    }

    void dump(const std::string& file, const std::string& name, std::uint64_t text) const
    {
        tessjit::elf_data elf;
        elf.fns.emplace_back(name, address(text), code({a64::ret()}), address(text + 0x80),
                             std::vector<std::uint8_t>(8, 1), std::vector<tessjit::reloc_info>());
        write_file(directory.path() / file, to_string(tessjit::emit_elf(elf)));
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "report"});
        return run_tool(std::move(arguments), directory.path());
    }

    void expect_trouble(std::vector<std::string> arguments, const std::string& line) const
    {
        const child_result result = run(std::move(arguments));
        EXPECT_EQ(result.exit_status, 2) << result;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "vorna-kernels: " + line + "\n");
    }

    [[nodiscard]] std::string page() const { return contents(directory.path() / "page.html"); }

    temp_directory directory;
};

TEST_F(ReportCommand, WritesThePageAndSaysSo)
{
    const child_result result = run({"dumps", "-o", "page.html"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_THAT(result.out, MatchesRegex("page\\.html: 2 kernels, 1 mapping, [0-9]+ KiB\n"));
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(page(), HasSubstr("<title>Kernels of dumps</title>"));
    EXPECT_THAT(names_in(directory.path()), ElementsAre("dumps", "page.html"));

    const child_result json = run({"dumps", "-o", "page.html", "--format=json"});
    EXPECT_EQ(nlohmann::json::parse(json.out), nlohmann::json({{"version", 1},
                                                               {"page", "page.html"},
                                                               {"bytes", page().size()},
                                                               {"kernels", 2},
                                                               {"mappings", 1},
                                                               {"event", nullptr}}));
}

TEST_F(ReportCommand, AddsTheFindingsOfCheck)
{
    dump("dumps/odd", "odd/name", 0x10040);
    EXPECT_EQ(run({"dumps", "-o", "page.html"}).exit_status, 0);
    EXPECT_THAT(page(), HasSubstr("[name-file]"));
}

TEST_F(ReportCommand, AddsAProfileAndAComparison)
{
    write_file(
        directory.path() / "text",
        "    7     1.000000: PERF_RECORD_MMAP2 7/7: [0x10000(0x1000) @ 0x10000 00:00 0 0]: rwxp //anon\n"
        "    7     1.100000:        300 cycles:u:             10000\n"
        "    7     1.200000:        100 cycles:u:             10020\n"
        "    7     1.300000:          5   faults:             10020\n");
    std::filesystem::create_directory(directory.path() / "old");
    dump("old/wfta_3", "wfta_3", 0x20000);
    child_result result = run({"dumps", "-o", "page.html", "--perf-script=text", "--against", "old"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_THAT(result.out, HasSubstr(", profile cycles:u, "));
    nlohmann::json data = nlohmann::json::parse(data_of(page()));
    EXPECT_EQ(data["kernels"][0]["share"], 75);
    EXPECT_EQ(data["kernels"][0]["change"], "same");
    EXPECT_EQ(data["kernels"][0]["delta"], 0);
    EXPECT_EQ(data["kernels"][1]["change"], "new");
    EXPECT_EQ(data["kernels"][1]["delta"], nullptr);
    EXPECT_THAT(page(), HasSubstr("<h2>Against old</h2><strong>1 kernel differs</strong>"));

    result = run({"dumps", "-o", "page.html", "--perf-script=text", "--event=faults"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_EQ(nlohmann::json::parse(data_of(page()))["kernels"][1]["share"], 100);
}

TEST_F(ReportCommand, WritesWhatIsLeftWhereADumpIsBad)
{
    write_file(directory.path() / "dumps/bad", "\177ELF");
    const child_result result = run({"dumps", "-o", "page.html"});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_THAT(result.err, MatchesRegex("vorna-kernels: dumps/bad: [^\n]+\n"));
    EXPECT_EQ(nlohmann::json::parse(data_of(page()))["kernels"].size(), 2U);
}

TEST_F(ReportCommand, ShowsNoShareOfSamplesWithoutWeight)
{
    write_file(
        directory.path() / "text",
        "    7     1.000000: PERF_RECORD_MMAP2 7/7: [0x10000(0x1000) @ 0x10000 00:00 0 0]: rwxp //anon\n"
        "    7     1.100000:          0 cycles:u:             10000\n");
    EXPECT_EQ(run({"dumps", "-o", "page.html", "--perf-script=text"}).exit_status, 0);
    EXPECT_THAT(page(), HasSubstr("<strong>0 % in kernels</strong>"));
    EXPECT_THAT(page(), HasSubstr("\"share\":0.0,\"samples\":1"));
    EXPECT_THAT(page(), Not(HasSubstr("nan%")));
}

TEST_F(ReportCommand, LeavesTheOldPageInTrouble)
{
    write_file(directory.path() / "page.html", "old");
    std::filesystem::create_directory(directory.path() / "none");
    write_file(
        directory.path() / "other",
        "    7     1.000000: PERF_RECORD_MMAP2 7/7: [0x90000(0x1000) @ 0x90000 00:00 0 0]: rwxp //anon\n"
        "    7     1.100000:        300 cycles:u:             90000\n");
    expect_trouble({"none", "-o", "page.html"}, "none: no dumps in it");
    expect_trouble({"dumps", "-o", "page.html", "--against=none"}, "none: no dumps in it");
    const child_result other = run({"dumps", "-o", "page.html", "--perf-script=other"});
    EXPECT_EQ(other.exit_status, 2);
    EXPECT_THAT(other.err, MatchesRegex("vorna-kernels: other: [^\n]+\n"));
    expect_trouble({"dumps", "-o", "nowhere/page.html"}, "nowhere/page.html: No such file or directory");
    expect_trouble({"dumps", "-o", "/dev/full"}, "/dev/full: not a regular file");
    EXPECT_EQ(page(), "old");
}

TEST_F(ReportCommand, DoesNotWriteThePageOverWhatItReads)
{
    std::filesystem::copy(directory.path() / "dumps", directory.path() / "before");
    write_file(directory.path() / "text", "some words\n");
    for (const char* const dumps : {"dumps", "before"}) {
        const std::string dump = dumps + ("/" + *names_in(directory.path() / dumps).begin());
        const std::string bytes = contents(directory.path() / dump);
        expect_trouble({"dumps", "--against=before", "-o", dump}, dump + ": is one of the dumps");
        EXPECT_EQ(contents(directory.path() / dump), bytes);
    }
    expect_trouble({"dumps", "--perf-script=text", "-o", "./text"}, "./text: is the profile");
    EXPECT_EQ(contents(directory.path() / "text"), "some words\n");
}

TEST_F(ReportCommand, RefusesArgumentsThatDoNotGoTogether)
{
    expect_trouble({"dumps"}, "--output is required");
    expect_trouble({"dumps", "-o", "page.html", "--event=cycles"}, "--event: there is no profile");
    expect_trouble({"dumps", "-o", "page.html", "--profile=a", "--perf-script=b"},
                   "--profile excludes --perf-script");
}

} // namespace
