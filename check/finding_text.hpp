// The wording of the findings about relocations, in one place: check, explain, link and show print these
// texts.
//
// A message needs values only. Note and help also need the kernel as generated, since its instructions show
// which relocation was meant (meant_relocation.hpp).
#pragma once

#include "check/finding.hpp"
#include "check/meant_relocation.hpp"
#include "check/relocation.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vorna::wfta {

/// What is wrong, the likely cause and what to do, one line each.
struct finding_text {
    std::string message;
    std::string note = {};
    std::string help = {};
};

/// The likely cause and what to do about it, a line each; either may be empty.
struct advice {
    std::string note;
    std::string help;
};

/// A few words for a comment beside an instruction: "out of range".
const char* summary_of(finding_id id);

/// The likely cause of an abort if the relocation is not known; empty for ids that do not abort.
const char* cause_of(finding_id id);

// Messages.

/// The beginning of a message: "relocation R_AARCH64_CALL26 against 'callee+0x10'"; without a target if its
/// name is empty.
std::string relocation_subject(std::int32_t type, const std::string& target = {}, std::int64_t addend = 0);
std::string relocation_subject(const tessjit::reloc_info& reloc);

/// The message of foreign-data, unknown-target, callee-order, null-target, unhandled-type or
/// unaligned-offset: the subject and the summary.
std::string message_of(finding_id id, const std::string& subject);

/// offset.
std::string offset_message(const std::string& subject, std::size_t code_bytes);

/// field-filled.
std::string field_filled_message(const std::string& subject, std::uint32_t word);

/// range: X is outside the range, or not a multiple of the alignment.
std::string range_message(const std::string& subject, const relocation_kind& kind, std::uint64_t X);

/// opcode.
std::string opcode_message(const std::string& subject, const relocation_kind& kind, std::uint32_t word);

// Findings whose help needs no instructions.

/// `first` says which kernel has the name already; empty if that is not known.
finding_text duplicate_name_text(const std::string& first = {});
finding_text text_length_text(std::size_t code_bytes);

/// unknown-target, for a kernel that may just not have been dumped.
finding_text not_dumped_text(const std::string& subject);

/// placement
finding_text field_in_doubt_text(const std::string& subject);
finding_text range_in_doubt_text(const std::string& subject);

/// What the top bit of a BL's field does to the call.
enum class call_effect { unknown, none, leads_elsewhere };

/// call-bit-25; `place` is where the call leads if it leads elsewhere.
finding_text call_bit_25_text(const std::string& subject, const relocation_kind& kind, std::uint32_t word,
                              call_effect effect, const std::string& place = {});

/// call-target
finding_text call_of_constants_text(const std::string& subject);
finding_text call_amid_kernel_text(const std::string& subject);

/// pair
finding_text missing_add_text(const std::string& subject);
finding_text missing_adrp_text(const std::string& subject);

// Notes and help.

/// `similar` is the name of a kernel that the target may be a misspelling of; empty if there is none.
advice advise_unknown_target(const relocation_site& site, const std::string& similar);
advice advise_foreign_data(const relocation_site& site, bool owner_exists);
advice advise_callee_order(const relocation_site& site);
advice advise_null_target(const relocation_site& site);
advice advise_unhandled_type(const relocation_site& site);
advice advise_field_filled(const relocation_site& site);
advice advise_opcode(const relocation_site& site);

/// Advice about field-filled without the kernel: the field leads to `target`, the instruction is another one,
/// or neither is known.
advice advise_filled_by_link(const std::string& target);
advice advise_filled_offset(const relocation_kind& kind, const std::string& instruction);
advice advise_filled_field();

/// Help for an offset that is outside the code or unaligned.
advice advise_offset(const relocation_site& site);

/// A target that is out of range.
struct distant_target {
    std::uint64_t S;       ///< S of the ABI, with the addend
    std::uint64_t P;       ///< P of the ABI
    bool in_other_mapping; ///< it was placed by another call of finalise_kernels
};
advice advise_range(const relocation_site& site, const distant_target& target);

} // namespace vorna::wfta
