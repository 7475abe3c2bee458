// Random stack frames: prologues and epilogues in the ways in which compilers and people write them, and
// broken ones.
#pragma once

#include "jit/reloc_info.hpp"

#include <aarch64/assembler-aarch64.h>
#include <algorithm>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace random_conventions {

namespace a64 = vixl::aarch64;
using a64::MemOperand;
using a64::Register;
using a64::VRegister;
using random_engine = std::mt19937_64;

enum class flaw : std::uint8_t {
    none,
    restore_left_out,
    restored_from_elsewhere,
    slot_overwritten,
    stack_pointer_off,
    saved_in_part,
    changed_after_restore,
    save_left_out,
    changed_unsaved,
    returns_early,
    reads_unset_register,
    reads_unset_slot,
    reads_unset_flags,
    set_on_one_way,
    stores_below_stack,
    stack_unaligned,
    changes_platform_register,
    calls_without_saving_link,
    returns_by_another_register,
    word_removed,
    words_exchanged,
    field_changed,
    count
};
constexpr std::size_t flaws = static_cast<std::size_t>(flaw::count);
constexpr const char* flaw_names[] = {
    "none",
    "a restore left out",
    "restored from elsewhere",
    "a slot overwritten",
    "the stack pointer off",
    "saved in part",
    "changed after its restore",
    "a save left out",
    "changed without a save",
    "returns early",
    "reads an unset register",
    "reads an unset slot",
    "reads unset flags",
    "set on one way only",
    "stores below the stack pointer",
    "the stack pointer not aligned",
    "changes the platform register",
    "calls without saving the link register",
    "returns by another register",
    "a word removed",
    "two words exchanged",
    "a field changed",
};

struct random_kernel {
    std::vector<std::uint8_t> text;
    std::vector<tessjit::reloc_info> relocs;
    flaw wanted = flaw::none;
};

// Generates the parts of a kernel that save and restore, and keeps what its body has to know.
class frame_generator {
protected:
    frame_generator(random_engine& random, flaw wanted) : random_(random), flaw_(wanted)
    {
        code_.SetCPUFeatures(vixl::CPUFeatures::All());
        for (unsigned r = 0; r <= 8; ++r)
            set_.set(r);
        for (unsigned v = 0; v < 8; ++v)
            set_.set(32 + v);
    }

    using registers = std::bitset<64>; // X0 to X30, V0 to V31 from 32 on
    static inline const registers vectors{0xffffffff00000000};

    enum class frame_style : std::uint8_t {
        none,
        writeback,
        subtracted,
        frame_pointer,
        pushed,
        large,
        in_registers,
        through_copy,
        count
    };

    struct save {
        unsigned number;
        bool vector = false;
        bool whole_vector = false; // in 16 bytes
        std::int64_t at = 0;       // from SP in the body
        unsigned in = 0;           // register, for frame_style::in_registers
        [[nodiscard]] std::int64_t bytes() const { return whole_vector ? 16 : 8; }
    };
    struct slot {
        std::int64_t at;
        bool set = false;
    };

    // ---- chance

    std::size_t below(std::size_t limit) { return random_() % limit; }
    bool one_in(std::size_t n) { return below(n) == 0; }
    std::vector<unsigned> members(const registers& of)
    {
        std::vector<unsigned> all;
        for (unsigned i = 0; i < 64; ++i) {
            if (of[i])
                all.push_back(i);
        }
        return all;
    }
    std::int64_t buffer_offset(std::int64_t unit) { return unit * static_cast<std::int64_t>(below(16)); }
    template <typename values>
    auto pick(const values& from)
    {
        return from[below(from.size())];
    }

    static Register x(unsigned r) { return a64::XRegister(static_cast<int>(r)); }
    static Register w(unsigned r) { return a64::WRegister(static_cast<int>(r)); }
    static VRegister d(unsigned v) { return a64::DRegister(static_cast<int>(v)); }
    static VRegister q(unsigned v) { return a64::QRegister(static_cast<int>(v)); }
    static a64::ZRegister z(unsigned v) { return a64::ZRegister(static_cast<int>(v), a64::kDRegSize); }
    static a64::PRegister p(unsigned number) { return a64::PRegister(static_cast<int>(number)); }
    static VRegister v2d(unsigned v) { return VRegister(static_cast<int>(v), a64::kFormat2D); }

