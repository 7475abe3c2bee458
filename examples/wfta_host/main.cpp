// wfta_host: plans transforms of the given lengths, runs them and compares the results with FFTW's.

#include "examples/wfta_host/comparison.hpp"
#include "examples/wfta_host/machine.hpp"
#include "examples/wfta_host/planner.hpp"
#include "examples/wfta_host/profile.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <random>
#include <string>
#include <vector>

using vorna::wfta::kernel_registry_map;
using wfta_host::complex_signal;
using wfta_host::direction;
using wfta_host::instruction_counts;
using wfta_host::loop_order;
using wfta_host::plan;

namespace {

complex_signal random_signal(unsigned length)
{
    // A fixed seed: every run sees the same data. NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp)
    std::mt19937_64 generator(length);
    std::uniform_real_distribution<double> uniform(-1, 1);
    complex_signal values(length);
    for (std::complex<double>& v : values) {
        const double re = uniform(generator);
        v = {re, uniform(generator)};
    }
    return values;
}

complex_signal transform_by_kernels(const plan& p, const complex_signal& in, instruction_counts* counts)
{
    complex_signal out(in.size());
    complex_signal work(in.size());
    wfta_host::run_driver(p.entry, in.data(), out.data(), work.data(), counts);
    return out;
}

std::string joined(const std::vector<std::string>& words, const char* separator)
{
    std::string all;
    for (const std::string& word : words)
        all += (all.empty() ? "" : separator) + word;
    return all.empty() ? "none" : all;
}

// Returns whether the error is within the bound.
bool report(const plan& p, double error)
{
    std::vector<std::string> factors;
    for (const unsigned factor : p.factors)
        factors.push_back(std::to_string(factor));
    const double bound = wfta_host::error_bound(p.length);
    const bool good = error < bound;

    std::printf("%u = %s%s\n", p.length, joined(factors, " * ").c_str(),
                p.dir == direction::inverse ? ", inverse" : "");
    std::printf("  placed   %s\n", joined(p.placed, ", ").c_str());
    std::printf("  reused   %s\n", joined(p.reused, ", ").c_str());
    if (p.mapping != nullptr) {
        std::printf("  mapping  %p, %zu bytes of code, %zu bytes of data\n",
                    static_cast<const void*>(p.mapping), p.code_bytes, p.data_bytes);
    } else {
        std::printf("  mapping  none, 0 bytes of code, 0 bytes of data\n");
    }
    std::printf("  error    %.2e of the largest output, bound %.2e: %s\n", error, bound,
                good ? "good" : "TOO LARGE");
    return good;
}

void print_registry(const kernel_registry_map& registry)
{
    std::printf("%-20s %18s %6s %18s %6s\n", "kernel", "code at", "bytes", "data at", "bytes");
    for (const auto& [name, kernel] : registry) {
        std::printf("%-20s %18p %6zu %18p %6zu\n", name.c_str(), static_cast<const void*>(kernel.text_ptr),
                    kernel.text_len, static_cast<const void*>(kernel.data_ptr), kernel.data_len);
    }
}

void print_breakages()
{
    static constexpr const char* outcomes[] = {"the finaliser ends the process", "the kernel crashes",
                                               "the results are wrong", "the results are right"};
    for (const wfta_host::breakage& breakage : wfta_host::breakages())
        std::printf("%-17s  %s: %s\n", breakage.kind.c_str(), breakage.description.c_str(),
                    outcomes[static_cast<int>(breakage.leads_to)]);
}

// Prints one line with the nearest possible lengths.
void reject(std::int64_t length)
{
    const std::vector<unsigned>& possible = wfta_host::possible_lengths();
    const auto above = std::upper_bound(possible.begin(), possible.end(), length);
    std::string nearest;
    if (above == possible.begin())
        nearest = "the nearest is " + std::to_string(*above);
    else if (above == possible.end())
        nearest = "the nearest is " + std::to_string(above[-1]);
    else
        nearest = "the nearest are " + std::to_string(above[-1]) + " and " + std::to_string(*above);
    std::fprintf(stderr, "wfta_host: length %s is not possible, %s\n", std::to_string(length).c_str(),
                 nearest.c_str());
}

int run(int argc, char** argv)
{
    std::vector<std::int64_t> lengths;
    bool all = false;
    bool inverse = false;
    bool list = false;
    bool in_order = false;
    std::string kind;
    std::string profile;

    CLI::App app("Generates Winograd kernels, places and links them with the kernel finaliser, runs them and "
                 "compares the results with FFTW's.",
                 "wfta_host");
    app.add_option("lengths", lengths, "transform lengths");
    app.add_flag("--all", all, "all possible lengths");
    app.add_flag("--inverse", inverse, "transform with the other sign of the exponent");
    app.add_flag("--list", list, "print the kernel registry at the end");
    app.add_flag("--in-order", in_order, "order loops for processors that issue in the order of the program");
    app.add_flag(
        "--break{field-filled}", kind,
        "make a mistake in each set, as --break=KIND; --break=help lists them; field-filled without");
    app.add_option("--profile", profile, "write how often each instruction ran, for vorna-kernels profile")
        ->type_name("FILE");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    }
    if (kind == "help") {
        print_breakages();
        return 0;
    }
    const wfta_host::breakage* const breakage = wfta_host::find_breakage(kind);
    if (!kind.empty() && breakage == nullptr) {
        std::fprintf(stderr, "wfta_host: no mistake %s, --break=help lists them\n", kind.c_str());
        return 2;
    }
    if (!profile.empty() && !wfta_host::machine_counts) {
        std::fprintf(stderr, "wfta_host: --profile counts in a simulator; perf record profiles %s\n",
                     wfta_host::machine_name);
        return 2;
    }
    const std::vector<unsigned>& possible = wfta_host::possible_lengths();
    if (all)
        lengths.assign(possible.begin(), possible.end());
    if (lengths.empty()) {
        std::fprintf(stderr, "wfta_host: give one or more lengths, or --all\n");
        return 2;
    }
    for (const std::int64_t length : lengths) {
        if (std::count(possible.begin(), possible.end(), length) == 0) {
            reject(length);
            return 2;
        }
    }

    kernel_registry_map registry;
    const direction dir = inverse ? direction::inverse : direction::forward;
    const loop_order order = in_order ? loop_order::in_order : loop_order::plain;
    std::size_t good = 0;
    std::vector<plan> plans;
    instruction_counts counts;
    for (const std::int64_t length : lengths) {
        plans.push_back(make_plan(registry, static_cast<unsigned>(length), dir, breakage, order));
        const plan& p = plans.back();
        const complex_signal in = random_signal(p.length);
        const complex_signal expected = transform_by_fftw(in, dir);
        const complex_signal got = transform_by_kernels(p, in, profile.empty() ? nullptr : &counts);
        if (report(p, wfta_host::largest_error(got, expected)))
            ++good;
    }
    if (!profile.empty())
        write_profile(profile, registry, plans, counts);
    if (list)
        print_registry(registry);
    std::printf("%zu of %zu lengths good, run by %s\n", good, lengths.size(), wfta_host::machine_name);
    return good == lengths.size() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "wfta_host: %s\n", error.what());
        return 2;
    }
}
