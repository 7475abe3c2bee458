#include "workbench/report_listing.hpp"

#include "workbench/html.hpp"
#include "workbench/json.hpp"
#include "workbench/output.hpp"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace vorna::workbench {

namespace {

constexpr std::size_t word_size = 4;
constexpr std::size_t row_height = 20; // of page.css, in its pixels

// ---- Arrows of branches within the kernel

struct arrow {
    std::size_t from; // rows of the table
    std::size_t to;
    std::size_t lane = 0; // from the left
    [[nodiscard]] std::size_t first() const { return std::min(from, to); }
    [[nodiscard]] std::size_t last() const { return std::max(from, to); }
};

constexpr std::size_t most_lanes = 8; // arrows that find no free one share the last

/// Gives each arrow the leftmost lane that is free along its whole way. Returns how many lanes there are.
std::size_t choose_lanes(std::vector<arrow>& arrows)
{
    std::sort(arrows.begin(), arrows.end(), [](const arrow& a, const arrow& b) {
        return a.first() != b.first() ? a.first() < b.first() : a.last() > b.last();
    });
    std::vector<std::size_t> free_from; // of each lane, the row behind its last arrow
    for (arrow& one : arrows) {
        const auto lane = std::find_if(free_from.begin(), free_from.end(),
                                       [&](std::size_t row) { return row <= one.first(); });
        one.lane = static_cast<std::size_t>(lane - free_from.begin());
        if (lane == free_from.end() && free_from.size() == most_lanes)
            --one.lane;
        else if (lane == free_from.end())
            free_from.push_back(0);
        free_from[one.lane] = std::max(free_from[one.lane], one.last() + 1);
    }
    return free_from.size();
}

struct arrows_of_table {
    std::vector<arrow> arrows;
    std::size_t lanes = 0;
};

std::string arrows_svg(const arrows_of_table& table, std::size_t rows)
{
    constexpr std::size_t lane_width = 7;
    const std::size_t right = table.lanes * lane_width + 10;
    std::string svg =
        fmt::format("<svg width=\"{}\" height=\"{}\" aria-hidden=\"true\">", right, rows * row_height);
    for (const arrow& one : table.arrows) {
        const std::size_t x = 3 + one.lane * lane_width;
        const std::size_t to = one.to * row_height + row_height / 2;
        // A branch to itself is a small loop.
        const std::size_t from = one.from == one.to ? to - 5 : one.from * row_height + row_height / 2;
        const char* const direction = one.to <= one.from ? "back" : "forth";
        fmt::format_to(std::back_inserter(svg),
                       "<path class=\"{0}\" d=\"M{1} {2}H{3}V{4}H{5}\"/>"
                       "<path class=\"{0} head\" d=\"M{1} {4}l-6 -3.5v7z\"/>",
                       direction, right - 1, from, x, to, right - 5);
    }
    return svg + "</svg>";
}

// ---- Rows

/// The rows of the table: those of a listing, or pairs of those of two. Removed rows stand beside inserted
/// ones.
std::vector<row_pair> table_rows(const listing_input& input)
{
    std::vector<row_pair> rows;
    if (input.before == nullptr) {
        for (std::size_t i = 0; i < input.rows->rows.size(); ++i)
            rows.push_back({{}, i, true});
        return rows;
    }
    std::size_t open =
        0; // the first of the removed rows at the end that have no inserted one beside them yet
    for (const row_pair& row : input.alignment->rows) {
        if (row.before) {
            if (row.after)
                open = rows.size() + 1;
            rows.push_back(row);
        } else {
            while (open < rows.size() && rows[open].after)
                ++open;
            if (open < rows.size()) {
                rows[open++].after = row.after;
            } else {
                rows.push_back(row);
                open = rows.size();
            }
        }
    }
    return rows;
}

/// An instruction of a listing, with what it shows beside it, as text.
struct page_row {
    std::size_t offset = 0;
    std::string text; ///< what stands before the link, if there is one
    std::string link_text;
    std::string link; ///< an id; empty for none
    std::string comment;
    std::string word;
    std::string label;
    std::string share; ///< in percent; empty for none
    std::string bar;   ///< the length of its bar
    int step = 0;      ///< and its colour
    std::string mark;  ///< "error", "warning", "note", or empty
    std::string finding;
};

/// A row of the table: an instruction, or with a change what it was and what it is.
struct page_row_pair {
    const char* kind = ""; ///< "", "removed", "inserted", "differs"
    std::optional<page_row> before;
    std::optional<page_row> after;
};

/// Makes the rows of one listing.
class row_maker {
public:
    row_maker(const listing_input& input, const kernel_listing& listing, std::string prefix)
        : input_(input), listing_(listing), prefix_(std::move(prefix))
    {
    }

