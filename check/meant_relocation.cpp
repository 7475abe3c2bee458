#include "check/meant_relocation.hpp"

#include <algorithm>
#include <elf.h>

namespace vorna::wfta {

using tessjit::reloc_info;

/// The kind of relocation that a word with a zero field needs; null if it needs none.
static const relocation_kind* kind_of_unfilled(std::uint32_t word)
{
    const relocation_kind* const kind = find_kind_of_instruction(word);
    if (kind == nullptr || (word & kind->field_mask) != 0)
        return nullptr;
    // ADD of 0 to or from SP is a MOV, and never forms an address.
    const bool stack_pointer = (word & 0x1f) == 31 || (word >> 5 & 0x1f) == 31;
    return kind->type == R_AARCH64_ADD_ABS_LO12_NC && stack_pointer ? nullptr : kind;
}

std::optional<std::uint32_t> generated_word(const relocation_site& site)
{
    const std::int32_t offset = site.reloc().offset;
    if (offset % 4 != 0 || !lies_within(site.code, offset))
        return std::nullopt;
    return word_at(site.code, static_cast<std::size_t>(offset));
}

const relocation_kind* kind_of_meant(std::uint32_t word)
{
    const relocation_kind* const kind = find_kind_of_instruction(word);
    return kind != nullptr && kind->type == R_AARCH64_ADD_ABS_LO12_NC ? kind_of_unfilled(word) : kind;
}

bool can_lead_to(const relocation_kind& kind, const std::string& target)
{
    return kind.type != R_AARCH64_CALL26 || !names_data(target);
}

std::optional<fillable_instruction> find_waiting_instruction(const relocation_site& site,
                                                             const std::string& target)
{
    constexpr std::int64_t farthest = 16;
    const reloc_info& reloc = site.reloc();
    std::optional<fillable_instruction> of_other_kind;
    for (std::int64_t distance = 1; distance <= farthest; ++distance) {
        for (const std::int64_t offset : {reloc.offset - distance, reloc.offset + distance}) {
            if (offset % 4 != 0 || !lies_within(site.code, offset))
                continue;
            const relocation_kind* const kind =
                kind_of_unfilled(word_at(site.code, static_cast<std::size_t>(offset)));
            if (kind == nullptr || !can_lead_to(*kind, target) ||
                std::any_of(site.relocs.begin(), site.relocs.end(),
                            [offset](const reloc_info& other) { return other.offset == offset; }))
                continue;
            const fillable_instruction found{static_cast<std::int32_t>(offset), kind};
            if (kind->type == reloc.type)
                return found;
            if (!of_other_kind)
                of_other_kind = found;
        }
    }
    return of_other_kind;
}

/// The instruction at the relocation's own offset, if its kind (by `kind_of`) can be meant and it does not
/// already have a relocation of this kind.
static std::optional<fillable_instruction>
find_own_instruction(const relocation_site& site, const std::string& target,
                     const relocation_kind* (*kind_of)(std::uint32_t))
{
    const reloc_info& reloc = site.reloc();
    const std::optional<std::uint32_t> word = generated_word(site);
    const relocation_kind* const kind = word ? kind_of(*word) : nullptr;
    if (kind == nullptr || !can_lead_to(*kind, target))
        return std::nullopt;
    for (std::size_t i = 0; i < site.relocs.size(); ++i) {
        const reloc_info& other = site.relocs[i];
        if (i != site.index && other.offset == reloc.offset && other.type == kind->type)
            return std::nullopt;
    }
    return fillable_instruction{reloc.offset, kind};
}

std::optional<std::size_t> find_exchanged(const relocation_site& site)
{
    const auto type_at = [&site](std::size_t index) {
        const std::optional<std::uint32_t> word =
            generated_word({site.kernel, site.code, site.relocs, index});
        const relocation_kind* const kind = word ? kind_of_meant(*word) : nullptr;
        return kind == nullptr ? 0 : kind->type;
    };
    const std::int32_t type = type_at(site.index);
    if (type == site.reloc().type)
        return std::nullopt;
    for (std::size_t i = 0; i < site.relocs.size(); ++i) {
        if (site.relocs[i].type == type && type_at(i) == site.reloc().type)
            return i;
    }
    return std::nullopt;
}

std::optional<fillable_instruction> find_meant_instruction(const relocation_site& site,
                                                           const std::string& target)
{
    if (const auto own = find_own_instruction(site, target, kind_of_unfilled))
        return own;
    if (const auto waiting = find_waiting_instruction(site, target))
        return waiting;
    return find_own_instruction(site, target, kind_of_meant);
}

} // namespace vorna::wfta
