// Separates code from data by recursive traversal: follows control from the entries, through direct branches
// within the kernel and past calls. Every word that it reaches is code. Of the others, data are
//
//   - words that a literal load in this code reads, and
//   - words from an address that an ADR or ADRP forms up to the next code, unless an indirect branch may
//     lead there.
//
// The target of an indirect branch (BR, BLR, a RET whose register may hold an address of the kernel's own) is
// not followed. If the kernel has one and also takes an address of its own code (by ADR, ADRP or a local BL),
// any word may be entered.
//
// A word that LLVM cannot decode but whose encoding is in the branch group may be a branch of a later
// architecture. If control reaches one, any word may be entered as well.

#include "workbench/analysis/code_map.hpp"

#include <elf.h>
#include <utility>

namespace vorna::workbench {

namespace {

// BR, BLR and their variants, and a RET through another register than X30.
bool is_indirect_branch(const decoded_kernel& code, const instruction& instruction)
{
    if (instruction.flow == control_flow::exit)
        return opcode_name(instruction.opcode) == "RET" &&
               operands_of(code, instruction)[0].registers[0] != link_register;
    return instruction.flow == control_flow::jump || instruction.flow == control_flow::indirect_call;
}

class mapper {
public:
    mapper(const decoded_kernel& code, decoded_kernel* to_decode)
        : kernel_(*code.kernel), code_(code), to_decode_(to_decode), words_(code.instructions.size())
    {
        map_.uses.resize(words_);
        map_.leaders.resize(words_);
        map_.entries.resize(words_);
    }

    code_map run(const std::vector<code_entry>& entries)
    {
        enter(0, true);
        for (const code_entry& entry : entries)
            enter(entry.offset, entry.called);
        for (const tessjit::reloc_info& reloc : kernel_.relocs) {
            if (reloc.name == kernel_.name && reloc.addend != 0)
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
            if (to_decode_ != nullptr && !is_plain(code_.instructions[index].word))
                decode_instruction(*to_decode_, index);
        }
    }

    void enter(std::int64_t offset, bool surely)
    {
        if (offset < 0 || offset / 4 >= static_cast<std::int64_t>(words_))
            return;
        const auto index = static_cast<std::size_t>(offset / 4);
        map_.leaders[index] = map_.entries[index] = true;
        if (surely)
            reach(index);
    }

    void follow()
    {
        bool indirect = false;
        bool anywhere = false;
        bool takes_own_address = false;
        register_set holds_own_address; // at any point of the kernel
        register_set moved_to_x30;
        while (!pending_.empty()) {
            const std::size_t index = pending_.back();
            pending_.pop_back();
            const instruction& at = code_.instructions[index];
            const successors flow = successors_of(code_, index);
            if (flow.target) {
                map_.leaders[*flow.target] = true;
                reach(*flow.target);
            }
            if (flow.next && index + 1 < words_)
                reach(index + 1);
            anywhere = anywhere || at.flow == control_flow::anywhere;
            indirect = indirect || is_indirect_branch(code_, at);
            if (at.kind == instruction_kind::adr || at.kind == instruction_kind::adrp) {
                if (at.relocated == word_relocation::none && at.kind == instruction_kind::adr) {
                    take_address(static_cast<std::int64_t>(4 * index) + *at.pc_relative);
                    takes_own_address = true;
                } else if (at.relocated != word_relocation::fits) {
                    takes_own_address = true;
                } else if (kernel_.relocs[at.relocation].name == kernel_.name) {
                    take_address(kernel_.relocs[at.relocation].addend);
                    takes_own_address = true;
                }
                holds_own_address |= defs_of(code_, at);
            } else if (at.kind == instruction_kind::copy && register_sum_of(code_, at)->to == link_register) {
                moved_to_x30 |= uses_of(code_, at);
            }
            takes_own_address = takes_own_address || (flow.target && at.is_call());
        }
        // A RET may then lead into the kernel.
        indirect = indirect || holds_own_address[link_register] || (holds_own_address & moved_to_x30).any();
        may_jump_ = indirect && takes_own_address;
        map_.any_entry = may_jump_ || anywhere;
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
            const instruction& at = code_.instructions[i];
            if (!at.pc_relative || at.flow != control_flow::next)
                continue;
            const std::optional<memory_access> literal = memory_access_of(code_, at);
            if (!literal)
                continue;
            const std::int64_t first = static_cast<std::int64_t>(i) + literal->offset / 4;
            for (std::int64_t k = first; k < first + (literal->bytes + 3) / 4; ++k) {
                if (k >= 0 && k < static_cast<std::int64_t>(words_))
                    set_data(static_cast<std::size_t>(k));
            }
        }
        if (may_jump_)
            return; // the address that an ADR forms may be one of code
        for (const std::int64_t offset : taken_) {
            if (offset < 0)
                continue;
            for (auto i = static_cast<std::size_t>(offset) / 4;
                 i < words_ && map_.uses[i] == word_use::unknown; ++i)
                set_data(i);
        }
    }

