// Runs one case so that callgrind can count its instructions: wfta_count CASE [N]. It counts the function
// `measured`; whatever happens once per process has happened before.

#include "bench/hash.hpp"
#include "bench/ways.hpp"

#include "jit/elf.hpp"

#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>

using vorna::wfta::kernel_data;

extern "C" {
[[gnu::noinline]] void measured(const std::function<void()>& work)
{
    work();
}
}

namespace {

void run_twice(const std::function<void()>& work)
{
    work();
    measured(work);
}

bool run_hash(const std::string& name, std::size_t size)
{
    const std::vector<std::uint8_t> bytes(size, 0xa5);
    const auto function = name == "hash"         ? bench::code_hash
                          : name == "hash-bytes" ? bench::byte_loop_hash
                                                 : nullptr;
    if (function == nullptr)
        return false;
    run_twice([&] {
        volatile std::uint64_t result = function(bytes.data(), bytes.size());
        static_cast<void>(result);
    });
    return true;
}

bool run_emit_elf(const std::string& name, std::size_t count)
{
    if (name != "emit_elf")
        return false;
    tessjit::elf_data elf;
    for (const kernel_data& kernel : bench::make_kernels(count).kernels)
        elf.fns.emplace_back(kernel.name, nullptr, kernel.text, nullptr, kernel.data, kernel.relocs);
    run_twice([&] { tessjit::emit_elf(elf); });
    return true;
}

bool run_placement(const std::string& name, bench::kernel_set set)
{
    for (const bench::way& way : bench::all_ways()) {
        if (way.name != name)
            continue;
        const bench::prepared_set prepared(std::move(set));
        std::unique_ptr<bench::placement> placed;
        way.place(prepared);
        measured([&] { placed = way.place(prepared); });
        bench::check(way, prepared, *placed);
        return true;
    }
    return false;
}

// The finaliser on kernels with 64 relocations of one kind, or with none.
bool run_kind(const std::string& name, std::size_t count)
{
    const char* const names[] = {"kind:adrp-own-data", "kind:add-own-data", "kind:adr-self",
                                 "kind:call-self",     "kind:call-other",   "kind:none"};
    for (std::size_t kind = 0; kind < std::size(names); ++kind) {
        if (name != names[kind])
            continue;
        const std::size_t relocations = name == "kind:none" ? 0 : 64;
        return run_placement("finaliser", bench::make_kernels_of_one_kind(
                                              count, static_cast<bench::reference>(kind), relocations));
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    const std::size_t count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
    if (count == 0) {
        std::fprintf(stderr, "usage: wfta_count CASE N\n");
        return 2;
    }
    const std::string name = argv[1];
    if (run_hash(name, count) || run_emit_elf(name, count) || run_kind(name, count) ||
        run_placement(name, bench::make_kernels(count)))
        return 0;
    std::fprintf(stderr, "wfta_count: no case is named \"%s\"\n", argv[1]);
    return 2;
}
