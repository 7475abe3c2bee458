#include "workbench/disasm/a64.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace vorna::workbench {

namespace {

struct encoding {
    std::uint32_t mask;
    std::uint32_t value;
    std::string_view name;
};

// In each table the first that matches counts.
constexpr encoding data_processing_immediate[] = {
    {0x9f000000, 0x10000000, "ADR"},
    {0x9f000000, 0x90000000, "ADRP"},
    {0x7f800000, 0x11000000, "ADD (immediate)"},
    {0x7f800000, 0x31000000, "ADDS (immediate)"},
    {0x7f800000, 0x51000000, "SUB (immediate)"},
    {0x7f800000, 0x71000000, "SUBS (immediate)"},
    {0xffc0c000, 0x91800000, "ADDG"},
    {0xffc0c000, 0xd1800000, "SUBG"},
    {0x7f800000, 0x12000000, "AND (immediate)"},
    {0x7f800000, 0x32000000, "ORR (immediate)"},
    {0x7f800000, 0x52000000, "EOR (immediate)"},
    {0x7f800000, 0x72000000, "ANDS (immediate)"},
    {0x7f800000, 0x12800000, "MOVN"},
    {0x7f800000, 0x52800000, "MOVZ"},
    {0x7f800000, 0x72800000, "MOVK"},
    {0x7f800000, 0x13000000, "SBFM"},
    {0x7f800000, 0x33000000, "BFM"},
    {0x7f800000, 0x53000000, "UBFM"},
    {0x7fa00000, 0x13800000, "EXTR"},
    {0, 0, "data processing instruction"},
};

constexpr encoding branches_and_system[] = {
    {0xff000010, 0x54000000, "B.cond"},
    {0xffe0001f, 0xd4000001, "SVC"},
    {0xffe0001f, 0xd4000002, "HVC"},
    {0xffe0001f, 0xd4000003, "SMC"},
    {0xffe0001f, 0xd4200000, "BRK"},
    {0xffe0001f, 0xd4400000, "HLT"},
    {0xffffffff, 0xd503201f, "NOP"},
    {0xffffffff, 0xd503203f, "YIELD"},
    {0xffffffff, 0xd503205f, "WFE"},
    {0xffffffff, 0xd503207f, "WFI"},
    {0xffffffff, 0xd503209f, "SEV"},
    {0xffffffff, 0xd50320bf, "SEVL"},
    {0xffffff3f, 0xd503241f, "BTI"},
    {0xfffff01f, 0xd503201f, "HINT"},
    {0xfffff0ff, 0xd503305f, "CLREX"},
    {0xfffff0ff, 0xd503309f, "DSB"},
    {0xfffff0ff, 0xd50330bf, "DMB"},
    {0xfffff0ff, 0xd50330df, "ISB"},
    {0xfff8f01f, 0xd500401f, "MSR (immediate)"},
    {0xfff80000, 0xd5080000, "SYS"},
    {0xfff80000, 0xd5280000, "SYSL"},
    {0xfff00000, 0xd5100000, "MSR (register)"},
    {0xfff00000, 0xd5300000, "MRS"},
    {0xfffffc1f, 0xd61f0000, "BR"},
    {0xfffffc1f, 0xd63f0000, "BLR"},
    {0xfffffc1f, 0xd65f0000, "RET"},
    {0xffffffff, 0xd69f03e0, "ERET"},
    {0xfffffbff, 0xd65f0bff, "RETA"},
    {0xfffffbff, 0xd69f0bff, "ERETA"},
    {0xfefff800, 0xd61f0800, "BRA"},
    {0xfefff800, 0xd63f0800, "BLRA"},
    {0xfc000000, 0x14000000, "B"},
    {0xfc000000, 0x94000000, "BL"},
    {0x7f000000, 0x34000000, "CBZ"},
    {0x7f000000, 0x35000000, "CBNZ"},
    {0x7f000000, 0x36000000, "TBZ"},
    {0x7f000000, 0x37000000, "TBNZ"},
    {0xfc000000, 0x54000000, "branch"},
    {0xfe000000, 0xd6000000, "branch"},
    {0xff000000, 0xd4000000, "exception"},
    {0, 0, "system instruction"},
};

constexpr encoding loads_and_stores[] = {
    {0xbf000000, 0x18000000, "LDR (literal)"},
    {0xff000000, 0x98000000, "LDRSW (literal)"},
    {0xff000000, 0xd8000000, "PRFM (literal)"},
    {0x3f000000, 0x1c000000, "LDR (literal, SIMD&FP)"},

    {0x7fc00000, 0x28000000, "STNP"},
    {0x7fc00000, 0x28400000, "LDNP"},
    {0x7e400000, 0x28000000, "STP"},
    {0x7e400000, 0x28400000, "LDP"},
    {0xffc00000, 0x68400000, "load or store"},
    {0xfe400000, 0x68400000, "LDPSW"},
    {0xfe400000, 0x68000000, "STGP"},
    {0x3fc00000, 0x2c000000, "STNP (SIMD&FP)"},
    {0x3fc00000, 0x2c400000, "LDNP (SIMD&FP)"},
    {0x3e400000, 0x2c000000, "STP (SIMD&FP)"},
    {0x3e400000, 0x2c400000, "LDP (SIMD&FP)"},

    {0xffc00000, 0x39000000, "STRB (immediate)"},
    {0xffc00000, 0x39400000, "LDRB (immediate)"},
    {0xff800000, 0x39800000, "LDRSB (immediate)"},
    {0xffc00000, 0x79000000, "STRH (immediate)"},
    {0xffc00000, 0x79400000, "LDRH (immediate)"},
    {0xff800000, 0x79800000, "LDRSH (immediate)"},
    {0xbfc00000, 0xb9000000, "STR (immediate)"},
    {0xbfc00000, 0xb9400000, "LDR (immediate)"},
    {0xffc00000, 0xb9800000, "LDRSW (immediate)"},
    {0xffc00000, 0xf9800000, "PRFM (immediate)"},
    {0x3f400000, 0x3d000000, "STR (immediate, SIMD&FP)"},
    {0x3f400000, 0x3d400000, "LDR (immediate, SIMD&FP)"},

    {0xffe00400, 0x38000400, "STRB (immediate)"},
    {0xffe00400, 0x38400400, "LDRB (immediate)"},
    {0xffa00400, 0x38800400, "LDRSB (immediate)"},
    {0xffe00400, 0x78000400, "STRH (immediate)"},
    {0xffe00400, 0x78400400, "LDRH (immediate)"},
    {0xffa00400, 0x78800400, "LDRSH (immediate)"},
    {0xbfe00400, 0xb8000400, "STR (immediate)"},
    {0xbfe00400, 0xb8400400, "LDR (immediate)"},
    {0xffe00400, 0xb8800400, "LDRSW (immediate)"},
    {0x3f600400, 0x3c000400, "STR (immediate, SIMD&FP)"},
    {0x3f600400, 0x3c400400, "LDR (immediate, SIMD&FP)"},

    {0xffe00c00, 0x38000000, "STURB"},
    {0xffe00c00, 0x38400000, "LDURB"},
    {0xffa00c00, 0x38800000, "LDURSB"},
    {0xffe00c00, 0x78000000, "STURH"},
    {0xffe00c00, 0x78400000, "LDURH"},
    {0xffa00c00, 0x78800000, "LDURSH"},
    {0xbfe00c00, 0xb8000000, "STUR"},
    {0xbfe00c00, 0xb8400000, "LDUR"},
    {0xffe00c00, 0xb8800000, "LDURSW"},
    {0xffe00c00, 0xf8800000, "PRFUM"},
    {0x3f600c00, 0x3c000000, "STUR (SIMD&FP)"},
    {0x3f600c00, 0x3c400000, "LDUR (SIMD&FP)"},

    {0xffe00c00, 0x38000800, "STTRB"},
    {0xffe00c00, 0x38400800, "LDTRB"},
    {0xffa00c00, 0x38800800, "LDTRSB"},
    {0xffe00c00, 0x78000800, "STTRH"},
    {0xffe00c00, 0x78400800, "LDTRH"},
    {0xffa00c00, 0x78800800, "LDTRSH"},
    {0xbfe00c00, 0xb8000800, "STTR"},
    {0xbfe00c00, 0xb8400800, "LDTR"},
    {0xffe00c00, 0xb8800800, "LDTRSW"},

    {0xffe00c00, 0x38200800, "STRB (register)"},
    {0xffe00c00, 0x38600800, "LDRB (register)"},
    {0xffa00c00, 0x38a00800, "LDRSB (register)"},
    {0xffe00c00, 0x78200800, "STRH (register)"},
    {0xffe00c00, 0x78600800, "LDRH (register)"},
    {0xffa00c00, 0x78a00800, "LDRSH (register)"},
    {0xbfe00c00, 0xb8200800, "STR (register)"},
    {0xbfe00c00, 0xb8600800, "LDR (register)"},
    {0xffe00c00, 0xb8a00800, "LDRSW (register)"},
    {0xffe00c00, 0xf8a00800, "PRFM (register)"},
    {0x3f600c00, 0x3c200800, "STR (register, SIMD&FP)"},
    {0x3f600c00, 0x3c600800, "LDR (register, SIMD&FP)"},

    {0xff20fc00, 0x38200000, "LDADDB"},
    {0xff20fc00, 0x78200000, "LDADDH"},
    {0xbf20fc00, 0xb8200000, "LDADD"},
    {0xff20fc00, 0x38201000, "LDCLRB"},
    {0xff20fc00, 0x78201000, "LDCLRH"},
    {0xbf20fc00, 0xb8201000, "LDCLR"},
    {0xff20fc00, 0x38202000, "LDEORB"},
    {0xff20fc00, 0x78202000, "LDEORH"},
    {0xbf20fc00, 0xb8202000, "LDEOR"},
    {0xff20fc00, 0x38203000, "LDSETB"},
    {0xff20fc00, 0x78203000, "LDSETH"},
    {0xbf20fc00, 0xb8203000, "LDSET"},
    {0xff20fc00, 0x38204000, "LDSMAXB"},
    {0xff20fc00, 0x78204000, "LDSMAXH"},
    {0xbf20fc00, 0xb8204000, "LDSMAX"},
    {0xff20fc00, 0x38205000, "LDSMINB"},
    {0xff20fc00, 0x78205000, "LDSMINH"},
    {0xbf20fc00, 0xb8205000, "LDSMIN"},
    {0xff20fc00, 0x38206000, "LDUMAXB"},
    {0xff20fc00, 0x78206000, "LDUMAXH"},
    {0xbf20fc00, 0xb8206000, "LDUMAX"},
    {0xff20fc00, 0x38207000, "LDUMINB"},
    {0xff20fc00, 0x78207000, "LDUMINH"},
    {0xbf20fc00, 0xb8207000, "LDUMIN"},
    {0xff20fc00, 0x38208000, "SWPB"},
    {0xff20fc00, 0x78208000, "SWPH"},
    {0xbf20fc00, 0xb8208000, "SWP"},
    {0xfffffc00, 0x38bfc000, "LDAPRB"},
    {0xfffffc00, 0x78bfc000, "LDAPRH"},
    {0xbffffc00, 0xb8bfc000, "LDAPR"},
    {0xff200400, 0xf8200400, "LDRA"},

    {0xffe08000, 0x08000000, "STXRB"},
    {0xffe08000, 0x48000000, "STXRH"},
    {0xbfe08000, 0x88000000, "STXR"},
    {0xffe08000, 0x08008000, "STLXRB"},
    {0xffe08000, 0x48008000, "STLXRH"},
    {0xbfe08000, 0x88008000, "STLXR"},
    {0xffe08000, 0x08400000, "LDXRB"},
    {0xffe08000, 0x48400000, "LDXRH"},
    {0xbfe08000, 0x88400000, "LDXR"},
    {0xffe08000, 0x08408000, "LDAXRB"},
    {0xffe08000, 0x48408000, "LDAXRH"},
    {0xbfe08000, 0x88408000, "LDAXR"},
    {0xbfa07c00, 0x08207c00, "CASP"},
    {0xbfe08000, 0x88200000, "STXP"},
    {0xbfe08000, 0x88208000, "STLXP"},
    {0xbfe08000, 0x88600000, "LDXP"},
    {0xbfe08000, 0x88608000, "LDAXP"},
    {0xffe08000, 0x08800000, "STLLRB"},
    {0xffe08000, 0x48800000, "STLLRH"},
    {0xbfe08000, 0x88800000, "STLLR"},
    {0xffe08000, 0x08808000, "STLRB"},
    {0xffe08000, 0x48808000, "STLRH"},
    {0xbfe08000, 0x88808000, "STLR"},
    {0xffe08000, 0x08c00000, "LDLARB"},
    {0xffe08000, 0x48c00000, "LDLARH"},
    {0xbfe08000, 0x88c00000, "LDLAR"},
    {0xffe08000, 0x08c08000, "LDARB"},
    {0xffe08000, 0x48c08000, "LDARH"},
    {0xbfe08000, 0x88c08000, "LDAR"},
    {0xffa07c00, 0x08a07c00, "CASB"},
    {0xffa07c00, 0x48a07c00, "CASH"},
    {0xbfa07c00, 0x88a07c00, "CAS"},

    {0xffe00c00, 0x19000000, "STLURB"},
    {0xffe00c00, 0x19400000, "LDAPURB"},
    {0xffa00c00, 0x19800000, "LDAPURSB"},
    {0xffe00c00, 0x59000000, "STLURH"},
    {0xffe00c00, 0x59400000, "LDAPURH"},
    {0xffa00c00, 0x59800000, "LDAPURSH"},
    {0xbfe00c00, 0x99000000, "STLUR"},
    {0xbfe00c00, 0x99400000, "LDAPUR"},
    {0xffe00c00, 0x99800000, "LDAPURSW"},

    {0xbf60f000, 0x0c000000, "ST4 (multiple structures)"},
    {0xbf60f000, 0x0c002000, "ST1 (multiple structures)"},
    {0xbf60f000, 0x0c004000, "ST3 (multiple structures)"},
    {0xbf60f000, 0x0c006000, "ST1 (multiple structures)"},
    {0xbf60f000, 0x0c007000, "ST1 (multiple structures)"},
    {0xbf60f000, 0x0c008000, "ST2 (multiple structures)"},
    {0xbf60f000, 0x0c00a000, "ST1 (multiple structures)"},
    {0xbf60f000, 0x0c400000, "LD4 (multiple structures)"},
    {0xbf60f000, 0x0c402000, "LD1 (multiple structures)"},
    {0xbf60f000, 0x0c404000, "LD3 (multiple structures)"},
    {0xbf60f000, 0x0c406000, "LD1 (multiple structures)"},
    {0xbf60f000, 0x0c407000, "LD1 (multiple structures)"},
    {0xbf60f000, 0x0c408000, "LD2 (multiple structures)"},
    {0xbf60f000, 0x0c40a000, "LD1 (multiple structures)"},
    {0xbf60f000, 0x0d40c000, "LD1R"},
    {0xbf60f000, 0x0d60c000, "LD2R"},
    {0xbf60f000, 0x0d40e000, "LD3R"},
    {0xbf60f000, 0x0d60e000, "LD4R"},
    {0xbf602000, 0x0d000000, "ST1 (single structure)"},
    {0xbf602000, 0x0d200000, "ST2 (single structure)"},
    {0xbf602000, 0x0d002000, "ST3 (single structure)"},
    {0xbf602000, 0x0d202000, "ST4 (single structure)"},
    {0xbf602000, 0x0d400000, "LD1 (single structure)"},
    {0xbf602000, 0x0d600000, "LD2 (single structure)"},
    {0xbf602000, 0x0d402000, "LD3 (single structure)"},
    {0xbf602000, 0x0d602000, "LD4 (single structure)"},
    {0, 0, "load or store"},
};

constexpr encoding data_processing_register[] = {
    {0x7f200000, 0x0a000000, "AND (shifted register)"},
    {0x7f200000, 0x0a200000, "BIC (shifted register)"},
    {0x7f200000, 0x2a000000, "ORR (shifted register)"},
    {0x7f200000, 0x2a200000, "ORN (shifted register)"},
    {0x7f200000, 0x4a000000, "EOR (shifted register)"},
    {0x7f200000, 0x4a200000, "EON (shifted register)"},
    {0x7f200000, 0x6a000000, "ANDS (shifted register)"},
    {0x7f200000, 0x6a200000, "BICS (shifted register)"},
    {0x7f200000, 0x0b000000, "ADD (shifted register)"},
    {0x7f200000, 0x2b000000, "ADDS (shifted register)"},
    {0x7f200000, 0x4b000000, "SUB (shifted register)"},
    {0x7f200000, 0x6b000000, "SUBS (shifted register)"},
    {0x7fe00000, 0x0b200000, "ADD (extended register)"},
    {0x7fe00000, 0x2b200000, "ADDS (extended register)"},
    {0x7fe00000, 0x4b200000, "SUB (extended register)"},
    {0x7fe00000, 0x6b200000, "SUBS (extended register)"},
    {0x7fe0fc00, 0x1a000000, "ADC"},
    {0x7fe0fc00, 0x3a000000, "ADCS"},
    {0x7fe0fc00, 0x5a000000, "SBC"},
    {0x7fe0fc00, 0x7a000000, "SBCS"},
    {0x7fe00c10, 0x3a400000, "CCMN (register)"},
    {0x7fe00c10, 0x3a400800, "CCMN (immediate)"},
    {0x7fe00c10, 0x7a400000, "CCMP (register)"},
    {0x7fe00c10, 0x7a400800, "CCMP (immediate)"},
    {0x7fe00c00, 0x1a800000, "CSEL"},
    {0x7fe00c00, 0x1a800400, "CSINC"},
    {0x7fe00c00, 0x5a800000, "CSINV"},
    {0x7fe00c00, 0x5a800400, "CSNEG"},
    {0x7fe08000, 0x1b000000, "MADD"},
    {0x7fe08000, 0x1b008000, "MSUB"},
    {0xffe08000, 0x9b200000, "SMADDL"},
    {0xffe08000, 0x9b208000, "SMSUBL"},
    {0xffe08000, 0x9b400000, "SMULH"},
    {0xffe08000, 0x9ba00000, "UMADDL"},
    {0xffe08000, 0x9ba08000, "UMSUBL"},
    {0xffe08000, 0x9bc00000, "UMULH"},
    {0x7fe0fc00, 0x1ac00800, "UDIV"},
    {0x7fe0fc00, 0x1ac00c00, "SDIV"},
    {0x7fe0fc00, 0x1ac02000, "LSLV"},
    {0x7fe0fc00, 0x1ac02400, "LSRV"},
    {0x7fe0fc00, 0x1ac02800, "ASRV"},
    {0x7fe0fc00, 0x1ac02c00, "RORV"},
    {0x7ffffc00, 0x5ac00000, "RBIT"},
    {0x7ffffc00, 0x5ac00400, "REV16"},
    {0xfffffc00, 0xdac00800, "REV32"},
    {0xfffffc00, 0x5ac00800, "REV"},
    {0xfffffc00, 0xdac00c00, "REV"},
    {0x7ffffc00, 0x5ac01000, "CLZ"},
    {0x7ffffc00, 0x5ac01400, "CLS"},
    {0, 0, "data processing instruction"},
};

constexpr encoding floating_point_and_simd[] = {
    {0xff20fc00, 0x1e200800, "FMUL (scalar)"},
    {0xff20fc00, 0x1e201800, "FDIV (scalar)"},
    {0xff20fc00, 0x1e202800, "FADD (scalar)"},
    {0xff20fc00, 0x1e203800, "FSUB (scalar)"},
    {0xff20fc00, 0x1e204800, "FMAX (scalar)"},
    {0xff20fc00, 0x1e205800, "FMIN (scalar)"},
    {0xff20fc00, 0x1e206800, "FMAXNM (scalar)"},
    {0xff20fc00, 0x1e207800, "FMINNM (scalar)"},
    {0xff20fc00, 0x1e208800, "FNMUL (scalar)"},
    {0xff208000, 0x1f000000, "FMADD"},
    {0xff208000, 0x1f008000, "FMSUB"},
    {0xff208000, 0x1f200000, "FNMADD"},
    {0xff208000, 0x1f208000, "FNMSUB"},
    {0xff3ffc00, 0x1e204000, "FMOV (register)"},
    {0xff3ffc00, 0x1e20c000, "FABS (scalar)"},
    {0xff3ffc00, 0x1e214000, "FNEG (scalar)"},
    {0xff3ffc00, 0x1e21c000, "FSQRT (scalar)"},
    {0xff3e7c00, 0x1e224000, "FCVT"},
    {0xff201fe0, 0x1e201000, "FMOV (scalar, immediate)"},
    {0xff20fc17, 0x1e202000, "FCMP"},
    {0xff20fc17, 0x1e202010, "FCMPE"},
    {0xff200c00, 0x1e200c00, "FCSEL"},
    {0x7f36fc00, 0x1e260000, "FMOV (general)"},
    {0x7f3ffc00, 0x1e220000, "SCVTF (scalar, integer)"},
    {0x7f3ffc00, 0x1e230000, "UCVTF (scalar, integer)"},
    {0x7f3ffc00, 0x1e380000, "FCVTZS (scalar, integer)"},
    {0x7f3ffc00, 0x1e390000, "FCVTZU (scalar, integer)"},

    {0xbfa0fc00, 0x0e20d400, "FADD (vector)"},
    {0xbfa0fc00, 0x0ea0d400, "FSUB (vector)"},
    {0xbfa0fc00, 0x2e20dc00, "FMUL (vector)"},
    {0xbfa0fc00, 0x2e20fc00, "FDIV (vector)"},
    {0xbfa0fc00, 0x0e20cc00, "FMLA (vector)"},
    {0xbfa0fc00, 0x0ea0cc00, "FMLS (vector)"},
    {0xbfa0fc00, 0x0e20dc00, "FMULX"},
    {0xbfa0fc00, 0x2e20d400, "FADDP (vector)"},
    {0xbfa0fc00, 0x2ea0d400, "FABD"},
    {0xbfa0fc00, 0x0e20f400, "FMAX (vector)"},
    {0xbfa0fc00, 0x0ea0f400, "FMIN (vector)"},
    {0xbf80f400, 0x0f801000, "FMLA (by element)"},
    {0xbf80f400, 0x0f805000, "FMLS (by element)"},
    {0xbf80f400, 0x0f809000, "FMUL (by element)"},
    {0xff80f400, 0x5f801000, "FMLA (by element)"},
    {0xff80f400, 0x5f805000, "FMLS (by element)"},
    {0xff80f400, 0x5f809000, "FMUL (by element)"},
    {0xbf20ec00, 0x2e00e400, "FCADD"},
    {0xbf20e400, 0x2e00c400, "FCMLA"},
    {0xbfbffc00, 0x2ea0f800, "FNEG (vector)"},
    {0xbfbffc00, 0x0ea0f800, "FABS (vector)"},
    {0xbfbffc00, 0x2ea1f800, "FSQRT (vector)"},
    {0xffbffc00, 0x7e30d800, "FADDP (scalar)"},
    {0xbfe0fc00, 0x0e000400, "DUP (element)"},
    {0xbfe0fc00, 0x0e000c00, "DUP (general)"},
    {0xffe0fc00, 0x5e000400, "DUP (element)"},
    {0xbfe0fc00, 0x0e002c00, "SMOV"},
    {0xbfe0fc00, 0x0e003c00, "UMOV"},
    {0xffe0fc00, 0x4e001c00, "INS (general)"},
    {0xffe08400, 0x6e000400, "INS (element)"},
    {0xbfe08400, 0x2e000000, "EXT"},
    {0xbf20fc00, 0x0e003800, "ZIP1"},
    {0xbf20fc00, 0x0e007800, "ZIP2"},
    {0xbf20fc00, 0x0e001800, "UZP1"},
    {0xbf20fc00, 0x0e005800, "UZP2"},
    {0xbf20fc00, 0x0e002800, "TRN1"},
    {0xbf20fc00, 0x0e006800, "TRN2"},
    {0xbfe09c00, 0x0e000000, "TBL"},
    {0xbfe09c00, 0x0e001000, "TBX"},
    {0xbf3ffc00, 0x0e200800, "REV64"},
    {0xbf3ffc00, 0x2e200800, "REV32 (vector)"},
    {0xbf3ffc00, 0x0e201800, "REV16 (vector)"},
    {0xbfe0fc00, 0x0e201c00, "AND (vector)"},
    {0xbfe0fc00, 0x0e601c00, "BIC (vector, register)"},
    {0xbfe0fc00, 0x0ea01c00, "ORR (vector, register)"},
    {0xbfe0fc00, 0x0ee01c00, "ORN (vector)"},
    {0xbfe0fc00, 0x2e201c00, "EOR (vector)"},
    {0xbfe0fc00, 0x2e601c00, "BSL"},
    {0xbfe0fc00, 0x2ea01c00, "BIT"},
    {0xbfe0fc00, 0x2ee01c00, "BIF"},
    {0xbf20fc00, 0x0e208400, "ADD (vector)"},
    {0xbf20fc00, 0x2e208400, "SUB (vector)"},
    {0xbff8fc00, 0x0f00f400, "FMOV (vector, immediate)"},
    {0xfff8fc00, 0x6f00f400, "FMOV (vector, immediate)"},
    {0xbff89c00, 0x0f000400, "MOVI"},
    {0xbff8dc00, 0x0f008400, "MOVI"},
    {0xbff8ec00, 0x0f00c400, "MOVI"},
    {0xbff8fc00, 0x0f00e400, "MOVI"},
    {0xbff8fc00, 0x2f00e400, "MOVI"},
    {0, 0, "FP or SIMD instruction"},
};

constexpr encoding sve[] = {{0, 0, "SVE instruction"}};

constexpr encoding reserved[] = {
    {0xffff0000, 0x00000000, "UDF"},
    {0x80000000, 0x80000000, "SME instruction"},
    {0, 0, "no instruction"},
};

// Bits 28 to 25 of the word: the manual's "op1" of the top level.
unsigned group_of(std::uint32_t word)
{
    return word >> 25 & 0xf;
}

bool is_load_or_store(std::uint32_t word)
{
    return (group_of(word) & 0x5) == 0x4;
}

bool is_sve(std::uint32_t word)
{
    return group_of(word) == 0x2;
}

template <std::size_t size>
std::string_view find_name(const encoding (&encodings)[size], std::uint32_t word)
{
    return std::find_if(std::begin(encodings), std::end(encodings),
                        [word](const encoding& e) { return (word & e.mask) == e.value; })
        ->name;
}

std::uint32_t bits(std::uint32_t word, unsigned high, unsigned low)
{
    return word >> low & ((std::uint32_t{1} << (high - low + 1)) - 1);
}

bool bit(std::uint32_t word, unsigned number)
{
    return (word >> number & 1) != 0;
}

// The low `width` bits as a two's complement number.
std::int64_t signed_bits(std::uint32_t value, unsigned width)
{
    const std::int64_t sign = std::int64_t{1} << (width - 1);
    return (std::int64_t{value} ^ sign) - sign;
}

} // namespace

