// Joining the samples of perf script with kernels.

#include "workbench/analysis/profile.hpp"

#include "tests/support/dumps.hpp"

#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

using namespace vorna::workbench;
using support::placed_bytes;

/// Three kernels in the mapping from 0x10000 to 0x12000.
kernel_set one_mapping()
{
    return make_kernel_set({placed_bytes("a", 0x10000, 0x40, 0x11000, 8),
                            placed_bytes("b", 0x10040, 0x20, 0x11008, 0),
                            placed_bytes("c", 0x10080, 0x40, 0x11008, 0xff8)});
}

/// And another one from 0x30000 to 0x31000.
kernel_set two_mappings()
{
    kernel_set set = one_mapping();
    set.kernels.push_back(placed_bytes("d", 0x30000, 0x100, 0x30800, 8));
    return make_kernel_set(set.kernels);
}

// Lines in the format of perf 6.1.
std::string mapped(int pid, const std::string& begin, const std::string& size,
                   const std::string& what = "rwxp //anon", const std::string& time = "7.000001")
{
    const std::string process = std::to_string(pid);
    return process + " " + time + ": PERF_RECORD_MMAP2 " + process + "/" + process + ": [0x" + begin + "(0x" +
           size + ") @ 0x" + begin + " 00:00 0 0]: " + what + "\n";
}

std::string forked(int child, int parent, const std::string& time = "7.000001")
{
    const std::string c = std::to_string(child);
    const std::string p = std::to_string(parent);
    return p + " " + time + ": PERF_RECORD_FORK(" + c + ":" + c + "):(" + p + ":" + p + ")\n";
}

std::string executed(int pid)
{
    const std::string process = std::to_string(pid);
    return process + "  7.000001: PERF_RECORD_COMM exec: some:thing else/1:" + process + "/" + process + "\n";
}

std::string sample(int pid, const std::string& ip, std::uint64_t period = 1, const std::string& event = "e")
{
    return "  " + std::to_string(pid) + "   237.439996:     " + std::to_string(period) + "  " + event +
           ":  " + ip + "\n";
}

profile read(const kernel_set& set, const std::string& text)
{
    profile_reader reader(set);
    reader.read(text);
    return reader.finish();
}

/// The error message for a text.
std::string refusal(const kernel_set& set, const std::string& text)
{
    try {
        read(set, text);
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

/// "samples/period" of all, in kernels, in their mappings, elsewhere; then the rows of each kernel.
std::string counts(const sample_count& count)
{
    return std::to_string(count.samples) + "/" + std::to_string(count.period);
}

std::string summary(const kernel_set& set, const event_profile& event)
{
    std::string text = counts(event.total) + " = " + counts(event.in_kernels) + " + " +
                       counts(event.unknown) + " + " + counts(event.elsewhere) + ";";
    for (const kernel_profile& kernel : event.kernels) {
        text += " " + set.kernels[kernel.kernel].name + " " + counts(kernel.count) + " (";
        for (const profile_row& row : kernel.rows)
            text += (&row == &kernel.rows.front() ? "" : " ") + std::string("+") +
                    std::to_string(row.offset) + " " + counts(row.count);
        text += ")";
    }
    return text;
}

/// Of the only event.
std::string summary(const kernel_set& set, const std::string& text)
{
    const profile made = read(set, text);
    EXPECT_EQ(made.text.bad_lines, 0U) << "line " << made.text.first_bad_line;
    EXPECT_EQ(made.events.size(), 1U);
    return made.events.empty() ? "" : summary(set, made.events.front());
}

const std::string whole = mapped(5, "10000", "2000");

TEST(Profile, AddsUpPeriodsByKernelAndByOffset)
{
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "1005c", 10) + sample(5, "10000", 3) +
                                         sample(5, "10040", 20) + sample(5, "1005c", 5) +
                                         sample(5, "10001", 1)),
              "5/39 = 5/39 + 0/0 + 0/0; b 3/35 (+0 1/20 +28 2/15) a 2/4 (+0 1/3 +1 1/1)");
}

