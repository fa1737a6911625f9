// Cap kernels: CAP_plast and MC_CAP_plast, and the cap surface they share.
// Seeded random sweeps over the four model layouts check invariants: an Ok
// return lies on every surface of its area (the surfaces are re-evaluated
// here from their formulas, in long double), the cap only grows, gamma_p
// passes through. Fixed cases cover the hydrostatic axis, the deviator
// floor, the hardening factor, the low-mean-stress exit and invalid areas.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "support/kernel_calls.hpp"
#include "kernels/cap_surface.hpp"
#include "kernels/kernels.hpp"
#include "support/test_support.hpp"
#include "toolkit/elastic.hpp"

namespace {

using tervak::CapOutcome;
using tervak::Mat3;
using tervak::Vec3;
using tervak_test::capture_stdout;
using tervak_test::run_child;

constexpr double kDeg = 0.017453292519444445;
using LD = long double;

// ---------------------------------------------------------------------------
// Parameter sets of the four layouts.

struct Soil {
    int iModel = 1;
    std::array<double, 25> props{};
    double R = 1.0;  // hardening-rate base
    double nu = 0.2;
    double P(int i) const { return props[static_cast<std::size_t>(i - 1)]; }
    double& P(int i) { return props[static_cast<std::size_t>(i - 1)]; }
    bool odd() const { return iModel == 1 || iModel == 3; }
    double Eur_ref() const { return odd() ? P(3) : P(11); }
    double m() const { return odd() ? P(4) : P(12); }
    double c() const { return odd() ? P(5) : P(14); }
    double phi() const { return (odd() ? P(6) : P(15)) * kDeg; }
    double psi() const { return (odd() ? P(7) : P(16)) * kDeg; }
    double pref() const { return odd() ? P(9) : P(13); }
    double T() const { return odd() ? P(12) : P(19); }
    double Ehyp() const { return odd() ? P(13) : P(20); }
    double alpha() const { return odd() ? P(14) : P(21); }
    double ratio() const { return odd() ? P(15) : P(22); }
    const double* data() const { return props.data(); }
};

struct Rng {
    std::mt19937_64 g;
    explicit Rng(std::uint64_t seed) : g(seed) {}
    double u(double a, double b) { return std::uniform_real_distribution<double>(a, b)(g); }
};

Soil make_soil(int iModel, Rng& r) {
    Soil s;
    s.iModel = iModel;
    const double E50 = r.u(1e4, 6e4);
    const double Rf = 0.9;
    const double Ei = 2.0 * E50 / (2.0 - Rf);
    const double Eur = r.u(2.5, 4.0) * E50;
    const double m = r.u(0.4, 1.0);
    const double c = r.u(0.0, 20.0);
    const double phi = r.u(20.0, 42.0);
    const double psi = r.u(0.0, 0.4) * phi;
    const double T = r.u(0.0, 5.0);
    const double alpha = r.u(0.8, 2.5);
    // Models 1 and 2 divide by the cap ratio, 3 and 4 by (ratio - 1).
    const double ratio = (iModel <= 2) ? r.u(0.05, 3.0) : r.u(1.2, 4.0);
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
        s.P(10) = 0.5;
        s.P(11) = Rf;
        s.P(12) = T;
        s.P(13) = Ei;
        s.P(14) = alpha;
        s.P(15) = ratio;
        s.P(16) = 1.0;
    } else {
        s.P(1) = Eur / (3.0 * (1.0 - 2.0 * s.nu));
        s.P(2) = 3.0 * Eur;
        s.P(3) = 0.3 * Eur;
        s.P(4) = 1e-4;
        s.P(5) = 100.0;
        s.P(6) = 100.0;
        s.P(7) = 0.5;
        s.P(8) = 0.5;
        s.P(11) = Eur;
        s.P(12) = m;
        s.P(13) = 100.0;
        s.P(14) = c;
        s.P(15) = phi;
        s.P(16) = psi;
        s.P(17) = 0.5;
        s.P(18) = Rf;
        s.P(19) = T;
        s.P(20) = E50;
        s.P(21) = alpha;
        s.P(22) = ratio;
        s.P(23) = s.nu;
        s.R = r.u(1.0, 2.0);
    }
    return s;
}

// The principal elastic matrix the models hand over: Matriz3 at the trial
// stress (models 1 and 3), or from bulk and shear moduli (models 2 and 4).
Mat3 elastic(const Soil& s, const Vec3& Prs) {
    Mat3 D;
    if (s.odd()) {
        tervak::Matriz3(s.data(), Prs.data(), D.data(), s.iModel);
    } else {
        const double E = s.Eur_ref() * s.R;
        tervak::Matriz3_NL(D.data(), E / (3.0 * (1.0 - 2.0 * s.nu)), E / (2.0 * (1.0 + s.nu)));
    }
    return D;
}

// ---------------------------------------------------------------------------
// Independent evaluation of the surfaces.

struct Ref {
    LD sinphi, cosphi, delta, alpha2, c, sinpsi;
};

