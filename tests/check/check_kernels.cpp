// The findings of check_kernels: each kind, and cases without a finding.

#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/kernels.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using namespace vorna::wfta;
using namespace support;
using namespace support::a64;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t ADRP = 275;
constexpr std::int32_t ADD = 277;
constexpr std::int32_t BL = 283;

using kernels_t = std::vector<kernel_data>;

/// The findings, one per line: severity ("E" for an error that aborts), kernel, offset, relocation, id.
std::string found(const kernels_t& kernels, const kernel_registry_map& registry = {})
{
    std::string lines;
    for (const kernel_finding& finding : check_kernels(registry, kernels)) {
        const char* const levels[] = {"note", "warning", "error"};
        lines += finding.aborts ? "ABORT" : levels[static_cast<int>(finding.severity)];
        lines += " " + finding.kernel;
        if (finding.offset)
            lines += (*finding.offset < 0 ? "" : "+") + std::to_string(*finding.offset);
        if (finding.relocation)
            lines += " #" + std::to_string(*finding.relocation);
        lines += std::string(" ") + name_of(finding.id) + "\n";
        EXPECT_TRUE(!finding.aborts || finding.severity == finding_severity::error) << lines;
        EXPECT_FALSE(finding.message.empty()) << lines;
        EXPECT_EQ(finding.message.find('\n'), std::string::npos) << finding.message;
    }
    return lines;
}

/// The messages, one per line.
std::string messages(const kernels_t& kernels, const kernel_registry_map& registry = {})
{
    std::string lines;
    for (const kernel_finding& finding : check_kernels(registry, kernels))
        lines += finding.message + "\n";
    return lines;
}

kernel_registry_map registry_of(const std::string& name, std::uint64_t text)
{
    return {{name, {address(text), 32, address(text + 32), 0}}};
}

TEST(KernelCheck, FindsNothingInAGoodSet)
{
    EXPECT_EQ(found({}), "");
    EXPECT_EQ(found({kernel("callee", {adrp(1), add(1, 1, 0), ldr(0, 1), ret()},
                            {{".rodata.callee", 0, ADRP, 8}, {".rodata.callee", 4, ADD, 8}},
                            std::vector<std::uint8_t>(16)),
                     kernel("caller", {bl(), adr(2), bl(), ret()},
                            {{"callee", 0, BL, 0}, {"callee", 4, ADR, 4}, {"caller", 8, BL, 0}})}),
              "");
}

TEST(KernelCheck, FindsNamesThatAreTaken)
{
    EXPECT_EQ(found({kernel("same", {ret()}), kernel("same", {ret()}), kernel("same", {ret()})}),
              "ABORT same duplicate-name\nABORT same duplicate-name\n");
    EXPECT_EQ(found({kernel("same", {ret()})}, registry_of("same", 0x1000)), "ABORT same duplicate-name\n");
    EXPECT_EQ(messages({kernel("one", {ret()}), kernel("same", {ret()}), kernel("same", {ret()})}),
              "a second kernel of this name: the first is kernel 1 of the set\n");
    EXPECT_EQ(messages({kernel("same", {ret()})}, registry_of("same", 0x1000)),
              "a second kernel of this name: the first is in the registry\n");
}

TEST(KernelCheck, FindsTargetsThatDoNotExistOrComeLater)
{
    EXPECT_EQ(found({kernel("caller", {bl(), bl(), ret()}, {{"callee", 0, BL, 0}, {"nobody", 4, BL, 0}}),
                     kernel("callee", {ret()})}),
              "ABORT caller+0 #0 callee-order\nABORT caller+4 #1 unknown-target\n");
    EXPECT_EQ(messages({kernel("caller", {bl(), ret()}, {{"callee", 0, BL, 0}}), kernel("callee", {ret()})}),
              "relocation R_AARCH64_CALL26 against 'callee': the kernel comes later in the set\n");
    EXPECT_EQ(found({kernel("caller", {adr(0), ret()}, {{".rodata", 0, ADR, 0}})}),
              "ABORT caller+0 #0 unknown-target\n")
        << "a name of seven bytes is a kernel's";
    EXPECT_EQ(found({kernel("caller", {bl(), ret()}, {{"callee", 0, BL, 0}}), kernel("callee", {ret()})},
                    registry_of("callee", 0x100000001000)),
              "note caller+0 #0 placement\nABORT callee duplicate-name\n")
        << "the registry's is there first";
}

