// Each line is asked for the name of a signal, for values of registers, and for a frame of a backtrace. What
// is found goes to the crash that the log tells of at this point; the first value of each kind counts, since
// a debugger repeats the PC and goes on to other threads and frames.

#include "workbench/input/crash_log.hpp"

#include "workbench/input/line_reader.hpp"
#include "workbench/input/scanner.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vorna::workbench {

namespace {

constexpr std::size_t most_crashes = 100;
constexpr std::size_t most_frames = 100;
constexpr std::size_t longest_line = 4096;
constexpr std::size_t longest_function = 256;

struct signal_name {
    crash_signal signal;
    std::string_view name;  // after "SIG"
    std::string_view words; // strsignal's
    unsigned number;        // Linux's
};

constexpr signal_name signal_names[] = {
    {crash_signal::ill, "ILL", "Illegal instruction", 4},
    {crash_signal::trap, "TRAP", "Trace/breakpoint trap", 5},
    {crash_signal::bus, "BUS", "Bus error", 7},
    {crash_signal::segv, "SEGV", "Segmentation fault", 11},
};

// The signal whose name the text begins with.
crash_signal signal_of(std::string_view text)
{
    for (const signal_name& known : signal_names) {
        if (text.starts_with(known.name))
            return known.signal;
    }
    return crash_signal::unknown;
}

crash_signal signal_of(unsigned number)
{
    for (const signal_name& known : signal_names) {
        if (known.number == number)
            return known.signal;
    }
    return crash_signal::unknown;
}

// What follows the words in the line; nothing if they are not there.
std::optional<scanner> after(std::string_view line, std::string_view words)
{
    const std::size_t at = find(line, words);
    if (at == std::string_view::npos)
        return std::nullopt;
    return scanner(line.substr(at + words.size()));
}

// A line that names a signal.
struct signal_line {
    crash_signal signal = crash_signal::unknown;
    crash_reporter reporter = crash_reporter::other;
    bool begins = false; // of a crash that no earlier line has told of
};

// What the system's log says of an exception: "prog[12]: unhandled exception: DABT (lower EL), …, level 2
// translation fault", or before Linux 5 "prog[12]: unhandled level 2 translation fault (11) at 0x0, …".
crash_signal signal_of_exception(std::string_view words)
{
    if (contains(words, "lignment"))
        return crash_signal::bus;
    if (contains(words, "BRK"))
        return crash_signal::trap;
    if (contains(words, "undefined instruction"))
        return crash_signal::ill;
    return contains(words, " fault") ? crash_signal::segv : crash_signal::unknown;
}

std::optional<signal_line> find_signal(std::string_view line)
{
    if (const auto rest = after(line, " received signal SIG")) // gdb
        return signal_line{signal_of(rest->rest()), crash_reporter::debugger, true};
    if (const auto rest = after(line, " terminated with signal SIG")) // gdb, also after the above
        return signal_line{signal_of(rest->rest()), crash_reporter::debugger, false};
    if (const auto rest = after(line, "stop reason = signal SIG")) // lldb
        return signal_line{signal_of(rest->rest()), crash_reporter::debugger, true};
    if (auto rest = after(line, "uncaught target signal ")) {
        unsigned number = 0;
        if (rest->take(number) && signal_of(number) != crash_signal::unknown)
            return signal_line{signal_of(number), crash_reporter::qemu, false};
    }
    if (contains(line, " on unknown address")) {
        const auto rest = after(line, "Sanitizer: ");
        if (rest)
            return signal_line{signal_of(rest->rest()), crash_reporter::sanitizer, true};
    }
    if (const auto rest = after(line, "]: unhandled "))
        return signal_line{signal_of_exception(rest->rest()), crash_reporter::system, true};
    if (auto rest = after(line, "Signal: ")) { // coredumpctl
        unsigned number = 0;
        if (rest->take(number) && rest->skip(" ("))
            return signal_line{signal_of(number), crash_reporter::system, true};
    }
    const bool names = contains(line, "SIG");
    for (const signal_name& known : signal_names) {
        if (contains(line, known.words) || (names && contains(line, "SIG" + std::string(known.name))))
            return signal_line{known.signal, crash_reporter::other, false};
    }
    return std::nullopt;
}

bool is_word_character(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$';
}

// A number with "0x" in front, or of sixteen digits without.
bool take_value(scanner& text, std::uint64_t& value)
{
    scanner digits = text;
    const bool marked = digits.skip("0x");
    const std::size_t before = digits.rest().size();
    if (!digits.take_hexadecimal(value) || (!marked && before - digits.rest().size() != 16) ||
        (!digits.at_end() && is_word_character(digits.rest().front())))
        return false;
    text = digits;
    return true;
}

constexpr unsigned program_counter = 32; // after X0 to X30 and SP

std::optional<unsigned> take_register_name(scanner& text)
{
    struct alias {
        std::string_view name;
        unsigned number;
    };
    static constexpr alias aliases[] = {
        {"pc", program_counter}, {"sp", 31}, {"lr", 30}, {"fp", 29}, {"bp", 29}};
    for (const alias& known : aliases) {
        if (text.skip(known.name))
            return known.number;
    }
    unsigned number = 0;
    if (text.skip("x") && text.take(number) && number < 31)
        return number;
    return std::nullopt;
}

// Calls `take` with the number and the value of each register in the line: "pc 0x…", "x19: 0000…", "lr =
// 0x…".
template <typename Take>
void find_registers(std::string_view line, const Take& take)
{
    static constexpr std::string_view first_letters = "xpslfb";
    for (std::size_t at = line.find_first_of(first_letters); at != std::string_view::npos;
         at = line.find_first_of(first_letters, at + 1)) {
        if (at != 0 && (is_word_character(line[at - 1]) || line[at - 1] == '.' || line[at - 1] == '<'))
            continue;
        scanner text(line.substr(at));
        const std::optional<unsigned> number = take_register_name(text);
        if (!number)
            continue;
        bool separated = text.skip_blanks();
        separated = text.skip(":") || text.skip("=") || separated;
        text.skip_blanks();
        std::uint64_t value = 0;
        if (separated && take_value(text, value))
            take(*number, value);
    }
}

struct numbered_frame {
    unsigned number = 0;
    crash_frame frame;
};

// "#1  0x0000… in main () at host.cpp:4", "#0 0x… (<unknown module>)", "#2  main () at host.cpp:4",
// "frame #0: 0x…".
std::optional<numbered_frame> find_frame(std::string_view line)
{
    const std::size_t at = line.find('#');
    if (at == std::string_view::npos || (at != 0 && line[at - 1] != ' ' && line[at - 1] != '\t'))
        return std::nullopt;
    scanner text(line.substr(at + 1));
    numbered_frame found;
    if (!text.take(found.number))
        return std::nullopt;
    text.skip(":");
    if (!text.skip_blanks())
        return std::nullopt;
    std::uint64_t address = 0;
    if (take_value(text, address))
        found.frame.address = address;
    text.skip_blanks();
    text.skip("in ");
    found.frame.function = text.rest().substr(0, longest_function);
    return found;
}

// gdb where it stops: "0x0000… in ?? ()"; and of x/i $pc: "=> 0x…:". And "PC: @ 0x…" of failure handlers.
std::optional<std::uint64_t> find_stop(std::string_view line, crash_reporter reporter)
{
    scanner text(line);
    text.skip_blanks();
    std::uint64_t address = 0;
    if (text.skip("=> ") || text.skip("PC: @")) {
        text.skip_blanks();
        if (take_value(text, address))
            return address;
    } else if (reporter == crash_reporter::debugger && take_value(text, address) && text.skip(" in ")) {
        return address;
    }
    return std::nullopt;
}

std::optional<std::uint64_t> find_fault_address(std::string_view line)
{
    for (const std::string_view words : {" on unknown address ", "si_addr = ", "fault addr ",
                                         "fault address: ", "fault address=", "= (void *) ", " addr="}) {
        std::optional<scanner> rest = after(line, words);
        std::uint64_t address = 0;
        if (rest && take_value(*rest, address))
            return address;
    }
    if (contains(line, "]: unhandled ")) { // before Linux 5
        std::optional<scanner> rest = after(line, " at ");
        std::uint64_t address = 0;
        if (rest && take_value(*rest, address))
            return address;
    }
    return std::nullopt;
}

// A store, as a sanitizer says, or the write bit of a data abort in the system's log.
bool says_write(std::string_view line)
{
    if (contains(line, "caused by a WRITE"))
        return true;
    for (const std::string_view words : {"ESR ", "esr "}) {
        std::optional<scanner> rest = after(line, words);
        std::uint64_t syndrome = 0;
        constexpr std::uint64_t data_abort = 0x24;
        if (rest && take_value(*rest, syndrome))
            return syndrome >> 26 == data_abort && (syndrome >> 6 & 1) != 0;
    }
    return false;
}

// The line without the escape sequences that set colours.
std::string without_escapes(std::string_view line)
{
    std::string text;
    while (!line.empty()) {
        const std::size_t escape = std::min(line.find('\x1b'), line.size());
        text += line.substr(0, escape);
        line.remove_prefix(escape);
        const std::size_t end = line.find_first_of("mK");
        line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
    }
    return text;
}

} // namespace

