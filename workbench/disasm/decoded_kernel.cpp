// The only source that sees LLVM's machine-code layer in C++. An instruction's operands, implicit registers
// and flags come from the tables that LLVM generates from its description of AArch64. The enumerations of
// registers and opcodes are private to LLVM's target, so both are known here by their names, which are looked
// up once for each register and each opcode.
//
// Where the tables say "unmodelled side effects", registers may be read or written that are no operands
// (SVC, MSR, SMSTART). Such an instruction counts as modelled only if its name is in the list below, of
// which the tests hold each that a simulator can run against what it does.

#include "workbench/disasm/decoded_kernel.hpp"

#include <algorithm>
#include <cstring>
#include <llvm-c/Disassembler.h>
#include <llvm-c/Target.h>
#include <llvm/ADT/ArrayRef.h>
#include <llvm/MC/MCAsmInfo.h>
#include <llvm/MC/MCContext.h>
#include <llvm/MC/MCDisassembler/MCDisassembler.h>
#include <llvm/MC/MCInst.h>
#include <llvm/MC/MCInstrInfo.h>
#include <llvm/MC/MCRegisterInfo.h>
#include <llvm/MC/MCSubtargetInfo.h>
#include <llvm/MC/MCTargetOptions.h>
#include <llvm/MC/TargetRegistry.h>
#include <llvm/Support/raw_ostream.h>
#include <llvm/TargetParser/Triple.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace vorna::workbench {

namespace {

constexpr register_id ignored_register = 252; // control, status and mode, which change alike in equal kernels
constexpr register_id unknown_register = 253; // ZA, ZT0, and what a later LLVM has

// A register of LLVM's, which may be a list of ours.
struct known_register {
    std::uint8_t count = 0;
    bool low_half = false;
    std::array<register_id, 8> members{};
};

// What an opcode's name and flags say.
struct known_opcode {
    control_flow flow = control_flow::next;
    instruction_kind kind = instruction_kind::other;
    bool modelled = true;
    bool keeps_a_part = false; // reads what it writes, without an operand for it
    bool reads_flags = false;  // without saying so
    std::uint8_t literal_bytes = 0;
};

register_id register_named(std::string_view name)
{
    if (name == "FP")
        return general_register(29);
    if (name == "LR")
        return link_register;
    if (name == "SP" || name == "WSP")
        return stack_pointer;
    if (name == "XZR" || name == "WZR")
        return zero_register;
    if (name == "NZCV")
        return condition_flags;
    if (name == "FFR")
        return first_fault_register;
    if (name == "FPCR" || name == "FPSR" || name == "FPMR" || name == "VG")
        return ignored_register;
    const std::size_t digits = name.find_first_of("0123456789");
    if (digits == std::string_view::npos || name.find_first_not_of("0123456789", digits) != name.npos)
        return unknown_register;
    const auto number = static_cast<unsigned>(std::stoul(std::string(name.substr(digits))));
    const std::string_view bank = name.substr(0, digits);
    if (bank == "X" || bank == "W")
        return number <= 30 ? general_register(number) : unknown_register;
    if (bank.size() == 1 && bank.find_first_of("BHSDQZ") == 0)
        return number <= 31 ? vector_register(number) : unknown_register;
    if (bank == "P" || bank == "PN")
        return number <= 15 ? predicate_register(number) : unknown_register;
    return unknown_register;
}

// "X3", "D31_D0_D1", "LR_XZR"; "Z3_HI" is a part of Z3.
known_register register_of(std::string_view name)
{
    known_register found;
    found.low_half = std::string_view("BHSD").find(name.front()) != std::string_view::npos;
    for (std::size_t begin = 0; begin < name.size();) {
        const std::size_t end = std::min(name.find('_', begin), name.size());
        const std::string_view part = name.substr(begin, end - begin);
        begin = end + 1;
        if (part == "HI")
            found.low_half = false;
        else if (found.count < found.members.size())
            found.members[found.count++] = register_named(part);
    }
    return found;
}

bool begins_with_one_of(std::string_view name, std::initializer_list<std::string_view> beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(), [&](std::string_view beginning) {
        return name.substr(0, beginning.size()) == beginning;
    });
}

