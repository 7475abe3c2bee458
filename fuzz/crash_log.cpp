// Any log is read, in pieces of any size, and every crash in it is diagnosed, with and without dumps.

#include "workbench/analysis/check_dumps.hpp"
#include "workbench/analysis/diagnose_crash.hpp"

#include <algorithm>
#include <cstdlib>
#include <elf.h>
#include <string_view>

using vorna::wfta::kernel_finding;
using vorna::workbench::crash_report;
using vorna::workbench::kernel_set;
using vorna::workbench::placed_kernel;

static void require(bool condition)
{
    if (!condition)
        abort();
}

// Two kernels, of which the second calls the first and does not return; the corpus has their addresses.
static kernel_set make_dumps()
{
    placed_kernel callee;
    callee.name = "b";
    callee.text_address = 0x5502d5e000;
    callee.text = {0x1f, 0x20, 0x03, 0xd5, 0x01, 0x04, 0x40, 0xf9, 0xc0, 0x03, 0x5f, 0xd6};
    callee.data_address = 0x5502d5e040;
    callee.data = {1, 2, 3, 4};
    placed_kernel caller;
    caller.name = "a";
    caller.text_address = 0x5502d5e020;
    caller.text = {0x00, 0x00, 0x00, 0x94, 0x1f, 0x20, 0x03, 0xd5};
    caller.data_address = 0x5502d5e044;
    caller.relocs = {{"b", 0, R_AARCH64_CALL26, 0}};
    return vorna::workbench::make_kernel_set({callee, caller});
}

static void require_same(const crash_report& a, const crash_report& b)
{
    require(a.signal == b.signal && a.reporter == b.reporter && a.line == b.line && a.text == b.text);
    require(a.pc == b.pc && a.pc_line == b.pc_line && a.fault_address == b.fault_address);
    require(a.writes == b.writes && a.registers == b.registers && a.frames.size() == b.frames.size());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const kernel_set no_dumps;
    static const kernel_set dumps = make_dumps();
    static const std::vector<kernel_finding> findings = check_dumps(dumps);

    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    const std::vector<crash_report> crashes = vorna::workbench::read_crash_log(text);
    vorna::workbench::crash_log_reader reader;
    const std::size_t piece = 1 + (size == 0 ? 0 : bytes[size - 1] % 64U);
    for (std::size_t at = 0; at < size; at += piece)
        reader.read(text.substr(at, piece));
    const std::vector<crash_report> in_pieces = reader.finish();
    require(crashes.size() == in_pieces.size() && crashes.size() <= 100);

    std::size_t line = 0;
    for (std::size_t i = 0; i < crashes.size(); ++i) {
        const crash_report& crash = crashes[i];
        require_same(crash, in_pieces[i]);
        require(line < crash.line &&
                crash.line <= 1U + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
        line = crash.line;
        require(crash.frames.size() <= 100 && (crash.pc.has_value() == (crash.pc_line != 0)));
        const auto alone = diagnose_crash(crash, no_dumps, {});
        require(alone.known == !alone.message.empty() && !alone.at && !meets_kernels(crash, no_dumps));
        const auto found = diagnose_crash(crash, dumps, findings);
        require(found.known || !crash.pc);
        require(!found.known || !found.message.empty());
        require(!found.at || !location_text(dumps, *found.at).empty());
        for (const std::size_t index : found.findings)
            require(index < findings.size());
    }
    return 0;
}
