#include "check/engine.hpp"

#include "check/finding_list.hpp"
#include "check/format.hpp"
#include "check/names.hpp"
#include "check/relocation.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <set>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace vorna::wfta {

namespace {

using std::int64_t;
using std::size_t;
using std::uint32_t;
using std::uint64_t;
using severity = finding_severity;

std::string hex(uint64_t value)
{
    char text[20];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

// A distance in bytes, of which a large one is easier to read in MiB or GiB.
std::string distance_text(int64_t distance)
{
    const double bytes = static_cast<double>(distance);
    constexpr double MiB = 1024.0 * 1024.0;
    const bool huge = bytes >= 1024 * MiB || bytes <= -1024 * MiB;
    char text[64];
    std::snprintf(text, sizeof text, "%s (%+.2f %s)", signed_hex(distance).c_str(),
                  huge ? bytes / MiB / 1024 : bytes / MiB, huge ? "GiB" : "MiB");
    return text;
}

std::string target_text(const tessjit::reloc_info& reloc)
{
    return with_addend(shortened(reloc.name), reloc.addend);
}

// Where kernels' code begins, for calls with an addend. Made when it is first asked for.
class text_starts {
public:
    text_starts(const std::vector<checked_kernel>& kernels, const kernel_registry_map& others)
        : kernels_(kernels), others_(others)
    {
    }

    bool contains(uint64_t address)
    {
        if (!made_) {
            for (const checked_kernel& kernel : kernels_)
                starts_.insert(kernel.text_address);
            for (const auto& [name, entry] : others_)
                starts_.insert(reinterpret_cast<uint64_t>(entry.text_ptr));
            made_ = true;
        }
        return starts_.count(address) != 0;
    }

private:
    const std::vector<checked_kernel>& kernels_;
    const kernel_registry_map& others_;
    std::unordered_set<uint64_t> starts_;
    bool made_ = false;
};

class checker {
public:
    checker(const std::vector<checked_kernel>& kernels, const target_finder& find,
            const kernel_registry_map& others, address_kind addresses)
        : kernels_(kernels), find_(find), addresses_(addresses), starts_(kernels, others)
    {
        for (const auto& [name, entry] : others)
            names_.add(name);
    }

    std::vector<kernel_finding> run()
    {
        for (index_ = 0; index_ < kernels_.size(); ++index_) {
            findings_.begin_kernel(index_, *kernel().name);
            check_kernel();
        }
        return findings_.take();
    }

private:
    [[nodiscard]] const checked_kernel& kernel() const { return kernels_[index_]; }

    void check_kernel()
    {
        const checked_kernel& k = kernel();
        if (!k.name_taken.empty())
            add(finding_id::duplicate_name, severity::error, true, {}, {}, "", k.name_taken,
                "rename one of the two kernels");
        check_name(*k.name, findings_);
        if (k.name_taken.empty()) {
            names_.check(*k.name, findings_);
            names_.add(*k.name);
        }
        check_end_of_text();
        if (!k.relocs->empty()) {
            linked_ = *k.text;
            in_doubt_.clear();
            surely_filled_.clear();
            pages_in_doubt_ = false;
            for (size_t i = 0; i < k.relocs->size(); ++i)
                check_relocation(i, (*k.relocs)[i]);
            check_pairs();
        }
    }

    void check_end_of_text()
    {
        const std::vector<std::uint8_t>& text = *kernel().text;
        if (text.size() % 4 != 0) {
            add(finding_id::text_length, severity::warning, false, {},
                static_cast<int64_t>(text.size() / 4 * 4), "",
                "the text has " + std::to_string(text.size()) + " bytes, not a multiple of 4",
                "end the text with a whole instruction");
        }
    }

    void add(finding_id id, severity level, bool aborts, std::optional<size_t> relocation,
             std::optional<int64_t> offset, std::string_view cause, const std::string& message,
             const std::string& help)
    {
        findings_.add(id, level, aborts, relocation, offset, cause, {message, {}, help});
    }

    void error(finding_id id, bool aborts, size_t relocation, const std::string& cause,
               const std::string& message, const std::string& advice = {})
    {
        add(id, severity::error, aborts, relocation, (*kernel().relocs)[relocation].offset, cause, message,
            advice);
    }

    // The relocation's target, if it has one.
    std::optional<target_place> find_target(size_t i, const tessjit::reloc_info& reloc)
    {
        const checked_kernel& k = kernel();
        target_place target = {target_place::where::placed, k.data_address};
        if (names_data(reloc.name)) {
            if (!is_own_data(*k.name, reloc.name)) {
                error(finding_id::foreign_data, true, i, reloc.name,
                      shortened(reloc.name) + " is not this kernel's data, and it reaches no other",
                      "name " + std::string(data_prefix) + shortened(*k.name) +
                          ", or have the other kernel's code pass the address");
                return std::nullopt;
            }
        } else if (reloc.name == *k.name) {
            target.address = k.text_address;
        } else {
            target = find_(index_, reloc.name);
        }
        switch (target.state) {
        case target_place::where::nowhere:
            error(finding_id::unknown_target, true, i, reloc.name,
                  "there is no kernel " + shortened(reloc.name),
                  "place it before " + shortened(*k.name) + ", or correct the name");
            return std::nullopt;
        case target_place::where::later:
            error(finding_id::callee_order, true, i, reloc.name,
                  shortened(reloc.name) + " is not placed yet: it comes later in the set",
                  "move it before " + shortened(*k.name));
            return std::nullopt;
        case target_place::where::unknown:
            add(finding_id::unknown_target, severity::note, false, i, reloc.offset, reloc.name,
                shortened(reloc.name) + " is not among the dumps", "dump all kernels to have this checked");
            return std::nullopt;
        default:
            break;
        }
        if (target.address == 0) {
            error(finding_id::null_target, true, i, reloc.name,
                  shortened(reloc.name) + " lies at address null",
                  "a set without any code and data has no mapping; give it some, or register a real address");
            return std::nullopt;
        }
        return target;
    }

    void check_relocation(size_t i, const tessjit::reloc_info& reloc)
    {
        const checked_kernel& k = kernel();
        const std::optional<target_place> target = find_target(i, reloc);
        const relocation_kind* const kind = find_relocation_kind(reloc.type);
        if (kind == nullptr) {
            error(finding_id::unhandled_type, true, i, std::to_string(reloc.type),
                  "relocation type " + std::to_string(reloc.type) + " is none of 274, 275, 277 and 283",
                  "use one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26");
        }

        const int64_t size = static_cast<int64_t>(k.text->size());
        const bool inside = lies_within(*k.text, reloc.offset);
        if (!inside) {
            error(finding_id::offset, false, i, "",
                  "the word at " + signed_hex(reloc.offset) + " is outside the text, which has " +
                      std::to_string(size) + " bytes",
                  "give the offset of an instruction of this kernel");
        } else if (reloc.offset % 4 != 0) {
            error(finding_id::unaligned_offset, false, i, "",
                  "the offset is not a multiple of 4: the field is in two instructions",
                  "give the offset of an instruction");
        }
        const bool is_instruction = inside && reloc.offset % 4 == 0;
        if (kind == nullptr) {
            pages_in_doubt_ = true;
            return;
        }

        const bool filled = inside && check_field(i, reloc, *kind);
        const bool in_reach = target && check_range(i, reloc, *kind, *target);
        const bool applicable = in_reach && inside && !filled;
        if (inside && !filled && reloc.offset % 4 == 0)
            check_untested_bit(i, reloc, *kind, in_reach ? target : std::nullopt);
        const bool right_instruction = is_instruction && check_opcode(i, reloc, *kind);
        if (!target || !right_instruction)
            pages_in_doubt_ = true;
        if (reloc.type == R_AARCH64_CALL26 && target)
            check_call_target(i, reloc, *target);
        if (applicable)
            apply(reloc, *kind, *target);
    }

    // Whether the field is filled already.
    bool check_field(size_t i, const tessjit::reloc_info& reloc, const relocation_kind& kind)
    {
        const auto offset = static_cast<size_t>(reloc.offset);
        const uint32_t word = word_at(linked_, offset);
        // Distances to another mapping are not zero.
        const bool surely_filled = surely_filled_.count({reloc.offset, kind.filled_mask}) != 0;
        if ((word & kind.filled_mask) != 0 || surely_filled) {
            const bool by_relocation = surely_filled || word != word_at(*kernel().text, offset);
            const bool expected = reloc.offset % 4 == 0 && (word & kind.opcode_mask) == kind.opcode;
            const char* const advice = by_relocation ? "remove one of the two relocations"
                                       : expected    ? "generate the instruction with a zero field"
                                                     : ""; // the finding about the instruction says it
            error(finding_id::field_filled, true, i, std::to_string(reloc.offset),
                  std::string(kind.name) + ": the field of " + word_text(word) + " is not zero" +
                      (by_relocation ? " behind an earlier relocation" : ""),
                  advice);
            return true;
        }
        if (!in_doubt_.empty() && (word_at(in_doubt_, offset) & kind.filled_mask) != 0) {
            add(finding_id::placement, severity::note, false, i, reloc.offset, "field",
                std::string(kind.name) +
                    ": whether an earlier relocation to another mapping fills the field depends on " +
                    "where the system places this set",
                "remove one of the two relocations");
            return true;
        }
        return false;
    }

    // The top bit of a BL's field, which is not tested: ORed to a distance ahead, it makes one back. `target`
    // is the relocation's, if it is in reach.
    void check_untested_bit(size_t i, const tessjit::reloc_info& reloc, const relocation_kind& kind,
                            const std::optional<target_place>& target)
    {
        const uint32_t word = word_at(linked_, static_cast<size_t>(reloc.offset));
        const uint32_t untested = word & field_mask(kind) & ~kind.filled_mask;
        if (untested == 0 || (word & kind.opcode_mask) != kind.opcode)
            return;
        const std::string fact = "the top bit of the BL's field is set (" + word_text(word) +
                                 "), which the finaliser does not test";
        const std::string advice =
            "generate the BL with its whole field zero: " + word_text(word & ~field_mask(kind));
        if (!target || target->state == target_place::where::elsewhere) {
            add(finding_id::call_bit_25, severity::warning, false, i, reloc.offset, "",
                fact + ": the call may lead elsewhere", advice);
            return;
        }
        const uint64_t S = target->address + static_cast<uint64_t>(int64_t{reloc.addend});
        const uint64_t P = kernel().text_address + static_cast<uint64_t>(int64_t{reloc.offset});
        const uint32_t field = relocation_field(kind, relocation_value(kind, S, P));
        if ((field & untested) == untested) {
            add(finding_id::call_bit_25, severity::warning, false, i, reloc.offset, "back",
                fact + ": the call is right only because its target lies before it", advice);
            return;
        }
        const int64_t distance = encoded_value(kind, word | field);
        error(finding_id::call_bit_25, false, i, target_text(reloc),
              "the call leads to " + place_reached(P, distance) + ", not to " + target_text(reloc) + ": " +
                  fact,
              advice);
    }

    // The kernel and the offset where an instruction at P leads, or how far that is.
    [[nodiscard]] std::string place_reached(uint64_t P, int64_t distance) const
    {
        const uint64_t address = P + static_cast<uint64_t>(distance);
        for (const checked_kernel& k : kernels_) {
            if (address - k.text_address < k.text->size()) {
                const auto offset = static_cast<int64_t>(address - k.text_address);
                return shortened(*k.name) + (offset == 0 ? "" : signed_hex(offset));
            }
        }
        return (addresses_ == address_kind::real ? hex(address) + ", " : "where no kernel is, ") +
               distance_text(distance) + " from it";
    }

    [[nodiscard]] std::string far_advice() const
    {
        const std::string advice = "finalise both in one set";
        return addresses_ == address_kind::real
                   ? advice + "; if these are dumps of two runs, use a directory for each"
                   : advice;
    }

    // Whether the value fits, as far as it is known.
    bool check_range(size_t i, const tessjit::reloc_info& reloc, const relocation_kind& kind,
                     const target_place& target)
    {
        const uint64_t S = target.address + static_cast<uint64_t>(int64_t{reloc.addend});
        const uint64_t P = kernel().text_address + static_cast<uint64_t>(int64_t{reloc.offset});
        const uint64_t X = relocation_value(kind, S, P);
        const std::string cause = kind.name + ('\0' + reloc.name);
        if (X % kind.multiple_of != 0) {
            error(finding_id::range, true, i, cause + '\0',
                  std::string(kind.name) + " reaches " + target_text(reloc) +
                      " at a distance that is not a multiple of " + std::to_string(kind.multiple_of),
                  "correct the addend");
            return false;
        }
        if (target.state == target_place::where::elsewhere && kind.relative) {
            add(finding_id::placement, severity::note, false, i, reloc.offset, cause,
                target_text(reloc) + " is in another mapping: " + kind.name + " reaches it within " +
                    kind.reach,
                "the system decides where this set is placed; in one set the distance is certain");
            return true;
        }
        if (in_range(kind, X))
            return true;
        error(finding_id::range, true, i, cause,
              std::string(kind.name) + " reaches " + target_text(reloc) + " at " +
                  distance_text(static_cast<int64_t>(X)) + ", limit " + kind.reach,
              reloc.type == R_AARCH64_ADR_PREL_LO21 ? "use ADRP and ADD" : far_advice());
        return false;
    }

    bool check_opcode(size_t i, const tessjit::reloc_info& reloc, const relocation_kind& kind)
    {
        const uint32_t word = word_at(*kernel().text, static_cast<size_t>(reloc.offset));
        if ((word & kind.opcode_mask) == kind.opcode)
            return true;
        error(finding_id::opcode, false, i, kind.name + ('\0' + std::to_string(word & kind.opcode_mask)),
              std::string(kind.name) + " fills " + kind.instruction + ", but the word there is " +
                  word_text(word),
              "correct the offset or the type");
        return false;
    }

    void check_call_target(size_t i, const tessjit::reloc_info& reloc, const target_place& target)
    {
        const std::string cause = target_text(reloc);
        if (names_data(reloc.name)) {
            error(finding_id::call_target, false, i, cause, "BL to constants: " + target_text(reloc),
                  "name the kernel to be called");
            return;
        }
        const uint64_t S = target.address + static_cast<uint64_t>(int64_t{reloc.addend});
        if (reloc.addend != 0 && !starts_.contains(S)) {
            add(finding_id::call_target, severity::warning, false, i, reloc.offset, cause,
                "BL to " + target_text(reloc) + ", where no kernel begins", "call it with addend 0");
        }
    }

    // Leaves in the copy what the finaliser leaves in the mapping. A distance that is not known surely fills
    // the field, but which of its bits is in doubt, and so whether they are under the mask of another kind.
    void apply(const tessjit::reloc_info& reloc, const relocation_kind& kind, const target_place& target)
    {
        const auto offset = static_cast<size_t>(reloc.offset);
        uint32_t word = word_at(linked_, offset);
        const uint64_t S = target.address + static_cast<uint64_t>(int64_t{reloc.addend});
        const uint64_t P = kernel().text_address + offset;
        if (target.state != target_place::where::elsewhere || !kind.relative) {
            word |= relocation_field(kind, relocation_value(kind, S, P));
            std::memcpy(linked_.data() + offset, &word, sizeof word);
            return;
        }
        in_doubt_.resize(linked_.size());
        const uint32_t bits = word_at(in_doubt_, offset) | relocation_field(kind, ~uint64_t{0});
        std::memcpy(in_doubt_.data() + offset, &bits, sizeof bits);
        surely_filled_.emplace(reloc.offset, kind.filled_mask);
    }

    void check_pairs()
    {
        const checked_kernel& k = kernel();
        std::unordered_set<std::string> pages;
        std::unordered_set<std::string> completed;
        const auto key = [](const tessjit::reloc_info& reloc) {
            return reloc.name + '\0' + std::to_string(reloc.addend);
        };
        for (const tessjit::reloc_info& reloc : *k.relocs) {
            if (reloc.type == R_AARCH64_ADR_PREL_PG_HI21)
                pages.insert(key(reloc));
            if (reloc.type == R_AARCH64_ADD_ABS_LO12_NC)
                completed.insert(key(reloc));
        }
        for (size_t i = 0; i < k.relocs->size() && !pages_in_doubt_; ++i) {
            const tessjit::reloc_info& reloc = (*k.relocs)[i];
            if (reloc.type == R_AARCH64_ADR_PREL_PG_HI21 && completed.count(key(reloc)) == 0) {
                error(finding_id::pair, false, i, "ADRP" + key(reloc),
                      "ADRP gives the page of " + target_text(reloc) + ", which no ADD completes",
                      "add R_AARCH64_ADD_ABS_LO12_NC of the same target and addend: no relocation " +
                          std::string("completes a load or a store"));
            }
            if (reloc.type == R_AARCH64_ADD_ABS_LO12_NC && pages.count(key(reloc)) == 0) {
                add(finding_id::pair, severity::warning, false, i, reloc.offset, "ADD" + key(reloc),
                    "ADD completes the page of " + target_text(reloc) + ", which no ADRP gives",
                    "add R_AARCH64_ADR_PREL_PG_HI21 of the same target and addend");
            }
        }
    }

    const std::vector<checked_kernel>& kernels_;
    const target_finder& find_;
    address_kind addresses_;
    file_names names_;
    text_starts starts_;
    finding_list findings_;
    size_t index_ = 0;
    bool pages_in_doubt_ = false;        // another finding may be why an ADRP lacks its ADD, or the reverse
    std::vector<std::uint8_t> linked_;   // the kernel's text with the relocations applied so far
    std::vector<std::uint8_t> in_doubt_; // bits that may be set in it besides; empty if there are none
    // Offsets and masks under which not all bits in doubt are zero.
    std::set<std::pair<std::int32_t, uint32_t>> surely_filled_;
};

} // namespace

std::vector<kernel_finding> check_placed(const std::vector<checked_kernel>& kernels,
                                         const target_finder& find, const kernel_registry_map& others,
                                         address_kind addresses)
{
    return checker(kernels, find, others, addresses).run();
}

} // namespace vorna::wfta
