// Models 2 and 4 through user_mod_: the initial state and its reset
// switch, the stiffness tasks, the attributes, the undrained pore pressure,
// linear and zero steps, the diagnostic point, the agreement and the
// differences of models 2 and 4, a plastic path and the example soils.
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

const std::array<double, 6> kK0State{-50.0, -100.0, -50.0, 0, 0, 0};

double sq(double x) { return x * x; }

// The cap pressure of task 1 at a stress with sxx = szz, from the
// parameters (K0nc, OCR, alpha), compression positive.
double cap_pressure(const std::vector<double>& P, double sv, double sh) {
    const double p0 = (2.0 * sh + sv) / 3.0;
    const double p_eq = std::max((2.0 * prop(P, 17) + 1.0) / 3.0 * sv * prop(P, 24), p0);
    const double q_eq = (1.0 - prop(P, 17)) * sv * prop(P, 24);
    return std::sqrt(sq(p_eq) + sq(q_eq / prop(P, 21)));
}

// ---------------------------------------------------------------------------
// Task 1.

TEST(SmallStrainTasks, FreshPointInitialState) {
    const auto P = elastic_sand();
    for (int model : {2, 4}) {
        Point pt(model, P);
        pt.initialise(kK0State);
        SCOPED_TRACE(model);
        EXPECT_EQ(pt.sv(3), prop(P, 2));
        // Shear-hardening stiffness far above Eur: the hyperbola gives a
        // negative strain and the floor holds.
        EXPECT_EQ(pt.sv(1), model == 2 ? 1e-10 : 1e-08);
        EXPECT_NEAR(pt.sv(2), -cap_pressure(P, 100.0, 50.0), 1e-9);
        for (int i = 52; i <= 57; ++i) EXPECT_EQ(pt.sv(i), prop(P, 2)) << i;
        for (int i = 4; i <= 51; ++i) EXPECT_EQ(pt.sv(i), 0.0) << i;
        EXPECT_EQ(pt.StVar, pt.StVar0);  // task 1 fills both arrays
    }
}

TEST(SmallStrainTasks, CapFloorsDifferBetweenModels) {
    auto P = elastic_sand();
    P[23] = 1.0;  // OCR 1
    // A shallow point whose cap pressure lies between 1 and 10.
    const double p_p = cap_pressure(P, 5.0, 2.5);
    ASSERT_GT(p_p, 1.0);
    ASSERT_LT(p_p, 10.0);
    Point m2(2, P), m4(4, P);
    m2.initialise({-2.5, -5.0, -2.5, 0, 0, 0});
    m4.initialise({-2.5, -5.0, -2.5, 0, 0, 0});
    EXPECT_NEAR(m2.sv(2), -p_p, 1e-12);
    EXPECT_EQ(m4.sv(2), -10.0);
    // Almost stress free: both floors hold.
    Point z2(2, P), z4(4, P);
    z2.initialise({-0.1, -0.2, -0.1, 0, 0, 0});
    z4.initialise({-0.1, -0.2, -0.1, 0, 0, 0});
    EXPECT_EQ(z2.sv(2), -1.0);
    EXPECT_EQ(z4.sv(2), -10.0);
    // A larger value already present is kept.
    Point k2(2, P);
    k2.StVar0[0] = 3e-3;
    k2.StVar0[1] = -500.0;
    k2.initialise(kK0State);
    EXPECT_EQ(k2.sv(1), 3e-3);
    EXPECT_EQ(k2.sv(2), -500.0);
}

// A state with a strain memory, some entries negative.
std::array<double, 62> used_state() {
    std::array<double, 62> s{};
    for (int i = 0; i < 62; ++i) s[static_cast<size_t>(i)] = (i % 3 == 0 ? -1.0 : 1.0) * (1e-4 + 1e-6 * i);
    s[2] = 5.0e4;  // G0
    for (int i = 52; i <= 57; ++i) s[static_cast<size_t>(i - 1)] = 2.0;
    return s;
}

