// Executes random kernels in VIXL's simulator: the values that `show` prints beside a load must be those that
// it reads, and the findings of `check` about accesses and the end of the code must match the execution.

#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/analysis/check_dumps.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/render/listing.hpp"

#include <aarch64/assembler-aarch64.h>
#include <aarch64/simulator-aarch64.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <elf.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;
namespace a64 = vixl::aarch64;
using a64::MemOperand;
using a64::Register;

std::size_t kernels_in_a_run()
{
    const char* const given = std::getenv("WFTA_KERNELS");
    return given != nullptr ? std::stoul(given) : 2000;
}

/// An access in a kernel without branches, through a known address of its constants.
struct certain_access {
    std::size_t offset;
    std::int64_t first; ///< byte of the constants
    unsigned bytes;
};

struct random_kernel {
    std::vector<std::uint8_t> text;
    std::vector<std::uint8_t> data;
    std::vector<tessjit::reloc_info> relocs;
    bool is_straight = false;
    bool branches_to_register = false;
    std::vector<certain_access> accesses; ///< of one that is straight
    std::vector<std::size_t> statements;  ///< offsets at which it may be entered
};

class generator {
public:
    explicit generator(std::mt19937_64& random) : random_(random) {}

    random_kernel run()
    {
        kernel_.is_straight = one_in(4);
        kernel_.data.resize(8 * (1 + below(12)));
        for (std::size_t i = 0; i < kernel_.data.size(); i += 4) {
            const std::uint32_t word = static_cast<std::uint32_t>(random_()) & 0xbfefffff; // a finite number
            std::memcpy(kernel_.data.data() + i, &word, sizeof word);
        }
        code_.mov(a64::x28, a64::x30);
        address(pick(addresses));
        for (std::size_t left = 3 + below(14); left > 0; --left)
            statement(0);
        for (std::size_t i = 0; i < labels_.size() && !kernel_.is_straight; ++i) {
            if (!labels_[i].IsBound())
                code_.bind(&labels_[i]);
        }
        code_.mov(a64::x30, a64::x28);
        if (!one_in(8) || !wanted_.empty())
            code_.ret();
        else
            code_.nop();
        place_literals();
        code_.FinalizeCode();
        const auto* const begin = code_.GetBuffer()->GetStartAddress<const std::uint8_t*>();
        kernel_.text.assign(begin, begin + code_.GetSizeOfCodeGenerated());
        return std::move(kernel_);
    }

private:
    static constexpr std::array<unsigned, 7> addresses = {3, 4, 5, 6, 19, 20, 21};
    static constexpr std::array<unsigned, 6> values = {9, 10, 11, 12, 13, 14};

    std::size_t below(std::size_t limit) { return random_() % limit; }
    bool one_in(std::size_t n) { return below(n) == 0; }
    template <typename T>
    unsigned pick(const T& from)
    {
        return from[below(from.size())];
    }
    static Register x(unsigned number) { return a64::XRegister(static_cast<int>(number)); }
    static Register w(unsigned number) { return a64::WRegister(static_cast<int>(number)); }

    [[nodiscard]] std::size_t here() const { return static_cast<std::size_t>(code_.GetCursorOffset()); }

    void relocate(const std::string& target, std::int32_t type, std::int32_t addend)
    {
        kernel_.relocs.push_back({target, static_cast<std::int32_t>(here()), type, addend});
    }

    std::int32_t addend() { return static_cast<std::int32_t>(4 * below(kernel_.data.size() / 4)); }

    void address(unsigned to)
    {
        const std::int32_t of = addend();
        known_[to] = of;
        if (one_in(3)) {
            relocate(".rodata.k", R_AARCH64_ADR_PREL_LO21, of);
            code_.adr(x(to), std::int64_t{0});
            return;
        }
        relocate(".rodata.k", R_AARCH64_ADR_PREL_PG_HI21, of);
        code_.adrp(x(to), std::int64_t{0});
        const bool whole = !one_in(12);
        const std::int32_t low = whole ? of : addend();
        if (whole || one_in(2))
            relocate(".rodata.k", R_AARCH64_ADD_ABS_LO12_NC, low);
        if (low != of || !whole)
            known_[to].reset();
        code_.add(x(to), x(to), 0);
    }

