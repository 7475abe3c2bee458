// Two million samples of a simulated machine on which every address is known: the sums must be exact, and
// memory must not grow with the number of samples.

#include "tests/support/child.hpp"
#include "tests/support/random_seed.hpp"
#include "workbench/analysis/profile.hpp"

#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <sys/resource.h>
#include <tuple>

namespace {

using namespace vorna::workbench;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t samples = 200'000; // the sanitizers make each some ten times as slow
#else
constexpr std::size_t samples = 2'000'000;
#endif

constexpr std::uint64_t page = 4096;
const std::string events[] = {"cycles:u", "cpu-clock", "cpu/event=0x11,name=my event/"};

/// The true contents of an address range of a process.
struct region {
    std::uint64_t begin;
    std::uint64_t end;
    bool anonymous;
    bool kernels = false; // of the host that the dumps are of
};

using truth =
    std::map<std::tuple<std::string, std::string, std::uint64_t>, sample_count>; // event, kernel, offset

/// Writes perf script's output for processes that map, fork, exec and exit, and counts the expected samples.
class machine {
public:
    explicit machine(unsigned seed) : random_(seed)
    {
        make_kernels();
        for (int i = 0; i < 1000; ++i) // that are sampled, so that their number does not grow
            hot_.push_back(random_() % 0x10000);
    }

    [[nodiscard]] const kernel_set& set() const { return set_; }
    [[nodiscard]] const truth& expected() const { return expected_; }

    /// Runs the scenario and passes the text on in pieces.
    void run(std::size_t count, const std::function<void(std::string_view)>& sink)
    {
        sink_ = &sink;
        burst_ = count / 10;
        write("    0     0.000000: PERF_RECORD_MMAP -1/0: [0xffffcf10d5210000(0x30ef2adeffff) @ "
              "0xffffcf10d5210000]: x [kernel.kallsyms]_stext\n");
        const int shell = 4711;
        const int host = 5000;
        found(shell);
        map(shell, library(0x400000));
        fork(host, shell);
        exec(host);
        map(host, library(0x400000));
        map(host, code_cache(2)); // it is unmapped before the kernels come to the same place
        map(host, library(mappings_[3].begin - page, 8 * page));
        burst();
        unmap(host, mappings_[2].begin);
        unmap(host, mappings_[3].begin - page);
        map(host, mappings_[0]);
        burst();
        const int early = 5001; // a child that has the first of four mappings only
        fork(early, host);
        thread(host, 5002);
        map(host, mappings_[1]);
        burst();
        map(host, mappings_[2]);
        map(host, mappings_[3]);
        const int ended = 5003;
        const int other = 5004;
        fork(ended, host);
        fork(other, host);
        map(early, code_cache(2)); // something else where its parent has kernels
        burst();
        exec(other);
        map(other, library(0x400000));
        map(other, code_cache(0)); // another program, at addresses of the kernels
        exit(ended);
        burst();
        fork(ended, shell); // the number is used again
        map(ended, code_cache(1));
        const int grandchild = 5005;
        fork(grandchild, early);
        burst();
        exit(host);
        burst();
        fork(host, shell);
        exec(host);
        map(host, library(mappings_[0].begin));
        burst();
        fork(5006, grandchild);
        exit(grandchild);
        burst();
        exit(early);
        burst_ = count - written_;
        burst();
        hand_on(0);
    }

private:
    void make_kernels()
    {
        std::vector<placed_kernel> dumped;
        std::uint64_t address = 0x7f0000000000;
        for (int m = 0; m < 4; ++m) {
            const std::uint64_t begin = address;
            std::vector<placed_kernel> kernels;
            for (int k = 0; k < 20; ++k) {
                placed_kernel made;
                made.name = "kernel_" + std::to_string(m) + "_" + std::to_string(k);
                made.text_address = address;
                made.text.resize(4 + random_() % 1000 * 4);
                address = (made.text_end() + 63) / 64 * 64;
                kernels.push_back(std::move(made));
            }
            for (placed_kernel& made : kernels) {
                made.data_address = address;
                made.data.resize(random_() % 500);
                address = made.data_end();
            }
            address = (address + page - 1) / page * page;
            mappings_.push_back({begin, address, true, true});
            if (m != 0) // the first two are neighbours
                address += (1 + random_() % 100) * page;
            for (placed_kernel& made : kernels) {
                if (random_() % 4 != 0 || &made == &kernels.front())
                    dumped.push_back(std::move(made));
            }
        }
        set_ = make_kernel_set(std::move(dumped));
    }

