// The toolkit through its exports: algebraic identities on random input
// (an inverse times its matrix, eigenpairs, prnsig then carsig), and the
// elastic matrices read back as the moduli they were built from.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <utility>

#include "support/host.hpp"

namespace {

using namespace tervak_test;

struct Rng {
    std::mt19937_64 g{20261123};
    double operator()(double a, double b) { return std::uniform_real_distribution<double>(a, b)(g); }
};

TEST(Toolkit, VectorsAndProducts) {
    Rng r;
    double a[6], b[6], c[6];
    for (int i = 0; i < 6; ++i) a[i] = r(-5, 5), b[i] = r(-5, 5);
    I n = 6;
    double fa = 2, fb = -3, dot = 0;
    sym<void(double*, double*, double*, double*, I*, double*)>("addvec_")(a, b, &fa, &fb, &n, c);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(c[i], 2 * a[i] + -3 * b[i]);
    sym<void(double*, double*, double*, double*, I*, double*)>("addvec_")(a, b, &fa, &fb, &n, a);  // in place
    for (int i = 0; i < 6; ++i) EXPECT_EQ(a[i], c[i]);
    sym<void(double*, double*, I*, double*)>("dinprod_")(a, b, &n, &dot);
    double ref = 0;
    for (int i = 0; i < 6; ++i) ref = ref + a[i] * b[i];
    EXPECT_EQ(dot, ref);
    double x[3] = {1, 2, 3}, y[3] = {-2, 0.5, 4}, z[3];
    sym<void(double*, double*, double*)>("crossprod_")(x, y, z);
    EXPECT_EQ(x[0] * z[0] + x[1] * z[1] + x[2] * z[2], 0.0);
    EXPECT_EQ(y[0] * z[0] + y[1] * z[1] + y[2] * z[2], 0.0);
    EXPECT_EQ(z[2], x[0] * y[1] - x[1] * y[0]);  // right-handed
    // matmat with leading dimensions larger than the sizes.
    double A[4 * 3], B[5 * 2], C[3 * 2];
    for (double& v : A) v = r(-1, 1);
    for (double& v : B) v = r(-1, 1);
    I LA = 4, LB = 5, LC = 3, nr = 3, nc = 2, ns = 3;
    sym<void(double*, I*, double*, I*, I*, I*, I*, double*, I*)>("matmat_")(A, &LA, B, &LB, &nr, &nc, &ns, C, &LC);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 2; ++j) {
            double s = 0;
            for (int k = 0; k < 3; ++k) s = s + A[i + 4 * k] * B[k + 5 * j];
            EXPECT_EQ(C[i + 3 * j], s);
        }
    double e = 1, tol = 1e-12;
    auto lequal = sym<I(double*, double*, double*)>("lequal_");
    double e2 = 1 + 1e-13, e3 = 1 + 1e-9, zero = 0, tiny = 1e-25;
    EXPECT_TRUE(lequal(&e, &e2, &tol));
    EXPECT_FALSE(lequal(&e, &e3, &tol));
    EXPECT_TRUE(lequal(&zero, &tiny, &tol));  // floor tol^2 / 2
    tiny = 1e-23;
    EXPECT_FALSE(lequal(&zero, &tiny, &tol));
    double near1 = 1 + 5e-13, far1 = 1 + 2e-12;  // (|a| + |b| + tol) tol / 2 decides
    EXPECT_TRUE(lequal(&e, &near1, &tol));
    EXPECT_FALSE(lequal(&e, &far1, &tol));
    double big = 1e6, big2 = 1e6 * (1 + 1e-13);
    EXPECT_TRUE(lequal(&big, &big2, &tol));  // relative
}

