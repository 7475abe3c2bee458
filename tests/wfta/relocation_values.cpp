// Every value of every field. The finaliser links an instruction for each, and LLVM decodes what it linked:
// the address that the instruction forms, by LLVM's own reckoning, must be the target.

#include "check/relocation.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"
#include "workbench/disasm/llvm.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <llvm/MC/MCInstrAnalysis.h>
#include <llvm/MC/TargetRegistry.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace support;
using namespace vorna::wfta;
using vorna::workbench::the_llvm;

constexpr std::uint64_t offset_in_page = 0xfff;
constexpr std::uint64_t three_gib = std::uint64_t{3} << 30;

std::uint64_t times(std::int64_t value, std::uint64_t unit)
{
    return static_cast<std::uint64_t>(value) * unit;
}

/// An instruction with a zero field, and the S for which the field must become `value` at the place P.
struct instruction_kind {
    std::int32_t type;
    std::uint32_t word;
    std::uint64_t part; // of S that the instruction forms
    std::uint64_t (*target)(std::int64_t value, std::uint64_t P);
};

constexpr instruction_kind adr = {R_AARCH64_ADR_PREL_LO21, a64::adr(21), ~std::uint64_t{0},
                                  [](std::int64_t value, std::uint64_t P) { return P + times(value, 1); }};

// The target's offset in its page is another for each value.
constexpr instruction_kind adrp = {
    R_AARCH64_ADR_PREL_PG_HI21, a64::adrp(21), ~offset_in_page, [](std::int64_t value, std::uint64_t P) {
        const std::uint64_t page = (P & ~offset_in_page) + times(value, 0x1000);
        return page + (times(value, 0x9e3779b1) >> 16 & offset_in_page);
    }};

// The values from 0x1000 on are the same again, in a page near the top of the address space.
constexpr instruction_kind add = {
    R_AARCH64_ADD_ABS_LO12_NC, a64::add(21, 10, 0), offset_in_page, [](std::int64_t value, std::uint64_t P) {
        return value < 0x1000 ? (P & ~offset_in_page) + times(value, 1) : times(value, 1) - 0x7000;
    }};

constexpr instruction_kind call = {R_AARCH64_CALL26, a64::bl(), ~std::uint64_t{0},
                                   [](std::int64_t value, std::uint64_t P) { return P + times(value, 4); }};

/// Compares words with the generated one, of which relocations change an immediate only.
class decoder {
public:
    explicit decoder(std::uint32_t generated)
    {
        EXPECT_TRUE(the_llvm().decode(generated, generated_)) << hex(generated);
    }

    /// The part of the target's address that the instruction at P forms; by ADD, its immediate.
    bool formed_by(std::uint32_t word, std::uint64_t P, std::uint64_t& formed)
    {
        linked_.clear();
        if (!the_llvm().decode(word, linked_) || linked_.getOpcode() != generated_.getOpcode()) {
            return false;
        }
        for (unsigned i = 0; i < linked_.getNumOperands(); ++i) {
            const llvm::MCOperand& operand = linked_.getOperand(i);
            if (operand.isReg() && operand.getReg() != generated_.getOperand(i).getReg()) {
                return false;
            }
        }
        if (analysis_->evaluateBranch(linked_, P, sizeof word, formed)) { // ADR, ADRP, BL
            return true;
        }
        const bool unshifted = linked_.getNumOperands() == 4 && linked_.getOperand(3).getImm() == 0;
        formed = unshifted ? static_cast<std::uint64_t>(linked_.getOperand(2).getImm()) : 0;
        return unshifted;
    }

private:
    std::unique_ptr<llvm::MCInstrAnalysis> analysis_{
        vorna::workbench::the_target().createMCInstrAnalysis(the_llvm().opcodes.get())};
    llvm::MCInst generated_;
    llvm::MCInst linked_;
};

/// Links and decodes the values from `first` to `last`, so many in each kernel that it covers some pages.
void expect_targets(const instruction_kind& kind, std::int64_t first, std::int64_t last)
{
    constexpr std::size_t words = 0x10000;
    address_range range(4 * words);
    const std::uint64_t text = number(range.begin());
    const std::vector<std::pair<std::string, std::uint64_t>> targets = {
        {"k", text}, {"below", text - three_gib}, {"above", text + three_gib}, {"top", ~std::uint64_t{0}}};
    std::vector<kernel_data> kernels = {kernel("k", std::vector<std::uint32_t>(words, kind.word))};
    kernels.front().relocs.resize(words);
    const relocation_kind* const checked = find_relocation_kind(kind.type);
    ASSERT_NE(checked, nullptr);
    decoder llvm(kind.word);

    while (first <= last) {
        const std::size_t count = std::min<std::size_t>(words, static_cast<std::size_t>(last - first) + 1);
        kernels.front().relocs.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t S = kind.target(first + static_cast<std::int64_t>(i), text + 4 * i);
            const auto near = std::find_if(targets.begin(), targets.end(), [S](const auto& target) {
                const auto distance = static_cast<std::int64_t>(S - target.second);
                return distance == static_cast<std::int32_t>(distance);
            });
            ASSERT_NE(near, targets.end());
            kernels.front().relocs[i] = {near->first, static_cast<std::int32_t>(4 * i), kind.type,
                                         static_cast<std::int32_t>(S - near->second)};
        }
        kernel_registry_map registry;
        for (const auto& [name, place] : targets) {
            if (name != "k") {
                registry[name].text_ptr = address(place);
            }
        }
        platform_spy spy;
        spy.place = range.begin();
        finalise_kernels(registry, kernels);

        for (std::size_t i = 0; i < count; ++i, ++first) {
            const std::uint64_t P = text + 4 * i;
            const std::uint64_t S = kind.target(first, P);
            const std::uint32_t linked = word_at(address(P));
            std::uint64_t formed = 0;
            ASSERT_TRUE(llvm.formed_by(linked, P, formed) && formed == (S & kind.part))
                << "value " << first << ": " << hex(linked) << " at " << hex(P) << " forms " << hex(formed)
                << ", target " << hex(S);
            const std::uint32_t by_check = apply(*checked, S, P, kind.word).word;
            ASSERT_TRUE(by_check == linked)
                << "value " << first << ": check/ links " << hex(by_check) << ", not " << hex(linked);
        }
    }
}

constexpr std::int64_t two_to(unsigned exponent)
{
    return std::int64_t{1} << exponent;
}

TEST(RelocationValues, OfAdrAllLeadToTheirTargets)
{
    expect_targets(adr, -two_to(20), two_to(20) - 1);
}

TEST(RelocationValues, OfAdrpAllLeadToTheirPages)
{
    expect_targets(adrp, -two_to(20), two_to(20) - 1);
}

TEST(RelocationValues, OfAddAllAreOffsetsInPages)
{
    expect_targets(add, 0, 2 * two_to(12) - 1);
}

TEST(RelocationValues, OfCallsBackwardsAllLeadToTheirTargets)
{
    expect_targets(call, -two_to(25), -1);
}

TEST(RelocationValues, OfCallsForwardsAllLeadToTheirTargets)
{
    expect_targets(call, 0, two_to(25) - 1);
}

} // namespace
