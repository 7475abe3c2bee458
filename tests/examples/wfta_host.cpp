// The example host: its Winograd kernels, its planner and its program.

#include "check/check_kernels.hpp"
#include "examples/wfta_host/breakage.hpp"
#include "examples/wfta_host/comparison.hpp"
#include "examples/wfta_host/machine.hpp"
#include "examples/wfta_host/planner.hpp"
#include "examples/wfta_host/short_dft.hpp"
#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"

#include <aarch64/decoder-aarch64.h>
#include <aarch64/disasm-aarch64.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <numeric>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <utility>
#include <vector>

namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_entry;
using vorna::wfta::kernel_registry_map;
using wfta_host::direction;
using wfta_host::make_plan;
using wfta_host::plan;
using wfta_host::short_dft;
using complex = std::complex<double>;

// C. S. Burrus and I. Selesnick, "Winograd's Short DFT Algorithms", table of the number of real
// multiplications and additions for a length-N DFT of complex data; multiplications by one are not counted.
struct published_count {
    unsigned length;
    unsigned multiplications;
    unsigned additions;
};

constexpr published_count published_counts[] = {
    {2, 0, 4}, {3, 4, 12}, {4, 0, 16}, {5, 10, 34}, {7, 16, 72}, {8, 4, 52}, {9, 20, 84}, {16, 20, 148},
};

const short_dft& algorithm_of(unsigned length)
{
    const std::vector<short_dft>& all = wfta_host::short_dfts();
    return *std::find_if(all.begin(), all.end(), [&](const short_dft& dft) { return dft.length == length; });
}

std::vector<std::string> disassembled(const std::vector<std::uint8_t>& text)
{
    vixl::aarch64::Decoder decoder;
    vixl::aarch64::Disassembler disassembler;
    decoder.AppendVisitor(&disassembler);
    std::vector<std::string> lines;
    for (std::size_t offset = 0; offset + 4 <= text.size(); offset += 4) {
        decoder.Decode(reinterpret_cast<const vixl::aarch64::Instruction*>(&text[offset]));
        lines.emplace_back(disassembler.GetOutput());
    }
    return lines;
}

bool starts_with(const std::string& line, const std::string& start)
{
    return line.compare(0, start.size(), start) == 0;
}

std::vector<complex> random_values(std::size_t count)
{
    std::mt19937 generator(1);
    std::vector<complex> values(count);
    for (complex& v : values) {
        const auto next = [&] { return static_cast<double>(generator()) / 0x1p31 - 1; };
        const double re = next();
        v = {re, next()};
    }
    return values;
}

// The definition of the transform.
std::vector<complex> dft_by_definition(const std::vector<complex>& in, direction dir)
{
    const std::size_t n = in.size();
    const long double sign = dir == direction::forward ? -1 : 1;
    std::vector<std::complex<long double>> root(n);
    for (std::size_t i = 0; i < n; ++i) {
        const long double angle =
            sign * 2 * std::acos(-1.0L) * static_cast<long double>(i) / static_cast<long double>(n);
        root[i] = {std::cos(angle), std::sin(angle)};
    }
    std::vector<complex> out(n);
    for (std::size_t k = 0; k < n; ++k) {
        long double re = 0;
        long double im = 0;
        for (std::size_t i = 0, power = 0; i < n; ++i, power = (power + k) % n) {
            re += in[i].real() * root[power].real() - in[i].imag() * root[power].imag();
            im += in[i].real() * root[power].imag() + in[i].imag() * root[power].real();
        }
        out[k] = {static_cast<double>(re), static_cast<double>(im)};
    }
    return out;
}

void expect_close(const std::vector<complex>& got, const std::vector<complex>& expected)
{
    double largest = 0;
    for (const complex& v : expected)
        largest = std::max(largest, std::abs(v));
    const double bound = 1e-14 * std::log2(static_cast<double>(expected.size())) * largest;
    for (std::size_t k = 0; k < expected.size(); ++k)
        ASSERT_LT(std::abs(got[k] - expected[k]), bound) << "output " << k;
}

