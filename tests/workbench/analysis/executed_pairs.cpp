// Compares and executes pairs of random kernels. If `diff` calls them equivalent, they must leave the same
// memory, results and callee-saved registers, whatever the caller passes and the callees do.
//
// A pair is one random program, assembled twice: unchanged, and with changes, some of which preserve what it
// computes (renamed registers, another layout of constants) and some of which do not. Both are linked to the
// same addresses and run in VIXL's simulator, in a child process since wrong kernels crash.
//
// WFTA_PAIRS is the number of pairs, WFTA_TEST_SEED repeats a run, WFTA_PAIR runs one pair only.

#include "tests/support/random_seed.hpp"
#include "tests/support/simulated_cpu.hpp"
#include "tests/support/trials.hpp"
#include "workbench/analysis/difference.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/linking.hpp"

#include <aarch64/macro-assembler-aarch64.h>
#include <algorithm>
#include <array>
#include <cstring>
#include <elf.h>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>

namespace {

namespace a64 = vixl::aarch64;
using a64::MemOperand;
using a64::Register;
using a64::VRegister;
using vorna::workbench::change_class;
using vorna::workbench::compare_kernels;
using vorna::workbench::make_kernel_set;
using vorna::workbench::name_of;
using vorna::workbench::placed_kernel;
using random_engine = std::mt19937_64;

std::size_t below(random_engine& random, std::size_t end)
{
    return random() % end;
}

template <typename values>
auto one_of(random_engine& random, const values& all)
{
    return all[below(random, all.size())];
}

// ---------------------------------------------------------------------------------------------------------
// Programs.

// VIXL's register numbers are int.
Register general_register(unsigned number, int bits)
{
    return Register(static_cast<int>(number), bits);
}
VRegister vector_register(unsigned number, int bits)
{
    return VRegister(static_cast<int>(number), bits);
}

// The input and the output of assembling a program once.
struct emission {
    a64::Assembler code;
    std::array<unsigned, 32> general{}; // numbers of registers by their names
    std::array<unsigned, 32> vector{};
    std::vector<std::size_t> slots;  // which 16 bytes of the constants each has
    std::int32_t addend = 0;         // of addresses of the constants, less in the loads' offsets
    std::vector<std::size_t> places; // of the program's items, from the assembly before
    std::size_t pool = 0;            // item that is the first literal
    std::vector<tessjit::reloc_info> relocs;

    [[nodiscard]] Register x(unsigned name) const { return general_register(general[name], 64); }
    [[nodiscard]] Register w(unsigned name) const { return general_register(general[name], 32); }
    [[nodiscard]] VRegister v(unsigned name) const { return vector_register(vector[name], 128); }
    [[nodiscard]] VRegister d(unsigned name) const { return vector_register(vector[name], 64); }
    [[nodiscard]] std::int64_t here() const { return code.GetCursorOffset(); }
    [[nodiscard]] std::int64_t words_to(std::size_t item, std::int64_t bytes = 0) const
    {
        return (static_cast<std::int64_t>(places[item]) + bytes - here()) / 4;
    }
    [[nodiscard]] std::int64_t slot(std::size_t s) const
    {
        return 16 * static_cast<std::int64_t>(slots[s]) - addend;
    }
    void relocate(const std::string& name, std::int32_t type, std::int32_t with = 0)
    {
        relocs.push_back({name, static_cast<std::int32_t>(here()), type, with});
    }
};

using item = std::function<void(emission&)>;

struct program {
    std::vector<item> items;
    std::size_t pool = 0;
    std::size_t slots = 0;
    std::vector<unsigned> general; // names that may be exchanged
    std::vector<unsigned> vector;
    std::vector<unsigned> kept_general; // and those of preserved registers
    std::vector<unsigned> kept_vector;
    bool fixed_layout = false;
};

class generator {
public:
    explicit generator(random_engine& random) : random_(random) {}

    program make()
    {
        calls_ = below(random_, 3) == 0;
        tail_call_ = below(random_, 8) == 0;
        made_.slots = 4 + below(random_, 8);
        if (calls_) {
            pointers_ = {19, 20, 21};
            choose(made_.general, {9, 10, 11, 12, 13, 14, 15}, 4);
            choose(made_.vector, {16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31}, 5);
            choose(made_.kept_general, {23, 24, 25, 26}, 2);
            choose(made_.kept_vector, {8, 9, 10, 11}, 2);
        } else if (tail_call_) {
            choose(made_.general, {9, 10, 11, 12, 13, 14, 15}, 5);
            choose(made_.vector, {16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31}, 6);
        } else {
            choose(made_.general, {3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17}, 6);
            choose(made_.vector, {4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31},
                   6);
        }
        general_ = made_.general;
        vector_ = made_.vector;
        general_.insert(general_.end(), made_.kept_general.begin(), made_.kept_general.end());
        vector_.insert(vector_.end(), made_.kept_vector.begin(), made_.kept_vector.end());
        prologue();
        set_temporaries(general_, vector_);
        constants();
        body(6 + below(random_, 25), 0);
        epilogue();
        made_.pool = made_.items.size();
        for (unsigned i = 0; i < literals; ++i) {
            std::array<std::uint32_t, 4> words{};
            for (std::uint32_t& word : words)
                word = literal_word();
            add([words](emission& e) {
                for (const std::uint32_t word : words)
                    e.code.dc32(word);
            });
        }
        return made_;
    }

private:
    static constexpr unsigned literals = 3;

    void add(item made) { made_.items.push_back(std::move(made)); }

    void choose(std::vector<unsigned>& to, std::vector<unsigned> from, std::size_t count)
    {
        std::shuffle(from.begin(), from.end(), random_);
        to.assign(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(count));
    }
    unsigned g() { return one_of(random_, general_); }
    unsigned v() { return one_of(random_, vector_); }
    unsigned pointer() { return one_of(random_, pointers_); }
    unsigned offset(unsigned unit) { return unit * static_cast<unsigned>(below(random_, 60)); }
    a64::Condition condition() { return static_cast<a64::Condition>(below(random_, 14)); }
    // In half of the cases an instruction.
    std::uint32_t literal_word()
    {
        return below(random_, 2) == 0 ? static_cast<std::uint32_t>(random_())
                                      : 0x8b000000 | static_cast<std::uint32_t>(below(random_, 32)) << 16 |
                                            static_cast<std::uint32_t>(below(random_, 1024));
    }

