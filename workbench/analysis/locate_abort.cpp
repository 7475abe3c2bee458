// A message (field filled, out of range) has addresses. The finaliser registers the kernels of a set in the
// order of their addresses, each before it applies its relocations. So the refused kernel is the last one of
// its mapping in the registry dump. Of its relocations those match whose type, place and target give the
// message's values. If several match, the first one is taken, or the one that the checks (check_placed) find
// refused first, since relocations are applied in order.
//
// A report without a message (an assertion, or a log that lacks the message) has no address. A kernel is
// dumped before it is linked, so the refused one is the last dump of its mapping. Candidates are the last
// kernels of all mappings and the newest dump; those match whose first refused relocation, according to the
// checks, is the reported kind. If several match, the newest file wins.
//
// Dumps of another run have other addresses: their kernels are matched by name, and by size if the log has
// lost a part of the name, and their relocations are compared as if the kernel were where the registry dump
// has it.

#include "workbench/analysis/locate_abort.hpp"

#include "check/engine.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <elf.h>
#include <fmt/format.h>
#include <iterator>
#include <string_view>
#include <unordered_map>

namespace vorna::workbench {

using wfta::find_relocation_kind;
using wfta::finding_id;
using wfta::kernel_place;
using wfta::relocation_kind;
using wfta::relocation_target;
using wfta::target_value;
using where = wfta::relocation_target::where;

namespace {

constexpr std::uint64_t page_size = 4096; // of ADRP, whatever the machine's pages

bool is_in(std::uint64_t address, std::uint64_t begin, std::uint64_t length)
{
    return address - begin < length;
}

// Whether a byte of the block, or its beginning, lies in the page.
bool meets_page(std::uint64_t page, std::uint64_t begin, std::uint64_t length)
{
    return begin - page < page_size || is_in(page, begin, length);
}

/// The kernels of the registry dump that follows a report's message.
class registry {
public:
    registry(const abort_log& log, const abort_report& report)
    {
        if (!report.registry)
            return;
        const registry_dump& dump = log.registries[*report.registry];
        complete_ = dump.complete;
        for (std::size_t i = report.registry_begin; i < dump.kernels.size(); ++i) {
            kernels_.push_back(&dump.kernels[i]);
            by_name_.emplace(dump.kernels[i].name, kernels_.back());
        }
        std::stable_sort(kernels_.begin(), kernels_.end(),
                         [](const auto* a, const auto* b) { return lies_before(a->extent, b->extent); });
        std::vector<kernel_extent> extents;
        extents.reserve(kernels_.size());
        for (const registered_kernel* kernel : kernels_)
            extents.push_back(kernel->extent);
        mapping_of_ = find_mappings(extents).mapping_of;
    }

    [[nodiscard]] bool complete() const { return complete_; }
    [[nodiscard]] const std::vector<const registered_kernel*>& kernels() const { return kernels_; }

    [[nodiscard]] const registered_kernel* find(std::string_view name) const
    {
        const auto found = by_name_.find(name);
        return found == by_name_.end() ? nullptr : found->second;
    }

