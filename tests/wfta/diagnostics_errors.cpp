// Diagnostics that cannot write their files: emission completes, the kernels are linked and run, and stderr
// holds the hash check's lines, no more and no less.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// Finalises a kernel that returns the constant 42 from its data, and one that calls it and adds 1, and
/// expects both to be intact.
void emit_and_run(const std::string& callee_name = "callee", const std::string& caller_name = "caller")
{
    void* answer = nullptr;
    void* answer_plus_1 = nullptr;
    const kernel_data callee =
        kernel(callee_name, {a64::adrp(0), a64::add(0, 0, 0), a64::ldr(0, 0), a64::ret()},
               {{".rodata." + callee_name, 0, R_AARCH64_ADR_PREL_PG_HI21, 0},
                {".rodata." + callee_name, 4, R_AARCH64_ADD_ABS_LO12_NC, 0}},
               {42, 0, 0, 0, 0, 0, 0, 0}, &answer);
    const kernel_data caller =
        kernel(caller_name,
               {a64::push(a64::frame_pointer, a64::link_register), a64::bl(), a64::add(0, 0, 1),
                a64::pop(a64::frame_pointer, a64::link_register), a64::ret()},
               {{callee_name, 4, R_AARCH64_CALL26, 0}}, {}, &answer_plus_1);
    kernel_registry_map registry;
    finalise_kernels(registry, {callee, caller});

    EXPECT_EQ(registry.size(), 2U);
    ASSERT_EQ(answer, registry.at(callee_name).text_ptr);
    ASSERT_EQ(answer_plus_1, registry.at(caller_name).text_ptr);
    EXPECT_EQ(word_at(registry.at(caller_name).text_ptr + 4), 0x97fffff7U); // BL .-36
#ifdef __aarch64__
    EXPECT_EQ(reinterpret_cast<std::uint64_t (*)()>(answer)(), 42U);
    EXPECT_EQ(reinterpret_cast<std::uint64_t (*)()>(answer_plus_1)(), 43U);
#endif
}

// The hashes of the two, which do not depend on their names, from the definition.
std::string hash_of(const std::vector<std::uint32_t>& words)
{
    std::uint64_t h = 0;
    for (const std::uint8_t b : code(words)) {
        h = h * 31 + b;
    }
    std::ostringstream text;
    text << "0x" << std::hex << h;
    return text.str();
}

std::string announcement(const std::string& name, const std::vector<std::uint32_t>& words)
{
    return "emitting new hash file: " + name + ".hash -> " + hash_of(words) + "\n";
}

const std::vector<std::uint32_t> callee_words = {a64::adrp(0), a64::add(0, 0, 0), a64::ldr(0, 0), a64::ret()};
const std::vector<std::uint32_t> caller_words = {
    a64::push(a64::frame_pointer, a64::link_register), a64::bl(), a64::add(0, 0, 1),
    a64::pop(a64::frame_pointer, a64::link_register), a64::ret()};
const std::string both_announced =
    announcement("callee", callee_words) + announcement("caller", caller_words);

