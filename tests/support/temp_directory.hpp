// A temporary directory for a test.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace support {

/// Creates an empty directory in the system's directory for temporary files, and removes it with its contents
/// when destroyed. Throws std::system_error if it cannot be created; a failed removal is ignored.
class temp_directory {
public:
    temp_directory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "wfta-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        path_ = pattern;
    }
    ~temp_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temp_directory(const temp_directory&) = delete;
    temp_directory& operator=(const temp_directory&) = delete;

    /// Absolute path.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace support
