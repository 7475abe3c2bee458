#include "workbench/analysis/code_map.hpp"
#include "workbench/analysis/interface.hpp"
#include "workbench/analysis/locate_address.hpp"
#include "workbench/cli/command.hpp"
#include "workbench/cli/print_json.hpp"
#include "workbench/input/line_reader.hpp"
#include "workbench/input/scanner.hpp"
#include "workbench/os/file.hpp"
#include "workbench/render/color.hpp"
#include "workbench/render/excerpt.hpp"
#include "workbench/render/interface_text.hpp"
#include "workbench/render/listing.hpp"
#include "workbench/text/constants.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string_view>

namespace vorna::workbench {

namespace {

struct where_options {
    common_options common;
    std::string dumps;
    std::vector<std::string> addresses;
};

std::optional<std::uint64_t> parse_address(std::string_view text)
{
    scanner digits(text);
    std::uint64_t address = 0;
    digits.skip("0x");
    if (!digits.take_hexadecimal(address) || !digits.at_end())
        return std::nullopt;
    return address;
}

struct listed_kernel {
    const placed_kernel* kernel = nullptr;
    kernel_listing listing;
    kernel_interface interface;
};

/// An address, and what lies there.
struct found_address {
    const kernel_set& set;
    address_location location;
    const listed_kernel* listed = nullptr; ///< the kernel whose code contains the address
    std::size_t row = 0;                   ///< in the listing
    std::size_t value_offset = 0;          ///< in the constants, of the value there
    std::optional<constant> value;         ///< eight bytes, counted from the first constant
};

constant constant_at(const placed_kernel& kernel, std::size_t offset)
{
    const std::span<const std::uint8_t> bytes = std::span(kernel.data).subspan(offset);
    return split_constants(bytes.first(std::min<std::size_t>(8, bytes.size()))).front();
}

void print_text(const found_address& found, bool colored)
{
    const address_location& at = found.location;
    fmt::print("{}  {}\n", colorize(fmt::format("{:#x}", at.address), color::bold, colored),
               location_text(found.set, at));
    if (found.listed != nullptr) {
        const int digits = offset_digits(*found.listed->kernel);
        for (const std::string& line : interface_lines(found.listed->interface, digits))
            fmt::print("{}\n", colorize(line, color::dim, colored));
        fmt::print("{}", excerpt_text(found.listed->listing.rows, found.row, digits, colored));
    }
    if (found.value) {
        const std::string number = probable_double(*found.value);
        fmt::print("    +{:02x}  {}{}{}\n", found.value_offset, hexadecimal(*found.value),
                   number.empty() ? "" : "  ", number);
    }
}

json to_json(const found_address& found)
{
    const address_location& at = found.location;
    json object;
    object["address"] = fmt::format("{:#x}", at.address);
    object["part"] = at.part == address_part::nothing ? json() : json(name_of(at.part));
    object["kernel"] = at.kernel ? json(found.set.kernels[*at.kernel].name) : json();
    object["offset"] = at.kernel ? json(at.offset) : json();
    object["after"] = at.part != address_part::padding && at.part != address_part::gap ? json()
                      : at.after_constants                                             ? json("constants")
                                                                                       : json("code");
    object["value"] = found.value ? json("0x" + hexadecimal(*found.value)) : json();
    object["rows"] = json::array();
    object["interface"] = json();
    if (found.listed != nullptr) {
        object["interface"] = interface_json(found.listed->interface);
        const std::vector<listing_row>& rows = found.listed->listing.rows;
        const row_range range = excerpt_range(rows.size(), found.row);
        for (std::size_t i = range.begin; i < range.end; ++i) {
            json row = row_to_json(rows[i]);
            row["marked"] = i == found.row;
            object["rows"].push_back(row);
        }
    }
    return object;
}

class finder {
public:
    finder(const common_options& options, read_result& read)
        : read_(read), reads_(read.set), colored_(use_color(options))
    {
        if (options.format == "json")
            document_.emplace("addresses");
    }

    /// `source` is where the text stands, for an error: empty, or "standard input:3: ".
    void find(std::string_view text, const std::string& source)
    {
        const std::optional<std::uint64_t> address = parse_address(text);
        if (!address) {
            print_error(fmt::format("{}'{}' is not a hexadecimal address", source, text));
            read_.had_errors = true;
            return;
        }
        found_address found{read_.set, locate_address(read_.set, *address), nullptr, 0, 0, std::nullopt};
        const address_location& at = found.location;
        if (at.part == address_part::code) {
            found.listed = list(read_.set.kernels[*at.kernel]);
            if (found.listed != nullptr)
                found.row = row_at(found.listed->listing.rows, at.offset);
        }
        if (at.part == address_part::constants) {
            found.value_offset = static_cast<std::size_t>(at.offset) / 8 * 8;
            found.value = constant_at(read_.set.kernels[*at.kernel], found.value_offset);
        }
        all_found_ = all_found_ && at.part != address_part::nothing;
        if (document_)
            document_->add(to_json(found));
        else
            print_text(found, colored_);
    }

    int finish()
    {
        if (document_)
            document_->finish();
        if (read_.had_errors)
            return exit_error;
        return all_found_ ? exit_success : exit_findings;
    }

private:
    // The last one is kept, since neighbouring addresses are often of one kernel.
    const listed_kernel* list(const placed_kernel& kernel)
    {
        if (listed_.kernel == &kernel)
            return &listed_;
        try {
            listed_.listing = list_kernel(read_.set, kernel, disassembler_);
        } catch (const std::runtime_error& error) {
            listed_.kernel = nullptr;
            print_error(error.what());
            read_.had_errors = true;
            return nullptr;
        }
        listed_.kernel = &kernel;
        const decoded_kernel code = decode_kernel(kernel);
        listed_.interface =
            interface_of(code, map_code(code, find_entries(read_.set, kernel)), reads_.by_calls_in(kernel));
        return &listed_;
    }

    read_result& read_;
    argument_reads reads_;
    bool colored_;
    bool all_found_ = true;
    disassembler disassembler_;
    listed_kernel listed_;
    std::optional<json_array_document> document_;
};

void find_lines_of_input(finder& addresses)
{
    constexpr std::size_t longest_line = 4096;
    line_reader lines(longest_line);
    const auto take = [&](const text_line& line) {
        scanner words(line.text);
        words.skip_blanks();
        words.skip_last_blanks();
        if (!words.at_end())
            addresses.find(words.rest(), fmt::format("standard input:{}: ", line.number));
    };
    read_pieces(open_input("-"), [&](std::string_view piece) { lines.read(piece, take); });
    lines.finish(take);
}

int where(const where_options& options)
{
    read_result read = read_set({options.dumps}, options.common);
    if (!require_kernels(read, options.dumps))
        return exit_error;
    finder addresses(options.common, read);
    if (options.addresses.empty())
        find_lines_of_input(addresses);
    for (const std::string& address : options.addresses)
        addresses.find(address, "");
    return addresses.finish();
}

} // namespace

void add_where(command_line& program, int& status)
{
    const auto options = std::make_shared<where_options>();
    command_line command = program.add_command("where", "Say which kernel and instruction an address is in");
    command.add_option("DUMPS", options->dumps, "Directory of dumps, or one dump").required();
    command.add_option("ADDRESS", options->addresses,
                       "Hexadecimal addresses (default: one a line from standard input)");
    add_common_options(command, options->common, {"text", "json"});
    command.footer("Exit status: 0 all found, 1 an address is in no kernel's mapping, 2 error.");
    command.run([options, &status] { status = where(*options); });
}

} // namespace vorna::workbench