std::vector<complex> run(const plan& p, const std::vector<complex>& in)
{
    std::vector<complex> out(in.size());
    std::vector<complex> work(in.size());
    wfta_host::run_driver(p.entry, in.data(), out.data(), work.data());
    return out;
}

void expect_every_length_right(direction dir)
{
    kernel_registry_map registry;
    for (const unsigned length : wfta_host::possible_lengths()) {
        SCOPED_TRACE(length);
        const std::vector<complex> in = random_values(length);
        expect_close(run(make_plan(registry, length, dir), in), dft_by_definition(in, dir));
    }
}

// Where the BL at `place` goes.
const std::uint8_t* branch_target(const std::uint8_t* place)
{
    std::uint32_t word;
    std::memcpy(&word, place, sizeof word);
    const auto words = static_cast<std::int32_t>(word << 6) >> 6;
    return place + std::ptrdiff_t{4} * words;
}

// The short kernels that a placed kernel calls, in the order of its code.
std::vector<std::string> callees(const kernel_registry_map& registry, const std::string& name)
{
    std::vector<std::string> found;
    const kernel_registry_entry& caller = registry.at(name);
    for (std::size_t offset = 0; offset < caller.text_len; offset += 4) {
        const std::uint8_t* const place = caller.text_ptr + offset;
        if (place[3] >> 2 != 0x25) // the opcode of BL
            continue;
        for (const auto& [callee, entry] : registry) {
            if (entry.text_ptr == branch_target(place))
                found.push_back(callee);
        }
    }
    return found;
}

struct program_result {
    int status;
    std::string output; // of both streams
};