TEST(SmallStrainTasks, ResetSwitchClearsTheMemory) {
    auto P = elastic_sand();
    for (double reset : {1.0, 0.0, 0.999}) {
        SCOPED_TRACE(reset);
        P[24] = reset;
        Point pt(2, P);
        const auto before = used_state();
        pt.StVar0 = before;
        pt.initialise(kK0State);
        if (reset == 1.0) {
            EXPECT_EQ(pt.sv(3), prop(P, 2));
            for (int i = 4; i <= 51; ++i) EXPECT_EQ(pt.sv(i), 0.0) << i;
            for (int i = 52; i <= 57; ++i) EXPECT_EQ(pt.sv(i), prop(P, 2)) << i;
        } else {
            EXPECT_EQ(pt.sv(3), 5.0e4);
            for (int i = 4; i <= 33; ++i) EXPECT_EQ(pt.sv(i), before[static_cast<size_t>(i - 1)]) << i;
            for (int i = 34; i <= 51; ++i)
                EXPECT_EQ(pt.sv(i), std::max(before[static_cast<size_t>(i - 1)], 0.0)) << i;
            for (int i = 52; i <= 57; ++i) EXPECT_EQ(pt.sv(i), 2.0) << i;
        }
        for (int i = 58; i <= 62; ++i) EXPECT_EQ(pt.sv(i), before[static_cast<size_t>(i - 1)]) << i;
    }
}

// ---------------------------------------------------------------------------
// Tasks 3 to 6.

TEST(SmallStrainTasks, StiffnessFromTheReferenceModulus) {
    const auto P = elastic_sand();
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    pt.call(3);
    const auto D3 = pt.D;
    EXPECT_EQ(pt.BulkW, 0.0);  // drained
    pt.D.fill(0.0);
    pt.call(6);
    EXPECT_EQ(pt.D, D3);

    const double s = std::sqrt(2.0);  // (200 / 100)^0.5
    const double G = s * prop(P, 2);
    const double Ks = prop(P, 1) * s;
    const double nu = prop(P, 23);
    const double K = std::max(Ks, G * (2.0 / 3.0) * (1.0 + nu) / (1.0 - 2.0 * nu));
    auto d = [&](int i, int j) { return pt.D[static_cast<size_t>((i - 1) + 6 * (j - 1))]; };
    EXPECT_NEAR(d(4, 4), G, 1e-9 * G);
    EXPECT_NEAR(d(5, 5), G, 1e-9 * G);
    EXPECT_NEAR(d(1, 1), K + 4.0 / 3.0 * G, 1e-9 * K);
    EXPECT_NEAR(d(1, 2), K - 2.0 / 3.0 * G, 1e-9 * K);
    EXPECT_EQ(d(1, 4), 0.0);
    EXPECT_EQ(d(4, 5), 0.0);

    // Undrained: the water adds the bulk stiffness that makes Poisson's
    // ratio 0.495.
    pt.IsUndr = 1;
    pt.call(3);
    const double Ku = K + pt.BulkW;
    EXPECT_NEAR((3.0 * Ku - 2.0 * G) / (2.0 * (3.0 * Ku + G)), 0.495, 1e-12);

    // Far from the last reversal the unloading-reloading modulus is used.
    pt.IsUndr = 0;
    pt.StVar0[12] = 1e-3;  // accumulated shear strain xy
    pt.call(3);
    const Law law(P, prop(P, 2), 200.0);
    ASSERT_GT(kOct * 1e-3, law.gamma_c);
    EXPECT_NEAR(d(4, 4), s * law.G_ur, 1e-9 * law.G_ur);
}