std::string_view instruction_name(std::uint32_t word)
{
    const unsigned group = group_of(word);
    if (is_load_or_store(word))
        return find_name(loads_and_stores, word);
    if ((group & 0xe) == 0x8)
        return find_name(data_processing_immediate, word);
    if ((group & 0xe) == 0xa)
        return find_name(branches_and_system, word);
    if ((group & 0x7) == 0x5)
        return find_name(data_processing_register, word);
    if ((group & 0x7) == 0x7)
        return find_name(floating_point_and_simd, word);
    return is_sve(word) ? find_name(sve, word) : find_name(reserved, word);
}
static bool is_sve_memory(std::uint32_t word)
{
    return is_sve(word) && bit(word, 31) && bits(word, 28, 27) == 0;
}

// Stores of SVE registers have bit 30 set, and are told from loads of 64-bit elements by bits 31 to 29 = 111.
static bool is_sve_store(std::uint32_t word)
{
    return is_sve_memory(word) && bits(word, 31, 29) == 7;
}

static bool is_exclusive_or_ordered(std::uint32_t word)
{
    return (word & 0x3f000000) == 0x08000000;
}

static bool is_pair(std::uint32_t word)
{
    return (word & 0x3a000000) == 0x28000000;
}

static bool is_structure(std::uint32_t word)
{
    return (word & 0xbe000000) == 0x0c000000;
}

