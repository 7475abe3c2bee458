// The page's model, and how the page contains it. How it looks and works in a browser is tested by
// page_browser.py; what the command prints is in cli/cases/report.t.

#include "workbench/render/page/page.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/analysis/difference.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/render/page/page_model.hpp"
#include "workbench/text/percent.hpp"

#include <elf.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace support;
using namespace vorna::workbench;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// wfta_3 and wfta_12, which calls it, with a loop and constants.
kernel_set two_kernels()
{
    return make_kernel_set(
        {placed("wfta_3", 0x10000, {a64::nop(), a64::ret()}, {}, {1, 2, 3, 4, 5, 6, 7, 8}, 0x10080),
         placed("wfta_12", 0x10020, {a64::nop(), a64::bl(), 0xb5ffffc5, a64::ret()},
                {{"wfta_3", 4, R_AARCH64_CALL26, 0}}, {9}, 0x10088)});
}

page_input input_of(const kernel_set& set)
{
    page_input input;
    input.name = "dumps";
    input.set = &set;
    return input;
}

nlohmann::json overview_of(const page_input& input)
{
    return nlohmann::json::parse(make_page_model(input).overview);
}

nlohmann::json listing_of(const page_input& input, std::size_t kernel)
{
    return nlohmann::json::parse(make_page_model(input).listings.at(kernel));
}

/// The element of the page with that id; there must be exactly one.
std::string element_of(const std::string& page, const std::string& id)
{
    const std::string begin = "<script type=\"application/json\" id=\"" + id + "\">";
    const std::size_t at = page.find(begin);
    EXPECT_NE(at, std::string::npos) << id;
    EXPECT_EQ(page.find(begin, at + 1), std::string::npos) << id;
    const std::size_t content = at + begin.size();
    return page.substr(content, page.find("</script>", content) - content);
}

using array = nlohmann::json;

// ---- Text

TEST(Fragment, IsTheNameIfPossible)
{
    EXPECT_EQ(fragment("wfta_short-3.a"), "wfta_short-3.a");
    EXPECT_EQ(fragment("a+0x4: %\xff"), "a%2B0x4%3A%20%25%FF");
}

// ---- The model

TEST(PageModel, HasTheFactsOfEachKernel)
{
    const kernel_set set = two_kernels();
    nlohmann::json model = overview_of(input_of(set));
    EXPECT_EQ(model["version"], 2);
    EXPECT_EQ(model["name"], "dumps");
    EXPECT_EQ(model["kernels"][1]["interface"]["calls"], array({"wfta_3"}));
    model["kernels"][1].erase("interface");
    EXPECT_EQ(model["kernels"][1], nlohmann::json::parse(R"({
        "id": "wfta_12", "name": "wfta_12", "address": "0x10020", "data_address": "0x10088",
        "mapping": 0, "at": 32, "data_at": 136, "code": 16, "data": 1, "instructions": 4,
        "load": 0, "store": 0, "fp": 0, "integer": 0, "branch": 3, "callees": [0], "spills": 0})"));
    EXPECT_EQ(model["kernels"][0]["callees"], array::array());
    EXPECT_FALSE(model.contains("classes"));
    EXPECT_FALSE(model.contains("profile"));
}

TEST(PageModel, HasTheInterfaceOfEachKernel)
{
    const std::vector<placed_kernel> kernels = kernels_of(R"(kernel inner
        fadd v0.2d, v1.2d, v2.2d
        ret
kernel outer
        mov x5, x30
        blr x3
        bl inner
        ptrue p1.d
        ld1d { z7.d }, p1/z, [x0]
        ret x5
)");
    const kernel_set set = make_kernel_set(kernels);
    const nlohmann::json model = overview_of(input_of(set));
    const nlohmann::json inner = model["kernels"][0]["interface"];
    EXPECT_EQ(inner["reads"], array({"v1", "v2"}));
    EXPECT_EQ(inner["writes"], array({"v0"}));
    EXPECT_EQ(inner["calls"], array::array());
    EXPECT_EQ(inner["needs"], array({"neon"}));
    EXPECT_EQ(inner["live"]["vector"], nlohmann::json({{"most", 2}, {"offset", 0}}));
    const nlohmann::json outer = model["kernels"][1]["interface"];
    EXPECT_EQ(outer["calls"], array({"x3", "inner"}));
    EXPECT_EQ(outer["needs"], array({"sve"}));
    EXPECT_EQ(outer["live"]["predicate"], nlohmann::json({{"most", 1}, {"offset", 16}}));
    // The page has links to kernels, so only calls through registers are in the text.
    EXPECT_THAT(listing_of(input_of(set), 1)["interface"],
                AllOf(HasSubstr("; calls x3; "), HasSubstr(" 1 predicate (+10)")));
    EXPECT_THAT(listing_of(input_of(set), 0)["interface"], HasSubstr("reads v1, v2; writes v0; "));
}