const char* name_of(crash_signal signal)
{
    static constexpr const char* names[] = {"a signal", "SIGILL", "SIGTRAP", "SIGBUS", "SIGSEGV"};
    return names[static_cast<std::size_t>(signal)];
}

struct crash_log_reader::implementation {
    void take_line(const text_line& whole)
    {
        if (whole.text.find('\x1b') != std::string_view::npos) {
            const std::string text = without_escapes(whole.text);
            return take_text(text, whole.number);
        }
        take_text(whole.text, whole.number);
    }

    void take_text(std::string_view text, std::size_t number)
    {
        if (contains(text, "Core was generated by") || contains(text, "Starting program: "))
            open_ = false; // gdb turns to another process
        if (const std::optional<signal_line> signal = find_signal(text))
            take_signal(*signal, text, number);
        if (const std::optional<numbered_frame> frame = find_frame(text))
            return take_frame(*frame, text, number);
        find_registers(text, [&](unsigned name, std::uint64_t value) {
            if (name == program_counter)
                take_pc(value, text, number);
            else if (open_ && !crash().registers[name])
                crash().registers[name] = value;
        });
        if (!open_)
            return;
        if (const auto stop = find_stop(text, crash().reporter))
            take_pc(*stop, text, number);
        if (const auto address = find_fault_address(text); address && !crash().fault_address)
            crash().fault_address = address;
        crash().writes = crash().writes || says_write(text);
    }

