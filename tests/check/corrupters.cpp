// One thing at a time is made wrong in a set without findings, and found: that and nothing else, with its
// exact text. What needs instructions decoded is in tests/workbench/cli/cases/corrupters.t.

#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/kernels.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace vorna::wfta;
using namespace support;
using namespace support::a64;

constexpr std::int32_t ADR = 274;
constexpr std::int32_t ADRP = 275;
constexpr std::int32_t ADD = 277;
constexpr std::int32_t BL = 283;

struct host_set {
    kernel_registry_map registry;
    std::vector<kernel_data> kernels;

    kernel_data& callee() { return kernels[0]; }
    kernel_data& caller() { return kernels[1]; }
    kernel_data& alone() { return kernels[2]; }
};

/// The relocations of the caller, by what they are for.
enum : std::size_t { call, page, low, near_code };

host_set good_set()
{
    return {{{"earlier", {address(0x100000000000), 32, address(0x100000000020), 0}}},
            {kernel("callee", {ret()}),
             kernel("caller", {push(29, 30), bl(), adrp(1), add(1, 1, 0), adr(2), pop(29, 30), ret()},
                    {{"callee", 4, BL, 0},
                     {".rodata.caller", 8, ADRP, 0},
                     {".rodata.caller", 12, ADD, 0},
                     {"caller", 16, ADR, 8}},
                    std::vector<std::uint8_t>(16)),
             kernel("alone", {ret()}, {}, std::vector<std::uint8_t>(16))}};
}

void set_instruction(kernel_data& kernel, std::size_t offset, std::uint32_t word)
{
    const std::vector<std::uint8_t> bytes = code({word});
    std::copy(bytes.begin(), bytes.end(), kernel.text.begin() + static_cast<std::ptrdiff_t>(offset));
}

struct corrupter {
    finding_id id;
    const char* wrong; ///< what is done wrong
    void (*corrupt)(host_set& set);
    const char* found; ///< a line for each finding: "severity #kernel+offset: message | note: | help: [id]"
};

