// The few A64 instructions that the tests' kernels consist of, encoded as the Arm Architecture Reference
// Manual shows them. Registers are numbers: 0 to 30 for X0 to X30, 31 for SP in ADD, LDP and STP.
// Operands are not checked.
#pragma once

#include <cstdint>

namespace support::a64 {

using word = std::uint32_t;

constexpr unsigned frame_pointer = 29;
constexpr unsigned link_register = 30;
constexpr unsigned stack_pointer = 31;

/// RET
constexpr word ret()
{
    return 0xd65f03c0;
}

/// NOP
constexpr word nop()
{
    return 0xd503201f;
}

/// ADR Xd, .+0, for a relocation to fill
constexpr word adr(unsigned d)
{
    return 0x10000000 | d;
}

/// ADRP Xd, the page of the instruction, for a relocation to fill
constexpr word adrp(unsigned d)
{
    return 0x90000000 | d;
}

/// ADD Xd, Xn, #imm (0 to 4095)
constexpr word add(unsigned d, unsigned n, unsigned imm)
{
    return 0x91000000 | imm << 10 | n << 5 | d;
}

/// ADD Xd, Xn, Xm
constexpr word add_register(unsigned d, unsigned n, unsigned m)
{
    return 0x8b000000 | m << 16 | n << 5 | d;
}

/// BL .+0, for a relocation to fill
constexpr word bl()
{
    return 0x94000000;
}

/// MOVZ Xd, #imm (0 to 65535)
constexpr word movz(unsigned d, unsigned imm)
{
    return 0xd2800000 | imm << 5 | d;
}

/// MOV Xd, Xm (ORR Xd, XZR, Xm)
constexpr word mov(unsigned d, unsigned m)
{
    return 0xaa0003e0 | m << 16 | d;
}

/// LDR Xt, [Xn]
constexpr word ldr(unsigned t, unsigned n)
{
    return 0xf9400000 | n << 5 | t;
}

/// SUB Xd, Xn, #imm (0 to 4095)
constexpr word sub(unsigned d, unsigned n, unsigned imm)
{
    return 0xd1000000 | imm << 10 | n << 5 | d;
}

/// CBZ Xt, .+4*words
constexpr word cbz(unsigned t, unsigned words)
{
    return 0xb4000000 | words << 5 | t;
}

/// STP Xa, Xb, [SP, #-16]!
constexpr word push(unsigned a, unsigned b)
{
    return 0xa9bf0000 | b << 10 | stack_pointer << 5 | a;
}

/// LDP Xa, Xb, [SP], #16
constexpr word pop(unsigned a, unsigned b)
{
    return 0xa8c10000 | b << 10 | stack_pointer << 5 | a;
}

} // namespace support::a64