/// Runs the body in a child with all diagnostics on. The perf map of the child does not outlive the call.
void with_all_on(const std::filesystem::path& directory, const std::string& expected_err,
                 const std::function<void(const perf_map&)>& body)
{
    child_options options;
    options.environment = {{"VORNA_WFTA_PERF", "1"}, {"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory;
    pid_t pid = 0;
    {
        const child_result child = run_in_child(
            [&] {
                const perf_map map;
                body(map);
            },
            options);
        pid = child.pid;
        EXPECT_TRUE(child.succeeded()) << child;
        EXPECT_EQ(child.err, expected_err);
        EXPECT_EQ(child.out, "");
    }
    const perf_map left_by_a_child_that_died(pid);
}

/// Makes the current directory one where this process cannot create files, even as root.
void lose_permission_to_write()
{
    const uid_t nobody = 65534;
    std::filesystem::permissions(".", static_cast<std::filesystem::perms>(0555));
    if (geteuid() == 0) {
        ASSERT_EQ(setuid(nobody), 0);
    }
    ASSERT_NE(access(".", W_OK), 0);
}

std::size_t lines(const perf_map& map)
{
    const std::string text = map.text();
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(DiagnosticsErrors, DoNotOccurNormally)
{
    const temp_directory directory;
    with_all_on(directory.path(), both_announced, [](const perf_map& map) {
        emit_and_run();
        EXPECT_EQ(lines(map), 2U);
    });
    EXPECT_THAT(names_in(directory.path()),
                UnorderedElementsAre("callee", "callee.hash", "caller", "caller.hash"));
}

TEST(DiagnosticsErrors, DirectoryIsNotWritable)
{
    const temp_directory directory;
    with_all_on(directory.path(), both_announced + both_announced, [](const perf_map& map) {
        lose_permission_to_write();
        emit_and_run();
        emit_and_run();
        EXPECT_EQ(lines(map), 4U);
    });
    EXPECT_THAT(names_in(directory.path()), IsEmpty());
}

TEST(DiagnosticsErrors, DumpAlonePrintsNothingIfTheDirectoryIsNotWritable)
{
    const temp_directory directory;
    const child_result child = run_with_dumps(
        [] {
            lose_permission_to_write();
            emit_and_run();
        },
        directory.path());
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, "");
    EXPECT_THAT(names_in(directory.path()), IsEmpty());
}

TEST(DiagnosticsErrors, HashFileMayNotBeReadOrWritten)
{
    const temp_directory directory;
    const std::filesystem::path file = directory.path() / "callee.hash";
    write_file(file, "of another user");
    std::filesystem::permissions(file, std::filesystem::perms::none);
    with_all_on(directory.path(), both_announced, [](const perf_map&) {
        lose_permission_to_write();
        emit_and_run();
    });
    EXPECT_EQ(contents(file), geteuid() == 0 ? "of another user" : "");
    EXPECT_EQ(std::filesystem::file_size(file), 15U);
}

TEST(DiagnosticsErrors, HashFileMayBeReadButNotWritten)
{
    const temp_directory directory;
    const std::filesystem::path file = directory.path() / "callee.hash";
    write_file(file, "short");
    std::filesystem::permissions(file, static_cast<std::filesystem::perms>(0444));
    with_all_on(directory.path(),
                "corrupt hash file? callee.hash should be 8 bytes but read 5\n" + both_announced,
                [](const perf_map&) {
                    lose_permission_to_write();
                    emit_and_run();
                });
    EXPECT_EQ(contents(file), "short");
}

TEST(DiagnosticsErrors, DirectoryIsRemoved)
{
    with_all_on({}, both_announced, [](const perf_map& map) {
        std::filesystem::remove(std::filesystem::current_path());
        emit_and_run();
        EXPECT_EQ(lines(map), 2U);
    });
}

TEST(DiagnosticsErrors, DeviceIsFull)
{
    const temp_directory directory;
    for (const char* name : {"callee", "caller", "caller.hash"}) {
        std::filesystem::create_symlink("/dev/full", directory.path() / name);
    }
    // /dev/full reads as endless zero bytes, but libstdc++ counts none of them as available.
#ifdef _LIBCPP_VERSION
    const std::string finding =
        "hash files did not match! (old) 0x0 != (new) " + hash_of(caller_words) + "\n";
#else
    const std::string finding = "corrupt hash file? caller.hash should be 8 bytes but read 0\n";
#endif
    with_all_on(directory.path(),
                announcement("callee", callee_words) + finding + announcement("caller", caller_words),
                [](const perf_map& map) {
                    std::filesystem::create_symlink("/dev/full", map.path());
                    emit_and_run();
                });
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path() / "callee"));
}

