// Random sets, half of them broken: check_kernels must predict what the finaliser does. A child finalises set
// after set until one ends it; another child continues after that set.

#include "check/check_kernels.hpp"
#include "tests/support/broken_sets.hpp"
#include "tests/support/random_seed.hpp"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace vorna::wfta;
using namespace support;

#if defined EMULATED // where a child takes a hundred times as long
const std::size_t sets = 500;
#elif defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
const std::size_t sets = 4000;
#else
const std::size_t sets = test_size(10'000, 100'000);
#endif

/// A child's progress, in memory shared with the parent.
struct progress {
    std::size_t set; ///< number of the set at hand
    bool finalising; ///< and whether it is being finalised as it is
    bool predicted;  ///< whether check_kernels says that this ends the process; then where:
    char id[32];
    char kernel[32];
    std::size_t kernel_number;
    std::size_t relocation; ///< no_relocation for none
    bool mapped;            ///< what the finaliser has done when it ends the process: its kernel's code
    std::uint64_t text_address;
    std::size_t in_doubt; ///< sets that were left out
    char failure[256];    ///< a failed expectation of the child
};

constexpr std::size_t no_relocation = ~std::size_t{0};

struct numbered_set {
    random_set set;
    std::string breakages; ///< what was done to it
};

numbered_set make_set(unsigned seed, std::size_t number)
{
    std::seed_seq sequence{seed, static_cast<unsigned>(number)};
    random_engine random(sequence);
    numbered_set made;
    made.set = make_random_set(random);
    if (number % 2 == 1) {
        for (std::size_t ways = 1 + pick(random, 3); ways > 0; --ways)
            made.breakages += std::string(" ") + break_set(random, made.set);
    }
    return made;
}

// A host that finalises sets; while `jump` is set, abort() jumps out of the finaliser.
sigjmp_buf out_of_abort;
volatile std::sig_atomic_t jump = 0;

void on_abort(int)
{
    if (jump != 0)
        siglongjmp(out_of_abort, 1);
}

/// Whether the finaliser aborts.
bool aborts(kernel_registry_map registry, const std::vector<kernel_data>& kernels)
{
    jump = 1;
    // The memory that the jump leaks is freed when the child exits.
    if (sigsetjmp(out_of_abort, 1) != 0) {
        jump = 0;
        return true;
    }
    finalise_kernels(registry, kernels);
    jump = 0;
    return false;
}

void fail(progress& shared, const std::string& failure)
{
    if (shared.failure[0] == '\0')
        std::snprintf(shared.failure, sizeof shared.failure, "%s", failure.c_str());
}

/// The set without the relocations from one on, in one kernel and in all later ones.
std::vector<kernel_data> truncated(const std::vector<kernel_data>& kernels, std::size_t kernel,
                                   std::size_t relocations)
{
    std::vector<kernel_data> part = kernels;
    std::vector<tessjit::reloc_info>& relocs = part[kernel].relocs;
    relocs.resize(std::min(relocs.size(), relocations));
    // Later kernels remain, so that no address changes, but without relocations.
    for (std::size_t i = kernel + 1; i < part.size(); ++i) {
        part[i].relocs.clear();
        part[i].name = "later " + std::to_string(i);
    }
    return part;
}

void check_place(progress& shared, const kernel_registry_map& registry,
                 const std::vector<kernel_data>& kernels)
{
    std::vector<kernel_data> before;
    std::vector<kernel_data> with;
    if (shared.relocation == no_relocation) { // the name itself
        before = truncated(kernels, shared.kernel_number, 0);
        before[shared.kernel_number].name += " under another name";
        with = truncated(kernels, shared.kernel_number, 0);
    } else {
        before = truncated(kernels, shared.kernel_number, shared.relocation);
        with = truncated(kernels, shared.kernel_number, shared.relocation + 1);
    }
    if (aborts(registry, before))
        fail(shared, "the process ends before the predicted place");
    if (!aborts(registry, with))
        fail(shared, "the process continues past the predicted place");
}

/// The index of the finding's kernel in the set, also if two have the same name.
std::size_t number_of(const std::vector<kernel_data>& kernels, const kernel_finding& finding,
                      const kernel_registry_map& registry)
{
    std::size_t seen = registry.count(finding.kernel);
    for (std::size_t i = 0; i < kernels.size(); ++i) {
        if (kernels[i].name == finding.kernel && (finding.id != finding_id::duplicate_name || seen++ > 0))
            return i;
    }
    return kernels.size();
}

[[noreturn]] void run_child(progress& shared, unsigned seed, int stderr_file)
{
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    std::signal(SIGABRT, on_abort);
    std::signal(SIGSEGV, SIG_DFL);
    dup2(stderr_file, STDERR_FILENO);
    for (; shared.set < sets && shared.failure[0] == '\0'; ++shared.set) {
        const random_set set = make_set(seed, shared.set).set;
        kernel_registry_map registry;
        for (const std::string& name : set.null_names)
            registry[name] = {nullptr, 0, nullptr, 0};
        finalise_kernels(registry, set.earlier);

        shared.predicted = false;
        bool in_doubt = false; // where the system places the set decides
        for (const kernel_finding& finding : check_kernels(registry, set.kernels)) {
            in_doubt = finding.message.find("whether an earlier relocation") != std::string::npos;
            if (in_doubt)
                break;
            if (!finding.aborts)
                continue;
            shared.predicted = true;
            std::snprintf(shared.id, sizeof shared.id, "%s", name_of(finding.id));
            std::snprintf(shared.kernel, sizeof shared.kernel, "%s", finding.kernel.c_str());
            shared.relocation = finding.relocation.value_or(no_relocation);
            shared.kernel_number = number_of(set.kernels, finding, registry);
            if (shared.kernel_number == set.kernels.size())
                fail(shared, "a finding of a kernel that is not in the set");
            else
                check_place(shared, registry, set.kernels);
            break;
        }
        if (in_doubt) {
            ++shared.in_doubt;
            continue;
        }
        if (ftruncate(stderr_file, 0) != 0 || lseek(stderr_file, 0, SEEK_SET) != 0)
            fail(shared, "cannot empty the file of messages");
        shared.finalising = true;
        finalise_kernels(registry, set.kernels);
        shared.finalising = false;
        if (shared.predicted)
            fail(shared, "the process goes on");
    }
    _exit(0);
}