const corrupter corrupters[] = {
    {finding_id::duplicate_name, "two kernels of a set get one name",
     [](host_set& set) { set.alone().name = "caller"; },
     "error #2: a second kernel of this name: the first is kernel 1 of the set | help: "
     "rename one of the two kernels [duplicate-name]\n"},
    {finding_id::duplicate_name, "a kernel gets the name of one in the registry",
     [](host_set& set) { set.alone().name = "earlier"; },
     "error #2: a second kernel of this name: the first is in the registry | help: rename "
     "one of the two kernels [duplicate-name]\n"},

    {finding_id::name_file, "a name gets a slash", [](host_set& set) { set.alone().name = "al/one"; },
     "warning #2: the name contains a \"/\": its files go into another directory, if that "
     "exists | help: choose a name that is a valid file name [name-file]\n"},
    {finding_id::name_file, "a name is made longer than a file's can be",
     [](host_set& set) { set.alone().name = std::string(256, 'k'); },
     "warning #2: the name has 256 bytes, the limit for a file name is 255 | help: choose "
     "a name that is a valid file name [name-file]\n"},
    {finding_id::name_file, "a name is made longer than a file's can be, with .hash",
     [](host_set& set) { set.alone().name = std::string(251, 'k'); },
     "warning #2: the name has 251 bytes, with \".hash\" more than 255, the limit for a "
     "file name | help: choose a name that is a valid file name [name-file]\n"},
    {finding_id::name_file, "a name is left empty", [](host_set& set) { set.alone().name.clear(); },
     "warning #2: the name is empty: no dump can be written | help: choose a name that is "
     "a valid file name [name-file]\n"
     "warning #2: perf ignores names of less than three bytes | help: choose a longer "
     "name [name-map]\n"},
    {finding_id::name_file, "a kernel is named like a directory",
     [](host_set& set) { set.alone().name = ".."; },
     "warning #2: the name is that of a directory: no dump can be written | help: choose "
     "a name that is a valid file name [name-file]\n"
     "warning #2: perf ignores names of less than three bytes | help: choose a longer "
     "name [name-map]\n"},
    {finding_id::name_file, "a name gets a NUL", [](host_set& set) { set.alone().name = "al\0one"s; },
     "warning #2: the name contains a NUL: the names of its files end there | help: "
     "choose a name that is a valid file name [name-file]\n"
     "warning #2: the name contains a NUL, which ends it in the perf map | help: choose "
     "another name [name-map]\n"},
    {finding_id::name_map, "a name gets a newline", [](host_set& set) { set.alone().name = "al\none"; },
     "warning #2: the name contains a newline, which ends the line in the perf map | "
     "help: choose another name [name-map]\n"},
    {finding_id::name_map, "a name is shortened to two letters",
     [](host_set& set) { set.alone().name = "al"; },
     "warning #2: perf ignores names of less than three bytes | help: choose a longer "
     "name [name-map]\n"},
    {finding_id::name_collision, "a kernel is named like the hash file of another",
     [](host_set& set) { set.alone().name = "caller.hash"; },
     "warning #2: its dump is the hash file of 'caller' | help: rename one of the two "
     "kernels [name-collision]\n"},
    {finding_id::name_collision, "a kernel is named so that its hash file is the dump of another",
     [](host_set& set) {
         set.callee().name = "alone.hash";
         set.caller().relocs[call].name = "alone.hash";
     },
     "warning #2: its hash file is the dump of 'alone.hash' | help: rename one of the two "
     "kernels [name-collision]\n"},
    {finding_id::name_collision, "a name differs from another in case only",
     [](host_set& set) { set.alone().name = "Caller"; },
     "warning #2: the name differs from 'caller' in case only | help: rename one of the "
     "two kernels [name-collision]\n"},

    {finding_id::text_length, "two bytes are appended to the code",
     [](host_set& set) { set.alone().text.resize(6); },
     "warning #2+4: the code has 6 bytes, not a multiple of 4 | help: end the code with a "
     "whole instruction [text-length]\n"},

    {finding_id::foreign_data, "the constants of another kernel are named",
     [](host_set& set) {
         set.caller().relocs = {{".rodata.alone", 16, ADR, 0}};
     },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.alone': constants "
     "of another kernel | note: a kernel can address only its own constants | help: give "
     "'caller' a copy of them, or let 'alone' load them; if its own are meant, use "
     "{\".rodata.caller\", 16, 274, 0} [foreign-data]\n"},
    {finding_id::foreign_data, "the own constants get the name of no kernel",
     [](host_set& set) {
         set.caller().relocs = {{".rodata.before_it_was_renamed", 16, ADR, 0}};
     },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against "
     "'.rodata.before_it_was_renamed': constants of another kernel | note: there is no "
     "kernel 'before_it_was_renamed': 'caller' may have been renamed | help: use "
     "{\".rodata.caller\", 16, 274, 0} [foreign-data]\n"},
    {finding_id::foreign_data, "the name of the own constants is misspelt",
     [](host_set& set) {
         set.caller().relocs = {{".rodata.callr", 16, ADR, 0}};
     },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.callr': constants "
     "of another kernel | note: the name may be misspelt | help: use {\".rodata.caller\", "
     "16, 274, 0} [foreign-data]\n"},

    {finding_id::unknown_target, "the name of the callee is misspelt",
     [](host_set& set) { set.caller().relocs[call].name = "calle"; },
     "error #1+4: relocation R_AARCH64_CALL26 against 'calle': target not found | note: "
     "the name may be misspelt: there is 'callee' | help: use {\"callee\", 4, 283, 0}, or "
     "place 'calle' before 'caller' [unknown-target]\n"},
    {finding_id::unknown_target, "the callee is left out",
     [](host_set& set) { set.kernels.erase(set.kernels.begin()); },
     "error #0+4: relocation R_AARCH64_CALL26 against 'callee': target not found | help: "
     "place 'callee' before 'caller', with the same registry [unknown-target]\n"},
    {finding_id::unknown_target, "the constants are named .rodata alone",
     [](host_set& set) {
         set.caller().relocs = {{".rodata", 16, ADR, 0}};
     },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata': target not found "
     "| note: constants are named .rodata. and the kernel's name | help: use "
     "{\".rodata.caller\", 16, 274, 0} [unknown-target]\n"},
    {finding_id::callee_order, "the callee is placed after its caller",
     [](host_set& set) { std::swap(set.callee(), set.caller()); },
     "error #0+4: relocation R_AARCH64_CALL26 against 'callee': the kernel comes later in "
     "the set | help: place 'callee' before 'caller' [callee-order]\n"},
    {finding_id::null_target, "the registry gets a null address",
     [](host_set& set) {
         set.registry["earlier"].text_ptr = nullptr;
         set.caller().relocs[call].name = "earlier";
     },
     "error #1+4: relocation R_AARCH64_CALL26 against 'earlier': the target's address is "
     "null | note: the target's set had neither code nor constants, its mapping failed, "
     "or the host registered null | help: leave empty kernels without relocations, and no "
     "null in the registry [null-target]\n"},

    {finding_id::unhandled_type, "a type is given that the ABI does not define",
     [](host_set& set) {
         set.alone().relocs = {{"alone", 0, 9999, 0}};
     },
     "error #2+0: relocation type 9999 against 'alone': type not supported | help: use "
     "274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL [unhandled-type]\n"},
    {finding_id::unhandled_type, "a type is given that is not of the instruction",
     [](host_set& set) { set.caller().relocs[call].type = R_AARCH64_JUMP26; },
     "error #1+4: relocation R_AARCH64_JUMP26 (type 282) against 'callee': type not "
     "supported | note: the relocation has type 282, the instruction is a BL | help: use "
     "{\"callee\", 4, 283, 0} [unhandled-type]\n"},
    {finding_id::unhandled_type, "a page is asked for without a check of its range",
     [](host_set& set) {
         set.alone().relocs = {{"alone", 0, R_AARCH64_ADR_PREL_PG_HI21_NC, 0}};
     },
     "error #2+0: relocation R_AARCH64_ADR_PREL_PG_HI21_NC (type 276) against 'alone': "
     "type not supported | help: use its checked form, 275 [unhandled-type]\n"},

    {finding_id::offset, "an offset is moved past the end of the code",
     [](host_set& set) { set.caller().relocs[call].offset = 28; },
     "error #1+28: relocation R_AARCH64_CALL26 against 'callee': offset outside the code, "
     "which has 28 bytes | help: give the relocation the offset of the BL that it is for "
     "[offset]\n"},
    {finding_id::offset,
     "a kernel without instructions to fill gets a relocation of an unknown type past its "
     "end",
     [](host_set& set) {
         set.alone().relocs = {{"alone", 4, 9999, 0}};
     },
     "error #2+4: relocation type 9999 against 'alone': type not supported | help: use "
     "274 for ADR, 275 for ADRP, 277 for ADD, 283 for BL [unhandled-type]\n"
     "error #2+4: relocation type 9999 against 'alone': offset outside the code, which "
     "has 4 bytes | help: give the relocation the offset of an instruction of this kernel "
     "[offset]\n"},
    {finding_id::offset, "a relocation is left in a kernel without code",
     [](host_set& set) {
         set.alone().text.clear();
         set.alone().relocs = {{"callee", 0, BL, 0}};
     },
     "error #2+0: relocation R_AARCH64_CALL26 against 'callee': offset outside the code, "
     "which has 0 bytes | help: give the relocation the offset of the BL that it is for "
     "[offset]\n"},
    {finding_id::unaligned_offset, "an offset is moved by two bytes, to a field that is zero",
     [](host_set& set) {
         set.alone().text = code({0, 0, ret()});
         set.alone().relocs = {{"alone", 2, ADR, 0}};
     },
     "error #2+2: relocation R_AARCH64_ADR_PREL_LO21 against 'alone': offset not a "
     "multiple of 4 | help: give the relocation the offset of the ADR that it is for "
     "[unaligned-offset]\n"},

    {finding_id::field_filled, "a distance is encoded in the BL",
     [](host_set& set) { set_instruction(set.caller(), 4, bl() | 5); },
     "error #1+4: relocation R_AARCH64_CALL26 against 'callee': field not zero in "
     "0x94000005 | note: the generator has encoded a value in the field | help: generate "
     "the BL with its field zero: 0x94000000 [field-filled]\n"},
    {finding_id::field_filled, "a relocation is given twice",
     [](host_set& set) { set.caller().relocs.push_back(set.caller().relocs[near_code]); },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against 'caller'+0x8: field not "
     "zero in 0x10ffffc2 | note: relocation 4 has filled it: two relocations for one "
     "instruction | help: remove one of the relocations 4 and 5 [field-filled]\n"},
    {finding_id::field_filled, "a second relocation of a far kernel is given for one BL",
     [](host_set& set) {
         set.caller().relocs[call].name = "earlier";
         set.caller().relocs.push_back(set.caller().relocs[call]);
     },
     "note #1+4: relocation R_AARCH64_CALL26 against 'earlier', of an earlier call: "
     "whether it is in range depends on where the system maps this set | help: finalise "
     "both in one set, where the distance is certain [placement]\n"
     "error #1+4: relocation R_AARCH64_CALL26 against 'earlier': field not zero | note: "
     "relocation 1 has filled it: two relocations for one instruction | help: remove one "
     "of the relocations 1 and 5 [field-filled]\n"},
    {finding_id::field_filled, "an offset is moved by one byte",
     [](host_set& set) { set.caller().relocs[near_code].offset = 17; },
     "error #1+17: relocation R_AARCH64_ADR_PREL_LO21 against 'caller'+0x8: offset not a "
     "multiple of 4 | note: the ADR at +0x10 has no relocation | help: use {\"caller\", "
     "16, 274, 8} [unaligned-offset]\n"
     "error #1+17: relocation R_AARCH64_ADR_PREL_LO21 against 'caller'+0x8: field not "
     "zero in 0xfd100000 | note: the offset 17 is not that of an instruction | help: give "
     "the relocation the offset of the ADR that it is for [field-filled]\n"},
    {finding_id::field_filled, "an offset is moved to another instruction",
     [](host_set& set) { set.caller().relocs[call].offset = 20; },
     "error #1+20: relocation R_AARCH64_CALL26 against 'callee': field not zero in "
     "0xa8c17bfd | note: the BL at +0x4 has no relocation | help: use {\"callee\", 4, "
     "283, 0} [field-filled]\n"
     "error #1+20: relocation R_AARCH64_CALL26 against 'callee' is for a BL, but the "
     "instruction is 0xa8c17bfd [opcode]\n"},
    {finding_id::call_bit_25, "the top bit of the BL's field is set",
     [](host_set& set) { set_instruction(set.caller(), 4, bl() | 1U << 25); },
     "warning #1+4: relocation R_AARCH64_CALL26 against 'callee': the top bit of the BL's "
     "field is set (0x96000000), which the finaliser does not test: the call is right "
     "only because its target lies before it | help: generate the BL with its field zero: "
     "0x94000000 [call-bit-25]\n"},
    {finding_id::call_bit_25, "the top bit of the field is set in a BL to what lies after it",
     [](host_set& set) {
         set_instruction(set.caller(), 4, bl() | 1U << 25);
         set.caller().relocs[call] = {"caller", 4, BL, 24};
     },
     "error #1+4: relocation R_AARCH64_CALL26 against 'caller'+0x18: the call leads to no "
     "kernel, because the top bit of the field was set (0x96000000) | help: generate the "
     "BL with its field zero: 0x94000000 [call-bit-25]\n"
     "warning #1+4: relocation R_AARCH64_CALL26 against 'caller'+0x18: a call to where no "
     "kernel begins | help: call it with addend 0 [call-target]\n"},
    {finding_id::call_bit_25, "the top bit of the field is set in a BL of a far kernel",
     [](host_set& set) {
         set_instruction(set.caller(), 4, bl() | 1U << 25);
         set.caller().relocs[call].name = "earlier";
     },
     "note #1+4: relocation R_AARCH64_CALL26 against 'earlier', of an earlier call: "
     "whether it is in range depends on where the system maps this set | help: finalise "
     "both in one set, where the distance is certain [placement]\n"
     "warning #1+4: relocation R_AARCH64_CALL26 against 'earlier': the top bit of the "
     "BL's field is set (0x96000000), which the finaliser does not test: the call may "
     "lead elsewhere | help: generate the BL with its field zero: 0x94000000 "
     "[call-bit-25]\n"},

    {finding_id::range, "the constants are moved 1 MiB away from their ADR",
     [](host_set& set) {
         set.caller().relocs[near_code] = {".rodata.caller", 16, ADR, 0};
         set.alone().text.resize(0x100000);
     },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.caller' out of "
     "range: 1048592 is not in [-1048576, 1048575] | note: constants come after the code "
     "of the whole set | help: use ADRP (275) and ADD (277): ADR is for the kernel's own "
     "code [range]\n"},
    {finding_id::range, "an addend is made as large as the range",
     [](host_set& set) { set.caller().relocs[near_code].addend = 0x100010; },
     "error #1+16: relocation R_AARCH64_ADR_PREL_LO21 against 'caller'+0x100010 out of "
     "range: 1048576 is not in [-1048576, 1048575] | note: the addend 1048592 leads far "
     "away from 'caller' | help: use an addend within the target [range]\n"},
    {finding_id::range, "a call gets the addend 2",
     [](host_set& set) { set.caller().relocs[call].addend = 2; },
     "error #1+4: relocation R_AARCH64_CALL26 against 'callee'+0x2 misaligned: -34 is not "
     "a multiple of 4 | note: the addend 2 leads between two instructions of 'callee' | "
     "help: call the kernel's first instruction: addend 0 [range]\n"
     "warning #1+4: relocation R_AARCH64_CALL26 against 'callee'+0x2: a call to where no "
     "kernel begins | help: call it with addend 0 [call-target]\n"},
    {finding_id::range, "constants are called, two bytes from their begin",
     [](host_set& set) {
         set.caller().relocs[call] = {".rodata.caller", 4, BL, 2};
     },
     "error #1+4: relocation R_AARCH64_CALL26 against '.rodata.caller'+0x2 misaligned: 62 "
     "is not a multiple of 4 | note: a BL to constants | help: name a kernel as the "
     "target of a BL; address constants with ADRP and ADD [range]\n"
     "error #1+4: relocation R_AARCH64_CALL26 against '.rodata.caller'+0x2: a call of "
     "constants | help: name the kernel that is to be called [call-target]\n"},
    {finding_id::range, "the registry gets an address that is not a multiple of 4",
     [](host_set& set) {
         set.registry["earlier"].text_ptr = address(0x100000000002);
         set.caller().relocs[call].name = "earlier";
     },
     "error #1+4: relocation R_AARCH64_CALL26 against 'earlier' misaligned: -34 is not a "
     "multiple of 4 | help: give the relocation the offset of the BL, and addend 0 "
     "[range]\n"},
    {finding_id::placement, "a kernel of an earlier call is called",
     [](host_set& set) { set.caller().relocs[call].name = "earlier"; },
     "note #1+4: relocation R_AARCH64_CALL26 against 'earlier', of an earlier call: "
     "whether it is in range depends on where the system maps this set | help: finalise "
     "both in one set, where the distance is certain [placement]\n"},
    {finding_id::placement, "a BL gets relocations of two types, the first against a far kernel",
     [](host_set& set) {
         set.caller().relocs[call] = {"earlier", 4, ADRP, 0};
         set.caller().relocs.push_back({"callee", 4, BL, 0});
     },
     "note #1+4: relocation R_AARCH64_ADR_PREL_PG_HI21 against 'earlier', of an earlier "
     "call: whether it is in range depends on where the system maps this set | help: "
     "finalise both in one set, where the distance is certain [placement]\n"
     "error #1+4: relocation R_AARCH64_ADR_PREL_PG_HI21 against 'earlier' is for an ADRP, "
     "but the instruction is a BL (0x94000000) | help: give the relocation the offset of "
     "the ADRP that it is for [opcode]\n"
     "note #1+4: relocation R_AARCH64_CALL26 against 'callee': whether an earlier "
     "relocation fills the field depends on where the system maps this set | help: remove "
     "one of the two relocations [placement]\n"},

    {finding_id::opcode, "the type of an ADRP is given for an ADR",
     [](host_set& set) { set.caller().relocs[near_code].type = ADRP; },
     "error #1+16: relocation R_AARCH64_ADR_PREL_PG_HI21 against 'caller'+0x8 is for an "
     "ADRP, but the instruction is an ADR (0x10000002) | note: the relocation is for an "
     "ADRP, the instruction is an ADR | help: use {\"caller\", 16, 274, 8} [opcode]\n"},
    {finding_id::opcode, "the BL is overwritten by zeros",
     [](host_set& set) { set_instruction(set.caller(), 4, 0); },
     "error #1+4: relocation R_AARCH64_CALL26 against 'callee' is for a BL, but the "
     "instruction is 0x00000000 | help: give the relocation the offset of the BL that it "
     "is for [opcode]\n"},
    {finding_id::opcode, "the offsets of two relocations are exchanged",
     [](host_set& set) {
         std::swap(set.caller().relocs[call].offset, set.caller().relocs[near_code].offset);
     },
     "error #1+16: relocation R_AARCH64_CALL26 against 'callee': field not zero in "
     "0x10000002 | note: the offsets of relocations 1 and 4 are exchanged | help: use "
     "{\"callee\", 4, 283, 0}, {\"caller\", 16, 274, 8} [field-filled]\n"
     "error #1+16: relocation R_AARCH64_CALL26 against 'callee' is for a BL, but the "
     "instruction is an ADR (0x10000002) [opcode]\n"
     "error #1+4: relocation R_AARCH64_ADR_PREL_LO21 against 'caller'+0x8 is for an ADR, "
     "but the instruction is a BL (0x94000000) | note: the offsets of relocations 1 and 4 "
     "are exchanged | help: use {\"callee\", 4, 283, 0}, {\"caller\", 16, 274, 8} "
     "[opcode]\n"},
    {finding_id::opcode, "a BL gets a relocation of constants",
     [](host_set& set) {
         set.caller().relocs[call] = {".rodata.caller", 4, ADR, 0};
     },
     "error #1+4: relocation R_AARCH64_ADR_PREL_LO21 against '.rodata.caller' is for an "
     "ADR, but the instruction is a BL (0x94000000) | note: the instruction is a BL, and "
     "'.rodata.caller' are constants | help: name the kernel that it calls, with type "
     "283, or give the relocation the offset of the instruction that it is for [opcode]\n"},
    {finding_id::call_target, "a kernel is called at its second instruction",
     [](host_set& set) {
         set.caller().relocs[call] = {"caller", 4, BL, 4};
     },
     "warning #1+4: relocation R_AARCH64_CALL26 against 'caller'+0x4: a call to where no "
     "kernel begins | help: call it with addend 0 [call-target]\n"},
    {finding_id::call_target, "constants are called",
     [](host_set& set) {
         set.caller().relocs[call] = {".rodata.caller", 4, BL, 0};
     },
     "error #1+4: relocation R_AARCH64_CALL26 against '.rodata.caller': a call of "
     "constants | help: name the kernel that is to be called [call-target]\n"},
    {finding_id::pair, "the relocation of the ADD is left out",
     [](host_set& set) { set.caller().relocs.erase(set.caller().relocs.begin() + low); },
     "error #1+8: relocation R_AARCH64_ADR_PREL_PG_HI21 against '.rodata.caller': no ADD "
     "completes the address | help: add R_AARCH64_ADD_ABS_LO12_NC with the same target "
     "and addend: no relocation completes a load or a store [pair]\n"},
    {finding_id::pair, "the relocation of the ADRP is left out",
     [](host_set& set) { set.caller().relocs.erase(set.caller().relocs.begin() + page); },
     "warning #1+12: relocation R_AARCH64_ADD_ABS_LO12_NC against '.rodata.caller': no "
     "ADRP gives its page | help: add R_AARCH64_ADR_PREL_PG_HI21 with the same target and "
     "addend [pair]\n"},
};