    /// The last kernel in the mapping of the address, or null.
    [[nodiscard]] const registered_kernel* last_of_mapping(std::uint64_t address) const
    {
        const auto next =
            std::upper_bound(kernels_.begin(), kernels_.end(), address,
                             [](std::uint64_t a, const auto* k) { return a < k->extent.text_address; });
        if (next == kernels_.begin())
            return nullptr;
        const std::size_t mapping = mapping_of_[static_cast<std::size_t>(next - kernels_.begin()) - 1];
        const auto end = std::upper_bound(mapping_of_.begin(), mapping_of_.end(), mapping);
        return kernels_[static_cast<std::size_t>(end - mapping_of_.begin()) - 1];
    }

private:
    std::vector<const registered_kernel*> kernels_; // in the order of lies_before
    std::vector<std::size_t> mapping_of_;
    std::unordered_map<std::string_view, const registered_kernel*> by_name_;
    bool complete_ = false;
};

// A line of the registry dump may lack the beginning of a name that contains newlines or blanks, or have
// other text before it.
bool may_be_name(std::string_view registered, std::string_view name)
{
    return name.ends_with(registered) || registered.ends_with(name);
}

// The kernel's dump: the one at its address, otherwise (from another run) the one with its name.
std::optional<std::size_t> find_dump(const kernel_set& set, const registered_kernel& kernel)
{
    const kernel_extent& extent = kernel.extent;
    const auto index_of = [&](const placed_kernel& placed) {
        return static_cast<std::size_t>(&placed - set.kernels.data());
    };
    const auto begin = std::lower_bound(
        set.kernels.begin(), set.kernels.end(), extent.text_address,
        [](const placed_kernel& placed, std::uint64_t address) { return placed.text_address < address; });
    std::optional<std::size_t> at_address;
    for (auto placed = begin; placed != set.kernels.end() && placed->text_address == extent.text_address;
         ++placed) {
        if (placed->data_address != extent.data_address || !may_be_name(kernel.name, placed->name))
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
        if (placed.text.size() == extent.text_size && placed.data.size() == extent.data_size &&
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

struct refusal {
    finding_id id;
    std::size_t relocation;
};

class locator {
public:
    locator(const abort_log& log, const abort_report& report, const dumps_of_process& dumps)
        : report_(report), registry_(log, report), dumps_(dumps)
    {
        at_.report = report.id;
        at_.line = report.line;
        at_.filled = report.filled;
        at_.out_of_range = report.range;
    }

    abort_location run()
    {
        if (report_.filled || report_.range)
            locate_message();
        else if (!set().kernels.empty())
            locate_assertion();
        if (at_.target)
            at_.target_in_other_mapping = !in_same_mapping(*at_.target);
        if (at_.filled && at_.filled->kind->relative)
            find_already_linked();
        return std::move(at_);
    }

private:
    [[nodiscard]] const kernel_set& set() const { return dumps_.set; }

    // ---- Targets and refused relocations of a dumped kernel

    // A kernel's code, from the registry dump, otherwise from the dumps, which may be incomplete.
    [[nodiscard]] relocation_target find_target(const placed_kernel& kernel, const std::string& name) const
    {
        if (const registered_kernel* const registered = registry_.find(name))
            return {where::placed, registered->extent.text_address};
        const placed_kernel* const dumped = find_kernel(set(), name);
        if (dumped == nullptr)
            return {where::unknown, 0};
        const bool later =
            registry_.kernels().empty() && dumped > &kernel && dumped->mapping == kernel.mapping;
        return {later ? where::later : where::placed, dumped->text_address};
    }

    [[nodiscard]] relocation_target target_of(const placed_kernel& kernel, const kernel_extent& extent,
                                              const tessjit::reloc_info& reloc) const
    {
        const auto find = [&](const std::string& name) { return find_target(kernel, name); };
        return wfta::resolve_target(kernel_place{kernel.name, extent.text_address, extent.data_address},
                                    reloc.name, find);
    }

    // The first relocation that the finaliser refuses; `unknown` is assumed for unknown targets.
    [[nodiscard]] std::optional<refusal> find_refusal(const placed_kernel& kernel,
                                                      const kernel_extent& extent,
                                                      relocation_target unknown = {where::unknown, 0}) const
    {
        const auto find = [&](std::size_t, const std::string& name) {
            const relocation_target target = find_target(kernel, name);
            return target.state == where::unknown ? unknown : target;
        };
        const std::vector<wfta::kernel_finding> findings =
            wfta::check_placed({{&kernel.name,
                                 &kernel.text,
                                 &kernel.data,
                                 &kernel.relocs,
                                 extent.text_address,
                                 extent.data_address,
                                 {}}},
                               find, {}, wfta::address_kind::real);
        for (const wfta::kernel_finding& finding : findings) {
            if (finding.aborts && finding.relocation)
                return refusal{finding.id, *finding.relocation};
        }
        return std::nullopt;
    }

    // The kernel's relocations that the message may be about.
    [[nodiscard]] std::vector<std::size_t> find_matches(const placed_kernel& kernel,
                                                        const kernel_extent& extent) const
    {
        std::vector<std::size_t> matches;
        for (std::size_t i = 0; i < kernel.relocs.size(); ++i) {
            const tessjit::reloc_info& reloc = kernel.relocs[i];
            const std::uint64_t P = target_value(extent.text_address, reloc.offset);
            if (report_.filled) {
                if (reloc.type == report_.filled->kind->type && P == report_.filled->place)
                    matches.push_back(i);
                continue;
            }
            const relocation_kind& kind = *report_.range->kind;
            if (reloc.type != kind.type || (P & kind.page_mask) != report_.range->place)
                continue;
            const relocation_target target = target_of(kernel, extent, reloc);
            const std::uint64_t S = target_value(target.address, reloc.addend);
            if (target.state == where::placed && (S & kind.page_mask) == report_.range->target)
                matches.push_back(i);
        }
        return matches;
    }

    // ---- Results

    void use_dump(std::size_t index)
    {
        dump_ = &set().kernels[index];
        at_.dump = index;
        at_.kernel = dump_->name;
        other_run_ = registered_ != nullptr && (dump_->text_address != registered_->extent.text_address ||
                                                dump_->data_address != registered_->extent.data_address);
        extent_ = registered_ != nullptr ? registered_->extent : extent_of(*dump_);
    }

    void use_relocation(std::size_t index)
    {
        const tessjit::reloc_info& reloc = dump_->relocs[index];
        at_.relocation = index;
        at_.offset = reloc.offset;
        at_.type = reloc.type;
        at_.target = reloc.name;
        at_.addend = reloc.addend;
        const relocation_target target = target_of(*dump_, extent_, reloc);
        at_.target_comes_later = target.state == where::later;
        const relocation_kind* const kind = find_relocation_kind(reloc.type);
        if (kind != nullptr && kind->relative && target.state == where::placed && !at_.distance) {
            at_.distance = static_cast<std::int64_t>(
                wfta::relocation_value(*kind, target_value(target.address, reloc.addend),
                                       target_value(extent_.text_address, reloc.offset)));
        }
    }

    void use_kind(const relocation_kind& kind)
    {
        at_.type = kind.type;
        if (kind.relative)
            at_.range = kind.range;
    }

    void note(std::string text) { at_.notes.push_back(std::move(text)); }

    // ---- Messages

    [[nodiscard]] const relocation_kind& kind() const
    {
        return report_.filled ? *report_.filled->kind : *report_.range->kind;
    }

    [[nodiscard]] std::uint64_t place() const
    {
        return report_.filled ? report_.filled->place : report_.range->place;
    }

    // The range message of an ADRP has the page only.
    [[nodiscard]] bool has_exact_place() const
    {
        return report_.filled || kind().page_mask == ~std::uint64_t{0};
    }

    void locate_message()
    {
        use_kind(kind());
        if (report_.range)
            at_.distance = static_cast<std::int64_t>(report_.range->value);
        registered_ = registry_.last_of_mapping(has_exact_place() ? place() : place() | (page_size - 1));
        if (registered_ != nullptr) {
            at_.kernel = registered_->name;
            extent_ = registered_->extent;
            if (const auto dump = find_dump(set(), *registered_))
                use_dump(*dump);
        }
        std::vector<std::size_t> matches;
        if (dump_ != nullptr)
            matches = find_matches(*dump_, extent_);
        if (matches.empty() && (dump_ == nullptr || !other_run_)) {
            // No registry dump, or the relocation's offset is outside the mapping.
            if (const auto dump = find_dump_by_relocation()) {
                registered_ = nullptr;
                use_dump(*dump);
                matches = find_matches(*dump_, extent_);
            }
        }
        if (other_run_)
            note_other_run();
        if (!matches.empty())
            choose_match(matches);
        else
            locate_without_relocation();
    }

    // The last dump of a mapping with a relocation that matches the message.
    [[nodiscard]] std::optional<std::size_t> find_dump_by_relocation() const
    {
        for (const std::size_t i : last_of_each_mapping(set())) {
            if (!find_matches(set().kernels[i], extent_of(set().kernels[i])).empty())
                return i;
        }
        return std::nullopt;
    }

    void note_other_run()
    {
        note(fmt::format(
            "the dumps are of another run ({} was at {:#x}, its dump is at {:#x}): matched by name and offset",
            printable(*at_.kernel), extent_.text_address, dump_->text_address));
        if (extent_.text_size != dump_->text.size())
            note(fmt::format("its code was {} long, in the dump it is {}",
                             pluralize(extent_.text_size, "byte"), pluralize(dump_->text.size(), "byte")));
    }

    void choose_match(const std::vector<std::size_t>& matches)
    {
        const std::optional<refusal> refused = find_refusal(*dump_, extent_);
        const bool confirmed =
            refused && name_of(refused->id) == report_.id &&
            std::find(matches.begin(), matches.end(), refused->relocation) != matches.end();
        use_relocation(confirmed ? refused->relocation : matches.front());
        if (matches.size() == 1)
            return;
        for (const std::size_t i : matches)
            at_.matches.push_back({dump_->name, i, dump_->relocs[i].offset});
        note(fmt::format("relocations are applied in order: of those that match, number {} was refused",
                         *at_.relocation + 1));
    }

    void locate_without_relocation()
    {
        if (dump_ != nullptr) {
            note(fmt::format("no relocation in the dump of {} matches the message: it is of other code",
                             printable(dump_->name)));
        } else if (at_.kernel && !set().kernels.empty()) {
            note(fmt::format("there is no dump of {}", printable(*at_.kernel)));
        }
        if (at_.kernel && has_exact_place())
            at_.offset = static_cast<std::int64_t>(place() - extent_.text_address);
        if (registered_ != nullptr && report_.range) {
            if (has_exact_place())
                find_target_by_address();
            else
                find_target_by_page();
        }
        if (!at_.kernel && !registry_.complete())
            note("the log ends before the dump of the registry does");
    }

    [[nodiscard]] std::string own_data() const { return std::string(data_prefix) + *at_.kernel; }

    // The target that contains the S of a range message: the kernel's own constants, or any kernel's code.
    void find_target_by_address()
    {
        const std::uint64_t S = report_.range->target;
        const auto use = [this](const std::string& name, std::uint64_t offset) {
            at_.target = name;
            at_.addend = static_cast<std::int64_t>(offset);
        };
        if (is_in(S, extent_.data_address, extent_.data_size))
            return use(own_data(), S - extent_.data_address);
        const registered_kernel* empty = nullptr;
        for (const registered_kernel* kernel : registry_.kernels()) {
            if (is_in(S, kernel->extent.text_address, kernel->extent.text_size))
                return use(kernel->name, S - kernel->extent.text_address);
            if (S == kernel->extent.text_address)
                empty = kernel;
        }
        if (empty != nullptr)
            return use(empty->name, 0);
        if (S == extent_.data_address + extent_.data_size)
            use(own_data(), extent_.data_size);
    }

    // The same for ADRP: only the target's page is known.
    void find_target_by_page()
    {
        const std::uint64_t page = report_.range->target;
        std::vector<std::string> names;
        if (meets_page(page, extent_.data_address, extent_.data_size))
            names.push_back(own_data());
        for (const registered_kernel* kernel : registry_.kernels()) {
            if (meets_page(page, kernel->extent.text_address, kernel->extent.text_size))
                names.push_back(kernel->name);
        }
        if (names.size() == 1)
            at_.target = names.front();
        if (names.size() > 1)
            note(fmt::format("on the target's page {:#x} are {}", page, join_some(names)));
    }

    // ---- Assertions

    [[nodiscard]] bool is_newer(std::size_t a, std::size_t b) const
    {
        return !dumps_.written.empty() && dumps_.written[a] > dumps_.written[b];
    }

    [[nodiscard]] bool is_reported(const std::optional<refusal>& refused) const
    {
        if (!refused)
            return false;
        if (report_.id.empty())
            return refused->id == finding_id::field_filled || refused->id == finding_id::range;
        return name_of(refused->id) == report_.id ||
               (refused->id == finding_id::callee_order && report_.id == "unknown-target");
    }

    // The refusal in a dump that the report may be about.
    [[nodiscard]] std::optional<refusal> reported_refusal(std::size_t index) const
    {
        const placed_kernel& kernel = set().kernels[index];
        std::optional<refusal> refused = find_refusal(kernel, extent_of(kernel));
        if (!is_reported(refused) && report_.id == "unknown-target")
            refused = find_refusal(kernel, extent_of(kernel), {where::nowhere, 0});
        if (!is_reported(refused) && report_.id == "null-target")
            refused = find_refusal(kernel, extent_of(kernel), {where::placed, 0});
        return is_reported(refused) ? refused : std::nullopt;
    }

    // The last kernel of each mapping, and the newest dump: an earlier run may have left more kernels of the
    // mapping in the same directory.
    [[nodiscard]] std::vector<std::size_t> find_candidates(std::size_t newest) const
    {
        std::vector<std::size_t> candidates = last_of_each_mapping(set());
        if (!dumps_.written.empty() &&
            std::find(candidates.begin(), candidates.end(), newest) == candidates.end())
            candidates.push_back(newest);
        return candidates;
    }

    void locate_assertion()
    {
        const std::vector<std::size_t> last = last_of_each_mapping(set());
        const auto older = [this](std::size_t a, std::size_t b) { return is_newer(b, a); };
        std::size_t newest = *std::max_element(last.begin(), last.end(), older);
        if (report_.id == "duplicate-name") {
            // A kernel is dumped after its registration, so the refused one has no dump.
            note(fmt::format("the last kernel that was dumped is {}: the refused one comes after it, in its "
                             "set or as the first of the next",
                             printable(set().kernels[newest].name)));
            return;
        }
        for (std::size_t i = 0; i < set().kernels.size(); ++i)
            newest = is_newer(i, newest) ? i : newest;
        std::vector<std::size_t> matching;
        for (const std::size_t i : find_candidates(newest)) {
            if (reported_refusal(i))
                matching.push_back(i);
        }
        if (matching.empty()) {
            use_dump(*std::max_element(last.begin(), last.end(), older));
            note("the last dump written");
            if (report_.id == "unknown-target")
                find_unregistered_target();
            return;
        }
        const std::size_t chosen = *std::max_element(matching.begin(), matching.end(), older);
        use_dump(chosen);
        const refusal refused = *reported_refusal(chosen);
        use_relocation(refused.relocation);
        if (const relocation_kind* const kind = find_relocation_kind(*at_.type)) {
            use_kind(*kind);
            if (report_.id.empty())
                use_missing_message(refused, *kind);
        }
        note(is_newer(newest, chosen)
                 ? "the last kernel of its mapping, and its relocations fail in this way; by the "
                   "files' times another dump is newer"
                 : "the last dump written, and its relocations fail in this way");
        for (const std::size_t i : matching) {
            if (i != chosen && !is_newer(chosen, i)) {
                note(fmt::format(
                    "{} would fail in this way too: the files' times do not tell which was written last",
                    printable(set().kernels[i].name)));
            }
        }
    }

    // All targets have dumps. Those in other mappings may be from an earlier run, and not in the registry.
    void find_unregistered_target()
    {
        std::vector<std::size_t> suspects;
        for (std::size_t i = 0; i < dump_->relocs.size(); ++i) {
            const placed_kernel* const target = find_kernel(set(), dump_->relocs[i].name);
            if (target != nullptr && target->mapping != dump_->mapping)
                suspects.push_back(i);
        }
        if (suspects.empty())
            return;
        use_relocation(suspects.front());
        for (const std::size_t i : suspects) {
            if (suspects.size() > 1)
                at_.matches.push_back({dump_->name, i, dump_->relocs[i].offset});
        }
    }

    // Reconstructs from the dumps a message that the log lacks.
    void use_missing_message(const refusal& refused, const relocation_kind& kind)
    {
        const tessjit::reloc_info& reloc = dump_->relocs[refused.relocation];
        const std::uint64_t P = target_value(extent_.text_address, reloc.offset);
        at_.report = name_of(refused.id);
        if (refused.id == finding_id::field_filled) {
            const std::vector<std::uint8_t> code = link_kernel(set(), *dump_).text;
            at_.filled = {&kind, P, word_at(code, static_cast<std::size_t>(reloc.offset))};
            return;
        }
        const std::uint64_t S = target_value(target_of(*dump_, extent_, reloc).address, reloc.addend);
        at_.out_of_range = {&kind, S & kind.page_mask, P & kind.page_mask,
                            wfta::relocation_value(kind, S, P)};
    }

    // ---- Further facts from the registry

    [[nodiscard]] bool in_same_mapping(const std::string& target) const
    {
        if (names_data(target) || (at_.kernel && target == *at_.kernel))
            return true;
        if (dump_ != nullptr && !other_run_) {
            if (const placed_kernel* const callee = find_kernel(set(), target))
                return callee->mapping == dump_->mapping;
        }
        const registered_kernel* const callee = registry_.find(target);
        return callee != nullptr && registered_ != nullptr &&
               registry_.last_of_mapping(callee->extent.text_address) == registered_;
    }

    // A field that leads to a kernel's first byte, or into its constants, is already linked.
    void find_already_linked()
    {
        const relocation_kind& kind = *at_.filled->kind;
        const auto value = static_cast<std::uint64_t>(wfta::encoded_value(kind, at_.filled->word));
        const std::uint64_t target = (at_.filled->place & kind.page_mask) + value;
        for (const registered_kernel* kernel : registry_.kernels()) {
            if (target == kernel->extent.text_address ||
                is_in(target, kernel->extent.data_address, kernel->extent.data_size)) {
                at_.already_linked = kernel->name;
                return;
            }
        }
    }

    const abort_report& report_;
    registry registry_;
    const dumps_of_process& dumps_;
    const registered_kernel* registered_ = nullptr; // the kernel in the registry dump
    const placed_kernel* dump_ = nullptr;           // its dump
    kernel_extent extent_;                          // of the kernel in the aborted process
    bool other_run_ = false;
    abort_location at_;
};

} // namespace

abort_location locate_abort(const abort_log& log, const abort_report& report, const dumps_of_process& dumps)
{
    return locator(log, report, dumps).run();
}

} // namespace vorna::workbench
