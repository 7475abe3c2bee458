#include "workbench/disasm/llvm.hpp"

#include <cstring>
#include <llvm-c/Disassembler.h>
#include <llvm-c/Target.h>
#include <llvm/ADT/ArrayRef.h>
#include <llvm/MC/TargetRegistry.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/TargetParser/Triple.h>
#include <stdexcept>
#include <string>

namespace vorna::workbench {

static const char* const triple = "aarch64-linux-gnu";

#if LLVM_VERSION_MAJOR < 22
using triple_argument = std::string;
#else
using triple_argument = llvm::Triple;
#endif

static const llvm::Target& find_target()
{
    LLVMInitializeAArch64TargetInfo();
    LLVMInitializeAArch64TargetMC();
    LLVMInitializeAArch64Disassembler();
    std::string error;
    const llvm::Target* const target = llvm::TargetRegistry::lookupTarget(triple_argument(triple), error);
    if (target == nullptr)
        throw std::runtime_error("LLVM has no disassembler for AArch64");
    return *target;
}

const llvm::Target& the_target()
{
    static const llvm::Target& found = find_target();
    return found;
}

std::unique_ptr<llvm::MCSubtargetInfo> make_subtarget(const std::string& processor)
{
    return std::unique_ptr<llvm::MCSubtargetInfo>(
        the_target().createMCSubtargetInfo(triple_argument(triple), processor, ""));
}

std::unique_ptr<const llvm::MCDisassembler> make_disassembler(const llvm::MCSubtargetInfo& subtarget,
                                                              llvm::MCContext& context)
{
    return std::unique_ptr<const llvm::MCDisassembler>(the_target().createMCDisassembler(subtarget, context));
}

bool decode_with(const llvm::MCDisassembler& disassembler, std::uint32_t word, llvm::MCInst& instruction)
{
    std::uint8_t bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    std::uint64_t size = 0;
    return disassembler.getInstruction(instruction, size, bytes, 0, llvm::nulls()) ==
           llvm::MCDisassembler::Success;
}

bool llvm_aarch64::decode(std::uint32_t word, llvm::MCInst& instruction) const
{
    static thread_local const std::unique_ptr<const llvm::MCDisassembler> disassembler =
        make_disassembler(*subtarget, *context);
    return decode_with(*disassembler, word, instruction);
}

std::unique_ptr<llvm::MCContext> llvm_aarch64::make_context() const
{
    return std::make_unique<llvm::MCContext>(llvm::Triple(triple), &assembly, registers.get(),
                                             subtarget.get());
}

std::unique_ptr<llvm::MCInstPrinter> llvm_aarch64::make_printer() const
{
    constexpr unsigned generic_syntax = 0;
    return std::unique_ptr<llvm::MCInstPrinter>(the_target().createMCInstPrinter(
        llvm::Triple(triple), generic_syntax, assembly, *opcodes, *registers));
}

const llvm_aarch64& the_llvm()
{
    static const llvm_aarch64& made = []() -> const llvm_aarch64& {
        static llvm_aarch64 llvm;
        const llvm::Target& target = the_target();
        llvm.registers.reset(target.createMCRegInfo(triple_argument(triple)));
        llvm.opcodes.reset(target.createMCInstrInfo());
        llvm.subtarget.reset(target.createMCSubtargetInfo(triple_argument(triple), "", "+all"));
        llvm.context = llvm.make_context();
        return llvm;
    }();
    return made;
}

} // namespace vorna::workbench
