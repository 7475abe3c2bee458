#include "workbench/analysis/baseline.hpp"

#include "check/relocation.hpp"
#include "workbench/analysis/canonical_code.hpp"
#include "workbench/input/line_reader.hpp"
#include "workbench/input/scanner.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/counts.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <stdexcept>
#include <tuple>
#include <xxhash.h>

namespace vorna::workbench {

namespace {

constexpr std::string_view first_line = "vorna-kernels baseline 1";

std::string hash_of(const void* bytes, std::size_t size)
{
    const XXH128_hash_t hash = XXH3_128bits(bytes, size);
    return fmt::format("{:016x}{:016x}", hash.high64, hash.low64);
}

void append(std::string& bytes, std::uint32_t number)
{
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

[[noreturn]] void fail(std::size_t line, const std::string& what)
{
    throw std::runtime_error(fmt::format("line {}: {}", line, what));
}

bool is_hexadecimal(std::string_view text)
{
    return text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string unescaped_name(std::string_view text, std::size_t line)
{
    if (text == "\\e")
        return "";
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            name += text[i];
            continue;
        }
        unsigned byte = 0;
        const std::string_view digits = text.substr(i + 1).substr(0, 3);
        if (digits.size() != 3 || digits[0] != 'x' || !is_hexadecimal(digits.substr(1)))
            fail(line, "invalid escape, expected \\x and two digits");
        std::from_chars(digits.data() + 1, digits.data() + 3, byte, 16);
        name += static_cast<char>(byte);
        i += 3;
    }
    if (escaped_name(name) != text)
        fail(line, "name not in canonical form");
    return name;
}

baseline_entry parse_line(std::string_view text, std::size_t line)
{
    constexpr std::size_t hash_digits = 32;
    scanner fields(text);
    std::string_view name;
    std::string_view hashes[3];
    const bool whole = fields.take_word(name) && fields.take_word(hashes[0]) && fields.take_word(hashes[1]) &&
                       fields.take_word(hashes[2]) && fields.rest().find(' ') == std::string_view::npos;
    const bool hashed = std::all_of(std::begin(hashes), std::end(hashes), [](std::string_view hash) {
        return hash.size() == hash_digits && is_hexadecimal(hash);
    });
    static constexpr std::string_view markers[] = {"<<<<<<<", "|||||||", "=======", ">>>>>>>"};
    const bool marked = std::find(std::begin(markers), std::end(markers), name) != std::end(markers);
    if (marked && !(whole && hashed))
        fail(line, "unresolved merge conflict");
    if (!whole || name.empty())
        fail(line, "expected a name, three hashes and a number");
    if (!hashed)
        fail(line, "expected hashes of 32 hexadecimal digits");
    baseline_entry entry;
    entry.line = line;
    entry.name = unescaped_name(name, line);
    entry.fingerprint = {std::string(hashes[0]), std::string(hashes[1]), std::string(hashes[2])};
    if (!fields.take(entry.fingerprint.instructions) || !fields.at_end())
        fail(line, "invalid number of instructions");
    return entry;
}

// The lines of a text in memory, whatever their lengths, are views of it.
template <typename Take>
void for_each_line(std::string_view text, const Take& take)
{
    line_reader lines(text.size());
    lines.read(text, take);
    lines.finish(take);
}

// A double that somebody may have meant, or nothing.
std::string value_text(std::uint64_t bits)
{
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value == 0 || (value > -1e30 && value < -1e-30) || (value > 1e-30 && value < 1e30)
               ? fmt::format("{}", value)
               : "";
}

} // namespace

bool operator==(const kernel_fingerprint& a, const kernel_fingerprint& b)
{
    return std::tie(a.code, a.relocations, a.constants, a.instructions) ==
           std::tie(b.code, b.relocations, b.constants, b.instructions);
}

kernel_fingerprint fingerprint_of(const placed_kernel& kernel)
{
    std::string relocations;
    for (const tessjit::reloc_info& reloc : relocations_by_place(kernel)) {
        append(relocations, static_cast<std::uint32_t>(reloc.offset));
        append(relocations, static_cast<std::uint32_t>(reloc.type));
        append(relocations, static_cast<std::uint32_t>(reloc.addend));
        const bool own = is_own_data(kernel.name, reloc.name);
        relocations += own ? '\1' : '\0';
        if (!own) {
            append(relocations, static_cast<std::uint32_t>(reloc.name.size()));
            relocations += reloc.name;
        }
    }
    return {hash_of(kernel.text.data(), kernel.text.size()), hash_of(relocations.data(), relocations.size()),
            hash_of(kernel.data.data(), kernel.data.size()), kernel.text.size() / 4};
}

baseline parse_baseline(std::string_view text)
{
    std::map<std::string, baseline_entry> entries;
    const auto take = [&entries](const text_line& line) {
        if (line.number == 1 && line.text != first_line)
            fail(1, fmt::format("expected \"{}\"", first_line));
        if (!line.ended)
            fail(line.number, "truncated");
        if (line.number == 1)
            return;
        baseline_entry entry = parse_line(line.text, line.number);
        const auto [place, added] = entries.emplace(entry.name, entry);
        if (!added)
            fail(line.number, fmt::format("duplicate kernel {}, first in line {}", escaped_name(entry.name),
                                          place->second.line));
    };
    if (text.empty())
        take({{}, 1, false, false});
    for_each_line(text, take);
    baseline sorted;
    for (auto& [name, entry] : entries)
        sorted.push_back(std::move(entry));
    return sorted;
}

std::string format_baseline(const baseline& entries)
{
    std::string text = fmt::format("{}\n", first_line);
    for (const baseline_entry& entry : entries) {
        const kernel_fingerprint& f = entry.fingerprint;
        text += fmt::format("{} {} {} {} {}\n", escaped_name(entry.name), f.code, f.relocations, f.constants,
                            f.instructions);
    }
    return text;
}

std::string escaped_name(std::string_view name)
{
    if (name.empty())
        return "\\e";
    std::string text;
    for (const char c : name) {
        if (c > ' ' && c < '\x7f' && c != '\\')
            text += c;
        else
            text += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return text;
}

std::string_view name_of(baseline_status status)
{
    static constexpr std::string_view names[] = {"same", "changed", "added", "removed"};
    return names[static_cast<std::size_t>(status)];
}

bool baseline_difference::code_changed() const
{
    return before && after && (before->code != after->code || before->instructions != after->instructions);
}

bool baseline_difference::relocations_changed() const
{
    return before && after && before->relocations != after->relocations;
}

bool baseline_difference::constants_changed() const
{
    return before && after && before->constants != after->constants;
}

std::vector<baseline_difference> compare_with_baseline(const baseline& entries, const kernel_set& set)
{
    std::map<std::string, baseline_difference> kernels;
    for (const baseline_entry& entry : entries) {
        baseline_difference& difference = kernels[entry.name];
        difference.before = entry.fingerprint;
        difference.line = entry.line;
    }
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        baseline_difference& difference = kernels[kernel.name];
        const kernel_fingerprint fingerprint = fingerprint_of(kernel);
        if (difference.after && !(*difference.after == fingerprint)) {
            throw std::runtime_error(fmt::format("{} and {}: two different kernels named {}",
                                                 set.kernels[difference.kernel].file, kernel.file,
                                                 escaped_name(kernel.name)));
        }
        if (!difference.after)
            difference.kernel = i;
        difference.after = fingerprint;
    }

    std::vector<baseline_difference> differences;
    for (auto& [name, difference] : kernels) {
        difference.name = name;
        if (!difference.before)
            difference.status = baseline_status::added;
        else if (!difference.after)
            difference.status = baseline_status::removed;
        else if (!(*difference.before == *difference.after))
            difference.status = baseline_status::changed;
        differences.push_back(std::move(difference));
    }
    // Added kernels are at the line of the next one that is not, or at the last.
    std::size_t line = 1;
    for (const baseline_entry& entry : entries)
        line = std::max(line, entry.line);
    for (auto difference = differences.rbegin(); difference != differences.rend(); ++difference) {
        if (difference->before)
            line = difference->line;
        else
            difference->line = line;
    }
    return differences;
}

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
    constexpr std::size_t bytes_a_line = 16;
    const auto data_digits = fmt::formatted_size("{:x}", kernel.data.size());
    for (std::size_t offset = 0; offset < kernel.data.size(); offset += bytes_a_line) {
        std::string numbers;
        std::string values;
        for (std::size_t at = offset; at < std::min(offset + bytes_a_line, kernel.data.size()); at += 8) {
            const std::size_t bytes = std::min<std::size_t>(8, kernel.data.size() - at);
            std::uint64_t bits = 0;
            std::memcpy(&bits, kernel.data.data() + at, bytes);
            numbers += fmt::format(" {:0{}x}", bits, 2 * bytes);
            const std::string value = bytes == 8 ? value_text(bits) : "";
            if (!value.empty())
                values += fmt::format("{}{}", values.empty() ? "  ; " : ", ", value);
        }
        text += fmt::format(" +{:0{}x} {}{}\n", offset, data_digits, numbers, values);
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
        name = name.substr(0, longest - 33) + "%" + hash_of(kernel.data(), kernel.size());
    return name + ".txt";
}

} // namespace vorna::workbench
