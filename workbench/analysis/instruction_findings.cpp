// Decoding is slow, so a kernel is decoded only if it forms addresses of constants, or if its last
// instruction may let control continue past the end of the code.

#include "workbench/analysis/instruction_findings.hpp"

#include "check/finding_list.hpp"
#include "check/format.hpp"
#include "workbench/analysis/address_tracking.hpp"
#include "workbench/analysis/calling_convention.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/disasm/features.hpp"
#include "workbench/text/place.hpp"

#include <algorithm>
#include <elf.h>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vorna::workbench {

namespace {

using std::int64_t;
using std::size_t;
using std::uint32_t;
using std::uint64_t;
using severity = wfta::finding_severity;
using wfta::finding_id;
using wfta::finding_list;
using wfta::relocation_target;
using wfta::target_finder;

// Where kernels enter each other, other than at the beginning.
class entries_by_others {
public:
    entries_by_others(const std::vector<placed_kernel>& kernels, const target_finder& find)
    {
        std::vector<std::pair<uint64_t, size_t>> starts; // address and kernel; filled on first use
        for (size_t i = 0; i < kernels.size(); ++i) {
            for (const tessjit::reloc_info& reloc : kernels[i].relocs) {
                if (reloc.addend == 0 || names_data(reloc.name) || reloc.name == kernels[i].name)
                    continue;
                const relocation_target target = find(i, reloc.name);
                if (target.state != relocation_target::where::placed)
                    continue;
                if (starts.empty()) {
                    for (size_t k = 0; k < kernels.size(); ++k)
                        starts.emplace_back(kernels[k].text_address, k);
                    std::sort(starts.begin(), starts.end());
                }
                add(kernels, starts, target.address + static_cast<uint64_t>(int64_t{reloc.addend}),
                    reloc.type == R_AARCH64_CALL26);
            }
        }
    }

    [[nodiscard]] const std::vector<code_entry>& of(size_t kernel) const
    {
        static const std::vector<code_entry> none;
        const auto found = entries_.find(kernel);
        return found == entries_.end() ? none : found->second;
    }

private:
    void add(const std::vector<placed_kernel>& kernels,
             const std::vector<std::pair<uint64_t, size_t>>& starts, uint64_t address, bool called)
    {
        const auto next = std::upper_bound(starts.begin(), starts.end(), std::pair{address, kernels.size()});
        if (next == starts.begin())
            return;
        const auto& [begin, kernel] = *std::prev(next);
        if (address - begin < kernels[kernel].text.size())
            entries_[kernel].push_back({static_cast<int64_t>(address - begin), called});
    }

    std::unordered_map<size_t, std::vector<code_entry>> entries_;
};

// Calls of internal kernels by internal kernels that are followed; beyond, they count as recursion.
constexpr size_t most_nested_calls = 64;

class instruction_checker {
public:
    instruction_checker(const kernel_set& set, const target_finder& find,
                        const wfta::analysis_options& options)
        : kernels_(set.kernels), find_(find), options_(options), entries_(set.kernels, find)
    {
        if (!options.cpu.empty())
            lacking_.emplace(find_processor(options.cpu).value());
    }

    std::vector<wfta::kernel_finding> run()
    {
        for (index_ = 0; index_ < kernels_.size(); ++index_) {
            findings_.begin_kernel(index_, kernel().name);
            is_mapped_ = false;
            check_end_of_code();
            check_accesses();
            check_erratum();
            check_multiply_adds();
            check_features();
            check_convention();
        }
        return findings_.take();
    }

private:
    [[nodiscard]] const placed_kernel& kernel() const { return kernels_[index_]; }

    struct mapped_code {
        decoded_kernel code;
        code_map map;
    };

    // The kernel mapped, on first use, with its plain words not yet decoded; null if it is too large.
    mapped_code* mapped()
    {
        if (!is_mapped_ && kernel().text.size() <= largest_decoded_code) {
            mapped_.code = prepare_decoding(kernel(), std::move(mapped_.code));
            mapped_.map = decode_and_map(mapped_.code, entries_.of(index_));
            is_mapped_ = true;
        }
        return is_mapped_ ? &mapped_ : nullptr;
    }