    void statement(unsigned depth)
    {
        kernel_.statements.push_back(here());
        const std::size_t kinds = kernel_.is_straight ? 10 : 20;
        switch (below(kinds)) {
        case 0:
            return address(pick(addresses));
        case 1: {
            const unsigned to = pick(addresses);
            const unsigned from = pick(addresses);
            code_.mov(x(to), x(from));
            known_[to] = known_[from];
            return;
        }
        case 2: {
            const unsigned to = pick(addresses);
            const unsigned from = one_in(2) ? to : pick(addresses);
            const auto constant = static_cast<std::int64_t>(4 * below(one_in(10) ? 1000 : 10));
            const bool add = one_in(2);
            if (add)
                code_.add(x(to), x(from), constant);
            else
                code_.sub(x(to), x(from), constant);
            known_[to] = known_[from];
            if (known_[to])
                *known_[to] += add ? constant : -constant;
            return;
        }
        case 3:
            if (one_in(3))
                return indexed();
            return store();
        case 4:
            if (one_in(2))
                return call();
            return load();
        case 5:
        case 6:
        case 7:
        case 8:
        case 9:
            return load();
        case 10:
        case 11:
        case 12:
            return depth < 3 ? loop(depth) : load();
        case 13:
        case 14:
            return depth < 3 ? skip(depth) : load();
        case 15:
        case 16:
            if (one_in(2))
                return walk(depth);
            return jump();
        case 17:
            if (one_in(4))
                return jump_to_register();
            return place_label();
        default:
            return one_in(2) ? literal() : load();
        }
    }

    void indexed()
    {
        const unsigned value = pick(values);
        code_.and_(x(value), x(value), 0x38);
        const unsigned base = pick(addresses);
        switch (below(3)) {
        case 0:
            code_.ldr(w(pick(values)), MemOperand(x(base), x(value)));
            return;
        case 1:
            code_.str(w(pick(values)), MemOperand(x(base), x(value)));
            return;
        default:
            code_.add(x(base), x(base), a64::Operand(x(value)));
            known_[base].reset();
        }
    }

    void record(unsigned base, std::int64_t offset, unsigned bytes)
    {
        if (kernel_.is_straight && known_[base])
            kernel_.accesses.push_back({here(), *known_[base] + offset, bytes});
    }

    // A memory operand of a load or store of this size.
    MemOperand operand(unsigned bytes)
    {
        const unsigned base = favoured_ && !one_in(3) ? *favoured_ : pick(addresses);
        const auto offset = static_cast<std::int64_t>(below(6)) * bytes;
        switch (below(6)) {
        case 0:
            record(base, 0, bytes);
            move(base, offset);
            return MemOperand(x(base), offset, a64::PostIndex);
        case 1:
            record(base, -offset, bytes);
            move(base, -offset);
            return MemOperand(x(base), -offset, a64::PreIndex);
        case 2:
            record(base, -4, bytes);
            return MemOperand(x(base), -4);
        default:
            record(base, offset, bytes);
            return MemOperand(x(base), offset);
        }
    }

    void move(unsigned base, std::int64_t by)
    {
        if (known_[base])
            *known_[base] += by;
    }

