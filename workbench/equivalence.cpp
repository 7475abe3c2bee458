#include "workbench/equivalence.hpp"

#include "workbench/a64.hpp"
#include "workbench/code_flow.hpp"
#include "workbench/code_rows.hpp"
#include "workbench/known_addresses.hpp"
#include "workbench/registers.hpp"

#include <algorithm>
#include <array>
#include <elf.h>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

namespace vorna::workbench {

namespace {

// Roles of registers in the "Procedure Call Standard for the Arm 64-bit Architecture".
constexpr register_mask parameter_registers = general_mask(0, 8) | vector_mask(0, 7);
constexpr register_mask result_registers = general_mask(0, 1) | vector_mask(0, 3);
constexpr register_mask preserved_vectors = vector_mask(8, 15);
constexpr register_mask reserved_registers = general_mask(18, 30); // preserved ones among them
constexpr register_mask preserved_general = general_mask(19, 29);
constexpr register_mask call_temporaries = general_mask(9, 15) | vector_mask(16, 31);

bool is_own_data(const placed_kernel& kernel, const std::string& target)
{
    return names_data(target) && target.compare(data_prefix.size(), std::string::npos, kernel.name) == 0;
}

// For each word whether a relocation makes it form an address of the kernel's own data.
std::vector<bool> words_of_data(const placed_kernel& kernel)
{
    std::vector<bool> words(kernel.text.size() / 4);
    for (const tessjit::reloc_info& reloc : kernel.relocs) {
        if (is_own_data(kernel, reloc.name) && lies_within(kernel.text, reloc.offset))
            words[static_cast<std::size_t>(reloc.offset) / 4] = true;
    }
    return words;
}

} // namespace

loaded_constants find_loaded_constants(const placed_kernel& kernel)
{
    loaded_constants constants;
    for (const wfta::known_access& access : wfta::known_accesses(kernel.name, kernel.text, kernel.relocs)) {
        const bool in_data =
            access.target_offset && *access.target_offset >= 0 &&
            is_own_data(kernel, kernel.relocs[access.relocation].name) &&
            static_cast<std::uint64_t>(*access.target_offset) + access.access.bytes <= kernel.data.size();
        if (in_data && access.access.load && !access.access.store) {
            const auto begin = kernel.data.begin() + static_cast<std::ptrdiff_t>(*access.target_offset);
            constants[access.offset / 4].assign(begin, begin + access.access.bytes);
        }
    }
    return constants;
}

namespace {

// ADD or SUB of a constant, and MOV, of 64 bits: what known_accesses follows.
bool derives_address(std::uint32_t word)
{
    return (word & 0xbf800000) == 0x91000000 || (word & 0xffe0ffe0) == 0xaa0003e0;
}

// Whether addresses of the data serve nothing but the known loads: no other load or store, comparison, call,
// or caller may see one.
bool data_is_only_loaded(const placed_kernel& kernel, const loaded_constants& loads)
{
    const auto code = follow_code(kernel);
    if (!code || code->empty())
        return false;
    const auto boundary = find_boundary_registers(*code);
    if (!boundary)
        return false;
    const register_mask returned = boundary->results & general_mask(0, 1);
    const std::vector<bool> forms_address = words_of_data(kernel);

    // Registers that may hold an address of the data before each instruction.
    std::vector<register_mask> held(code->size() + 1);
    bool changed = true;
    for (int pass = 0; changed; ++pass) {
        constexpr int most_passes = 64;
        if (pass == most_passes)
            return false;
        changed = false;
        for (std::size_t i = 0; i < code->size(); ++i) {
            const code_step& step = (*code)[i];
            register_mask after = held[i] & ~step.replaces;
            if (forms_address[i]) {
                after |= step.writes;
            } else if (step.calls) {
                if ((held[i] & (step.reads | general_mask(0, 8))) != 0)
                    return false;
                after &= preserved_general;
            } else if ((held[i] & step.reads) != 0 && loads.count(i) == 0) {
                if (!derives_address(step.word))
                    return false;
                after |= step.writes;
            }
            if ((step.leaves || i + 1 == code->size()) && (after & returned) != 0)
                return false;
            const auto flow_to = [&](std::size_t next) {
                changed = changed || (after & ~held[next]) != 0;
                held[next] |= after;
            };
            if (step.continues)
                flow_to(i + 1);
            if (step.target)
                flow_to(*step.target);
        }
    }
    return true;
}

// The bits of a load's word that hold its offset from the base, which it does not write.
std::uint32_t offset_field(std::uint32_t word)
{
    if ((word & 0x3b000000) == 0x39000000)
        return 0x003ffc00; // in units of its size
    if ((word & 0x3b200c00) == 0x38000000)
        return 0x001ff000; // in bytes
    if ((word & 0x3a800000) == 0x28000000)
        return 0x003f8000; // of a pair
    return 0;
}

// A register of one kernel and what it is called in the other.
class renaming {
public:
    // Whether that is possible with what was added before.
    bool add(const register_operand& from, const register_operand& to)
    {
        const auto index = [](const register_operand& r) {
            return r.number + (r.bank == register_bank::general ? 0 : 32);
        };
        unsigned& forth = to_[index(from)];
        unsigned& back = from_[index(to)];
        if ((forth != unnamed && forth != index(to)) || (back != unnamed && back != index(from)))
            return false;
        forth = index(to);
        back = index(from);
        return true;
    }

