#include "toolkit/principal.hpp"

#include <cmath>

#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"

namespace tervak {

namespace {

// Columns p and q of M turned by the rotation (c, s): M R.
void rotate_columns(Mat3& M, int p, int q, double c, double s) {
    for (int i = 1; i <= 3; ++i) {
        const double mip = M(i, p);
        const double miq = M(i, q);
        M(i, p) = c * mip - s * miq;
        M(i, q) = s * mip + c * miq;
    }
}

// Jacobi rotations on the symmetric matrix of S; V accumulates the
// rotations when wanted. Returns the diagonal in A and the columns in V.
void jacobi(const double* S, double threshold_factor, Mat3& A, Mat3* V) {
    A(1, 1) = S[0];
    A(2, 2) = S[1];
    A(3, 3) = S[2];
    A(1, 2) = S[3];
    A(2, 1) = S[3];
    A(2, 3) = S[4];
    A(3, 2) = S[4];
    A(1, 3) = S[5];
    A(3, 1) = S[5];
    if (V) {
        *V = Mat3{};
        (*V)(1, 1) = 1.0;
        (*V)(2, 2) = 1.0;
        (*V)(3, 3) = 1.0;
    }
    // The largest magnitude: m is never NaN and never -0 (it starts at +0 and
    // takes only magnitudes), so a plain comparison is fmax here, NaN
    // entries skipped as fmax skips them.
    double m = 0.0;
    for (int i = 0; i < 6; ++i) {
        const double a = std::fabs(S[i]);
        if (a > m) m = a;
    }
    const double t = m * threshold_factor;

    static constexpr int kPairs[3][2] = {{1, 2}, {2, 3}, {1, 3}};
    for (int sweep = 0; sweep < 50; ++sweep) {
        const double off = std::fabs(A(1, 2)) + std::fabs(A(2, 3)) + std::fabs(A(1, 3));
        if (off <= t) break;
        for (const auto& pq : kPairs) {
            const int p = pq[0];
            const int q = pq[1];
            if (A(p, q) == 0.0) continue;
            const double theta = (A(q, q) - A(p, p)) / (2.0 * A(p, q));
            const double sgn = theta >= 0.0 ? 1.0 : -1.0;
            const double tr = sgn / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
            const double c = 1.0 / std::sqrt(tr * tr + 1.0);
            const double s = tr * c;
            // Rows p and q first (R^T A), then columns p and q (... R).
            for (int j = 1; j <= 3; ++j) {
                const double apj = A(p, j);
                const double aqj = A(q, j);
                A(p, j) = c * apj - s * aqj;
                A(q, j) = s * apj + c * aqj;
            }
            rotate_columns(A, p, q, c, s);
            if (V) rotate_columns(*V, p, q, c, s);
        }
    }
}

// Stable ascending order of the diagonal: an entry moves only when strictly
// out of order, so equal values keep their input order.
void sort3(double s[3], int idx[3]) {
    auto swap = [&](int a, int b) {
        double t = s[a];
        s[a] = s[b];
        s[b] = t;
        int k = idx[a];
        idx[a] = idx[b];
        idx[b] = k;
    };
    if (s[0] > s[1]) swap(0, 1);
    if (s[1] > s[2]) {
        swap(1, 2);
        if (s[0] > s[1]) swap(0, 1);
    }
}

// The diagonal of the rotated matrix in ascending order (idx: the column
// each value came from), P and Q of the unsorted values.
void sorted_values(const Mat3& A, int idx[3], double& S1, double& S2, double& S3, double& P,
                   double& Q) {
    double s[3] = {A(1, 1), A(2, 2), A(3, 3)};
    P = (s[0] + s[1] + s[2]) / 3.0;
    const double d12 = s[0] - s[1];
    const double d23 = s[1] - s[2];
    const double d31 = s[2] - s[0];
    Q = std::sqrt((d12 * d12 + d23 * d23 + d31 * d31) / 2.0);
    sort3(s, idx);
    S1 = s[0];
    S2 = s[1];
    S3 = s[2];
}

}  // namespace

void eig_3(int /*iOpt*/, const double* S, double* xN1, double* xN2, double* xN3, double& S1,
           double& S2, double& S3, double& P, double& Q) {
    Mat3 A, V;
    jacobi(S, 1e-20, A, &V);
    int idx[3] = {1, 2, 3};
    sorted_values(A, idx, S1, S2, S3, P, Q);
    double* out[3] = {xN1, xN2, xN3};
    for (int k = 0; k < 3; ++k)
        for (int i = 1; i <= 3; ++i) out[k][i - 1] = V(i, idx[k]);
}

void eig_3a(int iOpt, const double* S, double& S1, double& S2, double& S3, double& P,
            double& Q) {
    Mat3 A;
    jacobi(S, iOpt == 1 ? 1e-50 : 1e-20, A, nullptr);
    int idx[3] = {1, 2, 3};
    sorted_values(A, idx, S1, S2, S3, P, Q);
}

void prnsig(int IOpt, const double* S, double* xN1, double* xN2, double* xN3, double& S1,
            double& S2, double& S3, double& P, double& Q) {
    if (IOpt == 1)
        eig_3(0, S, xN1, xN2, xN3, S1, S2, S3, P, Q);
    else
        eig_3a(0, S, S1, S2, S3, P, Q);
}

namespace {

Vec3 negated(double S1, double S2, double S3) {
    Vec3 Prs;
    Prs(1) = -S1;
    Prs(2) = -S2;
    Prs(3) = -S3;
    return Prs;
}

}  // namespace

Vec3 compression_triple(const double* S) {
    double S1 = 0.0, S2 = 0.0, S3 = 0.0, P = 0.0, Q = 0.0;
    eig_3a(0, S, S1, S2, S3, P, Q);
    return negated(S1, S2, S3);
}

Vec3 compression_triple(const double* S, double (&xN)[3][3]) {
    double S1 = 0.0, S2 = 0.0, S3 = 0.0, P = 0.0, Q = 0.0;
    prnsig(1, S, xN[0], xN[1], xN[2], S1, S2, S3, P, Q);
    return negated(S1, S2, S3);
}

namespace {

// The six stress components of the symmetric matrix B(i, j) (1-based).
template <class Entry>
void stress_vector(const Entry& B, double* Sig) {
    Sig[0] = B(1, 1);
    Sig[1] = B(2, 2);
    Sig[2] = B(3, 3);
    Sig[3] = B(2, 1);
    Sig[4] = B(3, 2);
    Sig[5] = B(3, 1);
}

}  // namespace

void carsig(double S1, double S2, double S3, const double* xN1, const double* xN2,
            const double* xN3, double* Sig) {
    const double* cols[3] = {xN1, xN2, xN3};
    const double Sk[3] = {S1, S2, S3};
    if (all_finite(Sk, 3) && all_finite(xN1, 3) && all_finite(xN2, 3) && all_finite(xN3, 3)) {
        // E (Sd Et) with matmat's result, formed from the entries that count.
        // Sd is diagonal: the products with its zero entries are +-0 and
        // leave a running sum as it is (it starts at +0, and a sum rounded to
        // nearest is -0 only when both terms are), so T(k,j) = 0 + S_k E(j,k).
        // Of B = E T only the six returned entries are formed. With finite
        // input the only NaN that can arise is the processor's default one,
        // so the compiler's operand order cannot change a bit.
        double T[3][3];  // T[k][j] = T(k+1, j+1)
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 3; ++j) T[k][j] = 0.0 + Sk[k] * cols[k][j];
        stress_vector(
            [&](int i, int j) {
                double s = 0.0;
                for (int k = 0; k < 3; ++k) s = s + cols[k][i - 1] * T[k][j - 1];
                return s;
            },
            Sig);
        return;
    }
    Mat3 Sd, E, Et, T, B;
    Sd(1, 1) = S1;
    Sd(2, 2) = S2;
    Sd(3, 3) = S3;
    for (int j = 1; j <= 3; ++j)
        for (int i = 1; i <= 3; ++i) {
            E(i, j) = cols[j - 1][i - 1];
            Et(j, i) = cols[j - 1][i - 1];
        }
    matmat(Sd.data(), 3, Et.data(), 3, 3, 3, 3, T.data(), 3);
    matmat(E.data(), 3, T.data(), 3, 3, 3, 3, B.data(), 3);
    stress_vector(B, Sig);
}

}  // namespace tervak
