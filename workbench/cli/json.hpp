// JSON as the commands print it.
#pragma once

#include "workbench/render/json.hpp"

#include <string>

namespace vorna::workbench {

/// The document with two blanks of indentation and a newline at the end, bytes that are not UTF-8 as U+FFFD.
std::string json_text(const json& document);

/// Prints {"version": 1, "MEMBER": [...]} on stdout as json_text has it, element by element, so that it need
/// not be in memory as a whole.
class json_array_document {
public:
    explicit json_array_document(const std::string& member);
    void add(const json& element);
    void finish();

private:
    bool empty_ = true;
};

} // namespace vorna::workbench
