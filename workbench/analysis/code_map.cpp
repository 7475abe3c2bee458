#include "workbench/analysis/code_map.hpp"

#include "check/relocation.hpp"
#include "workbench/disasm/a64.hpp"

#include <cstring>
#include <elf.h>

namespace vorna::workbench {

namespace {

std::uint32_t word_at(const std::vector<std::uint8_t>& text, std::size_t index)
{
    std::uint32_t word = 0;
    std::memcpy(&word, text.data() + 4 * index, sizeof word);
    return word;
}

std::vector<word_relocation> relocations_of_words(const std::vector<std::uint8_t>& text, std::size_t words,
                                                  const std::vector<tessjit::reloc_info>& relocs)
{
    using kind = word_relocation::kind;
    std::vector<word_relocation> of_words(words);
    const auto set = [&](std::int64_t word, kind what, std::size_t index) {
        if (word < 0 || word >= static_cast<std::int64_t>(words))
            return;
        word_relocation& relocation = of_words[static_cast<std::size_t>(word)];
        if (relocation.what != kind::none)
            what = kind::unclear;
        relocation = {what, static_cast<std::uint32_t>(index)};
    };
    for (std::size_t i = 0; i < relocs.size(); ++i) {
        const std::int64_t offset = relocs[i].offset;
        if (offset % 4 != 0) {
            const std::int64_t first = (offset - (offset < 0 ? 3 : 0)) / 4;
            set(first, kind::unclear, i);
            set(first + 1, kind::unclear, i);
            continue;
        }
        const bool inside = offset >= 0 && offset / 4 < static_cast<std::int64_t>(words);
        const wfta::relocation_kind* const expected = wfta::find_relocation_kind(relocs[i].type);
        const bool fits =
            inside && expected != nullptr &&
            (word_at(text, static_cast<std::size_t>(offset / 4)) & expected->opcode_mask) == expected->opcode;
        set(offset / 4, fits ? kind::fits : kind::unclear, i);
    }
    return of_words;
}

bool is_adr(std::uint32_t word)
{
    return (word & 0x9f000000) == 0x10000000;
}

bool is_adrp(std::uint32_t word)
{
    return (word & 0x9f000000) == 0x90000000;
}

// BR, BLR and their kind, and a RET that does not return to the caller.
bool is_indirect_branch(std::uint32_t word)
{
    if ((word & 0xfffffc1f) == 0xd65f0000)
        return (word >> 5 & 31) != 30;
    return (word & 0xfec00000) == 0xd6000000;
}

class mapper {
public:
    mapper(const std::string& name, const std::vector<std::uint8_t>& text,
           const std::vector<tessjit::reloc_info>& relocs)
        : name_(name), text_(text), relocs_(relocs), words_(text.size() / 4)
    {
        map_.uses.resize(words_);
        map_.joins.resize(words_);
        map_.entries.resize(words_);
        map_.relocations = relocations_of_words(text, words_, relocs);
    }

    code_map run(const std::vector<code_entry>& entries)
    {
        enter(0, true);
        for (const code_entry& entry : entries)
            enter(entry.offset, entry.called);
        for (const tessjit::reloc_info& reloc : relocs_) {
            if (reloc.name == name_ && reloc.addend != 0)
                enter(reloc.addend, reloc.type == R_AARCH64_CALL26);
        }
        follow();
        find_data();
        return std::move(map_);
    }

private:
    void reach(std::size_t index)
    {
        if (map_.uses[index] != word_use::code) {
            map_.uses[index] = word_use::code;
            pending_.push_back(index);
        }
    }

    void enter(std::int64_t offset, bool surely)
    {
        if (offset < 0 || offset / 4 >= static_cast<std::int64_t>(words_))
            return;
        const auto index = static_cast<std::size_t>(offset / 4);
        map_.joins[index] = map_.entries[index] = true;
        if (surely)
            reach(index);
    }