std::string read_all(int file)
{
    std::string text;
    char block[4096];
    ssize_t length = 0;
    for (off_t at = 0; (length = pread(file, block, sizeof block, at)) > 0; at += length)
        text.append(block, static_cast<std::size_t>(length));
    return text;
}

/// The text address of a kernel in a report's registry dump.
std::uint64_t listed_address(const std::string& report, const std::string& kernel)
{
    const std::string start = "  " + kernel + " \t ";
    const std::size_t at = report.find("\n" + start);
    return at == std::string::npos ? 0 : std::stoull(report.substr(at + 1 + start.size()), nullptr, 16);
}

/// What the report on stderr must contain for an id.
std::string expected_expression(const std::string& id)
{
    static const std::map<std::string, std::string> expressions = {
        {"duplicate-name", "data_len }).second' failed"},
        {"unknown-target", "Assertion `it != kernel_registry.end()' failed"},
        {"callee-order", "Assertion `it != kernel_registry.end()' failed"},
        {"foreign-data", "Assertion `reloc.name.substr(8) == fn_name' failed"},
        {"null-target", "Assertion `target_addr' failed"},
        {"unhandled-type", "Assertion `false && \"unhandled reloc type\"' failed"},
        {"field-filled", "was already filled, got 0x"},
        {"range", "but smod does not fit in +/-"},
    };
    const auto found = expressions.find(id);
    return found == expressions.end() ? "no report is known for " + id : found->second;
}

/// Compares the report with the prediction; empty if they agree.
std::string compare(const progress& shared, const std::string& report, const random_set& set)
{
    if (!shared.predicted)
        return "nothing was predicted";
    const std::string id = shared.id;
    if (report.find(expected_expression(id)) == std::string::npos)
        return "another report than for " + id;
    if (id != "field-filled" && id != "range")
        return "";
    const tessjit::reloc_info& reloc = set.kernels[shared.kernel_number].relocs[shared.relocation];
    const std::uint64_t text = listed_address(report, shared.kernel);
    const std::uint64_t P = text + static_cast<std::uint64_t>(std::int64_t{reloc.offset});
    const std::map<std::int32_t, std::string> names = {{274, "R_AARCH64_ADR_PREL_LO21"},
                                                       {275, "R_AARCH64_ADR_PREL_PG_HI21"},
                                                       {277, "R_AARCH64_ADD_ABS_LO12_NC"},
                                                       {283, "R_AARCH64_CALL26"}};
    char place[64];
    if (id == "field-filled")
        std::snprintf(place, sizeof place, "dst address 0x%llx was", static_cast<unsigned long long>(P));
    else
        std::snprintf(place, sizeof place, " - 0x%llx =",
                      static_cast<unsigned long long>(reloc.type == 275 ? P & ~std::uint64_t{0xfff} : P));
    if (report.find("resolving " + names.at(reloc.type) + " reloc") == std::string::npos ||
        report.find(place) == std::string::npos)
        return "another place than " + names.at(reloc.type) + " at " + place;
    return "";
}

TEST(KernelCheckProof, PredictsWhatTheFinaliserDoes)
{
    const unsigned seed = random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    auto& shared = *static_cast<progress*>(
        mmap(nullptr, sizeof(progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(&shared, MAP_FAILED);
    FILE* const messages = std::tmpfile();
    ASSERT_NE(messages, nullptr);
    std::map<std::string, std::size_t> ended; // by id
    for (shared.set = 0; shared.set < sets; ++shared.set) {
        std::fflush(nullptr);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0)
            run_child(shared, seed, fileno(messages));
        int status = 0;
        while (waitpid(child, &status, 0) < 0)
            ASSERT_EQ(errno, EINTR);
        const bool through = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (through && shared.failure[0] == '\0' && shared.set == sets)
            break;
        const numbered_set made = make_set(seed, shared.set);
        const std::string report = read_all(fileno(messages));
        SCOPED_TRACE("set " + std::to_string(shared.set) + ", broken by:" + made.breakages + "; predicted: " +
                     (shared.predicted ? std::string(shared.id) + " of " + shared.kernel + ", relocation " +
                                             std::to_string(shared.relocation)
                                       : "nothing") +
                     "\n" + report);
        ASSERT_STREQ(shared.failure, "");
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << "status " << status;
        ASSERT_TRUE(shared.finalising);
        ASSERT_EQ(compare(shared, report, made.set), "");
        shared.finalising = false;
        ++ended[shared.id];
    }
    std::fclose(messages);
    const std::size_t in_doubt = shared.in_doubt;
    munmap(&shared, sizeof shared);

    // The sets covered every kind of abort.
    std::size_t all = 0;
    for (const char* id : {"duplicate-name", "unknown-target", "callee-order", "foreign-data", "null-target",
                           "unhandled-type", "field-filled", "range"}) {
        EXPECT_GT(ended[id], sets / 1000) << id;
        std::printf("%s: %zu\n", id, ended[id]);
        all += ended[id];
    }
    EXPECT_LT(in_doubt, sets / 100);
    EXPECT_GT(all, sets / 4);
    EXPECT_LE(all, sets / 2);
}

} // namespace
