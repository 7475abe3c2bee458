// Prints the JSON documents of commands.
#pragma once

#include "workbench/render/json.hpp"
#include "workbench/render/listing.hpp"

#include <string>

namespace vorna::workbench {

/// Prints {"version": 2} and the object's members on stdout, indented by two spaces.
void print_json(const json& members);

/// A row of a listing, as an object.
json row_to_json(const listing_row& row);

/// Prints {"version": 2, "MEMBER": [...]} in the same form, one element at a time, so that the document need
/// not fit in memory.
class json_array_document {
public:
    explicit json_array_document(const std::string& member);
    void add(const json& element);
    void finish();

private:
    bool empty_ = true;
};

} // namespace vorna::workbench
