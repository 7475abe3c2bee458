#include "workbench/kernels/linking.hpp"

#include "check/finding_text.hpp"
#include "check/relocation.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <fmt/format.h>
#include <unordered_map>

namespace vorna::workbench {

using wfta::finding_id;
using wfta::relocation_kind;

wfta::relocation_target find_target(const kernel_set& set, const placed_kernel& kernel,
                                    const std::string& name)
{
    using where = wfta::relocation_target::where;
    return wfta::resolve_target(
        kernel.place(), name, [&set](const std::string& other) -> wfta::relocation_target {
            const placed_kernel* const callee = find_kernel(set, other);
            return callee == nullptr ? wfta::relocation_target{where::unknown, 0}
                                     : wfta::relocation_target{where::placed, callee->text_address};
        });
}

namespace {

struct link_result {
    std::optional<finding_id> finding;
    std::uint64_t value = 0; ///< X of the ABI, if target and kind are known
};

// Applies one relocation to the code.
link_result link_relocation(const kernel_set& set, const placed_kernel& kernel,
                            const tessjit::reloc_info& relocation, std::vector<std::uint8_t>& text)
{
    using where = wfta::relocation_target::where;
    const wfta::relocation_target target = find_target(set, kernel, relocation.name);
    if (target.state == where::foreign_data)
        return {finding_id::foreign_data};
    if (target.state != where::placed)
        return {finding_id::unknown_target};
    const relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    if (kind == nullptr)
        return {finding_id::unhandled_type};
    if (!lies_within(text, relocation.offset))
        return {finding_id::offset};
    const auto offset = static_cast<std::size_t>(relocation.offset);
    const wfta::applied_relocation applied =
        wfta::apply(*kind, wfta::target_value(target.address, relocation.addend),
                    kernel.text_address + offset, word_at(text, offset));
    if (applied.filled)
        return {finding_id::field_filled, applied.value};
    if (!applied.in_range)
        return {finding_id::range, applied.value};
    wfta::set_word(text, offset, applied.word);
    return {applied.leads_elsewhere ? std::optional(finding_id::call_bit_25) : std::nullopt, applied.value};
}

} // namespace

linked_kernel link_kernel(const kernel_set& set, const placed_kernel& kernel)
{
    linked_kernel linked;
    linked.text = kernel.text;
    linked.findings.reserve(kernel.relocs.size());
    for (const tessjit::reloc_info& relocation : kernel.relocs)
        linked.findings.push_back(link_relocation(set, kernel, relocation, linked.text).finding);
    return linked;
}

std::string address_text(const kernel_set& set, std::uint64_t address)
{
    if (const placed_kernel* const kernel = find_kernel_by_text(set, address))
        return with_addend(printable(kernel->name),
                           static_cast<std::int64_t>(address - kernel->text_address));
    return fmt::format("{:#x}", address);
}

bool leads_elsewhere(const kernel_set& set, const placed_kernel& kernel,
                     const tessjit::reloc_info& relocation)
{
    const relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    if (kind == nullptr || !lies_within(kernel.text, relocation.offset))
        return false;
    if (!has_untested_bits(*kind, word_at(kernel.text, static_cast<std::size_t>(relocation.offset))))
        return false;
    std::vector<std::uint8_t> text = kernel.text;
    return link_relocation(set, kernel, relocation, text).finding == finding_id::call_bit_25;
}

namespace {

// The message of a finding about a relocation. `text` is the kernel's linked code.
std::string message_of(const kernel_set& set, const placed_kernel& kernel,
                       const tessjit::reloc_info& relocation, const link_result& result,
                       const std::vector<std::uint8_t>& text)
{
    const std::string subject = wfta::relocation_subject(relocation);
    const relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    const auto word = [&] { return word_at(text, static_cast<std::size_t>(relocation.offset)); };
    switch (*result.finding) {
    case finding_id::unknown_target:
        return wfta::not_dumped_text(subject).message;
    case finding_id::offset:
        return wfta::offset_message(subject, kernel.text.size());
    case finding_id::field_filled:
        return wfta::field_filled_message(subject, word());
    case finding_id::range:
        return wfta::range_message(subject, *kind, result.value);
    case finding_id::call_bit_25: {
        const std::uint64_t P = wfta::target_value(kernel.text_address, relocation.offset);
        const std::int64_t distance = wfta::encoded_value(*kind, word());
        return wfta::call_bit_25_text(subject, *kind, word(), wfta::call_effect::leads_elsewhere,
                                      address_text(set, wfta::target_value(P, distance)))
            .message;
    }
    default:
        return wfta::message_of(*result.finding, subject);
    }
}

} // namespace

linked_set link_set(const kernel_set& set)
{
    struct missing_target {
        std::size_t finding;
        std::size_t places;
        std::string second;
    };
    linked_set linked;
    std::unordered_map<std::string, missing_target> missing;
    linked.texts.reserve(set.kernels.size());
    for (std::size_t k = 0; k < set.kernels.size(); ++k) {
        const placed_kernel& kernel = set.kernels[k];
        if (&kernel != find_kernel(set, kernel.name)) {
            linked.findings.push_back(
                {finding_id::duplicate_name, k, kernel.relocs.size(),
                 wfta::duplicate_name_text(find_kernel(set, kernel.name)->file + ", which other kernels call")
                     .message,
                 ""});
        }
        std::vector<std::uint8_t> text = kernel.text;
        for (std::size_t r = 0; r < kernel.relocs.size(); ++r) {
            const tessjit::reloc_info& relocation = kernel.relocs[r];
            const link_result result = link_relocation(set, kernel, relocation, text);
            if (!result.finding)
                continue;
            if (result.finding == finding_id::unknown_target) {
                missing_target& target = missing[relocation.name];
                if (++target.places > 1) {
                    if (target.places == 2)
                        target.second = place_text(kernel.name, relocation.offset);
                    continue;
                }
                target.finding = linked.findings.size();
                linked.missing.push_back(relocation.name);
            }
            linked.findings.push_back(
                {*result.finding, k, r, message_of(set, kernel, relocation, result, text), ""});
        }
        linked.texts.push_back(std::move(text));
    }
    for (const auto& [name, target] : missing) {
        if (target.places == 2)
            linked.findings[target.finding].evidence = "also at " + target.second;
        else if (target.places > 2)
            linked.findings[target.finding].evidence =
                fmt::format("also at {} and {}", target.second, pluralize(target.places - 2, "other place"));
    }
    return linked;
}

} // namespace vorna::workbench
