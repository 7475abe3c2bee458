// The wording of each finding about a relocation, in one place: check, explain, link and show print these
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
#include <string_view>

namespace vorna::wfta {

/// What is wrong, the likely cause and what to do, one line each.
struct finding_text {
    std::string message;
    std::string note = {};
    std::string help = {};
};

/// A few words for a comment beside an instruction: "out of range".
const char* summary_of(finding_id id);

// Messages.

/// The beginning of a message: "relocation R_AARCH64_CALL26 against 'callee+0x10'"; without a target if its
/// name is empty.
std::string relocation_subject(std::int32_t type, const std::string& target = {}, std::int64_t addend = 0);
std::string relocation_subject(const tessjit::reloc_info& reloc);

/// The message of foreign-data, unknown-target, callee-order, null-target, unhandled-type or
/// unaligned-offset: the subject and the summary.
std::string message_of(finding_id id, const std::string& subject);

/// unknown-target, for a kernel that may just not have been dumped.
std::string not_dumped_message(const std::string& subject);

/// offset.
std::string offset_message(const std::string& subject, std::size_t code_bytes);

/// field-filled.
std::string field_filled_message(const std::string& subject, std::uint32_t word);

/// range: X is outside the range, or not a multiple of the alignment.
std::string range_message(const std::string& subject, const relocation_kind& kind, std::uint64_t X);

/// opcode.
std::string opcode_message(const std::string& subject, const relocation_kind& kind, std::uint32_t word);

/// call-bit-25, for a call that goes to the wrong `place`.
std::string call_bit_25_message(const std::string& subject, std::uint32_t word, const std::string& place);

/// duplicate-name; `first` describes the kernel that already has the name.
std::string duplicate_name_message(const std::string& first);

// Notes and help.

/// `similar` is the name of a kernel that the target may be a misspelling of; empty if there is none.
advice advise_unknown_target(const relocation_site& site, const std::string& similar);
advice advise_foreign_data(const relocation_site& site, bool owner_exists);
advice advise_callee_order(const relocation_site& site);
advice advise_null_target(const relocation_site& site);
advice advise_unhandled_type(const relocation_site& site);
advice advise_field_filled(const relocation_site& site);
advice advise_opcode(const relocation_site& site);

/// Help for an offset that is outside the code or unaligned.
advice advise_offset(const relocation_site& site);

/// A target that is out of range.
struct distant_target {
    std::uint64_t S;       ///< S of the ABI, with the addend
    std::uint64_t P;       ///< P of the ABI
    bool in_other_mapping; ///< it was placed by another call of finalise_kernels
};
advice advise_range(const relocation_site& site, const distant_target& target);

/// Whether one name is probably a misspelling of the other: they differ in one or two letters, not only in a
/// number.
bool is_misspelling(std::string_view a, std::string_view b);

} // namespace vorna::wfta
