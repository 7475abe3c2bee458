#include "workbench/code_flow.hpp"

#include "workbench/a64.hpp"
#include "workbench/registers.hpp"

#include <algorithm>

namespace vorna::workbench {

namespace {

// Facts about registers are carried back through the code until nothing changes, which a loop in a loop takes
// a pass each for.
constexpr int most_passes = 64;

std::vector<bool> relocated_words(const placed_kernel& kernel)
{
    std::vector<bool> relocated(kernel.text.size() / 4);
    for (const tessjit::reloc_info& reloc : kernel.relocs) {
        if (reloc.offset >= 0 && static_cast<std::size_t>(reloc.offset) / 4 < relocated.size())
            relocated[static_cast<std::size_t>(reloc.offset) / 4] = true;
    }
    return relocated;
}

// Carries a fact back: `before` of a step from what holds behind it.
template <typename carry_back>
bool reaches_fixpoint(const std::vector<code_step>& code, std::vector<register_mask>& behind,
                      register_mask outside, carry_back before)
{
    const auto at_entry_of = [&](std::size_t index) { return before(code[index], behind[index]); };
    for (int pass = 0; pass < most_passes; ++pass) {
        bool changed = false;
        for (std::size_t i = code.size(); i-- > 0;) {
            register_mask value = code[i].leaves ? outside : 0;
            if (code[i].target)
                value |= at_entry_of(*code[i].target);
            if (code[i].continues)
                value |= i + 1 < code.size() ? at_entry_of(i + 1) : outside;
            changed = changed || value != behind[i];
            behind[i] = value;
        }
        if (!changed)
            return true;
    }
    return false;
}

} // namespace

std::optional<std::vector<code_step>> follow_code(const placed_kernel& kernel)
{
    if (kernel.text.size() % 4 != 0)
        return std::nullopt;
    const std::vector<bool> relocated = relocated_words(kernel);
    std::vector<code_step> code(kernel.text.size() / 4);
    for (std::size_t i = 0; i < code.size(); ++i) {
        code_step& step = code[i];
        step.word = word_at(kernel.text, 4 * i);
        const std::optional<register_operands> registers = decode_registers(step.word);
        if (!registers)
            return std::nullopt;
        for (std::size_t k = 0; k < registers->count; ++k) {
            const register_operand& operand = registers->operands[k];
            const bool general = operand.bank == register_bank::general;
            if (general && operand.number == 31)
                continue;
            const register_mask bit = register_mask{1} << (operand.number + (general ? 0 : 32));
            step.reads |= operand.read ? bit : 0;
            step.writes |= operand.written ? bit : 0;
            step.replaces |= operand.written && !operand.read ? bit : 0;
        }
        step.replaces &= ~step.reads;
        step.continues = !wfta::never_falls_through(step.word);
        step.calls = wfta::is_call(step.word);
        const std::optional<std::int64_t> displacement = wfta::branch_displacement(step.word);
        if (step.calls) {
            if (displacement && !relocated[i])
                return std::nullopt;
        } else if (displacement) {
            if (relocated[i])
                return std::nullopt;
            const std::int64_t target = static_cast<std::int64_t>(i) + *displacement / 4;
            if (target >= 0 && static_cast<std::uint64_t>(target) < code.size())
                step.target = static_cast<std::size_t>(target);
            else
                step.leaves = true;
        } else if (!step.continues) {
            if ((step.word & 0xfffffc1f) == 0xd61f0000) // BR
                return std::nullopt;
            step.leaves = true;
        }
    }
    return code;
}

std::optional<boundary_registers> find_boundary_registers(const std::vector<code_step>& code)
{
    boundary_registers found;
    if (code.empty())
        return found;
    std::vector<register_mask> read_behind(code.size());
    const auto read_from = [](const code_step& step, register_mask behind) {
        return (behind & ~step.replaces) | step.reads;
    };
    std::vector<register_mask> untouched_behind(code.size());
    const auto untouched_from = [](const code_step& step, register_mask behind) {
        return behind & ~(step.reads | step.writes);
    };
    if (!reaches_fixpoint(code, read_behind, 0, read_from) ||
        !reaches_fixpoint(code, untouched_behind, ~register_mask{0}, untouched_from))
        return std::nullopt;
    found.parameters = read_from(code.front(), read_behind.front());
    for (std::size_t i = 0; i < code.size(); ++i)
        found.results |= code[i].writes & untouched_behind[i];
    return found;
}

} // namespace vorna::workbench
