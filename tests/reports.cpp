// What ends the process, and the exact texts on stderr that it leaves behind.

#include "tests/support/reports.hpp"

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vorna::wfta;
using namespace support;

// "%p" and "%lx" of every value are written out by hand here, since the tests elsewhere compare with texts
// that support/reports.cpp composes.
TEST(Reports, DuplicateNameIsABareAssertionOfEmission)
{
    kernel_registry_map registry;
    const child_result child = run_in_child([&] {
        finalise_kernels(registry, {kernel("twice", {a64::ret()}), kernel("twice", {})});
    });
    EXPECT_EQ(child.signal, SIGABRT) << child;
    EXPECT_EQ(
        without_line_numbers(child.err),
        std::string(program_invocation_short_name) +
            ": fft/SRC/wfta/kernel_printer.cpp:LINE: void emit_single(vorna::wfta::kernel_registry_map&, "
            "const string&, uint8_t*, size_t, const uint8_t*, size_t, const "
            "std::vector<tessjit::reloc_info>&): Assertion `kernel_registry.emplace(fn_name, "
            "vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, data_len }).second' "
            "failed.\n");
}

} // namespace
