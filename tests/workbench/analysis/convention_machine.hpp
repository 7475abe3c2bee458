// Executes kernels on inputs, with poison in everything that they must not depend on, and looks for broken
// rules of the procedure call standard.
#pragma once

#include "tests/support/simulated_cpu.hpp"

#include <array>
#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <sys/mman.h>
#include <utility>
#include <vector>

namespace random_conventions {

using random_engine = std::mt19937_64;

constexpr std::size_t text_at = 0x1000;
constexpr std::size_t text_size = 0x4000;
constexpr std::size_t data_at = 0x20000;
constexpr std::size_t callees_at = 0x30000; // f, g
constexpr std::size_t return_at = 0x38124;  // the caller
constexpr std::size_t buffers_at = 0x60000; // two of 2048 bytes, each pointed into at its 1024th
constexpr std::size_t buffers_size = 0x1000;
constexpr std::size_t stack_at = 0xa0000;
constexpr std::size_t stack_end = 0xa8000;
constexpr std::size_t arena_size = stack_end;
constexpr std::size_t arguments_size = 512; // the caller's stack arguments, which are the kernel's

inline std::uint64_t mixed(std::uint64_t hash, std::uint64_t value)
{
    hash = (hash ^ value) * 0x9e3779b97f4a7c15;
    return hash ^ hash >> 29;
}

// What a caller passes.
struct input {
    std::array<std::uint64_t, 9> general{};
    std::array<support::simulated_cpu::scalable_value, 8> vector{};
    std::array<std::uint32_t, 4> predicate{};
    std::array<std::uint8_t, buffers_size> buffers{};
    std::array<std::uint64_t, 11> preserved{}; // X19 to X29; the first ten differ with the poison
};

struct snapshot {
    std::array<std::uint64_t, 32> general{}; // with SP
    std::array<support::simulated_cpu::scalable_value, 32> vector{};
    std::array<std::uint32_t, 16> predicate{};
    unsigned flags = 0;
};

enum class ending : std::uint8_t { returned, elsewhere, too_long, crashed, unknown_instruction };

struct run_result {
    ending end = ending::returned;
    std::vector<bool> executed; // words
    std::vector<bool> taken;    // branches
    std::vector<bool> passed;   // words from which control went on to the next one
    std::map<std::size_t, std::pair<snapshot, snapshot>> watched; // at the first execution: before, after
    std::vector<std::uint64_t> seen;                              // by callees
    std::uint64_t x0 = 0;
    bool x0_is_callers = false; // the value of X19 to X28 or D8 to D15 at entry
    support::simulated_cpu::vector_value v0{};
    bool v0_is_callers = false; // the value of D8 to D15 or V8 to V15 at entry
    std::vector<std::uint8_t> buffers;
    std::set<std::string> changed; // what only a kernel with scalable arguments keeps: "z16", "p4"
    std::set<std::string> broken;  // rules: "x19", "d8", "sp", "x18", "alignment"
    snapshot last;                 // where it crashed
    std::size_t last_offset = 0;   // of the last instruction
};

inline sigjmp_buf crash_exit;
inline volatile std::sig_atomic_t is_running = 0;
inline void leave_by_crash(int signal)
{
    if (is_running == 0) {
        std::signal(signal, SIG_DFL);
        raise(signal);
    }
    is_running = 0;
    siglongjmp(crash_exit, 1);
}

class machine {
public:
    machine() : memory_(arena_size)
    {
        // No load or store reaches from the buffers to the stack.
        std::uint8_t* const begin = memory_.begin();
        mprotect(begin + text_at + text_size, buffers_at - text_at - text_size, PROT_NONE);
        mprotect(begin + buffers_at + buffers_size, stack_at - buffers_at - buffers_size, PROT_NONE);
        stack_t stack{};
        stack.ss_sp = signal_stack_.data();
        stack.ss_size = signal_stack_.size();
        sigaltstack(&stack, nullptr);
        struct sigaction action {};
        action.sa_handler = leave_by_crash;
        action.sa_flags = SA_NODEFER | SA_ONSTACK;
        for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP})
            sigaction(signal, &action, nullptr);
    }

    [[nodiscard]] std::uint64_t address(std::size_t offset) const { return memory_.address(offset); }

    input random_input(random_engine& random) const
    {
        input made;
        for (std::uint64_t& value : made.general)
            value = random() % 3 == 0 ? random() % 8 : random();
        for (unsigned i = 0; i < 2; ++i)
            made.general[i] = address(buffers_at + 2048 * i + 1024);
        made.general[2] = random();
        for (auto& value : made.vector)
            value = {random(), random(), random(), random()};
        for (std::uint32_t& value : made.predicate)
            value = static_cast<std::uint32_t>(random());
        for (std::size_t i = 0; i < made.buffers.size(); i += 8) {
            const std::uint64_t value = random() % 4 == 0 ? 0 : random();
            std::memcpy(made.buffers.data() + i, &value, 8);
        }
        made.preserved.back() = address(stack_end - 64); // a frame pointer
        return made;
    }

    run_result run(const std::vector<std::uint8_t>& text, const input& from, std::uint64_t poison,
                   const std::set<std::size_t>& watch, unsigned vector_bits)
    {
        cpu_.simulator().SetVectorLengthInBits(vector_bits);
        prepare(text, from, poison);
        run_result result;
        for (std::vector<bool>* const words : {&result.executed, &result.taken, &result.passed})
            words->resize(text.size() / 4);
        running_ = &result;
        if (sigsetjmp(crash_exit, 0) != 0) {
            running_->end = ending::crashed;
            running_->last = here();
            return result;
        }
        is_running = 1;
        execute(result, text.size(), poison, watch);
        is_running = 0;
        result.x0 = cpu_.x(0);
        for (unsigned i = 19; i < 29; ++i)
            result.x0_is_callers = result.x0_is_callers || result.x0 == start_.general[i];
        result.v0 = cpu_.v(0);
        for (unsigned i = 8; i < 16; ++i) {
            const auto& callers = start_.vector[i];
            result.x0_is_callers = result.x0_is_callers || result.x0 == callers[0];
            result.v0_is_callers =
                result.v0_is_callers ||
                (result.v0[0] == callers[0] && (result.v0[1] == 0 || result.v0[1] == callers[1]));
        }
        result.buffers.assign(memory_.begin() + buffers_at, memory_.begin() + buffers_at + buffers_size);
        if (result.end == ending::returned)
            look_at_preserved(result);
        return result;
    }

