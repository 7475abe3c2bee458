// Files that are there whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace vorna::workbench {

/// Gives the file this content: writes a new file beside it and renames it over the old one, so that whoever
/// looks, and whenever the process is killed, there is the old content or the new, whole. Follows symbolic
/// links. Throws std::runtime_error with what is wrong, the file first, and leaves the old one then, also if
/// it is no regular file.
void replace_file(const std::string& path, std::string_view content);

} // namespace vorna::workbench
