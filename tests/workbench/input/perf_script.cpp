// Parsing perf script's output. The lines are in the format of perf 6.1.

#include "workbench/input/perf_script.hpp"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

namespace {

using namespace vorna::workbench;
using testing::ElementsAre;

std::string text_of(const perf_sample& sample)
{
    return fmt::format("sample of {}: {} {} at {:#x}", sample.pid, sample.event, sample.period,
                       sample.address);
}

std::string text_of(const perf_mapping& mapping)
{
    return fmt::format("map of {}: {:#x} to {:#x}{}{}{}", mapping.pid, mapping.begin, mapping.end,
                       mapping.anonymous ? ", anonymous" : "", mapping.executable ? ", executable" : "",
                       mapping.writable ? ", writable" : "");
}

std::string text_of(const perf_fork& fork)
{
    return fmt::format("fork of {} by {}", fork.child, fork.parent);
}

std::string text_of(const perf_exec& exec)
{
    return fmt::format("exec by {}", exec.pid);
}

struct read_text {
    std::vector<std::string> records;
    perf_script_summary summary;
};

read_text read(std::string_view text, std::size_t piece = std::string_view::npos)
{
    read_text result;
    perf_script_reader reader([&result](const perf_record& record) {
        std::visit([&result](const auto& one) { result.records.push_back(text_of(one)); }, record);
    });
    for (std::size_t at = 0; at < text.size(); at += std::min(piece, text.size() - at))
        reader.read(text.substr(at, piece));
    result.summary = reader.finish();
    return result;
}

std::string refusal(std::string_view text)
{
    try {
        read(text);
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

const std::string some_mapping =
    "5 7.000001: PERF_RECORD_MMAP2 5/5: [0x10000(0x2000) @ 0x10000 00:00 0 0]: rwxp //anon\n";
const std::string of_some_mapping = "map of 5: 0x10000 to 0x12000, anonymous, executable, writable";

/// The records of a text that follows a mapping, without the mapping's record.
std::vector<std::string> records_of(const std::string& text)
{
    const read_text result = read(some_mapping + text);
    EXPECT_EQ(result.summary.bad_lines, 0U) << text;
    return {result.records.begin() + 1, result.records.end()};
}

TEST(PerfScript, HasSamples)
{
    EXPECT_THAT(records_of("  662   237.439996:     250000  cpu-clock:  ffffcf10d54a0c14\n"
                           "  5/7 12.000000001:   4 my event: x:u:\t10000 \r\n"
                           "   -1 12.1: 18446744073709551615 e: 0\n"),
                ElementsAre("sample of 662: cpu-clock 250000 at 0xffffcf10d54a0c14",
                            "sample of 5: my event: x:u 4 at 0x10000",
                            "sample of -1: e 18446744073709551615 at 0x0"));
}

TEST(PerfScript, HasMappings)
{
    const auto mapping = [](const std::string& what) {
        return records_of("5 7.000001: PERF_RECORD_" + what + "\n").at(0);
    };
    for (const char* const name : {"//anon", "/dev/zero (deleted)", "[anon:some kernels]"}) {
        EXPECT_EQ(mapping("MMAP2 6/7: [0xffffb23b5000(0xb000) @ 0xffffb23b5000 00:00 0 0]: r-xp " +
                          std::string(name)),
                  "map of 6: 0xffffb23b5000 to 0xffffb23c0000, anonymous, executable");
    }
    EXPECT_EQ(mapping("MMAP2 5/5: [0x1000(0x1000) @ 0 08:02 131 0]: rw-p /lib/a]: b.so"),
              "map of 5: 0x1000 to 0x2000, writable");
    // With a build ID; and the older record, whose only permission is execute.
    EXPECT_EQ(mapping("MMAP2 5/5: [0x1000(0x1000) @ 0 <0123456789abcdef>]: r-xp //anon"),
              "map of 5: 0x1000 to 0x2000, anonymous, executable");
    EXPECT_EQ(mapping("MMAP 5/5: [0x1000(0x1000) @ 0]: x //anon"),
              "map of 5: 0x1000 to 0x2000, anonymous, executable, writable");
    EXPECT_EQ(mapping("MMAP2 5/5: [0x1000(0xffffffffffffffff) @ 0 00:00 0 0]: r-xp //anon"),
              "map of 5: 0x1000 to 0xffffffffffffffff, anonymous, executable");
}

TEST(PerfScript, HasForksOfRecordedProcesses)
{
    EXPECT_THAT(records_of("5 7.1: PERF_RECORD_FORK(6:6):(5:5)\n"
                           "5 7.1: PERF_RECORD_FORK(5:8):(5:5)\n" // a thread
                           "5 0.000000: PERF_RECORD_FORK(9:9):(5:5)\n"),
                ElementsAre("fork of 6 by 5"));
}

TEST(PerfScript, HasExecs)
{
    EXPECT_THAT(records_of("5  7.000001: PERF_RECORD_COMM exec: some:thing else/1:6/7\n"
                           "5 7.000001: PERF_RECORD_COMM: exec: x:5/5\n"), // a new name
                ElementsAre("exec by 6"));
}

TEST(PerfScript, HasOtherRecordsAndComments)
{
    const read_text result =
        read("# recorded yesterday\n\n" + some_mapping +
             "  5  12.000000001: PERF_RECORD_NAMESPACES 5/5 - nr_namespaces: 7 [0/net: 3/0xf]\n"
             "  5  12.000000001: PERF_RECORD_LOST lost 12\n"
             "  5  12.000000001: PERF_RECORD_LOST lost 30\n\r\n"
             "  5  12.000000001: PERF_RECORD_EXIT(5:5):(1:1)");
    EXPECT_THAT(result.records, ElementsAre(of_some_mapping));
    EXPECT_EQ(result.summary.lost, 42U);
    EXPECT_EQ(result.summary.bad_lines, 0U);
}

TEST(PerfScript, SkipsLinesOfAnotherForm)
{
    const std::string bad[] = {
        "loop  662   237.439996:     250000  cpu-clock:  10000", // with the command's name
        "  5   237.439996:     250000  cpu-clock:",              // call graphs not hidden
        "  5   237.439996:     cpu-clock:  10000",               // no period
        "  5   237.439996:     1 cpu-clock  10000",
        "  5   237.439996:     1 :  10000",
        "  5   237.439996:     1 e:  1z000",
        "  5   237.439996:     1 e:  12345678901234567",
        "  5   237.439996:     1 e:  10000 main+0x4",
        "  5   237.439996:     18446744073709551616 e:  10000",
        "  5   237.439996:     99999999999999999999 e:  10000",
        "  5   237:     1 e:  10000",
        "  5   .5:     1 e:  10000",
        "  99999999999   237.5:     1 e:  10000",
        "  5",
        "  5   237.439996:",
        "  5   237.439996: PERF_RECORDX",
        "  5   237.439996: PERF_RECORD_FORK(5:5):(5)",
        "  5   237.439996: PERF_RECORD_COMM exec: x",
        "  5   237.439996: PERF_RECORD_COMM exec: x:5",
        "  5   237.439996: PERF_RECORD_LOST lost x",
        "  5   237.439996: PERF_RECORD_MMAP2 5/5: [0x10000(0x2000) @ 0 00:00 0 0: rwxp //anon",
        "  5   237.439996: PERF_RECORD_MMAP2 5/5: [0x10000(0x2000) @ 0 00:00 0 0]: rwxp",
        "  5   237.439996: PERF_RECORD_MMAP2 5: [0x10000(0x2000) @ 0 00:00 0 0]: rwxp //anon",
        "  5   237.439996: PERF_RECORD_MMAP2 5/5: [(0x2000) @ 0 00:00 0 0]: rwxp //anon",
        std::string("  5   237.439996:     1 e:  10000") + '\0',
        std::string(70000, ' '),
        std::string(70000, 'x'),
    };
    for (const std::string& line : bad) {
        std::string text = some_mapping + "5 7.1: 1 e: 10000\n";
        text += line;
        text += "\n5 7.1: 1 e: 10004\n";
        const read_text result = read(text);
        EXPECT_EQ(result.summary.bad_lines, 1U) << line.substr(0, 100);
        EXPECT_EQ(result.summary.first_bad_line, 3U) << line.substr(0, 100);
        EXPECT_THAT(result.records, ElementsAre(of_some_mapping, "sample of 5: e 1 at 0x10000",
                                                "sample of 5: e 1 at 0x10004"))
            << line.substr(0, 100);
    }
}

TEST(PerfScript, NumbersTheFirstBadLine)
{
    const read_text result = read("one\n" + some_mapping + "two\nthree");
    EXPECT_EQ(result.summary.bad_lines, 3U);
    EXPECT_EQ(result.summary.first_bad_line, 1U);
}

TEST(PerfScript, IsTheSameInPiecesOfAnySize)
{
    const std::string text = some_mapping + "6 7.1: 12345 e:  10010\nx\n6 7.1: PERF_RECORD_FORK(7:7):(6:6)\n";
    for (std::size_t piece = 1; piece <= text.size(); ++piece) {
        const read_text result = read(text, piece);
        EXPECT_THAT(result.records,
                    ElementsAre(of_some_mapping, "sample of 6: e 12345 at 0x10010", "fork of 7 by 6"))
            << piece;
        EXPECT_EQ(result.summary.first_bad_line, 3U) << piece;
    }
}

TEST(PerfScript, SaysWhatElseAFileIs)
{
    const std::string no_line = "no line of the text of perf script -F pid,time,event,period,ip";
    EXPECT_EQ(refusal(""), no_line);
    EXPECT_EQ(refusal("something else\n"), no_line);
    EXPECT_EQ(refusal(std::string(1000000, 'x')), no_line);
    EXPECT_EQ(refusal("PERFILE2..."), "data of perf record, not the text that perf script makes of it");
    EXPECT_EQ(refusal("\x1f\x8b\b"), "compressed by gzip: unpack it first");
    EXPECT_EQ(refusal("5 7.1: 1 e: 10000\n"),
              "no process's mappings in it: perf script was run without --show-mmap-events");
}

} // namespace