    // The same with all words decoded that may be executed.
    const mapped_code* code()
    {
        if (mapped() != nullptr)
            decode_reached(mapped_.code, mapped_.map);
        return mapped();
    }

    void check_convention()
    {
        if (mapped() == nullptr) {
            findings_.add(finding_id::unfollowed, severity::note, false, {}, {}, {},
                          {"the code is too large to be followed", {}, {}});
            return;
        }
        const call_convention convention = convention_of(index_);
        if (convention == call_convention::none) {
            find_convention_findings(mapped()->code, mapped()->map, kernel_flow(), convention, {}, findings_);
            return;
        }
        mapped_code& current = *mapped();
        const kernel_flow flow = follow(current, index_);
        const size_t kernel = index_;
        const auto effect = [this, kernel](size_t relocation) {
            return effect_of(kernel, kernels_[kernel].relocs[relocation].name);
        };
        find_convention_findings(current.code, current.map, flow, convention, effect, findings_);
    }

    [[nodiscard]] call_convention convention_of(size_t kernel) const
    {
        if (!options_.aapcs64)
            return call_convention::none;
        return options_.is_internal && options_.is_internal(kernels_[kernel].name) ? call_convention::internal
                                                                                   : call_convention::aapcs64;
    }

    kernel_flow follow(mapped_code& code, size_t kernel)
    {
        flow_options options;
        options.to_decode = &code.code;
        options.all_given = convention_of(kernel) == call_convention::internal;
        if (options_.is_internal) {
            options.effect_of = [this, kernel](size_t relocation) -> const call_effect* {
                const std::string& name = kernels_[kernel].relocs[relocation].name;
                return options_.is_internal(name) ? effect_of(kernel, name) : nullptr;
            };
        }
        return follow_kernel(code.code, code.map, options);
    }

    // The effect of calling another kernel.
    const call_effect* effect_of(size_t caller, const std::string& name)
    {
        static const call_effect unknown = [] {
            call_effect made;
            made.followed = false;
            return made;
        }();
        const std::optional<size_t> callee = find_placed(caller, name);
        if (!callee || kernels_[*callee].text.size() > largest_decoded_code)
            return &unknown;
        const auto [at, added] = effects_.try_emplace(*callee, unknown); // until it is known: recursion
        if (added && effects_.size() - effects_done_ <= most_nested_calls) {
            mapped_code made{prepare_decoding(kernels_[*callee]), code_map()};
            made.map = decode_and_map(made.code, entries_.of(*callee));
            call_effect effect = follow(made, *callee).effect;
            effects_.at(*callee) = effect;
            ++effects_done_;
        }
        return &effects_.at(*callee);
    }

    // The kernel that a relocation's target is.
    std::optional<size_t> find_placed(size_t caller, const std::string& name)
    {
        if (kernel_at_.empty()) {
            for (size_t i = 0; i < kernels_.size(); ++i)
                kernel_at_.emplace(kernels_[i].text_address, i);
        }
        const relocation_target target = find_(caller, name);
        if (target.state != relocation_target::where::placed)
            return std::nullopt;
        const auto found = kernel_at_.find(target.address);
        return found == kernel_at_.end() ? std::nullopt : std::optional(found->second);
    }

    // The instruction at an offset; empty past the end.
    [[nodiscard]] decoded_kernel instruction_at(size_t offset) const
    {
        return offset + 4 <= kernel().text.size() ? decode_word(word_at(kernel().text, offset))
                                                  : decoded_kernel();
    }

    void check_end_of_code()
    {
        const std::vector<std::uint8_t>& text = kernel().text;
        if (text.empty() || text.size() % 4 != 0)
            return;
        const size_t last = text.size() - 4;
        if (instruction_at(last).instructions.front().is_barrier() || mapped() == nullptr ||
            mapped()->map.uses.back() != word_use::code)
            return;
        findings_.add(
            finding_id::falls_through, severity::error, false, {}, static_cast<int64_t>(last), {},
            {text_at(last) + " is the last instruction, and control continues past the end of the code",
             {},
             "end the code with RET, a branch or a trap"});
    }

