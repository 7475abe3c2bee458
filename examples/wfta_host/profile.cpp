#include "examples/wfta_host/profile.hpp"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

namespace wfta_host {

void write_profile(const std::string& file, const vorna::wfta::kernel_registry_map& registry,
                   const std::vector<plan>& plans, const instruction_counts& counts)
{
    std::FILE* const text = std::fopen(file.c_str(), "w");
    if (text == nullptr)
        throw std::runtime_error(file + ": " + std::strerror(errno));
    const auto pid = static_cast<int>(getpid());
    for (const plan& p : plans) {
        if (p.mapping == nullptr)
            continue;
        // The mapping ends with the last kernel's constants.
        const vorna::wfta::kernel_registry_entry& last = registry.at(p.placed.back());
        const auto begin = reinterpret_cast<std::uintptr_t>(p.mapping);
        const auto end = reinterpret_cast<std::uintptr_t>(last.data_ptr) + last.data_len;
        std::fprintf(text,
                     "%5d     0.000000: PERF_RECORD_MMAP2 %d/%d: [%#" PRIxPTR "(%#" PRIxPTR ") @ %#" PRIxPTR
                     " 00:00 0 0]: rwxp //anon\n",
                     pid, pid, pid, begin, end - begin, begin);
    }
    for (const auto& [address, count] : counts)
        std::fprintf(text, "%5d     1.000000: %10" PRIu64 " executions: %16" PRIxPTR "\n", pid, count,
                     address);
    const bool written = std::ferror(text) == 0;
    if (std::fclose(text) != 0 || !written)
        throw std::runtime_error(file + ": " + std::strerror(errno));
}

} // namespace wfta_host
