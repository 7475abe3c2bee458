// A forward data-flow analysis over the basic blocks. The value of a general register is one of
//
//   unknown    anything
//   somewhere  possibly an address in or near the kernel's own data or code
//   address    a relocation's target plus a displacement
//   page       the page of a relocation's target, plus a displacement (an ADRP without its ADD)
//   number     a constant
//
// Where paths join, values that differ become "somewhere" if one of them may be the kernel's own address,
// otherwise "unknown". A block is processed again when its state on entry changes. Values only ever lose
// information, a few times for each register, so the time is proportional to the code.
//
// A second pass walks each block once with its final state and records its loads and stores. A loop that
// consists of one block is walked once more with the state on entry to the loop, that is, without its back
// edge: this gives the first address and the stride of each access, and from the counter (CBNZ, or SUBS and
// B.NE) the number of iterations.

#include "workbench/analysis/address_tracking.hpp"

#include <algorithm>
#include <array>
#include <elf.h>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace vorna::workbench {

namespace {

using std::int64_t;
using std::size_t;
using std::uint32_t;
using std::uint64_t;
using std::uint8_t;

// What a register holds.
struct register_value {
    enum class kind : uint8_t {
        unknown,
        somewhere, // possibly an address in or near the kernel's own data or code
        address,   // `displacement` bytes from the target of a relocation
        page,      // `displacement` bytes from the page of a relocation's target and addend
        number     // `displacement`
    } what = kind::unknown;
    // In a loop: the register whose value on entry to the loop this is, plus a constant.
    std::optional<register_id> origin = std::nullopt;
    uint32_t source = 0; // index of the relocation plus 1; 0 for an ADR of the kernel's own code
    int64_t displacement = 0;
};

using kind = register_value::kind;

constexpr unsigned registers = 32; // X0 to X30, and SP

struct known_register {
    uint8_t number;
    register_value value;
};

// The known registers at the beginning of a block.
struct block_state {
    bool reached = false;
    std::vector<known_register> known;
};

struct block {
    size_t begin;
    block_state all;         // on all paths
    block_state from_before; // on paths without back edges
    size_t back_edges = 0;
    size_t back_from = 0; // word of the last back edge
    bool pending = false;
};

// Whether a relocation's target is the kernel or its data.
bool names_own(const placed_kernel& kernel, std::string_view target)
{
    return target == kernel.name || (names_data(target) && target.substr(data_prefix.size()) == kernel.name);
}

class tracker {
public:
    tracker(const decoded_kernel& code, decoded_kernel* to_decode, const code_map& map,
            const target_address& address_of)
        : kernel_(*code.kernel), relocs_(kernel_.relocs), code_(code), to_decode_(to_decode), map_(map),
          address_of_(address_of)
    {
        // Equal targets get equal numbers; the kernel's own code is number 0.
        std::unordered_map<std::string_view, uint32_t> numbers{{kernel_.name, 0}};
        targets_.push_back(0);
        for (const tessjit::reloc_info& reloc : relocs_) {
            targets_.push_back(
                numbers.try_emplace(reloc.name, static_cast<uint32_t>(numbers.size())).first->second);
            own_.push_back(names_own(kernel_, reloc.name));
        }
    }

    known_addresses run()
    {
        if (!make_blocks())
            return {};
        follow();
        for (block& b : blocks_) {
            if (!b.all.reached)
                continue;
            load(b.all);
            for (size_t i = b.begin; i < map_.uses.size(); ++i) {
                look_at_access(i);
                step(i);
                if (ends(i))
                    break;
            }
            if (b.back_edges == 1)
                look_at_loop(b);
        }
        std::stable_sort(found_.accesses.begin(), found_.accesses.end(),
                         [](const known_access& a, const known_access& b) { return a.offset < b.offset; });
        return std::move(found_);
    }

private:
    // Blocks.

    bool make_blocks()
    {
        const size_t words = map_.uses.size();
        block_of_.assign(words, no_block);
        for (size_t i = 0; i < words; ++i) {
            if (!map_.leaders[i] || map_.uses[i] != word_use::code)
                continue;
            if (blocks_.size() == most_followed_blocks)
                return false;
            block_of_[i] = static_cast<uint32_t>(blocks_.size());
            blocks_.push_back({});
            blocks_.back().begin = i;
        }
        return true;
    }