    void load()
    {
        const unsigned to = pick(values);
        const auto v = static_cast<unsigned>(below(8));
        switch (below(14)) {
        case 0:
            return code_.ldr(x(to), operand(8));
        case 1:
            return code_.ldr(w(to), operand(4));
        case 2:
            return code_.ldrh(w(to), operand(2));
        case 3:
            return code_.ldrb(w(to), operand(1));
        case 4:
            return code_.ldrsh(one_in(2) ? x(to) : w(to), operand(2));
        case 5:
            return code_.ldrsb(one_in(2) ? x(to) : w(to), operand(1));
        case 6:
            return code_.ldrsw(x(to), operand(4));
        case 7:
            return code_.ldr(a64::DRegister(static_cast<int>(v)), operand(8));
        case 8:
            return code_.ldr(a64::SRegister(static_cast<int>(v)), operand(4));
        case 9:
            return code_.ldr(a64::QRegister(static_cast<int>(v)), operand(16));
        case 10:
            return load_pair(x(to), x(15), 8);
        case 11:
            return load_pair(w(to), w(15), 4);
        case 12:
            return load_pair(a64::DRegister(static_cast<int>(v)), a64::d8, 8);
        default: {
            const unsigned base = pick(addresses);
            record(base, 0, 16);
            const a64::VRegister vector(static_cast<int>(v), one_in(2) ? a64::kFormat2D : a64::kFormat4S);
            if (one_in(2)) {
                move(base, 16);
                return code_.ld1(vector, MemOperand(x(base), 16, a64::PostIndex));
            }
            return code_.ld1(vector, MemOperand(x(base)));
        }
        }
    }

    void load_pair(const a64::CPURegister& first, const a64::CPURegister& second, unsigned bytes)
    {
        const unsigned base = pick(addresses);
        const auto offset = static_cast<std::int64_t>(below(4)) * bytes;
        if (one_in(2)) {
            record(base, 0, 2 * bytes);
            move(base, offset);
            return code_.ldp(first, second, MemOperand(x(base), offset, a64::PostIndex));
        }
        record(base, offset, 2 * bytes);
        code_.ldp(first, second, MemOperand(x(base), offset));
    }

    void store()
    {
        if (!one_in(3)) { // elsewhere: x2 is never one of the constants'
            code_.str(x(pick(values)), MemOperand(a64::x27, 8));
            return;
        }
        if (one_in(2))
            code_.str(x(pick(values)), operand(8));
        else
            code_.strb(w(pick(values)), operand(1));
    }

    void call()
    {
        relocate("callee", R_AARCH64_CALL26, 0);
        code_.bl(std::int64_t{0});
        for (unsigned i = 0; i < 19; ++i)
            known_[i].reset();
    }

    // A loop that walks through the constants.
    void walk(unsigned depth)
    {
        favoured_ = pick(addresses);
        address(*favoured_);
        loop(depth, true);
        if (one_in(2))
            loop(depth, true);
        favoured_.reset();
    }

    void loop(unsigned depth, bool loads_only = false)
    {
        const Register counter = x(22 + depth);
        a64::Label head;
        const auto turns = static_cast<std::int64_t>(1 + below(6));
        const bool is_known = !one_in(3);
        const std::int64_t step = one_in(4) ? 2 : 1;
        if (is_known) {
            code_.movz(counter, static_cast<std::uint64_t>(turns * step));
        } else {
            const unsigned value = pick(values);
            code_.and_(counter, x(value), 3);
            code_.add(counter, counter, 1);
        }
        code_.bind(&head);
        for (std::size_t left = 1 + below(3); left > 0; --left) {
            if (loads_only || one_in(2))
                load();
            else
                statement(depth + 1);
        }
        const std::int64_t by = is_known ? step : 1;
        switch (below(4)) {
        case 0:
            code_.subs(counter, counter, by);
            code_.b(&head, a64::ne);
            return;
        case 1: {
            a64::Label out;
            code_.sub(counter, counter, by);
            code_.cbz(counter, &out);
            code_.b(&head);
            code_.bind(&out);
            return;
        }
        case 2:
            code_.sub(counter, counter, by);
            load();
            code_.cbnz(counter, &head);
            return;
        default:
            code_.sub(counter, counter, by);
            code_.cbnz(counter, &head);
        }
    }

