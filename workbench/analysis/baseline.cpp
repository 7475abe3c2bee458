#include "workbench/analysis/baseline.hpp"

#include "workbench/analysis/canonical_code.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <stdexcept>
#include <xxhash.h>

namespace vorna::workbench {

static void append(std::string& bytes, std::uint32_t number)
{
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

static std::string_view as_text(const std::vector<std::uint8_t>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string hash_of(std::string_view bytes)
{
    const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
    return fmt::format("{:016x}{:016x}", hash.high64, hash.low64);
}

kernel_fingerprint fingerprint_of(const placed_kernel& kernel)
{
    std::string relocations;
    for (const tessjit::reloc_info& reloc : relocations_by_place(kernel)) {
        append(relocations, static_cast<std::uint32_t>(reloc.offset));
        append(relocations, static_cast<std::uint32_t>(reloc.type));
        append(relocations, static_cast<std::uint32_t>(reloc.addend));
        const bool own = is_own_data(kernel.name, reloc.name);
        relocations += own ? '\1' : '\0';
        if (!own) {
            append(relocations, static_cast<std::uint32_t>(reloc.name.size()));
            relocations += reloc.name;
        }
    }
    return {hash_of(as_text(kernel.text)), hash_of(relocations), hash_of(as_text(kernel.data)),
            kernel.text.size() / 4};
}

std::string_view name_of(baseline_status status)
{
    static constexpr std::string_view names[] = {"same", "changed", "added", "removed"};
    return names[static_cast<std::size_t>(status)];
}

bool baseline_difference::code_changed() const
{
    return before && after && (before->code != after->code || before->instructions != after->instructions);
}

bool baseline_difference::relocations_changed() const
{
    return before && after && before->relocations != after->relocations;
}

bool baseline_difference::constants_changed() const
{
    return before && after && before->constants != after->constants;
}

std::vector<baseline_difference> compare_with_baseline(const baseline& entries, const kernel_set& set)
{
    std::map<std::string, baseline_difference> kernels;
    for (const baseline_entry& entry : entries) {
        baseline_difference& difference = kernels[entry.name];
        difference.before = entry.fingerprint;
        difference.line = entry.line;
    }
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        baseline_difference& difference = kernels[kernel.name];
        const kernel_fingerprint fingerprint = fingerprint_of(kernel);
        if (difference.after && !(*difference.after == fingerprint)) {
            throw std::runtime_error(fmt::format("{} and {}: two different kernels named {}",
                                                 set.kernels[difference.kernel].file, kernel.file,
                                                 escaped_name(kernel.name)));
        }
        if (!difference.after)
            difference.kernel = i;
        difference.after = fingerprint;
    }

    std::vector<baseline_difference> differences;
    for (auto& [name, difference] : kernels) {
        difference.name = name;
        if (!difference.before)
            difference.status = baseline_status::added;
        else if (!difference.after)
            difference.status = baseline_status::removed;
        else if (!(*difference.before == *difference.after))
            difference.status = baseline_status::changed;
        differences.push_back(std::move(difference));
    }
    // Added kernels are at the line of the next one that is not, or at the last.
    std::size_t line = 1;
    for (const baseline_entry& entry : entries)
        line = std::max(line, entry.line);
    for (auto difference = differences.rbegin(); difference != differences.rend(); ++difference) {
        if (difference->before)
            line = difference->line;
        else
            difference->line = line;
    }
    return differences;
}

} // namespace vorna::workbench