    // A register that holds a value.
    unsigned xs() { return pick(members(set_ & general_sources_)); }
    // One that may be written.
    unsigned xd() { return pick(members(writable_ & registers(0x7fffffff))); }
    unsigned vs() { return vector_of(set_); }
    unsigned vd() { return pick(members(writable_ & vectors)) - 32; }
    // One whose upper half holds a value too.
    unsigned qs() { return vector_of(set_ & ~half_set_); }
    unsigned vector_of(const registers& from)
    {
        const auto all = members(from & vectors);
        if (!all.empty())
            return pick(all) - 32;
        const unsigned to = vd();
        code_.ldr(q(to), MemOperand(x(base_), buffer_offset(16)));
        set_v(to);
        return to;
    }
    void set_x(unsigned r) { set_.set(r); }
    void set_v(unsigned v)
    {
        set_.set(32 + v);
        half_set_.reset(32 + v);
        scalable_set_.set(v);
    }
    unsigned zs()
    {
        if (scalable_set_.none()) {
            const unsigned to = vd();
            code_.dup(z(to), x(xs()));
            set_v(to);
        }
        return pick(members(registers(scalable_set_.to_ulong())));
    }
    // A predicate that governs, P0 to P7.
    unsigned ps()
    {
        if ((predicate_set_ & std::bitset<16>(0xff)).none()) {
            const auto to = static_cast<unsigned>(below(8));
            code_.ptrue(a64::PRegister(static_cast<int>(to)).VnD(), a64::SVE_ALL);
            predicate_set_.set(to);
        }
        return pick(members(registers(predicate_set_.to_ulong() & 0xff)));
    }

    void relocate(const char* target)
    {
        relocs_.push_back({target, static_cast<std::int32_t>(code_.GetCursorOffset()), R_AARCH64_CALL26, 0});
    }

    // ---- frame

    void choose_frame()
    {
        calls_ = one_in(2);
        style_ = static_cast<frame_style>(below(static_cast<std::size_t>(frame_style::count)));
        const bool needs_saves = flaw_ >= flaw::restore_left_out && flaw_ <= flaw::save_left_out;
        if (flaw_ == flaw::calls_without_saving_link)
            calls_ = true;
        if (style_ == frame_style::none && (calls_ || needs_saves || flaw_ == flaw::reads_unset_slot))
            style_ = frame_style::subtracted;
        if (style_ == frame_style::in_registers && (calls_ || flaw_ == flaw::reads_unset_slot))
            style_ = frame_style::writeback;
        const bool links = calls_ || style_ == frame_style::frame_pointer || one_in(4);
        std::vector<save> saves;
        if (style_ != frame_style::none) {
            for (unsigned r = 19; r <= 28; ++r) {
                if ((calls_ && r <= 20) || one_in(4))
                    saves.push_back({r});
            }
            for (unsigned v = 8; v <= 15; ++v) {
                if (one_in(6))
                    saves.push_back({v, true, style_ != frame_style::pushed && one_in(4)});
            }
            if (saves.empty())
                saves.push_back({21});
            std::shuffle(saves.begin(), saves.end(), random_);
            if (links && style_ != frame_style::in_registers) {
                if (flaw_ != flaw::calls_without_saving_link)
                    saves.insert(saves.begin(), {30});
                saves.insert(saves.begin(), {29});
            }
        }
        base_ = calls_ ? 19 : 0;
        other_base_ = calls_ ? 20 : 1;
        control_ = 2; // in a register that a call keeps, where there is one
        if (calls_) {
            const auto kept = std::find_if(saves.begin(), saves.end(), [](const save& s) {
                return !s.vector && s.number > 20 && s.number < 29;
            });
            if (kept == saves.end()) {
                saves.push_back({27});
                control_ = 27;
            } else {
                control_ = kept->number;
            }
        }
        saves_ = saves;
        for (unsigned r = 3; r <= 17; ++r)
            writable_.set(r);
        for (unsigned v = 0; v < 32; ++v)
            writable_.set(32 + v, v < 8 || v > 15);
        for (const save& s : saves_)
            writable_.set(s.vector ? 32 + s.number : s.number, s.vector || s.number < 29);
        for (const unsigned r : {base_, other_base_, control_})
            writable_.reset(r);
        general_sources_ = registers(0x1fffffff);
        if (style_ == frame_style::frame_pointer)
            writable_.reset(29);
        lay_out();
        if (!saves_.empty())
            victim_ = below(saves_.size());
        if (flaw_ == flaw::restore_left_out && calls_ && one_in(4))
            victim_ = 1; // X30
    }

