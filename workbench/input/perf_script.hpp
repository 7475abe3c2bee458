// The parser of the text of perf script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vorna::workbench {

/// The command whose text is parsed, without the input: "perf", "script", "-F", …
std::vector<std::string> perf_script_command();

struct perf_sample {
    std::int32_t pid = 0;
    std::string_view event; ///< as perf names it: "cycles:u"; valid during the call
    std::uint64_t address = 0;
    std::uint64_t period = 0;
};

/// Memory that a process mapped, or whose protection it changed: perf records both in the same way.
struct perf_mapping {
    std::int32_t pid = 0;
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    bool anonymous = false;
    bool executable = false;
    bool writable = false;
};

/// A process, not a thread, that another one forked.
struct perf_fork {
    std::int32_t child = 0;
    std::int32_t parent = 0;
};

/// A process that became another program, and so dropped all of its memory.
struct perf_exec {
    std::int32_t pid = 0;
};

using perf_record = std::variant<perf_sample, perf_mapping, perf_fork, perf_exec>;

/// What else the text contains.
struct perf_script_summary {
    std::uint64_t lost = 0;         ///< samples that the recording says it lost
    std::size_t bad_lines = 0;      ///< lines that are not perf script's
    std::size_t first_bad_line = 0; ///< number of the first, from 1
};

/// Parses the text of perf_script_command() in pieces.
class perf_script_reader {
public:
    /// `take` is called with each record, in the order of the text. What it throws passes through.
    explicit perf_script_reader(std::function<void(const perf_record&)> take);
    ~perf_script_reader();
    perf_script_reader(const perf_script_reader&) = delete;
    perf_script_reader& operator=(const perf_script_reader&) = delete;

    /// The next piece of the text, which may be split anywhere. Throws std::runtime_error if the
    /// text is another kind of file.
    void read(std::string_view piece);

    /// Call once, after the last piece. Throws std::runtime_error if the text has no line of perf script, or
    /// no mappings.
    perf_script_summary finish();

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vorna::workbench
