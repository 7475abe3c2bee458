// A forward data flow analysis: each register holds nothing that is known, or an address that an ADR, or an
// ADRP and an ADD, with relocations give, plus a number of bytes; or a number. Blocks begin where the code is
// joined. A block is walked again when less is known at its beginning than before, which can happen a few
// times for each register, so the time is in proportion to the code.
//
// A loop of one block is walked once more with what is known before it is entered, which shows by how much an
// address moves from turn to turn.

#include "workbench/analysis/known_addresses.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <elf.h>
#include <string_view>
#include <unordered_map>

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
        somewhere, // perhaps an address of the kernel's own data or code, or beside them
        address,   // `displacement` bytes from the target of a relocation
        page,      // the same from the page of a relocation's target and addend
        number     // `displacement`
    } what = kind::unknown;
    uint8_t origin =
        0; // in a loop: the register that held this, but for a number of bytes, when it was entered
    uint32_t source = 0; // the relocation, from 1; 0 for an ADR of the own code
    int64_t displacement = 0;
};

using kind = register_value::kind;

constexpr unsigned registers = 32; // 31 is SP
constexpr uint8_t no_origin = registers;

struct known_register {
    uint8_t number;
    register_value value;
};

// What is known at the beginning of a block.
struct block_state {
    bool reached = false;
    std::vector<known_register> known;
};

struct block {
    size_t begin;
    block_state all;         // by all ways
    block_state from_before; // by those that lead forward
    size_t ways_back = 0;
    size_t back_from = 0; // word of the last one
    bool pending = false;
};

uint32_t word_at(const std::vector<uint8_t>& text, size_t index)
{
    uint32_t word = 0;
    std::memcpy(&word, text.data() + 4 * index, sizeof word);
    return word;
}

// Whether a word may be anything but followed by the next one: told fast, since most are not. Branches,
// exceptions and system instructions, and UDF.
bool may_branch(uint32_t word)
{
    return (word >> 26 & 7) == 5 || word >> 16 == 0;
}

constexpr std::string_view data_prefix = ".rodata.";

class tracker {
public:
    tracker(const code_map& map, const std::string& name, const std::vector<uint8_t>& text,
            const std::vector<tessjit::reloc_info>& relocs, const target_address& address_of)
        : map_(map), name_(name), text_(text), relocs_(relocs), address_of_(address_of)
    {
        // Targets are told apart by number, and the own code is number 0 whoever names it.
        std::unordered_map<std::string_view, uint32_t> numbers{{name, 0}};
        targets_.push_back(0);
        for (const tessjit::reloc_info& reloc : relocs) {
            targets_.push_back(
                numbers.try_emplace(reloc.name, static_cast<uint32_t>(numbers.size())).first->second);
            const std::string_view target = reloc.name;
            own_.push_back(target == name || (target.substr(0, data_prefix.size()) == data_prefix &&
                                              target.substr(data_prefix.size()) == name));
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
            if (b.ways_back == 1)
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
            if (!map_.joins[i] || map_.uses[i] != word_use::code)
                continue;
            if (blocks_.size() == most_followed_blocks)
                return false;
            block_of_[i] = static_cast<uint32_t>(blocks_.size());
            blocks_.push_back({});
            blocks_.back().begin = i;
        }
        return true;
    }

    [[nodiscard]] word_flow flow_at(size_t index) const
    {
        return may_branch(word_at(text_, index)) ? flow_of(map_, text_, index) : word_flow{true, {}};
    }

