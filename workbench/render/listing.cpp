#include "workbench/render/listing.hpp"

#include "check/finding_text.hpp"
#include "check/relocation.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/load_comments.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <elf.h>
#include <fmt/format.h>
#include <functional>
#include <set>
#include <stdexcept>

namespace vorna::workbench {

namespace {

constexpr std::size_t word_size = 4;

/// A relocation's target as listed: the kernel's own constants without its name.
std::string target_text(const placed_kernel& kernel, const tessjit::reloc_info& relocation)
{
    const bool own_data = is_own_data(kernel.name, relocation.name);
    return with_addend(own_data ? ".rodata" : printable(relocation.name), relocation.addend);
}

std::string type_text(std::int32_t type)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(type);
    return kind == nullptr ? fmt::format("relocation type {}", type) : kind->name;
}

/// For each row the relocations that overlap it, in their order.
std::vector<std::vector<std::size_t>> relocations_by_row(const placed_kernel& kernel)
{
    std::vector<std::vector<std::size_t>> rows((kernel.text.size() + word_size - 1) / word_size);
    for (std::size_t i = 0; i < kernel.relocs.size(); ++i) {
        const std::int32_t offset = kernel.relocs[i].offset;
        if (!lies_within(kernel.text, offset))
            continue;
        const auto first = static_cast<std::size_t>(offset);
        rows[first / word_size].push_back(i);
        if (first % word_size != 0)
            rows[first / word_size + 1].push_back(i);
    }
    return rows;
}

/// The instruction with the relocation's target as its target or immediate.
std::string relocated_text(const placed_kernel& kernel, const tessjit::reloc_info& relocation,
                           std::uint32_t generated, disassembler& disassembler)
{
    const std::string target = target_text(kernel, relocation);
    return disassembler.text_with_symbol(
        generated, relocation.type == R_AARCH64_ADD_ABS_LO12_NC ? ":lo12:" + target : target);
}

std::string label_of(std::size_t offset)
{
    return fmt::format(".L{:x}", offset);
}

/// Names an address outside the kernel by its offset from the kernel's first byte.
using symboliser = std::function<std::string(std::int64_t place)>;

/// Names the PC-relative target of an instruction without a relocation. Adds offsets in the code that it
/// reads to `read`.
void name_target(const placed_kernel& kernel, const instruction& at, listing_row& row,
                 disassembler& disassembler, const symboliser& name_of, std::vector<std::size_t>& read)
{
    if (!at.pc_relative)
        return;
    const std::int64_t place = static_cast<std::int64_t>(row.offset) + *at.pc_relative;
    const auto offset = static_cast<std::size_t>(place);
    const bool inside = lies_within(kernel.text, place);
    if (at.flow == control_flow::next) { // ADR, literal loads
        if (inside && offset % word_size == 0) {
            read.push_back(offset);
            row.text = disassembler.text_with_symbol(row.word, label_of(offset));
        }
    } else if (inside && !(at.is_call() && offset == 0)) {
        row.branch_target = offset;
        row.text = disassembler.text_with_symbol(row.word, label_of(offset));
    } else {
        row.text = disassembler.text_with_symbol(row.word, name_of(place));
    }
}

/// The kernel that a BL without a relocation calls; empty if its target is in no kernel's code.
std::string callee_at(const kernel_set& set, const placed_kernel& kernel, const listing_row& row,
                      const instruction& call)
{
    const std::uint64_t address = kernel.text_address + row.offset;
    const placed_kernel* const callee =
        find_kernel_by_text(set, address + static_cast<std::uint64_t>(std::int64_t{*call.pc_relative}));
    return callee == nullptr ? "" : callee->name;
}

/// Whether the kernel has a relocation against the kernel with this name.
bool refers_to(const kernel_set& set, const placed_kernel& kernel, const std::string& name)
{
    return std::any_of(kernel.relocs.begin(), kernel.relocs.end(), [&](const auto& relocation) {
        return relocation.name == name && !leads_elsewhere(set, kernel, relocation);
    });
}

void append(std::string& comment, const std::string& text)
{
    if (!comment.empty() && !text.empty())
        comment += "; ";
    comment += text;
}

/// Why a relocation cannot be applied, whatever the addresses. Its offset must lie within the code.
std::optional<wfta::finding_id> finding_without_addresses(const placed_kernel& kernel,
                                                          const tessjit::reloc_info& relocation)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    if (kind == nullptr)
        return wfta::finding_id::unhandled_type;
    if (names_data(relocation.name) && !is_own_data(kernel.name, relocation.name))
        return wfta::finding_id::foreign_data;
    if (is_filled(*kind, word_at(kernel.text, static_cast<std::size_t>(relocation.offset))))
        return wfta::finding_id::field_filled;
    return std::nullopt;
}

