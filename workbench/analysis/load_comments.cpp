// A load of a vector register does not state the type of its elements. It is taken from the next instruction
// in the same basic block that computes with the register; without one the elements are doubles.

#include "workbench/analysis/load_comments.hpp"

#include "workbench/analysis/address_tracking.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>

namespace vorna::workbench {

namespace {

constexpr std::size_t word_size = 4;

enum class number_kind { floating_point, signed_integer, unsigned_integer };

/// How the bytes of a register are to be read.
struct element {
    number_kind kind;
    std::size_t size;
};

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

/// The element type that the next instruction in the basic block uses the vector register with; double if
/// there is none.
element used_as(const decoded_kernel& code, const code_map& map, std::size_t load, register_id loaded)
{
    constexpr std::size_t farthest = 1000; // instructions, to bound the time
    const std::size_t end = std::min(code.instructions.size(), load + 1 + farthest);
    for (std::size_t i = load + 1; i < end && !map.leaders[i]; ++i) {
        const instruction& at = code.instructions[i];
        const bool used = uses_of(code, at)[loaded];
        if (const auto vector = used ? vector_element_of(at) : std::nullopt; vector && vector->bytes > 1)
            return {vector->floating_point ? number_kind::floating_point : number_kind::signed_integer,
                    vector->bytes};
        if (at.is_terminator() || (!used && defs_of(code, at)[loaded]))
            break;
    }
    return {number_kind::floating_point, 8};
}

/// The element type of the registers that are loaded.
element element_of(const memory_access& access, const decoded_kernel& code, const code_map& map,
                   std::size_t load)
{
    const std::size_t register_size = access.bytes / access.registers;
    if (!access.fp_simd) {
        const bool zero_extended = register_size < 4 && !access.sign_extended;
        return {zero_extended ? number_kind::unsigned_integer : number_kind::signed_integer,
                std::min<std::size_t>(register_size, sizeof(std::uint64_t))};
    }
    if (access.structure)
        return {access.element_bytes > 1 ? number_kind::floating_point : number_kind::unsigned_integer,
                access.element_bytes};
    if (register_size >= 8)
        return used_as(code, map, load, access.first_register);
    return {register_size > 1 ? number_kind::floating_point : number_kind::unsigned_integer, register_size};
}

/// The values that one execution of the load reads; a register with several elements as a vector in braces.
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

/// A range of offsets in the kernel's constants or code.
struct range {
    bool in_code;
    std::int64_t begin;
    std::int64_t end;
};

/// Describes the loads of one kernel.
class load_describer {
public:
    load_describer(const kernel_set* set, const decoded_kernel& code, const code_map& map)
        : kernel_(*code.kernel), code_(code), map_(map)
    {
        const target_address address_of = [&](const std::string& target) -> std::optional<std::uint64_t> {
            if (set == nullptr)
                return std::nullopt;
            const wfta::relocation_target found = find_target(*set, kernel_, target);
            return found.state == wfta::relocation_target::where::placed ? std::optional(found.address)
                                                                         : std::nullopt;
        };
        known_ = find_known_addresses(code, map, address_of);
        for (const known_access& access : known_.accesses) {
            if (access.access.store && access.target_offset && is_own(access))
                add_written(access);
        }
        std::sort(written_.begin(), written_.end(),
                  [](const range& a, const range& b) { return a.begin < b.begin; });
    }

    described_loads run()
    {
        for (const known_access& access : known_.accesses) {
            if (access.access.load && access.target_offset && is_own(access))
                add(access);
        }
        for (std::size_t i = 0; i < map_.uses.size(); ++i) {
            const instruction& at = code_.instructions[i];
            if (map_.uses[i] != word_use::code || !at.pc_relative || !at.may_load)
                continue;
            if (const auto literal = memory_access_of(code_, at)) {
                known_access load{word_size * i, *literal, {}, {}, {}, false, {}};
                load.target_offset = static_cast<std::int64_t>(load.offset) + literal->offset;
                add(load);
            }
        }
        return std::move(described_);
    }

private:
    [[nodiscard]] bool is_in_code(const known_access& access) const
    {
        return !access.relocation || kernel_.relocs[*access.relocation].name == kernel_.name;
    }

    [[nodiscard]] bool is_own(const known_access& access) const
    {
        return is_in_code(access) || is_own_data(kernel_.name, kernel_.relocs[*access.relocation].name);
    }

    // Adds the bytes that a store may write, in all its executions.
    void add_written(const known_access& store)
    {
        const std::int64_t first = *store.target_offset;
        if (store.walk && !store.walk->iterations) {
            known_.writes_somewhere = true;
            return;
        }
        std::int64_t last = first;
        if (store.walk) {
            constexpr std::int64_t farthest = std::int64_t{1} << 31;
            if (std::abs(store.walk->stride) > farthest) {
                known_.writes_somewhere = true;
                return;
            }
            last += static_cast<std::int64_t>(*store.walk->iterations - 1) * store.walk->stride;
        }
        written_.push_back(
            {is_in_code(store), std::min(first, last), std::max(first, last) + store.access.bytes});
        longest_written_ = std::max(longest_written_, written_.back().end - written_.back().begin);
    }