TEST(SmallStrainTasks, CountAndAttributes) {
    for (int model : {2, 4}) {
        Point pt(model, elastic_sand());
        pt.iEl = 3;
        pt.call(4);
        EXPECT_EQ(pt.nStat, 62);
        pt.call(5);
        EXPECT_EQ(pt.NonSym, 0);
        EXPECT_EQ(pt.StrsDep, 1);
        EXPECT_EQ(pt.TimeDep, 0);
        EXPECT_EQ(pt.Tangent, 0);
        // An unknown task writes nothing.
        pt.Sig.fill(7.0);
        pt.call(9);
        EXPECT_EQ(pt.Sig[0], 7.0);
    }
}

// ---------------------------------------------------------------------------
// Task 2 frame.

TEST(SmallStrainTasks, UndrainedPorePressure) {
    Point pt(2, elastic_sand());
    pt.initialise(kIsotropic200);
    pt.IsUndr = 1;
    pt.Pw0 = -10.0;
    pt.dEps = {-1e-5, -2e-5, 0.5e-5, 1e-5, 0, 0};
    pt.call(3);
    ASSERT_GT(pt.BulkW, 0.0);
    pt.call(2);
    EXPECT_EQ(pt.Pw, -10.0 + pt.BulkW * (-1e-5 + -2e-5 + 0.5e-5));
    pt.IsUndr = 0;
    pt.call(2);
    EXPECT_EQ(pt.Pw, -10.0);
}

TEST(SmallStrainTasks, LinearAndZeroStepsLeaveTheMemoryAlone) {
    auto P = elastic_sand();
    Point pt(2, P);
    pt.initialise(kIsotropic200);
    shear_to(pt, 0.0, 1e-4, 1e-5);
    const auto before = pt.StVar0;

    // iTer = 0: a linear step, even against the direction of loading.
    pt.iTer = 0;
    pt.dEps = {0, 0, 0, -2e-5, 0, 0};
    pt.call(3);
    pt.call(2);
    EXPECT_EQ(pt.StVar[59], 1.0);                 // cosine 1.0
    for (int i = 33; i < 51; ++i) EXPECT_EQ(pt.StVar[static_cast<size_t>(i)], before[static_cast<size_t>(i)]);
    for (int i = 21; i < 27; ++i) EXPECT_EQ(pt.StVar[static_cast<size_t>(i)], before[static_cast<size_t>(i)]);
    // The stress moves by the returned matrix times the increment.
    for (int i = 0; i < 6; ++i) {
        double ds = 0.0;
        for (int j = 0; j < 6; ++j) ds += pt.D[static_cast<size_t>(i + 6 * j)] * pt.dEps[static_cast<size_t>(j)];
        EXPECT_NEAR(pt.Sig[static_cast<size_t>(i)] - pt.Sig0[static_cast<size_t>(i)], ds, 1e-9) << i;
    }
    // With iTer = 0 the matrix is the secant at the present strain distance.
    const Law law(P, prop(P, 2), 200.0);
    EXPECT_NEAR(pt.D[21], law.secant(kOct * 1e-4), 1e-6);

    // A zero increment: the stresses stay, the history stays.
    pt.iTer = 1;
    pt.dEps = {0, 0, 0, 0, 0, 0};
    pt.call(2);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(pt.Sig[static_cast<size_t>(i)], pt.Sig0[static_cast<size_t>(i)], 1e-9);
    EXPECT_EQ(pt.StVar[59], 1.0);
    for (int i = 0; i < 51; ++i)
        EXPECT_EQ(pt.StVar[static_cast<size_t>(i)], before[static_cast<size_t>(i)]) << i + 1;
}

// ---------------------------------------------------------------------------
// Diagnostics.

std::string run_path(int iEl, int Int) {
    return tervak_test::capture_stdout([&] {
        auto P = elastic_sand();
        Point pt(2, P);
        pt.iEl = iEl;
        pt.Int = Int;
        pt.call(4);
        pt.initialise(kIsotropic200);
        shear_to(pt, 0.0, 1e-4, 2e-5);
        shear_to(pt, 1e-4, -1e-4, 2e-5);
        shear_to(pt, -1e-4, 2e-4, 2e-5);
    });
}

