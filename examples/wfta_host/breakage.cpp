#include "examples/wfta_host/breakage.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>

using tessjit::reloc_info;
using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_map;

namespace wfta_host {

namespace {

using kernel_set = std::vector<kernel_data>;

// Every driver has calls, and ADRs of its tables.
reloc_info& first_relocation(kernel_data& kernel, std::int32_t type)
{
    return *std::find_if(kernel.relocs.begin(), kernel.relocs.end(),
                         [type](const reloc_info& reloc) { return reloc.type == type; });
}

reloc_info& first_call(kernel_set& kernels)
{
    return first_relocation(kernels.back(), R_AARCH64_CALL26);
}

// The set's first short kernel with constants, or null.
kernel_data* find_kernel_with_constants(kernel_set& kernels)
{
    const auto found = std::find_if(kernels.begin(), kernels.end() - 1,
                                    [](const kernel_data& kernel) { return !kernel.relocs.empty(); });
    return found == kernels.end() - 1 ? nullptr : &*found;
}

void put_word(kernel_data& kernel, std::int32_t offset, std::uint32_t word)
{
    std::memcpy(&kernel.text[static_cast<std::size_t>(offset)], &word, sizeof word);
}

void insert_before_return(kernel_data& kernel, const std::vector<std::uint32_t>& words)
{
    const auto bytes = reinterpret_cast<const std::uint8_t*>(words.data());
    kernel.text.insert(kernel.text.end() - 4, bytes, bytes + 4 * words.size());
}

constexpr std::uint32_t nop = 0xd503201f;

void take_a_name_twice(kernel_registry_map&, kernel_set& kernels)
{
    kernels.insert(kernels.begin() + 1, kernel_data(kernels.front()));
}

void name_constants_of_another(kernel_registry_map&, kernel_set& kernels)
{
    first_relocation(kernels.back(), R_AARCH64_ADR_PREL_LO21).name = ".rodata." + first_call(kernels).name;
}

void misspell_a_callee(kernel_registry_map&, kernel_set& kernels)
{
    std::string& name = first_call(kernels).name;
    name.erase(name.rfind('t'), 1);
}

void place_the_caller_first(kernel_registry_map&, kernel_set& kernels)
{
    std::rotate(kernels.begin(), kernels.end() - 1, kernels.end());
}

void register_null(kernel_registry_map& registry, kernel_set& kernels)
{
    const std::string callee = first_call(kernels).name;
    kernels.erase(std::remove_if(kernels.begin(), kernels.end(),
                                 [&](const kernel_data& kernel) { return kernel.name == callee; }),
                  kernels.end());
    registry[callee] = {nullptr, 0, nullptr, 0};
}

void relocate_a_call_as_a_branch(kernel_registry_map&, kernel_set& kernels)
{
    first_call(kernels).type = R_AARCH64_JUMP26;
}

void misplace_a_relocation(kernel_registry_map&, kernel_set& kernels)
{
    first_call(kernels).offset += 4;
}

void encode_a_provisional_call(kernel_registry_map&, kernel_set& kernels)
{
    put_word(kernels.back(), first_call(kernels).offset, 0x97fffff0); // bl .-64
}

void call_between_instructions(kernel_registry_map&, kernel_set& kernels)
{
    first_call(kernels).addend = 2;
}

void relocate_an_adr_as_an_adrp(kernel_registry_map&, kernel_set& kernels)
{
    first_relocation(kernels.back(), R_AARCH64_ADR_PREL_LO21).type = R_AARCH64_ADR_PREL_PG_HI21;
}

void leave_out_the_return(kernel_registry_map&, kernel_set& kernels)
{
    put_word(kernels.back(), static_cast<std::int32_t>(kernels.back().text.size()) - 4, nop);
}

void leave_out_an_add(kernel_registry_map&, kernel_set& kernels)
{
    kernel_data* const kernel = find_kernel_with_constants(kernels);
    if (kernel == nullptr)
        return;
    put_word(*kernel, first_relocation(*kernel, R_AARCH64_ADD_ABS_LO12_NC).offset, nop);
    kernel->relocs.pop_back(); // a short kernel has one ADRP and one ADD
}

void point_past_the_constants(kernel_registry_map&, kernel_set& kernels)
{
    kernel_data* const kernel = find_kernel_with_constants(kernels);
    if (kernel == nullptr)
        return;
    for (reloc_info& reloc : kernel->relocs)
        reloc.addend += static_cast<std::int32_t>(kernel->data.size());
}

void call_past_the_first_instructions(kernel_registry_map&, kernel_set& kernels)
{
    first_call(kernels).addend = 8;
}

void clobber_a_register_of_the_caller(kernel_registry_map&, kernel_set& kernels)
{
    if (kernels.size() > 1)
        insert_before_return(kernels.front(), {0xd2800037}); // mov x23, #1
}

void relocate_a_word_past_the_code(kernel_registry_map&, kernel_set& kernels)
{
    kernel_data& driver = kernels.back();
    while (driver.text.size() % 32 == 0)
        insert_before_return(driver, {nop}); // so that padding follows
    driver.relocs.push_back({".rodata." + driver.name, static_cast<std::int32_t>(driver.text.size()),
                             R_AARCH64_ADR_PREL_LO21, 0});
}

void store_to_constants(kernel_registry_map&, kernel_set& kernels)
{
    if (kernel_data* const kernel = find_kernel_with_constants(kernels))
        insert_before_return(*kernel, {0xf9400069, 0xf9000069}); // ldr x9, [x3]; str x9, [x3]
}

void set_the_top_bit_of_a_call(kernel_registry_map&, kernel_set& kernels)
{
    put_word(kernels.back(), first_call(kernels).offset, 0x96000000); // bl .-128 MiB
}

} // namespace

const std::vector<breakage>& breakages()
{
    static const std::vector<breakage> all = {
        {"callee-order", "the driver is placed before the kernels that it calls", outcome::ended,
         place_the_caller_first},
        {"duplicate-name", "two kernels have one name", outcome::ended, take_a_name_twice},
        {"field-filled", "the relocation of a call is one instruction too far on", outcome::ended,
         misplace_a_relocation},
        {"foreign-data", "the driver names a short kernel's constants", outcome::ended,
         name_constants_of_another},
        {"null-target", "the registry has a callee at address null", outcome::ended, register_null},
        {"provisional", "a call is generated with a provisional distance (field-filled)", outcome::ended,
         encode_a_provisional_call},
        {"range", "the addend of a call is not a multiple of 4", outcome::ended, call_between_instructions},
        {"unhandled-type", "the relocation of a call has the type of a branch", outcome::ended,
         relocate_a_call_as_a_branch},
        {"unknown-target", "the name of a callee is misspelt", outcome::ended, misspell_a_callee},
        {"falls-through", "the driver does not return", outcome::crashes, leave_out_the_return},
        {"opcode", "the relocation of an ADR has the type of an ADRP", outcome::crashes,
         relocate_an_adr_as_an_adrp},
        {"abi-callee-saved", "a short kernel changes a register that it must preserve", outcome::wrong,
         clobber_a_register_of_the_caller},
        {"call-target", "a call leads past the callee's first instructions", outcome::wrong,
         call_past_the_first_instructions},
        {"outside-constants", "an addend leads past a short kernel's constants", outcome::wrong,
         point_past_the_constants},
        {"pair", "the ADD of a short kernel's ADRP is left out", outcome::wrong, leave_out_an_add},
        {"call-bit-25", "the top bit of a call's field is set", outcome::good, set_the_top_bit_of_a_call},
        {"offset", "a relocation lies after the driver's code", outcome::good, relocate_a_word_past_the_code},
        {"writes-constants", "a short kernel stores to its constants", outcome::good, store_to_constants},
    };
    return all;
}

const breakage* find_breakage(const std::string& kind)
{
    const auto found = std::find_if(breakages().begin(), breakages().end(),
                                    [&](const breakage& b) { return b.kind == kind; });
    return found == breakages().end() ? nullptr : &*found;
}

} // namespace wfta_host
