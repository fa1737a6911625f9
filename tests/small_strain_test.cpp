// Models 2 and 4 as a host sees them: libtervak.so loaded with dlopen and
// user_mod_ called with its 31 arguments; one stress point driven through
// strain paths. Expectations come from the stiffness laws written out in
// the test (support/small_strain_point.hpp), from closure and invariants.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "support/small_strain_point.hpp"
#include "support/soil_file.hpp"
#include "support/test_support.hpp"

namespace {

using namespace tervak_test::small_strain;

using Stress = std::array<double, 6>;
const Stress kK0State{-50.0, -100.0, -50.0, 0, 0, 0};

double sq(double x) { return x * x; }

// The cap pressure of task 1 at a stress with sxx = szz (compression positive).
double cap_pressure(const std::vector<double>& P, double sv, double sh) {
    const double p_eq = std::max((2.0 * prop(P, 17) + 1.0) / 3.0 * sv * prop(P, 24), (2.0 * sh + sv) / 3.0);
    return std::sqrt(sq(p_eq) + sq((1.0 - prop(P, 17)) * sv * prop(P, 24) / prop(P, 21)));
}

std::vector<double> soil(const char* name, double ocr) {
    auto P = tervak_test::read_soil_file(tervak_test::soil_path(name)).props;
    P[23] = ocr;
    return P;
}

// ---------------------------------------------------------------------------
// Task 1: the floors of the two models, kept values, the reset switch.

TEST(SmallStrain, InitialState) {
    auto P = elastic_sand();
    P[23] = 1.0;  // OCR 1: a shallow point has a cap pressure between 1 and 10
    const double shallow = cap_pressure(P, 5.0, 2.5), deep = cap_pressure(P, 100.0, 50.0);
    ASSERT_GT(shallow, 1.0);
    ASSERT_LT(shallow, 10.0);
    struct Case {
        int model;
        Stress sig;
        double sv1_in, sv2_in, sv1, sv2;
    } cases[] = {
        // The hyperbola gives a negative strain here: the floor holds.
        {2, kK0State, 0, 0, 1e-10, -deep},
        {4, kK0State, 0, 0, 1e-08, -deep},
        {2, {-2.5, -5, -2.5, 0, 0, 0}, 0, 0, 1e-10, -shallow},
        {4, {-2.5, -5, -2.5, 0, 0, 0}, 0, 0, 1e-08, -10.0},
        {2, {-0.1, -0.2, -0.1, 0, 0, 0}, 0, 0, 1e-10, -1.0},
        {4, {-0.1, -0.2, -0.1, 0, 0, 0}, 0, 0, 1e-08, -10.0},
        {2, kK0State, 3e-3, -500, 3e-3, -500},  // larger values already there are kept
        {4, kK0State, 3e-3, -500, 3e-3, -500},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "model " << c.model << " sig_yy " << c.sig[1] << " sv1 " << c.sv1_in);
        Point pt(c.model, P);
        pt.StVar0[0] = c.sv1_in;
        pt.StVar0[1] = c.sv2_in;
        pt.initialise(c.sig);
        EXPECT_EQ(pt.sv(1), c.sv1);
        EXPECT_NEAR(pt.sv(2), c.sv2, 1e-12);
        EXPECT_EQ(pt.sv(3), prop(P, 2));
        for (int i = 4; i <= 51; ++i) EXPECT_EQ(pt.sv(i), 0.0) << i;
        for (int i = 52; i <= 57; ++i) EXPECT_EQ(pt.sv(i), prop(P, 2)) << i;
    }
}

