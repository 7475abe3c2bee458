// What the name of a relocation means.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "tests/support/a64.hpp"
#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace support;
using namespace std::string_literals;
using namespace vorna::wfta;

constexpr std::int32_t adr = R_AARCH64_ADR_PREL_LO21;

/// Distance in bytes from the ADR instruction at `place` to the address that it computes (Arm Architecture
/// Reference Manual: sign-extended immhi:immlo).
std::int64_t adr_distance(const void* place)
{
    const std::uint32_t word = word_at(place);
    const auto immediate = static_cast<std::int32_t>((word >> 5 & 0x7ffff) << 2 | (word >> 29 & 3));
    return immediate >= 0x100000 ? immediate - 0x200000 : immediate;
}

/// The address that the ADR at the start of a registered kernel computes.
const std::uint8_t* adr_target(const kernel_registry_map& registry, const std::string& name)
{
    const std::uint8_t* const place = registry.at(name).text_ptr;
    return place + adr_distance(place);
}

/// A kernel that starts with an ADR of `target`, and has data.
kernel_data adr_kernel(const std::string& name, const std::string& target)
{
    return kernel(name, {a64::adr(0), a64::ret()}, {{target, 0, adr, 0}}, {1, 2, 3});
}

const std::string wrong_owner =
    assertion_report(resolve_relocation_signature, "reloc.name.substr(8) == fn_name");
const std::string null_target = assertion_report(resolve_relocation_signature, "target_addr");
const std::string unhandled_type =
    assertion_report(resolve_relocation_signature, "false && \"unhandled reloc type\"");

void expect_fatal(kernel_registry_map registry, const std::vector<kernel_data>& kernels,
                  const std::string& report)
{
    expect_abort([&] { finalise_kernels(registry, kernels); }, report);
}

TEST(RelocationTargets, OwnDataIsNamedByAPrefixToTheKernelsName)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel("other", "other"), adr_kernel("k", ".rodata.k")});
    EXPECT_EQ(adr_target(registry, "k"), registry.at("k").data_ptr);
}

TEST(RelocationTargets, BarePrefixNamesTheDataOfTheUnnamedKernel)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel("", ".rodata.")});
    EXPECT_EQ(adr_target(registry, ""), registry.at("").data_ptr);
}

TEST(RelocationTargets, TheBarePrefixInAKernelWithANameIsFatal)
{
    expect_fatal({}, {adr_kernel("k", ".rodata.")}, wrong_owner);
}

TEST(RelocationTargets, TheBarePrefixIsNotLookedUp)
{
    expect_fatal({{".rodata.", {address(0x1000), 0, nullptr, 0}}}, {adr_kernel("k", ".rodata.")},
                 wrong_owner);
}

TEST(RelocationTargets, DataOfAnotherKernelIsRejectedEvenIfRegistered)
{
    expect_fatal({}, {adr_kernel("other", "other"), adr_kernel("k", ".rodata.other")}, wrong_owner);
}

TEST(RelocationTargets, OwnDataNeedsTheWholeNameAndNoMore)
{
    expect_fatal({}, {adr_kernel("dft", ".rodata.df")}, wrong_owner);
    expect_fatal({}, {adr_kernel("dft", ".rodata.dfts")}, wrong_owner);
    expect_fatal({}, {adr_kernel("dft", ".rodata.dft\0"s)}, wrong_owner);
    expect_fatal({}, {adr_kernel("dft\0x"s, ".rodata.dft")}, wrong_owner);
    expect_fatal({}, {adr_kernel("dft", ".rodata.DFT")}, wrong_owner);
    expect_fatal({}, {adr_kernel("dft", ".rodata..rodata.dft")}, wrong_owner);
}

TEST(RelocationTargets, ThePrefixWinsOverAKernelOfThatName)
{
    kernel_registry_map registry = {{".rodata.k", {address(0x1000), 0, nullptr, 0}}};
    finalise_kernels(registry, {adr_kernel("k", ".rodata.k")});
    EXPECT_EQ(adr_target(registry, "k"), registry.at("k").data_ptr);

    expect_fatal({}, {adr_kernel(".rodata.k", ".rodata.k")}, wrong_owner);
}

TEST(RelocationTargets, SevenBytesOfThePrefixAreAKernelsName)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel(".rodata", ".rodata"), adr_kernel("k", ".rodata")});
    EXPECT_EQ(adr_target(registry, ".rodata"), registry.at(".rodata").text_ptr);
    EXPECT_EQ(adr_target(registry, "k"), registry.at(".rodata").text_ptr);

    expect_fatal({}, {adr_kernel("k", ".rodata")}, unknown_target_report());
}

