// Two kernels are followed in lockstep: word by word the same instruction, apart from registers and from
// offsets into the constants. What is carried along is a relation between registers of the one and of the
// other: which hold the same value ("equal"), which hold addresses of the kernel's own constants or code at
// places known in both, and which a call has clobbered. It maps each register to at most one, and back.
//
//   - On entry each register equals the one of its name. Where ways meet, what they agree on is kept.
//   - An instruction must read equal registers, position by position, and have the same immediates and
//     relocations. What it writes is then equal; what the registers were before is forgotten on both sides.
//   - An address of constants at place p in the one and q in the other may be moved, added to, and loaded
//     through, if the bytes at p and at q are the same: what is loaded is then equal. Any other use of it is
//     a doubt. If constants and relocations are the same in both, it is a value like any other. An address
//     of the own code may always only be loaded through.
//   - A call must get equal arguments in the registers of the AAPCS64; one that an earlier call clobbered is
//     not an argument. After it the results are equal, preserved registers are related as before, and the
//     others may not be read.
//   - When the kernel returns, results and preserved registers must be equal, each to the one of its name. A
//     RET counts as a tail call, which gets arguments and X30, unless its address is known to be the
//     caller's: kept in registers, or in the frame while SP changes by numbers only.
//   - An instruction of which it is not known what it reads and writes must find all registers as they were
//     on entry: each equal to the one of its name.
//
// Since memory starts the same and each store stores equal values at equal addresses, equal registers are
// all that there is to prove; "equal" is meant for kernels placed at the same address. The relation is
// followed from the entry with what is known so far, until nothing changes. It only ever shrinks, so what
// fails on the way would fail in the end: the first doubt ends it.

#include "workbench/analysis/equivalence.hpp"

#include "check/relocation.hpp"
#include "workbench/analysis/canonical_code.hpp"
#include "workbench/analysis/known_addresses.hpp"
#include "workbench/disasm/a64.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/render/listing.hpp"

#include <algorithm>
#include <array>
#include <elf.h>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace vorna::workbench {

loaded_constants find_loaded_constants(const placed_kernel& kernel)
{
    loaded_constants constants;
    for (const known_access& access : known_accesses(kernel.name, kernel.text, kernel.relocs)) {
        const bool in_data =
            access.target_offset && *access.target_offset >= 0 &&
            is_own_data(kernel.name, kernel.relocs[access.relocation].name) &&
            static_cast<std::uint64_t>(*access.target_offset) + access.access.bytes <= kernel.data.size();
        if (in_data && access.access.load && !access.access.store) {
            const auto begin = kernel.data.begin() + static_cast<std::ptrdiff_t>(*access.target_offset);
            constants[access.offset / 4].assign(begin, begin + access.access.bytes);
        }
    }
    return constants;
}
namespace {

enum class relation : std::uint8_t {
    none,
    equal,
    low_half,  // the low 64 bits of two vector registers are equal
    address,   // of the own constants or code, at known places
    page,      // what ADRP makes of such an address
    clobbered, // by a call
};

// What a register of the one kernel has to do with a register of the other.
struct link {
    relation kind = relation::none;
    register_id partner = 0;
    bool in_code = false;    // of addresses: of the kernel's code, otherwise of its constants
    std::int64_t before = 0; // the places
    std::int64_t after = 0;
    bool returns = false; // of equal values: the address to return to

    [[nodiscard]] bool is_address() const { return kind == relation::address || kind == relation::page; }
    friend bool operator==(const link& a, const link& b)
    {
        return std::tie(a.kind, a.partner, a.in_code, a.before, a.after, a.returns) ==
               std::tie(b.kind, b.partner, b.in_code, b.before, b.after, b.returns);
    }
};

// The stack, of both kernels, as far as return addresses are kept there.
struct stack_frame {
    std::optional<std::int64_t> sp = 0; // its distance from where it was on entry
    std::set<std::int64_t> returns;     // such distances of 8 bytes that hold the address to return to

    void move_sp(std::optional<std::int64_t> to)
    {
        sp = to;
        if (to)
            returns.erase(returns.begin(), returns.lower_bound(*to));
        else
            returns.clear();
    }
    void overwrite(std::int64_t begin, std::int64_t bytes)
    {
        returns.erase(returns.lower_bound(begin - 7), returns.lower_bound(begin + bytes));
    }
    friend bool operator==(const stack_frame& a, const stack_frame& b)
    {
        return a.sp == b.sp && a.returns == b.returns;
    }
};

class register_relation {
public:
    stack_frame stack;

