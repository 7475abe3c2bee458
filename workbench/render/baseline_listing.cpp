#include "workbench/render/baseline_listing.hpp"

#include "check/relocation.hpp"
#include "workbench/analysis/baseline.hpp"
#include "workbench/analysis/canonical_code.hpp"
#include "workbench/input/line_reader.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/constants.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace vorna::workbench {

std::string baseline_listing(const placed_kernel& kernel, disassembler& disassembler)
{
    const kernel_listing listing = list_without_addresses(kernel, disassembler);
    std::string text =
        fmt::format("{}  {}, {}; data {}\n", escaped_name(kernel.name), pluralize(kernel.text.size(), "byte"),
                    pluralize(listing.instructions, "instruction"), pluralize(kernel.data.size(), "byte"));
    const int digits = offset_digits(kernel);
    for (const listing_row& row : listing.rows) {
        if (!row.label.empty())
            text += row.label + ":\n";
        text += fmt::format(" {}\n", row_text(row, digits));
    }
    if (!kernel.relocs.empty())
        text += "relocations:\n";
    for (const tessjit::reloc_info& reloc : relocations_by_place(kernel)) {
        const wfta::relocation_kind* const kind = wfta::find_relocation_kind(reloc.type);
        text += fmt::format(
            " {:+#x}  {}  {} {:+}\n", reloc.offset, kind == nullptr ? std::to_string(reloc.type) : kind->name,
            is_own_data(kernel.name, reloc.name) ? ".rodata" : escaped_name(reloc.name), reloc.addend);
    }
    if (!kernel.data.empty())
        text += "constants:\n";
    const std::vector<constant> constants = split_constants(kernel.data);
    const int data_digits = hex_digits(kernel.data.size());
    for (std::size_t i = 0; i < constants.size(); i += 2) { // two a line
        std::string numbers;
        std::string values;
        for (std::size_t k = i; k < std::min(i + 2, constants.size()); ++k) {
            numbers += " " + hexadecimal(constants[k]);
            const std::string value = probable_double(constants[k]);
            if (!value.empty())
                values += (values.empty() ? "  ; " : ", ") + value;
        }
        text += fmt::format(" +{:0{}x} {}{}\n", 8 * i, data_digits, numbers, values);
    }
    return text;
}

// The parts of a listing that are compared: offset and word of each row, and everything after the rows except
// remarks.
static std::string facts_of(std::string_view text)
{
    std::string facts;
    bool rows = true;
    for_each_line(text, [&](const text_line& whole) {
        const std::string_view line = whole.text;
        if (line == "relocations:" || line == "constants:") {
            rows = false;
            facts += line;
        } else if (!rows) {
            facts += line.substr(0, line.find("  ; "));
        } else if (line.substr(0, 2) == " +") {
            const std::size_t word = line.find_first_not_of(' ', std::min(line.size(), line.find(' ', 1)));
            facts += line.substr(0, word == std::string_view::npos ? word : line.find(' ', word));
        } else {
            return;
        }
        facts += '\n';
    });
    return facts;
}

bool same_listing(std::string_view a, std::string_view b)
{
    return facts_of(a) == facts_of(b);
}

std::string listing_file_name(std::string_view kernel)
{
    constexpr std::size_t longest = 200;
    std::string name;
    for (const char c : kernel) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '_' || c == '-' || c == '+' || (c == '.' && !name.empty());
        name += plain ? std::string(1, c) : fmt::format("%{:02x}", static_cast<unsigned char>(c));
    }
    if (name.empty())
        name = "%";
    if (name.size() > longest)
        name = name.substr(0, longest - 33) + "%" + hash_of(kernel);
    return name + ".txt";
}

} // namespace vorna::workbench
