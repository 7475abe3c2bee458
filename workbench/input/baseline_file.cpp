#include "workbench/input/baseline_file.hpp"

#include "workbench/input/line_reader.hpp"
#include "workbench/input/scanner.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <stdexcept>

namespace vorna::workbench {

namespace {

constexpr std::string_view first_line = "vorna-kernels baseline 1";

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

} // namespace

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

} // namespace vorna::workbench