    // Whether the word is the last of its block.
    [[nodiscard]] bool ends(size_t index) const
    {
        return index + 1 == map_.uses.size() || block_of_[index + 1] != no_block ||
               code_.instructions[index].is_barrier();
    }

    void follow()
    {
        for (size_t i = blocks_.size(); i-- > 0;) {
            if (map_.entries[blocks_[i].begin])
                meet_into(blocks_[i].begin, true, 0);
        }
        while (!pending_.empty()) {
            const size_t number = pending_.back();
            pending_.pop_back();
            blocks_[number].pending = false;
            load(blocks_[number].all);
            for (size_t i = blocks_[number].begin; i < map_.uses.size(); ++i) {
                const successors flow = successors_of(code_, i);
                step(i);
                if (flow.target)
                    flow_to(*flow.target, i);
                if (flow.next && i + 1 < map_.uses.size() && block_of_[i + 1] != no_block)
                    flow_to(i + 1, i);
                if (ends(i))
                    break;
            }
        }
        for (size_t i = 0; i < map_.uses.size(); ++i) {
            const std::optional<size_t> leads_to = successors_of(code_, i).target;
            if (map_.uses[i] == word_use::code && leads_to && *leads_to <= i) {
                block& target = blocks_[block_of_[*leads_to]];
                ++target.back_edges;
                target.back_from = i;
            }
        }
    }

    void flow_to(size_t index, size_t from) { meet_into(index, false, from); }

    void meet_into(size_t index, bool entry, size_t from)
    {
        block& target = blocks_[block_of_[index]];
        if (entry || from < index)
            meet(target.from_before, entry);
        if (meet(target.all, entry) && !target.pending) {
            target.pending = true;
            pending_.push_back(block_of_[index]);
        }
    }

    // Merges the registers, or with `with_nothing` a state in which all are unknown, into a block's state.
    // Returns whether it changed.
    bool meet(block_state& state, bool with_nothing)
    {
        if (!state.reached) {
            state.reached = true;
            for (unsigned r = 0; r < registers && !with_nothing; ++r) {
                if (known_[r])
                    state.known.push_back({static_cast<uint8_t>(r), registers_[r]});
            }
            return true;
        }
        bool changed = false;
        std::bitset<registers> listed;
        const auto disagrees = [&](known_register& known) {
            const register_value here = with_nothing ? register_value{} : get(known.number);
            const kind met = meet_kind(known.value, here);
            changed = changed || met != known.value.what;
            known.value.what = met;
            listed.set(known.number);
            return met == kind::unknown;
        };
        std::erase_if(state.known, disagrees);
        for (unsigned r = 0; r < registers && !with_nothing; ++r) {
            if (known_[r] && !listed[r] && is_own(registers_[r])) {
                state.known.push_back({static_cast<uint8_t>(r), {kind::somewhere}});
                changed = true;
            }
        }
        return changed;
    }

    [[nodiscard]] kind meet_kind(const register_value& a, const register_value& b) const
    {
        if (a.what == b.what && (a.what == kind::unknown || a.what == kind::somewhere))
            return a.what;
        const auto same_source = [&] {
            return a.what == kind::number ||
                   (targets_[a.source] == targets_[b.source] &&
                    (a.what != kind::page || relocs_[a.source - 1].addend == relocs_[b.source - 1].addend));
        };
        if (a.what == b.what && a.displacement == b.displacement && same_source())
            return a.what;
        return is_own(a) || is_own(b) ? kind::somewhere : kind::unknown;
    }

    [[nodiscard]] bool is_own(const register_value& value) const
    {
        if (value.what == kind::somewhere)
            return true;
        return (value.what == kind::address || value.what == kind::page) &&
               (value.source == 0 || own_[value.source - 1]);
    }

    // Registers.

    void load(const block_state& state)
    {
        known_.reset();
        for (const known_register& known : state.known)
            set(known.number, known.value);
    }

