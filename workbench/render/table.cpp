#include "workbench/render/table.hpp"

#include "workbench/render/markdown.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace vorna::workbench {

namespace {

bool is_shown(const table_column& column, shown_in format)
{
    return column.formats == shown_in::every_format || column.formats == format;
}

// The columns that a text takes on a terminal, as fmt counts them when it pads.
std::size_t width_of(const std::string& text)
{
    return 2 * text.size() - fmt::format("{:<{}}", text, text.size()).size();
}

color paint_of(const table_column& column, const table_cell& cell)
{
    return column.kind == column_kind::name ? color::bold : cell.paint;
}

// "kernels.baseline:7: wfta_a: code changed", "wfta_b: code; instructions 3, code bytes 12"
std::string sentence_of(const table& printed, const table_row& row, shown_in format, bool colored)
{
    std::string text;
    const char* before_number = "; ";
    for (std::size_t i = 0; i < row.cells.size(); ++i) {
        const table_column& column = printed.columns[i];
        const table_cell& cell = row.cells[i];
        if (!is_shown(column, format) || cell.text.empty())
            continue;
        if (column.kind == column_kind::number) {
            text += before_number + column.title + " ";
            before_number = ", ";
        } else if (!text.empty()) {
            text += ": ";
        }
        text += colorize(cell.text, paint_of(column, cell), colored);
    }
    return text;
}

std::string aligned_rows(const table& printed, bool colored)
{
    if (printed.rows.empty())
        return "";
    constexpr std::size_t widest_name = 40; // a longer one pushes its own line only
    std::size_t columns = printed.columns.size();
    while (columns > 0 && !is_shown(printed.columns[columns - 1], shown_in::text))
        --columns;
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns; ++i) {
        std::size_t width = width_of(printed.columns[i].title);
        for (const table_row& row : printed.rows)
            width = std::max(width, width_of(row.cells[i].text));
        const bool is_name = printed.columns[i].kind == column_kind::name;
        const bool is_last = i + 1 == columns;
        widths.push_back(is_last ? 0 : is_name ? std::min(width, widest_name) : width);
    }
    std::string text;
    const auto add = [&](std::size_t i, const std::string& cell, color paint) {
        text += i == 0 ? "" : "  ";
        text += colorize(fmt::format("{:<{}}", cell, widths[i]), paint, colored);
        text += i + 1 == widths.size() ? "\n" : "";
    };
    for (std::size_t i = 0; i < widths.size(); ++i)
        add(i, printed.columns[i].title, color::none);
    for (const table_row& row : printed.rows) {
        for (std::size_t i = 0; i < widths.size(); ++i)
            add(i, row.cells[i].text, paint_of(printed.columns[i], row.cells[i]));
        if (!row.evidence.empty())
            text += row.evidence + "\n";
    }
    return text;
}

std::string text_lines(const table& printed, bool colored)
{
    std::string text;
    for (const table_row& row : printed.rows) {
        text += sentence_of(printed, row, shown_in::text, colored) + "\n";
        if (!row.evidence.empty())
            text += row.evidence + "\n";
        for (const table_remark& remark : row.remarks)
            text += "    " + colorize(remark.label + ": " + remark.text, color::dim, colored) + "\n";
    }
    return text;
}

std::string markdown_rows(const table& printed)
{
    if (printed.rows.empty())
        return "";
    std::string head = "|";
    std::string rule = "|";
    std::string rows;
    for (const table_column& column : printed.columns) {
        if (!is_shown(column, shown_in::markdown))
            continue;
        head += (column.title.empty() ? "" : " " + markdown_text(column.title)) + " |";
        rule += column.kind == column_kind::number ? "---:|" : "---|";
    }
    for (const table_row& row : printed.rows) {
        rows += "|";
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            if (!is_shown(printed.columns[i], shown_in::markdown))
                continue;
            const std::string& cell = row.cells[i].text;
            rows += fmt::format(" {} |", printed.columns[i].kind == column_kind::name ? markdown_code(cell)
                                                                                      : markdown_text(cell));
        }
        rows += "\n";
    }
    return head + "\n" + rule + "\n" + rows + "\n";
}

// As workflow commands require.
std::string escaped(std::string_view text, std::string_view special)
{
    std::string result;
    for (const char c : text)
        result += special.find(c) == std::string_view::npos ? std::string(1, c) : fmt::format("%{:02X}", c);
    return result;
}

// "::error file=…,line=…,title=…::message"
std::string annotations(const table& printed)
{
    static constexpr const char* levels[] = {"notice", "warning", "error"};
    constexpr std::string_view in_message = "%\r\n";
    constexpr std::string_view in_property = "%\r\n:,";
    std::string text;
    for (const table_row& row : printed.rows) {
        text += fmt::format("::{} ", levels[static_cast<std::size_t>(row.level)]);
        if (!row.file.empty())
            text += fmt::format("file={},", escaped(row.file, in_property));
        if (row.line != 0)
            text += fmt::format("line={},", row.line);
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
            if (printed.columns[i].kind == column_kind::name)
                text += "title=" + escaped(row.cells[i].text, in_property);
        }
        std::string message = sentence_of(printed, row, shown_in::every_format, false);
        for (const table_remark& remark : row.remarks)
            message += "\n" + remark.text;
        text += "::" + escaped(message, in_message) + "\n";
    }
    return text;
}

} // namespace

std::string format_table(const table& printed, std::string_view format, bool colored)
{
    if (format == "github")
        return annotations(printed) + printed.summary + "\n";
    if (format == "markdown")
        return markdown_rows(printed) + markdown_text(printed.summary) + "\n";
    return (printed.aligned ? aligned_rows : text_lines)(printed, colored) + printed.summary + "\n";
}

} // namespace vorna::workbench