program_result run_program(const std::string& arguments)
{
    program_result result{};
    std::FILE* const pipe = popen((WFTA_HOST_PROGRAM " " + arguments + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) != 0;)
        result.output.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::size_t count_of(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(ShortKernel, ExecutesExactlyThePublishedNumbersOfRealOperations)
{
    for (const published_count& published : published_counts) {
        SCOPED_TRACE(published.length);
        unsigned multiplications = 0;
        unsigned additions = 0;
        for (const std::string& line :
             disassembled(generate_short_kernel(algorithm_of(published.length)).text)) {
            // The code has no branches, and each of these works on a real and an imaginary part.
            if (starts_with(line, "fmul v") && line.find(".2d,") != std::string::npos)
                multiplications += 2;
            else if ((starts_with(line, "fadd v") || starts_with(line, "fsub v")) &&
                     line.find(".2d,") != std::string::npos)
                additions += 2;
            else
                EXPECT_NE(line[0], 'f') << line;
            EXPECT_FALSE(starts_with(line, "b") || starts_with(line, "cb") || starts_with(line, "tb"))
                << line;
        }
        EXPECT_EQ(multiplications, published.multiplications);
        EXPECT_EQ(additions, published.additions);
    }
}

TEST(ShortKernel, HasTheOperationsOfItsDescription)
{
    ASSERT_EQ(wfta_host::short_dfts().size(), std::size(published_counts));
    for (const published_count& published : published_counts) {
        SCOPED_TRACE(published.length);
        const auto count = real_operations(algorithm_of(published.length));
        EXPECT_EQ(count.multiplications, published.multiplications);
        EXPECT_EQ(count.additions, published.additions);
    }
}

TEST(ShortKernel, LoadsItsConstantsThroughOneAdrpAddPairOnItsOwnData)
{
    for (const short_dft& dft : wfta_host::short_dfts()) {
        const kernel_data kernel = generate_short_kernel(dft);
        SCOPED_TRACE(kernel.name);
        EXPECT_EQ(kernel.data.size() % 16, 0U);
        if (dft.length == 2) {
            EXPECT_THAT(kernel.relocs, IsEmpty());
            continue;
        }
        ASSERT_THAT(kernel.relocs, SizeIs(2));
        EXPECT_EQ(kernel.relocs[0].type, 275);
        EXPECT_EQ(kernel.relocs[1].type, 277);
        EXPECT_EQ(kernel.relocs[1].offset, kernel.relocs[0].offset + 4);
        for (const tessjit::reloc_info& reloc : kernel.relocs) {
            EXPECT_EQ(reloc.name, ".rodata." + kernel.name);
            EXPECT_EQ(reloc.addend, 0);
        }
    }
}

TEST(ShortKernel, LeavesTheRegistersOfItsCallerAlone)
{
    for (const short_dft& dft : wfta_host::short_dfts()) {
        for (const std::string& line : disassembled(generate_short_kernel(dft).text)) {
            EXPECT_THAT(line, testing::Not(ContainsRegex("[vqd](8|9|1[0-5])[.,}]"))) << dft.length;
            EXPECT_THAT(line, testing::Not(ContainsRegex("[xw](19|2[0-9]|30)[^0-9]|sp"))) << dft.length;
        }
    }
}

TEST(ShortKernel, IsRefusedWhenItsValuesOutnumberTheVectorRegisters)
{
    using namespace wfta_host;
    // Two inputs and 22 values that are all still needed when the last of them is computed.
    short_dft greedy{2, {}};
    for (unsigned i = 0; i < 22; ++i)
        greedy.steps.push_back({operation::add, static_cast<value>(s0 + i), x0, x1, 0});
    for (unsigned i = 0; i < 22; ++i)
        greedy.steps.push_back(
            {operation::add, static_cast<value>(p0 + i % 8), static_cast<value>(s0 + i), x0, 0});
    EXPECT_THROW(generate_short_kernel(greedy), std::length_error);
}

TEST(DriverKernel, ReachesItsTablesByAdrAndItsShortKernelsByBl)
{
    const kernel_data driver = wfta_host::generate_driver_kernel({5, 16}, direction::forward);
    const auto target = [](const char* name, int type, int addend) {
        return testing::AllOf(testing::Field(&tessjit::reloc_info::name, name),
                              testing::Field(&tessjit::reloc_info::type, type),
                              testing::Field(&tessjit::reloc_info::addend, addend));
    };
    EXPECT_THAT(driver.relocs,
                ElementsAre(target(".rodata.wfta_80", 274, 0), target("wfta_short_5", 283, 0),
                            target("wfta_short_16", 283, 0), target(".rodata.wfta_80", 274, 80 * 4)));
    EXPECT_THAT(driver.data, SizeIs(2 * 80 * 4));
}

TEST(DriverKernel, ComputesTheSameInTheOrderForInOrderProcessors)
{
    using wfta_host::loop_order;
    const kernel_data plain = wfta_host::generate_driver_kernel({3, 4}, direction::forward);
    const kernel_data in_order =
        wfta_host::generate_driver_kernel({3, 4}, direction::forward, loop_order::in_order);
    EXPECT_NE(plain.text, in_order.text);
    kernel_registry_map registry;
    const std::vector<complex> in = random_values(12);
    expect_close(run(make_plan(registry, 12, direction::forward, nullptr, loop_order::in_order), in),
                 dft_by_definition(in, direction::forward));
}

TEST(Planner, KnowsTheProductsOfMutuallyPrimeShortLengths)
{
    const unsigned short_lengths[] = {2, 3, 4, 5, 7, 8, 9, 16};
    std::map<unsigned, std::vector<unsigned>> products;
    for (unsigned subset = 1; subset < 1U << std::size(short_lengths); ++subset) {
        std::vector<unsigned> factors;
        unsigned product = 1;
        bool prime_to_each_other = true;
        for (unsigned i = 0; i < std::size(short_lengths); ++i) {
            if ((subset >> i & 1) == 0)
                continue;
            prime_to_each_other = prime_to_each_other && std::gcd(product, short_lengths[i]) == 1;
            product *= short_lengths[i];
            factors.push_back(short_lengths[i]);
        }
        if (prime_to_each_other)
            products[product] = factors;
    }
    ASSERT_EQ(products.size(), 59U);
    ASSERT_EQ(products.rbegin()->first, 5040U);

    std::vector<unsigned> lengths;
    for (const auto& [length, factors] : products) {
        lengths.push_back(length);
        EXPECT_EQ(wfta_host::factors_of(length), factors);
    }
    EXPECT_EQ(wfta_host::possible_lengths(), lengths);
}

TEST(Planner, HasNoFactorsForOtherLengths)
{
    for (const unsigned length :
         {0U, 1U, 6U * 6U * 6U, 11U, 25U, 27U, 32U, 49U, 1000U, 5041U, 10080U, 4294967295U})
        EXPECT_THAT(wfta_host::factors_of(length), IsEmpty()) << length;
    kernel_registry_map registry;
    EXPECT_THROW(make_plan(registry, 1000, direction::forward), std::invalid_argument);
    EXPECT_THAT(registry, IsEmpty());
}

TEST(Planner, TransformsEveryLength)
{
    expect_every_length_right(direction::forward);
}

TEST(Planner, TransformsEveryLengthBack)
{
    expect_every_length_right(direction::inverse);
}

TEST(Planner, TransformsInPlace)
{
    kernel_registry_map registry;
    std::vector<complex> values = random_values(240);
    const std::vector<complex> expected = dft_by_definition(values, direction::forward);
    std::vector<complex> work(values.size());
    const plan p = make_plan(registry, 240, direction::forward);
    wfta_host::run_driver(p.entry, values.data(), values.data(), work.data());
    expect_close(values, expected);
}

TEST(Planner, PlacesTheShortKernelsBeforeTheDriverThatCallsThem)
{
    kernel_registry_map registry;
    const plan p = make_plan(registry, 1008, direction::forward);

    EXPECT_THAT(p.factors, ElementsAre(7, 9, 16));
    EXPECT_THAT(p.placed, ElementsAre("wfta_short_7", "wfta_short_9", "wfta_short_16", "wfta_1008"));
    EXPECT_THAT(p.reused, IsEmpty());
    EXPECT_EQ(p.mapping, registry.at("wfta_short_7").text_ptr);
    EXPECT_EQ(p.entry, registry.at("wfta_1008").text_ptr);
    std::size_t code_bytes = 0;
    std::size_t data_bytes = 0;
    for (const auto& [name, entry] : registry) {
        code_bytes += entry.text_len;
        data_bytes += entry.data_len;
    }
    EXPECT_EQ(p.code_bytes, code_bytes);
    EXPECT_EQ(p.data_bytes, data_bytes);
    EXPECT_THAT(callees(registry, "wfta_1008"), ElementsAre("wfta_short_7", "wfta_short_9", "wfta_short_16"));
}

TEST(Planner, CallsShortKernelsOfAnEarlierMapping)
{
    kernel_registry_map registry;
    const plan first = make_plan(registry, 15, direction::forward);
    const kernel_registry_map before = registry;
    const plan second = make_plan(registry, 105, direction::forward);

    EXPECT_THAT(first.placed, ElementsAre("wfta_short_3", "wfta_short_5", "wfta_15"));
    EXPECT_THAT(second.placed, ElementsAre("wfta_short_7", "wfta_105"));
    EXPECT_THAT(second.reused, ElementsAre("wfta_short_3", "wfta_short_5"));
    EXPECT_NE(first.mapping, second.mapping);
    for (const auto& [name, entry] : before)
        EXPECT_EQ(registry.at(name).text_ptr, entry.text_ptr) << name;
    EXPECT_THAT(callees(registry, "wfta_105"), ElementsAre("wfta_short_3", "wfta_short_5", "wfta_short_7"));

    const std::vector<complex> in = random_values(105);
    expect_close(run(second, in), dft_by_definition(in, direction::forward));
}

TEST(Planner, SharesShortKernelsBetweenTheDirections)
{
    kernel_registry_map registry;
    make_plan(registry, 20, direction::forward);
    const plan inverse = make_plan(registry, 20, direction::inverse);
    EXPECT_THAT(inverse.placed, ElementsAre("wfta_20_inverse"));
    EXPECT_THAT(inverse.reused, ElementsAre("wfta_short_4", "wfta_short_5"));
}

TEST(Planner, PlacesNothingForALengthThatItHas)
{
    kernel_registry_map registry;
    const plan first = make_plan(registry, 15, direction::forward);
    const plan again = make_plan(registry, 15, direction::forward);
    EXPECT_THAT(again.placed, IsEmpty());
    EXPECT_THAT(again.reused, ElementsAre("wfta_15"));
    EXPECT_EQ(again.mapping, nullptr);
    EXPECT_EQ(again.code_bytes, 0U);
    EXPECT_EQ(again.data_bytes, 0U);
    EXPECT_EQ(again.entry, first.entry);
    EXPECT_THAT(registry, SizeIs(3));
}

TEST(Planner, KeepsTheDataOfEveryKernelAligned)
{
    kernel_registry_map registry;
    for (const unsigned length : wfta_host::possible_lengths())
        make_plan(registry, length, direction::forward);
    EXPECT_EQ(registry.size(), 8U + 59U);
    for (const auto& [name, entry] : registry)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(entry.data_ptr) % 16, 0U) << name;
}

TEST(Planner, UsesAllFourRelocationKinds)
{
    std::set<int> types;
    for (const unsigned length : {7U, 9U, 16U}) {
        for (const tessjit::reloc_info& reloc : generate_short_kernel(algorithm_of(length)).relocs)
            types.insert(reloc.type);
    }
    for (const tessjit::reloc_info& reloc :
         wfta_host::generate_driver_kernel({7, 9, 16}, direction::forward).relocs)
        types.insert(reloc.type);
    EXPECT_THAT(types, ElementsAre(274, 275, 277, 283));
}

TEST(Comparison, IsWithTheTransformOfFftw)
{
    for (const direction dir : {direction::forward, direction::inverse}) {
        const std::vector<complex> in = random_values(21);
        expect_close(wfta_host::transform_by_fftw(in, dir), dft_by_definition(in, dir));
    }
}

TEST(Comparison, IsTheLargestDifferenceRelativeToTheLargestValue)
{
    EXPECT_EQ(wfta_host::largest_error({{1, 2}, {0, 8}}, {{1, 2}, {0, 8}}), 0);
    EXPECT_EQ(wfta_host::largest_error({{4, 6}, {0, 9}}, {{1, 2}, {0, 8}}), 5.0 / 8);
    EXPECT_EQ(wfta_host::largest_error({{1, 2}, {0, 9}}, {{8, 0}, {0, 0}}), 9.0 / 8);
}

TEST(Comparison, IsNeverPassedByNan)
{
    const complex nan{0, std::numeric_limits<double>::quiet_NaN()};
    for (const auto& got : {std::vector<complex>{nan, 1}, std::vector<complex>{1, nan}})
        EXPECT_FALSE(wfta_host::largest_error(got, {1, 1}) < wfta_host::error_bound(2));
}

TEST(Comparison, AllowsAnErrorThatGrowsWithTheLogarithmOfTheLength)
{
    EXPECT_EQ(wfta_host::error_bound(2), 1e-14);
    EXPECT_EQ(wfta_host::error_bound(16), 4e-14);
}

TEST(Program, ReportsEachLength)
{
    const program_result result = run_program("1008 5040");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.output,
        testing::MatchesRegex("1008 = 7 \\* 9 \\* 16\n"
                              "  placed   wfta_short_7, wfta_short_9, wfta_short_16, wfta_1008\n"
                              "  reused   none\n"
                              "  mapping  0x[0-9a-f]+, [0-9]+ bytes of code, [0-9]+ bytes of data\n"
                              "  error    [0-9].[0-9]+e-1[67] of the largest output, bound 9.98e-14: good\n"
                              "5040 = 5 \\* 7 \\* 9 \\* 16\n"
                              "  placed   wfta_short_5, wfta_5040\n"
                              "  reused   wfta_short_7, wfta_short_9, wfta_short_16\n"
                              "  mapping  0x[0-9a-f]+, [0-9]+ bytes of code, [0-9]+ bytes of data\n"
                              "  error    [0-9].[0-9]+e-1[67] of the largest output, bound 1.23e-13: good\n"
                              "2 of 2 lengths good, run by .*\n"));
}