    page_row make(const listing_row& row) const
    {
        page_row made;
        made.offset = row.offset;
        made.text = padded(row.text);
        made.comment = row.comment;
        made.word = fmt::format("{:0{}x}", row.word, 2 * row.size);
        made.label = row.label;
        if (row.branch_target) {
            add_link(made, listing_.rows[*row.branch_target / word_size].label,
                     fmt::format("{}+{:#x}", prefix_, *row.branch_target));
        } else if (const auto callee = input_.ids->find(row.callee); callee != input_.ids->end()) {
            add_link(made, printable(row.callee), callee->second);
        }
        return made;
    }

private:
    /// Operands stand below each other.
    static std::string padded(std::string text)
    {
        constexpr std::size_t mnemonic = 5;
        const std::size_t blank = text.find(' ');
        if (blank < mnemonic)
            text.insert(blank, mnemonic - blank, ' ');
        return text;
    }

    /// Makes the last `name` in the text, and what follows, a link.
    static void add_link(page_row& row, const std::string& name, const std::string& to)
    {
        const std::size_t at = name.empty() ? std::string::npos : row.text.rfind(name);
        if (at == std::string::npos)
            return;
        row.link = to;
        row.link_text = row.text.substr(at);
        row.text.resize(at);
    }

    const listing_input& input_;
    const kernel_listing& listing_;
    std::string prefix_;
};

/// Adds samples to the rows of a listing, and beside a call the callee's share.
void add_profile(std::vector<page_row_pair>& rows, const std::vector<row_pair>& pairs,
                 const listing_input& input)
{
    std::map<std::size_t, std::uint64_t> weights; // by row of the listing
    std::uint64_t largest = 0;
    for (const profile_row& row :
         input.profile == nullptr ? std::vector<profile_row>() : input.profile->rows) {
        const std::size_t words = input.rows->instructions;
        const std::size_t index = row.offset / word_size < words ? row.offset / word_size
                                                                 : words + (row.offset - words * word_size);
        largest = std::max(largest, weights[index] += row.count.weight);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (!pairs[i].after)
            continue;
        page_row& row = *rows[i].after;
        const std::string& callee = input.rows->rows[*pairs[i].after].callee;
        const auto share = input.shares->find(callee);
        if (share != input.shares->end() && callee != input.name)
            row.comment += fmt::format("{}{} % of all in {}", row.comment.empty() ? "" : "; ",
                                       percent(share->second), printable(callee));
        const auto found = weights.find(*pairs[i].after);
        if (found == weights.end() || found->second == 0)
            continue;
        const auto weight = static_cast<double>(found->second);
        row.share = percent(weight / static_cast<double>(input.profile->count.weight));
        row.bar = fmt::format("{:.0f}%", 100 * weight / static_cast<double>(largest));
        row.step = heat_step(found->second, largest);
    }
}

void add_findings(std::vector<page_row_pair>& rows, const std::vector<row_pair>& pairs,
                  const listing_input& input)
{
    struct row_findings {
        wfta::finding_severity worst = wfta::finding_severity::note;
        std::string text;
    };
    std::unordered_map<std::size_t, row_findings> findings; // by row of the listing
    for (const wfta::kernel_finding* const finding : input.findings) {
        if (!finding->offset || *finding->offset < 0)
            continue;
        row_findings& of_row = findings[static_cast<std::size_t>(*finding->offset) / word_size];
        of_row.worst = std::max(of_row.worst, finding->severity);
        of_row.text += (of_row.text.empty() ? "" : "; ") + finding->message;
    }
    static constexpr const char* names[] = {"note", "warning", "error"};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto found = pairs[i].after ? findings.find(*pairs[i].after) : findings.end();
        if (found == findings.end())
            continue;
        rows[i].after->mark = names[static_cast<std::size_t>(found->second.worst)];
        rows[i].after->finding = found->second.text;
    }
}