// Instructions with "unmodelled side effects" whose operands tell everything: exclusives, atomics,
// load-acquire and store-release, prefetches, barriers, pointer authentication, and those of the flags.
bool is_modelled(std::string_view name)
{
    return begins_with_one_of(name, {"CASA",   "CASB",   "CASH",  "CASL",  "CASP",  "CASW",   "CASX",
                                     "SWP",    "LDADD",  "LDCLR", "LDEOR", "LDSET", "LDSMAX", "LDSMIN",
                                     "LDUMAX", "LDUMIN", "LDX",   "LDAX",  "LDAR",  "LDLAR",  "LDAPUR",
                                     "STX",    "STLX",   "STLR",  "STLLR", "PRFM",  "PRFUM",  "PAC",
                                     "AUT",    "XPAC",   "BLRA",  "BRA",   "RETA",  "SETF"}) ||
           name == "DMB" || name == "DSB" || name == "ISB" || name == "CLREX" || name == "CFINV" ||
           name == "AXFLAG" || name == "XAFLAG" || name == "RMIF" || name == "RET";
}

known_opcode opcode_of(std::string_view name, const llvm::MCInstrDesc& description)
{
    known_opcode found;
    found.modelled = !description.hasUnmodeledSideEffects() || is_modelled(name);
    if (begins_with_one_of(name, {"SETFFR", "ERET", "DRPS"}))
        found.modelled = false;
    // Where the tables are wrong: X15 to X17 of PACIA171615 and its kind are not told, FMOV Vd.D[1], Xn keeps
    // the other half, and CTERMEQ and CTERMNE make V of C.
    if (name.find("171615") != std::string_view::npos)
        found.modelled = false;
    found.keeps_a_part = name == "FMOVXDHighr";
    found.reads_flags = begins_with_one_of(name, {"CTERM"});

    if (name == "BL")
        found.flow = control_flow::call;
    else if (description.isCall())
        found.flow = control_flow::indirect_call;
    else if (begins_with_one_of(name, {"RET"}))
        found.flow = control_flow::exit;
    else if (name == "B")
        found.flow = control_flow::branch;
    else if (name == "BR" || begins_with_one_of(name, {"BRAA", "BRAB"}))
        found.flow = control_flow::jump;
    else if (name == "BRK" || name == "HLT" || name == "UDF")
        found.flow = control_flow::trap;
    else if (description.isBranch() && description.isConditionalBranch())
        found.flow = control_flow::conditional;
    else if (description.isBranch() || description.isReturn() || description.isTerminator())
        found.flow = control_flow::unknown;

    if (name == "ADR")
        found.kind = instruction_kind::adr;
    else if (name == "ADRP")
        found.kind = instruction_kind::adrp;
    else if (name == "ADDXri")
        found.kind = instruction_kind::add;
    else if (name == "SUBXri")
        found.kind = instruction_kind::sub;
    else if (name == "ORRXrs")
        found.kind = instruction_kind::move; // if its operands make it one
    static constexpr std::pair<std::string_view, std::uint8_t> literals[] = {
        {"LDRWl", 4}, {"LDRSl", 4}, {"LDRSWl", 4}, {"LDRXl", 8}, {"LDRDl", 8}, {"LDRQl", 16}, {"PRFMl", 0}};
    for (const auto& [literal, bytes] : literals) {
        if (name == literal) {
            found.kind = instruction_kind::load_literal;
            found.literal_bytes = bytes;
        }
    }
    return found;
}

class decoder {
public:
    decoder()
    {
        LLVMInitializeAArch64TargetInfo();
        LLVMInitializeAArch64TargetMC();
        LLVMInitializeAArch64Disassembler();
        const char* const triple = "aarch64-linux-gnu";
        std::string error;
        const llvm::Target* const target = llvm::TargetRegistry::lookupTarget(triple, error);
        if (target == nullptr)
            throw std::runtime_error("LLVM has no disassembler for AArch64");
        registers_.reset(target->createMCRegInfo(triple));
        assembly_.reset(target->createMCAsmInfo(*registers_, triple, llvm::MCTargetOptions()));
        opcodes_.reset(target->createMCInstrInfo());
        subtarget_.reset(target->createMCSubtargetInfo(triple, "", "+all"));
        context_ = std::make_unique<llvm::MCContext>(llvm::Triple(triple), assembly_.get(), registers_.get(),
                                                     subtarget_.get());
        disassembler_.reset(target->createMCDisassembler(*subtarget_, *context_));

        known_registers_.resize(registers_->getNumRegs());
        for (unsigned i = 1; i < registers_->getNumRegs(); ++i)
            known_registers_[i] = register_of(registers_->getName(i));
        known_opcodes_.resize(opcodes_->getNumOpcodes());
        for (unsigned i = 0; i < opcodes_->getNumOpcodes(); ++i)
            known_opcodes_[i] = opcode_of(name(i), opcodes_->get(i));
    }

