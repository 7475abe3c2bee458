// The three variables: which values count, when they are read, and a dump pattern that does not compile.

#include "fft/SRC/wfta/kernel_printer.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/child.hpp"
#include "tests/support/files.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale>
#include <regex>
#include <set>
#include <thread>

namespace {

using namespace vorna::wfta;
using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char perf[] = "VORNA_WFTA_PERF";
constexpr char dump[] = "VORNA_WFTA_DUMP_KERNEL";
constexpr char check_hash[] = "VORNA_WFTA_CHECK_HASH";

std::vector<std::string> variables_read;

} // namespace

// The linker's names for a wrapped function. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" char* __real_getenv(const char* name);
extern "C" char* __wrap_getenv(const char* name);

char* __wrap_getenv(const char* name)
{
    if (std::string(name).rfind("VORNA_", 0) == 0) {
        variables_read.emplace_back(name);
    }
    return __real_getenv(name);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

void emit(const std::vector<std::string>& names)
{
    std::vector<kernel_data> kernels;
    kernels.reserve(names.size());
    for (const std::string& name : names) {
        kernels.push_back(kernel(name, {a64::ret()}));
    }
    kernel_registry_map registry;
    finalise_kernels(registry, kernels);
}

/// What a process that emits kernels of these names under these variables leaves in its directory.
struct traces {
    std::set<std::string> files;
    bool has_map;
    std::string err;
};

traces traces_of(const std::vector<std::pair<std::string, std::string>>& environment,
                 const std::function<void()>& body)
{
    const temp_directory directory;
    child_options options;
    options.environment = environment;
    options.directory = directory.path();
    const child_result child = run_in_child(
        [&] {
            const perf_map map;
            body();
            if (map.exists()) {
                write_file("perf map", "");
            }
        },
        options);
    EXPECT_TRUE(child.succeeded()) << child;
    std::set<std::string> files = names_in(directory.path());
    const bool has_map = files.erase("perf map") == 1;
    return {files, has_map, child.err};
}

std::set<std::string> dumps(const std::string& pattern, const std::vector<std::string>& names)
{
    const traces left = traces_of({{dump, pattern}}, [&] { emit(names); });
    EXPECT_FALSE(left.has_map);
    EXPECT_EQ(left.err, "");
    return left.files;
}

TEST(Switches, AreOffWhenNoVariableIsSet)
{
    const traces left = traces_of({}, [] { emit({"k", "1", "wfta_5", ""}); });
    EXPECT_THAT(left.files, IsEmpty());
    EXPECT_FALSE(left.has_map);
    EXPECT_EQ(left.err, "");
}

TEST(Switches, PerfIsOnForExactly1)
{
    const traces left = traces_of({{perf, "1"}}, [] { emit({"k"}); });
    EXPECT_TRUE(left.has_map);
    EXPECT_THAT(left.files, ElementsAre("k"));
    EXPECT_EQ(left.err, "");
}

TEST(Switches, CheckHashIsOnForExactly1)
{
    const traces left = traces_of({{check_hash, "1"}}, [] { emit({"k"}); });
    EXPECT_FALSE(left.has_map);
    EXPECT_THAT(left.files, ElementsAre("k.hash"));
    EXPECT_EQ(left.err, "emitting new hash file: k.hash -> 0x575eda\n");
}

class OtherValues : public testing::TestWithParam<const char*> {};

TEST_P(OtherValues, LeavePerfAndCheckHashOff)
{
    const traces left = traces_of({{perf, GetParam()}, {check_hash, GetParam()}}, [] { emit({"k"}); });
    EXPECT_THAT(left.files, IsEmpty());
    EXPECT_FALSE(left.has_map);
    EXPECT_EQ(left.err, "");
}

INSTANTIATE_TEST_SUITE_P(Switches, OtherValues,
                         testing::Values("", "0", "true", "yes", "on", "01", "11", "1 ", " 1", "1\n", "1.0"));

TEST(DumpPattern, EmptyIsFoundInEveryName)
{
    EXPECT_THAT(dumps("", {"k", "other", " "}), UnorderedElementsAre("k", "other", " "));
}

TEST(DumpPattern, WordIsFoundAtStartMiddleAndEnd)
{
    EXPECT_THAT(dumps("five", {"five_a", "a_five_b", "b_five", "five", "fiv", "ive", "fi_ve"}),
                UnorderedElementsAre("five_a", "a_five_b", "b_five", "five"));
}

TEST(DumpPattern, AnchoredWordSelectsExactlyThatName)
{
    EXPECT_THAT(dumps("^five$", {"five_a", "a_five_b", "b_five", "five"}), ElementsAre("five"));
}

TEST(DumpPattern, OneIsAPatternLikeAnyOther)
{
    EXPECT_THAT(dumps("1", {"k1", "k2"}), ElementsAre("k1"));
}

TEST(DumpPattern, DoesNotFoldCase)
{
    EXPECT_THAT(dumps("k", {"k", "K"}), ElementsAre("k"));
}

TEST(DumpPattern, IsEcmaScript)
{
    // Alternatives without backslashes, \d, a non-greedy count and a negative look-ahead.
    EXPECT_THAT(
        dumps(R"(^(?!old)\w+?_(3|5)\d{1,2}$)", {"wfta_31", "wfta_5", "wfta_5000", "wfta_71", "old_31"}),
        ElementsAre("wfta_31"));
}

TEST(DumpPattern, SearchesTheWholeNamePastANullByte)
{
    const traces left = traces_of({{dump, "tail$"}}, [] { emit({std::string("cut\0tail", 8)}); });
    EXPECT_THAT(left.files, ElementsAre("cut"));
}

// Counts '@' among the digits.
class at_is_a_digit : public std::ctype<char> {
public:
    at_is_a_digit() : std::ctype<char>(masks()) {}

private:
    static const mask* masks()
    {
        static std::vector<mask> table(classic_table(), classic_table() + table_size);
        table['@'] = digit;
        return table.data();
    }
};

TEST(DumpPattern, UsesTheGlobalLocaleOfTheFirstEmission)
{
    const traces left = traces_of({{dump, R"(\d)"}}, [] {
        std::locale::global(std::locale(std::locale::classic(), new at_is_a_digit));
        emit({"@", "none"});
        std::locale::global(std::locale::classic());
        emit({"@@"});
    });
    EXPECT_THAT(left.files, UnorderedElementsAre("@", "@@"));
}

TEST(Reading, HappensOncePerProcessInTheOrderOfTheDiagnostics)
{
    traces_of({{dump, "none"}}, [] {
        for (int call = 0; call < 3; ++call) {
            emit({"a", "b"});
        }
        EXPECT_THAT(variables_read, ElementsAre(dump, perf, check_hash));
    });
}

TEST(Reading, WaitsForTheFirstKernel)
{
    const traces left = traces_of({}, [] {
        emit({});
        EXPECT_THAT(variables_read, IsEmpty());
        setenv(perf, "1", 1);
        setenv(check_hash, "1", 1);
        emit({"k"});
    });
    EXPECT_TRUE(left.has_map);
    EXPECT_THAT(left.files, UnorderedElementsAre("k", "k.hash"));
}

TEST(Reading, SettingAVariableAfterTheFirstKernelHasNoEffect)
{
    const traces left = traces_of({}, [] {
        emit({"k"});
        for (const char* variable : {perf, dump, check_hash}) {
            setenv(variable, "1", 1);
        }
        emit({"1"});
    });
    EXPECT_THAT(left.files, IsEmpty());
    EXPECT_FALSE(left.has_map);
    EXPECT_EQ(left.err, "");
}

TEST(Reading, ChangingAVariableAfterTheFirstKernelHasNoEffect)
{
    const traces left = traces_of({{dump, "a"}, {check_hash, "1"}}, [] {
        emit({"a"});
        setenv(dump, "b", 1);
        setenv(check_hash, "0", 1);
        emit({"aa", "b"});
    });
    EXPECT_THAT(left.files, UnorderedElementsAre("a", "a.hash", "aa", "aa.hash", "b.hash"));
}

TEST(Reading, RemovingAVariableAfterTheFirstKernelHasNoEffect)
{
    const traces left = traces_of({{perf, "1"}, {dump, "a"}}, [] {
        emit({"a"});
        unsetenv(perf);
        unsetenv(dump);
        const perf_map emptied;
        emit({"b"});
        EXPECT_THAT(emptied.text(), HasSubstr(" 4 b\n"));
    });
    EXPECT_THAT(left.files, UnorderedElementsAre("a", "b"));
}

class MalformedPattern : public testing::TestWithParam<const char*> {};

TEST_P(MalformedPattern, RaisesTheStandardLibrarysErrorInEveryCall)
{
    const traces left = traces_of({{dump, GetParam()}, {perf, "1"}, {check_hash, "1"}}, [] {
        for (int call = 0; call < 3; ++call) {
            EXPECT_THROW(emit({"k"}), std::regex_error);
        }
        EXPECT_THAT(variables_read, ElementsAre(dump));
    });
    EXPECT_THAT(left.files, IsEmpty());
    EXPECT_FALSE(left.has_map);
    EXPECT_EQ(left.err, "");
}

INSTANTIATE_TEST_SUITE_P(Switches, MalformedPattern,
                         testing::Values("(", ")", "[", "*", "a{2", "a{2,1}", "\\", "[[:none:]]"));

#ifdef _LIBCPP_VERSION
TEST(ReversedRange, IsNotAnErrorInLibcxx)
{
    EXPECT_THAT(traces_of({{dump, "[b-a]"}}, [] { emit({"k"}); }).files, IsEmpty());
}
#else
INSTANTIATE_TEST_SUITE_P(ReversedRange, MalformedPattern, testing::Values("[b-a]"));
#endif

TEST(AfterAMalformedPattern, KernelIsRegisteredButNotLinked)
{
    traces_of({{dump, "("}}, [] {
        void* slot = nullptr;
        void* other_slot = nullptr;
        kernel_registry_map registry;
        EXPECT_THROW(finalise_kernels(registry, {kernel("first", {a64::bl(), a64::ret()},
                                                        {{"first", 0, R_AARCH64_CALL26, 4}}, {}, &slot),
                                                 kernel("second", {a64::ret()}, {}, {}, &other_slot)}),
                     std::regex_error);
        ASSERT_EQ(registry.size(), 1U);
        const kernel_registry_entry& first = registry.at("first");
        EXPECT_EQ(first.text_len, 8U);
        EXPECT_EQ(word_at(first.text_ptr), a64::bl());
        EXPECT_EQ(word_at(first.text_ptr + 4), a64::ret());
        EXPECT_EQ(word_at(first.text_ptr + 32), 0U) << "the second kernel has been copied";
        EXPECT_EQ(slot, nullptr);
        EXPECT_EQ(other_slot, nullptr);
    });
}

TEST(AfterAMalformedPattern, KernelsOfEarlierRegistriesStay)
{
    traces_of({{dump, "("}}, [] {
        kernel_registry_map registry;
        EXPECT_THROW(finalise_kernels(registry, {kernel("a", {a64::ret()})}), std::regex_error);
        EXPECT_THROW(finalise_kernels(registry, {kernel("b", {a64::ret()})}), std::regex_error);
        EXPECT_EQ(registry.size(), 2U);
        EXPECT_EQ(word_at(registry.at("a").text_ptr), a64::ret());
    });
}

TEST(AfterAMalformedPattern, ACorrectedOneIsNotRead)
{
    const traces left = traces_of({{dump, "("}}, [] {
        EXPECT_THROW(emit({"k"}), std::regex_error);
        setenv(dump, "k", 1);
        EXPECT_THROW(emit({"k"}), std::regex_error);
        unsetenv(dump);
        EXPECT_THROW(emit({"k"}), std::regex_error);
    });
    EXPECT_THAT(left.files, IsEmpty());
}

TEST(AfterAMalformedPattern, AHostMayFreeIt)
{
    traces_of({}, [] {
        char malformed[] = "VORNA_WFTA_DUMP_KERNEL=(";
        putenv(malformed);
        EXPECT_THROW(emit({"k"}), std::regex_error);
        unsetenv(dump);
        std::fill(std::begin(malformed), std::end(malformed), 'k');
        EXPECT_THROW(emit({"k"}), std::regex_error);
    });
}

TEST(AfterAMalformedPattern, AnotherThreadGetsTheErrorToo)
{
    traces_of({{dump, "("}}, [] {
        EXPECT_THROW(emit({"k"}), std::regex_error);
        for (int call = 0; call < 2; ++call) {
            std::thread([] { EXPECT_THROW(emit({"k"}), std::regex_error); }).join();
        }
        EXPECT_THROW(emit({"k"}), std::regex_error);
    });
}

TEST(AfterAMalformedPattern, AHostThatDoesNotCatchIsTerminated)
{
    child_options options;
    options.environment = {{dump, "("}};
    const child_result child = run_in_child([]() noexcept { emit({"k"}); }, options);
    EXPECT_EQ(child.signal, SIGABRT) << child;
    EXPECT_THAT(child.err, HasSubstr("regex_error"));
}

} // namespace