    void skip(unsigned depth)
    {
        a64::Label over;
        code_.tbz(x(pick(values)), static_cast<unsigned>(below(3)), &over);
        for (std::size_t left = 1 + below(2); left > 0; --left)
            statement(depth + 1);
        if (one_in(3)) {
            a64::Label end;
            code_.b(&end);
            code_.bind(&over);
            statement(depth + 1);
            code_.bind(&end);
        } else {
            code_.bind(&over);
        }
    }

    void place_label()
    {
        a64::Label& label = labels_[below(labels_.size())];
        if (!label.IsBound())
            code_.bind(&label);
    }

    void jump()
    {
        code_.tbnz(x(pick(values)), static_cast<unsigned>(below(3)), &labels_[below(labels_.size())]);
    }

    void jump_to_register()
    {
        kernel_.branches_to_register = true;
        code_.adr(a64::x16, &labels_[below(labels_.size())]);
        a64::Label over;
        code_.tbz(x(pick(values)), 0, &over);
        code_.br(a64::x16);
        code_.bind(&over);
    }

    void literal()
    {
        if (one_in(4)) { // jumped over
            place_literals_after_a_branch();
            return;
        }
        const unsigned to = pick(values);
        const auto v = static_cast<std::uint32_t>(below(8));
        switch (below(6)) {
        case 0:
            return want_literal(0x58000000 | to);
        case 1:
            return want_literal(0x18000000 | to);
        case 2:
            return want_literal(0x98000000 | to);
        case 3:
            return want_literal(0x1c000000 | v);
        case 4:
            return want_literal(0x5c000000 | v);
        default: { // through an ADR, in a register that nothing else moves: a store stays off the code
            want_literal(0x10000007);
            const auto offset = static_cast<std::int64_t>(4 * below(2));
            if (one_in(8))
                code_.str(w(to), MemOperand(a64::x7, offset));
            else
                code_.ldr(w(to), MemOperand(a64::x7, offset));
        }
        }
    }

    void want_literal(std::uint32_t word)
    {
        wanted_.push_back({here(), word});
        code_.dc32(word);
    }

    void place_literals_after_a_branch()
    {
        a64::Label over;
        code_.b(&over);
        place_literals();
        code_.bind(&over);
    }

    void place_literals()
    {
        if (wanted_.empty())
            return;
        const std::size_t begin = here();
        const std::size_t words = 4 + below(4);
        for (std::size_t i = 0; i < words; ++i)
            code_.dc32(static_cast<std::uint32_t>(random_()) & 0xbfefffff);
        for (const auto& [offset, word] : wanted_) {
            const auto distance = static_cast<std::uint32_t>(begin + 4 * below(words - 2) - offset);
            const std::uint32_t whole = word | distance / 4 << 5;
            std::memcpy(
                code_.GetBuffer()->GetOffsetAddress<std::uint8_t*>(static_cast<std::ptrdiff_t>(offset)),
                &whole, sizeof whole);
        }
        wanted_.clear();
    }

    struct wanted_literal {
        std::size_t offset;
        std::uint32_t word;
    };

    std::mt19937_64& random_;
    random_kernel kernel_;
    std::array<a64::Label, 3> labels_;
    a64::Assembler code_;
    std::vector<wanted_literal> wanted_;
    std::optional<unsigned> favoured_; // an address register for the next loads
    std::array<std::optional<std::int64_t>, 32> known_;
};

/// The values that a row shows for its load.
struct shown_load {
    std::string place;
    std::vector<std::string> values;    ///< of all executions that are shown
    bool goes_on = false;               ///< "..." or the like
    bool has_none = false;              ///< outside the constants, or written to by the kernel
    std::vector<std::string> registers; ///< "x5", "d3", "v0.2d"
};

std::vector<std::string> registers_in(const std::string& operands)
{
    std::vector<std::string> found;
    for (std::size_t at = 0; at < operands.size();) {
        const std::size_t end = std::min(operands.find_first_of(" ,{}", at), operands.size());
        if (end > at && std::string("xwdsqv").find(operands[at]) != std::string::npos)
            found.push_back(operands.substr(at, end - at));
        at = end + 1;
    }
    return found;
}

