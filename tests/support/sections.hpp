// Reads the sections of a linker's output.
#pragma once

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <map>
#include <string>
#include <vector>

namespace support {

struct linked_section {
    std::uint64_t address;
    std::string contents;
};

/// The sections of an ELF file, by name.
inline std::map<std::string, linked_section> read_sections(const std::string& file)
{
    std::map<std::string, linked_section> sections;
    Elf64_Ehdr header;
    std::memcpy(&header, file.data(), sizeof header);
    std::vector<Elf64_Shdr> headers(header.e_shnum);
    std::memcpy(headers.data(), &file[header.e_shoff], headers.size() * sizeof headers[0]);
    for (const Elf64_Shdr& section : headers) {
        const char* const name = &file[headers[header.e_shstrndx].sh_offset + section.sh_name];
        sections[name] = {section.sh_addr, file.substr(section.sh_offset, section.sh_size)};
    }
    return sections;
}

} // namespace support
