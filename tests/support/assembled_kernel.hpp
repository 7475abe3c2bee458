// Placed kernels from lines of assembly.
#pragma once

#include "tests/support/dumps.hpp"

#include <algorithm>
#include <cstdint>
#include <elf.h>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// A kernel of these lines. An operand "data8" of an ADR, ADRP or ADD is a relocation against the kernel's
/// constants + 8, "code8" one against its code; "bl f+4" and "bl f-4" against the kernel f. ".word N" is a
/// word.
inline vorna::workbench::placed_kernel assembled_kernel(const std::string& name,
                                                        const std::vector<std::string>& lines,
                                                        std::vector<std::uint8_t> data = {})
{
    std::vector<tessjit::reloc_info> relocs;
    std::vector<std::string> plain = lines;
    std::vector<std::pair<std::size_t, std::uint32_t>> words;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        std::string& line = plain[i];
        const auto offset = static_cast<std::int32_t>(4 * i);
        const auto number = [](const std::string& text) { return text.empty() ? 0 : std::stoi(text); };
        const bool calls = line.compare(0, 3, "bl ") == 0 && line[3] != '#';
        const std::size_t in_data = calls ? std::string::npos : line.find("data");
        const std::size_t place = calls || in_data != std::string::npos ? in_data : line.find("code");
        if (place != std::string::npos) {
            const std::int32_t type = line.compare(0, 4, "adrp") == 0  ? R_AARCH64_ADR_PREL_PG_HI21
                                      : line.compare(0, 3, "adr") == 0 ? R_AARCH64_ADR_PREL_LO21
                                                                       : R_AARCH64_ADD_ABS_LO12_NC;
            relocs.push_back(
                {(place == in_data ? ".rodata." : "") + name, offset, type, number(line.substr(place + 4))});
            line = line.substr(0, place) + "#0";
        } else if (calls) {
            const std::size_t plus = std::min(line.find_first_of("+-"), line.size());
            relocs.push_back({line.substr(3, plus - 3), offset, R_AARCH64_CALL26, number(line.substr(plus))});
            line = "bl #0";
        } else if (line.compare(0, 6, ".word ") == 0) {
            words.emplace_back(i, static_cast<std::uint32_t>(std::stoul(line.substr(6), nullptr, 0)));
            line = "nop";
        }
    }
    std::vector<std::uint32_t> code_words = assemble(plain);
    for (const auto& [index, word] : words)
        code_words[index] = word;
    return placed(name, 0x10000, code_words, std::move(relocs), std::move(data), 0x20000);
}

} // namespace support
