// Checks random kernels against the procedure call standard, and executes them. What runs wrong must have a
// finding, and what is reported as an error must run wrong.
//
// Half of the kernels are right, the others have a flaw: a restore left out, a slot overwritten, a register
// that nothing sets, a word changed. Each is run in VIXL's simulator on several inputs, twice on each. The
// two runs differ in what a kernel must not depend on: registers that carry no argument, the unused stack,
// what callees change, and what a signal handler writes below the stack pointer after each instruction.
// A kernel runs wrong if its results differ between the two, or if it breaks a rule of the standard.
//
// A changed word may leave unset what a callee takes, which the analysis does not know: of 200,000 kernels
// one ran wrong so without a finding. One in a thousand wrong ones with a changed word, and two, are
// tolerated. It may also write to a register the value that is there: an addition of zero, in one of 120,000
// kernels. One such error in ten thousand, and one, are tolerated.
//
// WFTA_KERNELS is the number of kernels, WFTA_TEST_SEED repeats a run, WFTA_KERNEL prints one kernel.

#include "tests/support/random_seed.hpp"
#include "tests/support/trials.hpp"
#include "tests/workbench/analysis/convention_kernels.hpp"
#include "tests/workbench/analysis/convention_machine.hpp"
#include "workbench/analysis/check_dumps.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/linking.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace random_conventions;
using namespace vorna::workbench;
using vorna::wfta::finding_severity;
using vorna::wfta::kernel_finding;

// The findings about the procedure call standard.
bool is_of_convention(const kernel_finding& finding)
{
    static const std::set<std::string> names = {
        "abi-callee-saved", "abi-stack-pointer", "abi-return-address", "abi-platform-register",
        "abi-below-stack",  "reads-unset",       "reads-flags-unset",  "falls-through"};
    return names.contains(name_of(finding.id));
}

kernel_set set_with(const random_kernel& kernel, const machine& machine)
{
    // The callees change every register that they may.
    std::vector<std::uint8_t> callee;
    const auto add = [&](std::uint32_t word) {
        for (unsigned shift = 0; shift < 32; shift += 8)
            callee.push_back(static_cast<std::uint8_t>(word >> shift));
    };
    for (std::uint32_t r = 0; r < 18; ++r)
        add(0xd2800000 | r); // movz xR, #0
    for (std::uint32_t v = 0; v < 32; ++v) {
        if (v < 8 || v > 15)
            add(0x6f00e400 | v); // movi vV.2d, #0
    }
    add(0xd65f03c0);
    const std::uint64_t data = machine.address(data_at);
    return make_kernel_set({{"f", machine.address(callees_at), callee, data, {}, {}, 0, ""},
                            {"g", machine.address(callees_at + 0x100), callee, data, {}, {}, 0, ""},
                            {"k", machine.address(text_at), kernel.text, data, {}, kernel.relocs, 0, ""}});
}

std::string described(const kernel_set& set, const std::vector<kernel_finding>& findings,
                      const random_kernel& kernel)
{
    std::ostringstream text;
    text << "flaw: " << flaw_names[static_cast<std::size_t>(kernel.wanted)] << "\n";
    const placed_kernel& k = *find_kernel(set, "k");
    disassembler disassembler;
    const auto linked = link_kernel(set, k);
    char line[256];
    for (std::size_t at = 0; at < linked.text.size(); at += 4) {
        std::snprintf(line, sizeof line, "%4zx\t%s\n", at,
                      disassembler.text(word_at(linked.text, at), at).c_str());
        text << line;
    }
    for (const kernel_finding& finding : findings) {
        const char* const levels[] = {"note", "warning", "error"};
        std::snprintf(line, sizeof line, "+0x%llx",
                      static_cast<unsigned long long>(finding.offset.value_or(0)));
        text << finding.kernel << line << ": " << levels[static_cast<int>(finding.severity)] << " ["
             << name_of(finding.id) << "] " << finding.message << " | " << finding.note << " | "
             << finding.help << "\n";
    }
    return text.str();
}

