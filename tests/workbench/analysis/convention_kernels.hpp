// Random kernels that keep the procedure call standard, or break it in one way.
//
// They take two pointers to buffers in X0 and X1, numbers in X2 to X8 and V0 to V7, and leave results in the
// buffers, X0 and V0. The bits of X2 decide which way most branches go. They call "f" (X0, X1, V0) and "g",
// which writes to where X1 points.
#pragma once

#include "tests/workbench/analysis/convention_frames.hpp"

#include <array>
#include <cstring>
#include <utility>

namespace random_conventions {

class generator : frame_generator {
public:
    generator(random_engine& random, flaw wanted) : frame_generator(random, wanted) {}

    random_kernel make()
    {
        choose_frame();
        prologue();
        for (std::size_t left = 2 + below(4); left > 0; --left)
            set_something();
        const std::size_t flaw_place = below(3);
        const std::size_t count = 3 + below(9);
        for (std::size_t i = 0; i < count; ++i) {
            if (i == flaw_place)
                break_body();
            statement(0);
        }
        if (count <= flaw_place)
            break_body();
        results();
        epilogue(true);
        code_.FinalizeCode();
        random_kernel kernel;
        const auto* const begin = code_.GetBuffer()->GetStartAddress<const std::uint8_t*>();
        kernel.text.assign(begin, begin + code_.GetSizeOfCodeGenerated());
        kernel.relocs = relocs_;
        kernel.wanted = flaw_;
        change_words(kernel);
        return kernel;
    }

private:
    // ---- body

    void set_something()
    {
        if (one_in(2)) {
            const unsigned to = xd();
            if (one_in(2))
                code_.movz(x(to), below(65536));
            else
                code_.ldr(x(to), MemOperand(x(base_), buffer_offset(8)));
            set_x(to);
        } else {
            const unsigned to = vd();
            code_.ldr(q(to), MemOperand(x(base_), buffer_offset(16)));
            set_v(to);
        }
    }

    void statement(unsigned depth)
    {
        switch (below(24)) {
        case 0:
        case 1:
        case 2:
            return integer();
        case 3:
        case 4:
            return load_or_store();
        case 5:
        case 6:
            return simd();
        case 7:
        case 8:
            return spill();
        case 9:
            return compare();
        case 10:
        case 11:
            return use_flags();
        case 12:
        case 13:
        case 14:
            return depth < 3 ? skip(depth) : integer();
        case 15:
        case 16:
            return depth < 2 ? loop(depth) : integer();
        case 17:
        case 18:
            return calls_ ? call() : simd();
        case 19:
            return depth > 0 && depth < 3 && one_in(2) ? leave_early(depth) : integer();
        case 20:
            return push_and_pop(depth);
        case 21:
        case 22:
            return scalable();
        default:
            return set_something();
        }
    }

    void integer()
    {
        const unsigned a = xs();
        const unsigned b = xs();
        const unsigned to = xd();
        switch (below(11)) {
        case 0:
            code_.add(x(to), x(a), a64::Operand(x(b)));
            break;
        case 1:
            code_.eor(w(to), w(a), a64::Operand(w(b)));
            break;
        case 2:
            code_.madd(x(to), x(a), x(b), x(xs()));
            break;
        case 3:
            code_.sub(x(to), x(a), static_cast<std::int64_t>(below(4096)));
            break;
        case 4:
            code_.orr(x(to), x(a), a64::Operand(x(b), a64::LSL, static_cast<unsigned>(below(64))));
            break;
        case 5:
            code_.ubfx(x(to), x(a), 3, 20);
            break;
        case 6:
            code_.mov(x(to), x(a));
            break;
        case 7:
            code_.rbit(x(to), x(a));
            break;
        case 8:
            if (!set_[to])
                code_.movz(x(to), 7);
            else
                code_.movk(x(to), below(65536), 16);
            break;
        case 9:
            code_.fmov(x(to), d(vs()));
            break;
        default:
            code_.eor(x(to), x(to), a64::Operand(x(to))); // which depends on nothing
            code_.add(x(to), x(a), 1);
        }
        set_x(to);
    }

