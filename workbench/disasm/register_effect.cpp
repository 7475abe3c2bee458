// Each opcode is classified once, by LLVM's name; a few need a look at the operands of the instruction too.

#include "workbench/disasm/register_effect.hpp"

#include "workbench/disasm/llvm.hpp"

#include <algorithm>
#include <bit>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace vorna::workbench {

namespace {

using std::int64_t;
using std::uint64_t;
using std::uint8_t;

struct known_effect {
    register_effect effect = register_effect::compute;
    uint8_t element_bytes = 0; // of lanes
    bool if_same = false;      // only if the last two registers are the same
    bool only_shift_0 = false; // and an immediate after them is 0
    bool subtracts = false;    // otherwise, SUB Xd, Xn, Xm
    bool key_b = false;
    bool scalable_load = false; // SVE
    bool scalable_store = false;
};

bool is_one_of(std::string_view name, std::initializer_list<std::string_view> names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool begins_with_one_of(std::string_view name, std::initializer_list<std::string_view> beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](std::string_view beginning) { return name.starts_with(beginning); });
}

bool contains(std::string_view name, std::string_view part)
{
    return name.find(part) != std::string_view::npos;
}

// "i8", "i16", "i32", "i64" at the position, in bytes; otherwise 0.
uint8_t bytes_of_type(std::string_view name, std::size_t at)
{
    const std::string_view rest = name.substr(std::min(at, name.size()));
    if (rest.starts_with("i8"))
        return 1;
    if (rest.starts_with("i16"))
        return 2;
    if (rest.starts_with("i32"))
        return 4;
    return rest.starts_with("i64") ? 8 : 0;
}

// XTN2, SQXTUN2, FCVTN2, ADDHN2, RSHRN2 and others: LLVM names them after the arrangement of all 128 bits.
bool narrows_to_upper_half(std::string_view name)
{
    if (name == "BFCVTN2")
        return true;
    if (!begins_with_one_of(name, {"XTNv", "SQXTNv", "UQXTNv", "SQXTUNv", "FCVTNv", "FCVTXNv", "ADDHNv",
                                   "SUBHNv", "RADDHNv", "RSUBHNv", "SHRNv", "RSHRNv", "SQSHRNv", "UQSHRNv",
                                   "SQSHRUNv", "SQRSHRNv", "UQRSHRNv", "SQRSHRUNv"}))
        return false;
    if (contains(name, "HNv")) // names both arrangements
        return contains(name, "_v16i8") || contains(name, "_v8i16") || contains(name, "_v4i32");
    return contains(name, "v16i8") || contains(name, "v8i16") || contains(name, "v4i32") ||
           contains(name, "v4f32");
}

// "_D", "_DtoS", "_StoD", in bytes: the size of the larger elements.
uint8_t size_in_suffix(std::string_view name)
{
    constexpr std::string_view types = "BHSD";
    uint8_t size = 0;
    for (const char letter : name.substr(name.rfind('_') + 1)) {
        if (const std::size_t type = types.find(letter); type != std::string_view::npos)
            size = std::max(size, static_cast<uint8_t>(1U << type));
    }
    return size;
}

