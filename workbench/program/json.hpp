// JSON as the commands print it.
#pragma once

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

} // namespace vorna::workbench
