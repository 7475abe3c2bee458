#include "workbench/linking.hpp"

#include "workbench/relocation.hpp"

#include <cstring>

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

relocation_outcome apply(const kernel_set& set, const placed_kernel& kernel,
                         const tessjit::reloc_info& relocation, std::vector<std::uint8_t>& text)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    if (kind == nullptr)
        return relocation_outcome::unhandled_type;
    if (!lies_within(text, relocation.offset))
        return relocation_outcome::outside_text;
    const target target = find_target(set, kernel, relocation.name);
    if (target.outcome != relocation_outcome::applied)
        return target.outcome;
    const auto offset = static_cast<std::size_t>(relocation.offset);
    std::uint32_t word = word_at(text, offset);
    if ((word & kind->filled_mask) != 0)
        return relocation_outcome::field_filled;
    const std::uint64_t S = target.address + static_cast<std::uint64_t>(std::int64_t{relocation.addend});
    const std::uint64_t X = wfta::relocation_value(*kind, S, kernel.text_address + offset);
    if (!wfta::in_range(*kind, X))
        return relocation_outcome::out_of_range;
    word |= wfta::relocation_field(*kind, X);
    std::memcpy(text.data() + offset, &word, sizeof word);
    return relocation_outcome::applied;
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

} // namespace vorna::workbench