    register_relation() { partners_.fill(nobody); }

    static register_relation same_names()
    {
        register_relation made;
        for (std::size_t r = 0; r < register_count; ++r)
            made.relate(static_cast<register_id>(r), {relation::equal, static_cast<register_id>(r)});
        made.links_[link_register].returns = true;
        return made;
    }

    [[nodiscard]] const link& of(register_id before) const { return links_[before]; }

    void forget_before(register_id before)
    {
        if (links_[before].kind != relation::none)
            partners_[links_[before].partner] = nobody;
        links_[before] = {};
    }
    void forget_after(register_id after)
    {
        if (partners_[after] != nobody)
            links_[partners_[after]] = {};
        partners_[after] = nobody;
    }
    void relate(register_id before, const link& to)
    {
        forget_before(before);
        forget_after(to.partner);
        links_[before] = to;
        partners_[to.partner] = before;
    }

    void take_for_return_address(register_id before)
    {
        if (links_[before].kind == relation::equal)
            links_[before].returns = true;
    }

    [[nodiscard]] bool is_same_name(register_id r, relation kind = relation::equal) const
    {
        return links_[r].kind == kind && links_[r].partner == r;
    }
    [[nodiscard]] bool all_same_names() const
    {
        for (std::size_t r = 0; r < register_count; ++r) {
            if (!is_same_name(static_cast<register_id>(r)))
                return false;
        }
        return true;
    }

    // Keeps what both say; whether that is less than before.
    bool meet(const register_relation& other)
    {
        bool changed = false;
        for (std::size_t r = 0; r < register_count; ++r) {
            const auto before = static_cast<register_id>(r);
            const link& mine = links_[r];
            const link& theirs = other.links_[r];
            if (mine.kind == relation::none || mine == theirs)
                continue;
            const relation both = common(mine, theirs);
            const bool returns = mine.returns && theirs.returns;
            if (both == mine.kind && returns == mine.returns)
                continue;
            changed = true;
            if (both == relation::none) {
                forget_before(before);
            } else {
                links_[r].kind = both;
                links_[r].returns = returns;
            }
        }
        const stack_frame known = stack;
        if (stack.sp != other.stack.sp)
            stack.move_sp(std::nullopt);
        for (const std::int64_t slot : known.returns) {
            if (other.stack.returns.count(slot) == 0)
                stack.returns.erase(slot);
        }
        return changed || !(stack == known);
    }

private:
    static constexpr register_id nobody = 255;

    // Of links that differ.
    static relation common(const link& a, const link& b)
    {
        const auto either = [&](relation kind) { return a.kind == kind || b.kind == kind; };
        if (a.partner != b.partner || a.is_address() || b.is_address() || either(relation::none))
            return relation::none;
        if (a.kind == b.kind)
            return a.kind;
        if (either(relation::clobbered))
            return either(relation::low_half) ? relation::none : relation::clobbered;
        return relation::low_half;
    }

    std::array<link, register_count> links_;
    std::array<register_id, register_count> partners_{}; // of the other kernel's registers
};

// Registers with roles in the "Procedure Call Standard for the Arm 64-bit Architecture".
template <typename predicate>
bool all_of_range(register_id first, register_id last, predicate holds)
{
    for (unsigned r = first; r <= last; ++r) {
        if (!holds(static_cast<register_id>(r)))
            return false;
    }
    return true;
}

bool is_preserved_general(register_id r)
{
    return r >= general_register(19) && r <= general_register(29);
}
bool is_preserved_vector(register_id r)
{
    return r >= vector_register(8) && r <= vector_register(15);
}

bool arguments_are_equal(const register_relation& registers)
{
    const auto passed = [&](register_id r) {
        return registers.is_same_name(r) || registers.is_same_name(r, relation::clobbered);
    };
    return all_of_range(general_register(0), general_register(8), passed) &&
           all_of_range(vector_register(0), vector_register(7), passed) &&
           all_of_range(predicate_register(0), predicate_register(3), passed) &&
           registers.is_same_name(general_register(18)) && registers.is_same_name(stack_pointer);
}

bool preserved_are_equal(const register_relation& registers)
{
    const auto same = [&](register_id r) { return registers.is_same_name(r); };
    const auto same_half = [&](register_id r) {
        return registers.is_same_name(r) || registers.is_same_name(r, relation::low_half);
    };
    return all_of_range(general_register(18), general_register(29), same) && same(stack_pointer) &&
           all_of_range(vector_register(8), vector_register(15), same_half);
}

bool results_are_equal(const register_relation& registers)
{
    const auto same = [&](register_id r) { return registers.is_same_name(r); };
    return all_of_range(general_register(0), general_register(1), same) &&
           all_of_range(vector_register(0), vector_register(3), same);
}

register_relation after_call(const register_relation& registers)
{
    register_relation result;
    result.stack = registers.stack;
    for (unsigned i = 0; i < register_count; ++i) {
        const auto r = static_cast<register_id>(i);
        link now = registers.of(r);
        if (r == general_register(18) || r == stack_pointer) {
            result.relate(r, now);
        } else if (is_preserved_general(r)) {
            if (now.kind != relation::none && is_preserved_general(now.partner))
                result.relate(r, now);
        } else if (is_preserved_vector(r)) {
            if (now.kind != relation::none && is_preserved_vector(now.partner)) {
                now.kind = relation::low_half;
                result.relate(r, now);
            }
        } else {
            const bool is_result =
                r <= general_register(1) || (r >= vector_register(0) && r <= vector_register(3));
            result.relate(r, {is_result ? relation::equal : relation::clobbered, r});
        }
    }
    return result;
}

// Which difference is looked for.
enum class difference_of { layout, registers };

class lockstep {
public:
    lockstep(const placed_kernel& before, const placed_kernel& after, difference_of kind)
        : before_(before), after_(after), kind_(kind), a_(decode_kernel(before)), b_(decode_kernel(after))
    {
    }

