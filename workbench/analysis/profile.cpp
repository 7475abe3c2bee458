#include "workbench/analysis/profile.hpp"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <unordered_map>

namespace vorna::workbench {

namespace {

constexpr std::size_t longest_line = 65536; // a path has 4096 bytes at most
constexpr std::size_t most_events = 1024;
// Steps that mappings may cost in all, each well below a microsecond: more than any system does, and little
// enough that a text made for it cannot keep the reader busy for hours.
constexpr std::size_t most_mapping_steps = 20'000'000;

void add(std::uint64_t& sum, std::uint64_t value)
{
    if (__builtin_add_overflow(sum, value, &sum))
        sum = std::numeric_limits<std::uint64_t>::max();
}

void add(sample_count& sum, const sample_count& count)
{
    sum.samples += count.samples;
    add(sum.weight, count.weight);
}

std::uint64_t difference(std::uint64_t a, std::uint64_t b)
{
    return a > b ? a - b : 0;
}

struct address_range {
    std::uint64_t begin;
    std::uint64_t end;
};

using address_counts = std::unordered_map<std::uint64_t, sample_count>;

/// Samples of one event in memory that may hold kernels.
struct memory_counts {
    address_counts kernels; // by address
    sample_count unknown;   // in no kernel
};

/// Executable anonymous memory that some process got at once, with the samples in it. Processes that were
/// forked share it.
struct sampled_memory {
    std::vector<memory_counts> events; // by number of the event
    bool holds_kernels = false;        // it is of a process whose memory held all kernels of the set
    bool replaced = false;             // some process has got other memory in its place
};

struct memory_piece {
    std::uint64_t end;
    std::shared_ptr<sampled_memory> memory;
};

/// As far as it matters here: pieces of executable anonymous memory that touch kernels of the set.
struct address_space {
    std::map<std::uint64_t, memory_piece> pieces; // by their first address
    std::size_t held = 0;                         // mappings of the set that lie within the pieces, at most
};

/// The piece that the address lies in, or the next one.
template <class pieces_type>
auto first_piece(pieces_type& pieces, std::uint64_t address)
{
    auto piece = pieces.upper_bound(address);
    if (piece != pieces.begin() && std::prev(piece)->second.end > address)
        --piece;
    return piece;
}

bool touches(const address_space& space, const address_range& range)
{
    const auto piece = first_piece(space.pieces, range.begin);
    return piece != space.pieces.end() && piece->first < range.end;
}

bool covers(const address_space& space, const address_range& range)
{
    std::uint64_t covered = range.begin;
    for (auto piece = first_piece(space.pieces, covered);
         covered < range.end && piece != space.pieces.end() && piece->first <= covered &&
         !piece->second.memory->replaced;
         ++piece)
        covered = piece->second.end;
    return covered >= range.end;
}

/// A kernel's code.
struct text_range {
    std::uint64_t begin;
    std::uint64_t end;
    std::size_t kernel;
};

/// Reads a line from the left. Behind every line there is a newline, so that one may look at the next
/// character at any time.
struct cursor {
    const char* at;
    const char* end; // the newline

    void skip_blanks()
    {
        while (*at == ' ' || *at == '\t')
            ++at;
    }
    bool skip(char c)
    {
        if (*at != c)
            return false;
        ++at;
        return true;
    }
    bool skip(std::string_view text)
    {
        if (static_cast<std::size_t>(end - at) < text.size() ||
            std::memcmp(at, text.data(), text.size()) != 0)
            return false;
        at += text.size();
        return true;
    }
    bool decimal(std::uint64_t& value)
    {
        const char* const begin = at;
        value = 0;
        for (; *at >= '0' && *at <= '9'; ++at) {
            const auto digit = static_cast<std::uint64_t>(*at - '0');
            if (at - begin >= 19 && (value > (UINT64_MAX - digit) / 10 || at - begin >= 20))
                return false;
            value = value * 10 + digit;
        }
        return at != begin;
    }
    bool number(std::int64_t& value) // of a process: small, may be -1
    {
        const bool negative = skip('-');
        std::uint64_t magnitude = 0;
        if (!decimal(magnitude) || magnitude > INT32_MAX)
            return false;
        value = negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
        return true;
    }
    bool hexadecimal(std::uint64_t& value);
};

int hexadecimal_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool cursor::hexadecimal(std::uint64_t& value)
{
    skip("0x");
    const char* const begin = at;
    value = 0;
    for (int digit = 0; (digit = hexadecimal_digit(*at)) >= 0; ++at) {
        if (at - begin == 16)
            return false;
        value = value << 4 | static_cast<std::uint64_t>(digit);
    }
    return at != begin;
}

// perf's name of memory that is no file's: as the kernel says it, and with the name that a program gave it.
bool is_anonymous(std::string_view name)
{
    return name == "//anon" || name.substr(0, 6) == "[anon:" || name.substr(0, 9) == "/dev/zero";
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

} // namespace

struct profile_reader::implementation {
    explicit implementation(const kernel_set& kernels);
    void read(std::string_view piece);
    profile finish();