    void load_or_store()
    {
        const Register base = x(one_in(2) ? base_ : other_base_);
        switch (below(7)) {
        case 0:
            return code_.str(x(xs()), MemOperand(base, buffer_offset(8)));
        case 1:
            return code_.strb(w(xs()), MemOperand(base, buffer_offset(1)));
        case 2:
            return code_.stp(x(xs()), x(xs()), MemOperand(base, buffer_offset(8)));
        case 3:
            return code_.str(q(qs()), MemOperand(base, buffer_offset(16)));
        case 4:
            return code_.str(d(vs()), MemOperand(base, buffer_offset(8)));
        case 5: {
            const unsigned a = xd();
            code_.ldrsh(x(a), MemOperand(base, buffer_offset(2)));
            return set_x(a);
        }
        default: {
            const unsigned a = xd();
            const unsigned b = xd();
            if (a == b)
                return code_.nop();
            code_.ldp(x(a), x(b), MemOperand(base, buffer_offset(8)));
            set_x(a);
            return set_x(b);
        }
        }
    }

    void simd()
    {
        const unsigned to = vd();
        switch (below(8)) {
        case 0:
            code_.fadd(d(to), d(vs()), d(vs()));
            break;
        case 1:
            code_.add(v2d(to), v2d(qs()), v2d(qs()));
            break;
        case 2:
            code_.fmov(d(to), x(xs()));
            break;
        case 3:
            code_.dup(v2d(to), x(xs()));
            break;
        case 4: { // a part: the rest keeps its value
            const unsigned in = qs();
            if (!writable_[32 + in])
                return;
            code_.ins(v2d(in), 1, x(xs()));
            return;
        }
        case 5: {
            const unsigned in = qs();
            if (!writable_[32 + in])
                return;
            code_.ld1(VRegister(static_cast<int>(in), a64::kFormatD), 0, MemOperand(x(base_)));
            return;
        }
        case 6:
            code_.eor(VRegister(static_cast<int>(to), a64::kFormat16B),
                      VRegister(static_cast<int>(qs()), a64::kFormat16B),
                      VRegister(static_cast<int>(qs()), a64::kFormat16B));
            break;
        default:
            code_.movi(v2d(to), below(2) == 0 ? 0 : 0xff00ff00ff00ff00);
        }
        set_v(to);
    }

    void scalable()
    {
        const unsigned to = vd();
        switch (below(10)) {
        case 0: {
            const auto predicate = static_cast<unsigned>(below(16));
            code_.ptrue(p(predicate).VnD(), a64::SVE_ALL);
            predicate_set_.set(predicate);
            return;
        }
        case 1: {
            const auto predicate = static_cast<unsigned>(below(16));
            code_.whilelt(p(predicate).VnD(), a64::xzr, x(control_));
            predicate_set_.set(predicate);
            flags_set_ = true;
            return;
        }
        case 2: {
            const auto predicate = static_cast<unsigned>(below(16));
            code_.cmpgt(p(predicate).VnD(), p(ps()).Zeroing(), z(zs()), z(zs()));
            predicate_set_.set(predicate);
            flags_set_ = true;
            return;
        }
        case 3:
            return code_.st1d(z(zs()), p(ps()), scalable_place());
        case 4: { // in a slot of its own
            if (style_ == frame_style::none || style_ == frame_style::in_registers)
                return;
            // VIXL's simulator does not know SP as the base of these stores and loads.
            const unsigned from = zs();
            const unsigned base = xd();
            code_.addvl(a64::sp, a64::sp, -1);
            code_.mov(x(base), a64::sp);
            set_x(base);
            code_.str(z(from), a64::SVEMemOperand(x(base)));
            code_.ldr(z(to), a64::SVEMemOperand(x(base)));
            code_.addvl(a64::sp, a64::sp, 1);
            break;
        }
        case 5:
            code_.dup(z(to), x(xs()));
            break;
        case 6:
            code_.add(z(to), z(zs()), z(zs()));
            break;
        case 7:
            code_.ld1d(z(to), p(ps()).Zeroing(), scalable_place());
            break;
        case 8:
            code_.sel(z(to), p(ps()), z(zs()), z(zs()));
            break;
        default: { // merges
            const unsigned in = zs();
            if (writable_[32 + in])
                code_.add(z(in), p(ps()).Merging(), z(in), z(zs()));
            return;
        }
        }
        set_v(to);
    }