    bool proves_equivalence(const std::vector<std::int64_t>& entries)
    {
        const std::size_t words = a_.instructions.size();
        const std::vector<bool> reached = reachable_words(a_, entries);
        if (words == 0 || !relocations_are_plain() || !others_are_equal(reached))
            return false;
        meet_at(0, register_relation::same_names());
        for (const std::int64_t entry : entries) {
            if (entry < 0 || entry >= static_cast<std::int64_t>(4 * words))
                continue; // not in this kernel
            if (entry % 4 != 0)
                return false;
            meet_at(static_cast<std::size_t>(entry) / 4, register_relation::same_names());
        }
        for (std::size_t i = 0; i < words; ++i) {
            const control_flow flow = a_.instructions[i].flow;
            const auto target = branch_target(a_, i);
            if (reached[i] && target && (flow == control_flow::branch || flow == control_flow::conditional))
                joins_[*target];
        }
        constexpr std::size_t most_visits = 64; // of each instruction on average
        std::size_t left = most_visits * words;
        while (!waiting_.empty()) {
            const std::size_t begin = waiting_.back();
            waiting_.pop_back();
            if (!follow(begin, left))
                return false;
        }
        return kind_ == difference_of::registers || loaded_constants_;
    }

private:
    using joins = std::unordered_map<std::size_t, std::optional<register_relation>>;

    // One on a word at most, and each one of an instruction that it belongs to, with nothing in its field.
    [[nodiscard]] bool relocations_are_plain() const
    {
        const auto plain = [](const placed_kernel& kernel, const decoded_kernel& code) {
            return std::all_of(kernel.relocs.begin(), kernel.relocs.end(), [&](const auto& reloc) {
                const wfta::relocation_kind* const kind = wfta::find_relocation_kind(reloc.type);
                if (kind == nullptr || reloc.offset % 4 != 0 || !lies_within(kernel.text, reloc.offset))
                    return false;
                const instruction& at = code.instructions[static_cast<std::size_t>(reloc.offset) / 4];
                const std::uint32_t field = kind->field_mask;
                return at.relocations == 1 && (at.word & kind->opcode_mask) == kind->opcode &&
                       (at.word & field) == 0;
            });
        };
        return plain(before_, a_) && plain(after_, b_);
    }

    // Words that control does not reach are data.
    [[nodiscard]] bool others_are_equal(const std::vector<bool>& reached) const
    {
        for (std::size_t i = 0; i < reached.size(); ++i) {
            const instruction& a = a_.instructions[i];
            const instruction& b = b_.instructions[i];
            if (a.relocations != b.relocations)
                return false;
            if (!reached[i] && (a.word != b.word || (a.relocations != 0 && !same_relocation(a, b))))
                return false;
        }
        return true;
    }

    [[nodiscard]] bool same_relocation(const instruction& a, const instruction& b) const
    {
        return equal_references({before_.relocs[a.relocation]}, {after_.relocs[b.relocation]});
    }