// What a trial found out, shared with the parent.
struct record {
    flaw wanted;
    bool made; // the kernel was executed
    bool finished;
    bool wrong; // it runs wrong on some input
    bool error; // has findings
    bool warning;
    bool unfollowed;
    bool silent;      // runs wrong without a finding
    bool unconfirmed; // a reported error that no execution shows
    unsigned errors;
    unsigned confirmed;
    unsigned not_reached;
    char what[200]; // the finding that was not confirmed, or the rule that was
                    // broken
};

class trial {
public:
    trial(unsigned seed, std::size_t number, machine& machine)
        : machine_(machine), random_((static_cast<std::uint64_t>(seed) << 32) + number),
          kernel_(generator(random_, wanted_flaw(number)).make()), set_(set_with(kernel_, machine))
    {
        for (kernel_finding& finding : check_dumps(set_)) {
            if (finding.kernel == "k")
                findings_.push_back(std::move(finding));
        }
    }

    void run(record& result)
    {
        result.wanted = kernel_.wanted;
        const auto linked = link_kernel(set_, *find_kernel(set_, "k"));
        std::set<std::size_t> watch;
        for (const kernel_finding& finding : findings_) {
            const std::string id = name_of(finding.id);
            result.unfollowed = result.unfollowed || id == "unfollowed";
            if (!is_of_convention(finding))
                continue;
            result.error = result.error || finding.severity == finding_severity::error;
            result.warning = result.warning || finding.severity == finding_severity::warning;
            if (finding.severity == finding_severity::error) {
                errors_.push_back(&finding);
                watch.insert(static_cast<std::size_t>(finding.offset.value_or(0)));
            }
        }
        std::vector<bool> confirmed(errors_.size());
        std::vector<bool> reached(errors_.size());
        std::vector<bool> taken(linked.text.size() / 4);
        std::vector<bool> passed(taken.size());
        bool crashes = false;
        constexpr std::size_t few = 10;
        constexpr std::size_t many = 200;
        for (std::size_t i = 0; i < many; ++i) {
            const bool all_confirmed =
                std::find(confirmed.begin(), confirmed.end(), false) == confirmed.end();
            if (i >= few && all_confirmed)
                break;
            const input from = machine_.random_input(random_);
            const unsigned vector_bits = i % 2 == 0 ? 256 : 2048;
            const run_result a = machine_.run(linked.text, from, 0x5ca1ab1e0001 + i, watch, vector_bits);
            const run_result b = machine_.run(linked.text, from, 0xfeedface0002 + i, watch, vector_bits);
            if (a.end == ending::unknown_instruction || b.end == ending::unknown_instruction)
                return;
            const std::string why = wrong(a, b);
            if (!why.empty() && !result.wrong) {
                result.wrong = true;
                std::snprintf(result.what, sizeof result.what, "%s, input %zu", why.c_str(), i);
            }
            crashes = crashes || a.end == ending::crashed;
            for (std::size_t word = 0; word < taken.size(); ++word) {
                taken[word] = taken[word] || a.taken[word];
                passed[word] = passed[word] || a.passed[word];
            }
            for (std::size_t e = 0; e < errors_.size(); ++e) {
                const auto [was_reached, shown] = look_at(*errors_[e], a, b);
                reached[e] = reached[e] || was_reached;
                confirmed[e] = confirmed[e] || shown;
            }
        }
        result.made = true;
        result.errors = static_cast<unsigned>(errors_.size());
        for (std::size_t e = 0; e < errors_.size(); ++e) {
            // What is wrong on some way only may be on one that no input takes.
            const std::string id = name_of(errors_[e]->id);
            const bool any_way =
                id.compare(0, 4, "abi-") == 0 && (crashes || !all_ways_gone(linked.text, taken, passed));
            result.confirmed += confirmed[e] ? 1 : 0;
            result.not_reached += !confirmed[e] && (!reached[e] || any_way) ? 1 : 0;
            if (reached[e] && !confirmed[e] && !any_way) {
                result.unconfirmed = true;
                std::snprintf(result.what, sizeof result.what, "[%s] at +0x%llx: %s", name_of(errors_[e]->id),
                              static_cast<unsigned long long>(errors_[e]->offset.value_or(0)),
                              errors_[e]->message.c_str());
            }
        }
        result.silent = result.wrong && !result.error && !result.warning && !result.unfollowed;
    }

