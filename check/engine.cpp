// Goes through the kernels and their relocations in the order in which the finaliser applies them, and keeps
// a copy of the current kernel's code with the relocations applied so far: a later relocation of the same
// instruction finds its field filled, as it would in the mapping.
//
// The distance to a kernel of another mapping is unknown in a host's set. Such a relocation fills its field
// with unknown bits, which are tracked apart from the copy (in_doubt_); what follows from them is a note.

#include "check/engine.hpp"

#include "check/finding_list.hpp"
#include "check/format.hpp"
#include "check/names.hpp"
#include "check/nearest_name.hpp"

#include <algorithm>
#include <elf.h>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace vorna::wfta {

namespace {

using std::int32_t;
using std::int64_t;
using std::size_t;
using std::uint32_t;
using std::uint64_t;
using severity = finding_severity;
using where = relocation_target::where;
using tessjit::reloc_info;

// The addresses at which kernels begin, to check calls with an addend. Collected on first use.
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

// Finds the kernel name that an unknown name may be a misspelling of.
class similar_names {
public:
    similar_names(const std::vector<checked_kernel>& kernels, const kernel_registry_map& others)
        : kernels_(kernels), others_(others)
    {
    }

    // Not the name of the kernel that calls it.
    std::string of(const std::string& name, const std::string& caller)
    {
        const std::string nearest = known(name, name, {});
        return nearest == caller ? known(name + '\0' + caller, name, caller) : nearest;
    }

private:
    std::string known(const std::string& key, const std::string& name, const std::string& caller)
    {
        // Each search is linear in the number of kernels, and nobody misspells more names by hand.
        constexpr size_t most_names = 32;
        if (const auto found = known_.find(key); found != known_.end())
            return found->second;
        return known_.size() == most_names ? "" : known_.emplace(key, find(name, caller)).first->second;
    }

    [[nodiscard]] std::string find(const std::string& name, const std::string& caller) const
    {
        nearest_name_search search(name, name_candidates::misspellings);
        for (const checked_kernel& kernel : kernels_) {
            if (*kernel.name != caller)
                search.offer(*kernel.name);
        }
        for (const auto& [other, entry] : others_)
            search.offer(other);
        return search.nearest();
    }

    const std::vector<checked_kernel>& kernels_;
    const kernel_registry_map& others_;
    std::unordered_map<std::string, std::string> known_;
};

class checker {
public:
    checker(const std::vector<checked_kernel>& kernels, const target_finder& find,
            const kernel_registry_map& others, address_kind addresses)
        : kernels_(kernels), find_(find), addresses_(addresses), starts_(kernels, others),
          similar_(kernels, others)
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
    [[nodiscard]] const reloc_info& reloc() const { return (*kernel().relocs)[relocation_]; }
    [[nodiscard]] uint64_t place() const { return target_value(kernel().text_address, reloc().offset); }
    [[nodiscard]] uint64_t value_of(const relocation_target& target) const
    {
        return target_value(target.address, reloc().addend);
    }

    void check_kernel()
    {
        const checked_kernel& k = kernel();
        if (!k.first_of_name.empty())
            findings_.add(finding_id::duplicate_name, severity::error, true, {}, {}, {},
                          duplicate_name_text(k.first_of_name));
        check_name(*k.name, findings_);
        if (k.first_of_name.empty()) {
            names_.check(*k.name, findings_);
            names_.add(*k.name);
        }
        check_length();
        if (k.relocs->empty())
            return;
        linked_ = *k.text;
        in_doubt_.clear();
        surely_filled_.clear();
        pages_in_doubt_ = false;
        advised_ = 0;
        for (relocation_ = 0; relocation_ < k.relocs->size(); ++relocation_)
            check_relocation();
        if (!pages_in_doubt_)
            check_pairs();
    }