TEST(Profile, DistinguishesKernelsWithoutADumpFromElsewhere)
{
    // The ends of kernels and of the mapping, a gap between kernels, constants, the system.
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "1003f", 1) + sample(5, "1005f", 2) +
                                         sample(5, "10060", 4) + sample(5, "1007f", 8) +
                                         sample(5, "100c0", 16) + sample(5, "11ffc", 32) +
                                         sample(5, "12000", 64) + sample(5, "fffc", 128) +
                                         sample(5, "ffffffffffffffff", 256)),
              "9/511 = 2/3 + 4/60 + 3/448; b 1/2 (+31 1/2) a 1/1 (+63 1/1)");
}

TEST(Profile, CountsOtherProcessesElsewhere)
{
    EXPECT_EQ(summary(one_mapping(), whole + sample(6, "10000") + sample(5, "10000") + sample(0, "10000") +
                                         sample(-1, "10000")),
              "4/4 = 1/1 + 0/0 + 3/3; a 1/1 (+0 1/1)");
}

TEST(Profile, CountsSamplesFromTheMappingOn)
{
    EXPECT_EQ(summary(one_mapping(), sample(5, "10000", 8) + whole + sample(5, "10000", 4)),
              "2/12 = 1/4 + 0/0 + 1/8; a 1/4 (+0 1/4)");
}

TEST(Profile, KnowsMemoryThatWasMappedBeforePerfWasAttached)
{
    const std::string found = mapped(5, "10000", "2000", "rwxp //anon", "0.000000");
    EXPECT_EQ(summary(one_mapping(),
                      "    0     0.000000: PERF_RECORD_COMM: loop:5/5\n" + found + sample(5, "10000")),
              "1/1 = 1/1 + 0/0 + 0/0; a 1/1 (+0 1/1)");
}

TEST(Profile, CountsInKernelsOfAMappingBeforeTheNextIsMade)
{
    EXPECT_EQ(summary(two_mappings(), whole + sample(5, "10000", 1) + mapped(5, "30000", "1000") +
                                          sample(5, "30000", 2) + sample(5, "10000", 4)),
              "3/7 = 3/7 + 0/0 + 0/0; a 2/5 (+0 2/5) d 1/2 (+0 1/2)");
}

TEST(Profile, JoinsAdjacentMappings)
{
    EXPECT_EQ(summary(one_mapping(), mapped(5, "10000", "1000") + mapped(5, "11000", "1000") +
                                         sample(5, "10000") + sample(5, "11000")),
              "2/2 = 1/1 + 1/1 + 0/0; a 1/1 (+0 1/1)");
}

TEST(Profile, KnowsMemoryThatGrowsByItsNeighbour)
{
    // The kernel reports the second mapping merged with the first one, above or below it.
    const kernel_set set = make_kernel_set(
        {placed_bytes("low", 0x10000, 8, 0x10008, 0), placed_bytes("high", 0x11000, 8, 0x11008, 0)});
    EXPECT_EQ(summary(set, mapped(5, "11000", "1000") + sample(5, "11000", 1) + forked(6, 5) +
                               mapped(5, "10000", "2000") + sample(5, "11000", 2) + sample(5, "10000", 4) +
                               sample(6, "11000", 8) + sample(6, "10000", 16)),
              "5/31 = 4/15 + 0/0 + 1/16; high 3/11 (+0 3/11) low 1/4 (+0 1/4)");
    EXPECT_EQ(summary(set, mapped(5, "10000", "1000") + sample(5, "10000", 1) + mapped(5, "10000", "2000") +
                               sample(5, "11000", 2) + sample(5, "10000", 4)),
              "3/7 = 3/7 + 0/0 + 0/0; low 2/5 (+0 2/5) high 1/2 (+0 1/2)");
    // In the gap between two.
    const kernel_set three = make_kernel_set({placed_bytes("low", 0x10000, 8, 0x10008, 0),
                                              placed_bytes("high", 0x11000, 8, 0x11008, 0),
                                              placed_bytes("top", 0x12000, 8, 0x12008, 0)});
    EXPECT_EQ(summary(three, mapped(5, "10000", "1000") + mapped(5, "12000", "1000") + sample(5, "10000", 1) +
                                 sample(5, "12000", 2) + mapped(5, "10000", "3000") + sample(5, "11000", 4)),
              "3/7 = 3/7 + 0/0 + 0/0; high 1/4 (+0 1/4) top 1/2 (+0 1/2) low 1/1 (+0 1/1)");
}