TEST(Program, RunsAllLengthsInBothDirections)
{
    for (const char* const arguments : {"--all", "--all --inverse"}) {
        const program_result result = run_program(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(count_of(result.output, ": good\n"), 59U);
        EXPECT_THAT(result.output, ContainsRegex("\n59 of 59 lengths good, run by .*\n$"));
    }
    EXPECT_EQ(count_of(run_program("--all --inverse").output, ", inverse\n"), 59U);
}

TEST(Program, IsAbortedByTheFinaliserWhenItBreaksARelocation)
{
    const program_result result = run_program("--break 12");
    EXPECT_EQ(result.status, 128 + SIGABRT) << result.output; // as the shell says it
    EXPECT_THAT(result.output, testing::ContainsRegex(
                                   "R_AARCH64_CALL26 reloc but dst address 0x[0-9a-f]+ was already filled"));
}

TEST(Program, ListsTheMistakesThatItCanMake)
{
    const program_result result = run_program("--break=help");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(count_of(result.output, "\n"), wfta_host::breakages().size());
    EXPECT_THAT(result.output,
                testing::StartsWith("callee-order       the driver is placed before the kernels "
                                    "that it calls: the finaliser ends the process\n"));
    const program_result unknown = run_program("--break=everything 12");
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.output, "wfta_host: no mistake everything, --break=help lists them\n");
}