Ref make_ref(const Soil& s) {
    Ref r{};
    r.sinphi = std::sin(static_cast<LD>(s.phi()));
    r.cosphi = std::cos(static_cast<LD>(s.phi()));
    r.sinpsi = std::sin(static_cast<LD>(s.psi()));
    r.delta = (3 + r.sinphi) / (3 - r.sinphi);
    r.alpha2 = static_cast<LD>(s.alpha()) * s.alpha();
    r.c = s.c();
    return r;
}

LD ref_qt(const Ref& r, const Vec3& P) {
    const LD qt = P(1) + (r.delta - 1) * P(2) - r.delta * P(3);
    return qt < 0.001L ? 0 : qt;
}

LD ref_cap(const Ref& r, const Vec3& P, double pc, LD* scale = nullptr) {
    const LD p = (static_cast<LD>(P(1)) + P(2) + P(3)) / 3;
    const LD qt = ref_qt(r, P);
    const LD a = qt * qt / r.alpha2, b = p * p, d = static_cast<LD>(pc) * pc;
    if (scale != nullptr) *scale = a + b + d;
    return a + b - d;
}

// Mohr-Coulomb face on the pair (i, j).
LD ref_mc(const Ref& r, const Vec3& P, int i, int j, LD* scale = nullptr) {
    const LD si = P(i), sj = P(j);
    if (scale != nullptr) *scale = std::fabs(si) + std::fabs(sj) + std::fabs(r.c);
    return (si - sj) / 2 - (si + sj) / 2 * r.sinphi - r.c * r.cosphi;
}

double tolerance(double f_trial) { return std::fabs(f_trial) * 1e-12 + 1e-12; }

// Within the kernel's tolerance, with room for a few roundings of the terms.
::testing::AssertionResult on_surface(LD f, double f_trial, LD scale) {
    const LD allowed = 2 * static_cast<LD>(tolerance(f_trial)) + 32 * DBL_EPSILON * scale;
    if (std::fabs(f) <= allowed) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "f = " << static_cast<double>(f) << ", allowed " << static_cast<double>(allowed);
}

bool ordered(const Vec3& P) { return P(1) >= P(2) && P(2) >= P(3); }

Vec3 mul(const Mat3& D, const Vec3& x) {
    Vec3 y;
    for (int i = 1; i <= 3; ++i)
        for (int k = 1; k <= 3; ++k) y(i) += D(i, k) * x(k);
    return y;
}

Vec3 lin(const Vec3& a, double fa, const Vec3& b) {
    return Vec3{{a(1) + fa * b(1), a(2) + fa * b(2), a(3) + fa * b(3)}};
}

Vec3 cap_gradient(const Ref& r, const Vec3& P) {
    const double p = (P(1) + P(2) + P(3)) / 3.0;
    const double qt = static_cast<double>(ref_qt(r, P));
    const double a2 = static_cast<double>(r.alpha2), d = static_cast<double>(r.delta);
    return Vec3{{2 * (p / 3 + qt / a2), 2 * (p / 3 + (d - 1) * qt / a2), 2 * (p / 3 - d * qt / a2)}};
}

Vec3 mc_flow(const Ref& r, int i, int j) {
    Vec3 g;
    g(i) = static_cast<double>((1 - r.sinpsi) / 2);
    g(j) = static_cast<double>(-(1 + r.sinpsi) / 2);
    return g;
}

// A call of either kernel with its outcome.
struct Call {
    Vec3 Prs;
    double hard[2] = {0.0, 0.0};
    int iPlast = -7;
    CapOutcome out;
};

Call cap(const Soil& s, int iArea, const Vec3& Prs_E, const double (&hardE)[2], int IsUndr = 0,
         int iEl = 1, int iElDbg = -1) {
    Call c;
    c.hard[0] = -12345.0;  // sentinel: must be overwritten with hardE[0]
    c.hard[1] = -12345.0;
    const Mat3 D3 = elastic(s, Prs_E);
    tervak::CAP_plast_r(iEl, 3, iElDbg, 3, iArea, s.data(), Prs_E, c.Prs, hardE, c.hard,
                        c.iPlast, Prs_E, IsUndr, D3, s.R, s.iModel, &c.out);
    return c;
}

Call mc_cap(const Soil& s, int iArea, const Vec3& Prs_E, const double (&hardE)[2], int iEl = 1,
            int iElDbg = -1) {
    Call c;
    c.hard[0] = 777.0;  // sentinel: MC_CAP_plast leaves gamma_p alone
    c.hard[1] = -12345.0;
    const Mat3 D3 = elastic(s, Prs_E);
    tervak::MC_CAP_plast_r(iEl, 3, iElDbg, 3, iArea, s.data(), Prs_E, c.Prs, hardE, c.hard,
                           c.iPlast, Prs_E, D3, s.R, s.iModel, &c.out);
    return c;
}

// A trial outside the cap: mean stress beyond pc, deviator random.
// shape 1: generic; 2: P2 just above P3; 3: P1 just above P2.
Vec3 cap_trial(Rng& r, double pc, int shape) {
    const double p = pc * r.u(1.01, 1.6);
    double d1 = r.u(0.0, 0.5) * pc, d3 = -r.u(0.0, 0.5) * pc;
    double d2 = r.u(d3, d1);
    if (shape == 2) d2 = d3 + r.u(0.0, 0.02) * (d1 - d3);
    if (shape == 3) d2 = d1 - r.u(0.0, 0.02) * (d1 - d3);
    const double mean = (d1 + d2 + d3) / 3.0;
    return Vec3{{p + d1 - mean, p + d2 - mean, p + d3 - mean}};
}

