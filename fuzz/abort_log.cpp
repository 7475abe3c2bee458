// Any log is read, in pieces of any size, and every report in it is explained, with and without dumps.

#include "workbench/analysis/diagnose_abort.hpp"

#include <algorithm>
#include <cstdlib>
#include <elf.h>
#include <string_view>

using vorna::workbench::abort_log;
using vorna::workbench::dumps_of_process;
using vorna::workbench::placed_kernel;

static void require(bool condition)
{
    if (!condition)
        abort();
}

// Two kernels, of which the second's relocations end the process in several ways; the corpus has their
// addresses.
static dumps_of_process make_dumps()
{
    placed_kernel callee;
    callee.name = "b";
    callee.text_address = 0x10000;
    callee.text = {0xc0, 0x03, 0x5f, 0xd6};
    callee.data_address = 0x10060;
    placed_kernel caller;
    caller.name = "a";
    caller.text_address = 0x10020;
    caller.text = {0x00, 0x00, 0x00, 0x90, 0x00, 0x00, 0x00, 0x91,
                   0x00, 0x00, 0x40, 0xb9, 0xc0, 0x03, 0x5f, 0xd6};
    caller.data_address = 0x10060;
    caller.data = {1, 2, 3, 4};
    caller.relocs = {{".rodata.a", 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                     {"b", 8, R_AARCH64_CALL26, 2},
                     {"c", 0x7fffffff, R_AARCH64_ADR_PREL_LO21, -5},
                     {".rodata.c", -4, R_AARCH64_JUMP26, 0}};
    return {vorna::workbench::make_kernel_set({callee, caller}), {1, 2}};
}

static void require_same(const abort_log& a, const abort_log& b)
{
    require(a.reports.size() == b.reports.size() && a.more_reports == b.more_reports);
    require(a.registries.size() == b.registries.size());
    for (std::size_t i = 0; i < a.reports.size(); ++i)
        require(a.reports[i].id == b.reports[i].id && a.reports[i].line == b.reports[i].line);
    for (std::size_t i = 0; i < a.registries.size(); ++i) {
        const auto& kernels = a.registries[i].kernels;
        require(kernels.size() == b.registries[i].kernels.size());
        for (std::size_t k = 0; k < kernels.size(); ++k)
            require(kernels[k].name == b.registries[i].kernels[k].name);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const dumps_of_process no_dumps;
    static const dumps_of_process dumps = make_dumps();

    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const abort_log log = vorna::workbench::read_abort_log(text);
    vorna::workbench::abort_log_reader reader;
    const std::size_t piece = 1 + (size == 0 ? 0 : bytes[size - 1] % 64U);
    for (std::size_t at = 0; at < size; at += piece)
        reader.read(text.substr(at, piece));
    require_same(log, reader.finish());

    std::size_t line = 0;
    for (const auto& report : log.reports) {
        require(line < report.line &&
                report.line <= 1U + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
        line = report.line;
        require(!report.registry ||
                report.registry_begin <= log.registries.at(*report.registry).kernels.size());
        for (const dumps_of_process* known : {&no_dumps, &dumps}) {
            const auto found = locate_abort(log, report, *known);
            const auto diagnosis = diagnose_abort(found, known->set);
            require(!diagnosis.message.empty() && !diagnosis.help.empty());
            require(!found.dump || *found.dump < known->set.kernels.size());
            require(!found.relocation || *found.relocation < known->set.kernels[*found.dump].relocs.size());
        }
    }
    return 0;
}
