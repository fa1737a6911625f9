// Models 2 and 4 as a host sees them: libtervak.so loaded with dlopen,
// user_mod_ called with the 31 arguments for tasks 1 to 6, one stress point
// driven through strain-controlled paths (task 3 for the stiffness, task 2
// for the stresses, the step committed as a host commits it).
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "support/small_strain_point.hpp"

namespace {

using namespace tervak_test::small_strain;

// ---------------------------------------------------------------------------

TEST(SmallStrainHost, MonotonicSimpleShearFollowsTheSecantLawThenGt) {
    // Up to the cut-off the stress lies on the hyperbolic secant law; the
    // step that crosses it lands on the curve's secant; beyond it every
    // step adds Gt (the secant at the step's start distance) times its
    // strain. The steps are small enough not to be subdivided.
    const auto P = elastic_sand();
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const Law law(P, prop(P, 2), 200.0);
    ASSERT_GT(law.gamma_c, 1e-4);  // the path crosses the cut-off at about 5.7e-4

    double gamma = 0.0, tau = 0.0, slope = 0.0;
    int checked_below = 0, checked_beyond = 0;
    for (int i = 0; i < 600; ++i) {
        const double dg = i < 100 ? 1e-5 : 5e-5;
        const double ga = kOct * gamma;
        const double tau0 = pt.Sig0[3];
        pt.shear(dg);
        gamma += dg;
        ASSERT_EQ(pt.iPlast, 0) << "step " << i;
        tau = ga <= law.gamma_c ? law.secant(kOct * gamma) * gamma : tau + law.secant(ga) * dg;
        EXPECT_NEAR(pt.Sig0[3], tau, 1e-9 * tau) << "gamma " << gamma;
        (ga <= law.gamma_c ? checked_below : checked_beyond)++;
        slope = (pt.Sig0[3] - tau0) / dg;
        // Normal stresses stay isotropic, no volumetric strain.
        EXPECT_NEAR(pt.Sig0[0], -200.0, 1e-9);
        EXPECT_NEAR(pt.Sig0[1], -200.0, 1e-9);
    }
    EXPECT_GT(checked_below, 20);
    EXPECT_GT(checked_beyond, 100);
    // Gt tends to the stress-scaled G_ur from above; the point records it.
    EXPECT_GT(slope, law.s * law.G_ur);
    EXPECT_NEAR(slope / (law.s * law.G_ur), 1.0, 0.02);
    EXPECT_NEAR(pt.sv(55) * law.s, law.secant(kOct * (gamma - 5e-5)), 1e-6 * slope);
    EXPECT_EQ(pt.levels(), 0);
}

// Stress error of a closed cycle +a -> -a -> +a, with n steps per amplitude.
struct CycleRun {
    double tauA = 0, tauA2 = 0, slopeAfter = 0;
    int levelsA = -1, levelsRev1 = -1, levelsB = -1, levelsRev2 = -1, levelsA2 = -1;
    double G0afterReversal = 0;
};

CycleRun symmetric_cycle(const std::vector<double>& P, int n) {
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const double a = 2e-4, dg = a / n;
    CycleRun r;
    double g = shear_to(pt, 0.0, a, dg);
    r.tauA = pt.Sig0[3];
    r.levelsA = pt.levels();
    pt.shear(-dg);
    g -= dg;
    r.levelsRev1 = pt.levels();
    r.G0afterReversal = pt.sv(3);
    g = shear_to(pt, g, -a, dg);
    r.levelsB = pt.levels();
    pt.shear(dg);
    g += dg;
    r.levelsRev2 = pt.levels();
    g = shear_to(pt, g, a, dg);
    r.tauA2 = pt.Sig0[3];
    r.levelsA2 = pt.levels();
    pt.shear(dg / 10);
    r.slopeAfter = (pt.Sig0[3] - r.tauA2) / (dg / 10);
    return r;
}

TEST(SmallStrainHost, SymmetricCycleClosesAndPopsItsLevels) {
    auto P = elastic_sand();
    P[2] = 0.8e5;  // G0 may fall to 80 % of G0_ref at a reversal
    const CycleRun r40 = symmetric_cycle(P, 40);
    EXPECT_EQ(r40.levelsA, 0);
    EXPECT_EQ(r40.levelsRev1, 1);  // one level per reversal
    EXPECT_EQ(r40.levelsB, 1);
    EXPECT_EQ(r40.levelsRev2, 2);
    EXPECT_EQ(r40.levelsA2, 0);  // both popped when the cycle closes at +a
    // The secant before the reversal lies above the lower bound, so G0
    // drops to the lower bound at the reversal.
    EXPECT_EQ(r40.G0afterReversal, P[2]);
    // The stress after the cycle is the stress before it: the only error
    // is the first step after each reversal, which takes the secant of the
    // history; it halves when the steps halve.
    const double err40 = std::abs(r40.tauA2 - r40.tauA) / r40.tauA;
    EXPECT_LT(err40, 0.01);
    const CycleRun r80 = symmetric_cycle(P, 80);
    const double err80 = std::abs(r80.tauA2 - r80.tauA) / r80.tauA;
    EXPECT_NEAR(err80 / err40, 0.5, 0.05);
    // Beyond +a the point continues on the curve measured from the first
    // loading's origin, with the G0 it now has: the tangent of that curve.
    const Law law(P, P[2], 200.0);
    const double g = kOct * 2e-4;
    const double tangent = law.s * law.G0 / std::pow(1.0 + 0.385 * g / (2.0 * law.gamma07), 2);
    EXPECT_NEAR(r40.slopeAfter / tangent, 1.0, 0.01);
}

TEST(SmallStrainHost, InnerCycleClosesOntoTheOuterBranch) {
    auto P = elastic_sand();
    P[2] = 0.8e5;
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const double a = 2e-4, dg = a / 40;
    double g = shear_to(pt, 0.0, a, dg);
    const double tauA = pt.Sig0[3];
    g = shear_to(pt, g, -a, dg);
    const double tauB = pt.Sig0[3];
    g = shear_to(pt, g, a / 2, dg);
    ASSERT_EQ(pt.levels(), 2);
    pt.shear(-dg);
    const int levelsInner = pt.levels();  // the third reversal, at +a/2, is stored
    g = shear_to(pt, g - dg, -a, dg);
    EXPECT_EQ(levelsInner, 3);
    // Back exactly at -a the cycle closes: the levels of +a/2 and -a are
    // popped, and the strain distance is again measured from the reversal
    // at +a (less the first step after it). The stress is the one the inner
    // cycle started from (the error is that of the first steps after the
    // reversals).
    EXPECT_EQ(pt.levels(), 1);
    EXPECT_NEAR(pt.sv(59), kOct * (2 * a - dg), 1e-12);
    EXPECT_NEAR(pt.Sig0[3], tauB, 0.005 * (tauA - tauB));
}

TEST(SmallStrainHost, SeventhReversalLeavesTheSixLevelsUnchanged) {
    const auto P = elastic_sand();
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const double a = 6e-4, dg = 5e-6;
    // Shrinking amplitudes: no cycle ever closes, every reversal is stored.
    const double amp[] = {1.0, -0.9, 0.8, -0.7, 0.6, -0.5, 0.4, -0.3};
    double g = 0.0;
    for (int k = 0; k < 6; ++k) {
        g = shear_to(pt, g, amp[k] * a, dg);
        EXPECT_EQ(pt.levels(), k) << "before reversal " << k + 1;
        const double back = k % 2 == 0 ? -dg : dg;
        pt.shear(back);  // reversal k + 1
        g += back;
        EXPECT_EQ(pt.levels(), k + 1) << "after reversal " << k + 1;
    }
    g = shear_to(pt, g, amp[6] * a, dg);
    const auto xH = pt.memory(34), xE = pt.memory(40), xEe = pt.memory(46);
    const auto eR = pt.memory(22);
    pt.shear(-dg);  // the seventh reversal
    EXPECT_EQ(pt.levels(), 6);
    EXPECT_EQ(pt.memory(34), xH);
    EXPECT_EQ(pt.memory(40), xE);
    EXPECT_EQ(pt.memory(46), xEe);
    // It still started a new cycle: the reversal strain moved to this point.
    EXPECT_NE(pt.memory(22), eR);
    EXPECT_NEAR(pt.memory(22)[3], amp[6] * a - dg, 1e-12);
    // The stored path lengths increase level by level (each is the length
    // up to its reversal), and the history amplitudes are positive.
    for (int k = 1; k < 6; ++k) EXPECT_GT(xE[static_cast<size_t>(k)], xE[static_cast<size_t>(k - 1)]);
    for (double x : xH) EXPECT_GT(x, 0.0);
}

}  // namespace