// ---------------------------------------------------------------------------
// The cap surface itself.

TEST(CapSurface, DeviatorFloorAndFunction) {
    const double delta = tervak::cap_delta(std::sin(30.0 * kDeg));
    // qt = 0.0005 counts as zero.
    const Vec3 P{{100.0005, 100.0, 100.0}};
    const double qt_raw = P(1) + (delta - 1.0) * P(2) - delta * P(3);
    ASSERT_NEAR(qt_raw, 0.0005, 1e-9);
    EXPECT_EQ(tervak::cap_qt(P, delta), 0.0);
    const double p = tervak::cap_p(P);
    EXPECT_EQ(tervak::f_cap(tervak::cap_qt(P, delta), p, 90.0, 2.25), p * p - 90.0 * 90.0);
    // Just above the floor the deviator counts.
    const Vec3 Q{{100.002, 100.0, 100.0}};
    EXPECT_GT(tervak::cap_qt(Q, delta), 0.001);
    // The gradient on the axis is (2p/3)(1, 1, 1).
    const Vec3 n = tervak::df_capmdS(0.0, 90.0, delta, 2.25);
    EXPECT_EQ(n(1), 60.0);
    EXPECT_EQ(n(2), 60.0);
    EXPECT_EQ(n(3), 60.0);
    EXPECT_EQ(tervak::df_capmdq(45.0), -90.0);
}

TEST(CapSurface, GradientAndCurvatureMatchDifferences) {
    Rng r(11);
    for (int k = 0; k < 200; ++k) {
        const double delta = tervak::cap_delta(std::sin(r.u(15.0, 45.0) * kDeg));
        const double alpha2 = std::pow(r.u(0.5, 3.0), 2);
        const Vec3 P{{r.u(200.0, 300.0), r.u(100.0, 200.0), r.u(0.0, 100.0)}};
        const auto f = [&](const Vec3& X) {
            return tervak::f_cap(tervak::cap_qt(X, delta), tervak::cap_p(X), 0.0, alpha2);
        };
        const Vec3 n = tervak::df_capmdS(tervak::cap_qt(P, delta), tervak::cap_p(P), delta,
                                         alpha2);
        const Mat3 H = tervak::cap_curvature(delta, alpha2);
        const double h = 1e-3;
        for (int i = 1; i <= 3; ++i) {
            Vec3 a = P, b = P;
            a(i) += h;
            b(i) -= h;
            EXPECT_NEAR(n(i), (f(a) - f(b)) / (2 * h), 1e-6 * std::fabs(n(i)) + 1e-6);
            const Vec3 na = tervak::df_capmdS(tervak::cap_qt(a, delta), tervak::cap_p(a), delta,
                                              alpha2);
            const Vec3 nb = tervak::df_capmdS(tervak::cap_qt(b, delta), tervak::cap_p(b), delta,
                                              alpha2);
            for (int j = 1; j <= 3; ++j)
                EXPECT_NEAR(H(j, i), (na(j) - nb(j)) / (2 * h), 1e-6 * std::fabs(H(j, i)) + 1e-8);
            EXPECT_EQ(H(i, 1), H(1, i));
        }
    }
}

TEST(CapSurface, HardeningModulusByModel) {
    Rng r(5);
    for (int k = 0; k < 100; ++k) {
        for (int model = 1; model <= 4; ++model) {
            const Soil s = make_soil(model, r);
            const double p = r.u(-5.0, 400.0), pc = r.u(-5.0, 400.0), h = r.u(1.0, 3.0);
            const double sp = std::sin(s.phi()), ccot = s.c() * std::cos(s.phi()) / sp;
            const double pf = std::max(1.0, p);
            double want = 0.0;
            if (model <= 2)
                want = 2 * pf * s.pref() / s.ratio() * std::pow(std::max(1.0, pc) / s.pref(), s.m());
            else
                want = 2 * (model == 3 ? s.P(3) / (3 * (1 - 2 * s.P(8))) : s.P(1) / (1 - s.P(7))) /
                       (s.ratio() - 1) * pf *
                       std::pow(std::max(ccot + pc, 1.0) / (ccot + s.pref()), s.m());
            if (model % 2 == 0) want *= h;
            EXPECT_NEAR(tervak::read_material(model, s.data()).xh_cap(p, pc, h), want,
                        1e-12 * std::fabs(want))
                << "model " << model;
            EXPECT_GT(want, 0.0);
        }
        // Unknown model numbers give nothing.
        const Soil s = make_soil(1, r);
        EXPECT_EQ(tervak::read_material(5, s.data()).xh_cap(100.0, 100.0, 1.0), 0.0);
    }
}

// ---------------------------------------------------------------------------
// CAP_plast.

