// A line of the text is
//     PID SECONDS.FRACTION: PERIOD EVENT: ADDRESS
// or, after the time, a record that begins with PERF_RECORD_. Names of events, of mapped files and of
// programs may hold anything, so what follows them is taken from the end of the line.

#include "workbench/input/perf_script.hpp"

#include "workbench/input/line_reader.hpp"
#include "workbench/input/scanner.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t longest_line = 65536; // a path has 4096 bytes at most

// perf's name for anonymous memory: the kernel's, or the one that the program gave it.
bool is_anonymous(std::string_view name)
{
    return name == "//anon" || name.starts_with("[anon:") || name.starts_with("/dev/zero");
}

bool take_address(scanner& line, std::uint64_t& address)
{
    line.skip("0x");
    return line.take_hexadecimal(address);
}

// "250000  cpu-clock:  ffffcf10d54a0c14"
std::optional<perf_sample> parse_sample(scanner line, std::int32_t pid)
{
    perf_sample sample;
    sample.pid = pid;
    std::string_view address;
    if (!line.take(sample.period) || !line.skip_blanks() || !line.take_last_word(address))
        return std::nullopt;
    scanner digits(address);
    line.skip_last_blanks();
    if (!digits.take_hexadecimal(sample.address) || !digits.at_end() || !line.skip_last(":") || line.at_end())
        return std::nullopt;
    sample.event = line.rest();
    return sample;
}

// "662/662: [0xffffb23b5000(0xb000) @ 0xffffb23b5000 00:00 0 0]: rwxp //anon"; the older record has "… @ 0]:
// x
// //anon".
std::optional<perf_mapping> parse_mapping(scanner line)
{
    perf_mapping mapping;
    std::int32_t thread = 0;
    std::uint64_t size = 0;
    std::string_view protection;
    if (!line.take(mapping.pid) || !line.skip("/") || !line.take(thread) || !line.skip(": [") ||
        !take_address(line, mapping.begin) || !line.skip("(") || !take_address(line, size) ||
        !line.skip(") @ ") || !line.skip_to("]: ") || !line.take_word(protection) || line.at_end())
        return std::nullopt;
    mapping.end = size > UINT64_MAX - mapping.begin ? UINT64_MAX : mapping.begin + size;
    mapping.anonymous = is_anonymous(line.rest());
    mapping.executable = protection.find('x') != std::string_view::npos;
    // The older record says only whether memory is data or code; memory that is both counts as code.
    mapping.writable = protection.size() == 1 || protection.find('w') != std::string_view::npos;
    return mapping;
}

// "(32351:32351):(32349:32349)": the new process and thread, and their parents.
std::optional<perf_fork> parse_fork(scanner line)
{
    perf_fork fork;
    std::int32_t thread = 0;
    if (!line.skip("(") || !line.take(fork.child) || !line.skip(":") || !line.take(thread) ||
        !line.skip("):(") || !line.take(fork.parent) || !line.skip(":") || !line.take(thread) ||
        !line.skip(")"))
        return std::nullopt;
    return fork;
}

// "loop:662/662"
std::optional<perf_exec> parse_exec(scanner line)
{
    perf_exec exec;
    const std::size_t colon = line.rest().rfind(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    scanner process(line.rest().substr(colon + 1));
    return process.take(exec.pid) && process.skip("/") ? std::optional(exec) : std::nullopt;
}

// Recognises other files by their first bytes.
void refuse_other_files(std::string_view start)
{
    if (start.starts_with("PERFILE2"))
        throw std::runtime_error("data of perf record, not the text that perf script makes of it");
    if (start.starts_with("\x1f\x8b"))
        throw std::runtime_error("compressed by gzip: unpack it first");
}

} // namespace

struct perf_script_reader::implementation {
    explicit implementation(std::function<void(const perf_record&)> consumer) : take(std::move(consumer)) {}

    void read_line(const text_line& line)
    {
        const bool good = !line.truncated && parse_line(line.text);
        if (!good && summary.bad_lines++ == 0)
            summary.first_bad_line = line.number;
    }

    bool parse_line(std::string_view text)
    {
        scanner line(text);
        line.skip_blanks();
        line.skip_last_blanks();
        if (line.at_end() || line.rest().front() == '#')
            return true;
        std::int32_t pid = 0;
        std::int32_t thread = 0;
        std::uint64_t seconds = 0;
        std::uint64_t fraction = 0;
        if (!line.take(pid) || (line.skip("/") && !line.take(thread)) || !line.skip_blanks() ||
            !line.take(seconds) || !line.skip(".") || !line.take(fraction) || !line.skip(":"))
            return false;
        line.skip_blanks();
        const bool good = line.skip("PERF_RECORD_") ? parse_record(line, seconds == 0 && fraction == 0)
                                                    : pass(parse_sample(line, pid));
        any_line = any_line || good;
        return good;
    }

    bool parse_record(scanner line, bool synthesized)
    {
        if (line.skip("MMAP2 ") || line.skip("MMAP ")) {
            const bool good = pass(parse_mapping(line));
            any_mapping = any_mapping || good;
            return good;
        }
        if (line.skip("FORK")) {
            const std::optional<perf_fork> fork = parse_fork(line);
            // A thread shares its process's memory. Processes that were running when perf record began are
            // recorded at time 0, and may have become another program since the fork.
            return fork && (synthesized || fork->child == fork->parent) ? true : pass(fork);
        }
        if (line.skip("COMM exec: "))
            return pass(parse_exec(line));
        if (line.skip("LOST lost ")) {
            std::uint64_t samples = 0;
            const bool good = line.take(samples);
            summary.lost += std::min(samples, UINT64_MAX - summary.lost);
            return good;
        }
        return true; // others change no mappings
    }

    template <typename Record>
    bool pass(const std::optional<Record>& record)
    {
        if (record)
            take(*record);
        return record.has_value();
    }

    std::function<void(const perf_record&)> take;
    line_reader lines{longest_line};
    std::string start; // the first bytes
    perf_script_summary summary;
    bool any_line = false;
    bool any_mapping = false;
};

perf_script_reader::perf_script_reader(std::function<void(const perf_record&)> take)
    : implementation_(std::make_unique<implementation>(std::move(take)))
{
}

perf_script_reader::~perf_script_reader() = default;

void perf_script_reader::read(std::string_view piece)
{
    constexpr std::size_t enough = 8;
    std::string& start = implementation_->start;
    if (start.size() < enough) {
        start += piece.substr(0, enough - start.size());
        refuse_other_files(start);
    }
    implementation_->lines.read(piece, [this](const text_line& line) { implementation_->read_line(line); });
}

perf_script_summary perf_script_reader::finish()
{
    implementation_->lines.finish([this](const text_line& line) { implementation_->read_line(line); });
    if (!implementation_->any_line)
        throw std::runtime_error("no line of the text of perf script -F pid,time,event,period,ip");
    if (!implementation_->any_mapping)
        throw std::runtime_error("no process's mappings in it: perf script was run without "
                                 "--show-mmap-events");
    return implementation_->summary;
}

std::vector<std::string> perf_script_command()
{
    return {
        "perf", "script", "-F", "pid,time,event,period,ip", "-G", "--show-mmap-events", "--show-task-events"};
}

} // namespace vorna::workbench