    void prologue()
    {
        frame_ = calls_ || below(random_, 3) == 0;
        if (!frame_)
            return;
        add([calls = calls_](emission& e) {
            e.code.sub(a64::sp, a64::sp, 176);
            if (!calls)
                return;
            e.code.stp(a64::x29, a64::x30, MemOperand(a64::sp));
            e.code.stp(a64::x19, a64::x20, MemOperand(a64::sp, 16));
            e.code.stp(a64::x21, a64::x22, MemOperand(a64::sp, 32));
            e.code.stp(a64::x23, a64::x24, MemOperand(a64::sp, 48));
            e.code.stp(a64::x25, a64::x26, MemOperand(a64::sp, 64));
            e.code.stp(a64::d8, a64::d9, MemOperand(a64::sp, 80));
            e.code.stp(a64::d10, a64::d11, MemOperand(a64::sp, 96));
            e.code.mov(a64::x19, a64::x0);
            e.code.mov(a64::x20, a64::x1);
            e.code.mov(a64::x21, a64::x2);
            e.code.mov(a64::x22, a64::x5);
        });
    }

    void epilogue()
    {
        for (unsigned r = 0; r < 2; ++r) {
            if (below(random_, 2) == 0 && !tail_call_)
                add([r, from = g()](emission& e) { e.code.mov(general_register(r, 64), e.x(from)); });
        }
        for (unsigned r = 0; r < 4; ++r) {
            if (below(random_, 3) == 0)
                add([r, from = v()](emission& e) {
                    e.code.mov(vector_register(r, 128).V16B(), e.v(from).V16B());
                });
        }
        if (tail_call_ && calls_)
            set_arguments(9);
        add([calls = calls_, frame = frame_, tail = tail_call_](emission& e) {
            const Register to = calls ? a64::x16 : a64::x5;
            if (calls) {
                e.code.mov(a64::x16, a64::x22);
                e.code.ldp(a64::x29, a64::x30, MemOperand(a64::sp));
                e.code.ldp(a64::x19, a64::x20, MemOperand(a64::sp, 16));
                e.code.ldp(a64::x21, a64::x22, MemOperand(a64::sp, 32));
                e.code.ldp(a64::x23, a64::x24, MemOperand(a64::sp, 48));
                e.code.ldp(a64::x25, a64::x26, MemOperand(a64::sp, 64));
                e.code.ldp(a64::d8, a64::d9, MemOperand(a64::sp, 80));
                e.code.ldp(a64::d10, a64::d11, MemOperand(a64::sp, 96));
            }
            if (frame)
                e.code.add(a64::sp, a64::sp, 176);
            if (tail)
                e.code.br(to);
            else
                e.code.ret();
        });
    }

    void set_temporaries(const std::vector<unsigned>& general, const std::vector<unsigned>& vector)
    {
        for (const unsigned r : general) {
            if (below(random_, 3) == 0)
                add([r, n = below(random_, 65536)](emission& e) { e.code.movz(e.x(r), n); });
            else
                add([r, p = pointer(), o = offset(8)](emission& e) {
                    e.code.ldr(e.x(r), MemOperand(e.x(p), o));
                });
        }
        for (const unsigned r : vector)
            add([r, p = pointer(), o = offset(16)](emission& e) {
                e.code.ldr(e.v(r), MemOperand(e.x(p), o));
            });
    }

    void set_arguments(unsigned count)
    {
        for (unsigned r = 0; r < count; ++r)
            add([r, from = g()](emission& e) { e.code.mov(general_register(r, 64), e.x(from)); });
        for (unsigned r = 0; r < count && r < 8; ++r)
            add([r, from = v()](emission& e) {
                e.code.mov(vector_register(r, 128).V16B(), e.v(from).V16B());
            });
    }

    void call()
    {
        switch (below(random_, 3)) {
        case 0: // takes X0, X1, V0, V1
            set_arguments(2);
            add([](emission& e) {
                e.relocate("f", R_AARCH64_CALL26);
                e.code.bl(std::int64_t{0});
            });
            break;
        case 1: // takes all
            set_arguments(9);
            add([](emission& e) {
                e.relocate("g", R_AARCH64_CALL26);
                e.code.bl(std::int64_t{0});
            });
            break;
        default:
            set_arguments(9);
            add([](emission& e) { e.code.blr(a64::x22); });
            break;
        }
        for (unsigned r = 0; r < 2; ++r) {
            if (below(random_, 2) == 0)
                add([r, to = one_of(random_, made_.kept_general)](emission& e) {
                    e.code.mov(e.x(to), general_register(r, 64));
                });
            if (below(random_, 2) == 0)
                add([r, to = one_of(random_, made_.kept_vector)](emission& e) {
                    e.code.fmov(e.d(to), vector_register(r, 64));
                });
        }
        for (const unsigned r : made_.kept_vector) // whose low half the callee kept
            add([r](emission& e) { e.code.fmov(e.d(r), e.d(r)); });
        set_temporaries(made_.general, made_.vector);
    }

    void body(std::size_t count, unsigned depth)
    {
        for (std::size_t i = 0; i < count; ++i) {
            switch (below(random_, 20)) {
            case 0:
                constants();
                break;
            case 1:
                if (depth < 2)
                    skip(depth);
                break;
            case 2:
                if (depth < 2 && general_.size() > 3)
                    loop(depth);
                break;
            case 3:
                if (calls_)
                    call();
                break;
            case 4:
                literal();
                break;
            case 5:
            case 6:
            case 7:
            case 8:
                memory();
                break;
            case 9:
            case 10:
            case 11:
            case 12:
            case 13:
                integer();
                break;
            default:
                simd();
                break;
            }
        }
    }

    void skip(unsigned depth)
    {
        const auto end = std::make_shared<std::size_t>(0);
        const unsigned a = g();
        const unsigned b = g();
        switch (below(random_, 4)) {
        case 0:
            add([a, end](emission& e) { e.code.cbz(e.x(a), e.words_to(*end)); });
            break;
        case 1:
            add([a, end](emission& e) { e.code.cbnz(e.w(a), e.words_to(*end)); });
            break;
        case 2:
            add([a, end, bit = below(random_, 64)](emission& e) {
                e.code.tbz(e.x(a), static_cast<unsigned>(bit), e.words_to(*end));
            });
            break;
        default:
            add([a, b, end, c = condition()](emission& e) {
                e.code.cmp(e.x(a), e.x(b));
                e.code.b(e.words_to(*end), c);
            });
            break;
        }
        body(1 + below(random_, 4), depth + 1);
        *end = made_.items.size();
        add([](emission&) {});
    }