    void read_start(std::string_view piece);
    void append(std::string_view piece);
    void read_line(const char* begin, const char* end);
    bool read_sample(cursor line, std::int64_t pid);
    bool read_record(cursor line, bool synthesized);
    bool read_mapping(cursor line);
    bool read_fork(cursor line, bool synthesized);
    bool read_command(cursor line);
    std::size_t event_number(std::string_view name);
    void count(std::int64_t pid, std::size_t event, std::uint64_t address, std::uint64_t period);
    void forget_last();

    void map(std::int64_t pid, const address_range& range, bool anonymous, bool executable, bool writable);
    void release(address_space& space);
    void forget_process(std::int64_t pid);
    void take_in(const sampled_memory& memory);
    void make_place(address_space& space, const address_range& range, bool grown);
    void fill(address_space& space, const address_range& range);
    [[nodiscard]] bool is_inside_mapping(std::uint64_t address) const;
    [[nodiscard]] std::vector<address_range>::const_iterator
    first_mapping_behind(std::uint64_t address) const;
    std::size_t held_among(const address_space& space, std::size_t first, std::size_t behind);
    void spend(std::size_t steps);
    [[nodiscard]] const text_range* find_text(std::uint64_t address) const;

    const kernel_set& set;
    std::vector<text_range> texts;       // ascending
    std::vector<address_range> mappings; // of the set, ascending

    std::string start; // the first bytes, which tell other files apart
    std::string carry; // the beginning of a line that goes on in the next piece
    bool too_long = false;
    bool started = false;

    profile result;
    std::size_t line_number = 0;
    bool any_line = false;
    bool any_mapping = false;
    std::vector<memory_counts> counts; // of memory that holds kernels, by number of the event
    std::map<std::string, std::size_t, std::less<>> event_numbers;
    std::size_t last_event = 0;

    std::unordered_map<std::int64_t, std::shared_ptr<address_space>> processes; // those with pieces
    bool joined = false; // some process held all kernels
    std::size_t most_held = 0;
    std::int64_t most_held_by = 0;
    std::size_t mapping_steps = 0;

