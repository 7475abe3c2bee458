#include "workbench/known_addresses.hpp"

#include "workbench/relocation.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <elf.h>

namespace vorna::wfta {

namespace {

// What a register holds: `displacement` bytes behind the target S of a relocation, or behind its page.
struct register_value {
    enum class kind { unknown, address, page } what = kind::unknown;
    std::size_t relocation = 0;
    std::int64_t displacement = 0;
};

using register_file = std::array<register_value, 32>;

constexpr std::size_t none = ~std::size_t{0};
constexpr std::size_t several = none - 1;

std::uint32_t word_at(const std::vector<std::uint8_t>& text, std::size_t index)
{
    std::uint32_t word = 0;
    std::memcpy(&word, text.data() + 4 * index, sizeof word);
    return word;
}

// For each word the relocation that fills it.
std::vector<std::size_t> relocations_of_words(std::size_t words,
                                              const std::vector<tessjit::reloc_info>& relocs)
{
    std::vector<std::size_t> of_words(words, none);
    const auto add = [&](std::int64_t word, std::size_t relocation) {
        if (word < 0 || word >= static_cast<std::int64_t>(words))
            return;
        std::size_t& entry = of_words[static_cast<std::size_t>(word)];
        entry = entry == none ? relocation : several;
    };
    for (std::size_t i = 0; i < relocs.size(); ++i) {
        const std::int64_t offset = relocs[i].offset;
        if (offset % 4 == 0) {
            add(offset / 4, i);
        } else { // parts of two words, neither of which is then what it seems
            const std::int64_t first = (offset - (offset < 0 ? 3 : 0)) / 4;
            add(first, several);
            add(first + 1, several);
        }
    }
    return of_words;
}

// Where the code may be entered other than from the word before.
std::vector<bool> find_joins(const std::string& name, const std::vector<std::uint8_t>& text,
                             std::size_t words, const std::vector<tessjit::reloc_info>& relocs,
                             const std::vector<std::size_t>& of_words)
{
    std::vector<bool> joins(words);
    const auto add = [&](std::int64_t offset) {
        if (offset >= 0 && offset / 4 < static_cast<std::int64_t>(words))
            joins[static_cast<std::size_t>(offset / 4)] = true;
    };
    for (std::size_t i = 0; i < words; ++i) {
        if (of_words[i] != none) // leads where its relocation says
            continue;
        const std::uint32_t word = word_at(text, i);
        const std::int64_t here = static_cast<std::int64_t>(4 * i);
        if (const auto displacement = branch_displacement(word))
            add(here + *displacement);
        if ((word & 0x9f000000) == 0x10000000) { // ADR, of a place to branch to
            const std::uint32_t immediate = (word >> 5 & 0x7ffff) << 2 | (word >> 29 & 3);
            add(here + static_cast<std::int32_t>(immediate << 11) / 2048);
        }
    }
    for (const tessjit::reloc_info& reloc : relocs) {
        if (reloc.name == name)
            add(reloc.addend);
    }
    return joins;
}

class walker {
public:
    walker(const std::vector<tessjit::reloc_info>& relocs, const target_address& address_of)
        : relocs_(relocs), address_of_(address_of)
    {
    }

    void forget()
    {
        if (any_known_)
            registers_ = {};
        any_known_ = false;
    }

    void step(std::size_t offset, std::uint32_t word, std::size_t relocation)
    {
        if (!any_known_ && relocation == none)
            return; // nothing is known behind it either
        const std::optional<memory_access> access =
            relocation == several ? std::nullopt : decode_memory_access(word);
        if (access)
            look_at_access(offset, *access);
        const std::optional<std::pair<unsigned, register_value>> result = computed(word, relocation);
        const std::uint32_t written =
            relocation == several ? ~std::uint32_t{0} : written_registers(word) & ~writeback(word, access);
        for (unsigned i = 0; i < 32; ++i) {
            if ((written >> i & 1) != 0)
                registers_[i] = {};
        }
        if (result && relocation != several) {
            registers_[result->first] = result->second;
            any_known_ = true;
        }
        if (never_falls_through(word))
            forget();
    }

    std::vector<known_access> accesses;

private:
    // The bit of a base register that a load or a store adds a constant to, and does not load itself.
    static std::uint32_t writeback(std::uint32_t word, const std::optional<memory_access>& access)
    {
        if (!access || (access->addressing != addressing_mode::pre_index &&
                        access->addressing != addressing_mode::post_index))
            return 0;
        const bool second_is_base = access->registers == 2 && (word >> 10 & 31) == access->base;
        if (access->load && !access->fp_simd && (access->first_register == access->base || second_is_base))
            return 0;
        return std::uint32_t{1} << access->base;
    }

