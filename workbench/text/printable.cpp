#include "workbench/text/printable.hpp"

namespace vorna::workbench {

std::string valid_utf8(std::string_view bytes)
{
    std::string text;
    while (!bytes.empty()) {
        const wfta::utf8_sequence sequence = wfta::first_sequence(bytes);
        text += sequence.valid ? bytes.substr(0, sequence.size) : "\xef\xbf\xbd";
        bytes.remove_prefix(sequence.size);
    }
    return text;
}

} // namespace vorna::workbench
