// LLVM's opcode names are composed of mnemonic, register and addressing mode: LDR + D + ui, ST + L + XP + W,
// LD3 + Three + v8h + _POST. A small parser for each group of mnemonics consumes the name from the left. A
// name that is not consumed completely belongs to another instruction.
//
//   LDR, LDUR, LDTR, LDAPUR, STR, ...   single registers, with all addressing modes
//   LDP, STP, LDNP, STGP, ...           pairs
//   LDXR, STLR, CAS, SWP, LDADD, ...    exclusives, ordered accesses, atomics: base register only
//   LD1 to LD4, ST1 to ST4              structures: whole vectors, one lane, all lanes
//
// The tests compare the result with the printed form of every load and store.

#include "workbench/disasm/memory_access.hpp"

#include <utility>

namespace vorna::workbench {

namespace {

class scanner {
public:
    explicit scanner(std::string_view text) : text_(text) {}

    bool take(std::string_view prefix)
    {
        if (!text_.starts_with(prefix))
            return false;
        text_.remove_prefix(prefix.size());
        return true;
    }

    // Consumes the first name of the table that matches, and returns its value; null if none does.
    template <typename value, std::size_t count>
    const value* take_one(const std::pair<std::string_view, value> (&table)[count])
    {
        for (const auto& [name, one] : table) {
            if (take(name))
                return &one;
        }
        return nullptr;
    }