    void check_length()
    {
        const size_t size = kernel().text->size();
        if (size % 4 != 0) {
            findings_.add(finding_id::text_length, severity::warning, false, {},
                          static_cast<int64_t>(size / 4 * 4), {}, text_length_text(size));
        }
    }

    // Adds a finding about the current relocation.
    void add(finding_id id, severity level, bool aborts, const std::string& cause, finding_text text)
    {
        findings_.add(id, level, aborts, relocation_, reloc().offset, cause, std::move(text));
    }

    void add(finding_id id, severity level, bool aborts, const std::string& cause, const std::string& message,
             advice found)
    {
        add(id, level, aborts, cause, finding_text{message, std::move(found.note), std::move(found.help)});
    }

    void abort(finding_id id, const std::string& cause, const std::string& message, advice found)
    {
        add(id, severity::error, true, cause, message, std::move(found));
    }

    // The advice of `find`, for the first few findings of a kernel: its time grows with the relocations.
    template <typename Find>
    advice advised(const Find& find)
    {
        constexpr size_t most_advised = 16; // of one kernel
        if (advised_ == most_advised)
            return {};
        ++advised_;
        return find(relocation_site{*kernel().name, *kernel().text, *kernel().relocs, relocation_});
    }

    void check_relocation()
    {
        const relocation_kind* const kind = find_relocation_kind(reloc().type);
        const std::optional<relocation_target> target = find_target();
        if (kind == nullptr) {
            abort(finding_id::unhandled_type, std::to_string(reloc().type),
                  message_of(finding_id::unhandled_type, relocation_subject(reloc())),
                  advised(advise_unhandled_type));
        }
        const bool inside = check_offset();
        if (kind == nullptr) {
            pages_in_doubt_ = true;
            return;
        }

        const bool filled = inside && check_field(*kind);
        const bool in_range = target && check_range(*kind, *target);
        if (inside && !filled && reloc().offset % 4 == 0)
            check_untested_bit(*kind, in_range ? target : std::nullopt);
        const bool right_instruction = inside && reloc().offset % 4 == 0 && check_opcode(*kind, filled);
        if (!target || !right_instruction)
            pages_in_doubt_ = true;
        if (reloc().type == R_AARCH64_CALL26 && target)
            check_call_target(*target);
        if (in_range && inside && !filled)
            apply_to_copy(*kind, *target);
    }

    // The current relocation's target. Reports a target that cannot be resolved.
    std::optional<relocation_target> find_target()
    {
        const checked_kernel& k = kernel();
        const relocation_target target = resolve_target(
            k.place(), reloc().name, [this](const std::string& name) { return find_(index_, name); });
        const auto refuse = [&](finding_id id, const auto& find) {
            abort(id, reloc().name, message_of(id, relocation_subject(reloc())), advised(find));
            return std::nullopt;
        };
        switch (target.state) {
        case where::foreign_data:
            return refuse(finding_id::foreign_data, [&](const relocation_site& site) {
                const where owner = find_(index_, reloc().name.substr(data_prefix.size())).state;
                return advise_foreign_data(site, owner != where::nowhere && owner != where::unknown);
            });
        case where::nowhere:
            return refuse(finding_id::unknown_target, [&](const relocation_site& site) {
                return advise_unknown_target(site, similar_.of(reloc().name, *kernel().name));
            });
        case where::later:
            return refuse(finding_id::callee_order, advise_callee_order);
        case where::unknown:
            add(finding_id::unknown_target, severity::note, false, reloc().name,
                not_dumped_text(relocation_subject(reloc())));
            return std::nullopt;
        case where::placed:
        case where::elsewhere:
            break;
        }
        if (target.address == 0)
            return refuse(finding_id::null_target, advise_null_target);
        return target;
    }

    // Whether the relocated word lies within the code.
    bool check_offset()
    {
        const bool inside = lies_within(*kernel().text, reloc().offset);
        const auto error = [&](finding_id id, const std::string& message) {
            add(id, severity::error, false, {}, message, advised(advise_offset));
        };
        if (!inside)
            error(finding_id::offset, offset_message(relocation_subject(reloc()), kernel().text->size()));
        else if (reloc().offset % 4 != 0)
            error(finding_id::unaligned_offset,
                  message_of(finding_id::unaligned_offset, relocation_subject(reloc())));
        return inside;
    }

