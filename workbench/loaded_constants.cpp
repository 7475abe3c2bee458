#include "workbench/loaded_constants.hpp"

#include "workbench/known_addresses.hpp"
#include "workbench/output.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

namespace vorna::workbench {

namespace {

using wfta::addressing_mode;
using wfta::known_access;
using wfta::memory_access;

constexpr std::size_t word_size = 4;

enum class number_kind { floating_point, signed_integer, unsigned_integer };

/// How the bytes of a register are to be read.
struct element {
    number_kind kind;
    std::size_t size;
};

bool starts_with(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

template <typename T>
T read(const std::uint8_t* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// The shortest text that reads back as the same number.
template <typename T>
std::string floating_point_text(T value)
{
    std::string text = fmt::format("{}", value);
    if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos)
        text += ".0";
    return text;
}

float half_to_float(std::uint16_t half)
{
    const int exponent = half >> 10 & 0x1f;
    const int fraction = half & 0x3ff;
    float magnitude = 0;
    if (exponent == 0x1f)
        magnitude = fraction == 0 ? INFINITY : NAN;
    else if (exponent == 0)
        magnitude = std::ldexp(static_cast<float>(fraction), -24);
    else
        magnitude = std::ldexp(static_cast<float>(0x400 + fraction), exponent - 25);
    return (half & 0x8000) != 0 ? -magnitude : magnitude;
}

std::string number_text(const std::uint8_t* bytes, const element& element)
{
    if (element.kind == number_kind::floating_point && element.size == 8)
        return floating_point_text(read<double>(bytes));
    if (element.kind == number_kind::floating_point && element.size == 4)
        return floating_point_text(read<float>(bytes));
    if (element.kind == number_kind::floating_point && element.size == 2)
        return floating_point_text(half_to_float(read<std::uint16_t>(bytes)));
    std::uint64_t value = 0;
    std::memcpy(&value, bytes, element.size);
    if (element.kind != number_kind::signed_integer)
        return fmt::format("{}", value);
    const std::size_t unused_bits = 64 - 8 * element.size;
    return fmt::format("{}", static_cast<std::int64_t>(value << unused_bits) >> unused_bits);
}

/// Whether operands name the FP and SIMD register, under any of its names: "v7.2d", "d7", "z7.d".
bool names_register(std::string_view operands, unsigned number)
{
    const std::string digits = std::to_string(number);
    for (std::size_t at = operands.find(digits); at != std::string_view::npos;
         at = operands.find(digits, at + 1)) {
        const std::size_t end = at + digits.size();
        const bool is_whole = end == operands.size() || operands[end] < '0' || operands[end] > '9';
        if (is_whole && at > 0 &&
            std::string_view("vzbhsdq").find(operands[at - 1]) != std::string_view::npos)
            return true;
    }
    return false;
}

/// The size of the elements as which an instruction's text names the vector register: 8 for "v7.2d" and
/// "v7.d[0]"; 0 if it does not name it.
std::size_t element_size_in(std::string_view operands, unsigned number)
{
    const std::string name = fmt::format("v{}.", number);
    for (std::size_t at = operands.find(name); at != std::string_view::npos;
         at = operands.find(name, at + 1)) {
        if (at != 0 && operands[at - 1] != ' ' && operands[at - 1] != '{')
            continue;
        const std::size_t letter = operands.find_first_not_of("0123456789", at + name.size());
        switch (letter == std::string_view::npos ? ' ' : operands[letter]) {
        case 'd':
            return 8;
        case 's':
            return 4;
        case 'h':
            return 2;
        case 'b':
            return 1;
        default:
            return 0;
        }
    }
    return 0;
}

/// What the next instruction of straight-line code that computes with the vector register takes it for;
/// doubles if there is none. One that only moves its bytes about, as EOR does with a mask of signs, tells
/// nothing.
element used_as(const std::vector<listing_row>& rows, std::size_t load, unsigned number)
{
    static constexpr std::string_view integer_arithmetic[] = {"add",   "addp", "sub",  "mul",  "mla",
                                                              "mls",   "cmeq", "cmgt", "cmhi", "scvtf",
                                                              "ucvtf", "sshl", "ushl", "tbl",  "tbx"};
    const element doubles = {number_kind::floating_point, 8};
    constexpr std::size_t farthest = 1000; // instructions, beyond which nobody would look either
    const std::size_t end = std::min(rows.size(), load + 1 + farthest);
    for (std::size_t i = load + 1; i < end && rows[i].label.empty(); ++i) {
        const std::string_view text = rows[i].text;
        const std::size_t blank = std::min(text.find(' '), text.size());
        const std::string_view mnemonic = text.substr(0, blank);
        const std::string_view operands = text.substr(blank);
        const std::size_t comma = std::min(operands.find(','), operands.size());
        const std::string_view destination = operands.substr(0, comma);
        const std::string_view sources = operands.substr(comma);
        const std::size_t source_size = element_size_in(sources, number);
        const std::size_t size = source_size != 0 ? source_size : element_size_in(destination, number);
        if (size > 1 && mnemonic.front() == 'f')
            return {number_kind::floating_point, size};
        if (size != 0 && std::find(std::begin(integer_arithmetic), std::end(integer_arithmetic), mnemonic) !=
                             std::end(integer_arithmetic))
            return {number_kind::signed_integer, size};
        const bool overwritten = names_register(destination, number) && !names_register(sources, number) &&
                                 !starts_with(mnemonic, "st");
        if (overwritten || wfta::ends_block(rows[i].word))
            break;
    }
    return doubles;
}

/// How the load reads its registers.
element element_of(const memory_access& access, const std::vector<listing_row>& rows, std::size_t load)
{
    const std::string_view name = wfta::instruction_name(rows[load].word);
    const std::size_t register_size = access.bytes / access.registers;
    if (!access.fp_simd) {
        const bool zero_extended = register_size < 4 && name.find("LDRS") == std::string_view::npos &&
                                   name.find("LDURS") == std::string_view::npos;
        return {zero_extended ? number_kind::unsigned_integer : number_kind::signed_integer,
                std::min<std::size_t>(register_size, sizeof(std::uint64_t))};
    }
    const bool structure = starts_with(name, "LD1") || starts_with(name, "LD2") || starts_with(name, "LD3") ||
                           starts_with(name, "LD4");
    if (structure)
        return {access.element_bytes > 1 ? number_kind::floating_point : number_kind::unsigned_integer,
                access.element_bytes};
    if (register_size >= 8)
        return used_as(rows, load, access.first_register);
    return {register_size > 1 ? number_kind::floating_point : number_kind::unsigned_integer, register_size};
}

/// What one execution of the load reads: a vector in braces for each register of several elements.
std::string values_text(const std::uint8_t* bytes, const memory_access& access, const element& element)
{
    const std::size_t register_size = access.bytes / access.registers;
    std::string text;
    for (std::size_t at = 0; at < access.bytes; at += element.size) {
        const bool first = at % register_size == 0;
        const bool last = (at + element.size) % register_size == 0;
        text += at == 0 ? "" : ", ";
        text += first && !last ? "{" : "";
        text += number_text(bytes + at, element);
        text += last && !first ? "}" : "";
    }
    return text;
}

std::string describe(const placed_kernel& kernel, const known_access& load, const element& element,
                     std::size_t times)
{
    std::string text = with_addend(".rodata", *load.target_offset);
    const auto lies_in_data = [&](std::int64_t offset) {
        return load.access.bytes <= kernel.data.size() && // and a negative offset is a large one
               static_cast<std::uint64_t>(offset) <= kernel.data.size() - load.access.bytes;
    };
    if (!lies_in_data(*load.target_offset))
        return text +
               fmt::format(", outside the constants, which have {}", counted(kernel.data.size(), "byte"));
    text += "  ";
    std::int64_t offset = *load.target_offset;
    for (std::size_t i = 0; i < times && lies_in_data(offset); ++i, offset += load.access.offset) {
        text += i == 0 ? "" : ", ";
        text += values_text(kernel.data.data() + offset, load.access, element);
    }
    return times > 1 && lies_in_data(offset) ? text + ", ..." : text;
}

bool is_own_data(const placed_kernel& kernel, const std::string& target)
{
    return names_data(target) && target.compare(data_prefix.size(), std::string::npos, kernel.name) == 0;
}

/// The branches back of a kernel: from where to where.
struct loop {
    std::size_t begin; ///< index of the first row
    std::size_t end;   ///< index of the branch
};

std::vector<loop> find_loops(const std::vector<listing_row>& rows)
{
    std::vector<loop> loops;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].branch_target && *rows[i].branch_target <= rows[i].offset && !wfta::is_call(rows[i].word))
            loops.push_back({*rows[i].branch_target / word_size, i});
    }
    return loops;
}