    // Whether the block that the word is in goes no further.
    [[nodiscard]] bool ends(size_t index) const
    {
        const uint32_t word = word_at(text_, index);
        return index + 1 == map_.uses.size() || block_of_[index + 1] != no_block ||
               (may_branch(word) && never_falls_through(word));
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
                const word_flow flow = flow_at(i);
                step(i, flow.target.has_value());
                if (flow.target)
                    flow_to(*flow.target, i);
                if (flow.next && i + 1 < map_.uses.size() && block_of_[i + 1] != no_block)
                    flow_to(i + 1, i);
                if (ends(i))
                    break;
            }
        }
        for (size_t i = 0; i < map_.uses.size(); ++i) {
            const word_flow flow = flow_at(i);
            if (map_.uses[i] == word_use::code && flow.target && *flow.target <= i) {
                block& target = blocks_[block_of_[*flow.target]];
                ++target.ways_back;
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

    // Leaves in the state what agrees with the registers, or with nothing, and what may be an address of the
    // kernel's own. Whether it has changed.
    bool meet(block_state& state, bool with_nothing)
    {
        if (!state.reached) {
            state.reached = true;
            for (unsigned r = 0; r < registers && !with_nothing; ++r) {
                if ((known_ >> r & 1) != 0)
                    state.known.push_back({static_cast<uint8_t>(r), registers_[r]});
            }
            return true;
        }
        bool changed = false;
        uint32_t listed = 0;
        const auto disagrees = [&](known_register& known) {
            const register_value here = with_nothing ? register_value{} : get(known.number);
            const kind met = meet_kind(known.value, here);
            changed = changed || met != known.value.what;
            known.value.what = met;
            listed |= uint32_t{1} << known.number;
            return met == kind::unknown;
        };
        state.known.erase(std::remove_if(state.known.begin(), state.known.end(), disagrees),
                          state.known.end());
        for (unsigned r = 0; r < registers && !with_nothing; ++r) {
            if ((known_ & ~listed & uint32_t{1} << r) != 0 && is_own(registers_[r])) {
                state.known.push_back({static_cast<uint8_t>(r), {kind::somewhere, no_origin, 0, 0}});
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

    static constexpr uint32_t every_register = ~uint32_t{0};

    void load(const block_state& state)
    {
        known_ = 0;
        for (const known_register& known : state.known)
            set(known.number, known.value);
    }

    void set(unsigned number, const register_value& value)
    {
        const uint32_t bit = uint32_t{1} << number;
        known_ = value.what == kind::unknown ? known_ & ~bit : known_ | bit;
        registers_[number] = value;
    }

    void forget(uint32_t which)
    {
        which &= known_;
        for (unsigned r = 0; which != 0; ++r, which >>= 1) {
            if ((which & 1) != 0)
                set(r, {});
        }
    }

    [[nodiscard]] register_value get(unsigned number) const
    {
        return (known_ >> number & 1) != 0 ? registers_[number] : register_value{};
    }

    void step(size_t index) { step(index, flow_at(index).target.has_value()); }

    void step(size_t index, bool within)
    {
        const uint32_t word = word_at(text_, index);
        const word_relocation& relocation = map_.relocations[index];
        if (relocation.what == word_relocation::kind::unclear) {
            forget(every_register);
            return;
        }
        const bool relocated = relocation.what == word_relocation::kind::fits;
        if (known_ == 0 && !relocated && !gives_value(word))
            return;
        if ((word >> 25 & 7) == 7 && (known_ >> (word & 31) & 1) == 0)
            return; // FP and SIMD, of which a general register is but a destination
        if (may_branch(word) && is_call(word)) {
            const bool own = within || (relocated && relocs_[relocation.index].name == name_ &&
                                        relocs_[relocation.index].addend != 0);
            constexpr uint32_t changed_by_callee = 0x4007ffff; // X0 to X18, X30
            // A part of this kernel need not keep to the standard.
            forget(own ? every_register : changed_by_callee);
            return;
        }
        const register_and_value result =
            relocated ? computed_with(relocs_[relocation.index], relocation.index, word)
                      : computed(word, index);
        if (result) {
            set(result->first, result->second);
            return;
        }
        uint32_t written = written_registers(word);
        if (const std::optional<memory_access> access =
                (word & 0x0a000000) == 0x08000000 ? decode_memory_access(word) : std::nullopt) {
            const bool adds_constant = access->addressing == addressing_mode::pre_index ||
                                       access->addressing == addressing_mode::post_index;
            if (adds_constant && !loads_base(word, *access)) {
                written &= ~(uint32_t{1} << access->base);
                registers_[access->base] = sum(registers_[access->base], access->offset, true);
            } else if (access->addressing == addressing_mode::post_register && is_own(get(access->base))) {
                written &= ~(uint32_t{1} << access->base);
                registers_[access->base].what = kind::somewhere;
            }
        }
        forget(written);
    }

    static bool loads_base(uint32_t word, const memory_access& access)
    {
        const bool second_is_base = access.registers == 2 && (word >> 10 & 31) == access.base;
        return access.load && !access.fp_simd && (access.first_register == access.base || second_is_base);
    }

    // ADR, and MOV of a number: what makes something known where nothing was.
    static bool gives_value(uint32_t word)
    {
        return (word & 0x9f000000) == 0x10000000 || (word & 0x5f800000) == 0x52800000 ||
               (word & 0x7fffffe0) == 0x2a1f03e0;
    }

    using register_and_value = std::optional<std::pair<unsigned, register_value>>;

    [[nodiscard]] register_and_value computed_with(const tessjit::reloc_info& reloc, size_t index,
                                                   uint32_t word) const
    {
        const unsigned Rd = word & 31;
        const auto source = static_cast<uint32_t>(index + 1);
        if (reloc.type == R_AARCH64_ADR_PREL_LO21 && Rd != 31)
            return std::pair{Rd, register_value{kind::address, no_origin, source, reloc.addend}};
        if (reloc.type == R_AARCH64_ADR_PREL_PG_HI21 && Rd != 31)
            return std::pair{Rd, register_value{kind::page, no_origin, source, 0}};
        if (reloc.type != R_AARCH64_ADD_ABS_LO12_NC)
            return std::nullopt;
        const register_value page = get(word >> 5 & 31);
        if ((word & 0x80000000) == 0 || page.what != kind::page)
            return std::pair{Rd, register_value{}};
        const tessjit::reloc_info& high = relocs_[page.source - 1];
        if (targets_[page.source] == targets_[source] && high.addend == reloc.addend)
            return std::pair{Rd, register_value{kind::address, page.origin, page.source,
                                                reloc.addend + page.displacement}};
        // Another place in its page: known where both are placed.
        const std::optional<uint64_t> target = address_of(page.source);
        const std::optional<uint64_t> low = address_of(source);
        if (!target || !low)
            return std::pair{Rd, register_value{}};
        const uint64_t begin = (*target + static_cast<uint64_t>(int64_t{high.addend})) & ~uint64_t{0xfff};
        const uint64_t in_page = (*low + static_cast<uint64_t>(int64_t{reloc.addend})) & 0xfff;
        return std::pair{Rd,
                         register_value{kind::address, page.origin, page.source,
                                        static_cast<int64_t>(begin + in_page - *target) + page.displacement}};
    }

    [[nodiscard]] register_and_value computed(uint32_t word, size_t index) const
    {
        const unsigned Rd = word & 31;
        const unsigned Rn = word >> 5 & 31;
        const unsigned Rm = word >> 16 & 31;
        const bool wide = (word & 0x80000000) != 0;
        if ((word & 0x9f000000) == 0x10000000 && Rd != 31) { // ADR of the own code
            return std::pair{Rd, register_value{kind::address, no_origin, 0,
                                                static_cast<int64_t>(4 * index) + adr_displacement(word)}};
        }
        if ((word & 0x1f800000) == 0x11000000) { // ADD, SUB of a constant, with flags or without
            const bool flags = (word & 0x20000000) != 0;
            if (flags && Rd == 31)
                return std::nullopt;
            const int64_t constant = int64_t{word >> 10 & 0xfff} << ((word >> 22 & 1) * 12);
            return std::pair{Rd, sum(get(Rn), (word & 0x40000000) == 0 ? constant : -constant, wide)};
        }
        if ((word & 0x7fe0ffe0) == 0x2a0003e0 && Rd != 31) { // MOV
            if (Rm == 31)
                return std::pair{Rd, register_value{kind::number, no_origin, 0, 0}};
            return std::pair{Rd, sum(get(Rm), 0, wide)};
        }
        if ((word & 0x5f800000) == 0x52800000 && Rd != 31 && (wide || (word >> 22 & 1) == 0)) { // MOVZ, MOVK
            const unsigned shift = (word >> 21 & 3) * 16;
            const uint64_t part = uint64_t{word >> 5 & 0xffff} << shift;
            if ((word & 0x20000000) == 0)
                return std::pair{Rd, register_value{kind::number, no_origin, 0, static_cast<int64_t>(part)}};
            register_value value = get(Rd);
            if (is_own(value))
                return std::pair{Rd, register_value{kind::somewhere, no_origin, 0, 0}};
            if (value.what != kind::number)
                return std::pair{Rd, register_value{}};
            const uint64_t kept = static_cast<uint64_t>(value.displacement) & ~(uint64_t{0xffff} << shift);
            value.displacement = static_cast<int64_t>(wide ? kept | part : (kept | part) & 0xffffffff);
            value.origin = no_origin;
            return std::pair{Rd, value};
        }
        // What else is computed from such an address may be one.
        const bool adds_third = (word & 0x1f000000) == 0x1b000000; // MADD and its kind: Ra
        const bool keeps_bits = (word & 0x7f800000) == 0x33000000; // BFM
        if (instruction_class_of(word) == instruction_class::integer &&
            (is_own(get(Rn)) || is_own(get(Rm)) || (adds_third && is_own(get(word >> 10 & 31))) ||
             (keeps_bits && is_own(get(Rd))))) {
            const uint32_t written = written_registers(word);
            if ((written >> Rd & 1) != 0)
                return std::pair{Rd, register_value{kind::somewhere, no_origin, 0, 0}};
        }
        return std::nullopt;
    }

    // The value and a constant, of which 32 bits only are kept where the operation is not `wide`.
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
            answer_ = address_of_(source == 0 ? name_ : relocs_[source - 1].name);
        }
        return answer_;
    }

    // The base register's value where an access begins.
    [[nodiscard]] static int64_t first_byte(const memory_access& access, const register_value& base)
    {
        const bool after = access.addressing == addressing_mode::post_index ||
                           access.addressing == addressing_mode::post_register;
        return base.displacement + (after ? 0 : access.offset);
    }

    void look_at_access(size_t index)
    {
        const uint32_t word = word_at(text_, index);
        if (known_ != 0 && writes_through_own(word))
            somewhere_written_.push_back(4 * index);
        if (known_ == 0 || (word & 0x0a000000) != 0x08000000) // no load or store
            return;
        const std::optional<memory_access> access = access_at(index);
        if (!access)
            return;
        const register_value base = get(access->base);
        const bool indexed = access->addressing == addressing_mode::register_index;
        const bool index_is_own = indexed && is_own(get(word >> 16 & 31));
        if (access->store && (index_is_own || (is_own(base) && (indexed || base.what == kind::somewhere))))
            somewhere_written_.push_back(4 * index);
        if (!indexed)
            add_access(index, *access, base, {});
    }

    // Stores whose size is not in the word: SVE stores, DC ZVA and DC GZVA.
    [[nodiscard]] bool writes_through_own(uint32_t word) const
    {
        if ((word & 0xfe000000) == 0xe4000000)
            return is_own(get(word >> 5 & 31));
        const uint32_t operation = word & 0xffffffe0;
        return (operation == 0xd50b7420 || operation == 0xd50b7480) && is_own(get(word & 31));
    }

    [[nodiscard]] std::optional<memory_access> access_at(size_t index) const
    {
        return map_.relocations[index].what == word_relocation::kind::none
                   ? decode_memory_access(word_at(text_, index))
                   : std::nullopt;
    }

    void add_access(size_t index, const memory_access& access, const register_value& base,
                    std::optional<address_walk> walk)
    {
        if (base.what != kind::address && base.what != kind::page)
            return;
        const int64_t displacement = first_byte(access, base);
        known_access found{4 * index, access, base.source == 0 ? own_code : base.source - 1,
                           {},        {},     base.what == kind::page,
                           walk};
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
            registers_[r].origin = static_cast<uint8_t>(r);
        const register_file at_entry = registers_;
        const uint32_t known_at_entry = known_;
        struct access_in_loop {
            size_t index;
            memory_access access;
            register_value base;
        };
        std::vector<access_in_loop> accesses;
        bool leaves_elsewhere = false;
        for (size_t i = head.begin; i <= last; ++i) {
            const std::optional<memory_access> access = access_at(i);
            if (access && access->addressing != addressing_mode::register_index)
                accesses.push_back({i, *access, get(access->base)});
            const uint32_t word = word_at(text_, i);
            leaves_elsewhere = leaves_elsewhere || (i != last && ends_block(word) && !is_call(word));
            step(i);
        }
        // By how much a register has moved in one turn, where it has kept what it held.
        const auto moved = [&](unsigned r) -> std::optional<int64_t> {
            if (r == no_origin)
                return std::nullopt;
            const register_value now = get(r);
            if ((known_at_entry >> r & 1) == 0 || now.origin != r || now.what != at_entry[r].what ||
                now.source != at_entry[r].source)
                return std::nullopt;
            return static_cast<int64_t>(static_cast<uint64_t>(now.displacement) -
                                        static_cast<uint64_t>(at_entry[r].displacement));
        };
        std::optional<uint64_t> turns;
        if (!leaves_elsewhere) {
            if (const std::optional<unsigned> counter = counter_of(head.begin, last))
                turns = turns_of(at_entry[*counter], moved(*counter));
        }
        for (const access_in_loop& in : accesses) {
            const std::optional<int64_t> stride = moved(in.base.origin);
            if (in.base.what != kind::unknown && stride.value_or(0) != 0)
                add_access(in.index, in.access, in.base, address_walk{*stride, turns});
        }
    }

    // The register that the loop counts down to zero.
    [[nodiscard]] std::optional<unsigned> counter_of(size_t first, size_t last) const
    {
        const uint32_t word = word_at(text_, last);
        if ((word & 0x7f000000) == 0x35000000 && (word & 31) != 31) // CBNZ
            return word & 31;
        if ((word & 0xff00001f) == 0x54000001 && last > first) { // B.NE
            const uint32_t before = word_at(text_, last - 1);
            const unsigned Rd = before & 31;
            if ((before & 0x7f800000) == 0x71000000 && Rd == (before >> 5 & 31) && Rd != 31 &&
                map_.relocations[last - 1].what == word_relocation::kind::none) // SUBS
                return Rd;
        }
        return std::nullopt;
    }

    static std::optional<uint64_t> turns_of(const register_value& counter, std::optional<int64_t> moved)
    {
        constexpr int64_t limit = int64_t{1} << 31; // below, 32 bits and 64 bits count alike
        const int64_t count = counter.displacement;
        if (!moved || counter.what != kind::number || count <= 0 || count >= limit || *moved >= 0 ||
            *moved <= -limit || count % -*moved != 0)
            return std::nullopt;
        return static_cast<uint64_t>(count / -*moved);
    }

public:
    // Offsets of stores to the own data whose address is not known.
    [[nodiscard]] const std::vector<size_t>& somewhere_written() const { return somewhere_written_; }

private:
    using register_file = std::array<register_value, registers>;
    static constexpr uint32_t no_block = ~uint32_t{0};

    const code_map& map_;
    const std::string& name_;
    const std::vector<uint8_t>& text_;
    const std::vector<tessjit::reloc_info>& relocs_;
    const target_address& address_of_;
    std::vector<uint32_t> targets_; // by source
    std::vector<bool> own_;         // by relocation: whether its target is the kernel or its data
    std::vector<block> blocks_;
    std::vector<uint32_t> block_of_; // of each word that begins one
    std::vector<size_t> pending_;
    register_file registers_;
    uint32_t known_ = 0; // of which something is known
    known_addresses found_;
    std::vector<size_t> somewhere_written_;
    mutable uint32_t asked_ = ~uint32_t{0}; // for the address of which source, most accesses being of one
    mutable std::optional<uint64_t> answer_;
};

} // namespace

known_addresses find_known_addresses(const code_map& map, const std::string& name,
                                     const std::vector<std::uint8_t>& text,
                                     const std::vector<tessjit::reloc_info>& relocs,
                                     const target_address& address_of)
{
    if (map.any_entry) {
        known_addresses nothing;
        for (std::size_t i = 0; i < map.uses.size() && !nothing.writes_somewhere; ++i) {
            const std::optional<memory_access> access = decode_memory_access(word_at(text, i));
            nothing.writes_somewhere =
                map.uses[i] == word_use::code && access && access->store && access->base != 31;
        }
        return nothing;
    }
    tracker tracker(map, name, text, relocs, address_of);
    known_addresses found = tracker.run();
    // Of a store that walks through the data a certain number of times it is known where.
    for (const size_t offset : tracker.somewhere_written()) {
        const auto access = std::lower_bound(found.accesses.begin(), found.accesses.end(), offset,
                                             [](const known_access& a, size_t o) { return a.offset < o; });
        if (access == found.accesses.end() || access->offset != offset || !access->walk ||
            !access->walk->turns)
            found.writes_somewhere = true;
    }
    return found;
}

std::vector<known_access> known_accesses(const std::string& name, const std::vector<std::uint8_t>& text,
                                         const std::vector<tessjit::reloc_info>& relocs,
                                         const target_address& address_of)
{
    const bool has_addresses =
        std::any_of(relocs.begin(), relocs.end(), [](const tessjit::reloc_info& reloc) {
            return reloc.type == R_AARCH64_ADR_PREL_LO21 || reloc.type == R_AARCH64_ADR_PREL_PG_HI21;
        });
    if (!has_addresses)
        return {};
    std::vector<known_access> accesses =
        find_known_addresses(map_code(name, text, relocs, {}), name, text, relocs, address_of).accesses;
    accesses.erase(std::remove_if(accesses.begin(), accesses.end(),
                                  [](const known_access& access) {
                                      return access.walk.has_value() || access.relocation == own_code;
                                  }),
                   accesses.end());
    return accesses;
}

} // namespace vorna::workbench