static bool is_literal(std::uint32_t word)
{
    return (word & 0x3b000000) == 0x18000000;
}

static bool is_ordered_unscaled(std::uint32_t word)
{
    return (word & 0x3f200c00) == 0x19000000;
}

static bool is_tag_access(std::uint32_t word)
{
    return (word & 0xff200000) == 0xd9200000;
}

static bool is_single_register(std::uint32_t word)
{
    return (word & 0x3a000000) == 0x38000000;
}

static bool is_prefetch(std::uint32_t word)
{
    const bool of_size_and_operation = bits(word, 31, 30) == 3 && !bit(word, 26) && bits(word, 23, 22) == 2;
    const bool addressed = bit(word, 24) || (!bit(word, 21) && bits(word, 11, 10) == 0) ||
                           (bit(word, 21) && bits(word, 11, 10) == 2);
    return (is_single_register(word) && of_size_and_operation && addressed) ||
           (word & 0xff000000) == 0xd8000000;
}

static unsigned base_register(std::uint32_t word)
{
    return bits(word, 9, 5);
}

// What all forms have in common.
static memory_access access_of(std::uint32_t word, bool load, unsigned element_bytes, unsigned registers)
{
    memory_access access = {};
    access.load = load;
    access.store = !load;
    access.bytes = element_bytes * registers;
    access.element_bytes = element_bytes;
    access.registers = registers;
    access.first_register = bits(word, 4, 0);
    access.base = base_register(word);
    access.addressing = addressing_mode::offset;
    return access;
}

