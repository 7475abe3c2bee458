// Any text is read as a baseline or refused with its line number; what was read is written back unchanged,
// except order and line ends. Any text is compared as a listing that lies beside a baseline.

#include "workbench/input/baseline_file.hpp"
#include "workbench/render/baseline_listing.hpp"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

using vorna::workbench::baseline;

static void require(bool condition)
{
    if (!condition)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    require(vorna::workbench::same_listing(text, text));
    baseline entries;
    try {
        entries = vorna::workbench::parse_baseline(text);
    } catch (const std::runtime_error& error) {
        require(std::strncmp(error.what(), "line ", 5) == 0);
        return 0;
    }
    const std::string written = format_baseline(entries);
    const baseline again = vorna::workbench::parse_baseline(written);
    require(again.size() == entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        require(again[i].name == entries[i].name && again[i].fingerprint == entries[i].fingerprint);
        require(i == 0 || entries[i - 1].name < entries[i].name);
    }
    return 0;
}