/// The table as it is shown, before it becomes HTML or JSON.
struct page_listing {
    std::string id; ///< of the kernel's element
    std::vector<page_row_pair> rows;
    arrows_of_table arrows;
    bool compares = false;
    bool shares = false;
};

page_listing make_listing(const listing_input& input)
{
    const std::vector<row_pair> pairs = table_rows(input);
    page_listing listing;
    listing.id = input.id;
    listing.compares = input.before != nullptr;
    listing.shares = input.profile != nullptr;
    const row_maker after(input, *input.rows, input.id);
    const row_maker before(input, listing.compares ? *input.before : *input.rows, input.id + ":old");
    std::vector<std::size_t> table_row(input.rows->rows.size());
    for (const row_pair& pair : pairs) {
        page_row_pair row;
        if (listing.compares && pair.before)
            row.before = before.make(input.before->rows[*pair.before]);
        if (pair.after) {
            table_row[*pair.after] = listing.rows.size();
            row.after = after.make(input.rows->rows[*pair.after]);
        }
        row.kind = pair.same ? "" : !row.before ? "inserted" : !row.after ? "removed" : "differs";
        listing.rows.push_back(std::move(row));
    }
    add_profile(listing.rows, pairs, input);
    add_findings(listing.rows, pairs, input);
    for (std::size_t i = 0; i < table_row.size(); ++i) {
        if (const auto target = input.rows->rows[i].branch_target)
            listing.arrows.arrows.push_back({table_row[i], table_row[*target / word_size]});
    }
    listing.arrows.lanes = choose_lanes(listing.arrows.arrows);
    return listing;
}

// ---- As HTML: what the function listingTable of page.js makes of the JSON below

std::string instruction(const page_row& row)
{
    if (row.link.empty())
        return html(row.text);
    return fmt::format("{}<a href=\"#{}\">{}</a>", html(row.text), row.link, html(row.link_text));
}

std::string id_of(const page_listing& listing, const page_row& row, bool before)
{
    return fmt::format("{}{}+{:#x}", listing.id, before ? ":old" : "", row.offset);
}

std::string offset_cell(const page_listing& listing, const page_row& row, bool before)
{
    const std::string id = id_of(listing, row, before);
    return fmt::format("<td class=\"{} offset\"{}><a href=\"#{}\">+{:02x}</a></td>",
                       before ? "before" : "after", before ? fmt::format(" id=\"{}\"", id) : "", id,
                       row.offset);
}

const char* sign(const std::string& severity)
{
    return severity == "error" ? "✖" : severity == "warning" ? "▲" : "●";
}