static std::optional<memory_access> decode_exclusive_or_ordered(std::uint32_t word)
{
    const bool ordered = bit(word, 23);
    const bool load = bit(word, 22);
    const bool pair_or_swap = bit(word, 21);
    unsigned element = 1U << bits(word, 31, 30);
    unsigned registers = 1;
    bool swap = false;
    if (pair_or_swap && ordered) { // CAS
        swap = true;
    } else if (pair_or_swap && !bit(word, 31)) { // CASP, whose size is in bit 30
        swap = true;
        element = bit(word, 30) ? 8 : 4;
        registers = 2;
    } else if (pair_or_swap) { // LDXP, STXP
        registers = 2;
    }
    memory_access access = access_of(word, load, element, registers);
    if (swap)
        access.load = access.store = true;
    access.faults_unaligned = true;
    return access;
}

static std::optional<memory_access> decode_pair(std::uint32_t word)
{
    const bool fp_simd = bit(word, 26);
    const unsigned opc = bits(word, 31, 30);
    if (opc == 3 || (opc == 1 && !fp_simd && !bit(word, 22))) // none, or STGP
        return std::nullopt;
    const unsigned element = fp_simd ? 4U << opc : opc == 2 ? 8 : 4;
    memory_access access = access_of(word, bit(word, 22), element, 2);
    access.fp_simd = fp_simd;
    access.sign_extended = opc == 1 && !fp_simd;
    access.offset = signed_bits(bits(word, 21, 15), 7) * element;
    switch (bits(word, 24, 23)) {
    case 1:
        access.addressing = addressing_mode::post_index;
        break;
    case 3:
        access.addressing = addressing_mode::pre_index;
        break;
    default: // the manual's offset and no-allocate forms
        break;
    }
    return access;
}

