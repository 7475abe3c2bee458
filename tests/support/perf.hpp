// perf, and a process with a kernel of the machine's own code for it to sample: perf samples the processor,
// not a simulated one.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/files.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/prctl.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace support {

/// A kernel of the machine that runs the test: counts its argument down to zero.
#ifdef __aarch64__
inline const std::vector<std::uint8_t> countdown = {0x00, 0x04, 0x00, 0xf1,  // loop: subs x0, x0, #1
                                                    0xe1, 0xff, 0xff, 0x54,  // b.ne loop
                                                    0xc0, 0x03, 0x5f, 0xd6}; // ret
#elif defined(__x86_64__)
inline const std::vector<std::uint8_t> countdown = {0x48, 0xff, 0xcf, // loop: dec %rdi
                                                    0x75, 0xfb,       // jne loop
                                                    0xc3};            // ret
#endif

struct command_result {
    int status;
    std::string output;
};

/// Runs a shell command and returns its exit status and all its output.
inline command_result shell(const std::string& command)
{
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return {-1, ""};
    }
    std::string output;
    std::array<char, 4096> block;
    while (const std::size_t length = std::fread(block.data(), 1, block.size(), pipe)) {
        output.append(block.data(), length);
    }
    return {WEXITSTATUS(pclose(pipe)), output};
}

/// A process that repeats one action until it is destroyed.
class busy_process {
public:
    /// `prepare` is called in the new process, in the directory, and returns the action.
    busy_process(const std::filesystem::path& directory,
                 const std::function<std::function<void()>()>& prepare)
    {
        int ready[2];
        if (pipe(ready) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        std::fflush(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::filesystem::current_path(directory);
            const std::function<void()> work = prepare();
            if (write(ready[1], "", 1) != 1) {
                _exit(1);
            }
            for (;;) {
                work();
            }
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    ~busy_process()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    busy_process(const busy_process&) = delete;
    busy_process& operator=(const busy_process&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

/// A shell command that ends when the process has used another half second of processor time: on a busy
/// machine that takes longer, but perf has as many samples.
inline std::string until_it_has_run(pid_t pid)
{
    const std::string ticks = "$(cut -d\" \" -f 14 /proc/" + std::to_string(pid) + "/stat)";
    return "end=$((" + ticks + " + $(getconf CLK_TCK) / 2)); while [ " + ticks +
           " -lt $end ]; do sleep 0.1; done";
}

/// Finalises the kernel countdown with the perf map on, and returns a call of it: for busy_process.
inline std::function<void()> countdown_in_the_perf_map()
{
    setenv("VORNA_WFTA_PERF", "1", 1);
    void (*count_down)(std::uint64_t) = nullptr;
    vorna::wfta::kernel_registry_map registry;
    finalise_kernels(registry, {{reinterpret_cast<void**>(&count_down), "countdown", countdown, {}, {}}});
    return [count_down] { count_down(1'000'000); };
}

/// Why tests with perf are to be skipped; empty if perf works here.
inline std::string why_perf_cannot_record()
{
    utsname own;
    uname(&own);
    // Under an emulator, the program and the shell, which is not emulated, report different machines.
    if (shell("uname -m").output != std::string(own.machine) + "\n") {
        return "perf sees an emulator's code here, not the kernel's";
    }
    const temp_directory directory;
    const command_result trial = shell("perf record --no-buildid-cache -e cpu-clock -o " +
                                       (directory.path() / "perf.data").string() + " -- true");
    if (trial.status == 0) {
        return "";
    }
    return "perf cannot record here: " + trial.output +
           "An ordinary user needs a kernel.perf_event_paranoid of at most 2; here it is " +
           contents("/proc/sys/kernel/perf_event_paranoid");
}

} // namespace support
