#include "workbench/analysis/abort_explanation.hpp"

#include "check/engine.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <elf.h>
#include <fmt/format.h>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace vorna::workbench {

using wfta::find_relocation_kind;
using wfta::is_instruction_of;
using wfta::relocation_kind;
using where = wfta::relocation_target::where;

namespace {

constexpr std::uint64_t page_size = 4096; // of ADRP, whatever the machine's pages

std::uint64_t widened(std::int32_t value)
{
    return static_cast<std::uint64_t>(std::int64_t{value});
}

std::int64_t as_signed(std::uint64_t value)
{
    return static_cast<std::int64_t>(value);
}

std::uint64_t magnitude_of(std::int64_t value)
{
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

// "2.30 GiB"
std::string bytes_text(std::uint64_t bytes)
{
    if (bytes < 1024)
        return pluralize(bytes, "byte");
    static constexpr const char* units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; value >= 1024 && unit + 1 < std::size(units); ++unit)
        value /= 1024;
    return fmt::format("{:.{}f} {}", value, value < 10 ? 2 : value < 100 ? 1 : 0, units[unit]);
}

std::string distance_text(std::int64_t distance)
{
    return bytes_text(magnitude_of(distance)) + (distance < 0 ? " back" : " ahead");
}

// A relocation as its generator writes it, in C++.
std::string relocation_text(std::string_view name, std::int64_t offset, std::int32_t type,
                            std::int32_t addend)
{
    std::string quoted;
    for (const char c : printable(name))
        quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
    return fmt::format("{{\"{}\", {}, {}, {}}}", quoted, offset, type, addend);
}

// The kind of relocation that the word waits for, its field being zero; null if it waits for none.
const relocation_kind* kind_of_unfilled(std::uint32_t word)
{
    const relocation_kind* const kind = wfta::find_kind_of_instruction(word);
    if (kind == nullptr || (word & kind->field_mask) != 0)
        return nullptr;
    // ADD of 0 to or from SP is how the assembler writes MOV, and no address is formed so.
    const bool stack_pointer = (word & 0x1f) == 31 || (word >> 5 & 0x1f) == 31;
    return kind->type == R_AARCH64_ADD_ABS_LO12_NC && stack_pointer ? nullptr : kind;
}

// The kind of relocation that the generator can have meant for the word at the relocation's own offset: the
// field may hold a provisional value, but an ADD of a number is an ADD of a number.
const relocation_kind* kind_of_meant(std::uint32_t word)
{
    const relocation_kind* const kind = wfta::find_kind_of_instruction(word);
    return kind != nullptr && kind->type == R_AARCH64_ADD_ABS_LO12_NC ? kind_of_unfilled(word) : kind;
}

// Where the field of a linked or provisionally encoded ADR, ADRP or BL leads.
std::uint64_t encoded_target(const relocation_kind& kind, std::uint32_t word, std::uint64_t place)
{
    const auto value = static_cast<std::uint64_t>(wfta::encoded_value(kind, word));
    return (place & kind.page_mask) + value;
}

bool is_in(std::uint64_t address, std::uint64_t begin, std::uint64_t length)
{
    return address - begin < length;
}

// Whether some byte of the block, or its beginning, lies in the page.
bool meets_page(std::uint64_t page, std::uint64_t begin, std::uint64_t length)
{
    return begin - page < page_size || is_in(page, begin, length);
}

// ---- The kernel that was being linked, by the listing.

using listing_range = std::pair<const registered_kernel*, const registered_kernel*>;

listing_range listing_of(const abort_log& log, const abort_report& report)
{
    if (!report.listing)
        return {nullptr, nullptr};
    const std::vector<registered_kernel>& kernels = log.listings[*report.listing].kernels;
    return {kernels.data() + report.listing_begin, kernels.data() + kernels.size()};
}

// Kernels are registered one by one in the order of their addresses, so the one whose relocation was refused
// is the last of its mapping. `place` is the instruction, or the last byte of the page that it is on.
const registered_kernel* find_linked_kernel(listing_range listing, std::uint64_t place)
{
    const auto order = [](const registered_kernel& kernel) {
        return std::make_tuple(kernel.text_address, kernel.data_address, kernel.text_length,
                               kernel.data_length);
    };
    const registered_kernel* nearest = nullptr;
    for (const registered_kernel* kernel = listing.first; kernel != listing.second; ++kernel) {
        if (kernel->text_address <= place && (nearest == nullptr || order(*nearest) < order(*kernel)))
            nearest = kernel;
    }
    if (nearest == nullptr)
        return nullptr;
    // The mapping's constants begin behind all of its code, also that of kernels still to come.
    std::uint64_t data_begin = ~std::uint64_t{0};
    for (const registered_kernel* kernel = listing.first; kernel != listing.second; ++kernel) {
        if (kernel->data_address >= nearest->text_address)
            data_begin = std::min(data_begin, kernel->data_address);
    }
    const registered_kernel* last = nearest;
    for (const registered_kernel* kernel = listing.first; kernel != listing.second; ++kernel) {
        const bool same_mapping = kernel->text_address < data_begin ||
                                  (kernel->text_address == data_begin && kernel->text_length == 0);
        if (same_mapping && order(*last) < order(*kernel))
            last = kernel;
    }
    return last;
}

// ---- What the finaliser did with the relocations of a dumped kernel.

// Addresses of the process that ended, which are those of the dumps unless they are of another run.
struct kernel_addresses {
    std::uint64_t text;
    std::uint64_t data;
};

class known_targets {
public:
    known_targets(listing_range listing, const kernel_set& set) : listing_(listing), set_(set) {}