TEST(SmallStrain, ResetSwitchClearsTheMemory) {
    std::array<double, 62> used{};
    for (int i = 0; i < 62; ++i) used[static_cast<size_t>(i)] = (i % 3 == 0 ? -1.0 : 1.0) * (1e-4 + 1e-6 * i);
    used[2] = 5.0e4;
    for (int i = 51; i < 57; ++i) used[static_cast<size_t>(i)] = 2.0;
    for (double reset : {1.0, 0.0, 0.999}) {
        SCOPED_TRACE(reset);
        auto P = elastic_sand();
        P[24] = reset;
        Point pt(2, P);
        pt.StVar0 = used;
        pt.initialise(kK0State);
        const bool on = reset == 1.0;
        auto was = [&](int i) { return used[static_cast<size_t>(i - 1)]; };
        EXPECT_EQ(pt.sv(3), on ? prop(P, 2) : 5.0e4);
        for (int i = 4; i <= 33; ++i) EXPECT_EQ(pt.sv(i), on ? 0.0 : was(i)) << i;
        for (int i = 34; i <= 51; ++i) EXPECT_EQ(pt.sv(i), on ? 0.0 : std::max(was(i), 0.0)) << i;
        for (int i = 52; i <= 57; ++i) EXPECT_EQ(pt.sv(i), on ? prop(P, 2) : 2.0) << i;
        for (int i = 58; i <= 62; ++i) EXPECT_EQ(pt.sv(i), was(i)) << i;
    }
}

// ---------------------------------------------------------------------------
// Tasks 3 to 6 and the pore pressure of task 2.

TEST(SmallStrain, StiffnessTasksAndAttributes) {
    const auto P = elastic_sand();
    const Law law(P, prop(P, 2), 200.0);
    const double nu = prop(P, 23);
    for (int model : {2, 4}) {
        SCOPED_TRACE(model);
        Point pt(model, P);
        pt.iEl = 3;  // away from the points that print
        pt.call(4);
        EXPECT_EQ(pt.nStat, 62);
        pt.call(5);
        EXPECT_EQ((std::array{pt.NonSym, pt.StrsDep, pt.TimeDep, pt.Tangent}), (std::array{0, 1, 0, 0}));
        pt.initialise(kIsotropic200);
        auto d = [&](int i, int j) { return pt.D[static_cast<size_t>((i - 1) + 6 * (j - 1))]; };
        // Near the last reversal G0, far from it G_ur; K at least the floor.
        for (double gxy : {0.0, 1e-3}) {
            pt.StVar0[12] = gxy;
            const double G = law.s * (gxy == 0.0 ? law.G0 : law.G_ur);
            const double K = std::max(prop(P, 1) * law.s, G * (2.0 / 3.0) * (1.0 + nu) / (1.0 - 2.0 * nu));
            for (int task : {3, 6}) {
                pt.D.fill(0.0);
                pt.IsUndr = 0;
                pt.call(task);
                EXPECT_EQ(pt.BulkW, 0.0);
                EXPECT_NEAR(d(4, 4), G, 1e-9 * G);
                EXPECT_NEAR(d(1, 1), K + 4.0 / 3.0 * G, 1e-9 * K);
                EXPECT_NEAR(d(1, 2), K - 2.0 / 3.0 * G, 1e-9 * K);
                EXPECT_EQ(d(1, 4), 0.0);
                // Undrained: the water makes Poisson's ratio 0.495.
                pt.IsUndr = 1;
                pt.call(task);
                const double Ku = K + pt.BulkW;
                EXPECT_NEAR((3.0 * Ku - 2.0 * G) / (2.0 * (3.0 * Ku + G)), 0.495, 1e-12);
            }
        }
        // Task 2 pore pressure: only undrained, from the volumetric strain.
        pt.StVar0[12] = 0.0;
        pt.Pw0 = -10.0;
        pt.dEps = {-1e-5, -2e-5, 0.5e-5, 1e-5, 0, 0};
        pt.call(2);
        EXPECT_EQ(pt.Pw, -10.0 + pt.BulkW * (-1e-5 + -2e-5 + 0.5e-5));
        pt.IsUndr = 0;
        pt.call(2);
        EXPECT_EQ(pt.Pw, -10.0);
        pt.Sig.fill(7.0);
        pt.call(9);  // an unknown task writes nothing
        EXPECT_EQ(pt.Sig[0], 7.0);
    }
}