TEST(CapPlast, Area1SweepLandsOnCapAndOnlyGrowsIt) {
    int ok = 0, total = 0;
    for (int model = 1; model <= 4; ++model) {
        Rng r(100 + model);
        for (int k = 0; k < 400; ++k) {
            const Soil s = make_soil(model, r);
            const Ref ref = make_ref(s);
            const double pc = r.u(30.0, 500.0);
            const double hardE[2] = {r.u(1e-10, 1e-2), -pc};
            const Vec3 Prs_E = cap_trial(r, pc, 1);
            const double fE = static_cast<double>(ref_cap(ref, Prs_E, pc));
            if (!(fE > 1.0)) continue;
            const Call c = cap(s, 1, Prs_E, hardE);
            ++total;
            EXPECT_EQ(c.iPlast, 3);
            EXPECT_EQ(std::memcmp(&c.hard[0], &hardE[0], sizeof(double)), 0);
            EXPECT_LE(c.hard[1], hardE[1]);
            if (!c.out.ok) continue;
            ++ok;
            LD scale;
            const LD f = ref_cap(ref, c.Prs, -c.hard[1], &scale);
            EXPECT_TRUE(on_surface(f, fE, scale)) << "model " << model << " case " << k;
            EXPECT_GT(c.out.xLam[0], 0.0);
            // A positive multiplier with a positive modulus grows the cap.
            EXPECT_GE(-c.hard[1], pc);
            EXPECT_LT(c.out.it, 101);
            // The return moves inwards: mean stress drops.
            EXPECT_LT(tervak::cap_p(c.Prs), tervak::cap_p(Prs_E));
        }
    }
    EXPECT_GT(total, 1000);
    EXPECT_GE(ok, total * 95 / 100) << ok << " of " << total;
}

TEST(CapPlast, EdgeReturnsAfterOrderIsLost) {
    // As the models do: an area-1 return that leaves the sorted order is
    // repeated on the edge (area 2 when P3 > P2, area 3 when P1 < P2).
    int edges[4] = {0, 0, 0, 0}, oks[4] = {0, 0, 0, 0};
    for (int model = 1; model <= 4; ++model) {
        Rng r(200 + model);
        for (int k = 0; k < 600; ++k) {
            const Soil s = make_soil(model, r);
            const Ref ref = make_ref(s);
            const double pc = r.u(30.0, 500.0);
            const double hardE[2] = {0.01, -pc};
            const Vec3 Prs_E = cap_trial(r, pc, 2 + (k % 2));
            const double fE = static_cast<double>(ref_cap(ref, Prs_E, pc));
            if (!(fE > 1.0) || !ordered(Prs_E)) continue;
            const Call first = cap(s, 1, Prs_E, hardE);
            int area = 1;
            if (first.Prs(3) > first.Prs(2)) area = 2;
            if (first.Prs(1) < first.Prs(2)) area = 3;
            if (area == 1) continue;
            ++edges[area];
            const Call c = cap(s, area, Prs_E, hardE);
            EXPECT_EQ(c.iPlast, 3);
            EXPECT_EQ(c.hard[0], hardE[0]);
            EXPECT_LE(c.hard[1], hardE[1]);
            EXPECT_EQ(c.out.nLam, 2);
            if (!c.out.ok) continue;
            ++oks[area];
            LD scale;
            const LD f = ref_cap(ref, c.Prs, -c.hard[1], &scale);
            EXPECT_TRUE(on_surface(f, fE, scale)) << "model " << model << " area " << area;
            const double fb_E = area == 2 ? Prs_E(3) - Prs_E(2) : Prs_E(2) - Prs_E(1);
            const LD fb = area == 2 ? static_cast<LD>(c.Prs(3)) - c.Prs(2)
                                    : static_cast<LD>(c.Prs(2)) - c.Prs(1);
            EXPECT_TRUE(on_surface(fb, fb_E, std::fabs(c.Prs(2)))) << "area " << area;
            EXPECT_GT(c.out.xLam[0], -1e-12);
            EXPECT_GT(c.out.xLam[1], -1e-12);
        }
    }
    for (int area = 2; area <= 3; ++area) {
        EXPECT_GT(edges[area], 100) << "area " << area;
        EXPECT_GE(oks[area], edges[area] * 9 / 10) << "area " << area;
    }
}

TEST(CapPlast, AnyAreaAnyTrialOnlyGrowsTheCap) {
    // Also trials inside the cap and far outside: whatever the verdict, the
    // stored cap value never rises and gamma_p passes bit for bit.
    for (int model = 1; model <= 4; ++model) {
        Rng r(300 + model);
        for (int k = 0; k < 300; ++k) {
            const Soil s = make_soil(model, r);
            const double pc = r.u(1.0, 500.0);
            const double hardE[2] = {r.u(0.0, 0.1), -pc};
            const Vec3 Prs_E{{r.u(0.0, 2.0) * pc, 0.0, 0.0}};
            Vec3 P = Prs_E;
            P(2) = P(1) * r.u(0.0, 1.0);
            P(3) = P(2) * r.u(-0.2, 1.0);
            for (int area = 1; area <= 3; ++area) {
                const Call c = cap(s, area, P, hardE);
                EXPECT_EQ(c.iPlast, 3);
                EXPECT_EQ(c.hard[0], hardE[0]);
                EXPECT_FALSE(c.hard[1] > hardE[1]);
            }
        }
    }
}

