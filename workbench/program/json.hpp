// JSON as the commands print it.
#pragma once

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <string>

namespace vorna::workbench {

/// Keeps its members in the order in which they are added.
using json = nlohmann::ordered_json;

/// The document with two blanks of indentation and a newline at the end, bytes that are no UTF-8 as U+FFFD.
inline std::string json_text(const json& document)
{
    return document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

/// Prints {"version": 1, "MEMBER": [...]} on stdout as json_text has it, element by element, so that it need
/// not be in memory as a whole.
class json_array_document {
public:
    explicit json_array_document(const std::string& member)
    {
        fmt::print("{{\n  \"version\": 1,\n  \"{}\": [", member);
    }

    void add(const json& element)
    {
        std::string text = empty_ ? "" : ",";
        empty_ = false;
        for (const char c : "\n" + element.dump(2, ' ', false, json::error_handler_t::replace)) {
            text += c;
            if (c == '\n')
                text += "    ";
        }
        fmt::print("{}", text);
    }

    void finish() { fmt::print("{}]\n}}\n", empty_ ? "" : "\n  "); }

private:
    bool empty_ = true;
};

} // namespace vorna::workbench
