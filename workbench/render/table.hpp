// What a command found, as a table: a command makes it once and prints it as text, Markdown or GitHub's
// annotations. JSON is made of the command's results, since a table's cells are texts.
#pragma once

#include "workbench/render/color.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

enum class column_kind {
    text,
    name,  ///< of the row: bold in text, code in Markdown, an annotation's title
    number ///< aligned right in Markdown, after its title in an annotation
};

enum class shown_in { every_format, text, markdown };

struct table_column {
    std::string title;
    column_kind kind = column_kind::text;
    shown_in formats = shown_in::every_format;
};

struct table_cell {
    std::string text; ///< printable
    color paint = color::none;
};

/// An explanation of a row, after a label such as "help". Markdown leaves it out.
struct table_remark {
    std::string label;
    std::string text;
};

/// How GitHub grades an annotation.
enum class table_level { notice, warning, error };

struct table_row {
    std::vector<table_cell> cells; ///< one for each column
    table_level level = table_level::error;
    std::string file; ///< that an annotation is attached to, if any
    std::size_t line = 0;
    std::string evidence; ///< a line under the row, in text only
    std::vector<table_remark> remarks;
};

struct table {
    std::vector<table_column> columns;
    std::vector<table_row> rows;
    std::string summary;  ///< the last line, in every format
    bool aligned = false; ///< in text: under headings, otherwise each row as "cell: cell: cell"
};

/// The table in a command's format: "text", "markdown" or "github". Only text is colored.
std::string format_table(const table& printed, std::string_view format, bool colored);

} // namespace vorna::workbench