TEST(DiagnosticsErrors, NoDescriptorIsLeft)
{
    const temp_directory directory;
    const std::string at_first =
        announcement("missing/callee", callee_words) + announcement("missing/caller", caller_words);
    with_all_on(directory.path(), at_first + both_announced, [](const perf_map& map) {
        // UBSan needs a descriptor when a class fails to open its file for the first time: here it does.
        emit_and_run("missing/callee", "missing/caller");
        EXPECT_EQ(lines(map), 2U);

        rlimit before;
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none = {0, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        emit_and_run();
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(lines(map), 2U);
        EXPECT_THAT(names_in("."), IsEmpty());
    });
}

TEST(DiagnosticsErrors, DirectoriesHaveTheNamesOfTheFiles)
{
    const temp_directory directory;
    for (const char* name : {"callee", "caller", "callee.hash", "caller.hash"}) {
        std::filesystem::create_directory(directory.path() / name);
    }
    // A directory opens for reading, but holds no bytes.
    with_all_on(directory.path(),
                "corrupt hash file? callee.hash should be 8 bytes but read 0\n" +
                    announcement("callee", callee_words) +
                    "corrupt hash file? caller.hash should be 8 bytes but read 0\n" +
                    announcement("caller", caller_words),
                [](const perf_map& map) {
                    std::filesystem::create_directory(map.path());
                    emit_and_run();
                });
}

TEST(DiagnosticsErrors, NameLeadsIntoADirectoryThatDoesNotExist)
{
    const temp_directory directory;
    for (int run = 0; run < 2; ++run) {
        with_all_on(directory.path(),
                    announcement("missing/callee", callee_words) +
                        announcement("missing/caller", caller_words),
                    [](const perf_map& map) {
                        emit_and_run("missing/callee", "missing/caller");
                        EXPECT_EQ(lines(map), 2U);
                    });
        EXPECT_THAT(names_in(directory.path()), IsEmpty());
    }
}

TEST(DiagnosticsErrors, NameLeadsIntoADirectoryThatExists)
{
    const temp_directory directory;
    std::filesystem::create_directory(directory.path() / "sub");
    with_all_on(directory.path(),
                announcement("sub/callee", callee_words) + announcement("sub/caller", caller_words),
                [](const perf_map&) { emit_and_run("sub/callee", "sub/caller"); });
    EXPECT_THAT(names_in(directory.path() / "sub"),
                UnorderedElementsAre("callee", "callee.hash", "caller", "caller.hash"));
    with_all_on(directory.path(), "", [](const perf_map&) { emit_and_run("sub/callee", "sub/caller"); });
}

TEST(DiagnosticsErrors, NameIsTooLongForAFile)
{
    const std::string longest(255, 'n'); // the limit of a file name, too long with ".hash"
    const std::string too_long(256, 'n');
    const temp_directory directory;
    with_all_on(directory.path(), announcement(longest, callee_words) + announcement(too_long, caller_words),
                [&](const perf_map& map) {
                    emit_and_run(longest, too_long);
                    EXPECT_EQ(lines(map), 2U);
                });
    EXPECT_THAT(names_in(directory.path()), ElementsAre(longest));
}

TEST(DiagnosticsErrors, NameIsEmptyOrADirectory)
{
    const temp_directory directory;
    with_all_on(directory.path(), announcement("", callee_words) + announcement(".", caller_words),
                [](const perf_map&) { emit_and_run("", "."); });
    EXPECT_THAT(names_in(directory.path()), UnorderedElementsAre(".hash", "..hash"));
}

// Of a limit on the size of files, at which the system sends SIGXFSZ as well.

void limit_file_size(rlim_t size)
{
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = size;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

/// Emits under a limit, which it takes away again so that the test may report. Returns what came to stderr:
/// through a pipe, since the harness's file has a size too.
std::string emit_under_limit(rlim_t size)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const int err = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    limit_file_size(size);
    emit_and_run();
    limit_file_size(RLIM_INFINITY);
    dup2(err, STDERR_FILENO);
    close(err);
    close(ends[1]);
    std::string text;
    char block[4096];
    for (ssize_t length = 0; (length = read(ends[0], block, sizeof block)) > 0;) {
        text.append(block, static_cast<std::size_t>(length));
    }
    close(ends[0]);
    return text;
}

std::set<int> signals(const sigset_t& set)
{
    std::set<int> numbers;
    for (int number = 1; number < SIGRTMIN; ++number) {
        if (sigismember(&set, number) == 1) {
            numbers.insert(number);
        }
    }
    return numbers;
}

std::set<int> blocked_signals()
{
    sigset_t set;
    pthread_sigmask(SIG_BLOCK, nullptr, &set);
    return signals(set);
}

std::set<int> pending_signals()
{
    sigset_t set;
    sigpending(&set);
    return signals(set);
}

void block(int number)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, nullptr), 0);
}