    void follow()
    {
        bool indirect = false;
        bool takes_own_address = false;
        std::uint32_t holds_own_address = 0; // registers, somewhere in the kernel
        std::uint32_t moved_to_x30 = 0;
        while (!pending_.empty()) {
            const std::size_t index = pending_.back();
            pending_.pop_back();
            const std::uint32_t word = word_at(text_, index);
            const word_flow flow = flow_of(map_, text_, index);
            if (flow.target) {
                map_.joins[*flow.target] = true;
                reach(*flow.target);
            }
            if (flow.next && index + 1 < words_)
                reach(index + 1);
            indirect = indirect || is_indirect_branch(word);
            if (is_adr(word) || is_adrp(word)) {
                const word_relocation& relocation = map_.relocations[index];
                if (relocation.what == word_relocation::kind::none && is_adr(word)) {
                    take_address(static_cast<std::int64_t>(4 * index) + adr_displacement(word));
                    takes_own_address = true;
                } else if (relocation.what != word_relocation::kind::fits) {
                    takes_own_address = true;
                } else if (relocs_[relocation.index].name == name_) {
                    take_address(relocs_[relocation.index].addend);
                    takes_own_address = true;
                }
                holds_own_address |= std::uint32_t{1} << (word & 31);
            } else if ((word & 0xffe0ffff) == 0xaa0003fe) { // MOV X30, Xm
                moved_to_x30 |= std::uint32_t{1} << (word >> 16 & 31);
            }
            takes_own_address = takes_own_address || (flow.target && is_call(word));
        }
        constexpr std::uint32_t x30 = std::uint32_t{1} << 30;
        indirect = indirect || (holds_own_address & (x30 | moved_to_x30)) != 0; // RET goes there
        may_jump_ = indirect && takes_own_address;
        map_.any_entry = may_jump_;
    }

    void take_address(std::int64_t offset)
    {
        enter(offset, false);
        taken_.push_back(offset);
    }

    void set_data(std::size_t index)
    {
        if (map_.uses[index] == word_use::unknown)
            map_.uses[index] = word_use::data;
    }

    void find_data()
    {
        for (std::size_t i = 0; i < words_; ++i) {
            if (map_.uses[i] != word_use::code)
                continue;
            const std::optional<memory_access> literal = decode_literal_load(word_at(text_, i));
            if (!literal)
                continue;
            const std::int64_t first = static_cast<std::int64_t>(i) + literal->offset / 4;
            for (std::int64_t k = first; k < first + (literal->bytes + 3) / 4; ++k) {
                if (k >= 0 && k < static_cast<std::int64_t>(words_))
                    set_data(static_cast<std::size_t>(k));
            }
        }
        if (may_jump_)
            return; // it may be code that ADR gives the address of
        for (const std::int64_t offset : taken_) {
            if (offset < 0)
                continue;
            for (auto i = static_cast<std::size_t>(offset) / 4;
                 i < words_ && map_.uses[i] == word_use::unknown; ++i)
                set_data(i);
        }
    }

    const std::string& name_;
    const std::vector<std::uint8_t>& text_;
    const std::vector<tessjit::reloc_info>& relocs_;
    std::size_t words_;
    code_map map_;
    std::vector<std::size_t> pending_;
    std::vector<std::int64_t> taken_; // places whose address an ADR gives
    bool may_jump_ = false;
};

} // namespace

code_map map_code(const std::string& name, const std::vector<std::uint8_t>& text,
                  const std::vector<tessjit::reloc_info>& relocs, const std::vector<code_entry>& entries)
{
    if (text.size() > largest_followed_code)
        return {};
    return mapper(name, text, relocs).run(entries);
}

word_flow flow_of(const code_map& map, const std::vector<std::uint8_t>& text, std::size_t index)
{
    const std::uint32_t word = word_at(text, index);
    word_flow flow;
    flow.next = !never_falls_through(word);
    if (map.relocations[index].what != word_relocation::kind::none)
        return flow; // leads where the relocation says
    if (const std::optional<std::int64_t> displacement = branch_displacement(word)) {
        const std::int64_t target = static_cast<std::int64_t>(index) + *displacement / 4;
        if (target >= 0 && target < static_cast<std::int64_t>(map.uses.size()))
            flow.target = static_cast<std::size_t>(target);
    }
    return flow;
}

} // namespace vorna::workbench