void add_row(std::string& text, const page_listing& listing, std::size_t index)
{
    const auto out = std::back_inserter(text);
    const page_row_pair& row = listing.rows[index];
    text += "<tr";
    if (row.after)
        fmt::format_to(out, " id=\"{}\"", id_of(listing, *row.after, false));
    if (*row.kind != '\0')
        fmt::format_to(out, " class=\"{}\"", row.kind);
    text += '>';
    if (row.before) {
        text += offset_cell(listing, *row.before, true);
        fmt::format_to(out, "<td class=\"before old\">{}{}</td>", instruction(*row.before),
                       row.before->comment.empty() ? "" : "  ; " + html(row.before->comment));
    } else if (listing.compares) {
        text += "<td class=\"before\"></td><td class=\"before old\"></td>";
    }
    if (listing.shares && row.after && !row.after->share.empty()) {
        fmt::format_to(out, "<td class=\"share h{}\" style=\"--bar:{}\">{}</td>", row.after->step,
                       row.after->bar, html(row.after->share));
    } else if (listing.shares) {
        text += "<td></td>";
    }
    if (index == 0)
        fmt::format_to(out, "<td class=\"arrows\" rowspan=\"{}\">{}</td>", listing.rows.size(),
                       listing.arrows.arrows.empty() ? "" : arrows_svg(listing.arrows, listing.rows.size()));
    if (!row.after) {
        text += "<td class=\"after\" colspan=\"6\"></td></tr>";
        return;
    }
    text += "<td class=\"mark\">";
    if (!row.after->mark.empty())
        fmt::format_to(out, "<span class=\"{}\" title=\"{}\">{}</span>", row.after->mark,
                       html(row.after->finding), sign(row.after->mark));
    text += "</td>";
    text += offset_cell(listing, *row.after, false);
    fmt::format_to(
        out,
        "<td class=\"after word\">{}</td><td class=\"after label\">{}</td><td class=\"after\">{}</td>"
        "<td class=\"after comment\">{}</td></tr>",
        row.after->word, row.after->label.empty() ? "" : row.after->label + ":", instruction(*row.after),
        row.after->comment.empty() ? "" : "; " + html(row.after->comment));
}

std::string listing_html(const page_listing& listing)
{
    std::string text = "<table class=\"rows\">";
    if (listing.compares) {
        fmt::format_to(
            std::back_inserter(text),
            "<thead><tr><td></td><td class=\"old\">before</td><td colspan=\"{}\">after</td></tr></thead>",
            listing.shares ? 8 : 7);
    }
    text += "<tbody>";
    for (std::size_t i = 0; i < listing.rows.size(); ++i)
        add_row(text, listing, i);
    return text + "</tbody></table>";
}

// ---- As JSON, with what is empty left out

json row_json(const page_row& row)
{
    json made = {{"offset", row.offset}};
    const std::pair<const char*, std::string> members[] = {
        {"word", row.word},    {"label", row.label},     {"text", row.text},   {"link", row.link},
        {"to", row.link_text}, {"comment", row.comment}, {"share", row.share}, {"bar", row.bar},
        {"mark", row.mark},    {"finding", row.finding}};
    for (const auto& [name, value] : members) {
        if (!value.empty())
            made[name] = utf8(printable(value));
    }
    if (!row.share.empty())
        made["step"] = row.step;
    return made;
}

json listing_json(const page_listing& listing)
{
    json rows = json::array();
    for (const page_row_pair& pair : listing.rows) {
        json row = pair.after ? row_json(*pair.after) : json::object();
        if (pair.before) {
            row["before"] = row_json(*pair.before);
            row["before"].erase("word");
        }
        if (*pair.kind != '\0')
            row["kind"] = pair.kind;
        rows.push_back(std::move(row));
    }
    json arrows = json::array();
    for (const arrow& one : listing.arrows.arrows)
        arrows.push_back({one.from, one.to, one.lane});
    return {{"id", listing.id},
            {"compares", listing.compares},
            {"shares", listing.shares},
            {"lanes", listing.arrows.lanes},
            {"arrows", std::move(arrows)},
            {"rows", std::move(rows)}};
}

// ---- Constants