TEST(Profile, FollowsForks)
{
    EXPECT_EQ(summary(one_mapping(), whole + forked(6, 5) + forked(7, 6) + sample(5, "10000", 1) +
                                         sample(6, "10000", 2) + sample(7, "10000", 4)),
              "3/7 = 3/7 + 0/0 + 0/0; a 3/7 (+0 3/7)");
}

TEST(Profile, KeepsTheSamplesOfAChildForkedBeforeTheLastMapping)
{
    EXPECT_EQ(summary(two_mappings(), whole + forked(6, 5) + mapped(5, "30000", "1000") +
                                          sample(6, "10000", 2) + sample(6, "30000", 4) +
                                          sample(5, "30000", 8)),
              "3/14 = 2/10 + 0/0 + 1/4; d 1/8 (+0 1/8) a 1/2 (+0 1/2)");
}

TEST(Profile, KeepsTheSamplesOfAProcessThatHasEnded)
{
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", 2) +
                                         "5 7.000001: PERF_RECORD_EXIT(5:5):(1:1)\n" +
                                         sample(5, "10000", 4) // a thread of it that goes on
                                         + forked(5, 1) + sample(5, "10000", 8)),
              "3/14 = 2/6 + 0/0 + 1/8; a 2/6 (+0 2/6)");
}

TEST(Profile, DoesNotTakeAThreadForAProcess)
{
    EXPECT_EQ(summary(one_mapping(), whole + "5 7.000001: PERF_RECORD_FORK(5:8):(5:5)\n" +
                                         sample(5, "10000", 2) + "5 7.000001: PERF_RECORD_EXIT(5:8):(5:5)\n" +
                                         sample(5, "10000", 4)),
              "2/6 = 2/6 + 0/0 + 0/0; a 2/6 (+0 2/6)");
}

TEST(Profile, ForgetsTheMemoryAtAnExec)
{
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", 1) + executed(5) + sample(5, "10000", 2) +
                                         mapped(5, "10000", "1000", "r-xp /usr/bin/other") +
                                         sample(5, "10000", 4)),
              "3/7 = 1/1 + 0/0 + 2/6; a 1/1 (+0 1/1)");
    EXPECT_EQ(summary(one_mapping(),
                      whole + forked(6, 5) + executed(6) + sample(6, "10000", 2) + sample(5, "10000", 4)),
              "2/6 = 1/4 + 0/0 + 1/2; a 1/4 (+0 1/4)");
}

TEST(Profile, DoesNotTakeANewNameForAnExec)
{
    EXPECT_EQ(
        summary(one_mapping(), whole + "5 7.000001: PERF_RECORD_COMM: exec: x:5/5\n" + sample(5, "10000")),
        "1/1 = 1/1 + 0/0 + 0/0; a 1/1 (+0 1/1)");
}

TEST(Profile, DoesNotTakeAnEarlierProcessForAChild)
{
    // perf synthesizes forks of running processes at time 0, though they may have executed another program.
    const std::string found = mapped(5, "10000", "2000", "rwxp //anon", "0.000000");
    EXPECT_EQ(summary(one_mapping(),
                      found + forked(6, 5, "0.000000") + sample(6, "10000", 2) + sample(5, "10000", 4)),
              "2/6 = 1/4 + 0/0 + 1/2; a 1/4 (+0 1/4)");
}

