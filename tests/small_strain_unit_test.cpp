// The small-strain stiffness of one increment and the yield tests of
// models 2 and 4, called directly: history update, change of G0 with its
// secant continuity, the cut-off, the reference-modulus bookkeeping, the
// linear/non-linear decision and the tolerance of the cap.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "models/material.hpp"
#include "models/small_strain.hpp"
#include "support/small_strain_point.hpp"
#include "support/test_support.hpp"

namespace {

namespace ss = tervak::ss;
using tervak_test::small_strain::elastic_sand;
using tervak_test::small_strain::prop;

constexpr double kOct = 1.1547005383792515;

struct Increment {
    std::vector<double> P = elastic_sand();
    std::array<double, 62> sv0{};
    std::array<double, 62> sv{};
    int iTer = 1;
    const ss::Variant* var = &ss::kModel2;

    Increment() {
        sv0[2] = prop(P, 2);  // G0
        for (int i = 52; i <= 57; ++i) sv0[static_cast<size_t>(i - 1)] = prop(P, 2);
    }
    ss::Stiffness run(const std::array<double, 6>& dEps, double p = 100.0) {
        const tervak::HsMaterial mt = tervak::read_material(var->iModel, P.data());
        const ss::Point pt{P.data(), &mt, 1, 1, iTer, 0, -1, var};
        return ss::small_strain_stiffness(pt, p, p, dEps.data(), sv0.data(), sv.data());
    }
    double out(int i) const { return sv[static_cast<size_t>(i - 1)]; }
    void set_history(const std::array<double, 6>& H) {
        for (int i = 0; i < 6; ++i) sv0[static_cast<size_t>(3 + i)] = H[static_cast<size_t>(i)];
    }
    // Present strain and reversal strain (deviatoric, xy only here).
    void set_strain(double eps_xy, double eR_xy) {
        sv0[12] = eps_xy;
        sv0[24] = eR_xy;
    }
    double G_ur() const {
        const double Kt = prop(P, 1) / (1.0 - prop(P, 7));
        return 3.0 * Kt * prop(P, 11) / (9.0 * Kt - prop(P, 11));
    }
    double gamma_c(double G0) const {
        return (2.0 * prop(P, 4) / 0.385) * (std::sqrt(G0 / G_ur()) - 1.0);
    }
};

TEST(SmallStrainUnit, DeviatoricPart) {
    const double e[6] = {3e-4, -1e-4, 1e-4, 2e-4, -3e-4, 4e-4};
    const tervak::Vec6 d = ss::deviatoric(e);
    EXPECT_NEAR(d(1) + d(2) + d(3), 0.0, 1e-19);
    EXPECT_NEAR(d(1), 3e-4 - 1e-4, 1e-18);
    EXPECT_EQ(d(4), 2e-4);  // engineering shear strains pass unchanged
    EXPECT_EQ(d(6), 4e-4);
}

TEST(SmallStrainUnit, FirstIncrementIsNonLinearFromG0) {
    Increment inc;
    const auto st = inc.run({0, 0, 0, 1e-5, 0, 0});
    EXPECT_EQ(st.npi, 0);
    EXPECT_EQ(st.G, prop(inc.P, 2));  // stress factor 1 at p = p_ref
    // The secant update takes the curve from G0 to its secant at the end.
    const double gb = kOct * 1e-5;
    EXPECT_NEAR(st.G + st.dG, prop(inc.P, 2) / (1.0 + 0.385 * gb / (2.0 * prop(inc.P, 4))), 1e-6);
    EXPECT_EQ(inc.out(60), 1.0);                      // no cosine without a distance
    EXPECT_NEAR(inc.out(7), 1e-5, 1e-20);             // the history is the increment
    EXPECT_NEAR(inc.out(59), 0.0, 0.0);               // written at closure, not here
    EXPECT_NEAR(inc.out(13), 1e-5, 0.0);              // total strain accumulated
    // Caso 2 gives 0, raised to G_ur and kept by the running minimum.
    EXPECT_NEAR(inc.out(52), inc.G_ur(), 1e-9);
}

TEST(SmallStrainUnit, LinearWhenIterZeroOrLowStress) {
    Increment inc;
    inc.set_strain(1e-4, 0.0);
    inc.set_history({0, 0, 0, 1e-4, 0, 0});
    inc.iTer = 0;
    EXPECT_EQ(inc.run({0, 0, 0, 1e-5, 0, 0}).npi, 1);
    EXPECT_EQ(inc.out(60), 1.0);
    inc.iTer = 1;
    EXPECT_EQ(inc.run({0, 0, 0, 1e-5, 0, 0}).npi, 0);
    EXPECT_EQ(inc.run({0, 0, 0, 1e-5, 0, 0}, 0.5).npi, 1);  // p below 1
    EXPECT_EQ(inc.run({0, 0, 0, 0, 0, 0}).npi, 1);          // no deviatoric increment
}

TEST(SmallStrainUnit, HistoryGrowsAlongAndRestartsOnReversal) {
    Increment inc;
    inc.set_strain(2e-4, 0.0);
    inc.set_history({0, 0, 0, 2e-4, 0, 0});
    // Along the history: H + increment (the factor r^100 is tiny here).
    inc.run({0, 0, 0, 1e-5, 0, 0});
    EXPECT_NEAR(inc.out(7), 2.1e-4, 1e-15);
    const double h = 2e-4, de = 1e-5;
    const double r = kOct * h / inc.gamma_c(prop(inc.P, 2));
    const double factor = 1.0 / ((de / h) * (1.0 - std::pow(r, 100.0)) + 1.0);
    EXPECT_NEAR(inc.out(61), factor, 1e-15);
    // Against it: the history restarts from the increment, a new cycle
    // stores the reversal, and G0 falls to its lower bound (here equal to
    // G0_ref, so it stays).
    inc.run({0, 0, 0, -1e-5, 0, 0});
    EXPECT_NEAR(inc.out(7), -1e-5, 1e-20);
    EXPECT_EQ(inc.out(60), -1.0);
    EXPECT_NEAR(inc.out(25), 1.9e-4, 1e-18);  // reversal strain at the end of the step
    EXPECT_NEAR(inc.out(34), 2e-4, 1e-18);    // level 1: history amplitude
    EXPECT_NEAR(inc.out(40), 2e-4, 1e-12);    // level 1: length of the branch
}

TEST(SmallStrainUnit, HistoryIsCappedAtTheCutOff) {
    Increment inc;
    const double gc = inc.gamma_c(prop(inc.P, 2));
    inc.set_strain(2e-3, 0.0);
    inc.set_history({0, 0, 0, 0.9 * gc / kOct, 0, 0});
    inc.run({0, 0, 0, 0.5 * gc / kOct, 0, 0});
    EXPECT_NEAR(inc.out(7), gc / kOct, 1e-15);
    EXPECT_NEAR(inc.out(58), gc, 1e-15);
}

TEST(SmallStrainUnit, ReversalDropsG0WithSecantContinuity) {
    Increment inc;
    inc.P[2] = 5.0e4;  // G0_min
    const double G0 = prop(inc.P, 2);
    // A long history: the secant before the reversal lies below G0_min, so
    // continuity lifts G0 above its lower bound.
    const double gc = inc.gamma_c(G0);
    const double h = 0.9 * gc / kOct;
    inc.set_strain(h, 0.0);
    inc.set_history({0, 0, 0, h, 0, 0});
    const double de = 1e-6;
    const auto st = inc.run({0, 0, 0, -de, 0, 0});
    const double a = 0.385 / (2.0 * prop(inc.P, 4));
    const double old_secant = G0 / (1.0 + a * kOct * h);
    ASSERT_LT(prop(inc.P, 3) / (1.0 + a * kOct * de), old_secant - 0.1);
    EXPECT_NEAR(inc.out(3), (1.0 + a * kOct * de) * old_secant, 1e-6);
    // The reversal step is linear with the secant of the history.
    EXPECT_EQ(st.npi, 1);
    EXPECT_NEAR(st.G, old_secant, 1e-6);
    EXPECT_NEAR(inc.out(54), old_secant, 1e-6);
    // A short history and a lower bound above the secant before the
    // reversal: G0 drops to the lower bound (the stiffness recovers to it).
    Increment sh;
    sh.P[2] = 9.9e4;
    ASSERT_GT(9.9e4, G0 / (1.0 + a * kOct * 1e-5));
    sh.set_strain(1e-5, 0.0);
    sh.set_history({0, 0, 0, 1e-5, 0, 0});
    sh.run({0, 0, 0, -1e-6, 0, 0});
    EXPECT_EQ(sh.out(3), 9.9e4);
}

TEST(SmallStrainUnit, BeyondTheCutOffTheStepAppliesGt) {
    Increment inc;
    const double G0 = prop(inc.P, 2);
    const double gc = inc.gamma_c(G0);
    const double dist = 3.0 * gc;
    inc.set_strain(dist / kOct, 0.0);
    inc.set_history({0, 0, 0, gc / kOct, 0, 0});
    const auto st = inc.run({0, 0, 0, 1e-5, 0, 0});
    EXPECT_EQ(st.npi, 1);
    // Gt: the secant of the hyperbola to the cut-off continued with G_ur.
    const double cut = G0 / (1.0 + 0.385 * gc / (2.0 * prop(inc.P, 4)));
    const double Gt = (cut * gc + (dist - gc) * inc.G_ur()) / dist;
    EXPECT_NEAR(st.G, Gt, 1e-9);
    // The tangent bulk modulus K_ref / (1 - m_K) (unless the floor lifts it).
    const double nu = prop(inc.P, 23);
    const double Kt = prop(inc.P, 1) / (1.0 - prop(inc.P, 7));
    EXPECT_NEAR(st.K, std::max(Kt, Gt * (2.0 / 3.0) * (1.0 + nu) / (1.0 - 2.0 * nu)), 1e-9);
    for (int pos : {53, 55}) EXPECT_NEAR(inc.out(pos), Gt, 1e-9) << pos;
    EXPECT_NEAR(inc.out(62), Gt / inc.G_ur(), 1e-12);
    // Caso 4 and the limits: G_ur.
    EXPECT_NEAR(inc.out(52), inc.G_ur(), 1e-9);
}

TEST(SmallStrainUnit, ModelFourBookkeepingRaisesTheRunningMinimum) {
    for (const ss::Variant* v : {&ss::kModel2, &ss::kModel4}) {
        Increment inc;
        inc.var = v;
        inc.sv0[51] = 1000.0;  // a running minimum below G_ur
        inc.run({0, 0, 0, 1e-5, 0, 0});
        if (v == &ss::kModel2) {
            EXPECT_EQ(inc.out(52), 1000.0);
        } else {
            EXPECT_NEAR(inc.out(52), inc.G_ur(), 1e-9);
        }
        // Ratio of the applied secant to G_ur: G0 over G_ur here, in both.
        EXPECT_NEAR(inc.out(62), prop(inc.P, 2) / inc.G_ur(), 1e-12);
    }
}

TEST(SmallStrainUnit, RatioIsCappedAtTen) {
    for (const ss::Variant* v : {&ss::kModel2, &ss::kModel4}) {
        Increment inc;
        inc.var = v;
        inc.P[1] = 20.0 * inc.G_ur();  // G0_ref
        inc.P[2] = inc.P[1];
        inc.sv0[2] = inc.P[1];
        inc.run({0, 0, 0, 1e-7, 0, 0});
        EXPECT_EQ(inc.out(62), 10.0);
    }
}

// ---------------------------------------------------------------------------
// Yield tests.

TEST(SmallStrainUnit, CapToleranceCarriesOneThousandthMore) {
    const auto P = elastic_sand();
    std::array<double, 62> sv0{}, sv{};
    const double pc = 100.0;
    sv0[0] = 1e-6;
    sv0[1] = -pc;
    // An isotropic trial state on the cap: f_cap = p^2 - pc^2.
    const double phi_ok = 0.0004;  // f_cap inside the extra 0.001
    const double p_in = std::sqrt(pc * pc + phi_ok);
    tervak::Mat3 D3;
    for (int i = 1; i <= 3; ++i)
        for (int j = 1; j <= 3; ++j) D3(i, j) = i == j ? 2e5 : 5e4;
    const tervak::HsMaterial mt = tervak::read_material(2, P.data());
    const ss::Point pt{P.data(), &mt, 1, 1, 1, 0, -1, &ss::kModel2};
    tervak::Vec3 Prs_E, Prs, Prs_0;
    Prs_E(1) = Prs_E(2) = Prs_E(3) = p_in;
    Prs_0 = Prs_E;
    int iPlast = -7;
    sv = sv0;
    ss::stress_point(pt, Prs_0, Prs_E, Prs, sv0.data(), sv.data(), iPlast, D3, 1.0);
    EXPECT_EQ(iPlast, 0);
    EXPECT_EQ(Prs(1), p_in);
    // Beyond it the cap kernel returns the point and the cap grows.
    const double p_out = std::sqrt(pc * pc + 0.5);
    Prs_E(1) = Prs_E(2) = Prs_E(3) = p_out;
    ss::stress_point(pt, Prs_0, Prs_E, Prs, sv0.data(), sv.data(), iPlast, D3, 1.0);
    EXPECT_NE(iPlast, 0);
    EXPECT_LE(sv[1], -pc);
    EXPECT_LT(Prs(1), p_out);
}

TEST(SmallStrainUnit, OrderedReturnIsNotRepeated) {
    auto P = elastic_sand();
    P[13] = 0.0;  // c = 0: Mohr-Coulomb is reached
    std::array<double, 62> sv0{}, sv{};
    sv0[0] = 1.0;  // shear hardening far
    sv0[1] = -1e6;
    tervak::Mat3 D3;
    for (int i = 1; i <= 3; ++i)
        for (int j = 1; j <= 3; ++j) D3(i, j) = i == j ? 2e5 : 5e4;
    const tervak::HsMaterial mt = tervak::read_material(2, P.data());
    const ss::Point pt{P.data(), &mt, 11, 4, 1, 0, 6, &ss::kModel2};
    tervak::Vec3 Prs_E, Prs, Prs_0;
    Prs_E(1) = 400.0;
    Prs_E(2) = 200.0;
    Prs_E(3) = 100.0;
    Prs_0(1) = Prs_0(2) = Prs_0(3) = 200.0;
    int iPlast = -7;
    sv = sv0;
    const std::string out = tervak_test::capture_stdout([&] {
        ss::stress_point(pt, Prs_0, Prs_E, Prs, sv0.data(), sv.data(), iPlast, D3, 1.0);
    });
    EXPECT_EQ(iPlast, 1);
    EXPECT_NE(out.find("PUNTO FUERA DE f13_mc"), std::string::npos);
    EXPECT_NE(out.find("Prs TRAS RETURN MAPPING EN MC"), std::string::npos);
    EXPECT_EQ(out.find("AREA"), std::string::npos);  // the order was kept
    EXPECT_GE(Prs(1), Prs(2));
    EXPECT_GE(Prs(2), Prs(3));
    const double s = std::sin(30.0 * 0.017453292519444445);
    EXPECT_NEAR((Prs(1) - Prs(3)) / 2.0 - (Prs(1) + Prs(3)) / 2.0 * s, 0.0, 1e-9);
}

}  // namespace
