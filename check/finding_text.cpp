#include "check/finding_text.hpp"

#include "check/format.hpp"
#include "check/nearest_name.hpp"

#include <algorithm>
#include <elf.h>
#include <iterator>

namespace vorna::wfta {

namespace {

using tessjit::reloc_info;

/// A relocation type of the ABI that the finaliser does not support.
struct unsupported_type {
    std::int32_t type;
    const char* name;
    std::uint32_t opcode_mask; // of the instruction that the ABI defines it for;
    std::uint32_t opcode;      // for data relocations a zero word
    const char* instead;
};

constexpr std::uint32_t load_store_mask = 0x3b000000; // unsigned offset
constexpr std::uint32_t load_store = 0x39000000;
constexpr const char* by_code = "form the address in code, with ADRP (275) and ADD (277)";
constexpr const char* by_add = "complete the address with an ADD (277) and load from it";
constexpr const char* by_branch = "branch within the kernel, over a BL if need be";
constexpr const char* twice = "two relocations for one instruction";
constexpr const char* remove_one = "remove one of the two relocations";
constexpr const char* without_got = "there is no GOT: use ADRP (275) and ADD (277)";

constexpr unsupported_type unsupported_types[] = {
    {R_AARCH64_ABS64, "R_AARCH64_ABS64", ~0U, 0, by_code},
    {R_AARCH64_ABS32, "R_AARCH64_ABS32", ~0U, 0, by_code},
    {R_AARCH64_PREL64, "R_AARCH64_PREL64", ~0U, 0, by_code},
    {R_AARCH64_PREL32, "R_AARCH64_PREL32", ~0U, 0, by_code},
    {R_AARCH64_LD_PREL_LO19, "R_AARCH64_LD_PREL_LO19", 0x3b000000, 0x18000000,
     "form the address with ADRP (275) and ADD (277) and load from it"},
    {R_AARCH64_ADR_PREL_PG_HI21_NC, "R_AARCH64_ADR_PREL_PG_HI21_NC", 0, 1, "use its checked form, 275"},
    {R_AARCH64_LDST8_ABS_LO12_NC, "R_AARCH64_LDST8_ABS_LO12_NC", load_store_mask, load_store, by_add},
    {R_AARCH64_LDST16_ABS_LO12_NC, "R_AARCH64_LDST16_ABS_LO12_NC", load_store_mask, load_store, by_add},
    {R_AARCH64_LDST32_ABS_LO12_NC, "R_AARCH64_LDST32_ABS_LO12_NC", load_store_mask, load_store, by_add},
    {R_AARCH64_LDST64_ABS_LO12_NC, "R_AARCH64_LDST64_ABS_LO12_NC", load_store_mask, load_store, by_add},
    {R_AARCH64_LDST128_ABS_LO12_NC, "R_AARCH64_LDST128_ABS_LO12_NC", load_store_mask, load_store, by_add},
    {R_AARCH64_TSTBR14, "R_AARCH64_TSTBR14", 0x7e000000, 0x36000000, by_branch},
    {R_AARCH64_CONDBR19, "R_AARCH64_CONDBR19", 0x56000000, 0x54000000, by_branch},
    {R_AARCH64_JUMP26, "R_AARCH64_JUMP26", 0xfc000000, 0x14000000,
     "call with BL (283), or form the address with ADRP and ADD and use BR"},
    {R_AARCH64_ADR_GOT_PAGE, "R_AARCH64_ADR_GOT_PAGE", 0, 1, without_got},
    {R_AARCH64_LD64_GOT_LO12_NC, "R_AARCH64_LD64_GOT_LO12_NC", load_store_mask, load_store, without_got},
};

const unsupported_type* find_unsupported_type(std::int32_t type)
{
    const auto* const found =
        std::find_if(std::begin(unsupported_types), std::end(unsupported_types),
                     [type](const unsupported_type& known) { return known.type == type; });
    return found == std::end(unsupported_types) ? nullptr : found;
}

std::string type_name(std::int32_t type)
{
    if (const relocation_kind* const kind = find_relocation_kind(type))
        return kind->name;
    const unsupported_type* const known = find_unsupported_type(type);
    return known == nullptr ? "type " + std::to_string(type)
                            : known->name + (" (type " + std::to_string(type) + ")");
}

std::string offset_of_instruction(const relocation_kind& kind)
{
    return std::string("give the relocation the offset of the ") + kind.instruction + " that it is for";
}

// The relocation in C++ syntax for this instruction, and how else the generator must change it.
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

// Advice about a relocation with a wrong offset or type; nothing if the instructions do not show the right
// one.
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
    return advice{"", offset_of_instruction(*kind)};
}

// Help that gives the relocation with another target, and with the type and offset that the instructions
// show.
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

// Advice about a relocation whose instruction an earlier relocation, given by index, fills already.
advice advise_second_of_instruction(const relocation_site& site, std::size_t earlier)
{
    advice found = {"relocation " + std::to_string(earlier + 1) + " has filled it: " + twice,
                    "remove one of the relocations " + std::to_string(earlier + 1) + " and " +
                        std::to_string(site.index + 1)};
    if (const auto waiting = find_waiting_instruction(site, site.reloc().name)) {
        found.note += "; " + without_relocation(*waiting);
        found.help = relocation_for(site, site.reloc().name, *waiting);
    }
    return found;
}

// An earlier relocation of the kernel that overlaps the same bytes.
std::optional<std::size_t> find_earlier_of_same_word(const relocation_site& site)
{
    for (std::size_t i = 0; i < site.index; ++i) {
        const std::int64_t distance = std::int64_t{site.relocs[i].offset} - site.reloc().offset;
        if (distance > -4 && distance < 4)
            return i;
    }
    return std::nullopt;
}

// Whether the target would be in range of the instruction, if that can be told.
bool other_kind_reaches(std::uint32_t word, const distant_target& target)
{
    const relocation_kind* const kind = find_kind_of_instruction(word);
    return kind == nullptr || in_range(*kind, relocation_value(*kind, target.S, target.P));
}

advice advise_misaligned(const relocation_site& site)
{
    const reloc_info& reloc = site.reloc();
    if (names_data(reloc.name))
        return {"a BL to constants",
                "name a kernel as the target of a BL; address constants with ADRP and ADD"};
    if (reloc.addend != 0) {
        return {"the addend " + std::to_string(reloc.addend) + " leads between two instructions of " +
                    quoted(reloc.name),
                "call the kernel's first instruction: addend 0"};
    }
    return {"", "give the relocation the offset of the BL, and addend 0"};
}

advice advise_distance(const relocation_site& site, const relocation_kind& kind, bool in_other_mapping)
{
    const std::string target = quoted(site.reloc().name);
    const char* const other_mapping = " is in the mapping of another call";
    switch (kind.type) {
    case R_AARCH64_ADR_PREL_LO21:
        return {in_other_mapping                ? target + other_mapping
                : names_data(site.reloc().name) ? "constants come after the code of the whole set"
                                                : "",
                "use ADRP (275) and ADD (277): ADR is for the kernel's own code"};
    case R_AARCH64_CALL26:
        return {in_other_mapping ? target + other_mapping : "",
                "finalise both in one set, or load the address with ADRP and ADD and use BLR"};
    default:
        return {in_other_mapping ? target + other_mapping + ", in another part of the address space" : "",
                "finalise both in one set, or sets that refer to each other close in time"};
    }
}

} // namespace