template <typename T>
T value_at(const std::uint8_t* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

struct dump_row {
    /// Offset, bytes, double, two floats, two integers; in a row that differs also the bytes and the double
    /// of before.
    std::vector<std::string> cells;
    bool differs = false;
};

constexpr std::size_t bytes_in_dump_row = 8;
constexpr std::size_t most_dump_rows = 512;

/// The bytes of a row of the dump, as they are and as a number of each kind.
std::vector<std::string> dump_cells(const std::vector<std::uint8_t>& data, std::size_t at)
{
    if (at >= data.size())
        return {""};
    const std::uint8_t* const bytes = data.data() + at;
    const std::size_t size = std::min(bytes_in_dump_row, data.size() - at);
    std::string hexadecimal;
    for (std::size_t i = 0; i < size; ++i)
        fmt::format_to(std::back_inserter(hexadecimal), "{}{:02x}", i == 0 ? "" : " ", bytes[i]);
    std::vector<std::string> cells = {hexadecimal};
    if (size == bytes_in_dump_row) {
        cells.insert(cells.end(),
                     {fmt::format("{}", value_at<double>(bytes)), fmt::format("{}", value_at<float>(bytes)),
                      fmt::format("{}", value_at<float>(bytes + 4)),
                      fmt::format("{}", value_at<std::int32_t>(bytes)),
                      fmt::format("{}", value_at<std::int32_t>(bytes + 4))});
    }
    return cells;
}

std::vector<dump_row> dump_rows(const listing_input& input)
{
    const std::vector<std::uint8_t>& before = input.data_before == nullptr ? *input.data : *input.data_before;
    const std::size_t size = std::max(input.data->size(), before.size());
    std::vector<dump_row> rows;
    for (std::size_t at = 0; at < size && rows.size() < most_dump_rows; at += bytes_in_dump_row) {
        dump_row row;
        row.cells = dump_cells(*input.data, at);
        std::vector<std::string> old_cells = dump_cells(before, at);
        row.differs = row.cells.front() != old_cells.front();
        row.cells.insert(row.cells.begin(), fmt::format("+{:02x}", at));
        if (row.differs) {
            row.cells.resize(7);
            old_cells.resize(2);
            row.cells.insert(row.cells.end(), old_cells.begin(), old_cells.end());
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

bool any_differs(const std::vector<dump_row>& rows)
{
    return std::any_of(rows.begin(), rows.end(), [](const dump_row& row) { return row.differs; });
}

std::string dump_html(const std::vector<dump_row>& rows)
{
    std::string text =
        fmt::format("<table class=\"dump\"><thead><tr><th>offset</th><th>bytes</th><th>double</th>"
                    "<th colspan=\"2\">floats</th><th colspan=\"2\">integers</th>{}</tr></thead><tbody>",
                    any_differs(rows) ? "<th colspan=\"2\">before</th>" : "");
    for (const dump_row& row : rows) {
        text += row.differs ? "<tr class=\"differs\">" : "<tr>";
        for (const std::string& cell : row.cells)
            fmt::format_to(std::back_inserter(text), "<td>{}</td>", cell);
        text += "</tr>";
    }
    return text + "</tbody></table>";
}

json dump_json(const std::vector<dump_row>& rows)
{
    json list = json::array();
    for (const dump_row& row : rows)
        list.push_back({{"cells", row.cells}, {"differs", row.differs}});
    return {{"differs", any_differs(rows)}, {"rows", std::move(list)}};
}

} // namespace

int heat_step(std::uint64_t weight, std::uint64_t largest)
{
    if (weight == 0)
        return 0;
    int step = 7;
    for (std::uint64_t half = largest / 2; step > 1 && weight <= half; half /= 2)
        --step;
    return step;
}

listing_section make_listing_section(const listing_input& input, bool drawn)
{
    const page_listing listing = make_listing(input);
    const std::vector<dump_row> dump = dump_rows(input);
    std::string text;
    const auto out = std::back_inserter(text);
    fmt::format_to(out, "<div class=\"listing\" tabindex=\"0\">{}</div>\n",
                   drawn ? listing_html(listing) : "");
    if (!dump.empty()) {
        fmt::format_to(out, "<details{}><summary>Constants, {} {}</summary><div class=\"constants\">{}</div>",
                       any_differs(dump) ? " open" : "", grouped(input.data->size()),
                       input.data->size() == 1 ? "byte" : "bytes", drawn ? dump_html(dump) : "");
        if (input.data->size() > most_dump_rows * bytes_in_dump_row)
            fmt::format_to(out, "<p>The first {} bytes.</p>", grouped(most_dump_rows * bytes_in_dump_row));
        text += "</details>\n";
    }
    if (!drawn) {
        const json data = {{"listing", listing_json(listing)}, {"constants", dump_json(dump)}};
        fmt::format_to(out, "<script type=\"application/json\">{}</script>\n", json_in_html(data.dump()));
    }
    return {text, listing.rows.size() + (listing.compares ? 1 : 0)};
}

} // namespace vorna::workbench