TEST(KernelCheck, FindsReferencesToConstantsOfOtherKernels)
{
    EXPECT_EQ(found({kernel("other", {ret()}, {}, {1, 2, 3, 4}),
                     kernel("user", {adr(0), adr(1), ret()},
                            {{".rodata.other", 0, ADR, 0}, {".rodata.", 4, ADR, 0}})}),
              "ABORT user+0 #0 foreign-data\nABORT user+4 #1 foreign-data\n");
    EXPECT_EQ(found({kernel("", {adr(1), ret()}, {{".rodata.", 0, ADR, 0}}, {0})}),
              "warning  name-file\nwarning  name-map\n")
        << "the empty kernel's own";
}

TEST(KernelCheck, FindsTargetsAtNull)
{
    EXPECT_EQ(found({kernel("caller", {bl(), ret()}, {{"null", 0, BL, 0}})}, registry_of("null", 0)),
              "ABORT caller+0 #0 null-target\n");
    EXPECT_EQ(found({kernel("empty", {}, {{"empty", 0, BL, 0}, {".rodata.empty", 0, ADR, 0}})}),
              "ABORT empty+0 #0 null-target\nerror empty+0 #0 offset\nABORT empty+0 #1 null-target\n")
        << "a set without a byte gets no mapping";
    EXPECT_EQ(found({kernel("empty", {}, {{"empty", 0, BL, 0}}), kernel("another", {ret()})}),
              "error empty+0 #0 offset\n");
}

TEST(KernelCheck, FindsUnsupportedTypes)
{
    EXPECT_EQ(found({kernel("jumps", {0x14000000, ret()}, {{"jumps", 0, 282, 0}})}),
              "ABORT jumps+0 #0 unhandled-type\n");
    EXPECT_EQ(found({kernel("both", {bl(), ret()}, {{"nobody", 0, 0, 0}})}),
              "ABORT both+0 #0 unknown-target\nABORT both+0 #0 unhandled-type\n")
        << "the name comes before the type";
}

TEST(KernelCheck, FindsFilledFields)
{
    const auto filled = [](word w, std::int32_t type) {
        return found({kernel("one", {w, ret()}, {{"one", 0, type, 0}})}).find("field-filled") !=
               std::string::npos;
    };
    for (unsigned bit = 0; bit < 32; ++bit) {
        const word w = word{1} << bit;
        EXPECT_EQ(filled(adr(0) ^ w, ADR), (0x60ffffe0 >> bit & 1) != 0) << bit;
        EXPECT_EQ(filled(adrp(0) ^ w, ADRP), (0x60ffffe0 >> bit & 1) != 0) << bit;
        EXPECT_EQ(filled(add(0, 0, 0) ^ w, ADD), (0x003ffc00 >> bit & 1) != 0) << bit;
        EXPECT_EQ(filled(bl() ^ w, BL), (0x01ffffff >> bit & 1) != 0) << bit;
    }
    EXPECT_EQ(messages({kernel("one", {0x94000001, ret()}, {{"one", 0, BL, 0}})}),
              "relocation R_AARCH64_CALL26 against 'one': field not zero in 0x94000001\n");
}

