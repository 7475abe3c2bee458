#include "workbench/analysis/instruction_findings.hpp"

#include "check/finding_list.hpp"
#include "check/format.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/known_addresses.hpp"
#include "workbench/disasm/a64.hpp"
#include "workbench/kernels/kernel_set.hpp"
#include "workbench/text/place.hpp"

#include <algorithm>
#include <elf.h>
#include <fmt/format.h>
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
using wfta::checked_kernel;
using wfta::finding_id;
using wfta::finding_list;
using wfta::relocation_target;
using wfta::target_finder;

// "an SVE instruction", but "NOP".
std::string instruction_words(std::string_view name)
{
    constexpr std::string_view instruction = "instruction";
    const bool is_kind =
        (name.size() >= instruction.size() && name.substr(name.size() - instruction.size()) == instruction) ||
        name == "load or store" || name == "exception" || name == "branch";
    if (!is_kind || name == "no instruction")
        return name == "no instruction" ? "a word that is not an instruction" : std::string(name);
    const bool vowel = name.front() == 'e' || name.front() == 'F' || name.front() == 'S';
    return (vowel ? "an " : "a ") + std::string(name);
}

// Where kernels enter each other other than at the beginning.
class entries_by_others {
public:
    entries_by_others(const std::vector<checked_kernel>& kernels, const target_finder& find)
    {
        std::vector<std::pair<uint64_t, size_t>> starts; // address and kernel, made when it is first needed
        for (size_t i = 0; i < kernels.size(); ++i) {
            for (const tessjit::reloc_info& reloc : *kernels[i].relocs) {
                if (reloc.addend == 0 || names_data(reloc.name) || reloc.name == *kernels[i].name)
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
    void add(const std::vector<checked_kernel>& kernels,
             const std::vector<std::pair<uint64_t, size_t>>& starts, uint64_t address, bool called)
    {
        const auto behind =
            std::upper_bound(starts.begin(), starts.end(), std::pair{address, kernels.size()});
        if (behind == starts.begin())
            return;
        const auto& [begin, kernel] = *std::prev(behind);
        if (address - begin < kernels[kernel].text->size())
            entries_[kernel].push_back({static_cast<int64_t>(address - begin), called});
    }

    std::unordered_map<size_t, std::vector<code_entry>> entries_;
};

class instruction_checker {
public:
    instruction_checker(const std::vector<checked_kernel>& kernels, const target_finder& find)
        : kernels_(kernels), find_(find), entries_(kernels, find)
    {
    }

    std::vector<wfta::kernel_finding> run()
    {
        for (index_ = 0; index_ < kernels_.size(); ++index_) {
            findings_.begin_kernel(index_, *kernel().name);
            map_.reset();
            check_end_of_code();
            check_accesses();
            check_erratum();
        }
        return findings_.take();
    }

private:
    [[nodiscard]] const checked_kernel& kernel() const { return kernels_[index_]; }

    // Which words are executed; made for those kernels only for which it matters.
    const code_map& map()
    {
        if (!map_)
            map_ = map_code(*kernel().name, *kernel().text, *kernel().relocs, entries_.of(index_));
        return *map_;
    }

    void check_end_of_code()
    {
        const std::vector<std::uint8_t>& text = *kernel().text;
        if (text.empty() || text.size() % 4 != 0)
            return;
        const uint32_t last = word_at(text, text.size() - 4);
        if (never_falls_through(last) || map().uses.empty() || map().uses.back() != word_use::code)
            return;
        findings_.add(finding_id::falls_through, severity::error, false, {},
                      static_cast<int64_t>(text.size() - 4), {},
                      {instruction_words(instruction_name(last)) + " (" + fmt::format("{:#010x}", last) +
                           ") is the last instruction, and control continues past the end of the code",
                       {},
                       "end the code with RET, a branch or a trap"});
    }

    // Address of a target of this kernel's relocations that is placed.
    [[nodiscard]] std::optional<uint64_t> address_of(const std::string& name) const
    {
        const relocation_target target = resolve_target(
            kernel().place(), name, [this](const std::string& other) { return find_(index_, other); });
        if (target.state == relocation_target::where::placed ||
            target.state == relocation_target::where::elsewhere)
            return target.address;
        return std::nullopt;
    }

    void check_accesses()
    {
        const checked_kernel& k = kernel();
        const auto gives_address = [](const tessjit::reloc_info& reloc) {
            return reloc.type == R_AARCH64_ADR_PREL_LO21 || reloc.type == R_AARCH64_ADR_PREL_PG_HI21;
        };
        if (!std::any_of(k.relocs->begin(), k.relocs->end(), gives_address))
            return;
        const known_addresses known = find_known_addresses(
            map(), *k.name, *k.text, *k.relocs, [this](const std::string& name) { return address_of(name); });
        for (const known_access& access : known.accesses) {
            if (access.relocation != own_code && check_constants(access))
                check_alignment(access);
        }
    }

    // Whether an access that goes through an address of the kernel's constants is one of them.
    bool check_constants(const known_access& access)
    {
        const checked_kernel& k = kernel();
        const tessjit::reloc_info& reloc = (*k.relocs)[access.relocation];
        if (!is_own_data(*k.name, reloc.name))
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
            if (offset >= 0 && memory.bytes <= k.data->size() &&
                static_cast<uint64_t>(offset) <= k.data->size() - memory.bytes)
                return true;
            const std::string place = offset == 0 ? ".rodata" : ".rodata" + signed_hex(offset);
            add(finding_id::outside_constants, severity::error,
                what + (memory.load ? " from " : " to ") + place + when +
                    ", outside the kernel's constants, which have " + std::to_string(k.data->size()) +
                    (k.data->size() == 1 ? " byte" : " bytes"),
                "correct the offset or the addend, or add the constants");
            return false;
        };
        if (!check_offset(*access.target_offset, ""))
            return false;
        if (access.walk && access.walk->turns) {
            const uint64_t turns = *access.walk->turns;
            const uint64_t last = static_cast<uint64_t>(*access.target_offset) +
                                  (turns - 1) * static_cast<uint64_t>(access.walk->stride);
            if (!check_offset(static_cast<int64_t>(last),
                              " in turn " + std::to_string(turns) + " of its loop"))
                return false;
        }
        if (memory.store)
            add(finding_id::writes_constants, severity::warning,
                what + (memory.load ? " that also writes" : "") + " to the kernel's constants at .rodata" +
                    (*access.target_offset == 0 ? "" : signed_hex(*access.target_offset)),
                "write to memory that the caller passes: constants are shared by all executions");
        return true;
    }

    void check_alignment(const known_access& access)
    {
        if (!access.address)
            return;
        const memory_access& memory = access.access;
        const unsigned wanted = memory.faults_unaligned ? memory.bytes : memory.element_bytes;
        if ((!memory.load && !memory.faults_unaligned) || *access.address % wanted == 0)
            return;
        const uint64_t aligned = *access.address & -*access.address;
        const std::string what = std::to_string(wanted) +
                                 (memory.load ? "-byte load from" : "-byte store to") +
                                 " an address that is " + std::to_string(aligned) + "-aligned";
        // With FEAT_LSE2 ordered accesses and atomics need not be aligned within 16 bytes.
        const bool within_16 = *access.address % 16 + memory.bytes <= 16;
        const char* const faults = !memory.faults_unaligned ? ""
                                   : within_16              ? ", which faults on processors without FEAT_LSE2"
                                                            : ", which faults";
        findings_.add(finding_id::data_alignment, memory.faults_unaligned ? severity::error : severity::note,
                      false, {}, static_cast<int64_t>(access.offset), what + faults,
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
        const std::vector<std::uint8_t>& text = *kernel().text;
        for (size_t offset = 0; offset + 4 <= text.size(); offset += 4) {
            const uint64_t in_page = (kernel().text_address + offset) & 0xfff;
            if (in_page == 0xff8 || in_page == 0xffc)
                check_erratum_at(text, offset);
        }
    }

    // The second instruction of the sequence: a load, store or prefetch of one register, a store of a pair,
    // ST1. The processor knows the instructions of Armv8.0.
    static bool is_erratum_access(uint32_t w)
    {
        if ((w & 0x3b000000) == 0x18000000) // literal, which prefetches are too
            return true;
        if ((w & 0xbe000000) == 0x0c000000)
            return instruction_name(w).substr(0, 4) == "ST1 ";
        if ((w & 0x3a000000) == 0x28000000) // pairs
            return (w & 0x00400000) == 0;
        if ((w & 0x3f000000) == 0x08000000) { // exclusive, ordered
            const std::optional<memory_access> access = decode_memory_access(w);
            return access && (access->registers == 1 || access->store);
        }
        return (w & 0x3b000000) == 0x39000000 || (w & 0x3b200000) == 0x38000000 ||
               (w & 0x3b200c00) == 0x38200800; // one register, prefetches among them
    }

    static bool is_branch(uint32_t w)
    {
        return ends_block(w) && (w & 0xff000000) != 0xd4000000 && (w & 0xffff0000) != 0; // no exception
    }

    // Whether such an instruction loads the register, or adds to it as its base.
    static bool writes_register(uint32_t w, uint32_t number)
    {
        if (const std::optional<memory_access> literal = decode_literal_load(w))
            return !literal->fp_simd && literal->first_register == number;
        if ((w & 0x3a800000) == 0x28800000) // pairs with writeback
            return (w >> 5 & 31) == number;
        if ((w & 0x3f000000) == 0x08000000) // exclusive, ordered
            return (w & 0x00400000) != 0 && (w & 31) == number;
        const std::optional<memory_access> access = decode_memory_access(w);
        if (!access)
            return false;
        const bool moves_base = access->addressing == addressing_mode::pre_index ||
                                access->addressing == addressing_mode::post_index ||
                                access->addressing == addressing_mode::post_register;
        return (moves_base && access->base == number) ||
               (access->load && !access->store && !access->fp_simd && access->first_register == number);
    }

    void check_erratum_at(const std::vector<std::uint8_t>& text, size_t offset)
    {
        const auto word = [&](size_t number) {
            const size_t at = offset + 4 * number;
            return at + 4 <= text.size() ? word_at(text, at) : 0;
        };
        if ((word(0) & 0x9f000000) != 0x90000000)
            return;
        const uint32_t page = word(0) & 31;
        const auto completes = [page](uint32_t w) { // load or store register (unsigned immediate)
            return (w & 0x3b000000) == 0x39000000 && (w >> 5 & 31) == page;
        };
        const bool found = is_erratum_access(word(1)) && !writes_register(word(1), page) &&
                           (completes(word(2)) || (!is_branch(word(2)) && completes(word(3)))) &&
                           (map().uses.empty() || map().uses[offset / 4] != word_use::data);
        if (found) {
            findings_.add(
                finding_id::erratum_843419, severity::warning, false, {}, static_cast<int64_t>(offset), {},
                {fmt::format("ADRP at page offset {:#x} before loads or stores that Cortex-A53 may get wrong",
                             (kernel().text_address + offset) & 0xfff),
                 {},
                 "move the ADRP, or put an instruction that is not a load or store after it"});
        }
    }

    const std::vector<checked_kernel>& kernels_;
    const target_finder& find_;
    entries_by_others entries_;
    std::optional<code_map> map_; // of the kernel at hand
    finding_list findings_;
    size_t index_ = 0;
};

} // namespace

std::vector<wfta::kernel_finding> find_in_instructions(const std::vector<checked_kernel>& kernels,
                                                       const target_finder& find)
{
    return instruction_checker(kernels, find).run();
}

} // namespace vorna::workbench
