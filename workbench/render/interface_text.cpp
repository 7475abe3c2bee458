#include "workbench/render/interface_text.hpp"

#include "workbench/text/counts.hpp"

#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <optional>
#include <string_view>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t most_columns = 100;

/// "x19" as 'x' and 19; nothing for names without a number.
std::optional<std::pair<char, unsigned>> numbered(std::string_view name)
{
    if (name.size() < 2 || name.size() > 3)
        return std::nullopt;
    unsigned number = 0;
    for (const char c : name.substr(1)) {
        if (c < '0' || c > '9')
            return std::nullopt;
        number = 10 * number + static_cast<unsigned>(c - '0');
    }
    return std::pair(name[0], number);
}

bool follows(std::string_view name, std::string_view before)
{
    const auto a = numbered(before);
    const auto b = numbered(name);
    return a && b && a->first == b->first && a->second + 1 == b->second;
}

/// The names from `begin` to `end`, which are consecutive registers, separated by commas.
std::string run_text(const std::vector<std::string>& names, std::size_t begin, std::size_t end)
{
    if (end - begin > 2)
        return names[begin] + "-" + names[end - 1];
    return end - begin == 2 ? names[begin] + ", " + names[begin + 1] : names[begin];
}

/// "x19-x22 at cfa-32, x30 at cfa-40": registers that are consecutive in memory, too, and the place of the
/// first. A place is relative to the canonical frame address, which is SP at entry.
std::string saves_text(const std::vector<saved_register>& saves)
{
    std::vector<std::string> names;
    names.reserve(saves.size());
    for (const saved_register& saved : saves)
        names.push_back(saved.name);
    std::string text;
    for (std::size_t begin = 0, end = 0; begin < saves.size(); begin = end) {
        for (end = begin + 1; end < saves.size() && follows(names[end], names[end - 1]); ++end) {
            const std::int64_t distance = saves[end].slot - saves[end - 1].slot;
            if (distance <= 0 || (end > begin + 1 && distance != saves[begin + 1].slot - saves[begin].slot))
                break;
        }
        text += fmt::format("{}{} at cfa{:+}", text.empty() ? "" : ", ", run_text(names, begin, end),
                            saves[begin].slot);
    }
    return text;
}

std::string live_text(const kernel_interface& interface, int offset_digits)
{
    std::string text;
    for (const auto& [kind, live] : {std::pair("general", interface.general),
                                     {"vector", interface.vector},
                                     {"predicate", interface.predicate}}) {
        if (live.most != 0)
            text += fmt::format("{}{} {} (+{:0{}x})", text.empty() ? "" : ", ", live.most, kind, live.offset,
                                offset_digits);
    }
    return text;
}

std::vector<std::string> fields_of(const kernel_interface& interface, int offset_digits)
{
    std::vector<std::string> fields;
    const auto add = [&](std::string_view title, const std::string& text) {
        if (!text.empty())
            fields.push_back(fmt::format("{} {}", title, text));
    };
    std::vector<std::string> reads = interface.reads;
    if (interface.reads_constants)
        reads.emplace_back(".rodata");
    add("reads", register_list(reads));
    add("writes", register_list(interface.writes));
    add("saves", saves_text(interface.saves));
    add("stack",
        interface.stack ? pluralize(static_cast<std::uint64_t>(*interface.stack), "byte") : "unknown");
    if (interface.spill_stores + interface.spill_loads != 0)
        add("spills",
            pluralize(interface.spill_stores, "store") + ", " + pluralize(interface.spill_loads, "load"));
    add("calls", join_some(interface.calls));
    if (interface.returns_elsewhere)
        add("may return", "otherwise than by x30");
    add("max live", live_text(interface, offset_digits));
    std::string needs;
    for (const std::string& feature : interface.needs)
        needs += (needs.empty() ? "" : ", ") + feature;
    add("needs", needs);
    if (!interface.followed)
        add("incomplete,", "see 'unfollowed' in check");
    return fields;
}

} // namespace

std::string register_list(const std::vector<std::string>& names)
{
    std::string text;
    for (std::size_t begin = 0, end = 0; begin < names.size(); begin = end) {
        for (end = begin + 1; end < names.size() && follows(names[end], names[end - 1]);)
            ++end;
        text += (text.empty() ? "" : ", ") + run_text(names, begin, end);
    }
    return text;
}

std::string register_list(register_set registers)
{
    return register_list(names_of(registers.reset(stack_pointer)));
}

std::string interface_text(const kernel_interface& interface, int offset_digits)
{
    std::string text;
    for (const std::string& field : fields_of(interface, offset_digits))
        text += (text.empty() ? "" : "; ") + field;
    return text;
}

std::vector<std::string> interface_lines(const kernel_interface& interface, int offset_digits)
{
    std::vector<std::string> lines;
    std::string line;
    const auto add = [&](std::string_view part, std::string_view separator, std::string_view indentation) {
        const bool fits = line.size() + separator.size() + part.size() < most_columns; // and a ";" or ","
        if (!line.empty() && fits) {
            line += fmt::format("{}{}", separator, part);
            return;
        }
        if (!line.empty())
            lines.push_back(line + std::string(separator.substr(0, 1)));
        line = fmt::format("{}{}", indentation, part);
    };
    for (std::string_view field : fields_of(interface, offset_digits)) {
        add(field, "; ", "  ");
        // A field that is longer than a line is broken after the last comma that fits, or the first one.
        while (line.size() > most_columns) {
            std::size_t comma = line.rfind(", ", most_columns - 1);
            if (comma == std::string::npos)
                comma = line.find(", ");
            if (comma == std::string::npos)
                break;
            lines.push_back(line.substr(0, comma + 1));
            line = "    " + line.substr(comma + 2);
        }
    }
    lines.push_back(line);
    return lines;
}

json interface_json(const kernel_interface& interface)
{
    json saves = json::array();
    for (const saved_register& saved : interface.saves)
        saves.push_back(saved.name);
    const auto peak = [](const live_peak& live) {
        return json{{"most", live.most}, {"offset", live.offset}};
    };
    return {{"reads", interface.reads},
            {"writes", interface.writes},
            {"saves", std::move(saves)},
            {"calls", interface.calls},
            {"stack", interface.stack ? json(*interface.stack) : json()},
            {"needs", interface.needs},
            {"live",
             {{"general", peak(interface.general)},
              {"vector", peak(interface.vector)},
              {"predicate", peak(interface.predicate)}}},
            {"followed", interface.followed}};
}

} // namespace vorna::workbench