    std::vector<crash_report> finish() { return std::move(crashes_); }

    line_reader lines_{longest_line};

private:
    crash_report& crash() { return crashes_.back(); }

    // Begins a crash, unless there are too many; then the lines of further ones go nowhere.
    bool begin(std::string_view text, std::size_t number)
    {
        open_ = crashes_.size() < most_crashes;
        if (!open_)
            return false;
        crashes_.emplace_back();
        crash().line = number;
        crash().text = text;
        next_frame_ = 0;
        begun_ = false;
        return true;
    }

    void take_signal(const signal_line& found, std::string_view text, std::size_t number)
    {
        const bool same =
            open_ && (crash().signal == crash_signal::unknown || crash().signal == found.signal);
        const bool belongs = same && !(found.begins && (begun_ || crash().pc));
        if (!belongs && !begin(text, number))
            return;
        crash().signal = found.signal;
        if (crash().reporter == crash_reporter::other)
            crash().reporter = found.reporter;
        begun_ = begun_ || found.begins;
    }

    void take_pc(std::uint64_t pc, std::string_view text, std::size_t number)
    {
        if ((!open_ && !begin(text, number)) || crash().pc)
            return;
        crash().pc = pc;
        crash().pc_line = number;
    }

    void take_frame(const numbered_frame& found, std::string_view text, std::size_t number)
    {
        if (found.number == 0) {
            if (!open_ && !begin(text, number))
                return;
            std::vector<crash_frame>& frames = crash().frames;
            const bool again = frames.size() == 1 && frames.front().address == found.frame.address;
            if (!frames.empty() && !again) {
                next_frame_ = most_frames; // another thread's, or the same once more
                return;
            }
            frames.clear();
            next_frame_ = 0;
            if (found.frame.address)
                take_pc(*found.frame.address, text, number);
        }
        if (!open_ || found.number != next_frame_ || next_frame_ == most_frames)
            return;
        ++next_frame_;
        crash().frames.push_back(found.frame);
        crash().frames.back().line = number;
    }

    std::vector<crash_report> crashes_;
    bool open_ = false;       // lines may belong to the last crash
    bool begun_ = false;      // by a line that tells of one crash only
    unsigned next_frame_ = 0; // of the backtrace that is being read
};

crash_log_reader::crash_log_reader() : implementation_(std::make_unique<implementation>()) {}

crash_log_reader::~crash_log_reader() = default;

void crash_log_reader::read(std::string_view piece)
{
    implementation_->lines_.read(piece, [this](const text_line& line) { implementation_->take_line(line); });
}

std::vector<crash_report> crash_log_reader::finish()
{
    implementation_->lines_.finish([this](const text_line& line) { implementation_->take_line(line); });
    return implementation_->finish();
}

std::vector<crash_report> read_crash_log(std::string_view log)
{
    crash_log_reader reader;
    reader.read(log);
    return reader.finish();
}

} // namespace vorna::workbench