    void set(register_id number, const register_value& value)
    {
        if (!is_general(number))
            return;
        known_.set(number, value.what != kind::unknown);
        registers_[number] = value;
    }

    void forget(register_id first, register_id last)
    {
        for (unsigned r = first; r <= last; ++r)
            known_.reset(r);
    }

    [[nodiscard]] register_value get(register_id number) const
    {
        if (number == zero_register)
            return {kind::number};
        return is_general(number) && known_[number] ? registers_[number] : register_value{};
    }

    void decode(size_t index)
    {
        if (to_decode_ != nullptr)
            decode_instruction(*to_decode_, index);
    }

    void step(size_t index)
    {
        const instruction& at = code_.instructions[index];
        const bool relocated = at.relocated == word_relocation::fits;
        if (known_.none() && !relocated && at.kind == instruction_kind::other)
            return;
        decode(index);
        if (at.relocated == word_relocation::unclear || !at.decoded) {
            known_.reset();
            return;
        }
        if (at.is_call()) {
            call(index);
            return;
        }
        if (const register_and_value result =
                relocated ? computed_with(relocs_[at.relocation], at) : computed(at, index)) {
            set(result->first, result->second);
            return;
        }
        if (!tells_general_defs(at)) {
            known_.reset();
            return;
        }
        const register_set defs = defs_of(code_, at);
        // A value computed from an address of the kernel's own may be one.
        register_value result;
        if (!at.may_load && !at.may_store && at.modelled && uses_own(at))
            result.what = kind::somewhere;
        std::optional<std::pair<register_id, register_value>> writeback;
        if (const std::optional<memory_access> access = access_at(index); access && defs[access->base])
            writeback = {access->base, moved_base(*access)};
        for (unsigned r = 0; r < registers; ++r) {
            if (defs[r])
                set(static_cast<register_id>(r), result);
        }
        if (writeback)
            set(writeback->first, writeback->second);
    }

    void call(size_t index)
    {
        const instruction& at = code_.instructions[index];
        const bool within = successors_of(code_, index).target.has_value();
        const bool own =
            within || (at.relocated == word_relocation::fits && relocs_[at.relocation].name == kernel_.name &&
                       relocs_[at.relocation].addend != 0);
        if (own) { // a local subroutine need not follow the AAPCS64
            known_.reset();
            return;
        }
        forget(general_register(0), general_register(18));
        forget(link_register, link_register);
    }

    // Whether the instruction uses a register that may hold an address of the kernel's own.
    [[nodiscard]] bool uses_own(const instruction& at) const
    {
        const register_set uses = uses_of(code_, at);
        for (unsigned r = 0; r < registers; ++r) {
            if (uses[r] && is_own(get(static_cast<register_id>(r))))
                return true;
        }
        return false;
    }

    // The base register after an access with writeback.
    [[nodiscard]] register_value moved_base(const memory_access& access) const
    {
        const register_value base = get(access.base);
        if (access.addressing == addressing_mode::pre_index ||
            access.addressing == addressing_mode::post_index)
            return sum(base, access.offset, true);
        return is_own(base) ? register_value{kind::somewhere} : register_value{};
    }

    using register_and_value = std::optional<std::pair<register_id, register_value>>;

