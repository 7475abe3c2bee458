#include "workbench/disassembler.hpp"

#include <cstddef>
#include <cstring>
#include <fmt/format.h>
#include <llvm-c/Disassembler.h>
#include <llvm-c/Target.h>
#include <stdexcept>

namespace vorna::workbench {

// Version 14 has no "+all"; a feature that a version does not know would make it complain on stderr, so these
// are the ones that all versions from 14 on have.
static constexpr char features[] =
    "+v9.3a,+neon,+fullfp16,+fp16fml,+bf16,+i8mm,+f32mm,+f64mm,+dotprod,+complxnum,+jsconv,+rdm,+crc,+lse,"
    "+aes,+sha2,+sha3,+sm4,+sve,+sve2,+sve2-aes,+sve2-sm4,+sve2-sha3,+sve2-bitperm,+sme,+sme-f64,+sme-i64,"
    "+mte,+rand,+ls64,+mops,+hbc,+predres,+ssbs,+sb,+pauth,+bti,+rcpc,+rcpc-immo,+flagm,+altnzcv,+fptoint,"
    "+ccdp,+ccpp,+spe,+tme,+brbe,+ete,+trbe,+ras,+xs,+wfxt,+pan,+uaops,+dit";

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

std::string disassembler::text(std::uint32_t word, std::uint64_t pc)
{
    std::uint8_t bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    char line[256];
    if (LLVMDisasmInstruction(implementation_->context, bytes, sizeof bytes, pc, line, sizeof line) !=
        sizeof word)
        return fmt::format(".word 0x{:08x}", word);
    std::string text = line;
    text.erase(0, text.find_first_not_of('\t'));
    for (std::size_t tab = 0; (tab = text.find('\t', tab)) != std::string::npos;)
        text[tab] = ' ';
    return text;
}

} // namespace vorna::workbench