    // The address of a relocation's target, if it is placed.
    [[nodiscard]] std::optional<uint64_t> address_of(const std::string& name) const
    {
        const relocation_target target = wfta::resolve_target(
            kernel().place(), name, [this](const std::string& other) { return find_(index_, other); });
        if (target.state == relocation_target::where::placed ||
            target.state == relocation_target::where::elsewhere)
            return target.address;
        return std::nullopt;
    }

    void check_accesses()
    {
        const placed_kernel& k = kernel();
        const auto gives_address = [](const tessjit::reloc_info& reloc) {
            return reloc.type == R_AARCH64_ADR_PREL_LO21 || reloc.type == R_AARCH64_ADR_PREL_PG_HI21;
        };
        if (!std::any_of(k.relocs.begin(), k.relocs.end(), gives_address))
            return;
        if (mapped() == nullptr)
            return;
        for (const known_access& access :
             decode_and_find_accesses(mapped()->code, mapped()->map,
                                      [this](const std::string& name) { return address_of(name); })) {
            if (access.relocation && check_constants(access))
                check_alignment(access);
        }
    }

    // Whether an access through an address of the kernel's constants stays within them.
    bool check_constants(const known_access& access)
    {
        const placed_kernel& k = kernel();
        const tessjit::reloc_info& reloc = k.relocs[*access.relocation];
        if (!is_own_data(k.name, reloc.name))
            return true;
        const memory_access& memory = access.access;
        const std::string what = std::to_string(memory.bytes) + (memory.load ? "-byte load" : "-byte store");
        const auto add = [&](finding_id id, severity level, const std::string& message,
                             const std::string& help) {
            findings_.add(id, level, false, {}, static_cast<int64_t>(access.offset), message,
                          {message, {}, help});
        };
        if (access.through_page) {
            add(finding_id::outside_constants, severity::error,
                what + " through the page of " + with_addend(wfta::quoted(reloc.name), reloc.addend) +
                    ", which no ADD completes",
                "add R_AARCH64_ADD_ABS_LO12_NC with the same target and addend: no relocation completes a load "
                "or a store");
            return false;
        }
        const auto check_offset = [&](int64_t offset, const std::string& when) {
            if (offset >= 0 && memory.bytes <= k.data.size() &&
                static_cast<uint64_t>(offset) <= k.data.size() - memory.bytes)
                return true;
            const std::string place = offset == 0 ? ".rodata" : ".rodata" + signed_hex(offset);
            add(finding_id::outside_constants, severity::error,
                what + (memory.load ? " from " : " to ") + place + when +
                    ", outside the kernel's constants, which have " + std::to_string(k.data.size()) +
                    (k.data.size() == 1 ? " byte" : " bytes"),
                "correct the offset or the addend, or add the constants");
            return false;
        };
        if (!check_offset(*access.target_offset, ""))
            return false;
        if (access.walk && access.walk->iterations) {
            const uint64_t iterations = *access.walk->iterations;
            const uint64_t last = static_cast<uint64_t>(*access.target_offset) +
                                  (iterations - 1) * static_cast<uint64_t>(access.walk->stride);
            if (!check_offset(static_cast<int64_t>(last),
                              " in iteration " + std::to_string(iterations) + " of its loop"))
                return false;
        }
        if (memory.store) {
            add(finding_id::writes_constants, severity::warning,
                what + (memory.load ? " that also writes" : "") + " to the kernel's constants at .rodata" +
                    (*access.target_offset == 0 ? "" : signed_hex(*access.target_offset)),
                "write to memory that the caller passes: constants are shared by all executions");
        }
        return true;
    }