    [[nodiscard]] bool is_written(bool in_code, std::int64_t begin, std::int64_t end) const
    {
        if (known_.writes_somewhere)
            return true;
        auto store = std::lower_bound(written_.begin(), written_.end(), begin - longest_written_,
                                      [](const range& a, std::int64_t b) { return a.begin < b; });
        for (; store != written_.end() && store->begin < end; ++store) {
            if (store->in_code == in_code && store->end > begin)
                return true;
        }
        return false;
    }

    /// Whether the bytes never change: no store writes them and no relocation fills them.
    [[nodiscard]] bool are_constants(bool in_code, std::int64_t offset, std::size_t bytes) const
    {
        const std::vector<std::uint8_t>& memory = in_code ? kernel_.text : kernel_.data;
        if (bytes > memory.size() || offset < 0 || static_cast<std::uint64_t>(offset) > memory.size() - bytes)
            return false;
        const auto begin = static_cast<std::size_t>(offset);
        for (std::size_t word = begin / word_size; in_code && word_size * word < begin + bytes; ++word) {
            if (word >= map_.uses.size() || map_.uses[word] != word_use::data ||
                code_.instructions[word].relocated != word_relocation::none)
                return false;
        }
        return true;
    }

    void add(const known_access& load)
    {
        const bool in_code = is_in_code(load);
        const std::int64_t offset = *load.target_offset;
        const std::size_t bytes = load.access.bytes;
        const bool there = are_constants(in_code, offset, bytes);
        if (in_code && !there)
            return;
        std::string text = in_code ? fmt::format(".L{:x}", offset) : with_addend(".rodata", offset);
        if (!there) {
            text +=
                fmt::format(", outside the constants, which have {}", pluralize(kernel_.data.size(), "byte"));
        } else {
            const element element = element_of(load.access, code_, map_, load.offset / word_size);
            if (in_code)
                described_.data.emplace(static_cast<std::size_t>(offset), data_text(load, element));
            if (may_be_written(in_code, load))
                text += ", which the kernel may overwrite";
            else
                text += "  " + all_values(load, element);
        }
        described_.comments.emplace(load.offset, text);
    }

    [[nodiscard]] bool may_be_written(bool in_code, const known_access& load) const
    {
        std::int64_t first = *load.target_offset;
        std::int64_t last = first;
        if (load.walk)
            last += static_cast<std::int64_t>(shown_iterations(load) - 1) * load.walk->stride;
        if (last < first)
            std::swap(first, last);
        return is_written(in_code, first, last + load.access.bytes);
    }

    // The iterations of a walk whose values are shown: only certain ones, and only the first few.
    [[nodiscard]] std::size_t shown_iterations(const known_access& load) const
    {
        if (!load.walk || !load.walk->iterations)
            return 1;
        constexpr std::size_t values = 4;
        const std::size_t in_iteration = std::max<std::size_t>(
            1, load.access.bytes / element_of(load.access, code_, map_, load.offset / word_size).size);
        return static_cast<std::size_t>(
            std::min<std::uint64_t>(*load.walk->iterations, std::max<std::size_t>(1, values / in_iteration)));
    }

    [[nodiscard]] std::string data_text(const known_access& load, const element& element) const
    {
        return values_text(kernel_.text.data() + *load.target_offset, load.access, element);
    }

    [[nodiscard]] std::string all_values(const known_access& load, const element& element) const
    {
        const bool in_code = is_in_code(load);
        const std::vector<std::uint8_t>& memory = in_code ? kernel_.text : kernel_.data;
        const std::size_t iterations = shown_iterations(load);
        std::string text;
        std::int64_t offset = *load.target_offset;
        for (std::size_t i = 0; i < iterations; ++i, offset += load.walk ? load.walk->stride : 0) {
            text += i == 0 ? "" : ", ";
            if (!are_constants(in_code, offset, load.access.bytes))
                return text + "then outside the constants";
            text += values_text(memory.data() + offset, load.access, element);
        }
        return load.walk && load.walk->iterations != iterations ? text + ", ..." : text;
    }

    const placed_kernel& kernel_;
    const decoded_kernel& code_;
    const code_map& map_;
    known_addresses known_;
    std::vector<range> written_; // ascending
    std::int64_t longest_written_ = 0;
    described_loads described_;
};

} // namespace

described_loads describe_loads(const kernel_set* set, const decoded_kernel& code, const code_map& map)
{
    return load_describer(set, code, map).run();
}

} // namespace vorna::workbench
