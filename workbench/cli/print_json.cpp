#include "workbench/cli/print_json.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

void print_json(const json& members)
{
    json document = {{"version", json_version}};
    document.update(members);
    fmt::print("{}\n", document.dump(2));
}

json row_to_json(const listing_row& row)
{
    return {{"offset", row.offset},
            {"word", fmt::format("0x{:0{}x}", row.word, 2 * row.size)},
            {"text", row.text},
            {"comment", row.comment},
            {"label", row.label}};
}

json_array_document::json_array_document(const std::string& member)
{
    fmt::print("{{\n  \"version\": {},\n  \"{}\": [", json_version, member);
}

void json_array_document::add(const json& element)
{
    std::string text = empty_ ? "" : ",";
    empty_ = false;
    for (const char c : "\n" + element.dump(2)) {
        text += c;
        if (c == '\n')
            text += "    ";
    }
    fmt::print("{}", text);
}

void json_array_document::finish()
{
    fmt::print("{}]\n}}\n", empty_ ? "" : "\n  ");
}

} // namespace vorna::workbench
