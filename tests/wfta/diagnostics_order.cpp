// The order of what happens to each kernel: registered, dumped, listed, hashed, linked. Seen from the calls
// in between: the object writer, which this program brings itself, fopen and getenv.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "jit/elf.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::ElementsAre;
using testing::ElementsAreArray;

std::vector<std::string> history;
const kernel_registry_map* current_registry = nullptr;
const perf_map* current_map = nullptr;

/// What has happened so far to the kernels a and b, in letters: registered, opened (its dump is empty),
/// dumped, listed, hashed, linked.
void note(const std::string& caller)
{
    if (current_registry == nullptr) {
        return;
    }
    std::string line = caller + ":";
    for (const std::string name : {"a", "b"}) {
        const auto entry = current_registry->find(name);
        line += " " + name + "=";
        line += entry != current_registry->end() ? "r" : "";
        line += std::filesystem::exists(name) && contents(name).empty() ? "o" : "";
        line += contents(name) == "image of " + name ? "d" : "";
        line += current_map->text().find(" 8 " + name + "\n") != std::string::npos ? "l" : "";
        line += contents(name + ".hash").size() == 8 ? "h" : "";
        line += entry != current_registry->end() && word_at(entry->second.text_ptr) != a64::bl() ? "L" : "";
    }
    history.push_back(line);
}

} // namespace

// The linker's names for wrapped functions. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
char* __real_getenv(const char* name);
char* __wrap_getenv(const char* name);
FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode);
}

char* __wrap_getenv(const char* name)
{
    if (std::string(name).rfind("VORNA_", 0) == 0) {
        note(name);
    }
    return __real_getenv(name);
}

FILE* __wrap_fopen(const char* path, const char* mode)
{
    if (current_map != nullptr && path == current_map->path()) {
        note(std::string("fopen ") + mode);
    }
    return __real_fopen(path, mode);
}
// NOLINTEND(bugprone-reserved-identifier)

std::vector<std::uint8_t> tessjit::emit_elf(const elf_data& data)
{
    note("emit_elf");
    const std::string image = "image of " + data.fns.at(0).name;
    return {image.begin(), image.end()};
}

namespace {

void emit_a_and_b(const std::vector<std::pair<std::string, std::string>>& environment,
                  const std::vector<std::string>& expected)
{
    child_options options;
    options.environment = environment;
    const child_result child = run_in_child(
        [&] {
            const perf_map map;
            kernel_registry_map registry;
            current_map = &map;
            current_registry = &registry;
            finalise_kernels(registry,
                             {kernel("a", {a64::bl(), a64::ret()}, {{"a", 0, R_AARCH64_CALL26, 4}}),
                              kernel("b", {a64::bl(), a64::ret()}, {{"a", 0, R_AARCH64_CALL26, 0}})});
            note("return");
            current_registry = nullptr;
            EXPECT_THAT(history, ElementsAreArray(expected));
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
}

TEST(Order, WithThePerfMapOnEachKernelIsDumpedListedAndThenLinked)
{
    emit_a_and_b({{"VORNA_WFTA_PERF", "1"}}, {
                                                 "VORNA_WFTA_DUMP_KERNEL: a=r b=",
                                                 "VORNA_WFTA_PERF: a=r b=",
                                                 "emit_elf: a=ro b=",
                                                 "fopen a: a=rd b=",
                                                 "VORNA_WFTA_CHECK_HASH: a=rdl b=",
                                                 "emit_elf: a=rdlL b=ro",
                                                 "fopen a: a=rdlL b=rd",
                                                 "return: a=rdlL b=rdlL",
                                             });
}

TEST(Order, HashCheckComesAfterDumpAndMapLineAndBeforeLinking)
{
    emit_a_and_b({{"VORNA_WFTA_PERF", "1"}, {"VORNA_WFTA_CHECK_HASH", "1"}},
                 {
                     "VORNA_WFTA_DUMP_KERNEL: a=r b=",
                     "VORNA_WFTA_PERF: a=r b=",
                     "emit_elf: a=ro b=",
                     "fopen a: a=rd b=",
                     "VORNA_WFTA_CHECK_HASH: a=rdl b=",
                     "emit_elf: a=rdlhL b=ro",
                     "fopen a: a=rdlhL b=rd",
                     "return: a=rdlhL b=rdlhL",
                 });
}

TEST(Order, SelectedDumpComesBeforeThePerfSwitchIsRead)
{
    emit_a_and_b({{"VORNA_WFTA_DUMP_KERNEL", "a"}}, {
                                                        "VORNA_WFTA_DUMP_KERNEL: a=r b=",
                                                        "emit_elf: a=ro b=",
                                                        "VORNA_WFTA_PERF: a=rd b=",
                                                        "VORNA_WFTA_CHECK_HASH: a=rd b=",
                                                        "return: a=rdL b=rL",
                                                    });
}

TEST(Order, DiagnosticsOfAKernelThatCannotBeLinkedAreComplete)
{
    const temp_directory directory;
    child_options options;
    options.environment = {{"VORNA_WFTA_PERF", "1"}, {"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            kernel_registry_map registry;
            finalise_kernels(registry, {kernel("a", {a64::bl()}, {{"nowhere", 0, R_AARCH64_CALL26, 0}}),
                                        kernel("b", {a64::ret()})});
        },
        options);
    const perf_map map(child.pid);
    EXPECT_EQ(child.signal, SIGABRT) << child;
    EXPECT_THAT(names_in(directory.path()), ElementsAre("a", "a.hash"));
    EXPECT_THAT(map.text(), testing::EndsWith(" 4 a\n"));
}

TEST(Order, ASecondKernelOfANameLeavesTheFilesOfTheFirst)
{
    const temp_directory directory;
    child_options options;
    options.environment = {{"VORNA_WFTA_DUMP_KERNEL", "a"}, {"VORNA_WFTA_CHECK_HASH", "1"}};
    options.directory = directory.path();
    const child_result child = run_in_child(
        [] {
            kernel_registry_map registry;
            finalise_kernels(registry, {{nullptr, "a", {1}, {}, {}}, {nullptr, "a", {2}, {}, {}}});
        },
        options);
    EXPECT_EQ(child.signal, SIGABRT) << child;
    EXPECT_THAT(child.err, testing::StartsWith("emitting new hash file: a.hash -> 0x1\n"));
    EXPECT_THAT(child.err, testing::Not(testing::HasSubstr("match")));
    EXPECT_EQ(contents(directory.path() / "a.hash"), std::string("\1\0\0\0\0\0\0\0", 8));
}

} // namespace
