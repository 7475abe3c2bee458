#include "workbench/disasm/disassembler.hpp"

#include "check/format.hpp"
#include "workbench/disasm/llvm.hpp"

#include <algorithm>
#include <cstddef>
#include <llvm/ADT/SmallString.h>
#include <llvm/MC/MCExpr.h>
#include <llvm/Support/raw_ostream.h>

namespace vorna::workbench {

struct disassembler::implementation {
    std::unique_ptr<llvm::MCContext> symbols = the_llvm().make_context();
    std::unique_ptr<llvm::MCInstPrinter> printer = the_llvm().make_printer();

    std::string print(const llvm::MCInst& instruction, std::uint64_t pc)
    {
        std::string text;
        llvm::raw_string_ostream out(text);
        printer->printInst(&instruction, pc, "", *the_llvm().subtarget, out);
        out.flush();
        text.erase(0, 1); // LLVM prints a tab before the mnemonic and one after it
        if (const std::size_t tab = text.find('\t'); tab != std::string::npos)
            text[tab] = ' ';
        return text;
    }
};

disassembler::disassembler() : implementation_(std::make_unique<implementation>())
{
    implementation_->printer->setPrintBranchImmAsAddress(true);
}

disassembler::~disassembler() = default;

std::string disassembler::text(std::uint32_t word, std::uint64_t pc)
{
    llvm::MCInst instruction;
    return the_llvm().decode(word, instruction) ? implementation_->print(instruction, pc)
                                                : ".word " + wfta::word_text(word);
}

std::string disassembler::text_with_symbol(std::uint32_t word, std::string_view symbol)
{
    llvm::MCInst instruction;
    if (!the_llvm().decode(word, instruction) || instruction.getNumOperands() == 0)
        return text(word, 0);
    llvm::MCContext& symbols = *implementation_->symbols;
    const llvm::StringRef opcode = the_llvm().opcodes->getName(instruction.getOpcode());
    const bool adds = opcode == "ADDXri" || opcode == "ADDWri"; // register, register, immediate, shift
    const unsigned last = instruction.getNumOperands() - 1;
    instruction.getOperand(adds ? 2 : last) = llvm::MCOperand::createExpr(llvm::MCSymbolRefExpr::create(
        symbols.getOrCreateSymbol(llvm::StringRef(symbol.data(), symbol.size())), symbols));
    std::string text = implementation_->print(instruction, 0);
    symbols.reset();
    return text;
}

} // namespace vorna::workbench