    a64::SVEMemOperand scalable_place() { return a64::SVEMemOperand(x(base_), below(8), a64::SVE_MUL_VL); }

    void spill()
    {
        if (slots_.empty())
            return integer();
        slot& chosen = pick_slot();
        if (!chosen.set || one_in(2)) {
            if (one_in(4)) {
                code_.str(d(vs()), frame_slot(chosen.at));
            } else if (one_in(4)) { // in two parts
                code_.str(w(xs()), frame_slot(chosen.at));
                code_.str(w(xs()), frame_slot(chosen.at + 4));
            } else {
                code_.str(x(xs()), frame_slot(chosen.at));
            }
            chosen.set = true;
        } else if (one_in(4)) {
            const unsigned to = vd();
            code_.ldr(d(to), frame_slot(chosen.at));
            set_v(to);
        } else if (one_in(4)) { // through an address of its own
            const unsigned to = xd();
            code_.add(x(to), a64::sp, chosen.at + pushed_ < 4096 ? chosen.at + pushed_ : 4095);
            if (chosen.at + pushed_ < 4096)
                code_.ldr(x(to), MemOperand(x(to)));
            else
                code_.ldr(x(to), MemOperand(x(to), chosen.at + pushed_ - 4095));
            set_x(to);
        } else {
            const unsigned to = xd();
            code_.ldr(one_in(2) ? x(to) : w(to), frame_slot(chosen.at));
            set_x(to);
        }
    }

    slot& pick_slot() { return slots_[below(slots_.size())]; }

    void compare()
    {
        switch (below(4)) {
        case 0:
            code_.cmp(x(xs()), a64::Operand(x(xs())));
            break;
        case 1:
            code_.fcmp(d(vs()), 0.0);
            break;
        case 2:
            code_.tst(x(xs()), 0xff);
            break;
        default: {
            const unsigned to = xd();
            code_.adds(x(to), x(xs()), a64::Operand(x(xs())));
            set_x(to);
        }
        }
        flags_set_ = true;
    }

    a64::Condition condition() { return static_cast<a64::Condition>(below(14)); }

    void use_flags()
    {
        if (!flags_set_)
            compare();
        const unsigned to = xd();
        switch (below(4)) {
        case 0:
            code_.csel(x(to), x(xs()), x(xs()), condition());
            break;
        case 1:
            code_.cset(x(to), condition());
            break;
        case 2:
            code_.adc(x(to), x(xs()), a64::Operand(x(xs())));
            break;
        default:
            code_.ccmp(x(xs()), a64::Operand(x(xs())), a64::NoFlag, condition());
            return;
        }
        set_x(to);
    }

    struct state {
        registers set;
        registers half;
        std::bitset<32> scalable;
        std::bitset<16> predicates;
        bool flags;
        std::vector<slot> slots;
    };
    [[nodiscard]] state now() const
    {
        return {set_, half_set_, scalable_set_, predicate_set_, flags_set_, slots_};
    }
    void restore(const state& s)
    {
        set_ = s.set;
        half_set_ = s.half;
        scalable_set_ = s.scalable;
        predicate_set_ = s.predicates;
        flags_set_ = s.flags;
        slots_ = s.slots;
    }
    void join(const state& s)
    {
        set_ &= s.set;
        half_set_ |= s.half;
        scalable_set_ &= s.scalable;
        predicate_set_ &= s.predicates;
        flags_set_ = flags_set_ && s.flags;
        for (std::size_t i = 0; i < slots_.size(); ++i)
            slots_[i].set = slots_[i].set && s.slots[i].set;
    }

    // A branch over what follows, which the caller decides in most cases.
    void branch(a64::Label* to)
    {
        switch (below(flags_set_ ? 5 : 4)) {
        case 0:
            return code_.cbz(x(xs()), to);
        case 1:
            return code_.tbnz(x(control_), static_cast<unsigned>(below(32)), to);
        case 4:
            return code_.b(to, condition());
        default:
            return code_.tbz(x(control_), static_cast<unsigned>(below(32)), to);
        }
    }