TEST(SmallStrainTasks, DiagnosticsOnlyAtElementElevenPointFour) {
    EXPECT_EQ(run_path(11, 3), "");
    EXPECT_EQ(run_path(10, 4), "");
    EXPECT_EQ(run_path(4, 11), "");
    const std::string out = run_path(11, 4);
    for (const char* text :
         {"\n IDTask:", "\n IsUndr", "\n ____", "nStat", "D6 en Task3,6", "Prs_0",
          "Gs_ap APLICADO con gamma_oct_DR .LE. gamma_alfa_ur",
          "xKs APLICADO con gamma_oct_DR .LE. gamma_alfa_ur", "d_Gs0_ap_alfa_H",
          "Gt_ap_ref - caso 2", "StVar0(55)", "ELÁSTICO NO LINEAL, npi=",
          "PASO ELÁSTICO NO LINEAL, npi=", "ELÁSTICO LINEAL, npi=",
          "\n PASO DE CÁLCULO ELÁSTICO, DENTRO DE f13_hs, f13_mc, f_cap y f13_trac\n",
          "\n SE INICIA NUEVO CICLO\n", "Gs_ap APLICADO con gamma_oct_H_new tras reversión",
          "Gt_ap_ref - caso 1",
          "\n NO TIENE LUGAR UN CIERRE DE CICLO DE xE_M(i) con i<=2\n",
          "\n TIENE LUGAR UN CIERRE DE CICLO. (xE_M(i-1)>gamma_oct_DR_new>xE_M(i), con "
          "xE_M(i)>1d-10)\n",
          "xH_M(n+1)", "xE_M(n+1)", "xE_e_M(n+1)", "f13_hs", "f_cap",
          "Las tensiones ppales al final de este paso de cálculo son Prs="})
        EXPECT_NE(out.find(text), std::string::npos) << text;
}

// ---------------------------------------------------------------------------
// Models 2 and 4.

std::vector<double> dense_sand(double ocr) {
    auto P = tervak_test::read_soil_file(tervak_test::soil_path("dense_sand_small_strain")).props;
    P[23] = ocr;
    return P;
}

TEST(SmallStrainTasks, ModelsTwoAndFourAgreeWithoutReversal) {
    const auto P = dense_sand(20.0);  // the cap far away
    Point m2(2, P), m4(4, P);
    for (Point* pt : {&m2, &m4}) {
        pt->StVar0[0] = 1e-6;  // above both floors of task 1
        pt->initialise({-38.43, -100.0, -38.43, 0, 0, 0});
    }
    ASSERT_EQ(m2.StVar0, m4.StVar0);
    int plastic = 0;
    for (int i = 0; i < 100; ++i) {
        m2.step({0, -2e-5, 0, 1e-4, 0, 0});
        m4.step({0, -2e-5, 0, 1e-4, 0, 0});
        ASSERT_EQ(m2.Sig0, m4.Sig0) << "step " << i;
        ASSERT_EQ(m2.StVar0, m4.StVar0) << "step " << i;
        ASSERT_EQ(m2.iPlast, m4.iPlast);
        plastic += m2.iPlast != 0;
    }
    EXPECT_GT(plastic, 50);  // shear hardening on this path
    // A reversal: model 4 stores its levels with 1e-10 added.
    m2.step({0, 0, 0, -1e-5, 0, 0});
    m4.step({0, 0, 0, -1e-5, 0, 0});
    ASSERT_EQ(m2.levels(), 1);
    EXPECT_NEAR(m4.sv(34) - m2.sv(34), 1e-10, 1e-15);
    EXPECT_NEAR(m4.sv(40) - m2.sv(40), 1e-10, 1e-15);
    EXPECT_NEAR(m4.sv(46) - m2.sv(46), 1e-10, 1e-15);
}

// ---------------------------------------------------------------------------
// A plastic path and the example soils.

