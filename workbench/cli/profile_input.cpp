#include "workbench/cli/profile_input.hpp"

#include "workbench/cli/command.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace vorna::workbench {

namespace {

class descriptor {
public:
    explicit descriptor(int number = -1) : number_(number) {}
    ~descriptor() { close(); }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    [[nodiscard]] int number() const { return number_; }
    void take(int number)
    {
        close();
        number_ = number;
    }
    void close()
    {
        if (number_ >= 0)
            ::close(number_);
        number_ = -1;
    }

private:
    int number_;
};

[[noreturn]] void fail(const std::string& what)
{
    throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

void read_all(int input, profile_reader& reader)
{
    std::vector<char> block(std::size_t{1} << 18);
    for (;;) {
        const ssize_t count = ::read(input, block.data(), block.size());
        if (count == 0)
            return;
        if (count > 0)
            reader.read({block.data(), static_cast<std::size_t>(count)});
        else if (errno != EINTR)
            throw std::runtime_error(std::strerror(errno));
    }
}

/// A child process; ended and waited for when the object dies before it was.
class child_process {
public:
    child_process() = default;
    ~child_process()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            wait();
        }
    }
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    pid_t* pid() { return &pid_; }
    int wait()
    {
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_ = -1;
};

/// Whether a regular file begins as no file of perf record does: without a byte that is not text.
bool is_text(const std::string& file)
{
    if (!std::filesystem::is_regular_file(file))
        return false;
    char bytes[4096];
    std::ifstream input(file, std::ios::binary);
    input.read(bytes, sizeof bytes);
    const auto end = bytes + input.gcount();
    return end != bytes && std::all_of(bytes, end, [](char c) {
               return static_cast<unsigned char>(c) >= ' ' || c == '\n' || c == '\t' || c == '\r';
           });
}

/// The first line of a temporary file.
std::string first_line(std::FILE* file)
{
    char line[512] = "";
    std::rewind(file);
    while (std::fgets(line, sizeof line, file) != nullptr && (*line == '\n' || *line == '\0')) {
    }
    line[std::strcspn(line, "\n")] = '\0';
    return line;
}

} // namespace

profile read_perf_script(const std::string& file, const kernel_set& set)
{
    const bool standard_input = file == "-";
    const std::string name = standard_input ? "standard input" : file;
    const descriptor input(standard_input ? dup(STDIN_FILENO) : open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (input.number() < 0)
        fail(name);
    try {
        profile_reader reader(set);
        read_all(input.number(), reader);
        return reader.finish();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(fmt::format("{}: {}", name, error.what()));
    }
}

profile read_perf_data(const std::string& file, const kernel_set& set)
{
    std::vector<std::string> command = perf_script_command();
    command.insert(command.end(), {"-i", file});
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    if (file != "-" && access(file.c_str(), R_OK) != 0)
        fail(file);
    if (is_text(file))
        throw std::runtime_error(file +
                                 ": text, not what perf record writes: give it with --perf-script=" + file);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe");
    descriptor output(ends[0]);
    descriptor input(ends[1]);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> errors(std::tmpfile(), std::fclose);
    if (errors == nullptr)
        fail("temporary file");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.number(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(errors.get()), STDERR_FILENO);
    child_process perf;
    const int error = posix_spawnp(perf.pid(), arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    input.close();
    if (error != 0) {
        *perf.pid() = -1;
        throw std::runtime_error(fmt::format("cannot run perf: {}; --perf-script reads the text that perf "
                                             "script made elsewhere",
                                             std::strerror(error)));
    }

    profile_reader reader(set);
    try {
        read_all(output.number(), reader);
    } catch (const std::runtime_error& reading) {
        throw std::runtime_error(fmt::format("{}: {}", file, reading.what()));
    }
    const int status = perf.wait();
    if (WIFSIGNALED(status))
        throw std::runtime_error(
            fmt::format("{}: perf script was ended by signal {}", file, WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0) {
        const std::string line = first_line(errors.get());
        throw std::runtime_error(
            fmt::format("{}: perf script: {}", file,
                        line.empty() ? fmt::format("exit status {}", WEXITSTATUS(status)) : line));
    }
    try {
        return reader.finish();
    } catch (const std::runtime_error& joining) {
        throw std::runtime_error(fmt::format("{}: {}", file, joining.what()));
    }
}

const event_profile* choose_event(const profile& profile, const std::string& event)
{
    const event_profile* const chosen = find_event(profile, event);
    if (chosen != nullptr || event.empty())
        return chosen;
    std::string names;
    for (const event_profile& other : profile.events)
        names += (names.empty() ? "" : ", ") + other.event;
    throw std::runtime_error(
        fmt::format("no event {} in the profile{}{}", event, names.empty() ? "" : "; there is ", names));
}

void report_profile_trouble(const profile& profile, const std::string& file, bool& trouble)
{
    if (profile.bad_lines == 0)
        return;
    report_trouble(fmt::format("{}:{}: not a line of the text of perf script -F pid,time,event,period,ip{}",
                               file, profile.first_bad_line,
                               profile.bad_lines == 1
                                   ? ""
                                   : fmt::format(", as {} in all; they are passed over", profile.bad_lines)));
    trouble = true;
}

} // namespace vorna::workbench