static std::optional<memory_access> decode_structure(std::uint32_t word)
{
    const bool load = bit(word, 22);
    const bool single = bit(word, 24);
    unsigned element = 0;
    unsigned registers = 0;
    if (single) {
        const unsigned opcode = bits(word, 15, 13);
        registers = 1 + bits(word, 21, 21) + 2 * (opcode & 1);
        if (opcode >= 6) { // to all lanes
            if (!load)
                return std::nullopt;
            element = 1U << bits(word, 11, 10);
        } else {
            element = opcode < 4 ? 1U << (opcode >> 1) : bit(word, 10) ? 8 : 4;
        }
    } else {
        switch (bits(word, 15, 12)) {
        case 0: // LD4
        case 2: // LD1
            registers = 4;
            break;
        case 4: // LD3
        case 6: // LD1
            registers = 3;
            break;
        case 7:
            registers = 1;
            break;
        case 8:  // LD2
        case 10: // LD1
            registers = 2;
            break;
        default:
            return std::nullopt;
        }
        element = bit(word, 30) ? 16 : 8;
    }
    memory_access access = access_of(word, load, element, registers);
    access.fp_simd = true;
    if (!single)
        access.element_bytes = 1U << bits(word, 11, 10);
    if (bit(word, 23)) {
        const bool by_immediate = bits(word, 20, 16) == 31;
        access.addressing = by_immediate ? addressing_mode::post_index : addressing_mode::post_register;
        access.offset = by_immediate ? access.bytes : 0;
    }
    return access;
}