TEST(CapPlast, HydrostaticTrialReturnsAlongTheAxis) {
    for (int model = 1; model <= 4; ++model) {
        Rng r(400 + model);
        for (int k = 0; k < 100; ++k) {
            const Soil s = make_soil(model, r);
            const double pc = r.u(30.0, 500.0);
            const double p = pc * r.u(1.01, 2.0);
            const double hardE[2] = {0.001, -pc};
            const Vec3 Prs_E{{p, p, p}};
            const Call c = cap(s, 1, Prs_E, hardE);
            ASSERT_TRUE(c.out.ok);
            EXPECT_NEAR(c.Prs(1), c.Prs(2), 1e-12 * p);
            EXPECT_NEAR(c.Prs(2), c.Prs(3), 1e-12 * p);
            // On the axis the cap is p = pc.
            EXPECT_NEAR(tervak::cap_p(c.Prs), -c.hard[1], 1e-9 * p);
            EXPECT_LT(tervak::cap_p(c.Prs), p);
        }
    }
}

TEST(CapPlast, DeviatorBelowFloorCountsAsZero) {
    // qt = 0.0005 with p = pc exactly: the trial lies on the cap, the
    // multiplier is zero and the trial comes back unchanged. Just above the
    // floor the same kind of state is outside and moves.
    Rng r(9);
    const Soil s = make_soil(1, r);
    const double delta = tervak::cap_delta(std::sin(s.phi()));
    const Vec3 P{{100.0005, 100.0, 100.0}};
    ASSERT_EQ(tervak::cap_qt(P, delta), 0.0);
    const double pc = tervak::cap_p(P);
    const double hardE[2] = {0.001, -pc};
    const Call c = cap(s, 1, P, hardE);
    EXPECT_EQ(c.out.xLam[0], 0.0);
    EXPECT_EQ(c.out.it, 0);
    EXPECT_EQ(std::memcmp(c.Prs.data(), P.data(), sizeof P.v), 0);
    EXPECT_EQ(c.hard[1], hardE[1]);

    const Vec3 Q{{100.05, 100.0, 100.0}};
    ASSERT_GT(tervak::cap_qt(Q, delta), 0.001);
    const double pcq = tervak::cap_p(Q);
    const double hardQ[2] = {0.001, -pcq};
    const Call d = cap(s, 1, Q, hardQ);
    EXPECT_GT(d.out.xLam[0], 0.0);
    EXPECT_NE(std::memcmp(d.Prs.data(), Q.data(), sizeof Q.v), 0);
}

TEST(CapPlast, UnitFactorMakesModelsTwoAndFourIgnoreTheModuli) {
    // With R = 1 the hardening factor is 1 whatever Eur_ref / Ei_ref, so
    // changing the moduli ratio leaves the return unchanged (D3 held fixed).
    Rng r(21);
    for (int model : {2, 4}) {
        for (int k = 0; k < 50; ++k) {
            Soil a = make_soil(model, r);
            a.R = 1.0;
            Soil b = a;
            b.P(20) = a.P(20) * 3.7;
            const double pc = r.u(50.0, 300.0);
            const double hardE[2] = {0.0, -pc};
            const Vec3 Prs_E = cap_trial(r, pc, 1);
            const Call ca = cap(a, 1, Prs_E, hardE);
            const Call cb = cap(b, 1, Prs_E, hardE);
            EXPECT_EQ(std::memcmp(ca.Prs.data(), cb.Prs.data(), sizeof ca.Prs.v), 0);
            EXPECT_EQ(ca.hard[1], cb.hard[1]);
            // With R > 1 the moduli ratio matters again.
            a.R = b.R = 1.5;
            const Call cc = cap(a, 1, Prs_E, hardE);
            const Call cd = cap(b, 1, Prs_E, hardE);
            EXPECT_NE(cc.hard[1], cd.hard[1]);
        }
    }
}

TEST(CapPlast, UndrainedLowMeanStressHandsBackTheTrial) {
    // T far above every stress: the first step always ends below T.
    Rng r(31);
    for (int model = 1; model <= 4; ++model) {
        for (int area = 1; area <= 3; ++area) {
            Soil s = make_soil(model, r);
            const double pc = 100.0;
            const double hardE[2] = {0.0123, -pc};
            const Vec3 Prs_E = cap_trial(r, pc, 1);
            // T in the kernel's own position, far above the stresses.
            Soil u = s;
            u.P(s.odd() ? 12 : 19) = 1e6;
            std::string printed;
            Call c;
            printed = capture_stdout([&] { c = cap(u, area, Prs_E, hardE, 1, 1, 1); });
            EXPECT_TRUE(c.out.early_exit);
            EXPECT_EQ(printed, "");  // no verdict even at the traced point
            EXPECT_EQ(std::memcmp(c.Prs.data(), Prs_E.data(), sizeof Prs_E.v), 0);
            EXPECT_EQ(std::memcmp(c.hard, hardE, sizeof hardE), 0);
            EXPECT_EQ(c.iPlast, 3);
            // Drained, the same call returns.
            const Call d = cap(u, area, Prs_E, hardE, 0);
            EXPECT_FALSE(d.out.early_exit);
            EXPECT_NE(std::memcmp(d.Prs.data(), Prs_E.data(), sizeof Prs_E.v), 0);
            // Undrained but with the mean stress above T: no exit either.
            const Call e = cap(s, area, Prs_E, hardE, 1);
            EXPECT_FALSE(e.out.early_exit);
            EXPECT_EQ(std::memcmp(e.Prs.data(), d.Prs.data(), sizeof d.Prs.v), 0);
            EXPECT_EQ(e.hard[1], d.hard[1]);
        }
    }
}

