// A baseline when bless is killed, when the file may not grow, and when branches merge. What the command
// prints is in cases/baseline.t.

#include "tests/support/a64.hpp"
#include "tests/support/dumps.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"

#include <gtest/gtest.h>
#include <random>

namespace {

namespace a64 = support::a64;
using support::child_result;
using support::contents;
using support::temp_directory;

class BaselineCommand : public testing::Test {
protected:
    BaselineCommand()
    {
        dump("a", {a64::movz(0, 1), a64::ret()}, {1, 2, 3, 4, 5, 6, 7, 8});
        dump("b", {a64::adr(0), a64::ret()}, {1, 2, 3, 4, 5, 6, 7, 8}, {{".rodata.b", 0, 274, 0}});
        dump("c", {a64::ret()}, {});
    }

    void dump(const std::string& name, const std::vector<std::uint32_t>& words,
              std::vector<std::uint8_t> data, std::vector<tessjit::reloc_info> relocs = {})
    {
        placed_ += 0x100;
        support::write_dumps(
            directory.path() / "dumps",
            {support::placed(name, placed_, words, std::move(relocs), std::move(data), placed_ + 0x100000)});
    }

    [[nodiscard]] child_result run(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> command = {"env", "CI=", VORNA_KERNELS, "baseline"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return support::run_tool(std::move(command), directory.path());
    }

    [[nodiscard]] std::string text() const { return contents(directory.path() / "base"); }

    void bless_all() const { ASSERT_EQ(run({"bless", "base", "dumps", "--all"}).exit_status, 0); }

    temp_directory directory;

private:
    std::uint64_t placed_ = 0x10000;
};

TEST_F(BaselineCommand, LeavesTheOldOrTheNewBaselineWholeWhenItIsKilled)
{
    for (int i = 0; i < 300; ++i)
        dump("kernel_" + std::to_string(i), {a64::movz(0, static_cast<unsigned>(i)), a64::ret()}, {});
    bless_all();
    const std::string before = text();
    for (int i = 0; i < 300; ++i)
        dump("kernel_" + std::to_string(i), {a64::movz(1, static_cast<unsigned>(i)), a64::ret()}, {});
    bless_all();
    const std::string after = text();
    ASSERT_NE(before, after);

    const unsigned seed = support::random_seed();
    SCOPED_TRACE("WFTA_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round) {
        support::write_file(directory.path() / "base", before);
        const std::string seconds =
            std::to_string(std::uniform_real_distribution<double>(0.001, 0.04)(random));
        support::run_tool({"timeout", "-s", "KILL", seconds, "env", "CI=", VORNA_KERNELS, "baseline", "bless",
                           "base", "dumps", "--all"},
                          directory.path());
        const std::string now = text();
        ASSERT_TRUE(now == before || now == after) << "killed after " << seconds << " s";
    }

    // A file that may not become as long as the new one.
    support::write_file(directory.path() / "base", before);
    const child_result limited = support::run_tool({"prlimit", "--fsize=1000", "env", "CI=", VORNA_KERNELS,
                                                    "baseline", "bless", "base", "dumps", "--all"},
                                                   directory.path());
    EXPECT_NE(limited.exit_status, 0);
    EXPECT_EQ(text(), before);
}

TEST_F(BaselineCommand, MergesWhatTwoBranchesAccepted)
{
    for (int i = 0; i < 6; ++i)
        dump("k" + std::to_string(i), {a64::ret()}, {});
    bless_all();
    const auto copy = [&](const std::string& to) {
        std::filesystem::copy_file(directory.path() / "base", directory.path() / to);
    };
    copy("ancestor");
    dump("k1", {a64::nop(), a64::ret()}, {});
    dump("k1a", {a64::ret()}, {});
    bless_all();
    copy("ours");
    dump("k1", {a64::ret()}, {});
    std::filesystem::remove(directory.path() / "dumps" / "k1a");
    dump("k4", {a64::ret()}, {7});
    bless_all();
    copy("theirs");
    const child_result merge =
        support::run_tool({"git", "merge-file", "ours", "ancestor", "theirs"}, directory.path());
    ASSERT_EQ(merge.exit_status, 0) << merge;

    dump("k1", {a64::nop(), a64::ret()}, {});
    dump("k1a", {a64::ret()}, {});
    EXPECT_EQ(run({"check", "ours", "dumps"}).out, "10 kernels: 10 same\n");
}

} // namespace