TEST(Toolkit, InverseTimesMatrixIsIdentity) {
    Rng r;
    auto inv = sym<void(double*, double*, I*)>("matinvpiv_");
    for (I n : {1, 3, 6, 12}) {
        for (int t = 0; t < 20; ++t) {
            std::vector<double> A(static_cast<size_t>(n * n)), Ai(A.size());
            for (double& v : A) v = r(-1, 1);
            for (I i = 0; i < n; ++i) A[static_cast<size_t>(i + i * n)] += (t % 2 ? 0.0 : 2.0);
            inv(A.data(), Ai.data(), &n);
            for (I i = 0; i < n; ++i)
                for (I j = 0; j < n; ++j) {
                    double s = 0;
                    for (I k = 0; k < n; ++k) s += A[static_cast<size_t>(i + k * n)] * Ai[static_cast<size_t>(k + j * n)];
                    EXPECT_NEAR(s, i == j ? 1.0 : 0.0, 1e-8) << n;
                }
        }
    }
    // Sizes 3 and 6 take a fixed-size path: the bits of the general
    // elimination (first strictly larger pivot, row k divided, then every
    // other row less its column-k entry times row k), written out here.
    // Small integers bring equal pivots, zero factors and singular matrices.
    for (I n : {3, 6})
        for (int t = 0; t < 100; ++t) {
            const size_t N = static_cast<size_t>(n);
            std::vector<double> W(N * N), X(N * N, 0.0), Ai(N * N);
            for (double& v : W) v = t < 50 ? r(-1e3, 1e3) : std::floor(r(-2, 3));
            std::vector<double> A = W;
            for (size_t i = 0; i < N; ++i) X[i + i * N] = 1.0;
            for (size_t k = 0; k < N; ++k) {
                size_t p = k;
                for (size_t i = k + 1; i < N; ++i)
                    if (std::fabs(W[i + k * N]) > std::fabs(W[p + k * N])) p = i;
                for (size_t j = 0; j < N; ++j) std::swap(W[k + j * N], W[p + j * N]), std::swap(X[k + j * N], X[p + j * N]);
                const double piv = W[k + k * N];
                for (size_t j = 0; j < N; ++j) W[k + j * N] = W[k + j * N] / piv, X[k + j * N] = X[k + j * N] / piv;
                for (size_t i = 0; i < N; ++i) {
                    if (i == k) continue;
                    const double f = W[i + k * N];
                    for (size_t j = 0; j < N; ++j)
                        W[i + j * N] = W[i + j * N] - f * W[k + j * N], X[i + j * N] = X[i + j * N] - f * X[k + j * N];
                }
            }
            inv(A.data(), Ai.data(), &n);
            // Which of two NaNs the products here keep is the compiler's choice.
            for (size_t i = 0; i < N * N; ++i)
                if (!(std::isnan(Ai[i]) && std::isnan(X[i])))
                    ASSERT_EQ(std::memcmp(&Ai[i], &X[i], sizeof(double)), 0) << n << " " << i;
        }
    // Equal pivots: the first wins, so a permutation is its own inverse exactly.
    double Pm[9] = {0, 1, 0, 1, 0, 0, 0, 0, 1}, Pi[9];
    I three = 3;
    inv(Pm, Pi, &three);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(Pi[i], Pm[i]);
}

using Prnsig = void(I*, double*, double*, double*, double*, double*, double*, double*, double*, double*);

TEST(Toolkit, PrincipalValuesDirectionsAndRoundTrip) {
    Rng r;
    auto prnsig = sym<Prnsig>("prnsig_");
    auto carsig = sym<void(double*, double*, double*, double*, double*, double*, double*)>("carsig_");
    for (int t = 0; t < 500; ++t) {
        double S[6];
        for (double& v : S) v = r(-300, 100);
        if (t % 5 == 0) S[3] = S[4] = S[5] = 0;
        I one = 1, two = 2;
        double n1[3], n2[3], n3[3], s1, s2, s3, p, q;
        prnsig(&one, S, n1, n2, n3, &s1, &s2, &s3, &p, &q);
        ASSERT_LE(s1, s2);
        ASSERT_LE(s2, s3);
        const double m = 300;
        EXPECT_NEAR(p, (S[0] + S[1] + S[2]) / 3, 1e-12 * m);
        EXPECT_NEAR(q, std::sqrt(((s1 - s2) * (s1 - s2) + (s2 - s3) * (s2 - s3) + (s3 - s1) * (s3 - s1)) / 2), 1e-10 * m);
        // A n = s n for each pair, unit and orthogonal directions.
        const double A[3][3] = {{S[0], S[3], S[5]}, {S[3], S[1], S[4]}, {S[5], S[4], S[2]}};
        const double* N[3] = {n1, n2, n3};
        const double sv[3] = {s1, s2, s3};
        for (int k = 0; k < 3; ++k) {
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(A[i][0] * N[k][0] + A[i][1] * N[k][1] + A[i][2] * N[k][2], sv[k] * N[k][i], 1e-10 * m);
            for (int l = 0; l < 3; ++l)
                EXPECT_NEAR(N[k][0] * N[l][0] + N[k][1] * N[l][1] + N[k][2] * N[l][2], k == l ? 1 : 0, 1e-12);
        }
        double back[6];
        carsig(&s1, &s2, &s3, n1, n2, n3, back);
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(back[i], S[i], 1e-11 * m);
        // Values only: the same spectrum, directions untouched.
        double u1[3] = {7, 7, 7}, v1, v2, v3, vp, vq;
        prnsig(&two, S, u1, u1, u1, &v1, &v2, &v3, &vp, &vq);
        EXPECT_EQ(u1[0], 7);
        EXPECT_NEAR(v1, s1, 1e-12 * m);
        EXPECT_NEAR(v3, s3, 1e-12 * m);
    }
    // Diagonal input: sorted without rotation; equal values keep their order.
    double S[6] = {-10, -30, -10, 0, 0, 0}, n1[3], n2[3], n3[3], s1, s2, s3, p, q;
    I one = 1;
    prnsig(&one, S, n1, n2, n3, &s1, &s2, &s3, &p, &q);
    EXPECT_EQ(s1, -30);
    EXPECT_EQ(n1[1], 1);
    EXPECT_EQ(n2[0], 1);
    EXPECT_EQ(n3[2], 1);
}