    [[nodiscard]] register_and_value computed_with(const tessjit::reloc_info& reloc,
                                                   const instruction& at) const
    {
        if (at.kind != instruction_kind::adr && at.kind != instruction_kind::adrp &&
            at.kind != instruction_kind::add_constant)
            return std::nullopt;
        const operand_range operands = operands_of(code_, at);
        const register_id to = operands[0].registers[0];
        const auto source = static_cast<uint32_t>(at.relocation + 1);
        if (at.kind == instruction_kind::adr)
            return std::pair{to, register_value{kind::address, std::nullopt, source, reloc.addend}};
        if (at.kind == instruction_kind::adrp)
            return std::pair{to, register_value{kind::page, std::nullopt, source, 0}};
        const register_sum added = *register_sum_of(code_, at);
        const register_value page = get(added.from);
        if (!added.wide || page.what != kind::page)
            return std::pair{to, register_value{}};
        const tessjit::reloc_info& high = relocs_[page.source - 1];
        if (targets_[page.source] == targets_[source] && high.addend == reloc.addend)
            return std::pair{to, register_value{kind::address, page.origin, page.source,
                                                reloc.addend + page.displacement}};
        // The ADD has another target in the page: known if both addresses are.
        const std::optional<uint64_t> target = address_of(page.source);
        const std::optional<uint64_t> low = address_of(source);
        if (!target || !low)
            return std::pair{to, register_value{}};
        const uint64_t begin = (*target + static_cast<uint64_t>(int64_t{high.addend})) & ~uint64_t{0xfff};
        const uint64_t in_page = (*low + static_cast<uint64_t>(int64_t{reloc.addend})) & 0xfff;
        return std::pair{to,
                         register_value{kind::address, page.origin, page.source,
                                        static_cast<int64_t>(begin + in_page - *target) + page.displacement}};
    }

    [[nodiscard]] register_and_value computed(const instruction& at, size_t index) const
    {
        if (at.kind == instruction_kind::adr) {
            return std::pair{operands_of(code_, at)[0].registers[0],
                             register_value{kind::address, std::nullopt, 0,
                                            static_cast<int64_t>(4 * index) + *at.pc_relative}};
        }
        if (const std::optional<register_sum> added = register_sum_of(code_, at))
            return std::pair{added->to, sum(get(added->from), added->constant, added->wide)};
        if (const std::optional<register_number> number = register_number_of(code_, at)) {
            register_value value = number->kept == 0 ? register_value{kind::number} : get(number->to);
            if (is_own(value))
                return std::pair{number->to, register_value{kind::somewhere}};
            if (value.what != kind::number)
                return std::pair{number->to, register_value{}};
            value.displacement = static_cast<int64_t>(
                (static_cast<uint64_t>(value.displacement) & number->kept) | number->value);
            value.origin.reset();
            return std::pair{number->to, value};
        }
        return std::nullopt;
    }

    // The value plus a constant, truncated to 32 bits unless `wide`.
    static register_value sum(register_value value, int64_t constant, bool wide)
    {
        const auto whole = static_cast<uint64_t>(value.displacement) + static_cast<uint64_t>(constant);
        if (!wide && value.what != kind::number)
            return {};
        value.displacement = static_cast<int64_t>(wide ? whole : whole & 0xffffffff);
        return value;
    }

    // Accesses.

    [[nodiscard]] std::optional<uint64_t> address_of(uint32_t source) const
    {
        if (!address_of_)
            return std::nullopt;
        if (source != asked_) {
            asked_ = source;
            answer_ = address_of_(source == 0 ? kernel_.name : relocs_[source - 1].name);
        }
        return answer_;
    }

    // The displacement of an access's first byte.
    [[nodiscard]] static int64_t first_byte(const memory_access& access, const register_value& base)
    {
        const bool after = access.addressing == addressing_mode::post_index ||
                           access.addressing == addressing_mode::post_register;
        return base.displacement + (after ? 0 : access.offset);
    }

    void look_at_access(size_t index)
    {
        if (known_.none())
            return;
        decode(index);
        const instruction& at = code_.instructions[index];
        const std::optional<memory_access> access = access_at(index);
        if (!access) {
            // SVE, DC ZVA and memory copies: the instruction does not state the size.
            if (at.relocated == word_relocation::none && (at.may_store || !at.modelled) && uses_own(at))
                somewhere_written_.push_back(4 * index);
            return;
        }
        const register_value base = get(access->base);
        const bool indexed = access->addressing == addressing_mode::register_index;
        const bool index_is_own = indexed && is_own(get(access->index));
        if (access->store && (index_is_own || (is_own(base) && (indexed || base.what == kind::somewhere))))
            somewhere_written_.push_back(4 * index);
        if (!indexed)
            add_access(index, *access, base, {});
    }

