#include "check/meant_relocation.hpp"

#include "check/format.hpp"

#include <algorithm>
#include <elf.h>

namespace vorna::wfta {

namespace {

using tessjit::reloc_info;

/// An instruction that a relocation can fill.
struct fillable_instruction {
    std::int32_t offset;
    const relocation_kind* kind;
};

/// The kind of relocation that a word with a zero field needs; null if it needs none.
const relocation_kind* kind_of_unfilled(std::uint32_t word)
{
    const relocation_kind* const kind = find_kind_of_instruction(word);
    if (kind == nullptr || (word & kind->field_mask) != 0)
        return nullptr;
    // ADD of 0 to or from SP is a MOV, and never forms an address.
    const bool stack_pointer = (word & 0x1f) == 31 || (word >> 5 & 0x1f) == 31;
    return kind->type == R_AARCH64_ADD_ABS_LO12_NC && stack_pointer ? nullptr : kind;
}

/// The kind of relocation that may be meant for the word at the relocation's own offset. Its field may hold a
/// provisional value, except in an ADD, whose immediate is likely to be intended.
const relocation_kind* kind_of_meant(std::uint32_t word)
{
    const relocation_kind* const kind = find_kind_of_instruction(word);
    return kind != nullptr && kind->type == R_AARCH64_ADD_ABS_LO12_NC ? kind_of_unfilled(word) : kind;
}

/// Whether such an instruction can have the target: a BL cannot call constants.
bool can_lead_to(const relocation_kind& kind, const std::string& target)
{
    return kind.type != R_AARCH64_CALL26 || !names_data(target);
}

/// The nearest instruction that needs a relocation and has none: preferably of the relocation's kind,
/// otherwise one that can have the target.
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
std::optional<fillable_instruction> find_own_instruction(const relocation_site& site,
                                                         const std::string& target,
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

/// The relocation whose offset is swapped with this one's, if both are otherwise right.
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

/// The instruction that the relocation is meant for: the one at its offset if it needs a relocation,
/// otherwise one nearby that does, otherwise the one at its offset with a provisional value in its field.
std::optional<fillable_instruction> find_meant_instruction(const relocation_site& site,
                                                           const std::string& target)
{
    if (const auto own = find_own_instruction(site, target, kind_of_unfilled))
        return own;
    if (const auto waiting = find_waiting_instruction(site, target))
        return waiting;
    return find_own_instruction(site, target, kind_of_meant);
}

/// The relocation in C++ syntax for this instruction, and how else the generator must change it.
std::string relocation_for(const relocation_site& site, const std::string& target,
                           const fillable_instruction& instruction)
{
    const relocation_kind& kind = *instruction.kind;
    std::string text = "use " + relocation_text(target, instruction.offset, kind.type, site.reloc().addend);
    const std::uint32_t word = word_at(site.code, static_cast<std::size_t>(instruction.offset));
    if ((word & kind.field_mask) != 0) {
        text += std::string(", and generate the ") + kind.instruction +
                " with its field zero: " + word_text(word & ~kind.field_mask);
    }
    return text;
}

std::string without_relocation(const fillable_instruction& instruction)
{
    return "the " + std::string(instruction.kind->instruction) + " at " + signed_hex(instruction.offset) +
           " has no relocation";
}

advice advise_exchanged(const relocation_site& site, std::size_t other)
{
    const auto [one, two] = std::minmax(site.index, other);
    const reloc_info& first = site.relocs[one];
    const reloc_info& second = site.relocs[two];
    std::string at_first = relocation_text(second.name, first.offset, second.type, second.addend);
    std::string at_second = relocation_text(first.name, second.offset, first.type, first.addend);
    if (first.offset > second.offset)
        std::swap(at_first, at_second);
    return {"the offsets of relocations " + std::to_string(one + 1) + " and " + std::to_string(two + 1) +
                " are exchanged",
            "use " + at_first + ", " + at_second};
}

} // namespace

std::optional<std::uint32_t> generated_word(const relocation_site& site)
{
    const std::int32_t offset = site.reloc().offset;
    if (offset % 4 != 0 || !lies_within(site.code, offset))
        return std::nullopt;
    return word_at(site.code, static_cast<std::size_t>(offset));
}

std::optional<advice> advise_by_instructions(const relocation_site& site)
{
    const reloc_info& reloc = site.reloc();
    if (const auto other = find_exchanged(site))
        return advise_exchanged(site, *other);
    const relocation_kind* const kind = find_relocation_kind(reloc.type);
    const auto meant = find_meant_instruction(site, reloc.name);
    if (meant && meant->offset == reloc.offset) {
        const std::string is_for = kind == nullptr ? "has type " + std::to_string(reloc.type)
                                                   : "is for " + with_article(kind->instruction);
        return advice{"the relocation " + is_for + ", the instruction is " +
                          with_article(meant->kind->instruction),
                      relocation_for(site, reloc.name, *meant)};
    }
    if (meant)
        return advice{without_relocation(*meant), relocation_for(site, reloc.name, *meant)};
    const std::optional<std::uint32_t> word = generated_word(site);
    const relocation_kind* const at_place = word ? kind_of_meant(*word) : nullptr;
    if (at_place != nullptr && !can_lead_to(*at_place, reloc.name)) {
        return advice{"the instruction is a BL, and " + quoted(reloc.name) + " are constants",
                      "name the kernel that it calls, with type " + std::to_string(at_place->type) +
                          ", or give the relocation the offset of the instruction that it is for"};
    }
    if (kind == nullptr)
        return std::nullopt;
    return advice{"", std::string("give the relocation the offset of the ") + kind->instruction +
                          " that it is for"};
}

advice advise_other_target(const relocation_site& site, const std::string& target)
{
    const reloc_info& reloc = site.reloc();
    const relocation_kind* const kind = find_relocation_kind(reloc.type);
    const std::optional<std::uint32_t> word = generated_word(site);
    const bool fits = kind != nullptr && word && is_instruction_of(*kind, *word);
    const auto meant = fits ? std::nullopt : find_meant_instruction(site, target);
    if (!meant)
        return {"", "use " + relocation_text(target, reloc.offset, reloc.type, reloc.addend)};
    return {signed_hex(meant->offset) + " has " + with_article(meant->kind->instruction),
            relocation_for(site, target, *meant)};
}

advice advise_second_of_instruction(const relocation_site& site, std::size_t earlier)
{
    advice found = {"relocation " + std::to_string(earlier + 1) +
                        " has filled it: two relocations for one instruction",
                    "remove one of the relocations " + std::to_string(earlier + 1) + " and " +
                        std::to_string(site.index + 1)};
    if (const auto waiting = find_waiting_instruction(site, site.reloc().name)) {
        found.note += "; " + without_relocation(*waiting);
        found.help = relocation_for(site, site.reloc().name, *waiting);
    }
    return found;
}

} // namespace vorna::wfta