    void meet_at(std::size_t index, const register_relation& registers)
    {
        std::optional<register_relation>& known = joins_[index];
        if (known && !known->meet(registers))
            return;
        if (!known)
            known = registers;
        waiting_.push_back(index);
    }

    // From a join on to where control leaves or comes to other joins.
    bool follow(std::size_t index, std::size_t& left)
    {
        registers_ = *joins_[index];
        for (bool first = true;; first = false, ++index) {
            if (index >= a_.instructions.size() || left-- == 0)
                return false;
            if (!first && joins_.count(index) != 0) {
                meet_at(index, registers_);
                return true;
            }
            if (!step(index))
                return false;
            const control_flow flow = a_.instructions[index].flow;
            if (flow == control_flow::branch || flow == control_flow::conditional) {
                const auto target = branch_target(a_, index);
                if (!target)
                    return false; // who runs next depends on where the kernel is placed
                meet_at(*target, registers_);
            }
            if (flow == control_flow::unknown)
                return false;
            if (flow == control_flow::branch || flow == control_flow::jump || flow == control_flow::exit ||
                flow == control_flow::trap)
                return true;
        }
    }

    // Carries the registers past one instruction of both kernels; false in doubt.
    bool step(std::size_t index)
    {
        const instruction& a = a_.instructions[index];
        const instruction& b = b_.instructions[index];
        if (!a.decoded || !b.decoded || a.opcode != b.opcode || a.kind != b.kind || a.modelled != b.modelled)
            return false;
        const operand_range from = operands_of(a_, a);
        const register_set returned_to = made_return_addresses(a, from);
        follow_stack(a, from);
        if (!step_registers(index, a, b))
            return false;
        for (std::size_t r = 0; r < register_count && returned_to.any(); ++r) {
            if (returned_to[r])
                registers_.take_for_return_address(static_cast<register_id>(r));
        }
        return true;
    }

    bool step_registers(std::size_t index, const instruction& a, const instruction& b)
    {
        if (!a.modelled) {
            if (a.word != b.word || a.relocations != 0 || !registers_.all_same_names())
                return false;
            const register_set defined = defs_of(a_, a);
            for (std::size_t r = 0; r < register_count; ++r) {
                const auto same = static_cast<register_id>(r);
                if (defined[r])
                    registers_.relate(same, {relation::equal, same});
            }
            return true;
        }
        const operand_range from = operands_of(a_, a);
        const operand_range to = operands_of(b_, b);
        if (!have_the_same_form(a, from, to))
            return false;
        if (a.relocations != 0)
            return step_with_relocation(a, b, from, to);
        switch (a.kind) {
        case instruction_kind::adr:
            return form_address(from, to, relation::address, true,
                                static_cast<std::int64_t>(4 * index) + *a.pc_relative,
                                static_cast<std::int64_t>(4 * index) + *b.pc_relative);
        case instruction_kind::adrp:
            return false; // of whatever is placed there
        case instruction_kind::load_literal: {
            const std::int64_t place = static_cast<std::int64_t>(4 * index) + *a.pc_relative;
            if (!same_bytes({relation::address, 0, true, place, place}, a.literal_bytes))
                return false;
            break;
        }
        default:
            break;
        }
        if (reads_address(from))
            return step_with_address(a, b, from, to);
        if (a.flow == control_flow::call)
            return false; // within the kernel, or to where nothing is known to be
        return step_with_equals(a, from, to) && leave(a, from, to);
    }

    // Number and kinds of the operands, and what the numbers of registers mean beside their values.
    [[nodiscard]] bool have_the_same_form(const instruction& a, const operand_range& from,
                                          const operand_range& to) const
    {
        if (from.size() != to.size())
            return false;
        std::size_t defined = 0;
        for (std::size_t i = 0; i < from.size(); ++i) {
            const operand& x = from[i];
            const operand& y = to[i];
            if (x.is_register != y.is_register || x.defined != y.defined || x.low_half != y.low_half ||
                x.count != y.count)
                return false;
            defined += x.defined ? x.count : 0;
            for (std::size_t r = 0; r < x.count; ++r) {
                const auto is_special = [](register_id id) {
                    return id == zero_register || id == stack_pointer;
                };
                if ((is_special(x.registers[r]) || is_special(y.registers[r])) &&
                    x.registers[r] != y.registers[r])
                    return false;
            }
        }
        // What becomes of a register that a load or a store names twice is not always defined.
        const bool touches_memory = a.may_load || a.may_store;
        const bool may_clash = defined > 1 || (a.may_store && defined != 0);
        return !touches_memory || !may_clash || name_registers_alike(from, to);
    }

