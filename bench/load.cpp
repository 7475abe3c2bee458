// The finaliser under load, for scripts/bench: a set of 200,000 kernels, 20,000 calls on one
// registry, and how many maps the kernel keeps for the mappings of many calls. Prints lines "NAME<tab>VALUE".

#include "bench/ways.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_map;

double seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

void print(const char* name, double value)
{
    std::printf("%s\t%.2f\n", name, value);
}

struct measured_way {
    bench::way way;
    std::vector<double> times; ///< seconds of one kernel
};

void place(measured_way& measured, const bench::prepared_set& prepared)
{
    std::unique_ptr<bench::placement> placed;
    const double time = seconds([&] { placed = measured.way.place(prepared); });
    measured.times.push_back(time / static_cast<double>(prepared.set.kernels.size()));
}

// Not the median: other load on the machine can only add time.
double fastest(const measured_way& measured)
{
    return *std::min_element(measured.times.begin(), measured.times.end());
}

/// Compares a set of 200,000 kernels with one of 2,000, and the finaliser with the floor.
void measure_one_call()
{
    const bench::prepared_set few(bench::make_kernels(2'000));
    const bench::prepared_set many(bench::make_kernels(200'000));
    const std::vector<bench::way> ways = bench::all_ways();
    measured_way finaliser_few{ways.at(0), {}};
    measured_way finaliser_many{ways.at(0), {}};
    measured_way floor_few{ways.at(1), {}};
    measured_way floor_many{ways.at(1), {}};
    for (int repetition = 0; repetition < 5; ++repetition) {
        for (int i = 0; i < 20; ++i) {
            place(finaliser_few, few);
            place(floor_few, few);
        }
        place(finaliser_many, many);
        place(floor_many, many);
    }
    print("finaliser, 2,000", fastest(finaliser_few) / fastest(floor_few));
    print("finaliser, 200,000", fastest(finaliser_many) / fastest(floor_many));
    print("finaliser, 200,000 to 2,000", fastest(finaliser_many) / fastest(finaliser_few));
    print("floor, 200,000 to 2,000", fastest(floor_many) / fastest(floor_few));
}

// The digits in the names of make_kernels(10), except the last.
constexpr std::size_t digits = 7;
const std::string zeros(digits, '0');

/// The ten kernels under unique names, for one of many calls on one registry.
std::vector<kernel_data> renamed(std::vector<kernel_data> kernels, std::size_t call)
{
    std::string number = std::to_string(call);
    number.insert(0, digits - number.size(), '0');
    for (kernel_data& kernel : kernels) {
        kernel.name.replace(kernel.name.find(zeros), digits, number);
        for (tessjit::reloc_info& reloc : kernel.relocs)
            reloc.name.replace(reloc.name.find(zeros), digits, number);
    }
    return kernels;
}

std::ptrdiff_t count_maps()
{
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

void measure_calls()
{
    constexpr std::size_t count = 20'000;
    constexpr std::size_t step = 7'919; // a prime: the names come in scattered order
    const bench::kernel_set ten = bench::make_kernels(10);
    std::vector<std::vector<kernel_data>> calls;
    for (std::size_t i = 0; i < count; ++i)
        calls.push_back(renamed(ten.kernels, i * step % count));
    std::vector<double> times(count);
    kernel_registry_map registry;
    const std::ptrdiff_t maps_before = count_maps();
    for (std::size_t i = 0; i < count; ++i)
        times[i] = seconds([&] { vorna::wfta::finalise_kernels(registry, calls[i]); });
    const std::ptrdiff_t maps = count_maps() - maps_before;
    print("last to first thousand calls",
          median({times.end() - 1'000, times.end()}) / median({times.begin(), times.begin() + 1'000}));
    print("maps of 20,000 calls", static_cast<double>(maps));
}

vorna::wfta::kernel_data smallest_kernel()
{
    return {nullptr, "k", {0xc0, 0x03, 0x5f, 0xd6}, {}, {}};
}

/// A mapping, as hosts make them between calls, that the kernel cannot merge with the finaliser's.
void map_a_page_of_the_host()
{
    static_cast<void>(mmap(nullptr, 1, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

/// How many calls succeed in a host that makes a mapping of its own after each, until the kernel's limit on
/// the number of maps is reached.
void measure_calls_until_refused()
{
    auto* const calls = static_cast<volatile std::size_t*>(
        mmap(nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t pid = fork();
    if (pid == 0) {
        const rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        for (;;) {
            kernel_registry_map registry;
            vorna::wfta::finalise_kernels(registry, {smallest_kernel()});
            *calls = *calls + 1;
            map_a_page_of_the_host();
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGSEGV)
        std::fprintf(stderr, "wfta_bench_load: the calls did not end in a refused mapping\n");
    print("calls until refused", static_cast<double>(*calls));
}

} // namespace

int main()
{
    measure_one_call();
    measure_calls();
    measure_calls_until_refused();
}
