// The numerical toolkit: the contracts callers lean on (aliasing, empty
// sizes, the deliberate quirks) and independent checks of the inversion,
// the principal stresses and the elastic matrices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/test_support.hpp"
#include "support/kernel_calls.hpp"
#include "toolkit/elastic.hpp"
#include "toolkit/principal.hpp"
#include "toolkit/types.hpp"
#include "toolkit/usrlib.hpp"

namespace {

using namespace tervak;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// ---------------------------------------------------------------- primitives

TEST(Primitives, AddvecMayWriteOverEitherInput) {
    const double a0[4] = {1.5, -2.0, 3.25, 1e300};
    const double b0[4] = {0.5, 7.0, -1.0, 1e300};
    double expect[4];
    for (int i = 0; i < 4; ++i) expect[i] = 1.0 * a0[i] + -0.25 * b0[i];

    double a[4], b[4];
    std::memcpy(a, a0, sizeof a);
    addvec(a, b0, 1.0, -0.25, 4, a);  // x = x + f y
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(same_bits(a[i], expect[i])) << i;

    std::memcpy(b, b0, sizeof b);
    addvec(a0, b, 1.0, -0.25, 4, b);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(same_bits(b[i], expect[i])) << i;

    // All three the same array: each element from the inputs before storing.
    std::memcpy(a, a0, sizeof a);
    addvec(a, a, -1.0, 1.0, 4, a);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(a[i], 0.0);
}

TEST(Primitives, EmptySizesWriteNothingOrTheStatedValue) {
    double sentinel[4] = {7, 7, 7, 7};
    mzeror(sentinel, 0);
    setrval(sentinel, -3, 1.0);
    mulvec(sentinel, 0.0, 0);
    EXPECT_EQ(sentinel[0], 7.0);
    EXPECT_EQ(dinprod(sentinel, sentinel, 0), 0.0);
    EXPECT_EQ(dinprod(sentinel, sentinel, -5), 0.0);
    EXPECT_TRUE(is0arr(sentinel, 0));
    const int iv[2] = {1, 2};
    EXPECT_TRUE(is0iarr(iv, 0));
    EXPECT_FALSE(is0iarr(iv, 1));
}

TEST(Primitives, MatmatLeadingDimensionsAndEmptySum) {
    // A is 2x3 stored with LA = 4, B is 3x2 with LB = 3, C written with LC = 5.
    const double A[12] = {1, 2, 99, 99, 3, 4, 99, 99, 5, 6, 99, 99};
    const double B[6] = {1, 0, 2, -1, 3, 1};
    double C[10];
    for (double& c : C) c = -7.0;
    matmat(A, 4, B, 3, 2, 2, 3, C, 5);
    // Rows of A: (1,3,5), (2,4,6); columns of B: (1,0,2), (-1,3,1).
    EXPECT_EQ(C[0], 11.0);
    EXPECT_EQ(C[1], 14.0);
    EXPECT_EQ(C[5], 13.0);
    EXPECT_EQ(C[6], 16.0);
    EXPECT_EQ(C[2], -7.0);  // below nRow, inside LC: untouched
    EXPECT_EQ(C[7], -7.0);

    matmat(A, 4, B, 3, 2, 2, 0, C, 5);
    EXPECT_EQ(C[0], 0.0);
    EXPECT_EQ(C[1], 0.0);
    EXPECT_EQ(C[5], 0.0);
    EXPECT_EQ(C[6], 0.0);
    EXPECT_EQ(C[2], -7.0);

    for (double& c : C) c = -7.0;
    matmat(A, 4, B, 3, 0, 2, 3, C, 5);
    matmat(A, 4, B, 3, 2, 0, 3, C, 5);
    for (double c : C) EXPECT_EQ(c, -7.0);

    // matvec and the one-column product agree; matmatsq is A*B, not A^T*B.
    const double M[9] = {1, 4, 7, 2, 5, 8, 3, 6, 10};
    const double x[3] = {1, -1, 2};
    double y1[3], y2[3], P[9];
    matvec(M, 3, x, 3, y1);
    matmat(M, 3, x, 3, 3, 1, 3, y2, 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(y1[i], y2[i]);
    EXPECT_EQ(y1[0], 1 - 2 + 6.0);
    const double I3[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const double N[9] = {0, 1, 0, 0, 0, 1, 1, 0, 0};  // a permutation
    matmatsq(3, M, I3, P);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(P[i], M[i]);
    matmatsq(3, M, N, P);
    // column j of M*N is M times column j of N
    EXPECT_EQ(P[0], M[3]);
    EXPECT_EQ(P[3], M[6]);
    EXPECT_EQ(P[6], M[0]);
}

TEST(Primitives, CrossProductIsOrthogonalAndRightHanded) {
    const double e1[3] = {1, 0, 0}, e2[3] = {0, 1, 0};
    double c[3];
    crossprod(e1, e2, c);
    EXPECT_EQ(c[0], 0.0);
    EXPECT_EQ(c[1], 0.0);
    EXPECT_EQ(c[2], 1.0);
    const double a[3] = {2, -3, 5}, b[3] = {-1, 4, 2};
    crossprod(a, b, c);
    EXPECT_EQ(dinprod(a, c, 3), 0.0);
    EXPECT_EQ(dinprod(b, c, 3), 0.0);
    EXPECT_EQ(c[0], -3.0 * 2 - 5.0 * 4);
}

TEST(Primitives, ArcsinClipsAndAlwaysReportsSuccess) {
    const double pi2 = std::atan2(1.0, 0.0);
    int ierr = 7;
    EXPECT_EQ(arcsin(1.0 + 1e-12, ierr), pi2);
    EXPECT_EQ(ierr, 0);
    ierr = 7;
    EXPECT_EQ(arcsin(-3.0, ierr), -pi2);
    EXPECT_EQ(ierr, 0);
    EXPECT_EQ(arcsin(1.0, ierr), pi2);
    EXPECT_NEAR(arcsin(0.5, ierr), std::asin(0.5), 1e-15);
    EXPECT_NEAR(arcsin(-0.3, ierr), std::asin(-0.3), 1e-15);
}

TEST(Primitives, LequalIsRelativeWithAnAbsoluteFloor) {
    EXPECT_TRUE(lequal(1.0, 1.0 + 1e-13, 1e-12));
    EXPECT_FALSE(lequal(0.0, 1e-12, 1e-12));
    EXPECT_TRUE(lequal(0.0, 1e-25, 1e-12));
    EXPECT_TRUE(lequal(1e6, 1e6 * (1 + 1e-13), 1e-12));
    EXPECT_FALSE(lequal(1e6, 1e6 * (1 + 1e-11), 1e-12));
    EXPECT_TRUE(lequal(kInf, kInf, 0.0));  // exact equality first
    EXPECT_FALSE(lequal(kNaN, kNaN, 1.0));
    EXPECT_TRUE(lequal(-0.0, 0.0, 0.0));
}

TEST(Primitives, Is0arrNaNIsNotZeroMinusZeroIs) {
    const double z[3] = {0.0, -0.0, 0.0};
    EXPECT_TRUE(is0arr(z, 3));
    const double n[3] = {0.0, kNaN, 0.0};
    EXPECT_FALSE(is0arr(n, 3));
    EXPECT_TRUE(is0arr(n, 1));
    const double t[2] = {0.0, 1e-320};
    EXPECT_FALSE(is0arr(t, 2));
}

TEST(Primitives, SetveclenMeasuresAllScalesThree) {
    double a[6] = {3, 4, 0, 0, 0, 12};  // length 13 over six components
    setveclen(a, 6, 26.0);
    EXPECT_EQ(a[0], 6.0);
    EXPECT_EQ(a[1], 8.0);
    EXPECT_EQ(a[2], 0.0);
    EXPECT_EQ(a[5], 12.0);  // measured, not scaled
    double z[3] = {0.0, -0.0, 0.0};
    setveclen(z, 3, 5.0);
    EXPECT_TRUE(same_bits(z[1], -0.0));
    double v[3] = {1, 2, 2};
    setveclen(v, 3, 1.0);
    EXPECT_NEAR(std::sqrt(dinprod(v, v, 3)), 1.0, 1e-15);
}

// ----------------------------------------------------------------- inversion

// Gauss-Jordan as stated, with the pivot rule as a parameter: the first of
// equal magnitudes wins, or (firstWins = false) the last. The test checks
// that the library agrees bit for bit with the first and that matrices with
// ties exist on which the last would differ.
std::vector<double> gauss_jordan(const std::vector<double>& A, int n, bool firstWins) {
    std::vector<double> W = A, X(static_cast<std::size_t>(n * n), 0.0);
    auto w = [&](int i, int j) -> double& { return W[static_cast<std::size_t>(i + j * n)]; };
    auto x = [&](int i, int j) -> double& { return X[static_cast<std::size_t>(i + j * n)]; };
    for (int i = 0; i < n; ++i) x(i, i) = 1.0;
    for (int k = 0; k < n; ++k) {
        int p = k;
        for (int i = k + 1; i < n; ++i) {
            const double c = std::fabs(w(i, k)), b = std::fabs(w(p, k));
            if (firstWins ? c > b : c >= b) p = i;
        }
        if (p != k)
            for (int j = 0; j < n; ++j) {
                std::swap(w(k, j), w(p, j));
                std::swap(x(k, j), x(p, j));
            }
        const double piv = w(k, k);
        for (int j = 0; j < n; ++j) {
            w(k, j) = w(k, j) / piv;
            x(k, j) = x(k, j) / piv;
        }
        for (int i = 0; i < n; ++i) {
            if (i == k) continue;
            const double f = w(i, k);
            for (int j = 0; j < n; ++j) {
                w(i, j) = w(i, j) - f * w(k, j);
                x(i, j) = x(i, j) - f * x(k, j);
            }
        }
    }
    return X;
}

TEST(Inversion, PermutationIsItsOwnInverse) {
    const double A[4] = {0, 1, 1, 0};
    double X[4];
    matinvpiv(A, X, 2);
    EXPECT_EQ(X[0], 0.0);
    EXPECT_EQ(X[1], 1.0);
    EXPECT_EQ(X[2], 1.0);
    EXPECT_EQ(X[3], 0.0);
}

TEST(Inversion, FirstOfEqualPivotsWins) {
    std::mt19937 rng(12345u);
    const double pool[] = {-3, -2, -1, 1, 2, 3, 0.5, -0.5};
    int discriminating = 0;
    for (int trial = 0; trial < 400; ++trial) {
        const int n = 3 + trial % 3;
        std::vector<double> A(static_cast<std::size_t>(n * n));
        for (double& a : A) a = pool[rng() % 8];
        std::vector<double> X(A.size());
        matinvpiv(A.data(), X.data(), n);
        const auto first = gauss_jordan(A, n, true);
        const auto last = gauss_jordan(A, n, false);
        bool differs = false;
        for (std::size_t i = 0; i < A.size(); ++i) {
            ASSERT_TRUE(same_bits(X[i], first[i]) || (std::isnan(X[i]) && std::isnan(first[i])))
                << "trial " << trial << " entry " << i;
            if (!same_bits(first[i], last[i])) differs = true;
        }
        discriminating += differs;
    }
    EXPECT_GT(discriminating, 20);
}

TEST(Inversion, RandomMatricesTimesTheirInverseGiveIdentity) {
    std::mt19937_64 rng(777u);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int n = 1; n <= 12; ++n) {  // past nine also exercises the larger work array
        for (int trial = 0; trial < 20; ++trial) {
            std::vector<double> A(static_cast<std::size_t>(n * n)), X(A.size()), P(A.size());
            for (double& a : A) a = u(rng);
            for (int i = 0; i < n; ++i) A[static_cast<std::size_t>(i + i * n)] += n;  // well conditioned
            const std::vector<double> A0 = A;
            matinvpiv(A.data(), X.data(), n);
            EXPECT_EQ(A, A0);  // input untouched
            matmatsq(n, A.data(), X.data(), P.data());
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    EXPECT_NEAR(P[static_cast<std::size_t>(i + j * n)], i == j ? 1.0 : 0.0, 1e-13);
        }
    }
}

TEST(Inversion, SingularGivesNonFiniteSilently) {
    const double A[4] = {1, 2, 2, 4};
    double X[4];
    const std::string out = tervak_test::capture_stdout([&] { matinvpiv(A, X, 2); });
    EXPECT_EQ(out, "");
    bool nonfinite = false;
    for (double x : X) nonfinite = nonfinite || !std::isfinite(x);
    EXPECT_TRUE(nonfinite);
    const double Z[9] = {};
    double Y[9];
    matinvpiv(Z, Y, 3);
    EXPECT_FALSE(std::isfinite(Y[0]));
}

// ------------------------------------------------------- principal stresses

struct Principal {
    double n1[3], n2[3], n3[3];
    double S1, S2, S3, P, Q;
};

Principal principal(const double S[6]) {
    Principal r{};
    prnsig(1, S, r.n1, r.n2, r.n3, r.S1, r.S2, r.S3, r.P, r.Q);
    return r;
}

void expect_axis(const double n[3], int axis) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(n[i], i == axis ? 1.0 : 0.0) << "axis " << axis;
}

TEST(Principal, DiagonalStressIsSortedWithoutRotation) {
    const double S[6] = {3, -1, 2, 0, 0, 0};
    const Principal r = principal(S);
    EXPECT_EQ(r.S1, -1.0);
    EXPECT_EQ(r.S2, 2.0);
    EXPECT_EQ(r.S3, 3.0);
    expect_axis(r.n1, 1);
    expect_axis(r.n2, 2);
    expect_axis(r.n3, 0);
    EXPECT_EQ(r.P, 4.0 / 3.0);
    EXPECT_EQ(r.Q, std::sqrt((9.0 + 16.0 + 1.0) / 2.0));
}

TEST(Principal, EqualValuesKeepTheirInputOrder) {
    const double hyd[6] = {-5, -5, -5, 0, 0, 0};
    Principal r = principal(hyd);
    expect_axis(r.n1, 0);
    expect_axis(r.n2, 1);
    expect_axis(r.n3, 2);
    EXPECT_EQ(r.Q, 0.0);
    EXPECT_EQ(r.P, -5.0);

    const double two[6] = {2, 1, 1, 0, 0, 0};  // the two 1's: y before z
    r = principal(two);
    expect_axis(r.n1, 1);
    expect_axis(r.n2, 2);
    expect_axis(r.n3, 0);

    const double mid[6] = {1, 2, 1, 0, 0, 0};  // x then z for the 1's
    r = principal(mid);
    EXPECT_EQ(r.S1, 1.0);
    EXPECT_EQ(r.S3, 2.0);
    expect_axis(r.n1, 0);
    expect_axis(r.n2, 2);
    expect_axis(r.n3, 1);
}

TEST(Principal, AllZeroStress) {
    const double S[6] = {0, 0, 0, 0, 0, 0};
    const Principal r = principal(S);
    EXPECT_EQ(r.S1, 0.0);
    EXPECT_EQ(r.S2, 0.0);
    EXPECT_EQ(r.S3, 0.0);
    EXPECT_EQ(r.P, 0.0);
    EXPECT_EQ(r.Q, 0.0);
    expect_axis(r.n1, 0);
    expect_axis(r.n2, 1);
    expect_axis(r.n3, 2);
}

double det3(const double A[3][3]) {
    return A[0][0] * (A[1][1] * A[2][2] - A[1][2] * A[2][1]) -
           A[0][1] * (A[1][0] * A[2][2] - A[1][2] * A[2][0]) +
           A[0][2] * (A[1][0] * A[2][1] - A[1][1] * A[2][0]);
}

TEST(Principal, RandomTensorsEigenpairsAndRoundTrip) {
    std::mt19937_64 rng(4242u);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::uniform_real_distribution<double> scale(-3.0, 6.0);
    for (int trial = 0; trial < 2000; ++trial) {
        double S[6];
        const double m = std::pow(10.0, scale(rng));
        for (double& s : S) s = m * u(rng);
        if (trial % 5 == 0) S[3 + trial % 3] = 0.0;  // some with a zero shear
        double mx = 0.0;
        for (double s : S) mx = std::max(mx, std::fabs(s));
        const Principal r = principal(S);

        ASSERT_LE(r.S1, r.S2);
        ASSERT_LE(r.S2, r.S3);
        EXPECT_NEAR(r.S1 + r.S2 + r.S3, S[0] + S[1] + S[2], 1e-13 * mx);
        EXPECT_NEAR(r.P, (S[0] + S[1] + S[2]) / 3.0, 1e-13 * mx);
        const double A[3][3] = {{S[0], S[3], S[5]}, {S[3], S[1], S[4]}, {S[5], S[4], S[2]}};
        const double* dirs[3] = {r.n1, r.n2, r.n3};
        const double vals[3] = {r.S1, r.S2, r.S3};
        for (int k = 0; k < 3; ++k) {
            double B[3][3];
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) B[i][j] = A[i][j] - (i == j ? vals[k] : 0.0);
            EXPECT_NEAR(det3(B) / (mx * mx * mx), 0.0, 1e-12);
            for (int i = 0; i < 3; ++i) {  // A n = s n
                const double An = A[i][0] * dirs[k][0] + A[i][1] * dirs[k][1] + A[i][2] * dirs[k][2];
                EXPECT_NEAR(An, vals[k] * dirs[k][i], 1e-13 * mx);
            }
            for (int l = 0; l < 3; ++l)
                EXPECT_NEAR(dinprod(dirs[k], dirs[l], 3), k == l ? 1.0 : 0.0, 1e-14);
        }
        double back[6];
        carsig(r.S1, r.S2, r.S3, r.n1, r.n2, r.n3, back);
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(back[i], S[i], 1e-13 * mx) << "component " << i;

        // Values only: the same numbers, directions untouched.
        double keep[3] = {kNaN, 9.0, -9.0};
        double S1, S2, S3, P, Q;
        prnsig(0, S, keep, keep, keep, S1, S2, S3, P, Q);
        EXPECT_TRUE(same_bits(S1, r.S1) && same_bits(S2, r.S2) && same_bits(S3, r.S3));
        EXPECT_TRUE(same_bits(P, r.P) && same_bits(Q, r.Q));
        EXPECT_TRUE(std::isnan(keep[0]));
        EXPECT_EQ(keep[1], 9.0);
        EXPECT_EQ(keep[2], -9.0);
        const double Qref = std::sqrt(((r.S1 - r.S2) * (r.S1 - r.S2) + (r.S2 - r.S3) * (r.S2 - r.S3) +
                                       (r.S3 - r.S1) * (r.S3 - r.S1)) / 2.0);
        EXPECT_NEAR(Q, Qref, 1e-13 * mx);
    }
}