    void loop(unsigned depth)
    {
        const std::size_t chosen = below(random_, general_.size());
        const unsigned counter = general_[chosen];
        const bool counter_is_kept =
            std::count(made_.kept_general.begin(), made_.kept_general.end(), counter) != 0;
        if (calls_ && !counter_is_kept)
            return; // a call in the loop would clobber it
        general_.erase(general_.begin() + static_cast<std::ptrdiff_t>(chosen));
        const std::vector<unsigned> kept = made_.kept_general;
        made_.kept_general.erase(std::remove(made_.kept_general.begin(), made_.kept_general.end(), counter),
                                 made_.kept_general.end());
        if (made_.kept_general.empty())
            made_.kept_general = kept; // never: two are chosen
        add([counter, n = 1 + below(random_, 4)](emission& e) { e.code.movz(e.x(counter), n); });
        const std::size_t head = made_.items.size();
        const bool walks = below(random_, 3) == 0 && !general_.empty();
        unsigned table = 0;
        if (walks) {
            made_.fixed_layout = true;
            table = g();
            made_.items.insert(made_.items.end() - 1, [table](emission& e) {
                e.relocate(".rodata.k", R_AARCH64_ADR_PREL_LO21, e.addend);
                e.code.adr(e.x(table), std::int64_t{0});
            });
            if (calls_ && std::count(kept.begin(), kept.end(), table) == 0)
                table = 0;
        }
        const std::size_t begin = walks ? head + 1 : head;
        add([](emission&) {});
        if (walks && table != 0) {
            const auto without = general_;
            add([table, to = v()](emission& e) {
                e.code.ldr(e.d(to), MemOperand(e.x(table), 8, a64::PostIndex));
            });
            general_.erase(std::remove(general_.begin(), general_.end(), table), general_.end());
            if (!general_.empty() && (!calls_ || made_.kept_general.size() > 1))
                simd();
            general_ = without;
        } else if (depth < 1 || below(random_, 2) == 0) {
            body(1 + below(random_, 4), depth + 1);
        }
        if (below(random_, 2) == 0) {
            add([counter, begin](emission& e) {
                e.code.subs(e.x(counter), e.x(counter), 1);
                e.code.b(e.words_to(begin), a64::ne);
            });
        } else {
            add([counter, begin](emission& e) {
                e.code.sub(e.x(counter), e.x(counter), 1);
                e.code.cbnz(e.x(counter), e.words_to(begin));
            });
        }
        general_.push_back(counter);
        made_.kept_general = kept;
    }

    void constants()
    {
        const unsigned base = g();
        const std::size_t first = below(random_, made_.slots);
        const std::size_t second = below(random_, made_.slots);
        if (below(random_, 2) == 0) {
            add([base](emission& e) {
                e.relocate(".rodata.k", R_AARCH64_ADR_PREL_LO21, e.addend);
                e.code.adr(e.x(base), std::int64_t{0});
            });
        } else {
            add([base](emission& e) {
                e.relocate(".rodata.k", R_AARCH64_ADR_PREL_PG_HI21, e.addend);
                e.code.adrp(e.x(base), std::int64_t{0});
                e.relocate(".rodata.k", R_AARCH64_ADD_ABS_LO12_NC, e.addend);
                e.code.add(e.x(base), e.x(base), 0);
            });
        }
        unsigned to = g();
        while (to == base)
            to = g();
        switch (below(random_, 6)) {
        case 0:
            add([base, to, first](emission& e) {
                e.code.ldur(e.x(to), MemOperand(e.x(base), e.slot(first)));
            });
            break;
        case 1:
            add([base, to, first, second, wide = v()](emission& e) { // on from one to the other
                if (e.slot(first) >= 0)
                    e.code.add(e.x(base), e.x(base), e.slot(first));
                else
                    e.code.sub(e.x(base), e.x(base), -e.slot(first));
                e.code.ldr(e.v(wide), MemOperand(e.x(base), e.slot(second) - e.slot(first), a64::PostIndex));
                e.code.ldr(e.w(to), MemOperand(e.x(base), 4));
            });
            break;
        case 2:
            add([base, first, a = v(), b = v()](emission& e) {
                e.code.ldur(e.d(a), MemOperand(e.x(base), e.slot(first) + 8));
                if (a != b)
                    e.code.ldp(e.d(a), e.d(b), MemOperand(e.x(base), e.slot(first)));
            });
            break;
        case 3:
            add([base, to, first](emission& e) {
                e.code.mov(e.x(to), e.x(base));
                e.code.ldr(e.x(base), MemOperand(e.x(to), e.slot(first), a64::PreIndex));
            });
            // The register still holds its address, which must not change.
            add([to](emission& e) { e.code.movz(e.x(to), 7); });
            return;
        case 4:
            made_.fixed_layout = true; // some place
            add([base, to, wide = v(), slots = made_.slots](emission& e) {
                e.code.and_(e.x(to), e.x(to), slots >= 8 ? 0x78 : 0x38);
                e.code.ldr(e.d(wide), MemOperand(e.x(base), e.x(to)));
            });
            break;
        default:
            add([base, first, wide = v()](emission& e) {
                e.code.ldur(e.v(wide), MemOperand(e.x(base), e.slot(first)));
            });
            break;
        }
        add([base, n = below(random_, 1000)](emission& e) { e.code.movz(e.x(base), n); });
    }

