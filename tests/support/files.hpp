// The files that the diagnostics write.
#pragma once

#include "tests/support/temp_directory.hpp"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace support {

/// All bytes of a file; none if it cannot be read.
inline std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Creates or replaces a file.
inline void write_file(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

/// The names in a directory.
inline std::set<std::string> names_in(const std::filesystem::path& directory)
{
    std::set<std::string> names;
    for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

inline std::string to_string(const std::vector<std::uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

/// The perf map of a process; removed, whatever it is, by the destructor.
class perf_map {
public:
    /// Of this process. Removes one that an earlier process with the same PID has left.
    perf_map() : perf_map(getpid()) { remove(); }

    /// Of another process, as it is.
    explicit perf_map(pid_t pid) : path_("/tmp/perf-" + std::to_string(pid) + ".map") {}

    ~perf_map() { remove(); }
    perf_map(const perf_map&) = delete;
    perf_map& operator=(const perf_map&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    [[nodiscard]] bool exists() const { return std::filesystem::exists(symlink_status(path_)); }
    [[nodiscard]] std::string text() const { return contents(path_); }

private:
    void remove()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::filesystem::path path_;
};

} // namespace support