std::string text_of(const kernel_finding& finding)
{
    const char* const severities[] = {"note", "warning", "error"};
    std::string text = severities[static_cast<int>(finding.severity)];
    text += " #" + std::to_string(finding.index) +
            (finding.offset ? "+" + std::to_string(*finding.offset) : "") + ": " + finding.message;
    if (!finding.note.empty())
        text += " | note: " + finding.note;
    if (!finding.help.empty())
        text += " | help: " + finding.help;
    return text + " [" + name_of(finding.id) + "]\n";
}

TEST(Corrupters, OfNothingIsFoundInTheGoodSet)
{
    const host_set set = good_set();
    EXPECT_TRUE(check_kernels(set.registry, set.kernels).empty());
}

// The first corrupter of each id leads to that finding alone; others lead to what follows from the same
// mistake too.
TEST(Corrupters, OfTheSetAreFoundEachWithItsText)
{
    std::set<finding_id> seen;
    for (const corrupter& one : corrupters) {
        host_set set = good_set();
        one.corrupt(set);
        const std::vector<kernel_finding> findings = check_kernels(set.registry, set.kernels);
        std::string found;
        for (const kernel_finding& finding : findings)
            found += text_of(finding);
        EXPECT_EQ(found, one.found) << one.wrong;
        EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [&](const kernel_finding& finding) {
            return finding.id == one.id;
        })) << one.wrong;
        if (seen.insert(one.id).second) {
            EXPECT_EQ(findings.size(), 1U) << one.wrong;
        }
    }
}

} // namespace