const char* summary_of(finding_id id)
{
    switch (id) {
    case finding_id::foreign_data:
        return "constants of another kernel";
    case finding_id::unknown_target:
        return "target not found";
    case finding_id::callee_order:
        return "the kernel comes later in the set";
    case finding_id::null_target:
        return "the target's address is null";
    case finding_id::unhandled_type:
        return "type not supported";
    case finding_id::offset:
        return "offset outside the code";
    case finding_id::unaligned_offset:
        return "offset not a multiple of 4";
    case finding_id::field_filled:
        return "field not zero";
    case finding_id::range:
        return "out of range";
    case finding_id::opcode:
        return "another instruction";
    case finding_id::call_bit_25:
        return "leads elsewhere: the top bit of the BL's field was set";
    default:
        return name_of(id);
    }
}

const char* cause_of(finding_id id)
{
    switch (id) {
    case finding_id::duplicate_name:
        return "the generator gives two kernels one name, or a set is finalised twice with one registry";
    case finding_id::foreign_data:
        return "a kernel can address only its own constants";
    case finding_id::unknown_target:
        return "the kernel comes later in the set, its name is misspelt, or it is in another registry";
    case finding_id::null_target:
        return "the target's set had neither code nor constants, its mapping failed, or the host registered "
               "null";
    case finding_id::unhandled_type:
        return "the generator emits a type other than 274, 275, 277 and 283";
    case finding_id::field_filled:
        return "two relocations for one instruction, or the generator has encoded a value in the field";
    default:
        return "";
    }
}

