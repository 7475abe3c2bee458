// Markdown as GitHub shows it in the summary of a job.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorna::workbench {

/// The text in the font of code, with everything escaped that could end it or a cell of a table.
std::string markdown_code(std::string_view text);

/// The lines as a block of code in that language, whatever they hold.
std::string markdown_block(std::string_view language, const std::vector<std::string>& lines);

} // namespace vorna::workbench
