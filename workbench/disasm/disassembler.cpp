#include "workbench/disasm/disassembler.hpp"

#include "workbench/disasm/a64.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fmt/format.h>
#include <llvm-c/Disassembler.h>
#include <llvm-c/Target.h>
#include <stdexcept>

namespace vorna::workbench {

static constexpr char features[] = "+all";

struct disassembler::implementation {
    LLVMDisasmContextRef context = nullptr;
};

disassembler::disassembler() : implementation_(std::make_unique<implementation>())
{
    LLVMInitializeAArch64TargetInfo();
    LLVMInitializeAArch64TargetMC();
    LLVMInitializeAArch64Disassembler();
    implementation_->context =
        LLVMCreateDisasmCPUFeatures("aarch64-linux-gnu", "", features, nullptr, 0, nullptr, nullptr);
    if (implementation_->context == nullptr)
        throw std::runtime_error("LLVM has no disassembler for AArch64");
}

disassembler::~disassembler()
{
    LLVMDisasmDispose(implementation_->context);
}

std::string disassembler::plain_text(std::uint32_t word)
{
    std::uint8_t bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    char line[256];
    if (LLVMDisasmInstruction(implementation_->context, bytes, sizeof bytes, 0, line, sizeof line) !=
        sizeof word)
        return fmt::format(".word 0x{:08x}", word);
    std::string text = line;
    text.erase(0, text.find_first_not_of('\t'));
    std::replace(text.begin(), text.end(), '\t', ' ');
    return text;
}

std::string disassembler::text(std::uint32_t word, std::uint64_t pc)
{
    const std::optional<std::uint64_t> target = pc_relative_target(word, pc);
    return target ? text_with_last_operand(word, fmt::format("{:#x}", *target)) : plain_text(word);
}

std::string disassembler::text_with_last_operand(std::uint32_t word, std::string_view operand)
{
    std::string text = plain_text(word);
    if (text.front() != '.')
        text.replace(text.rfind(' ') + 1, std::string::npos, operand);
    return text;
}

static std::uint64_t sign_extended(std::uint64_t value, unsigned bits)
{
    const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
    return (value ^ sign) - sign;
}

// The fields are those of the "Arm A-profile A64 Instruction Set Architecture".
std::optional<std::uint64_t> pc_relative_target(std::uint32_t word, std::uint64_t pc)
{
    if (const std::optional<std::int64_t> displacement = branch_displacement(word))
        return pc + static_cast<std::uint64_t>(*displacement);
    const std::uint64_t immediate = word >> 5 & 0x7ffff;
    if ((word & 0x3b000000) == 0x18000000) // LDR, LDRSW, PRFM (literal)
        return pc + 4 * sign_extended(immediate, 19);
    if ((word & 0x1f000000) == 0x10000000) { // ADR, ADRP
        const std::uint64_t distance = sign_extended(immediate << 2 | (word >> 29 & 3), 21);
        return word >> 31 == 0 ? pc + distance : (pc & ~std::uint64_t{0xfff}) + (distance << 12);
    }
    return std::nullopt;
}

} // namespace vorna::workbench
