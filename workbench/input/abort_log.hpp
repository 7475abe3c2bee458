// The reader of abort logs: finds what the finaliser prints when it ends a process, among other lines.
#pragma once

#include "check/relocation.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// A kernel, from a line of the registry dump. The name ends at its first NUL byte.
struct registered_kernel {
    std::string name;
    kernel_extent extent;
};

/// A registry dump, which is between a message and its assertion.
struct registry_dump {
    std::vector<registered_kernel> kernels; ///< in the log's order
    bool complete = false;                  ///< the assertion was found after it, and all lines were kept
};

/// "dst address … was already filled, got …"
struct filled_message {
    const wfta::relocation_kind* kind;
    std::uint64_t place; ///< P, address of the instruction
    std::uint32_t word;  ///< found there
};

/// "smod does not fit in …, got … - … = …"
struct range_message {
    const wfta::relocation_kind* kind;
    std::uint64_t target; ///< S, for ADRP its page
    std::uint64_t place;  ///< P, for ADRP its page
    std::uint64_t value;  ///< X, their difference
};

/// One report.
struct abort_report {
    /// "duplicate-name", "unknown-target", "foreign-data", "null-target", "unhandled-type", "field-filled" or
    /// "range"; empty if an assertion was found after a registry dump without its message.
    std::string id;
    std::size_t line = 0; ///< of the log, from 1, where the report begins
    std::optional<filled_message> filled;
    std::optional<range_message> range;
    std::optional<std::size_t>
        registry;                   ///< index in abort_log::registries; reports of several threads share one
    std::size_t registry_begin = 0; ///< index of the first kernel in it after the message
};

/// What a log holds.
struct abort_log {
    std::vector<abort_report> reports; ///< in the log's order, 100 at most
    std::size_t more_reports = 0;      ///< number of further ones, which were skipped
    std::vector<registry_dump> registries;
};

/// Reads a log in pieces.
///
/// Everything else in the log is skipped: other programs' lines, anything before a message on its line, a
/// prefix of the same length on all lines. Lines of several threads may be interleaved, but not their bytes.
/// Names that contain newlines are reassembled. Memory is bounded whatever the log contains: at most 128 MiB
/// of a registry dump and the last 128 KiB of a line are kept.
class abort_log_reader {
public:
    abort_log_reader();
    ~abort_log_reader();
    abort_log_reader(const abort_log_reader&) = delete;
    abort_log_reader& operator=(const abort_log_reader&) = delete;

    /// The next piece; the log may be split anywhere.
    void read(std::string_view piece);

    /// Call once, after the last piece.
    abort_log finish();

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

/// Reads a log that is in memory.
abort_log read_abort_log(std::string_view log);

} // namespace vorna::workbench
