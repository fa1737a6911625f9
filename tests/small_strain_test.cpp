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
        SCOPED_TRACE(testing::Message() << c.model << " " << c.sig[1] << " " << c.sv1_in);
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
    std::array<double, 62> used{};  // a memory with some entries negative
    for (int i = 1; i <= 62; ++i)
        used[static_cast<size_t>(i - 1)] = i == 3 ? 5.0e4 : i >= 52 && i <= 57 ? 2.0 : (i % 3 == 1 ? -1.0 : 1.0) * (1e-4 + 1e-6 * i);
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

// Closed cycles in steps of dg = a / n: 0 -> +a -> -a -> +a, and an inner
// cycle -a -> +a/2 -> -a on the way. Returns the shear stress error of the
// closures relative to the loop height and checks the stored levels.
std::array<double, 2> closure_errors(int n) {
    auto P = elastic_sand();
    P[2] = 0.8e5;  // G0 falls to 80 % of G0_ref at a reversal
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    const double a = 2e-4, dg = a / n;
    std::vector<int> levels;
    auto to = [&](double from, double target) {
        shear_to(pt, from, target, dg);
        levels.push_back(pt.levels());
        return pt.Sig0[3];
    };
    const double tauA = to(0.0, a), tauB = to(a, -a);
    EXPECT_EQ(pt.sv(3), 0.8e5);
    to(-a, a / 2);
    to(a / 2, a / 2 - dg);  // the third reversal
    const double tauB2 = to(a / 2 - dg, -a);
    // Back at -a the inner cycle closes onto the outer branch: the distance
    // is again measured from the reversal at +a.
    EXPECT_NEAR(pt.sv(59), kOct * (2 * a - dg), 1e-12);
    const double tauA2 = to(-a, a);
    EXPECT_EQ(levels, (std::vector{0, 1, 2, 3, 1, 0}));
    return {std::abs(tauB2 - tauB) / (tauA - tauB), std::abs(tauA2 - tauA) / (tauA - tauB)};
}

TEST(SmallStrain, ClosedCyclesReturnToTheirStartStress) {
    // The only error is the first step after each reversal (it takes the
    // history's secant): first order in the step.
    const auto e40 = closure_errors(40), e80 = closure_errors(80);
    for (size_t k = 0; k < 2; ++k) {
        EXPECT_LT(e40[k], 0.01) << k;
        EXPECT_NEAR(e80[k] / e40[k], 0.5, 0.05) << k;
    }
}

TEST(SmallStrain, SeventhReversalLeavesTheSixLevelsUnchanged) {
    Point pt(2, elastic_sand());
    pt.initialise(kIsotropic200);
    const double a = 6e-4, dg = 5e-6;
    auto memory = [&] { return std::vector<double>(pt.StVar0.begin() + 33, pt.StVar0.begin() + 51); };
    double g = 0.0;
    // Shrinking amplitudes: no cycle closes, every reversal is stored.
    for (int k = 0; k < 7; ++k) {
        g = shear_to(pt, g, (k % 2 == 0 ? 1.0 : -1.0) * (1.0 - 0.1 * k) * a, dg);
        EXPECT_EQ(pt.levels(), std::min(k, 6)) << "before reversal " << k + 1;
        const auto before = memory();
        g = shear_to(pt, g, g + (k % 2 == 0 ? -dg : dg), dg);
        EXPECT_EQ(pt.levels(), std::min(k + 1, 6)) << "after reversal " << k + 1;
        EXPECT_NEAR(pt.sv(25), g, 1e-12);  // the reversal strain moves here
        if (k == 6) {
            EXPECT_EQ(memory(), before);
        }
        for (int i = 41; i <= 39 + std::min(k + 1, 6); ++i) EXPECT_GT(pt.sv(i), pt.sv(i - 1));  // branch lengths
    }
}

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

// Models 2 and 4: bit for bit on paths that never reverse, with both task 1
// floors out of play and the cap not reached (the cap kernels take the
// model number, and the cap's hardening modulus is each model's own);
// apart where their rules differ.