    [[nodiscard]] std::string describe() const { return described(set_, findings_, kernel_); }

private:
    // Whether each conditional branch that was executed was taken and not taken.
    static bool all_ways_gone(const std::vector<std::uint8_t>& text, const std::vector<bool>& taken,
                              const std::vector<bool>& passed)
    {
        for (std::size_t i = 0; i < taken.size(); ++i) {
            const std::uint32_t word = word_at(text, 4 * i);
            const bool conditional = (word & 0xff000010) == 0x54000000 || (word & 0x7c000000) == 0x34000000;
            if (conditional && taken[i] != passed[i])
                return false;
        }
        return true;
    }

    static flaw wanted_flaw(std::size_t number)
    {
        return number % 2 == 0 ? flaw::none : static_cast<flaw>(1 + number / 2 % (flaws - 1));
    }

    // Whether both ended in a way that says nothing: what is at fault does not depend on what a kernel must
    // not depend on.
    bool says_nothing(const run_result& a, const run_result& b)
    {
        if (a.end != b.end || a.last_offset != b.last_offset)
            return false;
        return a.end == ending::too_long ||
               (a.end == ending::crashed && a.broken.empty() && !differs(a.last, b.last, a.last_offset, '['));
    }

    std::string wrong(const run_result& a, const run_result& b)
    {
        if (says_nothing(a, b))
            return "";
        for (const run_result* result : {&a, &b}) {
            if (result->end != ending::returned) {
                const char* const names[] = {"returned", "goes elsewhere", "too long", "crashed", "unknown"};
                return names[static_cast<int>(result->end)];
            }
            if (!result->broken.empty())
                return "breaks " + *result->broken.begin();
        }
        if (a.seen != b.seen)
            return "a callee's arguments differ";
        // In X0 and V0 may be left what the kernel kept for its caller.
        if (a.x0 != b.x0 && (!a.x0_is_callers || !b.x0_is_callers))
            return "X0 differs";
        if (a.v0 != b.v0 && (!a.v0_is_callers || !b.v0_is_callers))
            return "V0 differs";
        return a.buffers != b.buffers ? "memory differs" : "";
    }

    // Whether two executions reached what an error is about, and whether they show it.
    std::pair<bool, bool> look_at(const kernel_finding& finding, const run_result& a, const run_result& b)
    {
        const std::string id = name_of(finding.id);
        const auto offset = static_cast<std::size_t>(finding.offset.value_or(0));
        // A stack pointer that is off shows at the first access, too.
        if (id == "abi-stack-pointer" && (a.broken.contains("sp") || a.broken.contains("alignment")))
            return {true, true};
        if (offset / 4 >= a.executed.size() || !a.executed[offset / 4])
            return {false, false};
        if (id == "reads-unset" || id == "reads-flags-unset") {
            const auto in_a = a.watched.find(offset);
            const auto in_b = b.watched.find(offset);
            const bool crashed = a.end == ending::crashed && a.last_offset == offset; // before it reads
            if (in_a == a.watched.end() || in_b == b.watched.end() || crashed)
                return {false, false};
            if (id == "reads-flags-unset")
                return {true, in_a->second.first.flags != in_b->second.first.flags};
            return {true, differs(in_a->second.first, in_b->second.first, offset) ||
                              differs(in_a->second.second, in_b->second.second, offset)};
        }
        const bool ended = a.end == ending::returned || a.end == ending::elsewhere;
        if (id == "abi-callee-saved") {
            const std::string name = register_in(finding.message);
            const std::size_t exit = number_after(finding.message, " at +0x");
            const bool reached = ended && a.last_offset == exit && went_the_way(finding.message, a);
            return {reached, reached && (a.broken.contains(name) || a.changed.contains(name) ||
                                         a.end != ending::returned)};
        }
        if (id == "abi-stack-pointer")
            return {ended && went_the_way(finding.message, a), a.end != ending::returned};
        return {went_the_way(finding.message, a), !wrong(a, b).empty()};
    }

