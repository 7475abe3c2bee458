#include "check/engine.hpp"

#include "check/a64.hpp"
#include "check/code_map.hpp"
#include "check/known_addresses.hpp"
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

constexpr std::string_view data_prefix = ".rodata.";

bool names_data(std::string_view target)
{
    return target.substr(0, data_prefix.size()) == data_prefix;
}

std::string hex(uint64_t value)
{
    char text[20];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string signed_hex(int64_t value)
{
    const uint64_t magnitude = value < 0 ? -static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    return (value < 0 ? "-" : "+") + hex(magnitude);
}

std::string word_text(uint32_t word)
{
    char text[12];
    std::snprintf(text, sizeof text, "0x%08x", word);
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

// A name in a message. No file has a longer one, and a dump that was made up is not to fill the memory.
std::string shown(const std::string& name)
{
    constexpr size_t longest = 255;
    return name.size() <= longest ? name : name.substr(0, longest) + "...";
}

std::string target_text(const tessjit::reloc_info& reloc)
{
    return reloc.addend == 0 ? shown(reloc.name) : shown(reloc.name) + signed_hex(reloc.addend);
}

// "an SVE instruction", but "NOP".
std::string with_article(std::string_view name)
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

uint32_t word_at(const std::vector<std::uint8_t>& text, size_t offset)
{
    uint32_t word = 0;
    std::memcpy(&word, text.data() + offset, sizeof word);
    return word;
}

// The findings of one kernel, of which those of one cause become one.
class kernel_findings {
public:
    explicit kernel_findings(std::vector<kernel_finding>& all) : all_(all) {}

    void begin(const std::string& kernel)
    {
        kernel_ = &kernel;
        by_cause_.clear();
    }

    // Adds a finding; where the kernel has one of this id and cause already, only its place.
    void add(const char* id, severity level, bool aborts, std::optional<size_t> relocation,
             std::optional<int64_t> offset, const std::string& cause, const std::string& message,
             const std::string& advice = {})
    {
        // A kernel with so many causes is beyond telling them apart.
        constexpr size_t most_causes = 1000;
        const std::string key = by_cause_.size() < most_causes ? id + ('\0' + cause) : std::string(id);
        const auto [found, fresh] = by_cause_.try_emplace(std::hash<std::string>{}(key), all_.size());
        if (fresh) {
            places_.resize(all_.size() + 1);
            all_.push_back({id, level, aborts, *kernel_, relocation, offset, message, advice});
            return;
        }
        const kernel_finding& first = all_[found->second];
        places& others = places_[found->second];
        if (offset && offset != first.offset) {
            if (++others.count <= shown_places)
                others.text += (others.count == 1 ? "" : ", ") + signed_hex(*offset);
        }
    }

    // Adds the places to the messages.
    void finish()
    {
        for (size_t i = 0; i < places_.size(); ++i) {
            const places& others = places_[i];
            if (others.count == 0)
                continue;
            all_[i].message += "; also at " + others.text;
            if (others.count > shown_places)
                all_[i].message += " and " + std::to_string(others.count - shown_places) + " more";
        }
    }

private:
    static constexpr size_t shown_places = 8;
    struct places {
        size_t count = 0;
        std::string text;
    };

    std::vector<kernel_finding>& all_;
    const std::string* kernel_ = nullptr;
    std::unordered_map<size_t, size_t> by_cause_; // by the hash of id and cause
    std::vector<places> places_;
};

// Names of files and of perf's symbols.

std::string lower_case(std::string name)
{
    for (char& c : name) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return name;
}

void check_name(const std::string& name, kernel_findings& findings)
{
    constexpr size_t longest_file_name = 255; // NAME_MAX of Linux
    constexpr size_t hash_suffix = 5;
    const auto add = [&](const char* id, const std::string& message, const std::string& advice) {
        findings.add(id, severity::warning, false, {}, {}, message, message, advice);
    };
    const std::string files = "choose a name that is a file's name";
    if (name.empty())
        add("name-file", "an empty name is no file's name: there will be no dump", files);
    if (name.find('\0') != std::string::npos)
        add("name-file", "the name holds a NUL: files are named by what comes before it", files);
    if (name.find('/') != std::string::npos)
        add("name-file", "the name holds a \"/\": the dump goes into another directory, if that exists",
            files);
    if (name == "." || name == "..")
        add("name-file", "the name is a directory's: there will be no dump", files);
    if (name.size() > longest_file_name) {
        add("name-file",
            "the name has " + std::to_string(name.size()) + " bytes, of which a file's has 255 at most",
            files);
    } else if (name.size() + hash_suffix > longest_file_name) {
        add("name-file",
            "the name has " + std::to_string(name.size()) +
                " bytes: with \".hash\" more than the 255 of a file's name",
            files);
    }

    if (name.find('\n') != std::string::npos)
        add("name-map", "the name holds a newline, which ends the line in the perf map",
            "choose another name");
    if (name.find('\0') != std::string::npos)
        add("name-map", "the name holds a NUL, with which it ends in the perf map", "choose another name");
    if (name.size() <= 2)
        add("name-map", "perf drops names of less than three bytes", "choose a longer name");
}

// Kernels whose files would be one and the same.
class file_names {
public:
    explicit file_names(const kernel_registry_map& others)
    {
        for (const auto& [name, entry] : others)
            add(name);
    }

    void add(const std::string& name)
    {
        if (names_.insert(name).second)
            by_lower_case_.emplace(lower_case(name), name);
    }

    // Looks for those among the kernels added before.
    void check(const std::string& name, kernel_findings& findings) const
    {
        constexpr std::string_view hash = ".hash";
        const auto add = [&](const std::string& message) {
            findings.add("name-collision", severity::warning, false, {}, {}, message, message,
                         "rename one of the two");
        };
        if (names_.count(name + std::string(hash)) != 0)
            add("its hash file is the dump of " + shown(name + std::string(hash)));
        if (name.size() > hash.size() && name.substr(name.size() - hash.size()) == hash) {
            const std::string other = name.substr(0, name.size() - hash.size());
            if (names_.count(other) != 0)
                add("its dump is the hash file of " + shown(other));
        }
        const auto [begin, end] = by_lower_case_.equal_range(lower_case(name));
        for (auto other = begin; other != end; ++other) {
            if (other->second != name) {
                add("the name differs from " + shown(other->second) + " in case only");
                break;
            }
        }
    }

private:
    std::unordered_set<std::string> names_;
    std::unordered_multimap<std::string, std::string> by_lower_case_;
};

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
                const target_place target = find(i, reloc.name);
                if (target.state != target_place::where::placed)
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

class checker {
public:
    checker(const std::vector<checked_kernel>& kernels, const target_finder& find,
            const kernel_registry_map& others, address_kind addresses)
        : kernels_(kernels), find_(find), addresses_(addresses), names_(others), starts_(kernels, others),
          entries_(kernels, find), findings_(all_)
    {
    }

    std::vector<kernel_finding> run()
    {
        for (index_ = 0; index_ < kernels_.size(); ++index_) {
            findings_.begin(*kernel().name);
            check_kernel();
        }
        findings_.finish();
        return std::move(all_);
    }

private:
    [[nodiscard]] const checked_kernel& kernel() const { return kernels_[index_]; }

    void check_kernel()
    {
        const checked_kernel& k = kernel();
        if (!k.name_taken.empty())
            findings_.add("duplicate-name", severity::error, true, {}, {}, "", k.name_taken,
                          "rename one of the two kernels");
        check_name(*k.name, findings_);
        if (k.name_taken.empty()) {
            names_.check(*k.name, findings_);
            names_.add(*k.name);
        }
        map_.reset();
        check_end_of_text();
        if (!k.relocs->empty()) {
            linked_ = *k.text;
            in_doubt_.clear();
            surely_filled_.clear();
            pages_in_doubt_ = false;
            for (size_t i = 0; i < k.relocs->size(); ++i)
                check_relocation(i, (*k.relocs)[i]);
            check_pairs();
            check_accesses();
        }
        check_erratum();
    }

    // Which words are executed; made for those kernels only for which it matters.
    const code_map& map()
    {
        if (!map_)
            map_ = map_code(*kernel().name, *kernel().text, *kernel().relocs, entries_.of(index_));
        return *map_;
    }

    void check_end_of_text()
    {
        const std::vector<std::uint8_t>& text = *kernel().text;
        if (text.size() % 4 != 0) {
            findings_.add("text-length", severity::warning, false, {},
                          static_cast<int64_t>(text.size() / 4 * 4), "",
                          "the text has " + std::to_string(text.size()) + " bytes, not a multiple of 4",
                          "end the text with a whole instruction");
            return;
        }
        if (text.empty())
            return;
        const uint32_t last = word_at(text, text.size() - 4);
        if (never_falls_through(last) || map().uses.empty() || map().uses.back() != word_use::code)
            return;
        findings_.add("falls-through", severity::error, false, {}, static_cast<int64_t>(text.size() - 4), "",
                      with_article(instruction_name(last)) + " (" + word_text(last) +
                          ") is the last instruction, and control continues past the end of the code",
                      "end the code with RET, a branch or a trap");
    }

    void error(const char* id, bool aborts, size_t relocation, const std::string& cause,
               const std::string& message, const std::string& advice = {})
    {
        findings_.add(id, severity::error, aborts, relocation, (*kernel().relocs)[relocation].offset, cause,
                      message, advice);
    }

    // The relocation's target, if it has one.
    std::optional<target_place> find_target(size_t i, const tessjit::reloc_info& reloc)
    {
        const checked_kernel& k = kernel();
        target_place target = {target_place::where::placed, k.data_address};
        if (names_data(reloc.name)) {
            if (std::string_view(reloc.name).substr(data_prefix.size()) != *k.name) {
                error("foreign-data", true, i, reloc.name,
                      shown(reloc.name) + " is not this kernel's data, and it reaches no other",
                      "name " + std::string(data_prefix) + shown(*k.name) +
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
            error("unknown-target", true, i, reloc.name, "there is no kernel " + shown(reloc.name),
                  "place it before " + shown(*k.name) + ", or correct the name");
            return std::nullopt;
        case target_place::where::later:
            error("callee-order", true, i, reloc.name,
                  shown(reloc.name) + " is not placed yet: it comes later in the set",
                  "move it before " + shown(*k.name));
            return std::nullopt;
        case target_place::where::unknown:
            findings_.add("unknown-target", severity::note, false, i, reloc.offset, reloc.name,
                          shown(reloc.name) + " is not among the dumps",
                          "dump all kernels to have this checked");
            return std::nullopt;
        default:
            break;
        }
        if (target.address == 0) {
            error("null-target", true, i, reloc.name, shown(reloc.name) + " lies at address null",
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
            error("unhandled-type", true, i, std::to_string(reloc.type),
                  "relocation type " + std::to_string(reloc.type) + " is none of 274, 275, 277 and 283",
                  "use one of ADR_PREL_LO21, ADR_PREL_PG_HI21, ADD_ABS_LO12_NC and CALL26");
        }

        const int64_t size = static_cast<int64_t>(k.text->size());
        const bool inside = reloc.offset >= 0 && reloc.offset <= size - 4;
        if (!inside) {
            error("offset", false, i, "",
                  "the word at " + signed_hex(reloc.offset) + " is outside the text, which has " +
                      std::to_string(size) + " bytes",
                  "give the offset of an instruction of this kernel");
        } else if (reloc.offset % 4 != 0) {
            error("unaligned-offset", false, i, "",
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
            error("field-filled", true, i, std::to_string(reloc.offset),
                  std::string(kind.name) + ": the field of " + word_text(word) + " is not zero" +
                      (by_relocation ? " behind an earlier relocation" : ""),
                  advice);
            return true;
        }
        if (!in_doubt_.empty() && (word_at(in_doubt_, offset) & kind.filled_mask) != 0) {
            findings_.add(
                "placement", severity::note, false, i, reloc.offset, "field",
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
            findings_.add("call-bit-25", severity::warning, false, i, reloc.offset, "",
                          fact + ": the call may lead elsewhere", advice);
            return;
        }
        const uint64_t S = target->address + static_cast<uint64_t>(int64_t{reloc.addend});
        const uint64_t P = kernel().text_address + static_cast<uint64_t>(int64_t{reloc.offset});
        const uint32_t field = relocation_field(kind, relocation_value(kind, S, P));
        if ((field & untested) == untested) {
            findings_.add("call-bit-25", severity::warning, false, i, reloc.offset, "back",
                          fact + ": the call is right only because its target lies before it", advice);
            return;
        }
        const int64_t distance = branch_displacement(word | field).value_or(0);
        error("call-bit-25", false, i, target_text(reloc),
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
                return shown(*k.name) + (offset == 0 ? "" : signed_hex(offset));
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
            error("range", true, i, cause + '\0',
                  std::string(kind.name) + " reaches " + target_text(reloc) +
                      " at a distance that is not a multiple of " + std::to_string(kind.multiple_of),
                  "correct the addend");
            return false;
        }
        if (target.state == target_place::where::elsewhere && kind.relative) {
            findings_.add("placement", severity::note, false, i, reloc.offset, cause,
                          target_text(reloc) + " is in another mapping: " + kind.name +
                              " reaches it within " + kind.reach,
                          "the system decides where this set is placed; in one set the distance is certain");
            return true;
        }
        if (in_range(kind, X))
            return true;
        error("range", true, i, cause,
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
        const std::string name(instruction_name(word));
        const std::string what = reloc.type == R_AARCH64_ADD_ABS_LO12_NC && (word & 0x7f800000) == 0x11000000
                                     ? "ADD (immediate) with a shift"
                                     : name;
        error("opcode", false, i, kind.name + ('\0' + what),
              std::string(kind.name) + " fills " + kind.instruction + ", but this is " + what + " (" +
                  word_text(word) + ")",
              "correct the offset or the type");
        return false;
    }

    void check_call_target(size_t i, const tessjit::reloc_info& reloc, const target_place& target)
    {
        const std::string cause = target_text(reloc);
        if (names_data(reloc.name)) {
            error("call-target", false, i, cause, "BL to constants: " + target_text(reloc),
                  "name the kernel to be called");
            return;
        }
        const uint64_t S = target.address + static_cast<uint64_t>(int64_t{reloc.addend});
        if (reloc.addend != 0 && !starts_.contains(S)) {
            findings_.add("call-target", severity::warning, false, i, reloc.offset, cause,
                          "BL to " + target_text(reloc) + ", where no kernel begins",
                          "call it with addend 0");
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

    // Address of a target of this kernel's relocations that is placed.
    [[nodiscard]] std::optional<uint64_t> address_of(const std::string& name) const
    {
        const checked_kernel& k = kernel();
        if (names_data(name)) {
            return std::string_view(name).substr(data_prefix.size()) == *k.name
                       ? std::optional(k.data_address)
                       : std::nullopt;
        }
        if (name == *k.name)
            return k.text_address;
        const target_place target = find_(index_, name);
        if (target.state == target_place::where::placed || target.state == target_place::where::elsewhere)
            return target.address;
        return std::nullopt;
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
                error("pair", false, i, "ADRP" + key(reloc),
                      "ADRP gives the page of " + target_text(reloc) + ", which no ADD completes",
                      "add R_AARCH64_ADD_ABS_LO12_NC of the same target and addend: no relocation " +
                          std::string("completes a load or a store"));
            }
            if (reloc.type == R_AARCH64_ADD_ABS_LO12_NC && pages.count(key(reloc)) == 0) {
                findings_.add("pair", severity::warning, false, i, reloc.offset, "ADD" + key(reloc),
                              "ADD completes the page of " + target_text(reloc) + ", which no ADRP gives",
                              "add R_AARCH64_ADR_PREL_PG_HI21 of the same target and addend");
            }
        }
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
        if (!names_data(reloc.name) || std::string_view(reloc.name).substr(data_prefix.size()) != *k.name)
            return true;
        const memory_access& memory = access.access;
        const std::string what = std::to_string(memory.bytes) + (memory.load ? "-byte load" : "-byte store");
        const auto add = [&](const char* id, severity level, const std::string& message,
                             const std::string& advice) {
            findings_.add(id, level, false, {}, static_cast<int64_t>(access.offset), message, message,
                          advice);
        };
        if (access.through_page) {
            add("outside-constants", severity::error,
                what + " through the page of " + target_text(reloc) + ", which no ADD completes",
                "add R_AARCH64_ADD_ABS_LO12_NC of the same target and addend: no relocation completes a load "
                "or a store");
            return false;
        }
        const auto check_offset = [&](int64_t offset, const std::string& when) {
            if (offset >= 0 && memory.bytes <= k.data->size() &&
                static_cast<uint64_t>(offset) <= k.data->size() - memory.bytes)
                return true;
            const std::string place = offset == 0 ? ".rodata" : ".rodata" + signed_hex(offset);
            add("outside-constants", severity::error,
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
            add("writes-constants", severity::warning,
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
        findings_.add("data-alignment", memory.faults_unaligned ? severity::error : severity::note, false, {},
                      static_cast<int64_t>(access.offset), what + faults, what + faults,
                      "data blocks are packed: make the length of every block of the set a multiple of " +
                          std::to_string(wanted));
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
            findings_.add("erratum-843419", severity::warning, false, {}, static_cast<int64_t>(offset), "",
                          "ADRP at page offset " + hex((kernel().text_address + offset) & 0xfff) +
                              " before loads or stores that Cortex-A53 may get wrong",
                          "move the ADRP, or put an instruction that is no load or store behind it");
        }
    }

    const std::vector<checked_kernel>& kernels_;
    const target_finder& find_;
    address_kind addresses_;
    std::vector<kernel_finding> all_;
    file_names names_;
    text_starts starts_;
    entries_by_others entries_;
    std::optional<code_map> map_; // of the kernel at hand
    kernel_findings findings_;
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
