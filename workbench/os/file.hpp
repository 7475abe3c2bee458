// Files, standard input and pipes.
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace vorna::workbench {

/// An open file, closed by the destructor. A negative number stands for none.
class file_descriptor {
public:
    explicit file_descriptor(int number = -1) : number_(number) {}
    file_descriptor(file_descriptor&& other) noexcept : number_(other.release()) {}
    file_descriptor& operator=(file_descriptor&& other) noexcept;
    ~file_descriptor() { close(); }

    [[nodiscard]] int number() const { return number_; }
    int release();
    void close();

private:
    int number_;
};

/// Opens a file for reading; "-" is standard input. Like the other functions here, throws std::system_error
/// with the system's reason, without the file's name, when the system refuses.
file_descriptor open_input(const std::string& path);

/// What messages call such a file: the path, or "standard input".
std::string input_name(const std::string& path);

/// Whether what is written to the stream is shown on a terminal.
bool is_terminal(std::FILE* stream);

/// A regular file, open for reading.
struct regular_file {
    file_descriptor descriptor;
    std::size_t size = 0;
    dev_t device = 0; ///< with the inode, the same for all names of a file
    ino_t inode = 0;
};

/// Opens a regular file. Returns nothing for any other kind of file, without opening it.
std::optional<regular_file> open_regular_file(const std::string& path);

/// Passes the bytes to `consume` in pieces until the end of the file or pipe.
void read_pieces(const file_descriptor& file, const std::function<void(std::string_view)>& consume);

/// Reads `size` bytes at `offset`, fewer if the file ends before. Returns how many.
std::size_t read_at(const file_descriptor& file, char* bytes, std::size_t size, off_t offset);

/// The contents of a regular file of at most `largest` bytes; nothing if the file does not exist. Throws
/// std::runtime_error with the path and the reason.
std::optional<std::string> read_file(const std::string& path, std::size_t largest);

} // namespace vorna::workbench