// Model-1 elastic matrix (Matriz3/Matriz6) and the K,G matrices read back
// as their moduli.
TEST(Toolkit, ElasticMatricesGiveBackTheirModuli) {
    auto m6nl = sym<void(double*, double*, double*)>("matriz6_nl_");
    auto m3nl = sym<void(double*, double*, double*)>("matriz3_nl_");
    for (double K : {1e3, 5e4})
        for (double G : {2e2, 3e4}) {
            double D[36], D3[9];
            m6nl(D, &K, &G);
            m3nl(D3, &K, &G);
            EXPECT_NEAR((D[0] + 2 * D[6]) / 3, K, 1e-12 * K);
            EXPECT_NEAR((D[0] - D[6]) / 2, G, 1e-12 * K);
            EXPECT_EQ(D[21], G);
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) EXPECT_EQ(D3[i + 3 * j], D[i + 6 * j]);
            for (int i = 3; i < 6; ++i)
                for (int j = 0; j < 6; ++j) EXPECT_EQ(D[i + 6 * j], i == j ? G : 0.0);
        }
    std::vector<double> P = sand();
    for (double s3 : {-20.0, 0.0, 30.0, 250.0}) {
        double st[3] = {3 * s3, 2 * s3, s3}, D3[9], D[36];
        for (I model : {1, 3}) {
            sym<void(double*, double*, double*, I*)>("matriz3_")(P.data(), st, D3, &model);
            sym<void(double*, double*, double*, I*)>("matriz6_")(P.data(), st, D, &model);
            const double nu = D3[3] / (D3[0] + D3[3]), E = (D3[0] - D3[3]) * (D3[0] + 2 * D3[3]) / (D3[0] + D3[3]);
            const double s = std::sin(38 * kDeg), cc = std::cos(38 * kDeg);
            EXPECT_NEAR(nu, 0.2, 1e-12);
            EXPECT_NEAR(E, 1.2e5 * std::pow(std::max(cc + s3 * s, std::max(cc, 1.0)) / (cc + 100 * s), 0.5), 1e-9 * E);
            EXPECT_EQ(D[0], D3[0]);
            EXPECT_EQ(D[6 * 2 + 1], D3[3 * 2 + 1]);
        }
        I two = 2;  // the stress-dependent matrices belong to models 1 and 3
        sym<void(double*, double*, double*, I*)>("matriz6_")(P.data(), st, D, &two);
        for (double v : D) EXPECT_EQ(v, 0.0);
    }
    double v[6] = {3, 0, 4, 0, 0, 0}, u[6], len = 0;
    sym<void(double*, double*)>("modul_")(v, &len);
    EXPECT_EQ(len, 5);
    sym<void(double*, double*)>("norm_")(v, u);
    EXPECT_EQ(u[0], 0.6);
    double tiny[6] = {1e-11, 0, 0, 0, 0, 0};
    sym<void(double*, double*)>("norm_")(tiny, u);
    EXPECT_EQ(u[0], 0.0);  // below 1e-10 the unit vector is zero
}

}  // namespace
