#include "workbench/render/listing.hpp"

#include "check/finding_text.hpp"
#include "check/relocation.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/loaded_constants.hpp"
#include "workbench/disasm/a64.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <elf.h>
#include <fmt/format.h>
#include <set>
#include <stdexcept>

namespace vorna::workbench {

namespace {

constexpr std::size_t word_size = 4;

/// A relocation's target as the listing of a kernel has it: its own constants without its name.
std::string target_text(const placed_kernel& kernel, const tessjit::reloc_info& relocation)
{
    return with_addend(is_own_data(kernel.name, relocation.name) ? ".rodata" : printable(relocation.name),
                       relocation.addend);
}

std::string type_text(std::int32_t type)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(type);
    return kind == nullptr ? fmt::format("relocation type {}", type) : kind->name;
}

/// The relocations of which some bytes lie in each row, in their order.
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

/// Whether the relocation fills just the field that its kind has in this instruction.
bool fits(const tessjit::reloc_info& relocation, std::size_t offset, std::uint32_t generated)
{
    const wfta::relocation_kind* const kind = wfta::find_relocation_kind(relocation.type);
    return kind != nullptr && static_cast<std::size_t>(relocation.offset) == offset &&
           (generated & kind->opcode_mask) == kind->opcode;
}

/// The instruction with the relocation's target as its last operand.
std::string relocated_text(const placed_kernel& kernel, const tessjit::reloc_info& relocation,
                           std::uint32_t generated, disassembler& disassembler)
{
    const std::string target = target_text(kernel, relocation);
    if (relocation.type != R_AARCH64_ADD_ABS_LO12_NC)
        return disassembler.text_with_last_operand(generated, target);
    // With an immediate of 0 an ADD from or to the stack pointer would be the alias MOV.
    constexpr std::uint32_t immediate = 0x400;
    return disassembler.text_with_last_operand(generated | immediate, ":lo12:" + target);
}

std::string label_of(std::size_t offset)
{
    return fmt::format(".L{:x}", offset);
}

/// Whether an instruction gives or reads a place by a distance that it holds itself: ADR, LDR (literal).
bool reads_by_distance(std::uint32_t word)
{
    return (word & 0x9f000000) == 0x10000000 || (word & 0x3b000000) == 0x18000000;
}

/// Names what an instruction leads to by a distance that it holds itself. Places in the code that it reads
/// are added to `read`.
void name_target(const kernel_set& set, const placed_kernel& kernel, listing_row& row,
                 disassembler& disassembler, std::vector<std::size_t>& read)
{
    const std::optional<std::uint64_t> target =
        pc_relative_target(row.word, kernel.text_address + row.offset);
    if (!target || row.text.front() == '.')
        return;
    const bool call = row.word >> 26 == 0x25; // BL
    const std::uint64_t offset = *target - kernel.text_address;
    if (reads_by_distance(row.word) && offset % word_size == 0 &&
        lies_within(kernel.text, static_cast<std::int64_t>(offset))) {
        read.push_back(offset);
        row.text = disassembler.text_with_last_operand(row.word, label_of(offset));
    }
    if (!branch_displacement(row.word))
        return;
    if (lies_within(kernel.text, static_cast<std::int64_t>(offset)) && !(call && offset == 0)) {
        row.branch_target = offset;
        row.text = disassembler.text_with_last_operand(row.word, label_of(offset));
        return;
    }
    row.text = disassembler.text_with_last_operand(row.word, address_text(set, *target));
    if (const placed_kernel* const callee = find_kernel_by_text(set, *target); callee != nullptr && call)
        row.callee = callee->name;
}

/// Where the relocations of other kernels lead into this one.
std::vector<code_entry> entries_by_others(const kernel_set& set, const placed_kernel& kernel)
{
    std::vector<code_entry> entries;
    for (const std::size_t caller : set.callers[static_cast<std::size_t>(&kernel - set.kernels.data())]) {
        for (const tessjit::reloc_info& reloc : set.kernels[caller].relocs) {
            if (reloc.addend != 0 && reloc.name == kernel.name && set.kernels[caller].name != kernel.name)
                entries.push_back({reloc.addend, reloc.type == R_AARCH64_CALL26});
        }
    }
    return entries;
}

/// Whether a relocation of the kernel leads to that of the name.
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

} // namespace

