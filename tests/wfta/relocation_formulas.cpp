// The relocations by the formulas of a formal model of ELF linking: linksem, which is written in Lem.
// Transcribed from src/ of github.com/rems-project/linksem are
//
// - abis/aarch64/abi_aarch64_symbolic_relocation.lem (0417d1e): X, its range, its alignment, its bits;
// - abis/aarch64/abi_aarch64_relocation.lem (e69099f): X of ADR, which the file above leaves out;
// - abis/aarch64/abi_aarch64_instruction_fields.lem (bf6dfb4): where the bits go, and the range of ADR;
// - abis/abi_symbolic_relocation.lem (5a40854), symbolic_resolution.lem (5eda6a0): what these mean.
//
// docs/testing.md says where the model differs from the ABI and from the finaliser.

#include "tests/support/child.hpp"
#include "tests/support/far_reaching_sets.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"
#include "tests/support/random_seed.hpp"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace vorna::wfta;

__extension__ using integer = __int128; // holds every sum and difference of addresses and addends

integer two_to(unsigned exponent)
{
    return integer{1} << exponent;
}

/// On the two's complement image of 64 bits, as all bit operations of the model.
integer page(integer x)
{
    return static_cast<std::uint64_t>(x) & ~std::uint64_t{0xfff};
}

struct field_piece {
    unsigned insn_lo;
    unsigned value_lo; // in the selected bits of X
    unsigned bits;
};

struct relocation_formula {
    const char* instruction;
    std::int32_t type;
    integer (*X)(integer S, integer A, integer P);
    std::optional<integer> limit; // -limit <= X < limit
    unsigned alignment_bits;
    unsigned low_bit; // of X that is selected
    std::vector<field_piece> pieces;
};

std::ostream& operator<<(std::ostream& stream, const relocation_formula& formula)
{
    return stream << formula.instruction;
}

integer relative(integer S, integer A, integer P)
{
    return S + A - P;
}

integer pages(integer S, integer A, integer P)
{
    return page(S + A) - page(P);
}

integer absolute(integer S, integer A, integer)
{
    return S + A;
}

const relocation_formula formulas[] = {
    {"Adr", R_AARCH64_ADR_PREL_LO21, relative, two_to(20), 0, 0, {{29, 0, 2}, {5, 2, 19}}},
    {"Adrp", R_AARCH64_ADR_PREL_PG_HI21, pages, two_to(32), 0, 12, {{29, 0, 2}, {5, 2, 19}}},
    {"Add", R_AARCH64_ADD_ABS_LO12_NC, absolute, {}, 0, 0, {{10, 0, 12}}},
    {"Bl", R_AARCH64_CALL26, relative, two_to(27), 2, 2, {{0, 0, 26}}}};

const relocation_formula& formula_of(std::int32_t type)
{
    return *std::find_if(std::begin(formulas), std::end(formulas),
                         [type](const relocation_formula& formula) { return formula.type == type; });
}

/// The word with the relocation applied; nothing if a check of the model fails.
std::optional<std::uint32_t> relocated(const relocation_formula& formula, std::uint32_t word, std::uint64_t S,
                                       std::int32_t A, std::uint64_t P)
{
    const integer X = formula.X(S, A, P);
    if (formula.limit && (X < -*formula.limit || X >= *formula.limit)) {
        return std::nullopt;
    }
    if (X % two_to(formula.alignment_bits) != 0) {
        return std::nullopt;
    }
    const std::uint64_t selected = static_cast<std::uint64_t>(X) >> formula.low_bit;
    for (const field_piece& piece : formula.pieces) {
        const std::uint64_t ones = (std::uint64_t{1} << piece.bits) - 1;
        word &= ~static_cast<std::uint32_t>(ones << piece.insn_lo);
        word |= static_cast<std::uint32_t>((selected >> piece.value_lo & ones) << piece.insn_lo);
    }
    return word;
}