shown_load parse(const listing_row& row)
{
    shown_load load;
    const std::size_t blank = row.text.find(' ');
    load.registers = registers_in(
        row.text.substr(blank + 1, std::min(row.text.find('['), row.text.find(" .L")) - blank - 1));
    const std::size_t end = std::min(row.comment.find_first_of(" ,"), row.comment.size());
    load.place = row.comment.substr(0, end);
    std::string rest = row.comment.substr(end);
    load.has_none = rest.rfind(", ", 0) == 0;
    if (rest.rfind("  ", 0) != 0)
        return load;
    rest.erase(0, 2);
    for (const char brace : {'{', '}'})
        rest.erase(std::remove(rest.begin(), rest.end(), brace), rest.end());
    for (std::size_t at = 0; at < rest.size();) {
        const std::size_t comma = std::min(rest.find(", ", at), rest.size());
        const std::string value = rest.substr(at, comma - at);
        if (value == "..." || value.rfind("then ", 0) == 0)
            load.goes_on = true;
        else
            load.values.push_back(value);
        at = comma + 2;
    }
    return load;
}

/// The values of a register, as parsed back from the text of its elements.
bool reads_back(a64::Simulator& simulator, const std::string& name, const std::string* values)
{
    const auto number = static_cast<unsigned>(std::stoul(name.substr(1)));
    if (name[0] == 'x')
        return static_cast<std::uint64_t>(simulator.ReadXRegister(number)) ==
               static_cast<std::uint64_t>(values[0][0] == '-'
                                              ? std::stoll(values[0])
                                              : static_cast<long long>(std::stoull(values[0])));
    if (name[0] == 'w')
        return static_cast<std::uint32_t>(simulator.ReadWRegister(number)) ==
               static_cast<std::uint32_t>(std::stoll(values[0]));
    const a64::Simulator::qreg_t bytes = simulator.ReadQRegister(number);
    const bool floats = name[0] == 's' || name.find(".4s") != std::string::npos;
    const std::size_t size = floats ? 4 : 8;
    const std::size_t whole = name[0] == 's' ? 4 : name[0] == 'd' ? 8 : 16;
    for (std::size_t at = 0; at < whole; at += size, ++values) {
        std::uint64_t lane = 0;
        std::memcpy(&lane, bytes.val + at, size);
        std::uint64_t shown = 0;
        const float f = std::strtof(values->c_str(), nullptr);
        const double d = std::strtod(values->c_str(), nullptr);
        std::memcpy(&shown, floats ? static_cast<const void*>(&f) : &d, size);
        if (shown != lane && !(floats ? std::isnan(f) : std::isnan(d)))
            return false;
    }
    return true;
}

std::size_t values_of(const std::string& name)
{
    if (name[0] == 'q' || name.find(".2d") != std::string::npos)
        return 2;
    return name.find(".4s") != std::string::npos ? 4 : 1;
}

class machine {
public:
    machine() : memory_(size + page), simulator_(&decoder_)
    {
        begin_ = (reinterpret_cast<std::uint64_t>(memory_.data()) + page - 1) & ~(page - 1);
    }

    static constexpr std::uint64_t page = 4096;
    static constexpr std::uint64_t size = std::uint64_t{4} << 20;

    [[nodiscard]] std::uint64_t code() const { return begin_ + (std::uint64_t{1} << 20); }
    [[nodiscard]] std::uint64_t data() const { return code() + (std::uint64_t{3} << 18); }
    [[nodiscard]] std::uint64_t scratch() const { return begin_ + 3 * (std::uint64_t{1} << 20); }

    static void write(std::uint64_t address, const std::vector<std::uint8_t>& bytes)
    {
        if (!bytes.empty())
            std::memcpy(support::address(address), bytes.data(), bytes.size());
    }