TEST(CapPlast, ExitComparesFirstStepMeanWithPlusT) {
    // The first step worked out here: n and xh_cap at the trial, multiplier
    // f / (n . D3 n + 2 pc xh_cap), Prs = Prs_E - xLam D3 n. A tension value
    // T just above its mean stress makes the undrained call exit, just below
    // it does not.
    Rng r(33);
    for (int k = 0; k < 50; ++k) {
        const Soil base = make_soil(1, r);
        const Ref ref = make_ref(base);
        const double pc = r.u(50.0, 300.0);
        const double hardE[2] = {0.0, -pc};
        const Vec3 Prs_E = cap_trial(r, pc, 1);
        const Mat3 D3 = elastic(base, Prs_E);
        const double pE = (Prs_E(1) + Prs_E(2) + Prs_E(3)) / 3.0;
        const Vec3 n = cap_gradient(ref, Prs_E);
        const Vec3 Dn = mul(D3, n);
        const double xh = 2.0 * std::max(1.0, pE) * base.pref() / base.ratio() *
                          std::pow(std::max(1.0, pc) / base.pref(), base.m());
        const double fE = static_cast<double>(ref_cap(ref, Prs_E, pc));
        const double xLam = fE / (n(1) * Dn(1) + n(2) * Dn(2) + n(3) * Dn(3) + 2.0 * pc * xh);
        const Vec3 P1 = lin(Prs_E, -xLam, Dn);
        const double p1 = (P1(1) + P1(2) + P1(3)) / 3.0;
        ASSERT_GT(p1, 0.0);
        Soil hi = base, lo = base;
        hi.P(12) = p1 * (1.0 + 1e-9);
        lo.P(12) = p1 * (1.0 - 1e-9);
        EXPECT_TRUE(cap(hi, 1, Prs_E, hardE, 1).out.early_exit);
        EXPECT_FALSE(cap(lo, 1, Prs_E, hardE, 1).out.early_exit);
        // The converged return lies elsewhere: the exit looks at the first
        // step only.
        const Call full = cap(lo, 1, Prs_E, hardE, 1);
        EXPECT_GT(full.out.it, 0);
    }
}

TEST(CapPlast, VerdictOnlyAtTheTracedPoint) {
    Rng r(41);
    const Soil s = make_soil(1, r);
    const double pc = 150.0;
    const double hardE[2] = {0.0, -pc};
    const Vec3 out{{240.0, 200.0, 180.0}};
    Call c;
    EXPECT_EQ(capture_stdout([&] { c = cap(s, 1, out, hardE, 0, 5, 5); }),
              " Return Mapping Ok!\n");
    EXPECT_EQ(capture_stdout([&] { c = cap(s, 1, out, hardE, 0, 5, 6); }), "");
    // A trial inside the cap gives a negative multiplier: still moved onto
    // the cap, with the problem reported. The cap does not shrink.
    const Vec3 in{{120.0, 100.0, 90.0}};
    EXPECT_EQ(capture_stdout([&] { c = cap(s, 1, in, hardE, 0, 5, 5); }),
              " Numerical problem\n");
    EXPECT_LT(c.out.xLam[0], 0.0);
    EXPECT_EQ(c.hard[1], hardE[1]);
}

TEST(CapPlast, InvalidAreaStops) {
    Rng r(51);
    const Soil s = make_soil(1, r);
    const double hardE[2] = {0.0, -100.0};
    const Vec3 P{{200.0, 150.0, 100.0}};
    for (int area : {0, 4, -1}) {
        const auto res = run_child([&] { (void)cap(s, area, P, hardE); });
        EXPECT_EQ(res.out, "  incorrect iArea in CAP_plast\n");
        EXPECT_NE(res.status, 0);
        EXPECT_NE(res.err.find("incorrect iArea in CAP_plast"), std::string::npos);
    }
}

// ---------------------------------------------------------------------------
// MC_CAP_plast.

// A point where the Mohr-Coulomb face 13 meets the cap, with P2 at fraction
// t between P3 (t = 0: the edge P2 = P3) and P1 (t = 1: the edge P1 = P2).
bool corner(const Ref& r, double pc, double t, Vec3& P) {
    const double sp = static_cast<double>(r.sinphi);
    const double cc = static_cast<double>(r.c * r.cosphi);
    const auto at = [&](double m) {
        const double q = 2.0 * (m * sp + cc);
        return Vec3{{m + q / 2, m - q / 2 + t * q, m - q / 2}};
    };
    double lo = 0.0, hi = 4.0 * pc;
    if (ref_cap(r, at(lo), pc) > 0 || ref_cap(r, at(hi), pc) < 0) return false;
    for (int k = 0; k < 200; ++k) {
        const double mid = 0.5 * (lo + hi);
        (ref_cap(r, at(mid), pc) > 0 ? hi : lo) = mid;
    }
    P = at(lo);
    return true;
}