    // The memory access of an instruction, other than a literal load.
    [[nodiscard]] std::optional<memory_access> access_at(size_t index) const
    {
        const instruction& at = code_.instructions[index];
        if (at.relocated != word_relocation::none || at.pc_relative || !(at.may_load || at.may_store))
            return std::nullopt;
        return memory_access_of(code_, at);
    }

    void add_access(size_t index, const memory_access& access, const register_value& base,
                    std::optional<address_walk> walk)
    {
        if (base.what != kind::address && base.what != kind::page)
            return;
        const int64_t displacement = first_byte(access, base);
        known_access found{4 * index, access, std::nullopt, {}, {}, base.what == kind::page, walk};
        if (base.source != 0)
            found.relocation = base.source - 1;
        const std::optional<uint64_t> target = address_of(base.source);
        if (base.what == kind::address) {
            found.target_offset = displacement;
            if (target)
                found.address = *target + static_cast<uint64_t>(displacement);
        } else if (target) {
            const auto addend = static_cast<uint64_t>(int64_t{relocs_[base.source - 1].addend});
            found.address = ((*target + addend) & ~uint64_t{0xfff}) + static_cast<uint64_t>(displacement);
            found.target_offset = static_cast<int64_t>(*found.address - *target);
        }
        found_.accesses.push_back(found);
    }

    // Loops of one block.

    void look_at_loop(const block& head)
    {
        const size_t last = head.back_from;
        if (!head.from_before.reached || head.from_before.known.empty() || last < head.begin)
            return;
        for (size_t i = head.begin; i < last; ++i) {
            if (ends(i))
                return;
        }
        load(head.from_before);
        for (unsigned r = 0; r < registers; ++r)
            registers_[r].origin = static_cast<register_id>(r);
        const register_file at_entry = registers_;
        const std::bitset<registers> known_at_entry = known_;
        struct access_in_loop {
            size_t index;
            memory_access access;
            register_value base;
        };
        std::vector<access_in_loop> accesses;
        bool leaves_elsewhere = false;
        for (size_t i = head.begin; i <= last; ++i) {
            decode(i);
            const std::optional<memory_access> access = access_at(i);
            if (access && access->addressing != addressing_mode::register_index)
                accesses.push_back({i, *access, get(access->base)});
            const instruction& at = code_.instructions[i];
            leaves_elsewhere = leaves_elsewhere || (i != last && at.is_terminator() && !at.is_call());
            step(i);
        }
        // A register's increment in one iteration, if it still depends on its value on entry only.
        const auto moved = [&](std::optional<register_id> r) -> std::optional<int64_t> {
            if (!r || !known_at_entry[*r])
                return std::nullopt;
            const register_value now = get(*r);
            const register_value& before = at_entry[*r];
            if (now.origin != r || now.what != before.what || now.source != before.source)
                return std::nullopt;
            return static_cast<int64_t>(static_cast<uint64_t>(now.displacement) -
                                        static_cast<uint64_t>(before.displacement));
        };
        std::optional<uint64_t> iterations;
        if (!leaves_elsewhere) {
            if (const std::optional<register_id> counter = counter_of(head.begin, last);
                counter && known_at_entry[*counter])
                iterations = iterations_of(at_entry[*counter], moved(counter));
        }
        for (const access_in_loop& in : accesses) {
            const std::optional<int64_t> stride = moved(in.base.origin);
            if (in.base.what != kind::unknown && stride.value_or(0) != 0)
                add_access(in.index, in.access, in.base, address_walk{*stride, iterations});
        }
    }

    // The register that the loop counts down to zero.
    [[nodiscard]] std::optional<register_id> counter_of(size_t first, size_t last) const
    {
        const instruction& branch = code_.instructions[last];
        if (branch.flow != control_flow::conditional)
            return std::nullopt;
        const operand_range operands = operands_of(code_, branch);
        const std::string_view opcode = opcode_name(branch.opcode);
        if ((opcode == "CBNZX" || opcode == "CBNZW") && is_general(operands[0].registers[0]))
            return operands[0].registers[0];
        constexpr int64_t not_equal = 1;
        if (opcode != "Bcc" || operands[0].immediate != not_equal || last == first)
            return std::nullopt;
        const instruction& before = code_.instructions[last - 1];
        const std::optional<register_sum> counts = register_sum_of(code_, before);
        if (before.relocated == word_relocation::none && counts && counts->sets_flags &&
            counts->constant <= 0 && counts->to == counts->from)
            return counts->to;
        return std::nullopt;
    }