    void check_alignment(const known_access& access)
    {
        if (!access.address)
            return;
        const memory_access& memory = access.access;
        const unsigned wanted = memory.faults_unaligned() ? memory.bytes : memory.element_bytes;
        if ((!memory.load && !memory.faults_unaligned()) || *access.address % wanted == 0)
            return;
        const uint64_t aligned = *access.address & -*access.address;
        const std::string what = std::to_string(wanted) +
                                 (memory.load ? "-byte load from" : "-byte store to") +
                                 " an address that is " + std::to_string(aligned) + "-aligned";
        // With FEAT_LSE2, ordered accesses and atomics may be unaligned within 16 bytes.
        const bool within_16 = *access.address % 16 + memory.bytes <= 16;
        const char* const faults = !memory.faults_unaligned() ? ""
                                   : within_16 ? ", which faults on processors without FEAT_LSE2"
                                               : ", which faults";
        findings_.add(finding_id::data_alignment,
                      memory.faults_unaligned() ? severity::error : severity::note, false, {},
                      static_cast<int64_t>(access.offset), what + faults,
                      {what + faults,
                       {},
                       "data blocks are packed: make the length of every block of the set a multiple of " +
                           std::to_string(wanted)});
    }

    // Cortex-A53, "Software Developers Errata Notice" (ARM-EPM-048406), 843419, its first sequence: an ADRP
    // in one of the last two words of a page, a load or a store, perhaps another instruction, and a load or a
    // store with an unsigned offset from the page.
    void check_erratum()
    {
        constexpr uint64_t page = 0x1000;
        for (uint64_t first = (0xff8 - kernel().text_address) % page & ~uint64_t{3};
             first < kernel().text.size(); first += page) {
            check_erratum_at(first);
            check_erratum_at(first + 4);
        }
    }

    // The second instruction of the sequence: a load, store or prefetch of one register, a store of a pair,
    // or ST1.
    static bool is_erratum_access(const decoded_kernel& code)
    {
        const instruction& at = code.instructions.front();
        const std::optional<memory_access> access = memory_access_of(code, at);
        if (!access)
            return is_prefetch(at) && has_cortex_a53(at);
        const bool found = access->structure ? access->store && access->interleaved == 1
                                             : access->registers == 1 || access->store;
        return found && has_cortex_a53(at);
    }

    // Whether the processor with the errata has an instruction.
    static bool has_cortex_a53(const instruction& at)
    {
        static const feature_set present = find_processor("cortex-a53").value();
        return (features_of(at) & ~present).none();
    }

    static bool is_branch(const instruction& at)
    {
        return at.is_terminator() && at.flow != control_flow::trap && at.flow != control_flow::system;
    }

    // Whether such an instruction loads the register or writes it back as the base. The status register of a
    // store-exclusive does not count.
    static bool writes_register(const decoded_kernel& code, register_id number)
    {
        const instruction& at = code.instructions.front();
        const std::optional<memory_access> access = memory_access_of(code, at);
        return access && ((access->moves_base() && access->base == number) ||
                          (!access->store && defs_of(code, at)[number]));
    }

    // A load, store or prefetch of a register with an unsigned offset from the page.
    static bool completes(const decoded_kernel& code, register_id page)
    {
        if (code.instructions.empty())
            return false;
        const instruction& at = code.instructions.front();
        return has_unsigned_offset(at) && operands_of(code, at)[1].registers[0] == page;
    }

    void check_erratum_at(size_t offset)
    {
        const decoded_kernel adrp = instruction_at(offset);
        if (adrp.instructions.empty() || adrp.instructions.front().kind != instruction_kind::adrp)
            return;
        const register_id page = operands_of(adrp, adrp.instructions.front())[0].registers[0];
        const decoded_kernel second = instruction_at(offset + 4);
        const decoded_kernel third = instruction_at(offset + 8);
        const bool found =
            page != zero_register && !second.instructions.empty() && is_erratum_access(second) &&
            !writes_register(second, page) && !third.instructions.empty() &&
            (completes(third, page) ||
             (!is_branch(third.instructions.front()) && completes(instruction_at(offset + 12), page))) &&
            (mapped() == nullptr || mapped()->map.uses[offset / 4] != word_use::data);
        if (found) {
            findings_.add(finding_id::erratum_843419, severity::warning, false, {},
                          static_cast<int64_t>(offset), {},
                          {"ADRP at page offset " + wfta::hex((kernel().text_address + offset) & 0xfff) +
                               " before loads or stores that Cortex-A53 may get wrong",
                           {},
                           "move the ADRP, or put an instruction that is not a load or store after it"});
        }
    }

