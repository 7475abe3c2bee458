// Logs of aborts and the dumps that belong to them, made for tests of what they are explained as.
#pragma once

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/kernels.hpp"
#include "workbench/analysis/diagnose_abort.hpp"
#include "workbench/analysis/locate_abort.hpp"

#include <cstdint>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace support {

using vorna::workbench::abort_log;
using vorna::workbench::dumps_of_process;
using vorna::workbench::placed_kernel;

inline constexpr std::uint64_t text_of_k = 0x7f0000;
inline constexpr std::uint64_t data_of_k = 0x7f0400;
inline constexpr std::uint32_t load = 0xb9400000; // ldr w0, [x0]

inline placed_kernel kernel(const std::string& name, std::uint64_t text,
                            const std::vector<std::uint32_t>& words, std::uint64_t data,
                            std::vector<tessjit::reloc_info> relocs = {})
{
    return {name, text, code(words), data, std::vector<std::uint8_t>(64, 1), std::move(relocs), 0, ""};
}

// The kernel "k" that the tests break.
inline placed_kernel k(const std::vector<std::uint32_t>& words, std::vector<tessjit::reloc_info> relocs)
{
    return kernel("k", text_of_k, words, data_of_k, std::move(relocs));
}

inline std::string listing_of(const std::vector<placed_kernel>& kernels)
{
    std::string text;
    for (const placed_kernel& kernel : kernels)
        text += fmt::format("  {} \t {:#x} {:#x} {:#x} {:#x}\n", kernel.name, kernel.text_address,
                            kernel.text.size(), kernel.data_address, kernel.data.size());
    return text;
}

inline std::string assertion(const char* function, const std::string& expression)
{
    return fmt::format("planner: fft/SRC/wfta/kernel_printer.cpp:49: {}: Assertion `{}' failed.\n", function,
                       expression);
}

inline std::string bare(const std::string& expression)
{
    return assertion(resolve_relocation_signature, expression);
}

inline std::string filled(const std::string& kind, std::uint64_t place, std::uint32_t word,
                          const std::vector<placed_kernel>& registry)
{
    return fmt::format("resolving {} reloc but dst address {:#x} was already filled, got {:#x}\n", kind,
                       place, word) +
           listing_of(registry) + assertion(dump_signature, "false");
}

inline std::string out_of_range(const std::string& kind, const std::string& reach, std::uint64_t S,
                                std::uint64_t P, const std::vector<placed_kernel>& registry)
{
    return fmt::format("resolving {} reloc but smod does not fit in +/-{}, got {:#x} - {:#x} = {:#x}\n", kind,
                       reach, S, P, S - P) +
           listing_of(registry) + assertion(dump_signature, "false");
}

inline dumps_of_process dumps_of(std::vector<placed_kernel> kernels, std::vector<std::int64_t> written = {})
{
    return {make_kernel_set(std::move(kernels)), std::move(written)};
}

/// What is known of an abort, in one.
struct explained_abort : vorna::workbench::abort_location, vorna::workbench::abort_diagnosis {};

inline explained_abort explain(const std::string& text, const dumps_of_process& dumps = {})
{
    const abort_log log = vorna::workbench::read_abort_log(text);
    EXPECT_EQ(log.reports.size(), 1U);
    if (log.reports.empty())
        return {};
    vorna::workbench::abort_location location = locate_abort(log, log.reports.front(), dumps);
    vorna::workbench::abort_diagnosis diagnosis = diagnose_abort(location, dumps.set);
    return {std::move(location), std::move(diagnosis)};
}

} // namespace support
