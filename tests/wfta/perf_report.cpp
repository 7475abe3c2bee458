// perf itself names a kernel from the map: native code of the machine that runs the test, since perf samples
// the processor, not a simulated one.

#include "tests/support/perf.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace support;

TEST(PerfReport, NamesTheKernel)
{
    if (const std::string reason = why_perf_cannot_record(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    const temp_directory directory;
    const std::string recording = " " + (directory.path() / "perf.data").string() + " ";
    const busy_process busy(directory.path(), countdown_in_the_perf_map);
    const perf_map map(busy.pid());
    // :u, for on a busy machine the system's own work in the process takes a share too.
    const command_result record =
        shell("perf record --no-buildid-cache -e cpu-clock:u -o" + recording + "-p " +
              std::to_string(busy.pid()) + " -- sh -c '" + until_it_has_run(busy.pid()) + "'");
    ASSERT_EQ(record.status, 0) << record.output;
    const command_result report =
        shell("perf report -i" + recording + "--stdio --sort symbol -F overhead,symbol");
    ASSERT_EQ(report.status, 0) << report.output;
    // The kernel is all that the process does: "    99.98%  [.] countdown"
    EXPECT_THAT(report.output, testing::ContainsRegex(" (9[0-9]|100)\\.[0-9][0-9]% +\\[\\.\\] countdown"));
}

} // namespace