TEST(KernelCheck, FindsFieldsFilledByAnEarlierRelocation)
{
    EXPECT_EQ(found({kernel("twice", {nop(), bl(), ret()}, {{"twice", 4, BL, 0}, {"twice", 4, BL, 0}})}),
              "ABORT twice+4 #1 field-filled\n");
    EXPECT_EQ(messages({kernel("twice", {nop(), bl(), ret()}, {{"twice", 4, BL, 0}, {"twice", 4, BL, 0}})}),
              "relocation R_AARCH64_CALL26 against 'twice': field not zero in 0x97ffffff\n");
    EXPECT_EQ(found({kernel("twice", {bl(), ret()}, {{"twice", 0, BL, 0}, {"twice", 0, BL, 0}})}), "")
        << "a field of zero is not seen";
    // At -2^27 only the top bit of the field is set, which the finaliser does not test.
    EXPECT_EQ(
        found({kernel("twice", {bl(), ret()}, {{"twice", 0, BL, -134217728}, {"twice", 0, BL, -134217728}})}),
        "warning twice+0 #0 call-target\nwarning twice+0 #1 call-bit-25\n");
    EXPECT_EQ(found({kernel("twice", {add(0, 0, 0), adrp(0), ret()},
                            {{"twice", 0, ADD, 16}, {"twice", 0, ADD, 16}, {"twice", 4, ADRP, 16}})}),
              "ABORT twice+0 #1 field-filled\n");
    EXPECT_EQ(found({kernel("twice", {bl(), ret()}, {{"far", 0, BL, 0}, {"far", 0, BL, 0}})},
                    registry_of("far", 0x100000001000)),
              "note twice+0 #0 placement\nABORT twice+0 #1 field-filled\n");
}

TEST(KernelCheck, NotesAFieldThatAnUnknownDistanceMayFill)
{
    // An ADRP's distance of one page sets only a bit that is not in a BL's field; a distance of minus one
    // page sets all bits.
    EXPECT_EQ(found({kernel("twice", {bl(), ret()}, {{"far", 0, ADRP, 0}, {"far", 0, BL, 0}})},
                    registry_of("far", 0x100000001000)),
              "note twice+0 #0 placement\nerror twice+0 #0 opcode\nnote twice+0 #1 placement\n"
              "note twice+0 #1 placement\n");
}

TEST(KernelCheck, FindsDistancesOutOfRangeExactly)
{
    const auto adr_to = [](std::int32_t addend) {
        return found({kernel("one", {nop(), adr(0), ret()}, {{"one", 4, ADR, addend}})});
    };
    EXPECT_EQ(adr_to(4 + 0xfffff), "");
    EXPECT_EQ(adr_to(4 + 0x100000), "ABORT one+4 #0 range\n");
    EXPECT_EQ(adr_to(4 - 0x100000), "");
    EXPECT_EQ(adr_to(4 - 0x100001), "ABORT one+4 #0 range\n");
    const auto call_to = [](std::int32_t addend) {
        return found({kernel("one", {nop(), bl(), ret()}, {{"one", 4, BL, addend}})});
    };
    EXPECT_EQ(call_to(4 + 0x7fffffc), "warning one+4 #0 call-target\n");
    EXPECT_EQ(call_to(4 + 0x8000000), "ABORT one+4 #0 range\nwarning one+4 #0 call-target\n");
    EXPECT_EQ(call_to(4 - 0x8000000), "warning one+4 #0 call-target\n");
    EXPECT_EQ(call_to(4 - 0x8000004), "ABORT one+4 #0 range\nwarning one+4 #0 call-target\n");
    EXPECT_EQ(call_to(2), "ABORT one+4 #0 range\nwarning one+4 #0 call-target\n");
    EXPECT_EQ(
        messages({kernel("one", {nop(), adr(0), ret()}, {{"one", 4, ADR, 0x100004}})}),
        "relocation R_AARCH64_ADR_PREL_LO21 against 'one'+0x100004 out of range: 1048576 is not in [-1048576, 1048575]\n");
}

