// How the algorithms are found.
//
// Inputs i and n - i have the same cosine and opposite sines. So the sums p of such pairs give the even part
// e of the outputs, the differences q the odd part o, and y[k] = e[k] - j o[k], y[n - k] = e[k] + j o[k].
//
// For a prime n, the powers of a generator g order the indices 1 .. n-1 so that the rest of the DFT is a
// cyclic convolution (Rader); p and q make two convolutions of half its length. Each is computed modulo the
// irreducible factors of its polynomial (Winograd), where
//   modulo z - 1    it takes one product with the mean of the constants,
//   modulo z + 1    one product,
//   modulo z^2 + 1  three products instead of four:  a u + b v = b (u + v) + (a - b) u,
//                                                     b u - a v = b (u + v) - (a + b) v,
//   modulo z^2 + z + 1, where constants a + b + c = 0, three products again:
//                                  a u + b v + c w =  a (u - w) + b (v - w),
//                                  b u + c v + a w = -a (u - w) - c (u - v),
//                                  c u + a v + b w = -b (v - w) + c (u - v).
// For n = 9 the same is done with the indices not divisible by 3, and for n = 8 and 16 with the odd indices;
// the rest is a shorter DFT.

#include "examples/wfta_host/short_dft.hpp"

#include <cmath>