    const placed_kernel& kernel_;
    const decoded_kernel& code_;
    decoded_kernel* to_decode_; // the same, if its words are still to be decoded
    std::size_t words_;
    code_map map_;
    std::vector<std::size_t> pending_;
    std::vector<std::int64_t> taken_; // offsets whose address an ADR forms
    bool may_jump_ = false;
};

} // namespace

std::vector<code_entry> find_entries(const kernel_set& set, const placed_kernel& kernel)
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

code_map map_code(const decoded_kernel& code, const std::vector<code_entry>& entries)
{
    return mapper(code, nullptr).run(entries);
}

code_map decode_and_map(decoded_kernel& code, const std::vector<code_entry>& entries)
{
    return mapper(code, &code).run(entries);
}

void decode_reached(decoded_kernel& code, const code_map& map)
{
    for (std::size_t i = 0; i < map.uses.size(); ++i) {
        if (map.uses[i] == word_use::code)
            decode_instruction(code, i);
    }
}

successors successors_of(const decoded_kernel& code, std::size_t index)
{
    const instruction& at = code.instructions[index];
    successors found;
    found.next = !at.is_barrier();
    if (at.relocated != word_relocation::none || !at.pc_relative || at.flow == control_flow::next)
        return found; // the target is the relocation's
    const std::int64_t target = static_cast<std::int64_t>(index) + *at.pc_relative / 4;
    if (target >= 0 && target < static_cast<std::int64_t>(code.instructions.size()))
        found.target = static_cast<std::size_t>(target);
    return found;
}

std::vector<basic_block> find_blocks(const decoded_kernel& code, const code_map& map, std::size_t most)
{
    const std::size_t words = code.instructions.size();
    std::vector<basic_block> blocks;
    std::vector<std::uint32_t> block_of(words);
    const auto is_code = [&](std::size_t i) { return i < words && map.uses[i] == word_use::code; };
    const auto ends = [&](std::size_t i) {
        return code.instructions[i].is_barrier() || code.instructions[i].flow == control_flow::conditional;
    };
    for (std::size_t i = 0; i < words; ++i) {
        if (!is_code(i))
            continue;
        if (i == 0 || map.leaders[i] || !is_code(i - 1) || ends(i - 1)) {
            if (blocks.size() == most)
                return {};
            blocks.emplace_back();
            blocks.back().begin = i;
        }
        block_of[i] = static_cast<std::uint32_t>(blocks.size() - 1);
        blocks.back().end = i + 1;
    }
    for (std::uint32_t number = 0; number < blocks.size(); ++number) {
        const std::size_t last = blocks[number].end - 1;
        const successors flow = successors_of(code, last);
        const auto connect = [&](std::size_t to) {
            blocks[number].after.push_back(block_of[to]);
            blocks[block_of[to]].before.push_back(number);
        };
        const bool branches = flow.target && !code.instructions[last].is_call();
        if (branches)
            connect(*flow.target);
        if (flow.next && is_code(last + 1) && !(branches && *flow.target == last + 1))
            connect(last + 1);
    }
    return blocks;
}

} // namespace vorna::workbench
