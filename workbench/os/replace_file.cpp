#include "workbench/os/replace_file.hpp"

#include "workbench/os/file.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace vorna::workbench {

static bool write_all(int descriptor, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t count = write(descriptor, content.data(), content.size());
        if (count < 0 && errno != EINTR)
            return false;
        content.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return fsync(descriptor) == 0;
}

void replace_file(const std::string& path, std::string_view content)
{
    const auto fail = [&path](int error) {
        throw std::runtime_error(fmt::format("{}: {}", path, std::strerror(error)));
    };
    std::string file = path;
    struct stat status;
    mode_t mode = 0666;
    if (stat(path.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode))
            throw std::runtime_error(path + ": not a regular file");
        std::error_code error;
        file = std::filesystem::canonical(path, error).string();
        if (error)
            fail(error.value());
        mode = status.st_mode & 07777;
    }
    const std::string temporary = fmt::format("{}.{}.tmp", file, getpid());
    file_descriptor out(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (out.number() < 0)
        fail(errno);
    int error = write_all(out.number(), content) ? 0 : errno;
    if (close(out.release()) != 0 && error == 0) // close may report that the disk is full
        error = errno;
    if (error == 0 && std::rename(temporary.c_str(), file.c_str()) != 0)
        error = errno;
    if (error != 0) {
        unlink(temporary.c_str());
        fail(error);
    }
}

} // namespace vorna::workbench