/// What the rows show.
struct row_contents {
    bool targets;          ///< targets of relocations in the text, otherwise in comments only
    std::uint64_t address; ///< of the first row, for numeric targets
    symboliser name_of;
    const std::vector<std::uint8_t>* linked = nullptr; ///< the linked code, if its words are shown
    const std::vector<std::optional<wfta::finding_id>>* findings =
        nullptr; ///< for each relocation, if addresses are known
};

/// Fills in the calls, and the labels of rows that are branch targets or read.
void add_calls_and_labels(kernel_listing& listing, const std::vector<std::size_t>& read)
{
    std::set<std::string> called;
    for (const listing_row& row : listing.rows) {
        if (row.branch_target)
            listing.rows[*row.branch_target / word_size].label = label_of(*row.branch_target);
        if (!row.callee.empty() && called.insert(row.callee).second)
            listing.calls.push_back(row.callee);
    }
    for (const std::size_t offset : read)
        listing.rows[offset / word_size].label = label_of(offset);
}

void add_loads(kernel_listing& listing, const described_loads& loads)
{
    for (listing_row& row : listing.rows) {
        if (row.is_data) {
            const auto value = loads.data.find(row.offset);
            append(row.comment, value == loads.data.end() ? "data" : "data  " + value->second);
            if (value != loads.data.end() && row.label.empty())
                row.label = label_of(row.offset);
        }
        const auto load = loads.comments.find(row.offset);
        if (load != loads.comments.end())
            append(row.comment, load->second);
    }
}

/// Makes the listing without callers. Without a set the result does not depend on addresses.
kernel_listing list_rows(const kernel_set* set, const placed_kernel& kernel, disassembler& disassembler,
                         const row_contents& contents)
{
    if (kernel.text.size() > largest_decoded_code)
        throw std::runtime_error(fmt::format("{}: {} of code, more than is listed", kernel.name,
                                             pluralize(kernel.text.size(), "byte")));
    kernel_listing listing;
    const decoded_kernel code = decode_kernel(kernel);
    const code_map map =
        map_code(code, set == nullptr ? std::vector<code_entry>{} : find_entries(*set, kernel));
    listing.instructions =
        map.uses.size() -
        static_cast<std::size_t>(std::count(map.uses.begin(), map.uses.end(), word_use::data));
    const std::vector<std::vector<std::size_t>> relocations = relocations_by_row(kernel);
    std::vector<std::size_t> read; // offsets in the code
    for (std::size_t i = 0; i < code.instructions.size(); ++i) {
        const instruction& at = code.instructions[i];
        const std::vector<std::size_t>& of_row = relocations[i];
        listing_row row;
        row.offset = i * word_size;
        row.word = contents.linked == nullptr ? at.word : word_at(*contents.linked, row.offset);
        row.is_data = map.uses[i] == word_use::data;
        const bool plain = !row.is_data && at.relocated == word_relocation::fits;
        const bool elsewhere = plain && contents.findings != nullptr &&
                               (*contents.findings)[of_row.front()] == wfta::finding_id::call_bit_25;
        row.text = row.is_data ? fmt::format(".word 0x{:08x}", row.word)
                               : disassembler.text(row.word, contents.address + row.offset);
        if (plain && !elsewhere) {
            const tessjit::reloc_info& relocation = kernel.relocs[at.relocation];
            if (contents.targets)
                row.text = relocated_text(kernel, relocation, at.word, disassembler);
            if (relocation.type == R_AARCH64_CALL26 && !names_data(relocation.name))
                row.callee = relocation.name;
        } else if (!row.is_data && (of_row.empty() || contents.linked != nullptr || set == nullptr)) {
            const decoded_kernel shown = decode_word(row.word);
            name_target(kernel, shown.instructions.front(), row, disassembler, contents.name_of, read);
            if (set != nullptr && shown.instructions.front().flow == control_flow::call && !row.branch_target)
                row.callee = callee_at(*set, kernel, row, shown.instructions.front());
        }
        for (const std::size_t r : of_row) {
            const tessjit::reloc_info& relocation = kernel.relocs[r];
            const std::optional<wfta::finding_id> finding =
                contents.findings == nullptr ? finding_without_addresses(kernel, relocation)
                                             : (*contents.findings)[r];
            const std::string outcome = finding ? wfta::summary_of(*finding) : "";
            append(row.comment,
                   plain && contents.targets && !elsewhere
                       ? outcome
                       : fmt::format("{} {}{}{}", type_text(relocation.type), target_text(kernel, relocation),
                                     outcome.empty() ? "" : ", ", outcome));
        }
        listing.rows.push_back(std::move(row));
    }
    for (std::size_t offset = listing.rows.size() * word_size; offset < kernel.text.size(); ++offset) {
        listing_row row;
        row.offset = offset;
        row.size = 1;
        row.word = kernel.text[offset];
        row.text = fmt::format(".byte 0x{:02x}", row.word);
        listing.rows.push_back(std::move(row));
    }
    add_calls_and_labels(listing, read);
    add_loads(listing, describe_loads(set, code, map));
    return listing;
}