known_effect classify(std::string_view name)
{
    using enum register_effect;
    known_effect found;
    const auto is = [&](register_effect effect) {
        found.effect = effect;
        return found;
    };
    if (is_one_of(name, {"EORWrs", "EORXrs", "SUBWrs", "SUBXrs", "SUBSWrs", "SUBSXrs", "BICWrs", "BICXrs"})) {
        found.if_same = found.only_shift_0 = true;
        found.subtracts = name == "SUBXrs";
        return is(clear);
    }
    if (name.starts_with("EORv") || name.starts_with("SUBv") || name.starts_with("EOR_ZZZ") ||
        name.starts_with("SUB_ZZZ_") || name.starts_with("BIC_ZZZ") ||
        is_one_of(name, {"BICv8i8", "BICv16i8", "EOR_PPzPP"})) {
        found.if_same = true;
        return is(clear);
    }
    if (is_one_of(name, {"ORRv8i8", "ORRv16i8", "ORR_ZZZ", "ANDv8i8", "ANDv16i8", "AND_ZZZ"})) {
        found.if_same = true;
        return is(copy);
    }
    if (is_one_of(name, {"FMOVDr", "MOVPRFX_ZZ"}))
        return is(copy);
    if (is_one_of(name, {"ORR_PPzPP"})) {
        found.if_same = true;
        return is(copy);
    }
    if (is_one_of(name, {"FMOVDXr", "FMOVDXHighr", "UMOVvi64", "UMOVvi64_idx0"})) {
        found.element_bytes = 8;
        return is(copy_lane);
    }
    if (name == "FMOVXDr" || name == "DUPv2i64gpr")
        return is(copy_to_vector);
    if (begins_with_one_of(name, {"CMEQv", "CMGEv", "CMGTv", "CMHIv", "CMHSv"}) && !name.ends_with("rz")) {
        found.if_same = true;
        return is(clear);
    }
    if (name == "FMOVXDHighr") {
        found.element_bytes = 8;
        return is(set_lane);
    }
    if (name == "DUPi64") {
        found.element_bytes = 8;
        return is(scalar_from_lane);
    }
    if (name.starts_with("DUPi") || (name.starts_with("DUPv") && name.ends_with("lane"))) {
        found.element_bytes =
            name.starts_with("DUPi") ? bytes_of_type(name, 3) : bytes_of_type(name, name.find('i'));
        return is(duplicate_lane);
    }
    if (name.starts_with("DUP_ZZI_") && !name.ends_with('Q')) {
        found.element_bytes = size_in_suffix(name);
        return is(duplicate_lane);
    }
    if (name.starts_with("INSvi")) {
        found.element_bytes = bytes_of_type(name, 4);
        return is(set_lane);
    }
    if (begins_with_one_of(name, {"LD1i", "LD2i", "LD3i", "LD4i"})) {
        found.element_bytes = bytes_of_type(name, 3);
        return is(set_lane);
    }
    if (narrows_to_upper_half(name))
        return is(set_upper_half);
    if (is_one_of(name, {"MOVKWi", "MOVKXi", "BFMWri", "BFMXri"}))
        return is(keep_bits);
    if (is_one_of(name, {"ADDXrs", "ADDXrx64", "SUBXrx64"}))
        return is(name.starts_with("ADD") ? add_registers : subtract_registers);
    if (name.starts_with("PTRUE_")) {
        found.element_bytes = size_in_suffix(name);
        return is(all_true);
    }
    if (begins_with_one_of(name, {"RDFFR", "SETFFR", "WRFFR", "LDFF1", "LDNF1", "GLDFF1", "SYS"}) ||
        is_one_of(name, {"IRG", "SB"}))
        return is(follow_operands);
    if (begins_with_one_of(name,
                           {"CSEL", "CSINC", "CSINV", "CSNEG", "FCSEL", "SEL_", "BSLv", "BITv", "BIFv"}))
        return is(select);
    if (contains(name, "_ZPm")) {
        found.element_bytes = size_in_suffix(name);
        return is(keep_inactive); // if the operands agree
    }
    if (is_one_of(name, {"ADDVL_XXI", "ADDPL_XXI"}))
        return is(add_vector_lengths);
    if (name == "RDVLI_XI")
        return is(vector_length);
    if (is_one_of(name, {"ANDXri", "ANDSXri"}))
        return is(align_down);
    found.key_b = contains(name, "IB");
    if (is_one_of(name, {"PACIASP", "PACIBSP"}))
        return is(sign_link);
    if (is_one_of(name, {"AUTIASP", "AUTIBSP"}))
        return is(authenticate_link);
    if (name == "XPACLRI")
        return is(strip_link);
    if (name.starts_with("MSRpstatesvcr"))
        return is(change_streaming);
    if (name == "MRS")
        return is(read_system);
    if (name == "MSR")
        return is(write_system);
    return found;
}