    // Whether operands of the one are the same register where those of the other are.
    static bool name_registers_alike(const operand_range& from, const operand_range& to)
    {
        std::vector<std::pair<register_id, register_id>> names;
        for (std::size_t i = 0; i < from.size(); ++i) {
            for (std::size_t r = 0; r < from[i].count; ++r)
                names.emplace_back(from[i].registers[r], to[i].registers[r]);
        }
        return std::all_of(names.begin(), names.end(), [&](const auto& x) {
            return std::all_of(names.begin(), names.end(),
                               [&](const auto& y) { return (x.first == y.first) == (x.second == y.second); });
        });
    }

    [[nodiscard]] bool reads_address(const operand_range& from) const
    {
        return std::any_of(from.begin(), from.end(), [&](const operand& x) {
            return x.is_register && !x.defined && x.registers[0] < register_count &&
                   registers_.of(x.registers[0]).is_address();
        });
    }

    // The usual case: reads equal registers and makes equal ones.
    bool step_with_equals(const instruction& a, const operand_range& from, const operand_range& to)
    {
        for (std::size_t i = 0; i < from.size(); ++i) {
            if (from[i].immediate != to[i].immediate || !reads_equals(from[i], to[i]))
                return false;
        }
        for (std::size_t r = 0; r < register_count; ++r) {
            if (a.implicit_uses[r] && !registers_.is_same_name(static_cast<register_id>(r)))
                return false;
        }
        write(a, from, to);
        return true;
    }

    [[nodiscard]] bool reads_equals(const operand& x, const operand& y) const
    {
        for (std::size_t r = 0; r < x.count && !x.defined; ++r) {
            if (x.registers[r] == zero_register)
                continue;
            const link& known = registers_.of(x.registers[r]);
            const bool equal =
                known.kind == relation::equal || (known.kind == relation::low_half && x.low_half);
            if (!equal || known.partner != y.registers[r])
                return false;
        }
        return true;
    }

    // The registers of the first kernel that get the address to return to: copied, signed or authenticated,
    // or loaded from where it was stored.
    [[nodiscard]] register_set made_return_addresses(const instruction& a, const operand_range& from) const
    {
        register_set made;
        const auto holds_it = [&](register_id r) {
            return r < register_count && registers_.of(r).kind == relation::equal && registers_.of(r).returns;
        };
        if (a.kind == instruction_kind::move && holds_it(from[2].registers[0]) &&
            from[0].registers[0] < register_count)
            made.set(from[0].registers[0]);
        if (a.implicit_uses[link_register] && a.implicit_defs[link_register] && holds_it(link_register))
            made.set(link_register);
        const auto access = decode_memory_access(a.word);
        if (const auto place = place_on_stack(access); place && is_plain(*access) && access->load) {
            const std::vector<register_id> loaded = moved_registers(from);
            for (std::size_t i = 0; i < loaded.size(); ++i) {
                const bool is_returned_to =
                    registers_.stack.returns.count(*place + 8 * static_cast<std::int64_t>(i)) != 0;
                if (is_returned_to && loaded[i] < register_count)
                    made.set(loaded[i]);
            }
        }
        return made;
    }

    // Before the registers change: where SP is after the instruction, and what it stores there. That stores
    // through other registers leave the address to return to alone is assumed.
    void follow_stack(const instruction& a, const operand_range& from)
    {
        stack_frame& stack = registers_.stack;
        const auto access = decode_memory_access(a.word);
        const auto place = place_on_stack(access);
        const register_set uses = uses_of(a_, a);
        const register_set defs = defs_of(a_, a);
        if (defs[stack_pointer]) {
            std::optional<std::int64_t> to;
            const bool adds = a.kind == instruction_kind::add || a.kind == instruction_kind::sub;
            if (adds && a.relocations == 0 && stack.sp && from[1].registers[0] == stack_pointer)
                to = *stack.sp + signed_number(a, from);
            else if (place && access->addressing != addressing_mode::post_register)
                to = *stack.sp + access->offset;
            stack.move_sp(to);
        }
        const bool stores = a.may_store || !a.modelled || (access && access->store);
        if (!stores || !uses[stack_pointer])
            return;
        if (!place) {
            stack.returns.clear();
            return;
        }
        stack.overwrite(*place, access->bytes);
        if (!is_plain(*access) || access->load || !stack.sp)
            return;
        const std::vector<register_id> stored = moved_registers(from);
        for (std::size_t i = 0; i < stored.size(); ++i) {
            const std::int64_t slot = *place + 8 * static_cast<std::int64_t>(i);
            if (stored[i] < register_count && registers_.of(stored[i]).returns && slot >= *stack.sp)
                stack.returns.insert(slot);
        }
    }