// Compression-positive principal stresses of a stress with only xy shear.
std::array<double, 3> principal_xy(const std::array<double, 6>& s) {
    const double c = -(s[0] + s[1]) / 2.0;
    const double r = std::sqrt(sq((s[0] - s[1]) / 2.0) + sq(s[3]));
    std::array<double, 3> p{c + r, -s[2], c - r};
    std::sort(p.begin(), p.end(), [](double a, double b) { return a > b; });
    return p;
}

TEST(SmallStrainTasks, PlasticShearStaysWithinMohrCoulomb) {
    const auto P = dense_sand(1.0);
    Point pt(2, P);
    pt.initialise({-38.43, -100.0, -38.43, 0, 0, 0});
    const double phi = prop(P, 15) * 0.017453292519444445;
    double gamma_p = pt.sv(1), cap = pt.sv(2);
    int plastic = 0;
    for (int i = 0; i < 300; ++i) {
        pt.step({0, -1e-5, 0, 1e-4, 0, 0});
        for (double x : pt.Sig0) ASSERT_TRUE(std::isfinite(x));
        EXPECT_GE(pt.sv(1), gamma_p);  // gamma_p never decreases
        EXPECT_LE(pt.sv(2), cap);      // the cap only grows
        gamma_p = pt.sv(1);
        cap = pt.sv(2);
        plastic += pt.iPlast != 0;
        const auto s = principal_xy(pt.Sig0);
        const double f13_mc = (s[0] - s[2]) / 2.0 - (s[0] + s[2]) / 2.0 * std::sin(phi) -
                              prop(P, 14) * std::cos(phi);
        EXPECT_LE(f13_mc, 1e-6 * (s[0] + 1.0)) << "step " << i;
    }
    EXPECT_GT(plastic, 100);
}

TEST(SmallStrainTasks, ExampleSoilsAreSmallStrainParameterSets) {
    for (const char* name : {"dense_sand_small_strain", "soft_clay_small_strain"}) {
        SCOPED_TRACE(name);
        const auto soil = tervak_test::read_soil_file(tervak_test::soil_path(name));
        EXPECT_EQ(soil.model, 2);
        ASSERT_EQ(soil.props.size(), 25u);
        const auto& P = soil.props;
        EXPECT_GE(prop(P, 4), 1e-4);  // gamma_0.7
        EXPECT_LE(prop(P, 4), 2e-4);
        EXPECT_LE(prop(P, 3), prop(P, 2));  // G0_min <= G0_ref
        // The tangent bulk modulus matches Eur and nu_ur, and G0 lies above
        // the unloading-reloading shear modulus.
        const double Kt = prop(P, 1) / (1.0 - prop(P, 7));
        const double nu = prop(P, 23);
        EXPECT_NEAR(Kt / (prop(P, 11) / (3.0 * (1.0 - 2.0 * nu))), 1.0, 0.01);
        const double G_ur = 3.0 * Kt * prop(P, 11) / (9.0 * Kt - prop(P, 11));
        EXPECT_GT(prop(P, 3), G_ur);
        // The stiffness at the K0 state is the stress-scaled G0_ref.
        Point pt(2, P);
        const double sv = 100.0, sh = prop(P, 17) * sv;
        pt.initialise({-sh, -sv, -sh, 0, 0, 0});
        pt.call(3);
        const double p = (2.0 * sh + sv) / 3.0;
        const double s = std::pow(p / prop(P, 6), prop(P, 8));
        EXPECT_NEAR(pt.D[21] / (s * prop(P, 2)), 1.0, 1e-12);
        // A short cycle runs and stores its reversal.
        double g = shear_to(pt, 0.0, 5e-4, 2.5e-5);
        g = shear_to(pt, g, 0.0, 2.5e-5);
        for (double x : pt.Sig0) EXPECT_TRUE(std::isfinite(x));
        EXPECT_EQ(pt.levels(), 1);
    }
}

}  // namespace
