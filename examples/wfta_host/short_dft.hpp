// Winograd's short DFT algorithms as plain data: lists of steps on complex values.
#pragma once

#include <cstdint>
#include <vector>

namespace wfta_host {

/// Names of the complex values of an algorithm. The letters say what a value is:
///   x  input                              y  output
///   p  sum of inputs                      q  difference of inputs
///   s  sum or difference of p's or q's    m  product with a constant
///   e  even part of outputs (cosines)     o  odd part of outputs (sines)
///   r  odd part multiplied by -j: -j o
// clang-format off
enum value : std::uint8_t {
    x0, x1, x2, x3, x4, x5, x6, x7, x8, x9, x10, x11, x12, x13, x14, x15,
    y0, y1, y2, y3, y4, y5, y6, y7, y8, y9, y10, y11, y12, y13, y14, y15,
    p0, p1, p2, p3, p4, p5, p6, p7,
    q0, q1, q2, q3, q4, q5, q6, q7,
    s0, s1, s2, s3, s4, s5, s6, s7, s8, s9, s10, s11, s12, s13, s14,
    s15, s16, s17, s18, s19, s20, s21, s22, s23, s24, s25, s26, s27, s28, s29,
    m0, m1, m2, m3, m4, m5, m6, m7, m8, m9,
    e0, e1, e2, e3, e4, e5, e6, e7,
    o0, o1, o2, o3, o4, o5, o6, o7,
    r0, r1, r2, r3, r4, r5, r6, r7,
    value_count
};
// clang-format on

enum class operation : std::uint8_t {
    add,      ///< to = a + b
    subtract, ///< to = a - b
    multiply, ///< to = constant * a, the constant being real
    turn,     ///< to = -j a: real and imaginary part change places and one changes its sign
};

/// One step of an algorithm. `b` is used by add and subtract only, `constant` by multiply only.
struct step {
    operation op;
    value to;
    value a;
    value b;
    double constant;
};

/// The algorithm of one length: computes y[k] = sum over i of x[i] exp(-2 pi j i k / length). Every value is
/// computed once, before it is used.
struct short_dft {
    unsigned length;
    std::vector<step> steps;
};

/// All algorithms, by ascending length: 2, 3, 4, 5, 7, 8, 9 and 16. They live as long as the process.
const std::vector<short_dft>& short_dfts();

/// Operations on real numbers.
struct operation_count {
    unsigned multiplications;
    unsigned additions; ///< subtractions included
};

/// Counts the real operations of `dft` for complex input.
operation_count real_operations(const short_dft& dft);

} // namespace wfta_host