static std::optional<memory_access> decode_single_register(std::uint32_t word)
{
    const unsigned size = bits(word, 31, 30);
    const bool fp_simd = bit(word, 26);
    const unsigned opc = bits(word, 23, 22);
    const bool unsigned_offset = bit(word, 24);
    const bool by_register = !unsigned_offset && bit(word, 21);
    const unsigned form = bits(word, 11, 10);
    if (is_prefetch(word))
        return std::nullopt;
    if (by_register && form == 0 && !fp_simd) { // LDADD and its kind, SWP, LDAPR
        const unsigned operation = bits(word, 15, 12);
        if (operation > 8 && operation != 12)
            return std::nullopt;
        memory_access access = access_of(word, true, 1U << size, 1);
        access.store = operation <= 8;
        access.faults_unaligned = true;
        return access;
    }
    if (by_register && (form & 1) != 0 && size == 3 && !fp_simd) { // LDRAA, LDRAB
        memory_access access = access_of(word, true, 8, 1);
        access.offset = signed_bits(bits(word, 22, 22) << 9 | bits(word, 20, 12), 10) * 8;
        if (bit(word, 11))
            access.addressing = addressing_mode::pre_index;
        return access;
    }
    if (by_register && form != 2)
        return std::nullopt;
    if (fp_simd && ((opc >= 2 && size != 0) || (form == 2 && !unsigned_offset && !by_register)))
        return std::nullopt;
    if (!fp_simd && ((size == 3 && opc >= 2) || (size == 2 && opc == 3)))
        return std::nullopt;
    const unsigned bytes = fp_simd && opc >= 2 ? 16 : 1U << size;
    memory_access access = access_of(word, fp_simd ? (opc & 1) != 0 : opc != 0, bytes, 1);
    access.fp_simd = fp_simd;
    access.sign_extended = !fp_simd && opc >= 2;
    if (unsigned_offset) {
        access.offset = std::int64_t{bits(word, 21, 10)} * bytes;
    } else if (by_register) {
        access.addressing = addressing_mode::register_index;
    } else {
        access.offset = signed_bits(bits(word, 20, 12), 9);
        if (form == 1)
            access.addressing = addressing_mode::post_index;
        if (form == 3)
            access.addressing = addressing_mode::pre_index;
    }
    return access;
}