TEST(KernelCheck, PlacesKernelsAsTheFinaliserDoes)
{
    // Code on 32-byte boundaries, then all data, packed: 1 MiB of code between a kernel and its data.
    const auto with_filler = [](std::size_t words) {
        kernel_data filler = kernel("filler", std::vector<std::uint32_t>(words, ret()), {}, {1, 2, 3});
        return found(
            {kernel("one", {adr(0), ret()}, {{".rodata.one", 0, ADR, 7}}, std::vector<std::uint8_t>(8)),
             std::move(filler)});
    };
    EXPECT_EQ(with_filler((0x100000 - 64) / 4), "");
    EXPECT_EQ(with_filler((0x100000 - 64) / 4 + 1), "ABORT one+0 #0 range\n") << "the text grows by 32 bytes";
    // A kernel's data follows that of the preceding kernel.
    const auto with_data_before = [](std::size_t bytes) {
        return found({kernel("before", {ret()}, {}, std::vector<std::uint8_t>(bytes)),
                      kernel("one", {adr(0), ret()}, {{".rodata.one", 0, ADR, 0}}, {1})});
    };
    EXPECT_EQ(with_data_before(0xfffff - 32), "");
    EXPECT_EQ(with_data_before(0x100000 - 32), "ABORT one+0 #0 range\n");
}

TEST(KernelCheck, NotesWhatDependsOnPlacement)
{
    const kernel_registry_map registry = registry_of("far", 0x100000001000);
    EXPECT_EQ(
        found({kernel("one", {bl(), adr(0), adrp(1), add(1, 1, 0), ret()},
                      {{"far", 0, BL, 0}, {"far", 4, ADR, 0}, {"far", 8, ADRP, 0}, {"far", 12, ADD, 0}})},
              registry),
        "note one+0 #0 placement\nnote one+4 #1 placement\nnote one+8 #2 placement\n");
    EXPECT_EQ(
        messages({kernel("one", {bl(), ret()}, {{"far", 0, BL, 0}})}, registry),
        "relocation R_AARCH64_CALL26 against 'far', of an earlier call: whether it is in range depends on where the system maps this set\n");
    EXPECT_EQ(found({kernel("one", {bl(), ret()}, {{"far", 0, BL, 2}})}, registry),
              "ABORT one+0 #0 range\nwarning one+0 #0 call-target\n")
        << "no multiple of 4 wherever it is placed";
}

TEST(KernelCheck, FindsOffsetsOutsideTheCode)
{
    const auto at = [](std::int32_t offset) {
        return found({kernel("one", {ret(), ret()}, {{".rodata.one", offset, ADR, 0}}, {1})});
    };
    EXPECT_EQ(at(8), "error one+8 #0 offset\n");
    EXPECT_EQ(at(5), "error one+5 #0 offset\n") << "the word reaches beyond the text";
    EXPECT_EQ(at(-4), "error one-4 #0 offset\n");
    EXPECT_EQ(at(0x7fffffff), "error one+2147483647 #0 offset\nABORT one+2147483647 #0 range\n");
    EXPECT_EQ(at(-0x7fffffff - 1), "error one-2147483648 #0 offset\nABORT one-2147483648 #0 range\n");
    EXPECT_EQ(found({kernel_data{nullptr, "three", {1, 2, 3}, {}, {{"three", 0, ADR, 0}}}}),
              "warning three+0 text-length\nerror three+0 #0 offset\n");
}

TEST(KernelCheck, FindsOffsetsBetweenInstructions)
{
    EXPECT_EQ(found({kernel("one", {0, 0, ret()}, {{"one", 2, ADD, 0}})}),
              "error one+2 #0 unaligned-offset\n");
    EXPECT_EQ(found({kernel("one", {0x94000000, 0x94000000, ret()}, {{"one", 1, BL, 1}})}),
              "error one+1 #0 unaligned-offset\nABORT one+1 #0 field-filled\nwarning one+1 #0 call-target\n");
}

