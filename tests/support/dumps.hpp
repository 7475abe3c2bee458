// Placed kernels, sets of them and files of dumps, from instruction words or from text.
#pragma once

#include "jit/elf.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "workbench/kernels/kernel_set.hpp"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// The bytes of doubles.
inline std::vector<std::uint8_t> bytes_of(const std::vector<double>& values)
{
    std::vector<std::uint8_t> bytes(8 * values.size());
    if (!values.empty())
        std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

/// A kernel of these words, placed at `code_address`, with its constants 0x800 after its begin or at
/// `data_address`.
inline vorna::workbench::placed_kernel placed(const std::string& name, std::uint64_t code_address,
                                              const std::vector<std::uint32_t>& words,
                                              std::vector<tessjit::reloc_info> relocs = {},
                                              std::vector<std::uint8_t> data = {},
                                              std::uint64_t data_address = 0)
{
    vorna::workbench::placed_kernel kernel;
    kernel.name = name;
    kernel.text_address = code_address;
    kernel.text = code(words);
    kernel.data_address = data_address != 0 ? data_address : code_address + 0x800;
    kernel.data = std::move(data);
    kernel.relocs = std::move(relocs);
    return kernel;
}

/// A kernel of these sizes and addresses, whose content does not matter.
inline vorna::workbench::placed_kernel placed_bytes(const std::string& name, std::uint64_t code_address,
                                                    std::size_t code_size, std::uint64_t data_address = 0,
                                                    std::size_t data_size = 0,
                                                    std::vector<tessjit::reloc_info> relocs = {})
{
    vorna::workbench::placed_kernel kernel = placed(name, code_address, {}, std::move(relocs),
                                                    std::vector<std::uint8_t>(data_size, 0xda), data_address);
    kernel.text.assign(code_size, 0xc0);
    return kernel;
}

/// Places the kernels as the finaliser does: code on 32-byte boundaries, then the constants, packed.
inline void place_in_mapping(std::vector<vorna::workbench::placed_kernel>& kernels, std::uint64_t begin)
{
    std::uint64_t place = begin;
    for (vorna::workbench::placed_kernel& kernel : kernels) {
        kernel.text_address = place;
        place += (kernel.text.size() + 31) / 32 * 32;
    }
    for (vorna::workbench::placed_kernel& kernel : kernels) {
        kernel.data_address = place;
        place += kernel.data.size();
    }
}

/// The dump of these kernels, in one file, as the JIT library writes it.
inline std::string dump_of(const std::vector<vorna::workbench::placed_kernel>& kernels)
{
    tessjit::elf_data elf;
    for (const vorna::workbench::placed_kernel& kernel : kernels)
        elf.fns.emplace_back(kernel.name, address(kernel.text_address), kernel.text,
                             address(kernel.data_address), kernel.data, kernel.relocs);
    return to_string(tessjit::emit_elf(elf));
}

/// Writes a dump of each kernel into the directory, which is created if necessary. The file has the kernel's
/// name, or the kernel's index if that name is taken or cannot be a file name.
inline void write_dumps(const std::filesystem::path& directory,
                        const std::vector<vorna::workbench::placed_kernel>& kernels)
{
    std::filesystem::create_directories(directory);
    std::set<std::string> taken = {"", ".", ".."};
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        std::string name = kernels[i].name;
        if (name.find('/') != std::string::npos || !taken.insert(name).second)
            name = std::to_string(i);
        write_file(directory / name, dump_of({kernels[i]}));
    }
}

/// A text in which "\xNN" stands for a byte.
inline std::string unescaped(std::string text)
{
    for (std::size_t at = 0; (at = text.find("\\x", at)) != std::string::npos; ++at)
        text.replace(at, 4, 1, static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)));
    return text;
}

/// The kernels of a text, each a line with its name (in which "\xNN" is a byte) and then GNU assembly:
///
///     kernel double_it
///         adrp x1, .rodata
///         ldr d1, [x1]        // relocations are written as symbols, see assemble_kernel
///         bl another
///         ret
///         .section .rodata
///         .double 2
///
/// A line "mapping 0x7f0000000000" places what follows at another address; the first mapping is at 0x10000.
/// Throws std::runtime_error.
inline std::vector<vorna::workbench::placed_kernel> kernels_of(const std::string& text)
{
    struct mapping {
        std::uint64_t begin;
        std::vector<vorna::workbench::placed_kernel> kernels;
    };
    std::vector<mapping> mappings = {{0x10000, {}}};
    std::string source;
    const auto finish_kernel = [&] {
        if (mappings.back().kernels.empty()) {
            if (source.find_first_not_of(" \n") != std::string::npos)
                throw std::runtime_error("the text does not begin with a kernel");
            return;
        }
        vorna::workbench::placed_kernel& kernel = mappings.back().kernels.back();
        generated_kernel generated = assemble_kernel(kernel.name, source);
        kernel.text = std::move(generated.code);
        kernel.data = std::move(generated.constants);
        kernel.relocs = std::move(generated.relocs);
        source.clear();
    };
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("mapping ", 0) == 0) {
            finish_kernel();
            mappings.push_back({std::stoull(line.substr(8), nullptr, 0), {}});
        } else if (line.rfind("kernel ", 0) == 0) {
            finish_kernel();
            mappings.back().kernels.push_back({unescaped(line.substr(7)), 0, {}, 0, {}, {}, 0, ""});
        } else {
            source += line + "\n";
        }
    }
    finish_kernel();

    std::vector<vorna::workbench::placed_kernel> all;
    for (mapping& mapping : mappings) {
        place_in_mapping(mapping.kernels, mapping.begin);
        all.insert(all.end(), mapping.kernels.begin(), mapping.kernels.end());
    }
    return all;
}

} // namespace support