TEST(PageModel, HasTheInterfaceOfARemovedKernelFromBefore)
{
    const kernel_set before = make_kernel_set(kernels_of("kernel old\n ldr x0, [x1]\n ret\n"));
    const kernel_set set = two_kernels();
    page_input input = input_of(set);
    input.against = &before;
    EXPECT_EQ(overview_of(input)["kernels"][2]["interface"]["reads"], array({"x1"}));
}

TEST(PageModel, CountsGapsBetweenNeighboursAsPaddingAndOthersAsUnknown)
{
    // Gaps of 31 and 32 bytes, one before the first kernel of the mapping, and one before the constants.
    const kernel_set set = make_kernel_set({
        placed("a", 0x10040, {a64::ret()}, {}, {1, 2, 3, 4}, 0x10200),
        placed_bytes("b", 0x10044 + 31, 1, 0x10210, 2),
        placed_bytes("c", 0x10064 + 32, 1, 0x10212),
    });
    ASSERT_EQ(set.mappings.size(), 1U);
    const nlohmann::json mapping = overview_of(input_of(set))["mappings"][0];
    EXPECT_EQ(mapping["address"], "0x10000");
    EXPECT_EQ(mapping["size"], 0x212);
    EXPECT_EQ(mapping["padding"], 31 + 12); // after a's code, after a's data
    // Before a; between b and c; between c and the first constants.
    EXPECT_EQ(mapping["unknown"], array({{0, 0x40}, {0x64, 32}, {0x85, 0x200 - 0x85}}));
}

TEST(PageModel, AccountsForEveryByteOfAMapping)
{
    const kernel_set set = two_kernels();
    const nlohmann::json model = overview_of(input_of(set));
    std::size_t bytes = model["mappings"][0]["padding"];
    for (const nlohmann::json& gap : model["mappings"][0]["unknown"])
        bytes += gap[1].get<std::size_t>();
    for (const nlohmann::json& kernel : model["kernels"])
        bytes += kernel["code"].get<std::size_t>() + kernel["data"].get<std::size_t>();
    EXPECT_EQ(bytes, set.mappings[0].end - set.mappings[0].begin);
    EXPECT_EQ(bytes, model["mappings"][0]["size"]);
}

TEST(PageModel, ListsRowsWithLabelsTargetsAndCalls)
{
    const kernel_set set = two_kernels();
    const nlohmann::json listing = listing_of(input_of(set), 1);
    EXPECT_EQ(listing["rows"]["words"], array({"d503201f", "97fffff7", "b5ffffc5", "d65f03c0"}));
    EXPECT_EQ(listing["rows"]["texts"], array({"nop", "bl wfta_3", "cbnz x5, .L0", "ret"}));
    EXPECT_EQ(listing["rows"]["labels"], array({{0, ".L0"}}));
    EXPECT_EQ(listing["rows"]["targets"], array({{2, 0}}));
    EXPECT_EQ(listing["rows"]["calls"], array({{1, 0}}));
    EXPECT_EQ(listing["constants"], "09");
    EXPECT_FALSE(listing.contains("before"));
    EXPECT_FALSE(listing.contains("heat"));
}

