// Any text in place of perf script's is read or refused, the same way wherever it is split, and the counts
// add up.

#include "workbench/analysis/profile.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

using namespace vorna::workbench;

namespace {

void require(bool condition)
{
    if (!condition)
        abort();
}

placed_kernel kernel(const char* name, std::uint64_t text_address, std::size_t text,
                     std::uint64_t data_address, std::size_t data)
{
    using bytes = std::vector<std::uint8_t>;
    return {name, text_address, bytes(text), data_address, bytes(data), {}, 0, ""};
}

/// Two mappings, at 0x10000 and at 0x30000.
const kernel_set& some_kernels()
{
    static const kernel_set set =
        make_kernel_set({kernel("a", 0x10000, 64, 0x10100, 16), kernel("b", 0x10040, 24, 0x10110, 8),
                         kernel("empty", 0x10080, 0, 0x10118, 0), kernel("c", 0x30000, 0x3000, 0x34000, 0)});
    return set;
}

std::optional<profile> read(std::string_view text, std::size_t piece)
{
    profile_reader reader(some_kernels());
    try {
        for (std::size_t at = 0; at < text.size(); at += piece)
            reader.read(text.substr(at, piece));
        return reader.finish();
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

bool same(const sample_count& a, const sample_count& b)
{
    return a.samples == b.samples && a.period == b.period;
}

void require_same(const profile& a, const profile& b)
{
    require(a.text.bad_lines == b.text.bad_lines && a.text.first_bad_line == b.text.first_bad_line &&
            a.text.lost == b.text.lost);
    require(std::equal(a.events.begin(), a.events.end(), b.events.begin(), b.events.end(),
                       [](const event_profile& x, const event_profile& y) {
                           return x.event == y.event && same(x.total, y.total) &&
                                  same(x.in_kernels, y.in_kernels) && same(x.unknown, y.unknown) &&
                                  same(x.elsewhere, y.elsewhere) && x.kernels.size() == y.kernels.size();
                       }));
}

void require_sums(const event_profile& event)
{
    require(event.total.samples != 0 && !event.event.empty());
    require(event.total.samples ==
            event.in_kernels.samples + event.unknown.samples + event.elsewhere.samples);
    std::uint64_t in_kernels = 0;
    for (const kernel_profile& kernel : event.kernels) {
        require(!kernel.rows.empty());
        std::uint64_t samples = 0;
        for (const profile_row& row : kernel.rows) {
            require(row.count.samples != 0 && row.offset < some_kernels().kernels[kernel.kernel].text.size());
            samples += row.count.samples;
        }
        require(samples == kernel.count.samples);
        in_kernels += samples;
    }
    require(in_kernels == event.in_kernels.samples);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char*>(bytes + 1), size - 1);
    const std::optional<profile> whole = read(text, std::max<std::size_t>(text.size(), 1));
    const std::optional<profile> pieces = read(text, 1 + bytes[0] % 61);
    require(whole.has_value() == pieces.has_value());
    if (!whole)
        return 0;
    require_same(*whole, *pieces);
    for (const event_profile& event : whole->events)
        require_sums(event);
    return 0;
}