TEST(Principal, CarsigPlacesTheShearComponents) {
    // A rotation of 90 degrees about z swaps x and y.
    const double n1[3] = {0, 1, 0}, n2[3] = {-1, 0, 0}, n3[3] = {0, 0, 1};
    double Sig[6];
    carsig(-10.0, -4.0, 2.0, n1, n2, n3, Sig);
    EXPECT_EQ(Sig[0], -4.0);
    EXPECT_EQ(Sig[1], -10.0);
    EXPECT_EQ(Sig[2], 2.0);
    EXPECT_EQ(Sig[3], 0.0);
    // Pure shear in the x-y plane: directions (1,1,0)/sqrt2 and (1,-1,0)/sqrt2.
    const double h = std::sqrt(0.5);
    const double a[3] = {h, -h, 0}, b[3] = {0, 0, 1}, c[3] = {h, h, 0};
    carsig(-3.0, 0.0, 3.0, a, b, c, Sig);
    EXPECT_NEAR(Sig[0], 0.0, 1e-15);
    EXPECT_NEAR(Sig[3], 3.0, 1e-15);  // xy
    EXPECT_EQ(Sig[4], 0.0);           // yz
    EXPECT_EQ(Sig[5], 0.0);           // zx
}

TEST(Principal, TighterThresholdStillGivesTheSameSpectrum) {
    const double S[6] = {-120, -250, -90, 15, -8, 4};
    double a1, a2, a3, ap, aq, b1, b2, b3, bp, bq;
    eig_3a(0, S, a1, a2, a3, ap, aq);
    eig_3a(1, S, b1, b2, b3, bp, bq);
    EXPECT_NEAR(a1, b1, 1e-12);
    EXPECT_NEAR(a2, b2, 1e-12);
    EXPECT_NEAR(a3, b3, 1e-12);
}