// ---------------------------------------------------------------------------
// Steps that must not touch the memory, and the diagnostic point.

TEST(SmallStrain, LinearAndZeroStepsLeaveTheMemoryAlone) {
    const auto P = elastic_sand();
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    shear_to(pt, 0.0, 1e-4, 1e-5);
    const auto before = pt.StVar0;
    struct Case {
        int iTer;
        double dgamma;
    } cases[] = {{0, -2e-5}, {1, 0.0}};  // iTer = 0 even against the loading; a zero increment
    for (const auto& c : cases) {
        SCOPED_TRACE(c.iTer);
        pt.iTer = c.iTer;
        pt.dEps = {0, 0, 0, c.dgamma, 0, 0};
        pt.call(3);
        pt.call(2);
        EXPECT_EQ(pt.StVar[59], 1.0);  // cosine 1
        for (int i = 22; i <= 51; ++i) EXPECT_EQ(pt.StVar[static_cast<size_t>(i - 1)], before[static_cast<size_t>(i - 1)]) << i;
        // A linear step: the stress moves by the matrix of task 3, the
        // secant at the present distance from the reversal.
        EXPECT_NEAR(pt.D[21], Law(P, prop(P, 2), 200.0).secant(kOct * 1e-4), 1e-6);
        EXPECT_NEAR(pt.Sig[3] - pt.Sig0[3], pt.D[21] * c.dgamma, 1e-9);
        EXPECT_NEAR(pt.Sig[0], pt.Sig0[0], 1e-9);
    }
}

std::string diagnostics_at(int iEl, int Int) {
    return tervak_test::capture_stdout([&] {
        Point pt(2, elastic_sand());
        pt.iEl = iEl;
        pt.Int = Int;
        pt.call(4);
        pt.initialise(kIsotropic200);
        double g = shear_to(pt, 0.0, 1e-4, 2e-5);
        g = shear_to(pt, g, -1e-4, 2e-5);
        shear_to(pt, g, 2e-4, 2e-5);
    });
}

TEST(SmallStrain, DiagnosticsOnlyAtElementElevenPointFour) {
    for (auto [e, i] : {std::pair{11, 3}, {10, 4}, {4, 11}}) EXPECT_EQ(diagnostics_at(e, i), "") << e << " " << i;
    const std::string out = diagnostics_at(11, 4);
    for (const char* text :
         {"\n IDTask:", "\n IsUndr", "\n ____", "nStat", "D6 en Task3,6", "Prs_0",
          "Gs_ap APLICADO con gamma_oct_DR .LE. gamma_alfa_ur", "xKs APLICADO con gamma_oct_DR .LE. gamma_alfa_ur",
          "d_Gs0_ap_alfa_H", "Gt_ap_ref - caso 1", "Gt_ap_ref - caso 2", "StVar0(55)", "ELÁSTICO NO LINEAL, npi=",
          "PASO ELÁSTICO NO LINEAL, npi=", "ELÁSTICO LINEAL, npi=",
          "\n PASO DE CÁLCULO ELÁSTICO, DENTRO DE f13_hs, f13_mc, f_cap y f13_trac\n", "\n SE INICIA NUEVO CICLO\n",
          "Gs_ap APLICADO con gamma_oct_H_new tras reversión", "\n NO TIENE LUGAR UN CIERRE DE CICLO DE xE_M(i) con i<=2\n",
          "\n TIENE LUGAR UN CIERRE DE CICLO. (xE_M(i-1)>gamma_oct_DR_new>xE_M(i), con xE_M(i)>1d-10)\n",
          "xH_M(n+1)", "xE_M(n+1)", "xE_e_M(n+1)", "f13_hs", "f_cap",
          "Las tensiones ppales al final de este paso de cálculo son Prs="})
        EXPECT_NE(out.find(text), std::string::npos) << text;
}