TEST(RelocationFormulas, GiveTheCodeOfRandomSets)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    constexpr std::size_t room = std::size_t{256} << 20; // twice as far as BL reaches
    const address_range range(room);
    std::map<std::int32_t, unsigned> compared;
    for (unsigned round = 0; round < test_size(300, 2000); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        far_reaching_sets sets(seed + round, number(range.begin()), number(range.begin()) + room);
        kernel_registry_map registry;
        registry["far"] = {address(sets.far_kernel), 0, nullptr, 0};
        for (unsigned call = 0; call < 5; ++call) {
            const std::vector<kernel_data> kernels = sets.next(4);
            platform_spy spy;
            spy.place = address(sets.place);
            finalise_kernels(registry, kernels);
            for (const kernel_data& kernel : kernels) {
                const kernel_registry_entry& own = registry.at(kernel.name);
                std::vector<std::uint8_t> expected = kernel.text;
                for (const tessjit::reloc_info& reloc : kernel.relocs) {
                    const auto offset = static_cast<std::uint64_t>(reloc.offset);
                    const std::uint64_t S = reloc.name == ".rodata." + kernel.name
                                                ? number(own.data_ptr)
                                                : number(registry.at(reloc.name).text_ptr);
                    const auto word = relocated(formula_of(reloc.type), word_at(&kernel.text[offset]), S,
                                                reloc.addend, number(own.text_ptr) + offset);
                    ASSERT_TRUE(word) << kernel.name << "+" << offset;
                    std::memcpy(&expected[offset], &*word, sizeof *word);
                    ++compared[reloc.type];
                }
                ASSERT_EQ(std::vector<std::uint8_t>(own.text_ptr, own.text_ptr + own.text_len), expected)
                    << kernel.name;
            }
        }
    }
    for (const relocation_formula& formula : formulas) {
        EXPECT_GT(compared[formula.type], 1000U) << formula;
    }
}

/// A kernel of two pages, linked at a known place with one relocation, against an entry that the host made.
class RelocationFormula : public testing::TestWithParam<relocation_formula> {
protected:
    /// Expects what the formula says, the word or that the finaliser ends the process, for a target at this
    /// distance from the place; of ADRP, from its page.
    void expect_as_by_formula(std::int64_t distance, std::int32_t addend, std::int32_t offset)
    {
        SCOPED_TRACE("distance " + std::to_string(distance) + ", addend " + std::to_string(addend) + ", at " +
                     std::to_string(offset));
        const std::uint64_t P = number(range.begin()) + static_cast<std::uint64_t>(offset);
        const std::uint64_t base = GetParam().type == R_AARCH64_ADR_PREL_PG_HI21 ? P / 4096 * 4096 : P;
        const std::uint64_t S = base + static_cast<std::uint64_t>(distance - addend);
        kernels.front().relocs = {{"target", offset, GetParam().type, addend}};
        kernel_registry_map registry = {{"target", {address(S), 0, nullptr, 0}}};
        const auto link = [&] {
            platform_spy spy;
            spy.place = range.begin();
            finalise_kernels(registry, kernels);
        };
        if (const auto word = relocated(GetParam(), 0, S, addend, P)) {
            ++accepted;
            link();
            EXPECT_EQ(word_at(address(P)), *word);
        } else {
            ++refused;
            const child_result child = run_in_child(link);
            EXPECT_EQ(child.signal, SIGABRT) << child;
            EXPECT_NE(child.err.find(" does not fit in "), std::string::npos) << child;
        }
    }

    static constexpr std::size_t words = 0x800;
    const address_range range{0x10000};
    std::vector<kernel_data> kernels = {kernel("k", std::vector<std::uint32_t>(words))};
    unsigned accepted = 0;
    unsigned refused = 0;
};

TEST_P(RelocationFormula, HoldsAtTheEndsOfTheRange)
{
    const auto limit = static_cast<std::int64_t>(GetParam().limit.value_or(0));
    for (const std::int64_t end : {-limit, limit}) {
        for (const std::int64_t step : {-4096, -4095, -8, -4, -2, -1, 0, 1, 2, 4, 4095, 4096}) {
            for (const std::int32_t offset : {0, 0xffc, 0x1004}) {
                expect_as_by_formula(end + step, 0, offset);
                if (offset != 0) {
                    expect_as_by_formula(end + step, end < 0 ? INT32_MIN : INT32_MAX, offset);
                }
            }
        }
    }
    EXPECT_GT(accepted, 20U);
    EXPECT_EQ(refused > 20, GetParam().limit.has_value());
}

TEST_P(RelocationFormula, HoldsForRandomDistances)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    for (std::size_t i = 0; i < test_size(200, 1000); ++i) {
        const auto magnitude = static_cast<std::int64_t>(random() >> (28 + random() % 36)); // below 2^36
        const std::int64_t aligned = random() % 4 == 0 ? magnitude : magnitude / 4 * 4;
        expect_as_by_formula(random() % 2 == 0 ? aligned : -aligned, static_cast<std::int32_t>(random()),
                             static_cast<std::int32_t>(random() % words * 4));
    }
    EXPECT_GT(accepted, 20U);
    EXPECT_EQ(refused > 0, GetParam().limit.has_value());
}

INSTANTIATE_TEST_SUITE_P(Of, RelocationFormula, testing::ValuesIn(formulas),
                         testing::PrintToStringParamName());

} // namespace