    // The same notice, 835769: a 64-bit multiply-add directly after a load, a store or a prefetch. Not if it
    // uses what the load put into a general register, since it then waits for the load.
    void check_multiply_adds()
    {
        for (size_t offset = 4; offset + 4 <= kernel().text.size(); offset += 4) {
            if (multiplies_and_adds(word_at(kernel().text, offset)))
                check_multiply_add(offset);
        }
    }

    void check_multiply_add(size_t offset)
    {
        const decoded_kernel first = instruction_at(offset - 4);
        const instruction& before = first.instructions.front();
        const std::optional<memory_access> access = memory_access_of(first, before);
        if (!(access || is_prefetch(before)) || !has_cortex_a53(before))
            return;
        const decoded_kernel second = instruction_at(offset);
        if (access && access->load && !access->fp_simd) {
            register_set loaded = defs_of(first, before);
            if (access->moves_base() && access->base != access->first_register)
                loaded.reset(access->base);
            if ((loaded & uses_of(second, second.instructions.front())).any())
                return;
        }
        if (code() != nullptr && (code()->map.uses[offset / 4] == word_use::data ||
                                  code()->map.uses[offset / 4 - 1] == word_use::data))
            return;
        findings_.add(
            finding_id::erratum_835769, severity::warning, false, {}, static_cast<int64_t>(offset), {},
            {text_at(offset) + " directly after " + text_at(offset - 4) +
                 ", whose result Cortex-A53 may get wrong",
             {},
             "put an instruction that is not a load, a store or a prefetch between them, such as NOP"});
    }

    void check_features()
    {
        if (!lacking_ || code() == nullptr)
            return;
        for (size_t i = 0; i < code()->map.uses.size(); ++i) {
            if (code()->map.uses[i] != word_use::code)
                continue;
            const feature_set& missing = lacking_->missing(code()->code.instructions[i]);
            if (missing.none())
                continue;
            std::string names;
            for (const std::string& name : feature_names(missing))
                names += (names.empty() ? "" : " and ") + name;
            findings_.add(finding_id::missing_feature, severity::error, false, {},
                          static_cast<int64_t>(4 * i), names,
                          {text_at(4 * i) + " needs " + names + ", which " + options_.cpu + " does not have",
                           "executing it raises SIGILL there",
                           "generate the kernel without " + names + " for this processor"});
        }
    }

    // The instruction at an offset, as generated. PC-relative targets are offsets in the code, since the
    // address of the code may be an assumption.
    std::string text_at(size_t offset)
    {
        const uint32_t word = word_at(kernel().text, offset);
        const std::optional<std::int32_t> distance = decode_word(word).instructions.front().pc_relative;
        return distance ? disassembler_.text_with_symbol(word,
                                                         signed_hex(static_cast<int64_t>(offset) + *distance))
                        : disassembler_.text(word, offset);
    }

    const std::vector<placed_kernel>& kernels_;
    const target_finder& find_;
    const wfta::analysis_options& options_;
    std::optional<feature_search> lacking_; // of the processor that is checked for
    entries_by_others entries_;
    mapped_code mapped_; // of the current kernel, or one before it
    bool is_mapped_ = false;
    std::unordered_map<size_t, call_effect> effects_; // of kernels that are called
    size_t effects_done_ = 0;
    std::unordered_map<uint64_t, size_t> kernel_at_; // by address; filled on first use
    disassembler disassembler_;
    finding_list findings_;
    size_t index_ = 0;
};

} // namespace

std::vector<wfta::kernel_finding> find_in_instructions(const kernel_set& set, const target_finder& find,
                                                       const wfta::analysis_options& options)
{
    return instruction_checker(set, find, options).run();
}

std::vector<wfta::kernel_finding> with_instruction_findings(std::vector<wfta::kernel_finding> findings,
                                                            const kernel_set& set, const target_finder& find,
                                                            const wfta::analysis_options& options)
{
    std::vector<wfta::kernel_finding> more = find_in_instructions(set, find, options);
    findings.insert(findings.end(), std::make_move_iterator(more.begin()),
                    std::make_move_iterator(more.end()));
    std::stable_sort(findings.begin(), findings.end(),
                     [](const auto& a, const auto& b) { return a.index < b.index; });
    return findings;
}

} // namespace vorna::workbench
