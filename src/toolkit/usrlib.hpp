// Dense vector and matrix primitives. Arrays are contiguous and column-major;
// sizes below 1 make every routine a no-operation unless stated.
#pragma once

#include <cmath>

namespace tervak {

void mzeror(double* a, int n);
void mzeroi(int* a, int n);
void setrval(double* a, int n, double v);
void setival(int* a, int n, int v);
void copyrvec(const double* a, double* b, int n);
void copyivec(const int* a, int* b, int n);
bool is0arr(const double* a, int n);
bool is0iarr(const int* a, int n);
void mulvec(double* a, double f, int n);
// c(i) = fa a(i) + fb b(i); c may be a or b.
void addvec(const double* a, const double* b, double fa, double fb, int n, double* c);
// r = sum a(i) b(i), from zero in ascending index.
double dinprod(const double* a, const double* b, int n);
void matvec(const double* A, int LA, const double* x, int n, double* y);
void matmat(const double* A, int LA, const double* B, int LB, int nRow, int nCol, int nSum,
            double* C, int LC);
void matmatsq(int n, const double* A, const double* B, double* C);
void crossprod(const double* a, const double* b, double* c);
double arcsin(double y, int& ierr);
bool lequal(double a, double b, double tol);
void setveclen(double* a, int n, double len);
// Gauss-Jordan inverse with partial pivoting by rows; no singularity test.
void matinvpiv(const double* A, double* Ainv, int n);

// False when an entry of x(1..n) is infinite or NaN: their sum is then
// infinite or NaN. A sum that overflows says false too, which only sends
// finite values down the general path of a caller.
inline bool all_finite(const double* x, int n) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s = s + x[i];
    return std::isfinite(s);
}

// Which NaN survives a sum or a product of two NaNs is the compiler's
// choice unless it is pinned: the operations below fix it, so that code
// that runs inline and unrolled keeps the NaN the library's results have
// always carried, wherever the compiler puts it.
namespace pinned {
// a * b, keeping a's NaN.
inline double mul(double a, double b) {
#if defined(__x86_64__) && defined(__SSE2__)
    asm("mulsd %1, %0" : "+x"(a) : "x"(b));
    return a;
#else
    return a * b;
#endif
}
// a + b, keeping a's NaN.
inline double add(double a, double b) {
#if defined(__x86_64__) && defined(__SSE2__)
    asm("addsd %1, %0" : "+x"(a) : "x"(b));
    return a;
#else
    return a + b;
#endif
}
// s + t, keeping t's NaN (a sum commutes in value; only the NaN it keeps
// tells s + t from t + s).
inline double add_term(double s, double t) { return add(t, s); }

#if defined(__x86_64__) && defined(__SSE2__)
// Two lanes at once, each lane as the scalar operation above.
typedef double Pair __attribute__((vector_size(16)));
inline Pair mul(Pair a, Pair b) {
    asm("mulpd %1, %0" : "+x"(a) : "x"(b));
    return a;
}
inline Pair add_term(Pair s, Pair t) {
    asm("addpd %1, %0" : "+x"(t) : "x"(s));
    return t;
}
#endif
}  // namespace pinned

// The elimination of matinvpiv for a size known at compile time (the 3x3
// matrices of every return-mapping pass, the 6x6 ones of the calibration),
// inline for the callers that invert every pass: the same pivot rule and the
// same operations on the same operands, element by element, so the same
// bits. The loops unroll into constant indices, the rows are held apart
// from the caller's arrays (the 3x3 ones in registers), and a row's entries
// go two at a time through the two lanes of a register; the order in which
// independent entries are visited is free.
namespace elimination {

// r(j) = r(j) / pivot for j = j0 .. N-1.
template <int N>
[[gnu::always_inline]] inline void divide(double (&r)[N], double pivot, int j0) {
    int j = j0;
#if defined(__x86_64__) && defined(__SSE2__)
    const pinned::Pair pivot2 = {pivot, pivot};
#pragma GCC unroll 6
    for (; j + 1 < N; j += 2) {
        const pinned::Pair q = pinned::Pair{r[j], r[j + 1]} / pivot2;
        r[j] = q[0];
        r[j + 1] = q[1];
    }
#endif
#pragma GCC unroll 6
    for (; j < N; ++j) r[j] = r[j] / pivot;
}

// ri(j) = ri(j) - rk(j) factor for j = j0 .. N-1; a product of two NaNs
// keeps rk's.
template <int N>
[[gnu::always_inline]] inline void subtract_multiple(double (&ri)[N], const double (&rk)[N],
                                                     double factor, int j0) {
    int j = j0;
#if defined(__x86_64__) && defined(__SSE2__)
    const pinned::Pair factor2 = {factor, factor};
#pragma GCC unroll 6
    for (; j + 1 < N; j += 2) {
        const pinned::Pair d =
            pinned::Pair{ri[j], ri[j + 1]} - pinned::mul(pinned::Pair{rk[j], rk[j + 1]}, factor2);
        ri[j] = d[0];
        ri[j + 1] = d[1];
    }
#endif
#pragma GCC unroll 6
    for (; j < N; ++j) ri[j] = ri[j] - pinned::mul(rk[j], factor);
}

// Only Ainv leaves the elimination, so the entries of the working matrix in
// columns already eliminated (j < k at step k, and the pivot's own column
// once the pivot is read) are not formed: nothing reads them again.
template <int N>
[[gnu::always_inline]] inline void eliminate(double (&w)[N][N], double (&x)[N][N]) {
#pragma GCC unroll 6
    for (int k = 0; k < N; ++k) {
        // The first strictly larger magnitude below row k takes the pivot.
        int p = k;
#pragma GCC unroll 6
        for (int i = k + 1; i < N; ++i)
            if (std::fabs(w[i][k]) > std::fabs(w[p][k])) p = i;
#pragma GCC unroll 6
        for (int i = k + 1; i < N; ++i) {
            if (p != i) continue;
#pragma GCC unroll 6
            for (int j = k; j < N; ++j) {
                const double tw = w[k][j];
                w[k][j] = w[i][j];
                w[i][j] = tw;
            }
#pragma GCC unroll 6
            for (int j = 0; j < N; ++j) {
                const double tx = x[k][j];
                x[k][j] = x[i][j];
                x[i][j] = tx;
            }
        }
        const double pivot = w[k][k];
        divide<N>(w[k], pivot, k + 1);
        divide<N>(x[k], pivot, 0);
        // Every row i other than k loses its column-k entry (taken before
        // the row changes) times row k.
#pragma GCC unroll 6
        for (int i = 0; i < N; ++i) {
            if (i == k) continue;
            const double factor = w[i][k];
            subtract_multiple<N>(w[i], w[k], factor, k + 1);
            subtract_multiple<N>(x[i], x[k], factor, 0);
        }
    }
}

}  // namespace elimination

template <int N>
[[gnu::always_inline]] inline void matinvpiv_fixed(const double* A, double* Ainv) {
    double w[N][N], x[N][N];
#pragma GCC unroll 6
    for (int i = 0; i < N; ++i)
#pragma GCC unroll 6
        for (int j = 0; j < N; ++j) {
            w[i][j] = A[i + j * N];
            x[i][j] = i == j ? 1.0 : 0.0;
        }
    elimination::eliminate<N>(w, x);
#pragma GCC unroll 6
    for (int j = 0; j < N; ++j)
#pragma GCC unroll 6
        for (int i = 0; i < N; ++i) Ainv[i + j * N] = x[i][j];
}

}  // namespace tervak
