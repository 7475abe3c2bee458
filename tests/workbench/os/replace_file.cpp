// A file that is replaced has its old content or its new one, whole.

#include "workbench/os/replace_file.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>

namespace {

using namespace support;
using testing::ElementsAre;
using vorna::workbench::replace_file;

std::string error_of(const std::string& path, const std::string& content)
{
    try {
        replace_file(path, content);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(ReplaceFile, CreatesOrReplacesAFile)
{
    const temp_directory directory;
    const std::string path = directory.path() / "page.html";
    replace_file(path, "first");
    EXPECT_EQ(contents(path), "first");
    replace_file(path, std::string("a\0b", 3));
    EXPECT_EQ(contents(path), std::string("a\0b", 3));
    EXPECT_THAT(names_in(directory.path()), ElementsAre("page.html"));
}

TEST(ReplaceFile, KeepsThePermissionsAndTheSymbolicLink)
{
    using std::filesystem::perms;
    const temp_directory directory;
    write_file(directory.path() / "real", "old");
    permissions(directory.path() / "real", perms::owner_read | perms::owner_write);
    create_symlink("real", directory.path() / "link");
    replace_file(directory.path() / "link", "new");
    EXPECT_TRUE(is_symlink(directory.path() / "link"));
    EXPECT_EQ(contents(directory.path() / "real"), "new");
    EXPECT_EQ(status(directory.path() / "real").permissions(), perms::owner_read | perms::owner_write);
}

TEST(ReplaceFile, LeavesTheOldContentIfTheNewDoesNotFit)
{
    const temp_directory directory;
    write_file(directory.path() / "page", "old");
    child_options options;
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {1000, 1000};
            setrlimit(RLIMIT_FSIZE, &limit);
            EXPECT_EQ(error_of("page", std::string(2000, 'x')), "page: File too large");
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(contents(directory.path() / "page"), "old");
    EXPECT_THAT(names_in(directory.path()), ElementsAre("page"));
}

TEST(ReplaceFile, LeavesTheOldContentWhenItIsKilled)
{
    const temp_directory directory;
    write_file(directory.path() / "page", "old");
    child_options options;
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            const rlimit limit = {1000, 1000}; // SIGXFSZ ends the process in the middle of writing
            setrlimit(RLIMIT_FSIZE, &limit);
            replace_file("page", std::string(2000, 'x'));
        },
        options);
    EXPECT_EQ(child.signal, SIGXFSZ) << child;
    EXPECT_EQ(contents(directory.path() / "page"), "old");
}

TEST(ReplaceFile, NamesTheFileThatCannotBeWritten)
{
    const temp_directory directory;
    const std::string nowhere = directory.path() / "nowhere" / "page";
    EXPECT_EQ(error_of(nowhere, "x"), nowhere + ": No such file or directory");
    EXPECT_EQ(error_of(directory.path(), "x"), directory.path().string() + ": not a regular file");
    EXPECT_EQ(error_of("/dev/null", "x"), "/dev/null: not a regular file");
}

} // namespace