TEST(KernelCheck, FindsRelocationsOfAnotherInstruction)
{
    const auto opcode = [](const std::string& text, std::int32_t type) {
        std::string lines;
        for (const kernel_finding& finding :
             check_kernels({}, {kernel("one", {assemble({text})[0], ret()}, {{"one", 0, type, 0}})})) {
            if (finding.id == finding_id::opcode)
                lines += finding.message;
        }
        return lines;
    };
    EXPECT_EQ(opcode("adr x1, #0", ADR), "");
    EXPECT_EQ(opcode("adrp x1, #0", ADRP), "");
    EXPECT_EQ(opcode("add x1, x2, #0", ADD), "");
    EXPECT_EQ(opcode("add w1, w2, #0", ADD), "");
    EXPECT_EQ(opcode("bl #0", BL), "");
    EXPECT_EQ(
        opcode("adrp x1, #0", ADR),
        "relocation R_AARCH64_ADR_PREL_LO21 against 'one' is for an ADR, but the instruction is an ADRP (0x90000001)");
    EXPECT_EQ(
        opcode("adr x1, #0", ADRP),
        "relocation R_AARCH64_ADR_PREL_PG_HI21 against 'one' is for an ADRP, but the instruction is an ADR (0x10000001)");
    EXPECT_EQ(
        opcode("add x1, x2, #0, lsl #12", ADD),
        "relocation R_AARCH64_ADD_ABS_LO12_NC against 'one' is for an ADD, but the instruction is 0x91400041");
    EXPECT_EQ(
        opcode("adds x1, x2, #0", ADD),
        "relocation R_AARCH64_ADD_ABS_LO12_NC against 'one' is for an ADD, but the instruction is 0xb1000041");
    EXPECT_EQ(
        opcode("sub x1, x2, #0", ADD),
        "relocation R_AARCH64_ADD_ABS_LO12_NC against 'one' is for an ADD, but the instruction is 0xd1000041");
    EXPECT_EQ(
        opcode("ldr x1, [x2]", ADD),
        "relocation R_AARCH64_ADD_ABS_LO12_NC against 'one' is for an ADD, but the instruction is 0xf9400041");
    EXPECT_EQ(opcode("b #0", BL),
              "relocation R_AARCH64_CALL26 against 'one' is for a BL, but the instruction is 0x14000000");
}

TEST(KernelCheck, FindsHalvesOfPairs)
{
    const auto pairs = [](const std::vector<std::string>& text, std::vector<tessjit::reloc_info> relocs) {
        return found({kernel("one", assemble(text), std::move(relocs), std::vector<std::uint8_t>(64))});
    };
    const std::string data = ".rodata.one";
    EXPECT_EQ(pairs({"adrp x1, #0", "nop", "ret"}, {{data, 0, ADRP, 0}}), "error one+0 #0 pair\n");
    EXPECT_EQ(pairs({"add x1, x1, #0", "ret"}, {{data, 0, ADD, 0}}), "warning one+0 #0 pair\n");
    EXPECT_EQ(pairs({"adrp x1, #0", "add x1, x1, #0", "ret"}, {{data, 0, ADRP, 8}, {data, 4, ADD, 0}}),
              "error one+0 #0 pair\nwarning one+4 #1 pair\n")
        << "other addends";
    EXPECT_EQ(pairs({"adrp x1, #0", "add x1, x1, #0", "ret"}, {{data, 0, ADRP, 0}, {"one", 4, ADD, 0}}),
              "error one+0 #0 pair\nwarning one+4 #1 pair\n")
        << "other targets";
    EXPECT_EQ(pairs({"adrp x1, #0", "add x2, x1, #0", "add x3, x1, #0", "ret"},
                    {{data, 0, ADRP, 0}, {data, 4, ADD, 0}, {data, 8, ADD, 0}}),
              "")
        << "one page for two";
    // No relocation completes a load, whatever its address.
    EXPECT_EQ(pairs({"adrp x1, #0", "ldr d0, [x1, #24]", "ret"}, {{data, 0, ADRP, 0}}),
              "error one+0 #0 pair\n");
    EXPECT_EQ(pairs({"adrp x1, #0", "ldr d0, [x1, #24]", "cbnz x0, #-4", "ret"}, {{data, 0, ADRP, 0}}),
              "error one+0 #0 pair\n");
    EXPECT_EQ(pairs({"adrp x1, #0", "ldr d0, [x1, x2]", "ret"}, {{data, 0, ADRP, 0}}),
              "error one+0 #0 pair\n");
    EXPECT_EQ(pairs({"adrp x1, #0", "add x2, x1, #0", "ldr d1, [x1]", "ret"},
                    {{data, 0, ADRP, 0}, {data, 4, ADD, 0}}),
              "")
        << "an ADD that another load uses";
    // An error in one half is not reported twice.
    EXPECT_EQ(pairs({"adrp x1, #0", "add x1, x1, #0", "ret"}, {{data, 0, ADRP, 0}, {"nobody", 4, ADD, 0}}),
              "ABORT one+4 #1 unknown-target\n");
    EXPECT_EQ(pairs({"adrp x1, #0", "add x1, x1, #0", "ret"}, {{data, 0, ADRP, 0}, {data, 4, 278, 0}}),
              "ABORT one+4 #1 unhandled-type\n");
    EXPECT_EQ(pairs({"adrp x1, #0", "add x1, x1, #0", "ldr x0, [x1]", "ret"},
                    {{data, 0, ADRP, 0}, {"one", 8, ADD, 0}}),
              "error one+8 #1 opcode\n");
}