std::string relocation_subject(std::int32_t type, const std::string& target, std::int64_t addend)
{
    std::string subject = "relocation " + type_name(type);
    if (!target.empty())
        subject += " against " + quoted(target) + (addend == 0 ? "" : signed_hex(addend));
    return subject;
}

std::string relocation_subject(const reloc_info& reloc)
{
    return relocation_subject(reloc.type, reloc.name, reloc.addend);
}

std::string message_of(finding_id id, const std::string& subject)
{
    return subject + ": " + summary_of(id);
}

std::string offset_message(const std::string& subject, std::size_t code_bytes)
{
    return message_of(finding_id::offset, subject) + ", which has " + std::to_string(code_bytes) +
           (code_bytes == 1 ? " byte" : " bytes");
}

std::string field_filled_message(const std::string& subject, std::uint32_t word)
{
    return message_of(finding_id::field_filled, subject) + " in " + word_text(word);
}

std::string range_message(const std::string& subject, const relocation_kind& kind, std::uint64_t X)
{
    const std::string value = std::to_string(static_cast<std::int64_t>(X));
    if (!is_aligned(kind, X))
        return subject + " misaligned: " + value + " is not a multiple of " + std::to_string(kind.alignment);
    return subject + " " + summary_of(finding_id::range) + ": " + value + " is not in [" +
           std::to_string(kind.range.least) + ", " + std::to_string(kind.range.greatest) + "]";
}

std::string opcode_message(const std::string& subject, const relocation_kind& kind, std::uint32_t word)
{
    const relocation_kind* const other = find_kind_of_instruction(word);
    return subject + " is for " + with_article(kind.instruction) + ", but the instruction is " +
           (other == nullptr ? word_text(word)
                             : with_article(other->instruction) + " (" + word_text(word) + ")");
}

finding_text duplicate_name_text(const std::string& first)
{
    return {"a second kernel of this name" + (first.empty() ? first : ": the first is " + first),
            {},
            "rename one of the two kernels"};
}

finding_text text_length_text(std::size_t code_bytes)
{
    return {"the code has " + std::to_string(code_bytes) + " bytes, not a multiple of 4",
            {},
            "end the code with a whole instruction"};
}

finding_text not_dumped_text(const std::string& subject)
{
    return {message_of(finding_id::unknown_target, subject) + " in the dumps",
            {},
            "dump all kernels to have this checked"};
}

finding_text field_in_doubt_text(const std::string& subject)
{
    return {subject +
                ": whether an earlier relocation fills the field depends on where the system maps this set",
            {},
            remove_one};
}

finding_text range_in_doubt_text(const std::string& subject)
{
    return {subject +
                ", of an earlier call: whether it is in range depends on where the system maps this set",
            {},
            "finalise both in one set, where the distance is certain"};
}

finding_text call_bit_25_text(const std::string& subject, const relocation_kind& kind, std::uint32_t word,
                              call_effect effect, const std::string& place)
{
    const std::string help = "generate the BL with its field zero: " + word_text(word & ~kind.field_mask);
    if (effect == call_effect::leads_elsewhere) {
        return {subject + ": the call leads to " + place + ", because the top bit of the field was set (" +
                    word_text(word) + ")",
                {},
                help};
    }
    const std::string fact = subject + ": the top bit of the BL's field is set (" + word_text(word) +
                             "), which the finaliser does not test";
    return {fact + (effect == call_effect::unknown
                        ? ": the call may lead elsewhere"
                        : ": the call is right only because its target lies before it"),
            {},
            help};
}

finding_text call_of_constants_text(const std::string& subject)
{
    return {subject + ": a call of constants", {}, "name the kernel that is to be called"};
}

finding_text call_amid_kernel_text(const std::string& subject)
{
    return {subject + ": a call to where no kernel begins", {}, "call it with addend 0"};
}

finding_text missing_add_text(const std::string& subject)
{
    return {subject + ": no ADD completes the address",
            {},
            "add R_AARCH64_ADD_ABS_LO12_NC with the same target and addend: no relocation completes a load "
            "or a store"};
}

finding_text missing_adrp_text(const std::string& subject)
{
    return {subject + ": no ADRP gives its page",
            {},
            "add R_AARCH64_ADR_PREL_PG_HI21 with the same target and addend"};
}