TEST(McCapPlast, SweepLandsOnEveryFaceOfItsArea) {
    // As the models do: area 1 first; a result that leaves the sorted order
    // is repeated on the edge (area 2 when P3 > P2, area 3 when P1 < P2).
    int total[4] = {0, 0, 0, 0}, oks[4] = {0, 0, 0, 0};
    for (int model = 1; model <= 4; ++model) {
        Rng r(500 + model);
        for (int k = 0; k < 900; ++k) {
            const int shape = k % 3;  // 0 generic, 1 near P2 = P3, 2 near P1 = P2
            const Soil s = make_soil(model, r);
            const Ref ref = make_ref(s);
            const double pc = r.u(30.0, 500.0);
            const double t = shape == 0 ? r.u(0.1, 0.9) : (shape == 1 ? r.u(0.0, 0.03)
                                                                      : r.u(0.97, 1.0));
            Vec3 C;
            if (!corner(ref, pc, t, C)) continue;
            // Push outwards along the elastic images of the flow directions.
            const Mat3 D3 = elastic(s, C);
            const double E = D3(1, 1);
            Vec3 push = lin(Vec3{}, r.u(0.02, 0.3) * pc / E, mc_flow(ref, 1, 3));
            push = lin(push, r.u(0.02, 0.3) / E, cap_gradient(ref, C));
            if (shape == 1) push = lin(push, r.u(0.0, 0.1) * pc / E, mc_flow(ref, 1, 2));
            if (shape == 2) push = lin(push, r.u(0.0, 0.1) * pc / E, mc_flow(ref, 2, 3));
            const Vec3 Prs_E = lin(C, 1.0, mul(D3, push));
            if (!ordered(Prs_E)) continue;
            const double f13E = static_cast<double>(ref_mc(ref, Prs_E, 1, 3));
            const double fcE = static_cast<double>(ref_cap(ref, Prs_E, pc));
            if (!(f13E > 0.0 && fcE > 0.0)) continue;
            const double hardE[2] = {0.02, -pc};
            Call c = mc_cap(s, 1, Prs_E, hardE);
            int area = 1;
            if (c.Prs(3) > c.Prs(2)) area = 2;
            if (c.Prs(1) < c.Prs(2)) area = 3;
            if (area != 1) c = mc_cap(s, area, Prs_E, hardE);
            ++total[area];
            EXPECT_EQ(c.iPlast, 1);
            EXPECT_EQ(c.hard[0], 777.0);  // gamma_p untouched
            EXPECT_LE(c.hard[1], hardE[1]);
            EXPECT_EQ(c.out.nLam, area == 1 ? 2 : 3);
            if (!c.out.ok) continue;
            ++oks[area];
            LD scale;
            LD f = ref_mc(ref, c.Prs, 1, 3, &scale);
            EXPECT_TRUE(on_surface(f, f13E, scale)) << "model " << model << " area " << area;
            f = ref_cap(ref, c.Prs, -c.hard[1], &scale);
            EXPECT_TRUE(on_surface(f, fcE, scale)) << "model " << model << " area " << area;
            if (area == 1) {
                EXPECT_TRUE(ordered(c.Prs));
            }
            if (area == 2) {
                f = ref_mc(ref, c.Prs, 1, 2, &scale);
                EXPECT_TRUE(on_surface(f, static_cast<double>(ref_mc(ref, Prs_E, 1, 2)), scale));
                EXPECT_NEAR(c.Prs(2), c.Prs(3), 1e-9 * pc);
            }
            if (area == 3) {
                f = ref_mc(ref, c.Prs, 2, 3, &scale);
                EXPECT_TRUE(on_surface(f, static_cast<double>(ref_mc(ref, Prs_E, 2, 3)), scale));
                EXPECT_NEAR(c.Prs(1), c.Prs(2), 1e-9 * pc);
            }
            for (int i = 0; i < c.out.nLam; ++i) EXPECT_GT(c.out.xLam[i], -1e-12);
        }
    }
    for (int area = 1; area <= 3; ++area) {
        EXPECT_GT(total[area], 200) << "area " << area;
        EXPECT_GE(oks[area], total[area] * 95 / 100) << "area " << area;
    }
}
TEST(McCapPlast, FactorActsOnlyThroughModelsTwoAndFour) {
    Rng r(61);
    int compared = 0;
    for (int model = 1; model <= 4; ++model) {
        for (int k = 0; k < 40; ++k) {
            Soil a = make_soil(model, r);
            const Ref ref = make_ref(a);
            const double pc = r.u(50.0, 300.0);
            Vec3 C;
            if (!corner(ref, pc, 0.5, C)) continue;
            const Mat3 D3 = elastic(a, C);
            Vec3 push = lin(Vec3{}, 0.1 * pc / D3(1, 1), mc_flow(ref, 1, 3));
            push = lin(push, 0.2 / D3(1, 1), cap_gradient(ref, C));
            const Vec3 Prs_E = lin(C, 1.0, mul(D3, push));
            const double hardE[2] = {0.0, -pc};
            // Same D3 for both factors: call the kernel directly.
            Call c1, c2;
            tervak::MC_CAP_plast_r(1, 1, 0, 0, 1, a.data(), Prs_E, c1.Prs, hardE, c1.hard,
                                   c1.iPlast, Prs_E, D3, 1.0, model, &c1.out);
            tervak::MC_CAP_plast_r(1, 1, 0, 0, 1, a.data(), Prs_E, c2.Prs, hardE, c2.hard,
                                   c2.iPlast, Prs_E, D3, 1.8, model, &c2.out);
            if (!(c1.out.ok && c1.out.xLam[1] > 1e-9)) continue;
            ++compared;
            if (model % 2 == 1)
                EXPECT_EQ(std::memcmp(c1.Prs.data(), c2.Prs.data(), sizeof c1.Prs.v), 0);
            else
                EXPECT_NE(c1.hard[1], c2.hard[1]);
        }
    }
    EXPECT_GT(compared, 80);
}

