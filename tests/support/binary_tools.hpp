// Runs binutils, LLVM's and elfutils' tools and linkers on dumps.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/sections.hpp"
#include "tests/support/tool.hpp"

#include <cstdint>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// Hexadecimal digits as these tools print them, with a minimum width.
inline std::string hex_digits(std::uint64_t value, int digits = 0)
{
    char text[32];
    std::snprintf(text, sizeof text, "%0*lx", digits, static_cast<unsigned long>(value));
    return text;
}

/// The binutils for AArch64 have the prefix on every machine, AArch64 included.
inline std::string binutil(const char* name)
{
    return std::string("aarch64-linux-gnu-") + name;
}

inline void expect_no_complaint(const child_result& tool)
{
    EXPECT_TRUE(tool.succeeded()) << tool;
    EXPECT_EQ(tool.err, "");
    EXPECT_THAT(tool.out, testing::Not(testing::HasSubstr("arning"))) << tool;
}

inline void expect_no_elf_errors(const std::string& file, const std::filesystem::path& directory)
{
    for (const char* mode : {"--strict", "--gnu-ld"}) {
        const child_result elflint = run_tool({"eu-elflint", mode, file}, directory);
        EXPECT_TRUE(elflint.succeeded()) << file << elflint;
        EXPECT_EQ(elflint.out, "No errors\n") << file;
        EXPECT_EQ(elflint.err, "") << file;
    }
}

/// The sections that a linker (its program and options) writes for the dumps of all kernels in the registry,
/// which are in the current directory, with each section at the finaliser's address. The kernel "far" has no
/// dump and is at `far_kernel`.
inline std::map<std::string, linked_section>
link_where_placed(const std::vector<std::string>& linker, const vorna::wfta::kernel_registry_map& registry,
                  std::uint64_t far_kernel)
{
    std::map<std::pair<std::uint64_t, std::string>, std::string> by_address;
    std::vector<std::string> arguments = linker;
    for (const char* argument : {"-T", "script", "-e", "0", "-o", "linked"})
        arguments.emplace_back(argument);
    for (const auto& [name, entry] : registry) {
        by_address[{number(entry.text_ptr), ".text." + name}] = name;
        by_address[{number(entry.data_ptr), ".rodata." + name}] = name;
        arguments.push_back(name);
    }
    std::string script = "far = 0x" + hex_digits(far_kernel) + ";\nSECTIONS {\n";
    for (const auto& [section, file] : by_address) {
        // The assignment keeps a section without contents.
        script += "  " + section.second + " 0x" + hex_digits(section.first) + " : { " + file + "(" +
                  section.second + ") . = .; }\n";
    }
    write_file("script", script + "}\n");
    const child_result tool = run_tool(arguments, std::filesystem::current_path());
    EXPECT_TRUE(tool.succeeded()) << tool << script;
    EXPECT_EQ(tool.err, "");
    return tool.succeeded() ? read_sections(contents("linked")) : std::map<std::string, linked_section>();
}

} // namespace support