    a64::Simulator& start(std::uint64_t pc, std::mt19937_64& random)
    {
        for (unsigned r = 0; r < 31; ++r)
            simulator_.WriteXRegister(r, static_cast<std::int64_t>(scratch() + 8 * (random() % 64)));
        for (unsigned r = 9; r < 16; ++r)
            simulator_.WriteXRegister(r, static_cast<std::int64_t>(random() % 64));
        for (unsigned r = 22; r < 27; ++r)
            simulator_.WriteXRegister(r, 2);
        simulator_.WriteXRegister(28, 0); // where the simulator ends
        simulator_.WriteXRegister(30, 0);
        simulator_.WritePc(reinterpret_cast<const a64::Instruction*>(pc));
        return simulator_;
    }

private:
    std::vector<std::uint8_t> memory_;
    std::uint64_t begin_;
    a64::Decoder decoder_;
    a64::Simulator simulator_;
};

/// The address of a load or store; nothing with an index register or a literal.
std::optional<std::uint64_t> address_of(const a64::Simulator& simulator, const std::string& text)
{
    const std::size_t open = text.find('[');
    if (open == std::string::npos || text[open + 1] != 'x')
        return std::nullopt;
    const std::string inside = text.substr(open + 1, text.find(']') - open - 1);
    const std::size_t comma = inside.find(", ");
    const auto base = static_cast<unsigned>(std::stoul(inside.substr(1)));
    std::int64_t offset = 0;
    if (comma != std::string::npos) {
        if (inside[comma + 2] != '#')
            return std::nullopt;
        offset = std::stoll(inside.substr(comma + 3), nullptr, 0);
    }
    return static_cast<std::uint64_t>(simulator.ReadXRegister(base)) + static_cast<std::uint64_t>(offset);
}

struct totals {
    std::size_t loads = 0, walks = 0, literals = 0, outside = 0, certain = 0, ends = 0, steps = 0;
};

class trial {
public:
    trial(machine& machine, std::mt19937_64& random, totals& totals, disassembler& disassembler)
        : machine_(machine), random_(random), totals_(totals), kernel_(generator(random).run())
    {
        data_ = machine.data() + 4 * (random() % 1024);
        std::vector<placed_kernel> kernels;
        // The callee clobbers every register that the AAPCS64 allows.
        std::vector<std::uint32_t> callee;
        for (std::uint32_t r = 0; r < 19; ++r)
            callee.push_back(0xaa1d03e0 | r); // mov xR, x29
        callee.push_back(0xd65f03c0);
        kernels.push_back({"callee", machine.code(), support::code(callee), data_, {}, {}, 0, ""});
        text_ = machine.code() + 96;
        kernels.push_back({"k", text_, kernel_.text, data_, kernel_.data, kernel_.relocs, 0, ""});
        if (random() % 3 == 0)
            entries_.push_back(kernel_.statements[random() % kernel_.statements.size()]);
        const std::uint64_t other = (text_ + kernel_.text.size() + 31) & ~std::uint64_t{31};
        std::vector<tessjit::reloc_info> calls;
        if (entries_.size() > 1) {
            const auto addend = static_cast<std::int32_t>(entries_.back());
            calls.push_back({"k", 0, random() % 2 == 0 ? R_AARCH64_CALL26 : R_AARCH64_ADR_PREL_LO21, addend});
            const std::uint32_t first = calls.back().type == R_AARCH64_CALL26 ? 0x94000000 : 0x10000000;
            kernels.push_back({"other",
                               other,
                               support::code({first, 0xd65f03c0}),
                               data_ + kernel_.data.size(),
                               {},
                               calls,
                               0,
                               ""});
        }
        set_ = make_kernel_set(std::move(kernels));
        const placed_kernel& k = *find_kernel(set_, "k");
        listing_ = list_kernel(set_, k, disassembler);
        linked_ = link_set(set_);
        findings_ = check_dumps(set_);
    }