// ---------------------------------------------------------------------------
// The stiffness law along strain paths.

TEST(SmallStrain, MonotonicSimpleShearFollowsTheSecantLawThenGt) {
    // Up to the cut-off the stress lies on the hyperbolic secant law; beyond
    // it every step adds Gt (the curve's secant at the step's start) times
    // its strain, integrated here step by step.
    const auto P = elastic_sand();
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const Law law(P, prop(P, 2), 200.0);
    double gamma = 0.0, tau = 0.0, slope = 0.0;
    int below = 0, beyond = 0;
    for (int i = 0; i < 600; ++i) {
        const double dg = i < 100 ? 1e-5 : 5e-5, ga = kOct * gamma, tau0 = pt.Sig0[3];
        pt.shear(dg);
        gamma += dg;
        ASSERT_EQ(pt.iPlast, 0) << "step " << i;
        tau = ga <= law.gamma_c ? law.secant(kOct * gamma) * gamma : tau + law.secant(ga) * dg;
        EXPECT_NEAR(pt.Sig0[3], tau, 1e-9 * tau) << "gamma " << gamma;
        (ga <= law.gamma_c ? below : beyond)++;
        slope = (pt.Sig0[3] - tau0) / dg;
        EXPECT_NEAR(pt.Sig0[0], -200.0, 1e-9);
    }
    EXPECT_GT(below, 20);
    EXPECT_GT(beyond, 100);
    // Gt tends to the stress-scaled G_ur from above; the point records the
    // applied modulus and caps its history at the cut-off.
    EXPECT_GT(slope, law.s * law.G_ur);
    EXPECT_NEAR(slope / (law.s * law.G_ur), 1.0, 0.02);
    EXPECT_NEAR(pt.sv(55) * law.s, law.secant(kOct * (gamma - 5e-5)), 1e-6 * slope);
    EXPECT_NEAR(pt.sv(58), law.gamma_c, 1e-15);
    EXPECT_EQ(pt.levels(), 0);
}

TEST(SmallStrain, ReversalStepTakesTheHistorySecantAndDropsG0) {
    // At a reversal G0 falls to its lower bound unless the new branch's
    // secant would then start below the old one: continuity lifts it.
    const auto P0 = elastic_sand();
    const Law law(P0, prop(P0, 2), 200.0);
    const double dg = 1e-6;
    struct Case {
        double G0_min, amplitude;
    } cases[] = {{0.99e5, 1e-5}, {0.5e5, 0.9 * law.gamma_c / kOct}, {0.99e5, 0.9 * law.gamma_c / kOct}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.amplitude);
        auto P = P0;
        P[2] = c.G0_min;
        Point pt(2, P);
        pt.initialise(kIsotropic200);
        shear_to(pt, 0.0, c.amplitude, 1e-5);
        const double tau = pt.Sig0[3], G0 = law.G0, h = kOct * c.amplitude;
        pt.shear(-dg);
        const double old_secant = law.s * G0 / law.hyper(h);
        EXPECT_NEAR(pt.Sig0[3] - tau, -old_secant * dg, 1e-6 * old_secant * dg);
        double G0_new = c.G0_min;
        if (law.s * c.G0_min / law.hyper(kOct * dg) < old_secant - 0.1)
            G0_new = std::max(c.G0_min, law.hyper(kOct * dg) * old_secant / law.s);
        EXPECT_NEAR(pt.sv(3), G0_new, 1e-6 * G0);
        EXPECT_EQ(pt.levels(), 1);
    }
}