    void literal()
    {
        const std::size_t which = below(random_, literals);
        switch (below(random_, 4)) {
        case 0:
            add([which, to = g()](emission& e) { e.code.ldr(e.x(to), e.words_to(e.pool + which)); });
            break;
        case 1:
            add([which, to = v()](emission& e) { e.code.ldr(e.v(to), e.words_to(e.pool + which)); });
            break;
        case 2: { // an address of the own code
            const unsigned base = g();
            unsigned to = g();
            while (to == base)
                to = g();
            add([which, base, to](emission& e) {
                e.code.adr(e.x(base), 4 * e.words_to(e.pool + which));
                e.code.ldr(e.x(to), MemOperand(e.x(base), 8));
                e.code.movz(e.x(base), 3);
            });
            break;
        }
        default: { // a word that is jumped over
            const std::size_t place = made_.items.size();
            add([word = literal_word()](emission& e) {
                e.code.b(std::int64_t{2});
                e.code.dc32(word);
            });
            add([place, to = g()](emission& e) { e.code.ldr(e.w(to), e.words_to(place, 4)); });
            break;
        }
        }
    }

    void memory()
    {
        const unsigned p = pointer();
        const unsigned a = g();
        const unsigned b = g();
        const unsigned va = v();
        const unsigned vb = v();
        const unsigned o = offset(16);
        switch (below(random_, 14)) {
        case 0:
            return add([=](emission& e) { e.code.ldr(e.x(a), MemOperand(e.x(p), o)); });
        case 1:
            return add([=](emission& e) { e.code.str(e.x(a), MemOperand(e.x(p), o)); });
        case 2:
            return add([=](emission& e) { e.code.ldrsb(e.w(a), MemOperand(e.x(p), o + 3)); });
        case 3:
            return add([=](emission& e) { e.code.strh(e.w(a), MemOperand(e.x(p), o)); });
        case 4:
            return add([=](emission& e) {
                if (a != b)
                    e.code.ldp(e.x(a), e.x(b), MemOperand(e.x(p), 16 * (o % 16)));
            });
        case 5:
            return add([=](emission& e) { e.code.stp(e.x(a), e.x(b), MemOperand(e.x(p), 16 * (o % 16))); });
        case 6:
            return add([=](emission& e) {
                e.code.and_(e.x(a), e.x(a), 0x3f8);
                e.code.ldr(e.x(b), MemOperand(e.x(p), e.x(a)));
            });
        case 7:
            return add([=](emission& e) {
                e.code.and_(e.x(a), e.x(b), 0x7f);
                e.code.str(e.v(va), MemOperand(e.x(p), e.w(a), a64::UXTW, 4));
            });
        case 8:
            return add([=](emission& e) { e.code.ldr(e.v(va), MemOperand(e.x(p), o)); });
        case 9:
            return add([=](emission& e) { e.code.str(e.v(va), MemOperand(e.x(p), o)); });
        case 10:
            return add([=](emission& e) { e.code.stp(e.d(va), e.d(vb), MemOperand(e.x(p), o % 256)); });
        case 11:
            return add([=](emission& e) { // with writeback
                if (a == b)
                    return;
                e.code.add(e.x(a), e.x(p), 256);
                e.code.str(e.d(va), MemOperand(e.x(a), 16, a64::PreIndex));
                e.code.ldr(e.x(b), MemOperand(e.x(a), -8, a64::PostIndex));
                e.code.ld1(e.v(vb).D(), 1, MemOperand(e.x(a)));
                e.code.st1(e.v(va).V4S(), MemOperand(e.x(a), 16, a64::PostIndex));
            });
        case 12:
            return add([=](emission& e) {
                e.code.add(e.x(a), e.x(p), 8);
                e.code.ldadd(e.x(b), e.x(b), MemOperand(e.x(a)));
            });
        default:
            if (frame_)
                return add([=](emission& e) {
                    e.code.str(e.x(a), MemOperand(a64::sp, 120));
                    e.code.str(e.v(va), MemOperand(a64::sp, 144));
                    e.code.ldr(e.d(vb), MemOperand(a64::sp, 120));
                    e.code.ldr(e.x(b), MemOperand(a64::sp, 152));
                });
        }
    }

    void integer()
    {
        const unsigned a = g();
        const unsigned b = g();
        const unsigned c = g();
        const unsigned n = static_cast<unsigned>(below(random_, 4096));
        const a64::Condition when = condition();
        switch (below(random_, 18)) {
        case 0:
            return add([=](emission& e) { e.code.add(e.x(a), e.x(b), e.x(c)); });
        case 1:
            return add([=](emission& e) { e.code.sub(e.w(a), e.w(b), n); });
        case 2:
            return add(
                [=](emission& e) { e.code.eor(e.x(a), e.x(b), a64::Operand(e.x(c), a64::LSL, n % 64)); });
        case 3:
            return add([=](emission& e) { e.code.madd(e.x(a), e.x(b), e.x(c), e.x(a)); });
        case 4:
            return add([=](emission& e) { e.code.udiv(e.x(a), e.x(b), e.x(c)); });
        case 5:
            return add([=](emission& e) { e.code.movk(e.x(a), n, 16); });
        case 6:
            return add([=](emission& e) { e.code.bfi(e.x(a), e.x(b), 8, 20); });
        case 7:
            return add([=](emission& e) {
                e.code.adds(e.x(a), e.x(b), e.x(c));
                e.code.adc(e.x(c), e.x(a), e.x(b));
            });
        case 8:
            return add([=](emission& e) {
                e.code.cmp(e.x(a), n);
                e.code.csel(e.x(b), e.x(c), e.x(a), when);
            });
        case 9:
            return add([=](emission& e) {
                e.code.cmp(e.x(b), e.x(c));
                e.code.ccmp(e.x(a), e.x(b), a64::NZFlag, when);
                e.code.cset(e.w(c), when);
            });
        case 10:
            return add([=](emission& e) { e.code.rev(e.x(a), e.x(b)); });
        case 11:
            return add([=](emission& e) { e.code.clz(e.w(a), e.w(b)); });
        case 12:
            return add([=](emission& e) { e.code.extr(e.x(a), e.x(b), e.x(c), n % 64); });
        case 13:
            return add([=](emission& e) { e.code.lslv(e.x(a), e.x(b), e.x(c)); });
        case 14:
            return add([=](emission& e) { e.code.mov(e.x(a), e.x(b)); });
        case 15:
            return add([=](emission& e) { e.code.smull(e.x(a), e.w(b), e.w(c)); });
        case 16:
            return add([=](emission& e) { e.code.and_(e.x(a), e.x(b), 0xff00); });
        default:
            return add([=](emission& e) { e.code.add(e.x(a), e.x(b), a64::Operand(e.w(c), a64::SXTW)); });
        }
    }

