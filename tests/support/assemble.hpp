// Instruction words from the assembler.
#pragma once

#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace support {

/// The words of lines of assembly, by llvm-mc.
inline std::vector<std::uint32_t> assemble(const std::vector<std::string>& lines)
{
    const temp_directory directory;
    std::string source;
    for (const std::string& line : lines)
        source += line + "\n";
    write_file(directory.path() / "lines.s", source);
    const child_result tool =
        run_tool({"llvm-mc", "-triple=aarch64", "-mattr=+v8.6a,+fullfp16,+mte,+aes,+sha2,+sve,+sve2",
                  "-show-encoding", "lines.s"},
                 directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool;
    std::vector<std::uint32_t> words;
    const std::string mark = "encoding: [";
    for (std::size_t at = 0; (at = tool.out.find(mark, at)) != std::string::npos;) {
        std::uint32_t word = 0;
        at += mark.size();
        for (unsigned byte = 0; byte < 4; ++byte, at = tool.out.find_first_of(",]", at) + 1)
            word |= static_cast<std::uint32_t>(std::stoul(tool.out.substr(at, 4), nullptr, 0)) << 8 * byte;
        words.push_back(word);
    }
    return words;
}

} // namespace support