// A closed cycle 0 -> +a -> -a -> +a in steps a / n: the shear stress at
// the end, the stress at the start and the levels on the way.
struct Cycle {
    double error;
    std::array<int, 4> levels;
    double G0_after_reversal;
};
Cycle closed_cycle(const std::vector<double>& P, int n) {
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const double a = 2e-4, dg = a / n;
    double g = shear_to(pt, 0.0, a, dg);
    const double tauA = pt.Sig0[3];
    Cycle c{};
    c.levels[0] = pt.levels();
    g = shear_to(pt, g, -a, dg);
    c.G0_after_reversal = pt.sv(3);
    c.levels[1] = pt.levels();
    pt.shear(dg);
    c.levels[2] = pt.levels();
    shear_to(pt, g + dg, a, dg);
    c.levels[3] = pt.levels();
    c.error = std::abs(pt.Sig0[3] - tauA) / tauA;
    return c;
}

TEST(SmallStrain, ClosedCycleReturnsToItsStartStress) {
    auto P = elastic_sand();
    P[2] = 0.8e5;
    const Cycle c40 = closed_cycle(P, 40), c80 = closed_cycle(P, 80);
    // One level per reversal, both popped when the cycle closes at +a.
    EXPECT_EQ(c40.levels, (std::array{0, 1, 2, 0}));
    EXPECT_EQ(c40.G0_after_reversal, 0.8e5);
    // Back at the start stress up to the error of the first step after each
    // reversal (it takes the history's secant): first order in the step.
    EXPECT_LT(c40.error, 0.01);
    EXPECT_NEAR(c80.error / c40.error, 0.5, 0.05);
}

TEST(SmallStrain, InnerCycleClosesOntoTheOuterBranch) {
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
    g = shear_to(pt, g, a / 2 - dg, dg);
    EXPECT_EQ(pt.levels(), 3);  // the reversal at +a/2 is stored
    shear_to(pt, g, -a, dg);
    // Back at -a the inner cycle closes: its two levels are popped and the
    // distance is again measured from the reversal at +a.
    EXPECT_EQ(pt.levels(), 1);
    EXPECT_NEAR(pt.sv(59), kOct * (2 * a - dg), 1e-12);
    EXPECT_NEAR(pt.Sig0[3], tauB, 0.005 * (tauA - tauB));
}

TEST(SmallStrain, SeventhReversalLeavesTheSixLevelsUnchanged) {
    Point pt(2, elastic_sand());
    pt.initialise(kIsotropic200);
    const double a = 6e-4, dg = 5e-6;
    // Shrinking amplitudes: no cycle closes, every reversal is stored.
    const double amp[] = {1.0, -0.9, 0.8, -0.7, 0.6, -0.5, 0.4};
    double g = 0.0;
    for (int k = 0; k < 7; ++k) {
        g = shear_to(pt, g, amp[k] * a, dg);
        EXPECT_EQ(pt.levels(), std::min(k, 6)) << "before reversal " << k + 1;
        const auto xH = pt.memory(34), xE = pt.memory(40), xEe = pt.memory(46);
        g = shear_to(pt, g, g + (k % 2 == 0 ? -dg : dg), dg);
        EXPECT_EQ(pt.levels(), std::min(k + 1, 6)) << "after reversal " << k + 1;
        EXPECT_NEAR(pt.sv(25), g, 1e-12);  // the reversal strain moves here
        if (k == 6) {
            EXPECT_EQ(pt.memory(34), xH);
            EXPECT_EQ(pt.memory(40), xE);
            EXPECT_EQ(pt.memory(46), xEe);
            for (int i = 1; i < 6; ++i) EXPECT_GT(xE[static_cast<size_t>(i)], xE[static_cast<size_t>(i - 1)]);
        }
    }
}

// ---------------------------------------------------------------------------
// The yield tests.