/// Whether the load is executed again and again and it alone changes its base register meanwhile.
bool walks(const std::vector<listing_row>& rows, const std::vector<loop>& loops, const known_access& load)
{
    const std::size_t row = load.offset / word_size;
    const loop* innermost = nullptr;
    for (const loop& candidate : loops) {
        if (candidate.begin <= row && row <= candidate.end &&
            (innermost == nullptr || candidate.end - candidate.begin < innermost->end - innermost->begin))
            innermost = &candidate;
    }
    if (innermost == nullptr || load.access.addressing != addressing_mode::post_index ||
        load.access.offset == 0)
        return false;
    for (std::size_t i = innermost->begin; i <= innermost->end; ++i) {
        if (i != row && (wfta::written_registers(rows[i].word) >> load.access.base & 1) != 0)
            return false;
    }
    return true;
}

} // namespace

std::unordered_map<std::size_t, std::string>
describe_loads(const kernel_set& set, const placed_kernel& kernel, const std::vector<listing_row>& rows)
{
    const wfta::target_address address_of = [&](const std::string& target) -> std::optional<std::uint64_t> {
        if (is_own_data(kernel, target))
            return kernel.data_address;
        const placed_kernel* const callee = target == kernel.name ? &kernel : find_kernel(set, target);
        return callee == nullptr ? std::nullopt : std::optional(callee->text_address);
    };
    std::unordered_map<std::size_t, std::string> comments;
    const auto add = [&](const known_access& load, std::size_t times) {
        if (load.access.load && load.target_offset &&
            is_own_data(kernel, kernel.relocs[load.relocation].name)) {
            const element element = element_of(load.access, rows, load.offset / word_size);
            comments.emplace(load.offset, describe(kernel, load, element, times));
        }
    };
    for (const known_access& access :
         wfta::known_accesses(kernel.name, kernel.text, kernel.relocs, address_of))
        add(access, 1);

    // Where a loop begins nothing is known of a register any more. A load that walks through a table begins
    // with what the register holds when the loop is entered: as if the branches back were not there.
    const std::vector<loop> loops = find_loops(rows);
    constexpr std::size_t most_loops = 1000; // all are searched for each load
    if (loops.empty() || loops.size() > most_loops)
        return comments;
    constexpr std::uint32_t nop = 0xd503201f;
    std::vector<std::uint8_t> first_pass = kernel.text;
    for (const loop& loop : loops)
        std::memcpy(first_pass.data() + rows[loop.end].offset, &nop, sizeof nop);
    for (const known_access& access :
         wfta::known_accesses(kernel.name, first_pass, kernel.relocs, address_of)) {
        constexpr std::size_t values = 4;
        if (!walks(rows, loops, access))
            continue;
        const std::size_t values_each = std::max<std::size_t>(
            1, access.access.bytes / element_of(access.access, rows, access.offset / word_size).size);
        add(access, std::max<std::size_t>(1, values / values_each));
    }
    return comments;
}

} // namespace vorna::workbench