TEST(PageModel, HasBothSidesOfAChangedKernelAndTheirAlignment)
{
    const kernel_set before = make_kernel_set(
        {placed("k", 0x10000, {a64::nop(), 0xaa0003e2, 0xaa0003e3, 0xaa0003e4, a64::ret()}, {}, {1}, 0x10020),
         placed("removed", 0x10040, {a64::ret()}), placed("same", 0x10060, {a64::ret()})});
    const kernel_set set = make_kernel_set(
        {placed("k", 0x20000, {a64::nop(), 0xaa0003e2, 0x910042b5, 0xaa0003e4, a64::nop(), a64::ret()}, {},
                {2}, 0x20020),
         placed("added", 0x20040, {a64::ret()}), placed("same", 0x20060, {a64::ret()})});
    page_input input = input_of(set);
    input.against = &before;
    input.against_name = "old";
    const page_model made = make_page_model(input);
    const nlohmann::json model = nlohmann::json::parse(made.overview);
    EXPECT_EQ(model["against"], "old");
    EXPECT_EQ(model["kernels"].size(), 4U);
    for (const auto& [index, name, change] : {std::tuple(0U, "k", "code"),
                                              {1, "added", "added"},
                                              {2, "same", "same"},
                                              {3, "removed", "removed"}}) {
        EXPECT_EQ(model["kernels"][index]["name"], name);
        EXPECT_EQ(model["kernels"][index]["class"], change);
    }
    EXPECT_EQ(model["kernels"][0]["delta"], 1);
    EXPECT_FALSE(model["kernels"][1].contains("delta"));
    EXPECT_FALSE(model["kernels"][3].contains("mapping"));
    EXPECT_EQ(model["classes"].front()["name"], "code");
    EXPECT_EQ(model["classes"].back()["name"], "same");

    const nlohmann::json listing = nlohmann::json::parse(made.listings[0]);
    EXPECT_EQ(listing["runs"], array({{2, 1, 1}, {1, 0, 1}, {1, 0, 0}}));
    EXPECT_EQ(listing["before"]["texts"][2], "mov x3, x0");
    EXPECT_EQ(listing["rows"]["texts"][2], "add x21, x21, #16");
    EXPECT_EQ(listing["complete"], true);
    EXPECT_EQ(listing["constants_before"], "01");
    EXPECT_EQ(listing["constants"], "02");
    EXPECT_EQ(listing["constants_differ"], true);
    for (const std::size_t unchanged : {1U, 2U, 3U})
        EXPECT_FALSE(nlohmann::json::parse(made.listings[unchanged]).contains("before"));
}

TEST(PageModel, HasALookForEachClassOfChanges)
{
    const kernel_set set = two_kernels();
    page_input input = input_of(set);
    input.against = &set;
    std::vector<std::string> names;
    const nlohmann::json model = overview_of(input);
    for (const nlohmann::json& one : model["classes"])
        names.push_back(one["name"]);
    std::vector<std::string> expected;
    for (int change = 0; change <= static_cast<int>(change_class::removed); ++change)
        expected.emplace_back(name_of(static_cast<change_class>(change)));
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(expected));
}

TEST(PageModel, HasEverySampleOfTheProfile)
{
    const kernel_set set = two_kernels();
    event_profile profile;
    profile.event = "cycles:u";
    profile.total = {9, 1000};
    profile.in_kernels = {8, 900};
    profile.elsewhere = {1, 100};
    profile.kernels = {{1, {6, 600}, {{0, {1, 100}}, {4, {3, 300}}, {6, {1, 150}}, {12, {1, 50}}}},
                       {0, {2, 300}, {{4, {2, 300}}}}};
    page_input input = input_of(set);
    input.profile = &profile;
    const page_model made = make_page_model(input);
    const nlohmann::json model = nlohmann::json::parse(made.overview);
    EXPECT_EQ(model["profile"]["event"], "cycles:u");
    EXPECT_EQ(model["profile"]["samples"], 9);
    EXPECT_EQ(model["profile"]["period"], 1000);
    EXPECT_EQ(model["profile"]["exact"], false);
    EXPECT_EQ(model["profile"]["in_kernels"],
              nlohmann::json({{"period", 900}, {"time", 90.0}, {"time_text", "90.0"}}));
    EXPECT_EQ(model["kernels"][1]["period"], 600);
    EXPECT_EQ(model["kernels"][1]["samples"], 6);
    EXPECT_EQ(model["kernels"][1]["time_text"], "60.0");
    const nlohmann::json heat = nlohmann::json::parse(made.listings[1])["heat"];
    // A sample in the middle of an instruction counts for it.
    EXPECT_EQ(heat, array({{0, 100, "16.7"}, {1, 450, "75.0"}, {3, 50, "8.3"}}));
    for (const kernel_profile& kernel : profile.kernels) {
        std::uint64_t sum = 0;
        const nlohmann::json listing = nlohmann::json::parse(made.listings[kernel.kernel]);
        for (const nlohmann::json& row : listing["heat"])
            sum += row[1].get<std::uint64_t>();
        EXPECT_EQ(sum, kernel.count.period);
    }
}