    // Whether the field is already filled.
    bool check_field(const relocation_kind& kind)
    {
        const auto offset = static_cast<size_t>(reloc().offset);
        const uint32_t word = word_at(linked_, offset);
        // An earlier relocation against another mapping: its distance is unknown but not zero.
        const bool surely_filled = surely_filled_.count({reloc().offset, kind.tested_mask}) != 0;
        if (is_filled(kind, word) || surely_filled) {
            const std::string subject = relocation_subject(reloc());
            abort(finding_id::field_filled, std::to_string(reloc().offset),
                  surely_filled ? message_of(finding_id::field_filled, subject)
                                : field_filled_message(subject, word),
                  advised(advise_field_filled));
            return true;
        }
        if (!in_doubt_.empty() && is_filled(kind, word_at(in_doubt_, offset))) {
            add(finding_id::placement, severity::note, false, "field",
                field_in_doubt_text(relocation_subject(reloc())));
            return true;
        }
        return false;
    }

    // Checks the top bit of a BL's field, which the finaliser does not test: ORed to a positive distance, it
    // gives a negative one. `target` is given if it is in range.
    void check_untested_bit(const relocation_kind& kind, const std::optional<relocation_target>& target)
    {
        const uint32_t word = word_at(linked_, static_cast<size_t>(reloc().offset));
        if (!has_untested_bits(kind, word) || !is_instruction_of(kind, word))
            return;
        const auto report = [&](severity level, const std::string& cause, call_effect effect,
                                const std::string& reached = {}) {
            add(finding_id::call_bit_25, level, false, cause,
                call_bit_25_text(relocation_subject(reloc()), kind, word, effect, reached));
        };
        if (!target || target->state == where::elsewhere)
            return report(severity::warning, {}, call_effect::unknown);
        const applied_relocation applied = apply(kind, value_of(*target), place(), word);
        if (!applied.leads_elsewhere)
            return report(severity::warning, "back", call_effect::none);
        report(severity::error, with_addend(reloc().name, reloc().addend), call_effect::leads_elsewhere,
               place_reached(encoded_value(kind, applied.word)));
    }

    // The target of an instruction, as kernel and offset if it is in one, otherwise as an address.
    [[nodiscard]] std::string place_reached(int64_t distance) const
    {
        const uint64_t address = place() + static_cast<uint64_t>(distance);
        for (const checked_kernel& k : kernels_) {
            if (address - k.text_address < k.text->size())
                return with_addend(quoted(*k.name), static_cast<int64_t>(address - k.text_address));
        }
        return addresses_ == address_kind::real ? hex(address) : "no kernel";
    }

    // Whether X is in range, as far as it is known.
    bool check_range(const relocation_kind& kind, const relocation_target& target)
    {
        const uint64_t S = value_of(target);
        const uint64_t X = relocation_value(kind, S, place());
        const bool aligned = is_aligned(kind, X);
        const bool known = target.state != where::elsewhere || !kind.relative;
        if (known && in_range(kind, X))
            return true;
        const std::string cause = kind.name + ('\0' + reloc().name);
        if (!known && aligned) {
            add(finding_id::placement, severity::note, false, cause,
                range_in_doubt_text(relocation_subject(reloc())));
            return true;
        }
        advice found = advised([&](const relocation_site& site) {
            return advise_range(site, {S, place(), target.in_other_mapping});
        });
        if (addresses_ == address_kind::real && target.in_other_mapping && aligned && !found.help.empty())
            found.help += "; if these are dumps of two runs, use a directory for each";
        abort(finding_id::range, cause + (aligned ? "" : "misaligned"),
              range_message(relocation_subject(reloc()), kind, X), std::move(found));
        return false;
    }