    // Where the last sample was, since the next one is likely to be there too.
    std::optional<std::int64_t> last_pid;
    const address_space* last_space = nullptr;
    address_range last_piece = {0, 0};
    sampled_memory* last_memory = nullptr;
};

profile_reader::implementation::implementation(const kernel_set& kernels) : set(kernels)
{
    for (std::size_t i = 0; i < set.kernels.size(); ++i) {
        const placed_kernel& kernel = set.kernels[i];
        if (!kernel.text.empty())
            texts.push_back({kernel.text_address, kernel.text_end(), i});
        if (mappings.size() == kernel.mapping)
            mappings.push_back({kernel.text_address, set.mappings[kernel.mapping].end});
    }
    mappings.erase(std::remove_if(mappings.begin(), mappings.end(),
                                  [](const address_range& range) { return range.begin == range.end; }),
                   mappings.end());
}

void profile_reader::implementation::read(std::string_view piece)
{
    if (!started)
        read_start(piece);
    while (!piece.empty()) {
        const auto* const newline = static_cast<const char*>(std::memchr(piece.data(), '\n', piece.size()));
        if (newline == nullptr)
            return append(piece);
        const auto length = static_cast<std::size_t>(newline - piece.data());
        if (carry.empty() && !too_long && length <= longest_line) {
            read_line(piece.data(), newline);
        } else {
            append(piece.substr(0, length));
            carry += '\n';
            read_line(carry.data(), carry.data() + carry.size() - 1);
            carry.clear();
            too_long = false;
        }
        piece.remove_prefix(length + 1);
    }
}

void profile_reader::implementation::read_start(std::string_view piece)
{
    constexpr std::string_view perf_data = "PERFILE2";
    start += piece.substr(0, perf_data.size() - start.size());
    if (start == perf_data)
        throw std::runtime_error("data of perf record, not the text that perf script makes of it");
    if (start.substr(0, 2) == "\x1f\x8b")
        throw std::runtime_error("compressed by gzip: unpack it first");
    started = start.size() == perf_data.size();
}

void profile_reader::implementation::append(std::string_view piece)
{
    if (carry.size() + piece.size() > longest_line) {
        carry.clear();
        too_long = true;
    }
    if (!too_long)
        carry += piece;
}

void profile_reader::implementation::read_line(const char* begin, const char* end)
{
    ++line_number;
    cursor line{begin, end};
    line.skip_blanks();
    if (!too_long && (line.at == end || *line.at == '#' || (*line.at == '\r' && line.at + 1 == end)))
        return;
    std::int64_t pid = 0;
    std::int64_t thread = 0;
    std::uint64_t seconds = 0;
    std::uint64_t fraction = 0;
    bool good = !too_long && line.number(pid) && (!line.skip('/') || line.number(thread));
    if (good) {
        line.skip_blanks();
        good = line.decimal(seconds) && line.skip('.') && line.decimal(fraction) && line.skip(':');
    }
    if (good) {
        line.skip_blanks();
        good = *line.at == 'P' ? read_record(line, seconds == 0 && fraction == 0) : read_sample(line, pid);
    }
    any_line = any_line || good;
    if (!good && result.bad_lines++ == 0)
        result.first_bad_line = line_number;
}

// "250000  cpu-clock:  ffffcf10d54a0c14": the name of the event may hold anything.
bool profile_reader::implementation::read_sample(cursor line, std::int64_t pid)
{
    std::uint64_t period = 0;
    if (!line.decimal(period) || !is_blank(*line.at))
        return false;
    line.skip_blanks();
    const char* end = line.end;
    while (end != line.at && is_blank(end[-1]))
        --end;
    std::uint64_t address = 0;
    unsigned shift = 0;
    for (int digit = 0; end != line.at && (digit = hexadecimal_digit(end[-1])) >= 0; --end, shift += 4) {
        if (shift == 64)
            return false;
        address |= static_cast<std::uint64_t>(digit) << shift;
    }
    if (shift == 0 || end == line.at || !is_blank(end[-1]))
        return false;
    while (end != line.at && is_blank(end[-1]))
        --end;
    if (end == line.at || end[-1] != ':' || end - 1 == line.at)
        return false;
    const std::string_view name(line.at, static_cast<std::size_t>(end - 1 - line.at));
    count(pid, event_number(name), address, period);
    return true;
}

std::size_t profile_reader::implementation::event_number(std::string_view name)
{
    if (last_event < result.events.size() && result.events[last_event].event == name)
        return last_event;
    auto entry = event_numbers.find(name);
    if (entry == event_numbers.end()) {
        if (result.events.size() == most_events)
            throw std::runtime_error(fmt::format("more than {} events", most_events));
        entry = event_numbers.emplace(name, result.events.size()).first;
        result.events.emplace_back();
        result.events.back().event = name;
    }
    return last_event = entry->second;
}

void profile_reader::implementation::forget_last()
{
    last_pid.reset();
    last_piece = {0, 0};
}

void profile_reader::implementation::count(std::int64_t pid, std::size_t event, std::uint64_t address,
                                           std::uint64_t period)
{
    const sample_count sample{1, period};
    add(result.events[event].total, sample);
    if (pid != last_pid) {
        const auto process = processes.find(pid);
        last_pid = pid;
        last_space = process == processes.end() ? nullptr : process->second.get();
        last_piece = {0, 0};
    }
    if (last_space == nullptr)
        return;
    if (address < last_piece.begin || address >= last_piece.end) {
        const auto piece = first_piece(last_space->pieces, address);
        if (piece == last_space->pieces.end() || piece->first > address)
            return;
        last_piece = {piece->first, piece->second.end};
        last_memory = piece->second.memory.get();
    }
    if (last_memory->events.size() <= event)
        last_memory->events.resize(event + 1);
    memory_counts& here = last_memory->events[event];
    const auto known = here.kernels.find(address);
    if (known != here.kernels.end())
        add(known->second, sample);
    else if (find_text(address) != nullptr)
        here.kernels.emplace(address, sample);
    else
        add(here.unknown, sample);
}

const text_range* profile_reader::implementation::find_text(std::uint64_t address) const
{
    const auto behind =
        std::upper_bound(texts.begin(), texts.end(), address,
                         [](std::uint64_t a, const text_range& text) { return a < text.begin; });
    return behind == texts.begin() || address >= behind[-1].end ? nullptr : &behind[-1];
}

bool profile_reader::implementation::read_record(cursor line, bool synthesized)
{
    if (!line.skip("PERF_RECORD_"))
        return false;
    if (line.skip("MMAP2 ") || line.skip("MMAP "))
        return read_mapping(line);
    if (line.skip("FORK"))
        return read_fork(line, synthesized);
    if (line.skip("COMM exec: "))
        return read_command(line);
    if (line.skip("LOST lost ")) {
        std::uint64_t samples = 0;
        const bool good = line.decimal(samples);
        add(result.lost, samples);
        return good;
    }
    return true; // others move no code
}

// "662/662: [0xffffb23b5000(0xb000) @ 0xffffb23b5000 00:00 0 0]: rwxp //anon", of the older kind "… @ 0]: x
// …"
bool profile_reader::implementation::read_mapping(cursor line)
{
    std::int64_t pid = 0;
    std::int64_t thread = 0;
    std::uint64_t begin = 0;
    std::uint64_t size = 0;
    if (!line.number(pid) || !line.skip('/') || !line.number(thread) || !line.skip(": [") ||
        !line.hexadecimal(begin) || !line.skip('(') || !line.hexadecimal(size) || !line.skip(") @ "))
        return false;
    std::string_view rest(line.at, static_cast<std::size_t>(line.end - line.at));
    const std::size_t bracket = rest.find("]: ");
    if (bracket == std::string_view::npos)
        return false;
    rest.remove_prefix(bracket + 3);
    const std::size_t blank = rest.find(' ');
    if (blank == std::string_view::npos)
        return false;
    const std::string_view protection = rest.substr(0, blank);
    std::string_view name = rest.substr(blank + 1);
    while (!name.empty() && is_blank(name.back()))
        name.remove_suffix(1);
    any_mapping = true;
    if (size > UINT64_MAX - begin)
        size = UINT64_MAX - begin;
    // The older kind tells only whether it is executable, as memory that is both is.
    const bool writable = protection.size() == 1 || protection.find('w') != std::string_view::npos;
    map(pid, {begin, begin + size}, is_anonymous(name), protection.find('x') != std::string_view::npos,
        writable);
    return true;
}

// "(32351:32351):(32349:32349)": the new process and thread, their parents. A thread has its process's
// memory. What perf record found running when it began is written down at the time 0, and its memory with it,
// which since the fork may have become another program's.
bool profile_reader::implementation::read_fork(cursor line, bool synthesized)
{
    std::int64_t child = 0;
    std::int64_t parent = 0;
    std::int64_t thread = 0;
    if (!line.skip('(') || !line.number(child) || !line.skip(':') || !line.number(thread) ||
        !line.skip("):(") || !line.number(parent) || !line.skip(':') || !line.number(thread) ||
        !line.skip(')'))
        return false;
    if (synthesized || child == parent)
        return true;
    forget_last();
    forget_process(child); // an earlier process of the same number
    const auto found = processes.find(parent);
    if (found != processes.end()) {
        const std::shared_ptr<address_space> space = found->second;
        processes.emplace(child, space);
    }
    return true;
}

// "loop:662/662": an exec, which leaves nothing of the memory; the name may hold anything.
bool profile_reader::implementation::read_command(cursor line)
{
    const std::string_view rest(line.at, static_cast<std::size_t>(line.end - line.at));
    const std::size_t colon = rest.rfind(':');
    if (colon == std::string_view::npos)
        return false;
    line.at += colon + 1;
    std::int64_t pid = 0;
    if (!line.number(pid) || !line.skip('/'))
        return false;
    forget_last();
    forget_process(pid);
    return true;
}

// A process has ended, or left its memory by an exec; the last one to do so leaves its samples behind.
void profile_reader::implementation::release(address_space& space)
{
    for (auto& [address, piece] : space.pieces) {
        const std::shared_ptr<sampled_memory> memory = std::move(piece.memory);
        if (memory.use_count() == 1 && memory->holds_kernels && !memory->replaced)
            take_in(*memory);
    }
}

void profile_reader::implementation::forget_process(std::int64_t pid)
{
    const auto process = processes.find(pid);
    if (process == processes.end())
        return;
    const std::shared_ptr<address_space> space = std::move(process->second);
    processes.erase(process);
    if (space.use_count() == 1)
        release(*space);
}

void profile_reader::implementation::take_in(const sampled_memory& memory)
{
    if (counts.size() < memory.events.size())
        counts.resize(memory.events.size());
    for (std::size_t event = 0; event < memory.events.size(); ++event) {
        for (const auto& [address, count] : memory.events[event].kernels)
            add(counts[event].kernels[address], count);
        add(counts[event].unknown, memory.events[event].unknown);
    }
}

void profile_reader::implementation::spend(std::size_t steps)
{
    mapping_steps += steps;
    if (mapping_steps > most_mapping_steps)
        throw std::runtime_error("more mappings than any system makes");
}

std::size_t profile_reader::implementation::held_among(const address_space& space, std::size_t first,
                                                       std::size_t behind)
{
    spend(behind - first + 1);
    return static_cast<std::size_t>(
        std::count_if(mappings.begin() + static_cast<std::ptrdiff_t>(first),
                      mappings.begin() + static_cast<std::ptrdiff_t>(behind),
                      [&](const address_range& range) { return covers(space, range); }));
}

/// The first mapping of the set that ends behind the address.
std::vector<address_range>::const_iterator
profile_reader::implementation::first_mapping_behind(std::uint64_t address) const
{
    return std::upper_bound(mappings.begin(), mappings.end(), address,
                            [](std::uint64_t a, const address_range& mapping) { return a < mapping.end; });
}

bool profile_reader::implementation::is_inside_mapping(std::uint64_t address) const
{
    const auto mapping = first_mapping_behind(address);
    return mapping != mappings.end() && mapping->begin < address;
}

// Forgets the memory that was in the range until now. The finaliser unmaps nothing, so what makes place while
// the process goes on was not its, and what was sampled there was no kernel. With `grown` the range is that
// of anonymous memory, which the kernel tells as a whole when a neighbour becomes part of it: then what was
// there stays, unless a mapping of kernels begins or ends in the middle of it.
void profile_reader::implementation::make_place(address_space& space, const address_range& range, bool grown)
{
    auto piece = first_piece(space.pieces, range.begin);
    while (piece != space.pieces.end() && piece->first < range.end) {
        spend(1);
        const address_range old = {piece->first, piece->second.end};
        const bool whole = old.begin >= range.begin && old.end <= range.end;
        const bool all = old.begin == range.begin && old.end == range.end;
        if (grown && whole && !all && !is_inside_mapping(old.begin) && !is_inside_mapping(old.end)) {
            ++piece;
            continue;
        }
        piece->second.memory->replaced = true;
        piece = space.pieces.erase(piece);
    }
}

// What of the range no piece has becomes one.
void profile_reader::implementation::fill(address_space& space, const address_range& range)
{
    const auto memory = std::make_shared<sampled_memory>();
    std::uint64_t at = range.begin;
    for (auto piece = first_piece(space.pieces, at); piece != space.pieces.end() && piece->first < range.end;
         ++piece) {
        spend(1);
        if (at < piece->first)
            space.pieces.emplace_hint(piece, at, memory_piece{piece->first, memory});
        at = piece->second.end;
    }
    if (at < range.end)
        space.pieces.emplace(at, memory_piece{range.end, memory});
}

void profile_reader::implementation::map(std::int64_t pid, const address_range& range, bool anonymous,
                                         bool executable, bool writable)
{
    // That existing memory got another protection is told in the same words.
    if (range.begin == range.end || (anonymous && !executable))
        return;
    const auto first = first_mapping_behind(range.begin);
    const auto behind = std::lower_bound(
        first, mappings.cend(), range.end,
        [](const address_range& mapping, std::uint64_t address) { return mapping.begin < address; });
    const auto process = processes.find(pid);
    const bool holds = anonymous && first != behind;
    if (!holds && (process == processes.end() || !touches(*process->second, range)))
        return;
    forget_last();
    std::shared_ptr<address_space>& space = process == processes.end() ? processes[pid] : process->second;
    if (space == nullptr)
        space = std::make_shared<address_space>();
    if (holds && !writable && covers(*space, range))
        return;
    if (space.use_count() > 1) {
        spend(space->pieces.size());
        space = std::make_shared<address_space>(*space);
    }
    const auto first_number = static_cast<std::size_t>(first - mappings.begin());
    const auto behind_number = static_cast<std::size_t>(behind - mappings.begin());
    space->held -= held_among(*space, first_number, behind_number);
    make_place(*space, range, holds);
    if (holds)
        fill(*space, range);
    space->held += held_among(*space, first_number, behind_number);
    if (space->held > most_held) {
        most_held = space->held;
        most_held_by = pid;
    }
    if (space->held < mappings.size())
        return;
    // Other processes may have got other memory in the place of some that was counted as held.
    space->held = held_among(*space, 0, mappings.size());
    if (space->held != mappings.size())
        return;
    joined = true;
    spend(space->pieces.size());
    for (auto& [address, piece] : space->pieces)
        piece.memory->holds_kernels = true;
}

profile profile_reader::implementation::finish()
{
    if (!carry.empty() || too_long)
        read("\n");
    if (!any_line)
        throw std::runtime_error("no line of the text of perf script -F pid,time,event,period,ip");
    if (!any_mapping)
        throw std::runtime_error("no process's mappings in it: perf script was run without "
                                 "--show-mmap-events");
    if (mappings.empty())
        throw std::runtime_error("there are no kernels to look for in it");
    if (!joined) {
        std::string reason = "no process maps the memory of the kernels";
        if (most_held != 0) {
            reason = fmt::format("no process maps all of the kernels; process {} has {} of their {} mappings",
                                 most_held_by, most_held, mappings.size());
        }
        throw std::runtime_error("dumps and profile are of different runs: " + reason);
    }
    while (!processes.empty())
        forget_process(processes.begin()->first);
    counts.resize(result.events.size());
    for (std::size_t number = 0; number < counts.size(); ++number) {
        event_profile& event = result.events[number];
        std::unordered_map<std::size_t, std::size_t> places;
        for (const auto& [address, count] : counts[number].kernels) {
            const text_range& text = *find_text(address);
            const auto [place, added] = places.try_emplace(text.kernel, event.kernels.size());
            if (added) {
                event.kernels.emplace_back();
                event.kernels.back().kernel = text.kernel;
            }
            kernel_profile& kernel = event.kernels[place->second];
            kernel.rows.push_back({address - text.begin, count});
            add(kernel.count, count);
            add(event.in_kernels, count);
        }
        for (kernel_profile& kernel : event.kernels)
            std::sort(kernel.rows.begin(), kernel.rows.end(),
                      [](const profile_row& a, const profile_row& b) { return a.offset < b.offset; });
        std::sort(event.kernels.begin(), event.kernels.end(),
                  [](const kernel_profile& a, const kernel_profile& b) {
                      return a.count.weight != b.count.weight ? a.count.weight > b.count.weight
                                                              : a.kernel < b.kernel;
                  });
        event.unknown = counts[number].unknown;
        event.elsewhere = {
            event.total.samples - event.in_kernels.samples - event.unknown.samples,
            difference(difference(event.total.weight, event.in_kernels.weight), event.unknown.weight)};
    }
    std::stable_sort(
        result.events.begin(), result.events.end(),
        [](const event_profile& a, const event_profile& b) { return a.total.samples > b.total.samples; });
    return std::move(result);
}

profile_reader::profile_reader(const kernel_set& set) : implementation_(std::make_unique<implementation>(set))
{
}

profile_reader::~profile_reader() = default;

void profile_reader::read(std::string_view piece)
{
    implementation_->read(piece);
}

profile profile_reader::finish()
{
    return implementation_->finish();
}

const event_profile* find_event(const profile& profile, std::string_view name)
{
    for (const event_profile& event : profile.events) {
        if (name.empty() || event.event == name)
            return &event;
    }
    return nullptr;
}

bool is_exact(const event_profile& event)
{
    return event.event == "executions";
}

std::vector<std::uint64_t> weights_by_row(const kernel_profile& profile, std::size_t text_size)
{
    const std::size_t words = text_size / 4;
    std::vector<std::uint64_t> weights(words + text_size % 4);
    for (const profile_row& row : profile.rows) {
        const std::size_t index = row.offset / 4 < words ? row.offset / 4 : words + (row.offset - 4 * words);
        add(weights[index], row.count.weight);
    }
    return weights;
}

std::vector<std::string> perf_script_command()
{
    return {
        "perf", "script", "-F", "pid,time,event,period,ip", "-G", "--show-mmap-events", "--show-task-events"};
}

} // namespace vorna::workbench