TEST(Breakages, HaveTheEffectThatTheirListSays)
{
    for (const wfta_host::breakage& breakage : wfta_host::breakages()) {
        const program_result result = run_program("--break=" + breakage.kind + " 12");
        SCOPED_TRACE(breakage.kind + "\n" + result.output);
        const bool of_finaliser = result.output.find("kernel_printer.cpp") != std::string::npos;
        EXPECT_EQ(of_finaliser, breakage.leads_to == wfta_host::outcome::ended);
        switch (breakage.leads_to) {
        case wfta_host::outcome::ended:
            EXPECT_EQ(result.status, 128 + SIGABRT);
            break;
        case wfta_host::outcome::crashes:
            EXPECT_NE(result.status, 0);
            EXPECT_EQ(count_of(result.output, "12 = 3 * 4"), 0U);
            break;
        case wfta_host::outcome::wrong:
            EXPECT_EQ(result.status, 1);
            EXPECT_EQ(count_of(result.output, "TOO LARGE"), 1U);
            break;
        case wfta_host::outcome::good:
            EXPECT_EQ(result.status, 0);
            EXPECT_EQ(count_of(result.output, ": good"), 1U);
        }
    }
}

TEST(Breakages, AreFoundBeforeTheSetIsFinalised)
{
    for (const wfta_host::breakage& breakage : wfta_host::breakages()) {
        SCOPED_TRACE(breakage.kind);
        kernel_registry_map registry;
        std::vector<vorna::wfta::kernel_data> kernels = {
            generate_short_kernel(algorithm_of(3)), generate_short_kernel(algorithm_of(4)),
            wfta_host::generate_driver_kernel({3, 4}, direction::forward)};
        EXPECT_THAT(vorna::wfta::check_kernels(registry, kernels), IsEmpty());
        breakage.apply(registry, kernels);
        std::set<std::string> ids;
        bool ends = false;
        for (const vorna::wfta::kernel_finding& finding : vorna::wfta::check_kernels(registry, kernels)) {
            ids.insert(name_of(finding.id));
            ends = ends || finding.aborts;
        }
        EXPECT_EQ(ends, breakage.leads_to == wfta_host::outcome::ended);
        const std::string id = breakage.kind == "provisional" ? "field-filled" : breakage.kind;
        // What only a decoder of instructions finds is found in the dumps, as the next test shows.
        const std::set<std::string> not_found = {"abi-callee-saved", "falls-through", "outside-constants",
                                                 "writes-constants"};
        EXPECT_EQ(ids.count(id), not_found.count(breakage.kind) == 0 ? 1U : 0U);
        // What the finding implies: the relocation that was moved is at another instruction; a call between
        // instructions is to where no kernel begins.
        const std::map<std::string, std::string> implied = {{"field-filled", "opcode"},
                                                            {"range", "call-target"}};
        ids.erase(id);
        if (breakage.kind != "provisional" && implied.count(breakage.kind) != 0)
            ids.erase(implied.at(breakage.kind));
        EXPECT_THAT(ids, IsEmpty());
    }
}