TEST(PageModel, HasFindingsWithTheirKernels)
{
    const kernel_set set = two_kernels();
    page_input input = input_of(set);
    vorna::wfta::kernel_finding finding{};
    finding.id = vorna::wfta::finding_id::opcode;
    finding.severity = vorna::wfta::finding_severity::error;
    finding.kernel = "wfta_12";
    finding.offset = 8;
    finding.message = "not <this>";
    finding.help = "that";
    input.findings = {finding};
    input.findings.push_back(finding);
    input.findings.back().kernel = "nobody";
    input.findings.back().offset.reset();
    EXPECT_EQ(overview_of(input)["findings"], nlohmann::json::parse(R"([
        {"id": "opcode", "severity": "error", "kernel": 1, "offset": 8, "place": "wfta_12+0x8",
         "message": "not <this>", "help": "that"},
        {"id": "opcode", "severity": "error", "place": "nobody", "message": "not <this>", "help": "that"}])"));
}

// ---- Cycles

/// A loop that is slower in one order than in the other, and a kernel that calls.
kernel_set gather_and_caller(const std::string& loop)
{
    return make_kernel_set(kernels_of("kernel gather\n1:\n" + loop + R"(
        cbnz x5, 1b
        ret
kernel calls
        str x30, [sp, #-16]!
        bl gather
        ldr x30, [sp], #16
        ret
kernel vectors
        ld1d { z0.d }, p0/z, [x0]
        ret
)"));
}

const char* const slow_order =
    "ldr w6, [x3], #4\n ldr q0, [x0, w6, uxtw #4]\n str q0, [x4], #16\n sub x5, x5, #1\n";
const char* const fast_order =
    "ldr w6, [x3], #4\n sub x5, x5, #1\n ldr q0, [x0, w6, uxtw #4]\n str q0, [x4], #16\n";

class PageCycles : public testing::Test {
protected:
    void SetUp() override
    {
        if (!has_pipeline_models())
            GTEST_SKIP() << "LLVM has no machine-code analyser";
        for (const char* const name : {"cortex-a55", "cortex-a72"})
            processors.push_back(std::make_unique<block_models>(name));
        before = gather_and_caller(slow_order);
        after = gather_and_caller(fast_order);
        input = input_of(after);
        input.processors = &processors;
    }

    model_list processors;
    kernel_set before;
    kernel_set after;
    page_input input;
};

TEST_F(PageCycles, AreThoseOfOneCallOrNull)
{
    const nlohmann::json model = overview_of(input);
    EXPECT_EQ(model["processors"], nlohmann::json::parse(R"([
        {"name": "cortex-a55", "model": "cortex-a55"}, {"name": "cortex-a72", "model": "cortex-a57"}])"));
    EXPECT_EQ(model["llvm"], llvm_version());
    EXPECT_THAT(model["estimate"].get<std::string>(),
                testing::StartsWith("estimated by LLVM " + llvm_version()));
    // The loop, and RET.
    EXPECT_EQ(model["kernels"][0]["cycles"],
              nlohmann::json({{"cortex-a55", 9.0 + 1}, {"cortex-a72", 4.0 + 1}}));
    // What calls is not modelled; nor are instructions that the processors lack.
    const nlohmann::json nothing = {{"cortex-a55", nullptr}, {"cortex-a72", nullptr}};
    EXPECT_EQ(model["kernels"][1]["cycles"], nothing);
    EXPECT_EQ(model["kernels"][2]["cycles"], nothing);
    EXPECT_FALSE(model["kernels"][0].contains("cycles_delta"));
    input.processors = nullptr;
    EXPECT_FALSE(overview_of(input).contains("processors"));
    EXPECT_FALSE(overview_of(input)["kernels"][0].contains("cycles"));
    EXPECT_FALSE(listing_of(input, 0).contains("blocks"));
}

TEST_F(PageCycles, HaveTheChangeOfAKernelInBothSets)
{
    before.kernels.pop_back();
    before = make_kernel_set(std::move(before.kernels));
    input.against = &before;
    const nlohmann::json kernels = overview_of(input)["kernels"];
    EXPECT_EQ(kernels[0]["class"], "order");
    EXPECT_EQ(kernels[0]["cycles_delta"], nlohmann::json({{"cortex-a55", -3.0}, {"cortex-a72", 0.0}}));
    EXPECT_EQ(kernels[1]["class"], "same");
    EXPECT_EQ(kernels[1]["cycles_delta"], nlohmann::json({{"cortex-a55", 0.0}, {"cortex-a72", 0.0}}));
    EXPECT_EQ(kernels[2]["class"], "added");
    EXPECT_FALSE(kernels[2].contains("cycles_delta"));
}

TEST_F(PageCycles, AreNullWhereTheChangeCannotBeSaid)
{
    before = make_kernel_set(kernels_of("kernel vectors\n ld1w { z0.s }, p0/z, [x0]\n ret\n"));
    input.against = &before;
    const nlohmann::json kernels = overview_of(input)["kernels"];
    EXPECT_EQ(kernels[2]["cycles_delta"], nlohmann::json({{"cortex-a55", nullptr}, {"cortex-a72", nullptr}}));
}

TEST_F(PageCycles, AreExplainedInTheListing)
{
    const nlohmann::json listing = listing_of(input, 0);
    ASSERT_EQ(listing["blocks"].size(), 4U); // two, on two processors
    const nlohmann::json loop = listing["blocks"][0];
    EXPECT_EQ(loop["block"], "loop +0x0");
    EXPECT_EQ(loop["cpu"], "cortex-a55");
    EXPECT_EQ(loop["cycles"], 9);
    EXPECT_EQ(loop["throughput"], 3.5);
    EXPECT_EQ(loop["limited_by"], "dependencies");
    EXPECT_EQ(loop["chain"], array({0, 8, 12}));
    EXPECT_EQ(listing["blocks"][1]["model"], "cortex-a57");
    EXPECT_EQ(listing["latencies"]["cortex-a55"], array({3, 3, 4, 1, 1, 1}));
    EXPECT_EQ(
        listing["chain"]["cortex-a55"],
        array({{0, ""},
               {2, "waits for w6 of +0x0"},
               {3, "waits for q0 of +0x8"},
               {5, "waits for B after +0x14 of the iteration before"}})); // RET, executed again and again
    // Of the kernel that calls, nothing is known.
    EXPECT_EQ(listing_of(input, 1)["blocks"][0]["not_modelled"], "calls gather at +0x4");
    EXPECT_EQ(listing_of(input, 1)["latencies"]["cortex-a72"], array({nullptr, nullptr, nullptr, nullptr}));
    EXPECT_EQ(listing_of(input, 1)["chain"]["cortex-a72"], array::array());
}

TEST_F(PageCycles, OfARemovedKernelAreThoseFromBefore)
{
    const kernel_set none = make_kernel_set(kernels_of("kernel other\n ret\n"));
    input.set = &none;
    input.against = &before;
    const nlohmann::json model = overview_of(input);
    std::map<std::string, nlohmann::json> cycles;
    for (const nlohmann::json& kernel : model["kernels"])
        cycles[kernel["name"]] = kernel["cycles"]["cortex-a55"];
    EXPECT_EQ(cycles["gather"], 12.0 + 1);
    EXPECT_EQ(cycles["other"], 1.0);
}

TEST_F(PageCycles, OfAKernelThatIsTooLongHaveNoLatencies)
{
    const kernel_set long_set =
        make_kernel_set({placed("long", 0x10000, std::vector<std::uint32_t>(50001, a64::ret()))});
    input.set = &long_set;
    EXPECT_FALSE(listing_of(input, 0).contains("latencies"));
    EXPECT_EQ(listing_of(input, 0)["blocks"].size(), 2U);
}

// ---- Limits

TEST(PageModel, DoesNotListAKernelThatIsTooLong)
{
    std::vector<std::uint32_t> words(50001, a64::nop());
    const kernel_set too_long = make_kernel_set({placed("long", 0x10000, words)});
    EXPECT_FALSE(listing_of(input_of(too_long), 0).contains("rows"));
    words.pop_back();
    const kernel_set longest = make_kernel_set({placed("long", 0x10000, words)});
    EXPECT_EQ(listing_of(input_of(longest), 0)["rows"]["words"].size(), 50000U);
}

TEST(PageModel, DoesNotFollowAKernelThatIsTooLong)
{
    std::vector<std::uint32_t> words(largest_decoded_code / 4, 0x8b020020); // add x0, x1, x2
    const kernel_set longest = make_kernel_set({placed("long", 0x10000, words)});
    EXPECT_EQ(overview_of(input_of(longest))["kernels"][0]["interface"]["reads"], array({"x1", "x2"}));
    words.push_back(a64::ret());
    const kernel_set too_long = make_kernel_set({placed("long", 0x10000, words)});
    const nlohmann::json kernel = overview_of(input_of(too_long))["kernels"][0];
    EXPECT_EQ(kernel["integer"], largest_decoded_code / 4);
    EXPECT_EQ(kernel["interface"]["reads"], array::array());
    EXPECT_EQ(kernel["interface"]["followed"], false);
}

TEST(PageModel, HasTheFirstBytesOfLongConstants)
{
    const kernel_set set =
        make_kernel_set({placed("k", 0x10000, {a64::ret()}, {}, std::vector<std::uint8_t>(20000, 7))});
    EXPECT_EQ(listing_of(input_of(set), 0)["constants"].get<std::string>().size(), 2U * 16384);
}

TEST(PageModel, GivesEachKernelAnIdEvenWithoutAUniqueName)
{
    const kernel_set set = make_kernel_set(
        {placed("twice", 0x10000, {a64::ret()}), placed("twice", 0x10020, {a64::ret()}),
         placed("", 0x10040, {a64::ret()}), placed(std::string(1000, '+'), 0x10060, {a64::ret()})});
    const nlohmann::json kernels = overview_of(input_of(set))["kernels"];
    for (const auto& [index, id] :
         {std::pair(0U, "twice"), {1, "kernel:1"}, {2, "kernel:2"}, {3, "kernel:3"}})
        EXPECT_EQ(kernels[index]["id"], id);
    EXPECT_EQ(kernels[2]["name"], "(no name)");
}

TEST(PageModel, AcceptsUnusualKernels)
{
    // No code at all, no mapping's length, a circle of calls, bytes after the last word, a call of nobody.
    const kernel_set set = make_kernel_set(
        {placed("empty", 0, {}),
         placed("a", 0x10000, {a64::bl()}, {{"b", 0, R_AARCH64_CALL26, 0}}, {}, 0x10020),
         placed("b", 0x10010, {a64::bl(), a64::bl()},
                {{"a", 0, R_AARCH64_CALL26, 0}, {"nobody", 4, R_AARCH64_CALL26, 0}}, {}, 0x10020)});
    const nlohmann::json kernels = overview_of(input_of(set))["kernels"];
    EXPECT_EQ(kernels[1]["callees"], array({2}));
    EXPECT_EQ(kernels[2]["callees"], array({1}));
    EXPECT_EQ(listing_of(input_of(set), 0)["rows"]["words"], array::array());
}

// ---- The page

TEST(Page, EscapesNamesThatCouldEndTheirElement)
{
    const kernel_set set = make_kernel_set({placed("</script><!--<script>\n\xff", 0x10000, {a64::ret()})});
    const std::string page = make_page(input_of(set));
    EXPECT_THAT(element_of(page, ":model"),
                HasSubstr(R"("name":"\u003c/script>\u003c!--\u003cscript>\\n\\xff)"));
    EXPECT_EQ(nlohmann::json::parse(element_of(page, ":model"))["kernels"][0]["name"],
              "</script><!--<script>\\n\\xff");
    EXPECT_THAT(page, Not(HasSubstr("</script><!")));
}

TEST(Page, HasAnElementForTheModelAndForEachListing)
{
    const kernel_set set = two_kernels();
    const std::string page = make_page(input_of(set));
    const page_model model = make_page_model(input_of(set));
    EXPECT_EQ(element_of(page, ":model"), model.overview);
    EXPECT_EQ(element_of(page, ":listing-0"), model.listings[0]);
    EXPECT_EQ(element_of(page, ":listing-1"), model.listings[1]);
    EXPECT_EQ(page, make_page(input_of(set)));
    EXPECT_THAT(page, AllOf(testing::StartsWith("<!DOCTYPE html>\n"), testing::EndsWith("</html>\n"),
                            Not(HasSubstr("@MODEL@")), Not(HasSubstr("https:"))));
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
        write_file(directory.path() / file, dump_of({placed(name, text, {a64::ret()}, {},
                                                            std::vector<std::uint8_t>(8, 1), text + 0x80)}));
    }

    [[nodiscard]] child_result run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VORNA_KERNELS, "report"});
        return run_tool(std::move(arguments), directory.path());
    }

    [[nodiscard]] std::string page() const { return contents(directory.path() / "page.html"); }

    temp_directory directory;
};

