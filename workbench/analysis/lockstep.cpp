// Both kernels are executed symbolically, in lockstep: word by word they must have the same instruction,
// apart from registers and from offsets into the constants. The state is a relation between the registers of
// the two (register_relation): which hold equal values, which hold addresses of the kernel's own constants or
// code at offsets known in both, and which a call has clobbered. It relates each register of one kernel to at
// most one of the other, and vice versa.
//
//   - On entry each register equals the register of the same name. Where paths join, only links that hold on
//     all of them are kept.
//   - An instruction must use equal registers, operand by operand, and have the same immediates and
//     relocations. Its defs are then equal; earlier links of these registers are dropped on both sides.
//   - An address of constants, at offset p in one kernel and q in the other, may be copied, added to, and
//     loaded through if the bytes at p and q are the same: the loaded registers are then equal. Any other use
//     fails the proof. If constants and relocations are the same in both kernels, the address is an ordinary
//     value. An address of the kernel's own code may be loaded through only.
//   - A call must get equal arguments in the registers of the AAPCS64; a register that an earlier call
//     clobbered is not an argument. After the call the results are equal, callee-saved registers keep their
//     links, and the others must not be used.
//   - On return, results and callee-saved registers must equal the registers of the same name. A RET counts
//     as a tail call, which also gets the arguments and X30, unless its address is known to be the caller's:
//     kept in registers, or in the frame while SP changes by constants only.
//   - An instruction whose uses and defs are not known (not `modelled`) needs all registers to equal those of
//     the same name, as on entry.
//
// Memory is equal at the start, and each store stores equal values at equal addresses. So memory stays equal,
// and only registers need to be proved equal; "equal" assumes that both kernels are placed at the same
// address. Blocks are walked until no state changes. States only ever lose links, so a step that fails with
// an intermediate state would also fail with the final one: the first failure ends the proof.

#include "workbench/analysis/lockstep.hpp"

#include "check/relocation.hpp"
#include "workbench/analysis/canonical_code.hpp"
#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/register_relation.hpp"

#include <algorithm>
#include <elf.h>
#include <optional>
#include <unordered_map>
#include <utility>

namespace vorna::workbench {

namespace {

class lockstep {
public:
    lockstep(const decoded_kernel& before, const decoded_kernel& after, difference_of kind)
        : before_(*before.kernel), after_(*after.kernel), kind_(kind), a_(before), b_(after)
    {
    }

    bool proves_equivalence(const std::vector<std::int64_t>& entries)
    {
        const std::size_t words = a_.instructions.size();
        if (words == 0 || !relocations_are_plain())
            return false;
        std::vector<code_entry> called;
        meet_at(0, register_relation::same_names());
        for (const std::int64_t entry : entries) {
            if (entry < 0 || entry >= static_cast<std::int64_t>(4 * words))
                continue; // outside this kernel
            if (entry % 4 != 0)
                return false;
            meet_at(static_cast<std::size_t>(entry) / 4, register_relation::same_names());
            called.push_back({entry, true});
        }
        const code_map map = map_code(a_, called);
        for (std::size_t i = 0; i < words; ++i) {
            if (map.leaders[i])
                leaders_[i];
        }
        visited_.resize(words);
        constexpr std::size_t most_visits = 64; // per instruction, on average
        std::size_t left = most_visits * words;
        while (!waiting_.empty()) {
            const std::size_t begin = waiting_.back();
            waiting_.pop_back();
            if (!follow(begin, left))
                return false;
        }
        return unvisited_are_equal() && (kind_ == difference_of::registers || loaded_constants_);
    }

private:
    using leaders = std::unordered_map<std::size_t, std::optional<register_relation>>;

    // At most one on each word, on an instruction of its kind whose field is zero.
    [[nodiscard]] bool relocations_are_plain() const
    {
        const auto plain = [](const decoded_kernel& code) {
            const std::vector<tessjit::reloc_info>& relocs = code.kernel->relocs;
            return std::all_of(relocs.begin(), relocs.end(), [&](const tessjit::reloc_info& reloc) {
                if (!lies_within(code.kernel->text, reloc.offset))
                    return false;
                const instruction& at = code.instructions[static_cast<std::size_t>(reloc.offset) / 4];
                return at.relocated == word_relocation::fits &&
                       is_unlinked(*wfta::find_relocation_kind(reloc.type), at.word);
            });
        };
        return plain(a_) && plain(b_);
    }