TEST(Profile, AllowsAReusedProcessId)
{
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", 1) + forked(5, 1) + sample(5, "10000", 2) +
                                         mapped(5, "10000", "1000") + sample(5, "10000", 4)),
              "3/7 = 1/1 + 0/0 + 2/6; a 1/1 (+0 1/1)");
}

TEST(Profile, AllowsAReusedAddress)
{
    // Another code cache, unmapped before the kernels were mapped at the same address.
    EXPECT_EQ(summary(one_mapping(),
                      mapped(5, "10000", "1000") + sample(5, "10000", 1) + whole + sample(5, "10000", 2)),
              "2/3 = 1/2 + 0/0 + 1/1; a 1/2 (+0 1/2)");
    // As large as the kernels' mapping, or larger, and covering it.
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", 1) + whole + sample(5, "10000", 2)),
              "2/3 = 1/2 + 0/0 + 1/1; a 1/2 (+0 1/2)");
    EXPECT_EQ(summary(two_mappings(), mapped(5, "1000", "100000") + sample(5, "10000", 1) +
                                          sample(5, "20000", 1) + mapped(5, "10000", "2000") +
                                          sample(5, "10000", 2) + mapped(5, "30000", "1000") +
                                          sample(5, "20000", 4) + sample(5, "30000", 8)),
              "5/16 = 2/10 + 0/0 + 3/6; d 1/8 (+0 1/8) a 1/2 (+0 1/2)");
    // A library that was unloaded earlier.
    EXPECT_EQ(summary(one_mapping(), mapped(5, "10000", "1000", "r-xp /lib/x.so") + sample(5, "10000", 1) +
                                         whole + sample(5, "10000", 2)),
              "2/3 = 1/2 + 0/0 + 1/1; a 1/2 (+0 1/2)");
}

TEST(Profile, DoesNotInheritMemoryThatWasUnmappedBeforeAFork)
{
    // The child appears to inherit the code cache at d's address, and maps one at a's address.
    EXPECT_EQ(summary(two_mappings(), mapped(5, "30000", "1000") + forked(6, 5) + whole +
                                          mapped(5, "30000", "1000") + mapped(6, "10000", "2000") +
                                          sample(6, "10000", 1) + sample(6, "30000", 2) +
                                          sample(5, "30000", 4)),
              "3/7 = 1/4 + 0/0 + 2/3; d 1/4 (+0 1/4)");
}

TEST(Profile, NoticesAFileMappedOverTheKernels)
{
    EXPECT_EQ(summary(two_mappings(), mapped(5, "30000", "1000") + sample(5, "30000", 1) +
                                          mapped(5, "30000", "1000", "r-xp /lib/x.so") +
                                          sample(5, "30000", 2) + mapped(5, "30000", "1000") + whole +
                                          sample(5, "30000", 4)),
              "3/7 = 1/4 + 0/0 + 2/3; d 1/4 (+0 1/4)");
}

TEST(Profile, KeepsMemoryWhoseProtectionChanges)
{
    for (const char* const what : {"r-xp //anon", "rw-p //anon", "r-xp [anon:kernels]"}) {
        EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", 1) + mapped(5, "10000", "1000", what) +
                                             sample(5, "10000", 2)),
                  "2/3 = 2/3 + 0/0 + 0/0; a 2/3 (+0 2/3)")
            << what;
    }
}

TEST(Profile, CountsEveryProcessThatMapsTheKernels)
{
    // Two runs of a host without address-space randomization.
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", 1) + mapped(6, "10000", "2000") +
                                         sample(6, "10000", 2) + mapped(7, "10000", "1000") +
                                         sample(7, "10000", 4)),
              "3/7 = 2/3 + 0/0 + 1/4; a 2/3 (+0 2/3)");
}