#ifdef VORNA_KERNELS
TEST(Breakages, AreFoundInTheDumps)
{
    // Where the dumps cannot tell: the refused kernel of a name that is taken has none, nor has a callee that
    // comes later, or that the host registers.
    const std::map<std::string, std::string> by_check = {{"callee-order", "unknown-target"},
                                                         {"duplicate-name", "no findings"},
                                                         {"null-target", "unknown-target"},
                                                         {"provisional", "field-filled"}};
    const std::map<std::string, std::string> by_explain = {{"callee-order", "unknown-target"},
                                                           {"provisional", "field-filled"}};
    for (const wfta_host::breakage& breakage : wfta_host::breakages()) {
        const support::temp_directory directory;
        const auto run = [&](const std::string& command) {
            const std::string line = "cd '" + directory.path().string() + "' && " + command + " 2>&1";
            std::FILE* const pipe = popen(line.c_str(), "r");
            char buffer[4096];
            std::string text;
            for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) != 0;)
                text.append(buffer, n);
            pclose(pipe);
            return text;
        };
        run("mkdir dumps && cd dumps && VORNA_WFTA_DUMP_KERNEL= " WFTA_HOST_PROGRAM " --break=" +
            breakage.kind + " 12 >../log");
        const std::string checked = run(VORNA_KERNELS " check dumps");
        SCOPED_TRACE(breakage.kind + "\n" + checked);
        const auto in_check = by_check.find(breakage.kind);
        const std::string found = in_check == by_check.end() ? breakage.kind : in_check->second;
        EXPECT_THAT(checked, testing::HasSubstr(found == "no findings" ? found : "[" + found + "]"));
        const std::string explained = run(VORNA_KERNELS " explain log --dumps dumps");
        if (breakage.leads_to == wfta_host::outcome::crashes) {
            EXPECT_THAT(explained, testing::StartsWith("error: SIG"));
            EXPECT_THAT(explained, testing::HasSubstr("[" + breakage.kind + "]\n"));
            continue;
        }
        if (breakage.leads_to != wfta_host::outcome::ended) {
            EXPECT_THAT(explained, testing::StartsWith("no report of an abort in log\n"));
            continue;
        }
        const auto in_report = by_explain.find(breakage.kind);
        EXPECT_THAT(explained,
                    testing::HasSubstr(
                        "[" + (in_report == by_explain.end() ? breakage.kind : in_report->second) + "]\n"));
    }
}
#endif