    void simd()
    {
        const unsigned a = v();
        const unsigned b = v();
        const unsigned c = v();
        const unsigned x = g();
        const unsigned n = static_cast<unsigned>(below(random_, 256));
        const a64::Condition when = condition();
        switch (below(random_, 25)) {
        case 0:
            return add([=](emission& e) { e.code.fadd(e.v(a).V2D(), e.v(b).V2D(), e.v(c).V2D()); });
        case 1:
            return add([=](emission& e) { e.code.fmla(e.v(a).V2D(), e.v(b).V2D(), e.v(c).V2D()); });
        case 2:
            return add([=](emission& e) { e.code.fmul(e.v(a).V4S(), e.v(b).V4S(), e.v(c).V4S()); });
        case 3:
            return add([=](emission& e) { e.code.fsub(e.d(a), e.d(b), e.d(c)); });
        case 4:
            return add([=](emission& e) { e.code.fmadd(e.d(a), e.d(b), e.d(c), e.d(a)); });
        case 5:
            return add([=](emission& e) { e.code.ins(e.v(a).V2D(), n & 1, e.v(b).V2D(), n >> 1 & 1); });
        case 6:
            return add([=](emission& e) { e.code.ins(e.v(a).V4S(), n & 3, e.w(x)); });
        case 7:
            return add([=](emission& e) { e.code.umov(e.x(x), e.v(a).V2D(), n & 1); });
        case 8:
            return add([=](emission& e) { e.code.dup(e.v(a).V4S(), e.v(b).V4S(), n & 3); });
        case 9:
            return add([=](emission& e) { e.code.ext(e.v(a).V16B(), e.v(b).V16B(), e.v(c).V16B(), n & 15); });
        case 10:
            return add([=](emission& e) { e.code.zip2(e.v(a).V4S(), e.v(b).V4S(), e.v(c).V4S()); });
        case 11:
            return add([=](emission& e) { e.code.tbl(e.v(a).V16B(), e.v(b).V16B(), e.v(c).V16B()); });
        case 12:
            return add([=](emission& e) { e.code.tbx(e.v(a).V16B(), e.v(b).V16B(), e.v(c).V16B()); });
        case 13:
            return add([=](emission& e) { e.code.eor(e.v(a).V16B(), e.v(b).V16B(), e.v(c).V16B()); });
        case 14:
            return add([=](emission& e) { e.code.xtn(e.v(a).V2S(), e.v(b).V2D()); });
        case 15:
            return add([=](emission& e) { e.code.xtn2(e.v(a).V4S(), e.v(b).V2D()); });
        case 16:
            return add([=](emission& e) {
                e.code.fcmp(e.d(a), e.d(b));
                e.code.fcsel(e.d(c), e.d(a), e.d(b), when);
            });
        case 17:
            return add([=](emission& e) { e.code.fcvtzs(e.x(x), e.d(a)); });
        case 18:
            return add([=](emission& e) { e.code.scvtf(e.d(a), e.x(x)); });
        case 19:
            return add([=](emission& e) { e.code.bsl(e.v(a).V16B(), e.v(b).V16B(), e.v(c).V16B()); });
        case 20:
            return add([=](emission& e) { e.code.movi(e.v(a).V16B(), n); });
        case 21:
            return add([=](emission& e) { e.code.fmul(e.v(a).V2D(), e.v(b).V2D(), e.v(c).D(), n & 1); });
        case 22:
            return add([=](emission& e) { e.code.sqadd(e.v(a).V8H(), e.v(b).V8H(), e.v(c).V8H()); });
        case 23:
            return add([=](emission& e) { e.code.fmov(e.v(a).D(), 1, e.x(x)); });
        default:
            return add([=](emission& e) { e.code.fmov(e.d(a), e.x(x)); });
        }
    }

    random_engine& random_;
    program made_;
    bool calls_ = false;
    bool tail_call_ = false;
    bool frame_ = false;
    std::vector<unsigned> pointers_ = {0, 1, 2};
    std::vector<unsigned> general_; // that may be written now
    std::vector<unsigned> vector_;
};

// ---------------------------------------------------------------------------------------------------------
// Placing and changing them.

constexpr std::size_t arena_size = 0x100000;
constexpr std::size_t text_at = 0x1000;
constexpr std::size_t data_at = 0x20000;
constexpr std::size_t callees_at = 0x30000; // f, g
constexpr std::size_t return_at = 0x38124;  // the caller
constexpr std::size_t buffers_at = 0x40000; // three of 4096 bytes, each pointed into at its 1024th
constexpr std::size_t stack_at = 0x44000;
constexpr std::size_t stack_end = 0x48000;
constexpr std::size_t caller_frame = 256;

// The programs and their addresses are made before a child runs them.
support::guarded_memory& arena()
{
    static support::guarded_memory memory(arena_size);
    return memory;
}

std::uint64_t address(std::size_t at)
{
    return arena().address(at);
}

struct naming {
    std::array<unsigned, 32> general{};
    std::array<unsigned, 32> vector{};
    std::vector<std::size_t> slots;
    std::int32_t addend = 0;