    void skip(unsigned depth)
    {
        a64::Label over;
        branch(&over);
        const state before = now();
        for (std::size_t left = 1 + below(3); left > 0; --left)
            statement(depth + 1);
        if (one_in(2)) {
            code_.bind(&over);
            join(before);
            return;
        }
        a64::Label end;
        code_.b(&end);
        code_.bind(&over);
        const state after = now();
        restore(before);
        for (std::size_t left = 1 + below(3); left > 0; --left)
            statement(depth + 1);
        code_.bind(&end);
        join(after);
    }

    void leave_early(unsigned)
    {
        a64::Label over;
        branch(&over);
        const state before = now();
        if (pushed_ == 0) {
            if (one_in(2))
                results();
            epilogue(false);
        }
        code_.bind(&over);
        restore(before);
    }

    void loop(unsigned depth)
    {
        // A counter that no statement of the loop changes, and no call.
        registers candidates = writable_ & registers(0x1fffffff);
        const bool with_calls = calls_ && one_in(2);
        if (with_calls)
            candidates &= registers(0x1ff80000);
        if (members(candidates).size() < 3)
            return integer();
        const unsigned counter = pick(members(candidates));
        const bool calls = calls_;
        const registers writable = writable_;
        const registers sources = general_sources_;
        writable_.reset(counter);
        if (one_in(2) || !set_[2] || with_calls)
            code_.movz(x(counter), 1 + below(3));
        else {
            code_.ubfx(x(counter), x(control_), static_cast<unsigned>(below(20)), 2);
            code_.add(x(counter), x(counter), 1);
        }
        set_x(counter);
        calls_ = with_calls;
        if (with_calls)
            clobber();
        a64::Label head;
        code_.bind(&head);
        if (one_in(2))
            code_.ror(x(control_), x(control_), 1 + static_cast<unsigned>(below(5)));
        for (std::size_t left = 1 + below(4); left > 0; --left)
            statement(depth + 1);
        if (one_in(2)) {
            code_.subs(x(counter), x(counter), 1);
            flags_set_ = true;
            code_.b(&head, a64::ne);
        } else {
            code_.sub(x(counter), x(counter), 1);
            code_.cbnz(x(counter), &head);
        }
        calls_ = calls;
        writable_ = writable;
        general_sources_ = sources;
    }

    // What a callee may do.
    void clobber()
    {
        for (unsigned r = 0; r <= 17; ++r)
            set_.reset(r);
        for (unsigned v = 0; v < 32; ++v) {
            if (v >= 8 && v < 16)
                half_set_.set(32 + v);
            else
                set_.reset(32 + v);
        }
        scalable_set_.reset();
        predicate_set_.reset();
        flags_set_ = false;
    }

    void call()
    {
        const bool fills = !slots_.empty() && one_in(2);
        code_.mov(a64::x0, x(xs()));
        set_x(0);
        code_.mov(VRegister(0, a64::kFormat16B), VRegister(static_cast<int>(qs()), a64::kFormat16B));
        if (fills) {
            slot& chosen = pick_slot();
            const std::int64_t at = chosen.at + pushed_;
            if (at < 4096) {
                code_.add(a64::x1, a64::sp, at);
            } else {
                code_.add(a64::x1, a64::sp, 4095);
                code_.add(a64::x1, a64::x1, at - 4095);
            }
            chosen.set = true;
        } else {
            code_.mov(a64::x1, x(xs()));
        }
        relocate(fills ? "g" : "f");
        code_.bl(std::int64_t{0});
        clobber();
        set_x(0);
        set_.set(32);
        half_set_.reset(32);
        if (one_in(2)) {
            const unsigned to = xd();
            code_.mov(x(to), a64::x0);
            set_x(to);
        }
    }

