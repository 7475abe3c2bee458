#include "workbench/kernels/linking.hpp"

#include "check/relocation.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <cstring>
#include <fmt/format.h>
#include <unordered_map>

namespace vorna::workbench {

namespace {

/// The address that a relocation's name stands for.
struct target {
    relocation_outcome outcome;
    std::uint64_t address;
};

target find_target(const kernel_set& set, const placed_kernel& kernel, const std::string& name)
{
    if (names_data(name)) {
        if (name.compare(data_prefix.size(), std::string::npos, kernel.name) != 0)
            return {relocation_outcome::foreign_data, 0};
        return {relocation_outcome::applied, kernel.data_address};
    }
    const placed_kernel* const callee = name == kernel.name ? &kernel : find_kernel(set, name);
    if (callee == nullptr)
        return {relocation_outcome::unknown_target, 0};
    return {relocation_outcome::applied, callee->text_address};
}

/// S of the ABI, with the addend.
std::uint64_t value_of(const target& target, const tessjit::reloc_info& relocation)
{
    return target.address + static_cast<std::uint64_t>(std::int64_t{relocation.addend});
}

relocation_outcome apply(const kernel_set& set, const placed_kernel& kernel,
                         const tessjit::reloc_info& relocation, std::vector<std::uint8_t>& text)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    if (kind == nullptr)
        return relocation_outcome::unhandled_type;
    if (!lies_within(text, relocation.offset))
        return relocation_outcome::outside_text;
    const target found = find_target(set, kernel, relocation.name);
    if (found.outcome != relocation_outcome::applied)
        return found.outcome;
    const auto offset = static_cast<std::size_t>(relocation.offset);
    std::uint32_t word = word_at(text, offset);
    if ((word & kind->filled_mask) != 0)
        return relocation_outcome::field_filled;
    const std::uint64_t S = value_of(found, relocation);
    const std::uint64_t X = wfta::relocation_value(*kind, S, kernel.text_address + offset);
    if (!wfta::in_range(*kind, X))
        return relocation_outcome::out_of_range;
    const std::uint32_t field = wfta::relocation_field(*kind, X);
    word |= field;
    std::memcpy(text.data() + offset, &word, sizeof word);
    const bool as_meant =
        (word & kind->opcode_mask) != kind->opcode || (word & wfta::field_mask(*kind)) == field;
    return as_meant ? relocation_outcome::applied : relocation_outcome::leads_elsewhere;
}

} // namespace

linked_kernel link_kernel(const kernel_set& set, const placed_kernel& kernel)
{
    linked_kernel linked;
    linked.text = kernel.text;
    linked.outcomes.reserve(kernel.relocs.size());
    for (const tessjit::reloc_info& relocation : kernel.relocs)
        linked.outcomes.push_back(apply(set, kernel, relocation, linked.text));
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
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    if (kind == nullptr || !lies_within(kernel.text, relocation.offset))
        return false;
    const std::uint32_t untested = wfta::field_mask(*kind) & ~kind->filled_mask;
    if ((word_at(kernel.text, static_cast<std::size_t>(relocation.offset)) & untested) == 0)
        return false;
    std::vector<std::uint8_t> text = kernel.text;
    return apply(set, kernel, relocation, text) == relocation_outcome::leads_elsewhere;
}

namespace {

wfta::finding_id id_of(relocation_outcome outcome)
{
    switch (outcome) {
    case relocation_outcome::outside_text:
        return wfta::finding_id::offset;
    case relocation_outcome::unhandled_type:
        return wfta::finding_id::unhandled_type;
    case relocation_outcome::foreign_data:
        return wfta::finding_id::foreign_data;
    case relocation_outcome::unknown_target:
        return wfta::finding_id::unknown_target;
    case relocation_outcome::field_filled:
        return wfta::finding_id::field_filled;
    case relocation_outcome::out_of_range:
        return wfta::finding_id::range;
    default:
        return wfta::finding_id::call_bit_25;
    }
}

std::string message_of(const kernel_set& set, const placed_kernel& kernel,
                       const tessjit::reloc_info& relocation, relocation_outcome outcome,
                       std::uint32_t linked_word)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    const std::string name = printable(relocation.name);
    switch (outcome) {
    case relocation_outcome::applied:
        break;
    case relocation_outcome::outside_text:
        return fmt::format("{} to {} lies outside the code, which has {}", kind->name, name,
                           pluralize(kernel.text.size(), "byte"));
    case relocation_outcome::unhandled_type:
        return fmt::format("relocation of type {} to {}: not a type of kernels", relocation.type, name);
    case relocation_outcome::foreign_data:
        return fmt::format("{} to {}: the constants of another kernel", kind->name, name);
    case relocation_outcome::unknown_target:
        return fmt::format("{} is not in the dumps", name);
    case relocation_outcome::field_filled:
        return fmt::format("{} to {}: the field is not zero in 0x{:08x}", kind->name, name,
                           word_at(kernel.text, static_cast<std::size_t>(relocation.offset)));
    case relocation_outcome::out_of_range: {
        const std::uint64_t P =
            kernel.text_address + static_cast<std::uint64_t>(std::int64_t{relocation.offset});
        const std::uint64_t S = value_of(find_target(set, kernel, relocation.name), relocation);
        const auto X = static_cast<std::int64_t>(wfta::relocation_value(*kind, S, P));
        const bool odd = static_cast<std::uint64_t>(X) % kind->multiple_of != 0;
        return fmt::format("{} to {} at {}, {}", kind->name, with_addend(name, relocation.addend),
                           signed_hex(X),
                           odd ? fmt::format("not a multiple of {}", kind->multiple_of)
                               : fmt::format("limit {}", kind->reach));
    }
    case relocation_outcome::leads_elsewhere: {
        const std::uint64_t P =
            kernel.text_address + static_cast<std::uint64_t>(std::int64_t{relocation.offset});
        const std::int64_t distance = wfta::encoded_value(*kind, linked_word);
        return fmt::format(
            "the call leads to {}, {} from it, not to {}: the top bit of the BL's field was set",
            address_text(set, P + static_cast<std::uint64_t>(distance)), signed_hex(distance),
            with_addend(name, relocation.addend));
    }
    }
    return {};
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
            linked.findings.push_back({wfta::finding_id::duplicate_name, k, kernel.relocs.size(),
                                       "a second kernel of that name: other kernels' calls lead to the first",
                                       ""});
        }
        linked_kernel of_kernel = link_kernel(set, kernel);
        for (std::size_t r = 0; r < kernel.relocs.size(); ++r) {
            const tessjit::reloc_info& relocation = kernel.relocs[r];
            const relocation_outcome outcome = of_kernel.outcomes[r];
            if (outcome == relocation_outcome::applied)
                continue;
            if (outcome == relocation_outcome::unknown_target) {
                missing_target& target = missing[relocation.name];
                if (++target.places > 1) {
                    if (target.places == 2)
                        target.second = place_text(kernel.name, relocation.offset);
                    continue;
                }
                target.finding = linked.findings.size();
                linked.missing.push_back(relocation.name);
            }
            const std::uint32_t word =
                outcome == relocation_outcome::leads_elsewhere
                    ? word_at(of_kernel.text, static_cast<std::size_t>(relocation.offset))
                    : 0;
            linked.findings.push_back(
                {id_of(outcome), k, r, message_of(set, kernel, relocation, outcome, word), ""});
        }
        linked.texts.push_back(std::move(of_kernel.text));
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