    void lay_out()
    {
        const std::size_t locals = style_ == frame_style::none || style_ == frame_style::in_registers
                                       ? 0
                                       : below(5) + (flaw_ == flaw::reads_unset_slot ? 1 : 0);
        if (style_ == frame_style::in_registers) {
            unsigned general = 9;
            unsigned vector = 16;
            for (save& s : saves_) {
                s.in = s.vector ? vector++ : general++;
                writable_.reset(s.vector ? 32 + s.in : s.in);
            }
            saves_.erase(std::remove_if(saves_.begin(), saves_.end(),
                                        [](const save& s) { return !s.vector && s.in > 17; }),
                         saves_.end());
            for (unsigned r = 9; r <= 17; ++r)
                writable_.reset(r);
            for (unsigned r = 19; r <= 28; ++r)
                writable_.reset(r);
            for (const save& s : saves_)
                writable_.set(s.vector ? 32 + s.number : s.number);
            return;
        }
        if (style_ == frame_style::pushed) {
            const std::int64_t local_bytes = 16 * static_cast<std::int64_t>((locals + 1) / 2);
            // Pairs are of one kind.
            const auto is_general = [](const save& s) { return !s.vector; };
            std::vector<save> ordered;
            std::copy_if(saves_.begin(), saves_.end(), std::back_inserter(ordered), is_general);
            std::remove_copy_if(saves_.begin(), saves_.end(), std::back_inserter(ordered), is_general);
            saves_ = std::move(ordered);
            std::vector<std::size_t> first;
            for (std::size_t i = 0; i < saves_.size();) {
                first.push_back(i);
                i += i + 1 < saves_.size() && saves_[i].vector == saves_[i + 1].vector ? 2 : 1;
            }
            pushes_ = first;
            for (std::size_t p = 0; p < first.size(); ++p) {
                const std::int64_t at = local_bytes + 16 * static_cast<std::int64_t>(first.size() - 1 - p);
                saves_[first[p]].at = at;
                const std::size_t end = p + 1 < first.size() ? first[p + 1] : saves_.size();
                if (end - first[p] == 2)
                    saves_[first[p] + 1].at = at + 8;
            }
            for (std::size_t i = 0; i < locals; ++i)
                slots_.push_back({8 * static_cast<std::int64_t>(i)});
            locals_bytes_ = local_bytes;
            frame_ = local_bytes + 16 * static_cast<std::int64_t>(first.size());
            return;
        }
        std::int64_t at = style_ == frame_style::large ? 4096 + 16 * static_cast<std::int64_t>(below(4)) : 0;
        if (style_ == frame_style::none)
            return;
        for (save& s : saves_) {
            if (s.whole_vector)
                at = (at + 15) & ~std::int64_t{15};
            s.at = at;
            at += s.bytes();
        }
        for (std::size_t i = 0; i < locals; ++i, at += 8)
            slots_.push_back({at});
        frame_ = (at + 15) & ~std::int64_t{15};
    }

    MemOperand frame_slot(std::int64_t at)
    {
        if (style_ == frame_style::frame_pointer && has_frame_pointer_ && one_in(2))
            return MemOperand(a64::x29, at);
        return MemOperand(a64::sp, at + pushed_);
    }