    void push_and_pop(unsigned depth)
    {
        if (style_ == frame_style::none || style_ == frame_style::large || pushed_ > 0)
            return integer();
        const unsigned value = xs();
        code_.str(x(value), MemOperand(a64::sp, -16, a64::PreIndex));
        pushed_ += 16;
        const unsigned keep = style_ == frame_style::frame_pointer ? 1 : 0;
        if (depth < 3 && keep == 0)
            statement(3);
        pushed_ -= 16;
        const unsigned to = xd();
        code_.ldr(x(to), MemOperand(a64::sp, 16, a64::PostIndex));
        set_x(to);
    }

    void results()
    {
        const auto sources = members(set_ & general_sources_);
        for (unsigned left = 0; left < 3; ++left)
            code_.str(x(pick(sources)), MemOperand(x(base_), 128 + 8 * left));
        if (one_in(2)) {
            // All that holds a value.
            code_.mov(a64::x0, x(xs()));
            for (const unsigned r : sources) {
                if (r != 0)
                    code_.eor(a64::x0, a64::x0, a64::Operand(x(r)));
            }
        }
        if (one_in(2))
            code_.mov(VRegister(0, a64::kFormat16B), VRegister(static_cast<int>(qs()), a64::kFormat16B));
    }

    // ---- flaws

    void break_body()
    {
        switch (flaw_) {
        case flaw::slot_overwritten: {
            const save& s = saves_[victim_];
            if (style_ == frame_style::in_registers) {
                if (s.vector)
                    code_.fmov(d(s.in), x(xs()));
                else
                    code_.movz(x(s.in), below(65536));
            } else if (one_in(2)) {
                code_.str(x(xs()), MemOperand(a64::sp, s.at));
            } else {
                code_.strb(w(xs()),
                           MemOperand(a64::sp, std::min<std::int64_t>(
                                                   s.at + static_cast<std::int64_t>(below(2)), 4095)));
            }
            break;
        }
        case flaw::changed_unsaved:
            change_unsaved();
            break;
        case flaw::returns_early: {
            a64::Label over;
            branch(&over);
            if (style_ != frame_style::none && one_in(2))
                code_.add(a64::sp, a64::sp, frame_);
            code_.ret();
            code_.bind(&over);
            if (saves_.empty())
                change_unsaved();
            break;
        }
        case flaw::reads_unset_register:
            if (one_in(2)) {
                const auto unset = members(~set_ & registers(0x1ffbffff));
                if (!unset.empty())
                    use(pick(unset));
            } else {
                const auto unset = members((~set_ | half_set_) & vectors);
                const auto scalable = members(registers(~scalable_set_.to_ulong() & 0xffffff00));
                const auto predicates = members(registers(~predicate_set_.to_ulong() & 0xf0));
                const std::size_t kind = below(3);
                if (kind == 0 && !scalable.empty())
                    code_.st1d(z(pick(scalable)), p(ps()), scalable_place());
                else if (kind == 1 && !predicates.empty())
                    code_.st1d(z(zs()), p(pick(predicates)), scalable_place());
                else if (!unset.empty())
                    code_.str(q(pick(unset) - 32), MemOperand(x(base_), buffer_offset(16)));
            }
            break;
        case flaw::reads_unset_slot: {
            for (const slot& s : slots_) {
                if (!s.set) {
                    const unsigned to = xd();
                    code_.ldr(x(to), frame_slot(s.at));
                    set_x(to);
                    use(to);
                    break;
                }
            }
            break;
        }
        case flaw::reads_unset_flags: {
            if (flags_set_ && !calls_)
                break;
            if (flags_set_)
                call();
            const unsigned to = xd();
            if (one_in(2)) {
                code_.csel(x(to), a64::x19, a64::xzr, condition());
                code_.cset(x(to), condition());
            } else {
                a64::Label over;
                code_.movz(x(to), 1);
                code_.b(&over, condition());
                code_.movz(x(to), 2);
                code_.bind(&over);
            }
            set_x(to);
            use(to);
            break;
        }
        case flaw::set_on_one_way: {
            a64::Label over;
            const auto unset = members(~set_ & writable_ & registers(0x1fffffff));
            if (unset.empty())
                break;
            const unsigned r = pick(unset);
            branch(&over);
            code_.movz(x(r), 5);
            code_.bind(&over);
            set_x(r);
            use(r);
            break;
        }
        case flaw::stores_below_stack: {
            const std::int64_t at = -8 * static_cast<std::int64_t>(1 + below(8));
            code_.str(x(xs()), MemOperand(a64::sp, at));
            if (one_in(2))
                integer();
            const unsigned to = xd();
            code_.ldr(x(to), MemOperand(a64::sp, at));
            set_x(to);
            use(to);
            break;
        }
        case flaw::stack_unaligned:
            code_.sub(a64::sp, a64::sp, 8);
            pushed_ += 8;
            code_.str(x(xs()), MemOperand(a64::sp));
            code_.add(a64::sp, a64::sp, 8);
            pushed_ -= 8;
            break;
        case flaw::changes_platform_register:
            code_.mov(a64::x18, x(xs()));
            break;
        case flaw::calls_without_saving_link:
            call();
            break;
        default:
            break;
        }
    }

