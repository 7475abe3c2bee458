// Makes instructions comparable between kernels that lie at different addresses. Rows of different kernels
// are compared, sorted and aligned by their members alone.
//
// The key of an instruction is its word, followed by its relocations: offset within the word, type, addend,
// and the target's name after its length. Words are as generated, so relocated fields are normally zero.
//
// A PC-relative instruction without a relocation (a local branch, ADR, a literal load) has a word that
// changes when instructions are inserted between it and its target. Its key is LLVM's opcode and all operands
// but the distance. The target is kept apart, as the index of its row, or as the distance if it is not a row.

#include "workbench/analysis/canonical_code.hpp"

#include <algorithm>
#include <tuple>

namespace vorna::workbench {

namespace {

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

// In LLVM's order of operands the distance is last.
static std::string key_without_distance(const decoded_kernel& code, const instruction& at)
{
    std::string key;
    append(key, at.opcode);
    const operand_range operands = operands_of(code, at);
    for (const operand& operand : operands.first(operands.size() - 1)) {
        append(key, operand.registers[0]);
        append(key, operand.immediate);
    }
    return key;
}

std::vector<code_row> code_rows(const decoded_kernel& code)
{
    const placed_kernel& kernel = *code.kernel;
    const std::size_t words = code.instructions.size();
    const std::vector<tessjit::reloc_info> relocs = relocations_by_place(kernel);
    auto reloc = std::find_if(relocs.begin(), relocs.end(), [](const auto& r) { return r.offset >= 0; });
    std::vector<code_row> rows(words + kernel.text.size() % 4);
    for (std::size_t i = 0; i < words; ++i) {
        code_row& row = rows[i];
        const instruction& at = code.instructions[i];
        if (at.pc_relative && at.relocated == word_relocation::none) {
            row.key = key_without_distance(code, at);
            const std::int64_t target = static_cast<std::int64_t>(4 * i) + *at.pc_relative;
            if (target >= 0 && target % 4 == 0 && static_cast<std::uint64_t>(target) <= 4 * words)
                row.target = static_cast<std::size_t>(target) / 4;
            else
                row.distance = *at.pc_relative;
            continue;
        }
        append(row.key, at.word);
        for (; reloc != relocs.end() && static_cast<std::size_t>(reloc->offset) < 4 * (i + 1); ++reloc) {
            append(row.key, reloc->offset % 4);
            append(row.key, reloc->type);
            append(row.key, reloc->addend);
            append(row.key, reloc->name.size());
            row.key += reloc->name;
        }
    }
    for (std::size_t i = words; i < rows.size(); ++i)
        append(rows[i].key, kernel.text[4 * words + (i - words)]);
    return rows;
}

} // namespace vorna::workbench