    [[nodiscard]] std::string_view name(unsigned opcode) const
    {
        const llvm::StringRef name = opcodes_->getName(opcode);
        return {name.data(), name.size()};
    }

    void decode(std::uint32_t word, instruction& result, std::vector<operand>& operands) const
    {
        result.word = word;
        result.first_operand = static_cast<std::uint32_t>(operands.size());
        std::uint8_t bytes[sizeof word];
        std::memcpy(bytes, &word, sizeof word);
        llvm::MCInst decoded;
        std::uint64_t size = 0;
        if (disassembler_->getInstruction(decoded, size, bytes, 0, llvm::nulls()) !=
            llvm::MCDisassembler::Success)
            return;
        const llvm::MCInstrDesc& description = opcodes_->get(decoded.getOpcode());
        const known_opcode& known = known_opcodes_[decoded.getOpcode()];
        result.opcode = decoded.getOpcode();
        result.decoded = true;
        result.flow = known.flow;
        result.kind = known.kind;
        result.modelled = known.modelled;
        result.literal_bytes = known.literal_bytes;
        result.may_load = description.mayLoad();
        result.may_store = description.mayStore();
        for (unsigned i = 0; i < decoded.getNumOperands(); ++i) {
            operand made;
            made.defined = i < description.getNumDefs();
            if (decoded.getOperand(i).isReg()) {
                made.is_register = true;
                const known_register& known_one = known_registers_[decoded.getOperand(i).getReg()];
                made.count = known_one.count;
                made.low_half = known_one.low_half;
                made.registers = known_one.members;
                for (std::size_t r = 0; r < made.count; ++r)
                    result.modelled = result.modelled && (made.registers[r] < register_count ||
                                                          made.registers[r] == zero_register);
            } else if (decoded.getOperand(i).isImm()) {
                made.immediate = decoded.getOperand(i).getImm();
            } else {
                result.modelled = false;
            }
            operands.push_back(made);
        }
        if (known.keeps_a_part) {
            operand kept = operands[result.first_operand];
            kept.defined = false;
            operands.push_back(kept);
        }
        result.operand_count = static_cast<std::uint32_t>(operands.size()) - result.first_operand;
        const auto add_implicit = [&](unsigned llvm_register, register_set& to) {
            const known_register& implied = known_registers_[llvm_register];
            for (std::size_t r = 0; r < implied.count; ++r) {
                if (implied.members[r] < register_count)
                    to.set(implied.members[r]);
                else if (implied.members[r] == unknown_register)
                    result.modelled = false;
            }
        };
        for (const auto implied : description.implicit_uses())
            add_implicit(implied, result.implicit_uses);
        for (const auto implied : description.implicit_defs())
            add_implicit(implied, result.implicit_defs);
        if (known.reads_flags)
            result.implicit_uses.set(condition_flags);
        if (name(result.opcode) == "HINT") // NOP, YIELD, WFE, WFI, SEV, SEVL, DGH, CSDB, BTI
            result.modelled = is_plain_hint(decoded.getOperand(0).getImm());

        if (result.operand_count == 0)
            return;
        const operand& last = operands.back();
        if (result.kind == instruction_kind::adr)
            result.pc_relative = last.immediate;
        else if (result.kind == instruction_kind::load_literal || result.flow == control_flow::branch ||
                 result.flow == control_flow::conditional || result.flow == control_flow::call)
            result.pc_relative = 4 * last.immediate;
        if (result.kind == instruction_kind::move && // ORR xd, xzr, xm
            (operands[result.first_operand + 1].registers[0] != zero_register || last.immediate != 0))
            result.kind = instruction_kind::other;
    }

private:
    static bool is_plain_hint(std::int64_t number)
    {
        return number <= 6 || number == 20 || number == 32 || number == 34 || number == 36 || number == 38;
    }

