// The reader of crashes: finds in a log what debuggers, emulators, sanitizers, kernels and shells print when
// an instruction raises a signal.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// The signals that instructions raise.
enum class crash_signal : std::uint8_t { unknown, ill, trap, bus, segv };

/// "SIGILL"; "a signal" if it is unknown.
const char* name_of(crash_signal signal);

/// Who printed the line that names the signal.
enum class crash_reporter : std::uint8_t { other, debugger, qemu, sanitizer, system };

/// A line of a backtrace.
struct crash_frame {
    std::optional<std::uint64_t> address; ///< gdb leaves out that of a line's first instruction
    std::string function;                 ///< what follows the address: name and place, as far as known
    std::size_t line = 0;                 ///< of the log, from 1
};

/// A crash, as far as the log tells.
struct crash_report {
    crash_signal signal = crash_signal::unknown;
    crash_reporter reporter = crash_reporter::other;
    std::size_t line = 0; ///< of the log, from 1: the first line that belongs to the crash
    std::string text;     ///< that line; its last 4,096 bytes, if it is longer
    std::optional<std::uint64_t> pc;
    std::size_t pc_line = 0; ///< of the log, where the PC stands
    std::optional<std::uint64_t> fault_address;
    bool writes = false; ///< the access that faulted was a store, as a sanitizer or the system says
    std::array<std::optional<std::uint64_t>, 32> registers; ///< X0 to X30 and SP
    std::vector<crash_frame> frames;                        ///< the innermost first, 100 at most
};

/// Reads a log in pieces.
///
/// Recognised are, anywhere in a line:
/// - the names of SIGILL, SIGTRAP, SIGBUS and SIGSEGV and what shells, gdb, lldb and qemu call them;
/// - "Sanitizer: SEGV on unknown address … (pc … bp … sp …)" and the lines that follow it;
/// - "unhandled exception: …" of the system's log, and the registers that follow it ("pc : …");
/// - "Signal: 11 (SEGV)" of coredumpctl;
/// - backtraces: "#0  0x… in …";
/// - registers: "pc  0x…", "x19 0x…", "lr : 0000…";
/// - gdb's "0x… in ?? ()" after a signal, and "=> 0x…:".
///
/// Several lines about one crash are put together: a signal belongs to the crash before it if it is the same
/// signal and the line has no PC of its own. At most 100 crashes are kept, and memory is bounded whatever the
/// log contains.
class crash_log_reader {
public:
    crash_log_reader();
    ~crash_log_reader();
    crash_log_reader(const crash_log_reader&) = delete;
    crash_log_reader& operator=(const crash_log_reader&) = delete;

    /// The next piece; the log may be split anywhere.
    void read(std::string_view piece);

    /// Call once, after the last piece. The crashes, in the log's order.
    std::vector<crash_report> finish();

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

/// Reads a log that is in memory.
std::vector<crash_report> read_crash_log(std::string_view log);

} // namespace vorna::workbench
