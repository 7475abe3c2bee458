// An instruction's operands, implicit registers and flags come from LLVM's generated tables. The enumerations
// of registers and opcodes are private to LLVM's target, so both are identified by name; each name is looked
// up once.
//
// An instruction with "unmodelled side effects" may use or define registers that are not operands (SVC, MSR,
// SMSTART). It counts as modelled only if its name is in the list below. The tests compare every instruction
// that a simulator can execute with its effects there.

#include "workbench/disasm/decoded_kernel.hpp"

#include "check/relocation.hpp"
#include "workbench/disasm/llvm.hpp"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>

namespace vorna::workbench {

namespace {

constexpr register_id ignored_register = 252; // control, status and mode: change alike in equal kernels
constexpr register_id unknown_register = 253; // ZA, ZT0, and registers of later versions of LLVM

// One of LLVM's registers, which may be a list of several of ours.
struct known_register {
    std::uint8_t count = 0;
    bool low_half = false;
    bool scalable = false;
    std::array<register_id, 8> members{};
};

// The properties of an opcode, from its name and flags.
struct known_opcode {
    control_flow flow = control_flow::next;
    instruction_kind kind = instruction_kind::other;
    bool modelled = true;
    bool tells_general_defs = true;
    bool keeps_a_part = false; // partial def: also uses the register, without an operand for it
    bool is_prefetch = false;
    bool has_unsigned_offset = false;
    bool multiplies_and_adds = false; // 64-bit, perhaps with XZR as the addend
    bool is_hint = false;
    bool is_literal = false; // LDR, LDRSW and PRFM (literal)
    bool wide = false;       // for a kind: 64 bits
    bool sets_flags = false; // for a kind
    bool subtracts = false;  // for a kind: SUB, SUBS, MOVN
    std::optional<vector_element> element;
    std::optional<memory_form> memory;
    register_set implicit_uses;
    register_set implicit_defs;
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
    if (digits == std::string_view::npos ||
        name.find_first_not_of("0123456789", digits) != std::string_view::npos)
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

// "X3", "D31_D0_D1", "LR_XZR"; "Z3_HI" is part of Z3.
known_register register_of(std::string_view name)
{
    known_register found;
    found.low_half = std::string_view("BHSD").find(name.front()) != std::string_view::npos;
    found.scalable = name.front() == 'Z';
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
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](std::string_view beginning) { return name.starts_with(beginning); });
}

// Instructions with "unmodelled side effects" whose operands are complete: exclusives, atomics, load-acquire
// and store-release, prefetches, barriers, pointer authentication, flag manipulation.
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

control_flow flow_of(std::string_view name, const llvm::MCInstrDesc& description)
{
    if (name == "BL")
        return control_flow::call;
    if (name == "SVC" || name == "HVC" || name == "SMC")
        return control_flow::system;
    if (description.isCall())
        return control_flow::indirect_call;
    if (name.starts_with("RET"))
        return control_flow::exit;
    if (name == "B")
        return control_flow::branch;
    if (name == "BR" || begins_with_one_of(name, {"BRAA", "BRAB"}))
        return control_flow::jump;
    if (name == "BRK" || name == "HLT" || name == "UDF")
        return control_flow::trap;
    if (description.isBranch() && description.isConditionalBranch())
        return control_flow::conditional;
    if (description.isBranch() || description.isReturn() || description.isTerminator())
        return control_flow::unknown;
    return control_flow::next;
}

void find_kind(std::string_view name, known_opcode& found)
{
    struct named_kind {
        std::string_view name;
        instruction_kind kind;
        bool wide, sets_flags, subtracts;
    };
    using enum instruction_kind;
    static constexpr named_kind kinds[] = {
        {"ADR", adr, true, false, false},
        {"ADRP", adrp, true, false, false},
        {"ADDXri", add_constant, true, false, false},
        {"ADDWri", add_constant, false, false, false},
        {"ADDSXri", add_constant, true, true, false},
        {"ADDSWri", add_constant, false, true, false},
        {"SUBXri", add_constant, true, false, true},
        {"SUBWri", add_constant, false, false, true},
        {"SUBSXri", add_constant, true, true, true},
        {"SUBSWri", add_constant, false, true, true},
        {"ORRXrs", copy, true, false, false}, // if its operands make it one
        {"ORRWrs", copy, false, false, false},
        {"MOVZXi", set_constant, true, false, false},
        {"MOVZWi", set_constant, false, false, false},
        {"MOVNXi", set_constant, true, false, true},
        {"MOVNWi", set_constant, false, false, true},
        {"MOVKXi", keep_others, true, false, false},
        {"MOVKWi", keep_others, false, false, false},
    };
    for (const named_kind& one : kinds) {
        if (one.name == name) {
            found.kind = one.kind;
            found.wide = one.wide;
            found.sets_flags = one.sets_flags;
            found.subtracts = one.subtracts;
        }
    }
}

// "FMULv2f64", "FMLAv2i64_indexed", "ADDv4i32".
std::optional<vector_element> element_in(std::string_view name)
{
    const bool floating_point = name.starts_with('F');
    if (!floating_point &&
        !begins_with_one_of(name, {"ADDv", "ADDPv", "SUBv", "MULv", "MLAv", "MLSv", "CMEQv", "CMGTv", "CMHIv",
                                   "SCVTFv", "UCVTFv", "SSHLv", "USHLv", "TBLv", "TBXv"}))
        return std::nullopt;
    constexpr std::string_view digits = "0123456789";
    for (std::size_t at = name.find('v'); at != std::string_view::npos; at = name.find('v', at + 1)) {
        const std::size_t letter = name.find_first_not_of(digits, at + 1);
        if (letter == std::string_view::npos || letter == at + 1 ||
            (name[letter] != 'i' && name[letter] != 'f'))
            continue;
        const std::string_view rest = name.substr(letter + 1);
        for (const unsigned bits : {64U, 32U, 16U, 8U}) {
            if (rest.starts_with(std::to_string(bits))) {
                // FCVTN and its variants are named after their narrow result.
                const unsigned narrows = begins_with_one_of(name, {"FCVTN", "FCVTXN"}) &&
                                                 !begins_with_one_of(name, {"FCVTNSv", "FCVTNUv"})
                                             ? 2
                                             : 1;
                return vector_element{floating_point,
                                      static_cast<std::uint8_t>(std::min(narrows * bits / 8, 8U))};
            }
        }
    }
    return std::nullopt;
}

known_opcode opcode_of(std::string_view name, const llvm::MCInstrDesc& description,
                       const std::vector<known_register>& registers)
{
    known_opcode found;
    found.modelled = !description.hasUnmodeledSideEffects() || is_modelled(name);
    if (begins_with_one_of(name, {"SETFFR", "ERET", "DRPS"}))
        found.modelled = false;
    // Errors in LLVM's tables: X15 to X17 of PACIA171615 and its variants are missing, FMOV Vd.D[1], Xn keeps
    // the other half of Vd, and CTERMEQ and CTERMNE compute V from C.
    if (name.find("171615") != std::string_view::npos)
        found.modelled = false;
    found.keeps_a_part = name == "FMOVXDHighr";
    if (name.starts_with("CTERM"))
        found.implicit_uses.set(condition_flags);
    found.is_prefetch = name.starts_with("PRF");
    found.has_unsigned_offset = (found.is_prefetch || memory_form_of(name)) && name.ends_with("ui");
    found.multiplies_and_adds = name == "MADDXrrr" || name == "MSUBXrrr" ||
                                begins_with_one_of(name, {"SMADDL", "SMSUBL", "UMADDL", "UMSUBL"});
    found.is_hint = name == "HINT";
    const auto add_implicit = [&](unsigned llvm_register, register_set& to) {
        const known_register& implied = registers[llvm_register];
        for (std::size_t r = 0; r < implied.count; ++r) {
            if (implied.members[r] < register_count)
                to.set(implied.members[r]);
            else if (implied.members[r] == unknown_register)
                found.modelled = false;
        }
    };
    for (const auto implied : description.implicit_uses())
        add_implicit(implied, found.implicit_uses);
    for (const auto implied : description.implicit_defs())
        add_implicit(implied, found.implicit_defs);
    found.tells_general_defs =
        found.modelled ||
        begins_with_one_of(name, {"MRS", "MSR", "SYS", "STG", "STZ", "ST2G", "LDG", "CPY", "SETP", "SETM",
                                  "SETE", "SETG", "ADDPT", "SUBPT", "LD64B", "ST64B"});
    found.flow = flow_of(name, description);
    find_kind(name, found);
    found.element = element_in(name);
    found.memory = memory_form_of(name);
    found.is_literal =
        name == "PRFMl" || (found.memory && found.memory->addressing == addressing_mode::literal);
    return found;
}

// Opcodes and registers, by LLVM's number.
struct known_names {
    std::vector<known_register> registers;
    std::vector<known_opcode> opcodes;
};

std::string_view name_of(std::uint32_t opcode)
{
    const llvm::StringRef name = the_llvm().opcodes->getName(opcode);
    return {name.data(), name.size()};
}

known_names find_names()
{
    const llvm_aarch64& llvm = the_llvm();
    known_names found;
    found.registers.resize(llvm.registers->getNumRegs());
    for (unsigned i = 1; i < llvm.registers->getNumRegs(); ++i)
        found.registers[i] = register_of(llvm.registers->getName(i));
    found.opcodes.reserve(llvm.opcodes->getNumOpcodes());
    for (unsigned i = 0; i < llvm.opcodes->getNumOpcodes(); ++i)
        found.opcodes.push_back(opcode_of(name_of(i), llvm.opcodes->get(i), found.registers));
    return found;
}

const known_names& the_names()
{
    static const known_names found = find_names();
    return found;
}

const known_opcode& opcode_of(const instruction& instruction)
{
    return the_names().opcodes[instruction.opcode];
}

// HINT numbers of NOP, YIELD, WFE, WFI, SEV, SEVL, DGH, CSDB, BTI.
bool is_plain_hint(std::int64_t number)
{
    return number <= 6 || number == 20 || number == 32 || number == 34 || number == 36 || number == 38;
}

operand operand_of(const llvm::MCOperand& from, bool defined, bool& modelled)
{
    operand made;
    made.defined = defined;
    if (from.isReg()) {
        made.is_register = true;
        const known_register& known = the_names().registers[from.getReg()];
        made.count = known.count;
        made.low_half = known.low_half;
        made.scalable = known.scalable;
        made.registers = known.members;
        for (std::size_t r = 0; r < made.count; ++r)
            modelled = modelled && (made.registers[r] < register_count || made.registers[r] == zero_register);
    } else if (from.isImm()) {
        made.immediate = from.getImm();
    } else {
        modelled = false;
    }
    return made;
}

// One word, decoded by itself: its operands begin at 0.
struct decoded_word {
    instruction result;
    std::vector<operand> operands;
};

void decode(std::uint32_t word, decoded_word& made)
{
    auto& [result, operands] = made;
    result = {};
    result.word = word;
    operands.clear();
    llvm::MCInst decoded;
    if (!the_llvm().decode(word, decoded)) {
        // All branches of A64, including future ones, have 0b101x in bits 28 to 25.
        if ((word >> 26 & 7) == 5)
            result.flow = control_flow::anywhere;
        return;
    }
    const llvm::MCInstrDesc& description = the_llvm().opcodes->get(decoded.getOpcode());
    const known_opcode& known = the_names().opcodes[decoded.getOpcode()];
    result.opcode = static_cast<std::uint16_t>(decoded.getOpcode());
    result.decoded = true;
    result.flow = known.flow;
    result.kind = known.kind;
    result.modelled = known.modelled;
    // LLVM marks all exclusives as both loads and stores, and LDAPUR as neither.
    result.may_load = known.memory ? known.memory->load : description.mayLoad();
    result.may_store = known.memory ? known.memory->store : description.mayStore();
    for (unsigned i = 0; i < decoded.getNumOperands(); ++i)
        operands.push_back(operand_of(decoded.getOperand(i), i < description.getNumDefs(), result.modelled));
    if (known.keeps_a_part) {
        operand kept = operands.front();
        kept.defined = false;
        operands.push_back(kept);
    }
    result.operand_count = static_cast<std::uint8_t>(operands.size());
    if (known.is_hint)
        result.modelled = is_plain_hint(decoded.getOperand(0).getImm());
    if (operands.empty())
        return;
    const operand& last = operands.back();
    if (result.kind == instruction_kind::adr)
        result.pc_relative = static_cast<std::int32_t>(last.immediate);
    else if (result.flow == control_flow::branch || result.flow == control_flow::conditional ||
             result.flow == control_flow::call || known.is_literal)
        result.pc_relative = static_cast<std::int32_t>(4 * last.immediate);
    if (result.kind == instruction_kind::copy && // ORR xd, xzr, xm
        (operands[1].registers[0] != zero_register || last.immediate != 0))
        result.kind = instruction_kind::other;
}

// LLVM takes some thousand instructions for a word, and kernels repeat their words.
const decoded_word& find_decoded(std::uint32_t word)
{
    constexpr unsigned bits = 10; // more do not help
    thread_local std::vector<decoded_word> last_decoded(std::size_t{1} << bits);
    decoded_word& found = last_decoded[word * 0x9e3779b1U >> (32 - bits)]; // Fibonacci hashing
    if (!found.result.looked_up || found.result.word != word) {
        decode(word, found);
        found.result.looked_up = true;
    }
    return found;
}

void decode_into(instruction& at, std::vector<operand>& operands)
{
    const decoded_word& known = find_decoded(at.word);
    const instruction before = at;
    at = known.result;
    at.relocated = before.relocated;
    at.relocation = before.relocation;
    at.first_operand = static_cast<std::uint32_t>(operands.size());
    operands.insert(operands.end(), known.operands.begin(), known.operands.end());
}

register_set registers_of(const decoded_kernel& kernel, const instruction& instruction, bool defined)
{
    register_set found = defined ? implicit_defs_of(instruction) : implicit_uses_of(instruction);
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

void add_relocation(decoded_kernel& kernel, std::int64_t word, std::size_t index, bool fits)
{
    if (word < 0 || word >= static_cast<std::int64_t>(kernel.instructions.size()))
        return;
    instruction& at = kernel.instructions[static_cast<std::size_t>(word)];
    at.relocated =
        fits && at.relocated == word_relocation::none ? word_relocation::fits : word_relocation::unclear;
    at.relocation = static_cast<std::uint32_t>(index);
}

void add_relocations(decoded_kernel& result, const std::vector<tessjit::reloc_info>& relocs)
{
    for (std::size_t i = 0; i < relocs.size(); ++i) {
        const std::int64_t offset = relocs[i].offset;
        if (offset % 4 != 0) {
            const std::int64_t first = (offset - (offset < 0 ? 3 : 0)) / 4;
            add_relocation(result, first, i, false);
            add_relocation(result, first + 1, i, false);
            continue;
        }
        const bool inside = offset >= 0 && offset / 4 < static_cast<std::int64_t>(result.instructions.size());
        const wfta::relocation_kind* const expected = wfta::find_relocation_kind(relocs[i].type);
        add_relocation(result, offset / 4, i,
                       inside && expected != nullptr &&
                           (result.instructions[static_cast<std::size_t>(offset / 4)].word &
                            expected->opcode_mask) == expected->opcode);
    }
}

} // namespace

decoded_kernel prepare_decoding(const placed_kernel& kernel, decoded_kernel result)
{
    result.kernel = &kernel;
    result.instructions.assign(kernel.text.size() / 4, {});
    result.operands.clear();
    for (std::size_t i = 0; i < result.instructions.size(); ++i)
        result.instructions[i].word = word_at(kernel.text, 4 * i);
    add_relocations(result, kernel.relocs);
    return result;
}

void decode_instruction(decoded_kernel& code, std::size_t index)
{
    instruction& at = code.instructions[index];
    if (!at.looked_up)
        decode_into(at, code.operands);
}

bool is_plain(std::uint32_t word)
{
    const bool branch = (word & 0x1c000000) == 0x14000000; // or a system instruction
    const bool adr = (word & 0x1f000000) == 0x10000000;
    const bool add_constant = (word & 0x1f800000) == 0x11000000;
    const bool set_constant = (word & 0x1f800000) == 0x12800000;
    const bool copy = (word & 0x7f000000) == 0x2a000000;
    const bool literal = (word & 0x3b000000) == 0x18000000;
    const bool trap = word >> 16 == 0;
    return !branch && !adr && !add_constant && !set_constant && !copy && !literal && !trap;
}

decoded_kernel decode_kernel(const placed_kernel& kernel)
{
    decoded_kernel result = prepare_decoding(kernel);
    result.operands.reserve(4 * result.instructions.size());
    for (std::size_t i = 0; i < result.instructions.size(); ++i)
        decode_instruction(result, i);
    return result;
}

decoded_kernel decode_word(std::uint32_t word)
{
    decoded_kernel result;
    result.instructions.resize(1);
    result.instructions.front().word = word;
    decode_into(result.instructions.front(), result.operands);
    return result;
}

operand_range operands_of(const decoded_kernel& kernel, const instruction& instruction)
{
    return operand_range(kernel.operands).subspan(instruction.first_operand, instruction.operand_count);
}

const register_set& implicit_uses_of(const instruction& instruction)
{
    return opcode_of(instruction).implicit_uses;
}

const register_set& implicit_defs_of(const instruction& instruction)
{
    return opcode_of(instruction).implicit_defs;
}

register_set uses_of(const decoded_kernel& kernel, const instruction& instruction)
{
    return registers_of(kernel, instruction, false);
}

register_set defs_of(const decoded_kernel& kernel, const instruction& instruction)
{
    return registers_of(kernel, instruction, true);
}

bool tells_general_defs(const instruction& instruction)
{
    return instruction.decoded && (instruction.modelled || opcode_of(instruction).tells_general_defs);
}

bool is_prefetch(const instruction& instruction)
{
    return instruction.decoded && opcode_of(instruction).is_prefetch;
}

bool has_unsigned_offset(const instruction& instruction)
{
    return instruction.decoded && opcode_of(instruction).has_unsigned_offset;
}

bool multiplies_and_adds(std::uint32_t word)
{
    if (word >> 24 != 0x9b) // 64-bit instructions of three sources: saves decoding the others
        return false;
    const decoded_kernel code = decode_word(word);
    const instruction& at = code.instructions.front();
    return at.decoded && opcode_of(at).multiplies_and_adds &&
           operands_of(code, at).back().registers[0] != zero_register;
}

std::string_view opcode_name(std::uint32_t opcode)
{
    return name_of(opcode);
}

instruction_class class_of(const decoded_kernel& kernel, const instruction& instruction)
{
    const known_opcode& known = opcode_of(instruction);
    if (!instruction.decoded || known.is_prefetch || instruction.flow == control_flow::trap) {
        return instruction.flow == control_flow::trap && opcode_name(instruction.opcode) != "UDF"
                   ? instruction_class::branch
                   : instruction_class::other;
    }
    if (instruction.flow != control_flow::next)
        return instruction_class::branch;
    const operand_range operands = operands_of(kernel, instruction);
    const bool any =
        std::any_of(operands.begin(), operands.end(), [](const operand& o) { return o.is_register; });
    // To LLVM, hints and barriers load and store; but an address is in a register.
    if (any && (instruction.may_load || instruction.may_store))
        return instruction.may_load ? instruction_class::load : instruction_class::store;
    for (const operand& operand : operands) {
        if (operand.is_register && operand.registers[0] >= vector_register(0) &&
            operand.registers[0] < condition_flags)
            return instruction_class::fp_simd;
    }
    return any && known.modelled ? instruction_class::integer : instruction_class::other;
}

std::optional<vector_element> vector_element_of(const instruction& instruction)
{
    return opcode_of(instruction).element;
}

std::optional<memory_access> memory_access_of(const decoded_kernel& kernel, const instruction& instruction)
{
    const std::optional<memory_form>& form = opcode_of(instruction).memory;
    if (!instruction.decoded || !form)
        return std::nullopt;
    const operand_range operands = operands_of(kernel, instruction);
    memory_access access{*form};
    access.first_register = operands[form->status_operands].registers[0];
    const std::size_t last = operands.size() - 1;
    switch (form->addressing) {
    case addressing_mode::literal:
        access.offset = *instruction.pc_relative;
        break;
    case addressing_mode::register_index: // base, index, extension, shift
        access.base = operands[1].registers[0];
        access.index = operands[2].registers[0];
        break;
    case addressing_mode::post_register: // base, and XZR for the number of bytes
        access.base = operands[last - 1].registers[0];
        access.index = operands[last].registers[0];
        if (access.index == zero_register) {
            access.addressing = addressing_mode::post_index;
            access.offset = access.bytes;
        }
        break;
    default:
        access.base = operands[form->scale == 0 ? last : last - 1].registers[0];
        access.offset = form->scale * operands[last].immediate;
        break;
    }
    return access;
}

std::optional<register_sum> register_sum_of(const decoded_kernel& kernel, const instruction& instruction)
{
    const operand_range operands = operands_of(kernel, instruction);
    const known_opcode& known = opcode_of(instruction);
    switch (instruction.kind) {
    case instruction_kind::add_constant: { // destination, source, number, shift
        const std::int64_t magnitude = operands[2].immediate << operands[3].immediate;
        return register_sum{operands[0].registers[0], operands[1].registers[0],
                            known.subtracts ? -magnitude : magnitude, known.wide, known.sets_flags};
    }
    case instruction_kind::copy: // destination, XZR, source, shift
        return register_sum{operands[0].registers[0], operands[2].registers[0], 0, known.wide, false};
    default:
        return std::nullopt;
    }
}

std::optional<register_number> register_number_of(const decoded_kernel& kernel,
                                                  const instruction& instruction)
{
    const operand_range operands = operands_of(kernel, instruction);
    const known_opcode& known = opcode_of(instruction);
    const std::uint64_t whole = known.wide ? ~std::uint64_t{0} : 0xffffffff;
    const bool keeps = instruction.kind == instruction_kind::keep_others;
    if (!keeps && instruction.kind != instruction_kind::set_constant)
        return std::nullopt;
    const std::size_t number = keeps ? 2 : 1; // after the register, which MOVK also uses
    const auto shift = static_cast<unsigned>(operands[number + 1].immediate);
    const std::uint64_t part = static_cast<std::uint64_t>(operands[number].immediate) << shift;
    return register_number{operands[0].registers[0], keeps ? whole & ~(std::uint64_t{0xffff} << shift) : 0,
                           known.subtracts ? ~part & whole : part};
}

} // namespace vorna::workbench
