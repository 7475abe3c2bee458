#include "fft/SRC/wfta/kernel_printer.hpp"

#include <gtest/gtest.h>

namespace {

using namespace vorna::wfta;

TEST(Reports, DuplicateNameInOneSetIsFatal)
{
    kernel_registry_map registry;
    const std::vector<kernel_data> kernels = {{nullptr, "twice", {0xc0, 0x03, 0x5f, 0xd6}, {}, {}},
                                              {nullptr, "twice", {0xc0, 0x03, 0x5f, 0xd6}, {}, {}}};
    EXPECT_DEATH(
        finalise_kernels(registry, kernels),
        "fft/SRC/wfta/kernel_printer.cpp:[0-9]+: void emit_single\\(vorna::wfta::kernel_registry_map&, const "
        "string&, uint8_t\\*, size_t, const uint8_t\\*, size_t, const std::vector<tessjit::reloc_info>&\\): "
        "Assertion `kernel_registry.emplace\\(fn_name, vorna::wfta::kernel_registry_entry\\{ text_ptr, "
        "text_len, "
        "data_ptr, data_len \\}\\).second' failed.");
}

} // namespace
