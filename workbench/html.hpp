// Text as HTML has it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorna::workbench {

/// The text for an element's content or for an attribute in double quotes: printable, in UTF-8, and with
/// references in place of what HTML gives a meaning.
std::string html(std::string_view text);

/// A document for a script element of type application/json: JSON without any "<".
std::string json_in_html(std::string_view json);

/// A kernel's name as an element's id that can stand in a URL's fragment as it is: every byte but letters,
/// digits, "_", "-" and "." as "%XX". Ids of others hold ":" and "+", which these never do.
std::string fragment(std::string_view name);

/// A part of a whole in percent, "12.3": with more digits where it is small; "0" for nothing.
std::string percent(double part);

} // namespace vorna::workbench
