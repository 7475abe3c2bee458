#include "examples/wfta_host/crash_report.hpp"

#include <csignal>
#include <cstddef>
#include <cstring>
#include <unistd.h>

namespace wfta_host {

namespace {

struct reported_signal {
    int number;
    const char* name;
    bool has_address;
    struct sigaction before;
};

// VIXL's simulator aborts at an instruction that it does not know.
reported_signal signals[] = {{SIGILL, "SIGILL", false, {}},
                             {SIGTRAP, "SIGTRAP", false, {}},
                             {SIGBUS, "SIGBUS", true, {}},
                             {SIGSEGV, "SIGSEGV", true, {}},
                             {SIGABRT, "SIGILL", false, {}}};

registers_at_signal find_registers = nullptr;

// A line, made without functions that a signal handler must not call.
class crash_line {
public:
    crash_line& operator<<(const char* text)
    {
        for (; *text != '\0' && size_ < sizeof text_; ++text)
            text_[size_++] = *text;
        return *this;
    }

    crash_line& operator<<(std::uint64_t number)
    {
        char digits[sizeof "0x" + 16] = {};
        char* first = digits + sizeof digits - 1;
        do {
            *--first = "0123456789abcdef"[number % 16];
            number /= 16;
        } while (number != 0);
        *--first = 'x';
        *--first = '0';
        return *this << first;
    }

    void write() const { [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text_, size_); }

private:
    char text_[256] = {};
    std::size_t size_ = 0;
};

void report(int number, siginfo_t* info, void* context)
{
    const crash_registers at = find_registers(context);
    for (const reported_signal& signal : signals) {
        if (signal.number != number)
            continue;
        crash_line line;
        line << "wfta_host: " << signal.name << " in a kernel: pc " << at.pc << ", lr " << at.lr;
        if (signal.has_address)
            line << ", fault address: " << reinterpret_cast<std::uintptr_t>(info->si_addr);
        line << "\n";
        line.write();
    }
}

} // namespace

crash_reporter::crash_reporter(registers_at_signal registers)
{
    find_registers = registers;
    for (reported_signal& signal : signals) {
        struct sigaction action = {};
        action.sa_sigaction = report;
        action.sa_flags = SA_SIGINFO | static_cast<int>(SA_RESETHAND); // then the instruction raises it again
        sigaction(signal.number, &action, &signal.before);
    }
}

crash_reporter::~crash_reporter()
{
    for (const reported_signal& signal : signals)
        sigaction(signal.number, &signal.before, nullptr);
}

} // namespace wfta_host