// Loads and stores of SVE; their form is in LLVM's tables, but not which registers form the address.
void find_scalable_access(std::string_view name, const llvm::MCInstrDesc& description, known_effect& found)
{
    if (memory_form_of(name) || name.starts_with("PRF"))
        return;
    const auto begins = [&](std::string_view mnemonic) {
        // LD1D_IMM, LDNT1D_ZRI, LDFF1D, ST1W_D, LDR_ZXI, GLD1D; not LD1i8 or LD1Twov16b
        return name.starts_with(mnemonic);
    };
    const bool has_z = begins("LDR_ZXI") || begins("LDR_PXI") || begins("GLD") ||
                       ((begins("LD1") || begins("LD2") || begins("LD3") || begins("LD4") ||
                         begins("LDNT1") || begins("LDFF1") || begins("LDNF1")) &&
                        description.mayLoad());
    const bool stores =
        begins("STR_ZXI") || begins("STR_PXI") || begins("SST1") ||
        ((begins("ST1") || begins("ST2") || begins("ST3") || begins("ST4") || begins("STNT1")) &&
         description.mayStore());
    found.scalable_load = has_z;
    found.scalable_store = stores;
}

const known_effect& known_effect_of(const instruction& instruction)
{
    static const std::vector<known_effect> effects = [] {
        const llvm_aarch64& llvm = the_llvm();
        std::vector<known_effect> made;
        made.reserve(llvm.opcodes->getNumOpcodes());
        for (unsigned i = 0; i < llvm.opcodes->getNumOpcodes(); ++i) {
            const std::string_view name = opcode_name(i);
            made.push_back(classify(name));
            find_scalable_access(name, llvm.opcodes->get(i), made.back());
        }
        return made;
    }();
    return effects[instruction.opcode];
}

bool is_predicate(const operand& operand)
{
    return operand.is_register && operand.count == 1 && operand.registers[0] >= predicate_register(0) &&
           operand.registers[0] <= predicate_register(15);
}

// Whether the last two registers are the same and are not shifted.
bool has_same_sources(operand_range operands, bool only_shift_0)
{
    if (only_shift_0) {
        if (operands.empty() || operands.back().is_register || operands.back().immediate != 0)
            return false;
        operands = operands.first(operands.size() - 1);
    }
    return operands.size() >= 3 && operands.back().is_register &&
           operands.back() == operands[operands.size() - 2];
}

// Bits N, immr and imms of a logical immediate that clears the low bits only: the number of these bits.
std::optional<unsigned> cleared_low_bits(int64_t encoded)
{
    const auto bits = static_cast<uint64_t>(encoded);
    const auto ones = static_cast<unsigned>(bits & 63) + 1;
    const auto rotation = static_cast<unsigned>(bits >> 6 & 63);
    if ((bits >> 12 & 1) == 0 || ones == 64 || rotation != ones)
        return std::nullopt;
    return 64 - ones;
}

} // namespace

register_effect effect_of(const decoded_kernel& kernel, const instruction& instruction)
{
    if (!instruction.decoded)
        return register_effect::compute;
    const known_effect& known = known_effect_of(instruction);
    const operand_range operands = operands_of(kernel, instruction);
    if (known.if_same && !has_same_sources(operands, known.only_shift_0))
        return known.subtracts && operands.back().immediate == 0 ? register_effect::subtract_registers
                                                                 : register_effect::compute;
    switch (known.effect) {
    case register_effect::copy: // MOV of a predicate: ORR Pd, Pn/Z, Pn, Pn
        if (operands[0].registers[0] >= predicate_register(0) && !(operands[1] == operands[2]))
            return register_effect::compute;
        break;
    case register_effect::keep_inactive: // Zd, Zd, Pg, ...; otherwise Zd is a source too
        if (operands.size() < 4 || !operands[1].is_register || !is_predicate(operands[2]) ||
            operands[1].registers[0] != operands[0].registers[0])
            return register_effect::compute;
        break;
    case register_effect::add_registers:
    case register_effect::subtract_registers: // the shift is 0, or that of UXTX #0
        if (operands.back().immediate != 0 && operands.back().immediate != 24)
            return register_effect::compute;
        break;
    case register_effect::all_true:
        if (operands.back().immediate != 31)
            return register_effect::compute;
        break;
    case register_effect::align_down:
        if (!cleared_low_bits(operands.back().immediate))
            return register_effect::compute;
        break;
    default:
        break;
    }
    return known.effect;
}

