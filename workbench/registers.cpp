#include "workbench/registers.hpp"

namespace vorna::workbench {

namespace {

enum class access : unsigned char { none, read, write, both };

struct field {
    unsigned char low_bit = 0;
    register_bank bank = register_bank::general;
    enum access access = access::none;
    unsigned char registers = 1; // of consecutive numbers, from the field's on
};

constexpr field general(unsigned char low_bit, access access)
{
    return {low_bit, register_bank::general, access};
}
constexpr field vector(unsigned char low_bit, access access, unsigned char registers = 1)
{
    return {low_bit, register_bank::fp_simd, access, registers};
}

constexpr field Rd = general(0, access::write);
constexpr field Rd_changed = general(0, access::both);
constexpr field Rt = general(0, access::read);
constexpr field Rn = general(5, access::read);
constexpr field Rn_changed = general(5, access::both);
constexpr field Ra = general(10, access::read);
constexpr field Ra_loaded = general(10, access::write);
constexpr field Rm = general(16, access::read);
constexpr field Vd = vector(0, access::write);
constexpr field Vd_changed = vector(0, access::both);
constexpr field Vt = vector(0, access::read);
constexpr field Vn = vector(5, access::read);
constexpr field Va = vector(10, access::read);
constexpr field Va_loaded = vector(10, access::write);
constexpr field Vm = vector(16, access::read);

constexpr field loaded(unsigned char registers)
{
    return vector(0, access::write, registers);
}
constexpr field stored(unsigned char registers)
{
    return vector(0, access::read, registers);
}
constexpr field changed(unsigned char registers) // a lane of each is loaded
{
    return vector(0, access::both, registers);
}
constexpr field table(unsigned char registers)
{
    return vector(5, access::read, registers);
}

struct form {
    std::uint32_t mask;
    std::uint32_t value;
    field fields[4] = {};
};

// The first that matches counts. An instruction that is not sure to replace all of its destination is said to
// change it.
constexpr form forms[] = {
    // Data processing, immediate
    {0x1f000000, 0x10000000, {Rd}},             // ADR, ADRP
    {0x1f800000, 0x11000000, {Rd, Rn}},         // ADD, SUB
    {0x1f800000, 0x12000000, {Rd, Rn}},         // AND, ORR, EOR, ANDS
    {0x7f800000, 0x12800000, {Rd}},             // MOVN
    {0x7f800000, 0x52800000, {Rd}},             // MOVZ
    {0x7f800000, 0x72800000, {Rd_changed}},     // MOVK
    {0x7f800000, 0x13000000, {Rd, Rn}},         // SBFM
    {0x7f800000, 0x33000000, {Rd_changed, Rn}}, // BFM
    {0x7f800000, 0x53000000, {Rd, Rn}},         // UBFM
    {0x7fa00000, 0x13800000, {Rd, Rn, Rm}},     // EXTR

    // Branches and system
    {0x7c000000, 0x14000000},       // B, BL
    {0xff000000, 0x54000000},       // B.cond, BC.cond
    {0x7e000000, 0x34000000, {Rt}}, // CBZ, CBNZ
    {0x7e000000, 0x36000000, {Rt}}, // TBZ, TBNZ
    {0xfffffc1f, 0xd61f0000, {Rn}}, // BR
    {0xfffffc1f, 0xd63f0000, {Rn}}, // BLR
    {0xfffffc1f, 0xd65f0000, {Rn}}, // RET
    {0xffffffff, 0xd503201f},       // NOP
    {0xffffff3f, 0xd503241f},       // BTI
    {0xffffff7f, 0xd503233f},       // PACIASP, AUTIASP
    {0xfffff01f, 0xd503301f},       // CLREX and barriers
    {0xfff00000, 0xd5300000, {Rd}}, // MRS
    {0xfff00000, 0xd5100000, {Rt}}, // MSR (register)
    {0xffe0001f, 0xd4200000},       // BRK
    {0xffff0000, 0x00000000},       // UDF

    // Data processing, register
    {0x1f000000, 0x0a000000, {Rd, Rn, Rm}},     // logical
    {0x1f200000, 0x0b000000, {Rd, Rn, Rm}},     // ADD, SUB (shifted register)
    {0x1fe00000, 0x0b200000, {Rd, Rn, Rm}},     // ADD, SUB (extended register)
    {0x1fe0fc00, 0x1a000000, {Rd, Rn, Rm}},     // ADC, SBC
    {0x3fe00c10, 0x3a400000, {Rn, Rm}},         // CCMN, CCMP (register)
    {0x3fe00c10, 0x3a400800, {Rn}},             // CCMN, CCMP (immediate)
    {0x3fe00800, 0x1a800000, {Rd, Rn, Rm}},     // CSEL and its kind
    {0xff600000, 0x9b400000, {Rd, Rn, Rm}},     // SMULH, UMULH
    {0x1f000000, 0x1b000000, {Rd, Rn, Rm, Ra}}, // three sources
    {0x7fe00000, 0x1ac00000, {Rd, Rn, Rm}},     // two sources
    {0x7fff0000, 0x5ac00000, {Rd, Rn}},         // one source

    // Scalar floating point
    {0xff207c00, 0x1e204000, {Vd, Vn}},         // one source
    {0xff200c00, 0x1e200800, {Vd, Vn, Vm}},     // two sources
    {0xff200c00, 0x1e200c00, {Vd, Vn, Vm}},     // FCSEL
    {0xff200c00, 0x1e200400, {Vn, Vm}},         // FCCMP
    {0xff20fc0f, 0x1e202000, {Vn, Vm}},         // FCMP, FCMPE
    {0xff20fc0f, 0x1e202008, {Vn}},             // FCMP, FCMPE with zero
    {0xff201fe0, 0x1e201000, {Vd}},             // FMOV (immediate)
    {0xff000000, 0x1f000000, {Vd, Vn, Vm, Va}}, // three sources
    {0x7f3ffc00, 0x1e2e0000, {Rd, Vn}},         // FMOV, upper half to general
    {0x7f3ffc00, 0x1e2f0000, {Vd_changed, Rn}}, // FMOV, general to upper half
    {0x7f26fc00, 0x1e200000, {Rd, Vn}},         // FCVTNS and its kind
    {0x7f26fc00, 0x1e220000, {Vd, Rn}},         // SCVTF, UCVTF
    {0x7f26fc00, 0x1e240000, {Rd, Vn}},         // FCVTAS, FCVTAU
    {0x7f27fc00, 0x1e260000, {Rd, Vn}},         // FMOV to general
    {0x7f27fc00, 0x1e270000, {Vd, Rn}},         // FMOV from general
    {0x7f3e0000, 0x1e020000, {Vd, Rn}},         // SCVTF, UCVTF (fixed point)
    {0x7f3e0000, 0x1e180000, {Rd, Vn}},         // FCVTZS, FCVTZU (fixed point)

    // Advanced SIMD
    {0x9f20fc00, 0x0e207c00, {Vd_changed, Vn, Vm}}, // SABA, UABA
    {0x9f20fc00, 0x0e209400, {Vd_changed, Vn, Vm}}, // MLA, MLS
    {0x9f20fc00, 0x0e20cc00, {Vd_changed, Vn, Vm}}, // FMLA, FMLS, FMLAL2, FMLSL2
    {0xbf20fc00, 0x0e20ec00, {Vd_changed, Vn, Vm}}, // FMLAL, FMLSL
    {0xbfe0fc00, 0x2e201c00, {Vd, Vn, Vm}},         // EOR
    {0xbf20fc00, 0x2e201c00, {Vd_changed, Vn, Vm}}, // BSL, BIT, BIF
    {0x9f200400, 0x0e200400, {Vd, Vn, Vm}},         // the other ones of three operands of a kind
    {0x9f208400, 0x0e008400, {Vd_changed, Vn, Vm}}, // SDOT, FCMLA, …
    {0x9f60c400, 0x0e400400, {Vd_changed, Vn, Vm}}, // half precision
    {0x9f200c00, 0x0e200000, {Vd_changed, Vn, Vm}}, // widening, narrowing
    {0x9fbffc00, 0x0ea0f800, {Vd, Vn}},             // FABS, FNEG
    {0xbfbffc00, 0x2ea1f800, {Vd, Vn}},             // FSQRT
    {0x9f3ffc00, 0x0e200800, {Vd, Vn}},             // REV64, REV32
    {0x9f3ffc00, 0x0e20b800, {Vd, Vn}},             // ABS, NEG
    {0x9f3ffc00, 0x0e21d800, {Vd, Vn}},             // SCVTF, UCVTF; FRECPE, FRSQRTE
    {0x9f3e0c00, 0x0e200800, {Vd_changed, Vn}},     // the other ones of two operands
    {0x9f7e0c00, 0x0e780800, {Vd_changed, Vn}},     // half precision
    {0x9f3e0c00, 0x0e300800, {Vd, Vn}},             // across lanes
    {0xbfe0fc00, 0x0e000400, {Vd, Vn}},             // DUP (element)
    {0xbfe0fc00, 0x0e000c00, {Vd, Rn}},             // DUP (general)
    {0xbfe0fc00, 0x0e002c00, {Rd, Vn}},             // SMOV
    {0xbfe0fc00, 0x0e003c00, {Rd, Vn}},             // UMOV
    {0xffe0fc00, 0x4e001c00, {Vd_changed, Rn}},     // INS (general)
    {0xffe08400, 0x6e000400, {Vd_changed, Vn}},     // INS (element)
    {0xbfe08400, 0x2e000000, {Vd, Vn, Vm}},         // EXT
    {0xbf208c00, 0x0e000800, {Vd, Vn, Vm}},         // UZP, TRN, ZIP
    {0xbfe0fc00, 0x0e000000, {Vd, table(1), Vm}},   // TBL
    {0xbfe0fc00, 0x0e002000, {Vd, table(2), Vm}},
    {0xbfe0fc00, 0x0e004000, {Vd, table(3), Vm}},
    {0xbfe0fc00, 0x0e006000, {Vd, table(4), Vm}},
    {0xbfe0fc00, 0x0e001000, {Vd_changed, table(1), Vm}}, // TBX
    {0xbfe0fc00, 0x0e003000, {Vd_changed, table(2), Vm}},
    {0xbfe0fc00, 0x0e005000, {Vd_changed, table(3), Vm}},
    {0xbfe0fc00, 0x0e007000, {Vd_changed, table(4), Vm}},
    {0xbf80b400, 0x0f801000, {Vd_changed, Vn, Vm}}, // FMLA, FMLS (by element), single and double precision
    {0x9f80f400, 0x0f809000, {Vd, Vn, Vm}},         // FMUL, FMULX (by element)
    {0xbfc0f400, 0x0f808000, {Vd, Vn, Vm}},         // MUL (by element), 32 bits
    {0xbfc0b400, 0x2f800000, {Vd_changed, Vn, Vm}}, // MLA, MLS (by element), 32 bits
    {0x9ff81c00, 0x0f000400, {Vd}},                 // MOVI, MVNI
    {0x9ff8cc00, 0x0f00c400, {Vd}},                 // MOVI, MVNI, FMOV
    {0x9ff80400, 0x0f000400, {Vd_changed}},         // ORR, BIC (immediate)
    {0x9f80fc00, 0x0f000400, {Vd, Vn}},             // SSHR, USHR
    {0xbf80fc00, 0x0f005400, {Vd, Vn}},             // SHL
    {0x9f800400, 0x0f000400, {Vd_changed, Vn}},     // the other ones with an immediate shift
    {0xdf200400, 0x5e200400, {Vd, Vn, Vm}},         // scalar: three operands of a kind
    {0xdf200c00, 0x5e200000, {Vd_changed, Vn, Vm}}, // scalar: widening
    {0xdf3e0c00, 0x5e200800, {Vd_changed, Vn}},     // scalar: two operands
    {0xdf3e0c00, 0x5e300800, {Vd, Vn}},             // scalar: pairwise
    {0xffe0fc00, 0x5e000400, {Vd, Vn}},             // scalar: DUP (element)
    {0xff80b400, 0x5f801000, {Vd_changed, Vn, Vm}}, // scalar: FMLA, FMLS (by element)
    {0xdf80f400, 0x5f809000, {Vd, Vn, Vm}},         // scalar: FMUL, FMULX (by element)
    {0xff3e0c00, 0x4e280800, {Vd_changed, Vn}},     // AES

    // Loads and stores
    {0xbf000000, 0x18000000, {Rd}}, // LDR (literal)
    {0xff000000, 0x98000000, {Rd}}, // LDRSW (literal)
    {0xff000000, 0xd8000000},       // PRFM (literal)
    {0x3f000000, 0x1c000000, {Vd}}, // LDR (literal, SIMD&FP)

    {0x3ec00000, 0x28000000, {Rt, Ra, Rn}}, // pairs: with an offset, then with writeback
    {0x3ec00000, 0x28400000, {Rd, Ra_loaded, Rn}},
    {0x3ec00000, 0x28800000, {Rt, Ra, Rn_changed}},
    {0x3ec00000, 0x28c00000, {Rd, Ra_loaded, Rn_changed}},
    {0x3ec00000, 0x2c000000, {Vt, Va, Rn}},
    {0x3ec00000, 0x2c400000, {Vd, Va_loaded, Rn}},
    {0x3ec00000, 0x2c800000, {Vt, Va, Rn_changed}},
    {0x3ec00000, 0x2cc00000, {Vd, Va_loaded, Rn_changed}},

    {0xffc00000, 0xf9800000, {Rn}},     // PRFM (immediate)
    {0x3fc00000, 0x39000000, {Rt, Rn}}, // with an offset in units of its size
    {0x3f000000, 0x39000000, {Rd, Rn}},
    {0x3f400000, 0x3d000000, {Vt, Rn}},
    {0x3f400000, 0x3d400000, {Vd, Rn}},

    {0xffe00c00, 0xf8800000, {Rn}},     // PRFUM
    {0x3fe00400, 0x38000000, {Rt, Rn}}, // with an offset in bytes, then with writeback
    {0x3f200400, 0x38000000, {Rd, Rn}},
    {0x3fe00400, 0x38000400, {Rt, Rn_changed}},
    {0x3f200400, 0x38000400, {Rd, Rn_changed}},
    {0x3f600400, 0x3c000000, {Vt, Rn}},
    {0x3f600400, 0x3c400000, {Vd, Rn}},
    {0x3f600400, 0x3c000400, {Vt, Rn_changed}},
    {0x3f600400, 0x3c400400, {Vd, Rn_changed}},

    {0xffe00c00, 0xf8a00800, {Rn, Rm}},     // PRFM (register)
    {0x3fe00c00, 0x38200800, {Rt, Rn, Rm}}, // with a register
    {0x3f200c00, 0x38200800, {Rd, Rn, Rm}},
    {0x3f600c00, 0x3c200800, {Vt, Rn, Rm}},
    {0x3f600c00, 0x3c600800, {Vd, Rn, Rm}},

    {0x3f208c00, 0x38200000, {Rd, Rn, Rm}}, // LDADD and its kind
    {0x3f20fc00, 0x38208000, {Rd, Rn, Rm}}, // SWP

    {0xbffff000, 0x0c000000, {stored(4), Rn}}, // structures: ST4, ST1, ST3, ST2
    {0xbffff000, 0x0c002000, {stored(4), Rn}},
    {0xbffff000, 0x0c004000, {stored(3), Rn}},
    {0xbffff000, 0x0c006000, {stored(3), Rn}},
    {0xbffff000, 0x0c007000, {stored(1), Rn}},
    {0xbffff000, 0x0c008000, {stored(2), Rn}},
    {0xbffff000, 0x0c00a000, {stored(2), Rn}},
    {0xbffff000, 0x0c400000, {loaded(4), Rn}},
    {0xbffff000, 0x0c402000, {loaded(4), Rn}},
    {0xbffff000, 0x0c404000, {loaded(3), Rn}},
    {0xbffff000, 0x0c406000, {loaded(3), Rn}},
    {0xbffff000, 0x0c407000, {loaded(1), Rn}},
    {0xbffff000, 0x0c408000, {loaded(2), Rn}},
    {0xbffff000, 0x0c40a000, {loaded(2), Rn}},
    {0xbfe0f000, 0x0c800000, {stored(4), Rn_changed, Rm}}, // with writeback
    {0xbfe0f000, 0x0c802000, {stored(4), Rn_changed, Rm}},
    {0xbfe0f000, 0x0c804000, {stored(3), Rn_changed, Rm}},
    {0xbfe0f000, 0x0c806000, {stored(3), Rn_changed, Rm}},
    {0xbfe0f000, 0x0c807000, {stored(1), Rn_changed, Rm}},
    {0xbfe0f000, 0x0c808000, {stored(2), Rn_changed, Rm}},
    {0xbfe0f000, 0x0c80a000, {stored(2), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc00000, {loaded(4), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc02000, {loaded(4), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc04000, {loaded(3), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc06000, {loaded(3), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc07000, {loaded(1), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc08000, {loaded(2), Rn_changed, Rm}},
    {0xbfe0f000, 0x0cc0a000, {loaded(2), Rn_changed, Rm}},
    {0xbffff000, 0x0d40c000, {loaded(1), Rn}}, // one structure to all lanes
    {0xbffff000, 0x0d60c000, {loaded(2), Rn}},
    {0xbffff000, 0x0d40e000, {loaded(3), Rn}},
    {0xbffff000, 0x0d60e000, {loaded(4), Rn}},
    {0xbfe0f000, 0x0dc0c000, {loaded(1), Rn_changed, Rm}},
    {0xbfe0f000, 0x0de0c000, {loaded(2), Rn_changed, Rm}},
    {0xbfe0f000, 0x0dc0e000, {loaded(3), Rn_changed, Rm}},
    {0xbfe0f000, 0x0de0e000, {loaded(4), Rn_changed, Rm}},
    {0xbfff2000, 0x0d000000, {stored(1), Rn}}, // one structure, a lane
    {0xbfff2000, 0x0d200000, {stored(2), Rn}},
    {0xbfff2000, 0x0d002000, {stored(3), Rn}},
    {0xbfff2000, 0x0d202000, {stored(4), Rn}},
    {0xbfff2000, 0x0d400000, {changed(1), Rn}},
    {0xbfff2000, 0x0d600000, {changed(2), Rn}},
    {0xbfff2000, 0x0d402000, {changed(3), Rn}},
    {0xbfff2000, 0x0d602000, {changed(4), Rn}},
    {0xbfe02000, 0x0d800000, {stored(1), Rn_changed, Rm}}, // with writeback
    {0xbfe02000, 0x0da00000, {stored(2), Rn_changed, Rm}},
    {0xbfe02000, 0x0d802000, {stored(3), Rn_changed, Rm}},
    {0xbfe02000, 0x0da02000, {stored(4), Rn_changed, Rm}},
    {0xbfe02000, 0x0dc00000, {changed(1), Rn_changed, Rm}},
    {0xbfe02000, 0x0de00000, {changed(2), Rn_changed, Rm}},
    {0xbfe02000, 0x0dc02000, {changed(3), Rn_changed, Rm}},
    {0xbfe02000, 0x0de02000, {changed(4), Rn_changed, Rm}},
};

} // namespace

std::optional<register_operands> decode_registers(std::uint32_t word)
{
    constexpr std::uint32_t number_mask = 31;
    for (const form& form : forms) {
        if ((word & form.mask) != form.value)
            continue;
        register_operands result;
        for (const field& field : form.fields) {
            if (field.access == access::none)
                break;
            result.fields |= number_mask << field.low_bit;
            for (unsigned i = 0; i < field.registers; ++i) {
                result.operands[result.count++] = {field.bank, ((word >> field.low_bit) + i) & number_mask,
                                                   field.access != access::write,
                                                   field.access != access::read};
            }
        }
        return result;
    }
    return std::nullopt;
}

} // namespace vorna::workbench