namespace {

/// What the rows have: words with the relocations applied, and targets in the text of what they fit.
struct row_contents {
    bool linked;
    bool targets;
};

kernel_listing list_rows(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                         row_contents contents)
{
    if (kernel.text.size() > largest_listing)
        throw std::runtime_error(fmt::format("{}: {} of code, more than is listed", kernel.name,
                                             pluralize(kernel.text.size(), "byte")));
    kernel_listing listing;
    const std::size_t words = kernel.text.size() / word_size;
    const code_map map = map_code(kernel.name, kernel.text, kernel.relocs, entries_by_others(set, kernel));
    listing.instructions =
        words - static_cast<std::size_t>(std::count(map.uses.begin(), map.uses.end(), word_use::data));
    for (const std::size_t caller : set.callers[static_cast<std::size_t>(&kernel - set.kernels.data())]) {
        if (refers_to(set, set.kernels[caller], kernel.name))
            listing.callers.push_back(set.kernels[caller].name);
    }

    const linked_kernel code = link_kernel(set, kernel);
    const std::vector<std::vector<std::size_t>> relocations = relocations_by_row(kernel);
    std::vector<std::size_t> read; // places in the code
    for (std::size_t offset = 0; offset + word_size <= kernel.text.size(); offset += word_size) {
        listing_row row;
        row.offset = offset;
        const std::uint32_t generated = word_at(kernel.text, offset);
        row.word = contents.linked ? word_at(code.text, offset) : generated;
        const std::vector<std::size_t>& of_row = relocations[offset / word_size];
        row.is_data = !map.uses.empty() && map.uses[offset / word_size] == word_use::data;
        const bool plain =
            !row.is_data && of_row.size() == 1 && fits(kernel.relocs[of_row.front()], offset, generated);
        const bool elsewhere = plain && code.findings[of_row.front()] == wfta::finding_id::call_bit_25;
        row.text = row.is_data ? fmt::format(".word 0x{:08x}", row.word)
                               : disassembler.text(row.word, kernel.text_address + offset);
        if (elsewhere && contents.linked) {
            name_target(set, kernel, row, disassembler, read);
        } else if (plain && !elsewhere) {
            const tessjit::reloc_info& relocation = kernel.relocs[of_row.front()];
            if (contents.targets)
                row.text = relocated_text(kernel, relocation, generated, disassembler);
            if (relocation.type == R_AARCH64_CALL26 && !names_data(relocation.name))
                row.callee = relocation.name;
        } else if (!plain && (of_row.empty() || contents.linked)) {
            name_target(set, kernel, row, disassembler, read);
        }
        for (const std::size_t i : of_row) {
            const tessjit::reloc_info& relocation = kernel.relocs[i];
            const std::string outcome = code.findings[i] ? wfta::summary_of(*code.findings[i]) : "";
            append(row.comment,
                   plain && contents.targets && !elsewhere
                       ? outcome
                       : fmt::format("{} {}{}{}", type_text(relocation.type), target_text(kernel, relocation),
                                     outcome.empty() ? "" : ", ", outcome));
        }
        listing.rows.push_back(std::move(row));
    }
    for (std::size_t offset = words * word_size; offset < kernel.text.size(); ++offset) {
        listing_row row;
        row.offset = offset;
        row.size = 1;
        row.word = kernel.text[offset];
        row.text = fmt::format(".byte 0x{:02x}", row.word);
        listing.rows.push_back(std::move(row));
    }

    std::set<std::string> called;
    for (const listing_row& row : listing.rows) {
        if (row.branch_target)
            listing.rows[*row.branch_target / word_size].label = label_of(*row.branch_target);
        if (!row.callee.empty() && called.insert(row.callee).second)
            listing.calls.push_back(row.callee);
    }
    for (const std::size_t offset : read)
        listing.rows[offset / word_size].label = label_of(offset);
    const described_loads loads = describe_loads(set, kernel, map, listing.rows);
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
    return listing;
}

} // namespace

kernel_listing list_kernel(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler,
                           bool linked)
{
    return list_rows(set, kernel, disassembler, {linked, linked});
}

kernel_listing list_generated(const kernel_set& set, const placed_kernel& kernel, disassembler& disassembler)
{
    return list_rows(set, kernel, disassembler, {false, true});
}

std::string generated_text(const placed_kernel& kernel, std::size_t offset, disassembler& disassembler)
{
    const std::uint32_t word = word_at(kernel.text, offset);
    const auto relocation =
        std::find_if(kernel.relocs.begin(), kernel.relocs.end(), [&](const tessjit::reloc_info& r) {
            return r.offset >= 0 && fits(r, offset, word) &&
                   (word & wfta::find_relocation_kind(r.type)->field_mask) == 0;
        });
    return relocation == kernel.relocs.end() ? disassembler.text(word, kernel.text_address + offset)
                                             : relocated_text(kernel, *relocation, word, disassembler);
}

kernel_listing list_without_addresses(const placed_kernel& kernel, disassembler& disassembler)
{
    // In a set of its own, with callees in reach that have no code.
    constexpr std::uint64_t address = 0x10000000;
    std::vector<placed_kernel> kernels(1, kernel);
    kernels.front().text_address = address;
    kernels.front().data_address = (address + kernel.text.size() + 31) & ~std::uint64_t{31};
    std::set<std::string> targets{kernel.name};
    for (const tessjit::reloc_info& relocation : kernel.relocs) {
        if (names_data(relocation.name) || !targets.insert(relocation.name).second)
            continue;
        placed_kernel callee;
        callee.name = relocation.name;
        callee.text_address = address - 32;
        callee.data_address = address;
        kernels.push_back(std::move(callee));
    }
    const kernel_set set = make_kernel_set(std::move(kernels));
    const placed_kernel& alone = *find_kernel(set, kernel.name);
    kernel_listing listing = list_kernel(set, alone, disassembler);
    for (listing_row& row : listing.rows) {
        if (row.size == word_size)
            row.word = word_at(kernel.text, row.offset);
    }
    return listing;
}

int offset_digits(const placed_kernel& kernel)
{
    const std::size_t last = kernel.text.empty() ? 0 : kernel.text.size() - 1;
    return std::max(2, static_cast<int>(fmt::formatted_size("{:x}", last)));
}

std::string row_text(const listing_row& row, int offset_digits)
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
    if (!row.comment.empty())
        text = fmt::format("{:<48}  ; {}", text, row.comment);
    return text;
}

std::string headline(const placed_kernel& kernel, const kernel_listing& listing)
{
    std::string text =
        fmt::format("{}  {:#x}  {}, {}", printable(kernel.name), kernel.text_address,
                    pluralize(kernel.text.size(), "byte"), pluralize(listing.instructions, "instruction"));
    if (!kernel.data.empty())
        text += fmt::format("; data {:#x}, {}", kernel.data_address, pluralize(kernel.data.size(), "byte"));
    if (!listing.calls.empty())
        text += "; calls " + join_some(listing.calls);
    if (!listing.callers.empty())
        text += "; called by " + join_some(listing.callers);
    return text;
}

} // namespace vorna::workbench