TEST(Profile, KeepsEventsApart)
{
    const kernel_set set = one_mapping();
    const profile made =
        read(set, whole + sample(5, "10000", 2, "cycles:u") + sample(5, "10000", 3, "my event: x:u") +
                      sample(5, "10000", 5, "arm_spe//") + sample(5, "10000", 7, "my event: x:u") +
                      sample(9, "10000", 11, "r11"));
    ASSERT_EQ(made.events.size(), 4U);
    EXPECT_EQ(made.events[0].event, "my event: x:u"); // the one with the most samples
    EXPECT_EQ(summary(set, made.events[0]), "2/10 = 2/10 + 0/0 + 0/0; a 2/10 (+0 2/10)");
    EXPECT_EQ(made.events[1].event, "cycles:u"); // then in order of appearance
    EXPECT_EQ(summary(set, made.events[1]), "1/2 = 1/2 + 0/0 + 0/0; a 1/2 (+0 1/2)");
    EXPECT_EQ(made.events[2].event, "arm_spe//");
    EXPECT_EQ(summary(set, made.events[2]), "1/5 = 1/5 + 0/0 + 0/0; a 1/5 (+0 1/5)");
    EXPECT_EQ(made.events[3].event, "r11");
    EXPECT_EQ(summary(set, made.events[3]), "1/11 = 0/0 + 0/0 + 1/11;");

    EXPECT_EQ(find_event(made, ""), made.events.data());
    EXPECT_EQ(find_event(made, "r11"), &made.events[3]);
    EXPECT_EQ(find_event(made, "r1"), nullptr);
}

TEST(Profile, IsTheSameInPiecesOfAnySize)
{
    const kernel_set set = two_mappings();
    const std::string text = whole + mapped(5, "30000", "1000") + forked(6, 5) + sample(6, "10010", 12345) +
                             executed(6) + sample(5, "30004", 7) + sample(5, "10050", 8);
    const std::string expected = summary(set, text);
    for (std::size_t piece = 1; piece < 100; ++piece) {
        profile_reader reader(set);
        for (std::size_t at = 0; at < text.size(); at += piece)
            reader.read(std::string_view(text).substr(at, piece));
        EXPECT_EQ(summary(set, reader.finish().events.at(0)), expected) << piece;
    }
}

TEST(Profile, AllowsAMappingUpToTheLastAddress)
{
    EXPECT_EQ(summary(one_mapping(), mapped(5, "10000", "ffffffffffffffff") + sample(5, "10000")),
              "1/1 = 1/1 + 0/0 + 0/0; a 1/1 (+0 1/1)");
}

TEST(Profile, SaturatesPeriodsThatOverflow)
{
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", std::numeric_limits<std::uint64_t>::max()) +
                                         sample(5, "10000", 5) + sample(9, "10000", 5)),
              "3/18446744073709551615 = 2/18446744073709551615 + 0/0 + 1/0; a 2/18446744073709551615 (+0 "
              "2/18446744073709551615)");
    EXPECT_EQ(summary(one_mapping(), whole + sample(5, "10000", std::numeric_limits<std::uint64_t>::max()) +
                                         sample(5, "10060", 5)),
              "2/18446744073709551615 = 1/18446744073709551615 + 1/5 + 0/0; a 1/18446744073709551615 (+0 "
              "1/18446744073709551615)");
}