    static std::size_t number_after(const std::string& text, const std::string& before)
    {
        const std::size_t at = text.find(before);
        return at == std::string::npos ? at : std::stoul(text.substr(at + before.size()), nullptr, 16);
    }

    // Whether the execution went the way that the message names, if it does: "by the branch at +0x40, taken".
    static bool went_the_way(const std::string& message, const run_result& run)
    {
        const std::size_t branch = number_after(message, "by the branch at +0x");
        if (branch == std::string::npos)
            return true;
        return (message.find(", not taken") != std::string::npos ? run.passed : run.taken)[branch / 4];
    }

    // The register that the message names first: "x19", "d8", "z16", "p4".
    static std::string register_in(const std::string& message)
    {
        for (std::size_t at = 1; at + 1 < message.size(); ++at) {
            if (std::string("xdzp").find(message[at]) == std::string::npos ||
                std::isalnum(message[at - 1]) != 0 || std::isdigit(message[at + 1]) == 0)
                continue;
            std::size_t end = at + 1;
            while (end < message.size() && std::isdigit(message[end]) != 0)
                ++end;
            return message.substr(at, end - at);
        }
        return "";
    }

    // Whether a register in the text of the instruction, from the character `begin` on, differs.
    bool differs(const snapshot& a, const snapshot& b, std::size_t offset, char begin = ' ')
    {
        const std::string text = disassembler_.text(word_at(find_kernel(set_, "k")->text, offset), 0);
        for (std::size_t at = text.find(begin) + 1; at < text.size(); ++at) {
            if (std::isalnum(text[at - 1]) != 0 || std::isdigit(text[at + 1]) == 0)
                continue;
            const auto number = static_cast<unsigned>(std::atoi(text.c_str() + at + 1));
            if (number > 31)
                continue;
            const bool general = text[at] == 'x' || text[at] == 'w';
            const bool vector = std::string("bhsdqvz").find(text[at]) != std::string::npos;
            if ((general && a.general[number] != b.general[number]) ||
                (vector && a.vector[number] != b.vector[number]) ||
                (text[at] == 'p' && number < 16 && a.predicate[number] != b.predicate[number]))
                return true;
        }
        return false;
    }

    machine& machine_;
    random_engine random_;
    random_kernel kernel_;
    kernel_set set_;
    std::vector<kernel_finding> findings_;
    std::vector<const kernel_finding*> errors_;
    disassembler disassembler_;
};

constexpr std::size_t most_kernels_of_a_child = 2000; // since the simulator's memory grows

