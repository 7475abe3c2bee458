// Markdown as GitHub shows it in a job summary.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// The text as it stands, with everything escaped that is markup or could end a table cell.
std::string markdown_text(std::string_view text);

/// The text as code, with everything escaped that could end it or a table cell.
std::string markdown_code(std::string_view text);

/// The lines as a code block in that language, whatever they contain.
std::string markdown_block(std::string_view language, const std::vector<std::string>& lines);

} // namespace vorna::workbench