    // The address of a kernel's code: by the listing, otherwise by the dumps.
    [[nodiscard]] std::optional<std::uint64_t> find(const std::string& name) const
    {
        // A listing may be long, and few reports ask for its names.
        if (listed_.empty()) {
            for (const registered_kernel* kernel = listing_.first; kernel != listing_.second; ++kernel)
                listed_.emplace(kernel->name, kernel->text_address);
        }
        if (const auto listed = listed_.find(name); listed != listed_.end())
            return listed->second;
        const placed_kernel* const dumped = find_kernel(set_, name);
        return dumped == nullptr ? std::nullopt : std::optional(dumped->text_address);
    }

private:
    listing_range listing_;
    const kernel_set& set_;
    mutable std::unordered_map<std::string, std::uint64_t> listed_;
};

std::optional<std::uint64_t> find_target(const placed_kernel& kernel, const kernel_addresses& addresses,
                                         const std::string& name, const known_targets& targets)
{
    if (names_data(name))
        return addresses.data;
    return name == kernel.name ? addresses.text : targets.find(name);
}

struct refusal {
    std::string id; // of the finding
    std::size_t relocation;
};

// The first relocation that the finaliser refuses. Not every kernel need have been dumped, so a target that
// is not known is passed over, unless it is taken to be at `unknown`.
std::optional<refusal> find_refusal(const placed_kernel& kernel, const kernel_addresses& addresses,
                                    const known_targets& targets,
                                    wfta::relocation_target unknown = {where::unknown, 0})
{
    const auto find = [&](std::size_t, const std::string& name) {
        const std::optional<std::uint64_t> target = find_target(kernel, addresses, name, targets);
        return target ? wfta::relocation_target{where::placed, *target} : unknown;
    };
    const std::vector<wfta::kernel_finding> findings = wfta::check_placed(
        {{&kernel.name, &kernel.text, &kernel.data, &kernel.relocs, addresses.text, addresses.data, {}}},
        find, {}, wfta::address_kind::real);
    for (const wfta::kernel_finding& finding : findings) {
        if (finding.aborts && finding.relocation)
            return refusal{name_of(finding.id), *finding.relocation};
    }
    return std::nullopt;
}

// The relocations of the kernel that a message can be about.
std::vector<std::size_t> fitting_relocations(const abort_report& report, const placed_kernel& kernel,
                                             const kernel_addresses& addresses, const known_targets& targets)
{
    std::vector<std::size_t> fitting;
    for (std::size_t i = 0; i < kernel.relocs.size(); ++i) {
        const tessjit::reloc_info& reloc = kernel.relocs[i];
        const std::uint64_t P = addresses.text + widened(reloc.offset);
        if (report.filled) {
            if (reloc.type == report.filled->kind->type && P == report.filled->place)
                fitting.push_back(i);
            continue;
        }
        const relocation_kind& kind = *report.range->kind;
        if (reloc.type != kind.type || (P & kind.page_mask) != report.range->place)
            continue;
        const std::optional<std::uint64_t> target = find_target(kernel, addresses, reloc.name, targets);
        if (target && ((*target + widened(reloc.addend)) & kind.page_mask) == report.range->target)
            fitting.push_back(i);
    }
    return fitting;
}

// ---- The dump of a kernel.

bool ends_with(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// A line of the listing may have lost the beginning of a name, which holds newlines and blanks, or have other
// text in front of it.
bool may_be_name(std::string_view listed, std::string_view name)
{
    return ends_with(name, listed) || ends_with(listed, name);
}

// The kernel's dump: that at its address, otherwise, of another run, that of its name.
std::optional<std::size_t> find_dump(const kernel_set& set, const registered_kernel& kernel)
{
    const auto begin = std::lower_bound(
        set.kernels.begin(), set.kernels.end(), kernel.text_address,
        [](const placed_kernel& placed, std::uint64_t address) { return placed.text_address < address; });
    const auto index_of = [&](const placed_kernel& placed) {
        return static_cast<std::size_t>(&placed - set.kernels.data());
    };
    std::optional<std::size_t> at_address;
    for (auto placed = begin; placed != set.kernels.end() && placed->text_address == kernel.text_address;
         ++placed) {
        if (placed->data_address != kernel.data_address || !may_be_name(kernel.name, placed->name))
            continue;
        if (placed->name == kernel.name)
            return index_of(*placed);
        at_address = index_of(*placed);
    }
    if (at_address)
        return at_address;
    if (const placed_kernel* const named = find_kernel(set, kernel.name))
        return index_of(*named);
    for (const placed_kernel& placed : set.kernels) {
        if (placed.text.size() == kernel.text_length && placed.data.size() == kernel.data_length &&
            !placed.name.empty() && may_be_name(kernel.name, placed.name) && !kernel.name.empty())
            return index_of(placed);
    }
    return std::nullopt;
}

std::vector<std::size_t> last_of_each_mapping(const kernel_set& set)
{
    std::vector<std::size_t> last(set.mappings.size());
    for (std::size_t i = 0; i < set.kernels.size(); ++i)
        last[set.kernels[i].mapping] = i;
    return last;
}

bool is_newer(const dumps_of_process& dumps, std::size_t a, std::size_t b)
{
    return !dumps.written.empty() && dumps.written[a] > dumps.written[b];
}

// ---- Words for what was found.

struct known_type {
    std::int32_t type;
    const char* name;
    std::uint32_t opcode_mask; // of the word that the ABI has it for,
    std::uint32_t opcode;      // which for data is a placeholder of zeros
    const char* instead;
};

constexpr std::uint32_t load_store_mask = 0x3b000000; // unsigned offset
constexpr std::uint32_t load_store = 0x39000000;

constexpr known_type other_types[] = {
    {R_AARCH64_ABS64, "R_AARCH64_ABS64", ~0U, 0, "addresses are formed by code: ADRP (275) and ADD (277)"},
    {R_AARCH64_ABS32, "R_AARCH64_ABS32", ~0U, 0, "addresses are formed by code: ADRP (275) and ADD (277)"},
    {R_AARCH64_PREL64, "R_AARCH64_PREL64", ~0U, 0, "addresses are formed by code: ADRP (275) and ADD (277)"},
    {R_AARCH64_PREL32, "R_AARCH64_PREL32", ~0U, 0, "addresses are formed by code: ADRP (275) and ADD (277)"},
    {R_AARCH64_LD_PREL_LO19, "R_AARCH64_LD_PREL_LO19", 0x3b000000, 0x18000000,
     "form the address with ADRP (275) and ADD (277) and load from it"},
    {R_AARCH64_ADR_PREL_PG_HI21_NC, "R_AARCH64_ADR_PREL_PG_HI21_NC", 0, 1, "use its checked form, 275"},
    {R_AARCH64_LDST8_ABS_LO12_NC, "R_AARCH64_LDST8_ABS_LO12_NC", load_store_mask, load_store,
     "complete the address with ADD (277) and load from it"},
    {R_AARCH64_LDST16_ABS_LO12_NC, "R_AARCH64_LDST16_ABS_LO12_NC", load_store_mask, load_store,
     "complete the address with ADD (277) and load from it"},
    {R_AARCH64_LDST32_ABS_LO12_NC, "R_AARCH64_LDST32_ABS_LO12_NC", load_store_mask, load_store,
     "complete the address with ADD (277) and load from it"},
    {R_AARCH64_LDST64_ABS_LO12_NC, "R_AARCH64_LDST64_ABS_LO12_NC", load_store_mask, load_store,
     "complete the address with ADD (277) and load from it"},
    {R_AARCH64_LDST128_ABS_LO12_NC, "R_AARCH64_LDST128_ABS_LO12_NC", load_store_mask, load_store,
     "complete the address with ADD (277) and load from it"},
    {R_AARCH64_TSTBR14, "R_AARCH64_TSTBR14", 0x7e000000, 0x36000000,
     "branch within the kernel, over a BL if need be"},
    {R_AARCH64_CONDBR19, "R_AARCH64_CONDBR19", 0x56000000, 0x54000000,
     "branch within the kernel, over a BL if need be"},
    {R_AARCH64_JUMP26, "R_AARCH64_JUMP26", 0xfc000000, 0x14000000,
     "call with BL (283), or form the address with ADRP and ADD and use BR"},
    {R_AARCH64_ADR_GOT_PAGE, "R_AARCH64_ADR_GOT_PAGE", 0, 1, "there is no GOT: use ADRP (275) and ADD (277)"},
    {R_AARCH64_LD64_GOT_LO12_NC, "R_AARCH64_LD64_GOT_LO12_NC", load_store_mask, load_store,
     "there is no GOT: use ADRP (275) and ADD (277)"},
};

const known_type* find_other_type(std::int32_t type)
{
    const auto* const found = std::find_if(std::begin(other_types), std::end(other_types),
                                           [type](const known_type& known) { return known.type == type; });
    return found == std::end(other_types) ? nullptr : found;
}

constexpr const char* how_to_dump =
    "run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps";

// One report while it is explained.
struct explaining {
    abort_report report;
    listing_range listing;
    bool listing_complete;
    const dumps_of_process& dumps;
    known_targets targets;
    const registered_kernel* registered = nullptr; // the kernel, by the listing
    const placed_kernel* dump = nullptr;           // its dump
    kernel_addresses addresses{0, 0};              // of the kernel in the process that ended
    bool other_run = false;
    abort_explanation result{};
};

const tessjit::reloc_info* relocation_of(const explaining& e)
{
    return e.dump == nullptr || !e.result.relocation ? nullptr : &e.dump->relocs[*e.result.relocation];
}

void use_dump(explaining& e, std::size_t index)
{
    e.dump = &e.dumps.set.kernels[index];
    e.result.dump = index;
    e.result.kernel = e.dump->name;
    if (e.registered != nullptr) {
        e.addresses = {e.registered->text_address, e.registered->data_address};
        e.other_run = e.dump->text_address != e.addresses.text || e.dump->data_address != e.addresses.data;
    } else {
        e.addresses = {e.dump->text_address, e.dump->data_address};
    }
}

void use_relocation(explaining& e, std::size_t index)
{
    const tessjit::reloc_info& reloc = e.dump->relocs[index];
    e.result.relocation = index;
    e.result.offset = reloc.offset;
    e.result.type = reloc.type;
    e.result.target = reloc.name;
    e.result.target_offset = reloc.addend;
    const relocation_kind* const kind = find_relocation_kind(reloc.type);
    const std::optional<std::uint64_t> target = find_target(*e.dump, e.addresses, reloc.name, e.targets);
    const bool own =
        !names_data(reloc.name) || std::string_view(reloc.name).substr(data_prefix.size()) == e.dump->name;
    if (kind != nullptr && kind->relative && target && own && !e.result.distance)
        e.result.distance = as_signed(relocation_value(*kind, *target + widened(reloc.addend),
                                                       e.addresses.text + widened(reloc.offset)));
}

void use_kind(explaining& e, const relocation_kind& kind)
{
    e.result.type = kind.type;
    if (kind.relative)
        e.result.limit = value_limits{kind.range.least, kind.range.greatest};
}

// ---- Reports with a message.

const relocation_kind& kind_of_message(const explaining& e)
{
    return e.report.filled ? *e.report.filled->kind : *e.report.range->kind;
}

std::uint64_t place_of_message(const explaining& e)
{
    return e.report.filled ? e.report.filled->place : e.report.range->place;
}

bool knows_place(const explaining& e)
{
    return kind_of_message(e).page_mask == ~std::uint64_t{0} || e.report.filled;
}

// The target that a range message's S lies in: constants of the kernel itself, or any kernel's code.
void find_target_by_address(explaining& e)
{
    const std::uint64_t S = e.report.range->target;
    const registered_kernel& self = *e.registered;
    const auto use = [&e](const std::string& name, std::uint64_t offset) {
        e.result.target = name;
        e.result.target_offset = as_signed(offset);
    };
    if (is_in(S, self.data_address, self.data_length))
        return use(std::string(data_prefix) + *e.result.kernel, S - self.data_address);
    const registered_kernel* empty = nullptr;
    for (const registered_kernel* kernel = e.listing.first; kernel != e.listing.second; ++kernel) {
        if (is_in(S, kernel->text_address, kernel->text_length))
            return use(kernel->name, S - kernel->text_address);
        if (S == kernel->text_address)
            empty = kernel;
    }
    if (empty != nullptr)
        return use(empty->name, 0);
    if (S == self.data_address + self.data_length)
        use(std::string(data_prefix) + *e.result.kernel, self.data_length);
}

// The same of ADRP, of which the page is known.
void find_target_by_page(explaining& e)
{
    const std::uint64_t page = e.report.range->target;
    const registered_kernel& self = *e.registered;
    std::vector<std::string> names;
    if (meets_page(page, self.data_address, self.data_length))
        names.push_back(std::string(data_prefix) + *e.result.kernel);
    for (const registered_kernel* kernel = e.listing.first; kernel != e.listing.second; ++kernel) {
        if (meets_page(page, kernel->text_address, kernel->text_length))
            names.push_back(kernel->name);
    }
    if (names.size() == 1)
        e.result.target = names.front();
    if (names.size() < 2)
        return;
    constexpr std::size_t most = 8;
    std::string note = fmt::format("on the target's page {:#x} lie {}", page, printable(names.front()));
    for (std::size_t i = 1; i < std::min(names.size(), most); ++i)
        note += ", " + printable(names[i]);
    if (names.size() > most)
        note += fmt::format(" and {} more", names.size() - most);
    e.result.notes.push_back(note);
}

// A dump that holds a relocation which the message fits, and that is the last of its mapping.
std::optional<std::size_t> find_dump_by_relocation(const explaining& e)
{
    for (const std::size_t i : last_of_each_mapping(e.dumps.set)) {
        const placed_kernel& kernel = e.dumps.set.kernels[i];
        const kernel_addresses addresses{kernel.text_address, kernel.data_address};
        if (!fitting_relocations(e.report, kernel, addresses, e.targets).empty())
            return i;
    }
    return std::nullopt;
}

void find_kernel_of_message(explaining& e)
{
    const relocation_kind& kind = kind_of_message(e);
    use_kind(e, kind);
    if (e.report.range)
        e.result.distance = as_signed(e.report.range->value);

    const std::uint64_t place = place_of_message(e);
    e.registered = find_linked_kernel(e.listing, knows_place(e) ? place : place | (page_size - 1));
    if (e.registered != nullptr) {
        e.result.kernel = e.registered->name;
        e.addresses = {e.registered->text_address, e.registered->data_address};
        if (const auto dump = find_dump(e.dumps.set, *e.registered))
            use_dump(e, *dump);
    }
    std::vector<std::size_t> fitting;
    if (e.dump != nullptr)
        fitting = fitting_relocations(e.report, *e.dump, e.addresses, e.targets);
    if (fitting.empty() && (e.dump == nullptr || !e.other_run)) {
        // No listing, or an offset that leads out of the mapping.
        if (const auto dump = find_dump_by_relocation(e)) {
            e.registered = nullptr;
            use_dump(e, *dump);
            fitting = fitting_relocations(e.report, *e.dump, e.addresses, e.targets);
        }
    }
    if (e.other_run) {
        e.result.notes.push_back(fmt::format(
            "the dumps are of another run ({} was at {:#x}, its dump is at {:#x}): matched by name and offset",
            printable(*e.result.kernel), e.addresses.text, e.dump->text_address));
        if (e.registered->text_length != e.dump->text.size()) {
            e.result.notes.push_back(fmt::format("its code was {} long, in the dump it is {}",
                                                 pluralize(e.registered->text_length, "byte"),
                                                 pluralize(e.dump->text.size(), "byte")));
        }
    }
    if (!fitting.empty()) {
        const std::optional<refusal> refused = find_refusal(*e.dump, e.addresses, e.targets);
        const bool told = refused && refused->id == e.report.id &&
                          std::find(fitting.begin(), fitting.end(), refused->relocation) != fitting.end();
        use_relocation(e, told ? refused->relocation : fitting.front());
        if (fitting.size() > 1) {
            for (const std::size_t i : fitting)
                e.result.fits.push_back({e.dump->name, i, e.dump->relocs[i].offset});
            e.result.notes.push_back(
                fmt::format("relocations are applied in order: of those that fit it is number {}",
                            *e.result.relocation + 1));
        }
        return;
    }
    if (e.dump != nullptr) {
        e.result.notes.push_back(
            fmt::format("no relocation in the dump of {} fits the message: it is of other code",
                        printable(e.dump->name)));
    } else if (e.result.kernel && !e.dumps.set.kernels.empty()) {
        e.result.notes.push_back(fmt::format("there is no dump of {}", printable(*e.result.kernel)));
    }
    if (e.result.kernel && knows_place(e))
        e.result.offset = as_signed(place - e.addresses.text);
    if (e.registered != nullptr && e.report.range) {
        if (knows_place(e))
            find_target_by_address(e);
        else
            find_target_by_page(e);
    }
    if (!e.result.kernel && !e.listing_complete)
        e.result.notes.emplace_back("the log ends before the listing of the registry does");
}

// ---- Reports without one.

// All targets were dumped, some perhaps by an earlier run into the same directory: those in other mappings
// than the kernel itself.
void find_unregistered_target(explaining& e)
{
    std::vector<std::size_t> suspects;
    for (std::size_t i = 0; i < e.dump->relocs.size(); ++i) {
        const placed_kernel* const target = find_kernel(e.dumps.set, e.dump->relocs[i].name);
        if (target != nullptr && target->mapping != e.dump->mapping)
            suspects.push_back(i);
    }
    if (suspects.empty())
        return;
    use_relocation(e, suspects.front());
    for (const std::size_t i : suspects) {
        if (suspects.size() > 1)
            e.result.fits.push_back({e.dump->name, i, e.dump->relocs[i].offset});
    }
}

// The message that is not in the log, as the dumps have it.
void use_missing_message(explaining& e, const refusal& refused, const relocation_kind& kind)
{
    const tessjit::reloc_info& reloc = e.dump->relocs[refused.relocation];
    const std::uint64_t P = e.addresses.text + widened(reloc.offset);
    e.result.report = refused.id;
    if (refused.id == "field-filled") {
        const std::vector<std::uint8_t> text = link_kernel(e.dumps.set, *e.dump).text;
        e.report.filled = {&kind, P, word_at(text, static_cast<std::size_t>(reloc.offset))};
        return;
    }
    const std::uint64_t S =
        find_target(*e.dump, e.addresses, reloc.name, e.targets).value_or(0) + widened(reloc.addend);
    e.report.range = {&kind, S & kind.page_mask, P & kind.page_mask, relocation_value(kind, S, P)};
}

void find_kernel_of_assertion(explaining& e)
{
    const kernel_set& set = e.dumps.set;
    if (set.kernels.empty())
        return;
    const std::vector<std::size_t> last = last_of_each_mapping(set);
    const auto newer = [&e](std::size_t a, std::size_t b) { return is_newer(e.dumps, b, a); };
    const std::size_t newest = *std::max_element(last.begin(), last.end(), newer);
    if (e.report.id == "duplicate-name") {
        // A kernel is dumped behind its registration, so the refused one is not there.
        e.result.notes.push_back(fmt::format(
            "the last kernel that was dumped is {}: the refused one comes behind it, in its set or as the first of the next",
            printable(set.kernels[newest].name)));
        return;
    }

    const auto is_reported = [&e](const std::optional<refusal>& refused) {
        return refused &&
               (refused->id == e.report.id ||
                (e.report.id.empty() && (refused->id == "field-filled" || refused->id == "range")));
    };
    const auto refusal_in = [&](std::size_t i) {
        const placed_kernel& kernel = set.kernels[i];
        const kernel_addresses addresses{kernel.text_address, kernel.data_address};
        std::optional<refusal> refused = find_refusal(kernel, addresses, e.targets);
        if (!is_reported(refused) && e.report.id == "unknown-target")
            refused = find_refusal(kernel, addresses, e.targets, {where::nowhere, 0});
        if (!is_reported(refused) && e.report.id == "null-target")
            refused = find_refusal(kernel, addresses, e.targets, {where::placed, 0});
        return is_reported(refused) ? refused : std::nullopt;
    };
    std::vector<std::size_t> matching;
    std::copy_if(last.begin(), last.end(), std::back_inserter(matching),
                 [&](std::size_t i) { return refusal_in(i).has_value(); });
    if (matching.empty()) {
        use_dump(e, newest);
        e.result.notes.emplace_back("the last dump written");
        if (e.report.id == "unknown-target")
            find_unregistered_target(e);
        return;
    }
    const std::size_t chosen = *std::max_element(matching.begin(), matching.end(), newer);
    use_dump(e, chosen);
    const refusal refused = *refusal_in(chosen);
    use_relocation(e, refused.relocation);
    if (const relocation_kind* const kind = find_relocation_kind(*e.result.type)) {
        use_kind(e, *kind);
        if (e.report.id.empty())
            use_missing_message(e, refused, *kind);
    }
    e.result.notes.emplace_back(
        is_newer(e.dumps, newest, chosen)
            ? "the last kernel of its mapping, and its relocations end so; by the files' times another dump is newer"
            : "the last dump written, and its relocations end so");
    for (const std::size_t i : matching) {
        if (i == chosen || is_newer(e.dumps, chosen, i))
            continue;
        e.result.notes.push_back(
            fmt::format("{} would end so too: the files' times do not tell which was written last",
                        printable(set.kernels[i].name)));
    }
}

// ---- Causes.

std::string name_of_target(const explaining& e)
{
    return printable(*e.result.target);
}

std::string article(std::string_view instruction)
{
    return fmt::format("{} {}", instruction.substr(0, 1) == "A" ? "an" : "a", instruction);
}

// The word at the relocation's offset, as generated; nothing if there is no whole instruction.
std::optional<std::uint32_t> generated_word(const placed_kernel& kernel, const tessjit::reloc_info& reloc)
{
    if (reloc.offset % 4 != 0 || !lies_within(kernel.text, reloc.offset))
        return std::nullopt;
    return word_at(kernel.text, static_cast<std::size_t>(reloc.offset));
}

// Whether such an instruction can lead to the target: BL does not call constants.
bool can_lead_to(const relocation_kind& kind, const std::string& target)
{
    return kind.type != R_AARCH64_CALL26 || !names_data(target);
}

/// An instruction that a relocation can fill.
struct fillable_instruction {
    std::int32_t offset;
    const relocation_kind* kind;
};

// The nearest instruction that waits for a relocation and has none; one of the refused relocation's kind
// rather than another that can lead to the target.
std::optional<fillable_instruction> find_waiting_instruction(const placed_kernel& kernel,
                                                             const tessjit::reloc_info& refused)
{
    constexpr std::int64_t farthest = 16;
    std::optional<fillable_instruction> of_other_kind;
    for (std::int64_t distance = 1; distance <= farthest; ++distance) {
        for (const std::int64_t offset : {refused.offset - distance, refused.offset + distance}) {
            if (offset < 0 || offset % 4 != 0 || offset + 4 > static_cast<std::int64_t>(kernel.text.size()))
                continue;
            const relocation_kind* const kind =
                kind_of_unfilled(word_at(kernel.text, static_cast<std::size_t>(offset)));
            const bool has_relocation =
                std::any_of(kernel.relocs.begin(), kernel.relocs.end(),
                            [&](const auto& reloc) { return reloc.offset == offset; });
            if (kind == nullptr || has_relocation || !can_lead_to(*kind, refused.name))
                continue;
            const fillable_instruction found{static_cast<std::int32_t>(offset), kind};
            if (kind->type == refused.type)
                return found;
            if (!of_other_kind)
                of_other_kind = found;
        }
    }
    return of_other_kind;
}

// The relocation in braces for this instruction, and what else the generator must do to it.
std::string relocation_for(const placed_kernel& kernel, const std::string& name,
                           const fillable_instruction& instruction, std::int32_t addend)
{
    std::string text = relocation_text(name, instruction.offset, instruction.kind->type, addend);
    const std::uint32_t word = word_at(kernel.text, static_cast<std::size_t>(instruction.offset));
    const std::uint32_t field = instruction.kind->field_mask;
    if ((word & field) != 0)
        text += fmt::format(", and the {} with its field zero: {:#010x}", instruction.kind->instruction,
                            word & ~field);
    return text;
}

// The instruction at the relocation's own offset, if its kind, told by `kind_of`, can be meant; not if it has
// a relocation of its kind already.
std::optional<fillable_instruction> find_own_instruction(const placed_kernel& kernel,
                                                         const tessjit::reloc_info& reloc,
                                                         const relocation_kind* (*kind_of)(std::uint32_t))
{
    const std::optional<std::uint32_t> word = generated_word(kernel, reloc);
    const relocation_kind* const kind = word ? kind_of(*word) : nullptr;
    if (kind == nullptr || !can_lead_to(*kind, reloc.name))
        return std::nullopt;
    const bool taken = std::any_of(kernel.relocs.begin(), kernel.relocs.end(), [&](const auto& other) {
        return &other != &reloc && other.offset == reloc.offset && other.type == kind->type;
    });
    return taken ? std::nullopt : std::optional(fillable_instruction{reloc.offset, kind});
}

// A relocation that has this one's instruction, and this one has its: both are right but for their offsets.
const tessjit::reloc_info* find_exchanged(const placed_kernel& kernel, const tessjit::reloc_info& reloc)
{
    const auto kind_at = [&kernel](const tessjit::reloc_info& r) {
        const std::optional<std::uint32_t> word = generated_word(kernel, r);
        const relocation_kind* const kind = word ? kind_of_meant(*word) : nullptr;
        return kind == nullptr ? 0 : kind->type;
    };
    const std::int32_t type = kind_at(reloc);
    if (type == reloc.type)
        return nullptr;
    const auto found = std::find_if(kernel.relocs.begin(), kernel.relocs.end(), [&](const auto& other) {
        return other.type == type && kind_at(other) == reloc.type;
    });
    return found == kernel.relocs.end() ? nullptr : &*found;
}

// The instruction that the refused relocation is for, where it is not of the relocation's kind: the one at
// its offset if that waits, otherwise one nearby that does, otherwise the one at its offset with what the
// generator has encoded in its field.
std::optional<fillable_instruction> find_meant_instruction(const placed_kernel& kernel,
                                                           const tessjit::reloc_info& reloc)
{
    if (const auto own = find_own_instruction(kernel, reloc, kind_of_unfilled))
        return own;
    if (const auto waiting = find_waiting_instruction(kernel, reloc))
        return waiting;
    return find_own_instruction(kernel, reloc, kind_of_meant);
}

// The relocation in braces under another name, with the type and the offset that the instructions tell.
std::string advised_relocation(explaining& e, const std::string& name, const tessjit::reloc_info& reloc)
{
    tessjit::reloc_info named = reloc;
    named.name = name;
    const relocation_kind* const kind = find_relocation_kind(reloc.type);
    const std::optional<std::uint32_t> word = generated_word(*e.dump, reloc);
    const bool fits = kind != nullptr && word && is_instruction_of(*kind, *word);
    const auto meant = fits ? std::nullopt : find_meant_instruction(*e.dump, named);
    if (!meant)
        return relocation_text(name, reloc.offset, reloc.type, reloc.addend);
    e.result.cause += fmt::format("; {:+#x} has {}", meant->offset, article(meant->kind->instruction));
    return relocation_for(*e.dump, name, *meant, reloc.addend);
}

void advise_waiting_instruction(explaining& e, const tessjit::reloc_info& reloc,
                                const fillable_instruction& found)
{
    e.result.cause +=
        fmt::format("; {:+#x} has {} and no relocation", found.offset, article(found.kind->instruction));
    e.result.advice = relocation_for(*e.dump, reloc.name, found, reloc.addend);
}

// A relocation whose offset or type is wrong, by the instructions of its dump. False if they do not tell.
bool explain_by_instructions(explaining& e, const tessjit::reloc_info& reloc)
{
    const placed_kernel& kernel = *e.dump;
    const relocation_kind* const kind = find_relocation_kind(reloc.type);
    const std::string kind_text =
        kind == nullptr ? fmt::format("has type {}", reloc.type) : "is for " + article(kind->instruction);
    if (const tessjit::reloc_info* const other = find_exchanged(kernel, reloc)) {
        const auto number_of = [&kernel](const tessjit::reloc_info& r) {
            return &r - kernel.relocs.data() + 1;
        };
        const tessjit::reloc_info& first = std::min(reloc, *other, [](const auto& a, const auto& b) {
            return a.offset > b.offset; // what has the later offset belongs to the earlier instruction
        });
        const tessjit::reloc_info& second = &first == &reloc ? *other : reloc;
        e.result.cause = fmt::format("the offsets of the relocations {} and {} are exchanged",
                                     std::min(number_of(first), number_of(second)),
                                     std::max(number_of(first), number_of(second)));
        e.result.advice = relocation_text(first.name, second.offset, first.type, first.addend) + ", " +
                          relocation_text(second.name, first.offset, second.type, second.addend);
        return true;
    }
    const std::optional<std::uint32_t> word = generated_word(kernel, reloc);
    const auto meant = find_meant_instruction(kernel, reloc);
    if (meant && meant->offset == reloc.offset) {
        e.result.cause = fmt::format("the relocation {}, the instruction is {}", kind_text,
                                     article(meant->kind->instruction));
        e.result.advice = relocation_for(kernel, reloc.name, *meant, reloc.addend);
        return true;
    }
    if (!word)
        return false;
    disassembler disassembler;
    e.result.cause = fmt::format("the offset points at {}",
                                 disassembler.text(*word, e.addresses.text + widened(reloc.offset)));
    if (meant) {
        advise_waiting_instruction(e, reloc, *meant);
        return true;
    }
    const relocation_kind* const at_place = kind_of_meant(*word);
    if (at_place != nullptr && !can_lead_to(*at_place, reloc.name)) {
        e.result.cause = fmt::format("the instruction is a BL, and {} are constants", printable(reloc.name));
        e.result.advice =
            fmt::format("name the kernel that it calls, with type {}; or give the relocation the "
                        "offset of the instruction that it is for",
                        at_place->type);
        return true;
    }
    if (kind == nullptr)
        return false;
    e.result.advice =
        fmt::format("give the relocation the offset of the {} that it is for", kind->instruction);
    return true;
}

// The same without the dump: the word is the message's.
void explain_other_instruction(explaining& e, const relocation_kind& kind, std::uint32_t word)
{
    disassembler disassembler;
    e.result.cause = fmt::format("the offset points at {}", disassembler.text(word, place_of_message(e)));
    e.result.advice =
        fmt::format("give the relocation the offset of the {} that it is for", kind.instruction);
}

// An earlier relocation of the kernel that writes to some of the same bytes.
std::optional<std::size_t> find_earlier_of_same_word(const explaining& e)
{
    const std::vector<tessjit::reloc_info>& relocs = e.dump->relocs;
    const std::int64_t offset = relocs[*e.result.relocation].offset;
    for (std::size_t i = 0; i < *e.result.relocation; ++i) {
        if (relocs[i].offset - offset < 4 && offset - relocs[i].offset < 4)
            return i;
    }
    return std::nullopt;
}

void explain_filled(explaining& e)
{
    const filled_message& message = *e.report.filled;
    const relocation_kind& kind = *message.kind;
    const tessjit::reloc_info* const reloc = relocation_of(e);
    e.result.message = fmt::format("{}: the field of {:#010x} is not zero", kind.name, message.word);

    if (e.result.offset && *e.result.offset % 4 != 0) {
        e.result.cause = fmt::format("the offset {} is not that of an instruction", *e.result.offset);
        e.result.advice =
            fmt::format("give the relocation the offset of the {} that it is for", kind.instruction);
        return;
    }
    // As it was generated, if that is known: an earlier relocation may have changed it.
    const auto offset = static_cast<std::size_t>(e.result.offset.value_or(0));
    const bool generated = reloc != nullptr && e.dump->text.size() >= 4 && offset <= e.dump->text.size() - 4;
    const std::uint32_t word = generated ? word_at(e.dump->text, offset) : message.word;
    if (!is_instruction_of(kind, word)) {
        if (!generated || !explain_by_instructions(e, *reloc))
            explain_other_instruction(e, kind, word);
        return;
    }

    if (reloc != nullptr) {
        if (const auto earlier = find_earlier_of_same_word(e)) {
            e.result.cause =
                fmt::format("two relocations for one instruction: relocation {} has filled it", *earlier + 1);
            e.result.advice = fmt::format("leave one of the relocations {} and {} out", *earlier + 1,
                                          *e.result.relocation + 1);
            if (const auto waiting = find_waiting_instruction(*e.dump, *reloc))
                advise_waiting_instruction(e, *reloc, *waiting);
            return;
        }
    }
    if (generated && (word & kind.tested_mask) != 0) {
        const std::uint32_t field = kind.field_mask;
        e.result.cause =
            fmt::format("the generator has encoded a provisional value, bits {:#x}", word & field);
        e.result.advice =
            fmt::format("generate the {} with its field zero: {:#010x}", kind.instruction, word & ~field);
        return;
    }
    if (kind.relative) {
        // Without the dump: a field that leads to a kernel's first byte, or to constants, has been linked.
        const std::uint64_t target = encoded_target(kind, word, message.place);
        for (const registered_kernel* kernel = e.listing.first; kernel != e.listing.second; ++kernel) {
            if (target == kernel->text_address || is_in(target, kernel->data_address, kernel->data_length)) {
                e.result.cause = fmt::format("two relocations for one instruction: it leads to {} already",
                                             printable(kernel->name));
                e.result.advice = "leave one of its relocations out";
                return;
            }
        }
    }
    e.result.cause =
        "two relocations for one instruction, or a provisional value that the generator has encoded";
    e.result.advice =
        fmt::format("one relocation for the instruction, and its field zero; to see which, {}", how_to_dump);
}

bool in_same_mapping(const explaining& e, const std::string& target)
{
    if (names_data(target) || (e.result.kernel && target == *e.result.kernel))
        return true;
    if (e.dump != nullptr && !e.other_run) {
        const placed_kernel* const callee = find_kernel(e.dumps.set, target);
        if (callee != nullptr)
            return callee->mapping == e.dump->mapping;
    }
    const std::optional<std::uint64_t> address = e.targets.find(target);
    if (!address || e.registered == nullptr)
        return false;
    return find_linked_kernel(e.listing, *address) == e.registered; // the last of the target's mapping
}

// A value out of range because the instruction is not of the relocation's kind: explains it. Not if another
// type would not reach the target either.
bool is_of_other_instruction(explaining& e)
{
    const tessjit::reloc_info* const reloc = relocation_of(e);
    const std::optional<std::uint32_t> word =
        reloc == nullptr ? std::nullopt : generated_word(*e.dump, *reloc);
    if (!word || is_instruction_of(*e.report.range->kind, *word))
        return false;
    if (const auto own = find_own_instruction(*e.dump, *reloc, kind_of_meant); own && own->kind->relative) {
        const std::optional<std::uint64_t> target = find_target(*e.dump, e.addresses, reloc->name, e.targets);
        const std::uint64_t P = e.addresses.text + widened(reloc->offset);
        if (target &&
            !in_range(*own->kind, relocation_value(*own->kind, *target + widened(reloc->addend), P)))
            return false;
    }
    return explain_by_instructions(e, *reloc);
}

void explain_misaligned_call(explaining& e)
{
    e.result.message = fmt::format("R_AARCH64_CALL26{}: the distance {} is not a multiple of 4",
                                   e.result.target ? " to " + name_of_target(e) : "", *e.result.distance);
    if (e.result.offset && *e.result.offset % 4 != 0) {
        e.result.cause = fmt::format("the offset {} is not that of an instruction", *e.result.offset);
        e.result.advice = "give the relocation the offset of the BL that it is for";
    } else if (is_of_other_instruction(e)) {
        return;
    } else if (e.result.target && names_data(*e.result.target)) {
        e.result.cause = "a BL to constants, which need not lie at a multiple of 4";
        e.result.advice = "name a kernel as the target of a BL; constants are addressed by ADRP and ADD";
    } else if (e.result.target_offset && *e.result.target_offset != 0) {
        e.result.cause = fmt::format("the addend {} leads between two instructions of {}",
                                     *e.result.target_offset, name_of_target(e));
        e.result.advice = "call the kernel's first instruction: addend 0";
    } else {
        e.result.cause = "the addend or the offset is not a multiple of 4";
        e.result.advice = "offset of the BL, addend 0";
    }
}

void explain_range(explaining& e)
{
    const range_message& message = *e.report.range;
    const relocation_kind& kind = *message.kind;
    const std::uint64_t half = static_cast<std::uint64_t>(kind.range.greatest) + 1;
    if (message.value + half < 2 * half)
        return explain_misaligned_call(e);

    const std::int64_t distance = *e.result.distance;
    const std::uint64_t times = (magnitude_of(distance) + half / 2) / half;
    e.result.message = fmt::format(
        "{} to {}: {}, limit {}{}", kind.name,
        e.result.target ? name_of_target(e) : fmt::format("{:#x}", message.target), distance_text(distance),
        half >> 30 != 0 ? fmt::format("{} GiB", half >> 30) : fmt::format("{} MiB", half >> 20),
        times > 1 ? fmt::format(" ({} times)", times) : "");
    if (is_of_other_instruction(e))
        return;
    const bool far_addend = e.result.target_offset && magnitude_of(*e.result.target_offset) >= half / 2;
    if (far_addend) {
        e.result.cause =
            fmt::format("the addend {} leads far away from {}", *e.result.target_offset, name_of_target(e));
        e.result.advice = "an addend within the target";
        return;
    }
    const bool data = e.result.target && names_data(*e.result.target);
    const bool other_mapping = e.result.target && !in_same_mapping(e, *e.result.target);
    if (kind.type == R_AARCH64_ADR_PREL_LO21) {
        e.result.cause =
            data ? "the constants lie behind the code of the whole set, which is larger than ADR reaches"
            : other_mapping ? fmt::format("{} is in the mapping of another call", name_of_target(e))
                            : "the target is farther away than ADR reaches";
        e.result.advice = "use ADRP (275) and ADD (277) for the address; ADR is for the kernel's own code";
    } else if (kind.type == R_AARCH64_CALL26) {
        e.result.cause = other_mapping
                             ? fmt::format("{} is in the mapping of another call", name_of_target(e))
                         : data ? "a BL to constants"
                                : "the target is farther away than BL reaches";
        e.result.advice = "finalise both in one set, or load the address with ADRP and ADD and use BLR";
    } else {
        e.result.cause =
            other_mapping
                ? fmt::format("{} is in the mapping of another call, in another part of the address space",
                              name_of_target(e))
                : "the target is in another part of the address space";
        e.result.advice = "finalise both in one set, or sets that refer to each other close in time";
    }
}

// Whether one name is the other with a slip of the pen: a letter or two, and not just another number.
bool is_misspelt(std::string_view a, std::string_view b)
{
    std::size_t front = 0;
    while (front < std::min(a.size(), b.size()) && a[front] == b[front])
        ++front;
    std::size_t back = 0;
    while (back < std::min(a.size(), b.size()) - front && a[a.size() - 1 - back] == b[b.size() - 1 - back])
        ++back;
    const std::string_view different[] = {a.substr(front, a.size() - front - back),
                                          b.substr(front, b.size() - front - back)};
    const auto is_number = [](std::string_view text) {
        return text.find_first_not_of("0123456789") == std::string_view::npos;
    };
    return front + back > 0 && different[0].size() <= 2 && different[1].size() <= 2 &&
           !(is_number(different[0]) && is_number(different[1]));
}

void explain_unknown_target(explaining& e)
{
    const tessjit::reloc_info* const reloc = relocation_of(e);
    if (reloc == nullptr) {
        e.result.message = "a relocation names a kernel that is not in the registry";
        e.result.cause =
            "the kernel comes later in the set, its name is misspelt, or it is in another registry";
        e.result.advice = how_to_dump;
        return;
    }
    const std::string name = printable(reloc->name);
    e.result.message = fmt::format("the target {} is not in the registry", name);
    if (reloc->name.find("rodata") != std::string::npos) {
        e.result.cause = "constants are named .rodata. and the kernel's name";
        e.result.advice = advised_relocation(e, std::string(data_prefix) + e.dump->name, *reloc);
        return;
    }
    if (find_kernel(e.dumps.set, reloc->name) != nullptr) {
        e.result.cause = fmt::format(
            "{} was dumped, but by another run, and comes later in the set now, or it is in another registry",
            name);
        e.result.advice =
            fmt::format("finalise {} before {}, with the same registry", name, printable(e.dump->name));
        return;
    }
    const std::string nearest = nearest_name(e.dumps.set, reloc->name);
    if (is_misspelt(nearest, reloc->name)) {
        e.result.cause = fmt::format(
            "the name is misspelt ({} is there), or the kernel comes later in the set", printable(nearest));
        e.result.advice = advised_relocation(e, nearest, *reloc) + ", or move " + name + " before " +
                          printable(e.dump->name);
        return;
    }
    e.result.cause =
        fmt::format("{} comes later in the set, or was never finalised with this registry", name);
    e.result.advice = fmt::format("finalise {} before {}", name, printable(e.dump->name));
}

void explain_foreign_data(explaining& e)
{
    const tessjit::reloc_info* const reloc = relocation_of(e);
    e.result.message = "a relocation names the constants of another kernel";
    e.result.cause = "a kernel reaches its own constants only";
    e.result.advice = how_to_dump;
    if (reloc == nullptr)
        return;
    const std::string owner = reloc->name.substr(data_prefix.size());
    e.result.message =
        fmt::format("{} are not constants of {}", printable(reloc->name), printable(e.dump->name));
    const std::string own_name = std::string(data_prefix) + e.dump->name;
    if (find_kernel(e.dumps.set, owner) != nullptr) {
        e.result.cause =
            fmt::format("they are those of {}, and a kernel reaches its own only", printable(owner));
        const std::string own = advised_relocation(e, own_name, *reloc);
        e.result.advice = fmt::format("give {} a copy of them, or let {} load them; if its own are meant: {}",
                                      printable(e.dump->name), printable(owner), own);
        return;
    }
    e.result.cause = is_misspelt(owner, e.dump->name)
                         ? "the name is misspelt"
                         : fmt::format("there is no kernel {}: perhaps {} was named so before",
                                       printable(owner), printable(e.dump->name));
    e.result.advice = advised_relocation(e, own_name, *reloc);
}

void explain_null_target(explaining& e)
{
    e.result.message = "a relocation's target is at address null";
    e.result.cause =
        "the target's set had neither code nor constants, or its mapping was refused, or the host registered null";
    e.result.advice = "leave empty kernels without relocations, and no null in the registry";
    if (e.result.target)
        e.result.message = fmt::format("the target {} is at address null", name_of_target(e));
}

void explain_unhandled_type(explaining& e)
{
    e.result.message = "a relocation has a type that is not supported";
    e.result.cause = "the generator emits a type other than 274, 275, 277 and 283";
    e.result.advice = how_to_dump;
    if (!e.result.relocation)
        return;
    const std::int32_t type = *e.result.type;
    const known_type* const known = find_other_type(type);
    e.result.message = fmt::format("relocation type {}{} is not supported", type,
                                   known == nullptr ? "" : fmt::format(" ({})", known->name));
    const tessjit::reloc_info& reloc = *relocation_of(e);
    const std::optional<std::uint32_t> word = generated_word(*e.dump, reloc);
    const bool of_that_type = known != nullptr && word && (*word & known->opcode_mask) == known->opcode;
    const std::string cause = e.result.cause;
    if (!of_that_type && explain_by_instructions(e, reloc))
        return;
    e.result.cause = cause;
    e.result.advice =
        known == nullptr ? "274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL" : known->instead;
}

void explain_duplicate(explaining& e)
{
    e.result.message = "a second kernel of one name";
    e.result.cause =
        "the generator gives two kernels one name, or a set is finalised twice with one registry";
    e.result.advice = "a name for each kernel, over all calls with one registry";
}

void explain_cause(explaining& e)
{
    if (e.report.filled)
        explain_filled(e);
    else if (e.report.range)
        explain_range(e);
    else if (e.report.id == "unknown-target")
        explain_unknown_target(e);
    else if (e.report.id == "foreign-data")
        explain_foreign_data(e);
    else if (e.report.id == "null-target")
        explain_null_target(e);
    else if (e.report.id == "unhandled-type")
        explain_unhandled_type(e);
    else if (e.report.id == "duplicate-name")
        explain_duplicate(e);
    else {
        e.result.message = "a relocation was refused";
        e.result.cause = "not known: the message in front of the registry's listing is not in the log";
        e.result.advice = "give the whole of the log";
    }
}

} // namespace

abort_explanation explain_report(const abort_log& log, const abort_report& report,
                                 const dumps_of_process& dumps)
{
    const listing_range listing = listing_of(log, report);
    explaining e{report, listing, report.listing && log.listings[*report.listing].complete, dumps,
                 known_targets(listing, dumps.set)};
    e.result.report = report.id;
    e.result.line = report.line;
    if (report.filled || report.range)
        find_kernel_of_message(e);
    else
        find_kernel_of_assertion(e);
    explain_cause(e);
    return std::move(e.result);
}

} // namespace vorna::workbench