    void run()
    {
        for (const vorna::wfta::kernel_finding& finding : findings_) {
            if (finding.kernel != "k")
                continue;
            says_falls_through_ = says_falls_through_ || finding.id == vorna::wfta::finding_id::falls_through;
            if (finding.id == vorna::wfta::finding_id::outside_constants)
                outside_.emplace(static_cast<std::size_t>(*finding.offset), finding.message);
        }
        for (const std::size_t entry : entries_)
            run_from(entry);
        if (kernel_.is_straight && entries_.size() == 1)
            look_at_certain_accesses();
    }

    [[nodiscard]] std::string describe() const
    {
        std::string text = "entries:";
        for (const std::size_t entry : entries_)
            text += " " + std::to_string(entry);
        text += ", data of " + std::to_string(kernel_.data.size()) + " bytes\n";
        for (const listing_row& row : listing_.rows)
            text += (row.label.empty() ? "" : row.label + ":\n") + row_text(row) + "\n";
        for (const vorna::wfta::kernel_finding& finding : findings_)
            text += finding.kernel + "+" + std::to_string(finding.offset.value_or(-1)) + ": " +
                    finding.message + "\n";
        return text;
    }

private:
    void run_from(std::size_t entry)
    {
        for (std::size_t i = 0; i < set_.kernels.size(); ++i)
            machine::write(set_.kernels[i].text_address, linked_.texts[i]);
        machine::write(data_, kernel_.data);
        a64::Simulator& simulator = machine_.start(text_ + entry, random_);
        std::map<std::size_t, std::size_t> executions;
        for (unsigned steps = 0; steps < 1500; ++steps) {
            const auto pc = reinterpret_cast<std::uint64_t>(simulator.ReadPc());
            if (pc == 0)
                return;
            if (pc == text_ + kernel_.text.size()) {
                ++totals_.ends;
                EXPECT_TRUE(says_falls_through_ || kernel_.branches_to_register)
                    << "control continues past the end\n"
                    << describe();
                return;
            }
            ++totals_.steps;
            const bool in_kernel = pc >= text_ && pc < text_ + kernel_.text.size();
            if (!in_kernel) {
                simulator.ExecuteInstruction();
                continue;
            }
            const std::size_t offset = pc - text_;
            const listing_row& row = listing_.rows[offset / 4];
            ASSERT_FALSE(row.is_data) << "executed at +" << std::hex << offset << "\n" << describe();
            const std::optional<std::uint64_t> address = address_of(simulator, row.text);
            if (address) {
                addresses_[offset].push_back(*address);
                const auto finding = outside_.find(offset);
                if (finding != outside_.end() && finding->second.find("in iteration") == std::string::npos &&
                    finding->second.find("page") == std::string::npos) {
                    const unsigned bytes = static_cast<unsigned>(std::stoul(finding->second));
                    ++totals_.outside;
                    const bool is_walk = finding->second.find("turn") != std::string::npos;
                    EXPECT_TRUE(executions[offset] > 0 || is_walk || *address < data_ ||
                                *address + bytes > data_ + kernel_.data.size())
                        << "not outside at +" << std::hex << offset << "\n"
                        << describe();
                }
            }
            simulator.ExecuteInstruction();
            if (!row.comment.empty() && row.text.rfind("ld", 0) == 0)
                look_at(simulator, row, address, executions[offset]);
            ++executions[offset];
        }
    }