std::optional<vector_lane> lane_set_by(const decoded_kernel& kernel, const instruction& instruction)
{
    if (effect_of(kernel, instruction) != register_effect::set_lane)
        return std::nullopt;
    const uint8_t bytes = known_effect_of(instruction).element_bytes;
    for (const operand& operand : operands_of(kernel, instruction)) {
        if (!operand.is_register)
            return vector_lane{static_cast<uint8_t>(operand.immediate * bytes), bytes};
    }
    return std::nullopt;
}

std::optional<vector_lane> lane_read_by(const decoded_kernel& kernel, const instruction& instruction)
{
    const register_effect effect = effect_of(kernel, instruction);
    const uint8_t bytes = known_effect_of(instruction).element_bytes;
    const operand_range operands = operands_of(kernel, instruction);
    const bool of_element =
        effect == register_effect::set_lane && operands.size() == 5 && // INS Vd.T[i], Vn.T[j]
        operands[3].is_register && !operands[4].is_register &&
        operands[3].registers[0] >= vector_register(0) && operands[3].registers[0] < predicate_register(0);
    if (!of_element && effect != register_effect::copy_lane && effect != register_effect::scalar_from_lane &&
        effect != register_effect::duplicate_lane)
        return std::nullopt;
    const int64_t lane = operands.back().is_register ? 0 : operands.back().immediate;
    if (lane * bytes >= 256)
        return std::nullopt;
    return vector_lane{static_cast<uint8_t>(lane * bytes), bytes};
}

std::optional<scalable_sum> scalable_sum_of(const decoded_kernel& kernel, const instruction& instruction)
{
    const operand_range operands = operands_of(kernel, instruction);
    switch (effect_of(kernel, instruction)) {
    case register_effect::add_vector_lengths: {
        const int64_t unit = opcode_name(instruction.opcode) == "ADDVL_XXI" ? 8 : 1;
        return scalable_sum{operands[0].registers[0], operands[1].registers[0], unit * operands[2].immediate};
    }
    case register_effect::vector_length:
        return scalable_sum{operands[0].registers[0], zero_register, 8 * operands[1].immediate};
    default:
        return std::nullopt;
    }
}

std::optional<scalable_access> scalable_access_of(const decoded_kernel& kernel,
                                                  const instruction& instruction)
{
    if (!instruction.decoded)
        return std::nullopt;
    const known_effect& known = known_effect_of(instruction);
    if (!known.scalable_load && !known.scalable_store)
        return std::nullopt;
    const operand_range operands = operands_of(kernel, instruction);
    const std::string_view name = opcode_name(instruction.opcode);
    scalable_access access;
    access.load = known.scalable_load;
    access.store = known.scalable_store;
    access.first_register = operands[0].registers[0];
    access.whole = is_one_of(name, {"LDR_ZXI", "STR_ZXI", "LDR_PXI", "STR_PXI"});
    const operand& last = operands.back();
    if (access.whole) {
        access.base = operands[1].registers[0];
        access.count = last.immediate * (name.substr(3).starts_with("_Z") ? 8 : 1);
        return access;
    }
    for (const operand& operand : operands) { // the first general register is the base
        if (operand.is_register && operand.count == 1 && is_general(operand.registers[0])) {
            access.base = operand.registers[0];
            break;
        }
    }
    if (!last.is_register && last.immediate == 0 && access.base != zero_register)
        access.count = 0;
    return access;
}

uint64_t alignment_of(const decoded_kernel& kernel, const instruction& instruction)
{
    return uint64_t{1} << *cleared_low_bits(operands_of(kernel, instruction).back().immediate);
}

system_register system_register_of(const decoded_kernel& kernel, const instruction& instruction)
{
    for (const operand& operand : operands_of(kernel, instruction)) {
        if (operand.is_register)
            continue;
        switch (operand.immediate) { // op0 to op2, as in the instruction
        case 0xda10:
            return system_register::nzcv;
        case 0xda20:
            return system_register::fpcr;
        case 0xda21:
            return system_register::fpsr;
        default:
            return system_register::other;
        }
    }
    return system_register::other;
}

unsigned element_bytes_of(const instruction& instruction)
{
    return known_effect_of(instruction).element_bytes;
}

bool uses_key_b(const instruction& instruction)
{
    return known_effect_of(instruction).key_b;
}

} // namespace vorna::workbench