TEST(McCapPlast, VerdictAndInvalidArea) {
    Rng r(71);
    const Soil s = make_soil(1, r);
    const Ref ref = make_ref(s);
    Vec3 C;
    ASSERT_TRUE(corner(ref, 200.0, 0.5, C));
    const Mat3 D3 = elastic(s, C);
    Vec3 push = lin(Vec3{}, 20.0 / D3(1, 1), mc_flow(ref, 1, 3));
    push = lin(push, 0.2 / D3(1, 1), cap_gradient(ref, C));
    const Vec3 Prs_E = lin(C, 1.0, mul(D3, push));
    const double hardE[2] = {0.0, -200.0};
    Call c;
    EXPECT_EQ(capture_stdout([&] { c = mc_cap(s, 1, Prs_E, hardE, 8, 8); }),
              " Return Mapping Ok!\n");
    EXPECT_EQ(capture_stdout([&] { c = mc_cap(s, 1, Prs_E, hardE, 8, 9); }), "");
    for (int area : {0, 4}) {
        const auto res = run_child([&] { (void)mc_cap(s, area, Prs_E, hardE); });
        EXPECT_EQ(res.out, "  incorrect iArea in MC_CAP_plast\n");
        EXPECT_NE(res.status, 0);
        EXPECT_NE(res.err.find("incorrect iArea in MC_CAP_plast"), std::string::npos);
    }
}

// ---------------------------------------------------------------------------
// The exported symbols give the same bits as the internal kernels.

TEST(CapExports, SameBitsAsTheKernels) {
    void* lib = dlopen(TERVAK_LIB_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    using Cap16 = void (*)(int32_t*, int32_t*, int32_t*, int32_t*, int32_t*, double*, double*,
                           double*, double*, double*, int32_t*, double*, int32_t*, double*,
                           double*, int32_t*);
    using McCap15 = void (*)(int32_t*, int32_t*, int32_t*, int32_t*, int32_t*, double*, double*,
                             double*, double*, double*, int32_t*, double*, double*, double*,
                             int32_t*);
    const auto cap16 = reinterpret_cast<Cap16>(dlsym(lib, "cap_plast_"));
    const auto mccap15 = reinterpret_cast<McCap15>(dlsym(lib, "mc_cap_plast_"));
    ASSERT_NE(cap16, nullptr);
    ASSERT_NE(mccap15, nullptr);
    Rng r(81);
    for (int model = 1; model <= 4; ++model) {
        for (int area = 1; area <= 3; ++area) {
            Soil s = make_soil(model, r);
            const double pc = r.u(50.0, 300.0);
            Vec3 Prs_E = cap_trial(r, pc, 1);
            Mat3 D3 = elastic(s, Prs_E);
            double hardE[2] = {0.003, -pc};
            int32_t iEl = 1, Int = 1, dbgE = 0, dbgI = 0, ar = area, undr = 0, mdl = model;
            int32_t plast = 0;
            double prs[3] = {0, 0, 0}, hard[2] = {0, 0}, R = s.R;
            Vec3 Prs_0 = Prs_E;
            cap16(&iEl, &Int, &dbgE, &dbgI, &ar, s.props.data(), Prs_E.data(), prs, hardE, hard,
                  &plast, Prs_0.data(), &undr, D3.data(), &R, &mdl);
            Call c;
            tervak::CAP_plast(1, 1, 0, 0, area, s.data(), Prs_E, c.Prs, hardE, c.hard, c.iPlast,
                              Prs_0, 0, D3, s.R, model);
            EXPECT_EQ(std::memcmp(prs, c.Prs.data(), sizeof prs), 0);
            EXPECT_EQ(std::memcmp(hard, c.hard, sizeof hard), 0);
            EXPECT_EQ(plast, 3);

            double fac = s.R;
            mccap15(&iEl, &Int, &dbgE, &dbgI, &ar, s.props.data(), Prs_E.data(), prs, hardE, hard,
                    &plast, Prs_0.data(), D3.data(), &fac, &mdl);
            tervak::MC_CAP_plast(1, 1, 0, 0, area, s.data(), Prs_E, c.Prs, hardE, c.hard,
                                 c.iPlast, Prs_0, D3, s.R, model);
            EXPECT_EQ(std::memcmp(prs, c.Prs.data(), sizeof prs), 0);
            EXPECT_EQ(std::memcmp(&hard[1], &c.hard[1], sizeof(double)), 0);
            EXPECT_EQ(plast, 1);
        }
    }
    dlclose(lib);
}

}  // namespace
