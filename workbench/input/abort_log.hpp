// The reader of abort reports: what the finaliser prints when it ends a process, found among other lines.
#pragma once

#include "check/relocation.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// A kernel as a line of the registry's listing has it. The name ends at its first NUL byte.
struct registered_kernel {
    std::string name;
    std::uint64_t text_address = 0;
    std::uint64_t text_length = 0;
    std::uint64_t data_address = 0;
    std::uint64_t data_length = 0;
};

/// The listing of a registry, which stands between a message and its assertion.
struct registry_listing {
    std::vector<registered_kernel> kernels; ///< in the log's order
    bool complete = false;                  ///< the assertion was found behind it, and all lines were kept
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
    std::uint64_t target; ///< S, of ADRP its page
    std::uint64_t place;  ///< P, of ADRP its page
    std::uint64_t value;  ///< X, their difference
};

/// One report.
struct abort_report {
    /// "duplicate-name", "unknown-target", "foreign-data", "null-target", "unhandled-type", "field-filled" or
    /// "range"; empty if the assertion behind a listing was found without its message.
    std::string id;
    std::size_t line = 0; ///< of the log, counted from 1, on which the report begins
    std::optional<filled_message> filled;
    std::optional<range_message> range;
    std::optional<std::size_t>
        listing;                   ///< index in abort_log::listings; reports of several threads share one
    std::size_t listing_begin = 0; ///< index of the listing's first kernel behind the message
};

/// What a log holds.
struct abort_log {
    std::vector<abort_report> reports; ///< in the log's order, 100 at most
    std::size_t more_reports = 0;      ///< so many further ones were passed over
    std::vector<registry_listing> listings;
};

/// Reads a log in pieces.
///
/// Everything else in the log is skipped: other programs' lines, what stands in front of a message on its
/// line, an equally long prefix of all lines. Lines of several threads may be mixed, a line's own bytes not.
/// A name that holds newlines is put together again. Memory is bounded, whatever the log holds: of a listing
/// 128 MiB are kept at most, of a line its last 128 KiB.
class abort_log_reader {
public:
    abort_log_reader();
    ~abort_log_reader();
    abort_log_reader(const abort_log_reader&) = delete;
    abort_log_reader& operator=(const abort_log_reader&) = delete;

    /// The next piece; the log may be cut anywhere between pieces.
    void read(std::string_view piece);

    /// To be called once, after the last piece.
    abort_log finish();

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

/// Reads a log that is in memory.
abort_log read_abort_log(std::string_view log);

} // namespace vorna::workbench