TEST_F(ReportCommand, AddsTheFindingsOfCheck)
{
    dump("dumps/odd", "odd/name", 0x10040);
    EXPECT_EQ(run({"dumps", "-o", "page.html"}).exit_status, 0);
    EXPECT_EQ(nlohmann::json::parse(element_of(page(), ":model"))["findings"][0]["id"], "name-file");
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
    nlohmann::json data = nlohmann::json::parse(element_of(page(), ":model"));
    EXPECT_EQ(data["kernels"][0]["time"], 75);
    EXPECT_EQ(data["kernels"][0]["class"], "same");
    EXPECT_EQ(data["kernels"][0]["delta"], 0);
    EXPECT_EQ(data["kernels"][1]["class"], "added");
    EXPECT_FALSE(data["kernels"][1].contains("delta"));
    EXPECT_EQ(data["against"], "old");

    result = run({"dumps", "-o", "page.html", "--perf-script=text", "--event=faults"});
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_EQ(nlohmann::json::parse(element_of(page(), ":model"))["kernels"][1]["time"], 100);
}

TEST_F(ReportCommand, ShowsNoShareIfAllPeriodsAreZero)
{
    write_file(
        directory.path() / "text",
        "    7     1.000000: PERF_RECORD_MMAP2 7/7: [0x10000(0x1000) @ 0x10000 00:00 0 0]: rwxp //anon\n"
        "    7     1.100000:          0 cycles:u:             10000\n");
    EXPECT_EQ(run({"dumps", "-o", "page.html", "--perf-script=text"}).exit_status, 0);
    const nlohmann::json kernel = nlohmann::json::parse(element_of(page(), ":model"))["kernels"][0];
    EXPECT_EQ(kernel["samples"], 1);
    EXPECT_EQ(kernel["time"], 0);
    EXPECT_EQ(kernel["time_text"], "0.0");
}

TEST_F(ReportCommand, HasTheNameOfTheCurrentDirectory)
{
    const child_result result =
        run_tool({VORNA_KERNELS, "report", ".", "-o", "../page.html"}, directory.path() / "dumps");
    EXPECT_EQ(result.exit_status, 0) << result;
    EXPECT_EQ(nlohmann::json::parse(element_of(page(), ":model"))["name"], "dumps");
}

} // namespace