    std::unique_ptr<const llvm::MCRegisterInfo> registers_;
    std::unique_ptr<const llvm::MCAsmInfo> assembly_;
    std::unique_ptr<const llvm::MCInstrInfo> opcodes_;
    std::unique_ptr<const llvm::MCSubtargetInfo> subtarget_;
    std::unique_ptr<llvm::MCContext> context_;
    std::unique_ptr<const llvm::MCDisassembler> disassembler_;
    std::vector<known_register> known_registers_;
    std::vector<known_opcode> known_opcodes_;
};

const decoder& the_decoder()
{
    static const decoder made;
    return made;
}

register_set registers_of(const decoded_kernel& kernel, const instruction& instruction, bool defined)
{
    register_set found = defined ? instruction.implicit_defs : instruction.implicit_uses;
    for (const operand& operand : operands_of(kernel, instruction)) {
        if (operand.defined != defined)
            continue;
        for (std::size_t r = 0; r < operand.count; ++r) {
            if (operand.registers[r] < register_count)
                found.set(operand.registers[r]);
        }
    }
    return found;
}

} // namespace

decoded_kernel decode_kernel(const placed_kernel& kernel)
{
    decoded_kernel result;
    result.instructions.resize(kernel.text.size() / 4);
    result.operands.reserve(4 * result.instructions.size());
    for (std::size_t i = 0; i < result.instructions.size(); ++i)
        the_decoder().decode(word_at(kernel.text, 4 * i), result.instructions[i], result.operands);
    for (std::size_t r = 0; r < kernel.relocs.size(); ++r) {
        const std::int64_t offset = kernel.relocs[r].offset;
        if (offset < 0 || static_cast<std::uint64_t>(offset) >= 4 * result.instructions.size())
            continue;
        instruction& at = result.instructions[static_cast<std::size_t>(offset) / 4];
        if (at.relocations++ == 0)
            at.relocation = static_cast<std::uint32_t>(r);
    }
    return result;
}

operand_range operands_of(const decoded_kernel& kernel, const instruction& instruction)
{
    const operand* const first = kernel.operands.data() + instruction.first_operand;
    return {first, first + instruction.operand_count};
}

register_set uses_of(const decoded_kernel& kernel, const instruction& instruction)
{
    return registers_of(kernel, instruction, false);
}

register_set defs_of(const decoded_kernel& kernel, const instruction& instruction)
{
    return registers_of(kernel, instruction, true);
}

std::string_view opcode_name(std::uint32_t opcode)
{
    return the_decoder().name(opcode);
}

std::optional<std::size_t> branch_target(const decoded_kernel& kernel, std::size_t index)
{
    const instruction& branch = kernel.instructions[index];
    if (!branch.pc_relative)
        return std::nullopt;
    const std::int64_t target = static_cast<std::int64_t>(4 * index) + *branch.pc_relative;
    if (target < 0 || target % 4 != 0 || static_cast<std::uint64_t>(target) / 4 >= kernel.instructions.size())
        return std::nullopt;
    return static_cast<std::size_t>(target) / 4;
}

std::vector<bool> reachable_words(const decoded_kernel& kernel, const std::vector<std::int64_t>& entries)
{
    std::vector<bool> reached(kernel.instructions.size());
    std::vector<std::size_t> waiting;
    const auto reach = [&](std::size_t index) {
        if (index < reached.size() && !reached[index]) {
            reached[index] = true;
            waiting.push_back(index);
        }
    };
    reach(0);
    for (const std::int64_t entry : entries) {
        if (entry >= 0)
            reach(static_cast<std::size_t>(entry) / 4);
    }
    while (!waiting.empty()) {
        const std::size_t index = waiting.back();
        waiting.pop_back();
        const instruction& at = kernel.instructions[index];
        if (!at.decoded)
            continue;
        if (at.flow == control_flow::branch || at.flow == control_flow::conditional) {
            if (const auto target = branch_target(kernel, index))
                reach(*target);
        }
        if (at.flow == control_flow::next || at.flow == control_flow::conditional ||
            at.flow == control_flow::call || at.flow == control_flow::indirect_call)
            reach(index + 1);
    }
    return reached;
}

} // namespace vorna::workbench