    // Of an access by SP and a number.
    [[nodiscard]] std::optional<std::int64_t> place_on_stack(const std::optional<memory_access>& access) const
    {
        if (!access || access->base != stack_pointer || !registers_.stack.sp ||
            access->addressing == addressing_mode::register_index)
            return std::nullopt;
        const bool post = access->addressing == addressing_mode::post_index ||
                          access->addressing == addressing_mode::post_register;
        return *registers_.stack.sp + (post ? 0 : access->offset);
    }

    // LDR, STR, LDP and STP of X registers.
    static bool is_plain(const memory_access& access)
    {
        return !access.fp_simd && access.element_bytes == 8 && access.load != access.store &&
               !access.faults_unaligned && access.bytes == 8 * access.registers;
    }

    // Of a plain access by SP: those that it loads or stores, in order.
    static std::vector<register_id> moved_registers(const operand_range& from)
    {
        std::vector<register_id> moved;
        for (const operand& x : from) {
            if (x.is_register && x.registers[0] != stack_pointer)
                moved.push_back(x.registers[0]);
        }
        return moved;
    }

    // What ADD or SUB of a number adds.
    static std::int64_t signed_number(const instruction& a, const operand_range& operands)
    {
        const std::int64_t magnitude = operands[2].immediate << operands[3].immediate;
        return a.kind == instruction_kind::add ? magnitude : -magnitude;
    }

    void write(const instruction& a, const operand_range& from, const operand_range& to)
    {
        const auto each_defined = [&](auto act) {
            for (std::size_t i = 0; i < from.size(); ++i) {
                for (std::size_t r = 0; r < from[i].count && from[i].defined; ++r) {
                    if (from[i].registers[r] != zero_register)
                        act(from[i].registers[r], to[i].registers[r]);
                }
            }
            for (std::size_t r = 0; r < register_count; ++r) {
                if (a.implicit_defs[r])
                    act(static_cast<register_id>(r), static_cast<register_id>(r));
            }
        };
        each_defined([&](register_id x, register_id y) {
            registers_.forget_before(x);
            registers_.forget_after(y);
        });
        each_defined([&](register_id x, register_id y) { registers_.relate(x, {relation::equal, y}); });
    }

    // Calls and ways out, when the instruction itself was fine.
    bool leave(const instruction& a, const operand_range& from, const operand_range& to)
    {
        switch (a.flow) {
        case control_flow::call:
        case control_flow::indirect_call:
            if (!arguments_are_equal(registers_))
                return false;
            registers_ = after_call(registers_);
            return true;
        case control_flow::jump: // a tail call; X16 and X17 are registers of their own to a BTI
            return arguments_are_equal(registers_) && preserved_are_equal(registers_) &&
                   registers_.is_same_name(link_register) &&
                   std::equal(from.begin(), from.end(), to.begin(), to.end());
        case control_flow::exit: {
            bool returns = registers_.of(link_register).returns;
            for (const operand& x : from) {
                if (!x.is_register)
                    return false;
                returns = registers_.of(x.registers[0]).returns;
            }
            // To an address from elsewhere it is a tail call.
            return results_are_equal(registers_) && preserved_are_equal(registers_) &&
                   (returns || (arguments_are_equal(registers_) && registers_.is_same_name(link_register)));
        }
        default:
            return true;
        }
    }

    bool step_with_relocation(const instruction& a, const instruction& b, const operand_range& from,
                              const operand_range& to)
    {
        const tessjit::reloc_info& x = before_.relocs[a.relocation];
        const tessjit::reloc_info& y = after_.relocs[b.relocation];
        const bool own_data = is_own_data(before_.name, x.name);
        const bool own_code = x.name == before_.name;
        if (x.type != y.type || (x.addend != y.addend && !own_data))
            return false;
        if (own_data   ? !is_own_data(after_.name, y.name)
            : own_code ? y.name != after_.name
                       : x.name != y.name)
            return false;
        if (names_data(x.name) && !own_data)
            return false;
        if (x.type == R_AARCH64_CALL26) {
            // Another place than a kernel's first instruction has no procedure call standard, and the kernel
            // itself is entered with what its first instructions may read.
            if (own_data || ((own_code || x.addend != 0) && !registers_.all_same_names()) ||
                (own_code && x.addend != 0))
                return false;
        } else if (own_code || (own_data && kind_ == difference_of::layout)) {
            switch (a.kind) {
            case instruction_kind::adr:
                return form_address(from, to, relation::address, own_code, x.addend, y.addend);
            case instruction_kind::adrp:
                return form_address(from, to, relation::page, own_code, x.addend, y.addend);
            case instruction_kind::add: {
                const link& base = link_of(from, to, 1);
                return base.kind == relation::page && base.in_code == own_code && base.before == x.addend &&
                       base.after == y.addend &&
                       form_address(from, to, relation::address, own_code, x.addend, y.addend);
            }
            default:
                return false;
            }
        }
        return step_with_equals(a, from, to) && leave(a, from, to);
    }