TEST(Program, ListsTheRegistry)
{
    const program_result result = run_program("--list 15");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, ContainsRegex("\nwfta_15 +0x[0-9a-f]+ +[0-9]+ +0x[0-9a-f]+ +128\n"
                                             "wfta_short_3 +0x[0-9a-f]+ +[0-9]+ +0x[0-9a-f]+ +32\n"
                                             "wfta_short_5 +0x[0-9a-f]+ +[0-9]+ +0x[0-9a-f]+ +64\n"));
}

TEST(Program, WritesHowOftenEachInstructionRan)
{
    const support::temp_directory directory;
    const std::filesystem::path file = directory.path() / "profile";
    const program_result result = run_program("--profile " + file.string() + " 12");
    if (!wfta_host::machine_counts) {
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output,
                  "wfta_host: --profile counts in a simulator; perf record profiles this processor\n");
        return;
    }
    EXPECT_EQ(result.status, 0) << result.output;

    kernel_registry_map registry; // of other addresses
    const plan p = make_plan(registry, 12, direction::forward);
    const kernel_registry_entry& last = registry.at("wfta_12");
    std::istringstream text(support::contents(file));
    std::string line;
    std::getline(text, line);
    const std::regex mapping(" *([0-9]+) +0\\.000000: PERF_RECORD_MMAP2 \\1/\\1: "
                             "\\[0x([0-9a-f]+)\\(0x([0-9a-f]+)\\) @ 0x\\2 00:00 0 0\\]: rwxp //anon");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, mapping)) << line;
    const std::string pid = parts[1];
    const std::uintptr_t begin = std::stoull(parts[2], nullptr, 16);
    EXPECT_EQ(std::stoull(parts[3], nullptr, 16),
              static_cast<std::uintptr_t>(last.data_ptr + last.data_len - p.mapping));

    // Four transforms of three points, three of four; each runs through without a branch.
    std::map<std::uintptr_t, unsigned> expected;
    for (const auto& [name, times] : {std::pair("wfta_short_3", 4U), std::pair("wfta_short_4", 3U)}) {
        const kernel_registry_entry& kernel = registry.at(name);
        for (std::size_t offset = 0; offset < kernel.text_len; offset += 4)
            expected[static_cast<std::uintptr_t>(kernel.text_ptr - p.mapping) + offset] = times;
    }
    const std::regex sample(" *" + pid + " +1\\.000000: +([0-9]+) executions: +([0-9a-f]+)");
    const auto driver = static_cast<std::uintptr_t>(last.text_ptr - p.mapping);
    std::size_t of_driver = 0;
    while (std::getline(text, line)) {
        ASSERT_TRUE(std::regex_match(line, parts, sample)) << line;
        const std::uintptr_t offset = std::stoull(parts[2], nullptr, 16) - begin;
        if (offset >= driver && offset < driver + last.text_len)
            ++of_driver;
        else
            EXPECT_EQ(std::stoul(parts[1]), expected[offset]) << offset;
        expected.erase(offset);
    }
    EXPECT_EQ(of_driver, last.text_len / 4);
    EXPECT_THAT(expected, IsEmpty());
}

