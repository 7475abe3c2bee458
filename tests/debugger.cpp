// gdb knows kernels by name once it has loaded their dumps, without being told an address.

#include "tests/support/files.hpp"
#include "tests/support/tool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

using namespace support;
using testing::HasSubstr;

TEST(Gdb, BreaksAtAKernelByNameWithOnlyItsDumpLoaded)
{
    const temp_directory directory;
    std::vector<std::string> gdb = {"gdb-multiarch", "-nx", "-batch", DEBUGGEE};
    const auto command = [&](const std::string& text) {
        gdb.emplace_back("-ex");
        gdb.push_back(text);
    };
    command("set confirm off");
    command("break kernels_are_placed");
    const std::string emulator = EMULATOR; // empty on an AArch64 machine
    if (emulator.empty()) {
        // LeakSanitizer cannot work in a debugged process, and would end it in its own way.
        command("set environment ASAN_OPTIONS detect_leaks=0");
        command("run >placed");
    } else {
        // The emulator waits for gdb at a socket in this directory.
        command("shell timeout 60 " + emulator + " -g ./stub " DEBUGGEE " >placed &");
        command("shell until test -S stub; do sleep 0.05; done");
        command("target remote ./stub");
        command("continue");
    }
    command("add-symbol-file answer_kernel");
    command("add-symbol-file calling_kernel");
    command("break answer_kernel");
    command("continue");
    command("info symbol $pc");
    command("info symbol $x30");
    command("disassemble");
    command("delete");
    command("continue");
    const child_result session = run_tool(gdb, directory.path());
    EXPECT_TRUE(session.succeeded()) << session;

    std::map<std::string, std::string> placed;
    std::istringstream lines(contents(directory.path() / "placed"));
    for (std::string name, address; lines >> name >> address;) {
        placed[name] = address;
    }
    ASSERT_EQ(placed.size(), 3U) << session;
    const std::string& address = placed["answer_kernel"];
    EXPECT_THAT(session.out, HasSubstr("Breakpoint 2, " + address + " in answer_kernel ()\n")) << session;
    EXPECT_THAT(session.out, HasSubstr("\nanswer_kernel in section .text.answer_kernel of ")) << session;
    EXPECT_THAT(session.out, HasSubstr("\ncalling_kernel + 8 in section .text.calling_kernel of "))
        << session;
    EXPECT_THAT(session.out, HasSubstr("\n=> " + address + " <+0>:\tnop\n")) << session;
    EXPECT_THAT(session.out, HasSubstr(" exited with code 052]\n")) << session; // 42, as gdb has it
}

} // namespace
