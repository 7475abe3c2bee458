// Compares the memory accesses of loads, stores and atomics with the text that LLVM prints, interpreted
// according to the Arm Architecture Reference Manual, for every pattern of an instruction's upper 22 bits.

#include "workbench/disasm/memory_access.hpp"
#include "tests/support/assemble.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/disasm/disassembler.hpp"

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace {

using namespace vorna::workbench;

bool take(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

std::int64_t number_in(std::string_view text)
{
    const std::size_t hash = text.find('#');
    return hash == std::string_view::npos ? 0 : std::stoll(std::string(text.substr(hash + 1)));
}

// "w3", "v3", "sp", "xzr".
register_id register_in(std::string_view name)
{
    if (name.starts_with("sp"))
        return stack_pointer;
    if (name.substr(1).starts_with("zr"))
        return zero_register;
    const bool vector = std::string_view("bhsdqv").find(name[0]) != std::string_view::npos;
    const auto number = static_cast<unsigned>(std::stoul(std::string(name.substr(1))));
    return vector ? vector_register(number) : general_register(number);
}

unsigned bytes_of_letter(char letter)
{
    switch (letter) {
    case 'b':
        return 1;
    case 'h':
        return 2;
    case 'w':
    case 's':
        return 4;
    case 'x':
    case 'd':
        return 8;
    default:
        return 16;
    }
}

using effect = std::tuple<bool, bool, bool, bool, bool, bool, bool, unsigned, unsigned, unsigned, unsigned,
                          register_id, register_id, register_id, std::int64_t>;

effect effect_of(const memory_access& a)
{
    return {a.load,
            a.store,
            a.exclusive,
            a.ordered,
            a.atomic,
            a.fp_simd,
            a.sign_extended,
            a.bytes,
            a.element_bytes,
            a.registers,
            static_cast<unsigned>(a.addressing),
            a.first_register,
            a.base,
            a.index,
            a.offset};
}

void read_address(std::string_view text, memory_access& access)
{
    const std::size_t begin = text.rfind('['); // lane indices are in brackets too
    const std::size_t end = text.find(']', begin);
    const std::string_view inside = text.substr(begin + 1, end - begin - 1);
    std::string_view after = text.substr(end + 1);
    access.base = register_in(inside);
    const std::size_t comma = inside.find(", ");
    const std::string_view second =
        comma == std::string_view::npos ? std::string_view() : inside.substr(comma + 2);
    access.addressing = addressing_mode::offset;
    if (!second.empty() && second[0] != '#') {
        access.addressing = addressing_mode::register_index;
        access.index = register_in(second);
        return;
    }
    access.offset = number_in(second);
    if (after.starts_with("!")) {
        access.addressing = addressing_mode::pre_index;
    } else if (take(after, ", ")) {
        access.addressing = after[0] == '#' ? addressing_mode::post_index : addressing_mode::post_register;
        if (after[0] == '#')
            access.offset = number_in(after);
        access.index = after[0] == '#' ? zero_register : register_in(after);
    }
}

// The operands in braces: "{ v3.8h, v4.8h }" and "{ v3.h }[2]".
bool read_structure(std::string_view mnemonic, std::string_view operands, memory_access& access)
{
    const std::size_t close = operands.find('}');
    const std::string_view list = operands.substr(2, close - 3);
    const std::string_view shape = list.substr(list.find('.') + 1, list.find(',') - list.find('.') - 1);
    access.registers = static_cast<std::uint8_t>(1 + std::count(list.begin(), list.end(), ','));
    access.element_bytes = static_cast<std::uint8_t>(bytes_of_letter(shape.back()));
    const bool lane = operands[close + 1] == '[';
    const bool whole = !lane && mnemonic.back() != 'r';
    const unsigned lanes = whole ? static_cast<unsigned>(std::stoul(std::string(shape))) : 1;
    access.bytes = static_cast<std::uint8_t>(access.registers * access.element_bytes * lanes);
    access.fp_simd = true;
    access.first_register = register_in(list);
    read_address(operands.substr(close), access);
    return true;
}

// The access size follows from the register's letter, unless the mnemonic has a size suffix.
bool read_size(std::string_view suffix, std::string_view first, memory_access& access)
{
    access.fp_simd = std::string_view("bhsdq").find(first[0]) != std::string_view::npos && first != "sp";
    access.first_register = register_in(first);
    static const std::map<std::string_view, std::pair<unsigned, bool>> sizes = {
        {"b", {1, false}}, {"h", {2, false}}, {"sb", {1, true}}, {"sh", {2, true}}, {"sw", {4, true}}};
    if (suffix.empty()) {
        access.element_bytes = static_cast<std::uint8_t>(bytes_of_letter(first[0]));
        return true;
    }
    const auto found = sizes.find(suffix);
    if (found == sizes.end())
        return false;
    access.element_bytes = static_cast<std::uint8_t>(found->second.first);
    access.sign_extended = found->second.second;
    return true;
}

std::vector<std::string_view> split(std::string_view operands)
{
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t comma = operands.find(", ");
        parts.push_back(operands.substr(0, comma));
        if (comma == std::string_view::npos)
            return parts;
        operands.remove_prefix(comma + 2);
    }
}

// The access according to an instruction's text; nothing for other instructions.
std::optional<memory_access> read_text(std::string_view text)
{
    const std::size_t blank = std::min(text.find(' '), text.size());
    const std::string_view mnemonic = text.substr(0, blank);
    const std::string_view operands = text.substr(std::min(blank + 1, text.size()));
    if (operands.find('[') == std::string_view::npos)
        return std::nullopt;
    memory_access access;
    access.registers = 1;
    std::string_view rest = mnemonic;
    const std::vector<std::string_view> parts = split(operands);
    if (operands[0] == '{') {
        access.load = take(rest, "ld");
        access.store = !access.load && take(rest, "st");
        const bool structure = rest.size() <= 2 && !rest.empty() && rest[0] >= '1' && rest[0] <= '4' &&
                               (rest.size() == 1 || rest[1] == 'r') && operands[2] == 'v';
        if (!structure)
            return std::nullopt;
        read_structure(mnemonic, operands, access);
        return access;
    }
    if (std::string_view("zp").find(operands[0]) != std::string_view::npos)
        return std::nullopt; // SVE, prefetches
    read_address(operands, access);

    std::size_t first = 0; // operand that is loaded or stored
    const auto all_of = [&](std::initializer_list<std::string_view> names) {
        return std::any_of(names.begin(), names.end(),
                           [&](std::string_view name) { return take(rest, name); });
    };
    if (all_of({"casp"})) {
        access.load = access.store = access.atomic = true;
        access.registers = 2;
        first = 2;
    } else if (all_of({"cas", "swp", "ldadd", "ldclr", "ldeor", "ldset", "ldsmax", "ldsmin", "ldumax",
                       "ldumin"})) {
        access.load = access.store = access.atomic = true;
        first = 1;
    } else if (all_of({"ldaxp", "ldxp"})) {
        access.load = access.exclusive = true;
        access.ordered = mnemonic == "ldaxp";
        access.registers = 2;
    } else if (all_of({"stlxp", "stxp"})) {
        access.store = access.exclusive = true;
        access.ordered = mnemonic == "stlxp";
        access.registers = 2;
        first = 1;
    } else if (all_of({"ldaxr", "ldxr"})) {
        access.load = access.exclusive = true;
        access.ordered = mnemonic.starts_with("lda");
    } else if (all_of({"stlxr", "stxr"})) {
        access.store = access.exclusive = true;
        access.ordered = mnemonic.starts_with("stl");
        first = 1;
    } else if (all_of({"ldapur", "ldapr", "ldlar", "ldar"})) {
        access.load = access.ordered = true;
    } else if (all_of({"stlur", "stllr", "stlr"})) {
        access.store = access.ordered = true;
    } else if (all_of({"ldnp", "ldp"})) {
        access.load = true;
        access.registers = 2;
    } else if (all_of({"stnp", "stp", "stgp"})) {
        access.store = true;
        access.registers = 2;
    } else if (all_of({"ldraa", "ldrab", "ldur", "ldtr", "ldr"})) {
        access.load = true;
    } else if (all_of({"stur", "sttr", "str"})) {
        access.store = true;
    } else {
        return std::nullopt;
    }
    if (access.atomic) {
        const bool acquires = take(rest, "a");
        const bool releases = take(rest, "l");
        access.ordered = acquires || releases;
    }
    if (first >= parts.size() || !read_size(rest, parts[first], access))
        return std::nullopt;
    access.bytes = static_cast<std::uint8_t>(access.element_bytes * access.registers);
    return access;
}

TEST(MemoryAccesses, AreThoseOfThePrintedTextForEveryPatternOfTheUpperBits)
{
    disassembler disassembler;
    std::map<std::string, int> known;    // mnemonics whose accesses are decoded
    std::map<std::string, int> left_out; // mnemonics with other effects on memory
    std::set<std::string> failures;
    const auto check = [&](std::uint32_t word) {
        const decoded_kernel code = decode_word(word);
        const instruction& at = code.instructions.front();
        const std::optional<memory_access> found = memory_access_of(code, at);
        if (!at.may_load && !at.may_store && !found)
            return;
        const std::string text = disassembler.text(word, 0);
        const std::string mnemonic = text.substr(0, text.find(' '));
        if (found && found->addressing == addressing_mode::literal)
            return;
        if (!found) {
            ++left_out[mnemonic];
            return;
        }
        ++known[mnemonic];
        const std::optional<memory_access> expected = read_text(text);
        if ((!expected || effect_of(*expected) != effect_of(*found) || found->load != at.may_load ||
             found->store != at.may_store) &&
            failures.insert(mnemonic).second)
            ADD_FAILURE() << text << " (" << std::hex << word << ", " << opcode_name(at.opcode) << ")";
    };
    // The base is X5 and the first register X3 or V3; the upper bits determine the second register.
    for (std::uint32_t upper = 0; upper < 1U << 22; ++upper)
        check(upper << 10 | 5U << 5 | 3);
    // CASP needs even registers.
    for (std::uint32_t upper = 0x082 << 11; upper < 0x4bf << 11; ++upper)
        check(upper << 10 | 31U << 5 | 4);
    for (const auto& [mnemonic, count] : left_out)
        std::cout << mnemonic << " ";
    std::cout << "\n" << known.size() << " " << left_out.size() << "\n";
}

} // namespace
