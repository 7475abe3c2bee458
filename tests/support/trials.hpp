// Trials that may end the process, as kernels do that run wrong in a simulator: they run in children, and
// what they find is in memory that the test shares with them.
#pragma once

#include "tests/support/child.hpp"

#include <algorithm>
#include <cstddef>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace support {

/// What each trial found out: zero at first, and shared with children.
template <typename record>
class shared_records {
public:
    explicit shared_records(std::size_t size) : size_(size)
    {
        static_assert(std::is_trivially_copyable_v<record>);
        void* const memory = mmap(nullptr, size * sizeof(record), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED)
            throw std::runtime_error("no memory for the records of the trials");
        records_ = static_cast<record*>(memory);
    }
    ~shared_records() { munmap(records_, size_ * sizeof(record)); }
    shared_records(const shared_records&) = delete;
    shared_records& operator=(const shared_records&) = delete;

    record& operator[](std::size_t index) { return records_[index]; }

private:
    std::size_t size_;
    record* records_ = nullptr;
};

/// Runs the trials `first` to `end` - 1 in children, whose output is lost. A child runs up to `most` trials,
/// each on the machine that it makes at its begin; after one that ends it, the next child continues.
template <typename machine, typename trial>
void run_trials(std::size_t first, std::size_t end, std::size_t most, trial run)
{
    shared_records<std::size_t> progress(1);
    volatile std::size_t& next = progress[0];
    for (next = first; next < end;) {
        const pid_t child = fork();
        if (child < 0)
            throw std::runtime_error("no child for the trials");
        if (child == 0) {
            prepare_for_crashes();
            const int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, STDOUT_FILENO);
            dup2(nowhere, STDERR_FILENO);
            machine own;
            const std::size_t last = std::min<std::size_t>(end, next + most);
            for (std::size_t i = next; i < last; ++i) {
                next = i + 1;
                run(i, own);
            }
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    }
}

} // namespace support
