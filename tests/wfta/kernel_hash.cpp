// The hash of a kernel's code, and its comparison with the one that an earlier run left in the hash file.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <algorithm>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::ElementsAre;
using bytes = std::vector<std::uint8_t>;

kernel_data kernel_of(const std::string& name, const bytes& text, const bytes& data = {})
{
    return {nullptr, name, text, data, {}};
}

/// One run of a host in `directory` with the check on: a process that finalises `kernels` in one call.
/// Returns what it wrote to stderr.
std::string run(const std::filesystem::path& directory, const std::vector<kernel_data>& kernels)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory;
    const child_result child = run_in_child(
        [&] {
            kernel_registry_map registry;
            finalise_kernels(registry, kernels);
            EXPECT_EQ(registry.size(), kernels.size());
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    return child.err;
}

std::string run(const temp_directory& directory, const bytes& text)
{
    return run(directory.path(), {kernel_of("k", text)});
}

std::string hash_file(const temp_directory& directory)
{
    return contents(directory.path() / "k.hash");
}

/// The eight bytes of a hash on the two little-endian machines of the tests.
std::string stored(std::uint64_t hash)
{
    std::string text;
    for (unsigned shift = 0; shift < 64; shift += 8) {
        text += static_cast<char>(hash >> shift);
    }
    return text;
}

/// The definition of the hash, a byte at a time.
std::uint64_t byte_loop(const bytes& text)
{
    std::uint64_t h = 0;
    for (const std::uint8_t b : text) {
        h = h * 31 + b;
    }
    return h;
}

struct known_hash {
    bytes text;
    std::uint64_t hash;
};

class KnownHash : public testing::TestWithParam<known_hash> {};

TEST_P(KnownHash, IsReportedAndStored)
{
    const temp_directory directory;
    EXPECT_EQ(run(directory, GetParam().text),
              "emitting new hash file: k.hash -> " + hex(GetParam().hash) + "\n");
    EXPECT_THAT(names_in(directory.path()), ElementsAre("k.hash"));
    EXPECT_EQ(hash_file(directory), stored(GetParam().hash));
}

INSTANTIATE_TEST_SUITE_P(
    KernelHash, KnownHash,
    testing::Values(known_hash{{}, 0}, known_hash{{1}, 1}, known_hash{{1, 2}, 0x21}, known_hash{{0, 1}, 1},
                    known_hash{{0xff}, 0xff}, known_hash{{0x80, 0}, 0xf80},
                    known_hash{{0x61, 0x62, 0x63}, 0x17862}, known_hash{{0xc0, 0x03, 0x5f, 0xd6}, 0x575eda},
                    known_hash{bytes(32, 0), 0}, known_hash{bytes(16, 0xff), 0x55b4b59aada3df00}));

TEST(KernelHash, EqualsTheByteLoopForEveryLengthUpTo4096)
{
    std::mt19937 random(31);
    std::vector<kernel_data> kernels;
    std::string expected;
    for (std::size_t length = 0; length <= 4096; ++length) {
        bytes text(length);
        std::generate(text.begin(), text.end(), [&] { return static_cast<std::uint8_t>(random()); });
        const std::string name = "h" + std::to_string(length);
        expected += "emitting new hash file: " + name + ".hash -> " + hex(byte_loop(text)) + "\n";
        kernels.push_back(kernel_of(name, text));
    }
    EXPECT_TRUE(run({}, kernels) == expected);
}

TEST(KernelHash, EqualsTheByteLoopForExtremeBytes)
{
    std::vector<kernel_data> kernels;
    std::string expected;
    for (const std::uint8_t value : bytes{0x00, 0x7f, 0x80, 0xff}) {
        for (std::size_t length = 0; length < 64; ++length) {
            const bytes text(length, value);
            const std::string name = std::to_string(value) + "x" + std::to_string(length);
            expected += "emitting new hash file: " + name + ".hash -> " + hex(byte_loop(text)) + "\n";
            kernels.push_back(kernel_of(name, text));
        }
    }
    EXPECT_EQ(run({}, kernels), expected);
}

TEST(KernelHash, SecondRunOfTheSameCodeIsSilent)
{
    const temp_directory directory;
    EXPECT_EQ(run(directory, {1, 2}), "emitting new hash file: k.hash -> 0x21\n");
    EXPECT_EQ(hash_file(directory), std::string("\x21\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(run(directory, {1, 2}), "");
    EXPECT_EQ(hash_file(directory), std::string("\x21\0\0\0\0\0\0\0", 8));
}

TEST(KernelHash, ChangedCodeIsReportedOnceAndMovesTheBaseline)
{
    const temp_directory directory;
    run(directory, {1, 2});
    EXPECT_EQ(run(directory, {1, 3}), "hash files did not match! (old) 0x21 != (new) 0x22\n"
                                      "emitting new hash file: k.hash -> 0x22\n");
    EXPECT_EQ(hash_file(directory), stored(0x22));
    EXPECT_EQ(run(directory, {1, 3}), "");
    EXPECT_EQ(run(directory, {1, 2}), "hash files did not match! (old) 0x22 != (new) 0x21\n"
                                      "emitting new hash file: k.hash -> 0x21\n");
}

TEST(KernelHash, StoredHashComesFirstInTheMessage)
{
    const temp_directory directory;
    write_file(directory.path() / "k.hash", std::string("\x22\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(run(directory, {1, 2}), "hash files did not match! (old) 0x22 != (new) 0x21\n"
                                      "emitting new hash file: k.hash -> 0x21\n");
    EXPECT_EQ(hash_file(directory), stored(0x21));
}

TEST(KernelHash, AllEightStoredBytesCount)
{
    for (std::size_t place = 0; place < 8; ++place) {
        const temp_directory directory;
        std::string other = stored(byte_loop(bytes(16, 0xff)));
        other[place] = static_cast<char>(other[place] ^ 0x40);
        write_file(directory.path() / "k.hash", other);
        EXPECT_EQ(run(directory, bytes(16, 0xff)),
                  "hash files did not match! (old) " +
                      hex(0x55b4b59aada3df00 ^ std::uint64_t{0x40} << (8 * place)) +
                      " != (new) 0x55b4b59aada3df00\n"
                      "emitting new hash file: k.hash -> 0x55b4b59aada3df00\n");
    }
}

TEST(KernelHash, ShortFilesAreReportedAsCorruptAndRewritten)
{
    for (std::size_t size = 0; size < 8; ++size) {
        const temp_directory directory;
        write_file(directory.path() / "k.hash", stored(0x21).substr(0, size));
        EXPECT_EQ(run(directory, {1, 2}), "corrupt hash file? k.hash should be 8 bytes but read " +
                                              std::to_string(size) +
                                              "\n"
                                              "emitting new hash file: k.hash -> 0x21\n");
        EXPECT_EQ(hash_file(directory), stored(0x21));
    }
}

TEST(KernelHash, LongFileWithTheRightHashKeepsItsBytes)
{
    const temp_directory directory;
    write_file(directory.path() / "k.hash", stored(0x21) + "more");
    EXPECT_EQ(run(directory, {1, 2}), "");
    EXPECT_EQ(hash_file(directory), stored(0x21) + "more");
}

TEST(KernelHash, LongFileWithAnotherHashIsTruncatedToEightBytes)
{
    const temp_directory directory;
    write_file(directory.path() / "k.hash", stored(0x22) + std::string(20'000, 'x'));
    EXPECT_EQ(run(directory, {1, 2}), "hash files did not match! (old) 0x22 != (new) 0x21\n"
                                      "emitting new hash file: k.hash -> 0x21\n");
    EXPECT_EQ(hash_file(directory), stored(0x21));
}

TEST(KernelHash, MatchingFileIsLeftUntouched)
{
    const temp_directory directory;
    run(directory, {1, 2});
    const std::filesystem::path file = directory.path() / "k.hash";
    std::filesystem::last_write_time(file,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    const auto time_before = std::filesystem::last_write_time(file);
    EXPECT_EQ(run(directory, {1, 2}), "");
    EXPECT_EQ(std::filesystem::last_write_time(file), time_before);
}

TEST(KernelHash, IsBlindToLeadingZeroBytes)
{
    const temp_directory directory;
    run(directory, {1});
    EXPECT_EQ(run(directory, {0, 1}), "");
    EXPECT_EQ(run(directory, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), "");
}

TEST(KernelHash, IsZeroForZeroBytesOfAnyLength)
{
    const temp_directory directory;
    EXPECT_EQ(run(directory, {}), "emitting new hash file: k.hash -> 0x0\n");
    for (const std::size_t length : {1U, 7U, 8U, 9U, 1000U}) {
        EXPECT_EQ(run(directory, bytes(length, 0)), "");
    }
}

TEST(KernelHash, DataDoesNotCount)
{
    const temp_directory directory;
    run(directory.path(), {kernel_of("k", {1, 2}, {1, 2, 3})});
    EXPECT_EQ(run(directory.path(), {kernel_of("k", {1, 2}, {3, 2, 1, 0})}), "");
}

TEST(KernelHash, NameOnlyNamesTheFile)
{
    const temp_directory directory;
    EXPECT_EQ(
        run(directory.path(), {kernel_of("a b", {1, 2}), kernel_of("%s", {1, 2}), kernel_of("", {1, 2})}),
        "emitting new hash file: a b.hash -> 0x21\n"
        "emitting new hash file: %s.hash -> 0x21\n"
        "emitting new hash file: .hash -> 0x21\n");
    EXPECT_THAT(names_in(directory.path()), ElementsAre("%s.hash", ".hash", "a b.hash"));
}

TEST(KernelHash, DoesNotDependOnWhereTheKernelIsPlaced)
{
    const kernel_data callee = kernel("callee", {a64::ret()});
    const kernel_data caller =
        kernel("caller", {a64::adrp(0), a64::add(0, 0, 0), a64::adr(1), a64::bl(), a64::ret()},
               {{".rodata.caller", 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                {".rodata.caller", 4, R_AARCH64_ADD_ABS_LO12_NC, 0},
                {".rodata.caller", 8, R_AARCH64_ADR_PREL_LO21, 0},
                {"callee", 12, R_AARCH64_CALL26, 0}},
               {1, 2, 3});
    // The second set lies elsewhere, and the kernel between the two moves the caller away from its callee.
    const std::vector<std::vector<kernel_data>> sets = {
        {callee, caller}, {callee, {nullptr, "between", bytes(8192, 1), {}, {}}, caller}};
    const address_range here(0x20000);
    const temp_directory directory;
    child_options options;
    options.environment = {{"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory.path();
    const auto linked_words = [&](std::size_t run) {
        const child_result child = run_in_child(
            [&] {
                platform_spy spy;
                spy.place = here.begin() + 0x10000 * run;
                kernel_registry_map registry;
                finalise_kernels(registry, sets[run]);
                const kernel_registry_entry& linked = registry.at("caller");
                std::fwrite(linked.text_ptr, 1, linked.text_len, stdout);
            },
            options);
        EXPECT_TRUE(child.succeeded()) << child;
        EXPECT_THAT(child.err, testing::Not(testing::HasSubstr("match")));
        return child.out;
    };
    EXPECT_NE(linked_words(0), linked_words(1));
    EXPECT_EQ(contents(directory.path() / "caller.hash"), stored(byte_loop(caller.text)));
}

TEST(KernelHash, TwoKernelsOfOneNameInOneProcessShareTheFile)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_CHECK_HASH", "1"}};
    const child_result child = run_in_child(
        [] {
            for (const bytes& text : {bytes{1, 2}, bytes{1, 3}, bytes{1, 3}}) {
                kernel_registry_map registry;
                finalise_kernels(registry, {kernel_of("k", text)});
            }
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "emitting new hash file: k.hash -> 0x21\n"
                         "hash files did not match! (old) 0x21 != (new) 0x22\n"
                         "emitting new hash file: k.hash -> 0x22\n");
}

TEST(KernelHash, NewFileHasTheProcesssDefaultPermissions)
{
    const temp_directory directory;
    const mode_t mask_before = umask(026);
    run(directory, {1, 2});
    umask(mask_before);
    EXPECT_EQ(std::filesystem::status(directory.path() / "k.hash").permissions(),
              static_cast<std::filesystem::perms>(0640));
}

TEST(KernelHash, KernelIsLinkedAndPublishedAfterAMismatch)
{
    const temp_directory directory;
    write_file(directory.path() / "k.hash", stored(0x22));
    child_options options;
    options.environment = {{"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            void* slot = nullptr;
            kernel_registry_map registry;
            finalise_kernels(
                registry, {kernel("k", {a64::bl(), a64::ret()}, {{"k", 0, R_AARCH64_CALL26, 4}}, {}, &slot)});
            EXPECT_EQ(word_at(registry.at("k").text_ptr), 0x94000001U);
            EXPECT_EQ(slot, registry.at("k").text_ptr);
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
}

/// The file events, in order, of a run with kernel k of the bytes 01 02 in a directory. Each is the event's
/// name, a blank and the file's name. Modifications count for stderr only: kernels differ in when they report
/// that opening truncated a file.
std::vector<std::string> file_events(const temp_directory& directory)
{
    const int events = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    EXPECT_GE(events, 0);
    EXPECT_GE(inotify_add_watch(events, directory.path().c_str(),
                                IN_CREATE | IN_OPEN | IN_MODIFY | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE),
              0);
    child_options options;
    options.environment = {{"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            const int err = open("stderr", O_CREAT | O_WRONLY | O_APPEND, 0600);
            ASSERT_GE(dup2(err, STDERR_FILENO), 0);
            kernel_registry_map registry;
            finalise_kernels(registry, {kernel_of("k", {1, 2})});
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;

    std::vector<std::string> seen;
    alignas(inotify_event) char buffer[16384];
    const ssize_t length = read(events, buffer, sizeof buffer);
    close(events);
    for (ssize_t offset = 0; offset < length;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(buffer + offset);
        offset += static_cast<ssize_t>(sizeof *event + event->len);
        for (const auto& [bit, name] : {std::pair<std::uint32_t, const char*>(IN_CREATE, "create"),
                                        {IN_OPEN, "open"},
                                        {IN_MODIFY, "modify"},
                                        {IN_CLOSE_WRITE, "close written"},
                                        {IN_CLOSE_NOWRITE, "close"}}) {
            const std::string line = std::string(name) + " " + event->name;
            if ((event->mask & bit) != 0 && event->len != 0 && line != "modify k.hash") {
                seen.push_back(line);
            }
        }
    }
    return seen;
}

TEST(KernelHash, NewFileIsAnnouncedBeforeItIsMade)
{
    const temp_directory directory;
    EXPECT_THAT(file_events(directory),
                ElementsAre("create stderr", "open stderr", "modify stderr", "create k.hash", "open k.hash",
                            "close written k.hash", "close written stderr"));
}

TEST(KernelHash, FileIsRewrittenInPlaceWhileItIsOpenForReading)
{
    const temp_directory directory;
    write_file(directory.path() / "k.hash", stored(0x22));
    EXPECT_THAT(file_events(directory),
                ElementsAre("create stderr", "open stderr", "open k.hash", "modify stderr", "open k.hash",
                            "close written k.hash", "close k.hash", "close written stderr"));
}

} // namespace
