// Models 1 and 3 through the host's entry: the answers to tasks 1 and 3 to
// 7, the zero-increment and undrained rules of the stress task, and the
// diagnostics each model writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "support/soil_file.hpp"
#include "support/test_support.hpp"
#include "support/user_mod_host.hpp"

namespace {

using tervak_test::HostPoint;

constexpr double kDeg = 0.017453292519444445;

HostPoint soil_point(const std::string& name, int model) {
    const auto soil = tervak_test::read_soil_file(tervak_test::soil_path(name));
    HostPoint h;
    h.iModel = model;
    for (size_t i = 0; i < soil.props.size(); ++i) h.Props[i] = soil.props[i];
    return h;
}

double P(const HostPoint& h, int i) { return h.Props[static_cast<size_t>(i - 1)]; }

// Stiffness factor of the unloading-reloading modulus at a minor principal
// stress s3 (compression positive), with the floors of the elastic matrix.
double stiffness_factor(const HostPoint& h, double s3) {
    const double s = std::sin(P(h, 6) * kDeg), co = std::cos(P(h, 6) * kDeg);
    const double c = P(h, 5);
    const double num = std::max(c * co + s3 * s, std::max(c * co, 1.0));
    return std::pow(num / (c * co + P(h, 9) * s), P(h, 4));
}

std::string run_quiet(HostPoint& h, int task) {
    return tervak_test::capture_stdout([&] { h.call(task); });
}

std::string list_int(int k) {
    char b[16];
    std::snprintf(b, sizeof b, " %11d", k);  // separator and an 11-column field
    return b;
}

// ----------------------------------------------------------------- task 1

TEST(Task1, StressFreePointGetsTheFloors) {
    HostPoint h = soil_point("dense_sand", 1);
    const std::string out = run_quiet(h, 1);
    EXPECT_EQ(out, "");  // task 1 writes nothing
    const double s = std::sin(P(h, 6) * kDeg), co = std::cos(P(h, 6) * kDeg);
    const double ccot = P(h, 5) * co / s;
    ASSERT_GT(ccot, 1.0);  // c cot(phi) of the dense sand is above the 1 kPa floor
    EXPECT_EQ(h.StVar[0], 1e-10);
    EXPECT_DOUBLE_EQ(h.StVar[1], -ccot);
    // The host's start-of-step array is written too.
    EXPECT_EQ(h.StVar0[0], h.StVar[0]);
    EXPECT_EQ(h.StVar0[1], h.StVar[1]);

    HostPoint sand = soil_point("loose_sand", 1);  // c = 0: the -1 floor decides
    sand.call(1);
    EXPECT_EQ(sand.StVar[0], 1e-10);
    EXPECT_EQ(sand.StVar[1], -1.0);
}

TEST(Task1, K0StateGivesTheHyperbolaAndTheCapThroughIt) {
    for (const char* name : {"dense_sand", "loose_sand", "soft_clay"}) {
        // ocr 1.5: the preconsolidation deviator stays below the asymptote
        // of the hyperbola for all three soils (with loose sand's K0nc,
        // ocr 2 would reach beyond it).
        for (double ocr : {1.0, 1.5}) {
            HostPoint h = soil_point(name, 1);
            h.Props[15] = ocr;
            const double sv = 80.0, K0 = P(h, 10);
            h.Sig0 = {-K0 * sv, -sv, -K0 * sv, 0, 0, 0};
            h.call(1);
            // Independent evaluation: the preconsolidation state is the K0
            // state scaled by the ratio, the cap passes through it, and
            // gamma_p is the hyperbolic plastic strain at its deviator.
            const double s = std::sin(P(h, 6) * kDeg), co = std::cos(P(h, 6) * kDeg);
            const double ccot = P(h, 5) * co / s;
            const double pc = ocr * sv * (1.0 + 2.0 * K0) / 3.0;
            const double qc = ocr * sv * (1.0 - K0);
            const double pe = std::sqrt(pc * pc + qc * qc / (P(h, 14) * P(h, 14)));
            const double qf = 2.0 * s / (1.0 - s) * (ccot + K0 * sv);
            const double qa = qf / P(h, 11);
            const double S = stiffness_factor(h, K0 * sv);
            const double Ei = P(h, 13) * S, Eur = P(h, 3) * S;
            const double gamma = 2.0 * qc / (Ei * (1.0 - qc / qa)) - 2.0 * qc / Eur;
            SCOPED_TRACE(std::string(name) + " ocr " + std::to_string(ocr));
            ASSERT_LT(qc, qa);
            EXPECT_NEAR(h.StVar[0], gamma, 1e-12 * std::abs(gamma));
            EXPECT_NEAR(h.StVar[1], -std::max(pe, ccot), 1e-12 * pe);
            EXPECT_GT(h.StVar[0], 0.0);
        }
    }
}

TEST(Task1, LargerStateAlreadyPresentIsKept) {
    HostPoint h = soil_point("dense_sand", 1);
    h.Sig0 = {-40, -100, -40, 0, 0, 0};
    h.StVar0 = {0.25, -5000.0};
    h.call(1);
    EXPECT_EQ(h.StVar[0], 0.25);
    EXPECT_EQ(h.StVar[1], -5000.0);
    EXPECT_EQ(h.StVar0[0], 0.25);
    EXPECT_EQ(h.StVar0[1], -5000.0);
}

TEST(Task1, Model3AnswersAsModel1) {
    HostPoint a = soil_point("soft_clay", 1);
    HostPoint b = soil_point("soft_clay", 3);
    a.Sig0 = b.Sig0 = {-30, -60, -35, 4, 0, -2};
    a.call(1);
    EXPECT_EQ(run_quiet(b, 1), "");
    EXPECT_EQ(a.StVar, b.StVar);
    EXPECT_EQ(a.StVar0, b.StVar0);
}

// ------------------------------------------------------------ tasks 3 and 6

void expect_isotropic(HostPoint& h, double E, double nu) {
    const double G = E / (2.0 * (1.0 + nu));
    const double diag = 2.0 * G * (1.0 - nu) / (1.0 - 2.0 * nu);
    const double off = 2.0 * G * nu / (1.0 - 2.0 * nu);
    for (int i = 1; i <= 6; ++i) {
        for (int j = 1; j <= 6; ++j) {
            double want = 0.0;
            if (i <= 3 && j <= 3) want = i == j ? diag : off;
            if (i > 3 && i == j) want = G;
            EXPECT_NEAR(h.d(i, j), want, 1e-12 * E) << i << "," << j;
        }
    }
}

TEST(Task3, DrainedStiffnessFollowsTheMinorStress) {
    HostPoint h = soil_point("dense_sand", 1);
    h.Sig0 = {-50, -120, -70, 0, 0, 0};
    h.BulkW = 123.0;
    EXPECT_EQ(run_quiet(h, 3), "");
    EXPECT_EQ(h.BulkW, 0.0);
    expect_isotropic(h, P(h, 3) * stiffness_factor(h, 50.0), P(h, 8));

    // Task 6 gives the same matrix; model 3 too.
    HostPoint g = soil_point("dense_sand", 3);
    g.Sig0 = h.Sig0;
    g.call(6);
    EXPECT_EQ(g.D, h.D);
}

TEST(Task3, UndrainedBulkModulusOfThePoreWater) {
    for (const char* name : {"dense_sand", "loose_sand", "soft_clay"}) {
        HostPoint h = soil_point(name, 1);
        h.IsUndr = 1;
        h.Sig0 = {-60, -150, -60, 10, 0, 0};
        h.call(3);
        HostPoint dry = h;
        dry.IsUndr = 0;
        dry.call(3);
        EXPECT_EQ(h.D, dry.D);  // the matrix does not depend on drainage
        // BulkW is the undrained bulk modulus at nu_u = 0.495 minus the
        // drained one, with Eur at the minor principal stress.
        const double s3 = 105.0 - std::sqrt(45.0 * 45.0 + 100.0);  // minor of the xy block
        const double Eur = P(h, 3) * std::pow((s3 * std::sin(P(h, 6) * kDeg) +
                                               P(h, 5) * std::cos(P(h, 6) * kDeg)) /
                                                  (P(h, 9) * std::sin(P(h, 6) * kDeg) +
                                                   P(h, 5) * std::cos(P(h, 6) * kDeg)),
                                              P(h, 4));
        const double nu = P(h, 8), G = Eur / (2 * (1 + nu));
        const double Ku = 2 * G * (1 + 0.495) / (3 * (1 - 2 * 0.495));
        const double K = 2 * G * (1 + nu) / (3 * (1 - 2 * nu));
        SCOPED_TRACE(name);
        EXPECT_GT(h.BulkW, 0.0);
        EXPECT_NEAR(h.BulkW, Ku - K, 1e-10 * Ku);
    }
}

TEST(Task3, UndrainedAtTensionUsesTheCutOffFloor) {
    HostPoint h = soil_point("soft_clay", 1);
    h.IsUndr = 1;
    h.Props[11] = 3.0;                  // tensile strength 3 kPa
    h.Sig0 = {20, 25, 30, 0, 0, 0};      // all principal stresses tensile
    h.call(3);
    const double s = std::sin(P(h, 6) * kDeg), co = std::cos(P(h, 6) * kDeg);
    const double x = 3.0 * s + P(h, 5) * co;  // larger than -30 s + c cos(phi)
    const double Eur = P(h, 3) * std::pow(x / (P(h, 9) * s + P(h, 5) * co), P(h, 4));
    const double nu = P(h, 8);
    const double G = Eur / (2 * (1 + nu));
    EXPECT_NEAR(h.BulkW, 2 * G / 3 * (149.4999999999999 - (1 + nu) / (1 - 2 * nu)), 1e-12 * G);
    // The elastic matrix keeps its own floor of 1 stress unit.
    expect_isotropic(h, P(h, 3) * stiffness_factor(h, -30.0), nu);
}

// ------------------------------------------------------------ tasks 4 to 7

TEST(Tasks4And5, AttributesAndStateCount) {
    for (int model : {1, 3}) {
        HostPoint h = soil_point("dense_sand", model);
        h.iEl = 3;
        EXPECT_EQ(run_quiet(h, 4), "");
        EXPECT_EQ(h.nStat, 2);
        EXPECT_EQ(run_quiet(h, 5), "");
        EXPECT_EQ(h.NonSym, 0);
        EXPECT_EQ(h.StrsDep, 1);
        EXPECT_EQ(h.TimeDep, 0);
        EXPECT_EQ(h.Tangent, 0);
    }
}

TEST(Task7, Model3HasNoCalibration) {
    HostPoint h = soil_point("dense_sand", 3);
    const auto before = h.Props;
    EXPECT_EQ(run_quiet(h, 7), "");
    EXPECT_EQ(h.Props, before);
}

TEST(Task7, Model1StartsTheCalibration) {
    // The calibration runs long; its first line is enough to see it called.
    auto r = tervak_test::run_child([] {
        HostPoint h = soil_point("dense_sand", 1);
        alarm(1);
        h.call(7);
    });
    EXPECT_EQ(r.out.rfind(" Iterative_hss started\n", 0), 0u) << r.out.substr(0, 200);
}

TEST(UnknownTask, NothingIsWritten) {
    for (int model : {1, 3}) {
        HostPoint h = soil_point("dense_sand", model);
        h.iEl = 487;
        h.Int = 3;
        const HostPoint before = h;
        EXPECT_EQ(run_quiet(h, 8), "");
        EXPECT_EQ(run_quiet(h, 0), "");
        EXPECT_EQ(h.StVar, before.StVar);
        EXPECT_EQ(h.D, before.D);
        EXPECT_EQ(h.iPlast, before.iPlast);
    }
}

// ------------------------------------------------------------------ task 2

TEST(Task2, ZeroIncrementKeepsEverything) {
    for (int model : {1, 3}) {
        for (double tiny : {0.0, 1e-12}) {
            HostPoint h = soil_point("dense_sand", model);
            h.Sig0 = {-60, -140, -80, 12, -5, 3};
            h.call(1);
            h.call(3);
            const auto D = h.D;
            h.StVar0 = {0.003, -400.0};
            h.StVar = {7, 7};
            h.Pw0 = -12.5;
            h.dEps = {tiny, -2 * tiny, 0, 0, 3 * tiny, 0};  // norm below 1e-10
            h.iPlast = -99;
            run_quiet(h, 2);
            // The start stresses, rotated with the directions of the trial
            // stresses: these differ from Sig0 by D dEps at most.
            const double tol = tiny == 0.0 ? 1e-12 * 140 : 1e-6;
            for (int i = 0; i < 6; ++i) EXPECT_NEAR(h.Sig[i], h.Sig0[i], tol) << i;
            EXPECT_EQ(h.StVar, h.StVar0);
            EXPECT_EQ(h.iPlast, -99);
            EXPECT_EQ(h.D, D);
            EXPECT_EQ(h.Pw, h.Pw0);
        }
    }
}

TEST(Task2, UndrainedPointRaisesThePorePressure) {
    HostPoint h = soil_point("soft_clay", 1);
    h.Sig0 = {-60, -100, -60, 0, 0, 0};
    h.call(1);
    h.IsUndr = 1;
    h.call(3);
    ASSERT_GT(h.BulkW, 0.0);
    h.Pw0 = -20.0;
    h.dEps = {-1e-4, -3e-4, -1e-4, 0, 0, 0};
    h.call(2);
    EXPECT_DOUBLE_EQ(h.Pw, -20.0 + h.BulkW * (-5e-4));
    // Drained: the pore pressure stays.
    h.IsUndr = 0;
    h.call(2);
    EXPECT_EQ(h.Pw, -20.0);
}

// ----------------------------------------------------------- diagnostics

TEST(Diagnostics, Model1WritesOnlyAtElement487Point3) {
    HostPoint h = soil_point("dense_sand", 1);
    h.Sig0 = {-50, -100, -50, 0, 0, 0};
    h.call(1);
    h.call(3);
    h.dEps = {0, -1e-4, 0, 0, 0, 0};
    for (auto [el, ip] : {std::pair{1, 1}, {487, 2}, {486, 3}, {3, 487}}) {
        h.iEl = el;
        h.Int = ip;
        EXPECT_EQ(run_quiet(h, 2), "") << el << " " << ip;
    }
    h.iEl = 487;
    h.Int = 3;
    h.iStep = 12;
    h.iTer = 3;
    h.Time0 = 0.5;
    const std::string out = run_quiet(h, 2);
    const std::string header = " IDTask:" + list_int(2) + " iEl:" + list_int(487) + " Int:" +
                               list_int(3) + " iStep:" + list_int(12) + " iTer:" + list_int(3) +
                               " Time0: ";
    ASSERT_EQ(out.rfind(header, 0), 0u) << out.substr(0, 300);
    EXPECT_EQ(std::strtod(out.c_str() + header.size(), nullptr), 0.5);
    EXPECT_EQ(out.find('\n'), header.size() + 25);  // one real field closes the line
    EXPECT_NE(out.find(" IsUndr" + list_int(0) + "\n"), std::string::npos);
    // The strain split closes the output: six dash lines.
    size_t dashes = 0;
    for (size_t p = out.find(" ------------------------------\n"); p != std::string::npos;
         p = out.find(" ------------------------------\n", p + 1)) {
        ++dashes;
    }
    EXPECT_EQ(dashes, 6u);
    EXPECT_EQ(out.find("Las tensiones"), std::string::npos);
}

TEST(Diagnostics, Model3WritesEveryCallInSpanish) {
    HostPoint h = soil_point("dense_sand", 3);
    h.Sig0 = {-50, -100, -50, 0, 0, 0};
    h.call(1);
    h.call(3);
    h.iEl = 2;
    h.Int = 1;
    h.dEps = {2e-6, -1e-5, 2e-6, 0, 0, 0};  // a small elastic increment
    const std::string out = run_quiet(h, 2);
    EXPECT_EQ(h.iPlast, 0);
    const std::string header = " IDTask:" + list_int(2) + " iEl:" + list_int(2) + " Int:" +
                               list_int(1) + " iStep:" + list_int(1) + " iTer:" + list_int(1) +
                               "\n";
    EXPECT_EQ(out.rfind(header, 0), 0u) << out.substr(0, 300);
    EXPECT_NE(out.find("\n PASO DE CÁLCULO ELÁSTICO, DENTRO DE f13_hs, f13_mc, f_cap y f13_trac\n"),
              std::string::npos);
    const std::string last = "\n Las tensiones ppales al final de este paso de cálculo son Prs=\n";
    const size_t at = out.find(last);
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(out.compare(at + last.size(), 6, "Prs   "), 0);
    // The intermediate values, in their order, after the yield values.
    size_t pos = out.find(" Dp/Dq ");
    ASSERT_NE(pos, std::string::npos);
    for (const char* label :
         {"Prs_E(1)-Prs_E(3)", "qf", "qa", "qa-(Prs_E(1)-Prs_E(3))", "Ei", "Eur", "alfa", "beta",
          "xH", "delta", "q_m", "p", "gamma_p_E", "p_p_E"}) {
        const size_t next = out.find("\n " + std::string(label) + " ", pos);
        ASSERT_NE(next, std::string::npos) << label;
        pos = next + 1;
    }
    // Values that can be checked independently.
    auto value = [&](const std::string& label) {
        const size_t p = out.find("\n " + label + " ", out.find(" Dp/Dq "));
        return std::strtod(out.c_str() + p + 2 + label.size(), nullptr);
    };
    const double s = std::sin(P(h, 6) * kDeg), co = std::cos(P(h, 6) * kDeg);
    const double ccot = P(h, 5) * co / s;
    EXPECT_NEAR(value("qf"), 2 * s / (1 - s) * (ccot + 50.0), 1e-12 * 200);
    EXPECT_NEAR(value("qa"), value("qf") / P(h, 11), 1e-12 * 200);
    EXPECT_NEAR(value("Eur"), P(h, 3) * stiffness_factor(h, 50.0), 1e-9);
    EXPECT_NEAR(value("Ei"), P(h, 13) * stiffness_factor(h, 50.0), 1e-9);
    EXPECT_EQ(value("alfa"), P(h, 14));
    EXPECT_EQ(value("beta"), P(h, 15));
    EXPECT_NEAR(value("delta"), (3 + s) / (3 - s), 1e-15);
    EXPECT_NEAR(value("p_p_E"), -h.StVar0[1], 1e-12 * 100);
    // An elastic step splits into elastic strains only, and the stress
    // change printed is the one returned.
    for (const char* label : {"dEps_pl(1)", "dEps_pl(2)", "dEps_pl(3)", "dEps_vol_pl"}) {
        EXPECT_NEAR(value(label), 0.0, 1e-15) << label;
    }
    EXPECT_NEAR(value("dEps_el(2)"), -1e-5, 1e-15);
    EXPECT_NEAR(value("dEps_vol_el"), -6e-6, 1e-15);
    EXPECT_NEAR(value("dSig_real(el)(2)"), -(h.Sig[1] - h.Sig0[1]), 1e-12);
    EXPECT_NEAR(value("dSig_real(el)(1)"), -(h.Sig[0] - h.Sig0[0]), 1e-12);
    // The same call elsewhere writes the same lines but its own header.
    h.iEl = 900;
    const std::string again = run_quiet(h, 2);
    EXPECT_EQ(again.substr(again.find('\n')), out.substr(out.find('\n')));
}

}  // namespace
