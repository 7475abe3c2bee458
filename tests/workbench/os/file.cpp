#include "workbench/os/file.hpp"
#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using namespace support;
using namespace vorna::workbench;

template <typename Function>
std::string error_of(const Function& function)
{
    try {
        function();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

bool is_open(int descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(FileDescriptor, IsClosedOnceByItsLastOwner)
{
    int number = -1;
    {
        file_descriptor first = open_input("/dev/null");
        number = first.number();
        file_descriptor second;
        second = std::move(first);
        EXPECT_EQ(first.number(), -1); // NOLINT: moved from
        const file_descriptor third(std::move(second));
        EXPECT_EQ(third.number(), number);
        EXPECT_TRUE(is_open(number));
    }
    EXPECT_FALSE(is_open(number));
}

TEST(FileDescriptor, IsNotInheritedByOtherPrograms)
{
    EXPECT_EQ(fcntl(open_input("/dev/null").number(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(open_input("-").number(), F_GETFD), FD_CLOEXEC);
}

TEST(OpenInput, LeavesStandardInputOpen)
{
    open_input("-");
    EXPECT_TRUE(is_open(STDIN_FILENO));
    EXPECT_EQ(input_name("-"), "standard input");
    EXPECT_EQ(input_name("a/-"), "a/-");
}

TEST(OpenInput, SaysWhyItFails)
{
    EXPECT_EQ(error_of([] { open_input("/nowhere/file"); }), "No such file or directory");
}

struct close_stream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using stream = std::unique_ptr<std::FILE, close_stream>;

TEST(IsTerminal, IsTrueOnlyOfATerminal)
{
    const file_descriptor pseudo_terminal(posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_GE(pseudo_terminal.number(), 0);
    ASSERT_EQ(grantpt(pseudo_terminal.number()), 0);
    ASSERT_EQ(unlockpt(pseudo_terminal.number()), 0);
    const int terminal = open(ptsname(pseudo_terminal.number()), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    EXPECT_TRUE(is_terminal(stream(fdopen(terminal, "w")).get()));

    EXPECT_FALSE(is_terminal(stream(std::fopen("/dev/null", "w")).get()));
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const file_descriptor reader(pipe_ends[0]);
    EXPECT_FALSE(is_terminal(stream(fdopen(pipe_ends[1], "w")).get()));
}

TEST(OpenRegularFile, IdentifiesFilesByDeviceAndInode)
{
    const temp_directory directory;
    const std::string path = directory.path() / "file";
    write_file(path, "12345");
    create_hard_link(path, directory.path() / "other name");
    write_file(directory.path() / "other", "12345");
    const auto file = open_regular_file(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size, 5U);
    EXPECT_EQ(open_regular_file(directory.path() / "other name")->inode, file->inode);
    EXPECT_NE(open_regular_file(directory.path() / "other")->inode, file->inode);
    EXPECT_FALSE(open_regular_file(directory.path()));
    EXPECT_FALSE(open_regular_file("/dev/null"));
    EXPECT_EQ(error_of([&] { open_regular_file(path + "x"); }), "No such file or directory");
}

TEST(ReadPieces, PassesAllBytesOfAPipe)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const file_descriptor read_end(ends[0]);
    const std::string text = std::string(1000000, 'x') + std::string("a\0b", 3);
    std::thread writer([&] {
        const file_descriptor write_end(ends[1]);
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t count = write(write_end.number(), text.data() + done, text.size() - done);
            if (count <= 0)
                return;
            done += static_cast<std::size_t>(count);
        }
    });
    std::string read;
    read_pieces(read_end, [&read](std::string_view piece) { read += piece; });
    writer.join();
    EXPECT_TRUE(read == text);
}

TEST(ReadPieces, SaysWhyItFails)
{
    EXPECT_EQ(error_of([] { read_pieces(open_input("/"), [](std::string_view) {}); }), "Is a directory");
}

TEST(ReadAt, ReadsFewerBytesWhereTheFileEnds)
{
    const temp_directory directory;
    write_file(directory.path() / "file", "0123456789");
    const file_descriptor file = open_input(directory.path() / "file");
    char bytes[8] = "";
    EXPECT_EQ(read_at(file, bytes, 4, 3), 4U);
    EXPECT_EQ(std::string(bytes, 4), "3456");
    EXPECT_EQ(read_at(file, bytes, 8, 7), 3U);
    EXPECT_EQ(std::string(bytes, 3), "789");
    EXPECT_EQ(read_at(file, bytes, 8, 10), 0U);
}

TEST(ReadFile, ReadsAWholeFile)
{
    const temp_directory directory;
    const std::string path = directory.path() / "file";
    EXPECT_EQ(read_file(path, 100), std::nullopt);
    EXPECT_EQ(read_file(path + "/file", 100), std::nullopt);
    write_file(path, std::string("a\0b", 3));
    EXPECT_EQ(read_file(path, 100), std::string("a\0b", 3));
}

TEST(ReadFile, RefusesFilesThatAreTooLarge)
{
    const temp_directory directory;
    const std::string path = directory.path() / "file";
    write_file(path, std::string(1 << 20, 'x'));
    EXPECT_EQ(read_file(path, 1 << 20)->size(), std::size_t{1} << 20);
    write_file(path, std::string((1 << 20) + 1, 'x'));
    EXPECT_EQ(error_of([&] { read_file(path, 1 << 20); }), path + ": larger than 1 MiB");
    EXPECT_EQ(error_of([&] { read_file("/dev/zero", 1 << 20); }), "/dev/zero: not a regular file");
}

TEST(ReadFile, DoesNotWaitForTheWriterOfAFifo)
{
    const temp_directory directory;
    const std::string path = directory.path() / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(error_of([&] { read_file(path, 100); }), path + ": not a regular file");
    EXPECT_EQ(error_of([&] { read_file(directory.path(), 100); }),
              directory.path().string() + ": not a regular file");
}

} // namespace