TEST(SizeLimit, FilesStayEmpty)
{
    const temp_directory directory;
    with_all_on(directory.path(), "", [](const perf_map& map) {
        EXPECT_EQ(emit_under_limit(0), both_announced);
        EXPECT_EQ(map.text(), "");
    });
    for (const char* name : {"callee", "callee.hash", "caller", "caller.hash"}) {
        EXPECT_TRUE(std::filesystem::is_empty(directory.path() / name)) << name;
    }
}

TEST(SizeLimit, LinesToAFullStderrAreDropped)
{
    with_all_on({}, "", [](const perf_map&) {
        limit_file_size(0);
        emit_and_run(); // the harness keeps stderr in a file
        limit_file_size(RLIM_INFINITY);
    });
}

TEST(SizeLimit, FilesAreTruncatedAtTheLimit)
{
    const temp_directory directory;
    with_all_on(directory.path(), "", [](const perf_map& map) {
        EXPECT_EQ(emit_under_limit(7), both_announced);
        EXPECT_EQ(map.text().size(), 7U);
    });
    for (const char* name : {"callee", "callee.hash", "caller", "caller.hash"}) {
        EXPECT_EQ(std::filesystem::file_size(directory.path() / name), 7U) << name;
    }
    EXPECT_EQ(contents(directory.path() / "callee"), std::string("\x7f"
                                                                 "ELF\2\1\1",
                                                                 7));
}

TEST(SizeLimit, LeavesSignalMaskAndPendingSignalsAsTheyWere)
{
    with_all_on({}, "", [](const perf_map&) {
        block(SIGUSR1);
        raise(SIGUSR1);
        EXPECT_EQ(emit_under_limit(0), both_announced);
        EXPECT_THAT(blocked_signals(), ElementsAre(SIGUSR1));
        EXPECT_THAT(pending_signals(), ElementsAre(SIGUSR1));
    });
}

TEST(SizeLimit, LeavesNoSignalToAHostThatBlocksIt)
{
    with_all_on({}, "", [](const perf_map&) {
        block(SIGXFSZ);
        EXPECT_EQ(emit_under_limit(0), both_announced);
        EXPECT_THAT(blocked_signals(), ElementsAre(SIGXFSZ));
        EXPECT_THAT(pending_signals(), IsEmpty());
    });
}

TEST(SizeLimit, KeepsTheHostsOwnPendingSignal)
{
    with_all_on({}, "", [](const perf_map&) {
        block(SIGXFSZ);
        raise(SIGXFSZ);
        EXPECT_EQ(emit_under_limit(0), both_announced);
        EXPECT_THAT(pending_signals(), ElementsAre(SIGXFSZ));
    });
}

volatile sig_atomic_t size_signals = 0;

TEST(SizeLimit, HostsHandlerSeesTheHostsOwnSignalsOnly)
{
    with_all_on({}, "", [](const perf_map&) {
        std::signal(SIGXFSZ, [](int) { size_signals = size_signals + 1; });
        EXPECT_EQ(emit_under_limit(0), both_announced);
        EXPECT_EQ(size_signals, 0);

        const int file = creat("of the host", 0600);
        limit_file_size(0);
        EXPECT_EQ(write(file, "x", 1), -1);
        limit_file_size(RLIM_INFINITY);
        close(file);
        EXPECT_EQ(size_signals, 1);
    });
}

// The rest is about pipes: the opening of a FIFO waits for its other end, and a pipe that has lost its reader
// raises SIGPIPE when it is written.

void with_one_on(const std::string& variable, const std::string& value, const std::string& expected_err,
                 const std::function<void()>& body)
{
    child_options options;
    options.environment = {{variable, value}};
    const child_result child = run_in_child(body, options);
    EXPECT_TRUE(child.succeeded()) << child;
    EXPECT_EQ(child.err, expected_err);
    const perf_map left_by_the_child(child.pid);
}