// -------------------------------------------------------- elastic matrices

// Props laid out as models 1 and 3 read them.
std::vector<double> props(double Eref, double m, double c, double phi, double nu, double pref) {
    std::vector<double> p(12, 0.0);
    p[2] = Eref;
    p[3] = m;
    p[4] = c;
    p[5] = phi;
    p[7] = nu;
    p[8] = pref;
    return p;
}

// Independent Lame form: diag = E (1 - nu) / ((1 + nu)(1 - 2 nu)).
void expect_isotropic3(const double* D3, double E, double nu) {
    const double lam = E * nu / ((1 + nu) * (1 - 2 * nu));
    const double G = E / (2 * (1 + nu));
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(D3[i + 3 * j], i == j ? lam + 2 * G : lam, 1e-12 * E) << i << "," << j;
}

TEST(Elastic, ZeroExponentGivesTheReferenceModulus) {
    const auto p = props(3e4, 0.0, 10.0, 30.0, 0.25, 100.0);
    for (double s3 : {-50.0, 0.0, 1.0, 500.0}) {
        const double stress[3] = {900.0, 700.0, s3};
        double D3[9];
        Matriz3(p.data(), stress, D3, 1);
        expect_isotropic3(D3, 3e4, 0.25);
    }
}

TEST(Elastic, TensionWithoutCohesionKeepsAFloorOfOne) {
    const double phi = 35.0, pref = 100.0, Eref = 5e4, m = 0.5, nu = 0.2;
    const auto p = props(Eref, m, 0.0, phi, nu, pref);
    const double stress[3] = {10.0, 0.0, -20.0};  // s3 tensile
    double D3[9], D[36];
    Matriz3(p.data(), stress, D3, 3);
    const double E = Eref * std::pow(1.0 / (pref * std::sin(phi * kDegToRad)), m);
    expect_isotropic3(D3, E, nu);
    EXPECT_GT(D3[0], 0.0);

    Matriz6(p.data(), stress, D, 1);
    const double G = E / (2 * (1 + nu));
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) {
            const double v = D[i + 6 * j];
            if (i < 3 && j < 3) {
                EXPECT_EQ(v, D3[i + 3 * j]);
            } else if (i == j) {
                EXPECT_NEAR(v, G, 1e-12 * G);
            } else {
                EXPECT_EQ(v, 0.0) << i << "," << j;
            }
        }
}

