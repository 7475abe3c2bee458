// LLVM's machine-code layer for AArch64. Only the sources of this directory include it.
#pragma once

#include <cstdint>
#include <llvm/Config/llvm-config.h>
#include <llvm/MC/MCAsmInfo.h>
#include <llvm/MC/MCContext.h>
#include <llvm/MC/MCDisassembler/MCDisassembler.h>
#include <llvm/MC/MCInst.h>
#include <llvm/MC/MCInstPrinter.h>
#include <llvm/MC/MCInstrInfo.h>
#include <llvm/MC/MCRegisterInfo.h>
#include <llvm/MC/MCSubtargetInfo.h>
#include <memory>
#include <string>

namespace llvm {
class Target;
}

namespace vorna::workbench {

/// Allows any characters in symbol names: kernel names are printed unquoted.
class any_name_assembly : public llvm::MCAsmInfo {
public:
    any_name_assembly()
    {
        CommentString = "//";
#if LLVM_VERSION_MAJOR < 21 // later ones have no parentheses
        UseParensForDollarSignNames = false;
#endif
    }
    [[nodiscard]] bool isValidUnquotedName(llvm::StringRef) const override
    {
        return true;
    }
};

/// Armv9 with all extensions that LLVM knows.
struct llvm_aarch64 {
    std::unique_ptr<const llvm::MCRegisterInfo> registers;
    std::unique_ptr<const llvm::MCInstrInfo> opcodes;
    std::unique_ptr<const llvm::MCSubtargetInfo> subtarget;
    any_name_assembly assembly;
    std::unique_ptr<llvm::MCContext> context;

    /// Returns false if the word is not an instruction, or an unpredictable one. Thread-safe.
    bool decode(std::uint32_t word, llvm::MCInst& instruction) const;

    [[nodiscard]] std::unique_ptr<llvm::MCContext> make_context() const;
    [[nodiscard]] std::unique_ptr<llvm::MCInstPrinter> make_printer() const;
};

/// Created on first use. Thread-safe.
const llvm_aarch64& the_llvm();
const llvm::Target& the_target();

/// One of LLVM's processors, which must exist.
std::unique_ptr<llvm::MCSubtargetInfo> make_subtarget(const std::string& processor);

/// A disassembler writes to itself: use one object in one thread at a time. It refers to both arguments.
std::unique_ptr<const llvm::MCDisassembler> make_disassembler(const llvm::MCSubtargetInfo& subtarget,
                                                              llvm::MCContext& context);

/// llvm_aarch64::decode, by another disassembler.
bool decode_with(const llvm::MCDisassembler& disassembler, std::uint32_t word, llvm::MCInst& instruction);

} // namespace vorna::workbench