TEST(RandomConventions, AreBrokenWhereTheyAreSaidToBe)
{
    const unsigned seed = support::random_seed();
    const char* const given = std::getenv("WFTA_KERNELS");
    const char* const only = std::getenv("WFTA_KERNEL");
    std::size_t first = 0;
    std::size_t count = given != nullptr ? std::stoul(given) : support::test_size(1000, 10000);
    if (only != nullptr) {
        first = std::stoul(only);
        count = first + 1;
    }
    std::cout << count << " kernels, WFTA_TEST_SEED=" << seed << std::endl;
    support::shared_records<record> records(count);
    support::run_trials<machine>(first, count, most_kernels_of_a_child, [&](std::size_t i, machine& machine) {
        trial(seed, i, machine).run(records[i]);
        records[i].finished = true;
    });

    struct tally {
        unsigned made = 0, wrong = 0, error = 0, warning = 0, unfollowed = 0, wrong_with_error = 0;
    };
    std::array<tally, flaws> tallies;
    tally all;
    std::size_t errors = 0;
    std::size_t confirmed = 0;
    std::size_t not_reached = 0;
    std::size_t lost = 0;
    std::size_t wrong_words = 0;
    std::vector<std::size_t> silent_words;
    std::vector<std::size_t> unconfirmed_words;
    unsigned printed = 0;
    for (std::size_t i = first; i < count; ++i) {
        const record& kernel = records[i];
        lost += kernel.finished ? 0 : 1;
        if (!kernel.made)
            continue;
        for (tally* of : {&all, &tallies[static_cast<std::size_t>(kernel.wanted)]}) {
            ++of->made;
            of->wrong += kernel.wrong ? 1 : 0;
            of->error += kernel.error ? 1 : 0;
            of->warning += kernel.warning ? 1 : 0;
            of->unfollowed += kernel.unfollowed ? 1 : 0;
            of->wrong_with_error += kernel.wrong && kernel.error ? 1 : 0;
        }
        errors += kernel.errors;
        confirmed += kernel.confirmed;
        not_reached += kernel.not_reached;
        const bool right = kernel.wanted == flaw::none;
        const bool is_false = kernel.silent || kernel.unconfirmed ||
                              (right && (kernel.wrong || kernel.error || kernel.warning));
        std::string description;
        if ((is_false && printed < 10) || only != nullptr) {
            ++printed;
            machine machine;
            description = trial(seed, i, machine).describe() + kernel.what + "\n";
        }
        if (only != nullptr)
            std::cout << description;
        const std::string which =
            "kernel " + std::to_string(i) + ", WFTA_TEST_SEED=" + std::to_string(seed) + "\n" + description;
        const bool any_word = kernel.wanted >= flaw::word_removed;
        if (kernel.silent && any_word)
            silent_words.push_back(i);
        if (kernel.unconfirmed && any_word)
            unconfirmed_words.push_back(i);
        wrong_words += kernel.wrong && any_word ? 1 : 0;
        EXPECT_FALSE(kernel.silent && !any_word) << "runs wrong, and nothing is said about it: " << which;
        EXPECT_FALSE(kernel.unconfirmed && !any_word) << "no execution shows an error: " << which;
        EXPECT_FALSE(right && kernel.wrong) << "the generator made a wrong kernel: " << which;
        EXPECT_FALSE(right && (kernel.error || kernel.warning))
            << "a finding about a right kernel: " << which;
    }
    const auto print = [](const char* what, const tally& of) {
        std::printf("%-40s %6u, run wrong %6u, of these with an error %6u; error "
                    "%6u, warning %6u, unfollowed %6u\n",
                    what, of.made, of.wrong, of.wrong_with_error, of.error, of.warning, of.unfollowed);
    };
    for (std::size_t i = 0; i < flaws; ++i)
        print(flaw_names[i], tallies[i]);
    print("together", all);
    std::printf("%zu errors, shown by execution %zu, not reached %zu; %zu "
                "kernels ended the process\n",
                errors, confirmed, not_reached, lost);
    const auto print_words = [&](const char* what, const std::vector<std::size_t>& kernels) {
        std::printf("of the kernels with a changed word, %zu %s", kernels.size(), what);
        for (std::size_t i = 0; i < kernels.size(); ++i)
            std::printf("%s%zu", i == 0 ? ": " : ", ", kernels[i]);
        std::printf("\n");
    };
    std::printf("of the kernels with a changed word, %zu run wrong\n", wrong_words);
    print_words("run wrong without a finding", silent_words);
    print_words("have an error that no execution shows", unconfirmed_words);
    if (only != nullptr)
        return;
    EXPECT_LE(silent_words.size(), wrong_words / 1000 + 2);
    EXPECT_LE(unconfirmed_words.size(), errors / 10000 + 1);
    EXPECT_LE(lost, count / 100);
    EXPECT_GT(all.wrong, count / 4);
    EXPECT_GT(all.made, count * 9 / 10);
}

} // namespace
