// The timings. Every method of placing kernels is checked before it is timed; its memory is freed outside the
// measured time, so each iteration starts with a new mapping and an empty registry.

#include "bench/hash.hpp"
#include "bench/ways.hpp"

#include "jit/elf.hpp"

#include <benchmark/benchmark.h>

#include <chrono>
#include <initializer_list>
#include <map>
#include <string>

namespace {

using vorna::wfta::kernel_data;

const bench::prepared_set& prepared(std::size_t count)
{
    static std::map<std::size_t, bench::prepared_set> sets;
    const auto found = sets.find(count);
    return found != sets.end() ? found->second
                               : sets.try_emplace(count, bench::make_kernels(count)).first->second;
}

void place(benchmark::State& state, const bench::way& way, const bench::prepared_set& set)
{
    bench::check(way, set, *way.place(set));
    for ([[maybe_unused]] auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const auto placed = way.place(set);
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(set.set.kernels.size()));
}

void write_elf(benchmark::State& state)
{
    tessjit::elf_data elf;
    for (const kernel_data& kernel : bench::make_kernels(static_cast<std::size_t>(state.range(0))).kernels)
        elf.fns.emplace_back(kernel.name, nullptr, kernel.text, nullptr, kernel.data, kernel.relocs);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(tessjit::emit_elf(elf));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void hash(benchmark::State& state, std::uint64_t (*function)(const std::uint8_t*, std::size_t))
{
    const std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 0xa5);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(function(bytes.data(), bytes.size()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

} // namespace

int main(int argc, char** argv)
{
    for (const std::size_t count : std::initializer_list<std::size_t>{10, 100, 1000, 10000, 50000}) {
        for (const bench::way& way : bench::all_ways()) {
            const std::string name = std::string("place/") + way.name + "/" + std::to_string(count);
            benchmark::RegisterBenchmark(name.c_str(), [way, count](benchmark::State& state) {
                place(state, way, prepared(count));
            })->UseManualTime();
        }
    }
    benchmark::RegisterBenchmark("emit_elf", write_elf)->Arg(1)->Arg(1000);
    benchmark::RegisterBenchmark("hash/byte loop", hash, bench::byte_loop_hash)->Arg(1024)->Arg(65536);
    benchmark::RegisterBenchmark("hash/finaliser", hash, bench::code_hash)->Arg(1024)->Arg(65536);
    benchmark::RegisterBenchmark("hash/memory read", hash, bench::sum_of_words)->Arg(1024)->Arg(65536);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