TEST(KernelCheck, FindsCallsOfWhatIsNotAKernel)
{
    EXPECT_EQ(found({kernel("one", {bl(), ret()}, {{".rodata.one", 0, BL, 0}}, {1, 2, 3, 4})}),
              "error one+0 #0 call-target\n");
    EXPECT_EQ(found({kernel("one", {bl(), ret()}, {{"one", 0, BL, 4}})}), "warning one+0 #0 call-target\n");
    EXPECT_EQ(found({kernel("first", {ret()}), kernel("second", {ret()}),
                     kernel("one", {bl(), ret()}, {{"first", 0, BL, 32}})}),
              "")
        << "where the second kernel begins";
    EXPECT_EQ(found({kernel("one", {adr(0), ret()}, {{"one", 0, ADR, 4}})}), "") << "no call";
}

TEST(KernelCheck, FindsCallsWhoseUntestedTopBitIsSet)
{
    // ORed to a positive distance, the bit subtracts 128 MiB; in a negative one it is already set.
    const auto call = [](const std::string& target, const kernel_registry_map& registry = {}) {
        const kernels_t kernels = {kernel("before", {ret()}),
                                   kernel("one", {nop(), 0x96000000, ret()}, {{target, 4, BL, 0}})};
        return found(kernels, registry) + messages(kernels, registry);
    };
    EXPECT_EQ(
        call("before"),
        "warning one+4 #0 call-bit-25\n"
        "relocation R_AARCH64_CALL26 against 'before': the top bit of the BL's field is set (0x96000000), which the finaliser does not test: the call "
        "is right only because its target lies before it\n");
    EXPECT_EQ(
        call("far", registry_of("far", 0x100000001000)),
        "note one+4 #0 placement\nwarning one+4 #0 call-bit-25\n"
        "relocation R_AARCH64_CALL26 against 'far', of an earlier call: whether it is in range depends on where the system maps this set\n"
        "relocation R_AARCH64_CALL26 against 'far': the top bit of the BL's field is set (0x96000000), which the finaliser does not test: the call "
        "may lead elsewhere\n");
    const kernels_t ahead = {kernel("one", {0x96000000, ret()}, {{"one", 0, BL, 4}})};
    EXPECT_EQ(found(ahead), "error one+0 #0 call-bit-25\nwarning one+0 #0 call-target\n");
    EXPECT_EQ(check_kernels({}, ahead)[0].message,
              "relocation R_AARCH64_CALL26 against 'one'+0x4: the call leads to no kernel, because "
              "the top bit of the field was set (0x96000000)");
    EXPECT_EQ(check_kernels({}, ahead)[0].help, "generate the BL with its field zero: 0x94000000");
    EXPECT_EQ(found({kernel("one", {0x96000000, ret()}, {{"one", 0, BL, 0}})}),
              "error one+0 #0 call-bit-25\n");
    EXPECT_EQ(found({kernel("one", {0x92000000, ret()}, {{"one", 0, BL, 0}})}), "error one+0 #0 opcode\n")
        << "the bit of another instruction";
    EXPECT_EQ(found({kernel("one", {0x96000001, ret()}, {{"one", 0, BL, 0}})}),
              "ABORT one+0 #0 field-filled\n");
}