    void look_at_access(std::size_t offset, const memory_access& access)
    {
        register_value& base = registers_[access.base];
        if (base.what == register_value::kind::unknown ||
            access.addressing == addressing_mode::register_index)
            return;
        const bool after = access.addressing == addressing_mode::post_index ||
                           access.addressing == addressing_mode::post_register;
        add_access(offset, access, base, after ? 0 : access.offset);
        if (access.addressing == addressing_mode::pre_index ||
            access.addressing == addressing_mode::post_index)
            base.displacement += access.offset;
    }

    void add_access(std::size_t offset, const memory_access& access, const register_value& base,
                    std::int64_t displacement)
    {
        const tessjit::reloc_info& reloc = relocs_[base.relocation];
        known_access found{offset, access, base.relocation, {}, {}};
        std::optional<std::uint64_t> target;
        if (address_of_)
            target = address_of_(reloc.name);
        displacement += base.displacement;
        if (target) {
            std::uint64_t S = *target + static_cast<std::uint64_t>(std::int64_t{reloc.addend});
            if (base.what == register_value::kind::page)
                S &= ~std::uint64_t{0xfff};
            found.address = S + static_cast<std::uint64_t>(displacement);
            found.target_offset = static_cast<std::int64_t>(*found.address - *target);
        } else if (base.what == register_value::kind::address) {
            found.target_offset = reloc.addend + displacement;
        }
        accesses.push_back(found);
    }

    // The register that an instruction makes known, and what it then holds.
    [[nodiscard]] std::optional<std::pair<unsigned, register_value>> computed(std::uint32_t word,
                                                                              std::size_t relocation) const
    {
        using kind = register_value::kind;
        const unsigned Rd = word & 31;
        const unsigned Rn = word >> 5 & 31;
        if (relocation != none && relocation != several) {
            const tessjit::reloc_info& reloc = relocs_[relocation];
            const relocation_kind* const expected = find_relocation_kind(reloc.type);
            if (expected == nullptr || (word & expected->opcode_mask) != expected->opcode)
                return std::nullopt;
            if (reloc.type == R_AARCH64_ADR_PREL_LO21 && Rd != 31)
                return std::pair{Rd, register_value{kind::address, relocation, 0}};
            if (reloc.type == R_AARCH64_ADR_PREL_PG_HI21 && Rd != 31)
                return std::pair{Rd, register_value{kind::page, relocation, 0}};
            if (reloc.type == R_AARCH64_ADD_ABS_LO12_NC && (word & 0x80000000) != 0) {
                const register_value& page = registers_[Rn];
                if (page.what != kind::page || page.displacement != 0)
                    return std::nullopt;
                const tessjit::reloc_info& high = relocs_[page.relocation];
                if (high.name == reloc.name && high.addend == reloc.addend)
                    return std::pair{Rd, register_value{kind::address, page.relocation, 0}};
            }
            return std::nullopt;
        }
        if ((word & 0xbf800000) == 0x91000000) { // ADD or SUB of a constant, 64 bits, without flags
            register_value value = registers_[Rn];
            const std::int64_t constant = std::int64_t{word >> 10 & 0xfff} << ((word >> 22 & 1) * 12);
            value.displacement += (word & 0x40000000) == 0 ? constant : -constant;
            return std::pair{Rd, value};
        }
        if ((word & 0xffe0ffe0) == 0xaa0003e0 && Rd != 31) { // MOV
            const unsigned Rm = word >> 16 & 31;
            return std::pair{Rd, Rm == 31 ? register_value{} : registers_[Rm]};
        }
        return std::nullopt;
    }

    const std::vector<tessjit::reloc_info>& relocs_;
    const target_address& address_of_;
    register_file registers_;
    bool any_known_ = false; // whether a register may hold what is known
};

} // namespace

std::vector<known_access> known_accesses(const std::string& name, const std::vector<std::uint8_t>& text,
                                         const std::vector<tessjit::reloc_info>& relocs,
                                         const target_address& address_of)
{
    const bool has_addresses =
        std::any_of(relocs.begin(), relocs.end(), [](const tessjit::reloc_info& reloc) {
            return reloc.type == R_AARCH64_ADR_PREL_LO21 || reloc.type == R_AARCH64_ADR_PREL_PG_HI21;
        });
    if (!has_addresses)
        return {};
    const std::size_t words = text.size() / 4;
    const std::vector<std::size_t> of_words = relocations_of_words(words, relocs);
    const std::vector<bool> joins = find_joins(name, text, words, relocs, of_words);
    walker walk(relocs, address_of);
    for (std::size_t i = 0; i < words; ++i) {
        if (joins[i])
            walk.forget();
        walk.step(4 * i, word_at(text, i), of_words[i]);
    }
    return std::move(walk.accesses);
}

} // namespace vorna::wfta
