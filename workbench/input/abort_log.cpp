#include "workbench/input/abort_log.hpp"

#include "workbench/input/line_reader.hpp"
#include "workbench/input/scanner.hpp"

#include <elf.h>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t most_reports = 100;
constexpr std::size_t longest_line = std::size_t{128} << 10;
constexpr std::size_t most_registry_bytes = std::size_t{128} << 20;

constexpr std::string_view message_begin = "resolving R_AARCH64_";
constexpr std::string_view source_file = "kernel_printer";

constexpr std::string_view emit_signature =
    "void emit_single(vorna::wfta::kernel_registry_map&, const string&, uint8_t*, size_t, const uint8_t*, size_t, const std::vector<tessjit::reloc_info>&)";
constexpr std::string_view resolve_signature =
    "void resolve_relocation(const string&, uint8_t*, const uint8_t*, const tessjit::reloc_info&, vorna::wfta::kernel_registry_map&)";
constexpr std::string_view registry_signature =
    "void debug_dump_kernels_and_fail(const kernel_registry_map&)";

struct assertion {
    std::string_view id;
    std::string_view function;
    std::string_view expression;
};

constexpr assertion assertions[] = {
    {"duplicate-name", emit_signature,
     "kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, data_len }).second"},
    {"unknown-target", resolve_signature, "it != kernel_registry.end()"},
    {"foreign-data", resolve_signature, "reloc.name.substr(8) == fn_name"},
    {"null-target", resolve_signature, "target_addr"},
    {"unhandled-type", resolve_signature, "false && \"unhandled reloc type\""},
    {"", registry_signature, "false"},
};

// glibc's "program: file:line: function: Assertion `expression' failed.", whose words a locale translates, or
// musl's "Assertion failed: expression (file: function: line)".
bool is_assertion(std::string_view line, const assertion& wanted)
{
    constexpr auto npos = std::string_view::npos;
    const std::size_t function = line.rfind(wanted.function);
    if (function == npos)
        return false;
    const std::string_view rest = line.substr(function + wanted.function.size());
    if (rest.substr(0, 2) != ": ")
        return false;
    constexpr std::string_view musl = "Assertion failed: ";
    const std::size_t words = line.rfind(musl, function);
    if (words != npos) {
        const std::string_view expression = line.substr(words + musl.size());
        return expression.substr(0, wanted.expression.size()) == wanted.expression &&
               expression.substr(wanted.expression.size(), 2) == " (";
    }
    // Every locale quotes the expression, so "false" is not the beginning of another one.
    const std::size_t expression = rest.find(wanted.expression);
    return expression != npos && expression >= 3 && rest[expression - 1] != ' ' &&
           expression + wanted.expression.size() < rest.size() &&
           rest[expression + wanted.expression.size()] != ' ';
}

// printf's "%p": some C libraries print a null pointer without "0x".
bool take_pointer(scanner& text, std::uint64_t& number)
{
    number = 0;
    if (text.skip("(nil)"))
        return true;
    text.skip("0x");
    return text.take_hexadecimal(number);
}

const wfta::relocation_kind* take_kind(scanner& text)
{
    for (const int type :
         {R_AARCH64_ADR_PREL_LO21, R_AARCH64_ADR_PREL_PG_HI21, R_AARCH64_ADD_ABS_LO12_NC, R_AARCH64_CALL26}) {
        const wfta::relocation_kind* const kind = wfta::find_relocation_kind(type);
        if (text.skip(kind->name) && text.skip(" reloc but "))
            return kind;
    }
    return nullptr;
}

bool parse_message(std::string_view words, abort_report& report)
{
    scanner text(words);
    text.skip("resolving ");
    const wfta::relocation_kind* const kind = take_kind(text);
    if (kind == nullptr)
        return false;
    if (text.skip("dst address ")) {
        filled_message filled{kind, 0, 0};
        if (!take_pointer(text, filled.place) || !text.skip(" was already filled, got 0x") ||
            !text.take_hexadecimal(filled.word))
            return false;
        report.id = "field-filled";
        report.filled = filled;
        return true;
    }
    range_message range{kind, 0, 0, 0};
    if (!kind->relative || !text.skip("smod does not fit in ") || !text.skip_to(", got 0x") ||
        !text.take_hexadecimal(range.target) || !text.skip(" - 0x") || !text.take_hexadecimal(range.place) ||
        !text.skip(" = 0x") || !text.take_hexadecimal(range.value) ||
        range.value != range.target - range.place)
        return false;
    report.id = "range";
    report.range = range;
    return true;
}

// Parses a line of the registry dump from the right, since the name may contain anything; `line` becomes what
// precedes the addresses.
bool parse_registered_kernel(std::string_view& line, registered_kernel& kernel)
{
    scanner text(line);
    const auto take_last = [&text](std::uint64_t& number, bool pointer) {
        std::string_view word;
        if (!text.take_last_word(word))
            return false;
        scanner digits(word);
        return (pointer ? take_pointer(digits, number)
                        : digits.skip("0x") && digits.take_hexadecimal(number)) &&
               digits.at_end();
    };
    if (!take_last(kernel.extent.data_size, false) || !take_last(kernel.extent.data_address, true) ||
        !take_last(kernel.extent.text_size, false) || !take_last(kernel.extent.text_address, true) ||
        !text.skip_last(" \t"))
        return false;
    line = text.rest();
    return true;
}

