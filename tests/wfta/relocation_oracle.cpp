// Random relocations against an oracle that follows the other direction: it decodes the patched instruction
// as a processor would, by the instruction set's definitions of ADR, ADRP, ADD (immediate) and BL, and
// compares the address that the instruction computes with the symbol, as "ELF for the Arm 64-bit
// Architecture" defines each relocation.

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/one_word_kernel.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/random_seed.hpp"

#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace vorna::wfta;

/// The low `width` bits of `value` as a two's complement number.
std::int64_t sign_extend(std::uint64_t value, unsigned width)
{
    const std::uint64_t sign = std::uint64_t{1} << (width - 1);
    return static_cast<std::int64_t>(value % (2 * sign)) - static_cast<std::int64_t>(value & sign) * 2;
}

std::uint64_t field(std::uint32_t word, unsigned low, unsigned width)
{
    return (word >> low) % (std::uint64_t{1} << width);
}

/// What the generated instruction is and where it has to lead.
struct sample {
    std::int32_t type;
    std::uint32_t word; // with zero immediate and random other fields
    std::uint64_t S;    // symbol plus addend
    bool own_name;      // through the kernel's own name, or an entry that the host made
    std::int32_t addend;
};

constexpr std::uint64_t page = 4096;

/// Whether the instruction at P addresses S, and differs from the previous one in its immediate only.
bool leads_to(std::uint32_t patched, const sample& s, std::uint64_t P)
{
    const std::uint64_t adr_immediate = field(patched, 5, 19) * 4 + field(patched, 29, 2);
    switch (s.type) {
    case R_AARCH64_ADR_PREL_LO21:
        return P + static_cast<std::uint64_t>(sign_extend(adr_immediate, 21)) == s.S &&
               (patched & ~(0x7ffffU << 5 | 3U << 29)) == s.word;
    case R_AARCH64_ADR_PREL_PG_HI21:
        return P / page * page + static_cast<std::uint64_t>(sign_extend(adr_immediate, 21)) * page ==
                   s.S / page * page &&
               (patched & ~(0x7ffffU << 5 | 3U << 29)) == s.word;
    case R_AARCH64_ADD_ABS_LO12_NC:
        return field(patched, 10, 12) == s.S % page && (patched & ~(0xfffU << 10)) == s.word;
    default:
        return P + static_cast<std::uint64_t>(sign_extend(field(patched, 0, 26), 26)) * 4 == s.S &&
               patched >> 26 == s.word >> 26;
    }
}

/// Half of them evenly spread over the range, half of them with evenly spread magnitudes.
std::int64_t random_distance(std::mt19937_64& random, unsigned width)
{
    const std::uint64_t bits = random();
    return sign_extend(bits, random() % 2 == 0 ? width : 1 + static_cast<unsigned>(random() % width));
}

sample random_sample(std::mt19937_64& random, std::uint64_t text, std::uint64_t P)
{
    const auto fresh = static_cast<std::uint32_t>(random());
    sample s{};
    switch (random() % 4) {
    case 0:
        s.type = R_AARCH64_ADR_PREL_LO21;
        s.word = fresh & ~(0x7ffffU << 5 | 3U << 29);
        s.S = P + static_cast<std::uint64_t>(random_distance(random, 21));
        break;
    case 1:
        s.type = R_AARCH64_ADR_PREL_PG_HI21;
        s.word = fresh & ~(0x7ffffU << 5 | 3U << 29);
        s.S = P / page * page + static_cast<std::uint64_t>(random_distance(random, 21)) * page +
              random() % page;
        break;
    case 2:
        s.type = R_AARCH64_ADD_ABS_LO12_NC;
        s.word = fresh & ~(0xfffU << 10);
        s.S = random();
        break;
    default:
        s.type = R_AARCH64_CALL26;
        s.word = fresh & ~0x3ffffffU;
        s.S = P + static_cast<std::uint64_t>(random_distance(random, 26)) * 4;
    }
    const std::int64_t from_own_name = static_cast<std::int64_t>(s.S - text);
    s.own_name = random() % 2 == 0 && from_own_name == static_cast<std::int32_t>(from_own_name);
    s.addend = static_cast<std::int32_t>(s.own_name ? from_own_name : static_cast<std::int64_t>(random()));
    if (s.S == static_cast<std::uint64_t>(std::int64_t{s.addend})) {
        ++s.addend; // the entry would lie at null
    }
    return s;
}

TEST(RelocationOracle, RandomRelocationsReachTheirTargets)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    constexpr int sets = 100;
    constexpr std::size_t words = 2500; // more than two pages
    address_range range(0x10000);
    platform_spy spy;

    for (int set = 0; set < sets; ++set) {
        kernel_registry_map registry;
        kernel_data k = kernel("k", {});
        std::vector<std::uint32_t> code_words;
        std::vector<sample> samples;
        for (std::size_t i = 0; i < words; ++i) {
            const std::uint64_t P = number(range.begin()) + 4 * i;
            const sample s = random_sample(random, number(range.begin()), P);
            const std::string host_name = std::to_string(i);
            if (!s.own_name) {
                registry[host_name].text_ptr =
                    address(s.S - static_cast<std::uint64_t>(std::int64_t{s.addend}));
            }
            k.relocs.push_back(
                {s.own_name ? "k" : host_name, static_cast<std::int32_t>(4 * i), s.type, s.addend});
            code_words.push_back(s.word);
            samples.push_back(s);
        }
        k.text = code(code_words);
        spy.place = range.begin();
        finalise_kernels(registry, {k});

        for (std::size_t i = 0; i < words; ++i) {
            const std::uint8_t* const P = range.begin() + 4 * i;
            ASSERT_TRUE(leads_to(word_at(P), samples[i], number(P)))
                << "set " << set << ", word " << i << ", type " << samples[i].type << ": "
                << hex(samples[i].word) << " became " << hex(word_at(P)) << " at " << hex(number(P))
                << ", target " << hex(samples[i].S);
        }
    }
}

TEST(RelocationOracle, RandomDistancesOutOfRangeAreRejected)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    one_word_kernel k;
    struct kind {
        std::int32_t type;
        unsigned width;
        std::uint64_t part; // of an address that counts
        std::string text;
    };
    const kind kinds[] = {
        {R_AARCH64_ADR_PREL_LO21, 21, ~std::uint64_t{0},
         "R_AARCH64_ADR_PREL_LO21 reloc but smod does not fit in +/-1M"},
        {R_AARCH64_ADR_PREL_PG_HI21, 33, ~std::uint64_t{0xfff},
         "R_AARCH64_ADR_PREL_PG_HI21 reloc but smod does not fit in +/-4G"},
        {R_AARCH64_CALL26, 28, ~std::uint64_t{0}, "R_AARCH64_CALL26 reloc but smod does not fit in +/-128M"}};
    for (int i = 0; i < 60; ++i) {
        const kind& kind = kinds[i % 3];
        // A magnitude of at least 2^(width - 1): the sign bit of the field is the lowest of those kept.
        const unsigned shift = static_cast<unsigned>(random() % (65 - kind.width));
        const std::uint64_t magnitude = (random() | std::uint64_t{1} << 63) >> (64 - kind.width - shift);
        const bool backwards = random() % 2 == 0;
        const std::uint64_t S = backwards ? k.P() - magnitude - page : k.P() + magnitude;
        const std::uint64_t X = (S & kind.part) - k.P();
        k.expect_rejected(0, kind.type, S, 0,
                          "resolving " + kind.text + ", got " + hex(S & kind.part) + " - " + hex(k.P()) +
                              " = " + hex(X));
    }
}

} // namespace