    void prologue()
    {
        switch (style_) {
        case frame_style::none:
            break;
        case frame_style::in_registers:
            for (const save& s : saves_) {
                if (is_victim(s) && flaw_ == flaw::save_left_out)
                    continue;
                if (s.vector)
                    code_.fmov(d(s.in), d(s.number));
                else if (is_victim(s) && flaw_ == flaw::saved_in_part)
                    code_.mov(w(s.in), w(s.number));
                else
                    code_.mov(x(s.in), x(s.number));
            }
            break;
        case frame_style::writeback:
        case frame_style::frame_pointer: {
            const save& first = saves_[0];
            const bool pair = saves_.size() > 1 && saves_[1].vector == first.vector && !first.whole_vector &&
                              !saves_[1].whole_vector && frame_ <= 504;
            if (frame_ > 240 && !pair) {
                code_.sub(a64::sp, a64::sp, frame_);
                store_saves(0, a64::sp, 0);
            } else if (pair) {
                code_.stp(save_register(first), save_register(saves_[1]),
                          MemOperand(a64::sp, -frame_, a64::PreIndex));
                store_saves(2, a64::sp, 0);
            } else {
                code_.str(save_register(first), MemOperand(a64::sp, -frame_, a64::PreIndex));
                store_saves(1, a64::sp, 0);
            }
            if (style_ == frame_style::frame_pointer) {
                code_.mov(a64::x29, a64::sp);
                has_frame_pointer_ = true;
            }
            break;
        }
        case frame_style::pushed:
            for (const std::size_t p : pushes_) {
                if (p + 1 < saves_.size() && saves_[p + 1].at == saves_[p].at + 8)
                    code_.stp(save_register(saves_[p]), save_register(saves_[p + 1]),
                              MemOperand(a64::sp, -16, a64::PreIndex));
                else
                    code_.str(save_register(saves_[p]), MemOperand(a64::sp, -16, a64::PreIndex));
            }
            if (locals_bytes_ != 0)
                code_.sub(a64::sp, a64::sp, locals_bytes_);
            break;
        case frame_style::large:
            code_.movz(a64::x16, static_cast<std::uint64_t>(frame_));
            code_.sub(a64::sp, a64::sp, a64::Operand(a64::x16, a64::UXTX));
            store_saves(0, a64::sp, 0);
            break;
        default: {
            code_.sub(a64::sp, a64::sp, frame_);
            const bool copy = style_ == frame_style::through_copy;
            const std::int64_t by = copy ? 8 * static_cast<std::int64_t>(below(4)) : 0;
            if (copy)
                code_.add(a64::x16, a64::sp, by);
            store_saves(0, copy ? a64::x16 : a64::sp, by);
        }
        }
        if (calls_) {
            code_.mov(a64::x19, a64::x0);
            code_.mov(a64::x20, a64::x1);
            code_.mov(x(control_), a64::x2);
        }
        for (const unsigned r : {base_, other_base_, control_})
            set_x(r);
    }

    [[nodiscard]] bool is_victim(const save& s) const { return &s == saves_.data() + victim_; }

    // The register that a save stores.
    a64::CPURegister save_register(const save& s)
    {
        if (is_victim(s) && flaw_ == flaw::save_left_out)
            return s.vector ? a64::CPURegister(d(31)) : a64::CPURegister(a64::xzr);
        if (s.vector)
            return s.whole_vector ? q(s.number) : d(s.number);
        return x(s.number);
    }

    void store_saves(std::size_t begin, const Register& base, std::int64_t less)
    {
        for (std::size_t i = begin; i < saves_.size(); ++i) {
            const save& s = saves_[i];
            const std::int64_t offset = s.at - less;
            const bool next_fits = i + 1 < saves_.size() && saves_[i + 1].vector == s.vector &&
                                   saves_[i + 1].whole_vector == s.whole_vector &&
                                   saves_[i + 1].at == s.at + s.bytes() && offset >= 0 && offset <= 496 &&
                                   offset % s.bytes() == 0;
            if (next_fits && one_in(2)) {
                code_.stp(save_register(s), save_register(saves_[i + 1]), MemOperand(base, offset));
                ++i;
                continue;
            }
            if (is_victim(s) && flaw_ == flaw::saved_in_part) {
                if (s.vector)
                    code_.str(a64::SRegister(static_cast<int>(s.number)), MemOperand(base, offset));
                else
                    code_.str(w(s.number), MemOperand(base, offset));
                continue;
            }
            if (!s.vector && one_in(8) && !set_[17] && s.number < 29) {
                code_.mov(a64::x17, x(s.number));
                code_.str(a64::x17, MemOperand(base, offset));
                continue;
            }
            if (offset % s.bytes() != 0)
                code_.stur(save_register(s), MemOperand(base, offset));
            else
                code_.str(save_register(s), MemOperand(base, offset));
        }
    }