    void look_at(a64::Simulator& simulator, const listing_row& row, std::optional<std::uint64_t> address,
                 std::size_t execution)
    {
        const shown_load load = parse(row);
        std::size_t in_turn = 0;
        for (const std::string& name : load.registers)
            in_turn += values_of(name);
        ASSERT_NE(in_turn, 0U) << row_text(row);
        ASSERT_EQ(load.values.size() % in_turn, 0U) << row_text(row) << "\n" << describe();
        const std::size_t turns = load.values.size() / in_turn;
        if (load.place.rfind(".rodata", 0) == 0 && address) {
            const std::string number = load.place.substr(7);
            const auto offset = number.empty() ? 0 : std::stoll(number, nullptr, 0);
            // Of a walk without values only the first address is shown.
            if (execution == 0 || (turns <= 1 && !load.goes_on && !load.has_none)) {
                EXPECT_EQ(*address, data_ + static_cast<std::uint64_t>(offset))
                    << row_text(row) << ", execution " << execution << "\n"
                    << describe();
            }
        }
        if (turns == 0)
            return;
        if (load.goes_on && execution >= turns)
            return;
        const std::string* values = load.values.data() + execution % turns * in_turn;
        ++totals_.loads;
        totals_.walks += turns > 1 || load.goes_on ? 1 : 0;
        totals_.literals += load.place[1] == 'L' ? 1 : 0;
        for (const std::string& name : load.registers) {
            EXPECT_TRUE(reads_back(simulator, name, values))
                << row_text(row) << ", execution " << execution << ": " << name << "\n"
                << describe();
            values += values_of(name);
        }
    }

    // In a kernel without branches exactly the accesses outside the constants are found.
    void look_at_certain_accesses()
    {
        std::set<std::size_t> reported;
        for (const auto& [offset, message] : outside_) {
            if (message.find("through the page") != std::string::npos)
                continue;
            reported.insert(offset);
            for (std::size_t at = message.find("also at"); at != std::string::npos && at < message.size();) {
                at = message.find('+', at);
                if (at != std::string::npos)
                    reported.insert(std::stoul(message.substr(++at), nullptr, 16));
            }
        }
        for (const certain_access& access : kernel_.accesses) {
            const auto executed = addresses_.find(access.offset);
            ASSERT_NE(executed, addresses_.end()) << access.offset << "\n" << describe();
            const std::uint64_t address = executed->second.front();
            EXPECT_EQ(address, data_ + static_cast<std::uint64_t>(access.first)) << describe();
            const bool outside = address < data_ || address + access.bytes > data_ + kernel_.data.size();
            ++totals_.certain;
            EXPECT_EQ(reported.count(access.offset), outside ? 1U : 0U)
                << "at +" << std::hex << access.offset << "\n"
                << describe();
        }
    }

    machine& machine_;
    std::mt19937_64& random_;
    totals& totals_;
    random_kernel kernel_;
    std::uint64_t text_ = 0;
    std::uint64_t data_ = 0;
    std::vector<std::size_t> entries_{0};
    kernel_set set_;
    kernel_listing listing_;
    linked_set linked_;
    std::vector<vorna::wfta::kernel_finding> findings_;
    std::map<std::size_t, std::string> outside_;
    std::map<std::size_t, std::vector<std::uint64_t>> addresses_;
    bool says_falls_through_ = false;
};

TEST(ShownValues, AreWhatLoadsRead)
{
    const unsigned seed = support::random_seed();
    const std::size_t kernels = kernels_in_a_run();
    std::printf("seed %u, %zu kernels\n", seed, kernels);
    machine machine;
    disassembler disassembler;
    totals totals;
    for (std::size_t i = 0; i < kernels && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", kernel " + std::to_string(i));
        std::seed_seq sequence{seed, static_cast<unsigned>(i)};
        std::mt19937_64 random(sequence);
        trial(machine, random, totals, disassembler).run();
    }
    std::printf(
        "%zu instructions; values of %zu loads, of these %zu in walks and %zu of literals; %zu accesses "
        "outside, %zu certain ones; %zu ends of the code\n",
        totals.steps, totals.loads, totals.walks, totals.literals, totals.outside, totals.certain,
        totals.ends);
    if (kernels >= 1000) { // enough to have had each
        EXPECT_GT(totals.walks, 100U);
        EXPECT_GT(totals.literals, 100U);
        EXPECT_GT(totals.outside, 100U);
        EXPECT_GT(totals.certain, 50U);
        EXPECT_GT(totals.ends, 10U);
    }
}

} // namespace