TEST(Profile, IsOfAnotherRunIfNoProcessMapsTheKernels)
{
    const std::string nowhere =
        "dumps and profile are of different runs: no process maps the memory of the kernels";
    EXPECT_EQ(refusal(one_mapping(), mapped(5, "20000", "2000") + sample(5, "10000")), nowhere);
    EXPECT_EQ(refusal(one_mapping(), mapped(5, "10000", "1000") + sample(5, "10000")), nowhere);
    EXPECT_EQ(refusal(one_mapping(), mapped(5, "11000", "1000") + sample(5, "10000")), nowhere);
    EXPECT_EQ(refusal(one_mapping(), mapped(5, "10000", "2000", "rw-p //anon") + sample(5, "10000")),
              nowhere);
    EXPECT_EQ(refusal(one_mapping(), mapped(5, "10000", "2000", "r-xp /lib/x.so") + sample(5, "10000")),
              nowhere);
    // Two processes map one half each.
    EXPECT_EQ(refusal(one_mapping(), mapped(5, "10000", "1000") + mapped(6, "11000", "1000")), nowhere);
    EXPECT_EQ(
        refusal(two_mappings(), whole + sample(5, "10000")),
        "dumps and profile are of different runs: no process maps all of the kernels; process 5 has 1 of their 2 mappings");
}

TEST(Profile, NeedsOnlyKernelsWithADump)
{
    const kernel_set set = make_kernel_set({placed_bytes("b", 0x10040, 0x20, 0x11008, 0)});
    EXPECT_EQ(summary(set, mapped(5, "10000", "2000") + mapped(5, "30000", "1000") + sample(5, "10000", 1) +
                               sample(5, "10040", 2) + sample(5, "30000", 4)),
              "3/7 = 1/2 + 1/1 + 1/4; b 1/2 (+0 1/2)");
}

TEST(Profile, NeedsTheConstantsInTheMappingAsWell)
{
    const kernel_set set = make_kernel_set({placed_bytes("a", 0x10000, 0x40, 0x12000, 8)});
    EXPECT_NE(refusal(set, mapped(5, "10000", "2000") + sample(5, "10000")), "");
    EXPECT_EQ(refusal(set, mapped(5, "10000", "3000") + sample(5, "10000")), "");
}

TEST(Profile, HasNoEventIfThereIsNoSample)
{
    EXPECT_TRUE(read(one_mapping(), whole).events.empty());
}

TEST(Profile, NeedsKernels)
{
    EXPECT_EQ(refusal({}, whole), "there are no kernels to look for in it");
}

TEST(Profile, KeepsLostSamplesAndBadLines)
{
    const profile made = read(one_mapping(), whole + sample(5, "10000") + "bad\n" +
                                                 "5 12.000000001: PERF_RECORD_LOST lost 12\n");
    EXPECT_EQ(made.text.lost, 12U);
    EXPECT_EQ(made.text.bad_lines, 1U);
    EXPECT_EQ(made.text.first_bad_line, 3U);
}

TEST(Profile, HasThePeriodOfEachRowOfAListing)
{
    kernel_profile made;
    for (const std::uint64_t offset : std::initializer_list<std::uint64_t>{0, 3, 4, 9, 10, 10})
        made.rows.push_back({offset, {1, 1 + offset}});
    EXPECT_EQ(periods_by_row(made, 11), (std::vector<std::uint64_t>{5, 5, 0, 10, 22}));
}

TEST(Profile, RefusesTooManyEvents)
{
    std::string text = whole;
    for (int event = 0; event < 1024; ++event)
        text += sample(5, "10000", 1, "e" + std::to_string(event));
    EXPECT_EQ(read(one_mapping(), text).events.size(), 1024U);
    EXPECT_EQ(refusal(one_mapping(), text + sample(5, "10000", 1, "one more")), "more than 1024 events");
}

TEST(Profile, RefusesTooManyMappings)
{
    // Each process gets a copy with one VMA per page.
    kernel_set set = make_kernel_set({placed_bytes("a", 0x1000000, 0x1000000, 0x2000000, 8)});
    std::string text;
    for (unsigned page = 0; page < 4096; ++page) {
        char begin[32];
        std::snprintf(begin, sizeof begin, "%x", 0x1000000 + page * 0x1000);
        text += mapped(5, begin, "1000");
    }
    for (int process = 0; process < 6000; ++process)
        text += forked(6, 5) + mapped(6, "1000000", "1000");
    EXPECT_EQ(refusal(set, text), "more mappings than any system makes");
}

} // namespace
