// Shear-hardening kernels: HS_plast, HS_TRAC_plast, HS_CAP_plast and
// HS_CAP_plast_it, checked by invariants over seeded random sweeps. The
// surfaces are re-evaluated here from their formulas, independently of the
// library's own evaluation.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/kernel_calls.hpp"
#include "kernels/hs_surfaces.hpp"
#include "kernels/kernels.hpp"
#include "support/test_support.hpp"
#include "toolkit/elastic.hpp"

namespace {

using tervak::HsOutcome;
using tervak::Mat3;
using tervak::Vec3;

constexpr double kDeg = 0.017453292519444445;

// ---------------------------------------------------------------------------
// Parameter sets.

struct Soil {
    int iModel = 1;
    std::array<double, 25> props{};
    double R = 1.0;  // hardening-rate base (models 2 and 4)
    double nu = 0.2;
    double P(int i) const { return props[static_cast<std::size_t>(i - 1)]; }
    double& P(int i) { return props[static_cast<std::size_t>(i - 1)]; }
    bool odd() const { return iModel == 1 || iModel == 3; }
    // Positions of the shared quantities.
    double Eur_ref() const { return odd() ? P(3) : P(11); }
    double m() const { return odd() ? P(4) : P(12); }
    double c() const { return odd() ? P(5) : P(14); }
    double phi() const { return (odd() ? P(6) : P(15)) * kDeg; }
    double psi() const { return (odd() ? P(7) : P(16)) * kDeg; }
    double pref() const { return odd() ? P(9) : P(13); }
    double K0() const { return odd() ? P(10) : P(17); }
    double Rf() const { return odd() ? P(11) : P(18); }
    double T() const { return odd() ? P(12) : P(19); }
    double Ehyp() const { return odd() ? P(13) : P(20); }
    double alpha() const { return odd() ? P(14) : P(21); }
    double h() const { return odd() ? 1.0 : std::pow(R, Eur_ref() / Ehyp() + 1.0); }
};

struct Rng {
    std::mt19937_64 g;
    explicit Rng(std::uint64_t seed) : g(seed) {}
    double u(double a, double b) { return std::uniform_real_distribution<double>(a, b)(g); }
};

Soil make_soil(int iModel, Rng& r) {
    Soil s;
    s.iModel = iModel;
    const double E50 = r.u(2e4, 6e4);
    const double Rf = 0.9;
    const double Ei = 2.0 * E50 / (2.0 - Rf);
    const double Eur = 3.0 * E50;
    const double m = r.u(0.5, 1.0);
    const double c = r.u(0.0, 20.0);
    const double phi = r.u(25.0, 40.0);
    const double psi = r.u(0.0, 10.0);
    const double K0 = r.u(0.4, 0.6);
    const double T = r.u(0.0, 5.0);
    const double alpha = r.u(1.0, 2.0);
    const double ratio = r.u(1.2, 3.0);
    if (s.odd()) {
        s.P(1) = E50;
        s.P(2) = E50;
        s.P(3) = Eur;
        s.P(4) = m;
        s.P(5) = c;
        s.P(6) = phi;
        s.P(7) = psi;
        s.P(8) = s.nu;
        s.P(9) = 100.0;
        s.P(10) = K0;
        s.P(11) = Rf;
        s.P(12) = T;
        s.P(13) = Ei;
        s.P(14) = alpha;
        s.P(15) = ratio;
    } else {
        s.P(1) = Eur / (3.0 * (1.0 - 2.0 * s.nu));
        s.P(7) = 0.5;
        s.P(11) = Eur;
        s.P(12) = m;
        s.P(13) = 100.0;
        s.P(14) = c;
        s.P(15) = phi;
        s.P(16) = psi;
        s.P(17) = K0;
        s.P(18) = Rf;
        s.P(19) = T;
        s.P(20) = E50;
        s.P(21) = alpha;
        s.P(22) = ratio;
        s.R = r.u(1.0, 1.5);
    }
    return s;
}

// ---------------------------------------------------------------------------
// Independent evaluation of the surfaces.

struct Ref {
    double sinphi, cosphi, qf, qa, Ei, Eur, h, T;
};

Ref make_ref(const Soil& s, double s3) {
    Ref r{};
    r.sinphi = std::sin(s.phi());
    r.cosphi = std::cos(s.phi());
    const double cc = s.c() * r.cosphi;
    const double ccot = cc / r.sinphi;
    r.T = s.T();
    r.qf = 2.0 * r.sinphi / (1.0 - r.sinphi) * std::max(s3 + ccot, std::max(1.0, ccot + r.T));
    r.qa = r.qf / s.Rf();
    const double S = std::pow(std::max(s3 * r.sinphi + cc, std::max(1.0, cc)) /
                                  (s.pref() * r.sinphi + cc),
                              s.m());
    r.Ei = s.Ehyp() * S;
    r.Eur = s.Eur_ref() * S;
    r.h = s.h();
    return r;
}

// Shear function of a deviator; also its magnitude scale for rounding slack.
double f_shear(const Ref& r, double q, double gamma, double* scale = nullptr) {
    const double qq = q < r.qf ? q : r.qf;
    const double t1 = qq / std::fabs(r.qa - qq) * (2.0 * r.qa / r.Ei);
    const double t2 = 2.0 * qq / r.Eur;
    if (scale != nullptr) *scale = std::fabs(t1) + std::fabs(t2) + std::fabs(gamma);
    return t1 - t2 - gamma;
}

struct CapRef {
    double delta, alpha2;
};

CapRef make_cap(const Soil& s) {
    const double sp = std::sin(s.phi());
    return CapRef{(3.0 + sp) / (3.0 - sp), s.alpha() * s.alpha()};
}

double f_cap(const CapRef& c, const Vec3& P, double pc, double* scale = nullptr) {
    const double p = (P(1) + P(2) + P(3)) / 3.0;
    const double qt = P(1) + (c.delta - 1.0) * P(2) - c.delta * P(3);
    const double a = qt * qt / c.alpha2, b = p * p, d = pc * pc;
    if (scale != nullptr) *scale = a + b + d;
    return a + b - d;
}

// Mobilised dilatancy by the model's law.
double tolerance(double f_trial) { return std::fabs(f_trial) * 1e-12 + 1e-12; }

// Within tolerance, with room for a few roundings of the terms.
::testing::AssertionResult on_surface(double f, double tol, double scale) {
    const double slack = 16.0 * DBL_EPSILON * scale;
    if (std::fabs(f) <= tol + slack) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "f = " << f << " tol = " << tol << " slack " << slack;
}

// Isotropic principal elastic matrix from the unloading-reloading stiffness
// at the start stress.
Mat3 elastic(const Soil& s, double s3) {
    const Ref r = make_ref(s, s3);
    const double E = r.Eur, nu = s.nu;
    const double G = E / (2.0 * (1.0 + nu));
    const double diag = 2.0 * G * (1.0 - nu) / (1.0 - 2.0 * nu);
    const double off = 2.0 * G * nu / (1.0 - 2.0 * nu);
    Mat3 D;
    for (int i = 1; i <= 3; ++i)
        for (int j = 1; j <= 3; ++j) D(i, j) = i == j ? diag : off;
    return D;
}

Vec3 add(const Vec3& a, const Mat3& D, const Vec3& e) {
    Vec3 r;
    for (int i = 1; i <= 3; ++i) {
        double s = 0.0;
        for (int k = 1; k <= 3; ++k) s += D(i, k) * e(k);
        r(i) = a(i) + s;
    }
    return r;
}

// x with D x = b, by Cramer's rule.
Vec3 solve3(const Mat3& D, const Vec3& b) {
    const auto det = [](const Mat3& A) {
        return A(1, 1) * (A(2, 2) * A(3, 3) - A(2, 3) * A(3, 2)) -
               A(1, 2) * (A(2, 1) * A(3, 3) - A(2, 3) * A(3, 1)) +
               A(1, 3) * (A(2, 1) * A(3, 2) - A(2, 2) * A(3, 1));
    };
    const double d = det(D);
    Vec3 x;
    for (int k = 1; k <= 3; ++k) {
        Mat3 A = D;
        for (int i = 1; i <= 3; ++i) A(i, k) = b(i);
        x(k) = det(A) / d;
    }
    return x;
}

bool ordered(const Vec3& P) { return P(1) >= P(2) && P(2) >= P(3); }

// A start state and its hardening pair: gamma_p on the shear surface (or
// 1e-10 when below), the cap through the start state, slightly outside it.
struct Start {
    Vec3 Prs_0;
    double hard[2];
};

Start make_start(const Soil& s, Rng& r, double s3lo, double s3hi, int shape) {
    Start st{};
    const double s3 = r.u(s3lo, s3hi);
    const Ref ref = make_ref(s, s3);
    const double q = r.u(0.05, 0.6) * ref.qf;
    // shape 1: generic; 2: P2 near P3; 3: P1 near P2.
    double s2 = s3 + r.u(0.1, 0.9) * q;
    if (shape == 2) s2 = s3 + r.u(0.0, 0.5);
    if (shape == 3) s2 = s3 + q - r.u(0.0, 0.5);
    st.Prs_0 = Vec3{{s3 + q, s2, s3}};
    st.hard[0] = std::max(f_shear(ref, q, 0.0), 1e-10);
    const CapRef cr = make_cap(s);
    st.hard[1] = -std::sqrt(std::max(f_cap(cr, st.Prs_0, 0.0), 1.0)) * r.u(1.0, 1.3);
    return st;
}

// A strain increment for the shape: widen the deviator, with a volumetric part.
Vec3 make_strain(Rng& r, int shape, double vol) {
    const double e = r.u(1e-5, 1.5e-3);
    if (shape == 2) {
        const double lat = r.u(-0.45, 0.2) + vol;
        return Vec3{{e, lat * e, lat * e}};
    }
    if (shape == 3) {
        const double ax = r.u(-0.45, 0.2) + vol;
        return Vec3{{ax * e, ax * e, -e}};
    }
    return Vec3{{e, r.u(-0.5, 0.5) * e, (r.u(-0.5, 0.2) + vol) * e}};
}

// Forces the edge: P2 = P3 (area 2) or P1 = P2 (area 3) in the trial state.
void snap(Vec3& P, int area) {
    if (area == 2) P(2) = P(3) + 1e-3 * std::fabs(P(3) - P(2));
    if (area == 3) P(2) = P(1) - 1e-3 * std::fabs(P(1) - P(2));
}

struct PassStats {
    int calls = 0, ok = 0, maxIt = 0, negative = 0, exhausted = 0;
    long sumIt = 0;
    void add(const HsOutcome& o) {
        ++calls;
        if (o.it >= 101) ++exhausted;
        for (int i = 0; i < o.nLam; ++i)
            if (!(o.xLam[i] > -1e-12)) {
                ++negative;
                break;
            }
        if (o.ok) {
            ++ok;
            sumIt += o.it;
            maxIt = std::max(maxIt, o.it);
        }
    }
    void print(const char* what) const {
        std::printf("[ passes ] %-28s calls %5d ok %5d (negative %d, 101 passes %d) mean passes "
                    "%.2f max %d\n",
                    what, calls, ok, negative, exhausted, ok ? static_cast<double>(sumIt) / ok : 0.0,
                    maxIt);
    }
};

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// A cap value with an unusual bit pattern, to see it pass through untouched.
double odd_bits() {
    const std::uint64_t bits = 0xFFF8DEADBEEF1234ull;  // a NaN with a payload
    double x;
    std::memcpy(&x, &bits, sizeof x);
    return x;
}

// ---------------------------------------------------------------------------
// Surface pieces.

// ---------------------------------------------------------------------------
// Sweeps: every kernel, model and area.

enum class Kernel { HS, TRAC, CAP };

struct Call {
    Vec3 Prs;
    double hard[2];
    int iPlast = -7;
    HsOutcome out;
};

Call call_r(Kernel k, const Soil& s, int area, const Vec3& Prs_E, const Start& st,
            const Mat3& D3) {
    Call c;
    c.hard[0] = c.hard[1] = -99.0;
    const auto fn = k == Kernel::HS     ? &tervak::HS_plast_r
                    : k == Kernel::TRAC ? &tervak::HS_TRAC_plast_r
                                        : &tervak::HS_CAP_plast_r;
    fn(1, 1, -1, 0, area, s.props.data(), Prs_E, c.Prs, st.hard, c.hard, c.iPlast, st.Prs_0, 0,
       D3, s.R, s.iModel, &c.out);
    return c;
}

Call hs_plast(const Soil& s, int area, const Vec3& Prs_E, const Start& st, const Mat3& D3) {
    return call_r(Kernel::HS, s, area, Prs_E, st, D3);
}

// One random trial beyond the kernel's surfaces; checks the invariants and,
// when the verdict is "Return Mapping Ok!", that the result lies on every
// active surface (evaluated here with the returned hardening pair).
void sweep_once(Kernel k, int iModel, int area, Rng& r, PassStats& stats) {
    Soil s = make_soil(iModel, r);
    const bool trac = k == Kernel::TRAC, cap = k == Kernel::CAP;
    if (trac && r.u(0.0, 1.0) < 0.2) s.P(s.odd() ? 12 : 19) = 0.0;  // the cut-off at P3 = 0
    Start st = trac ? make_start(s, r, 0.5, 15.0, area)
                    : make_start(s, r, cap ? 30.0 : 20.0, 300.0, area);
    if (k == Kernel::HS) st.hard[1] = odd_bits();
    const Mat3 D3 = elastic(s, st.Prs_0(3));
    Vec3 Prs_E = add(st.Prs_0, D3, make_strain(r, area, trac ? -0.6 : (cap ? 0.8 : 0.0)));
    snap(Prs_E, area);
    if (!ordered(Prs_E)) return;
    const Ref ref = make_ref(s, st.Prs_0(3));
    const CapRef cr = make_cap(s);
    const double f13E = f_shear(ref, Prs_E(1) - Prs_E(3), st.hard[0]);
    const double f3E = -ref.T - Prs_E(3);
    const double fcE = f_cap(cr, Prs_E, -st.hard[1]);
    if (!(f13E > 0.0) || (trac && !(f3E > 0.0)) || (cap && !(fcE > 0.0))) return;

    const Call c = call_r(k, s, area, Prs_E, st, D3);
    stats.add(c.out);
    ASSERT_EQ(c.iPlast, k == Kernel::HS ? 5 : (trac ? 2 : 4));
    // gamma_p follows xLam13_hs alone: never the second shear, tension or
    // cap multiplier, and never downwards.
    EXPECT_EQ(c.hard[0],
              std::max(st.hard[0], std::max(st.hard[0] + ref.h * c.out.xLam[0], st.hard[0])));
    if (cap) {
        EXPECT_LE(c.hard[1], st.hard[1]);  // stored negative: the cap only grows
        EXPECT_FALSE(c.out.early_exit);
    } else {
        EXPECT_TRUE(same_bits(c.hard[1], st.hard[1]));
    }
    if (!c.out.ok) return;
    double sc;
    const double f13 = f_shear(ref, c.Prs(1) - c.Prs(3), c.hard[0], &sc);
    EXPECT_TRUE(on_surface(f13, tolerance(f13E), sc));
    if (area > 1) {
        const int i = area == 2 ? 1 : 2, j = area == 2 ? 2 : 3;
        const double f2E = f_shear(ref, Prs_E(i) - Prs_E(j), st.hard[0]);
        const double f2 = f_shear(ref, c.Prs(i) - c.Prs(j), c.hard[0], &sc);
        EXPECT_TRUE(on_surface(f2, tolerance(f2E), sc));
        // On the edge the two deviators are equal (below the strength).
        const double q13 = c.Prs(1) - c.Prs(3), q2 = c.Prs(i) - c.Prs(j);
        if (k == Kernel::HS && q13 < ref.qf) {
            EXPECT_NEAR(q13, q2, 1e-6 * q13);
        }
    }
    if (k == Kernel::HS && area == 1 && c.out.xLam[0] > 0.0) {
        // The correction is xLam13_hs D3 m for a flow vector of the form
        // ((1 - s)/2, 0, -(1 + s)/2), |s| <= 1 (the flow of the last pass).
        const Vec3 m = solve3(D3, Vec3{{(Prs_E(1) - c.Prs(1)) / c.out.xLam[0],
                                        (Prs_E(2) - c.Prs(2)) / c.out.xLam[0],
                                        (Prs_E(3) - c.Prs(3)) / c.out.xLam[0]}});
        EXPECT_NEAR(m(2), 0.0, 1e-8);
        EXPECT_NEAR(m(1) - m(3), 1.0, 1e-8);
        EXPECT_LE(std::fabs(1.0 - 2.0 * m(1)), 1.0);
    }
    if (trac) {
        EXPECT_TRUE(on_surface(-ref.T - c.Prs(3), tolerance(f3E), ref.T + std::fabs(c.Prs(3))));
    }
    if (cap) {
        const double fc = f_cap(cr, c.Prs, -c.hard[1], &sc);
        EXPECT_TRUE(on_surface(fc, tolerance(fcE), sc));
    }
}

void sweep(Kernel k, const char* name, int samples, int minOk, std::uint64_t seed) {
    Rng r(seed);
    for (int iModel = 1; iModel <= 4; ++iModel) {
        for (int area = 1; area <= 3; ++area) {
            PassStats stats;
            for (int n = 0; n < samples; ++n) {
                sweep_once(k, iModel, area, r, stats);
                if (::testing::Test::HasFatalFailure()) return;
            }
            char what[64];
            std::snprintf(what, sizeof what, "%s model %d area %d", name, iModel, area);
            stats.print(what);
            EXPECT_GE(stats.ok, minOk) << what;
        }
    }
}

TEST(HsPlast, ReturnsOntoTheActiveSurfacesAndHardensByTheShearMultiplierOnly) {
    sweep(Kernel::HS, "HS_plast", 1200, 1000, 21);
}

TEST(HsTracPlast, ReturnsToShearAndCutOffWithoutTensionHardening) {
    sweep(Kernel::TRAC, "HS_TRAC_plast", 3000, 40, 31);
}

TEST(HsCapPlast, ReturnsOntoShearAndCapAndTheCapOnlyGrows) {
    sweep(Kernel::CAP, "HS_CAP_plast", 1500, 40, 41);
}

TEST(HsPlast, TrialOnTheSurfaceReturnsItself) {
    Rng r(22);
    for (int iModel = 1; iModel <= 4; ++iModel) {
        for (int k = 0; k < 50; ++k) {
            const Soil s = make_soil(iModel, r);
            const Start st0 = make_start(s, r, 20.0, 300.0, 1);
            const tervak::HsMaterial mt = tervak::read_material(iModel, s.props.data());
            const tervak::HsParams hp = tervak::hs_params(mt, s.R, st0.Prs_0(3));
            const Vec3 Prs_E{{st0.Prs_0(1) * 1.1, st0.Prs_0(2), st0.Prs_0(3)}};
            Start st = st0;
            // gamma_p that puts the trial state exactly on the surface.
            st.hard[0] = tervak::hs_yield(hp, Prs_E(1) - Prs_E(3), 0.0, false);
            const Mat3 D3 = elastic(s, st.Prs_0(3));
            const Call c = hs_plast(s, 1, Prs_E, st, D3);
            for (int i = 1; i <= 3; ++i) EXPECT_TRUE(same_bits(c.Prs(i), Prs_E(i)));
            EXPECT_EQ(c.out.it, 0);
            EXPECT_EQ(c.hard[0], st.hard[0]);
            EXPECT_TRUE(c.out.ok);
        }
    }
}

TEST(HsPlast, ElasticTrialGivesNegativeMultiplierAndKeepsGamma) {
    Rng r(23);
    const Soil s = make_soil(1, r);
    Start st = make_start(s, r, 50.0, 100.0, 1);
    st.hard[0] += 1e-4;  // just inside
    const Mat3 D3 = elastic(s, st.Prs_0(3));
    const Call c = hs_plast(s, 1, st.Prs_0, st, D3);
    EXPECT_LT(c.out.xLam[0], 0.0);
    EXPECT_EQ(c.hard[0], st.hard[0]);
    EXPECT_FALSE(c.out.ok);
    // The diagnostic point says so.
    const std::string line = tervak_test::capture_stdout([&] {
        Vec3 Prs;
        double hard[2];
        int iPlast = 0;
        tervak::HS_plast(7, 3, 7, 3, 1, s.props.data(), st.Prs_0, Prs, st.hard, hard, iPlast,
                         st.Prs_0, 0, D3, 1.0, 1);
    });
    EXPECT_EQ(line, " Numerical problem\n");
}

TEST(HsPlast, DiagnosticPointOnlyAndSaturationLines) {
    Rng r(24);
    const Soil s = make_soil(1, r);
    const Start st = make_start(s, r, 50.0, 100.0, 1);
    const Mat3 D3 = elastic(s, st.Prs_0(3));
    const Ref ref = make_ref(s, st.Prs_0(3));
    // A trial far beyond the strength: saturated at every evaluation.
    const Vec3 Prs_E{{st.Prs_0(3) + 3.0 * ref.qf, st.Prs_0(2), st.Prs_0(3)}};
    const auto run = [&](int iEl, int Int) {
        return tervak_test::capture_stdout([&] {
            Vec3 Prs;
            double hard[2];
            int iPlast = 0;
            tervak::HS_plast(iEl, Int, 487, 3, 1, s.props.data(), Prs_E, Prs, st.hard, hard,
                             iPlast, st.Prs_0, 0, D3, 1.0, 1);
        });
    };
    EXPECT_EQ(run(487, 4), "");
    EXPECT_EQ(run(488, 3), "");
    const std::string out = run(487, 3);
    ASSERT_GE(out.size(), 10u);
    EXPECT_EQ(out.substr(0, 10), "  q > qf \n");
    const std::string last = out.substr(out.rfind('\n', out.size() - 2) + 1);
    EXPECT_TRUE(last == " Return Mapping Ok!\n" || last == " Numerical problem\n") << last;
    // Every other line is the saturation line.
    std::size_t pos = 0, lines = 0;
    while (pos < out.size() - last.size()) {
        EXPECT_EQ(out.substr(pos, 10), "  q > qf \n");
        pos += 10;
        ++lines;
    }
    EXPECT_GE(lines, 2u);
}

TEST(HsPlast, VerdictLineMatchesTheOutcome) {
    Rng r(25);
    int ok = 0, bad = 0;
    for (int k = 0; k < 300 && (ok < 5 || bad < 5); ++k) {
        const int iModel = 1 + k % 4, area = 1 + k % 3;
        const Soil s = make_soil(iModel, r);
        const Start st = make_start(s, r, 20.0, 300.0, area);
        const Mat3 D3 = elastic(s, st.Prs_0(3));
        Vec3 Prs_E = add(st.Prs_0, D3, make_strain(r, area, 0.0));
        snap(Prs_E, area);
        if (!ordered(Prs_E)) continue;
        const Call c = hs_plast(s, area, Prs_E, st, D3);
        std::string out = tervak_test::capture_stdout([&] {
            Vec3 Prs;
            double hard[2];
            int iPlast = 0;
            tervak::HS_plast(1, 1, 1, 1, area, s.props.data(), Prs_E, Prs, st.hard, hard, iPlast,
                             st.Prs_0, 0, D3, s.R, iModel);
        });
        const std::string last = out.substr(out.rfind('\n', out.size() - 2) + 1);
        EXPECT_EQ(last, c.out.ok ? " Return Mapping Ok!\n" : " Numerical problem\n");
        (c.out.ok ? ok : bad)++;
    }
    EXPECT_GT(ok, 0);
}

TEST(HsTracPlast, PureTensionReturnLeavesGammaAlone) {
    // Shear not violated, tension violated: a negative or zero shear
    // multiplier; gamma_p must not move because of the tension multiplier.
    Rng r(32);
    const Soil s = make_soil(1, r);
    Start st = make_start(s, r, 5.0, 10.0, 1);
    st.hard[0] = 0.2;
    const Mat3 D3 = elastic(s, st.Prs_0(3));
    const Vec3 Prs_E{{st.Prs_0(1), st.Prs_0(2), -s.T() - 3.0}};
    Call c;
    tervak::HS_TRAC_plast_r(1, 1, -1, 0, 1, s.props.data(), Prs_E, c.Prs, st.hard, c.hard,
                            c.iPlast, st.Prs_0, 0, D3, 1.0, 1, &c.out);
    EXPECT_GT(c.out.xLam[1], 0.0);
    EXPECT_LE(c.out.xLam[0], 0.0);
    EXPECT_EQ(c.hard[0], 0.2);
}

TEST(HsCapPlast, LowMeanStressExitHandsBackTheTrialState) {
    Rng r(42);
    int exits = 0;
    for (int k = 0; k < 200; ++k) {
        const int iModel = 1 + k % 4, area = 2 + k % 2;
        Soil s = make_soil(iModel, r);
        Start st = make_start(s, r, 30.0, 300.0, area);
        s.P(s.odd() ? 12 : 19) = 1e5;  // every reachable mean stress lies below T
        st.hard[1] = -std::sqrt(f_cap(make_cap(s), st.Prs_0, 0.0));
        const Mat3 D3 = elastic(s, st.Prs_0(3));
        Vec3 Prs_E = add(st.Prs_0, D3, make_strain(r, area, 0.8));
        snap(Prs_E, area);
        if (!ordered(Prs_E)) continue;
        for (int undr : {1, 0}) {
            Call c;
            const double hardE[2] = {st.hard[0], st.hard[1]};
            tervak::HS_CAP_plast_r(1, 1, -1, 0, area, s.props.data(), Prs_E, c.Prs, hardE, c.hard,
                                   c.iPlast, st.Prs_0, undr, D3, s.R, iModel, &c.out);
            if (undr == 1 && c.out.it > 0) {
                ASSERT_TRUE(c.out.early_exit);
                EXPECT_EQ(c.out.it, 1);  // at the end of the first pass
                for (int i = 1; i <= 3; ++i) EXPECT_TRUE(same_bits(c.Prs(i), Prs_E(i)));
                EXPECT_TRUE(same_bits(c.hard[0], hardE[0]));
                EXPECT_TRUE(same_bits(c.hard[1], hardE[1]));
                ++exits;
            }
            if (undr == 0) {
                EXPECT_FALSE(c.out.early_exit);
            }
        }
        // Area 1 has no such exit.
        Call c1;
        tervak::HS_CAP_plast_r(1, 1, -1, 0, 1, s.props.data(), Prs_E, c1.Prs, st.hard, c1.hard,
                               c1.iPlast, st.Prs_0, 1, D3, s.R, iModel, &c1.out);
        EXPECT_FALSE(c1.out.early_exit);
    }
    EXPECT_GT(exits, 20);
    // The exit is silent, even at the diagnostic point.
}

// ---------------------------------------------------------------------------
// HS_CAP_plast_it.

TEST(HsCapPlastIt, FollowsTheCapKernelOnTheTriaxialEdgeSilently) {
    Rng r(51);
    int compared = 0;
    for (int k = 0; k < 300; ++k) {
        const int iModel = 1 + k % 3;
        Soil s = make_soil(iModel, r);
        if (iModel == 2) continue;  // its elastic matrix is not Matriz3's to build
        const Start st = make_start(s, r, 30.0, 300.0, 2);
        Mat3 D3;
        tervak::Matriz3(s.props.data(), st.Prs_0.data(), D3.data(), iModel);
        Vec3 Prs_E = add(st.Prs_0, D3, make_strain(r, 2, 0.8));
        Prs_E(2) = Prs_E(3);
        if (!ordered(Prs_E)) continue;
        Call ref;
        tervak::HS_CAP_plast_r(1, 1, -1, 0, 2, s.props.data(), Prs_E, ref.Prs, st.hard, ref.hard,
                               ref.iPlast, st.Prs_0, 0, D3, 1.0, iModel, &ref.out);
        // Stored negative, as the models keep it.
        Call it;
        int iRes = -5;
        std::string out = tervak_test::capture_stdout([&] {
            tervak::HS_CAP_plast_it_r(2, s.props.data(), Prs_E, it.Prs, st.hard, it.hard, iRes,
                                      st.Prs_0, iModel, &it.out);
        });
        EXPECT_EQ(out, "");
        for (int i = 1; i <= 3; ++i) EXPECT_TRUE(same_bits(it.Prs(i), ref.Prs(i)));
        EXPECT_TRUE(same_bits(it.hard[0], ref.hard[0]));
        EXPECT_TRUE(same_bits(it.hard[1], ref.hard[1]));
        EXPECT_EQ(iRes, it.out.xLam[0] > -1e-6 && it.out.xLam[1] > -1e-6 ? 0 : 1);
        // Carried as a positive magnitude, as the calibration does.
        const double hardPos[2] = {st.hard[0], -st.hard[1]};
        Call pos;
        tervak::HS_CAP_plast_it(2, s.props.data(), Prs_E, pos.Prs, hardPos, pos.hard, iRes,
                                st.Prs_0, iModel);
        for (int i = 1; i <= 3; ++i) EXPECT_TRUE(same_bits(pos.Prs(i), ref.Prs(i)));
        EXPECT_EQ(pos.hard[1], -ref.hard[1]);
        EXPECT_GE(pos.hard[1], hardPos[1]);
        ++compared;
    }
    EXPECT_GT(compared, 100);
}

TEST(HsCapPlastIt, StopsOnUnknownModelAndOnNaNMultiplier) {
    Rng r(52);
    const Soil s = make_soil(1, r);
    const Start st = make_start(s, r, 30.0, 300.0, 2);
    const auto call = [&](int iModel, const Vec3& Prs_E) {
        return tervak_test::run_child([&] {
            Vec3 Prs;
            double hard[2];
            int iRes = 0;
            tervak::HS_CAP_plast_it(2, s.props.data(), Prs_E, Prs, st.hard, hard, iRes, st.Prs_0,
                                    iModel);
        });
    };
    const auto m4 = call(4, st.Prs_0);
    EXPECT_NE(m4.status, 0);
    EXPECT_EQ(m4.out, "");
    const Vec3 bad{{std::nan(""), st.Prs_0(2), st.Prs_0(3)}};
    const auto nan = call(1, bad);
    EXPECT_NE(nan.status, 0);
    EXPECT_EQ(nan.out, "");
    EXPECT_NE(nan.err.find("xLam12_hs is a NaN"), std::string::npos) << nan.err;
    const auto fine = call(3, st.Prs_0);
    EXPECT_EQ(fine.status, 0);
}

// ---------------------------------------------------------------------------
// Invalid areas.

TEST(HsKernels, InvalidAreasStop) {
    Rng r(61);
    const Soil s = make_soil(1, r);
    const Start st = make_start(s, r, 30.0, 300.0, 1);
    const Mat3 D3 = elastic(s, st.Prs_0(3));
    using Kernel = void (*)(int, int, int, int, int, const double*, const Vec3&, Vec3&,
                            const double*, double*, int&, const Vec3&, int, const Mat3&, double,
                            int);
    const auto call = [&](Kernel k, int area) {
        return tervak_test::run_child([&] {
            Vec3 Prs;
            double hard[2];
            int iPlast = 0;
            k(1, 1, -1, 0, area, s.props.data(), st.Prs_0, Prs, st.hard, hard, iPlast, st.Prs_0,
              0, D3, 1.0, 1);
        });
    };
    for (int area : {0, 4}) {
        const auto hs = call(&tervak::HS_plast, area);
        EXPECT_NE(hs.status, 0);
        EXPECT_EQ(hs.out, "  incorrect iArea in HS_plast\n");
        const auto trac = call(&tervak::HS_TRAC_plast, area);
        EXPECT_NE(trac.status, 0);
        EXPECT_EQ(trac.out, "");
        const auto cap = call(&tervak::HS_CAP_plast, area);
        EXPECT_NE(cap.status, 0);
        EXPECT_EQ(cap.out, "  incorrect iArea in HS_plast\n");
    }
}

// ---------------------------------------------------------------------------
// The exported symbols, as a host calls them.

TEST(HsKernels, ExportsGiveTheKernelsResults) {
    void* lib = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    using Export16 = void (*)(int32_t*, int32_t*, int32_t*, int32_t*, int32_t*, double*, double*,
                              double*, double*, double*, int32_t*, double*, int32_t*, double*,
                              double*, int32_t*);
    using ExportIt = void (*)(int32_t*, double*, double*, double*, double*, double*, int32_t*,
                              double*, int32_t*);
    Rng r(71);
    const char* names[3] = {"hs_plast_", "hs_trac_plast_", "hs_cap_plast_"};
    for (int k = 0; k < 3; ++k) {
        const auto fn = reinterpret_cast<Export16>(dlsym(lib, names[k]));
        ASSERT_NE(fn, nullptr) << names[k];
        for (int iModel = 1; iModel <= 4; ++iModel) {
            Soil s = make_soil(iModel, r);
            Start st = make_start(s, r, 30.0, 300.0, 1);
            Mat3 D3 = elastic(s, st.Prs_0(3));
            Vec3 Prs_E = add(st.Prs_0, D3, make_strain(r, 1, 0.5));
            const Call c = call_r(static_cast<Kernel>(k), s, 1, Prs_E, st, D3);
            int32_t iEl = 1, Int = 1, dEl = -1, dInt = 0, area = 1, undr = 0, plast = 0,
                    model = iModel;
            double Prs[3], hard[2];
            fn(&iEl, &Int, &dEl, &dInt, &area, s.props.data(), Prs_E.data(), Prs, st.hard, hard,
               &plast, st.Prs_0.data(), &undr, D3.data(), &s.R, &model);
            for (int i = 0; i < 3; ++i) EXPECT_TRUE(same_bits(Prs[i], c.Prs.v[i])) << names[k];
            EXPECT_TRUE(same_bits(hard[0], c.hard[0]));
            EXPECT_TRUE(same_bits(hard[1], c.hard[1]));
            EXPECT_EQ(plast, c.iPlast);
        }
    }
    const auto it = reinterpret_cast<ExportIt>(dlsym(lib, "hs_cap_plast_it_"));
    ASSERT_NE(it, nullptr);
    const Soil s = make_soil(1, r);
    const Start st = make_start(s, r, 30.0, 300.0, 2);
    Mat3 D3;
    tervak::Matriz3(s.props.data(), st.Prs_0.data(), D3.data(), 1);
    Vec3 Prs_E = add(st.Prs_0, D3, make_strain(r, 2, 0.8));
    Vec3 ref;
    double refHard[2], hard[2], Prs[3];
    int refRes = 0;
    tervak::HS_CAP_plast_it(2, s.props.data(), Prs_E, ref, st.hard, refHard, refRes, st.Prs_0, 1);
    int32_t area = 2, res = -1, model = 1;
    double hardE[2] = {st.hard[0], st.hard[1]};
    Vec3 Prs_0 = st.Prs_0;
    std::vector<double> props(s.props.begin(), s.props.end());
    it(&area, props.data(), Prs_E.data(), Prs, hardE, hard, &res, Prs_0.data(), &model);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(same_bits(Prs[i], ref.v[i]));
    EXPECT_TRUE(same_bits(hard[1], refHard[1]));
    EXPECT_EQ(res, refRes);
    dlclose(lib);
}

}  // namespace
