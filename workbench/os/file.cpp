#include "workbench/os/file.hpp"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vorna::workbench {

[[noreturn]] static void fail()
{
    throw std::system_error(errno, std::generic_category());
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

bool is_terminal(std::FILE* stream)
{
    return isatty(fileno(stream)) != 0;
}

std::optional<regular_file> open_regular_file(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        fail();
    if (!S_ISREG(status.st_mode))
        return std::nullopt;
    // By now it may be a FIFO, where opening would wait for a writer.
    regular_file file{file_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))};
    if (file.descriptor.number() < 0 || fstat(file.descriptor.number(), &status) != 0)
        fail();
    if (!S_ISREG(status.st_mode))
        return std::nullopt;
    file.size = static_cast<std::size_t>(status.st_size);
    file.device = status.st_dev;
    file.inode = status.st_ino;
    return file;
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

std::optional<std::string> read_file(const std::string& path, std::size_t largest)
{
    try {
        const std::optional<regular_file> file = open_regular_file(path);
        if (!file)
            throw std::runtime_error("not a regular file");
        std::string content;
        read_pieces(file->descriptor, [&](std::string_view piece) {
            if (piece.size() > largest - content.size())
                throw std::runtime_error(fmt::format("larger than {} MiB", largest >> 20));
            content += piece;
        });
        return content;
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory ||
            error.code() == std::errc::not_a_directory)
            return std::nullopt;
        throw std::runtime_error(fmt::format("{}: {}", path, error.what()));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", path, error.what()));
    }
}

} // namespace vorna::workbench
