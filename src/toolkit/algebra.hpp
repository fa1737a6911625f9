// Algebra on the value types of toolkit/types.hpp, in the library's fixed
// order of operations. This is the one place that order is written down:
//
//   A * x, A * B   each entry a sum from zero in ascending index k,
//                  s = s + A(i,k) x(k)  (matmat's order)
//   dot(a, b)      s = s + a(i) b(i) from zero, i ascending (dinprod's order)
//   comb(a, b, fa, fb)
//                  fa a(i) + fb b(i), entry by entry: two products, one sum
//                  (addvec's order); a combination of several vectors is one
//                  comb after another, never a regrouped sum
//   inverse(A)     matinvpiv's Gauss-Jordan elimination (its 3x3 path, inline)
//
// Each operation rounds once; nothing is fused (the build forbids
// contraction) and nothing is reordered, so finite results do not depend on
// the compiler. Which operand's NaN survives a sum or a product of two NaNs
// is the compiler's choice (it may commute either), so code that already
// ran through the toolkit's out-of-line routines (addvec, matvec) keeps
// them, and the products and sums of A * x and dot, which run unrolled and
// inline, pin the NaN they keep (pinned::).
#pragma once

#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"

namespace tervak {

inline Vec3 operator*(const Mat3& A, const Vec3& x) {
    Vec3 y;
#if defined(__x86_64__) && defined(__SSE2__)
    // Rows 1 and 2 side by side (adjacent in a column), row 3 alone.
    pinned::Pair s12 = {0.0, 0.0};
    double s3 = 0.0;
#pragma GCC unroll 3
    for (int k = 1; k <= 3; ++k) {
        const pinned::Pair a12 = {A(1, k), A(2, k)};
        const pinned::Pair xk = {x(k), x(k)};
        s12 = pinned::add_term(s12, pinned::mul(a12, xk));
        s3 = pinned::add_term(s3, pinned::mul(A(3, k), x(k)));
    }
    y(1) = s12[0];
    y(2) = s12[1];
    y(3) = s3;
#else
    for (int i = 1; i <= 3; ++i) {
        double s = 0.0;
        for (int k = 1; k <= 3; ++k) s = pinned::add_term(s, pinned::mul(A(i, k), x(k)));
        y(i) = s;
    }
#endif
    return y;
}

inline Mat3 operator*(const Mat3& A, const Mat3& B) {
    Mat3 C;
    for (int j = 1; j <= 3; ++j)
        for (int i = 1; i <= 3; ++i) {
            double s = 0.0;
            for (int k = 1; k <= 3; ++k) s = s + A(i, k) * B(k, j);
            C(i, j) = s;
        }
    return C;
}

inline double dot(const Vec3& a, const Vec3& b) {
    double s = 0.0;
#pragma GCC unroll 3
    for (int i = 1; i <= 3; ++i) s = pinned::add_term(s, pinned::mul(a(i), b(i)));
    return s;
}

inline Vec3 comb(const Vec3& a, const Vec3& b, double fa, double fb) {
    Vec3 c;
    for (int i = 0; i < 3; ++i) c.v[i] = fa * a.v[i] + fb * b.v[i];
    return c;
}
inline Mat3 comb(const Mat3& a, const Mat3& b, double fa, double fb) {
    Mat3 c;
    for (int i = 0; i < 9; ++i) c.a[i] = fa * a.a[i] + fb * b.a[i];
    return c;
}
inline Vec6 comb(const Vec6& a, const Vec6& b, double fa, double fb) {
    Vec6 c;
    for (int i = 0; i < 6; ++i) c.v[i] = fa * a.v[i] + fb * b.v[i];
    return c;
}

// a - b entry by entry (a single rounding per entry, as addvec with 1, -1
// gives for finite values).
inline Vec3 operator-(const Vec3& a, const Vec3& b) { return comb(a, b, 1.0, -1.0); }

// Deliberate: a term the law writes with weight zero. It adds nothing to a
// finite value and turns an infinite or NaN one into NaN, as written.
inline double zero_weighted(double x) { return x * 0.0; }

inline Mat3 identity3() {
    Mat3 I;
    I(1, 1) = 1.0;
    I(2, 2) = 1.0;
    I(3, 3) = 1.0;
    return I;
}

// matinvpiv's 3x3 elimination, inline.
[[gnu::always_inline]] inline Mat3 inverse(const Mat3& A) {
    Mat3 Ainv;
    matinvpiv_fixed<3>(A.data(), Ainv.data());
    return Ainv;
}

}  // namespace tervak