    // Words that are not executed may be data, so they must not differ.
    [[nodiscard]] bool unvisited_are_equal() const
    {
        for (std::size_t i = 0; i < visited_.size(); ++i) {
            const instruction& a = a_.instructions[i];
            const instruction& b = b_.instructions[i];
            if (!visited_[i] && (a.word != b.word || a.relocated != b.relocated ||
                                 (a.relocated != word_relocation::none && !same_relocation(a, b))))
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
        std::optional<register_relation>& known = leaders_[index];
        if (known && !known->meet(registers))
            return;
        if (!known)
            known = registers;
        waiting_.push_back(index);
    }

    // Walks from a block leader to the end of the block.
    bool follow(std::size_t index, std::size_t& left)
    {
        registers_ = *leaders_[index];
        for (bool first = true;; first = false, ++index) {
            if (index >= a_.instructions.size() || left-- == 0)
                return false;
            if (!first && leaders_.contains(index)) {
                meet_at(index, registers_);
                return true;
            }
            if (!step(index))
                return false;
            const control_flow flow = a_.instructions[index].flow;
            if (flow == control_flow::branch || flow == control_flow::conditional) {
                const std::optional<std::size_t> target = successors_of(a_, index).target;
                if (!target)
                    return false; // what is there depends on where the kernel is placed
                meet_at(*target, registers_);
            }
            if (flow == control_flow::unknown)
                return false;
            if (a_.instructions[index].is_barrier())
                return true;
        }
    }

    // Executes one instruction of both kernels; false in doubt.
    bool step(std::size_t index)
    {
        const instruction& a = a_.instructions[index];
        const instruction& b = b_.instructions[index];
        visited_[index] = true;
        if (!a.decoded || !b.decoded || a.opcode != b.opcode || a.kind != b.kind ||
            a.modelled != b.modelled || a.relocated != b.relocated)
            return false;
        const operand_range from = operands_of(a_, a);
        const register_set returned_to = made_return_addresses(a, from);
        follow_stack(a, from);
        if (!step_registers(index, a, b))
            return false;
        for (std::size_t r = 0; r < register_count && returned_to.any(); ++r) {
            if (returned_to[r])
                registers_.mark_return_address(static_cast<register_id>(r));
        }
        return true;
    }

    bool step_registers(std::size_t index, const instruction& a, const instruction& b)
    {
        if (!a.modelled) {
            if (a.word != b.word || a.relocated != word_relocation::none || !registers_.all_same_names())
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
        if (a.relocated != word_relocation::none)
            return step_with_relocation(a, b, from, to);
        if (a.kind == instruction_kind::adr) {
            return form_address(from, to, relation::address, true,
                                static_cast<std::int64_t>(4 * index) + *a.pc_relative,
                                static_cast<std::int64_t>(4 * index) + *b.pc_relative);
        }
        if (a.kind == instruction_kind::adrp)
            return false; // an ADRP without a relocation: what is there is unknown
        if (const auto access = memory_access_of(a_, a);
            access && access->addressing == addressing_mode::literal) {
            const std::int64_t place = static_cast<std::int64_t>(4 * index) + access->offset;
            if (!same_bytes({relation::address, 0, true, place, place}, access->bytes))
                return false;
        }
        if (reads_address(from))
            return step_with_address(a, b, from, to);
        if (a.flow == control_flow::call)
            return false; // a local subroutine, or an unknown target
        return step_with_equals(a, from, to) && leave(a, from, to);
    }

    // Whether the operands agree in number and kind, and in the constraints on register numbers.
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
        // A load or store that names a register twice may be unpredictable.
        const bool touches_memory = a.may_load || a.may_store;
        const bool may_clash = defined > 1 || (a.may_store && defined != 0);
        return !touches_memory || !may_clash || name_registers_alike(from, to);
    }

    // Whether two operands of one are the same register exactly if those of the other are.
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

    // The usual case: equal uses give equal defs.
    bool step_with_equals(const instruction& a, const operand_range& from, const operand_range& to)
    {
        for (std::size_t i = 0; i < from.size(); ++i) {
            if (from[i].immediate != to[i].immediate || !reads_equals(from[i], to[i]))
                return false;
        }
        for (std::size_t r = 0; r < register_count; ++r) {
            if (implicit_uses_of(a)[r] && !registers_.is_same_name(static_cast<register_id>(r)))
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

    // The registers of the first kernel that receive the return address: copied, signed or authenticated, or
    // reloaded from the stack.
    [[nodiscard]] register_set made_return_addresses(const instruction& a, const operand_range& from) const
    {
        register_set made;
        const auto holds_it = [&](register_id r) {
            return r < register_count && registers_.of(r).kind == relation::equal && registers_.of(r).returns;
        };
        const auto sum = address_sum(a_, a);
        if (sum && a.kind == instruction_kind::copy && holds_it(sum->from) && sum->to < register_count)
            made.set(sum->to);
        if (implicit_uses_of(a)[link_register] && implicit_defs_of(a)[link_register] &&
            holds_it(link_register))
            made.set(link_register);
        const auto access = memory_access_of(a_, a);
        if (const auto place = place_on_stack(access); place && is_plain(*access) && access->load) {
            const std::vector<register_id> loaded = moved_registers(from);
            for (std::size_t i = 0; i < loaded.size(); ++i) {
                const bool is_returned_to =
                    registers_.stack.returns.contains(*place + 8 * static_cast<std::int64_t>(i));
                if (is_returned_to && loaded[i] < register_count)
                    made.set(loaded[i]);
            }
        }
        return made;
    }

    // Updates SP and the stack slots, before the registers change. Assumes that stores through other
    // registers do not overwrite a saved return address.
    void follow_stack(const instruction& a, const operand_range& from)
    {
        stack_frame& stack = registers_.stack;
        const auto access = memory_access_of(a_, a);
        const auto place = place_on_stack(access);
        const register_set uses = uses_of(a_, a);
        const register_set defs = defs_of(a_, a);
        if (defs[stack_pointer]) {
            std::optional<std::int64_t> to;
            const auto sum = address_sum(a_, a);
            if (sum && a.relocated == word_relocation::none && stack.sp && sum->from == stack_pointer)
                to = *stack.sp + sum->constant;
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

    // The offset of an access relative to SP on entry, if its address is SP plus a constant.
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
               !access.faults_unaligned() && !access.authenticates;
    }

    // The registers that a plain access through SP loads or stores, in order.
    static std::vector<register_id> moved_registers(const operand_range& from)
    {
        std::vector<register_id> moved;
        for (const operand& x : from) {
            if (x.is_register && x.registers[0] != stack_pointer)
                moved.push_back(x.registers[0]);
        }
        return moved;
    }

    // A 64-bit ADD or SUB of a constant, or a MOV, that does not set flags.
    static std::optional<register_sum> address_sum(const decoded_kernel& code, const instruction& at)
    {
        const std::optional<register_sum> sum = register_sum_of(code, at);
        return sum && sum->wide && !sum->sets_flags ? sum : std::nullopt;
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
                if (implicit_defs_of(a)[r])
                    act(static_cast<register_id>(r), static_cast<register_id>(r));
            }
        };
        each_defined([&](register_id x, register_id y) {
            registers_.forget_before(x);
            registers_.forget_after(y);
        });
        each_defined([&](register_id x, register_id y) { registers_.relate(x, {relation::equal, y}); });
    }

    // Checks and applies a call or an exit, after the instruction itself.
    bool leave(const instruction& a, const operand_range& from, const operand_range& to)
    {
        switch (a.flow) {
        case control_flow::call:
        case control_flow::indirect_call:
            if (!arguments_are_equal(registers_))
                return false;
            registers_ = after_call(registers_);
            return true;
        case control_flow::jump: // a tail call; a BTI distinguishes X16 and X17 from other registers
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
            // With any other address it is a tail call.
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
            // The AAPCS64 holds at a kernel's first instruction only, and not for a call of the kernel
            // itself, whose first instructions may read any register.
            if (own_data || ((own_code || x.addend != 0) && !registers_.all_same_names()) ||
                (own_code && x.addend != 0))
                return false;
        } else if (own_code || (own_data && kind_ == difference_of::layout)) {
            switch (a.kind) {
            case instruction_kind::adr:
                return form_address(from, to, relation::address, own_code, x.addend, y.addend);
            case instruction_kind::adrp:
                return form_address(from, to, relation::page, own_code, x.addend, y.addend);
            case instruction_kind::add_constant: {
                if (!address_sum(a_, a))
                    return false;
                const link base = link_between(from[1].registers[0], to[1].registers[0]);
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

    // The link between two registers; none if they are not related to each other.
    [[nodiscard]] link link_between(register_id x, register_id y) const
    {
        if (x >= register_count)
            return {};
        const link& known = registers_.of(x);
        return known.partner == y ? known : link{};
    }

    // Relates the first operands as addresses.
    bool form_address(const operand_range& from, const operand_range& to, relation kind, bool in_code,
                      std::int64_t before, std::int64_t after)
    {
        if (in_code && before != after)
            return false;
        if (from[0].registers[0] != zero_register)
            registers_.relate(from[0].registers[0], {kind, to[0].registers[0], in_code, before, after});
        return true;
    }

    // An instruction that uses an address: a MOV, an ADD or SUB of a constant, or a load.
    bool step_with_address(const instruction& a, const instruction& b, const operand_range& from,
                           const operand_range& to)
    {
        const auto x = address_sum(a_, a);
        const auto y = address_sum(b_, b);
        if (!x || !y)
            return load_through_address(a, b, from, to);
        link base = link_between(x->from, y->from);
        base.before += x->constant;
        base.after += y->constant;
        return base.kind == relation::address &&
               form_address(from, to, relation::address, base.in_code, base.before, base.after);
    }

    bool load_through_address(const instruction& a, const instruction& b, const operand_range& from,
                              const operand_range& to)
    {
        const auto x = memory_access_of(a_, a);
        const auto y = memory_access_of(b_, b);
        if (!x || !y || !x->load || x->store || a.may_store || x->addressing != y->addressing ||
            x->bytes != y->bytes || x->addressing == addressing_mode::register_index || x->authenticates ||
            x->exclusive)
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
        const link base = link_between(x->base, y->base);
        link place = base;
        const bool post =
            x->addressing == addressing_mode::post_index || x->addressing == addressing_mode::post_register;
        place.before += post ? 0 : x->offset;
        place.after += post ? 0 : y->offset;
        if (base.kind != relation::address || !same_bytes(place, x->bytes) ||
            (x->faults_unaligned() && place.before != place.after) ||
            (x->base == stack_pointer &&
             (base.before - base.after) % 16 != 0)) // SP may have to be 16-byte aligned
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

    // Whether both kernels have the same bytes there, and no relocation changes them.
    [[nodiscard]] bool same_bytes(const link& place, std::size_t count) const
    {
        const auto& x = place.in_code ? before_.text : before_.data;
        const auto& y = place.in_code ? after_.text : after_.data;
        const auto inside = [count](const std::vector<std::uint8_t>& bytes, std::int64_t begin) {
            return begin >= 0 && static_cast<std::uint64_t>(begin) <= bytes.size() &&
                   count <= bytes.size() - static_cast<std::uint64_t>(begin);
        };
        if (!inside(x, place.before) || !inside(y, place.after) ||
            (place.in_code &&
             place.before != place.after)) // the check for relocations below needs one offset for both
            return false;
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = static_cast<std::size_t>(place.before) + i;
            if (x[at] != y[static_cast<std::size_t>(place.after) + i] ||
                (place.in_code && a_.instructions[at / 4].relocated != word_relocation::none))
                return false;
        }
        return true;
    }

    const placed_kernel& before_;
    const placed_kernel& after_;
    const difference_of kind_;
    const decoded_kernel& a_;
    const decoded_kernel& b_;
    leaders leaders_;
    std::vector<std::size_t> waiting_;
    std::vector<bool> visited_;
    register_relation registers_; // at the current instruction
    bool loaded_constants_ = false;
};

} // namespace

bool compute_the_same(const decoded_kernel& before, const decoded_kernel& after,
                      const std::vector<std::int64_t>& entries, difference_of kind)
{
    const placed_kernel& a = *before.kernel;
    const placed_kernel& b = *after.kernel;
    return a.text.size() == b.text.size() && a.text.size() % 4 == 0 && a.relocs.size() == b.relocs.size() &&
           lockstep(before, after, kind).proves_equivalence(entries);
}

} // namespace vorna::workbench
