// Names that cannot be names of dump and hash files, or symbols in the perf map.

#include "check/names.hpp"
#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;
using namespace support;
using namespace support::a64;

/// The messages for a set, one per line.
std::string messages(const std::vector<kernel_data>& kernels, const kernel_registry_map& registry = {})
{
    std::string lines;
    for (const kernel_finding& finding : check_kernels(registry, kernels))
        lines += finding.message + "\n";
    return lines;
}

std::string found(const std::vector<kernel_data>& kernels, const kernel_registry_map& registry = {})
{
    std::string lines;
    for (const kernel_finding& finding : check_kernels(registry, kernels)) {
        EXPECT_EQ(finding.severity, finding_severity::warning);
        lines += "warning " + finding.kernel + " " + name_of(finding.id) + "\n";
    }
    return lines;
}

kernel_registry_map registry_of(const std::string& name, std::uint64_t text)
{
    return {{name, {address(text), 32, address(text + 32), 0}}};
}

TEST(Names, FindsNamesThatFilesCannotHave)
{
    const auto name = [](std::string n) {
        std::string ids;
        for (const kernel_finding& finding : check_kernels({}, {kernel(std::move(n), {ret()})})) {
            EXPECT_EQ(finding.severity, finding_severity::warning);
            EXPECT_FALSE(finding.aborts);
            ids += std::string(name_of(finding.id)) + " ";
        }
        return ids;
    };
    EXPECT_EQ(name("wfta_short_3"), "");
    EXPECT_EQ(name("a name with blanks"), "");
    EXPECT_EQ(name("a/b"), "name-file ");
    EXPECT_EQ(name("nul" + std::string(1, '\0')), "name-file name-map ");
    EXPECT_EQ(name(""), "name-file name-map ");
    EXPECT_EQ(name("."), "name-file name-map ");
    EXPECT_EQ(name(".."), "name-file name-map ");
    EXPECT_EQ(name("..."), "");
    EXPECT_EQ(name(std::string(250, 'k')), "");
    EXPECT_EQ(name(std::string(251, 'k')), "name-file ") << "with .hash";
    EXPECT_EQ(name(std::string(255, 'k')), "name-file ");
    EXPECT_EQ(name(std::string(256, 'k')), "name-file ");
    EXPECT_EQ(name("two\nlines"), "name-map ");
    EXPECT_EQ(name("ab"), "name-map ");
    EXPECT_EQ(name("abc"), "");
    EXPECT_EQ(messages({kernel(std::string(251, 'k'), {ret()})}),
              "the name has 251 bytes, with \".hash\" more than 255, the limit for a file name\n");
    EXPECT_EQ(messages({kernel(std::string(255, 'k'), {ret()})}),
              "the name has 255 bytes, with \".hash\" more than 255, the limit for a file name\n");
    EXPECT_EQ(messages({kernel(std::string(256, 'k'), {ret()})}),
              "the name has 256 bytes, the limit for a file name is 255\n");
}

TEST(Names, FindsNamesWhoseFilesCollide)
{
    EXPECT_EQ(messages({kernel("wfta", {ret()}), kernel("wfta.hash", {ret()})}),
              "its dump is the hash file of 'wfta'\n");
    EXPECT_EQ(messages({kernel("wfta.hash", {ret()}), kernel("wfta", {ret()})}),
              "its hash file is the dump of 'wfta.hash'\n");
    EXPECT_EQ(found({kernel("wfta", {ret()}), kernel("WFTA", {ret()})}), "warning WFTA name-collision\n");
    EXPECT_EQ(found({kernel("WFTA", {ret()})}, registry_of("wfta", 0x1000)), "warning WFTA name-collision\n");
    EXPECT_EQ(messages({kernel("WFTA", {ret()}), kernel("Wfta", {ret()})}),
              "the name differs from 'WFTA' in case only\n");
    EXPECT_EQ(found({kernel("WFTA", {ret()}), kernel("WFT", {ret()})}), "");
    EXPECT_EQ(found({kernel("wfta.hash", {ret()}), kernel("wfta_", {ret()})}), "");
}

TEST(Names, OfFilesMayBeAddedTwice)
{
    file_names names;
    names.add("WFTA");
    names.add("WFTA");
    finding_list findings;
    names.check("WFTA", findings);
    EXPECT_TRUE(findings.take().empty());
    names.check("wfta", findings);
    ASSERT_EQ(findings.take().size(), 1U);
}

} // namespace
