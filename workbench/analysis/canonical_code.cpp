#include "workbench/analysis/canonical_code.hpp"

#include <algorithm>
#include <optional>
#include <tuple>

namespace vorna::workbench {

namespace {

// An instruction that names a place by its distance from itself, from the Arm A-profile A64 instruction set.
struct pc_relative_form {
    std::uint32_t mask;
    std::uint32_t opcode;
    unsigned low_bit; // of the distance in the word
    unsigned bits;
    unsigned unit; // bytes
};

constexpr pc_relative_form pc_relative_forms[] = {
    {0x7c000000, 0x14000000, 0, 26, 4}, // B, BL
    {0xff000000, 0x54000000, 5, 19, 4}, // B.cond, BC.cond
    {0x7e000000, 0x34000000, 5, 19, 4}, // CBZ, CBNZ
    {0x7e000000, 0x36000000, 5, 14, 4}, // TBZ, TBNZ
    {0x3b000000, 0x18000000, 5, 19, 4}, // LDR, LDRSW, PRFM (literal)
    {0x9f000000, 0x10000000, 5, 19, 4}, // ADR, whose two lowest bits are apart
};

constexpr std::uint32_t adr_mask = 0x9f000000;
constexpr std::uint32_t adr_opcode = 0x10000000;
constexpr std::uint32_t adr_low_bits = 0x60000000;

struct pc_relative {
    std::uint32_t opcode;  // the word without the distance
    std::int64_t distance; // bytes
};

std::optional<pc_relative> decode_pc_relative(std::uint32_t word)
{
    for (const pc_relative_form& form : pc_relative_forms) {
        if ((word & form.mask) != form.opcode)
            continue;
        const std::uint32_t ones = (std::uint32_t{1} << form.bits) - 1;
        const std::uint32_t sign = std::uint32_t{1} << (form.bits - 1);
        const std::int64_t units = static_cast<std::int64_t>(((word >> form.low_bit & ones) ^ sign)) -
                                   static_cast<std::int64_t>(sign);
        pc_relative found{word & ~(ones << form.low_bit), units * form.unit};
        if ((word & adr_mask) == adr_opcode) {
            found.opcode &= ~adr_low_bits;
            found.distance += word >> 29 & 3;
        }
        return found;
    }
    return std::nullopt;
}

template <typename number>
void append(std::string& key, number value)
{
    key.append(reinterpret_cast<const char*>(&value), sizeof value);
}

} // namespace

std::vector<tessjit::reloc_info> relocations_by_place(const placed_kernel& kernel)
{
    std::vector<tessjit::reloc_info> relocs = kernel.relocs;
    std::stable_sort(relocs.begin(), relocs.end(),
                     [](const auto& a, const auto& b) { return a.offset < b.offset; });
    return relocs;
}

bool equal_references(const std::vector<tessjit::reloc_info>& a, const std::vector<tessjit::reloc_info>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return std::tie(x.name, x.offset, x.type, x.addend) == std::tie(y.name, y.offset, y.type, y.addend);
    });
}

std::vector<code_row> code_rows(const placed_kernel& kernel)
{
    const std::size_t words = kernel.text.size() / 4;
    const std::size_t count = words + kernel.text.size() % 4;
    const std::vector<tessjit::reloc_info> relocs = relocations_by_place(kernel);
    auto reloc = std::find_if(relocs.begin(), relocs.end(), [](const auto& r) { return r.offset >= 0; });
    std::vector<code_row> rows(count);
    for (std::size_t i = 0; i < count; ++i) {
        code_row& r = rows[i];
        if (i >= words) {
            append(r.key, kernel.text[4 * words + (i - words)]);
            continue;
        }
        const std::uint32_t word = word_at(kernel.text, 4 * i);
        const bool relocated = reloc != relocs.end() && static_cast<std::size_t>(reloc->offset) < 4 * (i + 1);
        const std::optional<pc_relative> relative = relocated ? std::nullopt : decode_pc_relative(word);
        if (relative) {
            append(r.key, relative->opcode);
            const std::int64_t target = static_cast<std::int64_t>(4 * i) + relative->distance;
            if (target >= 0 && target % 4 == 0 && static_cast<std::uint64_t>(target) <= 4 * words)
                r.target = static_cast<std::size_t>(target) / 4;
            else
                r.distance = relative->distance;
            continue;
        }
        append(r.key, word);
        for (; reloc != relocs.end() && static_cast<std::size_t>(reloc->offset) < 4 * (i + 1); ++reloc) {
            append(r.key, reloc->offset % 4);
            append(r.key, reloc->type);
            append(r.key, reloc->addend);
            append(r.key, reloc->name.size());
            r.key += reloc->name;
        }
    }
    return rows;
}

} // namespace vorna::workbench
