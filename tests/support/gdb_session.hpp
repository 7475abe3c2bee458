// gdb in a process whose kernels are placed: tests/wfta/debuggee.cpp.
#pragma once

#include "tests/support/files.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace support {

/// Runs the program in gdb, under the emulator that a machine other than AArch64 needs (empty for none), in a
/// directory of its own, which gets the kernels' dumps. Gives gdb the commands `load` once the kernels are
/// placed, and expects that it then breaks at answer_kernel and knows the kernels by name. Returns what gdb
/// printed.
inline child_result break_at_answer_kernel(const std::string& program, const std::string& emulator,
                                           const std::vector<std::string>& load)
{
    const temp_directory directory;
    std::vector<std::string> gdb = {"gdb-multiarch", "-nx", "-batch", program};
    const auto command = [&](const std::string& text) {
        gdb.emplace_back("-ex");
        gdb.push_back(text);
    };
    command("set confirm off");
    command("break kernels_are_placed");
    if (emulator.empty()) {
        // LeakSanitizer does not work in a debugged process, and would end it.
        command("set environment ASAN_OPTIONS detect_leaks=0");
        command("run >placed");
    } else {
        // The emulator waits for gdb on a socket in this directory.
        command("shell timeout 1800 " + emulator + " -g ./stub " + program + " >placed &");
        command("shell until test -S stub; do sleep 0.05; done");
        command("target remote ./stub");
        command("continue");
    }
    for (const std::string& line : load)
        command(line);
    command("break answer_kernel");
    command("continue");
    command("info symbol $pc");
    command("info symbol $x30");
    command("disassemble");
    command("delete");
    command("continue");
    child_result session = run_tool(gdb, directory.path());
    EXPECT_TRUE(session.succeeded()) << session;

    std::map<std::string, std::string> placed;
    std::istringstream lines(contents(directory.path() / "placed"));
    for (std::string name, address; lines >> name >> address;)
        placed[name] = address;
    EXPECT_EQ(placed.size(), 3U) << session;
    const std::string& address = placed["answer_kernel"];
    using testing::HasSubstr;
    EXPECT_THAT(session.out, HasSubstr("Breakpoint 2, " + address + " in answer_kernel ()\n")) << session;
    EXPECT_THAT(session.out, HasSubstr("\nanswer_kernel in section .text.answer_kernel of ")) << session;
    EXPECT_THAT(session.out, HasSubstr("\ncalling_kernel + 8 in section .text.calling_kernel of "))
        << session;
    EXPECT_THAT(session.out, HasSubstr("\n=> " + address + " <+0>:\tnop\n")) << session;
    EXPECT_THAT(session.out, HasSubstr(" exited with code 052]\n")) << session; // 42, as gdb has it
    return session;
}

} // namespace support