    void use(unsigned r)
    {
        if (one_in(2)) {
            code_.str(x(r), MemOperand(x(base_), buffer_offset(8)));
            return;
        }
        const unsigned to = xd();
        code_.add(x(to), x(r), a64::Operand(x(xs())));
        set_x(to);
        code_.str(x(to), MemOperand(x(other_base_), buffer_offset(8)));
    }

    void change_unsaved()
    {
        registers free;
        for (unsigned r = 19; r <= 29; ++r)
            free.set(r);
        for (unsigned v = 8; v <= 15; ++v)
            free.set(32 + v);
        for (const save& s : saves_)
            free.reset(s.vector ? 32 + s.number : s.number);
        if (members(free).empty())
            return;
        const unsigned r = pick(members(free));
        a64::Label over;
        const bool on_one_way = one_in(2);
        if (on_one_way)
            branch(&over);
        if (r < 32) {
            switch (below(3)) {
            case 0:
                code_.movz(w(r), below(65536));
                break;
            case 1:
                code_.ldr(x(r), MemOperand(x(base_), buffer_offset(8)));
                break;
            default:
                code_.add(x(r), x(xs()), 1);
            }
        } else {
            switch (below(3)) {
            case 0:
                code_.fmov(d(r - 32), x(xs()));
                break;
            case 1:
                code_.ldr(q(r - 32), MemOperand(x(base_), buffer_offset(16)));
                break;
            default:
                code_.ins(v2d(r - 32), 0, x(xs()));
            }
        }
        if (on_one_way)
            code_.bind(&over);
    }

    static std::uint32_t word(const random_kernel& kernel, std::size_t index)
    {
        std::uint32_t value = 0;
        std::memcpy(&value, kernel.text.data() + 4 * index, 4);
        return value;
    }
    static void write(random_kernel& kernel, std::size_t index, std::uint32_t value)
    {
        std::memcpy(kernel.text.data() + 4 * index, &value, 4);
    }

    void change_words(random_kernel& kernel)
    {
        const std::size_t words = kernel.text.size() / 4;
        std::set<std::size_t> relocated;
        for (const tessjit::reloc_info& reloc : kernel.relocs)
            relocated.insert(static_cast<std::size_t>(reloc.offset) / 4);
        const std::size_t at = below(words - 1);
        const bool both_free = !relocated.contains(at) && !relocated.contains(at + 1);
        switch (flaw_) {
        case flaw::word_removed:
            if (!relocated.contains(at))
                write(kernel, at, 0xd503201f);
            break;
        case flaw::words_exchanged:
            if (both_free) {
                const std::uint32_t first = word(kernel, at);
                write(kernel, at, word(kernel, at + 1));
                write(kernel, at + 1, first);
            }
            break;
        case flaw::field_changed:
            if (!relocated.contains(at)) {
                static constexpr std::array<unsigned, 4> fields = {0, 5, 10, 16};
                write(kernel, at,
                      word(kernel, at) ^ static_cast<std::uint32_t>(1 + below(31)) << pick(fields));
            }
            break;
        default:
            break;
        }
    }

    bool flags_set_ = false;
};

} // namespace random_conventions