    // The link between two operands that are read; none if they are not each other's.
    [[nodiscard]] link link_of(const operand_range& from, const operand_range& to, std::size_t i) const
    {
        if (!from[i].is_register || from[i].registers[0] >= register_count)
            return {};
        const link& known = registers_.of(from[i].registers[0]);
        return known.partner == to[i].registers[0] ? known : link{};
    }

    // Makes the first operand an address.
    bool form_address(const operand_range& from, const operand_range& to, relation kind, bool in_code,
                      std::int64_t before, std::int64_t after)
    {
        if (in_code && before != after)
            return false;
        if (from[0].registers[0] != zero_register)
            registers_.relate(from[0].registers[0], {kind, to[0].registers[0], in_code, before, after});
        return true;
    }

    // An instruction that reads an address: MOV, ADD and SUB of a number, loads.
    bool step_with_address(const instruction& a, const instruction& b, const operand_range& from,
                           const operand_range& to)
    {
        link base;
        switch (a.kind) {
        case instruction_kind::move:
            base = link_of(from, to, 2);
            break;
        case instruction_kind::add:
        case instruction_kind::sub: {
            base = link_of(from, to, 1);
            base.before += signed_number(a, from);
            base.after += signed_number(b, to);
            break;
        }
        default:
            return load_through_address(a, b, from, to);
        }
        return base.kind == relation::address &&
               form_address(from, to, relation::address, base.in_code, base.before, base.after);
    }

    bool load_through_address(const instruction& a, const instruction& b, const operand_range& from,
                              const operand_range& to)
    {
        const auto x = decode_memory_access(a.word);
        const auto y = decode_memory_access(b.word);
        if (!x || !y || !x->load || x->store || a.may_store || x->addressing != y->addressing ||
            x->bytes != y->bytes || x->addressing == addressing_mode::register_index ||
            opcode_name(a.opcode).substr(0, 4) == "LDRA") // checks the address
            return false;
        std::optional<std::size_t> base_operand;
        for (std::size_t i = 0; i < from.size(); ++i) {
            const bool is_offset = i + 1 == from.size() && !from[i].is_register;
            if (from[i].immediate != to[i].immediate && !(is_offset && kind_ == difference_of::layout))
                return false;
            if (!from[i].is_register || from[i].defined || reads_equals(from[i], to[i]))
                continue;
            if (base_operand || from[i].registers[0] != x->base || to[i].registers[0] != y->base)
                return false;
            base_operand = i;
        }
        if (!base_operand)
            return false;
        const link base = link_of(from, to, *base_operand);
        link place = base;
        const bool post =
            x->addressing == addressing_mode::post_index || x->addressing == addressing_mode::post_register;
        place.before += post ? 0 : x->offset;
        place.after += post ? 0 : y->offset;
        if (base.kind != relation::address || !same_bytes(place, x->bytes) ||
            (x->faults_unaligned && place.before != place.after) ||
            (x->base == stack_pointer && (base.before - base.after) % 16 != 0)) // may have to be aligned
            return false;
        loaded_constants_ = loaded_constants_ || !base.in_code;
        write(a, from, to);
        const auto base_before = from[*base_operand].registers[0];
        const auto base_after = to[*base_operand].registers[0];
        switch (x->addressing) {
        case addressing_mode::pre_index:
        case addressing_mode::post_index:
            registers_.relate(base_before, {relation::address, base_after, base.in_code,
                                            base.before + x->offset, base.after + y->offset});
            break;
        case addressing_mode::post_register:
            registers_.forget_before(base_before);
            break;
        default:
            break;
        }
        return true;
    }

