// Replaces files atomically.
#pragma once

#include <string>
#include <string_view>

namespace vorna::workbench {

/// Replaces the file's contents atomically: writes a new file beside it and renames it over the old one. So
/// readers see either the old or the new contents, even if the process is killed. Follows symbolic links.
/// Throws std::runtime_error with the file and the reason and keeps the old file; also if that is not a
/// regular file.
void replace_file(const std::string& path, std::string_view content);

} // namespace vorna::workbench