/// Finalises a kernel whose dump, and whose line in the map, are longer than a pipe holds, so that a reader
/// that goes away is always missed.
void emit_more_than_a_pipe_holds(const std::string& name)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {kernel(name, std::vector<std::uint32_t>(25'000, a64::nop()))});
    EXPECT_EQ(registry.size(), 1U);
}

/// The other end of a FIFO, closed as soon as it has been opened.
std::thread brief_partner(const std::filesystem::path& fifo, int flags)
{
    EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0) << fifo;
    return std::thread([=] { close(open(fifo.c_str(), flags)); });
}

TEST(Fifo, DumpWaitsForItsReader)
{
    with_one_on("VORNA_WFTA_DUMP_KERNEL", "^callee$", "", [] {
        ASSERT_EQ(mkfifo("callee", 0600), 0);
        std::atomic<bool> opened = false;
        std::string dump;
        std::thread reader([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            opened = true;
            dump = contents("callee");
        });
        emit_and_run();
        EXPECT_TRUE(opened);
        reader.join();
        std::filesystem::remove("callee");
        emit_and_run();
        EXPECT_EQ(dump.substr(0, 4), "\177ELF");
        EXPECT_EQ(dump.size(), std::filesystem::file_size("callee"));
    });
}

TEST(Fifo, DumpWhoseReaderGoesAwayIsMissing)
{
    with_one_on("VORNA_WFTA_DUMP_KERNEL", "^long$", "", [] {
        std::thread reader = brief_partner("long", O_RDONLY);
        emit_more_than_a_pipe_holds("long");
        reader.join();
        EXPECT_THAT(blocked_signals(), IsEmpty());
        EXPECT_THAT(pending_signals(), IsEmpty());
        emit_and_run();
    });
}

TEST(Fifo, MapLineWhoseReaderGoesAwayIsMissing)
{
    with_one_on("VORNA_WFTA_PERF", "1", "", [] {
        const perf_map map;
        std::thread reader = brief_partner(map.path(), O_RDONLY);
        emit_more_than_a_pipe_holds(std::string(100'000, 'n'));
        reader.join();
        EXPECT_THAT(pending_signals(), IsEmpty());
        std::filesystem::remove(map.path());
        emit_and_run();
        EXPECT_EQ(lines(map), 2U);
    });
}

TEST(Fifo, HashFileIsReadFirst)
{
    with_one_on("VORNA_WFTA_CHECK_HASH", "1",
                "corrupt hash file? callee.hash should be 8 bytes but read 0\n" + both_announced, [] {
                    std::thread writer = brief_partner("callee.hash", O_WRONLY);
                    emit_and_run();
                    writer.join();
                });
}

/// Emits while stderr is a pipe without a reader.
void emit_unheard()
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int err = dup(STDERR_FILENO);
    close(ends[0]);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    emit_and_run();
    dup2(err, STDERR_FILENO);
    close(err);
}

TEST(StderrWithoutReader, KeepsTheHashesAndLeavesNoSignal)
{
    with_one_on("VORNA_WFTA_CHECK_HASH", "1", "", [] {
        emit_unheard();
        EXPECT_THAT(names_in("."), UnorderedElementsAre("callee.hash", "caller.hash"));
        EXPECT_THAT(blocked_signals(), IsEmpty());
        EXPECT_THAT(pending_signals(), IsEmpty());
        emit_and_run();
    });
}

TEST(StderrWithoutReader, LeavesNoSignalToAHostThatBlocksIt)
{
    with_one_on("VORNA_WFTA_CHECK_HASH", "1", "", [] {
        block(SIGPIPE);
        emit_unheard();
        EXPECT_THAT(blocked_signals(), ElementsAre(SIGPIPE));
        EXPECT_THAT(pending_signals(), IsEmpty());
    });
}

TEST(StderrWithoutReader, KeepsTheHostsOwnPendingSignal)
{
    with_one_on("VORNA_WFTA_CHECK_HASH", "1", "", [] {
        block(SIGPIPE);
        raise(SIGPIPE);
        emit_unheard();
        EXPECT_THAT(pending_signals(), ElementsAre(SIGPIPE));
    });
}

} // namespace
