// Instruction words, and kernels' code with its relocations, from LLVM's assembler.
#pragma once

#include "jit/reloc_info.hpp"
#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

/// What llvm-mc makes of a source, as an object file or in the form that `options` name. Throws
/// std::runtime_error with what it says about a wrong line.
inline std::string run_assembler(const std::string& source, const std::vector<std::string>& options)
{
    const temp_directory directory;
    write_file(directory.path() / "source.s", source);
    std::vector<std::string> command = {"llvm-mc", "-triple=aarch64",
                                        "-mattr=+v8.6a,+fullfp16,+mte,+aes,+sha2,+sve,+sve2"};
    command.insert(command.end(), options.begin(), options.end());
    command.insert(command.end(), {"source.s", "-o", "result"});
    const child_result tool = run_tool(command, directory.path());
    if (!tool.succeeded())
        throw std::runtime_error(tool.err);
    return contents(directory.path() / "result");
}

/// The words of lines of assembly, one instruction each. Throws std::runtime_error. A process assembles each
/// distinct line once.
inline std::vector<std::uint32_t> assemble(const std::vector<std::string>& lines)
{
    static std::map<std::string, std::uint32_t> known;
    std::string source;
    std::vector<std::string> unknown;
    for (const std::string& line : lines) {
        const auto found = known.find(line);
        if (found != known.end())
            continue;
        unknown.push_back(line);
        source += line + "\n";
    }
    const std::string listing = unknown.empty() ? "" : run_assembler(source, {"-show-encoding"});
    const std::string mark = "encoding: [";
    std::size_t at = 0;
    for (const std::string& line : unknown) {
        at = listing.find(mark, at);
        if (at == std::string::npos)
            throw std::runtime_error("not an instruction: " + line);
        std::uint32_t word = 0;
        at += mark.size();
        for (unsigned byte = 0; byte < 4; ++byte, at = listing.find_first_of(",]", at) + 1)
            word |= static_cast<std::uint32_t>(std::stoul(listing.substr(at, 4), nullptr, 0)) << 8 * byte;
        known[line] = word;
    }
    std::vector<std::uint32_t> words;
    words.reserve(lines.size());
    for (const std::string& line : lines)
        words.push_back(known.at(line));
    return words;
}

/// A kernel as its generator has it: code, constants, relocations.
struct generated_kernel {
    std::vector<std::uint8_t> code;
    std::vector<std::uint8_t> constants;
    std::vector<tessjit::reloc_info> relocs;
};

/// The kernel `name` from GNU assembly. Its constants are what the source puts into the section .rodata; a
/// label there, and .rodata itself, are names for them in relocations, as is .rodata.NAME.
inline generated_kernel assemble_kernel(const std::string& name, const std::string& source)
{
    const std::string image = run_assembler(source, {"-filetype=obj"});
    const auto read = [&image](auto& record, std::uint64_t offset) {
        std::memcpy(&record, image.data() + offset, sizeof record);
    };
    Elf64_Ehdr header;
    read(header, 0);
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    for (std::size_t i = 0; i < sections.size(); ++i)
        read(sections[i], header.e_shoff + i * sizeof sections[i]);
    const auto string_at = [&](const Elf64_Shdr& table, std::uint32_t offset) {
        return std::string(image.data() + table.sh_offset + offset);
    };
    const auto name_of = [&](const Elf64_Shdr& section) {
        return string_at(sections[header.e_shstrndx], section.sh_name);
    };
    const auto bytes_of = [&](const Elf64_Shdr& section) {
        const char* const begin = image.data() + section.sh_offset;
        return std::vector<std::uint8_t>(begin, begin + section.sh_size);
    };

    generated_kernel kernel;
    for (const Elf64_Shdr& section : sections) {
        if (name_of(section) == ".text")
            kernel.code = bytes_of(section);
        if (name_of(section) == ".rodata")
            kernel.constants = bytes_of(section);
        if (name_of(section) != ".rela.text")
            continue;
        const Elf64_Shdr& symbols = sections[section.sh_link];
        for (std::uint64_t at = 0; at < section.sh_size; at += sizeof(Elf64_Rela)) {
            Elf64_Rela rela;
            read(rela, section.sh_offset + at);
            Elf64_Sym symbol;
            read(symbol, symbols.sh_offset + ELF64_R_SYM(rela.r_info) * sizeof symbol);
            std::string target = string_at(sections[symbols.sh_link], symbol.st_name);
            if (symbol.st_shndx != SHN_UNDEF)
                target = (name_of(sections[symbol.st_shndx]) == ".rodata" ? ".rodata." : "") + name;
            kernel.relocs.push_back(
                {target, static_cast<std::int32_t>(rela.r_offset),
                 static_cast<std::int32_t>(ELF64_R_TYPE(rela.r_info)),
                 static_cast<std::int32_t>(static_cast<std::int64_t>(symbol.st_value) + rela.r_addend)});
        }
    }
    return kernel;
}

} // namespace support