    explicit naming(const program& program) : slots(program.slots)
    {
        std::iota(general.begin(), general.end(), 0U);
        std::iota(vector.begin(), vector.end(), 0U);
        std::iota(slots.begin(), slots.end(), std::size_t{0});
    }
};

using constants = std::vector<std::array<std::uint8_t, 16>>;

// From the item `from` on, registers are renamed according to `late`.
placed_kernel assemble(const program& program, const naming& names, const constants& values,
                       std::size_t from = ~std::size_t{0}, const naming* late = nullptr)
{
    std::vector<std::size_t> places(program.items.size() + 1);
    placed_kernel kernel{"k", address(text_at), {}, address(data_at), {}, {}, 0, ""};
    for (int pass = 0; pass < 2; ++pass) {
        emission e;
        e.code.SetCPUFeatures(vixl::CPUFeatures::All());
        e.general = names.general;
        e.vector = names.vector;
        e.slots = names.slots;
        e.addend = names.addend;
        e.places = places;
        e.pool = program.pool;
        for (std::size_t i = 0; i < program.items.size(); ++i) {
            if (i == from) {
                e.general = late->general;
                e.vector = late->vector;
            }
            places[i] = static_cast<std::size_t>(e.here());
            program.items[i](e);
        }
        e.code.FinalizeCode();
        const auto* const begin = e.code.GetBuffer()->GetStartAddress<const std::uint8_t*>();
        kernel.text.assign(begin, begin + e.code.GetSizeOfCodeGenerated());
        kernel.relocs = e.relocs;
    }
    kernel.data.resize(16 * values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        std::copy(values[i].begin(), values[i].end(),
                  kernel.data.begin() + static_cast<std::ptrdiff_t>(16 * names.slots[i]));
    return kernel;
}

void exchange(random_engine& random, std::array<unsigned, 32>& numbers, std::vector<unsigned> names)
{
    std::vector<unsigned> others = names;
    std::shuffle(others.begin(), others.end(), random);
    for (std::size_t i = 0; i < names.size(); ++i)
        numbers[names[i]] = others[i];
}

// Permutes the registers of each kind that the program may use freely.
void exchange_legally(random_engine& random, naming& names, const program& program)
{
    exchange(random, names.general, program.general);
    exchange(random, names.vector, program.vector);
    exchange(random, names.general, program.kept_general);
    exchange(random, names.vector, program.kept_vector);
}

void change_word(placed_kernel& kernel, std::size_t index, std::uint32_t mask)
{
    std::uint32_t word = 0;
    std::memcpy(&word, kernel.text.data() + 4 * index, 4);
    word ^= mask;
    std::memcpy(kernel.text.data() + 4 * index, &word, 4);
}

enum mutation : std::uint8_t {
    none,
    registers_exchanged,
    constants_laid_out_anew,
    constants_laid_out_wrongly,
    bit_flipped,
    field_replaced,
    roles_exchanged,
    literal_changed,
    exchanged_from_somewhere_on,
    exchanged_but_once,
    words_exchanged,
    constant_changed,
    odd_word_in_both, // and registers exchanged
    mutations
};

constexpr const char* mutation_names[] = {
    "none",
    "registers exchanged throughout",
    "constants laid out anew",
    "constants laid out wrongly",
    "a bit flipped",
    "a field replaced",
    "registers with roles exchanged",
    "a literal changed",
    "registers exchanged from somewhere on",
    "registers exchanged but once",
    "two words exchanged",
    "a constant changed",
    "any word in both, registers exchanged",
};

struct pair_of_kernels {
    placed_kernel before;
    placed_kernel after;
};

std::uint32_t field_change(random_engine& random)
{
    static constexpr unsigned fields[] = {0, 5, 10, 16};
    return static_cast<std::uint32_t>(1 + below(random, 31)) << fields[below(random, 4)];
}

std::optional<pair_of_kernels> make_pair_of(random_engine& random, mutation change)
{
    const program program = generator(random).make();
    constants values(program.slots);
    for (auto& value : values) {
        for (std::uint8_t& byte : value)
            byte = static_cast<std::uint8_t>(random());
    }
    naming names(program);
    const placed_kernel before = assemble(program, names, values);
    const std::size_t words = before.text.size() / 4;
    const std::size_t code_words = words - 4 * 3;
    placed_kernel after = before;
    switch (change) {
    case none:
        break;
    case registers_exchanged:
        exchange_legally(random, names, program);
        after = assemble(program, names, values);
        break;
    case constants_laid_out_anew:
    case constants_laid_out_wrongly: {
        const bool wrong = change == constants_laid_out_wrongly;
        if (program.fixed_layout && !wrong)
            return std::nullopt;
        std::shuffle(names.slots.begin(), names.slots.end(), random);
        names.addend = 8 * static_cast<std::int32_t>(below(random, 4));
        after = assemble(program, names, values);
        if (!wrong && after.text == before.text && names.addend == 0)
            return std::nullopt; // another layout of what is loaded nowhere
        if (wrong && below(random, 2) == 0)
            after.data = before.data;
        else if (wrong)
            after.data[below(random, after.data.size())] ^= 1;
        break;
    }
    case bit_flipped:
        change_word(after, below(random, words), std::uint32_t{1} << below(random, 32));
        break;
    case field_replaced:
        change_word(after, below(random, code_words), field_change(random));
        break;
    case roles_exchanged: {
        std::vector<unsigned> general = program.general;
        std::vector<unsigned> vector = program.vector;
        general.insert(general.end(), {0, 1, 2, 5, 19, 20, 30});
        vector.insert(vector.end(), {0, 1, 2, 3, 8});
        exchange(random, names.general, general);
        exchange(random, names.vector, vector);
        after = assemble(program, names, values);
        break;
    }
    case literal_changed:
        change_word(after, code_words + below(random, words - code_words),
                    std::uint32_t{1} << below(random, 32));
        break;
    case exchanged_from_somewhere_on: {
        naming late(program);
        exchange_legally(random, late, program);
        after = assemble(program, names, values, below(random, program.items.size()), &late);
        break;
    }
    case exchanged_but_once:
        exchange_legally(random, names, program);
        after = assemble(program, names, values);
        change_word(after, below(random, code_words), field_change(random));
        break;
    case words_exchanged: {
        const std::size_t first = below(random, words - 1);
        std::swap_ranges(after.text.begin() + static_cast<std::ptrdiff_t>(4 * first),
                         after.text.begin() + static_cast<std::ptrdiff_t>(4 * first + 4),
                         after.text.begin() + static_cast<std::ptrdiff_t>(4 * first + 4));
        break;
    }
    case constant_changed:
        exchange_legally(random, names, program);
        values[below(random, values.size())][below(random, 16)] ^= 1;
        after = assemble(program, names, values);
        break;
    default: {
        exchange_legally(random, names, program);
        after = assemble(program, names, values);
        placed_kernel odd = before;
        for (std::size_t i = 0; i < 1 + below(random, 2); ++i) {
            const std::size_t index = below(random, code_words);
            const auto drawn = random();
            const std::uint32_t mask = below(random, 2) == 0
                                           ? std::uint32_t{1} << below(random, 32)
                                           : static_cast<std::uint32_t>(drawn & random() & 0xffffffff);
            change_word(odd, index, mask);
            change_word(after, index, mask);
        }
        return pair_of_kernels{odd, after};
    }
    }
    if (below(random, 2) == 0)
        return pair_of_kernels{after, before};
    return pair_of_kernels{before, after};
}

// ---------------------------------------------------------------------------------------------------------
// Execution.

struct machine_state {
    std::array<std::uint64_t, 32> general{}; // with SP
    std::array<std::array<std::uint64_t, 2>, 32> vector{};
    unsigned flags = 0;
    std::vector<std::uint8_t> memory; // buffers and stack
};

enum class ending : std::uint8_t { returned, too_long, elsewhere, unknown_instruction };

struct run_result {
    ending end = ending::returned;
    std::vector<std::uint64_t> seen; // by callees
    machine_state state;
};

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value)
{
    hash = (hash ^ value) * 0x9e3779b97f4a7c15;
    return hash ^ hash >> 29;
}

class machine {
public:
    run_result run(const std::vector<std::uint8_t>& text, const std::vector<std::uint8_t>& data,
                   const machine_state& start, bool clobbers_with_temporaries)
    {
        arena().clear();
        std::uint8_t* const memory = arena().begin();
        std::memcpy(memory + text_at, text.data(), text.size());
        std::memcpy(memory + data_at, data.data(), data.size());
        std::memcpy(memory + buffers_at, start.memory.data(), start.memory.size());
        cpu_.simulator().ResetState();
        for (unsigned i = 0; i < 31; ++i)
            cpu_.write_x(i, start.general[i]);
        cpu_.simulator().WriteSp(start.general[31]);
        for (unsigned i = 0; i < 32; ++i)
            cpu_.write_v(i, start.vector[i]);
        cpu_.write_flags(start.flags);
        cpu_.write_x(30, address(return_at));
        cpu_.write_pc(address(text_at));
        run_result result;
        const std::uint64_t begin = address(text_at);
        const std::uint64_t end = begin + text.size();
        for (int left = 20000;; --left) {
            const std::uint64_t pc = cpu_.pc();
            // With another SP it is a call of the caller, which a changed word may make.
            if (pc == address(return_at) && cpu_.sp() == start.general[31])
                break;
            if (pc == address(callees_at) || pc == address(callees_at + 0x100)) {
                callee(result, pc != address(callees_at), clobbers_with_temporaries);
                continue;
            }
            if (pc < begin || pc >= end || left <= 0) {
                result.end = left <= 0 ? ending::too_long : ending::elsewhere;
                return result;
            }
            if (!cpu_.knows_instruction_here()) {
                result.end = ending::unknown_instruction;
                return result;
            }
            cpu_.simulator().ExecuteInstruction();
        }
        for (unsigned i = 0; i < 31; ++i)
            result.state.general[i] = cpu_.x(i);
        result.state.general[31] = cpu_.sp();
        for (unsigned i = 0; i < 32; ++i)
            result.state.vector[i] = cpu_.v(i);
        result.state.memory.assign(memory + buffers_at, memory + stack_end);
        return result;
    }

private:
    // The callee's results depend on its arguments, and it fills each register that it may clobber with a
    // value that depends on the old one.
    void callee(run_result& result, bool takes_all, bool clobbers_with_temporaries)
    {
        std::uint64_t seen = result.seen.size();
        std::uint64_t left = 1;
        for (unsigned i = 0; i < (takes_all ? 9U : 2U); ++i)
            seen = mixed(seen, cpu_.x(i));
        for (unsigned i = 0; i < (takes_all ? 8U : 2U); ++i)
            seen = mixed(mixed(seen, cpu_.v(i)[0]), cpu_.v(i)[1]);
        seen = mixed(mixed(seen, cpu_.x(18)), cpu_.sp());
        for (unsigned i = 9; i < 18; ++i)
            left = mixed(left, cpu_.x(i));
        for (unsigned i = 16; i < 32; ++i)
            left = mixed(mixed(left, cpu_.v(i)[0]), cpu_.v(i)[1]);
        result.seen.push_back(seen);
        const std::uint64_t arguments_left = clobbers_with_temporaries ? left : seen;
        const std::uint64_t back = cpu_.x(30);
        for (unsigned i = 0; i < 18; ++i)
            cpu_.write_x(i, mixed(i < 2 ? seen : i < 9 ? arguments_left : left, i));
        for (unsigned i = 0; i < 32; ++i) {
            const std::uint64_t from = i < 4 ? seen : i < 8 ? arguments_left : left;
            const bool kept = i >= 8 && i < 16;
            cpu_.write_v(i, {kept ? cpu_.v(i)[0] : mixed(from, 100 + i), mixed(from, 200 + i)});
        }
        cpu_.write_flags(static_cast<unsigned>(left & 15));
        cpu_.write_x(30, left);
        cpu_.write_pc(back);
    }