    [[nodiscard]] std::string_view rest() const { return text_; }

private:
    std::string_view text_;
};

struct register_form {
    std::uint8_t bytes;
    bool fp_simd = false;
    bool sign_extended = false;
};

using named_register = std::pair<std::string_view, register_form>;

// In each table a name precedes its prefixes.
constexpr named_register general_registers[] = {{"SBW", {1, false, true}},
                                                {"SBX", {1, false, true}},
                                                {"SHW", {2, false, true}},
                                                {"SHX", {2, false, true}},
                                                {"SW", {4, false, true}},
                                                {"B", {1}},
                                                {"H", {2}},
                                                {"W", {4}},
                                                {"X", {8}}};

constexpr named_register all_registers[] = {{"SBW", {1, false, true}},
                                            {"SBX", {1, false, true}},
                                            {"SHW", {2, false, true}},
                                            {"SHX", {2, false, true}},
                                            {"SW", {4, false, true}},
                                            {"BB", {1}},
                                            {"HH", {2}},
                                            {"W", {4}},
                                            {"X", {8}},
                                            {"B", {1, true}},
                                            {"H", {2, true}},
                                            {"S", {4, true}},
                                            {"D", {8, true}},
                                            {"Q", {16, true}}};

constexpr named_register ordered_vector_registers[] = {
    {"b", {1, true}}, {"h", {2, true}}, {"s", {4, true}}, {"d", {8, true}}, {"q", {16, true}}};

memory_form form_with(const register_form& one, std::uint8_t registers)
{
    memory_form form;
    form.fp_simd = one.fp_simd;
    form.sign_extended = one.sign_extended;
    form.element_bytes = one.bytes;
    form.registers = registers;
    form.bytes = static_cast<std::uint8_t>(one.bytes * registers);
    return form;
}

// "ui", "i", "pre", "post", "roW", "roX", "l"; `scale` is that of an immediate in units of the register size.
bool take_addressing(std::string_view suffix, std::uint8_t scale, bool pair, memory_form& form)
{
    form.scale = 1;
    if (suffix == "ui" && !pair) {
        form.scale = scale;
    } else if (suffix == "i") {
        form.scale = pair ? scale : 1;
    } else if (suffix == "pre" || suffix == "post") {
        form.addressing = suffix == "pre" ? addressing_mode::pre_index : addressing_mode::post_index;
        form.scale = pair ? scale : 1;
        form.status_operands = 1;
    } else if ((suffix == "roW" || suffix == "roX") && !pair) {
        form.addressing = addressing_mode::register_index;
        form.scale = 0;
    } else if (suffix == "l" && !pair && form.load) {
        form.addressing = addressing_mode::literal;
        form.scale = 4;
    } else {
        return false;
    }
    return true;
}

// LDR, STR and their variants, with an offset or an index register.
std::optional<memory_form> single_register(scanner name)
{
    struct mnemonic {
        bool load;
        bool ordered;
        bool general_only;
    };
    static constexpr std::pair<std::string_view, mnemonic> mnemonics[] = {
        {"LDAPUR", {true, true, true}}, {"LDUR", {true, false, false}}, {"LDTR", {true, false, true}},
        {"LDR", {true, false, false}},  {"STLUR", {false, true, true}}, {"STUR", {false, false, false}},
        {"STTR", {false, false, true}}, {"STR", {false, false, false}}};
    const mnemonic* const found = name.take_one(mnemonics);
    if (found == nullptr)
        return std::nullopt;
    const register_form* one = nullptr;
    static constexpr register_form word{4};
    if (!found->general_only)
        one = name.take_one(all_registers);
    else if (found->ordered && name.rest() == "i") // LDAPURi
        one = &word;
    else
        one = name.take_one(general_registers);
    if (one == nullptr && found->ordered)
        one = name.take_one(ordered_vector_registers);
    if (one == nullptr)
        return std::nullopt;
    memory_form form = form_with(*one, 1);
    form.load = found->load;
    form.store = !found->load;
    form.ordered = found->ordered;
    if (!take_addressing(name.rest(), one->bytes, false, form))
        return std::nullopt;
    return form;
}

std::optional<memory_form> authenticated(scanner name)
{
    if (!name.take("LDRAA") && !name.take("LDRAB"))
        return std::nullopt;
    memory_form form = form_with({8}, 1);
    form.load = form.authenticates = true;
    form.scale = 8;
    if (name.rest() == "writeback") {
        form.addressing = addressing_mode::pre_index;
        form.status_operands = 1;
    } else if (name.rest() != "indexed") {
        return std::nullopt;
    }
    return form;
}

std::optional<memory_form> pair(scanner name)
{
    if (name.take("STGP")) { // stores a pair, and the tag of its 16 bytes
        memory_form form = form_with({8}, 2);
        form.store = true;
        if (!take_addressing(name.rest(), 16, true, form))
            return std::nullopt;
        return form;
    }
    static constexpr std::pair<std::string_view, bool> loads[] = {
        {"LDNP", true}, {"LDP", true}, {"STNP", false}, {"STP", false}};
    static constexpr named_register pairs[] = {{"SW", {4, false, true}}, {"W", {4}},       {"X", {8}},
                                               {"S", {4, true}},         {"D", {8, true}}, {"Q", {16, true}}};
    const bool* const load = name.take_one(loads);
    const register_form* const one = load == nullptr ? nullptr : name.take_one(pairs);
    if (one == nullptr)
        return std::nullopt;
    memory_form form = form_with(*one, 2);
    form.load = *load;
    form.store = !*load;
    if (!take_addressing(name.rest(), one->bytes, true, form))
        return std::nullopt;
    return form;
}

// LDXR, STLR and their variants: base register only.
std::optional<memory_form> exclusive_or_ordered(scanner name)
{
    struct mnemonic {
        bool load;
        bool exclusive;
        bool ordered;
        std::uint8_t registers;
    };
    static constexpr std::pair<std::string_view, mnemonic> mnemonics[] = {
        {"LDAXR", {true, true, true, 1}},  {"LDAXP", {true, true, true, 2}},
        {"LDXR", {true, true, false, 1}},  {"LDXP", {true, true, false, 2}},
        {"STLXR", {false, true, true, 1}}, {"STLXP", {false, true, true, 2}},
        {"STXR", {false, true, false, 1}}, {"STXP", {false, true, false, 2}},
        {"LDLAR", {true, false, true, 1}}, {"LDAPR", {true, false, true, 1}},
        {"LDAR", {true, false, true, 1}},  {"STLLR", {false, false, true, 1}},
        {"STLR", {false, false, true, 1}}};
    static constexpr named_register sizes[] = {{"B", {1}}, {"H", {2}}, {"W", {4}}, {"X", {8}}};
    const mnemonic* const found = name.take_one(mnemonics);
    const register_form* const one = found == nullptr ? nullptr : name.take_one(sizes);
    if (one == nullptr || !name.rest().empty() || (found->registers == 2 && one->bytes < 4))
        return std::nullopt;
    memory_form form = form_with(*one, found->registers);
    form.load = found->load;
    form.store = !found->load;
    form.exclusive = found->exclusive;
    form.ordered = found->ordered;
    form.status_operands = form.exclusive && form.store ? 1 : 0;
    return form;
}

// CAS, SWP, LDADD and their variants.
std::optional<memory_form> atomic(scanner name)
{
    static constexpr std::pair<std::string_view, std::uint8_t> mnemonics[] = {
        // with the number of registers
        {"CASP", 2},  {"CAS", 1},    {"SWP", 1},    {"LDADD", 1},  {"LDCLR", 1}, {"LDEOR", 1},
        {"LDSET", 1}, {"LDSMAX", 1}, {"LDSMIN", 1}, {"LDUMAX", 1}, {"LDUMIN", 1}};
    static constexpr named_register sizes[] = {{"B", {1}}, {"H", {2}}, {"W", {4}}, {"X", {8}}};
    const bool compares = name.rest().starts_with("CAS");
    const std::uint8_t* const registers = name.take_one(mnemonics);
    if (registers == nullptr)
        return std::nullopt;
    const bool acquires = name.take("A");
    const bool releases = name.take("L");
    const register_form* const one = name.take_one(sizes);
    if (one == nullptr || !name.rest().empty() || (*registers == 2 && one->bytes < 4))
        return std::nullopt;
    memory_form form = form_with(*one, *registers);
    form.load = form.store = form.atomic = true;
    form.ordered = acquires || releases;
    form.status_operands = compares ? 2 : 0; // the compared register, as def and as use
    return form;
}

// LD1 to LD4 and ST1 to ST4: whole vectors, one lane, all lanes.
std::optional<memory_form> structure(scanner name)
{
    memory_form form;
    form.load = name.take("LD");
    form.store = !form.load && name.take("ST");
    if (!form.load && !form.store)
        return std::nullopt;
    static constexpr std::pair<std::string_view, std::uint8_t> digits[] = {
        {"1", 1}, {"2", 2}, {"3", 3}, {"4", 4}};
    static constexpr std::pair<std::string_view, std::uint8_t> counts[] = {
        {"One", 1}, {"Two", 2}, {"Three", 3}, {"Four", 4}};
    static constexpr std::pair<std::string_view, std::uint8_t> lanes[] = {
        {"i8", 1}, {"i16", 2}, {"i32", 4}, {"i64", 8}};
    struct arrangement {
        std::uint8_t element;
        std::uint8_t vector;
    };
    static constexpr std::pair<std::string_view, arrangement> arrangements[] = {
        {"v16b", {1, 16}}, {"v8b", {1, 8}}, {"v8h", {2, 16}}, {"v4h", {2, 8}},
        {"v4s", {4, 16}},  {"v2s", {4, 8}}, {"v2d", {8, 16}}, {"v1d", {8, 8}}};
    const std::uint8_t* const digit = name.take_one(digits);
    if (digit == nullptr)
        return std::nullopt;
    form.structure = form.fp_simd = true;
    form.registers = form.interleaved = *digit;
    if (const std::uint8_t* const lane = name.take_one(lanes)) {
        form.element_bytes = *lane;
        form.bytes = static_cast<std::uint8_t>(*lane * *digit);
    } else {
        const bool replicates = form.load && name.take("R");
        const std::uint8_t* const count = replicates ? digit : name.take_one(counts);
        const arrangement* const vectors = count == nullptr ? nullptr : name.take_one(arrangements);
        if (vectors == nullptr)
            return std::nullopt;
        form.registers = *count;
        form.element_bytes = vectors->element;
        form.bytes = static_cast<std::uint8_t>(*count * (replicates ? vectors->element : vectors->vector));
    }
    if (name.take("_POST")) {
        form.addressing = addressing_mode::post_register;
        form.status_operands = 1;
    }
    if (!name.rest().empty())
        return std::nullopt;
    return form;
}

} // namespace

std::optional<memory_form> memory_form_of(std::string_view opcode)
{
    for (const auto parse : {authenticated, single_register, pair, exclusive_or_ordered, atomic, structure}) {
        if (const std::optional<memory_form> form = parse(scanner(opcode)))
            return form;
    }
    return std::nullopt;
}

} // namespace vorna::workbench