std::optional<memory_access> decode_memory_access(std::uint32_t word)
{
    if (!is_load_or_store(word) || is_literal(word) || is_tag_access(word))
        return std::nullopt;
    if (is_exclusive_or_ordered(word))
        return decode_exclusive_or_ordered(word);
    if (is_pair(word))
        return decode_pair(word);
    if (is_structure(word))
        return decode_structure(word);
    if (is_ordered_unscaled(word)) {
        const unsigned opc = bits(word, 23, 22);
        memory_access access = access_of(word, opc != 0, 1U << bits(word, 31, 30), 1);
        access.offset = signed_bits(bits(word, 20, 12), 9);
        access.sign_extended = opc >= 2;
        access.faults_unaligned = true;
        return access;
    }
    if (is_single_register(word))
        return decode_single_register(word);
    return std::nullopt;
}

std::optional<memory_access> decode_literal_load(std::uint32_t word)
{
    const unsigned opc = bits(word, 31, 30);
    const bool fp_simd = bit(word, 26);
    if (!is_load_or_store(word) || !is_literal(word) || opc == 3)
        return std::nullopt;
    memory_access access = access_of(word, true, fp_simd ? 4U << opc : opc == 1 ? 8 : 4, 1);
    access.base = 0;
    access.fp_simd = fp_simd;
    access.sign_extended = opc == 2 && !fp_simd;
    access.offset = signed_bits(bits(word, 23, 5), 19) * 4;
    return access;
}

std::int64_t adr_displacement(std::uint32_t word)
{
    return signed_bits(bits(word, 23, 5) << 2 | bits(word, 30, 29), 21);
}

static bool is_branch_or_system(std::uint32_t word)
{
    return (group_of(word) & 0xe) == 0xa;
}

static bool is_branch(std::uint32_t word)
{
    return is_branch_or_system(word) && (word & 0xff000000) != 0xd5000000;
}

instruction_class instruction_class_of(std::uint32_t word)
{
    const unsigned group = group_of(word);
    if (is_load_or_store(word)) {
        if (is_prefetch(word))
            return instruction_class::other;
        if (const std::optional<memory_access> access = decode_memory_access(word))
            return access->load ? instruction_class::load : instruction_class::store;
        if (is_tag_access(word)) // LDG, LDGM; STG and its kind, of which STZG and STZ2G also store zeros
            return bit(word, 22) && bits(word, 11, 10) == 0 ? instruction_class::load
                                                            : instruction_class::store;
        return is_literal(word) || bit(word, 22) ? instruction_class::load : instruction_class::store;
    }
    if (is_branch_or_system(word))
        return is_branch(word) ? instruction_class::branch : instruction_class::other;
    if ((group & 0xe) == 0x8 || (group & 0x7) == 0x5)
        return instruction_class::integer;
    if ((group & 0x7) == 0x7)
        return instruction_class::fp_simd;
    if (is_sve_memory(word))
        return is_sve_store(word) ? instruction_class::store : instruction_class::load;
    return is_sve(word) ? instruction_class::fp_simd : instruction_class::other;
}

std::optional<std::int64_t> branch_displacement(std::uint32_t word)
{
    if ((word & 0x7c000000) == 0x14000000) // B, BL
        return signed_bits(bits(word, 25, 0), 26) * 4;
    if ((word & 0xff000000) == 0x54000000 || (word & 0x7e000000) == 0x34000000) // B.cond, CBZ, CBNZ
        return signed_bits(bits(word, 23, 5), 19) * 4;
    if ((word & 0x7e000000) == 0x36000000) // TBZ, TBNZ
        return signed_bits(bits(word, 18, 5), 14) * 4;
    if ((word & 0x7e000000) == 0x74000000) // CB<cc>, CBB<cc>, CBH<cc>
        return signed_bits(bits(word, 13, 5), 9) * 4;
    return std::nullopt;
}

bool is_call(std::uint32_t word)
{
    return (word & 0xfc000000) == 0x94000000 || (word & 0xfefff000) == 0xd63f0000;
}

bool ends_block(std::uint32_t word)
{
    return is_branch(word) || (word & 0xffff0000) == 0;
}