namespace wfta_host {
namespace {

step add(value to, value a, value b)
{
    return {operation::add, to, a, b, 0};
}

step sub(value to, value a, value b)
{
    return {operation::subtract, to, a, b, 0};
}

step mul(value to, long double constant, value a)
{
    return {operation::multiply, to, a, a, static_cast<double>(constant)};
}

step turn(value to, value a)
{
    return {operation::turn, to, a, a, 0};
}

long double angle(unsigned k, unsigned n)
{
    return 2 * std::acos(-1.0L) * k / n;
}

// Constants are combined before they are rounded to double.
long double cosine(unsigned k, unsigned n)
{
    return std::cos(angle(k, n));
}

long double sine(unsigned k, unsigned n)
{
    return std::sin(angle(k, n));
}

short_dft dft2()
{
    return {2, {add(y0, x0, x1), sub(y1, x0, x1)}};
}

short_dft dft3()
{
    return {3,
            {
                add(p1, x1, x2),
                sub(q1, x1, x2),
                add(y0, x0, p1),
                mul(m0, cosine(1, 3) - 1, p1),
                add(e1, y0, m0),
                mul(o1, sine(1, 3), q1),
                turn(r1, o1),
                add(y1, e1, r1),
                sub(y2, e1, r1),
            }};
}

short_dft dft4()
{
    return {4,
            {
                add(p0, x0, x2),
                sub(q0, x0, x2),
                add(p1, x1, x3),
                sub(q1, x1, x3),
                add(y0, p0, p1),
                sub(y2, p0, p1),
                turn(r1, q1),
                add(y1, q0, r1),
                sub(y3, q0, r1),
            }};
}

short_dft dft5()
{
    const long double cos1 = cosine(1, 5);
    const long double cos2 = cosine(2, 5);
    const long double sin1 = sine(1, 5);
    const long double sin2 = sine(2, 5);

    return {5,
            {
                add(p1, x1, x4),
                sub(q1, x1, x4),
                add(p2, x2, x3),
                sub(q2, x2, x3),

                add(s0, p1, p2),
                sub(s1, p1, p2),
                add(y0, x0, s0),
                mul(m0, (cos1 + cos2) / 2 - 1, s0),
                mul(m1, (cos1 - cos2) / 2, s1),
                add(e0, y0, m0),
                add(e1, e0, m1),
                sub(e2, e0, m1),

                add(s2, q1, q2),
                mul(m2, sin2, s2),
                mul(m3, sin1 - sin2, q1),
                mul(m4, sin1 + sin2, q2),
                add(o1, m2, m3),
                sub(o2, m2, m4),

                turn(r1, o1),
                add(y1, e1, r1),
                sub(y4, e1, r1),
                turn(r2, o2),
                add(y2, e2, r2),
                sub(y3, e2, r2),
            }};
}

// Generator 3: the indices are 1, 3, 2 and then, with the opposite sign of the sine, 6, 4, 5. With q3 negated
// the odd part becomes a cyclic convolution, which gives -o3.
short_dft dft7()
{
    const long double cos1 = cosine(1, 7);
    const long double cos2 = cosine(2, 7);
    const long double cos3 = cosine(3, 7);
    const long double cos_mean = (cos1 + cos2 + cos3) / 3;
    const long double sin1 = sine(1, 7);
    const long double sin2 = sine(2, 7);
    const long double sin3 = -sine(3, 7);
    const long double sin_mean = (sin1 + sin2 + sin3) / 3;

    return {7,
            {
                add(p1, x1, x6),
                sub(q1, x1, x6),
                add(p2, x2, x5),
                sub(q2, x2, x5),
                add(p3, x3, x4),
                sub(q3, x4, x3),

                add(s0, p1, p2),
                add(s1, s0, p3),
                add(y0, x0, s1),
                sub(s2, p1, p3),
                sub(s3, p2, p3),
                sub(s4, p1, p2),
                mul(m0, cos_mean - 1, s1),
                mul(m1, cos1 - cos_mean, s2),
                mul(m2, cos2 - cos_mean, s3),
                mul(m3, cos3 - cos_mean, s4),
                add(e0, y0, m0),
                add(e4, e0, m1),
                add(e1, e4, m2),
                sub(e5, e0, m1),
                sub(e2, e5, m3),
                sub(e6, e0, m2),
                add(e3, e6, m3),

                add(s5, q1, q2),
                add(s6, s5, q3),
                sub(s7, q1, q3),
                sub(s8, q2, q3),
                sub(s9, q1, q2),
                mul(o0, sin_mean, s6),
                mul(m5, sin1 - sin_mean, s7),
                mul(m6, sin2 - sin_mean, s8),
                mul(m7, sin3 - sin_mean, s9),
                add(o4, o0, m5),
                add(o1, o4, m6),
                sub(o5, o0, m5),
                sub(o2, o5, m7),
                sub(o6, o0, m6),
                add(o3, o6, m7),

                turn(r1, o1),
                add(y1, e1, r1),
                sub(y6, e1, r1),
                turn(r2, o2),
                add(y2, e2, r2),
                sub(y5, e2, r2),
                turn(r3, o3),
                sub(y3, e3, r3),
                add(y4, e3, r3),
            }};
}

short_dft dft8()
{
    return {8,
            {
                add(p0, x0, x4),
                sub(q0, x0, x4),
                add(p2, x2, x6),
                sub(q2, x2, x6),
                add(p1, x1, x5),
                sub(q1, x1, x5),
                add(p3, x3, x7),
                sub(q3, x3, x7),

                add(s0, p0, p2),
                sub(s1, p0, p2),
                add(s2, p1, p3),
                sub(s3, p1, p3),
                add(y0, s0, s2),
                sub(y4, s0, s2),
                turn(r2, s3),
                add(y2, s1, r2),
                sub(y6, s1, r2),

                sub(s4, q1, q3),
                add(s5, q1, q3),
                mul(m0, cosine(1, 8), s4),
                mul(m1, sine(1, 8), s5),
                add(e1, q0, m0),
                sub(e3, q0, m0),
                add(o1, m1, q2),
                sub(o3, m1, q2),

                turn(r1, o1),
                add(y1, e1, r1),
                sub(y7, e1, r1),
                turn(r3, o3),
                add(y3, e3, r3),
                sub(y5, e3, r3),
            }};
}

// Generator 2: the indices not divisible by 3 are 1, 2, 4 and then, with the opposite sign of the sine, 8, 7,
// 5. Cosines and signed sines of 1, 2 and 4 add up to zero, so nothing is left modulo z - 1. With q2 negated
// the odd part becomes a cyclic convolution, which gives -o2.
short_dft dft9()
{
    const long double cos1 = cosine(1, 9);
    const long double cos2 = cosine(2, 9);
    const long double cos4 = cosine(4, 9);
    const long double sin1 = sine(1, 9);
    const long double sin2 = -sine(2, 9);
    const long double sin4 = sine(4, 9);

    return {9,
            {
                add(p1, x1, x8),
                sub(q1, x1, x8),
                add(p2, x2, x7),
                sub(q2, x7, x2),
                add(p3, x3, x6),
                sub(q3, x3, x6),
                add(p4, x4, x5),
                sub(q4, x4, x5),

                add(s0, p1, p2),
                add(s1, s0, p4),
                add(s2, x0, p3),
                add(y0, s2, s1),
                mul(m0, cosine(3, 9), s1),
                add(e3, s2, m0),
                mul(m1, cosine(3, 9), p3),
                add(e0, x0, m1),
                sub(s3, p1, p4),
                sub(s4, p2, p4),
                sub(s5, p1, p2),
                mul(m2, cos1, s3),
                mul(m3, cos2, s4),
                mul(m4, cos4, s5),
                add(e5, e0, m2),
                add(e1, e5, m3),
                sub(e6, e0, m2),
                sub(e2, e6, m4),
                sub(e7, e0, m3),
                add(e4, e7, m4),

                add(s6, q1, q2),
                add(s7, s6, q4),
                mul(o3, sine(3, 9), s7),
                mul(o0, sine(3, 9), q3),
                sub(s8, q1, q4),
                sub(s9, q2, q4),
                sub(s10, q1, q2),
                mul(m5, sin1, s8),
                mul(m6, sin2, s9),
                mul(m7, sin4, s10),
                add(o5, o0, m5),
                add(o1, o5, m6),
                sub(o6, o0, m5),
                sub(o2, o6, m7),
                sub(o7, o0, m6),
                add(o4, o7, m7),

                turn(r1, o1),
                add(y1, e1, r1),
                sub(y8, e1, r1),
                turn(r2, o2),
                sub(y2, e2, r2),
                add(y7, e2, r2),
                turn(r3, o3),
                add(y3, e3, r3),
                sub(y6, e3, r3),
                turn(r4, o4),
                add(y4, e4, r4),
                sub(y5, e4, r4),
            }};
}

// p gives the even outputs, a DFT of 8 values, and q the odd ones: q[i] and q[8 - i] have opposite cosines
// and the same sine there, and outputs 7 and 5 differ from 1 and 3 only in signs.
short_dft dft16()
{
    const long double cos1 = cosine(1, 16);
    const long double cos2 = cosine(2, 16);
    const long double cos3 = cosine(3, 16);
    const long double sin1 = sine(1, 16);
    const long double sin2 = sine(2, 16);
    const long double sin3 = sine(3, 16);

    return {16,
            {
                add(p0, x0, x8),
                sub(q0, x0, x8),
                add(p4, x4, x12),
                sub(q4, x4, x12),
                add(p2, x2, x10),
                sub(q2, x2, x10),
                add(p6, x6, x14),
                sub(q6, x6, x14),
                add(p1, x1, x9),
                sub(q1, x1, x9),
                add(p5, x5, x13),
                sub(q5, x5, x13),
                add(p3, x3, x11),
                sub(q3, x3, x11),
                add(p7, x7, x15),
                sub(q7, x7, x15),

                add(s0, p0, p4),
                sub(s1, p0, p4),
                add(s2, p2, p6),
                sub(s3, p2, p6),
                add(s4, p1, p5),
                sub(s5, p1, p5),
                add(s6, p3, p7),
                sub(s7, p3, p7),
                add(s8, s0, s2),
                sub(s9, s0, s2),
                add(s10, s4, s6),
                sub(s11, s4, s6),
                add(y0, s8, s10),
                sub(y8, s8, s10),
                turn(r4, s11),
                add(y4, s9, r4),
                sub(y12, s9, r4),
                sub(s12, s5, s7),
                add(s13, s5, s7),
                mul(m0, cos2, s12),
                mul(m1, sin2, s13),
                add(e2, s1, m0),
                sub(e6, s1, m0),
                add(o2, m1, s3),
                sub(o6, m1, s3),
                turn(r2, o2),
                add(y2, e2, r2),
                sub(y14, e2, r2),
                turn(r6, o6),
                add(y6, e6, r6),
                sub(y10, e6, r6),

                sub(s14, q1, q7),
                add(s15, q1, q7),
                sub(s16, q2, q6),
                add(s17, q2, q6),
                sub(s18, q3, q5),
                add(s19, q3, q5),

                mul(m2, cos2, s16),
                add(s20, q0, m2),
                sub(s21, q0, m2),
                add(s22, s14, s18),
                mul(m3, cos3, s22),
                mul(m4, cos1 - cos3, s14),
                mul(m5, cos1 + cos3, s18),
                add(s23, m3, m4),
                sub(s24, m3, m5),
                add(e1, s20, s23),
                sub(e7, s20, s23),
                add(e3, s21, s24),
                sub(e5, s21, s24),

                mul(m6, sin2, s17),
                add(s25, m6, q4),
                sub(s26, m6, q4),
                add(s27, s15, s19),
                mul(m7, sin3, s27),
                mul(m8, sin1 - sin3, s15),
                mul(m9, sin1 + sin3, s19),
                add(s28, m7, m8),
                sub(s29, m7, m9),
                add(o1, s28, s25),
                sub(o7, s28, s25),
                add(o3, s29, s26),
                sub(o5, s29, s26),

                turn(r1, o1),
                add(y1, e1, r1),
                sub(y15, e1, r1),
                turn(r3, o3),
                add(y3, e3, r3),
                sub(y13, e3, r3),
                turn(r5, o5),
                add(y5, e5, r5),
                sub(y11, e5, r5),
                turn(r7, o7),
                add(y7, e7, r7),
                sub(y9, e7, r7),
            }};
}

} // namespace

const std::vector<short_dft>& short_dfts()
{
    static const std::vector<short_dft> all = {dft2(), dft3(), dft4(), dft5(),
                                               dft7(), dft8(), dft9(), dft16()};
    return all;
}

operation_count real_operations(const short_dft& dft)
{
    // Each step operates on both parts of a complex value.
    operation_count count{};
    for (const step& s : dft.steps) {
        if (s.op == operation::multiply)
            count.multiplications += 2;
        else if (s.op != operation::turn)
            count.additions += 2;
    }
    return count;
}

} // namespace wfta_host