TEST(Elastic, CohesionFloorAndStressLevel) {
    // c cos(phi) = 20 cos(30) ~ 17.3 is above 1: the floor for a tensile s3.
    const auto p = props(1e4, 0.7, 20.0, 30.0, 0.3, 100.0);
    const double phi = 30.0 * kDegToRad;
    const double cc = 20.0 * std::cos(phi);
    const double den = cc + 100.0 * std::sin(phi);
    for (double s3 : {-40.0, 0.0, 250.0}) {
        const double stress[3] = {300.0, 300.0, s3};
        double D3[9];
        Matriz3(p.data(), stress, D3, 1);
        const double num = std::max(cc + s3 * std::sin(phi), std::max(cc, 1.0));
        expect_isotropic3(D3, 1e4 * std::pow(num / den, 0.7), 0.3);
    }
}

TEST(Elastic, ZeroPoissonRatio) {
    const auto p = props(2e4, 0.0, 1.0, 30.0, 0.0, 100.0);
    const double stress[3] = {1, 1, 1};
    double D3[9];
    Matriz3(p.data(), stress, D3, 1);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(D3[i + 3 * j], i == j ? 2e4 : 0.0);
}

TEST(Elastic, BulkAndShearMatrices) {
    const double G = 6e3, K = 0.6666666666666666 * G;
    double D[36], D3[9];
    Matriz6_NL(D, K, G);
    Matriz3_NL(D3, K, G);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) {
            const double v = D[i + 6 * j];
            if (i < 3 && j < 3 && i == j) {
                EXPECT_EQ(v, K + 1.3333333333333333 * G);
            } else if (i >= 3 && i == j) {
                EXPECT_EQ(v, G);
            } else {
                EXPECT_EQ(v, 0.0) << i << "," << j;
            }
            if (i < 3 && j < 3) {
                EXPECT_EQ(v, D3[i + 3 * j]);
            }
        }
    // A general pair: off-diagonal K - 2/3 G, and the 3x3 block of the
    // 6x6 matrix agrees with Matriz3_NL.
    Matriz6_NL(D, 1e4, 3e3);
    EXPECT_NEAR(D[1], 1e4 - 2e3, 1e-9);
    EXPECT_NEAR(D[0], 1e4 + 4e3, 1e-9);
    EXPECT_EQ(D[21], 3e3);
}

TEST(Elastic, ModulAndNorm) {
    const double v[6] = {3, 4, 0, 0, 0, 12};
    EXPECT_EQ(modul(v), 13.0);
    double u[6];
    norm(v, u);
    EXPECT_NEAR(u[5], 12.0 / 13.0, 1e-16);
    EXPECT_NEAR(modul(u), 1.0, 1e-15);
    const double tiny[6] = {1e-11, 0, 0, 0, 0, 0};
    for (double& x : u) x = 5.0;
    norm(tiny, u);
    for (double x : u) EXPECT_EQ(x, 0.0);
    const double edge[6] = {0, 0, 0, 0, 0, 1.1e-10};
    norm(edge, u);
    EXPECT_NEAR(u[5], 1.0, 1e-15);
}

}  // namespace