private:
    void prepare(const std::vector<std::uint8_t>& text, const input& from, std::uint64_t poison)
    {
        std::memset(memory_.begin() + text_at, 0, text_size);
        std::memcpy(memory_.begin() + text_at, text.data(), text.size());
        std::memcpy(memory_.begin() + buffers_at, from.buffers.data(), from.buffers.size());
        if (poison_ != poison) {
            poison_ = poison;
            for (std::size_t i = 0; i < poisoned_stack_.size(); i += 8) {
                const std::uint64_t value = mixed(poison, 1000 + i);
                std::memcpy(poisoned_stack_.data() + i, &value, 8);
            }
        }
        std::memcpy(memory_.begin() + stack_at, poisoned_stack_.data(), poisoned_stack_.size());
        for (std::size_t i = 0; i < arguments_size; i += 8) {
            const std::uint64_t value = mixed(from.general[2], i);
            std::memcpy(memory_.begin() + stack_end - arguments_size + i, &value, 8);
        }
        cpu_.simulator().ResetState();
        for (unsigned i = 0; i < 31; ++i)
            cpu_.write_x(i, i < 9 ? from.general[i] : mixed(poison, i));
        cpu_.write_x(29, from.preserved.back());
        cpu_.write_x(30, address(return_at));
        cpu_.simulator().WriteSp(address(stack_end - arguments_size));
        for (unsigned i = 0; i < 32; ++i)
            cpu_.write_z(i, i < 8 ? from.vector[i] : vector_of(mixed(poison, 100 + i)));
        for (unsigned i = 0; i < 16; ++i)
            cpu_.write_p(i, i < 4 ? from.predicate[i] : static_cast<std::uint32_t>(mixed(poison, 400 + i)));
        cpu_.write_flags(static_cast<unsigned>(mixed(poison, 300) & 15));
        cpu_.write_pc(address(text_at));
        start_ = here();
    }

    static support::simulated_cpu::scalable_value vector_of(std::uint64_t seed)
    {
        return {seed, mixed(seed, 1), mixed(seed, 2), mixed(seed, 3)};
    }

    snapshot here()
    {
        snapshot now;
        for (unsigned i = 0; i < 32; ++i) {
            now.general[i] = i < 31 ? cpu_.x(i) : cpu_.sp();
            now.vector[i] = cpu_.z(i);
        }
        for (unsigned i = 0; i < 16; ++i)
            now.predicate[i] = cpu_.p(i);
        now.flags = cpu_.flags();
        return now;
    }

    void execute(run_result& result, std::size_t size, std::uint64_t poison,
                 const std::set<std::size_t>& watch)
    {
        const std::uint64_t begin = address(text_at);
        for (unsigned step = 0;; ++step) {
            const std::uint64_t pc = cpu_.pc();
            if (pc == address(return_at))
                return;
            if (step == 3000) {
                result.end = ending::too_long;
                return;
            }
            if (pc == address(callees_at) || pc == address(callees_at + 0x100)) {
                callee(result, pc != address(callees_at), mixed(poison, step));
                continue;
            }
            if (pc < begin || pc >= begin + size) {
                result.end = ending::elsewhere;
                return;
            }
            if (!cpu_.knows_instruction_here()) {
                result.end = ending::unknown_instruction;
                return;
            }
            const std::size_t offset = pc - begin;
            result.executed[offset / 4] = true;
            result.last_offset = offset;
            if (cpu_.sp() % 16 != 0 && cpu_.text_here().find("[sp") != std::string::npos)
                result.broken.insert("alignment");
            const bool watched = watch.contains(offset) && !result.watched.contains(offset);
            if (watched)
                result.watched[offset].first = here();
            cpu_.simulator().ExecuteInstruction();
            if (watched)
                result.watched[offset].second = here();
            (cpu_.pc() == pc + 4 ? result.passed : result.taken)[offset / 4] = true;
            signal();
        }
    }

    // A signal handler's frame.
    void signal()
    {
        const std::uint64_t begin = address(stack_at);
        const std::uint64_t sp = cpu_.sp();
        if (sp < begin + 1024 || sp > address(stack_end))
            return;
        const std::size_t at = sp - begin - 1024;
        std::memcpy(memory_.begin() + stack_at + at, poisoned_stack_.data() + at, 1024);
    }

    // The callee's results depend on its arguments, and it leaves poison in each register that it may change.
    // g writes to where X1 points.
    void callee(run_result& result, bool fills, std::uint64_t poison)
    {
        if (cpu_.sp() % 16 != 0)
            result.broken.insert("alignment");
        std::uint64_t seen = mixed(result.seen.size(), cpu_.x(0));
        seen = mixed(mixed(seen, cpu_.v(0)[0]), cpu_.v(0)[1]);
        const std::uint64_t argument = cpu_.x(1);
        seen = mixed(seen, fills ? argument - address(0) : argument);
        result.seen.push_back(seen);
        if (fills) {
            std::memcpy(memory_.begin() + (argument - address(0)), &seen, 8);
        }
        const std::uint64_t back = cpu_.x(30);
        for (unsigned i = 0; i < 18; ++i)
            cpu_.write_x(i, mixed(i < 2 ? seen : poison, i));
        cpu_.write_x(30, mixed(poison, 30));
        for (unsigned i = 0; i < 32; ++i) {
            auto value = vector_of(mixed(i < 8 ? seen : poison, 100 + i));
            if (i >= 8 && i < 16)
                value[0] = cpu_.v(i)[0];
            cpu_.write_z(i, value);
        }
        for (unsigned i = 0; i < 16; ++i)
            cpu_.write_p(i, static_cast<std::uint32_t>(mixed(i < 4 ? seen : poison, 400 + i)));
        cpu_.write_flags(static_cast<unsigned>(mixed(poison, 300) & 15));
        cpu_.write_pc(back);
        signal();
    }

    void look_at_preserved(run_result& result)
    {
        for (unsigned i = 18; i < 30; ++i) {
            if (cpu_.x(i) != start_.general[i])
                result.broken.insert("x" + std::to_string(i));
        }
        if (cpu_.sp() != start_.general[31])
            result.broken.insert("sp");
        for (unsigned i = 8; i < 16; ++i) {
            if (cpu_.v(i)[0] != start_.vector[i][0])
                result.broken.insert("d" + std::to_string(i));
        }
        for (unsigned i = 8; i < 24; ++i) {
            if (cpu_.z(i) != start_.vector[i])
                result.changed.insert("z" + std::to_string(i));
        }
        for (unsigned i = 4; i < 16; ++i) {
            if (cpu_.p(i) != start_.predicate[i])
                result.changed.insert("p" + std::to_string(i));
        }
    }

    std::array<std::uint8_t, 65536> signal_stack_{};
    support::guarded_memory memory_;
    support::simulated_cpu cpu_{256};
    std::uint64_t poison_ = 0;
    std::array<std::uint8_t, stack_end - stack_at> poisoned_stack_{};
    snapshot start_;
    run_result* running_ = nullptr;
};

} // namespace random_conventions