TEST(RelocationTargets, OtherNamesOfThePrefixsLengthAreKernels)
{
    for (const std::string& name :
         {".rodatas"s, ".rodata/k"s, ".rodata\0k"s, ".RODATA.k"s, "rodata..k"s, "xrodata.k"s}) {
        SCOPED_TRACE(name);
        kernel_registry_map registry;
        finalise_kernels(registry, {adr_kernel(name, name), adr_kernel("k", name)});
        EXPECT_EQ(adr_target(registry, "k"), registry.at(name).text_ptr);
        expect_fatal({}, {adr_kernel("k", name)}, unknown_target_report());
    }
}

TEST(RelocationTargets, OwnNameIsTheKernelsFirstCodeByte)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel("before", "before"),
                                kernel("k", {a64::nop(), a64::adr(0)}, {{"k", 4, adr, 0}})});
    EXPECT_EQ(adr_distance(registry.at("k").text_ptr + 4), -4);
}

TEST(RelocationTargets, EarlierKernelsOfTheSetAreFound)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel("a", "a"), adr_kernel("b", "a"), adr_kernel("c", "b")});
    EXPECT_EQ(adr_target(registry, "b"), registry.at("a").text_ptr);
    EXPECT_EQ(adr_target(registry, "c"), registry.at("b").text_ptr);
}

TEST(RelocationTargets, KernelsOfEarlierCallsAreFound)
{
    address_range range(0x20000);
    platform_spy spy;
    kernel_registry_map registry;
    spy.place = range.begin() + 0x10000;
    finalise_kernels(registry, {adr_kernel("earlier", "earlier")});
    spy.place = range.begin();
    finalise_kernels(registry, {adr_kernel("later", "earlier")});
    EXPECT_EQ(adr_distance(range.begin()), 0x10000);
}

TEST(RelocationTargets, ALaterKernelOfTheSetIsNotFound)
{
    expect_fatal({}, {adr_kernel("a", "b"), adr_kernel("b", "b")}, unknown_target_report());
}

TEST(RelocationTargets, AnUnknownNameIsFatalWithoutMessageOrListing)
{
    expect_fatal({}, {adr_kernel("k", "K")}, unknown_target_report());
    expect_fatal({}, {adr_kernel("k", "")}, unknown_target_report());
    expect_fatal({}, {adr_kernel("k", "k ")}, unknown_target_report());
    expect_fatal({}, {adr_kernel("k", "k\0"s)}, unknown_target_report());
}

TEST(RelocationTargets, TheEmptyNameIsAKernelsName)
{
    kernel_registry_map registry;
    finalise_kernels(registry, {adr_kernel("", ""), adr_kernel("k", "")});
    EXPECT_EQ(adr_target(registry, ""), registry.at("").text_ptr);
    EXPECT_EQ(adr_target(registry, "k"), registry.at("").text_ptr);
}

TEST(RelocationTargets, ATargetAtNullIsFatal)
{
    expect_fatal({{"host", {nullptr, 0, nullptr, 0}}}, {adr_kernel("k", "host")}, null_target);
}

TEST(RelocationTargets, AKernelAtNullCanNameNeitherItselfNorItsData)
{
    for (const char* name : {"empty", ".rodata.empty"}) {
        expect_fatal({}, {kernel("empty", {}, {{name, 0, R_AARCH64_ADD_ABS_LO12_NC, 8}})}, null_target);
    }
}

TEST(RelocationTargets, TheAddendDoesNotMakeATargetNull)
{
    kernel_registry_map registry = {{"host", {address(8), 0, nullptr, 0}}};
    finalise_kernels(registry,
                     {kernel("k", {a64::add(0, 0, 0)}, {{"host", 0, R_AARCH64_ADD_ABS_LO12_NC, -8}})});
    EXPECT_EQ(word_at(registry.at("k").text_ptr), a64::add(0, 0, 0));
}

TEST(RelocationTypes, OtherThanTheFourAreFatal)
{
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    for (const std::int32_t type : {R_AARCH64_JUMP26, R_AARCH64_NONE, -1, -274, 273, 276, 278, 281, 284,
                                    283 + 65536, R_AARCH64_ABS64, R_AARCH64_RELATIVE, least, most}) {
        SCOPED_TRACE(type);
        expect_fatal({}, {kernel("k", {a64::bl()}, {{"k", 0, type, 0}})}, unhandled_type);
    }
}

TEST(RelocationTypes, AreCheckedAfterTheTarget)
{
    expect_fatal({}, {kernel("k", {a64::bl()}, {{"unknown", 0, -1, 0}})}, unknown_target_report());
    expect_fatal({}, {kernel("k", {a64::bl()}, {{".rodata.x", 0, -1, 0}})}, wrong_owner);
    expect_fatal({{"null", {nullptr, 0, nullptr, 0}}}, {kernel("k", {a64::bl()}, {{"null", 0, -1, 0}})},
                 null_target);
}

TEST(RelocationTypes, AreCheckedBeforeTheWord)
{
    address_range range(0x10000);
    platform_spy spy;
    spy.place = range.begin();
    expect_fatal({}, {kernel("k", {a64::bl()}, {{"k", -4, -1, 0}})},
                 unhandled_type); // no memory at the place
}

} // namespace