    // Restores in another order, some by pairs.
    void load_saves(bool flawed, std::size_t begin)
    {
        std::vector<std::size_t> order;
        for (std::size_t i = begin; i < saves_.size(); ++i)
            order.push_back(i);
        std::shuffle(order.begin(), order.end(), random_);
        std::set<std::size_t> done;
        for (const std::size_t i : order) {
            if (!done.insert(i).second)
                continue;
            const save& s = saves_[i];
            if (flawed && is_victim(s) && flaw_ == flaw::restore_left_out)
                continue;
            std::int64_t at = s.at;
            if (flawed && is_victim(s) && flaw_ == flaw::restored_from_elsewhere)
                at = elsewhere(s);
            if (flawed && is_victim(s) && flaw_ == flaw::saved_in_part && one_in(2) && !s.vector) {
                code_.ldr(w(s.number), MemOperand(a64::sp, at));
                continue;
            }
            const bool next_fits = i + 1 < saves_.size() && saves_[i + 1].vector == s.vector && at == s.at &&
                                   saves_[i + 1].whole_vector == s.whole_vector &&
                                   saves_[i + 1].at == s.at + s.bytes() && at <= 496 && at % s.bytes() == 0 &&
                                   !done.contains(i + 1) && !is_victim(saves_[i + 1]);
            const auto to = [&](const save& of) -> a64::CPURegister {
                if (!of.vector)
                    return x(of.number);
                return of.whole_vector ? q(of.number) : d(of.number);
            };
            if (next_fits && one_in(2)) {
                code_.ldp(to(s), to(saves_[i + 1]), MemOperand(a64::sp, at));
                done.insert(i + 1);
            } else if (s.vector && !s.whole_vector && one_in(8)) {
                code_.ldr(a64::x17, MemOperand(a64::sp, at));
                code_.fmov(d(s.number), a64::x17);
            } else if (s.whole_vector && one_in(2)) {
                code_.ldr(d(s.number), MemOperand(a64::sp, at));
            } else {
                code_.ldr(to(s), MemOperand(a64::sp, at));
            }
        }
    }

    std::int64_t elsewhere(const save& s)
    {
        const save& other = pick(saves_);
        if (other.at != s.at && one_in(2))
            return other.at;
        if (!slots_.empty() && one_in(2))
            return pick(slots_).at;
        return s.at >= 16 ? s.at - 8 - (s.whole_vector ? 8 : 0) : s.at + 16;
    }