TEST(SmallStrain, CapToleranceCarriesOneThousandthMore) {
    // A zero increment at an isotropic stress p: f_cap = p^2 - p_c^2.
    for (auto [f_cap, plastic] : {std::pair{0.0004, false}, {0.0011, true}, {0.5, true}}) {
        SCOPED_TRACE(f_cap);
        Point pt(2, elastic_sand());
        pt.initialise({-100, -100, -100, 0, 0, 0});
        pt.StVar0[1] = -std::sqrt(1e4 - f_cap);
        pt.step({0, 0, 0, 0, 0, 0});
        EXPECT_EQ(pt.iPlast != 0, plastic);
        EXPECT_EQ(pt.Sig0[0] > -100.0, plastic);
        EXPECT_EQ(pt.sv(2) < -std::sqrt(1e4 - f_cap), plastic);  // the cap grows only when it yields
    }
}

TEST(SmallStrain, PlasticShearStaysWithinMohrCoulomb) {
    const auto P = soil("dense_sand_small_strain", 1.0);
    Point pt(2, P);
    pt.initialise({-38.43, -100.0, -38.43, 0, 0, 0});
    const double sphi = std::sin(prop(P, 15) * 0.017453292519444445), c = prop(P, 14);
    int plastic = 0;
    for (int i = 0; i < 300; ++i) {
        const double gamma_p = pt.sv(1), cap = pt.sv(2);
        pt.step({0, -1e-5, 0, 1e-4, 0, 0});
        EXPECT_GE(pt.sv(1), gamma_p);
        EXPECT_LE(pt.sv(2), cap);
        plastic += pt.iPlast != 0;
        const auto& s = pt.Sig0;
        const double mid = -(s[0] + s[1]) / 2.0, r = std::sqrt(sq((s[0] - s[1]) / 2.0) + sq(s[3]));
        const double s1 = std::max(mid + r, -s[2]), s3 = std::min(mid - r, -s[2]);
        EXPECT_LE((s1 - s3) / 2.0 - (s1 + s3) / 2.0 * sphi - c * std::sqrt(1 - sphi * sphi), 1e-6 * (s1 + 1.0)) << i;
    }
    EXPECT_GT(plastic, 100);
}

// ---------------------------------------------------------------------------
// Models 2 and 4: bit for bit on paths that never reverse, with both task 1
// floors out of play and the cap not reached (the cap kernels take the
// model number, and the cap's hardening modulus is each model's own);
// apart where their rules differ.

using Path = std::vector<std::array<double, 6>>;
Path repeat(const std::array<double, 6>& d, int n) { return Path(static_cast<size_t>(n), d); }

TEST(SmallStrain, ModelsTwoAndFourAgreeWithoutReversal) {
    // Small strain, the cut-off, beyond it, shear hardening, Mohr-Coulomb.
    const auto P = soil("dense_sand_small_strain", 20.0);
    struct Case {
        const char* name;
        int undrained;
        Path path;
    } cases[] = {
        {"shear and compression", 0, repeat({0, -2e-5, 0, 1e-4, 0, 0}, 100)},
        {"undrained compression", 1, repeat({5e-5, -1e-4, 5e-5, 0, 0, 0}, 200)},
        {"drained extension", 0, repeat({-5e-5, 1e-4, -5e-5, 0, 0, 0}, 200)},
    };
    const Stress sig{-38.43, -100, -38.43, 0, 0, 0};
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        Point m2(2, P), m4(4, P);
        for (Point* pt : {&m2, &m4}) {
            pt->StVar0[0] = 1e-6;  // above both floors of task 1
            pt->IsUndr = c.undrained;
            pt->initialise(sig);
        }
        ASSERT_LT(m2.sv(2), -10.0);
        ASSERT_EQ(m2.StVar0, m4.StVar0);
        int plastic = 0, beyond = 0;
        for (size_t i = 0; i < c.path.size(); ++i) {
            m2.step(c.path[i]);
            m4.step(c.path[i]);
            ASSERT_EQ(m2.Sig0, m4.Sig0) << "step " << i;
            ASSERT_EQ(m2.Pw0, m4.Pw0) << "step " << i;
            ASSERT_EQ(m2.iPlast, m4.iPlast) << "step " << i;
            ASSERT_EQ(m2.StVar0, m4.StVar0) << "step " << i;
            plastic += m2.iPlast != 0;
            beyond += m2.sv(59) > Law(P, m2.sv(3), 100.0).gamma_c;
        }
        ASSERT_EQ(m2.levels(), 0);
        EXPECT_GT(plastic, 10);  // the kernels ran with each model number
        EXPECT_LT(m2.sv(2), -10.0);
        EXPECT_GT(beyond, 10);  // and the step applied Gt
    }
}