TEST(KernelCheck, FindsCodeThatIsNotWholeWords)
{
    EXPECT_EQ(found({kernel_data{nullptr, "one", std::vector<std::uint8_t>(6), {}, {}}}),
              "warning one+4 text-length\n");
    EXPECT_EQ(found({kernel("one", {})}), "");
}

TEST(KernelCheck, DoesNotDecodeInstructions)
{
    EXPECT_EQ(
        found({kernel("one", assemble({"adr x1, #0", "ldaxr x0, [x1]", "ldr x0, [x1, #64]", "str x0, [x1]"}),
                      {{".rodata.one", 0, ADR, 4}}, std::vector<std::uint8_t>(16))}),
        "")
        << "data-alignment, outside-constants, writes-constants, falls-through";
}

TEST(KernelCheck, MergesFindingsWithOneCause)
{
    std::vector<std::uint32_t> words(20, adr(0));
    words.push_back(ret());
    std::vector<tessjit::reloc_info> relocs;
    for (std::int32_t i = 0; i < 20; ++i)
        relocs.push_back({".rodata.one", 4 * i, ADR, 0x200000});
    const auto findings = check_kernels({}, {kernel("one", words, relocs, {1})});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].relocation, 0U);
    EXPECT_EQ(
        findings[0].message,
        "relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.one'+0x200000 out of range: 2097248 is not in [-1048576, 1048575]; also at "
        "+0x4, +0x8, +0xc, +0x10, +0x14, +0x18, +0x1c, +0x20 and 11 more");
    EXPECT_EQ(findings[0].help, "use an addend within the target");
    EXPECT_EQ(found({kernel("one", words, relocs, {1}), kernel("two", {bl(), ret()}, {{"one", 0, BL, 0}})}),
              "ABORT one+0 #0 range\n");
}

TEST(KernelCheck, BoundsTheSizeOfItsFindings)
{
    // A small relocation in a file may name a target of 64 KiB, and its kernel's name may be as long.
    const std::string name(65536, 'n');
    std::vector<tessjit::reloc_info> relocs;
    for (int i = 0; i < 5000; ++i)
        relocs.push_back({name + std::to_string(i), 0, BL, 0});
    const auto findings = check_kernels({}, {kernel(name, {bl(), ret()}, relocs)});
    EXPECT_LE(findings.size(), 1010U);
    for (const kernel_finding& finding : findings) {
        ASSERT_LT(finding.message.size(), 600U);
        ASSERT_LT(finding.note.size(), 600U);
        ASSERT_LT(finding.help.size(), 1200U);
    }
}

TEST(KernelCheck, ChangesNothing)
{
    const kernels_t kernels = {kernel("one", {nop(), bl(), ret()}, {{"one", 4, BL, 0}})};
    const kernel_registry_map registry = registry_of("far", 0x1000);
    check_kernels(registry, kernels);
    EXPECT_EQ(kernels[0].text, code({nop(), bl(), ret()}));
    EXPECT_EQ(registry.size(), 1U);
}

TEST(KernelCheck, ChecksLargeSetsInLinearTime)
{
    kernels_t kernels;
    kernels.reserve(50'000);
    for (int i = 0; i < 50'000; ++i) {
        const std::string name = "wfta_" + std::to_string(i);
        const std::string callee = "wfta_" + std::to_string(i / 2);
        kernels.push_back(
            kernel(name, {adrp(1), add(1, 1, 0), ldr(0, 1), bl(), ret()},
                   {{".rodata." + name, 0, ADRP, 0}, {".rodata." + name, 4, ADD, 0}, {callee, 12, BL, 0}},
                   std::vector<std::uint8_t>(8)));
    }
    EXPECT_EQ(found(kernels), "");
    // As many findings.
    for (kernel_data& k : kernels)
        k.relocs[2].name = "nobody";
    EXPECT_EQ(check_kernels({}, kernels).size(), kernels.size());
}

} // namespace