bool never_falls_through(std::uint32_t word)
{
    return (word & 0xfc000000) == 0x14000000 ||                           // B
           ((word & 0xfe000000) == 0xd6000000 && !is_call(word)) ||       // BR, RET, ERET and their kind
           (word & 0xffc0001f) == 0x5500001f ||                           // RETAASPPC, RETABSPPC
           (word & 0xffe0001f) == 0xd4200000 ||                           // BRK
           (word & 0xffe0001f) == 0xd4400000 || (word & 0xffff0000) == 0; // HLT, UDF
}

// A bit for a register; 31 is the zero register, which cannot be written. The second of a pair may be said to
// be 32, in a word that is no instruction.
static std::uint32_t general(unsigned number)
{
    return number >= 31 ? 0 : std::uint32_t{1} << number;
}

// A bit for a register; 31 is SP.
static std::uint32_t general_or_sp(unsigned number)
{
    return std::uint32_t{1} << number;
}

static constexpr std::uint32_t every_register = ~std::uint32_t{0};

static std::uint32_t written_by_load_or_store(std::uint32_t word)
{
    if (is_prefetch(word))
        return 0;
    const unsigned Rt = bits(word, 4, 0);
    if (is_literal(word))
        return bit(word, 26) ? 0 : general(Rt);
    const std::optional<memory_access> access = decode_memory_access(word);
    if (!access)
        return every_register;
    std::uint32_t written = 0;
    if (access->addressing == addressing_mode::pre_index ||
        access->addressing == addressing_mode::post_index ||
        access->addressing == addressing_mode::post_register)
        written |= general_or_sp(access->base);
    if (is_exclusive_or_ordered(word) && (!bit(word, 22) || access->store)) {
        // A store's status register, or what a compare and swap compares with and has found.
        const unsigned Rs = bits(word, 20, 16);
        const bool ordered_store = bit(word, 23) && !access->load;
        if (!ordered_store)
            written |=
                general(Rs) | (access->store && access->load && access->registers == 2 ? general(Rs + 1) : 0);
        if (access->load)
            return written;
    }
    if (access->load && !access->fp_simd) {
        written |= general(Rt);
        if (access->registers == 2)
            written |= general(bits(word, 14, 10));
    }
    return written;
}

static std::uint32_t written_by_branch_or_system(std::uint32_t word)
{
    const unsigned Rt = bits(word, 4, 0);
    if (is_call(word) || (word & 0xff000000) == 0xd4000000)
        return every_register;
    if (is_branch(word))
        return 0;
    if ((word & 0xfff00000) == 0xd5300000 || (word & 0xfff80000) == 0xd5280000) // MRS, SYSL
        return general(Rt);
    if ((word & 0xfffff01f) == 0xd503201f) { // hints, among them those that sign X17 and X30
        const unsigned hint = bits(word, 11, 5);
        if (hint == 7 || (hint >= 24 && hint < 32))
            return general(30);
        if (hint == 40) // CHKFEAT
            return general(16);
        return hint >= 8 && hint < 16 ? general(17) : 0;
    }
    if ((word & 0xfff00000) == 0xd5000000 || (word & 0xfff80000) == 0xd5080000 ||
        (word & 0xfff00000) == 0xd5100000) // barriers, MSR, SYS
        return bits(word, 15, 12) == 3 && bits(word, 19, 16) == 3 && Rt != 31 ? general(Rt) : 0; // or TSTART
    return every_register;
}

static std::uint32_t written_by_sve(std::uint32_t word)
{
    // Operations on whole vectors and predicates leave general registers alone; those that count, compute
    // with the vector's length or take an element out of a vector do not.
    const unsigned top = bits(word, 31, 24);
    if (top == 0x04)
        return bit(word, 21) && (bits(word, 15, 14) == 3 || bits(word, 15, 12) == 5) ? every_register : 0;
    if (top == 0x05)
        return bit(word, 21) && bits(word, 15, 13) == 5 ? every_register : 0;
    if (top == 0x25)
        return bit(word, 21) && bits(word, 15, 14) == 2 ? every_register : 0;
    return 0;
}

static std::uint32_t written_by_floating_point(std::uint32_t word)
{
    const bool from_fp =
        (word & 0x5f20fc00) == 0x1e200000 || (word & 0x5f200000) == 0x1e000000; // conversions
    const bool from_lane = (word & 0xbfe0ec00) == 0x0e002c00;                   // SMOV, UMOV
    return from_fp || from_lane ? general(bits(word, 4, 0)) : 0;
}

std::uint32_t written_registers(std::uint32_t word)
{
    const unsigned group = group_of(word);
    const unsigned Rd = bits(word, 4, 0);
    if (is_load_or_store(word))
        return written_by_load_or_store(word);
    if (is_branch_or_system(word))
        return written_by_branch_or_system(word);
    if ((group & 0xe) == 0x8) {
        const bool adds = (word & 0x3f000000) == 0x11000000 || (word & 0x3f800000) == 0x11800000; // also ADDG
        if ((word & 0xffc0001f) == 0xf380001f) // AUTIASPPC, AUTIBSPPC
            return general(30);
        const bool logical = (word & 0x1f800000) == 0x12000000 && bits(word, 30, 29) != 3;
        return adds || logical ? general_or_sp(Rd) : general(Rd);
    }
    if ((group & 0x7) == 0x5) {
        if ((word & 0x3fe00000) == 0x3a400000) // CCMP, CCMN, whose low bits are flags
            return 0;
        const bool to_sp = (word & 0x3fe00000) == 0x0b200000 || (word & 0xffe0fc00) == 0x9ac01000 || // IRG
                           (word & 0xbfe0e000) == 0x9a002000; // ADDPT, SUBPT
        return to_sp ? general_or_sp(Rd) : general(Rd);
    }
    if ((group & 0x7) == 0x7)
        return written_by_floating_point(word);
    return is_sve(word) ? written_by_sve(word) : every_register;
}

} // namespace vorna::workbench