    // Pairs of different registers as a mask of the old ones, or of the new ones.
    [[nodiscard]] register_mask old_names() const { return changed(to_); }
    [[nodiscard]] register_mask new_names() const { return changed(from_); }

    // Whether registers of the mask stay among themselves.
    [[nodiscard]] bool keeps(register_mask set) const
    {
        for (unsigned r = 0; r < to_.size(); ++r) {
            if (to_[r] != unnamed && (set >> r & 1) != (set >> to_[r] & 1))
                return false;
        }
        return true;
    }

private:
    static constexpr unsigned unnamed = 64;
    using names = std::array<unsigned, 64>;

    static names no_names()
    {
        names all;
        all.fill(unnamed);
        return all;
    }

    static register_mask changed(const names& names)
    {
        register_mask mask = 0;
        for (unsigned r = 0; r < names.size(); ++r) {
            if (names[r] != unnamed && names[r] != r)
                mask |= register_mask{1} << r;
        }
        return mask;
    }

    names to_ = no_names();
    names from_ = no_names();
};

// Registers that could have another number without anyone outside the kernel seeing it.
std::optional<register_mask> free_registers(const placed_kernel& kernel)
{
    const auto code = follow_code(kernel);
    if (!code)
        return std::nullopt;
    if (std::any_of(code->begin(), code->end(), [](const code_step& step) { return step.calls; }))
        return call_temporaries;
    const auto boundary = find_boundary_registers(*code);
    if (!boundary)
        return std::nullopt;
    // Bit 31, the stack pointer and the zero register, is of no X register.
    return ~(reserved_registers | general_mask(31, 31) |
             (boundary->parameters & (parameter_registers | preserved_vectors)) |
             (boundary->results & result_registers));
}

} // namespace

bool only_moved(const placed_kernel& before, const placed_kernel& after)
{
    if (before.text.size() != after.text.size() || before.relocs.size() != after.relocs.size())
        return false;
    const std::vector<tessjit::reloc_info> old_relocs = relocations_by_place(before);
    const std::vector<tessjit::reloc_info> new_relocs = relocations_by_place(after);
    for (std::size_t i = 0; i < old_relocs.size(); ++i) {
        const tessjit::reloc_info& a = old_relocs[i];
        const tessjit::reloc_info& b = new_relocs[i];
        if (std::tie(a.name, a.offset, a.type) != std::tie(b.name, b.offset, b.type) ||
            (a.addend != b.addend && !is_own_data(before, a.name)) || a.offset % 4 != 0)
            return false;
    }
    const loaded_constants old_loads = find_loaded_constants(before);
    const loaded_constants new_loads = find_loaded_constants(after);
    if (old_loads.empty() || old_loads != new_loads)
        return false;
    for (std::size_t i = 0; i < before.text.size() / 4; ++i) {
        const std::uint32_t old_word = word_at(before.text, 4 * i);
        const std::uint32_t new_word = word_at(after.text, 4 * i);
        const std::uint32_t may_differ = old_loads.count(i) == 0 ? 0 : offset_field(old_word);
        if (((old_word ^ new_word) & ~may_differ) != 0)
            return false;
    }
    return data_is_only_loaded(before, old_loads) && data_is_only_loaded(after, new_loads);
}

bool only_renamed(const placed_kernel& before, const placed_kernel& after)
{
    if (before.text.size() != after.text.size() || before.text.size() % 4 != 0)
        return false;
    renaming names;
    for (std::size_t offset = 0; offset < before.text.size(); offset += 4) {
        const std::uint32_t old_word = word_at(before.text, offset);
        const std::uint32_t new_word = word_at(after.text, offset);
        const auto from = decode_registers(old_word);
        const auto to = decode_registers(new_word);
        if (!from || !to || from->fields != to->fields || from->count != to->count ||
            ((old_word ^ new_word) & ~from->fields) != 0)
            return false;
        for (std::size_t i = 0; i < from->count; ++i) {
            if (!names.add(from->operands[i], to->operands[i]))
                return false;
        }
    }
    const auto old_free = free_registers(before);
    const auto new_free = free_registers(after);
    return old_free && new_free && (names.old_names() & ~*old_free) == 0 &&
           (names.new_names() & ~*new_free) == 0 && names.keeps(preserved_vectors);
}

bool only_reordered(const placed_kernel& before, const placed_kernel& after)
{
    if (before.text.size() != after.text.size())
        return false;
    const auto outside = [](const placed_kernel& kernel) {
        std::vector<tessjit::reloc_info> relocs = relocations_by_place(kernel);
        relocs.erase(
            std::remove_if(relocs.begin(), relocs.end(),
                           [&](const auto& reloc) { return lies_within(kernel.text, reloc.offset); }),
            relocs.end());
        return relocs;
    };
    if (!equal_references(outside(before), outside(after)))
        return false;
    const std::vector<code_row> old_rows = code_rows(before);
    const std::vector<code_row> new_rows = code_rows(after);
    const std::size_t words = before.text.size() / 4;

    const auto block_starts = [words](const placed_kernel& kernel, const std::vector<code_row>& rows) {
        std::vector<bool> starts(rows.size() + 1);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].target != no_row)
                starts[rows[i].target] = true;
            if (i >= words)
                starts[i] = true; // a byte
            else if (wfta::ends_block(word_at(kernel.text, 4 * i)))
                starts[i + 1] = true;
        }
        starts[rows.size()] = true;
        return starts;
    };
    const std::vector<bool> starts = block_starts(before, old_rows);
    if (starts != block_starts(after, new_rows))
        return false;

    const auto sorted_block = [](const std::vector<code_row>& rows, std::size_t begin, std::size_t end) {
        std::vector<std::tuple<std::string_view, std::size_t, std::int64_t>> block;
        for (std::size_t i = begin; i < end; ++i)
            block.emplace_back(rows[i].key, rows[i].target, rows[i].distance);
        std::sort(block.begin(), block.end());
        return block;
    };
    for (std::size_t begin = 0; begin < old_rows.size();) {
        std::size_t end = begin + 1;
        while (!starts[end])
            ++end;
        if (sorted_block(old_rows, begin, end) != sorted_block(new_rows, begin, end))
            return false;
        begin = end;
    }
    return true;
}

} // namespace vorna::workbench