    bool check_opcode(const relocation_kind& kind, bool said_already)
    {
        const uint32_t word = word_at(*kernel().text, static_cast<size_t>(reloc().offset));
        if (is_instruction_of(kind, word))
            return true;
        add(finding_id::opcode, severity::error, false, kind.name + ('\0' + word_text(word)),
            opcode_message(relocation_subject(reloc()), kind, word),
            said_already ? advice{} : advised(advise_opcode));
        return false;
    }

    void check_call_target(const relocation_target& target)
    {
        const auto report = [this](severity level, finding_text (*text)(const std::string&)) {
            add(finding_id::call_target, level, false, with_addend(reloc().name, reloc().addend),
                text(relocation_subject(reloc())));
        };
        if (names_data(reloc().name))
            report(severity::error, call_of_constants_text);
        else if (reloc().addend != 0 && !starts_.contains(value_of(target)))
            report(severity::warning, call_amid_kernel_text);
    }

    // Applies the relocation to the copy of the code. An unknown distance certainly fills the field, but with
    // unknown bits, so whether the mask of another kind would test them is in doubt.
    void apply_to_copy(const relocation_kind& kind, const relocation_target& target)
    {
        const auto offset = static_cast<size_t>(reloc().offset);
        if (target.state != where::elsewhere || !kind.relative) {
            set_word(linked_, offset, apply(kind, value_of(target), place(), word_at(linked_, offset)).word);
            return;
        }
        in_doubt_.resize(linked_.size());
        set_word(in_doubt_, offset, word_at(in_doubt_, offset) | kind.field_mask);
        surely_filled_.emplace(reloc().offset, kind.tested_mask);
    }

    void check_pairs()
    {
        // Type, target and addend of the kernel's ADRPs and ADDs, sorted.
        using half = std::tuple<int32_t, std::string_view, int32_t>;
        std::vector<half> halves;
        for (const reloc_info& r : *kernel().relocs) {
            if (r.type == R_AARCH64_ADR_PREL_PG_HI21 || r.type == R_AARCH64_ADD_ABS_LO12_NC)
                halves.emplace_back(r.type, r.name, r.addend);
        }
        std::sort(halves.begin(), halves.end());
        const auto has = [&](int32_t type) {
            return std::binary_search(halves.begin(), halves.end(), half{type, reloc().name, reloc().addend});
        };
        const auto cause = [this] { return reloc().name + '\0' + std::to_string(reloc().addend); };
        for (relocation_ = 0; relocation_ < kernel().relocs->size(); ++relocation_) {
            if (reloc().type == R_AARCH64_ADR_PREL_PG_HI21 && !has(R_AARCH64_ADD_ABS_LO12_NC)) {
                add(finding_id::pair, severity::error, false, "ADRP" + cause(),
                    missing_add_text(relocation_subject(reloc())));
            }
            if (reloc().type == R_AARCH64_ADD_ABS_LO12_NC && !has(R_AARCH64_ADR_PREL_PG_HI21)) {
                add(finding_id::pair, severity::warning, false, "ADD" + cause(),
                    missing_adrp_text(relocation_subject(reloc())));
            }
        }
    }

    const std::vector<checked_kernel>& kernels_;
    const target_finder& find_;
    address_kind addresses_;
    file_names names_;
    text_starts starts_;
    similar_names similar_;
    finding_list findings_;
    size_t index_ = 0;                   // of the current kernel
    size_t relocation_ = 0;              // of its current relocation
    size_t advised_ = 0;                 // number of the kernel's findings with advice
    bool pages_in_doubt_ = false;        // another finding may explain an ADRP without ADD, or vice versa
    std::vector<std::uint8_t> linked_;   // the kernel's code with relocations applied so far
    std::vector<std::uint8_t> in_doubt_; // further bits that may be set in it; empty if none
    // Offsets and masks of fields that unknown distances fill.
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