TEST(SmallStrain, ModelsTwoAndFourDifferOnlyWhereTheirRulesDo) {
    // A stored reversal: model 4 adds 1e-10 to the levels it writes.
    const auto P = soil("dense_sand_small_strain", 20.0);
    Point m2(2, P), m4(4, P);
    for (Point* pt : {&m2, &m4}) {
        pt->StVar0[0] = 1e-6;
        pt->initialise({-38.43, -100.0, -38.43, 0, 0, 0});
        shear_to(*pt, 0.0, 2e-4, 2e-5);
    }
    ASSERT_EQ(m2.StVar0, m4.StVar0);
    m2.shear(-2e-5);
    m4.shear(-2e-5);
    ASSERT_EQ(m2.levels(), 1);
    for (int i : {34, 40, 46}) EXPECT_NEAR(m4.sv(i) - m2.sv(i), 1e-10, 1e-15) << i;

    // A cap pressure between 1 and 10: model 4's floor of 10 keeps the cap
    // away, model 2 yields on it.
    auto Q = elastic_sand();
    Q[23] = 1.0;
    Point s2(2, Q), s4(4, Q);
    for (Point* pt : {&s2, &s4}) {
        pt->StVar0[0] = 1e-6;
        pt->initialise({-2.5, -5.0, -2.5, 0, 0, 0});
        pt->step({-2e-5, -2e-5, -2e-5, 0, 0, 0});
    }
    ASSERT_GT(s2.sv(2), -10.0);
    EXPECT_NE(s2.iPlast, 0);
    EXPECT_EQ(s4.iPlast, 0);
    EXPECT_NE(s2.Sig0, s4.Sig0);

    // The cap yields (a normally consolidated clay sheared undrained): the
    // same stresses go in, each model's cap hardening comes out.
    const auto C = soil("soft_clay_small_strain", 1.0);
    Point c2(2, C), c4(4, C);
    for (Point* pt : {&c2, &c4}) {
        pt->StVar0[0] = 1e-6;
        pt->IsUndr = 1;
        pt->initialise({-57.74, -100, -57.74, 0, 0, 0});
        pt->step({5e-5, -1e-4, 5e-5, 0, 0, 0});
    }
    ASSERT_EQ(c2.Sig0 == c4.Sig0, false);
    EXPECT_EQ(c2.iPlast, c4.iPlast);
    EXPECT_NE(c2.iPlast, 0);
}

// ---------------------------------------------------------------------------
// The bundled small-strain soils.

TEST(SmallStrain, ExampleSoilsAreSmallStrainParameterSets) {
    for (const char* name : {"dense_sand_small_strain", "soft_clay_small_strain"}) {
        SCOPED_TRACE(name);
        const auto f = tervak_test::read_soil_file(tervak_test::soil_path(name));
        const auto& P = f.props;
        EXPECT_EQ(f.model, 2);
        ASSERT_EQ(P.size(), 25u);
        EXPECT_LE(prop(P, 3), prop(P, 2));  // G0_min <= G0_ref
        // The tangent bulk modulus matches Eur and nu_ur; G0_min lies above G_ur.
        const double Kt = prop(P, 1) / (1.0 - prop(P, 7));
        EXPECT_NEAR(Kt * 3.0 * (1.0 - 2.0 * prop(P, 23)) / prop(P, 11), 1.0, 0.01);
        EXPECT_GT(prop(P, 3), Law(P, prop(P, 2), 100.0).G_ur);
    }
}

}  // namespace
