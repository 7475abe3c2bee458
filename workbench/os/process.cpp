#include "workbench/os/process.hpp"

#include "workbench/os/file.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace vorna::workbench {

namespace {

[[noreturn]] void fail(const std::string& what, int error)
{
    throw std::system_error(error, std::generic_category(), what);
}

std::vector<char*> arguments_of(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str())); // NOLINT: exec changes nothing
    arguments.push_back(nullptr);
    return arguments;
}

/// A child process; killed by the destructor unless it was waited for.
class child_process {
public:
    explicit child_process(pid_t pid) : pid_(pid) {}
    ~child_process()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            wait();
        }
    }
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    int wait()
    {
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_;
};

pid_t start(const std::vector<std::string>& command, int output, int errors)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    pid_t pid = -1;
    const std::vector<char*> arguments = arguments_of(command);
    const int error = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        fail("cannot run " + command.front(), error);
    return pid;
}

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

program_result run_child(const std::vector<std::string>& command,
                         const std::function<void(std::string_view)>& output)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe", errno);
    const file_descriptor read_end(ends[0]);
    file_descriptor write_end(ends[1]);
    // A file rather than a pipe, so a program that writes much to stderr does not block.
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> errors(std::tmpfile(), std::fclose);
    if (errors == nullptr)
        fail("temporary file", errno);
    child_process child(start(command, write_end.number(), fileno(errors.get())));
    write_end.close();
    read_pieces(read_end, output);
    const int status = child.wait();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 0, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            first_line(errors.get())};
}

bool is_on_path(std::string_view program)
{
    const char* const path = std::getenv("PATH");
    std::string_view rest = path == nullptr ? "" : path;
    while (!rest.empty()) {
        const std::size_t colon = std::min(rest.find(':'), rest.size());
        std::string directory(colon == 0 ? "." : rest.substr(0, colon));
        if (access(directory.append("/").append(program).c_str(), X_OK) == 0)
            return true;
        rest.remove_prefix(std::min(colon + 1, rest.size()));
    }
    return false;
}

void exec_program(const std::vector<std::string>& command)
{
    execvp(command.front().c_str(), arguments_of(command).data());
    fail(command.front(), errno);
}

} // namespace vorna::workbench