// The same point under both models, the plastic shear strain above both
// floors of task 1.
struct Pair {
    Point m2, m4;
    Pair(const std::vector<double>& P, const Stress& sig, int undrained) : m2(2, P), m4(4, P) {
        for (Point* pt : {&m2, &m4}) {
            pt->StVar0[0] = 1e-6;
            pt->IsUndr = undrained;
            pt->initialise(sig);
        }
    }
    void step(const std::array<double, 6>& d) {
        m2.step(d);
        m4.step(d);
    }
};
const Stress kSand{-38.43, -100, -38.43, 0, 0, 0}, kClay{-57.74, -100, -57.74, 0, 0, 0};

TEST(SmallStrain, ModelsTwoAndFourAgreeWithoutReversal) {
    // Small strain, the cut-off, beyond it, shear hardening, Mohr-Coulomb.
    const auto P = soil("dense_sand_small_strain", 20.0);
    struct Case {
        int undrained;
        std::array<double, 6> d;
        int steps;
    } cases[] = {
        {0, {0, -2e-5, 0, 1e-4, 0, 0}, 100},    // shear and compression
        {1, {5e-5, -1e-4, 5e-5, 0, 0, 0}, 200},  // undrained compression
        {0, {-5e-5, 1e-4, -5e-5, 0, 0, 0}, 200}, // drained extension
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.d[1]);
        Pair m(P, kSand, c.undrained);
        ASSERT_EQ(m.m2.StVar0, m.m4.StVar0);
        int plastic = 0, beyond = 0;
        for (int i = 0; i < c.steps; ++i) {
            m.step(c.d);
            ASSERT_EQ(m.m2.Sig0, m.m4.Sig0) << "step " << i;
            ASSERT_EQ(m.m2.Pw0, m.m4.Pw0) << "step " << i;
            ASSERT_EQ(m.m2.iPlast, m.m4.iPlast) << "step " << i;
            ASSERT_EQ(m.m2.StVar0, m.m4.StVar0) << "step " << i;
            plastic += m.m2.iPlast != 0;
            beyond += m.m2.sv(59) > Law(P, m.m2.sv(3), 100.0).gamma_c;
        }
        EXPECT_EQ(m.m2.levels(), 0);
        EXPECT_LT(m.m2.sv(2), -10.0);  // the cap stayed out of play
        EXPECT_GT(plastic, 10);        // the kernels ran with each model number
        EXPECT_GT(beyond, 10);         // and the step applied Gt
    }
}

TEST(SmallStrain, ModelsTwoAndFourDifferOnlyWhereTheirRulesDo) {
    // A stored reversal: model 4 adds 1e-10 to the levels it writes.
    Pair r(soil("dense_sand_small_strain", 20.0), kSand, 0);
    for (int i = 0; i < 10; ++i) r.step({0, 0, 0, 2e-5, 0, 0});
    ASSERT_EQ(r.m2.StVar0, r.m4.StVar0);
    r.step({0, 0, 0, -2e-5, 0, 0});
    ASSERT_EQ(r.m2.levels(), 1);
    for (int i : {34, 40, 46}) EXPECT_NEAR(r.m4.sv(i) - r.m2.sv(i), 1e-10, 1e-15) << i;
    // A cap pressure between 1 and 10: model 4's floor of 10 keeps the cap
    // away, model 2 yields on it.
    auto Q = elastic_sand();
    Q[23] = 1.0;
    Pair s(Q, {-2.5, -5.0, -2.5, 0, 0, 0}, 0);
    ASSERT_GT(s.m2.sv(2), -10.0);
    s.step({-2e-5, -2e-5, -2e-5, 0, 0, 0});
    EXPECT_NE(s.m2.iPlast, 0);
    EXPECT_EQ(s.m4.iPlast, 0);
    // The cap yields (a normally consolidated clay sheared undrained): the
    // same stresses go in, each model's cap hardening comes out.
    Pair c(soil("soft_clay_small_strain", 1.0), kClay, 1);
    c.step({5e-5, -1e-4, 5e-5, 0, 0, 0});
    EXPECT_NE(c.m2.iPlast, 0);
    EXPECT_EQ(c.m2.iPlast, c.m4.iPlast);
    EXPECT_NE(c.m2.Sig0, c.m4.Sig0);
}

}  // namespace