kernel_listing list_in_set(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                           bool linked, bool targets)
{
    const linked_kernel code = link_kernel(set, kernel);
    const auto name_of = [&](std::int64_t place) {
        return address_text(set, kernel.text_address + static_cast<std::uint64_t>(place));
    };
    kernel_listing listing =
        list_rows(&set, kernel, disassembler,
                  {targets, kernel.text_address, name_of, linked ? &code.text : nullptr, &code.findings});
    for (const std::size_t caller : set.callers[static_cast<std::size_t>(&kernel - set.kernels.data())]) {
        if (refers_to(set, set.kernels[caller], kernel.name))
            listing.callers.push_back(set.kernels[caller].name);
    }
    return listing;
}

} // namespace

kernel_listing list_kernel(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                           bool linked)
{
    return list_in_set(set, kernel, disassembler, linked, linked);
}

kernel_listing list_generated(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler)
{
    return list_in_set(set, kernel, disassembler, false, true);
}

kernel_listing list_without_addresses(const placed_kernel& kernel, disassembler& disassembler)
{
    const auto name_of = [&](std::int64_t place) { return with_addend(printable(kernel.name), place); };
    return list_rows(nullptr, kernel, disassembler, {true, 0, name_of});
}

std::string generated_text(const placed_kernel& kernel, std::size_t offset, disassembler& disassembler)
{
    const std::uint32_t word = word_at(kernel.text, offset);
    for (const tessjit::reloc_info& relocation : kernel.relocs) {
        const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
        if (relocation.offset >= 0 && static_cast<std::size_t>(relocation.offset) == offset &&
            kind != nullptr && is_unlinked(*kind, word))
            return relocated_text(kernel, relocation, word, disassembler);
    }
    return disassembler.text(word, kernel.text_address + offset);
}

int offset_digits(const placed_kernel& kernel)
{
    const std::size_t last = kernel.text.empty() ? 0 : kernel.text.size() - 1;
    return std::max(2, hex_digits(last));
}

std::string row_text(const listing_row& row, int offset_digits, std::string_view column)
{
    const std::size_t blank = row.text.find(' ');
    const std::string_view mnemonic = std::string_view(row.text).substr(0, blank);
    const std::string_view operands =
        blank == std::string::npos ? std::string_view() : std::string_view(row.text).substr(blank + 1);
    const std::string word = fmt::format("{:0{}x}", row.word, 2 * row.size);
    std::string text = fmt::format("+{:0{}x}  {:<8}  ", row.offset, offset_digits, word);
    if (operands.empty())
        text += mnemonic;
    else
        text += fmt::format("{:<5} {}", mnemonic, operands);
    if (!column.empty())
        text = fmt::format("{:<48}  {}", text, column);
    if (row.comment.empty())
        return text.substr(0, text.find_last_not_of(' ') + 1);
    return fmt::format("{:<48}  ; {}", text, row.comment);
}

std::string headline(const placed_kernel& kernel, const kernel_listing& listing)
{
    std::string text =
        fmt::format("{}  {:#x}  {}, {}", printable(kernel.name), kernel.text_address,
                    pluralize(kernel.text.size(), "byte"), pluralize(listing.instructions, "instruction"));
    if (!kernel.data.empty())
        text += fmt::format("; data {:#x}, {}", kernel.data_address, pluralize(kernel.data.size(), "byte"));
    if (!listing.callers.empty())
        text += "; called by " + join_some(listing.callers);
    return text;
}

} // namespace vorna::workbench