    // Whether both kernels have the same bytes there, which the finaliser does not change.
    [[nodiscard]] bool same_bytes(const link& place, std::size_t count) const
    {
        const auto& x = place.in_code ? before_.text : before_.data;
        const auto& y = place.in_code ? after_.text : after_.data;
        const auto inside = [count](const std::vector<std::uint8_t>& bytes, std::int64_t begin) {
            return begin >= 0 && static_cast<std::uint64_t>(begin) <= bytes.size() &&
                   count <= bytes.size() - static_cast<std::uint64_t>(begin);
        };
        if (!inside(x, place.before) || !inside(y, place.after) ||
            (place.in_code && place.before != place.after)) // relocations are looked for at one place
            return false;
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = static_cast<std::size_t>(place.before) + i;
            if (x[at] != y[static_cast<std::size_t>(place.after) + i] ||
                (place.in_code && a_.instructions[at / 4].relocations != 0))
                return false;
        }
        return true;
    }

    const placed_kernel& before_;
    const placed_kernel& after_;
    const difference_of kind_;
    const decoded_kernel a_;
    const decoded_kernel b_;
    joins joins_;
    std::vector<std::size_t> waiting_;
    register_relation registers_; // where follow() is
    bool loaded_constants_ = false;
};

bool proves_equivalence(const placed_kernel& before, const placed_kernel& after,
                        const std::vector<std::int64_t>& entries, difference_of kind)
{
    return before.text.size() == after.text.size() && before.text.size() % 4 == 0 &&
           before.text.size() <= largest_listing && before.relocs.size() == after.relocs.size() &&
           lockstep(before, after, kind).proves_equivalence(entries);
}

} // namespace

bool only_moved(const placed_kernel& before, const placed_kernel& after, const outside_uses& uses)
{
    return !uses.of_code && (!uses.of_data || before.data == after.data) &&
           proves_equivalence(before, after, uses.entries, difference_of::layout);
}

bool only_renamed(const placed_kernel& before, const placed_kernel& after, const outside_uses& uses)
{
    return !uses.of_code && before.data == after.data &&
           equal_references(relocations_by_place(before), relocations_by_place(after)) &&
           proves_equivalence(before, after, uses.entries, difference_of::registers);
}

bool only_reordered(const placed_kernel& before, const placed_kernel& after, const outside_uses& uses)
{
    if (before.text.size() != after.text.size())
        return false;
    const auto outside = [](const placed_kernel& kernel) {
        std::vector<tessjit::reloc_info> relocs = relocations_by_place(kernel);
        relocs.erase(
            std::remove_if(relocs.begin(), relocs.end(),
                           [&](const auto& reloc) { return lies_within(kernel.text, reloc.offset); }),
            relocs.end());
        return relocs;
    };
    if (!equal_references(outside(before), outside(after)))
        return false;
    const std::vector<code_row> old_rows = code_rows(before);
    const std::vector<code_row> new_rows = code_rows(after);
    const std::size_t words = before.text.size() / 4;

    const auto block_starts = [words](const placed_kernel& kernel, const std::vector<code_row>& rows) {
        std::vector<bool> starts(rows.size() + 1);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (rows[i].target != no_row)
                starts[rows[i].target] = true;
            if (i >= words)
                starts[i] = true; // a byte
            else if (ends_block(word_at(kernel.text, 4 * i)))
                starts[i + 1] = true;
        }
        starts[rows.size()] = true;
        return starts;
    };
    // Data among the code has its place.
    const std::vector<bool> old_reached = reachable_words(decode_kernel(before), uses.entries);
    const std::vector<bool> new_reached = reachable_words(decode_kernel(after), uses.entries);
    for (std::size_t i = 0; i < words; ++i) {
        if ((!old_reached[i] || !new_reached[i]) && old_rows[i].key != new_rows[i].key)
            return false;
    }
    const std::vector<bool> starts = block_starts(before, old_rows);
    if (starts != block_starts(after, new_rows))
        return false;

    const auto sorted_block = [](const std::vector<code_row>& rows, std::size_t begin, std::size_t end) {
        std::vector<std::tuple<std::string_view, std::size_t, std::int64_t>> block;
        for (std::size_t i = begin; i < end; ++i)
            block.emplace_back(rows[i].key, rows[i].target, rows[i].distance);
        std::sort(block.begin(), block.end());
        return block;
    };
    for (std::size_t begin = 0; begin < old_rows.size();) {
        std::size_t end = begin + 1;
        while (!starts[end])
            ++end;
        if (sorted_block(old_rows, begin, end) != sorted_block(new_rows, begin, end))
            return false;
        begin = end;
    }
    return true;
}

} // namespace vorna::workbench
