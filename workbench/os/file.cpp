#include "workbench/os/file.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vorna::workbench {

[[noreturn]] static void fail()
{
    throw std::runtime_error(std::strerror(errno));
}

file_descriptor& file_descriptor::operator=(file_descriptor&& other) noexcept
{
    if (this != &other) {
        close();
        number_ = other.release();
    }
    return *this;
}

int file_descriptor::release()
{
    return std::exchange(number_, -1);
}

void file_descriptor::close()
{
    if (number_ >= 0)
        ::close(release());
}

file_descriptor open_input(const std::string& path)
{
    file_descriptor file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                     : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.number() < 0)
        fail();
    return file;
}

std::string input_name(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

void read_pieces(const file_descriptor& file, const std::function<void(std::string_view)>& consume)
{
    std::vector<char> buffer(std::size_t{1} << 18);
    for (;;) {
        const ssize_t count = read(file.number(), buffer.data(), buffer.size());
        if (count == 0)
            return;
        if (count > 0)
            consume({buffer.data(), static_cast<std::size_t>(count)});
        else if (errno != EINTR)
            fail();
    }
}

std::size_t read_at(const file_descriptor& file, char* bytes, std::size_t size, off_t offset)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pread(file.number(), bytes + done, size - done, offset + static_cast<off_t>(done));
        if (count == 0)
            break;
        if (count > 0)
            done += static_cast<std::size_t>(count);
        else if (errno != EINTR)
            fail();
    }
    return done;
}

static std::optional<std::string> read_regular_file(const std::string& path, std::size_t largest)
{
    // Opening a FIFO would wait for a writer.
    const file_descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.number() < 0 && (errno == ENOENT || errno == ENOTDIR))
        return std::nullopt;
    struct stat status;
    if (file.number() < 0 || fstat(file.number(), &status) != 0)
        fail();
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error("not a regular file");
    std::string content;
    read_pieces(file, [&](std::string_view piece) {
        if (piece.size() > largest - content.size())
            throw std::runtime_error(fmt::format("larger than {} MiB", largest >> 20));
        content += piece;
    });
    return content;
}

std::optional<std::string> read_file(const std::string& path, std::size_t largest)
{
    try {
        return read_regular_file(path, largest);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", path, error.what()));
    }
}

} // namespace vorna::workbench
