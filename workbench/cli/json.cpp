#include "workbench/cli/json.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

std::string json_text(const json& document)
{
    return document.dump(2) + "\n";
}

json_array_document::json_array_document(const std::string& member)
{
    fmt::print("{{\n  \"version\": 1,\n  \"{}\": [", member);
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