TEST(Program, ReportsThatItCannotWriteTheProfile)
{
    if (!wfta_host::machine_counts)
        GTEST_SKIP() << "nothing is counted on this machine";
    for (const auto& [file, reason] : {std::pair("/dev/full", "No space left on device"),
                                       std::pair("/dev/null/profile", "Not a directory")}) {
        const program_result result = run_program(std::string("--profile ") + file + " 12");
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.output,
                    testing::HasSubstr(std::string("wfta_host: ") + file + ": " + reason + "\n"));
    }
}

TEST(Program, NamesTheSupportedLengthsNearestToAnUnsupportedOne)
{
    const std::pair<const char*, const char*> cases[] = {
        {"1000", "wfta_host: length 1000 is not possible, the nearest are 840 and 1008\n"},
        {"15 11", "wfta_host: length 11 is not possible, the nearest are 10 and 12\n"},
        {"1", "wfta_host: length 1 is not possible, the nearest is 2\n"},
        {"0", "wfta_host: length 0 is not possible, the nearest is 2\n"},
        {"-- -7", "wfta_host: length -7 is not possible, the nearest is 2\n"},
        {"5041", "wfta_host: length 5041 is not possible, the nearest is 5040\n"},
        {"4294967298", "wfta_host: length 4294967298 is not possible, the nearest is 5040\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const program_result result = run_program(arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_EQ(result.output, message) << arguments;
    }
}

TEST(Program, AnswersBadArgumentsWithOneLine)
{
    for (const char* const arguments : {"", "fifteen", "15 --frobnicate"}) {
        const program_result result = run_program(arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_THAT(result.output, testing::MatchesRegex("wfta_host: [^\n]+\n")) << arguments;
    }
}

} // namespace
