// Writes the dumps of the measured workload: wfta_dumps COUNT DIRECTORY

#include "bench/kernel_sets.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

int main(int argc, char** argv)
{
    const std::size_t count = argc == 3 ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (count == 0) {
        std::fprintf(stderr, "usage: wfta_dumps COUNT DIRECTORY\n");
        return 2;
    }
    if (chdir(argv[2]) != 0) {
        std::perror(argv[2]);
        return 2;
    }
    bench::kernel_set set = bench::make_kernels(count);
    for (vorna::wfta::kernel_data& kernel : set.kernels) {
        constexpr std::uint32_t ret = 0xd65f03c0;
        std::memcpy(kernel.text.data() + kernel.text.size() - sizeof ret, &ret, sizeof ret);
    }
    setenv("VORNA_WFTA_DUMP_KERNEL", "", 1);
    vorna::wfta::kernel_registry_map registry;
    vorna::wfta::finalise_kernels(registry, set.kernels);
}