    // Memory of another owner, as large as the kernels' mapping.
    [[nodiscard]] region code_cache(std::size_t mapping) const
    {
        region other = mappings_[mapping];
        other.kernels = false;
        return other;
    }

    static region library(std::uint64_t begin, std::uint64_t size = 4 * page)
    {
        return {begin, begin + size, false};
    }

    void write(const std::string& line)
    {
        text_ += line;
        if (text_.size() > 100'000)
            hand_on(text_.size() - 1 - random_() % 99'000);
    }

    void hand_on(std::size_t keep)
    {
        (*sink_)(std::string_view(text_).substr(0, text_.size() - keep));
        text_.erase(0, text_.size() - keep);
    }

    void record(int pid, const std::string& what)
    {
        char start[64];
        std::snprintf(start, sizeof start, "%5d %5d.%06d: PERF_RECORD_", pid, time_ / 1'000'000,
                      time_ % 1'000'000);
        ++time_;
        write(start + what + "\n");
    }

    static std::string number(int pid) { return std::to_string(pid); }

    void found(int pid)
    {
        processes_[pid];
        write("    0     0.000000: PERF_RECORD_FORK(" + number(pid) + ":" + number(pid) + "):(1:1)\n");
        write("    0     0.000000: PERF_RECORD_COMM: sh:" + number(pid) + "/" + number(pid) + "\n");
    }
    // The kernel reports anonymous memory merged with its neighbours.
    void map(int pid, const region& what)
    {
        std::vector<region>& regions = processes_.at(pid);
        std::uint64_t begin = what.begin;
        std::uint64_t end = what.end;
        for (const region& other : regions) {
            if (what.anonymous && other.anonymous && other.end == begin)
                begin = other.begin;
            if (what.anonymous && other.anonymous && other.begin == end)
                end = other.end;
        }
        regions.push_back(what);
        char line[160];
        std::snprintf(line, sizeof line, "MMAP2 %d/%d: [0x%llx(0x%llx) @ 0x%llx %s", pid, pid,
                      static_cast<unsigned long long>(begin), static_cast<unsigned long long>(end - begin),
                      static_cast<unsigned long long>(what.anonymous ? begin : 0x1000),
                      what.anonymous ? "00:00 0 0]: rwxp //anon"
                                     : "fe:00 247230 0]: r-xp /usr/lib/some thing.so");
        record(pid, line);
    }
    void unmap(int pid, std::uint64_t begin)
    {
        std::vector<region>& regions = processes_.at(pid);
        for (std::size_t i = 0; i < regions.size(); ++i) {
            if (regions[i].begin == begin)
                regions.erase(regions.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    void fork(int child, int parent)
    {
        const std::vector<region> copy = processes_.at(parent);
        processes_[child] = copy;
        record(parent, "FORK(" + number(child) + ":" + number(child) + "):(" + number(parent) + ":" +
                           number(parent) + ")");
    }
    void thread(int pid, int tid)
    {
        record(pid,
               "FORK(" + number(pid) + ":" + number(tid) + "):(" + number(pid) + ":" + number(pid) + ")");
    }
    void exec(int pid)
    {
        processes_.at(pid).clear();
        record(pid, "COMM exec: a:b/c:" + number(pid) + "/" + number(pid));
    }
    void exit(int pid)
    {
        processes_.erase(pid);
        record(pid, "EXIT(" + number(pid) + ":" + number(pid) + "):(4711:4711)");
    }

    /// Writes samples of all processes.
    void burst()
    {
        std::vector<int> pids;
        for (const auto& [pid, regions] : processes_)
            pids.push_back(pid);
        for (std::size_t i = 0; i < burst_; ++i) {
            const int pid = pids[random_() % pids.size()];
            const std::vector<region>& regions = processes_.at(pid);
            std::uint64_t address = 0xffffcf10d54a0c14 + 4 * (random_() % 100);
            const region* where = nullptr;
            if (!regions.empty() && random_() % 8 != 0) {
                where = &regions[random_() % regions.size()];
                address = where->begin + hot_[random_() % hot_.size()] % (where->end - where->begin);
            }
            sample(pid, where, address);
        }
        written_ += burst_;
    }

    void sample(int pid, const region* where, std::uint64_t address)
    {
        const std::string& event = events[random_() % std::size(events)];
        const std::uint64_t period = random_() % 8 == 0 ? random_() : random_() % 1000;
        char line[160];
        const int length =
            std::snprintf(line, sizeof line, "%5d %5d.%06d: %10llu %s:  %16llx\n", pid, time_ / 1'000'000,
                          time_ % 1'000'000, static_cast<unsigned long long>(period), event.c_str(),
                          static_cast<unsigned long long>(address));
        ++time_;
        write(std::string(line, static_cast<std::size_t>(length)));
        const auto count = [&](const std::string& kernel, std::uint64_t offset) {
            sample_count& sum = expected_[{event, kernel, offset}];
            ++sum.samples;
            sum.period += period;
        };
        count("total", 0);
        if (where == nullptr || !where->kernels)
            return count("elsewhere", 0);
        for (const placed_kernel& kernel : set_.kernels) {
            if (address >= kernel.text_address && address < kernel.text_end()) {
                count("in kernels", 0);
                return count(kernel.name, address - kernel.text_address);
            }
        }
        count("unknown", 0);
    }

    std::mt19937 random_;
    kernel_set set_;
    std::vector<region> mappings_;
    std::vector<std::uint64_t> hot_; // offsets
    std::map<int, std::vector<region>> processes_;
    truth expected_;
    std::string text_;
    const std::function<void(std::string_view)>* sink_ = nullptr;
    std::size_t burst_ = 0;
    std::size_t written_ = 0;
    int time_ = 1'000'000;
};

truth counted(const kernel_set& set, const profile& profile)
{
    truth sums;
    for (const event_profile& event : profile.events) {
        sums[{event.event, "total", 0}] = event.total;
        sums[{event.event, "in kernels", 0}] = event.in_kernels;
        sums[{event.event, "unknown", 0}] = event.unknown;
        sums[{event.event, "elsewhere", 0}] = event.elsewhere;
        std::uint64_t last = UINT64_MAX;
        for (const kernel_profile& kernel : event.kernels) {
            EXPECT_LE(kernel.count.period, last) << "the heaviest is not the first";
            last = kernel.count.period;
            sample_count sum;
            for (const profile_row& row : kernel.rows) {
                sums[{event.event, set.kernels[kernel.kernel].name, row.offset}] = row.count;
                sum.samples += row.count.samples;
                sum.period += row.count.period;
            }
            EXPECT_EQ(sum.samples, kernel.count.samples);
            EXPECT_EQ(sum.period, kernel.count.period);
        }
    }
    return sums;
}

TEST(ProfileSamples, AreCountedExactly)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    machine made(seed);
    profile_reader reader(made.set());
    made.run(samples, [&](std::string_view piece) { reader.read(piece); });
    const profile profile = reader.finish();
    EXPECT_EQ(profile.text.bad_lines, 0U);
    const truth sums = counted(made.set(), profile);
    ASSERT_EQ(sums.size(), made.expected().size());
    std::uint64_t all = 0;
    for (auto sum = sums.begin(), expected = made.expected().begin(); sum != sums.end(); ++sum, ++expected) {
        const auto& [event, kernel, offset] = sum->first;
        ASSERT_EQ(sum->first, expected->first) << event << " " << kernel << "+" << offset;
        EXPECT_EQ(sum->second.samples, expected->second.samples) << event << " " << kernel << "+" << offset;
        EXPECT_EQ(sum->second.period, expected->second.period) << event << " " << kernel << "+" << offset;
        all += kernel == "total" ? sum->second.samples : 0;
    }
    EXPECT_EQ(all, samples);
}

long peak_kilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(ProfileSamples, NeedNoMemoryEach)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    const support::child_result child = support::run_in_child([&] {
        // Repeats the same samples: only their number changes.
        machine made(seed);
        std::string text;
        made.run(20'000, [&](std::string_view piece) { text += piece; });
        std::string again;
        for (std::size_t at = text.size() / 2; again.size() < text.size() / 4;) {
            const std::size_t end = text.find('\n', at) + 1;
            if (text.find("PERF_RECORD", at) > end)
                again += text.substr(at, end - at);
            at = end;
        }
        profile_reader reader(made.set());
        reader.read(text);
        for (int i = 0; i < 10; ++i)
            reader.read(again);
        const long before = peak_kilobytes();
        std::size_t lines = 0;
        while (lines < samples) {
            reader.read(again);
            lines += 5000;
        }
        EXPECT_LT(peak_kilobytes() - before, 512);
        EXPECT_GT(reader.finish().events[0].total.samples, samples / 4);
    });
    EXPECT_TRUE(child.succeeded()) << child;
}

} // namespace