    support::simulated_cpu cpu_;
};

machine_state random_state(random_engine& random)
{
    machine_state state;
    for (std::uint64_t& value : state.general)
        value = below(random, 3) == 0 ? below(random, 8) : random();
    for (auto& value : state.vector)
        value = {random(), random()};
    for (unsigned i = 0; i < 3; ++i)
        state.general[i] = address(buffers_at + 4096 * i + 1024);
    state.general[5] = address(callees_at + 0x100);
    state.general[31] = address(stack_end - caller_frame);
    state.flags = static_cast<unsigned>(below(random, 16));
    state.memory.resize(stack_end - buffers_at);
    for (std::size_t i = 0; i < 3 * 4096; i += 8) {
        const std::uint64_t value = below(random, 4) == 0 ? 0 : random();
        std::memcpy(state.memory.data() + i, &value, 8);
    }
    return state;
}

// What a caller may observe according to the AAPCS64.
bool look_the_same(const run_result& a, const run_result& b)
{
    const auto same_general = [&](unsigned first, unsigned last) {
        return std::equal(a.state.general.begin() + first, a.state.general.begin() + last + 1,
                          b.state.general.begin() + first);
    };
    bool same = a.end == b.end && a.seen == b.seen && same_general(0, 1) && same_general(18, 29) &&
                same_general(31, 31);
    for (unsigned i = 0; i < 4; ++i)
        same = same && a.state.vector[i] == b.state.vector[i];
    for (unsigned i = 8; i < 16; ++i)
        same = same && a.state.vector[i][0] == b.state.vector[i][0];
    const std::size_t stack = stack_at - buffers_at;
    const std::size_t frame = stack_end - buffers_at - caller_frame;
    return same && std::memcmp(a.state.memory.data(), b.state.memory.data(), stack) == 0 &&
           std::memcmp(a.state.memory.data() + frame, b.state.memory.data() + frame, caller_frame) == 0;
}

// The progress of a pair, shared with the parent.
enum class stage : std::uint8_t { waiting, not_made, compared, before_ran, done };

struct record {
    mutation change;
    change_class verdict;
    stage reached;
    bool differs;
};

bool says_the_same(change_class verdict)
{
    return verdict == change_class::same || verdict == change_class::layout ||
           verdict == change_class::registers;
}

std::optional<std::vector<std::uint8_t>> linked(const placed_kernel& kernel)
{
    const auto callee = [](const char* name, std::size_t at) {
        return placed_kernel{name, address(at), {0xc0, 0x03, 0x5f, 0xd6}, address(at) + 8, {}, {}, 0, ""};
    };
    const auto set = make_kernel_set({kernel, callee("f", callees_at), callee("g", callees_at + 0x100)});
    const auto made = vorna::workbench::link_kernel(set, *vorna::workbench::find_kernel(set, "k"));
    for (const auto outcome : made.findings) {
        if (outcome)
            return std::nullopt;
    }
    return made.text;
}

void run_pair(unsigned seed, std::size_t number, record& result, machine& machine)
{
    random_engine random((static_cast<std::uint64_t>(seed) << 32) + number);
    result.change = static_cast<mutation>(number % mutations);
    const auto pair = make_pair_of(random, result.change);
    const auto before = pair ? linked(pair->before) : std::nullopt;
    const auto after = pair ? linked(pair->after) : std::nullopt;
    if (!before || !after) {
        result.reached = stage::not_made;
        return;
    }
    result.verdict = compare_kernels(pair->before, pair->after);
    result.reached = stage::compared;
    constexpr int inputs = 3;
    std::vector<run_result> expected;
    std::vector<machine_state> starts;
    const bool clobbers_with_temporaries = result.change != odd_word_in_both;
    for (int i = 0; i < inputs; ++i) {
        starts.push_back(random_state(random));
        expected.push_back(machine.run(*before, pair->before.data, starts.back(), clobbers_with_temporaries));
        if (expected.back().end != ending::returned) {
            result.reached = stage::not_made;
            return;
        }
    }
    result.reached = stage::before_ran;
    for (std::size_t i = 0; i < inputs; ++i) {
        const run_result made = machine.run(*after, pair->after.data, starts[i], clobbers_with_temporaries);
        if (made.end == ending::unknown_instruction) {
            result.reached = stage::not_made;
            return;
        }
        result.differs = result.differs || !look_the_same(expected[i], made);
    }
    result.reached = stage::done;
}

constexpr std::size_t most_pairs_of_a_child = 2000; // since the simulator's memory grows

void print_pair(const pair_of_kernels& pair)
{
    vorna::workbench::disassembler disassembler;
    for (std::size_t at = 0; at < pair.before.text.size(); at += 4) {
        const std::uint32_t words[] = {vorna::workbench::word_at(pair.before.text, at),
                                       vorna::workbench::word_at(pair.after.text, at)};
        std::cout << std::hex << at << std::dec << "\t" << disassembler.text(words[0], at) << "\t"
                  << (words[0] == words[1] ? "" : disassembler.text(words[1], at)) << "\n";
    }
}

TEST(ExecutedPairs, ComputeTheSameIfTheyAreSaidTo)
{
    const unsigned seed = support::random_seed();
    const char* const wanted = std::getenv("WFTA_PAIRS");
    const std::size_t count = wanted != nullptr ? std::stoul(wanted) : 2600;
    std::cout << count << " pairs, WFTA_TEST_SEED=" << seed << std::endl;
    arena(); // which the children share
    std::size_t first = 0;
    std::size_t end = count;
    if (const char* const only = std::getenv("WFTA_PAIR")) {
        first = std::stoul(only);
        end = first + 1;
        random_engine random((static_cast<std::uint64_t>(seed) << 32) + first);
        if (const auto pair = make_pair_of(random, static_cast<mutation>(first % mutations)))
            print_pair(*pair);
    }
    support::shared_records<record> records(std::max(count, end));
    support::run_trials<machine>(first, end, most_pairs_of_a_child, [&](std::size_t i, machine& machine) {
        run_pair(seed, i, records[i], machine);
    });

    struct tally {
        std::map<std::string, int> verdicts;
        int executed = 0;
        int differ = 0;
        int said_the_same = 0;
        int made = 0;
    };
    std::map<mutation, tally> tallies;
    for (std::size_t i = first; i < end; ++i) {
        const record& pair = records[i];
        tally& of = tallies[pair.change];
        const bool executed = pair.reached == stage::done || pair.reached == stage::before_ran;
        if (pair.reached == stage::waiting || pair.reached == stage::not_made)
            continue;
        ++of.made;
        ++of.verdicts[std::string(name_of(pair.verdict))];
        of.said_the_same += says_the_same(pair.verdict) ? 1 : 0;
        if (!executed)
            continue; // the first of them crashed already
        const bool differs = pair.differs || pair.reached == stage::before_ran; // the other one crashed
        ++of.executed;
        of.differ += differs ? 1 : 0;
        EXPECT_FALSE(differs && says_the_same(pair.verdict))
            << "pair " << i << " (" << mutation_names[pair.change] << ") is said to be "
            << name_of(pair.verdict) << " and is not, WFTA_TEST_SEED=" << seed;
    }
    for (const auto& [change, of] : tallies) {
        std::cout << mutation_names[change] << ": " << of.made << ", executed " << of.executed
                  << ", of which " << of.differ << " differ;";
        for (const auto& [verdict, number] : of.verdicts)
            std::cout << " " << verdict << " " << number;
        std::cout << "\n";
    }
    if (std::getenv("WFTA_PAIR") != nullptr)
        return;
    // A proof that always fails would never be wrong.
    const auto share = [&](mutation change) {
        return static_cast<double>(tallies[change].said_the_same) / std::max(1, tallies[change].made);
    };
    EXPECT_EQ(share(none), 1);
    EXPECT_GE(share(registers_exchanged), 0.8);
    EXPECT_GE(share(constants_laid_out_anew), 0.8);
    EXPECT_GT(tallies[bit_flipped].differ, tallies[bit_flipped].executed / 4);
}

} // namespace