    void epilogue(bool last)
    {
        const bool flawed = last || one_in(2);
        switch (style_) {
        case frame_style::none:
            break;
        case frame_style::in_registers:
            for (const save& s : saves_) {
                if (flawed && is_victim(s) && flaw_ == flaw::restore_left_out)
                    continue;
                const unsigned from =
                    flawed && is_victim(s) && flaw_ == flaw::restored_from_elsewhere ? s.in + 1 : s.in;
                if (s.vector)
                    code_.fmov(d(s.number), d(from));
                else
                    code_.mov(x(s.number), x(from));
            }
            break;
        case frame_style::pushed:
            if (one_in(3)) {
                load_saves(flawed, 0);
                free_frame(frame_, flawed);
                break;
            }
            free_frame(locals_bytes_, flawed);
            for (std::size_t i = pushes_.size(); i-- > 0;) {
                const std::size_t p = pushes_[i];
                const bool is_pair = p + 1 < saves_.size() && saves_[p + 1].at == saves_[p].at + 8;
                const auto to = [&](const save& s) -> a64::CPURegister {
                    const bool left_out = flawed && is_victim(s) && flaw_ == flaw::restore_left_out;
                    const unsigned number = left_out ? (s.vector ? 30U : 15U) : s.number;
                    return s.vector ? a64::CPURegister(d(number)) : a64::CPURegister(x(number));
                };
                const bool exchanged = flawed && flaw_ == flaw::restored_from_elsewhere && is_pair &&
                                       (is_victim(saves_[p]) || is_victim(saves_[p + 1]));
                if (exchanged)
                    code_.ldp(to(saves_[p + 1]), to(saves_[p]), MemOperand(a64::sp, 16, a64::PostIndex));
                else if (is_pair)
                    code_.ldp(to(saves_[p]), to(saves_[p + 1]), MemOperand(a64::sp, 16, a64::PostIndex));
                else
                    code_.ldr(to(saves_[p]), MemOperand(a64::sp, 16, a64::PostIndex));
            }
            break;
        case frame_style::writeback:
        case frame_style::frame_pointer: {
            if (style_ == frame_style::frame_pointer && one_in(2))
                code_.mov(a64::sp, a64::x29);
            const bool pair = saves_.size() > 1 && saves_[1].vector == saves_[0].vector &&
                              !saves_[0].whole_vector && !saves_[1].whole_vector && frame_ <= 496;
            const bool first_is_broken =
                flawed && victim_ < 2 &&
                (flaw_ == flaw::restore_left_out || flaw_ == flaw::restored_from_elsewhere ||
                 flaw_ == flaw::saved_in_part);
            if (pair && !first_is_broken && one_in(2)) {
                load_saves(flawed, 2);
                const std::int64_t by =
                    flawed && flaw_ == flaw::stack_pointer_off ? frame_ + (one_in(2) ? 8 : -16) : frame_;
                if (saves_[0].vector)
                    code_.ldp(d(saves_[0].number), d(saves_[1].number),
                              MemOperand(a64::sp, by, a64::PostIndex));
                else
                    code_.ldp(x(saves_[0].number), x(saves_[1].number),
                              MemOperand(a64::sp, by, a64::PostIndex));
                break;
            }
            load_saves(flawed, 0);
            free_frame(frame_, flawed);
            break;
        }
        case frame_style::large:
            load_saves(flawed, 0);
            code_.movz(a64::x16, static_cast<std::uint64_t>(
                                     flawed && flaw_ == flaw::stack_pointer_off ? frame_ - 16 : frame_));
            code_.add(a64::sp, a64::sp, a64::Operand(a64::x16, a64::UXTX));
            break;
        default:
            load_saves(flawed, 0);
            free_frame(frame_, flawed);
        }
        if (flawed && flaw_ == flaw::changed_after_restore) {
            const save& s = saves_[victim_];
            if (s.vector)
                code_.fmov(d(s.number), a64::x3);
            else
                code_.add(x(s.number), x(s.number), static_cast<std::int64_t>(1 + below(9)));
        }
        if (flawed && flaw_ == flaw::returns_by_another_register)
            code_.ret(x(one_in(2) ? 9 : 3));
        else
            code_.ret();
    }

    void free_frame(std::int64_t bytes, bool flawed)
    {
        if (flawed && flaw_ == flaw::stack_pointer_off) {
            if (one_in(3))
                return;
            bytes += one_in(2) ? 16 : -16;
        }
        if (bytes != 0)
            code_.add(a64::sp, a64::sp, bytes);
    }

    random_engine& random_;
    flaw flaw_;
    a64::Assembler code_;
    std::vector<tessjit::reloc_info> relocs_;
    bool calls_ = false;
    frame_style style_ = frame_style::none;
    std::vector<save> saves_;
    std::vector<std::size_t> pushes_; // first saves of the pushes
    std::vector<slot> slots_;
    std::int64_t frame_ = 0;
    std::int64_t locals_bytes_ = 0;
    std::int64_t pushed_ = 0;
    std::size_t victim_ = 0;
    bool has_frame_pointer_ = false;
    unsigned base_ = 0;
    unsigned other_base_ = 1;
    unsigned control_ = 2;
    registers set_;                // hold a value that does not depend on what the kernel must
                                   // not depend on
    registers half_set_;           // of these: the low 64 bits only
    std::bitset<32> scalable_set_; // Z registers that hold a value wholly
    std::bitset<16> predicate_set_;
    registers writable_;
    registers general_sources_;
};

} // namespace random_conventions
