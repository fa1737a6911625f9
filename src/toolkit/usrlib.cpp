#include "toolkit/usrlib.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "toolkit/records.hpp"

namespace tervak {

void mzeror(double* a, int n) {
    for (int i = 0; i < n; ++i) a[i] = 0.0;
}

void mzeroi(int* a, int n) {
    for (int i = 0; i < n; ++i) a[i] = 0;
}

void setrval(double* a, int n, double v) {
    for (int i = 0; i < n; ++i) a[i] = v;
}

void setival(int* a, int n, int v) {
    for (int i = 0; i < n; ++i) a[i] = v;
}

void copyrvec(const double* a, double* b, int n) {
    for (int i = 0; i < n; ++i) b[i] = a[i];
}

void copyivec(const int* a, int* b, int n) {
    for (int i = 0; i < n; ++i) b[i] = a[i];
}

bool is0arr(const double* a, int n) {
    for (int i = 0; i < n; ++i)
        if (!(a[i] == 0.0)) return false;
    return true;
}

bool is0iarr(const int* a, int n) {
    for (int i = 0; i < n; ++i)
        if (a[i] != 0) return false;
    return true;
}

void mulvec(double* a, double f, int n) {
    for (int i = 0; i < n; ++i) a[i] = f * a[i];
}

void addvec(const double* a, const double* b, double fa, double fb, int n, double* c) {
    for (int i = 0; i < n; ++i) {
        const double fai = fa * a[i];
        const double fbi = fb * b[i];
        c[i] = fai + fbi;
    }
}

double dinprod(const double* a, const double* b, int n) {
    double r = 0.0;
    for (int i = 0; i < n; ++i) r = r + a[i] * b[i];
    return r;
}

void matvec(const double* A, int LA, const double* x, int n, double* y) {
    for (int i = 0; i < n; ++i) {
        double s = 0.0;
        for (int j = 0; j < n; ++j) s = s + A[i + j * LA] * x[j];
        y[i] = s;
    }
}

void matmat(const double* A, int LA, const double* B, int LB, int nRow, int nCol, int nSum,
            double* C, int LC) {
    for (int i = 0; i < nRow; ++i) {
        for (int j = 0; j < nCol; ++j) {
            double s = 0.0;
            for (int k = 0; k < nSum; ++k) s = s + A[i + k * LA] * B[k + j * LB];
            C[i + j * LC] = s;
        }
    }
}

void matmatsq(int n, const double* A, const double* B, double* C) {
    matmat(A, n, B, n, n, n, n, C, n);
}

void crossprod(const double* a, const double* b, double* c) {
    c[0] = a[1] * b[2] - a[2] * b[1];
    c[1] = a[2] * b[0] - a[0] * b[2];
    c[2] = a[0] * b[1] - a[1] * b[0];
}

double arcsin(double y, int& ierr) {
    ierr = 0;
    const double d = 1.0 - y * y;
    const double x = d >= 0.0 ? std::sqrt(d) : 0.0;
    return std::atan2(y, x);
}

bool lequal(double a, double b, double tol) {
    if (a == b) return true;
    return (std::fabs(a) + std::fabs(b) + tol) * (tol * 0.5) > std::fabs(a - b);
}

void setveclen(double* a, int n, double len) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s = s + a[i] * a[i];
    if (s == 0.0) return;
    const double f = len / std::sqrt(s);
    for (int i = 0; i < 3; ++i) a[i] = a[i] * f;
}

namespace {

// Work storage for the inversion: the sizes the library uses live on the
// stack; anything larger comes from the heap, with the run-time's messages.
constexpr int kStackN = 9;

[[noreturn]] void allocation_failure(const char* what) {
    std::fflush(stdout);
    std::fprintf(stderr, "At line 385 of file UsrLib\nFortran runtime error: %s\n", what);
    std::fflush(stderr);
    std::_Exit(1);
}

// Column k of one Gauss-Jordan step: the pivot search (a row replaces the
// candidate only when strictly larger), the exchange of rows k and p in both
// matrices, and the division of row k by the pivot.
void pivot_row(double* W, double* Ainv, int n, int k) {
    int p = k;
    for (int i = k + 1; i < n; ++i)
        if (std::fabs(W[i + k * n]) > std::fabs(W[p + k * n])) p = i;
    if (p != k) {
        for (int j = 0; j < n; ++j) {
            double t = W[k + j * n];
            W[k + j * n] = W[p + j * n];
            W[p + j * n] = t;
            t = Ainv[k + j * n];
            Ainv[k + j * n] = Ainv[p + j * n];
            Ainv[p + j * n] = t;
        }
    }
    const double pivot = W[k + k * n];
    for (int j = 0; j < n; ++j) {
        W[k + j * n] = W[k + j * n] / pivot;
        Ainv[k + j * n] = Ainv[k + j * n] / pivot;
    }
}

void gauss_jordan(double* W, double* Ainv, int n) {
    for (int k = 0; k < n; ++k) {
        pivot_row(W, Ainv, n, k);
        for (int i = 0; i < n; ++i) {
            if (i == k) continue;
            const double factor = W[i + k * n];
            for (int j = 0; j < n; ++j) {
                W[i + j * n] = W[i + j * n] - factor * W[k + j * n];
                Ainv[i + j * n] = Ainv[i + j * n] - factor * Ainv[k + j * n];
            }
        }
    }
}

}  // namespace

void matinvpiv(const double* A, double* Ainv, int n) {
    if (n == 3) return matinvpiv_fixed<3>(A, Ainv);
    if (n == 6) return matinvpiv_fixed<6>(A, Ainv);
    double stackWork[kStackN * kStackN];
    double* W = stackWork;
    bool heap = false;
    if (n > kStackN) {
        const unsigned long long count =
            static_cast<unsigned long long>(n) * static_cast<unsigned long long>(n);
        if (count > (1ULL << 61) - 1ULL)
            allocation_failure("Integer overflow when calculating the amount of memory to allocate");
        const unsigned long long bytes = count * sizeof(double);
        W = static_cast<double*>(std::malloc(static_cast<std::size_t>(bytes)));
        if (W == nullptr) {
            char msg[96];
            std::snprintf(msg, sizeof msg, "Error allocating %llu bytes", bytes);
            allocation_failure(msg);
        }
        heap = true;
    }
    const int nn = n > 0 ? n * n : 0;
    copyrvec(A, W, nn);
    mzeror(Ainv, nn);
    for (int i = 0; i < n; ++i) Ainv[i + i * n] = 1.0;
    gauss_jordan(W, Ainv, n);
    if (heap) std::free(W);
}

}  // namespace tervak