advice advise_unknown_target(const relocation_site& site, const std::string& similar)
{
    const std::string name = quoted(site.reloc().name);
    const std::string order = "place " + name + " before " + quoted(site.kernel);
    if (site.reloc().name.find("rodata") != std::string::npos) {
        advice found = advise_other_target(site, std::string(data_prefix) + site.kernel);
        const std::string rule = "constants are named .rodata. and the kernel's name";
        return {found.note.empty() ? rule : rule + "; " + found.note, found.help};
    }
    if (similar.empty())
        return {"", order + ", with the same registry"};
    advice found = advise_other_target(site, similar);
    const std::string guess = "the name may be misspelt: there is " + quoted(similar);
    return {found.note.empty() ? guess : guess + "; " + found.note, found.help + ", or " + order};
}

advice advise_foreign_data(const relocation_site& site, bool owner_exists)
{
    const std::string owner = site.reloc().name.substr(data_prefix.size());
    const std::string kernel = quoted(site.kernel);
    const advice own = advise_other_target(site, std::string(data_prefix) + site.kernel);
    if (owner_exists) {
        return {cause_of(finding_id::foreign_data), "give " + kernel + " a copy of them, or let " +
                                                        quoted(owner) + " load them; if its own are meant, " +
                                                        own.help};
    }
    const std::string cause =
        is_misspelling(owner, site.kernel)
            ? "the name may be misspelt"
            : "there is no kernel " + quoted(owner) + ": " + kernel + " may have been renamed";
    return {own.note.empty() ? cause : cause + "; " + own.note, own.help};
}

advice advise_callee_order(const relocation_site& site)
{
    return {"", "place " + quoted(site.reloc().name) + " before " + quoted(site.kernel)};
}

advice advise_null_target(const relocation_site& /*site*/)
{
    return {cause_of(finding_id::null_target),
            "leave empty kernels without relocations, and no null in the registry"};
}

advice advise_unhandled_type(const relocation_site& site)
{
    const unsupported_type* const known = find_unsupported_type(site.reloc().type);
    const std::optional<std::uint32_t> word = generated_word(site);
    const bool of_that_type = known != nullptr && word && (*word & known->opcode_mask) == known->opcode;
    if (!of_that_type) {
        if (const auto found = advise_by_instructions(site))
            return *found;
    }
    return {"", known == nullptr ? "use 274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL" : known->instead};
}

advice advise_offset(const relocation_site& site)
{
    if (const auto found = advise_by_instructions(site))
        return *found;
    return {"", "give the relocation the offset of an instruction of this kernel"};
}

advice advise_field_filled(const relocation_site& site)
{
    const relocation_kind& kind = *find_relocation_kind(site.reloc().type);
    const std::optional<std::uint32_t> word = generated_word(site);
    if (!word)
        return {"the offset " + std::to_string(site.reloc().offset) + " is not that of an instruction",
                offset_of_instruction(kind)};
    if (!is_instruction_of(kind, *word))
        return advise_opcode(site);
    if (const auto earlier = find_earlier_of_same_word(site))
        return advise_second_of_instruction(site, *earlier);
    return {"the generator has encoded a value in the field",
            std::string("generate the ") + kind.instruction +
                " with its field zero: " + word_text(*word & ~kind.field_mask)};
}

advice advise_filled_by_link(const std::string& target)
{
    return {std::string(twice) + ": it leads to " + quoted(target) + " already", remove_one};
}

advice advise_filled_offset(const relocation_kind& kind, const std::string& instruction)
{
    return {"the instruction there is " + instruction, offset_of_instruction(kind)};
}

advice advise_filled_field()
{
    return {cause_of(finding_id::field_filled),
            "keep one relocation for the instruction, and its field zero"};
}

advice advise_opcode(const relocation_site& site)
{
    return advise_by_instructions(site).value_or(advice{});
}

advice advise_range(const relocation_site& site, const distant_target& target)
{
    const reloc_info& reloc = site.reloc();
    const relocation_kind& kind = *find_relocation_kind(reloc.type);
    const std::uint64_t X = relocation_value(kind, target.S, target.P);
    if (reloc.offset % 4 != 0)
        return {"the offset " + std::to_string(reloc.offset) + " is not that of an instruction",
                offset_of_instruction(kind)};
    const std::optional<std::uint32_t> word = generated_word(site);
    if (word && !is_instruction_of(kind, *word) && other_kind_reaches(*word, target))
        return advise_by_instructions(site).value_or(advice{});
    if (!is_aligned(kind, X))
        return advise_misaligned(site);
    if (reloc.addend >= kind.range.greatest / 2 || reloc.addend <= kind.range.least / 2) {
        return {"the addend " + std::to_string(reloc.addend) + " leads far away from " + quoted(reloc.name),
                "use an addend within the target"};
    }
    return advise_distance(site, kind, target.in_other_mapping);
}

} // namespace vorna::wfta
