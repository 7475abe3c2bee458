// The JIT library's object writer: the records it takes and the function that turns them into an ELF image.
#pragma once

#include "jit/reloc_info.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tessjit {

/// One placed, not yet relocated function for the object writer. Owns its bytes; the two addresses are only
/// recorded, never read through.
struct elf_fn_entry {
    /// Takes the members in their order.
    elf_fn_entry(std::string fn_name, const std::uint8_t* fn_text_addr, std::vector<std::uint8_t> fn_text,
                 const std::uint8_t* fn_data_addr, std::vector<std::uint8_t> fn_data,
                 std::vector<reloc_info> fn_relocs)
        : name(std::move(fn_name)), text_addr(fn_text_addr), text(std::move(fn_text)),
          data_addr(fn_data_addr), data(std::move(fn_data)), relocs(std::move(fn_relocs))
    {
    }

    std::string name;               ///< symbol name
    const std::uint8_t* text_addr;  ///< address at which the code is placed
    std::vector<std::uint8_t> text; ///< code bytes, before relocation
    const std::uint8_t* data_addr;  ///< address at which the read-only data is placed
    std::vector<std::uint8_t> data; ///< read-only data bytes
    std::vector<reloc_info> relocs; ///< relocations still to be applied to the code, in order
};

/// The object writer's input.
struct elf_data {
    std::vector<elf_fn_entry> fns; ///< the functions of the image, in order
};

/// Returns a complete relocatable ELF64 image for little-endian AArch64 that holds every function of `data`.
///
/// Neither keeps nor changes `data`. Throws std::length_error when `data` holds more functions, or more bytes
/// of names, than an ELF image can index, and std::bad_alloc. Safe to call from several threads at once.
std::vector<std::uint8_t> emit_elf(const elf_data& data);

} // namespace tessjit