// Removes what a line of a log may end with: carriage returns, and escape sequences that set a colour or
// clear the rest of the line.
void remove_line_end(std::string_view& line)
{
    while (!line.empty()) {
        if (line.back() == '\r') {
            line.remove_suffix(1);
            continue;
        }
        if (line.back() != 'm' && line.back() != 'K')
            return;
        const std::size_t escape = line.rfind("\x1b[");
        if (escape == std::string_view::npos ||
            line.find_first_not_of("0123456789;", escape + 2) != line.size() - 1)
            return;
        line.remove_suffix(line.size() - escape);
    }
}

constexpr std::string_view indent = "  ";

} // namespace

struct abort_log_reader::implementation {
    void take_line(const text_line& whole)
    {
        if (!open_ && whole.text.size() < message_begin.size())
            return;
        line_ = whole.number;
        std::string_view line = whole.text;
        remove_line_end(line);
        if (contains(line, message_begin) && take_message(line))
            return;
        if (contains(line, source_file) && take_assertion(line))
            return;
        if (open_)
            take_registry_line(line);
    }

    bool take_message(std::string_view line)
    {
        const std::size_t at = line.rfind(message_begin);
        abort_report report;
        if (!parse_message(line.substr(at), report))
            return false;
        if (log_.reports.size() == most_reports) {
            ++log_.more_reports;
            open_ = false;
            return true;
        }
        // A message after an assertion is another process's.
        if (!open_ || assertions_ != 0) {
            log_.registries.emplace_back();
            messages_ = 0;
            assertions_ = 0;
        }
        open_ = true;
        ++messages_;
        prefix_ = line.substr(0, at);
        name_begin_.clear();
        report.registry = log_.registries.size() - 1;
        report.registry_begin = log_.registries.back().kernels.size();
        add_report(std::move(report));
        return true;
    }

    bool take_assertion(std::string_view line)
    {
        for (const assertion& wanted : assertions) {
            if (!is_assertion(line, wanted))
                continue;
            if (wanted.id.empty() && open_) {
                log_.registries.back().complete = registry_bytes_ <= most_registry_bytes;
                open_ = ++assertions_ < messages_;
                return true;
            }
            if (wanted.id.empty() && log_.reports.size() == most_reports)
                return true; // of a message that was skipped
            abort_report report;
            report.id = wanted.id;
            add_report(std::move(report));
            return true;
        }
        return false;
    }

    void add_report(abort_report report)
    {
        if (log_.reports.size() == most_reports) {
            ++log_.more_reports;
            return;
        }
        report.line = line_;
        log_.reports.push_back(std::move(report));
    }

    // The line without the prefix that the message had: the same words or, for a timestamp or a number,
    // others that end with the same character, preferably of the same length.
    [[nodiscard]] std::string_view without_prefix(std::string_view line) const
    {
        if (line.starts_with(prefix_))
            return line.substr(prefix_.size());
        const std::string end_of_prefix = prefix_.back() + std::string(indent);
        const std::size_t last = prefix_.size() - 1;
        if (line.size() > last && line.substr(last).starts_with(end_of_prefix))
            return line.substr(prefix_.size());
        const std::size_t at = line.find(end_of_prefix);
        return at == std::string_view::npos || line.starts_with(indent) ? line : line.substr(at + 1);
    }

    void take_registry_line(std::string_view line)
    {
        line = without_prefix(line);
        const bool begins = line.starts_with(indent);
        if (begins) {
            line.remove_prefix(indent.size());
            name_begin_.clear();
        }
        const std::string_view whole = line;
        registered_kernel kernel;
        if (!parse_registered_kernel(line, kernel)) {
            // Perhaps the beginning, or a further part, of a name that contains newlines.
            if (begins || !name_begin_.empty()) {
                name_begin_ += whole;
                name_begin_ += '\n';
            }
            if (name_begin_.size() > longest_line)
                name_begin_.clear();
            return;
        }
        kernel.name = std::move(name_begin_);
        kernel.name += line;
        name_begin_.clear();
        registry_bytes_ += sizeof kernel + kernel.name.size();
        if (registry_bytes_ <= most_registry_bytes)
            log_.registries.back().kernels.push_back(std::move(kernel));
    }

    line_reader lines_{longest_line};
    abort_log log_;
    std::size_t line_ = 0;
    bool open_ = false; // a message's registry dump may follow
    std::size_t messages_ = 0;
    std::size_t assertions_ = 0;
    std::size_t registry_bytes_ = 0;
    std::string prefix_;
    std::string name_begin_; // the lines of a name so far, each with its newline
};

abort_log_reader::abort_log_reader() : implementation_(std::make_unique<implementation>()) {}

abort_log_reader::~abort_log_reader() = default;

void abort_log_reader::read(std::string_view piece)
{
    implementation_->lines_.read(piece, [this](const text_line& line) { implementation_->take_line(line); });
}

abort_log abort_log_reader::finish()
{
    implementation_->lines_.finish([this](const text_line& line) { implementation_->take_line(line); });
    return std::move(implementation_->log_);
}

abort_log read_abort_log(std::string_view log)
{
    abort_log_reader reader;
    reader.read(log);
    return reader.finish();
}

} // namespace vorna::workbench