    static std::optional<uint64_t> iterations_of(const register_value& counter, std::optional<int64_t> moved)
    {
        constexpr int64_t limit = int64_t{1} << 31; // below it, W and X counters behave alike
        const int64_t count = counter.displacement;
        if (!moved || counter.what != kind::number || count <= 0 || count >= limit || *moved >= 0 ||
            *moved <= -limit || count % -*moved != 0)
            return std::nullopt;
        return static_cast<uint64_t>(count / -*moved);
    }

public:
    // Offsets of stores to unknown addresses in the kernel's own data or code.
    [[nodiscard]] const std::vector<size_t>& somewhere_written() const { return somewhere_written_; }

private:
    using register_file = std::array<register_value, registers>;
    static constexpr uint32_t no_block = ~uint32_t{0};

    const placed_kernel& kernel_;
    const std::vector<tessjit::reloc_info>& relocs_;
    const decoded_kernel& code_;
    decoded_kernel* to_decode_; // the same, if some of its words are still to be decoded
    const code_map& map_;
    const target_address& address_of_;
    std::vector<uint32_t> targets_; // by source
    std::vector<bool> own_;         // by relocation: whether its target is the kernel or its data
    std::vector<block> blocks_;
    std::vector<uint32_t> block_of_; // by the word that begins the block
    std::vector<size_t> pending_;
    register_file registers_;
    std::bitset<registers> known_; // those that are not unknown
    known_addresses found_;
    std::vector<size_t> somewhere_written_;
    mutable std::optional<uint32_t> asked_; // the source whose address is cached: most accesses have the same
    mutable std::optional<uint64_t> answer_;
};

} // namespace

known_addresses find_known_addresses(const decoded_kernel& code, const code_map& map,
                                     const target_address& address_of)
{
    if (map.any_entry) {
        known_addresses nothing;
        for (size_t i = 0; i < map.uses.size() && !nothing.writes_somewhere; ++i) {
            if (map.uses[i] != word_use::code || !code.instructions[i].may_store)
                continue;
            const std::optional<memory_access> access = memory_access_of(code, code.instructions[i]);
            nothing.writes_somewhere = !access || access->base != stack_pointer;
        }
        return nothing;
    }
    tracker tracker(code, nullptr, map, address_of);
    known_addresses found = tracker.run();
    // A store that walks through the data a known number of times writes to known addresses.
    for (const size_t offset : tracker.somewhere_written()) {
        const auto access = std::lower_bound(found.accesses.begin(), found.accesses.end(), offset,
                                             [](const known_access& a, size_t o) { return a.offset < o; });
        if (access == found.accesses.end() || access->offset != offset || !access->walk ||
            !access->walk->iterations)
            found.writes_somewhere = true;
    }
    return found;
}

std::vector<known_access> decode_and_find_accesses(decoded_kernel& code, const code_map& map,
                                                   const target_address& address_of)
{
    if (map.any_entry)
        return {};
    return tracker(code, &code, map, address_of).run().accesses;
}

std::vector<known_access> known_accesses(const decoded_kernel& code, const target_address& address_of)
{
    const std::vector<tessjit::reloc_info>& relocs = code.kernel->relocs;
    const bool has_addresses =
        std::any_of(relocs.begin(), relocs.end(), [](const tessjit::reloc_info& reloc) {
            return reloc.type == R_AARCH64_ADR_PREL_LO21 || reloc.type == R_AARCH64_ADR_PREL_PG_HI21;
        });
    if (!has_addresses)
        return {};
    std::vector<known_access> accesses = find_known_addresses(code, map_code(code, {}), address_of).accesses;
    std::erase_if(accesses, [](const known_access& access) { return access.walk || !access.relocation; });
    return accesses;
}

} // namespace vorna::workbench
